#include "tq/mtd.h"

#include <tq/oem.h>

#include <cstdio>
#include <cstring>

#include "foundation/file.h"
#include "foundation/log.h"
#include "foundation/number_reader.h"
#include "tq/command.h"

namespace {

using tq::LineReader;
using tq::log_where;
using tq::NumberReader;
using tq::open_for_reading;
using tq::UniqueFd;

constexpr size_t kPartitionNameSize = 64;
constexpr size_t kQuotedNameSize = 4096;

// Looks through the lines of /proc/mtd that begin with "mtd" and a partition's number.
bool find_partition(int table, const char* name, int index, int& number) {
    // One that is cut is as long as a whole piece of a line, and so in none behind its number.
    char quoted[kQuotedNameSize];
    snprintf(quoted, sizeof(quoted), "\"%s\"", name);
    LineReader lines(table, LineReader::kLongPiece);
    while (const char* line = lines.next()) {
        if (strncmp(line, "mtd", 3) != 0 || !NumberReader(line + 3).number(number)) continue;
        if (strstr(line, quoted) && index-- == 0) return true;
    }
    return false;
}

int open_node(const char* kind, const char* separator, int number) {
    char path[64];
    snprintf(path, sizeof(path), "/dev/mtd%s%s%d", kind, separator, number);
    return open_for_reading(path);
}

int open_device(int number, uint8_t block) {
    const char* kind = block ? "block" : "";
    const int fd = open_node(kind, "/", number);
    return fd >= 0 ? fd : open_node(kind, "", number);
}

// A text of ASCII characters that is not empty and ends at a NUL or with its field.
bool is_version(const char* field) {
    size_t length = 0;
    for (; length < TQ_IMAGE_VERSION_SIZE && field[length] != '\0'; length++) {
        if (field[length] & 0x80) return false;
    }
    return length > 0;
}

// Field tools match on the line numbers in the log, here and below.
int get_version_info_from_offset(const char* name, char* out) {
    const UniqueFd partition(mtd_open(name, 1));
    if (!partition) return TQ_LOG_AT(89, LOG_ERR, "open fail\n");
    if (lseek(partition.get(), 0, SEEK_SET) < 0) return TQ_LOG_AT(94, LOG_ERR, "lseek fail\n");
    const ssize_t got = tq::read_some(partition.get(), out, TQ_IMAGE_BLOCK_SIZE);
    if (got <= 0) return TQ_LOG_AT(100, LOG_ERR, "read fail\n");
    memset(out + got, 0, TQ_IMAGE_BLOCK_SIZE - static_cast<size_t>(got));
    if (is_version(out + TQ_IMAGE_VERSION_OFFSET)) return 0;
    return TQ_LOG_AT(108, LOG_ERR, "not ascii string, fail\n");
}

// An image: its partition and the mark that says whether it can be used, and for each failure the
// name and the line that are logged.
struct Image {
    uint8_t selector;
    uint8_t mark_line;
    uint16_t invalid_line;
    uint16_t partition_line;
    uint16_t check_line;
    uint16_t version_line;
    char mark[sizeof("Image1Stable")];
    char check[sizeof("check_primary_image")];
    char info[sizeof("get_backup_boot_info")];
    char partition[sizeof("get AP_TYPE_PAT_BK_UBOOT_IMAGE")];
};

constexpr Image kPrimary = {
    .selector = AP_TYPE_PAT_PRI_IMAGE,
    .mark_line = 31,
    .invalid_line = 338,
    .partition_line = 344,
    .check_line = 349,
    .version_line = 361,
    .mark = "Image1Stable",
    .check = "check_primary_image",
    .info = "get_primary_info",
    .partition = "tq_get_pri_image_partition",
};

constexpr Image kBackup = {
    .selector = AP_TYPE_PAT_BK_IMAGE,
    .mark_line = 50,
    .invalid_line = 375,
    .partition_line = 381,
    .check_line = 386,
    .version_line = 398,
    .mark = "Image2Stable",
    .check = "check_backup_image",
    .info = "get_backup_info",
    .partition = "tq_get_bk_image_partition",
};

constexpr Image kBackupBoot = {
    .selector = AP_TYPE_PAT_BK_UBOOT_IMAGE,
    .mark_line = 69,
    .invalid_line = 430,
    .partition_line = 436,
    .check_line = 441,
    .version_line = 467,
    .mark = "Uboot2Stable",
    .check = "check_backup_uboot",
    .info = "get_backup_boot_info",
    .partition = "get AP_TYPE_PAT_BK_UBOOT_IMAGE",
};

int check_mark(const Image& image) {
    int value = -1;
    if (get_key_vlaue("fw_printenv", image.mark, &value) == 0) return value == 0 ? 0 : -1;
    return tq::log_line(log_where(image.mark_line, LOG_ERR), image.check, "get_key_vlaue fail\n");
}

// In the log:
//   "tq_get_pri_image_partition fail\n", "check_primary_image fail\n",
//   "tq_get_bk_image_partition fail\n", "check_backup_image fail\n",
//   "get AP_TYPE_PAT_BK_UBOOT_IMAGE fail\n", "check_backup_uboot fail\n",
//   "get_version_info fail\n"
int fail(const Image& image, int line, const char* step) {
    return tq::log_line(log_where(line, LOG_ERR), image.info, "%s fail\n", step);
}

int get_info(const Image& image, char* out) {
    if (!out) {
        return tq::log_line(log_where(image.invalid_line, LOG_ERR), image.info,
                            "invalid parameters\n");
    }
    char name[kPartitionNameSize] = "";
    const int named = tq_get_oem_ap_type_partion_info(image.selector, name, sizeof(name));
    name[sizeof(name) - 1] = '\0';
    if (named == -1) return fail(image, image.partition_line, image.partition);
    if (check_mark(image) == -1) return fail(image, image.check_line, image.check);
    if (get_version_info_from_offset(name, out) == 0) return 0;
    return fail(image, image.version_line, "get_version_info");
}

}  // namespace

int mtd_open_match(const char* name, int index, uint8_t block) {
    if (!name || index < 0) return tq::reject(__func__);
    if (*name == '/') return open_for_reading(name);
    const UniqueFd table(open_for_reading("/proc/mtd"));
    if (!table) return open_for_reading(name);
    int number = 0;
    return find_partition(table.get(), name, index, number) ? open_device(number, block)
                                                            : open_for_reading(name);
}

int mtd_open(const char* name, uint8_t block) {
    if (!name) return tq::reject(__func__);
    return mtd_open_match(name, 0, block);
}

int get_active_image_type(void) {
    TQ_LOG_AT(328, LOG_INFO, "%s image active\n", "primary");
    return 0;
}

int get_primary_info(char* out) {
    return get_info(kPrimary, out);
}

int get_backup_info(char* out) {
    return get_info(kBackup, out);
}

int get_backup_boot_info(char* out) {
    return get_info(kBackupBoot, out);
}

int check_primary_image(void) {
    return check_mark(kPrimary);
}

int check_backup_image(void) {
    return check_mark(kBackup);
}

int check_backup_uboot(void) {
    return check_mark(kBackupBoot);
}
