#include "tq/netif.h"

#include <arpa/inet.h>
#include <net/if.h>
#include <net/if_arp.h>
#include <netdb.h>
#include <netinet/in.h>
#include <sys/ioctl.h>
#include <sys/socket.h>

#include <cstddef>
#include <cstdio>
#include <cstdlib>
#include <cstring>

#include "foundation/file.h"

namespace {

using tq::UniqueFd;
using tq::UniqueFile;

constexpr size_t kMacSize = 6;

static_assert(offsetof(ip_str_list, array) == 0 && offsetof(ip_str_list, count) == sizeof(void*));

UniqueFd open_socket() {
    return UniqueFd(socket(AF_INET, SOCK_DGRAM | SOCK_CLOEXEC, 0));
}

// On a socket of its own. 0, or -1, where errno says why.
int issue_once(unsigned operation, void* request) {
    const UniqueFd sock = open_socket();
    return sock && ioctl(sock.get(), operation, request) >= 0 ? 0 : -1;
}

// A name that fills the record is not terminated in it: the kernel cuts it by itself.
void start(ifreq& request, const char* ifname) {
    memset(&request, 0, sizeof(request));
    memcpy(request.ifr_name, ifname, strnlen(ifname, IFNAMSIZ));
}

int query(const char* ifname, unsigned operation, ifreq& request) {
    if (!ifname) return -1;
    start(request, ifname);
    return issue_once(operation, &request);
}

constexpr size_t kInetOffset = offsetof(sockaddr_in, sin_addr);

// Into a cleared record.
void put_inet(sockaddr& address, const void* four_bytes) {
    address.sa_family = AF_INET;
    memcpy(reinterpret_cast<char*>(&address) + kInetOffset, four_bytes, sizeof(in_addr));
}

int set_address(int sock, ifreq& request, unsigned operation, const uint32_t* address) {
    put_inet(request.ifr_addr, address);
    return ioctl(sock, operation, &request);
}

int set_flags(int sock, ifreq& request, int flags) {
    request.ifr_flags = static_cast<short>(flags);
    return ioctl(sock, SIOCSIFFLAGS, &request) < 0 ? -1 : 0;
}

// Drivers take a hardware address only while the interface is down. Flags that cannot be read are
// no failure: callers set addresses of interfaces that may not be there yet.
int set_mac(int sock, ifreq& request, const uint8_t* mac) {
    if (ioctl(sock, SIOCGIFFLAGS, &request) < 0) return 0;
    const short flags = request.ifr_flags;
    if (set_flags(sock, request, flags & ~IFF_UP) < 0) return -1;
    request.ifr_hwaddr.sa_family = ARPHRD_ETHER;
    memcpy(request.ifr_hwaddr.sa_data, mac, kMacSize);
    if (ioctl(sock, SIOCSIFHWADDR, &request) < 0) return -1;
    return set_flags(sock, request, flags);
}

int has_flag(const char* ifname, int flag) {
    ifreq request;
    if (query(ifname, SIOCGIFFLAGS, request) < 0) return 0;
    return (request.ifr_flags & flag) != 0;
}

int get_address(const char* ifname, unsigned operation, uint32_t* address) {
    ifreq request;
    if (!address || query(ifname, operation, request) < 0) return -1;
    memcpy(address, reinterpret_cast<char*>(&request.ifr_addr) + kInetOffset, sizeof(*address));
    return 0;
}

int set_address(const char* ifname, unsigned operation, const uint32_t* address) {
    if (!ifname || !address) return -1;
    ifreq request;
    start(request, ifname);
    put_inet(request.ifr_addr, address);
    return issue_once(operation, &request);
}

// Looks through the kernel's routing table, behind its header.
int find_gateway(FILE* table, const char* ifname, uint32_t* gateway) {
    constexpr unsigned kUpByGateway = 3;  // RTF_UP, RTF_GATEWAY
    if (fscanf(table, "%*[^\n]\n") == EOF) return -1;
    for (;;) {
        char name[32];
        unsigned long address = 0;
        unsigned flags = 0;
        int end = 0;  // of a row that has all of its columns
        const int read =
            fscanf(table, "%31s%*x%lx%X%*d%*d%*d%*x%*d%*d%*d%n\n", name, &address, &flags, &end);
        if (read != 3 || end == 0) return -1;
        if (strcmp(name, ifname) != 0 || (flags & kUpByGateway) != kUpByGateway) continue;
        *gateway = static_cast<uint32_t>(address);
        return 0;
    }
}

// Without a hardware address there are no flags, either.
int change_arp(unsigned operation, const char* ifname, const uint8_t* ip, const uint8_t* mac,
               uint32_t flags) {
    if (!ifname || !ip) return -1;
    arpreq request = {};
    put_inet(request.arp_pa, ip);
    if (mac) {
        memcpy(request.arp_ha.sa_data, mac, kMacSize);
        request.arp_flags = flags == 0 ? ATF_COM : static_cast<int>(flags);
    }
    // Not every kernel ends the name by itself here.
    memcpy(request.arp_dev, ifname, strnlen(ifname, sizeof(request.arp_dev) - 1));
    return issue_once(operation, &request);
}

// The host's IPv4 addresses, in a record of the resolver's; null where there are none.
const hostent* resolve(const char* name) {
    const hostent* host = gethostbyname(name);
    if (!host || host->h_addrtype != AF_INET || !host->h_addr_list[0]) return nullptr;
    return host;
}

uint32_t count_of(char* const* addresses) {
    uint32_t count = 0;
    while (addresses[count])
        count++;
    return count;
}

char* dotted_quad(const void* address) {
    char* text = static_cast<char*>(malloc(INET_ADDRSTRLEN));
    if (text) inet_ntop(AF_INET, address, text, INET_ADDRSTRLEN);
    return text;
}

void free_list(ip_str_list* list) {
    for (uint32_t i = 0; i < list->count; i++)
        free(list->array[i]);
    free(static_cast<void*>(list->array));
    *list = {};
}

}  // namespace

int if_is_up(const char* ifname) {
    return has_flag(ifname, IFF_UP);
}

int if_is_running(const char* ifname) {
    return has_flag(ifname, IFF_RUNNING);
}

int set_if_flag(const char* ifname, uint32_t up) {
    if (!ifname) return -1;
    const UniqueFd sock = open_socket();
    if (!sock) return -10;
    ifreq request;
    start(request, ifname);
    if (ioctl(sock.get(), SIOCGIFFLAGS, &request) < 0) return -1;
    const int flags = request.ifr_flags;
    return set_flags(sock.get(), request, up ? flags | IFF_UP : flags & 0xfffe);
}

int get_if_addr(const char* ifname, uint32_t* addr) {
    return get_address(ifname, SIOCGIFADDR, addr);
}

int set_if_addr(const char* ifname, const uint32_t* addr) {
    return set_address(ifname, SIOCSIFADDR, addr);
}

int get_if_netmask(const char* ifname, uint32_t* mask) {
    return get_address(ifname, SIOCGIFNETMASK, mask);
}

int set_if_netmask(const char* ifname, const uint32_t* mask) {
    return set_address(ifname, SIOCSIFNETMASK, mask);
}

int get_if_broadcast_addr(const char* ifname, uint32_t* addr) {
    return get_address(ifname, SIOCGIFBRDADDR, addr);
}

int set_if_broadcast_addr(const char* ifname, const uint32_t* addr) {
    return set_address(ifname, SIOCSIFBRDADDR, addr);
}

int get_if_mac(const char* ifname, uint8_t* mac, int len) {
    ifreq request;
    if (!mac || len < static_cast<int>(kMacSize)) return -1;
    if (query(ifname, SIOCGIFHWADDR, request) < 0) return -1;
    memcpy(mac, request.ifr_hwaddr.sa_data, kMacSize);
    return 0;
}

int set_if_mac(const char* ifname, const uint8_t mac[6]) {
    return mac ? set_interface(ifname, nullptr, nullptr, mac) : -1;
}

int get_if_index(const char* ifname, uint32_t* index) {
    ifreq request;
    if (!index || query(ifname, SIOCGIFINDEX, request) < 0) return -1;
    *index = static_cast<uint32_t>(request.ifr_ifindex);
    return 0;
}

int set_interface(const char* ifname, const uint32_t* addr, const uint32_t* mask,
                  const uint8_t* mac) {
    if (!ifname) return -1;
    const UniqueFd sock = open_socket();
    if (!sock) return -1;
    ifreq request;
    start(request, ifname);
    if (addr && set_address(sock.get(), request, SIOCSIFADDR, addr) < 0) return -1;
    if (mask && set_address(sock.get(), request, SIOCSIFNETMASK, mask) < 0) return -1;
    return mac ? set_mac(sock.get(), request, mac) : 0;
}

int set_if_mtu(const char* ifname, uint32_t mtu) {
    if (!ifname) return -1;
    ifreq request;
    start(request, ifname);
    request.ifr_mtu = static_cast<int>(mtu);
    return issue_once(SIOCSIFMTU, &request);
}

int get_if_mtu(const char* ifname, uint32_t* mtu) {
    ifreq request;
    if (!mtu || query(ifname, SIOCGIFMTU, request) < 0) return -1;
    *mtu = static_cast<uint32_t>(request.ifr_mtu);
    return 0;
}

int get_if_gateway(const char* ifname, uint32_t* gateway) {
    if (!ifname || !gateway) return -1;
    char buffer[4096];  // as much as the kernel hands out at a time
    const UniqueFile table(fopen("/proc/net/route", "re"));
    if (!table) return -1;
    setvbuf(table.get(), buffer, _IOFBF, sizeof(buffer));
    return find_gateway(table.get(), ifname, gateway);
}

int add_arp(const char* ifname, const uint8_t ip[4], const uint8_t mac[6], uint32_t flags) {
    return mac ? change_arp(SIOCSARP, ifname, ip, mac, flags) : -1;
}

int delete_arp(const char* ifname, const uint8_t ip[4], const uint8_t mac[6], uint32_t flags) {
    return mac ? change_arp(SIOCDARP, ifname, ip, mac, flags) : -1;
}

int del_arp_by_ip(const char* ifname, const uint8_t ip[4]) {
    return change_arp(SIOCDARP, ifname, ip, nullptr, 0);
}

int get_ip_by_hostname(const char* name, uint32_t* addr) {
    if (!name || !addr) return -1;
    const hostent* host = resolve(name);
    if (!host || host->h_length != sizeof(*addr)) return -1;
    memcpy(addr, host->h_addr_list[0], sizeof(*addr));
    return 0;
}

int get_ip_list_by_hostname(const char* name, ip_str_list* list) {
    if (!name || !list) return -1;
    *list = {};
    const hostent* host = resolve(name);
    if (!host) return -1;
    const uint32_t count = count_of(host->h_addr_list);
    list->array = static_cast<char**>(calloc(count, sizeof(char*)));
    if (!list->array) return -1;
    for (; list->count < count; list->count++) {
        char* text = dotted_quad(host->h_addr_list[list->count]);
        if (!text) {
            free_list(list);
            return -1;
        }
        list->array[list->count] = text;
    }
    return 0;
}
