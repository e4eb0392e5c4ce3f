// figures.h - what tqctl stat and its live view read of the access point.
#pragma once

#include <syslog.h>
#include <tq/sysstat.h>

#include <cstdint>

namespace tqctl {

// The library's lines stay off the terminal until the scope ends.
class QuietLog {
  public:
    QuietLog() : mask_(setlogmask(LOG_MASK(LOG_EMERG))) {}
    ~QuietLog() { setlogmask(mask_); }
    QuietLog(const QuietLog&) = delete;
    QuietLog& operator=(const QuietLog&) = delete;

  private:
    int mask_;
};

struct ProcessorTicks {
    uint32_t total = 0;
    uint32_t idle = 0;
};

// The processor's usage between two readings, in percent. The counters wrap around.
inline uint32_t usage_between(const ProcessorTicks& before, const ProcessorTicks& now) {
    const uint32_t total = now.total - before.total;
    const uint32_t idle = now.idle - before.idle;
    if (total == 0 || idle > total) return 0;
    return static_cast<uint32_t>(uint64_t{total - idle} * 100 / total);
}

// What is not free, in percent.
inline uint32_t memory_usage(const uint32_t (&figures)[PROC_MEMINFO_FIGURES]) {
    const uint32_t total = figures[PROC_MEMINFO_TOTAL];
    const uint32_t free = figures[PROC_MEMINFO_FREE];
    if (total == 0 || free > total) return 0;
    return static_cast<uint32_t>(uint64_t{total - free} * 100 / total);
}

}  // namespace tqctl
