// ip_address_test.cpp - addresses, masks and prefix lengths between text, bytes and numbers, beside
// the C library's own conversions.
#include "tq/ip_address.h"

#include <arpa/inet.h>
#include <gmock/gmock.h>

#include <array>
#include <climits>
#include <cstddef>
#include <cstring>
#include <functional>
#include <random>
#include <string>
#include <vector>

#include "support/buffer.h"
#include "support/random.h"
#include "sysinfo/scanned_octets.h"

namespace {

using testing::Each;
using testing::ElementsAre;
using tq_test::Buffer;
using tq_test::kUntouched;
using tq_test::seeded;

using V4 = std::array<uint8_t, 4>;
using V6 = std::array<uint8_t, 16>;

static_assert(sizeof(ip_address) == 28);
static_assert(offsetof(ip_address, version) == 0);
static_assert(offsetof(ip_address, size) == 4);
static_assert(offsetof(ip_address, form.v4.address) == 8);
static_assert(offsetof(ip_address, form.v4.prefix_length) == 12);
static_assert(offsetof(ip_address, form.v6.address) == 8);
static_assert(offsetof(ip_address, form.v6.prefix_length) == 24);

// Fewer where a processor is emulated or every access is checked.
#if defined(__mips__) || defined(TQ_SANITIZED)
constexpr int kRandomAddresses = 20'000;
#else
constexpr int kRandomAddresses = 1'000'000;
#endif

ip_address untouched_address() {
    ip_address address;
    memset(static_cast<void*>(&address), kUntouched, sizeof(address));
    return address;
}

std::string bytes_of(const ip_address& address) {
    return {reinterpret_cast<const char*>(&address), sizeof(address)};
}

bool operator==(const ip_address& a, const ip_address& b) {
    return bytes_of(a) == bytes_of(b);
}

ip_address v4(const V4& bytes, uint32_t length) {
    ip_address address;
    ip_init_v4_addr(&address);
    memcpy(address.form.v4.address, bytes.data(), bytes.size());
    address.form.v4.prefix_length = length;
    return address;
}

ip_address v6(const V6& bytes, uint32_t length) {
    ip_address address;
    ip_init_v6_addr(&address);
    memcpy(address.form.v6.address, bytes.data(), bytes.size());
    address.form.v6.prefix_length = length;
    return address;
}

constexpr V4 kBytes = {192, 168, 1, 10};
constexpr V6 kLinkLocal = {0xfe, 0x80, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 1};

// The text that a writer gives, or "(result)" where it fails.
std::string text_of(const std::function<int(char*, uint32_t)>& writer) {
    Buffer buffer(64);
    const int result = writer(buffer.data(), 64);
    return result == 0 ? buffer.text() : "(" + std::to_string(result) + ")";
}

// The bytes that a call gives, and no more.
template <typename Bytes>
Bytes given_by(const std::function<int(uint8_t*)>& call) {
    Bytes bytes;
    Buffer buffer(bytes.size());
    EXPECT_EQ(call(reinterpret_cast<uint8_t*>(buffer.data())), 0);
    EXPECT_TRUE(buffer.guard_holds());
    memcpy(bytes.data(), buffer.data(), bytes.size());
    return bytes;
}

V4 mask_of(uint32_t length) {
    const uint32_t bits = htonl(length == 0 ? 0 : UINT32_MAX << (32 - length));
    V4 mask;
    memcpy(mask.data(), &bits, mask.size());
    return mask;
}

std::string dotted(const V4& bytes) {
    char text[INET_ADDRSTRLEN];
    return inet_ntop(AF_INET, bytes.data(), text, sizeof(text));
}

// initialisers

TEST(IpAddressTest, InitialisersClearTheRecordAndSetSizeAndVersion) {
    const std::vector<std::pair<int (*)(ip_address*), int>> initialisers = {
        {ip_init_addr, -1}, {ip_init_v4_addr, 0}, {ip_init_v6_addr, 1}};
    for (const auto& [initialise, version] : initialisers) {
        ip_address address = untouched_address();
        EXPECT_EQ(initialise(&address), 0);
        EXPECT_EQ(address.version, version);
        EXPECT_EQ(address.size, 28U);
        EXPECT_THAT(address.form.v6.address, Each(0));
        EXPECT_EQ(address.form.v6.prefix_length, 0U);
        EXPECT_EQ(initialise(nullptr), -1);
    }
}

TEST(IpAddressTest, NewRecordIsEmptyAndHasNoText) {
    ip_address address;
    ip_init_addr(&address);
    EXPECT_EQ(ipv4_is_empty(&address), 1);
    EXPECT_EQ(ipv6_is_empty(&address), 1);
    EXPECT_EQ(ip_is_empty(&address), 1);
    Buffer buffer(64);
    EXPECT_EQ(ip_to_str_addr(&address, buffer.data(), 64), -1);
    EXPECT_TRUE(buffer.untouched());
}

// readers

TEST(IpAddressTest, GivesTheVersionFieldAsItIs) {
    ip_address address;
    ip_init_v6_addr(&address);
    for (const int version : {-1, 0, 1, 2, 77, INT_MIN}) {
        address.version = version;
        EXPECT_EQ(ip_get_version(&address), version);
    }
    EXPECT_EQ(ip_get_version(nullptr), -1);
}

TEST(IpAddressTest, GivesThePrefixLengthOfEitherVersionUnchecked) {
    uint32_t length = 7;
    ip_address address = v4(kBytes, 33);
    EXPECT_EQ(ip_get_masklen(&address, &length), 0);
    EXPECT_EQ(length, 33U);
    address = v6(kLinkLocal, 200);
    EXPECT_EQ(ip_get_masklen(&address, &length), 0);
    EXPECT_EQ(length, 200U);
    for (const int version : {-1, 2}) {
        address.version = version;
        EXPECT_EQ(ip_get_masklen(&address, &length), -1);
    }
    address.version = 1;
    EXPECT_EQ(ip_get_masklen(&address, nullptr), -1);
    EXPECT_EQ(ip_get_masklen(nullptr, &length), -1);
    EXPECT_EQ(length, 200U);
}

TEST(IpAddressTest, ConvertsEveryPrefixLengthBothWays) {
    for (uint32_t length = 0; length <= 32; length++) {
        const ip_address address = v4(kBytes, length);
        uint32_t read = 99;
        EXPECT_EQ(ip_get_v4_masklen(&address, &read), 0);
        EXPECT_EQ(read, length);

        const V4 mask =
            given_by<V4>([&](uint8_t* out) { return ip_get_v4_byte_mask(&address, out); });
        EXPECT_EQ(mask, mask_of(length));
        EXPECT_EQ(text_of([&](char* buf, uint32_t size) {
                      return ip_get_v4_str_mask(&address, buf, size);
                  }),
                  dotted(mask));

        ip_address back;
        ip_init_addr(&back);
        EXPECT_EQ(ip_set_v4_byte_mask(&back, mask.data()), 0);
        EXPECT_EQ(back.form.v4.prefix_length, length);
        EXPECT_EQ(back.version, 0);

        ip_init_addr(&back);
        EXPECT_EQ(ip_set_v4_str_mask(&back, dotted(mask).c_str()), 0);
        EXPECT_EQ(back.form.v4.prefix_length, length);
        EXPECT_EQ(back.version, 0);

        const V4 broadcast =
            given_by<V4>([&](uint8_t* out) { return ip_get_v4_byte_broadcast(&address, out); });
        for (size_t i = 0; i < 4; i++)
            EXPECT_EQ(broadcast[i], (kBytes[i] | ~mask[i]) & 0xff) << length;
        EXPECT_EQ(text_of([&](char* buf, uint32_t size) {
                      return ip_get_v4_str_broadcast(&address, buf, size);
                  }),
                  dotted(broadcast));
    }
}

TEST(IpAddressTest, BroadcastSetsTheBitsBehindThePrefix) {
    const auto broadcast = [](uint32_t length) {
        const ip_address address = v4(kBytes, length);
        return text_of(
            [&](char* buf, uint32_t size) { return ip_get_v4_str_broadcast(&address, buf, size); });
    };
    EXPECT_EQ(broadcast(24), "192.168.1.255");
    EXPECT_EQ(broadcast(0), "255.255.255.255");
    EXPECT_EQ(broadcast(32), "192.168.1.10");
    EXPECT_EQ(broadcast(33), "(-1)");
}

TEST(IpAddressTest, WritesAddressAndPrefixLength) {
    const ip_address address = v4(kBytes, 24);
    EXPECT_EQ(text_of([&](char* b, uint32_t n) { return ip_get_v4_str_addr(&address, b, n); }),
              "192.168.1.10");
    EXPECT_EQ(text_of([&](char* b, uint32_t n) { return ip_get_v4_str_addr_mask(&address, b, n); }),
              "192.168.1.10/24");
    EXPECT_EQ(text_of([](char* b, uint32_t n) { return v4_byte_addr_to_str(kBytes.data(), b, n); }),
              "192.168.1.10");
    EXPECT_EQ(given_by<V4>([&](uint8_t* out) { return ip_get_v4_byte_addr(&address, out); }),
              kBytes);
}

// Every function that writes text, on a record of its version.
struct TextWriter {
    const char* name;
    ip_address address;
    int (*write)(const ip_address*, char*, uint32_t);
    std::string text;
};

std::vector<TextWriter> text_writers() {
    const ip_address address = v4({255, 254, 253, 252}, 29);
    const ip_address address6 = v6(kLinkLocal, 64);
    return {
        {"ip_get_v4_str_addr", address, ip_get_v4_str_addr, "255.254.253.252"},
        {"ip_get_v4_str_mask", address, ip_get_v4_str_mask, "255.255.255.248"},
        {"ip_get_v4_str_broadcast", address, ip_get_v4_str_broadcast, "255.254.253.255"},
        {"ip_get_v4_str_addr_mask", address, ip_get_v4_str_addr_mask, "255.254.253.252/29"},
        {"v4_byte_addr_to_str", address,
         [](const ip_address* a, char* buf, uint32_t size) {
             return v4_byte_addr_to_str(a ? a->form.v4.address : nullptr, buf, size);
         },
         "255.254.253.252"},
        {"ip_to_str_addr, 4", address, ip_to_str_addr, "255.254.253.252"},
        {"ip_address_to_v6_str_addr", address6, ip_address_to_v6_str_addr, "fe80::1"},
        {"ip_address_to_v6_str_addr_mask", address6, ip_address_to_v6_str_addr_mask, "fe80::1/64"},
        {"ip_to_str_addr, 6", address6, ip_to_str_addr, "fe80::1"},
    };
}

TEST(IpAddressTest, CutsTextToEveryBufferSize) {
    for (const TextWriter& writer : text_writers()) {
        for (int size = 1; size <= 64; size++) {
            Buffer buffer(size);
            const auto room = static_cast<size_t>(size);
            ASSERT_EQ(writer.write(&writer.address, buffer.data(), static_cast<uint32_t>(size)), 0);
            EXPECT_EQ(buffer.text(), writer.text.substr(0, room - 1)) << writer.name;
            EXPECT_TRUE(buffer.guard_holds()) << writer.name << " into " << size;
        }
    }
}

TEST(IpAddressTest, AnIpv4WriterAloneSetsTheLastByteOfTheBufferToo) {
    for (const TextWriter& writer : text_writers()) {
        Buffer buffer(64);
        writer.write(&writer.address, buffer.data(), 64);
        std::string expected(64, kUntouched);
        expected.replace(0, writer.text.size() + 1, writer.text.c_str(), writer.text.size() + 1);
        if (writer.address.version == 0) expected[63] = '\0';
        EXPECT_EQ(buffer.all(), expected) << writer.name;
    }
}

TEST(IpAddressTest, TextWritersRejectBadArguments) {
    for (const TextWriter& writer : text_writers()) {
        Buffer buffer(64);
        EXPECT_EQ(writer.write(nullptr, buffer.data(), 64), -1) << writer.name;
        EXPECT_EQ(writer.write(&writer.address, nullptr, 64), -1) << writer.name;
        // Compared as signed numbers, the two large ones are below zero.
        for (const uint32_t size : {0U, 0x80000000U, UINT32_MAX}) {
            EXPECT_EQ(writer.write(&writer.address, buffer.data(), size), -1)
                << writer.name << " into " << size;
        }
        EXPECT_TRUE(buffer.untouched()) << writer.name;
    }
}

TEST(IpAddressTest, Ipv4ReadersRejectOtherVersions) {
    for (const int version : {-1, 1, 2}) {
        ip_address address = v4(kBytes, 24);
        address.version = version;
        uint32_t length = 7;
        V4 bytes{1, 2, 3, 4};
        Buffer buffer(64);
        EXPECT_EQ(ip_get_v4_masklen(&address, &length), -1);
        EXPECT_EQ(ip_get_v4_byte_addr(&address, bytes.data()), -1);
        EXPECT_EQ(ip_get_v4_byte_mask(&address, bytes.data()), -1);
        EXPECT_EQ(ip_get_v4_byte_broadcast(&address, bytes.data()), -1);
        EXPECT_EQ(ip_get_v4_str_addr(&address, buffer.data(), 64), -1);
        EXPECT_EQ(ip_get_v4_str_mask(&address, buffer.data(), 64), -1);
        EXPECT_EQ(ip_get_v4_str_broadcast(&address, buffer.data(), 64), -1);
        EXPECT_EQ(ip_get_v4_str_addr_mask(&address, buffer.data(), 64), -1);
        EXPECT_EQ(length, 7U);
        EXPECT_THAT(bytes, ElementsAre(1, 2, 3, 4));
        EXPECT_TRUE(buffer.untouched());
    }
}

TEST(IpAddressTest, APrefixLengthAbove32FailsWhereItIsUsed) {
    for (const uint32_t length : {33U, 255U, UINT32_MAX}) {
        const ip_address address = v4(kBytes, length);
        uint32_t read = 7;
        V4 bytes{1, 2, 3, 4};
        Buffer buffer(64);
        EXPECT_EQ(ip_get_v4_masklen(&address, &read), -1);
        EXPECT_EQ(ip_get_v4_byte_mask(&address, bytes.data()), -1);
        EXPECT_EQ(ip_get_v4_byte_broadcast(&address, bytes.data()), -1);
        EXPECT_EQ(ip_get_v4_str_mask(&address, buffer.data(), 64), -1);
        EXPECT_EQ(ip_get_v4_str_broadcast(&address, buffer.data(), 64), -1);
        EXPECT_EQ(ip_get_v4_str_addr_mask(&address, buffer.data(), 64), -1);
        EXPECT_EQ(read, 7U);
        EXPECT_THAT(bytes, ElementsAre(1, 2, 3, 4));
        EXPECT_TRUE(buffer.untouched());
        EXPECT_EQ(ip_get_v4_byte_addr(&address, bytes.data()), 0);
        EXPECT_EQ(ip_get_v4_str_addr(&address, buffer.data(), 64), 0);
    }
}

TEST(IpAddressTest, Ipv4ReadersRejectNull) {
    const ip_address address = v4(kBytes, 24);
    uint32_t length = 0;
    V4 bytes{};
    EXPECT_EQ(ip_get_v4_masklen(nullptr, &length), -1);
    EXPECT_EQ(ip_get_v4_masklen(&address, nullptr), -1);
    EXPECT_EQ(ip_get_v4_byte_addr(nullptr, bytes.data()), -1);
    EXPECT_EQ(ip_get_v4_byte_addr(&address, nullptr), -1);
    EXPECT_EQ(ip_get_v4_byte_mask(nullptr, bytes.data()), -1);
    EXPECT_EQ(ip_get_v4_byte_mask(&address, nullptr), -1);
    EXPECT_EQ(ip_get_v4_byte_broadcast(nullptr, bytes.data()), -1);
    EXPECT_EQ(ip_get_v4_byte_broadcast(&address, nullptr), -1);
}

// writers

TEST(IpAddressTest, Ipv4WritersSetTheVersionAndLeaveTheRest) {
    ip_address expected = untouched_address();
    expected.version = 0;

    ip_address address = untouched_address();
    EXPECT_EQ(ip_set_v4_byte_addr(&address, kBytes.data()), 0);
    ip_address with_bytes = expected;
    memcpy(with_bytes.form.v4.address, kBytes.data(), 4);
    EXPECT_TRUE(address == with_bytes);

    address = untouched_address();
    EXPECT_EQ(ip_set_v4_str_addr(&address, "192.168.1.10"), 0);
    EXPECT_TRUE(address == with_bytes);

    ip_address with_length = expected;
    with_length.form.v4.prefix_length = 8;
    const auto check_length = [&](const std::function<int(ip_address*)>& write) {
        ip_address written = untouched_address();
        EXPECT_EQ(write(&written), 0);
        EXPECT_TRUE(written == with_length);
    };
    const V4 mask{255, 0, 0, 0};
    check_length([](ip_address* a) { return ip_set_v4_masklen(a, 8); });
    check_length([&](ip_address* a) { return ip_set_v4_byte_mask(a, mask.data()); });
    check_length([](ip_address* a) { return ip_set_v4_str_mask(a, "255.0.0.0"); });
}

TEST(IpAddressTest, Ipv4WritersChangeNothingWhenTheyFail) {
    const V4 hole{255, 0, 255, 0};
    const V4 inverted{0, 0, 0, 255};
    const std::vector<std::function<int(ip_address*)>> failures = {
        [](ip_address* a) { return ip_set_v4_byte_addr(a, nullptr); },
        [](ip_address* a) { return ip_set_v4_masklen(a, 33); },
        [](ip_address* a) { return ip_set_v4_masklen(a, UINT32_MAX); },
        [](ip_address* a) { return ip_set_v4_byte_mask(a, nullptr); },
        [&](ip_address* a) { return ip_set_v4_byte_mask(a, hole.data()); },
        [&](ip_address* a) { return ip_set_v4_byte_mask(a, inverted.data()); },
        [](ip_address* a) { return ip_set_v4_str_addr(a, nullptr); },
        [](ip_address* a) { return ip_set_v4_str_addr(a, "192.168.1.256"); },
        [](ip_address* a) { return ip_set_v4_str_addr(a, "192.168.1"); },
        [](ip_address* a) { return ip_set_v4_str_mask(a, nullptr); },
        [](ip_address* a) { return ip_set_v4_str_mask(a, "24"); },
        [](ip_address* a) { return ip_set_v4_str_mask(a, "255.0.255.0"); },
        [](ip_address* a) { return ip_set_v4_str_addr_mask(a, nullptr); },
        [](ip_address* a) { return ip_set_v4_str_addr_mask(a, "192.168.1.10"); },
        [](ip_address* a) { return ip_set_v4_str_addr_mask(a, "192.168.1.10/"); },
        [](ip_address* a) { return ip_set_v4_str_addr_mask(a, "192.168.1.10/ "); },
        [](ip_address* a) { return ip_set_v4_str_addr_mask(a, "192.168.1.256/24"); },
        [](ip_address* a) { return ip_set_v4_str_addr_mask(a, "192.168.1/24"); },
        [](ip_address* a) { return ip_set_v6_byte_addr(a, nullptr); },
        [](ip_address* a) { return ip_set_v6_masklen(a, 129); },
    };
    for (size_t i = 0; i < failures.size(); i++) {
        ip_address address = untouched_address();
        EXPECT_EQ(failures[i](&address), -1) << i;
        EXPECT_TRUE(address == untouched_address()) << i;
    }
}

TEST(IpAddressTest, WritersRejectANullRecord) {
    EXPECT_EQ(ip_set_v4_byte_addr(nullptr, kBytes.data()), -1);
    EXPECT_EQ(ip_set_v4_masklen(nullptr, 8), -1);
    EXPECT_EQ(ip_set_v4_byte_mask(nullptr, mask_of(8).data()), -1);
    EXPECT_EQ(ip_set_v4_str_addr(nullptr, "10.0.0.1"), -1);
    EXPECT_EQ(ip_set_v4_str_mask(nullptr, "255.0.0.0"), -1);
    EXPECT_EQ(ip_set_v4_str_addr_mask(nullptr, "10.0.0.1/8"), -1);
    EXPECT_EQ(ip_set_v6_byte_addr(nullptr, kLinkLocal.data()), -1);
    EXPECT_EQ(ip_set_v6_masklen(nullptr, 64), -1);
}

TEST(IpAddressTest, TakesADottedMaskOrAPrefixLengthBehindTheSlash) {
    for (const char* text : {"192.168.1.10/255.255.255.0", "192.168.1.10/24", "192.168.1.10/ 24",
                             " +192.168.1.10/\t\n24 and more", "192.168.1.10/+24x",
                             "192.168.1.10/024", "192.168.1.10/24.0.0.0", "192.168.1.10/24.0"}) {
        ip_address address = untouched_address();
        EXPECT_EQ(ip_set_v4_str_addr_mask(&address, text), 0) << text;
        EXPECT_EQ(address.version, 0);
        EXPECT_EQ(address.size, 28U);
        EXPECT_EQ(std::to_array(address.form.v4.address), kBytes) << text;
        EXPECT_EQ(address.form.v4.prefix_length, 24U) << text;
    }
}

TEST(IpAddressTest, TakesEveryPrefixLengthAndMaskBehindTheSlash) {
    for (uint32_t length = 0; length <= 32; length++) {
        for (const std::string& mask : {std::to_string(length), dotted(mask_of(length))}) {
            ip_address address;
            ip_init_addr(&address);
            EXPECT_EQ(ip_set_v4_str_addr_mask(&address, ("10.1.2.3/" + mask).c_str()), 0) << mask;
            EXPECT_EQ(address.form.v4.prefix_length, length) << mask;
        }
    }
}

TEST(IpAddressTest, ABadMaskLeavesTheAddressWritten) {
    for (const char* mask :
         {"255.0.255.0", "33", "-1", "x", "/", "-24", "4294967297", "4294967320", "-4294967272",
          "99999999999999999999", "-99999999999999999999", "256.0.0.0", "255. 0.0.0"}) {
        ip_address address = untouched_address();
        EXPECT_EQ(ip_set_v4_str_addr_mask(&address, ("10.0.0.1/" + std::string(mask)).c_str()), -1);
        ip_address expected = untouched_address();
        expected.size = 28;
        const V4 bytes{10, 0, 0, 1};
        memcpy(expected.form.v4.address, bytes.data(), 4);
        EXPECT_TRUE(address == expected) << mask;
    }
}

TEST(IpAddressTest, AZeroWithAMinusIsALengthOfZero) {
    ip_address address;
    ip_init_addr(&address);
    EXPECT_EQ(ip_set_v4_str_addr_mask(&address, "10.0.0.1/-0"), 0);
    EXPECT_EQ(address.form.v4.prefix_length, 0U);
}

TEST(IpAddressTest, LooksAt255CharactersBehindTheSlash) {
    const std::string zeros(253, '0');
    ip_address address;
    ip_init_addr(&address);
    EXPECT_EQ(ip_set_v4_str_addr_mask(&address, ("10.0.0.1/" + zeros + "24").c_str()), 0);
    EXPECT_EQ(address.form.v4.prefix_length, 24U);
    EXPECT_EQ(ip_set_v4_str_addr_mask(&address, ("10.0.0.1/" + zeros + "024").c_str()), 0);
    EXPECT_EQ(address.form.v4.prefix_length, 2U);
    EXPECT_EQ(ip_set_v4_str_addr_mask(&address, ("10.0.0.1/" + zeros + "0024").c_str()), 0);
    EXPECT_EQ(address.form.v4.prefix_length, 0U);
}

// IPv4 text

TEST(IpAddressTest, ReadsDottedTextAndNothingOnFailure) {
    V4 bytes{};
    EXPECT_EQ(v4_str_to_byte_addr("192.168.1.10", bytes.data()), 0);
    EXPECT_EQ(bytes, kBytes);
    for (const char* text : {"", "1", "1.2.3", "1.2.3.", "1.2.3.x", "1,2,3,4", "1.2.3.256",
                             "256.2.3.4", "1.-2.3.4", "1 .2.3.4", "+-1.2.3.4", "- 1.2.3.4",
                             "4294967297.2.3.4", "1.2.3.18446744073709551617", "a.2.3.4"}) {
        EXPECT_EQ(v4_str_to_byte_addr(text, bytes.data()), -1) << text;
    }
    EXPECT_EQ(v4_str_to_byte_addr(nullptr, bytes.data()), -1);
    EXPECT_EQ(bytes, kBytes);
    EXPECT_EQ(v4_str_to_byte_addr("1.2.3.4", nullptr), -1);
}

TEST(IpAddressTest, ReadsSignsBlanksZerosAndTrailingText) {
    for (const char* text :
         {"1.2.3.4x", "1.2.3.4.5", " 1. \t2.\n\v3.\f\r4", "+1.+2.+3.+4", "01.002.0003.00004",
          "1.2.3.-4294967292", "-4294967295.2.3.4", "1.2.3.4/24"}) {
        EXPECT_THAT(given_by<V4>([&](uint8_t* out) { return v4_str_to_byte_addr(text, out); }),
                    ElementsAre(1, 2, 3, 4))
            << text;
    }
}

std::string random_text(std::mt19937& random) {
    static const std::vector<std::string> pieces = {
        "0",          "1",          "9",          "10",
        "99",         "100",        "199",        "255",
        "256",        ".",          ".",          ".",
        ".",          ".",          ".",          "-",
        "+",          " ",          "\t",         "\n",
        "/",          "x",          "00",         "4294967295",
        "4294967296", "4294967297", "8589934593", "\r",
        "%",          "\xff",       "2147483648", "18446744073709551616"};
    std::string text;
    for (auto n = random() % 12; n > 0; n--)
        text += pieces[random() % pieces.size()];
    return text;
}

// Mostly an address, with one thing changed in it.
std::string random_near_address(std::mt19937& random) {
    std::string text;
    for (int i = 0; i < 4; i++) {
        if (i > 0) text += '.';
        text += std::to_string(random() % 300);
    }
    if (random() % 2 == 0)
        text.insert(random() % (text.size() + 1), random_text(random).substr(0, 3));
    return text;
}

TEST(IpAddressTest, ReadsWhatSscanfReads) {
    std::mt19937 random = seeded(1);
    int accepted = 0;
    for (int i = 0; i < kRandomAddresses / 4; i++) {
        const std::string text = i % 2 ? random_text(random) : random_near_address(random);
        V4 bytes{}, expected{};
        const int result = tq_test::scan_octets(text, expected);
        if (v4_str_to_byte_addr(text.c_str(), bytes.data()) != result || bytes != expected)
            FAIL() << text;
        accepted += result == 0;
    }
    EXPECT_GT(accepted, kRandomAddresses / 40);
}

TEST(IpAddressTest, RandomIpv4AddressesGoToTextAndBack) {
    std::mt19937 random = seeded(2);
    for (int i = 0; i < kRandomAddresses; i++) {
        const auto number = static_cast<uint32_t>(random());
        V4 bytes;
        memcpy(bytes.data(), &number, 4);
        char expected[INET_ADDRSTRLEN];
        inet_ntop(AF_INET, bytes.data(), expected, sizeof(expected));
        char text[INET_ADDRSTRLEN];
        V4 back{};
        const bool same = v4_byte_addr_to_str(bytes.data(), text, sizeof(text)) == 0 &&
                          strcmp(text, expected) == 0 &&
                          v4_str_to_byte_addr(text, back.data()) == 0 && back == bytes;
        if (!same) FAIL() << text << " for " << expected;
    }
}

// v4_get_ip_and_mask

struct Split {
    int result;
    std::string address;
    std::string mask;
};

Split split(const char* text) {
    Buffer address(16), mask(16);
    const int result = v4_get_ip_and_mask(text, address.data(), 16, mask.data(), 16);
    if (result != 0) {
        EXPECT_TRUE(address.untouched() && mask.untouched());
        return {result, "", ""};
    }
    return {result, address.text(), mask.text()};
}

TEST(IpAddressTest, SplitsAnAddressAndItsLength) {
    for (uint32_t length = 0; length <= 32; length++) {
        const Split parts = split(("10.1.2.3/" + std::to_string(length)).c_str());
        EXPECT_EQ(parts.result, 0);
        EXPECT_EQ(parts.address, "10.1.2.3");
        EXPECT_EQ(parts.mask, dotted(mask_of(length)));
    }
    EXPECT_EQ(split(" 10. 1.2.3/ 8x").mask, "255.0.0.0");
}

TEST(IpAddressTest, SplitTellsFormFromRange) {
    EXPECT_EQ(split("10.1.2.300/8").result, -3);
    EXPECT_EQ(split("10.1.2.3/33").result, -3);
    EXPECT_EQ(split("10.1.2.3/-1").result, -3);
    EXPECT_EQ(split("10.1.2.3/255.0.0.0").result, -3);
    EXPECT_EQ(split("10.1.2.3/4294967304").result, -3);
    EXPECT_EQ(split("10.1.2.3").result, -2);
    EXPECT_EQ(split("10.1.2.3/").result, -2);
    EXPECT_EQ(split("10.1.2.3 /8").result, -2);
    EXPECT_EQ(split("10.1.2/8").result, -2);
    EXPECT_EQ(split("10.1.2.300").result, -2) << "the form comes before the range";
    EXPECT_EQ(split("").result, -2);
    EXPECT_EQ(split(nullptr).result, -1);
}

TEST(IpAddressTest, SplitCutsBothTextsToTheirBuffers) {
    for (int size = 1; size <= 64; size++) {
        Buffer address(size), mask(65 - size);
        ASSERT_EQ(v4_get_ip_and_mask("10.11.12.13/20", address.data(), static_cast<uint32_t>(size),
                                     mask.data(), static_cast<uint32_t>(65 - size)),
                  0);
        EXPECT_EQ(address.text(),
                  std::string("10.11.12.13").substr(0, static_cast<size_t>(size - 1)));
        EXPECT_EQ(mask.text(),
                  std::string("255.255.240.0").substr(0, static_cast<size_t>(64 - size)));
        EXPECT_TRUE(address.guard_holds() && mask.guard_holds());
    }
}

TEST(IpAddressTest, SplitRejectsBadBuffers) {
    Buffer buffer(16);
    EXPECT_EQ(v4_get_ip_and_mask("10.1.2.3/8", nullptr, 16, buffer.data(), 16), -1);
    EXPECT_EQ(v4_get_ip_and_mask("10.1.2.3/8", buffer.data(), 16, nullptr, 16), -1);
    for (const uint32_t size : {0U, 0x80000000U, UINT32_MAX}) {
        EXPECT_EQ(v4_get_ip_and_mask("10.1.2.3/8", buffer.data(), size, buffer.data(), 16), -1);
        EXPECT_EQ(v4_get_ip_and_mask("10.1.2.3/8", buffer.data(), 16, buffer.data(), size), -1);
    }
    EXPECT_EQ(v4_get_ip_and_mask("", nullptr, 16, buffer.data(), 16), -1);
    EXPECT_EQ(v4_get_ip_and_mask("10.1.2.3/99", buffer.data(), 16, nullptr, 16), -1);
    EXPECT_TRUE(buffer.untouched());
}

// IPv6

TEST(IpAddressTest, Ipv6SettersSetTheVersionAndLeaveTheRest) {
    ip_address address = untouched_address();
    ip_address expected = untouched_address();
    expected.version = 1;
    memcpy(expected.form.v6.address, kLinkLocal.data(), 16);
    EXPECT_EQ(ip_set_v6_byte_addr(&address, kLinkLocal.data()), 0);
    EXPECT_TRUE(address == expected);

    address = untouched_address();
    expected = untouched_address();
    expected.version = 1;
    expected.form.v6.prefix_length = 128;
    EXPECT_EQ(ip_set_v6_masklen(&address, 128), 0);
    EXPECT_TRUE(address == expected);
}

TEST(IpAddressTest, Ipv6BytesComeBackByBothNames) {
    for (const auto read : {ip_get_v6_byte_addr, ip_address_to_v6_byte_addr}) {
        ip_address address = v6(kLinkLocal, 64);
        V6 bytes = given_by<V6>([&](uint8_t* out) { return read(&address, out); });
        EXPECT_EQ(bytes, kLinkLocal);
        EXPECT_EQ(read(&address, nullptr), -1);
        EXPECT_EQ(read(nullptr, bytes.data()), -1);
        for (const int version : {-1, 0, 2}) {
            address.version = version;
            V6 untouched{};
            EXPECT_EQ(read(&address, untouched.data()), -1);
            EXPECT_THAT(untouched, Each(0));
        }
    }
}

TEST(IpAddressTest, Ipv6MaskHasOneBitForEachOfItsLength) {
    for (uint32_t length = 0; length <= 300; length++) {
        const ip_address address = v6(kLinkLocal, length);
        std::array<uint8_t, 17> mask;
        mask.fill(0x5a);
        ASSERT_EQ(ip_get_v6_byte_mask(&address, mask.data()), 0);
        for (uint32_t bit = 0; bit < 128; bit++)
            ASSERT_EQ(mask[bit / 8] >> (7 - bit % 8) & 1, bit < length ? 1 : 0) << length;
        EXPECT_EQ(mask[16], 0x5a);
    }
    const ip_address address = v6(kLinkLocal, UINT32_MAX);
    V6 mask{};
    EXPECT_EQ(ip_get_v6_byte_mask(&address, mask.data()), 0);
    EXPECT_THAT(mask, Each(0xff));
}

TEST(IpAddressTest, Ipv6MaskOf65BitsEndsInAByteOf80) {
    const ip_address address = v6(kLinkLocal, 65);
    V6 mask{};
    ip_get_v6_byte_mask(&address, mask.data());
    EXPECT_EQ(mask, (V6{0xff, 0xff, 0xff, 0xff, 0xff, 0xff, 0xff, 0xff, 0x80}));
}

TEST(IpAddressTest, Ipv6MaskRejectsBadArguments) {
    const ip_address address = v6(kLinkLocal, 64);
    const ip_address other = v4(kBytes, 24);
    V6 mask{};
    EXPECT_EQ(ip_get_v6_byte_mask(&other, mask.data()), -1);
    EXPECT_EQ(ip_get_v6_byte_mask(nullptr, mask.data()), -1);
    EXPECT_EQ(ip_get_v6_byte_mask(&address, nullptr), -1);
    EXPECT_THAT(mask, Each(0));
}

TEST(IpAddressTest, ReadsIpv6TextUpToTheSlash) {
    for (const char* text : {"fe80::1", "fe80::1/64", "FE80:0:0:0:0:0:0:1/", "fe80::0.0.0.1//"}) {
        EXPECT_EQ(given_by<V6>([&](uint8_t* out) { return v6_str_to_byte_addr(text, out); }),
                  kLinkLocal)
            << text;
    }
    V6 bytes{};
    EXPECT_EQ(v6_str_to_byte_addr(("fe80::1/" + std::string(1000, '6')).c_str(), bytes.data()), 0);
    for (const std::string& text :
         {std::string(), std::string("/64"), std::string("192.168.1.10"), std::string("fe80::1::2"),
          std::string("fe80::12345"), std::string(" fe80::1"), std::string("fe80::1 "),
          std::string("fe80::1%eth0"), std::string(63, '0'), std::string(64, '0'),
          std::string(100'000, ':')}) {
        EXPECT_EQ(v6_str_to_byte_addr(text.c_str(), bytes.data()), -2) << text;
    }
    EXPECT_EQ(bytes, kLinkLocal);
    EXPECT_EQ(v6_str_to_byte_addr(nullptr, bytes.data()), -1);
    EXPECT_EQ(v6_str_to_byte_addr("::", nullptr), -1);
}

TEST(IpAddressTest, ReadsAnIpv6LengthWithoutARange) {
    const std::vector<std::pair<const char*, uint32_t>> lengths = {
        {"fe80::1", 128},     {"", 128},       {"fe80::1/64", 64}, {"/0", 0},
        {"fe80::1/200", 200}, {"fe80::1/", 0}, {"fe80::1/x", 0},   {"/ 7/9", 7},
        {"/-1", UINT32_MAX},  {"/64bits", 64}, {"/128", 128},      {"/4294967360", 64}};
    for (const auto& [text, expected] : lengths) {
        uint32_t length = 77;
        EXPECT_EQ(v6_str_to_masklen(text, &length), 0);
        EXPECT_EQ(length, expected) << text;
    }
    uint32_t length = 77;
    EXPECT_EQ(v6_str_to_masklen(nullptr, &length), -1);
    EXPECT_EQ(v6_str_to_masklen("::/1", nullptr), -1);
    EXPECT_EQ(length, 77U);
}

TEST(IpAddressTest, ReadsAnIpv6Record) {
    ip_address address = untouched_address();
    EXPECT_EQ(v6_str_to_ip_address("fe80::1/64", &address), 0);
    EXPECT_TRUE(address == v6(kLinkLocal, 64));
    address = untouched_address();
    EXPECT_EQ(v6_str_to_ip_address("fe80::1", &address), 0);
    EXPECT_TRUE(address == v6(kLinkLocal, 128));
    address = untouched_address();
    EXPECT_EQ(v6_str_to_ip_address("fe80::1/200", &address), 0);
    EXPECT_TRUE(address == v6(kLinkLocal, 200));
}

TEST(IpAddressTest, BadIpv6TextLeavesAnEmptyRecord) {
    ip_address address = untouched_address();
    EXPECT_EQ(v6_str_to_ip_address("fe80::g/64", &address), -2);
    EXPECT_TRUE(address == v6({}, 0));
    address = untouched_address();
    EXPECT_EQ(v6_str_to_ip_address(nullptr, &address), -1);
    EXPECT_TRUE(address == untouched_address());
    EXPECT_EQ(v6_str_to_ip_address("::", nullptr), -1);
}

TEST(IpAddressTest, WritesIpv6TextOfAnyVersion) {
    for (const int version : {-1, 0, 1, 9}) {
        ip_address address = v6(kLinkLocal, 64);
        address.version = version;
        EXPECT_EQ(
            text_of([&](char* b, uint32_t n) { return ip_address_to_v6_str(&address, b, n, 0); }),
            "fe80::1");
        for (const int with_mask : {1, -1, 64}) {
            EXPECT_EQ(text_of([&](char* b, uint32_t n) {
                          return ip_address_to_v6_str(&address, b, n, with_mask);
                      }),
                      "fe80::1/64");
        }
    }
    const ip_address address = v6(kLinkLocal, UINT32_MAX);
    EXPECT_EQ(text_of([&](char* b, uint32_t n) { return ip_address_to_v6_str(&address, b, n, 1); }),
              "fe80::1/-1");
}

TEST(IpAddressTest, RandomIpv6AddressesGoToTextAndBack) {
    std::mt19937 random = seeded(3);
    for (int i = 0; i < kRandomAddresses; i++) {
        V6 bytes{};
        // Runs of zeros are where the short forms differ.
        for (uint8_t& byte : bytes)
            byte = random() % 2 ? static_cast<uint8_t>(random()) : uint8_t{0};
        const ip_address address = v6(bytes, static_cast<uint32_t>(i % 129));
        char expected[INET6_ADDRSTRLEN];
        inet_ntop(AF_INET6, bytes.data(), expected, sizeof(expected));
        char text[64];
        ip_address back;
        const bool same = ip_address_to_v6_str_addr_mask(&address, text, sizeof(text)) == 0 &&
                          text == std::string(expected) + "/" + std::to_string(i % 129) &&
                          v6_str_to_ip_address(text, &back) == 0 && back == address;
        if (!same) FAIL() << text << " for " << expected;
    }
}

// emptiness and dispatch

TEST(IpAddressTest, AnAddressOfZerosIsEmpty) {
    const ip_address zero4 = v4({}, 24);
    const ip_address zero6 = v6({}, 64);
    EXPECT_EQ(ipv4_is_empty(&zero4), 1);
    EXPECT_EQ(ipv6_is_empty(&zero6), 1);
    EXPECT_EQ(ip_is_empty(&zero4), 1);
    EXPECT_EQ(ip_is_empty(&zero6), 1);
    EXPECT_EQ(ipv4_is_empty(nullptr), 1);
    EXPECT_EQ(ipv6_is_empty(nullptr), 1);
    EXPECT_EQ(ip_is_empty(nullptr), 1);
}

TEST(IpAddressTest, AnyAddressBitMakesItNotEmpty) {
    for (size_t bit = 0; bit < 128; bit++) {
        V6 bytes{};
        bytes[bit / 8] = static_cast<uint8_t>(1 << bit % 8);
        const ip_address address = v6(bytes, 0);
        EXPECT_EQ(ipv6_is_empty(&address), 0);
        EXPECT_EQ(ip_is_empty(&address), 0);
        EXPECT_EQ(ipv4_is_empty(&address), 1);
        if (bit >= 32) continue;
        const ip_address short_address = v4({bytes[0], bytes[1], bytes[2], bytes[3]}, 0);
        EXPECT_EQ(ipv4_is_empty(&short_address), 0);
        EXPECT_EQ(ip_is_empty(&short_address), 0);
        EXPECT_EQ(ipv6_is_empty(&short_address), 1);
    }
}

TEST(IpAddressTest, ARecordOfNeitherVersionIsEmpty) {
    for (const int version : {-1, 2, 3, INT_MIN, INT_MAX}) {
        ip_address address = v6(kLinkLocal, 64);
        address.version = version;
        EXPECT_EQ(ip_is_empty(&address), 1);
        EXPECT_EQ(ipv4_is_empty(&address), 1);
        EXPECT_EQ(ipv6_is_empty(&address), 1);
        Buffer buffer(64);
        EXPECT_EQ(ip_to_str_addr(&address, buffer.data(), 64), -1);
        EXPECT_TRUE(buffer.untouched());
    }
}

}  // namespace
