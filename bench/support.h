// support.h - what the benchmarks share: input files, and the number of allocations.
#pragma once

#include <benchmark/benchmark.h>

#include <cstddef>
#include <string>

namespace tq_bench {

void write_file(const std::string& path, const std::string& content);

// A wireless-like configuration of that many sections of type "wifi-iface", named vap0, vap1, ...
std::string config_text(int sections);

// Another value each time: a write that changes nothing would cost less.
std::string next_value();

// Runs a command and reads what it prints, as one does that wants to know.
void run_to_end(const std::string& command);

// Heap allocations made by this process so far.
size_t allocations();

// Adds the counter "allocs", a mean over the iterations, to the state it was made with.
class CountAllocations {
  public:
    explicit CountAllocations(benchmark::State& state) : state_(state), before_(allocations()) {}
    ~CountAllocations();
    CountAllocations(const CountAllocations&) = delete;
    CountAllocations& operator=(const CountAllocations&) = delete;

  private:
    benchmark::State& state_;
    size_t before_;
};

}  // namespace tq_bench
