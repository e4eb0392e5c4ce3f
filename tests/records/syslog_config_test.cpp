// syslog_config_test.cpp - the log daemon's configuration byte for byte, levels on their way into
// real processes, and the reload in a daemon of ours. Signals stay in the simulated device.
#include "tq/syslog_config.h"

#include <dlfcn.h>
#include <fcntl.h>
#include <gmock/gmock.h>
#include <signal.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/un.h>
#include <syslog.h>
#include <unistd.h>

#include <cerrno>
#include <climits>
#include <cstddef>
#include <cstring>
#include <filesystem>
#include <functional>
#include <string>
#include <string_view>
#include <vector>

#include "records/process_table_test.h"
#include "support/device.h"
#include "support/faults.h"
#include "support/log_capture.h"
#include "support/named_process.h"

// In front of the library's own: a device without a table.
static bool table_is_missing = false;
extern "C" syslog_process* get_syslog_cfg() {
    using Function = syslog_process* (*)();
    static const auto library = reinterpret_cast<Function>(dlsym(RTLD_NEXT, "get_syslog_cfg"));
    return table_is_missing ? nullptr : library();
}

namespace {

using testing::Contains;
using testing::Each;
using testing::ElementsAre;
using testing::IsEmpty;
using tq_test::as_nobody;
using tq_test::becomes;
using tq_test::count_signal;
using tq_test::exists;
using tq_test::FullDisk;
using tq_test::kReloadSignal;
using tq_test::kRoamd;
using tq_test::Line;
using tq_test::LogLine;
using tq_test::NamedProcess;
using tq_test::read_file;
using tq_test::run_command;
using tq_test::shared;
using tq_test::table;
using tq_test::write_file;

constexpr const char* kConfig = "/etc/syslogd.conf";
constexpr const char* kReport = "/tmp/syslogserver";
constexpr size_t kLast = 55;

// Before any test.
const uint32_t kStatusAtStart = syslog_server_status;
const uint32_t kFileSizeAtStart = syslog_file_size;
const syslog_process* const kTableAtStart = syslog_cfg;

// The layouts are part of the interface.
static_assert(sizeof(wcd_trace_settings) == 48);
static_assert(offsetof(wcd_trace_settings, id) == 0);
static_assert(offsetof(syslog_process, id) == 0);
static_assert(offsetof(syslog_process, name) == sizeof(void*));
static_assert(offsetof(syslog_process, tag) == 2 * sizeof(void*));
static_assert(offsetof(syslog_process, level) == 3 * sizeof(void*));
static_assert(offsetof(syslog_process, server) == 3 * sizeof(void*) + 4);
static_assert(offsetof(syslog_process, facility) == 3 * sizeof(void*) + 8);

std::string level_file(const syslog_process& row) {
    return std::string("/tmp/.loglvl.") + row.tag;
}

// The tags of the rows that `wanted` says, each closed by "|".
std::string tags(const std::function<bool(const syslog_process&)>& wanted) {
    std::string text;
    for (const syslog_process& row : table()) {
        if (wanted(row)) text += std::string(row.tag) + "|";
    }
    return text;
}

std::string tags_of(uint32_t facility) {
    return tags([=](const syslog_process& row) { return row.facility == facility; });
}

std::string all_tags() {
    return tags([](const auto&) { return true; });
}

std::string local_block(const std::string& programs, const std::string& facility,
                        const std::string& size = "2097152") {
    return "!|" + programs + "\n" + facility + ".*\t\t%/var/log/system.log " + size + " 666\n\n";
}

std::string remote_block(const std::string& programs, const std::string& address) {
    return "!|" + programs + "\nlocal5.*\t\t@" + address + "\n\n";
}

const std::string kHead = "logLocalFac=local5\n\n";

std::string default_config(const std::string& size = "2097152") {
    return kHead + local_block(tags_of(168), "local5", size) +
           local_block(tags_of(24), "daemon", size) + local_block(tags_of(80), "authpriv", size) +
           local_block(tags_of(72), "cron", size);
}

// The table, the settings and the configuration as a device has them at first, and init_syslog
// done.
class SyslogConfigTest : public tq_test::ProcessTableTest {
  protected:
    SyslogConfigTest() { unlink(kConfig); }
    ~SyslogConfigTest() override {
        syslog_server_status = 0;
        syslog_file_size = 2048;
        wcd_trace = {};
        unlink(kConfig);
        setlogmask(LOG_UPTO(LOG_DEBUG));
    }

    void SetUp() override {
        ProcessTableTest::SetUp();
        shared()->signals = 0;
        shared()->mask = 0;
        syslog_cfg = get_syslog_cfg();
    }

    // What write_syslog_config_file writes now.
    static std::string config() {
        write_syslog_config_file();
        return read_file(kConfig);
    }
};

// the table and the globals

TEST_F(SyslogConfigTest, StartsWithLevelThreeNoServerAndTheFacilities) {
    size_t local5 = 0;
    size_t daemon = 0;
    size_t authpriv = 0;
    size_t cron = 0;
    for (const syslog_process& row : table()) {
        EXPECT_EQ(row.level, 3U);
        EXPECT_THAT(row.server, Each(0));
        local5 += row.facility == 168;
        daemon += row.facility == 24;
        authpriv += row.facility == 80;
        cron += row.facility == 72;
    }
    EXPECT_EQ(local5, 51U);
    EXPECT_EQ(daemon, 3U);
    EXPECT_EQ(authpriv, 1U);
    EXPECT_EQ(cron, 1U);
}

TEST_F(SyslogConfigTest, GivesOneTable) {
    EXPECT_EQ(get_syslog_cfg(), get_syslog_cfg());
    EXPECT_EQ(get_process_count(), 56);
    get_syslog_cfg()[5].level = 6;
    EXPECT_EQ(get_process_syslog_level(5), 6);
}

TEST_F(SyslogConfigTest, ListsTheFacilitiesInTheOrderOfTheSystemHeader) {
    const std::vector<std::pair<std::string, int>> expected = {
        {"auth", 32},     {"authpriv", 80}, {"cron", 72},    {"daemon", 24},  {"ftp", 88},
        {"kern", 0},      {"lpr", 48},      {"mail", 16},    {"mark", 192},   {"news", 56},
        {"security", 32}, {"syslog", 40},   {"user", 8},     {"uucp", 64},    {"local0", 128},
        {"local1", 136},  {"local2", 144},  {"local3", 152}, {"local4", 160}, {"local5", 168},
        {"local6", 176},  {"local7", 184}};
    const syslog_facility* entry = facilitynames;
    for (const auto& [name, value] : expected) {
        ASSERT_NE(entry->name, nullptr);
        EXPECT_EQ(entry->name, name);
        EXPECT_EQ(entry->value, value);
        entry++;
    }
    EXPECT_EQ(entry->name, nullptr);
    EXPECT_EQ(entry->value, -1);
}

TEST_F(SyslogConfigTest, StartsWithRemoteLoggingOffAndTwoMegabytes) {
    EXPECT_EQ(kStatusAtStart, 0U);
    EXPECT_EQ(kFileSizeAtStart, 2048U);
    EXPECT_EQ(kTableAtStart, nullptr);
    EXPECT_EQ(get_syslog_status(), 0U);
    EXPECT_EQ(get_syslog_file_size(), 2048U);
    const auto* bytes = reinterpret_cast<const char*>(&wcd_trace);
    EXPECT_EQ(std::string(bytes, sizeof(wcd_trace)), std::string(sizeof(wcd_trace), '\0'));
}

// before init_syslog

TEST_F(SyslogConfigTest, LeavesEverythingAloneWithoutATable) {
    syslog_cfg = nullptr;
    write_file(kConfig, "old");
    uint8_t address[4] = {1, 2, 3, 4};
    EXPECT_EQ(set_process_syslog_level(54, 7), 1);
    EXPECT_EQ(get_process_syslog_level(1), -1);
    get_syslog_server_ip(1, address);
    EXPECT_THAT(address, ElementsAre(1, 2, 3, 4));
    syslog_server_status = 1;
    set_server_ip_scfg(54, address);
    set_log_file_size_scfg(100);
    set_syslog_status(0);
    EXPECT_EQ(load_wcd_trace_level(), 1);
    EXPECT_EQ(unload_wcd_trace_level(), 1);
    write_syslog_config_file();
    EXPECT_EQ(read_file(kConfig), "old");
    EXPECT_THAT(log_.take(), IsEmpty());
}

// init_syslog

TEST_F(SyslogConfigTest, InitWritesEveryLevelFileAndTheConfiguration) {
    syslog_cfg = nullptr;
    table()[7].level = 5;
    init_syslog();
    EXPECT_EQ(syslog_cfg, get_syslog_cfg());
    for (const syslog_process& row : table())
        EXPECT_EQ(read_file(level_file(row)),
                  std::string(row.name) + (row.id == 7 ? " 5\n" : " 3\n"));
    EXPECT_EQ(read_file(kConfig), default_config());
}

TEST_F(SyslogConfigTest, InitNotifiesEveryRunningProcess) {
    const NamedProcess klogd("klogd", [] { signal(kReloadSignal, count_signal); });
    const NamedProcess diagd("diagd", [] { signal(kReloadSignal, count_signal); });
    const NamedProcess other("other", [] { signal(kReloadSignal, count_signal); });
    init_syslog();
    EXPECT_TRUE(becomes([] { return shared()->signals == 2; }));
    init_syslog();
    EXPECT_TRUE(becomes([] { return shared()->signals == 4; }));
}

TEST_F(SyslogConfigTest, InitNotifiesBeforeItWritesTheConfiguration) {
    tq_test::faults::reset();
    init_syslog();
    EXPECT_TRUE(tq_test::faults::in_order({"opendir", "fopen", "system"}));
}

TEST_F(SyslogConfigTest, InitSaysWhenThereIsNoTable) {
    write_file(kConfig, "old");
    table_is_missing = true;
    testing::internal::CaptureStdout();
    init_syslog();
    fflush(stdout);
    table_is_missing = false;
    EXPECT_EQ(testing::internal::GetCapturedStdout(), "syslog_cfg is NULL\n");
    EXPECT_EQ(syslog_cfg, nullptr);
    EXPECT_EQ(read_file(kConfig), "old");
}

// the configuration file: local blocks

TEST_F(SyslogConfigTest, WritesABlockForEachFacilityInTheOrderOfTheTable) {
    EXPECT_EQ(config(), default_config());
    const std::string text = read_file(kConfig);
    EXPECT_EQ(text.substr(0, 37), "logLocalFac=local5\n\n!|unknown|kernel|");
    EXPECT_NE(text.find("\ndaemon.*\t\t%/var/log/system.log 2097152 666\n\n!|"), std::string::npos);
    EXPECT_TRUE(text.ends_with("!|cron|\ncron.*\t\t%/var/log/system.log 2097152 666\n\n"));
}

TEST_F(SyslogConfigTest, ReplacesALongerFile) {
    write_file(kConfig, std::string(20000, 'x'));
    EXPECT_EQ(config(), default_config());
}

TEST_F(SyslogConfigTest, WritesTheFileSizeInBytes) {
    syslog_file_size = 10;
    EXPECT_EQ(config(), default_config("10240"));
    syslog_file_size = 10240;
    EXPECT_EQ(config(), default_config("10485760"));
    syslog_file_size = 2097152;
    EXPECT_EQ(config(), default_config("-2147483648"));
}

TEST_F(SyslogConfigTest, LeavesOutALeaderWithoutLocalLog) {
    table()[0].level = SYSLOG_NO_LOCAL_LOG;
    std::string expected = default_config();
    expected.erase(expected.find("unknown|"), strlen("unknown|"));
    EXPECT_EQ(config(), expected);
}

TEST_F(SyslogConfigTest, TakesALaterRowWithoutLocalLogAlong) {
    table()[1].level = SYSLOG_NO_LOCAL_LOG;
    table()[kLast].level = SYSLOG_NO_LOCAL_LOG;
    EXPECT_EQ(config(), default_config());
}

TEST_F(SyslogConfigTest, LeavesOutAFacilityWithoutAnyLocalLog) {
    for (syslog_process& row : table()) {
        if (row.facility != 168) row.level = SYSLOG_NO_LOCAL_LOG;
    }
    EXPECT_EQ(config(), kHead + local_block(tags_of(168), "local5"));
}

TEST_F(SyslogConfigTest, WritesNoBlockWithoutAnyLocalLog) {
    for (syslog_process& row : table())
        row.level = SYSLOG_NO_LOCAL_LOG;
    EXPECT_EQ(config(), kHead);
}

TEST_F(SyslogConfigTest, StartsABlockInTheMiddleOfAGroupWithoutItsLeaders) {
    for (size_t i = 0; i < 30; i++)
        table()[i].level = SYSLOG_NO_LOCAL_LOG;
    const uint32_t first = table()[30].id;
    const auto later = [=](const syslog_process& row) {
        return row.id >= first && row.facility == 168;
    };
    EXPECT_EQ(config(), kHead + local_block(tags(later), "local5"));
}

TEST_F(SyslogConfigTest, KeepsAnyOtherLevelInTheLocalLog) {
    for (syslog_process& row : table())
        row.level = row.id % 2 == 0 ? 0 : 0xfffffffe;
    EXPECT_EQ(config(), default_config());
}

TEST_F(SyslogConfigTest, NamesEachFacilityAfterItsFirstEntry) {
    for (const syslog_facility* entry = facilitynames; entry->name; entry++) {
        for (syslog_process& row : table())
            row.facility = static_cast<uint32_t>(entry->value);
        const std::string name = entry->value == 32 ? "auth" : entry->name;
        EXPECT_EQ(config(), kHead + local_block(all_tags(), name));
    }
}

TEST_F(SyslogConfigTest, NamesAFacilityWithoutANameNull) {
    for (const uint32_t facility : {7U, 200U, UINT32_MAX}) {
        for (syslog_process& row : table())
            row.facility = facility;
        EXPECT_EQ(config(), kHead + local_block(all_tags(), "(null)"));
    }
}

TEST_F(SyslogConfigTest, WritesABlockForEachOfMixedFacilities) {
    for (syslog_process& row : table())
        row.facility = row.id % 3 == 0 ? 8 : (row.id % 3 == 1 ? 16 : 0);
    EXPECT_EQ(config(), kHead + local_block(tags_of(8), "user") + local_block(tags_of(16), "mail") +
                            local_block(tags_of(0), "kern"));
}

TEST_F(SyslogConfigTest, CutsALineThatWouldNotFit) {
    const std::string tag(100, 't');
    for (syslog_process& row : table()) {
        row.tag = tag.c_str();
        row.facility = 168;
    }
    std::string line = "!|";
    for (size_t i = 0; i < table().size(); i++)
        line += tag + "|";
    EXPECT_EQ(config(), kHead + line.substr(0, 1023));
}

TEST_F(SyslogConfigTest, TakesAMissingTagForText) {
    table()[3].tag = nullptr;
    table()[3].name = nullptr;
    EXPECT_NE(config().find("|proc|(null)|net|"), std::string::npos);
    EXPECT_EQ(set_process_syslog_level(3, 4), 0);
    EXPECT_EQ(read_file("/tmp/.loglvl.(null)"), "(null) 4\n");
}

// the configuration file: trace

class TraceTest : public SyslogConfigTest {
  protected:
    void SetUp() override {
        SyslogConfigTest::SetUp();
        wcd_trace.id = 18446744073709551615ULL;
        wcd_trace.host_name = "192.0.2.7";
        wcd_trace.port = 65535;
        wcd_trace.level = 6;
        wcd_trace.enable = 1;
    }

    static std::string trace_block() {
        return "!|" + all_tags() + "\nlocal5.*\t\t&192.0.2.7 65535 18446744073709551615\n\n";
    }

    std::vector<LogLine> traced() {
        std::vector<LogLine> lines;
        for (const LogLine& line : log_.take()) {
            if (line.function == "write_syslog_config_file") lines.push_back(line);
        }
        return lines;
    }
};

TEST_F(TraceTest, WritesTheTraceBlockBehindTheLocalOnes) {
    EXPECT_EQ(config(), default_config() + trace_block());
    EXPECT_THAT(traced(), ElementsAre(Line(LOG_ERR, "write_syslog_config_file",
                                           "buf(" + std::to_string(trace_block().size()) +
                                               "): " + trace_block() + "\n")));
}

TEST_F(TraceTest, WritesItForAnyEnableByteButZero) {
    for (const int enable : {1, 2, -1, 127, -128}) {
        wcd_trace.enable = static_cast<int8_t>(enable);
        EXPECT_EQ(config(), default_config() + trace_block());
    }
    wcd_trace.enable = 0;
    EXPECT_EQ(config(), default_config());
}

TEST_F(TraceTest, DropsItWithoutAHostThatResolves) {
    for (const char* host :
         {static_cast<const char*>(nullptr), "", "no such host", "2001:db8::1"}) {
        wcd_trace.host_name = host;
        EXPECT_EQ(config(), default_config());
        EXPECT_THAT(traced(), IsEmpty());
    }
}

TEST_F(TraceTest, ResolvesAName) {
    write_file("/etc/hosts", "192.0.2.7 trace.example\n127.0.0.1 localhost\n");
    wcd_trace.host_name = "trace.example";
    EXPECT_EQ(config(), default_config() + trace_block());
}

TEST_F(TraceTest, LeavesItEmptyWhereTheLastRowLeadsABlock) {
    table()[kLast].facility = 0;
    const std::string last = local_block("diag|", "kern");
    const std::string block =
        "!|" + all_tags() + "\nlocal5.*\t\t&192.0.2.7 65535 18446744073709551615\n\n";
    EXPECT_EQ(config(), default_config() + last);
    EXPECT_THAT(traced(),
                ElementsAre(Line(LOG_ERR, "write_syslog_config_file",
                                 "buf(" + std::to_string(last.size() + block.size()) + "): \n")));
}

TEST_F(TraceTest, WritesItWhereTheLastRowIsKeptOutOfTheLocalLog) {
    table()[kLast].facility = 0;
    table()[kLast].level = SYSLOG_NO_LOCAL_LOG;
    EXPECT_EQ(config(), default_config() + trace_block());
    for (syslog_process& row : table())
        row.level = SYSLOG_NO_LOCAL_LOG;
    EXPECT_EQ(config(), kHead + trace_block());
}

TEST_F(TraceTest, ComesBeforeTheRemoteBlocks) {
    syslog_server_status = 1;
    table()[1].server[3] = 9;
    EXPECT_EQ(config(), default_config() + trace_block() + remote_block("kernel|", "0.0.0.9"));
}

TEST_F(TraceTest, StartsWithItsLevelAHostAndAPort) {
    EXPECT_EQ(set_wcd_trace_conf(), 0);
    EXPECT_THAT(log_.take(),
                ElementsAre(Line(LOG_INFO, "set_wcd_trace_conf",
                                 "write config to file, local trace is Enable\n\n"),
                            testing::Field(&LogLine::function, "write_syslog_config_file"),
                            testing::Field(&LogLine::function, "my_system")));
    EXPECT_EQ(read_file(kConfig), default_config() + trace_block());
    EXPECT_EQ(read_file("/tmp/.loglvl.kernel"), "klogd 6\n");
    EXPECT_EQ(get_process_syslog_level(1), 3);
}

TEST_F(TraceTest, CallsAnyOtherEnableByteDisable) {
    for (const int enable : {2, -1}) {
        wcd_trace.enable = static_cast<int8_t>(enable);
        EXPECT_EQ(set_wcd_trace_conf(), 0);
        EXPECT_THAT(log_.take(),
                    Contains(Line(LOG_INFO, "set_wcd_trace_conf",
                                  "write config to file, local trace is Disable\n\n")));
        EXPECT_EQ(read_file(kConfig), default_config() + trace_block());
        EXPECT_EQ(read_file("/tmp/.loglvl.kernel"), "klogd 6\n");
    }
}

TEST_F(TraceTest, StartsAtLevelZero) {
    wcd_trace.level = 0;
    EXPECT_EQ(set_wcd_trace_conf(), 0);
    EXPECT_EQ(read_file("/tmp/.loglvl.kernel"), "klogd 0\n");
}

TEST_F(TraceTest, EndsWithTheProcessesOwnLevels) {
    table()[1].level = 5;
    set_wcd_trace_conf();
    log_.take();
    wcd_trace.enable = 0;
    wcd_trace.host_name = nullptr;
    EXPECT_EQ(set_wcd_trace_conf(), 0);
    EXPECT_THAT(log_.take(), Contains(Line(LOG_INFO, "set_wcd_trace_conf",
                                           "write config to file, local trace is Disable\n\n")));
    EXPECT_EQ(read_file(kConfig), default_config());
    EXPECT_EQ(read_file("/tmp/.loglvl.kernel"), "klogd 5\n");
    EXPECT_EQ(read_file("/tmp/.loglvl.roam"), "roamd 3\n");
}

TEST_F(TraceTest, RefusesToStartWithoutALevelAHostOrAPort) {
    const std::vector<std::function<void()>> lacks = {
        [] { wcd_trace.level = -1; }, [] { wcd_trace.level = INT_MIN; },
        [] { wcd_trace.host_name = nullptr; }, [] { wcd_trace.port = 0; }};
    for (const auto& lack : lacks) {
        const wcd_trace_settings whole = wcd_trace;
        lack();
        EXPECT_EQ(set_wcd_trace_conf(), -1);
        EXPECT_THAT(log_.take(),
                    ElementsAre(Line(LOG_ERR, "set_wcd_trace_conf",
                                     "Can't start wcd trace, because level is invalid or ism "
                                     "server config is null\n")));
        wcd_trace = whole;
    }
    EXPECT_FALSE(exists(kConfig));
    EXPECT_FALSE(exists("/tmp/.loglvl.kernel"));
}

TEST_F(TraceTest, LoadsItsLevelWhereTheOwnOneDiffers) {
    table()[1].level = 6;
    EXPECT_EQ(load_wcd_trace_level(), 0);
    EXPECT_FALSE(exists("/tmp/.loglvl.kernel"));
    for (const syslog_process& row : table()) {
        if (row.id == 1) continue;
        EXPECT_EQ(read_file(level_file(row)), std::string(row.name) + " 6\n");
        EXPECT_EQ(row.level, 3U);
    }
}

TEST_F(TraceTest, UnloadsWhereTheOwnLevelDiffers) {
    table()[1].level = 6;
    table()[2].level = 0;
    EXPECT_EQ(unload_wcd_trace_level(), 0);
    EXPECT_FALSE(exists("/tmp/.loglvl.kernel"));
    EXPECT_EQ(read_file(level_file(table()[2])), "procd 0\n");
    EXPECT_EQ(read_file(level_file(table()[kLast])), "diagd 3\n");
}

TEST_F(TraceTest, HasNobodyToTellWhereNoLevelDiffers) {
    wcd_trace.level = 3;
    EXPECT_EQ(load_wcd_trace_level(), 1);
    EXPECT_EQ(unload_wcd_trace_level(), 1);
    EXPECT_FALSE(exists("/tmp/.loglvl.kernel"));
}

TEST_F(TraceTest, TellsTheRunningProcesses) {
    const NamedProcess roamd("roamd", [] { signal(kReloadSignal, count_signal); });
    load_wcd_trace_level();
    EXPECT_TRUE(becomes([] { return shared()->signals == 1; }));
    unload_wcd_trace_level();
    EXPECT_TRUE(becomes([] { return shared()->signals == 2; }));
}

// the configuration file: remote blocks

TEST_F(SyslogConfigTest, WritesRemoteBlocksWhileRemoteLoggingIsOn) {
    table()[1].server[0] = 192;
    EXPECT_EQ(config(), default_config());
    for (const uint32_t on : {1U, 2U, UINT32_MAX}) {
        syslog_server_status = on;
        EXPECT_EQ(config(), default_config() + remote_block("kernel|", "192.0.0.0"));
    }
}

TEST_F(SyslogConfigTest, WritesNoRemoteBlockWithoutAServer) {
    syslog_server_status = 1;
    EXPECT_EQ(config(), default_config());
}

TEST_F(SyslogConfigTest, GroupsRemoteBlocksByAddressAndFacilityAndCallsAllLocal5) {
    syslog_server_status = 1;
    const uint8_t one[4] = {192, 0, 2, 255};
    const uint8_t other[4] = {192, 0, 2, 254};
    for (syslog_process& row : table())
        memcpy(row.server, row.id % 2 == 0 ? one : other, 4);
    const auto group = [](uint32_t facility, uint32_t parity) {
        return tags(
            [=](const auto& row) { return row.facility == facility && row.id % 2 == parity; });
    };
    // 6 and 8 are daemons, 7 is one; 9 authenticates, 10 is cron.
    EXPECT_EQ(config(), default_config() + remote_block(group(168, 0), "192.0.2.255") +
                            remote_block(group(168, 1), "192.0.2.254") +
                            remote_block(group(24, 0), "192.0.2.255") +
                            remote_block(group(24, 1), "192.0.2.254") +
                            remote_block(group(80, 1), "192.0.2.254") +
                            remote_block(group(72, 0), "192.0.2.255"));
}

TEST_F(SyslogConfigTest, TellsServersApartByEachByte) {
    syslog_server_status = 1;
    for (size_t i = 0; i < 4; i++) {
        table()[11 + i].server[i] = 1;
    }
    EXPECT_EQ(config(), default_config() + remote_block("hostapd|", "1.0.0.0") +
                            remote_block("wpas|", "0.1.0.0") + remote_block("wlan|", "0.0.1.0") +
                            remote_block("radio|", "0.0.0.1"));
}

TEST_F(SyslogConfigTest, SendsARowWithoutLocalLogToItsServer) {
    syslog_server_status = 1;
    table()[1].level = SYSLOG_NO_LOCAL_LOG;
    table()[1].server[0] = 10;
    EXPECT_EQ(config(), default_config() + remote_block("kernel|", "10.0.0.0"));
}

TEST_F(SyslogConfigTest, WritesABlockForEachOfManyServers) {
    syslog_server_status = 1;
    std::string expected = default_config();
    for (syslog_process& row : table()) {
        row.server[3] = static_cast<uint8_t>(row.id + 100);
        expected +=
            remote_block(std::string(row.tag) + "|", "0.0.0." + std::to_string(row.id + 100));
    }
    EXPECT_EQ(config(), expected);
}

// the log daemon

TEST_F(SyslogConfigTest, TellsTheLogDaemonAfterTheFileIsWritten) {
    const NamedProcess syslogd("syslogd", [] { signal(SIGHUP, count_signal); });
    write_syslog_config_file();
    EXPECT_TRUE(becomes([] { return shared()->signals == 1; }));
    EXPECT_TRUE(syslogd.alive());
    EXPECT_THAT(log_.take(),
                ElementsAre(Line(LOG_INFO, "my_system", "exec: killall -1 syslogd\n")));
}

TEST_F(SyslogConfigTest, ShowsTheLogDaemonTheWholeFile) {
    write_file(kConfig, "old");
    const NamedProcess syslogd("syslogd", [] {
        signal(SIGHUP, [](int) {
            struct stat status {};
            stat(kConfig, &status);
            shared()->mask = static_cast<int>(status.st_size);
        });
    });
    write_syslog_config_file();
    EXPECT_TRUE(becomes([] { return shared()->mask != 0; }));
    EXPECT_EQ(shared()->mask, static_cast<int>(default_config().size()));
}

TEST_F(SyslogConfigTest, LeavesTheLogDaemonAloneWhereTheFileCannotBeOpened) {
    const NamedProcess syslogd("syslogd", [] { signal(SIGHUP, count_signal); });
    mkdir(kConfig, 0755);
    write_syslog_config_file();
    EXPECT_THAT(log_.take(), IsEmpty());
    rmdir(kConfig);
    write_file(kConfig, "old");
    chmod(kConfig, 0644);
    as_nobody([] {
        write_syslog_config_file();
        return 0;
    });
    EXPECT_EQ(read_file(kConfig), "old");
    EXPECT_THAT(log_.take(), IsEmpty());
    usleep(10000);
    EXPECT_EQ(shared()->signals, 0);
}

// levels

TEST_F(SyslogConfigTest, SetsTheLevelOfOneProcess) {
    EXPECT_EQ(set_process_syslog_level(kRoamd, 7), 0);
    EXPECT_THAT(log_.take(),
                ElementsAre(Line(LOG_DEBUG, "set_process_syslog_level",
                                 "process id(18) current level(3) config level(7)\n")));
    EXPECT_EQ(read_file("/tmp/.loglvl.roam"), "roamd 7\n");
    EXPECT_EQ(run_command("ls -A /tmp").out, ".loglvl.roam\n");
    EXPECT_EQ(get_process_syslog_level(kRoamd), 7);
    EXPECT_EQ(get_process_syslog_level(kRoamd + 1), 3);
    EXPECT_FALSE(exists(kConfig));
}

TEST_F(SyslogConfigTest, ChangesNothingWhereTheLevelIsTheSame) {
    EXPECT_EQ(set_process_syslog_level(kRoamd, 3), 1);
    EXPECT_THAT(log_.take(),
                ElementsAre(Line(LOG_DEBUG, "set_process_syslog_level",
                                 "process id(18) current level(3) config level(3)\n")));
    EXPECT_FALSE(exists("/tmp/.loglvl.roam"));
}

TEST_F(SyslogConfigTest, SetsTheLevelOfAllProcesses) {
    table()[4].level = 6;
    EXPECT_EQ(set_process_syslog_level(54, 6), 0);
    for (const syslog_process& row : table()) {
        EXPECT_EQ(row.level, 6U);
        EXPECT_EQ(exists(level_file(row)), row.id != 4);
        if (row.id != 4) {
            EXPECT_EQ(read_file(level_file(row)), std::string(row.name) + " 6\n");
        }
    }
    const std::vector<LogLine> lines = log_.take();
    EXPECT_EQ(lines.size(), 56U);
    EXPECT_THAT(lines, Each(testing::Field(&LogLine::priority, LOG_DEBUG)));
    EXPECT_EQ(set_process_syslog_level(54, 6), 1);
}

TEST_F(SyslogConfigTest, KnowsNoOtherIdsForLevels) {
    for (const int id : {42, 58, -1, INT_MIN, INT_MAX})
        EXPECT_EQ(set_process_syslog_level(id, 7), 1) << id;
    for (const uint32_t id : {42U, 54U, 58U, UINT32_MAX})
        EXPECT_EQ(get_process_syslog_level(id), -1) << id;
    EXPECT_THAT(log_.take(), IsEmpty());
    for (const syslog_process& row : table())
        EXPECT_EQ(row.level, 3U);
}

TEST_F(SyslogConfigTest, TakesAnyLevel) {
    for (const int level : {-1, 8, INT_MIN, INT_MAX}) {
        EXPECT_EQ(set_process_syslog_level(1, level), 0);
        EXPECT_EQ(read_file("/tmp/.loglvl.kernel"), "klogd " + std::to_string(level) + "\n");
        EXPECT_EQ(get_process_syslog_level(1), level);
    }
    table()[1].level = SYSLOG_NO_LOCAL_LOG;
    EXPECT_EQ(set_process_syslog_level(1, -1), 1);
}

TEST_F(SyslogConfigTest, ReplacesALongerLevelFile) {
    write_file("/tmp/.loglvl.kernel", "a very much longer line 7\nand another\n");
    set_process_syslog_level(1, 4);
    EXPECT_EQ(read_file("/tmp/.loglvl.kernel"), "klogd 4\n");
}

TEST_F(SyslogConfigTest, KeepsTheLevelOfAProcessWhoseFileCannotBeCreated) {
    const NamedProcess klogd("klogd", [] { signal(kReloadSignal, count_signal); });
    const NamedProcess roamd("roamd", [] { signal(kReloadSignal, count_signal); });
    mkdir("/tmp/.loglvl.kernel", 0755);
    EXPECT_EQ(set_process_syslog_level(1, 7), 1);
    EXPECT_EQ(set_process_syslog_level(54, 7), 0);
    EXPECT_TRUE(becomes([] { return shared()->signals == 1; }));
    EXPECT_EQ(get_process_syslog_level(1), 3);
    EXPECT_EQ(get_process_syslog_level(kRoamd), 7);
    usleep(10000);
    EXPECT_EQ(shared()->signals, 1);
    for (const LogLine& line : log_.take())
        EXPECT_EQ(line.priority, LOG_DEBUG) << line.text;
}

TEST_F(SyslogConfigTest, KeepsTheLevelWhereTheDiskIsFull) {
    write_file("/tmp/.loglvl.kernel", "");
    const FullDisk disk("/tmp");
    EXPECT_EQ(set_process_syslog_level(1, 7), 1);
    EXPECT_EQ(get_process_syslog_level(1), 3);
}

TEST_F(SyslogConfigTest, InitSkipsALevelFileThatCannotBeCreated) {
    const NamedProcess klogd("klogd", [] { signal(kReloadSignal, count_signal); });
    mkdir("/tmp/.loglvl.kernel", 0755);
    init_syslog();
    EXPECT_EQ(read_file("/tmp/.loglvl.diag"), "diagd 3\n");
    EXPECT_EQ(read_file(kConfig), default_config());
    usleep(10000);
    EXPECT_EQ(shared()->signals, 0);
}

TEST_F(SyslogConfigTest, CutsThePathOfALevelFile) {
    const std::string tag(200, 't');
    table()[1].tag = tag.c_str();
    EXPECT_EQ(set_process_syslog_level(1, 7), 0);
    EXPECT_EQ(read_file("/tmp/.loglvl." + tag.substr(0, 127 - strlen("/tmp/.loglvl."))),
              "klogd 7\n");
}

TEST_F(SyslogConfigTest, CutsTheLineOfALevelFile) {
    for (const size_t length : {252U, 253U, 300U}) {
        const std::string name(length, 'n');
        table()[1].name = name.c_str();
        EXPECT_EQ(set_process_syslog_level(1, static_cast<int>(length % 7)), 0);
        EXPECT_EQ(read_file("/tmp/.loglvl.kernel"),
                  (name + " " + std::to_string(length % 7) + "\n").substr(0, 255));
    }
}

TEST_F(SyslogConfigTest, NotifiesEveryProcessOfTheWholeTable) {
    // The last name of the list arrives whole.
    const NamedProcess last("diagd", [] { signal(kReloadSignal, count_signal); });
    set_process_syslog_level(54, 7);
    EXPECT_TRUE(becomes([] { return shared()->signals == 1; }));
}

TEST_F(SyslogConfigTest, CutsTheListOfNames) {
    const std::string name(15, 'n');
    for (syslog_process& row : table())
        row.name = name.c_str();
    table()[kLast].name = "diagd";
    const NamedProcess last("diagd", [] { signal(kReloadSignal, count_signal); });
    EXPECT_EQ(set_process_syslog_level(54, 7), 0);
    usleep(10000);
    EXPECT_EQ(shared()->signals, 0);
}

// servers, status and size

TEST_F(SyslogConfigTest, StoresTheServerOfOneProcess) {
    const uint8_t address[4] = {192, 0, 2, 1};
    uint8_t out[5] = {9, 9, 9, 9, 9};
    set_server_ip_scfg(kRoamd, address);
    get_syslog_server_ip(kRoamd, out);
    EXPECT_THAT(out, ElementsAre(192, 0, 2, 1, 9));
    get_syslog_server_ip(kRoamd + 1, out);
    EXPECT_THAT(out, ElementsAre(0, 0, 0, 0, 9));
    EXPECT_FALSE(exists(kConfig));
    EXPECT_THAT(log_.take(), IsEmpty());
}

TEST_F(SyslogConfigTest, StoresTheServerOfAllProcesses) {
    const uint8_t address[4] = {192, 0, 2, 1};
    set_server_ip_scfg(54, address);
    for (const syslog_process& row : table())
        EXPECT_THAT(row.server, ElementsAre(192, 0, 2, 1));
}

TEST_F(SyslogConfigTest, CopiesNoServerOfAnUnknownProcess) {
    uint8_t out[4] = {9, 9, 9, 9};
    for (const uint32_t id : {42U, 54U, 58U}) {
        get_syslog_server_ip(id, out);
        EXPECT_THAT(out, Each(9));
    }
    const uint8_t address[4] = {192, 0, 2, 1};
    syslog_server_status = 1;
    set_server_ip_scfg(42, address);
    for (const syslog_process& row : table())
        EXPECT_THAT(row.server, Each(0));
    EXPECT_FALSE(exists(kConfig));
}

TEST_F(SyslogConfigTest, RefusesANullAddress) {
    set_server_ip_scfg(1, nullptr);
    get_syslog_server_ip(1, nullptr);
    EXPECT_THAT(log_.take(),
                ElementsAre(Line(LOG_ERR, "set_server_ip_scfg", "invalid parameters\n"),
                            Line(LOG_ERR, "get_syslog_server_ip", "invalid parameters\n")));
}

TEST_F(SyslogConfigTest, RewritesTheConfigurationWhenAServerChangesWhileRemoteLoggingIsOn) {
    const uint8_t address[4] = {192, 0, 2, 1};
    syslog_server_status = 1;
    set_server_ip_scfg(1, address);
    EXPECT_EQ(read_file(kConfig), default_config() + remote_block("kernel|", "192.0.2.1"));
    unlink(kConfig);
    set_server_ip_scfg(1, address);
    EXPECT_FALSE(exists(kConfig));
    // One of all that differs is enough.
    set_server_ip_scfg(54, address);
    EXPECT_TRUE(exists(kConfig));
    unlink(kConfig);
    set_server_ip_scfg(54, address);
    EXPECT_FALSE(exists(kConfig));
    table()[1].server[0] = 10;
    set_server_ip_scfg(54, address);
    EXPECT_TRUE(exists(kConfig));
    unlink(kConfig);
    syslog_server_status = 2;
    table()[1].server[0] = 10;
    set_server_ip_scfg(54, address);
    EXPECT_TRUE(exists(kConfig));
}

TEST_F(SyslogConfigTest, SwitchesRemoteLogging) {
    table()[1].server[0] = 10;
    set_syslog_status(1);
    EXPECT_EQ(get_syslog_status(), 1U);
    EXPECT_EQ(read_file(kReport), "on logging");
    EXPECT_EQ(read_file(kConfig), default_config() + remote_block("kernel|", "10.0.0.0"));
    set_syslog_status(0);
    EXPECT_EQ(get_syslog_status(), 0U);
    EXPECT_EQ(read_file(kReport), "close logging");
    EXPECT_EQ(read_file(kConfig), default_config());
}

TEST_F(SyslogConfigTest, WritesNothingWhereTheStatusIsTheSame) {
    set_syslog_status(0);
    EXPECT_FALSE(exists(kReport));
    EXPECT_FALSE(exists(kConfig));
    set_syslog_status(2);
    unlink(kReport);
    unlink(kConfig);
    set_syslog_status(2);
    EXPECT_FALSE(exists(kReport));
    EXPECT_FALSE(exists(kConfig));
    // On is on, but another value is a change.
    set_syslog_status(1);
    EXPECT_TRUE(exists(kReport));
    EXPECT_EQ(get_syslog_status(), 1U);
}

TEST_F(SyslogConfigTest, WritesTheReport) {
    for (const uint32_t on : {1U, 7U, UINT32_MAX}) {
        write_syslog_pmr_ap_report_file(on);
        EXPECT_EQ(read_file(kReport), "on logging");
        write_syslog_pmr_ap_report_file(0);
        EXPECT_EQ(read_file(kReport), "close logging");
    }
    unlink(kReport);
    mkdir(kReport, 0755);
    write_syslog_pmr_ap_report_file(1);
    EXPECT_THAT(log_.take(), IsEmpty());
}

TEST_F(SyslogConfigTest, LimitsTheLogFile) {
    struct Limit {
        uint32_t given;
        uint32_t taken;
    };
    for (const Limit& limit :
         {Limit{10, 10}, Limit{9, 10240}, Limit{11, 11}, Limit{20000, 10240}, Limit{10239, 10239},
          Limit{10240, 10240}, Limit{10, 10}, Limit{10241, 10240}, Limit{10, 10}, Limit{0, 10240},
          Limit{10, 10}, Limit{UINT32_MAX, 10240}}) {
        set_log_file_size_scfg(limit.given);
        EXPECT_EQ(get_syslog_file_size(), limit.taken) << limit.given;
        EXPECT_EQ(read_file(kConfig), default_config(std::to_string(limit.taken * 1024)));
    }
}

TEST_F(SyslogConfigTest, WritesNothingWhereTheLimitIsTheSame) {
    set_log_file_size_scfg(2048);
    EXPECT_FALSE(exists(kConfig));
    syslog_file_size = 10240;
    set_log_file_size_scfg(5);
    EXPECT_FALSE(exists(kConfig));
}

// in a daemon

// A process of that name that opened its log with the ident, and shows its log mask.
class Daemon : public NamedProcess {
  public:
    Daemon(const std::string& name, const std::string& ident)
        : NamedProcess(
              name, [=] { tq_openlog(ident.c_str()); }, [] { shared()->mask = setlogmask(0); }) {}

    static bool masked(int mask) {
        return becomes([=] { return shared()->mask == mask; });
    }
};

class OpenLogTest : public SyslogConfigTest {
  protected:
    // The result of `body` in a process that never called tq_openlog before.
    static int in_child(const std::function<int()>& body) {
        const pid_t child = fork();
        if (child == 0) _exit(body());
        int status = 0;
        waitpid(child, &status, 0);
        return WIFEXITED(status) ? WEXITSTATUS(status) : -1;
    }
};

TEST_F(OpenLogTest, DoesNothingWithoutAnIdent) {
    EXPECT_EQ(in_child([] {
                  tq_openlog(nullptr);
                  struct sigaction action {};
                  sigaction(kReloadSignal, nullptr, &action);
                  return action.sa_handler == SIG_DFL ? 0 : 1;
              }),
              0);
}

// What one syslog(LOG_WARNING, "hello") behind tq_openlog(ident) sends, from its ident on.
std::string sent_with(const std::string& ident) {
    rename("/dev/log", "/dev/log.kept");
    const int receiver = socket(AF_UNIX, SOCK_DGRAM | SOCK_CLOEXEC, 0);
    const sockaddr_un address = {AF_UNIX, "/dev/log"};
    EXPECT_EQ(bind(receiver, reinterpret_cast<const sockaddr*>(&address), sizeof(address)), 0);
    const pid_t child = fork();
    if (child == 0) {
        std::string own = ident;
        tq_openlog(own.c_str());
        own.assign(own.size(), 'x');
        syslog(LOG_WARNING, "hello");
        _exit(0);
    }
    waitpid(child, nullptr, 0);
    char datagram[512] = "";
    EXPECT_GT(recv(receiver, datagram, sizeof(datagram) - 1, MSG_DONTWAIT), 0);
    close(receiver);
    rename("/dev/log.kept", "/dev/log");
    const std::string text = datagram;
    const std::string pid = "[" + std::to_string(child) + "]";
    EXPECT_EQ(text.substr(0, 5), "<172>");  // local5 (168) and LOG_WARNING
    const size_t at = text.find(pid);
    if (at == std::string::npos) return text + " without " + pid;
    return text.substr(strlen("<172>Nov 21 11:46:00 ")).replace(at - 21, pid.size(), "[PID]");
}

TEST_F(OpenLogTest, OpensTheLogWithTheProcessIdAndLocal5) {
    EXPECT_EQ(sent_with("radio"), "radio[PID]: hello");
}

TEST_F(OpenLogTest, KeepsItsOwnCopyOfTheIdentOf127Bytes) {
    EXPECT_EQ(sent_with(std::string(130, 'i')), std::string(127, 'i') + "[PID]: hello");
}

TEST_F(OpenLogTest, ConnectsAtOnceAndClosesTheLog) {
    EXPECT_EQ(in_child([] {
                  const auto descriptors = [] {
                      return std::distance(std::filesystem::directory_iterator("/proc/self/fd"),
                                           {});
                  };
                  closelog();
                  const auto before = descriptors();
                  tq_openlog("radio");
                  const auto open = descriptors();
                  tq_closelog();
                  return open == before + 1 && descriptors() == before ? 0 : 1;
              }),
              0);
}

TEST_F(OpenLogTest, TakesTheLevelFromTheFileOfALongIdent) {
    const std::string ident(127, 'i');
    write_file("/tmp/.loglvl." + ident, "x 5\n");
    EXPECT_EQ(in_child([&] {
                  tq_openlog((ident + "jj").c_str());
                  return setlogmask(0);
              }),
              0x3f);
    EXPECT_EQ(read_file("/tmp/.loglvl." + ident), ident + "_r 5\n");
}

TEST_F(OpenLogTest, InstallsTheHandlerOnce) {
    EXPECT_EQ(in_child([] {
                  struct sigaction action {};
                  tq_openlog("radio");
                  sigaction(kReloadSignal, nullptr, &action);
                  if (reinterpret_cast<void*>(action.sa_handler) !=
                      reinterpret_cast<void*>(&reset_syslog_prority))
                      return 1;
                  if ((action.sa_flags & SA_RESTART) == 0) return 2;
                  signal(kReloadSignal, SIG_IGN);
                  tq_openlog("radio");
                  sigaction(kReloadSignal, nullptr, &action);
                  return action.sa_handler == SIG_IGN ? 0 : 3;
              }),
              0);
}

TEST_F(OpenLogTest, AcknowledgesTheLevelThatItFinds) {
    write_file("/tmp/.loglvl.radio", "radiod 4\n");
    const Daemon radiod("radiod", "radio");
    EXPECT_TRUE(Daemon::masked(LOG_UPTO(4)));
    EXPECT_EQ(read_file("/tmp/.loglvl.radio"), "radio_r 4\n");
}

TEST_F(OpenLogTest, KeepsItsMaskWithoutALevelFile) {
    EXPECT_EQ(in_child([] {
                  setlogmask(0x15);
                  tq_openlog("radio");
                  return setlogmask(0) == 0x15 && reset_syslog_prority(kReloadSignal) == 0 ? 0 : 1;
              }),
              0);
    EXPECT_FALSE(exists("/tmp/.loglvl.radio"));
}

TEST_F(OpenLogTest, FollowsEachLevelThatIsPushed) {
    const Daemon radiod("radiod", "radio");
    for (const int level : {7, 0, 5, 3, 6}) {
        EXPECT_EQ(set_process_syslog_level(14, level), 0);
        EXPECT_TRUE(Daemon::masked(LOG_UPTO(level)));
        EXPECT_TRUE(becomes([=] {
            return read_file("/tmp/.loglvl.radio") == "radio_r " + std::to_string(level) + "\n";
        }));
    }
    EXPECT_THAT(log_.take(), Each(testing::Field(&LogLine::priority, LOG_DEBUG)));
}

TEST_F(OpenLogTest, FollowsTheTraceAndComesBack) {
    const Daemon hostapd("hostapd", "hostapd");
    wcd_trace.level = 7;
    wcd_trace.host_name = "192.0.2.7";
    wcd_trace.port = 514;
    wcd_trace.enable = 1;
    set_wcd_trace_conf();
    EXPECT_TRUE(Daemon::masked(LOG_UPTO(7)));
    wcd_trace.enable = 0;
    set_wcd_trace_conf();
    EXPECT_TRUE(Daemon::masked(LOG_UPTO(3)));
}

TEST_F(OpenLogTest, KeepsSystemCallsGoingThatTheHandlerInterrupts) {
    EXPECT_EQ(in_child([] {
                  tq_openlog("radio");
                  int ends[2];
                  if (pipe(ends) != 0) return 1;
                  const pid_t self = getpid();
                  if (fork() == 0) {
                      usleep(20000);
                      kill(self, kReloadSignal);
                      usleep(20000);
                      _exit(write(ends[1], "x", 1) == 1 ? 0 : 1);
                  }
                  char byte = 0;
                  return read(ends[0], &byte, 1) == 1 ? 0 : 2;
              }),
              0);
}

// the reload

class ReloadTest : public OpenLogTest {
  protected:
    ReloadTest() { tq_openlog("t"); }
    ~ReloadTest() override { tq_closelog(); }

    static constexpr const char* kFile = "/tmp/.loglvl.t";

    // The log mask after a reload of a file with that content; -1 where it stays.
    static int mask_for(const std::string& content) {
        constexpr int kBefore = 0x55;
        write_file(kFile, content);
        setlogmask(kBefore);
        EXPECT_EQ(reset_syslog_prority(kReloadSignal), 0);
        const int mask = setlogmask(LOG_UPTO(LOG_DEBUG));
        return mask == kBefore ? -1 : mask;
    }
};

TEST_F(ReloadTest, LeavesOtherSignalsAlone) {
    write_file(kFile, "t 1\n");
    for (const int number : {15, 0, -1, 48, 50, 1})
        EXPECT_EQ(reset_syslog_prority(number), 49);
    EXPECT_EQ(read_file(kFile), "t 1\n");
    EXPECT_EQ(setlogmask(0), LOG_UPTO(LOG_DEBUG));
}

TEST_F(ReloadTest, TakesEveryLevelsLowBits) {
    for (int level = 0; level < 8; level++) {
        EXPECT_EQ(mask_for("t " + std::to_string(level) + "\n"), (1 << (level + 1)) - 1);
        EXPECT_EQ(read_file(kFile), "t_r " + std::to_string(level) + "\n");
    }
    EXPECT_EQ(mask_for("t 8\n"), 1);
    EXPECT_EQ(read_file(kFile), "t_r 8\n");
    EXPECT_EQ(mask_for("t 14\n"), 0x7f);
    EXPECT_EQ(mask_for("t -1\n"), 0xff);
    EXPECT_EQ(read_file(kFile), "t_r -1\n");
    EXPECT_EQ(mask_for("t -2147483648\n"), 1);
    EXPECT_EQ(read_file(kFile), "t_r -2147483648\n");
    EXPECT_EQ(mask_for("t 4294967295\n"), 0xff);
    EXPECT_EQ(read_file(kFile), "t_r -1\n67295\n");
}

TEST_F(ReloadTest, ReadsTheNumberBehindTheFirstWord) {
    EXPECT_EQ(mask_for("name 2\n"), 7);
    EXPECT_EQ(mask_for("  name\t\n 2"), 7);
    EXPECT_EQ(mask_for("name +2\n"), 7);
    EXPECT_EQ(mask_for("name 2x\n"), 7);
    EXPECT_EQ(mask_for("name_r 2\n"), 7);
    EXPECT_EQ(mask_for("1 2\n"), 7);
}

TEST_F(ReloadTest, LeavesAFileWithoutALevelAlone) {
    for (const std::string content :
         {"", "\n", "name", "name\n", "name x\n", "name - 2\n", "7\n", "name +\n", "name x 2\n",
          "name 4294967296\n", "name -4294967296\n", "name 99999999999999999999\n"}) {
        EXPECT_EQ(mask_for(content), -1) << content;
        EXPECT_EQ(read_file(kFile), content);
    }
    const std::string long_name = std::string(300, 'n') + " 2\n";
    EXPECT_EQ(mask_for(long_name), -1);
}

TEST_F(ReloadTest, KeepsWhatStandsBehindTheAcknowledgement) {
    write_file(kFile, "a_long_process_name 2\n");
    EXPECT_EQ(reset_syslog_prority(kReloadSignal), 0);
    EXPECT_EQ(read_file(kFile), "t_r 2\n_process_name 2\n");
    EXPECT_EQ(reset_syslog_prority(kReloadSignal), 0);
    EXPECT_EQ(read_file(kFile), "t_r 2\n_process_name 2\n");
}

TEST_F(ReloadTest, DoesNothingWithAFileThatItMayNotWrite) {
    write_file(kFile, "t 2\n");
    chmod(kFile, 0644);
    EXPECT_EQ(as_nobody([] {
                  const int result = reset_syslog_prority(kReloadSignal);
                  return setlogmask(0) == LOG_UPTO(LOG_DEBUG) ? result : -2;
              }),
              0);
    EXPECT_EQ(read_file(kFile), "t 2\n");
}

TEST_F(ReloadTest, ReturnsWhatClosingTheFileReturns) {
    write_file(kFile, "t 2\n");
    const tq_test::faults::Fail fail("close");
    EXPECT_EQ(reset_syslog_prority(kReloadSignal), -1);
    EXPECT_EQ(read_file(kFile), "t_r 2\n");
}

TEST_F(ReloadTest, LeavesTheMaskWhereTheFileCannotBeRead) {
    write_file(kFile, "t 2\n");
    const tq_test::faults::Fail fail("read");
    EXPECT_EQ(reset_syslog_prority(kReloadSignal), 0);
    EXPECT_EQ(setlogmask(0), LOG_UPTO(LOG_DEBUG));
}

TEST_F(ReloadTest, KeepsErrno) {
    errno = ENOTTY;
    EXPECT_EQ(reset_syslog_prority(kReloadSignal), 0);
    EXPECT_EQ(errno, ENOTTY);
}

TEST_F(ReloadTest, AllocatesNothingAndUsesNoStream) {
    write_file(kFile, "t 2\n");
    tq_test::faults::reset();
    EXPECT_EQ(reset_syslog_prority(kReloadSignal), 0);
    for (const char* name : {"malloc", "calloc", "realloc", "fopen", "fclose", "system", "popen"})
        EXPECT_EQ(tq_test::faults::count(name), 0U) << name;
    EXPECT_EQ(tq_test::faults::count("open"), 1U);
    EXPECT_EQ(tq_test::faults::count("read"), 1U);
    EXPECT_EQ(tq_test::faults::count("lseek"), 1U);
    EXPECT_EQ(tq_test::faults::count("write"), 1U);
    EXPECT_EQ(tq_test::faults::count("close"), 1U);
}

}  // namespace
