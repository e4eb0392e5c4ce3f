// uci_faults.cpp - options by path, sessions, and the shortcuts.
#include <tq/uci_option.h>
#include <tq/uci_path.h>
#include <tq/uci_session.h>
#include <uci.h>

#include <array>
#include <cstring>
#include <filesystem>

#include "faults/sweep.h"
#include "support/device.h"

namespace tq_test::sweep {
namespace {

constexpr int kPreset = -5;

char text[64];
int value;

// ---- one small file ----

struct Content {
    const char* file;
    const char* before;
    const char* after;
};

std::string path_of(const Content& content) {
    return std::string("/etc/config/") + content.file;
}

std::function<void()> file_of(const Content& content) {
    return [content] {
        std::filesystem::remove_all("/tmp/.uci");
        write_file(path_of(content), content.before);
        memset(text, 0, sizeof(text));
        value = kPreset;
    };
}

bool is_staged(const char* file) {
    const std::string path = std::string("/tmp/.uci/") + file;
    return exists(path) && !read_file(path).empty();
}

// Without the items and sections that were added more than once.
std::string without_repetition(std::string content) {
    for (const std::string added : {"\tlist item 'b'\n", "\nconfig other\n"}) {
        while (content.find(added) != content.rfind(added))
            content.erase(content.rfind(added), added.size());
    }
    return content;
}

// What a change by path has come to: the file is the old one or the new one, whatever fails; what
// was staged before a failure waits for the next commit.
std::function<std::string(intptr_t)> file_after(const Content& content) {
    return [content](intptr_t result) {
        const std::string now = read_file(path_of(content));
        const bool staged = is_staged(content.file);
        if (now == content.after && !staged) return with_text(result, "changed");
        if (now == content.before && !staged) return with_text(result, "as it was");
        if (now == content.after || now == content.before) return with_text(result, "staged");
        if (without_repetition(now) == content.after) return with_text(result, "repeated");
        return with_text(result, now.c_str());
    };
}

constexpr const char* kNotCommitted = "-1 as it was|-1 staged";

Row change(std::string function, const Content& content, std::function<intptr_t()> call) {
    Row row = {.function = std::move(function),
               .prepare = file_of(content),
               .call = std::move(call),
               .outcome = file_after(content),
               .gives = "0 changed",
               .fails = kNotCommitted};
    row.but = where_libuci_may_do_without(row);
    // The new file's last call may be the one that fails to write it.
    row.but.push_back({"fclose", row.gives + "|" + row.fails});
    return row;
}

// A change that commits the file once more, or has several steps.
Row change_by_steps(std::string function, const Content& content, std::function<intptr_t()> call) {
    Row row = change(std::move(function), content, std::move(call));
    row.fails += "|-1 changed";
    for (Stated& stated : row.but)
        stated.gives += "|-1 changed";
    return row;
}

constexpr Content kOption = {"sweep", "\nconfig kind 'one'\n\toption text 'old'\n\n",
                             "\nconfig kind 'one'\n\toption text 'new'\n\n"};
constexpr Content kNumber = {"sweep", "\nconfig kind 'one'\n\toption count '5'\n\n",
                             "\nconfig kind 'one'\n\toption count '7'\n\n"};
constexpr Content kItem = {"sweep", "\nconfig kind 'one'\n\tlist item 'a'\n\n",
                           "\nconfig kind 'one'\n\tlist item 'a'\n\tlist item 'b'\n\n"};
constexpr Content kLessItem = {"sweep", "\nconfig kind 'one'\n\tlist item 'a'\n\tlist item 'b'\n\n",
                               "\nconfig kind 'one'\n\tlist item 'a'\n\n"};
constexpr Content kSection = {"sweep", "\nconfig kind 'one'\n\n",
                              "\nconfig kind 'one'\n\nconfig kind 'two'\n\n"};
constexpr Content kLessSection = {"sweep", "\nconfig kind 'one'\n\nconfig other 'two'\n\n",
                                  "\nconfig other 'two'\n\n"};
constexpr Content kLessOption = {"sweep", "\nconfig kind 'one'\n\toption text 'old'\n\n",
                                 "\nconfig kind 'one'\n\n"};
constexpr Content kAnonymous = {"sweep", "\nconfig kind 'one'\n\n",
                                "\nconfig kind 'one'\n\nconfig other\n\n"};

void add_changes(std::vector<Row>& rows) {
    rows.push_back(change("uci_set_str_option_by_id", kOption, [] {
        return uci_set_str_option_by_id("sweep", "kind", 0, "text", "new");
    }));
    rows.push_back(change_by_steps("uci_set_int_option_by_id", kNumber, [] {
        return uci_set_int_option_by_id("sweep", "kind", 0, "count", 7);
    }));
    rows.push_back(change("uci_set_str_option_by_name", kOption, [] {
        return uci_set_str_option_by_name("sweep", "one", "text", "new");
    }));
    rows.push_back(change_by_steps("uci_set_int_option_by_name", kNumber, [] {
        return uci_set_int_option_by_name("sweep", "one", "count", 7);
    }));
    rows.push_back(change("uci_add_list_by_name", kItem,
                          [] { return uci_add_list_by_name("sweep", "one", "item", "b"); }));
    rows.push_back(change("uci_add_list_by_id", kItem,
                          [] { return uci_add_list_by_id("sweep", "kind", 0, "item", "b"); }));
    rows.push_back(change("uci_del_list_by_name", kLessItem,
                          [] { return uci_del_list_by_name("sweep", "one", "item", "b"); }));
    rows.push_back(change("uci_del_list_by_id", kLessItem,
                          [] { return uci_del_list_by_id("sweep", "kind", 0, "item", "b"); }));
    rows.push_back(change("uci_add_secition_by_name", kSection,
                          [] { return uci_add_secition_by_name("sweep", "kind", "two"); }));
    rows.push_back(change("del_uci_section_by_id", kLessSection,
                          [] { return del_uci_section_by_id("sweep", "kind", 0); }));
    rows.push_back(change("del_uci_section_by_name", kLessSection,
                          [] { return del_uci_section_by_name("sweep", "one"); }));
    rows.push_back(change("del_uci_option_by_id", kLessOption,
                          [] { return del_uci_option_by_id("sweep", "kind", 0, "text"); }));
    rows.push_back(change("del_uci_option_by_name", kLessOption,
                          [] { return del_uci_option_by_name("sweep", "one", "text"); }));
    rows.push_back(
        change("add_uci_section", kAnonymous, [] { return add_uci_section("sweep", "other"); }));
}

Row getter(std::string function, const Content& content, std::function<intptr_t()> call,
           bool is_number) {
    Row row = {.function = std::move(function),
               .prepare = file_of(content),
               .call = std::move(call),
               .outcome =
                   [is_number](intptr_t result) {
                       return is_number ? with_number(result, value) : with_text(result, text);
                   },
               .gives = is_number ? "0 5" : "0 old",
               .fails = is_number ? "-1 -5" : "-1 "};
    row.but = where_libuci_may_do_without(row);
    return row;
}

// What was staged before a failure is added with the next one; a deletion that was staged has
// nothing left to delete where the file was written, and waits for a commit that changes something.
void let_what_was_staged_come_back(std::vector<Row>& rows) {
    for (Row& row : rows) {
        if (row.function.starts_with("del_uci")) row.again = "0 changed|0 staged";
        if (row.function.starts_with("uci_add_list")) row.again = "0 changed|0 repeated";
        if (row.function == "add_uci_section") row.again = "0 changed|1 repeated";
    }
}

void add_getters(std::vector<Row>& rows) {
    rows.push_back(getter(
        "uci_get_str_option_by_name", kOption,
        [] { return uci_get_str_option_by_name("sweep", "one", "text", text, sizeof(text)); },
        false));
    rows.push_back(getter(
        "uci_get_int_option_by_name", kNumber,
        [] { return uci_get_int_option_by_name("sweep", "one", "count", &value); }, true));
    rows.push_back(getter(
        "uci_get_str_option_by_id", kOption,
        [] { return uci_get_str_option_by_id("sweep", "kind", 0, "text", text, sizeof(text)); },
        false));
    rows.push_back(getter(
        "uci_get_int_option_by_id", kNumber,
        [] { return uci_get_int_option_by_id("sweep", "kind", 0, "count", &value); }, true));
}

// ---- on a context of the caller's ----

uci_context* context;
uci_package* package;

std::function<void()> context_on(const Content& content, bool loaded) {
    return [content, loaded] {
        file_of(content)();
        context = uci_alloc_context();
        if (loaded) uci_load(context, content.file, &package);
    };
}

void free_context(intptr_t /*result*/) {
    uci_free_context(context);
}

Row on_context(std::string function, const Content& content, bool loaded,
               std::function<intptr_t()> call) {
    Row row = {.function = std::move(function),
               .prepare = context_on(content, loaded),
               .call = std::move(call),
               .undo = free_context};
    row.but = where_libuci_may_do_without(row);
    return row;
}

void add_on_context(std::vector<Row>& rows) {
    rows.push_back(on_context("uci_add_section_by_type", kAnonymous, true,
                              [] { return uci_add_section_by_type(context, package, "other"); }));
    // A section that could not be staged is in the package all the same.
    rows.back().again = "0|1";
    rows.push_back(on_context("add_section", kAnonymous, true,
                              [] { return add_section(context, package, "other"); }));
    rows.back().again = "0|1";
    rows.push_back(on_context("set_uci_option", kOption, false,
                              [] { return set_uci_option(context, "sweep.one.text=new"); }));
    rows.push_back(on_context("del_uci_element", kLessOption, false,
                              [] { return del_uci_element(context, "sweep.one.text", 0); }));
    rows.back().but.push_back({"malloc", "-1|1"});  // libuci's code
    rows.push_back(on_context("get_uci_option", kOption, false, [] {
        return get_uci_option(context, "sweep.one.text", text, sizeof(text));
    }));
    rows.back().outcome = [](intptr_t result) { return with_text(result, text); };
    rows.back().gives = "0 old";
    rows.back().fails = "-1 ";
    rows.back().but = where_libuci_may_do_without(rows.back());
}

// ---- shortcuts ----

constexpr Content kWireless = {"wireless",
                               "\nconfig wifi-device 'radio0'\n\toption channel '6'\n\n"
                               "config wifi-iface 'vap0'\n\toption ssid 'old'\n\n",
                               ""};
constexpr Content kFirewall = {"firewall", "\nconfig rule 'one'\n\toption target 'DROP'\n\n", ""};
constexpr Content kThreshold = {"tqfm", "\nconfig module '1'\n\toption threshold '5'\n\n",
                                "\nconfig module '1'\n\toption threshold '7'\n\n"};
constexpr Content kNoThreshold = {
    "tqfm", "\nconfig other\n\n",
    "\nconfig other\n\nconfig module '1'\n\toption threshold '7'\n\n"};
constexpr Content kSuppress = {"tqfm", "\nconfig module '1'\n\toption suppress '5'\n\n",
                               "\nconfig module '1'\n\toption suppress '7'\n\n"};

void add_shortcuts(std::vector<Row>& rows) {
    rows.push_back(on_context("set_radio_option_int", kWireless, false,
                              [] { return set_radio_option_int(context, 0, "channel", 11); }));
    rows.push_back(on_context("set_radio_option_str", kWireless, false,
                              [] { return set_radio_option_str(context, 0, "channel", "11"); }));
    rows.push_back(on_context("set_vap_option_int", kWireless, false,
                              [] { return set_vap_option_int(context, 0, "ssid", 7); }));
    rows.push_back(on_context("set_vap_option_str", kWireless, false,
                              [] { return set_vap_option_str(context, 0, "ssid", "new"); }));
    rows.push_back(on_context("set_fw_rule_option_int", kFirewall, false,
                              [] { return set_fw_rule_option_int(context, 0, "target", 1); }));
    rows.push_back(on_context("set_fw_rule_option_str", kFirewall, false, [] {
        return set_fw_rule_option_str(context, 0, "target", "ACCEPT");
    }));
    rows.push_back(on_context("del_radio_option", kWireless, false,
                              [] { return del_radio_option(context, 0, "channel"); }));
    rows.back().but.push_back({"malloc", "-1|1"});
    rows.push_back(on_context("del_vap_option", kWireless, false,
                              [] { return del_vap_option(context, 0, "ssid"); }));
    rows.push_back(getter(
        "uci_get_threshold", kThreshold, [] { return uci_get_threshold(1, &value); }, true));
    rows.push_back(
        change_by_steps("uci_set_threshold", kThreshold, [] { return uci_set_threshold(1, 7); }));
    // The section that was defined stays when the second step fails.
    rows.push_back(
        change_by_steps("uci_set_threshold", kNoThreshold, [] { return uci_set_threshold(1, 7); }));
    rows.back().how = "a new module";
    const std::string defined = "|-1 \nconfig other\n\nconfig module '1'\n\n";
    rows.back().fails += defined;
    for (Stated& stated : rows.back().but)
        stated.gives += defined;
    rows.push_back(getter(
        "uci_get_suppress", kSuppress, [] { return uci_get_suppress(1, &value); }, true));
    rows.push_back(
        change_by_steps("uci_set_suppress", kSuppress, [] { return uci_set_suppress(1, 7); }));
    // Only the file's loading makes it fail: the modules are set one by one.
    rows.push_back(change_by_steps("uci_set_suppress_defaults", kSuppress,
                                   [] { return uci_set_suppress_defaults(7); }));
    rows.back().fails = "-1 as it was|0 as it was|0 staged|0 changed";
    for (Stated& stated : rows.back().but)
        stated.gives = rows.back().fails;
}

}  // namespace

std::vector<Row> uci_rows() {
    std::vector<Row> rows;
    add_changes(rows);
    let_what_was_staged_come_back(rows);
    add_getters(rows);
    add_on_context(rows);
    add_shortcuts(rows);
    rows.push_back(pure("uci_cmd_format", [] {
        return uci_cmd_format(text, sizeof(text), "file", "type", nullptr, 0, "option", "value");
    }));
    return rows;
}

}  // namespace tq_test::sweep
