// broker_object.cpp - the broker's objects: adding, finding and removing them, and who is
// subscribed to whom.
#include <libubox/avl-cmp.h>

#include <cstdlib>
#include <cstring>

#include "broker.h"

namespace ubus::broker {
namespace {

avl_tree objects = AVL_TREE_INIT(objects, compare_ids, false, nullptr);
avl_tree paths = AVL_TREE_INIT(paths, avl_strcmp, false, nullptr);
avl_tree types = AVL_TREE_INIT(types, compare_ids, false, nullptr);

// ---- types ----

// Tables, each a method.
bool is_signature(const blob_attr* signature) {
    blob_attr* method = nullptr;
    size_t rem = 0;
    blob_for_each_attr(method, signature, rem) {
        if (!blobmsg_check_attr_len(method, true, rem)) return false;
        if (blobmsg_type(method) != BLOBMSG_TYPE_TABLE) return false;
    }
    return true;
}

Type* new_type(const blob_attr* signature) {
    if (!is_signature(signature)) return nullptr;
    auto* type = static_cast<Type*>(calloc(1, sizeof(Type)));
    blob_attr* copy = blob_memdup(signature);
    if (!type || !copy) {
        free(type);
        free(copy);
        return nullptr;
    }
    type->signature = copy;
    type->id = new_id(&types);
    type->by_id.key = &type->id;
    avl_insert(&types, &type->by_id);
    return type;
}

Type* find_type(uint32_t id) {
    Type* type = nullptr;
    return avl_find_element(&types, &id, type, by_id);
}

void leave_type(Type* type) {
    if (!type || --type->users > 0) return;
    avl_delete(&types, &type->by_id);
    free(type->signature);
    free(type);
}

// ---- subscriptions ----

void tell_whether_subscribed(const Object* target) {
    blob_buf* buf = new_message();
    blob_put_u32(buf, UBUS_ATTR_OBJID, target->id);
    blob_put_int8(buf, UBUS_ATTR_ACTIVE, !list_empty(&target->subscribers));
    Client* owner = target->owner;
    send(owner, UBUS_MSG_NOTIFY, ++owner->notices, 0, message());
}

void tell_target_is_gone(const Subscription* subscription) {
    blob_buf* buf = new_message();
    blob_put_u32(buf, UBUS_ATTR_OBJID, subscription->subscriber->id);
    blob_put_u32(buf, UBUS_ATTR_TARGET, subscription->target->id);
    Client* owner = subscription->subscriber->owner;
    send(owner, UBUS_MSG_UNSUBSCRIBE, ++owner->notices, 0, message());
}

void end_subscription(Subscription* subscription) {
    list_del(&subscription->of_target);
    list_del(&subscription->of_subscriber);
    free(subscription);
}

// NOLINTBEGIN(clang-analyzer-unix.Malloc): what was freed has left its list
void end_subscriptions_of(Object* object) {
    while (!list_empty(&object->subscribers)) {
        auto* subscription = list_first_entry(&object->subscribers, Subscription, of_target);
        tell_target_is_gone(subscription);
        end_subscription(subscription);
    }
    while (!list_empty(&object->subscriptions)) {
        auto* subscription = list_first_entry(&object->subscriptions, Subscription, of_subscriber);
        const Object* target = subscription->target;
        end_subscription(subscription);
        if (list_empty(&target->subscribers)) tell_whether_subscribed(target);
    }
}
// NOLINTEND(clang-analyzer-unix.Malloc)

Subscription* find_subscription(Object* subscriber, const Object* target) {
    list_head* entry = nullptr;
    list_for_each(entry, &subscriber->subscriptions) {
        auto* subscription = container_of(entry, Subscription, of_subscriber);
        if (subscription->target == target) return subscription;
    }
    return nullptr;
}

// The two objects of a request about subscriptions.
int find_both(const Request& request, Object** subscriber, Object** target) {
    if (!request.attributes[UBUS_ATTR_OBJID] || !request.attributes[UBUS_ATTR_TARGET])
        return UBUS_STATUS_INVALID_ARGUMENT;
    *subscriber = find_object(request.attributes.number(UBUS_ATTR_OBJID));
    *target = find_object(request.attributes.number(UBUS_ATTR_TARGET));
    if (!*subscriber || !*target) return UBUS_STATUS_NOT_FOUND;
    if ((*subscriber)->owner != request.from || *subscriber == *target)
        return UBUS_STATUS_INVALID_ARGUMENT;
    return request.from->is_root ? UBUS_STATUS_OK : UBUS_STATUS_NOT_FOUND;
}

// ---- objects ----

// Whether what the broker tells of the object fits into a message with all that it adds.
bool is_tellable(const char* path, const Type* type) {
    constexpr size_t kAdded = 128;
    const size_t signature = type ? blob_len(type->signature) : 0;
    return !path || strlen(path) + signature <= kMaxBody - kAdded;
}

void free_unused(Type* type) {
    if (!type || type->users > 0) return;
    type->users = 1;
    leave_type(type);
}

// Null where there is no memory for it.
Object* new_object(Client* owner, const char* path, Type* type) {
    auto* object = static_cast<Object*>(calloc(1, sizeof(Object)));
    char* copy = path && type ? strdup(path) : nullptr;
    if (!object || (path && type && !copy)) {
        free(object);
        free(copy);
        return nullptr;
    }
    INIT_LIST_HEAD(&object->subscribers);
    INIT_LIST_HEAD(&object->subscriptions);
    INIT_LIST_HEAD(&object->patterns);
    object->owner = owner;
    object->path = copy;
    object->type = type;
    if (type) type->users++;
    object->id = new_id(&objects);
    object->by_id.key = &object->id;
    avl_insert(&objects, &object->by_id);
    list_add_tail(&object->of_owner, &owner->objects);
    if (copy) {
        object->by_path.key = copy;
        avl_insert(&paths, &object->by_path);
    }
    return object;
}

void free_object(Object* object) {
    // NOLINTNEXTLINE(clang-analyzer-unix.Malloc): what was freed has left its list
    if (object->path) {
        announce_object(object, "ubus.object.remove");
        avl_delete(&paths, &object->by_path);
    }
    end_subscriptions_of(object);
    remove_patterns_of(object);
    avl_delete(&objects, &object->by_id);
    list_del(&object->of_owner);
    leave_type(object->type);
    free(object->path);
    free(object);
}

void send_object(const Request& request, const Object* object) {
    blob_buf* buf = new_message();
    blob_put_string(buf, UBUS_ATTR_OBJPATH, object->path);
    blob_put_u32(buf, UBUS_ATTR_OBJID, object->id);
    blob_put_u32(buf, UBUS_ATTR_OBJTYPE, object->type->id);
    const blob_attr* signature = object->type->signature;
    if (blob_put(buf, UBUS_ATTR_SIGNATURE, blob_data(signature),
                 static_cast<unsigned>(blob_len(signature))))
        send_part(request.from, UBUS_MSG_DATA, request.seq, request.peer, message());
}

// How many paths begin as this text.
int send_objects(const Request& request, const char* prefix, size_t length) {
    int count = 0;
    Object* object = nullptr;
    avl_for_each_element(&paths, object, by_path) {
        if (strncmp(object->path, prefix, length) != 0) continue;
        send_object(request, object);
        count++;
    }
    return count;
}

}  // namespace

Object* find_object(uint32_t id) {
    Object* object = nullptr;
    return avl_find_element(&objects, &id, object, by_id);
}

// Without a type an object has no path: there would be nothing to call.
int add_object(const Request& request) {
    const char* path = request.attributes.text(UBUS_ATTR_OBJPATH);
    const blob_attr* signature = request.attributes[UBUS_ATTR_SIGNATURE];
    if (path && !request.from->is_root) return UBUS_STATUS_PERMISSION_DENIED;
    if (path && (!*path || avl_find(&paths, path))) return UBUS_STATUS_INVALID_ARGUMENT;
    Type* type =
        signature ? new_type(signature) : find_type(request.attributes.number(UBUS_ATTR_OBJTYPE));
    if (signature && !type) return UBUS_STATUS_INVALID_ARGUMENT;
    const bool tellable = is_tellable(path, type);
    const Object* object = tellable ? new_object(request.from, path, type) : nullptr;
    if (!object) {
        free_unused(type);
        return tellable ? UBUS_STATUS_NO_MEMORY : UBUS_STATUS_INVALID_ARGUMENT;
    }

    blob_buf* buf = new_message();
    blob_put_u32(buf, UBUS_ATTR_OBJID, object->id);
    if (signature) blob_put_u32(buf, UBUS_ATTR_OBJTYPE, type->id);
    send(request.from, UBUS_MSG_DATA, request.seq, request.peer, message());
    if (object->path) announce_object(object, "ubus.object.add");
    return UBUS_STATUS_OK;
}

int remove_object(const Request& request) {
    if (!request.attributes[UBUS_ATTR_OBJID]) return UBUS_STATUS_INVALID_ARGUMENT;
    Object* object = find_object(request.attributes.number(UBUS_ATTR_OBJID));
    if (!object) return UBUS_STATUS_NOT_FOUND;
    if (object->owner != request.from) return UBUS_STATUS_PERMISSION_DENIED;

    blob_buf* buf = new_message();
    blob_put_u32(buf, UBUS_ATTR_OBJID, object->id);
    if (object->type && object->type->users == 1)
        blob_put_u32(buf, UBUS_ATTR_OBJTYPE, object->type->id);
    send(request.from, UBUS_MSG_DATA, request.seq, request.peer, message());
    free_object(object);
    return UBUS_STATUS_OK;
}

void remove_objects_of(Client* client) {
    while (!list_empty(&client->objects)) {
        free_object(list_last_entry(&client->objects, Object, of_owner));
    }
}

// Who may call nothing sees nothing.
int look_up(const Request& request) {
    const char* path = request.attributes.text(UBUS_ATTR_OBJPATH);
    const size_t length = path ? strlen(path) : 0;
    if (path && length == 0) return UBUS_STATUS_INVALID_ARGUMENT;
    if (!request.from->is_root) return path ? UBUS_STATUS_NOT_FOUND : UBUS_STATUS_OK;
    if (!path) {
        send_objects(request, "", 0);
        return UBUS_STATUS_OK;
    }
    if (path[length - 1] == '*')
        return send_objects(request, path, length - 1) ? UBUS_STATUS_OK : UBUS_STATUS_NOT_FOUND;

    Object* object = nullptr;
    object = avl_find_element(&paths, path, object, by_path);
    if (!object) return UBUS_STATUS_NOT_FOUND;
    send_object(request, object);
    return UBUS_STATUS_OK;
}

int subscribe(const Request& request) {
    Object* subscriber = nullptr;
    Object* target = nullptr;
    const int status = find_both(request, &subscriber, &target);
    if (status != UBUS_STATUS_OK || find_subscription(subscriber, target)) return status;

    auto* subscription = static_cast<Subscription*>(calloc(1, sizeof(Subscription)));
    if (!subscription) return UBUS_STATUS_NO_MEMORY;
    const bool first = list_empty(&target->subscribers);
    subscription->subscriber = subscriber;
    subscription->target = target;
    list_add_tail(&subscription->of_target, &target->subscribers);
    list_add_tail(&subscription->of_subscriber, &subscriber->subscriptions);
    if (first) tell_whether_subscribed(target);
    return UBUS_STATUS_OK;
}

int unsubscribe(const Request& request) {
    Object* subscriber = nullptr;
    Object* target = nullptr;
    const int status = find_both(request, &subscriber, &target);
    if (status != UBUS_STATUS_OK) return status;

    Subscription* subscription = find_subscription(subscriber, target);
    if (!subscription) return UBUS_STATUS_OK;
    end_subscription(subscription);
    if (list_empty(&target->subscribers)) tell_whether_subscribed(target);
    return UBUS_STATUS_OK;
}

}  // namespace ubus::broker
