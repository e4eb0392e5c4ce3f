// sysstat_test.cpp - processor, memory, flash, uptime and port counters, out of the kernel's own
// files and out of others in their place.
#include "tq/sysstat.h"

#include <gmock/gmock.h>
#include <sys/mount.h>
#include <sys/stat.h>
#include <sys/statfs.h>
#include <sys/sysinfo.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <csignal>
#include <cstddef>
#include <cstdio>
#include <cstring>
#include <filesystem>
#include <functional>
#include <map>
#include <sstream>
#include <string>
#include <vector>

#include "support/buffer.h"
#include "support/bus.h"
#include "support/bus_calls.h"
#include "support/device.h"
#include "support/faults.h"
#include "support/log_capture.h"
#include "tq/board.h"
#include "tq/bus.h"

static_assert(sizeof(if_stats) == 88);
static_assert(offsetof(if_stats, in_packets) == 8);
static_assert(offsetof(if_stats, in_multicast) == 32);
static_assert(offsetof(if_stats, out_octets) == 40);
static_assert(offsetof(if_stats, out_discards) == 64);
static_assert(offsetof(if_stats, reserved) == 72);
static_assert(offsetof(if_stats, in_flow) == 80);
static_assert(offsetof(if_stats, out_flow) == 84);

namespace {

using testing::ElementsAre;
using testing::Ge;
using testing::IsEmpty;
using testing::Le;
using tq_test::Broker;
using tq_test::Buffer;
using tq_test::BusCalls;
using tq_test::BusService;
using tq_test::DeviceTest;
using tq_test::Line;
using tq_test::LogCapture;
using tq_test::read_file;
using tq_test::run_command;
using tq_test::ScopedMount;
using tq_test::ScopedProc;
using tq_test::write_file;
using tq_test::faults::Fail;
namespace faults = tq_test::faults;

using Files = std::map<std::string, std::string>;

constexpr uint32_t kUntouched = 0x5a5a5a5a;
constexpr uint32_t kMost = 4294967295U;

class SysstatTest : public DeviceTest {
  protected:
    LogCapture log_;
};
class CpuTicks : public SysstatTest {};
class ProcCpuinfo : public SysstatTest {};
class ProcMeminfo : public SysstatTest {};
class MemoryUsage : public SysstatTest {};
class Service : public SysstatTest {
  protected:
    void TearDown() override { destroy_ubus_client(); }
};
class Uptime : public SysstatTest {};
class FlashFree : public SysstatTest {};
class FlashSize : public SysstatTest {};
class ProcessorType : public SysstatTest {};
class EthStats : public SysstatTest {};
class IfStatistics : public SysstatTest {
  protected:
    void TearDown() override { destroy_ubus_client(); }
};

// The numbers of the kernel's own file behind the first text that is `key`.
std::vector<unsigned long long> kernel_numbers(const std::string& path, const std::string& key) {
    const std::string content = read_file(path);
    std::istringstream stream(content.substr(content.find(key) + key.size()));
    std::vector<unsigned long long> numbers;
    for (unsigned long long number = 0; stream >> number;)
        numbers.push_back(number);
    return numbers;
}

// tq_get_cpu_ticks

struct Ticks {
    uint32_t total = kUntouched;
    uint32_t busy = kUntouched;
    int result = tq_get_cpu_ticks(&total, &busy);
};

struct Idle {
    uint32_t total = kUntouched;
    uint32_t idle = kUntouched;
    int result = get_proc_cpuinfo(&total, &idle);
};

TEST_F(CpuTicks, CountAllButTheUsersTimeAndIdlenessAsBusy) {
    const ScopedProc proc(Files{{"stat", "cpu  10 1 2 100 3 4 5 0 0 0\ncpu0 1 1 1 1 1 1 1\n"}});
    const Ticks ticks;
    EXPECT_EQ(ticks.result, 0);
    EXPECT_EQ(ticks.busy, 12U);
    EXPECT_EQ(ticks.total, 125U);
    EXPECT_THAT(log_.take(), IsEmpty());
}

TEST_F(CpuTicks, TakeEachNumberOnItsOwn) {
    const ScopedProc proc(Files{{"stat", "cpu 1 20 300 4000 50000 600000 7000000"}});
    const Ticks ticks;
    EXPECT_EQ(ticks.result, 0);
    EXPECT_EQ(ticks.busy, 7600320U);
    EXPECT_EQ(ticks.total, 7654321U);
}

TEST_F(CpuTicks, AgreeWithTheKernel) {
    const auto sum = [](const std::vector<unsigned long long>& n, bool busy) {
        const auto part = n[1] + n[2] + n[5] + n[6];
        return static_cast<uint32_t>(busy ? part : part + n[0] + n[3] + n[4]);
    };
    const auto before = kernel_numbers("/proc/stat", "cpu ");
    const Ticks ticks;
    const auto after = kernel_numbers("/proc/stat", "cpu ");
    EXPECT_EQ(ticks.result, 0);
    EXPECT_THAT(ticks.total, testing::AllOf(Ge(sum(before, false)), Le(sum(after, false))));
    EXPECT_THAT(ticks.busy, testing::AllOf(Ge(sum(before, true)), Le(sum(after, true))));
}

TEST_F(CpuTicks, OfFewerThanSevenNumbersCannotBeParsed) {
    const std::string kOthers[] = {"cpu 10 1 2 100 3 4\n",
                                   "cpu 10 1 2 100 3 4\ncpu0 5 1 1 1 1 1 1\n",
                                   "cpu 10 1 2 100 3 4 x",
                                   "cpu 1 2 3 - 5 6 7 8",
                                   "cpu\n",
                                   "cp 1 2 3 4 5 6 7\n",
                                   " cpu 1 2 3 4 5 6 7\n",
                                   "intr 5\ncpu 1 2 3 4 5 6 7\n",
                                   std::string("cpu 1 2 3\0 4 5 6 7\n", 19),
                                   ""};
    for (const std::string& content : kOthers) {
        const ScopedProc proc(Files{{"stat", content}});
        const Ticks ticks;
        EXPECT_EQ(ticks.result, -2) << content;
        EXPECT_EQ(ticks.total, kUntouched);
        EXPECT_EQ(ticks.busy, kUntouched);
        EXPECT_THAT(log_.take(),
                    ElementsAre(Line(LOG_ERR, "tq_get_cpu_ticks", "Cannot parse /proc/stat\n")));
    }
}

TEST_F(CpuTicks, AreReadAcrossLinesAndBlanks) {
    const ScopedProc proc(Files{{"stat", "cpu\t10\r\n 1 2\v100\f3\r\n4 5"}});
    const Ticks ticks;
    EXPECT_EQ(ticks.result, 0);
    EXPECT_EQ(ticks.total, 125U);
}

TEST_F(CpuTicks, OfAProcessorOfItsOwnHaveItsNumberInFront) {
    const ScopedProc proc(Files{{"stat", "cpu7 1 2 3 4 5 6\n"}});
    const Ticks ticks;
    EXPECT_EQ(ticks.result, 0);
    EXPECT_EQ(ticks.busy, 1U + 2U + 5U + 6U);
    EXPECT_EQ(ticks.total, 7U + 3U + 4U + ticks.busy);
}

TEST_F(CpuTicks, WrapAroundIn32Bits) {
    const ScopedProc proc(Files{{"stat", "cpu 4294967295 4294967295 3 0 0 0 0\n"}});
    const Ticks ticks;
    EXPECT_EQ(ticks.busy, 2U);
    EXPECT_EQ(ticks.total, 1U);
}

TEST_F(CpuTicks, StopAtTheLargestNumberOf32Bits) {
    const ScopedProc proc(Files{{"stat", "cpu 0 4294967296 0 99999999999999999999999 2 0 0\n"}});
    const Ticks ticks;
    EXPECT_EQ(ticks.busy, kMost);
    EXPECT_EQ(ticks.total, kMost + kMost + 2);
}

TEST_F(CpuTicks, WithASignWrapAround) {
    const ScopedProc proc(Files{{"stat", "cpu +5 -1 0 -4294967296 0 0 -4294967295\n"}});
    const Ticks ticks;
    EXPECT_EQ(ticks.result, 0);
    EXPECT_EQ(ticks.busy, kMost + 1U);
    EXPECT_EQ(ticks.total, 5U + kMost);
}

TEST_F(CpuTicks, TellAMissingFileFromABadOne) {
    const Fail fail("open", 1, EACCES);
    const Ticks ticks;
    EXPECT_TRUE(fail.fired());
    EXPECT_EQ(ticks.result, -1);
    EXPECT_EQ(ticks.total, kUntouched);
    EXPECT_THAT(log_.take(),
                ElementsAre(Line(LOG_ERR, "tq_get_cpu_ticks", "Cannot open /proc/stat\n")));
}

TEST_F(CpuTicks, DoNotLookAtThePointersBeforeTheFile) {
    {
        const Fail fail("open", 1, EACCES);
        EXPECT_EQ(tq_get_cpu_ticks(nullptr, nullptr), -1);
    }
    const ScopedProc proc(Files{{"stat", "cpu 1 2 3\n"}});
    EXPECT_EQ(tq_get_cpu_ticks(nullptr, nullptr), -2);
    EXPECT_THAT(log_.take(),
                ElementsAre(Line(LOG_ERR, "tq_get_cpu_ticks", "Cannot open /proc/stat\n"),
                            Line(LOG_ERR, "tq_get_cpu_ticks", "Cannot parse /proc/stat\n")));
}

TEST_F(CpuTicks, OfAFileThatCannotBeReadCannotBeParsed) {
    const Fail fail("read");
    const Ticks ticks;
    EXPECT_TRUE(fail.fired());
    EXPECT_EQ(ticks.result, -2);
    EXPECT_THAT(log_.take(),
                ElementsAre(Line(LOG_ERR, "tq_get_cpu_ticks", "Cannot parse /proc/stat\n")));
}

// get_proc_cpuinfo

TEST_F(ProcCpuinfo, SumsAllTenNumbers) {
    const ScopedProc proc(Files{{"stat",
                                 "cpu  1 20 300 4000 50000 600000 7000000 80000000 900000000 "
                                 "1000000000\ncpu0 1\n"}});
    const Idle idle;
    EXPECT_EQ(idle.result, 0);
    EXPECT_EQ(idle.idle, 4000U);
    EXPECT_EQ(idle.total, 1987654321U);
    EXPECT_THAT(log_.take(), IsEmpty());
}

TEST_F(ProcCpuinfo, AgreesWithTheKernel) {
    const auto before = kernel_numbers("/proc/stat", "cpu ");
    const Idle idle;
    const auto after = kernel_numbers("/proc/stat", "cpu ");
    EXPECT_EQ(idle.result, 0);
    uint32_t least = 0;
    uint32_t most = 0;
    for (size_t i = 0; i < 10; i++) {
        least += static_cast<uint32_t>(before[i]);
        most += static_cast<uint32_t>(after[i]);
    }
    EXPECT_THAT(idle.total, testing::AllOf(Ge(least), Le(most)));
    EXPECT_THAT(idle.idle, testing::AllOf(Ge(before[3]), Le(after[3])));
}

TEST_F(ProcCpuinfo, NeedsTenNumbersInTheFirstLine) {
    const std::string kOthers[] = {"cpu 1 2 3 4 5 6 7 8 9\n", "cpu 1 2 3 4 5 6 7 8 9\n10\n",
                                   "cpu 1 2 3 4 5 6 7 8 9 x\n", "intr 1 2 3 4 5 6 7 8 9 10\n",
                                   "\ncpu 1 2 3 4 5 6 7 8 9 10\n"};
    for (const std::string& content : kOthers) {
        const ScopedProc proc(Files{{"stat", content}});
        const Idle idle;
        EXPECT_EQ(idle.result, -1) << content;
        EXPECT_EQ(idle.total, kUntouched);
        EXPECT_EQ(idle.idle, kUntouched);
        EXPECT_THAT(log_.take(), ElementsAre(Line(LOG_ERR, "get_proc_cpuinfo", "sscanf fail\n")));
    }
}

TEST_F(ProcCpuinfo, TakesALineThatEndsInCarriageReturn) {
    const ScopedProc proc(Files{{"stat", "cpu 1 2 3 4 5 6 7 8 9 10\r\n"}});
    const Idle idle;
    EXPECT_EQ(idle.result, 0);
    EXPECT_EQ(idle.total, 55U);
}

TEST_F(ProcCpuinfo, ReadsNoMoreThanALineBufferHolds) {
    // The tenth number begins at the last byte that fits, or just behind it.
    const std::string front = "cpu 1 2 3 4 5 6 7 8 9 ";
    const std::string blanks(1022 - front.size(), ' ');
    {
        const ScopedProc proc(Files{{"stat", front + blanks + "73\n"}});
        const Idle idle;
        EXPECT_EQ(idle.result, 0);
        EXPECT_EQ(idle.total, 52U);
    }
    const ScopedProc proc(Files{{"stat", front + blanks + " 73\n"}});
    EXPECT_EQ(Idle().result, -1);
    EXPECT_THAT(log_.take(), ElementsAre(Line(LOG_ERR, "get_proc_cpuinfo", "sscanf fail\n")));
}

TEST_F(ProcCpuinfo, WrapsAroundIn32Bits) {
    const ScopedProc proc(Files{{"stat", "cpu 4294967295 2 0 18446744073709551617 0 0 0 0 0 0\n"}});
    const Idle idle;
    EXPECT_EQ(idle.result, 0);
    EXPECT_EQ(idle.idle, kMost);
    EXPECT_EQ(idle.total, kMost + 2U + kMost);
}

TEST_F(ProcCpuinfo, SaysWhatFails) {
    {
        const Fail fail("open");
        EXPECT_EQ(Idle().result, -1);
    }
    EXPECT_THAT(log_.take(), ElementsAre(Line(LOG_ERR, "get_proc_cpuinfo", "fopen fail\n")));
    {
        const Fail fail("read");
        EXPECT_EQ(Idle().result, -1);
    }
    EXPECT_THAT(log_.take(), ElementsAre(Line(LOG_ERR, "get_proc_cpuinfo", "fgets fail\n")));
    const ScopedProc proc(Files{{"stat", ""}});
    EXPECT_EQ(Idle().result, -1);
    EXPECT_THAT(log_.take(), ElementsAre(Line(LOG_ERR, "get_proc_cpuinfo", "fgets fail\n")));
}

TEST_F(SysstatTest, RejectsNullPointers) {
    uint32_t number = kUntouched;
    struct Rejected {
        const char* function;
        std::function<int()> call;
    };
    const Rejected kRejected[] = {
        {"get_proc_cpuinfo", [&] { return get_proc_cpuinfo(nullptr, &number); }},
        {"get_proc_cpuinfo", [&] { return get_proc_cpuinfo(&number, nullptr); }},
        {"get_proc_meminfo", [] { return get_proc_meminfo(nullptr); }},
        {"tq_hal_get_sdram_size", [] { return tq_hal_get_sdram_size(nullptr); }},
        {"tq_get_memory_real_usage", [] { return tq_get_memory_real_usage(nullptr); }},
        {"tq_get_memory_avg_usage", [] { return tq_get_memory_avg_usage(nullptr); }},
        {"tq_get_cpu_avg_usage", [] { return tq_get_cpu_avg_usage(nullptr); }},
        {"tq_get_cpu_real_usage", [] { return tq_get_cpu_real_usage(nullptr); }},
        {"tq_get_sys_uptime", [] { return tq_get_sys_uptime(nullptr); }},
        {"tq_get_flash_free_size", [] { return tq_get_flash_free_size(nullptr); }},
        {"tq_hal_get_processor_type", [] { return tq_hal_get_processor_type(nullptr, 8); }},
        {"tq_get_eth_flow", [&] { return tq_get_eth_flow(0, nullptr, &number); }},
        {"tq_get_eth_flow", [&] { return tq_get_eth_flow(0, &number, nullptr); }},
        {"tq_get_if_statistics", [] { return tq_get_if_statistics(-1, nullptr); }},
    };
    faults::reset();
    for (const Rejected& rejected : kRejected) {
        EXPECT_EQ(rejected.call(), -1) << rejected.function;
        EXPECT_THAT(log_.take(),
                    ElementsAre(Line(LOG_ERR, rejected.function, "invalid parameter\n")));
    }
    EXPECT_EQ(number, kUntouched);
    EXPECT_EQ(faults::count("open"), 0U);
}

// get_proc_meminfo and what stands on it

using Figures = std::array<uint32_t, PROC_MEMINFO_FIGURES>;

struct Memory {
    Figures figures = {kUntouched, kUntouched, kUntouched, kUntouched};
    int result = get_proc_meminfo(figures.data());
};

std::string memory(const std::string& total, const std::string& free) {
    return "MemTotal:  " + total + " kB\nMemFree:  " + free +
           " kB\nMemAvailable: 7 kB\nBuffers: 30 kB\nCached:  40 kB\nSwapCached: 9 kB\n";
}

TEST_F(ProcMeminfo, FillsTheFourFiguresAndTracesThem) {
    const ScopedProc proc(Files{{"meminfo", memory("1000", "250")}});
    const Memory memory;
    EXPECT_EQ(memory.result, 1);
    EXPECT_THAT(memory.figures, ElementsAre(1000, 250, 30, 40));
    const char* kName = "get_proc_meminfo";
    EXPECT_THAT(log_.take(), ElementsAre(Line(LOG_DEBUG, kName, "MemTotal:  1000 kB\n - 1000\n"),
                                         Line(LOG_DEBUG, kName, "MemFree:  250 kB\n - 250\n"),
                                         Line(LOG_DEBUG, kName, "Buffers: 30 kB\n - 30\n"),
                                         Line(LOG_DEBUG, kName, "Cached:  40 kB\n - 40\n")));
}

TEST_F(ProcMeminfo, AgreesWithTheKernel) {
    const Memory memory;
    EXPECT_EQ(memory.result, 1);
    EXPECT_EQ(memory.figures[PROC_MEMINFO_TOTAL], kernel_numbers("/proc/meminfo", "MemTotal:")[0]);
    EXPECT_THAT(memory.figures[PROC_MEMINFO_FREE], Le(memory.figures[PROC_MEMINFO_TOTAL]));
    EXPECT_THAT(memory.figures[PROC_MEMINFO_CACHED], Le(memory.figures[PROC_MEMINFO_TOTAL]));
}

TEST_F(ProcMeminfo, TakesTheLinesInAnyOrderAndForm) {
    const ScopedProc proc(
        Files{{"meminfo",
               "HugePages: 1\r\nCached: 4\r\n  Buffers:3 kB\r\n\nMemFree:\t2\tkB\r\nxMemTotal:"
               " 1"}});
    const Memory memory;
    EXPECT_EQ(memory.result, 1);
    EXPECT_THAT(memory.figures, ElementsAre(1, 2, 3, 4));
}

TEST_F(ProcMeminfo, TakesAnyLineThatContainsTheName) {
    const ScopedProc proc(Files{{"meminfo",
                                 "MemTotal: 1 kB\nMemFree: 2 kB\nBuffers: 3 kB\nSwapCached: 9 kB\n"
                                 "Cached: 4 kB\n"}});
    const Memory memory;
    EXPECT_EQ(memory.result, 1);
    EXPECT_THAT(memory.figures, ElementsAre(1, 2, 3, 9));
}

TEST_F(ProcMeminfo, LooksForTheNamesInTheirOrder) {
    const ScopedProc proc(Files{{"meminfo",
                                 "Buffers: 3 MemFree:\nCached: 2 Buffers:\nMemFree: 1 "
                                 "MemTotal:\nCached: 4\n"}});
    const Memory memory;
    EXPECT_EQ(memory.result, 1);
    EXPECT_THAT(memory.figures, ElementsAre(1, 3, 2, 4));
}

TEST_F(ProcMeminfo, CountsALineThatIsThereTwiceTwice) {
    const ScopedProc proc(Files{
        {"meminfo", "MemTotal: 1 kB\nMemTotal: 2 kB\nMemFree: 3 kB\nBuffers: 4 kB\nCached: 5\n"}});
    const Memory memory;
    EXPECT_EQ(memory.result, 1);
    EXPECT_THAT(memory.figures, ElementsAre(2, 3, 4, kUntouched));
}

TEST_F(ProcMeminfo, StopsBehindTheFourth) {
    const ScopedProc proc(Files{{"meminfo", memory("1", "2") + "MemTotal: x\n"}});
    EXPECT_EQ(Memory().result, 1);
    EXPECT_EQ(log_.take().size(), 4U);
}

TEST_F(ProcMeminfo, FailsWithoutOneOfTheLines) {
    for (const char* missing : {"MemTotal:", "MemFree:", "Buffers:", "Cached:"}) {
        std::istringstream whole("MemTotal: 1\nMemFree: 2\nBuffers: 3\nCached: 4\n");
        std::string content;
        for (std::string line; std::getline(whole, line);) {
            if (!line.starts_with(missing)) content += line + "\n";
        }
        const ScopedProc proc(Files{{"meminfo", content}});
        const Memory memory;
        EXPECT_EQ(memory.result, -1) << missing;
        EXPECT_EQ(std::ranges::count(memory.figures, kUntouched), 1);
        EXPECT_EQ(log_.take().size(), 3U);
    }
    const ScopedProc proc(Files{{"meminfo", ""}});
    EXPECT_EQ(Memory().result, -1);
    EXPECT_THAT(log_.take(), IsEmpty());
}

TEST_F(ProcMeminfo, StopsAtALineWithoutANumber) {
    for (const std::string line :
         {"MemFree: kB\n", "MemFree:\n", ":5 MemFree: 2\n", "x: MemFree: 2\n"}) {
        const ScopedProc proc(
            Files{{"meminfo", "MemTotal: 1\n" + line + "MemFree: 2\nBuffers: 3\nCached: 4\n"}});
        const Memory memory;
        EXPECT_EQ(memory.result, -1) << line;
        EXPECT_THAT(memory.figures, ElementsAre(1, kUntouched, kUntouched, kUntouched));
        EXPECT_THAT(log_.take(),
                    ElementsAre(Line(LOG_DEBUG, "get_proc_meminfo", "MemTotal: 1\n - 1\n"),
                                Line(LOG_ERR, "get_proc_meminfo", "sscanf " + line + " fail\n")));
    }
}

TEST_F(ProcMeminfo, NeverUsesALineAsAFormat) {
    const ScopedProc proc(Files{{"meminfo", "%s%n MemTotal: 5\n"}});
    EXPECT_EQ(Memory().result, -1);
    EXPECT_THAT(log_.take(),
                ElementsAre(Line(LOG_DEBUG, "get_proc_meminfo", "%s%n MemTotal: 5\n - 5\n")));
}

TEST_F(ProcMeminfo, StopsAtTheLargestNumberOf32Bits) {
    const ScopedProc proc(Files{{"meminfo", memory("18446744073709551616", "-1")}});
    const Memory memory;
    EXPECT_EQ(memory.result, 1);
    EXPECT_THAT(memory.figures, ElementsAre(kMost, kMost, 30, 40));
    EXPECT_THAT(log_.take()[0].text, testing::HasSubstr(" - 4294967295\n"));
}

TEST_F(ProcMeminfo, ReadsALongLineInPieces) {
    // The piece behind the first 1023 bytes is a line of its own.
    const std::string filler(1023, 'x');
    const ScopedProc proc(
        Files{{"meminfo", filler + "MemTotal: 1 kB\nMemFree: 2\nBuffers: 3\nCached: 4"}});
    const Memory memory;
    EXPECT_EQ(memory.result, 1);
    EXPECT_EQ(memory.figures[0], 1U);
}

TEST_F(ProcMeminfo, SaysThatItCannotOpenTheFile) {
    const Fail fail("open");
    EXPECT_EQ(Memory().result, -1);
    EXPECT_THAT(log_.take(), ElementsAre(Line(LOG_ERR, "get_proc_meminfo", "fopen fail\n")));
}

TEST_F(ProcMeminfo, FailsSilentlyWhereNothingCanBeRead) {
    const Fail fail("read");
    EXPECT_EQ(Memory().result, -1);
    EXPECT_THAT(log_.take(), IsEmpty());
}

TEST_F(MemoryUsage, SdramSizeIsTheTotal) {
    const ScopedProc proc(Files{{"meminfo", memory("253952", "1000")}});
    uint32_t size = kUntouched;
    EXPECT_EQ(tq_hal_get_sdram_size(&size), 0);
    EXPECT_EQ(size, 253952U);
}

struct Usage {
    std::string total;
    std::string free;
    uint32_t percent;
};

TEST_F(MemoryUsage, IsTruncatedAndCalculatedIn32Bits) {
    const Usage kUsages[] = {
        {"1000", "250", 75},
        {"1000", "1", 99},
        {"1000", "1000", 0},
        {"1000", "0", 100},
        {"3", "1", 66},
        {"1", "2", kMost - 99},           // (1 - 2) * 100 / 1
        {"42949672", "0", 100},           // 4294967200, the last product that fits
        {"42949673", "0", 0},             // 4294967300 is 4
        {"50000000", "0", 14},            // 5000000000 is 705032704
        {"4294967295", "4294967294", 0},  // 100 / 4294967295
    };
    for (const Usage& usage : kUsages) {
        const ScopedProc proc(Files{{"meminfo", memory(usage.total, usage.free)}});
        uint32_t percent = kUntouched;
        EXPECT_EQ(tq_get_memory_real_usage(&percent), 0);
        EXPECT_EQ(percent, usage.percent) << usage.total << " " << usage.free;
    }
}

TEST_F(MemoryUsage, FailsWithTheFigures) {
    const ScopedProc proc(Files{{"meminfo", "MemTotal: 1 kB\nMemFree: 2 kB\nCached: 3 kB\n"}});
    uint32_t size = kUntouched;
    EXPECT_EQ(tq_hal_get_sdram_size(&size), -1);
    EXPECT_EQ(size, kUntouched);
    EXPECT_THAT(log_.take().back(),
                Line(LOG_ERR, "tq_hal_get_sdram_size", "get_proc_meminfo fail\n"));
    uint32_t percent = kUntouched;
    EXPECT_EQ(tq_get_memory_real_usage(&percent), -1);
    EXPECT_EQ(percent, 0U);
    EXPECT_THAT(log_.take().back(),
                Line(LOG_ERR, "tq_get_memory_real_usage", "get_proc_meminfo fail\n"));
}

TEST_F(MemoryUsage, OfNoMemoryStopsTheProcess) {
    const ScopedProc proc(Files{{"meminfo", memory("0", "0")}});
    uint32_t number = kUntouched;
    EXPECT_EQ(tq_hal_get_sdram_size(&number), 0);
    EXPECT_EQ(number, 0U);
#if defined(TQ_SANITIZED) && !defined(TQ_ADDRESS_SANITIZED)
    EXPECT_DEATH(tq_get_memory_real_usage(&number), "FPE");
#elif defined(TQ_SANITIZED)
    EXPECT_DEATH(tq_get_memory_real_usage(&number), "division by zero");
#else
    // MIPS has a trap for it, which an emulator may hand on as such.
    const auto stopped = [](int status) {
        return WIFSIGNALED(status) && (WTERMSIG(status) == SIGFPE || WTERMSIG(status) == SIGTRAP);
    };
    EXPECT_EXIT(tq_get_memory_real_usage(&number), stopped, "");
#endif
}

// The queries of the statistics service

struct Relayed {
    const char* key;
    const char* received;
    const char* asked;
    int (*call)(uint32_t*);
};

constexpr Relayed kRelayed[] = {
    {"memoryUsage", "statistics get class_type=2", "tq_get_mem_usage", tq_get_memory_avg_usage},
    {"cpuUsage", "statistics get class_type=3", "tq_get_cpu_usage", tq_get_cpu_avg_usage},
    {"cpuCurUsage", "statistics get class_type=4", "tq_get_cpu_cur_usage", tq_get_cpu_real_usage},
};

TEST_F(Service, TellsThePercentages) {
    const Broker broker;
    ASSERT_EQ(init_ubus_client(), 0);
    for (const Relayed& relayed : kRelayed) {
        BusService service({std::string("statistics=int:") + relayed.key + ":37"});
        uint32_t percent = kUntouched;
        EXPECT_EQ(relayed.call(&percent), 0);
        EXPECT_EQ(percent, 37U) << relayed.key;
        EXPECT_THAT(service.take(), ElementsAre(relayed.received));
    }
    EXPECT_THAT(log_.take(), IsEmpty());
}

TEST_F(Service, ThatLacksANumberGivesZero) {
    const Broker broker;
    ASSERT_EQ(init_ubus_client(), 0);
    const BusService service({"statistics=int:other:37"});
    for (const Relayed& relayed : kRelayed) {
        uint32_t percent = kUntouched;
        EXPECT_EQ(relayed.call(&percent), 0);
        EXPECT_EQ(percent, 0U);
    }
}

TEST_F(Service, ThatFailsBehindItsReplyGivesZero) {
    const Broker broker;
    ASSERT_EQ(init_ubus_client(), 0);
    for (const Relayed& relayed : kRelayed) {
        const BusService service({std::string("statistics=int:") + relayed.key + ":37,status:4"});
        uint32_t percent = kUntouched;
        EXPECT_EQ(relayed.call(&percent), -1);
        EXPECT_EQ(percent, 0U);
        EXPECT_EQ(log_.take().back().function, relayed.asked);
    }
}

TEST_F(Service, CannotBeAskedWithoutAConnection) {
    for (const Relayed& relayed : kRelayed) {
        uint32_t percent = kUntouched;
        EXPECT_EQ(relayed.call(&percent), -1);
        EXPECT_EQ(percent, 0U);
        EXPECT_EQ(log_.take().back().function, relayed.asked);
    }
}

TEST_F(Service, TellsTheFlowsOfAPort) {
    const Broker broker;
    ASSERT_EQ(init_ubus_client(), 0);
    BusService service({"statistics=int:ifInFlow:11,int:ifOutFlow:4294967295"});
    uint32_t in = kUntouched;
    uint32_t out = kUntouched;
    EXPECT_EQ(tq_get_eth_flow(7, &in, &out), 0);
    EXPECT_EQ(in, 11U);
    EXPECT_EQ(out, kMost);
    EXPECT_THAT(service.take(), ElementsAre("statistics get class_type=0 index=7",
                                            "statistics get class_type=1 index=7"));
    EXPECT_THAT(log_.take(), IsEmpty());
}

TEST_F(Service, WithoutAConnectionHasNoFlows) {
    uint32_t in = kUntouched;
    uint32_t out = kUntouched;
    EXPECT_EQ(tq_get_eth_flow(7, &in, &out), -1);
    EXPECT_EQ(in, 0U);
    EXPECT_EQ(out, 0U);
    EXPECT_THAT(log_.take().back(),
                Line(LOG_ERR, "tq_get_eth_flow", "tq_get_in_flow_statistics fail\n"));
}

TEST_F(Service, ThatIsGoneForTheSecondFlowHasToldTheFirst) {
    const Broker broker;
    ASSERT_EQ(init_ubus_client(), 0);
    BusService service({"statistics=int:ifInFlow:11,int:ifOutFlow:12"});
    const BusCalls calls;
    BusCalls::before_invoke([&] { BusCalls::before_invoke([&] { service.kill(); }); });
    uint32_t in = kUntouched;
    uint32_t out = kUntouched;
    EXPECT_EQ(tq_get_eth_flow(1, &in, &out), -1);
    EXPECT_EQ(in, 11U);
    EXPECT_EQ(out, 0U);
    EXPECT_THAT(log_.take().back(),
                Line(LOG_ERR, "tq_get_eth_flow", "tq_get_out_flow_statistics fail\n"));
}

TEST_F(Service, ThatLacksTheSecondFlowGivesZeroForIt) {
    const Broker broker;
    ASSERT_EQ(init_ubus_client(), 0);
    const BusService service({"statistics=int:ifInFlow:11"});
    uint32_t in = kUntouched;
    uint32_t out = kUntouched;
    EXPECT_EQ(tq_get_eth_flow(1, &in, &out), 0);
    EXPECT_EQ(in, 11U);
    EXPECT_EQ(out, 0U);
}

TEST_F(Service, ThatFailsBehindItsFlowsGivesZero) {
    const Broker broker;
    ASSERT_EQ(init_ubus_client(), 0);
    const BusService service({"statistics=int:ifInFlow:11,status:4"});
    uint32_t in = kUntouched;
    uint32_t out = kUntouched;
    EXPECT_EQ(tq_get_eth_flow(1, &in, &out), -1);
    EXPECT_EQ(in, 0U);
    EXPECT_EQ(out, 0U);
}

// tq_get_sys_uptime

TEST_F(Uptime, IsTheKernels) {
    struct sysinfo before {
    }, after{};
    uint32_t seconds = kUntouched;
    ASSERT_EQ(sysinfo(&before), 0);
    EXPECT_EQ(tq_get_sys_uptime(&seconds), 0);
    ASSERT_EQ(sysinfo(&after), 0);
    EXPECT_THAT(seconds, testing::AllOf(Ge(before.uptime), Le(after.uptime)));
    EXPECT_THAT(log_.take(), IsEmpty());
}

TEST_F(Uptime, SaysThatTheKernelDoesNotTell) {
    const Fail fail("sysinfo", 1, EPERM);
    uint32_t seconds = kUntouched;
    EXPECT_EQ(tq_get_sys_uptime(&seconds), -1);
    EXPECT_EQ(seconds, 0U);
    EXPECT_THAT(log_.take(), ElementsAre(Line(LOG_ERR, "tq_get_sys_uptime", "sysinfo fail\n")));
}

// tq_get_flash_free_size

constexpr char kEntry[] = "tmpfs /overlay tmpfs rw 0 0\n";

// The device's own table is a link into /proc.
class MountTable {
  public:
    explicit MountTable(const std::string& content) {
        unlink("/etc/mtab");
        write_file("/etc/mtab", content);
    }
    ~MountTable() {
        unlink("/etc/mtab");
        if (symlink("/proc/self/mounts", "/etc/mtab") != 0) abort();
    }
    MountTable(const MountTable&) = delete;
    MountTable& operator=(const MountTable&) = delete;
};

class Overlay {
  public:
    explicit Overlay(const std::string& options)
        : mount_((mkdir("/overlay", 0755), "tmpfs"), "/overlay", "tmpfs", 0, options) {}

  private:
    ScopedMount mount_;
};

struct Free {
    uint32_t kb = kUntouched;
    int result = tq_get_flash_free_size(&kb);
};

TEST_F(FlashFree, IsWhatTheFileSystemHasLeft) {
    const Overlay overlay("size=8m");
    const MountTable table(kEntry);
    EXPECT_EQ(Free().kb, 8192U);
    write_file("/overlay/upper/file", std::string(1000000, 'x'));
    const Free free;
    EXPECT_EQ(free.result, 0);
    struct statfs room {};
    ASSERT_EQ(statfs("/overlay", &room), 0);
    EXPECT_EQ(free.kb, static_cast<uint64_t>(room.f_bsize) * room.f_bavail / 1024);
    EXPECT_THAT(free.kb, Le(7216U));
    EXPECT_THAT(log_.take(), IsEmpty());
}

TEST_F(FlashFree, IsFoundInTheKernelsTable) {
    const Overlay overlay("size=4m");
    unlink("/etc/mtab");
    ASSERT_EQ(symlink("/proc/self/mounts", "/etc/mtab"), 0);
    EXPECT_EQ(Free().kb, 4096U);
}

TEST_F(FlashFree, WrapsAroundIn32Bits) {
    const Overlay overlay("size=5g");
    const MountTable table(kEntry);
    EXPECT_EQ(Free().kb, 1024U * 1024U);
}

// On the file system that holds the build, which others write to meanwhile.
TEST_F(FlashFree, IsWhatUsersWithoutPrivilegesMayTake) {
    mkdir("/overlay", 0755);
    const ScopedMount build(std::filesystem::read_symlink("/proc/self/exe").parent_path(),
                            "/overlay", "", MS_BIND, "");
    const MountTable table(kEntry);
    struct statfs before {};
    struct statfs after {};
    Free free;
    do {
        ASSERT_EQ(statfs("/overlay", &before), 0);
        free = Free();
        ASSERT_EQ(statfs("/overlay", &after), 0);
    } while (before.f_bavail != after.f_bavail);
    if (before.f_bavail == before.f_bfree) GTEST_SKIP() << "it keeps no blocks back for root";
    EXPECT_EQ(free.result, 0);
    const auto room = static_cast<uint64_t>(before.f_bsize) * before.f_bavail;
    EXPECT_EQ(free.kb, static_cast<uint32_t>(room) / 1024);
}

TEST_F(FlashFree, IsAskedForOnce) {
    const Overlay overlay("size=8m");
    const MountTable table(std::string(kEntry) + kEntry);
    faults::reset();
    EXPECT_EQ(Free().result, 0);
    EXPECT_EQ(faults::count("statfs"), 1U);
}

TEST_F(FlashFree, IsThatOfTheSecondEntryWhereTheFirstDoesNotAnswer) {
    const Overlay overlay("size=8m");
    const MountTable table(std::string("first /overlay jffs2 rw 0 0\n") + kEntry);
    const Fail fail("statfs", 1, ESTALE);
    const Free free;
    EXPECT_TRUE(fail.fired());
    EXPECT_EQ(free.result, 0);
    EXPECT_EQ(free.kb, 8192U);
    EXPECT_THAT(log_.take(), IsEmpty());
}

TEST_F(FlashFree, NeedsAnEntryOfExactlyThatDirectory) {
    const Overlay overlay("size=8m");
    const MountTable table(
        "a /overlay2 tmpfs rw 0 0\nb /over tmpfs rw 0 0\n/overlay / tmpfs rw 0 0\n"
        "c /mnt/overlay tmpfs rw 0 0\n# d /overlay tmpfs rw 0 0\n/overlay\n");
    faults::reset();
    const Free free;
    EXPECT_EQ(free.result, -1);
    EXPECT_EQ(free.kb, 0U);
    EXPECT_EQ(faults::count("statfs"), 0U);
    EXPECT_THAT(log_.take(), IsEmpty());
}

TEST_F(FlashFree, IsFoundBehindALineThatIsTooLong) {
    const Overlay overlay("size=8m");
    const MountTable table("x /" + std::string(20000, 'y') + " tmpfs rw 0 0\n" + kEntry);
    EXPECT_EQ(Free().kb, 8192U);
}

TEST_F(FlashFree, FailsSilentlyWhereTheFileSystemDoesNotAnswer) {
    rmdir("/overlay");
    const MountTable table(kEntry);
    const Free free;
    EXPECT_EQ(free.result, -1);
    EXPECT_EQ(free.kb, 0U);
    EXPECT_THAT(log_.take(), IsEmpty());
    const MountTable none("");
    EXPECT_EQ(Free().result, -1);
    EXPECT_THAT(log_.take(), IsEmpty());
}

TEST_F(FlashFree, SaysThatThereIsNoMountTable) {
    const MountTable table("");
    unlink("/etc/mtab");
    const Free free;
    EXPECT_EQ(free.result, -1);
    EXPECT_EQ(free.kb, 0U);
    EXPECT_THAT(log_.take(),
                ElementsAre(Line(LOG_ERR, "tq_get_flash_free_size", "setmntent fail\n")));
}

// tq_hal_get_flash_size

constexpr char kHeader[] = "dev:    size   erasesize  name\n";

TEST_F(FlashSize, IsThatOfTheFirstPartition) {
    const ScopedProc proc(
        Files{{"mtd", kHeader + std::string("mtd0: 00040000 00010000 \"u-boot\"\n"
                                            "mtd1: 00f00000 00010000 \"firmware\"\n")}});
    EXPECT_EQ(tq_hal_get_flash_size(), 0x40000);
    EXPECT_THAT(log_.take(), IsEmpty());
}

struct Row {
    std::string text;
    int size;
};

TEST_F(FlashSize, IsReadWithAllTheBlanksAndSignsThatAScanTakes) {
    const Row kRows[] = {
        {"mtd1: 00abcdef 00010000 \"x\"\r\n", 0xabcdef},
        {"mtd12:\t00ABCDEF\t10000\t\"two words\"", 0xabcdef},
        {"mtd 3:1 2\"x", 1},
        {"mtd0:0x10 0 \"x\"\n", 0x10},
        {"mtd0:0X1f 0 \"x\"\n", 0x1f},
        {"mtd0:0xabcdef1 0 \" y\"\n", 0},  // eight characters are 0xabcdef, which leaves 1 and 0
        {"mtd0:+5 -1 \" y\"\n", 5},
        {"mtd0:-5 1 \"x\"\n", -5},
        {"mtd0: ffffffff 1 \"\"\n", -1},
        {"mtd0: 80000000 1 \"x\"\n", -2147483647 - 1},
        {"mtd0: 12345678\"\n", 0},
        {"mtd0: 123456789 \"x\"\n", 0x12345678},
        {"mtd0: 0x 5 \"x\"\n", 0},
    };
    for (const Row& row : kRows) {
        unsigned index = 0, size = 0, erase_size = 0;
        char name[32];
        const int scanned = sscanf(row.text.c_str(), "mtd%u:\t%08x\t%08x\t\"%31s\"\n", &index,
                                   &size, &erase_size, name);
        EXPECT_EQ(row.size, scanned == 4 ? static_cast<int>(size) : 0) << row.text;
        const ScopedProc proc(Files{{"mtd", kHeader + row.text}});
        EXPECT_EQ(tq_hal_get_flash_size(), row.size) << row.text;
        log_.take();
    }
}

TEST_F(FlashSize, IsZeroOfALineOfAnotherForm) {
    for (const char* row : {"\n", "mtd\n", "mtd0 00040000 00010000 \"x\"\n", "mtd0: x 1 \"x\"\n",
                            "mtd0: 1 x \"x\"\n", "mtd0: 1 2 x\n", "mtd0: 1 2 \"\n", "mtd0: 1 2\n",
                            " mtd0: 1 2 \"x\"\n", "nand0: 1 2 \"x\"\n", "mtdx: 1 2 \"x\"\n",
                            "mtd0: 123456789 1 \"x\"\n", "mtd0: - 2 \"x\"\n"}) {
        const ScopedProc proc(Files{{"mtd", std::string(kHeader) + row + "mtd1: 1 2 \"x\"\n"}});
        EXPECT_EQ(tq_hal_get_flash_size(), 0) << row;
        EXPECT_THAT(log_.take(),
                    ElementsAre(Line(LOG_ERR, "tq_hal_get_flash_size", "sscanf fail\n")));
    }
}

TEST_F(FlashSize, IsZeroWithoutAPartition) {
    for (const char* content : {kHeader, "", "dev:    size"}) {
        const ScopedProc proc(Files{{"mtd", content}});
        EXPECT_EQ(tq_hal_get_flash_size(), 0);
    }
    EXPECT_THAT(log_.take(), IsEmpty());
}

TEST_F(FlashSize, SaysThatItCannotOpenTheTable) {
    const Fail fail("open");
    EXPECT_EQ(tq_hal_get_flash_size(), -1);
    EXPECT_THAT(log_.take(), ElementsAre(Line(LOG_ERR, "tq_hal_get_flash_size", "fopen fail\n")));
}

// tq_hal_get_processor_type

TEST_F(ProcessorType, IsTheValueOfTheFirstLine) {
    const ScopedProc proc(
        Files{{"cpuinfo", "system type\t\t: Atheros AR9344: rev 2\nmachine: X\n"}});
    Buffer buffer(64);
    EXPECT_EQ(tq_hal_get_processor_type(buffer.data(), buffer.size()), 0);
    EXPECT_EQ(buffer.text(), "Atheros AR9344: rev 2");
    EXPECT_EQ(buffer.all(), "Atheros AR9344: rev 2" + std::string(64 - 21, '\0'));
    EXPECT_TRUE(buffer.guard_holds());
    EXPECT_THAT(log_.take(), IsEmpty());
}

TEST_F(ProcessorType, AgreesWithTheKernel) {
    const std::string content = read_file("/proc/cpuinfo");
    const std::string line = content.substr(0, content.find('\n'));
    Buffer buffer(1024);
    const int result = tq_hal_get_processor_type(buffer.data(), buffer.size());
    const size_t colon = line.find(':');
    if (colon == std::string::npos) {
        EXPECT_EQ(result, -1);
    } else {
        EXPECT_EQ(result, 0);
        EXPECT_EQ(buffer.text(), line.substr(colon + 2));
    }
}

struct TypeLine {
    std::string content;
    int size;
    std::string value;
};

TEST_F(ProcessorType, IsCutToFit) {
    const TypeLine kLines[] = {
        {"a: MIPS 74Kc\n", 1, ""},
        {"a: MIPS 74Kc\n", 2, "M"},
        {"a: MIPS 74Kc\n", 9, "MIPS 74K"},
        {"a: MIPS 74Kc\n", 10, "MIPS 74Kc"},
        {"a: MIPS 74Kc\n", 11, "MIPS 74Kc"},
        {"a: MIPS 74Kc", 64, "MIPS 74Kc"},
        {"a:MIPS\n", 64, "IPS"},
        {"a: MIPS\r\n", 64, "MIPS\r"},
        {":  x\n\n", 64, " x"},
        {"a:\n", 64, ""},
        {"a:", 64, ""},
        {"a: ", 64, ""},
        {"a: \n", 64, ""},
        {"a:\nb: next\n", 64, ""},
    };
    for (const TypeLine& line : kLines) {
        const ScopedProc proc(Files{{"cpuinfo", line.content}});
        Buffer buffer(line.size);
        EXPECT_EQ(tq_hal_get_processor_type(buffer.data(), buffer.size()), 0);
        EXPECT_EQ(buffer.text(), line.value) << line.content;
        EXPECT_TRUE(buffer.guard_holds());
    }
    EXPECT_THAT(log_.take(), IsEmpty());
}

TEST_F(ProcessorType, ReadsNoMoreThanALineBufferHolds) {
    const ScopedProc proc(Files{{"cpuinfo", "a: " + std::string(2000, 'x') + "\n"}});
    Buffer buffer(4096);
    EXPECT_EQ(tq_hal_get_processor_type(buffer.data(), buffer.size()), 0);
    EXPECT_EQ(buffer.text(), std::string(1020, 'x'));
    const ScopedProc late(Files{{"cpuinfo", std::string(1023, 'x') + ": y\n"}});
    EXPECT_EQ(tq_hal_get_processor_type(buffer.data(), buffer.size()), -1);
}

TEST_F(ProcessorType, SaysWhatFails) {
    const char* kName = "tq_hal_get_processor_type";
    Buffer buffer(16);
    EXPECT_EQ(tq_hal_get_processor_type(buffer.data(), 0), -1);
    EXPECT_EQ(tq_hal_get_processor_type(buffer.data(), -1), -1);
    EXPECT_TRUE(buffer.untouched());
    EXPECT_THAT(log_.take(), ElementsAre(Line(LOG_ERR, kName, "invalid parameter\n"),
                                         Line(LOG_ERR, kName, "invalid parameter\n")));
    {
        const Fail fail("open");
        EXPECT_EQ(tq_hal_get_processor_type(buffer.data(), buffer.size()), -1);
        EXPECT_EQ(buffer.text(), "");
    }
    EXPECT_THAT(log_.take(), ElementsAre(Line(LOG_ERR, kName, "fopen fail\n")));
    {
        const ScopedProc proc(Files{{"cpuinfo", ""}});
        EXPECT_EQ(tq_hal_get_processor_type(buffer.data(), buffer.size()), -1);
    }
    EXPECT_THAT(log_.take(), ElementsAre(Line(LOG_ERR, kName, "fgets fail\n")));
    const ScopedProc proc(Files{{"cpuinfo", "no %s colon\nhere: x\n"}});
    EXPECT_EQ(tq_hal_get_processor_type(buffer.data(), buffer.size()), -1);
    EXPECT_EQ(buffer.text(), "");
    EXPECT_THAT(log_.take(), ElementsAre(Line(LOG_ERR, kName, "buf = no %s colon\n\n")));
}

// tq_get_eth_stats

if_stats untouched_record() {
    if_stats rec;
    memset(&rec, 0x5a, sizeof(rec));
    return rec;
}

bool same(const if_stats& a, const if_stats& b) {
    return memcmp(&a, &b, sizeof(a)) == 0;
}

constexpr uint64_t kUntouched64 = 0x5a5a5a5a5a5a5a5aU;

TEST_F(EthStats, AreTheFirstAndTheFourthNumber) {
    const ScopedProc proc(Files{{"net/eth/eth3/stats", "1 20 300 4000 50000 600000 7\n8\n"}});
    if_stats rec = untouched_record();
    EXPECT_EQ(tq_get_eth_stats(3, &rec), 0);
    if_stats expected = untouched_record();
    expected.in_octets = 1;
    expected.out_octets = 4000;
    EXPECT_TRUE(same(rec, expected));
    EXPECT_THAT(log_.take(), ElementsAre(Line(LOG_DEBUG, "tq_get_eth_stats",
                                              "ifInOctets:1 ifOutOctets: 4000\n")));
}

TEST_F(EthStats, Have64Bits) {
    const ScopedProc proc(
        Files{{"net/eth/eth0/stats", "18446744073709551615 0 0 18446744073709551616 0 0"},
              {"net/eth/eth1/stats", "-1\t-18446744073709551616 +3 4294967297 5\v6"},
              {"net/eth/eth2/stats", "-18446744073709551615 0 0 -18446744073709551616 0 0"}});
    if_stats rec = untouched_record();
    EXPECT_EQ(tq_get_eth_stats(0, &rec), 0);
    EXPECT_EQ(rec.in_octets, UINT64_MAX);
    EXPECT_EQ(rec.out_octets, UINT64_MAX);
    EXPECT_EQ(tq_get_eth_stats(1, &rec), 0);
    EXPECT_EQ(rec.in_octets, UINT64_MAX);
    EXPECT_EQ(rec.out_octets, 4294967297U);
    EXPECT_EQ(tq_get_eth_stats(2, &rec), 0);
    EXPECT_EQ(rec.in_octets, 1U);
    EXPECT_EQ(rec.out_octets, UINT64_MAX);
    EXPECT_THAT(log_.take()[0].text,
                "ifInOctets:18446744073709551615 ifOutOctets: "
                "18446744073709551615\n");
}

TEST_F(EthStats, OfAnotherFormAreNotTaken) {
    for (const std::string content :
         {"", "\n", "1 2 3 4 5\n", "1 2 3 4 5\n6\n", "x 1 2 3 4 5 6\n", "1 2 3 4 5 x %n\n"}) {
        const ScopedProc proc(Files{{"net/eth/eth0/stats", content}});
        if_stats rec = untouched_record();
        EXPECT_EQ(tq_get_eth_stats(0, &rec), -1);
        EXPECT_TRUE(same(rec, untouched_record()));
        const std::string line = content.substr(0, content.find('\n') + 1);
        EXPECT_THAT(
            log_.take(),
            ElementsAre(Line(LOG_WARNING, "tq_get_eth_stats", "unknown format: '" + line + "'\n"),
                        Line(LOG_DEBUG, "tq_get_eth_stats",
                             "ifInOctets:6510615555426900570 ifOutOctets: 6510615555426900570\n")));
    }
    static_assert(kUntouched64 == 6510615555426900570U);
}

TEST_F(EthStats, OfAMissingFileAreNotTaken) {
    if_stats rec = untouched_record();
    EXPECT_EQ(tq_get_eth_stats(-7, &rec), -1);
    EXPECT_TRUE(same(rec, untouched_record()));
    EXPECT_THAT(
        log_.take(),
        ElementsAre(Line(LOG_WARNING, "tq_get_eth_stats",
                         "fopen /proc/net/eth/eth-7/stats failed: No such file or directory\n")));
}

TEST_F(EthStats, OfADirectoryAreNotTaken) {
    const ScopedProc proc(Files{{"net/eth/eth0/stats/file", ""}});
    if_stats rec = untouched_record();
    EXPECT_EQ(tq_get_eth_stats(0, &rec), -1);
    EXPECT_THAT(log_.take()[0], Line(LOG_WARNING, "tq_get_eth_stats", "unknown format: ''\n"));
}

TEST_F(EthStats, NeedARecord) {
    EXPECT_EQ(tq_get_eth_stats(0, nullptr), -1);
    EXPECT_THAT(log_.take(), ElementsAre(Line(LOG_ERR, "tq_get_eth_stats", "null buff\n")));
}

// tq_get_if_statistics

const std::string kDevHeader =
    "Inter-|   Receive                                                |  Transmit\n"
    " face |bytes    packets errs drop fifo frame compressed multicast|bytes    packets errs drop "
    "fifo colls carrier compressed\n";

std::string row(const std::string& name, unsigned first) {
    std::string text = name + ":";
    for (unsigned i = 0; i < 16; i++)
        text += " " + std::to_string(first + i);
    return text + "\n";
}

if_stats record_of(unsigned first) {
    if_stats rec{};
    rec.in_octets = first;
    rec.in_packets = first + 1;
    rec.in_errors = first + 2;
    rec.in_discards = first + 3;
    rec.in_multicast = first + 7;
    rec.out_octets = first + 8;
    rec.out_packets = first + 9;
    rec.out_errors = first + 10;
    rec.out_discards = first + 11;
    return rec;
}

TEST_F(IfStatistics, FillTheWholeRecord) {
    const Broker broker;
    ASSERT_EQ(init_ubus_client(), 0);
    BusService service({"statistics=int:ifInFlow:70,int:ifOutFlow:71"});
    const ScopedProc proc(
        Files{{"net/dev", kDevHeader + row("    lo", 1) + row("  eth0", 100) + row("  eth1", 200)},
              {"net/eth/eth1/stats", "50 51 52 53 54 55\n"}});
    if_stats rec = untouched_record();
    EXPECT_EQ(tq_get_if_statistics(1, &rec), 0);
    if_stats expected = record_of(200);
    expected.in_octets = 50;
    expected.out_octets = 53;
    expected.in_flow = 70;
    expected.out_flow = 71;
    EXPECT_TRUE(same(rec, expected));
    EXPECT_THAT(service.take(), ElementsAre("statistics get class_type=0 index=1",
                                            "statistics get class_type=1 index=1"));
    EXPECT_THAT(log_.take(), ElementsAre(Line(LOG_DEBUG, "tq_get_eth_stats",
                                              "ifInOctets:50 ifOutOctets: 53\n")));
}

TEST_F(IfStatistics, DoWithoutTheServiceAndTheDriver) {
    const ScopedProc proc(Files{{"net/dev", kDevHeader + row("  eth0", 100)}});
    if_stats rec = untouched_record();
    EXPECT_EQ(tq_get_if_statistics(0, &rec), 0);
    EXPECT_TRUE(same(rec, record_of(100)));
    const std::vector<tq_test::LogLine> lines = log_.take();
    ASSERT_GE(lines.size(), 2U);
    EXPECT_THAT(lines[lines.size() - 2],
                Line(LOG_ERR, "tq_get_eth_flow", "tq_get_in_flow_statistics fail\n"));
    EXPECT_THAT(lines.back(),
                Line(LOG_WARNING, "tq_get_eth_stats",
                     "fopen /proc/net/eth/eth0/stats failed: No such file or directory\n"));
}

TEST_F(IfStatistics, AgreeWithTheKernel) {
    run_command("ping -c 3 -i 0.01 -I eth0 192.0.2.1");
    const auto before = kernel_numbers("/proc/net/dev", "eth0:");
    if_stats rec = untouched_record();
    EXPECT_EQ(tq_get_if_statistics(0, &rec), 0);
    const auto after = kernel_numbers("/proc/net/dev", "eth0:");
    EXPECT_THAT(rec.in_octets, testing::AllOf(Ge(before[0]), Le(after[0])));
    EXPECT_THAT(rec.in_multicast, testing::AllOf(Ge(before[7]), Le(after[7])));
    EXPECT_THAT(rec.out_packets, testing::AllOf(Ge(before[9]), Le(after[9])));
    EXPECT_EQ(rec.reserved, 0U);
}

TEST_F(IfStatistics, AreThoseOfTheFirstLineThatContainsTheName) {
    const ScopedProc proc(Files{{"net/dev", kDevHeader + row(" veth0", 300) + row("  eth0", 100)}});
    if_stats rec = untouched_record();
    EXPECT_EQ(tq_get_if_statistics(0, &rec), 0);
    EXPECT_TRUE(same(rec, record_of(300)));
}

TEST_F(IfStatistics, AreReadWithoutABlankBehindTheName) {
    std::string line = row("eth0", 100);
    line.erase(line.find(": ") + 1, 1);
    line.insert(line.size() - 1, "\r");
    const ScopedProc proc(Files{{"net/dev", line}});
    if_stats rec = untouched_record();
    EXPECT_EQ(tq_get_if_statistics(0, &rec), 0);
    EXPECT_TRUE(same(rec, record_of(100)));
}

TEST_F(IfStatistics, StopAtTheLargestNumberOf64Bits) {
    const ScopedProc proc(Files{{"net/dev",
                                 "eth0: 18446744073709551616 4294967296 3 4 5 6 7 "
                                 "18446744073709551615 9 10 11 12 13 14 15 -1\n"}});
    if_stats rec = untouched_record();
    EXPECT_EQ(tq_get_if_statistics(0, &rec), 0);
    EXPECT_EQ(rec.in_octets, UINT64_MAX);
    EXPECT_EQ(rec.in_packets, 4294967296U);
    EXPECT_EQ(rec.in_multicast, UINT64_MAX);
    EXPECT_EQ(rec.out_octets, 9U);
}

TEST_F(IfStatistics, NeedAPortOfTheBoard) {
    for (const int port : {-1, 2, 100}) {
        if_stats rec = untouched_record();
        EXPECT_EQ(tq_get_if_statistics(port, &rec), -1);
        EXPECT_TRUE(same(rec, untouched_record()));
        EXPECT_THAT(
            log_.take(),
            ElementsAre(Line(LOG_ERR, "tq_get_if_statistics",
                             "tq_get_eth_ifname fail, index  = " + std::to_string(port) + "\n")));
    }
}

// The name is in the call's own buffer: no other thread's call can change it meanwhile.
TEST_F(IfStatistics, LeaveTheNameThatAnotherCallerHolds) {
    const ScopedProc proc(Files{{"net/dev", kDevHeader + row("  eth1", 100)}});
    const char* name = tq_get_eth_ifname(0);
    if_stats rec = untouched_record();
    EXPECT_EQ(tq_get_if_statistics(1, &rec), 0);
    EXPECT_TRUE(same(rec, record_of(100)));
    EXPECT_STREQ(name, "eth0");
}

TEST_F(IfStatistics, NeedALineOfTheInterface) {
    const ScopedProc proc(Files{{"net/dev", kDevHeader + row("eth1", 1)}});
    if_stats rec = untouched_record();
    EXPECT_EQ(tq_get_if_statistics(0, &rec), -1);
    EXPECT_TRUE(same(rec, if_stats{}));
    EXPECT_THAT(log_.take(),
                ElementsAre(Line(LOG_ERR, "read_line", "not find eth0:\n"),
                            Line(LOG_ERR, "tq_get_if_statistics", "read_line fail\n")));
}

TEST_F(IfStatistics, NeedSixteenNumbers) {
    for (const char* line : {"eth0: 1 2 3 4 5 6 7 8 9 10 11 12 13 14 15\n",
                             "eth0: 1 2 3 4 5 6 7 8 9 10 11 12 13 14 15\n16\n", "eth0:\n",
                             "eth0: 1 2 3 4 5 6 7 8 9 10 11 12 13 14 15 x\n"}) {
        const ScopedProc proc(Files{{"net/dev", line}});
        if_stats rec = untouched_record();
        EXPECT_EQ(tq_get_if_statistics(0, &rec), -1);
        EXPECT_TRUE(same(rec, if_stats{}));
        EXPECT_THAT(log_.take(),
                    ElementsAre(Line(LOG_ERR, "tq_get_if_statistics", "sscanf fail\n")));
    }
}

// Costs, descriptors, users

TEST_F(SysstatTest, OpensReadsAndClosesEachFileOnceAndAllocatesNothing) {
    const ScopedProc proc(
        Files{{"mtd", kHeader + std::string("mtd0: 00040000 00010000 \"u-boot\"\n")},
              {"net/eth/eth0/stats", "1 2 3 4 5 6\n"}});
    char text[64];
    uint32_t number = 0;
    if_stats rec{};
    Figures figures{};
    const std::function<int()> kCalls[] = {
        [&] { return tq_get_cpu_ticks(&number, &number); },
        [&] { return get_proc_cpuinfo(&number, &number); },
        [&] { return get_proc_meminfo(figures.data()) - 1; },
        [&] { return tq_hal_get_sdram_size(&number); },
        [&] { return tq_get_memory_real_usage(&number); },
        [&] { return tq_hal_get_flash_size() - 0x40000; },
        [&] { return tq_hal_get_processor_type(text, sizeof(text)); },
        [&] { return tq_get_eth_stats(0, &rec); },
    };
    // The traces are not what is counted.
    const int mask = setlogmask(LOG_UPTO(LOG_INFO));
    for (const auto& call : kCalls) {
        faults::reset();
        EXPECT_EQ(call(), 0);
        EXPECT_EQ(faults::count("open"), 1U);
        EXPECT_EQ(faults::count("read"), 1U);
        EXPECT_EQ(faults::count("close"), 1U);
        EXPECT_EQ(faults::count("malloc") + faults::count("calloc") + faults::count("realloc"), 0U);
    }
    setlogmask(mask);
}

TEST_F(SysstatTest, LeavesNoDescriptorOpen) {
    const Overlay overlay("size=1m");
    const MountTable table(std::string("x /overlay tmpfs rw 0 0\n") + kEntry);
    const auto call_all = [] {
        char text[64];
        uint32_t number = 0;
        if_stats rec{};
        Figures figures{};
        tq_get_cpu_ticks(&number, &number);
        get_proc_cpuinfo(&number, &number);
        get_proc_meminfo(figures.data());
        tq_get_flash_free_size(&number);
        tq_hal_get_flash_size();
        tq_hal_get_processor_type(text, sizeof(text));
        tq_get_eth_stats(0, &rec);
        tq_get_if_statistics(0, &rec);
    };
    call_all();
    const std::vector<int> before = tq_test::open_descriptors();
    call_all();
    for (const std::string content : {"", "x\n", "y\nz\n"}) {
        const ScopedProc proc(Files{{"stat", content},
                                    {"meminfo", content},
                                    {"mtd", content},
                                    {"cpuinfo", content},
                                    {"net/dev", content},
                                    {"net/eth/eth0/stats", content}});
        call_all();
        const Fail fail("statfs");
        call_all();
    }
    EXPECT_EQ(tq_test::open_descriptors(), before);
}

TEST_F(SysstatTest, IsForUsersWithoutPrivileges) {
    const Overlay overlay("size=1m,mode=0700");
    const MountTable table(kEntry);
    EXPECT_EQ(tq_test::as_nobody([] {
                  uint32_t number = 0;
                  Figures figures{};
                  if_stats rec{};
                  return tq_get_cpu_ticks(&number, &number) == 0 &&
                         get_proc_meminfo(figures.data()) == 1 &&
                         tq_get_flash_free_size(&number) == 0 && number == 1024 &&
                         tq_get_if_statistics(0, &rec) == 0;
              }),
              1);
}

}  // namespace
