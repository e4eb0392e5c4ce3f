// ini.cpp - tqctl ini: entries of INI files.
#include <fcntl.h>
#include <sys/stat.h>
#include <tq/iniparser.h>
#include <unistd.h>

#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <cstring>

#include "families.h"
#include "file.h"

namespace tqctl {

namespace {

// More than a section and a key of a file together have.
constexpr size_t kNameSize = 2048;

struct FreeDictionary {
    void operator()(dictionary* d) const { iniparser_freedict(d); }
};
using Ini = std::unique_ptr<dictionary, FreeDictionary>;

// The library says what is wrong with the lines.
ExitCode load(const Context& context, const char* path, Ini& ini) {
    if (access(path, R_OK) != 0) return context.fail_by_errno(path);
    ini.reset(iniparser_load(path));
    if (!ini) return context.fail(ExitCode::kDamaged, "%s: not a valid INI file", path);
    return ExitCode::kDone;
}

// The value, null for a section, or none where the entry is not there.
const char* value_or(const Ini& ini, const char* name, const char* none) {
    return dictionary_get(ini.get(), name, none);
}

bool is_there(const Ini& ini, const char* name) {
    static const char kNone[] = "";
    return value_or(ini, name, kNone) != kNone;
}

bool is_section(const Ini& ini, const char* name) {
    return is_there(ini, name) && !value_or(ini, name, "");
}

// Where the section ends in the name of an entry: a name may have more colons than one, so those of
// the sections that are there come first.
size_t section_length(const Ini& ini, const char* name) {
    char text[kNameSize];
    snprintf(text, sizeof(text), "%s", name);
    while (char* colon = strrchr(text, ':')) {
        *colon = '\0';
        if (is_section(ini, text)) return strlen(text);
    }
    const char* colon = strrchr(name, ':');
    return colon ? static_cast<size_t>(colon - name) : 0;
}

template <typename Visit>
void for_each_entry(const Ini& ini, Visit visit) {
    for (int slot = 0; slot < ini->size; slot++) {
        if (ini->key[slot]) visit(ini->key[slot], ini->val[slot]);
    }
}

// Calls visit(key, value) for what belongs to the section, which is empty for what belongs to none.
template <typename Visit>
void for_each_key(const Ini& ini, const char* section, Visit visit) {
    const size_t length = strlen(section);
    for_each_entry(ini, [&](const char* name, const char* value) {
        if (!value || strncmp(name, section, length) != 0 || name[length] != ':') return;
        if (section_length(ini, name) == length) visit(name + length + 1, value);
    });
}

// get

ExitCode get(Context& context, Arguments arguments) {
    Ini ini;
    const ExitCode loaded = load(context, arguments[0], ini);
    if (loaded != ExitCode::kDone) return loaded;
    const Arguments names = arguments.subspan(1);
    ExitCode code = ExitCode::kDone;
    for (const char* name : names) {
        const char* value = value_or(ini, name, nullptr);
        if (!value) {
            code = context.fail(ExitCode::kRefused, "%s: %s", name,
                                is_there(ini, name) ? "a section, not an entry" : "not found");
        } else {
            context.output.entry(names.size() == 1, name, value);
        }
    }
    return code;
}

// dump

Json section_as_json(const Ini& ini, const char* section) {
    Json object(json_object_new_object());
    for_each_key(ini, section, [&](const char* key, const char* value) {
        if (!json_add(object.get(), key, json_text(value))) object.reset();
    });
    return object;
}

Json as_json(const Ini& ini) {
    Json object(json_object_new_object());
    Json outside = section_as_json(ini, "");
    if (json_object_object_length(outside.get()) > 0)
        json_add(object.get(), "", std::move(outside));
    for_each_entry(ini, [&](const char* name, const char* value) {
        if (!value && !json_add(object.get(), name, section_as_json(ini, name))) object.reset();
    });
    return object;
}

ExitCode dump(Context& context, Arguments arguments) {
    Ini ini;
    const ExitCode loaded = load(context, arguments[0], ini);
    if (loaded != ExitCode::kDone) return loaded;
    if (!context.output.is_json()) {
        iniparser_dump(ini.get(), stdout);
        return ExitCode::kDone;
    }
    const Json json = as_json(ini);
    if (!json) return context.fail(ExitCode::kInputOutput, "out of memory");
    context.output.document(json);
    return ExitCode::kDone;
}

// check

ExitCode check(Context& context, Arguments arguments) {
    Ini ini;
    const ExitCode loaded = load(context, arguments[0], ini);
    if (loaded != ExitCode::kDone) return loaded;
    int sections = 0;
    for_each_entry(ini, [&](const char*, const char* value) { sections += value ? 0 : 1; });
    context.output.member("sections", sections);
    context.output.member("entries", ini->n - sections);
    return ExitCode::kDone;
}

// set, unset

// What a comment sign, a quote or a backslash would make of the value, quotes prevent.
void write_entry(FILE* stream, const char* key, const char* value) {
    const size_t length = strlen(value);
    const bool is_plain = !strpbrk(value, ";#") && *value != '"' && *value != '\'' &&
                          (length == 0 || value[length - 1] != '\\');
    const char* quote = strchr(value, '"') ? "'" : "\"";
    if (is_plain) quote = "";
    fprintf(stream, "%s = %s%s%s\n", key, quote, value, quote);
}

void write_ini(FILE* stream, const Ini& ini) {
    const auto write = [stream](const char* key, const char* value) {
        write_entry(stream, key, value);
    };
    for_each_key(ini, "", write);
    for_each_entry(ini, [&](const char* name, const char* value) {
        if (value) return;
        fprintf(stream, "\n[%s]\n", *name ? name : " ");
        if (*name) for_each_key(ini, name, write);
    });
}

bool are_equal(const Ini& a, const Ini& b) {
    if (!a || !b || a->n != b->n) return false;
    bool equal = true;
    for_each_entry(a, [&](const char* name, const char* value) {
        const char* other = value_or(b, name, nullptr);
        if (!is_there(b, name) || !other != !value || (value && strcmp(value, other) != 0)) {
            equal = false;
        }
    });
    return equal;
}

// A file beside the one that it is to replace; removed unless it has.
class Replacement {
  public:
    explicit Replacement(const char* path) : path_(resolve(path)) {
        if (!path_ || asprintf(&name_, "%s.XXXXXX", path_.get()) < 0) return;
        const int fd = mkostemp(name_, O_CLOEXEC);
        if (fd < 0) return;
        stream_.reset(fdopen(fd, "w"));
        if (stream_) return;
        unlink(name_);
        close(fd);
    }
    ~Replacement() {
        if (stream_) unlink(name_);
        free(name_);
    }
    Replacement(const Replacement&) = delete;
    Replacement& operator=(const Replacement&) = delete;

    [[nodiscard]] FILE* stream() const { return stream_.get(); }
    [[nodiscard]] const char* name() const { return name_; }

    // On the disk, whole, with the mode that it is to have; false with errno.
    [[nodiscard]] bool finish() const {
        return fflush(stream()) == 0 && take_after_original(fileno(stream())) &&
               fsync(fileno(stream())) == 0;
    }

    bool commit() {
        if (rename(name_, path_.get()) != 0) return false;
        stream_.reset();
        return true;
    }

  private:
    // The file itself where path is a link to it.
    static char* resolve(const char* path) {
        char* real = realpath(path, nullptr);
        return real ? real : strdup(path);
    }

    // Gives it the original's mode and, as far as it may, its owner.
    [[nodiscard]] bool take_after_original(int fd) const {
        struct stat original;
        if (stat(path_.get(), &original) != 0)
            return fchmod(fd, S_IRUSR | S_IWUSR | S_IRGRP | S_IROTH) == 0;
        (void)!fchown(fd, original.st_uid, original.st_gid);
        return fchmod(fd, original.st_mode) == 0;
    }

    HeapText path_;
    char* name_ = nullptr;
    File stream_;
};

bool is_special(const char* path) {
    struct stat status;
    return stat(path, &status) == 0 && !S_ISREG(status.st_mode);
}

// Nothing takes the file's place but what reads back as the same, and that of a device nothing.
ExitCode store(const Context& context, const char* path, const Ini& ini) {
    if (is_special(path)) return context.fail(ExitCode::kRefused, "%s: not a regular file", path);
    Replacement file(path);
    if (!file.stream()) return context.fail_by_errno(path);
    write_ini(file.stream(), ini);
    if (!file.finish()) return context.fail_by_errno(path);
    if (!are_equal(ini, Ini(iniparser_load(file.name())))) {
        return context.fail(ExitCode::kRefused, "no INI file can hold this name and value");
    }
    return file.commit() ? ExitCode::kDone : context.fail_by_errno(path);
}

// Makes the section of an entry that is new.
int add_section(const Ini& ini, const char* name) {
    char section[kNameSize];
    const size_t length = section_length(ini, name);
    if (length == 0) return 0;
    snprintf(section, sizeof(section), "%.*s", static_cast<int>(length), name);
    return is_there(ini, section) ? 0 : dictionary_set(ini.get(), section, nullptr);
}

ExitCode set(Context& context, Arguments arguments) {
    const char* path = arguments[0];
    const char* name = arguments[1];
    if (!strchr(name, ':')) return context.misuse("%s: an entry is SECTION:KEY", name);
    if (strlen(name) >= kNameSize) return context.fail(ExitCode::kRefused, "the name is too long");
    Ini ini;
    if (access(path, F_OK) != 0 && errno == ENOENT) {
        ini.reset(dictionary_new(0));
    } else if (const ExitCode code = load(context, path, ini); code != ExitCode::kDone) {
        return code;
    }
    if (!ini || add_section(ini, name) != 0 || dictionary_set(ini.get(), name, arguments[2]) != 0) {
        return context.fail(ExitCode::kInputOutput, "out of memory");
    }
    return store(context, path, ini);
}

ExitCode unset(Context& context, Arguments arguments) {
    const char* name = arguments[1];
    Ini ini;
    const ExitCode loaded = load(context, arguments[0], ini);
    if (loaded != ExitCode::kDone) return loaded;
    if (!is_there(ini, name)) return context.fail(ExitCode::kRefused, "%s: not found", name);
    if (is_section(ini, name)) {
        for_each_key(ini, name, [&](const char* key, const char*) {
            dictionary_unset(ini.get(), key - strlen(name) - 1);
        });
    }
    dictionary_unset(ini.get(), name);
    return store(context, arguments[0], ini);
}

constexpr Command kCommands[] = {
    {"get", "FILE SECTION:KEY...", 2, kAnyNumber, "prints values",
     "One entry prints its value, several print one line each, as SECTION:KEY=VALUE;\n"
     "those that are not there are reported, and the exit code is then 1. JSON is an\n"
     "object with the entries' names as its keys.",
     "tqctl ini get /etc/board.conf partitions:primary_image", get},
    {"set", "FILE SECTION:KEY VALUE", 3, 3, "sets an entry",
     "A section or a FILE that is missing is made. The file is written anew as a\n"
     "whole: comments and empty lines are lost, a value is quoted where it has to\n"
     "be. A value that an INI file cannot hold, such as one with blanks around it,\n"
     "is refused and the file stays as it was.",
     "tqctl ini set /tmp/example.ini net:mode bridge", set},
    {"unset", "FILE SECTION[:KEY]", 2, 2, "removes an entry, or a section with its entries",
     "The file is written anew as a whole: comments and empty lines are lost.",
     "tqctl ini unset /tmp/example.ini net:mode", unset},
    {"dump", "FILE", 1, 1, "prints all entries",
     "A line for each, in the order of the file: [SECTION], or SECTION:KEY=VALUE.\n"
     "JSON is an object with an object for each section; what comes before the first\n"
     "section is in that with the empty name.",
     "tqctl ini dump /etc/board.conf", dump},
    {"check", "FILE", 1, 1, "tells whether a file is a valid INI file",
     "Prints the number of its sections and of its entries. Of a damaged file the\n"
     "lines are told on standard error, and the exit code is 5.",
     "tqctl ini check /etc/board.conf", check},
};
static_assert(is_complete(kCommands));

}  // namespace

constinit const Family kIni = {
    "ini", "entries of INI files",
    "FILE is a path. SECTION:KEY names an entry; :KEY one before the first section.\n"
    "Names keep their case.",
    kCommands};

}  // namespace tqctl
