// A question to a generic-netlink family, beside the same on libnl's own calls; a plain message.
#include <linux/genetlink.h>
#include <linux/netlink.h>
#include <netlink/attr.h>
#include <netlink/genl/ctrl.h>
#include <netlink/genl/genl.h>
#include <netlink/msg.h>
#include <netlink/netlink.h>
#include <sys/socket.h>
#include <sys/uio.h>
#include <tq/netlink.h>
#include <unistd.h>

#include <algorithm>
#include <cstdlib>
#include <cstring>

#include "support.h"

namespace {

constexpr char kFamily[] = "nlctrl";

void connect_and_disconnect(benchmark::State& state) {
    const tq_bench::CountAllocations count(state);
    for (auto _ : state) {
        int id = 0;
        tq_genl_disconnect(tq_genl_connect(&id, kFamily));
    }
}

void connect_and_disconnect_by_libnl(benchmark::State& state) {
    const tq_bench::CountAllocations count(state);
    for (auto _ : state) {
        nl_sock* sock = nl_socket_alloc();
        genl_connect(sock);
        benchmark::DoNotOptimize(genl_ctrl_resolve(sock, kFamily));
        nl_socket_free(sock);
    }
}

void ask(benchmark::State& state) {
    int id = 0;
    nl_sock* sock = tq_genl_connect(&id, kFamily);
    const uint16_t question = GENL_ID_CTRL;
    char data[64];
    netlink_msg msg{0, 0, data};
    const tq_bench::CountAllocations count(state);
    for (auto _ : state) {
        tq_genl_send(id, sock, CTRL_CMD_GETFAMILY, &question, sizeof(question));
        if (tq_genl_recv(id, sock, &msg, sizeof(data)) != sizeof(kFamily)) abort();
    }
    tq_genl_disconnect(sock);
}

int see(nl_msg* message, void* seen) {
    nlattr* attributes[CTRL_ATTR_MAX + 1];
    genlmsg_parse(nlmsg_hdr(message), 0, attributes, CTRL_ATTR_MAX, nullptr);
    *static_cast<bool*>(seen) = attributes[CTRL_ATTR_FAMILY_NAME] != nullptr;
    return NL_OK;
}

void ask_by_libnl(benchmark::State& state) {
    nl_sock* sock = nl_socket_alloc();
    genl_connect(sock);
    const int id = genl_ctrl_resolve(sock, kFamily);
    nl_socket_disable_auto_ack(sock);
    bool seen = false;
    nl_socket_modify_cb(sock, NL_CB_VALID, NL_CB_CUSTOM, see, &seen);
    const tq_bench::CountAllocations count(state);
    for (auto _ : state) {
        nl_msg* message = nlmsg_alloc();
        genlmsg_put(message, 0, 0, id, 0, NLM_F_REQUEST, CTRL_CMD_GETFAMILY, 0);
        nla_put_u16(message, CTRL_ATTR_FAMILY_ID, GENL_ID_CTRL);
        nl_send_auto_complete(sock, message);
        nlmsg_free(message);
        nl_recvmsgs_default(sock);
        if (!seen) abort();
    }
    nl_socket_free(sock);
}

void write_plain(benchmark::State& state) {
    const int sock = tq_open_netlink(NETLINK_ROUTE, 1);
    const tq_bench::CountAllocations count(state);
    for (auto _ : state)
        benchmark::DoNotOptimize(tq_write_netlink(sock, "payload", 7));
    tq_close_netlink(sock);
}

void write_plain_by_hand(benchmark::State& state) {
    const int sock = tq_open_netlink(NETLINK_ROUTE, 1);
    const sockaddr_nl kernel = {.nl_family = AF_NETLINK, .nl_pad = 0, .nl_pid = 0, .nl_groups = 0};
    const tq_bench::CountAllocations count(state);
    for (auto _ : state) {
        char bytes[23] = {};
        nlmsghdr header{};
        header.nlmsg_len = sizeof(bytes);
        header.nlmsg_flags = NLM_F_REQUEST;
        header.nlmsg_pid = static_cast<uint32_t>(getpid());
        memcpy(bytes, &header, sizeof(header));
        std::copy_n("payload", 7, &bytes[16]);
        benchmark::DoNotOptimize(sendto(sock, bytes, sizeof(bytes), 0,
                                        reinterpret_cast<const sockaddr*>(&kernel),
                                        sizeof(kernel)));
    }
    tq_close_netlink(sock);
}

BENCHMARK(connect_and_disconnect);
BENCHMARK(connect_and_disconnect_by_libnl);
BENCHMARK(ask);
BENCHMARK(ask_by_libnl);
BENCHMARK(write_plain);
BENCHMARK(write_plain_by_hand);

}  // namespace

BENCHMARK_MAIN();
