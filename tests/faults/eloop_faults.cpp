// eloop_faults.cpp - event loops, and requests to local daemons.
#include <fcntl.h>
#include <gtest/gtest.h>
#include <sys/socket.h>
#include <sys/un.h>
#include <tq/eloop.h>
#include <tq/ipc.h>
#include <tq/thd_eloop.h>
#include <unistd.h>

#include <array>
#include <csignal>
#include <cstring>
#include <string_view>
#include <thread>

#include "faults/sweep.h"

namespace tq_test::sweep {
namespace {

std::array<int, 2> ends;
int handled;

void on_timeout(void* /*eloop_data*/, void* /*user_data*/) {
    handled++;
}

void on_signal(int /*sig*/, void* /*loop_user_data*/, void* /*signal_user_data*/) {
    handled++;
}

void on_socket(int /*sock*/, void* /*eloop_data*/, void* /*user_data*/) {
    handled++;
    eloop_terminate();
}

// ---- the loop of the process ----

void start() {
    handled = 0;
    eloop_init(nullptr);
}

void end(intptr_t /*result*/) {
    eloop_destroy();
    signal(SIGUSR1, SIG_DFL);
}

Row on_loop(std::string function, std::function<intptr_t()> call, std::string gives = "0",
            std::function<void()> prepare = start, std::function<void(intptr_t)> undo = end) {
    return {.function = std::move(function),
            .prepare = std::move(prepare),
            .call = std::move(call),
            .undo = std::move(undo),
            .gives = std::move(gives)};
}

// A byte waits to be read.
void with_socket() {
    start();
    ASSERT_EQ(pipe2(ends.data(), O_CLOEXEC), 0);
    ASSERT_EQ(write(ends[1], "x", 1), 1);
    ASSERT_EQ(eloop_register_read_sock(ends[0], on_socket, nullptr, nullptr), 0);
}

void with_signal() {
    with_socket();
    ASSERT_EQ(eloop_register_signal(SIGUSR1, on_signal, nullptr), 0);
}

void with_timeout() {
    start();
    ASSERT_EQ(eloop_register_timeout(0, 0, on_timeout, nullptr, nullptr), 0);
}

void close_ends(intptr_t result) {
    close(ends[0]);
    close(ends[1]);
    end(result);
}

std::string handled_after(intptr_t result) {
    return with_number(result, handled);
}

Row running(const char* how, std::function<void()> prepare, std::function<void(intptr_t)> undo) {
    return {.function = "eloop_run",
            .how = how,
            .prepare = std::move(prepare),
            .call =
                [] {
                    eloop_run();
                    return 0;
                },
            .outcome = handled_after,
            .undo = std::move(undo),
            .gives = "0 1",
            .fails = "0 0"};
}

void add_eloop(std::vector<Row>& rows) {
    rows.push_back(on_loop(
        "eloop_init",
        [] {
            eloop_init(nullptr);
            return 0;
        },
        "0", [] {}));
    rows.push_back(on_loop("eloop_register_read_sock", [] {
        return eloop_register_read_sock(0, on_socket, nullptr, nullptr);
    }));
    rows.push_back(on_loop(
        "eloop_unregister_read_sock", [] { return eloop_unregister_read_sock(ends[0]); }, "0",
        with_socket, close_ends));
    rows.push_back(on_loop("eloop_register_timeout", [] {
        return eloop_register_timeout(1, 0, on_timeout, nullptr, nullptr);
    }));
    rows.push_back(on_loop(
        "eloop_cancel_timeout", [] { return eloop_cancel_timeout(on_timeout, nullptr, nullptr); },
        "1", with_timeout));
    rows.push_back(on_loop("eloop_register_signal",
                           [] { return eloop_register_signal(SIGUSR1, on_signal, nullptr); }));
    rows.push_back(running("a socket", with_socket, close_ends));
    rows.push_back(running("a socket and a signal", with_signal, close_ends));
    rows.push_back(running("a timeout", with_timeout, end));
    rows.push_back(on_loop("eloop_terminate", [] {
        eloop_terminate();
        return 0;
    }));
    rows.push_back(on_loop(
        "eloop_destroy",
        [] {
            eloop_destroy();
            return 0;
        },
        "0", with_timeout, [](intptr_t /*result*/) { eloop_init(nullptr); }));
    rows.push_back(on_loop("eloop_terminated", [] { return eloop_terminated(); }));
    rows.push_back(
        on_loop("eloop_get_user_data", [] { return intptr_t{eloop_get_user_data() != nullptr}; }));
    rows.push_back(on_loop("eloop_connect_cmm_agent", [] {
        eloop_connect_cmm_agent(0);
        return 0;
    }));
}

// ---- the loops of threads ----

eloop_state loop;

void thd_start() {
    handled = 0;
    ASSERT_EQ(thd_eloop_init(&loop, nullptr), 0);
}

void thd_end(intptr_t /*result*/) {
    thd_eloop_destroy(&loop);
}

void on_thd_socket(int /*sock*/, void* /*eloop_data*/, void* /*user_data*/) {
    handled++;
    thd_eloop_terminate(&loop);
}

void thd_with_socket() {
    thd_start();
    ASSERT_EQ(pipe2(ends.data(), O_CLOEXEC), 0);
    ASSERT_EQ(write(ends[1], "x", 1), 1);
    ASSERT_EQ(thd_eloop_register_read_sock(&loop, ends[0], on_thd_socket, nullptr, nullptr), 0);
}

void thd_with_timeout() {
    thd_start();
    ASSERT_EQ(thd_eloop_register_timeout(&loop, 0, 0, on_timeout, nullptr, nullptr), 0);
}

void thd_close_ends(intptr_t result) {
    close(ends[0]);
    close(ends[1]);
    thd_end(result);
}

void add_thd_eloop(std::vector<Row>& rows) {
    // The shared mutex is made once in a process, by the first of these rows in each child.
    rows.push_back(
        {.function = "thd_eloop_init",
         .call =
             [] { return in_child([] { return thd_eloop_init(&loop, nullptr) == 0 ? 0 : 1; }); },
         .fails = "1"});
    rows.push_back(on_loop(
        "thd_eloop_register_read_sock",
        [] { return thd_eloop_register_read_sock(&loop, 0, on_thd_socket, nullptr, nullptr); }, "0",
        thd_start, thd_end));
    rows.push_back(on_loop(
        "thd_eloop_unregister_read_sock",
        [] { return thd_eloop_unregister_read_sock(&loop, ends[0]); }, "0", thd_with_socket,
        thd_close_ends));
    rows.push_back(on_loop(
        "thd_eloop_register_timeout",
        [] { return thd_eloop_register_timeout(&loop, 1, 0, on_timeout, nullptr, nullptr); }, "0",
        thd_start, thd_end));
    rows.push_back(on_loop(
        "thd_eloop_cancel_timeout",
        [] { return thd_eloop_cancel_timeout(&loop, on_timeout, nullptr, nullptr); }, "1",
        thd_with_timeout, thd_end));
    for (const bool socket : {true, false}) {
        rows.push_back(on_loop(
            "thd_eloop_run", [] { return thd_eloop_run(&loop); }, "0 1",
            socket ? thd_with_socket : thd_with_timeout, socket ? thd_close_ends : thd_end));
        rows.back().how = socket ? "a socket" : "a timeout";
        rows.back().outcome = handled_after;
        rows.back().fails = "-1 0";
    }
    rows.push_back(on_loop(
        "thd_eloop_terminate", [] { return thd_eloop_terminate(&loop); }, "0", thd_start, thd_end));
    rows.push_back(on_loop(
        "thd_eloop_destroy", [] { return thd_eloop_destroy(&loop); }, "0", thd_with_timeout,
        [](intptr_t /*result*/) {}));
    rows.push_back(on_loop(
        "thd_eloop_terminated", [] { return thd_eloop_terminated(&loop); }, "0", thd_start,
        thd_end));
    rows.push_back(on_loop(
        "thd_eloop_get_user_data",
        [] { return intptr_t{thd_eloop_get_user_data(&loop) != nullptr}; }, "0", thd_start,
        thd_end));
}

// ---- requests to a daemon ----

constexpr std::string_view kServer = "sweep-server";

// Answers each request with "pong", until the process ends.
void serve(int sock) {
    for (;;) {
        std::array<char, 64> request;
        sockaddr_un client{};
        socklen_t size = sizeof(client);
        auto* const from = reinterpret_cast<sockaddr*>(&client);
        if (recvfrom(sock, request.data(), request.size(), 0, from, &size) > 0)
            sendto(sock, "pong", 4, 0, from, size);
    }
}

void have_server() {
    static const bool there = [] {
        const int sock = socket(AF_UNIX, SOCK_DGRAM | SOCK_CLOEXEC, 0);
        sockaddr_un address{};
        address.sun_family = AF_UNIX;
        kServer.copy(&address.sun_path[1], kServer.size());
        if (bind(sock, reinterpret_cast<sockaddr*>(&address), sizeof(address)) != 0) return false;
        std::thread([sock] { serve(sock); }).detach();
        return true;
    }();
    ASSERT_TRUE(there);
}

int sock;
char reply[8];

void connect_to_server() {
    have_server();
    memset(reply, 0, sizeof(reply));
    sock = ipc_connect(kServer.data());
    ASSERT_GE(sock, 0);
}

bool is_open(int fd) {
    return fcntl(fd, F_GETFD) >= 0;
}

void close_socket(intptr_t /*result*/) {
    if (is_open(sock)) close(sock);
}

std::string request_after(intptr_t result) {
    return number(result) + " " + reply + (is_open(sock) ? " open" : " closed");
}

void add_ipc(std::vector<Row>& rows) {
    rows.push_back({.function = "ipc_connect",
                    .prepare = have_server,
                    .call = [] { return sock = ipc_connect(kServer.data()); },
                    .outcome = [](intptr_t result) { return result < 0 ? "-1" : "connected"; },
                    .undo = [](intptr_t result) { close(static_cast<int>(result)); },
                    .gives = "connected"});
    rows.push_back({.function = "ipc_cmd",
                    .prepare = connect_to_server,
                    .call = [] { return ipc_cmd(sock, "ping", 4, reply, sizeof(reply), 5); },
                    .outcome = request_after,
                    .undo = close_socket,
                    .gives = "4 pong open",
                    .fails = "-1  open",
                    .but = {{"send", "-1  closed", kSpent},
                            {"select:interrupted", "-1  open"},
                            {"recv:interrupted", "-1  open"}}});
    rows.push_back({.function = "ipc_cmd_imm",
                    .prepare = connect_to_server,
                    .call = [] { return ipc_cmd_imm(sock, "ping", 4); },
                    .outcome = request_after,
                    .undo = close_socket,
                    .gives = "0  open",
                    .fails = "-1  closed",
                    .again = kSpent});
    rows.push_back({.function = "ipc_close",
                    .prepare = connect_to_server,
                    .call = [] { return ipc_close(sock); },
                    .outcome = request_after,
                    .gives = "0  closed",
                    .but = {{"close", "-1  closed", kSpent}}});
    rows.push_back(
        {.function = "ipc_exec",
         .prepare =
             [] {
                 have_server();
                 memset(reply, 0, sizeof(reply));
             },
         .call = [] { return ipc_exec(kServer.data(), "ping", 4, reply, sizeof(reply)); },
         .outcome = [](intptr_t result) { return with_text(result, reply); },
         .gives = "4 pong",
         .fails = "-1 ",
         .but = {{"select:interrupted", "-1 "}, {"recv:interrupted", "-1 "}}});
    rows.push_back(pure(
        "resp_set_error_msg", [] { return resp_set_error_msg(reply, "no", 8); }, "2"));
}

}  // namespace

std::vector<Row> eloop_rows() {
    std::vector<Row> rows;
    add_thd_eloop(rows);
    add_eloop(rows);
    add_ipc(rows);
    return rows;
}

}  // namespace tq_test::sweep
