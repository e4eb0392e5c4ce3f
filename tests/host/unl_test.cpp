// unl_test.cpp - unl.h, the workstation's or the real one, to the kernel's own families.
#include <gtest/gtest.h>
#include <linux/rtnetlink.h>
#include <net/if.h>
#include <netlink/genl/ctrl.h>

#include <cerrno>
#include <string>

#include "eloop/netlink_support.h"

extern "C" {
#include <unl.h>
}

namespace {

int count(nl_msg*, void* counter) {
    ++*static_cast<int*>(counter);
    return NL_SKIP;
}

// A connection to the controller, which is a family itself.
class Unl : public testing::Test {
  protected:
    void SetUp() override {
        TQ_NEEDS_NETLINK(NETLINK_GENERIC);
        ASSERT_EQ(unl_genl_init(&nlctrl, "nlctrl"), 0);
    }
    void TearDown() override {
        if (nlctrl.sock) unl_free(&nlctrl);
    }

    nl_msg* question(const char* family) {
        nl_msg* const message = unl_genl_msg(&nlctrl, CTRL_CMD_GETFAMILY, false);
        nla_put_string(message, CTRL_ATTR_FAMILY_NAME, family);
        return message;
    }

    unl nlctrl{};
};

TEST_F(Unl, InitFindsTheFamily) {
    EXPECT_NE(nlctrl.sock, nullptr);
    EXPECT_NE(nlctrl.cache, nullptr);
    ASSERT_NE(nlctrl.family, nullptr);
    EXPECT_EQ(genl_family_get_id(nlctrl.family), unsigned{GENL_ID_CTRL});
    EXPECT_STREQ(nlctrl.family_name, "nlctrl");
    EXPECT_EQ(nlctrl.hdrlen, 4);
}

TEST_F(Unl, FreeLeavesNothing) {
    unl_free(&nlctrl);
    EXPECT_EQ(nlctrl.sock, nullptr);
    EXPECT_EQ(nlctrl.cache, nullptr);
    EXPECT_EQ(nlctrl.family, nullptr);
    EXPECT_EQ(nlctrl.family_name, nullptr);
}

TEST_F(Unl, InitOfAnUnknownFamilyLeavesNothing) {
    unl unknown{};
    EXPECT_EQ(unl_genl_init(&unknown, "nosuchfamily"), -1);
    EXPECT_EQ(unknown.sock, nullptr);
    EXPECT_EQ(unknown.family_name, nullptr);
}

TEST_F(Unl, AMessageHasItsHeader) {
    for (const bool dump : {false, true}) {
        nl_msg* const message = unl_genl_msg(&nlctrl, CTRL_CMD_GETFAMILY, dump);
        const nlmsghdr* const header = nlmsg_hdr(message);
        EXPECT_EQ(header->nlmsg_type, GENL_ID_CTRL);
        EXPECT_EQ(header->nlmsg_flags, dump ? NLM_F_DUMP : 0);
        EXPECT_EQ(header->nlmsg_len, 20U);
        EXPECT_EQ(static_cast<const genlmsghdr*>(nlmsg_data(header))->cmd, CTRL_CMD_GETFAMILY);
        nlmsg_free(message);
    }
}

TEST_F(Unl, ARequestHandsOutEachReply) {
    int replies = 0;
    EXPECT_EQ(unl_request(&nlctrl, question("nlctrl"), count, &replies), 0);
    EXPECT_EQ(replies, 1);
    replies = 0;
    nl_msg* const dump = unl_genl_msg(&nlctrl, CTRL_CMD_GETFAMILY, true);
    EXPECT_EQ(unl_request(&nlctrl, dump, count, &replies), 0);
    EXPECT_GT(replies, 1);
}

TEST_F(Unl, ARefusedRequestGivesTheKernelsError) {
    int replies = 0;
    EXPECT_EQ(unl_request(&nlctrl, question("nosuchfamily"), count, &replies), -ENOENT);
    EXPECT_EQ(replies, 0);
    EXPECT_EQ(
        unl_request(&nlctrl, unl_genl_msg(&nlctrl, CTRL_CMD_GETFAMILY, false), nullptr, nullptr),
        -EINVAL);
}

TEST_F(Unl, ASingleReplyIsTheCallers) {
    nl_msg* reply = nullptr;
    ASSERT_EQ(unl_request_single(&nlctrl, question("nlctrl"), &reply), 0);
    ASSERT_NE(reply, nullptr);
    nlattr* const name = unl_find_attr(&nlctrl, reply, CTRL_ATTR_FAMILY_NAME);
    ASSERT_NE(name, nullptr);
    EXPECT_STREQ(nla_get_string(name), "nlctrl");
    EXPECT_EQ(unl_find_attr(&nlctrl, reply, 99), nullptr);
    nlmsg_free(reply);
}

TEST_F(Unl, ASingleReplyThatDoesNotComeIsNull) {
    nl_msg* reply = nullptr;
    EXPECT_EQ(unl_request_single(&nlctrl, question("nosuchfamily"), &reply), -ENOENT);
    EXPECT_EQ(reply, nullptr);
}

TEST_F(Unl, AMulticastIdIsTheGroups) {
    EXPECT_EQ(unl_genl_multicast_id(&nlctrl, "notify"), GENL_ID_CTRL);
    EXPECT_EQ(unl_genl_multicast_id(&nlctrl, "nosuchgroup"), -1);
    EXPECT_EQ(unl_genl_multicast_id(&nlctrl, "notif"), -1);
    EXPECT_EQ(unl_genl_multicast_id(&nlctrl, "notify2"), -1);
}

TEST_F(Unl, AMulticastIdNeedsASocketAndAFamilyName) {
    char name[] = "nosuchfamily";
    unl other{};
    other.sock = nlctrl.sock;
    other.family_name = name;
    other.hdrlen = 4;
    EXPECT_EQ(unl_genl_multicast_id(&other, "notify"), -1);
    EXPECT_EQ(unl_genl_subscribe(&other, "notify"), -1);
    EXPECT_EQ(unl_genl_unsubscribe(&other, "notify"), -1);
}

uint32_t memberships(nl_sock* sock) {
    // The kernel says how much it has, whatever room there is.
    uint32_t groups[64] = {};
    socklen_t size = sizeof(groups);
    EXPECT_EQ(
        getsockopt(nl_socket_get_fd(sock), SOL_NETLINK, NETLINK_LIST_MEMBERSHIPS, groups, &size),
        0);
    return groups[0];
}

TEST_F(Unl, SubscribesAndUnsubscribes) {
    EXPECT_EQ(unl_genl_subscribe(&nlctrl, "notify"), 0);
    EXPECT_EQ(memberships(nlctrl.sock), 1U << (GENL_ID_CTRL - 1));
    EXPECT_EQ(unl_genl_unsubscribe(&nlctrl, "notify"), 0);
    EXPECT_EQ(memberships(nlctrl.sock), 0U);
    EXPECT_EQ(unl_genl_subscribe(&nlctrl, "nosuchgroup"), -1);
    EXPECT_EQ(unl_genl_unsubscribe(&nlctrl, "nosuchgroup"), -1);
}

// Ends the loop at the second message that matches.
struct Wanted {
    unl* connection;
    int seen;
};

int see(nl_msg* message, void* argument) {
    auto* const wanted = static_cast<Wanted*>(argument);
    if (nlmsg_hdr(message)->nlmsg_type == RTM_NEWLINK && ++wanted->seen == 2)
        unl_loop_done(wanted->connection);
    return NL_SKIP;
}

TEST(UnlRoute, ListsTheInterfaces) {
    TQ_NEEDS_NETLINK(NETLINK_ROUTE);
    unl route{};
    ASSERT_EQ(unl_rtnl_init(&route), 0);
    EXPECT_EQ(route.hdrlen, 0);
    nl_msg* const message = unl_rtnl_msg(&route, RTM_GETLINK, true);
    EXPECT_EQ(nlmsg_hdr(message)->nlmsg_type, RTM_GETLINK);
    EXPECT_EQ(nlmsg_hdr(message)->nlmsg_flags, NLM_F_DUMP);
    const ifinfomsg any{};
    nlmsg_append(message, const_cast<ifinfomsg*>(&any), sizeof(any), NLMSG_ALIGNTO);
    int links = 0;
    EXPECT_EQ(unl_request(&route, message, count, &links), 0);
    EXPECT_GE(links, 1);
    unl_free(&route);
    EXPECT_EQ(route.sock, nullptr);
}

// Messages that answer no request.
TEST(UnlRoute, LoopHandsOutEventsUntilItIsToldToStop) {
    TQ_NEEDS_NETLINK(NETLINK_ROUTE);
    unl route{};
    ASSERT_EQ(unl_rtnl_init(&route), 0);
    ASSERT_EQ(nl_socket_add_membership(route.sock, RTNLGRP_LINK), 0);
    for (int i = 0; i < 2; i++) {
        EXPECT_EQ(system("ip link set lo down && ip link set lo up"), 0);
    }
    Wanted wanted{&route, 0};
    unl_loop(&route, see, &wanted);
    EXPECT_EQ(wanted.seen, 2);
    EXPECT_TRUE(route.loop_done);
    unl_free(&route);
}

}  // namespace
