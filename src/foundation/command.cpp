#include "tq/command.h"

#include <stdio_ext.h>

#include <cstdlib>
#include <cstring>

#include "foundation/file.h"
#include "foundation/log.h"
#include "foundation/text.h"

namespace {

using tq::LineReader;
using tq::Pipe;
using tq::UniqueFd;

// Longest line of a configuration-style text file, its terminator included.
constexpr int kFileLineSize = 65535;

// A needle that has not come by then is not searched for any longer.
constexpr int kMaxExaminedLines = 500;

// Reads up to the end of the first line, or as much of it as fits; the rest stays unread. False
// where there is nothing to read.
bool read_up_to_feed(int fd, char* out, size_t size) {
    size_t used = 0;
    while (used + 1 < size) {
        const ssize_t got = tq::read_some(fd, &out[used], size - 1 - used);
        if (got <= 0) break;
        void* feed = memchr(&out[used], '\n', static_cast<size_t>(got));
        used += static_cast<size_t>(got);
        if (feed) {
            *static_cast<char*>(feed) = '\0';
            return true;
        }
    }
    out[used] = '\0';
    return used > 0 || size == 1;
}

// What follows the key in the first line that starts with it, or null. The key is compared, never
// used as a scan format: it is data.
const char* find_key(LineReader& lines, const char* key) {
    const size_t length = strlen(key);
    while (const char* line = lines.next()) {
        if (strncmp(line, key, length) == 0) return line + length;
    }
    return nullptr;
}

int next_byte(FILE* fp) {
    const bool unlocked = __fsetlocking(fp, FSETLOCKING_QUERY) == FSETLOCKING_BYCALLER;
    return unlocked ? getc_unlocked(fp) : fgetc(fp);
}

bool is_blank_or_comment(const char* line) {
    return *line == '\n' || *line == '\r' || *line == '#';
}

}  // namespace

int my_system(const char* command) {
    TQ_LOG(LOG_INFO, "exec: %s\n", tq::printable(command));
    (void)!system(command);
    return 0;
}

int run_cmd(const char* command, char* out, int out_size) {
    if (!command || !out || out_size <= 0) return tq::reject(__func__);
    *out = '\0';
    const Pipe pipe(command);
    if (!pipe) return TQ_FAIL("popen fail, cmd = %s\n\n", command);
    if (!read_up_to_feed(pipe.fd(), out, static_cast<size_t>(out_size))) {
        return TQ_FAIL("fgets fail, cmd = %s\n\n", command);
    }
    return 0;
}

int get_key_vlaue(const char* command, const char* key, int* value) {
    if (!command || !key || !value) return tq::reject(__func__);
    const Pipe pipe(command);
    if (!pipe) return TQ_FAIL("popen fail, cmd = %s\n\n", command);
    LineReader lines(pipe.fd());
    const char* rest = find_key(lines, key);
    if (!rest) return TQ_FAIL("not find %s\n", key);
    if (*rest != '=' || !tq::starts_with_int(rest + 1)) return TQ_FAIL("sscanf fail\n");
    *value = tq::leading_int(rest + 1);
    return 0;
}

int read_line(const char* path, const char* needle, char* out, int out_size) {
    if (!path || !needle || !out || out_size < 1) return tq::reject(__func__);
    *out = '\0';
    const UniqueFd file(tq::open_for_reading(path));
    if (!file) return TQ_FAIL("fopen %s fail\n", path);
    LineReader lines(file.get());
    while (const char* line = lines.next()) {
        const char* match = strstr(line, needle);
        if (!match) continue;
        tq::copy_text(out, static_cast<size_t>(out_size), match);
        return 0;
    }
    return TQ_FAIL("not find %s\n", needle);
}

char* tq_hal_file_gets(char* buf, int size, FILE* fp) {
    if (!buf || !fp || size < 1) return nullptr;
    memset(buf, 0, static_cast<size_t>(size));
    for (size_t i = 0;; i++) {
        // A byte 0xff is EOF once it is a signed character.
        const auto byte = static_cast<signed char>(next_byte(fp));
        if (byte == EOF) {
            buf[i] = '\0';
            return i == 0 ? nullptr : buf;
        }
        buf[i] = static_cast<char>(byte);
        if (byte == '\n' || byte == '\r' || i == static_cast<size_t>(size)) {
            buf[i + 1] = '\0';
            return buf;
        }
    }
}

char* tq_hal_get_file_line(FILE* fp) {
    if (!fp) return nullptr;
    // tq_hal_file_gets fills two bytes beyond the size that it is told.
    const tq::HeapText buffer(static_cast<char*>(malloc(kFileLineSize + 2)));
    if (!buffer) return nullptr;
    do {
        if (!tq_hal_file_gets(buffer.get(), kFileLineSize, fp)) return nullptr;
    } while (is_blank_or_comment(buffer.get()));
    const size_t length = strlen(buffer.get());
    if (length > 0) buffer.get()[length - 1] = '\0';
    return strdup(buffer.get());
}

int nucleus_fgets(char* buf, int size, FILE* fp, const char* needle) {
    if (!buf || !fp) return -1;
    if (!fgets(buf, size, fp)) return TQ_FAIL("fgets fail\n");
    for (int examined = 0; examined < kMaxExaminedLines; examined++) {
        TQ_LOG(LOG_DEBUG, "%s\n", buf);
        if (!needle || strstr(buf, needle)) return 0;
        if (!fgets(buf, size, fp)) return TQ_FAIL("don't find key word '%s'\n", needle);
    }
    return TQ_FAIL("fgets %d times, don't find '%s'\n", kMaxExaminedLines, needle);
}
