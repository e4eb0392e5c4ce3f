/*
 * blob.h - tagged binary data: attributes of an id, a length and a payload, which may be attributes
 * again.
 *
 * An attribute begins with 4 bytes in network order: bit 31 "extended" (blobmsg.h), 7 bits of id,
 * 24 bits of length, which counts the header but not the zero bytes that fill up to the next
 * multiple of 4. Numbers in payloads are in network order, too.
 *
 * Accessors trust the attribute. What comes from elsewhere goes through blob_parse_untrusted() or
 * the _len checks of blobmsg.h first; the walks stay inside the attribute that they are given.
 */
#ifndef LIBUBOX_BLOB_H
#define LIBUBOX_BLOB_H

#include <errno.h>
#include <stdbool.h>
#include <stdint.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>

#include "utils.h"

#ifdef __cplusplus
extern "C" {
#endif

#define BLOB_COOKIE 0x01234567

enum {
    BLOB_ATTR_UNSPEC,
    BLOB_ATTR_NESTED,
    BLOB_ATTR_BINARY,
    BLOB_ATTR_STRING,
    BLOB_ATTR_INT8,
    BLOB_ATTR_INT16,
    BLOB_ATTR_INT32,
    BLOB_ATTR_INT64,
    BLOB_ATTR_DOUBLE,
    BLOB_ATTR_LAST
};

#define BLOB_ATTR_ID_MASK 0x7f000000
#define BLOB_ATTR_ID_SHIFT 24
#define BLOB_ATTR_LEN_MASK 0x00ffffff
#define BLOB_ATTR_ALIGN 4
#define BLOB_ATTR_EXTENDED 0x80000000

/* C++ has flexible arrays as an extension only. */
#ifdef __clang__
#pragma clang diagnostic push
#pragma clang diagnostic ignored "-Wc99-extensions"
#endif

struct blob_attr {
    uint32_t id_len;
    __extension__ char data[];
} __packed;

#ifdef __clang__
#pragma clang diagnostic pop
#endif

/* What an attribute of one id must be: its payload's type, and lengths where they are not 0. */
struct blob_attr_info {
    unsigned int type;
    unsigned int minlen;
    unsigned int maxlen;
    bool (*validate)(const struct blob_attr_info*, struct blob_attr*);
};

/* A message under construction. Begin with all zeros; head is the attribute being built and moves
 * as the buffer grows. */
struct blob_buf {
    struct blob_attr* head;
    bool (*grow)(struct blob_buf* buf, int minlen);
    int buflen;
    void* buf;
};

/* ---- reading ---- */

static inline void* blob_data(const struct blob_attr* attr) {
    return (void*)attr->data;
}

static inline unsigned int blob_id(const struct blob_attr* attr) {
    return (be32_to_cpu(attr->id_len) & BLOB_ATTR_ID_MASK) >> BLOB_ATTR_ID_SHIFT;
}

static inline bool blob_is_extended(const struct blob_attr* attr) {
    return (be32_to_cpu(attr->id_len) & BLOB_ATTR_EXTENDED) != 0;
}

/* Header and payload. */
static inline size_t blob_raw_len(const struct blob_attr* attr) {
    return be32_to_cpu(attr->id_len) & BLOB_ATTR_LEN_MASK;
}

/* The payload. */
static inline size_t blob_len(const struct blob_attr* attr) {
    return blob_raw_len(attr) - sizeof(struct blob_attr);
}

/* Header, payload and what fills up. */
static inline size_t blob_pad_len(const struct blob_attr* attr) {
    return (blob_raw_len(attr) + BLOB_ATTR_ALIGN - 1) & ~(size_t)(BLOB_ATTR_ALIGN - 1);
}

static inline struct blob_attr* blob_next(const struct blob_attr* attr) {
    return (struct blob_attr*)((char*)attr + blob_pad_len(attr));
}

static inline uint8_t blob_get_u8(const struct blob_attr* attr) {
    return (uint8_t)attr->data[0];
}

static inline uint16_t blob_get_u16(const struct blob_attr* attr) {
    uint16_t value = 0;
    memcpy(&value, attr->data, sizeof(value));
    return be16_to_cpu(value);
}

static inline uint32_t blob_get_u32(const struct blob_attr* attr) {
    uint32_t value = 0;
    memcpy(&value, attr->data, sizeof(value));
    return be32_to_cpu(value);
}

static inline uint64_t blob_get_u64(const struct blob_attr* attr) {
    uint64_t value = 0;
    memcpy(&value, attr->data, sizeof(value));
    return be64_to_cpu(value);
}

static inline int8_t blob_get_int8(const struct blob_attr* attr) {
    return (int8_t)blob_get_u8(attr);
}

static inline int16_t blob_get_int16(const struct blob_attr* attr) {
    return (int16_t)blob_get_u16(attr);
}

static inline int32_t blob_get_int32(const struct blob_attr* attr) {
    return (int32_t)blob_get_u32(attr);
}

static inline int64_t blob_get_int64(const struct blob_attr* attr) {
    return (int64_t)blob_get_u64(attr);
}

static inline const char* blob_get_string(const struct blob_attr* attr) {
    return attr->data;
}

/* Whether a payload can be of a BLOB_ATTR_ type: a number has its size, a string ends with its 0.
 */
UBOX_EXPORT bool blob_check_type(const void* ptr, unsigned int len, int type);

/* Sorts the attributes inside attr by id into data[0..max-1], the last of an id counting, and NULL
 * where there is none; ids that are not below max, and what info (or NULL) does not admit, are left
 * out. The result is how many ids were found: 0 where attr itself is no attribute of attr_len bytes
 * at most. The first is for trusted data, whose length is its own. */
UBOX_EXPORT int blob_parse(struct blob_attr* attr, struct blob_attr** data,
                           const struct blob_attr_info* info, int max);
UBOX_EXPORT int blob_parse_untrusted(struct blob_attr* attr, size_t attr_len,
                                     struct blob_attr** data, const struct blob_attr_info* info,
                                     int max);

/* Whether both have the same bytes; two NULLs have not. */
UBOX_EXPORT bool blob_attr_equal(const struct blob_attr* a1, const struct blob_attr* a2);

/* A copy for free(), or NULL without memory. */
UBOX_EXPORT struct blob_attr* blob_memdup(const struct blob_attr* attr);

/* ---- building: each result is NULL, or not 0, without memory ---- */

/* Empties the buffer and begins an attribute of that id, which is never finished: buf->head is
 * always a complete message. 0, or -ENOMEM. */
UBOX_EXPORT int blob_buf_init(struct blob_buf* buf, int id);

UBOX_EXPORT void blob_buf_free(struct blob_buf* buf);

/* Makes room for that many bytes more. */
UBOX_EXPORT bool blob_buf_grow(struct blob_buf* buf, int required);

/* An attribute with an uninitialised payload at the end of head; the next call may move it. */
UBOX_EXPORT struct blob_attr* blob_new(struct blob_buf* buf, int id, int payload);

UBOX_EXPORT struct blob_attr* blob_put(struct blob_buf* buf, int id, const void* ptr,
                                       unsigned int len);

/* Appends an attribute as it is. */
UBOX_EXPORT struct blob_attr* blob_put_raw(struct blob_buf* buf, const void* ptr, unsigned int len);

/* What is put between these two is inside a new attribute. */
UBOX_EXPORT void* blob_nest_start(struct blob_buf* buf, int id);
UBOX_EXPORT void blob_nest_end(struct blob_buf* buf, void* cookie);

UBOX_EXPORT void blob_set_raw_len(struct blob_attr* attr, unsigned int len);

/* Zeroes what fills up behind the payload. */
UBOX_EXPORT void blob_fill_pad(struct blob_attr* attr);

static inline struct blob_attr* blob_put_string(struct blob_buf* buf, int id, const char* str) {
    return blob_put(buf, id, str, (unsigned int)strlen(str) + 1);
}

static inline struct blob_attr* blob_put_u8(struct blob_buf* buf, int id, uint8_t val) {
    return blob_put(buf, id, &val, sizeof(val));
}

static inline struct blob_attr* blob_put_u16(struct blob_buf* buf, int id, uint16_t val) {
    const uint16_t wire = cpu_to_be16(val);
    return blob_put(buf, id, &wire, sizeof(wire));
}

static inline struct blob_attr* blob_put_u32(struct blob_buf* buf, int id, uint32_t val) {
    const uint32_t wire = cpu_to_be32(val);
    return blob_put(buf, id, &wire, sizeof(wire));
}

static inline struct blob_attr* blob_put_u64(struct blob_buf* buf, int id, uint64_t val) {
    const uint64_t wire = cpu_to_be64(val);
    return blob_put(buf, id, &wire, sizeof(wire));
}

#define blob_put_int8 blob_put_u8
#define blob_put_int16 blob_put_u16
#define blob_put_int32 blob_put_u32
#define blob_put_int64 blob_put_u64

/* ---- walks: rem is a size_t of the caller's ---- */

/* NOLINTBEGIN(bugprone-reserved-identifier,cert-dcl37-c,cert-dcl51-cpp): fixed names */

/* Whether a whole attribute begins at pos. */
static inline bool blob_attr_fits(const struct blob_attr* pos, size_t rem) {
    return rem >= sizeof(struct blob_attr) && blob_raw_len(pos) >= sizeof(struct blob_attr) &&
           blob_pad_len(pos) <= rem;
}

/* From attr on, rem bytes in all. */
#define __blob_for_each_attr(pos, attr, rem)                                  \
    for (pos = (struct blob_attr*)(attr); blob_attr_fits(pos, (size_t)(rem)); \
         rem -= blob_pad_len(pos), pos = blob_next(pos))

/* Inside attr, which may be NULL. */
#define blob_for_each_attr(pos, attr, rem)                          \
    for (rem = (attr) ? blob_len(attr) : 0,                         \
        pos = (struct blob_attr*)((attr) ? blob_data(attr) : NULL); \
         blob_attr_fits(pos, (size_t)(rem)); rem -= blob_pad_len(pos), pos = blob_next(pos))

/* NOLINTEND(bugprone-reserved-identifier,cert-dcl37-c,cert-dcl51-cpp) */

#ifdef __cplusplus
}
#endif

#endif
