// fm_threshold.h - the verbs of tqctl fm that keep their values in the file tqfm.
#pragma once

#include "command.h"

namespace tqctl {

ExitCode fm_threshold(Context& context, Arguments arguments);
ExitCode fm_suppress(Context& context, Arguments arguments);

}  // namespace tqctl
