#include "tq/fm.h"

#include <cstdlib>
#include <cstring>

#include "bus/bus.h"
#include "foundation/log.h"
#include "foundation/text.h"

namespace {

using tq::int_param;
using tq::kEndOfParams;
using tq::str_param;
using tq::TextWriter;

constexpr size_t kSetterSize = 1024;
constexpr size_t kNoticeSize = 128;

// How an object is called: over the bus, while there is no connection by command, or by command
// always.
enum class Way : char { kBus, kBusOrCommand, kCommand };

// An object, by the name that log lines have for it, too, and what stands between its fields in a
// command.
struct Object {
    Way way;
    char separator[sizeof(", ")];
    char path[sizeof("fm.wifi_down.cause")];
    char symbol[sizeof("FM_WIFI_DOWN_UBUS")];
};
constexpr Object kController = {Way::kBus, "", "fm.ac", "FM_AC_ALARM"};
constexpr Object kTimeServer = {Way::kBus, "", "fm.ntp", "FM_NTP_ALARM"};
constexpr Object kUploadServer = {Way::kCommand, ", ", "fm.ism_server", ""};
constexpr Object kReloadWifi = {Way::kBusOrCommand, "", "fm.reload.wifi", "FM_RELOAD_WIFI"};
constexpr Object kWifiDown = {Way::kBusOrCommand, ",", "fm.wifi_down.cause", "FM_WIFI_DOWN_UBUS"};
constexpr Object kAction = {Way::kBusOrCommand, "", "fm.action", "FM_ACTION"};
constexpr Object kUrl = {Way::kBusOrCommand, "", "fm.url", "FM_URL"};
constexpr Object kThreshold = {Way::kBusOrCommand, ", ", "fm.threshold", "FM_THRESHOLD"};
constexpr Object kSuppress = {Way::kBusOrCommand, "", "fm.suppress", "FM_SUPPRESS"};

// A method, and the end of its name in log lines.
struct Method {
    char name[sizeof("disconnect")];
    char symbol[sizeof("DISCONNECT")];
};
constexpr Method kConnect = {"connect", "CONNECT"};
constexpr Method kDisconnect = {"disconnect", "DISCONNECT"};
constexpr Method kReload = {"reload", "RELOAD"};
constexpr Method kSet = {"set", "SET"};

// A value as it stands between the single quotes of a command. One of its own would end them: it
// is written as an end, a quote by itself and a new beginning.
void append_quoted(TextWriter& command, const char* value) {
    for (;;) {
        const size_t length = strcspn(value, "'");
        command.append("%.*s", static_cast<int>(length), value);
        value += length;
        if (*value == '\0') return;
        command.append("'\\''");
        value++;
    }
}

void append_fields(TextWriter& command, const notify_param* params, const char* separator) {
    const char* before = "";
    for (; params->name; params++) {
        command.append("%s\"%s\":", before, params->name);
        before = separator;
        if (params->type == NOTIFY_PARAM_INT) {
            command.append("%d", static_cast<int>(params->int_value));
            continue;
        }
        command.append("\"");
        append_quoted(command, params->str_value);
        command.append("\"");
    }
}

void call_by_command(const char* function, const Object& object, const Method& method,
                     const notify_param* params) {
    const bool is_notice = object.way == Way::kCommand;
    const size_t size = is_notice ? kNoticeSize : kSetterSize;
    char text[kSetterSize];
    TextWriter command({text, size});
    command.append("ubus call %s %s", object.path, method.name);
    if (params) {
        command.append(" '{");
        append_fields(command, params, object.separator);
        command.append("}'");
    }
    if (!is_notice) command.append(" 2> /dev/null");
    // A command that was cut is another command, so it is not run.
    if (command.cut()) {
        TQ_LOG_IN(function, LOG_ERR, "command of more than %zu bytes\n", size - 1);
        return;
    }
    if (&method == &kDisconnect) TQ_LOG_IN(function, LOG_DEBUG, "%s\n", text);
    (void)!system(text);
}

// In the log, before " fail":
//   "send_ubus_msg(FM_AC_ALARM, METHOD_CONNECT, param)"
//   "send_ubus_msg(FM_AC_ALARM, METHOD_DISCONNECT, param)"
//   "send_ubus_msg(FM_NTP_ALARM, METHOD_CONNECT, param)"
//   "send_ubus_msg(FM_NTP_ALARM, METHOD_DISCONNECT, param)"
//   "send_ubus_msg(FM_RELOAD_WIFI, METHOD_RELOAD, NULL)"
//   "send_ubus_msg(FM_WIFI_DOWN_UBUS, METHOD_SET, param)"
//   "send_ubus_msg(FM_ACTION, METHOD_SET, param)"
//   "send_ubus_msg(FM_URL, METHOD_SET, param)"
//   "send_ubus_msg(FM_THRESHOLD, METHOD_SET, param)"
//   "send_ubus_msg(FM_SUPPRESS, METHOD_SET, param)"
int call(const char* function, const Object& object, const Method& method,
         const notify_param* params) {
    if (object.way == Way::kCommand ||
        (object.way == Way::kBusOrCommand && !tq::is_bus_connected())) {
        call_by_command(function, object, method, params);
        return 0;
    }
    if (tq::send_ubus_msg(object.path, method.name, params) == 0) return 0;
    return TQ_FAIL_IN(function, "send_ubus_msg(%s, METHOD_%s, %s) fail\n", object.symbol,
                      method.symbol, params ? "param" : "NULL");
}

// The probable cause goes before the specific one.
int notify_loss(const char* function, const Object& server, const char* addr, int port,
                const char* probable_cause, const char* specific_cause) {
    const char* cause = probable_cause ? probable_cause : specific_cause;
    if (!addr || !cause) return tq::reject_parameter(function);
    const notify_param params[] = {
        str_param("addr", addr), int_param("port", port),
        str_param(probable_cause ? "probable_cause" : "specific_cause", cause), kEndOfParams};
    return call(function, server, kDisconnect, params);
}

int notify_return(const char* function, const Object& server, const char* addr, int port) {
    if (!addr) return tq::reject_parameter(function);
    const notify_param params[] = {str_param("addr", addr), int_param("port", port), kEndOfParams};
    return call(function, server, kConnect, params);
}

// On the bus the field is named after the object, in the command it is "value": the object takes
// both, each from where it comes.
int set_text(const char* function, const Object& object, const char* value) {
    if (!value) return tq::reject_parameter(function);
    const char* key = tq::is_bus_connected() ? object.path : "value";
    const notify_param params[] = {str_param(key, value), kEndOfParams};
    return call(function, object, kSet, params);
}

}  // namespace

int notify_fm_ac_disconnect(const char* addr, int port, const char* probable_cause,
                            const char* specific_cause) {
    return notify_loss(__func__, kController, addr, port, probable_cause, specific_cause);
}

int notify_fm_ac_connect(const char* addr, int port) {
    return notify_return(__func__, kController, addr, port);
}

int notify_fm_ntp_disconnect(const char* addr, int port, const char* probable_cause,
                             const char* specific_cause) {
    return notify_loss(__func__, kTimeServer, addr, port, probable_cause, specific_cause);
}

int notify_fm_ntp_connect(const char* addr, int port) {
    return notify_return(__func__, kTimeServer, addr, port);
}

int notify_fm_ism_upload_fail(const char* addr, int port, const char* probable_cause,
                              const char* specific_cause) {
    return notify_loss(__func__, kUploadServer, addr, port, probable_cause, specific_cause);
}

int notify_fm_ism_upload(const char* addr, int port) {
    return notify_return(__func__, kUploadServer, addr, port);
}

int notify_fm_reload_wifi_cfg(void) {
    return call(__func__, kReloadWifi, kReload, nullptr);
}

int set_fm_wifi_down_cause(int raido, int wlan, const char* status, const char* probable_cause) {
    if (!status || !probable_cause) return tq::reject_parameter(__func__);
    const notify_param params[] = {int_param("raido", raido), int_param("wlan", wlan),
                                   str_param("status", status),
                                   str_param("probable_cause", probable_cause), kEndOfParams};
    return call(__func__, kWifiDown, kSet, params);
}

int set_fm_action(int value) {
    const notify_param params[] = {int_param("value", value), kEndOfParams};
    return call(__func__, kAction, kSet, params);
}

int set_fm_url(const char* url) {
    return set_text(__func__, kUrl, url);
}

int set_fm_threshold(int id, int value) {
    const notify_param params[] = {int_param("id", id), int_param("value", value), kEndOfParams};
    return call(__func__, kThreshold, kSet, params);
}

int set_fm_suppress(const char* value) {
    return set_text(__func__, kSuppress, value);
}
