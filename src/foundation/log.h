// log.h - the one door to the system log.
#pragma once

#include <syslog.h>

#include "foundation/hidden.h"

namespace TQ_HIDDEN tq {

// A log line's number and priority in one argument: several hundred calls load it.
constexpr unsigned log_where(int line, int priority) {
    return static_cast<unsigned>(line) << 3 | static_cast<unsigned>(priority);
}

// Whether a line of this priority is wanted at all: for whoever writes several of them in a loop.
bool is_logged(int priority);

// Logs "[function:line] text" with no explicit facility. The result is -1 always, which makes a
// failure and its line one expression.
__attribute__((format(printf, 3, 4))) int log_line(unsigned where, const char* function,
                                                   const char* format, ...);

// What a function does with arguments that it cannot take: "invalid parameters" in its name, or, in
// some families, "invalid parameter". The result is -1.
int reject(const char* function);
int reject_parameter(const char* function);

// A text for a log line: some C libraries stop at a null "%s".
inline const char* printable(const char* text) {
    return text ? text : "(null)";
}

}  // namespace tq

// The first is for a step that logs in its caller's name, the second names the line, where field
// tools match on it; the third is the usual one.
#define TQ_LOG_IN(caller, priority, ...) \
    ::tq::log_line(::tq::log_where(__LINE__, priority), caller, __VA_ARGS__)
#define TQ_LOG_AT(number, priority, ...) \
    ::tq::log_line(::tq::log_where(number, priority), __func__, __VA_ARGS__)
#define TQ_LOG(priority, ...) TQ_LOG_AT(__LINE__, priority, __VA_ARGS__)

// Logs a failure and is the result -1 of the function that noticed it.
#define TQ_FAIL_IN(caller, ...) TQ_LOG_IN(caller, LOG_ERR, __VA_ARGS__)
#define TQ_FAIL(...) TQ_LOG(LOG_ERR, __VA_ARGS__)
