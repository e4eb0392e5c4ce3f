#include "tq/syslog_config.h"

#include <arpa/inet.h>
#include <fcntl.h>
#include <signal.h>
#include <syslog.h>
#include <unistd.h>

#include <cerrno>
#include <charconv>
#include <cinttypes>
#include <cstddef>
#include <cstdio>
#include <cstring>
#include <optional>
#include <span>
#include <string_view>

#include "foundation/file.h"
#include "foundation/log.h"
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

using tq::LogSite;
using tq::Text;
using tq::UniqueFd;
using tq::UniqueFile;

constexpr char kConfigFile[] = "/etc/syslogd.conf";
constexpr char kReportFile[] = "/tmp/syslogserver";

// One level file a process: "/tmp/.loglvl.%s" with its tag.
constexpr std::string_view kLevelFile = "/tmp/.loglvl.";

constexpr int kReloadSignal = 49;
constexpr uint32_t kMinFileSize = 10;
constexpr uint32_t kMaxFileSize = 10240;

using ConfigLine = Text<tq::kConfigLineSize>;

std::span<syslog_process> rows() {
    return {syslog_cfg, syslog_cfg ? tq::kProcessCount : 0};
}

bool is_meant(const syslog_process& row, uint32_t id) {
    return id == tq::kAllProcesses || row.id == id;
}

const syslog_process* find_row(uint32_t id) {
    for (const syslog_process& row : rows()) {
        if (row.id == id) return &row;
    }
    return nullptr;
}

UniqueFd create(const char* path) {
    return UniqueFd(open(path, O_WRONLY | O_CREAT | O_TRUNC | O_CLOEXEC, 0666));
}

bool write_whole(const UniqueFd& file, std::string_view text) {
    return write(file.get(), text.data(), text.size()) == static_cast<ssize_t>(text.size());
}

// Levels on their way to their processes: each in its file, then one notice to all.
class LevelPush {
  public:
    LevelPush() { names_.append("|"); }

    // False where the level file cannot be written; that process gets no notice.
    bool add(const syslog_process& row, int level) {
        Text<128> path;
        path.append("/tmp/.loglvl.%s", tq::printable(row.tag));
        const UniqueFd file = create(path.c_str());
        if (!file) return false;
        Text<256> line;
        line.append("%s %d\n", tq::printable(row.name), level);
        if (!write_whole(file, line.c_str())) return false;
        names_.append("%s|", tq::printable(row.name));
        return true;
    }

    // 1 when there is nobody to tell.
    int notify() { return names_.data()[1] == '\0' ? 1 : tq::notice_apps(names_.c_str()); }

  private:
    Text<tq::kNameListSize> names_;
};

template <typename LevelOf>
int push_where_trace_level_differs(LevelOf level_of) {
    LevelPush push;
    for (const syslog_process& row : rows()) {
        if (static_cast<int32_t>(row.level) != wcd_trace.level) push.add(row, level_of(row));
    }
    return push.notify();
}

const char* facility_name_of(int value) {
    const syslog_facility* entry = facilitynames;
    while (entry->name && entry->value != value)
        entry++;
    return entry->name;
}

// Rows of the table that are in a block already.
class Marks {
  public:
    void set(const syslog_process& row) { bits_ |= bit(row); }
    [[nodiscard]] bool has(const syslog_process& row) const { return (bits_ & bit(row)) != 0; }

  private:
    static_assert(tq::kProcessCount <= 64);
    static uint64_t bit(const syslog_process& row) { return 1ULL << (&row - syslog_cfg); }

    uint64_t bits_ = 0;
};

// Starts a block with the tags of the leader and of each later row of its group, marking them.
template <typename InGroup>
void append_group(ConfigLine& line, const syslog_process& leader, Marks& marks, InGroup in_group) {
    line.append("!|");
    for (const syslog_process& row : rows().subspan(static_cast<size_t>(&leader - syslog_cfg))) {
        if (!in_group(row)) continue;
        line.append("%s|", tq::printable(row.tag));
        marks.set(row);
    }
}

// A block for each facility. Returns the length of the last row's own block, 0 where it leads none.
size_t write_local_blocks(FILE* file) {
    Marks marks;
    size_t length = 0;
    for (const syslog_process& leader : rows()) {
        length = 0;
        if (leader.level == SYSLOG_NO_LOCAL_LOG || marks.has(leader)) continue;
        ConfigLine line;
        append_group(line, leader, marks,
                     [&](const auto& row) { return row.facility == leader.facility; });
        line.append("\n%s.*\t\t%%/var/log/system.log %d 666\n\n",
                    tq::printable(facility_name_of(static_cast<int>(leader.facility))),
                    static_cast<int>(syslog_file_size * 1024));
        fputs(line.c_str(), file);
        length = strlen(line.c_str());
    }
    return length;
}

// The block stands behind `position` bytes of a cleared line, so that behind a block of the last
// row's own nothing of it is written: setups in the field give that row a facility of its own in
// order to keep the trace out of the file.
void write_trace_block(FILE* file, size_t position, LogSite site) {
    uint32_t address = 0;
    if (!wcd_trace.enable || !wcd_trace.host_name) return;
    if (get_ip_by_hostname(wcd_trace.host_name, &address) != 0) return;
    char dotted[INET_ADDRSTRLEN];
    inet_ntop(AF_INET, &address, dotted, sizeof(dotted));
    ConfigLine line;
    line.append("!|");
    for (const syslog_process& row : rows())
        line.append("%s|", tq::printable(row.tag));
    line.append("\n%s.*\t\t&%s %d %llu\n\n", facility_name_of(LOG_LOCAL5), dotted, wcd_trace.port,
                static_cast<unsigned long long>(wcd_trace.id));
    const char* text = position == 0 ? line.c_str() : "";
    TQ_LOG_AS(site, LOG_ERR, "buf(%d): %s\n", static_cast<int>(position + strlen(line.c_str())),
              text);
    fputs(text, file);
}

bool has_server(const syslog_process& row) {
    constexpr uint8_t kNone[sizeof(row.server)] = {};
    return memcmp(row.server, kNone, sizeof(kNone)) != 0;
}

bool same_server(const syslog_process& one, const syslog_process& other) {
    return memcmp(one.server, other.server, sizeof(one.server)) == 0;
}

// A block for each pair of server and facility.
void write_remote_blocks(FILE* file) {
    Marks marks;
    for (const syslog_process& leader : rows()) {
        if (!has_server(leader) || marks.has(leader)) continue;
        ConfigLine line;
        append_group(line, leader, marks, [&](const auto& row) {
            return same_server(row, leader) && row.facility == leader.facility;
        });
        line.append("\n%s.*\t\t@%d.%d.%d.%d\n\n", facility_name_of(LOG_LOCAL5), leader.server[0],
                    leader.server[1], leader.server[2], leader.server[3]);
        fputs(line.c_str(), file);
    }
}

bool write_config(LogSite site) {
    const UniqueFile file(fopen(kConfigFile, "we"));
    if (!file) return false;
    fprintf(file.get(), "logLocalFac=%s\n\n", facility_name_of(LOG_LOCAL5));
    const size_t position = write_local_blocks(file.get());
    write_trace_block(file.get(), position, site);
    if (syslog_server_status) write_remote_blocks(file.get());
    return true;
}

// The daemon's side. The log keeps a pointer to the ident.
constinit char log_ident[128] = "";
constinit bool handler_installed = false;

// Text put together in a signal handler, where no formatter is safe.
class SignalText {
  public:
    SignalText& add(std::string_view text) {
        const size_t length = std::min(text.size(), sizeof(bytes_) - used_);
        memcpy(&bytes_[used_], text.data(), length);
        used_ += length;
        return *this;
    }

    SignalText& add(int number) {
        char digits[12];
        const auto [end, error] = std::to_chars(digits, digits + sizeof(digits), number);
        return add({digits, static_cast<size_t>(end - digits)});
    }

    [[nodiscard]] std::string_view view() const { return {bytes_, used_}; }

  private:
    char bytes_[192];
    size_t used_ = 0;
};

// The number behind the first word, as sscanf("%*s %d") reads it.
std::optional<int> second_word_number(std::string_view text) {
    constexpr std::string_view kBlanks = " \t\n\v\f\r";
    const auto skip = [&](size_t length) { text.remove_prefix(std::min(length, text.size())); };
    skip(text.find_first_not_of(kBlanks));
    skip(text.find_first_of(kBlanks));
    skip(text.find_first_not_of(kBlanks));
    if (!text.empty() && text[0] == '+') skip(1);
    int64_t number = 0;
    const auto [end, error] = std::from_chars(text.data(), text.data() + text.size(), number);
    if (error != std::errc()) return std::nullopt;
    return static_cast<int>(number);
}

void acknowledge(const UniqueFd& file, int level) {
    // "%s_r %d\n"
    SignalText line;
    line.add(log_ident).add("_r ").add(level).add("\n");
    lseek(file.get(), 0, SEEK_SET);
    (void)write_whole(file, line.view());
}

// Runs in signal context, too.
int reload_syslog_level() {
    SignalText path;
    path.add(kLevelFile).add(log_ident).add(std::string_view("\0", 1));
    UniqueFd file(open(path.view().data(), O_RDWR | O_CLOEXEC));
    if (!file) return 0;
    char text[256];
    const ssize_t got = tq::read_some(file.get(), text, sizeof(text));
    const size_t length = got > 0 ? static_cast<size_t>(got) : 0;
    if (const std::optional<int> level = second_word_number({text, length})) {
        setlogmask(LOG_UPTO(static_cast<unsigned>(*level) & LOG_PRIMASK));
        acknowledge(file, *level);
    }
    return close(file.release());
}

void install_handler() {
    struct sigaction action = {};
    // The kernel ignores what a handler returns.
    action.sa_handler =
        reinterpret_cast<void (*)(int)>(reinterpret_cast<void (*)()>(reset_syslog_prority));
    action.sa_flags = SA_RESTART;
    sigaction(kReloadSignal, &action, nullptr);
}

}  // namespace

void init_syslog() {
    syslog_cfg = get_syslog_cfg();
    if (!syslog_cfg) {
        puts("syslog_cfg is NULL");
        return;
    }
    LevelPush push;
    for (const syslog_process& row : rows())
        push.add(row, static_cast<int>(row.level));
    push.notify();
    write_syslog_config_file();
}

syslog_process* get_syslog_cfg() {
    return tq::process_table().data();
}

void write_syslog_config_file() {
    if (!syslog_cfg || !write_config(TQ_HERE)) return;
    my_system("killall -1 syslogd");
}

void write_syslog_pmr_ap_report_file(uint32_t on) {
    const UniqueFd file = create(kReportFile);
    if (file) (void)write_whole(file, on ? "on logging" : "close logging");
}

int set_process_syslog_level(int process_id, int level) {
    LevelPush push;
    for (syslog_process& row : rows()) {
        if (!is_meant(row, static_cast<uint32_t>(process_id))) continue;
        TQ_LOG(LOG_DEBUG, "process id(%d) current level(%d) config level(%d)\n",
               static_cast<int>(row.id), static_cast<int>(row.level), level);
        if (static_cast<int>(row.level) == level || !push.add(row, level)) continue;
        row.level = static_cast<uint32_t>(level);
    }
    return push.notify();
}

int get_process_syslog_level(uint32_t process_id) {
    const syslog_process* row = find_row(process_id);
    return row ? static_cast<int>(row->level) : -1;
}

void set_server_ip_scfg(uint32_t process_id, const uint8_t* address) {
    if (!address) {
        TQ_LOG(LOG_ERR, "invalid parameters\n");
        return;
    }
    bool changed = false;
    for (syslog_process& row : rows()) {
        if (!is_meant(row, process_id)) continue;
        changed |= memcmp(row.server, address, sizeof(row.server)) != 0;
        memcpy(row.server, address, sizeof(row.server));
    }
    if (changed && syslog_server_status) write_syslog_config_file();
}

void get_syslog_server_ip(uint32_t process_id, uint8_t* address) {
    if (!address) {
        TQ_LOG(LOG_ERR, "invalid parameters\n");
        return;
    }
    const syslog_process* row = find_row(process_id);
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
    return push_where_trace_level_differs([](const auto&) { return wcd_trace.level; });
}

int unload_wcd_trace_level() {
    return push_where_trace_level_differs(
        [](const auto& row) { return static_cast<int>(row.level); });
}

void tq_openlog(const char* ident) {
    if (!ident) return;
    tq::copy_text(log_ident, sizeof(log_ident), ident);
    openlog(log_ident, LOG_PID | LOG_NDELAY, LOG_LOCAL5);
    // Before the level is read, so that none is missed in between.
    if (!handler_installed) install_handler();
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
