/*
 * uci.h - the Unified Configuration Interface: configuration files of sections, options and lists,
 * changes staged beside them, and their commit.
 *
 * The interface, structure layouts and results of the firmware's libuci, so that a program built
 * against either works with either.
 *
 * Rules for every call:
 * - The result is UCI_OK or one of the UCI_ERR_ codes; the context keeps it, with the place of a
 *   parse error, until its next call.
 * - A context belongs to one thread at a time. Contexts share nothing.
 * - Packages, sections and options belong to their context: a pointer to one lives until it is
 *   deleted, replaced, unloaded, or its context is freed.
 * - Strings that a call is given are copied, except the text that uci_parse_ptr and uci_lookup_ptr
 *   split in place.
 */
#ifndef UCI_H
#define UCI_H

#include <setjmp.h>
#include <stdbool.h>
#include <stddef.h>
#include <stdint.h>
#include <stdio.h>

#ifdef __cplusplus
extern "C" {
#endif

#if defined(__GNUC__)
#define UCI_EXPORT __attribute__((visibility("default")))
#else
#define UCI_EXPORT
#endif

#define UCI_CONFDIR "/etc/config"
#define UCI_SAVEDIR "/tmp/.uci"
#define UCI_CONF2DIR "/var/run/uci"
#define UCI_DIRMODE 0700
#define UCI_FILEMODE 0600

enum {
    UCI_OK = 0,
    UCI_ERR_MEM,
    UCI_ERR_INVAL,
    UCI_ERR_NOTFOUND,
    UCI_ERR_IO,
    UCI_ERR_PARSE,
    UCI_ERR_DUPLICATE,
    UCI_ERR_UNKNOWN,
    UCI_ERR_LAST
};

/* A ring: an empty list points to itself. Also the first member of every element. */
struct uci_list {
    struct uci_list* next;
    struct uci_list* prev;
};

struct uci_ptr;
struct uci_element;
struct uci_package;
struct uci_section;
struct uci_option;
struct uci_delta;
struct uci_context;
struct uci_backend;
struct uci_parse_option;
struct uci_parse_context;

/* ---- contexts ---- */

/* A context with the default directories and strict parsing; NULL without memory. */
UCI_EXPORT struct uci_context* uci_alloc_context(void);

/* Frees the context and everything loaded in it. Unsaved changes are lost. */
UCI_EXPORT void uci_free_context(struct uci_context* ctx);

/* Prints "prefix: error" for the last call on standard error; the prefix may be NULL. */
UCI_EXPORT void uci_perror(struct uci_context* ctx, const char* prefix);

/* The text of uci_perror without its line end, for the caller to free; NULL without memory.
 * A NULL dest prints it instead. */
UCI_EXPORT void uci_get_errorstr(struct uci_context* ctx, char** dest, const char* prefix);

/* Where configuration files are. */
UCI_EXPORT int uci_set_confdir(struct uci_context* ctx, const char* dir);

/* Where files are that take the place of a configuration file of the same name; NULL for nowhere.
 */
UCI_EXPORT int uci_set_conf2dir(struct uci_context* ctx, const char* dir);

/* Where changes are staged. The directory is also searched for changes, after all others. */
UCI_EXPORT int uci_set_savedir(struct uci_context* ctx, const char* dir);

/* One more directory whose changes are seen by every load; UCI_ERR_DUPLICATE if already one. */
UCI_EXPORT int uci_add_delta_path(struct uci_context* ctx, const char* dir);

/* "file" is the only backend. */
UCI_EXPORT int uci_set_backend(struct uci_context* ctx, const char* name);

/* ---- files ---- */

/* Parses a stream. name: the package of statements before the first `package` line, or NULL.
 * single: everything is one package, `package` lines are only checked, and a non-null *package on
 * entry is merged into, its changes being recorded for uci_save. On success *package is the last
 * package parsed. */
UCI_EXPORT int uci_import(struct uci_context* ctx, FILE* stream, const char* name,
                          struct uci_package** package, bool single);

/* Writes one package, or all with NULL, in normal form; header: with its `package` line. */
UCI_EXPORT int uci_export(struct uci_context* ctx, FILE* stream, struct uci_package* package,
                          bool header);

/* Loads a file of the configuration directory with the changes staged for it, or any file by an
 * absolute path, for which nothing is staged. On failure *package stays as it is. */
UCI_EXPORT int uci_load(struct uci_context* ctx, const char* name, struct uci_package** package);

UCI_EXPORT int uci_unload(struct uci_context* ctx, struct uci_package* p);

/* Stages the package's unsaved changes. On failure they stay in the package. A file that was loaded
 * by its path is replaced instead, by the package as it is in memory. */
UCI_EXPORT int uci_save(struct uci_context* ctx, struct uci_package* p);

/* Replaces the configuration file, if anything is staged for it. Without overwrite the package is
 * saved and the staged changes are applied to the file as it is now, so that what others committed
 * meanwhile is kept; with it, they are applied to the package in memory. On success the staged
 * changes are cleared and *package may have moved; on failure the file and they are as before. */
UCI_EXPORT int uci_commit(struct uci_context* ctx, struct uci_package** package, bool overwrite);

/* The configuration files' names, NULL at the end, in one block for the caller to free. */
UCI_EXPORT int uci_list_configs(struct uci_context* ctx, char*** list);

/* ---- looking up ---- */

/* Splits "package.section.option=value" in place. */
UCI_EXPORT int uci_parse_ptr(struct uci_context* ctx, struct uci_ptr* ptr, char* str);

/* Splits str in place (NULL: ptr is already filled) and finds what it names, loading the package
 * where needed. extended: a section may be "@type[index]", negative from the end. A missing package
 * is UCI_ERR_NOTFOUND; anything else missing is UCI_OK without UCI_LOOKUP_COMPLETE. ptr borrows
 * str. */
UCI_EXPORT int uci_lookup_ptr(struct uci_context* ctx, struct uci_ptr* ptr, char* str,
                              bool extended);

/* The first element of that name in a list of packages, sections or options. */
UCI_EXPORT int uci_lookup_next(struct uci_context* ctx, struct uci_element** e,
                               struct uci_list* list, const char* name);

/* Finds several options in one walk; tb has n_opts places, NULL where there is none. */
UCI_EXPORT void uci_parse_section(struct uci_section* s, const struct uci_parse_option* opts,
                                  int n_opts, struct uci_option** tb);

/* A hash over the options' names and values. */
UCI_EXPORT uint32_t uci_hash_options(struct uci_option** tb, int n_opts);

/* ---- changing ---- */

/* A new section without a name at the package's end. */
UCI_EXPORT int uci_add_section(struct uci_context* ctx, struct uci_package* p, const char* type,
                               struct uci_section** res);

/* Sets an option's value or a section's type, creating it where needed; ptr->last is the element.
 * An empty value deletes. */
UCI_EXPORT int uci_set(struct uci_context* ctx, struct uci_ptr* ptr);

/* Appends an item; a string option becomes a list first. */
UCI_EXPORT int uci_add_list(struct uci_context* ctx, struct uci_ptr* ptr);

/* Removes every item equal to the value; none is no error. */
UCI_EXPORT int uci_del_list(struct uci_context* ctx, struct uci_ptr* ptr);

/* Moves a section to a position counted from 0. */
UCI_EXPORT int uci_reorder_section(struct uci_context* ctx, struct uci_section* s, int pos);

UCI_EXPORT int uci_rename(struct uci_context* ctx, struct uci_ptr* ptr);

/* Deletes a section, an option or, with a value, the list item of that decimal index, if there is
 * one. */
UCI_EXPORT int uci_delete(struct uci_context* ctx, struct uci_ptr* ptr);

/* Forgets the staged changes of a package, section or option and loads the package again. */
UCI_EXPORT int uci_revert(struct uci_context* ctx, struct uci_ptr* ptr);

/* ---- text ---- */

/* The next argument of a command line with this syntax's quoting. *str: NULL to start on the
 * stream's next line, else as the last call left it. *result is empty at the end of the line and
 * lives until the next line is read. */
UCI_EXPORT int uci_parse_argument(struct uci_context* ctx, FILE* stream, char** str, char** result);

/* Whether a text can be an option's value: no control characters but tab, line feed, return. */
UCI_EXPORT bool uci_validate_text(const char* str);

/* ---- structures ---- */

enum uci_type {
    UCI_TYPE_UNSPEC = 0,
    UCI_TYPE_DELTA = 1,
    UCI_TYPE_PACKAGE = 2,
    UCI_TYPE_SECTION = 3,
    UCI_TYPE_OPTION = 4,
    UCI_TYPE_PATH = 5,
    UCI_TYPE_BACKEND = 6,
    UCI_TYPE_ITEM = 7,
    UCI_TYPE_HOOK = 8
};

enum uci_option_type { UCI_TYPE_STRING = 0, UCI_TYPE_LIST = 1 };

enum uci_flags {
    UCI_FLAG_STRICT = (1 << 0),      /* the first syntax error ends a parse */
    UCI_FLAG_PERROR = (1 << 1),      /* syntax errors are printed where they do not end it */
    UCI_FLAG_EXPORT_NAME = (1 << 2), /* an export names sections without a name */
    UCI_FLAG_SAVED_DELTA = (1 << 3)  /* staged changes are kept in saved_delta */
};

struct uci_element {
    struct uci_list list;
    enum uci_type type;
    char* name;
};

struct uci_backend {
    struct uci_element e;
    char** (*list_configs)(struct uci_context* ctx);
    struct uci_package* (*load)(struct uci_context* ctx, const char* name);
    void (*commit)(struct uci_context* ctx, struct uci_package** p, bool overwrite);

    /* private */
    const void* ptr;
    void* priv;
};

struct uci_context {
    struct uci_list root; /* loaded packages */

    struct uci_parse_context* pctx; /* the place of a parse error */

    struct uci_backend* backend;
    struct uci_list backends;

    enum uci_flags flags;

    char* confdir;
    char* savedir;
    char* conf2dir;

    struct uci_list delta_path; /* directories searched for changes, savedir last */

    /* private */
    int err;
    const char* func;
    jmp_buf trap;
    bool internal, nested;
    char* buf;
    int bufsz;
};

struct uci_package {
    struct uci_element e;
    struct uci_list sections;
    struct uci_context* ctx;
    bool has_delta, uses_conf2;
    char* path;

    /* private */
    struct uci_backend* backend;
    void* priv;
    int n_section;
    struct uci_list delta;       /* changes not yet saved */
    struct uci_list saved_delta; /* changes staged in a file */
};

struct uci_section {
    struct uci_element e;
    struct uci_list options;
    struct uci_package* package;
    bool anonymous;
    char* type;
};

struct uci_option {
    struct uci_element e;
    struct uci_section* section;
    enum uci_option_type type;
    union {
        struct uci_list list; /* of elements of type UCI_TYPE_ITEM, whose name is the value */
        char* string;
    } v;
};

/* UCI_CMD_ADD is a section without a name. */
enum uci_command {
    UCI_CMD_ADD,
    UCI_CMD_REMOVE,
    UCI_CMD_CHANGE,
    UCI_CMD_RENAME,
    UCI_CMD_REORDER,
    UCI_CMD_LIST_ADD,
    UCI_CMD_LIST_DEL,
    /* NOLINTBEGIN(bugprone-reserved-identifier,cert-dcl37-c,cert-dcl51-cpp): fixed names */
    __UCI_CMD_MAX,
    __UCI_CMD_LAST = __UCI_CMD_MAX - 1
    /* NOLINTEND(bugprone-reserved-identifier,cert-dcl37-c,cert-dcl51-cpp) */
};

/* By command: what precedes a change in its file, 0 for nothing. */
/* NOLINTNEXTLINE(bugprone-dynamic-static-initializers): it is constant where it is defined */
UCI_EXPORT extern char const uci_command_char[];

struct uci_delta {
    struct uci_element e; /* its name is the option, or NULL */
    enum uci_command cmd;
    char* section;
    char* value;
};

struct uci_ptr {
    enum uci_type target;
    enum {
        UCI_LOOKUP_DONE = (1 << 0),
        UCI_LOOKUP_COMPLETE = (1 << 1),
        UCI_LOOKUP_EXTENDED = (1 << 2)
    } flags;

    struct uci_package* p;
    struct uci_section* s;
    struct uci_option* o;
    struct uci_element* last;

    const char* package;
    const char* section;
    const char* option;
    const char* value;
};

struct uci_parse_option {
    const char* name;
    enum uci_option_type type;
};

/* ---- lists and elements ---- */

#ifndef container_of
#define container_of(ptr, type, member) ((type*)((char*)(ptr)-offsetof(type, member)))
#endif

#define list_to_element(ptr) container_of(ptr, struct uci_element, list)

/* Walks a list; the element must not be removed in the loop. */
#define uci_foreach_element(_list, _ptr)                                \
    for (_ptr = list_to_element((_list)->next); &_ptr->list != (_list); \
         _ptr = list_to_element(_ptr->list.next))

/* Walks a list whose current element may be removed in the loop. */
#define uci_foreach_element_safe(_list, _tmp, _ptr)                                      \
    for (_ptr = list_to_element((_list)->next), _tmp = list_to_element(_ptr->list.next); \
         &_ptr->list != (_list); _ptr = _tmp, _tmp = list_to_element(_ptr->list.next))

#define uci_list_empty(list) ((list)->next == (list))

#define uci_type_backend UCI_TYPE_BACKEND
#define uci_type_delta UCI_TYPE_DELTA
#define uci_type_package UCI_TYPE_PACKAGE
#define uci_type_section UCI_TYPE_SECTION
#define uci_type_option UCI_TYPE_OPTION

#define uci_to_backend(ptr) container_of(ptr, struct uci_backend, e)
#define uci_to_delta(ptr) container_of(ptr, struct uci_delta, e)
#define uci_to_package(ptr) container_of(ptr, struct uci_package, e)
#define uci_to_section(ptr) container_of(ptr, struct uci_section, e)
#define uci_to_option(ptr) container_of(ptr, struct uci_option, e)

/* What follows a structure in its block. */
#define uci_dataptr(ptr) (((char*)(ptr)) + sizeof(*(ptr)))

/* A loaded package by name, or NULL. */
static inline struct uci_package* uci_lookup_package(struct uci_context* ctx, const char* name) {
    struct uci_element* e = NULL;
    return uci_lookup_next(ctx, &e, &ctx->root, name) == UCI_OK ? uci_to_package(e) : NULL;
}

/* A section by name, or NULL. */
static inline struct uci_section* uci_lookup_section(struct uci_context* ctx, struct uci_package* p,
                                                     const char* name) {
    struct uci_element* e = NULL;
    return uci_lookup_next(ctx, &e, &p->sections, name) == UCI_OK ? uci_to_section(e) : NULL;
}

/* An option by name, or NULL. */
static inline struct uci_option* uci_lookup_option(struct uci_context* ctx, struct uci_section* s,
                                                   const char* name) {
    struct uci_element* e = NULL;
    return uci_lookup_next(ctx, &e, &s->options, name) == UCI_OK ? uci_to_option(e) : NULL;
}

/* A string option's value, or NULL where there is none. */
static inline const char* uci_lookup_option_string(struct uci_context* ctx, struct uci_section* s,
                                                   const char* name) {
    struct uci_option* o = uci_lookup_option(ctx, s, name);
    return o && o->type == UCI_TYPE_STRING ? o->v.string : NULL;
}

#ifndef BITS_PER_LONG
#define BITS_PER_LONG (8 * sizeof(unsigned long))
#endif

static inline void uci_bitfield_set(unsigned long* bits, int bit) {
    bits[(size_t)bit / BITS_PER_LONG] |= 1UL << ((size_t)bit % BITS_PER_LONG);
}

#ifdef __cplusplus
}
#endif

#endif
