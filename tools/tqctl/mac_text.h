// mac_text.h - hardware addresses as xx:xx:xx:xx:xx:xx.
#pragma once

#include <array>
#include <charconv>
#include <cstdint>
#include <cstdio>
#include <cstring>
#include <optional>

namespace tqctl {

using Mac = std::array<uint8_t, 6>;

struct MacText {
    explicit MacText(const uint8_t* mac) {
        snprintf(text, sizeof(text), "%02x:%02x:%02x:%02x:%02x:%02x", mac[0], mac[1], mac[2],
                 mac[3], mac[4], mac[5]);
    }

    char text[sizeof("xx:xx:xx:xx:xx:xx")];
};

inline std::optional<Mac> parse_mac(const char* text) {
    Mac mac{};
    if (strlen(text) != sizeof(MacText::text) - 1) return std::nullopt;
    for (size_t i = 0; i < mac.size(); i++) {
        const char* octet = text + 3 * i;
        const auto [end, error] = std::from_chars(octet, octet + 2, mac[i], 16);
        const char separator = i + 1 < mac.size() ? ':' : '\0';
        if (error != std::errc{} || end != octet + 2 || *end != separator) return std::nullopt;
    }
    return mac;
}

}  // namespace tqctl
