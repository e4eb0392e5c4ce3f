// util_test.cpp - the clock, the number, the private file and the hexadecimal reader.
#include "tq/util.h"

#include <dlfcn.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sys/stat.h>

#include <array>
#include <cerrno>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <ctime>
#include <filesystem>
#include <optional>
#include <string>
#include <vector>

#include "support/buffer.h"
#include "support/device.h"
#include "support/faults.h"
#include "support/log_capture.h"

namespace {

// What the library is told instead of the time, and whether the clock fails.
std::optional<timespec> fake_clock;
bool clock_fails = false;

}  // namespace

extern "C" int fake_clock_gettime(clockid_t id, timespec* now) asm("clock_gettime");

int fake_clock_gettime(clockid_t id, timespec* now) {
    static const auto next =
        reinterpret_cast<int (*)(clockid_t, timespec*)>(dlsym(RTLD_NEXT, "clock_gettime"));
    if (clock_fails && id == CLOCK_MONOTONIC) {
        errno = EINVAL;
        return -1;
    }
    if (!fake_clock || id != CLOCK_MONOTONIC) return next(id, now);
    *now = *fake_clock;
    return 0;
}

namespace {

using testing::IsEmpty;
using testing::StartsWith;
using tq_test::Buffer;
using tq_test::DeviceTest;
using tq_test::LogCapture;

class Clock : public DeviceTest {
  protected:
    ~Clock() override {
        fake_clock.reset();
        clock_fails = false;
    }
};

TEST_F(Clock, GivesTheMonotonicTimeInWholeMicroseconds) {
    timespec before = {};
    timespec after = {};
    tq_timeval now = {};
    clock_gettime(CLOCK_MONOTONIC, &before);
    ASSERT_EQ(tq_gettime(&now), 0);
    clock_gettime(CLOCK_MONOTONIC, &after);
    const auto micro = [](const timespec& time) {
        return static_cast<int64_t>(time.tv_sec) * 1000000 + time.tv_nsec / 1000;
    };
    const int64_t read = int64_t{now.tv_sec} * 1000000 + now.tv_usec;
    EXPECT_LE(micro(before), read);
    EXPECT_LE(read, micro(after));
}

TEST_F(Clock, CutsTheLastNanosecondsOfASecond) {
    fake_clock = timespec{.tv_sec = 41, .tv_nsec = 999999999};
    tq_timeval now = {};
    ASSERT_EQ(tq_gettime(&now), 0);
    EXPECT_EQ(now.tv_sec, 41);
    EXPECT_EQ(now.tv_usec, 999999);
    EXPECT_EQ(tq_time(), 41);
}

TEST_F(Clock, RefusesANullPointerWithoutALogLine) {
    LogCapture log;
    EXPECT_EQ(tq_gettime(nullptr), -1);
    EXPECT_THAT(log.take(), IsEmpty());
}

TEST_F(Clock, TellsWhenItCannotBeRead) {
    clock_fails = true;
    tq_timeval now = {.tv_sec = 7, .tv_usec = 8};
    EXPECT_EQ(tq_gettime(&now), -1);
    EXPECT_EQ(now.tv_sec, 7);
    EXPECT_EQ(now.tv_usec, 8);
    EXPECT_EQ(tq_time(), -1);
}

TEST_F(Clock, SeedsTheNumberOfTheSecond) {
    fake_clock = timespec{.tv_sec = 1234, .tv_nsec = 1};
    const int number = tq_rand();
    fake_clock = timespec{.tv_sec = 1234, .tv_nsec = 999999999};
    EXPECT_EQ(tq_rand(), number);
    // Not quiet between: the calls of a second are equal because each seeds anew.
    rand();  // NOLINT(cert-msc30-c,cert-msc50-cpp)
    EXPECT_EQ(tq_rand(), number);
    srand(1234);                // NOLINT(cert-msc32-c,cert-msc51-cpp)
    EXPECT_EQ(rand(), number);  // NOLINT(cert-msc30-c,cert-msc50-cpp)
    fake_clock = timespec{.tv_sec = 1235, .tv_nsec = 0};
    EXPECT_NE(tq_rand(), number);
}

TEST_F(Clock, NeverGivesANegativeNumber) {
    for (int second = 0; second < 1000; second++) {
        fake_clock = timespec{.tv_sec = second, .tv_nsec = 0};
        ASSERT_GE(tq_rand(), 0);
    }
}

using PrivateFile = DeviceTest;

TEST_F(PrivateFile, IsNewEmptyAndTheOwnersAlone) {
    std::array<char, 32> path = {"/tmp/private.XXXXXX"};
    ASSERT_EQ(tq_mktemp(path.data()), 0);
    EXPECT_THAT(path.data(), StartsWith("/tmp/private."));
    EXPECT_STRNE(path.data(), "/tmp/private.XXXXXX");
    EXPECT_EQ(strlen(path.data()), strlen("/tmp/private.XXXXXX"));
    struct stat status = {};
    ASSERT_EQ(stat(path.data(), &status), 0);
    EXPECT_EQ(status.st_mode, mode_t{S_IFREG | 0600});
    EXPECT_EQ(status.st_size, 0);
}

TEST_F(PrivateFile, HasItsModeWhateverTheUmask) {
    std::array<char, 32> path = {"/tmp/private.XXXXXX"};
    const mode_t before = umask(0777);
    const int result = tq_mktemp(path.data());
    umask(before);
    ASSERT_EQ(result, 0);
    struct stat status = {};
    ASSERT_EQ(stat(path.data(), &status), 0);
    EXPECT_EQ(status.st_mode, mode_t{S_IFREG | 0600});
}

TEST_F(PrivateFile, LeavesNoDescriptorOpen) {
    const std::vector<int> before = tq_test::open_descriptors();
    std::array<char, 32> path = {"/tmp/private.XXXXXX"};
    ASSERT_EQ(tq_mktemp(path.data()), 0);
    EXPECT_EQ(tq_test::open_descriptors(), before);
}

TEST_F(PrivateFile, IsClosedBeforeItsModeIsSet) {
    std::array<char, 32> path = {"/tmp/private.XXXXXX"};
    tq_test::faults::reset();
    ASSERT_EQ(tq_mktemp(path.data()), 0);
    EXPECT_TRUE(tq_test::faults::in_order({"close", "chmod"}));
}

TEST_F(PrivateFile, CannotBeMadeWithoutATemplateOrADirectory) {
    LogCapture log;
    std::array<char, 32> other = {"/tmp/private"};
    std::array<char, 32> missing = {"/tmp/missing/private.XXXXXX"};
    EXPECT_EQ(tq_mktemp(nullptr), -1);
    EXPECT_EQ(tq_mktemp(other.data()), -1);
    EXPECT_EQ(tq_mktemp(missing.data()), -1);
    EXPECT_THAT(log.take(), IsEmpty());
}

TEST_F(PrivateFile, IsRemovedWhenItsModeCannotBeSet) {
    const tq_test::faults::Fail fail("chmod", 1, EPERM);
    std::array<char, 32> path = {"/tmp/private.XXXXXX"};
    EXPECT_EQ(tq_mktemp(path.data()), -2);
    EXPECT_TRUE(fail.fired());
    EXPECT_TRUE(std::filesystem::is_empty("/tmp"));
}

TEST(HexText, FillsTheBytesThatFit) {
    Buffer out(2);
    auto* bytes = reinterpret_cast<uint8_t*>(out.data());
    EXPECT_EQ(tq_hexstr_to_hexnum("0aFF10", 6, bytes, 2), 2);
    EXPECT_EQ(out.all(), "\x0a\xff");
    EXPECT_TRUE(out.guard_holds());
}

TEST(HexText, ReadsNoFurtherThanItsLength) {
    Buffer out(4);
    auto* bytes = reinterpret_cast<uint8_t*>(out.data());
    EXPECT_EQ(tq_hexstr_to_hexnum("0aFF10", 4, bytes, 4), 2);
    EXPECT_EQ(out.all(), std::string("\x0a\xff") + std::string(2, tq_test::kUntouched));
    const std::array<char, 2> unterminated = {'7', 'f'};
    EXPECT_EQ(tq_hexstr_to_hexnum(unterminated.data(), 2, bytes, 4), 1);
    EXPECT_EQ(bytes[0], 0x7f);
}

TEST(HexText, IsRefusedWithOddLengthsAndNullPointers) {
    LogCapture log;
    Buffer out(4);
    auto* bytes = reinterpret_cast<uint8_t*>(out.data());
    EXPECT_EQ(tq_hexstr_to_hexnum("0aFF10", 5, bytes, 4), 0);
    EXPECT_EQ(tq_hexstr_to_hexnum("0aFF10", -1, bytes, 4), 0);
    EXPECT_EQ(tq_hexstr_to_hexnum("0aFF10", -2, bytes, 4), 0);
    EXPECT_EQ(tq_hexstr_to_hexnum("0aFF10", 0, bytes, 4), 0);
    EXPECT_EQ(tq_hexstr_to_hexnum("0aFF10", 6, bytes, 0), 0);
    EXPECT_EQ(tq_hexstr_to_hexnum("0aFF10", 6, bytes, -1), 0);
    EXPECT_EQ(tq_hexstr_to_hexnum(nullptr, 6, bytes, 4), 0);
    EXPECT_EQ(tq_hexstr_to_hexnum("0aFF10", 6, nullptr, 4), 0);
    EXPECT_TRUE(out.untouched());
    EXPECT_THAT(log.take(), IsEmpty());
}

TEST(HexText, RepeatsTheByteBeforeWhereAPairIsNoNumber) {
    std::array<uint8_t, 4> bytes = {};
    EXPECT_EQ(tq_hexstr_to_hexnum("zz5Agh0x", 8, bytes.data(), 4), 4);
    EXPECT_THAT(bytes, testing::ElementsAre(0x00, 0x5a, 0x5a, 0x00));
}

// Every pair of characters there is, beside the scanner that it is described by. "0x" alone is
// where C libraries differ.
TEST(HexText, ReadsEveryPairAsScanfDoes) {
    for (int pair = 0; pair < 65536; pair++) {
        const std::array<char, 5> text = {'a', '5', static_cast<char>(pair >> 8),
                                          static_cast<char>(pair & 0xff), '\0'};
        if (text[2] == '0' && (text[3] == 'x' || text[3] == 'X')) continue;
        unsigned expected = 0xa5;
        sscanf(&text[2], "%02x", &expected);
        std::array<uint8_t, 2> bytes = {};
        ASSERT_EQ(tq_hexstr_to_hexnum(text.data(), 4, bytes.data(), 2), 2);
        ASSERT_EQ(bytes[0], 0xa5);
        ASSERT_EQ(bytes[1], static_cast<uint8_t>(expected)) << std::hex << pair;
    }
}

}  // namespace
