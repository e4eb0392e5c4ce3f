// Requests to a local daemon, beside the same socket calls written by hand.
#include <sys/select.h>
#include <sys/socket.h>
#include <sys/un.h>
#include <tq/ipc.h>
#include <unistd.h>

#include <atomic>
#include <cstdio>
#include <cstring>
#include <thread>

#include "support.h"

namespace {

constexpr char kName[] = "bench";

sockaddr_un address_of(const char* name) {
    sockaddr_un address{};
    address.sun_family = AF_UNIX;
    snprintf(&address.sun_path[1], sizeof(address.sun_path) - 1, "%s", name);
    return address;
}

int bound(const char* name) {
    const int sock = socket(AF_UNIX, SOCK_DGRAM | SOCK_CLOEXEC, 0);
    const sockaddr_un address = address_of(name);
    if (bind(sock, reinterpret_cast<const sockaddr*>(&address), sizeof(address)) != 0) abort();
    return sock;
}

// Sends back what it gets, until it gets nothing.
class Echo {
  public:
    Echo() : sock_(bound(kName)), thread_([this] { serve(); }) {}
    ~Echo() {
        const sockaddr_un own = address_of(kName);
        sendto(sock_, nullptr, 0, 0, reinterpret_cast<const sockaddr*>(&own), sizeof(own));
        thread_.join();
        close(sock_);
    }
    Echo(const Echo&) = delete;
    Echo& operator=(const Echo&) = delete;

  private:
    void serve() const {
        for (;;) {
            char bytes[256];
            sockaddr_un client{};
            socklen_t size = sizeof(client);
            auto* const from = reinterpret_cast<sockaddr*>(&client);
            const ssize_t got = recvfrom(sock_, bytes, sizeof(bytes), 0, from, &size);
            if (got <= 0) return;
            sendto(sock_, bytes, static_cast<size_t>(got), 0, from, size);
        }
    }

    int sock_;
    std::thread thread_;
};

int connected_by_hand() {
    static unsigned number = 0;
    char name[64];
    snprintf(name, sizeof(name), "bench-hand-%d-%u", getpid(), ++number);
    const int sock = bound(name);
    const sockaddr_un server = address_of(kName);
    if (connect(sock, reinterpret_cast<const sockaddr*>(&server), sizeof(server)) != 0) abort();
    return sock;
}

ssize_t exchange_by_hand(int sock, char (&reply)[64]) {
    send(sock, "status", 6, MSG_DONTWAIT | MSG_NOSIGNAL);
    fd_set readable;
    FD_ZERO(&readable);
    FD_SET(sock, &readable);
    timeval limit = {.tv_sec = 1, .tv_usec = 0};
    if (select(sock + 1, &readable, nullptr, nullptr, &limit) != 1) return -1;
    return recv(sock, reply, sizeof(reply), 0);
}

void connect_and_close(benchmark::State& state) {
    const Echo echo;
    const tq_bench::CountAllocations count(state);
    for (auto _ : state)
        ipc_close(ipc_connect(kName));
}

void connect_and_close_by_hand(benchmark::State& state) {
    const Echo echo;
    const tq_bench::CountAllocations count(state);
    for (auto _ : state)
        close(connected_by_hand());
}

void cmd(benchmark::State& state) {
    const Echo echo;
    const int sock = ipc_connect(kName);
    char reply[64];
    const tq_bench::CountAllocations count(state);
    for (auto _ : state)
        benchmark::DoNotOptimize(ipc_cmd(sock, "status", 6, reply, sizeof(reply), 1));
    ipc_close(sock);
}

void cmd_by_hand(benchmark::State& state) {
    const Echo echo;
    const int sock = connected_by_hand();
    char reply[64];
    const tq_bench::CountAllocations count(state);
    for (auto _ : state)
        benchmark::DoNotOptimize(exchange_by_hand(sock, reply));
    close(sock);
}

void exec(benchmark::State& state) {
    const Echo echo;
    char reply[64];
    const tq_bench::CountAllocations count(state);
    for (auto _ : state)
        benchmark::DoNotOptimize(ipc_exec(kName, "status", 6, reply, sizeof(reply)));
}

void exec_by_hand(benchmark::State& state) {
    const Echo echo;
    char reply[64];
    const tq_bench::CountAllocations count(state);
    for (auto _ : state) {
        const int sock = connected_by_hand();
        benchmark::DoNotOptimize(exchange_by_hand(sock, reply));
        close(sock);
    }
}

BENCHMARK(connect_and_close);
BENCHMARK(connect_and_close_by_hand);
BENCHMARK(cmd);
BENCHMARK(cmd_by_hand);
BENCHMARK(exec);
BENCHMARK(exec_by_hand);

}  // namespace

BENCHMARK_MAIN();
