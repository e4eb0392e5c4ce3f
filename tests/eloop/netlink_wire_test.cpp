// netlink_wire_test.cpp - what the netlink channels send, byte for byte, and the Wi-Fi driver's
// family, which the test plays.
#include "eloop/netlink_wire.h"

#include <fcntl.h>
#include <gmock/gmock.h>
#include <netlink/netlink.h>
#include <netlink/socket.h>
#include <tq/netlink.h>

#include <memory>
#include <string>
#include <vector>

#include "eloop/netlink_support.h"
#include "support/buffer.h"
#include "support/device.h"
#include "support/log_capture.h"

namespace {

using namespace tq_test;  // NOLINT(google-build-using-namespace)
using testing::ElementsAre;
using testing::IsEmpty;

const std::string kKernelAddress("\x10\0\0\0\0\0\0\0\0\0\0\0", 12);

std::string own_pid() {
    std::string bytes;
    add(bytes, static_cast<uint32_t>(getpid()));
    return bytes;
}

// A libnl socket that is connected to something.
class Wire : public DeviceTest {
  protected:
    void SetUp() override {
        sock = nl_socket_alloc();
        ASSERT_EQ(nl_connect(sock, NETLINK_ROUTE), 0);
    }
    void TearDown() override {
        nl_socket_free(sock);
        EXPECT_THAT(log.take(), IsEmpty());
    }

    LogCapture log;
    nl_sock* sock = nullptr;
    wire::Hold hold;
};

TEST_F(Wire, SixBytesOfPayloadMakeA32ByteMessage) {
    EXPECT_EQ(tq_genl_send(0x1234, sock, 9, "abcdef", 6), 32);
    ASSERT_EQ(wire::Hold::sent().size(), 1U);
    EXPECT_EQ(wire::Hold::sent()[0].bytes, std::string("\x20\0\0\0"  // length
                                                       "\x34\x12"    // family
                                                       "\1\0"        // a request
                                                       "\0\0\0\0",   // sequence
                                                       12) +
                                               own_pid() +
                                               std::string("\x09\0\0\0"  // command, version
                                                           "\x0b\0\1\0"  // attribute: length, type
                                                           "abcdef\0\0",
                                                           16));
    EXPECT_EQ(wire::Hold::sent()[0].address, kKernelAddress);
    EXPECT_EQ(wire::Hold::sent()[0].flags, 0);
}

TEST_F(Wire, TheAttributeCountsAByteMoreThanThePayload) {
    const std::string payload(TQ_GENL_PAYLOAD_MAX, 'p');
    for (const size_t size : {1U, 2U, 3U, 4U, 5U, 7U, 8U, 4991U, 4992U, 4995U, 4996U}) {
        const size_t total = 20 + (size + 5 + 3) / 4 * 4;
        EXPECT_EQ(tq_genl_send(28, sock, 1, payload.data(), static_cast<int>(size)),
                  static_cast<int>(total));
        const std::string bytes = wire::Hold::sent().back().bytes;
        std::string lengths;
        add(lengths, static_cast<uint32_t>(total));
        add(lengths, static_cast<uint16_t>(size + 5));
        EXPECT_EQ(bytes.substr(0, 4) + bytes.substr(20, 2), lengths);
        EXPECT_EQ(bytes.substr(24), payload.substr(0, size) + std::string(total - 24 - size, '\0'));
    }
}

TEST_F(Wire, AFamilyHasSixteenBitsAndACommandEight) {
    tq_genl_send(0x12345, sock, 255, "x", 1);
    EXPECT_EQ(wire::Hold::sent()[0].bytes.substr(4, 2), "\x45\x23");
    EXPECT_EQ(wire::Hold::sent()[0].bytes.substr(16, 1), "\xff");
}

TEST_F(Wire, AShortSendIsContinued) {
    wire::Hold::take_only(30);
    EXPECT_EQ(tq_genl_send(28, sock, 9, "abcdef", 6), 2);
    ASSERT_EQ(wire::Hold::sent().size(), 2U);
    EXPECT_EQ(wire::Hold::sent()[1].bytes, wire::Hold::sent()[0].bytes.substr(30));
    EXPECT_EQ(wire::Hold::sent()[1].address, kKernelAddress);
}

TEST_F(Wire, ASendThatTakesNothingIsNotRepeated) {
    wire::Hold::take_only(0);
    EXPECT_EQ(tq_genl_send(28, sock, 9, "abcdef", 6), -1);
    EXPECT_EQ(wire::Hold::sent().size(), 1U);
}

TEST_F(Wire, APlainMessageIsAHeaderAndThePayload) {
    EXPECT_EQ(tq_write_netlink(nl_socket_get_fd(sock), "payload", 7), 0);
    ASSERT_EQ(wire::Hold::sent().size(), 1U);
    EXPECT_EQ(wire::Hold::sent()[0].bytes, std::string("\x17\0\0\0"  // length
                                                       "\0\0"        // type
                                                       "\1\0"        // a request
                                                       "\0\0\0\0",   // sequence
                                                       12) +
                                               own_pid() + "payload");
    EXPECT_EQ(wire::Hold::sent()[0].address, kKernelAddress);
    EXPECT_EQ(wire::Hold::sent()[0].flags, 0);
    EXPECT_EQ(wire::Hold::sent()[0].vectors, 1U);
    const std::string longest(TQ_NETLINK_PAYLOAD_MAX, 'p');
    EXPECT_EQ(tq_write_netlink(nl_socket_get_fd(sock), longest.data(), longest.size()), 0);
    EXPECT_EQ(wire::Hold::sent()[1].bytes.substr(0, 4), std::string("\x88\x13\0\0", 4));
    EXPECT_EQ(wire::Hold::sent()[1].bytes.substr(16), longest);
}

// The Wi-Fi driver's family, with the numbers that a driver could get.
class Fumac : public DeviceTest {
  protected:
    void SetUp() override {
        TQ_NEEDS_NETLINK(NETLINK_USERSOCK);
        driver = std::make_unique<wire::Peer>("fuMAC", 29,
                                              wire::Peer::Groups{{"mlme", 5}, {"sta-info", 32}});
        sock = fumac_genl_init(&family);
        ASSERT_NE(sock, nullptr);
        const std::string port = std::to_string(static_cast<int>(nl_socket_get_local_port(sock)));
        EXPECT_THAT(log.take(),
                    ElementsAre(Line(LOG_INFO, "fumac_genl_init",
                                     "genetlink bind pid " + port + " to family id 29\n")));
    }
    void TearDown() override {
        fumac_genl_deinit(sock);
        EXPECT_THAT(log.take(), IsEmpty());
    }

    uint32_t groups() const {
        uint32_t mask = 0;
        socklen_t size = sizeof(mask);
        EXPECT_EQ(
            getsockopt(nl_socket_get_fd(sock), SOL_NETLINK, NETLINK_LIST_MEMBERSHIPS, &mask, &size),
            0);
        return mask;
    }

    void expect_to_hear(uint32_t group, uint32_t not_this) {
        EXPECT_EQ(groups(), 1U << (group - 1));
        driver->send_to_group(not_this, genl_message(29, 2, attribute(1, "another's")));
        driver->send_to_group(group, genl_message(29, 3, attribute(1, "the group's")));
        EXPECT_EQ(tq_genl_recv(family, sock, &msg, 32), 11);
        EXPECT_EQ(msg.type, 3);
        EXPECT_EQ(payload.all().substr(0, 12), "the group'sZ");
    }

    LogCapture log;
    std::unique_ptr<wire::Peer> driver;
    int family = 77;
    nl_sock* sock = nullptr;
    Buffer payload{32};
    netlink_msg msg{77, 77, payload.data()};
};

TEST_F(Fumac, InitFindsTheDriver) {
    EXPECT_EQ(family, 29);
    sockaddr_nl local{};
    socklen_t size = sizeof(local);
    getsockname(nl_socket_get_fd(sock), reinterpret_cast<sockaddr*>(&local), &size);
    EXPECT_EQ(local.nl_pid, nl_socket_get_local_port(sock));
}

TEST_F(Fumac, DeinitClosesTheSocket) {
    const int fd = nl_socket_get_fd(sock);
    fumac_genl_deinit(sock);
    EXPECT_EQ(fcntl(fd, F_GETFD), -1);
    sock = nullptr;
}

TEST_F(Fumac, MulticastIdIsTheGroups) {
    EXPECT_EQ(fumac_genl_multicast_id(sock, "mlme"), 5);
    EXPECT_EQ(fumac_genl_multicast_id(sock, "sta-info"), 32);
    EXPECT_EQ(fumac_genl_multicast_id(sock, "nosuchgroup"), -1);
    EXPECT_EQ(groups(), 0U);
}

TEST_F(Fumac, ListensToOneGroup) {
    ASSERT_EQ(fumac_genl_listen_mlme(sock), 0);
    expect_to_hear(5, 32);
}

TEST_F(Fumac, ListensToTheOtherGroup) {
    ASSERT_EQ(fumac_genl_listen_stainfo(sock), 0);
    expect_to_hear(32, 5);
}

TEST_F(Fumac, ListensToBothGroups) {
    EXPECT_EQ(fumac_genl_listen_mlme(sock), 0);
    EXPECT_EQ(fumac_genl_listen_stainfo(sock), 0);
    EXPECT_EQ(groups(), (1U << 4) | (1U << 31));
}

TEST_F(Fumac, TakesWhatItsOwnSideSends) {
    driver->send_to_port(nl_socket_get_local_port(sock),
                         genl_message(29, 9, attribute(1, std::string("Hello\0\0", 7))));
    EXPECT_EQ(tq_genl_recv(family, sock, &msg, 32), 7);
    EXPECT_EQ(payload.all().substr(0, 8), std::string("Hello\0\0Z", 8));
}

TEST_F(Fumac, ADriverWithoutTheGroupIsTold) {
    driver.reset();
    driver = std::make_unique<wire::Peer>("fuMAC", 29, wire::Peer::Groups{{"mlme", 5}});
    EXPECT_EQ(fumac_genl_listen_stainfo(sock), -1);
    EXPECT_THAT(log.take(), ElementsAre(Line(LOG_ERR, "fumac_genl_listen",
                                             "bind mcast group sta-info fail: -1\n")));
}

TEST_F(Fumac, AGroupThatTheKernelRefusesIsTold) {
    driver.reset();
    driver = std::make_unique<wire::Peer>("fuMAC", 29, wire::Peer::Groups{{"mlme", 1000}});
    const int result = fumac_genl_listen_mlme(sock);
    EXPECT_LT(result, 0);
    EXPECT_THAT(log.take(),
                ElementsAre(Line(LOG_ERR, "fumac_genl_listen",
                                 "bind mcast group mlme fail: " + std::to_string(result) + "\n")));
}

TEST_F(Fumac, AFamilyWithoutAnIdIsNotFound) {
    int id = 77;
    wire::resolve_next_as(0);
    EXPECT_EQ(fumac_genl_init(&id), nullptr);
    EXPECT_EQ(id, 77);
    EXPECT_THAT(log.take(), ElementsAre(Line(LOG_ERR, "fumac_genl_init",
                                             "con't find genetlink family fuMAC\n")));
    wire::resolve_next_as(0);
    EXPECT_EQ(tq_genl_connect(&id, "fuMAC"), nullptr);
    EXPECT_EQ(id, -1);
    EXPECT_THAT(log.take(),
                ElementsAre(Line(LOG_ERR, "tq_genl_connect", "not find family:fuMAC id:0 \n\n")));
}

}  // namespace
