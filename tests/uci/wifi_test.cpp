// wifi_test.cpp - Wi-Fi settings on sessions of the device's wireless configuration: what is staged
// for each code and what reads back, the combined results, and what the log says.
#include "tq/wifi.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <array>
#include <climits>
#include <cstdlib>
#include <map>
#include <string>
#include <vector>

#include "support/buffer.h"
#include "support/device.h"
#include "support/faults.h"
#include "support/log_capture.h"
#include "tq/uci_session.h"
#include "uci/store.h"
#include "uci/uci_calls.h"

namespace {

using testing::ElementsAre;
using testing::IsEmpty;
using tq_test::Buffer;
using tq_test::Line;
using tq_test::LogCapture;
using tq_test::LogLine;
using tq_test::read_file;
using tq_test::RefusedOptions;
using tq_test::Rejected;
using tq_test::run_command;
using tq_test::write_file;
namespace faults = tq_test::faults;

// What an output holds that no call has written.
constexpr int kUnset = 0x5a5a5a5a;

using Options = std::vector<std::pair<std::string, std::string>>;

std::string staged() {
    return tq_test::staged("wireless");
}

// The lines that set these options, in this order.
std::string lines(const Options& options) {
    std::string text;
    for (const auto& [option, value] : options) {
        text += "wireless.it." + option + "='";
        text += value;
        text += "'\n";
    }
    return text;
}

class WifiTest : public tq_test::DeviceTest {
  protected:
    ~WifiTest() override {
        free_uci_config(UCI_CONFIG_ALL);
        EXPECT_EQ(tq_test::live_contexts(), 0);
    }

    // A session on a section "it" with these options alone, nothing staged.
    uci_config_ctx* section_with(const Options& options) {
        free_uci_config(UCI_CONFIG_WIRELESS);
        run_or_throw(remove("/tmp/.uci/wireless") == 0 || errno == ENOENT);
        std::string text = "config thing 'it'\n";
        for (const auto& [option, value] : options) {
            text += "\toption " + option + " '";
            text += value;
            text += "'\n";
        }
        write_file("/etc/config/wireless", text);
        return session_on("it");
    }

    uci_config_ctx* session_on(const std::string& section) {
        run_or_throw(load_named_section(UCI_CONFIG_WIRELESS, &session_, section.c_str()) == 0);
        return &session_;
    }

    // What the log has of failures.
    std::vector<LogLine> failures() {
        std::vector<LogLine> found;
        for (const LogLine& line : log_.take()) {
            if (line.priority <= LOG_NOTICE) found.push_back(line);
        }
        return found;
    }

    LogCapture log_;

  private:
    static void run_or_throw(bool done) {
        if (!done) throw std::runtime_error("the section cannot be prepared");
    }

    uci_config_ctx session_{};
};

auto Missing(const std::string& option) {
    return ElementsAre(
        Line(LOG_NOTICE, "get_uci_config", "get uci config option '" + option + "' failed\n"));
}

auto NotCreated(const std::string& option, const std::string& value) {
    return Line(LOG_ERR, "set_uci_config",
                "create uci value '" + value + "' for option '" + option + "' failed\n");
}

// ---- settings of one number ----

using Setter = int (*)(uci_config_ctx*, int);
using Getter = int (*)(uci_config_ctx*, int*);

struct Setting {
    std::string name;
    std::string option;
    Setter set;
    Getter get;
};

void PrintTo(const Setting& setting, std::ostream* out) {
    *out << setting.name;
}

// Another second argument at each call: it has no effect.
int ignored() {
    static int number = INT_MIN;
    return number += 12345;
}

const Setting kSettings[] = {
    {"short_gi", "HT_GI", wifi_set_short_gi, wifi_get_short_gi},
    {"vht_short_gi", "VHT_SGI", wifi_set_vht_short_gi, wifi_get_vht_short_gi},
    {"rts_threshold", "RTSThreshold",
     [](uci_config_ctx* session, int value) {
         return wifi_set_rts_threshold(session, ignored(), value);
     },
     [](uci_config_ctx* session, int* value) {
         return wifi_get_rts_threshold(session, ignored(), value);
     }},
    {"frag_threshold", "FragThreshold",
     [](uci_config_ctx* session, int value) {
         return wifi_set_frag_threshold(session, ignored(), value);
     },
     [](uci_config_ctx* session, int* value) {
         return wifi_get_frag_threshold(session, ignored(), value);
     }},
    {"dtim_interval", "DtimPeriod",
     [](uci_config_ctx* session, int value) {
         return wifi_set_dtim_interval(session, ignored(), value);
     },
     [](uci_config_ctx* session, int* value) {
         return wifi_get_dtim_interval(session, ignored(), value);
     }},
    {"beacon_rate", "MinPhyBeaconRate", wifi_set_beacon_rate, wifi_get_beacon_rate},
};

class WifiNumber : public WifiTest, public testing::WithParamInterface<Setting> {};

INSTANTIATE_TEST_SUITE_P(Each, WifiNumber, testing::ValuesIn(kSettings),
                         [](const auto& setting) { return setting.param.name; });

TEST_P(WifiNumber, IsStagedAsDecimalTextAndReadsBack) {
    for (const int value : {0, 1, 256, -1, INT_MAX, INT_MIN}) {
        SCOPED_TRACE(value);
        uci_config_ctx* session = section_with({});
        EXPECT_EQ(GetParam().set(session, value), 0);
        EXPECT_EQ(staged(), lines({{GetParam().option, std::to_string(value)}}));
        int read = kUnset;
        EXPECT_EQ(GetParam().get(session, &read), 0);
        EXPECT_EQ(read, value);
    }
}

TEST_P(WifiNumber, IsNotWrittenWhereItIsSetAlready) {
    uci_config_ctx* session = section_with({{GetParam().option, "17"}});
    EXPECT_EQ(GetParam().set(session, 17), 1);
    EXPECT_EQ(staged(), "");
    EXPECT_EQ(GetParam().set(session, 18), 0);
    EXPECT_EQ(staged(), lines({{GetParam().option, "18"}}));
    EXPECT_THAT(failures(), IsEmpty());
}

TEST_P(WifiNumber, IsReadAsTheDecimalNumberThatItStartsWith) {
    const std::map<std::string, int> texts = {
        {"x", 0},    {"-7", -7},         {"12abc", 12},          {"  34", 34},
        {"0x10", 0}, {"4294967295", -1}, {"2147483647", INT_MAX}};
    for (const auto& [text, value] : texts) {
        SCOPED_TRACE(text);
        int read = kUnset;
        EXPECT_EQ(GetParam().get(section_with({{GetParam().option, text}}), &read), 0);
        EXPECT_EQ(read, value);
    }
    EXPECT_THAT(log_.take(), IsEmpty());
}

TEST_P(WifiNumber, IsMissing) {
    int read = kUnset;
    EXPECT_EQ(GetParam().get(section_with({}), &read), -1);
    EXPECT_EQ(read, kUnset);
    EXPECT_THAT(log_.take(), Missing(GetParam().option));
}

TEST_P(WifiNumber, FailsWhereItCannotBeWritten) {
    uci_config_ctx* session = section_with({});
    const RefusedOptions refused({"it." + GetParam().option});
    EXPECT_EQ(GetParam().set(session, 5), -1);
    EXPECT_THAT(log_.take(), ElementsAre(NotCreated(GetParam().option, "5")));
}

TEST_P(WifiNumber, RejectsNull) {
    int read = kUnset;
    EXPECT_EQ(GetParam().set(nullptr, 1), -1);
    EXPECT_THAT(log_.take(), Rejected("wifi_set_" + GetParam().name));
    EXPECT_EQ(GetParam().get(nullptr, &read), -1);
    EXPECT_THAT(log_.take(), Rejected("wifi_get_" + GetParam().name));
    EXPECT_EQ(GetParam().get(section_with({{GetParam().option, "1"}}), nullptr), -1);
    EXPECT_THAT(log_.take(), Rejected("wifi_get_" + GetParam().name));
    EXPECT_EQ(read, kUnset);
}

TEST_P(WifiNumber, FailsInASessionWithoutASection) {
    uci_config_ctx session{};
    ASSERT_EQ(load_uci_config(UCI_CONFIG_WIRELESS, &session), 0);
    int read = kUnset;
    EXPECT_EQ(GetParam().set(&session, 1), -1);
    EXPECT_EQ(GetParam().get(&session, &read), -1);
    const std::string text = "incomplete param, uctx->ptr.s:nil\n";
    EXPECT_THAT(log_.take(), ElementsAre(Line(LOG_ERR, "set_uci_config", text),
                                         Line(LOG_ERR, "get_uci_config", text)));
}

// ---- combined results ----

// What becomes of one of the writes, with its single result.
enum Outcome { kChanged = 0, kUnchanged = 1, kFailed = -1 };

constexpr Outcome kOutcomes[] = {kChanged, kUnchanged, kFailed};

// Calls visit with each of the 3^N combinations.
template <size_t N, typename Visit>
void each_combination(Visit visit) {
    size_t combinations = 1;
    for (size_t i = 0; i < N; i++)
        combinations *= std::size(kOutcomes);
    for (size_t number = 0; number < combinations; number++) {
        std::array<Outcome, N> outcomes{};
        size_t rest = number;
        for (Outcome& outcome : outcomes) {
            outcome = kOutcomes[rest % std::size(kOutcomes)];
            rest /= std::size(kOutcomes);
        }
        visit(outcomes);
    }
}

// The options as they are before a call that sets them to `wanted` with these outcomes, and those
// that refuse it.
struct Arrangement {
    template <typename Outcomes>
    Arrangement(const Options& wanted, const Outcomes& outcomes) {
        for (size_t i = 0; i < wanted.size(); i++) {
            const auto& [option, value] = wanted[i];
            // Some are created and others changed.
            if (outcomes[i] == kUnchanged) before.emplace_back(option, value);
            if (outcomes[i] == kChanged && i % 2 == 1) before.emplace_back(option, "other");
            if (outcomes[i] == kChanged) written.emplace_back(option, value);
            if (outcomes[i] == kFailed) refused.push_back("it." + option);
        }
    }

    Options before;
    Options written;
    std::vector<std::string> refused;
};

template <typename Outcomes>
std::string name_of(const Outcomes& outcomes) {
    std::string name;
    for (const Outcome outcome : outcomes)
        name += std::to_string(outcome) + " ";
    return name;
}

// ---- country ----

class WifiCountry : public WifiTest {};

const Options kChina = {{"country", "CN"}, {"CountryRegion", "1"}, {"CountryRegionABand", "0"}};

TEST_F(WifiCountry, IsChinaWhateverTheDevicesCountryIs) {
    for (const char* country : {"US", "DE", "CN", ""}) {
        const Options before = *country ? Options{{"country", country}} : Options{};
        uci_config_ctx* session = section_with(before);
        EXPECT_EQ(wifi_set_country_code(session), 0);
        EXPECT_STREQ(get_uci_config(session, "country"), "CN");
        EXPECT_STREQ(get_uci_config(session, "CountryRegion"), "1");
        EXPECT_STREQ(get_uci_config(session, "CountryRegionABand"), "0");
    }
}

TEST_F(WifiCountry, IsWrittenInTheStatedOrder) {
    EXPECT_EQ(wifi_set_country_code(section_with({})), 0);
    EXPECT_EQ(staged(), lines(kChina));
}

TEST_F(WifiCountry, CombinesEachOfThe27CombinationsBitByBit) {
    int combinations = 0;
    each_combination<3>([&](const std::array<Outcome, 3>& outcomes) {
        SCOPED_TRACE(name_of(outcomes));
        const Arrangement arranged(kChina, outcomes);
        uci_config_ctx* session = section_with(arranged.before);
        const RefusedOptions refused(arranged.refused);
        const int lowest_bit = (outcomes[0] & outcomes[1]) & 1;
        EXPECT_EQ(wifi_set_country_code(session), lowest_bit & outcomes[2]);
        EXPECT_EQ(staged(), lines(arranged.written));
        combinations++;
    });
    EXPECT_EQ(combinations, 27);
}

TEST_F(WifiCountry, IsOneWhereEachWriteFails) {
    uci_config_ctx* session = section_with({});
    const RefusedOptions refused({"it.country", "it.CountryRegion", "it.CountryRegionABand"});
    EXPECT_EQ(wifi_set_country_code(session), 1);
    EXPECT_THAT(log_.take(),
                ElementsAre(NotCreated("country", "CN"), NotCreated("CountryRegion", "1"),
                            NotCreated("CountryRegionABand", "0")));
}

TEST_F(WifiCountry, RejectsNull) {
    EXPECT_EQ(wifi_set_country_code(nullptr), -1);
    EXPECT_THAT(log_.take(), Rejected("wifi_set_country_code"));
}

// ---- wireless mode ----

struct Mode {
    int mode;
    const char* hwmode;
    const char* ht_bandwidth;
    const char* vht_bandwidth;
    const char* ht_extension;
    int reads_back;

    [[nodiscard]] Options options() const {
        return {{"hwmode", hwmode},
                {"HT_BW", ht_bandwidth},
                {"VHT_BW", vht_bandwidth},
                {"HT_EXTCHA", ht_extension}};
    }
};

// In the order of the table. Eight modes read back as another one.
constexpr Mode kModes[] = {
    {1, "2", "0", "0", "0", 1},    {2, "1", "0", "0", "0", 2},    {3, "0", "0", "0", "0", 3},
    {4, "0", "0", "0", "0", 3},    {5, "2", "0", "0", "0", 1},    {6, "0", "0", "0", "0", 3},
    {7, "8", "0", "0", "0", 7},    {8, "9", "0", "0", "0", 8},    {9, "8", "1", "0", "1", 9},
    {10, "8", "1", "0", "0", 10},  {11, "9", "1", "0", "1", 11},  {12, "9", "1", "0", "0", 12},
    {13, "8", "1", "0", "0", 10},  {14, "9", "1", "0", "0", 12},  {15, "14", "0", "0", "0", 15},
    {16, "14", "1", "0", "1", 16}, {17, "14", "1", "0", "0", 17}, {18, "14", "1", "0", "0", 17},
    {19, "14", "1", "1", "0", 19}, {20, "4", "0", "0", "0", 20},  {21, "14", "1", "1", "0", 19},
    {22, "17", "0", "0", "0", 22}, {24, "17", "1", "0", "1", 24}, {25, "17", "1", "0", "0", 25},
    {26, "17", "1", "0", "1", 24}, {30, "17", "1", "1", "0", 30}, {23, "16", "0", "0", "0", 23},
    {27, "16", "1", "1", "0", 27}, {28, "16", "1", "0", "0", 28}, {29, "16", "1", "0", "1", 29},
};
static_assert(std::size(kModes) == 30);

class WifiMode : public WifiTest {};

TEST_F(WifiMode, WritesEachModeAndReadsItBackAsTheFirstWithItsValues) {
    for (const Mode& row : kModes) {
        SCOPED_TRACE(row.mode);
        uci_config_ctx* session = section_with({});
        EXPECT_EQ(wifi_set_wireless_mode(session, row.mode), 0);
        EXPECT_EQ(staged(), lines(row.options()));
        int mode = kUnset;
        EXPECT_EQ(wifi_get_wireless_mode(session, &mode), 0);
        EXPECT_EQ(mode, row.reads_back);
        EXPECT_EQ(wifi_set_wireless_mode(session, row.mode), 1);
    }
    EXPECT_THAT(failures(), IsEmpty());
}

TEST_F(WifiMode, DoesNotKnowOtherModes) {
    for (const int mode : {0, 31, -1, 23 + 256, INT_MAX, INT_MIN})
        EXPECT_EQ(wifi_set_wireless_mode(section_with({}), mode), -1) << mode;
    EXPECT_EQ(staged(), "");
    EXPECT_THAT(log_.take(), IsEmpty());
}

TEST_F(WifiMode, CombinesEachOfThe81CombinationsBitByBit) {
    int combinations = 0;
    const Options wanted = kModes[8].options();
    each_combination<4>([&](const std::array<Outcome, 4>& outcomes) {
        SCOPED_TRACE(name_of(outcomes));
        const Arrangement arranged(wanted, outcomes);
        uci_config_ctx* session = section_with(arranged.before);
        const RefusedOptions refused(arranged.refused);
        const int lowest_bit = (outcomes[0] & outcomes[1]) & 1;
        EXPECT_EQ(wifi_set_wireless_mode(session, 9), lowest_bit & outcomes[2] & outcomes[3]);
        EXPECT_EQ(staged(), lines(arranged.written));
        combinations++;
    });
    EXPECT_EQ(combinations, 81);
}

TEST_F(WifiMode, IsOneInASessionWithoutASection) {
    uci_config_ctx session{};
    ASSERT_EQ(load_uci_config(UCI_CONFIG_WIRELESS, &session), 0);
    EXPECT_EQ(wifi_set_wireless_mode(&session, 9), 1);
    const auto failed = Line(LOG_ERR, "set_uci_config", "incomplete param, uctx->ptr.s:nil\n");
    EXPECT_THAT(log_.take(), ElementsAre(failed, failed, failed, failed));
}

TEST_F(WifiMode, NeedsEachOption) {
    for (size_t missing = 0; missing < 4; missing++) {
        Options options = kModes[0].options();
        const std::string name = options[missing].first;
        options.erase(options.begin() + static_cast<ptrdiff_t>(missing));
        int mode = kUnset;
        EXPECT_EQ(wifi_get_wireless_mode(section_with(options), &mode), -1);
        EXPECT_EQ(mode, kUnset);
        EXPECT_THAT(log_.take(), Missing(name));
    }
    int mode = kUnset;
    EXPECT_EQ(wifi_get_wireless_mode(section_with({}), &mode), -1);
    EXPECT_THAT(log_.take(), Missing("hwmode"));
}

TEST_F(WifiMode, ComparesEachOption) {
    for (size_t other = 0; other < 4; other++) {
        Options options = kModes[29].options();
        options[other].second = "77";
        int mode = kUnset;
        EXPECT_EQ(wifi_get_wireless_mode(section_with(options), &mode), -1);
        EXPECT_EQ(mode, kUnset);
    }
    EXPECT_THAT(log_.take(), IsEmpty());
}

TEST_F(WifiMode, ComparesNumbersAndNotTheirTexts) {
    int mode = kUnset;
    uci_config_ctx* session =
        section_with({{"hwmode", "08"}, {"HT_BW", "1"}, {"VHT_BW", "no"}, {"HT_EXTCHA", "1"}});
    EXPECT_EQ(wifi_get_wireless_mode(session, &mode), 0);
    EXPECT_EQ(mode, 9);
}

TEST_F(WifiMode, TellsNumbersBeyondAByteApart) {
    int mode = kUnset;
    uci_config_ctx* session =
        section_with({{"hwmode", "258"}, {"HT_BW", "0"}, {"VHT_BW", "0"}, {"HT_EXTCHA", "0"}});
    EXPECT_EQ(wifi_get_wireless_mode(session, &mode), -1);
    EXPECT_EQ(mode, kUnset);
}

TEST_F(WifiMode, RejectsNull) {
    int mode = kUnset;
    EXPECT_EQ(wifi_set_wireless_mode(nullptr, 1), -1);
    EXPECT_THAT(log_.take(), Rejected("wifi_set_wireless_mode"));
    EXPECT_EQ(wifi_get_wireless_mode(nullptr, &mode), -1);
    EXPECT_THAT(log_.take(), Rejected("wifi_get_wireless_mode"));
    EXPECT_EQ(wifi_get_wireless_mode(section_with(kModes[0].options()), nullptr), -1);
    EXPECT_THAT(log_.take(), Rejected("wifi_get_wireless_mode"));
    EXPECT_EQ(mode, kUnset);
}

// ---- multicast rate ----

struct McastRate {
    int rate;
    const char* phy_mode;
    const char* mcs;

    [[nodiscard]] Options options() const {
        return {{"McastPhyMode", phy_mode}, {"McastMcs", mcs}};
    }
};

constexpr McastRate kMcastRates[] = {
    {1, "1", "3"},  {2, "1", "0"},  {5, "1", "1"},  {11, "1", "2"}, {6, "2", "0"},  {9, "2", "1"},
    {12, "2", "2"}, {18, "2", "3"}, {24, "2", "4"}, {36, "2", "5"}, {48, "2", "6"}, {54, "2", "7"},
};
static_assert(std::size(kMcastRates) == 12);

class WifiMcastRate : public WifiTest {};

TEST_F(WifiMcastRate, IsWrittenAndReadsBackAsItself) {
    for (const McastRate& row : kMcastRates) {
        SCOPED_TRACE(row.rate);
        uci_config_ctx* session = section_with({});
        EXPECT_EQ(wifi_set_mcast_rate(session, row.rate), 0);
        EXPECT_EQ(staged(), lines(row.options()));
        int rate = kUnset;
        EXPECT_EQ(wifi_get_mcast_rate(session, &rate), 0);
        EXPECT_EQ(rate, row.rate);
    }
    EXPECT_THAT(failures(), IsEmpty());
}

TEST_F(WifiMcastRate, IsRefusedWhereTheTableHasNone) {
    for (const int rate : {0, 3, 55, -1, 1 + 256, INT_MIN}) {
        EXPECT_EQ(wifi_set_mcast_rate(section_with({}), rate), -1);
        EXPECT_THAT(log_.take(),
                    ElementsAre(Line(LOG_ERR, "wifi_set_mcast_rate",
                                     "not support mcast rate " + std::to_string(rate) + "\n")));
        EXPECT_EQ(staged(), "");
    }
}

TEST_F(WifiMcastRate, CombinesBothWritesAndSkipsTheSecondWhenTheFirstFailed) {
    int combinations = 0;
    each_combination<2>([&](const std::array<Outcome, 2>& outcomes) {
        SCOPED_TRACE(name_of(outcomes));
        const Arrangement arranged(kMcastRates[10].options(), outcomes);
        uci_config_ctx* session = section_with(arranged.before);
        const RefusedOptions refused(arranged.refused);
        const bool first_failed = outcomes[0] == kFailed;
        EXPECT_EQ(wifi_set_mcast_rate(session, 48), first_failed ? -1 : outcomes[1] & outcomes[0]);
        EXPECT_EQ(staged(), first_failed ? "" : lines(arranged.written));
        combinations++;
    });
    EXPECT_EQ(combinations, 9);
}

TEST_F(WifiMcastRate, NeedsBothOptions) {
    int rate = kUnset;
    for (const Options& options : {Options{{"McastMcs", "1"}}, Options{}}) {
        EXPECT_EQ(wifi_get_mcast_rate(section_with(options), &rate), -1);
        EXPECT_THAT(log_.take(), Missing("McastPhyMode"));
    }
    EXPECT_EQ(wifi_get_mcast_rate(section_with({{"McastPhyMode", "1"}}), &rate), -1);
    EXPECT_THAT(log_.take(), Missing("McastMcs"));
    EXPECT_EQ(rate, kUnset);
}

TEST_F(WifiMcastRate, NamesThePairThatTheTableDoesNotHave) {
    int rate = kUnset;
    for (const auto& [phy_mode, mcs] : {std::pair("1", "4"), std::pair("3", "0")}) {
        uci_config_ctx* session = section_with({{"McastPhyMode", phy_mode}, {"McastMcs", mcs}});
        EXPECT_EQ(wifi_get_mcast_rate(session, &rate), -1);
        const std::string text = std::string("not support mcast (mode ") + phy_mode + ", mcs ";
        EXPECT_THAT(log_.take(), ElementsAre(Line(LOG_ERR, "wifi_get_mcast_rate",
                                                  text + std::string(mcs) + ")\n")));
    }
    EXPECT_EQ(rate, kUnset);
}

TEST_F(WifiMcastRate, RejectsNull) {
    int rate = kUnset;
    EXPECT_EQ(wifi_set_mcast_rate(nullptr, 1), -1);
    EXPECT_THAT(log_.take(), Rejected("wifi_set_mcast_rate"));
    EXPECT_EQ(wifi_get_mcast_rate(nullptr, &rate), -1);
    EXPECT_THAT(log_.take(), Rejected("wifi_get_mcast_rate"));
    EXPECT_EQ(wifi_get_mcast_rate(section_with(kMcastRates[0].options()), nullptr), -1);
    EXPECT_THAT(log_.take(), Rejected("wifi_get_mcast_rate"));
    EXPECT_EQ(rate, kUnset);
}

// ---- authentication ----

struct AuthType {
    int type;
    const char* text;
    const char* psk_text;  // null where there is none
    int psk_reads_back;
};

constexpr AuthType kAuthTypes[] = {
    {0, "none", nullptr, -1}, {1, "wep-shared", nullptr, -1}, {2, "wep-open", nullptr, -1},
    {3, "wpa", "psk", 3},     {4, "wpa2", "psk2", 4},         {5, "mixed-wpa", "mixed-psk", 5},
    {6, "ccmp", nullptr, -1}, {7, "wpa2-wpa3", "psk2", 4},
};

constexpr const char* kCiphers[] = {"ccmp", "ccmp+tkip", "tkip", "suite_b"};

class WifiAuth : public WifiTest {};

TEST_F(WifiAuth, WritesTheTypesWithoutAPreSharedKey) {
    for (const AuthType& row : kAuthTypes) {
        if (row.psk_text) continue;
        SCOPED_TRACE(row.text);
        uci_config_ctx* session = section_with({});
        EXPECT_EQ(wifi_set_auth_type(session, row.type), 0);
        EXPECT_EQ(staged(), lines({{"encryption", row.text}}));
        EXPECT_EQ(wifi_set_auth_type(session, row.type), 1);
        const RefusedOptions refused({"it.encryption"});
        EXPECT_EQ(wifi_set_auth_type(session, row.type == 0 ? 1 : 0), -1);
    }
}

TEST_F(WifiAuth, LeavesTheTypesWithAPreSharedKeyToTheOtherSetter) {
    for (const int type : {3, 4, 5, 7}) {
        uci_config_ctx* session = section_with({{"encryption", "wep-open"}});
        EXPECT_EQ(wifi_set_auth_type(session, type), 1) << type;
        EXPECT_STREQ(get_uci_config(session, "encryption"), "wep-open");
        EXPECT_EQ(staged(), "");
    }
    EXPECT_THAT(log_.take(), IsEmpty());
}

TEST_F(WifiAuth, DoesNotKnowOtherTypes) {
    for (const int type : {8, -1, 256, INT_MAX}) {
        EXPECT_EQ(wifi_set_auth_type(section_with({}), type), -1) << type;
        EXPECT_EQ(wifi_set_auth_wpa_type(section_with({}), type, 1, 0), -1) << type;
        EXPECT_EQ(staged(), "");
    }
    EXPECT_THAT(log_.take(), IsEmpty());
}

TEST_F(WifiAuth, ReadsBothColumnsOfTheTableTheFirstRowFirst) {
    for (const AuthType& row : kAuthTypes) {
        SCOPED_TRACE(row.text);
        int type = kUnset;
        EXPECT_EQ(wifi_get_auth_type(section_with({{"encryption", row.text}}), &type), 0);
        EXPECT_EQ(type, row.type);
        if (!row.psk_text) continue;
        EXPECT_EQ(wifi_get_auth_type(section_with({{"encryption", row.psk_text}}), &type), 0);
        EXPECT_EQ(type, row.psk_reads_back);
    }
    EXPECT_THAT(log_.take(), IsEmpty());
}

TEST_F(WifiAuth, DoesNotReadOtherTexts) {
    int type = kUnset;
    for (const char* text : {"wpa3", "NONE", "psk2+ccmp", "p", "wpa2-wpa34"})
        EXPECT_EQ(wifi_get_auth_type(section_with({{"encryption", text}}), &type), -1) << text;
    EXPECT_THAT(log_.take(), IsEmpty());
    EXPECT_EQ(wifi_get_auth_type(section_with({}), &type), -1);
    EXPECT_THAT(log_.take(), Missing("encryption"));
    EXPECT_EQ(type, kUnset);
}

TEST_F(WifiAuth, RejectsNull) {
    int type = kUnset;
    EXPECT_EQ(wifi_set_auth_type(nullptr, 0), -1);
    EXPECT_THAT(log_.take(), Rejected("wifi_set_auth_type"));
    EXPECT_EQ(wifi_get_auth_type(nullptr, &type), -1);
    EXPECT_THAT(log_.take(), Rejected("wifi_get_auth_type"));
    EXPECT_EQ(wifi_get_auth_type(section_with({{"encryption", "none"}}), nullptr), -1);
    EXPECT_THAT(log_.take(), Rejected("wifi_get_auth_type"));
    EXPECT_EQ(type, kUnset);
}

class WifiWpa : public WifiTest {};

TEST_F(WifiWpa, WritesTheCipherAndTheTextOfTheVariant) {
    for (const AuthType& row : kAuthTypes) {
        for (int cipher = 0; cipher < 4; cipher++) {
            const char* aes = kCiphers[cipher];
            SCOPED_TRACE(std::string(row.text) + " " + aes);
            EXPECT_EQ(wifi_set_auth_wpa_type(section_with({}), row.type, 1, cipher), 0);
            EXPECT_EQ(staged(), lines({{"aes", aes}, {"encryption", row.text}}));
            if (!row.psk_text) continue;
            for (const int enterprise : {0, 2, -1}) {
                EXPECT_EQ(wifi_set_auth_wpa_type(section_with({}), row.type, enterprise, cipher),
                          0);
                EXPECT_EQ(staged(), lines({{"aes", aes}, {"encryption", row.psk_text}}));
            }
        }
    }
    EXPECT_THAT(failures(), IsEmpty());
}

TEST_F(WifiWpa, FailsInTheSessionWhereTheTypeHasNoPreSharedKey) {
    for (const AuthType& row : kAuthTypes) {
        if (row.psk_text) continue;
        EXPECT_EQ(wifi_set_auth_wpa_type(section_with({}), row.type, 0, 2), 0) << row.text;
        EXPECT_EQ(staged(), lines({{"aes", "tkip"}}));
        EXPECT_EQ(wifi_set_auth_wpa_type(section_with({{"aes", "tkip"}}), row.type, 0, 2), 1);
        const auto failed =
            Line(LOG_ERR, "set_uci_config", "incomplete param, val_str:nil, option:encryption\n");
        EXPECT_THAT(failures(), ElementsAre(failed, failed));
    }
}

TEST_F(WifiWpa, CombinesBothWritesBitByBit) {
    int combinations = 0;
    each_combination<2>([&](const std::array<Outcome, 2>& outcomes) {
        SCOPED_TRACE(name_of(outcomes));
        const Arrangement arranged({{"aes", "ccmp+tkip"}, {"encryption", "psk2"}}, outcomes);
        uci_config_ctx* session = section_with(arranged.before);
        const RefusedOptions refused(arranged.refused);
        EXPECT_EQ(wifi_set_auth_wpa_type(session, 4, 0, 1), outcomes[0] & outcomes[1]);
        EXPECT_EQ(staged(), lines(arranged.written));
        combinations++;
    });
    EXPECT_EQ(combinations, 9);
}

TEST_F(WifiWpa, DoesNotKnowOtherCiphers) {
    for (const int cipher : {4, -1, 256}) {
        EXPECT_EQ(wifi_set_auth_wpa_type(section_with({}), 4, 0, cipher), -1);
        EXPECT_EQ(staged(), "");
    }
    EXPECT_THAT(log_.take(), IsEmpty());
}

TEST_F(WifiWpa, ReadsTheVariantAndTheCipher) {
    for (const AuthType& row : kAuthTypes) {
        for (int cipher = 0; cipher < 4; cipher++) {
            SCOPED_TRACE(row.text);
            const char* aes = kCiphers[cipher];
            int enterprise = kUnset;
            int read = kUnset;
            uci_config_ctx* session = section_with({{"encryption", row.text}, {"aes", aes}});
            EXPECT_EQ(wifi_get_auth_wpa_type(session, row.type, &enterprise, &read), 0);
            EXPECT_EQ(enterprise, 1);
            EXPECT_EQ(read, cipher);
            if (!row.psk_text) continue;
            session = section_with({{"encryption", row.psk_text}, {"aes", aes}});
            EXPECT_EQ(wifi_get_auth_wpa_type(session, row.type, &enterprise, &read), 0);
            EXPECT_EQ(enterprise, 0);
            EXPECT_EQ(read, cipher);
        }
    }
    EXPECT_THAT(log_.take(), IsEmpty());
}

TEST_F(WifiWpa, ReadsBackTypeFourAsSeven) {
    uci_config_ctx* session = section_with({});
    EXPECT_EQ(wifi_set_auth_wpa_type(session, 4, 0, 1), 0);
    int enterprise = kUnset;
    int cipher = kUnset;
    EXPECT_EQ(wifi_get_auth_wpa_type(session, 7, &enterprise, &cipher), 0);
    EXPECT_EQ(enterprise, 0);
    EXPECT_EQ(cipher, 1);
}

TEST_F(WifiWpa, FailsOnAnotherTypeOrCipherAndTouchesNothing) {
    int enterprise = kUnset;
    int cipher = kUnset;
    const auto get = [&](const Options& options, int type) {
        return wifi_get_auth_wpa_type(section_with(options), type, &enterprise, &cipher);
    };
    EXPECT_EQ(get({{"encryption", "psk2"}, {"aes", "ccmp"}}, 3), -1);
    EXPECT_EQ(get({{"encryption", "psk2"}, {"aes", "ccmp"}}, 8), -1);
    EXPECT_EQ(get({{"encryption", "wpa2"}, {"aes", "wep"}}, 4), -1);
    EXPECT_EQ(get({{"encryption", "wep-open"}, {"aes", "ccmp"}}, 1), -1);
    EXPECT_EQ(get({{"encryption", "psk2"}}, 3), -1);
    EXPECT_THAT(log_.take(), IsEmpty());
    for (const int type : {4, 8}) {
        EXPECT_EQ(get({}, type), -1);
        EXPECT_THAT(log_.take(), Missing("encryption"));
    }
    EXPECT_EQ(get({{"encryption", "wpa2"}}, 4), -1);
    EXPECT_THAT(log_.take(), Missing("aes"));
    EXPECT_EQ(enterprise, kUnset);
    EXPECT_EQ(cipher, kUnset);
}

TEST_F(WifiWpa, RejectsNull) {
    int output = kUnset;
    EXPECT_EQ(wifi_set_auth_wpa_type(nullptr, 4, 0, 0), -1);
    EXPECT_THAT(log_.take(), Rejected("wifi_set_auth_wpa_type"));
    EXPECT_EQ(wifi_get_auth_wpa_type(nullptr, 4, &output, &output), -1);
    EXPECT_THAT(log_.take(), Rejected("wifi_get_auth_wpa_type"));
    uci_config_ctx* session = section_with({{"encryption", "wpa2"}, {"aes", "ccmp"}});
    EXPECT_EQ(wifi_get_auth_wpa_type(session, 4, nullptr, &output), -1);
    EXPECT_THAT(log_.take(), Rejected("wifi_get_auth_wpa_type"));
    EXPECT_EQ(wifi_get_auth_wpa_type(session, 4, &output, nullptr), -1);
    EXPECT_THAT(log_.take(), Rejected("wifi_get_auth_wpa_type"));
    EXPECT_EQ(output, kUnset);
}

// ---- key ----

class WifiKey : public WifiTest {};

TEST_F(WifiKey, IsWrittenAsItIsAndReadsBack) {
    for (const std::string key :
         {"correct horse", "it's a \"key\"", "p@ss=w; # 1", "Schl\xc3\xbc"}) {
        SCOPED_TRACE(key);
        uci_config_ctx* session = section_with({});
        EXPECT_EQ(wifi_set_auth_wpa_key(session, key.c_str()), 0);
        EXPECT_EQ(wifi_set_auth_wpa_key(session, key.c_str()), 1);
        EXPECT_EQ(run_command("uci get wireless.it.key").out, key + "\n");
        Buffer buf(64);
        EXPECT_EQ(wifi_get_auth_wpa_key(session, buf.data(), buf.size()), 0);
        EXPECT_EQ(buf.all(), key + std::string(64 - key.size(), '\0'));
        EXPECT_TRUE(buf.guard_holds());
    }
}

TEST_F(WifiKey, IsCutToFit) {
    uci_config_ctx* session = section_with({{"key", "abcdef"}});
    for (const auto& [len, text] : std::map<int, std::string>{
             {1, ""}, {2, "a"}, {6, "abcde"}, {7, "abcdef"}, {8, "abcdef"}}) {
        Buffer buf(len);
        EXPECT_EQ(wifi_get_auth_wpa_key(session, buf.data(), len), 0);
        EXPECT_EQ(buf.text(), text);
        EXPECT_TRUE(buf.guard_holds());
    }
}

TEST_F(WifiKey, CanBeMissing) {
    Buffer buf(8);
    EXPECT_EQ(wifi_get_auth_wpa_key(section_with({}), buf.data(), buf.size()), -1);
    EXPECT_EQ(buf.text(), "");
    EXPECT_THAT(log_.take(), Missing("key"));
}

TEST_F(WifiKey, CannotBeEmpty) {
    uci_config_ctx* session = section_with({{"key", "x"}});
    EXPECT_EQ(wifi_set_auth_wpa_key(session, ""), -1);
    EXPECT_THAT(log_.take(), ElementsAre(Line(LOG_ERR, "set_uci_config",
                                              "incomplete param, val_str:, option:key\n")));
    EXPECT_STREQ(get_uci_config(session, "key"), "x");
}

TEST_F(WifiKey, RejectsNullAndSizesOfZeroOrLess) {
    Buffer buf(8);
    uci_config_ctx* session = section_with({{"key", "x"}});
    EXPECT_EQ(wifi_set_auth_wpa_key(nullptr, "y"), -1);
    EXPECT_THAT(log_.take(), Rejected("wifi_set_auth_wpa_key"));
    EXPECT_EQ(wifi_set_auth_wpa_key(session, nullptr), -1);
    EXPECT_THAT(log_.take(), Rejected("wifi_set_auth_wpa_key"));
    EXPECT_EQ(wifi_get_auth_wpa_key(nullptr, buf.data(), 8), -1);
    EXPECT_THAT(log_.take(), Rejected("wifi_get_auth_wpa_key"));
    EXPECT_EQ(wifi_get_auth_wpa_key(session, nullptr, 8), -1);
    EXPECT_THAT(log_.take(), Rejected("wifi_get_auth_wpa_key"));
    for (const int len : {0, -1, INT_MIN}) {
        EXPECT_EQ(wifi_get_auth_wpa_key(session, buf.data(), len), -1);
        EXPECT_THAT(log_.take(), Rejected("wifi_get_auth_wpa_key"));
    }
    EXPECT_TRUE(buf.untouched());
}

// ---- RADIUS server ----

constexpr uint32_t kServerAddress = 0xc0a8011e;

wifi_radius_server server_with(std::string& secret) {
    return {kServerAddress, 1812, secret.data()};
}

// On a device whose WAN is eth1, with an address.
class WifiRadius : public WifiTest {
  protected:
    WifiRadius() { run_command("ip addr add 192.0.2.7/24 dev eth1"); }
    ~WifiRadius() override { run_command("ip addr flush dev eth1"); }

    static Options wanted(const std::string& network = "lan") {
        return {{"auth_server", "192.168.1.30"}, {"auth_secret", "a secret"},
                {"auth_port", "1812"},           {"ownip", "192.0.2.7"},
                {"eapifname", "br-" + network},  {"preauthifname", "br-" + network}};
    }

    // A VAP in that network.
    uci_config_ctx* vap(const Options& options, const std::string& network = "lan") {
        Options all = options;
        all.emplace_back("network", network);
        return section_with(all);
    }

    std::string secret_ = "a secret";
    wifi_radius_server server_ = server_with(secret_);
};

TEST_F(WifiRadius, WritesTheServerAndTheApsOwnSide) {
    EXPECT_EQ(wifi_set_auth_radius_server(vap({}), &server_), 0);
    EXPECT_EQ(staged(), lines(wanted()));
    EXPECT_EQ(wifi_set_auth_radius_server(vap({}, "guest"), &server_), 0);
    EXPECT_EQ(staged(), lines(wanted("guest")));
    EXPECT_THAT(failures(), IsEmpty());
}

TEST_F(WifiRadius, WritesTheMostSignificantOctetFirstAndASignedPort) {
    server_.addr = 0x01020304;
    server_.port = -1;
    uci_config_ctx* session = vap({});
    EXPECT_EQ(wifi_set_auth_radius_server(session, &server_), 0);
    EXPECT_STREQ(get_uci_config(session, "auth_server"), "1.2.3.4");
    EXPECT_STREQ(get_uci_config(session, "auth_port"), "-1");
    server_.addr = 0xffffffff;
    server_.port = INT_MAX;
    EXPECT_EQ(wifi_set_auth_radius_server(session, &server_), 0);
    EXPECT_STREQ(get_uci_config(session, "auth_server"), "255.255.255.255");
    EXPECT_STREQ(get_uci_config(session, "auth_port"), "2147483647");
}

TEST_F(WifiRadius, IsOneWhereNothingChanges) {
    EXPECT_EQ(wifi_set_auth_radius_server(vap(wanted()), &server_), 1);
    EXPECT_EQ(staged(), "");
}

TEST_F(WifiRadius, IsMinusOneWhereEveryWriteFails) {
    const Arrangement arranged(wanted(), std::vector<Outcome>(6, kFailed));
    uci_config_ctx* session = vap(arranged.before);
    const RefusedOptions refused(arranged.refused);
    EXPECT_EQ(wifi_set_auth_radius_server(session, &server_), -1);
    EXPECT_EQ(failures().size(), 6U);
}

TEST_F(WifiRadius, CombinesTheSixWritesBitByBit) {
    for (size_t other = 0; other < 6; other++) {
        for (const auto& [most, one] :
             {std::pair(kUnchanged, kChanged), std::pair(kUnchanged, kFailed),
              std::pair(kFailed, kChanged), std::pair(kFailed, kUnchanged)}) {
            std::vector<Outcome> outcomes(6, most);
            outcomes[other] = one;
            SCOPED_TRACE(name_of(outcomes));
            const Arrangement arranged(wanted(), outcomes);
            uci_config_ctx* session = vap(arranged.before);
            const RefusedOptions refused(arranged.refused);
            EXPECT_EQ(wifi_set_auth_radius_server(session, &server_), most & one);
            EXPECT_EQ(staged(), lines(arranged.written));
        }
    }
}

TEST_F(WifiRadius, WritesTheRestWithoutASecret) {
    char empty[] = "";
    for (char* secret : {static_cast<char*>(nullptr), &empty[0]}) {
        server_.secret = secret;
        Options rest = wanted();
        rest.erase(rest.begin() + 1);
        EXPECT_EQ(wifi_set_auth_radius_server(vap({}), &server_), 0);
        EXPECT_EQ(staged(), lines(rest));
        const std::string text = "incomplete param, val_str:" + std::string(secret ? "" : "nil");
        EXPECT_THAT(failures(),
                    ElementsAre(Line(LOG_ERR, "set_uci_config", text + ", option:auth_secret\n")));
    }
}

TEST_F(WifiRadius, NeedsAWanInterface) {
    write_file("/etc/config/network", "config interface 'lan'\n");
    EXPECT_EQ(wifi_set_auth_radius_server(vap({}), &server_), -1);
    EXPECT_THAT(
        log_.take(),
        ElementsAre(Line(LOG_ERR, "run_cmd", "fgets fail, cmd = get_wan_interface.sh\n\n"),
                    Line(LOG_ERR, "get_wan_name", "run_cmd(GET_WAN_INTERFACE, buf, len) fail\n"),
                    Line(LOG_ERR, "get_wan_if_addr", "get_wan_name(ifname, sizeof(ifname)) fail\n"),
                    Line(LOG_ERR, "wifi_set_auth_radius_server", "get wan ip addr failed!\n")));
    EXPECT_EQ(staged(), "");
}

TEST_F(WifiRadius, NeedsAnAddressOnTheWan) {
    run_command("ip addr flush dev eth1");
    for (const Options& options : {Options{{"network", "lan"}}, Options{}}) {
        EXPECT_EQ(wifi_set_auth_radius_server(section_with(options), &server_), -1);
        EXPECT_THAT(
            failures(),
            ElementsAre(Line(LOG_ERR, "get_wan_if_addr", "get_if_addr(ifname, addr) fail\n"),
                        Line(LOG_ERR, "wifi_set_auth_radius_server", "get wan ip addr failed!\n")));
        EXPECT_EQ(staged(), "");
    }
}

TEST_F(WifiRadius, NeedsANetwork) {
    EXPECT_EQ(wifi_set_auth_radius_server(section_with({}), &server_), -1);
    EXPECT_THAT(
        log_.take(),
        ElementsAre(Line(LOG_NOTICE, "get_uci_config", "get uci config option 'network' failed\n"),
                    Line(LOG_ERR, "wifi_set_auth_radius_server", "get vap network failed!\n")));
    EXPECT_EQ(staged(), "");
}

TEST_F(WifiRadius, RefusesANetworkWhoseBridgeHasNoRoom) {
    const std::string longest(60, 'n');
    uci_config_ctx* session = vap({}, longest);
    EXPECT_EQ(wifi_set_auth_radius_server(session, &server_), 0);
    EXPECT_EQ(get_uci_config(session, "eapifname"), "br-" + longest);
    EXPECT_THAT(failures(), IsEmpty());
    EXPECT_EQ(wifi_set_auth_radius_server(vap({}, longest + "n"), &server_), -1);
    EXPECT_EQ(staged(), "");
    EXPECT_THAT(failures(), ElementsAre(Line(LOG_ERR, "wifi_set_auth_radius_server",
                                             "get vap network failed!\n")));
}

TEST_F(WifiRadius, ReadsTheServerTwiceWithASecretOfItsOwnEach) {
    wifi_radius_server first{};
    wifi_radius_server second{};
    int count = kUnset;
    uci_config_ctx* session = section_with(wanted());
    ASSERT_EQ(wifi_get_auth_radius_server(session, &first, &count), 0);
    EXPECT_EQ(count, 1);
    count = kUnset;
    ASSERT_EQ(wifi_get_auth_radius_server(session, &second, &count), 0);
    EXPECT_EQ(count, 1);
    EXPECT_EQ(free_uci_config(UCI_CONFIG_ALL), 0);
    EXPECT_EQ(first.addr, kServerAddress);
    EXPECT_EQ(first.port, 1812);
    EXPECT_STREQ(first.secret, "a secret");
    EXPECT_EQ(second.addr, kServerAddress);
    EXPECT_STREQ(second.secret, "a secret");
    EXPECT_NE(first.secret, second.secret);
    free(first.secret);
    free(second.secret);
    EXPECT_THAT(log_.take(), IsEmpty());
}

TEST_F(WifiRadius, ReadsWhatItWrote) {
    uci_config_ctx* session = vap({});
    server_.port = INT_MIN;
    EXPECT_EQ(wifi_set_auth_radius_server(session, &server_), 0);
    wifi_radius_server read{};
    int count = 0;
    ASSERT_EQ(wifi_get_auth_radius_server(session, &read, &count), 0);
    EXPECT_EQ(read.addr, server_.addr);
    EXPECT_EQ(read.port, server_.port);
    EXPECT_EQ(read.secret, secret_);
    free(read.secret);
}

// A record and a count that no call may touch.
class UntouchedServer {
  public:
    int read(uci_config_ctx* session) {
        return wifi_get_auth_radius_server(session, &server_, &count_);
    }
    [[nodiscard]] bool holds() const {
        return server_.addr == 5 && server_.port == 6 && !server_.secret && count_ == kUnset;
    }

  private:
    wifi_radius_server server_{5, 6, nullptr};
    int count_ = kUnset;
};

TEST_F(WifiRadius, NeedsEachOptionOfTheServer) {
    UntouchedServer server;
    for (const size_t missing : {0U, 1U, 2U}) {
        Options options = wanted();
        const std::string name = options[missing].first;
        options.erase(options.begin() + static_cast<ptrdiff_t>(missing));
        EXPECT_EQ(server.read(section_with(options)), -1);
        EXPECT_THAT(log_.take(), Missing(name));
    }
    EXPECT_TRUE(server.holds());
}

TEST_F(WifiRadius, ReportsTheFirstThingThatIsWrong) {
    UntouchedServer server;
    EXPECT_EQ(server.read(section_with({})), -1);
    EXPECT_THAT(log_.take(), Missing("auth_server"));
    EXPECT_EQ(server.read(section_with({{"auth_server", "1.2.3"}})), -1);
    EXPECT_THAT(log_.take(),
                ElementsAre(Line(LOG_ERR, "wifi_get_auth_radius_server", "invalid addr: 1.2.3\n")));
    EXPECT_EQ(server.read(section_with({{"auth_server", "1.2.3.4"}})), -1);
    EXPECT_THAT(log_.take(), Missing("auth_port"));
    EXPECT_TRUE(server.holds());
}

TEST_F(WifiRadius, NeedsADottedAddress) {
    UntouchedServer server;
    for (const std::string text :
         {"radius.example", "192.168.1", "192.168.1.256", "1.2.3.4.5", "1.2.3.4 ", "::1", "%s%n"}) {
        Options options = wanted();
        options[0].second = text;
        EXPECT_EQ(server.read(section_with(options)), -1);
        EXPECT_THAT(log_.take(), ElementsAre(Line(LOG_ERR, "wifi_get_auth_radius_server",
                                                  "invalid addr: " + text + "\n")));
    }
    EXPECT_TRUE(server.holds());
}

TEST_F(WifiRadius, FailsWithoutMemoryForTheSecret) {
    TQ_NEEDS_FAILING_ALLOCATOR();
    UntouchedServer server;
    uci_config_ctx* session = section_with(wanted());
    const faults::Fail fail("strdup", 1, ENOMEM);
    EXPECT_EQ(server.read(session), -1);
    EXPECT_TRUE(fail.fired());
    EXPECT_TRUE(server.holds());
    EXPECT_THAT(log_.take(),
                ElementsAre(Line(LOG_ERR, "wifi_get_auth_radius_server", "strdup fail\n")));
}

TEST_F(WifiRadius, DeletesTheSixOptionsAndNoOther) {
    uci_config_ctx* session = vap(wanted());
    EXPECT_EQ(wifi_del_auth_radius_server(session), 0);
    EXPECT_EQ(save_uci_config(UCI_CONFIG_WIRELESS, nullptr, 0), 0);
    EXPECT_EQ(read_file("/etc/config/wireless"), "\nconfig thing 'it'\n\toption network 'lan'\n\n");
    EXPECT_EQ(wifi_del_auth_radius_server(session), 1);
}

TEST_F(WifiRadius, DeletesInTheStatedOrder) {
    EXPECT_EQ(wifi_del_auth_radius_server(section_with(wanted())), 0);
    std::vector<std::string> deleted;
    for (const LogLine& line : log_.take())
        deleted.push_back(line.text);
    EXPECT_THAT(deleted,
                ElementsAre("uci del 'auth_server' success\n", "uci del 'auth_secret' success\n",
                            "uci del 'auth_port' success\n", "uci del 'eapifname' success\n",
                            "uci del 'preauthifname' success\n", "uci del 'ownip' success\n"));
}

TEST_F(WifiRadius, CombinesTheSixDeletesBitByBit) {
    // Deleted, absent, and libuci's code of a delete that failed.
    constexpr int kResults[] = {0, 1, 7};
    for (size_t other = 0; other < 6; other++) {
        for (const int most : kResults) {
            for (const int one : kResults) {
                Options before;
                std::vector<std::string> names;
                for (size_t i = 0; i < 6; i++) {
                    const int result = i == other ? one : most;
                    if (result != 1) before.push_back(wanted()[i]);
                    if (result == 7) names.push_back("it." + wanted()[i].first);
                }
                uci_config_ctx* session = section_with(before);
                const RefusedOptions refused(names, 7);
                EXPECT_EQ(wifi_del_auth_radius_server(session), most & one)
                    << wanted()[other].first << " " << one << ", the others " << most;
            }
        }
    }
}

TEST_F(WifiRadius, RejectsNull) {
    wifi_radius_server server{};
    int count = kUnset;
    uci_config_ctx* session = vap(wanted());
    EXPECT_EQ(wifi_set_auth_radius_server(nullptr, &server_), -1);
    EXPECT_THAT(log_.take(), Rejected("wifi_set_auth_radius_server"));
    EXPECT_EQ(wifi_set_auth_radius_server(session, nullptr), -1);
    EXPECT_THAT(log_.take(), Rejected("wifi_set_auth_radius_server"));
    EXPECT_EQ(wifi_get_auth_radius_server(nullptr, &server, &count), -1);
    EXPECT_THAT(log_.take(), Rejected("wifi_get_auth_radius_server"));
    EXPECT_EQ(wifi_get_auth_radius_server(session, nullptr, &count), -1);
    EXPECT_THAT(log_.take(), Rejected("wifi_get_auth_radius_server"));
    EXPECT_EQ(wifi_get_auth_radius_server(session, &server, nullptr), -1);
    EXPECT_THAT(log_.take(), Rejected("wifi_get_auth_radius_server"));
    EXPECT_EQ(wifi_del_auth_radius_server(nullptr), -1);
    EXPECT_THAT(log_.take(), Rejected("wifi_del_auth_radius_server"));
    EXPECT_EQ(server.secret, nullptr);
    EXPECT_EQ(count, kUnset);
}

// ---- on the device's own configuration ----

class WifiDevice : public WifiTest {};

TEST_F(WifiDevice, StagesASettingAndCommitsItWithTheSession) {
    const std::string before = read_file("/etc/config/wireless");
    uci_config_ctx* radio = session_on("radio0");
    EXPECT_EQ(wifi_set_rts_threshold(radio, 0, 2000), 0);
    EXPECT_EQ(read_file("/etc/config/wireless"), before);
    EXPECT_EQ(run_command("uci get wireless.radio0.RTSThreshold").out, "2000\n");
    EXPECT_EQ(save_uci_config(UCI_CONFIG_WIRELESS, nullptr, 0), 0);
    std::string after = before;
    after.replace(after.find("RTSThreshold '2347'"), 19, "RTSThreshold '2000'");
    EXPECT_EQ(read_file("/etc/config/wireless"), after);
    EXPECT_EQ(staged(), "");
}

TEST_F(WifiDevice, ReadsARadioAndAVap) {
    int value = kUnset;
    uci_config_ctx* session = session_on("radio1");
    EXPECT_EQ(wifi_get_wireless_mode(session, &value), 0);
    EXPECT_EQ(value, 19);
    EXPECT_EQ(wifi_get_mcast_rate(session, &value), 0);
    EXPECT_EQ(value, 24);
    session = session_on("office_radio0");
    EXPECT_EQ(wifi_get_auth_type(session, &value), 0);
    EXPECT_EQ(value, 4);
    wifi_radius_server server{};
    EXPECT_EQ(wifi_get_auth_radius_server(session, &server, &value), 0);
    EXPECT_STREQ(server.secret, "radius secret 1");
    free(server.secret);
}

TEST_F(WifiDevice, TakesAListForAMissingOption) {
    write_file("/etc/config/wireless", "config thing 'it'\n\tlist RTSThreshold '5'\n");
    int value = kUnset;
    uci_config_ctx* session = session_on("it");
    EXPECT_EQ(wifi_get_rts_threshold(session, 0, &value), -1);
    EXPECT_EQ(value, kUnset);
    EXPECT_THAT(log_.take(), Missing("RTSThreshold"));
}

TEST_F(WifiDevice, KeepsASettingThatCouldNotBeStaged) {
    uci_config_ctx* radio = session_on("radio0");
    {
        const tq_test::ReadOnly locked("/tmp");
        EXPECT_EQ(wifi_set_beacon_rate(radio, 12), -1);
        EXPECT_THAT(log_.take(), ElementsAre(Line(LOG_ERR, "set_uci_config",
                                                  "change uci value '12' for option "
                                                  "'MinPhyBeaconRate' failed\n")));
    }
    EXPECT_EQ(save_uci_config(UCI_CONFIG_WIRELESS, nullptr, 0), 0);
    EXPECT_EQ(run_command("uci get wireless.radio0.MinPhyBeaconRate").out, "12\n");
}

TEST_F(WifiDevice, FailsOnASessionWhoseFileWasFreed) {
    uci_config_ctx* radio = session_on("radio0");
    EXPECT_EQ(free_uci_config(UCI_CONFIG_WIRELESS), 0);
    int value = kUnset;
    EXPECT_EQ(wifi_get_short_gi(radio, &value), -1);
    EXPECT_EQ(wifi_set_short_gi(radio, 1), -1);
    EXPECT_EQ(value, kUnset);
    const std::string text = "incomplete param, uctx->ptr.s:nil\n";
    EXPECT_THAT(log_.take(), ElementsAre(Line(LOG_ERR, "get_uci_config", text),
                                         Line(LOG_ERR, "set_uci_config", text)));
}

// ---- 802.11ax ----

class WifiHe : public WifiTest {};

struct HeSetting {
    Setter set;
    Getter get;
};

constexpr HeSetting kHeSettings[] = {
    {wifi_set_he_short_gi, wifi_get_he_short_gi},   {wifi_set_he_max_ampdu, wifi_get_he_max_ampdu},
    {wifi_set_he_qam1024, wifi_get_he_qam1024},     {wifi_set_he_mu_mimo, wifi_get_he_mu_mimo},
    {wifi_set_he_ulofdma, wifi_get_he_ulofdma},     {wifi_set_he_dlofdma, wifi_get_he_dlofdma},
    {wifi_set_he_bss_color, wifi_get_he_bss_color},
};

TEST_F(WifiHe, IsNotConfigurable) {
    uci_config_ctx* radio = session_on("radio1");
    for (const HeSetting& setting : kHeSettings) {
        int value = kUnset;
        EXPECT_EQ(setting.set(radio, 1), 1);
        EXPECT_EQ(setting.get(radio, &value), 1);
        EXPECT_EQ(setting.set(nullptr, 1), 1);
        EXPECT_EQ(setting.get(nullptr, nullptr), 1);
        EXPECT_EQ(value, kUnset);
    }
    EXPECT_EQ(staged(), "");
    EXPECT_THAT(log_.take(), IsEmpty());
}

}  // namespace
