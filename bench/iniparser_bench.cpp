// INI files, beside Debian's libiniparser, and beside inih for parsing alone. The argument is the
// number of keys, ten to a section.
#include <ini.h>
#include <tq/iniparser.h>

#include <algorithm>
#include <random>
#include <string>
#include <vector>

#include "support.h"
#ifdef TQ_OTHER_INIPARSER
#include "ini/other_iniparser.h"
#endif

namespace {

constexpr const char* kFile = "/tmp/bench.ini";

std::string section(int64_t key) {
    return "section" + std::to_string(key / 10);
}

void write_ini(int64_t keys) {
    std::string text;
    for (int64_t key = 0; key < keys; key++) {
        if (key % 10 == 0) text += "[" + section(key) + "]\n";
        text += "key" + std::to_string(key) + " = value " + std::to_string(key) + "\n";
    }
    tq_bench::write_file(kFile, text);
}

std::vector<std::string> shuffled_names(int64_t keys) {
    std::vector<std::string> names;
    for (int64_t key = 0; key < keys; key++)
        names.push_back(section(key) + ":key" + std::to_string(key));
    std::ranges::shuffle(names, std::mt19937(static_cast<unsigned>(keys)));
    return names;
}

template <auto load, auto free>
void load_file(benchmark::State& state) {
    write_ini(state.range(0));
    const tq_bench::CountAllocations count(state);
    for (auto _ : state)
        free(load(kFile));
}

int take_entry(void* user, const char* section, const char* name, const char* value) {
    benchmark::DoNotOptimize(user);
    benchmark::DoNotOptimize(section);
    benchmark::DoNotOptimize(name);
    benchmark::DoNotOptimize(value);
    return 1;
}

void parse_by_inih(benchmark::State& state) {
    write_ini(state.range(0));
    for (auto _ : state)
        ini_parse(kFile, take_entry, nullptr);
}

template <auto load, auto get, auto free>
void get_entry(benchmark::State& state) {
    write_ini(state.range(0));
    auto* table = load(kFile);
    const std::vector<std::string> names = shuffled_names(state.range(0));
    auto name = names.begin();
    for (auto _ : state) {
        benchmark::DoNotOptimize(get(table, name->c_str(), nullptr));
        if (++name == names.end()) name = names.begin();
    }
    free(table);
}

void by_keys(benchmark::internal::Benchmark* benchmark) {
    benchmark->RangeMultiplier(10)->Range(10, 100000);
}

BENCHMARK(load_file<iniparser_load, iniparser_freedict>)->Name("load/libtq")->Apply(by_keys);
BENCHMARK(parse_by_inih)->Name("load/inih")->Apply(by_keys);
BENCHMARK(get_entry<iniparser_load, iniparser_getstring, iniparser_freedict>)
    ->Name("get/libtq")
    ->Apply(by_keys);
#ifdef TQ_OTHER_INIPARSER
BENCHMARK(load_file<other_iniparser_load, other_iniparser_freedict>)
    ->Name("load/libiniparser")
    ->Apply(by_keys);
BENCHMARK(get_entry<other_iniparser_load, other_iniparser_getstring, other_iniparser_freedict>)
    ->Name("get/libiniparser")
    ->Apply(by_keys);
#endif

}  // namespace

BENCHMARK_MAIN();
