#include "foundation/text.h"

#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <cstring>

namespace tq {

void TextWriter::append(const char* format, ...) {
    va_list args;
    va_start(args, format);
    const int wanted = vsnprintf(end_, room_, format, args);
    va_end(args);
    const auto length = static_cast<size_t>(wanted);
    if (wanted < 0 || length >= room_) {
        room_ = 0;
        return;
    }
    end_ += length;
    room_ -= length;
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
