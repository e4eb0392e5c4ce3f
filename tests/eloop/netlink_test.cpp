// netlink_test.cpp - the netlink channels, to the kernel's own families and to peers that lie.
#include "tq/netlink.h"

#include <fcntl.h>
#include <gmock/gmock.h>
#include <netlink/genl/ctrl.h>
#include <netlink/genl/genl.h>
#include <netlink/netlink.h>
#include <netlink/socket.h>

#include <algorithm>
#include <cerrno>
#include <chrono>
#include <climits>
#include <functional>
#include <string>
#include <thread>
#include <utility>
#include <vector>

#include "eloop/netlink_support.h"
#include "support/buffer.h"
#include "support/device.h"
#include "support/faults.h"
#include "support/log_capture.h"

namespace {

using namespace tq_test;  // NOLINT(google-build-using-namespace)
using testing::ElementsAre;
using testing::IsEmpty;

constexpr auto kHuge = static_cast<size_t>(INT_MAX) + 1;

// No call leaves a descriptor behind, and every line in the log is expected.
class Netlink : public DeviceTest {
  protected:
    Netlink() {
        // The log's own descriptor is there from the start.
        openlog(nullptr, LOG_NDELAY, LOG_USER);
        descriptors_ = open_descriptors();
    }
    void TearDown() override {
        EXPECT_THAT(log.take(), IsEmpty());
        EXPECT_EQ(open_descriptors(), descriptors_);
    }

    void expect_error(const std::string& function, const std::string& text) {
        EXPECT_THAT(log.take(), ElementsAre(Line(LOG_ERR, function, text)));
    }
    void expect_receive_error(const std::string& text) {
        EXPECT_THAT(log.take(), ElementsAre(Line(LOG_ERR, "genl_rcv_msg", text),
                                            Line(LOG_WARNING, "tq_genl_recv",
                                                 "tq_genl_recv:genl_rcv_msg error\n\n")));
    }

    LogCapture log;
    int family = 77;

  private:
    std::vector<int> descriptors_;
};

// Calls to a generic-netlink family of the kernel's: the one that every kernel has.
class Controller : public Netlink {
  protected:
    void SetUp() override {
        TQ_NEEDS_NETLINK(NETLINK_GENERIC);
        sock = tq_genl_connect(&family, "nlctrl");
        ASSERT_NE(sock, nullptr);
        EXPECT_THAT(log.take(), ElementsAre(Line(LOG_DEBUG, "tq_genl_connect",
                                                 "name=nlctrl, family_id=16\n\n")));
        EXPECT_EQ(family, GENL_ID_CTRL);
    }
    void TearDown() override {
        if (sock) tq_genl_disconnect(sock);
        Netlink::TearDown();
    }

    // Asks the controller about itself; attribute 1 of a question is a family's id.
    void ask() const {
        const uint16_t id = GENL_ID_CTRL;
        EXPECT_EQ(tq_genl_send(family, sock, CTRL_CMD_GETFAMILY, &id, sizeof(id)), 28);
    }

    nl_sock* sock = nullptr;
    Buffer payload{32};
    netlink_msg msg{77, 77, payload.data()};
};

// tq_genl_connect

TEST_F(Netlink, AnUnknownFamilyIsNotFound) {
    TQ_NEEDS_NETLINK(NETLINK_GENERIC);
    EXPECT_EQ(tq_genl_connect(&family, "nosuchfamily"), nullptr);
    EXPECT_EQ(family, -1);
    expect_error("tq_genl_connect", "not find family:nosuchfamily id:-12 \n\n");
}

TEST_F(Netlink, AFamilyNeedsAName) {
    EXPECT_EQ(tq_genl_connect(&family, ""), nullptr);
    EXPECT_EQ(family, -1);
    expect_error("tq_genl_connect", "invalid parameters\n");
    family = 77;
    EXPECT_EQ(tq_genl_connect(&family, nullptr), nullptr);
    EXPECT_EQ(family, -1);
    expect_error("tq_genl_connect", "invalid parameters\n");
    EXPECT_EQ(tq_genl_connect(nullptr, "nlctrl"), nullptr);
    expect_error("tq_genl_connect", "invalid parameters\n");
    EXPECT_EQ(fumac_genl_init(nullptr), nullptr);
    expect_error("fumac_genl_init", "invalid parameters\n");
}

TEST_F(Netlink, ConnectTellsOfMemoryThatRanOut) {
    TQ_NEEDS_FAILING_ALLOCATOR();
    const faults::Fail fail("calloc", 1, ENOMEM);
    EXPECT_EQ(tq_genl_connect(&family, "nlctrl"), nullptr);
    EXPECT_TRUE(fail.fired());
    EXPECT_EQ(family, -1);
    expect_error("tq_genl_connect", "failed to allocate netlink socket\n\n");
}

TEST_F(Netlink, FumacInitTellsOfMemoryThatRanOut) {
    TQ_NEEDS_FAILING_ALLOCATOR();
    const faults::Fail fail("calloc", 1, ENOMEM);
    EXPECT_EQ(fumac_genl_init(&family), nullptr);
    EXPECT_TRUE(fail.fired());
    EXPECT_EQ(family, 77);
    expect_error("fumac_genl_init", "failed to allocate genetlink socket\n");
}

// libnl's number for a socket that the kernel refuses.
std::string refusal() {
    const faults::Fail fail("socket", 1, EPROTONOSUPPORT);
    nl_sock* sock = nl_socket_alloc();
    const int error = genl_connect(sock);
    nl_socket_free(sock);
    EXPECT_LT(error, 0);
    return std::to_string(error);
}

TEST_F(Netlink, ConnectTellsOfAKernelThatRefuses) {
    const std::string number = refusal();
    const faults::Fail fail("socket", 1, EPROTONOSUPPORT);
    EXPECT_EQ(tq_genl_connect(&family, "nlctrl"), nullptr);
    EXPECT_EQ(family, -1);
    expect_error("tq_genl_connect", "failed to connect generic netlink: " + number + "\n\n");
}

TEST_F(Netlink, FumacInitTellsOfAKernelThatRefuses) {
    const std::string number = refusal();
    const faults::Fail fail("socket", 1, EPROTONOSUPPORT);
    EXPECT_EQ(fumac_genl_init(&family), nullptr);
    EXPECT_EQ(family, 77);
    expect_error("fumac_genl_init", "failed to connect genetlink: " + number + "\n");
}

TEST_F(Netlink, FumacInitNeedsTheDriver) {
    TQ_NEEDS_NETLINK(NETLINK_GENERIC);
    EXPECT_EQ(fumac_genl_init(&family), nullptr);
    EXPECT_EQ(family, 77);
    expect_error("fumac_genl_init", "con't find genetlink family fuMAC\n");
}

// tq_genl_disconnect

TEST_F(Netlink, DisconnectNeedsASocket) {
    EXPECT_EQ(tq_genl_disconnect(nullptr), -1);
    expect_error("tq_genl_disconnect", "invalid parameters\n");
    fumac_genl_deinit(nullptr);
}

// tq_genl_send and tq_genl_recv

TEST_F(Controller, AnswersAboutItself) {
    ask();
    EXPECT_EQ(tq_genl_recv(family, sock, &msg, 32), 7);
    EXPECT_EQ(msg.type, CTRL_CMD_NEWFAMILY);
    EXPECT_EQ(msg.len, 7);
    EXPECT_EQ(payload.all().substr(0, 8), std::string("nlctrl\0Z", 8));
}

TEST_F(Controller, CutsAPayloadThatIsLongerThanTheBuffer) {
    ask();
    EXPECT_EQ(tq_genl_recv(family, sock, &msg, 3), 3);
    EXPECT_EQ(msg.len, 3);
    EXPECT_EQ(payload.all().substr(0, 4), "nlcZ");
}

TEST_F(Controller, RefusesAMessageOfAnotherFamily) {
    ask();
    EXPECT_EQ(tq_genl_recv(99, sock, &msg, 32), -1);
    expect_receive_error("msg.nlh.nlmsg_type = 16, family_id = 99\n");
    EXPECT_EQ(msg.type, 77);
    EXPECT_EQ(msg.len, 77);
    EXPECT_TRUE(payload.untouched());
    // It is gone: the next answer is the next message.
    ask();
    EXPECT_EQ(tq_genl_recv(family, sock, &msg, 32), 7);
}

TEST_F(Controller, RefusesAnErrorMessage) {
    // Even where that is the family.
    for (const int expected : {family, NLMSG_ERROR}) {
        EXPECT_EQ(tq_genl_send(family, sock, 200, "x", 1), 28);
        EXPECT_EQ(tq_genl_recv(expected, sock, &msg, 32), -1);
        expect_receive_error(
            "msg.nlh.nlmsg_type = 2, NLMSG_ERROR = 2, NLMSG_OK((&msg.nlh), ret) = 1\n");
    }
}

TEST_F(Controller, DoesNotWaitOnANonBlockingSocket) {
    fcntl(nl_socket_get_fd(sock), F_SETFL, O_NONBLOCK);
    EXPECT_EQ(tq_genl_recv(family, sock, &msg, 32), -1);
    expect_receive_error("recv fail, ret = -1, errno = " + std::to_string(EAGAIN) +
                         ", err info:" + strerror(EAGAIN) + "\n");
}

TEST_F(Controller, SendsAgainWhereTheSocketWasFull) {
    faults::reset();
    const faults::Fail fail("sendto", 1, EAGAIN);
    ask();
    EXPECT_TRUE(fail.fired());
    EXPECT_EQ(faults::count("sendto"), 2U);
    EXPECT_EQ(tq_genl_recv(family, sock, &msg, 32), 7);
}

TEST_F(Controller, SendTellsOfAFailureByItsResultAlone) {
    const faults::Fail fail("sendto", 1, EINTR);
    EXPECT_EQ(tq_genl_send(family, sock, 1, "x", 1), -1);
}

TEST_F(Controller, RejectsAMissingArgument) {
    for (const auto& call : std::vector<std::function<int()>>{
             [&] { return tq_genl_send(family, nullptr, 1, "x", 1); },
             [&] { return tq_genl_send(family, sock, 1, nullptr, 1); },
             [&] { return tq_genl_send(family, sock, 1, "x", 0); },
             [&] { return tq_genl_send(family, sock, 1, "x", -1); }}) {
        EXPECT_EQ(call(), -1);
        expect_error("tq_genl_send", "tq_genl_send:arguments is null\n\n");
    }
    netlink_msg no_buffer{77, 77, nullptr};
    for (const auto& call : std::vector<std::function<int()>>{
             [&] { return tq_genl_recv(family, nullptr, &msg, 32); },
             [&] { return tq_genl_recv(family, sock, nullptr, 32); },
             [&] { return tq_genl_recv(family, sock, &no_buffer, 32); },
             [&] { return tq_genl_recv(family, sock, &msg, 0); }}) {
        EXPECT_EQ(call(), -1);
        expect_error("tq_genl_recv", "tq_genl_recv:arguments is null\n\n");
    }
}

TEST_F(Controller, RejectsALengthThatIsNone) {
    const std::string data(5000, 'x');
    EXPECT_EQ(tq_genl_send(family, sock, 1, data.data(), 4997), -1);
    expect_error("tq_genl_send", "invalid parameters, len = 4997\n");
    EXPECT_EQ(tq_genl_recv(family, sock, &msg, kHuge), -1);
    expect_receive_error("invalid parameters, len = -2147483648\n");
}

TEST_F(Controller, ConnectAndSendGreetsTheFamily) {
    int id = 77;
    nl_sock* const greeted = tq_genl_connect_and_send(&id, "nlctrl");
    ASSERT_NE(greeted, nullptr);
    EXPECT_EQ(id, GENL_ID_CTRL);
    EXPECT_EQ(log.take().size(), 1U);
    // The controller has no command 1 and sends the greeting back with its refusal.
    std::string refused(256, '\0');
    const ssize_t got = recv(nl_socket_get_fd(greeted), refused.data(), refused.size(), 0);
    ASSERT_EQ(got, 16 + 4 + 32);
    EXPECT_EQ(refused.substr(20, 8), netlink_header(32, 16, NLM_F_REQUEST).substr(0, 8));
    EXPECT_EQ(refused.substr(20 + 16, 1), "\1");
    EXPECT_EQ(refused.substr(20 + 20, 10), std::string("\x0b\0\1\0Hello\0", 10));
    EXPECT_EQ(tq_genl_disconnect(greeted), 0);
}

TEST_F(Netlink, ConnectAndSendTellsOfAConnectionThatFailed) {
    EXPECT_EQ(tq_genl_connect_and_send(&family, ""), nullptr);
    EXPECT_EQ(family, -1);
    EXPECT_THAT(log.take(), ElementsAre(Line(LOG_ERR, "tq_genl_connect", "invalid parameters\n"),
                                        Line(LOG_ERR, "tq_genl_connect_and_send",
                                             "tq_genl_connect error\n\n")));
}

TEST_F(Netlink, ConnectAndSendTellsOfAGreetingThatFailed) {
    TQ_NEEDS_NETLINK(NETLINK_GENERIC);
    const faults::Fail fail("sendto", 1, ENOBUFS);
    EXPECT_EQ(tq_genl_connect_and_send(&family, "nlctrl"), nullptr);
    EXPECT_THAT(log.take(),
                ElementsAre(Line(LOG_DEBUG, "tq_genl_connect", "name=nlctrl, family_id=16\n\n"),
                            Line(LOG_ERR, "tq_genl_connect_and_send", "tq_genl_send error\n\n")));
}

// What a peer sends, whatever that is: the socket is libnl's in number alone.
class Peer : public Netlink {
  protected:
    void SetUp() override {
        sock = nl_socket_alloc();
        ASSERT_NE(sock, nullptr);
        ASSERT_EQ(nl_connect(sock, NETLINK_ROUTE), 0);
        int ends[2];
        ASSERT_EQ(socketpair(AF_UNIX, SOCK_DGRAM | SOCK_CLOEXEC, 0, ends), 0);
        raw = nl_socket_get_fd(sock);
        ASSERT_EQ(dup2(ends[0], raw), raw);
        close(ends[0]);
        peer_ = ends[1];
    }
    void TearDown() override {
        close(peer_);
        nl_socket_free(sock);
        Netlink::TearDown();
    }

    // The result for a datagram that the peer sends.
    int genl(const std::string& datagram, size_t size = 6000) {
        deliver(datagram);
        return tq_genl_recv(28, sock, &msg, size);
    }

    // The result of a call that waits, until the peer sends a message in a moment.
    int waiting(const std::function<int()>& call, const std::string& datagram) {
        msg = {77, 77, payload.data()};
        std::thread sender([&] {
            std::this_thread::sleep_for(std::chrono::milliseconds(20));
            EXPECT_GT(send(peer_, datagram.data(), datagram.size(), 0), 0);
        });
        const int result = call();
        sender.join();
        return result;
    }

    int plain(const std::string& datagram, size_t size = 6000) {
        deliver(datagram);
        return tq_read_netlink(raw, &msg, size);
    }

    void expect_refused(const std::string& datagram, int type, int ok) {
        EXPECT_EQ(genl(datagram), -1);
        expect_receive_error(
            "msg.nlh.nlmsg_type = " + std::to_string(type) +
            ", NLMSG_ERROR = 2, NLMSG_OK((&msg.nlh), ret) = " + std::to_string(ok) + "\n");
        EXPECT_TRUE(payload.untouched());
        EXPECT_EQ(msg.type, 77);
    }

    nl_sock* sock = nullptr;
    int raw = -1;
    Buffer payload{6000};
    netlink_msg msg{};

  private:
    void deliver(const std::string& datagram) {
        payload = Buffer(6000);
        msg = {77, 77, payload.data()};
        EXPECT_EQ(send(peer_, datagram.data(), datagram.size(), 0),
                  static_cast<ssize_t>(datagram.size()));
    }

    int peer_ = -1;
};

// A message of family 28, command 9, whose attribute claims that length.
std::string claiming(uint16_t length, const std::string& behind) {
    std::string attributes;
    add(attributes, length);
    add(attributes, uint16_t{1});
    return genl_message(28, 9, attributes + behind);
}

TEST_F(Peer, SendsThePayloadOfTheFirstAttribute) {
    EXPECT_EQ(genl(genl_message(28, 9, attribute(7, "first") + attribute(1, "second"))), 5);
    EXPECT_EQ(msg.type, 9);
    EXPECT_EQ(msg.len, 5);
    EXPECT_EQ(payload.all().substr(0, 6), "firstZ");
}

TEST_F(Peer, AnAttributeShorterThanItsHeaderHasNoPayload) {
    for (const uint16_t length : std::initializer_list<uint16_t>{0, 1, 2, 3, 4}) {
        EXPECT_EQ(genl(claiming(length, "junk")), 0) << length;
        EXPECT_EQ(msg.type, 9);
        EXPECT_EQ(msg.len, 0);
        EXPECT_TRUE(payload.untouched());
    }
    EXPECT_EQ(genl(claiming(5, "junk")), 1);
    EXPECT_EQ(payload.all().substr(0, 2), "jZ");
}

TEST_F(Peer, AnAttributeBeyondTheEndGoesOnWithZeros) {
    for (const uint16_t length : std::initializer_list<uint16_t>{9, 13, 4096, 5000, 5001, 65535}) {
        const auto claimed = std::min<size_t>(length - 4U, TQ_GENL_PAYLOAD_MAX);
        EXPECT_EQ(genl(claiming(length, "junk")), static_cast<int>(claimed)) << length;
        EXPECT_EQ(msg.len, claimed);
        EXPECT_EQ(payload.all().substr(0, claimed), "junk" + std::string(claimed - 4, '\0'));
        EXPECT_EQ(payload.all()[claimed], kUntouched);
        EXPECT_EQ(genl(claiming(length, "junk"), 5), 5) << length;
        EXPECT_EQ(payload.all().substr(0, 6), std::string("junk\0Z", 6));
    }
}

// A sender that forgets the byte more in the length of the whole.
TEST_F(Peer, AnAttributeMayBeLongerThanItsMessage) {
    std::string datagram = claiming(4 + 7, "Hello");
    EXPECT_EQ(genl(datagram), 7);
    EXPECT_EQ(payload.all().substr(0, 8), std::string("Hello\0\0Z", 8));
    datagram = claiming(4 + 8, "junkmore");
    datagram[0] = 24 + 4;
    EXPECT_EQ(genl(datagram), 8);
    EXPECT_EQ(payload.all().substr(0, 9), "junkmoreZ");
}

TEST_F(Peer, AMessageWithoutAnAttributeHasNoPayload) {
    EXPECT_EQ(genl(genl_message(28, 9, "")), 0);
    EXPECT_EQ(msg.type, 9);
    EXPECT_EQ(msg.len, 0);
    EXPECT_TRUE(payload.untouched());
    // Cut in the attribute's header, behind a length of 11.
    EXPECT_EQ(genl(genl_message(28, 9, "\x0b")), 7);
    EXPECT_EQ(msg.type, 9);
    EXPECT_EQ(payload.all().substr(0, 8), std::string(7, '\0') + "Z");
}

TEST_F(Peer, ReceivingWaits) {
    EXPECT_EQ(waiting([&] { return tq_genl_recv(28, sock, &msg, 6000); },
                      genl_message(28, 9, attribute(1, "genl"))),
              4);
    EXPECT_EQ(waiting([&] { return tq_read_netlink(raw, &msg, 6000); },
                      netlink_header(16 + 5, 5) + "plain"),
              5);
}

TEST_F(Peer, AFamilyIsExpectedWithAllItsBits) {
    payload = Buffer(6000);
    EXPECT_EQ(waiting([&] { return tq_genl_recv(65536 + 28, sock, &msg, 6000); },
                      genl_message(28, 9, attribute(1, "payload"))),
              -1);
    expect_receive_error("msg.nlh.nlmsg_type = 28, family_id = 65564\n");
    EXPECT_TRUE(payload.untouched());
}

TEST_F(Peer, AMessageWithoutACommandIsCommandZero) {
    EXPECT_EQ(genl(netlink_header(16, 28)), 0);
    EXPECT_EQ(msg.type, 0);
    EXPECT_EQ(msg.len, 0);
}

TEST_F(Peer, AHeaderThatIsCutIsRefused) {
    const std::string message = genl_message(28, 9, attribute(1, "payload"));
    expect_refused(message.substr(0, 15), 28, 0);
    expect_refused(message.substr(0, 5), 28, 0);
    expect_refused(message.substr(0, 4), 0, 0);
    expect_refused(message.substr(0, 1), 0, 0);
    expect_refused("", 0, 0);
}

TEST_F(Peer, AHeaderThatLiesAboutTheLengthIsRefused) {
    for (const uint32_t length : {0U, 1U, 15U, 33U, 5021U, 0x80000000U, 0xffffffffU})
        expect_refused(netlink_header(length, 28) + std::string(16, 'x'), 28, 0);
    EXPECT_EQ(genl(netlink_header(32, 28) + std::string(16, 'x'), 8), 8);
    expect_refused(netlink_header(16, NLMSG_ERROR), NLMSG_ERROR, 1);
    expect_refused(netlink_header(15, NLMSG_ERROR), NLMSG_ERROR, 0);
}

TEST_F(Peer, TheLongestMessageIs5020Bytes) {
    const std::string longest = genl_message(28, 9, attribute(1, std::string(4996, 'p')));
    EXPECT_EQ(longest.size(), 5020U);
    EXPECT_EQ(genl(longest), 4996);
    EXPECT_EQ(msg.len, 4996);
    EXPECT_TRUE(payload.guard_holds());
    expect_refused(genl_message(28, 9, attribute(1, std::string(5000, 'p'))), 28, 0);
}

TEST_F(Peer, TheBufferTakesWhatItsSizeAllows) {
    const std::string message = genl_message(28, 9, attribute(1, "12345678"));
    EXPECT_EQ(genl(message, 8), 8);
    EXPECT_EQ(payload.all().substr(0, 9), "12345678Z");
    EXPECT_EQ(genl(message, 7), 7);
    EXPECT_EQ(payload.all().substr(0, 8), "1234567Z");
    EXPECT_EQ(msg.len, 7);
    EXPECT_EQ(genl(message, INT_MAX), 8);
}

// tq_open_netlink

sockaddr_nl local_address(int sock) {
    sockaddr_nl address{};
    socklen_t size = sizeof(address);
    EXPECT_EQ(getsockname(sock, reinterpret_cast<sockaddr*>(&address), &size), 0);
    return address;
}

int option(int sock, int name) {
    int value = -1;
    socklen_t size = sizeof(value);
    EXPECT_EQ(getsockopt(sock, SOL_SOCKET, name, &value, &size), 0);
    return value;
}

TEST_F(Netlink, OpensASocketInTheGroup) {
    // A protocol whose kernel side takes every group; qemu-user has it, too.
    TQ_NEEDS_NETLINK(NETLINK_ROUTE);
    for (const auto& [group, mask] : {std::pair(1, 1U), {2, 2U}, {3, 4U}, {32, 0x80000000U}}) {
        const int sock = tq_open_netlink(NETLINK_ROUTE, group);
        ASSERT_GE(sock, 0) << group;
        EXPECT_EQ(local_address(sock).nl_groups, mask);
        EXPECT_EQ(local_address(sock).nl_pid, static_cast<uint32_t>(getpid()));
        EXPECT_EQ(option(sock, SO_TYPE), SOCK_RAW);
        EXPECT_EQ(fcntl(sock, F_GETFD) & FD_CLOEXEC, FD_CLOEXEC);
        EXPECT_EQ(tq_close_netlink(sock), 0);
    }
}

TEST_F(Netlink, AsksForLargeBuffers) {
    TQ_NEEDS_NETLINK(NETLINK_ROUTE);
    int granted[2];
    const int asked = 614400;
    const int plain = socket(AF_NETLINK, SOCK_RAW | SOCK_CLOEXEC, NETLINK_ROUTE);
    for (const int name : {SO_RCVBUF, SO_SNDBUF})
        setsockopt(plain, SOL_SOCKET, name, &asked, sizeof(asked));
    granted[0] = option(plain, SO_RCVBUF);
    granted[1] = option(plain, SO_SNDBUF);
    close(plain);
    const int sock = tq_open_netlink(NETLINK_ROUTE, 1);
    EXPECT_EQ(option(sock, SO_RCVBUF), granted[0]);
    EXPECT_EQ(option(sock, SO_SNDBUF), granted[1]);
    EXPECT_EQ(tq_close_netlink(sock), 0);
}

TEST_F(Netlink, ThereAre32Groups) {
    for (const int group : {0, -1, 33, 64, INT_MIN, INT_MAX}) {
        EXPECT_EQ(tq_open_netlink(NETLINK_ROUTE, group), -1);
        expect_error("tq_open_netlink", "group error :" + std::to_string(group) + "\n\n");
    }
}

TEST_F(Netlink, AProtocolThatTheKernelDoesNotKnowIsRefused) {
    for (const int protocol : {-1, 31, 32, 1000}) {
        EXPECT_EQ(tq_open_netlink(protocol, 1), -1);
        expect_error("tq_open_netlink", "CREATE NETLINK SOCKET FAIL\n\n");
    }
}

TEST_F(Netlink, AProcessHasOneSocketAProtocol) {
    TQ_NEEDS_NETLINK(NETLINK_ROUTE);
    const int sock = tq_open_netlink(NETLINK_ROUTE, 1);
    ASSERT_GE(sock, 0);
    EXPECT_EQ(tq_open_netlink(NETLINK_ROUTE, 2), -1);
    expect_error("tq_open_netlink", "BIND NETLINK SOCKET FAIL\n\n");
    EXPECT_EQ(tq_close_netlink(sock), 0);
}

TEST_F(Netlink, CloseHasNothingToTell) {
    EXPECT_EQ(tq_close_netlink(-1), 0);
}

// tq_write_netlink, tq_read_netlink

TEST_F(Netlink, HearsWhatIsSentToTheGroup) {
    TQ_NEEDS_NETLINK(NETLINK_USERSOCK);
    const int sock = tq_open_netlink(NETLINK_USERSOCK, 3);
    ASSERT_GE(sock, 0);
    const int other = socket(AF_NETLINK, SOCK_RAW | SOCK_CLOEXEC, NETLINK_USERSOCK);
    const std::string message = netlink_header(16 + 5, 42) + "event";
    for (const uint32_t groups : {1U, 4U}) {
        const sockaddr_nl to = {
            .nl_family = AF_NETLINK, .nl_pad = 0, .nl_pid = 0, .nl_groups = groups};
        sendto(other, message.data(), message.size(), 0, reinterpret_cast<const sockaddr*>(&to),
               sizeof(to));
    }
    Buffer payload(16);
    netlink_msg msg{0, 0, payload.data()};
    EXPECT_EQ(tq_read_netlink(sock, &msg, 16), 5);
    EXPECT_EQ(msg.type, 42);
    EXPECT_EQ(msg.len, 5);
    EXPECT_EQ(payload.all().substr(0, 6), "eventZ");
    fcntl(sock, F_SETFL, O_NONBLOCK);
    EXPECT_EQ(tq_read_netlink(sock, &msg, 16), -1);
    expect_error("tq_read_netlink", "recvmsg fail\n\n");
    close(other);
    EXPECT_EQ(tq_close_netlink(sock), 0);
}

TEST_F(Netlink, WritesToTheKernel) {
#ifdef __mips__
    GTEST_SKIP() << "the emulator translates messages of this protocol, and knows none of type 0";
#endif
    const int sock = tq_open_netlink(NETLINK_ROUTE, 1);
    ASSERT_GE(sock, 0);
    // Type 0 is a message that the kernel takes and passes over.
    EXPECT_EQ(tq_write_netlink(sock, "payload", 7), 0);
    EXPECT_EQ(tq_write_netlink(sock, std::string(4984, 'p').data(), 4984), 0);
    EXPECT_EQ(tq_close_netlink(sock), 0);
}

TEST_F(Netlink, WriteTellsOfAKernelThatDoesNotTakeIt) {
    TQ_NEEDS_NETLINK(NETLINK_USERSOCK);
    const int sock = tq_open_netlink(NETLINK_USERSOCK, 1);
    // There is nobody at the kernel's port.
    EXPECT_EQ(tq_write_netlink(sock, "payload", 7), -1);
    expect_error("tq_write_netlink", "sendmsg fail\n");
    EXPECT_EQ(tq_close_netlink(sock), 0);
    EXPECT_EQ(tq_write_netlink(-1, "payload", 7), -1);
    expect_error("tq_write_netlink", "sendmsg fail\n");
}

TEST_F(Netlink, WriteRejectsAMissingArgument) {
    EXPECT_EQ(tq_write_netlink(0, nullptr, 7), -1);
    expect_error("tq_write_netlink", "tq_write_netlink:data is null or size <= 0\n\n");
    EXPECT_EQ(tq_write_netlink(0, "payload", 0), -1);
    expect_error("tq_write_netlink", "tq_write_netlink:data is null or size <= 0\n\n");
    EXPECT_EQ(tq_write_netlink(0, "payload", kHuge), -1);
    expect_error("tq_write_netlink", "tq_write_netlink:data is null or size <= 0\n\n");
    EXPECT_EQ(tq_write_netlink(0, std::string(4985, 'p').data(), 4985), -1);
    expect_error("tq_write_netlink", "invalid parameters, len = 4985\n");
}

TEST_F(Netlink, ReadRejectsAMissingArgument) {
    char byte = 'Z';
    netlink_msg msg{77, 77, &byte};
    netlink_msg no_buffer{77, 77, nullptr};
    for (const auto& call :
         std::vector<std::function<int()>>{[&] { return tq_read_netlink(0, nullptr, 1); },
                                           [&] { return tq_read_netlink(0, &no_buffer, 1); },
                                           [&] { return tq_read_netlink(0, &msg, 0); },
                                           [&] { return tq_read_netlink(0, &msg, kHuge); }}) {
        EXPECT_EQ(call(), -1);
        expect_error("tq_read_netlink", "tq_read_netlink:pmsg or data null  <= 0\n\n");
    }
}

TEST_F(Peer, SendsAPlainMessage) {
    EXPECT_EQ(plain(netlink_header(16 + 8, 1234) + "12345678"), 8);
    EXPECT_EQ(msg.type, 1234);
    EXPECT_EQ(msg.len, 8);
    EXPECT_EQ(payload.all().substr(0, 9), "12345678Z");
    EXPECT_EQ(plain(netlink_header(16 + 8, 1234) + "12345678", 5), 5);
    EXPECT_EQ(msg.len, 5);
    EXPECT_EQ(payload.all().substr(0, 6), "12345Z");
    EXPECT_EQ(plain(netlink_header(16 + 3, NLMSG_ERROR) + "12345678", INT_MAX), 3);
    EXPECT_EQ(msg.type, NLMSG_ERROR);
}

TEST_F(Peer, APlainMessageIsAsLongAsItsHeaderSays) {
    // The length less the header, modulo 65536.
    const std::vector<std::pair<uint32_t, size_t>> lengths = {
        {25, 9},      {116, 100}, {4999, 4983},       {5000, 4984},
        {5001, 4984}, {0, 4984},  {15, 4984},         {65551, 4984},
        {65552, 0},   {65554, 2}, {0x7fffffff, 4984}, {0xffffffff, 4984}};
    for (const auto& [length, expected] : lengths) {
        EXPECT_EQ(plain(netlink_header(length, 5) + "12345678"), static_cast<int>(expected))
            << length;
        EXPECT_EQ(msg.type, 5);
        EXPECT_EQ(msg.len, expected);
        const std::string zeros(expected > 8 ? expected - 8 : 0, '\0');
        EXPECT_EQ(payload.all().substr(0, expected),
                  std::string("12345678").substr(0, expected) + zeros);
        EXPECT_EQ(payload.all()[expected], kUntouched);
    }
    EXPECT_EQ(plain(netlink_header(15, 5) + "12345678", 10), 10);
    EXPECT_EQ(payload.all().substr(0, 11), std::string("12345678\0\0Z", 11));
}

TEST_F(Peer, APlainMessageThatIsCutGoesOnWithZeros) {
    const std::string message = netlink_header(16 + 8, 0x1234);
    for (const size_t size : {4U, 15U, 16U}) {
        EXPECT_EQ(plain(message.substr(0, size)), 8) << size;
        EXPECT_EQ(msg.type, size < 6 ? 0 : 0x1234);
        EXPECT_EQ(msg.len, 8);
        EXPECT_EQ(payload.all().substr(0, 8), std::string(8, '\0'));
        EXPECT_EQ(payload.all()[8], kUntouched);
    }
    // A length of 0 is less than the header.
    EXPECT_EQ(plain("", 8), 8);
    EXPECT_EQ(msg.type, 0);
}

TEST_F(Peer, APlainMessageThatCannotBeReceivedLeavesTheRecord) {
    const faults::Fail fail("recvmsg", 1, ENOBUFS);
    EXPECT_EQ(plain(netlink_header(16 + 8, 5) + "12345678"), -1);
    EXPECT_TRUE(fail.fired());
    expect_error("tq_read_netlink", "recvmsg fail\n\n");
    EXPECT_EQ(msg.type, 77);
    EXPECT_EQ(msg.len, 77);
    EXPECT_TRUE(payload.untouched());
}

TEST_F(Peer, TheLongestPlainMessageIs5000Bytes) {
    EXPECT_EQ(plain(netlink_header(6000, 5) + std::string(5984, 'p')), 4984);
    EXPECT_EQ(msg.len, 4984);
    EXPECT_EQ(payload.all().substr(0, 4984), std::string(4984, 'p'));
    EXPECT_EQ(payload.all()[4984], kUntouched);
}

// fumac_genl_*

TEST_F(Netlink, FumacNeedsItsArguments) {
    EXPECT_EQ(fumac_genl_multicast_id(nullptr, "mlme"), -1);
    expect_error("fumac_genl_multicast_id", "invalid parameters\n");
    EXPECT_EQ(fumac_genl_listen_mlme(nullptr), -1);
    expect_error("fumac_genl_listen", "invalid parameters\n");
    EXPECT_EQ(fumac_genl_listen_stainfo(nullptr), -1);
    expect_error("fumac_genl_listen", "invalid parameters\n");
}

TEST_F(Controller, WithoutTheDriverThereAreNoGroups) {
    EXPECT_EQ(fumac_genl_multicast_id(sock, nullptr), -1);
    expect_error("fumac_genl_multicast_id", "invalid parameters\n");
    EXPECT_EQ(fumac_genl_multicast_id(sock, "mlme"), -1);
    EXPECT_EQ(fumac_genl_listen_mlme(sock), -1);
    expect_error("fumac_genl_listen", "bind mcast group mlme fail: -1\n");
    EXPECT_EQ(fumac_genl_listen_stainfo(sock), -1);
    expect_error("fumac_genl_listen", "bind mcast group sta-info fail: -1\n");
}

}  // namespace
