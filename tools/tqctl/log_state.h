// log_state.h - the log settings of the device, which the library keeps for one process only.
#pragma once

namespace tqctl {

// Fills the library's table and settings from what they last were written to: the level files,
// /etc/syslogd.conf and /tmp/syslogserver. What stands nowhere stays as the library has it at
// first.
void take_log_state();

}  // namespace tqctl
