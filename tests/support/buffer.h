// buffer.h - a caller's buffer that shows what was written to it, and where.
#pragma once

#include <string>

namespace tq_test {

// What stands in a buffer before the call: no function writes this.
inline constexpr char kUntouched = '\x5a';

// A buffer of the caller's with a guard behind it.
class Buffer {
  public:
    explicit Buffer(int size) : size_(size), bytes_(static_cast<size_t>(size) + 16, kUntouched) {}

    char* data() { return bytes_.data(); }
    [[nodiscard]] int size() const { return size_; }
    [[nodiscard]] std::string text() const { return bytes_.substr(0, bytes_.find('\0')); }
    [[nodiscard]] std::string all() const { return bytes_.substr(0, static_cast<size_t>(size_)); }
    [[nodiscard]] bool untouched() const {
        return bytes_ == std::string(bytes_.size(), kUntouched);
    }
    [[nodiscard]] bool guard_holds() const {
        return bytes_.substr(static_cast<size_t>(size_)) == std::string(16, kUntouched);
    }

  private:
    int size_;
    std::string bytes_;
};

}  // namespace tq_test
