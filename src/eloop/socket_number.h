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
        const uint32_t low = one_more(low_);
        return {low == 0 ? one_more(high_) : high_.load(std::memory_order_relaxed), low};
    }

  private:
    static uint32_t one_more(std::atomic<uint32_t>& counter) {
        return counter.fetch_add(1, std::memory_order_relaxed) + 1;
    }

    std::atomic<uint32_t> high_ = 0;
    std::atomic<uint32_t> low_ = 0;
};

}  // namespace tq
