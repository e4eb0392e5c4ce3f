// board_fuzz.cpp - interface names read back to radio and VAP, and VLAN numbers, beside readers
// written the slow way. The bytes: naming mode, number of radios, a prefix for each up to a zero
// byte, and the name.
#include <tq/board.h>
#include <tq/oem.h>

#include <climits>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <optional>
#include <string>
#include <utility>
#include <vector>

namespace {

struct Board {
    int mode = 0;
    std::vector<std::string> prefixes;
};

Board board;

void require(bool condition, const char* what) {
    if (condition) return;
    fprintf(stderr, "%s\n", what);
    abort();
}

std::string take_text(std::string& bytes) {
    std::string text = bytes.substr(0, bytes.find('\0'));
    bytes.erase(0, text.size() + 1);
    return text;
}

using Id = std::pair<int, int>;

bool is_digit(char c) {
    return c >= '0' && c <= '9';
}

// The number of the digits from there on; nothing where there are none, or too many.
std::optional<int> number_at(const std::string& text, size_t position) {
    if (position >= text.size() || !is_digit(text[position])) return std::nullopt;
    int64_t number = 0;
    for (; position < text.size() && is_digit(text[position]); position++) {
        number = number * 10 + (text[position] - '0');
        if (number > INT_MAX) return std::nullopt;
    }
    return static_cast<int>(number);
}

std::optional<Id> slow_wifi_id(const std::string& name) {
    for (size_t i = 0; i < board.prefixes.size(); i++) {
        const std::string& prefix = board.prefixes[i];
        if (name.compare(0, prefix.size(), prefix) != 0) continue;
        if (board.mode == 0) {
            if (prefix.size() >= name.size() || !is_digit(name[prefix.size()])) continue;
            const auto vap = number_at(name, prefix.size());
            if (!vap) return std::nullopt;
            return Id(static_cast<int>(i), *vap);
        }
        const auto number = number_at(name, name.find_first_of("0123456789"));
        if (!number) return std::nullopt;
        return Id(*number / 16, *number % 16);
    }
    return std::nullopt;
}

void check_wifi_id(const std::string& name) {
    Id id(-1, -1);
    const int result = tq_get_wifi_id(0, name.c_str(), &id.first, &id.second);
    const auto expected = slow_wifi_id(name);
    require(result == (expected ? 0 : -1), "the name reads otherwise");
    require(id == expected.value_or(Id(-1, -1)), "another radio or VAP");
}

void check_vap_name(int radio, int vap) {
    char name[24];
    memset(name, '?', sizeof(name));
    require(tq_get_vap_ifname(0, board.mode, radio, vap, name, 16) == 0, "no name");
    require(memchr(name, '\0', 16) != nullptr, "a name without an end");
    require(name[16] == '?', "a name beyond its room");
}

void check_vlan(const std::string& name) {
    int vlan = -77;
    const size_t found = name.find("vlan");
    const bool has_more = found != std::string::npos && found + 4 < name.size();
    require(get_br_vlan_id(name.c_str(), &vlan) == (has_more ? 0 : -1), "a VLAN reads otherwise");
    if (!has_more) require(vlan == -77, "a VLAN from nowhere");
    const auto number = has_more ? number_at(name, found + 4) : std::nullopt;
    if (number) require(vlan == *number, "another VLAN");
}

}  // namespace

// In the board library's place.

int tq_get_oem_ap_type_common(int selector) {
    return selector == AP_TYPE_VAP_NAME_MODE ? board.mode : static_cast<int>(board.prefixes.size());
}

int tq_get_oem_ap_type_radio_index_info(int /*selector*/, int radio, void* out) {
    const std::string& prefix = board.prefixes[static_cast<size_t>(radio)];
    memcpy(out, prefix.c_str(), prefix.size() + 1);
    return 0;
}

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size);

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    if (size < 2) return 0;
    board.mode = data[0] % 4;
    board.prefixes.clear();
    std::string bytes(reinterpret_cast<const char*>(data) + 2, size - 2);
    for (int i = data[1] % 4; i >= 0; i--)
        board.prefixes.push_back(take_text(bytes).substr(0, 31));
    const std::string name = take_text(bytes);
    check_wifi_id(name);
    check_vlan(name);
    check_vap_name(data[1] % static_cast<int>(board.prefixes.size()), data[0]);
    return 0;
}
