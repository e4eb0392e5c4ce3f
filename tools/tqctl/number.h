// number.h - numbers on the command line.
#pragma once

#include <cerrno>
#include <cstdint>
#include <cstdlib>
#include <optional>

namespace tqctl {

// The decimal number that the whole text is, where it lies within these.
inline std::optional<int64_t> parse_number(const char* text, int64_t least, int64_t most) {
    if ((*text < '0' || *text > '9') && *text != '-') return std::nullopt;
    char* end = nullptr;
    errno = 0;
    const long long number = strtoll(text, &end, 10);
    if (end == text || *end || errno != 0 || number < least || number > most) return std::nullopt;
    return number;
}

inline std::optional<uint32_t> parse_u32(const char* text) {
    const std::optional<int64_t> number = parse_number(text, 0, UINT32_MAX);
    if (!number) return std::nullopt;
    return static_cast<uint32_t>(*number);
}

inline std::optional<int> parse_int(const char* text) {
    const std::optional<int64_t> number = parse_number(text, INT32_MIN, INT32_MAX);
    if (!number) return std::nullopt;
    return static_cast<int>(*number);
}

}  // namespace tqctl
