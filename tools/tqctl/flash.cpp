// flash.cpp - tqctl flash: the flash partitions, and the versions of the images in them.
#include <tq/mtd.h>

#include <algorithm>
#include <cinttypes>
#include <cstdio>
#include <cstring>
#include <utility>

#include "boot_block.h"
#include "families.h"
#include "file.h"
#include "image_version.h"

namespace tqctl {

namespace {

constexpr char kTable[] = "/proc/mtd";

// list

struct Partition {
    int number;
    uint64_t size;
    uint32_t erase_size;
    char name[256];
};

// A line of the kernel's table: number, size, erase size and name.
bool parse(const char* line, Partition& partition) {
    int name = 0;
    const int got = sscanf(line, "mtd%d: %" SCNx64 " %" SCNx32 " \"%n", &partition.number,
                           &partition.size, &partition.erase_size, &name);
    const char* end = strrchr(line, '"');
    if (got != 3 || name == 0 || end < line + name) return false;
    snprintf(partition.name, sizeof(partition.name), "%.*s", static_cast<int>(end - line) - name,
             line + name);
    return true;
}

Json describe(const Partition& partition) {
    Json object(json_object_new_object());
    const bool whole =
        json_add(object.get(), "number", json_number(partition.number)) &&
        json_add(object.get(), "name", json_text(partition.name)) &&
        json_add(object.get(), "size", json_number(static_cast<int64_t>(partition.size))) &&
        json_add(object.get(), "erase_size", json_number(partition.erase_size));
    return whole ? std::move(object) : nullptr;
}

void print(const Partition& partition) {
    printf("mtd%d 0x%08" PRIx64 " 0x%08" PRIx32 " %s\n", partition.number, partition.size,
           partition.erase_size, OneLine(partition.name).c_str());
}

ExitCode list_table(Context& context, FILE* table) {
    ExitCode code = ExitCode::kDone;
    Rows rows(context.output);
    char line[512];
    for (int number = 1; fgets(line, sizeof(line), table); number++) {
        if (strncmp(line, "dev:", 4) == 0) continue;
        Partition partition{};
        if (!parse(line, partition)) {
            code = context.fail(ExitCode::kDamaged, "%s: line %d is no partition", kTable, number);
        } else {
            rows.add(partition, describe, print);
        }
    }
    return code;
}

ExitCode list(Context& context, Arguments) {
    const File table(fopen(kTable, "re"));
    if (!table) return context.fail_by_errno(kTable);
    return list_table(context, table.get());
}

// version

struct Image {
    const char* name;
    int (*check)();
    int (*read)(char* out);
};

// Filled with it, a block is no failure once it is read: all of it would be a version.
constexpr char kUnread = ' ';

constexpr Image kImages[] = {
    {"primary", check_primary_image, get_primary_info},
    {"backup", check_backup_image, get_backup_info},
    {"boot-loader", check_backup_uboot, get_backup_boot_info},
};

const Image* find_image(const char* name) {
    for (const Image& image : kImages) {
        if (strcmp(image.name, name) == 0) return &image;
    }
    return nullptr;
}

ExitCode explain(const Context& context, const Image& image, const char* block) {
    if (image.check() != 0) {
        return context.fail(ExitCode::kRefused, "%s: not marked as usable", image.name);
    }
    const bool was_read =
        std::any_of(block, block + TQ_IMAGE_BLOCK_SIZE, [](char byte) { return byte != kUnread; });
    if (!was_read) {
        return context.fail(ExitCode::kRefused, "%s: its partition cannot be read", image.name);
    }
    return context.fail(ExitCode::kDamaged, "%s: bytes 276 to 299 of its partition are no version",
                        image.name);
}

ExitCode read_version(const Context& context, const Image& image, ImageVersion& version) {
    char block[TQ_IMAGE_BLOCK_SIZE];
    memset(block, kUnread, sizeof(block));
    if (image.read(block) != 0) return explain(context, image, block);
    const char* field = block + TQ_IMAGE_VERSION_OFFSET;
    const OneLine line({field, strnlen(field, TQ_IMAGE_VERSION_SIZE)});
    snprintf(version.text, sizeof(version.text), "%.*s", int{sizeof(version.text)} - 1,
             line.c_str());
    return ExitCode::kDone;
}

ExitCode print_version(Context& context, const Image& image, bool is_only) {
    ImageVersion version;
    const ExitCode code = read_version(context, image, version);
    if (code != ExitCode::kDone) return code;
    context.output.entry(is_only, image.name, version.text);
    return ExitCode::kDone;
}

ExitCode print_versions(Context& context) {
    ExitCode first_failure = ExitCode::kDone;
    for (const Image& image : kImages) {
        const ExitCode code = print_version(context, image, false);
        if (first_failure == ExitCode::kDone) first_failure = code;
    }
    return first_failure;
}

ExitCode version(Context& context, Arguments arguments) {
    if (arguments.empty()) return print_versions(context);
    if (const Image* image = find_image(arguments[0])) return print_version(context, *image, true);
    return context.misuse("'%s' is neither primary nor backup nor boot-loader", arguments[0]);
}

constexpr Command kCommands[] = {
    {"list", "", 0, 0, "prints the flash partitions",
     "One line each: number, size, erase size and name, as the kernel lists them in\n"
     "/proc/mtd. JSON is an array with an object for each partition.",
     "tqctl flash list", list},
    {"version", "[primary|backup|boot-loader]", 0, 1, "prints versions of the images in flash",
     "One prints its version. All of them print one line each, as NAME=VERSION;\n"
     "those that have none are reported, and the exit code is that of the first of\n"
     "them.",
     "tqctl flash version primary", version},
};
static_assert(is_complete(kCommands));

}  // namespace

ExitCode read_image_version(const Context& context, const char* image, ImageVersion& version) {
    return read_version(context, *find_image(image), version);
}

constinit const Family kFlash = {"flash", "partitions and image versions", "", kCommands};

}  // namespace tqctl
