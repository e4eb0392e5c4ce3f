// reboot_cause_test.cpp - the store of reboot causes byte for byte, over runs of the device that
// end as planned, by a power loss, by the watchdog, and in the middle of a write.
#include "tq/reboot_cause.h"

#include <dlfcn.h>
#include <fcntl.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <linux/capability.h>
#include <linux/magic.h>
#include <sys/prctl.h>
#include <sys/resource.h>
#include <sys/stat.h>
#include <sys/statfs.h>
#include <sys/time.h>
#include <sys/wait.h>
#include <tq/oem.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <climits>
#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <functional>
#include <map>
#include <memory>
#include <optional>
#include <random>
#include <string>
#include <vector>

#include "support/device.h"
#include "support/faults.h"
#include "support/log_capture.h"
#include "support/random.h"

namespace {

// The clock of the device, where a test has set it.
std::optional<uint32_t> device_time;

// What the board library writes in place of the board's path, not terminated.
std::optional<std::string> path_of_test;

}  // namespace

int tq_get_oem_ap_type_partion_info(int selector, char* out, int len) {
    if (path_of_test) {
        path_of_test->copy(out, static_cast<size_t>(len));
        return 0;
    }
    auto* board =
        reinterpret_cast<decltype(&tq_get_oem_ap_type_partion_info)>(dlsym(RTLD_NEXT, __func__));
    return board(selector, out, len);
}

extern "C" int device_clock(timeval* now, void* zone) asm("gettimeofday");

int device_clock(timeval* now, void*) {
    timespec real{};
    clock_gettime(CLOCK_REALTIME, &real);
    *now = {device_time ? static_cast<time_t>(*device_time) : real.tv_sec, 0};
    return 0;
}

namespace {

using testing::IsEmpty;
using tq_test::DeviceTest;
using tq_test::exists;
using tq_test::FullDisk;
using tq_test::LogCapture;
using tq_test::open_descriptors;
using tq_test::read_file;
using tq_test::ReadOnly;
using tq_test::ScopedProc;
using tq_test::seeded;
using tq_test::write_file;
using tq_test::faults::AnswerIoctl;
using tq_test::faults::Death;
using tq_test::faults::Fail;

using Header = reboot_cause_header;
using Record = reboot_cause_record;
using Statistic = reboot_cause_statistic;
using Panic = reboot_panic_buffer;

using Files = std::map<std::string, std::string>;  // below /proc

constexpr const char* kDirectory = "/tmp/flash";
constexpr const char* kStore = "/tmp/flash/store";
constexpr const char* kWatchdog = "/dev/watchdog";
constexpr int kSlots = 20;

// The whole file.
struct Image {
    Header header;
    std::array<Record, kSlots> ring;
    std::array<std::array<char, 20480>, 2> panic;
};
static_assert(sizeof(Image) == 43556);

// What could reboot the machine and is not masked, or an empty text.
std::string danger() {
    struct stat status {};
    if (lstat("/sbin/reboot", &status) != 0 || !S_ISREG(status.st_mode) ||
        read_file("/sbin/reboot").find(">>/run/tqdevice/reboot\n") == std::string::npos) {
        return "/sbin/reboot is not the recorder";
    }
    struct statfs system {};
    if (statfs("/proc/sysrq-trigger", &system) == 0 && system.f_type == PROC_SUPER_MAGIC)
        return "/proc/sysrq-trigger is the kernel's";
    if (lstat(kWatchdog, &status) == 0 && !S_ISREG(status.st_mode))
        return "/dev/watchdog is a device";
    if (prctl(PR_CAPBSET_READ, CAP_SYS_BOOT, 0, 0, 0) == 1) return "this process may reboot";
    return "";
}

template <typename T>
std::string bytes_of(const T& value) {
    return {reinterpret_cast<const char*>(&value), sizeof(value)};
}

template <typename T>
T from_bytes(const std::string& bytes) {
    T value{};
    memcpy(&value, bytes.data(), std::min(bytes.size(), sizeof(value)));
    return value;
}

template <size_t size>
std::string text_of(const char (&field)[size]) {
    return {field, strnlen(field, size)};
}

Image empty_store() {
    Image image{};
    image.header.magic = 0xAB;
    return image;
}

void put(const Image& image) {
    write_file(kStore, bytes_of(image));
}

Image stored() {
    const std::string bytes = read_file(kStore);
    EXPECT_EQ(bytes.size(), sizeof(Image));
    return from_bytes<Image>(bytes);
}

// The header and the ring, without the panic texts.
constexpr size_t kFrontSize = 2596;

std::string front(const Image& image) {
    return {reinterpret_cast<const char*>(&image), kFrontSize};
}

// These two for what is done ten thousand times.
void put_front(const Image& image) {
    const int fd = open(kStore, O_WRONLY | O_CLOEXEC);
    EXPECT_EQ(write(fd, &image, kFrontSize), static_cast<ssize_t>(kFrontSize));
    close(fd);
}

Image stored_front() {
    Image image{};
    const int fd = open(kStore, O_RDONLY | O_CLOEXEC);
    EXPECT_EQ(read(fd, &image, kFrontSize), static_cast<ssize_t>(kFrontSize));
    close(fd);
    return image;
}

void set_store_path(const std::string& path) {
    write_file("/etc/board.conf", "[partitions]\nreboot_cause = " + path + "\n");
}

// A record of a planned reboot, of which nothing depends on this machine.
Record planned(uint8_t cause, uint32_t time = 1000, uint32_t uptime = 60) {
    Record record{};
    record.cause = cause;
    record.time = time;
    record.uptime = uptime;
    strncpy(record.process, "upgraded", sizeof(record.process));
    strncpy(record.message, "new firmware", sizeof(record.message));
    strncpy(record.location, "upgrade.c:finish:77", sizeof(record.location));
    return record;
}

int write_planned(uint8_t cause, uint32_t time = 1000, uint32_t uptime = 60) {
    Record record = planned(cause, time, uptime);
    return rb_write_reboot_cause_inner(&record);
}

// A run of the device that ends as planned, and the start of the next one.
void run_device(uint8_t cause = 1, uint32_t time = 1000, uint32_t uptime = 60) {
    EXPECT_EQ(write_planned(cause, time, uptime), 0);
    EXPECT_EQ(rb_kernel_up_check(), 0);
}

void run_device_times(int runs) {
    for (int i = 0; i < runs; i++)
        run_device();
}

std::vector<Record> read_all(int maximum = kSlots) {
    std::vector<Record> records(static_cast<size_t>(maximum));
    const int count = rb_read_reboot_cause(records.data(), maximum);
    records.resize(static_cast<size_t>(std::max(count, 0)));
    return records;
}

std::vector<int> sequences(const std::vector<Record>& records) {
    std::vector<int> numbers;
    numbers.reserve(records.size());
    for (const Record& record : records)
        numbers.push_back(record.sequence);
    return numbers;
}

// from, from - 1, ..., to
std::vector<int> down(int from, int to) {
    std::vector<int> numbers;
    for (int number = from; number >= to; number--)
        numbers.push_back(number);
    return numbers;
}

// No function logs, and none leaves a descriptor open.
class RebootCauseTest : public DeviceTest {
  protected:
    void SetUp() override {
        const std::string problem = danger();
        if (!problem.empty()) {
            fprintf(stderr, "The reboot is not masked: %s\n", problem.c_str());
            exit(125);
        }
        path_of_test.reset();
        set_store_path(kStore);
        mkdir(kDirectory, 0755);
    }

    void TearDown() override {
        EXPECT_THAT(log_.take(), IsEmpty());
        closelog();
        EXPECT_EQ(open_descriptors(), descriptors_);
        unlink(kWatchdog);
        unlink("/run/tqdevice/reboot");
        device_time.reset();
    }

    LogCapture log_;

  private:
    std::vector<int> descriptors_ = open_descriptors();
};

class StorePath : public RebootCauseTest {};
class OpenStore : public RebootCauseTest {};
class Uptime : public RebootCauseTest {};
class WriteRecord : public RebootCauseTest {};
class FillRecord : public RebootCauseTest {};
class ReadRecords : public RebootCauseTest {};
class ReadPanic : public RebootCauseTest {};
class ReadStatistic : public RebootCauseTest {};
class CorrectTime : public RebootCauseTest {};
class UpCheck : public RebootCauseTest {};
class NtpFlag : public RebootCauseTest {};
class Reboot : public RebootCauseTest {};
class DamagedStore : public RebootCauseTest {};
class StoreModel : public RebootCauseTest {};
class Crash : public RebootCauseTest {};

// get_reboot_cause_file

TEST_F(StorePath, IsAFactOfTheBoard) {
    EXPECT_STREQ(get_reboot_cause_file(), kStore);
    const char* buffer = get_reboot_cause_file();
    set_store_path("/etc/reboot_cause");
    EXPECT_EQ(get_reboot_cause_file(), buffer);
    EXPECT_STREQ(buffer, "/etc/reboot_cause");
}

// The other functions have it in a buffer of their own, so that they may run beside a caller of it.
TEST_F(StorePath, StaysWhileOtherFunctionsUseAnother) {
    const char* path = get_reboot_cause_file();
    set_store_path("/tmp/another_store");
    Statistic statistic{};
    EXPECT_EQ(rb_read_reboot_statistic(&statistic), 0);
    EXPECT_EQ(rb_set_ntp_sync_flag(1), 0);
    EXPECT_TRUE(exists("/tmp/another_store"));
    EXPECT_STREQ(path, kStore);
}

TEST_F(StorePath, HasRoomFor31Bytes) {
    const std::string longest = "/tmp/" + std::string(26, 'p');
    set_store_path(longest);
    EXPECT_STREQ(get_reboot_cause_file(), longest.c_str());
}

TEST_F(StorePath, EndsWithinItsRoomWhateverTheBoardLibraryWrites) {
    path_of_test = "/tmp/" + std::string(27, 'p');
    EXPECT_STREQ(get_reboot_cause_file(), path_of_test->substr(0, 31).c_str());
    EXPECT_EQ(rb_kernel_up_check(), 100);
    EXPECT_TRUE(exists(path_of_test->substr(0, 31)));
}

TEST_F(StorePath, IsNotAnEarlierOneWhereTheBoardLibraryWritesNothing) {
    EXPECT_EQ(rb_kernel_up_check(), 100);
    EXPECT_EQ(rb_set_ntp_sync_flag(1), 0);
    path_of_test = "";
    EXPECT_EQ(rb_set_ntp_sync_flag(1), -1);
    EXPECT_EQ(rb_kernel_up_check(), 0);
}

TEST_F(StorePath, IsNullWhereTheBoardNamesNone) {
    write_file("/etc/board.conf", "[partitions]\nprimary_image = firmware\n");
    EXPECT_EQ(get_reboot_cause_file(), nullptr);
}

TEST_F(StorePath, IsWhatEveryFunctionFailsWithout) {
    write_file("/etc/board.conf", "[partitions]\nprimary_image = firmware\n");
    Header header{};
    Record record = planned(1);
    Panic panic{};
    Statistic statistic{};
    EXPECT_EQ(rb_open_reboot_cause_file(&header), nullptr);
    EXPECT_EQ(rb_write_reboot_cause_inner(&record), -1);
    EXPECT_EQ(rb_write_reboot_cause(1, "f.c", "f", 1, "text"), -1);
    EXPECT_EQ(rb_read_reboot_cause(&record, 1), -1);
    EXPECT_EQ(rb_read_panic_by_index(&panic), -1);
    EXPECT_EQ(rb_read_reboot_statistic(&statistic), -1);
    EXPECT_EQ(rb_correct_reboot_time_now(), -1);
    EXPECT_EQ(rb_kernel_up_check(), 0);
    EXPECT_EQ(rb_set_ntp_sync_flag(1), -1);
}

// rb_open_reboot_cause_file

struct FileCloser {
    void operator()(FILE* file) const { fclose(file); }
};
using File = std::unique_ptr<FILE, FileCloser>;

TEST_F(OpenStore, MakesOneThatIsMissing) {
    Header header{};
    const File file(rb_open_reboot_cause_file(&header));
    ASSERT_NE(file, nullptr);
    EXPECT_EQ(ftell(file.get()), 43556);
    std::string expected(43556, '\0');
    expected[18] = '\xab';
    EXPECT_EQ(read_file(kStore), expected);
    EXPECT_EQ(bytes_of(header), expected.substr(0, 36));
}

TEST_F(OpenStore, LeavesThePermissionsToTheCallersMask) {
    for (const mode_t mask : {0U, 022U, 077U}) {
        unlink(kStore);
        const mode_t before = umask(mask);
        EXPECT_EQ(rb_read_reboot_cause(std::vector<Record>(1).data(), 1), 0);
        umask(before);
        struct stat status {};
        ASSERT_EQ(stat(kStore, &status), 0);
        EXPECT_EQ(status.st_mode & 07777, 0666 & ~mask);
    }
}

TEST_F(OpenStore, MakesOneAnewWhereTheMagicByteIsWrong) {
    for (const int magic : {0x00, 0xAA, 0xAC, 0xFF}) {
        SCOPED_TRACE(magic);
        std::string garbage(50000, '\x77');
        garbage[18] = static_cast<char>(magic);
        write_file(kStore, garbage);
        Header header{};
        const File file(rb_open_reboot_cause_file(&header));
        ASSERT_NE(file, nullptr);
        EXPECT_EQ(ftell(file.get()), 43556);
        EXPECT_EQ(bytes_of(stored()), bytes_of(empty_store()));
        EXPECT_EQ(bytes_of(header), bytes_of(empty_store().header));
    }
}

TEST_F(OpenStore, MakesOneAnewFromAFileTooShortForTheMagicByte) {
    for (const size_t size : {0U, 1U, 18U}) {
        SCOPED_TRACE(size);
        write_file(kStore, std::string(size, '\xab'));
        // What the caller's buffer holds is not taken for the store's.
        Header header = empty_store().header;
        header.position = 7;
        const File file(rb_open_reboot_cause_file(&header));
        ASSERT_NE(file, nullptr);
        EXPECT_EQ(bytes_of(stored()), bytes_of(empty_store()));
        EXPECT_EQ(header.position, 0);
    }
}

TEST_F(OpenStore, ReadsTheHeaderOfOneThatIsThere) {
    Image image = empty_store();
    memset(&image, 0x11, sizeof(image));
    image.header.magic = 0xAB;
    put(image);
    Header header{};
    const File file(rb_open_reboot_cause_file(&header));
    ASSERT_NE(file, nullptr);
    EXPECT_EQ(ftell(file.get()), 36);
    EXPECT_EQ(bytes_of(header), bytes_of(image.header));
    EXPECT_EQ(bytes_of(stored()), bytes_of(image));
}

TEST_F(OpenStore, GivesAStreamForReadingAndWriting) {
    put(empty_store());
    Header header{};
    {
        const File file(rb_open_reboot_cause_file(&header));
        ASSERT_NE(file, nullptr);
        EXPECT_EQ(fcntl(fileno(file.get()), F_GETFD, 0), FD_CLOEXEC);
        ASSERT_EQ(fseek(file.get(), 2596, SEEK_SET), 0);
        EXPECT_EQ(fwrite("panic", 1, 5, file.get()), 5U);
        ASSERT_EQ(fseek(file.get(), 18, SEEK_SET), 0);
        EXPECT_EQ(fgetc(file.get()), 0xAB);
    }
    EXPECT_EQ(read_file(kStore).substr(2596, 6), std::string("panic\0", 6));
}

TEST_F(OpenStore, RejectsANullHeader) {
    EXPECT_EQ(rb_open_reboot_cause_file(nullptr), nullptr);
    EXPECT_FALSE(exists(kStore));
}

// That the functions which open the store fail, with nothing changed.
void expect_not_available() {
    Header header = empty_store().header;
    header.position = 7;
    const Header before = header;
    EXPECT_EQ(rb_open_reboot_cause_file(&header), nullptr);
    EXPECT_EQ(bytes_of(header), bytes_of(before));
    EXPECT_EQ(write_planned(1), -1);
    Record record{};
    EXPECT_EQ(rb_read_reboot_cause(&record, 1), -1);
    Panic panic{};
    EXPECT_EQ(rb_read_panic_by_index(&panic), -1);
    Statistic statistic{};
    EXPECT_EQ(rb_read_reboot_statistic(&statistic), -1);
    EXPECT_EQ(rb_correct_reboot_time_now(), -1);
    EXPECT_EQ(rb_kernel_up_check(), 0);
}

TEST_F(OpenStore, FailsOnADirectory) {
    mkdir(kStore, 0755);
    expect_not_available();
    EXPECT_EQ(rb_set_ntp_sync_flag(1), -1);
}

TEST_F(OpenStore, FailsInAMissingDirectory) {
    set_store_path("/tmp/nothing/store");
    expect_not_available();
    EXPECT_EQ(rb_set_ntp_sync_flag(1), -1);
}

TEST_F(OpenStore, FailsOnAReadOnlyFileSystem) {
    Image image = empty_store();
    image.header.statistic.total = 3;
    put(image);
    const ReadOnly locked(kDirectory);
    expect_not_available();
    EXPECT_EQ(rb_set_ntp_sync_flag(1), -1);
    EXPECT_EQ(bytes_of(stored()), bytes_of(image));
}

TEST_F(OpenStore, FailsForAnotherUser) {
    put(empty_store());
    chmod(kStore, 0444);
    EXPECT_EQ(tq_test::as_nobody([] {
                  expect_not_available();
                  EXPECT_EQ(rb_set_ntp_sync_flag(1), -1);
                  return static_cast<int>(testing::Test::HasFailure());
              }),
              0);
    EXPECT_EQ(bytes_of(stored()), bytes_of(empty_store()));
}

TEST_F(OpenStore, FailsWhereAFullDiskHasNoRoomForOne) {
    const FullDisk full(kDirectory);
    expect_not_available();
}

TEST_F(OpenStore, MakesOneThatWasCutShortByAFullDisk) {
    {
        const Fail fail("write", 3, ENOSPC);
        EXPECT_EQ(write_planned(1), -1);
        EXPECT_TRUE(fail.fired());
        EXPECT_EQ(read_file(kStore)[18], '\0');
    }
    EXPECT_EQ(write_planned(1), 0);
    EXPECT_EQ(stored().header.statistic.total, 1);
}

TEST_F(OpenStore, KeepsAStoreThatCannotBeReadNow) {
    run_device_times(3);
    const Image before = stored();
    const unsigned failures = tq_test::faults::each_failure("read", EIO, [] {
        Header header{};
        const File file(rb_open_reboot_cause_file(&header));
    });
    EXPECT_GE(failures, 2U);  // the board's description, the store
    EXPECT_EQ(bytes_of(stored()), bytes_of(before));
    log_.take();  // the board library says that its description cannot be read
}

TEST_F(OpenStore, KeepsAStoreThatCannotBeOpenedNow) {
    run_device_times(3);
    const Image before = stored();
    const Fail fail("open", 2, EMFILE);  // the board's description is the first
    EXPECT_EQ(write_planned(1), -1);
    EXPECT_TRUE(fail.fired());
    EXPECT_EQ(bytes_of(stored()), bytes_of(before));
}

TEST_F(OpenStore, FailsWithoutMemoryForAStream) {
    const Fail fail("fdopen", 1, ENOMEM);
    Header header{};
    EXPECT_EQ(rb_open_reboot_cause_file(&header), nullptr);
    EXPECT_TRUE(fail.fired());
}

TEST_F(OpenStore, WorksOnADeviceNode) {
    set_store_path("/dev/null");
    Header header{};
    const File file(rb_open_reboot_cause_file(&header));
    ASSERT_NE(file, nullptr);
    EXPECT_EQ(header.magic, 0xAB);
    EXPECT_EQ(write_planned(1), 0);
}

TEST_F(OpenStore, OverwritesAllOfADeviceNodeThatKeepsItsSize) {
    write_file(kStore, std::string(60000, '\x77'));
    const Fail fail("ftruncate", 1, EINVAL);
    EXPECT_EQ(write_planned(1), 0);
    EXPECT_TRUE(fail.fired());
    const std::string bytes = read_file(kStore);
    EXPECT_EQ(bytes.substr(43556), std::string(60000 - 43556, '\x77'));
    EXPECT_EQ(bytes.substr(164, 43556 - 164), std::string(43556 - 164, '\0'));
}

// get_system_uptime

TEST_F(Uptime, IsTheKernelsInWholeSeconds) {
    timespec now{};
    clock_gettime(CLOCK_BOOTTIME, &now);
    const int uptime = get_system_uptime();
    EXPECT_GT(uptime, 0);
    const int kernels = std::atoi(read_file("/proc/uptime").c_str());
    EXPECT_GE(uptime, kernels - 2);
    EXPECT_LE(uptime, kernels);
}

TEST_F(Uptime, IsTheFirstNumberOfTheFirstLine) {
    struct Case {
        std::string content;
        int uptime;
    };
    const Case cases[] = {
        {"12345.67 54321.00\n", 12345},
        {"12345.99", 12345},
        {"0.99 0.50\n", 0},
        {" \t 7 8\n", 7},
        {"7\n", 7},
        {"-3\n", -3},
        {"2147483647.99 1\n", 2147483647},
        {"4294967297.00 1\n", 1},
        {"\n12345.67\n", 0},
        {"up 12345\n", 0},
        {"", 0},
        {std::string(126, ' ') + "98", 9},
    };
    const ScopedProc proc(Files{{"uptime", ""}});
    for (const Case& one : cases) {
        SCOPED_TRACE(one.content);
        write_file("/proc/uptime", one.content);
        EXPECT_EQ(get_system_uptime(), one.uptime);
    }
}

TEST_F(Uptime, IsZeroWhereItCannotBeRead) {
    const ScopedProc proc(Files{{"uptime/file", ""}});
    EXPECT_EQ(get_system_uptime(), 0);
    const Fail fail("open");
    EXPECT_EQ(get_system_uptime(), 0);
}

// rb_write_reboot_cause_inner

TEST_F(WriteRecord, PutsTheFirstOneIntoSlot0) {
    EXPECT_EQ(write_planned(3, 123456789, 4711), 0);
    Image expected = empty_store();
    expected.ring[0] = planned(3, 123456789, 4711);
    expected.ring[0].sequence = 1;
    expected.header.statistic = {1, {0, 0, 1, 0, 0}, 0, 3};
    expected.header.recorded = 1;
    expected.header.position = 1;
    EXPECT_EQ(bytes_of(stored()), bytes_of(expected));
}

TEST_F(WriteRecord, IsLaidOutByteForByte) {
    Record record = planned(5, 0x04030201, 0x14131211);
    put(empty_store());
    EXPECT_EQ(rb_set_ntp_sync_flag(1), 0);
    EXPECT_EQ(rb_write_reboot_cause_inner(&record), 0);
    const std::string bytes = read_file(kStore);
    EXPECT_EQ(bytes.substr(0, 36), std::string("\1\0\0\0\0\0\0\0\0\0\1\0\0\0\5\0"
                                               "\1\1\xab\0\1\0\0\0\0\0"
                                               "\0\0\0\0\0\0\0\0\0\0",
                                               36));
    EXPECT_EQ(bytes.substr(36, 16), std::string("\1\0\5\1\0\0\0\0\1\2\3\4\x11\x12\x13\x14", 16));
    EXPECT_EQ(bytes.substr(52, 16), "upgraded" + std::string(8, '\0'));
    EXPECT_EQ(bytes.substr(68, 48), "new firmware" + std::string(36, '\0'));
    EXPECT_EQ(bytes.substr(116, 48), "upgrade.c:finish:77" + std::string(29, '\0'));
    EXPECT_EQ(bytes.substr(164), std::string(43556 - 164, '\0'));
}

TEST_F(WriteRecord, CountsEachCause) {
    for (int cause = 0; cause <= 255; cause++) {
        SCOPED_TRACE(cause);
        unlink(kStore);
        EXPECT_EQ(write_planned(static_cast<uint8_t>(cause)), 0);
        const Image image = stored();
        const bool is_reset = cause == 6 || cause == 7;
        const int written = is_reset ? 4 : cause;
        Statistic expected{};
        expected.total = 1;
        expected.last_cause = static_cast<uint16_t>(written);
        if (written >= 1 && written <= 5) {
            expected.cause_count[written - 1] = 1;
        } else {
            expected.other_count = 1;
        }
        EXPECT_EQ(bytes_of(image.header.statistic), bytes_of(expected));
        EXPECT_EQ(image.ring[0].cause, written);
    }
}

TEST_F(WriteRecord, GoesRoundTheRing) {
    struct Case {
        int runs;
        int position;
    };
    for (const Case one : {Case{1, 1}, {19, 19}, {20, 20}, {21, 1}, {40, 20}, {41, 1}, {45, 5}}) {
        SCOPED_TRACE(one.runs);
        unlink(kStore);
        run_device_times(one.runs);
        const Image image = stored();
        EXPECT_EQ(image.header.statistic.total, one.runs);
        EXPECT_EQ(image.header.position, one.position);
        EXPECT_EQ(image.ring[static_cast<size_t>(one.position - 1)].sequence, one.runs);
        for (int slot = 0; slot < kSlots; slot++) {
            int newest = slot + 1;
            while (newest + kSlots <= one.runs)
                newest += kSlots;
            EXPECT_EQ(image.ring[static_cast<size_t>(slot)].sequence,
                      newest <= one.runs ? newest : 0);
        }
        EXPECT_EQ(bytes_of(image.panic), bytes_of(empty_store().panic));
    }
}

TEST_F(WriteRecord, KeepsOnlyTheFirstOfARun) {
    EXPECT_EQ(write_planned(1), 0);
    const Image before = stored();
    Record record = planned(2, 5, 6);
    record.time_quality = 9;
    Record expected = record;
    expected.sequence = 2;
    EXPECT_EQ(rb_write_reboot_cause_inner(&record), 1);
    EXPECT_EQ(bytes_of(record), bytes_of(expected));
    EXPECT_EQ(rb_write_reboot_cause(2, "f.c", "f", 1, "again"), 1);
    EXPECT_EQ(bytes_of(stored()), bytes_of(before));
}

TEST_F(WriteRecord, KeepsThePanicsAndWhatIsReserved) {
    Image image = empty_store();
    memset(&image.panic, 0x33, sizeof(image.panic));
    image.header.panic_identifier[0] = 0x1234;
    image.header.panic_identifier[1] = 0x5678;
    memset(image.header.reserved_26, 0x44, sizeof(image.header.reserved_26));
    image.header.reserved_19 = 0x55;
    image.header.reserved_21 = 0x66;
    put(image);
    run_device();
    image.header.statistic = {1, {1, 0, 0, 0, 0}, 0, 1};
    image.header.position = 1;
    image.ring[0] = planned(1);
    image.ring[0].sequence = 1;
    EXPECT_EQ(bytes_of(stored()), bytes_of(image));
}

TEST_F(WriteRecord, CountsOnFrom0Behind65535) {
    Image image = empty_store();
    image.header.statistic = {65534, {65535, 0, 0, 0, 0}, 65535, 1};
    image.header.position = 20;
    put(image);
    run_device(1);
    EXPECT_EQ(stored().header.statistic.total, 65535);
    EXPECT_EQ(stored().header.statistic.cause_count[0], 0);
    EXPECT_EQ(stored().ring[0].sequence, 65535);
    run_device(9);
    EXPECT_EQ(stored().header.statistic.total, 0);
    EXPECT_EQ(stored().header.statistic.other_count, 0);
    EXPECT_EQ(stored().ring[1].sequence, 0);
    run_device();
    EXPECT_EQ(stored().header.statistic.total, 1);
    EXPECT_EQ(stored().header.position, 3);
}

TEST_F(WriteRecord, ReportsARecordThatIsNotTaken) {
    run_device_times(2);
    const Image before = stored();
    {
        const Fail fail("pwrite", 1, ENOSPC);
        EXPECT_EQ(write_planned(1), -1);
        EXPECT_EQ(bytes_of(stored()), bytes_of(before));
    }
    {
        const Fail fail("pwrite", 2, ENOSPC);
        EXPECT_EQ(write_planned(1), -1);
        EXPECT_EQ(bytes_of(stored().header), bytes_of(before.header));
    }
}

TEST_F(WriteRecord, ReportsARecordThatIsCutOff) {
    run_device_times(2);
    const Image before = stored();
    const auto limited = [](rlim_t size) {
        return tq_test::as_nobody([size] {
            signal(SIGXFSZ, SIG_IGN);
            const rlimit limit{size, size};
            setrlimit(RLIMIT_FSIZE, &limit);
            return write_planned(1);
        });
    };
    chmod(kStore, 0666);
    EXPECT_EQ(limited(36 + 2 * 128 + 100), -1);
    EXPECT_EQ(bytes_of(stored().header), bytes_of(before.header));
    EXPECT_EQ(limited(36 + 3 * 128), 0);
    EXPECT_EQ(sequences(read_all()), down(3, 1));
}

TEST_F(WriteRecord, RejectsNull) {
    EXPECT_EQ(rb_write_reboot_cause_inner(nullptr), -1);
    EXPECT_FALSE(exists(kStore));
}

// The time and its quality.

struct Timed {
    uint32_t time;
    int quality;
    bool operator==(const Timed&) const = default;
};

void PrintTo(const Timed& timed, std::ostream* out) {
    *out << "time " << timed.time << " quality " << timed.quality;
}

Timed timed(const Record& record) {
    return {record.time, record.time_quality};
}

// What the newest record is after a write with the given cause, time 5000 and uptime 300.
Timed write_timed(uint8_t cause) {
    EXPECT_EQ(write_planned(cause, 5000, 300), 0);
    return timed(read_all(1).at(0));
}

TEST_F(WriteRecord, KnowsItsTimeWhileTheClockIsSynchronised) {
    for (const int flag : {1, 2, 255}) {
        unlink(kStore);
        put(empty_store());
        EXPECT_EQ(rb_set_ntp_sync_flag(static_cast<unsigned char>(flag)), 0);
        EXPECT_EQ(write_timed(1), (Timed{5000, 1}));
    }
}

TEST_F(WriteRecord, DoesNotKnowItsTimeWithoutAPrecedingOne) {
    EXPECT_EQ(write_timed(1), (Timed{5000, 0}));
    EXPECT_EQ(rb_kernel_up_check(), 0);
    EXPECT_EQ(write_timed(1), (Timed{5000, 0}));
}

// A store whose newest record, in that slot, has that time and quality.
void put_previous(uint8_t position, uint16_t total, uint32_t time, int quality) {
    Image image = empty_store();
    image.header.position = position;
    image.header.statistic.total = total;
    Record& previous = image.ring[position == 0 ? kSlots - 1 : position - 1];
    previous = planned(1, time, 60);
    previous.sequence = total;
    previous.time_quality = static_cast<uint8_t>(quality);
    put(image);
}

TEST_F(WriteRecord, EstimatesItsTimeFromThePreviousRecord) {
    for (const int quality : {1, 2, 3, 255}) {
        SCOPED_TRACE(quality);
        put_previous(1, 1, 900000, quality);
        EXPECT_EQ(write_timed(1), (Timed{900000 + 10 + 300, 2}));
    }
    put_previous(1, 1, 900000, 0);
    EXPECT_EQ(write_timed(1), (Timed{5000, 0}));
}

TEST_F(WriteRecord, FindsThePreviousRecordInEverySlot) {
    for (uint8_t position = 0; position <= kSlots; position++) {
        SCOPED_TRACE(position);
        put_previous(position, 45, 700000, 1);
        EXPECT_EQ(write_timed(2), (Timed{700310, 2}));
    }
}

TEST_F(WriteRecord, HasNoPreviousRecordInAFreshStore) {
    Image image = empty_store();
    image.ring[19] = planned(1, 700000);
    image.ring[19].time_quality = 1;
    put(image);
    EXPECT_EQ(write_timed(2), (Timed{5000, 0}));
}

TEST_F(WriteRecord, NeverEstimatesTheTimeOfAReset) {
    for (const uint8_t cause : {uint8_t{6}, uint8_t{7}}) {
        put_previous(1, 1, 900000, 1);
        Record record = planned(cause, 5000, 300);
        record.time_quality = 3;
        EXPECT_EQ(rb_write_reboot_cause_inner(&record), 0);
        EXPECT_EQ(timed(record), (Timed{5000, 0}));
        EXPECT_EQ(record.cause, 4);
        EXPECT_EQ(timed(read_all(1).at(0)), (Timed{5000, 0}));
        EXPECT_EQ(stored().header.statistic.cause_count[3], 1);
        EXPECT_EQ(stored().header.statistic.last_cause, 4);
    }
}

TEST_F(WriteRecord, DoesNotKnowTheTimeOfAResetOfASynchronisedRun) {
    put(empty_store());
    EXPECT_EQ(rb_set_ntp_sync_flag(1), 0);
    EXPECT_EQ(write_timed(6), (Timed{5000, 0}));
}

TEST_F(WriteRecord, EstimatesTheTimeOfCause4) {
    put_previous(1, 1, 900000, 1);
    EXPECT_EQ(write_timed(4), (Timed{900310, 2}));
}

// rb_generate_reboot_cause, rb_write_reboot_cause

// Shows up as the command line of this process; false where an emulator answers with its own.
bool fake_command_line(const std::string& line) {
    const std::string path = "/proc/" + std::to_string(getpid()) + "/cmdline";
    write_file(path, line);
    return read_file(path) == line;
}

Files with_command_line() {
    return {{std::to_string(getpid()) + "/cmdline", ""}, {"uptime", "4711.99 1.00\n"}};
}

TEST_F(FillRecord, TellsWhatIsKnown) {
    device_time = 1700000000;
    Record record;
    memset(&record, 0x5a, sizeof(record));
    const ScopedProc proc(with_command_line());
    const bool named = fake_command_line(std::string("/usr/sbin/capwapd\0-f\0", 21));
    rb_generate_reboot_cause(&record, 0x205, "wtp.c", "leave", 42, "%s by %d", "asked", 7);
    Record expected{};
    expected.cause = 5;
    expected.time = 1700000000;
    expected.uptime = 4711;
    memcpy(expected.message, "asked by 7", 10);
    memcpy(expected.location, "wtp.c:leave:42", 14);
    memcpy(expected.process, named ? "capwapd" : record.process, named ? 7 : 16);
    EXPECT_EQ(bytes_of(record), bytes_of(expected));
    EXPECT_FALSE(exists(kStore));
}

TEST_F(FillRecord, IsWhatIsWritten) {
    device_time = 1700000000;
    const ScopedProc proc(with_command_line());
    Record record{};
    rb_generate_reboot_cause(&record, 2, "wtp.c", "leave", -42, "%s by %d", "asked", 7);
    EXPECT_EQ(rb_write_reboot_cause(2, "wtp.c", "leave", -42, "%s by %d", "asked", 7), 0);
    record.sequence = 1;
    EXPECT_EQ(text_of(record.location), "wtp.c:leave:-42");
    EXPECT_EQ(bytes_of(stored().ring[0]), bytes_of(record));
}

TEST_F(FillRecord, TakesTheTimeOfTheClock) {
    const auto before = static_cast<uint32_t>(time(nullptr));
    Record record{};
    rb_generate_reboot_cause(&record, 1, "f.c", "f", 1, "text");
    EXPECT_GE(record.time, before);
    EXPECT_LE(record.time, before + 60);
    const auto uptime = static_cast<uint32_t>(get_system_uptime());
    EXPECT_LE(record.uptime, uptime);
    EXPECT_GE(record.uptime + 60, uptime);
}

TEST_F(FillRecord, CutsTheTextsTo47Bytes) {
    const std::string text(60, 'm');
    for (const size_t length : {46U, 47U, 48U, 60U}) {
        SCOPED_TRACE(length);
        Record record{};
        const std::string file(length - 4, 'f');
        rb_generate_reboot_cause(&record, 1, file.c_str(), "g", 1, "%.*s", static_cast<int>(length),
                                 text.c_str());
        const size_t kept = std::min<size_t>(length, 47);
        EXPECT_EQ(std::string(record.message, 48),
                  std::string(kept, 'm') + std::string(48 - kept, '\0'));
        EXPECT_EQ(std::string(record.location, 48),
                  (file + ":g:1").substr(0, kept) + std::string(48 - kept, '\0'));
    }
}

TEST_F(FillRecord, NamesTheProcessByItsCommandLine) {
    struct Case {
        std::string line;
        std::string name;
    };
    const Case cases[] = {
        {std::string("/usr/sbin/capwapd\0-f\0", 21), "capwapd"},
        {std::string("capwapd\0/etc/other\0", 19), "capwapd"},
        {"./fmd", "fmd"},
        {std::string("a/b/c\0", 6), "c"},
        {std::string("/usr/sbin/\0", 11), ""},
        {std::string("fifteen-letters\0", 16), "fifteen-letters"},
        {std::string("sixteen-letters!\0", 17), "sixteen-letters!"},
        {std::string("seventeen-letters\0", 18), "seventeen-letter"},
        {std::string("/usr/sbin/a-very-long-name\0", 27), "a-very-long-n"},
        {std::string("/usr/lib/a-directory/daemon\0", 28), "da"},
        {std::string("/usr/lib/a-long-directory/daemon\0", 33), "a-long-directo"},
        {std::string("one\ntwo\0", 8), "one\n"},
        {std::string("\0/x\0", 4), ""},
        {"", ""},
    };
    const ScopedProc proc(with_command_line());
    if (!fake_command_line("x")) GTEST_SKIP() << "the emulator tells a command line of its own";
    for (const Case& one : cases) {
        SCOPED_TRACE(one.line);
        fake_command_line(one.line);
        Record record{};
        rb_generate_reboot_cause(&record, 1, "f.c", "f", 1, "text");
        EXPECT_EQ(std::string(record.process, 16),
                  one.name + std::string(16 - one.name.size(), '\0'));
    }
}

TEST_F(FillRecord, NamesNoProcessWhereTheCommandLineCannotBeRead) {
    const Fail fail("open", 1, ENOENT);
    Record record{};
    rb_generate_reboot_cause(&record, 1, "f.c", "f", 1, "text");
    EXPECT_TRUE(fail.fired());
    EXPECT_EQ(std::string(record.process, 16), std::string(16, '\0'));
    EXPECT_STREQ(record.message, "text");
    EXPECT_NE(record.uptime, 0U);
}

TEST_F(FillRecord, HasNoUptimeWhereThatCannotBeRead) {
    const Fail fail("open", 2, ENOENT);
    Record record{};
    rb_generate_reboot_cause(&record, 1, "f.c", "f", 1, "text");
    EXPECT_TRUE(fail.fired());
    EXPECT_EQ(record.uptime, 0U);
    EXPECT_NE(record.time, 0U);
}

// The compiler would notice these nulls.
const char* no_text() {
    static const char* volatile none = nullptr;
    return none;
}

TEST_F(FillRecord, RejectsNull) {
    rb_generate_reboot_cause(nullptr, 1, "f.c", "f", 1, "text");
    const Record before = planned(1);
    Record record = before;
    rb_generate_reboot_cause(&record, 1, no_text(), "f", 1, "text");
    rb_generate_reboot_cause(&record, 1, "f.c", no_text(), 1, "text");
    void (*generate)(Record*, unsigned, const char*, const char*, int, const char*, ...) =
        rb_generate_reboot_cause;
    generate(&record, 1, "f.c", "f", 1, no_text());
    EXPECT_EQ(bytes_of(record), bytes_of(before));
    EXPECT_EQ(rb_write_reboot_cause(1, no_text(), "f", 1, "text"), -1);
    EXPECT_EQ(rb_write_reboot_cause(1, "f.c", no_text(), 1, "text"), -1);
    int (*write)(int, const char*, const char*, int, const char*, ...) = rb_write_reboot_cause;
    EXPECT_EQ(write(1, "f.c", "f", 1, no_text()), -1);
    EXPECT_FALSE(exists(kStore));
}

// rb_read_reboot_cause

TEST_F(ReadRecords, GivesTheNewestFirst) {
    struct Case {
        int runs;
        int oldest;
    };
    for (const Case one : {Case{1, 1}, {3, 1}, {19, 1}, {20, 1}, {21, 2}, {45, 26}}) {
        SCOPED_TRACE(one.runs);
        unlink(kStore);
        run_device_times(one.runs);
        EXPECT_EQ(sequences(read_all(20)), down(one.runs, one.oldest));
        EXPECT_EQ(sequences(read_all(25)), down(one.runs, one.oldest));
    }
}

TEST_F(ReadRecords, StopsAtTheMaximum) {
    run_device_times(25);
    std::vector<Record> records(21, planned(9));
    for (const int maximum : {1, 2, 19, 20}) {
        EXPECT_EQ(rb_read_reboot_cause(records.data(), maximum), maximum);
        EXPECT_EQ(sequences({records.begin(), records.begin() + maximum}), down(25, 26 - maximum));
        EXPECT_EQ(bytes_of(records[static_cast<size_t>(maximum)]), bytes_of(planned(9)));
    }
    EXPECT_EQ(rb_read_reboot_cause(records.data(), INT_MAX), 20);
    EXPECT_EQ(bytes_of(records[20]), bytes_of(planned(9)));
}

TEST_F(ReadRecords, PutsAnEmptyRecordBehindTheLast) {
    run_device_times(3);
    std::vector<Record> records(20, planned(9));
    EXPECT_EQ(rb_read_reboot_cause(records.data(), 20), 3);
    EXPECT_EQ(bytes_of(records[3]), bytes_of(Record{}));
    EXPECT_EQ(bytes_of(records[4]), bytes_of(planned(9)));
    records.assign(20, planned(9));
    EXPECT_EQ(rb_read_reboot_cause(records.data(), 3), 3);
    EXPECT_EQ(bytes_of(records[3]), bytes_of(planned(9)));
}

TEST_F(ReadRecords, FindsNoneInAFreshStore) {
    std::vector<Record> records(2, planned(9));
    EXPECT_EQ(rb_read_reboot_cause(records.data(), 2), 0);
    EXPECT_EQ(bytes_of(records[0]), bytes_of(Record{}));
    EXPECT_EQ(bytes_of(records[1]), bytes_of(planned(9)));
    EXPECT_EQ(bytes_of(stored()), bytes_of(empty_store()));
}

TEST_F(ReadRecords, StopsAtAnEmptyRecordAndCopiesIt) {
    run_device_times(25);
    Image image = stored();
    image.ring[2].sequence = 0;
    put(image);
    std::vector<Record> records(20, planned(9));
    EXPECT_EQ(rb_read_reboot_cause(records.data(), 20), 2);
    EXPECT_EQ(bytes_of(records[2]), bytes_of(image.ring[2]));
    EXPECT_EQ(bytes_of(records[3]), bytes_of(planned(9)));
}

TEST_F(ReadRecords, ChangesNothing) {
    run_device_times(25);
    const Image before = stored();
    read_all();
    EXPECT_EQ(bytes_of(stored()), bytes_of(before));
}

TEST_F(ReadRecords, RejectsBadArguments) {
    Record record = planned(9);
    EXPECT_EQ(rb_read_reboot_cause(nullptr, 1), -1);
    for (const int maximum : {0, -1, INT_MIN})
        EXPECT_EQ(rb_read_reboot_cause(&record, maximum), -1);
    EXPECT_EQ(bytes_of(record), bytes_of(planned(9)));
    EXPECT_FALSE(exists(kStore));
}

// rb_read_panic_by_index

std::unique_ptr<Panic> untouched_panic(uint32_t identifier) {
    auto panic = std::make_unique<Panic>();
    memset(panic->text, 0x5a, sizeof(panic->text));
    panic->identifier = identifier;
    return panic;
}

std::string content(const Panic& panic) {
    return {panic.text, sizeof(panic.text)};
}

Image store_with_panics(uint16_t first, uint16_t second) {
    Image image = empty_store();
    image.header.panic_identifier[0] = first;
    image.header.panic_identifier[1] = second;
    image.panic[0].fill('a');
    image.panic[1].fill('b');
    image.panic[0][0] = '<';
    image.panic[1][20479] = '>';
    return image;
}

TEST_F(ReadPanic, CopiesTheTextOfTheIdentifier) {
    const Image image = store_with_panics(17, 65535);
    put(image);
    const auto panic = untouched_panic(17);
    EXPECT_EQ(rb_read_panic_by_index(panic.get()), 0);
    EXPECT_EQ(content(*panic), bytes_of(image.panic[0]));
    panic->identifier = 65535;
    EXPECT_EQ(rb_read_panic_by_index(panic.get()), 0);
    EXPECT_EQ(content(*panic), bytes_of(image.panic[1]));
    EXPECT_EQ(panic->identifier, 65535U);
    EXPECT_EQ(bytes_of(stored()), bytes_of(image));
}

TEST_F(ReadPanic, PrefersTheFirstOfTwoWithOneIdentifier) {
    const Image image = store_with_panics(17, 17);
    put(image);
    const auto panic = untouched_panic(17);
    EXPECT_EQ(rb_read_panic_by_index(panic.get()), 0);
    EXPECT_EQ(content(*panic), bytes_of(image.panic[0]));
}

TEST_F(ReadPanic, FailsForAnIdentifierThatNoneHas) {
    put(store_with_panics(17, 18));
    for (const uint32_t identifier : {0U, 16U, 19U, 65536U + 17U, UINT32_MAX}) {
        const auto panic = untouched_panic(identifier);
        EXPECT_EQ(rb_read_panic_by_index(panic.get()), -1);
        EXPECT_EQ(content(*panic), std::string(20480, '\x5a'));
    }
}

TEST_F(ReadPanic, FindsAnEmptyTextByZeroInAFreshStore) {
    const auto panic = untouched_panic(0);
    EXPECT_EQ(rb_read_panic_by_index(panic.get()), 0);
    EXPECT_EQ(content(*panic), std::string(20480, '\0'));
}

TEST_F(ReadPanic, FailsWhereTheTextCannotBeRead) {
    put(store_with_panics(17, 18));
    const Fail fail("pread", 1, EIO);
    const auto panic = untouched_panic(17);
    const std::string before = content(*panic);
    EXPECT_EQ(rb_read_panic_by_index(panic.get()), -1);
    EXPECT_TRUE(fail.fired());
    EXPECT_EQ(content(*panic), before);
}

TEST_F(ReadPanic, RejectsNull) {
    EXPECT_EQ(rb_read_panic_by_index(nullptr), -1);
    EXPECT_FALSE(exists(kStore));
}

// rb_read_reboot_statistic

TEST_F(ReadStatistic, CopiesTheCounters) {
    const Statistic statistic{0x0201, {0x0403, 5, 6, 7, 8}, 9, 10};
    Image image = empty_store();
    image.header.statistic = statistic;
    put(image);
    std::array<Statistic, 2> out{};
    EXPECT_EQ(rb_read_reboot_statistic(out.data()), 0);
    EXPECT_EQ(bytes_of(out[0]), read_file(kStore).substr(0, 16));
    EXPECT_EQ(bytes_of(out[1]), bytes_of(Statistic{}));
    EXPECT_EQ(bytes_of(stored()), bytes_of(image));
}

TEST_F(ReadStatistic, IsZeroInAFreshStore) {
    Statistic out{1, {}, 1, 1};
    EXPECT_EQ(rb_read_reboot_statistic(&out), 0);
    EXPECT_EQ(bytes_of(out), bytes_of(Statistic{}));
}

TEST_F(ReadStatistic, RejectsNull) {
    EXPECT_EQ(rb_read_reboot_statistic(nullptr), -1);
    EXPECT_FALSE(exists(kStore));
}

// rb_correct_reboot_time_now

// The clock is right now: 1000000, 500 s after the kernel's start.
class SynchronisedClock {
  public:
    SynchronisedClock() : proc_(Files{{"uptime", "500.50 1.00\n"}}) { device_time = 1000000; }

  private:
    ScopedProc proc_;
};

std::vector<Timed> times() {
    std::vector<Timed> all;
    for (const Record& record : read_all())
        all.push_back(timed(record));
    return all;
}

TEST_F(CorrectTime, CountsBackOverTheRuns) {
    run_device(1, 1, 60);
    run_device(2, 2, 3600);
    run_device(4, 3, 100);
    const Image before = stored();
    const SynchronisedClock clock;
    EXPECT_EQ(rb_correct_reboot_time_now(), 0);
    const uint32_t newest = 1000000 - 500 - 10;
    EXPECT_EQ(times(),
              (std::vector<Timed>{
                  {newest, 3}, {newest - 100 - 10, 3}, {newest - 100 - 10 - 3600 - 10, 3}}));
    Image expected = before;
    for (Record& record : expected.ring) {
        if (record.sequence == 0) continue;
        record.time = stored().ring[record.sequence - 1U].time;
        record.time_quality = 3;
    }
    EXPECT_EQ(bytes_of(stored()), bytes_of(expected));
}

TEST_F(CorrectTime, EndsAtARecordWhoseTimeIsKnown) {
    for (const uint8_t quality : {uint8_t{1}, uint8_t{2}, uint8_t{3}, uint8_t{9}}) {
        unlink(kStore);
        run_device_times(4);
        Image image = stored();
        image.ring[1].time_quality = quality;
        image.ring[1].time = 77;
        put(image);
        const SynchronisedClock clock;
        EXPECT_EQ(rb_correct_reboot_time_now(), 0);
        EXPECT_EQ(times(),
                  (std::vector<Timed>{{999490, 3}, {999420, 3}, {77, quality}, {1000, 0}}));
    }
}

TEST_F(CorrectTime, ChangesNothingTheSecondTime) {
    run_device_times(3);
    const SynchronisedClock clock;
    EXPECT_EQ(rb_correct_reboot_time_now(), 0);
    const Image before = stored();
    device_time = 2000000;
    EXPECT_EQ(rb_correct_reboot_time_now(), 0);
    EXPECT_EQ(bytes_of(stored()), bytes_of(before));
}

TEST_F(CorrectTime, GoesAcrossTheWrap) {
    for (const int runs : {19, 20, 21, 30, 40, 45}) {
        SCOPED_TRACE(runs);
        unlink(kStore);
        run_device_times(runs);
        const SynchronisedClock clock;
        EXPECT_EQ(rb_correct_reboot_time_now(), 0);
        std::vector<Timed> expected;
        for (uint32_t i = 0; i < static_cast<uint32_t>(std::min(runs, kSlots)); i++)
            expected.push_back({999490 - i * 70, 3});
        EXPECT_EQ(times(), expected);
    }
}

TEST_F(CorrectTime, EndsBehindAResetThatAnotherWriterPutThere) {
    for (const uint8_t cause : {uint8_t{6}, uint8_t{7}}) {
        unlink(kStore);
        run_device_times(4);
        Image image = stored();
        image.ring[2].cause = cause;
        put(image);
        const SynchronisedClock clock;
        EXPECT_EQ(rb_correct_reboot_time_now(), 0);
        EXPECT_EQ(times(), (std::vector<Timed>{{999490, 3}, {999420, 3}, {1000, 0}, {1000, 0}}));
    }
}

TEST_F(CorrectTime, GoesOnBehindAStoredReset) {
    run_device_times(1);
    EXPECT_EQ(rb_kernel_up_check(), 100);
    const SynchronisedClock clock;
    EXPECT_EQ(rb_correct_reboot_time_now(), 0);
    const uint32_t uptime = read_all().at(0).uptime;
    EXPECT_EQ(times(), (std::vector<Timed>{{999490, 3}, {999490 - uptime - 10, 3}}));
}

TEST_F(CorrectTime, TakesARecordWhateverItsSequenceNumber) {
    run_device_times(3);
    Image image = stored();
    for (Record& record : image.ring)
        record.sequence = 0;
    put(image);
    const SynchronisedClock clock;
    EXPECT_EQ(rb_correct_reboot_time_now(), 0);
    for (uint32_t slot = 0; slot < 3; slot++) {
        image.ring[slot].time = 999490 - (2 - slot) * 70;
        image.ring[slot].time_quality = 3;
    }
    EXPECT_EQ(bytes_of(stored()), bytes_of(image));
}

TEST_F(CorrectTime, VisitsEachSlotOnceWhereTheRingHasWrapped) {
    run_device_times(2);
    Image image = stored();
    image.header.statistic.total = 100;
    put(image);
    const SynchronisedClock clock;
    EXPECT_EQ(rb_correct_reboot_time_now(), 0);
    image.ring[1].time = 999490;
    image.ring[0].time = 999490 - 70;
    for (uint32_t slot = 2; slot < kSlots; slot++)
        image.ring[slot].time = 999490 - 140 - (kSlots - 1 - slot) * 10;
    for (Record& record : image.ring)
        record.time_quality = 3;
    EXPECT_EQ(bytes_of(stored()), bytes_of(image));
}

TEST_F(CorrectTime, FindsNothingInAFreshStore) {
    EXPECT_EQ(rb_correct_reboot_time_now(), 0);
    EXPECT_EQ(bytes_of(stored()), bytes_of(empty_store()));
}

TEST_F(CorrectTime, NeedsTheUptime) {
    run_device_times(1);
    const Image before = stored();
    const ScopedProc proc(Files{{"uptime", "0.99 0.00\n"}});
    EXPECT_EQ(rb_correct_reboot_time_now(), -1);
    EXPECT_EQ(bytes_of(stored()), bytes_of(before));
    unlink(kStore);
    EXPECT_EQ(rb_correct_reboot_time_now(), -1);
    EXPECT_FALSE(exists(kStore));
}

TEST_F(CorrectTime, TakesAnUptimeThatFillsItsWord) {
    run_device_times(1);
    const SynchronisedClock clock;
    write_file("/proc/uptime", "4294967295.00 0.00\n");
    EXPECT_EQ(rb_correct_reboot_time_now(), 0);
    EXPECT_EQ(times(), (std::vector<Timed>{{1000000 + 1 - 10, 3}}));
}

TEST_F(CorrectTime, MakesAnEstimateForTheNextRunPossible) {
    run_device_times(1);
    const SynchronisedClock clock;
    EXPECT_EQ(rb_correct_reboot_time_now(), 0);
    EXPECT_EQ(write_timed(1), (Timed{999490 + 10 + 300, 2}));
}

// rb_kernel_up_check

TEST_F(UpCheck, BeginsARunAfterAPlannedReboot) {
    put(empty_store());
    EXPECT_EQ(rb_set_ntp_sync_flag(1), 0);
    EXPECT_EQ(write_planned(1), 0);
    Image expected = stored();
    EXPECT_EQ(expected.header.recorded, 1);
    EXPECT_EQ(expected.header.time_synchronised, 1);
    EXPECT_EQ(rb_kernel_up_check(), 0);
    expected.header.recorded = 0;
    expected.header.time_synchronised = 0;
    EXPECT_EQ(bytes_of(stored()), bytes_of(expected));
}

TEST_F(UpCheck, TakesAnyFlagButZeroForARecord) {
    for (const int flag : {1, 2, 255}) {
        Image image = empty_store();
        image.header.recorded = static_cast<uint8_t>(flag);
        put(image);
        EXPECT_EQ(write_planned(1), 1) << flag;
        EXPECT_EQ(rb_kernel_up_check(), 0) << flag;
        EXPECT_EQ(bytes_of(stored()), bytes_of(empty_store())) << flag;
    }
}

// What the check records after a run that left no record.
Record recorded_reset() {
    run_device();
    EXPECT_EQ(rb_kernel_up_check(), 100);
    const Image image = stored();
    EXPECT_EQ(image.header.recorded, 0);
    EXPECT_EQ(image.header.time_synchronised, 0);
    EXPECT_EQ(image.header.position, 2);
    EXPECT_EQ(bytes_of(image.header.statistic), bytes_of(Statistic{2, {1, 0, 0, 1, 0}, 0, 4}));
    EXPECT_EQ(image.ring[1].sequence, 2);
    EXPECT_EQ(image.ring[1].cause, 4);
    EXPECT_EQ(image.ring[1].time_quality, 0);
    return image.ring[1];
}

void expect_power_down() {
    const Record record = recorded_reset();
    EXPECT_EQ(text_of(record.message), "Power down");
    EXPECT_EQ(text_of(record.location), "reboot_cause.c:rb_kernel_up_check:397");
}

TEST_F(UpCheck, RecordsAPowerLossWithoutAWatchdog) {
    device_time = 86400;
    const ScopedProc proc(Files{{"uptime", "33.75 1.00\n"}});
    expect_power_down();
    EXPECT_EQ(stored().ring[1].time, 86400U);
    EXPECT_EQ(stored().ring[1].uptime, 33U);
}

TEST_F(UpCheck, RecordsWhatTheWatchdogDid) {
    write_file(kWatchdog, "");
    const AnswerIoctl answer([](unsigned long request, void* argument) -> std::optional<int> {
        if (request != 0x89ABCDF1) return std::nullopt;
        *static_cast<int*>(argument) = 1;
        return 0;
    });
    const Record record = recorded_reset();
    EXPECT_EQ(text_of(record.message), "Watch dog");
    EXPECT_EQ(text_of(record.location), "reboot_cause.c:rb_kernel_up_check:395");
}

TEST_F(UpCheck, RecordsAPowerLossWhereTheWatchdogDidNothing) {
    for (const int made_reset : {0, 2, -1}) {
        unlink(kStore);
        write_file(kWatchdog, "");
        const AnswerIoctl answer([&](unsigned long, void* argument) {
            *static_cast<int*>(argument) = made_reset;
            return std::optional<int>(0);
        });
        expect_power_down();
    }
}

TEST_F(UpCheck, RecordsAPowerLossWhereTheWatchdogRefuses) {
    write_file(kWatchdog, "");
    expect_power_down();  // a plain file knows no requests
    unlink(kStore);
    const AnswerIoctl answer([](unsigned long, void* argument) {
        *static_cast<int*>(argument) = 1;
        errno = EPERM;
        return std::optional<int>(-1);
    });
    expect_power_down();
}

TEST_F(UpCheck, OpensTheWatchdogForReadingAndClosesIt) {
    write_file(kWatchdog, "");
    int flags = -1;
    const AnswerIoctl answer([&](unsigned long, void*) {
        for (const int fd : open_descriptors()) {
            std::array<char, 64> target{};
            const std::string link = "/proc/self/fd/" + std::to_string(fd);
            if (readlink(link.c_str(), target.data(), target.size() - 1) < 0) continue;
            if (std::string(target.data()) == kWatchdog) flags = fcntl(fd, F_GETFL, 0) & O_ACCMODE;
        }
        return std::optional<int>(0);
    });
    EXPECT_EQ(rb_kernel_up_check(), 100);
    EXPECT_EQ(flags, O_RDONLY);
}

TEST_F(UpCheck, CountsAFreshStoreAsAResetOnce) {
    EXPECT_EQ(rb_kernel_up_check(), 100);
    const Image before = stored();
    EXPECT_EQ(before.header.statistic.total, 1);
    EXPECT_EQ(rb_kernel_up_check(), 0);
    EXPECT_EQ(bytes_of(stored()), bytes_of(before));
}

TEST_F(UpCheck, RecordsTheResetBehindNumber65535Once) {
    Image image = empty_store();
    image.header.statistic.total = 65535;
    put(image);
    EXPECT_EQ(rb_kernel_up_check(), 100);
    const Image before = stored();
    EXPECT_EQ(before.header.statistic.total, 0);
    EXPECT_EQ(rb_kernel_up_check(), 0);
    EXPECT_EQ(bytes_of(stored()), bytes_of(before));
}

TEST_F(UpCheck, AddsNothingToARunWhoseTimesWereCorrected) {
    run_device();
    EXPECT_EQ(rb_kernel_up_check(), 100);
    EXPECT_EQ(rb_set_ntp_sync_flag(1), 0);
    EXPECT_EQ(rb_correct_reboot_time_now(), 0);
    Image expected = stored();
    EXPECT_EQ(expected.ring[1].time_quality, 3);
    EXPECT_EQ(rb_kernel_up_check(), 0);
    expected.header.time_synchronised = 0;
    EXPECT_EQ(bytes_of(stored()), bytes_of(expected));
}

// The next boot is another process, after another time.
int check_at_next_boot(int uptime) {
    write_file("/proc/uptime", std::to_string(uptime) + ".00 1.00\n");
    const pid_t child = fork();
    if (child == 0) _exit(rb_kernel_up_check());
    int status = 0;
    waitpid(child, &status, 0);
    return WEXITSTATUS(status);
}

TEST_F(UpCheck, RecordsEachResetOfAPowerLossLoop) {
    const ScopedProc proc(Files{{"uptime", ""}});
    run_device();
    for (int boot = 1; boot <= 25; boot++) {
        EXPECT_EQ(check_at_next_boot(30 + boot), 100);
        EXPECT_EQ(stored().header.statistic.cause_count[3], boot);
        EXPECT_EQ(read_all(1).at(0).uptime, 30U + static_cast<uint32_t>(boot));
    }
}

TEST_F(UpCheck, RecordsTheResetBehindAPlannedReboot) {
    EXPECT_EQ(rb_kernel_up_check(), 100);
    EXPECT_EQ(write_planned(1), 0);
    EXPECT_EQ(rb_kernel_up_check(), 0);
    EXPECT_EQ(rb_kernel_up_check(), 100);
    EXPECT_EQ(sequences(read_all()), down(3, 1));
}

TEST_F(UpCheck, GivesTheRunItsOneRecordBack) {
    EXPECT_EQ(rb_kernel_up_check(), 100);
    EXPECT_EQ(write_planned(1), 0);
    EXPECT_EQ(write_planned(1), 1);
}

// rb_set_ntp_sync_flag

TEST_F(NtpFlag, WritesTheOneByteAndWaitsForTheStorage) {
    Image image = empty_store();
    memset(&image, 0x22, sizeof(image));
    put(image);
    for (const int flag : {1, 0, 255}) {
        tq_test::faults::reset();
        EXPECT_EQ(rb_set_ntp_sync_flag(static_cast<unsigned char>(flag)), 0);
        EXPECT_EQ(tq_test::faults::count("fsync"), 1U);
        image.header.time_synchronised = static_cast<uint8_t>(flag);
        EXPECT_EQ(bytes_of(stored()), bytes_of(image));
    }
}

TEST_F(NtpFlag, MakesNoStore) {
    EXPECT_EQ(rb_set_ntp_sync_flag(1), -1);
    EXPECT_FALSE(exists(kStore));
    write_file(kStore, "");
    EXPECT_EQ(rb_set_ntp_sync_flag(1), 0);
    EXPECT_EQ(read_file(kStore), std::string(17, '\0') + '\1');
}

TEST_F(NtpFlag, IgnoresWhatTheStorageDoesNotTake) {
    put(empty_store());
    const Fail fail("pwrite", 1, EIO);
    EXPECT_EQ(rb_set_ntp_sync_flag(1), 0);
    EXPECT_EQ(stored().header.time_synchronised, 0);
}

// reboot_system

void interrupt(int) {
    if (tq_test::faults::count("system") < 3) return;
    _exit(static_cast<int>(tq_test::faults::seconds_slept()));
}

// In a child whose sleeps a signal ends early.
int exit_code_of_rebooting_child() {
    const pid_t child = fork();
    if (child == 0) {
        signal(SIGALRM, interrupt);
        const itimerval often{{0, 50000}, {0, 50000}};
        setitimer(ITIMER_REAL, &often, nullptr);
        tq_test::faults::reset();
        reboot_system();
    }
    int status = 0;
    waitpid(child, &status, 0);
    return WIFEXITED(status) ? WEXITSTATUS(status) : -1;
}

TEST_F(Reboot, AsksForItAndRestartsTheKernelShouldItHang) {
    const ScopedProc proc(Files{{"sysrq-trigger", ""}});
    ASSERT_EQ(danger(), "");
    unlink("/run/tqdevice/reboot");
    EXPECT_EQ(exit_code_of_rebooting_child(), 3 * 20);
    EXPECT_EQ(read_file("/run/tqdevice/reboot"), "reboot\n");
    EXPECT_EQ(read_file("/proc/sysrq-trigger"), "b\n");
}

TEST_F(Reboot, WritesTheFileSystemsOutFirst) {
    const ScopedProc proc(Files{{"sysrq-trigger", ""}});
    ASSERT_EQ(danger(), "");
    const pid_t child = fork();
    if (child == 0) {
        tq_test::faults::kill_at("sync", 1);
        reboot_system();
    }
    int status = 0;
    waitpid(child, &status, 0);
    EXPECT_TRUE(WIFSIGNALED(status));
    EXPECT_FALSE(exists("/run/tqdevice/reboot"));
}

// Stores that were damaged, or written by something else. Nothing may be read or written beyond the
// ring, whatever the header says.

TEST_F(DamagedStore, WorksOneByteShort) {
    run_device_times(2);
    Image image = stored();
    image.header.panic_identifier[1] = 5;
    image.panic[1].fill('b');
    write_file(kStore, bytes_of(image).substr(0, 43555));
    run_device();
    EXPECT_EQ(read_file(kStore).size(), 43555U);
    EXPECT_EQ(sequences(read_all()), down(3, 1));
    const auto panic = untouched_panic(5);
    EXPECT_EQ(rb_read_panic_by_index(panic.get()), 0);
    EXPECT_EQ(content(*panic), std::string(20479, 'b') + '\0');
}

TEST_F(DamagedStore, ReadsZerosBehindItsEnd) {
    run_device_times(3);
    const Image image = stored();
    for (const size_t size : {19U, 36U, 37U, 164U, 300U, 2596U}) {
        SCOPED_TRACE(size);
        write_file(kStore, bytes_of(image).substr(0, size));
        std::vector<Record> records(20, planned(9));
        Image expected = from_bytes<Image>(bytes_of(image).substr(0, size));
        const int count = rb_read_reboot_cause(records.data(), 20);
        const bool has_position = size > 20;
        const bool has_third = expected.ring[2].sequence != 0;
        EXPECT_EQ(count, has_position && has_third ? 3 : 0);
        EXPECT_EQ(bytes_of(records[0]), bytes_of(has_position ? expected.ring[2] : Record{}));
        Statistic statistic{};
        EXPECT_EQ(rb_read_reboot_statistic(&statistic), 0);
        EXPECT_EQ(bytes_of(statistic), bytes_of(expected.header.statistic));
        EXPECT_EQ(rb_correct_reboot_time_now(), 0);
        EXPECT_EQ(write_planned(1), 0);
        EXPECT_EQ(rb_kernel_up_check(), 0);
    }
}

TEST_F(DamagedStore, TakesAPositionBeyondTheRingForItsEnd) {
    for (int position = 21; position <= 255; position += 13) {
        SCOPED_TRACE(position);
        unlink(kStore);
        run_device_times(45);
        Image image = stored();
        memset(&image.panic, 0x01, sizeof(image.panic));
        image.header.position = static_cast<uint8_t>(position);
        image.ring[19].time = 700000;
        image.ring[19].time_quality = 1;
        put(image);
        EXPECT_EQ(read_all().size(), 20U);
        EXPECT_EQ(bytes_of(read_all().at(0)), bytes_of(image.ring[19]));
        EXPECT_EQ(write_timed(1), (Timed{700310, 2}));
        EXPECT_EQ(stored().header.position, 1);
        EXPECT_EQ(stored().ring[0].sequence, 46);
        EXPECT_EQ(bytes_of(stored().panic), bytes_of(image.panic));
    }
}

TEST_F(DamagedStore, CorrectsNothingOutsideTheRing) {
    for (const int position : {21, 77, 255}) {
        unlink(kStore);
        run_device_times(20);
        Image image = stored();
        image.header.position = static_cast<uint8_t>(position);
        put(image);
        const SynchronisedClock clock;
        EXPECT_EQ(rb_correct_reboot_time_now(), 0);
        EXPECT_EQ(timed(read_all().at(0)), (Timed{999490, 3}));
        EXPECT_EQ(bytes_of(stored().panic), bytes_of(image.panic));
        EXPECT_EQ(bytes_of(stored().header), bytes_of(image.header));
    }
}

TEST_F(DamagedStore, BelievesNoTotal) {
    for (const int total : {0, 1, 2, 3, 19, 20, 21, 65535}) {
        SCOPED_TRACE(total);
        unlink(kStore);
        run_device_times(3);
        Image image = stored();
        image.header.statistic.total = static_cast<uint16_t>(total);
        put(image);
        EXPECT_EQ(sequences(read_all()), down(3, 1));
        EXPECT_EQ(rb_correct_reboot_time_now(), 0);
        EXPECT_EQ(write_planned(1), 0);
        EXPECT_EQ(stored().ring[3].sequence, static_cast<uint16_t>(total + 1));
    }
}

TEST_F(DamagedStore, SurvivesAnyContent) {
    std::mt19937 random = seeded(1);
    Image image = store_with_panics(1, 2);
    put(image);
    for (int i = 0; i < 1000; i++) {
        auto* bytes = reinterpret_cast<uint8_t*>(&image);
        for (size_t byte = 0; byte < kFrontSize; byte++)
            bytes[byte] = static_cast<uint8_t>(random());
        image.header.magic = 0xAB;
        put_front(image);
        read_all(25);
        rb_correct_reboot_time_now();
        write_planned(static_cast<uint8_t>(random()));
        rb_kernel_up_check();
        ASSERT_EQ(front(stored_front()).substr(26, 10), front(image).substr(26, 10));
    }
    EXPECT_EQ(bytes_of(stored().panic), bytes_of(image.panic));
}

// The file is the same on every machine that this runs on: it is kept beside the tests.

const std::string kGolden = std::string(TQ_TEST_DATA) + "/reboot_cause/store";

// 25 runs: the ring has wrapped, every cause and every time quality has come.
void write_golden_store() {
    Image image = store_with_panics(7, 259);
    put(image);
    device_time = 1700000000;
    const ScopedProc proc(Files{{"uptime", "900.25 1.00\n"}});
    for (uint8_t run = 0; run < 23; run++) {
        if (run == 9 || run == 15) rb_set_ntp_sync_flag(1);
        run_device(run % 10, 1600000000U + run * 1000U, 60U + run);
        if (run == 8) rb_correct_reboot_time_now();
    }
    rb_correct_reboot_time_now();
    run_device(5, 1700000900, 950);
    write_planned(7, 86400, 20);
}

TEST_F(StoreModel, WritesTheGoldenImage) {
    write_golden_store();
    EXPECT_EQ(read_file(kStore), read_file(kGolden));
}

TEST_F(StoreModel, ReadsTheGoldenImage) {
    write_file(kStore, read_file(kGolden));
    const std::vector<Record> records = read_all();
    EXPECT_EQ(sequences(records), down(25, 6));
    EXPECT_EQ(records.at(0).cause, 4);
    EXPECT_EQ(timed(records.at(0)), (Timed{86400, 0}));
    EXPECT_EQ(timed(records.at(1)), (Timed{1700000050, 2}));
    EXPECT_EQ(timed(records.at(2)), (Timed{1699999090, 3}));
    EXPECT_EQ(timed(records.at(15)), (Timed{1600009000, 1}));
    EXPECT_EQ(records.at(1).cause, 5);
    EXPECT_EQ(records.at(1).uptime, 950U);
    EXPECT_EQ(text_of(records.at(1).process), "upgraded");
    EXPECT_EQ(text_of(records.at(1).message), "new firmware");
    EXPECT_EQ(text_of(records.at(1).location), "upgrade.c:finish:77");
    Statistic statistic{};
    EXPECT_EQ(rb_read_reboot_statistic(&statistic), 0);
    EXPECT_EQ(bytes_of(statistic), bytes_of(Statistic{25, {3, 3, 2, 7, 3}, 7, 4}));
    const auto panic = untouched_panic(259);
    EXPECT_EQ(rb_read_panic_by_index(panic.get()), 0);
    EXPECT_EQ(content(*panic), std::string(20479, 'b') + '>');
}

// The plain model: the whole history, from which the store follows.

struct Model {
    std::vector<Record> history;
    std::array<unsigned, 7> counts{};  // others, then causes 1 to 5
    bool recorded = false;
    uint8_t synchronised = 0;
    std::optional<size_t> own_check;  // the record that this process's last check made
    unsigned last_cause = 0;

    int write(Record record);
    int check(const Record& reset);
    void correct(uint32_t now, uint32_t uptime);
    [[nodiscard]] Image image() const;
};

int Model::write(Record record) {
    if (recorded) return 1;
    record.sequence = static_cast<uint16_t>(history.size() + 1);
    const bool is_reset = record.cause == 6 || record.cause == 7;
    record.time_quality = synchronised ? 1 : 0;
    if (is_reset) {
        record.cause = 4;
        record.time_quality = 0;
    } else if (!synchronised && !history.empty() && history.back().time_quality != 0) {
        record.time = history.back().time + 10 + record.uptime;
        record.time_quality = 2;
    }
    counts[record.cause <= 5 ? record.cause : 0]++;
    last_cause = record.cause;
    history.push_back(record);
    recorded = true;
    return 0;
}

int Model::check(const Record& reset) {
    const bool same_run = own_check && *own_check + 1 == history.size();
    int result = 0;
    if (!recorded && !same_run) {
        write(reset);
        own_check = history.size() - 1;
        result = 100;
    }
    recorded = false;
    synchronised = 0;
    return result;
}

void Model::correct(uint32_t now, uint32_t uptime) {
    uint32_t estimate = now - uptime - 10;
    for (size_t i = history.size(); i > 0 && history.size() - i < kSlots; i--) {
        Record& record = history[i - 1];
        if (record.time_quality != 0) return;
        record.time = estimate;
        record.time_quality = 3;
        estimate -= record.uptime + 10;
    }
}

Image Model::image() const {
    Image image = empty_store();
    image.header.statistic.total = static_cast<uint16_t>(history.size());
    image.header.statistic.other_count = static_cast<uint16_t>(counts[0]);
    for (size_t cause = 1; cause <= 5; cause++)
        image.header.statistic.cause_count[cause - 1] = static_cast<uint16_t>(counts[cause]);
    image.header.statistic.last_cause = static_cast<uint16_t>(last_cause);
    image.header.recorded = recorded;
    image.header.time_synchronised = synchronised;
    if (!history.empty())
        image.header.position = static_cast<uint8_t>((history.size() - 1) % kSlots + 1);
    for (size_t i = history.size() > kSlots ? history.size() - kSlots : 0; i < history.size(); i++)
        image.ring[i % kSlots] = history[i];
    return image;
}

class ModelRun {
  public:
    explicit ModelRun(unsigned seed) : random_(seed) {
        // Half of them start with some history.
        for (unsigned i = pick(2) * pick(45); i > 0; i--) {
            model_.write(some_record());
            model_.recorded = false;
        }
        put_front(model_.image());
    }

    // One operation on both; false where they differ.
    bool step() {
        device_time = 1000000 + pick(1000000);
        switch (pick(8)) {
            case 0:
            case 1: {
                Record record = some_record();
                return model_.write(record) == rb_write_reboot_cause_inner(&record);
            }
            case 2: {
                Record record{};
                rb_generate_reboot_cause(&record, pick(10), "model.c", "step", 1, "%u", pick(100));
                return model_.write(record) == rb_write_reboot_cause(record.cause, "model.c",
                                                                     "step", 1, "%s",
                                                                     record.message);
            }
            case 3:
            case 4: {
                Record reset{};
                rb_generate_reboot_cause(&reset, 6, "reboot_cause.c", "rb_kernel_up_check", 397,
                                         "Power down");
                return model_.check(reset) == rb_kernel_up_check();
            }
            case 5:
                model_.correct(*device_time, static_cast<uint32_t>(get_system_uptime()));
                return rb_correct_reboot_time_now() == 0;
            case 6:
                model_.synchronised = static_cast<uint8_t>(pick(3));
                return rb_set_ntp_sync_flag(model_.synchronised) == 0;
            default:
                return reads_the_same(1 + pick(24));
        }
    }

    // The newest first, and an empty one where there are fewer.
    bool reads_the_same(unsigned maximum) {
        std::vector<Record> expected(model_.history.rbegin(), model_.history.rend());
        const size_t count = std::min<size_t>({expected.size(), maximum, kSlots});
        expected.resize(count);
        if (count < std::min<size_t>(maximum, kSlots)) expected.emplace_back();
        expected.resize(25, planned(9));
        std::array<Record, 25> records;
        records.fill(planned(9));
        const int result = rb_read_reboot_cause(records.data(), static_cast<int>(maximum));
        return result == static_cast<int>(count) &&
               memcmp(records.data(), expected.data(), sizeof(records)) == 0;
    }

    bool stores_the_same() { return front(stored_front()) == front(model_.image()); }

  private:
    unsigned pick(unsigned limit) { return static_cast<unsigned>(random_()) % limit; }

    Record some_record() {
        Record record = planned(static_cast<uint8_t>(pick(10)), pick(2000000), 1 + pick(100000));
        record.time_quality = static_cast<uint8_t>(pick(4));
        return record;
    }

    std::mt19937 random_;
    Model model_;
};

// A sanitizer or an emulator costs ten times as much.
#if defined(TQ_SANITIZED) || defined(TQ_EMULATED)
constexpr unsigned kSequences = 5000;
#else
constexpr unsigned kSequences = 100000;
#endif

TEST_F(StoreModel, HoldsOverRandomSequencesOfOperations) {
    constexpr unsigned kSequencesOfADevice = 25;
    const ScopedProc proc(Files{{"uptime", "4711.25 1.00\n"}});
    put(empty_store());
    for (unsigned device = 0; device < kSequences / kSequencesOfADevice; device++) {
        ModelRun run(device);
        for (unsigned sequence = 0; sequence < kSequencesOfADevice; sequence++) {
            for (unsigned i = 0; i <= (device + sequence) % 4; i++)
                ASSERT_TRUE(run.step()) << "device " << device << " sequence " << sequence;
            ASSERT_TRUE(run.stores_the_same()) << "device " << device << " sequence " << sequence;
        }
    }
    EXPECT_EQ(bytes_of(stored().panic), bytes_of(empty_store().panic));
}

// A writer that dies at any of its calls.

struct Moment {
    const char* call;
    unsigned nth;
    Death death;
};

// How a child ended that would die at that moment of its work.
enum class End : unsigned char { kKilled, kDone };

End die_at(const Moment& moment, const std::function<void()>& work) {
    const pid_t child = fork();
    if (child == 0) {
        tq_test::faults::kill_at(moment.call, moment.nth, moment.death);
        work();
        _exit(0);
    }
    int status = 0;
    waitpid(child, &status, 0);
    return WIFSIGNALED(status) ? End::kKilled : End::kDone;
}

// Runs the check after a death at each call that the work makes; returns the number of deaths.
unsigned each_death(const std::function<void()>& prepare, const std::function<void()>& work,
                    const std::function<void()>& check) {
    unsigned deaths = 0;
    for (const char* call : {"open", "read", "ftruncate", "lseek", "write", "pwrite", "close"}) {
        for (const Death death : {Death::kBefore, Death::kHalfWritten}) {
            const bool writes = strstr(call, "write");
            if (death == Death::kHalfWritten && !writes) continue;
            for (unsigned nth = 1;; nth++) {
                SCOPED_TRACE(std::string(call) + " " + std::to_string(nth) +
                             (death == Death::kBefore ? "" : " half-way"));
                prepare();
                if (die_at({call, nth, death}, work) == End::kDone) break;
                check();
                deaths++;
            }
        }
    }
    return deaths;
}

// After a death the store has what it had, with or without the new record behind it, and works.
void expect_usable(const Image& before, int runs) {
    const std::vector<Record> records = read_all();
    ASSERT_FALSE(records.empty());
    const int newest = records[0].sequence;
    EXPECT_TRUE(newest == runs || newest == runs + 1) << newest;
    for (const Record& record : records) {
        // The oldest slot may have the new record's first half.
        if (&record == &records.back() && records.size() == kSlots) continue;
        if (record.sequence > runs) {
            EXPECT_EQ(text_of(record.message), "new firmware");
            EXPECT_EQ(record.cause, 3);
            continue;
        }
        const size_t slot = static_cast<size_t>(record.sequence - 1) % kSlots;
        EXPECT_EQ(bytes_of(record), bytes_of(before.ring[slot]));
    }
    EXPECT_EQ(bytes_of(stored().panic), bytes_of(before.panic));
    rb_kernel_up_check();
    EXPECT_EQ(write_planned(2), 0);
    EXPECT_EQ(read_all().at(0).cause, 2);
}

TEST_F(Crash, OfAWriterLeavesAStoreThatWorks) {
    for (const int runs : {1, 19, 20, 21, 45}) {
        SCOPED_TRACE(runs);
        unlink(kStore);
        run_device_times(runs);
        const Image before = stored();
        const unsigned deaths = each_death([&] { put(before); }, [] { write_planned(3); },
                                           [&] { expect_usable(before, runs); });
        EXPECT_GE(deaths, 10U);
    }
}

TEST_F(Crash, BeforeTheHeaderLeavesTheStoreAsItWas) {
    run_device_times(3);
    const Image before = stored();
    for (const Moment moment : {Moment{"pwrite", 1, Death::kBefore},
                                {"pwrite", 1, Death::kHalfWritten},
                                {"pwrite", 2, Death::kBefore}}) {
        put(before);
        EXPECT_EQ(die_at(moment, [] { write_planned(3); }), End::kKilled);
        EXPECT_EQ(bytes_of(stored().header), bytes_of(before.header));
        EXPECT_EQ(sequences(read_all()), down(3, 1));
    }
}

TEST_F(Crash, OfTheMakerLeavesAStoreThatIsMadeAgain) {
    for (const char* content : {"", "other"}) {
        const unsigned deaths = each_death(
            [&] {
                unlink(kStore);
                if (*content) write_file(kStore, std::string(43556, *content));
            },
            [] { write_planned(3); },
            [] {
                EXPECT_LE(read_all().size(), 1U);
                EXPECT_EQ(bytes_of(stored().panic), bytes_of(empty_store().panic));
                rb_kernel_up_check();
                EXPECT_EQ(write_planned(2), 0);
                EXPECT_EQ(read_all().at(0).cause, 2);
            });
        EXPECT_GE(deaths, 17U * 2U);
    }
}

TEST_F(Crash, OfTheCheckLeavesAStoreThatWorks) {
    run_device_times(3);
    const Image before = stored();
    each_death([&] { put(before); }, [] { rb_kernel_up_check(); },
               [&] {
                   const std::vector<Record> records = read_all();
                   EXPECT_EQ(records.at(records.size() - 3).sequence, 3);
                   rb_kernel_up_check();
                   EXPECT_EQ(write_planned(2), 0);
               });
}

TEST_F(Crash, OfTheCorrectionLeavesAStoreThatWorks) {
    run_device_times(5);
    const Image before = stored();
    const SynchronisedClock clock;
    each_death([&] { put(before); }, [] { rb_correct_reboot_time_now(); },
               [&] {
                   EXPECT_EQ(sequences(read_all()), down(5, 1));
                   EXPECT_EQ(write_planned(2), 0);
               });
}

// What a call costs; the board's description is read anew by each.

TEST_F(StoreModel, OpensAndReadsTheStoreOnce) {
    run_device_times(45);
    std::array<Record, 20> records;
    tq_test::faults::reset();
    EXPECT_EQ(rb_read_reboot_cause(records.data(), 20), 20);
    EXPECT_EQ(tq_test::faults::count("open"), 2U);
    EXPECT_EQ(tq_test::faults::count("close"), 2U);
    tq_test::faults::reset();
    EXPECT_EQ(rb_write_reboot_cause(1, "f.c", "f", 1, "text"), 0);
    EXPECT_EQ(tq_test::faults::count("open"), 4U);
    EXPECT_EQ(tq_test::faults::count("pwrite"), 2U);
}

}  // namespace
