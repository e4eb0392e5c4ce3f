// bus.h - what the notices and the requests are built on, beyond the client's public interface.
#pragma once

#include "foundation/hidden.h"
#include "tq/bus.h"

namespace TQ_HIDDEN tq {

bool is_bus_connected();

// What the statistics service is asked for, by its "class_type".
enum Statistic { kInFlow, kOutFlow, kMemoryUsage, kCpuUsage, kCpuCurUsage };

// The reply handlers for the statistics service, one for each number: the request's private pointer
// points to the caller's uint32_t. A reply without the number leaves that untouched and sets the
// private pointer to null.
void get_in_flow_statistics(ubus_request* req, int type, blob_attr* msg);
void get_out_flow_statistics(ubus_request* req, int type, blob_attr* msg);
void get_mem_usage(ubus_request* req, int type, blob_attr* msg);
void get_cpu_usage(ubus_request* req, int type, blob_attr* msg);
void get_cpu_cur_usage(ubus_request* req, int type, blob_attr* msg);

constexpr notify_param int_param(const char* name, uint32_t value) {
    return {name, NOTIFY_PARAM_INT, value, nullptr};
}

constexpr notify_param int_param(const char* name, int value) {
    return int_param(name, static_cast<uint32_t>(value));
}

constexpr notify_param str_param(const char* name, const char* value) {
    return {name, NOTIFY_PARAM_STRING, 0, value};
}

inline constexpr notify_param kEndOfParams = {nullptr, 0, 0, nullptr};

// A request with the time limit that all of the library's have.
inline int send_ubus_msg(const char* object_path, const char* method, const notify_param* params,
                         notify_reply_handler handler = nullptr, void* priv = nullptr) {
    return notify_ubus_server(object_path, method, params, handler, priv, 3 * 1000);
}

}  // namespace tq
