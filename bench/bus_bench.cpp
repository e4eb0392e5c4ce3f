// A request over the bus, beside the same look-up, message and call on the bare client, and beside
// the command ubus. The service is another process and answers with one number.
#include <libubus.h>
#include <malloc.h>
#include <tq/bus.h>

#include "bus_device.h"
#include "support.h"

namespace {

constexpr notify_param kParams[] = {
    {"class_type", NOTIFY_PARAM_INT, 2, nullptr}, {"name", NOTIFY_PARAM_STRING, 0, "ath0"}, {}};

void request_once() {
    uint32_t number = 0;
    benchmark::DoNotOptimize(notify_ubus_server(tq_bench::kObject, tq_bench::kMethod, kParams,
                                                get_log_data, &number, 3000));
}

void request(benchmark::State& state) {
    const tq_bench::CountAllocations count(state);
    for (auto _ : state)
        request_once();
    state.SetItemsProcessed(state.iterations());
}

void store_number(ubus_request* req, int, blob_attr* msg) {
    const blobmsg_policy policy{"memoryUsage", BLOBMSG_TYPE_INT32};
    blob_attr* value = nullptr;
    blobmsg_parse(&policy, 1, &value, blob_data(msg), static_cast<unsigned>(blob_len(msg)));
    if (value) *static_cast<uint32_t*>(req->priv) = blobmsg_get_u32(value);
}

void request_on_the_bare_client(benchmark::State& state) {
    ubus_context* context = ubus_connect(nullptr);
    const tq_bench::CountAllocations count(state);
    for (auto _ : state) {
        uint32_t id = 0;
        uint32_t number = 0;
        ubus_lookup_id(context, tq_bench::kObject, &id);
        blob_buf message{};
        blob_buf_init(&message, 0);
        blobmsg_add_u32(&message, "class_type", 2);
        blobmsg_add_string(&message, "name", "ath0");
        benchmark::DoNotOptimize(
            ubus_invoke(context, id, tq_bench::kMethod, message.head, store_number, &number, 3000));
        blob_buf_free(&message);
    }
    ubus_free(context);
}

void request_by_command(benchmark::State& state) {
    for (auto _ : state)
        tq_bench::run_to_end("ubus call statistics get '{\"class_type\":2,\"name\":\"ath0\"}'");
}

size_t bytes_after(int requests) {
    for (int i = 0; i < requests; i++)
        request_once();
    return mallinfo2().uordblks;
}

// What is allocated after 10^3 requests, and after 10^5.
void memory(benchmark::State& state) {
    for (auto _ : state) {
        state.counters["after_1e3"] = static_cast<double>(bytes_after(1000));
        state.counters["after_1e5"] = static_cast<double>(bytes_after(99000));
    }
}

BENCHMARK(request)->Unit(benchmark::kMicrosecond)->UseRealTime();
BENCHMARK(request_on_the_bare_client)->Unit(benchmark::kMicrosecond)->UseRealTime();
BENCHMARK(request_by_command)->Unit(benchmark::kMicrosecond)->UseRealTime();
BENCHMARK(request)->Threads(8)->Unit(benchmark::kMicrosecond)->UseRealTime();
BENCHMARK(memory)->Iterations(1)->Unit(benchmark::kMillisecond);

}  // namespace

int main(int argc, char** argv) {
    return tq_bench::run_connected(argc, argv);
}
