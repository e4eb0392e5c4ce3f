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

// The gate to the kernel: a request record and a socket of its own to issue it on.
template <typename Record>
class Request {
  public:
    explicit operator bool() const { return static_cast<bool>(socket_); }
    Record* operator->() { return &record_; }

    // Negative for a failure, errno says which; also where no socket could be opened.
    int issue(unsigned operation) {
        return socket_ ? ioctl(socket_.get(), operation, &record_) : -1;
    }

  private:
    UniqueFd socket_{socket(AF_INET, SOCK_DGRAM | SOCK_CLOEXEC, 0)};
    Record record_{};
};

sockaddr inet_address(const void* four_bytes) {
    sockaddr_in inet{};
    inet.sin_family = AF_INET;
    memcpy(&inet.sin_addr, four_bytes, sizeof(inet.sin_addr));
    sockaddr address{};
    memcpy(&address, &inet, sizeof(address));
    return address;
}

uint32_t address_value(const sockaddr& address) {
    sockaddr_in inet{};
    memcpy(&inet, &address, sizeof(inet));
    return inet.sin_addr.s_addr;
}

class IfRequest : public Request<ifreq> {
  public:
    // A name that fills the record is not terminated in it: the kernel cuts it by itself.
    explicit IfRequest(const char* ifname) {
        memcpy((*this)->ifr_name, ifname, strnlen(ifname, IFNAMSIZ));
    }

    int set_address(unsigned operation, const uint32_t* address) {
        (*this)->ifr_addr = inet_address(address);
        return issue(operation) < 0 ? -1 : 0;
    }

    int set_flags(short flags) {
        (*this)->ifr_flags = flags;
        return issue(SIOCSIFFLAGS) < 0 ? -1 : 0;
    }

    int set_mac(const uint8_t* mac);
};

// Drivers take a hardware address only while the interface is down. Flags that cannot be read are
// no failure: callers set addresses of interfaces that may not be there yet.
int IfRequest::set_mac(const uint8_t* mac) {
    if (issue(SIOCGIFFLAGS) < 0) return 0;
    const short flags = (*this)->ifr_flags;
    if (set_flags(static_cast<short>(flags & ~IFF_UP)) < 0) return -1;
    (*this)->ifr_hwaddr.sa_family = ARPHRD_ETHER;
    memcpy((*this)->ifr_hwaddr.sa_data, mac, kMacSize);
    if (issue(SIOCSIFHWADDR) < 0) return -1;
    return set_flags(flags);
}

int has_flag(const char* ifname, int flag) {
    if (!ifname) return 0;
    IfRequest request(ifname);
    if (request.issue(SIOCGIFFLAGS) < 0) return 0;
    return (request->ifr_flags & flag) != 0;
}

int get_address(const char* ifname, unsigned operation, uint32_t* address) {
    if (!ifname || !address) return -1;
    IfRequest request(ifname);
    if (request.issue(operation) < 0) return -1;
    *address = address_value(request->ifr_addr);
    return 0;
}

int set_address(const char* ifname, unsigned operation, const uint32_t* address) {
    if (!ifname || !address) return -1;
    return IfRequest(ifname).set_address(operation, address);
}

// The columns of a row of the kernel's routing table that are of use here.
struct Route {
    char ifname[32];
    unsigned long gateway;
    unsigned flags;
};

bool read_route(FILE* table, Route& route) {
    unsigned long destination = 0;
    unsigned long mask = 0;
    int reference_count = 0;
    int use = 0;
    int metric = 0;
    int mtu = 0;
    int window = 0;
    int initial_rtt = 0;
    return fscanf(table, "%31s%lx%lx%X%d%d%d%lx%d%d%d\n", route.ifname, &destination,
                  &route.gateway, &route.flags, &reference_count, &use, &metric, &mask, &mtu,
                  &window, &initial_rtt) == 11;
}

bool is_by_gateway(const Route& route) {
    constexpr unsigned kUpByGateway = 3;  // RTF_UP, RTF_GATEWAY
    return (route.flags & kUpByGateway) == kUpByGateway;
}

int change_arp(unsigned operation, const char* ifname, const uint8_t* ip, const uint8_t* mac,
               unsigned flags) {
    Request<arpreq> request;
    request->arp_pa = inet_address(ip);
    if (mac) memcpy(request->arp_ha.sa_data, mac, kMacSize);
    request->arp_flags = static_cast<int>(flags);
    // Not every kernel ends the name by itself here.
    memcpy(request->arp_dev, ifname, strnlen(ifname, sizeof(request->arp_dev) - 1));
    return request.issue(operation) < 0 ? -1 : 0;
}

unsigned arp_flags_or_default(uint32_t flags) {
    return flags == 0 ? ATF_COM : flags;
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
    IfRequest request(ifname);
    if (!request) return -10;
    if (request.issue(SIOCGIFFLAGS) < 0) return -1;
    const int flags = up ? request->ifr_flags | IFF_UP : request->ifr_flags & 0xfffe;
    return request.set_flags(static_cast<short>(flags));
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
    if (!ifname || !mac || len < static_cast<int>(kMacSize)) return -1;
    IfRequest request(ifname);
    if (request.issue(SIOCGIFHWADDR) < 0) return -1;
    memcpy(mac, request->ifr_hwaddr.sa_data, kMacSize);
    return 0;
}

int set_if_mac(const char* ifname, const uint8_t mac[6]) {
    if (!ifname || !mac) return -1;
    IfRequest request(ifname);
    return request ? request.set_mac(mac) : -1;
}

int get_if_index(const char* ifname, uint32_t* index) {
    if (!ifname || !index) return -1;
    IfRequest request(ifname);
    if (request.issue(SIOCGIFINDEX) < 0) return -1;
    *index = static_cast<uint32_t>(request->ifr_ifindex);
    return 0;
}

int set_interface(const char* ifname, const uint32_t* addr, const uint32_t* mask,
                  const uint8_t* mac) {
    if (!ifname) return -1;
    IfRequest request(ifname);
    if (!request) return -1;
    if (addr && request.set_address(SIOCSIFADDR, addr) < 0) return -1;
    if (mask && request.set_address(SIOCSIFNETMASK, mask) < 0) return -1;
    return mac ? request.set_mac(mac) : 0;
}

int set_if_mtu(const char* ifname, uint32_t mtu) {
    if (!ifname) return -1;
    IfRequest request(ifname);
    request->ifr_mtu = static_cast<int>(mtu);
    return request.issue(SIOCSIFMTU) < 0 ? -1 : 0;
}

int get_if_mtu(const char* ifname, uint32_t* mtu) {
    if (!ifname || !mtu) return -1;
    IfRequest request(ifname);
    if (request.issue(SIOCGIFMTU) < 0) return -1;
    *mtu = static_cast<uint32_t>(request->ifr_mtu);
    return 0;
}

int get_if_gateway(const char* ifname, uint32_t* gateway) {
    if (!ifname || !gateway) return -1;
    char buffer[4096];  // as much as the kernel hands out at a time
    const UniqueFile table(fopen("/proc/net/route", "re"));
    if (!table) return -1;
    setvbuf(table.get(), buffer, _IOFBF, sizeof(buffer));
    if (fscanf(table.get(), "%*[^\n]\n") == EOF) return -1;
    Route route{};
    while (read_route(table.get(), route)) {
        if (strcmp(route.ifname, ifname) != 0 || !is_by_gateway(route)) continue;
        *gateway = static_cast<uint32_t>(route.gateway);
        return 0;
    }
    return -1;
}

int add_arp(const char* ifname, const uint8_t ip[4], const uint8_t mac[6], uint32_t flags) {
    if (!ifname || !ip || !mac) return -1;
    return change_arp(SIOCSARP, ifname, ip, mac, arp_flags_or_default(flags));
}

int delete_arp(const char* ifname, const uint8_t ip[4], const uint8_t mac[6], uint32_t flags) {
    if (!ifname || !ip || !mac) return -1;
    return change_arp(SIOCDARP, ifname, ip, mac, arp_flags_or_default(flags));
}

int del_arp_by_ip(const char* ifname, const uint8_t ip[4]) {
    if (!ifname || !ip) return -1;
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
