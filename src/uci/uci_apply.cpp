#include "uci/uci_apply.h"

#include <cstring>

#include "foundation/file.h"
#include "foundation/log.h"
#include "foundation/text.h"
#include "uci/uci_context.h"

namespace tq {

namespace {

int reorder(uci_context* context, uci_ptr* target) {
    if (!target->value || !target->s) return UCI_ERR_INVAL;
    return uci_reorder_section(context, target->s, leading_int(target->value));
}

int perform(uci_context* context, uci_ptr* target, UciAction action) {
    switch (action) {
        case UciAction::kSet:
            return uci_set(context, target);
        case UciAction::kAddListItem:
            return uci_add_list(context, target);
        case UciAction::kDeleteListItem:
            return uci_del_list(context, target);
        case UciAction::kDelete:
            return uci_delete(context, target);
        case UciAction::kRename:
            return uci_rename(context, target);
        case UciAction::kRevert:
            return uci_revert(context, target);
        case UciAction::kReorder:
            return reorder(context, target);
    }
    return UCI_ERR_INVAL;
}

// A delete takes a value only as the position of a list item; a revert takes none.
bool takes_value(UciAction action, const char* value) {
    if (action == UciAction::kDelete) return starts_with_int(value);
    return action != UciAction::kRevert;
}

bool tolerates_absence(UciAction action) {
    return action == UciAction::kDelete || action == UciAction::kDeleteListItem;
}

int count_sections(uci_package* package, const char* type) {
    int count = 0;
    uci_element* element = nullptr;
    uci_foreach_element(&package->sections, element) {
        if (strcmp(uci_to_section(element)->type, type) == 0) count++;
    }
    return count;
}

// What the file can hold as a type. Not every libuci checks it before the commit.
bool is_type(const char* type) {
    for (const char* c = type; *c; c++) {
        if (*c <= ' ' || *c > '~') return false;
    }
    return *type != '\0';
}

int apply(uci_context* context, uci_ptr* target, UciAction action, const char* caller) {
    if (target->value && !takes_value(action, target->value)) {
        return TQ_FAIL_IN(caller, "invalid\n");
    }
    int result = perform(context, target, action);
    if (result == UCI_ERR_NOTFOUND && tolerates_absence(action)) result = UCI_OK;
    if (result == UCI_OK) result = uci_save(context, target->p);
    return result == UCI_OK ? 0 : -1;
}

int commit(uci_context* context, uci_ptr* target, const char* file, const char* caller) {
    if (uci_commit(context, &target->p, false) == UCI_OK) return 0;
    return TQ_FAIL_IN(caller, "uci_commit fail, %s\n", file);
}

// Applies the action to what the path leads to, in a context of its own, or commits it where there
// is none. libuci writes into the copy of the path.
int work_on(const char* path, const UciAction* action, const char* caller) {
    if (!path) return reject(caller);
    const UciContext context;
    if (!context) return TQ_FAIL_IN(caller, "uci_alloc_context fail\n");
    const HeapText copy(strdup(path));
    uci_ptr target;
    if (!copy || uci_lookup_ptr(context.get(), &target, copy.get(), true) != UCI_OK) {
        return TQ_FAIL_IN(caller, "uci_lookup_ptr fail, %s\n", path);
    }
    return action ? apply(context.get(), &target, *action, caller)
                  : commit(context.get(), &target, path, caller);
}

}  // namespace

int uci_do_section(UciAction action, const char* path) {
    return work_on(path, &action, __func__);
}

int uci_commit_cfg(const char* file) {
    return work_on(file, nullptr, __func__);
}

int stage_section(const char* caller, uci_context* context, uci_package* package,
                  const char* type) {
    if (!context || !package || !type) return tq::reject(caller);
    uci_section* section = nullptr;
    if (!is_type(type) || uci_add_section(context, package, type, &section) != UCI_OK) {
        return TQ_FAIL_IN(caller, "uci_add_section %s fail\n", type);
    }
    if (uci_save(context, package) != UCI_OK) {
        return TQ_FAIL_IN(caller, "uci_save %s fail\n", package->e.name);
    }
    return count_sections(package, type) - 1;
}

}  // namespace tq
