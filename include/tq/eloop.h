/* eloop.h - the event loop of a single-threaded daemon: readable sockets, timeouts, signals.
 *
 * There is one loop in a process. A daemon calls eloop_init, registers what it waits for, and calls
 * eloop_run, which waits in select(2) and calls the handlers until eloop_terminate is called or
 * nothing is left to wait for. The order of one pass is always: wait, signals, at most one timeout,
 * readable sockets. Timeouts that are due together run one a pass, in the order of their due times
 * and, for one instant, of their registration.
 *
 * Nothing is locked: every call comes from the loop's own thread, usually from its handlers, except
 * that eloop_terminate may be called from a signal handler, too. In a program with threads, block
 * the loop's signals in the others. For loops of several threads see tq/thd_eloop.h.
 *
 * Handlers may register and unregister anything, the running entry included. A timeout's record is
 * out of the list before its handler runs. Sockets that an unregistration moved up in the table may
 * be skipped in that pass, or seen twice: a handler reads without blocking.
 *
 * A rejected argument (a null handler, a descriptor that select cannot hold) is logged as
 * "invalid parameters"; memory that runs out is not logged.
 */
#ifndef TQ_ELOOP_H
#define TQ_ELOOP_H

#include <tq/types.h>

TQ_BEGIN_DECLS

/* Called when sock is readable, at its end, or in error: what read(2) does not block on. */
typedef void (*eloop_sock_handler)(int sock, void *eloop_data, void *user_data);

/* Called when the timeout is due, with what was registered with it. */
typedef void (*eloop_timeout_handler)(void *eloop_data, void *user_data);

/* loop_user_data is the loop's, as given to eloop_init. Runs in the loop, not in signal context. */
typedef void (*eloop_signal_handler)(int sig, void *loop_user_data, void *signal_user_data);

/* For eloop_cancel_timeout: any value of that argument. */
#define ELOOP_ALL ((void *)UINTPTR_MAX)

/* ---- the loop's records ----
 *
 * Read by debuggers and by owners of loops of tq/thd_eloop.h; only the functions change them. */

/* A registered socket. */
struct eloop_sock {
    int sock;                   /* the descriptor */
    void *eloop_data;           /* for the handler */
    void *user_data;            /* for the handler */
    eloop_sock_handler handler; /* what is called */
};

/* A registered timeout, in a list ordered by due time. */
struct eloop_timeout {
    int32_t tv_sec;                /* when it is due, by the monotonic clock */
    int32_t tv_usec;               /* 0 to 999999 */
    void *eloop_data;              /* for the handler */
    void *user_data;               /* for the handler */
    eloop_timeout_handler handler; /* what is called */
    struct eloop_timeout *next;    /* the one due behind it; null in the last */
};

/* A registered signal. */
struct eloop_signal {
    int sig;                      /* its number */
    void *user_data;              /* for the handler */
    eloop_signal_handler handler; /* what is called */
    int signaled;                 /* deliveries not yet handled */
};

/* A loop. */
struct eloop_state {
    void *user_data;               /* as given when it was initialised */
    int max_sock;                  /* the highest descriptor ever registered */
    int reader_count;              /* entries of readers */
    struct eloop_sock *readers;    /* in the order in which they are called */
    struct eloop_timeout *timeout; /* the next one due */
    int signal_count;              /* entries of signals */
    struct eloop_signal *signals;  /* in the order of their registration */
    int signaled;                  /* deliveries, of any signal, not yet handled */
    int terminate;                 /* whether it was told to end */
    int cmm_agent_connected;       /* as eloop_connect_cmm_agent has it */
};

/* ---- functions ---- */

/* Clears the process's loop and keeps user_data for signal handlers and eloop_get_user_data. Must
 * be called first. Called again it forgets, and leaks, all that was registered; so eloop_destroy
 * goes before. */
TQ_API void eloop_init(void *user_data);

/* Calls handler whenever sock is readable. A descriptor registered twice has two entries, and both
 * handlers are called. Unregister it before it is closed: select fails on a closed descriptor.
 * 0; -1 with nothing changed for a null handler, a negative sock, a sock of FD_SETSIZE (1024) or
 * more, which select's descriptor set cannot hold, or when memory runs out. */
TQ_API int eloop_register_read_sock(int sock, eloop_sock_handler handler, void *eloop_data,
                                    void *user_data);

/* Removes the first entry of sock.
 * 0; -1 when there is none. */
TQ_API int eloop_unregister_read_sock(int sock);

/* Calls handler once, secs seconds and usecs microseconds from now or as soon after as the loop
 * comes to it. Any number of microseconds will do: 0 and 2500000 is 2.5 s. A due time beyond what
 * 32 bits hold, 68 years after boot, is cut to that.
 * 0; -1 with nothing changed for a null handler or when memory runs out. */
TQ_API int eloop_register_timeout(unsigned secs, unsigned usecs, eloop_timeout_handler handler,
                                  void *eloop_data, void *user_data);

/* Removes every timeout of this handler, eloop_data and user_data; ELOOP_ALL for one of the two
 * data stands for any value.
 * The number removed, 0 or more. */
TQ_API int eloop_cancel_timeout(eloop_timeout_handler handler, void *eloop_data, void *user_data);

/* Calls handler after sig was delivered, once for all deliveries since it was called last. The
 * library's own handler is installed for sig by signal(3) and only counts. Of two registrations of
 * one signal the first is called. What was registered stays so for the life of the loop.
 * 0; -1 with nothing changed for a null handler, a signal that cannot be caught, or when memory
 * runs out. */
TQ_API int eloop_register_signal(int sig, eloop_signal_handler handler, void *user_data);

/* Waits and calls handlers until the loop is terminated, or nothing is left: no timeout, no socket,
 * and eloop_connect_cmm_agent is off. Signals alone do not keep it running. Also returns when
 * select fails other than by a signal, which writes "select: <reason>" to standard error;
 * everything stays registered.
 *
 * A clock that gives a million microseconds or more before a wait is read as 999999, after "ERROR:
 * tq_gettime returned invalid time: tv_sec=%d tv_usec=%d" on standard output. What is due is for
 * the reading behind the wait to say. */
TQ_API void eloop_run(void);

/* Lets eloop_run return at the start of its next pass, and any later eloop_run at once, until
 * eloop_init. May be called from a signal handler of the caller's own; what is not waiting for
 * select then sees it when its wait ends, so that a loop is better stopped through
 * eloop_register_signal. */
TQ_API void eloop_terminate(void);

/* Frees what was registered; not for use in a handler. The loop is not usable again, or to be
 * destroyed again, until eloop_init. The library's signal handlers stay installed, idle. */
TQ_API void eloop_destroy(void);

/* Non-zero once eloop_terminate was called. */
TQ_API int eloop_terminated(void);

/* What was given to eloop_init. */
TQ_API void *eloop_get_user_data(void);

/* Tells the loop that the cmm agent is connected (non-zero) or not: while it is, the loop keeps
 * running with nothing registered, and select is told of one descriptor more than the highest
 * registered, where the set has one more. */
TQ_API void eloop_connect_cmm_agent(int connected);

TQ_END_DECLS

#endif /* TQ_ELOOP_H */
