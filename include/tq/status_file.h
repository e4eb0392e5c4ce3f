/* status_file.h - small pieces of the device's state that several daemons share.
 *
 * Why and when the access point last went offline from its controller, whether the upload of
 * traffic statistics is up, the state of the controller link, the server that receives core dumps,
 * a backup of the logs, and the lock that keeps two firmware upgrades apart. Each is a file, an
 * option of the configuration or the name of a socket: nothing is kept in memory. The files are
 * written without a lock, so a reader may see a half-written one.
 */
#ifndef TQ_STATUS_FILE_H
#define TQ_STATUS_FILE_H

#include <tq/types.h>

TQ_BEGIN_DECLS

/* Why the access point last went offline, and when. */
typedef struct offline_reason_info {
    uint32_t reason_length; /* in bytes, without the terminator */
    char reason[128];       /* the code's text */
    uint32_t time_length;   /* in bytes, without the terminator */
    char time[32]; /* "YYYY-MM-DD hh:mm:ss", local time, as tq_set_offline_reason wrote it */
} offline_reason_info;

/* Records in /tmp/.offline.reason that the access point went offline now: 1 system reboot, 2 change
 * of the controller, 3 change of the configuration, 4 WTP crash, 5 WTP lock, 6 network timeout. Any
 * other code is recorded as it is. The time is the local one of the zone that TZ names at the
 * moment of the call. A file that cannot be created is logged ("fopen %s fail:%s", with the
 * system's error text) and stays as it was; the caller learns nothing of it. */
TQ_API void tq_set_offline_reason(int reason);

/* Reads the record: the code's text ("System Reboot", "Change AC", "Change Configuration",
 * "WTP Crash", "WTP Lock", "Network Timeout") and the time. A code outside 1 to 6 reads as
 * "System Reboot". The time is the file's second line, cut at 31 bytes and otherwise as it is: a
 * "%" in it is a character like any other. Blank lines and lines that start with "#" are skipped.
 * 0; -1 with *out untouched when there is no file ("fopen %s fail:%s") or it has fewer than two
 * lines (not logged). */
TQ_API int tq_get_offline_reason(offline_reason_info *out);

/* Records in /tmp/.traffic_statistics_upload whether the upload of traffic statistics is up: any
 * pointer but null means "up", null means "down". The word is logged at LOG_DEBUG as "%s".
 * 0; -1 when the file cannot be opened ("open %s fail"). */
TQ_API int set_traffic_upload_status(const void *up);

/* 1 when the upload is recorded as down, 0 when it is up and when nothing is recorded: the callers
 * ask "is it down?". Of the file's first line 31 characters are looked at, and logged as "%s" at
 * LOG_DEBUG. */
TQ_API int get_traffic_upload_status(void);

/* Stores the state of the controller link: option "status" of the first section of type "capwap" in
 * the configuration "wtp". As uci_set_int_option_by_id does it: a negative status is stored as the
 * unsigned number of the same 32 bits, which get_capwap_status_file turns back. */
TQ_API int set_capwap_status_file(int status);

/* The stored state, or -1 when it cannot be read: a stored -1 looks the same. */
TQ_API int get_capwap_status_file(void);

/* Stores the server that receives core dumps in /usr/config/coredump_server, without a terminator
 * or line feed. Only its first 16 bytes are ever read back.
 * 0; -1 when the file cannot be opened or not all of the text was written (not logged): what the
 * file held before is then lost. */
TQ_API int save_coredump_server(const char *server);

/* Copies the stored server into out, of 16 bytes: what the file holds, up to 16 bytes, without a
 * terminator. Clear out beforehand, and keep a seventeenth byte for the terminator.
 * 0; -1 when there is no such file or it is empty (not logged). */
TQ_API int get_coredump_server(char *out);

/* Forgets the server: removes the file.
 * 0; -1 when it cannot be removed, also because it is not there (not logged). */
TQ_API int delete_coredump_server(void);

/* Runs "/usr/bin/backup_log.sh  A  B" through the shell and waits for it, where that script is
 * there and readable. The two words reach the shell as they are: their quoting is the caller's, and
 * text from elsewhere has no place in them. A command of 64 bytes or more is not run, because a cut
 * word would name something else; neither is one with a null word. Both are logged at LOG_ERR
 * ("invalid parameters").
 * Always 0. */
TQ_API int backup_all_log(const char *a, const char *b);

/* Takes the lock that only one firmware upgrade of the system holds at a time: the abstract name
 * "upgrade-img" of a local datagram socket. It does not wait. Any process of the same network
 * namespace can hold the name, whatever its rights; the kernel frees it when its holder ends,
 * however that comes. The handle is a descriptor, closed on exec: a program that the holder starts
 * does not hold the lock.
 * The handle for tq_upgrade_mutex_end; -1 when the lock is held, by this process as well, or no
 * socket is to be had (not logged). */
TQ_API int tq_upgrade_mutex_begin(void);

/* 1 when an upgrade holds the lock, 0 otherwise. To find out, it takes the lock for a moment: an
 * upgrade that begins just then is refused. Without a socket the answer is 1. */
TQ_API int tq_is_upgrade_mutex_begin(void);

/* Gives the lock back.
 * Always 0, also for a handle that is none. */
TQ_API int tq_upgrade_mutex_end(int handle);

TQ_END_DECLS

#endif /* TQ_STATUS_FILE_H */
