// loop.h - what the process's event loop and the loops of several threads share: the table of
// sockets, the list of timeouts, and the steps of one pass. Nothing here takes a lock.
#pragma once

#include <sys/select.h>

#include <atomic>
#include <csignal>
#include <cstdlib>
#include <memory>
#include <optional>

#include "tq/eloop.h"
#include "tq/util.h"

namespace tq {

constexpr int32_t kMicrosecondsInSecond = 1000000;

// A field that a signal handler or another thread may change at any time.
inline std::atomic_ref<int> shared(int& field) {
    static_assert(std::atomic_ref<int>::is_always_lock_free);
    return std::atomic_ref<int>(field);
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

struct FreeTimeout {
    void operator()(eloop_timeout* timeout) const { free(timeout); }
};
using Timeout = std::unique_ptr<eloop_timeout, FreeTimeout>;

// A record that is due that long from now; null when memory runs out.
Timeout new_timeout(unsigned secs, unsigned usecs, eloop_timeout_handler handler, void* eloop_data,
                    void* user_data);

// Puts it behind all that are due before it or at the same instant.
void insert_timeout(eloop_state& loop, Timeout timeout);

// Unlinks the matching records and returns them as a list.
eloop_timeout* take_matching(eloop_state& loop, eloop_timeout_handler handler,
                             const void* eloop_data, const void* user_data);

// Frees a list of records and returns how many there were.
int free_timeouts(eloop_timeout* first);

// Frees all that the loop holds; its fields stay as they are.
void free_loop(const eloop_state& loop);

// When the next timeout is due.
std::optional<tq_timeval> next_due(const eloop_state& loop);

// One pass: how long to wait, the wait, and what is to be done after it.
class Pass {
  public:
    // Waits no longer than up to this instant.
    void limit_until(const tq_timeval& due);
    void limit_to_a_second();
    void do_not_wait();
    [[nodiscard]] bool waits() const;

    // Waits for the loop's sockets: what select() returns. With a mask, signals are let in by it
    // for the time of the wait.
    int wait(const eloop_state& loop, const sigset_t* mask = nullptr);

    // Unlinks the first timeout, if it is due.
    Timeout take_due(eloop_state& loop);

    // Calls the handlers of the sockets that are readable after the wait.
    void call_readers(const eloop_state& loop) const;

  private:
    void add_sockets(const eloop_state& loop);
    int wait_in_select(int count);
    int wait_in_pselect(int count, const sigset_t* mask);

    fd_set readable_ = {};
    tq_timeval now_ = {};  // an instant that is known to have passed
    timeval limit_ = {};
    bool limited_ = false;
};

}  // namespace tq
