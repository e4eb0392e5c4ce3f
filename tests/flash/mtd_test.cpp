// mtd_test.cpp - flash partitions by name, image versions, and the stable marks as a real
// fw_printenv reads them. The device has no MTD: files stand in for the device nodes, and what
// /proc/mtd lists is a fixture.
#include "tq/mtd.h"

#include <dlfcn.h>
#include <fcntl.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sys/stat.h>
#include <tq/oem.h>
#include <unistd.h>

#include <cerrno>
#include <filesystem>
#include <map>
#include <optional>
#include <string>
#include <utility>
#include <vector>

#include "support/boot_block.h"
#include "support/buffer.h"
#include "support/device.h"
#include "support/faults.h"
#include "support/log_capture.h"

namespace {

namespace fs = std::filesystem;

using namespace tq_test;  // NOLINT(google-build-using-namespace)
using testing::ElementsAre;
using testing::IsEmpty;
using tq_test::faults::Fail;

// How the board library was last asked for a partition, and an answer in place of the board's.
std::pair<int, std::string> asked;
std::optional<int> answer_of_test;

}  // namespace

int tq_get_oem_ap_type_partion_info(int selector, char* out, int len) {
    asked = {selector, std::string(out, static_cast<size_t>(len))};
    if (answer_of_test) return *answer_of_test;
    auto* board =
        reinterpret_cast<decltype(&tq_get_oem_ap_type_partion_info)>(dlsym(RTLD_NEXT, __func__));
    return board(selector, out, len);
}

namespace {

const std::string kTable =
    "dev:    size   erasesize  name\n"
    "mtd0: 00040000 00010000 \"RedBoot\"\n"
    "mtd1: 00001000 00001000 \"RedBoot config\"\n"
    "mtd2: 00180000 00010000 \"kernel\"\n"
    "mtd3: 00600000 00010000 \"rootfs\"\n"
    "mtd4: 00180000 00010000 \"kernel bak\"\n"
    "mtd5: 00300000 00010000 \"rootfs_data\"\n"
    "mtd6: 00040000 00010000 \"RedBoot\"\n"
    "mtd17: 00040000 00010000 \"boot2\"\n";

// What the kernel lists as /proc/mtd.
class MtdTable {
  public:
    explicit MtdTable(const std::string& text)
        : proc_(std::map<std::string, std::string>{{"mtd", text}}) {}

  private:
    ScopedProc proc_;
};

class Mtd : public DeviceTest {
  protected:
    Mtd() {
        for (const std::string& node : nodes()) {
            for (const char* kind : {"mtd", "mtdblock"}) {
                write_file("/dev/" + (kind + node), kind + node);
            }
        }
    }
    ~Mtd() override {
        for (const char* directory : {"/dev/mtd", "/dev/mtdblock"})
            fs::remove_all(directory);
        for (const std::string& node : nodes()) {
            for (const char* kind : {"mtd", "mtdblock"})
                fs::remove("/dev/" + (kind + node));
        }
        fs::remove(kPrinter);
    }

    static std::vector<std::string> nodes() { return {"0", "2", "3", "4", "5", "6", "17"}; }

    // Stands in for the command, found before the real one.
    static void replace_printer(const std::string& script) {
        write_file(kPrinter, "#!/bin/sh\n" + script);
        ASSERT_EQ(chmod(kPrinter.c_str(), 0755), 0);
    }
    static void print_marks(int primary, int backup, int boot_loader) {
        replace_printer("echo Image1Stable=" + std::to_string(primary) +
                        "\necho Image2Stable=" + std::to_string(backup) +
                        "\necho Uboot2Stable=" + std::to_string(boot_loader) + "\n");
    }

    static inline const std::string kPrinter = "/usr/sbin/fw_printenv";
    LogCapture log_;
};

// What is read from the descriptor, which is closed.
std::string content(int fd) {
    if (fd < 0) return "not open";
    std::string bytes(100, '\0');
    bytes.resize(static_cast<size_t>(read(fd, bytes.data(), bytes.size())));
    close(fd);
    return bytes;
}

auto Failed(const char* function, int line, const std::string& text) {
    return ElementsAre(LineAt(LOG_ERR, function, line, text));
}

// mtd_open_match, mtd_open

TEST_F(Mtd, OpensAPartitionByItsName) {
    const MtdTable table(kTable);
    EXPECT_EQ(content(mtd_open("kernel", 0)), "mtd2");
    EXPECT_EQ(content(mtd_open("kernel", 1)), "mtdblock2");
    EXPECT_EQ(content(mtd_open("kernel", 255)), "mtdblock2");
    EXPECT_EQ(content(mtd_open("boot2", 0)), "mtd17");
    EXPECT_THAT(log_.take(), IsEmpty());
}

TEST_F(Mtd, TellsNamesThatContainOneAnotherApart) {
    const MtdTable table(kTable);
    EXPECT_EQ(content(mtd_open("rootfs", 0)), "mtd3");
    EXPECT_EQ(content(mtd_open("rootfs_data", 0)), "mtd5");
    EXPECT_EQ(content(mtd_open("kernel bak", 0)), "mtd4");
    for (const char* part : {"rootf", "ootfs", "bak", "", "KERNEL", "dev:"})
        EXPECT_EQ(mtd_open(part, 0), -1) << part;
}

TEST_F(Mtd, FindsNamesWithQuotesAndPercentSignsInThem) {
    const MtdTable table(
        "mtd2: 00180000 00010000 \"a\"b\"\n"
        "mtd3: 00180000 00010000 \"%s%n\"\n");
    EXPECT_EQ(content(mtd_open("a\"b", 0)), "mtd2");
    EXPECT_EQ(content(mtd_open("a", 0)), "mtd2");
    EXPECT_EQ(content(mtd_open("%s%n", 0)), "mtd3");
}

TEST_F(Mtd, OpensTheSecondOfANameByIndex) {
    const MtdTable table(kTable);
    EXPECT_EQ(content(mtd_open_match("RedBoot", 0, 0)), "mtd0");
    EXPECT_EQ(content(mtd_open_match("RedBoot", 1, 0)), "mtd6");
    EXPECT_EQ(content(mtd_open_match("RedBoot", 1, 1)), "mtdblock6");
    EXPECT_EQ(mtd_open_match("RedBoot", 2, 0), -1);
    EXPECT_EQ(content(mtd_open("RedBoot", 0)), "mtd0");
}

TEST_F(Mtd, CountsPartitionLinesOnly) {
    const MtdTable table(
        "\"kernel\"\n"
        "abc3: \"kernel\"\n"
        "mtdx: \"kernel\"\n"
        " mtd3: \"kernel\"\n"
        "mtd: \"kernel\"\n"
        "mtd 4: \"kernel\"\n"
        "mtd4294967299: \"kernel\"\n"
        "mtd2: \"kernel\"\n");
    EXPECT_EQ(content(mtd_open_match("kernel", 0, 0)), "mtd4");
    EXPECT_EQ(content(mtd_open_match("kernel", 1, 0)), "mtd2");
    EXPECT_EQ(mtd_open_match("kernel", 2, 0), -1);
}

TEST_F(Mtd, PrefersTheNodesInDirectories) {
    const MtdTable table(kTable);
    write_file("/dev/mtd/2", "directory 2");
    write_file("/dev/mtdblock/3", "block directory 3");
    EXPECT_EQ(content(mtd_open("kernel", 0)), "directory 2");
    EXPECT_EQ(content(mtd_open("kernel", 1)), "mtdblock2");
    EXPECT_EQ(content(mtd_open("rootfs", 1)), "block directory 3");
    EXPECT_EQ(content(mtd_open("rootfs", 0)), "mtd3");
}

TEST_F(Mtd, TakesTheOtherNodeWhateverKeepsTheOneInTheDirectoryFromOpening) {
    const MtdTable table(kTable);
    fs::create_directory("/dev/mtd");
    fs::create_symlink("2", "/dev/mtd/2");
    EXPECT_EQ(open("/dev/mtd/2", O_RDONLY), -1);
    EXPECT_EQ(errno, ELOOP);
    EXPECT_EQ(content(mtd_open("kernel", 0)), "mtd2");
}

TEST_F(Mtd, FailsWhereThePartitionHasNoNode) {
    const MtdTable table(kTable + "mtd9: 1 1 \"/tmp/named\"\nmtd9: 1 1 \"gone\"\n");
    fs::current_path("/tmp");
    write_file("/tmp/gone", "a file of the name");
    errno = 0;
    EXPECT_EQ(mtd_open("gone", 0), -1);
    EXPECT_EQ(errno, ENOENT);
    EXPECT_THAT(log_.take(), IsEmpty());
    fs::current_path("/");
}

TEST_F(Mtd, OpensPathsAsTheyAre) {
    const MtdTable table(kTable + "mtd3: 1 1 \"/tmp/image\"\n");
    write_file("/tmp/image", "an image");
    EXPECT_EQ(content(mtd_open("/tmp/image", 1)), "an image");
    EXPECT_EQ(content(mtd_open_match("/tmp/image", 7, 0)), "an image");
    EXPECT_EQ(mtd_open("/tmp/absent", 0), -1);
}

TEST_F(Mtd, DoesNotLookAtTheTableForAPath) {
    write_file("/tmp/image", "an image");
    faults::reset();
    EXPECT_EQ(content(mtd_open("/tmp/image", 0)), "an image");
    EXPECT_EQ(faults::count("open"), 1U);
}

TEST_F(Mtd, OpensTheNameItselfWhereItIsNotListedOrNothingIs) {
    fs::current_path("/tmp");
    write_file("/tmp/unlisted", "a file");
    {
        const MtdTable table(kTable);
        EXPECT_EQ(content(mtd_open("unlisted", 0)), "a file");
        EXPECT_EQ(content(mtd_open_match("unlisted", 3, 1)), "a file");
    }
    ASSERT_FALSE(exists("/proc/mtd")) << "this kernel has MTD after all";
    EXPECT_EQ(content(mtd_open("unlisted", 0)), "a file");
    EXPECT_EQ(mtd_open("kernel", 0), -1);
    fs::current_path("/");
}

TEST_F(Mtd, ReadsLinesOfUpTo4095Bytes) {
    const std::string fits(4000, 'f');
    const std::string last(4089, 'l');
    const std::string too_long(4090, 'x');
    const MtdTable table("mtd2: \"" + fits + "\"\nmtd3:\"" + last.substr(1) + "\"\nmtd4:\"" +
                         too_long + "\"\n" + "mtd5: \"behind\"\n");
    EXPECT_EQ(content(mtd_open(fits.c_str(), 0)), "mtd2");
    EXPECT_EQ(content(mtd_open(last.substr(1).c_str(), 0)), "mtd3");
    EXPECT_EQ(mtd_open(too_long.c_str(), 0), -1);
    EXPECT_EQ(content(mtd_open("behind", 0)), "mtd5");
}

// With its end cut off it would be found in the longer name.
TEST_F(Mtd, FindsNoNameThatDoesNotFitItsBuffer) {
    const std::string name(4094, 'n');
    const MtdTable table("mtd2:\"" + name + "\"\n");
    EXPECT_EQ(mtd_open(name.c_str(), 0), -1);
    EXPECT_EQ(mtd_open(std::string(10000, 'n').c_str(), 0), -1);
}

TEST_F(Mtd, OpensForReadingAndClosedByExec) {
    const MtdTable table(kTable);
    write_file("/dev/mtd/3", "directory 3");
    for (const char* name : {"kernel", "rootfs", "/dev/mtd2"}) {
        const int fd = mtd_open(name, 0);
        ASSERT_GE(fd, 0);
        EXPECT_EQ(fcntl(fd, F_GETFL) & O_ACCMODE, O_RDONLY);
        EXPECT_EQ(fcntl(fd, F_GETFD), FD_CLOEXEC);
        close(fd);
    }
}

TEST_F(Mtd, ReadsTheTableOnceAndLeavesNothingOpen) {
    const MtdTable table(kTable);
    const std::vector<int> before = open_descriptors();
    faults::reset();
    const int fd = mtd_open("boot2", 0);
    EXPECT_EQ(faults::count("open"), 3U);
    EXPECT_EQ(faults::count("read"), 1U);
    EXPECT_EQ(faults::count("close"), 1U);
    close(fd);
    EXPECT_EQ(mtd_open("absent", 0), -1);
    EXPECT_EQ(open_descriptors(), before);
}

TEST_F(Mtd, RejectsAMissingNameAndANegativeIndex) {
    EXPECT_EQ(mtd_open(nullptr, 0), -1);
    EXPECT_THAT(log_.take(), ElementsAre(Line(LOG_ERR, "mtd_open", "invalid parameters\n")));
    EXPECT_EQ(mtd_open_match(nullptr, 0, 0), -1);
    EXPECT_EQ(mtd_open_match("/dev/null", -1, 0), -1);
    EXPECT_THAT(log_.take(), ElementsAre(Line(LOG_ERR, "mtd_open_match", "invalid parameters\n"),
                                         Line(LOG_ERR, "mtd_open_match", "invalid parameters\n")));
}

// get_active_image_type

TEST_F(Mtd, AlwaysRunsThePrimaryImage) {
    EXPECT_EQ(get_active_image_type(), 0);
    EXPECT_THAT(log_.take(), ElementsAre(LineAt(LOG_INFO, "get_active_image_type", 328,
                                                "primary image active\n")));
}

// The stable marks

using Check = int (*)();

struct Mark {
    const char* function;
    Check check;
    int line;
    std::string key;
};

void PrintTo(const Mark& mark, std::ostream* out) {
    *out << mark.function;
}

class StableMark : public Mtd, public testing::WithParamInterface<Mark> {
  protected:
    static void prints(const std::string& lines) {
        write_file("/tmp/lines", lines);
        replace_printer("cat /tmp/lines\n");
    }
    void expect_usable() {
        EXPECT_EQ(GetParam().check(), 0);
        EXPECT_THAT(log_.take(), IsEmpty());
    }
    void expect_unreadable(const std::string& why) {
        EXPECT_EQ(GetParam().check(), -1);
        EXPECT_THAT(log_.take(), ElementsAre(Line(LOG_ERR, "get_key_vlaue", why),
                                             LineAt(LOG_ERR, GetParam().function, GetParam().line,
                                                    "get_key_vlaue fail\n")));
    }
};

TEST_P(StableMark, OfZeroIsUsable) {
    prints("bootdelay=5\n" + GetParam().key + "=0\nother=1\n");
    expect_usable();
}

TEST_P(StableMark, OfAnotherNumberIsNot) {
    for (const char* value : {"1", "-1", "2", "256"}) {
        prints(GetParam().key + "=" + value + "\n");
        EXPECT_EQ(GetParam().check(), -1);
        EXPECT_THAT(log_.take(), IsEmpty());
    }
}

TEST_P(StableMark, IsLookedForByItsOwnName) {
    for (const char* other : {"Image1Stable", "Image2Stable", "Uboot2Stable"}) {
        if (GetParam().key == other) continue;
        prints(std::string(other) + "=0\n");
        expect_unreadable("not find " + GetParam().key + "\n");
    }
}

TEST_P(StableMark, CannotBeReadFromALongerKey) {
    prints(GetParam().key + "2=0\n" + GetParam().key + "=0\n");
    expect_unreadable("sscanf fail\n");
}

TEST_P(StableMark, CannotBeReadWhereItIsNoNumber) {
    for (const char* value : {"", "yes"}) {
        prints(GetParam().key + "=" + value + "\n");
        expect_unreadable("sscanf fail\n");
    }
}

TEST_P(StableMark, CannotBeReadWhereTheCommandFails) {
    replace_printer("echo 'Cannot read environment' >&2\nexit 1\n");
    expect_unreadable("not find " + GetParam().key + "\n");
    replace_printer("kill -9 $$\n");
    expect_unreadable("not find " + GetParam().key + "\n");
}

TEST_P(StableMark, CountsWhateverTheCommandsStatusIs) {
    replace_printer("echo " + GetParam().key + "=0\nexit 1\n");
    expect_usable();
}

TEST_P(StableMark, IsReadFromACommandThatHangsUpEarly) {
    // It closes its output in the middle of the line and stays for a moment.
    replace_printer("printf '" + GetParam().key + "=0'\nexec >&-\nsleep 0.05\n");
    expect_usable();
    replace_printer("printf '" + GetParam().key.substr(0, 8) + "'\nexec >&-\nsleep 0.05\n");
    expect_unreadable("not find " + GetParam().key + "\n");
}

TEST_P(StableMark, CannotBeReadWithoutAShell) {
    const Fail fail("popen", 1, ENOMEM);
    expect_unreadable("popen fail, cmd = fw_printenv\n\n");
}

// The boot loader's environment as the real command finds it.
void write_environment(const std::string& variables) {
    const std::string data = padded(variables, 0x2000 - 4);
    write_file("/tmp/environment", word(~boot_checksum(data, 0xFFFFFFFF)) + data);
    write_file("/etc/fw_env.config", "/tmp/environment 0x0 0x2000\n");
}

TEST_P(StableMark, IsReadByTheRealCommand) {
    if (!exists("/usr/bin/fw_printenv"))
        GTEST_SKIP() << "fw_printenv is not installed (libubootenv-tool)";
    const std::string& key = GetParam().key;
    write_environment(std::string("bootcmd=run flash\0bootdelay=5\0", 30) + key + "=0" + '\0');
    expect_usable();
    write_environment(std::string("bootcmd=run flash\0bootdelay=5\0", 30) + key + "=1" + '\0');
    EXPECT_EQ(GetParam().check(), -1);
    EXPECT_THAT(log_.take(), IsEmpty());
    write_environment(std::string("bootcmd=run flash\0bootdelay=5\0", 30));
    expect_unreadable("not find " + key + "\n");
    // A longer key sorts behind the exact one in what the command prints.
    write_environment(key + "Before=1" + '\0' + key + "=0" + '\0');
    expect_usable();
    write_environment(key + "Before=1" + '\0');
    expect_unreadable("sscanf fail\n");
    fs::remove("/etc/fw_env.config");
    expect_unreadable("not find " + key + "\n");
}

INSTANTIATE_TEST_SUITE_P(
    , StableMark,
    testing::Values(Mark{"check_primary_image", check_primary_image, 31, "Image1Stable"},
                    Mark{"check_backup_image", check_backup_image, 50, "Image2Stable"},
                    Mark{"check_backup_uboot", check_backup_uboot, 69, "Uboot2Stable"}),
    [](const auto& test) { return std::string(test.param.function); });

// The image information

struct Info {
    const char* function;
    int (*read)(char* out);
    std::string partition_key;
    std::string partition_failure;
    std::string check_failure;
    const char* check_function;
    int invalid_line, partition_line, check_line, version_line;
    int image;  // which of the three marks is its own
};

void PrintTo(const Info& info, std::ostream* out) {
    *out << info.function;
}

class ImageInfo : public Mtd, public testing::WithParamInterface<Info> {
  protected:
    ImageInfo() { mark(0); }

    static void mark(int value) {
        print_marks(GetParam().image == 0 ? value : 9, GetParam().image == 1 ? value : 9,
                    GetParam().image == 2 ? value : 9);
    }

    // The description has these partitions only.
    static void describe(const std::string& partitions) {
        const std::string board = read_file("/etc/board.conf");
        write_file("/etc/board.conf",
                   board.substr(0, board.find("[partitions]")) + "[partitions]\n" + partitions);
    }
    static void name_partition(const std::string& name) {
        describe(GetParam().partition_key + " = " + name + "\n");
    }

    static std::string image(const std::string& version) {
        std::string block;
        for (int i = 0; i < 2000; i++)
            block += static_cast<char>('!' + i % 90);
        return block.replace(276, version.size(), version);
    }

    void expect_failure(const std::string& content_of_image, int line, const std::string& text) {
        write_file("/dev/mtdblock5", content_of_image);
        Buffer out(512);
        EXPECT_EQ(GetParam().read(out.data()), -1);
        EXPECT_TRUE(out.guard_holds());
        expect_logged(line, text);
    }
    void expect_logged(int line, const std::string& text) {
        EXPECT_THAT(log_.take(),
                    ElementsAre(LineAt(LOG_ERR, "get_version_info_from_offset", line, text),
                                LineAt(LOG_ERR, GetParam().function, GetParam().version_line,
                                       "get_version_info fail\n")));
    }

    void expect_version(const std::string& content_of_image) {
        write_file("/dev/mtdblock5", content_of_image);
        Buffer out(512);
        EXPECT_EQ(GetParam().read(out.data()), 0);
        EXPECT_EQ(out.all(), padded(content_of_image.substr(0, 512), 512));
        EXPECT_TRUE(out.guard_holds());
        EXPECT_THAT(log_.take(), IsEmpty());
    }
};

const std::string k24 = "2.10.1-rc4+build20240917";

TEST_P(ImageInfo, HoldsTheFirst512BytesOfThePartition) {
    const MtdTable table(kTable);
    name_partition("rootfs_data");
    expect_version(image(std::string("1.2.3\0", 6)));
}

TEST_P(ImageInfo, AsksForThePartitionWithAnEmptyNameOf64Bytes) {
    const MtdTable table(kTable);
    name_partition("rootfs_data");
    expect_version(image(k24));
    EXPECT_EQ(asked, std::pair(GetParam().image + 1, std::string(64, '\0')));
}

TEST_P(ImageInfo, TakesMinusOneOnlyForAPartitionThatTheBoardDoesNotHave) {
    const MtdTable table(kTable);
    answer_of_test = -2;
    expect_failure(image(k24), 89, "open fail\n");
    answer_of_test.reset();
}

TEST_P(ImageInfo, TakesAVersionOfUpTo24CharactersAndLooksNoFurther) {
    const MtdTable table(kTable);
    name_partition("rootfs_data");
    ASSERT_EQ(k24.size(), 24U);
    expect_version(image(std::string("1\0\xff", 3)));
    expect_version(image(k24.substr(0, 23) + '\0'));
    expect_version(image(k24));
    expect_version(image(k24 + "5"));
    expect_version(image(k24 + "\x80"));
    expect_version(image(std::string("\x7f\x01\0", 3)));
}

TEST_P(ImageInfo, FailsOnAVersionThatIsNoText) {
    const MtdTable table(kTable);
    name_partition("rootfs_data");
    for (const std::string& version :
         {std::string(1, '\0'), std::string("\x80"), std::string("\xff\xff"),
          k24.substr(0, 23) + "\x80", std::string("1.2\xc3\xa4\0", 6)})
        expect_failure(image(version), 108, "not ascii string, fail\n");
}

TEST_P(ImageInfo, ZeroesWhatAShortPartitionDoesNotFill) {
    const MtdTable table(kTable);
    name_partition("rootfs_data");
    expect_version(image("1.2.3").substr(0, 511));
    expect_version(image("1.2.3").substr(0, 281));
    expect_version(image("1.2.3").substr(0, 277));
    expect_failure(image("1.2.3").substr(0, 276), 108, "not ascii string, fail\n");
    expect_failure("x", 108, "not ascii string, fail\n");
}

TEST_P(ImageInfo, FailsOnAPartitionThatCannotBeRead) {
    const MtdTable table(kTable);
    name_partition("rootfs_data");
    expect_failure("", 100, "read fail\n");
    fs::remove("/dev/mtdblock5");
    fs::create_directory("/dev/mtdblock5");
    Buffer out(512);
    EXPECT_EQ(GetParam().read(out.data()), -1);
    EXPECT_TRUE(out.untouched());
    expect_logged(100, "read fail\n");
    fs::remove("/dev/mtdblock5");
    EXPECT_EQ(GetParam().read(out.data()), -1);
    expect_logged(89, "open fail\n");
}

TEST_P(ImageInfo, FailsOnAPartitionThatCannotBeSought) {
    name_partition("/tmp/pipe");
    ASSERT_EQ(mkfifo("/tmp/pipe", 0600), 0);
    const int end = open("/tmp/pipe", O_RDWR | O_CLOEXEC);
    Buffer out(512);
    EXPECT_EQ(GetParam().read(out.data()), -1);
    close(end);
    EXPECT_TRUE(out.untouched());
    expect_logged(94, "lseek fail\n");
}

TEST_P(ImageInfo, FailsOnAPartitionThatTheTableDoesNotList) {
    const MtdTable table(kTable);
    name_partition("kernel2");
    Buffer out(512);
    EXPECT_EQ(GetParam().read(out.data()), -1);
    expect_logged(89, "open fail\n");
}

TEST_P(ImageInfo, TakesAPathForThePartition) {
    name_partition("/tmp/image");
    write_file("/tmp/image", image(k24));
    Buffer out(512);
    EXPECT_EQ(GetParam().read(out.data()), 0);
    EXPECT_EQ(out.all(), image(k24).substr(0, 512));
}

TEST_P(ImageInfo, TakesAPartitionNameOf63Characters) {
    const std::string name(63, 'p');
    const MtdTable table("mtd5: 1 1 \"" + name + "\"\n");
    name_partition(name);
    expect_version(image(k24));
}

TEST_P(ImageInfo, FailsWhereTheBoardHasNoSuchPartition) {
    describe("");
    Buffer out(512);
    EXPECT_EQ(GetParam().read(out.data()), -1);
    EXPECT_TRUE(out.untouched());
    EXPECT_THAT(log_.take(), Failed(GetParam().function, GetParam().partition_line,
                                    GetParam().partition_failure));
}

TEST_P(ImageInfo, AsksForThePartitionBeforeTheMarkAndForNeitherWithoutABuffer) {
    describe("");
    replace_printer("touch /tmp/asked\n");
    EXPECT_EQ(GetParam().read(nullptr), -1);
    EXPECT_THAT(log_.take(),
                Failed(GetParam().function, GetParam().invalid_line, "invalid parameters\n"));
    Buffer out(512);
    EXPECT_EQ(GetParam().read(out.data()), -1);
    EXPECT_THAT(log_.take(), Failed(GetParam().function, GetParam().partition_line,
                                    GetParam().partition_failure));
    EXPECT_FALSE(exists("/tmp/asked"));
}

TEST_P(ImageInfo, NeedsAnImageThatIsMarkedAsUsable) {
    const MtdTable table(kTable);
    name_partition("rootfs_data");
    write_file("/dev/mtdblock5", image(k24));
    mark(1);
    Buffer out(512);
    EXPECT_EQ(GetParam().read(out.data()), -1);
    EXPECT_TRUE(out.untouched());
    EXPECT_THAT(log_.take(),
                Failed(GetParam().function, GetParam().check_line, GetParam().check_failure));
    mark(0);
    EXPECT_EQ(GetParam().read(out.data()), 0);
}

TEST_P(ImageInfo, NeedsAMarkThatCanBeRead) {
    name_partition("rootfs_data");
    replace_printer("exit 1\n");
    Buffer out(512);
    EXPECT_EQ(GetParam().read(out.data()), -1);
    EXPECT_THAT(log_.take(),
                ElementsAre(testing::Field("function", &LogLine::function, "get_key_vlaue"),
                            Line(LOG_ERR, GetParam().check_function, "get_key_vlaue fail\n"),
                            LineAt(LOG_ERR, GetParam().function, GetParam().check_line,
                                   GetParam().check_failure)));
}

TEST_P(ImageInfo, RejectsAMissingBuffer) {
    EXPECT_EQ(GetParam().read(nullptr), -1);
    EXPECT_THAT(log_.take(),
                Failed(GetParam().function, GetParam().invalid_line, "invalid parameters\n"));
}

TEST_P(ImageInfo, LeavesNothingOpen) {
    const MtdTable table(kTable);
    name_partition("rootfs_data");
    EXPECT_EQ(GetParam().read(nullptr), -1) << "opens the log";
    log_.take();
    const std::vector<int> before = open_descriptors();
    expect_version(image(k24));
    expect_failure("", 100, "read fail\n");
    expect_failure("x", 108, "not ascii string, fail\n");
    {
        const Fail fail("lseek", 1, EIO);
        expect_failure(image(k24), 94, "lseek fail\n");
    }
    EXPECT_EQ(open_descriptors(), before);
}

INSTANTIATE_TEST_SUITE_P(
    , ImageInfo,
    testing::Values(Info{"get_primary_info", get_primary_info, "primary_image",
                         "tq_get_pri_image_partition fail\n", "check_primary_image fail\n",
                         "check_primary_image", 338, 344, 349, 361, 0},
                    Info{"get_backup_info", get_backup_info, "backup_image",
                         "tq_get_bk_image_partition fail\n", "check_backup_image fail\n",
                         "check_backup_image", 375, 381, 386, 398, 1},
                    Info{"get_backup_boot_info", get_backup_boot_info, "backup_boot_loader",
                         "get AP_TYPE_PAT_BK_UBOOT_IMAGE fail\n", "check_backup_uboot fail\n",
                         "check_backup_uboot", 430, 436, 441, 467, 2}),
    [](const auto& test) { return std::string(test.param.function); });

}  // namespace
