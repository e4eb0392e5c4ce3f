// uci_cli.cpp - the `uci` command: shows and changes configuration files from a shell.
#include <uci.h>
#include <unistd.h>

#include <cerrno>
#include <cstdlib>
#include <cstring>
#include <iterator>
#include <memory>

namespace {

constexpr int kUsageError = 255;

struct FreeDeleter {
    void operator()(void* block) const { free(block); }
};

struct ContextDeleter {
    void operator()(uci_context* context) const { uci_free_context(context); }
};

enum class Action {
    kAdd,
    kAddList,
    kBatch,
    kChanges,
    kCommit,
    kDelete,
    kDelList,
    kExport,
    kGet,
    kHelp,
    kImport,
    kRename,
    kReorder,
    kRevert,
    kSet,
    kShow
};

struct Command {
    const char* name;
    Action action;
    int min_arguments;
    int max_arguments;
};

constexpr int kAnyNumber = 1 << 20;

constexpr Command kCommands[] = {
    {"add", Action::kAdd, 2, 2},
    {"add_list", Action::kAddList, 1, 1},
    {"batch", Action::kBatch, 0, kAnyNumber},
    {"changes", Action::kChanges, 0, 1},
    {"commit", Action::kCommit, 0, 1},
    // The firmware's second commit, which its library runs beside its own.
    {"commit2", Action::kCommit, 0, 1},
    {"del_list", Action::kDelList, 1, 1},
    {"delete", Action::kDelete, 1, 1},
    {"export", Action::kExport, 0, 1},
    {"get", Action::kGet, 1, 1},
    {"help", Action::kHelp, 0, kAnyNumber},
    {"import", Action::kImport, 0, 1},
    {"rename", Action::kRename, 1, 1},
    {"reorder", Action::kReorder, 1, 1},
    {"revert", Action::kRevert, 1, 1},
    {"set", Action::kSet, 1, 1},
    {"show", Action::kShow, 0, 1},
};

constexpr const char* kUsage =
    "Usage: %s [<options>] <command> [<arguments>]\n"
    "\n"
    "Commands:\n"
    "\tbatch\n"
    "\texport     [<config>]\n"
    "\timport     [<config>]\n"
    "\tchanges    [<config>]\n"
    "\tcommit     [<config>]\n"
    "\tadd        <config> <section-type>\n"
    "\tadd_list   <config>.<section>.<option>=<string>\n"
    "\tdel_list   <config>.<section>.<option>=<string>\n"
    "\tshow       [<config>[.<section>[.<option>]]]\n"
    "\tget        <config>.<section>[.<option>]\n"
    "\tset        <config>.<section>[.<option>]=<value>\n"
    "\tdelete     <config>[.<section>[[.<option>][=<id>]]]\n"
    "\trename     <config>.<section>[.<option>]=<name>\n"
    "\trevert     <config>[.<section>[.<option>]]\n"
    "\treorder    <config>.<section>=<position>\n"
    "\n"
    "Options:\n"
    "\t-c <path>  set the search path for config files (default: /etc/config)\n"
    "\t-C <path>  set the search path for config override files (default: /var/run/uci)\n"
    "\t-d <str>   set the delimiter for list values in uci show\n"
    "\t-f <file>  use <file> as input instead of stdin\n"
    "\t-m         when importing, merge data into an existing package\n"
    "\t-n         name unnamed sections on export (default)\n"
    "\t-N         don't name unnamed sections\n"
    "\t-p <path>  add a search path for config change files\n"
    "\t-P <path>  add a search path for config change files and use as default\n"
    "\t-t <path>  set save path for config change files\n"
    "\t-q         quiet mode (don't print error messages)\n"
    "\t-s         force strict mode (stop on parser errors, default)\n"
    "\t-S         disable strict mode\n"
    "\t-X         do not use extended syntax on 'show'\n"
    "\n";

bool is_complete(const uci_ptr& ptr) {
    return (ptr.flags & uci_ptr::UCI_LOOKUP_COMPLETE) != 0;
}

class Uci {
  public:
    explicit Uci(const char* program) : program_(program), context_(uci_alloc_context()) {}
    ~Uci() {
        if (input_ != stdin) fclose(input_);
    }
    Uci(const Uci&) = delete;
    Uci& operator=(const Uci&) = delete;

    bool usable() const { return context_ != nullptr; }

    // Whether the command line's options are understood; *result is set where they are not.
    bool take_options(int argc, char** argv, int* result);
    int run(int argc, char** argv);
    void print_usage() const { fprintf(stderr, kUsage, program_); }

  private:
    uci_context* ctx() const { return context_.get(); }
    void set_flag(uci_flags flag, bool on);
    bool take_option(int option, int* result);
    int fail(int result = 1);
    int perform(const Command& command, int argc, char** argv);

    int batch();
    bool batch_line(bool* stop);
    int batch_arguments(char** words, int* count);
    void unload_all();

    int add(char* package, const char* type);
    int import(const char* name);
    int import_merged(const char* name);
    int on_packages(Action action, char* path);
    int on_package(Action action, char* path);
    int commit(uci_package* package);
    int on_element(Action action, char* path);
    int get(const uci_ptr& ptr);
    int change(Action action, uci_ptr* ptr);
    int reorder(const uci_ptr& ptr);

    void show(const uci_ptr& ptr);
    void show_package(uci_package* package);
    void show_section(uci_section* section, const char* name);
    void show_option(uci_option* option, const char* section);
    void print_option(uci_option* option, bool quoted) const;
    static void print_changes(uci_package* package);

    const char* program_;
    std::unique_ptr<uci_context, ContextDeleter> context_;
    FILE* input_ = stdin;
    const char* delimiter_ = " ";
    bool quiet_ = false;
    bool merge_ = false;
    bool commits_ = true;
    bool show_indexes_ = true;
};

const Command* find_command(const char* name) {
    for (const Command& command : kCommands) {
        if (strcmp(command.name, name) == 0) return &command;
    }
    return nullptr;
}

int Uci::fail(int result) {
    if (!quiet_) uci_perror(ctx(), program_);
    return result;
}

// ---- output ----

void print_quoted(const char* text) {
    putchar('\'');
    for (; *text; ++text) {
        if (*text == '\'') {
            fputs("'\\''", stdout);
        } else {
            putchar(*text);
        }
    }
    putchar('\'');
}

bool has_white_space(const char* text) {
    return strpbrk(text, " \t\r\n") != nullptr;
}

// For `get`, items are quoted only where their ends would be lost.
void Uci::print_option(uci_option* option, bool quoted) const {
    if (option->type == UCI_TYPE_STRING) {
        quoted ? print_quoted(option->v.string) : (void)fputs(option->v.string, stdout);
        return;
    }
    const char* delimiter = "";
    uci_element* item = nullptr;
    uci_foreach_element(&option->v.list, item) {
        fputs(delimiter, stdout);
        delimiter = delimiter_;
        if (quoted || has_white_space(item->name)) {
            print_quoted(item->name);
        } else {
            fputs(item->name, stdout);
        }
    }
}

void Uci::show_option(uci_option* option, const char* section) {
    printf("%s.%s.%s=", option->section->package->e.name, section, option->e.name);
    print_option(option, true);
    putchar('\n');
}

void Uci::show_section(uci_section* section, const char* name) {
    printf("%s.%s=%s\n", section->package->e.name, name, section->type);
    uci_element* element = nullptr;
    uci_foreach_element(&section->options, element) show_option(uci_to_option(element), name);
}

int index_of_type(const uci_section* section) {
    int index = 0;
    for (const uci_list* at = section->e.list.prev; at != &section->package->sections;
         at = at->prev) {
        const uci_section* other = uci_to_section(list_to_element(at));
        if (strcmp(other->type, section->type) == 0) ++index;
    }
    return index;
}

void Uci::show_package(uci_package* package) {
    uci_element* element = nullptr;
    uci_foreach_element(&package->sections, element) {
        uci_section* section = uci_to_section(element);
        if (!section->anonymous || !show_indexes_) {
            show_section(section, section->e.name);
            continue;
        }
        char* name = nullptr;
        if (asprintf(&name, "@%s[%d]", section->type, index_of_type(section)) < 0) return;
        const std::unique_ptr<char, FreeDeleter> owned(name);
        show_section(section, name);
    }
}

void Uci::show(const uci_ptr& ptr) {
    if (ptr.o) {
        show_option(ptr.o, ptr.s->e.name);
    } else if (ptr.s) {
        show_section(ptr.s, ptr.s->e.name);
    } else {
        show_package(ptr.p);
    }
}

const char* change_operator(uci_command command) {
    if (command == UCI_CMD_LIST_ADD) return "+=";
    if (command == UCI_CMD_LIST_DEL) return "-=";
    return "=";
}

void print_change(const char* package, const uci_delta* delta) {
    const bool removes = delta->cmd == UCI_CMD_REMOVE;
    printf("%s%s.%s", removes ? "-" : "", package, delta->section);
    if (delta->e.name) printf(".%s", delta->e.name);
    if (!removes && delta->value) {
        fputs(change_operator(delta->cmd), stdout);
        print_quoted(delta->value);
    }
    putchar('\n');
}

void Uci::print_changes(uci_package* package) {
    uci_element* element = nullptr;
    uci_foreach_element(&package->saved_delta, element) {
        print_change(package->e.name, uci_to_delta(element));
    }
    uci_foreach_element(&package->delta, element) {
        print_change(package->e.name, uci_to_delta(element));
    }
}

// ---- commands on packages ----

int Uci::add(char* package, const char* type) {
    uci_package* loaded = nullptr;
    uci_section* section = nullptr;
    int error = uci_load(ctx(), package, &loaded);
    if (!error) error = uci_add_section(ctx(), loaded, type, &section);
    if (!error) error = uci_save(ctx(), loaded);
    if (error) return fail(error);
    puts(section->e.name);
    return 0;
}

// Merged statements are staged like any other change.
int Uci::import_merged(const char* name) {
    uci_package* package = nullptr;
    const int error = uci_load(ctx(), name, &package);
    if (error && error != UCI_ERR_NOTFOUND) return fail();
    if (uci_import(ctx(), input_, name, &package, true)) return fail();
    if (error) return uci_commit(ctx(), &package, true) ? fail() : 0;
    return uci_save(ctx(), package) ? fail() : 0;
}

int Uci::import(const char* name) {
    if (merge_) {
        if (name) return import_merged(name);
        print_usage();
        return kUsageError;
    }
    if (uci_import(ctx(), input_, name, nullptr, name != nullptr)) return fail();
    uci_element *element = nullptr, *next = nullptr;
    uci_foreach_element_safe(&ctx()->root, next, element) {
        uci_package* package = uci_to_package(element);
        if (uci_commit(ctx(), &package, true)) return fail();
    }
    return 0;
}

int Uci::commit(uci_package* package) {
    if (!commits_) return 0;
    return uci_commit(ctx(), &package, false) ? fail() : 0;
}

int Uci::on_package(Action action, char* path) {
    uci_ptr ptr = {};
    if (uci_lookup_ptr(ctx(), &ptr, path, true)) return fail();
    switch (action) {
        case Action::kCommit:
            return commit(ptr.p);
        case Action::kExport:
            return uci_export(ctx(), stdout, ptr.p, true) ? fail() : 0;
        case Action::kChanges:
            print_changes(ptr.p);
            return 0;
        default:
            break;
    }
    if (!is_complete(ptr)) {
        ctx()->err = UCI_ERR_NOTFOUND;
        return fail();
    }
    show(ptr);
    return 0;
}

// Without a path, every file has its turn, also behind one that cannot be read.
int Uci::on_packages(Action action, char* path) {
    if (path) return on_package(action, path);
    char** list = nullptr;
    if (uci_list_configs(ctx(), &list)) return fail();
    const std::unique_ptr<char*, FreeDeleter> owned(list);
    for (; *list; ++list)
        on_package(action, *list);
    return 0;
}

// ---- commands on sections and options ----

int Uci::get(const uci_ptr& ptr) {
    if (!is_complete(ptr)) {
        ctx()->err = UCI_ERR_NOTFOUND;
        return fail();
    }
    if (ptr.o) {
        print_option(ptr.o, false);
        putchar('\n');
    } else if (ptr.s) {
        puts(ptr.s->type);
    }
    return 0;
}

int Uci::reorder(const uci_ptr& ptr) {
    if (!ptr.s || !ptr.value) return ctx()->err = UCI_ERR_NOTFOUND;
    return uci_reorder_section(ctx(), ptr.s, static_cast<int>(strtoul(ptr.value, nullptr, 10)));
}

int Uci::change(Action action, uci_ptr* ptr) {
    switch (action) {
        case Action::kAddList:
            return uci_add_list(ctx(), ptr);
        case Action::kDelList:
            return uci_del_list(ctx(), ptr);
        case Action::kDelete:
            return uci_delete(ctx(), ptr);
        case Action::kRename:
            return uci_rename(ctx(), ptr);
        case Action::kReorder:
            return reorder(*ptr);
        case Action::kRevert:
            return uci_revert(ctx(), ptr);
        default:
            return uci_set(ctx(), ptr);
    }
}

// What a command does not take as a value is refused without a word; scripts test for that.
bool accepts_value(Action action, const char* value) {
    if (!value) return true;
    if (action == Action::kGet || action == Action::kRevert) return false;
    char* end = nullptr;
    if (action == Action::kDelete && *value) (void)strtol(value, &end, 10);
    return end != value;
}

int Uci::on_element(Action action, char* path) {
    uci_ptr ptr = {};
    if (uci_lookup_ptr(ctx(), &ptr, path, true)) return fail();
    if (!accepts_value(action, ptr.value)) return 1;
    if (action == Action::kGet) return get(ptr);
    if (change(action, &ptr)) return fail();
    if (action == Action::kRevert) return 0;
    return uci_save(ctx(), ptr.p) ? fail() : 0;
}

// ---- batches ----

constexpr int kMaxWords = 3;

void Uci::unload_all() {
    uci_element *element = nullptr, *next = nullptr;
    uci_foreach_element_safe(&ctx()->root, next, element)
        uci_unload(ctx(), uci_to_package(element));
}

// A line's words, copied out of the reader's buffer. More than any command has are counted only.
int Uci::batch_arguments(char** words, int* count) {
    char* rest = nullptr;
    for (*count = 0;; ++*count) {
        char* word = nullptr;
        if (const int error = uci_parse_argument(ctx(), input_, &rest, &word)) return error;
        if (!*word) return UCI_OK;
        if (*count >= kMaxWords) continue;
        words[*count] = strdup(word);
        if (!words[*count]) return ctx()->err = UCI_ERR_MEM;
    }
}

// Whether there may be another line.
bool Uci::batch_line(bool* stop) {
    std::unique_ptr<char, FreeDeleter> owned[kMaxWords];
    char* words[kMaxWords + 1] = {};
    int count = 0;
    const int error = batch_arguments(words, &count);
    for (int i = 0; i < kMaxWords; ++i)
        owned[i].reset(words[i]);
    if (error) {
        fail();
        return false;
    }
    if (count == 0) return true;
    if (count > kMaxWords) {
        if (!quiet_) fputs("Too many arguments\n", stderr);
        return true;
    }
    *stop = strcmp(words[0], "exit") == 0;
    if (*stop) return false;
    const Command* command = find_command(words[0]);
    const bool known = command && command->action != Action::kBatch &&
                       count - 1 >= command->min_arguments && count - 1 <= command->max_arguments;
    if (known) {
        perform(*command, count, words);
        unload_all();
    } else if (!quiet_) {
        fputs("Unknown command\n", stderr);
    }
    return true;
}

int Uci::batch() {
    bool stop = false;
    while (!stop && !feof(input_)) {
        if (!batch_line(&stop)) break;
    }
    return 0;
}

// ---- the command line ----

int Uci::perform(const Command& command, int argc, char** argv) {
    char* argument = argc > 1 ? argv[1] : nullptr;
    switch (command.action) {
        case Action::kAdd:
            return add(argument, argv[2]);
        case Action::kBatch:
            return batch();
        case Action::kHelp:
            print_usage();
            return 0;
        case Action::kImport:
            return import(argument);
        case Action::kChanges:
        case Action::kCommit:
        case Action::kExport:
        case Action::kShow:
            return on_packages(command.action, argument);
        default:
            return on_element(command.action, argument);
    }
}

int Uci::run(int argc, char** argv) {
    const Command* command = find_command(argv[0]);
    if (!command || argc - 1 < command->min_arguments || argc - 1 > command->max_arguments) {
        print_usage();
        return kUsageError;
    }
    return perform(*command, argc, argv);
}

void Uci::set_flag(uci_flags flag, bool on) {
    const auto flags = static_cast<unsigned>(ctx()->flags);
    const auto bit = static_cast<unsigned>(flag);
    ctx()->flags = static_cast<uci_flags>(on ? flags | bit : flags & ~bit);
}

bool Uci::take_option(int option, int* result) {
    switch (option) {
        case 'c':
            uci_set_confdir(ctx(), optarg);
            return true;
        case 'C':
            uci_set_conf2dir(ctx(), optarg);
            return true;
        case 'd':
            delimiter_ = optarg;
            return true;
        case 'f':
            if (input_ != stdin) fclose(input_);
            input_ = fopen(optarg, "re");
            if (input_) return true;
            input_ = stdin;
            fprintf(stderr, "uci: %s\n", strerror(errno));
            *result = 1;
            return false;
        case 'm':
            merge_ = true;
            return true;
        case 'n':
        case 'N':
            set_flag(UCI_FLAG_EXPORT_NAME, option == 'n');
            return true;
        case 'p':
            uci_add_delta_path(ctx(), optarg);
            return true;
        case 'P':
            uci_set_savedir(ctx(), optarg);
            commits_ = false;
            return true;
        case 'q':
            quiet_ = true;
            return true;
        case 's':
            set_flag(UCI_FLAG_STRICT, true);
            return true;
        case 'S':
            set_flag(UCI_FLAG_STRICT, false);
            set_flag(UCI_FLAG_PERROR, true);
            return true;
        case 't':
            uci_set_savedir(ctx(), optarg);
            return true;
        case 'X':
            show_indexes_ = false;
            return true;
        default:
            print_usage();
            *result = 0;
            return false;
    }
}

bool Uci::take_options(int argc, char** argv, int* result) {
    for (;;) {
        const int option = getopt(argc, argv, "c:C:d:f:mnNp:P:qsSt:X");
        if (option < 0) break;
        if (!take_option(option, result)) return false;
    }
    if (optind < argc) return true;
    print_usage();
    *result = 0;
    return false;
}

}  // namespace

int main(int argc, char** argv) {
    Uci uci(argv[0]);
    if (!uci.usable()) {
        fputs("Out of memory\n", stderr);
        return 1;
    }
    int result = 0;
    if (!uci.take_options(argc, argv, &result)) return result;
    return uci.run(argc - optind, argv + optind);
}
