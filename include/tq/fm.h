/* fm.h - tells the fault management what happened, and what it should do.
 *
 * Each call is one message to one of the fault-management objects on the bus, sent with a limit of
 * 3000 ms through the connection that init_ubus_client (tq/bus.h) has made. A call over the bus
 * that fails, for whatever reason, is logged by notify_ubus_server or not at all, as that one
 * describes, then as "send_ubus_msg(OBJECT, METHOD, param) fail" with the names given below; its
 * result is -1.
 *
 * Two kinds of calls run the bus's command "ubus" through the shell instead: the upload notices
 * always, and the setters and the reload while the library is not connected. Their result is then 0
 * always, whatever became of the command: only the log tells of one that was not run. In these
 * commands
 *
 * - a single quote in a value is written so that the shell hands it on as it is: a value arrives
 *   whole and can start nothing, whatever bytes it holds;
 * - a double quote or a backslash is not changed, and the command reads the message as JSON. A
 *   double quote so ends the text that it stands in, and what follows is read as JSON: mostly that
 *   is none, and the command says so and sends nothing, but it can also be further fields. A
 *   backslash begins one of JSON's escapes. Over the bus both are characters like any other;
 * - a command that is too long (more than 1023 bytes for the setters, 127 for the upload notices,
 *   each single quote counting as four) is not run, because a part of it would be another
 *   command. It is logged at LOG_ERR ("command of more than %zu bytes").
 *
 * Numbers go into a message as the 32-bit integers that they are, a negative one as its two's
 * complement. A null text is logged as "invalid parameter", with the result -1. */
#ifndef TQ_FM_H
#define TQ_FM_H

#include <tq/types.h>

TQ_BEGIN_DECLS

/* The connection to the access controller at addr (a dotted address) and port was lost, or is there
 * again. One cause of the loss must be given, the other may be null; with both, probable_cause is
 * the one that is sent.
 * Object "fm.ac": "disconnect" with "addr", "port" and "probable_cause" or "specific_cause";
 * "connect" with "addr" and "port". Logged as (FM_AC_ALARM, METHOD_DISCONNECT, param) and
 * (FM_AC_ALARM, METHOD_CONNECT, param). */
TQ_API int notify_fm_ac_disconnect(const char *addr, int port, const char *probable_cause,
                                   const char *specific_cause);
TQ_API int notify_fm_ac_connect(const char *addr, int port);

/* The same of the time server: object "fm.ntp", (FM_NTP_ALARM, METHOD_DISCONNECT, param) and
 * (FM_NTP_ALARM, METHOD_CONNECT, param). */
TQ_API int notify_fm_ntp_disconnect(const char *addr, int port, const char *probable_cause,
                                    const char *specific_cause);
TQ_API int notify_fm_ntp_connect(const char *addr, int port);

/* The upload server could not be reached, or could be again: the same fields for the object
 * "fm.ism_server", always by command, whose complaints go to standard error. The command of the
 * failure notice is logged at LOG_DEBUG as "%s". */
TQ_API int notify_fm_ism_upload_fail(const char *addr, int port, const char *probable_cause,
                                     const char *specific_cause);
TQ_API int notify_fm_ism_upload(const char *addr, int port);

/* Has the Wi-Fi configuration read anew: object "fm.reload.wifi", "reload" without a field,
 * (FM_RELOAD_WIFI, METHOD_RELOAD, NULL). */
TQ_API int notify_fm_reload_wifi_cfg(void);

/* Records why a radio's wlan is out of service: object "fm.wifi_down.cause", "set" with "raido",
 * "wlan", "status" and "probable_cause", (FM_WIFI_DOWN_UBUS, METHOD_SET, param). The object expects
 * the key "raido" spelt so. */
TQ_API int set_fm_wifi_down_cause(int raido, int wlan, const char *status,
                                  const char *probable_cause);

/* Settings of the fault management. Over the bus the field of a URL and of a suppression is named
 * after the object, in the command it is "value".
 *   set_fm_action     "fm.action", "set" with "value"             (FM_ACTION, METHOD_SET, param)
 *   set_fm_url        "fm.url", "set" with "fm.url"               (FM_URL, METHOD_SET, param)
 *   set_fm_threshold  "fm.threshold", "set" with "id", "value"    (FM_THRESHOLD, METHOD_SET, param)
 *   set_fm_suppress   "fm.suppress", "set" with "fm.suppress"     (FM_SUPPRESS, METHOD_SET, param)
 */
TQ_API int set_fm_action(int value);
TQ_API int set_fm_url(const char *url);
TQ_API int set_fm_threshold(int id, int value);
TQ_API int set_fm_suppress(const char *value);

TQ_END_DECLS

#endif /* TQ_FM_H */
