// tqctl_netlink_test.cpp - tqctl netlink and genl, on the kernel's own protocols and families.
#include <gmock/gmock.h>
#include <linux/ethtool_netlink.h>

#include <atomic>
#include <string>
#include <thread>

#include "eloop/netlink_support.h"
#include "tools/changing_features.h"
#include "tools/tqctl.h"

namespace {

using namespace tq_test;  // NOLINT(google-build-using-namespace)
using testing::MatchesRegex;

class TqctlNetlink : public DeviceTest {
  protected:
    // Sends to group 3 until the command has ended.
    static CommandResult heard(const std::string& arguments, const std::string& message) {
        std::atomic<bool> ended = false;
        std::thread kernel([&] {
            const int sock = socket(AF_NETLINK, SOCK_RAW | SOCK_CLOEXEC, NETLINK_USERSOCK);
            const sockaddr_nl to = {
                .nl_family = AF_NETLINK, .nl_pad = 0, .nl_pid = 0, .nl_groups = 4};
            while (!ended) {
                sendto(sock, message.data(), message.size(), 0,
                       reinterpret_cast<const sockaddr*>(&to), sizeof(to));
                usleep(1000);
            }
            close(sock);
        });
        CommandResult result = tqctl(arguments);
        ended = true;
        kernel.join();
        return result;
    }
};

// netlink listen

TEST_F(TqctlNetlink, ListenPrintsALineForEachMessage) {
    TQ_NEEDS_NETLINK(NETLINK_USERSOCK);
    const std::string event = netlink_header(16 + 4, 42) + "\x01z\xff\n";
    EXPECT_TRUE(succeeds(heard("netlink listen 2 3 2", event), "42 4 017aff0a\n42 4 017aff0a\n"));
    EXPECT_TRUE(succeeds(heard("-j netlink listen 2 3 1", event),
                         "{\"type\":42,\"length\":4,\"data\":\"017aff0a\"}\n"));
    EXPECT_TRUE(succeeds(heard("netlink listen 2 3 1", netlink_header(16, 7)), "7 0\n"));
}

TEST_F(TqctlNetlink, ListenNeedsTheProtocol) {
    EXPECT_TRUE(fails(tqctl("netlink listen 31 1"), kRefused,
                      "tqctl: netlink listen: protocol 31 cannot be opened\n"));
}

// netlink send

TEST_F(TqctlNetlink, SendGoesToTheKernel) {
#ifdef __mips__
    GTEST_SKIP() << "the emulator translates messages of this protocol, and knows none of type 0";
#endif
    EXPECT_TRUE(succeeds(tqctl("netlink send 0 payload"), ""));
    EXPECT_TRUE(succeeds(tqctl("-j netlink send 0 payload"), "{}\n"));
}

TEST_F(TqctlNetlink, SendNeedsSomebodyThere) {
    TQ_NEEDS_NETLINK(NETLINK_USERSOCK);
    EXPECT_TRUE(fails(tqctl("netlink send 2 payload"), kRefused,
                      "tqctl: netlink send: the kernel does not take it\n"));
    EXPECT_TRUE(fails(tqctl("netlink send 31 payload"), kRefused,
                      "tqctl: netlink send: protocol 31 cannot be opened\n"));
}

TEST_F(TqctlNetlink, MisuseEndsWithTwo) {
    for (const std::string word : {"x", "-1", "32", "1x", ""}) {
        EXPECT_TRUE(fails(tqctl("netlink listen " + quote(word) + " 1"), kUsage,
                          "'" + word + "' is not a protocol from 0 to 31\nusage: "));
        EXPECT_TRUE(fails(tqctl("netlink send " + quote(word) + " x"), kUsage,
                          "'" + word + "' is not a protocol from 0 to 31\nusage: "));
    }
    for (const std::string word : {"x", "0", "33"}) {
        EXPECT_TRUE(fails(tqctl("netlink listen 0 " + word), kUsage,
                          "'" + word + "' is not a group from 1 to 32\nusage: "));
    }
    for (const std::string command : {"netlink listen 0 1 ", "genl listen nlctrl notify "}) {
        for (const std::string word : {"x", "0", "-1"}) {
            EXPECT_TRUE(fails(tqctl(command + word), kUsage,
                              "'" + word + "' is not a number of messages\nusage: "));
        }
    }
    for (const size_t size : {0U, 4985U}) {
        EXPECT_TRUE(fails(tqctl("netlink send 0 " + quote(std::string(size, 'p'))), kUsage,
                          "a payload has 1 to 4984 bytes\nusage: "));
    }
}

// genl

TEST_F(TqctlNetlink, FamilyPrintsItsNumber) {
    TQ_NEEDS_NETLINK(NETLINK_GENERIC);
    EXPECT_TRUE(succeeds(tqctl("genl family nlctrl"), "16\n"));
    EXPECT_TRUE(succeeds(tqctl("-j genl family nlctrl"), "{\"id\":16}\n"));
    EXPECT_TRUE(fails(tqctl("genl family nosuch"), kRefused,
                      "tqctl: genl family: nosuch: no such family\n"));
    EXPECT_EQ(tqctl("genl family ''").status, kRefused);
}

TEST_F(TqctlNetlink, GenlListenNeedsTheFamilyAndTheGroup) {
    TQ_NEEDS_NETLINK(NETLINK_GENERIC);
    EXPECT_TRUE(fails(tqctl("genl listen nosuch group"), kRefused, "nosuch: no such family\n"));
    EXPECT_TRUE(fails(tqctl("genl listen nlctrl nosuch"), kRefused, "nosuch: no such group\n"));
}

TEST_F(TqctlNetlink, GenlListenPrintsTheGroupsMessages) {
    TQ_NEEDS_NETLINK(NETLINK_GENERIC);
    if (tqctl("genl family ethtool").status != kDone) GTEST_SKIP() << "no family ethtool";
    const ChangingFeatures features;
    const CommandResult text = tqctl("genl listen ethtool monitor 1");
    const CommandResult json = tqctl("-j genl listen ethtool monitor 1");
    // The first attribute nests the interface's index and name.
    const std::string command = std::to_string(ETHTOOL_MSG_FEATURES_NTF);
    EXPECT_THAT(text.out, MatchesRegex(command + " 16 08000100[0-9a-f]+74713000\n"));
    EXPECT_EQ(member(parse(json.out), "type"), command);
    EXPECT_EQ(member(parse(json.out), "length"), "16");
    EXPECT_EQ(member(parse(json.out), "data"), text.out.substr(text.out.rfind(' ') + 1, 32));
}

}  // namespace
