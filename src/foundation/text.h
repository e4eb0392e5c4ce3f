// text.h - bounded text.
#pragma once

#include <cstddef>
#include <span>

#include "foundation/hidden.h"

namespace TQ_HIDDEN tq {

// Writes text into a buffer of the caller's, always terminated; what does not fit is cut, and the
// writer remembers that.
class TextWriter {
  public:
    explicit TextWriter(std::span<char> buffer) : end_(buffer.data()), room_(buffer.size()) {
        *end_ = '\0';
    }

    __attribute__((format(printf, 2, 3))) void append(const char* format, ...);

    [[nodiscard]] bool cut() const { return room_ == 0; }

  private:
    char* end_;
    size_t room_;  // 0 once something was cut
};

// Text of fewer than N bytes, on the stack: for what is put together, or must not be cut.
template <size_t N>
class Text : public TextWriter {
  public:
    Text() : TextWriter(storage_) {}
    Text(const Text&) = delete;
    Text& operator=(const Text&) = delete;

    [[nodiscard]] const char* c_str() const { return storage_; }
    char* data() { return storage_; }

  private:
    char storage_[N];
};

// Copies at most size - 1 bytes of source and zeroes the rest of out.
void copy_text(char* out, size_t size, const char* source);

// The decimal integer that text starts with, blanks before it skipped; 0 where there is none.
// Beyond 32 bits its low 32 bits, so that what was written as an unsigned number reads back as the
// signed one it came from.
int leading_int(const char* text);
bool starts_with_int(const char* text);

}  // namespace tq
