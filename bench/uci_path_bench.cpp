// One option of the UCI store, beside the same calls on libuci and beside the uci command.
// The argument is the number of sections in the file; the option is in the middle one.
#include <tq/uci_path.h>
#include <uci.h>

#include <cstdio>
#include <cstring>

#include "support.h"

namespace {

std::string middle_section(const benchmark::State& state) {
    return "vap" + std::to_string(state.range(0) / 2);
}

void write_config(const benchmark::State& state) {
    tq_bench::write_file("/etc/config/wireless",
                         tq_bench::config_text(static_cast<int>(state.range(0))));
}

void get_option(benchmark::State& state) {
    write_config(state);
    const std::string section = middle_section(state);
    const tq_bench::CountAllocations count(state);
    char value[64];
    for (auto _ : state) {
        uci_get_str_option_by_name("wireless", section.c_str(), "ssid", value, sizeof(value));
        benchmark::DoNotOptimize(value);
    }
}

void get_option_on_libuci(benchmark::State& state) {
    write_config(state);
    const std::string path = "wireless." + middle_section(state) + ".ssid";
    const tq_bench::CountAllocations count(state);
    char value[64];
    for (auto _ : state) {
        uci_context* context = uci_alloc_context();
        char copy[1024];
        strcpy(copy, path.c_str());  // NOLINT(clang-analyzer-security.insecureAPI.strcpy)
        uci_ptr found{};
        uci_lookup_ptr(context, &found, copy, true);
        snprintf(value, sizeof(value), "%s", found.o->v.string);
        benchmark::DoNotOptimize(value);
        uci_free_context(context);
    }
}

void get_option_by_command(benchmark::State& state) {
    write_config(state);
    const std::string command = "uci get wireless." + middle_section(state) + ".ssid";
    for (auto _ : state)
        tq_bench::run_to_end(command);
}

void set_option(benchmark::State& state) {
    write_config(state);
    const std::string section = middle_section(state);
    const tq_bench::CountAllocations count(state);
    for (auto _ : state) {
        uci_set_str_option_by_name("wireless", section.c_str(), "ssid",
                                   tq_bench::next_value().c_str());
    }
}

void set_option_on_libuci(benchmark::State& state) {
    write_config(state);
    const std::string path = "wireless." + middle_section(state) + ".ssid=";
    const tq_bench::CountAllocations count(state);
    for (auto _ : state) {
        char copy[1024];
        snprintf(copy, sizeof(copy), "%s%s", path.c_str(), tq_bench::next_value().c_str());
        uci_context* context = uci_alloc_context();
        uci_ptr target{};
        uci_lookup_ptr(context, &target, copy, true);
        uci_set(context, &target);
        uci_save(context, target.p);
        uci_free_context(context);

        context = uci_alloc_context();
        uci_ptr file{};
        char name[] = "wireless";
        uci_lookup_ptr(context, &file, name, true);
        uci_commit(context, &file.p, false);
        uci_free_context(context);
    }
}

void set_option_by_command(benchmark::State& state) {
    write_config(state);
    const std::string path = "wireless." + middle_section(state) + ".ssid=";
    for (auto _ : state) {
        tq_bench::run_to_end("uci set " + path + tq_bench::next_value());
        tq_bench::run_to_end("uci commit wireless");
    }
}

void by_sections(benchmark::internal::Benchmark* benchmark) {
    benchmark->Arg(10)->Arg(100)->Arg(1000)->Unit(benchmark::kMicrosecond)->UseRealTime();
}

BENCHMARK(get_option)->Apply(by_sections);
BENCHMARK(get_option_on_libuci)->Apply(by_sections);
BENCHMARK(get_option_by_command)->Apply(by_sections);
BENCHMARK(set_option)->Apply(by_sections);
BENCHMARK(set_option_on_libuci)->Apply(by_sections);
BENCHMARK(set_option_by_command)->Apply(by_sections);

}  // namespace

BENCHMARK_MAIN();
