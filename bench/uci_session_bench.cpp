// Twelve settings of a radio in one session, beside the same by path and beside the uci command;
// and one value read in an open session. The argument is the number of sections in the file.
#include <tq/uci_path.h>
#include <tq/uci_session.h>

#include "support.h"

namespace {

constexpr const char* kOptions[] = {"channel",      "htmode",           "txpower",      "country",
                                    "RTSThreshold", "FragThreshold",    "DtimPeriod",   "HT_GI",
                                    "VHT_SGI",      "MinPhyBeaconRate", "McastPhyMode", "McastMcs"};
static_assert(std::size(kOptions) == 12);

// A radio in front of the VAPs.
void write_config(const benchmark::State& state) {
    std::string text = "config wifi-device 'radio0'\n";
    for (const char* option : kOptions) {
        text += "\toption " + std::string(option) + " 'x'\n";
    }
    tq_bench::write_file("/etc/config/wireless",
                         text + "\n" + tq_bench::config_text(static_cast<int>(state.range(0))));
}

void require(benchmark::State& state, bool done) {
    if (!done) state.SkipWithError("a setting failed");
}

// From nothing loaded to everything freed, as a process that makes one change does.
void twelve_settings(benchmark::State& state) {
    write_config(state);
    const tq_bench::CountAllocations count(state);
    for (auto _ : state) {
        const std::string value = tq_bench::next_value();
        uci_config_ctx radio;
        bool done = load_named_section(UCI_CONFIG_WIRELESS, &radio, "radio0") == 0;
        for (const char* option : kOptions)
            done = set_uci_config(&radio, option, value.c_str()) == 0 && done;
        done = save_uci_config(UCI_CONFIG_WIRELESS, nullptr, 0) == 0 && done;
        require(state, done && free_uci_config(UCI_CONFIG_WIRELESS) == 0);
    }
}

// The file stays loaded, as a daemon keeps it.
void twelve_settings_of_a_daemon(benchmark::State& state) {
    write_config(state);
    uci_config_ctx radio;
    require(state, load_named_section(UCI_CONFIG_WIRELESS, &radio, "radio0") == 0);
    const tq_bench::CountAllocations count(state);
    for (auto _ : state) {
        const std::string value = tq_bench::next_value();
        bool done = true;
        for (const char* option : kOptions)
            done = set_uci_config(&radio, option, value.c_str()) == 0 && done;
        require(state, save_uci_config(UCI_CONFIG_WIRELESS, nullptr, 0) == 0 && done);
    }
    free_uci_config(UCI_CONFIG_WIRELESS);
}

void twelve_settings_by_path(benchmark::State& state) {
    write_config(state);
    const tq_bench::CountAllocations count(state);
    for (auto _ : state) {
        const std::string value = tq_bench::next_value();
        bool done = true;
        for (const char* option : kOptions) {
            done = uci_set_str_option_by_name("wireless", "radio0", option, value.c_str()) == 0 &&
                   done;
        }
        require(state, done);
    }
}

void twelve_settings_by_command(benchmark::State& state) {
    write_config(state);
    for (auto _ : state) {
        const std::string value = tq_bench::next_value();
        for (const char* option : kOptions)
            tq_bench::run_to_end("uci set wireless.radio0." + std::string(option) + "=" + value);
        tq_bench::run_to_end("uci commit wireless");
    }
}

void get_in_a_session(benchmark::State& state) {
    write_config(state);
    const std::string section = "vap" + std::to_string(state.range(0) / 2);
    uci_config_ctx vap;
    require(state, load_named_section(UCI_CONFIG_WIRELESS, &vap, section.c_str()) == 0);
    const tq_bench::CountAllocations count(state);
    for (auto _ : state)
        benchmark::DoNotOptimize(get_uci_config(&vap, "ssid"));
    free_uci_config(UCI_CONFIG_WIRELESS);
}

void get_by_path(benchmark::State& state) {
    write_config(state);
    const std::string section = "vap" + std::to_string(state.range(0) / 2);
    const tq_bench::CountAllocations count(state);
    char value[64];
    for (auto _ : state) {
        uci_get_str_option_by_name("wireless", section.c_str(), "ssid", value, sizeof(value));
        benchmark::DoNotOptimize(value);
    }
}

void by_sections(benchmark::internal::Benchmark* benchmark) {
    benchmark->Arg(16)->Arg(100)->Unit(benchmark::kMicrosecond)->UseRealTime();
}

BENCHMARK(twelve_settings)->Apply(by_sections);
BENCHMARK(twelve_settings_of_a_daemon)->Apply(by_sections);
BENCHMARK(twelve_settings_by_path)->Apply(by_sections);
BENCHMARK(twelve_settings_by_command)->Apply(by_sections);
BENCHMARK(get_in_a_session)->Apply(by_sections);
BENCHMARK(get_by_path)->Apply(by_sections);

}  // namespace

BENCHMARK_MAIN();
