// command.h - what a command of tqctl is: its entry in the table, and what it runs with.
#pragma once

#include <cstddef>
#include <cstdint>
#include <span>

#include "output.h"

namespace tqctl {

enum class ExitCode : int {
    kDone = 0,
    kRefused = 1,
    kUsage = 2,
    kBusy = 3,
    kNotPermitted = 4,
    kDamaged = 5,
    kInputOutput = 6,
};

// The exit code that an errno value stands for.
ExitCode exit_code_of(int error);

struct Family;
struct Command;

// A diagnostic that somebody asked for, the first of several.
struct Complaint {
    char text[256] = "";
};

// What a command runs with, and its voice on standard error.
struct Context {
    Output output;
    const Family* family = nullptr;
    const Command* command = nullptr;
    Complaint* complaint = nullptr;  // where diagnostics go in place of standard error
    bool is_quiet = false;           // standard error is silenced: nobody can be asked

    // Says what went wrong; the result is the code.
    __attribute__((format(printf, 3, 4))) ExitCode fail(ExitCode code, const char* format,
                                                        ...) const;

    // Says what errno means for the subject.
    ExitCode fail_by_errno(const char* subject) const;

    // Says what is wrong with the command line, and how the command is used.
    __attribute__((format(printf, 2, 3))) ExitCode misuse(const char* format, ...) const;
};

using Arguments = std::span<char* const>;
using Handler = ExitCode (*)(Context&, Arguments);

inline constexpr size_t kAnyNumber = SIZE_MAX;

// A row of the table. Texts are plain: help and the man page lay them out.
struct Command {
    const char* verb;       // empty where the family is a command by itself
    const char* arguments;  // as the synopsis shows them
    size_t min_arguments;
    size_t max_arguments;
    const char* summary;  // a line without a full stop
    const char* help;     // lines of up to 78 columns; an empty one starts a paragraph, two blanks
                          // start a row of a list
    const char* example;  // a whole command line
    Handler run;
};

struct Family {
    const char* name;
    const char* summary;
    const char* help;  // what its commands have in common, or empty
    std::span<const Command> commands;
};

// Whether no line is longer.
consteval bool fits(const char* text, int width) {
    int column = 0;
    for (; *text; text++) {
        column = *text == '\n' ? 0 : column + 1;
        if (column > width) return false;
    }
    return true;
}

// Fails to compile for a family with a row that help, the man page or the dispatch could not use.
consteval bool is_complete(std::span<const Command> commands) {
    for (const Command& command : commands) {
        if (!*command.summary || !*command.help || !*command.example || !command.run) return false;
        if (!fits(command.help, 78)) return false;
        if (command.min_arguments > command.max_arguments) return false;
    }
    return !commands.empty();
}

// Every family, in the order of the map that help prints.
std::span<const Family* const> families();

// The title of the families that begin with this one, or null.
const char* title_before(const Family& family);

// Null where there is none of that name.
const Family* find_family(const char* name);
const Command* find_command(const Family& family, const char* verb);

// True for a family that is a command by itself.
bool is_single(const Family& family);

}  // namespace tqctl
