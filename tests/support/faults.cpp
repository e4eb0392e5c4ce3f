#include "support/faults.h"

#include <dlfcn.h>
#include <fcntl.h>
#include <sys/file.h>
#include <sys/select.h>
#include <sys/socket.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <csignal>
#include <cstdarg>
#include <cstdio>
#include <cstdlib>
#include <stdexcept>
#include <string>
#include <utility>

namespace tq_test::faults {
namespace {

constexpr auto kCalls = std::to_array<std::string_view>(
    {"open",   "openat",  "read",    "write",     "close",    "fopen",   "fdopen", "fgets",
     "fread",  "fwrite",  "fflush",  "fclose",    "popen",    "pclose",  "system", "malloc",
     "calloc", "realloc", "strdup",  "rename",    "unlink",   "mkdir",   "fsync",  "flock",
     "fcntl",  "ioctl",   "mkstemp", "ftruncate", "lseek",    "socket",  "bind",   "connect",
     "send",   "sendto",  "sendmsg", "recv",      "recvfrom", "recvmsg", "select", "pread",
     "pwrite", "sleep",   "sync",    "sysinfo",   "statfs"});

// In the place of an errno: the call is the process's last.
constexpr int kDiesBefore = -1;
constexpr int kDiesHalfWritten = -2;

struct Counter {
    unsigned calls;
    unsigned last;           // the number of its last call among all that were counted
    unsigned until_failure;  // 0 when no failure is due
    int error;
    bool fired;
};

// Reached from malloc: plain data, in place before the first constructor runs.
thread_local constinit std::array<Counter, kCalls.size()> counters{};
thread_local constinit unsigned calls_counted = 0;
thread_local constinit unsigned seconds_asked = 0;
thread_local constinit const AnswerIoctl* ioctl_answer = nullptr;

constexpr std::size_t index_of(std::string_view name) {
    return static_cast<std::size_t>(std::ranges::find(kCalls, name) - kCalls.begin());
}

std::size_t known_index_of(std::string_view name) {
    const std::size_t index = index_of(name);
    if (index == kCalls.size())
        throw std::invalid_argument("faults.cpp does not forward " + std::string(name));
    return index;
}

template <std::size_t index>
bool fails() {
    static_assert(index < kCalls.size());
    Counter& counter = counters[index];
    ++counter.calls;
    counter.last = ++calls_counted;
    if (counter.until_failure == 0 || --counter.until_failure > 0) return false;
    if (counter.error < 0) raise(SIGKILL);
    counter.fired = true;
    errno = counter.error;
    return true;
}

template <std::size_t index>
bool dies_half_written() {
    const Counter& counter = counters[index];
    return counter.until_failure == 1 && counter.error == kDiesHalfWritten;
}

void note_sleep(unsigned seconds) {
    seconds_asked += seconds;
}

std::optional<int> answer_to_ioctl(unsigned long operation, void* argument) {
    return ioctl_answer ? (*ioctl_answer)(operation, argument) : std::nullopt;
}

}  // namespace

Fail::Fail(std::string_view name, unsigned nth, int error) : call_(known_index_of(name)) {
    Counter& counter = counters[call_];
    counter.until_failure = nth;
    counter.error = error;
    counter.fired = false;
}

Fail::~Fail() {
    counters[call_].until_failure = 0;
}

bool Fail::fired() const {
    return counters[call_].fired;
}

void kill_at(std::string_view name, unsigned nth, Death death) {
    Counter& counter = counters[known_index_of(name)];
    counter.until_failure = nth;
    counter.error = death == Death::kBefore ? kDiesBefore : kDiesHalfWritten;
}

AnswerIoctl::AnswerIoctl(Answer answer) : answer_(std::move(answer)) {
    ioctl_answer = this;
}

AnswerIoctl::~AnswerIoctl() {
    ioctl_answer = nullptr;
}

std::optional<int> AnswerIoctl::operator()(unsigned long operation, void* argument) const {
    return answer_(operation, argument);
}

void reset() {
    for (Counter& counter : counters)
        counter.calls = counter.last = 0;
    calls_counted = 0;
    seconds_asked = 0;
}

unsigned count(std::string_view name) {
    return counters[known_index_of(name)].calls;
}

bool in_order(std::initializer_list<std::string_view> names) {
    unsigned before = 0;
    for (const std::string_view name : names) {
        const unsigned last = counters[known_index_of(name)].last;
        if (last <= before) return false;
        before = last;
    }
    return true;
}

unsigned seconds_slept() {
    return seconds_asked;
}

unsigned each_failure(std::string_view name, int error, const std::function<void()>& body) {
    for (unsigned nth = 1;; ++nth) {
        const Fail fail(name, nth, error);
        body();
        if (!fail.fired()) return nth - 1;
    }
}

}  // namespace tq_test::faults

// The definitions have names of their own here, because the headers' declarations carry attributes,
// and names for 64-bit file offsets, that differ between machines; the assembler's names are the C
// library's. An optional last argument is forwarded always: where it was not passed, nobody looks
// at it.
#define TQ_DEFINE(symbol, Result, parameters)                                           \
    extern "C" Result forwarded_##symbol parameters asm(#symbol) __attribute__((weak)); \
    Result forwarded_##symbol parameters

#define TQ_NEXT(symbol, Result, parameters) \
    static Result(*const next) parameters = \
        reinterpret_cast<Result(*) parameters>(dlsym(RTLD_NEXT, #symbol))

#define TQ_FAILS(name) tq_test::faults::fails<tq_test::faults::index_of(name)>()

#define TQ_FORWARD_AS(symbol, name, failed, Result, parameters, arguments) \
    TQ_DEFINE(symbol, Result, parameters) {                                \
        TQ_NEXT(symbol, Result, parameters);                               \
        return TQ_FAILS(name) ? failed : next arguments;                   \
    }
#define TQ_FORWARD(symbol, failed, Result, parameters, arguments) \
    TQ_FORWARD_AS(symbol, #symbol, failed, Result, parameters, arguments)

// Failing to close lets go of the resource all the same.
#define TQ_FORWARD_CLOSE(symbol, parameters, arguments) \
    TQ_DEFINE(symbol, int, parameters) {                \
        TQ_NEXT(symbol, int, parameters);               \
        const int result = next arguments;              \
        return TQ_FAILS(#symbol) ? -1 : result;         \
    }

#define TQ_FORWARD_WRITE(symbol, name, parameters, arguments, half_of_arguments)   \
    TQ_DEFINE(symbol, ssize_t, parameters) {                                       \
        TQ_NEXT(symbol, ssize_t, parameters);                                      \
        if (tq_test::faults::dies_half_written<tq_test::faults::index_of(name)>()) \
            static_cast<void>(next half_of_arguments);                             \
        return TQ_FAILS(name) ? -1 : next arguments;                               \
    }

// clang-format off
TQ_FORWARD(open, -1, int, (const char* path, int flags, mode_t mode), (path, flags, mode))
TQ_FORWARD_AS(open64, "open", -1, int, (const char* path, int flags, mode_t mode), (path, flags, mode))
TQ_FORWARD(openat, -1, int, (int at, const char* path, int flags, mode_t mode), (at, path, flags, mode))
TQ_FORWARD_AS(openat64, "openat", -1, int, (int at, const char* path, int flags, mode_t mode), (at, path, flags, mode))
TQ_FORWARD(read, -1, ssize_t, (int fd, void* data, size_t size), (fd, data, size))
TQ_FORWARD_WRITE(write, "write", (int fd, const void* data, size_t size), (fd, data, size), (fd, data, size / 2))
TQ_FORWARD(pread, -1, ssize_t, (int fd, void* data, size_t size, long offset), (fd, data, size, offset))
TQ_FORWARD_AS(pread64, "pread", -1, ssize_t, (int fd, void* data, size_t size, int64_t offset), (fd, data, size, offset))
TQ_FORWARD_WRITE(pwrite, "pwrite", (int fd, const void* data, size_t size, long offset),
    (fd, data, size, offset), (fd, data, size / 2, offset))
TQ_FORWARD_WRITE(pwrite64, "pwrite", (int fd, const void* data, size_t size, int64_t offset),
    (fd, data, size, offset), (fd, data, size / 2, offset))
TQ_FORWARD_CLOSE(close, (int fd), (fd))
TQ_FORWARD(fcntl, -1, int, (int fd, int operation, void* argument), (fd, operation, argument))
TQ_FORWARD_AS(fcntl64, "fcntl", -1, int, (int fd, int operation, void* argument), (fd, operation, argument))
TQ_FORWARD(flock, -1, int, (int fd, int operation), (fd, operation))
TQ_FORWARD(fsync, -1, int, (int fd), (fd))
TQ_FORWARD(lseek, -1, long, (int fd, long offset, int whence), (fd, offset, whence))
TQ_FORWARD_AS(lseek64, "lseek", -1, int64_t, (int fd, int64_t offset, int whence), (fd, offset, whence))
TQ_FORWARD(ftruncate, -1, int, (int fd, long size), (fd, size))
TQ_FORWARD_AS(ftruncate64, "ftruncate", -1, int, (int fd, int64_t size), (fd, size))
TQ_FORWARD(rename, -1, int, (const char* from, const char* to), (from, to))
TQ_FORWARD(unlink, -1, int, (const char* path), (path))
TQ_FORWARD(mkdir, -1, int, (const char* path, mode_t mode), (path, mode))
TQ_FORWARD(mkstemp, -1, int, (char* path), (path))
TQ_FORWARD_AS(mkstemp64, "mkstemp", -1, int, (char* path), (path))

TQ_FORWARD(fopen, nullptr, FILE*, (const char* path, const char* mode), (path, mode))
TQ_FORWARD_AS(fopen64, "fopen", nullptr, FILE*, (const char* path, const char* mode), (path, mode))
TQ_FORWARD(fdopen, nullptr, FILE*, (int fd, const char* mode), (fd, mode))
TQ_FORWARD(fgets, nullptr, char*, (char* line, int size, FILE* file), (line, size, file))
TQ_FORWARD(fread, 0, size_t, (void* data, size_t size, size_t n, FILE* file), (data, size, n, file))
TQ_FORWARD(fwrite, 0, size_t, (const void* data, size_t size, size_t n, FILE* file), (data, size, n, file))
TQ_FORWARD(fflush, -1, int, (FILE* file), (file))
TQ_FORWARD_CLOSE(fclose, (FILE* file), (file))
TQ_FORWARD(popen, nullptr, FILE*, (const char* command, const char* mode), (command, mode))
TQ_FORWARD_CLOSE(pclose, (FILE* file), (file))
TQ_FORWARD(system, -1, int, (const char* command), (command))

TQ_FORWARD(socket, -1, int, (int domain, int type, int protocol), (domain, type, protocol))
TQ_FORWARD(bind, -1, int, (int fd, const sockaddr* address, socklen_t size), (fd, address, size))
TQ_FORWARD(connect, -1, int, (int fd, const sockaddr* address, socklen_t size), (fd, address, size))
TQ_FORWARD(send, -1, ssize_t, (int fd, const void* data, size_t size, int flags), (fd, data, size, flags))
TQ_FORWARD(sendto, -1, ssize_t,
    (int fd, const void* data, size_t size, int flags, const sockaddr* address, socklen_t length),
    (fd, data, size, flags, address, length))
TQ_FORWARD(sendmsg, -1, ssize_t, (int fd, const msghdr* message, int flags), (fd, message, flags))
TQ_FORWARD(recv, -1, ssize_t, (int fd, void* data, size_t size, int flags), (fd, data, size, flags))
TQ_FORWARD(recvfrom, -1, ssize_t,
    (int fd, void* data, size_t size, int flags, sockaddr* address, socklen_t* length),
    (fd, data, size, flags, address, length))
TQ_FORWARD(recvmsg, -1, ssize_t, (int fd, msghdr* message, int flags), (fd, message, flags))
TQ_FORWARD(select, -1, int, (int n, fd_set* reads, fd_set* writes, fd_set* errors, timeval* timeout),
    (n, reads, writes, errors, timeout))
TQ_FORWARD(sync, static_cast<void>(0), void, (), ())
TQ_FORWARD(sysinfo, -1, int, (void* info), (info))
TQ_FORWARD(statfs, -1, int, (const char* path, void* room), (path, room))
TQ_FORWARD_AS(statfs64, "statfs", -1, int, (const char* path, void* room), (path, room))
// clang-format on

// A sleep that fails is one that a signal ends at once.
TQ_DEFINE(sleep, unsigned, (unsigned seconds)) {
    TQ_NEXT(sleep, unsigned, (unsigned seconds));
    tq_test::faults::note_sleep(seconds);
    return TQ_FAILS("sleep") ? seconds : next(seconds);
}

TQ_DEFINE(ioctl, int, (int fd, unsigned long operation, void* argument)) {
    TQ_NEXT(ioctl, int, (int fd, unsigned long operation, void* argument));
    if (TQ_FAILS("ioctl")) return -1;
    const std::optional<int> answer = tq_test::faults::answer_to_ioctl(operation, argument);
    return answer ? *answer : next(fd, operation, argument);
}

// The allocator is not looked up by dlsym(), which allocates. strdup() is, because it has no second
// name.
#ifndef TQ_SANITIZED
extern "C" {
void* libc_malloc(size_t size) asm("__libc_malloc");
void* libc_calloc(size_t n, size_t size) asm("__libc_calloc");
void* libc_realloc(void* old, size_t size) asm("__libc_realloc");
}

TQ_DEFINE(malloc, void*, (size_t size)) {
    return TQ_FAILS("malloc") ? nullptr : libc_malloc(size);
}

TQ_DEFINE(calloc, void*, (size_t n, size_t size)) {
    return TQ_FAILS("calloc") ? nullptr : libc_calloc(n, size);
}

TQ_DEFINE(realloc, void*, (void* old, size_t size)) {
    return TQ_FAILS("realloc") ? nullptr : libc_realloc(old, size);
}

TQ_FORWARD(strdup, nullptr, char*, (const char* text), (text))
#endif
