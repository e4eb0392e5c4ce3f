#include "tq/status_file.h"

#include <sys/socket.h>
#include <sys/un.h>
#include <unistd.h>

#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <ctime>
#include <span>

#include "foundation/file.h"
#include "foundation/log.h"
#include "foundation/number_reader.h"
#include "foundation/text.h"
#include "tq/command.h"
#include "tq/uci_path.h"

namespace {

using tq::HeapText;
using tq::Text;
using tq::UniqueFd;
using tq::UniqueFile;

constexpr char kOfflineReason[] = "/tmp/.offline.reason";
constexpr char kTrafficUpload[] = "/tmp/.traffic_statistics_upload";
constexpr char kCoredumpServer[] = "/usr/config/coredump_server";
constexpr char kBackupScript[] = "/usr/bin/backup_log.sh";

constexpr size_t kCoredumpServerSize = 16;

// By code; what is not among them is shown as the first.
constexpr uint32_t kSystemReboot = 1;
constexpr char kReasons[][sizeof("Change Configuration")] = {
    "",          "System Reboot", "Change AC",       "Change Configuration",
    "WTP Crash", "WTP Lock",      "Network Timeout",
};

const char* reason_text(const char* code) {
    uint32_t number = 0;
    const bool known = tq::NumberReader(code).number_up_to(std::size(kReasons) - 1, number);
    return kReasons[known && number > 0 ? number : kSystemReboot];
}

uint32_t store(std::span<char> out, const char* text) {
    tq::copy_text(out.data(), out.size(), text);
    return static_cast<uint32_t>(strlen(out.data()));
}

}  // namespace

// Field tools match on the line numbers of these log lines.

void tq_set_offline_reason(int reason) {
    const time_t now = time(nullptr);
    tm local{};
    // The zone of now, however long this process runs: localtime_r alone may keep an older one.
    tzset();
    localtime_r(&now, &local);
    char record[64];
    snprintf(record, sizeof(record), "%d\n%d-%02d-%02d %02d:%02d:%02d\n", reason,
             local.tm_year + 1900, local.tm_mon + 1, local.tm_mday, local.tm_hour, local.tm_min,
             local.tm_sec);
    if (tq::write_file(kOfflineReason, record) < 0) {
        TQ_LOG_AT(908, LOG_ERR, "fopen %s fail:%s\n", kOfflineReason, strerror(errno));
    }
}

int tq_get_offline_reason(offline_reason_info* out) {
    if (!out) return tq::reject(__func__);
    const UniqueFile file(fopen(kOfflineReason, "re"));
    if (!file) {
        return TQ_LOG_AT(941, LOG_ERR, "fopen %s fail:%s\n", kOfflineReason, strerror(errno));
    }
    const HeapText code(tq_hal_get_file_line(file.get()));
    const HeapText time(code ? tq_hal_get_file_line(file.get()) : nullptr);
    if (!time) return -1;
    out->time_length = store(out->time, time.get());
    out->reason_length = store(out->reason, reason_text(code.get()));
    return 0;
}

int set_traffic_upload_status(const void* up) {
    const char* line = up ? "up\n" : "down\n";
    if (tq::write_file(kTrafficUpload, line) < 0) {
        return TQ_LOG_AT(581, LOG_ERR, "open %s fail\n", kTrafficUpload);
    }
    TQ_LOG_AT(591, LOG_DEBUG, "%s", line);
    return 0;
}

int get_traffic_upload_status() {
    char line[32];
    if (tq::read_first_line(kTrafficUpload, line) <= 0) return 0;
    TQ_LOG_AT(611, LOG_DEBUG, "%s\n", line);
    return strstr(line, "down") ? 1 : 0;
}

int set_capwap_status_file(int status) {
    return uci_set_int_option_by_id("wtp", "capwap", 0, "status", static_cast<unsigned>(status));
}

int get_capwap_status_file() {
    int status = -1;
    return uci_get_int_option_by_id("wtp", "capwap", 0, "status", &status) == 0 ? status : -1;
}

int save_coredump_server(const char* server) {
    if (!server) return tq::reject(__func__);
    return tq::write_file(kCoredumpServer, server) == 0 ? 0 : -1;
}

int get_coredump_server(char* out) {
    if (!out) return tq::reject(__func__);
    const UniqueFd file(tq::open_for_reading(kCoredumpServer));
    return file && tq::read_some(file.get(), out, kCoredumpServerSize) > 0 ? 0 : -1;
}

int delete_coredump_server() {
    return unlink(kCoredumpServer);
}

int backup_all_log(const char* a, const char* b) {
    Text<64> command;
    if (a && b) command.append("%s  %s  %s", kBackupScript, a, b);
    if (!a || !b || command.cut()) {
        tq::reject(__func__);
        return 0;
    }
    if (access(kBackupScript, R_OK) == 0) (void)!system(command.c_str());
    return 0;
}

int tq_upgrade_mutex_begin() {
    UniqueFd lock(socket(AF_UNIX, SOCK_DGRAM | SOCK_CLOEXEC, 0));
    if (!lock) return -1;
    // The whole path is the name, the zeros behind the text too: other holders bind the same 110
    // bytes.
    sockaddr_un address{};
    static_assert(sizeof(address) == 110);
    address.sun_family = AF_UNIX;
    constexpr char kName[] = "upgrade-img";
    memcpy(&address.sun_path[1], kName, sizeof(kName));
    const auto* const bound = reinterpret_cast<const sockaddr*>(&address);
    if (bind(lock.get(), bound, sizeof(address)) != 0) return -1;
    return lock.release();
}

int tq_is_upgrade_mutex_begin() {
    const UniqueFd lock(tq_upgrade_mutex_begin());
    return lock ? 0 : 1;
}

int tq_upgrade_mutex_end(int handle) {
    const UniqueFd lock(handle);
    return 0;
}
