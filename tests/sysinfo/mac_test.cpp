// mac_test.cpp - the addresses that derive from the board's, the default SSID, and the driver's
// statistics of a radio.
#include "tq/mac.h"

#include <dlfcn.h>
#include <gmock/gmock.h>
#include <net/if.h>
#include <tq/board.h>
#include <tq/oem.h>

#include <array>
#include <cerrno>
#include <climits>
#include <cstring>
#include <map>
#include <optional>
#include <string>
#include <utility>
#include <vector>

#include "support/buffer.h"
#include "support/device.h"
#include "support/faults.h"
#include "support/log_capture.h"
#include "support/printed.h"

namespace {

// What the board library answers for a radio in place of the board's offset, and how often it was
// asked.
std::optional<std::string> offset_text;
int offset_questions = 0;

// What it does for the base address in place of reading the board's: the bytes that it writes, and
// its result.
struct BaseAnswer {
    std::string bytes;
    int result;
};
std::optional<BaseAnswer> base_answer;

// The selector and the length that it was asked for the base address with.
std::vector<std::pair<int, int>> base_questions;

}  // namespace

int tq_get_oem_ap_type_radio_index_info(int selector, int radio, void* out) {
    using Function = int(int, int, void*);
    static auto* const next = reinterpret_cast<Function*>(dlsym(RTLD_NEXT, __func__));
    offset_questions += selector == AP_TYPE_RADIO_MAC_OFFSET;
    if (!offset_text) return next(selector, radio, out);
    memcpy(out, offset_text->c_str(), offset_text->size() + 1);
    return 0;
}

int tq_get_oem_board_info(int selector, void* out, int len) {
    using Function = int(int, void*, int);
    static auto* const next = reinterpret_cast<Function*>(dlsym(RTLD_NEXT, __func__));
    if (!base_answer) return next(selector, out, len);
    base_questions.emplace_back(selector, len);
    base_answer->bytes.copy(static_cast<char*>(out), base_answer->bytes.size());
    return base_answer->result;
}

namespace {

using testing::Each;
using testing::ElementsAre;
using testing::IsEmpty;
using tq_test::Buffer;
using tq_test::Line;
using tq_test::LogCapture;
using tq_test::write_file;
using tq_test::faults::AnswerIoctl;
using tq_test::faults::Fail;

using Mac = std::array<uint8_t, 6>;

constexpr Mac kUntouchedMac = {0x5a, 0x5a, 0x5a, 0x5a, 0x5a, 0x5a};

std::string board(const std::string& base, const std::string& offsets = "") {
    return "[board]\nid = 1\nbase_mac = " + base + "\n" + offsets;
}

std::string radio(int index, const std::string& offset) {
    return "[radio " + std::to_string(index) + "]\nmac_offset = " + offset + "\n";
}

class MacTest : public tq_test::DeviceTest {
  protected:
    static void describe(const std::string& text) { write_file("/etc/board.conf", text); }

    ~MacTest() override {
        offset_text.reset();
        base_answer.reset();
    }

    LogCapture log_;
};

// carry addition

Mac plus(Mac mac, uint32_t octet, uint32_t add) {
    mac_offset(mac.data(), octet, add);
    return mac;
}

TEST(MacOffset, CarriesIntoEveryOctetBefore) {
    const Mac ones = {0xff, 0xff, 0xff, 0xff, 0xff, 0xff};
    EXPECT_EQ(plus({0, 0x11, 0x22, 0x33, 0x44, 0xff}, 5, 2),
              (Mac{0, 0x11, 0x22, 0x33, 0x45, 0x01}));
    EXPECT_EQ(plus(ones, 5, 1), (Mac{}));
    for (uint32_t octet = 0; octet < 6; octet++) {
        Mac expected = ones;
        for (uint32_t i = 0; i <= octet; i++)
            expected[i] = 0;
        EXPECT_EQ(plus(ones, octet, 1), expected) << octet;
        Mac one{};
        one[octet] = 1;
        EXPECT_EQ(plus({}, octet, 1), one) << octet;
    }
}

TEST(MacOffset, SpreadsAnAddOfMoreThanAByte) {
    EXPECT_EQ(plus({0, 0, 0, 0, 0, 1}, 5, 0x102), (Mac{0, 0, 0, 0, 1, 3}));
    EXPECT_EQ(plus({}, 5, 0x12345678), (Mac{0, 0, 0x12, 0x34, 0x56, 0x78}));
    EXPECT_EQ(plus({}, 2, 0x12345678), (Mac{0x34, 0x56, 0x78, 0, 0, 0}));
}

TEST(MacOffset, WrapsTheFirstSumAt32Bits) {
    // No carry is left of 2^32.
    EXPECT_EQ(plus({0, 0, 0, 0, 0, 3}, 5, 0xfffffffe), (Mac{0, 0, 0, 0, 0, 1}));
    // A negative number that does not reach 0 takes one from the four octets that 32 bits cover.
    EXPECT_EQ(plus({0, 1, 2, 3, 4, 1}, 5, 0xfffffffe), (Mac{0, 2, 2, 3, 3, 0xff}));
}

TEST(MacOffset, AddsLikeOneNumberOf48Bits) {
    for (uint32_t last = 0; last < 256; last++) {
        for (uint32_t add = 0; add < 256; add++) {
            const Mac mac = {0x00, 0x5e, 0x10, 0xff, 0xff, static_cast<uint8_t>(last)};
            uint64_t sum = 0x5e10ffff00 + last + add;
            Mac expected;
            for (size_t i = 6; i-- > 0; sum >>= 8)
                expected[i] = static_cast<uint8_t>(sum);
            ASSERT_EQ(plus(mac, 5, add), expected) << last << " + " << add;
        }
    }
}

TEST(MacOffset, ChangesNothingBeyondTheAddress) {
    std::array<uint8_t, 8> bytes;
    bytes.fill(0xff);
    mac_offset(bytes.data(), 6, 1);
    mac_offset(bytes.data(), UINT32_MAX, 1);
    EXPECT_THAT(bytes, Each(0xff));
    mac_offset(bytes.data(), 5, 1);
    EXPECT_THAT(bytes, ElementsAre(0, 0, 0, 0, 0, 0, 0xff, 0xff));
    mac_offset(nullptr, 5, 1);
}

// first-octet rule

TEST(VapMacOffset, KeepsTheAddressForZero) {
    for (const auto rule : {vap_mac_offset, lan_mac_offset}) {
        Mac mac = {0x3c, 1, 2, 3, 4, 5};
        rule(0, mac.data());
        EXPECT_EQ(mac, (Mac{0x3c, 1, 2, 3, 4, 5}));
    }
}

TEST(VapMacOffset, CountsInTheHighNibble) {
    const auto first_octet = [](uint8_t octet, uint32_t n) {
        Mac mac = {octet};
        vap_mac_offset(n, mac.data());
        return mac[0];
    };
    EXPECT_EQ(first_octet(0x00, 1), 0x02);
    EXPECT_EQ(first_octet(0x00, 2), 0x12);
    EXPECT_EQ(first_octet(0x00, 16), 0xf2);
    EXPECT_EQ(first_octet(0x00, 17), 0x02);
    EXPECT_EQ(first_octet(0x3c, 1), 0x3e);
    EXPECT_EQ(first_octet(0x3c, 3), 0x5e);
    EXPECT_EQ(first_octet(0xf0, 2), 0x02);
    EXPECT_EQ(first_octet(0x00, UINT32_MAX), 0xe2);
}

TEST(VapMacOffset, HoldsForEveryFirstOctetAndNumber) {
    for (int octet = 0; octet < 256; octet++) {
        for (int n = 0; n < 256; n++) {
            const int high = ((octet / 16 - 1 + n) % 16 + 16) % 16;
            const int expected = n == 0 ? octet : high * 16 + (octet % 16 | 2);
            for (const auto rule : {vap_mac_offset, lan_mac_offset}) {
                Mac mac = {static_cast<uint8_t>(octet), 1, 2, 3, 4, 5};
                rule(static_cast<uint32_t>(n), mac.data());
                ASSERT_THAT(mac, ElementsAre(expected, 1, 2, 3, 4, 5)) << octet << ", " << n;
            }
        }
    }
}

TEST(VapMacOffset, LeavesNullAlone) {
    vap_mac_offset(1, nullptr);
    lan_mac_offset(1, nullptr);
}

// derived addresses

TEST_F(MacTest, WanHasTheBaseAddress) {
    describe(board("00:11:22:33:44:ff"));
    for (const auto get : {get_base_mac, get_wan_mac}) {
        Mac mac = kUntouchedMac;
        EXPECT_GE(get(mac.data(), 6), 0);
        EXPECT_EQ(mac, (Mac{0x00, 0x11, 0x22, 0x33, 0x44, 0xff}));
    }
}

TEST_F(MacTest, VlanAndLanFollowTheBaseAddress) {
    describe(board("00:11:22:33:44:ff"));
    Mac mac{};
    EXPECT_EQ(get_vlan_mac(mac.data(), 6), 0);
    EXPECT_EQ(mac, (Mac{0x00, 0x11, 0x22, 0x33, 0x45, 0x01}));
    EXPECT_EQ(get_lan_mac(0, mac.data(), 6), 0);
    EXPECT_EQ(mac, (Mac{0x00, 0x11, 0x22, 0x33, 0x45, 0x00}));
    EXPECT_EQ(get_lan_mac(1, mac.data(), 6), 0);
    EXPECT_EQ(mac, (Mac{0x02, 0x11, 0x22, 0x33, 0x45, 0x00}));
    EXPECT_EQ(get_lan_mac(3, mac.data(), 6), 0);
    EXPECT_EQ(mac, (Mac{0x22, 0x11, 0x22, 0x33, 0x45, 0x00}));
}

TEST_F(MacTest, RadioAndVapFollowTheRadiosOffset) {
    describe(board("00:11:22:33:44:fe", radio(0, "3") + radio(1, "300")));
    Mac mac{};
    EXPECT_EQ(get_radio_mac(0, mac.data(), 6), 0);
    EXPECT_EQ(mac, (Mac{0x00, 0x11, 0x22, 0x33, 0x45, 0x01}));
    EXPECT_EQ(get_vap_mac(0, 0, mac.data(), 6), 0);
    EXPECT_EQ(mac, (Mac{0x00, 0x11, 0x22, 0x33, 0x45, 0x01}));
    EXPECT_EQ(get_vap_mac(0, 2, mac.data(), 6), 0);
    EXPECT_EQ(mac, (Mac{0x12, 0x11, 0x22, 0x33, 0x45, 0x01}));
    EXPECT_EQ(get_radio_mac(1, mac.data(), 6), 0);
    EXPECT_EQ(mac, (Mac{0x00, 0x11, 0x22, 0x33, 0x46, 0x2a}));
}

TEST_F(MacTest, WritesSixBytesOfALongerBuffer) {
    describe(board("00:11:22:33:44:55", radio(0, "3")));
    Buffer buffer(16);
    auto* mac = reinterpret_cast<uint8_t*>(buffer.data());
    EXPECT_GE(get_base_mac(mac, 16), 0);
    EXPECT_EQ(get_lan_mac(1, mac, 16), 0);
    EXPECT_EQ(get_vlan_mac(mac, 16), 0);
    EXPECT_EQ(get_radio_mac(0, mac, 16), 0);
    EXPECT_EQ(get_vap_mac(0, 1, mac, 16), 0);
    EXPECT_EQ(buffer.all().substr(6), std::string(10, tq_test::kUntouched));
}

TEST_F(MacTest, RejectsNullAndFewerThanSixBytes) {
    describe(board("00:11:22:33:44:55", radio(0, "3")));
    Mac mac = kUntouchedMac;
    for (const int len : {5, 0, -1, INT_MIN}) {
        EXPECT_EQ(get_radio_mac(0, mac.data(), len), -1) << len;
        EXPECT_EQ(get_vap_mac(0, 1, mac.data(), len), -1) << len;
        const auto size = static_cast<uint32_t>(len);
        EXPECT_EQ(get_base_mac(mac.data(), size), -1) << len;
        EXPECT_EQ(get_wan_mac(mac.data(), size), -1) << len;
        EXPECT_EQ(get_lan_mac(1, mac.data(), size), -1) << len;
        EXPECT_EQ(get_vlan_mac(mac.data(), size), -1) << len;
    }
    EXPECT_EQ(mac, kUntouchedMac);
    EXPECT_EQ(get_base_mac(nullptr, 6), -1);
    EXPECT_EQ(get_wan_mac(nullptr, 6), -1);
    EXPECT_EQ(get_lan_mac(0, nullptr, 6), -1);
    EXPECT_EQ(get_vlan_mac(nullptr, 6), -1);
    EXPECT_EQ(get_radio_mac(0, nullptr, 6), -1);
    EXPECT_EQ(get_vap_mac(0, 0, nullptr, 6), -1);
    EXPECT_THAT(log_.take(), IsEmpty());
}

TEST_F(MacTest, FailsWithoutABaseAddress) {
    describe("[board]\nid = 1\n" + radio(0, "3"));
    Mac mac = kUntouchedMac;
    EXPECT_EQ(get_base_mac(mac.data(), 6), -1);
    EXPECT_EQ(get_wan_mac(mac.data(), 6), -1);
    EXPECT_EQ(get_lan_mac(1, mac.data(), 6), -1);
    EXPECT_EQ(get_vlan_mac(mac.data(), 6), -1);
    EXPECT_EQ(get_radio_mac(0, mac.data(), 6), -1);
    EXPECT_EQ(get_vap_mac(0, 1, mac.data(), 6), -1);
    EXPECT_EQ(mac, kUntouchedMac);
    EXPECT_THAT(log_.take(), IsEmpty());
}

TEST_F(MacTest, TheBaseAddressHasTheResultOfTheBoardLibraryAndTheDerivedOnesOnlyItsSign) {
    offset_text = "3";
    for (const int result : {0, 6, -1, -5}) {
        SCOPED_TRACE(result);
        base_answer = {std::string("\x00\x11\x22\x33\x44\xff", 6), result};
        base_questions.clear();
        Mac mac = kUntouchedMac;
        EXPECT_EQ(get_base_mac(mac.data(), 16), result);
        EXPECT_EQ(get_wan_mac(mac.data(), 6), result);
        const int derived = result < 0 ? -1 : 0;
        EXPECT_EQ(get_vlan_mac(mac.data(), 6), derived);
        EXPECT_EQ(get_lan_mac(1, mac.data(), 6), derived);
        EXPECT_EQ(get_radio_mac(0, mac.data(), 6), derived);
        EXPECT_EQ(get_vap_mac(0, 1, mac.data(), 6), derived);
        // The length that the caller gives is not passed on.
        EXPECT_THAT(base_questions, testing::SizeIs(6));
        EXPECT_THAT(base_questions, Each(std::pair(BOARD_INFO_BASE_MAC, 6)));
    }
}

TEST_F(MacTest, TheBufferIsAsAFailedReadLeftIt) {
    offset_text = "3";
    base_answer = {"\x01\x02\x03", -1};
    const Mac half_read = {1, 2, 3, 0x5a, 0x5a, 0x5a};
    const auto after = [](auto&& get) {
        Mac mac = kUntouchedMac;
        EXPECT_EQ(get(mac.data()), -1);
        return mac;
    };
    EXPECT_EQ(after([](uint8_t* mac) { return get_base_mac(mac, 6); }), half_read);
    EXPECT_EQ(after([](uint8_t* mac) { return get_wan_mac(mac, 6); }), half_read);
    EXPECT_EQ(after([](uint8_t* mac) { return get_vlan_mac(mac, 6); }), half_read);
    EXPECT_EQ(after([](uint8_t* mac) { return get_lan_mac(1, mac, 6); }), half_read);
    EXPECT_EQ(after([](uint8_t* mac) { return get_radio_mac(0, mac, 6); }), half_read);
    EXPECT_EQ(after([](uint8_t* mac) { return get_vap_mac(0, 1, mac, 6); }), half_read);
}

TEST_F(MacTest, TheLastBaseAddressIsFollowedByTheFirst) {
    base_answer = {std::string(6, '\xff'), 0};
    Mac mac{};
    EXPECT_EQ(get_lan_mac(0, mac.data(), 6), 0);
    EXPECT_EQ(mac, (Mac{}));
    EXPECT_EQ(get_vlan_mac(mac.data(), 6), 0);
    EXPECT_EQ(mac, (Mac{0, 0, 0, 0, 0, 1}));
}

TEST_F(MacTest, ReadsTheOffsetAsTheNumberThatItsTextStartsWith) {
    describe(board("00:11:22:33:44:55"));
    const std::map<std::string, Mac> offsets = {
        {"3", {0, 0x11, 0x22, 0x33, 0x44, 0x58}},    {" +4th", {0, 0x11, 0x22, 0x33, 0x44, 0x59}},
        {"", {0, 0x11, 0x22, 0x33, 0x44, 0x55}},     {"four", {0, 0x11, 0x22, 0x33, 0x44, 0x55}},
        {"0x10", {0, 0x11, 0x22, 0x33, 0x44, 0x55}}, {"-2", {0, 0x11, 0x22, 0x33, 0x44, 0x53}}};
    for (const auto& [text, expected] : offsets) {
        offset_text = text;
        Mac mac{};
        EXPECT_EQ(get_radio_mac(0, mac.data(), 6), 0) << text;
        EXPECT_EQ(mac, expected) << text;
    }
}

TEST_F(MacTest, FailsForAnOffsetOfMinusOne) {
    describe(board("00:11:22:33:44:55"));
    Mac mac = kUntouchedMac;
    for (const char* text : {"-1", " -1", "-1x", "-01"}) {
        SCOPED_TRACE(text);
        offset_text = text;
        EXPECT_EQ(tq_test::printed([&] { EXPECT_EQ(get_radio_mac(0, mac.data(), 6), -1); }), "");
        EXPECT_EQ(get_vap_mac(0, 0, mac.data(), 6), -1);
    }
    EXPECT_EQ(mac, kUntouchedMac);
}

TEST_F(MacTest, NeverAsksForANegativeRadio) {
    offset_questions = 0;
    Mac mac{};
    tq_test::printed([&] { get_radio_mac(0x80000000, mac.data(), 6); });
    EXPECT_EQ(offset_questions, 0);
}

TEST_F(MacTest, SaysOnStandardOutputThatARadioHasNoOffset) {
    describe(board("00:11:22:33:44:55", radio(0, "3")));
    Mac mac = kUntouchedMac;
    for (const uint32_t missing : {1U, 77U, 0x80000000U, UINT32_MAX}) {
        EXPECT_EQ(tq_test::printed([&] { EXPECT_EQ(get_radio_mac(missing, mac.data(), 6), -1); }),
                  "get oem mac offset is fail\n");
        EXPECT_EQ(tq_test::printed([&] { EXPECT_EQ(get_vap_mac(missing, 0, mac.data(), 6), -1); }),
                  "get oem mac offset is fail\n");
    }
    // The offset is asked for before the buffer is looked at.
    EXPECT_EQ(tq_test::printed([&] { EXPECT_EQ(get_radio_mac(1, nullptr, 0), -1); }),
              "get oem mac offset is fail\n");
    EXPECT_EQ(mac, kUntouchedMac);
    EXPECT_THAT(log_.take(), IsEmpty());
}

// On each board, by what it is called.
std::map<std::string, Mac> addresses_of_the_unit() {
    std::map<std::string, Mac> all;
    Mac mac{};
    EXPECT_GE(get_wan_mac(mac.data(), 6), 0);
    all["wan"] = mac;
    EXPECT_EQ(get_vlan_mac(mac.data(), 6), 0);
    all["vlan"] = mac;
    for (int n = 0; n < tq_get_dev_lan_count(); n++) {
        EXPECT_EQ(get_lan_mac(static_cast<uint32_t>(n), mac.data(), 6), 0);
        all["lan" + std::to_string(n)] = mac;
    }
    for (int r = 0; r < bbi_radio_count_ret(); r++) {
        // The hidden and the reserved BSS come behind those that the radio supports.
        for (int v = 0; v <= bbi_radio_reservedbss_id_ret(r); v++) {
            EXPECT_EQ(
                get_vap_mac(static_cast<uint32_t>(r), static_cast<uint32_t>(v), mac.data(), 6), 0);
            all["radio" + std::to_string(r) + " vap" + std::to_string(v)] = mac;
        }
    }
    return all;
}

std::vector<std::string> equal_pairs(const std::map<std::string, Mac>& all) {
    std::vector<std::string> pairs;
    for (auto a = all.begin(); a != all.end(); ++a) {
        for (auto b = std::next(a); b != all.end(); ++b) {
            if (a->second == b->second) pairs.push_back(a->first + " = " + b->first);
        }
    }
    return pairs;
}

TEST_F(MacTest, NoTwoInterfacesOfASampleBoardHaveOneAddress) {
    for (const char* name : {"one-radio", "dual-radio", "tri-radio"}) {
        tq_test::use_board(name);
        const auto all = addresses_of_the_unit();
        EXPECT_GT(all.size(), 8U) << name;
        EXPECT_THAT(equal_pairs(all), IsEmpty()) << name;
    }
}

TEST_F(MacTest, ALocalBaseAddressMakesTheFirstTwoVapsEqual) {
    describe(board("02:11:22:33:44:00", radio(0, "3") + "bss = 2\n"));
    Mac zero{}, one{};
    get_vap_mac(0, 0, zero.data(), 6);
    get_vap_mac(0, 1, one.data(), 6);
    EXPECT_EQ(zero, one);
}

TEST_F(MacTest, TheRuleRepeatsItselfAfterSixteen) {
    describe(board("00:11:22:33:44:00", radio(0, "3")));
    Mac first{}, again{};
    for (uint32_t n = 1; n <= 16; n++) {
        get_vap_mac(0, n, first.data(), 6);
        get_vap_mac(0, n + 16, again.data(), 6);
        EXPECT_EQ(first, again) << n;
    }
}

TEST_F(MacTest, RadiosShareTheAddressesOfSmallOffsets) {
    describe(board("00:11:22:33:44:00", radio(0, "0") + radio(1, "1") + radio(2, "2")));
    Mac radio_mac{}, other{};
    get_radio_mac(0, radio_mac.data(), 6);
    get_wan_mac(other.data(), 6);
    EXPECT_EQ(radio_mac, other);
    for (uint32_t n = 0; n < 16; n++) {
        get_vap_mac(1, n, radio_mac.data(), 6);
        get_lan_mac(n, other.data(), 6);
        EXPECT_EQ(radio_mac, other) << n;
    }
    get_radio_mac(2, radio_mac.data(), 6);
    get_vlan_mac(other.data(), 6);
    EXPECT_EQ(radio_mac, other);
}

// default SSID

std::string default_ssid(int size, int ignored, int number) {
    Buffer buffer(size);
    EXPECT_EQ(get_default_ssid(buffer.data(), size, ignored, number), 0);
    EXPECT_TRUE(buffer.guard_holds());
    return buffer.text();
}

TEST_F(MacTest, DefaultSsidCarriesTheLastTwoOctets) {
    describe(board("00:11:22:33:ab:0c"));
    EXPECT_EQ(default_ssid(33, 0, 1), "tqpelkin-ab0c-1");
    EXPECT_EQ(default_ssid(33, 99, 1), "tqpelkin-ab0c-1");
    EXPECT_EQ(default_ssid(33, 0, -7), "tqpelkin-ab0c--7");
    EXPECT_EQ(default_ssid(64, 0, INT_MIN), "tqpelkin-ab0c--2147483648");
}

TEST_F(MacTest, DefaultSsidIsCutToItsBuffer) {
    describe(board("00:11:22:33:ab:0c"));
    const std::string whole = "tqpelkin-ab0c-12";
    for (int size = 1; size < 24; size++)
        EXPECT_EQ(default_ssid(size, 0, 12), whole.substr(0, static_cast<size_t>(size - 1)));
}

TEST_F(MacTest, DefaultSsidDoesWithoutABaseAddress) {
    describe("[board]\nid = 1\n");
    EXPECT_EQ(default_ssid(33, 0, 2), "tqpelkin-0000-2");
}

TEST_F(MacTest, DefaultSsidTakesWhatWasReadWhateverTheResult) {
    base_answer = {std::string("\x00\x11\x22\x33\xab\x0c", 6), -1};
    EXPECT_EQ(default_ssid(33, 0, 1), "tqpelkin-ab0c-1");
}

TEST_F(MacTest, DefaultSsidRejectsBadBuffers) {
    Buffer buffer(16);
    EXPECT_EQ(get_default_ssid(nullptr, 16, 0, 1), -1);
    EXPECT_EQ(get_default_ssid(buffer.data(), 0, 0, 1), -1);
    EXPECT_EQ(get_default_ssid(buffer.data(), -1, 0, 1), -1);
    EXPECT_TRUE(buffer.untouched());
    EXPECT_THAT(log_.take(), IsEmpty());
}

// radio statistics

struct DriverRequest {
    uint32_t command;
    void* buffer;
    uint32_t length;
};

class RadioStats : public MacTest {
  protected:
    RadioStats() : out_(TQ_RADIO_STATS_SIZE) {}

    int get(int radio) { return get_radio_stats(radio, out_.data()); }

    Buffer out_;
};

TEST_F(RadioStats, CopiesTheDriversBlock) {
    std::string pattern;
    for (int i = 0; i < TQ_RADIO_STATS_SIZE; i++)
        pattern += static_cast<char>(i * 7 + i / 256);
    std::string name;
    bool was_clear = false;
    const AnswerIoctl driver([&](unsigned long operation, void* argument) -> std::optional<int> {
        EXPECT_EQ(operation, 0x89f8U);
        const auto* interface = static_cast<ifreq*>(argument);
        name.assign(interface->ifr_name, sizeof(interface->ifr_name));
        const auto* request = reinterpret_cast<DriverRequest*>(interface->ifr_data);
        EXPECT_EQ(request->command, 16U);
        EXPECT_EQ(request->length, 2904U);
        auto* bytes = static_cast<char*>(request->buffer);
        was_clear = std::string(bytes, 2904) == std::string(2904, '\0');
        pattern.copy(bytes, pattern.size());
        return 0;
    });
    EXPECT_EQ(get(1), 0);
    EXPECT_EQ(name, std::string("wifi1\0\0\0\0\0\0\0\0\0\0\0", 16));
    EXPECT_TRUE(was_clear);
    EXPECT_EQ(out_.all(), pattern);
    EXPECT_TRUE(out_.guard_holds());
    EXPECT_THAT(log_.take(), IsEmpty());
}

TEST_F(RadioStats, NamesTheRadioByItsNumber) {
    std::string name;
    const AnswerIoctl driver([&](unsigned long, void* argument) -> std::optional<int> {
        name.assign(static_cast<ifreq*>(argument)->ifr_name, IFNAMSIZ);
        return 1;
    });
    EXPECT_EQ(get(INT_MAX), 0);
    EXPECT_STREQ(name.c_str(), "wifi2147483647");
}

TEST_F(RadioStats, FailsWhereTheDriverRefuses) {
    const AnswerIoctl driver([](unsigned long, void* argument) -> std::optional<int> {
        const auto* interface = static_cast<ifreq*>(argument);
        const auto* request = reinterpret_cast<DriverRequest*>(interface->ifr_data);
        memset(request->buffer, 0x77, 100);
        errno = EOPNOTSUPP;
        return -1;
    });
    EXPECT_EQ(get(0), -1);
    EXPECT_TRUE(out_.untouched());
    EXPECT_THAT(log_.take(),
                ElementsAre(Line(LOG_ERR, "get_radio_stats", "ioctl SIOCGATHEXTENDED fail\n")));
}

TEST_F(RadioStats, FailsWithoutTheRadio) {
    EXPECT_EQ(get(0), -1);
    EXPECT_TRUE(out_.untouched());
    EXPECT_THAT(log_.take(),
                ElementsAre(Line(LOG_ERR, "get_radio_stats", "ioctl SIOCGATHEXTENDED fail\n")));
}

TEST_F(RadioStats, RejectsBadArguments) {
    EXPECT_EQ(get(-1), -1);
    EXPECT_EQ(get_radio_stats(0, nullptr), -1);
    EXPECT_TRUE(out_.untouched());
    EXPECT_THAT(log_.take(), ElementsAre(Line(LOG_ERR, "get_radio_stats", "arguments error\n"),
                                         Line(LOG_ERR, "get_radio_stats", "arguments error\n")));
}

TEST_F(RadioStats, SaysWhyThereIsNoSocket) {
    const Fail fail("socket", 1, EMFILE);
    EXPECT_EQ(get(0), -1);
    EXPECT_THAT(log_.take(),
                ElementsAre(Line(LOG_ERR, "get_radio_stats",
                                 "create socket fail: " + std::string(strerror(EMFILE)) + "\n")));
}

TEST_F(RadioStats, SaysThatThereIsNoMemory) {
    TQ_NEEDS_FAILING_ALLOCATOR();
    const Fail fail("calloc", 1, ENOMEM);
    EXPECT_EQ(get(0), -1);
    EXPECT_THAT(log_.take(), ElementsAre(Line(LOG_ERR, "get_radio_stats",
                                              "malloc ol_ath_radiostats buffer fail\n")));
}

TEST_F(RadioStats, LeavesNoDescriptorOpen) {
    EXPECT_EQ(get(0), -1) << "opens the log";
    const std::vector<int> before = tq_test::open_descriptors();
    get(0);
    const AnswerIoctl driver([](unsigned long, void*) -> std::optional<int> { return 0; });
    get(0);
    EXPECT_EQ(tq_test::open_descriptors(), before);
}

}  // namespace
