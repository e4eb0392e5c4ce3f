// process.h - a known process on the command line.
#pragma once

#include <tq/syslog_config.h>

#include <span>

namespace tqctl {

// The built-in table of known processes.
std::span<syslog_process> known_processes();

// The known process of that name or id; null where there is none.
syslog_process* find_process(const char* text);

}  // namespace tqctl
