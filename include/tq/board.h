/* board.h - what the access point is made of: radios, ports, interface names, operating mode.
 *
 * The facts come from the board-information library (tq/oem.h), which every call asks anew. Where
 * nothing else is said, what it answers is passed on as it comes: a negative count is an error for
 * bbi_radio_count only, and adds up like any other number. Radios, ports and LAN ports are counted
 * from 0; the board library is never asked about a negative one, which fails like one that the
 * board does not have. A text longer than its room is cut to fit.
 *
 * The buffers that the _ret functions and tq_get_eth_ifname return belong to the library and are
 * shared by all callers: the next call of the same function overwrites the text. Call them from one
 * thread at a time.
 */
#ifndef TQ_BOARD_H
#define TQ_BOARD_H

#include <tq/types.h>

TQ_BEGIN_DECLS

/* ---- radios ---- */

/* The number of radios, traced at LOG_DEBUG as "support %d radio".
 * 0; -1 when it is negative ("get support radio count fail"). */
TQ_API int bbi_radio_count(int *count);

/* Copies the radio's device name ("wifi0") into out, of len bytes, and zeroes the rest of out;
 * traced at LOG_DEBUG as "radio %d device '%s'".
 * 0; -1 with an empty out when the board has no answer ("get radio %d device fail"). A null out and
 * a len of 0, or negative as a signed number, are rejected without a log line. */
TQ_API int bbi_radio_device(int radio, char *out, unsigned len);

/* The same for what the names of the radio's interfaces start with ("ath"); texts "radio %d prefix
 * ifname '%s'" and "get radio %d prefix ifname fail". */
TQ_API int bbi_radio_prefix_ifname(int radio, char *out, unsigned len);

/* The mask of wireless modes that the radio supports, 0 where the board's text is no number; traced
 * at LOG_DEBUG as "radio %d support mode %x".
 * 0; -1 when the board has no answer ("get radio %d support mode fail"). */
TQ_API int bbi_radio_support_mode(int radio, unsigned *mode);

/* The number of BSS that the radio supports; traced at LOG_DEBUG as "radio %d support %d bss".
 * 0; -1 when the board has no answer ("get radio %d bss support fail"). */
TQ_API int bbi_radio_bss_support(int radio, int *count);

/* The index of the hidden BSS, the first beyond the supported ones, and of the reserved one behind
 * it; traced at LOG_DEBUG as "radio %d hide bss is %d" and "radio %d reserved bss is %d". A radio
 * whose BSS number cannot be had counts as one with none: still 0, after bbi_radio_bss_support's
 * log line. */
TQ_API int bbi_radio_hidebss_id(int radio, int *id);
TQ_API int bbi_radio_reservedbss_id(int radio, int *id);

/* Copies the radio's directory in the process file system into out, of len bytes; traced at
 * LOG_DEBUG as "radio %d proc dir '%s'".
 * 0; -1 with an empty out when the board has no answer ("get radio %d proc dir fail"). A null out
 * is rejected without a log line, a len below 32 with "%s third parameter invalid" (the function).
 */
TQ_API int bbi_radio_proc_dir(int radio, char *out, unsigned len);

/* The same facts as results, for use in expressions: 0 or an empty text on failure, which the
 * functions above then log. The buffers are of 32 bytes, the last one of 64. */
TQ_API int bbi_radio_count_ret(void);
TQ_API char *bbi_radio_device_ret(int radio);
TQ_API char *bbi_radio_prefix_ifname_ret(int radio);
TQ_API unsigned bbi_radio_support_mode_ret(int radio);
TQ_API int bbi_radio_bss_support_ret(int radio);
TQ_API int bbi_radio_hidebss_id_ret(int radio);
TQ_API int bbi_radio_reservedbss_id_ret(int radio);
TQ_API char *bbi_radio_proc_dir_ret(int radio);

/* ---- names of the radios' interfaces (VAP) ---- */

/* Writes the interface name of a VAP into out, of len bytes, cut to fit: the radio's prefix, and
 * the VAP's number when mode is 0 or 2, else radio * 16 + vap. The first argument is ignored.
 * 0; -1 with an empty out when the board's answer for the prefix is -1, without a log line. Any
 * other answer, negative ones included, is taken for a prefix. */
TQ_API int tq_get_vap_ifname(int ignored, int mode, int radio, int vap, char *out, int len);

/* The same in the board's own naming mode. Rejected arguments are logged by tq_get_vap_ifname. */
TQ_API int get_vap_name(int radio, int vap, char *out, int len);

/* The way back: radio and VAP of an interface name, in the board's naming mode. The first argument
 * is ignored.
 * In mode 0 the radio is the first whose prefix, with a digit behind it, starts the name, and the
 * VAP the number after the prefix. In every other mode, 2 included (names are built per radio there
 * and nevertheless read across radios), the name must start with any radio's prefix, and the first
 * number in the name, wherever it stands, is radio * 16 + VAP; the radio need not exist.
 * 0; -1, without a log line and with both outputs untouched, for a name that is none of a VAP or
 * whose number is beyond an int. */
TQ_API int tq_get_wifi_id(int ignored, const char *ifname, int *radio, int *vap);

/* The same, in another order. Rejected arguments are logged by tq_get_wifi_id. */
TQ_API int get_wifi_id(int *radio, int *vap, const char *ifname);

/* 1 when the board has a radio of that device name, else "Can't find the radio device" on standard
 * output and 0. The name reaches the board library unchanged, a null one, too: what it makes of it
 * is its own affair. */
TQ_API int tq_find_radio_device(const char *ifname);

/* ---- Ethernet ports: the gigabit ones first, then the fast ones ---- */

/* The number of ports. */
TQ_API int tq_get_dev_if_count(void);

/* The number of ports and radios. */
TQ_API int tq_get_dev_all_count(void);

/* The number of LAN ports; 0 on the boards 1062, 11062 and 21062, whose only port is the WAN's
 * whatever the board library says. */
TQ_API int tq_get_dev_lan_count(void);

/* 1000 for a port below the number of gigabit ports, where there are any (a negative one, too),
 * else 100. In Mbit/s, by the port's kind: the link is not looked at. */
TQ_API int tq_get_eth_linktype(int port);

/* The speed that a gigabit port is able to, in Mbit/s: 10, 100 or 1000; 0 for a port that is none,
 * and where the board's code stands for no speed. */
TQ_API int tq_get_eth_ability_of_speed(int port);

/* The interface name of a port, in a buffer of the library's of 32 bytes; null, without a log line,
 * for a port that the board does not have or cannot name. */
TQ_API char *tq_get_eth_ifname(int port);

/* ---- WAN and LAN ----
 *
 * Failures of these are logged as "%s fail" with the call that failed, as written in the source. */

/* The board's WAN port: interface name, label on the case, and port, in whatever form the board
 * library has it. The buffers take at least 32 bytes.
 * -1 with an empty text when the board has no answer
 * ("tq_get_oem_ap_type_wan_info(AP_TYPE_WAN_IF_NAME, ifname)" and so on). */
TQ_API int get_wan_if_name(char *ifname);
TQ_API int get_wan_if_label(char *name);
TQ_API int get_wan_if_port(char *port);

/* The same for LAN ports ("tq_get_oem_ap_type_lan_index_info(AP_TYPE_LAN_IF_NAME, index, ifname)"
 * and so on). */
TQ_API int get_lan_if_name(int index, char *ifname);
TQ_API int get_lan_if_label(int index, char *name);
TQ_API int get_lan_if_port(int index, char *port);

/* The interface that is the WAN's now: the first line that the firmware's "get_wan_interface.sh",
 * found on PATH, prints. -1 as of run_cmd ("run_cmd(GET_WAN_INTERFACE, buf, len)"). */
TQ_API int get_wan_name(char *buf, int len);

/* That interface's IPv4 address, in network byte order, and hardware address, of which six bytes
 * are written; a len below 6 fails.
 * -1 when there is no WAN interface ("get_wan_name(ifname, sizeof(ifname))") or it has none
 * ("get_if_addr(ifname, addr)" and "get_if_mac(ifname, (char *)mac, len)"). */
TQ_API int get_wan_if_addr(unsigned *addr);
TQ_API int get_wan_if_mac(char *mac, int len);

/* The hardware address of any interface, as above. */
TQ_API int get_lan_if_mac(const char *ifname, char *mac, int len);

/* The IPv4 address of br-lan, in network byte order. The first argument is ignored.
 * -1 when it has none ("get_if_addr(BR_LAN, addr)"). */
TQ_API int get_lan_addr(int ignored, unsigned *addr);

/* ---- operating mode and names ---- */

/* 0 for a fat access point, which works by itself, 1 for one that a controller manages: option
 * "mode" of the first section "capwap" in the file "wtp" is "fat", in letters of any case, or
 * anything else; also 1 when it cannot be read, or has more than 31 bytes. */
TQ_API int tq_get_apmode(void);

/* Option "mode" of the first section "forward" in the file "forward": 0 for "bridge" and when it
 * cannot be read, or has more than 63 bytes; 1 for "route"; 2 for anything else. */
TQ_API int get_forward_mode(void);

/* Option "model" of the first section "board" in the file "board": uci_get_str_option_by_id, with
 * its results and log lines, for rejected arguments, too. */
TQ_API int get_ap_modelname(char *buf, int len);

/* The number behind the first "vlan" in an interface name, 0 where what follows is none; beyond 32
 * bits its low 32 bits are kept. -1, without a log line and with *vlan untouched, when the name has
 * no "vlan" or ends with it. */
TQ_API int get_br_vlan_id(const char *ifname, int *vlan);

/* "br-vlan%d", the bridge of a VLAN, and "vlan%d", its section in the configuration; cut to fit.
 * Always 0 but for rejected arguments. */
TQ_API int get_br_vlan_name(int vlan, char *buf, int len);
TQ_API int get_vlan_cfg_name(int vlan, char *buf, int len);

TQ_END_DECLS

#endif /* TQ_BOARD_H */
