// bus_faults.cpp - the bus client, and what is sent through it: over the bus, and by the bus's
// command where the library is not connected.
#include <gtest/gtest.h>
#include <libubus.h>
#include <tq/bus.h>
#include <tq/bwctl.h>
#include <tq/fm.h>
#include <tq/sysstat.h>

#include <memory>

#include "faults/sweep.h"
#include "support/bus.h"

namespace tq_test::sweep {
namespace {

constexpr uint32_t kPreset = 99;

uint32_t value;
uint32_t other;

// What the broker or a service does is no call of this process.
void have_services() {
    static const std::string figures =
        "statistics=int:ifInFlow:7,int:ifOutFlow:8,int:memoryUsage:9,int:cpuUsage:10,"
        "int:cpuCurUsage:11";
    static const BusService service({figures, "bwctrl", "bwctrl.maxassoc", "fm.ac", "fm.ntp",
                                     "fm.ism_server", "fm.reload.wifi", "fm.wifi_down.cause",
                                     "fm.action", "fm.url", "fm.threshold", "fm.suppress"});
}

void connect_bus() {
    have_services();
    value = other = kPreset;
    ASSERT_EQ(init_ubus_client(), 0);
}

void disconnect_bus(intptr_t /*result*/) {
    destroy_ubus_client();
}

std::string status(intptr_t result) {
    return result > 0 ? "libubus's status" : number(result);
}

// A connection that breaks stays broken until the next init_ubus_client; memory that runs out
// harms only the one request.
Row over_bus(std::string function, std::function<intptr_t()> call) {
    Row row = {.function = std::move(function),
               .how = "over the bus",
               .prepare = connect_bus,
               .call = std::move(call),
               .outcome = status,
               .undo = disconnect_bus,
               // A wait that fails is begun once more.
               .but = {{"poll", "0"}},
               .varies = true};
    for (const char* call_of_socket : {"sendmsg", "recv"})
        row.but.push_back({call_of_socket, "-1", "-1"});
    return row;
}

Row by_command(std::string function, std::function<intptr_t()> call) {
    return {.function = std::move(function),
            .how = "by command",
            .prepare = have_services,
            .call = std::move(call),
            .fails = "0"};
}

std::string values_after(intptr_t result) {
    return number(result) + " " + std::to_string(value) + " " + std::to_string(other);
}

// A number of the statistics service; what is not obtained is `missing`.
Row asking(std::string function, std::function<intptr_t()> call, const std::string& gives,
           const std::string& fails) {
    Row row = over_bus(std::move(function), std::move(call));
    row.how = "";
    row.outcome = values_after;
    row.gives = gives;
    row.fails = fails;
    row.but = {{"poll", gives}, {"sendmsg", fails, fails}, {"recv", fails, fails}};
    return row;
}

const notify_param kParams[] = {{"addr", NOTIFY_PARAM_STRING, 0, "192.0.2.1"},
                                {"port", NOTIFY_PARAM_INT, 5246, nullptr},
                                {nullptr, 0, 0, nullptr}};

void add_client(std::vector<Row>& rows) {
    rows.push_back({.function = "init_ubus_client",
                    .prepare = have_services,
                    .call = [] { return init_ubus_client(); },
                    // The loop outlives a connection that failed.
                    .undo =
                        [](intptr_t /*result*/) {
                            destroy_ubus_client();
                            uloop_done();
                        },
                    // A process's uloop is for those that run one.
                    .but = {{"pthread_mutex_init", "0"},
                            {"epoll_create1", "0"},
                            {"epoll_ctl", "0"},
                            {"eventfd", "0"},
                            {"fcntl", "0"}},
                    .varies = true});
    rows.push_back({.function = "destroy_ubus_client",
                    .prepare = connect_bus,
                    .call =
                        [] {
                            destroy_ubus_client();
                            return 0;
                        },
                    .fails = "0"});
    rows.push_back(over_bus("notify_ubus_server", [] {
        return notify_ubus_server("fm.ac", "connect", kParams, nullptr, nullptr, 3000);
    }));
    rows.back().how = "";
    rows.back().fails = "-1|libubus's status";
    rows.back().but = {{"poll", "0"},
                       {"sendmsg", "-1|libubus's status", "-1"},
                       {"recv", "-1|libubus's status", "-1"}};
    rows.push_back(pure(
        "get_log_data",
        [] {
            static blob_buf message;
            static ubus_request request;
            if (!message.buf) {
                blob_buf_init(&message, 0);
                blobmsg_add_u32(&message, "level", 7);
            }
            request.priv = &value;
            get_log_data(&request, 0, message.head);
            return static_cast<intptr_t>(value);
        },
        "7"));
}

void add_bandwidth(std::vector<Row>& rows) {
    static const unsigned char mac[6] = {2, 0, 0, 0, 0, 1};
    rows.push_back(over_bus("set_ssid_bwctl", [] { return set_ssid_bwctl("ath0", 1, 2); }));
    rows.push_back(over_bus("set_user_bwctl", [] { return set_user_bwctl("ath0", 1, 2); }));
    rows.push_back(over_bus("set_sta_bwctl", [] { return set_sta_bwctl("ath0", 1, 2, mac); }));
    rows.push_back(over_bus("set_max_sta_bwctl", [] { return set_max_sta_bwctl("ath0", 3); }));
    rows.push_back(over_bus("set_config_save_bwctl", [] { return set_config_save_bwctl(); }));
    rows.push_back(over_bus("reload_bwctl", [] { return reload_bwctl(); }));
    for (Row& row : rows) {
        if (row.function.ends_with("bwctl")) row.how = "";
    }
    // A number that came before the service failed is stored.
    const std::string none = "-1 99 99";
    rows.push_back(asking(
        "tq_get_in_flow_statistics", [] { return tq_get_in_flow_statistics(1, &value); }, "0 7 99",
        none + "|-1 7 99"));
    rows.push_back(asking(
        "tq_get_out_flow_statistics", [] { return tq_get_out_flow_statistics(1, &value); },
        "0 8 99", none + "|-1 8 99"));
    rows.push_back(asking(
        "tq_get_mem_usage", [] { return tq_get_mem_usage(&value); }, "0 9 99", none + "|-1 9 99"));
    rows.push_back(asking(
        "tq_get_cpu_usage", [] { return tq_get_cpu_usage(&value); }, "0 10 99",
        none + "|-1 10 99"));
    rows.push_back(asking(
        "tq_get_cpu_cur_usage", [] { return tq_get_cpu_cur_usage(&value); }, "0 11 99",
        none + "|-1 11 99"));
}

// What the system statistics pass on.
void add_relays(std::vector<Row>& rows) {
    rows.push_back(asking(
        "tq_get_memory_avg_usage", [] { return tq_get_memory_avg_usage(&value); }, "0 9 99",
        "-1 0 99"));
    rows.push_back(asking(
        "tq_get_cpu_avg_usage", [] { return tq_get_cpu_avg_usage(&value); }, "0 10 99", "-1 0 99"));
    rows.push_back(asking(
        "tq_get_cpu_real_usage", [] { return tq_get_cpu_real_usage(&value); }, "0 11 99",
        "-1 0 99"));
    // The first figure stays where only the second request fails.
    rows.push_back(asking(
        "tq_get_eth_flow", [] { return tq_get_eth_flow(1, &value, &other); }, "0 7 8",
        "-1 0 0|-1 7 0"));
    for (Stated& stated : rows.back().but) {
        if (stated.call != "poll") stated.again = "-1 0 0";
    }
}

void add_faults(std::vector<Row>& rows) {
    rows.push_back(over_bus("notify_fm_ac_disconnect", [] {
        return notify_fm_ac_disconnect("192.0.2.1", 5246, "cause", nullptr);
    }));
    rows.push_back(
        over_bus("notify_fm_ac_connect", [] { return notify_fm_ac_connect("192.0.2.1", 5246); }));
    rows.push_back(over_bus("notify_fm_ntp_disconnect", [] {
        return notify_fm_ntp_disconnect("192.0.2.1", 123, nullptr, "cause");
    }));
    rows.push_back(
        over_bus("notify_fm_ntp_connect", [] { return notify_fm_ntp_connect("192.0.2.1", 123); }));
    for (auto row = rows.end() - 4; row != rows.end(); ++row)
        row->how = "";
    rows.push_back(by_command("notify_fm_ism_upload_fail", [] {
        return notify_fm_ism_upload_fail("192.0.2.1", 21, "cause", nullptr);
    }));
    rows.push_back(
        by_command("notify_fm_ism_upload", [] { return notify_fm_ism_upload("192.0.2.1", 21); }));
    for (auto row = rows.end() - 2; row != rows.end(); ++row)
        row->how = "";
    for (const auto make : {over_bus, by_command}) {
        rows.push_back(
            make("notify_fm_reload_wifi_cfg", [] { return notify_fm_reload_wifi_cfg(); }));
        rows.push_back(make("set_fm_wifi_down_cause",
                            [] { return set_fm_wifi_down_cause(0, 1, "down", "cause"); }));
        rows.push_back(make("set_fm_action", [] { return set_fm_action(1); }));
        rows.push_back(make("set_fm_url", [] { return set_fm_url("ftp://192.0.2.1"); }));
        rows.push_back(make("set_fm_threshold", [] { return set_fm_threshold(1, 2); }));
        rows.push_back(make("set_fm_suppress", [] { return set_fm_suppress("60"); }));
    }
}

}  // namespace

std::vector<Row> bus_rows() {
    std::vector<Row> rows;
    add_client(rows);
    add_bandwidth(rows);
    add_relays(rows);
    add_faults(rows);
    return rows;
}

}  // namespace tq_test::sweep
