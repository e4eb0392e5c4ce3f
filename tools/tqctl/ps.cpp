// ps.cpp - tqctl ps: the known processes that run.
#include <tq/process.h>

#include <charconv>
#include <cstring>

#include "families.h"
#include "process.h"

namespace tqctl {

std::span<syslog_process> known_processes() {
    return {get_syslog_cfg(), static_cast<size_t>(get_process_count())};
}

syslog_process* find_process(const char* text) {
    const char* end = text + strlen(text);
    uint32_t id = 0;
    const auto [rest, error] = std::from_chars(text, end, id);
    const bool is_id = error == std::errc{} && rest == end;
    for (syslog_process& process : known_processes()) {
        if (is_id ? process.id == id : strcmp(process.name, text) == 0) return &process;
    }
    return nullptr;
}

namespace {

constexpr uint32_t kUnknown = 0;

ExitCode unreadable(const Context& context) {
    return context.fail(ExitCode::kInputOutput, "/proc cannot be read");
}

ExitCode list_running(Context& context) {
    const Json object(json_object_new_object());
    Json names(json_object_new_array());
    for (const syslog_process& process : known_processes()) {
        if (process.id == kUnknown) continue;
        const int running = apps_is_running(process.id);
        if (running < 0) return unreadable(context);
        if (!running) continue;
        if (!context.output.is_json()) context.output.value("", process.name);
        json_append(names.get(), json_text(process.name));
    }
    json_add(object.get(), "running", std::move(names));
    if (context.output.is_json()) context.output.document(object);
    return ExitCode::kDone;
}

ExitCode running(Context& context, Arguments arguments) {
    if (arguments.empty()) return list_running(context);
    const syslog_process* process = find_process(arguments[0]);
    if (!process || process->id == kUnknown)
        return context.misuse("'%s' is not a known process", arguments[0]);
    const int answer = apps_is_running(process->id);
    if (answer < 0) return unreadable(context);
    context.output.value("running", answer ? "yes" : "no");
    return answer ? ExitCode::kDone : ExitCode::kRefused;
}

constexpr Command kCommands[] = {
    {"running", "[PROCESS]", 0, 1, "tells whether a known process runs",
     "PROCESS is a name, or an id (\"tqctl log show\" lists them). Prints yes and\n"
     "exits with 0, or prints no and exits with 1. Without PROCESS: the names of all\n"
     "that run.",
     "tqctl ps running hostapd", running},
};
static_assert(is_complete(kCommands));

}  // namespace

constinit const Family kPs = {"ps", "the known processes that run", "", kCommands};

}  // namespace tqctl
