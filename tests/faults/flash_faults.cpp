// flash_faults.cpp - flash partitions and images, the boot loader's block, the image switch.
#include <sys/stat.h>
#include <tq/image_switch.h>
#include <tq/mtd.h>
#include <tq/redboot.h>
#include <unistd.h>

#include <cstring>
#include <filesystem>
#include <optional>

#include "faults/sweep.h"
#include "support/boot_block.h"
#include "support/device.h"
#include "support/faults.h"

namespace tq_test::sweep {
namespace {

// ---- partitions ----

std::optional<ScopedProc> proc;
char image[TQ_IMAGE_BLOCK_SIZE];

void have_partitions() {
    std::string block(TQ_IMAGE_BLOCK_SIZE, '\0');
    block.replace(TQ_IMAGE_VERSION_OFFSET, 5, "1.2.3");
    write_file("/dev/mtdblock2", block);
    write_file("/usr/sbin/fw_printenv",
               "#!/bin/sh\nprintf 'Image1Stable=0\\nImage2Stable=0\\nUboot2Stable=0\\n'\n");
    chmod("/usr/sbin/fw_printenv", 0755);
    memset(image, 0, sizeof(image));
    proc.emplace(std::map<std::string, std::string>{
        {"mtd",
         "dev:    size   erasesize  name\n"
         "mtd2: 00180000 00010000 \"firmware\" \"firmware2\" \"u-boot2\"\n"}});
}

void forget_partitions(intptr_t /*result*/) {
    proc.reset();
    std::filesystem::remove("/dev/mtdblock2");
    std::filesystem::remove("/usr/sbin/fw_printenv");
}

// A node below a directory is looked for first, and may as well not be there.
Row on_partition(std::string function, std::function<intptr_t()> call, const char* absent) {
    Row row = {.function = std::move(function),
               .prepare = have_partitions,
               .call = std::move(call),
               .undo = forget_partitions};
    if (absent) row.but.push_back({absent, row.gives});
    return row;
}

Row opening(std::string function, std::function<intptr_t()> call) {
    Row row = on_partition(std::move(function), std::move(call), nullptr);
    row.outcome = [](intptr_t result) { return result < 0 ? "-1" : "open"; };
    row.undo = [](intptr_t result) {
        if (result >= 0) close(static_cast<int>(result));
        forget_partitions(result);
    };
    row.gives = "open";
    row.but = {{"open#2", "open"}};
    return row;
}

std::string version_after(intptr_t result) {
    return with_text(result, image + TQ_IMAGE_VERSION_OFFSET);
}

Row information(std::string function, std::function<intptr_t()> call) {
    Row row = on_partition(std::move(function), std::move(call), nullptr);
    row.outcome = version_after;
    row.gives = "0 1.2.3";
    row.fails = "-1 ";
    row.but = {{"open#3", "0 1.2.3"}};
    return row;
}

void add_partitions(std::vector<Row>& rows) {
    rows.push_back(opening("mtd_open_match", [] { return mtd_open_match("firmware", 0, 1); }));
    rows.push_back(opening("mtd_open", [] { return mtd_open("firmware", 1); }));
    rows.push_back(pure("get_active_image_type", [] { return get_active_image_type(); }));
    rows.push_back(information("get_primary_info", [] { return get_primary_info(image); }));
    rows.push_back(information("get_backup_info", [] { return get_backup_info(image); }));
    rows.push_back(information("get_backup_boot_info", [] { return get_backup_boot_info(image); }));
    rows.push_back(on_partition(
        "check_primary_image", [] { return check_primary_image(); }, nullptr));
    rows.push_back(on_partition(
        "check_backup_image", [] { return check_backup_image(); }, nullptr));
    rows.push_back(on_partition(
        "check_backup_uboot", [] { return check_backup_uboot(); }, nullptr));
}

// ---- the boot loader's block ----

std::optional<faults::Hurry> hurry;
char text[32];

void put_boot_block() {
    memset(text, 0, sizeof(text));
    put_block(boot_block(
        bool_entry("boot_script", true) + int_entry("boot_script_timeout", 5) +
        script_entry("boot_script_data", redboot_script_default) +
        string_entry("alias/kernel", "kernel") + string_entry("alias/rootdev", "rootfs") +
        string_entry("pri_pelkin_ver", "1.2.3") + string_entry("qak_pelkin_ver", "1.2.2") +
        string_entry("serial_number", "old")));
}

void load_block() {
    put_boot_block();
    ASSERT_EQ(redboot_load_config(), 1);
}

void put_boot_block_in_a_hurry() {
    hurry.emplace();
    put_boot_block();
}

Row on_block(std::string function, std::function<void()> prepare, std::function<intptr_t()> call,
             std::string gives, std::string fails) {
    return {.function = std::move(function),
            .prepare = std::move(prepare),
            .call = std::move(call),
            .undo = [](intptr_t /*result*/) { hurry.reset(); },
            .gives = std::move(gives),
            .fails = std::move(fails)};
}

void add_block(std::vector<Row>& rows) {
    static uint32_t seconds = 7;
    static const redboot_config_option option = {"new", "", nullptr, 1, REDBOOT_CONFIG_INT, 7};
    rows.push_back(on_block(
        "redboot_load_config", put_boot_block, [] { return redboot_load_config(); }, "1", "0"));
    rows.push_back(on_block(
        "redboot_write_config", load_block, [] { return redboot_write_config(); }, "1", "0"));
    rows.push_back(on_block(
        "redboot_get_config", load_block,
        [] { return redboot_get_config("boot_script_timeout", &seconds, REDBOOT_CONFIG_INT); }, "1",
        "1"));
    rows.push_back(on_block(
        "redboot_set_config", load_block,
        [] { return redboot_set_config("boot_script_timeout", &seconds, REDBOOT_CONFIG_INT); }, "1",
        "1"));
    rows.push_back(on_block(
        "redboot_add_config", load_block, [] { return redboot_add_config(&option); }, "1", "1"));
    rows.push_back(on_block(
        "redboot_show_config", load_block, [] { return redboot_show_config(); }, "1", "1"));
}

void add_switch(std::vector<Row>& rows) {
    // Half a block is one that the next load refuses.
    rows.push_back(on_block(
        "sys_image_switch", put_boot_block_in_a_hurry, [] { return sys_image_switch(); }, "0",
        "1"));
    rows.back().but = {{"sync", "0"}, {"sleep", "0"}, {"write:cut", "1", "1"}};
    rows.push_back(on_block(
        "sys_image_check", put_boot_block, [] { return sys_image_check(); }, "0", "-1"));
    rows.push_back(on_block(
        "sys_sn_set", put_boot_block_in_a_hurry, [] { return sys_sn_set("new"); }, "0", "-1"));
    rows.back().but = {
        {"open#2", "1"}, {"write", "1"}, {"write:cut", "1", "-1"}, {"sync", "0"}, {"sleep", "0"}};
    rows.push_back(on_block(
        "sys_sn_get", put_boot_block, [] { return sys_sn_get(text, sizeof(text)); }, "0 old",
        "-1 "));
    rows.back().outcome = [](intptr_t result) { return with_text(result, text); };
}

}  // namespace

std::vector<Row> flash_rows() {
    std::vector<Row> rows;
    add_partitions(rows);
    add_block(rows);
    add_switch(rows);
    return rows;
}

}  // namespace tq_test::sweep
