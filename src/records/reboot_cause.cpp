#include "tq/reboot_cause.h"

#include <fcntl.h>
#include <sys/ioctl.h>
#include <sys/time.h>
#include <tq/oem.h>
#include <unistd.h>

#include <algorithm>
#include <cstdarg>
#include <cstdio>
#include <cstdlib>
#include <cstring>

#include "foundation/file.h"
#include "foundation/text.h"

namespace {

using tq::UniqueFd;

constexpr int kSlots = REBOOT_CAUSE_RECORDS;

// What lies in front of the panic texts.
struct StoreFront {
    reboot_cause_header header;
    reboot_cause_record ring[kSlots];
};

// The structures are the store's format, whoever reads it.
static_assert(sizeof(reboot_cause_statistic) == 16);
static_assert(offsetof(reboot_cause_statistic, total) == 0);
static_assert(offsetof(reboot_cause_statistic, cause_count) == 2);
static_assert(offsetof(reboot_cause_statistic, other_count) == 12);
static_assert(offsetof(reboot_cause_statistic, last_cause) == 14);
static_assert(sizeof(reboot_cause_header) == 36);
static_assert(offsetof(reboot_cause_header, statistic) == 0);
static_assert(offsetof(reboot_cause_header, recorded) == 16);
static_assert(offsetof(reboot_cause_header, time_synchronised) == 17);
static_assert(offsetof(reboot_cause_header, magic) == 18);
static_assert(offsetof(reboot_cause_header, reserved_19) == 19);
static_assert(offsetof(reboot_cause_header, position) == 20);
static_assert(offsetof(reboot_cause_header, reserved_21) == 21);
static_assert(offsetof(reboot_cause_header, panic_identifier) == 22);
static_assert(offsetof(reboot_cause_header, reserved_26) == 26);
static_assert(sizeof(reboot_cause_record) == 128);
static_assert(offsetof(reboot_cause_record, sequence) == 0);
static_assert(offsetof(reboot_cause_record, cause) == 2);
static_assert(offsetof(reboot_cause_record, time_quality) == 3);
static_assert(offsetof(reboot_cause_record, reserved) == 4);
static_assert(offsetof(reboot_cause_record, time) == 8);
static_assert(offsetof(reboot_cause_record, uptime) == 12);
static_assert(offsetof(reboot_cause_record, process) == 16);
static_assert(offsetof(reboot_cause_record, message) == 32);
static_assert(offsetof(reboot_cause_record, location) == 80);
static_assert(sizeof(reboot_panic_buffer) == 4 + REBOOT_PANIC_TEXT_SIZE);
static_assert(offsetof(reboot_panic_buffer, text) == 4);
static_assert(offsetof(StoreFront, ring) == 36);
static_assert(sizeof(StoreFront) + sizeof(reboot_panic_buffer::text) * 2 ==
              REBOOT_CAUSE_STORE_SIZE);

// What passes between a record and the start of the next run.
constexpr uint32_t kBootSeconds = 10;

constexpr uint8_t kStoredCauseOfReset = 4;

// The driver's own request: whether the watchdog made the last reset.
constexpr unsigned kWatchdogMadeReset = 0x89ABCDF1;

// What rb_kernel_up_check says of its own place; field tools match on these lines.
constexpr int kWatchdogLine = 395;
constexpr int kPowerDownLine = 397;

constexpr int kResetRecorded = 100;

constexpr unsigned kHangSeconds = 20;

// The reset that this process recorded last.
constinit reboot_cause_record recorded_reset{};

using StorePath = char[32];

// Terminated whatever comes; false where the board names none.
bool find_store(StorePath& path) {
    const int result =
        tq_get_oem_ap_type_partion_info(AP_TYPE_PAT_REBOOT_CAUSE, path, sizeof(path));
    path[sizeof(path) - 1] = '\0';
    return result >= 0;
}

// The path is in a buffer of its own: what get_reboot_cause_file has handed out is its caller's.
int open_path(int flags) {
    StorePath path = "";
    return find_store(path) ? open(path, flags | O_CLOEXEC, 0666) : -1;
}

constexpr size_t offset_of_slot(int slot) {
    return offsetof(StoreFront, ring) + sizeof(reboot_cause_record) * static_cast<size_t>(slot);
}

// Goes on where the storage took a part: half a header would count a record that is not there.
bool write_at(int fd, const void* data, size_t size, size_t offset) {
    const auto* bytes = static_cast<const char*>(data);
    while (size > 0) {
        const ssize_t written = pwrite(fd, bytes, size, static_cast<off_t>(offset));
        if (written <= 0) return false;
        bytes += written;
        size -= static_cast<size_t>(written);
        offset += static_cast<size_t>(written);
    }
    return true;
}

// The magic byte comes last, when everything behind it is in its place.
bool make_store(int fd, StoreFront& front) {
    front = {};
    // A device node keeps its size, and what it holds.
    (void)!ftruncate(fd, 0);
    lseek(fd, sizeof(front.header), SEEK_SET);
    constexpr size_t kBlock = sizeof(front.ring);
    static_assert((REBOOT_CAUSE_STORE_SIZE - sizeof(front.header)) % kBlock == 0);
    for (size_t end = sizeof(front); end <= REBOOT_CAUSE_STORE_SIZE; end += kBlock) {
        if (write(fd, front.ring, kBlock) != static_cast<ssize_t>(kBlock)) return false;
    }
    front.header.magic = REBOOT_CAUSE_MAGIC;
    return write_at(fd, &front.header, sizeof(front.header), 0);
}

// The store's descriptor, with its first `size` bytes, header included, in `front`; -1 where it is
// not available. What a short file lacks is zero.
int open_store(StoreFront& front, size_t size) {
    UniqueFd store(open_path(O_RDWR | O_CREAT));
    if (!store) return -1;
    front = {};
    if (tq::read_some(store.get(), &front, size) < 0) return -1;
    if (front.header.magic != REBOOT_CAUSE_MAGIC && !make_store(store.get(), front)) return -1;
    return store.release();
}

int ring_position(const reboot_cause_header& header) {
    return std::min<int>(header.position, kSlots);
}

// The slots from the newest record's to older ones; -1 at the end.
int older_slot(const reboot_cause_header& header, int slot) {
    if (slot > 0) return slot - 1;
    const bool wrapped = ring_position(header) < header.statistic.total;
    return wrapped ? kSlots - 1 : -1;
}

int newest_slot(const reboot_cause_header& header) {
    return older_slot(header, ring_position(header));
}

// The words of a command line end in zero bytes, so that its first line is the first word. What of
// its last component fits, over zeros.
void get_self_process_name(char (&name)[16]) {
    char path[24];
    snprintf(path, sizeof(path), "/proc/%d/cmdline", getpid());
    char line[24];
    if (tq::read_first_line(path, line) <= 0) return;
    const char* program = line;
    for (const char* c = line; *c; c++) {
        if (*c == '/') program = c + 1;
    }
    memcpy(name, program, strnlen(program, sizeof(name)));
}

uint32_t seconds_now() {
    timeval now;
    gettimeofday(&now, nullptr);
    return static_cast<uint32_t>(now.tv_sec);
}

struct Place {
    const char* file;
    const char* function;
    int line;
};

__attribute__((format(printf, 4, 0))) void fill_record(reboot_cause_record& record, unsigned cause,
                                                       const Place& place, const char* format,
                                                       va_list args) {
    record = {};
    vsnprintf(record.message, sizeof(record.message), format, args);
    record.cause = static_cast<uint8_t>(cause);
    snprintf(record.location, sizeof(record.location), "%s:%s:%d", place.file, place.function,
             place.line);
    get_self_process_name(record.process);
    record.time = seconds_now();
    record.uptime = static_cast<uint32_t>(get_system_uptime());
}

bool is_reset(const reboot_cause_record& record) {
    return record.cause == REBOOT_CAUSE_POWER_DOWN || record.cause == REBOOT_CAUSE_WATCHDOG;
}

void estimate_time(reboot_cause_record& record, const StoreFront& front) {
    const int previous = newest_slot(front.header);
    if (previous < 0 || front.ring[previous].time_quality == REBOOT_TIME_UNKNOWN) return;
    record.time = front.ring[previous].time + kBootSeconds + record.uptime;
    record.time_quality = REBOOT_TIME_ESTIMATED;
}

void settle_time(reboot_cause_record& record, const StoreFront& front) {
    if (front.header.time_synchronised) {
        record.time_quality = REBOOT_TIME_SYNCHRONISED;
        return;
    }
    record.time_quality = REBOOT_TIME_UNKNOWN;
    if (!is_reset(record)) estimate_time(record, front);
}

// The callers' ratios are built on resets being counted with cause 4.
void fold_reset(reboot_cause_record& record) {
    if (!is_reset(record)) return;
    record.cause = kStoredCauseOfReset;
    record.time_quality = REBOOT_TIME_UNKNOWN;
}

void count_cause(reboot_cause_statistic& statistic, uint8_t cause) {
    const bool is_counted = cause >= 1 && cause <= std::size(statistic.cause_count);
    ++(is_counted ? statistic.cause_count[cause - 1] : statistic.other_count);
    ++statistic.total;
    statistic.last_cause = cause;
}

// The record first: a header that was written tells of what is there.
bool append(int store, reboot_cause_header& header, const reboot_cause_record& record) {
    if (header.position >= kSlots) header.position = 0;
    if (!write_at(store, &record, sizeof(record), offset_of_slot(header.position))) return false;
    header.recorded = 1;
    header.position++;
    return write_at(store, &header, sizeof(header), 0);
}

bool watchdog_made_reset() {
    const UniqueFd watchdog(tq::open_for_reading("/dev/watchdog"));
    if (!watchdog) return false;
    int answer = 0;
    return ioctl(watchdog.get(), kWatchdogMadeReset, &answer) >= 0 && answer == 1;
}

// True where this process has recorded a reset and nothing has come behind it: no process outlives
// a run, so this is still the same one. The record's time may have been corrected since.
bool is_recorded_already(const StoreFront& front) {
    const int slot = newest_slot(front.header);
    if (slot < 0 || recorded_reset.cause == 0) return false;
    reboot_cause_record newest = front.ring[slot];
    newest.time = recorded_reset.time;
    newest.time_quality = recorded_reset.time_quality;
    return memcmp(&newest, &recorded_reset, sizeof(newest)) == 0;
}

void record_reset() {
    const bool watchdog = watchdog_made_reset();
    rb_generate_reboot_cause(
        &recorded_reset, watchdog ? REBOOT_CAUSE_WATCHDOG : REBOOT_CAUSE_POWER_DOWN,
        "reboot_cause.c", "rb_kernel_up_check", watchdog ? kWatchdogLine : kPowerDownLine,
        watchdog ? "Watch dog" : "Power down");
    rb_write_reboot_cause_inner(&recorded_reset);
}

// Only these two bytes, so that the rest of the header stays as another writer left it.
void clear_run_flags(int store) {
    constexpr uint8_t kCleared[2] = {};
    static_assert(offsetof(reboot_cause_header, time_synchronised) ==
                  offsetof(reboot_cause_header, recorded) + 1);
    write_at(store, kCleared, sizeof(kCleared), offsetof(reboot_cause_header, recorded));
}

}  // namespace

const char* get_reboot_cause_file(void) {
    static StorePath path;
    return find_store(path) ? path : nullptr;
}

FILE* rb_open_reboot_cause_file(reboot_cause_header* header) {
    if (!header) return nullptr;
    StoreFront front;
    UniqueFd store(open_store(front, sizeof(front.header)));
    if (!store) return nullptr;
    FILE* stream = fdopen(store.get(), "r+");
    if (!stream) return nullptr;
    store.release();
    *header = front.header;
    return stream;
}

int get_system_uptime(void) {
    char line[128];
    if (tq::read_first_line("/proc/uptime", line) <= 0) return 0;
    return tq::leading_int(line);
}

int rb_write_reboot_cause_inner(reboot_cause_record* record) {
    if (!record) return -1;
    StoreFront front;
    const UniqueFd store(open_store(front, sizeof(front)));
    if (!store) return -1;
    record->sequence = static_cast<uint16_t>(front.header.statistic.total + 1);
    if (front.header.recorded) return 1;
    settle_time(*record, front);
    fold_reset(*record);
    count_cause(front.header.statistic, record->cause);
    return append(store.get(), front.header, *record) ? 0 : -1;
}

int rb_write_reboot_cause(int cause, const char* file, const char* function, int line,
                          const char* format, ...) {
    if (!file || !function || !format) return -1;
    reboot_cause_record record;
    va_list args;
    va_start(args, format);
    fill_record(record, static_cast<unsigned>(cause), {file, function, line}, format, args);
    va_end(args);
    return rb_write_reboot_cause_inner(&record);
}

void rb_generate_reboot_cause(reboot_cause_record* record, unsigned cause, const char* file,
                              const char* function, int line, const char* format, ...) {
    if (!record || !file || !function || !format) return;
    va_list args;
    va_start(args, format);
    fill_record(*record, cause, {file, function, line}, format, args);
    va_end(args);
}

int rb_read_reboot_cause(reboot_cause_record* records, int maximum) {
    if (!records || maximum <= 0) return -1;
    StoreFront front;
    const UniqueFd store(open_store(front, sizeof(front)));
    if (!store) return -1;
    const int limit = std::min(maximum, kSlots);
    int count = 0;
    for (int slot = newest_slot(front.header); count < limit; count++) {
        records[count] = slot < 0 ? reboot_cause_record{} : front.ring[slot];
        if (records[count].sequence == 0) return count;
        slot = older_slot(front.header, slot);
    }
    return count;
}

int rb_read_panic_by_index(reboot_panic_buffer* buffer) {
    if (!buffer) return -1;
    StoreFront front;
    const UniqueFd store(open_store(front, sizeof(front.header)));
    if (!store) return -1;
    const auto& identifiers = front.header.panic_identifier;
    const auto* found = std::ranges::find(identifiers, buffer->identifier);
    if (found == std::end(identifiers)) return -1;
    const auto index = static_cast<size_t>(found - std::begin(identifiers));
    const auto offset = static_cast<off_t>(sizeof(front) + index * sizeof(buffer->text));
    const ssize_t got = pread(store.get(), buffer->text, sizeof(buffer->text), offset);
    if (got < 0) return -1;
    memset(buffer->text + got, 0, sizeof(buffer->text) - static_cast<size_t>(got));
    return 0;
}

int rb_read_reboot_statistic(reboot_cause_statistic* statistic) {
    if (!statistic) return -1;
    StoreFront front;
    const UniqueFd store(open_store(front, sizeof(front.header)));
    if (!store) return -1;
    *statistic = front.header.statistic;
    return 0;
}

int rb_correct_reboot_time_now(void) {
    const int uptime = get_system_uptime();
    if (uptime == 0) return -1;
    uint32_t estimate = seconds_now() - static_cast<uint32_t>(uptime) - kBootSeconds;
    StoreFront front;
    const UniqueFd store(open_store(front, sizeof(front)));
    if (!store) return -1;
    int slot = newest_slot(front.header);
    // Back where it began, it meets a record that it has corrected.
    while (slot >= 0) {
        reboot_cause_record& record = front.ring[slot];
        if (record.time_quality != REBOOT_TIME_UNKNOWN) return 0;
        record.time = estimate;
        record.time_quality = REBOOT_TIME_CORRECTED;
        write_at(store.get(), &record, sizeof(record), offset_of_slot(slot));
        if (is_reset(record)) return 0;
        estimate -= record.uptime + kBootSeconds;
        slot = older_slot(front.header, slot);
    }
    return 0;
}

int rb_kernel_up_check(void) {
    StoreFront front;
    const UniqueFd store(open_store(front, sizeof(front)));
    if (!store) return 0;
    const bool unplanned = !front.header.recorded && !is_recorded_already(front);
    if (unplanned) record_reset();
    clear_run_flags(store.get());
    return unplanned ? kResetRecorded : 0;
}

int rb_set_ntp_sync_flag(unsigned char flag) {
    const UniqueFd store(open_path(O_WRONLY));
    if (!store) return -1;
    write_at(store.get(), &flag, sizeof(flag), offsetof(reboot_cause_header, time_synchronised));
    fsync(store.get());
    return 0;
}

void reboot_system(void) {
    sync();
    (void)!system("/sbin/reboot");
    for (;;) {
        sleep(kHangSeconds);
        (void)!system("echo b > /proc/sysrq-trigger");
    }
}
