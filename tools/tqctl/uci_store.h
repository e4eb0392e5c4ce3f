// uci_store.h - what can be learnt of a UCI file beside the library's calls, whose only answers are
// 0 and -1.
#pragma once

#include <tq/uci_session.h>

#include <cstddef>
#include <optional>

#include "command.h"

namespace tqctl {

struct Cause {
    ExitCode code;
    const char* text;
};

// Says it of the subject; the result is the code.
ExitCode explain(const Context& context, const char* subject, const Cause& cause);

// Whether there is anything of that name in /etc/config.
bool is_present(const char* file);

// Whether changes of the file wait in the delta area.
bool has_staged_changes(const char* file);

// What keeps the file from being read, or nothing.
std::optional<Cause> obstacle_to_reading(const char* file);

// Why a call on the file failed: it cannot be read, it is damaged, or else what the caller asked
// for is not to be had.
Cause cause_of_failure(const char* file, const char* otherwise);

// Loads the file's session. Never creates the file: looking at it must not.
ExitCode load_session(const Context& context, const uci_entry& entry, uci_config_ctx& session);

// What would keep a change from being written. Asked before the change: one that cannot be written
// would stay staged and come into force with a later one, and where there is no room for the new
// file, a libuci that does not notice loses the old one.
std::optional<Cause> obstacle_to_change(const char* file);

// Runs a change of the file, negative for a failure; the refusal is what that means where nothing
// is wrong with the file.
template <typename Change>
ExitCode change_file(const Context& context, const char* file, const char* refusal, Change change) {
    if (const auto obstacle = obstacle_to_change(file)) return explain(context, file, *obstacle);
    if (change() >= 0) return ExitCode::kDone;
    return explain(context, file, cause_of_failure(file, refusal));
}

// Room for any value of the file, its terminator included.
size_t value_room(const char* file);

}  // namespace tqctl
