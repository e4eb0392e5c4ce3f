#include "tq/process.h"

#include <dirent.h>
#include <fcntl.h>
#include <signal.h>

#include <cerrno>
#include <charconv>
#include <cstring>
#include <string_view>

#include "foundation/file.h"
#include "foundation/log.h"
#include "foundation/text.h"
#include "records/process_table.h"

namespace {

using tq::LineReader;
using tq::Pipe;
using tq::Text;
using tq::UniqueFd;

constexpr uint32_t kUnknownProcess = 0;
constexpr uint32_t kKernelLog = 1;
constexpr int kReloadSignal = 49;

constexpr std::string_view kBlanks = " \t\n\v\f\r";

// The processes that /proc lists.
class ProcessList {
  public:
    ProcessList() : directory_(opendir("/proc")) {}
    ~ProcessList() {
        if (directory_) closedir(directory_);
    }
    ProcessList(const ProcessList&) = delete;
    ProcessList& operator=(const ProcessList&) = delete;

    explicit operator bool() const { return directory_ != nullptr; }

    // The next process id; 0 at the end, which errno tells from a failure.
    int next() {
        while (const dirent* entry = read_entry()) {
            name_ = entry->d_name;
            const char* end = name_ + strlen(name_);
            int pid = 0;
            const auto [rest, error] = std::from_chars(name_, end, pid);
            if (rest == end && error == std::errc() && pid > 0) return pid;
        }
        return 0;
    }

    // The entry of the process id that next() gave.
    [[nodiscard]] const char* entry_name() const { return name_; }

  private:
    const dirent* read_entry() {
        errno = 0;
        return readdir(directory_);
    }

    DIR* directory_;
    const char* name_ = nullptr;
};

UniqueFd open_status(int pid) {
    Text<32> path;
    path.append("/proc/%d/status", pid);
    return UniqueFd(open(path.c_str(), O_RDONLY | O_CLOEXEC));
}

// The name in the next line, as fscanf("Name: %1023s") reads it; empty where there is none. Valid
// until the next line is read.
std::string_view scan_name(LineReader& lines) {
    constexpr std::string_view kKey = "Name:";
    const char* line = lines.next();
    if (!line || strncmp(line, kKey.data(), kKey.size()) != 0) return {};
    line += kKey.size();
    line += strspn(line, kBlanks.data());
    return {line, strcspn(line, kBlanks.data())};
}

bool is_named(int pid, std::string_view name) {
    const UniqueFd status = open_status(pid);
    if (!status) return false;
    LineReader lines(status.get());
    return scan_name(lines) == name;
}

// False where the process surely has another name. The kernel makes "comm", the bare name, in less
// than half the time of "status", which shows the same name with its line feeds escaped.
bool may_be_named(int pid, std::string_view name) {
    Text<32> path;
    path.append("/proc/%d/comm", pid);
    const UniqueFd file(open(path.c_str(), O_RDONLY | O_CLOEXEC));
    if (!file) return true;
    char comm[128];
    const ssize_t got = tq::read_some(file.get(), comm, sizeof(comm));
    return got > 0 &&
           std::string_view(comm, static_cast<size_t>(got)).find(name) != std::string_view::npos;
}

const syslog_process* find_row(uint32_t id) {
    for (const syslog_process& row : tq::process_table()) {
        if (row.id == id) return &row;
    }
    return nullptr;
}

// Null for what does not name one process.
const char* name_to_look_for(uint32_t id) {
    if (id == kUnknownProcess || id == tq::kAllProcesses) return nullptr;
    if (id == kKernelLog) return "klogd";
    const syslog_process* row = find_row(id);
    return row ? row->name : nullptr;
}

// True where "|name|" or "*name|" is in the list.
bool is_listed(std::string_view list, std::string_view name) {
    for (size_t at = list.find(name, 1); at != std::string_view::npos;
         at = list.find(name, at + 1)) {
        const char before = list[at - 1];
        const size_t after = at + name.size();
        if ((before == '|' || before == '*') && after < list.size() && list[after] == '|')
            return true;
    }
    return false;
}

// The line with the mask of caught signals, or null.
const char* find_caught_signals(LineReader& lines) {
    while (const char* line = lines.next()) {
        if (strstr(line, "SigCgt:")) return line;
    }
    return nullptr;
}

// The mask is in hexadecimal, its last digit for the signals 1 to 4, and a line feed ends the line:
// the fourteenth character from the end is for 49 to 52, however many signals the kernel has.
bool catches_reload_signal(std::string_view caught) {
    constexpr size_t kFromEnd = 14;
    if (caught.size() < kFromEnd) return false;
    const char* digit = caught.data() + caught.size() - kFromEnd;
    unsigned value = 0;
    const auto [rest, error] = std::from_chars(digit, digit + 1, value, 16);
    return error == std::errc() && (value & 1U) != 0;
}

}  // namespace

// Field tools match on the line numbers of these log lines.

int get_process_count() {
    return static_cast<int>(tq::kProcessCount);
}

int get_process_id(const char* name) {
    if (!name) {
        TQ_LOG_AT(91, LOG_ERR, "process name is NULL\n\n");
        return -1;
    }
    for (const syslog_process& row : tq::process_table()) {
        if (row.name && strcmp(row.name, name) == 0) return static_cast<int>(row.id);
    }
    TQ_LOG_AT(103, LOG_ERR, "process %s not found\n\n", name);
    return -1;
}

const char* get_process_name(int id) {
    const syslog_process* row = find_row(static_cast<uint32_t>(id));
    if (row) return row->name;
    TQ_LOG_AT(120, LOG_ERR, "process id %d not found\n\n", id);
    return nullptr;
}

int apps_is_running(uint32_t id) {
    const char* name = name_to_look_for(id);
    if (!name) return -1;
    ProcessList processes;
    if (!processes) return -1;
    while (const int pid = processes.next()) {
        if (may_be_named(pid, name) && is_named(pid, name)) return 1;
    }
    return errno == 0 ? 0 : -1;
}

int check_if_proc_running(const char* name) {
    Text<1024> command;
    command.append("ps|grep %s|grep -v grep|grep -v clish|grep -v kill", tq::printable(name));
    // A command that was cut would be another one.
    if (!name || command.cut()) {
        TQ_LOG(LOG_ERR, "invalid parameters\n");
        return 0;
    }
    const Pipe pipe(command.c_str());
    if (!pipe) {
        TQ_LOG_AT(561, LOG_ERR, "Execute %s error.\n", command.c_str());
        return 0;
    }
    LineReader lines(pipe.fd());
    if (!lines.next()) return 0;
    TQ_LOG_AT(565, LOG_ERR, "process '%s' is running\n", name);
    return 1;
}

int tq::notice_apps(const char* list) {
    ProcessList processes;
    if (!processes) return 0;
    while (const int pid = processes.next()) {
        const UniqueFd status = open_status(pid);
        if (!status) continue;
        LineReader lines(status.get());
        const std::string_view name = scan_name(lines);
        if (name.empty() || !is_listed(list, name)) continue;
        const char* caught = find_caught_signals(lines);
        if (!caught) continue;
        if (catches_reload_signal(caught)) {
            kill(pid, kReloadSignal);
            continue;
        }
        TQ_LOG_AT(152, LOG_ERR, "find pidname:%s pid%d \n", processes.entry_name(), pid);
        TQ_LOG_AT(153, LOG_ERR, "%s \n", caught);
    }
    return 0;
}
