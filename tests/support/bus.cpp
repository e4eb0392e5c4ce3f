#include "support/bus.h"

#include <dirent.h>
#include <fcntl.h>
#include <sys/prctl.h>
#include <sys/socket.h>
#include <sys/un.h>
#include <sys/wait.h>
#include <unistd.h>

#include <array>
#include <cerrno>
#include <chrono>
#include <csignal>
#include <cstring>
#include <filesystem>
#include <sstream>
#include <stdexcept>
#include <string_view>
#include <thread>

#include "support/device.h"

namespace tq_test {
namespace {

constexpr char kSocket[] = "/var/run/ubus/ubus.sock";

sockaddr_un bus_address() {
    sockaddr_un address{};
    address.sun_family = AF_UNIX;
    memcpy(address.sun_path, kSocket, sizeof(kSocket));
    return address;
}

// The broker's process, 0 where there is none.
pid_t find_broker() {
    const int fd = socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0);
    const sockaddr_un address = bus_address();
    ucred peer{};
    socklen_t size = sizeof(peer);
    if (connect(fd, reinterpret_cast<const sockaddr*>(&address), sizeof(address)) == 0)
        getsockopt(fd, SOL_SOCKET, SO_PEERCRED, &peer, &size);
    close(fd);
    return peer.pid;
}

const std::vector<std::string>& without_bus(const std::vector<std::string>& command) {
    stop_bus();
    return command;
}

[[noreturn]] void become(const std::vector<std::string>& command, int output) {
    prctl(PR_SET_PDEATHSIG, SIGKILL);
    dup2(output, STDOUT_FILENO);
    std::vector<char*> arguments;
    arguments.reserve(command.size() + 1);
    for (const std::string& word : command)
        arguments.push_back(const_cast<char*>(word.c_str()));
    arguments.push_back(nullptr);
    execvp(arguments[0], arguments.data());
    _exit(127);
}

// The service's program; where it is another machine's, behind its emulator.
std::vector<std::string> service_command(const std::string& record,
                                         const std::vector<std::string>& objects) {
    std::vector<std::string> command;
    std::istringstream words(TQ_BUS_SERVICE);
    for (std::string word; words >> word;)
        command.push_back(word);
    command.push_back(record);
    command.insert(command.end(), objects.begin(), objects.end());
    return command;
}

std::string next_record() {
    static int number = 0;
    return "/run/tqdevice/bus." + std::to_string(getpid()) + "." + std::to_string(number++);
}

}  // namespace

Process::Process(const std::vector<std::string>& command) : pid_(-1), output_(-1) {
    std::array<int, 2> ends{};
    must(pipe2(ends.data(), O_CLOEXEC) == 0, "pipe2");
    pid_ = fork();
    must(pid_ >= 0, "fork");
    if (pid_ == 0) become(command, ends[1]);
    close(ends[1]);
    output_ = ends[0];
}

Process::~Process() {
    kill();
    close(output_);
}

void Process::kill() {
    if (pid_ < 0) return;
    ::kill(pid_, SIGKILL);
    while (waitpid(pid_, nullptr, 0) < 0 && errno == EINTR) {
    }
    pid_ = -1;
}

void Process::signal(int number) const {
    ::kill(pid_, number);
}

void Process::wait_for_output() const {
    char byte = 0;
    if (read(output_, &byte, 1) != 1) throw std::runtime_error("a program did not start");
}

void stop_bus() {
    while (const pid_t broker = find_broker())
        ::kill(broker, SIGKILL);
}

Broker::Broker() : process_(without_bus({"ubusd"})) {
    for (int tries = 0; find_broker() == 0; tries++) {
        if (tries == 1000) throw std::runtime_error("there is no bus");
        std::this_thread::sleep_for(std::chrono::milliseconds(2));
    }
}

BusService::BusService(const std::vector<std::string>& objects)
    : record_(next_record()), process_(service_command(record_, objects)) {
    process_.wait_for_output();
}

std::vector<std::string> BusService::take() {
    std::vector<std::string> calls;
    std::istringstream lines(read_file(record_));
    for (std::string line; std::getline(lines, line);)
        calls.push_back(line);
    std::filesystem::resize_file(record_, 0);
    return calls;
}

void BusService::wait_for_call() const {
    while (std::filesystem::file_size(record_) == 0)
        std::this_thread::sleep_for(std::chrono::milliseconds(1));
}

int bus_connections() {
    int connections = 0;
    for (int fd = 0; fd < 256; fd++) {
        sockaddr_un peer{};
        socklen_t size = sizeof(peer);
        if (getpeername(fd, reinterpret_cast<sockaddr*>(&peer), &size) == 0 &&
            peer.sun_family == AF_UNIX &&
            std::string_view(peer.sun_path).ends_with("/run/ubus/ubus.sock")) {
            connections++;
        }
    }
    return connections;
}

}  // namespace tq_test
