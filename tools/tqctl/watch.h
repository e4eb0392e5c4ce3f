// watch.h - the live view of tqctl stat.
#pragma once

#include "command.h"

namespace tqctl {

ExitCode watch_figures(Context& context, Arguments arguments);

}  // namespace tqctl
