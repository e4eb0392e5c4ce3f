// socket_number.h - what makes the name of each client socket of a process another one.
#pragma once

#include <atomic>
#include <cstdint>

namespace tq {

// Two counters of 32 bits rather than one of 64, which the device's processor has no atomic for.
class SocketNumber {
  public:
    struct Value {
        uint32_t high;
        uint32_t low;
    };

    constexpr SocketNumber() = default;
    constexpr SocketNumber(uint32_t high, uint32_t low) : high_(high), low_(low) {}

    Value next() {
        const uint32_t low = ++low_;
        return {low == 0 ? ++high_ : high_.load(), low};
    }

  private:
    std::atomic<uint32_t> high_ = 0;
    std::atomic<uint32_t> low_ = 0;
};

}  // namespace tq
