/* uci_option.h - shortcuts to one option of a radio, VAP or firewall rule, and the thresholds of
 * the fault management.
 *
 * The shortcuts work on a libuci context of the caller's and on the n-th section of its type,
 * counted in file order from 0, and from the end where the number is negative. What they change is
 * staged, not committed. Their failures are logged by set_uci_option and del_uci_element of
 * uci_path.h, which also reject what is null ("invalid parameters").
 * A path beyond 1023 bytes, value included, is refused with "uci_lookup_ptr fail: %s" and nothing
 * changed.
 *
 * The file tqfm has a section of type "module" for each module of the fault management, named by
 * the module's number, with the options "threshold" and "suppress". What these numbers mean is the
 * fault daemon's affair.
 */
#ifndef TQ_UCI_OPTION_H
#define TQ_UCI_OPTION_H

#include <tq/types.h>

struct uci_context;

TQ_BEGIN_DECLS

/* Set an option of wireless.@wifi-device[radio], wireless.@wifi-iface[vap] or
 * firewall.@rule[rule]. A missing option is created, an empty value deletes the option; the section
 * must exist. Numbers are written as signed decimal text: -1 stays -1, unlike with the setters of
 * uci_path.h.
 * 0 or -1, as set_uci_option. */
TQ_API int set_radio_option_int(struct uci_context *ctx, int radio, const char *option, int value);
TQ_API int set_radio_option_str(struct uci_context *ctx, int radio, const char *option,
                                const char *value);
TQ_API int set_vap_option_int(struct uci_context *ctx, int vap, const char *option, int value);
TQ_API int set_vap_option_str(struct uci_context *ctx, int vap, const char *option,
                              const char *value);
TQ_API int set_fw_rule_option_int(struct uci_context *ctx, int rule, const char *option, int value);
TQ_API int set_fw_rule_option_str(struct uci_context *ctx, int rule, const char *option,
                                  const char *value);

/* Deletes an option of a radio. One that is missing is deleted already.
 * 0; -1 or a positive libuci code, as del_uci_element. */
TQ_API int del_radio_option(struct uci_context *ctx, int radio, const char *option);

/* The same for a VAP, where every failure is -1, and logged as "del_uci_option fail: %s" with the
 * path behind del_uci_element's own line; a null option makes no path, and that line alone. */
TQ_API int del_vap_option(struct uci_context *ctx, int vap, const char *option);

/* Read a module's threshold or suppression value: decimal, 0 where the text is no number, beyond 32
 * bits its low 32 bits.
 * 0; -1 with "invalid parameters" for a null value, or with *value untouched when there is none or
 * it is longer than 31 bytes, as uci_get_str_option_by_name, which logs a missing one at LOG_INFO.
 */
TQ_API int uci_get_threshold(int module, int *value);
TQ_API int uci_get_suppress(int module, int *value);

/* Define the module's section where it is missing, set the value as unsigned decimal text, and
 * commit: the file is written three times. It must exist, and there is no section for a negative
 * module.
 * 0; -1 with "uci_add_secition_by_name fail, file = %s, type = %s name = %s" or
 * "uci_set_int_option_by_name fail, file = %s, name = %s, option = %s, value = %u", behind the line
 * of the step that failed. A section that was defined stays defined when the second step fails. */
TQ_API int uci_set_threshold(int module, unsigned value);
TQ_API int uci_set_suppress(int module, unsigned value);

/* Sets the suppression value of every module's section, in file order, and commits each by itself.
 * 0, also when there is none; a module that fails is logged ("uci_set_int_option_by_name config
 * fail"), and the others are still set. -1 with "uci_load %s fail" when the file cannot be loaded.
 */
TQ_API int uci_set_suppress_defaults(unsigned value);

TQ_END_DECLS

#endif /* TQ_UCI_OPTION_H */
