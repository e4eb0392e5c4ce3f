// uci.cpp - tqctl uci: values of the configuration files, one at a time.
#include <tq/uci_path.h>

#include <climits>
#include <cstdio>
#include <cstdlib>
#include <cstring>

#include "families.h"
#include "uci_store.h"

namespace tqctl {

namespace {

// The longest path that the library takes, value included.
constexpr size_t kLongestPath = 1023;

// Ends the text at the first separator; what is behind it, or null.
char* cut_at(char* text, char separator) {
    char* end = strchr(text, separator);
    if (!end) return nullptr;
    *end = '\0';
    return end + 1;
}

// A path as the command line spells it, in the parts that the library's calls take: the section by
// its name, or by type and index. A part that is not there is null.
class UciPath {
  public:
    // kDone, or else the path is of no use and that has been said.
    ExitCode parse(const Context& context, const char* spelling);

    [[nodiscard]] const char* file() const { return text_; }
    [[nodiscard]] const char* name() const { return name_; }
    [[nodiscard]] bool is_last_of_type() const { return name_ && *name_ == '@'; }
    [[nodiscard]] const char* type() const { return type_; }
    [[nodiscard]] int index() const { return index_; }
    [[nodiscard]] const char* option() const { return option_; }
    [[nodiscard]] const char* value() const { return value_; }

  private:
    const char* split();
    const char* split_section(char* section);

    const char* name_ = nullptr;
    const char* type_ = nullptr;
    int index_ = -1;
    const char* option_ = nullptr;
    const char* value_ = nullptr;
    char text_[kLongestPath + 1] = "";
};

ExitCode refuse_long_path(const Context& context) {
    return context.fail(ExitCode::kRefused, "a path is at most %zu bytes long, value included",
                        kLongestPath);
}

ExitCode UciPath::parse(const Context& context, const char* spelling) {
    const size_t length = strlen(spelling);
    if (length > kLongestPath) return refuse_long_path(context);
    memcpy(text_, spelling, length + 1);
    const char* problem = split();
    return problem ? context.misuse("%s: %s", spelling, problem) : ExitCode::kDone;
}

// The parts up to the value; the result is what is wrong with them, or null.
const char* UciPath::split() {
    value_ = cut_at(text_, '=');
    char* section = cut_at(text_, '.');
    if (!*text_) return "the file is missing";
    if (strchr(text_, '/')) return "a file goes by its name in /etc/config";
    if (!section || !*section) return "the section is missing";
    option_ = cut_at(section, '.');
    if (option_ && !*option_) return "the option is missing";
    if (*section == '@') return split_section(section);
    name_ = section;
    return nullptr;
}

const char* UciPath::split_section(char* section) {
    constexpr const char* kProblem = "a section without a name is written as @type[index]";
    char* bracket = strchr(section, '[');
    if (!bracket || bracket == section + 1) return kProblem;
    char* end = nullptr;
    const long long index = strtoll(bracket + 1, &end, 10);
    if (end == bracket + 1 || strcmp(end, "]") != 0) return kProblem;
    if (index < INT_MIN || index > INT_MAX) return "the index is out of range";
    // To the library -1 is no index. The last section goes by its spelling instead, as by a name.
    if (index == -1) {
        name_ = section;
        return nullptr;
    }
    *bracket = '\0';
    type_ = section + 1;
    index_ = static_cast<int>(index);
    return nullptr;
}

template <typename Change>
ExitCode apply(const Context& context, const char* file, Change change) {
    return change_file(context, file, "refused: no such section, or a name that is not valid",
                       change);
}

// get

ExitCode parse_readable(const Context& context, const char* spelling, UciPath& path) {
    const ExitCode code = path.parse(context, spelling);
    if (code != ExitCode::kDone) return code;
    if (path.value()) return context.misuse("%s: nothing can be set here", spelling);
    if (path.name() && !path.is_last_of_type() && !path.option()) {
        return context.misuse("%s: the option is missing", spelling);
    }
    return ExitCode::kDone;
}

// By its spelling a section has options only; its own name goes by the index, so that of the last
// one is looked for.
int read_last_name(const UciPath& path, char* buffer, int size) {
    char type[kLongestPath + 1];
    const char* start = path.name() + 1;
    snprintf(type, sizeof(type), "%.*s", static_cast<int>(strcspn(start, "[")), start);
    const auto read = [&](int index) {
        return uci_get_str_option_by_id(path.file(), type, index, nullptr, buffer, size);
    };
    if (read(0) != 0) return -1;
    int last = 0;
    for (int end = INT_MAX; end - last > 1;) {
        const int middle = last + (end - last) / 2;
        (read(middle) == 0 ? last : end) = middle;
    }
    return read(last);
}

int read_value(const UciPath& path, char* buffer, int size) {
    if (path.is_last_of_type() && !path.option()) return read_last_name(path, buffer, size);
    if (path.name()) {
        return uci_get_str_option_by_name(path.file(), path.name(), path.option(), buffer, size);
    }
    return uci_get_str_option_by_id(path.file(), path.type(), path.index(), path.option(), buffer,
                                    size);
}

ExitCode print_value(Context& context, const char* spelling, bool is_only) {
    UciPath path;
    const ExitCode code = parse_readable(context, spelling, path);
    if (code != ExitCode::kDone) return code;
    const size_t room = value_room(path.file());
    const HeapText buffer(static_cast<char*>(malloc(room)));
    if (!buffer) return explain(context, spelling, {ExitCode::kInputOutput, "out of memory"});
    if (read_value(path, buffer.get(), static_cast<int>(room)) != 0) {
        return explain(context, spelling, cause_of_failure(path.file(), "not found"));
    }
    context.output.entry(is_only, spelling, buffer.get());
    return ExitCode::kDone;
}

// What can be read is printed; the code is that of the first path that could not.
ExitCode get(Context& context, Arguments paths) {
    for (const char* spelling : paths) {
        UciPath path;
        const ExitCode code = parse_readable(context, spelling, path);
        if (code == ExitCode::kUsage) return code;
    }
    ExitCode first_failure = ExitCode::kDone;
    for (const char* spelling : paths) {
        const ExitCode code = print_value(context, spelling, paths.size() == 1);
        if (first_failure == ExitCode::kDone) first_failure = code;
    }
    return first_failure;
}

// set, add-list, del-list

ExitCode define_section(const Context& context, const char* file, const char* name,
                        const char* type) {
    if (!*type) return context.misuse("the section's type is missing");
    return apply(context, file, [=] { return uci_add_secition_by_name(file, type, name); });
}

using ChangeByName = int (*)(const char*, const char*, const char*, const char*);
using ChangeById = int (*)(const char*, const char*, int, const char*, const char*);

ExitCode change_option(const Context& context, const UciPath& path, ChangeByName by_name,
                       ChangeById by_id) {
    if (!path.option()) return context.misuse("the option is missing");
    if (!path.value()) return context.misuse("the value is missing");
    return apply(context, path.file(), [&] {
        if (path.name()) return by_name(path.file(), path.name(), path.option(), path.value());
        return by_id(path.file(), path.type(), path.index(), path.option(), path.value());
    });
}

ExitCode set(Context& context, Arguments arguments) {
    UciPath path;
    const ExitCode code = path.parse(context, arguments[0]);
    if (code != ExitCode::kDone) return code;
    if (!path.option() && path.name() && !path.is_last_of_type() && path.value()) {
        return define_section(context, path.file(), path.name(), path.value());
    }
    return change_option(context, path, uci_set_str_option_by_name, uci_set_str_option_by_id);
}

ExitCode add_list(Context& context, Arguments arguments) {
    UciPath path;
    const ExitCode code = path.parse(context, arguments[0]);
    if (code != ExitCode::kDone) return code;
    return change_option(context, path, uci_add_list_by_name, uci_add_list_by_id);
}

ExitCode del_list(Context& context, Arguments arguments) {
    UciPath path;
    const ExitCode code = path.parse(context, arguments[0]);
    if (code != ExitCode::kDone) return code;
    return change_option(context, path, uci_del_list_by_name, uci_del_list_by_id);
}

// del

int delete_element(const UciPath& path) {
    if (path.name()) {
        return path.option() ? del_uci_option_by_name(path.file(), path.name(), path.option())
                             : del_uci_section_by_name(path.file(), path.name());
    }
    return path.option()
               ? del_uci_option_by_id(path.file(), path.type(), path.index(), path.option())
               : del_uci_section_by_id(path.file(), path.type(), path.index());
}

ExitCode del(Context& context, Arguments arguments) {
    UciPath path;
    const ExitCode code = path.parse(context, arguments[0]);
    if (code != ExitCode::kDone) return code;
    if (path.value()) return context.misuse("a value is not deleted; see del-list");
    return apply(context, path.file(), [&] { return delete_element(path); });
}

// add

ExitCode add_anonymous(Context& context, const char* file, const char* type) {
    int index = -1;
    const ExitCode code = apply(context, file, [&] { return index = add_uci_section(file, type); });
    if (code == ExitCode::kDone) context.output.value("index", index);
    return code;
}

// The parts become one path, in which these bytes would be read as more than a name.
bool is_name(const char* text) {
    return *text && !strpbrk(text, "./=@[]");
}

ExitCode add(Context& context, Arguments arguments) {
    const char* file = arguments[0];
    const char* type = arguments[1];
    if (!is_name(file)) return context.misuse("'%s' is not the name of a file", file);
    if (!*type) return context.misuse("the section's type is missing");
    if (arguments.size() == 2) return add_anonymous(context, file, type);
    const char* name = arguments[2];
    if (!is_name(name)) return context.misuse("'%s' is not the name of a section", name);
    const size_t length = strlen(file) + strlen(name) + strlen(type) + strlen(".=");
    if (length > kLongestPath) return refuse_long_path(context);
    return define_section(context, file, name, type);
}

constexpr Command kCommands[] = {
    {"get", "PATH...", 1, kAnyNumber, "prints values",
     "One PATH prints its value. Several print one line each, as PATH=VALUE; those\n"
     "that cannot be read are reported, and the exit code is that of the first of\n"
     "them. A list prints its items with one blank between them, and FILE.@TYPE[N]\n"
     "alone the section's name. JSON is an object with the PATHs as its keys.",
     "tqctl uci get system.@system[0].hostname", get},
    {"set", "PATH=VALUE", 1, 1, "sets an option, or defines a named section",
     "An option that is missing is created; its section must exist. An empty VALUE\n"
     "deletes the option. FILE.NAME=TYPE defines the named section of that type.",
     "tqctl uci set wireless.radio0.channel=36", set},
    {"add", "FILE TYPE [NAME]", 2, 3, "adds a section",
     "Without a NAME the section is anonymous, and its index among those of its TYPE\n"
     "is printed. A named section that exists becomes one of TYPE and keeps its\n"
     "options.",
     "tqctl uci add firewall rule", add},
    {"del", "PATH", 1, 1, "deletes an option or a section",
     "What does not exist counts as deleted; the file must exist.",
     "tqctl uci del wireless.radio0.disabled", del},
    {"add-list", "PATH=VALUE", 1, 1, "appends an item to a list",
     "A list that is missing is created, and an option becomes a list of its value\n"
     "and the new item.",
     "tqctl uci add-list system.ntp.server=192.0.2.1", add_list},
    {"del-list", "PATH=VALUE", 1, 1, "removes an item from a list",
     "Every item that equals VALUE is removed. A list without one stays as it is.",
     "tqctl uci del-list system.ntp.server=192.0.2.1", del_list},
};
static_assert(is_complete(kCommands));

}  // namespace

constinit const Family kUci = {
    "uci", "values of configuration files",
    "PATH is FILE.SECTION.OPTION or FILE.SECTION, where FILE is a file's name in\n"
    "/etc/config and SECTION a section's name or @TYPE[N]: the N-th of its type,\n"
    "from 0, or from the end with -1 for the last. A path is at most 1023 bytes\n"
    "long, value included. Each change is written to the file before the command\n"
    "ends, together with what other programs have staged for it in /tmp/.uci.",
    kCommands};

}  // namespace tqctl
