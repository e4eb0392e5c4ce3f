// netlink_support.h - what the tests of the netlink channels share.
#pragma once

#include <linux/genetlink.h>
#include <linux/netlink.h>
#include <sys/socket.h>
#include <tq/netlink.h>
#include <unistd.h>

#include <cstring>
#include <string>

// Skips a test where no socket of the protocol can be made: qemu-user lets only a few through.
#define TQ_NEEDS_NETLINK(protocol)                                            \
    do {                                                                      \
        const int tq_probe = socket(AF_NETLINK, SOCK_RAW, protocol);          \
        if (tq_probe < 0) GTEST_SKIP() << "no " #protocol " on this machine"; \
        close(tq_probe);                                                      \
    } while (false)

namespace tq_test {

inline void add(std::string& bytes, const auto& value) {
    bytes.append(reinterpret_cast<const char*>(&value), sizeof(value));
}

inline std::string padded(std::string bytes) {
    bytes.resize((bytes.size() + 3) / 4 * 4);
    return bytes;
}

inline std::string attribute(uint16_t type, const std::string& payload) {
    std::string bytes;
    add(bytes, static_cast<uint16_t>(4 + payload.size()));
    add(bytes, type);
    return padded(bytes + payload);
}

inline std::string netlink_header(uint32_t length, uint16_t type, uint16_t flags = 0,
                                  uint32_t sequence = 0, uint32_t port = 0) {
    std::string bytes;
    add(bytes, length);
    add(bytes, type);
    add(bytes, flags);
    add(bytes, sequence);
    add(bytes, port);
    return bytes;
}

// A whole message of a family, with its true length.
inline std::string genl_message(uint16_t family, uint8_t command, const std::string& attributes,
                                uint32_t sequence = 0, uint32_t port = 0, uint16_t flags = 0) {
    const auto length = static_cast<uint32_t>(20 + attributes.size());
    return netlink_header(length, family, flags, sequence, port) + static_cast<char>(command) +
           std::string("\1\0\0", 3) + attributes;
}

}  // namespace tq_test
