/* syslog_config.h - log levels of the daemons, and the log daemon's configuration.
 *
 * Each known process has a log level, a facility and maybe a remote log server. From that table
 * comes /etc/syslogd.conf, which the log daemon reads again when it is told to ("killall -1
 * syslogd", logged as my_system does). A level reaches its daemon through the file /tmp/.loglvl.TAG
 * and signal 49: each daemon opens its log with tq_openlog, which reads the file and installs the
 * handler.
 *
 * The table and the settings below are this process's own: a second process that links the library
 * has its own, and what one sets the other does not know. Only the level files, /etc/syslogd.conf
 * and /tmp/syslogserver are shared, without a lock. One process of the device, the one that manages
 * the log, calls init_syslog and the setters, on one thread.
 *
 * Before init_syslog (or syslog_cfg = get_syslog_cfg()) there is no table: no id matches, nothing
 * is written, and /etc/syslogd.conf stays as it is.
 */
#ifndef TQ_SYSLOG_CONFIG_H
#define TQ_SYSLOG_CONFIG_H

#include <tq/types.h>

TQ_BEGIN_DECLS

/* The id that stands for all processes in the setters. */
#define SYSLOG_ALL_PROCESSES 54

/* A level of this value keeps a process from starting a block of the local log file; a process
 * before it in the table with the same facility still takes it along. */
#define SYSLOG_NO_LOCAL_LOG 0xffffffffu

/* A known process. */
/* NOLINTNEXTLINE(clang-analyzer-optin.performance.Padding) */
typedef struct syslog_process {
    uint32_t id;       /* as process.h has it */
    const char *name;  /* as the kernel has it */
    const char *tag;   /* short, for level files and lists of programs */
    uint32_t level;    /* 0 (LOG_EMERG) to 7 (LOG_DEBUG), 3 at first; or SYSLOG_NO_LOCAL_LOG */
    uint8_t server[4]; /* the remote log server's IPv4 address, first byte first; all zero: none */
    uint32_t facility; /* as in <syslog.h>: LOG_LOCAL5, for one */
} syslog_process;

/* A facility by name. */
typedef struct syslog_facility {
    const char *name; /* "local5", for one */
    int value;        /* as in <syslog.h> */
} syslog_facility;

/* The server that collects traces of the wireless clients' connections, filled in by the caller. */
typedef struct wcd_trace_settings {
    uint64_t id;           /* of the trace */
    const char *host_name; /* of the server; null: none */
    uint16_t port;         /* host byte order */
    int32_t level;         /* of all processes while the trace is on; negative: not set */
    int8_t enable;         /* 0: off; 1: on; any other value is on as well, but called "Disable" */
    uint8_t reserved[31 - sizeof(const char *)]; /* makes the record 48 bytes */
} wcd_trace_settings;

/* Each is initialized where it is defined. NOLINTBEGIN(bugprone-dynamic-static-initializers) */

/* The table in use: null until init_syslog. */
extern TQ_API syslog_process *syslog_cfg;

/* Whether remote logging is on (not 0); set_syslog_status changes it. */
extern TQ_API uint32_t syslog_server_status;

/* Limit of the local log file in KiB, 2048 at first; set_log_file_size_scfg changes it. */
extern TQ_API uint32_t syslog_file_size;

/* The facilities by name, closed by a null name with the value -1. <syslog.h> defines a table of
 * the same name for whoever asks for it. */
#ifndef SYSLOG_NAMES
extern TQ_API const syslog_facility facilitynames[];
#endif

/* The trace's settings; set_wcd_trace_conf puts them into effect. */
extern TQ_API wcd_trace_settings wcd_trace;

/* NOLINTEND(bugprone-dynamic-static-initializers) */

/* Takes the built-in table into use, writes the level file of each process, tells the running ones,
 * and writes the configuration file. Prints "syslog_cfg is NULL" on standard output when there is
 * no table. */
TQ_API void init_syslog(void);

/* The built-in table of get_process_count() rows, in the order of their ids. The caller may change
 * what is in the rows; the built-in names and tags live as long as the library. */
TQ_API syslog_process *get_syslog_cfg(void);

/* Writes /etc/syslogd.conf from the table, byte for byte:
 *
 *     logLocalFac=local5
 *
 *     !|TAG|TAG|
 *     FACILITY.*<TAB><TAB>%/var/log/system.log BYTES 666
 *
 *     !|TAG|TAG|
 *     local5.*<TAB><TAB>&ADDRESS PORT ID
 *
 *     !|TAG|TAG|
 *     local5.*<TAB><TAB>@ADDRESS
 *
 * with an empty line behind each block, and tells the log daemon. The first block is there for each
 * facility, in the table's order; the second, which has all tags, while wcd_trace is on and its
 * host resolves (also logged, "buf(%d): %s"); the third for each server and facility while remote
 * logging is on. Where the last row of the table leads a block of the local file, the trace block
 * stays empty. A facility without a name is "(null)"; a line is cut at 1023 bytes. Waits for the
 * name server, and for the command.
 * A file that cannot be opened stays as it was, the log daemon is not told, and nothing is logged;
 * a full disk cuts the file. */
TQ_API void write_syslog_config_file(void);

/* Writes "on logging" (on not 0) or "close logging", without a line feed, to /tmp/syslogserver. A
 * file that cannot be opened is not logged. */
TQ_API void write_syslog_pmr_ap_report_file(uint32_t on);

/* Gives the process with that id, or each (54), the level, and tells those that run. Each one
 * is traced at LOG_DEBUG ("process id(%d) current level(%d) config level(%d)"). A process whose
 * level file cannot be written keeps its level. The level is not checked, and the configuration
 * file not written. Running processes that do not catch signal 49 are logged ("find pidname:%s
 * pid%d ", then "%s " with the mask of the signals that it catches, both in the name of
 * notice_apps).
 * 1 when nothing changed; 0 when running processes were looked for. */
TQ_API int set_process_syslog_level(int process_id, int level);

/* The level, or -1 when there is no such process; SYSLOG_NO_LOCAL_LOG is -1 as well. */
TQ_API int get_process_syslog_level(uint32_t process_id);

/* Gives the process with that id, or each (54), the remote log server, of four bytes; 0.0.0.0 for
 * none. Writes the configuration file when that changed something and remote logging is on. A null
 * address is logged ("invalid parameters"). */
TQ_API void set_server_ip_scfg(uint32_t process_id, const uint8_t address[4]);

/* Copies the four bytes of the process's remote log server; nothing is copied when there is no such
 * process. A null address is logged ("invalid parameters"). */
TQ_API void get_syslog_server_ip(uint32_t process_id, uint8_t address[4]);

/* Switches remote logging on (not 0) or off; with a new value /tmp/syslogserver and the
 * configuration file are written. */
TQ_API void set_syslog_status(uint32_t status);

/* Whether remote logging is on: what set_syslog_status was given last, 0 at first. */
TQ_API uint32_t get_syslog_status(void);

/* Limits the local log file to that many KiB, from 10 to 10240; anything else becomes 10240. Writes
 * the configuration file when the limit changed. */
TQ_API void set_log_file_size_scfg(uint32_t size);

/* The limit in KiB. */
TQ_API uint32_t get_syslog_file_size(void);

/* Starts or ends the trace as wcd_trace says, with all processes at its level or back at their own,
 * and writes the configuration file. Logged at LOG_INFO: "write config to file, local trace is %s"
 * with "Enable" or "Disable".
 * 0; -1, with nothing done, when the trace is on but lacks a level, a host name or a port ("Can't
 * start wcd trace, because level is invalid or ism server config is null"). */
TQ_API int set_wcd_trace_conf(void);

/* Puts the trace's level into the level files of all processes whose own level differs from it
 * (load), or their own level back (unload), and tells those that run. The table keeps the own
 * levels.
 * 1 when no level differs or no file could be written; 0 when running processes were looked for. */
TQ_API int load_wcd_trace_level(void);
TQ_API int unload_wcd_trace_level(void);

/* Opens the system log for a daemon, as ident (cut at 127 bytes) with the process id and facility
 * local5, and takes the level from /tmp/.loglvl.IDENT where there is one. ident is the daemon's tag
 * in the table. The first call of a process also makes reset_syslog_prority the handler of signal
 * 49; calls that it interrupts are restarted. A null ident does nothing. */
TQ_API void tq_openlog(const char *ident);

/* Closes the log, as closelog(3). */
TQ_API void tq_closelog(void);

/* The handler of signal 49: sets the log mask to the level in the level file of tq_openlog's ident,
 * of which its low three bits count, and acknowledges it by writing "IDENT_r LEVEL" to the start of
 * the file, which is not cut there. It calls what is safe in a signal handler, but for
 * setlogmask(3): where the C library locks that (glibc, and musl in a process with threads), a
 * signal that interrupts the same thread's syslog(3) waits for ever. Such a daemon blocks signal 49
 * but where it is idle. errno is kept.
 * 0 when the level was taken and when there is no level file; -1 when closing the file failed; 49,
 * with nothing done, for any other signal. */
TQ_API int reset_syslog_prority(int signal_number);

TQ_END_DECLS

#endif /* TQ_SYSLOG_CONFIG_H */
