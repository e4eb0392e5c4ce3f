// sysinfo_faults.cpp - the system's figures, interfaces, IP addresses, MAC addresses.
#include <net/if_arp.h>
#include <sys/stat.h>
#include <tq/ip_address.h>
#include <tq/mac.h>
#include <tq/netif.h>
#include <tq/sysstat.h>
#include <unistd.h>

#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <optional>

#include "faults/sweep.h"
#include "support/device.h"
#include "support/faults.h"

namespace tq_test::sweep {
namespace {

constexpr uint32_t kPreset = 77;

uint32_t one;
uint32_t two;
char text[64];

void preset() {
    one = two = kPreset;
    memset(text, 0, sizeof(text));
}

// Whether the outputs were written; 0 is the clearing of those that are zeroed first.
std::string written(uint32_t value) {
    return value == kPreset ? "-" : value == 0 ? "0" : "+";
}

std::string one_after(intptr_t result) {
    return with_text(result, written(one).c_str());
}

std::string both_after(intptr_t result) {
    return with_text(result, (written(one) + written(two)).c_str());
}

std::string text_after(intptr_t result) {
    return with_text(result, *text ? "text" : "");
}

Row figure(std::string function, std::function<intptr_t()> call,
           std::function<std::string(intptr_t)> outcome, std::string gives, std::string fails) {
    return {.function = std::move(function),
            .prepare = preset,
            .call = std::move(call),
            .outcome = std::move(outcome),
            .gives = std::move(gives),
            .fails = std::move(fails)};
}

// ---- the system's figures ----

std::optional<ScopedProc> proc;
if_stats stats;

void have_kernel_files() {
    preset();
    stats = {};
    proc.emplace(std::map<std::string, std::string>{
        {"mtd", "dev:    size   erasesize  name\nmtd0: 00040000 00010000 \"boot\"\n"},
        {"net/eth/eth0/stats", "1 2 3 4 5 6\n"}});
}

void forget_kernel_files(intptr_t /*result*/) {
    proc.reset();
}

void have_overlay() {
    preset();
    std::filesystem::create_directory("/overlay");
    std::filesystem::remove("/etc/mtab");
    write_file("/etc/mtab", "overlay /overlay tmpfs rw 0 0\n");
}

void forget_overlay(intptr_t /*result*/) {
    std::filesystem::remove("/etc/mtab");
    std::filesystem::create_symlink("/proc/self/mounts", "/etc/mtab");
}

void add_figures(std::vector<Row>& rows) {
    static uint32_t figures[PROC_MEMINFO_FIGURES];
    rows.push_back(figure(
        "tq_get_cpu_ticks", [] { return tq_get_cpu_ticks(&one, &two); }, both_after, "0 ++",
        "-1 --"));
    rows.back().but = {{"read", "-2 --"}};
    rows.push_back(figure(
        "get_proc_cpuinfo", [] { return get_proc_cpuinfo(&one, &two); }, both_after, "0 ++",
        "-1 --"));
    rows.push_back(figure(
        "get_proc_meminfo", [] { return get_proc_meminfo(figures); }, number, "1", "-1"));
    rows.push_back(figure(
        "tq_hal_get_sdram_size", [] { return tq_hal_get_sdram_size(&one); }, one_after, "0 +",
        "-1 -"));
    rows.push_back(figure(
        "tq_get_memory_real_usage", [] { return tq_get_memory_real_usage(&one); }, one_after, "0 +",
        "-1 0"));
    rows.push_back(figure(
        "tq_get_sys_uptime", [] { return tq_get_sys_uptime(&one); }, one_after, "0 +", "-1 0"));
    rows.push_back(figure(
        "tq_get_flash_free_size", [] { return tq_get_flash_free_size(&one); }, one_after, "0 +",
        "-1 0"));
    rows.back().prepare = have_overlay;
    rows.back().undo = forget_overlay;
    rows.push_back(figure(
        "tq_hal_get_flash_size", [] { return tq_hal_get_flash_size(); }, number, "262144", "-1"));
    rows.back().but = {{"read", "0"}};
    rows.push_back(figure(
        "tq_hal_get_processor_type", [] { return tq_hal_get_processor_type(text, sizeof(text)); },
        text_after, "0 text", "-1 "));
    rows.push_back(figure(
        "tq_get_eth_stats", [] { return tq_get_eth_stats(0, &stats); },
        [](intptr_t result) { return with_number(result, static_cast<long>(stats.out_octets)); },
        "0 4", "-1 0"));
    // The flow is asked of the bus, to which there is no connection, and the driver is not asked
    // for in vain: what either lacks, the record lacks.
    rows.push_back(figure(
        "tq_get_if_statistics", [] { return tq_get_if_statistics(0, &stats); },
        [](intptr_t result) { return with_text(result, stats.out_octets == 4 ? "all" : "part"); },
        "0 all", "-1 part"));
    rows.back().but = {{"open#4", "0 part"}, {"read#4", "0 part"}};
    for (Row& row : rows) {
        if (row.function != "tq_hal_get_flash_size" && row.function != "tq_get_eth_stats" &&
            row.function != "tq_get_if_statistics")
            continue;
        row.prepare = have_kernel_files;
        row.undo = forget_kernel_files;
    }
}

// ---- interfaces ----

constexpr char kPort[] = "eth0";
const uint32_t kAddress = 0x010200C0;  // 192.0.2.1, first octet first
const uint32_t kMask = 0x00FFFFFF;
const uint32_t kBroadcast = 0xFF0200C0;
const uint8_t kNeighbour[4] = {192, 0, 2, 5};
const uint8_t kMac[6] = {2, 0, 0x5e, 0, 1, 0};

void have_port() {
    preset();
    static const int done = run_command(
                                "ip address replace 192.0.2.1/24 broadcast 192.0.2.255 dev eth0;"
                                "ip route replace default via 192.0.2.254 dev eth0")
                                .status;
    ASSERT_EQ(done, 0);
    ASSERT_EQ(set_if_addr(kPort, &kAddress), 0);
    ASSERT_EQ(set_if_netmask(kPort, &kMask), 0);
}

void have_neighbour() {
    have_port();
    ASSERT_EQ(add_arp(kPort, kNeighbour, kMac, ATF_PERM), 0);
}

Row on_port(std::string function, std::function<intptr_t()> call, std::string gives = "0",
            std::string fails = "-1") {
    Row row =
        figure(std::move(function), std::move(call), number, std::move(gives), std::move(fails));
    row.prepare = have_port;
    return row;
}

Row reading_port(std::string function, std::function<intptr_t()> call) {
    Row row = on_port(std::move(function), std::move(call), "0 +", "-1 -");
    row.outcome = one_after;
    return row;
}

void add_ports(std::vector<Row>& rows) {
    rows.push_back(on_port(
        "if_is_up", [] { return if_is_up(kPort); }, "1", "0"));
    rows.push_back(on_port(
        "if_is_running", [] { return if_is_running(kPort); }, "1", "0"));
    rows.push_back(on_port("set_if_flag", [] { return set_if_flag(kPort, 1); }));
    rows.back().but = {{"socket", "-10"}};
    rows.push_back(reading_port("get_if_addr", [] { return get_if_addr(kPort, &one); }));
    rows.push_back(on_port("set_if_addr", [] { return set_if_addr(kPort, &kAddress); }));
    rows.push_back(reading_port("get_if_netmask", [] { return get_if_netmask(kPort, &one); }));
    rows.push_back(on_port("set_if_netmask", [] { return set_if_netmask(kPort, &kMask); }));
    rows.push_back(
        reading_port("get_if_broadcast_addr", [] { return get_if_broadcast_addr(kPort, &one); }));
    rows.push_back(
        on_port("set_if_broadcast_addr", [] { return set_if_broadcast_addr(kPort, &kBroadcast); }));
    rows.push_back(on_port("get_if_mac",
                           [] { return get_if_mac(kPort, reinterpret_cast<uint8_t*>(text), 6); }));
    // Flags that cannot be read are no failure.
    rows.push_back(on_port("set_if_mac", [] { return set_if_mac(kPort, kMac); }));
    rows.back().but = {{"ioctl#1", "0"}};
    rows.push_back(reading_port("get_if_index", [] { return get_if_index(kPort, &one); }));
    rows.push_back(
        on_port("set_interface", [] { return set_interface(kPort, &kAddress, &kMask, kMac); }));
    rows.back().but = {{"ioctl#3", "0"}};
    rows.push_back(on_port("set_if_mtu", [] { return set_if_mtu(kPort, 1500); }));
    rows.push_back(reading_port("get_if_mtu", [] { return get_if_mtu(kPort, &one); }));
    rows.push_back(reading_port("get_if_gateway", [] { return get_if_gateway("eth9", &one); }));
    rows.back().prepare = [] {
        preset();
        proc.emplace(std::map<std::string, std::string>{
            {"net/route",
             "Iface Destination Gateway Flags RefCnt Use Metric Mask MTU Window IRTT\n"
             "eth8 0002000A 00000000 0001 0 0 0 00FFFFFF 0 0 0\n"
             "eth9 00000000 FE0200C0 0003 0 0 0 00000000 0 0 0\n"}});
    };
    rows.back().undo = forget_kernel_files;
}

void add_neighbours(std::vector<Row>& rows) {
    rows.push_back(on_port("add_arp", [] { return add_arp(kPort, kNeighbour, kMac, ATF_PERM); }));
    rows.push_back(
        on_port("delete_arp", [] { return delete_arp(kPort, kNeighbour, kMac, ATF_PERM); }));
    rows.back().prepare = have_neighbour;
    rows.push_back(on_port("del_arp_by_ip", [] { return del_arp_by_ip(kPort, kNeighbour); }));
    rows.back().prepare = have_neighbour;
}

void add_hosts(std::vector<Row>& rows) {
    static ip_str_list hosts;
    rows.push_back(figure(
        "get_ip_by_hostname", [] { return get_ip_by_hostname("192.0.2.1", &one); }, one_after,
        "0 +", "-1 -"));
    rows.push_back(figure(
        "get_ip_list_by_hostname", [] { return get_ip_list_by_hostname("192.0.2.1", &hosts); },
        [](intptr_t result) { return with_number(result, hosts.count); }, "0 1", "-1 0"));
    rows.back().undo = [](intptr_t /*result*/) {
        for (uint32_t i = 0; i < hosts.count; i++)
            free(hosts.array[i]);
        free(static_cast<void*>(hosts.array));
    };
}

// ---- IP addresses ----

void add_v4_addresses(std::vector<Row>& rows) {
    static ip_address address;
    static uint8_t bytes[16];
    static const uint8_t mask[4] = {255, 255, 255, 0};
    static const uint8_t octets[4] = {192, 0, 2, 1};
    rows.push_back(pure("ip_init_addr", [] { return ip_init_addr(&address); }));
    rows.push_back(pure("ip_init_v4_addr", [] { return ip_init_v4_addr(&address); }));
    rows.push_back(pure("ip_get_version", [] { return ip_get_version(&address); }));
    rows.push_back(pure("ip_get_masklen", [] { return ip_get_masklen(&address, &one); }));
    rows.push_back(pure("ip_get_v4_masklen", [] { return ip_get_v4_masklen(&address, &one); }));
    rows.push_back(
        pure("ip_get_v4_byte_addr", [] { return ip_get_v4_byte_addr(&address, bytes); }));
    rows.push_back(
        pure("ip_get_v4_byte_mask", [] { return ip_get_v4_byte_mask(&address, bytes); }));
    rows.push_back(
        pure("ip_get_v4_byte_broadcast", [] { return ip_get_v4_byte_broadcast(&address, bytes); }));
    rows.push_back(
        pure("ip_get_v4_str_addr", [] { return ip_get_v4_str_addr(&address, text, 64); }));
    rows.push_back(
        pure("ip_get_v4_str_mask", [] { return ip_get_v4_str_mask(&address, text, 64); }));
    rows.push_back(pure("ip_get_v4_str_broadcast",
                        [] { return ip_get_v4_str_broadcast(&address, text, 64); }));
    rows.push_back(pure("ip_get_v4_str_addr_mask",
                        [] { return ip_get_v4_str_addr_mask(&address, text, 64); }));
    rows.push_back(
        pure("v4_byte_addr_to_str", [] { return v4_byte_addr_to_str(octets, text, 64); }));
    rows.push_back(
        pure("ip_set_v4_byte_addr", [] { return ip_set_v4_byte_addr(&address, octets); }));
    rows.push_back(pure("ip_set_v4_masklen", [] { return ip_set_v4_masklen(&address, 24); }));
    rows.push_back(pure("ip_set_v4_byte_mask", [] { return ip_set_v4_byte_mask(&address, mask); }));
    rows.push_back(
        pure("ip_set_v4_str_addr", [] { return ip_set_v4_str_addr(&address, "192.0.2.1"); }));
    rows.push_back(
        pure("ip_set_v4_str_mask", [] { return ip_set_v4_str_mask(&address, "255.0.0.0"); }));
    rows.push_back(pure("ip_set_v4_str_addr_mask",
                        [] { return ip_set_v4_str_addr_mask(&address, "192.0.2.1/24"); }));
    rows.push_back(
        pure("v4_str_to_byte_addr", [] { return v4_str_to_byte_addr("192.0.2.1", bytes); }));
    rows.push_back(pure("v4_get_ip_and_mask", [] {
        return v4_get_ip_and_mask("192.0.2.1/24", text, 32, text + 32, 32);
    }));
    rows.push_back(pure("ipv4_is_empty", [] { return ipv4_is_empty(&address); }));
}

void add_v6_addresses(std::vector<Row>& rows) {
    static ip_address address;
    static uint8_t bytes[16] = {0xfe, 0x80};
    rows.push_back(pure("ip_init_v6_addr", [] { return ip_init_v6_addr(&address); }));
    rows.push_back(
        pure("ip_set_v6_byte_addr", [] { return ip_set_v6_byte_addr(&address, bytes); }));
    rows.push_back(pure("ip_set_v6_masklen", [] { return ip_set_v6_masklen(&address, 64); }));
    rows.push_back(
        pure("ip_get_v6_byte_addr", [] { return ip_get_v6_byte_addr(&address, bytes); }));
    rows.push_back(pure("ip_address_to_v6_byte_addr",
                        [] { return ip_address_to_v6_byte_addr(&address, bytes); }));
    rows.push_back(
        pure("ip_get_v6_byte_mask", [] { return ip_get_v6_byte_mask(&address, bytes); }));
    rows.push_back(
        pure("v6_str_to_byte_addr", [] { return v6_str_to_byte_addr("fe80::1", bytes); }));
    rows.push_back(pure("v6_str_to_masklen", [] { return v6_str_to_masklen("fe80::1/64", &one); }));
    rows.push_back(
        pure("v6_str_to_ip_address", [] { return v6_str_to_ip_address("fe80::1/64", &address); }));
    rows.push_back(
        pure("ip_address_to_v6_str", [] { return ip_address_to_v6_str(&address, text, 64, 1); }));
    rows.push_back(pure("ip_address_to_v6_str_addr",
                        [] { return ip_address_to_v6_str_addr(&address, text, 64); }));
    rows.push_back(pure("ip_address_to_v6_str_addr_mask",
                        [] { return ip_address_to_v6_str_addr_mask(&address, text, 64); }));
    rows.push_back(pure("ipv6_is_empty", [] { return ipv6_is_empty(&address); }));
    rows.push_back(pure("ip_is_empty", [] { return ip_is_empty(&address); }));
    rows.push_back(pure("ip_to_str_addr", [] { return ip_to_str_addr(&address, text, 64); }));
}

// ---- MAC addresses ----

uint8_t mac[6];

// The base address of the board and an offset, or none.
std::string mac_after(intptr_t result) {
    char hex[32];
    snprintf(hex, sizeof(hex), "%02x..%02x", mac[0], mac[5]);
    return with_text(result, hex);
}

Row address(std::string function, std::function<intptr_t()> call, std::string gives) {
    Row row =
        figure(std::move(function), std::move(call), mac_after, std::move(gives), "-1 00..00");
    row.prepare = [] { memset(mac, 0, sizeof(mac)); };
    return row;
}

std::optional<faults::AnswerIoctl> driver;

void add_mac_addresses(std::vector<Row>& rows) {
    rows.push_back(address(
        "get_base_mac", [] { return get_base_mac(mac, 6); }, "0 00..20"));
    rows.push_back(address(
        "get_wan_mac", [] { return get_wan_mac(mac, 6); }, "0 00..20"));
    rows.push_back(address(
        "get_lan_mac", [] { return get_lan_mac(0, mac, 6); }, "0 00..21"));
    rows.push_back(address(
        "get_vlan_mac", [] { return get_vlan_mac(mac, 6); }, "0 00..22"));
    rows.push_back(address(
        "get_radio_mac", [] { return get_radio_mac(0, mac, 6); }, "0 00..23"));
    rows.push_back(address(
        "get_vap_mac", [] { return get_vap_mac(0, 1, mac, 6); }, "0 02..23"));
    rows.push_back(pure("mac_offset", [] {
        mac_offset(mac, 5, 1);
        return 0;
    }));
    rows.push_back(pure("vap_mac_offset", [] {
        vap_mac_offset(1, mac);
        return 0;
    }));
    rows.push_back(pure("lan_mac_offset", [] {
        lan_mac_offset(1, mac);
        return 0;
    }));
    rows.push_back(figure(
        "get_default_ssid", [] { return get_default_ssid(text, sizeof(text), 0, 1); },
        [](intptr_t result) { return with_text(result, text); }, "0 tqpelkin-5320-1",
        "0 tqpelkin-0000-1"));
    static char out[TQ_RADIO_STATS_SIZE];
    rows.push_back(figure(
        "get_radio_stats", [] { return get_radio_stats(0, out); }, number, "0", "-1"));
    rows.back().prepare = [] {
        driver.emplace([](unsigned long /*operation*/, void* /*argument*/) { return 0; });
    };
    rows.back().undo = [](intptr_t /*result*/) { driver.reset(); };
}

}  // namespace

std::vector<Row> sysinfo_rows() {
    std::vector<Row> rows;
    add_figures(rows);
    add_ports(rows);
    add_neighbours(rows);
    add_hosts(rows);
    add_v4_addresses(rows);
    add_v6_addresses(rows);
    add_mac_addresses(rows);
    return rows;
}

}  // namespace tq_test::sweep
