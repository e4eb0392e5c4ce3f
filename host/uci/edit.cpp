// edit.cpp - changes to what is loaded. Each is recorded, to be staged by uci_save, unless it comes
// from a file itself.
#include <cstring>

#include "internal.h"

namespace uci {
namespace {

// A change's record, allocated before the change is made and linked once it is.
class Pending {
  public:
    ~Pending() { free(delta_); }
    Pending() = default;
    Pending(const Pending&) = delete;
    Pending& operator=(const Pending&) = delete;

    int prepare(uci_package* package, Record record, uci_command command, const char* section,
                const char* option, const char* value) {
        if (record == Record::kNo || !package->has_delta) return UCI_OK;
        package_ = package;
        delta_ = new_delta(command, section, option, value);
        return delta_ ? UCI_OK : UCI_ERR_MEM;
    }

    void done() {
        if (delta_) list_append(&package_->delta, &delta_->e.list);
        delta_ = nullptr;
    }

  private:
    uci_package* package_ = nullptr;
    uci_delta* delta_ = nullptr;
};

// Looks up what the caller has not, and gives names to what it has found.
int resolve(uci_context* ctx, uci_ptr* ptr) {
    if ((ptr->flags & uci_ptr::UCI_LOOKUP_DONE) == 0) {
        if (const int error = lookup(ctx, ptr, nullptr, true)) return error;
    }
    if (!ptr->p) return UCI_ERR_INVAL;
    if (!ptr->package) ptr->package = ptr->p->e.name;
    if (ptr->s && !ptr->section) ptr->section = ptr->s->e.name;
    if (ptr->o && !ptr->option) ptr->option = ptr->o->e.name;
    return UCI_OK;
}

int resolve_complete(uci_context* ctx, uci_ptr* ptr) {
    const int error = resolve(ctx, ptr);
    const bool looked_up = (ptr->flags & uci_ptr::UCI_LOOKUP_DONE) != 0;
    const bool complete = (ptr->flags & uci_ptr::UCI_LOOKUP_COMPLETE) != 0;
    if (looked_up && !complete) return error == UCI_ERR_MEM ? error : UCI_ERR_NOTFOUND;
    return error;
}

uci_element* nth_item(uci_option* option, long index) {
    uci_element* item = nullptr;
    uci_foreach_element(&option->v.list, item) {
        if (index-- == 0) return item;
    }
    return nullptr;
}

// An index that names no item removes none.
int remove_item(uci_ptr* ptr, Record record) {
    char* end = nullptr;
    const long index = strtol(ptr->value, &end, 10);
    if (end == ptr->value) return UCI_ERR_INVAL;
    uci_element* item = index < 0 ? nullptr : nth_item(ptr->o, index);
    if (!item) return UCI_OK;
    Pending pending;
    if (const int error = pending.prepare(ptr->p, record, UCI_CMD_REMOVE, ptr->section, ptr->option,
                                          ptr->value)) {
        return error;
    }
    free_element(item);
    pending.done();
    return UCI_OK;
}

}  // namespace

int set_option(uci_section* section, uci_option* existing, const char* name, const char* value,
               Record record, uci_option** result) {
    *result = existing;
    if (existing && existing->type == UCI_TYPE_STRING && strcmp(existing->v.string, value) == 0) {
        return UCI_OK;
    }
    Pending pending;
    if (const int error = pending.prepare(section->package, record, UCI_CMD_CHANGE, section->e.name,
                                          name, value)) {
        return error;
    }
    if (existing) {
        if (const int error = set_option_string(existing, value)) return error;
    } else {
        *result = new_string_option(section, name, value);
        if (!*result) return UCI_ERR_MEM;
    }
    pending.done();
    return UCI_OK;
}

int set_section(uci_package* package, uci_section* existing, const char* name, const char* type,
                Record record, uci_section** result) {
    *result = existing;
    if (existing && strcmp(existing->type, type) == 0) return UCI_OK;
    Pending pending;
    if (const int error = pending.prepare(package, record, UCI_CMD_CHANGE, name, nullptr, type)) {
        return error;
    }
    if (existing) {
        // A type of another length gives a section its generated name for good. Nobody would design
        // it so, but the files that the device writes are like this.
        const bool keeps_anonymity = strlen(existing->type) == strlen(type);
        if (const int error = set_section_type(existing, type)) return error;
        existing->anonymous = existing->anonymous && keeps_anonymity;
    } else {
        *result = new_section(package, type, name);
        if (!*result) return UCI_ERR_MEM;
    }
    pending.done();
    return UCI_OK;
}

int add_section(uci_package* package, const char* type, Record record, uci_section** result) {
    *result = new_anonymous_section(package, type);
    if (!*result) return UCI_ERR_MEM;
    Pending pending;
    if (const int error =
            pending.prepare(package, record, UCI_CMD_ADD, (*result)->e.name, nullptr, type)) {
        free_section(*result);
        --package->n_section;
        *result = nullptr;
        return error;
    }
    pending.done();
    return UCI_OK;
}

int add_to_list(uci_section* section, uci_option* existing, const char* name, const char* value,
                Record record, uci_option** result) {
    *result = existing;
    Pending pending;
    if (const int error = pending.prepare(section->package, record, UCI_CMD_LIST_ADD,
                                          section->e.name, name, value)) {
        return error;
    }
    if (existing) {
        if (const int error = append_item(existing, value)) return error;
    } else {
        *result = new_list_option(section, name, value);
        if (!*result) return UCI_ERR_MEM;
    }
    pending.done();
    return UCI_OK;
}

int set(uci_context* ctx, uci_ptr* ptr, Record record) {
    if (const int error = resolve(ctx, ptr)) return error;
    if (!ptr->value || !ptr->section) return UCI_ERR_INVAL;
    if (ptr->option && !ptr->s) return UCI_ERR_INVAL;

    const bool exists = ptr->option ? ptr->o != nullptr : ptr->s != nullptr;
    if (!*ptr->value) return exists ? remove(ctx, ptr, record) : UCI_OK;
    if (ptr->option) {
        if (const int error = set_option(ptr->s, ptr->o, ptr->option, ptr->value, record, &ptr->o))
            return error;
        ptr->last = &ptr->o->e;
        return UCI_OK;
    }
    if (!is_graphic(ptr->value)) return UCI_ERR_INVAL;
    if (const int error = set_section(ptr->p, ptr->s, ptr->section, ptr->value, record, &ptr->s))
        return error;
    ptr->last = &ptr->s->e;
    return UCI_OK;
}

int add_list(uci_context* ctx, uci_ptr* ptr, Record record) {
    if (const int error = resolve(ctx, ptr)) return error;
    if (!ptr->value || !ptr->option || !ptr->s) return UCI_ERR_INVAL;
    if (const int error = add_to_list(ptr->s, ptr->o, ptr->option, ptr->value, record, &ptr->o))
        return error;
    ptr->last = &ptr->o->e;
    return UCI_OK;
}

int del_list(uci_context* ctx, uci_ptr* ptr, Record record) {
    if (const int error = resolve(ctx, ptr)) return error;
    if (!ptr->value || !ptr->s) return UCI_ERR_INVAL;
    if (!ptr->o || ptr->o->type != UCI_TYPE_LIST) return UCI_OK;

    Pending pending;
    if (const int error = pending.prepare(ptr->p, record, UCI_CMD_LIST_DEL, ptr->section,
                                          ptr->option, ptr->value)) {
        return error;
    }
    uci_element *item = nullptr, *next = nullptr;
    uci_foreach_element_safe(&ptr->o->v.list, next, item) {
        if (strcmp(item->name, ptr->value) == 0) free_element(item);
    }
    pending.done();
    return UCI_OK;
}

int remove(uci_context* ctx, uci_ptr* ptr, Record record) {
    if (const int error = resolve_complete(ctx, ptr)) return error;
    if (!ptr->s) return UCI_ERR_INVAL;
    if (ptr->o && ptr->o->type == UCI_TYPE_LIST && ptr->value && *ptr->value) {
        return remove_item(ptr, record);
    }
    Pending pending;
    if (const int error = pending.prepare(ptr->p, record, UCI_CMD_REMOVE, ptr->section,
                                          ptr->o ? ptr->option : nullptr, nullptr)) {
        return error;
    }
    if (ptr->o) {
        if (ptr->option == ptr->o->e.name) ptr->option = nullptr;
        free_option(ptr->o);
        ptr->o = nullptr;
        ptr->last = &ptr->s->e;
    } else {
        if (ptr->section == ptr->s->e.name) ptr->section = nullptr;
        free_section(ptr->s);
        ptr->s = nullptr;
        ptr->last = &ptr->p->e;
    }
    pending.done();
    return UCI_OK;
}

int rename(uci_context* ctx, uci_ptr* ptr, Record record) {
    if (const int error = resolve_complete(ctx, ptr)) return error;
    if (!ptr->s || !ptr->value || !*ptr->value) return UCI_ERR_INVAL;

    Pending pending;
    if (const int error = pending.prepare(ptr->p, record, UCI_CMD_RENAME, ptr->section,
                                          ptr->o ? ptr->option : nullptr, ptr->value)) {
        return error;
    }
    const char*& name = ptr->o ? ptr->option : ptr->section;
    const char* old_name = ptr->last->name;
    if (const int error =
            ptr->o ? set_option_name(ptr->o, ptr->value) : set_section_name(ptr->s, ptr->value)) {
        return error;
    }
    if (name == old_name) name = ptr->last->name;
    if (!ptr->o) ptr->s->anonymous = false;
    pending.done();
    return UCI_OK;
}

// Behind the section that is then at position - 1; beyond the end, at the end.
int reorder(uci_section* section, int position, Record record) {
    uci_package* package = section->package;
    char text[32];
    snprintf(text, sizeof(text), "%d", position);
    Pending pending;
    if (const int error =
            pending.prepare(package, record, UCI_CMD_REORDER, section->e.name, nullptr, text)) {
        return error;
    }
    const uci_list* old_prev = section->e.list.prev;
    list_remove(&section->e.list);
    uci_list* behind = &package->sections;
    for (int left = position; left > 0 && behind->next != &package->sections; --left) {
        behind = behind->next;
    }
    list_insert_after(behind, &section->e.list);
    if (behind != old_prev) pending.done();
    return UCI_OK;
}

}  // namespace uci

int uci_set(uci_context* ctx, uci_ptr* ptr) {
    if (!ctx || !ptr) return uci::reject(ctx);
    uci::begin(ctx);
    return uci::finish(ctx, uci::set(ctx, ptr, uci::Record::kYes));
}

int uci_add_list(uci_context* ctx, uci_ptr* ptr) {
    if (!ctx || !ptr) return uci::reject(ctx);
    uci::begin(ctx);
    return uci::finish(ctx, uci::add_list(ctx, ptr, uci::Record::kYes));
}

int uci_del_list(uci_context* ctx, uci_ptr* ptr) {
    if (!ctx || !ptr) return uci::reject(ctx);
    uci::begin(ctx);
    return uci::finish(ctx, uci::del_list(ctx, ptr, uci::Record::kYes));
}

int uci_delete(uci_context* ctx, uci_ptr* ptr) {
    if (!ctx || !ptr) return uci::reject(ctx);
    uci::begin(ctx);
    return uci::finish(ctx, uci::remove(ctx, ptr, uci::Record::kYes));
}

int uci_rename(uci_context* ctx, uci_ptr* ptr) {
    if (!ctx || !ptr) return uci::reject(ctx);
    uci::begin(ctx);
    return uci::finish(ctx, uci::rename(ctx, ptr, uci::Record::kYes));
}

int uci_reorder_section(uci_context* ctx, uci_section* s, int pos) {
    if (!ctx || !s) return uci::reject(ctx);
    return uci::finish(ctx, uci::reorder(s, pos, uci::Record::kYes));
}

int uci_add_section(uci_context* ctx, uci_package* p, const char* type, uci_section** res) {
    if (!ctx || !p || !type || !res) return uci::reject(ctx);
    return uci::finish(ctx, uci::add_section(p, type, uci::Record::kYes, res));
}
