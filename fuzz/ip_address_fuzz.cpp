// Every reader of address text. The IPv4 reader takes what sscanf takes, and nothing else.
#include <tq/ip_address.h>

#include <array>
#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <string>

#include "sysinfo/scanned_octets.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size);

namespace {

void expect(bool holds) {
    if (!holds) abort();
}

void read_v4(const std::string& text) {
    std::array<uint8_t, 4> bytes{}, expected{};
    expect(v4_str_to_byte_addr(text.c_str(), bytes.data()) == tq_test::scan_octets(text, expected));
    expect(bytes == expected);
}

void read_v4_with_mask(const std::string& text) {
    ip_address address;
    ip_init_addr(&address);
    if (ip_set_v4_str_addr_mask(&address, text.c_str()) == 0) {
        char written[19];
        ip_address back;
        expect(ip_get_v4_str_addr_mask(&address, written, sizeof(written)) == 0);
        ip_init_v4_addr(&back);
        expect(ip_set_v4_str_addr_mask(&back, written) == 0);
        expect(back.form.v4.prefix_length == address.form.v4.prefix_length);
    }
    char host[16], mask[16];
    if (v4_get_ip_and_mask(text.c_str(), host, sizeof(host), mask, sizeof(mask)) == 0) {
        ip_address split;
        expect(ip_set_v4_str_addr(&split, host) == 0);
        expect(ip_set_v4_str_mask(&split, mask) == 0);
    }
}

void read_v6(const std::string& text) {
    ip_address address, back;
    if (v6_str_to_ip_address(text.c_str(), &address) != 0) return;
    char written[64];
    expect(ip_address_to_v6_str_addr(&address, written, sizeof(written)) == 0);
    expect(v6_str_to_ip_address(written, &back) == 0);
    expect(std::to_array(back.form.v6.address) == std::to_array(address.form.v6.address));
}

}  // namespace

int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    std::string text(reinterpret_cast<const char*>(data), size);
    // Every reader ends at the first NUL.
    text.resize(strlen(text.c_str()));
    read_v4(text);
    read_v4_with_mask(text);
    read_v6(text);
    return 0;
}
