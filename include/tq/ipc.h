/* ipc.h - requests to daemons on this device, over datagram sockets.
 *
 * A client connects to a server's name, sends one datagram and waits a bounded time for one reply.
 * Names are in the abstract namespace of UNIX sockets. A server binds and a client connects with
 * the whole struct sockaddr_un, 110 bytes: sun_path begins with a zero byte, the name follows, at
 * most 106 bytes of it, and zeros fill the rest and are part of the name. Request and reply are the
 * daemons' own business.
 *
 * Nothing here writes to the log, not for a rejected argument either: the result is then -1 and
 * errno is EINVAL. Otherwise errno is what the call that failed has left.
 */
#ifndef TQ_IPC_H
#define TQ_IPC_H

#include <tq/types.h>

TQ_BEGIN_DECLS

/* Connects a new socket to the server of that name. The socket's own name is
 * "<server>-ipc-<process id>-<high>-<low>", cut at 106 bytes; high and low are counters of the
 * process, one step for each call that got a socket, from 0-1 to 0-4294967295 and on to 1-0,
 * written as signed numbers. A server name so long that the counters are cut off therefore serves
 * one connection of a process at a time, and one of 106 bytes none.
 * The socket, close-on-exec, which the caller closes; -1 when there is no socket to be had, the
 * name is taken or no server has bound server_name. */
TQ_API int ipc_connect(const char *server_name);

/* Sends the request of req_len bytes and waits at most timeout_secs seconds for a reply, of which
 * at most resp_len bytes are stored: the rest of a longer one is lost. A timeout_secs of 0 does not
 * wait. A reply that comes too late is what the next ipc_cmd on the socket gets, before its own.
 * The bytes received, 0 for an empty reply.
 * -1 when the request cannot be sent, and then sock is closed: also at once (EAGAIN) where the
 * server's queue is full. -1 with sock still open when there was no reply in time (ETIMEDOUT), when
 * waiting failed (EINTR after a signal, EINVAL for a negative timeout_secs) or receiving, and for
 * rejected arguments, which a sock of FD_SETSIZE or more is, since it cannot be waited for. */
TQ_API int ipc_cmd(int sock, const void *req, size_t req_len, void *resp, size_t resp_len,
                   int timeout_secs);

/* Sends the request and does not wait for a reply, but for room in the server's queue.
 * 0; -1 when the request cannot be sent, and then sock is closed. */
TQ_API int ipc_cmd_imm(int sock, const void *req, size_t req_len);

/* Closes the socket.
 * The result of close(2). */
TQ_API int ipc_close(int sock);

/* Connects to server_name, does what ipc_cmd does with a limit of one second, and closes the
 * socket. Where the request cannot be sent, the socket's number is closed a second time: a program
 * whose other threads open descriptors at the same moment uses ipc_connect and ipc_cmd.
 * As ipc_cmd, and -1 when it cannot connect. */
TQ_API int ipc_exec(const char *server_name, const void *req, size_t req_len, void *resp,
                    size_t resp_len);

/* Puts an error message into a reply of resp_size bytes: behind the four bytes of the header, which
 * are the caller's and stay as they are, as much of msg as there is room for, without a terminator.
 * The number of message bytes; the reply to send is 4 bytes longer. -1 for a resp_size below 4. */
TQ_API int resp_set_error_msg(char *resp, const char *msg, size_t resp_size);

TQ_END_DECLS

#endif /* TQ_IPC_H */
