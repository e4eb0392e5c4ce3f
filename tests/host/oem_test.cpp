// oem_test.cpp - the workstation's board library: what it answers from a description, what it says
// of a bad one, and that it never writes more than a selector needs.
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <tq/oem.h>

#include <climits>
#include <cstring>
#include <string>
#include <utility>
#include <vector>

#include "support/buffer.h"
#include "support/device.h"
#include "support/faults.h"
#include "support/log_capture.h"

namespace {

using testing::ElementsAre;
using testing::Field;
using testing::IsEmpty;
using tq_test::board_file;
using tq_test::Buffer;
using tq_test::LogCapture;
using tq_test::LogLine;
using tq_test::run_command;
using tq_test::use_board;
using tq_test::write_file;
using tq_test::faults::Fail;

constexpr const char* kBoard = "/etc/board.conf";

class OemTest : public tq_test::DeviceTest {
  protected:
    LogCapture log_;
};

// What a call writes; a failed one writes nothing.
template <typename Call>
std::string text_of(Call call) {
    Buffer buf(64);
    if (call(buf.data()) < 0) {
        EXPECT_TRUE(buf.untouched());
        return "(failed)";
    }
    EXPECT_TRUE(buf.guard_holds());
    return buf.text();
}

std::string radio_text(int selector, int radio) {
    return text_of(
        [=](char* out) { return tq_get_oem_ap_type_radio_index_info(selector, radio, out); });
}

std::string gigabit_text(int selector, int port) {
    return text_of(
        [=](char* out) { return tq_get_oem_ap_type_ge_index_info(selector, port, out); });
}

std::string fast_text(int selector, int port) {
    return text_of(
        [=](char* out) { return tq_get_oem_ap_type_fe_index_info(selector, port, out); });
}

std::string wan_text(int selector) {
    return text_of([=](char* out) { return tq_get_oem_ap_type_wan_info(selector, out); });
}

std::string lan_text(int selector, int index) {
    return text_of(
        [=](char* out) { return tq_get_oem_ap_type_lan_index_info(selector, index, out); });
}

std::string partition_text(int selector, int len) {
    return text_of([=](char* out) { return tq_get_oem_ap_type_partion_info(selector, out, len); });
}

int bss_of(int radio) {
    int count = -5;
    if (tq_get_oem_ap_type_radio_index_info(AP_TYPE_RADIO_BSS_NUM, radio, &count) < 0) {
        EXPECT_EQ(count, -5);
        return -1;
    }
    return count;
}

TEST_F(OemTest, AnswersEverySelectorFromTheDescription) {
    use_board("tri-radio");
    EXPECT_EQ(tq_get_oem_ap_type_common(AP_TYPE_VAP_NAME_MODE), 1);
    EXPECT_EQ(tq_get_oem_ap_type_common(AP_TYPE_GE_PORT_NUM), 3);
    EXPECT_EQ(tq_get_oem_ap_type_common(AP_TYPE_FE_PORT_NUM), 0);
    EXPECT_EQ(tq_get_oem_ap_type_common(AP_TYPE_LAN_PORT_NUM), 2);
    EXPECT_EQ(tq_get_oem_ap_type_common(AP_TYPE_RADIO_NUM), 3);
    EXPECT_EQ(tq_get_oem_ap_type_common(AP_TYPE_BOARD_ID), 3090);
    EXPECT_EQ(radio_text(AP_TYPE_RADIO_SUPPORT_MODE, 2), "240");
    EXPECT_EQ(radio_text(AP_TYPE_RADIO_DEVICE, 2), "wifi2");
    EXPECT_EQ(radio_text(AP_TYPE_RADIO_PREFIX_IFNAME, 2), "ath");
    EXPECT_EQ(radio_text(AP_TYPE_RADIO_MAC_OFFSET, 2), "5");
    EXPECT_EQ(radio_text(AP_TYPE_RADIO_PROC_DIR, 2), "/proc/wifi2");
    EXPECT_EQ(bss_of(2), 14);
    EXPECT_EQ(gigabit_text(AP_TYPE_ETH_SPEED_ABILITY, 1), "4");
    EXPECT_EQ(gigabit_text(AP_TYPE_ETH_SPEED_ABILITY, 2), "2");
    EXPECT_EQ(gigabit_text(AP_TYPE_ETH_IF_NAME, 2), "eth2");
    EXPECT_EQ(wan_text(AP_TYPE_WAN_IF_NAME), "eth0");
    EXPECT_EQ(wan_text(AP_TYPE_WAN_IF_LABEL), "WAN / PoE+");
    EXPECT_EQ(wan_text(AP_TYPE_WAN_IF_PORT), "0");
    EXPECT_EQ(lan_text(AP_TYPE_LAN_IF_NAME, 1), "eth2");
    EXPECT_EQ(lan_text(AP_TYPE_LAN_IF_LABEL, 1), "LAN2");
    EXPECT_EQ(lan_text(AP_TYPE_LAN_IF_PORT, 1), "2");
    EXPECT_EQ(partition_text(AP_TYPE_PAT_PRI_IMAGE, 64), "rootfs");
    EXPECT_EQ(partition_text(AP_TYPE_PAT_BK_IMAGE, 64), "rootfs_1");
    EXPECT_EQ(partition_text(AP_TYPE_PAT_BK_UBOOT_IMAGE, 64), "appsbl_1");
    EXPECT_EQ(partition_text(AP_TYPE_PAT_REBOOT_CAUSE, 32), "/etc/reboot_cause");
    EXPECT_THAT(log_.take(), IsEmpty());
}

TEST_F(OemTest, CountsFastPortsBehindTheGigabitOnes) {
    EXPECT_EQ(tq_get_oem_ap_type_common(AP_TYPE_GE_PORT_NUM), 1);
    EXPECT_EQ(tq_get_oem_ap_type_common(AP_TYPE_FE_PORT_NUM), 1);
    EXPECT_EQ(gigabit_text(AP_TYPE_ETH_IF_NAME, 0), "eth0");
    EXPECT_EQ(fast_text(AP_TYPE_ETH_IF_NAME, 0), "eth1");
    for (const int port : {1, -1, INT_MAX, INT_MIN}) {
        EXPECT_EQ(gigabit_text(AP_TYPE_ETH_IF_NAME, port), "(failed)");
        EXPECT_EQ(gigabit_text(AP_TYPE_ETH_SPEED_ABILITY, port), "(failed)");
        EXPECT_EQ(fast_text(AP_TYPE_ETH_IF_NAME, port), "(failed)");
    }
    EXPECT_EQ(fast_text(AP_TYPE_ETH_SPEED_ABILITY, 0), "(failed)");
}

TEST_F(OemTest, GivesTheBaseMacAddress) {
    Buffer mac(8);
    EXPECT_EQ(tq_get_oem_board_info(BOARD_INFO_BASE_MAC, mac.data(), 6), 0);
    EXPECT_EQ(mac.all().substr(0, 7), std::string("\x00\x00\x5e\x00\x53\x20\x5a", 7));
    Buffer small(6);
    for (const int len : {5, 0, -1})
        EXPECT_EQ(tq_get_oem_board_info(BOARD_INFO_BASE_MAC, small.data(), len), -1);
    EXPECT_TRUE(small.untouched());
    write_file(kBoard, "[board]\nbase_mac = aA:Bb:0c:D0:9e:fF\n");
    EXPECT_EQ(tq_get_oem_board_info(BOARD_INFO_BASE_MAC, mac.data(), 8), 0);
    EXPECT_EQ(mac.all().substr(0, 6), "\xaa\xbb\x0c\xd0\x9e\xff");
}

TEST_F(OemTest, FindsARadioByItsDevice) {
    EXPECT_EQ(tq_get_oem_ap_type_radio_ifname_index(AP_TYPE_RADIO_DEVICE_PRESENT, "wifi1"), 1);
    EXPECT_EQ(tq_get_oem_ap_type_radio_ifname_index(AP_TYPE_RADIO_DEVICE_PRESENT, "wifi0"), 0);
    for (const char* name : {"wifi2", "wifi", "wifi10", "", "ath"})
        EXPECT_EQ(tq_get_oem_ap_type_radio_ifname_index(AP_TYPE_RADIO_DEVICE_PRESENT, name), -1);
    EXPECT_EQ(tq_get_oem_ap_type_radio_ifname_index(AP_TYPE_RADIO_DEVICE_PRESENT, nullptr), -1);
    EXPECT_EQ(tq_get_oem_ap_type_radio_ifname_index(1, "wifi0"), -1);
}

TEST_F(OemTest, KnowsNoOtherSelectorAndNoOtherIndex) {
    for (const int selector : {0, -1, 13, INT_MAX, INT_MIN}) {
        EXPECT_EQ(tq_get_oem_ap_type_common(selector), -1);
        EXPECT_EQ(radio_text(selector, 0), "(failed)");
        EXPECT_EQ(gigabit_text(selector, 0), "(failed)");
        EXPECT_EQ(fast_text(selector, 0), "(failed)");
        EXPECT_EQ(wan_text(selector), "(failed)");
        EXPECT_EQ(lan_text(selector, 0), "(failed)");
        EXPECT_EQ(partition_text(selector, 64), "(failed)");
        char mac[6];
        EXPECT_EQ(tq_get_oem_board_info(selector, mac, 6), -1);
    }
    for (const int index : {2, -1, INT_MAX, INT_MIN}) {
        EXPECT_EQ(radio_text(AP_TYPE_RADIO_DEVICE, index), "(failed)");
        EXPECT_EQ(radio_text(AP_TYPE_RADIO_MAC_OFFSET, index), "(failed)");
        EXPECT_EQ(bss_of(index), -1);
        EXPECT_EQ(lan_text(AP_TYPE_LAN_IF_NAME, index), "(failed)");
    }
    EXPECT_THAT(log_.take(), IsEmpty());
}

TEST_F(OemTest, NeedsAPlaceForTheAnswer) {
    EXPECT_EQ(tq_get_oem_ap_type_radio_index_info(AP_TYPE_RADIO_DEVICE, 0, nullptr), -1);
    EXPECT_EQ(tq_get_oem_ap_type_ge_index_info(AP_TYPE_ETH_IF_NAME, 0, nullptr), -1);
    EXPECT_EQ(tq_get_oem_ap_type_fe_index_info(AP_TYPE_ETH_IF_NAME, 0, nullptr), -1);
    EXPECT_EQ(tq_get_oem_ap_type_wan_info(AP_TYPE_WAN_IF_NAME, nullptr), -1);
    EXPECT_EQ(tq_get_oem_ap_type_lan_index_info(AP_TYPE_LAN_IF_NAME, 0, nullptr), -1);
    EXPECT_EQ(tq_get_oem_ap_type_partion_info(AP_TYPE_PAT_PRI_IMAGE, nullptr, 64), -1);
    EXPECT_EQ(tq_get_oem_board_info(BOARD_INFO_BASE_MAC, nullptr, 6), -1);
}

TEST_F(OemTest, GivesAPartitionOnlyWhereItFits) {
    EXPECT_EQ(partition_text(AP_TYPE_PAT_BK_IMAGE, 10), "firmware2");
    for (const int len : {9, 1, 0, -1, INT_MIN})
        EXPECT_EQ(partition_text(AP_TYPE_PAT_BK_IMAGE, len), "(failed)");
}

TEST_F(OemTest, FailsInSilenceForWhatIsLeftOut) {
    write_file(kBoard, "[board]\n[radio 0]\n[port 0]\nspeed = 1000\n[lan 0]\n[partitions]\n");
    EXPECT_EQ(tq_get_oem_ap_type_common(AP_TYPE_BOARD_ID), -1);
    EXPECT_EQ(tq_get_oem_ap_type_common(AP_TYPE_VAP_NAME_MODE), 0);
    EXPECT_EQ(tq_get_oem_ap_type_common(AP_TYPE_RADIO_NUM), 1);
    for (const int selector : {1, 3, 4, 5, 6})
        EXPECT_EQ(radio_text(selector, 0), "(failed)");
    EXPECT_EQ(bss_of(0), -1);
    EXPECT_EQ(gigabit_text(AP_TYPE_ETH_IF_NAME, 0), "(failed)");
    EXPECT_EQ(gigabit_text(AP_TYPE_ETH_SPEED_ABILITY, 0), "4");
    EXPECT_EQ(wan_text(AP_TYPE_WAN_IF_NAME), "(failed)");
    EXPECT_EQ(lan_text(AP_TYPE_LAN_IF_NAME, 0), "(failed)");
    EXPECT_EQ(partition_text(AP_TYPE_PAT_PRI_IMAGE, 64), "(failed)");
    char mac[6];
    EXPECT_EQ(tq_get_oem_board_info(BOARD_INFO_BASE_MAC, mac, 6), -1);
    EXPECT_THAT(log_.take(), IsEmpty());
}

TEST_F(OemTest, TakesAnEmptyDescriptionForABoardOfNothing) {
    write_file(kBoard, "");
    EXPECT_EQ(tq_get_oem_ap_type_common(AP_TYPE_RADIO_NUM), 0);
    EXPECT_EQ(tq_get_oem_ap_type_common(AP_TYPE_GE_PORT_NUM), 0);
    EXPECT_EQ(tq_get_oem_ap_type_common(AP_TYPE_FE_PORT_NUM), 0);
    EXPECT_EQ(tq_get_oem_ap_type_common(AP_TYPE_LAN_PORT_NUM), 0);
    EXPECT_THAT(log_.take(), IsEmpty());
}

TEST_F(OemTest, ReadsTheDescriptionAnewAtEachCall) {
    EXPECT_EQ(tq_get_oem_ap_type_common(AP_TYPE_RADIO_NUM), 2);
    write_file(kBoard, "[radio 0]\n");
    EXPECT_EQ(tq_get_oem_ap_type_common(AP_TYPE_RADIO_NUM), 1);
}

TEST_F(OemTest, TakesBlanksCommentsAndLineEndsAsAPersonWritesThem) {
    write_file(
        kBoard,
        "; comment\r\n\r\n  # comment \x01\n\t[ board ]\r\n id=12\n"
        "vap_name_mode\t=\t0x1F \r\n[  wan  ]\nlabel = a = b # c\nname =x\nport= \xc3\xa4 1");
    EXPECT_EQ(tq_get_oem_ap_type_common(AP_TYPE_BOARD_ID), 12);
    EXPECT_EQ(tq_get_oem_ap_type_common(AP_TYPE_VAP_NAME_MODE), 31);
    EXPECT_EQ(wan_text(AP_TYPE_WAN_IF_LABEL), "a = b # c");
    EXPECT_EQ(wan_text(AP_TYPE_WAN_IF_NAME), "x");
    EXPECT_EQ(wan_text(AP_TYPE_WAN_IF_PORT), "\xc3\xa4 1");
    EXPECT_THAT(log_.take(), IsEmpty());
}

// "kernel bak" is a usual name. Quotes are no form of this file: they belong to the text.
TEST_F(OemTest, TakesBlanksInLabelsAndInNamesOfPartitions) {
    write_file(kBoard,
               "[wan]\nlabel = LAN 4 / IPTV \nport = \"0 1\"\n"
               "[partitions]\nprimary_image =  kernel bak\t\nbackup_image = a  b\n"
               "backup_boot_loader = \"u boot\"\n");
    EXPECT_EQ(wan_text(AP_TYPE_WAN_IF_LABEL), "LAN 4 / IPTV");
    EXPECT_EQ(wan_text(AP_TYPE_WAN_IF_PORT), "\"0 1\"");
    EXPECT_EQ(partition_text(AP_TYPE_PAT_PRI_IMAGE, 64), "kernel bak");
    EXPECT_EQ(partition_text(AP_TYPE_PAT_BK_IMAGE, 64), "a  b");
    EXPECT_EQ(partition_text(AP_TYPE_PAT_BK_UBOOT_IMAGE, 64), "\"u boot\"");
    EXPECT_THAT(log_.take(), IsEmpty());
}

TEST_F(OemTest, AnswersTheLongestTexts) {
    const std::string name(31, 'n');
    const std::string partition(63, 'p');
    write_file(kBoard, "[radio 0]\ndevice=" + name + "\nmodes=2147483647\nmac_offset=-1\n" +
                           "bss=0\n[port 0]\nname=" + name + "\nspeed=100\n[wan]\nlabel=" + name +
                           "\n[partitions]\nbackup_image=" + partition + "\nreboot_cause=" + name +
                           "\n");
    EXPECT_EQ(radio_text(AP_TYPE_RADIO_DEVICE, 0), name);
    EXPECT_EQ(radio_text(AP_TYPE_RADIO_SUPPORT_MODE, 0), "2147483647");
    EXPECT_EQ(radio_text(AP_TYPE_RADIO_MAC_OFFSET, 0), "-1");
    EXPECT_EQ(bss_of(0), 0);
    EXPECT_EQ(fast_text(AP_TYPE_ETH_IF_NAME, 0), name);
    EXPECT_EQ(wan_text(AP_TYPE_WAN_IF_LABEL), name);
    EXPECT_EQ(partition_text(AP_TYPE_PAT_BK_IMAGE, 64), partition);
    EXPECT_EQ(partition_text(AP_TYPE_PAT_REBOOT_CAUSE, 32), name);
    EXPECT_THAT(log_.take(), IsEmpty());
}

// A bad description, and what is said of it behind the name of the file.
struct Bad {
    std::string text;
    std::string complaint;
};

std::vector<Bad> bad_descriptions() {
    const std::string many_lans = [] {
        std::string text;
        for (int i = 0; i < 128; i++)
            text += "[lan " + std::to_string(i) + "]\nname=a\nport=b\n";
        return text;
    }();
    return {
        {"id = 1\n", "1: a line before the first [section]"},
        {"# c\n\n[bored]\n", "3: [bored] is no section of a board"},
        {"[board\n", "1: [board: the ']' is missing"},
        {"[\n", "1: [: the ']' is missing"},
        {"[]\n", "1: [] is no section of a board"},
        {"[board] # one\n", "1: [board] # one: the ']' is missing"},
        {"[board 0]\n", "1: [board 0]: there is one [board], without a number"},
        {"[board]\n[wan]\n[board]\n", "3: [board] for the second time"},
        {"[radio]\n", "1: [radio] where [radio 0] is due"},
        {"[radio 1]\n", "1: [radio 1] where [radio 0] is due"},
        {"[radio 0]\n[radio 0]\n", "2: [radio 0] where [radio 1] is due"},
        {"[radio x]\n", "1: [radio x] where [radio 0] is due"},
        {"[board]\nid\n", "2: id: neither [section] nor key = value"},
        {"[board]\nname = x\n", "2: [board] has no key 'name'"},
        {"[board]\n= x\n", "2: [board] has no key ''"},
        {"[radio 0]\nid = 1\n", "2: [radio] has no key 'id'"},
        {"[board]\nid =\n", "2: id has no value"},
        {"[board]\nid = 1\nid = 1\n", "3: id for the second time"},
        {"[board]\nid = one\n", "2: id is a number from 0 to 2147483647, not 'one'"},
        {"[board]\nid = 1x\n", "2: id is a number from 0 to 2147483647, not '1x'"},
        {"[board]\nid = -1\n", "2: id is a number from 0 to 2147483647, not '-1'"},
        {"[board]\nid = 0x-1\n", "2: id is a number from 0 to 2147483647, not '0x-1'"},
        {"[board]\nid = 0x\n", "2: id is a number from 0 to 2147483647, not '0x'"},
        {"[board]\nid = 2147483648\n", "2: id is a number from 0 to 2147483647, not '2147483648'"},
        {"[radio 0]\nmac_offset = -2\n",
         "2: mac_offset is a number from -1 to 2147483647, not '-2'"},
        {"[radio 0]\nmac_offset = 0x-1\n",
         "2: mac_offset is a number from -1 to 2147483647, not '0x-1'"},
        {"[board]\nbase_mac = 1\n", "2: base_mac is written as 02:00:00:00:00:00, not '1'"},
        {"[board]\nbase_mac = 02-00-00-00-00-00\n",
         "2: base_mac is written as 02:00:00:00:00:00, not '02-00-00-00-00-00'"},
        {"[board]\nbase_mac = 02:00:00:00:00:0g\n",
         "2: base_mac is written as 02:00:00:00:00:00, not '02:00:00:00:00:0g'"},
        {"[board]\nbase_mac = 02:00:00:00:00:00:00\n",
         "2: base_mac is written as 02:00:00:00:00:00, not '02:00:00:00:00:00:00'"},
        {"[board]\nbase_mac = 01:00:00:00:00:00\n", "2: base_mac is a group address"},
        {"[port 0]\nspeed = 2500\n", "2: speed is 10, 100 or 1000, not '2500'"},
        {"[port 0]\nname = eth0\n\n[wan]\n", "1: [port 0] has no speed"},
        {"\n[port 0]\nname = eth0\n", "2: [port 0] has no speed"},
        {"[port 0]\nspeed=100\n[port 1]\nspeed=1000\n",
         "3: [port 1] is a gigabit port behind a fast one"},
        {"[port 0]\nspeed=100\nspeed_ability=1\n",
         "1: [port 0] is fast: only gigabit ports have a speed_ability"},
        {"[port 0]\nspeed=1000\nspeed_ability=5\n",
         "3: speed_ability is a number from 1 to 4, not '5'"},
        {"[radio 0]\ndevice = wifi 0\n", "2: device has a blank or a letter beyond ASCII"},
        {"[radio 0]\ndevice = w\xc3\xa4\n", "2: device has a blank or a letter beyond ASCII"},
        {"[wan]\nname = eth 0\n", "2: name has a blank or a letter beyond ASCII"},
        {"[partitions]\nreboot_cause = /etc/reboot cause\n",
         "2: reboot_cause has a blank or a letter beyond ASCII"},
        {"[radio 0]\ndevice = " + std::string(32, 'd') + "\n",
         "2: device is 32 bytes long, 31 at most"},
        {"[wan]\nlabel = " + std::string(5000, 'l') + "\n",
         "2: label is 5000 bytes long, 31 at most"},
        {"[partitions]\nprimary_image = " + std::string(64, 'p'),
         "2: primary_image is 64 bytes long, 63 at most"},
        {"[partitions]\nreboot_cause = " + std::string(32, 'p'),
         "2: reboot_cause is 32 bytes long, 31 at most"},
        {"[board]\nid = 1\x01\n", "2: a control character"},
        {"[board]\nid = 1\x7f\n", "2: a control character"},
        {std::string("[board]\nid = 1\0\n", 16), "2: a control character"},
        {"[board]\n%s%n" + std::string(100, 'x'),
         "2: %s%n" + std::string(44, 'x') + ": neither [section] nor key = value"},
        {many_lans + "[wan]\nname=a\n", "386: more than 256 values"},
        {std::string(16385, '\n'), " a description is at most 16384 bytes long"},
    };
}

TEST_F(OemTest, SaysInTheLogWhatIsWrongWithADescriptionAndWhere) {
    for (const Bad& bad : bad_descriptions()) {
        write_file(kBoard, bad.text);
        EXPECT_EQ(tq_get_oem_ap_type_common(AP_TYPE_RADIO_NUM), -1);
        const auto lines = log_.take();
        ASSERT_EQ(lines.size(), 1U) << bad.complaint;
        EXPECT_EQ(lines[0].priority, LOG_ERR);
        EXPECT_EQ(lines[0].text, std::string(kBoard) + ":" + bad.complaint + "\n");
    }
}

TEST_F(OemTest, AnswersNothingFromABadDescription) {
    write_file(kBoard, tq_test::read_file(board_file("tri-radio")) + "bad\n");
    EXPECT_EQ(radio_text(AP_TYPE_RADIO_DEVICE, 0), "(failed)");
    EXPECT_EQ(gigabit_text(AP_TYPE_ETH_IF_NAME, 0), "(failed)");
    EXPECT_EQ(fast_text(AP_TYPE_ETH_IF_NAME, 0), "(failed)");
    EXPECT_EQ(wan_text(AP_TYPE_WAN_IF_NAME), "(failed)");
    EXPECT_EQ(lan_text(AP_TYPE_LAN_IF_NAME, 0), "(failed)");
    EXPECT_EQ(partition_text(AP_TYPE_PAT_PRI_IMAGE, 64), "(failed)");
    EXPECT_EQ(tq_get_oem_ap_type_radio_ifname_index(AP_TYPE_RADIO_DEVICE_PRESENT, "wifi0"), -1);
    char mac[6];
    EXPECT_EQ(tq_get_oem_board_info(BOARD_INFO_BASE_MAC, mac, 6), -1);
    EXPECT_EQ(log_.take().size(), 8U);
}

TEST_F(OemTest, SaysThatThereIsNoDescription) {
    run_command("rm /etc/board.conf");
    EXPECT_EQ(tq_get_oem_ap_type_common(AP_TYPE_RADIO_NUM), -1);
    EXPECT_THAT(log_.take(),
                ElementsAre(Field(&LogLine::text, "/etc/board.conf: No such file or directory\n")));
    run_command("mkdir /etc/board.conf");
    EXPECT_EQ(tq_get_oem_ap_type_common(AP_TYPE_RADIO_NUM), -1);
    EXPECT_THAT(log_.take(),
                ElementsAre(Field(&LogLine::text, "/etc/board.conf: Is a directory\n")));
    run_command("rmdir /etc/board.conf; mkfifo /etc/board.conf");
    EXPECT_EQ(tq_get_oem_ap_type_common(AP_TYPE_RADIO_NUM), 0);
    run_command("rm /etc/board.conf");
}

TEST_F(OemTest, TakesADescriptionOfTheGreatestSize) {
    write_file(kBoard, std::string(16384 - 10, '\n') + "[radio 0]\n");
    EXPECT_EQ(tq_get_oem_ap_type_common(AP_TYPE_RADIO_NUM), 1);
    EXPECT_THAT(log_.take(), IsEmpty());
}

TEST_F(OemTest, ReadsOnAfterASignal) {
    const Fail fail("read", 1, EINTR);
    EXPECT_EQ(tq_get_oem_ap_type_common(AP_TYPE_RADIO_NUM), 2);
    EXPECT_TRUE(fail.fired());
}

TEST_F(OemTest, SaysThatADescriptionCannotBeRead) {
    const Fail fail("read", 1, EIO);
    EXPECT_EQ(tq_get_oem_ap_type_common(AP_TYPE_RADIO_NUM), -1);
    EXPECT_TRUE(fail.fired());
    EXPECT_THAT(log_.take(),
                ElementsAre(Field(&LogLine::text, "/etc/board.conf: Input/output error\n")));
}

TEST_F(OemTest, CallsTheSamplesComplete) {
    for (const char* name : {"one", "dual", "tri"}) {
        const auto result = run_command("board_check " + board_file(std::string(name) + "-radio"));
        EXPECT_EQ(result.status, 0);
        EXPECT_EQ(result.out + result.err, "");
    }
}

TEST_F(OemTest, ChecksDescriptionsAtATerminal) {
    for (const Bad& bad : bad_descriptions()) {
        write_file("/tmp/board", bad.text);
        const auto result = run_command("board_check /tmp/board");
        EXPECT_EQ(result.status, 1);
        EXPECT_EQ(result.err, "/tmp/board:" + bad.complaint + "\n");
        EXPECT_EQ(result.out, "");
    }
}

TEST_F(OemTest, NamesWhatADescriptionLeavesOut) {
    write_file("/tmp/board",
               "[board]\nid=1\n[radio 0]\ndevice=a\nprefix=b\nmac_offset=1\nproc_dir=/p\nmodes=1\n"
               "bss=1\n[radio 1]\n[port 0]\nspeed=10\n[wan]\nname=a\nlabel=a\nport=a\n"
               "[partitions]\nbackup_image=a\n");
    const auto result = run_command("board_check /tmp/board");
    EXPECT_EQ(result.status, 1);
    EXPECT_EQ(result.err,
              "/tmp/board: [board] has no base_mac\n"
              "/tmp/board: [radio 1] has no device\n"
              "/tmp/board: [radio 1] has no prefix\n"
              "/tmp/board: [radio 1] has no mac_offset\n"
              "/tmp/board: [radio 1] has no proc_dir\n"
              "/tmp/board: [radio 1] has no modes\n"
              "/tmp/board: [radio 1] has no bss\n"
              "/tmp/board: [port 0] has no name\n"
              "/tmp/board: [partitions] has no primary_image\n"
              "/tmp/board: [partitions] has no backup_boot_loader\n"
              "/tmp/board: [partitions] has no reboot_cause\n");
}

TEST_F(OemTest, ChecksSeveralDescriptions) {
    write_file("/tmp/bad", "[x]\n");
    const auto result =
        run_command("board_check /tmp/bad " + board_file("one-radio") + " /tmp/missing /tmp/bad");
    EXPECT_EQ(result.status, 1);
    EXPECT_EQ(result.err,
              "/tmp/bad:1: [x] is no section of a board\n"
              "/tmp/missing: No such file or directory\n"
              "/tmp/bad:1: [x] is no section of a board\n");
    EXPECT_EQ(run_command("board_check /tmp/bad " + board_file("one-radio")).status, 1);
    EXPECT_EQ(run_command("board_check " + board_file("one-radio") + " " + board_file("tri-radio"))
                  .status,
              0);
}

TEST_F(OemTest, SaysHowTheCheckIsUsed) {
    const auto help = run_command("board_check --help");
    EXPECT_EQ(help.status, 0);
    EXPECT_THAT(help.out, testing::StartsWith("Usage: board_check FILE...\n"));
    const auto nothing = run_command("board_check");
    EXPECT_EQ(nothing.status, 2);
    EXPECT_EQ(nothing.out, "");
    EXPECT_EQ(nothing.err, help.out);
}

// The device's launcher reads the same file with less: its ports are the description's.
TEST_F(OemTest, DescribesTheDevicesOwnPorts) {
    EXPECT_EQ(run_command("cd /sys/class/net && echo eth*").out, "eth0 eth1\n");
}

}  // namespace
