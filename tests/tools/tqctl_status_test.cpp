// tqctl_status_test.cpp - the commands on the daemons' shared state and on the upgrade lock.
#include <gmock/gmock.h>
#include <sys/stat.h>
#include <unistd.h>

#include <string>

#include "tools/tqctl.h"

namespace {

using namespace tq_test;  // NOLINT(google-build-using-namespace)
using testing::HasSubstr;
using testing::MatchesRegex;

class TqctlStatusTest : public tq_test::DeviceTest {
  protected:
    ~TqctlStatusTest() override { unlink("/usr/config/coredump_server"); }
};

// status

TEST_F(TqctlStatusTest, OfflineRecordsAndShowsTheReason) {
    EXPECT_TRUE(fails(tqctl("status offline"), kRefused, "nothing is recorded"));
    EXPECT_TRUE(succeeds(tqctl("status offline 6"), ""));
    EXPECT_THAT(tqctl("status offline").out,
                MatchesRegex("reason=Network Timeout\ntime=[0-9]+-[0-9]+-[0-9]+ [0-9:]+\n"));
    EXPECT_EQ(member(parse(tqctl("-j status offline").out), "reason"), "Network Timeout");
}

TEST_F(TqctlStatusTest, OfflineTakesACodeFrom1To6) {
    for (const char* code : {"0", "7", "-1", "x", "1x", "''", "99999999999"}) {
        EXPECT_TRUE(fails(tqctl(std::string("status offline ") + code), kUsage, "is not a code"));
    }
    EXPECT_FALSE(exists("/tmp/.offline.reason"));
}

TEST_F(TqctlStatusTest, OfflineSaysWhyItCannotRecord) {
    EXPECT_TRUE(succeeds(tqctl("status offline 1"), ""));
    EXPECT_TRUE(
        fails(run_command(kNobody + "tqctl status offline 2"), kNotPermitted, "Permission denied"));
    unlink("/tmp/.offline.reason");
    const FullDisk full("/tmp");
    EXPECT_TRUE(fails(tqctl("status offline 2"), kInputOutput, "it could not be written"));
}

// A time zone that is not installed is no failure to record.
TEST_F(TqctlStatusTest, OfflineIsRecordedWithoutATimeZone) {
    EXPECT_TRUE(succeeds(run_command("TZ=No/Where tqctl status offline 2"), ""));
    EXPECT_THAT(tqctl("status offline").out, testing::StartsWith("reason=Change AC\n"));
}

TEST_F(TqctlStatusTest, TrafficIsUpUntilItIsDown) {
    EXPECT_TRUE(succeeds(tqctl("status traffic"), "up\n"));
    EXPECT_TRUE(succeeds(tqctl("status traffic down"), ""));
    EXPECT_TRUE(succeeds(tqctl("status traffic"), "down\n"));
    EXPECT_TRUE(succeeds(tqctl("-j status traffic"), "{\"traffic\":\"down\"}\n"));
    EXPECT_TRUE(succeeds(tqctl("status traffic up"), ""));
    EXPECT_TRUE(succeeds(tqctl("status traffic"), "up\n"));
    EXPECT_TRUE(fails(tqctl("status traffic sideways"), kUsage, "neither up nor down"));
}

TEST_F(TqctlStatusTest, TrafficSaysWhyItCannotRecord) {
    tqctl("status traffic up");
    EXPECT_TRUE(fails(run_command(kNobody + "tqctl status traffic down"), kNotPermitted,
                      "Permission denied"));
    unlink("/tmp/.traffic_statistics_upload");
    const FullDisk full("/tmp");
    EXPECT_TRUE(fails(tqctl("status traffic down"), kInputOutput, "it could not be written"));
}

TEST_F(TqctlStatusTest, CapwapStoresANumber) {
    write_file("/etc/config/wtp", "config capwap\n");
    EXPECT_TRUE(fails(tqctl("status capwap"), kRefused, "no status is stored"));
    EXPECT_TRUE(succeeds(tqctl("status capwap 3"), ""));
    EXPECT_TRUE(succeeds(tqctl("status capwap"), "3\n"));
    EXPECT_TRUE(succeeds(tqctl("-j status capwap"), "{\"capwap\":3}\n"));
    // What -1 would read back as is nothing.
    for (const char* number : {"many", "-1", "2147483648"})
        EXPECT_TRUE(fails(tqctl(std::string("status capwap ") + number), kUsage, "not a number"));
    write_file("/etc/config/wtp", "");
    EXPECT_TRUE(fails(tqctl("status capwap 3"), kRefused, "wtp: no section of type capwap"));
}

TEST_F(TqctlStatusTest, CapwapSaysWhatIsWrongWithTheFile) {
    chmod("/etc/config/wtp", 0600);
    EXPECT_TRUE(fails(run_command(kNobody + "tqctl status capwap"), kNotPermitted,
                      "wtp: Permission denied"));
    write_file("/etc/config/wtp", "config 'capwap\n");
    EXPECT_TRUE(fails(tqctl("status capwap"), kDamaged, "wtp: the configuration file has"));
    unlink("/etc/config/wtp");
    EXPECT_TRUE(fails(tqctl("status capwap"), kRefused, "wtp: No such file"));
    EXPECT_TRUE(fails(tqctl("status capwap 3"), kRefused, "wtp: No such file"));
}

TEST_F(TqctlStatusTest, CapwapStagesNothingThatCannotBeWritten) {
    {
        const ReadOnly locked("/etc/config");
        EXPECT_TRUE(fails(tqctl("status capwap 3"), kInputOutput, "wtp: Read-only file system"));
    }
    EXPECT_EQ(run_command("uci changes").out, "");
}

TEST_F(TqctlStatusTest, SaysWhatMayNotBeRead) {
    tqctl("status offline 1; tqctl status traffic down; tqctl status coredump 192.0.2.7");
    run_command("chmod 600 /tmp/.offline.reason /tmp/.traffic* /usr/config/coredump_server");
    for (const char* verb : {"offline", "traffic", "coredump"})
        EXPECT_TRUE(fails(run_command(kNobody + "tqctl status " + verb), kNotPermitted,
                          "Permission denied"))
            << verb;
}

TEST_F(TqctlStatusTest, CoredumpStoresShowsAndForgetsTheServer) {
    EXPECT_TRUE(fails(tqctl("status coredump"), kRefused, "no server is stored"));
    EXPECT_TRUE(succeeds(tqctl("status coredump 192.0.2.7"), ""));
    EXPECT_TRUE(succeeds(tqctl("status coredump"), "192.0.2.7\n"));
    EXPECT_TRUE(succeeds(tqctl("status coredump 1234567890123456"), ""));
    EXPECT_TRUE(succeeds(tqctl("status coredump"), "1234567890123456\n"));
    EXPECT_TRUE(fails(tqctl("status coredump 12345678901234567"), kRefused, "at most 16 bytes"));
    EXPECT_TRUE(succeeds(tqctl("status coredump ''"), ""));
    EXPECT_TRUE(succeeds(tqctl("status coredump ''"), ""));
    EXPECT_TRUE(fails(tqctl("status coredump"), kRefused, "no server is stored"));
}

TEST_F(TqctlStatusTest, CoredumpSaysWhyItCannotStore) {
    const ReadOnly config("/usr/config");
    EXPECT_TRUE(fails(tqctl("status coredump 192.0.2.7"), kInputOutput, "Read-only file system"));
}

// upgrade

TEST_F(TqctlStatusTest, LockIsKeptUntilUnlock) {
    EXPECT_TRUE(succeeds(tqctl("upgrade status"), "lock=free\n"));
    const CommandResult lock = tqctl("upgrade lock");
    ASSERT_EQ(lock.status, kDone);
    const std::string pid = lock.out.substr(0, lock.out.size() - 1);
    EXPECT_TRUE(
        succeeds(tqctl("upgrade status"), "lock=held\npid=" + pid + "\nname=tqctl-upgrade\n"));
    EXPECT_TRUE(succeeds(tqctl("-j upgrade status"),
                         "{\"lock\":\"held\",\"pid\":" + pid + ",\"name\":\"tqctl-upgrade\"}\n"));
    EXPECT_TRUE(fails(tqctl("upgrade lock"), kBusy, "process " + pid + " (tqctl-upgrade) holds"));
    EXPECT_TRUE(succeeds(tqctl("upgrade unlock"), ""));
    EXPECT_TRUE(succeeds(tqctl("-j upgrade status"), "{\"lock\":\"free\"}\n"));
    EXPECT_TRUE(fails(tqctl("upgrade unlock"), kRefused, "not held"));
}

TEST_F(TqctlStatusTest, RunHoldsTheLockAndEndsWithTheCommandsCode) {
    EXPECT_EQ(tqctl("upgrade run -- tqctl upgrade lock").status, kBusy);
    EXPECT_EQ(tqctl("upgrade run sh -c 'exit 42'").status, 42);
    EXPECT_EQ(tqctl("upgrade run -- sh -c 'kill -TERM $$'").status, 128 + 15);
    EXPECT_TRUE(succeeds(tqctl("-j upgrade run -- echo done"), "done\n"));
    EXPECT_TRUE(succeeds(tqctl("upgrade status"), "lock=free\n"));
}

TEST_F(TqctlStatusTest, RunHoldsTheLockOverAnInterruptUntilTheCommandEnds) {
    for (const char* number : {"INT", "QUIT"}) {
        const std::string interrupt = std::string("kill -") + number;
        EXPECT_EQ(tqctl("upgrade run -- sh -c '" + interrupt + " $PPID; exit 42'").status, 42);
        EXPECT_GT(tqctl("upgrade run -- sh -c '" + interrupt + " $$; exit 42'").status, 128);
    }
}

TEST_F(TqctlStatusTest, RunRunsNothingWhileTheLockIsHeld) {
    tqctl("upgrade lock");
    EXPECT_TRUE(fails(tqctl("upgrade run -- touch /tmp/ran"), kBusy, "holds the lock"));
    EXPECT_FALSE(exists("/tmp/ran"));
    EXPECT_TRUE(succeeds(tqctl("upgrade unlock"), ""));
}

TEST_F(TqctlStatusTest, RunSaysWhyTheCommandCannotRun) {
    EXPECT_TRUE(fails(tqctl("upgrade run --"), kUsage, "a command is needed"));
    const CommandResult missing = tqctl("upgrade run -- no-such-command");
    EXPECT_EQ(missing.status, 127);
    EXPECT_THAT(missing.err, HasSubstr("no-such-command: No such file or directory"));
    EXPECT_EQ(tqctl("upgrade run -- no-such-command 2>/dev/full").status, 127);
    EXPECT_EQ(tqctl("upgrade run -- /tmp").status, 126);
}

TEST_F(TqctlStatusTest, UnlockLeavesAnotherHolderAlone) {
    const CommandResult result = tqctl("upgrade run -- tqctl upgrade unlock");
    EXPECT_EQ(result.status, kBusy);
    EXPECT_THAT(result.err,
                MatchesRegex("tqctl: upgrade unlock: process [0-9]+ \\(.*\\) holds the lock\n"));
}

}  // namespace
