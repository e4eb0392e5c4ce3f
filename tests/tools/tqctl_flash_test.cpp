// tqctl_flash_test.cpp - tqctl flash, image, redboot and sn as a script meets them.
#include <gmock/gmock.h>
#include <sys/stat.h>

#include <algorithm>
#include <filesystem>
#include <string>

#include "support/boot_block.h"
#include "tools/tqctl.h"

namespace {

namespace fs = std::filesystem;

using namespace tq_test;  // NOLINT(google-build-using-namespace)
using testing::AllOf;
using testing::HasSubstr;
using testing::StartsWith;

const std::string kScript = "fis load -d %{kernel}\nexec\n";
const std::string kBackupKernel = "\"kernel bak\"";
const std::string kBackupRootdev = "\"rootfs bak\"";

std::string with_aliases(const std::string& kernel, const std::string& rootdev) {
    return bool_entry("boot_script", true) + script_entry("boot_script_data", kScript) +
           enabled_entry(2, "boot_script_timeout", "boot_script", 1, word(10)) +
           string_entry("pri_pelkin_ver", "1.2.3") + string_entry("qak_pelkin_ver", "1.2.2") +
           string_entry("alias/kernel", kernel) + string_entry("alias/rootdev", rootdev);
}

std::string primary_next() {
    return with_aliases("kernel", "rootfs");
}

std::string backup_next() {
    return with_aliases(kBackupKernel, kBackupRootdev);
}

std::string seven_entries() {
    return bool_entry("a_bool", true) + int_entry("an_int", 4000000000U) +
           string_entry("a_string", "some \\ text") + script_entry("a_script", "fis load\nexec\n") +
           entry(5, "an_ip", "\xC0\xA8\x01\x02") +
           entry(6, "an_esa", std::string("\x02\x00\x5e\x0A\xFF\x01\0\0", 8)) +
           enabled_entry(7, "a_port", "a_bool", 0, padded("eth0", 128));
}

std::string seven_scripts() {
    std::string entries;
    for (char key = 'a'; key < 'a' + 7; key++)
        entries += script_entry(std::string(1, key), "");
    return entries;
}

class TqctlFlash : public DeviceTest {
  protected:
    ~TqctlFlash() override { fs::remove(kPrinter); }

    static void print_marks(const std::string& lines) {
        write_file("/tmp/marks", lines);
        write_file(kPrinter, "#!/bin/sh\ncat /tmp/marks\n");
        ASSERT_EQ(chmod(kPrinter.c_str(), 0755), 0);
    }

    static inline const std::string kPrinter = "/usr/sbin/fw_printenv";
};

using TqctlImage = TqctlFlash;
using TqctlRedboot = TqctlFlash;
using TqctlSerial = TqctlFlash;

// Damage, by the diagnostics alone: data may be printed.
testing::AssertionResult is_damaged(const CommandResult& result, const std::string& what) {
    if (result.status == kDamaged && result.err.find(what) != std::string::npos)
        return testing::AssertionSuccess();
    return testing::AssertionFailure()
           << "exit code " << result.status << ", diagnostics \"" << result.err << '"';
}

// flash list

class ScopedTable {
  public:
    explicit ScopedTable(const std::string& text)
        : proc_(std::map<std::string, std::string>{{"mtd", text}}) {}

  private:
    ScopedProc proc_;
};

const std::string kTable =
    "dev:    size   erasesize  name\n"
    "mtd0: 00040000 00010000 \"RedBoot\"\n"
    "mtd12: 00180000 00001000 \"kernel bak\"\n";

// The leak detector of a sanitizer needs the process's own /proc, which the fixture has not.
CommandResult list_partitions(const std::string& options) {
    return run_command("ASAN_OPTIONS=detect_leaks=0 tqctl " + options + "flash list");
}

TEST_F(TqctlFlash, ListPrintsThePartitions) {
    const ScopedTable table(kTable);
    EXPECT_TRUE(succeeds(list_partitions(""),
                         "mtd0 0x00040000 0x00010000 RedBoot\n"
                         "mtd12 0x00180000 0x00001000 kernel bak\n"));
}

TEST_F(TqctlFlash, ListPrintsThePartitionsAsJson) {
    const ScopedTable table(kTable);
    EXPECT_TRUE(succeeds(
        list_partitions("-j "),
        "[{\"number\":0,\"name\":\"RedBoot\",\"size\":262144,\"erase_size\":65536},"
        "{\"number\":12,\"name\":\"kernel bak\",\"size\":1572864,\"erase_size\":4096}]\n"));
}

TEST_F(TqctlFlash, ListKeepsQuotesInNames) {
    const ScopedTable table("mtd1: 00000010 00000001 \"a \"b\" c\"\n");
    EXPECT_TRUE(succeeds(list_partitions(""), "mtd1 0x00000010 0x00000001 a \"b\" c\n"));
}

TEST_F(TqctlFlash, ListKnowsPartitionsOfMoreThanFourGigabytes) {
    const ScopedTable table("mtd1: 180000000 00020000 \"data\"\n");
    EXPECT_TRUE(succeeds(list_partitions(""), "mtd1 0x180000000 0x00020000 data\n"));
    EXPECT_TRUE(succeeds(list_partitions("-j "),
                         "[{\"number\":1,\"name\":\"data\",\"size\":6442450944,"
                         "\"erase_size\":131072}]\n"));
}

TEST_F(TqctlFlash, ListReportsALineThatIsNoPartition) {
    const ScopedTable table(kTable + "mtd13: nonsense\n\nmtd14: 1 1 \"\n" +
                            "mtd15: 00000001 00000001 \"last\"\n");
    const CommandResult result = list_partitions("");
    EXPECT_TRUE(is_damaged(result,
                           "tqctl: flash list: /proc/mtd: line 4 is no partition\n"
                           "tqctl: flash list: /proc/mtd: line 5 is no partition\n"
                           "tqctl: flash list: /proc/mtd: line 6 is no partition\n"));
    EXPECT_THAT(result.out, HasSubstr("mtd15 0x00000001 0x00000001 last\n"));
}

TEST_F(TqctlFlash, ListOfNoPartitionsIsEmpty) {
    const ScopedTable table("dev:    size   erasesize  name\n");
    EXPECT_TRUE(succeeds(list_partitions(""), ""));
    EXPECT_TRUE(succeeds(list_partitions("-j "), "[]\n"));
}

TEST_F(TqctlFlash, ListSaysThatThereIsNoFlash) {
    EXPECT_TRUE(fails(tqctl("flash list"), kRefused,
                      "tqctl: flash list: /proc/mtd: No such file or directory\n"));
}

// flash version

std::string image(const std::string& version) {
    return std::string(276, 'h') + padded(version, 24) + std::string(300, 't');
}

class TqctlVersion : public TqctlFlash {
  protected:
    TqctlVersion() {
        const std::string board = read_file("/etc/board.conf");
        write_file("/etc/board.conf", board.substr(0, board.find("[partitions]")) +
                                          "[partitions]\n"
                                          "primary_image = /tmp/primary\n"
                                          "backup_image = /tmp/backup\n"
                                          "backup_boot_loader = /tmp/boot\n");
        write_file("/tmp/primary", image("1.2.3"));
        write_file("/tmp/backup", image("1.2.2-rc1+build-20240917"));
        write_file("/tmp/boot", image("2009.08"));
        print_marks("Image1Stable=0\nImage2Stable=0\nUboot2Stable=0\n");
    }
};

TEST_F(TqctlVersion, IsPrintedOfAllImages) {
    EXPECT_TRUE(succeeds(tqctl("flash version"),
                         "primary=1.2.3\nbackup=1.2.2-rc1+build-20240917\nboot-loader=2009.08\n"));
    EXPECT_TRUE(succeeds(tqctl("-j flash version"),
                         "{\"primary\":\"1.2.3\",\"backup\":\"1.2.2-rc1+build-20240917\","
                         "\"boot-loader\":\"2009.08\"}\n"));
}

TEST_F(TqctlVersion, IsPrintedAloneOfOneImage) {
    EXPECT_TRUE(succeeds(tqctl("flash version backup"), "1.2.2-rc1+build-20240917\n"));
    EXPECT_TRUE(succeeds(tqctl("-j flash version boot-loader"), "{\"boot-loader\":\"2009.08\"}\n"));
}

TEST_F(TqctlVersion, IsRefusedOfAnUnusableImage) {
    print_marks("Image1Stable=1\nImage2Stable=0\nUboot2Stable=0\n");
    EXPECT_TRUE(fails(tqctl("flash version primary"), kRefused,
                      "tqctl: flash version: primary: not marked as usable\n"));
    const CommandResult all = tqctl("flash version");
    EXPECT_EQ(all.status, kRefused);
    EXPECT_EQ(all.out, "backup=1.2.2-rc1+build-20240917\nboot-loader=2009.08\n");
}

TEST_F(TqctlVersion, IsRefusedWhereThePartitionIsMissing) {
    fs::remove("/tmp/backup");
    EXPECT_TRUE(fails(tqctl("flash version backup"), kRefused,
                      "tqctl: flash version: backup: its partition cannot be read\n"));
    write_file("/tmp/backup", "");
    EXPECT_TRUE(fails(tqctl("flash version backup"), kRefused, "cannot be read\n"));
    write_file("/tmp/backup", std::string(512, ' '));
    EXPECT_TRUE(succeeds(tqctl("flash version backup"), std::string(24, ' ') + "\n"));
}

TEST_F(TqctlVersion, IsDamagedWhereItIsNoText) {
    write_file("/tmp/boot", image("1.\x80"));
    EXPECT_TRUE(fails(tqctl("flash version boot-loader"), kDamaged,
                      "boot-loader: bytes 276 to 299 of its partition are no version\n"));
    for (const std::string& content : {image(""), std::string(600, '\0'), std::string("x")}) {
        write_file("/tmp/boot", content);
        EXPECT_TRUE(fails(tqctl("flash version boot-loader"), kDamaged, "are no version\n"));
    }
}

TEST_F(TqctlVersion, ShowsControlCharactersAsEscapes) {
    write_file("/tmp/primary", image("1\x1b[2J"));
    EXPECT_TRUE(succeeds(tqctl("flash version primary"), "1\\x1b[2J\n"));
}

TEST_F(TqctlVersion, IsOfOneOfThreeImages) {
    EXPECT_TRUE(fails(tqctl("flash version third"), kUsage,
                      "'third' is neither primary nor backup nor boot-loader"));
}

// redboot list, get

TEST_F(TqctlRedboot, ListPrintsOneLineForEachEntry) {
    put_block(
        boot_block(seven_entries() + string_entry("empty", "") + string_entry("c\x01", "\x7f")));
    EXPECT_TRUE(succeeds(tqctl("redboot list"),
                         "a_bool=true\n"
                         "an_int=4000000000\n"
                         "a_string=some \\\\ text\n"
                         "a_script=fis load\\nexec\\n\n"
                         "an_ip=192.168.1.2\n"
                         "an_esa=02:00:5e:0a:ff:01\n"
                         "a_port=eth0\n"
                         "empty=\n"
                         "c\\x01=\\x7f\n"));
}

TEST_F(TqctlRedboot, ListPrintsObjectsAsJson) {
    put_block(boot_block(seven_entries()));
    const CommandResult result = tqctl("-j redboot list");
    EXPECT_EQ(result.status, kDone);
    EXPECT_EQ(result.out,
              "[{\"key\":\"a_bool\",\"type\":\"bool\",\"value\":\"true\"},"
              "{\"key\":\"an_int\",\"type\":\"int\",\"value\":\"4000000000\"},"
              "{\"key\":\"a_string\",\"type\":\"string\",\"value\":\"some \\\\ text\"},"
              "{\"key\":\"a_script\",\"type\":\"script\",\"value\":\"fis load\\nexec\\n\"},"
              "{\"key\":\"an_ip\",\"type\":\"ip\",\"value\":\"192.168.1.2\"},"
              "{\"key\":\"an_esa\",\"type\":\"esa\",\"value\":\"02:00:5e:0a:ff:01\"},"
              "{\"key\":\"a_port\",\"type\":\"netport\",\"value\":\"eth0\","
              "\"enable_key\":\"a_bool\",\"enable_sense\":false}]\n");
    EXPECT_NE(parse(result.out), nullptr);
}

TEST_F(TqctlRedboot, ListOfAnEmptyBlockIsEmpty) {
    put_block(boot_block(""));
    EXPECT_TRUE(succeeds(tqctl("redboot list"), ""));
    EXPECT_TRUE(succeeds(tqctl("-j redboot list"), "[]\n"));
}

TEST_F(TqctlRedboot, ListPrintsWhatIsSoundAndReportsTheRest) {
    put_block(boot_block(int_entry("good", 1) + entry(9, "odd", "")));
    const CommandResult result = tqctl("redboot list");
    EXPECT_EQ(result.out, "good=1\nodd=\n");
    EXPECT_TRUE(is_damaged(
        result, "tqctl: redboot list: bytes 21 to 28: 'odd' is of the unknown type 9\n"));
}

TEST_F(TqctlRedboot, GetPrintsTheValueAlone) {
    put_block(boot_block(seven_entries()));
    EXPECT_TRUE(succeeds(tqctl("redboot get a_bool"), "true\n"));
    EXPECT_TRUE(succeeds(tqctl("redboot get an_ip"), "192.168.1.2\n"));
    EXPECT_TRUE(succeeds(tqctl("redboot get a_string"), "some \\ text\n"));
    EXPECT_TRUE(succeeds(tqctl("redboot get a_script"), "fis load\nexec\n\n"));
    EXPECT_TRUE(
        succeeds(tqctl("-j redboot get a_script"), "{\"a_script\":\"fis load\\nexec\\n\"}\n"));
}

TEST_F(TqctlRedboot, GetPrintsATextThatFillsItsField) {
    put_block(boot_block(string_entry("s", std::string(128, 's')) +
                         script_entry("t", std::string(512, 't')) + int_entry("n", 1)));
    EXPECT_TRUE(succeeds(tqctl("redboot get s"), std::string(128, 's') + "\n"));
    EXPECT_TRUE(succeeds(tqctl("redboot get t"), std::string(512, 't') + "\n"));
    EXPECT_THAT(tqctl("redboot list").out, HasSubstr("t=" + std::string(512, 't') + "\n"));
}

TEST_F(TqctlRedboot, GetRefusesAKeyThatIsNotThere) {
    put_block(boot_block(seven_entries()));
    EXPECT_TRUE(fails(tqctl("redboot get nothing"), kRefused,
                      "tqctl: redboot get: nothing: no entry has this key\n"));
}

TEST_F(TqctlRedboot, AKeyWithoutATerminatorIsListedButNotFound) {
    const std::string block = boot_block(entry_with(2, 1, "key", 3, 0, word(1)));
    put_block(block);
    EXPECT_EQ(tqctl("redboot list").out, "key=1\n");
    for (const char* verb : {"redboot get key", "redboot set key=2"})
        EXPECT_TRUE(fails(tqctl(verb), kRefused, "key: no entry has this key\n"));
    EXPECT_EQ(block_in_flash(), block);
}

// Every verb on a block that does not load

TEST_F(TqctlRedboot, EveryVerbSaysWhichBytesAreDamaged) {
    std::string block = boot_block(seven_entries());
    block[100] = static_cast<char>(block[100] ^ 1);
    put_block(block);
    for (const char* verb : {"redboot list", "redboot get a_bool", "redboot set a_bool=true",
                             "redboot add int n 1", "redboot verify", "image status", "image check",
                             "image switch --yes", "sn get", "sn set 1"}) {
        const CommandResult result = tqctl(verb);
        EXPECT_TRUE(fails(result, kDamaged, "tqctl: ")) << verb;
        EXPECT_THAT(result.err, HasSubstr("bytes 4092 to 4095: the checksum is 0x"));
        EXPECT_EQ(block_in_flash(), block);
    }
}

// Flash without a block would be a hundred broken entries.
TEST_F(TqctlRedboot, FlashThatNeverHeldABlockIsDescribedByItsFrameAlone) {
    write_file(kFlash, flash_with(""));
    const CommandResult result = tqctl("redboot verify");
    EXPECT_TRUE(fails(result, kDamaged, "bytes 4 to 7: the first magic number is 0x"));
    EXPECT_EQ(std::ranges::count(result.err, '\n'), 3) << result.err;
    put_block(boot_block(""));
}

TEST_F(TqctlRedboot, ADamagedEntryIsNamedBesideTheChecksum) {
    std::string block = boot_block(seven_entries());
    block[8] = 9;
    put_block(block);
    const CommandResult result = tqctl("redboot verify");
    EXPECT_TRUE(is_damaged(result, "bytes 4092 to 4095: the checksum is 0x"));
    EXPECT_TRUE(is_damaged(result, "bytes 8 to 18: 'a_bool' is of the unknown type 9\n"));
}

TEST_F(TqctlRedboot, DamagedMagicNumbersAreNamed) {
    std::string block = boot_block("");
    block.replace(4, 4, word(0x0BADFACF)).replace(4088, 4, word(0));
    put_block(with_checksum(block));
    const CommandResult result = tqctl("redboot verify");
    EXPECT_TRUE(fails(result, kDamaged,
                      "tqctl: redboot verify: bytes 4 to 7: the first magic number is 0x0badfacf, "
                      "not 0x0badface\n"
                      "tqctl: redboot verify: bytes 4088 to 4091: the second magic number is "
                      "0x00000000, not 0xdeaddead\n"));
    block.replace(4092, 4, word(0x12345678));
    put_block(block);
    EXPECT_THAT(tqctl("redboot verify").err,
                HasSubstr("bytes 4092 to 4095: the checksum is 0x12345678, but that of bytes 0 to "
                          "4091 is 0x"));
}

TEST_F(TqctlRedboot, FlashThatIsTooShortIsDamaged) {
    write_file(kFlash, boot_block("").substr(0, 100));
    EXPECT_TRUE(fails(tqctl("redboot list"), kDamaged,
                      "/dev/mtdblock1: 100 bytes, too short for the block's 4096\n"));
    write_file(kFlash, "");
    EXPECT_TRUE(fails(tqctl("redboot list"), kDamaged,
                      "/dev/mtdblock1: 0 bytes, too short for the block's 4096\n"));
    put_block(boot_block(""));
}

TEST_F(TqctlRedboot, FlashThatCannotBeOpenedHasItsOwnCodes) {
    put_block(boot_block(""));
    EXPECT_TRUE(fails(run_command(kNobody + "tqctl redboot list"), kNotPermitted,
                      "/dev/mtdblock1: Permission denied\n"));
    fs::remove(kFlash);
    EXPECT_TRUE(
        fails(tqctl("redboot list"), kRefused, "/dev/mtdblock1: No such file or directory\n"));
    EXPECT_TRUE(fails(tqctl("sn get"), kRefused, "/dev/mtdblock1: No such file or directory\n"));
    put_block(boot_block(""));
}

// redboot set

TEST_F(TqctlRedboot, SetChangesEveryType) {
    put_block(boot_block(seven_entries()));
    EXPECT_TRUE(succeeds(tqctl("redboot set a_bool=false"), ""));
    EXPECT_TRUE(succeeds(tqctl("redboot set an_int=0x10"), ""));
    EXPECT_TRUE(succeeds(tqctl("redboot set 'a_string=other = text'"), ""));
    EXPECT_TRUE(succeeds(tqctl("redboot set a_script=" + quote("reset\n")), ""));
    EXPECT_TRUE(succeeds(tqctl("redboot set an_ip=10.0.0.255"), ""));
    EXPECT_TRUE(succeeds(tqctl("redboot set an_esa=0A:0b:01:02:03:ff"), ""));
    EXPECT_TRUE(succeeds(tqctl("redboot set a_port=npe_eth1"), ""));
    const std::string expected =
        bool_entry("a_bool", false) + int_entry("an_int", 16) +
        string_entry("a_string", "other = text") + script_entry("a_script", "reset\n") +
        entry(5, "an_ip", std::string("\x0A\0\0\xFF", 4)) +
        entry(6, "an_esa", std::string("\x0A\x0B\x01\x02\x03\xFF\0\0", 8)) +
        enabled_entry(7, "a_port", "a_bool", 0, padded("npe_eth1", 128));
    EXPECT_EQ(read_file(kFlash), flash_with(boot_block(expected)));
}

TEST_F(TqctlRedboot, SetRefusesWhatIsNoValueOfTheType) {
    const std::string block = boot_block(seven_entries() + entry(9, "odd", ""));
    put_block(block);
    const std::vector<std::pair<std::string, std::string>> refused = {
        {"a_bool=1", "a bool is true or false"},
        {"a_bool=", "a bool is true or false"},
        {"an_int=-1", "an int is a number from 0 to 4294967295"},
        {"an_int=4294967296", "an int is a number"},
        {"an_int=99999999999999999999999", "an int is a number"},
        {"an_int=1x", "an int is a number"},
        {"an_int=", "an int is a number"},
        {"'an_int= -18446744073709551615'", "an int is a number"},
        {"an_int=+1", "an int is a number"},
        {"an_ip=1.2.3", "an ip is written as 192.0.2.1"},
        {"an_ip=1.2.3.256", "an ip is written as"},
        {"an_esa=02:00:5e:0a:ff", "an esa is written as"},
        {"an_esa=02:00:5e:0a:ff:01:02", "an esa is written as"},
        {"an_esa=-1:00:5e:0a:ff:01", "an esa is written as"},
        {"'an_esa= 2:00:5e:0a:ff:01'", "an esa is written as"},
        {"an_esa=02:00:5e:0a:ff:0x1", "an esa is written as"},
        {"an_esa=0A:0b:1:02:03:ff", "an esa is written as"},
        {"a_string=" + std::string(128, 'x'), "a text is at most 127 bytes long"},
        {"a_script=" + std::string(128, 'x'), "a text is at most 127 bytes long"},
        {"odd=1", "an entry of unknown type has no value"},
        {"nothing=1", "no entry has this key"},
    };
    for (const auto& [argument, why] : refused)
        EXPECT_TRUE(fails(tqctl("redboot set " + argument), kRefused, why)) << argument;
    for (const char* argument : {"a_bool", "=1"})
        EXPECT_TRUE(fails(tqctl(std::string("redboot set ") + argument), kUsage, "not KEY=VALUE"));
    EXPECT_EQ(block_in_flash(), block);
}

TEST_F(TqctlRedboot, SetTakesANumberWithALeadingZeroAsDecimal) {
    put_block(boot_block(seven_entries()));
    EXPECT_TRUE(succeeds(tqctl("redboot set an_int=010"), ""));
    EXPECT_TRUE(succeeds(tqctl("redboot get an_int"), "10\n"));
}

TEST_F(TqctlRedboot, SetTakesTheLongestTextAndTheLargestNumber) {
    put_block(boot_block(seven_entries()));
    const std::string longest(127, 'x');
    EXPECT_TRUE(succeeds(tqctl("redboot set a_string=" + longest), ""));
    EXPECT_TRUE(succeeds(tqctl("redboot get a_string"), longest + "\n"));
    EXPECT_TRUE(succeeds(tqctl("redboot set an_int=4294967295"), ""));
    EXPECT_TRUE(succeeds(tqctl("redboot get an_int"), "4294967295\n"));
}

TEST_F(TqctlRedboot, SetSaysThatTheBlockCannotBeWritten) {
    put_block(boot_block(int_entry("n", 1)));
    const CommandResult result = run_command("trap '' XFSZ; ulimit -f 1; tqctl redboot set n=2");
    EXPECT_TRUE(fails(result, kInputOutput, "/dev/mtdblock1: the block could not be written\n"));
    // 512 bytes of the new block, the rest of the old one: the next load says so.
    EXPECT_TRUE(is_damaged(tqctl("redboot verify"), "bytes 4092 to 4095: the checksum is"));
}

// redboot add

TEST_F(TqctlRedboot, AddAppendsEveryType) {
    put_block(boot_block(""));
    EXPECT_TRUE(succeeds(tqctl("redboot add bool a_bool true"), ""));
    EXPECT_TRUE(succeeds(tqctl("redboot add int an_int 4000000000"), ""));
    EXPECT_TRUE(succeeds(tqctl("redboot add string a_string " + quote("some \\ text")), ""));
    EXPECT_TRUE(succeeds(tqctl("redboot add script a_script " + quote("fis load\nexec\n")), ""));
    EXPECT_TRUE(succeeds(tqctl("redboot add ip an_ip 192.168.1.2"), ""));
    EXPECT_TRUE(succeeds(tqctl("redboot add esa an_esa 02:00:5e:0a:ff:01"), ""));
    EXPECT_TRUE(succeeds(tqctl("redboot add netport a_port eth0 a_bool false"), ""));
    EXPECT_EQ(read_file(kFlash), flash_with(boot_block(seven_entries())));
    EXPECT_TRUE(succeeds(tqctl("redboot add int more 1 a_bool"), ""));
    EXPECT_TRUE(succeeds(tqctl("redboot add int most 2 a_bool true"), ""));
    EXPECT_EQ(block_in_flash(),
              boot_block(seven_entries() + enabled_entry(2, "more", "a_bool", 1, word(1)) +
                         enabled_entry(2, "most", "a_bool", 1, word(2))));
}

TEST_F(TqctlRedboot, AddRefusesAKeyThatIsThereAndWrongArguments) {
    const std::string block = boot_block(seven_entries());
    put_block(block);
    EXPECT_TRUE(fails(tqctl("redboot add int an_int 1"), kRefused, "is there already; see set"));
    EXPECT_TRUE(fails(tqctl("redboot add int n x"), kRefused, "an int is a number"));
    EXPECT_TRUE(fails(tqctl("redboot add word n 1"), kUsage, "there is no type 'word'"));
    EXPECT_TRUE(fails(tqctl("redboot add int '' 1"), kUsage, "'' is not a key"));
    EXPECT_TRUE(fails(tqctl("redboot add int a=b 1"), kUsage, "'a=b' is not a key"));
    EXPECT_TRUE(fails(tqctl("redboot add int n 1 ''"), kUsage, "'' is not a key"));
    EXPECT_TRUE(
        fails(tqctl("redboot add int n 1 a_bool yes"), kUsage, "'yes' is neither true nor false"));
    EXPECT_EQ(block_in_flash(), block);
}

TEST_F(TqctlRedboot, AddSaysThatThereIsNoRoom) {
    const std::string block = boot_block(seven_scripts());
    put_block(block);
    EXPECT_TRUE(fails(tqctl("redboot add script eighth x"), kRefused,
                      "tqctl: redboot add: No space to add 'eighth'\n"));
    EXPECT_EQ(block_in_flash(), block);
}

TEST_F(TqctlRedboot, AddRefusesFreeSpaceThatWouldChangeTheKey) {
    const std::string area = int_entry("first", 1) + '\0' + std::string(4000, '\x01');
    const std::string block = boot_block(area);
    put_block(block);
    EXPECT_TRUE(fails(tqctl("redboot add int key 1"), kDamaged,
                      "tqctl: redboot add: key: the free space is not as it should be; see redboot "
                      "verify\n"));
    EXPECT_EQ(block_in_flash(), block);
}

// redboot verify

TEST_F(TqctlRedboot, VerifyPrintsWhatASoundBlockHolds) {
    put_block(boot_block(seven_entries()));
    EXPECT_TRUE(succeeds(
        tqctl("redboot verify"),
        "sound: 7 entries in " + std::to_string(seven_entries().size()) + " of 4080 bytes\n"));
    EXPECT_TRUE(succeeds(tqctl("-j redboot verify"),
                         "{\"entries\":7,\"used\":" + std::to_string(seven_entries().size()) +
                             ",\"free\":" + std::to_string(4080 - seven_entries().size()) + "}\n"));
    put_block(boot_block(""));
    EXPECT_TRUE(succeeds(tqctl("redboot verify"), "sound: 0 entries in 0 of 4080 bytes\n"));
}

TEST_F(TqctlRedboot, VerifyNamesTheBytesOfEachDamage) {
    const std::vector<std::pair<std::string, std::string>> damages = {
        {entry_with(2, 1, "key", 3, 0, word(1)),
         "bytes 8 to 18: an entry whose key has no terminator in its 3 bytes"},
        {entry_with(2, 1, "", 0, 0, word(1)),
         "bytes 8 to 15: an entry whose key has no terminator in its 0 bytes"},
        {entry_with(2, 1, std::string("k\0on", 4), 2, 2, word(1)),
         "bytes 8 to 19: the enable key of 'k' has no terminator in its 2 bytes"},
        {int_entry("a", 1) + entry(77, "b", ""), "bytes 18 to 23: 'b' is of the unknown type 77"},
        {int_entry("a", 1) + int_entry("a", 2),
         "bytes 18 to 27: a second entry 'a'; the first is at byte 8"},
        {int_entry("a", 1) + std::string(100, '\0') + "x",
         "bytes 18 to 4087: the free space is not zero from byte 118 on"},
        {seven_scripts() + "\x04\xff\xff\xff",
         "bytes 3634 to 4087: an entry that does not fit into the 454 bytes that are left"},
    };
    for (const auto& [entries, what] : damages) {
        put_block(boot_block(entries));
        const CommandResult result = tqctl("redboot verify");
        EXPECT_TRUE(fails(result, kDamaged, "tqctl: redboot verify: " + what)) << result.err;
    }
}

TEST_F(TqctlRedboot, VerifyEndsOnHostileEntries) {
    for (const char byte : {'\x01', '\x02', '\x04', '\x7f', '\xff'}) {
        put_block(boot_block(std::string(4080, byte)));
        EXPECT_EQ(tqctl("redboot verify").status, kDamaged);
    }
}

TEST_F(TqctlRedboot, VerifyTakesABlockThatIsFullToTheLastByte) {
    std::string entries = seven_scripts();
    entries += string_entry("s", "") + string_entry("t", "") + string_entry("u", "");
    entries += int_entry(std::string(4080 - entries.size() - 9, 'k'), 1);
    ASSERT_EQ(entries.size(), 4080U);
    put_block(boot_block(entries));
    EXPECT_TRUE(succeeds(tqctl("redboot verify"), "sound: 11 entries in 4080 of 4080 bytes\n"));
}

// redboot dump

TEST_F(TqctlRedboot, DumpPrintsTheBytes) {
    put_block(boot_block(bool_entry("boot_script", true) +
                         enabled_entry(2, "boot_script_timeout", "boot_script", 1, word(5))));
    EXPECT_TRUE(
        succeeds(tqctl("redboot dump"),
                 "0000  00 10 00 00 ce fa ad 0b 01 0c 01 00 62 6f 6f 74  ............boot\n"
                 "0010  5f 73 63 72 69 70 74 00 01 00 00 00 02 14 01 0c  _script.........\n"
                 "0020  62 6f 6f 74 5f 73 63 72 69 70 74 5f 74 69 6d 65  boot_script_time\n"
                 "0030  6f 75 74 00 62 6f 6f 74 5f 73 63 72 69 70 74 00  out.boot_script.\n"
                 "0040  05 00 00 00 00 00 00 00 00 00 00 00 00 00 00 00  ................\n"
                 "0050  00 00 00 00 00 00 00 00 00 00 00 00 00 00 00 00  ................\n"
                 "*\n"
                 "0ff0  00 00 00 00 00 00 00 00 ad de ad de c5 ce 12 e6  ................\n"));
}

TEST_F(TqctlRedboot, DumpPrintsTheBytesAsJson) {
    put_block(boot_block(""));
    const CommandResult result = tqctl("-j redboot dump");
    EXPECT_EQ(result.status, kDone);
    const std::string hex = member(parse(result.out), "block");
    EXPECT_EQ(hex.size(), 8192U);
    EXPECT_THAT(hex,
                AllOf(StartsWith("00100000cefaad0b0000"), testing::EndsWith("addeaddef0c493c2")));
}

TEST_F(TqctlRedboot, DumpPrintsADamagedBlockToo) {
    put_block(std::string(4096, '\xff'));
    const CommandResult result = tqctl("redboot dump");
    EXPECT_TRUE(is_damaged(result, "bytes 4 to 7: the first magic number is 0xffffffff"));
    EXPECT_EQ(result.out,
              "0000  ff ff ff ff ff ff ff ff ff ff ff ff ff ff ff ff  ................\n*\n");
}

// image

TEST_F(TqctlImage, CheckPrintsWhichImageIsNext) {
    put_block(boot_block(primary_next()));
    EXPECT_TRUE(succeeds(tqctl("image check"), "primary\n"));
    put_block(boot_block(backup_next()));
    EXPECT_TRUE(succeeds(tqctl("image check"), "backup\n"));
    EXPECT_TRUE(succeeds(tqctl("-j image check"), "{\"next\":\"backup\"}\n"));
}

TEST_F(TqctlImage, CheckSaysThatTheBlockDoesNotTell) {
    put_block(boot_block(int_entry("n", 1)));
    EXPECT_TRUE(fails(tqctl("image check"), kRefused,
                      "tqctl: image check: the block has no boot script or no alias/kernel\n"));
}

TEST_F(TqctlImage, StatusPrintsWhatIsKnown) {
    put_block(boot_block(backup_next()));
    print_marks("Image1Stable=0\nImage2Stable=1\n");
    EXPECT_TRUE(succeeds(tqctl("image status"),
                         "active=primary\nnext=backup\nprimary_version=1.2.3\n"
                         "backup_version=1.2.2\nprimary_usable=true\nbackup_usable=false\n"));
    EXPECT_TRUE(succeeds(tqctl("-j image status"),
                         "{\"active\":\"primary\",\"next\":\"backup\",\"primary_version\":"
                         "\"1.2.3\",\"backup_version\":\"1.2.2\",\"primary_usable\":true,"
                         "\"backup_usable\":false}\n"));
    put_block(boot_block(string_entry("pri_pelkin_ver", "1.2.3")));
    print_marks("Image1Stable=1\nImage2Stable=0\n");
    const CommandResult unknown = tqctl("image status");
    EXPECT_EQ(unknown.status, kRefused);
    EXPECT_EQ(unknown.out,
              "active=primary\nnext=unknown\nprimary_version=1.2.3\nprimary_usable=false\n"
              "backup_usable=true\n");
}

TEST_F(TqctlImage, SwitchAsksFirstAndGoesThereAndBack) {
    put_block(boot_block(primary_next()));
    for (const char* answer : {"n", "", "no", "yesterday", "Y "}) {
        const CommandResult result =
            run_command("echo '" + std::string(answer) + "' | tqctl image switch");
        EXPECT_TRUE(fails(result, kRefused,
                          "start the backup image next time? [y/N] tqctl: image switch: not "
                          "confirmed, nothing was changed\n"))
            << answer;
    }
    EXPECT_TRUE(fails(run_command("tqctl image switch </dev/null"), kRefused, "not confirmed"));
    EXPECT_TRUE(fails(run_command("echo yes | tqctl -q image switch"), kRefused, ""));
    EXPECT_EQ(block_in_flash(), boot_block(primary_next()));
    const CommandResult result = run_command("echo yes | tqctl image switch");
    EXPECT_EQ(result.status, kDone);
    EXPECT_EQ(result.out, "backup\n");
    EXPECT_EQ(read_file(kFlash), flash_with(boot_block(backup_next())));
    EXPECT_THAT(run_command("echo n | tqctl image switch").err,
                HasSubstr("start the primary image next time?"));
    EXPECT_TRUE(succeeds(tqctl("-j image switch --yes"), "{\"next\":\"primary\"}\n"));
    EXPECT_EQ(read_file(kFlash), flash_with(boot_block(primary_next())));
}

TEST_F(TqctlImage, SwitchRehearsesWithoutChangingAnything) {
    put_block(boot_block(primary_next()));
    EXPECT_TRUE(succeeds(tqctl("image switch --dry-run"),
                         "alias/kernel: kernel -> \"kernel bak\"\n"
                         "alias/rootdev: rootfs -> \"rootfs bak\"\n"));
    EXPECT_TRUE(
        succeeds(tqctl("-j image switch --dry-run"),
                 "{\"alias/kernel\":{\"from\":\"kernel\",\"to\":\"\\\"kernel bak\\\"\"},"
                 "\"alias/rootdev\":{\"from\":\"rootfs\",\"to\":\"\\\"rootfs bak\\\"\"}}\n"));
    EXPECT_TRUE(succeeds(tqctl("image switch --yes --dry-run"),
                         "alias/kernel: kernel -> \"kernel bak\"\n"
                         "alias/rootdev: rootfs -> \"rootfs bak\"\n"));
    EXPECT_EQ(block_in_flash(), boot_block(primary_next()));
}

TEST_F(TqctlImage, SwitchRehearsesEveryChange) {
    put_block(boot_block(bool_entry("boot_script", false) + script_entry("boot_script_data", "x") +
                         int_entry("boot_script_timeout", 9) +
                         string_entry("qak_pelkin_ver", "1.2.2") +
                         string_entry("alias/kernel", "kernel")));
    EXPECT_TRUE(succeeds(tqctl("image switch --dry-run"),
                         "boot_script: false -> true\n"
                         "boot_script_data: x -> fis load -d %{kernel}\\nexec\\n\n"
                         "boot_script_timeout: 9 -> 5\n"
                         "alias/kernel: kernel -> \"kernel bak\"\n"
                         "alias/rootdev: added as \"rootfs bak\"\n"));
}

TEST_F(TqctlImage, SwitchRehearsesOnlyTheFirstOfTwoEntriesWithOneKey) {
    put_block(boot_block(primary_next() + string_entry("alias/kernel", "a second")));
    EXPECT_TRUE(succeeds(tqctl("image switch --dry-run"),
                         "alias/kernel: kernel -> \"kernel bak\"\n"
                         "alias/rootdev: rootfs -> \"rootfs bak\"\n"));
}

TEST_F(TqctlImage, SwitchRehearsesInJsonWithTheValuesAsTheyAre) {
    put_block(boot_block(
        bool_entry("boot_script", true) + script_entry("boot_script_data", "a\\b\n") +
        string_entry("alias/rootdev", "other") + string_entry("pri_pelkin_ver", "1.2.3")));
    const std::string out = tqctl("-j image switch --dry-run").out;
    EXPECT_EQ(out,
              "{\"boot_script_data\":{\"from\":\"a\\\\b\\n\",\"to\":\"fis load -d "
              "%{kernel}\\nexec\\n\"},"
              "\"alias/rootdev\":{\"from\":\"other\",\"to\":\"rootfs\"},"
              "\"alias/kernel\":{\"to\":\"kernel\"}}\n");
}

// Where the library's check does not tell, or tells the other one, the switch still has a target.
TEST_F(TqctlImage, SwitchAsksAboutTheImageThatItGoesTo) {
    const std::string versions =
        string_entry("pri_pelkin_ver", "1.2.3") + string_entry("qak_pelkin_ver", "1.2.2");
    const std::string other_script =
        bool_entry("boot_script", true) + script_entry("boot_script_data", "x") + versions;
    const std::vector<std::pair<std::string, std::string>> blocks = {
        {other_script, "backup"},
        {other_script + string_entry("alias/kernel", kBackupKernel), "primary"},
        {other_script + string_entry("alias/kernel", "kernel"), "backup"},
    };
    for (const auto& [entries, image] : blocks) {
        put_block(boot_block(entries));
        EXPECT_EQ(run_command("echo n | tqctl image switch").err,
                  "tqctl: image switch: start the " + image +
                      " image next time? [y/N] "
                      "tqctl: image switch: not confirmed, nothing was changed\n");
        EXPECT_TRUE(succeeds(tqctl("image switch --yes"), image + "\n"));
    }
}

// The rehearsal and the switch come to the same block.
TEST_F(TqctlImage, SwitchDoesWhatWasRehearsed) {
    const std::string versions =
        string_entry("pri_pelkin_ver", "1.2.3") + string_entry("qak_pelkin_ver", "0.0.0");
    const std::string entries = bool_entry("boot_script", false) +
                                script_entry("boot_script_data", kScript + "\n") +
                                int_entry("boot_script_timeout", 9) + versions;
    put_block(boot_block(entries + string_entry("alias/rootdev", kBackupRootdev)));
    EXPECT_TRUE(succeeds(tqctl("image switch --dry-run"),
                         "boot_script: false -> true\n"
                         "boot_script_data: fis load -d %{kernel}\\nexec\\n\\n -> fis load -d "
                         "%{kernel}\\nexec\\n\n"
                         "boot_script_timeout: 9 -> 5\n"
                         "alias/rootdev: \"rootfs bak\" -> rootfs\n"
                         "alias/kernel: added as kernel\n"));
    EXPECT_TRUE(succeeds(tqctl("image switch --yes"), "primary\n"));
    EXPECT_EQ(block_in_flash(), boot_block(bool_entry("boot_script", true) +
                                           script_entry("boot_script_data", kScript) +
                                           int_entry("boot_script_timeout", 5) + versions +
                                           string_entry("alias/rootdev", "rootfs") +
                                           string_entry("alias/kernel", "kernel")));
}

TEST_F(TqctlImage, SwitchRefusesWhatCannotBeSwitched) {
    const std::string script =
        bool_entry("boot_script", true) + script_entry("boot_script_data", kScript);
    const std::vector<std::pair<std::string, std::string>> refused = {
        {"", "the block has no entry boot_script"},
        {bool_entry("boot_script", true), "the block has no script boot_script_data"},
        {script + string_entry("alias/kernel", "kernel"), "there is no backup image"},
        {script + string_entry("alias/kernel", kBackupKernel), "there is no primary image"},
        {script + string_entry("alias/kernel", "kernel") + string_entry("qak_pelkin_ver", "1") +
             string_entry("pri_pelkin_ver", "1") + int_entry("alias/rootdev", 1),
         "an alias is of another type than string"},
        {script + entry(200, std::string(250, 'x'), "") + script_entry("1", "") +
             script_entry("2", "") + script_entry("3", "") + script_entry("4", "") +
             script_entry("5", "") + script_entry("6", ""),
         "there is no room for an alias"},
        {script + string_entry("alias/kernel", "kernel") + string_entry("qak_pelkin_ver", "1") +
             '\0' + std::string(1000, '\x01'),
         "the block's free space is not as it should be; see redboot verify"},
    };
    for (const auto& [entries, why] : refused) {
        const std::string block = boot_block(entries);
        put_block(block);
        for (const char* how : {"--yes", "--dry-run"})
            EXPECT_TRUE(fails(tqctl(std::string("image switch ") + how), kRefused,
                              "tqctl: image switch: " + why + "\n"));
        EXPECT_EQ(block_in_flash(), block);
    }
    EXPECT_TRUE(fails(tqctl("image switch --force"), kUsage, "--yes and --dry-run only"));
}

TEST_F(TqctlImage, SwitchSaysThatTheBlockCannotBeWritten) {
    put_block(boot_block(primary_next()));
    EXPECT_TRUE(fails(run_command("trap '' XFSZ; ulimit -f 1; tqctl image switch --yes"),
                      kInputOutput, "tqctl: image switch: the block could not be written\n"));
}

// sn

TEST_F(TqctlSerial, IsSetAndRead) {
    put_block(boot_block(int_entry("n", 1)));
    EXPECT_TRUE(fails(tqctl("sn get"), kRefused, "tqctl: sn get: there is no serial number\n"));
    EXPECT_TRUE(succeeds(tqctl("sn set 'SN 0001'"), ""));
    EXPECT_EQ(read_file(kFlash),
              flash_with(boot_block(int_entry("n", 1) + string_entry("serial_number", "SN 0001"))));
    EXPECT_TRUE(succeeds(tqctl("sn get"), "SN 0001\n"));
    EXPECT_TRUE(succeeds(tqctl("-j sn get"), "{\"serial_number\":\"SN 0001\"}\n"));
}

TEST_F(TqctlSerial, OfItsWholeFieldIsRead) {
    put_block(boot_block(string_entry("serial_number", std::string(128, 's')) + int_entry("n", 1)));
    EXPECT_TRUE(succeeds(tqctl("sn get"), std::string(128, 's') + "\n"));
}

// The library would put as much of it there as the entry's type has room for.
TEST_F(TqctlSerial, IsNotStoredInAnEntryOfAnotherType) {
    const std::string block = boot_block(int_entry("serial_number", 7));
    put_block(block);
    EXPECT_TRUE(fails(tqctl("sn set 12345"), kRefused,
                      "tqctl: sn set: serial_number is of another type than string\n"));
    EXPECT_EQ(block_in_flash(), block);
}

TEST_F(TqctlSerial, ThatIsEmptyOrTooLongIsRefused) {
    const std::string block = boot_block(string_entry("serial_number", "A1"));
    put_block(block);
    EXPECT_TRUE(fails(tqctl("sn set ''"), kUsage, "tqctl: sn set: the serial number is empty\n"));
    EXPECT_TRUE(fails(tqctl("sn set " + std::string(128, 's')), kRefused,
                      "a serial number is at most 127 bytes long"));
    EXPECT_EQ(block_in_flash(), block);
}

TEST_F(TqctlSerial, SaysThatThereIsNoRoomAndThatTheBlockCannotBeWritten) {
    put_block(boot_block(std::string(4080, '\x01')));
    EXPECT_TRUE(
        fails(tqctl("sn set 1"), kRefused, "tqctl: sn set: No space to add 'serial_number'\n"));
    // Added there, its key would become another.
    const std::string block = boot_block('\0' + std::string(1000, '\x01'));
    put_block(block);
    EXPECT_TRUE(fails(tqctl("sn set 1"), kDamaged,
                      "tqctl: sn set: serial_number: the free space is not as it should be; see "
                      "redboot verify\n"));
    EXPECT_EQ(block_in_flash(), block);
    put_block(boot_block(""));
    EXPECT_TRUE(fails(run_command("trap '' XFSZ; ulimit -f 1; tqctl sn set 1"), kInputOutput,
                      "the block could not be written\n"));
}

// The library waits a second between writing and returning: time for the flash to change.
TEST_F(TqctlSerial, ThatDoesNotReadBackIsDamage) {
    put_block(boot_block(""));
    const CommandResult result = run_command(
        "tqctl sn set CHANGED & setter=$!\n"
        "until grep -q CHANGED /dev/mtdblock1; do sleep 0.01; done\n"
        "printf '\\001\\002' | dd of=/dev/mtdblock1 bs=1 seek=1000 conv=notrunc 2>/dev/null\n"
        "wait $setter");
    EXPECT_TRUE(fails(result, kDamaged,
                      "tqctl: sn set: /dev/mtdblock1: bytes 1000 to 1001 are not what was written; "
                      "write the block again\n"));
}

}  // namespace
