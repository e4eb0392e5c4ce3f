/* thd_eloop.h - event loops of programs with several threads.
 *
 * The loop of tq/eloop.h, with three differences: the caller owns the loop's record, so that any
 * number of loops may exist, each run by a thread of its own; other threads may add and cancel its
 * timeouts while it runs; there are no signals. What is not said here is as it is there.
 *
 * Only thd_eloop_register_timeout and thd_eloop_cancel_timeout may be called from threads other
 * than the loop's own, at any time between thd_eloop_init and thd_eloop_destroy. A wait never lasts
 * longer than a second: a timeout that another thread added is noticed within that second. To stop
 * a loop from elsewhere, add a timeout of 0 whose handler calls thd_eloop_terminate.
 *
 * A timeout that thd_eloop_cancel_timeout counts never runs. One that its loop has taken up already
 * is not counted, and its handler may be about to begin when that call returns.
 *
 * A null loop is a rejected argument, too.
 */
#ifndef TQ_THD_ELOOP_H
#define TQ_THD_ELOOP_H

#include <pthread.h>
#include <tq/eloop.h>
#include <tq/types.h>

TQ_BEGIN_DECLS

/* Guards the timeout lists of all loops, and nothing else. No handler runs while it is held. The
 * first thd_eloop_init initialises it; whoever holds it must not call into this header. */
extern TQ_API pthread_mutex_t g_eloop_mutex; /* NOLINT: no initialiser here */

/* Clears the record and keeps user_data for thd_eloop_get_user_data. Must be called first; called
 * again it forgets, and leaks, all that was registered. The shared mutex is initialised by the
 * first call only, so that other loops may be running.
 * 0; -1 with the record untouched when the mutex cannot be initialised; the next call tries it. */
TQ_API int thd_eloop_init(struct eloop_state *loop, void *user_data);

/* As eloop_register_read_sock; only from the loop's own thread or before the loop runs. */
TQ_API int thd_eloop_register_read_sock(struct eloop_state *loop, int sock,
                                        eloop_sock_handler handler, void *eloop_data,
                                        void *user_data);

/* As eloop_unregister_read_sock; only from the loop's own thread or before the loop runs. */
TQ_API int thd_eloop_unregister_read_sock(struct eloop_state *loop, int sock);

/* As eloop_register_timeout, from any thread. */
TQ_API int thd_eloop_register_timeout(struct eloop_state *loop, unsigned secs, unsigned usecs,
                                      eloop_timeout_handler handler, void *eloop_data,
                                      void *user_data);

/* As eloop_cancel_timeout, from any thread: the number removed; -1 for a null loop. */
TQ_API int thd_eloop_cancel_timeout(struct eloop_state *loop, eloop_timeout_handler handler,
                                    void *eloop_data, void *user_data);

/* Waits and calls handlers until the loop is terminated or has neither a timeout nor a socket,
 * whatever its cmm_agent_connected says; that field only adds the one descriptor.
 * 0; -1 after select failed other than by a signal, which writes "select: <reason>" to standard
 * error; everything stays registered. */
TQ_API int thd_eloop_run(struct eloop_state *loop);

/* As eloop_terminate.
 * 0. */
TQ_API int thd_eloop_terminate(struct eloop_state *loop);

/* Frees what was registered, and loop->signals. No thread may be using the loop; it is not usable
 * again until thd_eloop_init. The mutex stays for the other loops.
 * 0. */
TQ_API int thd_eloop_destroy(struct eloop_state *loop);

/* Non-zero once thd_eloop_terminate was called; -1 for a null loop. */
TQ_API int thd_eloop_terminated(struct eloop_state *loop);

/* What was given to thd_eloop_init. */
TQ_API void *thd_eloop_get_user_data(const struct eloop_state *loop);

TQ_END_DECLS

#endif /* TQ_THD_ELOOP_H */
