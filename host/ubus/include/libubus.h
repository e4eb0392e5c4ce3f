/*
 * libubus.h - a program's connection to the bus: looking objects up, calling their methods, having
 * objects of its own, events.
 *
 * The interface, structure layouts and results of the firmware's libubus, so that a program built
 * against either works with either; of subscriptions, channels and access lists only what a
 * structure's layout shows.
 *
 * Rules for every call:
 * - An int result is UBUS_STATUS_OK or another UBUS_STATUS_ code.
 * - A connection belongs to one thread at a time.
 * - Messages that a handler is given live until it returns.
 * - A caller's objects, handlers and requests are linked into the connection, and stay where they
 * are until they are removed, are done, or the connection is freed.
 */
#ifndef LIBUBUS_H
#define LIBUBUS_H

#include <libubox/avl.h>
#include <libubox/blobmsg.h>
#include <libubox/list.h>
#include <libubox/uloop.h>
#include <stdint.h>

#include "ubus_common.h"
#include "ubusmsg.h"

#ifdef __cplusplus
extern "C" {
#endif

#define UBUS_EXPORT __attribute__((visibility("default")))

struct ubus_context;
struct ubus_object;
struct ubus_request;
struct ubus_request_data;
struct ubus_object_data;
struct ubus_event_handler;
struct ubus_subscriber;

typedef void (*ubus_lookup_handler_t)(struct ubus_context* ctx, struct ubus_object_data* obj,
                                      void* priv);
typedef int (*ubus_handler_t)(struct ubus_context* ctx, struct ubus_object* obj,
                              struct ubus_request_data* req, const char* method,
                              struct blob_attr* msg);
typedef void (*ubus_state_handler_t)(struct ubus_context* ctx, struct ubus_object* obj);
typedef void (*ubus_remove_handler_t)(struct ubus_context* ctx, struct ubus_subscriber* obj,
                                      uint32_t id);
typedef void (*ubus_event_handler_t)(struct ubus_context* ctx, struct ubus_event_handler* ev,
                                     const char* type, struct blob_attr* msg);
typedef void (*ubus_data_handler_t)(struct ubus_request* req, int type, struct blob_attr* msg);
typedef void (*ubus_fd_handler_t)(struct ubus_request* req, int fd);
typedef void (*ubus_complete_handler_t)(struct ubus_request* req, int ret);
typedef void (*ubus_connect_handler_t)(struct ubus_context* ctx);
typedef bool (*ubus_new_object_handler_t)(struct ubus_context* ctx, struct ubus_subscriber* sub,
                                          const char* path);

/* ---- structures ---- */

struct ubus_msghdr_buf {
    struct ubus_msghdr hdr;
    struct blob_attr* data;
};

struct ubus_method {
    const char* name;
    ubus_handler_t handler;

    unsigned long mask;
    unsigned long tags;
    const struct blobmsg_policy* policy; /* the arguments, for `ubus list -v`; nobody checks them */
    int n_policy;
};

/* What several objects have in common; the connection fills in id. */
struct ubus_object_type {
    const char* name;
    uint32_t id;

    const struct ubus_method* methods;
    int n_methods;
};

/* An object of this program: name, type, methods and n_methods are the caller's; the connection
 * fills in id. */
struct ubus_object {
    struct avl_node avl;

    const char* name;
    uint32_t id;

    const char* path;
    struct ubus_object_type* type;

    ubus_state_handler_t subscribe_cb;
    bool has_subscribers;

    const struct ubus_method* methods;
    int n_methods;
};

struct ubus_subscriber {
    struct list_head list;
    struct ubus_object obj;

    ubus_handler_t cb;
    ubus_remove_handler_t remove_cb;
    ubus_new_object_handler_t new_obj_cb;
};

struct ubus_event_handler {
    struct ubus_object obj;

    ubus_event_handler_t cb;
};

struct ubus_context {
    struct list_head requests;
    struct avl_tree objects;
    struct list_head pending;

    struct uloop_fd sock;
    struct uloop_timeout pending_timer;

    uint32_t local_id;
    uint16_t request_seq;
    bool cancel_poll;
    int stack_depth;

    /* Called when the broker is gone; by default the loop ends. */
    void (*connection_lost)(struct ubus_context* ctx);
    void (*monitor_cb)(struct ubus_context* ctx, uint32_t seq, struct blob_attr* data);

    struct ubus_msghdr_buf msgbuf;
    uint32_t msgbuf_data_len;
    int msgbuf_reduction_counter;

    __extension__ union {
        __extension__ struct {
            struct list_head auto_subscribers;
            struct ubus_event_handler auto_subscribe_event_handler;
        };
        __extension__ struct { ubus_handler_t request_handler; };
    };
};

/* What a lookup finds: the signature is a blob of tables, each a method with its arguments' types
 * as integers; NULL without one. */
struct ubus_object_data {
    uint32_t id;
    uint32_t type_id;
    const char* path;
    struct blob_attr* signature;
};

struct ubus_acl_key {
    const char* user;
    const char* group;
    const char* object;
};

/* A call that a method answers: who asks, as which user. */
struct ubus_request_data {
    uint32_t object;
    uint32_t peer;
    uint16_t seq;

    struct ubus_acl_key acl;

    /* private */
    bool deferred;
    int fd;
    int req_fd;
};

/* A call of this program: after ubus_invoke_async() set the handlers and priv. */
struct ubus_request {
    struct list_head list;

    struct list_head pending;
    int status_code;
    bool status_msg;
    bool blocked;
    bool cancelled;
    bool notify;

    uint32_t peer;
    uint16_t seq;

    ubus_data_handler_t raw_data_cb;
    ubus_data_handler_t data_cb;
    ubus_fd_handler_t fd_cb;
    ubus_complete_handler_t complete_cb;

    int fd;

    struct ubus_context* ctx;
    void* priv;
};

/* ---- describing methods and types ---- */

/* NOLINTBEGIN(bugprone-reserved-identifier,cert-dcl37-c,cert-dcl51-cpp): fixed names */

#define __UBUS_METHOD_BASE(_name, _handler, _mask, _tags) \
    .name = _name, .handler = _handler, .mask = _mask, .tags = _tags
#define __UBUS_METHOD(_name, _handler, _mask, _policy, _tags)             \
    __UBUS_METHOD_BASE(_name, _handler, _mask, _tags), .policy = _policy, \
                                                       .n_policy = ARRAY_SIZE(_policy)
#define __UBUS_METHOD_NOARG(_name, _handler, _mask, _tags) \
    __UBUS_METHOD_BASE(_name, _handler, _mask, _tags), .policy = NULL, .n_policy = 0

/* NOLINTEND(bugprone-reserved-identifier,cert-dcl37-c,cert-dcl51-cpp) */

#define UBUS_METHOD(_name, _handler, _policy) \
    { __UBUS_METHOD(_name, _handler, 0, _policy, 0) }
#define UBUS_METHOD_TAG(_name, _handler, _policy, _tags) \
    { __UBUS_METHOD(_name, _handler, 0, _policy, _tags) }
/* mask: a bit for each entry of the policy that this method takes, 0 for all. */
#define UBUS_METHOD_MASK(_name, _handler, _policy, _mask) \
    { __UBUS_METHOD(_name, _handler, _mask, _policy, 0) }
#define UBUS_METHOD_NOARG(_name, _handler) \
    { __UBUS_METHOD_NOARG(_name, _handler, 0, 0) }
#define UBUS_METHOD_TAG_NOARG(_name, _handler, _tags) \
    { __UBUS_METHOD_NOARG(_name, _handler, 0, _tags) }

#define UBUS_TAG_STATUS (1UL << 0)
#define UBUS_TAG_ADMIN (1UL << 1)
#define UBUS_TAG_PRIVATE (1UL << 2)

#define UBUS_OBJECT_TYPE(_name, _methods) \
    { .name = _name, .id = 0, .methods = _methods, .n_methods = ARRAY_SIZE(_methods) }

/* ---- the connection ---- */

/* Connects to the broker's socket (NULL: its usual place); NULL with errno where there is none. */
UBUS_EXPORT struct ubus_context* ubus_connect(const char* path);

/* Ends a connection of ubus_connect(), and frees it. Its objects vanish from the bus; its requests
 * are never completed. */
UBUS_EXPORT void ubus_free(struct ubus_context* ctx);

/* The same for a context of the caller's; 0, or -1. */
UBUS_EXPORT int ubus_connect_ctx(struct ubus_context* ctx, const char* path);
UBUS_EXPORT void ubus_shutdown(struct ubus_context* ctx);

/* Connects again, and puts the objects back on the bus, under new ids. */
UBUS_EXPORT int ubus_reconnect(struct ubus_context* ctx, const char* path);

UBUS_EXPORT const char* ubus_strerror(int error);

/* Lets the loop handle what comes. */
static inline void ubus_add_uloop(struct ubus_context* ctx) {
    uloop_fd_add(&ctx->sock, ULOOP_BLOCKING | ULOOP_READ);
}

/* Handles what has come, without the loop. */
static inline void ubus_handle_event(struct ubus_context* ctx) {
    ctx->sock.cb(&ctx->sock, ULOOP_READ);
}

/* ---- calling others ---- */

/* Calls cb for each object whose path is this one, begins as one with "*" at its end, or is
 * anything with NULL. UBUS_STATUS_NOT_FOUND where a path without "*" is not there. */
UBUS_EXPORT int ubus_lookup(struct ubus_context* ctx, const char* path, ubus_lookup_handler_t cb,
                            void* priv);
UBUS_EXPORT int ubus_lookup_id(struct ubus_context* ctx, const char* path, uint32_t* id);

/* Calls a method and waits for its end: its status, UBUS_STATUS_TIMEOUT after that many
 * milliseconds (0: waits for ever), or UBUS_STATUS_CONNECTION_FAILED. cb, which may be NULL, is
 * given each reply, with priv in its request. msg may be NULL. What others ask of this program
 * meanwhile waits until the end. */
UBUS_EXPORT int ubus_invoke_fd(struct ubus_context* ctx, uint32_t obj, const char* method,
                               struct blob_attr* msg, ubus_data_handler_t cb, void* priv,
                               int timeout, int fd);

static inline int ubus_invoke(struct ubus_context* ctx, uint32_t obj, const char* method,
                              struct blob_attr* msg, ubus_data_handler_t cb, void* priv,
                              int timeout) {
    return ubus_invoke_fd(ctx, obj, method, msg, cb, priv, timeout, -1);
}

/* The same in pieces: sends; then one of the two below. A descriptor cannot be sent along: fd is
 * -1. */
UBUS_EXPORT int ubus_invoke_async_fd(struct ubus_context* ctx, uint32_t obj, const char* method,
                                     struct blob_attr* msg, struct ubus_request* req, int fd);

static inline int ubus_invoke_async(struct ubus_context* ctx, uint32_t obj, const char* method,
                                    struct blob_attr* msg, struct ubus_request* req) {
    return ubus_invoke_async_fd(ctx, obj, method, msg, req, -1);
}

/* Waits for the end. */
UBUS_EXPORT int ubus_complete_request(struct ubus_context* ctx, struct ubus_request* req,
                                      int timeout);

/* Leaves it to the loop, which calls complete_cb at the end. */
UBUS_EXPORT void ubus_complete_request_async(struct ubus_context* ctx, struct ubus_request* req);

/* Forgets a request: no handler of it is called any more. */
UBUS_EXPORT void ubus_abort_request(struct ubus_context* ctx, struct ubus_request* req);

/* ---- being called ---- */

/* Puts an object on the bus; without a name it has no path and is called by its id alone. */
UBUS_EXPORT int ubus_add_object(struct ubus_context* ctx, struct ubus_object* obj);
UBUS_EXPORT int ubus_remove_object(struct ubus_context* ctx, struct ubus_object* obj);

/* Inside a method: a reply; any number of them. The method's result is the status that the caller
 * gets. */
UBUS_EXPORT int ubus_send_reply(struct ubus_context* ctx, struct ubus_request_data* req,
                                struct blob_attr* msg);

/* Inside a method: keeps the call in new_req, to be answered and completed later. */
static inline void ubus_defer_request(struct ubus_context* ctx, struct ubus_request_data* req,
                                      struct ubus_request_data* new_req) {
    (void)ctx;
    *new_req = *req;
    req->deferred = true;
}

UBUS_EXPORT void ubus_complete_deferred_request(struct ubus_context* ctx,
                                                struct ubus_request_data* req, int ret);

/* ---- events ---- */

UBUS_EXPORT int ubus_send_event(struct ubus_context* ctx, const char* id, struct blob_attr* data);

/* ev->cb is called for each event whose name is the pattern, or begins as one with "*" at its end.
 * A handler may be registered for several. */
UBUS_EXPORT int ubus_register_event_handler(struct ubus_context* ctx, struct ubus_event_handler* ev,
                                            const char* pattern);

static inline int ubus_unregister_event_handler(struct ubus_context* ctx,
                                                struct ubus_event_handler* ev) {
    return ubus_remove_object(ctx, &ev->obj);
}

#ifdef __cplusplus
}
#endif

#endif
