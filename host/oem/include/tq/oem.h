/* oem.h - the board-information library: what a board is made of.
 *
 * Each function takes a selector and answers one fact. Results are 0 or greater for success (counts
 * and identifiers are the result itself) and -1 for failure: a selector that the function does not
 * know, an index that the board does not have, a fact that its description leaves out, no place
 * for the answer. A text that is answered is terminated; nothing is written on failure. The sizes
 * named below are the most that is ever written, terminator included.
 *
 * The maker of a board delivers this library with it. The one behind this header is for a
 * workstation: it answers from a description that a person writes, /etc/board.conf, and reads it
 * anew at each call (docs/board.md has the form). With one that cannot be read or is wrong every
 * call fails and says why in the system log, at LOG_ERR: "/etc/board.conf:LINE: what is wrong", or
 * without a line where there is none to blame. A fact that is only left out is a failure without a
 * log line. The command `board_check FILE` says all of that, and what is left out, at a terminal.
 *
 * No state, no lock: any thread may call.
 */
#ifndef TQ_OEM_H
#define TQ_OEM_H

#ifdef __cplusplus
extern "C" {
#endif

/* tq_get_oem_ap_type_common */
#define AP_TYPE_VAP_NAME_MODE 1 /* 0, 2: interfaces are numbered per radio; else across radios */
#define AP_TYPE_GE_PORT_NUM 4   /* gigabit Ethernet ports */
#define AP_TYPE_FE_PORT_NUM 5   /* fast Ethernet ports */
#define AP_TYPE_LAN_PORT_NUM 6  /* LAN ports */
#define AP_TYPE_RADIO_NUM 7     /* radios */
#define AP_TYPE_BOARD_ID 10     /* the board's numeric identifier */

/* tq_get_oem_ap_type_radio_index_info; out takes 32 bytes, aligned for an int */
#define AP_TYPE_RADIO_SUPPORT_MODE 1  /* mask of wireless modes, decimal text */
#define AP_TYPE_RADIO_DEVICE 3        /* device name */
#define AP_TYPE_RADIO_PREFIX_IFNAME 4 /* what the names of its interfaces start with */
#define AP_TYPE_RADIO_MAC_OFFSET 5    /* from the base MAC address, decimal text */
#define AP_TYPE_RADIO_PROC_DIR 6      /* its directory in the process file system */
#define AP_TYPE_RADIO_BSS_NUM 12      /* number of BSS, as an int */

/* tq_get_oem_ap_type_radio_ifname_index */
#define AP_TYPE_RADIO_DEVICE_PRESENT 9 /* the index of the radio whose device has that name */

/* tq_get_oem_ap_type_ge_index_info, tq_get_oem_ap_type_fe_index_info */
#define AP_TYPE_ETH_SPEED_ABILITY 1 /* gigabit ports only: code of the speed, decimal text; 64 */
#define AP_TYPE_ETH_IF_NAME 3       /* interface name; 32 bytes */

/* tq_get_oem_ap_type_wan_info; 32 bytes */
#define AP_TYPE_WAN_IF_NAME 2
#define AP_TYPE_WAN_IF_LABEL 3
#define AP_TYPE_WAN_IF_PORT 4 /* as the description says it, a number or a text */

/* tq_get_oem_ap_type_lan_index_info; 32 bytes */
#define AP_TYPE_LAN_IF_NAME 2
#define AP_TYPE_LAN_IF_LABEL 4
#define AP_TYPE_LAN_IF_PORT 5

/* tq_get_oem_ap_type_partion_info; at most 64 bytes, the last one 32 */
#define AP_TYPE_PAT_PRI_IMAGE 1      /* partition of the primary image */
#define AP_TYPE_PAT_BK_IMAGE 2       /* partition of the backup image */
#define AP_TYPE_PAT_BK_UBOOT_IMAGE 3 /* partition of the backup boot loader */
#define AP_TYPE_PAT_REBOOT_CAUSE 5   /* path of the reboot-cause file */

/* tq_get_oem_board_info */
#define BOARD_INFO_BASE_MAC 2 /* the base MAC address, six bytes */

int tq_get_oem_ap_type_common(int selector);
int tq_get_oem_ap_type_radio_index_info(int selector, int radio, void* out);

/* A null ifname is no device. */
int tq_get_oem_ap_type_radio_ifname_index(int selector, const char* ifname);

/* Gigabit ports are counted from 0, and so are fast ones. */
int tq_get_oem_ap_type_ge_index_info(int selector, int port, char* out);
int tq_get_oem_ap_type_fe_index_info(int selector, int port, char* out);

int tq_get_oem_ap_type_wan_info(int selector, char* out);
int tq_get_oem_ap_type_lan_index_info(int selector, int index, char* out);

/* These know the size of out, len bytes, and fail where the answer does not fit. */
int tq_get_oem_ap_type_partion_info(int selector, char* out, int len);
int tq_get_oem_board_info(int selector, void* out, int len);

#ifdef __cplusplus
}
#endif

#endif /* TQ_OEM_H */
