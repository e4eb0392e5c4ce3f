/* util.h - the monotonic clock, a number of the hour, a private file, bytes from hexadecimal text.
 *
 * Nothing is logged; bad arguments are refused silently. What calls share is the generator of
 * rand(3), whose state tq_rand replaces.
 */
#ifndef TQ_UTIL_H
#define TQ_UTIL_H

#include <tq/types.h>

TQ_BEGIN_DECLS

/* An instant of the monotonic clock, which starts with the system and is never set. */
struct tq_timeval {
    int32_t tv_sec;  /* seconds since the start */
    int32_t tv_usec; /* 0 to 999999 */
};

/* Reads the monotonic clock (CLOCK_MONOTONIC), cut to whole microseconds.
 * 0; -1 with *now untouched for a null pointer or when the clock cannot be read. */
TQ_API int tq_gettime(struct tq_timeval *now);

/* The whole seconds of the monotonic clock, or -1 when it cannot be read. */
TQ_API int tq_time(void);

/* A pseudo-random number from 0 to RAND_MAX: the first of the C library's generator, seeded with
 * tq_time(). All calls within one second return the same number, and whoever knows the time since
 * boot knows it: it spreads devices over a range, and is no key and no identifier. */
TQ_API int tq_rand(void);

/* Makes an empty file of mode 0600 that was not there before, and leaves it to the caller. The
 * template ends in "XXXXXX", which is replaced in place by what makes the name unique.
 * 0; -1 for a null or other template, or when no file can be created there; -2 when the mode cannot
 * be set: the file is removed again. */
TQ_API int tq_mktemp(char *path_template);

/* Turns pairs of hexadecimal digits, either case, into bytes: as many as hex_len characters give
 * and out_len bytes hold. The text need not be terminated.
 *
 * Meant for text that was checked before. Of other text each pair is read as scanf's "%02x" reads
 * it: one digit alone counts (" a", "a ", "+a" and "ag" are all 0x0a, "-1" is 0xff, "0x" is 0), a
 * pair without any stores the byte of the pair before it, 0 for the first.
 *
 * The number of bytes written; 0 for a null pointer, an odd hex_len, and lengths of zero or less.
 */
TQ_API int tq_hexstr_to_hexnum(const char *hex, int hex_len, uint8_t *out, int out_len);

TQ_END_DECLS

#endif /* TQ_UTIL_H */
