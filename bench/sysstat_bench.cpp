// The figures of /proc, beside the three system calls alone on the same file.
#include <fcntl.h>
#include <syslog.h>
#include <tq/sysstat.h>
#include <unistd.h>

#include <cstdint>
#include <cstdio>

#include "support.h"

namespace {

// What the kernel does for the file, whoever asks: it writes it anew for each reader. As many bytes
// are asked for as the call asks for.
template <size_t size>
void read_alone(benchmark::State& state, const char* path) {
    const tq_bench::CountAllocations count(state);
    char text[size];
    for (auto _ : state) {
        const int fd = open(path, O_RDONLY | O_CLOEXEC);
        benchmark::DoNotOptimize(read(fd, text, sizeof(text)));
        close(fd);
    }
}

template <int (*query)(uint32_t*, uint32_t*)>
void two_figures(benchmark::State& state) {
    const tq_bench::CountAllocations count(state);
    uint32_t total = 0;
    uint32_t part = 0;
    for (auto _ : state)
        benchmark::DoNotOptimize(query(&total, &part));
}

template <int (*query)(uint32_t*)>
void one_figure(benchmark::State& state) {
    const tq_bench::CountAllocations count(state);
    uint32_t figure = 0;
    for (auto _ : state)
        benchmark::DoNotOptimize(query(&figure));
}

void stat_by_hand(benchmark::State& state) {
    const tq_bench::CountAllocations count(state);
    unsigned n[7] = {};
    for (auto _ : state) {
        FILE* file = fopen("/proc/stat", "r");
        benchmark::DoNotOptimize(fscanf(file, "cpu %u %u %u %u %u %u %u", &n[0], &n[1], &n[2],
                                        &n[3], &n[4], &n[5], &n[6]));
        fclose(file);
    }
}

void processor_type(benchmark::State& state) {
    const tq_bench::CountAllocations count(state);
    char type[64];
    for (auto _ : state)
        benchmark::DoNotOptimize(tq_hal_get_processor_type(type, sizeof(type)));
}

constexpr size_t kLine = 1023;
constexpr size_t kWhole = 8192;

void stat_alone(benchmark::State& state) {
    read_alone<kLine>(state, "/proc/stat");
}

void meminfo_alone(benchmark::State& state) {
    read_alone<kWhole>(state, "/proc/meminfo");
}

void cpuinfo_alone(benchmark::State& state) {
    read_alone<kLine>(state, "/proc/cpuinfo");
}

BENCHMARK(two_figures<tq_get_cpu_ticks>)->Name("tq_get_cpu_ticks");
BENCHMARK(two_figures<get_proc_cpuinfo>)->Name("get_proc_cpuinfo");
BENCHMARK(stat_alone);
BENCHMARK(stat_by_hand);
BENCHMARK(one_figure<tq_hal_get_sdram_size>)->Name("tq_hal_get_sdram_size");
BENCHMARK(one_figure<tq_get_memory_real_usage>)->Name("tq_get_memory_real_usage");
BENCHMARK(meminfo_alone);
BENCHMARK(processor_type);
BENCHMARK(cpuinfo_alone);

}  // namespace

// The traces are for whoever asks for them.
int main(int argc, char** argv) {
    setlogmask(LOG_UPTO(LOG_INFO));
    benchmark::Initialize(&argc, argv);
    benchmark::RunSpecifiedBenchmarks();
    return 0;
}
