// tqctl_selftest_test.cpp - tqctl selftest on a device that lacks nothing, and on one that lacks
// each thing in turn.
#include <gmock/gmock.h>

#include <map>
#include <memory>
#include <sstream>
#include <string>

#include "support/bus.h"
#include "support/log_capture.h"
#include "tools/tqctl.h"
#include "tools/whole_device.h"

namespace {

using namespace tq_test;  // NOLINT(google-build-using-namespace)
using testing::AllOf;
using testing::EndsWith;
using testing::HasSubstr;
using testing::IsEmpty;
using testing::Not;
using testing::StartsWith;

CommandResult selftest(const std::string& options = "") {
    return run_command(kWithoutLeakDetector + "tqctl " + options + "selftest");
}

// The line of a check; empty where there is none.
std::string line_of(const CommandResult& result, const std::string& check) {
    std::istringstream lines(result.out);
    for (std::string line; std::getline(lines, line);) {
        if (line.rfind(check, 9) == 9) return line;
    }
    return "";
}

class TqctlSelftest : public DeviceTest {
  protected:
    Broker bus_;
    const WholeDevice device_;
};

TEST_F(TqctlSelftest, PassesWhereNothingRequiredIsMissing) {
    const CommandResult result = selftest();
    EXPECT_EQ(result.status, kDone) << result.out;
    EXPECT_THAT(result.err, IsEmpty());
    std::istringstream lines(result.out);
    for (std::string line; std::getline(lines, line);) {
        if (line.rfind("ok ", 0) == 0) continue;
        EXPECT_THAT(line, AllOf(StartsWith("missing  "), HasSubstr("(optional) ")));
    }
}

TEST_F(TqctlSelftest, TellsWhatItHasFound) {
    const CommandResult result = selftest();
    EXPECT_THAT(line_of(result, "board library"), EndsWith(" 2 radios, 2 ports"));
    EXPECT_THAT(line_of(result, "board base address"), EndsWith(" 00:00:5e:00:53:20"));
    EXPECT_THAT(line_of(result, "port eth0"), EndsWith(" running"));
    EXPECT_EQ(line_of(result, "config wireless"), "ok       config wireless");
    EXPECT_THAT(line_of(result, "flash next image"), EndsWith(" primary"));
    EXPECT_THAT(line_of(result, "flash serial number"), EndsWith(" A1B2C3"));
    EXPECT_THAT(line_of(result, "flash primary"), EndsWith(" 1.2.3"));
    EXPECT_THAT(line_of(result, "flash /overlay"), EndsWith(" 8192 kB free"));
    EXPECT_THAT(line_of(result, "command killall"), EndsWith("/killall"));
}

TEST_F(TqctlSelftest, OptionalThingsAreFoundToo) {
    const BusService service({"bwctrl", "bwctrl.maxassoc", "statistics", "fm.ac", "fm.url"});
    for (const char* command : {"tqctl status offline 3", "tqctl reboot-log list",
                                "ip link add wifi0 type veth peer name br-lan"})
        ASSERT_EQ(run_command(kWithoutLeakDetector + command).status, 0) << command;
    const CommandResult result = selftest();
    run_command("ip link del wifi0");
    for (const char* check : {"bus bwctrl", "bus bwctrl.maxassoc", "bus statistics",
                              "state /tmp/.offline.reason", "state reboot log"})
        EXPECT_THAT(line_of(result, check), StartsWith("ok ")) << check;
    EXPECT_THAT(line_of(result, "bus fm.*"), EndsWith(" 2 objects"));
    EXPECT_THAT(line_of(result, "radio wifi0"), EndsWith(" not running"));
    EXPECT_THAT(line_of(result, "bridge br-lan"), EndsWith(" not running"));
}

// JSON, for an inventory

std::map<std::string, std::string> outcomes(const Json& report, bool required) {
    std::map<std::string, std::string> found;
    json_object* checks = nullptr;
    json_object_object_get_ex(report.get(), "checks", &checks);
    for (std::size_t i = 0; checks && i < json_object_array_length(checks); i++) {
        const Json check(json_object_get(json_object_array_get_idx(checks, i)));
        if ((member(check, "required") == "true") != required) continue;
        found[member(check, "group") + " " + member(check, "name")] = member(check, "outcome");
    }
    return found;
}

TEST_F(TqctlSelftest, JsonTellsUnitAndChecks) {
    const Json report = parse(selftest("-j ").out);
    EXPECT_EQ(member(report, "version") + "\n", tqctl("--version").out);
    EXPECT_EQ(member(report, "required_lacking"), "0");
    json_object* board = nullptr;
    ASSERT_TRUE(json_object_object_get_ex(report.get(), "board", &board));
    const Json unit(json_object_get(board));
    EXPECT_EQ(member(unit, "model"), "TQ AP 2x2");
    EXPECT_EQ(member(unit, "base_mac"), "00:00:5e:00:53:20");
    EXPECT_EQ(member(unit, "serial_number"), "A1B2C3");
    EXPECT_GE(outcomes(report, true).size(), 20U);
    for (const auto& [check, outcome] : outcomes(report, true))
        EXPECT_EQ(outcome, "ok") << check;
    EXPECT_EQ(outcomes(report, false)["driver fuMAC"], "missing");
}

// What is required and lacking is said, with what it means, and ends with its code.

struct Lack {
    const char* how;
    const char* check;
    const char* outcome;
    Code code;
    const char* detail;
};

void PrintTo(const Lack& lack, std::ostream* stream) {
    *stream << lack.how;
}

class SelftestLackTest : public TqctlSelftest, public testing::WithParamInterface<Lack> {};

TEST_P(SelftestLackTest, IsReported) {
    const Lack& lack = GetParam();
    run_command(lack.how);
    const CommandResult result = selftest();
    const Json report = parse(selftest("-j ").out);
    run_command(
        "mv /dev/log.away /dev/log; mv /dev/flash.away /dev/mtdblock1; "
        "mv /usr/bin/killall.away /usr/bin/killall; mv /usr/sbin/wan.away "
        "/usr/sbin/get_wan_interface.sh; ip link set eth1.away name eth1; ip link set eth1 up");
    EXPECT_EQ(result.status, lack.code) << result.out;
    std::istringstream lines(result.out);
    for (std::string line; std::getline(lines, line);)
        EXPECT_THAT(line, testing::MatchesRegex("(ok|missing|failed) +[a-z]+ .*"));
    EXPECT_THAT(line_of(result, lack.check), AllOf(StartsWith(lack.outcome), HasSubstr(lack.detail),
                                                   Not(HasSubstr("(optional)"))));
    EXPECT_THAT(result.err, AllOf(StartsWith("tqctl: selftest: "),
                                  EndsWith(" of what is required is missing or failed\n")));
    EXPECT_EQ(outcomes(report, true)[lack.check] + " ",
              std::string(lack.outcome).substr(0, outcomes(report, true)[lack.check].size()) + " ");
    EXPECT_NE(member(report, "required_lacking"), "0");
}

INSTANTIATE_TEST_SUITE_P(
    EachInTurn, SelftestLackTest,
    testing::Values(
        Lack{"rm /etc/board.conf", "board library", "missing", kRefused,
             " the board library does not answer; nothing is known of radios"},
        Lack{"sed -i /base_mac/d /etc/board.conf", "board base address", "missing", kRefused,
             " the board has none; no interface's own address is known"},
        Lack{"ip link set eth1 down; ip link set eth1 name eth1.away", "port eth1", "missing",
             kRefused, " no such interface; its link"},
        Lack{"rm /etc/config/wireless", "config wireless", "missing", kRefused,
             " No such file or directory; radios and VAPs have no settings"},
        Lack{"rm /etc/config/wtp", "config wtp", "missing", kRefused,
             " counts as managed, and the state of its controller link is lost"},
        Lack{"echo \"config 'a\" >/etc/config/network", "config network", "failed", kDamaged,
             " the configuration file has a syntax error; the network"},
        Lack{"dd if=/dev/zero of=/dev/mtdblock1 bs=1 count=1 seek=5 conv=notrunc",
             "flash boot block", "failed", kDamaged, " bytes 4 to 7: the first magic number"},
        Lack{"mv /dev/mtdblock1 /dev/flash.away", "flash boot block", "missing", kRefused,
             "/dev/mtdblock1: No such file or directory; images,"},
        Lack{"printf '#!/bin/sh\\n' >/usr/sbin/fw_printenv", "flash primary", "missing", kRefused,
             " primary: not marked as usable; its version"},
        Lack{"rm /usr/sbin/fw_printenv; mv /usr/bin/fw_printenv /usr/bin/fw_printenv.away",
             "command fw_printenv", "missing", kRefused, " no such command; no image"},
        Lack{"mv /usr/sbin/get_wan_interface.sh /usr/sbin/wan.away", "command get_wan_interface.sh",
             "missing", kRefused, " no such command; the WAN's addresses"},
        Lack{"mv /usr/bin/killall /usr/bin/killall.away", "command killall", "missing", kRefused,
             " no such command; the log daemon"},
        Lack{"mv /dev/log /dev/log.away", "device /dev/log", "missing", kRefused,
             " No such file or directory; the lines of library"}));

TEST_F(TqctlSelftest, AMissingBusIsReported) {
    bus_.kill();
    const CommandResult result = selftest();
    EXPECT_EQ(result.status, kRefused);
    EXPECT_THAT(line_of(result, "bus broker"),
                AllOf(StartsWith("missing  "), HasSubstr("no request reaches a daemon")));
    EXPECT_EQ(result.err, "tqctl: selftest: 1 of what is required is missing or failed\n");
}

TEST_F(TqctlSelftest, AFileOfTheKernelWithoutItsFigureHasFailed) {
    const ScopedProc proc({{"mtd", "dev: \n"}, {"meminfo", "nothing\n"}});
    const CommandResult result = selftest();
    EXPECT_EQ(result.status, kDamaged);
    EXPECT_THAT(line_of(result, "file /proc/meminfo"),
                AllOf(StartsWith("failed  "), HasSubstr(" no line has 'MemTotal:'; the memory")));
}

TEST_F(TqctlSelftest, WhatMayNotBeReadEndsWithFour) {
    if (run_command(kWithoutLeakDetector + kNobody + "tqctl --version").status != kDone)
        GTEST_SKIP() << "the build tree is not for every user";
    chmod(kFlash.c_str(), 0600);
    chmod("/etc/config/wtp", 0600);
    const CommandResult result = run_command(kWithoutLeakDetector + kNobody + "tqctl selftest");
    chmod(kFlash.c_str(), 0644);
    EXPECT_EQ(result.status, kNotPermitted) << result.out;
    for (const char* check : {"flash boot block", "config wtp"})
        EXPECT_THAT(line_of(result, check),
                    AllOf(StartsWith("failed  "), HasSubstr("Permission denied")));
}

TEST_F(TqctlSelftest, QuietLeavesTheReport) {
    run_command("rm /etc/config/wireless");
    const CommandResult result = selftest("-q ");
    EXPECT_EQ(result.status, kRefused);
    EXPECT_THAT(result.out, HasSubstr("missing  config wireless"));
    EXPECT_THAT(result.err, IsEmpty());
}

// Names, kinds, modes, owners, sizes, times of change, and contents.
std::string everything() {
    const std::string places = "/etc /tmp /usr/config /overlay /var/log /dev/mtdblock1";
    return run_command("find " + places + " -printf '%p %y %m %U %G %s %T@ %C@\\n' | sort; find " +
                       places + " -type f -exec sha256sum {} + | sort; ip -o link; ubus list")
        .out;
}

TEST_F(TqctlSelftest, ChangesNothingAndLogsNothing) {
    LogCapture log;
    const std::string before = everything();
    ASSERT_THAT(before, HasSubstr("/dev/mtdblock1 f 644"));
    ASSERT_THAT(before, HasSubstr("  /etc/config/wireless\n"));
    selftest();
    selftest("-j ");
    EXPECT_EQ(everything(), before);
    EXPECT_THAT(log.take(), IsEmpty());
}

TEST(TqctlSelftestOnABareDevice, ChangesNothingAndLogsNothing) {
    const Broker bus;
    reset_device();
    run_command("rm /etc/board.conf /etc/config/wireless; echo \"config 'a\" >/etc/config/nat");
    LogCapture log;
    const std::string before = everything();
    EXPECT_NE(tqctl("selftest").status, kDone);
    EXPECT_NE(tqctl("-j selftest").status, kDone);
    EXPECT_EQ(everything(), before);
    EXPECT_THAT(log.take(), IsEmpty());
}

}  // namespace
