/* bwctl.h - requests to the bandwidth control and to the statistics service.
 *
 * Each call is one request, with a limit of 3000 ms, through the connection that init_ubus_client
 * (tq/bus.h) has made. Rates, limits and indexes are passed on as they are: their units and ranges
 * are the service's.
 *
 * Where the request fails, the result is -1: notify_ubus_server has logged what it logs ("ubus
 * client should be initialized" without a connection), and the call adds "%s fail" with the
 * request's text given below.
 */
#ifndef TQ_BWCTL_H
#define TQ_BWCTL_H

#include <tq/types.h>

TQ_BEGIN_DECLS

/* Rate limits on the object "bwctrl". With both rates 0 the limit is removed (method "del", without
 * the rates), else it is set (method "set", with both). The fields, in order, are "class_type",
 * "vap_name", for a station "macaddr" (lower-case hexadecimal with colons), "up" and "down".
 *   set_ssid_bwctl  per SSID, class_type 0     send_ubus_msg(BWCTRL, METHOD_SET, param1)
 *   set_user_bwctl  per user, class_type 1     send_ubus_msg(BWCTRL, METHOD_SET, param2)
 *   set_sta_bwctl   per station, class_type 2  send_ubus_msg(BWCTRL, METHOD_SET, param)
 * A removal has METHOD_DEL in its text. */
TQ_API int set_ssid_bwctl(const char *vap_name, uint32_t up, uint32_t down);
TQ_API int set_user_bwctl(const char *vap_name, uint32_t up, uint32_t down);
TQ_API int set_sta_bwctl(const char *vap_name, uint32_t up, uint32_t down,
                         const unsigned char mac[6]);

/* Limits the number of stations of a VAP: object "bwctrl.maxassoc", method "set", fields "vap_name"
 * and "maxassoc"; send_ubus_msg(BWCTRL_MAX_STA, METHOD_SET, param). */
TQ_API int set_max_sta_bwctl(const char *vap_name, uint32_t maxassoc);

/* Has the service save its configuration: object "bwctrl", method "set", "class_type" 4;
 * send_ubus_msg(BWCTRL, METHOD_SET, param). */
TQ_API int set_config_save_bwctl(void);

/* Has the service read its configuration anew: object "bwctrl", method "reload", no field;
 * send_ubus_msg(BWCTRL, METHOD_RELOAD, NULL). */
TQ_API int reload_bwctl(void);

/* Numbers of the object "statistics", method "get", each a 32-bit integer of the reply: the traffic
 * of an interface index ("ifInFlow", "ifOutFlow"), memory usage ("memoryUsage"), processor usage
 * ("cpuUsage") and the current one ("cpuCurUsage"). The fields are "class_type" (0 to 4, in this
 * order) and, for the traffic, "index".
 * 0 also where the reply lacks the number, which then leaves *flow or *usage as it was: preset it
 * to know. On a failure it is as it was, too, unless the number came before the service failed.
 * notify_ubus_server(STATISTICS, METHOD_GET, param, HANDLER, flow, 3 * 1000), with usage instead of
 * flow for the last three; HANDLER is get_in_flow_statistics, get_out_flow_statistics,
 * get_mem_usage, get_cpu_usage or get_cpu_cur_usage. */
TQ_API int tq_get_in_flow_statistics(uint32_t index, uint32_t *flow);
TQ_API int tq_get_out_flow_statistics(uint32_t index, uint32_t *flow);
TQ_API int tq_get_mem_usage(uint32_t *usage);
TQ_API int tq_get_cpu_usage(uint32_t *usage);
TQ_API int tq_get_cpu_cur_usage(uint32_t *usage);

TQ_END_DECLS

#endif /* TQ_BWCTL_H */
