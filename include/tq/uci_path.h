/* uci_path.h - one value of the UCI store, addressed by file, section and option.
 *
 * A section is named, or it is the n-th of its type: "id" counts the sections of one type in file
 * order from 0, and a negative one from the end, except that -1 means "no index" and is rejected.
 * Every setter applies its change in a private libuci context and commits the file before it
 * returns; two processes are serialised by libuci's file lock only.
 *
 * A failure is logged by each step that it passes through, a value that is not there at LOG_INFO.
 * Rejected arguments are logged with their values as "invalid parameter, filename = ...", by the
 * getters as "invalid parameters" (a null buf and a len of zero or less by "uci_get_value", with
 * "uci get %s fail" behind it). When the change was staged but the commit failed, it stays in the
 * delta area ("/tmp/.uci") and the next commit of the file takes it along. Whether a commit notices
 * that its disk is full is libuci's affair.
 *
 * Names go into the path as they are: a "." or "=" in one has its meaning there. Paths are texts of
 * at most 1023 bytes, value included. uci_cmd_format cuts a longer one silently; all other
 * functions refuse it with their usual failure and change nothing, because a cut path means another
 * option or another value.
 */
#ifndef TQ_UCI_PATH_H
#define TQ_UCI_PATH_H

#include <tq/types.h>

struct uci_context;
struct uci_package;

TQ_BEGIN_DECLS

/* Builds a path text in buf, of size bytes, cut to fit:
 *   file, name and type     "file.name=type", which defines a named section; option and value are
 *                           ignored
 *   file and name           "file.name"
 *   file, type and index    "file.@type[index]"
 * and in the last two, ".option" and then "=value" behind it where they are not null.
 * 0; -1 for a null buf or file, a size of 0 (or negative as a signed number), or neither name nor
 * type ("invalid parameters"). */
TQ_API int uci_cmd_format(char *buf, size_t size, const char *file, const char *type,
                          const char *name, int index, const char *option, const char *value);

/* Setters of an option. A missing option is created, an empty value deletes the option; the section
 * must exist. The integer forms store value as unsigned decimal text (-1 becomes 4294967295) and
 * commit the file twice.
 * Failures: "uci_do_section fail, uci set %s" and "uci set %s fail" with the path, then nothing is
 * changed; "uci commit %s fail" with the file. */
TQ_API int uci_set_str_option_by_id(const char *filename, const char *config_type, int id,
                                    const char *option, const char *value);
TQ_API int uci_set_int_option_by_id(const char *filename, const char *config_type, int id,
                                    const char *option, unsigned value);
TQ_API int uci_set_str_option_by_name(const char *filename, const char *config_name,
                                      const char *option, const char *value);
TQ_API int uci_set_int_option_by_name(const char *filename, const char *config_name,
                                      const char *option, unsigned value);

/* Appends value to a list option, which is created where it is missing; a plain option becomes a
 * list of its old value and the new one. The attempt is logged at LOG_INFO as "uci add_list %s".
 * Failures: "uci_do_section fail, uci add_list %s", "add list %s fail", "uci commit %s fail". */
TQ_API int uci_add_list_by_name(const char *filename, const char *config_name, const char *option,
                                const char *value);
TQ_API int uci_add_list_by_id(const char *filename, const char *config_type, int id,
                              const char *option, const char *value);

/* Removes every item of a list option that equals value; that there is none is a success, but the
 * section must exist. The attempt is logged at LOG_INFO as "uci del_list %s".
 * Failures: "uci_do_section fail, uci del_list %s", "del_list fail", "uci commit %s fail". */
TQ_API int uci_del_list_by_name(const char *filename, const char *config_name, const char *option,
                                const char *value);
TQ_API int uci_del_list_by_id(const char *filename, const char *config_type, int id,
                              const char *option, const char *value);

/* Defines the named section of that type, empty; a section that exists keeps its options and takes
 * the type. An empty type is a rejected argument. Failures as of the setters. */
TQ_API int uci_add_secition_by_name(const char *filename, const char *config_type,
                                    const char *config_name);

/* Deletes a section or an option. What does not exist is deleted already: the result is 0, and the
 * file is committed all the same. The attempt is logged at LOG_INFO as "uci del %s".
 * Failures: "uci_do_section fail, uci del %s", "del_uci(buf) fail", "uci commit %s fail". */
TQ_API int del_uci_section_by_id(const char *filename, const char *config_type, int id);
TQ_API int del_uci_section_by_name(const char *filename, const char *config_name);
TQ_API int del_uci_option_by_id(const char *filename, const char *config_type, int id,
                                const char *option);
TQ_API int del_uci_option_by_name(const char *filename, const char *config_name,
                                  const char *option);

/* Adds an anonymous section to a package that the caller has loaded, and stages it: not committed.
 * A type is printable ASCII without blanks.
 * The index of the new section among those of its type; -1 with "uci_add_section %s fail" (the
 * type) or "uci_save %s fail" (the package). */
TQ_API int uci_add_section_by_type(struct uci_context *ctx, struct uci_package *pkg,
                                   const char *type);

/* The same on a file, which it loads and commits. What is staged for the file already is committed
 * with it, and libuci applies it a second time on top of what was loaded: an item that is staged
 * for a list is in the list twice then. Commit such changes before.
 * The index of the new section among those of its type; -1 with "uci_load %s fail" (the file),
 * "uci_add_section %s fail" (the type), "uci_save %s fail" or "uci_commit %s fail" (the file). */
TQ_API int add_uci_section(const char *filename, const char *config_type);

/* Getters. A list gives its items with one blank between them. Trailing blanks and control
 * characters are dropped from what is read, bytes of 0x80 and above are text. The integer forms
 * read at most 31 bytes and convert them as decimal, 0 where the text is no number; a number beyond
 * 32 bits keeps its low 32 bits, so that what the integer setters stored for a negative value reads
 * back as that value.
 * uci_get_str_option_by_id, and no other, takes a null option and reads the section itself: its
 * name.
 * 0; -1 with "uci get %s fail" at LOG_INFO when there is no such value, or when it does not fit
 * ("buffer is short" at LOG_ERR; the buffer is left empty, the integer untouched). */
TQ_API int uci_get_str_option_by_name(const char *filename, const char *config_name,
                                      const char *option, char *buf, int len);
TQ_API int uci_get_int_option_by_name(const char *filename, const char *config_name,
                                      const char *option, int *value);
TQ_API int uci_get_str_option_by_id(const char *filename, const char *config_type, int id,
                                    const char *option, char *buf, int len);
TQ_API int uci_get_int_option_by_id(const char *filename, const char *config_type, int id,
                                    const char *option, int *value);

/* ---- the same on a context of the caller's, with the path as text ----
 *
 * Changes are staged, not committed. */

/* Sets path, of the form "file.section.option=value" or "file.section=type".
 * 0; -1 with "uci_lookup_ptr fail: %s", "uci set %s fail" or "uci_save fail: %s" (the path). */
TQ_API int set_uci_option(struct uci_context *ctx, const char *path);

/* Deletes the section or option at path; "path=n" deletes the n-th item of a list option. With
 * strict 0 what does not exist is a success, else the result is 3 (UCI_ERR_NOTFOUND), not logged.
 * 0; -1 with "uci_lookup_ptr fail: %s", "invalid: %s" (the text behind "=" is no integer) or
 * "uci_save fail: %s"; a positive libuci error code with "uci del %s fail". */
TQ_API int del_uci_element(struct uci_context *ctx, const char *path, int strict);

/* Reads the value at path into buf, of len bytes, as the getters above describe it.
 * 0; -1 with an empty buf: "uci_lookup_ptr fail, %s"; "ptr.flags = %d, UCI_LOOKUP_COMPLETE = %d" at
 * LOG_INFO when there is no such element; "buffer is short" when the text with a blank behind each
 * list item does not fit; "unknown" for a path that is neither a section nor an option. */
TQ_API int get_uci_option(struct uci_context *ctx, const char *path, char *buf, int len);

TQ_END_DECLS

#endif /* TQ_UCI_PATH_H */
