#include "foundation/text.h"

#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <cstring>

namespace tq {

TextWriter::TextWriter(std::span<char> buffer) : buffer_(buffer) {
    buffer_[0] = '\0';
}

void TextWriter::append(const char* format, ...) {
    const size_t room = buffer_.size() - used_;
    va_list args;
    va_start(args, format);
    const int wanted = vsnprintf(&buffer_[used_], room, format, args);
    va_end(args);
    if (wanted >= 0 && static_cast<size_t>(wanted) < room) {
        used_ += static_cast<size_t>(wanted);
        return;
    }
    cut_ = true;
    used_ += strlen(&buffer_[used_]);
}

void copy_text(char* out, size_t size, const char* source) {
    strncpy(out, source, size - 1);
    out[size - 1] = '\0';
}

std::optional<int> leading_int(const char* text) {
    char* end = nullptr;
    const long long value = strtoll(text, &end, 10);
    if (end == text) return std::nullopt;
    return static_cast<int>(static_cast<uint32_t>(value));
}

}  // namespace tq
