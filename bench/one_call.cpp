// Makes one public call a given number of times, so that a tracer can count its system calls.
#include <sys/mman.h>
#include <tq/tq.h>
#include <unistd.h>

#include <cstdio>
#include <cstdlib>
#include <cstring>

namespace {

struct Call {
    const char* name;
    void (*run)();
};

char text[64];
int number;
uint32_t address = 0x010200c0;
uint32_t netmask = 0x00ffffff;
uint8_t mac[6] = {2, 0, 0, 0, 0, 1};
uint8_t neighbour[4] = {192, 0, 2, 7};

// Other numbers in each process, so that no write finds its value there already.
unsigned serial = static_cast<unsigned>(getpid()) * 100;

const char* next_value() {
    snprintf(text, sizeof(text), "tq%u", ++serial);
    return text;
}

// The connection is made once, so that it does not count for the calls.
bool connect_once() {
    static const bool connected = init_ubus_client() == 0;
    return connected;
}

// The flash of the simulated device holds no block before the first call.
void load_block() {
    static const bool formatted = [] {
        const uint32_t empty[] = {4096, 0x0BADFACE, 0xDEADDEAD, 0xC293C4F0};
        FILE* flash = fopen("/dev/mtdblock1", "we");
        fwrite(&empty[0], 4, 2, flash);
        fseek(flash, 4088, SEEK_SET);
        fwrite(&empty[2], 4, 2, flash);
        fclose(flash);
        return true;
    }();
    if (formatted) redboot_load_config();
}

void save_block() {
    static const bool loaded = (load_block(), true);
    if (loaded) redboot_write_config();
}

void find_key() {
    static const bool loaded = (load_block(), true);
    if (loaded) redboot_get_config("alias/kernel", text, REDBOOT_CONFIG_STRING);
}

// A session that the first call opens.
uci_config_ctx* open_session() {
    static uci_config_ctx session;
    if (!session.ctx) load_unnamed_section(UCI_CONFIG_SYSTEM, &session, "system");
    return &session;
}

// Likewise, on a radio.
uci_config_ctx* open_radio() {
    static uci_config_ctx session;
    if (!session.ctx) load_named_section(UCI_CONFIG_WIRELESS, &session, "radio0");
    return &session;
}

reboot_cause_record records[REBOOT_CAUSE_RECORDS];
reboot_cause_statistic statistic;
reboot_cause_header header;

// The store's header in memory, so that a new run begins without a system call.
reboot_cause_header* map_store() {
    FILE* store = rb_open_reboot_cause_file(&header);
    if (!store) abort();
    void* memory =
        mmap(nullptr, sizeof(header), PROT_READ | PROT_WRITE, MAP_SHARED, fileno(store), 0);
    fclose(store);
    if (memory == MAP_FAILED) abort();
    return static_cast<reboot_cause_header*>(memory);
}

void run_ends(void (*write)()) {
    static reboot_cause_header* const store = map_store();
    store->recorded = 0;
    write();
}

constexpr Call kCalls[] = {
    {"read_line", [] { read_line("/etc/config/system", "hostname", text, sizeof(text)); }},
    {"iniparser_load", [] { iniparser_freedict(iniparser_load("/etc/board.conf")); }},
    {"run_cmd", [] { run_cmd("echo eth0", text, sizeof(text)); }},
    {"bbi_radio_device", [] { bbi_radio_device(1, text, sizeof(text)); }},
    {"get_vap_name", [] { get_vap_name(1, 3, text, sizeof(text)); }},
    {"get_wifi_id", [] { get_wifi_id(&number, &number, "wlan3"); }},
    {"tq_get_eth_ifname", [] { tq_get_eth_ifname(1); }},
    {"get_wan_if_mac", [] { get_wan_if_mac(text, sizeof(text)); }},
    {"get_key_vlaue", [] { get_key_vlaue("echo Image1Stable=1", "Image1Stable", &number); }},
    {"tq_get_mem_usage",
     [] {
         uint32_t usage = 0;
         if (connect_once()) tq_get_mem_usage(&usage);
     }},
    {"set_fm_action over the bus", [] { (void)(connect_once() && set_fm_action(5)); }},
    {"set_fm_action by command", [] { set_fm_action(5); }},
    {"rb_write_reboot_cause",
     [] { run_ends([] { rb_write_reboot_cause(1, "upgrade.c", "finish", 77, "new firmware"); }); }},
    {"rb_write_reboot_cause_inner", [] { run_ends([] { rb_write_reboot_cause_inner(records); }); }},
    {"rb_read_reboot_cause", [] { rb_read_reboot_cause(records, REBOOT_CAUSE_RECORDS); }},
    {"rb_read_reboot_statistic", [] { rb_read_reboot_statistic(&statistic); }},
    {"rb_set_ntp_sync_flag", [] { rb_set_ntp_sync_flag(1); }},
    {"get_reboot_cause_file", [] { get_reboot_cause_file(); }},
    {"uci_get_str_option_by_id",
     [] { uci_get_str_option_by_id("system", "system", 0, "hostname", text, sizeof(text)); }},
    {"uci_set_str_option_by_id",
     [] { uci_set_str_option_by_id("system", "system", 0, "hostname", next_value()); }},
    {"uci_set_int_option_by_id",
     [] { uci_set_int_option_by_id("system", "system", 0, "ttylogin", ++serial); }},
    {"add_uci_section", [] { add_uci_section("system", "timeserver"); }},
    {"redboot_load_config", load_block},
    {"redboot_write_config", save_block},
    {"redboot_get_config", find_key},
    {"mtd_open", [] { close(mtd_open("/etc/config/system", 1)); }},
    {"check_primary_image", [] { check_primary_image(); }},
    {"apps_is_running", [] { apps_is_running(11); }},
    {"set_process_syslog_level",
     [] {
         syslog_cfg = get_syslog_cfg();
         set_process_syslog_level(11, static_cast<int>(++serial));
     }},
    {"write_syslog_config_file",
     [] {
         syslog_cfg = get_syslog_cfg();
         write_syslog_config_file();
     }},
    {"reset_syslog_prority", [] { reset_syslog_prority(49); }},
    {"tq_get_cpu_ticks",
     [] {
         uint32_t busy = 0;
         tq_get_cpu_ticks(&address, &busy);
     }},
    {"tq_hal_get_processor_type", [] { tq_hal_get_processor_type(text, sizeof(text)); }},
    {"tq_get_sys_uptime", [] { tq_get_sys_uptime(&address); }},
    {"if_is_up", [] { if_is_up("eth0"); }},
    {"if_is_running", [] { if_is_running("eth0"); }},
    {"set_if_flag", [] { set_if_flag("eth0", 1); }},
    {"set_if_addr", [] { set_if_addr("eth0", &address); }},
    {"get_if_addr", [] { get_if_addr("eth0", &address); }},
    {"set_if_netmask", [] { set_if_netmask("eth0", &netmask); }},
    {"get_if_netmask", [] { get_if_netmask("eth0", &netmask); }},
    {"set_if_broadcast_addr", [] { set_if_broadcast_addr("eth0", &address); }},
    {"get_if_broadcast_addr", [] { get_if_broadcast_addr("eth0", &netmask); }},
    {"set_if_mac", [] { set_if_mac("eth0", mac); }},
    {"get_if_mac", [] { get_if_mac("eth0", mac, sizeof(mac)); }},
    {"get_if_index", [] { get_if_index("eth0", &netmask); }},
    {"set_interface", [] { set_interface("eth0", &address, &netmask, mac); }},
    {"set_if_mtu", [] { set_if_mtu("eth0", 1400); }},
    {"get_if_mtu", [] { get_if_mtu("eth0", &netmask); }},
    {"get_if_gateway", [] { get_if_gateway("eth0", &netmask); }},
    {"add_arp", [] { add_arp("eth0", neighbour, mac, 0); }},
    {"delete_arp", [] { delete_arp("eth0", neighbour, mac, 0); }},
    {"del_arp_by_ip", [] { del_arp_by_ip("eth0", neighbour); }},
    {"load_uci_config",
     [] {
         load_uci_config(UCI_CONFIG_SYSTEM, nullptr);
         free_uci_config(UCI_CONFIG_SYSTEM);
     }},
    {"get_uci_config", [] { get_uci_config(open_session(), "hostname"); }},
    {"set_uci_config", [] { set_uci_config(open_session(), "hostname", next_value()); }},
    {"wifi_get_rts_threshold", [] { wifi_get_rts_threshold(open_radio(), 0, &number); }},
    {"wifi_set_rts_threshold",
     [] { wifi_set_rts_threshold(open_radio(), 0, static_cast<int>(++serial)); }},
    {"uci_get_threshold", [] { uci_get_threshold(7, &number); }},
    {"uci_set_threshold", [] { uci_set_threshold(7, ++serial); }},
    {"save_uci_config",
     [] {
         add_uci_list(open_session(), "served", next_value());
         save_uci_config(UCI_CONFIG_SYSTEM, nullptr, 0);
     }},
};

}  // namespace

int main(int argc, char** argv) {
    if (argc == 2 && strcmp(argv[1], "--list") == 0) {
        for (const Call& call : kCalls)
            puts(call.name);
        return 0;
    }
    if (argc != 3) {
        fprintf(stderr, "usage: %s --list | CALL TIMES\n", argv[0]);
        return 2;
    }
    for (const Call& call : kCalls) {
        if (strcmp(call.name, argv[1]) != 0) continue;
        for (int i = atoi(argv[2]); i > 0; i--)
            call.run();
        return 0;
    }
    return 1;
}
