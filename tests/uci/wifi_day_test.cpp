// wifi_day_test.cpp - the example of a configuration daemon, on the device.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <string>

#include "support/device.h"

namespace {

using tq_test::CommandResult;
using tq_test::read_file;
using tq_test::run_command;

class WifiDay : public tq_test::DeviceTest {};

std::string with(std::string text, const std::string& option, const std::string& value) {
    const std::string line = "\toption " + option + " '";
    const size_t start = text.find(line) + line.size();
    return text.replace(start, text.find('\'', start) - start, value);
}

TEST_F(WifiDay, ChangesTwelveSettingsAndSaysWhichWereNew) {
    const std::string before = read_file("/etc/config/wireless");
    const CommandResult result = run_command("wifi_day");
    EXPECT_EQ(result.status, 0);
    EXPECT_EQ(result.err, "");
    EXPECT_EQ(result.out,
              "country: changed\nmode: changed\nmcast-rate: changed\ngi: unchanged\n"
              "vht-gi: changed\nrts: unchanged\nfrag: changed\ndtim: changed\n"
              "beacon-rate: changed\nchannel: changed\ntxpower: changed\ndisabled: unchanged\n"
              "9 of 12 settings changed\n");
    std::string after = before;
    for (const auto& [option, value] :
         {std::pair("country", "CN"), std::pair("hwmode", "8"), std::pair("HT_BW", "1"),
          std::pair("HT_EXTCHA", "1"), std::pair("McastMcs", "4"),
          std::pair("FragThreshold", "2000"), std::pair("DtimPeriod", "2"),
          std::pair("MinPhyBeaconRate", "6"), std::pair("channel", "11"),
          std::pair("txpower", "17")}) {
        after = with(after, option, value);
    }
    const std::string last = "\tlist basic_rate '11000'\n";
    after.insert(after.find(last) + last.size(), "\toption VHT_SGI '1'\n");
    EXPECT_EQ(read_file("/etc/config/wireless"), after);
    EXPECT_EQ(run_command("uci changes").out, "");
}

TEST_F(WifiDay, ChangesNothingTheSecondTime) {
    EXPECT_EQ(run_command("wifi_day radio1").status, 0);
    const std::string before = read_file("/etc/config/wireless");
    const CommandResult result = run_command("wifi_day radio1");
    EXPECT_EQ(result.status, 0);
    EXPECT_THAT(result.out, testing::EndsWith("\n0 of 12 settings changed\n"));
    EXPECT_EQ(read_file("/etc/config/wireless"), before);
}

TEST_F(WifiDay, NeedsTheRadio) {
    const CommandResult result = run_command("wifi_day radio7");
    EXPECT_EQ(result.status, 1);
    EXPECT_EQ(result.err, "radio7: no such radio\n");
    EXPECT_EQ(run_command("wifi_day a b").status, 1);
}

TEST_F(WifiDay, SaysWhatCouldNotBeDone) {
    const tq_test::ReadOnly locked("/tmp");
    const CommandResult result = run_command("wifi_day");
    EXPECT_EQ(result.status, 1);
    EXPECT_THAT(result.err, testing::HasSubstr("frag: failed\n"));
}

}  // namespace
