#include "tq/ip_address.h"

#include <arpa/inet.h>

#include <algorithm>
#include <array>
#include <cstddef>
#include <cstdio>
#include <cstring>

#include "foundation/guard.h"
#include "foundation/number_reader.h"
#include "foundation/text.h"

static_assert(sizeof(ip_address) == 28);
static_assert(offsetof(ip_address, size) == 4);
static_assert(offsetof(ip_address, form) == 8);
static_assert(offsetof(ip_address, form.v4.prefix_length) == 12);
static_assert(offsetof(ip_address, form.v6.prefix_length) == 24);

namespace {

using tq::NumberReader;

constexpr uint32_t kMaxV4Length = 32;
constexpr uint32_t kMaxV6Length = 128;

// Longer than any address and prefix length of either version.
constexpr size_t kTextSize = 64;

using V4Bytes = std::array<uint8_t, 4>;

// The bytes of a mask, whose first bits are set.
void put_mask(uint8_t* out, size_t size, uint32_t length) {
    for (size_t i = 0; i < size; i++) {
        const uint32_t bits = std::min(length, 8U);
        out[i] = static_cast<uint8_t>(0xff00 >> bits);
        length -= bits;
    }
}

using Octets = std::array<uint32_t, 4>;

bool read_octets(NumberReader& reader, Octets& octets) {
    for (size_t i = 0; i < octets.size(); i++) {
        if (i > 0 && !reader.literal('.')) return false;
        if (!reader.number(octets[i])) return false;
    }
    return true;
}

// False where one of them is no byte.
bool copy_octets(uint8_t* out, const Octets& octets) {
    if ((octets[0] | octets[1] | octets[2] | octets[3]) > UINT8_MAX) return false;
    for (size_t i = 0; i < octets.size(); i++)
        out[i] = static_cast<uint8_t>(octets[i]);
    return true;
}

// Below 256. Optimized for size, a division would be the machine's slow one.
constexpr uint32_t by_ten(uint32_t number) {
    return number * 205 >> 11;
}

static_assert([] {
    for (uint32_t number = 0; number < 256; number++) {
        if (by_ten(number) != number / 10) return false;
    }
    return true;
}());

char* put_number(char* out, uint32_t number) {
    const uint32_t tens = by_ten(number);
    const uint32_t hundreds = by_ten(tens);
    if (hundreds > 0) *out++ = static_cast<char>('0' + hundreds);
    if (tens > 0) *out++ = static_cast<char>('0' + tens - hundreds * 10);
    *out++ = static_cast<char>('0' + number - tens * 10);
    return out;
}

char* put_v4(char* out, const uint8_t* bytes) {
    for (size_t i = 0; i < 4; i++) {
        if (i > 0) *out++ = '.';
        out = put_number(out, bytes[i]);
    }
    return out;
}

// Cuts the text to fit. The buffer's last byte is a terminator in any case.
int deliver(const char* text, const char* end, char* buf, uint32_t size) {
    const auto length = std::min(static_cast<uint32_t>(end - text), size - 1);
    memcpy(buf, text, length);
    buf[length] = '\0';
    buf[size - 1] = '\0';
    return 0;
}

bool is_v4(const ip_address* address) {
    return address && address->version == IP_VERSION_4;
}

bool is_v6(const ip_address* address) {
    return address && address->version == IP_VERSION_6;
}

bool has_v4_mask(const ip_address* address) {
    return is_v4(address) && address->form.v4.prefix_length <= kMaxV4Length;
}

bool is_room(const char* buf, uint32_t size) {
    return buf && tq::is_size(size);
}

int initialize(ip_address* address, int version) {
    if (!address) return -1;
    *address = {};
    address->version = version;
    address->size = sizeof(*address);
    return 0;
}

bool all_zero(const uint8_t* bytes, size_t size) {
    uint32_t bits = 0;
    for (size_t i = 0; i < size; i++)
        bits |= bytes[i];
    return bits == 0;
}

}  // namespace

int ip_init_addr(ip_address* address) {
    return initialize(address, IP_VERSION_NONE);
}

int ip_init_v4_addr(ip_address* address) {
    return initialize(address, IP_VERSION_4);
}

int ip_init_v6_addr(ip_address* address) {
    return initialize(address, IP_VERSION_6);
}

int ip_get_version(const ip_address* address) {
    return address ? address->version : -1;
}

int ip_get_masklen(const ip_address* address, uint32_t* len) {
    if (!len || (!is_v4(address) && !is_v6(address))) return -1;
    *len = is_v4(address) ? address->form.v4.prefix_length : address->form.v6.prefix_length;
    return 0;
}

int ip_get_v4_masklen(const ip_address* address, uint32_t* len) {
    if (!len || !has_v4_mask(address)) return -1;
    *len = address->form.v4.prefix_length;
    return 0;
}

int ip_get_v4_byte_addr(const ip_address* address, uint8_t out[4]) {
    if (!out || !is_v4(address)) return -1;
    memcpy(out, address->form.v4.address, 4);
    return 0;
}

int ip_get_v4_byte_mask(const ip_address* address, uint8_t out[4]) {
    if (!out || !has_v4_mask(address)) return -1;
    put_mask(out, 4, address->form.v4.prefix_length);
    return 0;
}

int ip_get_v4_byte_broadcast(const ip_address* address, uint8_t out[4]) {
    V4Bytes mask;
    if (!out || ip_get_v4_byte_mask(address, mask.data()) != 0) return -1;
    for (size_t i = 0; i < mask.size(); i++)
        out[i] = static_cast<uint8_t>(address->form.v4.address[i] | ~mask[i]);
    return 0;
}

int ip_get_v4_str_addr(const ip_address* address, char* buf, uint32_t size) {
    return is_v4(address) ? v4_byte_addr_to_str(address->form.v4.address, buf, size) : -1;
}

int ip_get_v4_str_mask(const ip_address* address, char* buf, uint32_t size) {
    V4Bytes mask;
    if (ip_get_v4_byte_mask(address, mask.data()) != 0) return -1;
    return v4_byte_addr_to_str(mask.data(), buf, size);
}

int ip_get_v4_str_broadcast(const ip_address* address, char* buf, uint32_t size) {
    V4Bytes broadcast;
    if (ip_get_v4_byte_broadcast(address, broadcast.data()) != 0) return -1;
    return v4_byte_addr_to_str(broadcast.data(), buf, size);
}

int ip_get_v4_str_addr_mask(const ip_address* address, char* buf, uint32_t size) {
    if (!is_room(buf, size) || !has_v4_mask(address)) return -1;
    char text[kTextSize];
    char* end = put_v4(text, address->form.v4.address);
    *end++ = '/';
    return deliver(text, put_number(end, address->form.v4.prefix_length), buf, size);
}

int v4_byte_addr_to_str(const uint8_t address[4], char* buf, uint32_t size) {
    if (!address || !is_room(buf, size)) return -1;
    char text[kTextSize];
    return deliver(text, put_v4(text, address), buf, size);
}

int ip_set_v4_byte_addr(ip_address* address, const uint8_t bytes[4]) {
    if (!address || !bytes) return -1;
    memcpy(address->form.v4.address, bytes, 4);
    address->version = IP_VERSION_4;
    return 0;
}

int ip_set_v4_masklen(ip_address* address, uint32_t len) {
    if (!address || len > kMaxV4Length) return -1;
    address->form.v4.prefix_length = len;
    address->version = IP_VERSION_4;
    return 0;
}

int ip_set_v4_byte_mask(ip_address* address, const uint8_t mask[4]) {
    if (!mask) return -1;
    auto bits = uint32_t{mask[0]} << 24 | uint32_t{mask[1]} << 16 | uint32_t{mask[2]} << 8 |
                uint32_t{mask[3]};
    uint32_t length = 0;
    for (; bits >> 31 != 0; bits <<= 1)
        length++;
    return bits == 0 ? ip_set_v4_masklen(address, length) : -1;
}

int ip_set_v4_str_addr(ip_address* address, const char* text) {
    V4Bytes bytes;
    if (v4_str_to_byte_addr(text, bytes.data()) != 0) return -1;
    return ip_set_v4_byte_addr(address, bytes.data());
}

int ip_set_v4_str_mask(ip_address* address, const char* text) {
    V4Bytes mask;
    if (v4_str_to_byte_addr(text, mask.data()) != 0) return -1;
    return ip_set_v4_byte_mask(address, mask.data());
}

int ip_set_v4_str_addr_mask(ip_address* address, const char* text) {
    if (!address || !text) return -1;
    NumberReader reader(text);
    Octets octets;
    if (!read_octets(reader, octets) || !reader.literal('/')) return -1;
    const std::string_view rest = reader.word();
    if (rest.empty() || !copy_octets(address->form.v4.address, octets)) return -1;
    char word[256];
    const size_t length = std::min(rest.size(), sizeof(word) - 1);
    memcpy(word, rest.data(), length);
    word[length] = '\0';
    address->size = sizeof(*address);
    if (ip_set_v4_str_mask(address, word) == 0) return 0;
    uint32_t prefix_length = 0;
    if (!NumberReader(word).number_up_to(kMaxV4Length, prefix_length)) return -1;
    return ip_set_v4_masklen(address, prefix_length);
}

int v4_str_to_byte_addr(const char* text, uint8_t out[4]) {
    if (!text || !out) return -1;
    NumberReader reader(text);
    Octets octets;
    return read_octets(reader, octets) && copy_octets(out, octets) ? 0 : -1;
}

int v4_get_ip_and_mask(const char* text, char* addr_buf, uint32_t addr_size, char* mask_buf,
                       uint32_t mask_size) {
    if (!text || !is_room(addr_buf, addr_size) || !is_room(mask_buf, mask_size)) return -1;
    NumberReader reader(text);
    Octets octets;
    uint32_t length = 0;
    if (!read_octets(reader, octets) || !reader.literal('/') || !reader.number(length)) return -2;
    V4Bytes bytes;
    if (!copy_octets(bytes.data(), octets) || length > kMaxV4Length) return -3;
    v4_byte_addr_to_str(bytes.data(), addr_buf, addr_size);
    put_mask(bytes.data(), bytes.size(), length);
    return v4_byte_addr_to_str(bytes.data(), mask_buf, mask_size);
}

int ip_set_v6_byte_addr(ip_address* address, const uint8_t bytes[16]) {
    if (!address || !bytes) return -1;
    memcpy(address->form.v6.address, bytes, 16);
    address->version = IP_VERSION_6;
    return 0;
}

int ip_set_v6_masklen(ip_address* address, uint32_t len) {
    if (!address || len > kMaxV6Length) return -1;
    address->form.v6.prefix_length = len;
    address->version = IP_VERSION_6;
    return 0;
}

int ip_get_v6_byte_addr(const ip_address* address, uint8_t out[16]) {
    if (!out || !is_v6(address)) return -1;
    memcpy(out, address->form.v6.address, 16);
    return 0;
}

int ip_address_to_v6_byte_addr(const ip_address* address, uint8_t out[16]) {
    return ip_get_v6_byte_addr(address, out);
}

int ip_get_v6_byte_mask(const ip_address* address, uint8_t out[16]) {
    if (!out || !is_v6(address)) return -1;
    put_mask(out, 16, address->form.v6.prefix_length);
    return 0;
}

int v6_str_to_byte_addr(const char* text, uint8_t out[16]) {
    if (!text || !out) return -1;
    char address[kTextSize];
    const size_t length = strcspn(text, "/");
    if (length >= sizeof(address)) return -2;
    memcpy(address, text, length);
    address[length] = '\0';
    in6_addr parsed;
    if (inet_pton(AF_INET6, address, &parsed) < 1) return -2;
    memcpy(out, &parsed, 16);
    return 0;
}

int v6_str_to_masklen(const char* text, uint32_t* len) {
    if (!text || !len) return -1;
    const char* slash = strchr(text, '/');
    *len = slash ? static_cast<uint32_t>(tq::leading_int(slash + 1)) : kMaxV6Length;
    return 0;
}

int v6_str_to_ip_address(const char* text, ip_address* out) {
    if (!text || ip_init_v6_addr(out) != 0) return -1;
    if (v6_str_to_byte_addr(text, out->form.v6.address) != 0) return -2;
    return v6_str_to_masklen(text, &out->form.v6.prefix_length);
}

int ip_address_to_v6_str(const ip_address* address, char* buf, uint32_t size, int with_mask) {
    if (!address || !is_room(buf, size)) return -1;
    char text[kTextSize];
    inet_ntop(AF_INET6, address->form.v6.address, text, sizeof(text));
    if (with_mask) {
        snprintf(buf, size, "%s/%d", text, static_cast<int>(address->form.v6.prefix_length));
    } else {
        snprintf(buf, size, "%s", text);
    }
    return 0;
}

int ip_address_to_v6_str_addr(const ip_address* address, char* buf, uint32_t size) {
    return ip_address_to_v6_str(address, buf, size, 0);
}

int ip_address_to_v6_str_addr_mask(const ip_address* address, char* buf, uint32_t size) {
    return ip_address_to_v6_str(address, buf, size, 1);
}

int ipv4_is_empty(const ip_address* address) {
    return !is_v4(address) || all_zero(address->form.v4.address, 4) ? 1 : 0;
}

int ipv6_is_empty(const ip_address* address) {
    return !is_v6(address) || all_zero(address->form.v6.address, 16) ? 1 : 0;
}

int ip_is_empty(const ip_address* address) {
    return ipv4_is_empty(address) && ipv6_is_empty(address) ? 1 : 0;
}

int ip_to_str_addr(const ip_address* address, char* buf, uint32_t size) {
    return is_v6(address) ? ip_address_to_v6_str_addr(address, buf, size)
                          : ip_get_v4_str_addr(address, buf, size);
}
