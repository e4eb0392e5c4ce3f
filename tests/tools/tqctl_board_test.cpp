// tqctl_board_test.cpp - the companion command's view of the board.
#include <gmock/gmock.h>

#include "tools/tqctl.h"

namespace {

using testing::HasSubstr;
using tq_test::fails;
using tq_test::kDone;
using tq_test::kRefused;
using tq_test::kUsage;
using tq_test::succeeds;
using tq_test::tqctl;
using tq_test::use_board;
using tq_test::write_file;

constexpr const char* kBoard = "/etc/board.conf";

class TqctlBoardTest : public tq_test::DeviceTest {};

TEST_F(TqctlBoardTest, ShowsTheBoard) {
    write_file("/etc/config/wtp", "config capwap\n\toption mode 'fat'\n");
    write_file("/etc/config/forward", "config forward\n\toption mode 'route'\n");
    EXPECT_TRUE(succeeds(tqctl("board show"),
                         "model=TQ AP 2x2\nmode=fat\nforward=route\nradios=2\nports=2\n"
                         "lan_ports=1\nwan_name=eth1\nwan_label=WAN\nwan_port=1\n"));
    EXPECT_TRUE(
        succeeds(tqctl("-j board show"),
                 "{\"model\":\"TQ AP 2x2\",\"mode\":\"fat\",\"forward\":\"route\",\"radios\":2,"
                 "\"ports\":2,\"lan_ports\":1,\"wan_name\":\"eth1\",\"wan_label\":\"WAN\","
                 "\"wan_port\":\"1\"}\n"));
}

TEST_F(TqctlBoardTest, ShowsTheModes) {
    write_file("/etc/config/forward", "config forward\n\toption mode 'nat'\n");
    EXPECT_THAT(tqctl("board show").out, HasSubstr("mode=managed\nforward=other\n"));
    write_file("/etc/config/forward", "config forward\n\toption mode 'bridge'\n");
    EXPECT_THAT(tqctl("board show").out, HasSubstr("forward=bridge\n"));
}

TEST_F(TqctlBoardTest, LeavesOutWhatTheBoardDoesNotSay) {
    write_file(kBoard, "[radio 0]\n[port 0]\nspeed=100\n");
    write_file("/etc/config/board", "");
    write_file("/etc/config/forward", "");
    EXPECT_EQ(tqctl("-q board show").out,
              "mode=managed\nforward=bridge\nradios=1\nports=1\nlan_ports=0\n");
    EXPECT_EQ(tqctl("-q board radios").out, "0 -       -       modes=- bss=- -\n");
    EXPECT_EQ(tqctl("-qj board radios").out, "[{\"radio\":0}]\n");
    EXPECT_EQ(tqctl("-q board ports").out, "0 -       kind=100 ability=- - -\n");
    EXPECT_EQ(tqctl("-qj board ports").out, "[{\"port\":0,\"kind\":100}]\n");
}

TEST_F(TqctlBoardTest, TellsAZeroFromWhatTheBoardDoesNotSay) {
    write_file(kBoard, "[radio 0]\nmodes=0\nbss=0\n");
    EXPECT_EQ(tqctl("-q board radios").out, "0 -       -       modes=0 bss=0 -\n");
    EXPECT_EQ(tqctl("-qj board radios").out, "[{\"radio\":0,\"modes\":0,\"bss\":0}]\n");
}

TEST_F(TqctlBoardTest, ListsTheRadios) {
    EXPECT_TRUE(succeeds(tqctl("board radios"),
                         "0 wifi0   ath     modes=15 bss=8 /proc/wifi0\n"
                         "1 wifi1   wlan    modes=240 bss=8 /proc/wifi1\n"));
    use_board("one-radio");
    EXPECT_TRUE(succeeds(tqctl("-j board radios"),
                         "[{\"radio\":0,\"device\":\"wifi0\",\"prefix\":\"ath\",\"modes\":31,"
                         "\"bss\":8,\"proc_dir\":\"/proc/wifi0\"}]\n"));
}

TEST_F(TqctlBoardTest, ListsThePorts) {
    EXPECT_TRUE(succeeds(tqctl("board ports"),
                         "0 eth0    kind=1000 ability=1000 lan LAN\n"
                         "1 eth1    kind=100 ability=- wan WAN\n"));
    use_board("tri-radio");
    EXPECT_TRUE(
        succeeds(tqctl("-j board ports"),
                 "[{\"port\":0,\"name\":\"eth0\",\"kind\":1000,\"ability\":1000,\"role\":\"wan\","
                 "\"label\":\"WAN / PoE+\"},"
                 "{\"port\":1,\"name\":\"eth1\",\"kind\":1000,\"ability\":1000,\"role\":\"lan\","
                 "\"label\":\"LAN1\"},"
                 "{\"port\":2,\"name\":\"eth2\",\"kind\":1000,\"ability\":100,\"role\":\"lan\","
                 "\"label\":\"LAN2\"}]\n"));
}

TEST_F(TqctlBoardTest, ListsNothingOfABoardOfNothing) {
    write_file(kBoard, "");
    for (const char* what : {"radios", "ports"}) {
        EXPECT_TRUE(succeeds(tqctl(std::string("board ") + what), ""));
        EXPECT_TRUE(succeeds(tqctl(std::string("-j board ") + what), "[]\n"));
    }
}

TEST_F(TqctlBoardTest, SaysThatTheBoardDoesNotAnswer) {
    write_file(kBoard, "[radio 0]\nbss = many\n");
    for (const char* what : {"show", "radios", "ports"}) {
        const auto result = tqctl(std::string("board ") + what);
        EXPECT_TRUE(fails(result, kRefused, "the board library does not answer"));
        EXPECT_THAT(result.err, HasSubstr("/etc/board.conf:2: bss is a number"));
        EXPECT_THAT(tqctl(std::string("-j board ") + what).out, "{}\n");
    }
}

TEST_F(TqctlBoardTest, TakesNoArguments) {
    EXPECT_TRUE(fails(tqctl("board show x"), kUsage, "too many arguments"));
    EXPECT_TRUE(fails(tqctl("board"), kUsage, "board needs a verb"));
    EXPECT_TRUE(fails(tqctl("board check"), kUsage, "board has no verb 'check'"));
}

TEST_F(TqctlBoardTest, ExplainsItself) {
    const auto help = tqctl("board --help");
    EXPECT_EQ(help.status, kDone);
    for (const char* verb : {"show", "radios", "ports"})
        EXPECT_THAT(help.out, HasSubstr(verb));
}

}  // namespace
