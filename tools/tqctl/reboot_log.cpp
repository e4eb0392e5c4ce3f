// reboot_log.cpp - tqctl reboot-log: why the device rebooted.
#include <tq/reboot_cause.h>

#include <algorithm>
#include <cinttypes>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <ctime>
#include <iterator>
#include <utility>

#include "families.h"
#include "file.h"
#include "number.h"

namespace tqctl {

namespace {

// Why the library could not use the store.
ExitCode explain(const Context& context) {
    const char* path = get_reboot_cause_file();
    if (!path) return context.fail(ExitCode::kRefused, "the board names no file for the records");
    const File store(fopen(path, "r+e"));
    if (store)
        return context.fail(ExitCode::kInputOutput, "%s: does not take what is written", path);
    return context.fail_by_errno(path);
}

// list

constexpr const char* kTimeQualities[] = {"unknown", "synchronised", "estimated", "corrected"};

const char* quality_name(const reboot_cause_record& record) {
    return record.time_quality < std::size(kTimeQualities) ? kTimeQualities[record.time_quality]
                                                           : "invalid";
}

template <size_t size>
std::string_view text_of(const char (&field)[size]) {
    return {field, strnlen(field, size)};
}

// A field of a line: no byte of the store's breaks the line or reaches the terminal as a command.
void print_field(std::string_view text, char separator) {
    for (const char byte : text) {
        const auto code = static_cast<unsigned char>(byte);
        putchar(code < 0x20 || code == 0x7f ? '?' : byte);
    }
    putchar(separator);
}

void print_record(const reboot_cause_record& record) {
    char time[32] = "";
    const time_t seconds = record.time;
    tm utc{};
    if (gmtime_r(&seconds, &utc)) strftime(time, sizeof(time), "%Y-%m-%dT%H:%M:%SZ", &utc);
    printf("%u\t%u\t%s\t%s\t%" PRIu32 "\t", record.sequence, record.cause, time,
           quality_name(record), record.uptime);
    print_field(text_of(record.process), '\t');
    print_field(text_of(record.message), '\t');
    print_field(text_of(record.location), '\n');
}

Json describe(const reboot_cause_record& record) {
    Json object(json_object_new_object());
    const bool whole = json_add(object.get(), "sequence", json_number(record.sequence)) &&
                       json_add(object.get(), "cause", json_number(record.cause)) &&
                       json_add(object.get(), "time", json_number(record.time)) &&
                       json_add(object.get(), "time_quality", json_text(quality_name(record))) &&
                       json_add(object.get(), "uptime", json_number(record.uptime)) &&
                       json_add(object.get(), "process", json_text(text_of(record.process))) &&
                       json_add(object.get(), "message", json_text(text_of(record.message))) &&
                       json_add(object.get(), "location", json_text(text_of(record.location)));
    return whole ? std::move(object) : nullptr;
}

ExitCode list(Context& context, Arguments arguments) {
    const std::optional<int64_t> maximum =
        arguments.empty() ? REBOOT_CAUSE_RECORDS
                          : take_number(context, arguments[0], "a number", 1, REBOOT_CAUSE_RECORDS);
    if (!maximum) return ExitCode::kUsage;
    reboot_cause_record records[REBOOT_CAUSE_RECORDS];
    const int count = rb_read_reboot_cause(records, static_cast<int>(*maximum));
    if (count < 0) return explain(context);
    Rows rows(context.output);
    for (int i = 0; i < count; i++)
        rows.add(records[i], describe, print_record);
    return ExitCode::kDone;
}

// stats

ExitCode stats(Context& context, Arguments) {
    reboot_cause_statistic statistic;
    if (rb_read_reboot_statistic(&statistic) != 0) return explain(context);
    constexpr const char* kKeys[] = {"cause1", "cause2", "cause3", "cause4", "cause5"};
    static_assert(std::size(kKeys) == std::size(statistic.cause_count));
    context.output.member("total", statistic.total);
    for (size_t i = 0; i < std::size(kKeys); i++)
        context.output.member(kKeys[i], statistic.cause_count[i]);
    context.output.member("other", statistic.other_count);
    context.output.member("last_cause", statistic.last_cause);
    return ExitCode::kDone;
}

// add

ExitCode add(Context& context, Arguments arguments) {
    const std::optional<int64_t> cause =
        take_number(context, arguments[0], "a number", 0, UINT8_MAX);
    if (!cause) return ExitCode::kUsage;
    constexpr size_t kLongest = sizeof(reboot_cause_record::message) - 1;
    if (strlen(arguments[1]) > kLongest)
        return context.fail(ExitCode::kRefused, "a message is at most %zu bytes long", kLongest);
    const int result = rb_write_reboot_cause(static_cast<int>(*cause), "tqctl", "reboot-log add",
                                             __LINE__, "%s", arguments[1]);
    if (result == 1) return context.fail(ExitCode::kRefused, "this run has its record already");
    return result == 0 ? ExitCode::kDone : explain(context);
}

// panic

ExitCode panic(Context& context, Arguments arguments) {
    const std::optional<int64_t> identifier =
        take_number(context, arguments[0], "a number", 0, UINT16_MAX);
    if (!identifier) return ExitCode::kUsage;
    reboot_cause_statistic statistic;
    if (rb_read_reboot_statistic(&statistic) != 0) return explain(context);
    reboot_panic_buffer buffer{};
    buffer.identifier = static_cast<uint32_t>(*identifier);
    // A fresh store has two texts of the identifier 0, and nothing in them.
    if (rb_read_panic_by_index(&buffer) != 0 || !*buffer.text)
        return context.fail(ExitCode::kRefused, "no panic has the identifier %s", arguments[0]);
    std::string_view text = text_of(buffer.text);
    if (text.back() == '\n') text.remove_suffix(1);
    context.output.value("text", text);
    return ExitCode::kDone;
}

// check

ExitCode check(Context& context, Arguments) {
    reboot_cause_statistic statistic;
    if (rb_read_reboot_statistic(&statistic) != 0) return explain(context);
    context.output.value("reset", rb_kernel_up_check() != 0 ? "unplanned" : "planned");
    return ExitCode::kDone;
}

// fix-times

// How many records have a corrected time; -1 where the store is not available.
int corrected() {
    reboot_cause_record records[REBOOT_CAUSE_RECORDS];
    const int count = rb_read_reboot_cause(records, REBOOT_CAUSE_RECORDS);
    if (count < 0) return -1;
    return static_cast<int>(std::count_if(records, records + count, [](const auto& record) {
        return record.time_quality == REBOOT_TIME_CORRECTED;
    }));
}

ExitCode fix_times(Context& context, Arguments) {
    const int before = corrected();
    if (before < 0) return explain(context);
    if (rb_correct_reboot_time_now() != 0)
        return context.fail(ExitCode::kInputOutput, "the uptime cannot be read");
    context.output.value("corrected", corrected() - before);
    return ExitCode::kDone;
}

constexpr Command kCommands[] = {
    {"list", "[NUMBER]", 0, 1, "prints the records, newest first",
     "One line a record, at most NUMBER (of 20), with tabs between its sequence\n"
     "number, cause, time in UTC, how the time is known (unknown, synchronised,\n"
     "estimated, corrected), uptime in seconds, process, message and code location.\n"
     "Control characters are printed as '?'. JSON is an array of objects, with the\n"
     "time in seconds since 1970.",
     "tqctl reboot-log list 5", list},
    {"stats", "", 0, 0, "prints how many records there were of each cause",
     "Lines total=N, cause1=N to cause5=N, other=N and last_cause=CAUSE. Resets that\n"
     "nobody planned count as cause 4.",
     "tqctl reboot-log stats", stats},
    {"add", "CAUSE MESSAGE", 2, 2, "records why the device is about to reboot",
     "CAUSE is a number from 0 to 255, MESSAGE at most 47 bytes long. Only the first\n"
     "record of a run is kept: a second one is refused.",
     "tqctl reboot-log add 2 'new firmware'", add},
    {"panic", "IDENTIFIER", 1, 1, "prints the text of a kernel panic",
     "IDENTIFIER is a number from 0 to 65535; the store has two texts.", "tqctl reboot-log panic 1",
     panic},
    {"check", "", 0, 0, "begins a run: records a reset that nobody planned",
     "Prints planned where the last run left a record, else unplanned: the watchdog\n"
     "or a power loss is recorded then. For the start-up sequence, once per boot: a\n"
     "second one records a reset that did not happen.",
     "tqctl reboot-log check", check},
    {"fix-times", "", 0, 0, "corrects the times recorded while the clock was not right",
     "For when the clock has been set. Prints how many records it corrected.",
     "tqctl reboot-log fix-times", fix_times},
};
static_assert(is_complete(kCommands));

}  // namespace

constinit const Family kRebootLog = {
    "reboot-log", "why the device rebooted",
    "The records lie in a file that the board names. Where it is missing, or is no\n"
    "store of records, each of these commands makes it anew, without any.",
    kCommands};

}  // namespace tqctl
