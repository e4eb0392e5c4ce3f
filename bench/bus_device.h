// bus_device.h - a service on the device's message bus, for the benchmarks that make requests.
#pragma once

#include <benchmark/benchmark.h>
#include <libubus.h>
#include <signal.h>
#include <sys/prctl.h>
#include <tq/bus.h>
#include <unistd.h>

#include <cstring>

namespace tq_bench {

inline constexpr char kObject[] = "statistics";
inline constexpr char kMethod[] = "get";

// Answers each question with one number.
inline int answer(ubus_context* context, ubus_object*, ubus_request_data* request,
                  const char* method, blob_attr*) {
    if (strcmp(method, kMethod) != 0) return 0;
    blob_buf reply{};
    blob_buf_init(&reply, 0);
    blobmsg_add_u32(&reply, "memoryUsage", 42);
    ubus_send_reply(context, request, reply.head);
    blob_buf_free(&reply);
    return 0;
}

inline void serve() {
    ubus_method methods[2]{};
    methods[0].name = kMethod;
    methods[1].name = "set";
    methods[0].handler = methods[1].handler = answer;
    ubus_object_type type{};
    type.name = "bench";
    type.methods = methods;
    type.n_methods = 2;
    ubus_object objects[2]{};
    objects[0].name = kObject;
    objects[1].name = "fm.action";
    uloop_init();
    ubus_context* context = ubus_connect(nullptr);
    if (!context) _exit(1);
    for (ubus_object& object : objects) {
        object.type = &type;
        object.methods = methods;
        object.n_methods = 2;
        ubus_add_object(context, &object);
    }
    ubus_add_uloop(context);
    uloop_run();
    _exit(0);
}

inline bool is_there(const char* object) {
    ubus_context* context = ubus_connect(nullptr);
    if (!context) return false;
    uint32_t id = 0;
    const bool found = ubus_lookup_id(context, object, &id) == 0;
    ubus_free(context);
    return found;
}

// Starts the service beside this program, and waits until it can be asked.
inline void start_service() {
    if (fork() == 0) {
        prctl(PR_SET_PDEATHSIG, SIGKILL);
        serve();
    }
    while (!is_there("fm.action"))
        usleep(1000);
}

// main() of a benchmark that makes requests over a connection of the library's.
inline int run_connected(int argc, char** argv) {
    start_service();
    if (init_ubus_client() != 0) return 1;
    benchmark::Initialize(&argc, argv);
    benchmark::RunSpecifiedBenchmarks();
    destroy_ubus_client();
    return 0;
}

}  // namespace tq_bench
