// uci_option_test.cpp - shortcuts on a context of the caller's, and the thresholds of the fault
// management: what is staged, what is in the file, and what the log says.
#include "tq/uci_option.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <uci.h>

#include <climits>
#include <string>

#include "support/device.h"
#include "support/log_capture.h"
#include "uci/store.h"
#include "uci/uci_calls.h"

namespace {

using testing::ElementsAre;
using testing::IsEmpty;
using tq_test::CallFails;
using tq_test::exists;
using tq_test::Line;
using tq_test::LogCapture;
using tq_test::RefusedOptions;
using tq_test::Rejected;
using tq_test::run_command;
using tq_test::staged;
using tq_test::stored;
using tq_test::write_file;

// What an output holds that no call has written.
constexpr int kUnset = 0x5a5a5a5a;

auto Error(const std::string& function, const std::string& text) {
    return Line(LOG_ERR, function, text);
}

// ---- shortcuts ----

class Shortcut : public tq_test::DeviceTest {
  protected:
    ~Shortcut() override {
        uci_free_context(context_);
        EXPECT_EQ(tq_test::live_contexts(), 0);
    }

    uci_context* context_ = uci_alloc_context();
    LogCapture log_;
};

using SetInt = int (*)(uci_context*, int, const char*, int);
using SetStr = int (*)(uci_context*, int, const char*, const char*);

struct Family {
    std::string name;
    SetInt set_int;
    SetStr set_str;
    std::string file;
    std::string type;
};

void PrintTo(const Family& family, std::ostream* out) {
    *out << family.name;
}

const Family kFamilies[] = {
    {"radio", set_radio_option_int, set_radio_option_str, "wireless", "wifi-device"},
    {"vap", set_vap_option_int, set_vap_option_str, "wireless", "wifi-iface"},
    {"fw_rule", set_fw_rule_option_int, set_fw_rule_option_str, "firewall", "rule"},
};

class ShortcutSetter : public Shortcut, public testing::WithParamInterface<Family> {
  protected:
    // An option of the n-th section, as another process sees it.
    static std::string seen(int index, const std::string& option) {
        return run_command("uci -q get '" + path(index, option) + "'").out;
    }

    static std::string path(int index, const std::string& option) {
        return GetParam().file + ".@" + GetParam().type + "[" + std::to_string(index) + "]." +
               option;
    }
};

INSTANTIATE_TEST_SUITE_P(Each, ShortcutSetter, testing::ValuesIn(kFamilies),
                         [](const auto& family) { return family.param.name; });

TEST_P(ShortcutSetter, StagesASignedNumberWithoutCommittingIt) {
    const std::string before = stored(GetParam().file);
    for (const int value : {-1, 0, 36, INT_MAX, INT_MIN}) {
        EXPECT_EQ(GetParam().set_int(context_, 1, "disabled", value), 0);
        EXPECT_EQ(seen(1, "disabled"), std::to_string(value) + "\n");
    }
    EXPECT_EQ(seen(0, "disabled"),
              run_command("uci -q -P /tmp/none get '" + path(0, "disabled") + "'").out);
    EXPECT_EQ(stored(GetParam().file), before);
    EXPECT_THAT(log_.take(), IsEmpty());
}

TEST_P(ShortcutSetter, StagesATextWithoutCommittingIt) {
    const std::string before = stored(GetParam().file);
    EXPECT_EQ(GetParam().set_str(context_, 0, "name", "it's = a.name"), 0);
    EXPECT_EQ(seen(0, "name"), "it's = a.name\n");
    EXPECT_EQ(stored(GetParam().file), before);
    EXPECT_THAT(log_.take(), IsEmpty());
}

TEST_P(ShortcutSetter, CountsFromTheEndWithANegativeNumber) {
    EXPECT_EQ(GetParam().set_int(context_, -1, "x", 5), 0);
    EXPECT_EQ(seen(-1, "x"), "5\n");
    EXPECT_EQ(seen(0, "x"), "");
}

TEST_P(ShortcutSetter, NeedsTheSection) {
    EXPECT_EQ(GetParam().set_int(context_, 99, "x", 5), -1);
    EXPECT_EQ(GetParam().set_str(context_, 99, "x", "y"), -1);
    EXPECT_EQ(staged(GetParam().file), "");
    EXPECT_THAT(log_.take(),
                ElementsAre(Error("set_uci_option", "uci set " + path(99, "x") + "=5 fail\n"),
                            Error("set_uci_option", "uci set " + path(99, "x") + "=y fail\n")));
}

TEST_P(ShortcutSetter, RefusesAPathBeyond1023Bytes) {
    const std::string start = path(0, "x") + "=";
    const std::string longest(1023 - start.size(), 'v');
    EXPECT_EQ(GetParam().set_str(context_, 0, "x", longest.c_str()), 0);
    EXPECT_EQ(seen(0, "x"), longest + "\n");
    EXPECT_THAT(log_.take(), IsEmpty());
    const std::string cut = "uci_lookup_ptr fail: " + start + longest + "w\n";
    for (const size_t more : {1U, 2U, 5000U}) {
        const std::string value = longest + std::string(more, 'w');
        EXPECT_EQ(GetParam().set_str(context_, 0, "x", value.c_str()), -1);
        EXPECT_THAT(log_.take(), ElementsAre(Error("set_uci_option", cut)));
    }
    EXPECT_EQ(seen(0, "x"), longest + "\n");
    const std::string option(1100, 'o');
    EXPECT_EQ(GetParam().set_int(context_, 0, option.c_str(), 1), -1);
}

TEST_P(ShortcutSetter, FailsWhereItCannotBeStaged) {
    const tq_test::ReadOnly locked("/tmp");
    EXPECT_EQ(GetParam().set_int(context_, 0, "x", 5), -1);
    EXPECT_THAT(log_.take(),
                ElementsAre(Error("set_uci_option", "uci_save fail: " + path(0, "x") + "=5\n")));
}

TEST_P(ShortcutSetter, NeedsTheFile) {
    run_command("rm /etc/config/" + GetParam().file);
    EXPECT_EQ(GetParam().set_int(context_, 0, "x", 5), -1);
    EXPECT_EQ(GetParam().set_str(context_, 0, "x", "y"), -1);
    EXPECT_FALSE(exists("/etc/config/" + GetParam().file));
    EXPECT_THAT(
        log_.take(),
        ElementsAre(Error("set_uci_option", "uci_lookup_ptr fail: " + path(0, "x") + "=5\n"),
                    Error("set_uci_option", "uci_lookup_ptr fail: " + path(0, "x") + "=y\n")));
}

TEST_P(ShortcutSetter, RejectsNull) {
    EXPECT_EQ(GetParam().set_int(context_, 0, nullptr, 5), -1);
    EXPECT_THAT(log_.take(), Rejected("set_uci_option"));
    EXPECT_EQ(GetParam().set_str(context_, 0, nullptr, "x"), -1);
    EXPECT_THAT(log_.take(), Rejected("set_uci_option"));
    EXPECT_EQ(GetParam().set_str(context_, 0, "x", nullptr), -1);
    EXPECT_THAT(log_.take(), Rejected("set_uci_option"));
    EXPECT_EQ(GetParam().set_int(nullptr, 0, "x", 5), -1);
    EXPECT_THAT(log_.take(), Rejected("set_uci_option"));
    EXPECT_EQ(staged(GetParam().file), "");
}

TEST_F(Shortcut, AddressesTheSectionByItsTypeAndPosition) {
    EXPECT_EQ(set_radio_option_int(context_, 1, "channel", 36), 0);
    EXPECT_EQ(set_vap_option_str(context_, 4, "ssid", "Office"), 0);
    EXPECT_EQ(staged("wireless"),
              "wireless.radio1.channel='36'\nwireless.office_radio0.ssid='Office'\n");
}

TEST_F(Shortcut, DeletesAnOptionOfARadio) {
    EXPECT_EQ(del_radio_option(context_, 0, "channel"), 0);
    EXPECT_EQ(staged("wireless"), "-wireless.radio0.channel\n");
    EXPECT_THAT(log_.take(), IsEmpty());
}

TEST_F(Shortcut, DeletesAnOptionOfAVap) {
    EXPECT_EQ(del_vap_option(context_, 1, "isolate"), 0);
    EXPECT_EQ(staged("wireless"), "-wireless.default_radio1.isolate\n");
    EXPECT_THAT(log_.take(), IsEmpty());
}

TEST_F(Shortcut, CountsAMissingOptionAsDeleted) {
    EXPECT_EQ(del_radio_option(context_, 0, "nothing"), 0);
    EXPECT_EQ(del_vap_option(context_, 0, "nothing"), 0);
    EXPECT_EQ(staged("wireless"), "");
    EXPECT_THAT(log_.take(), IsEmpty());
}

TEST_F(Shortcut, PassesLibucisCodeOfAFailedDeleteOnForARadio) {
    const RefusedOptions refused({"radio0.channel"}, UCI_ERR_MEM);
    EXPECT_EQ(del_radio_option(context_, 0, "channel"), UCI_ERR_MEM);
    EXPECT_THAT(log_.take(), ElementsAre(Error("del_uci_element",
                                               "uci del wireless.@wifi-device[0].channel fail\n")));
}

TEST_F(Shortcut, FoldsEveryFailedDeleteIntoMinusOneForAVap) {
    const std::string path = "wireless.@wifi-iface[0].ssid";
    {
        const RefusedOptions refused({"default_radio0.ssid"}, UCI_ERR_MEM);
        EXPECT_EQ(del_vap_option(context_, 0, "ssid"), -1);
        EXPECT_THAT(log_.take(),
                    ElementsAre(Error("del_uci_element", "uci del " + path + " fail\n"),
                                Error("del_vap_option", "del_uci_option fail: " + path + "\n")));
    }
    const std::string mode = "wireless.@wifi-iface[0].mode";
    const tq_test::ReadOnly locked("/tmp");
    EXPECT_EQ(del_vap_option(context_, 0, "mode"), -1);
    EXPECT_THAT(log_.take(),
                ElementsAre(Error("del_uci_element", "uci_save fail: " + mode + "\n"),
                            Error("del_vap_option", "del_uci_option fail: " + mode + "\n")));
}

TEST_F(Shortcut, DeletesNothingWithoutTheFile) {
    run_command("rm /etc/config/wireless");
    EXPECT_EQ(del_radio_option(context_, 1, "channel"), -1);
    EXPECT_EQ(del_vap_option(context_, 1, "ssid"), -1);
    const std::string radio = "wireless.@wifi-device[1].channel";
    const std::string vap = "wireless.@wifi-iface[1].ssid";
    EXPECT_THAT(log_.take(),
                ElementsAre(Error("del_uci_element", "uci_lookup_ptr fail: " + radio + "\n"),
                            Error("del_uci_element", "uci_lookup_ptr fail: " + vap + "\n"),
                            Error("del_vap_option", "del_uci_option fail: " + vap + "\n")));
}

TEST_F(Shortcut, DeletesNothingBehindALongPath) {
    const std::string option(1100, 'o');
    const std::string start = "wireless.@wifi-iface[0].";
    const std::string path = start + std::string(1024 - start.size(), 'o');
    EXPECT_EQ(del_vap_option(context_, 0, option.c_str()), -1);
    EXPECT_THAT(log_.take(),
                ElementsAre(Error("del_uci_element", "uci_lookup_ptr fail: " + path + "\n"),
                            Error("del_vap_option", "del_uci_option fail: " + path + "\n")));
    EXPECT_EQ(del_radio_option(context_, 0, option.c_str()), -1);
}

TEST_F(Shortcut, RejectsNullInADelete) {
    EXPECT_EQ(del_radio_option(context_, 0, nullptr), -1);
    EXPECT_THAT(log_.take(), Rejected("del_uci_element"));
    EXPECT_EQ(del_vap_option(context_, 0, nullptr), -1);
    EXPECT_THAT(log_.take(), Rejected("del_uci_element"));
    EXPECT_EQ(del_radio_option(nullptr, 0, "channel"), -1);
    EXPECT_THAT(log_.take(), Rejected("del_uci_element"));
}

// ---- thresholds ----

using SetModule = int (*)(int, unsigned);
using GetModule = int (*)(int, int*);

struct ModuleOption {
    std::string name;
    SetModule set;
    GetModule get;
};

void PrintTo(const ModuleOption& option, std::ostream* out) {
    *out << option.name;
}

class FaultThreshold : public tq_test::DeviceTest {
  protected:
    ~FaultThreshold() override { EXPECT_EQ(tq_test::live_contexts(), 0); }

    LogCapture log_;
};

class FaultModule : public FaultThreshold, public testing::WithParamInterface<ModuleOption> {};

INSTANTIATE_TEST_SUITE_P(
    Each, FaultModule,
    testing::Values(ModuleOption{"threshold", uci_set_threshold, uci_get_threshold},
                    ModuleOption{"suppress", uci_set_suppress, uci_get_suppress}),
    [](const auto& option) { return option.param.name; });

TEST_P(FaultModule, IsDefinedWithItsValueWhereItIsMissing) {
    write_file("/etc/config/tqfm", "");
    EXPECT_EQ(GetParam().set(7, 30), 0);
    EXPECT_EQ(stored("tqfm"), "\nconfig module '7'\n\toption " + GetParam().name + " '30'\n\n");
    EXPECT_EQ(staged("tqfm"), "");
    int value = kUnset;
    EXPECT_EQ(GetParam().get(7, &value), 0);
    EXPECT_EQ(value, 30);
    EXPECT_THAT(log_.take(), IsEmpty());
}

TEST_P(FaultModule, IsCommittedWithItsSectionAndTwiceWithItsValue) {
    const CallFails none("uci_commit", UCI_OK, 0);
    EXPECT_EQ(GetParam().set(7, 30), 0);
    EXPECT_EQ(none.calls(), 3);
}

TEST_P(FaultModule, KeepsItsOtherOption) {
    write_file("/etc/config/tqfm",
               "config module '7'\n\toption threshold '1'\n\toption suppress '2'\n");
    EXPECT_EQ(GetParam().set(7, 30), 0);
    const bool threshold = GetParam().name == "threshold";
    int value = kUnset;
    EXPECT_EQ(uci_get_threshold(7, &value), 0);
    EXPECT_EQ(value, threshold ? 30 : 1);
    EXPECT_EQ(uci_get_suppress(7, &value), 0);
    EXPECT_EQ(value, threshold ? 2 : 30);
}

TEST_P(FaultModule, TakesTheTypeAgain) {
    write_file("/etc/config/tqfm", "config other '7'\n\toption x '1'\n");
    EXPECT_EQ(GetParam().set(7, 30), 0);
    EXPECT_EQ(stored("tqfm"),
              "\nconfig module '7'\n\toption x '1'\n\toption " + GetParam().name + " '30'\n\n");
}

TEST_P(FaultModule, IsWrittenAsAnUnsignedNumberAndReadBackAsASignedOne) {
    EXPECT_EQ(GetParam().set(0, UINT_MAX), 0);
    EXPECT_EQ(run_command("uci get tqfm.0." + GetParam().name).out, "4294967295\n");
    int value = kUnset;
    EXPECT_EQ(GetParam().get(0, &value), 0);
    EXPECT_EQ(value, -1);
    EXPECT_EQ(GetParam().set(INT_MAX, 0), 0);
    EXPECT_EQ(GetParam().get(INT_MAX, &value), 0);
    EXPECT_EQ(value, 0);
}

TEST_P(FaultModule, ReadsTheDecimalNumberThatTheTextStartsWith) {
    for (const auto& [text, number] :
         {std::pair("x", 0), std::pair("-5", -5), std::pair("12 items", 12), std::pair("0x1", 0)}) {
        write_file("/etc/config/tqfm",
                   "config module '7'\n\toption " + GetParam().name + " '" + text + "'\n");
        int value = kUnset;
        EXPECT_EQ(GetParam().get(7, &value), 0) << text;
        EXPECT_EQ(value, number) << text;
    }
    EXPECT_THAT(log_.take(), IsEmpty());
}

TEST_P(FaultModule, IsMissing) {
    write_file("/etc/config/tqfm", "config module '8'\n");
    for (const int module : {7, 8}) {
        int value = kUnset;
        EXPECT_EQ(GetParam().get(module, &value), -1);
        EXPECT_EQ(value, kUnset);
        EXPECT_THAT(log_.take(), ElementsAre(Line(LOG_INFO, "get_uci_option",
                                                  "ptr.flags = 1, UCI_LOOKUP_COMPLETE = 2\n"),
                                             Line(LOG_INFO, "uci_get_str_option_by_name",
                                                  "uci get tqfm." + std::to_string(module) + "." +
                                                      GetParam().name + " fail\n")));
    }
}

TEST_P(FaultModule, ReadsAtMost31Bytes) {
    const std::string digits(31, '0');
    const std::string start = "config module '7'\n\toption " + GetParam().name + " '";
    write_file("/etc/config/tqfm", start + digits + "'\n");
    int value = kUnset;
    EXPECT_EQ(GetParam().get(7, &value), 0);
    EXPECT_EQ(value, 0);
    write_file("/etc/config/tqfm", start + digits + "1'\n");
    value = kUnset;
    EXPECT_EQ(GetParam().get(7, &value), -1);
    EXPECT_EQ(value, kUnset);
    EXPECT_THAT(log_.take(), testing::Contains(Error("get_uci_option", "buffer is short\n")));
}

TEST_P(FaultModule, StopsWhereTheSectionCannotBeDefined) {
    const std::string function = "uci_set_" + GetParam().name;
    run_command("rm /etc/config/tqfm");
    EXPECT_EQ(GetParam().set(7, 30), -1);
    EXPECT_THAT(log_.take(),
                ElementsAre(Error("uci_do_section", "uci_lookup_ptr fail, tqfm.7=module\n"),
                            Error("set_uci", "uci_do_section fail, uci set tqfm.7=module\n"),
                            Error("uci_add_secition_by_name", "uci set tqfm.7=module fail\n"),
                            Error(function,
                                  "uci_add_secition_by_name fail, file = tqfm, type = module "
                                  "name = 7\n")));
    EXPECT_FALSE(exists("/etc/config/tqfm"));
}

TEST_P(FaultModule, HasNoNegativeNumber) {
    const std::string before = stored("tqfm");
    EXPECT_EQ(GetParam().set(-1, 30), -1);
    EXPECT_THAT(log_.take().back(),
                Error("uci_set_" + GetParam().name,
                      "uci_add_secition_by_name fail, file = tqfm, type = module name = -1\n"));
    EXPECT_EQ(stored("tqfm"), before);
    EXPECT_EQ(staged("tqfm"), "");
    int value = kUnset;
    EXPECT_EQ(GetParam().get(-1, &value), -1);
    EXPECT_EQ(value, kUnset);
}

TEST_P(FaultModule, StaysDefinedWhereItsValueCannotBeSet) {
    write_file("/etc/config/tqfm", "");
    const RefusedOptions refused({"9." + GetParam().name});
    EXPECT_EQ(GetParam().set(9, 4000000000), -1);
    EXPECT_THAT(log_.take().back(),
                Error("uci_set_" + GetParam().name,
                      "uci_set_int_option_by_name fail, file = tqfm, name = 9, option = " +
                          GetParam().name + ", value = 4000000000\n"));
    EXPECT_EQ(stored("tqfm"), "\nconfig module '9'\n\n");
}

TEST_P(FaultModule, RejectsNull) {
    EXPECT_EQ(GetParam().get(1, nullptr), -1);
    EXPECT_THAT(log_.take(), Rejected("uci_get_" + GetParam().name));
}

// ---- suppression defaults ----

TEST_F(FaultThreshold, SetsTheSuppressionOfEveryModule) {
    std::string text;
    std::string expected;
    for (int module = 0; module < 20; module++) {
        const std::string head = "\nconfig module '" + std::to_string(module) + "'\n";
        text += head + "\toption threshold '" + std::to_string(module) + "'\n";
        expected += head + "\toption threshold '" + std::to_string(module) +
                    "'\n\toption suppress '4294967295'\n";
        text += "\nconfig other 'o" + std::to_string(module) + "'\n";
        expected += "\nconfig other 'o" + std::to_string(module) + "'\n";
    }
    write_file("/etc/config/tqfm", text + "\n");
    EXPECT_EQ(uci_set_suppress_defaults(UINT_MAX), 0);
    EXPECT_EQ(stored("tqfm"), expected + "\n");
    EXPECT_EQ(staged("tqfm"), "");
    EXPECT_THAT(log_.take(), IsEmpty());
}

TEST_F(FaultThreshold, CommitsEachModuleByItself) {
    write_file("/etc/config/tqfm", "config module '2'\nconfig other 'x'\nconfig module '1'\n");
    {
        // The second module's first commit, behind the two of the first module.
        const CallFails fail("uci_commit", UCI_ERR_IO, 3);
        EXPECT_EQ(uci_set_suppress_defaults(5), 0);
        EXPECT_EQ(fail.calls(), 3);
    }
    EXPECT_EQ(stored("tqfm"),
              "\nconfig module '2'\n\toption suppress '5'\n\nconfig other 'x'\n"
              "\nconfig module '1'\n\n");
    EXPECT_EQ(staged("tqfm"), "tqfm.1.suppress='5'\n");
}

TEST_F(FaultThreshold, SetsTheSuppressionOfAModuleWithoutAName) {
    write_file("/etc/config/tqfm", "config module\n\toption threshold '1'\n\nconfig module\n");
    EXPECT_EQ(uci_set_suppress_defaults(5), 0);
    EXPECT_EQ(stored("tqfm"),
              "\nconfig module\n\toption threshold '1'\n\toption suppress '5'\n"
              "\nconfig module\n\toption suppress '5'\n\n");
}

TEST_F(FaultThreshold, ChangesNothingWhereThereIsNoModule) {
    for (const char* text : {"", "config other 'x'\n\toption suppress '1'\n"}) {
        write_file("/etc/config/tqfm", text);
        EXPECT_EQ(uci_set_suppress_defaults(5), 0);
        EXPECT_EQ(stored("tqfm"), text);
    }
    EXPECT_THAT(log_.take(), IsEmpty());
}

TEST_F(FaultThreshold, GoesOnWhereOneModuleFails) {
    write_file("/etc/config/tqfm", "config module '1'\nconfig module '2'\nconfig module '7'\n");
    {
        const RefusedOptions refused({"2.suppress"});
        EXPECT_EQ(uci_set_suppress_defaults(5), 0);
    }
    EXPECT_THAT(log_.take().back(),
                Error("uci_set_suppress_defaults", "uci_set_int_option_by_name config fail\n"));
    EXPECT_EQ(stored("tqfm"),
              "\nconfig module '1'\n\toption suppress '5'\n\nconfig module '2'\n"
              "\nconfig module '7'\n\toption suppress '5'\n\n");
}

TEST_F(FaultThreshold, FailsWithoutTheFile) {
    run_command("rm /etc/config/tqfm");
    EXPECT_EQ(uci_set_suppress_defaults(5), -1);
    EXPECT_THAT(log_.take(),
                ElementsAre(Error("uci_set_suppress_defaults", "uci_load tqfm fail\n")));
    EXPECT_FALSE(exists("/etc/config/tqfm"));
}

TEST_F(FaultThreshold, FailsOnADamagedFile) {
    write_file("/etc/config/tqfm", "config 'a\n");
    EXPECT_EQ(uci_set_suppress_defaults(5), -1);
    EXPECT_THAT(log_.take(),
                ElementsAre(Error("uci_set_suppress_defaults", "uci_load tqfm fail\n")));
}

TEST_F(FaultThreshold, FailsWithoutMemoryForAContext) {
    const CallFails fail("uci_alloc_context");
    EXPECT_EQ(uci_set_suppress_defaults(5), -1);
    EXPECT_THAT(log_.take(),
                ElementsAre(Error("uci_set_suppress_defaults", "uci_load tqfm fail\n")));
}

}  // namespace
