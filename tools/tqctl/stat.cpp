// stat.cpp - tqctl stat: processor, memory, flash, uptime and port counters.
#include <tq/board.h>
#include <tq/sysstat.h>
#include <unistd.h>

#include <utility>

#include "bus_connection.h"
#include "families.h"
#include "figures.h"
#include "watch.h"

namespace tqctl {

namespace {

// Between the two readings that the processor's usage is calculated of.
constexpr useconds_t kSampleTime = 500'000;

Json object() {
    return Json(json_object_new_object());
}

void add(const Json& figures, const char* key, int64_t number) {
    json_add(figures.get(), key, json_number(number));
}

void add_counter(const Json& figures, const char* key, uint64_t count) {
    json_add(figures.get(), key, Json(json_object_new_uint64(count)));
}

// The service's numbers, where it is there.
using Question = int (*)(uint32_t*);

void add_answer(const Json& figures, const char* key, Question ask) {
    const QuietLog quiet;
    const BusConnection bus;
    uint32_t percent = 0;
    if (bus && ask(&percent) == 0) add(figures, key, percent);
}

// Each group of figures, as far as they can be read; the library has said what could not.

ExitCode read_cpu(const Json& figures) {
    char type[128];
    if (tq_hal_get_processor_type(type, sizeof(type)) == 0)
        json_add(figures.get(), "type", json_text(type));
    ProcessorTicks before;
    if (get_proc_cpuinfo(&before.total, &before.idle) != 0) return ExitCode::kRefused;
    usleep(kSampleTime);
    ProcessorTicks now;
    if (get_proc_cpuinfo(&now.total, &now.idle) != 0) return ExitCode::kRefused;
    add(figures, "usage_percent", usage_between(before, now));
    add_answer(figures, "service_average_percent", tq_get_cpu_avg_usage);
    add_answer(figures, "service_now_percent", tq_get_cpu_real_usage);
    add(figures, "total_ticks", now.total);
    add(figures, "idle_ticks", now.idle);
    return ExitCode::kDone;
}

ExitCode read_mem(const Json& figures) {
    uint32_t memory[PROC_MEMINFO_FIGURES] = {};
    if (get_proc_meminfo(memory) != 1) return ExitCode::kRefused;
    add(figures, "usage_percent", memory_usage(memory));
    add_answer(figures, "service_average_percent", tq_get_memory_avg_usage);
    add(figures, "total_kb", memory[PROC_MEMINFO_TOTAL]);
    add(figures, "free_kb", memory[PROC_MEMINFO_FREE]);
    add(figures, "buffers_kb", memory[PROC_MEMINFO_BUFFERS]);
    add(figures, "cached_kb", memory[PROC_MEMINFO_CACHED]);
    return ExitCode::kDone;
}

ExitCode read_flash(const Json& figures) {
    const int first = tq_hal_get_flash_size();
    uint32_t free_kb = 0;
    const bool has_overlay = tq_get_flash_free_size(&free_kb) == 0;
    if (first > 0) add(figures, "first_partition_bytes", first);
    if (has_overlay) add(figures, "overlay_free_kb", free_kb);
    return first > 0 && has_overlay ? ExitCode::kDone : ExitCode::kRefused;
}

ExitCode read_uptime(const Json& figures) {
    uint32_t seconds = 0;
    if (tq_get_sys_uptime(&seconds) != 0) return ExitCode::kRefused;
    add(figures, "seconds", seconds);
    return ExitCode::kDone;
}

Json port_counters(const if_stats& stats) {
    Json counters = object();
    add_counter(counters, "in_octets", stats.in_octets);
    add_counter(counters, "in_packets", stats.in_packets);
    add_counter(counters, "in_errors", stats.in_errors);
    add_counter(counters, "in_discards", stats.in_discards);
    add_counter(counters, "in_multicast", stats.in_multicast);
    add_counter(counters, "out_octets", stats.out_octets);
    add_counter(counters, "out_packets", stats.out_packets);
    add_counter(counters, "out_errors", stats.out_errors);
    add_counter(counters, "out_discards", stats.out_discards);
    add_counter(counters, "in_flow", stats.in_flow);
    add_counter(counters, "out_flow", stats.out_flow);
    return counters;
}

ExitCode read_ports(const Json& figures) {
    // A driver or a service that does not tell more is nothing to complain of.
    const QuietLog quiet;
    const BusConnection bus;
    // Negative where the board library does not answer.
    const int count = tq_get_dev_if_count();
    ExitCode code = count < 0 ? ExitCode::kRefused : ExitCode::kDone;
    for (int port = 0; port < count; port++) {
        if_stats stats;
        const char* name = tq_get_eth_ifname(port);
        if (name && tq_get_if_statistics(port, &stats) == 0) {
            json_add(figures.get(), name, port_counters(stats));
        } else {
            code = ExitCode::kRefused;
        }
    }
    return code;
}

using Reader = ExitCode (*)(const Json&);

ExitCode show(Context& context, Reader read) {
    const Json figures = object();
    const ExitCode code = read(figures);
    context.output.members(figures);
    if (code == ExitCode::kDone) return code;
    return context.fail(code, "not every figure can be read");
}

ExitCode cpu(Context& context, Arguments) {
    return show(context, read_cpu);
}

ExitCode mem(Context& context, Arguments) {
    return show(context, read_mem);
}

ExitCode flash(Context& context, Arguments) {
    return show(context, read_flash);
}

ExitCode uptime(Context& context, Arguments) {
    return show(context, read_uptime);
}

ExitCode ports(Context& context, Arguments) {
    return show(context, read_ports);
}

ExitCode read_all(const Json& figures) {
    struct Group {
        const char* name;
        Reader read;
    };
    static constexpr Group kGroups[] = {{"cpu", read_cpu},
                                        {"mem", read_mem},
                                        {"flash", read_flash},
                                        {"uptime", read_uptime},
                                        {"ports", read_ports}};
    ExitCode code = ExitCode::kDone;
    for (const Group& group : kGroups) {
        Json members = object();
        if (group.read(members) != ExitCode::kDone) code = ExitCode::kRefused;
        json_add(figures.get(), group.name, std::move(members));
    }
    return code;
}

ExitCode all(Context& context, Arguments) {
    return show(context, read_all);
}

// Of this file, so that the table can be checked when it is compiled.
ExitCode watch(Context& context, Arguments arguments) {
    return watch_figures(context, arguments);
}

constexpr Command kCommands[] = {
    {"cpu", "", 0, 0, "shows the processor's type and usage",
     "type, usage_percent over half a second, the ticks since boot that it is\n"
     "calculated of, and the statistics service's figures where it answers.",
     "tqctl stat cpu", cpu},
    {"mem", "", 0, 0, "shows how much memory is in use",
     "usage_percent is what is not free, buffers and cache included; the figures in\n"
     "kB, and the statistics service's mean where it answers.",
     "tqctl stat mem", mem},
    {"flash", "", 0, 0, "shows the flash and its free room",
     "The size of the first partition in bytes, and the free room of /overlay in kB.",
     "tqctl stat flash", flash},
    {"uptime", "", 0, 0, "shows the seconds since boot", "A line seconds=NUMBER.",
     "tqctl stat uptime", uptime},
    {"ports", "", 0, 0, "shows the counters of each Ethernet port",
     "Lines PORT.COUNTER=NUMBER; in JSON an object for each port.", "tqctl stat ports", ports},
    {"all", "", 0, 0, "shows all of these",
     "Lines GROUP.FIGURE=VALUE; in JSON an object for each group.", "tqctl -j stat all", all},
    {"watch", "[SECONDS]", 0, 1, "shows them live until q is pressed",
     "Bars and short histories, renewed every SECONDS (1 to 60, else 1): processor,\n"
     "memory, flash, and each port's rates.\n"
     "\n"
     "Any terminal will do, a serial console included. Blocks are drawn where\n"
     "LC_ALL, LC_CTYPE or LANG says UTF-8, colours where TERM is no vt100, vt102 or\n"
     "vt220 and NO_COLOR is not set. With TERM unset or dumb the pictures follow one\n"
     "another.",
     "tqctl stat watch 5", watch},
};
static_assert(is_complete(kCommands));

}  // namespace

constinit const Family kStat = {
    "stat", "processor, memory, ports",
    "Exit code 1 stands for a figure that cannot be read; the others are shown.", kCommands};

}  // namespace tqctl
