// wire.h - what travels on the bus's socket, for both of its ends.
#pragma once

#include <sys/socket.h>
#include <sys/un.h>
#include <ubusmsg.h>

#include <cerrno>
#include <cstddef>
#include <cstdint>
#include <cstring>

namespace ubus {

constexpr const char* kSocketPath = "/var/run/ubus/ubus.sock";

// False, with errno, for a path that is too long.
inline bool socket_address(const char* path, sockaddr_un* address) {
    *address = {};
    address->sun_family = AF_UNIX;
    const size_t length = strlen(path);
    if (length >= sizeof(address->sun_path)) {
        errno = ENAMETOOLONG;
        return false;
    }
    memcpy(address->sun_path, path, length);
    return true;
}

// For trees by ids.
inline int compare_ids(const void* k1, const void* k2, void* /*ptr*/) {
    const uint32_t first = *static_cast<const uint32_t*>(k1);
    const uint32_t second = *static_cast<const uint32_t*>(k2);
    return (first > second) - (first < second);
}

// A message on the wire: the header, then one attribute of this size at most, its own header
// included.
constexpr size_t kMaxBody = size_t{1024} * 1024;

struct WireHeader {
    ubus_msghdr hdr;
    uint32_t id_len;  // the attribute's own header
};
static_assert(sizeof(WireHeader) == 12);

inline WireHeader wire_header(uint8_t type, uint16_t seq, uint32_t peer, const blob_attr* body) {
    return {{0, type, cpu_to_be16(seq), cpu_to_be32(peer)}, body->id_len};
}

// The body's size; 0 for what cannot be a message.
inline size_t body_size(const WireHeader& header) {
    const size_t size = be32_to_cpu(header.id_len) & BLOB_ATTR_LEN_MASK;
    if (header.hdr.version != 0 || size < sizeof(blob_attr) || size > kMaxBody) return 0;
    return size;
}

// What each attribute of a message must be, by UBUS_ATTR_; the validate function is never used.
constexpr blob_attr_info kAttributes[UBUS_ATTR_MAX] = {
    {BLOB_ATTR_UNSPEC, 0, 0, nullptr},  // UNSPEC
    {BLOB_ATTR_INT32, 0, 0, nullptr},   // STATUS
    {BLOB_ATTR_STRING, 0, 0, nullptr},  // OBJPATH
    {BLOB_ATTR_INT32, 0, 0, nullptr},   // OBJID
    {BLOB_ATTR_STRING, 0, 0, nullptr},  // METHOD
    {BLOB_ATTR_INT32, 0, 0, nullptr},   // OBJTYPE
    {BLOB_ATTR_NESTED, 0, 0, nullptr},  // SIGNATURE
    {BLOB_ATTR_NESTED, 0, 0, nullptr},  // DATA
    {BLOB_ATTR_INT32, 0, 0, nullptr},   // TARGET
    {BLOB_ATTR_INT8, 0, 0, nullptr},    // ACTIVE
    {BLOB_ATTR_INT8, 0, 0, nullptr},    // NO_REPLY
    {BLOB_ATTR_NESTED, 0, 0, nullptr},  // SUBSCRIBERS
    {BLOB_ATTR_STRING, 0, 0, nullptr},  // USER
    {BLOB_ATTR_STRING, 0, 0, nullptr},  // GROUP
};

// A message's attributes by their ids, null where there is none of the right type.
class Attributes {
  public:
    Attributes(blob_attr* body, size_t size) {
        blob_parse_untrusted(body, size, found_, kAttributes, UBUS_ATTR_MAX);
        for (blob_attr*& found : found_) {
            // One that says it has a name has not been checked for it, and is no attribute of ours.
            if (found && blob_is_extended(found)) found = nullptr;
        }
    }

    blob_attr* operator[](ubus_msg_attr id) const { return found_[id]; }
    const char* text(ubus_msg_attr id) const {
        return found_[id] ? blob_get_string(found_[id]) : nullptr;
    }
    // 0 where there is none: no id is 0.
    uint32_t number(ubus_msg_attr id) const { return found_[id] ? blob_get_u32(found_[id]) : 0; }
    bool is_set(ubus_msg_attr id) const { return found_[id] && blob_get_u8(found_[id]); }

  private:
    blob_attr* found_[UBUS_ATTR_MAX];
};

}  // namespace ubus
