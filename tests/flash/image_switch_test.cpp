// image_switch_test.cpp - which image the boot loader starts next, and the serial number, in every
// state of the block. The wait of one second is ended at once by the fault layer, and the flush of
// the file systems left out; both are counted.
#include "tq/image_switch.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <filesystem>
#include <optional>
#include <string>

#include "support/boot_block.h"
#include "support/buffer.h"
#include "support/device.h"
#include "support/faults.h"
#include "support/log_capture.h"
#include "support/printed.h"
#include "tq/redboot.h"

namespace {

using namespace tq_test;  // NOLINT(google-build-using-namespace)
using testing::ElementsAre;
using testing::IsEmpty;
using tq_test::faults::Fail;

const std::string kScript = "fis load -d %{kernel}\nexec\n";
const std::string kBackupKernel = "\"kernel bak\"";
const std::string kBackupRootdev = "\"rootfs bak\"";
const std::string kCantOpen = "Can't open /dev/mtdblock1\n";
const std::string kCrcError = "RedBoot configuration CRC error\n";

// The block's entries that matter here, each left out where it has no value.
struct Boot {
    std::optional<bool> enabled = true;
    std::optional<uint32_t> timeout = 10;
    std::optional<std::string> script = kScript;
    std::optional<std::string> kernel = "kernel";
    std::optional<std::string> rootdev = "rootfs";
    std::optional<std::string> primary_version = "1.2.3";
    std::optional<std::string> backup_version = "1.2.2";

    std::string entries() const {
        std::string entries = int_entry("console_baud_rate", 115200);
        if (enabled) entries += bool_entry("boot_script", *enabled);
        if (script) entries += script_entry("boot_script_data", *script);
        if (timeout)
            entries += enabled_entry(2, "boot_script_timeout", "boot_script", 1, word(*timeout));
        if (primary_version) entries += string_entry("pri_pelkin_ver", *primary_version);
        if (backup_version) entries += string_entry("qak_pelkin_ver", *backup_version);
        if (kernel) entries += string_entry("alias/kernel", *kernel);
        if (rootdev) entries += string_entry("alias/rootdev", *rootdev);
        return entries;
    }
    std::string block() const { return boot_block(entries()); }
};

class ImageSwitch : public DeviceTest {
  protected:
    void put(const Boot& boot) {
        before_ = boot.block();
        put_block(before_);
    }

    // The call, its waits counted and ended at once.
    template <typename Call>
    Outcome counted(Call call) {
        const Fail no_wait("sleep");
        const Fail no_flush("sync");
        faults::reset();
        Outcome result = outcome(call);
        waits_ = faults::count("sleep");
        flushes_ = faults::count("sync");
        writes_ = faults::count("write");
        EXPECT_EQ(faults::seconds_slept(), waits_) << "one second each";
        EXPECT_EQ(no_wait.fired(), waits_ > 0);
        saved_in_order_ = faults::in_order({"write", "sync", "sleep"});
        return result;
    }
    Outcome switch_image() { return counted(sys_image_switch); }

    void expect_saved(const std::string& block) const {
        EXPECT_EQ(read_file(kFlash), flash_with(block));
        EXPECT_EQ(waits_, 1U);
        EXPECT_EQ(flushes_, 1U);
        EXPECT_TRUE(saved_in_order_) << "the block, the flush, the wait";
    }
    void expect_nothing_written() const {
        EXPECT_EQ(block_in_flash(), before_);
        EXPECT_EQ(waits_, 0U);
        EXPECT_EQ(flushes_, 0U);
        EXPECT_EQ(writes_, 0U);
    }
    void expect_switched(const Boot& boot, const Boot& expected) {
        put(boot);
        EXPECT_EQ(switch_image(), (Outcome{0, ""}));
        expect_saved(expected.block());
    }
    void expect_refused(const Boot& boot, const std::string& message) {
        put(boot);
        EXPECT_EQ(switch_image(), (Outcome{1, message}));
        expect_nothing_written();
    }

    LogCapture log_;
    std::string before_;
    unsigned waits_ = 0;
    unsigned flushes_ = 0;
    unsigned writes_ = 0;
    bool saved_in_order_ = false;
};

using ImageCheck = ImageSwitch;
using SerialNumber = ImageSwitch;

Boot on_backup() {
    Boot boot;
    boot.kernel = kBackupKernel;
    boot.rootdev = kBackupRootdev;
    return boot;
}

// sys_image_switch

TEST_F(ImageSwitch, GoesFromPrimaryToBackup) {
    expect_switched(Boot{}, on_backup());
}

TEST_F(ImageSwitch, GoesFromBackupToPrimary) {
    expect_switched(on_backup(), Boot{});
}

TEST_F(ImageSwitch, ReturnsToTheStartByASecondTime) {
    put(Boot{});
    for (int round = 0; round < 2; round++) {
        EXPECT_EQ(switch_image(), (Outcome{0, ""}));
        expect_saved(on_backup().block());
        EXPECT_EQ(switch_image(), (Outcome{0, ""}));
        expect_saved(Boot{}.block());
    }
}

TEST_F(ImageSwitch, WritesTheBlockOnce) {
    put(Boot{});
    switch_image();
    EXPECT_EQ(writes_, 1U);
}

TEST_F(ImageSwitch, TakesAnyOtherNameForTheBackups) {
    for (const char* other : {"", "kernel2", "kerne", "backup", "KERNEL"}) {
        Boot boot = on_backup();
        boot.kernel = other;
        expect_switched(boot, Boot{});
    }
    for (const char* other : {"", "rootfs2", "rootf"}) {
        Boot boot = on_backup();
        boot.rootdev = other;
        expect_switched(boot, Boot{});
    }
}

TEST_F(ImageSwitch, TakesANameThatFillsItsFieldForTheBackups) {
    Boot boot = on_backup();
    boot.kernel = "kernel" + std::string(122, 'x');
    expect_switched(boot, Boot{});
}

TEST_F(ImageSwitch, TurnsEachAliasByItself) {
    Boot kernel_only;
    kernel_only.kernel = kBackupKernel;
    Boot rootdev_only;
    rootdev_only.rootdev = kBackupRootdev;
    expect_switched(kernel_only, rootdev_only);
    expect_switched(rootdev_only, kernel_only);
}

TEST_F(ImageSwitch, EnablesTheScriptWithATimeoutOfFive) {
    Boot boot;
    boot.enabled = false;
    Boot expected = on_backup();
    expected.timeout = 5;
    expect_switched(boot, expected);
}

TEST_F(ImageSwitch, KeepsTheTimeoutOfAnEnabledScript) {
    Boot boot;
    boot.timeout = 77;
    Boot expected = on_backup();
    expected.timeout = 77;
    expect_switched(boot, expected);
}

TEST_F(ImageSwitch, EnablesTheScriptWhereThereIsNoTimeout) {
    Boot boot;
    boot.enabled = false;
    boot.timeout.reset();
    Boot expected = on_backup();
    expected.timeout.reset();
    expect_switched(boot, expected);
}

TEST_F(ImageSwitch, MakesTheScriptTheStandardOne) {
    for (const std::string& script :
         {std::string(), std::string("fis load kernel\nexec\n"), kScript + "\n",
          kScript.substr(0, kScript.size() - 1), "reset" + std::string(100, ' ')}) {
        Boot boot;
        boot.script = script;
        expect_switched(boot, on_backup());
    }
}

TEST_F(ImageSwitch, LeavesTheRestOfALongScriptBehindTheStandardOne) {
    Boot boot;
    boot.script = std::string(512, 's');
    Boot expected = on_backup();
    expected.script = padded(kScript, 128) + std::string(384, 's');
    expect_switched(boot, expected);
}

TEST_F(ImageSwitch, RefusesWithoutABackupImage) {
    Boot boot;
    for (const std::optional<std::string>& version :
         {std::optional<std::string>(), std::optional<std::string>("0.0.0")}) {
        boot.backup_version = version;
        expect_refused(boot, "Backup kernel doesn't exist\n");
    }
}

TEST_F(ImageSwitch, RefusesWithoutAPrimaryImage) {
    Boot boot = on_backup();
    for (const std::optional<std::string>& version :
         {std::optional<std::string>(), std::optional<std::string>("0.0.0")}) {
        boot.primary_version = version;
        expect_refused(boot, "Primary kernel doesn't exist\n");
    }
}

TEST_F(ImageSwitch, RefusesForTheRootDeviceAlone) {
    // Both aliases point to different images, and the root device's other one is missing.
    Boot boot;
    boot.kernel = kBackupKernel;
    boot.backup_version.reset();
    expect_refused(boot, "Backup image doesn't exist\n");
    boot = on_backup();
    boot.kernel = "kernel";
    boot.primary_version = "0.0.0";
    expect_refused(boot, "Primary image doesn't exist\n");
}

TEST_F(ImageSwitch, TakesAnyOtherVersionForAnImage) {
    for (const char* version : {"", "0.0.0.1", "0.0.0 ", "0.0", "1"}) {
        Boot boot;
        boot.backup_version = version;
        Boot expected = on_backup();
        expected.backup_version = version;
        expect_switched(boot, expected);
    }
}

TEST_F(ImageSwitch, WritesNothingOfAnEnabledScriptWhereTheImageIsMissing) {
    Boot boot;
    boot.enabled = false;
    boot.script = "other";
    boot.backup_version.reset();
    expect_refused(boot, "Backup kernel doesn't exist\n");
}

TEST_F(ImageSwitch, AddsMissingAliasesForTheBackupImage) {
    Boot boot;
    boot.kernel.reset();
    boot.rootdev.reset();
    expect_switched(boot, on_backup());
}

TEST_F(ImageSwitch, AddsMissingAliasesForThePrimaryWithoutABackupImage) {
    for (const std::optional<std::string>& version :
         {std::optional<std::string>(), std::optional<std::string>("0.0.0")}) {
        Boot boot;
        boot.backup_version = version;
        const Boot expected = boot;
        boot.kernel.reset();
        boot.rootdev.reset();
        expect_switched(boot, expected);
    }
}

TEST_F(ImageSwitch, AddsOneMissingAlias) {
    Boot boot;
    boot.rootdev.reset();
    expect_switched(boot, on_backup());

    boot = Boot{};
    boot.kernel.reset();
    put(boot);
    EXPECT_EQ(switch_image(), (Outcome{0, ""}));
    boot.rootdev = kBackupRootdev;
    expect_saved(boot_block(boot.entries() + string_entry("alias/kernel", kBackupKernel)));
}

// That an alias was to be added counts as a change, even where there is no room for it.
TEST_F(ImageSwitch, SavesEvenWhereThereIsNoRoomForAnAlias) {
    Boot boot;
    boot.kernel.reset();
    boot.rootdev.reset();
    std::string entries = boot.entries();
    while (entries.size() + 200 < 4080)
        entries += string_entry("filling", "f");
    before_ = boot_block(entries);
    ASSERT_LT(4080 - entries.size(), 145U + 146U);
    put_block(before_);
    EXPECT_EQ(switch_image().result, 0);
    EXPECT_EQ(writes_, 1U);
    while (entries.size() + 140 < 4080)
        entries += string_entry("more", "m");
    before_ = boot_block(entries);
    put_block(before_);
    EXPECT_EQ(switch_image(),
              (Outcome{0, "No space to add 'alias/kernel'\nNo space to add 'alias/rootdev'\n"}));
    expect_saved(before_);
}

TEST_F(ImageSwitch, FailsWithoutABootScript) {
    Boot boot;
    boot.enabled.reset();
    expect_refused(boot, "");
    boot = Boot{};
    boot.script.reset();
    expect_refused(boot, "");
}

TEST_F(ImageSwitch, FailsOnADamagedBlock) {
    put(Boot{});
    before_[100] = static_cast<char>(before_[100] ^ 1);
    put_block(before_);
    EXPECT_EQ(switch_image(), (Outcome{1, kCrcError}));
    expect_nothing_written();
}

TEST_F(ImageSwitch, FailsWithoutTheFlash) {
    const std::string flash = read_file(kFlash);
    std::filesystem::remove(kFlash);
    EXPECT_EQ(switch_image(), (Outcome{1, kCantOpen}));
    EXPECT_EQ(waits_, 0U);
    write_file(kFlash, flash);
}

TEST_F(ImageSwitch, FailsWithoutWaitingWhereTheBlockCannotBeSaved) {
    put(Boot{});
    const Fail fail("write", 1, EIO);
    faults::reset();
    EXPECT_EQ(outcome(sys_image_switch), (Outcome{1, ""}));
    EXPECT_EQ(faults::count("sync") + faults::count("sleep"), 0U);
    EXPECT_EQ(block_in_flash(), before_);
}

TEST_F(ImageSwitch, TakesABootScriptOfAnotherTypeForDisabled) {
    const std::string others = Boot{.enabled = {}}.entries();
    put_block(boot_block(int_entry("boot_script", 1) + others));
    EXPECT_EQ(switch_image(), (Outcome{0,
                                       "Request for config value 'boot_script' - wrong type\n"
                                       "Can't set config value 'boot_script' - wrong type\n"}));
    Boot expected = on_backup();
    expected.enabled.reset();
    expected.timeout = 5;
    expect_saved(boot_block(int_entry("boot_script", 1) + expected.entries()));
}

TEST_F(ImageSwitch, FailsOnAScriptOfAnotherType) {
    Boot boot;
    boot.script.reset();
    before_ = boot_block(boot.entries() + string_entry("boot_script_data", kScript));
    put_block(before_);
    EXPECT_EQ(switch_image(),
              (Outcome{1, "Request for config value 'boot_script_data' - wrong type\n"}));
    expect_nothing_written();
}

TEST_F(ImageSwitch, TakesAVersionOfAnotherTypeForNoImage) {
    Boot boot;
    boot.backup_version.reset();
    before_ = boot_block(boot.entries() + int_entry("qak_pelkin_ver", 1));
    put_block(before_);
    EXPECT_EQ(switch_image(), (Outcome{1,
                                       "Request for config value 'qak_pelkin_ver' - wrong type\n"
                                       "Backup kernel doesn't exist\n"}));
    expect_nothing_written();
}

const std::string kWrongAliases =
    "Request for config value 'alias/kernel' - wrong type\n"
    "Can't set config value 'alias/kernel' - wrong type\n"
    "Request for config value 'alias/rootdev' - wrong type\n"
    "Can't set config value 'alias/rootdev' - wrong type\n";

TEST_F(ImageSwitch, HasNothingToSaveWhereBothAliasesAreOfAnotherType) {
    Boot boot;
    boot.kernel.reset();
    boot.rootdev.reset();
    before_ =
        boot_block(boot.entries() + int_entry("alias/kernel", 1) + int_entry("alias/rootdev", 1));
    put_block(before_);
    EXPECT_EQ(switch_image(), (Outcome{0, kWrongAliases}));
    expect_nothing_written();
}

TEST_F(ImageSwitch, SavesTheOtherChangesWhereBothAliasesAreOfAnotherType) {
    const std::string aliases = int_entry("alias/kernel", 1) + int_entry("alias/rootdev", 1);
    Boot boot;
    boot.kernel.reset();
    boot.rootdev.reset();
    Boot expected = boot;
    boot.script = "other";
    put_block(boot_block(boot.entries() + aliases));
    EXPECT_EQ(switch_image(), (Outcome{0, kWrongAliases}));
    expect_saved(boot_block(expected.entries() + aliases));

    boot = expected;
    boot.enabled = false;
    expected.timeout = 5;
    put_block(boot_block(boot.entries() + aliases));
    EXPECT_EQ(switch_image(), (Outcome{0, kWrongAliases}));
    expect_saved(boot_block(expected.entries() + aliases));
}

// Each of the two is a change by itself.
TEST_F(ImageSwitch, SavesTheScriptsEnablingOrItsTimeoutAlone) {
    const std::string aliases = int_entry("alias/kernel", 1) + int_entry("alias/rootdev", 1);
    Boot boot;
    boot.kernel.reset();
    boot.rootdev.reset();
    boot.timeout.reset();
    boot.enabled = false;
    Boot expected = boot;
    expected.enabled = true;
    put_block(boot_block(boot.entries() + aliases));
    EXPECT_EQ(switch_image(), (Outcome{0, kWrongAliases}));
    expect_saved(boot_block(expected.entries() + aliases));

    const std::string script_of_another_type = int_entry("boot_script", 1) + aliases;
    boot.enabled.reset();
    boot.timeout = 10;
    expected = boot;
    expected.timeout = 5;
    put_block(boot_block(boot.entries() + script_of_another_type));
    EXPECT_EQ(switch_image().result, 0);
    expect_saved(boot_block(expected.entries() + script_of_another_type));
}

TEST_F(ImageSwitch, HasNothingToSaveWhereTheScriptIsOfAnotherTypeAndHasNoTimeout) {
    Boot boot;
    boot.kernel.reset();
    boot.rootdev.reset();
    boot.enabled.reset();
    boot.timeout.reset();
    before_ = boot_block(boot.entries() + int_entry("boot_script", 1) +
                         int_entry("alias/kernel", 1) + int_entry("alias/rootdev", 1));
    put_block(before_);
    EXPECT_EQ(switch_image().result, 0);
    expect_nothing_written();
}

TEST_F(ImageSwitch, SavesATurnedRootDeviceWhereTheKernelIsOfAnotherType) {
    Boot boot;
    boot.kernel.reset();
    Boot expected = on_backup();
    expected.kernel.reset();
    put_block(boot_block(boot.entries() + int_entry("alias/kernel", 1)));
    EXPECT_EQ(switch_image().result, 0);
    expect_saved(boot_block(expected.entries() + int_entry("alias/kernel", 1)));
}

TEST_F(ImageSwitch, SavesATurnedKernelWhereTheRootDeviceIsOfAnotherType) {
    Boot boot;
    boot.rootdev.reset();
    Boot expected = on_backup();
    expected.rootdev.reset();
    put_block(boot_block(boot.entries() + int_entry("alias/rootdev", 1)));
    EXPECT_EQ(switch_image().result, 0);
    expect_saved(boot_block(expected.entries() + int_entry("alias/rootdev", 1)));
}

// sys_image_check

TEST_F(ImageCheck, TellsWhichImageIsNext) {
    put(Boot{});
    EXPECT_EQ(outcome(sys_image_check), (Outcome{0, ""}));
    put(on_backup());
    EXPECT_EQ(outcome(sys_image_check), (Outcome{1, ""}));
    Boot boot;
    boot.kernel = "kernel2";
    put(boot);
    EXPECT_EQ(outcome(sys_image_check), (Outcome{1, ""}));
}

TEST_F(ImageCheck, LooksAtTheKernelOnly) {
    Boot boot;
    boot.rootdev = kBackupRootdev;
    put(boot);
    EXPECT_EQ(outcome(sys_image_check), (Outcome{0, ""}));
    boot.rootdev.reset();
    boot.kernel = kBackupKernel;
    put(boot);
    EXPECT_EQ(outcome(sys_image_check), (Outcome{1, ""}));
}

TEST_F(ImageCheck, DoesNotAskWhetherTheScriptIsEnabled) {
    for (const std::optional<bool>& enabled : {std::optional<bool>(false), std::optional<bool>()}) {
        Boot boot = on_backup();
        boot.enabled = enabled;
        put(boot);
        EXPECT_EQ(outcome(sys_image_check), (Outcome{1, ""}));
    }
}

TEST_F(ImageCheck, TakesAnotherScriptForThePrimary) {
    Boot boot = on_backup();
    boot.script = "fis load kernel\n";
    put(boot);
    EXPECT_EQ(outcome(sys_image_check), (Outcome{0, ""}));
    boot.kernel.reset();
    put(boot);
    EXPECT_EQ(outcome(sys_image_check), (Outcome{0, ""}));
}

TEST_F(ImageCheck, FailsWithoutScriptOrKernelAlias) {
    Boot boot;
    boot.script.reset();
    put(boot);
    EXPECT_EQ(outcome(sys_image_check), (Outcome{-1, ""}));
    boot = Boot{};
    boot.kernel.reset();
    put(boot);
    EXPECT_EQ(outcome(sys_image_check), (Outcome{-1, ""}));
}

TEST_F(ImageCheck, FailsOnEntriesOfAnotherType) {
    Boot boot;
    boot.kernel.reset();
    put_block(boot_block(boot.entries() + int_entry("alias/kernel", 1)));
    EXPECT_EQ(outcome(sys_image_check),
              (Outcome{-1, "Request for config value 'alias/kernel' - wrong type\n"}));
}

TEST_F(ImageCheck, FailsOnADamagedBlock) {
    put_block(std::string(4096, '\xff'));
    EXPECT_EQ(outcome(sys_image_check), (Outcome{-1, kCrcError}));
}

TEST_F(ImageCheck, ChangesNothing) {
    put(on_backup());
    faults::reset();
    EXPECT_EQ(sys_image_check(), 1);
    EXPECT_EQ(faults::count("write") + faults::count("sync") + faults::count("sleep"), 0U);
    EXPECT_EQ(read_file(kFlash), flash_with(before_));
}

// sys_sn_set, sys_sn_get

Outcome get_serial(Buffer& out, size_t length) {
    return outcome([&] { return sys_sn_get(out.data(), static_cast<uint32_t>(length)); });
}

TEST_F(SerialNumber, IsAddedWhereThereIsNone) {
    put(Boot{});
    EXPECT_EQ(counted([] { return sys_sn_set("SN-0001"); }), (Outcome{0, ""}));
    expect_saved(boot_block(Boot{}.entries() + string_entry("serial_number", "SN-0001")));
    EXPECT_EQ(writes_, 1U);
}

TEST_F(SerialNumber, ReplacesTheOneThatIsThere) {
    const std::string rest = Boot{}.entries();
    put_block(boot_block(string_entry("serial_number", std::string(128, 'o')) + rest));
    EXPECT_EQ(counted([] { return sys_sn_set("new"); }), (Outcome{0, ""}));
    expect_saved(boot_block(string_entry("serial_number", "new") + rest));
}

TEST_F(SerialNumber, KeepsToTheRoomOfAnEntryOfAnotherType) {
    const std::string next = int_entry("next", 2);
    put_block(boot_block(int_entry("serial_number", 1) + next));
    EXPECT_EQ(counted([] { return sys_sn_set("SN-0001"); }), (Outcome{0, ""}));
    expect_saved(boot_block(entry(2, "serial_number", "SN-0") + next));
}

TEST_F(SerialNumber, ReadsBackUpTo128Characters) {
    for (const size_t size : {0U, 1U, 127U, 128U, 300U}) {
        SCOPED_TRACE(size);
        put(Boot{});
        std::string serial(size, 's');
        for (size_t i = 0; i < size; i++)
            serial[i] = static_cast<char>('0' + i % 75);
        EXPECT_EQ(counted([&] { return sys_sn_set(serial.c_str()); }), (Outcome{0, ""}));
        const std::string stored = padded(serial.substr(0, 128), 128);
        expect_saved(boot_block(Boot{}.entries() + string_entry("serial_number", stored)));
        Buffer out(129);
        EXPECT_EQ(get_serial(out, 129), (Outcome{0, ""}));
        EXPECT_EQ(out.all(), stored + '\0');
        EXPECT_TRUE(out.guard_holds());
    }
}

TEST_F(SerialNumber, IsCopiedForEveryLength) {
    // The entry behind the value must not show.
    const std::string serial(128, 's');
    put_block(boot_block(string_entry("serial_number", serial) + string_entry("next", "next")));
    for (int length = 1; length <= 200; length++) {
        Buffer out(length);
        const auto size = static_cast<size_t>(length);
        EXPECT_EQ(get_serial(out, size), (Outcome{0, ""})) << length;
        EXPECT_EQ(out.all(), padded(serial.substr(0, size), size));
        EXPECT_TRUE(out.guard_holds());
    }
}

TEST_F(SerialNumber, IsCopiedWithTheZerosBehindIt) {
    put_block(boot_block(string_entry("serial_number", "SN")));
    for (int length = 1; length <= 200; length++) {
        Buffer out(length);
        EXPECT_EQ(get_serial(out, static_cast<size_t>(length)), (Outcome{0, ""}));
        EXPECT_EQ(out.all(), padded("SN", static_cast<size_t>(length)));
        EXPECT_TRUE(out.guard_holds());
    }
}

TEST_F(SerialNumber, IsMissing) {
    put(Boot{});
    Buffer out(16);
    EXPECT_EQ(get_serial(out, 16), (Outcome{1, ""}));
    EXPECT_EQ(out.text(), "");
    put_block(boot_block(int_entry("serial_number", 1)));
    EXPECT_EQ(get_serial(out, 16),
              (Outcome{1, "Request for config value 'serial_number' - wrong type\n"}));
}

TEST_F(SerialNumber, NeedsABlockThatLoads) {
    put_block(std::string(4096, '\xff'));
    Buffer out(16);
    EXPECT_EQ(get_serial(out, 16), (Outcome{-1, kCrcError}));
    EXPECT_EQ(out.text(), "");
    EXPECT_EQ(counted([] { return sys_sn_set("SN"); }), (Outcome{-1, kCrcError}));
    EXPECT_EQ(waits_ + flushes_ + writes_, 0U);
}

TEST_F(SerialNumber, NeedsRoom) {
    before_ = boot_block(string_entry("a", "") + std::string(3950, '\x01'));
    put_block(before_);
    EXPECT_EQ(counted([] { return sys_sn_set("SN"); }),
              (Outcome{1, "No space to add 'serial_number'\n"}));
    expect_nothing_written();
}

TEST_F(SerialNumber, FailsWithoutWaitingWhereItCannotBeSaved) {
    put(Boot{});
    const Fail fail("write", 1, EIO);
    faults::reset();
    EXPECT_EQ(outcome([] { return sys_sn_set("SN"); }), (Outcome{1, ""}));
    EXPECT_EQ(faults::count("sync") + faults::count("sleep"), 0U);
    EXPECT_EQ(block_in_flash(), before_);
}

TEST_F(SerialNumber, RejectsBadArguments) {
    put_block(boot_block(string_entry("serial_number", "SN")));
    Buffer out(16);
    faults::reset();
    EXPECT_EQ(sys_sn_set(nullptr), -1);
    EXPECT_THAT(log_.take(), ElementsAre(Line(LOG_ERR, "sys_sn_set", "invalid parameters\n")));
    EXPECT_EQ(sys_sn_get(nullptr, 16), -1);
    EXPECT_THAT(log_.take(), ElementsAre(Line(LOG_ERR, "sys_sn_get", "invalid parameters\n")));
    for (const uint32_t length : {0U, 0x80000000U, 0xFFFFFFFFU}) {
        EXPECT_EQ(sys_sn_get(out.data(), length), -1);
        EXPECT_THAT(log_.take(), ElementsAre(Line(LOG_ERR, "sys_sn_get", "invalid parameters\n")));
    }
    EXPECT_TRUE(out.untouched());
    EXPECT_EQ(faults::count("open"), 0U);
}

TEST_F(SerialNumber, LogsNothing) {
    put(Boot{});
    Buffer out(16);
    counted([] { return sys_sn_set("SN"); });
    get_serial(out, 16);
    switch_image();
    EXPECT_EQ(sys_image_check(), 1);
    EXPECT_THAT(log_.take(), IsEmpty());
}

}  // namespace
