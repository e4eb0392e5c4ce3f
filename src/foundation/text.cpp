#include "foundation/text.h"

#include <cstdarg>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <cstring>

namespace tq {

void TextWriter::append(const char* format, ...) {
    va_list args;
    va_start(args, format);
    // A failure is longer than any room.
    const auto length = static_cast<size_t>(vsnprintf(end_, room_, format, args));
    va_end(args);
    if (length >= room_) {
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

int leading_int(const char* text) {
    return static_cast<int>(static_cast<uint32_t>(strtoll(text, nullptr, 10)));
}

bool starts_with_int(const char* text) {
    char* end = nullptr;
    (void)strtoll(text, &end, 10);
    return end != text;
}

}  // namespace tq
