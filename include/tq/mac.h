/* mac.h - MAC addresses derived from the board's base address, the default SSID, and a radio's
 * driver statistics.
 *
 * The board has one base address. Every other one follows from it by fixed arithmetic, so that the
 * interfaces of one unit get predictable addresses without further storage:
 *
 *     WAN             base
 *     VLAN            base + 2
 *     LAN n           base + 1, then the first-octet rule with n
 *     radio r         base + the radio's offset on the board
 *     VAP v, radio r  the radio's address, then the first-octet rule with v
 *
 * They are distinct as long as the offsets of the radios differ from each other and from 0, 1 and
 * 2, the first octet of the base address has its bit 0x02 clear, and the numbers n and v stay below
 * 17: the rule repeats itself after sixteen. A radio with an offset of 1 shares its addresses with
 * the LAN, one with 2 shares its own with the VLAN, one with 0 shares its own with the WAN.
 *
 * An address is six bytes, the octet with the multicast and local bits first. Functions that take a
 * number of bytes want at least 6; null and less give -1, and a number of 2^31 or more counts as
 * one below zero. Nothing here is logged but by get_radio_stats.
 */
#ifndef TQ_MAC_H
#define TQ_MAC_H

#include <tq/types.h>

TQ_BEGIN_DECLS

/* The base address.
 * The board library's result: 0 or more; below 0, as a rule -1, where it has no base address, and
 * the buffer is then as that library left it. */
TQ_API int get_base_mac(uint8_t *mac, uint32_t len);

/* The WAN's: the base address. */
TQ_API int get_wan_mac(uint8_t *mac, uint32_t len);

/* The address of LAN n, from 0.
 * 0; -1 without a base address. */
TQ_API int get_lan_mac(uint32_t n, uint8_t *mac, uint32_t len);

/* The address of the VLANs.
 * 0; -1 without a base address. */
TQ_API int get_vlan_mac(uint8_t *mac, uint32_t len);

/* The address of a radio, from 0. The offset is the number that the board's text starts with, 0
 * where it is none, and may be negative.
 * 0; -1 when the board has no offset for the radio ("get oem mac offset is fail" is then printed on
 * standard output), when the offset is -1, or without a base address. */
TQ_API int get_radio_mac(uint32_t radio, uint8_t *mac, int len);

/* The address of VAP vap of a radio, both from 0; VAP 0 has the radio's. Fails as get_radio_mac. */
TQ_API int get_vap_mac(uint32_t radio, uint32_t vap, uint8_t *mac, int len);

/* Adds to the octet, 0 to 5, and carries into every octet before it, the vendor's prefix included;
 * the octets behind it stay. The sum has 32 bits: what does not fit one octet spreads over several,
 * and beyond octet 0 it is lost. A null mac or an octet above 5 changes nothing. */
TQ_API void mac_offset(uint8_t *mac, uint32_t octet, uint32_t add);

/* The first-octet rule: an n of 0 changes nothing. Any other n keeps the first octet's low nibble,
 * sets its local bit 0x02, and makes its high nibble that of before minus one plus n, modulo 16. A
 * null mac is left alone. */
TQ_API void vap_mac_offset(uint32_t n, uint8_t *mac);

/* The same by its other name. */
TQ_API void lan_mac_offset(uint32_t n, uint8_t *mac);

/* Writes the factory's SSID "tqpelkin-XXYY-N" into dst, cut to size: octets 4 and 5 of the base
 * address in lower-case hexadecimal, and the number. Without a base address they read 0000.
 * 0; -1 for a null dst or a size of 0 or less. */
TQ_API int get_default_ssid(char *dst, int size, int ignored, int number);

/* Bytes of a radio's statistics. */
#define TQ_RADIO_STATS_SIZE 2904

/* Copies the Wi-Fi driver's statistics of a radio, from 0, to out, TQ_RADIO_STATS_SIZE bytes in the
 * layout of the driver's record ol_ath_radiostats.
 * 0; -1 with out untouched for a bad argument ("arguments error"), without a socket ("create socket
 * fail: %s", the system's error text) or memory ("malloc ol_ath_radiostats buffer fail"), and when
 * the driver refuses ("ioctl SIOCGATHEXTENDED fail"). */
TQ_API int get_radio_stats(int radio, void *out);

TQ_END_DECLS

#endif /* TQ_MAC_H */
