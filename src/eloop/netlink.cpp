#include "tq/netlink.h"

#include <linux/genetlink.h>
#include <linux/netlink.h>
#include <netlink/genl/ctrl.h>
#include <netlink/genl/genl.h>
#include <netlink/netlink.h>
#include <sys/socket.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstddef>
#include <cstring>
#include <memory>
#include <span>

#include "foundation/file.h"
#include "foundation/guard.h"
#include "foundation/log.h"

// Of C alone: it does not say so itself.
extern "C" {
#include <unl.h>
}

namespace {

using tq::is_size;
using tq::UniqueFd;

// A message of one attribute. What may be received ends before the room for the byte more that the
// attribute's length counts, and for the padding.
struct GenlMessage {
    nlmsghdr header;                    //  0
    genlmsghdr command;                 // 16
    nlattr attribute;                   // 20
    char payload[TQ_GENL_PAYLOAD_MAX];  // 24
    char padding[4];
};
constexpr size_t kAttributeAt = offsetof(GenlMessage, attribute);
constexpr size_t kPayloadAt = offsetof(GenlMessage, payload);
constexpr size_t kGenlReceiveSize = offsetof(GenlMessage, padding);
static_assert(offsetof(GenlMessage, command) == 16 && kAttributeAt == 20 && kPayloadAt == 24);
static_assert(kGenlReceiveSize == 5020 && sizeof(GenlMessage) == 5024);

struct RawMessage {
    nlmsghdr header;                       // 0
    char payload[TQ_NETLINK_PAYLOAD_MAX];  // 16
};
static_assert(offsetof(RawMessage, payload) == NLMSG_HDRLEN && sizeof(RawMessage) == 5000);

constexpr uint16_t kAttributeType = 1;
constexpr unsigned char kHello = 1;
constexpr int kBufferSize = 600 * 1024;
constexpr int kMaxGroup = 32;

constexpr sockaddr_nl kKernel = {.nl_family = AF_NETLINK, .nl_pad = 0, .nl_pid = 0, .nl_groups = 0};
static_assert(sizeof(kKernel) == 12);

const sockaddr* as_sockaddr(const sockaddr_nl& address) {
    return reinterpret_cast<const sockaddr*>(&address);
}

struct FreeSocket {
    void operator()(nl_sock* sock) const { nl_socket_free(sock); }
};
using UniqueSocket = std::unique_ptr<nl_sock, FreeSocket>;

constexpr char kFumac[] = "fuMAC";

// Logs in the words that the function's callers know.
nl_sock* connect(const char* function, bool to_fumac, const char* family_name, int* family_id) {
    UniqueSocket sock(nl_socket_alloc());
    if (!sock) {
        TQ_FAIL_IN(function, to_fumac ? "failed to allocate genetlink socket\n"
                                      : "failed to allocate netlink socket\n\n");
        return nullptr;
    }
    const int error = genl_connect(sock.get());
    if (error < 0) {
        TQ_FAIL_IN(function,
                   to_fumac ? "failed to connect genetlink: %d\n"
                            : "failed to connect generic netlink: %d\n\n",
                   error);
        return nullptr;
    }
    const int id = genl_ctrl_resolve(sock.get(), family_name);
    if (id <= 0) {
        TQ_FAIL_IN(function,
                   to_fumac ? "con't find genetlink family %s\n" : "not find family:%s id:%d \n\n",
                   family_name, id);
        return nullptr;
    }
    *family_id = id;
    return sock.release();
}

// An operation of libnl-tiny's on a group of the family "fuMAC".
int on_group(int (*operation)(unl*, const char*), nl_sock* sock, const char* group) {
    unl fumac = {};
    fumac.sock = sock;
    fumac.family_name = const_cast<char*>(kFumac);  // which it does not change
    fumac.hdrlen = GENL_HDRLEN;
    return operation(&fumac, group);
}

nlmsghdr request_header(size_t length, int type) {
    return {.nlmsg_len = static_cast<uint32_t>(length),
            .nlmsg_type = static_cast<uint16_t>(type),
            .nlmsg_flags = NLM_F_REQUEST,
            .nlmsg_seq = 0,
            .nlmsg_pid = static_cast<uint32_t>(getpid())};
}

msghdr message_of(iovec& vector) {
    msghdr message = {};
    message.msg_iov = &vector;
    message.msg_iovlen = 1;
    return message;
}

// The bytes sent last, or -1.
int send_whole(int fd, std::span<const char> bytes) {
    for (;;) {
        const ssize_t sent =
            sendto(fd, bytes.data(), bytes.size(), 0, as_sockaddr(kKernel), sizeof(kKernel));
        if (sent < 0 && errno == EAGAIN) continue;
        if (sent <= 0) return -1;
        const auto count = static_cast<size_t>(sent);
        if (count >= bytes.size()) return static_cast<int>(sent);
        bytes = bytes.subspan(count);
    }
}

bool is_whole(const nlmsghdr& header, size_t received) {
    return header.nlmsg_len >= sizeof(header) && header.nlmsg_len <= received;
}

// What the first attribute says that it carries, as far as there is room for it.
size_t payload_size(const GenlMessage& message) {
    const size_t claimed = std::max<size_t>(message.attribute.nla_len, NLA_HDRLEN) - NLA_HDRLEN;
    return std::min(claimed, sizeof(message.payload));
}

int genl_rcv_msg(int family_id, int fd, netlink_msg& msg, size_t size) {
    if (!is_size(size)) {
        return TQ_FAIL("invalid parameters, len = %d\n", static_cast<int>(size));
    }
    GenlMessage message = {};
    const ssize_t got = recv(fd, &message, kGenlReceiveSize, 0);
    if (got < 0) {
        return TQ_FAIL("recv fail, ret = %d, errno = %d, err info:%s\n", static_cast<int>(got),
                       errno, strerror(errno));
    }
    const int type = message.header.nlmsg_type;
    const bool whole = is_whole(message.header, static_cast<size_t>(got));
    if (type == NLMSG_ERROR || !whole) {
        return TQ_FAIL(
            "msg.nlh.nlmsg_type = %d, NLMSG_ERROR = %d, NLMSG_OK((&msg.nlh), ret) = %d\n", type,
            NLMSG_ERROR, whole);
    }
    if (type != family_id) {
        return TQ_FAIL("msg.nlh.nlmsg_type = %d, family_id = %d\n", type, family_id);
    }
    const size_t count = std::min(payload_size(message), size);
    memcpy(msg.data, message.payload, count);
    msg.type = message.command.cmd;
    msg.len = static_cast<uint16_t>(count);
    return static_cast<int>(count);
}

int fumac_genl_listen(nl_sock* sock, const char* group) {
    if (!sock) return tq::reject(__func__);
    const int result = on_group(unl_genl_subscribe, sock, group);
    if (result < 0) TQ_LOG(LOG_ERR, "bind mcast group %s fail: %d\n", group, result);
    return result;
}

}  // namespace

nl_sock* tq_genl_connect(int* family_id, const char* family_name) {
    if (family_id) *family_id = -1;
    if (!family_id || !family_name || !*family_name) {
        tq::reject(__func__);
        return nullptr;
    }
    nl_sock* sock = connect(__func__, false, family_name, family_id);
    if (sock) TQ_LOG(LOG_DEBUG, "name=%s, family_id=%d\n\n", family_name, *family_id);
    return sock;
}

int tq_genl_disconnect(nl_sock* sock) {
    if (!sock) return tq::reject(__func__);
    nl_socket_free(sock);
    return 0;
}

int tq_genl_send(int family_id, nl_sock* sock, unsigned char cmd, const void* data, int len) {
    if (!sock || !data || len <= 0) return TQ_FAIL("%s:arguments is null\n\n", __func__);
    if (len > TQ_GENL_PAYLOAD_MAX) return TQ_FAIL("invalid parameters, len = %d\n", len);
    const auto size = static_cast<size_t>(len);
    GenlMessage message = {};
    // Receivers count on the byte that is one too many.
    message.attribute.nla_len = static_cast<uint16_t>(NLA_HDRLEN + size + 1);
    message.attribute.nla_type = kAttributeType;
    message.command.cmd = cmd;
    message.header = request_header(kAttributeAt + NLA_ALIGN(message.attribute.nla_len), family_id);
    memcpy(message.payload, data, size);
    return send_whole(nl_socket_get_fd(sock),
                      {reinterpret_cast<const char*>(&message), message.header.nlmsg_len});
}

int tq_genl_recv(int family_id, nl_sock* sock, netlink_msg* msg, size_t size) {
    if (!sock || !msg || !msg->data || size == 0) {
        return TQ_FAIL("%s:arguments is null\n\n", __func__);
    }
    const int count = genl_rcv_msg(family_id, nl_socket_get_fd(sock), *msg, size);
    if (count < 0) TQ_LOG(LOG_WARNING, "%s:genl_rcv_msg error\n\n", __func__);
    return count;
}

nl_sock* tq_genl_connect_and_send(int* family_id, const char* family_name) {
    UniqueSocket sock(tq_genl_connect(family_id, family_name));
    if (!sock) {
        TQ_LOG(LOG_ERR, "tq_genl_connect error\n\n");
        return nullptr;
    }
    if (tq_genl_send(*family_id, sock.get(), kHello, "Hello", sizeof("Hello")) < 0) {
        TQ_LOG(LOG_ERR, "tq_genl_send error\n\n");
        return nullptr;
    }
    return sock.release();
}

int tq_open_netlink(int protocol, int group) {
    if (group < 1 || group > kMaxGroup) return TQ_FAIL("group error :%d\n\n", group);
    UniqueFd sock(socket(AF_NETLINK, SOCK_RAW | SOCK_CLOEXEC, protocol));
    if (!sock) return TQ_FAIL("CREATE NETLINK SOCKET FAIL\n\n");
    (void)setsockopt(sock.get(), SOL_SOCKET, SO_RCVBUF, &kBufferSize, sizeof(kBufferSize));
    (void)setsockopt(sock.get(), SOL_SOCKET, SO_SNDBUF, &kBufferSize, sizeof(kBufferSize));
    const sockaddr_nl local = {.nl_family = AF_NETLINK,
                               .nl_pad = 0,
                               .nl_pid = static_cast<uint32_t>(getpid()),
                               .nl_groups = 1U << (group - 1)};
    if (bind(sock.get(), as_sockaddr(local), sizeof(local)) < 0) {
        return TQ_FAIL("BIND NETLINK SOCKET FAIL\n\n");
    }
    return sock.release();
}

int tq_write_netlink(int sock, const void* data, size_t size) {
    if (!data || !is_size(size)) return TQ_FAIL("%s:data is null or size <= 0\n\n", __func__);
    if (size > TQ_NETLINK_PAYLOAD_MAX) {
        return TQ_FAIL("invalid parameters, len = %d\n", static_cast<int>(size));
    }
    RawMessage message;
    message.header = request_header(NLMSG_HDRLEN + size, 0);
    memcpy(message.payload, data, size);
    iovec vector = {.iov_base = &message, .iov_len = message.header.nlmsg_len};
    sockaddr_nl kernel = kKernel;
    msghdr request = message_of(vector);
    request.msg_name = &kernel;
    request.msg_namelen = sizeof(kernel);
    return sendmsg(sock, &request, 0) < 0 ? TQ_FAIL("sendmsg fail\n") : 0;
}

int tq_read_netlink(int sock, netlink_msg* msg, size_t size) {
    if (!msg || !msg->data || !is_size(size)) {
        return TQ_FAIL("%s:pmsg or data null  <= 0\n\n", __func__);
    }
    RawMessage message = {};
    iovec vector = {.iov_base = &message, .iov_len = sizeof(message)};
    msghdr received = message_of(vector);
    if (recvmsg(sock, &received, 0) < 0) return TQ_FAIL("recvmsg fail\n\n");
    const auto claimed = static_cast<uint16_t>(message.header.nlmsg_len - NLMSG_HDRLEN);
    const size_t count = std::min({size_t{claimed}, sizeof(message.payload), size});
    memcpy(msg->data, message.payload, count);
    msg->type = message.header.nlmsg_type;
    msg->len = static_cast<uint16_t>(count);
    return static_cast<int>(count);
}

int tq_close_netlink(int sock) {
    close(sock);
    return 0;
}

nl_sock* fumac_genl_init(int* family_id) {
    if (!family_id) {
        tq::reject(__func__);
        return nullptr;
    }
    nl_sock* sock = connect(__func__, true, kFumac, family_id);
    if (sock) {
        TQ_LOG(LOG_INFO, "genetlink bind pid %d to family id %d\n",
               static_cast<int>(nl_socket_get_local_port(sock)), *family_id);
    }
    return sock;
}

void fumac_genl_deinit(nl_sock* sock) {
    if (sock) nl_socket_free(sock);
}

int fumac_genl_multicast_id(nl_sock* sock, const char* group) {
    if (!sock || !group) return tq::reject(__func__);
    return on_group(unl_genl_multicast_id, sock, group);
}

int fumac_genl_listen_mlme(nl_sock* sock) {
    return fumac_genl_listen(sock, "mlme");
}

int fumac_genl_listen_stainfo(nl_sock* sock) {
    return fumac_genl_listen(sock, "sta-info");
}
