// broker.cpp - the broker's requests: what each message asks for, and who gets it.
#include "broker.h"

#include <sys/random.h>

#include <cstring>

namespace ubus::broker {
namespace {

blob_buf out = {};

constexpr int kNoAnswer = -1;

// The attributes that go along with a call, from the message of the client that makes it.
bool put_call(const Request& request, uint32_t object) {
    blob_buf* buf = new_message();
    if (request.attributes[UBUS_ATTR_NO_REPLY])
        blob_put_int8(buf, UBUS_ATTR_NO_REPLY, request.attributes.is_set(UBUS_ATTR_NO_REPLY));
    blob_put_u32(buf, UBUS_ATTR_OBJID, object);
    blob_put_string(buf, UBUS_ATTR_METHOD, request.attributes.text(UBUS_ATTR_METHOD));
    blob_put_string(buf, UBUS_ATTR_USER, request.from->user);
    blob_attr* last = blob_put_string(buf, UBUS_ATTR_GROUP, request.from->group);
    const blob_attr* data = request.attributes[UBUS_ATTR_DATA];
    if (data)
        last =
            blob_put(buf, UBUS_ATTR_DATA, blob_data(data), static_cast<unsigned>(blob_len(data)));
    return last != nullptr;
}

int ping(const Request& request) {
    new_message();
    send(request.from, UBUS_MSG_DATA, request.seq, request.peer, message());
    return UBUS_STATUS_OK;
}

int invoke(const Request& request) {
    const uint32_t id = request.attributes.number(UBUS_ATTR_OBJID);
    if (!request.attributes[UBUS_ATTR_OBJID] || !request.attributes.text(UBUS_ATTR_METHOD))
        return UBUS_STATUS_INVALID_ARGUMENT;
    if (id == UBUS_SYSTEM_OBJECT_EVENT) return call_event_object(request);
    Object* object = find_object(id);
    if (!object || !request.from->is_root) return UBUS_STATUS_NOT_FOUND;
    if (is_overloaded(object->owner)) return UBUS_STATUS_NO_MEMORY;
    if (!put_call(request, id)) return UBUS_STATUS_NO_MEMORY;
    // With the caller's names the message is longer than it came.
    if (blob_raw_len(message()) > kMaxBody) return UBUS_STATUS_INVALID_ARGUMENT;
    send(object->owner, UBUS_MSG_INVOKE, request.seq, request.from->id, message());
    // Nobody else would answer for a service that has just died.
    return is_dropped(object->owner) ? UBUS_STATUS_NOT_FOUND : kNoAnswer;
}

// The object that a request is about, if it is its client's own.
int own_object(const Request& request, Object** object) {
    if (!request.attributes[UBUS_ATTR_OBJID]) return UBUS_STATUS_INVALID_ARGUMENT;
    *object = find_object(request.attributes.number(UBUS_ATTR_OBJID));
    if (!*object) return UBUS_STATUS_NOT_FOUND;
    return (*object)->owner == request.from ? UBUS_STATUS_OK : UBUS_STATUS_PERMISSION_DENIED;
}

// Who will answer, told before they do.
void send_subscribers(const Request& request, const Object* target) {
    blob_buf* buf = new_message();
    blob_put_u32(buf, UBUS_ATTR_OBJID, target->id);
    void* ids = blob_nest_start(buf, UBUS_ATTR_SUBSCRIBERS);
    list_head* entry = nullptr;
    list_for_each(entry, &target->subscribers) {
        blob_put_u32(buf, 0, container_of(entry, Subscription, of_target)->subscriber->id);
    }
    blob_nest_end(buf, ids);
    blob_put_u32(buf, UBUS_ATTR_STATUS, UBUS_STATUS_OK);
    send(request.from, UBUS_MSG_STATUS, request.seq, request.peer, message());
}

int notify(const Request& request) {
    Object* target = nullptr;
    const int status = own_object(request, &target);
    if (status != UBUS_STATUS_OK) return status;
    if (!request.attributes.text(UBUS_ATTR_METHOD)) return UBUS_STATUS_INVALID_ARGUMENT;
    if (!request.attributes.is_set(UBUS_ATTR_NO_REPLY)) send_subscribers(request, target);

    list_head* entry = nullptr;
    list_for_each(entry, &target->subscribers) {
        const Object* subscriber = container_of(entry, Subscription, of_target)->subscriber;
        if (put_call(request, subscriber->id))
            send(subscriber->owner, UBUS_MSG_INVOKE, request.seq, request.from->id, message());
    }
    return kNoAnswer;
}

// A reply is passed on to the client that it names, from an object of the sender's.
void pass_on(const Request& request) {
    Object* object = nullptr;
    if (own_object(request, &object) != UBUS_STATUS_OK) return;
    const bool complete = request.type == UBUS_MSG_STATUS ? request.attributes[UBUS_ATTR_STATUS]
                                                          : request.attributes[UBUS_ATTR_DATA];
    Client* to = find_client(request.peer);
    if (!to || !complete) return;

    blob_buf* buf = new_message();
    blob_attr* last = nullptr;
    if (request.type == UBUS_MSG_STATUS) {
        blob_put_u32(buf, UBUS_ATTR_STATUS, request.attributes.number(UBUS_ATTR_STATUS));
        last = blob_put_u32(buf, UBUS_ATTR_OBJID, object->id);
    } else {
        const blob_attr* data = request.attributes[UBUS_ATTR_DATA];
        blob_put_u32(buf, UBUS_ATTR_OBJID, object->id);
        last =
            blob_put(buf, UBUS_ATTR_DATA, blob_data(data), static_cast<unsigned>(blob_len(data)));
    }
    if (last) send(to, request.type, request.seq, object->id, message());
}

int answer(const Request& request) {
    switch (request.type) {
        case UBUS_MSG_PING:
            return ping(request);
        case UBUS_MSG_LOOKUP:
            return look_up(request);
        case UBUS_MSG_INVOKE:
            return invoke(request);
        case UBUS_MSG_ADD_OBJECT:
            return add_object(request);
        case UBUS_MSG_REMOVE_OBJECT:
            return remove_object(request);
        case UBUS_MSG_SUBSCRIBE:
            return subscribe(request);
        case UBUS_MSG_UNSUBSCRIBE:
            return unsubscribe(request);
        case UBUS_MSG_NOTIFY:
            return notify(request);
        case UBUS_MSG_STATUS:
        case UBUS_MSG_DATA:
            pass_on(request);
            return kNoAnswer;
        default:
            return UBUS_STATUS_INVALID_COMMAND;
    }
}

}  // namespace

void handle_request(Client* from, const WireHeader& header, blob_attr* body) {
    const Attributes attributes(body, blob_raw_len(body));
    const Request request = {from, header.hdr.type, be16_to_cpu(header.hdr.seq),
                             be32_to_cpu(header.hdr.peer), attributes};
    const int status = answer(request);
    if (status != kNoAnswer) send_status(request, status);
}

void send_status(const Request& request, int status) {
    blob_put_u32(new_message(), UBUS_ATTR_STATUS, static_cast<uint32_t>(status));
    send(request.from, UBUS_MSG_STATUS, request.seq, request.peer, message());
}

blob_buf* new_message() {
    blob_buf_init(&out, 0);
    return &out;
}

blob_attr* message() {
    return out.head;
}

uint32_t new_id(const avl_tree* tree) {
    uint32_t id = 0;
    while (id <= UBUS_SYSTEM_OBJECT_MAX || avl_find(tree, &id)) {
        if (getrandom(&id, sizeof(id), 0) < 0) id++;
    }
    return id;
}

bool start() {
    // Before the first client, so that there is always a message to build.
    return uloop_init() == 0 && blob_buf_init(&out, 0) == 0;
}

void stop() {
    remove_all_clients();
    blob_buf_free(&out);
    uloop_done();
}

}  // namespace ubus::broker
