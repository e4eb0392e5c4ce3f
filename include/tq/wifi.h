/* wifi.h - Wi-Fi settings, between the system's codes and the texts of the wireless configuration.
 *
 * Every function works on a session of uci_session.h whose section is a radio (mode, guard
 * interval, thresholds, rates, country) or a VAP (security, key, RADIUS server). What is set is
 * staged and not committed: the caller saves the session.
 *
 *   uci_config_ctx radio;
 *
 *   if (load_named_section(UCI_CONFIG_WIRELESS, &radio, "radio0") == 0 &&
 *       wifi_set_rts_threshold(&radio, 0, 2000) == 0)
 *       save_uci_config(UCI_CONFIG_WIRELESS, NULL, 0);
 *
 * A setter of one option has the result of set_uci_config: 0 written, 1 nothing to write because
 * the option has that value, -1 failed. The others combine such results bit by bit, as is said with
 * each; none of them stops at a write that fails, but for wifi_set_mcast_rate. So a combined result
 * is 0 as soon as one write made a change, even where another failed, and 1 does not rule a failure
 * out: whoever must know reads the setting back, or looks into the log.
 *
 * Getters give 0, or -1 with their outputs untouched. Numbers are decimal text; an option that is
 * no number reads as 0, beyond 32 bits its low 32 bits. What a function logs beside rejected
 * arguments is said with it; the session's functions log the rest in their own names, a missing
 * option ("get uci config option '%s' failed", LOG_NOTICE) and a session without a section
 * ("incomplete param, uctx->ptr.s:nil") among it.
 */
#ifndef TQ_WIFI_H
#define TQ_WIFI_H

#include <tq/types.h>

struct uci_config_ctx;

TQ_BEGIN_DECLS

/* ---- radio ---- */

/* Writes "country" CN, "CountryRegion" 1 and "CountryRegionABand" 0, whatever the country was.
 * (r1 & r2 & 1) & r3 of the three writes in this order: 1 when all are unchanged, and also when all
 * failed. */
TQ_API int wifi_set_country_code(struct uci_config_ctx *session);

/* Writes "hwmode", "HT_BW", "VHT_BW" and "HT_EXTCHA" for a mode of 1 to 30. What modes and values
 * mean is the management interface's and the radio driver's affair.
 *
 *   mode      hwmode  HT_BW  VHT_BW  HT_EXTCHA      mode      hwmode  HT_BW  VHT_BW  HT_EXTCHA
 *   1, 5      2       0      0       0              17, 18    14      1      0       0
 *   2         1       0      0       0              19, 21    14      1      1       0
 *   3, 4, 6   0       0      0       0              20        4       0      0       0
 *   7         8       0      0       0              22        17      0      0       0
 *   8         9       0      0       0              23        16      0      0       0
 *   9         8       1      0       1              24, 26    17      1      0       1
 *   10, 13    8       1      0       0              25        17      1      0       0
 *   11        9       1      0       1              27        16      1      1       0
 *   12, 14    9       1      0       0              28        16      1      0       0
 *   15        14      0      0       0              29        16      1      0       1
 *   16        14      1      0       1              30        17      1      1       0
 *
 * (r1 & r2 & 1) & r3 & r4 of the four writes in this order: 1 when all are unchanged, and also when
 * all failed; -1 for an unknown mode, with nothing written. */
TQ_API int wifi_set_wireless_mode(struct uci_config_ctx *session, int mode);

/* Finds the mode of the four options: of modes that share their values, the first.
 * 0; -1 when an option is missing, or no mode has these values. */
TQ_API int wifi_get_wireless_mode(struct uci_config_ctx *session, int *mode);

/* "HT_GI" and "VHT_SGI": the short guard interval, as the radio driver counts it. */
TQ_API int wifi_set_short_gi(struct uci_config_ctx *session, int value);
TQ_API int wifi_get_short_gi(struct uci_config_ctx *session, int *value);
TQ_API int wifi_set_vht_short_gi(struct uci_config_ctx *session, int value);
TQ_API int wifi_get_vht_short_gi(struct uci_config_ctx *session, int *value);

/* "RTSThreshold" and "FragThreshold", in bytes; "DtimPeriod", in beacons. The second argument is
 * not used. */
TQ_API int wifi_set_rts_threshold(struct uci_config_ctx *session, int ignored, int value);
TQ_API int wifi_get_rts_threshold(struct uci_config_ctx *session, int ignored, int *value);
TQ_API int wifi_set_frag_threshold(struct uci_config_ctx *session, int ignored, int value);
TQ_API int wifi_get_frag_threshold(struct uci_config_ctx *session, int ignored, int *value);
TQ_API int wifi_set_dtim_interval(struct uci_config_ctx *session, int ignored, int value);
TQ_API int wifi_get_dtim_interval(struct uci_config_ctx *session, int ignored, int *value);

/* "MinPhyBeaconRate", as the radio driver counts it. */
TQ_API int wifi_set_beacon_rate(struct uci_config_ctx *session, int value);
TQ_API int wifi_get_beacon_rate(struct uci_config_ctx *session, int *value);

/* Writes "McastPhyMode" and "McastMcs" for a rate of 1, 2, 5, 11, 6, 9, 12, 18, 24, 36, 48 or 54
 * Mbit/s.
 * r1 & r2 of the two writes; -1 when the first fails, and the second is not tried then; -1 for
 * another rate, with "not support mcast rate %d" and nothing written. */
TQ_API int wifi_set_mcast_rate(struct uci_config_ctx *session, int rate);

/* The rate in Mbit/s.
 * 0; -1 when an option is missing, or no rate has these values ("not support mcast (mode %d, mcs
 * %d)"). */
TQ_API int wifi_get_mcast_rate(struct uci_config_ctx *session, int *rate);

/* ---- security of a VAP ----
 *
 * Types of authentication, with the texts that "encryption" has for each:
 *
 *   type   open or enterprise   pre-shared key
 *   0      none
 *   1      wep-shared
 *   2      wep-open
 *   3      wpa                  psk
 *   4      wpa2                 psk2
 *   5      mixed-wpa            mixed-psk
 *   6      ccmp
 *   7      wpa2-wpa3            psk2
 *
 * Ciphers of "aes": 0 ccmp, 1 ccmp+tkip, 2 tkip, 3 suite_b. */

/* Writes "encryption" for a type without a pre-shared key: 0, 1, 2 or 6.
 * The result of the write; 1, with nothing written, for the types of wifi_set_auth_wpa_type; -1 for
 * an unknown type. */
TQ_API int wifi_set_auth_type(struct uci_config_ctx *session, int type);

/* The first type that has the text in either column: psk2 is 4.
 * 0; -1 when the option is missing or has another text. */
TQ_API int wifi_get_auth_type(struct uci_config_ctx *session, int *type);

/* Writes the cipher to "aes" and then the type to "encryption": the first text where enterprise is
 * 1, else that of the pre-shared key. A type that has none fails in the session ("incomplete param,
 * val_str:nil, option:encryption") after "aes" was written.
 * r1 & r2 of the two writes; -1 for an unknown cipher or type, with nothing written. */
TQ_API int wifi_set_auth_wpa_type(struct uci_config_ctx *session, int type, int enterprise,
                                  int cipher);

/* Whether the VAP has the type with a server (*enterprise 1) or with a pre-shared key (0), and its
 * cipher.
 * 0; -1 when an option is missing, the type is unknown or not the VAP's, or the cipher is unknown.
 */
TQ_API int wifi_get_auth_wpa_type(struct uci_config_ctx *session, int type, int *enterprise,
                                  int *cipher);

/* "key", the pre-shared key as text. An empty one is refused by the session. */
TQ_API int wifi_set_auth_wpa_key(struct uci_config_ctx *session, const char *key);

/* Copies "key" into buf, of len bytes, cut to fit, and zeroes the rest of buf.
 * 0; -1 with an empty buf when the option is missing. */
TQ_API int wifi_get_auth_wpa_key(struct uci_config_ctx *session, char *buf, int len);

/* ---- RADIUS server of a VAP ---- */

/* A RADIUS server. */
struct wifi_radius_server {
    uint32_t addr; /* in host order: the first octet is the most significant byte */
    int32_t port;  /* UDP port */
    char *secret;  /* shared with the server; never null in what was read */
};

/* Writes, in this order, "auth_server", "auth_secret" and "auth_port" of the server, "ownip", which
 * is the WAN's address, and "eapifname" and "preauthifname", which are the bridge of the VAP's
 * "network", "br-%s". A null or empty secret fails in the session like any write.
 * The six results combined with &; -1, with nothing written, when the WAN has no address ("get wan
 * ip addr failed!") or the VAP no network, or one whose bridge's name is beyond 63 bytes ("get vap
 * network failed!"). */
TQ_API int wifi_set_auth_radius_server(struct uci_config_ctx *session,
                                       const struct wifi_radius_server *server);

/* Reads the server. Its secret is a new text, which the caller frees. *count is 1: one server is
 * supported.
 * 0; -1 when "auth_server", "auth_port" or "auth_secret" is missing, the first is no address of
 * four decimal octets ("invalid addr: %s"), or memory runs out ("strdup fail"). */
TQ_API int wifi_get_auth_radius_server(struct uci_config_ctx *session,
                                       struct wifi_radius_server *server, int *count);

/* Deletes the six options; staged by the next write or save, like every delete of a session.
 * Their results combined with &: 0 as soon as one was deleted, 1 when none was there. */
TQ_API int wifi_del_auth_radius_server(struct uci_config_ctx *session);

/* ---- 802.11ax (HE) ----
 *
 * Not configurable in this system: each does nothing, looks at no argument, logs nothing and gives
 * 1, the code for nothing written. */
TQ_API int wifi_set_he_short_gi(struct uci_config_ctx *session, int value);
TQ_API int wifi_get_he_short_gi(struct uci_config_ctx *session, int *value);
TQ_API int wifi_set_he_max_ampdu(struct uci_config_ctx *session, int value);
TQ_API int wifi_get_he_max_ampdu(struct uci_config_ctx *session, int *value);
TQ_API int wifi_set_he_qam1024(struct uci_config_ctx *session, int value);
TQ_API int wifi_get_he_qam1024(struct uci_config_ctx *session, int *value);
TQ_API int wifi_set_he_mu_mimo(struct uci_config_ctx *session, int value);
TQ_API int wifi_get_he_mu_mimo(struct uci_config_ctx *session, int *value);
TQ_API int wifi_set_he_ulofdma(struct uci_config_ctx *session, int value);
TQ_API int wifi_get_he_ulofdma(struct uci_config_ctx *session, int *value);
TQ_API int wifi_set_he_dlofdma(struct uci_config_ctx *session, int value);
TQ_API int wifi_get_he_dlofdma(struct uci_config_ctx *session, int *value);
TQ_API int wifi_set_he_bss_color(struct uci_config_ctx *session, int value);
TQ_API int wifi_get_he_bss_color(struct uci_config_ctx *session, int *value);

TQ_END_DECLS

#endif /* TQ_WIFI_H */
