// uci_session_test.cpp - sessions on the device's own configuration files: what a session sees,
// what is in the delta area and in the file, what another process sees before and after a save, and
// what the log says.
#include "tq/uci_session.h"

#include <dlfcn.h>
#include <fcntl.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <linux/seccomp.h>
#include <malloc.h>
#include <sys/prctl.h>
#include <sys/stat.h>
#include <sys/syscall.h>
#include <sys/wait.h>
#include <uci.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <climits>
#include <functional>
#include <string>
#include <vector>

#include "support/device.h"
#include "support/faults.h"
#include "support/log_capture.h"
#include "tq/uci_path.h"
#include "uci/store.h"
#include "uci/uci_calls.h"
#include "uci/uci_session_layout.h"

namespace {

using testing::AnyOf;
using testing::ElementsAre;
using testing::HasSubstr;
using testing::IsEmpty;
using testing::Not;
using tq_test::as_nobody;
using tq_test::CallFails;
using tq_test::CommandResult;
using tq_test::DeviceTest;
using tq_test::exists;
using tq_test::FullDisk;
using tq_test::Line;
using tq_test::live_contexts;
using tq_test::LogCapture;
using tq_test::LogLine;
using tq_test::open_descriptors;
using tq_test::read_file;
using tq_test::ReadOnly;
using tq_test::replaced;
using tq_test::run_command;
using tq_test::staged;
using tq_test::stored;
using tq_test::write_file;
namespace faults = tq_test::faults;

// Beyond what support/faults.h and uci_calls.h forward.
bool access_sees_nothing = false;

}  // namespace

extern "C" int access(const char* name, int type) noexcept {
    static const auto next =
        reinterpret_cast<int (*)(const char*, int)>(dlsym(RTLD_NEXT, "access"));
    return access_sees_nothing ? -1 : next(name, type);
}

namespace {

constexpr std::array<const char*, UCI_CONFIG_ALL> kFiles = {
    "dhcp",  "network",  "bind",    "location", "wireless", "system", "apstats",      "wtp",
    "board", "firewall", "forward", "bwctrl",   "nat",      "mcsd",   "troubleshoot", "ordercfg"};

const char* file_of(int id) {
    return kFiles.at(static_cast<size_t>(id));
}

CommandResult uci(const std::string& arguments) {
    return run_command("uci " + arguments);
}

std::string seen_by_uci(const std::string& path) {
    return uci("-q get " + path).out;
}

auto Error(const std::string& function, const std::string& text) {
    return Line(LOG_ERR, function, text);
}

auto Debug(const std::string& function, const std::string& text) {
    return Line(LOG_DEBUG, function, text);
}

uci_config_ctx garbage() {
    uci_config_ctx session;
    memset(&session, 0x5a, sizeof(session));
    return session;
}

bool is_empty(const uci_config_ctx& session) {
    constexpr uci_config_ctx kEmpty{};
    return memcmp(&session, &kEmpty, sizeof(session)) == 0;
}

// A session on a section, or a failed test.
uci_config_ctx session_on(int id, const char* section) {
    uci_config_ctx session = garbage();
    EXPECT_EQ(load_named_section(id, &session, section), 0) << section;
    return session;
}

uci_config_ctx radio0() {
    return session_on(UCI_CONFIG_WIRELESS, "radio0");
}

std::vector<std::string> items(uci_list* list) {
    std::vector<std::string> names;
    uci_element* element = nullptr;
    if (!list) return {"(no list)"};
    uci_foreach_element(list, element) names.push_back(element->name);
    return names;
}

std::string text(const char* value) {
    return value ? value : "(null)";
}

// Every test ends with what it began with: no descriptor, no context and no file of its work left.
class UciSessionTest : public DeviceTest {
  protected:
    UciSessionTest() = default;
    ~UciSessionTest() override = default;
    UciSessionTest(const UciSessionTest&) = delete;
    UciSessionTest& operator=(const UciSessionTest&) = delete;

    void TearDown() override {
        EXPECT_EQ(free_uci_config(UCI_CONFIG_ALL), 0);
        EXPECT_EQ(live_contexts(), 0);
        closelog();
        EXPECT_EQ(open_descriptors(), descriptors_);
    }

    void expect_silence() { EXPECT_THAT(log_.take(), IsEmpty()); }

    const std::string wireless_ = stored("wireless");
    LogCapture log_;

  private:
    std::vector<int> descriptors_ = open_descriptors();
};

// The record

TEST(UciConfigCtx, HasOneLayoutWithAndWithoutLibucisHeader) {
    const SessionLayout plain = session_layout_without_libuci();
    EXPECT_EQ(plain.size, sizeof(uci_config_ctx));
    EXPECT_EQ(plain.ctx, offsetof(uci_config_ctx, ctx));
    EXPECT_EQ(plain.pkg, offsetof(uci_config_ctx, pkg));
    EXPECT_EQ(plain.p, offsetof(uci_config_ctx, ptr.p));
    EXPECT_EQ(plain.s, offsetof(uci_config_ctx, ptr.s));
    EXPECT_EQ(plain.o, offsetof(uci_config_ctx, ptr.o));
    EXPECT_EQ(plain.last, offsetof(uci_config_ctx, ptr.last));
    EXPECT_EQ(plain.flags, offsetof(uci_config_ctx, ptr.flags));
    EXPECT_EQ(plain.package, offsetof(uci_config_ctx, ptr.package));
    EXPECT_EQ(plain.section, offsetof(uci_config_ctx, ptr.section));
    EXPECT_EQ(plain.option, offsetof(uci_config_ctx, ptr.option));
    EXPECT_EQ(plain.value, offsetof(uci_config_ctx, ptr.value));
}

TEST(UciConfigCtx, HasContextPackageAndAddressInThisOrder) {
    EXPECT_EQ(offsetof(uci_config_ctx, ctx), 0U);
    EXPECT_EQ(offsetof(uci_config_ctx, pkg), sizeof(void*));
    EXPECT_EQ(offsetof(uci_config_ctx, ptr), 2 * sizeof(void*));
    EXPECT_EQ(sizeof(uci_config_ctx), 2 * sizeof(void*) + sizeof(uci_ptr));
}

// get_uci_entry_by_name

class GetUciEntryByName : public UciSessionTest {};

TEST_F(GetUciEntryByName, FindsEachOfTheSixteenFilesByItsName) {
    for (int id = 0; id < UCI_CONFIG_ALL; id++) {
        SCOPED_TRACE(file_of(id));
        const uci_entry* row = get_uci_entry_by_name(file_of(id));
        ASSERT_NE(row, nullptr);
        EXPECT_EQ(row->id, id);
        EXPECT_STREQ(row->file, file_of(id));
        EXPECT_EQ(row->ctx, nullptr);
        EXPECT_EQ(row->pkg, nullptr);
    }
    expect_silence();
}

TEST_F(GetUciEntryByName, HasNoOtherFile) {
    for (const char* name : {"", "tqfm", "wireles", "wirelessx", "Wireless", "capwap"})
        EXPECT_EQ(get_uci_entry_by_name(name), nullptr) << name;
    expect_silence();
}

TEST_F(GetUciEntryByName, RejectsNull) {
    EXPECT_EQ(get_uci_entry_by_name(nullptr), nullptr);
    EXPECT_THAT(log_.take(), ElementsAre(Error("get_uci_entry_by_name", "invalid parameters\n")));
}

TEST_F(GetUciEntryByName, ShowsWhetherTheFileIsLoaded) {
    uci_config_ctx session = radio0();
    const uci_entry* row = get_uci_entry_by_name("wireless");
    EXPECT_EQ(row->ctx, session.ctx);
    EXPECT_EQ(row->pkg, session.pkg);
    EXPECT_EQ(free_uci_config(UCI_CONFIG_WIRELESS), 0);
    EXPECT_EQ(row->ctx, nullptr);
    EXPECT_EQ(row->pkg, nullptr);
}

// load_uci_config

class LoadUciConfig : public UciSessionTest {};

TEST_F(LoadUciConfig, LoadsEachFileOfTheDevice) {
    for (int id = 0; id < UCI_CONFIG_ALL; id++) {
        SCOPED_TRACE(file_of(id));
        const std::string before = stored(file_of(id));
        uci_config_ctx session = garbage();
        ASSERT_EQ(load_uci_config(id, &session), 0);
        EXPECT_NE(session.ctx, nullptr);
        EXPECT_STREQ(session.pkg->e.name, file_of(id));
        EXPECT_EQ(session.ptr.p, session.pkg);
        EXPECT_STREQ(session.ptr.package, file_of(id));
        EXPECT_EQ(session.ptr.s, nullptr);
        EXPECT_EQ(session.ptr.section, nullptr);
        EXPECT_EQ(session.ptr.o, nullptr);
        EXPECT_EQ(session.ptr.option, nullptr);
        EXPECT_EQ(session.ptr.value, nullptr);
        EXPECT_FALSE(uci_list_empty(&session.pkg->sections));
        EXPECT_EQ(stored(file_of(id)), before);
    }
    EXPECT_EQ(live_contexts(), UCI_CONFIG_ALL);
    expect_silence();
}

TEST_F(LoadUciConfig, NeedsNoSession) {
    EXPECT_EQ(load_uci_config(UCI_CONFIG_SYSTEM, nullptr), 0);
    EXPECT_NE(get_uci_entry_by_name("system")->pkg, nullptr);
    expect_silence();
}

TEST_F(LoadUciConfig, LoadsAFileOnce) {
    uci_config_ctx first = garbage();
    uci_config_ctx second = garbage();
    EXPECT_EQ(load_uci_config(UCI_CONFIG_WIRELESS, &first), 0);
    run_command("rm /etc/config/wireless");
    faults::reset();
    EXPECT_EQ(load_uci_config(UCI_CONFIG_WIRELESS, &second), 0);
    EXPECT_EQ(faults::count("open") + faults::count("malloc") + faults::count("calloc"), 0U);
    EXPECT_EQ(memcmp(&first, &second, sizeof(first)), 0);
    EXPECT_FALSE(exists("/etc/config/wireless"));
}

TEST_F(LoadUciConfig, RejectsAnIdOfNoFile) {
    for (const int id : {16, 17, -1, INT_MAX, INT_MIN}) {
        uci_config_ctx session = garbage();
        EXPECT_EQ(load_uci_config(id, &session), -1);
        EXPECT_EQ(load_uci_config(id, nullptr), -1);
        EXPECT_TRUE(is_empty(session));
        const std::string line = "unspport uci entry " + std::to_string(id) + "\n";
        EXPECT_THAT(log_.take(),
                    ElementsAre(Error("load_uci_config", line), Error("load_uci_config", line)));
    }
}

TEST_F(LoadUciConfig, CreatesAFileThatIsMissing) {
    run_command("rm /etc/config/bwctrl");
    uci_config_ctx session = garbage();
    EXPECT_EQ(load_uci_config(UCI_CONFIG_BWCTRL, &session), 0);
    EXPECT_TRUE(uci_list_empty(&session.pkg->sections));
    EXPECT_EQ(stored("bwctrl"), "");
    struct stat status {};
    ASSERT_EQ(stat("/etc/config/bwctrl", &status), 0);
    EXPECT_EQ(status.st_mode & 07777, 0600U);
    EXPECT_EQ(uci("show bwctrl").status, 0);
    EXPECT_EQ(staged("bwctrl"), "");
    expect_silence();
}

TEST_F(LoadUciConfig, LeavesAFileAloneThatAnotherProcessHasCreatedMeanwhile) {
    access_sees_nothing = true;
    EXPECT_EQ(load_uci_config(UCI_CONFIG_WIRELESS, nullptr), 0);
    access_sees_nothing = false;
    EXPECT_EQ(stored("wireless"), wireless_);
    expect_silence();
}

TEST_F(LoadUciConfig, FailsWhereThereIsNoDirectory) {
    run_command("rm -r /etc/config");
    uci_config_ctx session = garbage();
    EXPECT_EQ(load_uci_config(UCI_CONFIG_NAT, &session), -1);
    EXPECT_TRUE(is_empty(session));
    EXPECT_THAT(log_.take(),
                ElementsAre(Error("create_uci_file",
                                  "create /etc/config/nat fail: No such file or directory\n"),
                            Error("load_uci_config", "uci_load 'nat' fail\n")));
    EXPECT_EQ(live_contexts(), 0);
    run_command("mkdir /etc/config");
    EXPECT_EQ(load_uci_config(UCI_CONFIG_NAT, &session), 0);
    expect_silence();
}

TEST_F(LoadUciConfig, FailsWhereAFileCannotBeCreated) {
    run_command("rm /etc/config/troubleshoot");
    const ReadOnly locked("/etc/config");
    EXPECT_EQ(load_uci_config(UCI_CONFIG_TROUBLESHOOT, nullptr), -1);
    EXPECT_THAT(log_.take(),
                ElementsAre(Error("create_uci_file",
                                  "create /etc/config/troubleshoot fail: Read-only file system\n"),
                            Error("load_uci_config", "uci_load 'troubleshoot' fail\n")));
    EXPECT_EQ(get_uci_entry_by_name("troubleshoot")->ctx, nullptr);
}

TEST_F(LoadUciConfig, FailsOnWhatIsNoConfigurationFileUntilItIsOne) {
    for (const char* broken :
         {"printf \"config a 'b\\n\" > /etc/config/nat", "printf 'nonsense\\n' > /etc/config/nat",
          "mkdir /etc/config/nat", "ln -s nat /etc/config/nat"}) {
        SCOPED_TRACE(broken);
        run_command("rm -r /etc/config/nat");
        run_command(broken);
        uci_config_ctx session = garbage();
        EXPECT_EQ(load_uci_config(UCI_CONFIG_NAT, &session), -1);
        EXPECT_TRUE(is_empty(session));
        EXPECT_THAT(log_.take(),
                    testing::Contains(Error("load_uci_config", "uci_load 'nat' fail\n")));
        EXPECT_EQ(get_uci_entry_by_name("nat")->ctx, nullptr);
        EXPECT_EQ(get_uci_entry_by_name("nat")->pkg, nullptr);
        EXPECT_EQ(live_contexts(), 0);
    }
    run_command("rm /etc/config/nat; cp /rom/etc/config/nat /etc/config/nat");
    EXPECT_EQ(load_uci_config(UCI_CONFIG_NAT, nullptr), 0);
}

TEST_F(LoadUciConfig, FailsOnAFileThatMayNotBeRead) {
    run_command("chmod 600 /etc/config/wireless");
    EXPECT_EQ(as_nobody([] { return load_uci_config(UCI_CONFIG_WIRELESS, nullptr); }), -1);
    EXPECT_THAT(log_.take(), ElementsAre(Error("load_uci_config", "uci_load 'wireless' fail\n")));
}

TEST_F(LoadUciConfig, FailsWithoutAContext) {
    uci_config_ctx session = garbage();
    {
        const CallFails fail("uci_alloc_context");
        EXPECT_EQ(load_uci_config(UCI_CONFIG_WTP, &session), -1);
    }
    EXPECT_TRUE(is_empty(session));
    EXPECT_THAT(log_.take(),
                ElementsAre(Error("load_uci_config", "uci_alloc_context for config 'wtp' fail\n")));
    EXPECT_EQ(load_uci_config(UCI_CONFIG_WTP, &session), 0);
}

TEST_F(LoadUciConfig, SeesWhatAnotherProcessHasStaged) {
    EXPECT_EQ(uci("set wireless.radio0.channel=13").status, 0);
    uci_config_ctx session = radio0();
    EXPECT_EQ(text(get_uci_config(&session, "channel")), "13");
}

// load_named_section

class LoadNamedSection : public UciSessionTest {};

TEST_F(LoadNamedSection, SelectsEachSectionByItsName) {
    for (const char* name : {"radio0", "radio1", "default_radio0", "test_radio1"}) {
        const uci_config_ctx session = session_on(UCI_CONFIG_WIRELESS, name);
        EXPECT_STREQ(session.ptr.s->e.name, name);
        EXPECT_STREQ(session.ptr.section, name);
        EXPECT_EQ(session.ptr.p, session.pkg);
        EXPECT_EQ(session.ptr.option, nullptr);
    }
    expect_silence();
}

TEST_F(LoadNamedSection, SelectsASectionWithoutANameByItsGeneratedOne) {
    uci_config_ctx unnamed = garbage();
    ASSERT_EQ(load_unnamed_section(UCI_CONFIG_SYSTEM, &unnamed, "system"), 0);
    const uci_config_ctx named = session_on(UCI_CONFIG_SYSTEM, unnamed.ptr.section);
    EXPECT_EQ(named.ptr.s, unnamed.ptr.s);
}

TEST_F(LoadNamedSection, RejectsNoNameBeforeAnythingElse) {
    uci_config_ctx session = radio0();
    const uci_config_ctx before = session;
    EXPECT_EQ(load_named_section(UCI_CONFIG_NAT, &session, nullptr), -1);
    EXPECT_EQ(load_named_section(99, &session, ""), -1);
    EXPECT_EQ(memcmp(&session, &before, sizeof(session)), 0);
    EXPECT_EQ(get_uci_entry_by_name("nat")->ctx, nullptr);
    EXPECT_THAT(log_.take(), ElementsAre(Error("load_named_section", "no section name\n"),
                                         Error("load_named_section", "no section name\n")));
}

TEST_F(LoadNamedSection, RejectsANullSession) {
    EXPECT_EQ(load_named_section(UCI_CONFIG_NAT, nullptr, "global"), -1);
    EXPECT_EQ(get_uci_entry_by_name("nat")->ctx, nullptr);
    EXPECT_THAT(log_.take(), ElementsAre(Error("load_named_section", "invalid parameters\n")));
}

TEST_F(LoadNamedSection, WarnsOfASectionThatIsMissing) {
    uci_config_ctx session = radio0();
    EXPECT_EQ(load_named_section(UCI_CONFIG_WIRELESS, &session, "radio7"), -1);
    EXPECT_EQ(session.ptr.s, nullptr);
    EXPECT_EQ(session.ptr.section, nullptr);
    EXPECT_NE(session.pkg, nullptr);
    EXPECT_THAT(log_.take(), ElementsAre(Line(LOG_WARNING, "load_named_section",
                                              "uci lookup 'radio7' section fail\n")));
}

TEST_F(LoadNamedSection, FailsAsTheLoadDoes) {
    uci_config_ctx session = garbage();
    EXPECT_EQ(load_named_section(UCI_CONFIG_ALL, &session, "radio0"), -1);
    EXPECT_TRUE(is_empty(session));
    EXPECT_THAT(log_.take(), ElementsAre(Error("load_uci_config", "unspport uci entry 16\n")));
}

// load_unnamed_section

class LoadUnnamedSection : public UciSessionTest {};

TEST_F(LoadUnnamedSection, SelectsTheFirstOfTheType) {
    uci_config_ctx session = garbage();
    EXPECT_EQ(load_unnamed_section(UCI_CONFIG_WIRELESS, &session, "wifi-iface"), 0);
    EXPECT_STREQ(session.ptr.section, "default_radio0");
    EXPECT_STREQ(session.ptr.s->type, "wifi-iface");
    EXPECT_EQ(load_unnamed_section(UCI_CONFIG_BIND, &session, "bind"), 0);
    EXPECT_TRUE(session.ptr.s->anonymous);
    EXPECT_STREQ(session.ptr.section, session.ptr.s->e.name);
    EXPECT_EQ(text(get_uci_config(&session, "ifname")), "ath01");
    expect_silence();
}

TEST_F(LoadUnnamedSection, RejectsNoType) {
    uci_config_ctx session = radio0();
    const uci_config_ctx before = session;
    EXPECT_EQ(load_unnamed_section(UCI_CONFIG_NAT, &session, nullptr), -1);
    EXPECT_EQ(load_unnamed_section(99, &session, ""), -1);
    EXPECT_EQ(memcmp(&session, &before, sizeof(session)), 0);
    EXPECT_THAT(log_.take(), ElementsAre(Error("load_unnamed_section", "no section type\n"),
                                         Error("load_unnamed_section", "no section type\n")));
}

TEST_F(LoadUnnamedSection, RejectsNoTypeBeforeANullSession) {
    EXPECT_EQ(load_unnamed_section(UCI_CONFIG_NAT, nullptr, nullptr), -1);
    EXPECT_EQ(load_unnamed_section(UCI_CONFIG_NAT, nullptr, ""), -1);
    EXPECT_THAT(log_.take(), ElementsAre(Error("load_unnamed_section", "no section type\n"),
                                         Error("load_unnamed_section", "no section type\n")));
}

TEST_F(LoadUnnamedSection, RejectsANullSession) {
    EXPECT_EQ(load_unnamed_section(UCI_CONFIG_NAT, nullptr, "nat"), -1);
    EXPECT_EQ(get_uci_entry_by_name("nat")->ctx, nullptr);
    EXPECT_THAT(log_.take(), ElementsAre(Error("load_unnamed_section", "invalid parameters\n")));
}

TEST_F(LoadUnnamedSection, IsLeftOnTheLastSectionWhereThereIsNoneOfTheType) {
    uci_config_ctx session = garbage();
    EXPECT_EQ(load_unnamed_section(UCI_CONFIG_WIRELESS, &session, "wifi-ifac"), -1);
    ASSERT_NE(session.ptr.s, nullptr);
    EXPECT_STREQ(session.ptr.s->e.name, "test_radio1");
    EXPECT_EQ(session.ptr.section, nullptr);
    EXPECT_THAT(log_.take(), ElementsAre(Line(LOG_INFO, "load_unnamed_section",
                                              "no such type 'wifi-ifac' section \n")));
    // Whoever does not look at the result reads and writes there.
    EXPECT_EQ(text(get_uci_config(&session, "ssid")), "Branch=Test.1");
    EXPECT_EQ(set_uci_config(&session, "ssid", "x"), 0);
    EXPECT_EQ(staged("wireless"), "wireless.test_radio1.ssid='x'\n");
}

TEST_F(LoadUnnamedSection, HasNoSectionInAnEmptyFile) {
    write_file("/etc/config/nat", "");
    uci_config_ctx session = garbage();
    EXPECT_EQ(load_unnamed_section(UCI_CONFIG_NAT, &session, "nat"), -1);
    EXPECT_EQ(session.ptr.s, nullptr);
    EXPECT_THAT(log_.take(), ElementsAre(Line(LOG_INFO, "load_unnamed_section",
                                              "no such type 'nat' section \n")));
}

TEST_F(LoadUnnamedSection, FailsAsTheLoadDoes) {
    uci_config_ctx session = garbage();
    EXPECT_EQ(load_unnamed_section(-1, &session, "nat"), -1);
    EXPECT_TRUE(is_empty(session));
    EXPECT_THAT(log_.take(), ElementsAre(Error("load_uci_config", "unspport uci entry -1\n")));
}

// load_specific_section

class LoadSpecificSection : public UciSessionTest {
  protected:
    // The name of the VAP that matches, or "-1".
    static std::string vap(std::vector<const char*> match) {
        uci_config_ctx session = garbage();
        match.push_back(nullptr);
        const int result =
            load_specific_section(UCI_CONFIG_WIRELESS, &session, "wifi-iface", match.data());
        if (result == 0) return session.ptr.s->e.name;
        EXPECT_EQ(session.ptr.s, nullptr);
        EXPECT_EQ(session.ptr.section, nullptr);
        return std::to_string(result);
    }
};

TEST_F(LoadSpecificSection, TakesTheFirstOfTheTypeWithoutConditions) {
    uci_config_ctx session = garbage();
    EXPECT_EQ(load_specific_section(UCI_CONFIG_WIRELESS, &session, "wifi-iface", nullptr), 0);
    EXPECT_STREQ(session.ptr.section, "default_radio0");
    EXPECT_STREQ(session.ptr.s->e.name, "default_radio0");
    expect_silence();
}

TEST_F(LoadSpecificSection, FindsTheFirstSectionWhoseOptionEqualsTheValue) {
    EXPECT_EQ(vap({"ssid", "Branch-Office"}), "office_radio0");
    EXPECT_EQ(vap({"ifname", "ath17"}), "test_radio1");
    EXPECT_EQ(vap({"ssid", "Branch-Offic"}), "-1");
    EXPECT_EQ(vap({"ssid", ""}), "-1");
    expect_silence();
}

TEST_F(LoadSpecificSection, FindsTheSectionThatFulfilsEveryCondition) {
    EXPECT_EQ(vap({"ssid", "Branch-Office", "device", "radio1"}), "office_radio1");
    EXPECT_EQ(vap({"device", "radio1", "key", nullptr, "disabled", "1"}), "legacy_radio1");
    EXPECT_EQ(vap({"ssid", "Branch-Office", "device", "radio2"}), "-1");
    EXPECT_EQ(vap({"device", "radio2", "ssid", "Branch-Office"}), "-1");
}

TEST_F(LoadSpecificSection, AsksOnlyForTheOptionWithoutAValue) {
    EXPECT_EQ(vap({"auth_server", nullptr}), "office_radio0");
    EXPECT_EQ(vap({"auth_server", nullptr, "device", "radio1"}), "office_radio1");
    EXPECT_EQ(vap({"maclist", nullptr}), "iot_radio0");
    EXPECT_EQ(vap({"nothing", nullptr}), "-1");
}

TEST_F(LoadSpecificSection, FindsAListThatHoldsTheValue) {
    EXPECT_EQ(vap({"maclist", "00:00:5e:00:53:12"}), "iot_radio0");
    EXPECT_EQ(vap({"maclist", "00:00:5e:00:53:12", "device", "radio1"}), "iot_radio1");
    EXPECT_EQ(vap({"maclist", "00:00:5e:00:53:13"}), "-1");
    EXPECT_EQ(vap({"maclist", "00:00:5e:00:53:10 00:00:5e:00:53:11 00:00:5e:00:53:12"}), "-1");
}

TEST_F(LoadSpecificSection, LooksAtSectionsOfTheTypeOnly) {
    const char* match[] = {"disabled", "0", nullptr};
    uci_config_ctx session = garbage();
    EXPECT_EQ(load_specific_section(UCI_CONFIG_WIRELESS, &session, "wifi-device", match), 0);
    EXPECT_STREQ(session.ptr.section, "radio0");
    EXPECT_EQ(vap({"disabled", "0"}), "-1");
    EXPECT_EQ(load_specific_section(UCI_CONFIG_WIRELESS, &session, "nothing", nullptr), -1);
    EXPECT_EQ(session.ptr.s, nullptr);
    expect_silence();
}

TEST_F(LoadSpecificSection, MatchesNothingWithAnEmptyListOfConditions) {
    EXPECT_EQ(vap({}), "-1");
    expect_silence();
}

TEST_F(LoadSpecificSection, RejectsNoType) {
    uci_config_ctx session = radio0();
    const uci_config_ctx before = session;
    EXPECT_EQ(load_specific_section(UCI_CONFIG_NAT, &session, nullptr, nullptr), -1);
    EXPECT_EQ(load_specific_section(99, &session, "", nullptr), -1);
    EXPECT_EQ(load_specific_section(99, nullptr, "", nullptr), -1);
    EXPECT_EQ(memcmp(&session, &before, sizeof(session)), 0);
    EXPECT_EQ(get_uci_entry_by_name("nat")->ctx, nullptr);
    const auto rejected = Error("load_specific_section", "no section type\n");
    EXPECT_THAT(log_.take(), ElementsAre(rejected, rejected, rejected));
}

TEST_F(LoadSpecificSection, MissesThePackageOfANullSession) {
    EXPECT_EQ(load_specific_section(UCI_CONFIG_NAT, nullptr, "alg", nullptr), -1);
    char line[100];
    snprintf(line, sizeof(line), "incomplete param, section_type: %s, uctx->ptr.p: %p\n", "alg",
             static_cast<void*>(nullptr));
    EXPECT_THAT(log_.take(), ElementsAre(Error("find_uci_section", line)));
}

TEST_F(LoadSpecificSection, FailsAsTheLoadDoes) {
    uci_config_ctx session = garbage();
    EXPECT_EQ(load_specific_section(16, &session, "alg", nullptr), -1);
    EXPECT_TRUE(is_empty(session));
    EXPECT_THAT(log_.take(), ElementsAre(Error("load_uci_config", "unspport uci entry 16\n")));
}

// What every operation of a session rejects

struct Operation {
    const char* name;
    bool takes_value;
    int error;  // -1, or -2 for a null pointer
    std::function<int(uci_config_ctx*, const char* option, const char* value)> run;
};

int null_or(const void* pointer) {
    return pointer ? 0 : -2;
}

const std::vector<Operation>& operations() {
    static const std::vector<Operation> all = {
        {"get_uci_config", false, -2,
         [](auto* s, auto* o, auto*) { return null_or(get_uci_config(s, o)); }},
        {"set_uci_config", true, -1,
         [](auto* s, auto* o, auto* v) { return set_uci_config(s, o, v); }},
        {"del_uci_config", false, -1, [](auto* s, auto* o, auto*) { return del_uci_config(s, o); }},
        {"uci_lookup_option_list", false, -2,
         [](auto* s, auto* o, auto*) { return null_or(uci_lookup_option_list(s, o)); }},
        {"add_uci_list", true, -1, [](auto* s, auto* o, auto* v) { return add_uci_list(s, o, v); }},
        {"del_uci_list", true, -1, [](auto* s, auto* o, auto* v) { return del_uci_list(s, o, v); }},
    };
    return all;
}

class SessionOperation : public UciSessionTest, public testing::WithParamInterface<Operation> {
  protected:
    // The operation does nothing, for want of what the text names.
    void expect_rejected(uci_config_ctx* session, const char* option, const char* value,
                         const std::string& line) {
        EXPECT_EQ(GetParam().run(session, option, value), GetParam().error);
        EXPECT_THAT(log_.take(), ElementsAre(Error(GetParam().name, "incomplete param, " + line)));
        EXPECT_EQ(staged("wireless"), "");
    }
};

TEST_P(SessionOperation, RejectsANullOption) {
    uci_config_ctx session = radio0();
    if (GetParam().takes_value) {
        expect_rejected(&session, nullptr, "x", "val_str:x, option:nil\n");
        expect_rejected(nullptr, nullptr, nullptr, "val_str:nil, option:nil\n");
    } else {
        expect_rejected(&session, nullptr, nullptr, "option:nil\n");
        expect_rejected(nullptr, nullptr, nullptr, "option:nil\n");
    }
}

class SessionWrite : public SessionOperation {};

TEST_P(SessionWrite, RejectsAValueOfNothing) {
    uci_config_ctx session = radio0();
    expect_rejected(&session, "channel", nullptr, "val_str:nil, option:channel\n");
    expect_rejected(&session, "channel", "", "val_str:, option:channel\n");
}

TEST_P(SessionOperation, RejectsANullSession) {
    expect_rejected(nullptr, "channel", "x", "uctx:nil\n");
}

TEST_P(SessionOperation, RejectsASessionWithoutASection) {
    uci_config_ctx session{};
    expect_rejected(&session, "channel", "x", "uctx->ptr.s:nil\n");
    EXPECT_EQ(load_uci_config(UCI_CONFIG_WIRELESS, &session), 0);
    expect_rejected(&session, "channel", "x", "uctx->ptr.s:nil\n");
}

TEST_P(SessionOperation, RejectsASessionOnAFileThatWasFreed) {
    uci_config_ctx session = radio0();
    EXPECT_EQ(free_uci_config(UCI_CONFIG_WIRELESS), 0);
    expect_rejected(&session, "channel", "x", "uctx->ptr.s:nil\n");
    EXPECT_EQ(load_uci_config(UCI_CONFIG_SYSTEM, nullptr), 0);
    expect_rejected(&session, "channel", "x", "uctx->ptr.s:nil\n");
    // One of them is where the session's context was, if the system's is not.
    std::array<uci_context*, 64> others{};
    std::ranges::generate(others, uci_alloc_context);
    EXPECT_EQ(load_uci_config(UCI_CONFIG_WIRELESS, nullptr), 0);
    std::ranges::for_each(others, uci_free_context);
    ASSERT_NE(get_uci_entry_by_name("wireless")->ctx, session.ctx);
    expect_rejected(&session, "channel", "x", "uctx->ptr.s:nil\n");
}

TEST_P(SessionOperation, RejectsASessionWhoseSectionWasDeleted) {
    uci_config_ctx session = radio0();
    uci_ptr section = session.ptr;
    ASSERT_EQ(uci_delete(session.ctx, &section), UCI_OK);
    expect_rejected(&session, "channel", "x", "uctx->ptr.s:nil\n");
}

TEST_P(SessionOperation, RejectsASessionWhoseSectionWasRenamed) {
    uci_config_ctx session = radio0();
    std::string path = "wireless.radio0=renamed";
    uci_ptr section{};
    ASSERT_EQ(uci_lookup_ptr(session.ctx, &section, path.data(), true), UCI_OK);
    ASSERT_EQ(uci_rename(session.ctx, &section), UCI_OK);
    expect_rejected(&session, "channel", "x", "uctx->ptr.s:nil\n");
}

TEST_P(SessionOperation, RejectsASessionWhoseSectionAnotherProcessDeleted) {
    uci_config_ctx session = radio0();
    EXPECT_EQ(uci("delete wireless.radio0 && uci commit wireless").status, 0);
    EXPECT_EQ(save_uci_config(UCI_CONFIG_WIRELESS, nullptr, 0), 0);
    expect_rejected(&session, "channel", "x", "uctx->ptr.s:nil\n");
}

TEST_P(SessionOperation, WorksOnACopyOfTheSessionsAddress) {
    uci_config_ctx session = radio0();
    const uci_config_ctx before = session;
    for (const char* option : {"channel", "basic_rate", "fresh"}) {
        GetParam().run(&session, option, "7");
        EXPECT_EQ(memcmp(&session, &before, sizeof(session)), 0) << option;
    }
}

std::vector<Operation> writes() {
    std::vector<Operation> taking_values;
    for (const Operation& operation : operations()) {
        if (operation.takes_value) taking_values.push_back(operation);
    }
    return taking_values;
}

INSTANTIATE_TEST_SUITE_P(Each, SessionWrite, testing::ValuesIn(writes()),
                         [](const auto& each) { return each.param.name; });
INSTANTIATE_TEST_SUITE_P(Each, SessionOperation, testing::ValuesIn(operations()),
                         [](const auto& each) { return each.param.name; });

// A file that is loaded anew can stand where it stood before it was freed. A session on it then has
// its own section or none, whatever is at the old one's address now.
TEST_F(UciSessionTest, TakesNoOtherSectionForItsOwn) {
    for (int round = 0; round < 20; round++) {
        uci_config_ctx session = radio0();
        EXPECT_EQ(free_uci_config(UCI_CONFIG_WIRELESS), 0);
        (void)session_on(UCI_CONFIG_WIRELESS, round % 2 == 0 ? "radio1" : "iot_radio0");
        const char* channel = get_uci_config(&session, "channel");
        EXPECT_TRUE(!channel || std::string(channel) == "6") << channel;
        EXPECT_EQ(free_uci_config(UCI_CONFIG_WIRELESS), 0);
    }
}

// What stays for good must not grow with every selection.
TEST_F(UciSessionTest, KeepsTheNameOfASectionOnce) {
    const char* name = radio0().ptr.section;
    EXPECT_EQ(radio0().ptr.section, name);
    EXPECT_EQ(free_uci_config(UCI_CONFIG_WIRELESS), 0);
    EXPECT_EQ(radio0().ptr.section, name);
}

// Another file can come to stand where the session's own was, with a section of the same name.
TEST_F(UciSessionTest, TakesNoOtherFileForItsOwn) {
    write_file("/etc/config/network", "config interface 'lan'\n\toption proto 'static'\n");
    write_file("/etc/config/dhcp", "config dhcp 'lan'\n\toption proto 'other'\n");
    for (int round = 0; round < 20; round++) {
        uci_config_ctx lan = session_on(UCI_CONFIG_NETWORK, "lan");
        EXPECT_EQ(free_uci_config(UCI_CONFIG_NETWORK), 0);
        uci_config_ctx other = session_on(UCI_CONFIG_DHCP, "lan");
        // As the allocator may have it.
        lan.ctx = other.ctx;
        EXPECT_EQ(get_uci_config(&lan, "proto"), nullptr);
        EXPECT_EQ(set_uci_config(&lan, "proto", "x"), -1);
        EXPECT_EQ(text(get_uci_config(&other, "proto")), "other");
        EXPECT_EQ(free_uci_config(UCI_CONFIG_DHCP), 0);
    }
}

TEST_F(UciSessionTest, WorksOnAPackageThatTheCallerHasLoaded) {
    write_file("/tmp/own/mine", "config thing 'it'\n\toption a '1'\n\tlist l 'x'\n");
    uci_context* context = uci_alloc_context();
    uci_package* package = nullptr;
    ASSERT_EQ(uci_set_confdir(context, "/tmp/own"), UCI_OK);
    ASSERT_EQ(uci_load(context, "mine", &package), UCI_OK);
    const char* const names[] = {nullptr, "mine", package->e.name};
    for (const char* name : names) {
        uci_config_ctx session{};
        session.ctx = context;
        session.pkg = session.ptr.p = package;
        session.ptr.package = name;
        EXPECT_EQ(get_uci_config(&session, "a"), nullptr);
        EXPECT_THAT(log_.take(),
                    ElementsAre(Error("get_uci_config", "incomplete param, uctx->ptr.s:nil\n")));
        session.ptr.s = uci_lookup_section(context, package, "it");
        EXPECT_EQ(text(get_uci_config(&session, "a")), "1");
        EXPECT_EQ(set_uci_config(&session, "a", "2"), 0);
        EXPECT_EQ(set_uci_config(&session, "a", "1"), 0);
        EXPECT_EQ(add_uci_list(&session, "l", "y"), 0);
        EXPECT_THAT(items(uci_lookup_option_list(&session, "l")), ElementsAre("x", "y"));
        EXPECT_EQ(del_uci_list(&session, "l", "y"), 0);
        EXPECT_EQ(del_uci_config(&session, "nothing"), 1);
        // Also with all of the library's own files loaded.
        for (int id = 0; id < UCI_CONFIG_ALL; id++)
            EXPECT_EQ(load_uci_config(id, nullptr), 0);
        log_.take();
    }
    uci_free_context(context);
}

// libuci refuses what it is asked without a context.
TEST_F(UciSessionTest, DoesNothingWithoutAContext) {
    uci_config_ctx session = radio0();
    session.ctx = nullptr;
    session.ptr.package = nullptr;
    for (int last : {UCI_CONFIG_WIRELESS, UCI_CONFIG_ORDERCFG}) {
        for (int id = 0; id <= last; id++)
            EXPECT_EQ(load_uci_config(id, nullptr), 0);
        EXPECT_EQ(get_uci_config(&session, "channel"), nullptr);
        EXPECT_EQ(set_uci_config(&session, "channel", "11"), -1);
        EXPECT_EQ(log_.take().size(), 2U);
        EXPECT_EQ(staged("wireless"), "");
    }
}

TEST_F(UciSessionTest, FollowsACallerThatLooksASectionUp) {
    uci_config_ctx session = radio0();
    char path[] = "wireless.radio1";
    ASSERT_EQ(uci_lookup_ptr(session.ctx, &session.ptr, path, true), UCI_OK);
    ASSERT_NE(session.ptr.package, get_uci_entry_by_name("wireless")->file);
    EXPECT_EQ(text(get_uci_config(&session, "channel")), "149");
    EXPECT_EQ(set_uci_config(&session, "channel", "36"), 0);
    EXPECT_EQ(save_uci_config(UCI_CONFIG_WIRELESS, nullptr, 0), 0);
    EXPECT_EQ(text(get_uci_config(&session, "channel")), "36");
    EXPECT_EQ(free_uci_config(UCI_CONFIG_WIRELESS), 0);
    EXPECT_EQ(get_uci_config(&session, "channel"), nullptr);
}

// libuci's look-up by place gives the name in the package, which a save replaces; the one by name
// gives the caller's own text, and the one of an option says nothing of the section.
TEST_F(UciSessionTest, KeepsASectionThatACallerHasLookedUp) {
    for (const char* text_of_path :
         {"wireless.radio1", "wireless.@wifi-device[1]", "wireless.radio1.channel"}) {
        SCOPED_TRACE(text_of_path);
        uci_config_ctx session = radio0();
        std::string path = text_of_path;
        ASSERT_EQ(uci_lookup_ptr(session.ctx, &session.ptr, path.data(), true), UCI_OK);
        EXPECT_EQ(set_uci_config(&session, "fresh", text_of_path), 0);
        path.assign(path.size(), 'x');
        for (const char* value : {"36", "40"}) {
            EXPECT_EQ(save_uci_config(UCI_CONFIG_WIRELESS, nullptr, 0), 0);
            ASSERT_EQ(set_uci_config(&session, "channel", value), 0);
            EXPECT_STREQ(session.ptr.s->e.name, "radio1");
        }
        EXPECT_EQ(free_uci_config(UCI_CONFIG_ALL), 0);
    }
}

// Unless the new package came to be where the old one was.
TEST_F(UciSessionTest, EndsWithALookUpThatASaveHasEnded) {
    uci_config_ctx session = radio0();
    char path[] = "wireless.@wifi-device[1]";
    ASSERT_EQ(uci_lookup_ptr(session.ctx, &session.ptr, path, true), UCI_OK);
    EXPECT_EQ(set_uci_option(session.ctx, "wireless.radio1.channel=36"), 0);
    EXPECT_EQ(save_uci_config(UCI_CONFIG_WIRELESS, nullptr, 0), 0);
    EXPECT_THAT(text(get_uci_config(&session, "channel")), AnyOf("(null)", "36"));
}

TEST_F(UciSessionTest, TakesAnotherFileInItsContextForThatFile) {
    write_file("/etc/config/dhcp", "config dhcp 'lan'\n\toption a '1'\n");
    write_file("/etc/config/network", "config interface 'lan'\n\toption a '2'\n");
    uci_config_ctx session{};
    ASSERT_EQ(load_named_section(UCI_CONFIG_DHCP, &session, "lan"), 0);
    char path[] = "network.lan";
    ASSERT_EQ(uci_lookup_ptr(session.ctx, &session.ptr, path, false), UCI_OK);
    EXPECT_EQ(text(get_uci_config(&session, "a")), "2");
    EXPECT_EQ(set_uci_config(&session, "a", "3"), 0);
    EXPECT_EQ(staged("dhcp"), "");
    EXPECT_EQ(staged("network"), "network.lan.a='3'\n");
}

// get_uci_config

class GetUciConfig : public UciSessionTest {};

TEST_F(GetUciConfig, ReadsEveryOptionOfTheDeviceAsTheFileHasIt) {
    int read = 0;
    for (int id = 0; id < UCI_CONFIG_ALL; id++) {
        uci_config_ctx session = garbage();
        ASSERT_EQ(load_uci_config(id, &session), 0);
        uci_element* section = nullptr;
        uci_foreach_element(&session.pkg->sections, section) {
            session.ptr.s = uci_to_section(section);
            uci_element* option = nullptr;
            uci_foreach_element(&session.ptr.s->options, option) {
                if (uci_to_option(option)->type != UCI_TYPE_STRING) continue;
                // The package's own text, not a copy of it.
                EXPECT_EQ(static_cast<const void*>(get_uci_config(&session, option->name)),
                          uci_to_option(option)->v.string);
                read++;
            }
        }
    }
    EXPECT_GT(read, 400);
    expect_silence();
}

TEST_F(GetUciConfig, ReadsWhatTheUciCommandReads) {
    uci_config_ctx session = session_on(UCI_CONFIG_WIRELESS, "voice_radio1");
    for (const char* option : {"ssid", "key", "encryption", "aes"}) {
        EXPECT_EQ(text(get_uci_config(&session, option)) + "\n",
                  seen_by_uci("wireless.voice_radio1." + std::string(option)));
    }
    session = session_on(UCI_CONFIG_TROUBLESHOOT, "support");
    EXPECT_EQ(text(get_uci_config(&session, "banner")),
              "Call the desk first.\nQuote the serial number.");
}

TEST_F(GetUciConfig, NoticesAnOptionThatIsMissing) {
    uci_config_ctx session = radio0();
    for (const char* option : {"nothing", "", "Channel", "channel ", "%s"}) {
        EXPECT_EQ(get_uci_config(&session, option), nullptr);
        EXPECT_THAT(log_.take(), ElementsAre(Line(LOG_NOTICE, "get_uci_config",
                                                  "get uci config option '" + std::string(option) +
                                                      "' failed\n")));
    }
}

TEST_F(GetUciConfig, NoticesAList) {
    uci_config_ctx session = radio0();
    EXPECT_EQ(get_uci_config(&session, "basic_rate"), nullptr);
    EXPECT_THAT(log_.take(), ElementsAre(Line(LOG_NOTICE, "get_uci_config",
                                              "get uci config option 'basic_rate' failed\n")));
}

TEST_F(GetUciConfig, FollowsACallerToAnotherSection) {
    uci_config_ctx session = radio0();
    session.ptr.s = uci_lookup_section(session.ctx, session.pkg, "radio1");
    EXPECT_EQ(text(get_uci_config(&session, "channel")), "149");
    EXPECT_EQ(set_uci_config(&session, "channel", "36"), 0);
    EXPECT_EQ(staged("wireless"), "wireless.radio1.channel='36'\n");
    EXPECT_EQ(del_uci_config(&session, "country"), 0);
    EXPECT_EQ(add_uci_list(&session, "basic_rate", "54000"), 0);
    EXPECT_EQ(save_uci_config(UCI_CONFIG_WIRELESS, nullptr, 0), 0);
    EXPECT_EQ(seen_by_uci("wireless.radio0.country"), "US\n");
    EXPECT_EQ(seen_by_uci("wireless.radio1.country"), "");
    EXPECT_EQ(seen_by_uci("wireless.radio1.basic_rate"), "6000 12000 24000 54000\n");
    // Nobody has kept that section's name, and it was not the one that was selected.
    EXPECT_EQ(get_uci_config(&session, "channel"), nullptr);
    EXPECT_EQ(set_uci_config(&session, "channel", "40"), -1);
    EXPECT_EQ(staged("wireless"), "");
}

TEST_F(GetUciConfig, AllocatesNothingAndCallsNothing) {
    uci_config_ctx session = session_on(UCI_CONFIG_WIRELESS, "test_radio1");
    faults::reset();
    EXPECT_EQ(text(get_uci_config(&session, "ssid")), "Branch=Test.1");
    for (const char* call :
         {"malloc", "calloc", "realloc", "strdup", "open",    "openat", "read",  "write",
          "close",  "fopen",  "fdopen",  "fread",  "fwrite",  "flock",  "fcntl", "ioctl",
          "lseek",  "system", "popen",   "socket", "connect", "send",   "sendto"}) {
        // The test's own strings are allocated by the C++ library, which calls malloc as well.
        if (std::string(call) == "malloc") continue;
        EXPECT_EQ(faults::count(call), 0U) << call;
    }
    faults::reset();
    const char* value = get_uci_config(&session, "ssid");
    const unsigned allocations = faults::count("malloc");
    EXPECT_STREQ(value, "Branch=Test.1");
    EXPECT_EQ(allocations, 0U);
}

// A process in strict mode that makes any other system call than the end of a thread is killed.
TEST_F(GetUciConfig, MakesNoSystemCall) {
    uci_config_ctx session = session_on(UCI_CONFIG_WIRELESS, "test_radio1");
    EXPECT_EQ(text(get_uci_config(&session, "ssid")), "Branch=Test.1");
    const auto in_strict_mode = [](const std::function<bool()>& body) {
        const pid_t child = fork();
        if (child == 0) {
            if (prctl(PR_SET_SECCOMP, SECCOMP_MODE_STRICT) != 0) _exit(2);
            syscall(SYS_exit, body() ? 0 : 1);
        }
        int status = 0;
        waitpid(child, &status, 0);
        return WIFSIGNALED(status) ? 128 + WTERMSIG(status) : WEXITSTATUS(status);
    };
    if (in_strict_mode([] { return access("/", F_OK) == 0; }) != 128 + SIGKILL)
        GTEST_SKIP() << "this machine does not watch system calls";
    EXPECT_EQ(in_strict_mode([&session] {
                  bool right = true;
                  for (int i = 0; i < 1000; i++) {
                      const char* ssid = get_uci_config(&session, "ssid");
                      right = right && ssid && strcmp(ssid, "Branch=Test.1") == 0;
                  }
                  return right;
              }),
              0);
}

// set_uci_config

class SetUciConfig : public UciSessionTest {};

TEST_F(SetUciConfig, ChangesAnOptionAndStagesItAtOnce) {
    uci_config_ctx session = radio0();
    EXPECT_EQ(set_uci_config(&session, "channel", "11"), 0);
    EXPECT_THAT(log_.take(),
                ElementsAre(Debug("set_uci_config",
                                  "change uci value '11' for option 'channel' success\n")));
    EXPECT_EQ(text(get_uci_config(&session, "channel")), "11");
    EXPECT_EQ(staged("wireless"), "wireless.radio0.channel='11'\n");
    EXPECT_EQ(stored("wireless"), wireless_);
    EXPECT_EQ(seen_by_uci("wireless.radio0.channel"), "11\n");
    EXPECT_EQ(uci("changes").out, "wireless.radio0.channel='11'\n");

    EXPECT_EQ(save_uci_config(UCI_CONFIG_WIRELESS, nullptr, 0), 0);
    EXPECT_EQ(staged("wireless"), "");
    EXPECT_EQ(stored("wireless"), replaced(wireless_, "channel '6'", "channel '11'"));
    EXPECT_EQ(seen_by_uci("wireless.radio0.channel"), "11\n");
    EXPECT_EQ(uci("changes").out, "");
}

TEST_F(SetUciConfig, CreatesAnOptionThatIsMissing) {
    uci_config_ctx session = session_on(UCI_CONFIG_NAT, "global");
    const std::string before = stored("nat");
    EXPECT_EQ(set_uci_config(&session, "timeout", "300"), 0);
    EXPECT_THAT(
        log_.take(),
        ElementsAre(Debug("set_uci_config", "add uci value '300' for option 'timeout' success\n")));
    EXPECT_EQ(staged("nat"), "nat.global.timeout='300'\n");
    EXPECT_EQ(stored("nat"), before);
    EXPECT_EQ(save_uci_config(UCI_CONFIG_NAT, nullptr, 0), 0);
    EXPECT_EQ(stored("nat"),
              replaced(before, "type 'napt'\n", "type 'napt'\n\toption timeout '300'\n"));
}

TEST_F(SetUciConfig, LeavesAnEqualValueAlone) {
    uci_config_ctx session = radio0();
    EXPECT_EQ(set_uci_config(&session, "channel", "6"), 1);
    EXPECT_THAT(
        log_.take(),
        ElementsAre(Debug("set_uci_config", "uci value '6' of option 'channel' is no change\n")));
    EXPECT_FALSE(exists("/tmp/.uci/wireless"));
    faults::reset();
    EXPECT_EQ(set_uci_config(&session, "channel", "6"), 1);
    EXPECT_EQ(faults::count("open"), 0U);
}

TEST_F(SetUciConfig, AddsAnItemToAList) {
    uci_config_ctx session = session_on(UCI_CONFIG_DHCP, "lan");
    const std::string before = stored("dhcp");
    EXPECT_EQ(set_uci_config(&session, "dhcp_option", "3,192.168.1.254"), 0);
    EXPECT_THAT(log_.take(), ElementsAre(Debug("set_uci_config",
                                               "add uci value '3,192.168.1.254' for option "
                                               "'dhcp_option' success\n")));
    EXPECT_THAT(items(uci_lookup_option_list(&session, "dhcp_option")),
                ElementsAre("6,192.168.1.1", "42,192.168.1.1", "3,192.168.1.254"));
    EXPECT_EQ(staged("dhcp"), "|dhcp.lan.dhcp_option='3,192.168.1.254'\n");
    EXPECT_EQ(stored("dhcp"), before);
    EXPECT_EQ(save_uci_config(UCI_CONFIG_DHCP, nullptr, 0), 0);
    EXPECT_EQ(stored("dhcp"), replaced(before, "'42,192.168.1.1'\n",
                                       "'42,192.168.1.1'\n\tlist dhcp_option '3,192.168.1.254'\n"));
}

TEST_F(SetUciConfig, AddsAnItemThatTheListHasAlready) {
    uci_config_ctx session = session_on(UCI_CONFIG_DHCP, "lan");
    EXPECT_EQ(set_uci_config(&session, "dhcp_option", "6,192.168.1.1"), 0);
    EXPECT_EQ(seen_by_uci("dhcp.lan.dhcp_option"), "6,192.168.1.1 42,192.168.1.1 6,192.168.1.1\n");
}

TEST_F(SetUciConfig, WritesASectionWithoutAName) {
    uci_config_ctx session = garbage();
    ASSERT_EQ(load_unnamed_section(UCI_CONFIG_SYSTEM, &session, "system"), 0);
    const std::string before = stored("system");
    EXPECT_EQ(set_uci_config(&session, "hostname", "attic"), 0);
    EXPECT_EQ(seen_by_uci("system.@system[0].hostname"), "attic\n");
    EXPECT_EQ(save_uci_config(UCI_CONFIG_SYSTEM, nullptr, 0), 0);
    EXPECT_EQ(stored("system"), replaced(before, "'tq-ap'", "'attic'"));
}

TEST_F(SetUciConfig, KeepsEveryTextByteForByte) {
    std::string every_byte;
    for (int byte = 0x20; byte < 0x100; byte++)
        every_byte += static_cast<char>(byte);
    const std::string values[] = {"it's",
                                  "\"quoted\"",
                                  "a\nb\n",
                                  "\n",
                                  "'",
                                  "''",
                                  "\\",
                                  "a\\",
                                  "# no",
                                  "x=y.z[0]",
                                  " ",
                                  "\t\r\n",
                                  "%s%n",
                                  "$(reboot)",
                                  "`id`;",
                                  every_byte,
                                  "a\n'b\n\"c",
                                  std::string(65536, 'v'),
                                  std::string(65536, '\'')};
    for (const std::string& value : values) {
        SCOPED_TRACE(value.substr(0, 40));
        uci_config_ctx session = session_on(UCI_CONFIG_TROUBLESHOOT, "support");
        ASSERT_EQ(set_uci_config(&session, "banner", value.c_str()), 0);
        EXPECT_EQ(text(get_uci_config(&session, "banner")), value);
        EXPECT_EQ(seen_by_uci("troubleshoot.support.banner"), value + "\n");
        EXPECT_EQ(save_uci_config(UCI_CONFIG_TROUBLESHOOT, nullptr, 0), 0);
        EXPECT_EQ(staged("troubleshoot"), "");
        EXPECT_EQ(text(get_uci_config(&session, "banner")), value);
        EXPECT_EQ(seen_by_uci("troubleshoot.support.banner"), value + "\n");
        // Nothing else has moved.
        EXPECT_EQ(seen_by_uci("troubleshoot.support.host"), "support.example.net\n");
        EXPECT_EQ(free_uci_config(UCI_CONFIG_TROUBLESHOOT), 0);
    }
}

TEST_F(SetUciConfig, RefusesWhatNoFileCanHold) {
    uci_config_ctx session = radio0();
    for (const std::string value :
         {"\x01", "a\x1b[0m", "\x08", "\x0b", "\x0c", "\x0e", "tail\x1f"}) {
        EXPECT_EQ(set_uci_config(&session, "channel", value.c_str()), -1);
        EXPECT_EQ(set_uci_config(&session, "fresh", value.c_str()), -1);
        EXPECT_EQ(set_uci_config(&session, "basic_rate", value.c_str()), -1);
        const std::string start = "uci value '" + value + "' for option '";
        std::vector<LogLine> lines = log_.take();
        ASSERT_EQ(lines.size(), 3U);
        EXPECT_EQ(lines[0].priority, LOG_ERR);
        EXPECT_THAT(lines[0].text, testing::StartsWith("change uci value '"));
        EXPECT_THAT(lines[1].text, testing::StartsWith("create uci value '"));
        EXPECT_THAT(lines[2].text, testing::StartsWith("add uci value '"));
    }
    EXPECT_EQ(text(get_uci_config(&session, "channel")), "6");
    EXPECT_FALSE(exists("/tmp/.uci/wireless"));
}

TEST_F(SetUciConfig, RefusesAnOptionsNameThatNoFileCanHold) {
    uci_config_ctx session = radio0();
    for (const std::string option :
         {"", "a b", "a-b", "a.b", "a=b", "a'b", "a\nb", "a{b", "\xc3\xa9"}) {
        EXPECT_EQ(set_uci_config(&session, option.c_str(), "1"), -1);
        EXPECT_THAT(log_.take(),
                    ElementsAre(Error("set_uci_config", "create uci value '1' for option '" +
                                                            option + "' failed\n")));
        EXPECT_EQ(add_uci_list(&session, option.c_str(), "1"), -1);
        EXPECT_THAT(log_.take(),
                    ElementsAre(Error("add_uci_list",
                                      "add uci value '1' for option '" + option + "' failed\n")));
    }
    EXPECT_EQ(set_uci_config(&session, "_aZ09", "1"), 0);
    EXPECT_EQ(staged("wireless"), "wireless.radio0._aZ09='1'\n");
}

TEST_F(SetUciConfig, SaysWhatLibuciRefuses) {
    uci_config_ctx session = radio0();
    const auto fails_with = [&](const char* call, const char* option, const std::string& line) {
        const CallFails fail(call, UCI_ERR_MEM);
        EXPECT_EQ(set_uci_config(&session, option, "7"), -1);
        EXPECT_THAT(log_.take(), ElementsAre(Error("set_uci_config", line)));
    };
    fails_with("uci_set", "channel", "change uci value '7' for option 'channel' failed\n");
    fails_with("uci_set", "fresh", "create uci value '7' for option 'fresh' failed\n");
    fails_with("uci_add_list", "basic_rate", "add uci value '7' for option 'basic_rate' failed\n");
    EXPECT_FALSE(exists("/tmp/.uci/wireless"));
}

TEST_F(SetUciConfig, KeepsWhatItCannotStageForTheNextAttempt) {
    uci_config_ctx session = radio0();
    {
        const ReadOnly locked("/tmp");
        EXPECT_EQ(set_uci_config(&session, "channel", "11"), -1);
        EXPECT_THAT(log_.take(),
                    ElementsAre(Error("set_uci_config",
                                      "change uci value '11' for option 'channel' failed\n")));
        EXPECT_EQ(text(get_uci_config(&session, "channel")), "11");
        EXPECT_EQ(set_uci_config(&session, "basic_rate", "7"), -1);
        EXPECT_EQ(set_uci_config(&session, "fresh", "7"), -1);
    }
    EXPECT_EQ(staged("wireless"), "");
    EXPECT_EQ(save_uci_config(UCI_CONFIG_WIRELESS, nullptr, 0), 0);
    EXPECT_EQ(seen_by_uci("wireless.radio0.channel"), "11\n");
    EXPECT_EQ(seen_by_uci("wireless.radio0.fresh"), "7\n");
    EXPECT_THAT(stored("wireless"),
                HasSubstr("\tlist basic_rate '11000'\n\tlist basic_rate '7'\n"));
}

TEST_F(SetUciConfig, StagesBesideWhatAnotherProcessHasStaged) {
    uci_config_ctx session = radio0();
    EXPECT_EQ(uci("set wireless.radio1.channel=44").status, 0);
    EXPECT_EQ(set_uci_config(&session, "channel", "11"), 0);
    EXPECT_EQ(staged("wireless"), "wireless.radio1.channel='44'\nwireless.radio0.channel='11'\n");
    EXPECT_EQ(save_uci_config(UCI_CONFIG_WIRELESS, nullptr, 0), 0);
    EXPECT_EQ(stored("wireless"), replaced(replaced(wireless_, "channel '6'", "channel '11'"),
                                           "channel '149'", "channel '44'"));
}

// del_uci_config

class DelUciConfig : public UciSessionTest {};

TEST_F(DelUciConfig, DeletesAnOptionWithTheNextSave) {
    uci_config_ctx session = radio0();
    EXPECT_EQ(del_uci_config(&session, "beacon_int"), 0);
    EXPECT_THAT(log_.take(),
                ElementsAre(Debug("del_uci_config", "uci del 'beacon_int' success\n")));
    EXPECT_EQ(get_uci_config(&session, "beacon_int"), nullptr);
    EXPECT_FALSE(exists("/tmp/.uci/wireless"));
    EXPECT_EQ(seen_by_uci("wireless.radio0.beacon_int"), "100\n");

    EXPECT_EQ(save_uci_config(UCI_CONFIG_WIRELESS, nullptr, 0), 0);
    EXPECT_EQ(staged("wireless"), "");
    EXPECT_EQ(stored("wireless"), replaced(wireless_, "\toption beacon_int '100'\n", ""));
    EXPECT_EQ(seen_by_uci("wireless.radio0.beacon_int"), "");
}

TEST_F(DelUciConfig, DeletesAListAtOnce) {
    uci_config_ctx session = radio0();
    EXPECT_EQ(del_uci_config(&session, "basic_rate"), 0);
    EXPECT_EQ(uci_lookup_option_list(&session, "basic_rate"), nullptr);
    EXPECT_EQ(save_uci_config(UCI_CONFIG_WIRELESS, nullptr, 0), 0);
    EXPECT_EQ(seen_by_uci("wireless.radio0.basic_rate"), "");
    EXPECT_NE(seen_by_uci("wireless.radio1.basic_rate"), "");
}

TEST_F(DelUciConfig, IsStagedByTheNextSet) {
    uci_config_ctx session = radio0();
    EXPECT_EQ(del_uci_config(&session, "beacon_int"), 0);
    EXPECT_EQ(set_uci_config(&session, "channel", "11"), 0);
    EXPECT_EQ(staged("wireless"), "-wireless.radio0.beacon_int\nwireless.radio0.channel='11'\n");
}

TEST_F(DelUciConfig, SaysThatAnOptionIsAbsent) {
    uci_config_ctx session = radio0();
    EXPECT_EQ(del_uci_config(&session, "nothing"), 1);
    EXPECT_THAT(log_.take(), ElementsAre(Debug("del_uci_config", "no such option 'nothing'\n")));
}

TEST_F(DelUciConfig, ReturnsLibucisCodeAndTracesTheAttemptAllTheSame) {
    uci_config_ctx session = radio0();
    const CallFails fail("uci_delete", UCI_ERR_DUPLICATE);
    EXPECT_EQ(del_uci_config(&session, "channel"), UCI_ERR_DUPLICATE);
    EXPECT_THAT(log_.take(), ElementsAre(Error("del_uci_config", "uci del 'channel' fail\n"),
                                         Debug("del_uci_config", "uci del 'channel' success\n")));
    EXPECT_EQ(text(get_uci_config(&session, "channel")), "6");
}

// uci_lookup_option_list, add_uci_list, del_uci_list

class SessionList : public UciSessionTest {};

TEST_F(SessionList, IsFoundWithItsItems) {
    uci_config_ctx session = radio0();
    EXPECT_THAT(items(uci_lookup_option_list(&session, "basic_rate")),
                ElementsAre("1000", "2000", "5500", "11000"));
    EXPECT_EQ(uci_lookup_option_list(&session, "channel"), nullptr);
    EXPECT_EQ(uci_lookup_option_list(&session, "nothing"), nullptr);
    expect_silence();
}

TEST_F(SessionList, GrowsByANewItemWithTheNextSave) {
    uci_config_ctx session = radio0();
    EXPECT_EQ(add_uci_list(&session, "basic_rate", "6000"), 0);
    EXPECT_THAT(items(uci_lookup_option_list(&session, "basic_rate")),
                ElementsAre("1000", "2000", "5500", "11000", "6000"));
    EXPECT_FALSE(exists("/tmp/.uci/wireless"));
    EXPECT_EQ(seen_by_uci("wireless.radio0.basic_rate"), "1000 2000 5500 11000\n");
    EXPECT_EQ(save_uci_config(UCI_CONFIG_WIRELESS, nullptr, 0), 0);
    EXPECT_EQ(stored("wireless"), replaced(wireless_, "basic_rate '11000'\n",
                                           "basic_rate '11000'\n\tlist basic_rate '6000'\n"));
    EXPECT_EQ(seen_by_uci("wireless.radio0.basic_rate"), "1000 2000 5500 11000 6000\n");
    expect_silence();
}

TEST_F(SessionList, HasAnItemAlready) {
    uci_config_ctx session = radio0();
    for (const char* rate : {"1000", "5500", "11000"})
        EXPECT_EQ(add_uci_list(&session, "basic_rate", rate), 1);
    EXPECT_EQ(save_uci_config(UCI_CONFIG_WIRELESS, nullptr, 0), 0);
    EXPECT_EQ(stored("wireless"), wireless_);
    expect_silence();
}

TEST_F(SessionList, IsCreatedWhereItIsMissing) {
    uci_config_ctx session = radio0();
    EXPECT_EQ(add_uci_list(&session, "fresh", "it's one"), 0);
    EXPECT_EQ(add_uci_list(&session, "fresh", "two"), 0);
    EXPECT_EQ(save_uci_config(UCI_CONFIG_WIRELESS, nullptr, 0), 0);
    EXPECT_THAT(stored("wireless"), HasSubstr("\tlist fresh 'it'\\''s one'\n\tlist fresh 'two'\n"));
}

TEST_F(SessionList, IsMadeOfAnOptionAndANewItem) {
    uci_config_ctx session = radio0();
    EXPECT_EQ(add_uci_list(&session, "channel", "6"), 0);
    EXPECT_THAT(items(uci_lookup_option_list(&session, "channel")), ElementsAre("6", "6"));
    EXPECT_EQ(save_uci_config(UCI_CONFIG_WIRELESS, nullptr, 0), 0);
    EXPECT_THAT(stored("wireless"), HasSubstr("\tlist channel '6'\n\tlist channel '6'\n"));
}

TEST_F(SessionList, ShrinksByEveryEqualItemWithTheNextSave) {
    uci_config_ctx session = radio0();
    EXPECT_EQ(set_uci_config(&session, "basic_rate", "2000"), 0);
    EXPECT_EQ(save_uci_config(UCI_CONFIG_WIRELESS, nullptr, 0), 0);
    log_.take();
    EXPECT_EQ(del_uci_list(&session, "basic_rate", "2000"), 0);
    EXPECT_THAT(items(uci_lookup_option_list(&session, "basic_rate")),
                ElementsAre("1000", "5500", "11000"));
    EXPECT_EQ(staged("wireless"), "");
    EXPECT_EQ(seen_by_uci("wireless.radio0.basic_rate"), "1000 2000 5500 11000 2000\n");
    EXPECT_EQ(save_uci_config(UCI_CONFIG_WIRELESS, nullptr, 0), 0);
    EXPECT_EQ(stored("wireless"), replaced(wireless_, "\tlist basic_rate '2000'\n", ""));
    expect_silence();
}

TEST_F(SessionList, LacksAnItem) {
    uci_config_ctx session = radio0();
    EXPECT_EQ(del_uci_list(&session, "basic_rate", "100"), 1);
    EXPECT_EQ(del_uci_list(&session, "channel", "6"), 1);
    EXPECT_EQ(del_uci_list(&session, "nothing", "6"), 1);
    EXPECT_EQ(save_uci_config(UCI_CONFIG_WIRELESS, nullptr, 0), 0);
    EXPECT_EQ(stored("wireless"), wireless_);
    expect_silence();
}

TEST_F(SessionList, CanBeEmptiedAndFilledAgain) {
    uci_config_ctx session = radio0();
    for (const char* rate : {"1000", "2000", "5500", "11000"})
        EXPECT_EQ(del_uci_list(&session, "basic_rate", rate), 0);
    EXPECT_THAT(items(uci_lookup_option_list(&session, "basic_rate")), IsEmpty());
    EXPECT_EQ(get_uci_config(&session, "basic_rate"), nullptr);
    EXPECT_EQ(del_uci_list(&session, "basic_rate", "1000"), 1);
    EXPECT_EQ(add_uci_list(&session, "basic_rate", "54000"), 0);
    EXPECT_EQ(save_uci_config(UCI_CONFIG_WIRELESS, nullptr, 0), 0);
    EXPECT_EQ(seen_by_uci("wireless.radio0.basic_rate"), "54000\n");
}

TEST_F(SessionList, ReturnsLibucisCode) {
    uci_config_ctx session = radio0();
    {
        const CallFails fail("uci_add_list", UCI_ERR_MEM);
        EXPECT_EQ(add_uci_list(&session, "basic_rate", "7"), UCI_ERR_MEM);
    }
    {
        const CallFails fail("uci_del_list", UCI_ERR_INVAL);
        EXPECT_EQ(del_uci_list(&session, "basic_rate", "1000"), UCI_ERR_INVAL);
    }
    EXPECT_THAT(
        log_.take(),
        ElementsAre(Error("add_uci_list", "add uci value '7' for option 'basic_rate' failed\n"),
                    Error("del_uci_list", "uci del 'basic_rate' fail\n")));
}

TEST_F(SessionList, RefusesAnItemThatNoFileCanHold) {
    uci_config_ctx session = radio0();
    EXPECT_EQ(add_uci_list(&session, "basic_rate", "a\x01"), -1);
    EXPECT_EQ(log_.take().size(), 1U);
    EXPECT_EQ(save_uci_config(UCI_CONFIG_WIRELESS, nullptr, 0), 0);
    EXPECT_EQ(stored("wireless"), wireless_);
}

// A caller that goes through a section has names and values at hand that the change itself frees.

TEST_F(UciSessionTest, SetsAnOptionToAPartOfItsOwnValue) {
    uci_config_ctx session = radio0();
    EXPECT_EQ(set_uci_config(&session, "RTSThreshold", "2000"), 0);
    log_.take();
    const uci_option* option = uci_lookup_option(session.ctx, session.ptr.s, "RTSThreshold");
    EXPECT_EQ(set_uci_config(&session, option->e.name, option->v.string + 1), 0);
    EXPECT_EQ(text(get_uci_config(&session, "RTSThreshold")), "000");
    EXPECT_THAT(log_.take(),
                ElementsAre(Debug("set_uci_config",
                                  "change uci value '000' for option 'RTSThreshold' success\n")));
}

TEST_F(UciSessionTest, NamesTheValueThatCouldNotBeStagedWhereItWasTheOptionsOwn) {
    mallopt(M_PERTURB, 0xff);  // what is freed does not stay as it was
    uci_config_ctx session = radio0();
    EXPECT_EQ(set_uci_config(&session, "RTSThreshold", "2000"), 0);
    log_.take();
    const uci_option* option = uci_lookup_option(session.ctx, session.ptr.s, "RTSThreshold");
    {
        const CallFails fail("uci_save");
        EXPECT_EQ(set_uci_config(&session, option->e.name, option->v.string + 1), -1);
    }
    EXPECT_THAT(log_.take(),
                ElementsAre(Error("set_uci_config",
                                  "change uci value '000' for option 'RTSThreshold' failed\n")));
    mallopt(M_PERTURB, 0);
}

TEST_F(UciSessionTest, DeletesOptionsByTheirOwnNames) {
    mallopt(M_PERTURB, 0xff);  // what is freed does not stay as it was
    uci_config_ctx session = radio0();
    uci_element *option = nullptr, *next = nullptr;
    uci_foreach_element_safe(&session.ptr.s->options, next, option) {
        const std::string name = option->name;
        EXPECT_EQ(del_uci_config(&session, option->name), 0);
        EXPECT_THAT(log_.take(),
                    ElementsAre(Debug("del_uci_config", "uci del '" + name + "' success\n")));
    }
    EXPECT_TRUE(uci_list_empty(&session.ptr.s->options));
    mallopt(M_PERTURB, 0);
}

TEST_F(UciSessionTest, DeletesItemsByTheirOwnTexts) {
    uci_config_ctx session = radio0();
    uci_list* rates = uci_lookup_option_list(&session, "basic_rate");
    uci_element *rate = nullptr, *next = nullptr;
    uci_foreach_element_safe(rates, next, rate) {
        EXPECT_EQ(del_uci_list(&session, "basic_rate", rate->name), 0);
    }
    EXPECT_THAT(items(rates), IsEmpty());
    expect_silence();
}

// save_uci_config

// What stands first on the PATH writes down how it was called, and then is the device's uci.
class SaveUciConfig : public UciSessionTest {
  protected:
    SaveUciConfig() : path_(getenv("PATH")) {
        write_file("/tmp/recorder/uci", "#!/bin/sh\necho \"uci $*\" >>/tmp/recorder/calls\nPATH='" +
                                            path_ + "' exec uci \"$@\"\n");
        run_command("chmod 755 /tmp/recorder/uci");
        setenv("PATH", ("/tmp/recorder:" + path_).c_str(), 1);
    }
    ~SaveUciConfig() override { setenv("PATH", path_.c_str(), 1); }
    SaveUciConfig(const SaveUciConfig&) = delete;
    SaveUciConfig& operator=(const SaveUciConfig&) = delete;

    static std::string commands() {
        const char* calls = "/tmp/recorder/calls";
        return exists(calls) ? read_file(calls) : "";
    }

    // An unsaved change in each of these files.
    static void change_some() {
        uci_config_ctx session = session_on(UCI_CONFIG_NETWORK, "lan");
        EXPECT_EQ(set_uci_config(&session, "mtu", "1400"), 0);
        session = radio0();
        EXPECT_EQ(del_uci_config(&session, "beacon_int"), 0);
        session = session_on(UCI_CONFIG_ORDERCFG, "apply");
        EXPECT_EQ(add_uci_list(&session, "file", "firewall"), 0);
    }

    static void expect_some_changed() {
        EXPECT_EQ(seen_by_uci("network.lan.mtu"), "1400\n");
        EXPECT_EQ(seen_by_uci("wireless.radio0.beacon_int"), "");
        EXPECT_EQ(seen_by_uci("ordercfg.apply.file"), "network dhcp wireless firewall\n");
        EXPECT_EQ(uci("changes").out, "");
    }

  private:
    std::string path_;
};

TEST_F(SaveUciConfig, DoesNothingForAFileThatIsNotLoaded) {
    EXPECT_EQ(uci("set dhcp.lan.start=7").status, 0);
    for (int id = 0; id < UCI_CONFIG_ALL; id++)
        EXPECT_EQ(save_uci_config(id, nullptr, 0), id);
    EXPECT_EQ(staged("dhcp"), "dhcp.lan.start='7'\n");
    EXPECT_EQ(get_uci_entry_by_name("dhcp")->ctx, nullptr);
    expect_silence();
}

TEST_F(SaveUciConfig, Returns16ForAnIdOfNoFile) {
    for (const int id : {17, -1, INT_MAX, INT_MIN})
        EXPECT_EQ(save_uci_config(id, nullptr, 0), 16);
    expect_silence();
}

TEST_F(SaveUciConfig, SavesOneFileAlone) {
    change_some();
    const int flags[16] = {1, 1, 1, 1, 1, 1, 1, 1, 1, 1, 1, 1, 1, 1, 1, 1};
    EXPECT_EQ(save_uci_config(UCI_CONFIG_WIRELESS, flags, 16), 0);
    EXPECT_EQ(stored("wireless"), replaced(wireless_, "\toption beacon_int '100'\n", ""));
    EXPECT_EQ(staged("wireless"), "");
    EXPECT_EQ(staged("network"), "network.lan.mtu='1400'\n");
    EXPECT_FALSE(exists("/tmp/.uci/ordercfg"));
    EXPECT_EQ(commands(), "");
}

TEST_F(SaveUciConfig, SavesEveryLoadedFile) {
    change_some();
    EXPECT_EQ(uci("set dhcp.lan.start=7").status, 0);
    log_.take();
    EXPECT_EQ(save_uci_config(UCI_CONFIG_ALL, nullptr, 16), 16);
    expect_silence();
    EXPECT_EQ(staged("dhcp"), "dhcp.lan.start='7'\n");
    EXPECT_EQ(uci("revert dhcp").status, 0);
    write_file("/tmp/recorder/calls", "");
    expect_some_changed();
    EXPECT_THAT(commands(), Not(HasSubstr("commit2")));
}

TEST_F(SaveUciConfig, RunsCommit2ForLoadedFilesWithAFlag) {
    change_some();
    log_.take();
    std::array<int, 16> flags{};
    flags[UCI_CONFIG_DHCP] = 1;  // not loaded
    flags[UCI_CONFIG_NETWORK] = 1;
    flags[UCI_CONFIG_ORDERCFG] = -1;
    EXPECT_EQ(save_uci_config(UCI_CONFIG_ALL, flags.data(), 16), 16);
    EXPECT_EQ(commands(), "uci commit2 network\nuci commit2 ordercfg\n");
    EXPECT_THAT(log_.take(),
                ElementsAre(Line(LOG_INFO, "save_uci_config", "execute 'uci commit2 network'\n"),
                            Line(LOG_INFO, "save_uci_config", "execute 'uci commit2 ordercfg'\n")));
    expect_some_changed();
}

TEST_F(SaveUciConfig, ReadsAsManyFlagsAsThereAre) {
    change_some();
    const std::vector<int> flags(UCI_CONFIG_WIRELESS, 1);  // one short of the wireless file
    EXPECT_EQ(save_uci_config(UCI_CONFIG_ALL, flags.data(), static_cast<int>(flags.size())), 16);
    EXPECT_EQ(commands(), "uci commit2 network\n");
    EXPECT_EQ(save_uci_config(UCI_CONFIG_ALL, flags.data(), 0), 16);
    EXPECT_EQ(save_uci_config(UCI_CONFIG_ALL, flags.data(), -1), 16);
    EXPECT_EQ(save_uci_config(UCI_CONFIG_ALL, nullptr, 16), 16);
    EXPECT_EQ(commands(), "uci commit2 network\n");
}

TEST_F(SaveUciConfig, RunsCommit2BehindTheCommit) {
    write_file("/tmp/recorder/uci", "#!/bin/sh\ncp /etc/config/\"$2\" /tmp/seen\n");
    uci_config_ctx session = radio0();
    EXPECT_EQ(set_uci_config(&session, "channel", "11"), 0);
    const int flags[] = {0, 0, 0, 0, 1};
    EXPECT_EQ(save_uci_config(UCI_CONFIG_ALL, flags, 5), 16);
    EXPECT_EQ(read_file("/tmp/seen"), replaced(wireless_, "channel '6'", "channel '11'"));
}

TEST_F(SaveUciConfig, RunsTheCommandThatTheDeviceHas) {
    run_command("rm /tmp/recorder/uci");
    uci_config_ctx session = radio0();
    EXPECT_EQ(set_uci_config(&session, "channel", "11"), 0);
    const int flags[] = {0, 0, 0, 0, 1};
    EXPECT_EQ(save_uci_config(UCI_CONFIG_ALL, flags, 5), 16);
    EXPECT_EQ(stored("wireless"), replaced(wireless_, "channel '6'", "channel '11'"));
    EXPECT_EQ(staged("wireless"), "");
}

TEST_F(SaveUciConfig, KeepsWhatAnotherProcessCommittedMeanwhile) {
    uci_config_ctx session = radio0();
    EXPECT_EQ(uci("set wireless.radio1.channel=44 && uci commit wireless").status, 0);
    EXPECT_EQ(uci("add_list wireless.radio0.basic_rate=6000 && uci commit wireless").status, 0);
    EXPECT_EQ(set_uci_config(&session, "channel", "11"), 0);
    EXPECT_EQ(text(get_uci_config(&session, "channel")), "11");
    EXPECT_EQ(save_uci_config(UCI_CONFIG_WIRELESS, nullptr, 0), 0);
    EXPECT_EQ(seen_by_uci("wireless.radio0.channel"), "11\n");
    EXPECT_EQ(seen_by_uci("wireless.radio1.channel"), "44\n");
    EXPECT_EQ(seen_by_uci("wireless.radio0.basic_rate"), "1000 2000 5500 11000 6000\n");
    // And the session has it now.
    EXPECT_THAT(items(uci_lookup_option_list(&session, "basic_rate")),
                ElementsAre("1000", "2000", "5500", "11000", "6000"));
    session = session_on(UCI_CONFIG_WIRELESS, "radio1");
    EXPECT_EQ(text(get_uci_config(&session, "channel")), "44");
}

TEST_F(SaveUciConfig, SavesNothingTwice) {
    uci_config_ctx session = radio0();
    EXPECT_EQ(set_uci_config(&session, "channel", "11"), 0);
    EXPECT_EQ(save_uci_config(UCI_CONFIG_WIRELESS, nullptr, 0), 0);
    EXPECT_EQ(uci("set wireless.radio0.channel=1 && uci commit wireless").status, 0);
    const std::string file = stored("wireless");
    EXPECT_EQ(save_uci_config(UCI_CONFIG_WIRELESS, nullptr, 0), 0);
    EXPECT_EQ(stored("wireless"), file);
    EXPECT_EQ(text(get_uci_config(&session, "channel")), "1");
}

TEST_F(SaveUciConfig, LetsSessionsGoOn) {
    uci_config_ctx radio = radio0();
    uci_config_ctx vap = session_on(UCI_CONFIG_WIRELESS, "cafe_radio1");
    uci_config_ctx unnamed = garbage();
    const char* match[] = {"ifname", "ath11", nullptr};
    ASSERT_EQ(load_specific_section(UCI_CONFIG_WIRELESS, &unnamed, "wifi-iface", match), 0);
    for (int round = 1; round <= 5; round++) {
        const std::string channel = std::to_string(round);
        EXPECT_EQ(set_uci_config(&radio, "channel", channel.c_str()), 0);
        // What comes before the sections moves them to other addresses.
        const std::string longer(static_cast<size_t>(round) * 100, 'x');
        EXPECT_EQ(set_uci_config(&radio, "path", longer.c_str()), 0);
        EXPECT_EQ(save_uci_config(UCI_CONFIG_WIRELESS, nullptr, 0), 0);
        EXPECT_EQ(text(get_uci_config(&radio, "channel")), channel);
        EXPECT_EQ(text(get_uci_config(&radio, "path")), longer);
        EXPECT_EQ(text(get_uci_config(&vap, "ifname")), "ath16");
        EXPECT_EQ(text(get_uci_config(&unnamed, "ifname")), "ath11");
        EXPECT_EQ(radio.pkg, get_uci_entry_by_name("wireless")->pkg);
        EXPECT_EQ(radio.ptr.p, radio.pkg);
        EXPECT_STREQ(radio.ptr.package, "wireless");
        EXPECT_STREQ(radio.ptr.section, "radio0");
    }
}

// Another process moves the sections about, so that a new one can stand at an old one's address.
TEST_F(SaveUciConfig, LetsASessionFindItsSectionByItsName) {
    uci_config_ctx session = session_on(UCI_CONFIG_WIRELESS, "office_radio0");
    for (const char* change : {"delete wireless.default_radio0", "reorder wireless.test_radio1=0",
                               "delete wireless.default_radio1", "set wireless.extra=wifi-iface"}) {
        SCOPED_TRACE(change);
        EXPECT_EQ(uci(std::string(change) + " && uci commit wireless").status, 0);
        EXPECT_EQ(save_uci_config(UCI_CONFIG_WIRELESS, nullptr, 0), 0);
        EXPECT_EQ(text(get_uci_config(&session, "ifname")), "ath02");
        EXPECT_STREQ(session.ptr.s->e.name, "office_radio0");
        EXPECT_EQ(session.ptr.last, &session.ptr.s->e);
    }
}

TEST_F(SaveUciConfig, LetsASessionLeaveASectionThatHasAnotherName) {
    uci_config_ctx session = session_on(UCI_CONFIG_WIRELESS, "office_radio0");
    const uci_section* old = session.ptr.s;
    // As where a save has put another section at the old one's address.
    for (const char* names :
         {"wireless.office_radio0=elsewhere", "wireless.test_radio1=office_radio0"}) {
        std::string path = names;
        uci_ptr ptr{};
        ASSERT_EQ(uci_lookup_ptr(session.ctx, &ptr, path.data(), true), UCI_OK);
        ASSERT_EQ(uci_rename(session.ctx, &ptr), UCI_OK);
    }
    EXPECT_EQ(text(get_uci_config(&session, "ifname")), "ath17");
    EXPECT_NE(session.ptr.s, old);
    EXPECT_STREQ(session.ptr.s->e.name, "office_radio0");
}

TEST_F(SaveUciConfig, EndsASessionWhoseSectionIsGone) {
    uci_config_ctx session = session_on(UCI_CONFIG_WIRELESS, "office_radio0");
    EXPECT_EQ(uci("delete wireless.office_radio0 && uci commit wireless").status, 0);
    EXPECT_EQ(save_uci_config(UCI_CONFIG_WIRELESS, nullptr, 0), 0);
    EXPECT_EQ(get_uci_config(&session, "ifname"), nullptr);
    EXPECT_EQ(session.ptr.s, nullptr);
    // One of the same name is another one.
    EXPECT_EQ(uci("set wireless.office_radio0=wifi-iface && uci set "
                  "wireless.office_radio0.ifname=ath99 && uci commit wireless")
                  .status,
              0);
    EXPECT_EQ(save_uci_config(UCI_CONFIG_WIRELESS, nullptr, 0), 0);
    EXPECT_EQ(get_uci_config(&session, "ifname"), nullptr);
    session = session_on(UCI_CONFIG_WIRELESS, "office_radio0");
    EXPECT_EQ(text(get_uci_config(&session, "ifname")), "ath99");
}

TEST_F(SaveUciConfig, EndsASessionWhoseNameCouldNotBeKept) {
    TQ_NEEDS_FAILING_ALLOCATOR();
    uci_config_ctx session = garbage();
    EXPECT_EQ(load_uci_config(UCI_CONFIG_SYSTEM, nullptr), 0);
    {
        const faults::Fail fail("malloc", 1, ENOMEM);
        EXPECT_EQ(load_named_section(UCI_CONFIG_SYSTEM, &session, "watchdog"), 0);
        EXPECT_TRUE(fail.fired());
    }
    EXPECT_EQ(text(get_uci_config(&session, "timeout")), "30");
    EXPECT_EQ(set_uci_config(&session, "timeout", "60"), 0);
    EXPECT_EQ(uci("add_list system.@system[0].extra=" + std::string(5000, 'x')).status, 0);
    EXPECT_EQ(save_uci_config(UCI_CONFIG_SYSTEM, nullptr, 0), 0);
    EXPECT_EQ(seen_by_uci("system.watchdog.timeout"), "60\n");
    const char* timeout = get_uci_config(&session, "timeout");
    EXPECT_TRUE(!timeout || std::string(timeout) == "60") << timeout;
}

TEST_F(SaveUciConfig, ReturnsLibucisCodeOnAReadOnlyFileSystemAndLosesNothing) {
    uci_config_ctx session = radio0();
    EXPECT_EQ(set_uci_config(&session, "channel", "11"), 0);
    EXPECT_EQ(del_uci_config(&session, "beacon_int"), 0);
    log_.take();
    {
        const ReadOnly locked("/etc/config");
        EXPECT_EQ(save_uci_config(UCI_CONFIG_WIRELESS, nullptr, 0), UCI_ERR_IO);
        EXPECT_THAT(log_.take(),
                    ElementsAre(Error("save_uci_config", "uci_commit wireless fail\n")));
        const int flags[] = {0, 0, 0, 0, 1};
        EXPECT_EQ(save_uci_config(UCI_CONFIG_ALL, flags, 5), 16);
        EXPECT_THAT(log_.take(), ElementsAre(Error("save_uci_config", "uci_commit wireless fail\n"),
                                             Line(LOG_INFO, "save_uci_config",
                                                  "execute 'uci commit2 wireless'\n")));
        EXPECT_EQ(commands(), "uci commit2 wireless\n");
        EXPECT_EQ(text(get_uci_config(&session, "channel")), "11");
        EXPECT_EQ(staged("wireless"),
                  "wireless.radio0.channel='11'\n-wireless.radio0.beacon_int\n");
    }
    EXPECT_EQ(stored("wireless"), wireless_);
    EXPECT_EQ(save_uci_config(UCI_CONFIG_WIRELESS, nullptr, 0), 0);
    EXPECT_EQ(stored("wireless"), replaced(replaced(wireless_, "channel '6'", "channel '11'"),
                                           "\toption beacon_int '100'\n", ""));
}

// Whether libuci itself notices that there is no room for the new file.
bool libuci_minds_a_full_disk() {
    write_file("/tmp/.uci/wireless", "wireless.radio0.channel='1'\n");
    const FullDisk full("/etc/config");
    uci_context* context = uci_alloc_context();
    uci_package* package = nullptr;
    const bool minded = uci_load(context, "wireless", &package) == UCI_OK &&
                        uci_commit(context, &package, false) != UCI_OK;
    uci_free_context(context);
    return minded;
}

TEST_F(SaveUciConfig, KeepsTheOldFileOnAFullDisk) {
    if (!libuci_minds_a_full_disk()) GTEST_SKIP() << "this libuci does not notice a full disk";
    tq_test::reset_device();
    uci_config_ctx session = radio0();
    EXPECT_EQ(set_uci_config(&session, "channel", "11"), 0);
    log_.take();
    {
        const FullDisk full("/etc/config");
        EXPECT_EQ(save_uci_config(UCI_CONFIG_WIRELESS, nullptr, 0), UCI_ERR_IO);
        EXPECT_EQ(stored("wireless"), wireless_);
    }
    EXPECT_THAT(log_.take(), ElementsAre(Error("save_uci_config", "uci_commit wireless fail\n")));
    EXPECT_EQ(staged("wireless"), "wireless.radio0.channel='11'\n");
}

TEST_F(SaveUciConfig, KeepsChangesWhereTheDeltaAreaIsReadOnly) {
    uci_config_ctx session = radio0();
    EXPECT_EQ(del_uci_config(&session, "beacon_int"), 0);
    log_.take();
    {
        const ReadOnly locked("/tmp");
        EXPECT_EQ(save_uci_config(UCI_CONFIG_WIRELESS, nullptr, 0), UCI_ERR_IO);
        EXPECT_THAT(log_.take(),
                    ElementsAre(Error("save_uci_config", "uci_commit wireless fail\n")));
    }
    EXPECT_EQ(get_uci_config(&session, "beacon_int"), nullptr);
    EXPECT_EQ(save_uci_config(UCI_CONFIG_WIRELESS, nullptr, 0), 0);
    EXPECT_EQ(stored("wireless"), replaced(wireless_, "\toption beacon_int '100'\n", ""));
}

TEST_F(SaveUciConfig, SurvivesThatAnotherProcessRemovedOrBrokeTheFile) {
    for (const char* damage : {"rm /etc/config/wireless", "rm -r /etc/config",
                               "echo \"config 'a\" >/etc/config/wireless"}) {
        SCOPED_TRACE(damage);
        tq_test::reset_device();
        uci_config_ctx session = radio0();
        EXPECT_EQ(set_uci_config(&session, "channel", "11"), 0);
        log_.take();
        run_command(damage);
        const int result = save_uci_config(UCI_CONFIG_WIRELESS, nullptr, 0);
        EXPECT_GE(result, 0);
        EXPECT_EQ(log_.take().size(), result == 0 ? 0U : 1U);
        (void)get_uci_config(&session, "channel");
        (void)set_uci_config(&session, "channel", "12");
        run_command("mkdir -p /etc/config && cp /rom/etc/config/* /etc/config");
        EXPECT_EQ(free_uci_config(UCI_CONFIG_WIRELESS), 0);
        session = radio0();
        EXPECT_EQ(set_uci_config(&session, "country", "DE"), 0);
        EXPECT_EQ(save_uci_config(UCI_CONFIG_WIRELESS, nullptr, 0), 0);
        EXPECT_EQ(seen_by_uci("wireless.radio0.country"), "DE\n");
        // What was staged when the file went is still waiting for it.
        EXPECT_THAT(seen_by_uci("wireless.radio0.channel"), testing::AnyOf("11\n", "12\n"));
        EXPECT_EQ(free_uci_config(UCI_CONFIG_WIRELESS), 0);
    }
}

TEST_F(SaveUciConfig, LoadsAgainWhatAFailedCommitHasUnloaded) {
    uci_config_ctx session = radio0();
    EXPECT_EQ(set_uci_config(&session, "channel", "11"), 0);
    log_.take();
    {
        const CallFails fail("uci_commit", UCI_ERR_PARSE);
        EXPECT_EQ(save_uci_config(UCI_CONFIG_WIRELESS, nullptr, 0), UCI_ERR_PARSE);
    }
    EXPECT_THAT(log_.take(), ElementsAre(Error("save_uci_config", "uci_commit wireless fail\n")));
    EXPECT_EQ(get_uci_entry_by_name("wireless")->pkg, nullptr);
    EXPECT_EQ(get_uci_config(&session, "channel"), nullptr);
    EXPECT_EQ(save_uci_config(UCI_CONFIG_WIRELESS, nullptr, 0), UCI_CONFIG_WIRELESS);
    EXPECT_EQ(save_uci_config(UCI_CONFIG_ALL, nullptr, 0), 16);
    session = radio0();
    EXPECT_EQ(text(get_uci_config(&session, "channel")), "11");
    EXPECT_EQ(live_contexts(), 1);
}

// A session from its load to its end, as a process makes it that has other things to do than fail.
void change_channel_and_rates() {
    uci_config_ctx session{};
    (void)load_named_section(UCI_CONFIG_WIRELESS, &session, "radio0");
    (void)set_uci_config(&session, "channel", "11");
    (void)add_uci_list(&session, "basic_rate", "6000");
    (void)save_uci_config(UCI_CONFIG_WIRELESS, nullptr, 0);
    (void)get_uci_config(&session, "channel");
    (void)free_uci_config(UCI_CONFIG_WIRELESS);
}

class FailingOnce : public UciSessionTest, public testing::WithParamInterface<const char*> {};

TEST_P(FailingOnce, NeverBreaksTheFileOrTheNextSession) {
    const std::string call = GetParam();
    if (call == "malloc" || call == "calloc" || call == "strdup") TQ_NEEDS_FAILING_ALLOCATOR();
    if (!libuci_minds_a_full_disk()) GTEST_SKIP() << "this libuci does not notice a full disk";
    const std::string channel = replaced(wireless_, "channel '6'", "channel '11'");
    const std::string rates = "\tlist basic_rate '11000'\n\tlist basic_rate '6000'\n";
    const std::string added = "\tlist basic_rate '11000'\n";
    unsigned nth = 0;
    for (bool fired = true; fired;) {
        tq_test::reset_device();
        {
            const faults::Fail fail(call, ++nth, ENOMEM);
            change_channel_and_rates();
            fired = fail.fired();
        }
        EXPECT_THAT(stored("wireless"),
                    testing::AnyOf(wireless_, channel, replaced(wireless_, added, rates),
                                   replaced(channel, added, rates)));
        EXPECT_EQ(free_uci_config(UCI_CONFIG_WIRELESS), 0);
        EXPECT_EQ(live_contexts(), 0);
        uci_config_ctx session = radio0();
        EXPECT_EQ(set_uci_config(&session, "channel", "13"), 0);
        EXPECT_EQ(save_uci_config(UCI_CONFIG_WIRELESS, nullptr, 0), 0);
        EXPECT_THAT(stored("wireless"), HasSubstr("\toption channel '13'\n"));
        EXPECT_EQ(free_uci_config(UCI_CONFIG_WIRELESS), 0);
    }
    EXPECT_GT(nth, 1U) << "nothing failed";
}

INSTANTIATE_TEST_SUITE_P(Each, FailingOnce,
                         testing::Values("open", "flock", "fsync", "rename", "fdopen", "ftruncate",
                                         "strdup", "malloc", "calloc"),
                         [](const auto& each) { return std::string(each.param); });

// free_uci_config

class FreeUciConfig : public UciSessionTest {};

TEST_F(FreeUciConfig, StagesWhatIsLeftAndCommitsNothing) {
    uci_config_ctx session = radio0();
    EXPECT_EQ(set_uci_config(&session, "channel", "11"), 0);
    EXPECT_EQ(del_uci_config(&session, "beacon_int"), 0);
    EXPECT_EQ(add_uci_list(&session, "basic_rate", "6000"), 0);
    log_.take();
    EXPECT_EQ(free_uci_config(UCI_CONFIG_WIRELESS), 0);
    EXPECT_EQ(live_contexts(), 0);
    EXPECT_EQ(stored("wireless"), wireless_);
    EXPECT_EQ(staged("wireless"),
              "wireless.radio0.channel='11'\n-wireless.radio0.beacon_int\n"
              "|wireless.radio0.basic_rate='6000'\n");
    session = radio0();
    EXPECT_EQ(text(get_uci_config(&session, "channel")), "11");
    EXPECT_EQ(save_uci_config(UCI_CONFIG_WIRELESS, nullptr, 0), 0);
    EXPECT_EQ(seen_by_uci("wireless.radio0.basic_rate"), "1000 2000 5500 11000 6000\n");
    expect_silence();
}

TEST_F(FreeUciConfig, FreesEveryFile) {
    for (int id = 0; id < UCI_CONFIG_ALL; id++)
        EXPECT_EQ(load_uci_config(id, nullptr), 0);
    EXPECT_EQ(live_contexts(), 16);
    EXPECT_EQ(free_uci_config(UCI_CONFIG_WIRELESS), 0);
    EXPECT_EQ(live_contexts(), 15);
    EXPECT_EQ(free_uci_config(UCI_CONFIG_ALL), 0);
    EXPECT_EQ(live_contexts(), 0);
    for (int id = 0; id < UCI_CONFIG_ALL; id++)
        EXPECT_EQ(get_uci_entry_by_name(file_of(id))->pkg, nullptr);
    expect_silence();
}

TEST_F(FreeUciConfig, UnloadsWhatIsLoadedAlsoWhereItCannotBeStaged) {
    for (const int id : {UCI_CONFIG_DHCP, UCI_CONFIG_SYSTEM, UCI_CONFIG_WIRELESS})
        EXPECT_EQ(load_uci_config(id, nullptr), 0);
    const CallFails save("uci_save");
    const CallFails unload("uci_unload", UCI_OK);
    EXPECT_EQ(free_uci_config(UCI_CONFIG_DHCP), -1);
    EXPECT_EQ(unload.calls(), 1);
    EXPECT_EQ(free_uci_config(UCI_CONFIG_ALL), 0);
    EXPECT_EQ(save.calls(), 3);
    EXPECT_EQ(unload.calls(), 3);
    EXPECT_EQ(free_uci_config(UCI_CONFIG_ALL), 0);
    EXPECT_EQ(unload.calls(), 3);
    EXPECT_THAT(log_.take(), ElementsAre(Error("free_uci_config", "uci_save dhcp fail\n")));
}

TEST_F(FreeUciConfig, IsDoneForAFileThatIsNotLoaded) {
    EXPECT_EQ(free_uci_config(UCI_CONFIG_WIRELESS), 0);
    EXPECT_EQ(free_uci_config(UCI_CONFIG_ALL), 0);
    expect_silence();
}

TEST_F(FreeUciConfig, RejectsAnIdOfNoFile) {
    for (const int id : {17, -1}) {
        EXPECT_EQ(free_uci_config(id), -1);
        EXPECT_THAT(log_.take(),
                    ElementsAre(Error("free_uci_config",
                                      "unspport uci entry " + std::to_string(id) + "\n")));
    }
}

TEST_F(FreeUciConfig, FreesAFileWhoseChangesCannotBeStaged) {
    const std::string before = staged("wireless");
    uci_config_ctx session = radio0();
    EXPECT_EQ(load_uci_config(UCI_CONFIG_SYSTEM, nullptr), 0);
    EXPECT_EQ(del_uci_config(&session, "beacon_int"), 0);
    log_.take();
    {
        const ReadOnly locked("/tmp");
        EXPECT_EQ(free_uci_config(UCI_CONFIG_WIRELESS), -1);
        EXPECT_THAT(log_.take(), ElementsAre(Error("free_uci_config", "uci_save wireless fail\n")));
        EXPECT_EQ(live_contexts(), 1);
        EXPECT_EQ(get_uci_entry_by_name("wireless")->ctx, nullptr);
        EXPECT_EQ(get_uci_entry_by_name("wireless")->pkg, nullptr);
        EXPECT_EQ(free_uci_config(UCI_CONFIG_WIRELESS), 0);
    }
    EXPECT_EQ(get_uci_config(&session, "channel"), nullptr);
    log_.take();
    session = radio0();
    EXPECT_EQ(text(get_uci_config(&session, "beacon_int")), "100");
    EXPECT_EQ(staged("wireless"), before);
    expect_silence();
}

TEST_F(FreeUciConfig, FreesEveryFileWhenTheChangesOfOneCannotBeStaged) {
    uci_config_ctx session = radio0();
    EXPECT_EQ(load_uci_config(UCI_CONFIG_DHCP, nullptr), 0);
    EXPECT_EQ(load_uci_config(UCI_CONFIG_SYSTEM, nullptr), 0);
    EXPECT_EQ(del_uci_config(&session, "beacon_int"), 0);
    log_.take();
    const ReadOnly locked("/tmp");
    EXPECT_EQ(free_uci_config(UCI_CONFIG_ALL), -1);
    EXPECT_THAT(log_.take(), ElementsAre(Error("free_uci_config", "uci_save wireless fail\n")));
    EXPECT_EQ(live_contexts(), 0);
    EXPECT_EQ(free_uci_config(UCI_CONFIG_ALL), 0);
    expect_silence();
}

// add_section

class AddSection : public UciSessionTest {
  protected:
    AddSection() { EXPECT_EQ(load_uci_config(UCI_CONFIG_BIND, &bind_), 0); }

    uci_config_ctx bind_{};
};

TEST_F(AddSection, GivesTheIndexAmongTheSectionsOfItsType) {
    EXPECT_EQ(add_section(bind_.ctx, bind_.pkg, "bind"), 3);
    EXPECT_EQ(add_section(bind_.ctx, bind_.pkg, "bind"), 4);
    EXPECT_EQ(add_section(bind_.ctx, bind_.pkg, "fresh"), 0);
    EXPECT_EQ(add_section(bind_.ctx, bind_.pkg, "profile"), 2);
    expect_silence();
}

TEST_F(AddSection, StagesTheSectionForTheNextSave) {
    const std::string before = stored("bind");
    EXPECT_EQ(add_section(bind_.ctx, bind_.pkg, "bind"), 3);
    EXPECT_THAT(staged("bind"), testing::MatchesRegex("\\+bind.cfg[0-9a-f]+='bind'\n"));
    EXPECT_EQ(stored("bind"), before);
    EXPECT_EQ(seen_by_uci("bind.@bind[3]"), "bind\n");
    EXPECT_EQ(save_uci_config(UCI_CONFIG_BIND, nullptr, 0), 0);
    EXPECT_EQ(stored("bind"), before + "config bind\n\n");
}

// There is no other package either.
TEST_F(AddSection, RejectsASessionsPackageThatAFailedCommitHasUnloaded) {
    {
        const CallFails fail("uci_commit", UCI_ERR_PARSE);
        EXPECT_EQ(save_uci_config(UCI_CONFIG_BIND, nullptr, 0), UCI_ERR_PARSE);
    }
    log_.take();
    EXPECT_EQ(add_section(bind_.ctx, bind_.pkg, "bind"), -1);
    EXPECT_THAT(log_.take(), ElementsAre(Error("add_section", "invalid parameters\n")));
    EXPECT_EQ(staged("bind"), "");
    EXPECT_EQ(load_uci_config(UCI_CONFIG_BIND, &bind_), 0);
    EXPECT_EQ(add_section(bind_.ctx, bind_.pkg, "bind"), 3);
}

// The session's package is the one from before the save.
TEST_F(AddSection, TakesASessionsPackageAcrossASave) {
    const std::string before = stored("bind");
    EXPECT_EQ(add_section(bind_.ctx, bind_.pkg, "bind"), 3);
    EXPECT_EQ(save_uci_config(UCI_CONFIG_BIND, nullptr, 0), 0);
    EXPECT_EQ(add_section(bind_.ctx, bind_.pkg, "bind"), 4);
    EXPECT_EQ(add_section(bind_.ctx, bind_.pkg, "profile"), 2);
    EXPECT_EQ(save_uci_config(UCI_CONFIG_ALL, nullptr, 0), UCI_CONFIG_ALL);
    EXPECT_EQ(add_section(bind_.ctx, nullptr, "bind"), -1);
    EXPECT_EQ(stored("bind"), before + "config bind\n\nconfig bind\n\nconfig profile\n\n");
    EXPECT_THAT(log_.take(), ElementsAre(Error("add_section", "invalid parameters\n")));
}

TEST_F(AddSection, TakesAPackageThatACallerHasLoadedIntoTheFilesContext) {
    uci_package* other = nullptr;
    ASSERT_EQ(uci_load(bind_.ctx, "dhcp", &other), UCI_OK);
    EXPECT_EQ(add_section(bind_.ctx, other, "fresh"), 0);
    EXPECT_THAT(staged("dhcp"), testing::MatchesRegex("\\+dhcp.cfg[0-9a-f]+='fresh'\n"));
    EXPECT_EQ(staged("bind"), "");
    expect_silence();
}

TEST_F(AddSection, SaysInItsOwnNameWhatLibuciRefuses) {
    EXPECT_EQ(add_section(bind_.ctx, bind_.pkg, "two words"), -1);
    EXPECT_EQ(add_section(bind_.ctx, bind_.pkg, ""), -1);
    {
        const CallFails fail("uci_add_section");
        EXPECT_EQ(add_section(bind_.ctx, bind_.pkg, "bind"), -1);
    }
    {
        const CallFails fail("uci_save");
        EXPECT_EQ(add_section(bind_.ctx, bind_.pkg, "bind"), -1);
    }
    EXPECT_THAT(log_.take(), ElementsAre(Error("add_section", "uci_add_section two words fail\n"),
                                         Error("add_section", "uci_add_section  fail\n"),
                                         Error("add_section", "uci_add_section bind fail\n"),
                                         Error("add_section", "uci_save bind fail\n")));
}

TEST_F(AddSection, RejectsNull) {
    EXPECT_EQ(add_section(nullptr, bind_.pkg, "bind"), -1);
    EXPECT_EQ(add_section(bind_.ctx, nullptr, "bind"), -1);
    EXPECT_EQ(add_section(bind_.ctx, bind_.pkg, nullptr), -1);
    EXPECT_THAT(log_.take(), ElementsAre(Error("add_section", "invalid parameters\n"),
                                         Error("add_section", "invalid parameters\n"),
                                         Error("add_section", "invalid parameters\n")));
}

}  // namespace
