/* reboot_cause.h - why the device rebooted, kept over the reboot.
 *
 * Each run of the device leaves one record in a small store: its cause, its time, and which process
 * asked for the reboot, from where in its code. The store also counts the causes and has room for
 * two texts of kernel panics. The order of a run:
 *
 *   rb_kernel_up_check()            once, at the start: notices that the last run left no record
 *   rb_set_ntp_sync_flag(1)         once the clock is right
 *   rb_correct_reboot_time_now()    and what was recorded while it was not
 *   rb_write_reboot_cause(...)      whoever reboots the device; the first record of a run stays
 *   reboot_system()
 *
 * The store is one file or device node of 43556 bytes, in the order of these structures and in the
 * processor's byte order: the header, 20 records used in a ring, two panic texts of 20480 bytes.
 * Where it lies is a fact of the board. Every function but rb_set_ntp_sync_flag opens it, and makes
 * it anew where it is missing or its magic byte is another: readers do that as well, and what was
 * in it is lost. One that cannot be read, for an error of the storage, is left alone.
 *
 * Nothing here logs, rejected arguments included. "Not available" below means that the board names
 * no path, or that the store at it cannot be opened for reading and writing, read, or made. What
 * the storage does not take of a later change is noticed only where a comment says so.
 *
 * Nothing is locked: of two writers at the same instant one may be lost. A record is in its place
 * before the header tells of it, so that a writer that dies half-way leaves a store without its
 * record; in a full ring that slot, the oldest record's, may then have the new one already.
 */
#ifndef TQ_REBOOT_CAUSE_H
#define TQ_REBOOT_CAUSE_H

#include <stdio.h>
#include <tq/types.h>

TQ_BEGIN_DECLS

#define REBOOT_CAUSE_RECORDS 20       /* slots of the ring */
#define REBOOT_PANIC_TEXT_SIZE 20480  /* bytes of a panic text */
#define REBOOT_CAUSE_STORE_SIZE 43556 /* bytes of the store */
#define REBOOT_CAUSE_MAGIC 0xAB       /* in the header of a store that was made */

/* Causes 1 to 5 are the callers' own. The last two are an unplanned reset's; they are stored, and
 * counted, as cause 4. */
#define REBOOT_CAUSE_POWER_DOWN 6
#define REBOOT_CAUSE_WATCHDOG 7

/* Where a record's time comes from. */
#define REBOOT_TIME_UNKNOWN 0      /* the clock was not right */
#define REBOOT_TIME_SYNCHRONISED 1 /* the clock was right */
#define REBOOT_TIME_ESTIMATED 2    /* from the previous record, the uptime and 10 s for the boot */
#define REBOOT_TIME_CORRECTED 3    /* from rb_correct_reboot_time_now */

/* 16 bytes: the counters, each of which starts at 0 again behind 65535. */
typedef struct reboot_cause_statistic {
    uint16_t total;          /*  0: records ever written, the newest one's sequence number */
    uint16_t cause_count[5]; /*  2: of them those with the causes 1 to 5 */
    uint16_t other_count;    /* 12: those with another cause: 0, or 8 and above */
    uint16_t last_cause;     /* 14: of the newest record, as it is stored */
} reboot_cause_statistic;

/* 36 bytes. */
typedef struct reboot_cause_header {
    reboot_cause_statistic statistic; /*  0 */
    uint8_t recorded;                 /* 16: 1 once this run has its record */
    uint8_t time_synchronised;        /* 17: set by rb_set_ntp_sync_flag */
    uint8_t magic;                    /* 18: REBOOT_CAUSE_MAGIC */
    uint8_t reserved_19;              /* 19: 0, as all that is reserved */
    uint8_t position;                 /* 20: the slot behind the newest record, 1 to 20; 0
                                       *     in a fresh store; beyond 20 counts as 20 */
    uint8_t reserved_21;              /* 21 */
    uint16_t panic_identifier[2];     /* 22: of the panic texts; written by others */
    uint8_t reserved_26[10];          /* 26 */
} reboot_cause_header;

/* 128 bytes; slot n lies at 36 + 128 n. */
typedef struct reboot_cause_record {
    uint16_t sequence;    /*  0: from 1; 0 is an empty slot */
    uint8_t cause;        /*  2 */
    uint8_t time_quality; /*  3: REBOOT_TIME_... */
    uint8_t reserved[4];  /*  4: 0 */
    uint32_t time;        /*  8: seconds since 1970 */
    uint32_t uptime;      /* 12: seconds */
    char process[16];     /* 16: who made it; not terminated when it fills the field */
    char message[48];     /* 32: terminated */
    char location[48];    /* 80: "file:function:line", terminated */
} reboot_cause_record;

/* 20484 bytes. */
typedef struct reboot_panic_buffer {
    uint32_t identifier;               /* 0: which text, filled in by the caller */
    char text[REBOOT_PANIC_TEXT_SIZE]; /* 4: not terminated when it fills the field */
} reboot_panic_buffer;

/* The path of the store, in a static buffer of 32 bytes that the next call of this function
 * overwrites; null where the board names none, or one that does not fit. */
TQ_API const char *get_reboot_cause_file(void);

/* Opens the store for reading and writing and copies its header. The stream's position is behind
 * the header, or at the end of a store that was just made: seek before the next access. The caller
 * closes it.
 * Null, and *header as it was, for a null header or where the store is not available. */
TQ_API FILE *rb_open_reboot_cause_file(reboot_cause_header *header);

/* Whole seconds since the kernel started, the low 32 bits of their number; 0 when "/proc/uptime"
 * cannot be read or has no number in its first line. */
TQ_API int get_system_uptime(void);

/* Writes a filled record, as the first of this run. Sets its sequence number (even when it is then
 * not written) and its time quality: REBOOT_TIME_SYNCHRONISED while the flag is set; otherwise,
 * where the previous record's time is known, the time becomes that time + 10 + the record's own
 * uptime and the quality REBOOT_TIME_ESTIMATED; otherwise REBOOT_TIME_UNKNOWN. A cause of 6 or 7 is
 * never estimated and becomes cause 4 with REBOOT_TIME_UNKNOWN, in *record as well.
 * The record is on its way to the storage then; sync(2), which reboot_system calls, waits for that.
 * 0; 1 when this run has its record already; -1 for a null record, where the store is not
 * available and where it does not take the record. */
TQ_API int rb_write_reboot_cause_inner(reboot_cause_record *record);

/* Fills a record with what is known now, as rb_generate_reboot_cause does, and writes it.
 * The result of rb_write_reboot_cause_inner; -1 for a null text. */
TQ_API int rb_write_reboot_cause(int cause, const char *file, const char *function, int line,
                                 const char *format, ...) TQ_PRINTF(5, 6);

/* Fills *record, in memory only: the low 8 bits of cause, the message (cut to 47 bytes), "%s:%s:%d"
 * of file, function and line as its location (cut likewise), the time, the uptime and the process.
 * That is the last component of the first word of the process's own command line, of whose first 23
 * bytes alone; it stays empty when "/proc" does not tell. Sequence number and time quality are 0.
 * A null record or text: nothing is done. */
TQ_API void rb_generate_reboot_cause(reboot_cause_record *record, unsigned cause, const char *file,
                                     const char *function, int line, const char *format, ...)
    TQ_PRINTF(6, 7);

/* Copies the newest maximum records, or as many as there are, newest first. Where there are fewer
 * than maximum and than 20, the entry behind them becomes an empty record.
 * Their number, 0 to 20; -1 for a null array, a maximum of zero or less, or where the store is not
 * available. */
TQ_API int rb_read_reboot_cause(reboot_cause_record *records, int maximum);

/* Copies the panic text of buffer->identifier, the first of the two where both have it. In a fresh
 * store both have identifier 0, and no text.
 * 0; -1 with the text as it was, for null, where the store is not available and when no text has
 * that identifier. */
TQ_API int rb_read_panic_by_index(reboot_panic_buffer *buffer);

/* Copies the counters.
 * 0; -1 for null and where the store is not available. */
TQ_API int rb_read_reboot_statistic(reboot_cause_statistic *statistic);

/* Gives a time to the records that were written while the clock was not right, now that it is.
 * Beginning with the newest, each that has REBOOT_TIME_UNKNOWN gets the moment its run must have
 * ended, counted back from now by the uptimes and 10 s for each boot, and REBOOT_TIME_CORRECTED.
 * It ends at the first record with another time quality, and behind a cause of 6 or 7: how long the
 * device was off before that, nobody knows. Sequence numbers are not looked at, so that the record
 * behind number 65535 has its time, too.
 * 0, also when there was nothing to correct; -1 when the uptime is 0 or the store is not
 * available. */
TQ_API int rb_correct_reboot_time_now(void);

/* Begins a run, once per boot. Where the last run left no record it writes one: cause 7, "Watch
 * dog", when the watchdog driver says that it made the reset ("/dev/watchdog", request 0x89ABCDF1,
 * answer 1), else cause 6, "Power down". Then both flags of the header are cleared.
 * After a call that recorded a reset another one of the same process, with no other record in
 * between, is still in the same run and adds nothing. After a planned reboot's record, and in
 * another process, a second call cannot be told from the next boot's.
 * 100 when there was a reset to record, else 0, also where the store is not available. */
TQ_API int rb_kernel_up_check(void);

/* Sets the header's time_synchronised to flag and waits until it is stored. Neither makes a store
 * nor looks at the magic byte.
 * 0; -1 when the board names no path or the store cannot be opened for writing. */
TQ_API int rb_set_ntp_sync_flag(unsigned char flag);

/* Writes all file systems out, runs "/sbin/reboot" and, should that hang, restarts the kernel at
 * once after 20 s, again and again ("/proc/sysrq-trigger"). */
TQ_API void reboot_system(void) TQ_NORETURN;

TQ_END_DECLS

#endif /* TQ_REBOOT_CAUSE_H */
