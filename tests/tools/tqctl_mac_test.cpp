// tqctl_mac_test.cpp - the commands on the addresses that derive from the board's.
#include <gmock/gmock.h>

#include "tools/tqctl.h"

namespace {

using namespace tq_test;  // NOLINT(google-build-using-namespace)
using testing::HasSubstr;

class TqctlMacTest : public tq_test::DeviceTest {};

TEST_F(TqctlMacTest, ShowListsTheAddressOfEachInterface) {
    tq_test::use_board("dual-radio");
    const CommandResult all = tqctl("mac show");
    EXPECT_EQ(all.status, kDone);
    EXPECT_THAT(all.out, testing::StartsWith("wan=00:00:5e:00:53:20\nvlan=00:00:5e:00:53:22\n"
                                             "lan0=00:00:5e:00:53:21\nwifi0=00:00:5e:00:53:23\n"
                                             "ath0=00:00:5e:00:53:23\nath1=02:00:5e:00:53:23\n"
                                             "ath2=12:00:5e:00:53:23\n"));
    EXPECT_THAT(all.out, HasSubstr("\nwifi1=00:00:5e:00:53:24\nwlan0=00:00:5e:00:53:24\n"));
    const Json json = parse(tqctl("-j mac show").out);
    EXPECT_EQ(member(json, "wan"), "00:00:5e:00:53:20");
    EXPECT_EQ(member(json, "wlan7"), "62:00:5e:00:53:24");
}

TEST_F(TqctlMacTest, EachSaysWhatTheBoardLeavesOut) {
    write_file("/etc/board.conf", "[board]\nid = 1\n");
    EXPECT_TRUE(fails(tqctl("mac show"), kRefused, "no base address"));
    EXPECT_TRUE(fails(tqctl("mac ssid 1"), kRefused, "no base address"));
}

TEST_F(TqctlMacTest, SsidPrintsTheFactorysName) {
    tq_test::use_board("dual-radio");
    EXPECT_TRUE(succeeds(tqctl("mac ssid 1"), "tqpelkin-5320-1\n"));
    EXPECT_TRUE(succeeds(tqctl("-j mac ssid 0"), "{\"ssid\":\"tqpelkin-5320-0\"}\n"));
    for (const char* number : {"x", "''", "-1", "1000", "1x"})
        EXPECT_TRUE(fails(tqctl(std::string("mac ssid ") + number), kUsage, "is not a number"));
}

}  // namespace
