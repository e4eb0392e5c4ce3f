// netlink_wire.h - what this process sends to the kernel over netlink: recorded, and answered by a
// peer in the kernel's place, which can have families that the kernel has not.
#pragma once

#include <linux/netlink.h>
#include <sys/socket.h>

#include <cstdint>
#include <map>
#include <optional>
#include <string>
#include <thread>
#include <vector>

namespace tq_test::wire {

// What was given to one sendto() or sendmsg().
struct Sent {
    std::string bytes;
    std::string address;
    int flags;
    size_t vectors;  // 0 for sendto()
};

// Keeps all that is sent to the kernel's port, until its scope ends, from the kernel.
class Hold {
  public:
    Hold();
    ~Hold();
    Hold(const Hold&) = delete;
    Hold& operator=(const Hold&) = delete;

    // The next sendto() takes that many bytes, the ones after it again all of them.
    static void take_only(size_t bytes);

    static const std::vector<Sent>& sent();
};

// libnl resolves the next family to this id.
void resolve_next_as(int id);

// Plays the kernel for generic netlink: it answers questions about its families, and sends to their
// groups. While it is there, a new socket of NETLINK_GENERIC is one of NETLINK_USERSOCK, and what
// is sent to the kernel from it goes to the peer.
class Peer {
  public:
    using Groups = std::map<std::string, uint32_t>;

    Peer(std::string family, uint16_t id, Groups groups);
    ~Peer();
    Peer(const Peer&) = delete;
    Peer& operator=(const Peer&) = delete;

    void send_to_group(uint32_t group, const std::string& message) const;
    void send_to_port(uint32_t number, const std::string& message) const;

  private:
    void serve() const;
    void answer(const std::string& question, const sockaddr_nl& asker) const;

    std::string family_;
    uint16_t id_;
    Groups groups_;
    int socket_;
    std::thread thread_;
};

}  // namespace tq_test::wire
