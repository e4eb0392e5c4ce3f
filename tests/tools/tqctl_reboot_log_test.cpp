// tqctl_reboot_log_test.cpp - tqctl reboot-log, on a store in /tmp.
#include <gmock/gmock.h>
#include <sys/stat.h>
#include <tq/reboot_cause.h>
#include <unistd.h>

#include <algorithm>
#include <cstring>
#include <string>

#include "tools/tqctl.h"

namespace {

using namespace tq_test;  // NOLINT(google-build-using-namespace)
using testing::HasSubstr;
using testing::MatchesRegex;

constexpr const char* kStore = "/tmp/flash/store";

class TqctlRebootLogTest : public DeviceTest {
  protected:
    TqctlRebootLogTest() {
        write_file("/etc/board.conf", std::string("[partitions]\nreboot_cause = ") + kStore + "\n");
        mkdir("/tmp/flash", 0755);
    }
};

// A record of a run, and the start of the next one.
void run_device(uint8_t cause, uint32_t time, const char* message = "new firmware") {
    reboot_cause_record record{};
    record.cause = cause;
    record.time = time;
    record.uptime = 60;
    memcpy(record.process, "sixteen-letters!", sizeof(record.process));
    strncpy(record.message, message, sizeof(record.message) - 1);
    strncpy(record.location, "upgrade.c:finish:77", sizeof(record.location) - 1);
    ASSERT_EQ(rb_write_reboot_cause_inner(&record), 0);
    ASSERT_EQ(rb_kernel_up_check(), 0);
}

// list

TEST_F(TqctlRebootLogTest, ListPrintsTheNewestFirst) {
    run_device(1, 0);
    ASSERT_EQ(rb_set_ntp_sync_flag(1), 0);
    run_device(200, 1700000000, "a message");
    run_device(3, 4294967295);
    const std::string newest =
        "3\t3\t2023-11-14T22:14:30Z\testimated\t60\tsixteen-letters!\tnew firmware\t"
        "upgrade.c:finish:77\n";
    EXPECT_TRUE(succeeds(
        tqctl("reboot-log list"),
        newest + "2\t200\t2023-11-14T22:13:20Z\tsynchronised\t60\tsixteen-letters!\ta message\t"
                 "upgrade.c:finish:77\n"
                 "1\t1\t1970-01-01T00:00:00Z\tunknown\t60\tsixteen-letters!\tnew firmware\t"
                 "upgrade.c:finish:77\n"));
    EXPECT_TRUE(succeeds(tqctl("reboot-log list 1"), newest));
    EXPECT_TRUE(
        succeeds(tqctl("-j reboot-log list 1"),
                 "[{\"sequence\":3,\"cause\":3,\"time\":1700000070,\"time_quality\":\"estimated\","
                 "\"uptime\":60,\"process\":\"sixteen-letters!\",\"message\":\"new firmware\","
                 "\"location\":\"upgrade.c:finish:77\"}]\n"));
}

TEST_F(TqctlRebootLogTest, ListPrintsNothingWhereThereIsNothing) {
    EXPECT_TRUE(succeeds(tqctl("reboot-log list"), ""));
    EXPECT_TRUE(succeeds(tqctl("-j reboot-log list"), "[]\n"));
}

TEST_F(TqctlRebootLogTest, ListPrintsNoControlCharacters) {
    run_device(1, 0, "\x1b[2Jtab\tline\nb\x7f\xc3\xa9\xff");
    std::string image = read_file(kStore);
    image[36 + 3] = '\x09';
    write_file(kStore, image);
    EXPECT_TRUE(succeeds(tqctl("reboot-log list"),
                         "1\t1\t1970-01-01T00:00:00Z\tinvalid\t60\tsixteen-letters!\t"
                         "?[2Jtab?line?b?\xc3\xa9\xff\tupgrade.c:finish:77\n"));
    const CommandResult json = tqctl("-j reboot-log list");
    EXPECT_NE(parse(json.out), nullptr);
    EXPECT_THAT(json.out, HasSubstr("\\u001b[2Jtab\\tline\\nb\x7f\xc3\xa9\xef\xbf\xbd"));
}

TEST_F(TqctlRebootLogTest, ListTakesANumberFrom1To20) {
    for (const char* number : {"0", "21", "-1", "x", "1x", "''", "99999999999999999999"}) {
        EXPECT_TRUE(fails(tqctl(std::string("reboot-log list ") + number), kUsage,
                          "is not a number from 1 to 20"));
    }
    for (int i = 0; i < 21; i++)
        run_device(1, 0);
    const std::string lines = tqctl("reboot-log list 20").out;
    EXPECT_EQ(std::count(lines.begin(), lines.end(), '\n'), 20);
}

// stats

TEST_F(TqctlRebootLogTest, StatsPrintsTheCounters) {
    for (const int cause : {1, 1, 2, 3, 3, 3, 6, 7, 5, 0, 8})
        run_device(static_cast<uint8_t>(cause), 0);
    EXPECT_TRUE(succeeds(tqctl("reboot-log stats"),
                         "total=11\ncause1=2\ncause2=1\ncause3=3\ncause4=2\ncause5=1\nother=2\n"
                         "last_cause=8\n"));
    EXPECT_TRUE(succeeds(tqctl("-j reboot-log stats"),
                         "{\"total\":11,\"cause1\":2,\"cause2\":1,\"cause3\":3,\"cause4\":2,"
                         "\"cause5\":1,\"other\":2,\"last_cause\":8}\n"));
}

// add

TEST_F(TqctlRebootLogTest, AddRecordsTheCauseOnce) {
    EXPECT_TRUE(succeeds(tqctl("reboot-log add 2 '100% new %s'"), ""));
    EXPECT_TRUE(fails(tqctl("reboot-log add 3 other"), kRefused, "has its record already"));
    reboot_cause_record record{};
    ASSERT_EQ(rb_read_reboot_cause(&record, 1), 1);
    EXPECT_EQ(record.cause, 2);
    EXPECT_STREQ(record.message, "100% new %s");
    EXPECT_THAT(record.location, MatchesRegex("tqctl:reboot-log add:[0-9]+"));
    EXPECT_STREQ(record.process, "tqctl");
}

TEST_F(TqctlRebootLogTest, AddRefusesAMessageThatWouldBeCut) {
    EXPECT_TRUE(
        fails(tqctl("reboot-log add 2 " + std::string(48, 'm')), kRefused, "at most 47 bytes"));
    EXPECT_FALSE(exists(kStore));
    EXPECT_TRUE(succeeds(tqctl("reboot-log add 255 " + std::string(47, 'm')), ""));
}

TEST_F(TqctlRebootLogTest, AddTakesANumberFrom0To255) {
    for (const char* number : {"256", "-1", "x", "2x", "''"}) {
        EXPECT_TRUE(fails(tqctl(std::string("reboot-log add ") + number + " text"), kUsage,
                          "is not a number from 0 to 255"));
    }
    EXPECT_FALSE(exists(kStore));
    EXPECT_TRUE(succeeds(tqctl("reboot-log add 0 text"), ""));
}

// panic

void put_panic(const std::string& text) {
    ASSERT_TRUE(succeeds(tqctl("reboot-log list"), ""));
    std::string image = read_file(kStore);
    image[24] = '\x07';
    image.replace(23076, text.size(), text);
    write_file(kStore, image);
}

TEST_F(TqctlRebootLogTest, PanicPrintsTheText) {
    put_panic("Oops\nCPU 0\n");
    EXPECT_TRUE(succeeds(tqctl("reboot-log panic 7"), "Oops\nCPU 0\n"));
    EXPECT_TRUE(succeeds(tqctl("-j reboot-log panic 7"), "{\"text\":\"Oops\\nCPU 0\"}\n"));
}

TEST_F(TqctlRebootLogTest, PanicPrintsATextThatFillsItsPlace) {
    put_panic(std::string(20480, 'p'));
    EXPECT_TRUE(succeeds(tqctl("reboot-log panic 7"), std::string(20480, 'p') + "\n"));
}

TEST_F(TqctlRebootLogTest, PanicIsRefusedWhereThereIsNone) {
    EXPECT_TRUE(fails(tqctl("reboot-log panic 0"), kRefused, "no panic has the identifier 0"));
    EXPECT_TRUE(fails(tqctl("reboot-log panic 7"), kRefused, "no panic has the identifier 7"));
    for (const char* number : {"65536", "-1", "x", "''"}) {
        EXPECT_TRUE(fails(tqctl(std::string("reboot-log panic ") + number), kUsage,
                          "is not a number from 0 to 65535"));
    }
}

// check

TEST_F(TqctlRebootLogTest, CheckTellsHowTheLastRunEnded) {
    ASSERT_TRUE(succeeds(tqctl("reboot-log add 1 text"), ""));
    EXPECT_TRUE(succeeds(tqctl("reboot-log check"), "planned\n"));
    EXPECT_TRUE(succeeds(tqctl("reboot-log check"), "unplanned\n"));
    EXPECT_TRUE(succeeds(tqctl("-j reboot-log check"), "{\"reset\":\"unplanned\"}\n"));
    EXPECT_THAT(tqctl("reboot-log list 1").out,
                HasSubstr("\ttqctl\tPower down\treboot_cause.c:rb_kernel_up_check:397\n"));
}

// fix-times

TEST_F(TqctlRebootLogTest, FixTimesCorrectsWhatWasRecordedWithoutAClock) {
    run_device(1, 0);
    run_device(1, 0);
    EXPECT_TRUE(succeeds(tqctl("reboot-log fix-times"), "2\n"));
    EXPECT_TRUE(succeeds(tqctl("-j reboot-log fix-times"), "{\"corrected\":0}\n"));
    EXPECT_THAT(tqctl("reboot-log list 1").out, HasSubstr("\tcorrected\t"));
}

TEST_F(TqctlRebootLogTest, FixTimesNeedsTheUptime) {
    const ScopedBind no_number("/proc/uptime", "");
    EXPECT_TRUE(fails(tqctl("reboot-log fix-times"), kInputOutput, "the uptime cannot be read"));
}

// What keeps the store from being used is said.

constexpr const char* kVerbs[] = {"list", "stats", "add 1 text", "panic 1", "check", "fix-times"};

TEST_F(TqctlRebootLogTest, SaysThatTheBoardNamesNoFile) {
    write_file("/etc/board.conf", "[partitions]\nprimary_image = firmware\n");
    for (const char* verb : kVerbs) {
        EXPECT_TRUE(fails(tqctl(std::string("reboot-log ") + verb), kRefused,
                          "the board names no file for the records"));
    }
}

TEST_F(TqctlRebootLogTest, SaysWhyTheStoreCannotBeOpened) {
    write_file(kStore, "");
    chmod(kStore, 0600);
    for (const char* verb : kVerbs) {
        EXPECT_TRUE(fails(run_command(kNobody + "tqctl reboot-log " + verb), kNotPermitted,
                          "/tmp/flash/store: Permission denied"));
    }
    const ReadOnly locked("/tmp/flash");
    for (const char* verb : kVerbs) {
        EXPECT_TRUE(fails(tqctl(std::string("reboot-log ") + verb), kInputOutput,
                          "/tmp/flash/store: Read-only file system"));
    }
}

TEST_F(TqctlRebootLogTest, SaysThatAFullDiskHasNoRoom) {
    const FullDisk full("/tmp/flash");
    for (const char* verb : kVerbs) {
        EXPECT_TRUE(fails(tqctl(std::string("reboot-log ") + verb), kInputOutput,
                          "/tmp/flash/store: does not take what is written"));
    }
}

}  // namespace
