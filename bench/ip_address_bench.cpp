// IP addresses between text and bytes, beside inet_pton and inet_ntop, and beside sscanf and
// snprintf.
#include <arpa/inet.h>
#include <benchmark/benchmark.h>
#include <tq/ip_address.h>

#include <cstdio>

namespace {

constexpr char kText[] = "192.168.100.210";
constexpr uint8_t kBytes[] = {192, 168, 100, 210};
constexpr char kText6[] = "2001:db8::a0b:c0d:1";

void read_v4(benchmark::State& state) {
    uint8_t bytes[4];
    for (auto _ : state) {
        v4_str_to_byte_addr(kText, bytes);
        benchmark::DoNotOptimize(bytes);
    }
}

void read_v4_inet_pton(benchmark::State& state) {
    uint8_t bytes[4];
    for (auto _ : state) {
        inet_pton(AF_INET, kText, bytes);
        benchmark::DoNotOptimize(bytes);
    }
}

void read_v4_sscanf(benchmark::State& state) {
    unsigned octets[4];
    for (auto _ : state) {
        // NOLINTNEXTLINE(cert-err34-c)
        benchmark::DoNotOptimize(
            sscanf(kText, "%u.%u.%u.%u", &octets[0], &octets[1], &octets[2], &octets[3]));
        benchmark::DoNotOptimize(octets);
    }
}

void write_v4(benchmark::State& state) {
    char text[16];
    for (auto _ : state) {
        v4_byte_addr_to_str(kBytes, text, sizeof(text));
        benchmark::DoNotOptimize(text);
    }
}

void write_v4_inet_ntop(benchmark::State& state) {
    char text[16];
    for (auto _ : state) {
        inet_ntop(AF_INET, kBytes, text, sizeof(text));
        benchmark::DoNotOptimize(text);
    }
}

void write_v4_snprintf(benchmark::State& state) {
    char text[16];
    for (auto _ : state) {
        snprintf(text, sizeof(text), "%u.%u.%u.%u", kBytes[0], kBytes[1], kBytes[2], kBytes[3]);
        benchmark::DoNotOptimize(text);
    }
}

void read_v6(benchmark::State& state) {
    uint8_t bytes[16];
    for (auto _ : state) {
        v6_str_to_byte_addr(kText6, bytes);
        benchmark::DoNotOptimize(bytes);
    }
}

void read_v6_inet_pton(benchmark::State& state) {
    uint8_t bytes[16];
    for (auto _ : state) {
        inet_pton(AF_INET6, kText6, bytes);
        benchmark::DoNotOptimize(bytes);
    }
}

void write_v6(benchmark::State& state) {
    ip_address address;
    v6_str_to_ip_address(kText6, &address);
    char text[64];
    for (auto _ : state) {
        ip_address_to_v6_str_addr(&address, text, sizeof(text));
        benchmark::DoNotOptimize(text);
    }
}

void write_v6_inet_ntop(benchmark::State& state) {
    uint8_t bytes[16];
    inet_pton(AF_INET6, kText6, bytes);
    char text[64];
    for (auto _ : state) {
        inet_ntop(AF_INET6, bytes, text, sizeof(text));
        benchmark::DoNotOptimize(text);
    }
}

BENCHMARK(read_v4);
BENCHMARK(read_v4_inet_pton);
BENCHMARK(read_v4_sscanf);
BENCHMARK(write_v4);
BENCHMARK(write_v4_inet_ntop);
BENCHMARK(write_v4_snprintf);
BENCHMARK(read_v6);
BENCHMARK(read_v6_inet_pton);
BENCHMARK(write_v6);
BENCHMARK(write_v6_inet_ntop);

}  // namespace

BENCHMARK_MAIN();
