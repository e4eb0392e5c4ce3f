// services.cpp - plays the access point's daemons on the bus: bandwidth control, statistics, fault
// management.
//
// Each object takes what the firmware's daemon takes, logs it (facility daemon, priority notice),
// and remembers the last of each method, which its method "last" tells. Statistics are the device's
// own: traffic by interface index, memory and processor in percent.
#include <ifaddrs.h>
#include <libubus.h>
#include <linux/if_link.h>
#include <net/if.h>
#include <sys/socket.h>
#include <sys/sysinfo.h>
#include <syslog.h>
#include <unistd.h>

#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <iterator>

namespace {

// ---- statistics ----

enum StatisticsClass : uint32_t { kInFlow, kOutFlow, kMemory, kProcessor, kProcessorNow };

// The low 32 bits of an interface's byte count; 0 for an interface that is not there.
uint32_t flow_of(unsigned int index, bool inbound) {
    ifaddrs* addresses = nullptr;
    if (getifaddrs(&addresses) < 0) return 0;
    uint32_t bytes = 0;
    for (const ifaddrs* address = addresses; address; address = address->ifa_next) {
        if (!address->ifa_addr || address->ifa_addr->sa_family != AF_PACKET || !address->ifa_data)
            continue;
        if (if_nametoindex(address->ifa_name) != index) continue;
        const auto* counts = static_cast<const rtnl_link_stats*>(address->ifa_data);
        bytes = inbound ? counts->rx_bytes : counts->tx_bytes;
    }
    freeifaddrs(addresses);
    return bytes;
}

uint32_t memory_usage() {
    struct sysinfo info = {};
    if (sysinfo(&info) < 0 || info.totalram == 0) return 0;
    return static_cast<uint32_t>(100 - info.freeram * 100 / info.totalram);
}

struct Ticks {
    unsigned long long busy;
    unsigned long long all;
};

Ticks processor_ticks() {
    Ticks ticks = {};
    FILE* stream = fopen("/proc/stat", "re");
    if (!stream) return ticks;
    unsigned long long counts[8] = {};
    const int read =
        fscanf(stream, "cpu %llu %llu %llu %llu %llu %llu %llu %llu", &counts[0], &counts[1],
               &counts[2], &counts[3], &counts[4], &counts[5], &counts[6], &counts[7]);
    fclose(stream);
    for (int i = 0; i < read; i++) {
        ticks.all += counts[i];
    }
    // The fourth and fifth are idle and waiting.
    ticks.busy = ticks.all - counts[3] - counts[4];
    return ticks;
}

uint32_t usage_since(const Ticks& before, const Ticks& now) {
    if (now.all <= before.all || now.busy < before.busy) return 0;
    return static_cast<uint32_t>((now.busy - before.busy) * 100 / (now.all - before.all));
}

uint32_t processor_usage_now() {
    static Ticks before;
    const Ticks now = processor_ticks();
    const uint32_t usage = usage_since(before, now);
    before = now;
    return usage;
}

bool put_statistics(blob_buf* reply, uint32_t class_type, uint32_t index) {
    switch (class_type) {
        case kInFlow:
            return blobmsg_add_u32(reply, "ifInFlow", flow_of(index, true)) == 0;
        case kOutFlow:
            return blobmsg_add_u32(reply, "ifOutFlow", flow_of(index, false)) == 0;
        case kMemory:
            return blobmsg_add_u32(reply, "memoryUsage", memory_usage()) == 0;
        case kProcessor:
            return blobmsg_add_u32(reply, "cpuUsage", usage_since({}, processor_ticks())) == 0;
        case kProcessorNow:
            return blobmsg_add_u32(reply, "cpuCurUsage", processor_usage_now()) == 0;
        default:
            return false;
    }
}

enum { kClassType, kIndex, kStatisticsArguments };
constexpr blobmsg_policy kStatisticsPolicy[kStatisticsArguments] = {
    {"class_type", BLOBMSG_TYPE_INT32}, {"index", BLOBMSG_TYPE_INT32}};

int get_statistics(ubus_context* ctx, ubus_object* /*object*/, ubus_request_data* req,
                   const char* /*method*/, blob_attr* message) {
    blob_attr* found[kStatisticsArguments];
    blobmsg_parse_attr(kStatisticsPolicy, kStatisticsArguments, found, message);
    if (!found[kClassType]) return UBUS_STATUS_INVALID_ARGUMENT;
    blob_buf reply = {};
    blob_buf_init(&reply, 0);
    const uint32_t index = found[kIndex] ? blobmsg_get_u32(found[kIndex]) : 0;
    int status = UBUS_STATUS_INVALID_ARGUMENT;
    if (put_statistics(&reply, blobmsg_get_u32(found[kClassType]), index))
        status = ubus_send_reply(ctx, req, reply.head);
    blob_buf_free(&reply);
    return status;
}

// ---- what only takes ----

constexpr int kMaxMethods = 4;

// An object, and the last message to each of its methods, by the method's place.
struct Service {
    ubus_object object;
    ubus_object_type type;
    blob_attr* last[kMaxMethods];
};

Service* service_of(ubus_object* object) {
    return container_of(object, Service, object);
}

void log_message(const char* path, const char* method, const blob_attr* message) {
    char text[512];
    size_t used = 0;
    blob_attr* element = nullptr;
    size_t rem = 0;
    text[0] = '\0';
    blobmsg_for_each_attr(element, message, rem) {
        if (!blobmsg_check_attr_len(element, false, rem) || used >= sizeof(text)) break;
        const bool is_text = blobmsg_type(element) == BLOBMSG_TYPE_STRING;
        const int added =
            is_text ? snprintf(text + used, sizeof(text) - used, " %s=%s", blobmsg_name(element),
                               blobmsg_get_string(element))
                    : snprintf(text + used, sizeof(text) - used, " %s=%lld", blobmsg_name(element),
                               static_cast<long long>(blobmsg_cast_s64(element)));
        if (added > 0) used += static_cast<size_t>(added);
    }
    syslog(LOG_NOTICE, "%s %s:%s", path, method, text);
}

int take(ubus_context* /*ctx*/, ubus_object* object, ubus_request_data* /*req*/, const char* method,
         blob_attr* message) {
    Service* service = service_of(object);
    for (int i = 0; i < object->n_methods; i++) {
        if (strcmp(object->methods[i].name, method) != 0) continue;
        free(service->last[i]);
        service->last[i] = blob_memdup(message);
    }
    log_message(object->name, method, message);
    return UBUS_STATUS_OK;
}

int tell_last(ubus_context* ctx, ubus_object* object, ubus_request_data* req,
              const char* /*method*/, blob_attr* /*message*/) {
    const Service* service = service_of(object);
    blob_buf reply = {};
    blob_buf_init(&reply, 0);
    for (int i = 0; i < object->n_methods; i++) {
        const blob_attr* last = service->last[i];
        if (last)
            blobmsg_add_field(&reply, BLOBMSG_TYPE_TABLE, object->methods[i].name, blob_data(last),
                              static_cast<unsigned int>(blob_len(last)));
    }
    const int status = ubus_send_reply(ctx, req, reply.head);
    blob_buf_free(&reply);
    return status;
}

// ---- the objects ----

constexpr blobmsg_policy kLimit[] = {{"class_type", BLOBMSG_TYPE_INT32},
                                     {"vap_name", BLOBMSG_TYPE_STRING},
                                     {"macaddr", BLOBMSG_TYPE_STRING},
                                     {"up", BLOBMSG_TYPE_INT32},
                                     {"down", BLOBMSG_TYPE_INT32}};
constexpr blobmsg_policy kStationLimit[] = {{"vap_name", BLOBMSG_TYPE_STRING},
                                            {"maxassoc", BLOBMSG_TYPE_INT32}};
constexpr blobmsg_policy kPeer[] = {{"addr", BLOBMSG_TYPE_STRING},
                                    {"port", BLOBMSG_TYPE_INT32},
                                    {"probable_cause", BLOBMSG_TYPE_STRING},
                                    {"specific_cause", BLOBMSG_TYPE_STRING}};
constexpr blobmsg_policy kWifiDown[] = {{"raido", BLOBMSG_TYPE_INT32},
                                        {"wlan", BLOBMSG_TYPE_INT32},
                                        {"status", BLOBMSG_TYPE_STRING},
                                        {"probable_cause", BLOBMSG_TYPE_STRING}};
constexpr blobmsg_policy kNumber[] = {{"value", BLOBMSG_TYPE_INT32}};
constexpr blobmsg_policy kThreshold[] = {{"id", BLOBMSG_TYPE_INT32}, {"value", BLOBMSG_TYPE_INT32}};
// Over the bus the field has the object's name; the shell's commands call it value.
constexpr blobmsg_policy kUrl[] = {{"fm.url", BLOBMSG_TYPE_STRING}, {"value", BLOBMSG_TYPE_STRING}};
constexpr blobmsg_policy kSuppress[] = {{"fm.suppress", BLOBMSG_TYPE_STRING},
                                        {"value", BLOBMSG_TYPE_STRING}};

constexpr ubus_method kLast = UBUS_METHOD_NOARG("last", tell_last);

constexpr ubus_method kBandwidth[] = {UBUS_METHOD("set", take, kLimit),
                                      UBUS_METHOD("del", take, kLimit),
                                      UBUS_METHOD_NOARG("reload", take), kLast};
constexpr ubus_method kMaxStations[] = {UBUS_METHOD("set", take, kStationLimit), kLast};
constexpr ubus_method kStatistics[] = {UBUS_METHOD("get", get_statistics, kStatisticsPolicy)};
constexpr ubus_method kConnection[] = {UBUS_METHOD("connect", take, kPeer),
                                       UBUS_METHOD("disconnect", take, kPeer), kLast};
constexpr ubus_method kReload[] = {UBUS_METHOD_NOARG("reload", take), kLast};
constexpr ubus_method kWifiDownCause[] = {UBUS_METHOD("set", take, kWifiDown), kLast};
constexpr ubus_method kAction[] = {UBUS_METHOD("set", take, kNumber), kLast};
constexpr ubus_method kUrlMethods[] = {UBUS_METHOD("set", take, kUrl), kLast};
constexpr ubus_method kThresholdMethods[] = {UBUS_METHOD("set", take, kThreshold), kLast};
constexpr ubus_method kSuppressMethods[] = {UBUS_METHOD("set", take, kSuppress), kLast};

struct Description {
    const char* path;
    const ubus_method* methods;
    int count;
};

template <int kCount>
constexpr Description describe(const char* path, const ubus_method (&methods)[kCount]) {
    static_assert(kCount <= kMaxMethods);
    return {path, methods, kCount};
}

constexpr Description kObjects[] = {
    describe("bwctrl", kBandwidth),
    describe("bwctrl.maxassoc", kMaxStations),
    describe("statistics", kStatistics),
    describe("fm.ac", kConnection),
    describe("fm.ntp", kConnection),
    describe("fm.ism_server", kConnection),
    describe("fm.reload.wifi", kReload),
    describe("fm.wifi_down.cause", kWifiDownCause),
    describe("fm.action", kAction),
    describe("fm.url", kUrlMethods),
    describe("fm.threshold", kThresholdMethods),
    describe("fm.suppress", kSuppressMethods),
};

Service services[std::size(kObjects)];

bool add(ubus_context* ctx, const Description& description, Service* service) {
    service->type.name = description.path;
    service->type.methods = description.methods;
    service->type.n_methods = description.count;
    service->object.name = description.path;
    service->object.type = &service->type;
    service->object.methods = description.methods;
    service->object.n_methods = description.count;
    const int status = ubus_add_object(ctx, &service->object);
    if (status != UBUS_STATUS_OK)
        fprintf(stderr, "device_services: %s: %s\n", description.path, ubus_strerror(status));
    return status == UBUS_STATUS_OK;
}

bool add_all(ubus_context* ctx) {
    for (size_t i = 0; i < std::size(kObjects); i++) {
        if (!add(ctx, kObjects[i], &services[i])) return false;
    }
    return true;
}

}  // namespace

int main() {
    openlog("device_services", 0, LOG_DAEMON);
    if (uloop_init() < 0) return 1;
    ubus_context* ctx = ubus_connect(nullptr);
    if (!ctx) {
        perror("device_services: the bus");
        return 1;
    }
    const bool ready = add_all(ctx);
    // Who starts this has the objects once it returns.
    if (ready && daemon(0, 0) == 0) {
        ubus_add_uloop(ctx);
        uloop_run();
    }
    ubus_free(ctx);
    uloop_done();
    for (Service& service : services) {
        for (blob_attr*& last : service.last) {
            free(last);
        }
    }
    return ready ? 0 : 1;
}
