#include "tq/mac.h"

#include <net/if.h>
#include <netinet/in.h>
#include <sys/ioctl.h>
#include <sys/socket.h>
#include <tq/oem.h>

#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <cstring>

#include "foundation/board.h"
#include "foundation/file.h"
#include "foundation/log.h"
#include "foundation/text.h"

namespace {

using tq::UniqueFd;

constexpr int kMacSize = 6;
constexpr uint32_t kLastOctet = kMacSize - 1;

constexpr uint32_t kLanOffset = 1;
constexpr uint32_t kVlanOffset = 2;

// The driver's private ioctl, and what it takes.
constexpr unsigned long kGetExtended = 0x89f8;
constexpr uint32_t kCommandRadioStats = 16;

struct DriverRequest {
    uint32_t command;
    void* buffer;
    uint32_t length;
};
static_assert(sizeof(void*) != 4 || sizeof(DriverRequest) == 12);

bool is_room(const uint8_t* mac, uint32_t len) {
    return mac && static_cast<int>(len) >= kMacSize;
}

int add_to_base(uint8_t* mac, uint32_t len, uint32_t add) {
    if (get_base_mac(mac, len) < 0) return -1;
    mac_offset(mac, kLastOctet, add);
    return 0;
}

// False where the board names none, and where it names -1.
bool read_radio_offset(uint32_t radio, uint32_t& offset) {
    tq::BoardAnswer text;
    if (tq::ask_radio(AP_TYPE_RADIO_MAC_OFFSET, static_cast<int>(radio), text) < 0) {
        puts("get oem mac offset is fail");
        return false;
    }
    offset = static_cast<uint32_t>(tq::leading_int(text));
    return offset != UINT32_MAX;
}

}  // namespace

int get_base_mac(uint8_t* mac, uint32_t len) {
    if (!is_room(mac, len)) return -1;
    return tq_get_oem_board_info(BOARD_INFO_BASE_MAC, mac, kMacSize);
}

int get_wan_mac(uint8_t* mac, uint32_t len) {
    return get_base_mac(mac, len);
}

int get_lan_mac(uint32_t n, uint8_t* mac, uint32_t len) {
    if (add_to_base(mac, len, kLanOffset) != 0) return -1;
    lan_mac_offset(n, mac);
    return 0;
}

int get_vlan_mac(uint8_t* mac, uint32_t len) {
    return add_to_base(mac, len, kVlanOffset);
}

int get_radio_mac(uint32_t radio, uint8_t* mac, int len) {
    uint32_t offset = 0;
    if (!read_radio_offset(radio, offset)) return -1;
    return add_to_base(mac, static_cast<uint32_t>(len), offset);
}

int get_vap_mac(uint32_t radio, uint32_t vap, uint8_t* mac, int len) {
    if (get_radio_mac(radio, mac, len) != 0) return -1;
    vap_mac_offset(vap, mac);
    return 0;
}

void mac_offset(uint8_t* mac, uint32_t octet, uint32_t add) {
    if (!mac || octet > kLastOctet) return;
    uint32_t sum = mac[octet] + add;
    mac[octet] = static_cast<uint8_t>(sum);
    for (uint32_t i = octet; i-- > 0;) {
        sum = (sum >> 8) + mac[i];
        mac[i] = static_cast<uint8_t>(sum);
    }
}

void vap_mac_offset(uint32_t n, uint8_t* mac) {
    if (!mac || n == 0) return;
    const uint32_t high = (mac[0] >> 4) - 1 + n;
    mac[0] = static_cast<uint8_t>((mac[0] & 0x0f) | 0x02 | (high & 0x0f) << 4);
}

void lan_mac_offset(uint32_t n, uint8_t* mac) {
    vap_mac_offset(n, mac);
}

int get_default_ssid(char* dst, int size, int /*ignored*/, int number) {
    if (!dst || size <= 0) return -1;
    uint8_t mac[kMacSize] = {};
    (void)get_base_mac(mac, sizeof(mac));
    snprintf(dst, static_cast<size_t>(size), "tqpelkin-%02x%02x-%d", mac[4], mac[5], number);
    return 0;
}

int get_radio_stats(int radio, void* out) {
    if (radio < 0 || !out) return TQ_FAIL("arguments error\n");
    const UniqueFd socket_fd(socket(AF_INET, SOCK_DGRAM | SOCK_CLOEXEC, 0));
    if (!socket_fd) return TQ_FAIL("create socket fail: %s\n", strerror(errno));
    // A driver that refuses half-way has then written to no buffer of the caller's.
    const tq::HeapText stats(static_cast<char*>(calloc(1, TQ_RADIO_STATS_SIZE)));
    if (!stats) return TQ_FAIL("malloc ol_ath_radiostats buffer fail\n");
    DriverRequest request{kCommandRadioStats, stats.get(), TQ_RADIO_STATS_SIZE};
    ifreq interface {};
    snprintf(interface.ifr_name, sizeof(interface.ifr_name), "wifi%d", radio);
    interface.ifr_data = reinterpret_cast<char*>(&request);
    if (ioctl(socket_fd.get(), kGetExtended, &interface) < 0)
        return TQ_FAIL("ioctl SIOCGATHEXTENDED fail\n");
    memcpy(out, stats.get(), TQ_RADIO_STATS_SIZE);
    return 0;
}
