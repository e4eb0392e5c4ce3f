// A number of the statistics service, beside reading it from the command ubus.
#include <tq/bus.h>
#include <tq/bwctl.h>

#include <cstdio>
#include <cstdlib>
#include <cstring>

#include "bus_device.h"
#include "support.h"

namespace {

void get_mem_usage(benchmark::State& state) {
    const tq_bench::CountAllocations count(state);
    uint32_t usage = 0;
    for (auto _ : state)
        benchmark::DoNotOptimize(tq_get_mem_usage(&usage));
}

void get_mem_usage_by_command(benchmark::State& state) {
    char line[256];
    long usage = 0;
    for (auto _ : state) {
        FILE* pipe = popen("ubus call statistics get '{\"class_type\":2}'", "r");
        while (fgets(line, sizeof(line), pipe)) {
            const char* value = strstr(line, "\"memoryUsage\": ");
            if (value) usage = strtol(value + strlen("\"memoryUsage\": "), nullptr, 10);
        }
        pclose(pipe);
        benchmark::DoNotOptimize(usage);
    }
}

BENCHMARK(get_mem_usage)->Unit(benchmark::kMicrosecond)->UseRealTime();
BENCHMARK(get_mem_usage_by_command)->Unit(benchmark::kMicrosecond)->UseRealTime();

}  // namespace

int main(int argc, char** argv) {
    return tq_bench::run_connected(argc, argv);
}
