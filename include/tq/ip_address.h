/* ip_address.h - one IPv4 or IPv6 address with its prefix length, and its conversions.
 *
 * The functions are pure: no allocation, no log line, no state. A null pointer, a buffer's size of
 * zero or less (as a signed number) and an address of the wrong version give -1; what else can go
 * wrong is said with each function.
 * Outputs are written on success only, but for ip_set_v4_str_addr_mask and v6_str_to_ip_address.
 *
 * Address and mask bytes are in network order. Text goes into the caller's buffer, cut to fit and
 * always terminated: 16 bytes hold every IPv4 address (19 with a prefix length), 46 every IPv6 one
 * (50 with a prefix length up to 128). An IPv4 writer sets the last byte of the buffer to NUL as
 * well, however short the text is.
 *
 * IPv4 text is read as callers have always written it. Each number may have blanks and one sign
 * before it, and text behind the last one is ignored: "1. +2.3.4x" is 1.2.3.4. Octal and
 * hexadecimal do not exist: "010" is ten. A number beyond 32 bits counts as too large. A negative
 * one is counted down from 2^32, and so too large as a rule, but "-4294967295" is 1.
 */
#ifndef TQ_IP_ADDRESS_H
#define TQ_IP_ADDRESS_H

#include <tq/types.h>

TQ_BEGIN_DECLS

enum { IP_VERSION_NONE = -1, IP_VERSION_4 = 0, IP_VERSION_6 = 1 };

/* The version says which form is valid: the IPv4 prefix length lies where bytes 5 to 8 of an IPv6
 * address are. */
typedef struct ip_address {
    int32_t version; /* IP_VERSION_... */
    uint32_t size;   /* of this record: 28 */
    union {
        struct {
            uint8_t address[4];
            uint32_t prefix_length; /* 0 to 32 */
        } v4;
        struct {
            uint8_t address[16];
            uint32_t prefix_length; /* 0 to 128 */
        } v6;
    } form; /* by the version */
} ip_address;

/* Clear the record and set its size; its version becomes IP_VERSION_NONE, 4 or 6. */
TQ_API int ip_init_addr(ip_address *address);
TQ_API int ip_init_v4_addr(ip_address *address);
TQ_API int ip_init_v6_addr(ip_address *address);

/* The version field, whatever it holds; -1 for a null record. */
TQ_API int ip_get_version(const ip_address *address);

/* The prefix length of either version, as it is stored: it may be out of range. */
TQ_API int ip_get_masklen(const ip_address *address, uint32_t *len);

/* ---- IPv4 readers ----
 *
 * Those that use the prefix length give -1 also when it is above 32. */

/* The prefix length, the address and the netmask. */
TQ_API int ip_get_v4_masklen(const ip_address *address, uint32_t *len);
TQ_API int ip_get_v4_byte_addr(const ip_address *address, uint8_t out[4]);
TQ_API int ip_get_v4_byte_mask(const ip_address *address, uint8_t out[4]);
/* The address with every bit behind the prefix set. */
TQ_API int ip_get_v4_byte_broadcast(const ip_address *address, uint8_t out[4]);

/* The same as text: "192.168.1.10", and with its prefix length "192.168.1.10/24". */
TQ_API int ip_get_v4_str_addr(const ip_address *address, char *buf, uint32_t size);
TQ_API int ip_get_v4_str_mask(const ip_address *address, char *buf, uint32_t size);
TQ_API int ip_get_v4_str_broadcast(const ip_address *address, char *buf, uint32_t size);
TQ_API int ip_get_v4_str_addr_mask(const ip_address *address, char *buf, uint32_t size);

/* Four address bytes as text. */
TQ_API int v4_byte_addr_to_str(const uint8_t address[4], char *buf, uint32_t size);

/* ---- IPv4 writers ----
 *
 * Each sets the version to IPv4 and leaves the rest of the record as it is. */

/* The address. */
TQ_API int ip_set_v4_byte_addr(ip_address *address, const uint8_t bytes[4]);
/* The prefix length; -1 for one above 32. */
TQ_API int ip_set_v4_masklen(ip_address *address, uint32_t len);
/* The prefix length, by its mask; -1 for one that is not leading ones followed by zeros. */
TQ_API int ip_set_v4_byte_mask(ip_address *address, const uint8_t mask[4]);
/* The address; -1 for text that v4_str_to_byte_addr refuses. */
TQ_API int ip_set_v4_str_addr(ip_address *address, const char *text);
/* The prefix length, by its mask in dotted form; -1 for text that is not one. */
TQ_API int ip_set_v4_str_mask(ip_address *address, const char *text);
/* "192.168.1.10/24" or "192.168.1.10/255.255.255.0". What follows the slash, up to a blank and to
 * 255 characters, is tried as a dotted mask first; the number that it starts with is the prefix
 * length otherwise.
 * 0; -1 for an address that is none, which changes nothing, and for a mask that is none: address
 * bytes and size are then written already. */
TQ_API int ip_set_v4_str_addr_mask(ip_address *address, const char *text);

/* ---- IPv4 text ---- */

/* The four bytes of "192.168.1.10"; -1 for fewer than four numbers, or one of 256 or more. */
TQ_API int v4_str_to_byte_addr(const char *text, uint8_t out[4]);

/* Splits "10.1.2.3/8" into "10.1.2.3" and the mask "255.0.0.0". Here the length is a number only.
 * 0; -1 for bad arguments; -2 for fewer than five numbers; -3 for an octet of 256 or more or a
 * length above 32. */
TQ_API int v4_get_ip_and_mask(const char *text, char *addr_buf, uint32_t addr_size, char *mask_buf,
                              uint32_t mask_size);

/* ---- IPv6 ----
 *
 * The setters set the version to IPv6. */

/* The address. */
TQ_API int ip_set_v6_byte_addr(ip_address *address, const uint8_t bytes[16]);
/* The prefix length; -1 for one above 128. */
TQ_API int ip_set_v6_masklen(ip_address *address, uint32_t len);
/* The address's 16 bytes. */
TQ_API int ip_get_v6_byte_addr(const ip_address *address, uint8_t out[16]);
/* The same by its other name. */
TQ_API int ip_address_to_v6_byte_addr(const ip_address *address, uint8_t out[16]);
/* The netmask; all ones for a length above 128. */
TQ_API int ip_get_v6_byte_mask(const ip_address *address, uint8_t out[16]);

/* The 16 bytes of the text up to its first slash, in any form of inet_pton(3); -2 for text that is
 * not an IPv6 address. */
TQ_API int v6_str_to_byte_addr(const char *text, uint8_t out[16]);
/* The number behind the first slash: 0 where that is none, and not checked for its range; beyond 32
 * bits its low 32 bits are kept. 128 for text without a slash. */
TQ_API int v6_str_to_masklen(const char *text, uint32_t *len);
/* "fe80::1/64" or "fe80::1" (length 128).
 * 0; -1 for a null pointer; -2 for text that is not an IPv6 address: the record is then that of
 * ip_init_v6_addr. */
TQ_API int v6_str_to_ip_address(const char *text, ip_address *out);

/* The address in the shortest form of inet_ntop(3), with "/" and the prefix length where with_mask
 * is not 0. The version is not looked at: the 16 bytes are taken as they are. */
TQ_API int ip_address_to_v6_str(const ip_address *address, char *buf, uint32_t size, int with_mask);
TQ_API int ip_address_to_v6_str_addr(const ip_address *address, char *buf, uint32_t size);
TQ_API int ip_address_to_v6_str_addr_mask(const ip_address *address, char *buf, uint32_t size);

/* ---- either version ---- */

/* 1 for a record that is null, of another version, or whose address bytes are all zero; else 0. */
TQ_API int ipv4_is_empty(const ip_address *address);
TQ_API int ipv6_is_empty(const ip_address *address);
/* 1 for a record that is null, of neither version, or whose address bytes are all zero; else 0. */
TQ_API int ip_is_empty(const ip_address *address);

/* The address alone, as text of its version. */
TQ_API int ip_to_str_addr(const ip_address *address, char *buf, uint32_t size);

TQ_END_DECLS

#endif /* TQ_IP_ADDRESS_H */
