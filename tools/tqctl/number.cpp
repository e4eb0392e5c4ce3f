#include "number.h"

#include <cerrno>
#include <cinttypes>
#include <cstdlib>

namespace tqctl {

namespace {

constexpr char kNumber[] = "a number";

template <typename Type>
std::optional<Type> narrow(std::optional<int64_t> number) {
    if (!number) return std::nullopt;
    return static_cast<Type>(*number);
}

}  // namespace

std::optional<int64_t> parse_number(const char* text, int64_t least, int64_t most) {
    if ((*text < '0' || *text > '9') && *text != '-') return std::nullopt;
    char* end = nullptr;
    errno = 0;
    const long long number = strtoll(text, &end, 10);
    if (end == text || *end || errno != 0 || number < least || number > most) return std::nullopt;
    return number;
}

std::optional<uint32_t> parse_u32(const char* text) {
    return narrow<uint32_t>(parse_number(text, 0, UINT32_MAX));
}

std::optional<int64_t> take_number(const Context& context, const char* argument, const char* what,
                                   int64_t least, int64_t most) {
    const std::optional<int64_t> number = parse_number(argument, least, most);
    if (!number) {
        context.misuse("'%s' is not %s from %" PRId64 " to %" PRId64, argument, what, least, most);
    }
    return number;
}

std::optional<uint32_t> take_u32(const Context& context, const char* argument) {
    return narrow<uint32_t>(take_number(context, argument, kNumber, 0, UINT32_MAX));
}

std::optional<int> take_int(const Context& context, const char* argument) {
    return narrow<int>(take_number(context, argument, kNumber, INT32_MIN, INT32_MAX));
}

std::optional<uint16_t> take_port(const Context& context, const char* argument) {
    return narrow<uint16_t>(take_number(context, argument, "a port", 1, UINT16_MAX));
}

}  // namespace tqctl
