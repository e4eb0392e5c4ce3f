// selftest.cpp - tqctl selftest: what the library needs of a device, and whether it is there.
// Nothing is changed, and nothing is logged.
#include <fcntl.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/un.h>
#include <tq/board.h>
#include <tq/command.h>
#include <tq/image_switch.h>
#include <tq/mac.h>
#include <tq/netif.h>
#include <tq/netlink.h>
#include <tq/reboot_cause.h>
#include <tq/sysstat.h>

#include <cerrno>
#include <cstdarg>
#include <cstdio>
#include <cstring>
#include <utility>

#include "board_facts.h"
#include "boot_block.h"
#include "bus_connection.h"
#include "families.h"
#include "figures.h"
#include "file.h"
#include "image_version.h"
#include "mac_text.h"
#include "uci_store.h"

namespace tqctl {

namespace {

// What a check has found, in a few words.
struct Found {
    __attribute__((format(printf, 2, 3))) void say(const char* format, ...) {
        va_list args;
        va_start(args, format);
        vsnprintf(text, sizeof(text), format, args);
        va_end(args);
    }

    char text[256] = "";
};

struct Check;
using Probe = ExitCode (*)(const Context& context, const Check& check, Found& found);

struct Check {
    const char* group;
    const char* name;
    bool required;
    Probe probe;
    const char* meaning;       // for the user, where it is not there
    const char* content = "";  // what a file must have in a line
};

ExitCode cause(const Context& context) {
    return context.fail(exit_code_of(errno), "%s", strerror(errno));
}

// ---- The board ----

ExitCode board_library(const Context& context, const Check&, Found& found) {
    int radios = 0;
    const ExitCode code = count_radios(context, radios);
    if (code == ExitCode::kDone) found.say("%d radios, %d ports", radios, tq_get_dev_if_count());
    return code;
}

ExitCode base_address(const Context& context, const Check&, Found& found) {
    Mac mac{};
    if (get_base_mac(mac.data(), mac.size()) < 0)
        return context.fail(ExitCode::kRefused, "the board has none");
    found.say("%s", MacText(mac.data()).text);
    return ExitCode::kDone;
}

ExitCode interface(const Context& context, const Check& check, Found& found) {
    uint32_t index = 0;
    if (get_if_index(check.name, &index) != 0)
        return context.fail(ExitCode::kRefused, "no such interface");
    found.say("%s", if_is_running(check.name) ? "running" : "not running");
    return ExitCode::kDone;
}

// ---- The configuration ----

ExitCode config_file(const Context& context, const Check& check, Found&) {
    const Cause obstacle = cause_of_failure(check.name, "");
    return *obstacle.text ? context.fail(obstacle.code, "%s", obstacle.text) : ExitCode::kDone;
}

// ---- The bus ----

ExitCode broker(const Context& context, const Check&, Found&) {
    const BusConnection bus;
    if (bus) return ExitCode::kDone;
    return context.fail(ExitCode::kRefused, "there is no connection to the bus");
}

// A name that ends in * is the beginning of one.
ExitCode service(const Context& context, const Check& check, Found& found) {
    const BusContext bus;
    int objects = 0;
    const auto count = [](ubus_context*, ubus_object_data*, void* number) {
        ++*static_cast<int*>(number);
    };
    const int status = bus ? ubus_lookup(bus.get(), check.name, count, &objects)
                           : static_cast<int>(UBUS_STATUS_CONNECTION_FAILED);
    if (status != UBUS_STATUS_OK) return context.fail(ExitCode::kRefused, "not on the bus");
    if (objects > 1) found.say("%d objects", objects);
    return ExitCode::kDone;
}

// ---- The flash ----

ExitCode boot_block(const Context& context, const Check&, Found&) {
    const ExitCode code = load_block(context);
    return code == ExitCode::kDone ? report_damage(context) : code;
}

ExitCode next_image(const Context& context, const Check&, Found& found) {
    const LibraryOutput output;
    const int image = sys_image_check();
    if (image < 0) return context.fail(ExitCode::kRefused, "the boot block does not say");
    found.say("%s", image == 0 ? "primary" : "backup");
    return ExitCode::kDone;
}

ExitCode serial_number(const Context& context, const Check&, Found& found) {
    const LibraryOutput output;
    char serial[129];
    if (sys_sn_get(serial, sizeof(serial)) != 0)
        return context.fail(ExitCode::kRefused, "the boot block has none");
    found.say("%s", OneLine(serial).c_str());
    return ExitCode::kDone;
}

ExitCode image(const Context& context, const Check& check, Found& found) {
    ImageVersion version;
    const ExitCode code = read_image_version(context, check.name, version);
    if (code == ExitCode::kDone) found.say("%s", version.text);
    return code;
}

ExitCode overlay(const Context& context, const Check& check, Found& found) {
    uint32_t free_kb = 0;
    if (tq_get_flash_free_size(&free_kb) != 0)
        return context.fail(ExitCode::kRefused, "nothing is mounted at %s", check.name);
    found.say("%u kB free", free_kb);
    return ExitCode::kDone;
}

// ---- Files, devices, commands ----

ExitCode readable(const Context& context, const Check& check, Found&) {
    if (access(check.name, R_OK) != 0) return cause(context);
    char line[256];
    if (!*check.content || read_line(check.name, check.content, line, sizeof(line)) == 0)
        return ExitCode::kDone;
    return context.fail(ExitCode::kDamaged, "no line has '%s'", check.content);
}

ExitCode reboot_log(const Context& context, const Check&, Found& found) {
    const char* path = get_reboot_cause_file();
    if (!path) return context.fail(ExitCode::kRefused, "the board names no file");
    found.say("%s", path);
    if (access(path, R_OK | W_OK) == 0) return ExitCode::kDone;
    return context.fail_by_errno(path);
}

ExitCode log_socket(const Context& context, const Check& check, Found&) {
    sockaddr_un address{};
    address.sun_family = AF_UNIX;
    snprintf(address.sun_path, sizeof(address.sun_path), "%s", check.name);
    const UniqueFd sock(socket(AF_UNIX, SOCK_DGRAM | SOCK_CLOEXEC, 0));
    const auto* name = reinterpret_cast<const sockaddr*>(&address);
    if (connect(sock.get(), name, sizeof(address)) != 0) return cause(context);
    return ExitCode::kDone;
}

// Only looked at: whoever opens a watchdog starts it.
ExitCode watchdog(const Context& context, const Check& check, Found&) {
    struct stat status {};
    if (stat(check.name, &status) != 0) return cause(context);
    if (S_ISCHR(status.st_mode)) return ExitCode::kDone;
    return context.fail(ExitCode::kDamaged, "not a character device");
}

ExitCode command(const Context& context, const Check& check, Found& found) {
    char line[128];
    snprintf(line, sizeof(line), "command -v %s", check.name);
    if (run_cmd(line, found.text, sizeof(found.text)) == 0) return ExitCode::kDone;
    return context.fail(ExitCode::kRefused, "no such command");
}

ExitCode driver(const Context& context, const Check& check, Found& found) {
    int id = 0;
    nl_sock* sock = tq_genl_connect(&id, check.name);
    if (!sock) return context.fail(ExitCode::kRefused, "no such generic-netlink family");
    tq_genl_disconnect(sock);
    found.say("family %d", id);
    return ExitCode::kDone;
}

// ---- The checks ----

constexpr char kNoSettings[] = "its daemons run on what they were built with";
constexpr char kNothingRecorded[] = "nothing has been recorded yet";
constexpr char kNoTelling[] = "what tqctl fm tells and sets reaches nobody";
constexpr char kNoGateway[] = "the gateway of an interface is not known";

constexpr Check kBoardChecks[] = {
    {"board", "library", true, board_library,
     "nothing is known of radios, ports, addresses, images and the reboot log"},
    {"board", "base address", true, base_address, "no interface's own address is known"},
};

constexpr Check kChecks[] = {
    {"config", "network", true, config_file, "the network and the radius clients are not set up"},
    {"config", "wireless", true, config_file, "radios and VAPs have no settings"},
    {"config", "system", false, config_file, kNoSettings},
    {"config", "wtp", true, config_file,
     "the access point counts as managed, and the state of its controller link is lost"},
    {"config", "board", true, config_file, "the model's name is not known"},
    {"config", "forward", true, config_file, "the forwarding mode is not known"},
    {"config", "dhcp", false, config_file, kNoSettings},
    {"config", "bind", false, config_file, kNoSettings},
    {"config", "location", false, config_file, kNoSettings},
    {"config", "apstats", false, config_file, kNoSettings},
    {"config", "firewall", false, config_file, kNoSettings},
    {"config", "bwctrl", false, config_file, kNoSettings},
    {"config", "nat", false, config_file, kNoSettings},
    {"config", "mcsd", false, config_file, kNoSettings},
    {"config", "troubleshoot", false, config_file, kNoSettings},
    {"config", "ordercfg", false, config_file, kNoSettings},
    {"config", "tqfm", false, config_file, "fault thresholds can neither be read nor stored"},

    {"bus", "broker", true, broker, "no request reaches a daemon"},
    {"bus", "bwctrl", false, service, "bandwidth limits cannot be set"},
    {"bus", "bwctrl.maxassoc", false, service, "the number of stations cannot be limited"},
    {"bus", "statistics", false, service, "traffic and mean usage are not known"},
    {"bus", "fm.*", false, service, kNoTelling},

    {"flash", "boot block", true, boot_block, "images, serial number and entries are not known"},
    {"flash", "next image", false, next_image, "images cannot be switched"},
    {"flash", "serial number", false, serial_number, "the unit goes by its addresses only"},
    {"flash", "primary", true, image, "its version is not known, and it does not count as usable"},
    {"flash", "backup", false, image, "there is no image to switch to"},
    {"flash", "boot-loader", false, image, "there is no backup of the boot loader"},
    {"flash", "/overlay", false, overlay, "the flash's free room is not known"},

    {"file", "/proc/stat", true, readable, "the processor's usage is not known", "cpu "},
    {"file", "/proc/meminfo", true, readable, "the memory's usage is not known", "MemTotal:"},
    {"file", "/proc/cpuinfo", true, readable, "the processor's type is not known", "processor"},
    {"file", "/proc/uptime", true, readable,
     "reboots are recorded without an uptime, and their times are never corrected", "."},
    {"file", "/proc/mtd", true, readable, "partitions are not found by their names", "dev:"},
    {"file", "/proc/net/dev", true, readable, "the ports' counters are not known", "lo:"},
    {"file", "/proc/net/route", true, readable, kNoGateway, "Iface"},
    {"file", "/etc/mtab", true, readable, "the flash's free room is not known", " / "},

    {"state", "reboot log", false, reboot_log, "the next one that is recorded makes it"},
    {"state", "/tmp/.offline.reason", false, readable, kNothingRecorded},
    {"state", "/tmp/.traffic_statistics_upload", false, readable, kNothingRecorded},
    {"state", "/tmp/syslogserver", false, readable, kNothingRecorded},
    {"state", "/etc/syslogd.conf", false, readable, "the log daemon logs as it was built to"},
    {"state", "/usr/config/coredump_server", false, readable, "core dumps are sent nowhere"},

    {"device", "/dev/log", true, log_socket, "the lines of library and daemons are lost"},
    {"device", "/dev/watchdog", false, watchdog, "a reset by the watchdog counts as a power loss"},
    {"driver", "fuMAC", false, driver, "events of stations are not delivered"},

    {"command", "fw_printenv", true, command, "no image counts as usable"},
    {"command", "get_wan_interface.sh", true, command,
     "the WAN's addresses are not known, and no radius server can be set"},
    {"command", "killall", true, command, "the log daemon is not told of its new settings"},
    {"command", "/sbin/reboot", true, command, "a reboot goes by the kernel, without a shutdown"},
    {"command", "ubus", false, command, "faults are not told while the bus is not connected"},
    {"command", "uci", false, command, "saved files are not committed a second time"},
    {"command", "/usr/bin/backup_log.sh", false, command, "logs are lost in a reboot"},
};

// ---- The report ----

const char* outcome_of(ExitCode code) {
    if (code == ExitCode::kDone) return "ok";
    return code == ExitCode::kRefused ? "missing" : "failed";
}

// A check that was made: what was found, or else why there is nothing.
class Result {
  public:
    explicit Result(const Check& check) {
        Context context;
        context.complaint = &complaint_;
        code_ = check.probe(context, check, found_);
    }

    [[nodiscard]] ExitCode code() const { return code_; }
    [[nodiscard]] bool is_there() const { return code_ == ExitCode::kDone; }
    [[nodiscard]] const char* detail() const { return is_there() ? found_.text : complaint_.text; }

  private:
    Found found_;
    Complaint complaint_;
    ExitCode code_;
};

Json found_by(Probe probe) {
    const Result result({"", "", false, probe, ""});
    return result.is_there() ? json_text(result.detail()) : nullptr;
}

// The board's facts, and what tells one unit from another.
Json describe_unit() {
    Json unit = describe_board();
    json_add(unit.get(), "base_mac", found_by(base_address));
    json_add(unit.get(), "serial_number", found_by(serial_number));
    return unit;
}

class Report {
  public:
    explicit Report(Output& output) : output_(output) {}

    void run(const Check& check) {
        const Result result(check);
        add(check, result.code(), result.detail());
        if (result.is_there() || !check.required) return;
        lacking_++;
        if (code_ == ExitCode::kDone) code_ = result.code();
    }

    // The ports must be there; a radio's device comes and goes with its driver, the bridge with the
    // network's configuration.
    void run_interfaces() {
        for (int port = 0; port < tq_get_dev_if_count(); port++) {
            const char* name = tq_get_eth_ifname(port);
            if (name) run({"port", name, true, interface, "its link and counters are not known"});
        }
        for (int radio = 0; radio < bbi_radio_count_ret(); radio++) {
            const char* name = bbi_radio_device_ret(radio);
            if (*name) run({"radio", name, false, interface, "its driver is not there: no VAP"});
        }
        run({"bridge", "br-lan", false, interface, "the LAN's address is not known"});
    }

    void print_document() const {
        Json document(json_object_new_object());
        json_add(document.get(), "version", json_text(TQ_VERSION));
        json_add(document.get(), "board", describe_unit());
        json_add(document.get(), "required_lacking", json_number(lacking_));
        json_add(document.get(), "checks", Json(json_object_get(checks_.get())));
        output_.document(document);
    }

    [[nodiscard]] int lacking() const { return lacking_; }
    [[nodiscard]] ExitCode code() const { return code_; }

  private:
    void add(const Check& check, ExitCode code, const char* detail) {
        if (!output_.is_json()) return print(check, code, detail);
        Json row(json_object_new_object());
        const bool whole = json_add(row.get(), "group", json_text(check.group)) &&
                           json_add(row.get(), "name", json_text(check.name)) &&
                           json_add(row.get(), "required", json_bool(check.required)) &&
                           json_add(row.get(), "outcome", json_text(outcome_of(code))) &&
                           json_add(row.get(), "detail", json_text(detail)) &&
                           json_add(row.get(), "meaning", json_text(check.meaning));
        if (!whole || !json_append(checks_.get(), std::move(row))) output_.lose();
    }

    static void print(const Check& check, ExitCode code, const char* detail) {
        char name[64];
        snprintf(name, sizeof(name), "%s %s", check.group, check.name);
        if (code == ExitCode::kDone && !*detail) {
            printf("ok       %s\n", name);
        } else if (code == ExitCode::kDone) {
            printf("ok       %-38s %s\n", name, detail);
        } else {
            printf("%-8s %-38s %s%s; %s\n", outcome_of(code), name,
                   check.required ? "" : "(optional) ", detail, check.meaning);
        }
    }

    Output& output_;
    Json checks_{json_object_new_array()};
    int lacking_ = 0;
    ExitCode code_ = ExitCode::kDone;
};

// A descriptor that means what another one does, until the scope ends.
class Redirection {
  public:
    Redirection(int fd, int to) : fd_(fd), before_(fcntl(fd, F_DUPFD_CLOEXEC, 3)) { dup2(to, fd); }
    ~Redirection() { dup2(before_.get(), fd_); }
    Redirection(const Redirection&) = delete;
    Redirection& operator=(const Redirection&) = delete;

  private:
    int fd_;
    UniqueFd before_;
};

// What library and commands say of a device that lacks something is what the checks are for.
void run_all(Report& report, bool as_document) {
    const UniqueFd null(open("/dev/null", O_WRONLY | O_CLOEXEC));
    const Redirection silence(STDERR_FILENO, null.get());
    const QuietLog quiet;
    for (const Check& check : kBoardChecks)
        report.run(check);
    report.run_interfaces();
    for (const Check& check : kChecks)
        report.run(check);
    if (as_document) report.print_document();
}

ExitCode selftest(Context& context, Arguments) {
    Report report(context.output);
    run_all(report, context.output.is_json());
    if (report.code() == ExitCode::kDone) return ExitCode::kDone;
    return context.fail(report.code(), "%d of what is required is missing or failed",
                        report.lacking());
}

constexpr Command kCommands[] = {
    {"", "", 0, 0, "says what the library lacks on this device",
     "A line for each check: ok, missing or failed, what was checked, and what was\n"
     "found or else the reason and what it means. What the library can do without is\n"
     "marked as (optional). Nothing is changed on the device.\n"
     "\n"
     "JSON is an object for a fleet's inventory: version, board (the board's facts,\n"
     "base_mac and serial_number), required_lacking and checks, an array of objects\n"
     "with group, name, required, outcome, detail and meaning.\n"
     "\n"
     "Exit code 0 where nothing that is required is missing or has failed; else that\n"
     "of the first that has: 1 missing, 4 may not be read, 5 damaged, 6 not\n"
     "readable.",
     "tqctl -j selftest >/tmp/selftest.json", selftest},
};
static_assert(is_complete(kCommands));

}  // namespace

constinit const Family kSelftest = {"selftest", "what this device lacks", "", kCommands};

}  // namespace tqctl
