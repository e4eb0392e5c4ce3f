// config.cpp - tqctl config: the configuration files that daemons keep loaded, as a whole.
#include <tq/uci_session.h>
#include <uci.h>

#include <cstdio>
#include <cstring>
#include <utility>

#include "families.h"
#include "uci_sections.h"
#include "uci_store.h"

namespace tqctl {

namespace {

const uci_entry* find_file(const Context& context, const char* file, ExitCode& code) {
    const uci_entry* entry = get_uci_entry_by_name(file);
    if (!entry) {
        code = context.fail(ExitCode::kRefused,
                            "%s: not one of the files that 'tqctl config list' shows", file);
    }
    return entry;
}

int count(uci_list& list) {
    int number = 0;
    for_each(list, [&number](uci_element&) { number++; });
    return number;
}

// list

struct FileState {
    const uci_entry& entry;
    const char* state;
    int sections;
    bool is_staged;
};

Json describe(const FileState& file) {
    Json row(json_object_new_object());
    const bool whole = json_add(row.get(), "id", json_number(file.entry.id)) &&
                       json_add(row.get(), "file", json_text(file.entry.file)) &&
                       json_add(row.get(), "state", json_text(file.state)) &&
                       json_add(row.get(), "sections", json_number(file.sections)) &&
                       json_add(row.get(), "staged", json_bool(file.is_staged));
    return whole ? std::move(row) : nullptr;
}

void print_row(const FileState& file) {
    const char* note = file.is_staged ? ", changes staged" : "";
    printf("%2d  %-14s ", file.entry.id, file.entry.file);
    if (strcmp(file.state, "present") == 0) {
        printf("%d %s%s\n", file.sections, file.sections == 1 ? "section" : "sections", note);
    } else {
        printf("%s%s\n", file.state, note);
    }
}

// The files in the order of their ids, which everything that keeps flags for them shares.
constexpr const char* kFiles[] = {
    "dhcp",  "network",  "bind",    "location", "wireless", "system", "apstats",      "wtp",
    "board", "firewall", "forward", "bwctrl",   "nat",      "mcsd",   "troubleshoot", "ordercfg"};
static_assert(std::size(kFiles) == UCI_CONFIG_ALL);

ExitCode list(Context& context, Arguments) {
    ExitCode first_failure = ExitCode::kDone;
    Rows rows(context.output);
    for (const char* file : kFiles) {
        const uci_entry& entry = *get_uci_entry_by_name(file);
        uci_config_ctx session{};
        const char* state = "missing";
        if (is_present(file)) {
            const ExitCode code = load_session(context, entry, session);
            state = code == ExitCode::kDone ? "present" : "unreadable";
            if (first_failure == ExitCode::kDone) first_failure = code;
        }
        const int sections = session.pkg ? count(session.pkg->sections) : 0;
        rows.add(FileState{entry, state, sections, has_staged_changes(file)}, describe, print_row);
    }
    return first_failure;
}

// show

// As a shell reads it.
void print_quoted(const char* text) {
    putchar('\'');
    for (const char* c = text; *c; c++) {
        if (*c == '\'') {
            fputs("'\\''", stdout);
        } else {
            putchar(*c);
        }
    }
    putchar('\'');
}

void print_option(const char* file, const char* section, uci_option& option) {
    printf("%s.%s.%s=", file, section, option.e.name);
    if (option.type == UCI_TYPE_STRING) {
        print_quoted(option.v.string);
    } else {
        const char* blank = "";
        for_each(option.v.list, [&blank](uci_element& item) {
            fputs(blank, stdout);
            print_quoted(item.name);
            blank = " ";
        });
    }
    putchar('\n');
}

void print_section(const char* file, const char* spelling, uci_section& section) {
    printf("%s.%s=%s\n", file, spelling, section.type);
    for_each(section.options,
             [&](uci_element& element) { print_option(file, spelling, *uci_to_option(&element)); });
}

Json json_items(uci_list& items) {
    Json array(json_object_new_array());
    for_each(items,
             [&array](uci_element& item) { json_append(array.get(), json_text(item.name)); });
    return array;
}

Json json_section(uci_section& section) {
    Json object(json_object_new_object());
    json_add(object.get(), ".type", json_text(section.type));
    for_each(section.options, [&object](uci_element& element) {
        uci_option* option = uci_to_option(&element);
        json_add(object.get(), option->e.name,
                 option->type == UCI_TYPE_STRING ? json_text(option->v.string)
                                                 : json_items(option->v.list));
    });
    return object;
}

ExitCode show(Context& context, Arguments arguments) {
    ExitCode code = ExitCode::kDone;
    const uci_entry* entry = find_file(context, arguments[0], code);
    if (!entry) return code;
    const char* wanted = arguments.size() == 2 ? arguments[1] : nullptr;
    uci_config_ctx session{};
    code = load_session(context, *entry, session);
    if (code != ExitCode::kDone || !session.pkg) return code;

    const Json sections(json_object_new_object());
    bool found = false;
    for_each(session.pkg->sections, [&](uci_element& element) {
        uci_section& section = *uci_to_section(&element);
        const Spelling spelling(section);
        if (wanted && !spelling.is(wanted)) return;
        found = true;
        if (context.output.is_json()) {
            json_add(sections.get(), spelling.c_str(), json_section(section));
        } else {
            print_section(entry->file, spelling.c_str(), section);
        }
    });
    if (wanted && !found) {
        return context.fail(ExitCode::kRefused, "%s.%s: no such section", entry->file, wanted);
    }
    if (context.output.is_json()) context.output.document(sections);
    return ExitCode::kDone;
}

// save

// What is not saved is unloaded: saving all files must not try it again.
ExitCode save_file(const Context& context, const uci_entry& entry) {
    if (const auto obstacle = obstacle_to_change(entry.file)) {
        return explain(context, entry.file, *obstacle);
    }
    uci_config_ctx session{};
    const ExitCode code = load_session(context, entry, session);
    if (code != ExitCode::kDone) return code;
    if (save_uci_config(entry.id, nullptr, 0) == 0) return ExitCode::kDone;
    free_uci_config(entry.id);
    return explain(context, entry.file,
                   {ExitCode::kInputOutput, "what is staged could not be committed"});
}

// Saves the files and sets the flags of those that were; the code is that of the first failure.
ExitCode save_files(const Context& context, std::span<const char* const> files, int* saved) {
    ExitCode first_failure = ExitCode::kDone;
    for (const char* file : files) {
        const uci_entry& entry = *get_uci_entry_by_name(file);
        const ExitCode code = save_file(context, entry);
        if (code == ExitCode::kDone) saved[entry.id] = 1;
        if (first_failure == ExitCode::kDone) first_failure = code;
    }
    return first_failure;
}

ExitCode save(Context& context, Arguments arguments) {
    const bool commit2 = !arguments.empty() && strcmp(arguments[0], "--commit2") == 0;
    const Arguments named = arguments.subspan(commit2 ? 1 : 0);
    const char* files[UCI_CONFIG_ALL];
    size_t number = 0;
    if (named.size() > std::size(files)) return context.misuse("too many files");
    for (const char* file : named) {
        ExitCode code = ExitCode::kDone;
        if (!find_file(context, file, code)) return code;
        files[number++] = file;
    }
    if (named.empty()) {
        for (const char* file : kFiles) {
            if (is_present(file)) files[number++] = file;
        }
    }
    int saved[UCI_CONFIG_ALL] = {};
    const ExitCode code = save_files(context, {files, number}, saved);
    if (commit2) save_uci_config(UCI_CONFIG_ALL, saved, UCI_CONFIG_ALL);
    return code;
}

constexpr Command kCommands[] = {
    {"list", "", 0, 0, "prints the files with their ids",
     "A line is the id, the file, and how many sections it has, with \", changes\n"
     "staged\" where there are some; or missing, or unreadable, and then the exit\n"
     "code says why. JSON is an array of objects.",
     "tqctl config list", list},
    {"show", "FILE [SECTION]", 1, 2, "prints a file's sections and options",
     "One line each, as FILE.SECTION=TYPE and FILE.SECTION.OPTION='VALUE', quoted\n"
     "for a shell; a list has its items behind each other. SECTION is a name or\n"
     "@TYPE[N]. JSON is an object of sections, each an object of its \".type\" and\n"
     "its options, with lists as arrays. Passwords are printed, too.",
     "tqctl config show wireless radio0", show},
    {"save", "[--commit2] [FILE...]", 0, 17, "commits what is staged",
     "What 'uci set' and others have staged in /tmp/.uci is written to the files, by\n"
     "default to all that are there. With --commit2 the firmware's command\n"
     "'uci commit2 FILE' is run for each file that was saved; its failure is not\n"
     "seen.",
     "tqctl config save wireless network", save},
};
static_assert(is_complete(kCommands));

}  // namespace

constinit const Family kConfig = {
    "config", "configuration files as a whole",
    "These are the files that daemons keep loaded. FILE is one of the names that\n"
    "the list shows, a file in /etc/config.",
    kCommands};

}  // namespace tqctl
