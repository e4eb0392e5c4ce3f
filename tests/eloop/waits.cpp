#include "eloop/waits.h"

#include <dlfcn.h>
#include <sys/select.h>

#include <cerrno>
#include <ctime>
#include <utility>

namespace tq_test::waits {
namespace {

constexpr int64_t kSecond = 1000000;

thread_local std::vector<Wait> waits;
thread_local std::function<void()> action;
thread_local std::function<void()> reading_action;
thread_local constinit int readings = 0;
thread_local constinit int failure = 0;
thread_local constinit std::optional<int64_t> virtual_now;
thread_local constinit std::optional<timespec> prepared_reading;

std::vector<int> members(const fd_set* set) {
    std::vector<int> found;
    for (int sock = 0; set && sock < FD_SETSIZE; sock++) {
        if (FD_ISSET(sock, set)) found.push_back(sock);
    }
    return found;
}

// What both kinds of wait do first; true where the wait fails.
bool starts(Wait wait) {
    waits.push_back(std::move(wait));
    if (action) std::exchange(action, nullptr)();
    errno = std::exchange(failure, 0);
    return errno != 0;
}

int64_t micro(const timespec& time) {
    return time.tv_sec * kSecond + time.tv_nsec / 1000;
}

// Whether the part of a second in a limit is one; Linux asks for that in pselect() alone.
bool is_normalized(long part, long parts) {
    if (part >= 0 && part < parts) return true;
    errno = EINVAL;
    return false;
}

}  // namespace

const std::vector<Wait>& seen() {
    return waits;
}

int clock_readings() {
    return readings;
}

void reset() {
    waits.clear();
    readings = 0;
    failure = 0;
    action = nullptr;
    reading_action = nullptr;
    prepared_reading.reset();
}

void before_next(std::function<void()> wanted) {
    action = std::move(wanted);
}

void fail_next(int error) {
    failure = error;
}

VirtualTime::VirtualTime(int64_t sec, int64_t usec) {
    virtual_now = sec * kSecond + usec;
}

VirtualTime::~VirtualTime() {
    virtual_now.reset();
}

void VirtualTime::advance(int64_t usec) {
    *virtual_now += usec;
}

int64_t VirtualTime::now() {
    return *virtual_now;
}

void next_reading(int64_t sec, int64_t nsec) {
    prepared_reading =
        timespec{.tv_sec = static_cast<time_t>(sec), .tv_nsec = static_cast<long>(nsec)};
}

void before_next_reading(std::function<void()> wanted) {
    reading_action = std::move(wanted);
}

}  // namespace tq_test::waits

extern "C" int watched_clock_gettime(clockid_t id, timespec* now) asm("clock_gettime");
extern "C" int watched_select(int count, fd_set* reads, fd_set* writes, fd_set* errors,
                              timeval* limit) asm("select");
extern "C" int watched_pselect(int count, fd_set* reads, fd_set* writes, fd_set* errors,
                               const timespec* limit, const sigset_t* mask) asm("pselect");

using namespace tq_test::waits;  // NOLINT(google-build-using-namespace)

int watched_clock_gettime(clockid_t id, timespec* now) {
    static const auto next =
        reinterpret_cast<int (*)(clockid_t, timespec*)>(dlsym(RTLD_NEXT, "clock_gettime"));
    if (id != CLOCK_MONOTONIC) return next(id, now);
    readings++;
    if (reading_action) std::exchange(reading_action, nullptr)();
    if (prepared_reading) {
        *now = *prepared_reading;
        prepared_reading.reset();
        return 0;
    }
    if (!virtual_now) return next(id, now);
    now->tv_sec = static_cast<time_t>(*virtual_now / kSecond);
    now->tv_nsec = static_cast<long>(*virtual_now % kSecond * 1000);
    return 0;
}

int watched_pselect(int count, fd_set* reads, fd_set* writes, fd_set* errors, const timespec* limit,
                    const sigset_t* mask) {
    static const auto next =
        reinterpret_cast<int (*)(int, fd_set*, fd_set*, fd_set*, const timespec*, const sigset_t*)>(
            dlsym(RTLD_NEXT, "pselect"));
    const auto micros = limit ? std::optional(micro(*limit)) : std::nullopt;
    if (starts({count, micros, true, members(reads), writes || errors})) return -1;
    if (limit && !is_normalized(limit->tv_nsec, 1000 * kSecond)) return -1;
    if (!virtual_now || !limit) return next(count, reads, writes, errors, limit, mask);
    const timespec none = {};
    const int ready = next(count, reads, writes, errors, &none, mask);
    if (ready == 0) VirtualTime::advance(*micros);
    return ready;
}

int watched_select(int count, fd_set* reads, fd_set* writes, fd_set* errors, timeval* limit) {
    static const auto next = reinterpret_cast<int (*)(int, fd_set*, fd_set*, fd_set*, timeval*)>(
        dlsym(RTLD_NEXT, "select"));
    const auto micros =
        limit ? std::optional<int64_t>(limit->tv_sec * kSecond + limit->tv_usec) : std::nullopt;
    if (starts({count, micros, false, members(reads), writes || errors})) return -1;
    if (limit && !is_normalized(limit->tv_usec, kSecond)) return -1;
    if (!virtual_now || !limit) return next(count, reads, writes, errors, limit);
    timeval none = {};
    const int ready = next(count, reads, writes, errors, &none);
    if (ready == 0) VirtualTime::advance(*micros);
    return ready;
}
