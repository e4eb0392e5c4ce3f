#include "eloop/loop.h"

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <cstdio>
#include <cstring>

namespace tq {
namespace {

// On the device each field is one word.
static_assert(sizeof(void*) != 4 || sizeof(eloop_state) == 40);
static_assert(sizeof(void*) != 4 || offsetof(eloop_state, timeout) == 16);
static_assert(sizeof(void*) != 4 || sizeof(eloop_sock) == 16);
static_assert(sizeof(void*) != 4 || sizeof(eloop_timeout) == 24);
static_assert(sizeof(void*) != 4 || sizeof(eloop_signal) == 16);

// A record as it is allocated. The first of a list knows the last, so that a timeout that is due
// after all others, the usual one, is not searched a place for.
struct TimeoutNode : eloop_timeout {
    eloop_timeout* last;
};

eloop_timeout*& last_of(eloop_timeout* first) {
    return static_cast<TimeoutNode*>(first)->last;
}

template <typename A, typename B>
bool earlier(const A& a, const B& b) {
    return a.tv_sec != b.tv_sec ? a.tv_sec < b.tv_sec : a.tv_usec < b.tv_usec;
}

// That long after an instant, or the last instant that there is.
tq_timeval after(const tq_timeval& instant, uint32_t secs, uint32_t usecs) {
    auto sec = static_cast<uint32_t>(instant.tv_sec) + usecs / kMicrosecondsInSecond;
    auto usec = instant.tv_usec + static_cast<int32_t>(usecs % kMicrosecondsInSecond);
    while (usec >= kMicrosecondsInSecond) {
        usec -= kMicrosecondsInSecond;
        sec++;
    }
    if (sec > INT32_MAX || secs > INT32_MAX - sec) {
        return {.tv_sec = INT32_MAX, .tv_usec = kMicrosecondsInSecond - 1};
    }
    return {.tv_sec = static_cast<int32_t>(sec + secs), .tv_usec = usec};
}

tq_timeval read_clock() {
    tq_timeval now = {};
    tq_gettime(&now);
    return now;
}

tq_timeval valid_now() {
    const tq_timeval now = read_clock();
    if (now.tv_usec < kMicrosecondsInSecond) return now;
    printf("ERROR: tq_gettime returned invalid time: tv_sec=%d tv_usec=%d\n", now.tv_sec,
           now.tv_usec);
    return {.tv_sec = now.tv_sec, .tv_usec = kMicrosecondsInSecond - 1};
}

bool is_or_any(const void* value, const void* wanted) {
    return wanted == ELOOP_ALL || value == wanted;
}

eloop_timeout* take_first(eloop_state& loop) {
    eloop_timeout* first = loop.timeout;
    loop.timeout = first->next;
    if (loop.timeout) last_of(loop.timeout) = last_of(first);
    return first;
}

}  // namespace

int add_reader(eloop_state& loop, const eloop_sock& reader) {
    eloop_sock* readers = with_one_more(loop.readers, loop.reader_count);
    if (!readers) return -1;
    loop.readers = readers;
    readers[loop.reader_count++] = reader;
    if (reader.sock > loop.max_sock) loop.max_sock = reader.sock;
    return 0;
}

int remove_reader(eloop_state& loop, int sock) {
    int i = 0;
    while (i < loop.reader_count && loop.readers[i].sock != sock)
        i++;
    if (i >= loop.reader_count) return -1;
    loop.reader_count--;
    const auto behind = static_cast<size_t>(loop.reader_count - i);
    memmove(&loop.readers[i], &loop.readers[i + 1], behind * sizeof(eloop_sock));
    return 0;
}

eloop_timeout* new_timeout(unsigned secs, unsigned usecs, eloop_timeout_handler handler,
                           void* eloop_data, void* user_data) {
    auto* node = static_cast<TimeoutNode*>(malloc(sizeof(TimeoutNode)));
    if (!node) return nullptr;
    const tq_timeval due = after(read_clock(), secs, usecs);
    *node = {{.tv_sec = due.tv_sec,
              .tv_usec = due.tv_usec,
              .eloop_data = eloop_data,
              .user_data = user_data,
              .handler = handler,
              .next = nullptr},
             node};
    return node;
}

void insert_timeout(eloop_state& loop, eloop_timeout* added) {
    eloop_timeout* first = loop.timeout;
    if (!first || earlier(*added, *first)) {
        if (first) last_of(added) = last_of(first);
        added->next = first;
        loop.timeout = added;
        return;
    }
    eloop_timeout* before = earlier(*added, *last_of(first)) ? first : last_of(first);
    while (before->next && !earlier(*added, *before->next))
        before = before->next;
    added->next = before->next;
    before->next = added;
    if (!added->next) last_of(first) = added;
}

eloop_timeout* take_due(eloop_state& loop) {
    if (!loop.timeout || earlier(read_clock(), *loop.timeout)) return nullptr;
    return take_first(loop);
}

void call_timeout(eloop_timeout* due) {
    if (!due) return;
    due->handler(due->eloop_data, due->user_data);
    free(due);
}

eloop_timeout* take_matching(eloop_state& loop, eloop_timeout_handler handler,
                             const void* eloop_data, const void* user_data) {
    eloop_timeout* taken = nullptr;
    eloop_timeout* last = nullptr;
    eloop_timeout** link = &loop.timeout;
    while (eloop_timeout* timeout = *link) {
        if (timeout->handler == handler && is_or_any(timeout->eloop_data, eloop_data) &&
            is_or_any(timeout->user_data, user_data)) {
            *link = timeout->next;
            timeout->next = taken;
            taken = timeout;
        } else {
            last = timeout;
            link = &timeout->next;
        }
    }
    if (last) last_of(loop.timeout) = last;
    return taken;
}

int free_timeouts(eloop_timeout* first) {
    int count = 0;
    for (; first; count++) {
        eloop_timeout* next = first->next;
        free(first);
        first = next;
    }
    return count;
}

void free_loop(const eloop_state& loop) {
    free_timeouts(loop.timeout);
    free(loop.readers);
    free(loop.signals);
}

bool Pass::limit_to_timeout(const eloop_state& loop) {
    const eloop_timeout* first = loop.timeout;
    if (!first) return false;
    const tq_timeval now = valid_now();
    limited_ = true;
    if (!earlier(now, *first)) return true;
    limit_ = {.tv_sec = first->tv_sec - now.tv_sec, .tv_usec = first->tv_usec - now.tv_usec};
    if (limit_.tv_usec < 0) {
        limit_.tv_sec--;
        limit_.tv_usec += kMicrosecondsInSecond;
    }
    return true;
}

int Pass::wait(const eloop_state& loop, const sigset_t* mask) {
    FD_ZERO(&readable_);
    for (int i = 0; i < loop.reader_count; i++)
        FD_SET(loop.readers[i].sock, &readable_);
    const int count = std::min(loop.max_sock + (loop.cmm_agent_connected ? 2 : 1), FD_SETSIZE);
    if (mask) {
        const timespec limit = {.tv_sec = limit_.tv_sec, .tv_nsec = limit_.tv_usec * 1000L};
        return pselect(count, &readable_, nullptr, nullptr, limited_ ? &limit : nullptr, mask);
    }
    timeval limit = {.tv_sec = limit_.tv_sec, .tv_usec = limit_.tv_usec};
    return select(count, &readable_, nullptr, nullptr, limited_ ? &limit : nullptr);
}

void Pass::call_readers(const eloop_state& loop) const {
    // The table is read anew after each handler, which may have changed it.
    for (int i = 0; i < loop.reader_count; i++) {
        const eloop_sock& reader = loop.readers[i];
        if (!FD_ISSET(reader.sock, &readable_)) continue;
        reader.handler(reader.sock, reader.eloop_data, reader.user_data);
    }
}

}  // namespace tq
