// board_test.cpp - what the access point is made of: the facts that the board library gives, what
// becomes of its odd answers, interface names both ways, and the operating mode.
#include "tq/board.h"

#include <dlfcn.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <tq/oem.h>

#include <climits>
#include <cstring>
#include <map>
#include <optional>
#include <string>
#include <tuple>
#include <utility>
#include <vector>

#include "support/buffer.h"
#include "support/device.h"
#include "support/log_capture.h"

namespace {

// A question to the board library: the function, the selector and the index, 0 where it has none.
using Question = std::tuple<std::string, int, int>;

struct Answer {
    int result;
    std::optional<std::string> bytes;  // as they are written, or nothing is
};

// What the board library is asked, and answers of a test's own in place of the board's.
std::vector<Question> questions;
std::map<Question, Answer> answers;
std::string asked_name;

std::optional<int> answer_of_test(const Question& question, void* out = nullptr) {
    questions.push_back(question);
    const auto answer = answers.find(question);
    if (answer == answers.end()) return std::nullopt;
    const auto& bytes = answer->second.bytes;
    if (bytes) memcpy(out, bytes->data(), bytes->size());
    return answer->second.result;
}

template <typename Function>
Function* next(const char* name) {
    return reinterpret_cast<Function*>(dlsym(RTLD_NEXT, name));
}

}  // namespace

// In the board library's place, which they ask where the test has no answer.

int tq_get_oem_ap_type_common(int selector) {
    const auto answer = answer_of_test({"common", selector, 0});
    return answer ? *answer : next<decltype(tq_get_oem_ap_type_common)>(__func__)(selector);
}

int tq_get_oem_ap_type_radio_index_info(int selector, int radio, void* out) {
    const auto answer = answer_of_test({"radio", selector, radio}, out);
    return answer ? *answer
                  : next<decltype(tq_get_oem_ap_type_radio_index_info)>(__func__)(selector, radio,
                                                                                  out);
}

int tq_get_oem_ap_type_radio_ifname_index(int selector, const char* ifname) {
    asked_name = ifname ? ifname : "(null)";
    const auto answer = answer_of_test({"ifname", selector, 0});
    return answer
               ? *answer
               : next<decltype(tq_get_oem_ap_type_radio_ifname_index)>(__func__)(selector, ifname);
}

int tq_get_oem_ap_type_ge_index_info(int selector, int port, char* out) {
    const auto answer = answer_of_test({"gigabit", selector, port}, out);
    return answer ? *answer
                  : next<decltype(tq_get_oem_ap_type_ge_index_info)>(__func__)(selector, port, out);
}

int tq_get_oem_ap_type_fe_index_info(int selector, int port, char* out) {
    const auto answer = answer_of_test({"fast", selector, port}, out);
    return answer ? *answer
                  : next<decltype(tq_get_oem_ap_type_fe_index_info)>(__func__)(selector, port, out);
}

int tq_get_oem_ap_type_wan_info(int selector, char* out) {
    const auto answer = answer_of_test({"wan", selector, 0}, out);
    return answer ? *answer : next<decltype(tq_get_oem_ap_type_wan_info)>(__func__)(selector, out);
}

int tq_get_oem_ap_type_lan_index_info(int selector, int index, char* out) {
    const auto answer = answer_of_test({"lan", selector, index}, out);
    return answer
               ? *answer
               : next<decltype(tq_get_oem_ap_type_lan_index_info)>(__func__)(selector, index, out);
}

namespace {

using testing::ElementsAre;
using testing::IsEmpty;
using tq_test::Buffer;
using tq_test::Failed;
using tq_test::kUntouched;
using tq_test::Line;
using tq_test::LogCapture;
using tq_test::LogLine;
using tq_test::Rejected;
using tq_test::use_board;
using tq_test::write_file;

class BoardTest : public tq_test::DeviceTest {
  protected:
    BoardTest() {
        questions.clear();
        answers.clear();
        asked_name.clear();
    }

    LogCapture log_;
};

class BoardRadio : public BoardTest {};
class BoardRadioReturns : public BoardTest {};
class BoardVap : public BoardTest {};
class BoardPorts : public BoardTest {};
class BoardWanLan : public BoardTest {};
class BoardModes : public BoardTest {};

constexpr const char* kBoard = "/etc/board.conf";

auto Traced(const char* function, const std::string& text) {
    return ElementsAre(Line(LOG_DEBUG, function, text));
}

std::string bytes_of(int number) {
    return {reinterpret_cast<const char*>(&number), sizeof(number)};
}

std::string text_answer(const std::string& text) {
    return {text.c_str(), text.size() + 1};
}

void answer_counts(int gigabit_ports, int fast_ports, int radios) {
    answers[{"common", AP_TYPE_GE_PORT_NUM, 0}] = {gigabit_ports, {}};
    answers[{"common", AP_TYPE_FE_PORT_NUM, 0}] = {fast_ports, {}};
    answers[{"common", AP_TYPE_RADIO_NUM, 0}] = {radios, {}};
}

void answer_naming(int mode, const std::vector<Answer>& prefixes) {
    answers[{"common", AP_TYPE_VAP_NAME_MODE, 0}] = {mode, {}};
    answers[{"common", AP_TYPE_RADIO_NUM, 0}] = {static_cast<int>(prefixes.size()), {}};
    for (size_t i = 0; i < prefixes.size(); i++)
        answers[{"radio", AP_TYPE_RADIO_PREFIX_IFNAME, static_cast<int>(i)}] = prefixes[i];
}

Answer prefix(const std::string& text) {
    return {0, text_answer(text)};
}

// ---- radios ----

TEST_F(BoardRadio, CountsTheRadios) {
    for (const auto& [sample, radios] :
         std::map<std::string, int>{{"one", 1}, {"dual", 2}, {"tri", 3}}) {
        use_board(sample + "-radio");
        int count = -5;
        EXPECT_EQ(bbi_radio_count(&count), 0);
        EXPECT_EQ(count, radios);
        EXPECT_THAT(log_.take(),
                    Traced("bbi_radio_count", "support " + std::to_string(radios) + " radio\n"));
    }
}

TEST_F(BoardRadio, TakesACountOfNoRadios) {
    answer_counts(0, 0, 0);
    int count = -5;
    EXPECT_EQ(bbi_radio_count(&count), 0);
    EXPECT_EQ(count, 0);
    EXPECT_THAT(log_.take(), Traced("bbi_radio_count", "support 0 radio\n"));
}

TEST_F(BoardRadio, TakesANegativeCountForAFailure) {
    for (const int radios : {-1, INT_MIN}) {
        answer_counts(0, 0, radios);
        int count = -5;
        EXPECT_EQ(bbi_radio_count(&count), -1);
        EXPECT_EQ(count, -5);
        EXPECT_THAT(log_.take(), Failed("bbi_radio_count", "get support radio count fail\n"));
    }
}

TEST_F(BoardRadio, RejectsMissingOutputs) {
    EXPECT_EQ(bbi_radio_count(nullptr), -1);
    EXPECT_THAT(log_.take(), Rejected("bbi_radio_count"));
    EXPECT_EQ(bbi_radio_support_mode(0, nullptr), -1);
    EXPECT_THAT(log_.take(), Rejected("bbi_radio_support_mode"));
    EXPECT_EQ(bbi_radio_bss_support(0, nullptr), -1);
    EXPECT_THAT(log_.take(), Rejected("bbi_radio_bss_support"));
    EXPECT_EQ(bbi_radio_hidebss_id(0, nullptr), -1);
    EXPECT_THAT(log_.take(), Rejected("bbi_radio_hidebss_id"));
    EXPECT_EQ(bbi_radio_reservedbss_id(0, nullptr), -1);
    EXPECT_THAT(log_.take(), Rejected("bbi_radio_reservedbss_id"));
    EXPECT_THAT(questions, IsEmpty());
}

// The two that copy a name in the same way.
struct NameGetter {
    const char* function;
    int (*get)(int, char*, unsigned);
    int selector;
    const char* what;
    const char* of_radio_1;
};

constexpr NameGetter kNameGetters[] = {
    {"bbi_radio_device", bbi_radio_device, AP_TYPE_RADIO_DEVICE, "device", "wifi1"},
    {"bbi_radio_prefix_ifname", bbi_radio_prefix_ifname, AP_TYPE_RADIO_PREFIX_IFNAME,
     "prefix ifname", "wlan"},
};

std::string trace_of(const NameGetter& getter, int radio, const std::string& name) {
    return "radio " + std::to_string(radio) + " " + getter.what + " '" + name + "'\n";
}

TEST_F(BoardRadio, CopiesANameAndClearsTheRest) {
    for (const NameGetter& getter : kNameGetters) {
        Buffer buf(40);
        EXPECT_EQ(getter.get(1, buf.data(), 40), 0);
        std::string expected = getter.of_radio_1;
        EXPECT_THAT(log_.take(), Traced(getter.function, trace_of(getter, 1, expected)));
        expected.resize(40);
        EXPECT_EQ(buf.all(), expected);
        EXPECT_TRUE(buf.guard_holds());
    }
}

TEST_F(BoardRadio, CutsANameToTheCallersBuffer) {
    const std::string longest(31, 'n');
    for (const NameGetter& getter : kNameGetters) {
        answers[{"radio", getter.selector, 0}] = {0, text_answer(longest)};
        for (int size = 1; size <= 40; size++) {
            Buffer buf(size);
            EXPECT_EQ(getter.get(0, buf.data(), static_cast<unsigned>(size)), 0);
            const std::string cut = longest.substr(0, static_cast<size_t>(size) - 1);
            EXPECT_EQ(buf.text(), cut);
            EXPECT_TRUE(buf.guard_holds());
            EXPECT_THAT(log_.take(), Traced(getter.function, trace_of(getter, 0, cut)));
        }
    }
}

TEST_F(BoardRadio, StaysWithinABoardsUnterminatedName) {
    for (const NameGetter& getter : kNameGetters) {
        answers[{"radio", getter.selector, 0}] = {0, std::string(64, 'n')};
        Buffer buf(100);
        EXPECT_EQ(getter.get(0, buf.data(), 100), 0);
        EXPECT_EQ(buf.text(), std::string(63, 'n'));
        EXPECT_THAT(log_.take(),
                    Traced(getter.function, trace_of(getter, 0, std::string(63, 'n'))));
    }
}

TEST_F(BoardRadio, FailsWithoutANameAndLeavesAnEmptyOne) {
    for (const NameGetter& getter : kNameGetters) {
        for (const int radio : {2, INT_MAX, -1, INT_MIN}) {
            Buffer buf(40);
            EXPECT_EQ(getter.get(radio, buf.data(), 40), -1);
            EXPECT_EQ(buf.text(), "");
            EXPECT_THAT(log_.take(), Failed(getter.function, "get radio " + std::to_string(radio) +
                                                                 " " + getter.what + " fail\n"));
        }
    }
}

TEST_F(BoardRadio, TakesEveryNegativeResultForAFailureAndNoOther) {
    for (const NameGetter& getter : kNameGetters) {
        Buffer buf(40);
        answers[{"radio", getter.selector, 0}] = {-2, text_answer("name")};
        EXPECT_EQ(getter.get(0, buf.data(), 40), -1);
        EXPECT_EQ(buf.text(), "");
        answers[{"radio", getter.selector, 0}] = {7, text_answer("name")};
        EXPECT_EQ(getter.get(0, buf.data(), 40), 0);
        EXPECT_EQ(buf.text(), "name");
    }
}

TEST_F(BoardRadio, NeverAsksTheBoardForANegativeIndex) {
    Buffer buf(64);
    int number = 0;
    unsigned mode = 0;
    for (const NameGetter& getter : kNameGetters)
        getter.get(-1, buf.data(), 64);
    bbi_radio_proc_dir(-1, buf.data(), 64);
    bbi_radio_support_mode(-1, &mode);
    bbi_radio_bss_support(-1, &number);
    bbi_radio_hidebss_id(-1, &number);
    bbi_radio_reservedbss_id(-1, &number);
    tq_get_vap_ifname(0, 0, -1, 0, buf.data(), 64);
    tq_get_eth_ability_of_speed(-1);
    EXPECT_THAT(questions, IsEmpty());
}

TEST_F(BoardRadio, RejectsABufferForANameInSilence) {
    for (const NameGetter& getter : kNameGetters) {
        Buffer buf(40);
        EXPECT_EQ(getter.get(0, nullptr, 40), -1);
        for (const unsigned len : {0U, 0x80000000U, UINT_MAX})
            EXPECT_EQ(getter.get(0, buf.data(), len), -1);
        EXPECT_TRUE(buf.untouched());
    }
    EXPECT_THAT(log_.take(), IsEmpty());
    EXPECT_THAT(questions, IsEmpty());
}

TEST_F(BoardRadio, PassesPercentSignsOfTheBoardOn) {
    answers[{"radio", AP_TYPE_RADIO_DEVICE, 0}] = {0, text_answer("%s%n")};
    Buffer buf(40);
    EXPECT_EQ(bbi_radio_device(0, buf.data(), 40), 0);
    EXPECT_THAT(log_.take(), Traced("bbi_radio_device", "radio 0 device '%s%n'\n"));
}

TEST_F(BoardRadio, ReadsTheMaskOfModes) {
    unsigned mode = 5;
    EXPECT_EQ(bbi_radio_support_mode(1, &mode), 0);
    EXPECT_EQ(mode, 0xf0U);
    EXPECT_THAT(log_.take(), Traced("bbi_radio_support_mode", "radio 1 support mode f0\n"));
}

TEST_F(BoardRadio, ConvertsTheTextOfTheMask) {
    for (const auto& [text, expected] : std::map<std::string, unsigned>{{"0", 0},
                                                                        {" 12x", 12},
                                                                        {"none", 0},
                                                                        {"", 0},
                                                                        {"4294967295", UINT_MAX},
                                                                        {"-1", UINT_MAX}}) {
        answers[{"radio", AP_TYPE_RADIO_SUPPORT_MODE, 0}] = {0, text_answer(text)};
        unsigned mode = 5;
        EXPECT_EQ(bbi_radio_support_mode(0, &mode), 0);
        EXPECT_EQ(mode, expected) << text;
    }
}

TEST_F(BoardRadio, FailsWithoutAMask) {
    for (const int radio : {2, -1}) {
        unsigned mode = 5;
        EXPECT_EQ(bbi_radio_support_mode(radio, &mode), -1);
        EXPECT_EQ(mode, 5U);
        EXPECT_THAT(log_.take(),
                    Failed("bbi_radio_support_mode",
                           "get radio " + std::to_string(radio) + " support mode fail\n"));
    }
}

TEST_F(BoardRadio, ReadsTheNumberOfBss) {
    int count = -5;
    EXPECT_EQ(bbi_radio_bss_support(1, &count), 0);
    EXPECT_EQ(count, 8);
    EXPECT_THAT(log_.take(), Traced("bbi_radio_bss_support", "radio 1 support 8 bss\n"));
}

TEST_F(BoardRadio, UsesTheNumberOfBssAsItComes) {
    answers[{"radio", AP_TYPE_RADIO_BSS_NUM, 0}] = {0, bytes_of(-3)};
    int count = 0;
    EXPECT_EQ(bbi_radio_bss_support(0, &count), 0);
    EXPECT_EQ(count, -3);
    EXPECT_EQ(bbi_radio_reservedbss_id_ret(0), -2);
    answers[{"radio", AP_TYPE_RADIO_BSS_NUM, 0}] = {0, bytes_of(INT_MAX)};
    EXPECT_EQ(bbi_radio_hidebss_id_ret(0), INT_MAX);
    EXPECT_EQ(bbi_radio_reservedbss_id_ret(0), INT_MIN);
    EXPECT_EQ(bbi_radio_reservedbss_id(0, &count), 0);
    EXPECT_EQ(count, INT_MIN);
}

TEST_F(BoardRadio, FailsWithoutANumberOfBss) {
    for (const int radio : {2, -1}) {
        int count = -5;
        EXPECT_EQ(bbi_radio_bss_support(radio, &count), -1);
        EXPECT_EQ(count, -5);
        EXPECT_THAT(log_.take(),
                    Failed("bbi_radio_bss_support",
                           "get radio " + std::to_string(radio) + " bss support fail\n"));
    }
    answers[{"radio", AP_TYPE_RADIO_BSS_NUM, 0}] = {-2, bytes_of(4)};
    int count = -5;
    EXPECT_EQ(bbi_radio_bss_support(0, &count), -1);
    EXPECT_EQ(count, -5);
}

TEST_F(BoardRadio, NumbersTheHiddenAndTheReservedBssBehindTheSupportedOnes) {
    int id = -5;
    EXPECT_EQ(bbi_radio_hidebss_id(0, &id), 0);
    EXPECT_EQ(id, 8);
    EXPECT_THAT(log_.take(),
                ElementsAre(Line(LOG_DEBUG, "bbi_radio_bss_support", "radio 0 support 8 bss\n"),
                            Line(LOG_DEBUG, "bbi_radio_hidebss_id", "radio 0 hide bss is 8\n")));
    EXPECT_EQ(bbi_radio_reservedbss_id(0, &id), 0);
    EXPECT_EQ(id, 9);
    EXPECT_THAT(
        log_.take(),
        ElementsAre(Line(LOG_DEBUG, "bbi_radio_bss_support", "radio 0 support 8 bss\n"),
                    Line(LOG_DEBUG, "bbi_radio_reservedbss_id", "radio 0 reserved bss is 9\n")));
}

TEST_F(BoardRadio, NumbersThemFromNoneWhereTheBoardHasNoAnswer) {
    int id = -5;
    EXPECT_EQ(bbi_radio_hidebss_id(2, &id), 0);
    EXPECT_EQ(id, 0);
    EXPECT_THAT(
        log_.take(),
        ElementsAre(Line(LOG_ERR, "bbi_radio_bss_support", "get radio 2 bss support fail\n"),
                    Line(LOG_DEBUG, "bbi_radio_hidebss_id", "radio 2 hide bss is 0\n")));
    EXPECT_EQ(bbi_radio_reservedbss_id(2, &id), 0);
    EXPECT_EQ(id, 1);
    EXPECT_THAT(
        log_.take(),
        ElementsAre(Line(LOG_ERR, "bbi_radio_bss_support", "get radio 2 bss support fail\n"),
                    Line(LOG_DEBUG, "bbi_radio_reservedbss_id", "radio 2 reserved bss is 1\n")));
}

TEST_F(BoardRadio, CopiesTheProcessDirectory) {
    Buffer buf(32);
    EXPECT_EQ(bbi_radio_proc_dir(1, buf.data(), 32), 0);
    EXPECT_EQ(buf.all(), "/proc/wifi1" + std::string(1, '\0') + std::string(32 - 12, kUntouched));
    EXPECT_THAT(log_.take(), Traced("bbi_radio_proc_dir", "radio 1 proc dir '/proc/wifi1'\n"));
}

TEST_F(BoardRadio, CutsAProcessDirectoryThatIsLongerThanPromised) {
    answers[{"radio", AP_TYPE_RADIO_PROC_DIR, 0}] = {0, std::string(64, 'd')};
    for (const unsigned len : {32U, 33U, 100U}) {
        Buffer buf(static_cast<int>(len));
        EXPECT_EQ(bbi_radio_proc_dir(0, buf.data(), len), 0);
        EXPECT_EQ(buf.text(), std::string(std::min(len - 1, 63U), 'd'));
        EXPECT_TRUE(buf.guard_holds());
    }
}

TEST_F(BoardRadio, RefusesASmallBufferForTheProcessDirectory) {
    for (const unsigned len : {0U, 1U, 31U, 0x80000000U, UINT_MAX}) {
        Buffer buf(40);
        EXPECT_EQ(bbi_radio_proc_dir(0, buf.data(), len), -1);
        EXPECT_TRUE(buf.untouched());
        EXPECT_THAT(log_.take(),
                    Failed("bbi_radio_proc_dir", "bbi_radio_proc_dir third parameter invalid\n"));
    }
    EXPECT_EQ(bbi_radio_proc_dir(0, nullptr, 0), -1);
    EXPECT_EQ(bbi_radio_proc_dir(0, nullptr, 64), -1);
    EXPECT_THAT(log_.take(), IsEmpty());
    EXPECT_THAT(questions, IsEmpty());
}

TEST_F(BoardRadio, FailsWithoutAProcessDirectory) {
    for (const int radio : {2, -1}) {
        Buffer buf(64);
        EXPECT_EQ(bbi_radio_proc_dir(radio, buf.data(), 64), -1);
        EXPECT_EQ(buf.text(), "");
        EXPECT_THAT(log_.take(), Failed("bbi_radio_proc_dir",
                                        "get radio " + std::to_string(radio) + " proc dir fail\n"));
    }
}

// ---- the same as results ----

TEST_F(BoardRadioReturns, GivesTheFactsOfARadio) {
    EXPECT_EQ(bbi_radio_count_ret(), 2);
    EXPECT_STREQ(bbi_radio_device_ret(1), "wifi1");
    EXPECT_STREQ(bbi_radio_prefix_ifname_ret(1), "wlan");
    EXPECT_EQ(bbi_radio_support_mode_ret(1), 0xf0U);
    EXPECT_EQ(bbi_radio_bss_support_ret(1), 8);
    EXPECT_EQ(bbi_radio_hidebss_id_ret(1), 8);
    EXPECT_EQ(bbi_radio_reservedbss_id_ret(1), 9);
    EXPECT_STREQ(bbi_radio_proc_dir_ret(1), "/proc/wifi1");
    EXPECT_THAT(
        log_.take(),
        ElementsAre(Line(LOG_DEBUG, "bbi_radio_count", "support 2 radio\n"),
                    Line(LOG_DEBUG, "bbi_radio_device", "radio 1 device 'wifi1'\n"),
                    Line(LOG_DEBUG, "bbi_radio_prefix_ifname", "radio 1 prefix ifname 'wlan'\n"),
                    Line(LOG_DEBUG, "bbi_radio_support_mode", "radio 1 support mode f0\n"),
                    Line(LOG_DEBUG, "bbi_radio_bss_support", "radio 1 support 8 bss\n"),
                    Line(LOG_DEBUG, "bbi_radio_bss_support", "radio 1 support 8 bss\n"),
                    Line(LOG_DEBUG, "bbi_radio_bss_support", "radio 1 support 8 bss\n"),
                    Line(LOG_DEBUG, "bbi_radio_proc_dir", "radio 1 proc dir '/proc/wifi1'\n")));
}

TEST_F(BoardRadioReturns, GivesNothingWhereTheBoardHasNoAnswer) {
    bbi_radio_device_ret(0);
    bbi_radio_prefix_ifname_ret(0);
    bbi_radio_proc_dir_ret(0);
    answers[{"common", AP_TYPE_RADIO_NUM, 0}] = {-1, {}};
    log_.take();
    EXPECT_EQ(bbi_radio_count_ret(), 0);
    EXPECT_STREQ(bbi_radio_device_ret(2), "");
    EXPECT_STREQ(bbi_radio_prefix_ifname_ret(2), "");
    EXPECT_EQ(bbi_radio_support_mode_ret(2), 0U);
    EXPECT_EQ(bbi_radio_bss_support_ret(2), 0);
    EXPECT_EQ(bbi_radio_hidebss_id_ret(2), 0);
    EXPECT_EQ(bbi_radio_reservedbss_id_ret(2), 1);
    EXPECT_STREQ(bbi_radio_proc_dir_ret(2), "");
    const auto lines = log_.take();
    ASSERT_EQ(lines.size(), 8U);
    for (const auto& line : lines)
        EXPECT_EQ(line.priority, LOG_ERR);
}

TEST_F(BoardRadioReturns, OverwritesItsBufferWithTheNextCall) {
    char* device = bbi_radio_device_ret(0);
    EXPECT_EQ(bbi_radio_device_ret(1), device);
    EXPECT_EQ(std::string(device, 32), "wifi1" + std::string(27, '\0'));
    char* prefix_name = bbi_radio_prefix_ifname_ret(0);
    EXPECT_EQ(bbi_radio_prefix_ifname_ret(1), prefix_name);
    EXPECT_EQ(std::string(prefix_name, 32), "wlan" + std::string(28, '\0'));
    char* directory = bbi_radio_proc_dir_ret(0);
    EXPECT_EQ(bbi_radio_proc_dir_ret(1), directory);
    EXPECT_EQ(std::string(directory, 64), "/proc/wifi1" + std::string(53, '\0'));
    EXPECT_NE(device, prefix_name);
    EXPECT_NE(device, directory);
}

TEST_F(BoardRadioReturns, ClearsItsBufferFirst) {
    char* device = bbi_radio_device_ret(0);
    char* prefix_name = bbi_radio_prefix_ifname_ret(0);
    char* directory = bbi_radio_proc_dir_ret(0);
    bbi_radio_device_ret(9);
    bbi_radio_prefix_ifname_ret(9);
    bbi_radio_proc_dir_ret(9);
    EXPECT_EQ(std::string(device, 32), std::string(32, '\0'));
    EXPECT_EQ(std::string(prefix_name, 32), std::string(32, '\0'));
    EXPECT_EQ(std::string(directory, 64), std::string(64, '\0'));
}

TEST_F(BoardRadioReturns, CutsWhatABoardSaysTooLong) {
    answers[{"radio", AP_TYPE_RADIO_DEVICE, 0}] = {0, std::string(64, 'x')};
    answers[{"radio", AP_TYPE_RADIO_PREFIX_IFNAME, 0}] = {0, std::string(64, 'x')};
    answers[{"radio", AP_TYPE_RADIO_PROC_DIR, 0}] = {0, std::string(64, 'x')};
    EXPECT_EQ(std::string(bbi_radio_device_ret(0)), std::string(31, 'x'));
    EXPECT_EQ(std::string(bbi_radio_prefix_ifname_ret(0)), std::string(31, 'x'));
    EXPECT_EQ(std::string(bbi_radio_proc_dir_ret(0)), std::string(63, 'x'));
}

// ---- names of the radios' interfaces ----

std::string vap_ifname(int mode, int radio, int vap) {
    Buffer buf(64);
    EXPECT_EQ(tq_get_vap_ifname(0, mode, radio, vap, buf.data(), 64), 0);
    EXPECT_TRUE(buf.guard_holds());
    return buf.text();
}

TEST_F(BoardVap, NumbersInterfacesByTheMode) {
    use_board("tri-radio");
    EXPECT_EQ(vap_ifname(1, 1, 3), "ath19");
    for (const int mode : {0, 2})
        EXPECT_EQ(vap_ifname(mode, 1, 3), "ath3");
    for (const int mode : {-1, 3, 16, INT_MIN, INT_MAX})
        EXPECT_EQ(vap_ifname(mode, 2, 15), "ath47");
    EXPECT_EQ(vap_ifname(1, 0, 0), "ath0");
    EXPECT_EQ(vap_ifname(0, 0, 0), "ath0");
    EXPECT_THAT(log_.take(), IsEmpty());
}

TEST_F(BoardVap, TakesAnyNumberOfAVap) {
    use_board("tri-radio");
    EXPECT_EQ(vap_ifname(0, 1, -1), "ath-1");
    EXPECT_EQ(vap_ifname(1, 1, -1), "ath15");
    EXPECT_EQ(vap_ifname(1, 1, 100), "ath116");
    EXPECT_EQ(vap_ifname(0, 1, INT_MIN), "ath-2147483648");
    EXPECT_EQ(vap_ifname(1, 1, INT_MAX), "ath-2147483633");
    answers[{"radio", AP_TYPE_RADIO_PREFIX_IFNAME, INT_MAX}] = prefix("ath");
    EXPECT_EQ(vap_ifname(1, INT_MAX, 1), "ath-15");
}

TEST_F(BoardVap, IgnoresItsFirstArgument) {
    Buffer buf(64);
    for (const int ignored : {-1, 1, INT_MAX}) {
        EXPECT_EQ(tq_get_vap_ifname(ignored, 0, 1, 3, buf.data(), 64), 0);
        EXPECT_EQ(buf.text(), "wlan3");
    }
}

TEST_F(BoardVap, CutsTheNameToTheBuffer) {
    const std::string name = "wlan3";
    for (int size = 1; size <= 8; size++) {
        Buffer buf(size);
        EXPECT_EQ(tq_get_vap_ifname(0, 0, 1, 3, buf.data(), size), 0);
        EXPECT_EQ(buf.text(), name.substr(0, static_cast<size_t>(size) - 1));
        EXPECT_TRUE(buf.guard_holds());
    }
}

TEST_F(BoardVap, NeedsThePrefix) {
    Buffer buf(64);
    for (const int radio : {2, -1}) {
        EXPECT_EQ(tq_get_vap_ifname(0, 0, radio, 3, buf.data(), 64), -1);
        EXPECT_EQ(buf.text(), "");
    }
    EXPECT_THAT(log_.take(), IsEmpty());
}

TEST_F(BoardVap, TakesEveryOtherAnswerThanMinusOneForAPrefix) {
    answers[{"radio", AP_TYPE_RADIO_PREFIX_IFNAME, 0}] = {-2, {}};
    EXPECT_EQ(vap_ifname(0, 0, 3), "3");
    answers[{"radio", AP_TYPE_RADIO_PREFIX_IFNAME, 0}] = {4, text_answer("x")};
    EXPECT_EQ(vap_ifname(0, 0, 3), "x3");
}

TEST_F(BoardVap, RejectsABadBuffer) {
    Buffer buf(64);
    EXPECT_EQ(tq_get_vap_ifname(0, 0, 0, 0, nullptr, 64), -1);
    EXPECT_THAT(log_.take(), Rejected("tq_get_vap_ifname"));
    for (const int len : {0, -1, INT_MIN}) {
        EXPECT_EQ(tq_get_vap_ifname(0, 0, 0, 0, buf.data(), len), -1);
        EXPECT_THAT(log_.take(), Rejected("tq_get_vap_ifname"));
        EXPECT_EQ(get_vap_name(0, 0, buf.data(), len), -1);
        EXPECT_THAT(log_.take(), Rejected("tq_get_vap_ifname"));
    }
    EXPECT_EQ(get_vap_name(0, 0, nullptr, 64), -1);
    EXPECT_THAT(log_.take(), Rejected("tq_get_vap_ifname"));
    EXPECT_TRUE(buf.untouched());
}

TEST_F(BoardVap, NamesByTheModeOfTheBoard) {
    Buffer buf(64);
    EXPECT_EQ(get_vap_name(1, 3, buf.data(), 64), 0);
    EXPECT_EQ(buf.text(), "wlan3");
    use_board("tri-radio");
    EXPECT_EQ(get_vap_name(1, 3, buf.data(), 64), 0);
    EXPECT_EQ(buf.text(), "ath19");
    answers[{"common", AP_TYPE_VAP_NAME_MODE, 0}] = {2, {}};
    EXPECT_EQ(get_vap_name(1, 3, buf.data(), 64), 0);
    EXPECT_EQ(buf.text(), "ath3");
    EXPECT_EQ(get_vap_name(7, 3, buf.data(), 64), -1);
    EXPECT_EQ(buf.text(), "");
}

// ---- and back ----

using Id = std::pair<int, int>;
constexpr Id kNone{-77, -77};

// Radio and VAP, or kNone for a failure, which leaves the outputs alone.
Id wifi_id(const char* ifname) {
    Id id = kNone;
    const int result = tq_get_wifi_id(0, ifname, &id.first, &id.second);
    EXPECT_EQ(result, id == kNone ? -1 : 0);
    return id;
}

TEST_F(BoardVap, ReadsNamesAcrossRadios) {
    use_board("tri-radio");
    EXPECT_EQ(wifi_id("ath19"), Id(1, 3));
    EXPECT_EQ(wifi_id("ath0"), Id(0, 0));
    EXPECT_EQ(wifi_id("ath15"), Id(0, 15));
    EXPECT_EQ(wifi_id("ath16"), Id(1, 0));
    EXPECT_EQ(wifi_id("ath19.20"), Id(1, 3));
    EXPECT_EQ(wifi_id("ath-19"), Id(1, 3));
    EXPECT_EQ(wifi_id("ath"), kNone);
    EXPECT_EQ(wifi_id("eth0"), kNone);
    EXPECT_EQ(wifi_id("at"), kNone);
    EXPECT_EQ(wifi_id(""), kNone);
    EXPECT_THAT(log_.take(), IsEmpty());
}

TEST_F(BoardVap, ReadsARadioThatTheBoardDoesNotHave) {
    use_board("tri-radio");
    EXPECT_EQ(wifi_id("ath163"), Id(10, 3));
    EXPECT_EQ(wifi_id("ath2147483647"), Id(INT_MAX / 16, 15));
}

TEST_F(BoardVap, RefusesANumberBeyondAnInt) {
    for (const int mode : {0, 1}) {
        answer_naming(mode, {prefix("ath")});
        for (const char* name : {"ath2147483648", "ath4294967295", "ath99999999999999999999"})
            EXPECT_EQ(wifi_id(name), kNone) << name;
    }
}

TEST_F(BoardVap, TakesTheFirstNumberInTheWholeName) {
    answer_naming(1, {prefix("w5g")});
    EXPECT_EQ(wifi_id("w5g19"), Id(0, 5));
    EXPECT_EQ(wifi_id("w5g"), Id(0, 5));
}

TEST_F(BoardVap, DoesNotUseWhichRadioMatched) {
    answer_naming(1, {prefix("ath"), prefix("wlan")});
    EXPECT_EQ(wifi_id("wlan3"), Id(0, 3));
    EXPECT_EQ(wifi_id("ath19"), Id(1, 3));
}

TEST_F(BoardVap, ReadsModeTwoAcrossRadiosAlthoughItNamesPerRadio) {
    answer_naming(2, {prefix("ath"), prefix("ath")});
    Buffer buf(64);
    EXPECT_EQ(get_vap_name(1, 3, buf.data(), 64), 0);
    EXPECT_EQ(buf.text(), "ath3");
    EXPECT_EQ(wifi_id("ath3"), Id(0, 3));
    EXPECT_EQ(wifi_id("ath19"), Id(1, 3));
}

TEST_F(BoardVap, ReadsEveryModeButZeroAcrossRadios) {
    for (const int mode : {-1, 3, INT_MIN, INT_MAX}) {
        answer_naming(mode, {prefix("ath")});
        EXPECT_EQ(wifi_id("ath19"), Id(1, 3));
    }
}

TEST_F(BoardVap, ReadsNamesPerRadio) {
    EXPECT_EQ(wifi_id("ath3"), Id(0, 3));
    EXPECT_EQ(wifi_id("wlan3"), Id(1, 3));
    EXPECT_EQ(wifi_id("wlan19"), Id(1, 19));
    EXPECT_EQ(wifi_id("wlan007x"), Id(1, 7));
    EXPECT_EQ(wifi_id("wlan"), kNone);
    EXPECT_EQ(wifi_id("wlan-1"), kNone);
    EXPECT_EQ(wifi_id("wlanx1"), kNone);
    EXPECT_EQ(wifi_id("xwlan1"), kNone);
    EXPECT_EQ(wifi_id(""), kNone);
    EXPECT_THAT(log_.take(), IsEmpty());
}

TEST_F(BoardVap, GivesTheFirstRadioOfASharedPrefix) {
    answer_naming(0, {prefix("ath"), prefix("ath")});
    EXPECT_EQ(wifi_id("ath3"), Id(0, 3));
}

TEST_F(BoardVap, GoesOnToTheNextRadioWhereNoDigitFollowsThePrefix) {
    answer_naming(0, {prefix("wlan"), prefix("wlan5g")});
    EXPECT_EQ(wifi_id("wlan5g2"), Id(0, 5));
    answer_naming(0, {prefix("wlan"), prefix("wlang")});
    EXPECT_EQ(wifi_id("wlang2"), Id(1, 2));
}

TEST_F(BoardVap, SkipsARadioWhosePrefixCannotBeRead) {
    for (const int result : {-1, -2, 1}) {
        answer_naming(0, {{result, text_answer("ath")}, prefix("ath")});
        EXPECT_EQ(wifi_id("ath3"), Id(1, 3));
        answer_naming(1, {{result, text_answer("ath")}, prefix("ath")});
        EXPECT_EQ(wifi_id("ath3"), Id(0, 3));
        answer_naming(1, {{result, text_answer("ath")}});
        EXPECT_EQ(wifi_id("ath3"), kNone);
    }
}

TEST_F(BoardVap, FindsNoneOnABoardWithoutRadios) {
    for (const int mode : {0, 1}) {
        for (const int radios : {0, -1, INT_MIN}) {
            answer_naming(mode, {});
            answers[{"common", AP_TYPE_RADIO_NUM, 0}] = {radios, {}};
            EXPECT_EQ(wifi_id("ath3"), kNone);
        }
    }
}

TEST_F(BoardVap, ReadsBackEveryNameThatItGives) {
    for (const char* sample : {"one", "dual", "tri"}) {
        use_board(std::string(sample) + "-radio");
        for (int radio = 0; radio < bbi_radio_count_ret(); radio++) {
            for (int vap = 0; vap < 16; vap++) {
                char name[32];
                ASSERT_EQ(get_vap_name(radio, vap, name, sizeof(name)), 0);
                EXPECT_EQ(wifi_id(name), Id(radio, vap)) << name;
            }
        }
    }
}

TEST_F(BoardVap, RejectsMissingArgumentsOfAnId) {
    int radio = -5;
    int vap = -5;
    EXPECT_EQ(tq_get_wifi_id(0, nullptr, &radio, &vap), -1);
    EXPECT_THAT(log_.take(), Rejected("tq_get_wifi_id"));
    EXPECT_EQ(tq_get_wifi_id(0, "ath0", nullptr, &vap), -1);
    EXPECT_THAT(log_.take(), Rejected("tq_get_wifi_id"));
    EXPECT_EQ(tq_get_wifi_id(0, "ath0", &radio, nullptr), -1);
    EXPECT_THAT(log_.take(), Rejected("tq_get_wifi_id"));
    EXPECT_EQ(get_wifi_id(&radio, &vap, nullptr), -1);
    EXPECT_THAT(log_.take(), Rejected("tq_get_wifi_id"));
    EXPECT_EQ(radio, -5);
    EXPECT_EQ(vap, -5);
    EXPECT_THAT(questions, IsEmpty());
}

TEST_F(BoardVap, GivesAnIdInTheOtherOrderOfArguments) {
    int radio = -5;
    int vap = -5;
    EXPECT_EQ(get_wifi_id(&radio, &vap, "wlan3"), 0);
    EXPECT_EQ(radio, 1);
    EXPECT_EQ(vap, 3);
    EXPECT_EQ(get_wifi_id(&radio, &vap, "eth0"), -1);
}

std::pair<int, std::string> find_radio_device(const char* ifname) {
    testing::internal::CaptureStdout();
    const int result = tq_find_radio_device(ifname);
    return {result, testing::internal::GetCapturedStdout()};
}

TEST_F(BoardVap, FindsARadioDevice) {
    EXPECT_EQ(find_radio_device("wifi0"), std::pair(1, std::string()));
    EXPECT_EQ(find_radio_device("wifi1"), std::pair(1, std::string()));
    EXPECT_EQ(asked_name, "wifi1");
}

TEST_F(BoardVap, SaysWhereThereIsNoRadioDevice) {
    const std::pair none(0, std::string("Can't find the radio device\n"));
    EXPECT_EQ(find_radio_device("wifi2"), none);
    EXPECT_EQ(find_radio_device("ath0"), none);
    EXPECT_EQ(find_radio_device(""), none);
    answers[{"ifname", AP_TYPE_RADIO_DEVICE_PRESENT, 0}] = {-2, {}};
    EXPECT_EQ(find_radio_device("wifi0"), none);
    EXPECT_THAT(log_.take(), IsEmpty());
}

TEST_F(BoardVap, HandsTheNameOfADeviceOnUnchanged) {
    EXPECT_EQ(find_radio_device(nullptr).first, 0);
    EXPECT_EQ(asked_name, "(null)");
    answers[{"ifname", AP_TYPE_RADIO_DEVICE_PRESENT, 0}] = {3, {}};
    EXPECT_EQ(find_radio_device(nullptr), std::pair(1, std::string()));
}

// ---- ports ----

TEST_F(BoardPorts, CountsPortsAndRadios) {
    use_board("tri-radio");
    EXPECT_EQ(tq_get_dev_if_count(), 3);
    EXPECT_EQ(tq_get_dev_all_count(), 6);
    EXPECT_EQ(tq_get_dev_lan_count(), 2);
    use_board("dual-radio");
    EXPECT_EQ(tq_get_dev_if_count(), 2);
    EXPECT_EQ(tq_get_dev_all_count(), 4);
    EXPECT_EQ(tq_get_dev_lan_count(), 1);
    use_board("one-radio");
    EXPECT_EQ(tq_get_dev_if_count(), 1);
    EXPECT_EQ(tq_get_dev_all_count(), 2);
    EXPECT_EQ(tq_get_dev_lan_count(), 0);
    EXPECT_THAT(log_.take(), IsEmpty());
}

TEST_F(BoardPorts, AddsUpWhatTheBoardSays) {
    answer_counts(2, 30, 400);
    EXPECT_EQ(tq_get_dev_if_count(), 32);
    EXPECT_EQ(tq_get_dev_all_count(), 432);
    answer_counts(-1, -1, -1);
    EXPECT_EQ(tq_get_dev_if_count(), -2);
    EXPECT_EQ(tq_get_dev_all_count(), -3);
    answer_counts(INT_MAX, 1, 1);
    EXPECT_EQ(tq_get_dev_if_count(), INT_MIN);
    EXPECT_EQ(tq_get_dev_all_count(), INT_MIN + 1);
}

TEST_F(BoardPorts, CountsNoLanPortsOnBoardsWithOnePort) {
    answers[{"common", AP_TYPE_LAN_PORT_NUM, 0}] = {4, {}};
    for (const int id : {1062, 11062, 21062}) {
        answers[{"common", AP_TYPE_BOARD_ID, 0}] = {id, {}};
        EXPECT_EQ(tq_get_dev_lan_count(), 0);
    }
    for (const int id : {-1, 0, 1061, 1063, 31062, 2041}) {
        answers[{"common", AP_TYPE_BOARD_ID, 0}] = {id, {}};
        EXPECT_EQ(tq_get_dev_lan_count(), 4);
    }
    answers[{"common", AP_TYPE_LAN_PORT_NUM, 0}] = {-1, {}};
    EXPECT_EQ(tq_get_dev_lan_count(), -1);
}

TEST_F(BoardPorts, TellsGigabitPortsByTheirNumber) {
    answer_counts(2, 1, 0);
    EXPECT_EQ(tq_get_eth_linktype(0), 1000);
    EXPECT_EQ(tq_get_eth_linktype(1), 1000);
    EXPECT_EQ(tq_get_eth_linktype(2), 100);
    EXPECT_EQ(tq_get_eth_linktype(INT_MAX), 100);
    EXPECT_EQ(tq_get_eth_linktype(-1), 1000);
    for (const int gigabit_ports : {0, -1, INT_MIN}) {
        answer_counts(gigabit_ports, 1, 0);
        for (const int port : {-5, 0, 1})
            EXPECT_EQ(tq_get_eth_linktype(port), 100);
    }
    answer_counts(1, 1, 0);
    EXPECT_EQ(tq_get_eth_linktype(0), 1000);
}

TEST_F(BoardPorts, ReadsTheSpeedThatAPortIsAbleTo) {
    use_board("tri-radio");
    EXPECT_EQ(tq_get_eth_ability_of_speed(0), 1000);
    EXPECT_EQ(tq_get_eth_ability_of_speed(2), 100);
    for (const int port : {3, -1, INT_MIN, INT_MAX})
        EXPECT_EQ(tq_get_eth_ability_of_speed(port), 0);
    EXPECT_THAT(log_.take(), IsEmpty());
}

TEST_F(BoardPorts, KnowsTheCodesOfSpeeds) {
    for (const auto& [code, speed] : std::map<std::string, int>{{"1", 10},
                                                                {"2", 100},
                                                                {"3", 0},
                                                                {"4", 1000},
                                                                {"0", 0},
                                                                {"5", 0},
                                                                {"-1", 0},
                                                                {"", 0},
                                                                {"fast", 0},
                                                                {" 4 ", 1000},
                                                                {"4294967300", 0},
                                                                {"18446744073709551620", 0},
                                                                {std::string(63, '4'), 0}}) {
        answers[{"gigabit", AP_TYPE_ETH_SPEED_ABILITY, 0}] = {0, text_answer(code)};
        EXPECT_EQ(tq_get_eth_ability_of_speed(0), speed) << code;
    }
    answers[{"gigabit", AP_TYPE_ETH_SPEED_ABILITY, 0}] = {0, std::string(64, '4')};
    EXPECT_EQ(tq_get_eth_ability_of_speed(0), 0);
    answers[{"gigabit", AP_TYPE_ETH_SPEED_ABILITY, 0}] = {0, {}};
    EXPECT_EQ(tq_get_eth_ability_of_speed(0), 0);
    answers[{"gigabit", AP_TYPE_ETH_SPEED_ABILITY, 0}] = {-1, text_answer("4")};
    EXPECT_EQ(tq_get_eth_ability_of_speed(0), 0);
}

std::string eth_ifname(int port) {
    const char* name = tq_get_eth_ifname(port);
    return name ? name : "(null)";
}

TEST_F(BoardPorts, NamesGigabitPortsFirst) {
    write_file(kBoard,
               "[port 0]\nname=ge0\nspeed=1000\n[port 1]\nname=ge1\nspeed=1000\n"
               "[port 2]\nname=fe0\nspeed=100\n");
    EXPECT_EQ(eth_ifname(0), "ge0");
    EXPECT_EQ(eth_ifname(1), "ge1");
    questions.clear();
    EXPECT_EQ(eth_ifname(2), "fe0");
    EXPECT_THAT(questions, ElementsAre(Question("common", AP_TYPE_GE_PORT_NUM, 0),
                                       Question("common", AP_TYPE_FE_PORT_NUM, 0),
                                       Question("fast", AP_TYPE_ETH_IF_NAME, 0)));
    EXPECT_EQ(eth_ifname(3), "(null)");
    EXPECT_EQ(eth_ifname(INT_MAX), "(null)");
    EXPECT_THAT(log_.take(), IsEmpty());
}

TEST_F(BoardPorts, HasNoNameForANegativePort) {
    for (const int port : {-1, INT_MIN})
        EXPECT_EQ(eth_ifname(port), "(null)");
    EXPECT_THAT(questions, IsEmpty());
}

TEST_F(BoardPorts, HasNoNameWhereTheBoardHasNone) {
    answer_counts(1, 1, 0);
    answers[{"gigabit", AP_TYPE_ETH_IF_NAME, 0}] = {-2, text_answer("ge0")};
    answers[{"fast", AP_TYPE_ETH_IF_NAME, 0}] = {-1, text_answer("fe0")};
    EXPECT_EQ(eth_ifname(0), "(null)");
    EXPECT_EQ(eth_ifname(1), "(null)");
    answers[{"gigabit", AP_TYPE_ETH_IF_NAME, 0}] = {1, text_answer("ge0")};
    EXPECT_EQ(eth_ifname(0), "ge0");
    EXPECT_THAT(log_.take(), IsEmpty());
}

TEST_F(BoardPorts, CountsFastPortsFromTheGigabitOnesAsTheyAre) {
    answer_counts(-1, 5, 0);
    answers[{"fast", AP_TYPE_ETH_IF_NAME, 4}] = {0, text_answer("fe4")};
    EXPECT_EQ(eth_ifname(3), "fe4");
    EXPECT_EQ(eth_ifname(4), "(null)");
    answers[{"fast", AP_TYPE_ETH_IF_NAME, 5}] = {0, text_answer("fe5")};
    EXPECT_EQ(eth_ifname(4), "(null)");
    answer_counts(INT_MIN, INT_MAX, 0);
    answers[{"fast", AP_TYPE_ETH_IF_NAME, INT_MIN}] = {0, text_answer("fe")};
    EXPECT_EQ(eth_ifname(0), "(null)");
    answer_counts(2, -1, 0);
    EXPECT_EQ(eth_ifname(2), "(null)");
}

TEST_F(BoardPorts, OverwritesTheNameWithTheNextCall) {
    char* name = tq_get_eth_ifname(0);
    EXPECT_EQ(tq_get_eth_ifname(1), name);
    EXPECT_STREQ(name, "eth1");
    answer_counts(1, 0, 0);
    answers[{"gigabit", AP_TYPE_ETH_IF_NAME, 0}] = {0, std::string(64, 'e')};
    EXPECT_EQ(eth_ifname(0), std::string(31, 'e'));
}

// ---- WAN and LAN ----

struct WanGetter {
    const char* function;
    int (*get)(char*);
    int selector;
    const char* call;
    const char* of_board;
};

constexpr WanGetter kWanGetters[] = {
    {"get_wan_if_name", get_wan_if_name, AP_TYPE_WAN_IF_NAME,
     "tq_get_oem_ap_type_wan_info(AP_TYPE_WAN_IF_NAME, ifname)", "eth0"},
    {"get_wan_if_label", get_wan_if_label, AP_TYPE_WAN_IF_LABEL,
     "tq_get_oem_ap_type_wan_info(AP_TYPE_WAN_IF_LABEL, name)", "WAN / PoE+"},
    {"get_wan_if_port", get_wan_if_port, AP_TYPE_WAN_IF_PORT,
     "tq_get_oem_ap_type_wan_info(AP_TYPE_WAN_IF_PORT, port)", "0"},
};

TEST_F(BoardWanLan, ReadsTheWanPort) {
    use_board("tri-radio");
    for (const WanGetter& getter : kWanGetters) {
        Buffer buf(32);
        EXPECT_EQ(getter.get(buf.data()), 0) << getter.function;
        EXPECT_EQ(buf.text(), getter.of_board);
        EXPECT_TRUE(buf.guard_holds());
    }
    EXPECT_THAT(log_.take(), IsEmpty());
}

TEST_F(BoardWanLan, FailsWithoutAWanPort) {
    write_file(kBoard, "[wan]\n");
    for (const WanGetter& getter : kWanGetters) {
        Buffer buf(32);
        EXPECT_EQ(getter.get(buf.data()), -1);
        EXPECT_EQ(buf.text(), "");
        EXPECT_THAT(log_.take(), Failed(getter.function, std::string(getter.call) + " fail\n"));
        answers[{"wan", getter.selector, 0}] = {-2, {}};
        EXPECT_EQ(getter.get(buf.data()), -1);
        EXPECT_THAT(log_.take(), Failed(getter.function, std::string(getter.call) + " fail\n"));
        answers[{"wan", getter.selector, 0}] = {2, {}};
        EXPECT_EQ(getter.get(buf.data()), 0);
        EXPECT_THAT(log_.take(), IsEmpty());
    }
}

struct LanGetter {
    const char* function;
    int (*get)(int, char*);
    int selector;
    const char* call;
    const char* of_board;
};

constexpr LanGetter kLanGetters[] = {
    {"get_lan_if_name", get_lan_if_name, AP_TYPE_LAN_IF_NAME,
     "tq_get_oem_ap_type_lan_index_info(AP_TYPE_LAN_IF_NAME, index, ifname)", "eth2"},
    {"get_lan_if_label", get_lan_if_label, AP_TYPE_LAN_IF_LABEL,
     "tq_get_oem_ap_type_lan_index_info(AP_TYPE_LAN_IF_LABEL, index, name)", "LAN2"},
    {"get_lan_if_port", get_lan_if_port, AP_TYPE_LAN_IF_PORT,
     "tq_get_oem_ap_type_lan_index_info(AP_TYPE_LAN_IF_PORT, index, port)", "2"},
};

TEST_F(BoardWanLan, ReadsALanPort) {
    use_board("tri-radio");
    for (const LanGetter& getter : kLanGetters) {
        Buffer buf(32);
        EXPECT_EQ(getter.get(1, buf.data()), 0) << getter.function;
        EXPECT_EQ(buf.text(), getter.of_board);
        EXPECT_TRUE(buf.guard_holds());
    }
    EXPECT_THAT(log_.take(), IsEmpty());
}

TEST_F(BoardWanLan, FailsWithoutThatLanPort) {
    for (const LanGetter& getter : kLanGetters) {
        for (const int index : {1, INT_MAX, -1, INT_MIN}) {
            Buffer buf(32);
            EXPECT_EQ(getter.get(index, buf.data()), -1);
            EXPECT_EQ(buf.text(), "");
            EXPECT_THAT(log_.take(), Failed(getter.function, std::string(getter.call) + " fail\n"));
        }
        Buffer buf(32);
        answers[{"lan", getter.selector, 0}] = {-2, {}};
        EXPECT_EQ(getter.get(0, buf.data()), -1);
        answers[{"lan", getter.selector, 0}] = {2, {}};
        EXPECT_EQ(getter.get(0, buf.data()), 0);
        log_.take();
    }
    for (const Question& question : questions)
        EXPECT_GE(std::get<2>(question), 0);
}

TEST_F(BoardWanLan, LeavesNothingOfAnAnswerThatFailed) {
    Buffer buf(32);
    for (const WanGetter& getter : kWanGetters) {
        answers[{"wan", getter.selector, 0}] = {-1, text_answer("half")};
        EXPECT_EQ(getter.get(buf.data()), -1);
        EXPECT_EQ(buf.text(), "") << getter.function;
    }
    for (const LanGetter& getter : kLanGetters) {
        answers[{"lan", getter.selector, 0}] = {-1, text_answer("half")};
        EXPECT_EQ(getter.get(0, buf.data()), -1);
        EXPECT_EQ(buf.text(), "") << getter.function;
    }
}

TEST_F(BoardWanLan, RejectsMissingBuffers) {
    for (const WanGetter& getter : kWanGetters) {
        EXPECT_EQ(getter.get(nullptr), -1);
        EXPECT_THAT(log_.take(), Rejected(getter.function));
    }
    for (const LanGetter& getter : kLanGetters) {
        EXPECT_EQ(getter.get(0, nullptr), -1);
        EXPECT_THAT(log_.take(), Rejected(getter.function));
    }
    EXPECT_THAT(questions, IsEmpty());
}

void ip(const std::string& arguments) {
    const auto result = tq_test::run_command("ip " + arguments);
    ASSERT_EQ(result.status, 0) << result.err;
}

// Undoes what the tests give the device's interfaces.
class BoardAddresses : public BoardWanLan {
  protected:
    ~BoardAddresses() override {
        tq_test::run_command("ip addr flush dev eth0; ip addr flush dev eth1; ip link del br-lan");
    }
};

TEST_F(BoardAddresses, AsksTheFirmwareForTheWanInterface) {
    Buffer buf(32);
    EXPECT_EQ(get_wan_name(buf.data(), 32), 0);
    EXPECT_EQ(buf.text(), "eth1");
    ASSERT_EQ(tq_test::run_command("uci set network.wan.device=eth0.2; uci commit").status, 0);
    EXPECT_EQ(get_wan_name(buf.data(), 32), 0);
    EXPECT_EQ(buf.text(), "eth0.2");
    EXPECT_THAT(log_.take(), IsEmpty());
}

TEST_F(BoardAddresses, FindsTheScriptOnThePath) {
    const std::string path = getenv("PATH");
    write_file("/tmp/bin/get_wan_interface.sh", "#!/bin/sh\necho first\necho second\n");
    ASSERT_EQ(tq_test::run_command("chmod +x /tmp/bin/get_wan_interface.sh").status, 0);
    setenv("PATH", ("/tmp/bin:" + path).c_str(), 1);
    Buffer buf(4);
    EXPECT_EQ(get_wan_name(buf.data(), 4), 0);
    EXPECT_EQ(buf.text(), "fir");
    EXPECT_TRUE(buf.guard_holds());
    setenv("PATH", path.c_str(), 1);
}

void forget_wan() {
    write_file("/etc/config/network", "config interface 'lan'\n");
}

auto NoWanName() {
    return std::vector<testing::Matcher<LogLine>>{
        Line(LOG_ERR, "run_cmd", "fgets fail, cmd = get_wan_interface.sh\n\n"),
        Line(LOG_ERR, "get_wan_name", "run_cmd(GET_WAN_INTERFACE, buf, len) fail\n"),
    };
}

TEST_F(BoardAddresses, FailsWithoutAWanInterface) {
    forget_wan();
    auto expected = NoWanName();
    Buffer buf(32);
    EXPECT_EQ(get_wan_name(buf.data(), 32), -1);
    EXPECT_EQ(buf.text(), "");
    EXPECT_THAT(log_.take(), testing::ElementsAreArray(expected));

    unsigned addr = 5;
    EXPECT_EQ(get_wan_if_addr(&addr), -1);
    EXPECT_EQ(addr, 5U);
    expected.push_back(
        Line(LOG_ERR, "get_wan_if_addr", "get_wan_name(ifname, sizeof(ifname)) fail\n"));
    EXPECT_THAT(log_.take(), testing::ElementsAreArray(expected));

    expected.back() =
        Line(LOG_ERR, "get_wan_if_mac", "get_wan_name(ifname, sizeof(ifname)) fail\n");
    EXPECT_EQ(get_wan_if_mac(buf.data(), 32), -1);
    EXPECT_THAT(log_.take(), testing::ElementsAreArray(expected));
}

TEST_F(BoardAddresses, ReadsTheAddressOfTheWanInterface) {
    ip("addr add 192.0.2.7/24 dev eth1");
    unsigned addr = 5;
    EXPECT_EQ(get_wan_if_addr(&addr), 0);
    EXPECT_EQ(std::string(reinterpret_cast<char*>(&addr), 4),
              "\xc0" + std::string(1, '\0') + "\x02\x07");
    EXPECT_THAT(log_.take(), IsEmpty());
}

TEST_F(BoardAddresses, FailsWhereTheWanInterfaceHasNoAddress) {
    unsigned addr = 5;
    EXPECT_EQ(get_wan_if_addr(&addr), -1);
    EXPECT_EQ(addr, 5U);
    EXPECT_THAT(log_.take(), Failed("get_wan_if_addr", "get_if_addr(ifname, addr) fail\n"));
}

TEST_F(BoardAddresses, ReadsTheHardwareAddressOfTheWanInterface) {
    Buffer mac(8);
    EXPECT_EQ(get_wan_if_mac(mac.data(), 8), 0);
    EXPECT_EQ(mac.all(), std::string("\x02\x00\x5e\x00\x01\x01", 6) + std::string(2, kUntouched));
    EXPECT_THAT(log_.take(), IsEmpty());
}

TEST_F(BoardAddresses, NeedsRoomForAHardwareAddress) {
    const std::string text = "get_if_mac(ifname, (char *)mac, len) fail\n";
    for (const int len : {1, 5}) {
        Buffer mac(8);
        EXPECT_EQ(get_wan_if_mac(mac.data(), len), -1);
        EXPECT_THAT(log_.take(), Failed("get_wan_if_mac", text));
        EXPECT_EQ(get_lan_if_mac("eth0", mac.data(), len), -1);
        EXPECT_THAT(log_.take(), Failed("get_lan_if_mac", text));
        EXPECT_TRUE(mac.untouched());
    }
}

TEST_F(BoardAddresses, ReadsTheHardwareAddressOfAnyInterface) {
    Buffer mac(6);
    EXPECT_EQ(get_lan_if_mac("eth0", mac.data(), 6), 0);
    EXPECT_EQ(mac.all(), std::string("\x02\x00\x5e\x00\x01\x00", 6));
    EXPECT_TRUE(mac.guard_holds());
    EXPECT_THAT(log_.take(), IsEmpty());
    EXPECT_EQ(get_lan_if_mac("eth9", mac.data(), 6), -1);
    EXPECT_THAT(log_.take(),
                Failed("get_lan_if_mac", "get_if_mac(ifname, (char *)mac, len) fail\n"));
}

TEST_F(BoardAddresses, ReadsTheAddressOfTheLanBridge) {
    ip("link add br-lan type veth peer name br-lan-peer");
    ip("addr add 198.51.100.9/24 dev br-lan");
    for (const int ignored : {0, -1, INT_MAX}) {
        unsigned addr = 5;
        EXPECT_EQ(get_lan_addr(ignored, &addr), 0);
        EXPECT_EQ(std::string(reinterpret_cast<char*>(&addr), 4), "\xc6\x33\x64\x09");
    }
    EXPECT_THAT(log_.take(), IsEmpty());
}

TEST_F(BoardAddresses, FailsWithoutALanBridge) {
    unsigned addr = 5;
    EXPECT_EQ(get_lan_addr(0, &addr), -1);
    EXPECT_EQ(addr, 5U);
    EXPECT_THAT(log_.take(), Failed("get_lan_addr", "get_if_addr(BR_LAN, addr) fail\n"));
}

TEST_F(BoardAddresses, RejectsBadArguments) {
    Buffer buf(8);
    EXPECT_EQ(get_wan_name(nullptr, 8), -1);
    EXPECT_THAT(log_.take(), Rejected("get_wan_name"));
    EXPECT_EQ(get_wan_if_addr(nullptr), -1);
    EXPECT_THAT(log_.take(), Rejected("get_wan_if_addr"));
    EXPECT_EQ(get_wan_if_mac(nullptr, 6), -1);
    EXPECT_THAT(log_.take(), Rejected("get_wan_if_mac"));
    EXPECT_EQ(get_lan_if_mac(nullptr, buf.data(), 6), -1);
    EXPECT_THAT(log_.take(), Rejected("get_lan_if_mac"));
    EXPECT_EQ(get_lan_if_mac("eth0", nullptr, 6), -1);
    EXPECT_THAT(log_.take(), Rejected("get_lan_if_mac"));
    EXPECT_EQ(get_lan_addr(0, nullptr), -1);
    EXPECT_THAT(log_.take(), Rejected("get_lan_addr"));
    for (const int len : {0, -1, INT_MIN}) {
        EXPECT_EQ(get_wan_name(buf.data(), len), -1);
        EXPECT_THAT(log_.take(), Rejected("get_wan_name"));
        EXPECT_EQ(get_wan_if_mac(buf.data(), len), -1);
        EXPECT_THAT(log_.take(), Rejected("get_wan_if_mac"));
        EXPECT_EQ(get_lan_if_mac("eth0", buf.data(), len), -1);
        EXPECT_THAT(log_.take(), Rejected("get_lan_if_mac"));
    }
    EXPECT_TRUE(buf.untouched());
}

// ---- operating mode and names ----

void set_mode(const std::string& file, const std::string& type, const std::string& mode) {
    write_file("/etc/config/" + file, "config other\n\toption mode 'x'\nconfig " + type +
                                          "\n\toption mode '" + mode + "'\nconfig " + type +
                                          "\n\toption mode 'second'\n");
}

TEST_F(BoardModes, TellsAFatAccessPointFromAManagedOne) {
    for (const auto& [mode, expected] : std::map<std::string, int>{{"fat", 0},
                                                                   {"FAT", 0},
                                                                   {"fAt", 0},
                                                                   {"fit", 1},
                                                                   {"fatter", 1},
                                                                   {"fa", 1},
                                                                   {" fat", 1}}) {
        set_mode("wtp", "capwap", mode);
        EXPECT_EQ(tq_get_apmode(), expected) << mode;
    }
    EXPECT_THAT(log_.take(), IsEmpty());
}

TEST_F(BoardModes, TakesAnAccessPointForManagedWhereItCannotTell) {
    write_file("/etc/config/wtp", "config capwap\n");
    EXPECT_EQ(tq_get_apmode(), 1);
    write_file("/etc/config/wtp", "config other\n\toption mode fat\n");
    EXPECT_EQ(tq_get_apmode(), 1);
    tq_test::run_command("rm /etc/config/wtp");
    EXPECT_EQ(tq_get_apmode(), 1);
    set_mode("wtp", "capwap", "fat" + std::string(29, ' '));
    EXPECT_EQ(tq_get_apmode(), 1);
    for (const auto& line : log_.take())
        EXPECT_NE(line.function, "tq_get_apmode");
}

TEST_F(BoardModes, ReadsTheForwardingMode) {
    for (const auto& [mode, expected] : std::map<std::string, int>{{"bridge", 0},
                                                                   {"route", 1},
                                                                   {"Bridge", 2},
                                                                   {"ROUTE", 2},
                                                                   {"router", 2},
                                                                   {"bridg", 2},
                                                                   {"nat", 2},
                                                                   {std::string(63, 'x'), 2}}) {
        set_mode("forward", "forward", mode);
        EXPECT_EQ(get_forward_mode(), expected) << mode;
    }
    EXPECT_THAT(log_.take(), IsEmpty());
}

TEST_F(BoardModes, BridgesWhereThereIsNoForwardingMode) {
    write_file("/etc/config/forward", "config forward\n");
    EXPECT_EQ(get_forward_mode(), 0);
    tq_test::run_command("rm /etc/config/forward");
    EXPECT_EQ(get_forward_mode(), 0);
    set_mode("forward", "forward", std::string(64, 'x'));
    EXPECT_EQ(get_forward_mode(), 0);
}

TEST_F(BoardModes, ReadsTheNameOfTheModel) {
    Buffer buf(32);
    EXPECT_EQ(get_ap_modelname(buf.data(), 32), 0);
    EXPECT_EQ(buf.text(), "TQ AP 2x2");
    EXPECT_THAT(log_.take(), IsEmpty());
    write_file("/etc/config/board", "config other\n\toption model 'wrong'\n");
    EXPECT_EQ(get_ap_modelname(buf.data(), 32), -1);
    EXPECT_EQ(buf.text(), "");
    EXPECT_EQ(log_.take().back().function, "uci_get_str_option_by_id");
}

TEST_F(BoardModes, NeedsRoomForTheNameOfTheModel) {
    Buffer small(5);
    EXPECT_EQ(get_ap_modelname(small.data(), 5), -1);
    EXPECT_TRUE(small.guard_holds());
    EXPECT_EQ(get_ap_modelname(nullptr, 32), -1);
    Buffer buf(32);
    EXPECT_EQ(get_ap_modelname(buf.data(), 0), -1);
    EXPECT_TRUE(buf.untouched());
}

int vlan_id(const char* ifname) {
    int vlan = -77;
    const int result = get_br_vlan_id(ifname, &vlan);
    EXPECT_EQ(result, vlan == -77 ? -1 : 0);
    return vlan;
}

TEST_F(BoardModes, ReadsTheNumberBehindVlan) {
    EXPECT_EQ(vlan_id("br-vlan20"), 20);
    EXPECT_EQ(vlan_id("vlan4094"), 4094);
    EXPECT_EQ(vlan_id("eth0vlan5vlan6"), 5);
    EXPECT_EQ(vlan_id("br-vlan 7"), 7);
    EXPECT_EQ(vlan_id("br-vlan-7x"), -7);
    EXPECT_EQ(vlan_id("br-vlanx"), 0);
    EXPECT_EQ(vlan_id("br-vlanvlan3"), 0);
    EXPECT_EQ(vlan_id("br-vlan4294967300"), 4);
    EXPECT_EQ(vlan_id("vvlan2"), 2);
    EXPECT_EQ(vlan_id("br-vlan"), -77);
    EXPECT_EQ(vlan_id("br-lan20"), -77);
    EXPECT_EQ(vlan_id("br-VLAN20"), -77);
    EXPECT_EQ(vlan_id(""), -77);
    EXPECT_THAT(log_.take(), IsEmpty());
}

TEST_F(BoardModes, RejectsMissingArgumentsOfAVlan) {
    int vlan = -77;
    EXPECT_EQ(get_br_vlan_id(nullptr, &vlan), -1);
    EXPECT_THAT(log_.take(), Rejected("get_br_vlan_id"));
    EXPECT_EQ(get_br_vlan_id("br-vlan20", nullptr), -1);
    EXPECT_THAT(log_.take(), Rejected("get_br_vlan_id"));
    EXPECT_EQ(vlan, -77);
}

TEST_F(BoardModes, NamesTheBridgeAndTheSectionOfAVlan) {
    Buffer buf(32);
    for (const int vlan : {20, 0, -1, INT_MAX, INT_MIN}) {
        EXPECT_EQ(get_br_vlan_name(vlan, buf.data(), 32), 0);
        EXPECT_EQ(buf.text(), "br-vlan" + std::to_string(vlan));
        EXPECT_EQ(get_vlan_cfg_name(vlan, buf.data(), 32), 0);
        EXPECT_EQ(buf.text(), "vlan" + std::to_string(vlan));
    }
    EXPECT_THAT(log_.take(), IsEmpty());
}

TEST_F(BoardModes, CutsTheNamesOfAVlanToTheBuffer) {
    for (int size = 1; size <= 12; size++) {
        const size_t length = static_cast<size_t>(size) - 1;
        Buffer bridge(size);
        EXPECT_EQ(get_br_vlan_name(20, bridge.data(), size), 0);
        EXPECT_EQ(bridge.text(), std::string("br-vlan20").substr(0, length));
        EXPECT_TRUE(bridge.guard_holds());
        Buffer section(size);
        EXPECT_EQ(get_vlan_cfg_name(20, section.data(), size), 0);
        EXPECT_EQ(section.text(), std::string("vlan20").substr(0, length));
        EXPECT_TRUE(section.guard_holds());
    }
}

TEST_F(BoardModes, RejectsABadBufferForTheNamesOfAVlan) {
    Buffer buf(32);
    EXPECT_EQ(get_br_vlan_name(20, nullptr, 32), -1);
    EXPECT_THAT(log_.take(), Rejected("get_br_vlan_name"));
    EXPECT_EQ(get_vlan_cfg_name(20, nullptr, 32), -1);
    EXPECT_THAT(log_.take(), Rejected("get_vlan_cfg_name"));
    for (const int len : {0, -1, INT_MIN}) {
        EXPECT_EQ(get_br_vlan_name(20, buf.data(), len), -1);
        EXPECT_THAT(log_.take(), Rejected("get_br_vlan_name"));
        EXPECT_EQ(get_vlan_cfg_name(20, buf.data(), len), -1);
        EXPECT_THAT(log_.take(), Rejected("get_vlan_cfg_name"));
    }
    EXPECT_TRUE(buf.untouched());
}

}  // namespace
