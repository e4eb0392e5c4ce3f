// ipc_test.cpp - requests to a local daemon, which the test plays.
#include <fcntl.h>
#include <gmock/gmock.h>
#include <sys/resource.h>
#include <sys/syscall.h>
#include <tq/ipc.h>

#include <algorithm>
#include <atomic>
#include <cerrno>
#include <climits>
#include <functional>
#include <set>
#include <string>
#include <thread>
#include <vector>

#include "eloop/ipc_server.h"
#include "eloop/waits.h"
#include "support/buffer.h"
#include "support/device.h"
#include "support/faults.h"
#include "support/log_capture.h"

namespace {

using namespace tq_test;  // NOLINT(google-build-using-namespace)
using testing::IsEmpty;

constexpr int64_t kSecond = 1000000;

bool is_open(int fd) {
    return fcntl(fd, F_GETFD) >= 0;
}

sockaddr_un own_address(int sock) {
    sockaddr_un address{};
    socklen_t size = sizeof(address);
    EXPECT_EQ(getsockname(sock, reinterpret_cast<sockaddr*>(&address), &size), 0);
    EXPECT_EQ(size, 110U);
    return address;
}

std::string own_name(int sock) {
    return abstract_name(own_address(sock));
}

// The counters in the name of a socket of the server "fmd".
std::string counters(int sock) {
    const std::string prefix = "fmd-ipc-" + std::to_string(getpid()) + "-";
    const std::string name = own_name(sock);
    EXPECT_EQ(name.substr(0, prefix.size()), prefix);
    return name.substr(std::min(prefix.size(), name.size()));
}

// No call of the family writes to the log, and none leaves a descriptor behind.
class Ipc : public DeviceTest {
  protected:
    Ipc() { waits::reset(); }
    void TearDown() override {
        EXPECT_THAT(log_.take(), IsEmpty());
        server.stop();
        EXPECT_EQ(open_descriptors(), descriptors_);
    }

    static int connect() {
        const int sock = ipc_connect("fmd");
        EXPECT_GE(sock, 0);
        return sock;
    }

    int ask(int sock, const std::string& request, int timeout = 0) {
        return ipc_cmd(sock, request.data(), request.size(), reply.data(), 16, timeout);
    }

    // Fills the server's queue, so that the kernel takes nothing more for it.
    static void fill_queue() {
        const int sock = connect();
        while (send(sock, "x", 1, MSG_DONTWAIT) == 1)
            continue;
        EXPECT_EQ(errno, EAGAIN);
        close(sock);
    }

    Buffer reply{16};

  private:
    LogCapture log_;
    std::vector<int> descriptors_ = open_descriptors();

  protected:
    IpcServer server{"fmd"};
};

// ipc_connect

TEST_F(Ipc, ConnectsToTheServerUnderANameOfItsOwn) {
    const int sock = connect();
    EXPECT_EQ(send(sock, "hello", 5, 0), 5);
    const Request request = server.receive();
    EXPECT_EQ(request.bytes, "hello");
    EXPECT_EQ(request.client_size, 110U);
    EXPECT_EQ(abstract_name(request.client), own_name(sock));
    EXPECT_EQ(ipc_close(sock), 0);
}

TEST_F(Ipc, PadsTheNameWithZeros) {
    const int sock = connect();
    const sockaddr_un address = own_address(sock);
    EXPECT_EQ(address.sun_path[0], '\0');
    const size_t length = own_name(sock).size();
    EXPECT_EQ(std::count(&address.sun_path[1 + length], std::end(address.sun_path), '\0'),
              static_cast<long>(107 - length));
    ipc_close(sock);
}

TEST_F(Ipc, CountsTheSocketsInTheirNames) {
    const int first = connect();
    const int second = connect();
    const std::string name = counters(first);
    ASSERT_EQ(name.substr(0, 2), "0-");
    EXPECT_EQ(counters(second), "0-" + std::to_string(std::stoul(name.substr(2)) + 1));
    ipc_close(first);
    ipc_close(second);
}

TEST_F(Ipc, CountsEachCallThatGotASocket) {
    const int first = connect();
    const unsigned long number = std::stoul(counters(first).substr(2));
    ipc_close(first);
    EXPECT_EQ(ipc_connect("nobody"), -1);
    {
        const faults::Fail fail("bind", 1, EADDRINUSE);
        EXPECT_EQ(ipc_connect("fmd"), -1);
    }
    {
        const faults::Fail fail("socket", 1, EMFILE);
        EXPECT_EQ(ipc_connect("fmd"), -1);
    }
    const int next = connect();
    EXPECT_EQ(counters(next), "0-" + std::to_string(number + 3));
    ipc_close(next);
}

TEST_F(Ipc, GivesTenThousandSocketsNamesOfTheirOwn) {
    std::set<std::string> names;
    for (int i = 0; i < 10000; i++) {
        const int sock = ipc_connect("fmd");
        ASSERT_GE(sock, 0);
        names.insert(own_name(sock));
        ipc_close(sock);
    }
    EXPECT_EQ(names.size(), 10000U);
}

TEST_F(Ipc, OpensASocketThatAProgramItStartsDoesNotInherit) {
    const int sock = connect();
    EXPECT_EQ(fcntl(sock, F_GETFD) & FD_CLOEXEC, FD_CLOEXEC);
    int type = 0;
    socklen_t size = sizeof(type);
    getsockopt(sock, SOL_SOCKET, SO_TYPE, &type, &size);
    EXPECT_EQ(type, SOCK_DGRAM);
    ipc_close(sock);
}

TEST_F(Ipc, ConnectNeedsAServer) {
    EXPECT_EQ(ipc_connect("nobody"), -1);
    EXPECT_EQ(errno, ECONNREFUSED);
    EXPECT_EQ(ipc_connect(""), -1);
    EXPECT_EQ(errno, ECONNREFUSED);
}

TEST_F(Ipc, ConnectNeedsAServerWhoseNameIsPadded) {
    const int sock = socket(AF_UNIX, SOCK_DGRAM | SOCK_CLOEXEC, 0);
    const sockaddr_un address = abstract_address("short");
    ASSERT_EQ(bind(sock, reinterpret_cast<const sockaddr*>(&address), 2 + 1 + 5), 0);
    EXPECT_EQ(ipc_connect("short"), -1);
    EXPECT_EQ(errno, ECONNREFUSED);
    close(sock);
}

TEST_F(Ipc, ConnectRejectsANullName) {
    EXPECT_EQ(ipc_connect(nullptr), -1);
    EXPECT_EQ(errno, EINVAL);
}

TEST_F(Ipc, ConnectWithoutADescriptorFails) {
    const faults::Fail fail("socket", 1, EMFILE);
    EXPECT_EQ(ipc_connect("fmd"), -1);
    EXPECT_EQ(errno, EMFILE);
}

TEST_F(Ipc, ConnectFailsWhereTheNameIsTaken) {
    const int sock = connect();
    const unsigned long next = std::stoul(counters(sock).substr(2)) + 1;
    ipc_close(sock);
    const IpcServer squatter("fmd-ipc-" + std::to_string(getpid()) + "-0-" + std::to_string(next));
    EXPECT_EQ(ipc_connect("fmd"), -1);
    EXPECT_EQ(errno, EADDRINUSE);
    ipc_close(connect());
}

TEST_F(Ipc, CutsNamesAt106Bytes) {
    const std::string name(106, 'n');
    const IpcServer other(name);
    // The client's own name is cut to the server's.
    EXPECT_EQ(ipc_connect(name.c_str()), -1);
    EXPECT_EQ(errno, EADDRINUSE);
    EXPECT_EQ(ipc_connect((name + "n").c_str()), -1);
    EXPECT_EQ(errno, EADDRINUSE);
}

TEST_F(Ipc, ANameThatLeavesNoRoomForTheCountersServesOneConnection) {
    const std::string name(101, 'n');
    const IpcServer other(name);
    const int sock = ipc_connect(name.c_str());
    ASSERT_GE(sock, 0);
    EXPECT_EQ(own_name(sock), name + "-ipc-");
    EXPECT_EQ(ipc_connect(name.c_str()), -1);
    EXPECT_EQ(errno, EADDRINUSE);
    ipc_close(sock);
}

TEST_F(Ipc, TakesPercentSignsOfANameAsTheyAre) {
    const IpcServer other("%s%n%d");
    const int sock = ipc_connect("%s%n%d");
    ASSERT_GE(sock, 0);
    EXPECT_EQ(own_name(sock).substr(0, 11), "%s%n%d-ipc-");
    ipc_close(sock);
}

// ipc_cmd

TEST_F(Ipc, CmdReturnsTheReply) {
    const int sock = connect();
    std::thread daemon([&] {
        const Request request = server.receive();
        server.answer(request, "re: " + request.bytes);
    });
    EXPECT_EQ(ask(sock, "status", 10), 10);
    daemon.join();
    EXPECT_EQ(reply.all().substr(0, 11), std::string("re: status") + kUntouched);
    ipc_close(sock);
}

TEST_F(Ipc, CmdWaitsForItsOwnSocketAndNoLonger) {
    const int sock = connect();
    const waits::VirtualTime time(100, 0);
    EXPECT_EQ(ask(sock, "status", 3), -1);
    EXPECT_EQ(errno, ETIMEDOUT);
    ASSERT_EQ(waits::seen().size(), 1U);
    EXPECT_EQ(waits::seen()[0].count, sock + 1);
    EXPECT_EQ(waits::seen()[0].limit, 3 * kSecond);
    EXPECT_TRUE(reply.untouched());
    EXPECT_TRUE(is_open(sock));
    ipc_close(sock);
}

TEST_F(Ipc, CmdReallyWaits) {
    const int sock = connect();
    timespec before{};
    timespec after{};
    clock_gettime(CLOCK_MONOTONIC, &before);
    EXPECT_EQ(ask(sock, "status", 1), -1);
    clock_gettime(CLOCK_MONOTONIC, &after);
    EXPECT_GE((after.tv_sec - before.tv_sec) * 1000 + (after.tv_nsec - before.tv_nsec) / 1000000,
              999);
    ipc_close(sock);
}

TEST_F(Ipc, ALateReplyComesBeforeTheNextOne) {
    const int sock = connect();
    EXPECT_EQ(ask(sock, "first"), -1);
    EXPECT_EQ(errno, ETIMEDOUT);
    server.answer(server.receive(), "late");
    EXPECT_EQ(ask(sock, "second"), 4);
    EXPECT_EQ(reply.all().substr(0, 4), "late");
    EXPECT_EQ(server.receive().bytes, "second");
    ipc_close(sock);
}

TEST_F(Ipc, AServerThatDiesBeforeItRepliesIsATimeout) {
    const int sock = connect();
    waits::before_next([&] {
        EXPECT_EQ(server.receive().bytes, "status");
        server.stop();
    });
    EXPECT_EQ(ask(sock, "status"), -1);
    EXPECT_TRUE(is_open(sock));
    EXPECT_EQ(ask(sock, "again"), -1);
    EXPECT_EQ(errno, ECONNREFUSED);
    EXPECT_FALSE(is_open(sock));
}

TEST_F(Ipc, CmdClosesTheSocketAtOnceWhenTheQueueIsFull) {
    fill_queue();
    const int sock = connect();
    EXPECT_EQ(ask(sock, "status", 10), -1);
    EXPECT_EQ(errno, EAGAIN);
    EXPECT_FALSE(is_open(sock));
    EXPECT_THAT(waits::seen(), IsEmpty());
}

TEST_F(Ipc, CutsAReplyThatIsLongerThanTheBuffer) {
    const int sock = connect();
    waits::before_next([&] { server.answer(server.receive(), "0123456789abcdefGHIJ"); });
    EXPECT_EQ(ask(sock, "status"), 16);
    EXPECT_EQ(reply.all(), "0123456789abcdef");
    EXPECT_TRUE(reply.guard_holds());
    // The rest is lost.
    EXPECT_EQ(ask(sock, "again"), -1);
    EXPECT_EQ(errno, ETIMEDOUT);
    ipc_close(sock);
}

TEST_F(Ipc, AnEmptyReplyIsAReply) {
    const int sock = connect();
    waits::before_next([&] { server.answer(server.receive(), ""); });
    EXPECT_EQ(ask(sock, "status"), 0);
    EXPECT_TRUE(reply.untouched());
    ipc_close(sock);
}

TEST_F(Ipc, SendsTheWholeRequest) {
    const int sock = connect();
    const std::string request(60000, 'r');
    EXPECT_EQ(ask(sock, request), -1);
    EXPECT_EQ(server.receive().bytes, request);
    ipc_close(sock);
}

TEST_F(Ipc, ARequestThatIsTooLongClosesTheSocket) {
    const int sock = connect();
    EXPECT_EQ(ask(sock, std::string(16 << 20, 'r')), -1);
    EXPECT_EQ(errno, EMSGSIZE);
    EXPECT_FALSE(is_open(sock));
}

TEST_F(Ipc, CmdTellsOfAWaitThatFails) {
    const int sock = connect();
    waits::fail_next(EINTR);
    EXPECT_EQ(ask(sock, "status", 1), -1);
    EXPECT_EQ(errno, EINTR);
    EXPECT_EQ(ask(sock, "status", -1), -1);
    EXPECT_EQ(errno, EINVAL);
    EXPECT_TRUE(is_open(sock));
    ipc_close(sock);
}

TEST_F(Ipc, CmdTellsOfAReplyThatCannotBeReceived) {
    const int sock = connect();
    waits::before_next([&] { server.answer(server.receive(), "reply"); });
    const faults::Fail fail("recv", 1, ENOMEM);
    EXPECT_EQ(ask(sock, "status"), -1);
    EXPECT_EQ(errno, ENOMEM);
    EXPECT_TRUE(is_open(sock));
    ipc_close(sock);
}

TEST_F(Ipc, CmdRejectsArgumentsBeforeItSends) {
    const int sock = connect();
    char byte = kUntouched;
    const auto huge = static_cast<size_t>(INT_MAX) + 1;
    for (const auto& call :
         std::vector<std::function<int()>>{[&] { return ipc_cmd(sock, nullptr, 1, &byte, 1, 0); },
                                           [&] { return ipc_cmd(sock, "q", 0, &byte, 1, 0); },
                                           [&] { return ipc_cmd(sock, "q", huge, &byte, 1, 0); },
                                           [&] { return ipc_cmd(sock, "q", 1, nullptr, 1, 0); },
                                           [&] { return ipc_cmd(sock, "q", 1, &byte, 0, 0); },
                                           [&] { return ipc_cmd(sock, "q", 1, &byte, huge, 0); },
                                           [&] { return ipc_cmd_imm(sock, nullptr, 1); },
                                           [&] { return ipc_cmd_imm(sock, "q", 0); },
                                           [&] { return ipc_cmd_imm(sock, "q", huge); }}) {
        errno = 0;
        EXPECT_EQ(call(), -1);
        EXPECT_EQ(errno, EINVAL);
    }
    EXPECT_EQ(server.receive(MSG_DONTWAIT).bytes, "");
    EXPECT_TRUE(is_open(sock));
    ipc_close(sock);
}

TEST_F(Ipc, CmdRejectsADescriptorThatSelectHasNoRoomFor) {
    rlimit limit{};
    getrlimit(RLIMIT_NOFILE, &limit);
    if (limit.rlim_max <= FD_SETSIZE) GTEST_SKIP() << "no descriptor may be that high";
    limit.rlim_cur = std::max<rlim_t>(limit.rlim_cur, FD_SETSIZE + 1);
    ASSERT_EQ(setrlimit(RLIMIT_NOFILE, &limit), 0);
    const int sock = connect();
    ASSERT_EQ(dup2(sock, FD_SETSIZE), FD_SETSIZE);
    EXPECT_EQ(ask(FD_SETSIZE, "status"), -1);
    EXPECT_EQ(errno, EINVAL);
    EXPECT_TRUE(is_open(FD_SETSIZE));
    EXPECT_EQ(server.receive(MSG_DONTWAIT).bytes, "");
    EXPECT_EQ(dup2(sock, FD_SETSIZE - 1), FD_SETSIZE - 1);
    EXPECT_EQ(ask(FD_SETSIZE - 1, "status"), -1);
    EXPECT_EQ(errno, ETIMEDOUT);
    EXPECT_EQ(server.receive(MSG_DONTWAIT).bytes, "status");
    for (const int fd : {sock, FD_SETSIZE, FD_SETSIZE - 1})
        ipc_close(fd);
}

TEST_F(Ipc, ADescriptorThatIsNoneFails) {
    EXPECT_EQ(ask(-1, "status"), -1);
    EXPECT_EQ(errno, EBADF);
    EXPECT_EQ(ipc_cmd_imm(-1, "q", 1), -1);
    EXPECT_EQ(errno, EBADF);
    EXPECT_EQ(ipc_close(-1), -1);
    EXPECT_EQ(errno, EBADF);
}

// A stream's end, whose peer is gone: sending to it raises SIGPIPE where that is not kept away.
int broken_stream() {
    int ends[2];
    EXPECT_EQ(socketpair(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0, ends), 0);
    close(ends[1]);
    return ends[0];
}

TEST_F(Ipc, SendingRaisesNoSignal) {
    int sock = broken_stream();
    EXPECT_EQ(ask(sock, "status"), -1);
    EXPECT_EQ(errno, EPIPE);
    EXPECT_FALSE(is_open(sock));
    sock = broken_stream();
    EXPECT_EQ(ipc_cmd_imm(sock, "q", 1), -1);
    EXPECT_EQ(errno, EPIPE);
    EXPECT_FALSE(is_open(sock));
}

// ipc_cmd_imm

TEST_F(Ipc, ImmSendsAndDoesNotWaitForAReply) {
    const int sock = connect();
    EXPECT_EQ(ipc_cmd_imm(sock, "event", 5), 0);
    EXPECT_EQ(server.receive().bytes, "event");
    EXPECT_THAT(waits::seen(), IsEmpty());
    ipc_close(sock);
}

bool is_waiting(pid_t thread) {
    const std::string stat = read_file("/proc/self/task/" + std::to_string(thread) + "/stat");
    return stat.at(stat.rfind(')') + 2) == 'S';
}

TEST_F(Ipc, ImmWaitsForRoomInTheQueue) {
    fill_queue();
    const int sock = connect();
    std::atomic<pid_t> thread = 0;
    std::thread sender([&] {
        thread = static_cast<pid_t>(syscall(SYS_gettid));
        EXPECT_EQ(ipc_cmd_imm(sock, "event", 5), 0);
    });
    while (thread == 0 || !is_waiting(thread))
        std::this_thread::yield();
    while (server.receive().bytes != "event")
        continue;
    sender.join();
    ipc_close(sock);
}

TEST_F(Ipc, ImmClosesTheSocketWhenItCannotSend) {
    const int sock = connect();
    server.stop();
    EXPECT_EQ(ipc_cmd_imm(sock, "event", 5), -1);
    EXPECT_EQ(errno, ECONNREFUSED);
    EXPECT_FALSE(is_open(sock));
}

// ipc_exec

TEST_F(Ipc, ExecConnectsAsksAndCloses) {
    waits::before_next([&] { server.answer(server.receive(), "reply"); });
    EXPECT_EQ(ipc_exec("fmd", "status", 6, reply.data(), 16), 5);
    EXPECT_EQ(reply.all().substr(0, 5), "reply");
}

TEST_F(Ipc, ExecWaitsASecond) {
    const waits::VirtualTime time(100, 0);
    faults::reset();
    EXPECT_EQ(ipc_exec("fmd", "status", 6, reply.data(), 16), -1);
    EXPECT_EQ(errno, ETIMEDOUT);
    EXPECT_EQ(faults::count("close"), 1U);
    ASSERT_EQ(waits::seen().size(), 1U);
    EXPECT_EQ(waits::seen()[0].limit, kSecond);
}

TEST_F(Ipc, ExecNeedsAServer) {
    EXPECT_EQ(ipc_exec("nobody", "status", 6, reply.data(), 16), -1);
    EXPECT_EQ(errno, ECONNREFUSED);
    EXPECT_EQ(ipc_exec(nullptr, "status", 6, reply.data(), 16), -1);
    EXPECT_EQ(errno, EINVAL);
}

TEST_F(Ipc, ExecRejectsWhatCmdRejectsBeforeItConnects) {
    faults::reset();
    EXPECT_EQ(ipc_exec("fmd", nullptr, 6, reply.data(), 16), -1);
    EXPECT_EQ(errno, EINVAL);
    EXPECT_EQ(ipc_exec("fmd", "status", 6, reply.data(), 0), -1);
    EXPECT_EQ(errno, EINVAL);
    EXPECT_EQ(ipc_exec("nobody", "status", 0, reply.data(), 16), -1);
    EXPECT_EQ(errno, EINVAL);
    EXPECT_EQ(faults::count("socket"), 0U);
}

TEST_F(Ipc, ExecKeepsTheCauseAlthoughItClosesTwice) {
    fill_queue();
    faults::reset();
    EXPECT_EQ(ipc_exec("fmd", "status", 6, reply.data(), 16), -1);
    EXPECT_EQ(errno, EAGAIN);
    EXPECT_EQ(faults::count("close"), 2U);
}

// resp_set_error_msg

std::string error_reply(const char* text, int size, int expected) {
    Buffer reply(size);
    EXPECT_EQ(resp_set_error_msg(reply.data(), text, static_cast<size_t>(size)), expected);
    EXPECT_TRUE(reply.guard_holds());
    return reply.all();
}

TEST_F(Ipc, AnErrorMessageStandsBehindTheHeader) {
    EXPECT_EQ(error_reply("busy", 12, 4), "ZZZZbusyZZZZ");
}

TEST_F(Ipc, AnErrorMessageIsCutWithoutATerminator) {
    EXPECT_EQ(error_reply("no such radio", 12, 8), "ZZZZno such ");
    EXPECT_EQ(error_reply("12345678", 12, 8), "ZZZZ12345678");
}

TEST_F(Ipc, AnErrorMessageMayHaveNoRoomOrNoText) {
    EXPECT_EQ(error_reply("busy", 4, 0), "ZZZZ");
    EXPECT_EQ(error_reply("", 8, 0), "ZZZZZZZZ");
}

TEST_F(Ipc, AReplyWithoutRoomForTheHeaderIsRejected) {
    for (const int size : {1, 2, 3})
        EXPECT_EQ(error_reply("busy", size, -1), std::string(static_cast<size_t>(size), 'Z'));
    char byte = 0;
    EXPECT_EQ(resp_set_error_msg(&byte, "busy", 0), -1);
    EXPECT_EQ(resp_set_error_msg(&byte, "busy", static_cast<size_t>(INT_MAX) + 1), -1);
    EXPECT_EQ(resp_set_error_msg(nullptr, "busy", 8), -1);
    EXPECT_EQ(resp_set_error_msg(&byte, nullptr, 8), -1);
    EXPECT_EQ(errno, EINVAL);
}

}  // namespace
