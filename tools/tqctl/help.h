// help.h - what the table says about itself.
#pragma once

#include "command.h"

namespace tqctl {

ExitCode show_version(Context& context);

// Every command with a line of summary.
ExitCode show_map(Context& context);

// The commands of a family, or one of them, in full.
ExitCode show_family(Context& context, const Family& family);
ExitCode show_command(Context& context, const Family& family, const Command& command);

}  // namespace tqctl
