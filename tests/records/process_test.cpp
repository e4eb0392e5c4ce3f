// process_test.cpp - the table of known processes, what runs as /proc shows it, and signal 49, sent
// to processes of the simulated device only.
#include "tq/process.h"

#include <gmock/gmock.h>
#include <signal.h>
#include <sys/mount.h>
#include <unistd.h>

#include <climits>
#include <cstring>
#include <map>
#include <set>
#include <string>
#include <vector>

#include "records/process_table_test.h"
#include "support/device.h"
#include "support/faults.h"
#include "support/log_capture.h"
#include "support/named_process.h"

// Whether a process catches a signal is the emulator's affair where there is one: it catches them
// all.
#ifdef __mips__
#define TQ_NEEDS_OWN_SIGNAL_MASK() GTEST_SKIP() << "the emulator catches every signal"
#else
#define TQ_NEEDS_OWN_SIGNAL_MASK() static_cast<void>(0)
#endif

namespace {

using testing::ElementsAre;
using testing::IsEmpty;
using tq_test::as_nobody;
using tq_test::becomes;
using tq_test::count_signal;
using tq_test::kReloadSignal;
using tq_test::kRoamd;
using tq_test::Line;
using tq_test::LineAt;
using tq_test::LogLine;
using tq_test::NamedProcess;
using tq_test::ScopedMount;
using tq_test::ScopedProc;
using tq_test::shared;
using tq_test::table;

using ProcessTest = tq_test::ProcessTableTest;

// the table

TEST_F(ProcessTest, KnowsFiftySixProcesses) {
    EXPECT_EQ(get_process_count(), 56);
}

TEST_F(ProcessTest, StartsWithTheUnknownAndTheKernelsLog) {
    EXPECT_EQ(table()[0].id, 0U);
    EXPECT_STREQ(table()[0].name, "unknown");
    EXPECT_STREQ(table()[0].tag, "unknown");
    EXPECT_EQ(table()[1].id, 1U);
    EXPECT_STREQ(table()[1].name, "klogd");
    EXPECT_STREQ(table()[1].tag, "kernel");
}

TEST_F(ProcessTest, UsesTheIdsUpTo57But42And54) {
    std::set<uint32_t> ids;
    for (uint32_t id = 0; id <= 57; id++) {
        if (id != 42 && id != 54) ids.insert(id);
    }
    std::set<uint32_t> used;
    for (const syslog_process& row : table())
        used.insert(row.id);
    EXPECT_EQ(used, ids);
}

TEST_F(ProcessTest, NamesEachProcessAsTheKernelCan) {
    std::set<std::string> names;
    std::set<std::string> tags;
    for (const syslog_process& row : table()) {
        names.insert(row.name);
        tags.insert(row.tag);
        EXPECT_LE(strlen(row.name), 15U);
        EXPECT_EQ(std::string(row.name).find_first_of(" |*/\t"), std::string::npos);
        EXPECT_EQ(std::string(row.tag).find_first_of(" |*/\t"), std::string::npos);
        EXPECT_NE(*row.tag, '\0');
    }
    EXPECT_EQ(names.size(), 56U);
    EXPECT_EQ(tags.size(), 56U);
}

TEST_F(ProcessTest, FindsTheIdOfEachName) {
    for (const syslog_process& row : table())
        EXPECT_EQ(get_process_id(row.name), static_cast<int>(row.id)) << row.name;
    EXPECT_EQ(get_process_id("klogd"), 1);
    EXPECT_THAT(log_.take(), IsEmpty());
}

TEST_F(ProcessTest, FindsTheNameOfEachId) {
    for (const syslog_process& row : table())
        EXPECT_STREQ(get_process_name(static_cast<int>(row.id)), row.name);
    EXPECT_THAT(log_.take(), IsEmpty());
}

TEST_F(ProcessTest, LogsANameThatIsNotKnown) {
    for (const char* name : {"klog", "klogdd", "KLOGD", "", "kernel"}) {
        EXPECT_EQ(get_process_id(name), -1);
        EXPECT_THAT(log_.take(),
                    ElementsAre(LineAt(LOG_ERR, "get_process_id", 103,
                                       "process " + std::string(name) + " not found\n\n")));
    }
}

TEST_F(ProcessTest, LogsANullName) {
    EXPECT_EQ(get_process_id(nullptr), -1);
    EXPECT_THAT(log_.take(),
                ElementsAre(LineAt(LOG_ERR, "get_process_id", 91, "process name is NULL\n\n")));
}

TEST_F(ProcessTest, LogsAnIdThatIsNotKnown) {
    for (const int id : {54, 42, 58, -1, INT_MIN, INT_MAX}) {
        EXPECT_EQ(get_process_name(id), nullptr);
        EXPECT_THAT(log_.take(),
                    ElementsAre(LineAt(LOG_ERR, "get_process_name", 120,
                                       "process id " + std::to_string(id) + " not found\n\n")));
    }
}

TEST_F(ProcessTest, GivesTheFirstRowThatMatches) {
    table()[20].name = table()[30].name;
    EXPECT_EQ(get_process_id(table()[30].name), static_cast<int>(table()[20].id));
    table()[30].id = table()[20].id;
    table()[20].name = "first";
    EXPECT_STREQ(get_process_name(static_cast<int>(table()[20].id)), "first");
}

TEST_F(ProcessTest, PassesOverARowWithoutAName) {
    table()[1].name = nullptr;
    EXPECT_EQ(get_process_id("klogd"), -1);
    EXPECT_EQ(get_process_name(1), nullptr);
}

// what runs

TEST_F(ProcessTest, SaysThatKlogdRunsWhileItDoes) {
    EXPECT_EQ(apps_is_running(1), 0);
    NamedProcess klogd("klogd");
    EXPECT_EQ(apps_is_running(1), 1);
    klogd.end();
    EXPECT_EQ(apps_is_running(1), 0);
    EXPECT_THAT(log_.take(), IsEmpty());
}

TEST_F(ProcessTest, FindsEachKnownProcessByItsName) {
    for (const syslog_process& row : table()) {
        if (row.id == 0) continue;
        EXPECT_EQ(apps_is_running(row.id), 0) << row.name;
        const NamedProcess process(row.name);
        EXPECT_EQ(apps_is_running(row.id), 1) << row.name;
    }
}

TEST_F(ProcessTest, HasNoAnswerForWhatIsNotOneKnownProcess) {
    const NamedProcess unknown("unknown");
    for (const uint32_t id : {0U, 54U, 42U, 58U, UINT32_MAX})
        EXPECT_EQ(apps_is_running(id), -1) << id;
    table()[kRoamd].name = nullptr;
    EXPECT_EQ(apps_is_running(kRoamd), -1);
    // Whatever a caller makes of the table.
    table()[kRoamd] = {54, "unknown", "roam", 3, {}, 168};
    EXPECT_EQ(apps_is_running(54), -1);
    EXPECT_THAT(log_.take(), IsEmpty());
}

TEST_F(ProcessTest, AsksForKlogdWhateverTheTableCallsIt) {
    const NamedProcess klogd("klogd");
    table()[1].name = nullptr;
    EXPECT_EQ(apps_is_running(1), 1);
}

TEST_F(ProcessTest, WantsTheWholeNameUpToItsFirstBlank) {
    for (const char* other : {"roam", "roamdd", "xroamd", "[roamd]", "(roamd)", "roamd:", "roamd)",
                              "x roamd", "ROAMD", "roamd\nx", "roamd\\", ""}) {
        const NamedProcess process(other);
        EXPECT_EQ(apps_is_running(kRoamd), 0) << other;
    }
    for (const char* same : {"roamd", "roamd worker", " roamd", "roamd (x) y", "roamd\tx"}) {
        const NamedProcess process(same);
        EXPECT_EQ(apps_is_running(kRoamd), 1) << same;
    }
}

TEST_F(ProcessTest, FindsANameOfFifteenBytes) {
    table()[kRoamd].name = "fifteen.letters";
    EXPECT_EQ(apps_is_running(kRoamd), 0);
    const NamedProcess process("fifteen.letters, and more");
    EXPECT_EQ(apps_is_running(kRoamd), 1);
}

TEST_F(ProcessTest, CountsAZombie) {
    const NamedProcess process("roamd");
    process.make_zombie();
    EXPECT_FALSE(process.alive());
    EXPECT_EQ(apps_is_running(kRoamd), 1);
}

TEST_F(ProcessTest, HasNoAnswerWithoutProc) {
    const ScopedMount hidden("tmpfs", "/proc", "tmpfs", 0, "mode=0700");
    EXPECT_EQ(as_nobody([] { return apps_is_running(1); }), -1);
    EXPECT_EQ(apps_is_running(1), 0);
    EXPECT_THAT(log_.take(), IsEmpty());
}

TEST_F(ProcessTest, PassesOverAProcessThatDiesMeanwhile) {
    // The listing names it; nothing of it can be opened.
    const ScopedMount listing("tmpfs", "/proc", "tmpfs", 0, "mode=0755");
    tq_test::write_file("/proc/7/nothing", "");
    tq_test::write_file("/proc/8/comm", "roamd\n");
    EXPECT_EQ(apps_is_running(kRoamd), 0);
    tq_test::write_file("/proc/9/status", "Name:\troamd\n");
    EXPECT_EQ(apps_is_running(kRoamd), 1);
    table()[kRoamd].name = "";
    EXPECT_EQ(apps_is_running(kRoamd), 0);
}

TEST_F(ProcessTest, SurvivesProcessesThatComeAndGo) {
    const NamedProcess breeder(
        "breeder", [] { signal(SIGCHLD, SIG_IGN); },
        [] {
            for (int i = 0; i < 10; i++) {
                if (fork() == 0) _exit(0);
            }
        });
    for (int i = 0; i < 100; i++)
        ASSERT_EQ(apps_is_running(kRoamd), 0);
    const NamedProcess process("roamd");
    for (int i = 0; i < 100; i++)
        ASSERT_EQ(apps_is_running(kRoamd), 1);
}

TEST_F(ProcessTest, PassesOverAProcessThatEndsBeforeItIsRead) {
    const NamedProcess process("roamd");
    // An opened file whose process is gone reads as ESRCH.
    EXPECT_GT(
        tq_test::faults::each_failure("read", ESRCH, [] { EXPECT_GE(apps_is_running(kRoamd), 0); }),
        2U);
}

struct Listed {
    const char* path;
    const char* status;
    int running;
};

class StatusFixture : public ProcessTest, public testing::WithParamInterface<Listed> {};

TEST_P(StatusFixture, ReadsTheStatusOfNumericEntries) {
    const ScopedMount proc("tmpfs", "/proc", "tmpfs", 0, "mode=0755");
    tq_test::write_file(std::string("/proc/") + GetParam().path, GetParam().status);
    EXPECT_EQ(apps_is_running(kRoamd), GetParam().running);
}

INSTANTIATE_TEST_SUITE_P(
    ProcessTest, StatusFixture,
    testing::Values(
        Listed{"4242/status", "Name:\troamd\nUmask:\t0022\n", 1},
        Listed{"4242/status", "Name: roamd\n", 1}, Listed{"4242/status", "Name:roamd", 1},
        Listed{"4242/status", "Name: \t roamd x\n", 1}, Listed{"4242/status", "name:\troamd\n", 0},
        Listed{"4242/status", "Names:\troamd\n", 0}, Listed{"4242/status", "\nName:\troamd\n", 0},
        Listed{"4242/status", "Name:\n", 0}, Listed{"4242/status", "", 0},
        Listed{"1/status", "Name:\troamd\n", 1}, Listed{"2147483647/status", "Name:\troamd\n", 1},
        Listed{"0/status", "Name:\troamd\n", 0}, Listed{"-5/status", "Name:\troamd\n", 0},
        Listed{"+5/status", "Name:\troamd\n", 0}, Listed{"5x/status", "Name:\troamd\n", 0},
        Listed{"x5/status", "Name:\troamd\n", 0}, Listed{"4294967301/status", "Name:\troamd\n", 0},
        Listed{"self/status", "Name:\troamd\n", 0},
        // The number is opened, not the text.
        Listed{"007/status", "Name:\troamd\n", 0}, Listed{"5/status/x", "", 0}));

TEST_F(ProcessTest, GoesOnBehindAnEntryThatIsNoProcess) {
    for (const bool zero_first : {true, false}) {
        const ScopedMount proc("tmpfs", "/proc", "tmpfs", 0, "mode=0755");
        for (const char* entry : {zero_first ? "0" : "5", zero_first ? "5" : "0"})
            tq_test::write_file(std::string("/proc/") + entry + "/status", "Name:\troamd\n");
        EXPECT_EQ(apps_is_running(kRoamd), 1);
    }
}

TEST_F(ProcessTest, ReadsEachProcessInThreeSystemCalls) {
    apps_is_running(kRoamd);
    std::vector<std::string> calls = {"open", "read", "close"};
    std::map<std::string, unsigned> before;
    tq_test::faults::reset();
    apps_is_running(kRoamd);
    for (const std::string& call : calls)
        before[call] = tq_test::faults::count(call);
    const NamedProcess one("aaa");
    const NamedProcess two("bbb");
    tq_test::faults::reset();
    apps_is_running(kRoamd);
    for (const std::string& call : calls)
        EXPECT_EQ(tq_test::faults::count(call), before[call] + 2) << call;
}

// the listing

TEST_F(ProcessTest, FindsAProcessInTheListing) {
    const NamedProcess process("zebra7stripes");
    EXPECT_EQ(check_if_proc_running("zebra7stripes"), 1);
    EXPECT_THAT(log_.take(), ElementsAre(LineAt(LOG_ERR, "check_if_proc_running", 565,
                                                "process 'zebra7stripes' is running\n")));
}

TEST_F(ProcessTest, TakesAnyPartOfALineOfTheListing) {
    const NamedProcess process("zebra7stripes");
    EXPECT_EQ(check_if_proc_running("bra7str"), 1);
    EXPECT_EQ(check_if_proc_running(std::to_string(process.pid()).c_str()), 1);
    log_.take();
    EXPECT_EQ(check_if_proc_running("zebra8"), 0);
    EXPECT_THAT(log_.take(), IsEmpty());
}

TEST_F(ProcessTest, LeavesOutGrepAndTheShellsAndKillInTheListing) {
    for (const char* name : {"grepzebra", "clishzebra", "killzebra"}) {
        const NamedProcess process(name);
        EXPECT_EQ(check_if_proc_running("zebra"), 0) << name;
    }
}

TEST_F(ProcessTest, LeavesTheQuotingOfTheListedNameToTheCaller) {
    const NamedProcess process("zebra one");
    EXPECT_EQ(check_if_proc_running("'zebra one'"), 1);
    EXPECT_EQ(check_if_proc_running("'zebra two'"), 0);
}

TEST_F(ProcessTest, LogsThatTheListingCannotBeStarted) {
    const tq_test::faults::Fail fail("popen");
    EXPECT_EQ(check_if_proc_running("zebra"), 0);
    EXPECT_THAT(log_.take(),
                ElementsAre(LineAt(
                    LOG_ERR, "check_if_proc_running", 561,
                    "Execute ps|grep zebra|grep -v grep|grep -v clish|grep -v kill error.\n")));
}

TEST_F(ProcessTest, RefusesANullNameAndOneThatWouldBeCut) {
    EXPECT_EQ(check_if_proc_running(nullptr), 0);
    EXPECT_THAT(log_.take(),
                ElementsAre(Line(LOG_ERR, "check_if_proc_running", "invalid parameters\n")));
    const size_t room = 1023 - strlen("ps|grep |grep -v grep|grep -v clish|grep -v kill");
    EXPECT_EQ(check_if_proc_running(std::string(room + 1, 'z').c_str()), 0);
    EXPECT_THAT(log_.take(),
                ElementsAre(Line(LOG_ERR, "check_if_proc_running", "invalid parameters\n")));
    EXPECT_EQ(check_if_proc_running(std::string(room, 'z').c_str()), 0);
    EXPECT_THAT(log_.take(), IsEmpty());
}

// signal 49

class NoticeTest : public ProcessTest {
  protected:
    NoticeTest() {
        shared()->signals = 0;
        syslog_cfg = get_syslog_cfg();
    }

    // Notifies the processes that are named like row kRoamd.
    int notice() {
        level_ ^= 1;
        const int result = set_process_syslog_level(kRoamd, level_);
        logged_.clear();
        for (const LogLine& line : log_.take()) {
            if (line.function == "notice_apps") logged_.push_back(line);
        }
        return result;
    }

    static void catch_signal() { signal(kReloadSignal, count_signal); }

    int level_ = 6;
    std::vector<LogLine> logged_;
};

TEST_F(NoticeTest, ReachesAProcessThatCatchesTheSignal) {
    const NamedProcess roamd("roamd", catch_signal);
    const NamedProcess other("steerd", [] { signal(kReloadSignal, SIG_DFL); });
    EXPECT_EQ(notice(), 0);
    EXPECT_TRUE(becomes([] { return shared()->signals == 1; }));
    EXPECT_TRUE(roamd.alive());
    EXPECT_TRUE(other.alive());
    EXPECT_THAT(logged_, IsEmpty());
}

TEST_F(NoticeTest, ReachesEveryProcessOfTheName) {
    const NamedProcess one("roamd", catch_signal);
    const NamedProcess two("roamd", catch_signal);
    const NamedProcess three("roamd worker", catch_signal);
    EXPECT_EQ(notice(), 0);
    EXPECT_TRUE(becomes([] { return shared()->signals == 3; }));
}

TEST_F(NoticeTest, SparesAndLogsAProcessThatDoesNotCatchTheSignal) {
    TQ_NEEDS_OWN_SIGNAL_MASK();
    const NamedProcess roamd("roamd");
    EXPECT_EQ(notice(), 0);
    const std::string pid = std::to_string(roamd.pid());
    EXPECT_THAT(
        logged_,
        ElementsAre(
            LineAt(LOG_ERR, "notice_apps", 152, "find pidname:" + pid + " pid" + pid + " \n"),
            testing::AllOf(testing::Field("line", &LogLine::line, 153),
                           testing::Field("priority", &LogLine::priority, LOG_ERR),
                           testing::Field("text", &LogLine::text,
                                          testing::MatchesRegex("SigCgt:\t[0-9a-f]+\n \n")))));
    usleep(10000);
    EXPECT_TRUE(roamd.alive());
}

TEST_F(NoticeTest, SparesAProcessThatCatchesTheSignalsAroundIt) {
    TQ_NEEDS_OWN_SIGNAL_MASK();
    const NamedProcess roamd("roamd", [] {
        for (const int number : {48, 50, 51, 52, 53})
            signal(number, count_signal);
    });
    notice();
    EXPECT_EQ(logged_.size(), 2U);
    EXPECT_EQ(shared()->signals, 0);
    EXPECT_TRUE(roamd.alive());
}

TEST_F(NoticeTest, SparesAProcessThatIgnoresTheSignal) {
    TQ_NEEDS_OWN_SIGNAL_MASK();
    const NamedProcess roamd("roamd", [] { signal(kReloadSignal, SIG_IGN); });
    notice();
    EXPECT_EQ(logged_.size(), 2U);
}

TEST_F(NoticeTest, SparesAProcessOfAnotherName) {
    const NamedProcess other("roamdx", catch_signal);
    const NamedProcess shorter("roam", catch_signal);
    const NamedProcess bracket("[roamd]", catch_signal);
    EXPECT_EQ(notice(), 0);
    EXPECT_THAT(logged_, IsEmpty());
    usleep(10000);
    EXPECT_EQ(shared()->signals, 0);
}

TEST_F(NoticeTest, TakesANameBehindAStarInTheList) {
    const NamedProcess roamd("roamd", catch_signal);
    table()[kRoamd].name = "net*roamd";
    EXPECT_EQ(notice(), 0);
    EXPECT_TRUE(becomes([] { return shared()->signals == 1; }));
    table()[kRoamd].name = "net+roamd";
    EXPECT_EQ(notice(), 0);
    usleep(10000);
    EXPECT_EQ(shared()->signals, 1);
}

TEST_F(NoticeTest, SparesANameThatIsTheLastBeforeTheListIsCut) {
    const NamedProcess roamd("roamd", catch_signal);
    for (const int rest : {504, 503}) {
        const std::string name = std::string(static_cast<size_t>(rest), 'x') + "*roamd";
        table()[kRoamd].name = name.c_str();
        EXPECT_EQ(notice(), 0);
        if (rest == 504) usleep(10000);
        EXPECT_TRUE(becomes([=] { return shared()->signals == (rest == 503); })) << rest;
    }
}

TEST_F(NoticeTest, SparesANameThatOnlyBeginsTheListed) {
    const NamedProcess roamd("roamd", catch_signal);
    table()[kRoamd].name = "roamd*";
    EXPECT_EQ(notice(), 0);
    usleep(10000);
    EXPECT_EQ(shared()->signals, 0);
}

TEST_F(NoticeTest, LooksBehindAFirstOccurrenceThatIsNotTheName) {
    const NamedProcess roamd("roamd", catch_signal);
    table()[kRoamd].name = "roamd+roamd|roamd";
    EXPECT_EQ(notice(), 0);
    EXPECT_TRUE(becomes([] { return shared()->signals == 1; }));
}

TEST_F(NoticeTest, TakesNoEntryThatOnlyBeginsWithANumber) {
    const NamedProcess roamd("roamd", catch_signal);
    const std::map<std::string, std::string> files = {
        {std::to_string(roamd.pid()) + "x/status", ""}};
    const ScopedProc proc(files);
    EXPECT_EQ(notice(), 0);
    EXPECT_TRUE(becomes([] { return shared()->signals == 1; }));
    usleep(10000);
    EXPECT_EQ(shared()->signals, 1);
}

TEST_F(NoticeTest, GoesOnBehindAProcessWithoutAMask) {
    const NamedProcess one("roamd", catch_signal);
    const NamedProcess two("roamd", catch_signal);
    const std::string name = "Name:\troamd\n";
    const std::string mask = "SigCgt:\t0001000000000000\n";
    const auto write_status = [](const NamedProcess& process, const std::string& status) {
        tq_test::write_file("/proc/" + std::to_string(process.pid()) + "/status", status);
    };
    for (const NamedProcess* without : {&one, &two}) {
        shared()->signals = 0;
        const ScopedMount proc("tmpfs", "/proc", "tmpfs", 0, "mode=0755");
        write_status(one, without == &one ? name : name + mask);
        write_status(two, without == &two ? name : name + mask);
        EXPECT_EQ(notice(), 0);
        EXPECT_TRUE(becomes([] { return shared()->signals == 1; }));
    }
}

TEST_F(NoticeTest, PassesOverAProcessThatDiesMeanwhile) {
    const NamedProcess roamd("roamd", catch_signal);
    const std::string status = "/proc/" + std::to_string(roamd.pid()) + "/status";
    const std::string nothing = "/proc/7/nothing";
    for (const bool dying_first : {true, false}) {
        shared()->signals = 0;
        const ScopedMount proc("tmpfs", "/proc", "tmpfs", 0, "mode=0755");
        for (const std::string& path :
             {dying_first ? nothing : status, dying_first ? status : nothing})
            tq_test::write_file(path, "Name:\troamd\nSigCgt:\t0001000000000000\n");
        EXPECT_EQ(notice(), 0);
        EXPECT_TRUE(becomes([] { return shared()->signals == 1; }));
    }
}

TEST_F(NoticeTest, SparesAProcessWithoutANameEvenWhereARowHasNone) {
    const NamedProcess process("roamd", catch_signal);
    const ScopedMount proc("tmpfs", "/proc", "tmpfs", 0, "mode=0755");
    tq_test::write_file("/proc/" + std::to_string(process.pid()) + "/status",
                        "Name:\nSigCgt:\t0001000000000000\n");
    table()[kRoamd].name = "";
    EXPECT_EQ(notice(), 0);
    usleep(10000);
    EXPECT_EQ(shared()->signals, 0);
}

TEST_F(NoticeTest, IsDoneWithoutProc) {
    const ScopedMount hidden("tmpfs", "/proc", "tmpfs", 0, "mode=0700");
    tq_test::write_file("/tmp/.loglvl.roam", "");
    chmod("/tmp/.loglvl.roam", 0666);
    EXPECT_EQ(as_nobody([] { return set_process_syslog_level(kRoamd, 7); }), 0);
}

// What the status of a process that catches the signal shows instead, and whether it gets it.
struct Mask {
    const char* lines;
    bool sent;
    bool logged;
};

class MaskFixture : public NoticeTest, public testing::WithParamInterface<Mask> {};

TEST_P(MaskFixture, LooksAtTheDigitForTheSignal) {
    const NamedProcess roamd("roamd", catch_signal);
    const std::map<std::string, std::string> files = {
        {std::to_string(roamd.pid()) + "/status",
         std::string("Name:\troamd\n") + GetParam().lines}};
    const ScopedProc proc(files);
    EXPECT_EQ(notice(), 0);
    EXPECT_EQ(logged_.size(), GetParam().logged ? 2U : 0U);
    if (GetParam().sent) {
        EXPECT_TRUE(becomes([] { return shared()->signals == 1; }));
    } else {
        usleep(5000);
        EXPECT_EQ(shared()->signals, 0);
    }
}

const std::string kLongLine = std::string(3000, 'g') + "\nSigCgt:\t0001000000000000\n";
const std::string kStraddling = std::string(1020, 'g') + "SigCgt:\t0001000000000000\n";

INSTANTIATE_TEST_SUITE_P(
    NoticeTest, MaskFixture,
    testing::Values(Mask{"SigCgt:\t0001000000000000\n", true, false},
                    Mask{"SigCgt:\tfff1ffffffffffff\n", true, false},
                    Mask{"SigCgt:\t0003000000000000\n", true, false},
                    Mask{"SigCgt:\t0009000000000000\n", true, false},
                    Mask{"SigCgt:\t000b000000000000\n", true, false},
                    Mask{"SigCgt:\t000f000000000000\n", true, false},
                    Mask{"SigCgt:\t000F000000000000\n", true, false},
                    Mask{"SigCgt:\t0000000000000000\n", false, true},
                    Mask{"SigCgt:\tfffeffffffffffff\n", false, true},
                    Mask{"SigCgt:\t000e000000000000\n", false, true},
                    Mask{"SigCgt:\t000A000000000000\n", false, true},
                    Mask{"SigCgt:\t000g000000000000\n", false, true},
                    Mask{"SigCgt:\t000 000000000000\n", false, true},
                    Mask{"SigCgt:\t0010000000000000\n", false, true},
                    Mask{"SigCgt:\t0000100000000000\n", false, true},
                    // 128 signals: the low half of the mask stands last.
                    Mask{"SigCgt:\t00000000000000000001000000000000\n", true, false},
                    Mask{"SigCgt:\t00010000000000000000000000000000\n", false, true},
                    // Without its line feed the line is a character short.
                    Mask{"SigCgt:\t0001000000000000", false, true},
                    Mask{"SigCgt:\t0010000000000000", true, false},
                    Mask{"SigCgt:\t1\n", false, true}, Mask{"SigCgt:\n", false, true},
                    Mask{"x SigCgt:\t0001000000000000\n", true, false},
                    Mask{"SigCgt:\t0001000000000000\nSigCgt:\t0000000000000000\n", true, false},
                    Mask{"SigIgn:\t0001000000000000\n", false, false}, Mask{"", false, false},
                    Mask{kLongLine.c_str(), true, false}, Mask{kStraddling.c_str(), false, false}));

TEST_F(NoticeTest, TakesNoSignalFromTheRestOfAName) {
    TQ_NEEDS_OWN_SIGNAL_MASK();
    // "Name:\troamd SigCgt:1" is the name's line, not the mask's.
    const NamedProcess roamd("roamd SigCgt:1");
    notice();
    ASSERT_EQ(logged_.size(), 2U);
    EXPECT_THAT(logged_[1].text, testing::StartsWith("SigCgt:\t"));
}

}  // namespace
