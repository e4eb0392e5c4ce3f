#include "uci/uci_apply.h"

#include <cstdlib>
#include <cstring>

#include "foundation/file.h"
#include "foundation/log.h"
#include "foundation/text.h"
#include "uci/uci_context.h"

namespace tq {

namespace {

int reorder(uci_context* context, uci_ptr* target) {
    if (!target->value || !target->s) return UCI_ERR_INVAL;
    const auto position = static_cast<int>(strtoul(target->value, nullptr, 10));
    return uci_reorder_section(context, target->s, position);
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
    if (action == UciAction::kDelete) return leading_int(value).has_value();
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

}  // namespace

int uci_do_section(UciAction action, const char* path) {
    if (!path) return TQ_FAIL("invalid parameters\n");
    const UciContext context;
    if (!context) return TQ_FAIL("uci_alloc_context fail\n");
    const HeapText copy(strdup(path));
    uci_ptr target{};
    if (!copy || uci_lookup_ptr(context.get(), &target, copy.get(), true) != UCI_OK) {
        return TQ_FAIL("uci_lookup_ptr fail, %s\n", path);
    }
    if (target.value && !takes_value(action, target.value)) return TQ_FAIL("invalid\n");
    int result = perform(context.get(), &target, action);
    if (result == UCI_ERR_NOTFOUND && tolerates_absence(action)) result = UCI_OK;
    if (result == UCI_OK) result = uci_save(context.get(), target.p);
    return result == UCI_OK ? 0 : -1;
}

int stage_section(LogSite site, uci_context* context, uci_package* package, const char* type) {
    uci_section* section = nullptr;
    if (!is_type(type) || uci_add_section(context, package, type, &section) != UCI_OK) {
        return TQ_FAIL_AS(site, "uci_add_section %s fail\n", type);
    }
    if (uci_save(context, package) != UCI_OK) {
        return TQ_FAIL_AS(site, "uci_save %s fail\n", package->e.name);
    }
    return count_sections(package, type) - 1;
}

}  // namespace tq
