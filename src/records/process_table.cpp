#include "records/process_table.h"

#include <pthread.h>
#include <syslog.h>

#include <algorithm>
#include <array>
#include <string_view>

namespace {

using tq::kProcessCount;

// What the library knows of a process by itself.
struct KnownProcess {
    uint8_t id;
    uint8_t facility;
    std::string_view name;
    std::string_view tag;
};

constexpr KnownProcess kProcesses[] = {
    {0, LOG_LOCAL5, "unknown", "unknown"},
    {1, LOG_LOCAL5, "klogd", "kernel"},
    {2, LOG_LOCAL5, "procd", "proc"},
    {3, LOG_LOCAL5, "busd", "bus"},
    {4, LOG_LOCAL5, "netifd", "net"},
    {5, LOG_LOCAL5, "hotplugd", "hotplug"},
    {6, LOG_DAEMON, "dnsmasq", "dns"},
    {7, LOG_DAEMON, "udhcpc", "dhcp"},
    {8, LOG_DAEMON, "ntpd", "ntp"},
    {9, LOG_AUTHPRIV, "dropbear", "ssh"},
    {10, LOG_CRON, "crond", "cron"},
    {11, LOG_LOCAL5, "hostapd", "hostapd"},
    {12, LOG_LOCAL5, "wpa_supplicant", "wpas"},
    {13, LOG_LOCAL5, "wland", "wlan"},
    {14, LOG_LOCAL5, "radiod", "radio"},
    {15, LOG_LOCAL5, "acsd", "acs"},
    {16, LOG_LOCAL5, "scand", "scan"},
    {17, LOG_LOCAL5, "wipsd", "wips"},
    {18, LOG_LOCAL5, "roamd", "roam"},
    {19, LOG_LOCAL5, "steerd", "steer"},
    {20, LOG_LOCAL5, "stationd", "station"},
    {21, LOG_LOCAL5, "meshd", "mesh"},
    {22, LOG_LOCAL5, "wdsd", "wds"},
    {23, LOG_LOCAL5, "spectrald", "spectral"},
    {24, LOG_LOCAL5, "capwapd", "capwap"},
    {25, LOG_LOCAL5, "dtlsd", "dtls"},
    {26, LOG_LOCAL5, "configd", "config"},
    {27, LOG_LOCAL5, "statsd", "stats"},
    {28, LOG_LOCAL5, "faultd", "fault"},
    {29, LOG_LOCAL5, "bandwidthd", "bandwidth"},
    {30, LOG_LOCAL5, "qosd", "qos"},
    {31, LOG_LOCAL5, "upgraded", "upgrade"},
    {32, LOG_LOCAL5, "bootcaused", "bootcause"},
    {33, LOG_LOCAL5, "watchdogd", "watchdog"},
    {34, LOG_LOCAL5, "ledd", "led"},
    {35, LOG_LOCAL5, "buttond", "button"},
    {36, LOG_LOCAL5, "powerd", "power"},
    {37, LOG_LOCAL5, "thermald", "thermal"},
    {38, LOG_LOCAL5, "snmpd", "snmp"},
    {39, LOG_LOCAL5, "lldpd", "lldp"},
    {40, LOG_LOCAL5, "uhttpd", "http"},
    {41, LOG_LOCAL5, "telnetd", "telnet"},
    {43, LOG_LOCAL5, "portald", "portal"},
    {44, LOG_LOCAL5, "radiusd", "radius"},
    {45, LOG_LOCAL5, "acld", "acl"},
    {46, LOG_LOCAL5, "natd", "nat"},
    {47, LOG_LOCAL5, "firewalld", "firewall"},
    {48, LOG_LOCAL5, "arpproxyd", "arpproxy"},
    {49, LOG_LOCAL5, "igmpd", "igmp"},
    {50, LOG_LOCAL5, "vland", "vlan"},
    {51, LOG_LOCAL5, "bridged", "bridge"},
    {52, LOG_LOCAL5, "lacpd", "lacp"},
    {53, LOG_LOCAL5, "pppd", "ppp"},
    {55, LOG_LOCAL5, "locationd", "location"},
    {56, LOG_LOCAL5, "logrotated", "logrotate"},
    {57, LOG_LOCAL5, "diagd", "diag"},
};

consteval bool in_order_and_unique() {
    for (size_t i = 0; i < std::size(kProcesses); i++) {
        for (size_t j = i + 1; j < std::size(kProcesses); j++) {
            const KnownProcess& one = kProcesses[i];
            const KnownProcess& other = kProcesses[j];
            if (one.id >= other.id || one.name == other.name || one.tag == other.tag) return false;
        }
    }
    return true;
}

consteval bool has_id(uint32_t id) {
    return std::ranges::any_of(kProcesses, [id](const auto& known) { return known.id == id; });
}

// The length of a list of all names, or of all tags, each closed by "|".
consteval size_t list_length(auto text) {
    size_t length = 0;
    for (const KnownProcess& known : kProcesses)
        length += text(known).size() + 1;
    return length;
}

constexpr std::string_view kLongestRemainder =
    "!|\nauthpriv.*\t\t%/var/log/system.log -2147483648 666\n\n";

static_assert(std::size(kProcesses) == kProcessCount);
static_assert(in_order_and_unique());
static_assert(!has_id(tq::kAllProcesses));

constexpr size_t kNamesLength = list_length([](auto& known) { return known.name; });
constexpr size_t kTagsLength = list_length([](auto& known) { return known.tag; });
static_assert(kNamesLength + 1 < tq::kNameListSize);
static_assert(kTagsLength + kLongestRemainder.size() < tq::kConfigLineSize);

// The rows as they are stored, one behind the other without padding or relocation: id, facility,
// name and tag, both terminated.
using Stored = std::array<char, 2 * kProcessCount + kNamesLength + kTagsLength>;

consteval Stored store() {
    Stored stored{};
    char* end = stored.data();
    for (const KnownProcess& known : kProcesses) {
        *end++ = static_cast<char>(known.id);
        *end++ = static_cast<char>(known.facility);
        end = std::ranges::copy(known.name, end).out + 1;
        end = std::ranges::copy(known.tag, end).out + 1;
    }
    return stored;
}

constexpr Stored kStored = store();

constinit syslog_process table[kProcessCount] = {};
constinit pthread_once_t table_filled = PTHREAD_ONCE_INIT;

const char* behind_text(const char* text) {
    while (*text++ != '\0')
        continue;
    return text;
}

void fill_table() {
    const char* stored = kStored.data();
    for (syslog_process& row : table) {
        row.id = static_cast<uint8_t>(*stored++);
        row.facility = static_cast<uint8_t>(*stored++);
        row.level = LOG_ERR;
        row.name = stored;
        row.tag = behind_text(row.name);
        stored = behind_text(row.tag);
    }
}

}  // namespace

namespace tq {

syslog_process* process_table() {
    pthread_once(&table_filled, fill_table);
    return table;
}

syslog_process* find_process(syslog_process* rows, uint32_t id) {
    for (size_t i = 0; rows && i < kProcessCount; i++) {
        if (rows[i].id == id) return &rows[i];
    }
    return nullptr;
}

}  // namespace tq
