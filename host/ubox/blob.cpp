// blob.cpp - building and checking tagged binary data.
#include <libubox/blob.h>

#include <algorithm>
#include <cerrno>
#include <climits>
#include <cstring>

namespace {

constexpr size_t kHeader = sizeof(blob_attr);
constexpr int kGrowth = 256;

constexpr size_t padded(size_t len) {
    return (len + BLOB_ATTR_ALIGN - 1) & ~static_cast<size_t>(BLOB_ATTR_ALIGN - 1);
}

char* bytes(blob_buf* buf) {
    return static_cast<char*>(buf->buf);
}

blob_attr* at(blob_buf* buf, size_t offset) {
    return reinterpret_cast<blob_attr*>(bytes(buf) + offset);
}

size_t offset_of(blob_buf* buf, const blob_attr* attr) {
    return attr ? static_cast<size_t>(reinterpret_cast<const char*>(attr) - bytes(buf)) : 0;
}

bool grow_heap(blob_buf* buf, int minlen) {
    if (minlen > BLOB_ATTR_LEN_MASK - buf->buflen) return false;
    // By a half at least, so that a message of many small attributes is not moved for each of them.
    const int wanted = buf->buflen + std::max(minlen, buf->buflen / 2);
    const int size = (wanted + kGrowth - 1) / kGrowth * kGrowth;
    void* block = realloc(buf->buf, static_cast<size_t>(size));
    if (!block) return false;
    // What fills up between attributes leaves the process with the message.
    memset(static_cast<char*>(block) + buf->buflen, 0, static_cast<size_t>(size - buf->buflen));
    buf->buf = block;
    buf->buflen = size;
    return true;
}

// Begins an attribute at an offset; null without memory.
blob_attr* begin_attr(blob_buf* buf, size_t offset, int id, size_t payload) {
    const size_t len = kHeader + payload;
    if (len > BLOB_ATTR_LEN_MASK || offset + padded(len) > BLOB_ATTR_LEN_MASK) return nullptr;
    const auto missing = static_cast<int>(offset + padded(len)) - buf->buflen;
    if (missing > 0 && !blob_buf_grow(buf, missing)) return nullptr;
    blob_attr* attr = at(buf, offset);
    const auto tag = (static_cast<uint32_t>(id) << BLOB_ATTR_ID_SHIFT) & BLOB_ATTR_ID_MASK;
    attr->id_len = cpu_to_be32(tag | static_cast<uint32_t>(len));
    blob_fill_pad(attr);
    return attr;
}

// The payload's size by BLOB_ATTR_ type where it is fixed, else 0.
constexpr unsigned int kSizes[BLOB_ATTR_LAST] = {0, 0, 0, 0, 1, 2, 4, 8, 8};

bool admits(const blob_attr_info& info, blob_attr* attr) {
    const auto len = static_cast<unsigned int>(blob_len(attr));
    if (info.type < BLOB_ATTR_LAST &&
        !blob_check_type(attr->data, len, static_cast<int>(info.type)))
        return false;
    if (info.minlen && len < info.minlen) return false;
    if (info.maxlen && len > info.maxlen) return false;
    return !info.validate || info.validate(&info, attr);
}

}  // namespace

bool blob_check_type(const void* ptr, unsigned int len, int type) {
    if (type < 0 || type >= BLOB_ATTR_LAST) return false;
    if (kSizes[type]) return len == kSizes[type];
    if (type != BLOB_ATTR_STRING) return true;
    return len > 0 && static_cast<const char*>(ptr)[len - 1] == '\0';
}

int blob_parse(blob_attr* attr, blob_attr** data, const blob_attr_info* info, int max) {
    return blob_parse_untrusted(attr, blob_raw_len(attr), data, info, max);
}

int blob_parse_untrusted(blob_attr* attr, size_t attr_len, blob_attr** data,
                         const blob_attr_info* info, int max) {
    std::fill_n(data, max, nullptr);
    if (attr_len < kHeader || blob_raw_len(attr) < kHeader || blob_raw_len(attr) > attr_len)
        return 0;

    int found = 0;
    blob_attr* pos = nullptr;
    size_t rem = 0;
    blob_for_each_attr(pos, attr, rem) {
        const auto id = static_cast<int>(blob_id(pos));
        if (id >= max || (info && !admits(info[id], pos))) continue;
        if (!data[id]) found++;
        data[id] = pos;
    }
    return found;
}

bool blob_attr_equal(const blob_attr* a1, const blob_attr* a2) {
    if (!a1 || !a2) return false;
    return blob_pad_len(a1) == blob_pad_len(a2) && memcmp(a1, a2, blob_pad_len(a1)) == 0;
}

blob_attr* blob_memdup(const blob_attr* attr) {
    const size_t size = blob_pad_len(attr);
    auto* copy = static_cast<blob_attr*>(malloc(size));
    return copy ? static_cast<blob_attr*>(memcpy(copy, attr, size)) : nullptr;
}

int blob_buf_init(blob_buf* buf, int id) {
    if (!buf->grow) buf->grow = grow_heap;
    buf->head = static_cast<blob_attr*>(buf->buf);
    blob_attr* head = begin_attr(buf, 0, id, 0);
    if (!head) return -ENOMEM;
    buf->head = head;
    return 0;
}

void blob_buf_free(blob_buf* buf) {
    free(buf->buf);
    buf->buf = nullptr;
    buf->head = nullptr;
    buf->buflen = 0;
}

bool blob_buf_grow(blob_buf* buf, int required) {
    const size_t head = offset_of(buf, buf->head);
    if (!buf->grow || !buf->grow(buf, required)) return false;
    buf->head = at(buf, head);
    return true;
}

blob_attr* blob_new(blob_buf* buf, int id, int payload) {
    if (!buf->head || payload < 0) return nullptr;
    const size_t head = offset_of(buf, buf->head);
    const size_t offset = head + blob_pad_len(buf->head);
    blob_attr* attr = begin_attr(buf, offset, id, static_cast<size_t>(payload));
    if (!attr) return nullptr;
    blob_set_raw_len(buf->head, static_cast<unsigned int>(offset - head + blob_pad_len(attr)));
    return attr;
}

blob_attr* blob_put(blob_buf* buf, int id, const void* ptr, unsigned int len) {
    if (len > INT_MAX) return nullptr;
    blob_attr* attr = blob_new(buf, id, static_cast<int>(len));
    if (attr && len) memcpy(attr->data, ptr, len);
    return attr;
}

blob_attr* blob_put_raw(blob_buf* buf, const void* ptr, unsigned int len) {
    if (len < kHeader || !ptr) return nullptr;
    blob_attr* attr = blob_put(buf, 0, static_cast<const char*>(ptr) + kHeader,
                               static_cast<unsigned int>(len - kHeader));
    if (attr) memcpy(attr, ptr, kHeader);
    return attr;
}

// An offset, not a pointer: the buffer may move meanwhile.
void* blob_nest_start(blob_buf* buf, int id) {
    if (!buf->head) return nullptr;
    const size_t outer = offset_of(buf, buf->head);
    blob_attr* attr = blob_new(buf, id, 0);
    if (!attr) return nullptr;
    buf->head = attr;
    return reinterpret_cast<void*>(outer + BLOB_COOKIE);
}

void blob_nest_end(blob_buf* buf, void* cookie) {
    if (!cookie) return;
    const size_t outer = reinterpret_cast<uintptr_t>(cookie) - BLOB_COOKIE;
    const size_t end = offset_of(buf, buf->head) + blob_pad_len(buf->head);
    buf->head = at(buf, outer);
    blob_set_raw_len(buf->head, static_cast<unsigned int>(end - outer));
}

void blob_set_raw_len(blob_attr* attr, unsigned int len) {
    const uint32_t tag = be32_to_cpu(attr->id_len) & ~static_cast<uint32_t>(BLOB_ATTR_LEN_MASK);
    attr->id_len = cpu_to_be32(tag | (len & BLOB_ATTR_LEN_MASK));
}

void blob_fill_pad(blob_attr* attr) {
    const size_t len = blob_raw_len(attr);
    memset(reinterpret_cast<char*>(attr) + len, 0, blob_pad_len(attr) - len);
}
