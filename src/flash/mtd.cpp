#include "tq/mtd.h"

#include <fcntl.h>
#include <tq/oem.h>

#include <cstring>
#include <optional>

#include "foundation/file.h"
#include "foundation/log.h"
#include "foundation/text.h"
#include "tq/command.h"

namespace {

using tq::LineReader;
using tq::Text;
using tq::UniqueFd;

constexpr size_t kPartitionNameSize = 64;
constexpr size_t kQuotedNameSize = 4096;

// Field tools match on the line numbers of these log lines.
#define TQ_FAIL_AT(number, ...) (TQ_LOG_AT(number, LOG_ERR, __VA_ARGS__), -1)

int open_for_reading(const char* path) {
    return open(path, O_RDONLY | O_CLOEXEC);
}

// The number of the partition that the line of /proc/mtd is about.
std::optional<int> partition_number(const char* line) {
    if (strncmp(line, "mtd", 3) != 0) return std::nullopt;
    return tq::leading_int(line + 3);
}

std::optional<int> find_partition(int table, const char* name, int index) {
    // One that is cut is as long as a whole piece of a line, and so in none behind its number.
    Text<kQuotedNameSize> quoted;
    quoted.append("\"%s\"", name);
    LineReader lines(table, LineReader::kLongPiece);
    while (const char* line = lines.next()) {
        const std::optional<int> number = partition_number(line);
        if (number && strstr(line, quoted.c_str()) && index-- == 0) return number;
    }
    return std::nullopt;
}

int open_device(int number, uint8_t block) {
    const char* kind = block ? "block" : "";
    Text<64> in_directory;
    in_directory.append("/dev/mtd%s/%d", kind, number);
    const int fd = open_for_reading(in_directory.c_str());
    if (fd >= 0) return fd;
    Text<64> path;
    path.append("/dev/mtd%s%d", kind, number);
    return open_for_reading(path.c_str());
}

// A text of ASCII characters that is not empty and ends at a NUL or with its field.
bool is_version(const char* field) {
    const size_t length = strnlen(field, TQ_IMAGE_VERSION_SIZE);
    for (size_t i = 0; i < length; i++) {
        if (field[i] & 0x80) return false;
    }
    return length > 0;
}

int get_version_info_from_offset(const char* name, char* out) {
    if (!name || !out) return TQ_FAIL_AT(83, "invalid parameters\n");
    const UniqueFd partition(mtd_open(name, 1));
    if (!partition) return TQ_FAIL_AT(89, "open fail\n");
    if (lseek(partition.get(), 0, SEEK_SET) < 0) return TQ_FAIL_AT(94, "lseek fail\n");
    const ssize_t got = tq::read_some(partition.get(), out, TQ_IMAGE_BLOCK_SIZE);
    if (got <= 0) return TQ_FAIL_AT(100, "read fail\n");
    memset(out + got, 0, TQ_IMAGE_BLOCK_SIZE - static_cast<size_t>(got));
    if (!is_version(out + TQ_IMAGE_VERSION_OFFSET)) {
        return TQ_FAIL_AT(108, "not ascii string, fail\n");
    }
    return 0;
}

int read_mark(const char* key, int* value) {
    return get_key_vlaue("fw_printenv", key, value);
}

// The board's name of a partition; false where it has none.
bool get_partition_name(int selector, char (&name)[kPartitionNameSize]) {
    memset(name, 0, sizeof(name));
    if (tq_get_oem_ap_type_partion_info(selector, name, sizeof(name)) == -1) return false;
    name[sizeof(name) - 1] = '\0';
    return true;
}

}  // namespace

int mtd_open_match(const char* name, int index, uint8_t block) {
    if (!name || index < 0) return TQ_FAIL("invalid parameters\n");
    if (*name == '/') return open_for_reading(name);
    const UniqueFd table(open_for_reading("/proc/mtd"));
    if (!table) return open_for_reading(name);
    const std::optional<int> number = find_partition(table.get(), name, index);
    return number ? open_device(*number, block) : open_for_reading(name);
}

int mtd_open(const char* name, uint8_t block) {
    if (!name) return TQ_FAIL("invalid parameters\n");
    return mtd_open_match(name, 0, block);
}

int get_active_image_type(void) {
    TQ_LOG_AT(328, LOG_INFO, "%s image active\n", "primary");
    return 0;
}

int get_primary_info(char* out) {
    if (!out) return TQ_FAIL_AT(338, "invalid parameters\n");
    char name[kPartitionNameSize];
    if (!get_partition_name(AP_TYPE_PAT_PRI_IMAGE, name)) {
        return TQ_FAIL_AT(344, "tq_get_pri_image_partition fail\n");
    }
    if (check_primary_image() == -1) return TQ_FAIL_AT(349, "check_primary_image fail\n");
    if (get_version_info_from_offset(name, out) == -1) {
        return TQ_FAIL_AT(361, "get_version_info fail\n");
    }
    return 0;
}

int get_backup_info(char* out) {
    if (!out) return TQ_FAIL_AT(375, "invalid parameters\n");
    char name[kPartitionNameSize];
    if (!get_partition_name(AP_TYPE_PAT_BK_IMAGE, name)) {
        return TQ_FAIL_AT(381, "tq_get_bk_image_partition fail\n");
    }
    if (check_backup_image() == -1) return TQ_FAIL_AT(386, "check_backup_image fail\n");
    if (get_version_info_from_offset(name, out) == -1) {
        return TQ_FAIL_AT(398, "get_version_info fail\n");
    }
    return 0;
}

int get_backup_boot_info(char* out) {
    if (!out) return TQ_FAIL_AT(430, "invalid parameters\n");
    char name[kPartitionNameSize];
    if (!get_partition_name(AP_TYPE_PAT_BK_UBOOT_IMAGE, name)) {
        return TQ_FAIL_AT(436, "get AP_TYPE_PAT_BK_UBOOT_IMAGE fail\n");
    }
    if (check_backup_uboot() == -1) return TQ_FAIL_AT(441, "check_backup_uboot fail\n");
    if (get_version_info_from_offset(name, out) == -1) {
        return TQ_FAIL_AT(467, "get_version_info fail\n");
    }
    return 0;
}

int check_primary_image(void) {
    int value = -1;
    if (read_mark("Image1Stable", &value) != 0) return TQ_FAIL_AT(31, "get_key_vlaue fail\n");
    return value == 0 ? 0 : -1;
}

int check_backup_image(void) {
    int value = -1;
    if (read_mark("Image2Stable", &value) != 0) return TQ_FAIL_AT(50, "get_key_vlaue fail\n");
    return value == 0 ? 0 : -1;
}

int check_backup_uboot(void) {
    int value = -1;
    if (read_mark("Uboot2Stable", &value) != 0) return TQ_FAIL_AT(69, "get_key_vlaue fail\n");
    return value == 0 ? 0 : -1;
}
