// broker_event.cpp - events: who wants which, and telling them.
#include <cstdlib>
#include <cstring>

#include "broker.h"

namespace ubus::broker {
namespace {

// Events whose name is the text, or begins as it.
struct EventPattern {
    list_head list;
    list_head of_object;
    Object* object;
    bool is_prefix;
    size_t length;
    __extension__ char text[0];
};

LIST_HEAD(patterns);

uint32_t event_number = 0;

bool matches(const EventPattern& pattern, const char* name) {
    if (!pattern.is_prefix) return strcmp(pattern.text, name) == 0;
    return strncmp(pattern.text, name, pattern.length) == 0;
}

// data: the elements of the event's message.
void tell(Object* object, const char* name, const void* data, size_t size) {
    blob_buf* buf = new_message();
    blob_put_u32(buf, UBUS_ATTR_OBJID, object->id);
    blob_put_string(buf, UBUS_ATTR_METHOD, name);
    if (!blob_put(buf, UBUS_ATTR_DATA, data, static_cast<unsigned int>(size))) return;
    Client* owner = object->owner;
    send(owner, UBUS_MSG_INVOKE, ++owner->notices, 0, message());
}

// Everyone whose object wants it, once for each object; nobody is told of what it does itself.
void publish(const Client* from, const char* name, const void* data, size_t size) {
    const uint32_t number = ++event_number;
    list_head* entry = nullptr;
    list_for_each(entry, &patterns) {
        const auto* pattern = container_of(entry, EventPattern, list);
        Object* object = pattern->object;
        if (object->owner == from || object->last_event == number || !matches(*pattern, name))
            continue;
        object->last_event = number;
        tell(object, name, data, size);
    }
}

int add_pattern(Object* object, const char* text) {
    const size_t length = strlen(text);
    auto* pattern = static_cast<EventPattern*>(calloc(1, sizeof(EventPattern) + length + 1));
    if (!pattern) return UBUS_STATUS_NO_MEMORY;
    memcpy(pattern->text, text, length + 1);
    pattern->object = object;
    pattern->is_prefix = length > 0 && text[length - 1] == '*';
    pattern->length = pattern->is_prefix ? length - 1 : length;
    list_add_tail(&pattern->list, &patterns);
    list_add_tail(&pattern->of_object, &object->patterns);
    return UBUS_STATUS_OK;
}

int register_pattern(const Request& request, blob_attr* arguments) {
    enum { kObject, kPattern, kCount };
    static constexpr blobmsg_policy kPolicy[kCount] = {{"object", BLOBMSG_TYPE_INT32},
                                                       {"pattern", BLOBMSG_TYPE_STRING}};
    blob_attr* found[kCount];
    blobmsg_parse_attr(kPolicy, kCount, found, arguments);
    if (!found[kObject] || !found[kPattern]) return UBUS_STATUS_INVALID_ARGUMENT;
    Object* object = find_object(blobmsg_get_u32(found[kObject]));
    if (!object) return UBUS_STATUS_NOT_FOUND;
    if (object->owner != request.from) return UBUS_STATUS_PERMISSION_DENIED;
    return add_pattern(object, blobmsg_get_string(found[kPattern]));
}

bool is_brokers_own(const char* name) {
    return strncmp(name, "ubus.", 5) == 0;
}

int send_event(const Request& request, blob_attr* arguments) {
    enum { kId, kData, kCount };
    static constexpr blobmsg_policy kPolicy[kCount] = {{"id", BLOBMSG_TYPE_STRING},
                                                       {"data", BLOBMSG_TYPE_TABLE}};
    blob_attr* found[kCount];
    blobmsg_parse_attr(kPolicy, kCount, found, arguments);
    if (!found[kId] || !found[kData]) return UBUS_STATUS_INVALID_ARGUMENT;
    const char* name = blobmsg_get_string(found[kId]);
    if (is_brokers_own(name)) return UBUS_STATUS_PERMISSION_DENIED;
    publish(request.from, name, blobmsg_data(found[kData]), blobmsg_data_len(found[kData]));
    return UBUS_STATUS_OK;
}

void free_pattern(EventPattern* pattern) {
    list_del(&pattern->list);
    list_del(&pattern->of_object);
    free(pattern);
}

}  // namespace

int call_event_object(const Request& request) {
    blob_attr* arguments = request.attributes[UBUS_ATTR_DATA];
    if (!request.from->is_root) return UBUS_STATUS_PERMISSION_DENIED;
    if (!arguments) return UBUS_STATUS_INVALID_ARGUMENT;
    const char* method = request.attributes.text(UBUS_ATTR_METHOD);
    if (strcmp(method, "register") == 0) return register_pattern(request, arguments);
    if (strcmp(method, "send") == 0) return send_event(request, arguments);
    return UBUS_STATUS_INVALID_COMMAND;
}

void announce_object(const Object* object, const char* event) {
    blob_buf description = {};
    if (blob_buf_init(&description, 0) == 0) {
        blobmsg_add_u32(&description, "id", object->id);
        if (blobmsg_add_string(&description, "path", object->path) == 0)
            publish(nullptr, event, blob_data(description.head), blob_len(description.head));
    }
    blob_buf_free(&description);
}

void remove_patterns_of(Object* object) {
    while (!list_empty(&object->patterns)) {
        free_pattern(list_first_entry(&object->patterns, EventPattern, of_object));
    }
}

}  // namespace ubus::broker
