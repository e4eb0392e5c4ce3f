#include "eloop/netlink_wire.h"

#include <dlfcn.h>
#include <linux/genetlink.h>

#include <atomic>
#include <cerrno>
#include <cstring>
#include <stdexcept>
#include <utility>

#include "eloop/netlink_support.h"

namespace tq_test::wire {
namespace {

constinit bool held = false;
constinit std::optional<size_t> next_takes;
constinit std::optional<int> next_resolved;
std::vector<Sent> kept;

// The peer's port, 0 where there is none.
constinit std::atomic<uint32_t> peer_port = 0;

bool is_for_kernel(const void* address, socklen_t size) {
    sockaddr_nl to{};
    if (!address || size != sizeof(to)) return false;
    memcpy(&to, address, sizeof(to));
    return to.nl_family == AF_NETLINK && to.nl_pid == 0 && to.nl_groups == 0;
}

sockaddr_nl port(uint32_t number) {
    return {.nl_family = AF_NETLINK, .nl_pad = 0, .nl_pid = number, .nl_groups = 0};
}

std::string bytes_of(const void* data, size_t size) {
    return {static_cast<const char*>(data), size};
}

std::string bytes_of(const msghdr& message) {
    std::string bytes;
    for (size_t i = 0; i < message.msg_iovlen; i++)
        bytes += bytes_of(message.msg_iov[i].iov_base, message.msg_iov[i].iov_len);
    return bytes;
}

void send_to(int sock, const std::string& message, const sockaddr_nl& to) {
    const auto* const address = reinterpret_cast<const sockaddr*>(&to);
    if (sendto(sock, message.data(), message.size(), 0, address, sizeof(to)) < 0)
        throw std::runtime_error(std::string("the peer cannot send: ") + strerror(errno));
}

// The first attribute's text.
std::string asked_for(const std::string& question) {
    return question.size() > 24 ? std::string(question.c_str() + 24) : "";
}

std::string end_of(uint16_t type, const nlmsghdr& question, int error) {
    std::string payload;
    add(payload, error);
    if (type == NLMSG_ERROR) add(payload, question);
    return netlink_header(static_cast<uint32_t>(16 + payload.size()), type, 0, question.nlmsg_seq,
                          question.nlmsg_pid) +
           payload;
}

// What a question about a family is answered with.
std::string description(const std::string& question, const std::string& family, uint16_t number,
                        const Peer::Groups& groups) {
    nlmsghdr header{};
    memcpy(&header, question.data(), sizeof(header));
    std::string id;
    add(id, number);
    std::string entries;
    uint16_t index = 0;
    for (const auto& [name, group] : groups) {
        std::string value;
        add(value, group);
        entries += attribute(++index, attribute(CTRL_ATTR_MCAST_GRP_ID, value) +
                                          attribute(CTRL_ATTR_MCAST_GRP_NAME, name + '\0'));
    }
    const uint16_t flags = header.nlmsg_flags & NLM_F_DUMP ? NLM_F_MULTI : 0;
    return genl_message(GENL_ID_CTRL, CTRL_CMD_NEWFAMILY,
                        attribute(CTRL_ATTR_FAMILY_NAME, family + '\0') +
                            attribute(CTRL_ATTR_FAMILY_ID, id) +
                            attribute(CTRL_ATTR_MCAST_GROUPS, entries),
                        header.nlmsg_seq, header.nlmsg_pid, flags);
}

}  // namespace

Hold::Hold() {
    kept.clear();
    next_takes.reset();
    held = true;
}

Hold::~Hold() {
    held = false;
}

void resolve_next_as(int id) {
    next_resolved = id;
}

void Hold::take_only(size_t bytes) {
    next_takes = bytes;
}

const std::vector<Sent>& Hold::sent() {
    return kept;
}

Peer::Peer(std::string family, uint16_t id, Groups groups)
    : family_(std::move(family)),
      id_(id),
      groups_(std::move(groups)),
      socket_(socket(AF_NETLINK, SOCK_RAW | SOCK_CLOEXEC, NETLINK_USERSOCK)) {
    // Away from the process id, which libnl takes for its first socket.
    const sockaddr_nl own = port(0x70000000U | static_cast<uint32_t>(getpid()));
    if (bind(socket_, reinterpret_cast<const sockaddr*>(&own), sizeof(own)) != 0)
        throw std::runtime_error("no NETLINK_USERSOCK");
    peer_port = own.nl_pid;
    thread_ = std::thread([this] { serve(); });
}

Peer::~Peer() {
    const sockaddr_nl own = port(peer_port);
    peer_port = 0;
    sendto(socket_, "end", 3, 0, reinterpret_cast<const sockaddr*>(&own), sizeof(own));
    thread_.join();
    close(socket_);
}

void Peer::send_to_group(uint32_t group, const std::string& message) const {
    sockaddr_nl to = port(0);
    to.nl_groups = 1U << (group - 1);
    // The kernel's own port gets every group's messages as well, and nobody is there.
    const auto* const address = reinterpret_cast<const sockaddr*>(&to);
    const ssize_t sent = sendto(socket_, message.data(), message.size(), 0, address, sizeof(to));
    if (sent < 0 && errno != ECONNREFUSED) throw std::runtime_error("the peer cannot send");
}

void Peer::send_to_port(uint32_t number, const std::string& message) const {
    send_to(socket_, message, port(number));
}

void Peer::serve() const {
    for (;;) {
        std::string question(8192, '\0');
        sockaddr_nl asker{};
        socklen_t size = sizeof(asker);
        const ssize_t got = recvfrom(socket_, question.data(), question.size(), 0,
                                     reinterpret_cast<sockaddr*>(&asker), &size);
        if (got < static_cast<ssize_t>(sizeof(nlmsghdr))) return;
        question.resize(static_cast<size_t>(got));
        answer(question, asker);
    }
}

// As the kernel does it: a list ends with its mark, an error or an acknowledgement ends the rest.
void Peer::answer(const std::string& question, const sockaddr_nl& asker) const {
    nlmsghdr header{};
    memcpy(&header, question.data(), sizeof(header));
    if (header.nlmsg_type != GENL_ID_CTRL) return;
    if (header.nlmsg_flags & NLM_F_DUMP) {
        send_to(socket_, description(question, "nlctrl", GENL_ID_CTRL, {}), asker);
        send_to(socket_, description(question, family_, id_, groups_), asker);
        return send_to(socket_, end_of(NLMSG_DONE, header, 0), asker);
    }
    if (asked_for(question) != family_)
        return send_to(socket_, end_of(NLMSG_ERROR, header, -ENOENT), asker);
    send_to(socket_, description(question, family_, id_, groups_), asker);
    if (header.nlmsg_flags & NLM_F_ACK) send_to(socket_, end_of(NLMSG_ERROR, header, 0), asker);
}

}  // namespace tq_test::wire

extern "C" int watched_resolve(nl_sock* sock, const char* family) asm("genl_ctrl_resolve");
extern "C" int watched_socket(int domain, int type, int protocol) asm("socket");
extern "C" ssize_t watched_sendto(int fd, const void* data, size_t size, int flags,
                                  const sockaddr* address, socklen_t length) asm("sendto");
extern "C" ssize_t watched_sendmsg(int fd, const msghdr* message, int flags) asm("sendmsg");

using namespace tq_test::wire;  // NOLINT(google-build-using-namespace)

int watched_resolve(nl_sock* sock, const char* family) {
    static const auto next =
        reinterpret_cast<int (*)(nl_sock*, const char*)>(dlsym(RTLD_NEXT, "genl_ctrl_resolve"));
    if (next_resolved) return *std::exchange(next_resolved, std::nullopt);
    return next(sock, family);
}

int watched_socket(int domain, int type, int protocol) {
    static const auto next = reinterpret_cast<int (*)(int, int, int)>(dlsym(RTLD_NEXT, "socket"));
    const bool is_peers = peer_port != 0 && domain == AF_NETLINK && protocol == NETLINK_GENERIC;
    return next(domain, type, is_peers ? NETLINK_USERSOCK : protocol);
}

ssize_t watched_sendto(int fd, const void* data, size_t size, int flags, const sockaddr* address,
                       socklen_t length) {
    static const auto next =
        reinterpret_cast<ssize_t (*)(int, const void*, size_t, int, const sockaddr*, socklen_t)>(
            dlsym(RTLD_NEXT, "sendto"));
    if (!is_for_kernel(address, length)) return next(fd, data, size, flags, address, length);
    if (held) {
        kept.push_back({bytes_of(data, size), bytes_of(address, length), flags, 0});
        return static_cast<ssize_t>(std::exchange(next_takes, std::nullopt).value_or(size));
    }
    const sockaddr_nl to = port(peer_port);
    return next(fd, data, size, flags, reinterpret_cast<const sockaddr*>(&to), sizeof(to));
}

ssize_t watched_sendmsg(int fd, const msghdr* message, int flags) {
    static const auto next =
        reinterpret_cast<ssize_t (*)(int, const msghdr*, int)>(dlsym(RTLD_NEXT, "sendmsg"));
    if (!is_for_kernel(message->msg_name, message->msg_namelen)) return next(fd, message, flags);
    if (held) {
        kept.push_back({bytes_of(*message), bytes_of(message->msg_name, message->msg_namelen),
                        flags, message->msg_iovlen});
        return static_cast<ssize_t>(kept.back().bytes.size());
    }
    sockaddr_nl to = port(peer_port);
    msghdr redirected = *message;
    redirected.msg_name = &to;
    return next(fd, &redirected, flags);
}
