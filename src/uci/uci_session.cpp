#include "tq/uci_session.h"

#include <fcntl.h>
#include <uci.h>
#include <unistd.h>

#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <iterator>

#include "foundation/file.h"
#include "foundation/log.h"
#include "uci/uci_apply.h"

namespace {

using tq::HeapText;
using tq::UniqueFd;

// The header's stand-in for libuci's structure has this layout.
static_assert(offsetof(uci_ptr, flags) == 4 && offsetof(uci_ptr, p) == 8);
static_assert(offsetof(uci_ptr, value) == 8 + 7 * sizeof(void*));
static_assert(sizeof(uci_ptr) == 8 + 8 * sizeof(void*));

constexpr size_t kPathSize = 64;
constexpr size_t kCommandSize = 64;

// The name of a section that was selected; its text follows it. Sessions point to it, because what
// is in the package goes with the next save. It stays for good: a session can come back at any
// time, also on a file that was freed, and must not take a name at the same address for its own.
struct SelectedName {
    SelectedName* next;

    [[nodiscard]] char* text() { return reinterpret_cast<char*>(this + 1); }
};

constinit SelectedName* selected_names = nullptr;

constinit uci_entry registry[] = {
    {UCI_CONFIG_DHCP, "dhcp", nullptr, nullptr},
    {UCI_CONFIG_NETWORK, "network", nullptr, nullptr},
    {UCI_CONFIG_BIND, "bind", nullptr, nullptr},
    {UCI_CONFIG_LOCATION, "location", nullptr, nullptr},
    {UCI_CONFIG_WIRELESS, "wireless", nullptr, nullptr},
    {UCI_CONFIG_SYSTEM, "system", nullptr, nullptr},
    {UCI_CONFIG_APSTATS, "apstats", nullptr, nullptr},
    {UCI_CONFIG_WTP, "wtp", nullptr, nullptr},
    {UCI_CONFIG_BOARD, "board", nullptr, nullptr},
    {UCI_CONFIG_FIREWALL, "firewall", nullptr, nullptr},
    {UCI_CONFIG_FORWARD, "forward", nullptr, nullptr},
    {UCI_CONFIG_BWCTRL, "bwctrl", nullptr, nullptr},
    {UCI_CONFIG_NAT, "nat", nullptr, nullptr},
    {UCI_CONFIG_MCSD, "mcsd", nullptr, nullptr},
    {UCI_CONFIG_TROUBLESHOOT, "troubleshoot", nullptr, nullptr},
    {UCI_CONFIG_ORDERCFG, "ordercfg", nullptr, nullptr},
};
static_assert(std::size(registry) == UCI_CONFIG_ALL);

uci_entry* find_row(int id) {
    for (uci_entry& row : registry) {
        if (row.id == id) return &row;
    }
    return nullptr;
}

uci_element* uci_find_element(uci_context* context, uci_list* list, const char* name) {
    uci_element* element = nullptr;
    return uci_lookup_next(context, &element, list, name) == UCI_OK ? element : nullptr;
}

// ---- loading and freeing ----

void clear(uci_entry& row) {
    uci_free_context(row.ctx);
    row.ctx = nullptr;
    row.pkg = nullptr;
}

// Without truncation: another process may have created the file just now.
void create_uci_file(const char* path) {
    const UniqueFd file(open(path, O_WRONLY | O_CREAT | O_CLOEXEC, 0600));
    if (!file) TQ_LOG(LOG_ERR, "create %s fail: %s\n", path, strerror(errno));
}

int load_package(uci_entry& row) {
    char path[kPathSize];
    snprintf(path, sizeof(path), "/etc/config/%s", row.file);
    if (access(path, F_OK) != 0) create_uci_file(path);
    return uci_load(row.ctx, row.file, &row.pkg);
}

void use_package(uci_config_ctx* session, const uci_entry& row) {
    session->ctx = row.ctx;
    session->pkg = row.pkg;
    session->ptr.p = row.pkg;
    // The registry's own text: it tells which file this is, also when another one's context comes
    // to stand at the address of a freed one.
    session->ptr.package = row.file;
}

// ---- selecting ----

// Null without memory: the session then lasts until the next save.
const char* keep_name(const char* text) {
    for (SelectedName* name = selected_names; name; name = name->next) {
        if (strcmp(name->text(), text) == 0) return name->text();
    }
    const size_t size = strlen(text) + 1;
    auto* name = static_cast<SelectedName*>(malloc(sizeof(SelectedName) + size));
    if (!name) return nullptr;
    memcpy(name->text(), text, size);
    name->next = selected_names;
    selected_names = name;
    return name->text();
}

// ptr.last is where the selection was made: a caller that points the session to another section
// moves ptr.s alone, and ptr.section is not that one's name.
void select_section(uci_config_ctx* session, uci_section* section) {
    session->ptr.s = section;
    session->ptr.last = &section->e;
    session->ptr.section = keep_name(section->e.name);
}

bool holds(uci_list* items, const char* value) {
    uci_element* item = nullptr;
    uci_foreach_element(items, item) {
        if (strcmp(item->name, value) == 0) return true;
    }
    return false;
}

bool has_value(uci_option* option, const char* value) {
    if (option->type == UCI_TYPE_LIST) return holds(&option->v.list, value);
    return strcmp(option->v.string, value) == 0;
}

// match: option and value pairs, a null option ends them.
bool matches(uci_context* context, uci_section* section, const char* const* match) {
    if (!*match) return false;
    for (; match[0]; match += 2) {
        uci_element* option = uci_find_element(context, &section->options, match[0]);
        if (!option) return false;
        if (match[1] && !has_value(uci_to_option(option), match[1])) return false;
    }
    return true;
}

// The first section of the type that matches; a null match takes them all.
bool select_first(uci_config_ctx* session, const char* type, const char* const* match) {
    uci_element* element = nullptr;
    uci_foreach_element(&session->pkg->sections, element) {
        uci_section* section = uci_to_section(element);
        if (strcmp(section->type, type) != 0) continue;
        if (match && !matches(session->ctx, section, match)) continue;
        select_section(session, section);
        return true;
    }
    return false;
}

// ---- sessions ----

// The row of the session's file; null where a caller has made the session on a package of its own.
// libuci's look-up, which a caller may use on ptr, puts another text there for the file's name.
const uci_entry* row_of(const uci_config_ctx& session) {
    const uci_entry* row_of_context = nullptr;
    for (const uci_entry& row : registry) {
        if (session.ptr.package == row.file) return &row;
        if (session.ctx == row.ctx) row_of_context = &row;
    }
    return row_of_context;
}

// What is in a list of libuci's begins with its element.
bool is_in(uci_list* list, const void* item) {
    uci_element* element = nullptr;
    uci_foreach_element(list, element) {
        if (element == item) return true;
    }
    return false;
}

// Whether the session has a section; the one that was selected before a save is found again. A new
// package can be at the old one's address, with another section at the old section's: it is the
// name that tells. What a caller has pointed the session to has no name of its own; the name of
// what it has looked up is in the package or in its own text, and is replaced by one that stays.
bool has_section(uci_config_ctx* session) {
    uci_ptr& ptr = session->ptr;
    if (!ptr.s) return false;
    const uci_entry* row = row_of(*session);
    if (!row) return true;
    if (!row->pkg || row->ctx != session->ctx) return false;
    const bool looked_up = ptr.package != row->file;
    // Another file's, which the caller has loaded into this one's context.
    if (looked_up && ptr.p != row->pkg && is_in(&row->ctx->root, ptr.p)) return true;
    const char* name = ptr.last == &ptr.s->e ? ptr.section : nullptr;
    use_package(session, *row);
    if (is_in(&row->pkg->sections, ptr.s) && (!name || strcmp(name, ptr.s->e.name) == 0)) {
        if (looked_up) select_section(session, ptr.s);
        return true;
    }
    ptr.s = nullptr;
    if (!name || looked_up) return false;
    uci_element* found = uci_find_element(row->ctx, &row->pkg->sections, name);
    if (found) select_section(session, uci_to_section(found));
    return found != nullptr;
}

const char* given(const char* text) {
    return text ? text : "nil";
}

// The address of an option of the session's section, found or not; false for a session without a
// section, logged in the operation's name ("incomplete param, option:%s\n" and so on). The
// section's name is its own: a caller may have moved the session.
bool address(uci_config_ctx* session, const char* option, uci_ptr& ptr, const char* caller) {
    const char* missing = !option                 ? "option"
                          : !session              ? "uctx"
                          : !has_section(session) ? "uctx->ptr.s"
                                                  : nullptr;
    if (missing) {
        TQ_LOG_IN(caller, LOG_ERR, "incomplete param, %s:nil\n", missing);
        return false;
    }
    uci_section* section = session->ptr.s;
    uci_element* element = uci_find_element(session->ctx, &section->options, option);
    // Each on its own: cleared as a whole first, reading an option would take a third longer.
    ptr.target = UCI_TYPE_UNSPEC;
    ptr.flags = {};
    ptr.p = session->ptr.p;
    ptr.s = section;
    ptr.o = element ? uci_to_option(element) : nullptr;
    ptr.last = nullptr;
    ptr.package = nullptr;
    ptr.section = section->e.name;
    ptr.option = option;
    ptr.value = nullptr;
    return true;
}

// The same for an operation that takes a value.
bool address_value(uci_config_ctx* session, const char* option, const char* value, uci_ptr& ptr,
                   const char* caller) {
    if (!option || !value || !*value) {
        TQ_LOG_IN(caller, LOG_ERR, "incomplete param, val_str:%s, option:%s\n", given(value),
                  given(option));
        return false;
    }
    if (!address(session, option, ptr, caller)) return false;
    ptr.value = value;
    return true;
}

bool is_list(const uci_ptr& target) {
    return target.o && target.o->type == UCI_TYPE_LIST;
}

// Whether the addressed list holds the value.
bool is_listed(const uci_ptr& target) {
    return is_list(target) && holds(&target.o->v.list, target.value);
}

// What the file can hold as an option's name, as the line of a staged change can.
bool is_name(const char* text) {
    for (const char* c = text; *c; c++) {
        const int lower = *c | 0x20;
        const bool letter = lower >= 'a' && lower <= 'z';
        if (!letter && !(*c >= '0' && *c <= '9') && *c != '_') return false;
    }
    return *text != '\0';
}

// And what as its value.
bool is_text(const char* text) {
    for (const char* c = text; *c; c++) {
        const auto byte = static_cast<unsigned char>(*c);
        if (byte < ' ' && byte != '\t' && byte != '\n' && byte != '\r') return false;
    }
    return true;
}

// libuci writes anything, but passes over the staged line when it reads it.
bool can_be_staged(const uci_ptr& target) {
    return is_name(target.option) && is_text(target.value);
}

using Change = int (*)(uci_context*, uci_ptr*);

bool write_and_stage(const uci_config_ctx* session, uci_ptr& target, Change change) {
    return can_be_staged(target) && change(session->ctx, &target) == UCI_OK &&
           uci_save(session->ctx, session->ptr.p) == UCI_OK;
}

// ---- saving ----

// A libuci that fails half way may have freed the package by then.
uci_package* loaded_package(const uci_entry& row) {
    uci_element* element = uci_find_element(row.ctx, &row.ctx->root, row.file);
    return element ? uci_to_package(element) : nullptr;
}

// Its package is the context's, so that there is one, too.
bool is_loaded(const uci_entry& row) {
    return row.pkg != nullptr;
}

int commit(const char* caller, uci_entry& row) {
    // What cannot be staged stays in the package, and the commit fails on it again.
    (void)uci_save(row.ctx, row.pkg);
    const int error = uci_commit(row.ctx, &row.pkg, false);
    if (error == UCI_OK) return UCI_OK;
    TQ_LOG_IN(caller, LOG_ERR, "uci_commit %s fail\n", row.file);
    row.pkg = loaded_package(row);
    return error;
}

void run_commit2(const char* caller, const uci_entry& row) {
    char command[kCommandSize];
    snprintf(command, sizeof(command), "uci commit2 %s", row.file);
    TQ_LOG_IN(caller, LOG_INFO, "execute '%s'\n", command);
    (void)!system(command);
}

int free_row(const char* caller, uci_entry& row) {
    int result = 0;
    if (is_loaded(row)) {
        if (uci_save(row.ctx, row.pkg) != UCI_OK) {
            result = TQ_FAIL_IN(caller, "uci_save %s fail\n", row.file);
        }
        uci_unload(row.ctx, row.pkg);
    }
    if (row.ctx) clear(row);
    return result;
}

}  // namespace

const struct uci_entry* get_uci_entry_by_name(const char* file) {
    if (!file) {
        tq::reject(__func__);
        return nullptr;
    }
    for (const uci_entry& row : registry) {
        if (strcmp(row.file, file) == 0) return &row;
    }
    return nullptr;
}

int load_uci_config(int id, uci_config_ctx* session) {
    if (session) *session = {};
    uci_entry* row = find_row(id);
    if (!row) return TQ_FAIL("unspport uci entry %d\n", id);
    if (!row->ctx) row->ctx = uci_alloc_context();
    if (!row->ctx) return TQ_FAIL("uci_alloc_context for config '%s' fail\n", row->file);
    if (!row->pkg && load_package(*row) != UCI_OK) {
        clear(*row);
        return TQ_FAIL("uci_load '%s' fail\n", row->file);
    }
    if (session) use_package(session, *row);
    return 0;
}

int load_named_section(int id, uci_config_ctx* session, const char* name) {
    if (!name || !*name) return TQ_FAIL("no section name\n");
    if (!session) return tq::reject(__func__);
    if (load_uci_config(id, session) != 0) return -1;
    uci_element* element = uci_find_element(session->ctx, &session->pkg->sections, name);
    if (!element) {
        TQ_LOG(LOG_WARNING, "uci lookup '%s' section fail\n", name);
        return -1;
    }
    select_section(session, uci_to_section(element));
    return 0;
}

int load_unnamed_section(int id, uci_config_ctx* session, const char* type) {
    if (!type || !*type) return TQ_FAIL("no section type\n");
    if (!session) return tq::reject(__func__);
    if (load_uci_config(id, session) != 0) return -1;
    if (select_first(session, type, nullptr)) return 0;
    uci_list* sections = &session->pkg->sections;
    if (!uci_list_empty(sections)) {
        session->ptr.s = uci_to_section(list_to_element(sections->prev));
    }
    TQ_LOG(LOG_INFO, "no such type '%s' section \n", type);
    return -1;
}

int load_specific_section(int id, uci_config_ctx* session, const char* type, const char** match) {
    if (!type || !*type) return TQ_FAIL("no section type\n");
    if (load_uci_config(id, session) != 0) return -1;
    if (!session) {
        return TQ_FAIL_IN("find_uci_section",
                          "incomplete param, section_type: %s, uctx->ptr.p: %p\n", type,
                          static_cast<void*>(nullptr));
    }
    return select_first(session, type, match) ? 0 : -1;
}

const char* get_uci_config(uci_config_ctx* session, const char* option) {
    uci_ptr found;
    if (!address(session, option, found, __func__)) return nullptr;
    if (found.o && found.o->type == UCI_TYPE_STRING) return found.o->v.string;
    TQ_LOG(LOG_NOTICE, "get uci config option '%s' failed\n", option);
    return nullptr;
}

// "create uci value '%s' for option '%s' failed\n", "add uci value '%s' for option '%s' failed\n",
// "change uci value '%s' for option '%s' failed\n", "add uci value '%s' for option '%s' success\n",
// "change uci value '%s' for option '%s' success\n".
int set_uci_config(uci_config_ctx* session, const char* option, const char* value) {
    uci_ptr target;
    if (!address_value(session, option, value, target, __func__)) return -1;
    Change change = uci_set;
    const char* attempt = "change";
    const char* success = attempt;
    if (!target.o) {
        attempt = "create";
        success = "add";
    } else if (is_list(target)) {
        change = uci_add_list;
        attempt = success = "add";
    } else if (strcmp(target.o->v.string, value) == 0) {
        TQ_LOG(LOG_DEBUG, "uci value '%s' of option '%s' is no change\n", value, option);
        return 1;
    }
    // The caller's may be the option's own texts, which libuci replaces before it stages them.
    const HeapText copy(strdup(value));
    if (copy) target.value = copy.get();
    if (!copy || !write_and_stage(session, target, change)) {
        return TQ_FAIL("%s uci value '%s' for option '%s' failed\n", attempt, target.value,
                       target.option);
    }
    TQ_LOG(LOG_DEBUG, "%s uci value '%s' for option '%s' success\n", success, target.value,
           target.o->e.name);
    return 0;
}

int del_uci_config(uci_config_ctx* session, const char* option) {
    uci_ptr target;
    if (!address(session, option, target, __func__)) return -1;
    if (!target.o) {
        TQ_LOG(LOG_DEBUG, "no such option '%s'\n", option);
        return 1;
    }
    // The caller's may be the option's own name, which goes with it.
    const HeapText name(strdup(option));
    const int error = name ? uci_delete(session->ctx, &target) : UCI_ERR_MEM;
    if (error != UCI_OK) TQ_LOG(LOG_ERR, "uci del '%s' fail\n", option);
    // Also behind a failure: the attempt is what is traced.
    TQ_LOG(LOG_DEBUG, "uci del '%s' success\n", name ? name.get() : option);
    return error;
}

struct uci_list* uci_lookup_option_list(uci_config_ctx* session, const char* option) {
    uci_ptr found;
    if (!address(session, option, found, __func__)) return nullptr;
    return is_list(found) ? &found.o->v.list : nullptr;
}

int add_uci_list(uci_config_ctx* session, const char* option, const char* value) {
    uci_ptr target;
    if (!address_value(session, option, value, target, __func__)) return -1;
    if (is_listed(target)) return 1;
    const int error = can_be_staged(target) ? uci_add_list(session->ctx, &target) : -1;
    if (error != UCI_OK) {
        TQ_LOG(LOG_ERR, "%s uci value '%s' for option '%s' failed\n", "add", value, option);
    }
    return error;
}

int del_uci_list(uci_config_ctx* session, const char* option, const char* value) {
    uci_ptr target;
    if (!address_value(session, option, value, target, __func__)) return -1;
    if (!is_listed(target)) return 1;
    // The caller's may be an item's own text, which goes with it before libuci is through the list.
    const HeapText copy(strdup(value));
    target.value = copy.get();
    const int error = copy ? uci_del_list(session->ctx, &target) : UCI_ERR_MEM;
    if (error != UCI_OK) TQ_LOG(LOG_ERR, "uci del '%s' fail\n", option);
    return error;
}

int save_uci_config(int id, const int* commit2, int count) {
    if (id != UCI_CONFIG_ALL) {
        uci_entry* row = find_row(id);
        if (!row) return UCI_CONFIG_ALL;
        return is_loaded(*row) ? commit(__func__, *row) : id;
    }
    for (uci_entry& row : registry) {
        if (!is_loaded(row)) continue;
        (void)commit(__func__, row);
        if (commit2 && row.id < count && commit2[row.id]) run_commit2(__func__, row);
    }
    return UCI_CONFIG_ALL;
}

int free_uci_config(int id) {
    if (id != UCI_CONFIG_ALL) {
        uci_entry* row = find_row(id);
        return row ? free_row(__func__, *row) : TQ_FAIL("unspport uci entry %d\n", id);
    }
    int result = 0;
    for (uci_entry& row : registry)
        result |= free_row(__func__, row);
    return result;
}

int add_section(struct uci_context* ctx, struct uci_package* pkg, const char* type) {
    // Of a session from before a save: the package that it has is gone.
    for (const uci_entry& row : registry) {
        if (ctx && pkg && ctx == row.ctx && !is_in(&ctx->root, pkg)) pkg = row.pkg;
    }
    return tq::stage_section(__func__, ctx, pkg, type);
}
