// Settings of a radio by the functions for them, beside the same options through the session
// itself.
#include <tq/uci_session.h>
#include <tq/wifi.h>

#include <cstdlib>

#include "support.h"

namespace {

uci_config_ctx open_radio(benchmark::State& state) {
    tq_bench::write_file("/etc/config/wireless",
                         "config wifi-device 'radio0'\n\toption RTSThreshold '2347'\n"
                         "\toption hwmode '16'\n\toption HT_BW '1'\n\toption VHT_BW '0'\n"
                         "\toption HT_EXTCHA '1'\n\n" +
                             tq_bench::config_text(16));
    uci_config_ctx radio;
    if (load_named_section(UCI_CONFIG_WIRELESS, &radio, "radio0") != 0)
        state.SkipWithError("no session");
    return radio;
}

void get_number(benchmark::State& state) {
    uci_config_ctx radio = open_radio(state);
    const tq_bench::CountAllocations count(state);
    int value = 0;
    for (auto _ : state) {
        wifi_get_rts_threshold(&radio, 0, &value);
        benchmark::DoNotOptimize(value);
    }
    free_uci_config(UCI_CONFIG_WIRELESS);
}

void get_number_by_hand(benchmark::State& state) {
    uci_config_ctx radio = open_radio(state);
    for (auto _ : state) {
        const char* text = get_uci_config(&radio, "RTSThreshold");
        benchmark::DoNotOptimize(text ? atoi(text) : 0);
    }
    free_uci_config(UCI_CONFIG_WIRELESS);
}

// The last row of the table.
void get_mode(benchmark::State& state) {
    uci_config_ctx radio = open_radio(state);
    const tq_bench::CountAllocations count(state);
    int mode = 0;
    for (auto _ : state) {
        wifi_get_wireless_mode(&radio, &mode);
        benchmark::DoNotOptimize(mode);
    }
    free_uci_config(UCI_CONFIG_WIRELESS);
}

void set_number(benchmark::State& state) {
    uci_config_ctx radio = open_radio(state);
    int value = 0;
    for (auto _ : state)
        wifi_set_rts_threshold(&radio, 0, ++value);
    free_uci_config(UCI_CONFIG_WIRELESS);
}

void set_number_by_hand(benchmark::State& state) {
    uci_config_ctx radio = open_radio(state);
    int value = 0;
    for (auto _ : state)
        set_uci_config(&radio, "RTSThreshold", std::to_string(++value).c_str());
    free_uci_config(UCI_CONFIG_WIRELESS);
}

BENCHMARK(get_number);
BENCHMARK(get_number_by_hand);
BENCHMARK(get_mode);
// The staged changes grow with each: a fixed number, so that both write the same.
BENCHMARK(set_number)->Iterations(500);
BENCHMARK(set_number_by_hand)->Iterations(500);

}  // namespace

BENCHMARK_MAIN();
