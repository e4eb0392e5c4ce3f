// ip.cpp - tqctl ip: addresses, masks and prefix lengths, one from the other.
#include <arpa/inet.h>
#include <tq/ip_address.h>

#include <cstring>

#include "families.h"
#include "number.h"

namespace tqctl {

namespace {

constexpr uint32_t kTextSize = 64;

// The library reads past what it does not understand; on a command line that is a slip of the hand.
bool is_whole(int family, const char* text) {
    in6_addr parsed;
    return inet_pton(family, text, &parsed) == 1;
}

bool is_address_and_mask(const char* text) {
    char address[kTextSize];
    const size_t length = strcspn(text, "/");
    if (length >= sizeof(address)) return false;
    memcpy(address, text, length);
    address[length] = '\0';
    const int family = strchr(address, ':') ? AF_INET6 : AF_INET;
    if (!is_whole(family, address)) return false;
    if (!text[length]) return true;
    const char* mask = text + length + 1;
    return parse_u32(mask) || (family == AF_INET && is_whole(AF_INET, mask));
}

// As people write it: an address, and a prefix length or a mask behind a slash. Without one it is
// that address alone.
bool parse_address(const char* text, ip_address& address) {
    if (!is_address_and_mask(text)) return false;
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

ExitCode mask(Context& context, Arguments arguments) {
    ip_address address;
    ip_init_v4_addr(&address);
    const std::optional<uint32_t> given = parse_u32(arguments[0]);
    if (given && ip_set_v4_masklen(&address, *given) == 0) {
        char text[kTextSize];
        ip_get_v4_str_mask(&address, text, sizeof(text));
        context.output.value("mask", text);
        return ExitCode::kDone;
    }
    if (!is_whole(AF_INET, arguments[0]) || ip_set_v4_str_mask(&address, arguments[0]) != 0)
        return context.fail(ExitCode::kRefused, "'%s' is neither a mask nor a length",
                            arguments[0]);
    uint32_t length = 0;
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
    "ip", "IP addresses and masks",
    "ADDRESS is an IPv4 or IPv6 address. A prefix length or, for IPv4, a dotted\n"
    "mask may follow behind a slash; an address alone has the longest.",
    kCommands};

}  // namespace tqctl
