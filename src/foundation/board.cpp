#include "tq/board.h"

#include <strings.h>
#include <tq/oem.h>

#include <climits>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <iterator>

#include "foundation/board.h"
#include "foundation/guard.h"
#include "foundation/log.h"
#include "foundation/number_reader.h"
#include "foundation/text.h"
#include "tq/command.h"
#include "tq/netif.h"
#include "tq/uci_path.h"

namespace {

using tq::BoardAnswer;
using tq::kNameSize;
using tq::NumberReader;

constexpr size_t kProcDirSize = 64;

constexpr int kVapsPerRadio = 16;

constexpr int16_t kSpeedOfCode[] = {10, 100, 0, 1000};

// Units with one port, which is the WAN's although their board library counts it as a LAN port.
constexpr int kBoardsWithoutLan[] = {1062, 11062, 21062};

// As tq::ask_radio, of a port.
int ask_port(int (*ask)(int selector, int port, char* out), int selector, int port,
             BoardAnswer& answer) {
    memset(answer, 0, sizeof(answer));
    if (port < 0) return -1;
    const int result = ask(selector, port, answer);
    answer[sizeof(answer) - 1] = '\0';
    return result;
}

// A text of the radio's: whether zeros fill the caller's buffer behind it, the function that hands
// it out, and what log lines call it.
struct RadioText {
    uint8_t selector;
    bool is_padded;
    char function[sizeof("bbi_radio_prefix_ifname")];
    char what[sizeof("prefix ifname")];
};
constexpr RadioText kDevice = {AP_TYPE_RADIO_DEVICE, true, "bbi_radio_device", "device"};
constexpr RadioText kPrefix = {AP_TYPE_RADIO_PREFIX_IFNAME, true, "bbi_radio_prefix_ifname",
                               "prefix ifname"};
constexpr RadioText kProcDir = {AP_TYPE_RADIO_PROC_DIR, false, "bbi_radio_proc_dir", "proc dir"};

// In the log:
//   "get radio %d device fail\n", "get radio %d prefix ifname fail\n",
//   "get radio %d proc dir fail\n",
//   "radio %d device '%s'\n", "radio %d prefix ifname '%s'\n", "radio %d proc dir '%s'\n"
int read_radio_text(const RadioText& text, int radio, char* out, unsigned len) {
    if (!out || !tq::is_size(len)) return -1;
    *out = '\0';
    BoardAnswer answer;
    if (tq::ask_radio(text.selector, radio, answer) < 0) {
        return TQ_FAIL_IN(text.function, "get radio %d %s fail\n", radio, text.what);
    }
    if (text.is_padded) memset(out, 0, len);
    snprintf(out, len, "%s", answer);
    TQ_LOG_IN(text.function, LOG_DEBUG, "radio %d %s '%s'\n", radio, text.what, out);
    return 0;
}

// A text of the WAN's or of a LAN port: the function that hands it out, and what of the call to the
// board library is the text's own where a failure is logged.
struct PortText {
    uint8_t selector;
    char function[sizeof("get_wan_if_label")];
    char kind[sizeof("LABEL")];
    char argument[sizeof("ifname")];
};
constexpr PortText kWanName = {AP_TYPE_WAN_IF_NAME, "get_wan_if_name", "NAME", "ifname"};
constexpr PortText kWanLabel = {AP_TYPE_WAN_IF_LABEL, "get_wan_if_label", "LABEL", "name"};
constexpr PortText kWanPort = {AP_TYPE_WAN_IF_PORT, "get_wan_if_port", "PORT", "port"};
constexpr PortText kLanName = {AP_TYPE_LAN_IF_NAME, "get_lan_if_name", "NAME", "ifname"};
constexpr PortText kLanLabel = {AP_TYPE_LAN_IF_LABEL, "get_lan_if_label", "LABEL", "name"};
constexpr PortText kLanPort = {AP_TYPE_LAN_IF_PORT, "get_lan_if_port", "PORT", "port"};

// In the log, before " fail":
//   "tq_get_oem_ap_type_wan_info(AP_TYPE_WAN_IF_NAME, ifname)"
//   "tq_get_oem_ap_type_wan_info(AP_TYPE_WAN_IF_LABEL, name)"
//   "tq_get_oem_ap_type_wan_info(AP_TYPE_WAN_IF_PORT, port)"
int read_wan(const PortText& text, char* out) {
    if (!out) return tq::reject(text.function);
    *out = '\0';
    if (tq_get_oem_ap_type_wan_info(text.selector, out) >= 0) return 0;
    *out = '\0';  // what the board library may have begun
    return TQ_FAIL_IN(text.function, "tq_get_oem_ap_type_wan_info(AP_TYPE_WAN_IF_%s, %s) fail\n",
                      text.kind, text.argument);
}

//   "tq_get_oem_ap_type_lan_index_info(AP_TYPE_LAN_IF_NAME, index, ifname)"
//   "tq_get_oem_ap_type_lan_index_info(AP_TYPE_LAN_IF_LABEL, index, name)"
//   "tq_get_oem_ap_type_lan_index_info(AP_TYPE_LAN_IF_PORT, index, port)"
int read_lan(const PortText& text, int index, char* out) {
    if (!out) return tq::reject(text.function);
    *out = '\0';
    if (index >= 0 && tq_get_oem_ap_type_lan_index_info(text.selector, index, out) >= 0) return 0;
    *out = '\0';
    return TQ_FAIL_IN(text.function,
                      "tq_get_oem_ap_type_lan_index_info(AP_TYPE_LAN_IF_%s, index, %s) fail\n",
                      text.kind, text.argument);
}

// Sums of what the board library says, whatever it says.
int add(int a, int b) {
    return static_cast<int>(static_cast<unsigned>(a) + static_cast<unsigned>(b));
}

int number_across_radios(int radio, int vap) {
    return add(static_cast<int>(static_cast<unsigned>(radio) * kVapsPerRadio), vap);
}

// The BSS that many behind the supported ones. In the log:
//   "radio %d hide bss is %d\n", "radio %d reserved bss is %d\n"
int find_extra_bss(const char* function, int radio, int behind, int* id) {
    if (!id) return tq::reject(function);
    *id = add(bbi_radio_bss_support_ret(radio), behind);
    TQ_LOG_IN(function, LOG_DEBUG, "radio %d %s bss is %d\n", radio, behind ? "reserved" : "hide",
              *id);
    return 0;
}

// Where the text goes on behind the radio's prefix, or null.
const char* behind_prefix(const char* ifname, int radio) {
    BoardAnswer prefix;
    if (tq::ask_radio(AP_TYPE_RADIO_PREFIX_IFNAME, radio, prefix) != 0) return nullptr;
    const size_t length = strlen(prefix);
    return strncmp(ifname, prefix, length) == 0 ? ifname + length : nullptr;
}

// The interface that is the WAN's now.
int find_wan(const char* function, char (&ifname)[kNameSize]) {
    if (get_wan_name(ifname, sizeof(ifname)) == 0) return 0;
    return TQ_FAIL_IN(function, "get_wan_name(ifname, sizeof(ifname)) fail\n");
}

int read_mac(const char* function, const char* ifname, char* mac, int len) {
    if (get_if_mac(ifname, reinterpret_cast<uint8_t*>(mac), len) == 0) return 0;
    return TQ_FAIL_IN(function, "get_if_mac(ifname, (char *)mac, len) fail\n");
}

}  // namespace

int tq::ask_radio(int selector, int radio, BoardAnswer& answer) {
    memset(answer, 0, sizeof(answer));
    if (radio < 0) return -1;
    const int result = tq_get_oem_ap_type_radio_index_info(selector, radio, answer);
    answer[sizeof(answer) - 1] = '\0';
    return result;
}

int bbi_radio_count(int* count) {
    if (!count) return tq::reject(__func__);
    const int radios = tq_get_oem_ap_type_common(AP_TYPE_RADIO_NUM);
    if (radios < 0) return TQ_FAIL("get support radio count fail\n");
    TQ_LOG(LOG_DEBUG, "support %d radio\n", radios);
    *count = radios;
    return 0;
}

int bbi_radio_device(int radio, char* out, unsigned len) {
    return read_radio_text(kDevice, radio, out, len);
}

int bbi_radio_prefix_ifname(int radio, char* out, unsigned len) {
    return read_radio_text(kPrefix, radio, out, len);
}

int bbi_radio_support_mode(int radio, unsigned* mode) {
    if (!mode) return tq::reject(__func__);
    BoardAnswer mask;
    if (tq::ask_radio(AP_TYPE_RADIO_SUPPORT_MODE, radio, mask) < 0) {
        return TQ_FAIL("get radio %d support mode fail\n", radio);
    }
    *mode = static_cast<unsigned>(tq::leading_int(mask));
    TQ_LOG(LOG_DEBUG, "radio %d support mode %x\n", radio, *mode);
    return 0;
}

int bbi_radio_bss_support(int radio, int* count) {
    if (!count) return tq::reject(__func__);
    int bss = 0;
    if (radio < 0 || tq_get_oem_ap_type_radio_index_info(AP_TYPE_RADIO_BSS_NUM, radio, &bss) < 0) {
        return TQ_FAIL("get radio %d bss support fail\n", radio);
    }
    *count = bss;
    TQ_LOG(LOG_DEBUG, "radio %d support %d bss\n", radio, *count);
    return 0;
}

int bbi_radio_hidebss_id(int radio, int* id) {
    return find_extra_bss(__func__, radio, 0, id);
}

int bbi_radio_reservedbss_id(int radio, int* id) {
    return find_extra_bss(__func__, radio, 1, id);
}

int bbi_radio_proc_dir(int radio, char* out, unsigned len) {
    if (!out) return -1;
    if (static_cast<int>(len) < static_cast<int>(kNameSize)) {
        return TQ_FAIL("%s third parameter invalid\n", __func__);
    }
    return read_radio_text(kProcDir, radio, out, len);
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
    if (!out || len < 1) return tq::reject(__func__);
    *out = '\0';
    BoardAnswer prefix;
    if (tq::ask_radio(AP_TYPE_RADIO_PREFIX_IFNAME, radio, prefix) == -1) return -1;
    const bool per_radio = mode == 0 || mode == 2;
    const int number = per_radio ? vap : number_across_radios(radio, vap);
    snprintf(out, static_cast<size_t>(len), "%s%d", prefix, number);
    return 0;
}

int get_vap_name(int radio, int vap, char* out, int len) {
    const int mode = tq_get_oem_ap_type_common(AP_TYPE_VAP_NAME_MODE);
    return tq_get_vap_ifname(0, mode, radio, vap, out, len);
}

int tq_get_wifi_id(int /*ignored*/, const char* ifname, int* radio, int* vap) {
    if (!ifname || !radio || !vap) return tq::reject(__func__);
    const int radios = tq_get_oem_ap_type_common(AP_TYPE_RADIO_NUM);
    const bool per_radio = tq_get_oem_ap_type_common(AP_TYPE_VAP_NAME_MODE) == 0;
    for (int i = 0; i < radios; i++) {
        const char* rest = behind_prefix(ifname, i);
        if (!rest || (per_radio && !NumberReader::is_digit(*rest))) continue;
        const char* digits = per_radio ? rest : ifname + strcspn(ifname, "0123456789");
        uint32_t number = 0;
        if (!NumberReader(digits).number_up_to(INT_MAX, number)) return -1;
        *radio = per_radio ? i : static_cast<int>(number / kVapsPerRadio);
        *vap = static_cast<int>(per_radio ? number : number % kVapsPerRadio);
        return 0;
    }
    return -1;
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
    BoardAnswer ability;
    if (ask_port(tq_get_oem_ap_type_ge_index_info, AP_TYPE_ETH_SPEED_ABILITY, port, ability) < 0) {
        return 0;
    }
    const long code = strtol(ability, nullptr, 10);
    if (code < 1 || code > static_cast<long>(std::size(kSpeedOfCode))) return 0;
    return kSpeedOfCode[code - 1];
}

char* tq::eth_ifname(int port, char (&ifname)[kNameSize]) {
    if (port < 0) return nullptr;
    auto* ask = tq_get_oem_ap_type_ge_index_info;
    const int gigabit_ports = tq_get_oem_ap_type_common(AP_TYPE_GE_PORT_NUM);
    if (port >= gigabit_ports) {
        ask = tq_get_oem_ap_type_fe_index_info;
        // Behind a negative count this may wrap around, to what is no port.
        port = static_cast<int>(static_cast<unsigned>(port) - static_cast<unsigned>(gigabit_ports));
        if (port >= tq_get_oem_ap_type_common(AP_TYPE_FE_PORT_NUM)) return nullptr;
    }
    BoardAnswer name;
    if (ask_port(ask, AP_TYPE_ETH_IF_NAME, port, name) < 0) return nullptr;
    copy_text(ifname, sizeof(ifname), name);
    return ifname;
}

char* tq_get_eth_ifname(int port) {
    static char ifname[kNameSize];
    return tq::eth_ifname(port, ifname);
}

int get_wan_if_name(char* ifname) {
    return read_wan(kWanName, ifname);
}

int get_wan_if_label(char* name) {
    return read_wan(kWanLabel, name);
}

int get_wan_if_port(char* port) {
    return read_wan(kWanPort, port);
}

int get_lan_if_name(int index, char* ifname) {
    return read_lan(kLanName, index, ifname);
}

int get_lan_if_label(int index, char* name) {
    return read_lan(kLanLabel, index, name);
}

int get_lan_if_port(int index, char* port) {
    return read_lan(kLanPort, index, port);
}

int get_wan_name(char* buf, int len) {
    if (!buf || len <= 0) return tq::reject(__func__);
    if (run_cmd("get_wan_interface.sh", buf, len) == 0) return 0;
    return TQ_FAIL("run_cmd(GET_WAN_INTERFACE, buf, len) fail\n");
}

int get_wan_if_addr(unsigned* addr) {
    if (!addr) return tq::reject(__func__);
    char ifname[kNameSize];
    if (find_wan(__func__, ifname) != 0) return -1;
    if (get_if_addr(ifname, addr) == 0) return 0;
    return TQ_FAIL("get_if_addr(ifname, addr) fail\n");
}

int get_wan_if_mac(char* mac, int len) {
    if (!mac || len <= 0) return tq::reject(__func__);
    char ifname[kNameSize];
    return find_wan(__func__, ifname) == 0 ? read_mac(__func__, ifname, mac, len) : -1;
}

int get_lan_if_mac(const char* ifname, char* mac, int len) {
    if (!ifname || !mac || len <= 0) return tq::reject(__func__);
    return read_mac(__func__, ifname, mac, len);
}

int get_lan_addr(int /*ignored*/, unsigned* addr) {
    if (!addr) return tq::reject(__func__);
    if (get_if_addr("br-lan", addr) == 0) return 0;
    return TQ_FAIL("get_if_addr(BR_LAN, addr) fail\n");
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
    if (!ifname || !vlan) return tq::reject(__func__);
    const char* found = strstr(ifname, "vlan");
    if (!found) return -1;
    const char* number = found + strlen("vlan");
    if (!*number) return -1;
    *vlan = tq::leading_int(number);
    return 0;
}

int get_br_vlan_name(int vlan, char* buf, int len) {
    if (!buf || len < 1) return tq::reject(__func__);
    snprintf(buf, static_cast<size_t>(len), "br-vlan%d", vlan);
    return 0;
}

int get_vlan_cfg_name(int vlan, char* buf, int len) {
    if (!buf || len < 1) return tq::reject(__func__);
    snprintf(buf, static_cast<size_t>(len), "vlan%d", vlan);
    return 0;
}
