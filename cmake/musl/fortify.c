/* fortify.c - what Debian's static libraries need of the C library and musl does not have: the
 * checked forms of functions.
 */
#include <stdarg.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>
#include <syslog.h>

/* NOLINTBEGIN(bugprone-reserved-identifier,cert-dcl37-c,cert-dcl51-cpp): the names are given */

int __fprintf_chk(FILE* file, int flag, const char* format, ...);
int __vfprintf_chk(FILE* file, int flag, const char* format, va_list arguments);
int __snprintf_chk(char* out, size_t size, int flag, size_t room, const char* format, ...);
int __vsnprintf_chk(char* out, size_t size, int flag, size_t room, const char* format,
                    va_list arguments);
int __vasprintf_chk(char** out, int flag, const char* format, va_list arguments);
char* __strcat_chk(char* out, const char* text, size_t room);
void __vsyslog_chk(int priority, int flag, const char* format, va_list arguments);

int __vfprintf_chk(FILE* file, int flag, const char* format, va_list arguments) {
    (void)flag;
    return vfprintf(file, format, arguments);
}

int __fprintf_chk(FILE* file, int flag, const char* format, ...) {
    va_list arguments;
    int length;

    va_start(arguments, format);
    length = __vfprintf_chk(file, flag, format, arguments);
    va_end(arguments);
    return length;
}

int __vsnprintf_chk(char* out, size_t size, int flag, size_t room, const char* format,
                    va_list arguments) {
    (void)flag;
    if (size > room) abort();
    return vsnprintf(out, size, format, arguments);
}

int __snprintf_chk(char* out, size_t size, int flag, size_t room, const char* format, ...) {
    va_list arguments;
    int length;

    va_start(arguments, format);
    length = __vsnprintf_chk(out, size, flag, room, format, arguments);
    va_end(arguments);
    return length;
}

int __vasprintf_chk(char** out, int flag, const char* format, va_list arguments) {
    (void)flag;
    return vasprintf(out, format, arguments);
}

char* __strcat_chk(char* out, const char* text, size_t room) {
    const size_t length = strlen(out);
    const size_t more = strlen(text);

    if (length + more >= room) abort();
    memcpy(out + length, text, more + 1);
    return out;
}

void __vsyslog_chk(int priority, int flag, const char* format, va_list arguments) {
    (void)flag;
    vsyslog(priority, format, arguments);
}

/* The archives are not position-independent where they use these, which therefore have to be in the
 * same object.
 */
extern FILE* const __real_stdout;
extern FILE* const __real_stderr;
__attribute__((visibility("hidden"))) FILE* __wrap_stdout;
__attribute__((visibility("hidden"))) FILE* __wrap_stderr;

__attribute__((constructor(101))) static void wrap_streams(void) {
    __wrap_stdout = __real_stdout;
    __wrap_stderr = __real_stderr;
}
/* NOLINTEND(bugprone-reserved-identifier,cert-dcl37-c,cert-dcl51-cpp) */
