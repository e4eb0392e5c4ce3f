#include "command.h"

#include <cerrno>
#include <cstdarg>
#include <cstdio>
#include <cstring>

#include "help.h"

namespace tqctl {

namespace {

void print_name(const Context& context) {
    const char* verb = context.command->verb;
    fprintf(stderr, "%s%s%s: ", context.family->name, blank_before(verb), verb);
}

__attribute__((format(printf, 2, 0))) void print_complaint(const Context& context,
                                                           const char* format, va_list args) {
    fputs("tqctl: ", stderr);
    if (context.command) print_name(context);
    vfprintf(stderr, format, args);
    fputc('\n', stderr);
}

void print_usage(const Context& context) {
    fputs("usage: ", stderr);
    if (context.command) return print_synopsis(stderr, *context.family, *context.command);
    const char* family = context.family ? context.family->name : "";
    fprintf(stderr, "%s\n'tqctl help%s%s' shows the commands\n", kSynopsis, blank_before(family),
            family);
}

}  // namespace

ExitCode exit_code_of(int error) {
    switch (error) {
        case 0:
            return ExitCode::kDone;
        case ENOENT:
        case ENOTDIR:
        case ENAMETOOLONG:
            return ExitCode::kRefused;
        case EAGAIN:
        case EBUSY:
        case ETIMEDOUT:
            return ExitCode::kBusy;
        case EACCES:
        case EPERM:
            return ExitCode::kNotPermitted;
        default:
            return ExitCode::kInputOutput;
    }
}

const Family* find_family(const char* name) {
    for (const Family* family : families()) {
        if (strcmp(family->name, name) == 0) return family;
    }
    return nullptr;
}

const Command* find_command(const Family& family, const char* verb) {
    for (const Command& command : family.commands) {
        if (strcmp(command.verb, verb) == 0) return &command;
    }
    return nullptr;
}

bool is_single(const Family& family) {
    return *family.commands.front().verb == '\0';
}

ExitCode Context::fail(ExitCode code, const char* format, ...) const {
    va_list args;
    va_start(args, format);
    if (!complaint) {
        print_complaint(*this, format, args);
    } else if (!*complaint->text) {
        vsnprintf(complaint->text, sizeof(complaint->text), format, args);
    }
    va_end(args);
    return code;
}

ExitCode Context::fail_by_errno(const char* subject) const {
    return fail(exit_code_of(errno), "%s: %s", subject, strerror(errno));
}

ExitCode Context::misuse(const char* format, ...) const {
    va_list args;
    va_start(args, format);
    print_complaint(*this, format, args);
    va_end(args);
    print_usage(*this);
    return ExitCode::kUsage;
}

}  // namespace tqctl
