// log.cpp - tqctl log: levels of the daemons, and what the log daemon does with their lines.
#include <arpa/inet.h>
#include <syslog.h>
#include <tq/netif.h>
#include <tq/process.h>
#include <tq/syslog_config.h>
#include <unistd.h>

#include <array>
#include <cerrno>
#include <charconv>
#include <cstdio>
#include <cstring>
#include <optional>
#include <utility>

#include "families.h"
#include "file.h"
#include "log_state.h"
#include "number.h"
#include "process.h"

namespace tqctl {

namespace {

constexpr const char* kConfigFile = "/etc/syslogd.conf";
constexpr char kLevels[][8] = {"emerg",   "alert",  "crit", "err",
                               "warning", "notice", "info", "debug"};
constexpr uint32_t kMinSize = 10;
constexpr uint32_t kMaxSize = 10240;

bool parse_level(const char* text, int& level) {
    for (size_t i = 0; i < std::size(kLevels); i++) {
        if (strcmp(text, kLevels[i]) != 0) continue;
        level = static_cast<int>(i);
        return true;
    }
    const std::optional<int64_t> number = parse_number(text, 0, std::size(kLevels) - 1);
    level = static_cast<int>(number.value_or(0));
    return number.has_value();
}

// A process or all of them, as the setters want it.
bool parse_processes(const char* text, uint32_t& id) {
    id = SYSLOG_ALL_PROCESSES;
    if (strcmp(text, "all") == 0) return true;
    const syslog_process* process = find_process(text);
    if (process) id = process->id;
    return process != nullptr;
}

ExitCode unknown_process(const Context& context, const char* text) {
    return context.misuse("'%s' is not a known process", text);
}

bool is_meant(const syslog_process& process, uint32_t id) {
    return id == SYSLOG_ALL_PROCESSES || process.id == id;
}

// What the library writes of it is less.
constexpr size_t kLongestConfig = 16384;

// The library is silent where a file cannot be written, and logs each trace block that it writes
// like an error: from here on its lines are not for the terminal.
ExitCode prepare_config_file(const Context& context) {
    const bool can_write =
        access(kConfigFile, W_OK) == 0 || (errno == ENOENT && access("/etc", W_OK) == 0);
    if (!can_write) return context.fail_by_errno(kConfigFile);
    for (const char* directory : {"/etc", "/tmp"}) {
        if (!is_full(directory, kLongestConfig)) continue;
        errno = ENOSPC;
        return context.fail_by_errno(directory);
    }
    openlog("tqctl", 0, LOG_USER);
    return ExitCode::kDone;
}

// level

bool has_level_file(const syslog_process& process) {
    char path[64];
    snprintf(path, sizeof(path), "/tmp/.loglvl.%s", process.tag);
    return access(path, F_OK) == 0;
}

ExitCode set_level(const Context& context, uint32_t id, int level) {
    // What was never pushed is pushed, also where the table says the same.
    for (syslog_process& process : known_processes()) {
        if (!has_level_file(process)) process.level = SYSLOG_NO_LOCAL_LOG;
    }
    set_process_syslog_level(static_cast<int>(id), level);
    for (const syslog_process& process : known_processes()) {
        if (is_meant(process, id) && process.level != static_cast<uint32_t>(level))
            return context.fail(ExitCode::kInputOutput, "%s: its level file cannot be written",
                                process.name);
    }
    return ExitCode::kDone;
}

ExitCode level(Context& context, Arguments arguments) {
    uint32_t id = 0;
    int wanted = 0;
    if (!parse_processes(arguments[0], id)) return unknown_process(context, arguments[0]);
    take_log_state();
    if (arguments.size() == 1) {
        if (id == SYSLOG_ALL_PROCESSES) return context.misuse("all processes at which level?");
        context.output.value("level", get_process_syslog_level(id));
        return ExitCode::kDone;
    }
    if (!parse_level(arguments[1], wanted))
        return context.misuse("'%s' is not a level from 0 (emerg) to 7 (debug)", arguments[1]);
    return set_level(context, id, wanted);
}

// server

ExitCode set_server(const Context& context, uint32_t id, const std::array<uint8_t, 4>& address) {
    take_log_state();
    const ExitCode code = prepare_config_file(context);
    if (code != ExitCode::kDone) return code;
    set_server_ip_scfg(id, address.data());
    set_syslog_status(1);
    return ExitCode::kDone;
}

ExitCode switch_servers_off(const Context& context) {
    take_log_state();
    const ExitCode code = prepare_config_file(context);
    if (code == ExitCode::kDone) set_syslog_status(0);
    return code;
}

ExitCode server(Context& context, Arguments arguments) {
    uint32_t id = 0;
    std::array<uint8_t, 4> address{};
    if (arguments.size() == 1 && strcmp(arguments[0], "off") == 0)
        return switch_servers_off(context);
    if (!parse_processes(arguments[0], id)) return unknown_process(context, arguments[0]);
    if (arguments.size() == 2) {
        if (inet_pton(AF_INET, arguments[1], address.data()) == 1)
            return set_server(context, id, address);
        return context.misuse("'%s' is not an IPv4 address", arguments[1]);
    }
    if (id == SYSLOG_ALL_PROCESSES) return context.misuse("all processes to which server?");
    take_log_state();
    get_syslog_server_ip(id, address.data());
    char text[INET_ADDRSTRLEN];
    context.output.value("server", inet_ntop(AF_INET, address.data(), text, sizeof(text)));
    return ExitCode::kDone;
}

// size

ExitCode size(Context& context, Arguments arguments) {
    take_log_state();
    if (arguments.empty()) {
        context.output.value("size", get_syslog_file_size());
        return ExitCode::kDone;
    }
    const std::optional<int64_t> wanted =
        take_number(context, arguments[0], "a size", kMinSize, kMaxSize);
    if (!wanted) return ExitCode::kUsage;
    const ExitCode code = prepare_config_file(context);
    if (code == ExitCode::kDone) set_log_file_size_scfg(static_cast<uint32_t>(*wanted));
    return code;
}

// trace

ExitCode end_trace(const Context& context) {
    if (!wcd_trace.enable) return context.fail(ExitCode::kRefused, "no trace is on");
    // The level files hold the trace's level, and nobody else knows the own ones.
    for (syslog_process& process : known_processes())
        process.level = 3;
    wcd_trace.enable = 0;
    set_wcd_trace_conf();
    return ExitCode::kDone;
}

bool parse_identifier(const char* text, uint64_t& id) {
    const char* last = text + strlen(text);
    const auto [end, error] = std::from_chars(text, last, id);
    return error == std::errc{} && end == last;
}

ExitCode start_trace(const Context& context, Arguments arguments) {
    uint32_t address = 0;
    int level = 0;
    wcd_trace_settings trace{};
    trace.enable = 1;
    trace.host_name = arguments[0];
    const std::optional<uint16_t> port = take_port(context, arguments[1]);
    if (!port) return ExitCode::kUsage;
    if (!parse_level(arguments[2], level))
        return context.misuse("'%s' is not a level from 0 (emerg) to 7 (debug)", arguments[2]);
    trace.port = *port;
    trace.level = level;
    if (arguments.size() == 4 && !parse_identifier(arguments[3], trace.id))
        return context.misuse("'%s' is not an identifier", arguments[3]);
    if (get_ip_by_hostname(trace.host_name, &address) != 0)
        return context.fail(ExitCode::kRefused, "%s: no address", trace.host_name);
    wcd_trace = trace;
    set_wcd_trace_conf();
    return ExitCode::kDone;
}

ExitCode trace(Context& context, Arguments arguments) {
    take_log_state();
    if (arguments.empty()) {
        context.output.value("trace", wcd_trace.enable ? "on" : "off");
        return ExitCode::kDone;
    }
    const bool is_off = arguments.size() == 1 && strcmp(arguments[0], "off") == 0;
    if (!is_off && arguments.size() < 3) return context.misuse("a trace needs HOST PORT LEVEL");
    const ExitCode code = prepare_config_file(context);
    if (code != ExitCode::kDone) return code;
    return is_off ? end_trace(context) : start_trace(context, arguments);
}

// show

const char* facility_name(uint32_t facility) {
    const syslog_facility* entry = facilitynames;
    while (entry->name && static_cast<uint32_t>(entry->value) != facility)
        entry++;
    return entry->name ? entry->name : "-";
}

struct ServerText {
    explicit ServerText(const syslog_process& process) {
        inet_ntop(AF_INET, process.server, text, sizeof(text));
    }

    char text[INET_ADDRSTRLEN] = "";
};

Json describe(const syslog_process& process) {
    Json object(json_object_new_object());
    json_add(object.get(), "id", json_number(process.id));
    json_add(object.get(), "name", json_text(process.name));
    json_add(object.get(), "tag", json_text(process.tag));
    json_add(object.get(), "level", json_number(static_cast<int32_t>(process.level)));
    json_add(object.get(), "facility", json_text(facility_name(process.facility)));
    json_add(object.get(), "server", json_text(ServerText(process).text));
    return object;
}

void print_row(const syslog_process& process) {
    printf("%2u %-14s %2d %-8s %s\n", process.id, process.name, static_cast<int>(process.level),
           facility_name(process.facility), ServerText(process).text);
}

Json describe_all() {
    Json object(json_object_new_object());
    json_add(object.get(), "remote", json_bool(get_syslog_status() != 0));
    json_add(object.get(), "size", json_number(get_syslog_file_size()));
    json_add(object.get(), "trace", json_bool(wcd_trace.enable != 0));
    Json processes(json_object_new_array());
    for (const syslog_process& process : known_processes())
        json_append(processes.get(), describe(process));
    json_add(object.get(), "processes", std::move(processes));
    return object;
}

ExitCode show(Context& context, Arguments) {
    take_log_state();
    if (context.output.is_json()) {
        context.output.document(describe_all());
        return ExitCode::kDone;
    }
    for (const syslog_process& process : known_processes())
        print_row(process);
    return ExitCode::kDone;
}

constexpr Command kCommands[] = {
    {"level", "PROCESS|all [LEVEL]", 1, 2, "shows or sets the log level of a process",
     "LEVEL is 0 to 7, or emerg, alert, crit, err, warning, notice, info, debug. It\n"
     "reaches the processes that run at once, and others when they start.",
     "tqctl log level hostapd debug", level},
    {"server", "off|PROCESS|all [ADDRESS]", 1, 2,
     "shows or sets the remote log server of a process",
     "With an ADDRESS remote logging is switched on; 0.0.0.0 is no server. \"off\"\n"
     "ends remote logging, and the servers are forgotten.",
     "tqctl log server all 192.0.2.7", server},
    {"size", "[KIB]", 0, 1, "shows or sets the limit of the local log file",
     "From 10 to 10240 KiB.", "tqctl log size 4096", size},
    {"trace", "[off|HOST PORT LEVEL [ID]]", 0, 4, "shows, starts or ends the trace",
     "All processes log at LEVEL, and the log daemon sends their lines to HOST,\n"
     "marked with the number ID. \"off\" ends it and puts every process at level 3.",
     "tqctl log trace 192.0.2.7 5140 debug", trace},
    {"show", "", 0, 0, "lists the known processes with their log settings",
     "Id, name, level, facility and remote log server.", "tqctl log show", show},
};
static_assert(is_complete(kCommands));

}  // namespace

constinit const Family kLog = {
    "log", "log levels and log servers",
    "PROCESS is a name or an id. The settings are read from where they\n"
    "were last written: /tmp/.loglvl.*, /tmp/syslogserver, /etc/syslogd.conf.",
    kCommands};

}  // namespace tqctl
