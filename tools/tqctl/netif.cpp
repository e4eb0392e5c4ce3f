// netif.cpp - tqctl if, arp, route and resolve: the device's network as it is now.
#include <arpa/inet.h>
#include <net/if.h>
#include <net/if_arp.h>
#include <netdb.h>
#include <tq/netif.h>

#include <array>
#include <cerrno>
#include <cstdio>
#include <cstring>
#include <memory>
#include <string_view>

#include "families.h"
#include "mac_text.h"
#include "number.h"

namespace tqctl {

namespace {

using Ip = std::array<uint8_t, 4>;

// The forms that values have on the command line.

bool parse_address(const char* text, void* four_bytes) {
    return inet_pton(AF_INET, text, four_bytes) == 1;
}

struct AddressText {
    explicit AddressText(uint32_t address) { inet_ntop(AF_INET, &address, text, sizeof(text)); }

    char text[INET_ADDRSTRLEN] = "";
};

// What the last call's errno says about the subject.
ExitCode refuse(const Context& context, const char* subject) {
    const int error = errno;
    const bool is_forbidden = exit_code_of(error) == ExitCode::kNotPermitted;
    return context.fail(is_forbidden ? ExitCode::kNotPermitted : ExitCode::kRefused, "%s: %s",
                        subject, strerror(error));
}

// The library would cut a longer name, and so mean another interface.
ExitCode find_interface(const Context& context, const char* ifname) {
    uint32_t index = 0;
    if (strlen(ifname) < IFNAMSIZ && get_if_index(ifname, &index) == 0) return ExitCode::kDone;
    errno = ENODEV;
    return refuse(context, ifname);
}

// if list, if show

using GetAddress = int (*)(const char*, uint32_t*);

Json address_of(const char* ifname, GetAddress get) {
    uint32_t address = 0;
    return get(ifname, &address) == 0 ? json_text(AddressText(address).text) : nullptr;
}

Json mac_of(const char* ifname) {
    Mac mac{};
    if (get_if_mac(ifname, mac.data(), mac.size()) != 0) return nullptr;
    return json_text(MacText(mac.data()).text);
}

Json number_of(const char* ifname, GetAddress get) {
    uint32_t number = 0;
    return get(ifname, &number) == 0 ? json_number(number) : nullptr;
}

// What the interface does not have is no member.
Json describe(const char* ifname) {
    Json object(json_object_new_object());
    json_add(object.get(), "name", json_text(ifname));
    json_add(object.get(), "index", number_of(ifname, get_if_index));
    json_add(object.get(), "up", json_bool(if_is_up(ifname)));
    json_add(object.get(), "running", json_bool(if_is_running(ifname)));
    json_add(object.get(), "mac", mac_of(ifname));
    json_add(object.get(), "mtu", number_of(ifname, get_if_mtu));
    json_add(object.get(), "address", address_of(ifname, get_if_addr));
    json_add(object.get(), "netmask", address_of(ifname, get_if_netmask));
    json_add(object.get(), "broadcast", address_of(ifname, get_if_broadcast_addr));
    json_add(object.get(), "gateway", address_of(ifname, get_if_gateway));
    return object;
}

const char* state_of(const char* ifname) {
    if (if_is_running(ifname)) return "running";
    return if_is_up(ifname) ? "up" : "down";
}

void print_row(const char* ifname) {
    const Json object = describe(ifname);
    printf("%-15s %-7s %s %s\n", ifname, state_of(ifname), text_of(object, "mac"),
           text_of(object, "address"));
}

struct FreeNames {
    void operator()(struct if_nameindex* names) const { if_freenameindex(names); }
};

ExitCode list(Context& context, Arguments) {
    const std::unique_ptr<struct if_nameindex, FreeNames> names(if_nameindex());
    if (!names) return refuse(context, "interfaces");
    Rows rows(context.output);
    for (const struct if_nameindex* entry = names.get(); entry->if_name; entry++)
        rows.add(entry->if_name, describe, print_row);
    return ExitCode::kDone;
}

ExitCode show(Context& context, Arguments arguments) {
    const char* ifname = arguments[0];
    const ExitCode code = find_interface(context, ifname);
    if (code != ExitCode::kDone) return code;
    context.output.members(describe(ifname));
    return ExitCode::kDone;
}

// if up, if down

ExitCode set_up(const Context& context, const char* ifname, bool is_up) {
    const ExitCode code = find_interface(context, ifname);
    if (code != ExitCode::kDone) return code;
    return set_if_flag(ifname, is_up) == 0 ? ExitCode::kDone : refuse(context, ifname);
}

ExitCode up(Context& context, Arguments arguments) {
    return set_up(context, arguments[0], true);
}

ExitCode down(Context& context, Arguments arguments) {
    return set_up(context, arguments[0], false);
}

// if set

bool is_address(const char* text) {
    uint32_t address = 0;
    return parse_address(text, &address);
}

bool is_mac(const char* text) {
    return parse_mac(text).has_value();
}

bool is_mtu(const char* text) {
    return parse_u32(text).has_value();
}

template <int (*set_address)(const char*, const uint32_t*)>
int apply_address(const char* ifname, const char* text) {
    uint32_t address = 0;
    parse_address(text, &address);
    return set_address(ifname, &address);
}

int apply_mac(const char* ifname, const char* text) {
    return set_if_mac(ifname, parse_mac(text)->data());
}

int apply_mtu(const char* ifname, const char* text) {
    return set_if_mtu(ifname, *parse_u32(text));
}

struct Setting {
    std::string_view key;
    bool (*is_valid)(const char* text);
    int (*apply)(const char* ifname, const char* text);
};

// In the order in which they are applied: an address brings a mask with it, and a mask a broadcast
// address.
constexpr Setting kSettings[] = {
    {"address", is_address, apply_address<set_if_addr>},
    {"netmask", is_address, apply_address<set_if_netmask>},
    {"broadcast", is_address, apply_address<set_if_broadcast_addr>},
    {"mac", is_mac, apply_mac},
    {"mtu", is_mtu, apply_mtu},
};

// The value of the assignment, or null where it is another setting's.
const char* value_for(const Setting& setting, const char* assignment) {
    if (strncmp(assignment, setting.key.data(), setting.key.size()) != 0) return nullptr;
    return assignment[setting.key.size()] == '=' ? assignment + setting.key.size() + 1 : nullptr;
}

bool is_valid(const char* assignment) {
    for (const Setting& setting : kSettings) {
        const char* value = value_for(setting, assignment);
        if (value) return setting.is_valid(value);
    }
    return false;
}

ExitCode apply_all(const Context& context, const char* ifname, Arguments assignments) {
    for (const Setting& setting : kSettings) {
        for (const char* assignment : assignments) {
            const char* value = value_for(setting, assignment);
            if (value && setting.apply(ifname, value) != 0) return refuse(context, assignment);
        }
    }
    return ExitCode::kDone;
}

ExitCode set(Context& context, Arguments arguments) {
    const Arguments assignments = arguments.subspan(1);
    for (const char* assignment : assignments) {
        if (!is_valid(assignment)) return context.misuse("'%s' is not a setting", assignment);
    }
    const ExitCode code = find_interface(context, arguments[0]);
    if (code != ExitCode::kDone) return code;
    return apply_all(context, arguments[0], assignments);
}

// arp

ExitCode refuse_address(const Context& context, const char* text) {
    return context.misuse("'%s' is not an IPv4 address", text);
}

ExitCode add_neighbour(Context& context, Arguments arguments) {
    const char* ifname = arguments[0];
    const char* address = arguments[1];
    const bool is_permanent = arguments.size() == 4;
    Ip ip{};
    if (!parse_address(address, ip.data())) return refuse_address(context, address);
    const std::optional<Mac> mac = parse_mac(arguments[2]);
    if (!mac) return context.misuse("'%s' is not a hardware address", arguments[2]);
    if (is_permanent && strcmp(arguments[3], "permanent") != 0) {
        return context.misuse("'%s' is not 'permanent'", arguments[3]);
    }
    const ExitCode code = find_interface(context, ifname);
    if (code != ExitCode::kDone) return code;
    const uint32_t flags = is_permanent ? ATF_PERM : 0;
    const int result = add_arp(ifname, ip.data(), mac->data(), flags);
    return result == 0 ? ExitCode::kDone : refuse(context, address);
}

ExitCode del_neighbour(Context& context, Arguments arguments) {
    const char* ifname = arguments[0];
    const char* address = arguments[1];
    Ip ip{};
    if (!parse_address(address, ip.data())) return refuse_address(context, address);
    const ExitCode code = find_interface(context, ifname);
    if (code != ExitCode::kDone) return code;
    if (del_arp_by_ip(ifname, ip.data()) == 0) return ExitCode::kDone;
    if (errno == ENXIO) return context.fail(ExitCode::kRefused, "%s: no such entry", address);
    return refuse(context, address);
}

// route

ExitCode print_gateway(Context& context, Arguments arguments) {
    const char* ifname = arguments[0];
    const ExitCode code = find_interface(context, ifname);
    if (code != ExitCode::kDone) return code;
    uint32_t gateway = 0;
    if (get_if_gateway(ifname, &gateway) != 0) {
        return context.fail(ExitCode::kRefused, "%s: no gateway", ifname);
    }
    context.output.value("gateway", AddressText(gateway).text);
    return ExitCode::kDone;
}

// resolve

class AddressList {
  public:
    explicit AddressList(const char* name) { get_ip_list_by_hostname(name, &list_); }
    ~AddressList() {
        for (char* text : texts())
            free(text);
        free(static_cast<void*>(list_.array));
    }
    AddressList(const AddressList&) = delete;
    AddressList& operator=(const AddressList&) = delete;

    [[nodiscard]] std::span<char* const> texts() const { return {list_.array, list_.count}; }

  private:
    ip_str_list list_{};
};

ExitCode resolve(Context& context, Arguments arguments) {
    const AddressList list(arguments[0]);
    if (list.texts().empty()) {
        const ExitCode code = h_errno == TRY_AGAIN ? ExitCode::kBusy : ExitCode::kRefused;
        return context.fail(code, "%s: %s", arguments[0], hstrerror(h_errno));
    }
    Rows rows(context.output);
    for (const char* text : list.texts())
        rows.add(text, json_text, [](const char* line) { puts(line); });
    return ExitCode::kDone;
}

constexpr Command kIfCommands[] = {
    {"list", "", 0, 0, "lists the interfaces",
     "A line each: name, state (running, up or down), hardware address and IPv4\n"
     "address, or - where there is none. JSON is an array of what show prints.",
     "tqctl if list", list},
    {"show", "INTERFACE", 1, 1, "shows an interface",
     "Lines of KEY=VALUE: name, index, up, running, mac, mtu; and, where it has\n"
     "them, address, netmask, broadcast and gateway. JSON is an object of the same\n"
     "keys.",
     "tqctl if show eth0", show},
    {"up", "INTERFACE", 1, 1, "takes an interface up", "Its other flags stay as they are.",
     "tqctl if up eth0", up},
    {"down", "INTERFACE", 1, 1, "takes an interface down",
     "Its other flags stay as they are; routes through it are lost.", "tqctl if down eth0", down},
    {"set", "INTERFACE KEY=VALUE...", 2, kAnyNumber, "changes an interface",
     "The keys are address, netmask, broadcast (IPv4 addresses), mac and mtu; they\n"
     "are applied in this order. Without a netmask an address gets that of its\n"
     "class. For a new mac the interface is taken down and up again, so that routes\n"
     "through it are lost. What was set before a refusal stays; one whose mac is\n"
     "refused stays down.",
     "tqctl if set eth0 address=192.0.2.1 netmask=255.255.255.0", set},
};
constexpr Command kArpCommands[] = {
    {"add", "INTERFACE ADDRESS MAC [permanent]", 3, 4, "adds or changes an entry",
     "The neighbour at the IPv4 ADDRESS has the hardware address MAC. The kernel\n"
     "forgets the entry in time, unless it is permanent.",
     "tqctl arp add eth0 192.0.2.7 02:00:5e:00:53:07", add_neighbour},
    {"del", "INTERFACE ADDRESS", 2, 2, "deletes an entry", "The entry must exist.",
     "tqctl arp del eth0 192.0.2.7", del_neighbour},
};
constexpr Command kRouteCommands[] = {
    {"gateway", "INTERFACE", 1, 1, "prints the gateway of an interface",
     "It is that of the first route through the interface that goes by a gateway.",
     "tqctl route gateway eth0", print_gateway},
};
constexpr Command kResolveCommands[] = {
    {"", "NAME", 1, 1, "prints the IPv4 addresses of a host",
     "A line each, in the resolver's order. JSON is an array. Exit code 3 means that\n"
     "no name server has answered.",
     "tqctl resolve ntp.example.org", resolve},
};
static_assert(is_complete(kIfCommands) && is_complete(kArpCommands) &&
              is_complete(kRouteCommands) && is_complete(kResolveCommands));

}  // namespace

constinit const Family kIf = {"if", "network interfaces", "", kIfCommands};
constinit const Family kArp = {"arp", "the ARP table", "", kArpCommands};
constinit const Family kRoute = {"route", "routes", "", kRouteCommands};
constinit const Family kResolve = {"resolve", "IPv4 addresses of a host", "", kResolveCommands};

}  // namespace tqctl
