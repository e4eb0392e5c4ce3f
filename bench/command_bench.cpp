// Commands and text files, beside the stdio calls that a daemon would write by hand.
#include <tq/command.h>

#include <cstdio>
#include <cstdlib>
#include <cstring>

#include "support.h"

namespace {

constexpr char kFile[] = "/tmp/lines.txt";
constexpr char kCatFile[] = "cat /tmp/lines.txt";
constexpr size_t kFileSize = 1 << 20;

// 1 MiB of environment-like lines; the one looked for is the last.
void write_lines() {
    std::string text;
    for (int i = 0; text.size() < kFileSize; i++) {
        text += "variable" + std::to_string(i) + "=some value of a boot loader's environment\n";
    }
    text += "Image1Stable=1\n";
    tq_bench::write_file(kFile, text);
}

void run_cmd_first_line(benchmark::State& state) {
    const tq_bench::CountAllocations count(state);
    char out[64];
    for (auto _ : state)
        benchmark::DoNotOptimize(run_cmd("echo eth0", out, sizeof(out)));
}

void run_cmd_first_line_by_hand(benchmark::State& state) {
    const tq_bench::CountAllocations count(state);
    char out[64];
    for (auto _ : state) {
        FILE* pipe = popen("echo eth0", "r");
        benchmark::DoNotOptimize(fgets(out, sizeof(out), pipe));
        pclose(pipe);
    }
}

void read_line_last_of_1mib(benchmark::State& state) {
    write_lines();
    const tq_bench::CountAllocations count(state);
    char out[64];
    for (auto _ : state) {
        benchmark::DoNotOptimize(read_line(kFile, "Image1Stable", out, sizeof(out)));
    }
}

bool find_line(FILE* file, const char* needle, char (&line)[1024]) {
    while (fgets(line, sizeof(line), file)) {
        if (strstr(line, needle)) return true;
    }
    return false;
}

void read_line_last_of_1mib_by_hand(benchmark::State& state) {
    write_lines();
    const tq_bench::CountAllocations count(state);
    char line[1024];
    for (auto _ : state) {
        FILE* file = fopen(kFile, "r");
        benchmark::DoNotOptimize(find_line(file, "Image1Stable", line));
        fclose(file);
    }
}

void get_key_vlaue_last_of_1mib(benchmark::State& state) {
    write_lines();
    const tq_bench::CountAllocations count(state);
    int value = 0;
    for (auto _ : state)
        benchmark::DoNotOptimize(get_key_vlaue(kCatFile, "Image1Stable", &value));
}

void get_key_vlaue_last_of_1mib_by_hand(benchmark::State& state) {
    write_lines();
    const tq_bench::CountAllocations count(state);
    char line[1024];
    for (auto _ : state) {
        FILE* pipe = popen(kCatFile, "r");
        find_line(pipe, "Image1Stable", line);
        benchmark::DoNotOptimize(atoi(line + strlen("Image1Stable=")));
        pclose(pipe);
    }
}

BENCHMARK(run_cmd_first_line)->Unit(benchmark::kMicrosecond)->UseRealTime();
BENCHMARK(run_cmd_first_line_by_hand)->Unit(benchmark::kMicrosecond)->UseRealTime();
BENCHMARK(read_line_last_of_1mib)->Unit(benchmark::kMicrosecond);
BENCHMARK(read_line_last_of_1mib_by_hand)->Unit(benchmark::kMicrosecond);
BENCHMARK(get_key_vlaue_last_of_1mib)->Unit(benchmark::kMicrosecond)->UseRealTime();
BENCHMARK(get_key_vlaue_last_of_1mib_by_hand)->Unit(benchmark::kMicrosecond)->UseRealTime();

}  // namespace

BENCHMARK_MAIN();
