#include "tq/board.h"

#include <strings.h>
#include <tq/oem.h>

#include <climits>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <iterator>

#include "foundation/log.h"
#include "foundation/text.h"
#include "tq/command.h"
#include "tq/netif.h"
#include "tq/uci_path.h"

namespace {

constexpr size_t kNameSize = 32;
constexpr size_t kProcDirSize = 64;
constexpr size_t kAnswerSize = 64;

constexpr int kVapsPerRadio = 16;

constexpr const char* kGetWanInterface = "get_wan_interface.sh";
constexpr const char* kBrLan = "br-lan";

constexpr int16_t kSpeedOfCode[] = {10, 100, 0, 1000};

// Units with one port, which is the WAN's although their board library counts it as a LAN port.
constexpr int kBoardsWithoutLan[] = {1062, 11062, 21062};

// A text of the board library's: more room than any selector needs, terminated whatever came.
class Answer {
  public:
    template <typename Ask>
    explicit Answer(Ask ask) : result_(ask(text_)) {
        text_[kAnswerSize - 1] = '\0';
    }

    [[nodiscard]] int result() const { return result_; }
    [[nodiscard]] const char* c_str() const { return text_; }

  private:
    char text_[kAnswerSize] = "";
    int result_;
};

Answer ask_radio(int selector, int radio) {
    return Answer([=](char* out) {
        return radio < 0 ? -1 : tq_get_oem_ap_type_radio_index_info(selector, radio, out);
    });
}

Answer ask_gigabit_port(int selector, int port) {
    return Answer([=](char* out) {
        return port < 0 ? -1 : tq_get_oem_ap_type_ge_index_info(selector, port, out);
    });
}

// A text of the WAN's or of a LAN port, into a buffer of the caller's; `call` is how a failure is
// logged.
int read_wan(tq::LogSite site, int selector, char* out, const char* call) {
    if (!out) return TQ_FAIL_AS(site, "invalid parameters\n");
    *out = '\0';
    if (tq_get_oem_ap_type_wan_info(selector, out) >= 0) return 0;
    return TQ_FAIL_AS(site, "%s fail\n", call);
}

int read_lan(tq::LogSite site, int selector, int index, char* out, const char* call) {
    if (!out) return TQ_FAIL_AS(site, "invalid parameters\n");
    *out = '\0';
    if (index >= 0 && tq_get_oem_ap_type_lan_index_info(selector, index, out) >= 0) return 0;
    return TQ_FAIL_AS(site, "%s fail\n", call);
}

bool is_text_size(unsigned len) {
    return static_cast<int>(len) > 0;
}

// Sums of what the board library says, whatever it says.
int add(int a, int b) {
    return static_cast<int>(static_cast<unsigned>(a) + static_cast<unsigned>(b));
}

int number_across_radios(int radio, int vap) {
    return add(static_cast<int>(static_cast<unsigned>(radio) * kVapsPerRadio), vap);
}

// Where the text goes on behind the radio's prefix, or null.
const char* behind_prefix(const char* ifname, int radio) {
    const Answer prefix = ask_radio(AP_TYPE_RADIO_PREFIX_IFNAME, radio);
    const size_t length = strlen(prefix.c_str());
    if (prefix.result() != 0 || strncmp(ifname, prefix.c_str(), length) != 0) return nullptr;
    return ifname + length;
}

bool is_digit(char c) {
    return c >= '0' && c <= '9';
}

// The number that the digits at the front of text make, or -1.
int parse_digits(const char* text) {
    if (!is_digit(*text)) return -1;
    const long long number = strtoll(text, nullptr, 10);
    return number > INT_MAX ? -1 : static_cast<int>(number);
}

int find_id_across_radios(const char* ifname, int radios, int* radio, int* vap) {
    for (int i = 0; i < radios; i++) {
        if (!behind_prefix(ifname, i)) continue;
        const int number = parse_digits(ifname + strcspn(ifname, "0123456789"));
        if (number == -1) return -1;
        *radio = number / kVapsPerRadio;
        *vap = number % kVapsPerRadio;
        return 0;
    }
    return -1;
}

int find_id_per_radio(const char* ifname, int radios, int* radio, int* vap) {
    for (int i = 0; i < radios; i++) {
        const char* rest = behind_prefix(ifname, i);
        if (!rest || !is_digit(*rest)) continue;
        const int number = parse_digits(rest);
        if (number == -1) return -1;
        *radio = i;
        *vap = number;
        return 0;
    }
    return -1;
}

char* copy_port_name(const Answer& name) {
    static char ifname[kNameSize];
    if (name.result() < 0) return nullptr;
    tq::copy_text(ifname, sizeof(ifname), name.c_str());
    return ifname;
}

int read_mac(tq::LogSite site, const char* ifname, char* mac, int len) {
    if (get_if_mac(ifname, reinterpret_cast<uint8_t*>(mac), len) == 0) return 0;
    return TQ_FAIL_AS(site, "%s fail\n", "get_if_mac(ifname, (char *)mac, len)");
}

int write_vlan_name(const char* prefix, int vlan, char* buf, int len) {
    snprintf(buf, static_cast<size_t>(len), "%svlan%d", prefix, vlan);
    return 0;
}

}  // namespace

int bbi_radio_count(int* count) {
    if (!count) return TQ_FAIL("invalid parameters\n");
    const int radios = tq_get_oem_ap_type_common(AP_TYPE_RADIO_NUM);
    if (radios < 0) return TQ_FAIL("get support radio count fail\n");
    TQ_LOG(LOG_DEBUG, "support %d radio\n", radios);
    *count = radios;
    return 0;
}

int bbi_radio_device(int radio, char* out, unsigned len) {
    if (!out || !is_text_size(len)) return -1;
    *out = '\0';
    const Answer device = ask_radio(AP_TYPE_RADIO_DEVICE, radio);
    if (device.result() < 0) return TQ_FAIL("get radio %d device fail\n", radio);
    tq::copy_text(out, len, device.c_str());
    TQ_LOG(LOG_DEBUG, "radio %d device '%s'\n", radio, out);
    return 0;
}

int bbi_radio_prefix_ifname(int radio, char* out, unsigned len) {
    if (!out || !is_text_size(len)) return -1;
    *out = '\0';
    const Answer prefix = ask_radio(AP_TYPE_RADIO_PREFIX_IFNAME, radio);
    if (prefix.result() < 0) return TQ_FAIL("get radio %d prefix ifname fail\n", radio);
    tq::copy_text(out, len, prefix.c_str());
    TQ_LOG(LOG_DEBUG, "radio %d prefix ifname '%s'\n", radio, out);
    return 0;
}

int bbi_radio_support_mode(int radio, unsigned* mode) {
    if (!mode) return TQ_FAIL("invalid parameters\n");
    const Answer mask = ask_radio(AP_TYPE_RADIO_SUPPORT_MODE, radio);
    if (mask.result() < 0) return TQ_FAIL("get radio %d support mode fail\n", radio);
    *mode = static_cast<unsigned>(tq::leading_int(mask.c_str()).value_or(0));
    TQ_LOG(LOG_DEBUG, "radio %d support mode %x\n", radio, *mode);
    return 0;
}

int bbi_radio_bss_support(int radio, int* count) {
    if (!count) return TQ_FAIL("invalid parameters\n");
    int bss = 0;
    if (radio < 0 || tq_get_oem_ap_type_radio_index_info(AP_TYPE_RADIO_BSS_NUM, radio, &bss) < 0) {
        return TQ_FAIL("get radio %d bss support fail\n", radio);
    }
    TQ_LOG(LOG_DEBUG, "radio %d support %d bss\n", radio, bss);
    *count = bss;
    return 0;
}

int bbi_radio_hidebss_id(int radio, int* id) {
    if (!id) return TQ_FAIL("invalid parameters\n");
    *id = bbi_radio_bss_support_ret(radio);
    TQ_LOG(LOG_DEBUG, "radio %d hide bss is %d\n", radio, *id);
    return 0;
}

int bbi_radio_reservedbss_id(int radio, int* id) {
    if (!id) return TQ_FAIL("invalid parameters\n");
    *id = add(bbi_radio_bss_support_ret(radio), 1);
    TQ_LOG(LOG_DEBUG, "radio %d reserved bss is %d\n", radio, *id);
    return 0;
}

int bbi_radio_proc_dir(int radio, char* out, unsigned len) {
    if (!out) return -1;
    if (static_cast<int>(len) < static_cast<int>(kNameSize)) {
        return TQ_FAIL("%s third parameter invalid\n", __func__);
    }
    *out = '\0';
    const Answer directory = ask_radio(AP_TYPE_RADIO_PROC_DIR, radio);
    if (directory.result() < 0) return TQ_FAIL("get radio %d proc dir fail\n", radio);
    snprintf(out, len, "%s", directory.c_str());
    TQ_LOG(LOG_DEBUG, "radio %d proc dir '%s'\n", radio, out);
    return 0;
}

int bbi_radio_count_ret(void) {
    int count = 0;
    bbi_radio_count(&count);
    return count;
}

char* bbi_radio_device_ret(int radio) {
    static char device[kNameSize];
    memset(device, 0, sizeof(device));
    bbi_radio_device(radio, device, sizeof(device));
    return device;
}

char* bbi_radio_prefix_ifname_ret(int radio) {
    static char prefix[kNameSize];
    memset(prefix, 0, sizeof(prefix));
    bbi_radio_prefix_ifname(radio, prefix, sizeof(prefix));
    return prefix;
}

unsigned bbi_radio_support_mode_ret(int radio) {
    unsigned mode = 0;
    bbi_radio_support_mode(radio, &mode);
    return mode;
}

int bbi_radio_bss_support_ret(int radio) {
    int count = 0;
    bbi_radio_bss_support(radio, &count);
    return count;
}

int bbi_radio_hidebss_id_ret(int radio) {
    return bbi_radio_bss_support_ret(radio);
}

int bbi_radio_reservedbss_id_ret(int radio) {
    return add(bbi_radio_bss_support_ret(radio), 1);
}

char* bbi_radio_proc_dir_ret(int radio) {
    static char directory[kProcDirSize];
    memset(directory, 0, sizeof(directory));
    bbi_radio_proc_dir(radio, directory, sizeof(directory));
    return directory;
}

int tq_get_vap_ifname(int /*ignored*/, int mode, int radio, int vap, char* out, int len) {
    if (!out || len < 1) return TQ_FAIL("invalid parameters\n");
    *out = '\0';
    const Answer prefix = ask_radio(AP_TYPE_RADIO_PREFIX_IFNAME, radio);
    if (prefix.result() == -1) return -1;
    const bool per_radio = mode == 0 || mode == 2;
    const int number = per_radio ? vap : number_across_radios(radio, vap);
    snprintf(out, static_cast<size_t>(len), "%s%d", prefix.c_str(), number);
    return 0;
}

int get_vap_name(int radio, int vap, char* out, int len) {
    const int mode = tq_get_oem_ap_type_common(AP_TYPE_VAP_NAME_MODE);
    return tq_get_vap_ifname(0, mode, radio, vap, out, len);
}

int tq_get_wifi_id(int /*ignored*/, const char* ifname, int* radio, int* vap) {
    if (!ifname || !radio || !vap) return TQ_FAIL("invalid parameters\n");
    const int radios = tq_get_oem_ap_type_common(AP_TYPE_RADIO_NUM);
    const int mode = tq_get_oem_ap_type_common(AP_TYPE_VAP_NAME_MODE);
    return mode == 0 ? find_id_per_radio(ifname, radios, radio, vap)
                     : find_id_across_radios(ifname, radios, radio, vap);
}

int get_wifi_id(int* radio, int* vap, const char* ifname) {
    return tq_get_wifi_id(0, ifname, radio, vap);
}

int tq_find_radio_device(const char* ifname) {
    if (tq_get_oem_ap_type_radio_ifname_index(AP_TYPE_RADIO_DEVICE_PRESENT, ifname) >= 0) return 1;
    puts("Can't find the radio device");
    return 0;
}

int tq_get_dev_if_count(void) {
    return add(tq_get_oem_ap_type_common(AP_TYPE_GE_PORT_NUM),
               tq_get_oem_ap_type_common(AP_TYPE_FE_PORT_NUM));
}

int tq_get_dev_all_count(void) {
    return add(tq_get_dev_if_count(), tq_get_oem_ap_type_common(AP_TYPE_RADIO_NUM));
}

int tq_get_dev_lan_count(void) {
    const int id = tq_get_oem_ap_type_common(AP_TYPE_BOARD_ID);
    for (const int without_lan : kBoardsWithoutLan) {
        if (id == without_lan) return 0;
    }
    return tq_get_oem_ap_type_common(AP_TYPE_LAN_PORT_NUM);
}

int tq_get_eth_linktype(int port) {
    const int gigabit_ports = tq_get_oem_ap_type_common(AP_TYPE_GE_PORT_NUM);
    return gigabit_ports >= 1 && port < gigabit_ports ? 1000 : 100;
}

int tq_get_eth_ability_of_speed(int port) {
    const Answer ability = ask_gigabit_port(AP_TYPE_ETH_SPEED_ABILITY, port);
    if (ability.result() < 0) return 0;
    const long code = strtol(ability.c_str(), nullptr, 10);
    if (code < 1 || code > static_cast<long>(std::size(kSpeedOfCode))) return 0;
    return kSpeedOfCode[code - 1];
}

char* tq_get_eth_ifname(int port) {
    if (port < 0) return nullptr;
    const int gigabit_ports = tq_get_oem_ap_type_common(AP_TYPE_GE_PORT_NUM);
    if (port < gigabit_ports) return copy_port_name(ask_gigabit_port(AP_TYPE_ETH_IF_NAME, port));
    const int fast_ports = tq_get_oem_ap_type_common(AP_TYPE_FE_PORT_NUM);
    const long long fast_port = static_cast<long long>(port) - gigabit_ports;
    if (fast_port >= fast_ports) return nullptr;
    return copy_port_name(Answer([=](char* out) {
        return tq_get_oem_ap_type_fe_index_info(AP_TYPE_ETH_IF_NAME, static_cast<int>(fast_port),
                                                out);
    }));
}

int get_wan_if_name(char* ifname) {
    return read_wan(TQ_HERE, AP_TYPE_WAN_IF_NAME, ifname,
                    "tq_get_oem_ap_type_wan_info(AP_TYPE_WAN_IF_NAME, ifname)");
}

int get_wan_if_label(char* name) {
    return read_wan(TQ_HERE, AP_TYPE_WAN_IF_LABEL, name,
                    "tq_get_oem_ap_type_wan_info(AP_TYPE_WAN_IF_LABEL, name)");
}

int get_wan_if_port(char* port) {
    return read_wan(TQ_HERE, AP_TYPE_WAN_IF_PORT, port,
                    "tq_get_oem_ap_type_wan_info(AP_TYPE_WAN_IF_PORT, port)");
}

int get_lan_if_name(int index, char* ifname) {
    return read_lan(TQ_HERE, AP_TYPE_LAN_IF_NAME, index, ifname,
                    "tq_get_oem_ap_type_lan_index_info(AP_TYPE_LAN_IF_NAME, index, ifname)");
}

int get_lan_if_label(int index, char* name) {
    return read_lan(TQ_HERE, AP_TYPE_LAN_IF_LABEL, index, name,
                    "tq_get_oem_ap_type_lan_index_info(AP_TYPE_LAN_IF_LABEL, index, name)");
}

int get_lan_if_port(int index, char* port) {
    return read_lan(TQ_HERE, AP_TYPE_LAN_IF_PORT, index, port,
                    "tq_get_oem_ap_type_lan_index_info(AP_TYPE_LAN_IF_PORT, index, port)");
}

int get_wan_name(char* buf, int len) {
    if (!buf || len <= 0) return TQ_FAIL("invalid parameters\n");
    if (run_cmd(kGetWanInterface, buf, len) != 0) {
        return TQ_FAIL("%s fail\n", "run_cmd(GET_WAN_INTERFACE, buf, len)");
    }
    return 0;
}

int get_wan_if_addr(unsigned* addr) {
    if (!addr) return TQ_FAIL("invalid parameters\n");
    char ifname[kNameSize] = "";
    if (get_wan_name(ifname, sizeof(ifname)) != 0) {
        return TQ_FAIL("%s fail\n", "get_wan_name(ifname, sizeof(ifname))");
    }
    if (get_if_addr(ifname, addr) != 0) return TQ_FAIL("%s fail\n", "get_if_addr(ifname, addr)");
    return 0;
}

int get_wan_if_mac(char* mac, int len) {
    if (!mac || len <= 0) return TQ_FAIL("invalid parameters\n");
    char ifname[kNameSize] = "";
    if (get_wan_name(ifname, sizeof(ifname)) != 0) {
        return TQ_FAIL("%s fail\n", "get_wan_name(ifname, sizeof(ifname))");
    }
    return read_mac(TQ_HERE, ifname, mac, len);
}

int get_lan_if_mac(const char* ifname, char* mac, int len) {
    if (!ifname || !mac || len <= 0) return TQ_FAIL("invalid parameters\n");
    return read_mac(TQ_HERE, ifname, mac, len);
}

int get_lan_addr(int /*ignored*/, unsigned* addr) {
    if (!addr) return TQ_FAIL("invalid parameters\n");
    if (get_if_addr(kBrLan, addr) != 0) return TQ_FAIL("%s fail\n", "get_if_addr(BR_LAN, addr)");
    return 0;
}

int tq_get_apmode(void) {
    char mode[32];
    if (uci_get_str_option_by_id("wtp", "capwap", 0, "mode", mode, sizeof(mode)) != 0) return 1;
    return strcasecmp(mode, "fat") == 0 ? 0 : 1;
}

int get_forward_mode(void) {
    char mode[64];
    if (uci_get_str_option_by_id("forward", "forward", 0, "mode", mode, sizeof(mode)) != 0) {
        return 0;
    }
    if (strcmp(mode, "bridge") == 0) return 0;
    return strcmp(mode, "route") == 0 ? 1 : 2;
}

int get_ap_modelname(char* buf, int len) {
    return uci_get_str_option_by_id("board", "board", 0, "model", buf, len);
}

int get_br_vlan_id(const char* ifname, int* vlan) {
    if (!ifname || !vlan) return TQ_FAIL("invalid parameters\n");
    const char* found = strstr(ifname, "vlan");
    if (!found) return -1;
    const char* number = found + strlen("vlan");
    if (!*number) return -1;
    *vlan = tq::leading_int(number).value_or(0);
    return 0;
}

int get_br_vlan_name(int vlan, char* buf, int len) {
    if (!buf || len < 1) return TQ_FAIL("invalid parameters\n");
    return write_vlan_name("br-", vlan, buf, len);
}

int get_vlan_cfg_name(int vlan, char* buf, int len) {
    if (!buf || len < 1) return TQ_FAIL("invalid parameters\n");
    return write_vlan_name("", vlan, buf, len);
}
