#include "tq/process.h"

#include <dirent.h>
#include <signal.h>

#include <cerrno>
#include <climits>
#include <cstdio>
#include <cstring>
#include <string_view>

#include "foundation/file.h"
#include "foundation/log.h"
#include "foundation/number_reader.h"
#include "foundation/text.h"
#include "records/process_table.h"

namespace {

using tq::LineReader;
using tq::Pipe;
using tq::Text;
using tq::UniqueFd;

constexpr uint32_t kUnknownProcess = 0;
constexpr uint32_t kKernelLog = 1;

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
            tq::NumberReader reader(name_);
            uint32_t pid = 0;
            if (reader.number_up_to(INT_MAX, pid) && pid > 0 && reader.literal('\0')) {
                return static_cast<int>(pid);
            }
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

int open_entry(int pid, const char* file) {
    char path[32];
    snprintf(path, sizeof(path), "/proc/%d/%s", pid, file);
    return tq::open_for_reading(path);
}

// What the kernel tells of a process, as far as it was read. What it hands out is valid until the
// next line is read.
class ProcessFile {
  public:
    ProcessFile(int pid, const char* file) : file_(open_entry(pid, file)), lines_(file_.get()) {}

    explicit operator bool() const { return static_cast<bool>(file_); }

    const char* next_line() { return lines_.next(); }

    // The name in the next line, as fscanf("Name: %1023s") reads it; empty where there is none, as
    // of a process that is gone.
    std::string_view scan_name() {
        const char* line = next_line();
        if (!line) return {};
        tq::NumberReader reader(line);
        return reader.literal("Name:") ? reader.word() : std::string_view();
    }

    // The next line that has it, or null.
    const char* find(const char* part) {
        while (const char* line = next_line()) {
            if (strstr(line, part)) return line;
        }
        return nullptr;
    }

  private:
    UniqueFd file_;
    LineReader lines_;
};

// False where the process surely has another name. The kernel makes "comm", the bare name, in less
// than half the time of "status", which shows the same name with its line feeds escaped.
bool may_be_named(int pid, const char* name) {
    ProcessFile comm(pid, "comm");
    if (!comm) return true;
    const char* line = comm.next_line();
    return line && strstr(line, name);
}

// Null for what does not name one process.
const char* name_to_look_for(uint32_t id) {
    if (id == kUnknownProcess || id == tq::kAllProcesses) return nullptr;
    if (id == kKernelLog) return "klogd";
    const syslog_process* row = tq::find_process(tq::process_table(), id);
    return row ? row->name : nullptr;
}

// True where "|name|" or "*name|" is in the list.
bool is_listed(const char* list, std::string_view name) {
    for (; *list; list++) {
        const bool starts = *list == '|' || *list == '*';
        if (starts && strncmp(list + 1, name.data(), name.size()) == 0 &&
            list[1 + name.size()] == '|') {
            return true;
        }
    }
    return false;
}

// The mask is in hexadecimal, its last digit for the signals 1 to 4, and a line feed ends the line:
// the fourteenth character from the end is for 49 to 52, however many signals the kernel has.
bool catches_reload_signal(const char* caught) {
    constexpr size_t kFromEnd = 14;
    const size_t length = strlen(caught);
    return length >= kFromEnd && strchr("13579bdfBDF", caught[length - kFromEnd]);
}

}  // namespace

// Field tools match on the line numbers of these log lines.

int get_process_count() {
    return static_cast<int>(tq::kProcessCount);
}

int get_process_id(const char* name) {
    if (!name) return TQ_LOG_AT(91, LOG_ERR, "process name is NULL\n\n");
    const syslog_process* row = tq::process_table();
    for (size_t i = 0; i < tq::kProcessCount; i++, row++) {
        if (row->name && strcmp(row->name, name) == 0) return static_cast<int>(row->id);
    }
    return TQ_LOG_AT(103, LOG_ERR, "process %s not found\n\n", name);
}

const char* get_process_name(int id) {
    const syslog_process* row = tq::find_process(tq::process_table(), static_cast<uint32_t>(id));
    if (row) return row->name;
    TQ_LOG_AT(120, LOG_ERR, "process id %d not found\n\n", id);
    return nullptr;
}

int apps_is_running(uint32_t id) {
    const char* name = name_to_look_for(id);
    if (!name) return -1;
    ProcessList processes;
    if (!processes) return -1;
    // No process has the empty name, which is also what a status without one reads as.
    if (!*name) return 0;
    while (const int pid = processes.next()) {
        if (may_be_named(pid, name) && ProcessFile(pid, "status").scan_name() == name) return 1;
    }
    return errno == 0 ? 0 : -1;
}

int check_if_proc_running(const char* name) {
    Text<1024> command;
    if (name) command.append("ps|grep %s|grep -v grep|grep -v clish|grep -v kill", name);
    // A command that was cut would be another one.
    if (!name || command.cut()) {
        tq::reject(__func__);
        return 0;
    }
    const Pipe pipe(command.c_str());
    if (!pipe) {
        TQ_LOG_AT(561, LOG_ERR, "Execute %s error.\n", command.c_str());
        return 0;
    }
    char any = '\0';
    if (tq::read_some(pipe.fd(), &any, sizeof(any)) <= 0) return 0;
    TQ_LOG_AT(565, LOG_ERR, "process '%s' is running\n", name);
    return 1;
}

int tq::notice_apps(const char* list) {
    ProcessList processes;
    if (!processes) return 0;
    while (const int pid = processes.next()) {
        ProcessFile status(pid, "status");
        const std::string_view name = status.scan_name();
        if (name.empty() || !is_listed(list, name)) continue;
        const char* caught = status.find("SigCgt:");
        if (!caught) continue;
        if (catches_reload_signal(caught)) {
            kill(pid, tq::kReloadSignal);
            continue;
        }
        TQ_LOG_AT(152, LOG_ERR, "find pidname:%s pid%d \n", processes.entry_name(), pid);
        TQ_LOG_AT(153, LOG_ERR, "%s \n", caught);
    }
    return 0;
}
