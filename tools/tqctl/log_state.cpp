#include "log_state.h"

#include <arpa/inet.h>
#include <tq/syslog_config.h>

#include <cinttypes>
#include <cstdio>
#include <cstring>
#include <string_view>

#include "file.h"
#include "number.h"
#include "process.h"

namespace tqctl {

namespace {

void take_level(syslog_process& process) {
    char path[64];
    snprintf(path, sizeof(path), "/tmp/.loglvl.%s", process.tag);
    const File file(fopen(path, "re"));
    char digits[16] = "";
    if (!file || fscanf(file.get(), "%*s %15[-0-9]", digits) != 1) return;
    const auto level = parse_number(digits, INT32_MIN, INT32_MAX);
    if (level) process.level = static_cast<uint32_t>(*level);
}

void take_status() {
    const File file(fopen("/tmp/syslogserver", "re"));
    char word[8] = "";
    if (file && fscanf(file.get(), "%7s", word) == 1)
        syslog_server_status = strcmp(word, "on") == 0;
}

// "!|TAG|TAG|"
bool lists(std::string_view programs, std::string_view tag) {
    for (size_t at = programs.find(tag, 1); at != std::string_view::npos;
         at = programs.find(tag, at + 1)) {
        const size_t after = at + tag.size();
        if (programs[at - 1] == '|' && after < programs.size() && programs[after] == '|')
            return true;
    }
    return false;
}

void take_server(const char* programs, const char* dotted) {
    in_addr address{};
    if (inet_pton(AF_INET, dotted, &address) != 1) return;
    for (syslog_process& process : known_processes()) {
        if (lists(programs, process.tag)) memcpy(process.server, &address, sizeof(address));
    }
}

void take_trace(const char* dotted, uint16_t port, uint64_t id) {
    static char host[INET_ADDRSTRLEN];
    snprintf(host, sizeof(host), "%s", dotted);
    wcd_trace = {
        .id = id, .host_name = host, .port = port, .level = -1, .enable = 1, .reserved = {}};
}

// The line behind a list of programs.
void take_target(const char* programs, const char* line) {
    char dotted[INET_ADDRSTRLEN];
    uint32_t bytes = 0;
    uint16_t port = 0;
    uint64_t id = 0;
    if (sscanf(line, "%*[^\t]\t\t%%/var/log/system.log %" SCNu32, &bytes) == 1)
        syslog_file_size = bytes / 1024;
    if (sscanf(line, "%*[^\t]\t\t@%15[0-9.]", dotted) == 1) take_server(programs, dotted);
    if (sscanf(line, "%*[^\t]\t\t&%15[0-9.] %" SCNu16 " %" SCNu64, dotted, &port, &id) == 3)
        take_trace(dotted, port, id);
}

void take_config() {
    const File file(fopen("/etc/syslogd.conf", "re"));
    if (!file) return;
    char programs[2048] = "";
    char line[2048];
    while (fgets(line, sizeof(line), file.get())) {
        if (strncmp(line, "!|", 2) == 0) {
            memcpy(programs, line, sizeof(line));
        } else {
            take_target(programs, line);
        }
    }
}

}  // namespace

void take_log_state() {
    syslog_cfg = get_syslog_cfg();
    for (syslog_process& process : known_processes())
        take_level(process);
    take_status();
    take_config();
}

}  // namespace tqctl
