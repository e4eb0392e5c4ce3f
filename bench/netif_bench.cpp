// Interface calls, beside the socket calls that a daemon would write by hand and the command that a
// script would run.
#include <arpa/inet.h>
#include <net/if.h>
#include <netdb.h>
#include <sys/ioctl.h>
#include <sys/socket.h>
#include <tq/netif.h>
#include <unistd.h>

#include <array>
#include <cstdio>
#include <cstdlib>
#include <cstring>

#include "support.h"

namespace {

constexpr char kIf[] = "eth0";

// eth0 with an address, and a default route behind a hundred others.
void set_up_network() {
    std::string batch = "address replace 192.0.2.1/24 dev eth0\n";
    for (int i = 0; i < 100; i++)
        batch += "route replace 10.0." + std::to_string(i) + ".0/24 dev eth0\n";
    batch += "route replace 198.51.100.0/24 via 192.0.2.254 dev eth0\n";
    tq_bench::write_file("/tmp/network", batch);
    if (system("ip -batch /tmp/network") != 0) abort();
    tq_bench::write_file("/etc/hosts", "127.0.0.1 localhost\n192.0.2.20 controller\n");
}

// One request by hand: name, socket, ioctl, close.
template <unsigned long operation>
int request_by_hand(ifreq& request) {
    // The name is a variable's value, as it is to the library.
    const char* name = kIf;
    benchmark::DoNotOptimize(name);
    memset(&request, 0, sizeof(request));
    strncpy(request.ifr_name, name, IFNAMSIZ - 1);
    const int fd = socket(AF_INET, SOCK_DGRAM, 0);
    if (fd < 0) return -1;
    const int result = ioctl(fd, operation, &request);
    close(fd);
    return result;
}

void get_if_addr_once(benchmark::State& state) {
    set_up_network();
    const tq_bench::CountAllocations count(state);
    uint32_t address = 0;
    for (auto _ : state) {
        get_if_addr(kIf, &address);
        benchmark::DoNotOptimize(address);
    }
}

void get_if_addr_once_by_hand(benchmark::State& state) {
    set_up_network();
    const tq_bench::CountAllocations count(state);
    for (auto _ : state) {
        ifreq request;
        request_by_hand<SIOCGIFADDR>(request);
        benchmark::DoNotOptimize(request);
    }
}

void get_if_mac_once(benchmark::State& state) {
    const tq_bench::CountAllocations count(state);
    std::array<uint8_t, 6> mac{};
    for (auto _ : state) {
        get_if_mac(kIf, mac.data(), mac.size());
        benchmark::DoNotOptimize(mac);
    }
}

void get_if_mac_once_by_hand(benchmark::State& state) {
    const tq_bench::CountAllocations count(state);
    std::array<uint8_t, 6> mac{};
    for (auto _ : state) {
        ifreq request;
        if (request_by_hand<SIOCGIFHWADDR>(request) == 0)
            memcpy(mac.data(), request.ifr_hwaddr.sa_data, mac.size());
        benchmark::DoNotOptimize(mac);
    }
}

void get_if_mtu_once(benchmark::State& state) {
    const tq_bench::CountAllocations count(state);
    uint32_t mtu = 0;
    for (auto _ : state) {
        get_if_mtu(kIf, &mtu);
        benchmark::DoNotOptimize(mtu);
    }
}

void get_if_mtu_once_by_hand(benchmark::State& state) {
    const tq_bench::CountAllocations count(state);
    for (auto _ : state) {
        ifreq request;
        request_by_hand<SIOCGIFMTU>(request);
        benchmark::DoNotOptimize(request);
    }
}

void get_if_mtu_once_by_ip(benchmark::State& state) {
    const tq_bench::CountAllocations count(state);
    std::array<char, 4096> text{};
    for (auto _ : state) {
        FILE* pipe = popen("ip -j link show eth0", "r");
        const size_t size = fread(text.data(), 1, text.size() - 1, pipe);
        pclose(pipe);
        text[size] = '\0';
        const char* mtu = strstr(text.data(), "\"mtu\":");
        benchmark::DoNotOptimize(mtu ? atoi(mtu + strlen("\"mtu\":")) : -1);
    }
}

void set_if_mtu_once(benchmark::State& state) {
    const tq_bench::CountAllocations count(state);
    for (auto _ : state)
        benchmark::DoNotOptimize(set_if_mtu(kIf, 1500));
}

void set_if_mtu_once_by_ip(benchmark::State& state) {
    const tq_bench::CountAllocations count(state);
    for (auto _ : state)
        benchmark::DoNotOptimize(system("ip link set eth0 mtu 1500"));
}

void get_if_gateway_of_100_routes(benchmark::State& state) {
    set_up_network();
    const tq_bench::CountAllocations count(state);
    uint32_t gateway = 0;
    for (auto _ : state)
        benchmark::DoNotOptimize(get_if_gateway(kIf, &gateway));
}

struct Row {
    std::array<char, 32> ifname;
    unsigned destination;
    unsigned gateway;
    unsigned flags;
    std::array<int, 6> rest;
    unsigned mask;
};

bool scan_row(const char* line, Row& row) {
    return sscanf(line, "%31s%x%x%x%d%d%d%x%d%d%d", row.ifname.data(), &row.destination,
                  &row.gateway, &row.flags, row.rest.data(), &row.rest[1], &row.rest[2], &row.mask,
                  &row.rest[3], &row.rest[4], &row.rest[5]) == 11;
}

bool find_gateway(FILE* table, Row& row) {
    std::array<char, 256> line{};
    if (!fgets(line.data(), line.size(), table)) return false;
    while (fgets(line.data(), line.size(), table) && scan_row(line.data(), row)) {
        if (strcmp(row.ifname.data(), kIf) == 0 && (row.flags & 3) == 3) return true;
    }
    return false;
}

void get_if_gateway_of_100_routes_by_hand(benchmark::State& state) {
    set_up_network();
    const tq_bench::CountAllocations count(state);
    Row row{};
    for (auto _ : state) {
        FILE* table = fopen("/proc/net/route", "r");
        benchmark::DoNotOptimize(find_gateway(table, row));
        fclose(table);
    }
}

void get_ip_list_by_hostname_of_hosts(benchmark::State& state) {
    set_up_network();
    const tq_bench::CountAllocations count(state);
    for (auto _ : state) {
        ip_str_list list;
        get_ip_list_by_hostname("controller", &list);
        benchmark::DoNotOptimize(list);
        for (uint32_t i = 0; i < list.count; i++)
            free(list.array[i]);
        free(static_cast<void*>(list.array));
    }
}

void get_ip_list_by_hostname_of_hosts_by_hand(benchmark::State& state) {
    set_up_network();
    const tq_bench::CountAllocations count(state);
    for (auto _ : state) {
        const hostent* host = gethostbyname("controller");
        std::array<char, INET_ADDRSTRLEN> text{};
        for (char** address = host->h_addr_list; *address; address++)
            benchmark::DoNotOptimize(inet_ntop(AF_INET, *address, text.data(), text.size()));
    }
}

BENCHMARK(get_if_addr_once);
BENCHMARK(get_if_addr_once_by_hand);
BENCHMARK(get_if_mac_once);
BENCHMARK(get_if_mac_once_by_hand);
BENCHMARK(get_if_mtu_once);
BENCHMARK(get_if_mtu_once_by_hand);
BENCHMARK(get_if_mtu_once_by_ip)->Unit(benchmark::kMicrosecond)->UseRealTime();
BENCHMARK(set_if_mtu_once);
BENCHMARK(set_if_mtu_once_by_ip)->Unit(benchmark::kMicrosecond)->UseRealTime();
BENCHMARK(get_if_gateway_of_100_routes)->Unit(benchmark::kMicrosecond);
BENCHMARK(get_if_gateway_of_100_routes_by_hand)->Unit(benchmark::kMicrosecond);
BENCHMARK(get_ip_list_by_hostname_of_hosts)->Unit(benchmark::kMicrosecond);
BENCHMARK(get_ip_list_by_hostname_of_hosts_by_hand)->Unit(benchmark::kMicrosecond);

}  // namespace

BENCHMARK_MAIN();
