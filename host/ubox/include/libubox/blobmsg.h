/*
 * blobmsg.h - blobs whose attributes have types and names: the messages of the bus.
 *
 * An element is an extended attribute. Its id is the type; its payload begins with 2 bytes of name
 * length in network order, the name and a 0, filled up to a multiple of 4, and then holds the
 * value. An array's elements have empty names. A message is an attribute, of any id and not
 * extended, that holds elements.
 *
 * Accessors trust the element: check first what comes from elsewhere. blobmsg_parse() checks what
 * it takes.
 */
#ifndef LIBUBOX_BLOBMSG_H
#define LIBUBOX_BLOBMSG_H

#include <stdarg.h>

#include "blob.h"

#ifdef __cplusplus
extern "C" {
#endif

#define BLOBMSG_ALIGN 2
#define BLOBMSG_PADDING(len) (((len) + (1 << BLOBMSG_ALIGN) - 1) & ~((1 << BLOBMSG_ALIGN) - 1))

/* NOLINTBEGIN(bugprone-reserved-identifier,cert-dcl37-c,cert-dcl51-cpp): fixed names */

enum blobmsg_type {
    BLOBMSG_TYPE_UNSPEC, /* in a policy: any */
    BLOBMSG_TYPE_ARRAY,
    BLOBMSG_TYPE_TABLE,
    BLOBMSG_TYPE_STRING,
    BLOBMSG_TYPE_INT64,
    BLOBMSG_TYPE_INT32,
    BLOBMSG_TYPE_INT16,
    BLOBMSG_TYPE_INT8,
    BLOBMSG_TYPE_BOOL = BLOBMSG_TYPE_INT8,
    BLOBMSG_TYPE_DOUBLE,
    __BLOBMSG_TYPE_LAST,
    BLOBMSG_TYPE_LAST = __BLOBMSG_TYPE_LAST - 1,
    BLOBMSG_CAST_INT64 = __BLOBMSG_TYPE_LAST /* in a policy: any integer */
};

/* NOLINTEND(bugprone-reserved-identifier,cert-dcl37-c,cert-dcl51-cpp) */

#ifdef __clang__
#pragma clang diagnostic push
#pragma clang diagnostic ignored "-Wc99-extensions"
#endif

struct blobmsg_hdr {
    uint16_t namelen;
    __extension__ uint8_t name[];
} __packed;

#ifdef __clang__
#pragma clang diagnostic pop
#endif

struct blobmsg_policy {
    const char* name;
    enum blobmsg_type type;
};

/* ---- reading ---- */

static inline int blobmsg_hdrlen(unsigned int namelen) {
    return BLOBMSG_PADDING((int)(sizeof(struct blobmsg_hdr) + namelen + 1));
}

static inline uint16_t blobmsg_namelen(const struct blobmsg_hdr* hdr) {
    return be16_to_cpu(hdr->namelen);
}

static inline const char* blobmsg_name(const struct blob_attr* attr) {
    return attr->data + sizeof(struct blobmsg_hdr);
}

static inline void blobmsg_clear_name(struct blob_attr* attr) {
    attr->data[sizeof(struct blobmsg_hdr)] = '\0';
}

static inline int blobmsg_type(const struct blob_attr* attr) {
    return (int)blob_id(attr);
}

/* The value; of a message, its elements. NULL for NULL. */
static inline void* blobmsg_data(const struct blob_attr* attr) {
    if (!attr) return NULL;
    char* data = (char*)blob_data(attr);
    if (!blob_is_extended(attr)) return data;
    return data + blobmsg_hdrlen(blobmsg_namelen((const struct blobmsg_hdr*)(const void*)data));
}

static inline size_t blobmsg_data_len(const struct blob_attr* attr) {
    if (!attr) return 0;
    return blob_len(attr) - (size_t)((char*)blobmsg_data(attr) - (char*)blob_data(attr));
}

static inline size_t blobmsg_len(const struct blob_attr* attr) {
    return blobmsg_data_len(attr);
}

/* Whether an element is whole: its length, its name (a non-empty one where name is set), and its
 * value by its type, though not the elements inside a table or an array. The _len form reads no
 * byte behind attr + len; the other trusts the attribute's length. */
UBOX_EXPORT bool blobmsg_check_attr(const struct blob_attr* attr, bool name);
UBOX_EXPORT bool blobmsg_check_attr_len(const struct blob_attr* attr, bool name, size_t len);

/* How many elements a table or array holds, -1 where one is not whole or not of the type
 * (BLOBMSG_TYPE_UNSPEC: any). */
UBOX_EXPORT int blobmsg_check_array(const struct blob_attr* attr, int type);
UBOX_EXPORT int blobmsg_check_array_len(const struct blob_attr* attr, int type, size_t len);

/* The same as a yes or no. */
UBOX_EXPORT bool blobmsg_check_attr_list(const struct blob_attr* attr, int type);
UBOX_EXPORT bool blobmsg_check_attr_list_len(const struct blob_attr* attr, int type, size_t len);

/* Finds the elements that the policy names, the first of a name, into tb[0..policy_len-1], NULL
 * where there is none of that name and type. 0, or -1 at the first element that is not whole; tb
 * then has what came before. */
UBOX_EXPORT int blobmsg_parse(const struct blobmsg_policy* policy, int policy_len,
                              struct blob_attr** tb, void* data, unsigned int len);

/* The same by position: the first element goes with the first policy. */
UBOX_EXPORT int blobmsg_parse_array(const struct blobmsg_policy* policy, int policy_len,
                                    struct blob_attr** tb, void* data, unsigned int len);

static inline int blobmsg_parse_attr(const struct blobmsg_policy* policy, int policy_len,
                                     struct blob_attr** tb, struct blob_attr* data) {
    return blobmsg_parse(policy, policy_len, tb, blobmsg_data(data),
                         (unsigned int)blobmsg_len(data));
}

static inline int blobmsg_parse_array_attr(const struct blobmsg_policy* policy, int policy_len,
                                           struct blob_attr** tb, struct blob_attr* data) {
    return blobmsg_parse_array(policy, policy_len, tb, blobmsg_data(data),
                               (unsigned int)blobmsg_len(data));
}

static inline uint8_t blobmsg_get_u8(struct blob_attr* attr) {
    return *(uint8_t*)blobmsg_data(attr);
}

static inline bool blobmsg_get_bool(struct blob_attr* attr) {
    return blobmsg_get_u8(attr) != 0;
}

static inline uint16_t blobmsg_get_u16(struct blob_attr* attr) {
    uint16_t value = 0;
    memcpy(&value, blobmsg_data(attr), sizeof(value));
    return be16_to_cpu(value);
}

static inline uint32_t blobmsg_get_u32(struct blob_attr* attr) {
    uint32_t value = 0;
    memcpy(&value, blobmsg_data(attr), sizeof(value));
    return be32_to_cpu(value);
}

static inline uint64_t blobmsg_get_u64(struct blob_attr* attr) {
    uint64_t value = 0;
    memcpy(&value, blobmsg_data(attr), sizeof(value));
    return be64_to_cpu(value);
}

static inline double blobmsg_get_double(struct blob_attr* attr) {
    const uint64_t bits = blobmsg_get_u64(attr);
    double value = 0;
    memcpy(&value, &bits, sizeof(value));
    return value;
}

/* NULL for NULL. */
static inline char* blobmsg_get_string(struct blob_attr* attr) {
    return (char*)blobmsg_data(attr);
}

/* An integer of any size; 0 for anything else. */
static inline uint64_t blobmsg_cast_u64(struct blob_attr* attr) {
    switch (blobmsg_type(attr)) {
        case BLOBMSG_TYPE_INT64:
            return blobmsg_get_u64(attr);
        case BLOBMSG_TYPE_INT32:
            return blobmsg_get_u32(attr);
        case BLOBMSG_TYPE_INT16:
            return blobmsg_get_u16(attr);
        case BLOBMSG_TYPE_INT8:
            return blobmsg_get_u8(attr);
        default:
            return 0;
    }
}

static inline int64_t blobmsg_cast_s64(struct blob_attr* attr) {
    switch (blobmsg_type(attr)) {
        case BLOBMSG_TYPE_INT64:
            return (int64_t)blobmsg_get_u64(attr);
        case BLOBMSG_TYPE_INT32:
            return (int32_t)blobmsg_get_u32(attr);
        case BLOBMSG_TYPE_INT16:
            return (int16_t)blobmsg_get_u16(attr);
        case BLOBMSG_TYPE_INT8:
            return (int8_t)blobmsg_get_u8(attr);
        default:
            return 0;
    }
}

/* ---- building: 0, or -1 without memory ---- */

static inline int blobmsg_buf_init(struct blob_buf* buf) {
    return blob_buf_init(buf, BLOBMSG_TYPE_TABLE);
}

/* A value as it stands in the message; the name may be NULL. */
UBOX_EXPORT int blobmsg_add_field(struct blob_buf* buf, int type, const char* name,
                                  const void* data, unsigned int len);

static inline int blobmsg_add_u8(struct blob_buf* buf, const char* name, uint8_t val) {
    return blobmsg_add_field(buf, BLOBMSG_TYPE_INT8, name, &val, sizeof(val));
}

static inline int blobmsg_add_u16(struct blob_buf* buf, const char* name, uint16_t val) {
    const uint16_t wire = cpu_to_be16(val);
    return blobmsg_add_field(buf, BLOBMSG_TYPE_INT16, name, &wire, sizeof(wire));
}

static inline int blobmsg_add_u32(struct blob_buf* buf, const char* name, uint32_t val) {
    const uint32_t wire = cpu_to_be32(val);
    return blobmsg_add_field(buf, BLOBMSG_TYPE_INT32, name, &wire, sizeof(wire));
}

static inline int blobmsg_add_u64(struct blob_buf* buf, const char* name, uint64_t val) {
    const uint64_t wire = cpu_to_be64(val);
    return blobmsg_add_field(buf, BLOBMSG_TYPE_INT64, name, &wire, sizeof(wire));
}

static inline int blobmsg_add_double(struct blob_buf* buf, const char* name, double val) {
    uint64_t wire = 0;
    memcpy(&wire, &val, sizeof(wire));
    wire = cpu_to_be64(wire);
    return blobmsg_add_field(buf, BLOBMSG_TYPE_DOUBLE, name, &wire, sizeof(wire));
}

static inline int blobmsg_add_string(struct blob_buf* buf, const char* name, const char* string) {
    return blobmsg_add_field(buf, BLOBMSG_TYPE_STRING, name, string,
                             (unsigned int)strlen(string) + 1);
}

/* A copy of an element. */
static inline int blobmsg_add_blob(struct blob_buf* buf, struct blob_attr* attr) {
    return blobmsg_add_field(buf, blobmsg_type(attr), blobmsg_name(attr), blobmsg_data(attr),
                             (unsigned int)blobmsg_data_len(attr));
}

/* What is added between open and close is inside a new table, or array. The cookie is for close;
 * NULL without memory. */
UBOX_EXPORT void* blobmsg_open_nested(struct blob_buf* buf, const char* name, bool array);

static inline void* blobmsg_open_array(struct blob_buf* buf, const char* name) {
    return blobmsg_open_nested(buf, name, true);
}

static inline void* blobmsg_open_table(struct blob_buf* buf, const char* name) {
    return blobmsg_open_nested(buf, name, false);
}

static inline void blobmsg_close_array(struct blob_buf* buf, void* cookie) {
    blob_nest_end(buf, cookie);
}

static inline void blobmsg_close_table(struct blob_buf* buf, void* cookie) {
    blob_nest_end(buf, cookie);
}

/* A string written in place: room for maxlen bytes and the 0 at the end, then, with the text there,
 * add. Nothing else may be added in between. */
UBOX_EXPORT void* blobmsg_alloc_string_buffer(struct blob_buf* buf, const char* name,
                                              unsigned int maxlen);
UBOX_EXPORT void* blobmsg_realloc_string_buffer(struct blob_buf* buf, unsigned int maxlen);
UBOX_EXPORT void blobmsg_add_string_buffer(struct blob_buf* buf);

/* A formatted string: its length, or -1. */
UBOX_EXPORT int blobmsg_vprintf(struct blob_buf* buf, const char* name, const char* format,
                                va_list arg) __attribute__((format(printf, 3, 0)));
UBOX_EXPORT int blobmsg_printf(struct blob_buf* buf, const char* name, const char* format, ...)
    __attribute__((format(printf, 3, 4)));

/* ---- walks over the elements of a message, a table or an array: rem is a size_t of the caller's
 * ---- */

#define blobmsg_for_each_attr(pos, attr, rem)                          \
    for (rem = (attr) ? blobmsg_data_len(attr) : 0,                    \
        pos = (struct blob_attr*)((attr) ? blobmsg_data(attr) : NULL); \
         blob_attr_fits(pos, (size_t)(rem)); rem -= blob_pad_len(pos), pos = blob_next(pos))

#ifdef __cplusplus
}
#endif

#endif
