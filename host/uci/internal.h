// internal.h - what the sources of this library share.
#ifndef UCI_INTERNAL_H
#define UCI_INTERNAL_H

#include <sys/types.h>
#include <uci.h>

#include <cstdlib>
#include <memory>

// Where a parse error was found. The context points to it only while it tells of the last call.
struct uci_parse_context {
    const char* reason;
    int line;
    size_t byte;
};

namespace uci {

struct FreeDeleter {
    void operator()(void* block) const { free(block); }
};

using OwnedText = std::unique_ptr<char, FreeDeleter>;

struct FileCloser {
    void operator()(FILE* stream) const { fclose(stream); }
};

using OwnedFile = std::unique_ptr<FILE, FileCloser>;

class Lexer;

// The public context with what belongs to it but is not in its fixed layout.
struct Context {
    uci_context base;
    uci_backend file_backend;
    uci_parse_context error;
    Lexer* arguments;  // what uci_parse_argument reads, between its calls
};

inline Context& context_of(uci_context* ctx) {
    return *reinterpret_cast<Context*>(ctx);
}

// Opens a public call that may find a syntax error: the last one's place is forgotten.
void begin(uci_context* ctx);

// Ends a public call: the context remembers its result.
int finish(uci_context* ctx, int result);

// A call without a usable argument.
int reject(uci_context* ctx);

// ---- elements ----

inline void list_init(uci_list* list) {
    list->next = list->prev = list;
}
void list_insert_after(uci_list* position, uci_list* entry);
inline void list_append(uci_list* head, uci_list* entry) {
    list_insert_after(head->prev, entry);
}
void list_remove(uci_list* entry);

uci_element* find_element(uci_list* list, const char* name);

// Elements are one block with their texts behind them. All return null without memory; all but the
// package and the bare element are linked at the end of their owner's list.
uci_element* new_element(uci_type type, const char* name);
uci_package* new_package(uci_context* ctx, const char* name);
uci_section* new_section(uci_package* package, const char* type, const char* name);
uci_section* new_anonymous_section(uci_package* package, const char* type);
uci_option* new_string_option(uci_section* section, const char* name, const char* value);
uci_option* new_list_option(uci_section* section, const char* name, const char* first_item);

int set_section_type(uci_section* section, const char* type);
int set_section_name(uci_section* section, const char* name);
int set_option_name(uci_option* option, const char* name);
int set_option_string(uci_option* option, const char* value);
int append_item(uci_option* option, const char* value);

void free_element(uci_element* element);
void free_elements(uci_list* list);
void free_option(uci_option* option);
void free_section(uci_section* section);
void free_package(uci_package* package);

inline bool is_graphic_character(unsigned char c) {
    return c > ' ' && c < 0x7f;
}

// Whether a text is not empty, and of what is allowed: a type, and a file's name or path, of
// visible ASCII.
bool is_graphic(const char* text);
bool is_valid_name(const char* text);
bool is_valid_package(const char* text);

constexpr uint32_t kHashSeed = 5381;
uint32_t hash_text(uint32_t hash, const char* text);

// ---- changes ----

// Whether a change is the caller's, to be staged, or one already in a file.
enum class Record { kNo, kYes };

int set_option(uci_section* section, uci_option* existing, const char* name, const char* value,
               Record record, uci_option** result);
int set_section(uci_package* package, uci_section* existing, const char* name, const char* type,
                Record record, uci_section** result);
int add_section(uci_package* package, const char* type, Record record, uci_section** result);
int add_to_list(uci_section* section, uci_option* existing, const char* name, const char* value,
                Record record, uci_option** result);

int set(uci_context* ctx, uci_ptr* ptr, Record record);
int add_list(uci_context* ctx, uci_ptr* ptr, Record record);
int del_list(uci_context* ctx, uci_ptr* ptr, Record record);
int remove(uci_context* ctx, uci_ptr* ptr, Record record);
int rename(uci_context* ctx, uci_ptr* ptr, Record record);
int reorder(uci_section* section, int position, Record record);

// ---- looking up ----

int parse_ptr(uci_ptr* ptr, char* text);
int lookup(uci_context* ctx, uci_ptr* ptr, char* text, bool extended);

// ---- recorded changes ----

uci_delta* new_delta(uci_command command, const char* section, const char* option,
                     const char* value);

// The file that a package's changes are staged in, kept open and locked from its reading to its
// clearing.
class StagedChanges {
  public:
    // Applies what is staged in every directory of the search path; writable: for clear().
    int apply(uci_context* ctx, uci_package* package, bool writable);
    bool any() const { return any_; }
    int clear();

  private:
    OwnedFile file_;
    bool any_ = false;
};

int save(uci_context* ctx, uci_package* package);

// ---- files ----

enum class Lock { kShared, kExclusive };

// The locked stream of a path, created with the mode when it is not 0. The path still names the
// locked file when this returns, although a commit replaces files by others.
int open_locked(const char* path, Lock lock, mode_t create_mode, OwnedFile* stream);

OwnedText join_path(const char* directory, const char* name);

// UCI_ERR_NOTFOUND where the path names no file that the caller may see; any other error is that
// nobody can tell, which must not pass for an absence: what is staged would be left out of a
// commit.
int find_regular(const char* path);

int load(uci_context* ctx, const char* name, uci_package** package);

int commit(uci_context* ctx, uci_package** package, bool overwrite);

int import(uci_context* ctx, FILE* stream, const char* name, uci_package** package, bool single);

// A package's statements in normal form.
void write_package(FILE* stream, const uci_package* package, bool name_sections);
void write_quoted(FILE* stream, const char* text);

void set_parse_error(uci_context* ctx, const Lexer& lexer);

// The context's reader of arguments from the stream, or null without memory.
Lexer* arguments_of(uci_context* ctx, FILE* stream);

}  // namespace uci

#endif
