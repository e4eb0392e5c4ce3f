#include "tq/fm.h"

#include <cstdlib>

#include "bus/bus.h"
#include "foundation/log.h"
#include "foundation/text.h"

namespace {

using tq::int_param;
using tq::kEndOfParams;
using tq::LogSite;
using tq::send_ubus_msg;
using tq::str_param;
using tq::Text;

constexpr size_t kSetterSize = 1024;
constexpr size_t kNoticeSize = 128;

// A value as it stands between the single quotes of a command. One of its own would end them: it
// is written as an end, a quote by itself and a new beginning. A value that is cut here does not
// fit into a command either.
class Quoted {
  public:
    explicit Quoted(const char* value) {
        for (; *value; value++) {
            if (*value == '\'') {
                text_.append("'\\''");
            } else {
                text_.append("%c", *value);
            }
        }
    }

    [[nodiscard]] const char* c_str() const { return text_.c_str(); }

  private:
    Text<kSetterSize> text_;
};

// A command that was cut is another command, so it is not run.
template <size_t N>
int run(const Text<N>& command, LogSite site) {
    if (command.cut()) {
        return TQ_FAIL_AS(site, "command of more than %zu bytes\n", N - 1);
    }
    (void)!system(command.c_str());
    return 0;
}

int set_value_by_command(const char* object, const char* value, LogSite site) {
    Text<kSetterSize> command;
    command.append("ubus call %s set '{\"%s\":\"%s\"}' 2> /dev/null", object, "value",
                   Quoted(value).c_str());
    return run(command, site);
}

// The cause of a loss, as its key and text; the probable one goes before the specific one.
struct Cause {
    const char* key;
    const char* text;
};

Cause choose_cause(const char* probable_cause, const char* specific_cause) {
    if (probable_cause) return {"probable_cause", probable_cause};
    return {"specific_cause", specific_cause};
}

int send_disconnect(const char* object, const char* addr, int port, const Cause& cause) {
    const notify_param params[] = {str_param("addr", addr), int_param("port", port),
                                   str_param(cause.key, cause.text), kEndOfParams};
    return send_ubus_msg(object, "disconnect", params);
}

int send_connect(const char* object, const char* addr, int port) {
    const notify_param params[] = {str_param("addr", addr), int_param("port", port), kEndOfParams};
    return send_ubus_msg(object, "connect", params);
}

}  // namespace

int notify_fm_ac_disconnect(const char* addr, int port, const char* probable_cause,
                            const char* specific_cause) {
    const Cause cause = choose_cause(probable_cause, specific_cause);
    if (!addr || !cause.text) return tq::reject_parameter(__func__);
    if (send_disconnect("fm.ac", addr, port, cause) == 0) return 0;
    return TQ_FAIL("send_ubus_msg(FM_AC_ALARM, METHOD_DISCONNECT, param) fail\n");
}

int notify_fm_ac_connect(const char* addr, int port) {
    if (!addr) return tq::reject_parameter(__func__);
    if (send_connect("fm.ac", addr, port) == 0) return 0;
    return TQ_FAIL("send_ubus_msg(FM_AC_ALARM, METHOD_CONNECT, param) fail\n");
}

int notify_fm_ntp_disconnect(const char* addr, int port, const char* probable_cause,
                             const char* specific_cause) {
    const Cause cause = choose_cause(probable_cause, specific_cause);
    if (!addr || !cause.text) return tq::reject_parameter(__func__);
    if (send_disconnect("fm.ntp", addr, port, cause) == 0) return 0;
    return TQ_FAIL("send_ubus_msg(FM_NTP_ALARM, METHOD_DISCONNECT, param) fail\n");
}

int notify_fm_ntp_connect(const char* addr, int port) {
    if (!addr) return tq::reject_parameter(__func__);
    if (send_connect("fm.ntp", addr, port) == 0) return 0;
    return TQ_FAIL("send_ubus_msg(FM_NTP_ALARM, METHOD_CONNECT, param) fail\n");
}

int notify_fm_ism_upload_fail(const char* addr, int port, const char* probable_cause,
                              const char* specific_cause) {
    const Cause cause = choose_cause(probable_cause, specific_cause);
    if (!addr || !cause.text) return tq::reject_parameter(__func__);
    Text<kNoticeSize> command;
    command.append("ubus call %s disconnect '{\"addr\":\"%s\", \"port\":%d, \"%s\":\"%s\"}'",
                   "fm.ism_server", Quoted(addr).c_str(), port, cause.key,
                   Quoted(cause.text).c_str());
    if (!command.cut()) TQ_LOG(LOG_DEBUG, "%s\n", command.c_str());
    return run(command, TQ_HERE);
}

int notify_fm_ism_upload(const char* addr, int port) {
    if (!addr) return tq::reject_parameter(__func__);
    Text<kNoticeSize> command;
    command.append("ubus call %s connect '{\"addr\":\"%s\", \"port\":%d}'", "fm.ism_server",
                   Quoted(addr).c_str(), port);
    return run(command, TQ_HERE);
}

int notify_fm_reload_wifi_cfg(void) {
    if (!tq::is_bus_connected()) {
        (void)!system("ubus call fm.reload.wifi reload 2> /dev/null");
        return 0;
    }
    if (send_ubus_msg("fm.reload.wifi", "reload", nullptr) == 0) return 0;
    return TQ_FAIL("send_ubus_msg(FM_RELOAD_WIFI, METHOD_RELOAD, NULL) fail\n");
}

int set_fm_wifi_down_cause(int raido, int wlan, const char* status, const char* probable_cause) {
    if (!status || !probable_cause) return tq::reject_parameter(__func__);
    if (!tq::is_bus_connected()) {
        Text<kSetterSize> command;
        command.append(
            "ubus call %s set '{\"%s\":%d,\"%s\":%d,\"%s\":\"%s\",\"%s\":\"%s\"}' 2> /dev/null",
            "fm.wifi_down.cause", "raido", raido, "wlan", wlan, "status", Quoted(status).c_str(),
            "probable_cause", Quoted(probable_cause).c_str());
        return run(command, TQ_HERE);
    }
    const notify_param params[] = {int_param("raido", raido), int_param("wlan", wlan),
                                   str_param("status", status),
                                   str_param("probable_cause", probable_cause), kEndOfParams};
    if (send_ubus_msg("fm.wifi_down.cause", "set", params) == 0) return 0;
    return TQ_FAIL("send_ubus_msg(FM_WIFI_DOWN_UBUS, METHOD_SET, param) fail\n");
}

int set_fm_action(int value) {
    if (!tq::is_bus_connected()) {
        Text<kSetterSize> command;
        command.append("ubus call %s set '{\"%s\":%d}' 2> /dev/null", "fm.action", "value", value);
        return run(command, TQ_HERE);
    }
    const notify_param params[] = {int_param("value", value), kEndOfParams};
    if (send_ubus_msg("fm.action", "set", params) == 0) return 0;
    return TQ_FAIL("send_ubus_msg(FM_ACTION, METHOD_SET, param) fail\n");
}

// On the bus the field is named after the object, in the command it is "value": the object takes
// both, each from where it comes.
int set_fm_url(const char* url) {
    if (!url) return tq::reject_parameter(__func__);
    if (!tq::is_bus_connected()) return set_value_by_command("fm.url", url, TQ_HERE);
    const notify_param params[] = {str_param("fm.url", url), kEndOfParams};
    if (send_ubus_msg("fm.url", "set", params) == 0) return 0;
    return TQ_FAIL("send_ubus_msg(FM_URL, METHOD_SET, param) fail\n");
}

int set_fm_threshold(int id, int value) {
    if (!tq::is_bus_connected()) {
        Text<kSetterSize> command;
        command.append("ubus call %s set '{\"%s\":%d, \"%s\":%d}' 2> /dev/null", "fm.threshold",
                       "id", id, "value", value);
        return run(command, TQ_HERE);
    }
    const notify_param params[] = {int_param("id", id), int_param("value", value), kEndOfParams};
    if (send_ubus_msg("fm.threshold", "set", params) == 0) return 0;
    return TQ_FAIL("send_ubus_msg(FM_THRESHOLD, METHOD_SET, param) fail\n");
}

int set_fm_suppress(const char* value) {
    if (!value) return tq::reject_parameter(__func__);
    if (!tq::is_bus_connected()) return set_value_by_command("fm.suppress", value, TQ_HERE);
    const notify_param params[] = {str_param("fm.suppress", value), kEndOfParams};
    if (send_ubus_msg("fm.suppress", "set", params) == 0) return 0;
    return TQ_FAIL("send_ubus_msg(FM_SUPPRESS, METHOD_SET, param) fail\n");
}
