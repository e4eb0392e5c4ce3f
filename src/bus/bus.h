// bus.h - what the notices and the requests are built on, beyond the client's public interface.
#pragma once

#include "foundation/hidden.h"
#include "tq/bus.h"

namespace TQ_HIDDEN tq {

bool is_bus_connected();

// The numbers of the statistics service, as "class_type" in a request.
enum Statistic { kInFlow = 0, kOutFlow = 1, kMemoryUsage = 2, kCpuUsage = 3, kCpuCurUsage = 4 };

struct StatisticRequest {
    Statistic statistic;
    uint32_t* number;
};

// The reply handler for the statistics service: the request's private pointer points to a
// StatisticRequest. A reply without the number leaves it untouched and sets the private pointer to
// null.
void store_statistic(ubus_request* req, int type, blob_attr* msg);

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
