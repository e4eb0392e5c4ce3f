// tqctl_log_test.cpp - the commands on known processes and on the log's configuration.
#include <gmock/gmock.h>
#include <signal.h>
#include <sys/mount.h>
#include <unistd.h>

#include <string>

#include "support/named_process.h"
#include "tools/tqctl.h"

namespace {

using namespace tq_test;  // NOLINT(google-build-using-namespace)
using testing::HasSubstr;
using testing::Not;
using testing::StartsWith;

constexpr const char* kConfig = "/etc/syslogd.conf";

class TqctlLogTest : public tq_test::DeviceTest {
  protected:
    // "killall" has somebody to tell.
    TqctlLogTest() : syslogd_("syslogd", [] { signal(SIGHUP, count_signal); }) {
        unlink(kConfig);
        shared()->signals = 0;
    }
    ~TqctlLogTest() override { unlink(kConfig); }

    void SetUp() override { ASSERT_TRUE(exists("/run/tqdevice/ready")); }

    const NamedProcess syslogd_;
};

// ps

TEST_F(TqctlLogTest, RunningTellsByItsExitCodeToo) {
    const CommandResult stopped = tqctl("ps running hostapd");
    EXPECT_EQ(stopped.status, kRefused);
    EXPECT_EQ(stopped.out, "no\n");
    EXPECT_EQ(stopped.err, "");
    const NamedProcess hostapd("hostapd");
    EXPECT_TRUE(succeeds(tqctl("ps running hostapd"), "yes\n"));
    EXPECT_TRUE(succeeds(tqctl("ps running 11"), "yes\n"));
    EXPECT_TRUE(succeeds(tqctl("-j ps running hostapd"), "{\"running\":\"yes\"}\n"));
}

TEST_F(TqctlLogTest, RunningListsAllThatRun) {
    EXPECT_TRUE(succeeds(tqctl("ps running"), ""));
    EXPECT_TRUE(succeeds(tqctl("-j ps running"), "{\"running\":[]}\n"));
    const NamedProcess diagd("diagd");
    const NamedProcess klogd("klogd");
    EXPECT_TRUE(succeeds(tqctl("ps running"), "klogd\ndiagd\n"));
    EXPECT_TRUE(succeeds(tqctl("-j ps running"), "{\"running\":[\"klogd\",\"diagd\"]}\n"));
}

TEST_F(TqctlLogTest, RunningWantsAKnownProcess) {
    for (const char* process : {"nobody", "54", "42", "0", "unknown", "''", "11x", "-1"})
        EXPECT_TRUE(
            fails(tqctl(std::string("ps running ") + process), kUsage, "not a known process"));
}

TEST_F(TqctlLogTest, RunningSaysThatProcCannotBeRead) {
#ifdef TQ_SANITIZED
    GTEST_SKIP() << "the sanitizer's leak checker needs /proc itself";
#endif
    const ScopedMount hidden("tmpfs", "/proc", "tmpfs", 0, "mode=0700");
    EXPECT_TRUE(fails(run_command(kNobody + "tqctl ps running klogd"), kInputOutput, "/proc"));
    EXPECT_TRUE(fails(run_command(kNobody + "tqctl ps running"), kInputOutput, "/proc"));
}

// log level

TEST_F(TqctlLogTest, LevelReachesTheProcess) {
    const NamedProcess hostapd("hostapd", [] { signal(49, count_signal); });
    EXPECT_TRUE(succeeds(tqctl("log level hostapd"), "3\n"));
    EXPECT_TRUE(succeeds(tqctl("log level hostapd debug"), ""));
    EXPECT_TRUE(becomes([] { return shared()->signals == 1; }));
    EXPECT_EQ(read_file("/tmp/.loglvl.hostapd"), "hostapd 7\n");
    EXPECT_TRUE(succeeds(tqctl("log level 11"), "7\n"));
    EXPECT_TRUE(succeeds(tqctl("-j log level hostapd"), "{\"level\":7}\n"));
    EXPECT_TRUE(succeeds(tqctl("log level hostapd 0"), ""));
    EXPECT_TRUE(succeeds(tqctl("log level hostapd"), "0\n"));
}

TEST_F(TqctlLogTest, LevelIsPushedWhereNoneWasBefore) {
    EXPECT_TRUE(succeeds(tqctl("log level hostapd err"), ""));
    EXPECT_EQ(read_file("/tmp/.loglvl.hostapd"), "hostapd 3\n");
}

TEST_F(TqctlLogTest, LevelSetsAllAndSparesOthers) {
    EXPECT_TRUE(succeeds(tqctl("log level all 5"), ""));
    EXPECT_EQ(read_file("/tmp/.loglvl.kernel"), "klogd 5\n");
    EXPECT_EQ(read_file("/tmp/.loglvl.diag"), "diagd 5\n");
    EXPECT_TRUE(succeeds(tqctl("log level klogd 6"), ""));
    EXPECT_TRUE(succeeds(tqctl("log level diagd"), "5\n"));
}

TEST_F(TqctlLogTest, LevelReadsAnAcknowledgedFile) {
    write_file("/tmp/.loglvl.kernel", "kernel_r 6\n");
    EXPECT_TRUE(succeeds(tqctl("log level klogd"), "6\n"));
}

TEST_F(TqctlLogTest, LevelRefusesWhatIsNone) {
    for (const char* level : {"8", "-1", "loud", "''", "3x", "99999999999"})
        EXPECT_TRUE(fails(tqctl(std::string("log level klogd ") + level), kUsage, "not a level"));
    EXPECT_TRUE(fails(tqctl("log level nobody 3"), kUsage, "not a known process"));
    EXPECT_TRUE(fails(tqctl("log level all"), kUsage, "which level"));
    EXPECT_FALSE(exists("/tmp/.loglvl.kernel"));
}

TEST_F(TqctlLogTest, LevelSaysThatItCannotWrite) {
    EXPECT_TRUE(succeeds(tqctl("log level klogd 3"), ""));
    EXPECT_TRUE(fails(run_command(kNobody + "tqctl log level klogd 4"), kInputOutput,
                      "klogd: its level file"));
    EXPECT_TRUE(succeeds(tqctl("log level klogd"), "3\n"));
}

// log server, size, trace

TEST_F(TqctlLogTest, ServerSwitchesRemoteLoggingOnAndOff) {
    EXPECT_TRUE(succeeds(tqctl("log server klogd"), "0.0.0.0\n"));
    EXPECT_TRUE(succeeds(tqctl("log server klogd 192.0.2.7"), ""));
    EXPECT_TRUE(becomes([] { return shared()->signals == 1; }));
    EXPECT_EQ(read_file("/tmp/syslogserver"), "on logging");
    EXPECT_THAT(read_file(kConfig), HasSubstr("!|kernel|\nlocal5.*\t\t@192.0.2.7\n\n"));
    EXPECT_TRUE(succeeds(tqctl("log server klogd"), "192.0.2.7\n"));
    EXPECT_TRUE(succeeds(tqctl("-j log server klogd"), "{\"server\":\"192.0.2.7\"}\n"));
    EXPECT_TRUE(succeeds(tqctl("log server off"), ""));
    EXPECT_EQ(read_file("/tmp/syslogserver"), "close logging");
    EXPECT_THAT(read_file(kConfig), Not(HasSubstr("@")));
    EXPECT_TRUE(succeeds(tqctl("log server klogd"), "0.0.0.0\n"));
}

TEST_F(TqctlLogTest, ServerKeepsWhatWasSetBefore) {
    EXPECT_TRUE(succeeds(tqctl("log size 100"), ""));
    EXPECT_TRUE(succeeds(tqctl("log trace 192.0.2.9 514 info 77"), ""));
    EXPECT_TRUE(succeeds(tqctl("log server all 192.0.2.7"), ""));
    EXPECT_TRUE(succeeds(tqctl("log server diagd 192.0.2.8"), ""));
    EXPECT_TRUE(succeeds(tqctl("log server dnsmasq 0.0.0.0"), ""));
    EXPECT_TRUE(succeeds(tqctl("log server klogd"), "192.0.2.7\n"));
    EXPECT_TRUE(succeeds(tqctl("log server diagd"), "192.0.2.8\n"));
    EXPECT_TRUE(succeeds(tqctl("log server dnsmasq"), "0.0.0.0\n"));
    EXPECT_TRUE(succeeds(tqctl("log server ntpd"), "192.0.2.7\n"));
    EXPECT_THAT(read_file(kConfig), HasSubstr("system.log 102400 666\n"));
    EXPECT_THAT(read_file(kConfig), HasSubstr("&192.0.2.9 514 77\n"));
    EXPECT_TRUE(succeeds(tqctl("log size 10240"), ""));
    EXPECT_TRUE(succeeds(tqctl("log server diagd"), "192.0.2.8\n"));
}

TEST_F(TqctlLogTest, ServerRefusesWhatIsNone) {
    for (const char* address : {"192.0.2", "2001:db8::1", "host", "''", "192.0.2.256"})
        EXPECT_TRUE(
            fails(tqctl(std::string("log server klogd ") + address), kUsage, "not an IPv4"));
    EXPECT_TRUE(fails(tqctl("log server nobody 192.0.2.7"), kUsage, "not a known process"));
    EXPECT_TRUE(fails(tqctl("log server all"), kUsage, "which server"));
    EXPECT_FALSE(exists(kConfig));
}

TEST_F(TqctlLogTest, SizeShowsAndSetsTheLimit) {
    EXPECT_TRUE(succeeds(tqctl("log size"), "2048\n"));
    EXPECT_TRUE(succeeds(tqctl("log size 10"), ""));
    EXPECT_THAT(read_file(kConfig), HasSubstr("system.log 10240 666\n"));
    EXPECT_TRUE(succeeds(tqctl("log size"), "10\n"));
    EXPECT_TRUE(succeeds(tqctl("-j log size"), "{\"size\":10}\n"));
    for (const char* size : {"9", "10241", "x", "''", "10k", "-10", "99999999999"})
        EXPECT_TRUE(fails(tqctl(std::string("log size ") + size), kUsage, "not a size"));
    EXPECT_TRUE(succeeds(tqctl("log size"), "10\n"));
}

TEST_F(TqctlLogTest, TraceStartsAndEnds) {
    EXPECT_TRUE(succeeds(tqctl("log trace"), "off\n"));
    EXPECT_TRUE(succeeds(tqctl("log trace 192.0.2.9 5140 debug 18446744073709551615"), ""));
    EXPECT_THAT(read_file(kConfig),
                HasSubstr("\nlocal5.*\t\t&192.0.2.9 5140 18446744073709551615\n\n"));
    EXPECT_EQ(read_file("/tmp/.loglvl.kernel"), "klogd 7\n");
    EXPECT_TRUE(succeeds(tqctl("log trace"), "on\n"));
    EXPECT_TRUE(succeeds(tqctl("-j log trace"), "{\"trace\":\"on\"}\n"));
    EXPECT_TRUE(succeeds(tqctl("log trace off"), ""));
    EXPECT_THAT(read_file(kConfig), Not(HasSubstr("&")));
    EXPECT_EQ(read_file("/tmp/.loglvl.kernel"), "klogd 3\n");
    EXPECT_TRUE(fails(tqctl("log trace off"), kRefused, "no trace is on"));
}

TEST_F(TqctlLogTest, TraceRefusesWhatItCannotStart) {
    EXPECT_TRUE(fails(tqctl("log trace 192.0.2.9"), kUsage, "HOST PORT LEVEL"));
    EXPECT_TRUE(fails(tqctl("log trace 192.0.2.9 514"), kUsage, "HOST PORT LEVEL"));
    for (const char* port : {"0", "65536", "x", "''"})
        EXPECT_TRUE(
            fails(tqctl(std::string("log trace 192.0.2.9 ") + port + " 7"), kUsage, "not a port"));
    EXPECT_TRUE(fails(tqctl("log trace 192.0.2.9 514 8"), kUsage, "not a level"));
    EXPECT_TRUE(fails(tqctl("log trace 192.0.2.9 514 7 x"), kUsage, "not an identifier"));
    EXPECT_TRUE(fails(tqctl("log trace 'no host' 514 7"), kRefused, "no address"));
    EXPECT_FALSE(exists(kConfig));
}

TEST_F(TqctlLogTest, SaysThatTheConfigurationCannotBeWritten) {
    write_file(kConfig, "old\n");
    for (const char* command :
         {"size 10", "server klogd 192.0.2.7", "server off", "trace 192.0.2.9 514 7"}) {
        EXPECT_TRUE(fails(run_command(kNobody + "tqctl log " + command), kNotPermitted, kConfig))
            << command;
    }
    EXPECT_EQ(read_file(kConfig), "old\n");
    EXPECT_FALSE(exists("/tmp/.loglvl.kernel"));
}

// The library would cut the files, and not tell.
TEST_F(TqctlLogTest, LeavesTheConfigurationWhereTheDiskIsFull) {
    EXPECT_EQ(tqctl("log server all 192.0.2.7").status, kDone);
    const std::string before = read_file(kConfig);
    for (const char* directory : {"/etc", "/tmp"}) {
        const FullDisk full(directory);
        for (const char* command : {"server off", "size 4096", "trace 192.0.2.7 5140 debug"})
            EXPECT_TRUE(fails(tqctl(std::string("log ") + command), kInputOutput,
                              std::string(directory) + ": No space left on device"))
                << command;
        EXPECT_EQ(read_file(kConfig), before);
        EXPECT_EQ(read_file("/tmp/syslogserver"), "on logging");
    }
}

// log show

TEST_F(TqctlLogTest, ShowListsTheTable) {
    const CommandResult result = tqctl("log show");
    EXPECT_EQ(result.status, kDone);
    EXPECT_THAT(result.out, StartsWith(" 0 unknown         3 local5   0.0.0.0\n"
                                       " 1 klogd           3 local5   0.0.0.0\n"));
    EXPECT_THAT(result.out, HasSubstr("10 crond           3 cron     0.0.0.0\n"));
    EXPECT_EQ(std::count(result.out.begin(), result.out.end(), '\n'), 56);
}

TEST_F(TqctlLogTest, ShowGivesJson) {
    tqctl("log size 20");
    tqctl("log server klogd 192.0.2.7");
    const Json json = parse(tqctl("-j log show").out);
    EXPECT_EQ(member(json, "remote"), "true");
    EXPECT_EQ(member(json, "size"), "20");
    EXPECT_EQ(member(json, "trace"), "false");
    EXPECT_THAT(member(json, "processes"), HasSubstr("\"name\": \"klogd\", \"tag\": \"kernel\""));
    EXPECT_THAT(member(json, "processes"), HasSubstr("\"server\": \"192.0.2.7\""));
}

TEST_F(TqctlLogTest, ShowLeavesALevelBeyond32BitsAlone) {
    write_file("/tmp/.loglvl.kernel", "klogd 4294967302\n");
    EXPECT_THAT(tqctl("log show").out, HasSubstr(" 1 klogd           3 local5   0.0.0.0\n"));
}

TEST_F(TqctlLogTest, ShowReadsALevelInFrontOfOtherText) {
    write_file("/tmp/.loglvl.kernel", "klogd 6abc\n");
    EXPECT_THAT(tqctl("log show").out, HasSubstr(" 1 klogd           6 local5   0.0.0.0\n"));
}

TEST_F(TqctlLogTest, ShowSurvivesDamagedFiles) {
    write_file(kConfig, "!|kernel|\n!|" + std::string(5000, 'x') +
                            "|\nlocal5.*\t\t@999.1.1.1\nlocal5.*\t\t@\nlocal5.*\t\t&1 2\n"
                            "x\t\t%/var/log/system.log x\n\n%n%s\n!|");
    write_file("/tmp/.loglvl.kernel", "no number");
    write_file("/tmp/syslogserver", "");
    EXPECT_THAT(tqctl("log show").out, HasSubstr(" 1 klogd           3 local5   0.0.0.0\n"));
}

}  // namespace
