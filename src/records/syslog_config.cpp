#include "tq/syslog_config.h"

#include <arpa/inet.h>
#include <fcntl.h>
#include <signal.h>
#include <syslog.h>
#include <unistd.h>

#include <cerrno>
#include <cstddef>
#include <cstdio>
#include <cstring>
#include <memory>

#include "foundation/file.h"
#include "foundation/log.h"
#include "foundation/number_reader.h"
#include "foundation/text.h"
#include "records/process_table.h"
#include "tq/command.h"
#include "tq/netif.h"

syslog_process* syslog_cfg = nullptr;
uint32_t syslog_server_status = 0;
uint32_t syslog_file_size = 2048;

const syslog_facility facilitynames[] = {
    {"auth", 32},     {"authpriv", 80}, {"cron", 72},    {"daemon", 24},  {"ftp", 88},
    {"kern", 0},      {"lpr", 48},      {"mail", 16},    {"mark", 192},   {"news", 56},
    {"security", 32}, {"syslog", 40},   {"user", 8},     {"uucp", 64},    {"local0", 128},
    {"local1", 136},  {"local2", 144},  {"local3", 152}, {"local4", 160}, {"local5", 168},
    {"local6", 176},  {"local7", 184},  {nullptr, -1},
};

wcd_trace_settings wcd_trace = {};

static_assert(sizeof(wcd_trace_settings) == 48 && offsetof(wcd_trace_settings, id) == 0);
static_assert(sizeof(void*) != 4 || sizeof(syslog_process) == 24);

namespace {

using tq::kReloadSignal;
using tq::Text;
using tq::UniqueFd;
using tq::UniqueFile;

constexpr char kConfigFile[] = "/etc/syslogd.conf";
constexpr char kReportFile[] = "/tmp/syslogserver";

constexpr uint32_t kMinFileSize = 10;
constexpr uint32_t kMaxFileSize = 10240;

// The facility of LOG_LOCAL5.
constexpr char kLocal5[] = "local5";

using ConfigLine = Text<tq::kConfigLineSize>;

// The rows of the table in use.
struct Rows {
    static syslog_process* begin() { return syslog_cfg; }
    static syslog_process* end() { return syslog_cfg ? syslog_cfg + tq::kProcessCount : nullptr; }
};

bool is_meant(const syslog_process& row, uint32_t id) {
    return id == tq::kAllProcesses || row.id == id;
}

// Levels on their way to their processes: each in its file, then one notice to all.
class LevelPush {
  public:
    LevelPush() { names_.append("|"); }

    // False where the level file cannot be written; that process gets no notice.
    bool add(const syslog_process& row, int level) {
        char path[128];
        snprintf(path, sizeof(path), "/tmp/.loglvl.%s", tq::printable(row.tag));
        char line[256];
        snprintf(line, sizeof(line), "%s %d\n", tq::printable(row.name), level);
        if (tq::write_file(path, line) != 0) return false;
        names_.append("%s|", tq::printable(row.name));
        return true;
    }

    // 1 when there is nobody to tell.
    int notify() { return names_.data()[1] == '\0' ? 1 : tq::notice_apps(names_.c_str()); }

  private:
    Text<tq::kNameListSize> names_;
};

// The trace's level, or else its own, to each process where they differ.
int push_levels(bool trace) {
    LevelPush push;
    for (const syslog_process& row : Rows()) {
        const auto level = static_cast<int32_t>(row.level);
        if (level != wcd_trace.level) push.add(row, trace ? wcd_trace.level : level);
    }
    return push.notify();
}

const char* facility_name_of(uint32_t value) {
    const syslog_facility* entry = facilitynames;
    while (entry->name && entry->value != static_cast<int>(value))
        entry++;
    return entry->name;
}

// Where a block of the configuration sends its processes' lines: there is one for each facility,
// one for each pair of server and facility, and one for all.
enum class Target { kFile, kServer, kTrace };

uint32_t server_of(const syslog_process& row) {
    // Where it stands in the row, it can be read as one word.
    static_assert(offsetof(syslog_process, server) % alignof(uint32_t) == 0);
    uint32_t server = 0;
    memcpy(&server, std::assume_aligned<alignof(uint32_t)>(row.server), sizeof(server));
    return server;
}

bool may_lead(const syslog_process& row, Target target) {
    return target == Target::kFile ? row.level != SYSLOG_NO_LOCAL_LOG : server_of(row) != 0;
}

bool is_in_group(const syslog_process& row, const syslog_process& leader, Target target) {
    if (target == Target::kTrace) return true;
    if (target == Target::kServer && server_of(row) != server_of(leader)) return false;
    return row.facility == leader.facility;
}

// The first of its group that may lead one.
bool leads_block(const syslog_process& leader, Target target) {
    const syslog_process* row = syslog_cfg;
    while (!may_lead(*row, target) || !is_in_group(*row, leader, target)) {
        if (row++ == &leader) return false;
    }
    return row == &leader;
}

// Starts a block with the tags of the leader and of each later row of its group.
void append_group(ConfigLine& line, const syslog_process* leader, Target target) {
    line.append("!|");
    for (const syslog_process* row = leader; row != Rows::end(); row++) {
        if (is_in_group(*row, *leader, target)) line.append("%s|", tq::printable(row->tag));
    }
}

// A block for each group. Returns the length of the last row's own block, 0 where it leads none.
size_t write_blocks(FILE* file, Target target) {
    size_t length = 0;
    for (const syslog_process& leader : Rows()) {
        length = 0;
        if (!leads_block(leader, target)) continue;
        ConfigLine line;
        append_group(line, &leader, target);
        if (target == Target::kFile) {
            line.append("\n%s.*\t\t%%/var/log/system.log %d 666\n\n",
                        tq::printable(facility_name_of(leader.facility)),
                        static_cast<int>(syslog_file_size * 1024));
        } else {
            line.append("\n%s.*\t\t@%d.%d.%d.%d\n\n", kLocal5, leader.server[0], leader.server[1],
                        leader.server[2], leader.server[3]);
        }
        fputs(line.c_str(), file);
        length = strlen(line.c_str());
    }
    return length;
}

// The block stands behind `position` bytes of a cleared line, so that behind a block of the last
// row's own nothing of it is written: setups in the field give that row a facility of its own in
// order to keep the trace out of the file.
void write_trace_block(const char* caller, FILE* file, size_t position) {
    uint32_t address = 0;
    if (!wcd_trace.enable || !wcd_trace.host_name) return;
    if (get_ip_by_hostname(wcd_trace.host_name, &address) != 0) return;
    char dotted[INET_ADDRSTRLEN];
    inet_ntop(AF_INET, &address, dotted, sizeof(dotted));
    ConfigLine line;
    append_group(line, syslog_cfg, Target::kTrace);
    line.append("\n%s.*\t\t&%s %d %llu\n\n", kLocal5, dotted, wcd_trace.port,
                static_cast<unsigned long long>(wcd_trace.id));
    const char* text = position == 0 ? line.c_str() : "";
    TQ_LOG_IN(caller, LOG_ERR, "buf(%d): %s\n", static_cast<int>(position + strlen(line.c_str())),
              text);
    fputs(text, file);
}

bool write_config(const char* caller) {
    const UniqueFile file(fopen(kConfigFile, "we"));
    if (!file) return false;
    fprintf(file.get(), "logLocalFac=%s\n\n", kLocal5);
    const size_t position = write_blocks(file.get(), Target::kFile);
    write_trace_block(caller, file.get(), position);
    if (syslog_server_status) write_blocks(file.get(), Target::kServer);
    return true;
}

// The daemon's side: the path of its level file, which ends in its ident. The log keeps a pointer
// to the ident.
constexpr size_t kLevelFileStart = sizeof("/tmp/.loglvl.") - 1;
constinit char level_file[kLevelFileStart + 128] = "";
constexpr char* kIdent = &level_file[kLevelFileStart];
constinit bool handler_installed = false;

// The number behind the first word, as sscanf("%*s %d") reads it; none where it takes more than 32
// bits.
bool second_word_number(const char* text, int& number) {
    tq::NumberReader reader(text);
    reader.word();
    return reader.number(number);
}

// "%s_r %d\n", put together from its end: no formatter is safe in a signal handler.
void acknowledge(const UniqueFd& file, int level) {
    char line[192];
    char* const end = line + sizeof(line);
    char* start = end;
    *--start = '\n';
    auto digits = static_cast<unsigned>(level);
    if (level < 0) digits = 0 - digits;
    for (; digits != 0 || *start == '\n'; digits /= 10)
        *--start = static_cast<char>('0' + digits % 10);
    if (level < 0) *--start = '-';
    for (const char c : {' ', 'r', '_'})
        *--start = c;
    for (size_t i = strlen(kIdent); i > 0; i--)
        *--start = kIdent[i - 1];
    lseek(file.get(), 0, SEEK_SET);
    (void)!write(file.get(), start, static_cast<size_t>(end - start));
}

// Runs in signal context, too.
int reload_syslog_level() {
    UniqueFd file(open(level_file, O_RDWR | O_CLOEXEC));
    if (!file) return 0;
    char text[256];
    int level = 0;
    if (tq::read_text(file.get(), text) && second_word_number(text, level)) {
        setlogmask(LOG_UPTO(static_cast<unsigned>(level) & LOG_PRIMASK));
        acknowledge(file, level);
    }
    return close(file.release());
}

}  // namespace

void init_syslog() {
    syslog_cfg = get_syslog_cfg();
    if (!syslog_cfg) {
        puts("syslog_cfg is NULL");
        return;
    }
    LevelPush push;
    for (const syslog_process& row : Rows())
        push.add(row, static_cast<int>(row.level));
    push.notify();
    write_syslog_config_file();
}

syslog_process* get_syslog_cfg() {
    return tq::process_table();
}

void write_syslog_config_file() {
    if (!syslog_cfg || !write_config(__func__)) return;
    my_system("killall -1 syslogd");
}

void write_syslog_pmr_ap_report_file(uint32_t on) {
    (void)tq::write_file(kReportFile, on ? "on logging" : "close logging");
}

int set_process_syslog_level(int process_id, int level) {
    LevelPush push;
    for (syslog_process& row : Rows()) {
        if (!is_meant(row, static_cast<uint32_t>(process_id))) continue;
        TQ_LOG(LOG_DEBUG, "process id(%d) current level(%d) config level(%d)\n",
               static_cast<int>(row.id), static_cast<int>(row.level), level);
        if (static_cast<int>(row.level) == level || !push.add(row, level)) continue;
        row.level = static_cast<uint32_t>(level);
    }
    return push.notify();
}

int get_process_syslog_level(uint32_t process_id) {
    const syslog_process* row = tq::find_process(syslog_cfg, process_id);
    return row ? static_cast<int>(row->level) : -1;
}

void set_server_ip_scfg(uint32_t process_id, const uint8_t* address) {
    if (!address) {
        tq::reject(__func__);
        return;
    }
    bool changed = false;
    for (syslog_process& row : Rows()) {
        if (!is_meant(row, process_id)) continue;
        changed |= memcmp(row.server, address, sizeof(row.server)) != 0;
        memcpy(row.server, address, sizeof(row.server));
    }
    if (changed && syslog_server_status) write_syslog_config_file();
}

void get_syslog_server_ip(uint32_t process_id, uint8_t* address) {
    if (!address) {
        tq::reject(__func__);
        return;
    }
    const syslog_process* row = tq::find_process(syslog_cfg, process_id);
    if (row) memcpy(address, row->server, sizeof(row->server));
}

void set_syslog_status(uint32_t status) {
    if (status == syslog_server_status) return;
    syslog_server_status = status;
    write_syslog_pmr_ap_report_file(status);
    write_syslog_config_file();
}

uint32_t get_syslog_status() {
    return syslog_server_status;
}

void set_log_file_size_scfg(uint32_t size) {
    const bool in_range = size >= kMinFileSize && size <= kMaxFileSize;
    const uint32_t limit = in_range ? size : kMaxFileSize;
    if (limit == syslog_file_size) return;
    syslog_file_size = limit;
    write_syslog_config_file();
}

uint32_t get_syslog_file_size() {
    return syslog_file_size;
}

int set_wcd_trace_conf() {
    if (wcd_trace.enable == 0) {
        unload_wcd_trace_level();
    } else if (wcd_trace.level >= 0 && wcd_trace.host_name && wcd_trace.port != 0) {
        load_wcd_trace_level();
    } else {
        return TQ_FAIL(
            "Can't start wcd trace, because level is invalid or ism server config is null\n");
    }
    TQ_LOG(LOG_INFO, "write config to file, local trace is %s\n\n",
           wcd_trace.enable == 1 ? "Enable" : "Disable");
    write_syslog_config_file();
    return 0;
}

int load_wcd_trace_level() {
    return push_levels(true);
}

int unload_wcd_trace_level() {
    return push_levels(false);
}

void tq_openlog(const char* ident) {
    if (!ident) return;
    snprintf(level_file, sizeof(level_file), "/tmp/.loglvl.%s", ident);
    openlog(kIdent, LOG_PID | LOG_NDELAY, LOG_LOCAL5);
    // Before the level is read, so that none is missed in between. The kernel ignores what a
    // handler returns, and interrupted system calls go on.
    if (!handler_installed) {
        signal(kReloadSignal,
               reinterpret_cast<sighandler_t>(reinterpret_cast<void (*)()>(reset_syslog_prority)));
    }
    handler_installed = true;
    reload_syslog_level();
}

void tq_closelog() {
    closelog();
}

int reset_syslog_prority(int signal_number) {
    if (signal_number != kReloadSignal) return kReloadSignal;
    const int error = errno;
    const int result = reload_syslog_level();
    errno = error;
    return result;
}
