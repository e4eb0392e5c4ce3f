// board_facts.h - what tqctl board show says, for others as well.
#pragma once

#include "command.h"

namespace tqctl {

// The number of radios, and the answer to whether there is a board to ask.
ExitCode count_radios(const Context& context, int& radios);

// Model, modes, numbers of radios and ports, and the WAN's names.
Json describe_board();

}  // namespace tqctl
