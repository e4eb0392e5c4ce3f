#include "tq/bus.h"

#include <libubus.h>
#include <pthread.h>

#include <algorithm>
#include <cstddef>
#include <cstring>

#include "bus/bus.h"
#include "foundation/lock.h"
#include "foundation/log.h"

// Callers build these records by hand.
static_assert(offsetof(notify_param, type) == sizeof(void*));
static_assert(offsetof(notify_param, int_value) == sizeof(void*) + 4);
static_assert(sizeof(notify_param) == 2 * sizeof(void*) + 8);

namespace {

// The connection, null while there is none, and the lock of its requests, which lives as long.
constinit ubus_context* context = nullptr;
constinit pthread_mutex_t request_mutex = {};

struct Message {
    Message() = default;
    ~Message() {
        if (buffer.buf) blob_buf_free(&buffer);
    }
    Message(const Message&) = delete;
    Message& operator=(const Message&) = delete;

    blob_buf buffer = {};
};

int build(Message& message, const notify_param* param, const char* function,
          const char* object_path) {
    bool built = blob_buf_init(&message.buffer, 0) == 0;
    for (; param && param->name; param++) {
        if (param->type == NOTIFY_PARAM_INT) {
            built = built && blobmsg_add_u32(&message.buffer, param->name, param->int_value) == 0;
        } else if (param->type != NOTIFY_PARAM_STRING) {
            return TQ_FAIL_IN(function, "invalid parameter name[%s] type[%d]\n\n", param->name,
                              param->type);
        } else if (!param->str_value) {
            return TQ_FAIL_IN(function, "invalid parameter name[%s]\n\n", param->name);
        } else {
            built =
                built && blobmsg_add_string(&message.buffer, param->name, param->str_value) == 0;
        }
    }
    return built ? 0 : TQ_FAIL_IN(function, "cannot build a message to %s\n", object_path);
}

// What a key in a reply holds; null where the reply has no such key, or has it with another type.
// The bytes are another process's: libubox checks them against their lengths. Inlined it would be
// larger.
[[gnu::noinline]] const char* find_value(blob_attr* msg, const char* key, enum blobmsg_type type) {
    if (!msg) return nullptr;
    const blobmsg_policy policy = {key, type};
    blob_attr* value = nullptr;
    blobmsg_parse(&policy, 1, &value, blob_data(msg), static_cast<unsigned>(blob_len(msg)));
    return value ? static_cast<const char*>(blobmsg_data(value)) : nullptr;
}

bool read_number(blob_attr* msg, const char* key, uint32_t& number) {
    const char* bytes = find_value(msg, key, BLOBMSG_TYPE_INT32);
    if (!bytes) return false;
    memcpy(&number, bytes, sizeof(number));
    number = be32_to_cpu(number);
    return true;
}

// The first of the numbers that a log service answers with.
bool read_log_number(blob_attr* msg, uint32_t& number) {
    static constexpr char kKeys[][sizeof("status")] = {"level", "status", "size"};
    return std::ranges::any_of(kKeys, [&](auto& key) { return read_number(msg, key, number); });
}

constexpr char kStatistics[][sizeof("memoryUsage")] = {"ifInFlow", "ifOutFlow", "memoryUsage",
                                                       "cpuUsage", "cpuCurUsage"};

// A reply without the key leaves the caller's number as it was, and what else may come is not taken
// either.
void store_number(ubus_request* req, tq::Statistic statistic, blob_attr* msg) {
    auto* number = static_cast<uint32_t*>(req->priv);
    if (number && !read_number(msg, kStatistics[statistic], *number)) req->priv = nullptr;
}

}  // namespace

int init_ubus_client(void) {
    destroy_ubus_client();
    // Also kept where there is no bus: the loop may be one that the program runs.
    uloop_init();
    context = ubus_connect(nullptr);
    if (!context) return TQ_FAIL("Failed to connect to ubus\n\n");
    pthread_mutex_init(&request_mutex, nullptr);
    uloop_fd_add(&context->sock, ULOOP_READ | ULOOP_BLOCKING);
    return 0;
}

void destroy_ubus_client(void) {
    if (!context) return;
    ubus_free(context);
    uloop_done();
    context = nullptr;
    pthread_mutex_destroy(&request_mutex);
}

int notify_ubus_server(const char* object_path, const char* method, const notify_param* params,
                       notify_reply_handler handler, void* priv, int timeout_ms) {
    if (!object_path || !method) return TQ_FAIL("invalid parameters\n\n");
    if (!context) return TQ_FAIL("ubus client should be initialized\n");
    const tq::Lock lock(request_mutex);
    uint32_t object = 0;
    if (ubus_lookup_id(context, object_path, &object) != 0) {
        return TQ_FAIL("Failed to look up %s object\n\n", object_path);
    }
    Message message;
    const int result = build(message, params, __func__, object_path);
    if (result != 0) return result;
    return ubus_invoke(context, object, method, message.buffer.head, handler, priv, timeout_ms);
}

void get_log_data(ubus_request* req, int, blob_attr* msg) {
    if (!req) {
        TQ_LOG(LOG_ERR, "invalid parameters\n\n");
        return;
    }
    if (!req->priv) return;
    uint32_t number = 0;
    const bool failed = read_number(msg, "errorcode", number) && number != 0;
    // The bytes: who expects a text may have given a place that is not aligned for a number.
    if (!failed && read_log_number(msg, number)) {
        memcpy(req->priv, &number, sizeof(number));
        return;
    }
    const char* ip = failed ? nullptr : find_value(msg, "ip", BLOBMSG_TYPE_STRING);
    if (!ip) {
        req->priv = nullptr;
        return;
    }
    memcpy(req->priv, ip, strlen(ip) + 1);
}

namespace tq {

bool is_bus_connected() {
    return context != nullptr;
}

void get_in_flow_statistics(ubus_request* req, int, blob_attr* msg) {
    store_number(req, kInFlow, msg);
}

void get_out_flow_statistics(ubus_request* req, int, blob_attr* msg) {
    store_number(req, kOutFlow, msg);
}

void get_mem_usage(ubus_request* req, int, blob_attr* msg) {
    store_number(req, kMemoryUsage, msg);
}

void get_cpu_usage(ubus_request* req, int, blob_attr* msg) {
    store_number(req, kCpuUsage, msg);
}

void get_cpu_cur_usage(ubus_request* req, int, blob_attr* msg) {
    store_number(req, kCpuCurUsage, msg);
}

}  // namespace tq
