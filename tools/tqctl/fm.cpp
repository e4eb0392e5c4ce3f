// fm.cpp - tqctl fm: notices to the fault management, and its settings.
#include <tq/fm.h>

#include <cstring>

#include "bus_connection.h"
#include "families.h"
#include "fm_threshold.h"
#include "number.h"

namespace tqctl {

namespace {

constexpr char kProbable[] = "probable_cause=";
constexpr char kSpecific[] = "specific_cause=";

// What is behind the prefix, or null.
const char* after(const char* prefix, const char* text) {
    const size_t length = strlen(prefix);
    return strncmp(text, prefix, length) == 0 ? text + length : nullptr;
}

using Disconnect = int (*)(const char*, int, const char*, const char*);
using Connect = int (*)(const char*, int);

// Each event has one of the two.
struct Event {
    const char* name;
    Disconnect disconnect;
    Connect connect;
};

constexpr Event kEvents[] = {
    {"ac-disconnect", notify_fm_ac_disconnect, nullptr},
    {"ac-connect", nullptr, notify_fm_ac_connect},
    {"ntp-disconnect", notify_fm_ntp_disconnect, nullptr},
    {"ntp-connect", nullptr, notify_fm_ntp_connect},
    {"ism-upload-fail", notify_fm_ism_upload_fail, nullptr},
    {"ism-upload", nullptr, notify_fm_ism_upload},
};

ExitCode reload_wifi(const Context& context, Arguments words) {
    if (!words.empty()) return context.misuse("reload-wifi takes no arguments");
    return send_over_bus(context, notify_fm_reload_wifi_cfg);
}

ExitCode send_event(const Context& context, const Event& event, Arguments words) {
    const bool is_loss = event.disconnect != nullptr;
    if (words.size() != (is_loss ? 3U : 2U))
        return context.misuse("%s are needed",
                              is_loss ? "ADDRESS, PORT and a CAUSE" : "ADDRESS and PORT");
    const std::optional<uint16_t> port = take_port(context, words[1]);
    if (!port) return ExitCode::kUsage;
    const char* probable = after(kProbable, words.back());
    const char* specific = after(kSpecific, words.back());
    if (is_loss && !probable && !specific) return context.misuse("%s: not a CAUSE", words[2]);
    return send_over_bus(context, [&] {
        return is_loss ? event.disconnect(words[0], *port, probable, specific)
                       : event.connect(words[0], *port);
    });
}

ExitCode notify(Context& context, Arguments arguments) {
    const Arguments words = arguments.subspan(1);
    if (strcmp(arguments[0], "reload-wifi") == 0) return reload_wifi(context, words);
    for (const Event& event : kEvents) {
        if (strcmp(arguments[0], event.name) == 0) return send_event(context, event, words);
    }
    return context.misuse("no event is named '%s'", arguments[0]);
}

using Words = const char* const*;

// A setting, with how many values it takes and how many of them, the first ones, are numbers.
struct Setting {
    const char* name;
    size_t values;
    size_t numbers;
    int (*set)(const int* numbers, Words texts);
};

constexpr Setting kSettings[] = {
    {"action", 1, 1, [](const int* numbers, Words) { return set_fm_action(numbers[0]); }},
    {"url", 1, 0, [](const int*, Words texts) { return set_fm_url(texts[0]); }},
    {"threshold", 2, 2,
     [](const int* numbers, Words) { return set_fm_threshold(numbers[0], numbers[1]); }},
    {"suppress", 1, 0, [](const int*, Words texts) { return set_fm_suppress(texts[0]); }},
    {"wifi-down-cause", 4, 2,
     [](const int* numbers, Words texts) {
         return set_fm_wifi_down_cause(numbers[0], numbers[1], texts[0], texts[1]);
     }},
};

ExitCode apply(const Context& context, const Setting& setting, Arguments values) {
    if (values.size() != setting.values)
        return context.misuse("%s takes %zu values", setting.name, setting.values);
    int numbers[2] = {};
    for (size_t i = 0; i < setting.numbers; i++) {
        const std::optional<int> number = take_int(context, values[i]);
        if (!number) return ExitCode::kUsage;
        numbers[i] = *number;
    }
    return send_over_bus(context,
                         [&] { return setting.set(numbers, values.data() + setting.numbers); });
}

ExitCode set(Context& context, Arguments arguments) {
    for (const Setting& setting : kSettings) {
        if (strcmp(arguments[0], setting.name) == 0)
            return apply(context, setting, arguments.subspan(1));
    }
    return context.misuse("no setting is named '%s'", arguments[0]);
}

constexpr Command kCommands[] = {
    {"notify", "EVENT [ADDRESS PORT [CAUSE]]", 1, 4, "tells of an event",
     "EVENT is one of\n"
     "  ac-disconnect, ntp-disconnect, ism-upload-fail (ADDRESS PORT CAUSE): the\n"
     "    access controller, the time server or the upload server was lost; CAUSE is\n"
     "    probable_cause=TEXT or specific_cause=TEXT\n"
     "  ac-connect, ntp-connect, ism-upload (ADDRESS PORT): it is there again\n"
     "  reload-wifi: the Wi-Fi configuration is to be read anew\n"
     "\n"
     "The ism events go through the command ubus, whose failure is not seen: exit\n"
     "code 0 stands for it, too. A command of more than 127 bytes is not run, which\n"
     "only standard error tells of.",
     "tqctl fm notify ac-disconnect 192.0.2.1 5246 probable_cause=timeout", notify},
    {"set", "SETTING VALUE...", 2, 5, "changes a setting",
     "SETTING is one of\n"
     "  action NUMBER\n"
     "  url URL\n"
     "  threshold ID NUMBER\n"
     "  suppress TEXT\n"
     "  wifi-down-cause RADIO WLAN STATUS CAUSE: why a radio's wlan is out of\n"
     "    service",
     "tqctl fm set threshold 7 80", set},
    {"threshold", "MODULE [VALUE]", 1, 2, "shows or stores a module's threshold",
     "In the file tqfm; a module that is not in it is added. MODULE is its number.",
     "tqctl fm threshold 7 80",
     [](Context& context, Arguments arguments) { return fm_threshold(context, arguments); }},
    {"suppress", "MODULE|all [VALUE]", 1, 2, "shows or stores a module's suppression",
     "In the file tqfm, as the threshold. all stands for every module that is in it.",
     "tqctl fm suppress all 300",
     [](Context& context, Arguments arguments) { return fm_suppress(context, arguments); }},
};
static_assert(is_complete(kCommands));

}  // namespace

constinit const Family kFm = {
    "fm", "the fault management",
    "notify and set are messages to a service on the bus. Exit code 1 stands for a\n"
    "service that is not there, refuses or does not answer, 6 for a bus that is not\n"
    "there. threshold and suppress are in a file that the service reads.",
    kCommands};

}  // namespace tqctl
