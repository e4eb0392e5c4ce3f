// delta.cpp - changes that are staged beside a configuration file, one a line:
//
//   package.section.option='value'
//
// with a command character in front where the line is more than the setting of a value.
#include <stdio_ext.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstring>
#include <utility>

#include "internal.h"
#include "lexer.h"

extern const char uci_command_char[] = {'+', '-', '\0', '@', '^', '|', '~'};
static_assert(sizeof(uci_command_char) == __UCI_CMD_MAX);

namespace uci {
namespace {

uci_command command_of(char c) {
    for (int command = 0; command < __UCI_CMD_MAX; ++command) {
        if (c && uci_command_char[command] == c) return static_cast<uci_command>(command);
    }
    return UCI_CMD_CHANGE;
}

// One line, split in the lexer's buffer.
struct Change {
    uci_command command;
    uci_ptr ptr;
};

bool is_complete(const Change& change) {
    const uci_ptr& ptr = change.ptr;
    if (!ptr.section || !is_valid_name(ptr.section)) return false;
    switch (change.command) {
        case UCI_CMD_REMOVE:
            return true;
        case UCI_CMD_LIST_ADD:
        case UCI_CMD_LIST_DEL:
            return ptr.option && ptr.value;
        case UCI_CMD_REORDER:
            return !ptr.option && ptr.value;
        case UCI_CMD_RENAME:
            return ptr.value && is_valid_name(ptr.value);
        default:
            return ptr.value;
    }
}

// UCI_ERR_PARSE for a line that is not a change of the package.
int parse_change(Lexer* lexer, const uci_package* package, Change* change) {
    size_t offset = 0;
    if (const int error = lexer->argument(&offset)) return error;
    char* text = lexer->text(offset);
    if (!*text || lexer->line_has_more()) return UCI_ERR_PARSE;

    change->command = command_of(*text);
    if (uci_command_char[change->command]) ++text;
    if (const int error = parse_ptr(&change->ptr, text)) return error;
    const bool ours = strcmp(change->ptr.package, package->e.name) == 0;
    return ours && is_complete(*change) ? UCI_OK : UCI_ERR_PARSE;
}

int apply_set(uci_context* ctx, Change* change) {
    uci_ptr& ptr = change->ptr;
    if (const int error = set(ctx, &ptr, Record::kNo)) return error;
    if (change->command == UCI_CMD_ADD && !ptr.option && ptr.s) ptr.s->anonymous = true;
    return UCI_OK;
}

int apply_reorder(uci_context* ctx, uci_ptr* ptr) {
    if (const int error = lookup(ctx, ptr, nullptr, false)) return error;
    if (!ptr->s) return UCI_ERR_NOTFOUND;
    return reorder(ptr->s, static_cast<int>(strtoul(ptr->value, nullptr, 10)), Record::kNo);
}

int apply_change(uci_context* ctx, uci_package* package, Change* change) {
    uci_ptr& ptr = change->ptr;
    ptr.p = package;
    switch (change->command) {
        case UCI_CMD_REMOVE:
            return remove(ctx, &ptr, Record::kNo);
        case UCI_CMD_RENAME:
            return rename(ctx, &ptr, Record::kNo);
        case UCI_CMD_REORDER:
            return apply_reorder(ctx, &ptr);
        case UCI_CMD_LIST_ADD:
            return add_list(ctx, &ptr, Record::kNo);
        case UCI_CMD_LIST_DEL:
            return del_list(ctx, &ptr, Record::kNo);
        default:
            return apply_set(ctx, change);
    }
}

// Changes that do not fit (any more) are passed over: the file below may have changed since.
bool is_fatal(int error) {
    return error == UCI_ERR_MEM || error == UCI_ERR_IO;
}

int keep_change(uci_list* list, const Change& change) {
    uci_delta* delta =
        new_delta(change.command, change.ptr.section, change.ptr.option, change.ptr.value);
    if (!delta) return UCI_ERR_MEM;
    list_append(list, &delta->e.list);
    return UCI_OK;
}

// Calls visit for every change of the package in the stream.
template <typename Visit>
int for_each_change(FILE* stream, const uci_package* package, Visit visit) {
    Lexer lexer(stream);
    do {
        Change change = {};
        int error = lexer.next_line();
        if (!error) error = parse_change(&lexer, package, &change);
        if (!error) error = visit(&change);
        if (is_fatal(error)) return error;
    } while (!lexer.at_end());
    return UCI_OK;
}

int apply_stream(uci_context* ctx, uci_package* package, FILE* stream, bool* any) {
    return for_each_change(stream, package, [&](Change* change) {
        if ((ctx->flags & UCI_FLAG_SAVED_DELTA) != 0) {
            if (const int error = keep_change(&package->saved_delta, *change)) return error;
        }
        const int error = apply_change(ctx, package, change);
        if (!error) *any = true;
        return error;
    });
}

void write_delta(FILE* stream, const char* package, const uci_delta* delta) {
    const char command = uci_command_char[delta->cmd];
    if (command) putc(command, stream);
    fprintf(stream, "%s.%s", package, delta->section);
    if (delta->e.name) fprintf(stream, ".%s", delta->e.name);
    if (delta->value) {
        putc('=', stream);
        write_quoted(stream, delta->value);
    }
    putc('\n', stream);
}

// Writes the changes' lines from an offset on. *end is then where they end; a failure leaves the
// file as long as it was.
int write_deltas(FILE* stream, off_t offset, const char* package, const uci_list* deltas,
                 off_t* end) {
    struct stat old_status;
    if (fstat(fileno(stream), &old_status) < 0 || fseeko(stream, offset, SEEK_SET) < 0) {
        return UCI_ERR_IO;
    }
    const uci_element* element = nullptr;
    uci_foreach_element(deltas, element) write_delta(stream, package, uci_to_delta(element));
    *end = ftello(stream);
    if (*end >= 0 && fflush(stream) == 0 && !ferror(stream)) return UCI_OK;
    // What the stream still holds must not reach the file when it is closed.
    __fpurge(stream);
    (void)!ftruncate(fileno(stream), old_status.st_size);
    return UCI_ERR_IO;
}

int append_deltas(FILE* stream, const char* package, const uci_list* deltas) {
    struct stat status;
    if (fstat(fileno(stream), &status) < 0) return UCI_ERR_IO;
    off_t end = 0;
    return write_deltas(stream, status.st_size, package, deltas, &end);
}

int replace_deltas(FILE* stream, const char* package, const uci_list* deltas) {
    off_t end = 0;
    if (const int error = write_deltas(stream, 0, package, deltas, &end)) return error;
    return ftruncate(fileno(stream), end) == 0 ? UCI_OK : UCI_ERR_IO;
}

// With the type of the file, which creating one ignores: even without permissions it is not 0.
mode_t mode_of(const char* path, mode_t otherwise) {
    struct stat status;
    return stat(path, &status) == 0 ? status.st_mode & (S_IFMT | 0777) : otherwise;
}

// The directory is made with the configuration directory's permissions.
int ensure_savedir(const uci_context* ctx) {
    struct stat status;
    if (stat(ctx->savedir, &status) == 0) return S_ISDIR(status.st_mode) ? UCI_OK : UCI_ERR_IO;
    if (mkdir(ctx->savedir, mode_of(ctx->confdir, UCI_DIRMODE)) == 0 || errno == EEXIST) {
        return UCI_OK;
    }
    return UCI_ERR_IO;
}

// What a revert forgets: everything of a package, a section or an option.
struct Selection {
    const char* section;
    const char* option;

    bool covers(const Change& change) const {
        if (!section) return true;
        if (strcmp(section, change.ptr.section) != 0) return false;
        if (!option) return true;
        return change.ptr.option && strcmp(option, change.ptr.option) == 0;
    }
};

int forget_staged(const uci_package* package, FILE* stream, const Selection& selection) {
    uci_list kept;
    list_init(&kept);
    int error = for_each_change(stream, package, [&](Change* change) {
        return selection.covers(*change) ? UCI_OK : keep_change(&kept, *change);
    });
    if (!error) error = replace_deltas(stream, package->e.name, &kept);
    free_elements(&kept);
    return error;
}

// Loads the package again in the place of what is loaded.
int reload(uci_context* ctx, uci_ptr* ptr) {
    const OwnedText name(strdup(ptr->p->e.name));
    if (!name) return UCI_ERR_MEM;
    free_package(ptr->p);
    *ptr = {};
    return load(ctx, name.get(), &ptr->p);
}

int revert(uci_context* ctx, uci_ptr* ptr) {
    if ((ptr->flags & uci_ptr::UCI_LOOKUP_DONE) == 0) {
        if (const int error = lookup(ctx, ptr, nullptr, true)) return error;
    }
    if (!ptr->p || !ptr->p->has_delta) return UCI_ERR_INVAL;
    if (const int error = save(ctx, ptr->p)) return error;

    const OwnedText path = join_path(ctx->savedir, ptr->p->e.name);
    if (!path) return UCI_ERR_MEM;
    const int missing = find_regular(path.get());
    if (missing && missing != UCI_ERR_NOTFOUND) return missing;
    if (!missing) {
        OwnedFile stream;
        if (const int error = open_locked(path.get(), Lock::kExclusive, 0, &stream)) return error;
        const Selection selection = {ptr->section, ptr->option};
        if (const int error = forget_staged(ptr->p, stream.get(), selection)) return error;
    }
    return reload(ctx, ptr);
}

}  // namespace

uci_delta* new_delta(uci_command command, const char* section, const char* option,
                     const char* value) {
    const size_t section_size = strlen(section) + 1;
    const size_t option_size = option ? strlen(option) + 1 : 0;
    const size_t value_size = value ? strlen(value) + 1 : 0;
    auto* delta = static_cast<uci_delta*>(
        malloc(sizeof(uci_delta) + section_size + option_size + value_size));
    if (!delta) return nullptr;
    char* text = uci_dataptr(delta);
    *delta = {};
    list_init(&delta->e.list);
    delta->e.type = UCI_TYPE_DELTA;
    delta->cmd = command;
    delta->section = static_cast<char*>(memcpy(text, section, section_size));
    text += section_size;
    if (option) delta->e.name = static_cast<char*>(memcpy(text, option, option_size));
    text += option_size;
    if (value) delta->value = static_cast<char*>(memcpy(text, value, value_size));
    return delta;
}

int StagedChanges::apply(uci_context* ctx, uci_package* package, bool writable) {
    uci_element* directory = nullptr;
    uci_foreach_element(&ctx->delta_path, directory) {
        const OwnedText path = join_path(directory->name, package->e.name);
        if (!path) return UCI_ERR_MEM;
        const int missing = find_regular(path.get());
        if (missing == UCI_ERR_NOTFOUND) continue;
        if (missing) return missing;
        const bool keep = writable && strcmp(directory->name, ctx->savedir) == 0;
        OwnedFile stream;
        if (const int error =
                open_locked(path.get(), keep ? Lock::kExclusive : Lock::kShared, 0, &stream)) {
            return error;
        }
        if (const int error = apply_stream(ctx, package, stream.get(), &any_)) return error;
        if (keep) file_ = std::move(stream);
    }
    return UCI_OK;
}

int StagedChanges::clear() {
    if (!file_) return UCI_OK;
    return ftruncate(fileno(file_.get()), 0) == 0 ? UCI_OK : UCI_ERR_IO;
}

int save(uci_context* ctx, uci_package* package) {
    if (!package->has_delta) return commit(ctx, &package, false);
    if (uci_list_empty(&package->delta)) return UCI_OK;
    const OwnedText path = join_path(ctx->savedir, package->e.name);
    if (!path) return UCI_ERR_MEM;
    if (const int error = ensure_savedir(ctx)) return error;

    OwnedFile stream;
    const mode_t mode = mode_of(package->path, UCI_FILEMODE);
    if (const int error = open_locked(path.get(), Lock::kExclusive, mode, &stream)) return error;
    if (const int error = append_deltas(stream.get(), package->e.name, &package->delta)) {
        return error;
    }
    free_elements(&package->delta);
    return UCI_OK;
}

}  // namespace uci

int uci_save(uci_context* ctx, uci_package* p) {
    if (!ctx || !p) return uci::reject(ctx);
    return uci::finish(ctx, uci::save(ctx, p));
}

int uci_revert(uci_context* ctx, uci_ptr* ptr) {
    if (!ctx || !ptr) return uci::reject(ctx);
    uci::begin(ctx);
    return uci::finish(ctx, uci::revert(ctx, ptr));
}
