// ip.cpp - tqctl ip: addresses, masks and prefix lengths, one from the other.
#include <tq/ip_address.h>

#include <cerrno>
#include <cstdlib>
#include <cstring>

#include "families.h"

namespace tqctl {

namespace {

constexpr uint32_t kTextSize = 64;

// As people write it: an address, and a prefix length or a mask behind a slash. Without one it is
// that address alone.
bool parse_address(const char* text, ip_address& address) {
    if (strchr(text, ':')) {
        if (v6_str_to_ip_address(text, &address) != 0) return false;
        return ip_set_v6_masklen(&address, address.form.v6.prefix_length) == 0;
    }
    ip_init_v4_addr(&address);
    if (strchr(text, '/')) return ip_set_v4_str_addr_mask(&address, text) == 0;
    return ip_set_v4_str_addr(&address, text) == 0 && ip_set_v4_masklen(&address, 32) == 0;
}

ExitCode refuse(const Context& context, const char* text) {
    return context.fail(ExitCode::kRefused, "'%s' is not an IP address", text);
}

ExitCode parse(Context& context, Arguments arguments) {
    ip_address address;
    if (!parse_address(arguments[0], address)) return refuse(context, arguments[0]);
    char text[kTextSize];
    ip_to_str_addr(&address, text, sizeof(text));
    uint32_t length = 0;
    ip_get_masklen(&address, &length);
    context.output.member("version", address.version == IP_VERSION_4 ? 4 : 6);
    context.output.member("address", text);
    context.output.member("prefix_length", length);
    if (ip_get_v4_str_mask(&address, text, sizeof(text)) == 0) context.output.member("mask", text);
    if (ip_get_v4_str_broadcast(&address, text, sizeof(text)) == 0)
        context.output.member("broadcast", text);
    return ExitCode::kDone;
}

bool parse_length(const char* text, uint32_t& length) {
    char* end = nullptr;
    errno = 0;
    const unsigned long value = strtoul(text, &end, 10);
    if (!*text || *end || errno != 0 || *text == '-' || value > 32) return false;
    length = static_cast<uint32_t>(value);
    return true;
}

ExitCode mask(Context& context, Arguments arguments) {
    ip_address address;
    ip_init_v4_addr(&address);
    uint32_t length = 0;
    if (parse_length(arguments[0], length)) {
        char text[kTextSize];
        ip_set_v4_masklen(&address, length);
        ip_get_v4_str_mask(&address, text, sizeof(text));
        context.output.value("mask", text);
        return ExitCode::kDone;
    }
    if (ip_set_v4_str_mask(&address, arguments[0]) != 0)
        return context.fail(ExitCode::kRefused, "'%s' is neither a mask nor a length",
                            arguments[0]);
    ip_get_v4_masklen(&address, &length);
    context.output.value("prefix_length", length);
    return ExitCode::kDone;
}

ExitCode broadcast(Context& context, Arguments arguments) {
    ip_address address;
    if (!parse_address(arguments[0], address)) return refuse(context, arguments[0]);
    char text[kTextSize];
    if (ip_get_v4_str_broadcast(&address, text, sizeof(text)) != 0)
        return context.fail(ExitCode::kRefused, "IPv6 has no broadcast address");
    context.output.value("broadcast", text);
    return ExitCode::kDone;
}

constexpr Command kCommands[] = {
    {"parse", "ADDRESS", 1, 1, "shows what an address means",
     "Its version, the address in its shortest form and the prefix length; for IPv4\n"
     "also the mask and the broadcast address.",
     "tqctl ip parse 192.168.1.10/24", parse},
    {"mask", "LENGTH|MASK", 1, 1, "converts between a prefix length and a mask",
     "A LENGTH from 0 to 32 prints its mask, a dotted MASK its length.", "tqctl ip mask 24", mask},
    {"broadcast", "ADDRESS", 1, 1, "prints the broadcast address of a network",
     "ADDRESS is any of the network's, with its prefix length or mask.",
     "tqctl ip broadcast 192.168.1.10/24", broadcast},
};
static_assert(is_complete(kCommands));

}  // namespace

constinit const Family kIp = {
    "ip", "IP addresses, masks and prefix lengths",
    "ADDRESS is an IPv4 or IPv6 address. A prefix length or, for IPv4, a dotted\n"
    "mask may follow behind a slash; an address alone has the longest.",
    kCommands};

}  // namespace tqctl
