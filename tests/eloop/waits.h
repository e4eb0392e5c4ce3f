// waits.h - the waits and clock readings of a loop that this thread runs: recorded, and where a
// test wants it, passed without waiting.
#pragma once

#include <cstdint>
#include <functional>
#include <optional>
#include <vector>

namespace tq_test::waits {

// One call of select() or pselect().
struct Wait {
    int count;                     // of descriptors
    std::optional<int64_t> limit;  // in microseconds; none for a wait without end
    bool with_mask;                // pselect()
    std::vector<int> readable;     // descriptors of the set, the whole of it
    bool others;                   // whether there was a set of another kind
};

// Those since the last reset.
const std::vector<Wait>& seen();
int clock_readings();
void reset();

// Runs once, right before the next wait.
void before_next(std::function<void()> wanted);

// The next wait fails with this error.
void fail_next(int error);

// The monotonic clock of this thread stands still, except that a wait for nothing moves it to the
// wait's end at once.
class VirtualTime {
  public:
    VirtualTime(int64_t sec, int64_t usec);
    ~VirtualTime();
    VirtualTime(const VirtualTime&) = delete;
    VirtualTime& operator=(const VirtualTime&) = delete;

    static void advance(int64_t usec);
    static int64_t now();  // in microseconds
};

// The next reading of the monotonic clock, and what runs right before it.
void next_reading(int64_t sec, int64_t nsec);
void before_next_reading(std::function<void()> wanted);

}  // namespace tq_test::waits
