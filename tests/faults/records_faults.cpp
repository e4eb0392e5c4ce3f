// records_faults.cpp - reboot causes, processes, the log's configuration, status files.
#include <sys/stat.h>
#include <syslog.h>
#include <tq/process.h>
#include <tq/reboot_cause.h>
#include <tq/status_file.h>
#include <tq/syslog_config.h>
#include <unistd.h>

#include <array>
#include <cstdio>
#include <cstring>
#include <filesystem>
#include <optional>

#include "faults/sweep.h"
#include "support/device.h"
#include "support/faults.h"
#include "support/named_process.h"

namespace tq_test::sweep {
namespace {

constexpr char kStore[] = "/etc/reboot_cause";
constexpr char kDaemon[] = "capwapd";
constexpr int kDaemonId = 24;

// ---- reboot causes ----

reboot_cause_header header;
reboot_cause_record record;
std::array<reboot_cause_record, 3> records;
reboot_panic_buffer panic;

void no_store() {
    std::filesystem::remove(kStore);
    header = {};
    record = {};
    record.cause = 2;
}

void fresh_store() {
    no_store();
    reboot_cause_statistic statistic;
    ASSERT_EQ(rb_read_reboot_statistic(&statistic), 0);
}

void with_record() {
    fresh_store();
    ASSERT_EQ(rb_write_reboot_cause_inner(&record), 0);
}

// The number of records that the store tells of.
std::string stored_after(intptr_t result) {
    reboot_cause_statistic statistic{};
    if (!exists(kStore)) return with_text(result, "no store");
    return with_number(result, rb_read_reboot_statistic(&statistic) == 0 ? statistic.total : -1);
}

std::string stream_after(intptr_t result) {
    return result ? "open" : "null";
}

Row on_store(std::string function, std::function<void()> prepare, std::function<intptr_t()> call) {
    return {
        .function = std::move(function), .prepare = std::move(prepare), .call = std::move(call)};
}

intptr_t open_store() {
    return reinterpret_cast<intptr_t>(rb_open_reboot_cause_file(&header));
}

void close_stream(intptr_t result) {
    if (result) fclose(reinterpret_cast<FILE*>(result));
}

void add_stores(std::vector<Row>& rows) {
    rows.push_back(on_store("get_reboot_cause_file", no_store,
                            [] { return intptr_t{get_reboot_cause_file() != nullptr}; }));
    rows.back().gives = "1";
    rows.back().fails = "0";
    rows.push_back(on_store("rb_open_reboot_cause_file", fresh_store, open_store));
    rows.push_back(on_store("rb_open_reboot_cause_file", no_store, open_store));
    rows.back().how = "no store";
    // The position and the old length do not matter in a new file.
    rows.back().but = {{"ftruncate", "open"}, {"lseek", "open"}, {"pwrite:cut", "open"}};
    for (auto row = rows.end() - 2; row != rows.end(); ++row) {
        row->outcome = stream_after;
        row->undo = close_stream;
        row->gives = "open";
        row->fails = "null";
    }
    rows.push_back(on_store("rb_read_reboot_cause", with_record,
                            [] { return rb_read_reboot_cause(records.data(), 3); }));
    rows.back().gives = "1";
    rows.push_back(on_store(
        "rb_read_panic_by_index",
        [] {
            fresh_store();
            panic.identifier = 0;
            memset(panic.text, 'x', sizeof(panic.text));
        },
        [] { return rb_read_panic_by_index(&panic); }));
    rows.back().outcome = [](intptr_t result) {
        return with_text(result, panic.text[0] == 'x' ? "as it was" : "read");
    };
    rows.back().gives = "0 read";
    rows.back().fails = "-1 as it was";
    static reboot_cause_statistic statistic;
    rows.push_back(on_store("rb_read_reboot_statistic", with_record,
                            [] { return rb_read_reboot_statistic(&statistic); }));
    rows.push_back(on_store("rb_correct_reboot_time_now", with_record,
                            [] { return rb_correct_reboot_time_now(); }));
    rows.back().but = {{"pwrite", "0"}};
    rows.push_back(
        on_store("rb_set_ntp_sync_flag", fresh_store, [] { return rb_set_ntp_sync_flag(1); }));
    rows.back().but = {{"pwrite", "0"}, {"fsync", "0"}};
}

void add_records(std::vector<Row>& rows) {
    rows.push_back({.function = "get_system_uptime",
                    .call = [] { return get_system_uptime(); },
                    .outcome = [](intptr_t result) { return result > 0 ? "uptime" : "0"; },
                    .gives = "uptime",
                    .fails = "0"});
    rows.push_back(on_store("rb_write_reboot_cause_inner", fresh_store,
                            [] { return rb_write_reboot_cause_inner(&record); }));
    rows.push_back(on_store("rb_write_reboot_cause", fresh_store, [] {
        return rb_write_reboot_cause(2, "file.c", "function", 7, "cause %d", 2);
    }));
    // What is not known of the process and its time stays empty.
    for (const char* call : {"open#1", "read#1", "open#2", "read#2"})
        rows.back().but.push_back({call, "0 1"});
    rows.push_back(
        on_store("rb_kernel_up_check", fresh_store, [] { return rb_kernel_up_check(); }));
    for (auto row = rows.end() - 3; row != rows.end(); ++row) {
        row->outcome = stored_after;
        row->gives = "0 1";
        row->fails = "-1 0";
        row->but.push_back({"pwrite:cut", "0 1"});
    }
    // There was a reset to record, whatever became of the record.
    rows.back().gives = "100 1";
    rows.back().fails = "100 0|100 1";
    rows.back().but = {{"pwrite:cut", "100 1"}};
    for (const char* call : {"open#1", "read#1", "open#2", "read#2"})
        rows.back().but.push_back({call, "0 0"});
    rows.push_back(on_store("rb_generate_reboot_cause", no_store, [] {
        rb_generate_reboot_cause(&record, 2, "file.c", "function", 7, "cause %d", 2);
        return 0;
    }));
    rows.back().outcome = [](intptr_t result) { return with_text(result, record.message); };
    rows.back().gives = rows.back().fails = "0 cause 2";
}

std::optional<ScopedProc> proc;

// The child is killed where it would wait for the second time.
void add_reboot(std::vector<Row>& rows) {
    rows.push_back(
        {.function = "reboot_system",
         .prepare =
             [] {
                 std::filesystem::remove("/run/tqdevice/reboot");
                 proc.emplace(std::map<std::string, std::string>{{"sysrq-trigger", ""}});
             },
         .call =
             [] {
                 return in_child([]() -> int {
                     const faults::Hurry hurry;
                     faults::kill_at("sleep", 2);
                     reboot_system();
                 });
             },
         .outcome =
             [](intptr_t result) {
                 std::string done;
                 if (exists("/run/tqdevice/reboot")) done += " reboot";
                 if (read_file("/proc/sysrq-trigger") == "b\n") done += " restart";
                 return number(result) + done;
             },
         .undo = [](intptr_t /*result*/) { proc.reset(); },
         .gives = "-9 reboot restart",
         .fails = "-9 reboot restart",
         .but = {{"system#1", "-9 restart", kSpent}, {"system#2", "-9 reboot", kSpent}}});
}

// ---- processes ----

// A daemon that catches the signal, of which the children of a test see nothing.
void have_daemon() {
    static const NamedProcess daemon(kDaemon, [] { signal(49, count_signal); });
    ASSERT_TRUE(daemon.alive());
}

void add_processes(std::vector<Row>& rows) {
    rows.push_back(pure(
        "get_process_count", [] { return get_process_count(); }, "56"));
    rows.push_back(pure(
        "get_process_id", [] { return get_process_id(kDaemon); }, "24"));
    rows.push_back(
        pure("get_process_name", [] { return intptr_t{get_process_name(kDaemonId) == nullptr}; }));
    // A process whose files cannot be opened or read has ended, as far as anyone can tell.
    rows.push_back({.function = "apps_is_running",
                    .prepare = have_daemon,
                    .call = [] { return apps_is_running(kDaemonId); },
                    .gives = "1",
                    .fails = "-1",
                    .but = {{"open", "0|1"}, {"read", "0|1"}},
                    .varies = true});
    rows.push_back({.function = "check_if_proc_running",
                    .prepare =
                        [] {
                            have_daemon();
                            write_file("/usr/local/bin/ps", "#!/bin/sh\necho 7 capwapd\n");
                            chmod("/usr/local/bin/ps", 0755);
                        },
                    .call = [] { return check_if_proc_running(kDaemon); },
                    .undo = [](intptr_t /*result*/) { unlink("/usr/local/bin/ps"); },
                    .gives = "1",
                    .fails = "0"});
}

// ---- the log's configuration ----

constexpr char kConfig[] = "/etc/syslogd.conf";

syslog_process& daemon_row() {
    for (int i = 0;; i++) {
        if (syslog_cfg[i].id == kDaemonId) return syslog_cfg[i];
    }
}

// The log as it is at first, but for what the row changes.
void log_table() {
    syslog_cfg = get_syslog_cfg();
    for (int i = 0; i < get_process_count(); i++) {
        syslog_cfg[i].level = LOG_ERR;
        memset(syslog_cfg[i].server, 0, sizeof(syslog_cfg[i].server));
    }
    syslog_server_status = 0;
    syslog_file_size = 2048;
    wcd_trace = {};
    wcd_trace.level = LOG_ERR;
    write_file(kConfig, "as it was");
    std::filesystem::remove("/tmp/syslogserver");
}

// The configuration file: whole, without a part, or not opened. What is whole is learnt from the
// first run, in which nothing fails.
std::function<std::string(intptr_t)> config_after() {
    auto whole = std::make_shared<std::string>();
    return [whole](intptr_t result) {
        const std::string now = read_file(kConfig);
        if (now == "as it was") return with_text(result, "as it was");
        if (whole->empty()) *whole = now;
        if (now == *whole) return with_text(result, "whole");
        return with_text(result, now.size() < whole->size() ? "cut" : now.c_str());
    };
}

// The file is cut by a full disk, is not opened, and is whole whatever becomes of the daemon.
Row writes_config(std::string function, std::function<void()> prepare,
                  std::function<intptr_t()> call) {
    return {.function = std::move(function),
            .prepare = std::move(prepare),
            .call = std::move(call),
            .outcome = config_after(),
            .gives = "0 whole",
            .fails = "0 cut",
            .but = {{"fopen", "0 as it was", kSpent},
                    {"system", "0 whole"},
                    {"fprintf", "0 cut", kSpent},
                    {"fputs", "0 cut", kSpent}}};
}

std::string level_after(intptr_t result) {
    return with_number(result, daemon_row().level);
}

// The notice to the processes that run is nobody's failure.
Row pushes_level(std::string function, std::function<void()> prepare,
                 std::function<intptr_t()> call, const std::string& gives,
                 const std::string& not_written) {
    return {.function = std::move(function),
            .prepare =
                [prepare = std::move(prepare)] {
                    have_daemon();
                    prepare();
                },
            .call = std::move(call),
            .outcome = level_after,
            .gives = gives,
            .fails = gives,
            .but = {{"open#1", not_written}, {"write", not_written}},
            .varies = true};
}

std::string report_after(intptr_t result) {
    return with_text(
        result, exists("/tmp/syslogserver") ? read_file("/tmp/syslogserver").c_str() : "no file");
}

void add_log(std::vector<Row>& rows) {
    static const uint8_t address[4] = {192, 0, 2, 7};
    static uint8_t out[4];
    rows.push_back(writes_config("init_syslog", log_table, [] {
        init_syslog();
        return 0;
    }));
    rows.back().fails = "0 whole";
    rows.back().varies = true;
    rows.push_back(pure("get_syslog_cfg", [] { return intptr_t{get_syslog_cfg() == nullptr}; }));
    rows.push_back(writes_config("write_syslog_config_file", log_table, [] {
        write_syslog_config_file();
        return 0;
    }));
    rows.push_back(writes_config(
        "set_server_ip_scfg",
        [] {
            log_table();
            syslog_server_status = 1;
        },
        [] {
            set_server_ip_scfg(kDaemonId, address);
            return 0;
        }));
    rows.push_back(writes_config("set_syslog_status", log_table, [] {
        set_syslog_status(1);
        return 0;
    }));
    rows.back().but.push_back({"open", "0 whole"});
    rows.back().but.push_back({"write", "0 whole"});
    rows.push_back(writes_config("set_log_file_size_scfg", log_table, [] {
        set_log_file_size_scfg(64);
        return 0;
    }));
    rows.push_back(writes_config(
        "set_wcd_trace_conf",
        [] {
            log_table();
            wcd_trace.enable = 1;
            wcd_trace.port = 514;
            wcd_trace.host_name = "127.0.0.1";
        },
        [] { return set_wcd_trace_conf(); }));
    rows.back().but.push_back({"opendir", "0 whole"});
    // Without the server's address there is no block for it.
    rows.back().but.push_back({"gethostbyname", "0 cut", kSpent});
    rows.push_back({.function = "write_syslog_pmr_ap_report_file",
                    .prepare = log_table,
                    .call =
                        [] {
                            write_syslog_pmr_ap_report_file(1);
                            return 0;
                        },
                    .outcome = report_after,
                    .gives = "0 on logging",
                    .fails = "0 ",
                    .but = {{"open", "0 no file"}, {"write:cut", "0 on lo"}}});
    rows.push_back(pushes_level(
        "set_process_syslog_level", log_table,
        [] { return set_process_syslog_level(kDaemonId, 7); }, "0 7", "1 3"));
    const auto traced = [] {
        log_table();
        daemon_row().level = 7;
    };
    rows.push_back(pushes_level(
        "load_wcd_trace_level", traced, [] { return load_wcd_trace_level(); }, "0 7", "1 7"));
    rows.push_back(pushes_level(
        "unload_wcd_trace_level", traced, [] { return unload_wcd_trace_level(); }, "0 7", "1 7"));
    rows.push_back(
        pure("get_process_syslog_level", [] { return get_process_syslog_level(kDaemonId) > 7; }));
    rows.push_back(pure("get_syslog_server_ip", [] {
        get_syslog_server_ip(kDaemonId, out);
        return 0;
    }));
    rows.push_back(pure("get_syslog_status", [] { return get_syslog_status() > 1; }));
    rows.push_back(pure("get_syslog_file_size", [] { return get_syslog_file_size() < 10; }));
}

void with_level_file() {
    write_file("/tmp/.loglvl.sweep", "capwapd 5\n");
    setlogmask(LOG_UPTO(LOG_DEBUG));
}

std::string mask_after(intptr_t result) {
    return with_text(result, setlogmask(0) == LOG_UPTO(LOG_NOTICE) ? "taken" : "not taken");
}

void log_all(intptr_t /*result*/) {
    setlogmask(LOG_UPTO(LOG_DEBUG));
}

void add_daemon_side(std::vector<Row>& rows) {
    for (const bool by_signal : {false, true}) {
        Row row = {.function = by_signal ? "reset_syslog_prority" : "tq_openlog",
                   .prepare = with_level_file,
                   .call = [by_signal]() -> intptr_t {
                       if (by_signal) return reset_syslog_prority(49);
                       tq_openlog("sweep");
                       return 0;
                   },
                   .outcome = mask_after,
                   .undo = log_all,
                   .gives = "0 taken",
                   .fails = "0 not taken",
                   // The acknowledgement has nobody who needs it.
                   .but = {{"lseek", "0 taken"}, {"write", "0 taken"}, {"sigaction", "0 taken"}}};
        if (by_signal) row.but.push_back({"close", "-1 taken"});
        rows.push_back(std::move(row));
    }
    rows.push_back(pure("tq_closelog", [] {
        tq_closelog();
        return 0;
    }));
}

// ---- status files ----

offline_reason_info reason;
char server[17];

std::string file_after(const char* path, intptr_t result) {
    return with_text(result, exists(path) ? read_file(path).substr(0, 2).c_str() : "no file");
}

void remove_file(const char* path) {
    std::filesystem::remove(path);
}

void add_status(std::vector<Row>& rows) {
    rows.push_back(
        {.function = "tq_set_offline_reason",
         .prepare = [] { remove_file("/tmp/.offline.reason"); },
         .call =
             [] {
                 tq_set_offline_reason(2);
                 return 0;
             },
         .outcome = [](intptr_t result) { return file_after("/tmp/.offline.reason", result); },
         .gives = "0 2\n",
         .fails = "0 ",
         .but = {{"open", "0 no file"}, {"write:cut", "0 2\n"}}});
    // A stream that fails has come to its end, be it in the second line.
    rows.push_back(
        {.function = "tq_get_offline_reason",
         .prepare = [] { write_file("/tmp/.offline.reason", "2\n2024-01-02 03:04:05\n"); },
         .call = [] { return tq_get_offline_reason(&reason); },
         .but = {{"fgetc", "0|-1"}}});
    rows.push_back({.function = "set_traffic_upload_status",
                    .call = [] { return set_traffic_upload_status(nullptr); },
                    .but = {{"write", "0"}}});
    rows.push_back({.function = "get_traffic_upload_status",
                    .prepare = [] { write_file("/tmp/.traffic_statistics_upload", "down\n"); },
                    .call = [] { return get_traffic_upload_status(); },
                    .gives = "1",
                    .fails = "0"});
    const auto controller = [] {
        std::filesystem::remove_all("/tmp/.uci");
        write_file("/etc/config/wtp", "\nconfig capwap\n\toption status '5'\n\n");
    };
    rows.push_back({.function = "set_capwap_status_file", .prepare = controller, .call = [] {
                        return set_capwap_status_file(7);
                    }});
    rows.back().but = where_libuci_may_do_without(rows.back());
    rows.back().but.push_back({"fclose", "0|-1"});
    rows.push_back({.function = "get_capwap_status_file",
                    .prepare = controller,
                    .call = [] { return get_capwap_status_file(); },
                    .gives = "5"});
    rows.back().but = where_libuci_may_do_without(rows.back());
}

void add_coredump(std::vector<Row>& rows) {
    constexpr const char* kPath = "/usr/config/coredump_server";
    const auto outcome = [](intptr_t result) { return file_after(kPath, result); };
    rows.push_back({.function = "save_coredump_server",
                    .prepare = [] { remove_file(kPath); },
                    .call = [] { return save_coredump_server("host"); },
                    .outcome = outcome,
                    .gives = "0 ho",
                    .fails = "-1 ",
                    .but = {{"open", "-1 no file"}, {"write:cut", "-1 ho"}}});
    rows.push_back({.function = "get_coredump_server",
                    .prepare =
                        [] {
                            write_file(kPath, "host");
                            memset(server, 0, sizeof(server));
                        },
                    .call = [] { return get_coredump_server(server); },
                    .outcome = [](intptr_t result) { return with_text(result, server); },
                    .gives = "0 host",
                    .fails = "-1 "});
    rows.push_back({.function = "delete_coredump_server",
                    .prepare = [] { write_file(kPath, "host"); },
                    .call = [] { return delete_coredump_server(); },
                    .outcome = outcome,
                    .gives = "0 no file",
                    .fails = "-1 ho"});
    rows.push_back({.function = "backup_all_log",
                    .prepare =
                        [] {
                            write_file("/usr/bin/backup_log.sh",
                                       "#!/bin/sh\necho $1 >/tmp/backup\n");
                            chmod("/usr/bin/backup_log.sh", 0755);
                            remove_file("/tmp/backup");
                        },
                    .call = [] { return backup_all_log("A", "B"); },
                    .outcome = [](intptr_t result) { return file_after("/tmp/backup", result); },
                    .undo = [](intptr_t /*result*/) { remove_file("/usr/bin/backup_log.sh"); },
                    .gives = "0 A\n",
                    .fails = "0 no file"});
}

void add_upgrade_lock(std::vector<Row>& rows) {
    static int handle;
    rows.push_back({.function = "tq_upgrade_mutex_begin",
                    .call = [] { return tq_upgrade_mutex_begin(); },
                    .outcome = [](intptr_t result) { return result < 0 ? "-1" : "held"; },
                    .undo = [](intptr_t result) { close(static_cast<int>(result)); },
                    .gives = "held"});
    rows.push_back({.function = "tq_is_upgrade_mutex_begin",
                    .call = [] { return tq_is_upgrade_mutex_begin(); },
                    .fails = "1"});
    rows.push_back({.function = "tq_upgrade_mutex_end",
                    .prepare = [] { handle = tq_upgrade_mutex_begin(); },
                    .call = [] { return tq_upgrade_mutex_end(handle); }});
}

}  // namespace

std::vector<Row> records_rows() {
    std::vector<Row> rows;
    add_stores(rows);
    add_records(rows);
    add_reboot(rows);
    add_processes(rows);
    add_log(rows);
    add_daemon_side(rows);
    add_status(rows);
    add_coredump(rows);
    add_upgrade_lock(rows);
    return rows;
}

}  // namespace tq_test::sweep
