// blobmsg.cpp - building and checking messages of named, typed elements.
#include <libubox/blobmsg.h>

#include <algorithm>
#include <climits>
#include <cstdarg>
#include <cstring>

namespace {

constexpr size_t kHeader = sizeof(blob_attr);
constexpr size_t kMaxName = UINT16_MAX;

// By blobmsg type; of any length and content where it is nothing else.
constexpr int kBlobTypes[BLOBMSG_TYPE_LAST + 1] = {
    BLOB_ATTR_UNSPEC, BLOB_ATTR_NESTED, BLOB_ATTR_NESTED, BLOB_ATTR_STRING, BLOB_ATTR_INT64,
    BLOB_ATTR_INT32,  BLOB_ATTR_INT16,  BLOB_ATTR_INT8,   BLOB_ATTR_DOUBLE};

// The bytes of a whole attribute that begins within len bytes; 0 where there is none.
size_t whole_attr(const blob_attr* attr, size_t len) {
    if (!attr || len < kHeader) return 0;
    const size_t size = blob_raw_len(attr);
    return size >= kHeader && size <= len ? size : 0;
}

bool whole_name(const blob_attr* attr, bool required) {
    const size_t payload = blob_len(attr);
    if (payload < sizeof(blobmsg_hdr)) return false;
    blobmsg_hdr header = {};
    memcpy(&header, attr->data, sizeof(header));
    const size_t length = blobmsg_namelen(&header);
    if (required && length == 0) return false;
    if (static_cast<size_t>(blobmsg_hdrlen(static_cast<unsigned int>(length))) > payload)
        return false;
    return blobmsg_name(attr)[length] == '\0';
}

bool has_name(const blob_attr* attr, const char* name, size_t length) {
    const auto* header = static_cast<const blobmsg_hdr*>(blob_data(attr));
    return blobmsg_namelen(header) == length && memcmp(blobmsg_name(attr), name, length) == 0;
}

bool is_integer(int type) {
    return type >= BLOBMSG_TYPE_INT64 && type <= BLOBMSG_TYPE_INT8;
}

// The enumeration shares its name with a function.
bool has_type(const blob_attr* attr, enum blobmsg_type wanted) {
    const int type = blobmsg_type(attr);
    if (wanted == BLOBMSG_CAST_INT64) return is_integer(type);
    return wanted == BLOBMSG_TYPE_UNSPEC || type == static_cast<int>(wanted);
}

// An element with an uninitialised value of that size; null without memory.
blob_attr* new_element(blob_buf* buf, int type, const char* name, size_t size) {
    const char* text = name ? name : "";
    const size_t length = strlen(text);
    const auto header_size = static_cast<size_t>(blobmsg_hdrlen(static_cast<unsigned int>(length)));
    if (length > kMaxName || size > INT_MAX - header_size) return nullptr;
    blob_attr* attr = blob_new(buf, type, static_cast<int>(header_size + size));
    if (!attr) return nullptr;
    attr->id_len |= cpu_to_be32(BLOB_ATTR_EXTENDED);
    memset(attr->data, 0, header_size);
    const blobmsg_hdr header = {cpu_to_be16(length)};
    memcpy(attr->data, &header, sizeof(header));
    memcpy(attr->data + sizeof(header), text, length);
    return attr;
}

// An element that blobmsg_alloc_string_buffer() has begun: behind all that head counts.
blob_attr* pending_string(blob_buf* buf) {
    return blob_next(buf->head);
}

}  // namespace

bool blobmsg_check_attr(const blob_attr* attr, bool name) {
    return blobmsg_check_attr_len(attr, name, blob_raw_len(attr));
}

bool blobmsg_check_attr_len(const blob_attr* attr, bool name, size_t len) {
    if (!whole_attr(attr, len) || !blob_is_extended(attr) || !whole_name(attr, name)) return false;
    const int type = blobmsg_type(attr);
    if (type > BLOBMSG_TYPE_LAST) return false;
    return blob_check_type(blobmsg_data(attr), static_cast<unsigned int>(blobmsg_data_len(attr)),
                           kBlobTypes[type]);
}

int blobmsg_check_array(const blob_attr* attr, int type) {
    return blobmsg_check_array_len(attr, type, blob_raw_len(attr));
}

int blobmsg_check_array_len(const blob_attr* attr, int type, size_t len) {
    if (type > BLOBMSG_TYPE_LAST || !blobmsg_check_attr_len(attr, false, len)) return -1;
    const int container = blobmsg_type(attr);
    if (container != BLOBMSG_TYPE_ARRAY && container != BLOBMSG_TYPE_TABLE) return -1;

    int count = 0;
    blob_attr* element = nullptr;
    size_t rem = 0;
    blobmsg_for_each_attr(element, attr, rem) {
        if (type != BLOBMSG_TYPE_UNSPEC && blobmsg_type(element) != type) return -1;
        if (!blobmsg_check_attr_len(element, container == BLOBMSG_TYPE_TABLE, rem)) return -1;
        count++;
    }
    return count;
}

bool blobmsg_check_attr_list(const blob_attr* attr, int type) {
    return blobmsg_check_array(attr, type) >= 0;
}

bool blobmsg_check_attr_list_len(const blob_attr* attr, int type, size_t len) {
    return blobmsg_check_array_len(attr, type, len) >= 0;
}

int blobmsg_parse(const blobmsg_policy* policy, int policy_len, blob_attr** tb, void* data,
                  unsigned int len) {
    std::fill_n(tb, policy_len, nullptr);
    if (!data || !len) return -1;

    auto* element = static_cast<blob_attr*>(data);
    size_t rem = len;
    __blob_for_each_attr(element, data, rem) {
        if (!blobmsg_check_attr_len(element, false, rem)) return -1;
        for (int i = 0; i < policy_len; i++) {
            if (!policy[i].name || tb[i] || !has_type(element, policy[i].type)) continue;
            if (has_name(element, policy[i].name, strlen(policy[i].name))) tb[i] = element;
        }
    }
    return 0;
}

int blobmsg_parse_array(const blobmsg_policy* policy, int policy_len, blob_attr** tb, void* data,
                        unsigned int len) {
    std::fill_n(tb, policy_len, nullptr);

    auto* element = static_cast<blob_attr*>(data);
    size_t rem = len;
    int index = 0;
    __blob_for_each_attr(element, data, rem) {
        if (index == policy_len) break;
        const blobmsg_policy& wanted = policy[index];
        if (!blobmsg_check_attr_len(element, false, rem)) return -1;
        if (has_type(element, wanted.type)) tb[index] = element;
        index++;
    }
    return 0;
}

int blobmsg_add_field(blob_buf* buf, int type, const char* name, const void* data,
                      unsigned int len) {
    blob_attr* attr = new_element(buf, type, name, len);
    if (!attr) return -1;
    if (len) memcpy(blobmsg_data(attr), data, len);
    return 0;
}

void* blobmsg_open_nested(blob_buf* buf, const char* name, bool array) {
    if (!buf->head) return nullptr;
    const auto outer =
        static_cast<size_t>(reinterpret_cast<char*>(buf->head) - static_cast<char*>(buf->buf));
    blob_attr* attr = new_element(buf, array ? BLOBMSG_TYPE_ARRAY : BLOBMSG_TYPE_TABLE, name, 0);
    if (!attr) return nullptr;
    buf->head = attr;
    return reinterpret_cast<void*>(outer + BLOB_COOKIE);
}

// The element is not part of the message before blobmsg_add_string_buffer().
void* blobmsg_alloc_string_buffer(blob_buf* buf, const char* name, unsigned int maxlen) {
    if (!buf->head || maxlen == UINT_MAX) return nullptr;
    const auto size = static_cast<unsigned int>(blob_raw_len(buf->head));
    blob_attr* attr = new_element(buf, BLOBMSG_TYPE_STRING, name, maxlen + 1);
    if (!attr) return nullptr;
    blob_set_raw_len(buf->head, size);
    return blobmsg_data(attr);
}

void* blobmsg_realloc_string_buffer(blob_buf* buf, unsigned int maxlen) {
    blob_attr* attr = pending_string(buf);
    char* text = static_cast<char*>(blobmsg_data(attr));
    const auto needed = static_cast<size_t>(text - static_cast<char*>(buf->buf)) + maxlen + 1;
    if (maxlen > BLOB_ATTR_LEN_MASK || needed > BLOB_ATTR_LEN_MASK) return nullptr;
    const auto missing = static_cast<int>(needed) - buf->buflen;
    // Room for what fills up behind it, too.
    if (missing > 0 && !blob_buf_grow(buf, missing + BLOB_ATTR_ALIGN)) return nullptr;
    attr = pending_string(buf);
    const size_t header = kHeader + blob_len(attr) - blobmsg_data_len(attr);
    blob_set_raw_len(attr, static_cast<unsigned int>(header + maxlen + 1));
    return blobmsg_data(attr);
}

void blobmsg_add_string_buffer(blob_buf* buf) {
    blob_attr* attr = pending_string(buf);
    const size_t room = blobmsg_data_len(attr);
    auto* text = static_cast<char*>(blobmsg_data(attr));
    text[room - 1] = '\0';
    const size_t header = kHeader + blob_len(attr) - room;
    blob_set_raw_len(attr, static_cast<unsigned int>(header + strlen(text) + 1));
    blob_fill_pad(attr);
    const size_t size = blob_pad_len(buf->head) + blob_pad_len(attr);
    blob_set_raw_len(buf->head, static_cast<unsigned int>(size));
}

int blobmsg_vprintf(blob_buf* buf, const char* name, const char* format, va_list arg) {
    va_list again;
    va_copy(again, arg);
    const int length = vsnprintf(nullptr, 0, format, arg);
    void* text = length < 0 ? nullptr
                            : blobmsg_alloc_string_buffer(buf, name, static_cast<unsigned>(length));
    int result = -1;
    if (text) {
        result =
            vsnprintf(static_cast<char*>(text), static_cast<size_t>(length) + 1, format, again);
        blobmsg_add_string_buffer(buf);
    }
    va_end(again);
    return result;
}

int blobmsg_printf(blob_buf* buf, const char* name, const char* format, ...) {
    va_list arguments;
    va_start(arguments, format);
    const int length = blobmsg_vprintf(buf, name, format, arguments);
    va_end(arguments);
    return length;
}
