#include "support/log_capture.h"

#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/un.h>
#include <unistd.h>

#include <array>
#include <cerrno>
#include <cstdio>
#include <regex>
#include <utility>

#include "support/device.h"

namespace tq_test {
namespace {

constexpr const char* kServed = "/dev/log";
constexpr const char* kAside = "/dev/log.aside";
// No line of the log begins with a zero byte.
constexpr std::string_view kMark("\0mark", 5);

sockaddr_un log_address() {
    sockaddr_un address{};
    address.sun_family = AF_UNIX;
    std::snprintf(address.sun_path, sizeof(address.sun_path), "%s", kServed);
    return address;
}

int open_log_socket() {
    const int fd = socket(AF_UNIX, SOCK_DGRAM | SOCK_CLOEXEC, 0);
    must(fd >= 0, "socket");
    const sockaddr_un address = log_address();
    must(rename(kServed, kAside) == 0, kServed);
    must(bind(fd, reinterpret_cast<const sockaddr*>(&address), sizeof(address)) == 0, kServed);
    must(chmod(kServed, 0666) == 0, kServed);
    return fd;
}

void send_to_log(int fd, std::string_view text) {
    const sockaddr_un address = log_address();
    const ssize_t sent = sendto(fd, text.data(), text.size(), 0,
                                reinterpret_cast<const sockaddr*>(&address), sizeof(address));
    must(sent == static_cast<ssize_t>(text.size()), "sendto");
}

}  // namespace

void PrintTo(const LogLine& logged, std::ostream* out) {
    *out << "{" << logged.priority << ", \"" << logged.function << "\":" << logged.line << ", "
         << testing::PrintToString(logged.text) << ", from " << logged.ident << "}";
}

LogLine parse_log_line(std::string_view datagram) {
    static const std::regex header(R"(^<(\d+)>\w{3} [ \d]\d \d\d:\d\d:\d\d ([^:\[]*)(\[\d+\])?: )");
    static const std::regex prefix(R"(^\[(\w+):(\d+)\] )");
    std::cmatch match;
    if (!std::regex_search(datagram.begin(), datagram.end(), match, header))
        return {-1, -1, "", "", 0, std::string(datagram)};

    const int number = std::stoi(match[1]);
    LogLine logged{LOG_PRI(number), number & LOG_FACMASK, match[2], "", 0, match.suffix()};
    const std::string message = logged.text;
    std::smatch origin;
    if (std::regex_search(message, origin, prefix)) {
        logged.function = origin[1];
        logged.line = std::stoi(origin[2]);
        logged.text = origin.suffix();
    }
    return logged;
}

// The C library keeps its connection to the log, so it has to let go of it on both ends of the
// scope.
LogCapture::LogCapture() : socket_(open_log_socket()), thread_(&LogCapture::drain, this) {
    closelog();
}

LogCapture::~LogCapture() {
    shutdown(socket_, SHUT_RDWR);
    thread_.join();
    closelog();
    close(socket_);
    rename(kAside, kServed);
}

std::vector<LogLine> LogCapture::take() {
    send_to_log(socket_, kMark);
    std::unique_lock lock(mutex_);
    ++marks_sent_;
    caught_up_.wait(lock, [this] { return marks_seen_ == marks_sent_; });
    return std::exchange(lines_, {});
}

void LogCapture::drain() {
    while (receive()) {
    }
}

bool LogCapture::receive() {
    std::array<char, 65536> buffer;
    const ssize_t size = recv(socket_, buffer.data(), buffer.size(), 0);
    // Nobody sends an empty datagram: it is the end of the scope.
    if (size <= 0) return size < 0 && errno == EINTR;
    const std::string_view datagram(buffer.data(), static_cast<std::size_t>(size));
    const std::lock_guard lock(mutex_);
    if (datagram == kMark) {
        ++marks_seen_;
        caught_up_.notify_one();
        return true;
    }
    lines_.push_back(parse_log_line(datagram));
    return true;
}

}  // namespace tq_test
