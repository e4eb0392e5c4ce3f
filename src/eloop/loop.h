// loop.h - what the process's event loop and the loops of several threads share: the table of
// sockets, the list of timeouts, and the steps of one pass. Nothing here takes a lock.
#pragma once

#include <sys/select.h>

#include <atomic>
#include <csignal>
#include <cstdlib>

#include "foundation/hidden.h"
#include "tq/eloop.h"
#include "tq/util.h"

namespace TQ_HIDDEN tq {

constexpr int32_t kMicrosecondsInSecond = 1000000;

// A field that a signal handler or another thread may change at any time. What another thread
// writes tells of nothing else, so that its readers need no order.
inline std::atomic_ref<int> shared(int& field) {
    static_assert(std::atomic_ref<int>::is_always_lock_free);
    return std::atomic_ref<int>(field);
}

inline int look_at(int& field) {
    return shared(field).load(std::memory_order_relaxed);
}

inline void set_shared(int& field, int value) {
    shared(field).store(value, std::memory_order_relaxed);
}

// The array with room for one entry more, or null with the array as it was.
template <typename Entry>
Entry* with_one_more(Entry* entries, int count) {
    return static_cast<Entry*>(realloc(entries, (static_cast<size_t>(count) + 1) * sizeof(Entry)));
}

// Beyond its size, a descriptor set is somebody else's memory.
inline bool fits_descriptor_set(int sock) {
    return sock >= 0 && sock < FD_SETSIZE;
}

int add_reader(eloop_state& loop, const eloop_sock& reader);
int remove_reader(eloop_state& loop, int sock);

// A record that is due that long from now, its caller's to free or to insert; null when memory runs
// out.
eloop_timeout* new_timeout(unsigned secs, unsigned usecs, eloop_timeout_handler handler,
                           void* eloop_data, void* user_data);

// Puts it behind all that are due before it or at the same instant.
void insert_timeout(eloop_state& loop, eloop_timeout* added);

// Unlinks the first timeout, if it is due by the clock, for call_timeout(); else null.
eloop_timeout* take_due(eloop_state& loop);

// Calls the handler of a record that is due, or of none, and frees it.
void call_timeout(eloop_timeout* due);

// Unlinks the matching records and returns them as a list.
eloop_timeout* take_matching(eloop_state& loop, eloop_timeout_handler handler,
                             const void* eloop_data, const void* user_data);

// Frees a list of records and returns how many there were.
int free_timeouts(eloop_timeout* first);

// Frees all that the loop holds; its fields stay as they are.
void free_loop(const eloop_state& loop);

// One pass: how long to wait, the wait, and what is to be done after it.
class Pass {
  public:
    // Waits no longer than until the first timeout is due; false where there is none.
    bool limit_to_timeout(const eloop_state& loop);
    void limit_to_a_second() {
        if (limited_ && limit_.tv_sec < 1) return;
        limited_ = true;
        limit_ = {.tv_sec = 1, .tv_usec = 0};
    }
    void do_not_wait() {
        limited_ = true;
        limit_ = {};
    }
    [[nodiscard]] bool waits() const {
        return !limited_ || limit_.tv_sec != 0 || limit_.tv_usec != 0;
    }

    // Waits for the loop's sockets: what select() returns. With a mask, signals are let in by it
    // for the time of the wait.
    int wait(const eloop_state& loop, const sigset_t* mask = nullptr);

    // Calls the handlers of the sockets that are readable after the wait.
    void call_readers(const eloop_state& loop) const;

  private:
    fd_set readable_;  // since the wait
    tq_timeval limit_ = {};
    bool limited_ = false;
};

}  // namespace tq
