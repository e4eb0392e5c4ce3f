// status.cpp - tqctl status: small pieces of state that the daemons share.
#include <tq/status_file.h>
#include <unistd.h>

#include <cerrno>
#include <cstdio>
#include <cstring>

#include "families.h"
#include "file.h"
#include "number.h"
#include "uci_store.h"

namespace tqctl {

namespace {

constexpr char kOfflineFile[] = "/tmp/.offline.reason";
constexpr char kTrafficFile[] = "/tmp/.traffic_statistics_upload";
constexpr char kCoredumpFile[] = "/usr/config/coredump_server";
constexpr char kCapwapFile[] = "wtp";

// A file that is not there is an empty record: to the library, so is one that may not be read.
bool is_readable(const char* path) {
    return access(path, R_OK) == 0 || errno == ENOENT;
}

ExitCode refuse_empty(const Context& context, const char* path, const char* what) {
    if (!is_readable(path)) return context.fail_by_errno(path);
    return context.fail(ExitCode::kRefused, "%s", what);
}

// The library does not tell what a full file system has not taken.
ExitCode refuse_lost(const Context& context, const char* path) {
    return context.fail(ExitCode::kInputOutput, "%s: it could not be written", path);
}

ExitCode set_offline(const Context& context, const char* text) {
    const std::optional<int64_t> code = take_number(context, text, "a code", 1, 6);
    if (!code) return ExitCode::kUsage;
    // The library tells its log alone that it cannot.
    const File record(fopen(kOfflineFile, "ae"));
    if (!record) return context.fail_by_errno(kOfflineFile);
    tq_set_offline_reason(static_cast<int>(*code));
    offline_reason_info info{};
    if (tq_get_offline_reason(&info) == 0) return ExitCode::kDone;
    return refuse_lost(context, kOfflineFile);
}

ExitCode offline(Context& context, Arguments arguments) {
    if (!arguments.empty()) return set_offline(context, arguments[0]);
    offline_reason_info info{};
    if (tq_get_offline_reason(&info) != 0)
        return refuse_empty(context, kOfflineFile, "nothing is recorded");
    context.output.member("reason", info.reason);
    context.output.member("time", info.time);
    return ExitCode::kDone;
}

bool is_traffic_up() {
    return get_traffic_upload_status() == 0;
}

ExitCode set_traffic(const Context& context, const char* word) {
    const bool up = strcmp(word, "up") == 0;
    if (!up && strcmp(word, "down") != 0)
        return context.misuse("'%s' is neither up nor down", word);
    if (set_traffic_upload_status(up ? word : nullptr) != 0)
        return context.fail_by_errno(kTrafficFile);
    return is_traffic_up() == up ? ExitCode::kDone : refuse_lost(context, kTrafficFile);
}

ExitCode traffic(Context& context, Arguments arguments) {
    if (!arguments.empty()) return set_traffic(context, arguments[0]);
    if (!is_readable(kTrafficFile)) return context.fail_by_errno(kTrafficFile);
    context.output.value("traffic", is_traffic_up() ? "up" : "down");
    return ExitCode::kDone;
}

ExitCode set_capwap(const Context& context, const char* text) {
    const std::optional<int64_t> status = take_number(context, text, "a number", 0, INT32_MAX);
    if (!status) return ExitCode::kUsage;
    return change_file(context, kCapwapFile, "no section of type capwap",
                       [=] { return set_capwap_status_file(static_cast<int>(*status)); });
}

ExitCode capwap(Context& context, Arguments arguments) {
    if (!arguments.empty()) return set_capwap(context, arguments[0]);
    const int status = get_capwap_status_file();
    if (status == -1)
        return explain(context, kCapwapFile, cause_of_failure(kCapwapFile, "no status is stored"));
    context.output.value("capwap", status);
    return ExitCode::kDone;
}

constexpr size_t kServerSize = 16;

ExitCode set_coredump(const Context& context, const char* server) {
    if (!*server) {
        if (delete_coredump_server() == 0 || errno == ENOENT) return ExitCode::kDone;
        return context.fail_by_errno(kCoredumpFile);
    }
    if (strlen(server) > kServerSize)
        return context.fail(ExitCode::kRefused, "a server is at most %zu bytes long", kServerSize);
    return save_coredump_server(server) == 0 ? ExitCode::kDone
                                             : context.fail_by_errno(kCoredumpFile);
}

ExitCode coredump(Context& context, Arguments arguments) {
    if (!arguments.empty()) return set_coredump(context, arguments[0]);
    char server[kServerSize + 1] = "";
    if (get_coredump_server(server) != 0)
        return refuse_empty(context, kCoredumpFile, "no server is stored");
    context.output.value("coredump", server);
    return ExitCode::kDone;
}

constexpr Command kCommands[] = {
    {"offline", "[CODE]", 0, 1, "shows or records why the access point went offline",
     "CODE: 1 system reboot, 2 change of the controller, 3 change of the\n"
     "configuration, 4 WTP crash, 5 WTP lock, 6 network timeout. The time is now.",
     "tqctl status offline 6", offline},
    {"traffic", "[up|down]", 0, 1, "shows or records whether traffic statistics are uploaded",
     "What is not recorded counts as up.", "tqctl status traffic", traffic},
    {"capwap", "[NUMBER]", 0, 1, "shows or stores the state of the controller link",
     "The option \"status\" of the first section of type capwap in the file wtp.\n"
     "NUMBER is 0 or more.",
     "tqctl status capwap", capwap},
    {"coredump", "[SERVER]", 0, 1, "shows or stores the server that receives core dumps",
     "SERVER is at most 16 bytes long. An empty one forgets what is stored.",
     "tqctl status coredump 192.0.2.7", coredump},
};
static_assert(is_complete(kCommands));

}  // namespace

constinit const Family kStatus = {"status", "state that the daemons share",
                                  "Without an argument a command shows what is recorded.",
                                  kCommands};

}  // namespace tqctl
