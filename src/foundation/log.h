// log.h - the one door to the system log.
#pragma once

#include <syslog.h>

namespace tq {

// The function and line that a log line names.
struct LogSite {
    const char* function;
    int line;
};

}  // namespace tq

#define TQ_HERE (::tq::LogSite{__func__, __LINE__})

// Logs "[function:line] text" with no explicit facility. The first form is for a step that logs in
// its caller's name; the second names the line, where field tools match on it; the third is the
// usual one.
#define TQ_LOG_AS(site, priority, format, ...) \
    syslog((priority), "[%s:%d] " format, (site).function, (site).line __VA_OPT__(, ) __VA_ARGS__)
#define TQ_LOG_AT(number, priority, format, ...) \
    TQ_LOG_AS((::tq::LogSite{__func__, number}), priority, format __VA_OPT__(, ) __VA_ARGS__)
#define TQ_LOG(priority, format, ...) \
    TQ_LOG_AT(__LINE__, priority, format __VA_OPT__(, ) __VA_ARGS__)

// Logs a failure and is the result -1 of the function that noticed it.
#define TQ_FAIL_AS(site, ...) (TQ_LOG_AS(site, LOG_ERR, __VA_ARGS__), -1)
#define TQ_FAIL(...) TQ_FAIL_AS(TQ_HERE, __VA_ARGS__)

namespace tq {

// A text for a log line: some C libraries stop at a null "%s".
inline const char* printable(const char* text) {
    return text ? text : "(null)";
}

}  // namespace tq
