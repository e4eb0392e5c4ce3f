// support_test.cpp - the device and the helpers that every other test relies on.
#include <fcntl.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <net/if.h>
#include <sys/file.h>
#include <sys/socket.h>
#include <syslog.h>
#include <unistd.h>

#include <algorithm>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <thread>

#include "support/device.h"
#include "support/faults.h"
#include "support/log_capture.h"

namespace tq_test {
namespace {

using testing::ElementsAre;
using testing::HasSubstr;
using testing::IsEmpty;
using testing::Not;
using testing::SizeIs;

class Device : public DeviceTest {};

TEST_F(Device, HasTheConfigurationOfAnAccessPoint) {
    EXPECT_THAT(read_file("/etc/config/wireless"), HasSubstr("config wifi-device 'radio1'"));
    EXPECT_EQ(read_file("/etc/config/network"), read_file("/rom/etc/config/network"));
}

TEST_F(Device, GivesEachTestACleanStart) {
    write_file("/etc/config/wireless", "");
    write_file("/etc/config/extra", "");
    write_file("/tmp/.uci/wireless", "");
    write_file("/etc/board.conf", "");
    reset_device();
    EXPECT_THAT(read_file("/etc/board.conf"), HasSubstr("[board]"));
    EXPECT_FALSE(exists("/tmp/.uci"));
    EXPECT_FALSE(exists("/etc/config/extra"));
    EXPECT_EQ(read_file("/etc/config/wireless"), read_file("/rom/etc/config/wireless"));
}

TEST_F(Device, HasPortsOfItsOwnWithTheirCablesIn) {
    EXPECT_NE(if_nametoindex("eth0"), 0U);
    EXPECT_EQ(read_file("/sys/class/net/eth1/carrier"), "1\n");
    EXPECT_EQ(run_command("ip -4 route").out, "");
}

TEST_F(Device, HasGarbageInItsFlash) {
    const std::string flash = read_file("/dev/mtdblock1");
    EXPECT_THAT(flash, SizeIs(65536));
    EXPECT_EQ(std::ranges::count(flash, '\0'), 0);
}

TEST_F(Device, KeepsTheRebootForTheRecord) {
    const CommandResult reboot = run_command("reboot -d 3");
    EXPECT_EQ(reboot.status, 0);
    EXPECT_EQ(read_file("/run/tqdevice/reboot"), "reboot -d 3\n");
    unlink("/run/tqdevice/reboot");
}

TEST_F(Device, KeepsTheKernelsKnobsOutOfReach) {
    EXPECT_THAT(run_command("echo 3 > /proc/sys/vm/drop_caches").err, HasSubstr("Read-only"));
    EXPECT_THAT(run_command("echo 3 > /run/tqdevice/proc/sys/vm/drop_caches").err,
                HasSubstr("Read-only"));
    EXPECT_THAT(run_command("echo 0 > /sys/kernel/profiling").err, HasSubstr("Read-only"));
    EXPECT_EQ(run_command("echo 1 > /proc/sys/net/ipv4/ip_forward").status, 0);
    EXPECT_FALSE(exists("/dev/watchdog"));
}

TEST_F(Device, RecordsTheSystemRequests) {
    if (!exists("/proc/sysrq-trigger")) GTEST_SKIP() << "this kernel has no /proc/sysrq-trigger";
    write_file("/proc/sysrq-trigger", "b");
    EXPECT_EQ(read_file("/run/tqdevice/sysrq-trigger"), "b");
    write_file("/proc/sysrq-trigger", "");
}

TEST_F(Device, CannotReachTheMachinesProcessesClockOrModules) {
    EXPECT_THAT(run_command("ps -e -o comm=").out, Not(HasSubstr("ctest")));
    EXPECT_EQ(run_command("date -s '2001-01-01'").status, 1);
    EXPECT_NE(run_command("mknod /tmp/disk b 254 0").status, 0);
}

TEST_F(Device, WritesItsLogToAFile) {
    run_command("logger -p local3.warning 'a line for the file'");
    for (int tries = 0; tries < 200 && !exists("/var/log/messages"); ++tries)
        usleep(10000);
    std::string messages;
    for (int tries = 0; tries < 200 && messages.find("for the file") == std::string::npos;
         ++tries) {
        messages = read_file("/var/log/messages");
        usleep(10000);
    }
    EXPECT_THAT(messages, HasSubstr("a line for the file"));
}

TEST(RunCommand, TellsStatusOutputAndErrorsApart) {
    const CommandResult result = run_command("echo out; echo err >&2; exit 4");
    EXPECT_EQ(result.status, 4);
    EXPECT_EQ(result.out, "out\n");
    EXPECT_EQ(result.err, "err\n");
    EXPECT_EQ(run_command("kill -TERM $$").status, 143);
}

TEST(ScopedBindTest, CoversAFileForItsScopeOnly) {
    write_file("/tmp/covered", "below");
    {
        const ScopedBind bind("/tmp/covered", "above");
        EXPECT_EQ(read_file("/tmp/covered"), "above");
    }
    EXPECT_EQ(read_file("/tmp/covered"), "below");
}

TEST(ScopedProcTest, HoldsFixturesBesideTheKernelsFiles) {
    {
        const ScopedProc proc(
            {{"mtd", "dev:    size   erasesize  name\n"}, {"net/eth/eth0/stats", "rx 1\n"}});
        EXPECT_THAT(read_file("/proc/mtd"), HasSubstr("erasesize"));
        EXPECT_EQ(read_file("/proc/net/eth/eth0/stats"), "rx 1\n");
        EXPECT_THAT(read_file("/proc/net/dev"), HasSubstr("eth0"));
        EXPECT_THAT(read_file("/proc/self/status"), HasSubstr("Pid:"));
        EXPECT_THAT(run_command("cat /proc/self/comm").out, "cat\n");
    }
    EXPECT_FALSE(exists("/proc/net/eth/eth0/stats"));
}

TEST_F(Device, FullDiskTakesNoNewPage) {
    const std::string before = read_file("/etc/config/wireless");
    {
        const FullDisk full("/etc/config");
        EXPECT_EQ(read_file("/etc/config/wireless"), before);
        EXPECT_THAT(run_command("cp /etc/passwd /etc/config/new").err, HasSubstr("No space left"));
    }
    EXPECT_EQ(run_command("echo text > /etc/config/new").status, 0);
}

TEST_F(Device, ReadOnlyTakesNoChange) {
    {
        const ReadOnly locked("/etc/config");
        EXPECT_THAT(run_command("echo text > /etc/config/new").err, HasSubstr("Read-only"));
    }
    EXPECT_EQ(run_command("echo text > /etc/config/new").status, 0);
}

// With a checkout below /tmp, this very program is in such a mount.
TEST_F(Device, FullDiskAndReadOnlyKeepTheMountsBelow) {
    write_file("/tmp/below/file", "");
    const ScopedMount below("tmpfs", "/tmp/below", "tmpfs", 0, "");
    write_file("/tmp/below/file", "content");
    {
        const FullDisk full("/tmp");
        EXPECT_EQ(read_file("/tmp/below/file"), "content");
        EXPECT_NE(run_command("cp /etc/passwd /tmp/new").status, 0);
    }
    const ReadOnly locked("/tmp");
    EXPECT_EQ(read_file("/tmp/below/file"), "content");
    EXPECT_NE(run_command("cp /etc/passwd /tmp/new").status, 0);
}

TEST(AsNobody, HasNoPrivileges) {
    write_file("/tmp/secret", "");
    EXPECT_EQ(chmod("/tmp/secret", 0600), 0);
    EXPECT_EQ(as_nobody([] { return open("/tmp/secret", O_RDONLY) < 0 ? -errno : 0; }), -EACCES);
    EXPECT_EQ(as_nobody([] { return static_cast<int>(geteuid()); }), 65534);
    EXPECT_EQ(geteuid(), 0U);
}

TEST(LogCaptureTest, KeepsPriorityOriginAndTextByteForByte) {
    LogCapture log;
    syslog(LOG_ERR, "[%s:%d] invalid parameters\n", "run_cmd", 42);
    syslog(LOG_LOCAL2 | LOG_INFO, "doubled\n\n");
    syslog(LOG_DEBUG, "[not a prefix] %s", "text");
    const std::vector<LogLine> lines = log.take();
    EXPECT_THAT(lines, ElementsAre(LineAt(LOG_ERR, "run_cmd", 42, "invalid parameters\n"),
                                   Line(LOG_INFO, "", "doubled\n\n"),
                                   Line(LOG_DEBUG, "", "[not a prefix] text")));
    EXPECT_EQ(lines[0].facility, LOG_USER);
    EXPECT_EQ(lines[1].facility, LOG_LOCAL2);
    EXPECT_EQ(lines[0].ident, "support_test");
    EXPECT_THAT(log.take(), IsEmpty());
}

TEST(LogCaptureTest, TakesALineApart) {
    const LogLine logged =
        parse_log_line("<28>Jan  2 03:04:05 uci[123]: [uci_commit_cfg:9] uci commit x:[1] fail\n");
    EXPECT_THAT(logged, LineAt(LOG_WARNING, "uci_commit_cfg", 9, "uci commit x:[1] fail\n"));
    EXPECT_EQ(logged.facility, LOG_DAEMON);
    EXPECT_EQ(logged.ident, "uci");
    EXPECT_THAT(parse_log_line("no header"), Line(-1, "", "no header"));
}

TEST(LogCaptureTest, MissesNothingOfAFlood) {
    constexpr int kLines = 5000;
    LogCapture log;
    std::thread other([] {
        for (int i = 0; i < kLines; ++i)
            syslog(LOG_NOTICE, "other %d", i);
    });
    for (int i = 0; i < kLines; ++i)
        syslog(LOG_NOTICE, "line %d", i);
    other.join();
    EXPECT_THAT(log.take(), SizeIs(2 * kLines));
}

TEST(LogCaptureTest, HearsOtherProcessesAndTheNextCapture) {
    {
        LogCapture log;
        run_command("logger -t child -p user.err hello");
        EXPECT_THAT(log.take(), ElementsAre(Line(LOG_ERR, "", "hello")));
    }
    LogCapture log;
    syslog(LOG_ERR, "again");
    EXPECT_THAT(log.take(), ElementsAre(Line(LOG_ERR, "", "again")));
}

TEST(Faults, FailTheNthCallOnce) {
    const faults::Fail fail("fopen", 2, EMFILE);
    FILE* first = fopen("/etc/passwd", "r");
    ASSERT_NE(first, nullptr);
    fclose(first);
    EXPECT_FALSE(fail.fired());
    EXPECT_EQ(fopen("/etc/passwd", "r"), nullptr);
    EXPECT_EQ(errno, EMFILE);
    EXPECT_TRUE(fail.fired());
    FILE* third = fopen("/etc/passwd", "r");
    ASSERT_NE(third, nullptr);
    fclose(third);
}

TEST(Faults, EndWithTheirScope) {
    { const faults::Fail fail("open", 1, EACCES); }
    const int fd = open("/etc/passwd", O_RDONLY);
    EXPECT_GE(fd, 0);
    close(fd);
}

TEST(Faults, StayInTheirThread) {
    const faults::Fail fail("socket", 1, ENOBUFS);
    int fd = -1;
    std::thread([&fd] { fd = socket(AF_INET, SOCK_DGRAM, 0); }).join();
    EXPECT_GE(fd, 0);
    EXPECT_EQ(close(fd), 0);
    EXPECT_FALSE(fail.fired());
}

TEST(Faults, CountCalls) {
    faults::reset();
    for (int i = 0; i < 3; ++i) {
        FILE* pipe = popen("true", "r");
        ASSERT_NE(pipe, nullptr);
        EXPECT_EQ(pclose(pipe), 0);
    }
    EXPECT_EQ(faults::count("popen"), 3U);
    EXPECT_EQ(faults::count("pclose"), 3U);
    EXPECT_EQ(faults::count("system"), 0U);
    EXPECT_THROW(faults::count("no_such_call"), std::invalid_argument);
}

TEST(Faults, TellTheOrderOfCalls) {
    faults::reset();
    EXPECT_FALSE(faults::in_order({"close"}));
    close(open("/dev/null", O_RDONLY | O_CLOEXEC));
    EXPECT_TRUE(faults::in_order({"open", "close"}));
    EXPECT_FALSE(faults::in_order({"close", "open"}));
    EXPECT_FALSE(faults::in_order({"open", "sync", "close"}));
    const int fd = open("/dev/null", O_RDONLY | O_CLOEXEC);
    EXPECT_FALSE(faults::in_order({"open", "close"})) << "the last calls count";
    close(fd);
    faults::reset();
    EXPECT_FALSE(faults::in_order({"open"}));
}

TEST(Faults, LetGoOfWhatFailsToClose) {
    const int fd = open("/etc/passwd", O_RDONLY);
    {
        const faults::Fail fail("close", 1, EIO);
        EXPECT_EQ(close(fd), -1);
        EXPECT_EQ(errno, EIO);
    }
    EXPECT_EQ(fcntl(fd, F_GETFD), -1);
}

TEST(Faults, FailEachCallOfABodyInTurn) {
    const unsigned failures = faults::each_failure("flock", EWOULDBLOCK, [] {
        for (int i = 0; i < 3; ++i)
            flock(STDIN_FILENO, LOCK_SH | LOCK_NB);
    });
    EXPECT_EQ(failures, 3U);
}

TEST(Faults, FailTheAllocatorForTheCLibraryToo) {
    TQ_NEEDS_FAILING_ALLOCATOR();
#ifndef TQ_SANITIZED
    {
        const faults::Fail fail("malloc", 1, ENOMEM);
        char* const copy = strdup("text");
        EXPECT_EQ(copy, nullptr);
        free(copy);
        EXPECT_TRUE(fail.fired());
    }
#endif
    const faults::Fail fail("calloc", 1, ENOMEM);
    void* volatile memory = calloc(1, 16);
    EXPECT_EQ(memory, nullptr);
    free(memory);
}

}  // namespace
}  // namespace tq_test
