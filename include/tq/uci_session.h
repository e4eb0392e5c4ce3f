/* uci_session.h - configuration files that stay loaded, and sessions on one section of them.
 *
 * The library knows sixteen files of /etc/config by their ids. The first use of one loads it, and
 * it stays loaded until free_uci_config. A session selects one section of a loaded file; its
 * options are then read and changed in memory, without a path and without loading anything again.
 *
 *   uci_config_ctx radio;
 *
 *   if (load_named_section(UCI_CONFIG_WIRELESS, &radio, "radio0") == 0 &&
 *       set_uci_config(&radio, "channel", "36") == 0)
 *       save_uci_config(UCI_CONFIG_WIRELESS, NULL, 0);
 *
 * set_uci_config stages its change at once in the delta area ("/tmp/.uci"), where other processes
 * see it; a delete or a change of a list is staged by the next one, or by saving or freeing the
 * file. save_uci_config writes what is staged to the file as it is by then, so that what other
 * processes committed meanwhile is kept, and reads the file anew. A change that could not be staged
 * or committed is not lost: it is part of the next attempt, unless the file is freed first.
 *
 * A session outlives a save and finds its section again by its name. It ends when its file is freed
 * or its section is deleted or renamed, or with the save where the caller has pointed it to another
 * section than was selected. Load it anew then: as a rule it is a session without a section, but
 * the file can be read to the same addresses again, and it is one on the section that is there.
 * What a session lends (option values, item lists, and the section in its ptr) is good until the
 * next change, save or free of the file; the change itself may be given it.
 *
 * A caller may also make a session itself, on a context and a package that it has loaded, with
 * ptr.p and ptr.s in them: the operations take it as it is, and committing and freeing are the
 * caller's.
 *
 * uci_lookup_ptr of libuci may be used on a session's ptr: with the next operation the session is
 * one on the section that was found. Between the two the file is neither saved nor freed, and the
 * text that was looked up stays.
 *
 * The files and sessions belong to one thread of the process; nothing here is locked. What the load
 * functions reject is said with each. The others log at LOG_ERR, in their own name, and return -1
 * or null: "incomplete param, option:nil" for a null option, "incomplete param, uctx:nil" for a
 * null session, "incomplete param, uctx->ptr.s:nil" for a session without a section. Those that
 * take a value log "incomplete param, val_str:%s, option:%s" for a null option and for a null or
 * empty value ("nil" stands for a null one), whatever the session is.
 */
#ifndef TQ_UCI_SESSION_H
#define TQ_UCI_SESSION_H

#include <tq/types.h>

/* A session's address of its section is libuci's own structure where its header is to be had, and
 * else one with the same layout. */
#ifdef __has_include
#if __has_include(<uci.h>)
#include <uci.h>
#define TQ_HAS_UCI_H
#endif
#endif

struct uci_context;
struct uci_package;
struct uci_section;
struct uci_option;
struct uci_element;
struct uci_list;

TQ_BEGIN_DECLS

/* The files, by their ids. */
enum {
    UCI_CONFIG_DHCP,
    UCI_CONFIG_NETWORK,
    UCI_CONFIG_BIND,
    UCI_CONFIG_LOCATION,
    UCI_CONFIG_WIRELESS,
    UCI_CONFIG_SYSTEM,
    UCI_CONFIG_APSTATS,
    UCI_CONFIG_WTP,
    UCI_CONFIG_BOARD,
    UCI_CONFIG_FIREWALL,
    UCI_CONFIG_FORWARD,
    UCI_CONFIG_BWCTRL,
    UCI_CONFIG_NAT,
    UCI_CONFIG_MCSD,
    UCI_CONFIG_TROUBLESHOOT,
    UCI_CONFIG_ORDERCFG,
    UCI_CONFIG_ALL /* every file, to save_uci_config and free_uci_config; also their number */
};

/* A file of the registry. The context and the package are null until it is loaded. */
struct uci_entry {
    int id;                  /* UCI_CONFIG_... */
    char file[16];           /* its name below /etc/config */
    struct uci_context *ctx; /* libuci's, for this file alone */
    struct uci_package *pkg; /* what was read of it */
};

/* Where a session stands in its file. */
#ifdef TQ_HAS_UCI_H
typedef struct uci_ptr uci_config_ptr;
#else
typedef struct uci_config_ptr {
    int target;
    int flags;
    struct uci_package *p;
    struct uci_section *s;
    struct uci_option *o;
    struct uci_element *last;
    const char *package;
    const char *section;
    const char *option;
    const char *value;
} uci_config_ptr;
#endif

/* A session, the caller's own; no need to initialise it, every load does. What it points to is the
 * library's. ptr holds the package and its name, and the selected section and its name; a caller
 * may point ptr.s to another section of ptr.p, until the next save. */
typedef struct uci_config_ctx {
    struct uci_context *ctx; /* of the file */
    struct uci_package *pkg; /* of the file; after a save, with the session's next operation */
    uci_config_ptr ptr;      /* the selected section */
} uci_config_ctx;

/* The row of the file of that name; null where there is none ("invalid parameters" for a null name,
 * else without a log line). The row is the library's, and changes with every load, save and free.
 */
TQ_API const struct uci_entry *get_uci_entry_by_name(const char *file);

/* Loads a file where it is not loaded yet; one that is missing in /etc/config is created empty, for
 * its owner alone. The session, which may be null, is on the file then, without a section; a
 * failure leaves it empty.
 * 0; -1 with "unspport uci entry %d", "uci_alloc_context for config '%s' fail" or "uci_load '%s'
 * fail", and before the last "create %s fail: %s" (by create_uci_file) where it was missing and
 * cannot be created. */
TQ_API int load_uci_config(int id, uci_config_ctx *session);

/* Selects the section of that name, loading the file as load_uci_config does.
 * 0; -1 with the session as it was: "no section name" for a null or empty one, then "invalid
 * parameters" for a null session; -1 without a section: "uci lookup '%s' section fail" at
 * LOG_WARNING when there is none of that name, or as load_uci_config. */
TQ_API int load_named_section(int id, uci_config_ctx *session, const char *name);

/* Selects the first section of that type.
 * 0; -1 with the session as it was: "no section type" for a null or empty type, then "invalid
 * parameters" for a null session; -1 with "no such type '%s' section " at LOG_INFO when there is
 * none, or as load_uci_config. When there is none the session is left on the last section of the
 * file: check the result before using it. */
TQ_API int load_unnamed_section(int id, uci_config_ctx *session, const char *type);

/* Selects the first section of that type that matches. match is a list of option and value pairs
 * with a null option at its end: the section has each option, and where the value is not null, the
 * option equals it or is a list that holds it. A null match takes the first section of the type; a
 * list without a pair matches no section.
 * 0; -1 without a section: no log line when none matches, or as load_uci_config; -1 with the
 * session as it was: "no section type" for a null or empty type. A null session is logged by
 * find_uci_section, as "incomplete param, section_type: %s, uctx->ptr.p: %p". */
TQ_API int load_specific_section(int id, uci_config_ctx *session, const char *type,
                                 const char **match);

/* The value of an option; lent.
 * Null when there is none or when it is a list, with "get uci config option '%s' failed" at
 * LOG_NOTICE. Allocates nothing and makes no system call, but for the log line. */
TQ_API const char *get_uci_config(uci_config_ctx *session, const char *option);

/* Sets an option, creating it where it is missing; a list gets the value as one more item. What was
 * done is logged at LOG_DEBUG, with the value. Values are text: control characters other than tab,
 * line feed and carriage return are refused, as is an option's name of other than ASCII letters,
 * digits and "_".
 * 0 when written and staged; 1 when the option has that value already, and nothing is done; -1 with
 * "create|add|change uci value '%s' for option '%s' failed" for a new option, a list and another
 * value. Where only the staging failed, the session has the value all the same. */
TQ_API int set_uci_config(uci_config_ctx *session, const char *option, const char *value);

/* Deletes an option or a list. Not staged yet.
 * 0; 1 when it is absent already, with "no such option '%s'" at LOG_DEBUG; -1 for rejected
 * arguments; a positive libuci code with "uci del '%s' fail". The attempt is logged at LOG_DEBUG as
 * "uci del '%s' success", whatever came of it. */
TQ_API int del_uci_config(uci_config_ctx *session, const char *option);

/* The items of a list option, elements with the item as their name; lent.
 * Null, without a log line, when the option is absent or not a list. */
TQ_API struct uci_list *uci_lookup_option_list(uci_config_ctx *session, const char *option);

/* Adds an item to the end of a list. A list that is missing is created, and an option becomes a
 * list of its value and the item. Not staged yet.
 * 0; 1 when the list has it already; -1 for rejected arguments and for a name or value that
 * set_uci_config would refuse; a positive libuci code. The last two log "add uci value '%s' for
 * option '%s' failed". */
TQ_API int add_uci_list(uci_config_ctx *session, const char *option, const char *value);

/* Removes every item of a list that equals the value. Not staged yet.
 * 0; 1 when the option is absent or not a list, or has no such item; -1 for rejected arguments; a
 * positive libuci code with "uci del '%s' fail". */
TQ_API int del_uci_list(uci_config_ctx *session, const char *option, const char *value);

/* Stages what is left to stage and commits a file.
 * 0; a positive libuci code with "uci_commit %s fail"; the id itself, which is 0 for the first
 * file, when the file is not loaded, and nothing is done; 16 for an id of no file.
 *
 * UCI_CONFIG_ALL commits every loaded file. For those whose flag is set in commit2, an array of
 * count flags by id which may be null, the firmware's command "uci commit2 FILE" is then run
 * through the shell, logged at LOG_INFO as "execute '%s'"; its exit status is not looked at. 16,
 * whatever came of it; each failure is logged. */
TQ_API int save_uci_config(int id, const int *commit2, int count);

/* Unloads a file, or all with UCI_CONFIG_ALL, and ends the sessions on it. What is not staged is
 * staged before; nothing is committed.
 * 0, also for a file that is not loaded; -1 with "unspport uci entry %d", or with "uci_save %s
 * fail" for a file whose changes could not be staged: it is unloaded without them. */
TQ_API int free_uci_config(int id);

/* Adds an anonymous section to a package and stages it, as uci_add_section_by_type of uci_path.h
 * does; its failures are logged in this function's name. A session's package may be the one from
 * before a save; it is rejected where a failed one has unloaded the file ("invalid parameters"). */
TQ_API int add_section(struct uci_context *ctx, struct uci_package *pkg, const char *type);

TQ_END_DECLS

#endif /* TQ_UCI_SESSION_H */
