/* sysstat.h - processor, memory, flash, uptime and Ethernet traffic.
 *
 * Each call reads the kernel's file anew and keeps nothing. Numbers are read as the 32-bit target
 * reads them, on every machine: one that 32 bits do not hold counts as 4294967295, one with a minus
 * sign wraps around. The counters of interfaces have 64 bits.
 *
 * A null pointer is logged as "invalid parameter" unless the function's comment says otherwise.
 */
#ifndef TQ_SYSSTAT_H
#define TQ_SYSSTAT_H

#include <tq/types.h>

TQ_BEGIN_DECLS

/* The counters of an Ethernet port, 88 bytes. */
typedef struct if_stats {
    uint64_t in_octets;    /*  0 */
    uint64_t in_packets;   /*  8 */
    uint64_t in_errors;    /* 16 */
    uint64_t in_discards;  /* 24 */
    uint64_t in_multicast; /* 32 */
    uint64_t out_octets;   /* 40 */
    uint64_t out_packets;  /* 48 */
    uint64_t out_errors;   /* 56 */
    uint64_t out_discards; /* 64 */
    uint64_t reserved;     /* 72: 0 */
    uint32_t in_flow;      /* 80: as the statistics service counts */
    uint32_t out_flow;     /* 84 */
} if_stats;

/* Places of get_proc_meminfo's figures. */
#define PROC_MEMINFO_TOTAL 0
#define PROC_MEMINFO_FREE 1
#define PROC_MEMINFO_BUFFERS 2
#define PROC_MEMINFO_CACHED 3
#define PROC_MEMINFO_FIGURES 4

/* ---- Processor ---- */

/* Ticks since boot out of the first seven numbers of /proc/stat, within its first 1023 bytes,
 * modulo 2^32: *busy is nice, system, irq and softirq together; *total is that and user, idle and
 * iowait. Busy leaves out the user's time: the callers' ratios are built on it. No pointer is
 * checked.
 * 0; -1 where the file cannot be opened ("Cannot open %s"), -2 where it is of another form ("Cannot
 * parse %s"), both with the outputs as they were. */
TQ_API int tq_get_cpu_ticks(uint32_t *total, uint32_t *busy);

/* Ticks since boot out of the first line of /proc/stat, modulo 2^32: *idle is its fourth number,
 * *total the sum of all ten.
 * 0; -1 with the outputs as they were where the file cannot be opened ("fopen fail"), has no line
 * ("fgets fail") or a line of fewer numbers ("sscanf fail"). */
TQ_API int get_proc_cpuinfo(uint32_t *total, uint32_t *idle);

/* ---- Memory ---- */

/* Total memory, free memory, buffers and page cache in kB, from /proc/meminfo: of each line that
 * contains "MemTotal:", "MemFree:", "Buffers:" or "Cached:", until four were found. Each of them is
 * traced at LOG_DEBUG as "%s - %lu"; one without a number ends the search ("sscanf %s fail"). A
 * line that is there twice counts twice, and leaves the figure of a line that then is not reached
 * as it was.
 * 1 where four lines were found; -1 where there were fewer, or the file cannot be opened ("fopen
 * fail"): what was found is in figures then, too. */
TQ_API int get_proc_meminfo(uint32_t figures[PROC_MEMINFO_FIGURES]);

/* Total memory in kB.
 * 0; -1 with *size_kb as it was where get_proc_meminfo fails ("get_proc_meminfo fail"). */
TQ_API int tq_hal_get_sdram_size(uint32_t *size_kb);

/* The part of memory that is not free, in percent, rounded down; buffers and cache count as used.
 * It is calculated in 32 bits, and so for up to 40 GiB of used memory.
 * 0; -1 with *percent 0 where get_proc_meminfo fails ("get_proc_meminfo fail"). A total of 0 is a
 * division by zero, which stops the process. */
TQ_API int tq_get_memory_real_usage(uint32_t *percent);

/* ---- Usage in percent as the statistics service tells it (tq/bwctl.h) ---- */

/* Memory, mean; processor, mean; processor, now: tq_get_mem_usage, tq_get_cpu_usage and
 * tq_get_cpu_cur_usage, which log their failures.
 * 0, with 0 for a number that the reply lacks; -1 with *percent 0. */
TQ_API int tq_get_memory_avg_usage(uint32_t *percent);
TQ_API int tq_get_cpu_avg_usage(uint32_t *percent);
TQ_API int tq_get_cpu_real_usage(uint32_t *percent);

/* ---- Uptime, flash, processor type ---- */

/* Seconds since boot.
 * 0; -1 with *seconds 0 ("sysinfo fail"). */
TQ_API int tq_get_sys_uptime(uint32_t *seconds);

/* Free room of the file system mounted on /overlay for users without privileges, in kB: block size
 * times free blocks modulo 2^32, by 1024. Of several entries in /etc/mtab it is the first whose
 * file system answers.
 * 0; -1 with *free_kb 0 where there is no mount table ("setmntent fail") or none answers (no log
 * line). */
TQ_API int tq_get_flash_free_size(uint32_t *free_kb);

/* The size of the first partition of /proc/mtd in bytes.
 * 0 where the file lists none (no log line), or the line is of another form ("sscanf fail"); -1
 * where the file cannot be opened ("fopen fail"). A partition of 2 GiB or more gives a negative
 * number. */
TQ_API int tq_hal_get_flash_size(void);

/* Copies the value in the first line of /proc/cpuinfo (on MIPS the "system type") into buf, of len
 * bytes, cut to fit and without its line feed; the rest of buf is zeroed. The value begins two
 * characters behind the first colon; where the line ends before that, it is empty.
 * 0; -1 with an empty buf where the file cannot be opened ("fopen fail"), has no line ("fgets
 * fail"), or none with a colon ("buf = %s"). */
TQ_API int tq_hal_get_processor_type(char *buf, int len);

/* ---- Ethernet ports, counted from 0 ---- */

/* The flow figures of the statistics service (tq/bwctl.h) for an interface index; 0 for one that
 * the reply lacks.
 * 0; -1 where a request fails ("tq_get_in_flow_statistics fail", "tq_get_out_flow_statistics
 * fail"). What was not obtained is 0: *in keeps its figure where only the second request fails. */
TQ_API int tq_get_eth_flow(uint32_t port, uint32_t *in, uint32_t *out);

/* Sets rec->in_octets and rec->out_octets to the first and the fourth of the six numbers in the
 * first line of the port's driver file, /proc/net/eth/eth%d/stats.
 * 0; -1 with *rec as it was for a null rec ("null buff"), a file that cannot be opened (LOG_WARNING
 * "fopen %s failed: %s") or is of another form (LOG_WARNING "unknown format: '%s'"). Where the file
 * was opened, the two fields are traced at LOG_DEBUG: "ifInOctets:%llu ifOutOctets: %llu". */
TQ_API int tq_get_eth_stats(int port, if_stats *rec);

/* Clears rec and fills it with the port's counters: those of /proc/net/dev, then the figures of
 * tq_get_eth_flow and the octets of tq_get_eth_stats, where these are to be had; their failures are
 * logged, but not the result's. The line is the first that contains the interface's name and a
 * colon anywhere: a veth0 listed before eth0 is taken for it.
 * 0; -1 where the board names no such port ("tq_get_eth_ifname fail, index  = %d"; *rec as it was),
 * or the table has no line of it ("read_line fail", behind the text of read_line) or one of fewer
 * than sixteen numbers ("sscanf fail"), both with a cleared record. The text that tq_get_eth_ifname
 * gave last stays as it is. */
TQ_API int tq_get_if_statistics(int port, if_stats *rec);

TQ_END_DECLS

#endif /* TQ_SYSSTAT_H */
