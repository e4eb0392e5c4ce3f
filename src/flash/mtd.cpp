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
using tq::LogSite;
using tq::Text;
using tq::UniqueFd;

constexpr size_t kPartitionNameSize = 64;
constexpr size_t kQuotedNameSize = 4096;

// Field tools match on the line numbers of these log lines.
int fail(LogSite site, const char* text) {
    return TQ_FAIL_AS(site, "%s", text);
}

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

int open_node(const char* kind, const char* separator, int number) {
    Text<64> path;
    path.append("/dev/mtd%s%s%d", kind, separator, number);
    return open_for_reading(path.c_str());
}

int open_device(int number, uint8_t block) {
    const char* kind = block ? "block" : "";
    const int fd = open_node(kind, "/", number);
    return fd >= 0 ? fd : open_node(kind, "", number);
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
    const UniqueFd partition(mtd_open(name, 1));
    if (!partition) return fail({__func__, 89}, "open fail\n");
    if (lseek(partition.get(), 0, SEEK_SET) < 0) return fail({__func__, 94}, "lseek fail\n");
    const ssize_t got = tq::read_some(partition.get(), out, TQ_IMAGE_BLOCK_SIZE);
    if (got <= 0) return fail({__func__, 100}, "read fail\n");
    memset(out + got, 0, TQ_IMAGE_BLOCK_SIZE - static_cast<size_t>(got));
    if (!is_version(out + TQ_IMAGE_VERSION_OFFSET)) {
        return fail({__func__, 108}, "not ascii string, fail\n");
    }
    return 0;
}

int check_mark(const char* key, LogSite site) {
    int value = -1;
    if (get_key_vlaue("fw_printenv", key, &value) != 0) return fail(site, "get_key_vlaue fail\n");
    return value == 0 ? 0 : -1;
}

// The board's name of a partition; false where it has none.
bool get_partition_name(int selector, char (&name)[kPartitionNameSize]) {
    memset(name, 0, sizeof(name));
    if (tq_get_oem_ap_type_partion_info(selector, name, sizeof(name)) == -1) return false;
    name[sizeof(name) - 1] = '\0';
    return true;
}

// What the information about an image needs: its partition, its check, and for each failure the
// line and the text that are logged in the function's name.
struct ImageInfo {
    const char* function;
    int invalid_line;
    int selector;
    int partition_line;
    const char* partition_failure;
    int (*check)();
    int check_line;
    const char* check_failure;
    int version_line;
};

constexpr ImageInfo kPrimary = {
    .function = "get_primary_info",
    .invalid_line = 338,
    .selector = AP_TYPE_PAT_PRI_IMAGE,
    .partition_line = 344,
    .partition_failure = "tq_get_pri_image_partition fail\n",
    .check = check_primary_image,
    .check_line = 349,
    .check_failure = "check_primary_image fail\n",
    .version_line = 361,
};

constexpr ImageInfo kBackup = {
    .function = "get_backup_info",
    .invalid_line = 375,
    .selector = AP_TYPE_PAT_BK_IMAGE,
    .partition_line = 381,
    .partition_failure = "tq_get_bk_image_partition fail\n",
    .check = check_backup_image,
    .check_line = 386,
    .check_failure = "check_backup_image fail\n",
    .version_line = 398,
};

constexpr ImageInfo kBackupBoot = {
    .function = "get_backup_boot_info",
    .invalid_line = 430,
    .selector = AP_TYPE_PAT_BK_UBOOT_IMAGE,
    .partition_line = 436,
    .partition_failure = "get AP_TYPE_PAT_BK_UBOOT_IMAGE fail\n",
    .check = check_backup_uboot,
    .check_line = 441,
    .check_failure = "check_backup_uboot fail\n",
    .version_line = 467,
};

int get_info(const ImageInfo& image, char* out) {
    const char* function = image.function;
    if (!out) return fail({function, image.invalid_line}, "invalid parameters\n");
    char name[kPartitionNameSize];
    if (!get_partition_name(image.selector, name)) {
        return fail({function, image.partition_line}, image.partition_failure);
    }
    if (image.check() == -1) return fail({function, image.check_line}, image.check_failure);
    if (get_version_info_from_offset(name, out) == -1) {
        return fail({function, image.version_line}, "get_version_info fail\n");
    }
    return 0;
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
    return get_info(kPrimary, out);
}

int get_backup_info(char* out) {
    return get_info(kBackup, out);
}

int get_backup_boot_info(char* out) {
    return get_info(kBackupBoot, out);
}

int check_primary_image(void) {
    return check_mark("Image1Stable", {__func__, 31});
}

int check_backup_image(void) {
    return check_mark("Image2Stable", {__func__, 50});
}

int check_backup_uboot(void) {
    return check_mark("Uboot2Stable", {__func__, 69});
}
