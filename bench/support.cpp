#include "support.h"

#include <atomic>
#include <cstdio>
#include <cstdlib>
#include <fstream>

namespace {

std::atomic<size_t> allocation_count;

}  // namespace

// The C library's allocator under its other name, so that every allocation can be counted.
extern "C" {
void* libc_malloc(size_t size) asm("__libc_malloc");
void* libc_calloc(size_t count, size_t size) asm("__libc_calloc");
void* libc_realloc(void* memory, size_t size) asm("__libc_realloc");

void* malloc(size_t size) {
    allocation_count.fetch_add(1, std::memory_order_relaxed);
    return libc_malloc(size);
}

void* calloc(size_t nmemb, size_t size) {
    allocation_count.fetch_add(1, std::memory_order_relaxed);
    return libc_calloc(nmemb, size);
}

void* realloc(void* ptr, size_t size) {
    allocation_count.fetch_add(1, std::memory_order_relaxed);
    return libc_realloc(ptr, size);
}
}

namespace tq_bench {

void write_file(const std::string& path, const std::string& content) {
    std::ofstream(path, std::ios::binary) << content;
}

std::string config_text(int sections) {
    std::string text;
    for (int i = 0; i < sections; i++) {
        const std::string number = std::to_string(i);
        text += "config wifi-iface 'vap" + number + "'\n";
        text += "\toption device 'radio" + std::to_string(i % 2) + "'\n";
        text += "\toption network 'lan'\n";
        text += "\toption mode 'ap'\n";
        text += "\toption ssid 'network " + number + "'\n";
        text += "\toption encryption 'psk2'\n";
        text += "\toption disabled '0'\n\n";
    }
    return text;
}

std::string next_value() {
    static int number = 0;
    return std::to_string(number++);
}

void run_to_end(const std::string& command) {
    FILE* pipe = popen(command.c_str(), "r");
    char line[256];
    while (fgets(line, sizeof(line), pipe))
        benchmark::DoNotOptimize(line);
    pclose(pipe);
}

size_t allocations() {
    return allocation_count.load(std::memory_order_relaxed);
}

CountAllocations::~CountAllocations() {
    const auto made = static_cast<double>(allocations() - before_);
    state_.counters["allocs"] = benchmark::Counter(made, benchmark::Counter::kAvgIterations);
}

}  // namespace tq_bench
