// process_table.h - the table of known processes, and the notice of a new log level to those that
// run.
#pragma once

#include <cstddef>
#include <cstdint>

#include "foundation/hidden.h"
#include "tq/syslog_config.h"

namespace TQ_HIDDEN tq {

inline constexpr size_t kProcessCount = 56;
inline constexpr uint32_t kAllProcesses = SYSLOG_ALL_PROCESSES;

// Tells a process that its level file is new.
inline constexpr int kReloadSignal = 49;

// Room for "|" and each name closed by "|".
inline constexpr size_t kNameListSize = 512;
// A line of the log daemon's configuration, with room for every tag.
inline constexpr size_t kConfigLineSize = 1024;

// The one table of the process: kProcessCount rows in the order of the ids.
syslog_process* process_table();

// Null where there is no table or no row of that id.
syslog_process* find_process(syslog_process* rows, uint32_t id);

// Sends kReloadSignal to the running processes that the list ("|", names each closed by "|") holds
// and that catch it. Always 0.
int notice_apps(const char* list);

}  // namespace tq
