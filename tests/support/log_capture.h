// log_capture.h - what the device's programs send to the system log, as values.
#pragma once

#include <gmock/gmock.h>
#include <syslog.h>

#include <condition_variable>
#include <mutex>
#include <ostream>
#include <string>
#include <string_view>
#include <thread>
#include <vector>

namespace tq_test {

struct LogLine {
    int priority;
    int facility;
    std::string ident;
    std::string function;  // empty, and line 0, when the message has no prefix "[function:line] "
    int line;
    std::string text;
};
void PrintTo(const LogLine& logged, std::ostream* out);

// "<priority>Mon dd hh:mm:ss ident[pid]: [function:line] text", as syslog(3) sends it.
LogLine parse_log_line(std::string_view datagram);

// Takes the place of the log service at /dev/log until its scope ends. Its thread keeps the queue
// short: the kernel holds about ten datagrams, and syslog(3) waits when there is no room.
class LogCapture {
  public:
    LogCapture();
    ~LogCapture();
    LogCapture(const LogCapture&) = delete;
    LogCapture& operator=(const LogCapture&) = delete;

    // The lines since the last take(), in order; all that were sent before the call are in it.
    std::vector<LogLine> take();

  private:
    void drain();
    bool receive();

    int socket_;
    std::mutex mutex_;
    std::condition_variable caught_up_;
    std::vector<LogLine> lines_;
    unsigned marks_sent_ = 0;
    unsigned marks_seen_ = 0;
    std::thread thread_;
};

inline auto Line(int priority, const std::string& function, const std::string& text) {
    return testing::AllOf(testing::Field("priority", &LogLine::priority, priority),
                          testing::Field("function", &LogLine::function, function),
                          testing::Field("text", &LogLine::text, text));
}

inline auto LineAt(int priority, const std::string& function, int line, const std::string& text) {
    return testing::AllOf(Line(priority, function, text),
                          testing::Field("line", &LogLine::line, line));
}

// All that is logged: a failure, and that of arguments that are rejected.
inline auto Failed(const std::string& function, const std::string& text) {
    return testing::ElementsAre(Line(LOG_ERR, function, text));
}

inline auto Rejected(const std::string& function) {
    return Failed(function, "invalid parameters\n");
}

}  // namespace tq_test
