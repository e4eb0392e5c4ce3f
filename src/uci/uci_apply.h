// uci_apply.h - the steps behind every change by path: one action on one path, staged; the commit;
// and a new section, staged.
#pragma once

#include <uci.h>

#include <cstdint>

#include "foundation/hidden.h"

namespace TQ_HIDDEN tq {

// The codes are those of the management tools' action field.
enum class UciAction : uint8_t {
    kSet = 1,
    kAddListItem = 2,
    kDeleteListItem = 3,
    kDelete = 4,
    kRename = 5,
    kRevert = 6,
    kReorder = 7,
};

// Looks the path up in a private context, performs the action and stages it in the delta area; the
// file itself changes with the commit. Deleting what is not there is done already. 0 or -1, logged.
int uci_do_section(UciAction action, const char* path);

// Commits a file. 0 or -1, logged.
int uci_commit_cfg(const char* file);

// Adds an anonymous section to a loaded package and stages it. Its index among the sections of its
// type, or -1, logged in the caller's name.
int stage_section(const char* caller, uci_context* context, uci_package* package, const char* type);

}  // namespace tq
