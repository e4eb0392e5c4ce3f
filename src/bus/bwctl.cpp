#include "tq/bwctl.h"

#include <cstdio>
#include <cstring>

#include "bus/bus.h"
#include "foundation/log.h"

namespace {

using tq::int_param;
using tq::kEndOfParams;
using tq::send_ubus_msg;
using tq::str_param;

// "class_type" as the bandwidth service reads it.
enum BandwidthClass { kSsid = 0, kUser = 1, kStation = 2, kSaveConfig = 4 };

// In log lines, the place of a limit's parameters is "param" and this.
constexpr char kParamSuffixes[][2] = {"1", "2", ""};

// In the log, before " fail":
//   "send_ubus_msg(BWCTRL, METHOD_SET, param1)", "send_ubus_msg(BWCTRL, METHOD_DEL, param1)"
//   "send_ubus_msg(BWCTRL, METHOD_SET, param2)", "send_ubus_msg(BWCTRL, METHOD_DEL, param2)"
//   "send_ubus_msg(BWCTRL, METHOD_SET, param)", "send_ubus_msg(BWCTRL, METHOD_DEL, param)"
// Both rates zero take the limit away. The macaddr of a station limit is null for the others.
int set_limit(const char* function, BandwidthClass class_type, const char* vap_name, uint32_t up,
              uint32_t down, const char* macaddr) {
    if (!vap_name) return tq::reject(function);
    notify_param params[6] = {int_param("class_type", class_type), str_param("vap_name", vap_name)};
    notify_param* next = &params[2];
    if (macaddr) *next++ = str_param("macaddr", macaddr);
    const bool is_set = up != 0 || down != 0;
    if (is_set) {
        *next++ = int_param("up", up);
        *next = int_param("down", down);
    }
    if (send_ubus_msg("bwctrl", is_set ? "set" : "del", params) == 0) return 0;
    return TQ_FAIL_IN(function, "send_ubus_msg(BWCTRL, METHOD_%s, param%s) fail\n",
                      is_set ? "SET" : "DEL", kParamSuffixes[class_type]);
}

// The other requests, by what stands for them in the log:
//   "send_ubus_msg(BWCTRL_MAX_STA, METHOD_SET, param)"
//   "send_ubus_msg(BWCTRL, METHOD_SET, param)"
//   "send_ubus_msg(BWCTRL, METHOD_RELOAD, NULL)"
// before " fail".
int request(const char* function, const char* object_path, const char* method,
            const notify_param* params, const char* symbols) {
    if (send_ubus_msg(object_path, method, params) == 0) return 0;
    return TQ_FAIL_IN(function, "send_ubus_msg(%s) fail\n", symbols);
}

// The function's name without its prefix is what the request's handler is called in log lines:
//   "notify_ubus_server(STATISTICS, METHOD_GET, param, get_in_flow_statistics, flow, 3 * 1000)"
//   "notify_ubus_server(STATISTICS, METHOD_GET, param, get_out_flow_statistics, flow, 3 * 1000)"
//   "notify_ubus_server(STATISTICS, METHOD_GET, param, get_mem_usage, usage, 3 * 1000)"
//   "notify_ubus_server(STATISTICS, METHOD_GET, param, get_cpu_usage, usage, 3 * 1000)"
//   "notify_ubus_server(STATISTICS, METHOD_GET, param, get_cpu_cur_usage, usage, 3 * 1000)"
// before " fail".
int request_statistic(const char* function, tq::Statistic statistic, uint32_t index,
                      notify_reply_handler handler, uint32_t* number) {
    if (!number) return tq::reject(function);
    const bool is_flow = statistic <= tq::kOutFlow;
    const notify_param params[] = {int_param("class_type", statistic),
                                   is_flow ? int_param("index", index) : kEndOfParams,
                                   kEndOfParams};
    if (send_ubus_msg("statistics", "get", params, handler, number) == 0) return 0;
    return TQ_FAIL_IN(function,
                      "notify_ubus_server(STATISTICS, METHOD_GET, param, %s, %s, 3 * 1000) fail\n",
                      function + strlen("tq_"), is_flow ? "flow" : "usage");
}

}  // namespace

int set_ssid_bwctl(const char* vap_name, uint32_t up, uint32_t down) {
    return set_limit(__func__, kSsid, vap_name, up, down, nullptr);
}

int set_user_bwctl(const char* vap_name, uint32_t up, uint32_t down) {
    return set_limit(__func__, kUser, vap_name, up, down, nullptr);
}

int set_sta_bwctl(const char* vap_name, uint32_t up, uint32_t down, const unsigned char mac[6]) {
    if (!mac) return tq::reject(__func__);
    char macaddr[sizeof("00:1a:2b:3c:4d:5e")];
    snprintf(macaddr, sizeof(macaddr), "%02x:%02x:%02x:%02x:%02x:%02x", mac[0], mac[1], mac[2],
             mac[3], mac[4], mac[5]);
    return set_limit(__func__, kStation, vap_name, up, down, macaddr);
}

int set_max_sta_bwctl(const char* vap_name, uint32_t maxassoc) {
    if (!vap_name) return tq::reject(__func__);
    const notify_param params[] = {str_param("vap_name", vap_name), int_param("maxassoc", maxassoc),
                                   kEndOfParams};
    return request(__func__, "bwctrl.maxassoc", "set", params, "BWCTRL_MAX_STA, METHOD_SET, param");
}

int set_config_save_bwctl(void) {
    const notify_param params[] = {int_param("class_type", kSaveConfig), kEndOfParams};
    return request(__func__, "bwctrl", "set", params, "BWCTRL, METHOD_SET, param");
}

int reload_bwctl(void) {
    return request(__func__, "bwctrl", "reload", nullptr, "BWCTRL, METHOD_RELOAD, NULL");
}

int tq_get_in_flow_statistics(uint32_t index, uint32_t* flow) {
    return request_statistic(__func__, tq::kInFlow, index, tq::get_in_flow_statistics, flow);
}

int tq_get_out_flow_statistics(uint32_t index, uint32_t* flow) {
    return request_statistic(__func__, tq::kOutFlow, index, tq::get_out_flow_statistics, flow);
}

int tq_get_mem_usage(uint32_t* usage) {
    return request_statistic(__func__, tq::kMemoryUsage, 0, tq::get_mem_usage, usage);
}

int tq_get_cpu_usage(uint32_t* usage) {
    return request_statistic(__func__, tq::kCpuUsage, 0, tq::get_cpu_usage, usage);
}

int tq_get_cpu_cur_usage(uint32_t* usage) {
    return request_statistic(__func__, tq::kCpuCurUsage, 0, tq::get_cpu_cur_usage, usage);
}
