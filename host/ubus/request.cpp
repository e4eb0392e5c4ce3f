// request.cpp - requests of this program: looking up, calling, and waiting for the end.
#include <poll.h>

#include <cerrno>
#include <ctime>

#include "internal.h"
#include "wire.h"

namespace ubus {
namespace {

int64_t now_milliseconds() {
    timespec time = {};
    clock_gettime(CLOCK_MONOTONIC, &time);
    return static_cast<int64_t>(time.tv_sec) * 1000 + time.tv_nsec / 1000000;
}

ubus_request* find_request(ubus_context* ctx, uint16_t seq, uint32_t peer) {
    ubus_request* req = nullptr;
    list_for_each_entry(req, &ctx->requests, list) {
        if (req->seq == seq && req->peer == peer) return req;
    }
    return nullptr;
}

void finish(ubus_request* req, int status) {
    list_del_init(&req->list);
    req->status_code = status;
    req->status_msg = true;
    if (req->complete_cb) req->complete_cb(req, status);
}

// Whether something has come, or the other end is gone, within that time.
bool wait_readable(int fd, int milliseconds) {
    pollfd poll_fd = {fd, POLLIN, 0};
    return poll(&poll_fd, 1, milliseconds) > 0;
}

struct Lookup {
    ubus_lookup_handler_t handler;
    void* priv;
};

void hand_out_object(ubus_request* req, int /*type*/, blob_attr* msg) {
    const auto* lookup = static_cast<const Lookup*>(req->priv);
    const Attributes attributes(msg, blob_raw_len(msg));
    if (!attributes[UBUS_ATTR_OBJID] || !attributes[UBUS_ATTR_OBJPATH] ||
        !attributes[UBUS_ATTR_OBJTYPE])
        return;
    ubus_object_data object = {attributes.number(UBUS_ATTR_OBJID),
                               attributes.number(UBUS_ATTR_OBJTYPE),
                               attributes.text(UBUS_ATTR_OBJPATH), attributes[UBUS_ATTR_SIGNATURE]};
    lookup->handler(req->ctx, &object, lookup->priv);
}

void keep_id(ubus_context* /*ctx*/, ubus_object_data* object, void* priv) {
    *static_cast<uint32_t*>(priv) = object->id;
}

}  // namespace

int start_request(ubus_context* ctx, ubus_request* req, uint8_t type, uint32_t peer,
                  blob_attr* body) {
    *req = {};
    INIT_LIST_HEAD(&req->list);
    INIT_LIST_HEAD(&req->pending);
    req->ctx = ctx;
    req->peer = peer;
    req->seq = ++ctx->request_seq;
    req->fd = -1;
    if (!body) return UBUS_STATUS_NO_MEMORY;
    if (blob_raw_len(body) > kMaxBody) return UBUS_STATUS_INVALID_ARGUMENT;
    if (!send_message(ctx, type, req->seq, peer, body)) return UBUS_STATUS_CONNECTION_FAILED;
    return UBUS_STATUS_OK;
}

int perform_request(ubus_context* ctx, uint8_t type, uint32_t peer, blob_attr* body,
                    ubus_data_handler_t raw_data, void* priv) {
    ubus_request req;
    const int status = start_request(ctx, &req, type, peer, body);
    if (status != UBUS_STATUS_OK) return status;
    req.raw_data_cb = raw_data;
    req.priv = priv;
    return ubus_complete_request(ctx, &req, 0);
}

void handle_status(ubus_context* ctx, const Message& message) {
    ubus_request* req = find_request(ctx, message.seq, message.peer);
    if (!req) return;
    const Attributes attributes(message.body, blob_raw_len(message.body));
    finish(req, attributes[UBUS_ATTR_STATUS] ? static_cast<int>(attributes.number(UBUS_ATTR_STATUS))
                                             : UBUS_STATUS_INVALID_ARGUMENT);
}

void handle_data(ubus_context* ctx, const Message& message) {
    ubus_request* req = find_request(ctx, message.seq, message.peer);
    if (!req) return;
    if (req->raw_data_cb) {
        req->raw_data_cb(req, message.type, message.body);
        return;
    }
    const Attributes attributes(message.body, blob_raw_len(message.body));
    if (req->data_cb && attributes[UBUS_ATTR_DATA])
        req->data_cb(req, message.type, attributes[UBUS_ATTR_DATA]);
}

void fail_requests(ubus_context* ctx) {
    while (!list_empty(&ctx->requests)) {
        finish(list_first_entry(&ctx->requests, ubus_request, list), UBUS_STATUS_CONNECTION_FAILED);
    }
}

}  // namespace ubus

void ubus_complete_request_async(ubus_context* ctx, ubus_request* req) {
    if (list_empty(&req->list)) list_add_tail(&req->list, &ctx->requests);
}

int ubus_complete_request(ubus_context* ctx, ubus_request* req, int timeout) {
    ubus_complete_request_async(ctx, req);
    // The connection may have been lost after it was sent.
    if (ctx->sock.eof) ubus::fail_requests(ctx);
    const int64_t end = ubus::now_milliseconds() + timeout;

    ctx->stack_depth++;
    while (!req->status_msg && !req->cancelled) {
        const int64_t left = timeout != 0 ? end - ubus::now_milliseconds() : -1;
        if (timeout != 0 && left <= 0) break;
        if (ubus::wait_readable(ctx->sock.fd, static_cast<int>(left))) ubus::receive(ctx);
    }
    ctx->stack_depth--;
    if (ctx->stack_depth == 0 && !list_empty(&ctx->pending))
        uloop_timeout_set(&ctx->pending_timer, 1);

    if (req->status_msg) return req->status_code;
    ubus_abort_request(ctx, req);
    return UBUS_STATUS_TIMEOUT;
}

void ubus_abort_request(ubus_context* /*ctx*/, ubus_request* req) {
    req->cancelled = true;
    if (!list_empty(&req->list)) list_del_init(&req->list);
}

int ubus_lookup(ubus_context* ctx, const char* path, ubus_lookup_handler_t cb, void* priv) {
    ubus::Blob blob;
    // A look-up without a path is one of all objects.
    if (path && !blob_put_string(blob.buf(), UBUS_ATTR_OBJPATH, path)) return UBUS_STATUS_NO_MEMORY;
    ubus::Lookup lookup = {cb, priv};
    return ubus::perform_request(ctx, UBUS_MSG_LOOKUP, 0, blob.message(), ubus::hand_out_object,
                                 &lookup);
}

int ubus_lookup_id(ubus_context* ctx, const char* path, uint32_t* id) {
    return ubus_lookup(ctx, path, ubus::keep_id, id);
}

int ubus_invoke_async_fd(ubus_context* ctx, uint32_t obj, const char* method, blob_attr* msg,
                         ubus_request* req, int fd) {
    if (fd >= 0) return UBUS_STATUS_NOT_SUPPORTED;
    ubus::Blob blob;
    blob_put_u32(blob.buf(), UBUS_ATTR_OBJID, obj);
    blob_put_string(blob.buf(), UBUS_ATTR_METHOD, method);
    // Without a message an empty one: a method may rely on it.
    const void* data = msg ? blob_data(msg) : nullptr;
    const auto size = msg ? static_cast<unsigned int>(blob_len(msg)) : 0;
    if (!blob_put(blob.buf(), UBUS_ATTR_DATA, data, size)) return UBUS_STATUS_NO_MEMORY;
    return ubus::start_request(ctx, req, UBUS_MSG_INVOKE, obj, blob.message());
}

int ubus_invoke_fd(ubus_context* ctx, uint32_t obj, const char* method, blob_attr* msg,
                   ubus_data_handler_t cb, void* priv, int timeout, int fd) {
    ubus_request req;
    const int status = ubus_invoke_async_fd(ctx, obj, method, msg, &req, fd);
    if (status != UBUS_STATUS_OK) return status;
    req.data_cb = cb;
    req.priv = priv;
    return ubus_complete_request(ctx, &req, timeout);
}
