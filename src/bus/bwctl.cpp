#include "tq/bwctl.h"

#include <cstdio>

#include "bus/bus.h"
#include "foundation/log.h"

namespace {

using tq::int_param;
using tq::kEndOfParams;
using tq::send_ubus_msg;
using tq::str_param;

// "class_type" as the bandwidth service reads it.
enum BandwidthClass { kSsid = 0, kUser = 1, kStation = 2, kSaveConfig = 4 };

// "class_type" as the statistics service reads it.
enum StatisticsClass { kInFlow = 0, kOutFlow = 1, kMemory = 2, kCpu = 3, kCpuCurrent = 4 };

struct Rates {
    uint32_t up;
    uint32_t down;

    // Both rates zero take the limit away.
    [[nodiscard]] bool is_none() const { return up == 0 && down == 0; }
};

// The macaddr of a station limit is null for the others.
int send_limit(BandwidthClass class_type, const char* vap_name, const char* macaddr, Rates rates) {
    notify_param params[6] = {int_param("class_type", class_type), str_param("vap_name", vap_name)};
    notify_param* next = &params[2];
    if (macaddr) *next++ = str_param("macaddr", macaddr);
    if (!rates.is_none()) {
        *next++ = int_param("up", rates.up);
        *next = int_param("down", rates.down);
    }
    return send_ubus_msg("bwctrl", rates.is_none() ? "del" : "set", params);
}

int request_number(StatisticsClass class_type, notify_reply_handler handler, uint32_t* number) {
    const notify_param params[] = {int_param("class_type", class_type), kEndOfParams};
    return send_ubus_msg("statistics", "get", params, handler, number);
}

int request_flow(StatisticsClass class_type, uint32_t index, notify_reply_handler handler,
                 uint32_t* flow) {
    const notify_param params[] = {int_param("class_type", class_type), int_param("index", index),
                                   kEndOfParams};
    return send_ubus_msg("statistics", "get", params, handler, flow);
}

}  // namespace

int set_ssid_bwctl(const char* vap_name, uint32_t up, uint32_t down) {
    if (!vap_name) return tq::reject(__func__);
    const Rates rates = {up, down};
    if (send_limit(kSsid, vap_name, nullptr, rates) == 0) return 0;
    if (rates.is_none()) return TQ_FAIL("send_ubus_msg(BWCTRL, METHOD_DEL, param1) fail\n");
    return TQ_FAIL("send_ubus_msg(BWCTRL, METHOD_SET, param1) fail\n");
}

int set_user_bwctl(const char* vap_name, uint32_t up, uint32_t down) {
    if (!vap_name) return tq::reject(__func__);
    const Rates rates = {up, down};
    if (send_limit(kUser, vap_name, nullptr, rates) == 0) return 0;
    if (rates.is_none()) return TQ_FAIL("send_ubus_msg(BWCTRL, METHOD_DEL, param2) fail\n");
    return TQ_FAIL("send_ubus_msg(BWCTRL, METHOD_SET, param2) fail\n");
}

int set_sta_bwctl(const char* vap_name, uint32_t up, uint32_t down, const unsigned char mac[6]) {
    if (!vap_name || !mac) return tq::reject(__func__);
    const Rates rates = {up, down};
    char macaddr[sizeof("00:1a:2b:3c:4d:5e")];
    snprintf(macaddr, sizeof(macaddr), "%02x:%02x:%02x:%02x:%02x:%02x", mac[0], mac[1], mac[2],
             mac[3], mac[4], mac[5]);
    if (send_limit(kStation, vap_name, macaddr, rates) == 0) return 0;
    if (rates.is_none()) return TQ_FAIL("send_ubus_msg(BWCTRL, METHOD_DEL, param) fail\n");
    return TQ_FAIL("send_ubus_msg(BWCTRL, METHOD_SET, param) fail\n");
}

int set_max_sta_bwctl(const char* vap_name, uint32_t maxassoc) {
    if (!vap_name) return tq::reject(__func__);
    const notify_param params[] = {str_param("vap_name", vap_name), int_param("maxassoc", maxassoc),
                                   kEndOfParams};
    if (send_ubus_msg("bwctrl.maxassoc", "set", params) == 0) return 0;
    return TQ_FAIL("send_ubus_msg(BWCTRL_MAX_STA, METHOD_SET, param) fail\n");
}

int set_config_save_bwctl(void) {
    const notify_param params[] = {int_param("class_type", kSaveConfig), kEndOfParams};
    if (send_ubus_msg("bwctrl", "set", params) == 0) return 0;
    return TQ_FAIL("send_ubus_msg(BWCTRL, METHOD_SET, param) fail\n");
}

int reload_bwctl(void) {
    if (send_ubus_msg("bwctrl", "reload", nullptr) == 0) return 0;
    return TQ_FAIL("send_ubus_msg(BWCTRL, METHOD_RELOAD, NULL) fail\n");
}

int tq_get_in_flow_statistics(uint32_t index, uint32_t* flow) {
    if (!flow) return tq::reject(__func__);
    if (request_flow(kInFlow, index, tq::get_in_flow_statistics, flow) == 0) return 0;
    return TQ_FAIL(
        "notify_ubus_server(STATISTICS, METHOD_GET, param, get_in_flow_statistics, flow, 3 * 1000) "
        "fail\n");
}

int tq_get_out_flow_statistics(uint32_t index, uint32_t* flow) {
    if (!flow) return tq::reject(__func__);
    if (request_flow(kOutFlow, index, tq::get_out_flow_statistics, flow) == 0) return 0;
    return TQ_FAIL(
        "notify_ubus_server(STATISTICS, METHOD_GET, param, get_out_flow_statistics, flow, 3 * "
        "1000) fail\n");
}

int tq_get_mem_usage(uint32_t* usage) {
    if (!usage) return tq::reject(__func__);
    if (request_number(kMemory, tq::get_mem_usage, usage) == 0) return 0;
    return TQ_FAIL(
        "notify_ubus_server(STATISTICS, METHOD_GET, param, get_mem_usage, usage, 3 * 1000) "
        "fail\n");
}

int tq_get_cpu_usage(uint32_t* usage) {
    if (!usage) return tq::reject(__func__);
    if (request_number(kCpu, tq::get_cpu_usage, usage) == 0) return 0;
    return TQ_FAIL(
        "notify_ubus_server(STATISTICS, METHOD_GET, param, get_cpu_usage, usage, 3 * 1000) "
        "fail\n");
}

int tq_get_cpu_cur_usage(uint32_t* usage) {
    if (!usage) return tq::reject(__func__);
    if (request_number(kCpuCurrent, tq::get_cpu_cur_usage, usage) == 0) return 0;
    return TQ_FAIL(
        "notify_ubus_server(STATISTICS, METHOD_GET, param, get_cpu_cur_usage, usage, 3 * 1000) "
        "fail\n");
}
