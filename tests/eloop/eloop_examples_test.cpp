// eloop_examples_test.cpp - the example daemons, run as a user would run them.
#include <arpa/inet.h>
#include <fcntl.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <netinet/in.h>
#include <spawn.h>
#include <sys/socket.h>
#include <sys/wait.h>
#include <unistd.h>

#include <array>
#include <csignal>
#include <cstdint>
#include <cstdio>
#include <stdexcept>
#include <string>
#include <vector>

#include "support/device.h"

namespace {

using testing::HasSubstr;
using tq_test::DeviceTest;

// A program that runs, with its output to be read line by line.
class Program {
  public:
    explicit Program(std::vector<std::string> arguments) {
        std::array<int, 2> ends = {};
        if (pipe2(ends.data(), O_CLOEXEC) != 0) throw std::runtime_error("pipe2");
        posix_spawn_file_actions_t actions;
        posix_spawn_file_actions_init(&actions);
        posix_spawn_file_actions_adddup2(&actions, ends[1], STDOUT_FILENO);
        std::vector<char*> argv;
        argv.reserve(arguments.size() + 1);
        for (std::string& argument : arguments)
            argv.push_back(argument.data());
        argv.push_back(nullptr);
        const int error = posix_spawnp(&pid_, argv[0], &actions, nullptr, argv.data(), environ);
        posix_spawn_file_actions_destroy(&actions);
        close(ends[1]);
        output_ = fdopen(ends[0], "r");
        if (error != 0) throw std::runtime_error("cannot start " + arguments[0]);
    }
    ~Program() {
        if (pid_ > 0) {
            kill(pid_, SIGKILL);
            waitpid(pid_, nullptr, 0);
        }
        fclose(output_);
    }
    Program(const Program&) = delete;
    Program& operator=(const Program&) = delete;

    // The next line without its line feed; empty at the end.
    std::string line() {
        std::array<char, 256> text = {};
        if (!fgets(text.data(), text.size(), output_)) return "";
        std::string result = text.data();
        if (result.ends_with('\n')) result.pop_back();
        return result;
    }

    // As a shell tells it.
    int stop(int sig) {
        kill(pid_, sig);
        int status = 0;
        waitpid(pid_, &status, 0);
        pid_ = -1;
        return WIFEXITED(status) ? WEXITSTATUS(status) : 128 + WTERMSIG(status);
    }

  private:
    pid_t pid_ = -1;
    FILE* output_ = nullptr;
};

// Sends the text to the port and returns the answer.
std::string ask(uint16_t port, const std::string& text) {
    sockaddr_in address = {};
    address.sin_family = AF_INET;
    address.sin_port = htons(port);
    address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
    const int sock = socket(AF_INET, SOCK_DGRAM | SOCK_CLOEXEC, 0);
    EXPECT_EQ(connect(sock, reinterpret_cast<const sockaddr*>(&address), sizeof(address)), 0);
    EXPECT_EQ(send(sock, text.data(), text.size(), 0), static_cast<ssize_t>(text.size()));
    std::array<char, 64> answer = {};
    const ssize_t length = recv(sock, answer.data(), answer.size(), 0);
    close(sock);
    return length < 0 ? "nothing" : std::string(answer.data(), static_cast<size_t>(length));
}

class Examples : public DeviceTest {};

TEST_F(Examples, EloopDaemonAnswersCountsAndEndsOnSigterm) {
    Program daemon({"eloop_daemon", "0", "1"});
    unsigned port = 0;
    ASSERT_EQ(sscanf(daemon.line().c_str(), "listening on port %u", &port), 1);
    EXPECT_EQ(daemon.line(), "ready");
    EXPECT_EQ(ask(static_cast<uint16_t>(port), "hello"), "hello");
    EXPECT_EQ(ask(static_cast<uint16_t>(port), ""), "");
    std::string counted = daemon.line();
    while (counted == "0 answered" || counted == "1 answered")
        counted = daemon.line();
    EXPECT_EQ(counted, "2 answered");
    EXPECT_EQ(daemon.stop(SIGTERM), 0);
    std::string last;
    for (std::string line = daemon.line(); !line.empty(); line = daemon.line())
        last = line;
    EXPECT_EQ(last, "signal " + std::to_string(SIGTERM) + ", 2 answered");
}

TEST_F(Examples, DaemonsTellHowTheyAreUsed) {
    for (const char* usage : {"eloop_daemon PORT", "link_daemon IDENT INTERFACE"}) {
        const std::string text = usage;
        const auto result = tq_test::run_command(text.substr(0, text.find(' ')));
        EXPECT_EQ(result.status, 1);
        EXPECT_THAT(result.err, HasSubstr("Usage: " + text));
    }
}

TEST_F(Examples, ThdEloopDaemonPassesReadingsOnAndEndsOnSigterm) {
    Program daemon({"thd_eloop_daemon", "10"});
    bool first = false;
    bool second = false;
    while (!first || !second) {
        const std::string line = daemon.line();
        ASSERT_FALSE(line.empty());
        first = first || line == "worker 0: reading 1";
        second = second || line == "worker 1: reading 1";
    }
    EXPECT_EQ(daemon.stop(SIGTERM), 0);
    unsigned long received = 0;
    bool signalled = false;
    for (std::string line = daemon.line(); !line.empty(); line = daemon.line()) {
        signalled = signalled || line == "signal " + std::to_string(SIGTERM);
        if (sscanf(line.c_str(), "%lu readings received", &received) == 1) break;
    }
    EXPECT_TRUE(signalled);
    EXPECT_GE(received, 2U);
}

}  // namespace
