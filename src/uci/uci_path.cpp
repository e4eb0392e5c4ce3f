#include "tq/uci_path.h"

#include <cstdio>
#include <cstring>

#include "foundation/guard.h"
#include "foundation/log.h"
#include "foundation/text.h"
#include "uci/uci_apply.h"
#include "uci/uci_context.h"

namespace {

using tq::printable;
using tq::Text;
using tq::TextWriter;
using tq::UciAction;
using tq::UciContext;

constexpr size_t kNumberSize = 32;

enum class By { kId, kName };

// Where a value stands. The section is a name, or a type of which it is the index-th.
struct Place {
    const char* file;
    const char* section;
    int index;
    By by;
    const char* option;
    const char* value;
};

Place by_id(const char* file, const char* type, int id, const char* option, const char* value) {
    return {file, type, id, By::kId, option, value};
}

Place by_name(const char* file, const char* name, const char* option, const char* value) {
    return {file, name, -1, By::kName, option, value};
}

void write_path(TextWriter& path, const Place& place) {
    if (place.by == By::kName) {
        path.append("%s.%s", place.file, place.section);
    } else {
        path.append("%s.@%s[%d]", place.file, place.section, place.index);
    }
    if (place.option) path.append(".%s", place.option);
    if (place.value) path.append("=%s", place.value);
}

class Path : public Text<1024> {};

bool has_section(const Place& place) {
    return place.file && place.section && (place.by == By::kName || place.index != -1);
}

// ---- changes: each is committed at once ----

enum class Change : uint8_t { kSet, kAddItem, kDeleteItem, kDeleteOption, kDeleteSection };

bool takes_option(Change change) {
    return change < Change::kDeleteSection;
}

bool takes_value(Change change) {
    return change < Change::kDeleteOption;
}

// What a change does and how the log tells it. Before a change, in the step's name:
//   "uci add_list %s\n", "uci del_list %s\n", "uci del %s\n"
// Behind a failed one, in the step's name:
//   "uci_do_section fail, uci set %s\n", "uci_do_section fail, uci add_list %s\n",
//   "uci_do_section fail, uci del_list %s\n", "uci_do_section fail, uci del %s\n"
// and in the exported function's:
//   "uci set %s fail\n", "add list %s fail\n", "del_list fail\n", "%s fail\n" with "del_uci(buf)"
struct ChangeRow {
    UciAction action;
    char step[9];
    char command[9];
    char failure[13];
};

constexpr ChangeRow kChanges[] = {
    {UciAction::kSet, "set_uci", "set", "uci set "},
    {UciAction::kAddListItem, "add_list", "add_list", "add list "},
    {UciAction::kDeleteListItem, "del_list", "del_list", "del_list"},
    {UciAction::kDelete, "del_uci", "del", "del_uci(buf)"},
    {UciAction::kDelete, "del_uci", "del", "del_uci(buf)"},
};

int finish(const char* caller, const char* file) {
    if (tq::uci_commit_cfg(file) != 0) return TQ_FAIL_IN(caller, "uci commit %s fail\n", file);
    return 0;
}

int apply(const char* caller, Change change, const Place& place) {
    const ChangeRow& row = kChanges[static_cast<size_t>(change)];
    Path path;
    write_path(path, place);
    if (change != Change::kSet) {
        TQ_LOG_IN(row.step, LOG_INFO, "uci %s %s\n", row.command, path.c_str());
    }
    // A cut path means another option or another value.
    if (path.cut() || tq::uci_do_section(row.action, path.c_str()) != 0) {
        TQ_LOG_IN(row.step, LOG_ERR, "uci_do_section fail, uci %s %s\n", row.command, path.c_str());
        const bool tells_path = change < Change::kDeleteItem;
        return TQ_FAIL_IN(caller, "%s%s fail\n", row.failure, tells_path ? path.c_str() : "");
    }
    return finish(caller, place.file);
}

// As much as the change takes of these, by id and by name:
//   "invalid parameter, filename = %s, config_type = %s, id = %d\n"
//   "invalid parameter, filename = %s, config_type = %s, id = %d, option = %s\n"
//   "invalid parameter, filename = %s, config_type = %s, id = %d, option = %s, value = %s\n"
//   "invalid parameter, filename = %s, cfg_name = %s\n"
//   "invalid parameter, filename = %s, cfg_name = %s, option = %s\n"
//   "invalid parameter, filename = %s, config_name = %s, option = %s, value = %s\n"
int reject_change(const char* caller, Change change, const Place& place) {
    const char* label = takes_value(change) ? "config_name" : "cfg_name";
    Text<kNumberSize> id;
    if (place.by == By::kId) {
        label = "config_type";
        id.append(", id = %d", place.index);
    }
    const char* option[] = {"", ""};
    if (takes_option(change)) {
        option[0] = ", option = ";
        option[1] = printable(place.option);
    }
    const char* value[] = {"", ""};
    if (takes_value(change)) {
        value[0] = ", value = ";
        value[1] = printable(place.value);
    }
    return TQ_FAIL_IN(caller, "invalid parameter, filename = %s, %s = %s%s%s%s%s%s\n",
                      printable(place.file), label, printable(place.section), id.c_str(), option[0],
                      option[1], value[0], value[1]);
}

int make_change(Place place, Change change, const char* caller) {
    const bool complete = has_section(place) && (place.option || !takes_option(change)) &&
                          (place.value || !takes_value(change));
    return complete ? apply(caller, change, place) : reject_change(caller, change, place);
}

// Goes by the text's setter, in its name, and then commits once more. Behind a failure of that:
//   "uci_set_str_option_by_id(filename, config_type, id, option, buf) fail\n"
//   "uci_set_str_option_by_name(filename, config_name, option, buf) fail\n"
int set_number(Place place, unsigned value, const char* caller) {
    const bool complete = has_section(place) && place.option;
    char text[kNumberSize];
    snprintf(text, sizeof(text), complete ? "%u" : "%d", value);
    place.value = text;
    if (!complete) return reject_change(caller, Change::kSet, place);
    const bool named = place.by == By::kName;
    const char* setter = named ? "uci_set_str_option_by_name" : "uci_set_str_option_by_id";
    if (apply(setter, Change::kSet, place) == 0) return finish(caller, place.file);
    return TQ_FAIL_IN(caller, "%s(filename, %s, option, buf) fail\n", setter,
                      named ? "config_name" : "config_type, id");
}

// ---- reading ----

int uci_get_value(const Path& path, char* buf, int len) {
    if (!buf || len < 1) return tq::reject(__func__);
    *buf = '\0';
    const UciContext context;
    if (!context) return TQ_FAIL("uci_alloc_context fail\n");
    if (path.cut()) return TQ_FAIL("uci_lookup_ptr fail, %s\n", path.c_str());
    return get_uci_option(context.get(), path.c_str(), buf, len);
}

// Without an option, the section itself.
int read_element(Place place, char* buf, int len, const char* caller) {
    if (!has_section(place)) return tq::reject(caller);
    Path path;
    write_path(path, place);
    if (uci_get_value(path, buf, len) == 0) return 0;
    TQ_LOG_IN(caller, LOG_INFO, "uci get %s fail\n", path.c_str());
    return -1;
}

int read_number(Place place, int* value, const char* caller) {
    if (!place.option || !value) return tq::reject(caller);
    char text[kNumberSize];
    if (read_element(place, text, sizeof(text), caller) != 0) return -1;
    *value = tq::leading_int(text);
    return 0;
}

// Null for an element that is not one text.
const char* text_of(const uci_ptr& found) {
    if (found.last->type == UCI_TYPE_SECTION) return found.last->name;
    const bool is_text = found.last->type == UCI_TYPE_OPTION && found.o->type == UCI_TYPE_STRING;
    return is_text ? found.o->v.string : nullptr;
}

// False for an element that has no text of its own.
bool write_element(TextWriter& out, const uci_ptr& found) {
    if (const char* text = text_of(found)) {
        out.append("%s", text);
        return true;
    }
    if (found.last->type != UCI_TYPE_OPTION || found.o->type != UCI_TYPE_LIST) return false;
    uci_element* item = nullptr;
    uci_foreach_element(&found.o->v.list, item) {
        out.append("%s ", item->name);
    }
    return true;
}

// Bytes of 0x80 and above are text: a name in UTF-8 must not lose its last letter.
bool is_graphic(char c) {
    const auto byte = static_cast<unsigned char>(c);
    return byte > ' ' && byte != 0x7f;
}

void strip_trailing(char* text) {
    size_t length = strlen(text);
    while (length > 0 && !is_graphic(text[length - 1]))
        text[--length] = '\0';
}

// ---- a caller's context ----

// A path of the caller's and what it leads to; libuci writes into the copy.
struct Target {
    Path copy;
    uci_ptr ptr;
};

bool look_up(uci_context* context, const char* path, Target& target) {
    target.copy.append("%s", path);
    return !target.copy.cut() &&
           uci_lookup_ptr(context, &target.ptr, target.copy.data(), true) == UCI_OK;
}

int find_target(const char* caller, uci_context* context, const char* path, Target& target) {
    if (!context || !path) return tq::reject(caller);
    if (look_up(context, path, target)) return 0;
    return TQ_FAIL_IN(caller, "uci_lookup_ptr fail: %s\n", path);
}

int save(const char* caller, uci_context* context, const char* path, const Target& target) {
    if (uci_save(context, target.ptr.p) == UCI_OK) return 0;
    return TQ_FAIL_IN(caller, "uci_save fail: %s\n", path);
}

}  // namespace

int uci_cmd_format(char* buf, size_t size, const char* file, const char* type, const char* name,
                   int index, const char* option, const char* value) {
    if (!buf || !tq::is_size(size) || !file || (!name && !type)) {
        return tq::reject(__func__);
    }
    TextWriter path({buf, size});
    if (name && type) {
        write_path(path, by_name(file, name, nullptr, type));
        return 0;
    }
    write_path(path, {file, name ? name : type, index, name ? By::kName : By::kId, option,
                      option ? value : nullptr});
    return 0;
}

int uci_set_str_option_by_id(const char* filename, const char* config_type, int id,
                             const char* option, const char* value) {
    return make_change(by_id(filename, config_type, id, option, value), Change::kSet, __func__);
}

int uci_set_int_option_by_id(const char* filename, const char* config_type, int id,
                             const char* option, unsigned value) {
    return set_number(by_id(filename, config_type, id, option, nullptr), value, __func__);
}

int uci_set_str_option_by_name(const char* filename, const char* config_name, const char* option,
                               const char* value) {
    return make_change(by_name(filename, config_name, option, value), Change::kSet, __func__);
}

int uci_set_int_option_by_name(const char* filename, const char* config_name, const char* option,
                               unsigned value) {
    return set_number(by_name(filename, config_name, option, nullptr), value, __func__);
}

int uci_add_list_by_name(const char* filename, const char* config_name, const char* option,
                         const char* value) {
    return make_change(by_name(filename, config_name, option, value), Change::kAddItem, __func__);
}

int uci_add_list_by_id(const char* filename, const char* config_type, int id, const char* option,
                       const char* value) {
    return make_change(by_id(filename, config_type, id, option, value), Change::kAddItem, __func__);
}

int uci_del_list_by_name(const char* filename, const char* config_name, const char* option,
                         const char* value) {
    return make_change(by_name(filename, config_name, option, value), Change::kDeleteItem,
                       __func__);
}

int uci_del_list_by_id(const char* filename, const char* config_type, int id, const char* option,
                       const char* value) {
    return make_change(by_id(filename, config_type, id, option, value), Change::kDeleteItem,
                       __func__);
}

int uci_add_secition_by_name(const char* filename, const char* config_type,
                             const char* config_name) {
    // An empty type would delete the section.
    if (!filename || !config_type || !*config_type || !config_name) {
        return TQ_FAIL("invalid parameter, filename = %s, cfg_type = %s, cfg_name = %s\n",
                       printable(filename), printable(config_type), printable(config_name));
    }
    return apply(__func__, Change::kSet, by_name(filename, config_name, nullptr, config_type));
}

int del_uci_section_by_id(const char* filename, const char* config_type, int id) {
    return make_change(by_id(filename, config_type, id, nullptr, nullptr), Change::kDeleteSection,
                       __func__);
}

int del_uci_section_by_name(const char* filename, const char* config_name) {
    return make_change(by_name(filename, config_name, nullptr, nullptr), Change::kDeleteSection,
                       __func__);
}

int del_uci_option_by_id(const char* filename, const char* config_type, int id,
                         const char* option) {
    return make_change(by_id(filename, config_type, id, option, nullptr), Change::kDeleteOption,
                       __func__);
}

int del_uci_option_by_name(const char* filename, const char* config_name, const char* option) {
    return make_change(by_name(filename, config_name, option, nullptr), Change::kDeleteOption,
                       __func__);
}

int uci_add_section_by_type(struct uci_context* ctx, struct uci_package* pkg, const char* type) {
    return tq::stage_section(__func__, ctx, pkg, type);
}

int add_uci_section(const char* filename, const char* config_type) {
    if (!filename || !config_type) {
        return TQ_FAIL("invalid parameters, filename = %s, config_type = %s\n", printable(filename),
                       printable(config_type));
    }
    const UciContext context;
    if (!context) return TQ_FAIL("uci_alloc_context fail\n");
    uci_package* package = nullptr;
    if (uci_load(context.get(), filename, &package) != UCI_OK) {
        return TQ_FAIL("uci_load %s fail\n", filename);
    }
    const int index = tq::stage_section(__func__, context.get(), package, config_type);
    if (index >= 0 && uci_commit(context.get(), &package, true) != UCI_OK) {
        return TQ_FAIL("uci_commit %s fail\n", filename);
    }
    return index;
}

int uci_get_str_option_by_name(const char* filename, const char* config_name, const char* option,
                               char* buf, int len) {
    if (!option) return tq::reject(__func__);
    return read_element(by_name(filename, config_name, option, nullptr), buf, len, __func__);
}

int uci_get_int_option_by_name(const char* filename, const char* config_name, const char* option,
                               int* value) {
    return read_number(by_name(filename, config_name, option, nullptr), value, __func__);
}

int uci_get_str_option_by_id(const char* filename, const char* config_type, int id,
                             const char* option, char* buf, int len) {
    return read_element(by_id(filename, config_type, id, option, nullptr), buf, len, __func__);
}

int uci_get_int_option_by_id(const char* filename, const char* config_type, int id,
                             const char* option, int* value) {
    return read_number(by_id(filename, config_type, id, option, nullptr), value, __func__);
}

int set_uci_option(struct uci_context* ctx, const char* path) {
    Target target;
    if (find_target(__func__, ctx, path, target) != 0) return -1;
    if (uci_set(ctx, &target.ptr) != UCI_OK) return TQ_FAIL("uci set %s fail\n", path);
    return save(__func__, ctx, path, target);
}

int del_uci_element(struct uci_context* ctx, const char* path, int strict) {
    Target target;
    if (find_target(__func__, ctx, path, target) != 0) return -1;
    if (target.ptr.value && !tq::starts_with_int(target.ptr.value)) {
        return TQ_FAIL("invalid: %s\n", path);
    }
    const int result = uci_delete(ctx, &target.ptr);
    const bool missing = result == UCI_ERR_NOTFOUND;
    if (result == UCI_OK || (missing && !strict)) return save(__func__, ctx, path, target);
    if (!missing) TQ_LOG(LOG_ERR, "uci del %s fail\n", path);
    return result;
}

int get_uci_option(struct uci_context* ctx, const char* path, char* buf, int len) {
    if (!ctx || !path || !buf || len < 1) return tq::reject(__func__);
    *buf = '\0';
    Target target;
    if (!look_up(ctx, path, target)) return TQ_FAIL("uci_lookup_ptr fail, %s\n", path);
    const int flags = target.ptr.flags;
    if (!(flags & uci_ptr::UCI_LOOKUP_COMPLETE)) {
        TQ_LOG(LOG_INFO, "ptr.flags = %d, UCI_LOOKUP_COMPLETE = %d\n", flags,
               uci_ptr::UCI_LOOKUP_COMPLETE);
        return -1;
    }
    TextWriter out({buf, static_cast<size_t>(len)});
    if (!write_element(out, target.ptr)) return TQ_FAIL("unknown\n");
    if (out.cut()) {
        *buf = '\0';
        return TQ_FAIL("buffer is short\n");
    }
    strip_trailing(buf);
    return 0;
}
