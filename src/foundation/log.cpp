#include "foundation/log.h"

#include <cstdarg>
#include <cstdio>

namespace tq {

bool is_logged(int priority) {
    return (setlogmask(0) & LOG_MASK(priority)) != 0;
}

int log_line(unsigned where, const char* function, const char* format, ...) {
    // Most traces are masked, and need no text then.
    if (!is_logged(static_cast<int>(where & 7))) return -1;
    // Only the library's own texts come here, none of them near this long; their values are
    // formatted by syslog itself, at whatever length it allows.
    char prefixed[512];
    snprintf(prefixed, sizeof prefixed, "[%s:%u] %s", function, where >> 3, format);
    va_list values;
    va_start(values, format);
#pragma GCC diagnostic push
#pragma GCC diagnostic ignored "-Wformat-nonliteral"
    vsyslog(static_cast<int>(where & 7), prefixed, values);
#pragma GCC diagnostic pop
    va_end(values);
    return -1;
}

int reject(const char* function) {
    return TQ_FAIL_IN(function, "invalid parameters\n");
}

int reject_parameter(const char* function) {
    return TQ_FAIL_IN(function, "invalid parameter\n");
}

}  // namespace tq
