#include "tq/sysstat.h"

#include <mntent.h>
#include <sys/statfs.h>
#include <sys/sysinfo.h>

#include <cerrno>
#include <cstddef>
#include <cstdio>
#include <cstring>
#include <iterator>
#include <numeric>

#include "foundation/board.h"
#include "foundation/file.h"
#include "foundation/log.h"
#include "foundation/number_reader.h"
#include "foundation/text.h"
#include "tq/bwctl.h"
#include "tq/command.h"

static_assert(sizeof(if_stats) == 88);
static_assert(offsetof(if_stats, in_discards) == 24);
static_assert(offsetof(if_stats, out_octets) == 40);
static_assert(offsetof(if_stats, out_discards) == 64);
static_assert(offsetof(if_stats, in_flow) == 80);
static_assert(offsetof(if_stats, out_flow) == 84);

namespace {

using tq::LineReader;
using tq::NumberReader;
using tq::open_for_reading;
using tq::UniqueFd;

constexpr size_t kLineSize = 1024;

constexpr char kStat[] = "/proc/stat";
constexpr char kOverlay[] = "/overlay";

int read_known_line(const char* function, const char* path, char (&line)[kLineSize]) {
    const int result = tq::read_first_line(path, line);
    if (result == 1) return 0;
    return TQ_FAIL_IN(function, result < 0 ? "fopen fail\n" : "fgets fail\n");
}

// True where the text starts with so many numbers.
template <typename Number>
bool read_numbers(const char* text, Number* numbers, size_t count) {
    NumberReader reader(text);
    while (count > 0 && reader.number(*numbers)) {
        numbers++;
        count--;
    }
    return count == 0;
}

// True where "cpu" has so many numbers behind it.
bool read_ticks(const char* text, uint32_t* ticks, size_t count) {
    constexpr size_t kNameSize = 3;
    return strncmp(text, "cpu", kNameSize) == 0 && read_numbers(text + kNameSize, ticks, count);
}

struct MemoryName {
    uint8_t length;
    char text[9];
};

constexpr MemoryName kMemoryNames[PROC_MEMINFO_FIGURES] = {
    {8, "MemTotal"}, {7, "MemFree"}, {7, "Buffers"}, {6, "Cached"}};

// The place of the first of the names that the line contains; PROC_MEMINFO_FIGURES where there is
// none. A colon ends it, of which a line has one as a rule.
size_t memory_figure(const char* line, const char* colon) {
    size_t first = PROC_MEMINFO_FIGURES;
    for (; colon; colon = strchr(colon + 1, ':')) {
        const auto length = static_cast<size_t>(colon - line);
        for (size_t place = 0; place < first; place++) {
            const MemoryName& name = kMemoryNames[place];
            // The last letter tells most of them apart.
            if (length >= name.length && colon[-1] == name.text[name.length - 1] &&
                memcmp(colon - name.length, name.text, name.length) == 0)
                first = place;
        }
    }
    return first;
}

int read_memory(const char* function, uint32_t (&figures)[PROC_MEMINFO_FIGURES]) {
    if (get_proc_meminfo(figures) >= 0) return 0;
    return TQ_FAIL_IN(function, "get_proc_meminfo fail\n");
}

// Relays a percentage of the statistics service. One that came before the service failed does not
// count.
int relay(const char* function, int (*ask)(uint32_t*), uint32_t* percent) {
    if (!percent) return tq::reject_parameter(function);
    *percent = 0;
    uint32_t answer = 0;
    if (ask(&answer) != 0) return -1;
    *percent = answer;
    return 0;
}

class MountTable {
  public:
    MountTable() : stream_(setmntent("/etc/mtab", "re")) {}
    ~MountTable() {
        if (stream_) endmntent(stream_);
    }
    MountTable(const MountTable&) = delete;
    MountTable& operator=(const MountTable&) = delete;

    explicit operator bool() const { return stream_ != nullptr; }

    // The directory of the next entry, valid until the next call; null at the end.
    const char* next() {
        mntent entry;
        return getmntent_r(stream_, &entry, text_, sizeof(text_)) ? entry.mnt_dir : nullptr;
    }

  private:
    FILE* stream_;
    char text_[4096];
};

}  // namespace

int tq_get_cpu_ticks(uint32_t* total, uint32_t* busy) {
    const UniqueFd file(open_for_reading(kStat));
    if (!file) return TQ_FAIL("Cannot open %s\n", kStat);
    char text[kLineSize];
    tq::read_text(file.get(), text);
    enum { kUser, kNice, kSystem, kIdle, kIoWait, kIrq, kSoftIrq, kCount };
    uint32_t ticks[kCount];
    if (!read_ticks(text, ticks, kCount)) {
        TQ_LOG(LOG_ERR, "Cannot parse %s\n", kStat);
        return -2;
    }
    *busy = ticks[kNice] + ticks[kSystem] + ticks[kIrq] + ticks[kSoftIrq];
    *total = ticks[kUser] + ticks[kIdle] + ticks[kIoWait] + *busy;
    return 0;
}

int get_proc_cpuinfo(uint32_t* total, uint32_t* idle) {
    if (!total || !idle) return tq::reject_parameter(__func__);
    char line[kLineSize];
    if (read_known_line(__func__, kStat, line) != 0) return -1;
    uint32_t ticks[10];
    if (!read_ticks(line, ticks, std::size(ticks))) return TQ_FAIL("sscanf fail\n");
    *idle = ticks[3];
    *total = std::accumulate(std::begin(ticks), std::end(ticks), uint32_t{0});
    return 0;
}

int get_proc_meminfo(uint32_t figures[PROC_MEMINFO_FIGURES]) {
    if (!figures) return tq::reject_parameter(__func__);
    const UniqueFd file(open_for_reading("/proc/meminfo"));
    if (!file) return TQ_FAIL("fopen fail\n");
    const bool traced = tq::is_logged(LOG_DEBUG);
    LineReader lines(file.get());
    int found = 0;
    while (found < PROC_MEMINFO_FIGURES) {
        const char* line = lines.next();
        if (!line) break;
        const char* colon = strchr(line, ':');
        const size_t place = memory_figure(line, colon);
        if (place == PROC_MEMINFO_FIGURES) continue;
        // The number stands behind the first colon, in front of which something has to be.
        if (colon == line || !NumberReader(colon + 1).number(figures[place])) {
            TQ_LOG(LOG_ERR, "sscanf %s fail\n", line);
            break;
        }
        if (traced)
            TQ_LOG(LOG_DEBUG, "%s - %lu\n", line, static_cast<unsigned long>(figures[place]));
        found++;
    }
    return found == PROC_MEMINFO_FIGURES ? 1 : -1;
}

int tq_hal_get_sdram_size(uint32_t* size_kb) {
    if (!size_kb) return tq::reject_parameter(__func__);
    uint32_t figures[PROC_MEMINFO_FIGURES] = {};
    if (read_memory(__func__, figures) != 0) return -1;
    *size_kb = figures[PROC_MEMINFO_TOTAL];
    return 0;
}

int tq_get_memory_real_usage(uint32_t* percent) {
    if (!percent) return tq::reject_parameter(__func__);
    *percent = 0;
    uint32_t figures[PROC_MEMINFO_FIGURES] = {};
    if (read_memory(__func__, figures) != 0) return -1;
    const uint32_t total = figures[PROC_MEMINFO_TOTAL];
    // NOLINTNEXTLINE(clang-analyzer-core.DivideZero): a total of 0 stops the process
    *percent = (total - figures[PROC_MEMINFO_FREE]) * 100 / total;
    return 0;
}

int tq_get_memory_avg_usage(uint32_t* percent) {
    return relay(__func__, tq_get_mem_usage, percent);
}

int tq_get_cpu_avg_usage(uint32_t* percent) {
    return relay(__func__, tq_get_cpu_usage, percent);
}

int tq_get_cpu_real_usage(uint32_t* percent) {
    return relay(__func__, tq_get_cpu_cur_usage, percent);
}

int tq_get_sys_uptime(uint32_t* seconds) {
    if (!seconds) return tq::reject_parameter(__func__);
    *seconds = 0;
    struct sysinfo info;
    if (sysinfo(&info) < 0) return TQ_FAIL("sysinfo fail\n");
    *seconds = static_cast<uint32_t>(info.uptime);
    return 0;
}

int tq_get_flash_free_size(uint32_t* free_kb) {
    if (!free_kb) return tq::reject_parameter(__func__);
    *free_kb = 0;
    MountTable mounts;
    if (!mounts) return TQ_FAIL("setmntent fail\n");
    struct statfs room;
    while (const char* directory = mounts.next()) {
        if (strcmp(directory, kOverlay) != 0 || statfs(directory, &room) < 0) continue;
        *free_kb = static_cast<uint32_t>(room.f_bsize) * static_cast<uint32_t>(room.f_bavail) >> 10;
        return 0;
    }
    return -1;
}

int tq_hal_get_flash_size(void) {
    const UniqueFd file(open_for_reading("/proc/mtd"));
    if (!file) return TQ_FAIL("fopen fail\n");
    LineReader lines(file.get());
    const char* line = lines.next() ? lines.next() : nullptr;
    if (!line) return 0;
    // Index, size, erase size and a name, of which a first character will do.
    unsigned size = 0;
    char name = '\0';
    if (sscanf(line, "mtd%*d:%8x%*8x \" %c", &size, &name) != 2) {
        TQ_LOG(LOG_ERR, "sscanf fail\n");
        return 0;
    }
    return static_cast<int>(size);
}

int tq_hal_get_processor_type(char* buf, int len) {
    if (!buf || len <= 0) return tq::reject_parameter(__func__);
    *buf = '\0';
    char line[kLineSize];
    if (read_known_line(__func__, "/proc/cpuinfo", line) != 0) return -1;
    const char* colon = strchr(line, ':');
    if (!colon) return TQ_FAIL("buf = %s\n", line);
    tq::copy_text(buf, static_cast<size_t>(len), colon[1] ? colon + 2 : "");
    if (char* feed = strchr(buf, '\n')) *feed = '\0';
    return 0;
}

int tq_get_eth_flow(uint32_t port, uint32_t* in, uint32_t* out) {
    if (!in || !out) return tq::reject_parameter(__func__);
    *in = 0;
    *out = 0;
    uint32_t in_flow = 0;
    if (tq_get_in_flow_statistics(port, &in_flow) != 0)
        return TQ_FAIL("tq_get_in_flow_statistics fail\n");
    *in = in_flow;
    uint32_t out_flow = 0;
    if (tq_get_out_flow_statistics(port, &out_flow) != 0)
        return TQ_FAIL("tq_get_out_flow_statistics fail\n");
    *out = out_flow;
    return 0;
}

int tq_get_eth_stats(int port, if_stats* rec) {
    if (!rec) return TQ_FAIL("null buff\n");
    char path[128];
    snprintf(path, sizeof(path), "/proc/net/eth/eth%d/stats", port);
    char line[kLineSize];
    if (tq::read_first_line(path, line) < 0) {
        TQ_LOG(LOG_WARNING, "fopen %s failed: %s\n", path, strerror(errno));
        return -1;
    }
    uint64_t numbers[6];
    const bool known = read_numbers(line, numbers, std::size(numbers));
    if (known) {
        rec->in_octets = numbers[0];
        rec->out_octets = numbers[3];
    } else {
        TQ_LOG(LOG_WARNING, "unknown format: '%s'\n", line);
    }
    TQ_LOG(LOG_DEBUG, "ifInOctets:%llu ifOutOctets: %llu\n",
           static_cast<unsigned long long>(rec->in_octets),
           static_cast<unsigned long long>(rec->out_octets));
    return known ? 0 : -1;
}

int tq_get_if_statistics(int port, if_stats* rec) {
    if (!rec) return tq::reject_parameter(__func__);
    char ifname[tq::kNameSize];
    if (!tq::eth_ifname(port, ifname))
        return TQ_FAIL("tq_get_eth_ifname fail, index  = %d\n", port);
    *rec = {};
    char key[64];
    snprintf(key, sizeof(key), "%s:", ifname);
    char line[kLineSize];
    if (read_line("/proc/net/dev", key, line, sizeof(line)) != 0)
        return TQ_FAIL("read_line fail\n");
    // Behind the interface's name, eight columns of what was received and eight of what was sent.
    uint64_t columns[16];
    if (!read_numbers(line + strlen(key), columns, std::size(columns)))
        return TQ_FAIL("sscanf fail\n");
    // Of both the first four are the record's, in its order.
    memcpy(rec, &columns[0], 4 * sizeof(*columns));
    rec->in_multicast = columns[7];
    memcpy(reinterpret_cast<char*>(rec) + offsetof(if_stats, out_octets), &columns[8],
           4 * sizeof(*columns));
    (void)tq_get_eth_flow(static_cast<uint32_t>(port), &rec->in_flow, &rec->out_flow);
    (void)tq_get_eth_stats(port, rec);
    return 0;
}
