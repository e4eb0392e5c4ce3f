// watch.h - the live view of tqctl stat.
#pragma once

#include "command.h"

namespace tqctl {

ExitCode watch(Context& context, Arguments arguments);

}  // namespace tqctl
