// help.h - what the table says about itself, and the words that help and the man page share.
#pragma once

#include <cstdio>

#include "command.h"

namespace tqctl {

inline constexpr char kPurpose[] =
    "the companion command of libtq, an access point's platform library";
inline constexpr char kSynopsis[] = "tqctl [-j] [-q] FAMILY VERB [ARGUMENTS]";

struct OptionText {
    const char* letter;
    const char* name;
    const char* help;
};

struct ExitText {
    ExitCode code;
    const char* meaning;
};

// Those that commands heed come first: JSON and quiet.
std::span<const OptionText> option_texts();
std::span<const ExitText> exit_texts();

// A blank for what has one in front where it is not empty.
const char* blank_before(const char* text);

// A line with all that a command takes.
void print_synopsis(FILE* stream, const Family& family, const Command& command);

ExitCode show_version(Context& context);

// Every family with its verbs and a line of summary.
ExitCode show_map(Context& context);

// Commands of a family in full.
ExitCode show_commands(Context& context, const Family& family, std::span<const Command> commands);

}  // namespace tqctl
