/* bus.h - the process's connection to the system message bus (ubus).
 *
 * One connection for the whole process, made by init_ubus_client and held until
 * destroy_ubus_client. A request names an object and a method, carries a flat list of parameters
 * and waits for the answer. The notices of tq/fm.h and the requests of tq/bwctl.h go through it.
 *
 * Requests from several threads are serialised by a lock that is held from the look-up of the
 * object to the answer: each waits at most its time limit and the time of those before it.
 * init_ubus_client and destroy_ubus_client take no lock and must not run while another thread is
 * inside a request.
 *
 * A child process of fork has its parent's connection: before a request of its own it calls
 * init_ubus_client, with which a uloop of the parent's no longer watches the parent's socket.
 */
#ifndef TQ_BUS_H
#define TQ_BUS_H

#include <tq/types.h>

struct blob_attr;
struct ubus_request;

TQ_BEGIN_DECLS

/* What a parameter is, and so which member holds its value. */
enum { NOTIFY_PARAM_INT = 0, NOTIFY_PARAM_STRING = 1 };

/* One parameter of a request. A list ends with a record without a name, usually all zero. */
typedef struct notify_param {
    const char *name;      /* key in the message */
    int32_t type;          /* NOTIFY_PARAM_INT or NOTIFY_PARAM_STRING */
    uint32_t int_value;    /* for NOTIFY_PARAM_INT: sent as a 32-bit integer */
    const char *str_value; /* for NOTIFY_PARAM_STRING, never null */
} notify_param;

/* Receives the reply to a request: libubus's data handler. It runs inside the request, with the
 * lock held, so it makes no request of its own. The message is valid until it returns. */
typedef void (*notify_reply_handler)(struct ubus_request *req, int type, struct blob_attr *msg);

/* Connects to the bus at its default socket; a connection that is there is torn down first. The
 * socket is registered with the process's uloop, which a program that runs one drives it by, on
 * the thread that makes the requests; a program that does not run uloop needs nothing more. After
 * the end of the broker the socket leaves the uloop; whether a running one then ends is libubus's
 * choice, not this library's.
 * 0; -1 when there is no bus ("Failed to connect to ubus"). Nothing is held then but the loop,
 * which has been initialised (uloop_init), as it may be one that the program runs. */
TQ_API int init_ubus_client(void);

/* Disconnects and ends the process's uloop (uloop_done): a program that runs one has to add its own
 * descriptors and timeouts to it anew, also where init_ubus_client tears a connection down. Nothing
 * where there is no connection. */
TQ_API void destroy_ubus_client(void);

/* Calls a method of an object and waits for the answer, at most timeout_ms milliseconds (0: for
 * ever; a negative limit is over before the answer, UBUS_STATUS_TIMEOUT). The parameters are sent
 * in their order; with params null, or an empty list, the message is empty. A reply goes to
 * handler, where there is one, with priv as the request's private pointer; it may come in several
 * parts, or not at all.
 * The look-up of the object before that has no limit: it ends with the broker's answer, or with
 * the broker. Nor need the broker tell that a service died in the middle of a call: then the limit
 * ends it.
 * 0 when the method ran and succeeded.
 * -1 for a null object_path or method ("invalid parameters"); without a connection ("ubus client
 * should be initialized"); for an object that is not on the bus, and when the broker is gone
 * ("Failed to look up %s object"); and, nothing having been sent, for a string parameter without a
 * string ("invalid parameter name[%s]"), a parameter of another type ("invalid parameter name[%s]
 * type[%d]"), and when memory runs out or the parameters come to more than libubox puts into one
 * message, 16 MiB ("cannot build a message to %s").
 * Otherwise the status that libubus gives, not logged: UBUS_STATUS_METHOD_NOT_FOUND,
 * UBUS_STATUS_TIMEOUT, UBUS_STATUS_INVALID_ARGUMENT for a message beyond the bus's 1 MiB and so on,
 * or the method's own.
 * The connection outlives every failure. After the end of the broker all requests fail until
 * init_ubus_client has connected anew. */
TQ_API int notify_ubus_server(const char *object_path, const char *method,
                              const notify_param *params, notify_reply_handler handler, void *priv,
                              int timeout_ms);

/* A reply handler for the log services' replies, to be given to notify_ubus_server with priv
 * pointing to where the value goes. Stores the first that the reply has of the integers "level",
 * "status" and "size" as a uint32_t; where it has none of them, copies the string "ip" with its
 * terminator. The copy has no limit: priv needs room for whatever the service may send.
 * A reply with an integer "errorcode" other than 0, or with none of these, stores nothing and sets
 * the request's private pointer to null. A key with a value of another type counts as absent.
 * Nothing is done where the private pointer is null; a null req is logged ("invalid parameters").
 */
TQ_API void get_log_data(struct ubus_request *req, int type, struct blob_attr *msg);

TQ_END_DECLS

#endif /* TQ_BUS_H */
