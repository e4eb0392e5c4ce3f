// Whether a known process runs, among 50 and 2000 others, beside pgrep and the loop that a daemon
// would write by hand.
#include <dirent.h>
#include <signal.h>
#include <sys/prctl.h>
#include <sys/wait.h>
#include <tq/process.h>
#include <unistd.h>

#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <vector>

#include "support.h"

namespace {

constexpr uint32_t kHostapd = 11;

// Keeps that many processes; none of them is looked for. They end with the benchmark.
void keep_processes(size_t wanted) {
    static std::vector<pid_t> kept;
    for (; kept.size() > wanted; kept.pop_back()) {
        kill(kept.back(), SIGKILL);
        waitpid(kept.back(), nullptr, 0);
    }
    while (kept.size() < wanted) {
        kept.push_back(fork());
        if (kept.back() < 0) abort();
        if (kept.back() > 0) continue;
        prctl(PR_SET_PDEATHSIG, SIGKILL);
        prctl(PR_SET_NAME, "other");
        for (;;)
            pause();
    }
}

void apps_is_running_among(benchmark::State& state) {
    keep_processes(static_cast<size_t>(state.range(0)));
    const tq_bench::CountAllocations count(state);
    for (auto _ : state)
        benchmark::DoNotOptimize(apps_is_running(kHostapd));
}

int is_running_by_hand(const char* wanted) {
    DIR* directory = opendir("/proc");
    if (!directory) return -1;
    int running = 0;
    while (const dirent* entry = readdir(directory)) {
        const int pid = atoi(entry->d_name);
        if (pid < 1) continue;
        char path[64];
        snprintf(path, sizeof(path), "/proc/%d/status", pid);
        FILE* file = fopen(path, "r");
        if (!file) continue;
        char name[1024];
        const bool is_wanted = fscanf(file, "Name: %1023s", name) == 1 && strcmp(name, wanted) == 0;
        fclose(file);
        if (!is_wanted) continue;
        running = 1;
        break;
    }
    closedir(directory);
    return running;
}

void apps_is_running_among_by_hand(benchmark::State& state) {
    keep_processes(static_cast<size_t>(state.range(0)));
    const tq_bench::CountAllocations count(state);
    for (auto _ : state)
        benchmark::DoNotOptimize(is_running_by_hand("hostapd"));
}

void apps_is_running_among_by_pgrep(benchmark::State& state) {
    keep_processes(static_cast<size_t>(state.range(0)));
    const tq_bench::CountAllocations count(state);
    for (auto _ : state)
        benchmark::DoNotOptimize(system("pgrep -x hostapd >/dev/null"));
}

BENCHMARK(apps_is_running_among)->Arg(50)->UseRealTime();
BENCHMARK(apps_is_running_among_by_hand)->Arg(50)->UseRealTime();
BENCHMARK(apps_is_running_among_by_pgrep)->Arg(50)->UseRealTime();
BENCHMARK(apps_is_running_among)->Arg(2000)->UseRealTime();
BENCHMARK(apps_is_running_among_by_hand)->Arg(2000)->UseRealTime();
BENCHMARK(apps_is_running_among_by_pgrep)->Arg(2000)->UseRealTime();

}  // namespace

BENCHMARK_MAIN();
