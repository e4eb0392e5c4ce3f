// mac.cpp - tqctl mac: the addresses that derive from the board's.
#include <tq/board.h>
#include <tq/mac.h>

#include <cstdio>

#include "families.h"
#include "mac_text.h"
#include "number.h"

namespace tqctl {

namespace {

constexpr int kMacSize = 6;

void show_address(Context& context, const char* name, const uint8_t* mac) {
    context.output.member(name, MacText(mac).text);
}

void show_lan(Context& context) {
    uint8_t mac[kMacSize];
    for (int i = 0; i < tq_get_dev_lan_count(); i++) {
        char name[16];
        snprintf(name, sizeof(name), "lan%d", i);
        if (get_lan_mac(static_cast<uint32_t>(i), mac, sizeof(mac)) == 0)
            show_address(context, name, mac);
    }
}

// False where the board does not say the radio's offset.
bool show_radio(Context& context, int radio) {
    uint8_t mac[kMacSize];
    if (get_radio_mac(static_cast<uint32_t>(radio), mac, sizeof(mac)) != 0) return false;
    show_address(context, bbi_radio_device_ret(radio), mac);
    for (int vap = 0; vap < bbi_radio_bss_support_ret(radio); vap++) {
        char name[32];
        if (get_vap_name(radio, vap, name, sizeof(name)) != 0 ||
            get_vap_mac(static_cast<uint32_t>(radio), static_cast<uint32_t>(vap), mac,
                        sizeof(mac)) != 0)
            continue;
        show_address(context, name, mac);
    }
    return true;
}

ExitCode refuse_without_base(const Context& context) {
    return context.fail(ExitCode::kRefused, "the board has no base address");
}

ExitCode show(Context& context, Arguments) {
    uint8_t mac[kMacSize];
    if (get_wan_mac(mac, sizeof(mac)) < 0) return refuse_without_base(context);
    show_address(context, "wan", mac);
    if (get_vlan_mac(mac, sizeof(mac)) == 0) show_address(context, "vlan", mac);
    show_lan(context);
    ExitCode code = ExitCode::kDone;
    for (int radio = 0; radio < bbi_radio_count_ret(); radio++) {
        if (show_radio(context, radio)) continue;
        code = context.fail(ExitCode::kRefused, "the board has no address for radio %d", radio);
    }
    return code;
}

ExitCode ssid(Context& context, Arguments arguments) {
    const std::optional<int64_t> number = take_number(context, arguments[0], "a number", 0, 999);
    if (!number) return ExitCode::kUsage;
    uint8_t mac[kMacSize];
    if (get_base_mac(mac, sizeof(mac)) < 0) return refuse_without_base(context);
    char name[33];
    get_default_ssid(name, sizeof(name), 0, static_cast<int>(*number));
    context.output.value("ssid", name);
    return ExitCode::kDone;
}

constexpr Command kCommands[] = {
    {"show", "", 0, 0, "shows the address of each interface",
     "The WAN's, the VLANs', each LAN port's, each radio's and each of its VAPs'.",
     "tqctl mac show", show},
    {"ssid", "NUMBER", 1, 1, "prints the factory's SSID of that number", "NUMBER is from 0 to 999.",
     "tqctl mac ssid 1", ssid},
};
static_assert(is_complete(kCommands));

}  // namespace

constinit const Family kMac = {
    "mac", "own addresses, factory's SSIDs",
    "Every address of a unit follows from the base address of its board.", kCommands};

}  // namespace tqctl
