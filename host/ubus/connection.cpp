// connection.cpp - the client's end of the socket: connecting, sending, and handing out what comes.
#include <poll.h>
#include <sys/socket.h>
#include <sys/uio.h>
#include <sys/un.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstdlib>
#include <iterator>

#include "internal.h"
#include "wire.h"

namespace ubus {
namespace {

// How long the broker may take in the middle of a message.
constexpr int kStallMilliseconds = 5000;

constexpr const char* kStatusTexts[__UBUS_STATUS_LAST] = {"Success",
                                                          "Invalid command",
                                                          "Invalid argument",
                                                          "Method not found",
                                                          "Not found",
                                                          "No response",
                                                          "Permission denied",
                                                          "Request timed out",
                                                          "Operation not supported",
                                                          "Unknown error",
                                                          "Connection failed",
                                                          "Out of memory",
                                                          "Parsing message data failed",
                                                          "System error"};

bool wait_for(int fd, short events, int milliseconds) {
    pollfd poll_fd = {fd, events, 0};
    int ready = 0;
    do {
        ready = poll(&poll_fd, 1, milliseconds);
    } while (ready < 0 && errno == EINTR);
    return ready > 0;
}

// What is left of the vectors after some bytes of them.
void advance(iovec* vectors, size_t count, size_t bytes) {
    for (size_t i = 0; i < count; i++) {
        const size_t part = std::min(bytes, vectors[i].iov_len);
        vectors[i].iov_base = static_cast<char*>(vectors[i].iov_base) + part;
        vectors[i].iov_len -= part;
        bytes -= part;
    }
}

bool send_all(int fd, iovec* vectors, size_t count) {
    msghdr message = {};
    message.msg_iov = vectors;
    message.msg_iovlen = static_cast<decltype(message.msg_iovlen)>(count);
    size_t left = 0;
    for (size_t i = 0; i < count; i++) {
        left += vectors[i].iov_len;
    }
    while (left > 0) {
        const ssize_t sent = sendmsg(fd, &message, MSG_NOSIGNAL | MSG_DONTWAIT);
        if (sent >= 0) {
            left -= static_cast<size_t>(sent);
            advance(vectors, count, static_cast<size_t>(sent));
        } else if (errno == EAGAIN) {
            if (!wait_for(fd, POLLOUT, kStallMilliseconds)) return false;
        } else if (errno != EINTR) {
            return false;
        }
    }
    return true;
}

enum class Received { kAll, kNothing, kBroken };

// kNothing: not a byte has come yet.
Received receive_all(int fd, void* buffer, size_t size) {
    size_t have = 0;
    while (have < size) {
        const ssize_t got = recv(fd, static_cast<char*>(buffer) + have, size - have, MSG_DONTWAIT);
        if (got > 0) {
            have += static_cast<size_t>(got);
        } else if (got < 0 && errno == EAGAIN) {
            if (have == 0) return Received::kNothing;
            if (!wait_for(fd, POLLIN, kStallMilliseconds)) return Received::kBroken;
        } else if (got == 0 || errno != EINTR) {
            return Received::kBroken;
        }
    }
    return Received::kAll;
}

// The buffer grows to the longest message, and goes back to a usual one's size with the next short
// one.
bool make_room(ubus_context* ctx, size_t size) {
    const size_t room = std::max<size_t>(size, UBUS_MSG_CHUNK_SIZE);
    if (ctx->msgbuf.data && ctx->msgbuf_data_len == room) return true;
    void* data = realloc(ctx->msgbuf.data, room);
    if (!data) return false;
    ctx->msgbuf.data = static_cast<blob_attr*>(data);
    ctx->msgbuf_data_len = static_cast<uint32_t>(room);
    return true;
}

// The next message, in the context's buffer.
Received receive_message(ubus_context* ctx, Message* message) {
    WireHeader header = {};
    const Received received = receive_all(ctx->sock.fd, &header, sizeof(header));
    if (received != Received::kAll) return received;

    const size_t size = body_size(header);
    if (size == 0 || !make_room(ctx, size)) return Received::kBroken;
    ctx->msgbuf.hdr = header.hdr;
    ctx->msgbuf.data->id_len = header.id_len;
    const size_t rest = size - sizeof(blob_attr);
    if (rest > 0) {
        Received body = Received::kNothing;
        while (body == Received::kNothing) {
            body = receive_all(ctx->sock.fd, ctx->msgbuf.data->data, rest);
            if (body == Received::kNothing && !wait_for(ctx->sock.fd, POLLIN, kStallMilliseconds))
                return Received::kBroken;
        }
        if (body == Received::kBroken) return body;
    }
    *message = {header.hdr.type, be16_to_cpu(header.hdr.seq), be32_to_cpu(header.hdr.peer),
                ctx->msgbuf.data};
    return Received::kAll;
}

// Takes the buffer out of the context while a message in it is handled, since a handler may wait
// for other messages.
class BufferInUse {
  public:
    explicit BufferInUse(ubus_context* ctx)
        : ctx_(ctx), data_(ctx->msgbuf.data), size_(ctx->msgbuf_data_len) {
        ctx->msgbuf.data = nullptr;
    }
    ~BufferInUse() {
        free(ctx_->msgbuf.data);
        ctx_->msgbuf.data = data_;
        ctx_->msgbuf_data_len = size_;
    }
    BufferInUse(const BufferInUse&) = delete;
    BufferInUse& operator=(const BufferInUse&) = delete;

  private:
    ubus_context* ctx_;
    blob_attr* data_;
    uint32_t size_;
};

void handle_message(ubus_context* ctx, const Message& message) {
    const BufferInUse buffer(ctx);
    switch (message.type) {
        case UBUS_MSG_STATUS:
            handle_status(ctx, message);
            break;
        case UBUS_MSG_DATA:
            handle_data(ctx, message);
            break;
        case UBUS_MSG_INVOKE:
        case UBUS_MSG_NOTIFY:
            handle_object_message(ctx, message);
            break;
        default:
            break;
    }
}

// The broker is gone, or does not speak the bus's language.
void lose_connection(ubus_context* ctx) {
    if (ctx->sock.eof) return;
    uloop_fd_delete(&ctx->sock);
    ctx->sock.eof = true;
    fail_requests(ctx);
    if (ctx->connection_lost) ctx->connection_lost(ctx);
}

void handle_event(uloop_fd* sock, unsigned int /*events*/) {
    ubus_context* ctx = container_of(sock, ubus_context, sock);
    // The loop's own sign of the end; what came before it is still to be read.
    sock->eof = false;
    // A message may have been handled by waiting for others: those are older than the next one. A
    // loop that has been told to end does, however many are still to come.
    do {
        handle_pending(ctx);
    } while (receive(ctx) && !uloop_cancelling());
}

void end_loop(ubus_context* /*ctx*/) {
    uloop_end();
}

int open_socket(const char* path) {
    sockaddr_un address;
    if (!socket_address(path, &address)) return -1;
    const int fd = socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0);
    if (fd < 0) return -1;
    if (connect(fd, reinterpret_cast<const sockaddr*>(&address), sizeof(address)) == 0) return fd;
    const int error = errno;
    close(fd);
    errno = error;
    return -1;
}

// The broker's first message says who we are.
bool receive_hello(ubus_context* ctx) {
    Message hello = {};
    if (!wait_for(ctx->sock.fd, POLLIN, kStallMilliseconds)) return false;
    if (receive_message(ctx, &hello) != Received::kAll || hello.type != UBUS_MSG_HELLO)
        return false;
    ctx->local_id = hello.peer;
    return true;
}

bool open_connection(ubus_context* ctx, const char* path) {
    ctx->sock.eof = false;
    ctx->sock.error = false;
    ctx->sock.fd = open_socket(path ? path : kSocketPath);
    if (ctx->sock.fd < 0) return false;
    if (receive_hello(ctx)) return true;
    close(ctx->sock.fd);
    ctx->sock.fd = -1;
    errno = EPROTO;
    return false;
}

void close_connection(ubus_context* ctx) {
    uloop_fd_delete(&ctx->sock);
    if (ctx->sock.fd >= 0) close(ctx->sock.fd);
    ctx->sock.fd = -1;
    ctx->sock.eof = true;
}

void pending_is_due(uloop_timeout* timeout) {
    handle_pending(container_of(timeout, ubus_context, pending_timer));
}

void release(ubus_context* ctx) {
    close_connection(ctx);
    uloop_timeout_cancel(&ctx->pending_timer);
    drop_pending(ctx);
    free(ctx->msgbuf.data);
    ctx->msgbuf.data = nullptr;
}

}  // namespace

bool send_message(ubus_context* ctx, uint8_t type, uint16_t seq, uint32_t peer,
                  const blob_attr* body) {
    if (ctx->sock.eof || blob_raw_len(body) > kMaxBody) return false;
    WireHeader header = wire_header(type, seq, peer, body);
    iovec vectors[] = {{&header, sizeof(header)}, {blob_data(body), blob_len(body)}};
    if (send_all(ctx->sock.fd, vectors, std::size(vectors))) return true;
    lose_connection(ctx);
    return false;
}

bool receive(ubus_context* ctx) {
    Message message = {};
    const Received received = receive_message(ctx, &message);
    if (received == Received::kBroken) lose_connection(ctx);
    if (received == Received::kAll) handle_message(ctx, message);
    return received == Received::kAll && !ctx->sock.eof;
}

}  // namespace ubus

ubus_context* ubus_connect(const char* path) {
    auto* ctx = static_cast<ubus_context*>(calloc(1, sizeof(ubus_context)));
    if (!ctx) return nullptr;
    if (ubus_connect_ctx(ctx, path) == 0) return ctx;
    free(ctx);
    return nullptr;
}

void ubus_free(ubus_context* ctx) {
    if (!ctx) return;
    ubus_shutdown(ctx);
    free(ctx);
}

int ubus_connect_ctx(ubus_context* ctx, const char* path) {
    *ctx = {};
    INIT_LIST_HEAD(&ctx->requests);
    INIT_LIST_HEAD(&ctx->pending);
    INIT_LIST_HEAD(&ctx->auto_subscribers);
    avl_init(&ctx->objects, ubus::compare_ids, false, nullptr);
    ctx->sock.fd = -1;
    ctx->sock.cb = ubus::handle_event;
    ctx->pending_timer.cb = ubus::pending_is_due;
    ctx->connection_lost = ubus::end_loop;
    if (ubus::open_connection(ctx, path)) return 0;
    const int error = errno;
    ubus::release(ctx);
    errno = error;
    return -1;
}

void ubus_shutdown(ubus_context* ctx) {
    if (ctx) ubus::release(ctx);
}

int ubus_reconnect(ubus_context* ctx, const char* path) {
    const bool watched = ctx->sock.registered;
    ubus::close_connection(ctx);
    ubus::drop_pending(ctx);
    if (!ubus::open_connection(ctx, path)) {
        ctx->sock.eof = true;
        return UBUS_STATUS_CONNECTION_FAILED;
    }
    if (watched) ubus_add_uloop(ctx);
    ubus::add_objects_again(ctx);
    return UBUS_STATUS_OK;
}

const char* ubus_strerror(int error) {
    if (error < 0 || error >= __UBUS_STATUS_LAST) return "Unknown error";
    return ubus::kStatusTexts[error];
}
