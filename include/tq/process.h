/* process.h - the processes that the access point knows, and whether they run.
 *
 * 56 known processes are kept in one built-in table, which syslog_config.h describes and hands out:
 * an id, the name that the kernel has for the process, and what belongs to its log. Ids run from 0
 * to 57; 42 is not used, and 54 stands for all processes. Id 0 is "unknown", id 1 is "klogd".
 *
 * What runs is read from /proc at each call. A process that has ended but is not yet waited for
 * still counts as running, and one that ends while /proc is read may be missed. The name is the
 * kernel's: 15 bytes at most, and up to its first blank.
 *
 * What the calls share is the table: nobody changes a name in it while a function here runs.
 */
#ifndef TQ_PROCESS_H
#define TQ_PROCESS_H

#include <tq/types.h>

TQ_BEGIN_DECLS

/* The number of known processes: 56. */
TQ_API int get_process_count(void);

/* The id of the first known process of that name.
 * -1 when there is none ("process %s not found") or name is null ("process name is NULL"). */
TQ_API int get_process_id(const char *name);

/* The name of the first known process with that id; it lives as long as the library.
 * Null when there is none ("process id %d not found"). */
TQ_API const char *get_process_name(int id);

/* Whether a process with the name of the known process id runs. Id 1 always asks for "klogd".
 * 1 when one runs, 0 when none does; -1 for the ids 0 and 54, an id that is not known, a row whose
 * name was taken away, and when /proc cannot be read. Nothing is logged. */
TQ_API int apps_is_running(uint32_t id);

/* Whether the process listing shows name anywhere in a line:
 * "ps|grep %s|grep -v grep|grep -v clish|grep -v kill" has something to say. The name reaches the
 * shell as it is and grep as a pattern: quoting is the caller's, and text from elsewhere has no
 * place in it. apps_is_running asks for a whole name, and starts no command.
 * 1 when it does ("process '%s' is running", at LOG_ERR as well); 0 when it does not, when no
 * command can be started ("Execute %s error." with the command), and for a null name or one that
 * makes the command 1024 bytes long or longer ("invalid parameters"). */
TQ_API int check_if_proc_running(const char *name);

TQ_END_DECLS

#endif /* TQ_PROCESS_H */
