// The store of reboot causes, beside the stdio calls that a daemon would write by hand.
#include <sys/time.h>
#include <tq/reboot_cause.h>
#include <unistd.h>

#include <array>
#include <cstdio>
#include <cstdlib>
#include <cstring>

#include "support.h"

namespace {

using Record = reboot_cause_record;
using Header = reboot_cause_header;

constexpr int kSlots = REBOOT_CAUSE_RECORDS;

constexpr int kFlagOffset = 16;

long offset_of_slot(int slot) {
    return static_cast<long>(sizeof(Header)) + slot * static_cast<long>(sizeof(Record));
}

// A new run begins.
void clear_flag(int store) {
    const char zero = 0;
    benchmark::DoNotOptimize(pwrite(store, &zero, 1, kFlagOffset));
}

FILE* open_by_hand(Header* header) {
    FILE* store = fopen(get_reboot_cause_file(), "r+");
    if (!store || fread(header, sizeof(*header), 1, store) != 1) abort();
    return store;
}

int read_by_hand(Record* records, int maximum) {
    Header header;
    FILE* store = open_by_hand(&header);
    int slot = header.position - 1;
    int count = 0;
    for (; count < maximum && count < kSlots; count++, slot--) {
        if (slot < 0) {
            if (header.position >= header.statistic.total) break;
            slot = kSlots - 1;
        }
        fseek(store, offset_of_slot(slot), SEEK_SET);
        if (fread(&records[count], sizeof(Record), 1, store) != 1) break;
        if (records[count].sequence == 0) break;
    }
    fclose(store);
    return count;
}

void first_line_by_hand(const char* path, char* line, int size) {
    FILE* file = fopen(path, "r");
    if (!file) abort();
    benchmark::DoNotOptimize(fgets(line, size, file));
    fclose(file);
}

void fill_by_hand(Record* record) {
    memset(record, 0, sizeof(*record));
    snprintf(record->message, sizeof(record->message), "%s", "new firmware");
    snprintf(record->location, sizeof(record->location), "%s:%s:%d", "upgrade.c", "finish", 77);
    record->cause = 1;
    char path[24];
    char line[128];
    snprintf(path, sizeof(path), "/proc/%d/cmdline", getpid());
    first_line_by_hand(path, line, sizeof(path));
    const char* slash = strrchr(line, '/');
    strncpy(record->process, slash ? slash + 1 : line, sizeof(record->process));
    first_line_by_hand("/proc/uptime", line, sizeof(line));
    record->uptime = static_cast<uint32_t>(strtoul(line, nullptr, 10));
    timeval now;
    gettimeofday(&now, nullptr);
    record->time = static_cast<uint32_t>(now.tv_sec);
}

void write_by_hand() {
    Record record;
    fill_by_hand(&record);
    Header header;
    FILE* store = open_by_hand(&header);
    if (header.position >= kSlots) header.position = 0;
    record.sequence = ++header.statistic.total;
    header.statistic.cause_count[0]++;
    header.statistic.last_cause = record.cause;
    fseek(store, offset_of_slot(header.position++), SEEK_SET);
    fwrite(&record, sizeof(record), 1, store);
    header.recorded = 1;
    fseek(store, 0, SEEK_SET);
    fwrite(&header, sizeof(header), 1, store);
    fflush(store);
    fclose(store);
}

// A full ring, and its descriptor for clearing the flag.
class FullRing {
  public:
    FullRing() {
        unlink(get_reboot_cause_file());
        Header header;
        stream_ = rb_open_reboot_cause_file(&header);
        if (!stream_) abort();
        for (int i = 0; i < kSlots + 5; i++) {
            clear_flag(fd());
            rb_write_reboot_cause(1, "bench.c", "FullRing", i, "record %d", i);
        }
        clear_flag(fd());
    }
    ~FullRing() { fclose(stream_); }
    FullRing(const FullRing&) = delete;
    FullRing& operator=(const FullRing&) = delete;

    [[nodiscard]] int fd() const { return fileno(stream_); }

  private:
    FILE* stream_;
};

void read_20_records(benchmark::State& state) {
    const FullRing ring;
    const tq_bench::CountAllocations count(state);
    std::array<Record, kSlots> records;
    for (auto _ : state)
        benchmark::DoNotOptimize(rb_read_reboot_cause(records.data(), kSlots));
}

void read_20_records_by_hand(benchmark::State& state) {
    const FullRing ring;
    const tq_bench::CountAllocations count(state);
    std::array<Record, kSlots> records;
    for (auto _ : state)
        benchmark::DoNotOptimize(read_by_hand(records.data(), kSlots));
}

void write_a_record(benchmark::State& state) {
    const FullRing ring;
    const tq_bench::CountAllocations count(state);
    for (auto _ : state) {
        rb_write_reboot_cause(1, "upgrade.c", "finish", 77, "new firmware");
        clear_flag(ring.fd());
    }
}

void write_a_record_by_hand(benchmark::State& state) {
    const FullRing ring;
    const tq_bench::CountAllocations count(state);
    for (auto _ : state) {
        write_by_hand();
        clear_flag(ring.fd());
    }
}

BENCHMARK(read_20_records)->Unit(benchmark::kMicrosecond);
BENCHMARK(read_20_records_by_hand)->Unit(benchmark::kMicrosecond);
BENCHMARK(write_a_record)->Unit(benchmark::kMicrosecond);
BENCHMARK(write_a_record_by_hand)->Unit(benchmark::kMicrosecond);

}  // namespace

BENCHMARK_MAIN();
