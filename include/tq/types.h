/* types.h - what holds for all of libtq's public headers.
 *
 * Said here once; a comment elsewhere adds what is particular:
 *
 * - Results are int, 0 for success and -1 for failure, unless a function's comment says otherwise.
 *   Values come back through the caller's pointers.
 * - A null pointer, and a size, count or length of zero or less, is a rejected argument: one line
 *   in the system log at LOG_ERR ("invalid parameters"), result -1 (null from functions that return
 *   a pointer), nothing done. Where a function differs, its comment says how.
 * - The caller owns every buffer that it passes. Nothing is returned for the caller to free unless
 *   the comment says so.
 * - Diagnostics go to syslog(3) without an explicit facility, one line a failure, as
 *   "[function:line] text". The comments name the texts without that prefix, in brackets behind
 *   what they are logged for, and the priority where it is not LOG_ERR.
 * - A function may run on any thread, beside any other, unless its header names what its calls
 *   share. None starts a thread or takes a lock unless its comment says so.
 * - errno is not part of the interface unless a comment says so.
 * - Descriptors that the library opens are closed on exec.
 */
#ifndef TQ_TYPES_H
#define TQ_TYPES_H

#include <stddef.h>
#include <stdint.h>

/* Around declarations, so that C++ takes them for C's. */
#ifdef __cplusplus
#define TQ_BEGIN_DECLS extern "C" {
#define TQ_END_DECLS }
#else
#define TQ_BEGIN_DECLS
#define TQ_END_DECLS
#endif

/* Marks what leaves the shared object. */
#if defined(__GNUC__)
#define TQ_API __attribute__((visibility("default")))
#else
#define TQ_API
#endif

/* Lets the compiler check the arguments of a printf format, and know what does not come back. */
#if defined(__GNUC__)
#define TQ_PRINTF(text, first) __attribute__((__format__(__printf__, text, first)))
#define TQ_NORETURN __attribute__((__noreturn__))
#else
#define TQ_PRINTF(text, first)
#define TQ_NORETURN
#endif

#endif /* TQ_TYPES_H */
