/* netif.h - network interfaces, the ARP table, gateways and host names, one call each.
 *
 * Each call opens a socket of its own, issues its ioctls and closes it; nothing is kept between
 * calls. None of these functions logs: a failure is the result alone, -1 where nothing else is
 * said, also for a rejected argument. errno is then left as the failing system call set it; a
 * rejected argument leaves it alone. An output is written on success only.
 *
 * IPv4 addresses, masks and gateways are 32-bit values in network byte order, as in sin_addr.
 * Hardware addresses are six bytes, first octet first.
 *
 * At most 16 bytes of an interface name reach the kernel, which looks at 15: a longer name means
 * the interface that its first 15 bytes name.
 *
 * Changes need CAP_NET_ADMIN. A setter that fails leaves what its earlier steps have changed.
 */
#ifndef TQ_NETIF_H
#define TQ_NETIF_H

#include <tq/types.h>

TQ_BEGIN_DECLS

/* The IPv4 addresses of a host, as dotted-quad texts. The caller frees each of the count texts, and
 * then the array. */
typedef struct ip_str_list {
    char **array;   /* the texts; null when there is none */
    uint32_t count; /* how many */
} ip_str_list;

/* 1 when the interface is up (IFF_UP); 0 when it is not, there is none of that name or the kernel
 * could not be asked. */
TQ_API int if_is_up(const char *ifname);

/* 1 when the interface is running (IFF_RUNNING: it is up and its link is); 0 as above. */
TQ_API int if_is_running(const char *ifname);

/* Takes the interface up, or down when up is 0; its other flags stay.
 * 0; -10 when no socket can be opened, which callers tell apart; -1 otherwise. */
TQ_API int set_if_flag(const char *ifname, uint32_t up);

/* The interface's IPv4 address, the first where it has several.
 * -1 also when it has none. */
TQ_API int get_if_addr(const char *ifname, uint32_t *addr);

/* Gives the interface this address in place of the one it has; 0.0.0.0 takes that away. The kernel
 * then chooses the netmask and the broadcast address by the address's class. */
TQ_API int set_if_addr(const char *ifname, const uint32_t *addr);

/* The netmask of the interface's address.
 * -1 also when it has no address. */
TQ_API int get_if_netmask(const char *ifname, uint32_t *mask);

/* Changes that netmask.
 * -1 also for an interface without an address, and for a mask with a hole. */
TQ_API int set_if_netmask(const char *ifname, const uint32_t *mask);

/* The broadcast address that belongs to the interface's address; 0.0.0.0 where none is set.
 * -1 also when the interface has no address. */
TQ_API int get_if_broadcast_addr(const char *ifname, uint32_t *addr);

/* Changes that broadcast address.
 * -1 also for an interface without an address. */
TQ_API int set_if_broadcast_addr(const char *ifname, const uint32_t *addr);

/* Copies the hardware address into mac, of len bytes: six of them are written.
 * -1 also for a len below 6. */
TQ_API int get_if_mac(const char *ifname, uint8_t *mac, int len);

/* Changes the hardware address, with the interface down meanwhile: routes through it are lost.
 * 0, also when its flags cannot be read, as for a name that the kernel does not know: nothing is
 * changed then, and callers rely on the success; -1 when no socket can be opened, or a step is
 * refused. An interface whose address was refused stays down. */
TQ_API int set_if_mac(const char *ifname, const uint8_t mac[6]);

/* The interface's index, 1 or more. */
TQ_API int get_if_index(const char *ifname, uint32_t *index);

/* Sets the address, then the netmask, then the hardware address, each only where its pointer is not
 * null. The hardware address is changed as by set_if_mac, and skipped in silence where the flags
 * cannot be read. The first refusal ends the call with -1; what was set before it stays. */
TQ_API int set_interface(const char *ifname, const uint32_t *addr, const uint32_t *mask,
                         const uint8_t *mac);

/* Change and read the MTU, in bytes; the kernel refuses what the interface cannot carry. */
TQ_API int set_if_mtu(const char *ifname, uint32_t mtu);
TQ_API int get_if_mtu(const char *ifname, uint32_t *mtu);

/* The gateway of the first route in /proc/net/route that goes through the interface and is up and
 * by a gateway, whatever its destination.
 * -1 when there is none, and when a row before it is not of the kernel's form. Names are compared
 * whole here. */
TQ_API int get_if_gateway(const char *ifname, uint32_t *gateway);

/* Adds the neighbour ip, reachable at mac through the interface, to the ARP table, or changes it.
 * flags are the ATF_ values of net/if_arp.h; 0 means ATF_COM, an entry that the kernel forgets in
 * time (ATF_PERM: one that stays). The hardware address's family is left 0, which the kernel takes
 * for the interface's own. A name of 16 bytes or more is cut to 15. */
TQ_API int add_arp(const char *ifname, const uint8_t ip[4], const uint8_t mac[6], uint32_t flags);

/* Deletes the neighbour's entry, whatever its hardware address: Linux compares neither that nor
 * flags, but for ATF_PUBL, with which it is a published entry that is deleted.
 * -1 also when there is no such entry. */
TQ_API int delete_arp(const char *ifname, const uint8_t ip[4], const uint8_t mac[6],
                      uint32_t flags);
TQ_API int del_arp_by_ip(const char *ifname, const uint8_t ip[4]);

/* The first IPv4 address of the host. The resolver is gethostbyname(3), which blocks, and is not
 * re-entrant: a caller with threads lets only one at a time into these two functions.
 * -1 when the name has no IPv4 address or nobody can tell. */
TQ_API int get_ip_by_hostname(const char *name, uint32_t *addr);

/* All IPv4 addresses of the host, in the resolver's order.
 * -1 also when memory runs out. A call that fails leaves an empty list, with nothing to free; only
 * a null argument leaves it alone. What the list held before is not freed. */
TQ_API int get_ip_list_by_hostname(const char *name, ip_str_list *list);

TQ_END_DECLS

#endif /* TQ_NETIF_H */
