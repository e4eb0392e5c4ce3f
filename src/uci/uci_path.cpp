#include "tq/uci_path.h"

#include <cstring>

#include "foundation/file.h"
#include "foundation/log.h"
#include "foundation/text.h"
#include "uci/uci_apply.h"
#include "uci/uci_context.h"

namespace {

using tq::HeapText;
using tq::LogSite;
using tq::printable;
using tq::TextWriter;
using tq::UciAction;
using tq::UciContext;

constexpr size_t kPathSize = 1024;
constexpr size_t kNumberSize = 32;

// Where a value stands. The section is named, or the index-th of its type.
struct Place {
    const char* file;
    const char* type;
    const char* name;
    int index;
    const char* option;
    const char* value;
};

void write_path(TextWriter& path, const Place& place) {
    if (place.name && place.type) {
        path.append("%s.%s=%s", place.file, place.name, place.type);
        return;
    }
    if (place.name) {
        path.append("%s.%s", place.file, place.name);
    } else {
        path.append("%s.@%s[%d]", place.file, place.type, place.index);
    }
    if (place.option) path.append(".%s", place.option);
    if (place.option && place.value) path.append("=%s", place.value);
}

class Path : public tq::Text<kPathSize> {
  public:
    explicit Path(const Place& place) { write_path(*this, place); }
    explicit Path(const char* text) { append("%s", text); }
};

class Number : public tq::Text<kNumberSize> {
  public:
    explicit Number(unsigned value) { append("%u", value); }
};

// A cut path means another option or another value.
bool apply(UciAction action, const Path& path) {
    return !path.cut() && tq::uci_do_section(action, path.c_str()) == 0;
}

int set_uci(const Path& path) {
    if (!apply(UciAction::kSet, path)) {
        return TQ_FAIL("uci_do_section fail, uci set %s\n", path.c_str());
    }
    return 0;
}

int add_list(const Path& path) {
    TQ_LOG(LOG_INFO, "uci add_list %s\n", path.c_str());
    if (!apply(UciAction::kAddListItem, path)) {
        return TQ_FAIL("uci_do_section fail, uci add_list %s\n", path.c_str());
    }
    return 0;
}

int del_list(const Path& path) {
    TQ_LOG(LOG_INFO, "uci del_list %s\n", path.c_str());
    if (!apply(UciAction::kDeleteListItem, path)) {
        return TQ_FAIL("uci_do_section fail, uci del_list %s\n", path.c_str());
    }
    return 0;
}

int del_uci(const Path& path) {
    TQ_LOG(LOG_INFO, "uci del %s\n", path.c_str());
    if (!apply(UciAction::kDelete, path)) {
        return TQ_FAIL("uci_do_section fail, uci del %s\n", path.c_str());
    }
    return 0;
}

int uci_commit_cfg(const char* file) {
    const UciContext context;
    if (!context) return TQ_FAIL("uci_alloc_context fail\n");
    const HeapText copy(strdup(file));
    uci_ptr target{};
    if (!copy || uci_lookup_ptr(context.get(), &target, copy.get(), true) != UCI_OK) {
        return TQ_FAIL("uci_lookup_ptr fail, %s\n", file);
    }
    if (uci_commit(context.get(), &target.p, false) != UCI_OK) {
        return TQ_FAIL("uci_commit fail, %s\n", file);
    }
    return 0;
}

int uci_get_value(const Path& path, char* buf, int len) {
    if (!buf || len < 1) return TQ_FAIL("invalid parameters\n");
    *buf = '\0';
    const UciContext context;
    if (!context) return TQ_FAIL("uci_alloc_context fail\n");
    if (path.cut()) return TQ_FAIL("uci_lookup_ptr fail, %s\n", path.c_str());
    return get_uci_option(context.get(), path.c_str(), buf, len);
}

void write_items(TextWriter& out, uci_list* items) {
    uci_element* item = nullptr;
    uci_foreach_element(items, item) {
        out.append("%s ", item->name);
    }
}

// False for an element that has no text of its own.
bool write_element(TextWriter& out, const uci_ptr& found) {
    if (found.last->type == UCI_TYPE_SECTION) {
        out.append("%s", found.s->e.name);
        return true;
    }
    if (found.last->type != UCI_TYPE_OPTION) return false;
    if (found.o->type == UCI_TYPE_STRING) {
        out.append("%s", found.o->v.string);
        return true;
    }
    write_items(out, &found.o->v.list);
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

// The exported functions are one of the steps below; a failure is logged in their name.

int finish(LogSite site, const char* file) {
    if (uci_commit_cfg(file) != 0) return TQ_FAIL_AS(site, "uci commit %s fail\n", file);
    return 0;
}

int set_and_commit(LogSite site, const Place& place) {
    const Path path(place);
    if (set_uci(path) != 0) return TQ_FAIL_AS(site, "uci set %s fail\n", path.c_str());
    return finish(site, place.file);
}

int add_item_and_commit(LogSite site, const Place& place) {
    const Path path(place);
    if (add_list(path) != 0) return TQ_FAIL_AS(site, "add list %s fail\n", path.c_str());
    return finish(site, place.file);
}

int delete_item_and_commit(LogSite site, const Place& place) {
    if (del_list(Path(place)) != 0) return TQ_FAIL_AS(site, "del_list fail\n");
    return finish(site, place.file);
}

int delete_and_commit(LogSite site, const Place& place) {
    if (del_uci(Path(place)) != 0) return TQ_FAIL_AS(site, "%s fail\n", "del_uci(buf)");
    return finish(site, place.file);
}

// A change of one option by one of the steps above.
using Step = int (*)(LogSite, const Place&);

int change_by_id(LogSite site, Step step, const char* filename, const char* config_type, int id,
                 const char* option, const char* value) {
    if (!filename || !config_type || id == -1 || !option || !value) {
        return TQ_FAIL_AS(site,
                          "invalid parameter, filename = %s, config_type = %s, id = %d, option = "
                          "%s, value = %s\n",
                          printable(filename), printable(config_type), id, printable(option),
                          printable(value));
    }
    return step(site, {filename, config_type, nullptr, id, option, value});
}

int change_by_name(LogSite site, Step step, const char* filename, const char* config_name,
                   const char* option, const char* value) {
    if (!filename || !config_name || !option || !value) {
        return TQ_FAIL_AS(
            site, "invalid parameter, filename = %s, config_name = %s, option = %s, value = %s\n",
            printable(filename), printable(config_name), printable(option), printable(value));
    }
    return step(site, {filename, nullptr, config_name, -1, option, value});
}

int read_text(LogSite site, const Place& place, char* buf, int len) {
    const Path path(place);
    if (uci_get_value(path, buf, len) == 0) return 0;
    TQ_LOG_AS(site, LOG_INFO, "uci get %s fail\n", path.c_str());
    return -1;
}

int read_number(LogSite site, const Place& place, int* value) {
    char text[kNumberSize];
    if (read_text(site, place, text, sizeof(text)) != 0) return -1;
    *value = tq::leading_int(text).value_or(0);
    return 0;
}

}  // namespace

int uci_cmd_format(char* buf, size_t size, const char* file, const char* type, const char* name,
                   int index, const char* option, const char* value) {
    if (!buf || static_cast<ptrdiff_t>(size) <= 0 || !file || (!name && !type)) {
        return TQ_FAIL("invalid parameters\n");
    }
    TextWriter path({buf, size});
    write_path(path, {file, type, name, index, option, value});
    return 0;
}

int uci_set_str_option_by_id(const char* filename, const char* config_type, int id,
                             const char* option, const char* value) {
    return change_by_id(TQ_HERE, set_and_commit, filename, config_type, id, option, value);
}

int uci_set_int_option_by_id(const char* filename, const char* config_type, int id,
                             const char* option, unsigned value) {
    if (!filename || !config_type || id == -1 || !option) {
        return TQ_FAIL(
            "invalid parameter, filename = %s, config_type = %s, id = %d, option = %s, value = "
            "%d\n",
            printable(filename), printable(config_type), id, printable(option),
            static_cast<int>(value));
    }
    if (uci_set_str_option_by_id(filename, config_type, id, option, Number(value).c_str()) != 0) {
        return TQ_FAIL("%s fail\n",
                       "uci_set_str_option_by_id(filename, config_type, id, option, buf)");
    }
    return finish(TQ_HERE, filename);
}

int uci_set_str_option_by_name(const char* filename, const char* config_name, const char* option,
                               const char* value) {
    return change_by_name(TQ_HERE, set_and_commit, filename, config_name, option, value);
}

int uci_set_int_option_by_name(const char* filename, const char* config_name, const char* option,
                               unsigned value) {
    if (!filename || !config_name || !option) {
        return TQ_FAIL(
            "invalid parameter, filename = %s, config_name = %s, option = %s, value = %d\n",
            printable(filename), printable(config_name), printable(option),
            static_cast<int>(value));
    }
    if (uci_set_str_option_by_name(filename, config_name, option, Number(value).c_str()) != 0) {
        return TQ_FAIL("%s fail\n",
                       "uci_set_str_option_by_name(filename, config_name, option, buf)");
    }
    return finish(TQ_HERE, filename);
}

int uci_add_list_by_name(const char* filename, const char* config_name, const char* option,
                         const char* value) {
    return change_by_name(TQ_HERE, add_item_and_commit, filename, config_name, option, value);
}

int uci_add_list_by_id(const char* filename, const char* config_type, int id, const char* option,
                       const char* value) {
    return change_by_id(TQ_HERE, add_item_and_commit, filename, config_type, id, option, value);
}

int uci_del_list_by_name(const char* filename, const char* config_name, const char* option,
                         const char* value) {
    return change_by_name(TQ_HERE, delete_item_and_commit, filename, config_name, option, value);
}

int uci_del_list_by_id(const char* filename, const char* config_type, int id, const char* option,
                       const char* value) {
    return change_by_id(TQ_HERE, delete_item_and_commit, filename, config_type, id, option, value);
}

int uci_add_secition_by_name(const char* filename, const char* config_type,
                             const char* config_name) {
    // An empty type would delete the section.
    if (!filename || !config_type || !*config_type || !config_name) {
        return TQ_FAIL("invalid parameter, filename = %s, cfg_type = %s, cfg_name = %s\n",
                       printable(filename), printable(config_type), printable(config_name));
    }
    return set_and_commit(TQ_HERE, {filename, config_type, config_name, -1, nullptr, nullptr});
}

int del_uci_section_by_id(const char* filename, const char* config_type, int id) {
    if (!filename || !config_type || id == -1) {
        return TQ_FAIL("invalid parameter, filename = %s, config_type = %s, id = %d\n",
                       printable(filename), printable(config_type), id);
    }
    return delete_and_commit(TQ_HERE, {filename, config_type, nullptr, id, nullptr, nullptr});
}

int del_uci_section_by_name(const char* filename, const char* config_name) {
    if (!filename || !config_name) {
        return TQ_FAIL("invalid parameter, filename = %s, cfg_name = %s\n", printable(filename),
                       printable(config_name));
    }
    return delete_and_commit(TQ_HERE, {filename, nullptr, config_name, -1, nullptr, nullptr});
}

int del_uci_option_by_id(const char* filename, const char* config_type, int id,
                         const char* option) {
    if (!filename || !config_type || id == -1 || !option) {
        return TQ_FAIL("invalid parameter, filename = %s, config_type = %s, id = %d, option = %s\n",
                       printable(filename), printable(config_type), id, printable(option));
    }
    return delete_and_commit(TQ_HERE, {filename, config_type, nullptr, id, option, nullptr});
}

int del_uci_option_by_name(const char* filename, const char* config_name, const char* option) {
    if (!filename || !config_name || !option) {
        return TQ_FAIL("invalid parameter, filename = %s, cfg_name = %s, option = %s\n",
                       printable(filename), printable(config_name), printable(option));
    }
    return delete_and_commit(TQ_HERE, {filename, nullptr, config_name, -1, option, nullptr});
}

int uci_add_section_by_type(struct uci_context* ctx, struct uci_package* pkg, const char* type) {
    if (!ctx || !pkg || !type) return TQ_FAIL("invalid parameters\n");
    return tq::stage_section(TQ_HERE, ctx, pkg, type);
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
    const int index = tq::stage_section(TQ_HERE, context.get(), package, config_type);
    if (index < 0) return -1;
    if (uci_commit(context.get(), &package, true) != UCI_OK) {
        return TQ_FAIL("uci_commit %s fail\n", filename);
    }
    return index;
}

int uci_get_str_option_by_name(const char* filename, const char* config_name, const char* option,
                               char* buf, int len) {
    if (!filename || !config_name || !option) return TQ_FAIL("invalid parameters\n");
    return read_text(TQ_HERE, {filename, nullptr, config_name, -1, option, nullptr}, buf, len);
}

int uci_get_int_option_by_name(const char* filename, const char* config_name, const char* option,
                               int* value) {
    if (!filename || !config_name || !option || !value) return TQ_FAIL("invalid parameters\n");
    return read_number(TQ_HERE, {filename, nullptr, config_name, -1, option, nullptr}, value);
}

int uci_get_str_option_by_id(const char* filename, const char* config_type, int id,
                             const char* option, char* buf, int len) {
    if (!filename || !config_type || id == -1) return TQ_FAIL("invalid parameters\n");
    return read_text(TQ_HERE, {filename, config_type, nullptr, id, option, nullptr}, buf, len);
}

int uci_get_int_option_by_id(const char* filename, const char* config_type, int id,
                             const char* option, int* value) {
    if (!filename || !config_type || id == -1 || !option || !value) {
        return TQ_FAIL("invalid parameters\n");
    }
    return read_number(TQ_HERE, {filename, config_type, nullptr, id, option, nullptr}, value);
}

int set_uci_option(struct uci_context* ctx, const char* path) {
    if (!ctx || !path) return TQ_FAIL("invalid parameters\n");
    Path copy(path);
    uci_ptr target{};
    if (copy.cut() || uci_lookup_ptr(ctx, &target, copy.data(), true) != UCI_OK) {
        return TQ_FAIL("uci_lookup_ptr fail: %s\n", path);
    }
    if (uci_set(ctx, &target) != UCI_OK) return TQ_FAIL("uci set %s fail\n", path);
    if (uci_save(ctx, target.p) != UCI_OK) return TQ_FAIL("uci_save fail: %s\n", path);
    return 0;
}

int del_uci_element(struct uci_context* ctx, const char* path, int strict) {
    if (!ctx || !path) return TQ_FAIL("invalid parameters\n");
    Path copy(path);
    uci_ptr target{};
    if (copy.cut() || uci_lookup_ptr(ctx, &target, copy.data(), true) != UCI_OK) {
        return TQ_FAIL("uci_lookup_ptr fail: %s\n", path);
    }
    if (target.value && !tq::leading_int(target.value)) return TQ_FAIL("invalid: %s\n", path);
    const int result = uci_delete(ctx, &target);
    if (result == UCI_ERR_NOTFOUND && strict) return result;
    if (result != UCI_OK && result != UCI_ERR_NOTFOUND) {
        TQ_LOG(LOG_ERR, "uci del %s fail\n", path);
        return result;
    }
    if (uci_save(ctx, target.p) != UCI_OK) return TQ_FAIL("uci_save fail: %s\n", path);
    return 0;
}

int get_uci_option(struct uci_context* ctx, const char* path, char* buf, int len) {
    if (!ctx || !path || !buf || len < 1) return TQ_FAIL("invalid parameters\n");
    *buf = '\0';
    Path copy(path);
    uci_ptr found{};
    if (copy.cut() || uci_lookup_ptr(ctx, &found, copy.data(), true) != UCI_OK) {
        return TQ_FAIL("uci_lookup_ptr fail, %s\n", path);
    }
    if (!(found.flags & uci_ptr::UCI_LOOKUP_COMPLETE)) {
        TQ_LOG(LOG_INFO, "ptr.flags = %d, UCI_LOOKUP_COMPLETE = %d\n", found.flags,
               uci_ptr::UCI_LOOKUP_COMPLETE);
        return -1;
    }
    TextWriter out({buf, static_cast<size_t>(len)});
    if (!write_element(out, found)) return TQ_FAIL("unknown\n");
    if (out.cut()) {
        *buf = '\0';
        return TQ_FAIL("buffer is short\n");
    }
    strip_trailing(buf);
    return 0;
}
