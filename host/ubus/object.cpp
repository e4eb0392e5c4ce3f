// object.cpp - objects of this program: putting them on the bus, answering calls, events.
#include <cstdlib>
#include <cstring>

#include "internal.h"
#include "wire.h"

namespace ubus {
namespace {

struct PendingMessage {
    list_head list;
    Message message;
};

ubus_object* find_object(ubus_context* ctx, uint32_t id) {
    ubus_object* object = nullptr;
    return avl_find_element(&ctx->objects, &id, object, avl);
}

const ubus_method* find_method(const ubus_object* object, const char* name) {
    for (int i = 0; i < object->n_methods; i++) {
        // A method without a name is for all the others.
        if (!object->methods[i].name || strcmp(object->methods[i].name, name) == 0)
            return &object->methods[i];
    }
    return nullptr;
}

int call_method(ubus_context* ctx, ubus_request_data* req, const Attributes& attributes) {
    const char* name = attributes.text(UBUS_ATTR_METHOD);
    if (!name || !attributes[UBUS_ATTR_DATA]) return UBUS_STATUS_INVALID_ARGUMENT;
    ubus_object* object = find_object(ctx, req->object);
    if (!object) return UBUS_STATUS_NOT_FOUND;
    req->acl.object = object->name;
    const ubus_method* method = find_method(object, name);
    if (!method) return UBUS_STATUS_METHOD_NOT_FOUND;
    return method->handler(ctx, object, req, name, attributes[UBUS_ATTR_DATA]);
}

void handle_invoke(ubus_context* ctx, const Message& message, const Attributes& attributes) {
    ubus_request_data req = {};
    req.object = attributes.number(UBUS_ATTR_OBJID);
    req.peer = message.peer;
    req.seq = message.seq;
    req.acl = {attributes.text(UBUS_ATTR_USER), attributes.text(UBUS_ATTR_GROUP), nullptr};
    req.fd = -1;
    req.req_fd = -1;
    const int status = call_method(ctx, &req, attributes);
    if (req.deferred || attributes.is_set(UBUS_ATTR_NO_REPLY)) return;
    ubus_complete_deferred_request(ctx, &req, status);
}

void handle_subscribers(ubus_context* ctx, const Attributes& attributes) {
    ubus_object* object = find_object(ctx, attributes.number(UBUS_ATTR_OBJID));
    if (!object || !attributes[UBUS_ATTR_ACTIVE]) return;
    object->has_subscribers = attributes.is_set(UBUS_ATTR_ACTIVE);
    if (object->subscribe_cb) object->subscribe_cb(ctx, object);
}

void dispatch(ubus_context* ctx, const Message& message) {
    const Attributes attributes(message.body, blob_raw_len(message.body));
    if (message.type == UBUS_MSG_INVOKE) handle_invoke(ctx, message, attributes);
    if (message.type == UBUS_MSG_NOTIFY) handle_subscribers(ctx, attributes);
}

void keep_pending(ubus_context* ctx, const Message& message) {
    auto* pending = static_cast<PendingMessage*>(malloc(sizeof(PendingMessage)));
    blob_attr* body = blob_memdup(message.body);
    if (!pending || !body) {
        free(pending);
        free(body);
        return;
    }
    pending->message = message;
    pending->message.body = body;
    list_add_tail(&pending->list, &ctx->pending);
}

PendingMessage* take_pending(ubus_context* ctx) {
    if (list_empty(&ctx->pending)) return nullptr;
    auto* pending = list_first_entry(&ctx->pending, PendingMessage, list);
    list_del(&pending->list);
    return pending;
}

void release(PendingMessage* pending) {
    free(pending->message.body);
    free(pending);
}

bool is_in(unsigned long mask, int index) {
    return mask == 0 || (mask >> index & 1) != 0;
}

void put_method(blob_buf* buf, const ubus_method& method) {
    void* table = blobmsg_open_table(buf, method.name);
    for (int i = 0; i < method.n_policy; i++) {
        if (!method.policy[i].name || !is_in(method.mask, i)) continue;
        blobmsg_add_u32(buf, method.policy[i].name, static_cast<uint32_t>(method.policy[i].type));
    }
    blobmsg_close_table(buf, table);
}

// A type is described once; later objects of it give its id.
void put_type(blob_buf* buf, const ubus_object_type& type) {
    if (type.id) {
        blob_put_u32(buf, UBUS_ATTR_OBJTYPE, type.id);
        return;
    }
    void* signature = blob_nest_start(buf, UBUS_ATTR_SIGNATURE);
    for (int i = 0; i < type.n_methods; i++) {
        put_method(buf, type.methods[i]);
    }
    blob_nest_end(buf, signature);
}

// What the broker says of an object that is added or removed; 0 for what it does not say.
struct Ids {
    uint32_t object;
    uint32_t type;
};

void take_ids(ubus_request* req, int /*type*/, blob_attr* msg) {
    const Attributes attributes(msg, blob_raw_len(msg));
    *static_cast<Ids*>(req->priv) = {attributes.number(UBUS_ATTR_OBJID),
                                     attributes.number(UBUS_ATTR_OBJTYPE)};
}

int deliver_event(ubus_context* ctx, ubus_object* object, ubus_request_data* /*req*/,
                  const char* method, blob_attr* msg) {
    auto* handler = container_of(object, ubus_event_handler, obj);
    handler->cb(ctx, handler, method, msg);
    return UBUS_STATUS_OK;
}

constexpr ubus_method kEventMethod = {nullptr, deliver_event, 0, 0, nullptr, 0};

}  // namespace

void handle_object_message(ubus_context* ctx, const Message& message) {
    if (ctx->stack_depth > 0) {
        keep_pending(ctx, message);
    } else {
        dispatch(ctx, message);
    }
}

void handle_pending(ubus_context* ctx) {
    while (ctx->stack_depth == 0) {
        PendingMessage* pending = take_pending(ctx);
        if (!pending) return;
        dispatch(ctx, pending->message);
        release(pending);
    }
}

void drop_pending(ubus_context* ctx) {
    while (PendingMessage* pending = take_pending(ctx)) {
        release(pending);
    }
}

void add_objects_again(ubus_context* ctx) {
    avl_tree old = {};
    avl_init(&old, ctx->objects.comp, false, nullptr);
    ubus_object* object = nullptr;
    ubus_object* next = nullptr;
    avl_for_each_element_safe(&ctx->objects, object, avl, next) {
        avl_delete(&ctx->objects, &object->avl);
        avl_insert(&old, &object->avl);
        if (object->type) object->type->id = 0;
    }
    avl_for_each_element_safe(&old, object, avl, next) {
        avl_delete(&old, &object->avl);
        object->id = 0;
        ubus_add_object(ctx, object);
    }
}

}  // namespace ubus

int ubus_add_object(ubus_context* ctx, ubus_object* obj) {
    ubus::Blob blob;
    if (obj->name && !blob_put_string(blob.buf(), UBUS_ATTR_OBJPATH, obj->name))
        return UBUS_STATUS_NO_MEMORY;
    if (obj->type) ubus::put_type(blob.buf(), *obj->type);
    ubus::Ids ids = {};
    const int status =
        ubus::perform_request(ctx, UBUS_MSG_ADD_OBJECT, 0, blob.message(), ubus::take_ids, &ids);
    if (status != UBUS_STATUS_OK) return status;
    if (!ids.object || avl_find(&ctx->objects, &ids.object)) return UBUS_STATUS_NO_DATA;
    obj->id = ids.object;
    if (obj->type && ids.type) obj->type->id = ids.type;
    obj->avl.key = &obj->id;
    avl_insert(&ctx->objects, &obj->avl);
    return UBUS_STATUS_OK;
}

int ubus_remove_object(ubus_context* ctx, ubus_object* obj) {
    ubus::Blob blob;
    blob_put_u32(blob.buf(), UBUS_ATTR_OBJID, obj->id);
    ubus::Ids ids = {};
    const int status =
        ubus::perform_request(ctx, UBUS_MSG_REMOVE_OBJECT, 0, blob.message(), ubus::take_ids, &ids);
    if (status != UBUS_STATUS_OK) return status;
    if (!ids.object || !obj->id) return UBUS_STATUS_NO_DATA;
    avl_delete(&ctx->objects, &obj->avl);
    obj->id = 0;
    // The last object of its type.
    if (obj->type && ids.type) obj->type->id = 0;
    return UBUS_STATUS_OK;
}

int ubus_send_reply(ubus_context* ctx, ubus_request_data* req, blob_attr* msg) {
    ubus::Blob blob;
    blob_put_u32(blob.buf(), UBUS_ATTR_OBJID, req->object);
    if (!blob_put(blob.buf(), UBUS_ATTR_DATA, blob_data(msg), static_cast<unsigned>(blob_len(msg))))
        return UBUS_STATUS_NO_MEMORY;
    if (!ubus::send_message(ctx, UBUS_MSG_DATA, req->seq, req->peer, blob.message()))
        return UBUS_STATUS_NO_DATA;
    return UBUS_STATUS_OK;
}

void ubus_complete_deferred_request(ubus_context* ctx, ubus_request_data* req, int ret) {
    ubus::Blob blob;
    blob_put_u32(blob.buf(), UBUS_ATTR_STATUS, static_cast<uint32_t>(ret));
    if (blob_put_u32(blob.buf(), UBUS_ATTR_OBJID, req->object))
        ubus::send_message(ctx, UBUS_MSG_STATUS, req->seq, req->peer, blob.message());
}

int ubus_send_event(ubus_context* ctx, const char* id, blob_attr* data) {
    ubus::Blob blob;
    blob_put_u32(blob.buf(), UBUS_ATTR_OBJID, UBUS_SYSTEM_OBJECT_EVENT);
    blob_put_string(blob.buf(), UBUS_ATTR_METHOD, "send");
    void* arguments = blob_nest_start(blob.buf(), UBUS_ATTR_DATA);
    blobmsg_add_string(blob.buf(), "id", id);
    if (blobmsg_add_field(blob.buf(), BLOBMSG_TYPE_TABLE, "data", blob_data(data),
                          static_cast<unsigned int>(blob_len(data))) < 0)
        return UBUS_STATUS_NO_MEMORY;
    blob_nest_end(blob.buf(), arguments);
    return ubus::perform_request(ctx, UBUS_MSG_INVOKE, UBUS_SYSTEM_OBJECT_EVENT, blob.message(),
                                 nullptr, nullptr);
}

int ubus_register_event_handler(ubus_context* ctx, ubus_event_handler* ev, const char* pattern) {
    ubus_object* object = &ev->obj;
    if (!object->id) {
        object->methods = &ubus::kEventMethod;
        object->n_methods = 1;
        // Whatever name it had is not its path on the bus.
        object->name = nullptr;
        const int status = ubus_add_object(ctx, object);
        if (status != UBUS_STATUS_OK) return status;
    }
    ubus::Blob blob;
    blobmsg_add_u32(blob.buf(), "object", object->id);
    if (pattern) blobmsg_add_string(blob.buf(), "pattern", pattern);
    if (!blob.message()) return UBUS_STATUS_NO_MEMORY;
    return ubus_invoke(ctx, UBUS_SYSTEM_OBJECT_EVENT, "register", blob.message(), nullptr, nullptr,
                       0);
}
