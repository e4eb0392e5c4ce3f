// scanned_octets.h - what sscanf makes of an IPv4 address: the language that v4_str_to_byte_addr
// accepts.
#pragma once

#include <algorithm>
#include <array>
#include <cstdint>
#include <cstdio>
#include <cstring>
#include <string>

namespace tq_test {

// What sscanf makes of the text where a long has 32 bits. Where it has 64, a number that 32 bits do
// not hold is replaced by the largest that they do, as strtoul would have it there.
inline std::string for_32_bits(const std::string& text) {
    if (sizeof(long) == 4) return text;
    std::string result;
    for (size_t i = 0; i < text.size();) {
        const size_t end = std::min(text.find_first_not_of("0123456789", i), text.size());
        if (end == i) {
            result += text[i++];
            continue;
        }
        std::string digits = text.substr(i, end - i);
        digits.erase(0, std::min(digits.find_first_not_of('0'), digits.size() - 1));
        i = end;
        const std::string largest = "4294967295";
        if (digits.size() < 10 || (digits.size() == 10 && digits <= largest)) {
            result += digits;
            continue;
        }
        // A sign behind a digit or another sign is no number's.
        const bool is_sign =
            result.ends_with('-') &&
            (result.size() == 1 || !strchr("0123456789+-", result[result.size() - 2]));
        if (is_sign) result.pop_back();
        result += largest;
    }
    return result;
}

inline int scan_octets(const std::string& text, std::array<uint8_t, 4>& bytes) {
    unsigned octets[4];
    // NOLINTNEXTLINE(cert-err34-c)
    if (sscanf(for_32_bits(text).c_str(), "%u.%u.%u.%u", &octets[0], &octets[1], &octets[2],
               &octets[3]) != 4)
        return -1;
    if (std::ranges::any_of(octets, [](unsigned octet) { return octet >= 256; })) return -1;
    std::ranges::transform(octets, bytes.begin(),
                           [](unsigned o) { return static_cast<uint8_t>(o); });
    return 0;
}

}  // namespace tq_test
