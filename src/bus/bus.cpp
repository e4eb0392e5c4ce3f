#include "tq/bus.h"

#include <libubus.h>
#include <pthread.h>

#include <cstddef>
#include <cstring>
#include <iterator>

#include "bus/bus.h"
#include "foundation/log.h"

// Callers build these records by hand.
static_assert(offsetof(notify_param, type) == sizeof(void*));
static_assert(offsetof(notify_param, int_value) == sizeof(void*) + 4);
static_assert(sizeof(notify_param) == 2 * sizeof(void*) + 8);

namespace {

using tq::LogSite;

// The connection, null while there is none, and the lock of its requests, which lives as long.
constinit ubus_context* context = nullptr;
constinit pthread_mutex_t request_mutex = {};

class RequestLock {
  public:
    RequestLock() { pthread_mutex_lock(&request_mutex); }
    ~RequestLock() { pthread_mutex_unlock(&request_mutex); }
    RequestLock(const RequestLock&) = delete;
    RequestLock& operator=(const RequestLock&) = delete;
};

class Message {
  public:
    Message() { note(blob_buf_init(&buffer_, 0)); }
    ~Message() {
        if (buffer_.buf) blob_buf_free(&buffer_);
    }
    Message(const Message&) = delete;
    Message& operator=(const Message&) = delete;

    void add(const char* name, uint32_t value) {
        if (!is_broken_) note(blobmsg_add_u32(&buffer_, name, value));
    }
    void add(const char* name, const char* value) {
        if (!is_broken_) note(blobmsg_add_string(&buffer_, name, value));
    }

    [[nodiscard]] bool is_broken() const { return is_broken_; }
    [[nodiscard]] blob_attr* content() const { return buffer_.head; }

  private:
    void note(int result) { is_broken_ = result != 0; }

    blob_buf buffer_ = {};
    bool is_broken_ = false;
};

int add_param(Message& message, const notify_param& param, LogSite site) {
    switch (param.type) {
        case NOTIFY_PARAM_INT:
            message.add(param.name, param.int_value);
            return 0;
        case NOTIFY_PARAM_STRING:
            if (!param.str_value) {
                return TQ_FAIL_AS(site, "invalid parameter name[%s]\n\n", param.name);
            }
            message.add(param.name, param.str_value);
            return 0;
        default:
            return TQ_FAIL_AS(site, "invalid parameter name[%s] type[%d]\n\n", param.name,
                              param.type);
    }
}

int add_params(Message& message, const notify_param* params, LogSite site) {
    for (const notify_param* param = params; param && param->name; param++) {
        if (add_param(message, *param, site) != 0) return -1;
    }
    return 0;
}

// What the reply handlers look for; each index below is the place of its key.
constexpr blobmsg_policy kStatisticsPolicy[] = {
    {"ifInFlow", BLOBMSG_TYPE_INT32},    {"ifOutFlow", BLOBMSG_TYPE_INT32},
    {"memoryUsage", BLOBMSG_TYPE_INT32}, {"cpuUsage", BLOBMSG_TYPE_INT32},
    {"cpuCurUsage", BLOBMSG_TYPE_INT32},
};
enum Statistic { kInFlow, kOutFlow, kMemoryUsage, kCpuUsage, kCpuCurUsage };

constexpr blobmsg_policy kLogDataPolicy[] = {
    {"level", BLOBMSG_TYPE_INT32}, {"status", BLOBMSG_TYPE_INT32},    {"size", BLOBMSG_TYPE_INT32},
    {"ip", BLOBMSG_TYPE_STRING},   {"errorcode", BLOBMSG_TYPE_INT32},
};
enum LogDatum { kLevel, kStatus, kSize, kIp, kErrorCode };

// The values of a reply, by their places in its policy; null where it has no such key, or has it
// with another type. The bytes are another process's: libubox checks them against their lengths.
template <size_t N>
class Reply {
  public:
    Reply(const blobmsg_policy (&policy)[N], blob_attr* msg) {
        if (msg)
            blobmsg_parse(policy, N, values_, blob_data(msg), static_cast<unsigned>(blob_len(msg)));
    }

    [[nodiscard]] blob_attr* operator[](size_t place) const { return values_[place]; }

  private:
    blob_attr* values_[N] = {};
};

void store_number(ubus_request* req, blob_attr* value) {
    *static_cast<uint32_t*>(req->priv) = blobmsg_get_u32(value);
}

void store_text(ubus_request* req, blob_attr* value) {
    const char* text = blobmsg_get_string(value);
    memcpy(req->priv, text, strlen(text) + 1);
}

void store_statistic(ubus_request* req, blob_attr* msg, Statistic statistic) {
    if (!req->priv) return;
    const Reply reply(kStatisticsPolicy, msg);
    if (!reply[statistic]) {
        req->priv = nullptr;
        return;
    }
    store_number(req, reply[statistic]);
}

// The first of the numbers that a log service answers with.
blob_attr* log_number(const Reply<std::size(kLogDataPolicy)>& reply) {
    for (const LogDatum datum : {kLevel, kStatus, kSize}) {
        if (reply[datum]) return reply[datum];
    }
    return nullptr;
}

}  // namespace

int init_ubus_client(void) {
    destroy_ubus_client();
    context = ubus_connect(nullptr);
    if (!context) return TQ_FAIL("Failed to connect to ubus\n\n");
    pthread_mutex_init(&request_mutex, nullptr);
    uloop_init();
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
    const RequestLock lock;
    uint32_t object = 0;
    if (ubus_lookup_id(context, object_path, &object) != 0) {
        return TQ_FAIL("Failed to look up %s object\n\n", object_path);
    }
    Message message;
    if (add_params(message, params, TQ_HERE) != 0) return -1;
    if (message.is_broken()) return TQ_FAIL("cannot build a message to %s\n", object_path);
    return ubus_invoke(context, object, method, message.content(), handler, priv, timeout_ms);
}

void get_log_data(ubus_request* req, int, blob_attr* msg) {
    if (!req) {
        TQ_LOG(LOG_ERR, "invalid parameters\n\n");
        return;
    }
    if (!req->priv) return;
    const Reply reply(kLogDataPolicy, msg);
    if (reply[kErrorCode] && blobmsg_get_u32(reply[kErrorCode]) != 0) {
        req->priv = nullptr;
        return;
    }
    if (blob_attr* number = log_number(reply)) return store_number(req, number);
    if (reply[kIp]) return store_text(req, reply[kIp]);
    req->priv = nullptr;
}

namespace tq {

bool is_bus_connected() {
    return context != nullptr;
}

void get_in_flow_statistics(ubus_request* req, int, blob_attr* msg) {
    store_statistic(req, msg, kInFlow);
}

void get_out_flow_statistics(ubus_request* req, int, blob_attr* msg) {
    store_statistic(req, msg, kOutFlow);
}

void get_mem_usage(ubus_request* req, int, blob_attr* msg) {
    store_statistic(req, msg, kMemoryUsage);
}

void get_cpu_usage(ubus_request* req, int, blob_attr* msg) {
    store_statistic(req, msg, kCpuUsage);
}

void get_cpu_cur_usage(ubus_request* req, int, blob_attr* msg) {
    store_statistic(req, msg, kCpuCurUsage);
}

}  // namespace tq
