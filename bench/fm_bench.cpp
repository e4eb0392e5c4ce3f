// A setting of the fault management: over the bus, and by the command that it falls back to, beside
// running that command by hand.
#include <tq/bus.h>
#include <tq/fm.h>

#include <cstdlib>

#include "bus_device.h"
#include "support.h"

namespace {

void set_action(benchmark::State& state) {
    init_ubus_client();
    const tq_bench::CountAllocations count(state);
    for (auto _ : state)
        benchmark::DoNotOptimize(set_fm_action(5));
}

void set_action_by_command(benchmark::State& state) {
    destroy_ubus_client();
    const tq_bench::CountAllocations count(state);
    for (auto _ : state)
        benchmark::DoNotOptimize(set_fm_action(5));
}

void set_action_by_hand(benchmark::State& state) {
    for (auto _ : state)
        benchmark::DoNotOptimize(system("ubus call fm.action set '{\"value\":5}' 2> /dev/null"));
}

BENCHMARK(set_action)->Unit(benchmark::kMicrosecond)->UseRealTime();
BENCHMARK(set_action_by_command)->Unit(benchmark::kMicrosecond)->UseRealTime();
BENCHMARK(set_action_by_hand)->Unit(benchmark::kMicrosecond)->UseRealTime();

}  // namespace

int main(int argc, char** argv) {
    tq_bench::start_service();
    benchmark::Initialize(&argc, argv);
    benchmark::RunSpecifiedBenchmarks();
    destroy_ubus_client();
    return 0;
}
