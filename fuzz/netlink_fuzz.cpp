// netlink_fuzz.cpp - both receive paths, for any datagram and for buffers of several sizes.
#include <netlink/netlink.h>
#include <netlink/socket.h>
#include <sys/socket.h>
#include <syslog.h>
#include <tq/netlink.h>
#include <unistd.h>

#include <algorithm>
#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <vector>

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size);

namespace {

constexpr size_t kGenlPayloadAt = 24;
constexpr size_t kPayloadAt = 16;
constexpr unsigned char kGuard = 0x5a;

void expect(bool holds) {
    if (!holds) abort();
}

// A libnl socket in number alone: what it receives is what is sent to its peer.
class Channel {
  public:
    Channel() : sock_(nl_socket_alloc()) {
        setlogmask(LOG_MASK(LOG_EMERG));
        int ends[2] = {-1, -1};
        expect(sock_ && nl_connect(sock_, NETLINK_ROUTE) == 0);
        expect(socketpair(AF_UNIX, SOCK_DGRAM | SOCK_CLOEXEC, 0, ends) == 0);
        expect(dup2(ends[0], fd()) == fd());
        close(ends[0]);
        peer_ = ends[1];
    }

    [[nodiscard]] nl_sock* sock() const { return sock_; }
    [[nodiscard]] int fd() const { return nl_socket_get_fd(sock_); }
    void send(const uint8_t* data, size_t size) const {
        expect(::send(peer_, data, size, 0) == static_cast<ssize_t>(size));
    }

  private:
    nl_sock* sock_;
    int peer_ = -1;
};

// Only bytes of the datagram and zeros behind them are delivered, and only into the buffer.
void check(int result, const netlink_msg& msg, const std::vector<unsigned char>& buffer,
           size_t room, const uint8_t* payload, size_t payload_size) {
    expect(result <= static_cast<int>(room));
    if (result >= 0) expect(msg.len == result);
    const auto count = static_cast<size_t>(std::max(result, 0));
    const auto end = buffer.begin() + static_cast<ptrdiff_t>(count);
    const auto end_of_bytes =
        buffer.begin() + static_cast<ptrdiff_t>(std::min(count, payload_size));
    expect(std::equal(buffer.begin(), end_of_bytes, payload));
    expect(std::all_of(end_of_bytes, end, [](unsigned char byte) { return byte == 0; }));
    expect(std::all_of(end, buffer.end(), [](unsigned char byte) { return byte == kGuard; }));
}

void receive(const Channel& channel, const uint8_t* data, size_t size, size_t room) {
    uint16_t type = 0;
    // What a short datagram lacks reads as zeros.
    if (size > 4) memcpy(&type, &data[4], std::min(size - 4, sizeof(type)));
    std::vector<unsigned char> buffer(room + 16, kGuard);
    netlink_msg msg{0, 0, buffer.data()};
    channel.send(data, size);
    const int genl = tq_genl_recv(type, channel.sock(), &msg, room);
    const size_t genl_payload = std::max(size, kGenlPayloadAt) - kGenlPayloadAt;
    check(genl, msg, buffer, room, data + (size - genl_payload), genl_payload);
    std::fill(buffer.begin(), buffer.end(), kGuard);
    channel.send(data, size);
    const int plain = tq_read_netlink(channel.fd(), &msg, room);
    const size_t payload = std::max(size, kPayloadAt) - kPayloadAt;
    expect(plain >= 0 && msg.type == type);
    check(plain, msg, buffer, room, data + (size - payload), payload);
}

}  // namespace

int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    static const Channel channel;
    for (const size_t room : {1U, 7U, 5000U})
        receive(channel, data, size, room);
    return 0;
}
