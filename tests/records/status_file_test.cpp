// status_file_test.cpp - the state that the daemons share: every file byte for byte, what damaged
// ones read as, and the upgrade lock between processes.
#include "tq/status_file.h"

#include <fcntl.h>
#include <signal.h>
#include <sys/prctl.h>
#include <sys/resource.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/un.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cerrno>
#include <climits>
#include <cstddef>
#include <cstdlib>
#include <cstring>
#include <ctime>
#include <regex>
#include <string>
#include <vector>

#include "support/buffer.h"
#include "support/device.h"
#include "support/faults.h"
#include "support/log_capture.h"

namespace {

using testing::ElementsAre;
using testing::IsEmpty;
using tq_test::as_nobody;
using tq_test::exists;
using tq_test::FullDisk;
using tq_test::kUntouched;
using tq_test::Line;
using tq_test::LineAt;
using tq_test::LogCapture;
using tq_test::read_file;
using tq_test::ReadOnly;
using tq_test::run_command;
using tq_test::write_file;
using tq_test::faults::count;

constexpr const char* kOfflineReason = "/tmp/.offline.reason";
constexpr const char* kTrafficUpload = "/tmp/.traffic_statistics_upload";
constexpr const char* kServer = "/usr/config/coredump_server";
constexpr const char* kScript = "/usr/bin/backup_log.sh";

// The record is part of the interface.
static_assert(offsetof(offline_reason_info, reason_length) == 0);
static_assert(offsetof(offline_reason_info, reason) == 4);
static_assert(offsetof(offline_reason_info, time_length) == 132);
static_assert(offsetof(offline_reason_info, time) == 136);
static_assert(sizeof(offline_reason_info) == 168);

class StatusFileTest : public tq_test::DeviceTest {
  protected:
    ~StatusFileTest() override {
        unlink(kServer);
        unlink(kScript);
    }

    LogCapture log_;
};

// offline reason

class OfflineReasonTest : public StatusFileTest {
  protected:
    OfflineReasonTest() { memset(static_cast<void*>(&info_), kUntouched, sizeof(info_)); }

    bool untouched() const {
        const auto* bytes = reinterpret_cast<const char*>(&info_);
        return std::string(bytes, sizeof(info_)) == std::string(sizeof(info_), kUntouched);
    }

    offline_reason_info info_;
};

std::string local_time(time_t when) {
    char text[32];
    tm local{};
    localtime_r(&when, &local);
    strftime(text, sizeof(text), "%Y-%m-%d %H:%M:%S", &local);
    return text;
}

TEST_F(OfflineReasonTest, WritesTheCodeAndTheLocalTime) {
    setenv("TZ", "UTC-5:45", 1);
    tzset();
    const time_t before = time(nullptr);
    tq_set_offline_reason(4);
    const time_t after = time(nullptr);
    const std::string content = read_file(kOfflineReason);
    EXPECT_TRUE(
        std::regex_match(content, std::regex("4\n\\d+-\\d\\d-\\d\\d \\d\\d:\\d\\d:\\d\\d\n")));
    EXPECT_LE("4\n" + local_time(before) + "\n", content);
    EXPECT_GE("4\n" + local_time(after) + "\n", content);
    EXPECT_THAT(log_.take(), IsEmpty());
    unsetenv("TZ");
    tzset();
}

TEST_F(OfflineReasonTest, FollowsAChangeOfTheTimeZone) {
    for (const char* zone : {"UTC", "UTC-5:45", "UTC+11"}) {
        setenv("TZ", zone, 1);
        const time_t before = time(nullptr);
        tq_set_offline_reason(1);
        const std::string content = read_file(kOfflineReason);
        const time_t after = time(nullptr);
        tzset();
        EXPECT_LE("1\n" + local_time(before) + "\n", content) << zone;
        EXPECT_GE("1\n" + local_time(after) + "\n", content) << zone;
    }
    unsetenv("TZ");
    tzset();
}

TEST_F(OfflineReasonTest, RecordsAnyCodeAsItIs) {
    for (const int code : {0, 7, -1, INT_MIN, INT_MAX}) {
        tq_set_offline_reason(code);
        EXPECT_EQ(read_file(kOfflineReason).substr(0, std::to_string(code).size() + 1),
                  std::to_string(code) + "\n");
    }
}

TEST_F(OfflineReasonTest, ReplacesWhatWasRecordedBefore) {
    write_file(kOfflineReason, std::string(500, 'x'));
    tq_set_offline_reason(2);
    EXPECT_EQ(read_file(kOfflineReason).size(), strlen("2\n2026-01-01 00:00:00\n"));
}

TEST_F(OfflineReasonTest, LogsThatTheFileCannotBeCreated) {
    mkdir(kOfflineReason, 0755);
    tq_set_offline_reason(1);
    EXPECT_THAT(log_.take(),
                ElementsAre(LineAt(LOG_ERR, "tq_set_offline_reason", 908,
                                   "fopen /tmp/.offline.reason fail:Is a directory\n")));
}

TEST_F(OfflineReasonTest, SaysNothingOfADiskThatIsFull) {
    write_file(kOfflineReason, "");
    const FullDisk disk("/tmp");
    tq_set_offline_reason(1);
    EXPECT_EQ(read_file(kOfflineReason), "");
    EXPECT_THAT(log_.take(), IsEmpty());
}

TEST_F(OfflineReasonTest, ReadsBackEachCode) {
    const std::vector<std::string> texts = {"System Reboot", "Change AC", "Change Configuration",
                                            "WTP Crash",     "WTP Lock",  "Network Timeout"};
    for (int code = 1; code <= 6; code++) {
        tq_set_offline_reason(code);
        const std::string content = read_file(kOfflineReason);
        const std::string time = content.substr(2, content.size() - 3);
        const std::string& text = texts[static_cast<size_t>(code - 1)];
        ASSERT_EQ(tq_get_offline_reason(&info_), 0);
        EXPECT_EQ(info_.reason, text);
        EXPECT_EQ(info_.reason_length, text.size());
        EXPECT_EQ(info_.time, time);
        EXPECT_EQ(info_.time_length, time.size());
    }
    EXPECT_THAT(log_.take(), IsEmpty());
}

TEST_F(OfflineReasonTest, ShowsAnyOtherCodeAsASystemReboot) {
    for (const char* code : {"0", "7", "-1", "2147483647", "-2147483648", "4294967298",
                             "18446744073709551618", "AC", ""}) {
        // An empty line would be skipped.
        write_file(kOfflineReason, std::string(code) + " \n2026-01-01 00:00:00\n");
        ASSERT_EQ(tq_get_offline_reason(&info_), 0) << code;
        EXPECT_STREQ(info_.reason, "System Reboot") << code;
        EXPECT_EQ(info_.reason_length, strlen("System Reboot"));
    }
}

TEST_F(OfflineReasonTest, ConvertsTheCodeAsANumberWithTextBehindIt) {
    write_file(kOfflineReason, "  +5th\nthen\n");
    ASSERT_EQ(tq_get_offline_reason(&info_), 0);
    EXPECT_STREQ(info_.reason, "WTP Lock");
}

TEST_F(OfflineReasonTest, SkipsBlankLinesAndComments) {
    write_file(kOfflineReason, "# state\n\n3\n\r\n# when\nthen\n");
    ASSERT_EQ(tq_get_offline_reason(&info_), 0);
    EXPECT_STREQ(info_.reason, "Change Configuration");
    EXPECT_STREQ(info_.time, "then");
}

TEST_F(OfflineReasonTest, LosesTheLastCharacterOfALineWithoutALineFeed) {
    write_file(kOfflineReason, "2\n2026-01-01 00:00:09");
    ASSERT_EQ(tq_get_offline_reason(&info_), 0);
    EXPECT_STREQ(info_.time, "2026-01-01 00:00:0");
    EXPECT_EQ(info_.time_length, 18U);
}

TEST_F(OfflineReasonTest, NeverTakesTheTimeForAFormat) {
    for (const char* time : {"%s%s%s%n", "%d-%02d", "100%", "%%"}) {
        write_file(kOfflineReason, std::string("1\n") + time + "\n");
        ASSERT_EQ(tq_get_offline_reason(&info_), 0);
        EXPECT_STREQ(info_.time, time);
        EXPECT_EQ(info_.time_length, strlen(time));
    }
}

TEST_F(OfflineReasonTest, CutsALongTimeAndTerminatesItsLastByte) {
    for (const size_t length : {30U, 31U, 32U, 33U, 1000U, 70000U}) {
        write_file(kOfflineReason, "1\n" + std::string(length, 't') + "\n");
        ASSERT_EQ(tq_get_offline_reason(&info_), 0);
        EXPECT_EQ(info_.time, std::string(std::min<size_t>(length, 31), 't'));
        EXPECT_EQ(info_.time_length, std::min<size_t>(length, 31));
    }
}

TEST_F(OfflineReasonTest, FailsWithoutASecondLine) {
    for (const char* content : {"", "1\n", "# only\n", "1\n\n# comment\n"}) {
        write_file(kOfflineReason, content);
        EXPECT_EQ(tq_get_offline_reason(&info_), -1) << content;
    }
    EXPECT_TRUE(untouched());
    EXPECT_THAT(log_.take(), IsEmpty());
}

TEST_F(OfflineReasonTest, LogsThatThereIsNoFile) {
    EXPECT_EQ(tq_get_offline_reason(&info_), -1);
    EXPECT_TRUE(untouched());
    EXPECT_THAT(log_.take(),
                ElementsAre(LineAt(LOG_ERR, "tq_get_offline_reason", 941,
                                   "fopen /tmp/.offline.reason fail:No such file or directory\n")));
}

TEST_F(OfflineReasonTest, RejectsANullRecord) {
    EXPECT_EQ(tq_get_offline_reason(nullptr), -1);
    EXPECT_THAT(log_.take(),
                ElementsAre(Line(LOG_ERR, "tq_get_offline_reason", "invalid parameters\n")));
}

TEST_F(OfflineReasonTest, FailsWhereMemoryRunsOut) {
    TQ_NEEDS_FAILING_ALLOCATOR();
    write_file(kOfflineReason, "1\nthen\n");
    const unsigned failures = tq_test::faults::each_failure("malloc", ENOMEM, [this] {
        if (tq_get_offline_reason(&info_) != 0) {
            EXPECT_TRUE(untouched());
        }
        memset(static_cast<void*>(&info_), kUntouched, sizeof(info_));
    });
    EXPECT_GE(failures, 2U);
}

// traffic upload

class TrafficUploadTest : public StatusFileTest {};

TEST_F(TrafficUploadTest, WritesUpForAnyPointer) {
    EXPECT_EQ(set_traffic_upload_status(""), 0);
    EXPECT_EQ(read_file(kTrafficUpload), "up\n");
    EXPECT_THAT(log_.take(),
                ElementsAre(LineAt(LOG_DEBUG, "set_traffic_upload_status", 591, "up\n")));
}

TEST_F(TrafficUploadTest, WritesDownForNull) {
    write_file(kTrafficUpload, "something longer\n");
    EXPECT_EQ(set_traffic_upload_status(nullptr), 0);
    EXPECT_EQ(read_file(kTrafficUpload), "down\n");
    EXPECT_THAT(log_.take(),
                ElementsAre(LineAt(LOG_DEBUG, "set_traffic_upload_status", 591, "down\n")));
}

TEST_F(TrafficUploadTest, AnswersWhetherItIsDown) {
    set_traffic_upload_status(nullptr);
    log_.take();
    EXPECT_EQ(get_traffic_upload_status(), 1);
    EXPECT_THAT(log_.take(),
                ElementsAre(LineAt(LOG_DEBUG, "get_traffic_upload_status", 611, "down\n\n")));
    set_traffic_upload_status("up");
    log_.take();
    EXPECT_EQ(get_traffic_upload_status(), 0);
    EXPECT_THAT(log_.take(),
                ElementsAre(LineAt(LOG_DEBUG, "get_traffic_upload_status", 611, "up\n\n")));
}

TEST_F(TrafficUploadTest, IsNotDownWithoutAFileOrALine) {
    EXPECT_EQ(get_traffic_upload_status(), 0);
    write_file(kTrafficUpload, "");
    EXPECT_EQ(get_traffic_upload_status(), 0);
    unlink(kTrafficUpload);
    mkdir(kTrafficUpload, 0755);
    EXPECT_EQ(get_traffic_upload_status(), 0);
    EXPECT_THAT(log_.take(), IsEmpty());
}

TEST_F(TrafficUploadTest, FindsTheWordAnywhereInTheFirst31Characters) {
    const std::string blanks27(27, ' ');
    for (const std::string& line :
         {std::string("down"), std::string("countdown\n"), blanks27 + "down\n"}) {
        write_file(kTrafficUpload, line);
        EXPECT_EQ(get_traffic_upload_status(), 1) << line;
    }
    for (const std::string& line :
         {blanks27 + " down\n", std::string("up\ndown\n"), std::string("DOWN\n")}) {
        write_file(kTrafficUpload, line);
        EXPECT_EQ(get_traffic_upload_status(), 0) << line;
    }
}

TEST_F(TrafficUploadTest, LogsTheLineAsText) {
    write_file(kTrafficUpload, "%s%n" + std::string(100, 'x'));
    EXPECT_EQ(get_traffic_upload_status(), 0);
    EXPECT_THAT(log_.take(), ElementsAre(LineAt(LOG_DEBUG, "get_traffic_upload_status", 611,
                                                "%s%n" + std::string(27, 'x') + "\n")));
}

TEST_F(TrafficUploadTest, LogsThatTheFileCannotBeOpened) {
    mkdir(kTrafficUpload, 0755);
    EXPECT_EQ(set_traffic_upload_status("up"), -1);
    EXPECT_THAT(log_.take(), ElementsAre(LineAt(LOG_ERR, "set_traffic_upload_status", 581,
                                                "open /tmp/.traffic_statistics_upload fail\n")));
}

TEST_F(TrafficUploadTest, FailsForAUserWhoMayNotWrite) {
    set_traffic_upload_status("up");
    EXPECT_EQ(as_nobody([] { return set_traffic_upload_status(nullptr) == -1 ? 7 : 0; }), 7);
    EXPECT_EQ(read_file(kTrafficUpload), "up\n");
}

// controller link

class CapwapStatusTest : public StatusFileTest {};

TEST_F(CapwapStatusTest, StoresTheNumberInTheConfiguration) {
    write_file("/etc/config/wtp", "config capwap\n\toption mode 'fit'\n\nconfig capwap\n");
    EXPECT_EQ(set_capwap_status_file(3), 0);
    EXPECT_EQ(run_command("uci get wtp.@capwap[0].status").out, "3\n");
    EXPECT_EQ(run_command("uci get wtp.@capwap[1].status").status, 1);
    EXPECT_EQ(get_capwap_status_file(), 3);
}

TEST_F(CapwapStatusTest, ReadsBackEveryNumber) {
    write_file("/etc/config/wtp", "config capwap\n");
    for (const int status : {0, 1, INT_MAX, INT_MIN, -2}) {
        EXPECT_EQ(set_capwap_status_file(status), 0);
        EXPECT_EQ(get_capwap_status_file(), status);
    }
    EXPECT_EQ(set_capwap_status_file(-1), 0);
    EXPECT_EQ(run_command("uci get wtp.@capwap[0].status").out, "4294967295\n");
}

TEST_F(CapwapStatusTest, FailsWithoutTheSectionOrTheOption) {
    write_file("/etc/config/wtp", "");
    EXPECT_EQ(set_capwap_status_file(1), -1);
    EXPECT_EQ(get_capwap_status_file(), -1);
    write_file("/etc/config/wtp", "config capwap\n");
    EXPECT_EQ(get_capwap_status_file(), -1);
    unlink("/etc/config/wtp");
    EXPECT_EQ(get_capwap_status_file(), -1);
}

// core-dump server

class CoredumpServerTest : public StatusFileTest {};

TEST_F(CoredumpServerTest, StoresTheTextWithoutATerminator) {
    EXPECT_EQ(save_coredump_server("192.0.2.7"), 0);
    EXPECT_EQ(read_file(kServer), "192.0.2.7");
    EXPECT_EQ(save_coredump_server("::1"), 0);
    EXPECT_EQ(read_file(kServer), "::1");
    EXPECT_EQ(save_coredump_server("a.rather.long.name.example.net"), 0);
    EXPECT_EQ(read_file(kServer), "a.rather.long.name.example.net");
    EXPECT_THAT(log_.take(), IsEmpty());
}

TEST_F(CoredumpServerTest, ReadsAtMost16BytesAndTerminatesNothing) {
    for (const std::string& text :
         {std::string("1"), std::string("192.0.2.7"), std::string(15, 'a'), std::string(16, 'b'),
          std::string(17, 'c'), std::string(99, 'd')}) {
        save_coredump_server(text.c_str());
        tq_test::Buffer out(16);
        EXPECT_EQ(get_coredump_server(out.data()), 0);
        std::string expected = text.substr(0, 16);
        expected.resize(16, kUntouched);
        EXPECT_EQ(out.all(), expected);
        EXPECT_TRUE(out.guard_holds());
    }
}

TEST_F(CoredumpServerTest, FailsForAnEmptyFile) {
    EXPECT_EQ(save_coredump_server(""), 0);
    tq_test::Buffer out(16);
    EXPECT_EQ(get_coredump_server(out.data()), -1);
    EXPECT_TRUE(out.untouched());
}

TEST_F(CoredumpServerTest, FailsWithoutTheFile) {
    tq_test::Buffer out(16);
    EXPECT_EQ(get_coredump_server(out.data()), -1);
    EXPECT_TRUE(out.untouched());
    EXPECT_EQ(delete_coredump_server(), -1);
    EXPECT_THAT(log_.take(), IsEmpty());
}

TEST_F(CoredumpServerTest, FailsWhereTheReadFails) {
    mkdir(kServer, 0755);
    tq_test::Buffer out(16);
    EXPECT_EQ(get_coredump_server(out.data()), -1);
    EXPECT_TRUE(out.untouched());
    rmdir(kServer);
}

TEST_F(CoredumpServerTest, ForgetsTheServer) {
    save_coredump_server("192.0.2.7");
    EXPECT_EQ(delete_coredump_server(), 0);
    EXPECT_FALSE(exists(kServer));
}

TEST_F(CoredumpServerTest, FailsWhereTheFileCannotBeCreated) {
    const ReadOnly config("/usr/config");
    EXPECT_EQ(save_coredump_server("192.0.2.7"), -1);
    EXPECT_THAT(log_.take(), IsEmpty());
}

TEST_F(CoredumpServerTest, FailsOnAFullDisk) {
    save_coredump_server("192.0.2.7");
    const FullDisk disk("/usr/config");
    // Truncating frees the page that the text needs, so the failure has to come a page later.
    EXPECT_EQ(save_coredump_server(std::string(100000, 'x').c_str()), -1);
}

TEST_F(CoredumpServerTest, RejectsNull) {
    EXPECT_EQ(save_coredump_server(nullptr), -1);
    EXPECT_EQ(get_coredump_server(nullptr), -1);
    EXPECT_FALSE(exists(kServer));
    EXPECT_THAT(log_.take(),
                ElementsAre(Line(LOG_ERR, "save_coredump_server", "invalid parameters\n"),
                            Line(LOG_ERR, "get_coredump_server", "invalid parameters\n")));
}

// log backup

class BackupLogTest : public StatusFileTest {
  protected:
    static void install_script() {
        write_file(kScript, "#!/bin/sh\nprintf '%s|' \"$#\" \"$@\" >/tmp/backup\n");
        chmod(kScript, 0755);
    }
};

TEST_F(BackupLogTest, RunsTheScriptWithItsTwoWords) {
    install_script();
    EXPECT_EQ(backup_all_log("/tmp/log", "reboot"), 0);
    EXPECT_EQ(read_file("/tmp/backup"), "2|/tmp/log|reboot|");
    EXPECT_THAT(log_.take(), IsEmpty());
}

TEST_F(BackupLogTest, RunsNothingWithoutTheScript) {
    tq_test::faults::reset();
    EXPECT_EQ(backup_all_log("a; touch /tmp/ran", "b"), 0);
    EXPECT_FALSE(exists("/tmp/ran"));
    EXPECT_EQ(count("system"), 0U);
}

TEST_F(BackupLogTest, RunsNothingWhereTheScriptIsNotReadable) {
    install_script();
    chmod(kScript, 0711);
    EXPECT_EQ(as_nobody([] {
                  tq_test::faults::reset();
                  return backup_all_log("a", "b") == 0 && count("system") == 0 ? 7 : 0;
              }),
              7);
    EXPECT_FALSE(exists("/tmp/backup"));
}

TEST_F(BackupLogTest, IgnoresTheScriptsStatus) {
    write_file(kScript, "#!/bin/sh\nexit 3\n");
    chmod(kScript, 0755);
    EXPECT_EQ(backup_all_log("a", "b"), 0);
}

TEST_F(BackupLogTest, RunsACommandOf63BytesAndNoneThatWouldBeCut) {
    install_script();
    const std::string word(63 - strlen(kScript) - strlen("    b"), 'a');
    EXPECT_EQ(backup_all_log(word.c_str(), "b"), 0);
    EXPECT_EQ(read_file("/tmp/backup"), "2|" + word + "|b|");
    EXPECT_THAT(log_.take(), IsEmpty());
    unlink("/tmp/backup");
    EXPECT_EQ(backup_all_log((word + "a").c_str(), "b"), 0);
    EXPECT_FALSE(exists("/tmp/backup"));
    EXPECT_THAT(log_.take(), ElementsAre(Line(LOG_ERR, "backup_all_log", "invalid parameters\n")));
}

TEST_F(BackupLogTest, LooksAtItsWordsBeforeTheScript) {
    EXPECT_EQ(backup_all_log(nullptr, "b"), 0);
    EXPECT_THAT(log_.take(), ElementsAre(Line(LOG_ERR, "backup_all_log", "invalid parameters\n")));
}

TEST_F(BackupLogTest, RunsNothingForANullWord) {
    install_script();
    EXPECT_EQ(backup_all_log(nullptr, "b"), 0);
    EXPECT_EQ(backup_all_log("a", nullptr), 0);
    EXPECT_FALSE(exists("/tmp/backup"));
    EXPECT_THAT(log_.take(), ElementsAre(Line(LOG_ERR, "backup_all_log", "invalid parameters\n"),
                                         Line(LOG_ERR, "backup_all_log", "invalid parameters\n")));
}

// upgrade lock

class UpgradeLockTest : public StatusFileTest {};

TEST_F(UpgradeLockTest, IsHeldOnce) {
    EXPECT_EQ(tq_is_upgrade_mutex_begin(), 0);
    const int handle = tq_upgrade_mutex_begin();
    ASSERT_GE(handle, 0);
    EXPECT_EQ(tq_upgrade_mutex_begin(), -1);
    EXPECT_EQ(tq_is_upgrade_mutex_begin(), 1);
    EXPECT_EQ(tq_upgrade_mutex_end(handle), 0);
    EXPECT_EQ(tq_is_upgrade_mutex_begin(), 0);
    const int again = tq_upgrade_mutex_begin();
    ASSERT_GE(again, 0);
    EXPECT_EQ(tq_upgrade_mutex_end(again), 0);
    EXPECT_THAT(log_.take(), IsEmpty());
}

TEST_F(UpgradeLockTest, BindsTheWholeAbstractName) {
    const int handle = tq_upgrade_mutex_begin();
    sockaddr_un address{};
    socklen_t length = sizeof(address);
    ASSERT_EQ(getsockname(handle, reinterpret_cast<sockaddr*>(&address), &length), 0);
    EXPECT_EQ(length, 110U);
    std::string path(1, '\0');
    path += "upgrade-img";
    path.resize(108, '\0');
    EXPECT_EQ(std::string(address.sun_path, sizeof(address.sun_path)), path);
    int type = 0;
    length = sizeof(type);
    ASSERT_EQ(getsockopt(handle, SOL_SOCKET, SO_TYPE, &type, &length), 0);
    EXPECT_EQ(type, SOCK_DGRAM);
    EXPECT_EQ(fcntl(handle, F_GETFD), FD_CLOEXEC);
    tq_upgrade_mutex_end(handle);
}

TEST_F(UpgradeLockTest, LeavesNoDescriptorBehind) {
    const int next = dup(0);
    close(next);
    const int handle = tq_upgrade_mutex_begin();
    EXPECT_EQ(handle, next);
    EXPECT_EQ(tq_upgrade_mutex_begin(), -1);
    EXPECT_EQ(tq_is_upgrade_mutex_begin(), 1);
    tq_upgrade_mutex_end(handle);
    EXPECT_EQ(tq_is_upgrade_mutex_begin(), 0);
    const int after = dup(0);
    EXPECT_EQ(after, next);
    close(after);
}

// Another process that holds the lock until it is killed.
class Holder {
  public:
    Holder() {
        int ready[2];
        if (pipe(ready) != 0) return;
        pid_ = fork();
        if (pid_ == 0) {
            prctl(PR_SET_PDEATHSIG, SIGKILL);
            const char held = tq_upgrade_mutex_begin() >= 0 ? 'y' : 'n';
            if (write(ready[1], &held, 1) != 1) _exit(1);
            for (;;)
                pause();
        }
        char held = '\0';
        holds_ = read(ready[0], &held, 1) == 1 && held == 'y';
        close(ready[0]);
        close(ready[1]);
    }
    ~Holder() { crash(); }
    Holder(const Holder&) = delete;
    Holder& operator=(const Holder&) = delete;

    void crash() {
        if (pid_ <= 0) return;
        kill(pid_, SIGKILL);
        waitpid(pid_, nullptr, 0);
        pid_ = -1;
    }
    bool holds() const { return holds_; }

  private:
    pid_t pid_ = -1;
    bool holds_ = false;
};

TEST_F(UpgradeLockTest, KeepsOtherProcessesOut) {
    const Holder holder;
    ASSERT_TRUE(holder.holds());
    EXPECT_EQ(tq_upgrade_mutex_begin(), -1);
    EXPECT_EQ(tq_is_upgrade_mutex_begin(), 1);
    EXPECT_FALSE(Holder().holds());
}

TEST_F(UpgradeLockTest, IsFreeAfterItsHolderCrashed) {
    Holder holder;
    ASSERT_TRUE(holder.holds());
    holder.crash();
    EXPECT_EQ(tq_is_upgrade_mutex_begin(), 0);
    const int handle = tq_upgrade_mutex_begin();
    EXPECT_GE(handle, 0);
    tq_upgrade_mutex_end(handle);
}

TEST_F(UpgradeLockTest, IsHeldByWhoeverSquatsOnTheName) {
    EXPECT_EQ(as_nobody([] { return Holder().holds() ? 7 : 0; }), 7);
    const int handle = tq_upgrade_mutex_begin();
    EXPECT_GE(handle, 0);
    EXPECT_EQ(as_nobody([] { return tq_is_upgrade_mutex_begin() == 1 ? 7 : 0; }), 7);
    tq_upgrade_mutex_end(handle);
}

TEST_F(UpgradeLockTest, FailsWithoutASocket) {
    rlimit old{};
    getrlimit(RLIMIT_NOFILE, &old);
    const int next = dup(0);
    close(next);
    rlimit none = old;
    none.rlim_cur = static_cast<rlim_t>(next);
    setrlimit(RLIMIT_NOFILE, &none);
    const int handle = tq_upgrade_mutex_begin();
    const int held = tq_is_upgrade_mutex_begin();
    setrlimit(RLIMIT_NOFILE, &old);
    EXPECT_EQ(handle, -1);
    EXPECT_EQ(held, 1);
}

TEST_F(UpgradeLockTest, TakesAnyHandleBack) {
    EXPECT_EQ(tq_upgrade_mutex_end(-1), 0);
    EXPECT_EQ(tq_upgrade_mutex_end(99999), 0);
}

}  // namespace
