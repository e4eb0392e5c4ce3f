// wifi_faults.cpp - configuration sessions, and the Wi-Fi settings on them.
#include <tq/uci_session.h>
#include <tq/wifi.h>
#include <uci.h>

#include <cstdlib>
#include <cstring>
#include <filesystem>

#include "faults/sweep.h"
#include "support/device.h"

namespace tq_test::sweep {
namespace {

constexpr int kPreset = -5;
constexpr char kFile[] = "/etc/config/wireless";
constexpr char kContent[] =
    "\nconfig wifi-device 'radio0'\n"
    "\toption country 'US'\n"
    "\toption CountryRegion '2'\n"
    "\toption CountryRegionABand '2'\n"
    "\toption hwmode '14'\n"
    "\toption HT_BW '1'\n"
    "\toption VHT_BW '1'\n"
    "\toption HT_EXTCHA '0'\n"
    "\toption HT_GI '1'\n"
    "\toption VHT_SGI '1'\n"
    "\toption RTSThreshold '2347'\n"
    "\toption FragThreshold '2346'\n"
    "\toption DtimPeriod '1'\n"
    "\toption MinPhyBeaconRate '1'\n"
    "\toption McastPhyMode '1'\n"
    "\toption McastMcs '3'\n"
    "\tlist rate '1'\n"
    "\tlist rate '2'\n"
    "\nconfig wifi-iface 'vap0'\n"
    "\toption network 'lan'\n"
    "\toption encryption 'psk2'\n"
    "\toption aes 'tkip'\n"
    "\toption key 'key'\n"
    "\toption auth_server '192.0.2.1'\n"
    "\toption auth_port '1812'\n"
    "\toption auth_secret 'secret'\n"
    "\n";

uci_config_ctx session;
char text[64];
int value;
int other;

void write_wireless() {
    std::filesystem::remove_all("/tmp/.uci");
    write_file(kFile, kContent);
    memset(text, 0, sizeof(text));
    value = other = kPreset;
}

void on_radio() {
    write_wireless();
    ASSERT_EQ(load_named_section(UCI_CONFIG_WIRELESS, &session, "radio0"), 0);
}

void on_vap() {
    write_wireless();
    ASSERT_EQ(load_named_section(UCI_CONFIG_WIRELESS, &session, "vap0"), 0);
}

void free_wireless(intptr_t /*result*/) {
    EXPECT_EQ(free_uci_config(UCI_CONFIG_WIRELESS), 0);
}

// What a failure kept from being staged or committed is part of the next attempt.
std::function<void(intptr_t)> expect_saved(const char* line) {
    return [line](intptr_t /*result*/) {
        EXPECT_EQ(save_uci_config(UCI_CONFIG_WIRELESS, nullptr, 0), 0);
        EXPECT_NE(read_file(kFile).find(line), std::string::npos) << read_file(kFile);
        EXPECT_EQ(free_uci_config(UCI_CONFIG_WIRELESS), 0);
    };
}

std::string code(intptr_t result) {
    return result > 0 && result < UCI_ERR_LAST ? "libuci's code" : number(result);
}

Row on_session(std::string function, std::function<void()> prepare, std::function<intptr_t()> call,
               std::function<void(intptr_t)> undo = free_wireless) {
    Row row = {.function = std::move(function),
               .prepare = std::move(prepare),
               .call = std::move(call),
               .undo = std::move(undo)};
    row.but = where_libuci_may_do_without(row);
    return row;
}

// ---- loading ----

Row loader(std::string function, const char* how, std::function<intptr_t()> call, long keeps) {
    static int number_of_section = 100000;
    Row row = {
        .function = std::move(function),
        .how = how,
        .prepare =
            [keeps] {
                write_wireless();
                // A name that was selected is kept for good.
                if (keeps) number_of_section++;
                snprintf(text, sizeof(text), "name%d", number_of_section);
                write_file(kFile,
                           std::string("\nconfig kind '") + text + "'\n\toption channel '6'\n");
            },
        .call = std::move(call),
        .outcome =
            [](intptr_t result) { return with_text(result, session.ptr.s ? "selected" : "none"); },
        .undo = free_wireless,
        .gives = "0 selected",
        .fails = "-1 none"};
    row.but = where_libuci_may_do_without(row);
    if (!keeps) return row;
    row.but.push_back({"malloc", "0 selected|-1 none"});
    row.keeps = keeps;
    return row;
}

void add_loading(std::vector<Row>& rows) {
    rows.push_back(pure("get_uci_entry_by_name",
                        [] { return intptr_t{get_uci_entry_by_name("wireless") == nullptr}; }));
    rows.push_back(on_session("load_uci_config", write_wireless,
                              [] { return load_uci_config(UCI_CONFIG_WIRELESS, &session); }));
    rows.push_back(on_session(
        "load_uci_config",
        [] {
            write_wireless();
            std::filesystem::remove(kFile);
        },
        [] { return load_uci_config(UCI_CONFIG_WIRELESS, &session); }));
    rows.back().how = "no file";
    for (const long keeps : {0L, 1L}) {
        const char* how = keeps ? "for the first time" : "";
        rows.push_back(loader(
            "load_named_section", how,
            [] { return load_named_section(UCI_CONFIG_WIRELESS, &session, text); }, keeps));
        rows.push_back(loader(
            "load_unnamed_section", how,
            [] { return load_unnamed_section(UCI_CONFIG_WIRELESS, &session, "kind"); }, keeps));
        rows.push_back(loader(
            "load_specific_section", how,
            [] {
                static const char* match[] = {"channel", "6", nullptr};
                return load_specific_section(UCI_CONFIG_WIRELESS, &session, "kind", match);
            },
            keeps));
    }
}

// ---- sessions ----

void with_delete() {
    on_radio();
    ASSERT_EQ(del_uci_config(&session, "country"), 0);
}

void with_change() {
    on_radio();
    ASSERT_EQ(set_uci_config(&session, "country", "CN"), 0);
}

void add_sessions(std::vector<Row>& rows) {
    rows.push_back(on_session("get_uci_config", on_radio, [] {
        return intptr_t{get_uci_config(&session, "country") == nullptr};
    }));
    rows.push_back(on_session("uci_lookup_option_list", on_radio, [] {
        return intptr_t{uci_lookup_option_list(&session, "rate") == nullptr};
    }));
    struct Setting {
        const char* how;
        const char* option;
        const char* line;
    };
    for (const auto& [how, option, line] :
         {Setting{"", "country", "\toption country 'CN'\n"},
          Setting{"a new option", "channel", "\toption channel 'CN'\n"},
          Setting{"a list", "rate", "\tlist rate 'CN'\n"}}) {
        rows.push_back(on_session(
            "set_uci_config", on_radio,
            [option = option] { return set_uci_config(&session, option, "CN"); },
            expect_saved(line)));
        rows.back().how = how;
        // Where only the staging failed, the session has the value.
        rows.back().again = "0|1";
    }
    rows.push_back(
        on_session("del_uci_config", on_radio, [] { return del_uci_config(&session, "country"); }));
    rows.push_back(on_session(
        "add_uci_list", on_radio, [] { return add_uci_list(&session, "rate", "7"); },
        expect_saved("\tlist rate '7'\n")));
    rows.push_back(on_session(
        "add_uci_list", on_radio, [] { return add_uci_list(&session, "country", "CN"); },
        expect_saved("\tlist country 'CN'\n")));
    rows.back().how = "to an option";
    rows.push_back(
        on_session("del_uci_list", on_radio, [] { return del_uci_list(&session, "rate", "1"); }));
    rows.push_back(on_session(
        "save_uci_config", with_change,
        [] { return save_uci_config(UCI_CONFIG_WIRELESS, nullptr, 0); },
        expect_saved("\toption country 'CN'\n")));
    rows.push_back(on_session(
        "save_uci_config", with_delete,
        [] { return save_uci_config(UCI_CONFIG_WIRELESS, nullptr, 0); },
        expect_saved("'radio0'\n\toption CountryRegion")));
    rows.back().how = "not staged yet";
    for (Row& row : rows) {
        if (row.function == "set_uci_config" || row.function.starts_with("load")) continue;
        row.outcome = code;
        row.fails = "libuci's code";
        row.but = where_libuci_may_do_without(row);
        row.but.push_back({"fclose", "0|libuci's code"});
        // The commit tries to stage it once more.
        if (row.how == "not staged yet") row.fails = "0|libuci's code";
    }
    rows.push_back(on_session(
        "save_uci_config", with_change,
        [] {
            static int flags[UCI_CONFIG_ALL] = {};
            flags[UCI_CONFIG_WIRELESS] = 1;
            return save_uci_config(UCI_CONFIG_ALL, flags, UCI_CONFIG_ALL);
        },
        expect_saved("\toption country 'CN'\n")));
    rows.back().how = "all";
    rows.back().gives = rows.back().fails = "16";
    rows.back().but.clear();
    rows.push_back(on_session("free_uci_config", with_delete,
                              [] { return free_uci_config(UCI_CONFIG_WIRELESS); }));
}

// ---- Wi-Fi settings ----

// A setting of one option.
Row setting(std::string function, std::function<intptr_t()> call,
            std::function<void()> prepare = on_radio) {
    Row row = on_session(std::move(function), std::move(prepare), std::move(call));
    row.again = "0|1";
    return row;
}

// Of several options, whose results are combined: one that is written hides that another was not.
Row settings(std::string function, std::function<intptr_t()> call,
             std::function<void()> prepare = on_radio) {
    Row row = setting(std::move(function), std::move(call), std::move(prepare));
    row.fails = "0";
    row.but.clear();
    return row;
}

std::string value_after(intptr_t result) {
    return with_number(result, value);
}

Row quiet(std::string function, std::function<intptr_t()> call, std::string gives,
          std::function<void()> prepare = on_radio) {
    return {.function = std::move(function),
            .prepare = std::move(prepare),
            .call = std::move(call),
            .undo = free_wireless,
            .gives = std::move(gives)};
}

void add_radio_settings(std::vector<Row>& rows) {
    rows.push_back(
        settings("wifi_set_country_code", [] { return wifi_set_country_code(&session); }));
    rows.push_back(
        settings("wifi_set_wireless_mode", [] { return wifi_set_wireless_mode(&session, 20); }));
    rows.push_back(quiet(
        "wifi_get_wireless_mode", [] { return wifi_get_wireless_mode(&session, &value); }, "0"));
    rows.push_back(setting("wifi_set_short_gi", [] { return wifi_set_short_gi(&session, 7); }));
    rows.push_back(quiet(
        "wifi_get_short_gi", [] { return wifi_get_short_gi(&session, &value); }, "0"));
    rows.push_back(
        setting("wifi_set_vht_short_gi", [] { return wifi_set_vht_short_gi(&session, 7); }));
    rows.push_back(quiet(
        "wifi_get_vht_short_gi", [] { return wifi_get_vht_short_gi(&session, &value); }, "0"));
    rows.push_back(
        setting("wifi_set_rts_threshold", [] { return wifi_set_rts_threshold(&session, 0, 7); }));
    rows.push_back(quiet(
        "wifi_get_rts_threshold", [] { return wifi_get_rts_threshold(&session, 0, &value); }, "0"));
    rows.push_back(
        setting("wifi_set_frag_threshold", [] { return wifi_set_frag_threshold(&session, 0, 7); }));
    rows.push_back(quiet(
        "wifi_get_frag_threshold", [] { return wifi_get_frag_threshold(&session, 0, &value); },
        "0"));
    rows.push_back(
        setting("wifi_set_dtim_interval", [] { return wifi_set_dtim_interval(&session, 0, 7); }));
    rows.push_back(quiet(
        "wifi_get_dtim_interval", [] { return wifi_get_dtim_interval(&session, 0, &value); }, "0"));
    rows.push_back(
        setting("wifi_set_beacon_rate", [] { return wifi_set_beacon_rate(&session, 7); }));
    rows.push_back(quiet(
        "wifi_get_beacon_rate", [] { return wifi_get_beacon_rate(&session, &value); }, "0"));
    rows.push_back(
        setting("wifi_set_mcast_rate", [] { return wifi_set_mcast_rate(&session, 24); }));
    rows.back().fails = "-1|0";
    rows.push_back(quiet(
        "wifi_get_mcast_rate", [] { return wifi_get_mcast_rate(&session, &value); }, "0"));
}

void add_security(std::vector<Row>& rows) {
    rows.push_back(setting(
        "wifi_set_auth_type", [] { return wifi_set_auth_type(&session, 0); }, on_vap));
    rows.push_back(quiet(
        "wifi_get_auth_type", [] { return wifi_get_auth_type(&session, &value); }, "0", on_vap));
    rows.push_back(settings(
        "wifi_set_auth_wpa_type", [] { return wifi_set_auth_wpa_type(&session, 3, 0, 0); },
        on_vap));
    rows.push_back(quiet(
        "wifi_get_auth_wpa_type",
        [] { return wifi_get_auth_wpa_type(&session, 4, &value, &other); }, "0", on_vap));
    rows.push_back(setting(
        "wifi_set_auth_wpa_key", [] { return wifi_set_auth_wpa_key(&session, "new key"); },
        on_vap));
    rows.push_back(quiet(
        "wifi_get_auth_wpa_key", [] { return wifi_get_auth_wpa_key(&session, text, sizeof(text)); },
        "0", on_vap));
}

wifi_radius_server server;

void with_wan() {
    static const int done = run_command("ip address replace 192.0.2.9/24 dev eth1").status;
    ASSERT_EQ(done, 0);
    on_vap();
    static char secret[] = "another";
    server = {0xC0000201, 1813, secret};
}

void add_radius(std::vector<Row>& rows) {
    // Only without the WAN's address nothing is written.
    rows.push_back(settings(
        "wifi_set_auth_radius_server",
        [] { return wifi_set_auth_radius_server(&session, &server); }, with_wan));
    for (const char* call : {"popen", "read", "socket", "ioctl"})
        rows.back().but.push_back({call, "-1"});
    rows.push_back({.function = "wifi_get_auth_radius_server",
                    .prepare = on_vap,
                    .call = [] { return wifi_get_auth_radius_server(&session, &server, &value); },
                    .outcome = value_after,
                    .undo =
                        [](intptr_t result) {
                            if (result == 0) free(server.secret);
                            free_wireless(result);
                        },
                    .gives = "0 1",
                    .fails = "-1 -5"});
    rows.push_back(settings(
        "wifi_del_auth_radius_server", [] { return wifi_del_auth_radius_server(&session); },
        on_vap));
}

void add_he(std::vector<Row>& rows) {
    rows.push_back(pure(
        "wifi_set_he_short_gi", [] { return wifi_set_he_short_gi(&session, 1); }, "1"));
    rows.push_back(pure(
        "wifi_get_he_short_gi", [] { return wifi_get_he_short_gi(&session, &value); }, "1"));
    rows.push_back(pure(
        "wifi_set_he_max_ampdu", [] { return wifi_set_he_max_ampdu(&session, 1); }, "1"));
    rows.push_back(pure(
        "wifi_get_he_max_ampdu", [] { return wifi_get_he_max_ampdu(&session, &value); }, "1"));
    rows.push_back(pure(
        "wifi_set_he_qam1024", [] { return wifi_set_he_qam1024(&session, 1); }, "1"));
    rows.push_back(pure(
        "wifi_get_he_qam1024", [] { return wifi_get_he_qam1024(&session, &value); }, "1"));
    rows.push_back(pure(
        "wifi_set_he_mu_mimo", [] { return wifi_set_he_mu_mimo(&session, 1); }, "1"));
    rows.push_back(pure(
        "wifi_get_he_mu_mimo", [] { return wifi_get_he_mu_mimo(&session, &value); }, "1"));
    rows.push_back(pure(
        "wifi_set_he_ulofdma", [] { return wifi_set_he_ulofdma(&session, 1); }, "1"));
    rows.push_back(pure(
        "wifi_get_he_ulofdma", [] { return wifi_get_he_ulofdma(&session, &value); }, "1"));
    rows.push_back(pure(
        "wifi_set_he_dlofdma", [] { return wifi_set_he_dlofdma(&session, 1); }, "1"));
    rows.push_back(pure(
        "wifi_get_he_dlofdma", [] { return wifi_get_he_dlofdma(&session, &value); }, "1"));
    rows.push_back(pure(
        "wifi_set_he_bss_color", [] { return wifi_set_he_bss_color(&session, 1); }, "1"));
    rows.push_back(pure(
        "wifi_get_he_bss_color", [] { return wifi_get_he_bss_color(&session, &value); }, "1"));
}

}  // namespace

std::vector<Row> wifi_rows() {
    std::vector<Row> rows;
    add_sessions(rows);
    add_loading(rows);
    add_radio_settings(rows);
    add_security(rows);
    add_radius(rows);
    add_he(rows);
    return rows;
}

}  // namespace tq_test::sweep
