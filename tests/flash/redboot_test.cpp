// redboot_test.cpp - the boot loader's configuration block: what is read and written, byte for
// byte, what is printed, and that a block with hostile entries is safe.
#include "tq/redboot.h"

#include <fcntl.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sys/mount.h>
#include <sys/resource.h>
#include <sys/stat.h>
#include <unistd.h>

#include <array>
#include <cerrno>
#include <chrono>
#include <csignal>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <future>
#include <random>
#include <string>
#include <thread>
#include <vector>

#include "support/boot_block.h"
#include "support/device.h"
#include "support/faults.h"
#include "support/log_capture.h"
#include "support/printed.h"

namespace {

using namespace tq_test;  // NOLINT(google-build-using-namespace)
using testing::IsEmpty;
using tq_test::faults::Fail;

constexpr size_t kEntriesEnd = 4088;

const std::string kCantOpen = "Can't open /dev/mtdblock1\n";
const std::string kReadError = "Read config error\n";
const std::string kCrcError = "RedBoot configuration CRC error\n";
const std::string kLoadFirst = "Please load redboot configuration first\n";

std::string loaded_block() {
    return {reinterpret_cast<const char*>(redboot_config), sizeof(redboot_config)};
}

Outcome load() {
    return outcome(redboot_load_config);
}

uint32_t number(const char* key, uint32_t type) {
    uint32_t value = 0xDEAD;
    EXPECT_EQ(redboot_get_config(key, &value, type), 1) << key;
    return value;
}

const char* text(const char* key, uint32_t type) {
    const char* value = nullptr;
    EXPECT_EQ(redboot_get_config(key, &value, type), 1) << key;
    return value;
}

size_t offset_of(const char* value) {
    return static_cast<size_t>(reinterpret_cast<const unsigned char*>(value) - redboot_config);
}

uintptr_t pointer(const void* value) {
    return reinterpret_cast<uintptr_t>(value);
}

redboot_config_option option(const char* key, uint32_t type, uintptr_t value) {
    return {key, "a title", nullptr, 1, type, value};
}

Outcome add(const redboot_config_option& option) {
    return outcome([&] { return redboot_add_config(&option); });
}

// What the calls did before anything was loaded, but for a block that was refused.
struct Unloaded {
    unsigned char* config = redboot_config;
    bool is_untouched = false;
    Outcome load{-1, ""}, get{-1, ""}, set{-1, ""}, add{-1, ""}, write{-1, ""}, show{-1, ""};
    unsigned opened = 0;
} unloaded;

class FirstCalls : public testing::Environment {
    void SetUp() override {
        unloaded.config = config;
        std::string damaged = boot_block(int_entry("key", 1));
        damaged[4092] = static_cast<char>(damaged[4092] ^ 1);
        put_block(damaged);
        unloaded.load = load();
        uint32_t value = 2;
        const redboot_config_option key = option("key", REDBOOT_CONFIG_INT, 7);
        faults::reset();
        unloaded.get =
            outcome([&] { return redboot_get_config("key", &value, REDBOOT_CONFIG_INT); });
        unloaded.set =
            outcome([&] { return redboot_set_config("key", &value, REDBOOT_CONFIG_INT); });
        unloaded.add = ::add(key);
        unloaded.write = outcome(redboot_write_config);
        unloaded.show = outcome(redboot_show_config);
        unloaded.opened = faults::count("open");
        unloaded.is_untouched = loaded_block() == damaged;
    }
};
const auto* const kFirstCalls = testing::AddGlobalTestEnvironment(new FirstCalls);

class Redboot : public DeviceTest {
  protected:
    ~Redboot() override { EXPECT_THAT(log_.take(), IsEmpty()) << "nothing goes to the system log"; }

    static void load_block(const std::string& block) {
        put_block(block);
        ASSERT_EQ(load(), (Outcome{1, ""}));
    }
    static void load_entries(const std::string& entries) { load_block(boot_block(entries)); }

  private:
    LogCapture log_;
};

// One entry of each type.
std::string seven_entries() {
    return bool_entry("a_bool", true) + int_entry("an_int", 4000000000U) +
           string_entry("a_string", "some text") + script_entry("a_script", "fis load\nexec\n") +
           entry(5, "an_ip", "\xC0\xA8\x01\x02") +
           entry(6, "an_esa", std::string("\x02\x00\x5e\x0A\xFF\x01\x77\x88", 8)) +
           entry(7, "a_port", padded("eth0", 128));
}

// The objects

TEST(RedbootObjects, HaveTheKeysAndValuesOfTheBootLoader) {
    EXPECT_STREQ(redboot_script_en_key, "boot_script");
    EXPECT_STREQ(redboot_script_data_key, "boot_script_data");
    EXPECT_STREQ(redboot_script_timeout_key, "boot_script_timeout");
    EXPECT_STREQ(redboot_script_default, "fis load -d %{kernel}\nexec\n");
    EXPECT_STREQ(redboot_kernel_alias, "alias/kernel");
    EXPECT_STREQ(redboot_rootdev_alias, "alias/rootdev");
    EXPECT_STREQ(redboot_pri_kernel, "kernel");
    EXPECT_STREQ(redboot_pri_rootdev, "rootfs");
    EXPECT_STREQ(redboot_bak_kernel, "\"kernel bak\"");
    EXPECT_STREQ(redboot_bak_rootdev, "\"rootfs bak\"");
    EXPECT_STREQ(redboot_sn_data_key, "serial_number");
    EXPECT_STREQ(redboot_sn_title, "product serial number");
    EXPECT_EQ(redboot_sn_default[0], '\0');
    EXPECT_EQ(sizeof(redboot_sn_default), 1U);
}

TEST(RedbootObjects, HaveAnOptionWithoutContent) {
    const std::vector<char> zeros(sizeof(CYG_HAL_TABLE_TYPE));
    EXPECT_EQ(memcmp(&CYG_HAL_TABLE_TYPE, zeros.data(), zeros.size()), 0);
}

TEST(RedbootObjects, HaveTheTableOfThePolynomial) {
    for (uint32_t byte = 0; byte < 256; byte++)
        EXPECT_EQ(crc32_table[byte], boot_checksum(std::string(1, static_cast<char>(byte))));
    EXPECT_EQ(crc32_table[1], 0x77073096U);
    EXPECT_EQ(crc32_table[255], 0x2D02EF8DU);
}

// Before anything was loaded

TEST(RedbootUnloaded, HasNoConfig) {
    EXPECT_EQ(unloaded.config, nullptr);
    EXPECT_EQ(unloaded.load, (Outcome{0, kCrcError}));
}

TEST(RedbootUnloaded, FindsAndChangesNothing) {
    EXPECT_EQ(unloaded.get, (Outcome{0, ""}));
    EXPECT_EQ(unloaded.set, (Outcome{0, ""}));
    EXPECT_EQ(unloaded.add, (Outcome{0, ""}));
    EXPECT_TRUE(unloaded.is_untouched);
}

TEST(RedbootUnloaded, WritesAndShowsNothing) {
    EXPECT_EQ(unloaded.write, (Outcome{0, kLoadFirst}));
    EXPECT_EQ(unloaded.show, (Outcome{0, kLoadFirst}));
    EXPECT_EQ(unloaded.opened, 0U);
}

// Load

TEST_F(Redboot, LoadsAValidBlock) {
    const std::string block = boot_block(seven_entries());
    put_block(block);
    EXPECT_EQ(load(), (Outcome{1, ""}));
    EXPECT_EQ(config, redboot_config);
    EXPECT_EQ(loaded_block(), block);
    EXPECT_EQ(read_file(kFlash), flash_with(block));
}

TEST_F(Redboot, LoadsTheEmptyBlock) {
    std::string block = boot_block("");
    EXPECT_EQ(word_of(block.substr(4092)), 0xC293C4F0U);
    load_block(block);
    EXPECT_EQ(loaded_block(), block);
}

TEST_F(Redboot, LoadsABlockWhateverItsLengthWordSays) {
    for (const uint32_t length : {0U, 4095U, 0xFFFFFFFFU}) {
        load_block(with_checksum(boot_block("").replace(0, 4, word(length))));
        EXPECT_EQ(loaded_block().substr(0, 4), word(length));
    }
}

TEST_F(Redboot, RefusesAWrongMagicNumberUnderARightChecksum) {
    for (const size_t offset : {4U, 5U, 6U, 7U, 4088U, 4089U, 4090U, 4091U}) {
        std::string block = boot_block(seven_entries());
        block[offset] = static_cast<char>(block[offset] ^ 1);
        put_block(with_checksum(block));
        EXPECT_EQ(load(), (Outcome{0, kCrcError})) << offset;
        EXPECT_EQ(config, nullptr);
    }
}

TEST_F(Redboot, RefusesABlockWithAnyByteChanged) {
    const std::string block = boot_block(seven_entries());
    for (size_t offset = 0; offset < block.size(); offset += 31) {
        std::string changed = block;
        changed[offset] = static_cast<char>(changed[offset] ^ 0x10);
        put_block(changed);
        EXPECT_EQ(load(), (Outcome{0, kCrcError})) << offset;
    }
}

TEST_F(Redboot, RefusesWhatUsedFlashHolds) {
    write_file(kFlash, flash_with(""));
    EXPECT_EQ(load(), (Outcome{0, kCrcError}));
    put_block(std::string(4096, '\xff'));
    EXPECT_EQ(load(), (Outcome{0, kCrcError}));
}

TEST_F(Redboot, SaysThatTheFlashIsTooShort) {
    const std::string block = boot_block("");
    for (const size_t size : {0U, 1U, 4095U}) {
        write_file(kFlash, block.substr(0, size));
        EXPECT_EQ(load(), (Outcome{0, kReadError})) << size;
        EXPECT_EQ(config, nullptr);
    }
    write_file(kFlash, block);
    EXPECT_EQ(load(), (Outcome{1, ""}));
}

TEST_F(Redboot, SaysThatTheFlashCannotBeOpened) {
    put_block(boot_block(""));
    ASSERT_EQ(load(), (Outcome{1, ""}));
    std::filesystem::remove(kFlash);
    EXPECT_EQ(load(), (Outcome{0, kCantOpen}));
    EXPECT_EQ(config, nullptr);
    std::filesystem::create_directory(kFlash);
    EXPECT_EQ(load(), (Outcome{0, kCantOpen}));
    std::filesystem::remove(kFlash);
    put_block(boot_block(""));
}

TEST_F(Redboot, NeedsFlashThatCanBeWritten) {
    put_block(boot_block(""));
    ASSERT_EQ(access(kFlash.c_str(), R_OK), 0);
    EXPECT_EQ(as_nobody([] { return load() == Outcome{0, kCantOpen} ? 1 : 0; }), 1);
}

TEST_F(Redboot, SaysThatTheFlashCannotBeRead) {
    put_block(boot_block(""));
    const Fail fail("read");
    EXPECT_EQ(load(), (Outcome{0, kReadError}));
    EXPECT_TRUE(fail.fired());
}

TEST_F(Redboot, IsNotKeptFromLoadingByASignal) {
    put_block(boot_block(""));
    const Fail fail("read", 1, EINTR);
    EXPECT_EQ(load(), (Outcome{1, ""}));
    EXPECT_TRUE(fail.fired());
}

TEST_F(Redboot, LoadsWithThreeSystemCallsAndSavesWithThree) {
    put_block(boot_block(seven_entries()));
    faults::reset();
    EXPECT_EQ(redboot_load_config(), 1);
    EXPECT_EQ(faults::count("open"), 1U);
    EXPECT_EQ(faults::count("read"), 1U);
    EXPECT_EQ(faults::count("close"), 1U);
    faults::reset();
    EXPECT_EQ(redboot_write_config(), 1);
    EXPECT_EQ(faults::count("open"), 1U);
    EXPECT_EQ(faults::count("write"), 1U);
    EXPECT_EQ(faults::count("close"), 1U);
    EXPECT_EQ(faults::count("lseek") + faults::count("fsync") + faults::count("read"), 0U);
    EXPECT_EQ(faults::count("sync") + faults::count("sleep"), 0U);
}

TEST_F(Redboot, AfterAFailedLoadWorksOnWhatWasReadButNeitherShowsNorSavesIt) {
    load_entries(int_entry("key", 1));
    std::string damaged = boot_block(int_entry("key", 2));
    damaged[4092] = static_cast<char>(damaged[4092] ^ 1);
    put_block(damaged);
    EXPECT_EQ(load(), (Outcome{0, kCrcError}));
    EXPECT_EQ(loaded_block(), damaged);
    EXPECT_EQ(number("key", REDBOOT_CONFIG_INT), 2U);
    const uint32_t value = 3;
    EXPECT_EQ(redboot_set_config("key", &value, REDBOOT_CONFIG_INT), 1);
    EXPECT_EQ(number("key", REDBOOT_CONFIG_INT), 3U);
    EXPECT_EQ(add(option("key", REDBOOT_CONFIG_INT, 4)), (Outcome{1, ""}));
    EXPECT_EQ(number("key", REDBOOT_CONFIG_INT), 4U);
    EXPECT_EQ(add(option("new", REDBOOT_CONFIG_INT, 5)), (Outcome{1, ""}));
    EXPECT_EQ(number("new", REDBOOT_CONFIG_INT), 5U);
    EXPECT_EQ(outcome(redboot_show_config), (Outcome{0, kLoadFirst}));
    EXPECT_EQ(outcome(redboot_write_config), (Outcome{0, kLoadFirst}));
    EXPECT_EQ(block_in_flash(), damaged);
}

// Save

TEST_F(Redboot, SavesWhatTheNextLoadAccepts) {
    load_entries(seven_entries());
    const uint32_t value = 12;
    ASSERT_EQ(redboot_set_config("an_int", &value, REDBOOT_CONFIG_INT), 1);
    EXPECT_EQ(outcome(redboot_write_config), (Outcome{1, ""}));
    std::string entries = seven_entries();
    entries.replace(entries.find("an_int") + 7, 4, word(12));
    EXPECT_EQ(block_in_flash(), boot_block(entries));
    EXPECT_EQ(read_file(kFlash), flash_with(boot_block(entries)));
    EXPECT_EQ(load(), (Outcome{1, ""}));
    EXPECT_EQ(number("an_int", REDBOOT_CONFIG_INT), 12U);
}

TEST_F(Redboot, CompletesTheBlockThatItSaves) {
    load_block(with_checksum(boot_block(bool_entry("b", true)).replace(0, 4, word(7))));
    memset(&redboot_config[4], 0, 4);
    memset(&redboot_config[4088], 0, 8);
    EXPECT_EQ(redboot_write_config(), 1);
    EXPECT_EQ(block_in_flash(), boot_block(bool_entry("b", true)));
    EXPECT_EQ(loaded_block(), block_in_flash());
}

// The example of docs/boot-block.md.
TEST_F(Redboot, SavesTheDocumentedExample) {
    load_entries("");
    EXPECT_EQ(add(option("boot_script", REDBOOT_CONFIG_BOOL, 1)), (Outcome{1, ""}));
    const redboot_config_option timeout = {"boot_script_timeout", "", "boot_script", 1,
                                           REDBOOT_CONFIG_INT,    5};
    EXPECT_EQ(add(timeout), (Outcome{1, ""}));
    EXPECT_EQ(redboot_write_config(), 1);
    const std::string beginning(
        "\x00\x10\x00\x00\xCE\xFA\xAD\x0B"
        "\x01\x0C\x01\x00"
        "boot_script\0"
        "\x01\x00\x00\x00"
        "\x02\x14\x01\x0C"
        "boot_script_timeout\0"
        "boot_script\0"
        "\x05\x00\x00\x00",
        68);
    const std::string end("\xAD\xDE\xAD\xDE\xC5\xCE\x12\xE6", 8);
    EXPECT_EQ(block_in_flash(), padded(beginning, 4088) + end);
}

TEST_F(Redboot, SaysThatItCannotOpenTheFlashForWriting) {
    load_entries("");
    const std::string before = loaded_block();
    std::filesystem::remove(kFlash);
    memset(redboot_config, 0, 8);
    memset(&redboot_config[4088], 0, 8);
    EXPECT_EQ(outcome(redboot_write_config), (Outcome{0, kCantOpen}));
    EXPECT_EQ(loaded_block(), before) << "completed all the same";
    EXPECT_FALSE(exists(kFlash));
    put_block(before);
    EXPECT_EQ(outcome(redboot_write_config), (Outcome{1, ""}));
}

TEST_F(Redboot, FailsWithoutAWordWhereTheFlashIsFull) {
    load_entries("");
    const ScopedMount full("/dev/full", kFlash, nullptr, MS_BIND, "");
    EXPECT_EQ(outcome(redboot_write_config), (Outcome{0, ""}));
    EXPECT_EQ(config, redboot_config);
}

TEST_F(Redboot, LeavesNoDescriptorOpen) {
    put_block(boot_block(""));
    const std::vector<int> before = open_descriptors();
    load();
    redboot_write_config();
    write_file(kFlash, "short");
    load();
    put_block(std::string(4096, 'x'));
    load();
    EXPECT_EQ(open_descriptors(), before);
}

// The flags of the other descriptor that is open on the file, or -1.
int flags_of_descriptor_on(const std::string& path, int except) {
    for (const auto& link : std::filesystem::directory_iterator("/proc/self/fd")) {
        std::error_code gone;
        if (std::filesystem::read_symlink(link.path(), gone) != path) continue;
        const std::string name = link.path().filename();
        if (std::stoi(name) == except) continue;
        std::ifstream info("/proc/self/fdinfo/" + name);
        for (std::string key, value; info >> key >> value;) {
            if (key == "flags:") return std::stoi(value, nullptr, 8);
        }
    }
    return -1;
}

// A pipe that is full holds the write up long enough to look at the descriptor.
TEST_F(Redboot, WritesSynchronouslyAndClosedByExec) {
#ifdef __mips__
    GTEST_SKIP() << "qemu-user shows the flags of the machine below";
#endif
    load_entries("");
    ASSERT_EQ(mkfifo("/tmp/flash", 0600), 0);
    const ScopedMount pipe("/tmp/flash", kFlash, nullptr, MS_BIND, "");
    const int end = open(kFlash.c_str(), O_RDWR | O_NONBLOCK | O_CLOEXEC);
    const std::string filling(4096, 'f');
    while (write(end, filling.data(), filling.size()) > 0) {
    }
    auto written = std::async(std::launch::async, redboot_write_config);
    int flags = -1;
    for (int i = 0; i < 1000 && flags < 0; i++) {
        std::this_thread::sleep_for(std::chrono::milliseconds(1));
        flags = flags_of_descriptor_on(kFlash, end);
    }
    std::string drained(1 << 20, '\0');
    while (written.wait_for(std::chrono::milliseconds(1)) != std::future_status::ready)
        (void)!read(end, drained.data(), drained.size());
    EXPECT_EQ(written.get(), 1);
    close(end);
    ASSERT_NE(flags, -1);
    EXPECT_EQ(flags & O_ACCMODE, O_RDWR);
    EXPECT_EQ(flags & O_DSYNC, O_DSYNC);
    EXPECT_EQ(flags & O_CLOEXEC, O_CLOEXEC);
}

// A file size limit cuts the write as a power cut would.
class FileSizeLimit {
  public:
    explicit FileSizeLimit(rlim_t size) : handler_(signal(SIGXFSZ, SIG_IGN)) {
        getrlimit(RLIMIT_FSIZE, &old_);
        const rlimit limit = {size, old_.rlim_max};
        setrlimit(RLIMIT_FSIZE, &limit);
    }
    ~FileSizeLimit() {
        setrlimit(RLIMIT_FSIZE, &old_);
        signal(SIGXFSZ, handler_);
    }
    FileSizeLimit(const FileSizeLimit&) = delete;
    FileSizeLimit& operator=(const FileSizeLimit&) = delete;

  private:
    rlimit old_{};
    sighandler_t handler_;
};

TEST_F(Redboot, AWriteThatIsCutIsAFailureAndTheNextLoadSaysSo) {
    std::string entries;
    for (int i = 0; i < 28; i++)
        entries += string_entry("key" + std::to_string(i), std::string(100, 'o'));
    const std::string old_block = boot_block(entries);
    for (size_t cut = 0; cut <= 4096; cut += 512) {
        SCOPED_TRACE(cut);
        load_block(old_block);
        for (int i = 0; i < 28; i++) {
            const std::string key = "key" + std::to_string(i);
            ASSERT_EQ(redboot_set_config(key.c_str(), "new", REDBOOT_CONFIG_STRING), 1);
        }
        Outcome written{-1, ""};
        {
            const CapturedOutput output;
            const FileSizeLimit limit(cut);
            written = {redboot_write_config(), ""};
        }
        EXPECT_EQ(written.result, cut == 4096 ? 1 : 0);
        const std::string new_block = loaded_block();
        EXPECT_EQ(block_in_flash(), new_block.substr(0, cut) + old_block.substr(cut));
        // Nothing written is the old block; all written is the new one; between them is neither.
        const bool whole = cut == 0 || cut == 4096;
        EXPECT_EQ(load(), whole ? (Outcome{1, ""}) : (Outcome{0, kCrcError}));
    }
}

TEST_F(Redboot, ACutBehindTheOnlyChangeIsNoticedByTheChecksum) {
    const std::string old_block = boot_block(int_entry("key", 1));
    for (size_t cut = 512; cut < 4096; cut += 512) {
        load_block(old_block);
        const uint32_t value = 2;
        ASSERT_EQ(redboot_set_config("key", &value, REDBOOT_CONFIG_INT), 1);
        {
            const FileSizeLimit limit(cut);
            EXPECT_EQ(redboot_write_config(), 0);
        }
        EXPECT_EQ(load(), (Outcome{0, kCrcError})) << cut;
    }
}

// Get

TEST_F(Redboot, GetsEveryType) {
    load_entries(seven_entries());
    EXPECT_EQ(number("a_bool", REDBOOT_CONFIG_BOOL), 1U);
    EXPECT_EQ(number("an_int", REDBOOT_CONFIG_INT), 4000000000U);
    EXPECT_STREQ(text("a_string", REDBOOT_CONFIG_STRING), "some text");
    EXPECT_STREQ(text("a_script", REDBOOT_CONFIG_SCRIPT), "fis load\nexec\n");
    EXPECT_EQ(word(number("an_ip", REDBOOT_CONFIG_IP)), "\xC0\xA8\x01\x02");
    EXPECT_STREQ(text("a_port", REDBOOT_CONFIG_NET_PORT), "eth0");
    std::array<unsigned char, 8> address{0, 0, 0, 0, 0, 0, 0x5A, 0x5A};
    EXPECT_EQ(redboot_get_config("an_esa", address.data(), REDBOOT_CONFIG_ESA), 1);
    EXPECT_EQ(address, (std::array<unsigned char, 8>{2, 0, 0x5E, 0x0A, 0xFF, 1, 0x5A, 0x5A}));
}

TEST_F(Redboot, GetsANumberIntoFourBytes) {
    load_entries(seven_entries());
    std::array<uint32_t, 2> value{0, 0x5A5A5A5A};
    EXPECT_EQ(redboot_get_config("an_int", value.data(), REDBOOT_CONFIG_INT), 1);
    EXPECT_EQ(value[0], 4000000000U);
    EXPECT_EQ(value[1], 0x5A5A5A5AU);
}

TEST_F(Redboot, HandsOutTextsInsideTheBlock) {
    load_entries(seven_entries());
    const std::string block = loaded_block();
    EXPECT_EQ(offset_of(text("a_string", REDBOOT_CONFIG_STRING)), block.find("some text"));
    EXPECT_EQ(offset_of(text("a_script", REDBOOT_CONFIG_SCRIPT)), block.find("fis load"));
    EXPECT_EQ(offset_of(text("a_port", REDBOOT_CONFIG_NET_PORT)), block.find("eth0"));
}

TEST_F(Redboot, GivesOneForAnotherTypeButNoValue) {
    load_entries(seven_entries());
    for (const char* key : {"a_bool", "an_int", "a_string", "a_script", "an_ip", "an_esa"}) {
        uintptr_t value = 0x5A5A5A5A;
        EXPECT_EQ(
            outcome([&] { return redboot_get_config(key, &value, REDBOOT_CONFIG_NET_PORT); }),
            (Outcome{1, "Request for config value '" + std::string(key) + "' - wrong type\n"}));
        EXPECT_EQ(value, 0x5A5A5A5AU);
    }
}

TEST_F(Redboot, GetsNothingOfAnUnknownTypeThatItHas) {
    load_entries(entry(9, "odd", "") + int_entry("n", 1));
    uintptr_t value = 0x5A5A5A5A;
    EXPECT_EQ(outcome([&] { return redboot_get_config("odd", &value, 9); }), (Outcome{1, ""}));
    EXPECT_EQ(value, 0x5A5A5A5AU);
}

TEST_F(Redboot, GetsNothingForAKeyThatIsNotThere) {
    load_entries(seven_entries());
    for (const char* key : {"", "a", "a_boo", "a_bool2", "A_BOOL", "%s%n", "some text"}) {
        uintptr_t value = 0x5A5A5A5A;
        EXPECT_EQ(outcome([&] { return redboot_get_config(key, &value, REDBOOT_CONFIG_BOOL); }),
                  (Outcome{0, ""}))
            << key;
        EXPECT_EQ(value, 0x5A5A5A5AU);
    }
}

TEST_F(Redboot, GetsTheFirstOfTwoEntriesWithOneKey) {
    load_entries(int_entry("twice", 1) + int_entry("twice", 2));
    EXPECT_EQ(number("twice", REDBOOT_CONFIG_INT), 1U);
}

TEST_F(Redboot, FindsWhatStandsBehindAnEntryOfTypeZero) {
    load_entries(std::string(8, '\0') + int_entry("behind", 3));
    EXPECT_EQ(number("behind", REDBOOT_CONFIG_INT), 3U);
    load_entries(entry(0, "gone", "") + int_entry("behind", 4));
    EXPECT_EQ(number("behind", REDBOOT_CONFIG_INT), 4U);
}

TEST_F(Redboot, FindsTheLastOfSixtyKeysAndOneAtTheVeryEnd) {
    std::string entries;
    for (int i = 0; i < 60; i++)
        entries += int_entry("key_number_" + std::to_string(i), static_cast<uint32_t>(i));
    const std::string last = int_entry("last", 60);
    const std::string gap = entry(200, std::string(254, 'x'), "");
    while (entries.size() + gap.size() + last.size() <= 4080)
        entries += gap;
    // A zero header is stepped over by four bytes.
    entries.resize(4080 - last.size() - (4080 - last.size() - entries.size()) % 4, '\0');
    load_entries(entries + last);
    EXPECT_EQ(number("key_number_59", REDBOOT_CONFIG_INT), 59U);
    EXPECT_EQ(number("last", REDBOOT_CONFIG_INT), 60U);
}

TEST_F(Redboot, RejectsMissingArguments) {
    load_entries(seven_entries());
    uint32_t value = 1;
    EXPECT_EQ(outcome([&] { return redboot_get_config(nullptr, &value, 1); }), (Outcome{0, ""}));
    EXPECT_EQ(outcome([&] { return redboot_get_config("a_bool", nullptr, 1); }), (Outcome{0, ""}));
    EXPECT_EQ(outcome([&] { return redboot_set_config(nullptr, &value, 1); }), (Outcome{0, ""}));
    EXPECT_EQ(outcome([&] { return redboot_set_config("a_bool", nullptr, 1); }), (Outcome{0, ""}));
    EXPECT_EQ(outcome([&] { return redboot_add_config(nullptr); }), (Outcome{0, ""}));
    EXPECT_EQ(add(option(nullptr, REDBOOT_CONFIG_INT, 1)), (Outcome{0, ""}));
    for (const uint32_t type : {REDBOOT_CONFIG_STRING, REDBOOT_CONFIG_ESA, REDBOOT_CONFIG_NET_PORT})
        EXPECT_EQ(add(option("new", type, 0)), (Outcome{0, ""}));
    for (const uint32_t type : {0U, 256U, 257U, 0xFFFFFFFFU})
        EXPECT_EQ(add(option("new", type, 1)), (Outcome{0, ""}));
    EXPECT_EQ(loaded_block(), boot_block(seven_entries()));
}

// Set

TEST_F(Redboot, SetsEveryTypeInMemoryOnly) {
    const std::string before = boot_block(seven_entries());
    load_block(before);
    const uint32_t no = 0, seconds = 0x01020304;
    const std::array<unsigned char, 8> address{1, 2, 3, 4, 5, 6, 0xEE, 0xEE};
    EXPECT_EQ(redboot_set_config("a_bool", &no, REDBOOT_CONFIG_BOOL), 1);
    EXPECT_EQ(redboot_set_config("an_int", &seconds, REDBOOT_CONFIG_INT), 1);
    EXPECT_EQ(redboot_set_config("a_string", "t", REDBOOT_CONFIG_STRING), 1);
    EXPECT_EQ(redboot_set_config("an_ip", "\x0A\x00\x00\x01", REDBOOT_CONFIG_IP), 1);
    EXPECT_EQ(redboot_set_config("an_esa", address.data(), REDBOOT_CONFIG_ESA), 1);
    EXPECT_EQ(redboot_set_config("a_port", "npe_eth1", REDBOOT_CONFIG_NET_PORT), 1);
    const std::string entries = bool_entry("a_bool", false) + int_entry("an_int", 0x01020304) +
                                string_entry("a_string", "t") +
                                script_entry("a_script", "fis load\nexec\n") +
                                entry(5, "an_ip", std::string("\x0A\x00\x00\x01", 4)) +
                                entry(6, "an_esa", "\x01\x02\x03\x04\x05\x06\x77\x88") +
                                entry(7, "a_port", padded("npe_eth1", 128));
    EXPECT_EQ(loaded_block(), boot_block(entries).substr(0, 4092) + before.substr(4092));
    EXPECT_EQ(block_in_flash(), before);
}

TEST_F(Redboot, SetsTheFirst128BytesOfATextAndNeverReadsBehindIt) {
    for (const size_t size : {0U, 1U, 127U, 128U, 300U}) {
        SCOPED_TRACE(size);
        load_entries(string_entry("s", std::string(128, 'o')) + int_entry("next", 7));
        // On the heap, so that a read behind its end is noticed.
        const std::string value(size, 'n');
        EXPECT_EQ(redboot_set_config("s", value.c_str(), REDBOOT_CONFIG_STRING), 1);
        const std::string expected = padded(value.substr(0, 128), 128);
        EXPECT_EQ(loaded_block().substr(8, 4088 - 8),
                  boot_block(string_entry("s", expected) + int_entry("next", 7)).substr(8, 4080));
    }
}

TEST_F(Redboot, StoresAPartOfTheTextThatItHandedOut) {
    load_entries(string_entry("s", "one two three") + entry(7, "port", padded("npe_eth0", 128)));
    EXPECT_EQ(redboot_set_config("s", text("s", REDBOOT_CONFIG_STRING) + 4, REDBOOT_CONFIG_STRING),
              1);
    EXPECT_STREQ(text("s", REDBOOT_CONFIG_STRING), "two three");
    EXPECT_EQ(
        add(option("s", REDBOOT_CONFIG_STRING, pointer(text("s", REDBOOT_CONFIG_STRING) + 4))),
        (Outcome{1, ""}));
    const char* port = text("port", REDBOOT_CONFIG_NET_PORT);
    EXPECT_EQ(add(option("port", REDBOOT_CONFIG_NET_PORT, pointer(port + 4))), (Outcome{1, ""}));
    const std::string expected =
        string_entry("s", "three") + entry(7, "port", padded(std::string("eth0\0th0", 8), 128));
    EXPECT_EQ(loaded_block().substr(8, 4080), boot_block(expected).substr(8, 4080));
}

TEST_F(Redboot, SetsTheFirst128BytesOfAScriptOnly) {
    for (const size_t size : {5U, 128U, 400U}) {
        load_entries(script_entry("s", std::string(512, 'o')));
        const std::string value(size, 'n');
        EXPECT_EQ(redboot_set_config("s", value.c_str(), REDBOOT_CONFIG_SCRIPT), 1);
        const std::string expected = padded(value.substr(0, 128), 128) + std::string(384, 'o');
        EXPECT_EQ(loaded_block().substr(8, 518), script_entry("s", expected).substr(0, 518));
    }
}

TEST_F(Redboot, SetsNothingOfAnotherOrAnUnknownType) {
    load_entries(int_entry("number", 1) + entry(9, "odd", ""));
    const std::string before = loaded_block();
    const uint32_t value = 0;
    EXPECT_EQ(outcome([&] { return redboot_set_config("number", &value, REDBOOT_CONFIG_BOOL); }),
              (Outcome{0, "Can't set config value 'number' - wrong type\n"}));
    EXPECT_EQ(outcome([&] { return redboot_set_config("odd", &value, 9); }),
              (Outcome{0, "Can't set config value 'odd' - wrong type\n"}));
    EXPECT_EQ(outcome([&] { return redboot_set_config("absent", &value, 2); }), (Outcome{0, ""}));
    EXPECT_EQ(loaded_block(), before);
}

TEST_F(Redboot, PrintsKeysAsTheyAreAndNeverAsFormats) {
    load_entries(int_entry("%s%n%d", 1));
    uint32_t value = 0;
    EXPECT_EQ(outcome([&] { return redboot_get_config("%s%n%d", &value, 1); }),
              (Outcome{1, "Request for config value '%s%n%d' - wrong type\n"}));
    EXPECT_EQ(outcome([&] { return redboot_set_config("%s%n%d", &value, 1); }),
              (Outcome{0, "Can't set config value '%s%n%d' - wrong type\n"}));
    EXPECT_EQ(outcome(redboot_show_config), (Outcome{1, "%s%n%d: 1\n"}));
}

// Add

TEST_F(Redboot, AddsAnEntryOfEachType) {
    load_entries("");
    const std::array<unsigned char, 6> address{2, 0, 0x5E, 0x0A, 0xFF, 1};
    EXPECT_EQ(add(option("a_bool", REDBOOT_CONFIG_BOOL, 1)), (Outcome{1, ""}));
    EXPECT_EQ(add(option("an_int", REDBOOT_CONFIG_INT, 4000000000U)), (Outcome{1, ""}));
    EXPECT_EQ(add(option("a_string", REDBOOT_CONFIG_STRING, pointer("some text"))),
              (Outcome{1, ""}));
    EXPECT_EQ(add(option("a_script", REDBOOT_CONFIG_SCRIPT, pointer("ignored"))), (Outcome{1, ""}));
    EXPECT_EQ(add(option("an_ip", REDBOOT_CONFIG_IP, word_of("\xC0\xA8\x01\x02"))),
              (Outcome{1, ""}));
    EXPECT_EQ(add(option("an_esa", REDBOOT_CONFIG_ESA, pointer(address.data()))), (Outcome{1, ""}));
    EXPECT_EQ(add(option("a_port", REDBOOT_CONFIG_NET_PORT, pointer("eth0"))), (Outcome{1, ""}));
    EXPECT_EQ(add(option("odd", 255, 1)), (Outcome{1, ""}));
    std::string entries = seven_entries();
    entries.replace(entries.find("fis load"), 14, std::string(14, '\0'));
    entries.replace(entries.find("\xFF\x01\x77"), 4, std::string("\xFF\x01\x00\x00", 4));
    entries += entry(255, "odd", "");
    EXPECT_EQ(loaded_block(), boot_block(entries).substr(0, 4092) + boot_block("").substr(4092));
    EXPECT_EQ(block_in_flash(), boot_block("")) << "nothing is saved";
}

TEST_F(Redboot, AddsTheEnableKeyAndItsSense) {
    for (const auto& [sense, stored] : {std::pair(0U, 0), {1U, 1}, {2U, 2}, {256U, 255}}) {
        load_entries(bool_entry("b", true));
        const redboot_config_option number = {"n", nullptr, "b", sense, REDBOOT_CONFIG_INT, 9};
        EXPECT_EQ(add(number), (Outcome{1, ""}));
        const std::string expected =
            bool_entry("b", true) +
            enabled_entry(2, "n", "b", static_cast<uint8_t>(stored), word(9));
        EXPECT_EQ(loaded_block().substr(8, 4080), boot_block(expected).substr(8, 4080));
    }
}

TEST_F(Redboot, AddsTheNamesToTheBytesThatAreThere) {
    std::string area(4080, '\x01');
    area[0] = '\0';
    load_entries(area);
    const redboot_config_option number = {"ab", nullptr, "c", 0, REDBOOT_CONFIG_INT, 9};
    EXPECT_EQ(add(number), (Outcome{1, ""}));
    const std::string expected =
        entry_with(2, 0, std::string("bc\0d\0", 5), 3, 2, word(9)) + std::string(4080, '\x01');
    EXPECT_EQ(loaded_block().substr(8, 4080), expected.substr(0, 4080));
}

TEST_F(Redboot, AddsAPortUpToItsTerminator) {
    for (const size_t size : {0U, 4U, 127U, 128U, 300U}) {
        std::string area(4080, '\x01');
        area[0] = '\0';
        load_entries(area);
        const std::string name(size, 'p');
        EXPECT_EQ(add(option("k", REDBOOT_CONFIG_NET_PORT, pointer(name.c_str()))),
                  (Outcome{1, ""}));
        const std::string written = std::string(name).append(1, '\0').substr(0, 128);
        const std::string field(loaded_block(), 8 + 6, 130);
        EXPECT_EQ(field, std::string(130, '\x01').replace(0, written.size(), written)) << size;
    }
}

TEST_F(Redboot, AddsIntoTheFirstFreeByte) {
    load_entries(int_entry("a", 1) + std::string(9, '\0') + int_entry("behind", 2));
    EXPECT_EQ(add(option("b", 200, 1)), (Outcome{1, ""}));
    EXPECT_EQ(loaded_block().substr(8, 30), (int_entry("a", 1) + entry(200, "b", "") +
                                             std::string(3, '\0') + int_entry("behind", 2))
                                                .substr(0, 30));
}

TEST_F(Redboot, AddingAKeyThatIsThereOverwritesItsValue) {
    load_entries(seven_entries());
    const std::array<unsigned char, 6> address{9, 8, 7, 6, 5, 4};
    EXPECT_EQ(add({"a_bool", nullptr, "ignored", 0, REDBOOT_CONFIG_BOOL, 0}), (Outcome{1, ""}));
    EXPECT_EQ(add(option("an_int", REDBOOT_CONFIG_INT, 5)), (Outcome{1, ""}));
    EXPECT_EQ(add(option("a_string", REDBOOT_CONFIG_STRING, pointer("t"))), (Outcome{1, ""}));
    EXPECT_EQ(add(option("a_script", REDBOOT_CONFIG_SCRIPT, pointer("t"))), (Outcome{1, ""}));
    EXPECT_EQ(add(option("an_ip", REDBOOT_CONFIG_IP, word_of("\x0A\x01\x02\x03"))),
              (Outcome{1, ""}));
    EXPECT_EQ(add(option("an_esa", REDBOOT_CONFIG_ESA, pointer(address.data()))), (Outcome{1, ""}));
    EXPECT_EQ(add(option("a_port", REDBOOT_CONFIG_NET_PORT, pointer("p"))), (Outcome{1, ""}));
    const std::string entries =
        bool_entry("a_bool", false) + int_entry("an_int", 5) + string_entry("a_string", "t") +
        script_entry("a_script", "fis load\nexec\n") + entry(5, "an_ip", "\x0A\x01\x02\x03") +
        entry(6, "an_esa", "\x09\x08\x07\x06\x05\x04\x77\x88") +
        entry(7, "a_port", padded(std::string("p\0h0", 4), 128));
    EXPECT_EQ(loaded_block().substr(8, 4080), boot_block(entries).substr(8, 4080));
}

TEST_F(Redboot, AddingOverAnEntryOfAnotherTypeKeepsToItsRoom) {
    const std::array<unsigned char, 6> address{'a', 'b', 'c', 'd', 'e', 'f'};
    for (const auto& [type, value] : {std::pair(REDBOOT_CONFIG_STRING, pointer("abcdefgh")),
                                      {REDBOOT_CONFIG_NET_PORT, pointer("abcdefgh")},
                                      {REDBOOT_CONFIG_ESA, pointer(address.data())}}) {
        load_entries(int_entry("n", 1) + entry(9, "odd", "") + int_entry("next", 2));
        EXPECT_EQ(add(option("n", type, value)), (Outcome{1, ""}));
        EXPECT_EQ(add(option("odd", type, value)), (Outcome{1, ""}));
        const std::string expected =
            entry(2, "n", "abcd") + entry(9, "odd", "") + int_entry("next", 2);
        EXPECT_EQ(loaded_block().substr(8, 4080), boot_block(expected).substr(8, 4080));
    }
    const std::string line(300, 'l');
    load_entries(script_entry("script", std::string(500, '-')));
    EXPECT_EQ(add(option("script", REDBOOT_CONFIG_NET_PORT, pointer(line.c_str()))),
              (Outcome{1, ""}));
    EXPECT_EQ(
        loaded_block().substr(8, 4080),
        boot_block(script_entry("script", line + '\0' + std::string(199, '-'))).substr(8, 4080));
    load_entries(string_entry("s", "text") + entry(9, "odd", ""));
    EXPECT_EQ(add(option("s", REDBOOT_CONFIG_INT, 0x44434241)), (Outcome{1, ""}));
    EXPECT_EQ(add(option("odd", REDBOOT_CONFIG_INT, 5)), (Outcome{1, ""}));
    EXPECT_EQ(loaded_block().substr(8, 4080),
              boot_block(string_entry("s", "ABCD") + entry(9, "odd", "")).substr(8, 4080));
}

TEST_F(Redboot, ReadsAPortNoFurtherThanTheAreaThatItLiesIn) {
    const std::string gap(4080 - 518 - 134, '\0');
    const std::string port = entry(7, "p", std::string(128, 'p'));
    load_entries(script_entry("s", std::string(512, '-')) + gap + port);
    EXPECT_EQ(
        add(option("s", REDBOOT_CONFIG_NET_PORT, pointer(text("p", REDBOOT_CONFIG_NET_PORT)))),
        (Outcome{1, ""}));
    const std::string stored = std::string(128, 'p') + std::string(384, '-');
    EXPECT_EQ(loaded_block().substr(8, 4080), script_entry("s", stored) + gap + port);
}

// Entries that leave exactly that many bytes of the area.
std::string entries_leaving(size_t room) {
    std::string entries;
    while (4080 - room - entries.size() > 250)
        entries += entry(200, std::string(200, 'x'), "");
    return entries + entry(200, std::string(4080 - room - entries.size() - 5, 'y'), "");
}

TEST_F(Redboot, AddsAnEntryThatFitsToTheLastByte) {
    const std::string number = int_entry("n", 7);
    load_entries(entries_leaving(number.size()));
    EXPECT_EQ(add(option("n", REDBOOT_CONFIG_INT, 7)), (Outcome{1, ""}));
    EXPECT_EQ(loaded_block().substr(4088 - number.size(), number.size()), number);
    EXPECT_EQ(loaded_block().substr(4088), boot_block(entries_leaving(number.size())).substr(4088));
    EXPECT_EQ(redboot_write_config(), 1);
    EXPECT_EQ(load(), (Outcome{1, ""}));
    EXPECT_EQ(::number("n", REDBOOT_CONFIG_INT), 7U);
    EXPECT_EQ(add(option("m", REDBOOT_CONFIG_INT, 7)), (Outcome{0, "No space to add 'm'\n"}));
}

TEST_F(Redboot, RefusesAnEntryThatIsOneByteTooLarge) {
    const std::vector<std::pair<redboot_config_option, size_t>> options = {
        {option("n", REDBOOT_CONFIG_BOOL, 1), 10},
        {option("n", REDBOOT_CONFIG_STRING, pointer("t")), 134},
        {option("n", REDBOOT_CONFIG_SCRIPT, 0), 518},
        {option("n", REDBOOT_CONFIG_ESA, pointer("123456")), 14},
        {{"n", nullptr, "enable", 1, REDBOOT_CONFIG_INT, 1}, 17},
        {option("n", 77, 0), 6},
    };
    for (const auto& [option, size] : options) {
        SCOPED_TRACE(size);
        load_entries(entries_leaving(size - 1));
        const std::string before = loaded_block();
        EXPECT_EQ(add(option), (Outcome{0, "No space to add 'n'\n"}));
        EXPECT_EQ(loaded_block(), before);
        load_entries(entries_leaving(size));
        EXPECT_EQ(add(option), (Outcome{1, ""}));
        EXPECT_EQ(
            loaded_block().substr(kEntriesEnd - size, 4),
            entry_with(static_cast<uint8_t>(option.type), 1, "", 2, option.enable_key ? 7 : 0, ""));
    }
}

TEST_F(Redboot, RefusesToAddWhereEntriesReachTheEndOfTheAreaOrBeyond) {
    for (const std::string& entries : {entries_leaving(0), entries_leaving(2) + "\x02\xFF",
                                       entries_leaving(4) + std::string("\x04\xFF\x01\xFF")}) {
        load_entries(entries);
        const std::string before = loaded_block();
        EXPECT_EQ(add(option("n", 200, 1)), (Outcome{0, "No space to add 'n'\n"}));
        EXPECT_EQ(loaded_block(), before);
    }
}

TEST_F(Redboot, RefusesAKeyWhoseLengthDoesNotFitIntoAByte) {
    load_entries("");
    const std::string longest(254, 'k');
    const std::string longer(255, 'k');
    EXPECT_EQ(add(option(longer.c_str(), REDBOOT_CONFIG_INT, 1)),
              (Outcome{0, "No space to add '" + longer + "'\n"}));
    EXPECT_EQ(add({"n", nullptr, longer.c_str(), 1, REDBOOT_CONFIG_INT, 1}),
              (Outcome{0, "No space to add 'n'\n"}));
    EXPECT_EQ(loaded_block(), boot_block(""));
    EXPECT_EQ(add(option(longest.c_str(), REDBOOT_CONFIG_INT, 5)), (Outcome{1, ""}));
    EXPECT_EQ(number(longest.c_str(), REDBOOT_CONFIG_INT), 5U);
    EXPECT_EQ(add({"n", nullptr, longest.c_str(), 1, REDBOOT_CONFIG_INT, 6}), (Outcome{1, ""}));
    EXPECT_EQ(number("n", REDBOOT_CONFIG_INT), 6U);
}

// Show

TEST_F(Redboot, ShowsEveryType) {
    load_entries(seven_entries() + bool_entry("no", false) + entry(9, "odd", "") +
                 int_entry("after", 0));
    EXPECT_EQ(outcome(redboot_show_config), (Outcome{1,
                                                     "a_bool: true\n"
                                                     "an_int: 4000000000\n"
                                                     "a_string: some text\n"
                                                     "a_script: \n"
                                                     ".. fis load\n"
                                                     ".. exec\n"
                                                     "\n"
                                                     "an_ip: \xC0\xA8\x01\x02\n"
                                                     "an_esa: 0x02:0x00:0x5E:0x0A:0xFF:0x01\n"
                                                     "a_port: eth0\n"
                                                     "no: false\n"
                                                     "odd: \n"
                                                     "after: 0\n"}));
}

TEST_F(Redboot, ShowsNothingOfAnEmptyBlock) {
    load_entries("");
    EXPECT_EQ(outcome(redboot_show_config), (Outcome{1, ""}));
}

TEST_F(Redboot, ShowsScriptsLineByLine) {
    const std::vector<std::pair<std::string, std::string>> scripts = {
        {"", ""},
        {"one", ".. one\n"},
        {"one\n", ".. one\n"},
        {"\n", ".. \n"},
        {"one\n\ntwo", ".. one\n.. \n.. two\n"},
        {std::string(512, 'x'), ".. " + std::string(512, 'x') + "\n"},
        {std::string(511, 'x') + "\n", ".. " + std::string(511, 'x') + "\n"},
    };
    for (const auto& [script, lines] : scripts) {
        load_entries(script_entry("s", script) + int_entry("n", 1));
        EXPECT_EQ(outcome(redboot_show_config), (Outcome{1, "s: \n" + lines + "\nn: 1\n"}));
    }
}

TEST_F(Redboot, ShowsTextsThatFillTheirFields) {
    load_entries(string_entry("s", std::string(128, 's')) + entry(5, "ip", "\x01\x02\x03\x04") +
                 entry(7, "port", std::string(128, 'p')));
    EXPECT_EQ(outcome(redboot_show_config),
              (Outcome{1, "s: " + std::string(128, 's') +
                              "\nip: \x01\x02\x03\x04\nport: " + std::string(128, 'p') + "\n"}));
}

TEST_F(Redboot, ShowsAnAddressUpToItsFirstZeroByte) {
    load_entries(entry(5, "ip", std::string("AB\0C", 4)) + entry(5, "none", std::string(4, '\0')));
    EXPECT_EQ(outcome(redboot_show_config), (Outcome{1, "ip: AB\nnone: \n"}));
}

TEST_F(Redboot, ShowsWhatIsEnabled) {
    load_entries(bool_entry("on", true) + bool_entry("off", false) +
                 enabled_entry(2, "on_and_wanted", "on", 1, word(1)) +
                 enabled_entry(2, "on_but_unwanted", "on", 0, word(2)) +
                 enabled_entry(2, "off_but_wanted", "off", 1, word(3)) +
                 enabled_entry(2, "off_and_unwanted", "off", 0, word(4)) +
                 enabled_entry(2, "any_sense_is_true", "on", 0x80, word(5)));
    EXPECT_EQ(outcome(redboot_show_config),
              (Outcome{1,
                       "on: true\noff: false\non_and_wanted: 1\noff_and_unwanted: 4\n"
                       "any_sense_is_true: 5\n"}));
}

TEST_F(Redboot, TakesABoolThatIsNotThereForFalse) {
    load_entries(enabled_entry(2, "wanted", "absent", 1, word(1)) +
                 enabled_entry(2, "unwanted", "absent", 0, word(2)));
    EXPECT_EQ(outcome(redboot_show_config), (Outcome{1, "unwanted: 2\n"}));
}

TEST_F(Redboot, TakesAnEnableKeyOfAnotherTypeForFalseAndSaysSo) {
    load_entries(int_entry("number", 1) + enabled_entry(2, "wanted", "number", 1, word(1)) +
                 enabled_entry(2, "unwanted", "number", 0, word(2)));
    EXPECT_EQ(outcome(redboot_show_config),
              (Outcome{1,
                       "number: 1\n"
                       "Request for config value 'number' - wrong type\n"
                       "Request for config value 'number' - wrong type\n"
                       "unwanted: 2\n"}));
}

TEST_F(Redboot, ShowsAnyNumberButZeroAsTrue) {
    load_entries(entry(1, "b", word(0x01000000)) + enabled_entry(2, "n", "b", 1, word(1)));
    EXPECT_EQ(outcome(redboot_show_config), (Outcome{1, "b: true\nn: 1\n"}));
}

TEST_F(Redboot, ShowsNothingBehindAnEntryOfTypeZero) {
    load_entries(int_entry("a", 1) + entry(0, "gone", "") + int_entry("behind", 2));
    EXPECT_EQ(outcome(redboot_show_config), (Outcome{1, "a: 1\n"}));
}

TEST_F(Redboot, ShowsABlockThatIsFullToTheLastByte) {
    const std::string last = string_entry("last", std::string(128, 'l'));
    std::string entries;
    for (int i = 0; i < 28; i++)
        entries += string_entry("k" + std::to_string(i % 10), "v");
    const size_t rest = 4080 - last.size() - entries.size();
    entries += entry(200, std::string(rest - 5, 'x'), "") + last;
    ASSERT_EQ(entries.size(), 4080U);
    load_entries(entries);
    const Outcome shown = outcome(redboot_show_config);
    EXPECT_EQ(shown.text.substr(shown.text.size() - 139),
              "x: \nlast: " + std::string(128, 'l') + "\n");
}

// Hostile entries under a right checksum

TEST_F(Redboot, TakesAnEntryThatReachesBeyondTheAreaForNone) {
    const std::string first = int_entry("first", 1);
    for (const std::string& last :
         {string_entry("s", "text"), script_entry("s", "text"), int_entry("s", 1),
          entry(6, "s", "12345678"), entry_with(200, 1, std::string("s\0", 2), 255, 255, "")}) {
        // One byte of its value, or of its names, lies behind the area.
        const size_t begin = 4080 - last.size() + 1;
        std::string entries = first + entry(200, std::string(200, 'x'), "");
        while (begin - entries.size() > 250)
            entries += entry(200, std::string(200, 'x'), "");
        entries += entry(200, std::string(begin - entries.size() - 5, 'y'), "");
        load_entries((entries + last).substr(0, 4080));
        const std::string before = loaded_block();
        uintptr_t value = 0;
        EXPECT_EQ(redboot_get_config("s", &value, static_cast<uint32_t>(last[0])), 0);
        EXPECT_EQ(redboot_set_config("s", "1234", static_cast<uint32_t>(last[0])), 0);
        EXPECT_EQ(add(option("t", REDBOOT_CONFIG_INT, 1)), (Outcome{0, "No space to add 't'\n"}));
        EXPECT_EQ(outcome(redboot_show_config).text.find("s: "), std::string::npos);
        EXPECT_EQ(number("first", REDBOOT_CONFIG_INT), 1U);
        EXPECT_EQ(loaded_block(), before);
    }
}

TEST_F(Redboot, FindsNoKeyThatHasNoTerminator) {
    load_entries(entry_with(2, 1, "abc", 3, 0, word(1)) +
                 entry_with(2, 1, std::string("key\0", 4), 0, 4, word(2)) +
                 entry_with(2, 1, std::string("ab\0\0\0", 5), 5, 0, word(3)));
    uint32_t value = 0;
    for (const char* key : {"abc", "key", "", "abckey"})
        EXPECT_EQ(redboot_get_config(key, &value, REDBOOT_CONFIG_INT), 0) << key;
    EXPECT_EQ(number("ab", REDBOOT_CONFIG_INT), 3U);
    const Outcome shown = outcome(redboot_show_config);
    // The second is enabled by a key that is not there.
    EXPECT_EQ(shown, (Outcome{1, "abc: 1\nab: 3\n"}));
}

TEST_F(Redboot, EndsInABlockOfZerosAndInOneOfOnes) {
    for (const char byte : {'\0', '\x01', '\x04', '\xff'}) {
        load_entries(std::string(4080, byte));
        uint32_t value = 0;
        EXPECT_EQ(redboot_get_config("key", &value, REDBOOT_CONFIG_INT), 0);
        EXPECT_EQ(outcome(redboot_show_config).result, 1);
        const int added = add(option("key", REDBOOT_CONFIG_INT, 1)).result;
        EXPECT_EQ(added, byte == '\0' ? 1 : 0);
    }
}

std::string random_entries(std::mt19937& random) {
    std::string area;
    while (area.size() < 4080) {
        const std::string key(1, static_cast<char>('a' + random() % 4));
        switch (random() % 8) {
            case 0:
                area += static_cast<char>(random());
                break;
            case 1:
                area += entry_with(static_cast<uint8_t>(random() % 9), random() % 2, key + '\0',
                                   random() % 256, random() % 256, "");
                break;
            case 2:
                area += enabled_entry(static_cast<uint8_t>(random() % 9), key, "a", random() % 2,
                                      padded("v", random() % 130));
                break;
            case 3:
                area += script_entry(key, std::string(random() % 513, '\n'));
                break;
            default:
                area += string_entry(key, std::string(random() % 129, 'v'));
        }
    }
    return area.substr(0, 4080);
}

TEST_F(Redboot, StaysWithinTheAreaWhateverTheEntriesSay) {
    std::mt19937 random(8);  // NOLINT(cert-msc32-c,cert-msc51-cpp): repeatable
    const std::string value(600, 'w');
    for (int round = 0; round < 300; round++) {
        SCOPED_TRACE(round);
        load_entries(random_entries(random));
        const std::string before = loaded_block();
        const CapturedOutput output;
        redboot_show_config();
        for (const char* key : {"a", "b", "c", "d", ""}) {
            for (uint32_t type = 0; type <= 9; type++) {
                const char* out[2] = {nullptr, nullptr};
                redboot_get_config(key, out, type);
                const bool is_text = type == 3 || type == 4 || type == 7;
                if (is_text && out[0]) {
                    const size_t offset = offset_of(out[0]);
                    ASSERT_GE(offset, 8U);
                    ASSERT_LE(offset + (type == 4 ? 512 : 128), kEntriesEnd);
                }
                redboot_set_config(key, value.c_str(), type);
            }
            const redboot_config_option text = option(key, REDBOOT_CONFIG_STRING, pointer("t"));
            redboot_add_config(&text);
        }
        ASSERT_EQ(loaded_block().substr(0, 8), before.substr(0, 8));
        ASSERT_EQ(loaded_block().substr(4088), before.substr(4088));
    }
}

}  // namespace
