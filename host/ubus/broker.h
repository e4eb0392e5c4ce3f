// broker.h - the broker: who is connected, what objects they have, and who is told of what.
//
// Everything is driven by the event loop of libubox. Clients are not trusted: what one of them
// sends or fails to read is its own loss. There are no access lists: root may do everything, others
// only talk about themselves.
#pragma once

#include <libubox/avl.h>
#include <libubox/blobmsg.h>
#include <libubox/list.h>
#include <libubox/uloop.h>

#include <cstddef>
#include <cstdint>

#include "wire.h"

namespace ubus::broker {

// What may wait for a client that does not read. Then calls of its objects are refused, and
// anything else ends its connection.
constexpr size_t kMaxQueue = size_t{4} * 1024 * 1024;

constexpr size_t kMaxUserName = 32;

struct Client {
    avl_node by_id;
    uint32_t id;
    uloop_fd sock;
    uloop_timeout removal;  // pending: the client is done for
    bool is_root;
    char user[kMaxUserName];
    char group[kMaxUserName];
    list_head objects;

    // Received, and not a whole message yet.
    char* input;
    size_t input_size;
    size_t input_room;

    list_head output;
    size_t queued;

    uint16_t notices;  // the sequence number of what it is told without having asked
};

// A set of methods; it lives as long as objects have it.
struct Type {
    avl_node by_id;
    uint32_t id;
    unsigned int users;
    blob_attr* signature;
};

struct Object {
    avl_node by_id;
    uint32_t id;
    avl_node by_path;  // with a path only
    char* path;
    Type* type;
    Client* owner;
    list_head of_owner;
    list_head subscribers;    // Subscription::of_target
    list_head subscriptions;  // Subscription::of_subscriber
    list_head patterns;       // EventPattern::of_object
    uint32_t last_event;      // that it was told
};

struct Subscription {
    list_head of_target;
    list_head of_subscriber;
    Object* target;
    Object* subscriber;
};

// A request as it came, its numbers in the machine's order.
struct Request {
    Client* from;
    uint8_t type;
    uint16_t seq;
    uint32_t peer;
    const Attributes& attributes;
};

// broker.cpp - requests.

bool start();
void stop();
void handle_request(Client* from, const WireHeader& header, blob_attr* body);
void send_status(const Request& request, int status);

// The message under construction; one at a time. Null without memory, as its head is.
blob_buf* new_message();
blob_attr* message();

// A new random id that the tree has not; system objects' ids are never given.
uint32_t new_id(const avl_tree* tree);

// broker_client.cpp - connections.

// Takes the descriptor over; null where that failed, and it is closed.
Client* add_client(int fd);
void remove_all_clients();
Client* find_client(uint32_t id);
bool is_overloaded(const Client* client);
// Nothing reaches it any more, and it is about to be removed.
bool is_dropped(const Client* client);

// Sends to a client that still has room, and drops one that has not. A message that is longer than
// kMaxBody is not sent: its reader would take it for the end of the connection.
void send(Client* to, uint8_t type, uint16_t seq, uint32_t peer, const blob_attr* body);
// The same for a part of an answer to its own request, however long that is.
void send_part(Client* to, uint8_t type, uint16_t seq, uint32_t peer, const blob_attr* body);

// broker_object.cpp - objects, their types, and subscriptions.

int add_object(const Request& request);
int remove_object(const Request& request);
void remove_objects_of(Client* client);
int look_up(const Request& request);
int subscribe(const Request& request);
int unsubscribe(const Request& request);
Object* find_object(uint32_t id);

// broker_event.cpp - the object that events go through.

int call_event_object(const Request& request);
void announce_object(const Object* object, const char* event);
void remove_patterns_of(Object* object);

}  // namespace ubus::broker
