#include "tq/util.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cstdlib>
#include <ctime>

#include "foundation/file.h"

namespace {

static_assert(sizeof(tq_timeval) == 8);

constexpr long kNanosecondsInMicrosecond = 1000;

}  // namespace

int tq_gettime(tq_timeval* now) {
    if (!now) return -1;
    timespec clock;
    if (clock_gettime(CLOCK_MONOTONIC, &clock) != 0) return -1;
    now->tv_sec = static_cast<int32_t>(clock.tv_sec);
    now->tv_usec = static_cast<int32_t>(clock.tv_nsec / kNanosecondsInMicrosecond);
    return 0;
}

int tq_time() {
    tq_timeval now;
    return tq_gettime(&now) == 0 ? now.tv_sec : -1;
}

int tq_rand() {
    srand(static_cast<unsigned>(tq_time()));
    return rand();  // NOLINT(cert-msc30-c,cert-msc50-cpp,concurrency-mt-unsafe): not meant as a
                    // secret
}

int tq_mktemp(char* path_template) {
    if (!path_template) return -1;
    if (const tq::UniqueFd file(mkostemp(path_template, O_CLOEXEC)); !file) return -1;
    if (chmod(path_template, S_IRUSR | S_IWUSR) == 0) return 0;
    unlink(path_template);
    return -2;
}

int tq_hexstr_to_hexnum(const char* hex, int hex_len, uint8_t* out, int out_len) {
    if (!hex || !out || hex_len % 2 != 0) return 0;
    long value = 0;
    int written = 0;
    for (; written < hex_len / 2 && written < out_len; written++) {
        const char pair[] = {hex[0], hex[1], '\0'};
        char* end = nullptr;
        const long number = strtol(pair, &end, 16);
        if (end != pair) value = number;
        out[written] = static_cast<uint8_t>(value);
        hex += 2;
    }
    return written;
}
