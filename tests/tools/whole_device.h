// whole_device.h - an access point that lacks nothing: images, boot block, partitions and a file
// for reboots.
#pragma once

#include <sys/stat.h>

#include <filesystem>
#include <optional>
#include <string>

#include "support/boot_block.h"
#include "support/device.h"

namespace tq_test {

// The command with a /proc that is not its own, where a leak detector finds nothing.
inline const std::string kWithoutLeakDetector = "ASAN_OPTIONS=detect_leaks=0 ";

inline std::string sound_block() {
    return boot_block(
        bool_entry("boot_script", true) +
        script_entry("boot_script_data", "fis load -d %{kernel}\nexec\n") +
        enabled_entry(2, "boot_script_timeout", "boot_script", 1, word(10)) +
        string_entry("pri_pelkin_ver", "1.2.3") + string_entry("qak_pelkin_ver", "1.2.2") +
        string_entry("alias/kernel", "kernel") + string_entry("alias/rootdev", "rootfs") +
        string_entry("serial_number", "A1B2C3"));
}

// The images, their marks and the boot block.
class WholeFlash {
  public:
    WholeFlash() : flash_(read_file(kFlash)) {
        const std::string board = read_file("/etc/board.conf");
        write_file("/etc/board.conf", board.substr(0, board.find("[partitions]")) +
                                          "[partitions]\n"
                                          "primary_image = /tmp/primary\n"
                                          "backup_image = /tmp/backup\n"
                                          "backup_boot_loader = /tmp/boot\n"
                                          "reboot_cause = /tmp/reboot_cause\n");
        for (const char* name : {"/tmp/primary", "/tmp/backup", "/tmp/boot"})
            write_file(name, std::string(276, 'h') + padded("1.2.3", 24) + std::string(300, 't'));
        mark("Image1Stable=0\nImage2Stable=0\nUboot2Stable=0\n");
        put_block(sound_block());
    }
    ~WholeFlash() {
        write_file(kFlash, flash_);
        std::filesystem::remove(kPrinter);
    }
    WholeFlash(const WholeFlash&) = delete;
    WholeFlash& operator=(const WholeFlash&) = delete;

    static void mark(const std::string& lines) {
        write_file(kPrinter, "#!/bin/sh\ncat <<END\n" + lines + "END\n");
        chmod(kPrinter.c_str(), 0755);
    }

  private:
    static inline const std::string kPrinter = "/usr/sbin/fw_printenv";

    std::string flash_;
};

// Flash, the kernel's table of partitions and /overlay.
class WholeDevice {
  public:
    WholeDevice() {
        mkdir("/overlay", 0755);
        overlay_.emplace("tmpfs", "/overlay", "tmpfs", 0, "size=8m");
        write_file("/run/mtab", "overlay / overlay rw 0 0\ntmpfs /overlay tmpfs rw 0 0\n");
        run_command("ln -sf /run/mtab /etc/mtab");
    }
    ~WholeDevice() { run_command("ln -sf /proc/self/mounts /etc/mtab"); }
    WholeDevice(const WholeDevice&) = delete;
    WholeDevice& operator=(const WholeDevice&) = delete;

  private:
    WholeFlash flash_;
    ScopedProc proc_{{{"mtd",
                       "dev:    size   erasesize  name\n"
                       "mtd0: 00040000 00010000 \"RedBoot\"\n"}}};
    std::optional<ScopedMount> overlay_;
};

}  // namespace tq_test
