#include "foundation/log.h"

#include <cstdarg>
#include <cstdio>

namespace tq {

int log_line(unsigned where, const char* function, const char* format, ...) {
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

}  // namespace tq
