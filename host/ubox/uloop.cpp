// uloop.cpp - the event loop: descriptors by epoll(7), timeouts in a list by their time.
#include <fcntl.h>
#include <libubox/uloop.h>
#include <sys/epoll.h>
#include <sys/eventfd.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <climits>
#include <csignal>
#include <cstdlib>
#include <ctime>

bool uloop_cancelled = false;

namespace {

constexpr int kMaxEvents = 16;

int poll_fd = -1;
// Readable once a signal has come, so that one that comes just before the wait ends it.
int wake_fd = -1;
volatile sig_atomic_t ended_by = 0;
int run_depth = 0;
list_head timeouts = LIST_HEAD_INIT(timeouts);

// What has happened and not had its turn yet. A handler may remove a descriptor of these, and a
// loop inside a handler goes on with them.
epoll_event ready[kMaxEvents];
int next_ready = 0;
int ready_end = 0;

uloop_timeout* timeout_at(list_head* entry) {
    return container_of(entry, uloop_timeout, list);
}

timeval now() {
    timespec time = {};
    clock_gettime(CLOCK_MONOTONIC, &time);
    return {time.tv_sec, time.tv_nsec / 1000};
}

// In milliseconds, rounded up: what waits that long is not early.
int64_t milliseconds_until(const timeval& time) {
    const timeval current = now();
    const int64_t microseconds = (static_cast<int64_t>(time.tv_sec) - current.tv_sec) * 1000000 +
                                 (time.tv_usec - current.tv_usec);
    return microseconds > 0 ? (microseconds + 999) / 1000 : microseconds / 1000;
}

bool is_due(const timeval& time, const timeval& current = now()) {
    return !timercmp(&current, &time, <);
}

timeval in_milliseconds(int msecs) {
    const timeval current = now();
    const timeval delay = {msecs / 1000, static_cast<suseconds_t>(msecs % 1000) * 1000};
    timeval result = {};
    timeradd(&current, &delay, &result);
    return result;
}

uint32_t epoll_events(unsigned int flags) {
    uint32_t wanted = EPOLLRDHUP;
    if (flags & ULOOP_READ) wanted |= EPOLLIN;
    if (flags & ULOOP_WRITE) wanted |= EPOLLOUT;
    if (flags & ULOOP_EDGE_TRIGGER) wanted |= EPOLLET;
    return wanted;
}

bool set_nonblocking(int fd) {
    const int flags = fcntl(fd, F_GETFL);
    return flags >= 0 && fcntl(fd, F_SETFL, flags | O_NONBLOCK) == 0;
}

void forget_events_of(const uloop_fd* sock) {
    for (int i = next_ready; i < ready_end; i++) {
        if (ready[i].data.ptr == sock) ready[i].data.ptr = nullptr;
    }
}

void handle_event(const epoll_event& event) {
    auto* sock = static_cast<uloop_fd*>(event.data.ptr);
    if (!sock) return;
    unsigned int happened = 0;
    if (event.events & EPOLLIN) happened |= ULOOP_READ;
    if (event.events & EPOLLOUT) happened |= ULOOP_WRITE;
    if (event.events & (EPOLLHUP | EPOLLRDHUP)) {
        sock->eof = true;
        happened |= ULOOP_READ;
    }
    if (event.events & EPOLLERR) {
        sock->error = true;
        // Nothing would ever be read or written again.
        if (!(sock->flags & ULOOP_ERROR_CB)) uloop_fd_delete(sock);
        happened |= sock->flags & ULOOP_ERROR_CB ? ULOOP_ERROR_CB : ULOOP_READ;
    }
    sock->cb(sock, happened);
}

// One at a time: after each the loop may be told to end, and timeouts have their turn.
void handle_next_event(int timeout) {
    if (next_ready == ready_end) {
        next_ready = 0;
        ready_end = std::max(epoll_wait(poll_fd, ready, kMaxEvents, timeout), 0);
    }
    if (next_ready < ready_end) handle_event(ready[next_ready++]);
}

// What is due by now: one that its handler sets anew has its turn behind the descriptors.
void handle_timeouts() {
    const timeval current = now();
    while (!list_empty(&timeouts)) {
        uloop_timeout* first = timeout_at(timeouts.next);
        if (!is_due(first->time, current)) return;
        uloop_timeout_cancel(first);
        if (first->cb) first->cb(first);
    }
}

void end_by_signal(int signal) {
    const int error = errno;
    ended_by = signal;
    uloop_cancelled = true;
    eventfd_write(wake_fd, 1);
    errno = error;
}

void forget_signals() {
    ended_by = 0;
    eventfd_t count = 0;
    eventfd_read(wake_fd, &count);
}

bool open_wake_fd() {
    wake_fd = eventfd(0, EFD_CLOEXEC | EFD_NONBLOCK);
    epoll_event event = {};
    event.events = EPOLLIN;
    return wake_fd >= 0 && epoll_ctl(poll_fd, EPOLL_CTL_ADD, wake_fd, &event) == 0;
}

void close_fd(int* fd) {
    if (*fd >= 0) close(*fd);
    *fd = -1;
}

// What the loop does about signals while it runs, and what was there before.
class Signals {
  public:
    Signals() {
        struct sigaction action = {};
        action.sa_handler = end_by_signal;
        sigaction(SIGINT, &action, &interrupt_);
        sigaction(SIGTERM, &action, &terminate_);
        action.sa_handler = SIG_IGN;  // NOLINT(performance-no-int-to-ptr): the system's constant
        sigaction(SIGPIPE, &action, &pipe_);
    }
    ~Signals() {
        sigaction(SIGINT, &interrupt_, nullptr);
        sigaction(SIGTERM, &terminate_, nullptr);
        sigaction(SIGPIPE, &pipe_, nullptr);
    }
    Signals(const Signals&) = delete;
    Signals& operator=(const Signals&) = delete;

  private:
    struct sigaction interrupt_ = {};
    struct sigaction terminate_ = {};
    struct sigaction pipe_ = {};
};

int earlier(int a, int b) {
    if (a < 0) return b;
    return b < 0 ? a : std::min(a, b);
}

void run_until_cancelled(int timeout) {
    const timeval end = in_milliseconds(std::max(timeout, 0));
    while (!uloop_cancelled) {
        handle_timeouts();
        if (uloop_cancelled) return;
        const int left =
            timeout < 0 ? -1 : static_cast<int>(std::max<int64_t>(milliseconds_until(end), 0));
        handle_next_event(earlier(uloop_get_next_timeout(), left));
        if (timeout >= 0 && is_due(end)) return;
    }
}

}  // namespace

int uloop_init() {
    if (poll_fd >= 0) return 0;
    poll_fd = epoll_create1(EPOLL_CLOEXEC);
    if (poll_fd >= 0 && open_wake_fd()) return 0;
    uloop_done();
    return -1;
}

void uloop_done() {
    close_fd(&poll_fd);
    close_fd(&wake_fd);
    next_ready = ready_end = 0;
    while (!list_empty(&timeouts)) {
        uloop_timeout_cancel(timeout_at(timeouts.next));
    }
}

int uloop_run_timeout(int timeout) {
    const bool outer_cancelled = uloop_cancelled;
    if (run_depth == 0) forget_signals();
    uloop_cancelled = false;
    run_depth++;
    {
        const Signals signals;
        run_until_cancelled(timeout);
    }
    run_depth--;
    // A signal ends all loops, one inside another.
    uloop_cancelled = ended_by || (run_depth > 0 && outer_cancelled);
    return ended_by;
}

int uloop_fd_add(uloop_fd* sock, unsigned int flags) {
    if (!(flags & ULOOP_EVENT_MASK)) return uloop_fd_delete(sock);
    if (!(flags & ULOOP_BLOCKING) && !sock->registered && !set_nonblocking(sock->fd)) return -1;

    epoll_event event = {};
    event.events = epoll_events(flags);
    event.data.ptr = sock;
    const int operation = sock->registered ? EPOLL_CTL_MOD : EPOLL_CTL_ADD;
    if (epoll_ctl(poll_fd, operation, sock->fd, &event) < 0) return -1;
    sock->flags = static_cast<uint8_t>(flags);
    sock->registered = true;
    sock->eof = false;
    sock->error = false;
    return 0;
}

int uloop_fd_delete(uloop_fd* sock) {
    forget_events_of(sock);
    if (!sock->registered) return 0;
    sock->registered = false;
    return epoll_ctl(poll_fd, EPOLL_CTL_DEL, sock->fd, nullptr);
}

int uloop_timeout_add(uloop_timeout* timeout) {
    if (timeout->pending) return -1;
    list_head* place = &timeouts;
    // Mostly the latest: from the end.
    while (place->prev != &timeouts &&
           timercmp(&timeout_at(place->prev)->time, &timeout->time, >)) {
        place = place->prev;
    }
    list_add_tail(&timeout->list, place);
    timeout->pending = true;
    return 0;
}

int uloop_timeout_set(uloop_timeout* timeout, int msecs) {
    if (timeout->pending) uloop_timeout_cancel(timeout);
    timeout->time = in_milliseconds(msecs);
    return uloop_timeout_add(timeout);
}

int uloop_timeout_cancel(uloop_timeout* timeout) {
    if (!timeout->pending) return -1;
    list_del(&timeout->list);
    timeout->pending = false;
    return 0;
}

int64_t uloop_timeout_remaining64(uloop_timeout* timeout) {
    return timeout->pending ? milliseconds_until(timeout->time) : -1;
}

int uloop_get_next_timeout() {
    if (list_empty(&timeouts)) return -1;
    const int64_t left = milliseconds_until(timeout_at(timeouts.next)->time);
    return static_cast<int>(std::clamp<int64_t>(left, 0, INT_MAX));
}

bool uloop_cancelling() {
    return run_depth > 0 && uloop_cancelled;
}
