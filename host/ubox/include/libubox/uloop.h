/*
 * uloop.h - the event loop of the bus's programs: descriptors and timeouts. One for the whole
 * process, and for one thread.
 *
 * While it runs, SIGINT and SIGTERM end it; SIGPIPE is ignored.
 */
#ifndef LIBUBOX_ULOOP_H
#define LIBUBOX_ULOOP_H

#include <signal.h>
#include <stdbool.h>
#include <stdint.h>
#include <sys/time.h>
#include <sys/types.h>

#include "list.h"
#include "utils.h"

#ifdef __cplusplus
extern "C" {
#endif

struct uloop_fd;
struct uloop_timeout;

typedef void (*uloop_fd_handler)(struct uloop_fd* u, unsigned int events);
typedef void (*uloop_timeout_handler)(struct uloop_timeout* t);

#define ULOOP_READ (1 << 0)
#define ULOOP_WRITE (1 << 1)
#define ULOOP_EDGE_TRIGGER (1 << 2)
#define ULOOP_BLOCKING (1 << 3) /* leave the descriptor's O_NONBLOCK as it is */
#define ULOOP_ERROR_CB (1 << 6) /* call the handler for an error alone, too */

#define ULOOP_EVENT_MASK (ULOOP_READ | ULOOP_WRITE)

/* Begin with zeros, and set cb and fd. The loop fills in the rest: eof and error tell the handler
 * of a closed or broken other end. */
struct uloop_fd {
    uloop_fd_handler cb;
    int fd;
    bool eof;
    bool error;
    bool registered;
    uint8_t flags;
};

/* Begin with zeros, and set cb. time is when it is due, on the monotonic clock. */
struct uloop_timeout {
    struct list_head list;
    bool pending;

    uloop_timeout_handler cb;
    struct timeval time;
};

/* Whether the loop has been told to end. */
/* NOLINTNEXTLINE(bugprone-dynamic-static-initializers): it is constant where it is defined */
UBOX_EXPORT extern bool uloop_cancelled;

/* 0, or -1. A second call changes nothing. */
UBOX_EXPORT int uloop_init(void);

/* Forgets all descriptors and timeouts. */
UBOX_EXPORT void uloop_done(void);

/* Handles what comes until uloop_end(), a signal, or that many milliseconds have passed (-1: for
 * ever). The result is the signal that ended it, or 0. */
UBOX_EXPORT int uloop_run_timeout(int timeout);

static inline int uloop_run(void) {
    return uloop_run_timeout(-1);
}

static inline void uloop_end(void) {
    uloop_cancelled = true;
}

/* Watches a descriptor, or changes what for: ULOOP_ flags. Without ULOOP_READ or ULOOP_WRITE it is
 * as delete. 0, or -1 with errno as epoll_ctl(2) sets it. */
UBOX_EXPORT int uloop_fd_add(struct uloop_fd* sock, unsigned int flags);

/* Before the descriptor is closed. 0, also where it was not watched, or -1 as epoll_ctl(2). */
UBOX_EXPORT int uloop_fd_delete(struct uloop_fd* sock);

/* Due at its time; -1 where it is pending already. */
UBOX_EXPORT int uloop_timeout_add(struct uloop_timeout* timeout);

/* Due in that many milliseconds, pending or not. */
UBOX_EXPORT int uloop_timeout_set(struct uloop_timeout* timeout, int msecs);

/* 0, or -1 where it was not pending. */
UBOX_EXPORT int uloop_timeout_cancel(struct uloop_timeout* timeout);

/* In milliseconds, negative when overdue; -1 where it is not pending. */
UBOX_EXPORT int64_t uloop_timeout_remaining64(struct uloop_timeout* timeout);

/* Milliseconds to the first timeout, 0 when it is due, -1 without one. */
UBOX_EXPORT int uloop_get_next_timeout(void);

/* Whether a running loop is about to end. */
UBOX_EXPORT bool uloop_cancelling(void);

#ifdef __cplusplus
}
#endif

#endif
