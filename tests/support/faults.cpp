#include "support/faults.h"

#include <dirent.h>
#include <dlfcn.h>
#include <fcntl.h>
#include <link.h>
#include <netdb.h>
#include <poll.h>
#include <pthread.h>
#include <sys/file.h>
#include <sys/mman.h>
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

// How else than with an error a call can end.
enum Else : unsigned char { kOnlyFails, kInterrupted, kCut };

// What can be made to fail, with the error that is usual for it.
struct Call {
    std::string_view name;
    int error;
    Else other = kOnlyFails;
};

constexpr auto kCalls = std::to_array<Call>({
    {"open", EMFILE},
    {"openat", EMFILE},
    {"read", EIO, kInterrupted},
    {"write", ENOSPC, kCut},
    {"close", EIO},
    {"fopen", EMFILE},
    {"fdopen", ENOMEM},
    {"fgets", EIO},
    {"fgetc", EIO},
    {"fread", EIO},
    {"fscanf", EIO},
    {"getline", EIO},
    {"fwrite", ENOSPC},
    {"fputs", ENOSPC},
    {"fputc", ENOSPC},
    {"fprintf", ENOSPC},
    {"puts", EIO},
    {"printf", EIO},
    {"fflush", ENOSPC},
    {"fseek", EIO},
    {"ftell", EIO},
    {"fclose", EIO},
    {"popen", EAGAIN},
    {"pclose", ECHILD},
    {"system", EAGAIN},
    {"malloc", ENOMEM},
    {"calloc", ENOMEM},
    {"realloc", ENOMEM},
    {"strdup", ENOMEM},
    {"strndup", ENOMEM},
    {"asprintf", ENOMEM},
    {"realpath", ENOMEM},
    {"rename", EIO},
    {"unlink", EIO},
    {"mkdir", ENOSPC},
    {"access", ENOMEM},
    {"chmod", EIO},
    {"fchmod", EIO},
    {"fchown", EIO},
    {"stat", ENOMEM},
    {"fstat", EIO},
    {"fstatat", ENOMEM},
    {"opendir", EMFILE},
    {"readdir", EIO},
    {"closedir", EIO},
    {"fsync", EIO},
    {"flock", ENOLCK, kInterrupted},
    {"fcntl", EMFILE},
    {"ioctl", EPERM},
    {"mkstemp", EEXIST},
    {"ftruncate", EIO},
    {"lseek", EIO},
    {"socket", EMFILE},
    {"setsockopt", ENOBUFS},
    {"bind", EADDRINUSE},
    {"connect", ECONNREFUSED},
    {"send", ENOBUFS},
    {"sendto", ENOBUFS},
    {"sendmsg", ECONNRESET, kInterrupted},
    {"recv", ECONNRESET, kInterrupted},
    {"recvfrom", ECONNRESET, kInterrupted},
    {"recvmsg", ECONNRESET, kInterrupted},
    {"select", ENOMEM, kInterrupted},
    {"pselect", ENOMEM, kInterrupted},
    {"poll", ENOMEM, kInterrupted},
    {"epoll_create1", EMFILE},
    {"epoll_ctl", ENOMEM},
    {"eventfd", EMFILE},
    {"pread", EIO},
    {"pwrite", ENOSPC, kCut},
    {"sleep", EINTR},
    {"sync", EIO},
    {"sysinfo", EFAULT},
    {"statfs", EIO},
    {"kill", EPERM},
    {"signal", EINVAL},
    {"sigaction", EINVAL},
    {"clock_gettime", EINVAL},
    {"gethostbyname", EAGAIN},
    {"setmntent", EMFILE},
    {"getmntent_r", EIO},
    {"pthread_mutex_init", ENOMEM},
    // libnl's
    {"nl_socket_alloc", ENOMEM},
    {"genl_connect", EMFILE},
    {"genl_ctrl_resolve", ENOENT},
    {"nl_socket_add_membership", EPERM},
    {"nl_send_auto", ENOBUFS},
    {"nl_recvmsgs", ENOBUFS},
    {"nl_cb_clone", ENOMEM},
    {"nlmsg_alloc", ENOMEM},
    {"genlmsg_put", ENOMEM},
    {"nla_put_string", ENOMEM},
});

constexpr auto kAllocators = std::to_array<std::string_view>({
    "malloc",
    "calloc",
    "realloc",
    "strdup",
    "strndup",
    "asprintf",
    "nl_socket_alloc",
    "nl_cb_clone",
    "nlmsg_alloc",
});

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
thread_local constinit bool in_a_hurry = false;
thread_local constinit long live = 0;

// Where the objects lie whose calls a sweep takes.
struct Extent {
    uintptr_t begin;
    uintptr_t end;
};
constexpr auto kSweptObjects = std::to_array<std::string_view>(
    {"libtq.so", "libuci.so", "libubox.so", "libubus.so", "libtqoem.so", "libnl-tiny.so"});
constinit std::array<Extent, 1 + kSweptObjects.size()> extents{};
constinit std::size_t extents_known = 0;

// What a sweep notes; a child of fork writes it for its parent, too.
struct Notes {
    unsigned nth;
    Way way;
    bool fired;
    unsigned count;
    std::array<uint8_t, 1U << 17U> calls;
};
thread_local constinit Notes* notes = nullptr;
thread_local constinit bool sweeping = false;

constexpr std::size_t index_of(std::string_view name) {
    return static_cast<std::size_t>(std::ranges::find(kCalls, name, &Call::name) - kCalls.begin());
}

std::size_t known_index_of(std::string_view name) {
    const std::size_t index = index_of(name);
    if (index == kCalls.size())
        throw std::invalid_argument("faults.cpp does not forward " + std::string(name));
    return index;
}

// The program itself and the objects of the firmware; the first is the program.
int note_extent(dl_phdr_info* object, std::size_t /*size*/, void* /*data*/) {
    const std::string_view path(object->dlpi_name);
    const bool swept = path.empty()
                           ? extents_known == 0
                           : std::ranges::any_of(kSweptObjects, [&](std::string_view name) {
                                 return path.find(name) != std::string_view::npos;
                             });
    if (!swept || extents_known == extents.size()) return 0;
    Extent extent{UINTPTR_MAX, 0};
    for (int i = 0; i < object->dlpi_phnum; i++) {
        const auto& segment = object->dlpi_phdr[i];
        if (segment.p_type != PT_LOAD) continue;
        const uintptr_t begin = object->dlpi_addr + segment.p_vaddr;
        extent.begin = std::min(extent.begin, begin);
        extent.end = std::max<uintptr_t>(extent.end, begin + segment.p_memsz);
    }
    extents[extents_known++] = extent;
    return 0;
}

bool is_swept(const void* caller) {
    const auto address = reinterpret_cast<uintptr_t>(caller);
    return std::any_of(extents.begin(), extents.begin() + extents_known, [=](const Extent& extent) {
        return address >= extent.begin && address < extent.end;
    });
}

bool notes_failure(std::size_t index, const void* caller) {
    if (!sweeping || !is_swept(caller)) return false;
    if (notes->count == notes->calls.size()) std::abort();
    notes->calls[notes->count++] = static_cast<uint8_t>(index);
    if (notes->count != notes->nth) return false;
    notes->fired = true;
    errno = notes->way == Way::kInterrupt ? EINTR : kCalls[index].error;
    return true;
}

bool fails(std::size_t index, const void* caller) {
    Counter& counter = counters[index];
    ++counter.calls;
    counter.last = ++calls_counted;
    if (notes_failure(index, caller)) return true;
    if (counter.until_failure == 0 || --counter.until_failure > 0) return false;
    if (counter.error < 0) raise(SIGKILL);
    counter.fired = true;
    errno = counter.error;
    return true;
}

// Whether the failure that a call has just had is that it does half of its work.
bool does_half() {
    return sweeping && notes->fired && notes->count == notes->nth && notes->way == Way::kCut;
}

template <std::size_t index>
bool fails(const void* caller) {
    static_assert(index < kCalls.size());
    return fails(index, caller);
}

template <std::size_t index>
bool dies_half_written() {
    const Counter& counter = counters[index];
    return counter.until_failure == 1 && counter.error == kDiesHalfWritten;
}

void note_sleep(unsigned seconds) {
    seconds_asked += seconds;
}

void spoil([[maybe_unused]] FILE* stream) {
#ifdef __GLIBC__
    if (stream) stream->_flags |= _IO_ERR_SEEN;
#endif
}

#ifdef TQ_FAILING_ALLOCATOR
void* allocated(void* block) {
    if (block) ++live;
    return block;
}

// What copies a text calls the allocator, except where it is a sanitizer's.
void* copied(void* text) {
#ifdef TQ_SANITIZED
    return allocated(text);
#else
    return text;
#endif
}

void freed(const void* block) {
    if (block) --live;
}
#endif

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

std::vector<Way> ways_of(std::string_view name) {
    switch (kCalls[known_index_of(name)].other) {
        case kInterrupted:
            return {Way::kFail, Way::kInterrupt};
        case kCut:
            return {Way::kFail, Way::kCut};
        default:
            return {Way::kFail};
    }
}

bool allocates(std::string_view name) {
    return std::ranges::find(kAllocators, name) != kAllocators.end();
}

Sweep::Sweep(unsigned nth, Way way) {
    if (extents_known == 0) dl_iterate_phdr(note_extent, nullptr);
    if (!notes) {
        void* page =
            mmap(nullptr, sizeof(Notes), PROT_READ | PROT_WRITE, MAP_SHARED | MAP_ANONYMOUS, -1, 0);
        if (page == MAP_FAILED) std::abort();
        notes = static_cast<Notes*>(page);
    }
    notes->nth = nth;
    notes->way = way;
    notes->fired = false;
    notes->count = 0;
    sweeping = true;
}

Sweep::~Sweep() {
    sweeping = false;
}

std::vector<std::string_view> Sweep::calls() {
    std::vector<std::string_view> names;
    for (unsigned i = 0; i < notes->count; i++)
        names.push_back(kCalls[notes->calls[i]].name);
    return names;
}

bool Sweep::fired() {
    return notes->fired;
}

Hurry::Hurry() {
    in_a_hurry = true;
}

Hurry::~Hurry() {
    in_a_hurry = false;
}

long live_blocks() {
    return live;
}

bool is_to_fail(std::string_view name, const void* caller) {
    return fails(known_index_of(name), caller);
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

#define TQ_FAILS(name) \
    tq_test::faults::fails<tq_test::faults::index_of(name)>(__builtin_return_address(0))

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
        if (!TQ_FAILS(name)) return next arguments;                                \
        return tq_test::faults::does_half() ? next half_of_arguments : -1;         \
    }

// A stream remembers that something went wrong with it.
#define TQ_FORWARD_STREAM(symbol, name, failed, Result, parameters, arguments, stream) \
    TQ_DEFINE(symbol, Result, parameters) {                                            \
        TQ_NEXT(symbol, Result, parameters);                                           \
        if (!TQ_FAILS(name)) return next arguments;                                    \
        tq_test::faults::spoil(stream);                                                \
        return failed;                                                                 \
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
TQ_FORWARD_AS(mkostemp, "mkstemp", -1, int, (char* path, int flags), (path, flags))
TQ_FORWARD_AS(mkostemp64, "mkstemp", -1, int, (char* path, int flags), (path, flags))
TQ_FORWARD(access, -1, int, (const char* path, int mode), (path, mode))
TQ_FORWARD(chmod, -1, int, (const char* path, mode_t mode), (path, mode))
TQ_FORWARD(fchmod, -1, int, (int fd, mode_t mode), (fd, mode))
TQ_FORWARD(fchown, -1, int, (int fd, uid_t user, gid_t group), (fd, user, group))
TQ_FORWARD(stat, -1, int, (const char* path, void* status), (path, status))
TQ_FORWARD_AS(stat64, "stat", -1, int, (const char* path, void* status), (path, status))
TQ_FORWARD(fstat, -1, int, (int fd, void* status), (fd, status))
TQ_FORWARD_AS(fstat64, "fstat", -1, int, (int fd, void* status), (fd, status))
TQ_FORWARD(fstatat, -1, int, (int at, const char* path, void* status, int flags), (at, path, status, flags))
TQ_FORWARD_AS(fstatat64, "fstatat", -1, int, (int at, const char* path, void* status, int flags), (at, path, status, flags))
TQ_FORWARD(opendir, nullptr, DIR*, (const char* path), (path))
TQ_FORWARD(readdir, nullptr, void*, (DIR* directory), (directory))
TQ_FORWARD_AS(readdir64, "readdir", nullptr, void*, (DIR* directory), (directory))
TQ_FORWARD_CLOSE(closedir, (DIR* directory), (directory))
TQ_FORWARD(setmntent, nullptr, FILE*, (const char* path, const char* mode), (path, mode))
TQ_FORWARD(getmntent_r, nullptr, void*, (FILE* file, void* entry, char* text, int size), (file, entry, text, size))

TQ_FORWARD(fopen, nullptr, FILE*, (const char* path, const char* mode), (path, mode))
TQ_FORWARD_AS(fopen64, "fopen", nullptr, FILE*, (const char* path, const char* mode), (path, mode))
TQ_FORWARD(fdopen, nullptr, FILE*, (int fd, const char* mode), (fd, mode))
TQ_FORWARD_STREAM(fgets, "fgets", nullptr, char*, (char* line, int size, FILE* file), (line, size, file), file)
TQ_FORWARD_STREAM(fgetc, "fgetc", -1, int, (FILE* file), (file), file)
TQ_FORWARD_STREAM(getc_unlocked, "fgetc", -1, int, (FILE* file), (file), file)
TQ_FORWARD_STREAM(fread, "fread", 0, size_t, (void* data, size_t size, size_t n, FILE* file), (data, size, n, file), file)
TQ_FORWARD_STREAM(getline, "getline", -1, ssize_t, (char** line, size_t* size, FILE* file), (line, size, file), file)
TQ_FORWARD_STREAM(fwrite, "fwrite", 0, size_t, (const void* data, size_t size, size_t n, FILE* file), (data, size, n, file), file)
TQ_FORWARD_STREAM(fwrite_unlocked, "fwrite", 0, size_t, (const void* data, size_t size, size_t n, FILE* file), (data, size, n, file), file)
TQ_FORWARD_STREAM(fputs, "fputs", -1, int, (const char* text, FILE* file), (text, file), file)
TQ_FORWARD_STREAM(fputs_unlocked, "fputs", -1, int, (const char* text, FILE* file), (text, file), file)
TQ_FORWARD_STREAM(fputc, "fputc", -1, int, (int c, FILE* file), (c, file), file)
TQ_FORWARD_STREAM(putc, "fputc", -1, int, (int c, FILE* file), (c, file), file)
TQ_FORWARD_STREAM(putc_unlocked, "fputc", -1, int, (int c, FILE* file), (c, file), file)
TQ_FORWARD_STREAM(puts, "puts", -1, int, (const char* text), (text), stdout)
TQ_FORWARD_STREAM(putchar, "fputc", -1, int, (int c), (c), stdout)
TQ_FORWARD_STREAM(fflush, "fflush", -1, int, (FILE* file), (file), file ? file : stdout)
TQ_FORWARD_AS(fseeko, "fseek", -1, int, (FILE* file, long offset, int whence), (file, offset, whence))
TQ_FORWARD_AS(fseeko64, "fseek", -1, int, (FILE* file, int64_t offset, int whence), (file, offset, whence))
TQ_FORWARD_AS(ftello64, "ftell", -1, int64_t, (FILE* file), (file))
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
TQ_FORWARD(pselect, -1, int,
    (int n, fd_set* reads, fd_set* writes, fd_set* errors, const timespec* timeout, const sigset_t* mask),
    (n, reads, writes, errors, timeout, mask))
TQ_FORWARD(poll, -1, int, (pollfd* descriptors, nfds_t n, int timeout), (descriptors, n, timeout))
TQ_FORWARD(epoll_create1, -1, int, (int flags), (flags))
TQ_FORWARD(epoll_ctl, -1, int, (int fd, int operation, int other, void* event), (fd, operation, other, event))
TQ_FORWARD(eventfd, -1, int, (unsigned value, int flags), (value, flags))
TQ_FORWARD(setsockopt, -1, int, (int fd, int level, int name, const void* value, socklen_t size),
    (fd, level, name, value, size))
TQ_FORWARD(kill, -1, int, (pid_t pid, int number), (pid, number))
TQ_FORWARD(signal, SIG_ERR, sighandler_t, (int number, sighandler_t handler), (number, handler))
TQ_FORWARD(sigaction, -1, int, (int number, const void* action, void* old), (number, action, old))
TQ_FORWARD(clock_gettime, -1, int, (clockid_t clock, timespec* time), (clock, time))
TQ_FORWARD(gethostbyname, nullptr, hostent*, (const char* name), (name))
TQ_FORWARD(pthread_mutex_init, ENOMEM, int, (pthread_mutex_t* mutex, const pthread_mutexattr_t* attributes),
    (mutex, attributes))
TQ_FORWARD(sysinfo, -1, int, (void* info), (info))
TQ_FORWARD(statfs, -1, int, (const char* path, void* room), (path, room))
TQ_FORWARD_AS(statfs64, "statfs", -1, int, (const char* path, void* room), (path, room))
// clang-format on

// A sleep that fails is one that a signal ends at once.
TQ_DEFINE(sleep, unsigned, (unsigned seconds)) {
    TQ_NEXT(sleep, unsigned, (unsigned seconds));
    tq_test::faults::note_sleep(seconds);
    if (TQ_FAILS("sleep")) return seconds;
    return tq_test::faults::in_a_hurry ? 0 : next(seconds);
}

TQ_DEFINE(sync, void, ()) {
    TQ_NEXT(sync, void, ());
    if (!TQ_FAILS("sync") && !tq_test::faults::in_a_hurry) next();
}

// What takes any number of arguments is forwarded to what takes a list of them.
#define TQ_FORWARD_LIST(symbol, name, listed, parameters, list_parameters, arguments, last, \
                        stream)                                                             \
    TQ_DEFINE(symbol, int, parameters) {                                                    \
        TQ_NEXT(listed, int, list_parameters);                                              \
        if (TQ_FAILS(name)) {                                                               \
            tq_test::faults::spoil(stream);                                                 \
            return -1;                                                                      \
        }                                                                                   \
        va_list list;                                                                       \
        va_start(list, last);                                                               \
        const int result = next arguments;                                                  \
        va_end(list);                                                                       \
        return result;                                                                      \
    }

// clang-format off
TQ_FORWARD_LIST(printf, "printf", vprintf, (const char* format, ...), (const char*, va_list), (format, list), format, stdout)
TQ_FORWARD_LIST(fprintf, "fprintf", vfprintf, (FILE* file, const char* format, ...), (FILE*, const char*, va_list),
    (file, format, list), format, file)
TQ_FORWARD_LIST(asprintf, "asprintf", vasprintf, (char** text, const char* format, ...),
    (char**, const char*, va_list), (text, format, list), format, nullptr)
TQ_FORWARD_LIST(__isoc99_fscanf, "fscanf", __isoc99_vfscanf, (FILE* file, const char* format, ...),
    (FILE*, const char*, va_list), (file, format, list), format, file)
// clang-format on

TQ_DEFINE(ioctl, int, (int fd, unsigned long operation, void* argument)) {
    TQ_NEXT(ioctl, int, (int fd, unsigned long operation, void* argument));
    if (TQ_FAILS("ioctl")) return -1;
    const std::optional<int> answer = tq_test::faults::answer_to_ioctl(operation, argument);
    return answer ? *answer : next(fd, operation, argument);
}

// The allocator is not looked up by dlsym(), which allocates.
#ifdef TQ_FAILING_ALLOCATOR
#ifdef TQ_SANITIZED
#define TQ_ALLOCATOR(name) "__interceptor_" #name
#else
#define TQ_ALLOCATOR(name) "__libc_" #name
#endif
extern "C" {
void* next_malloc(size_t size) asm(TQ_ALLOCATOR(malloc));
void* next_calloc(size_t n, size_t size) asm(TQ_ALLOCATOR(calloc));
void* next_realloc(void* old, size_t size) asm(TQ_ALLOCATOR(realloc));
void next_free(void* block) asm(TQ_ALLOCATOR(free));
}

TQ_DEFINE(malloc, void*, (size_t size)) {
    return TQ_FAILS("malloc") ? nullptr : tq_test::faults::allocated(next_malloc(size));
}

TQ_DEFINE(calloc, void*, (size_t n, size_t size)) {
    return TQ_FAILS("calloc") ? nullptr : tq_test::faults::allocated(next_calloc(n, size));
}

TQ_DEFINE(realloc, void*, (void* old, size_t size)) {
    if (TQ_FAILS("realloc")) return nullptr;
    void* block = next_realloc(old, size);
    if (old && (block || size == 0)) tq_test::faults::freed(old);
    return tq_test::faults::allocated(block);
}

TQ_DEFINE(free, void, (void* block)) {
    tq_test::faults::freed(block);
    next_free(block);
}

TQ_DEFINE(strdup, void*, (const char* text)) {
    TQ_NEXT(strdup, void*, (const char* text));
    return TQ_FAILS("strdup") ? nullptr : tq_test::faults::copied(next(text));
}

TQ_DEFINE(strndup, void*, (const char* text, size_t size)) {
    TQ_NEXT(strndup, void*, (const char* text, size_t size));
    return TQ_FAILS("strndup") ? nullptr : tq_test::faults::copied(next(text, size));
}

TQ_DEFINE(realpath, void*, (const char* path, void* real)) {
    TQ_NEXT(realpath, void*, (const char* path, void* real));
    if (TQ_FAILS("realpath")) return nullptr;
    return real ? next(path, real) : tq_test::faults::copied(next(path, real));
}
#endif
