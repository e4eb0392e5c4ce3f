// A dictionary's changes, beside Debian's libiniparser. The argument is the number of keys.
#include <tq/dictionary.h>

#include <algorithm>
#include <random>
#include <string>
#include <vector>

#include "support.h"
#ifdef TQ_OTHER_INIPARSER
#include "ini/other_iniparser.h"
#endif

namespace {

std::vector<std::string> shuffled_names(int64_t keys) {
    std::vector<std::string> names;
    for (int64_t key = 0; key < keys; key++)
        names.push_back("section:key" + std::to_string(key));
    std::ranges::shuffle(names, std::mt19937(static_cast<unsigned>(keys)));
    return names;
}

// The time is that of one set; making and freeing the table are not counted.
template <auto make, auto set, auto free>
void set_new(benchmark::State& state) {
    const std::vector<std::string> names = shuffled_names(state.range(0));
    for (auto _ : state) {
        auto* table = make(0);
        for (const std::string& name : names)
            set(table, name.c_str(), "value");
        state.PauseTiming();
        free(table);
        state.ResumeTiming();
    }
    state.counters["a key"] = benchmark::Counter(
        static_cast<double>(state.range(0)),
        benchmark::Counter::kIsIterationInvariantRate | benchmark::Counter::kInvert);
}

// The two libraries count slots in different types.
template <typename Table, typename Size>
Table* make_table(Table* (*make)(Size), int64_t slots) {
    return make(static_cast<Size>(slots));
}

// One key goes and comes again, in a table that is full but for it.
template <auto make, auto set, auto unset, auto free>
void unset_and_set(benchmark::State& state) {
    const std::vector<std::string> names = shuffled_names(state.range(0));
    auto* table = make_table(make, state.range(0));
    for (const std::string& name : names)
        set(table, name.c_str(), "value");
    auto name = names.begin();
    for (auto _ : state) {
        unset(table, name->c_str());
        set(table, name->c_str(), "value");
        if (++name == names.end()) name = names.begin();
    }
    free(table);
}

void by_keys(benchmark::internal::Benchmark* benchmark) {
    benchmark->RangeMultiplier(10)->Range(10, 100000);
}

BENCHMARK(set_new<dictionary_new, dictionary_set, dictionary_del>)
    ->Name("set/libtq")
    ->Apply(by_keys);
BENCHMARK(unset_and_set<dictionary_new, dictionary_set, dictionary_unset, dictionary_del>)
    ->Name("unset_and_set/libtq")
    ->Apply(by_keys);
#ifdef TQ_OTHER_INIPARSER
BENCHMARK(set_new<other_dictionary_new, other_dictionary_set, other_dictionary_del>)
    ->Name("set/libiniparser")
    ->Apply(by_keys);
BENCHMARK(unset_and_set<other_dictionary_new, other_dictionary_set, other_dictionary_unset,
                        other_dictionary_del>)
    ->Name("unset_and_set/libiniparser")
    ->Apply(by_keys);
#endif

}  // namespace

BENCHMARK_MAIN();
