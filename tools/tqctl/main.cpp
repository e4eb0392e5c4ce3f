// main.cpp - the command line: options, then the family and the verb that run.
#include <fcntl.h>
#include <getopt.h>
#include <syslog.h>
#include <unistd.h>

#include <cerrno>
#include <cstdio>
#include <cstring>

#include "families.h"
#include "help.h"

namespace {

using tqctl::Arguments;
using tqctl::Command;
using tqctl::Context;
using tqctl::ExitCode;
using tqctl::Family;

constexpr char kLetters[] = "+jqhV";
constexpr option kOptions[] = {
    {"json", no_argument, nullptr, 'j'},   {"quiet", no_argument, nullptr, 'q'},
    {"help", no_argument, nullptr, 'h'},   {"version", no_argument, nullptr, 'V'},
    {nullptr, no_argument, nullptr, '\0'},
};

// A descriptor that the caller has closed must not become that of a file that is written. What goes
// to standard output then fails, as it would without this.
void hold_standard_descriptors() {
    for (int fd = STDIN_FILENO; fd <= STDERR_FILENO; fd++) {
        if (fcntl(fd, F_GETFD) < 0)
            (void)open("/dev/null", fd == STDOUT_FILENO ? O_RDONLY : O_RDWR);
    }
}

void silence_diagnostics(Context& context) {
    context.is_quiet = true;
    const int fd = open("/dev/null", O_WRONLY | O_CLOEXEC);
    if (fd < 0) return;
    dup2(fd, STDERR_FILENO);
    close(fd);
}

// The library's errors and warnings reach the terminal, too.
void open_log() {
    openlog("tqctl", LOG_PERROR, LOG_USER);
    setlogmask(LOG_UPTO(LOG_WARNING));
}

bool asks_for_help(Arguments arguments) {
    if (arguments.empty()) return false;
    return strcmp(arguments[0], "--help") == 0 || strcmp(arguments[0], "-h") == 0;
}

ExitCode run_command(Context& context, const Command& command, Arguments arguments) {
    context.command = &command;
    if (asks_for_help(arguments))
        return tqctl::show_commands(context, *context.family, {&command, 1});
    if (arguments.size() < command.min_arguments) return context.misuse("an argument is missing");
    if (arguments.size() > command.max_arguments) return context.misuse("too many arguments");
    return command.run(context, arguments);
}

ExitCode run_family(Context& context, Arguments words) {
    const Family* family = tqctl::find_family(words[0]);
    if (!family) return context.misuse("no family of commands is named '%s'", words[0]);
    context.family = family;
    const Arguments rest = words.subspan(1);
    if (tqctl::is_single(*family)) return run_command(context, family->commands.front(), rest);
    if (asks_for_help(rest)) return tqctl::show_commands(context, *family, family->commands);
    if (rest.empty()) return context.misuse("%s needs a verb", family->name);
    const Command* command = tqctl::find_command(*family, rest[0]);
    if (!command) return context.misuse("%s has no verb '%s'", family->name, rest[0]);
    return run_command(context, *command, rest.subspan(1));
}

ExitCode run(Context& context, int argc, char** argv) {
    opterr = 0;
    for (int option = 0; (option = getopt_long(argc, argv, kLetters, kOptions, nullptr)) != -1;) {
        switch (option) {
            case 'j':
                context.output.use_json();
                break;
            case 'q':
                silence_diagnostics(context);
                break;
            case 'h':
                return tqctl::show_map(context);
            case 'V':
                return tqctl::show_version(context);
            default:
                // A known letter is that of a long option with a value, which none takes.
                return optopt && !strchr(kLetters, optopt)
                           ? context.misuse("unknown option '-%c'", optopt)
                           : context.misuse("unknown option '%s'", argv[optind - 1]);
        }
    }
    if (optind == argc) return context.misuse("a family of commands and a verb are needed");
    open_log();
    return run_family(context, Arguments(argv + optind, static_cast<size_t>(argc - optind)));
}

}  // namespace

int main(int argc, char** argv) {
    hold_standard_descriptors();
    Context context;
    ExitCode code = run(context, argc, argv);
    if (!context.output.finish()) {
        code = context.fail(ExitCode::kInputOutput, "standard output: %s", strerror(errno));
    }
    return static_cast<int>(code);
}
