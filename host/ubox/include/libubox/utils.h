/*
 * utils.h - what the rest of libubox stands on: byte order, one block for several objects.
 *
 * The names of the firmware's libubox, as far as the message bus and its services use them; so are
 * the other headers of this directory.
 */
#ifndef LIBUBOX_UTILS_H
#define LIBUBOX_UTILS_H

#include <endian.h>
#include <stdbool.h>
#include <stddef.h>
#include <stdint.h>
#include <sys/stat.h>
#include <sys/time.h>
#include <sys/types.h>
#include <time.h>
#include <unistd.h>

#ifdef __cplusplus
extern "C" {
#endif

/* NOLINTBEGIN(bugprone-reserved-identifier,cert-dcl37-c,cert-dcl51-cpp): fixed names */

#define UBOX_EXPORT __attribute__((visibility("default")))

#ifndef ARRAY_SIZE
#define ARRAY_SIZE(array) (sizeof(array) / sizeof((array)[0]))
#endif

#ifndef __packed
#define __packed __attribute__((packed))
#endif

/* calloc_a(size, [&pointer, size,]...): one zeroed block for free(); it begins with the first
 * object, and each pointer is set to one behind it, aligned for anything. NULL without memory. */
#define calloc_a(...) __calloc_a(__VA_ARGS__, NULL)
UBOX_EXPORT void* __calloc_a(size_t len, ...);

/* Byte order; those with const_ are constant expressions. */
#if __BYTE_ORDER == __LITTLE_ENDIAN
#define const_cpu_to_be16(x) __builtin_bswap16((uint16_t)(x))
#define const_cpu_to_be32(x) __builtin_bswap32((uint32_t)(x))
#define const_cpu_to_be64(x) __builtin_bswap64((uint64_t)(x))
#define const_cpu_to_le16(x) ((uint16_t)(x))
#define const_cpu_to_le32(x) ((uint32_t)(x))
#define const_cpu_to_le64(x) ((uint64_t)(x))
#else
#define const_cpu_to_be16(x) ((uint16_t)(x))
#define const_cpu_to_be32(x) ((uint32_t)(x))
#define const_cpu_to_be64(x) ((uint64_t)(x))
#define const_cpu_to_le16(x) __builtin_bswap16((uint16_t)(x))
#define const_cpu_to_le32(x) __builtin_bswap32((uint32_t)(x))
#define const_cpu_to_le64(x) __builtin_bswap64((uint64_t)(x))
#endif

#define const_be16_to_cpu(x) const_cpu_to_be16(x)
#define const_be32_to_cpu(x) const_cpu_to_be32(x)
#define const_be64_to_cpu(x) const_cpu_to_be64(x)
#define const_le16_to_cpu(x) const_cpu_to_le16(x)
#define const_le32_to_cpu(x) const_cpu_to_le32(x)
#define const_le64_to_cpu(x) const_cpu_to_le64(x)

#define cpu_to_be16(x) const_cpu_to_be16(x)
#define cpu_to_be32(x) const_cpu_to_be32(x)
#define cpu_to_be64(x) const_cpu_to_be64(x)
#define cpu_to_le16(x) const_cpu_to_le16(x)
#define cpu_to_le32(x) const_cpu_to_le32(x)
#define cpu_to_le64(x) const_cpu_to_le64(x)

#define be16_to_cpu(x) const_cpu_to_be16(x)
#define be32_to_cpu(x) const_cpu_to_be32(x)
#define be64_to_cpu(x) const_cpu_to_be64(x)
#define le16_to_cpu(x) const_cpu_to_le16(x)
#define le32_to_cpu(x) const_cpu_to_le32(x)
#define le64_to_cpu(x) const_cpu_to_le64(x)

/* NOLINTEND(bugprone-reserved-identifier,cert-dcl37-c,cert-dcl51-cpp) */

#ifdef __cplusplus
}
#endif

#endif
