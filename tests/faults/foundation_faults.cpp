// foundation_faults.cpp - commands and text files, the board, lists, the small utilities.
#include <fcntl.h>
#include <sys/stat.h>
#include <tq/board.h>
#include <tq/command.h>
#include <tq/list.h>
#include <tq/netif.h>
#include <tq/util.h>
#include <unistd.h>

#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <filesystem>

#include "faults/sweep.h"
#include "support/device.h"

namespace tq_test::sweep {
namespace {

constexpr char kLines[] = "/tmp/lines";
constexpr int kPreset = -5;

char text[64];
int value;
FILE* file;

void preset() {
    memset(text, 0, sizeof(text));
    value = kPreset;
}

std::string text_after(intptr_t result) {
    return with_text(result, text);
}

std::string value_after(intptr_t result) {
    return with_number(result, value);
}

// A result that is a text of the caller's or the library's.
std::string as_text(intptr_t result) {
    return result ? reinterpret_cast<const char*>(result) : "null";
}

intptr_t address(const void* pointer) {
    return reinterpret_cast<intptr_t>(pointer);
}

std::function<void()> lines(const char* content) {
    return [content] {
        preset();
        write_file(kLines, content);
        file = fopen(kLines, "re");
    };
}

void close_lines(intptr_t /*result*/) {
    fclose(file);
}

void add_command(std::vector<Row>& rows) {
    rows.push_back({.function = "my_system",
                    .call = [] { return my_system("true"); },
                    .gives = "0",
                    .fails = "0"});
    rows.push_back({.function = "run_cmd",
                    .prepare = preset,
                    .call = [] { return run_cmd("echo ready", text, sizeof(text)); },
                    .outcome = text_after,
                    .gives = "0 ready",
                    .fails = "-1 "});
    rows.push_back({.function = "get_key_vlaue",
                    .prepare = preset,
                    .call = [] { return get_key_vlaue("printf 'a=1\\nkey=7\\n'", "key", &value); },
                    .outcome = value_after,
                    .gives = "0 7",
                    .fails = "-1 -5"});
    rows.push_back({.function = "read_line",
                    .prepare =
                        [] {
                            preset();
                            write_file(kLines, "first\nkey=7\n");
                        },
                    .call = [] { return read_line(kLines, "key", text, sizeof(text)); },
                    .outcome = text_after,
                    .gives = "0 key=7\n",
                    .fails = "-1 "});
    // A stream that fails has come to its end.
    rows.push_back({.function = "tq_hal_file_gets",
                    .prepare = lines("ab\n"),
                    .call = [] { return address(tq_hal_file_gets(text, 32, file)); },
                    .outcome = as_text,
                    .undo = close_lines,
                    .gives = "ab\n",
                    .fails = "null",
                    .but = {{"fgetc#2", "a", "b\n"}, {"fgetc#3", "ab", "\n"}}});
    rows.push_back(
        {.function = "tq_hal_get_file_line",
         .prepare = lines("ab\n"),
         .call = [] { return address(tq_hal_get_file_line(file)); },
         .outcome = as_text,
         .undo =
             [](intptr_t result) {
                 free(reinterpret_cast<void*>(result));
                 fclose(file);
             },
         .gives = "ab",
         .fails = "null",
         .but = {{"fgetc#2", "", kSpent}, {"fgetc#3", "a", kSpent}, {"strdup", "null", "null"}}});
    rows.push_back({.function = "nucleus_fgets",
                    .prepare = lines("first\nkey=7\nkey=8\n"),
                    .call = [] { return nucleus_fgets(text, sizeof(text), file, "key"); },
                    .undo = close_lines});
}

// A fact of the board by the functions that log a failure, and by those for expressions.
Row fact(std::string function, std::function<intptr_t()> call,
         std::function<std::string(intptr_t)> outcome, std::string gives, std::string fails) {
    return {.function = std::move(function),
            .prepare = preset,
            .call = std::move(call),
            .outcome = std::move(outcome),
            .gives = std::move(gives),
            .fails = std::move(fails)};
}

// The same where one question to the board is answered with -1, and the answer goes on as any
// other number.
Row sum(std::string function, std::function<intptr_t()> call, std::string gives,
        const std::vector<std::string>& without_nth) {
    Row row = fact(std::move(function), std::move(call), number, std::move(gives), "");
    for (size_t i = 0; i < without_nth.size(); i++) {
        for (const char* name : {"open#", "read#"})
            row.but.push_back({name + std::to_string(i + 1), without_nth[i]});
    }
    return row;
}

void add_radios(std::vector<Row>& rows) {
    rows.push_back(fact(
        "bbi_radio_count", [] { return bbi_radio_count(&value); }, value_after, "0 2", "-1 -5"));
    rows.push_back(fact(
        "bbi_radio_device", [] { return bbi_radio_device(0, text, 32); }, text_after, "0 wifi0",
        "-1 "));
    rows.push_back(fact(
        "bbi_radio_prefix_ifname", [] { return bbi_radio_prefix_ifname(0, text, 32); }, text_after,
        "0 ath", "-1 "));
    rows.push_back(fact(
        "bbi_radio_support_mode",
        [] { return bbi_radio_support_mode(0, reinterpret_cast<unsigned*>(&value)); }, value_after,
        "0 15", "-1 -5"));
    rows.push_back(fact(
        "bbi_radio_bss_support", [] { return bbi_radio_bss_support(0, &value); }, value_after,
        "0 8", "-1 -5"));
    rows.push_back(fact(
        "bbi_radio_hidebss_id", [] { return bbi_radio_hidebss_id(0, &value); }, value_after, "0 8",
        "0 0"));
    rows.push_back(fact(
        "bbi_radio_reservedbss_id", [] { return bbi_radio_reservedbss_id(0, &value); }, value_after,
        "0 9", "0 1"));
    rows.push_back(fact(
        "bbi_radio_proc_dir", [] { return bbi_radio_proc_dir(0, text, 32); }, text_after,
        "0 /proc/wifi0", "-1 "));
    rows.push_back(fact(
        "bbi_radio_count_ret", [] { return bbi_radio_count_ret(); }, number, "2", "0"));
    rows.push_back(fact(
        "bbi_radio_device_ret", [] { return address(bbi_radio_device_ret(0)); }, as_text, "wifi0",
        ""));
    rows.push_back(fact(
        "bbi_radio_prefix_ifname_ret", [] { return address(bbi_radio_prefix_ifname_ret(0)); },
        as_text, "ath", ""));
    rows.push_back(fact(
        "bbi_radio_support_mode_ret",
        [] { return static_cast<intptr_t>(bbi_radio_support_mode_ret(0)); }, number, "15", "0"));
    rows.push_back(fact(
        "bbi_radio_bss_support_ret", [] { return bbi_radio_bss_support_ret(0); }, number, "8",
        "0"));
    rows.push_back(fact(
        "bbi_radio_hidebss_id_ret", [] { return bbi_radio_hidebss_id_ret(0); }, number, "8", "0"));
    rows.push_back(fact(
        "bbi_radio_reservedbss_id_ret", [] { return bbi_radio_reservedbss_id_ret(0); }, number, "9",
        "1"));
    rows.push_back(fact(
        "bbi_radio_proc_dir_ret", [] { return address(bbi_radio_proc_dir_ret(0)); }, as_text,
        "/proc/wifi0", ""));
}

// Radio and VAP of an interface.
int radio;
int vap;

std::string id_after(intptr_t result) {
    return number(result) + " " + std::to_string(radio) + " " + std::to_string(vap);
}

Row wifi_id(std::string function, std::function<intptr_t()> call) {
    return {
        .function = std::move(function),
        .prepare = [] { radio = vap = kPreset; },
        .call = std::move(call),
        .outcome = id_after,
        .gives = "0 1 3",
        .fails = "-1 -5 -5",
        // Without the naming mode the names count across radios; without the first radio's
        // prefix the second is found all the same.
        .but = {
            {"open#2", "0 0 3"}, {"read#2", "0 0 3"}, {"open#3", "0 1 3"}, {"read#3", "0 1 3"}}};
}

void add_interfaces(std::vector<Row>& rows) {
    rows.push_back(fact(
        "tq_get_vap_ifname", [] { return tq_get_vap_ifname(0, 0, 1, 3, text, 32); }, text_after,
        "0 wlan3", "-1 "));
    Row name = fact(
        "get_vap_name", [] { return get_vap_name(1, 3, text, 32); }, text_after, "0 wlan3", "-1 ");
    name.but = {{"open#1", "0 wlan19"}, {"read#1", "0 wlan19"}};
    rows.push_back(name);
    rows.push_back(
        wifi_id("tq_get_wifi_id", [] { return tq_get_wifi_id(0, "wlan3", &radio, &vap); }));
    rows.push_back(wifi_id("get_wifi_id", [] { return get_wifi_id(&radio, &vap, "wlan3"); }));
    rows.push_back(fact(
        "tq_find_radio_device", [] { return tq_find_radio_device("wifi1"); }, number, "1", "0"));
    rows.push_back(fact(
        "tq_find_radio_device", [] { return tq_find_radio_device("wifi9"); }, number, "0", "0"));
    rows.back().how = "not there";
}

void add_ports(std::vector<Row>& rows) {
    rows.push_back(
        sum("tq_get_dev_if_count", [] { return tq_get_dev_if_count(); }, "2", {"0", "0"}));
    rows.push_back(sum("tq_get_dev_all_count", [] { return tq_get_dev_all_count(); }, "4",
                       {"1|2", "1|2", "1|2"}));
    rows.push_back(
        sum("tq_get_dev_lan_count", [] { return tq_get_dev_lan_count(); }, "1", {"1", "-1"}));
    rows.push_back(fact(
        "tq_get_eth_linktype", [] { return tq_get_eth_linktype(0); }, number, "1000", "100"));
    rows.push_back(fact(
        "tq_get_eth_ability_of_speed", [] { return tq_get_eth_ability_of_speed(0); }, number,
        "1000", "0"));
    rows.push_back(fact(
        "tq_get_eth_ifname", [] { return address(tq_get_eth_ifname(1)); }, as_text, "eth1",
        "null"));
}

// The board's network as its own scripts set it up.
void set_up_network() {
    preset();
    static const int done = [] {
        return run_command(
                   "ip address replace 192.0.2.9/24 dev eth1;"
                   "ip link add br-lan type bridge || ip link add br-lan type dummy ||"
                   "ip link add br-lan type veth peer name lan-cable;"
                   "ip address replace 192.168.1.1/24 dev br-lan")
            .status;
    }();
    ASSERT_EQ(done, 0);
}

std::string address_after(intptr_t result) {
    char dotted[32];
    const auto* bytes = reinterpret_cast<const uint8_t*>(&value);
    snprintf(dotted, sizeof(dotted), "%d.%d.%d.%d", bytes[0], bytes[1], bytes[2], bytes[3]);
    return with_text(result, value == kPreset ? "" : dotted);
}

std::string mac_after(intptr_t result) {
    char hex[32];
    snprintf(hex, sizeof(hex), "%02x:%02x", text[0], text[1]);
    return with_text(result, hex);
}

void add_wan_and_lan(std::vector<Row>& rows) {
    rows.push_back(fact(
        "get_wan_if_name", [] { return get_wan_if_name(text); }, text_after, "0 eth1", "-1 "));
    rows.push_back(fact(
        "get_wan_if_label", [] { return get_wan_if_label(text); }, text_after, "0 WAN", "-1 "));
    rows.push_back(fact(
        "get_wan_if_port", [] { return get_wan_if_port(text); }, text_after, "0 1", "-1 "));
    rows.push_back(fact(
        "get_lan_if_name", [] { return get_lan_if_name(0, text); }, text_after, "0 eth0", "-1 "));
    rows.push_back(fact(
        "get_lan_if_label", [] { return get_lan_if_label(0, text); }, text_after, "0 LAN", "-1 "));
    rows.push_back(fact(
        "get_lan_if_port", [] { return get_lan_if_port(0, text); }, text_after, "0 0", "-1 "));
    rows.push_back(fact(
        "get_wan_name", [] { return get_wan_name(text, sizeof(text)); }, text_after, "0 eth1",
        "-1 "));
    rows.push_back(fact(
        "get_wan_if_addr", [] { return get_wan_if_addr(reinterpret_cast<unsigned*>(&value)); },
        address_after, "0 192.0.2.9", "-1 "));
    rows.push_back(fact(
        "get_wan_if_mac", [] { return get_wan_if_mac(text, 6); }, mac_after, "0 02:00",
        "-1 00:00"));
    rows.push_back(fact(
        "get_lan_if_mac", [] { return get_lan_if_mac("eth0", text, 6); }, mac_after, "0 02:00",
        "-1 00:00"));
    rows.push_back(fact(
        "get_lan_addr", [] { return get_lan_addr(0, reinterpret_cast<unsigned*>(&value)); },
        address_after, "0 192.168.1.1", "-1 "));
    for (Row& row : rows) {
        if (row.function == "get_wan_if_addr" || row.function == "get_lan_addr")
            row.prepare = set_up_network;
    }
}

std::function<void()> config(const char* name, const char* content) {
    return [name, content] {
        preset();
        std::filesystem::remove_all("/tmp/.uci");
        write_file(std::string("/etc/config/") + name, content);
    };
}

void add_modes(std::vector<Row>& rows) {
    rows.push_back(fact(
        "tq_get_apmode", [] { return tq_get_apmode(); }, number, "0", "1"));
    rows.back().prepare = config("wtp", "config capwap\n\toption mode 'fat'\n");
    rows.push_back(fact(
        "get_forward_mode", [] { return get_forward_mode(); }, number, "1", "0"));
    rows.back().prepare = config("forward", "config forward\n\toption mode 'route'\n");
    rows.push_back(fact(
        "get_ap_modelname", [] { return get_ap_modelname(text, sizeof(text)); }, text_after, "0 AP",
        "-1 "));
    rows.back().prepare = config("board", "config board\n\toption model 'AP'\n");
    for (Row& row : rows) {
        if (row.function == "tq_get_apmode" || row.function == "get_forward_mode" ||
            row.function == "get_ap_modelname")
            row.but = where_libuci_may_do_without(row);
    }
    rows.push_back(pure("get_br_vlan_id", [] { return get_br_vlan_id("br-vlan7", &value); }));
    rows.push_back(
        pure("get_br_vlan_name", [] { return get_br_vlan_name(7, text, sizeof(text)); }));
    rows.push_back(
        pure("get_vlan_cfg_name", [] { return get_vlan_cfg_name(7, text, sizeof(text)); }));
}

tq_list list;

void fill_list() {
    tq_list_init(&list);
    tq_list_add(&list, 1);
    tq_list_add(&list, 2);
}

std::string length_after(intptr_t result) {
    long long length = 0;
    for (auto* node = tq_list_first(&list); node; node = tq_list_next(&list, node))
        length++;
    return with_number(result, length);
}

Row list_row(std::string function, std::function<intptr_t()> call, std::string gives) {
    return {.function = std::move(function),
            .prepare = fill_list,
            .call = std::move(call),
            .outcome = length_after,
            .undo = [](intptr_t /*result*/) { tq_list_deinit(&list); },
            .gives = std::move(gives),
            .fails = "-1 2"};
}

void add_lists(std::vector<Row>& rows) {
    rows.push_back(pure("tq_list_init", [] { return tq_list_init(&list); }));
    rows.push_back(list_row(
        "tq_list_add", [] { return tq_list_add(&list, 3); }, "0 3"));
    rows.push_back(list_row(
        "tq_list_ins", [] { return tq_list_ins(&list, list.head, 3); }, "0 3"));
    rows.push_back(list_row(
        "tq_list_rmv", [] { return tq_list_rmv(&list, 1); }, "0 1"));
    rows.push_back(list_row(
        "tq_list_rmv_node", [] { return tq_list_rmv_node(&list, list.head); }, "0 1"));
    rows.push_back(list_row(
        "tq_list_deinit", [] { return tq_list_deinit(&list); }, "0 0"));
    rows.push_back(list_row(
        "tq_list_first", [] { return intptr_t{tq_list_first(&list) != nullptr}; }, "1 2"));
    rows.push_back(list_row(
        "tq_list_next", [] { return intptr_t{tq_list_next(&list, list.head) != nullptr}; }, "1 2"));
}

void add_utilities(std::vector<Row>& rows) {
    static tq_timeval now;
    rows.push_back({.function = "tq_gettime",
                    .prepare =
                        [] {
                            now = {kPreset, kPreset};
                        },
                    .call = [] { return tq_gettime(&now); },
                    .outcome =
                        [](intptr_t result) {
                            return with_text(result, now.tv_usec == kPreset ? "-" : "now");
                        },
                    .gives = "0 now",
                    .fails = "-1 -",
                    .spares = {}});
    rows.push_back({.function = "tq_time",
                    .call = [] { return tq_time(); },
                    .outcome = [](intptr_t result) { return result > 0 ? "now" : number(result); },
                    .gives = "now",
                    .spares = {}});
    rows.push_back({.function = "tq_rand",
                    .call = [] { return tq_rand(); },
                    .outcome = [](intptr_t result) { return result >= 0 ? "some" : "none"; },
                    .gives = "some",
                    .fails = "some",
                    .spares = {}});
    rows.push_back({.function = "tq_mktemp",
                    .prepare = [] { strcpy(text, "/tmp/fileXXXXXX"); },
                    .call = [] { return tq_mktemp(text); },
                    .outcome =
                        [](intptr_t result) {
                            return with_text(result, exists(text) ? "there" : "not there");
                        },
                    .undo = [](intptr_t /*result*/) { unlink(text); },
                    .gives = "0 there",
                    .fails = "-1 not there",
                    // The template has its name by then.
                    .but = {{"chmod", "-2 not there", "-1 not there"}}});
    rows.push_back(pure(
        "tq_hexstr_to_hexnum",
        [] { return tq_hexstr_to_hexnum("0aff", 4, reinterpret_cast<uint8_t*>(text), 8); }, "2"));
}

}  // namespace

std::vector<Row> foundation_rows() {
    std::vector<Row> rows;
    add_command(rows);
    add_radios(rows);
    add_interfaces(rows);
    add_ports(rows);
    add_wan_and_lan(rows);
    add_modes(rows);
    add_lists(rows);
    add_utilities(rows);
    return rows;
}

}  // namespace tq_test::sweep
