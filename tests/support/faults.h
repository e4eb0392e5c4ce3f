// faults.h - makes a call into the C library fail.
//
// faults.cpp defines the C library's entry points and forwards them, so what the library under test
// calls, fails without a hook in it. Only calls of the thread that armed a fault fail and count.
#pragma once

#include <cerrno>
#include <functional>
#include <initializer_list>
#include <optional>
#include <string_view>
#include <vector>

// In a test that lets the allocator fail: the one of GCC's AddressSanitizer has a second name,
// which can be forwarded to; other sanitizers' allocators are out of reach.
#if defined(TQ_SANITIZED) && !defined(TQ_ADDRESS_SANITIZED)
#define TQ_NEEDS_FAILING_ALLOCATOR() \
    GTEST_SKIP() << "the sanitizer's allocator cannot be made to fail"
#else
#define TQ_FAILING_ALLOCATOR
#define TQ_NEEDS_FAILING_ALLOCATOR() static_cast<void>(0)
#endif

namespace tq_test::faults {

// The nth call of `name` from here on fails with `error`, once. One at a time for a name.
class Fail {
  public:
    explicit Fail(std::string_view name, unsigned nth = 1, int error = EIO);
    ~Fail();
    Fail(const Fail&) = delete;
    Fail& operator=(const Fail&) = delete;

    bool fired() const;

  private:
    std::size_t call_;
};

// Sees each ioctl of this thread before the kernel does, and may answer in its place: with -1,
// errno is what it sets. Without an answer the kernel is asked. One at a time.
class AnswerIoctl {
  public:
    using Answer = std::function<std::optional<int>(unsigned long operation, void* argument)>;

    explicit AnswerIoctl(Answer answer);
    ~AnswerIoctl();
    AnswerIoctl(const AnswerIoctl&) = delete;
    AnswerIoctl& operator=(const AnswerIoctl&) = delete;

    std::optional<int> operator()(unsigned long operation, void* argument) const;

  private:
    Answer answer_;
};

// The process is killed where it would make the nth call of `name` from here on: before the call,
// or, of a write() or pwrite(), when half of the bytes are written. For a child: it stays armed.
enum class Death : unsigned char { kBefore, kHalfWritten };
void kill_at(std::string_view name, unsigned nth, Death death = Death::kBefore);

void reset();
unsigned count(std::string_view name);

// True where all of these were called since reset(), the last call of each behind the last call of
// the one named before it.
bool in_order(std::initializer_list<std::string_view> names);

// What sleep() was asked for since reset(), also where it failed at once.
unsigned seconds_slept();

// Runs `body` with the first call of `name` failing, then the second, until a run makes no further
// call. Returns the number of failures.
unsigned each_failure(std::string_view name, int error, const std::function<void()>& body);

// ---- one call after the other ----

// What a call does instead of its work: fails with the error that is usual for it, is interrupted
// by a signal, or does half of it.
enum class Way : unsigned char { kFail, kInterrupt, kCut };

// How calls of that name can fail, kFail among them.
std::vector<Way> ways_of(std::string_view name);
bool allocates(std::string_view name);

// While it lasts, the calls of this thread are noted in their order, by whatever name, and the nth
// of them fails; 0 for none. Only those count that come from the library under test and what of the
// firmware's it is built on, or from the test itself: what the C library does for itself is its own
// affair, and so is libnl's. Neither allocates; one at a time. A child of fork goes on in its
// parent's.
class Sweep {
  public:
    explicit Sweep(unsigned nth = 0, Way way = Way::kFail);
    ~Sweep();
    Sweep(const Sweep&) = delete;
    Sweep& operator=(const Sweep&) = delete;

    // What the last one has noted.
    static std::vector<std::string_view> calls();
    static bool fired();
};

// Sleeps of this thread end at once, and sync() does nothing, while it lasts.
class Hurry {
  public:
    Hurry();
    ~Hurry();
    Hurry(const Hurry&) = delete;
    Hurry& operator=(const Hurry&) = delete;
};

// Blocks that this thread has allocated, less those that it has freed.
long live_blocks();

// For a definition elsewhere in the place of a library's function: notes the call, and tells
// whether it is to fail.
bool is_to_fail(std::string_view name, const void* caller);

}  // namespace tq_test::faults
