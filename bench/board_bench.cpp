// Facts of the board, beside the bare call into the board library, whose reading of the description
// is most of the time on a workstation; and the WAN's name beside popen.
#include <syslog.h>
#include <tq/board.h>
#include <tq/oem.h>

#include <cstdio>

#include "support.h"

namespace {

char text[64];

// The traces are for a daemon that asks for them; the mask is what daemons run with.
void hide_traces() {
    setlogmask(LOG_UPTO(LOG_INFO));
}

void radio_device(benchmark::State& state) {
    hide_traces();
    const tq_bench::CountAllocations count(state);
    for (auto _ : state) {
        bbi_radio_device(1, text, sizeof(text));
        benchmark::DoNotOptimize(text);
    }
}

void radio_device_on_board_library(benchmark::State& state) {
    const tq_bench::CountAllocations count(state);
    for (auto _ : state) {
        tq_get_oem_ap_type_radio_index_info(AP_TYPE_RADIO_DEVICE, 1, text);
        benchmark::DoNotOptimize(text);
    }
}

void vap_name(benchmark::State& state) {
    const tq_bench::CountAllocations count(state);
    for (auto _ : state) {
        get_vap_name(1, 3, text, sizeof(text));
        benchmark::DoNotOptimize(text);
    }
}

void vap_name_on_board_library(benchmark::State& state) {
    const tq_bench::CountAllocations count(state);
    for (auto _ : state) {
        char prefix[32];
        const bool across = tq_get_oem_ap_type_common(AP_TYPE_VAP_NAME_MODE) == 1;
        tq_get_oem_ap_type_radio_index_info(AP_TYPE_RADIO_PREFIX_IFNAME, 1, prefix);
        snprintf(text, sizeof(text), "%s%d", prefix, across ? 19 : 3);
        benchmark::DoNotOptimize(text);
    }
}

void wifi_id(benchmark::State& state) {
    const tq_bench::CountAllocations count(state);
    int radio = 0;
    int vap = 0;
    for (auto _ : state) {
        tq_get_wifi_id(0, "wlan3", &radio, &vap);
        benchmark::DoNotOptimize(vap);
    }
}

void wan_name(benchmark::State& state) {
    for (auto _ : state) {
        get_wan_name(text, sizeof(text));
        benchmark::DoNotOptimize(text);
    }
}

void wan_name_by_popen(benchmark::State& state) {
    for (auto _ : state) {
        FILE* pipe = popen("get_wan_interface.sh", "r");
        (void)!fgets(text, sizeof(text), pipe);
        pclose(pipe);
        benchmark::DoNotOptimize(text);
    }
}

BENCHMARK(radio_device);
BENCHMARK(radio_device_on_board_library);
BENCHMARK(vap_name);
BENCHMARK(vap_name_on_board_library);
BENCHMARK(wifi_id);
BENCHMARK(wan_name)->Unit(benchmark::kMicrosecond)->UseRealTime();
BENCHMARK(wan_name_by_popen)->Unit(benchmark::kMicrosecond)->UseRealTime();

}  // namespace

BENCHMARK_MAIN();
