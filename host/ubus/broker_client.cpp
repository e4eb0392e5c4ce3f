// broker_client.cpp - the broker's connections: reading whole messages, and writing without ever
// waiting.
#include <grp.h>
#include <pwd.h>
#include <sys/socket.h>
#include <sys/uio.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <iterator>

#include "broker.h"

namespace ubus::broker {
namespace {

constexpr size_t kFirstInput = 4096;
constexpr size_t kMaxInput = kMaxBody + sizeof(WireHeader);
// A buffer above this is not kept when it is empty.
constexpr size_t kIdleInput = 65536;

constexpr size_t kBodyOffset = sizeof(ubus_msghdr);

struct Packet {
    list_head list;
    size_t size;
    size_t sent;
    __extension__ char bytes[0];
};

avl_tree clients = AVL_TREE_INIT(clients, compare_ids, false, nullptr);

// The client may be in use further up; the loop removes it when all is done.
void drop(Client* client) {
    uloop_fd_delete(&client->sock);
    if (!is_dropped(client)) uloop_timeout_set(&client->removal, 0);
}

// ---- writing ----

void watch(Client* client) {
    const unsigned int wanted = list_empty(&client->output) ? ULOOP_READ : ULOOP_READ | ULOOP_WRITE;
    if (client->sock.registered && client->sock.flags != wanted)
        uloop_fd_add(&client->sock, wanted);
}

void free_output(Client* client) {
    list_head* entry = nullptr;
    list_head* next = nullptr;
    list_for_each_safe(entry, next, &client->output) {
        free(container_of(entry, Packet, list));
    }
    INIT_LIST_HEAD(&client->output);
}

// As write(2), but 0 where the client does not read now.
ssize_t write_some(Client* client, const iovec* vectors, size_t count) {
    msghdr message = {};
    message.msg_iov = const_cast<iovec*>(vectors);
    message.msg_iovlen = static_cast<decltype(message.msg_iovlen)>(count);
    const ssize_t sent = sendmsg(client->sock.fd, &message, MSG_NOSIGNAL | MSG_DONTWAIT);
    return sent < 0 && (errno == EAGAIN || errno == EINTR) ? 0 : sent;
}

// Keeps what was not sent of a message.
void enqueue(Client* client, const WireHeader& header, const blob_attr* body, size_t sent) {
    const size_t rest = blob_len(body);
    const size_t size = sizeof(header) + rest;
    auto* packet = static_cast<Packet*>(malloc(sizeof(Packet) + size));
    if (!packet) {
        drop(client);
        return;
    }
    packet->size = size;
    packet->sent = sent;
    memcpy(packet->bytes, &header, sizeof(header));
    memcpy(packet->bytes + sizeof(header), blob_data(body), rest);
    list_add_tail(&packet->list, &client->output);
    client->queued += size;
    watch(client);
}

void write_queued(Client* client) {
    while (!list_empty(&client->output)) {
        auto* packet = list_first_entry(&client->output, Packet, list);
        // NOLINTNEXTLINE(clang-analyzer-unix.Malloc): a packet that was freed has left the list
        const iovec vector = {packet->bytes + packet->sent, packet->size - packet->sent};
        const ssize_t sent = write_some(client, &vector, 1);
        if (sent < 0) {
            drop(client);
            return;
        }
        packet->sent += static_cast<size_t>(sent);
        if (packet->sent < packet->size) return;
        client->queued -= packet->size;
        list_del(&packet->list);
        free(packet);
    }
    watch(client);
}

// ---- reading ----

bool reserve_input(Client* client) {
    if (client->input_size < client->input_room) return true;
    const size_t room = std::clamp(client->input_room * 2, kFirstInput, kMaxInput);
    auto* input = static_cast<char*>(realloc(client->input, room));
    if (!input) return false;
    client->input = input;
    client->input_room = room;
    return true;
}

// The bytes of the whole message that the input begins with; 0 where there is none yet. What can
// never become one ends the connection.
size_t whole_message(Client* client, const char* input, size_t size, WireHeader* header) {
    if (size < sizeof(*header)) return 0;
    memcpy(header, input, sizeof(*header));
    const size_t body = body_size(*header);
    if (body == 0) drop(client);
    return body == 0 || size < kBodyOffset + body ? 0 : kBodyOffset + body;
}

void keep_input(Client* client, size_t used) {
    client->input_size -= used;
    memmove(client->input, client->input + used, client->input_size);
    if (client->input_size > 0 || client->input_room <= kIdleInput) return;
    free(client->input);
    client->input = nullptr;
    client->input_room = 0;
}

void handle_input(Client* client) {
    size_t used = 0;
    while (!is_dropped(client)) {
        WireHeader header = {};
        char* input = client->input + used;
        const size_t size = whole_message(client, input, client->input_size - used, &header);
        if (size == 0) break;
        handle_request(client, header, reinterpret_cast<blob_attr*>(input + kBodyOffset));
        used += size;
    }
    keep_input(client, used);
}

// One read for each turn of the loop, so that nobody keeps it from the others.
void read_input(Client* client) {
    if (!reserve_input(client)) {
        drop(client);
        return;
    }
    const ssize_t got = recv(client->sock.fd, client->input + client->input_size,
                             client->input_room - client->input_size, MSG_DONTWAIT);
    if (got > 0) {
        client->input_size += static_cast<size_t>(got);
        handle_input(client);
    } else if (got == 0 || (errno != EAGAIN && errno != EINTR)) {
        drop(client);
    }
}

void handle_socket(uloop_fd* sock, unsigned int events) {
    Client* client = container_of(sock, Client, sock);
    if (events & ULOOP_WRITE) write_queued(client);
    if (!is_dropped(client) && (events & ULOOP_READ)) read_input(client);
}

// ---- coming and going ----

void remove_client(Client* client) {
    // From here on it is told nothing more, of its own objects' end in particular.
    drop(client);
    avl_delete(&clients, &client->by_id);
    remove_objects_of(client);
    uloop_timeout_cancel(&client->removal);
    close(client->sock.fd);
    free_output(client);
    free(client->input);
    free(client);
}

void removal_is_due(uloop_timeout* timeout) {
    remove_client(container_of(timeout, Client, removal));
}

bool identify(Client* client) {
    ucred peer = {};
    socklen_t size = sizeof(peer);
    if (getsockopt(client->sock.fd, SOL_SOCKET, SO_PEERCRED, &peer, &size) < 0) return false;
    client->is_root = peer.uid == 0;
    const passwd* user = getpwuid(peer.uid);
    const struct group* group = getgrgid(peer.gid);
    snprintf(client->user, sizeof(client->user), "%s", user ? user->pw_name : "");
    snprintf(client->group, sizeof(client->group), "%s", group ? group->gr_name : "");
    return true;
}

}  // namespace

Client* add_client(int fd) {
    auto* client = static_cast<Client*>(calloc(1, sizeof(Client)));
    if (!client) {
        close(fd);
        return nullptr;
    }
    INIT_LIST_HEAD(&client->objects);
    INIT_LIST_HEAD(&client->output);
    client->sock.fd = fd;
    client->sock.cb = handle_socket;
    client->removal.cb = removal_is_due;
    client->id = new_id(&clients);
    client->by_id.key = &client->id;
    avl_insert(&clients, &client->by_id);
    if (!identify(client) || uloop_fd_add(&client->sock, ULOOP_READ) < 0) {
        remove_client(client);
        return nullptr;
    }
    new_message();
    send(client, UBUS_MSG_HELLO, 0, client->id, message());
    return client;
}

void remove_all_clients() {
    while (!avl_is_empty(&clients)) {
        Client* client = nullptr;
        remove_client(avl_first_element(&clients, client, by_id));
    }
}

Client* find_client(uint32_t id) {
    Client* client = nullptr;
    client = avl_find_element(&clients, &id, client, by_id);
    return client && !is_dropped(client) ? client : nullptr;
}

bool is_dropped(const Client* client) {
    return client->removal.pending;
}

bool is_overloaded(const Client* client) {
    return client->queued > kMaxQueue;
}

void send(Client* to, uint8_t type, uint16_t seq, uint32_t peer, const blob_attr* body) {
    if (is_overloaded(to)) {
        drop(to);
        return;
    }
    send_part(to, type, seq, peer, body);
}

void send_part(Client* to, uint8_t type, uint16_t seq, uint32_t peer, const blob_attr* body) {
    if (is_dropped(to) || blob_raw_len(body) > kMaxBody) return;
    const WireHeader header = wire_header(type, seq, peer, body);
    if (!list_empty(&to->output)) {
        enqueue(to, header, body, 0);
        return;
    }
    const iovec vectors[] = {{const_cast<WireHeader*>(&header), sizeof(header)},
                             {blob_data(body), blob_len(body)}};
    const ssize_t sent = write_some(to, vectors, std::size(vectors));
    if (sent < 0) {
        drop(to);
    } else if (static_cast<size_t>(sent) < sizeof(header) + blob_len(body)) {
        enqueue(to, header, body, static_cast<size_t>(sent));
    }
}

}  // namespace ubus::broker
