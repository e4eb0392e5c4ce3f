// command_test.cpp - shell commands and small text files: results, buffers, log lines, and that
// nothing stays open behind a call.
#include "tq/command.h"

#include <dlfcn.h>
#include <fcntl.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <spawn.h>
#include <stdio_ext.h>
#include <sys/resource.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <chrono>
#include <climits>
#include <cstdlib>
#include <cstring>
#include <functional>
#include <future>
#include <limits>
#include <memory>
#include <optional>
#include <random>
#include <string>
#include <thread>
#include <vector>

#include "support/buffer.h"
#include "support/device.h"
#include "support/faults.h"
#include "support/log_capture.h"
#include "support/random.h"

namespace {

thread_local int fgetc_calls = 0;

}  // namespace

extern "C" int counted_fgetc(FILE* fp) asm("fgetc");

int counted_fgetc(FILE* fp) {
    static const auto next = reinterpret_cast<int (*)(FILE*)>(dlsym(RTLD_NEXT, "fgetc"));
    fgetc_calls++;
    return next(fp);
}

namespace {

using testing::ElementsAre;
using testing::IsEmpty;
using tq_test::as_nobody;
using tq_test::Buffer;
using tq_test::DeviceTest;
using tq_test::exists;
using tq_test::Failed;
using tq_test::kUntouched;
using tq_test::Line;
using tq_test::LogCapture;
using tq_test::LogLine;
using tq_test::open_descriptors;
using tq_test::read_file;
using tq_test::Rejected;
using tq_test::ScopedBind;
using tq_test::seeded;
using tq_test::write_file;
using tq_test::faults::Fail;

constexpr const char* kFile = "/tmp/file";

// What the text functions split longer lines at.
constexpr size_t kPiece = 1023;

bool has_children() {
    return waitpid(-1, nullptr, WNOHANG) != -1 || errno != ECHILD;
}

struct FileCloser {
    void operator()(FILE* fp) const { fclose(fp); }
};
using File = std::unique_ptr<FILE, FileCloser>;

struct Freer {
    void operator()(char* text) const { free(text); }
};
using HeapLine = std::unique_ptr<char, Freer>;

File open_file(const std::string& content) {
    write_file(kFile, content);
    return File(fopen(kFile, "r"));
}

std::string rest_of(FILE* fp) {
    std::string rest;
    for (int c = 0; (c = getc(fp)) != EOF;)
        rest += static_cast<char>(c);
    return rest;
}

// Every call ends with the descriptors and the children that there were before it.
class CommandTest : public DeviceTest {
  protected:
    void TearDown() override {
        closelog();
        EXPECT_EQ(open_descriptors(), descriptors_);
        EXPECT_FALSE(has_children());
    }

    LogCapture log_;

  private:
    std::vector<int> descriptors_ = open_descriptors();
};

class MySystem : public CommandTest {};
class RunCmd : public CommandTest {};
class GetKeyVlaue : public CommandTest {};
class ReadLine : public CommandTest {};
class FileGets : public CommandTest {};
class GetFileLine : public CommandTest {};
class NucleusFgets : public CommandTest {};

// The frame of all functions.

TEST_F(CommandTest, LogsWithTheCallersFacilityAndIdentity) {
    openlog("configd", 0, LOG_LOCAL3);
    my_system("true");
    closelog();
    openlog(nullptr, 0, LOG_USER);

    const std::vector<LogLine> lines = log_.take();
    ASSERT_EQ(lines.size(), 1U);
    EXPECT_EQ(lines[0].facility, LOG_LOCAL3);
    EXPECT_EQ(lines[0].ident, "configd");
    EXPECT_GT(lines[0].line, 0);
}

TEST_F(CommandTest, FailsAsWellWhereTheLineIsMasked) {
    const int mask = setlogmask(LOG_MASK(LOG_EMERG));
    EXPECT_EQ(run_cmd(nullptr, nullptr, 0), -1);
    int value = 0;
    EXPECT_EQ(get_key_vlaue("true", "key", &value), -1);
    setlogmask(mask);
    EXPECT_THAT(log_.take(), IsEmpty());
}

TEST_F(CommandTest, RunsFromSeveralThreadsAtOnce) {
    write_file(kFile, "first\nkey=17\n");
    std::array<int, 4> failures{};
    {
        std::vector<std::jthread> threads;
        for (size_t i = 0; i < failures.size(); i++) {
            threads.emplace_back([i, &failures] {
                for (int round = 0; round < 10; round++) {
                    const std::string word = "w" + std::to_string(i) + "r" + std::to_string(round);
                    std::array<char, 32> out{};
                    int value = 0;
                    run_cmd(("echo " + word).c_str(), out.data(), out.size());
                    if (out.data() != word) failures[i]++;
                    if (get_key_vlaue("cat /tmp/file", "key", &value) != 0 || value != 17) {
                        failures[i]++;
                    }
                    if (read_line(kFile, "st", out.data(), out.size()) != 0) failures[i]++;
                }
            });
        }
    }
    EXPECT_THAT(failures, testing::Each(0));
    EXPECT_THAT(log_.take(), IsEmpty());
}

// What a child that is started now inherits.
std::vector<int> inherited_descriptors() {
    std::vector<int> inherited;
    for (const int fd : open_descriptors()) {
        if ((fcntl(fd, F_GETFD, 0) & FD_CLOEXEC) == 0) inherited.push_back(fd);
    }
    return inherited;
}

// Until the condition holds, or for so long that it never will.
bool wait_for(const std::function<bool()>& condition) {
    for (int i = 0; i < 5000; i++) {
        if (condition()) return true;
        usleep(1000);
    }
    return false;
}

constexpr const char* kFifo = "/tmp/fifo";

// The call reads the text from a FIFO. While it waits for that, a child would inherit nothing of
// what it has open.
void expect_nothing_inherited(const std::string& text, const std::function<int()>& call) {
    ASSERT_EQ(mkfifo(kFifo, 0600), 0);
    const size_t open_before = open_descriptors().size();
    const std::vector<int> before = inherited_descriptors();
    std::vector<int> meanwhile;
    bool both_open = false;
    std::jthread writer([&] {
        int fifo = -1;
        wait_for([&] { return (fifo = open(kFifo, O_WRONLY | O_NONBLOCK | O_CLOEXEC)) >= 0; });
        both_open = wait_for([&] { return open_descriptors().size() == open_before + 2; });
        meanwhile = inherited_descriptors();
        EXPECT_EQ(write(fifo, text.data(), text.size()), static_cast<ssize_t>(text.size()));
        close(fifo);
    });
    EXPECT_EQ(call(), 0);
    writer.join();
    EXPECT_TRUE(both_open);
    EXPECT_EQ(meanwhile, before);
}

// my_system

TEST_F(MySystem, RunsTheCommandAndWaitsForIt) {
    EXPECT_EQ(my_system("sleep 0.02; echo done > /tmp/out"), 0);
    EXPECT_EQ(read_file("/tmp/out"), "done\n");
    EXPECT_THAT(log_.take(), ElementsAre(Line(LOG_INFO, "my_system",
                                              "exec: sleep 0.02; echo done > /tmp/out\n")));
}

TEST_F(MySystem, LogsTheCommandBeforeItRuns) {
    EXPECT_EQ(my_system("logger -t child -p user.err hello"), 0);
    EXPECT_THAT(log_.take(), ElementsAre(Line(LOG_INFO, "my_system",
                                              "exec: logger -t child -p user.err hello\n"),
                                         Line(LOG_ERR, "", "hello")));
}

TEST_F(MySystem, IgnoresHowTheCommandEnds) {
    EXPECT_EQ(my_system("exit 3"), 0);
    EXPECT_EQ(my_system("kill -9 $$"), 0);
    EXPECT_EQ(my_system("/no/such/program 2>/dev/null"), 0);
    EXPECT_THAT(log_.take(),
                ElementsAre(Line(LOG_INFO, "my_system", "exec: exit 3\n"),
                            Line(LOG_INFO, "my_system", "exec: kill -9 $$\n"),
                            Line(LOG_INFO, "my_system", "exec: /no/such/program 2>/dev/null\n")));
}

TEST_F(MySystem, IgnoresThatNoShellStarts) {
    const Fail fail("system", 1, ENOMEM);
    EXPECT_EQ(my_system("echo > /tmp/out"), 0);
    EXPECT_TRUE(fail.fired());
    EXPECT_FALSE(exists("/tmp/out"));
    EXPECT_THAT(log_.take(), ElementsAre(Line(LOG_INFO, "my_system", "exec: echo > /tmp/out\n")));
}

TEST_F(MySystem, LogsPercentSignsAsTheyAre) {
    EXPECT_EQ(my_system("true %s%n%d"), 0);
    EXPECT_THAT(log_.take(), ElementsAre(Line(LOG_INFO, "my_system", "exec: true %s%n%d\n")));
}

TEST_F(MySystem, ChecksNoArgument) {
    EXPECT_EQ(my_system(nullptr), 0);
    EXPECT_THAT(log_.take(), ElementsAre(Line(LOG_INFO, "my_system", "exec: (null)\n")));
}

// run_cmd

struct Output {
    const char* command;
    const char* line;
};

TEST_F(RunCmd, GivesTheFirstLineWithoutItsLineFeed) {
    constexpr std::array kOutputs = {
        Output{R"(printf 'abc\n')", "abc"},
        Output{R"(printf 'abc\r\n')", "abc\r"},
        Output{R"(printf 'abc')", "abc"},
        Output{R"(printf 'abc\r')", "abc\r"},
        Output{R"(printf 'one\ntwo\nthree\n')", "one"},
        Output{R"(printf '\nsecond\n')", ""},
        Output{R"(printf '\n\n\n')", ""},
        Output{R"(printf ' a  b \n')", " a  b "},
        Output{R"(printf 'ab\0cd\n')", "ab"},
        Output{R"(printf '\0cd\n')", ""},
        Output{R"(printf '%%s%%n\n')", "%s%n"},
        Output{R"(printf a; sleep 0.02; printf 'b\nc\n')", "ab"},
    };
    for (const Output& output : kOutputs) {
        SCOPED_TRACE(output.command);
        Buffer out(100);
        EXPECT_EQ(run_cmd(output.command, out.data(), out.size()), 0);
        EXPECT_EQ(out.text(), output.line);
    }
    EXPECT_THAT(log_.take(), IsEmpty());
}

TEST_F(RunCmd, CutsTheLineToTheBuffer) {
    const std::string line = "abcdef";
    for (int size = 1; size <= 9; size++) {
        SCOPED_TRACE(size);
        Buffer out(size);
        EXPECT_EQ(run_cmd("echo abcdef; echo x", out.data(), size), 0);
        EXPECT_EQ(out.text(), line.substr(0, static_cast<size_t>(size - 1)));
        EXPECT_TRUE(out.guard_holds());
    }
    EXPECT_THAT(log_.take(), IsEmpty());
}

TEST_F(RunCmd, SucceedsWithTheEmptyTextWhereThereIsNoRoom) {
    for (const char* command : {"echo abc", "true", "echo"}) {
        SCOPED_TRACE(command);
        Buffer out(1);
        EXPECT_EQ(run_cmd(command, out.data(), 1), 0);
        EXPECT_EQ(out.all(), std::string(1, '\0'));
        EXPECT_TRUE(out.guard_holds());
    }
    EXPECT_THAT(log_.take(), IsEmpty());
}

TEST_F(RunCmd, GivesALongLineWhole) {
    Buffer out(100000);
    EXPECT_EQ(run_cmd("head -c 99999 /dev/zero | tr '\\0' x; echo tail", out.data(), out.size()),
              0);
    EXPECT_EQ(out.text(), std::string(99999, 'x'));
    EXPECT_TRUE(out.guard_holds());
}

TEST_F(RunCmd, ThrowsTheRestOfAnEndlessOutputAway) {
    Buffer out(10);
    EXPECT_EQ(run_cmd("yes line", out.data(), out.size()), 0);
    EXPECT_EQ(out.text(), "line");
}

TEST_F(RunCmd, LetsNoChildInheritThePipe) {
    Buffer out(10);
    expect_nothing_inherited("abc\n",
                             [&] { return run_cmd("cat /tmp/fifo", out.data(), out.size()); });
    EXPECT_EQ(out.text(), "abc");
}

TEST_F(RunCmd, IgnoresTheExitStatus) {
    Buffer out(10);
    EXPECT_EQ(run_cmd("echo abc; exit 3", out.data(), out.size()), 0);
    EXPECT_EQ(out.text(), "abc");
    EXPECT_EQ(run_cmd("echo def; kill -9 $$", out.data(), out.size()), 0);
    EXPECT_EQ(out.text(), "def");
    EXPECT_THAT(log_.take(), IsEmpty());
}

TEST_F(RunCmd, IgnoresThatThePipeDoesNotClose) {
    const Fail fail("pclose");
    Buffer out(10);
    EXPECT_EQ(run_cmd("echo abc", out.data(), out.size()), 0);
    EXPECT_TRUE(fail.fired());
    EXPECT_EQ(out.text(), "abc");
    EXPECT_THAT(log_.take(), IsEmpty());
}

TEST_F(RunCmd, FailsWhereTheCommandPrintsNothing) {
    for (const std::string command : {"true", "exit 3", "echo >&2 2>/dev/null %s%n"}) {
        SCOPED_TRACE(command);
        Buffer out(10);
        EXPECT_EQ(run_cmd(command.c_str(), out.data(), out.size()), -1);
        EXPECT_EQ(out.text(), "");
        EXPECT_THAT(log_.take(), Failed("run_cmd", "fgets fail, cmd = " + command + "\n\n"));
    }
}

TEST_F(RunCmd, FailsWhereTheOutputCannotBeRead) {
    const Fail fail("read");
    Buffer out(10);
    EXPECT_EQ(run_cmd("echo abc", out.data(), out.size()), -1);
    EXPECT_EQ(out.text(), "");
    EXPECT_THAT(log_.take(), Failed("run_cmd", "fgets fail, cmd = echo abc\n\n"));
}

TEST_F(RunCmd, FailsWithoutAPipe) {
    const Fail fail("popen", 1, ENOMEM);
    Buffer out(10);
    EXPECT_EQ(run_cmd("echo abc", out.data(), out.size()), -1);
    EXPECT_TRUE(fail.fired());
    EXPECT_EQ(out.text(), "");
    EXPECT_THAT(log_.take(), Failed("run_cmd", "popen fail, cmd = echo abc\n\n"));
}

bool spawn_reports_a_missing_program() {
    pid_t pid = 0;
    char name[] = "/no/such/program";
    char* argv[] = {name, nullptr};
    if (posix_spawn(&pid, name, nullptr, nullptr, argv, environ) != 0) return true;
    waitpid(pid, nullptr, 0);
    return false;
}

TEST_F(RunCmd, FailsWhereThereIsNoShell) {
    if (!spawn_reports_a_missing_program()) {
        GTEST_SKIP() << "posix_spawn does not report a program that cannot start (an emulator)";
    }
    const ScopedBind no_shell("/bin/sh", "not a program");
    Buffer out(10);
    EXPECT_EQ(run_cmd("echo abc", out.data(), out.size()), -1);
    EXPECT_EQ(out.text(), "");
    EXPECT_THAT(log_.take(), Failed("run_cmd", "popen fail, cmd = echo abc\n\n"));
}

// Takes every descriptor that the process may have, until its scope ends.
class NoFreeDescriptor {
  public:
    NoFreeDescriptor() {
        getrlimit(RLIMIT_NOFILE, &before_);
        rlimit few = before_;
        few.rlim_cur = 64;
        setrlimit(RLIMIT_NOFILE, &few);
        for (int fd = 0; (fd = open("/dev/null", O_RDONLY | O_CLOEXEC)) >= 0;)
            taken_.push_back(fd);
    }
    ~NoFreeDescriptor() {
        for (const int fd : taken_)
            close(fd);
        setrlimit(RLIMIT_NOFILE, &before_);
    }
    NoFreeDescriptor(const NoFreeDescriptor&) = delete;
    NoFreeDescriptor& operator=(const NoFreeDescriptor&) = delete;

  private:
    rlimit before_{};
    std::vector<int> taken_;
};

TEST_F(RunCmd, FailsWithoutAFreeDescriptor) {
    syslog(LOG_INFO, "connected");
    log_.take();
    Buffer out(10);
    int result = 0;
    {
        const NoFreeDescriptor none;
        result = run_cmd("echo abc", out.data(), out.size());
    }
    EXPECT_EQ(result, -1);
    EXPECT_EQ(out.text(), "");
    EXPECT_THAT(log_.take(), Failed("run_cmd", "popen fail, cmd = echo abc\n\n"));
}

TEST_F(RunCmd, RejectsBadArguments) {
    Buffer out(10);
    EXPECT_EQ(run_cmd(nullptr, out.data(), out.size()), -1);
    EXPECT_THAT(log_.take(), Rejected("run_cmd"));
    EXPECT_EQ(run_cmd("echo > /tmp/out", nullptr, 10), -1);
    EXPECT_THAT(log_.take(), Rejected("run_cmd"));
    for (const int size : {0, -1, INT_MIN}) {
        EXPECT_EQ(run_cmd("echo > /tmp/out", out.data(), size), -1);
        EXPECT_THAT(log_.take(), Rejected("run_cmd"));
    }
    EXPECT_TRUE(out.untouched());
    EXPECT_FALSE(exists("/tmp/out"));
}

// get_key_vlaue

constexpr const char* kPrintFile = "cat /tmp/file";
constexpr int kNoValue = 4711;

struct KeyLine {
    const char* content;
    const char* key;
    int value;
};

TEST_F(GetKeyVlaue, ReadsTheIntegerOfTheKey) {
    constexpr int kLow = std::numeric_limits<int>::min();
    constexpr std::array kLines = {
        KeyLine{"Image1Stable=1\n", "Image1Stable", 1},
        KeyLine{"bootdelay=3\nImage1Stable=0\nImage2Stable=1\n", "Image2Stable", 1},
        KeyLine{"Image1Stable=1", "Image1Stable", 1},
        KeyLine{"a=1\na=2\n", "a", 1},
        KeyLine{"ab=1\n", "ab", 1},
        KeyLine{"a=-12\n", "a", -12},
        KeyLine{"a=+12\n", "a", 12},
        KeyLine{"a= \t 12\n", "a", 12},
        KeyLine{"a=012\n", "a", 12},
        KeyLine{"a=12abc\n", "a", 12},
        KeyLine{"a=12.9\n", "a", 12},
        KeyLine{"a=0x1f\n", "a", 0},
        KeyLine{"a=12\r\n", "a", 12},
        KeyLine{"a=12=13\n", "a", 12},
        KeyLine{"a=2147483647\n", "a", 2147483647},
        KeyLine{"a=-2147483648\n", "a", kLow},
        KeyLine{"a=4294967295\n", "a", -1},
        KeyLine{"a=4294967301\n", "a", 5},
        KeyLine{"a=2147483648\n", "a", kLow},
        KeyLine{"x=1\na b=7\n", "a b", 7},
        KeyLine{"a5=1\na%d=7\n", "a%d", 7},
        KeyLine{"a%s%n%n=8\n", "a%s%n%n", 8},
        KeyLine{"100%=9\n", "100%", 9},
        KeyLine{"a==3\n", "a=", 3},
        KeyLine{"=5\na=6\n", "", 5},
        KeyLine{" a=1\na=2\n", "a", 2},
    };
    for (const KeyLine& line : kLines) {
        SCOPED_TRACE(line.content);
        write_file(kFile, line.content);
        int value = kNoValue;
        EXPECT_EQ(get_key_vlaue(kPrintFile, line.key, &value), 0);
        EXPECT_EQ(value, line.value);
    }
    EXPECT_THAT(log_.take(), IsEmpty());
}

TEST_F(GetKeyVlaue, FailsWhereTheFirstLineThatStartsWithTheKeyIsOfAnotherForm) {
    constexpr std::array kLines = {
        KeyLine{"Image1Stable=\n", "Image1Stable", 0},
        KeyLine{"Image1Stable=", "Image1Stable", 0},
        KeyLine{"Image1Stable\n", "Image1Stable", 0},
        KeyLine{"Image1Stable=1\n", "Image1", 0},
        KeyLine{"Image1Stable=1\nImage1=2\n", "Image1", 0},
        KeyLine{"a=x\na=1\n", "a", 0},
        KeyLine{"a =1\n", "a", 0},
        KeyLine{"a:5\n", "a", 0},
        KeyLine{"a12\n", "a", 0},
        KeyLine{"a=-\n", "a", 0},
        KeyLine{"a=- 1\n", "a", 0},
        KeyLine{"a%d=7\n", "a%", 0},
        KeyLine{"a=1\n", "", 0},
        KeyLine{"\n=5\n", "", 0},
        KeyLine{"a==3\n", "a", 0},
    };
    for (const KeyLine& line : kLines) {
        SCOPED_TRACE(line.content);
        write_file(kFile, line.content);
        int value = kNoValue;
        EXPECT_EQ(get_key_vlaue(kPrintFile, line.key, &value), -1);
        EXPECT_EQ(value, kNoValue);
        EXPECT_THAT(log_.take(), Failed("get_key_vlaue", "sscanf fail\n"));
    }
}

TEST_F(GetKeyVlaue, FailsWhereNoLineStartsWithTheKey) {
    constexpr std::array kLines = {
        KeyLine{"", "Image1Stable", 0},
        KeyLine{"\n\n", "Image1Stable", 0},
        KeyLine{"bootdelay=3\nImage2Stable=1\n", "Image1Stable", 0},
        KeyLine{"image1stable=1\n", "Image1Stable", 0},
        KeyLine{" Image1Stable=1\n", "Image1Stable", 0},
        KeyLine{"Image1Stabl", "Image1Stable", 0},
        KeyLine{"", "", 0},
        KeyLine{"axb=1\n", "a%s%n", 0},
    };
    for (const KeyLine& line : kLines) {
        SCOPED_TRACE(line.content);
        write_file(kFile, line.content);
        int value = kNoValue;
        EXPECT_EQ(get_key_vlaue(kPrintFile, line.key, &value), -1);
        EXPECT_EQ(value, kNoValue);
        EXPECT_THAT(log_.take(),
                    Failed("get_key_vlaue", "not find " + std::string(line.key) + "\n"));
    }
}

TEST_F(GetKeyVlaue, IgnoresTheExitStatus) {
    int value = kNoValue;
    EXPECT_EQ(get_key_vlaue("echo a=3; exit 9", "a", &value), 0);
    EXPECT_EQ(value, 3);
    EXPECT_THAT(log_.take(), IsEmpty());
    EXPECT_EQ(get_key_vlaue("exit 9", "a", &value), -1);
    EXPECT_THAT(log_.take(), Failed("get_key_vlaue", "not find a\n"));
}

TEST_F(GetKeyVlaue, StopsReadingAtTheKey) {
    int value = kNoValue;
    EXPECT_EQ(get_key_vlaue("echo a=3; yes", "a", &value), 0);
    EXPECT_EQ(value, 3);
}

TEST_F(GetKeyVlaue, WaitsForALineThatComesInPieces) {
    int value = kNoValue;
    EXPECT_EQ(
        get_key_vlaue("printf 'x\\na'; sleep 0.02; printf =1; sleep 0.02; echo 2", "a", &value), 0);
    EXPECT_EQ(value, 12);
}

TEST_F(GetKeyVlaue, SeesALongLineAsPieces) {
    int value = kNoValue;
    write_file(kFile, std::string(kPiece, 'x') + "Key=5\n");
    EXPECT_EQ(get_key_vlaue(kPrintFile, "Key", &value), 0);
    EXPECT_EQ(value, 5);
    EXPECT_THAT(log_.take(), IsEmpty());

    write_file(kFile, std::string(kPiece + 1, 'x') + "Key=5\n");
    EXPECT_EQ(get_key_vlaue(kPrintFile, "Key", &value), -1);
    write_file(kFile, std::string(kPiece - 1, 'x') + "Key=5\n");
    EXPECT_EQ(get_key_vlaue(kPrintFile, "Key", &value), -1);
    EXPECT_THAT(log_.take(), ElementsAre(Line(LOG_ERR, "get_key_vlaue", "not find Key\n"),
                                         Line(LOG_ERR, "get_key_vlaue", "not find Key\n")));
}

TEST_F(GetKeyVlaue, ReadsOnlyTheDigitsWithinThePiece) {
    const std::string key(kPiece - 3, 'k');
    write_file(kFile, key + "=1234\n");
    int value = kNoValue;
    EXPECT_EQ(get_key_vlaue(kPrintFile, key.c_str(), &value), 0);
    EXPECT_EQ(value, 12);
}

TEST_F(GetKeyVlaue, NeverFindsAKeyThatIsLongerThanAPiece) {
    const std::string fitting(kPiece, 'k');
    const std::string longer(kPiece + 1, 'k');
    write_file(kFile, longer + "=1\n");
    int value = kNoValue;
    EXPECT_EQ(get_key_vlaue(kPrintFile, fitting.c_str(), &value), -1);
    EXPECT_THAT(log_.take(), Failed("get_key_vlaue", "sscanf fail\n"));
    EXPECT_EQ(get_key_vlaue(kPrintFile, longer.c_str(), &value), -1);
    EXPECT_THAT(log_.take(), Failed("get_key_vlaue", "not find " + longer + "\n"));
    EXPECT_EQ(value, kNoValue);
}

TEST_F(GetKeyVlaue, LetsNoChildInheritThePipe) {
    int value = kNoValue;
    expect_nothing_inherited("a=1\n", [&] { return get_key_vlaue("cat /tmp/fifo", "a", &value); });
    EXPECT_EQ(value, 1);
}

TEST_F(GetKeyVlaue, FailsWithoutAPipe) {
    const Fail fail("popen", 1, ENOMEM);
    int value = kNoValue;
    EXPECT_EQ(get_key_vlaue("echo a=1", "a", &value), -1);
    EXPECT_TRUE(fail.fired());
    EXPECT_EQ(value, kNoValue);
    EXPECT_THAT(log_.take(), Failed("get_key_vlaue", "popen fail, cmd = echo a=1\n\n"));
}

TEST_F(GetKeyVlaue, FailsWhereTheOutputCannotBeRead) {
    const Fail fail("read");
    int value = kNoValue;
    EXPECT_EQ(get_key_vlaue("echo a=1", "a", &value), -1);
    EXPECT_TRUE(fail.fired());
    EXPECT_EQ(value, kNoValue);
    EXPECT_THAT(log_.take(), Failed("get_key_vlaue", "not find a\n"));
}

TEST_F(GetKeyVlaue, RejectsBadArguments) {
    int value = kNoValue;
    EXPECT_EQ(get_key_vlaue(nullptr, "a", &value), -1);
    EXPECT_THAT(log_.take(), Rejected("get_key_vlaue"));
    EXPECT_EQ(get_key_vlaue("echo a=1 > /tmp/out", nullptr, &value), -1);
    EXPECT_THAT(log_.take(), Rejected("get_key_vlaue"));
    EXPECT_EQ(get_key_vlaue("echo a=1 > /tmp/out", "a", nullptr), -1);
    EXPECT_THAT(log_.take(), Rejected("get_key_vlaue"));
    EXPECT_EQ(value, kNoValue);
    EXPECT_FALSE(exists("/tmp/out"));
}

// read_line

TEST_F(ReadLine, CopiesFromTheNeedleOn) {
    write_file(kFile, "first\nfoo bar baz\nbar again\n");
    Buffer out(20);
    EXPECT_EQ(read_line(kFile, "bar", out.data(), out.size()), 0);
    EXPECT_EQ(out.all(), "bar baz\n" + std::string(12, '\0'));
    EXPECT_TRUE(out.guard_holds());
    EXPECT_THAT(log_.take(), IsEmpty());
}

TEST_F(ReadLine, CutsTheTailToTheBuffer) {
    write_file(kFile, "foo bar baz\n");
    const std::string tail = "bar baz\n";
    for (int size = 1; size <= 11; size++) {
        SCOPED_TRACE(size);
        Buffer out(size);
        EXPECT_EQ(read_line(kFile, "bar", out.data(), size), 0);
        EXPECT_EQ(out.text(), tail.substr(0, static_cast<size_t>(size - 1)));
        EXPECT_EQ(out.all().back(), '\0');
        EXPECT_TRUE(out.guard_holds());
    }
    EXPECT_THAT(log_.take(), IsEmpty());
}

struct NeedleLine {
    const char* content;
    const char* needle;
    const char* tail;
};

TEST_F(ReadLine, FindsTheFirstLineWithTheNeedle) {
    constexpr std::array kLines = {
        NeedleLine{"abc\n", "abc", "abc\n"},
        NeedleLine{"abc", "c", "c"},
        NeedleLine{"a\nb\nc needle x\nneedle y\n", "needle", "needle x\n"},
        NeedleLine{"bar bar bar\n", "bar", "bar bar bar\n"},
        NeedleLine{"babar\n", "bar", "bar\n"},
        NeedleLine{"crlf\r\n", "lf", "lf\r\n"},
        NeedleLine{"one\ntwo\n", "", "one\n"},
        NeedleLine{"\none\n", "", "\n"},
        NeedleLine{"one\ntwo\n", "\n", "\n"},
        NeedleLine{"x\n%s%n\n", "%s", "%s%n\n"},
    };
    for (const NeedleLine& line : kLines) {
        SCOPED_TRACE(line.content);
        write_file(kFile, line.content);
        Buffer out(100);
        EXPECT_EQ(read_line(kFile, line.needle, out.data(), out.size()), 0);
        EXPECT_EQ(out.text(), line.tail);
    }
    EXPECT_THAT(log_.take(), IsEmpty());
}

TEST_F(ReadLine, FailsWhereNoLineHasTheNeedle) {
    constexpr std::array kLines = {
        NeedleLine{"", "bar", nullptr},        NeedleLine{"", "", nullptr},
        NeedleLine{"ba\nr\n", "bar", nullptr}, NeedleLine{"BAR\n", "bar", nullptr},
        NeedleLine{"ba", "bar", nullptr},      NeedleLine{"bar\n", "b%sr%n", nullptr},
    };
    for (const NeedleLine& line : kLines) {
        SCOPED_TRACE(line.content);
        write_file(kFile, line.content);
        Buffer out(100);
        EXPECT_EQ(read_line(kFile, line.needle, out.data(), out.size()), -1);
        EXPECT_EQ(out.text(), "");
        EXPECT_THAT(log_.take(),
                    Failed("read_line", "not find " + std::string(line.needle) + "\n"));
    }
}

TEST_F(ReadLine, SeesALongLineAsPieces) {
    Buffer out(100);
    write_file(kFile, std::string(kPiece, 'x') + "needle\n");
    EXPECT_EQ(read_line(kFile, "needle", out.data(), out.size()), 0);
    EXPECT_EQ(out.text(), "needle\n");

    write_file(kFile, std::string(kPiece - 6, 'x') + "needle tail\n");
    EXPECT_EQ(read_line(kFile, "needle", out.data(), out.size()), 0);
    EXPECT_EQ(out.text(), "needle");
    EXPECT_THAT(log_.take(), IsEmpty());

    for (size_t before = kPiece - 5; before < kPiece; before++) {
        SCOPED_TRACE(before);
        write_file(kFile, std::string(before, 'x') + "needle\n");
        EXPECT_EQ(read_line(kFile, "needle", out.data(), out.size()), -1);
        EXPECT_THAT(log_.take(), Failed("read_line", "not find needle\n"));
    }
}

TEST_F(ReadLine, FailsWithoutTheFile) {
    Buffer out(10);
    EXPECT_EQ(read_line("/tmp/no%s%n", "bar", out.data(), out.size()), -1);
    EXPECT_EQ(out.text(), "");
    EXPECT_THAT(log_.take(), Failed("read_line", "fopen /tmp/no%s%n fail\n"));

    const std::string too_long = "/tmp/" + std::string(5000, 'x');
    EXPECT_EQ(read_line(too_long.c_str(), "bar", out.data(), out.size()), -1);
    EXPECT_THAT(log_.take(), Failed("read_line", "fopen " + too_long + " fail\n"));
}

TEST_F(ReadLine, FailsOnAFileOfAnotherUser) {
    write_file(kFile, "bar\n");
    chmod(kFile, 0600);
    const int result = as_nobody([] {
        Buffer out(10);
        return read_line(kFile, "bar", out.data(), out.size()) == -1 && out.text().empty() ? 42 : 1;
    });
    EXPECT_EQ(result, 42);
    EXPECT_THAT(log_.take(), Failed("read_line", "fopen /tmp/file fail\n"));
}

TEST_F(ReadLine, FindsNothingInADirectory) {
    Buffer out(10);
    EXPECT_EQ(read_line("/tmp", "bar", out.data(), out.size()), -1);
    EXPECT_EQ(out.text(), "");
    EXPECT_THAT(log_.take(), Failed("read_line", "not find bar\n"));
}

TEST_F(ReadLine, FindsNothingWhereTheFileCannotBeRead) {
    write_file(kFile, "bar\n");
    const Fail fail("read");
    Buffer out(10);
    EXPECT_EQ(read_line(kFile, "bar", out.data(), out.size()), -1);
    EXPECT_TRUE(fail.fired());
    EXPECT_EQ(out.text(), "");
    EXPECT_THAT(log_.take(), Failed("read_line", "not find bar\n"));
}

TEST_F(ReadLine, LetsNoChildInheritTheFile) {
    Buffer out(10);
    expect_nothing_inherited("abc\n",
                             [&] { return read_line(kFifo, "b", out.data(), out.size()); });
    EXPECT_EQ(out.text(), "bc\n");
}

TEST_F(ReadLine, ReadsAKernelFile) {
    Buffer out(64);
    EXPECT_EQ(read_line("/proc/self/status", "Pid:", out.data(), out.size()), 0);
    EXPECT_EQ(out.text(), "Pid:\t" + std::to_string(getpid()) + "\n");
}

TEST_F(ReadLine, RejectsBadArguments) {
    write_file(kFile, "bar\n");
    Buffer out(10);
    EXPECT_EQ(read_line(nullptr, "bar", out.data(), out.size()), -1);
    EXPECT_THAT(log_.take(), Rejected("read_line"));
    EXPECT_EQ(read_line(kFile, nullptr, out.data(), out.size()), -1);
    EXPECT_THAT(log_.take(), Rejected("read_line"));
    EXPECT_EQ(read_line(kFile, "bar", nullptr, 10), -1);
    EXPECT_THAT(log_.take(), Rejected("read_line"));
    for (const int size : {0, -1, INT_MIN}) {
        EXPECT_EQ(read_line(kFile, "bar", out.data(), size), -1);
        EXPECT_THAT(log_.take(), Rejected("read_line"));
    }
    EXPECT_TRUE(out.untouched());
}

// The two line scanners beside plain fgets(), on files with lines around the length of a piece.

class Scanner {
  public:
    explicit Scanner(const char* path) : file_(fopen(path, "r")) {}

    const char* next() { return fgets(line_.data(), kPiece + 1, file_.get()); }

  private:
    File file_;
    std::array<char, kPiece + 1> line_{};
};

std::optional<std::string> modelled_tail(const std::string& needle, size_t size) {
    Scanner lines(kFile);
    while (const char* line = lines.next()) {
        const char* match = strstr(line, needle.c_str());
        if (match) return std::string(match).substr(0, size - 1);
    }
    return std::nullopt;
}

std::optional<int> modelled_value(const std::string& key) {
    Scanner lines(kFile);
    while (const char* line = lines.next()) {
        if (strncmp(line, key.c_str(), key.size()) != 0) continue;
        int value = 0;
        if (sscanf(line + key.size(), "=%d", &value) != 1) return std::nullopt;
        return value;
    }
    return std::nullopt;
}

class RandomText {
  public:
    explicit RandomText(unsigned seed) : random_(seed) {}

    size_t below(size_t limit) { return random_() % limit; }

    // Words, digits and zero bytes; lines of any length, many of them next to a piece's.
    std::string file() {
        constexpr std::string_view kAlphabet = "abc=12";
        std::string text;
        for (size_t lines = 1 + below(8); lines > 0; lines--) {
            const size_t length =
                below(2) == 0 ? below(12) : kPiece * (1 + below(3)) + below(12) - 6;
            for (size_t i = 0; i < length; i++)
                text += kAlphabet[below(kAlphabet.size())];
            if (below(6) == 0 && length > 0) text[text.size() - 1 - below(length)] = '\0';
            text += '\n';
        }
        if (below(3) == 0) text.pop_back();
        return text;
    }

    std::string word(size_t longest) {
        constexpr std::string_view kAlphabet = "abc";
        std::string text;
        for (size_t length = 1 + below(longest); length > 0; length--)
            text += kAlphabet[below(kAlphabet.size())];
        return text;
    }

  private:
    std::mt19937 random_;
};

TEST_F(ReadLine, SplitsLinesAsFgetsDoes) {
    RandomText random(20240611);
    int found = 0;
    int missed = 0;
    for (int round = 0; round < 400; round++) {
        SCOPED_TRACE(round);
        write_file(kFile, random.file());
        const std::string needle = random.word(9);
        Buffer out(static_cast<int>(1 + random.below(1100)));
        const std::optional<std::string> tail =
            modelled_tail(needle, static_cast<size_t>(out.size()));
        ASSERT_EQ(read_line(kFile, needle.c_str(), out.data(), out.size()), tail ? 0 : -1)
            << needle;
        ASSERT_EQ(out.text(), tail.value_or(""));
        ASSERT_TRUE(out.guard_holds());
        tail ? found++ : missed++;
        log_.take();
    }
    EXPECT_GT(found, 50);
    EXPECT_GT(missed, 50);
}

TEST_F(GetKeyVlaue, SplitsLinesAsFgetsDoes) {
    RandomText random(777);
    int found = 0;
    int missed = 0;
    for (int round = 0; round < 60; round++) {
        SCOPED_TRACE(round);
        const std::string key = random.word(2);
        // A line of the key's own, which another line may come before.
        write_file(kFile, random.file() + std::string(random.below(2) * kPiece, 'x') + key + "=" +
                              std::to_string(random.below(100000)) + "\n" + random.file());
        const std::optional<int> expected = modelled_value(key);
        int value = kNoValue;
        const int result = get_key_vlaue(kPrintFile, key.c_str(), &value);
        ASSERT_EQ(result, expected ? 0 : -1) << key;
        ASSERT_EQ(value, expected.value_or(kNoValue));
        expected ? found++ : missed++;
        log_.take();
    }
    EXPECT_GT(found, 10);
    EXPECT_GT(missed, 10);
}

// tq_hal_file_gets

class FileGetsBuffer : public Buffer {
  public:
    explicit FileGetsBuffer(int size) : Buffer(size + 2) {}
};

TEST_F(FileGets, GivesNothingAtTheEnd) {
    const File fp = open_file("");
    FileGetsBuffer buf(10);
    EXPECT_EQ(tq_hal_file_gets(buf.data(), 10, fp.get()), nullptr);
    EXPECT_EQ(buf.text(), "");
}

TEST_F(FileGets, GivesALastLineWithoutItsLineFeed) {
    const File fp = open_file("x");
    FileGetsBuffer buf(10);
    EXPECT_EQ(tq_hal_file_gets(buf.data(), 10, fp.get()), buf.data());
    EXPECT_EQ(buf.text(), "x");
    EXPECT_EQ(tq_hal_file_gets(buf.data(), 10, fp.get()), nullptr);
}

std::vector<std::string> lines_of(FILE* fp, int size) {
    std::vector<std::string> lines;
    FileGetsBuffer buf(size);
    while (tq_hal_file_gets(buf.data(), size, fp))
        lines.push_back(buf.text());
    return lines;
}

TEST_F(FileGets, EndsALineAtACarriageReturnToo) {
    const File fp = open_file("one\r\ntwo\n\rthree\r");
    EXPECT_THAT(lines_of(fp.get(), 20), ElementsAre("one\r", "\n", "two\n", "\r", "three\r"));
}

TEST_F(FileGets, TakesAByteFfForTheEnd) {
    const File fp = open_file(
        "ab\xff"
        "cd\n\xff"
        "ef\n");
    EXPECT_THAT(lines_of(fp.get(), 20), ElementsAre("ab", "cd\n"));
    EXPECT_EQ(rest_of(fp.get()), "ef\n");
}

TEST_F(FileGets, FillsTwoBytesBeyondTheSize) {
    const File fp = open_file("abcdefghi\n");
    FileGetsBuffer buf(4);
    EXPECT_EQ(tq_hal_file_gets(buf.data(), 4, fp.get()), buf.data());
    EXPECT_EQ(buf.all(), std::string("abcde\0", 6));
    EXPECT_TRUE(buf.guard_holds());
    EXPECT_EQ(tq_hal_file_gets(buf.data(), 4, fp.get()), buf.data());
    EXPECT_EQ(buf.text(), "fghi\n");
    EXPECT_TRUE(buf.guard_holds());
    EXPECT_EQ(tq_hal_file_gets(buf.data(), 4, fp.get()), nullptr);
}

TEST_F(FileGets, ClearsTheSizeFirst) {
    const File fp = open_file("a\n");
    FileGetsBuffer buf(8);
    EXPECT_EQ(tq_hal_file_gets(buf.data(), 8, fp.get()), buf.data());
    EXPECT_EQ(buf.all(), std::string("a\n\0\0\0\0\0\0", 8) + std::string(2, kUntouched));
}

TEST_F(FileGets, WaitsForTheLockOfTheStream) {
    const File fp = open_file("line\n");
    FileGetsBuffer buf(10);
    flockfile(fp.get());
    auto line =
        std::async(std::launch::async, [&] { return tq_hal_file_gets(buf.data(), 10, fp.get()); });
    EXPECT_EQ(line.wait_for(std::chrono::milliseconds(50)), std::future_status::timeout);
    funlockfile(fp.get());
    EXPECT_EQ(line.get(), buf.data());
    EXPECT_EQ(buf.text(), "line\n");
}

TEST_F(FileGets, LeavesTheLockToTheCallerWhoManagesIt) {
    const File fp = open_file("line\n");
    FileGetsBuffer buf(10);
    __fsetlocking(fp.get(), FSETLOCKING_BYCALLER);
    flockfile(fp.get());
    auto line =
        std::async(std::launch::async, [&] { return tq_hal_file_gets(buf.data(), 10, fp.get()); });
    EXPECT_EQ(line.wait_for(std::chrono::seconds(5)), std::future_status::ready);
    funlockfile(fp.get());
    EXPECT_EQ(line.get(), buf.data());
    EXPECT_EQ(buf.text(), "line\n");
}

// The locking call of the C library may see by itself that there is nothing to lock.
TEST_F(FileGets, MakesNoLockingCallWhereTheCallerManagesTheLock) {
    const File fp = open_file("one\ntwo\n");
    FileGetsBuffer buf(10);
    fgetc_calls = 0;
    EXPECT_EQ(tq_hal_file_gets(buf.data(), 10, fp.get()), buf.data());
    EXPECT_EQ(fgetc_calls, 4);
    __fsetlocking(fp.get(), FSETLOCKING_BYCALLER);
    EXPECT_EQ(tq_hal_file_gets(buf.data(), 10, fp.get()), buf.data());
    EXPECT_EQ(buf.text(), "two\n");
    EXPECT_EQ(fgetc_calls, 4);
}

TEST_F(FileGets, RejectsBadArgumentsSilently) {
    const File fp = open_file("line\n");
    FileGetsBuffer buf(8);
    EXPECT_EQ(tq_hal_file_gets(nullptr, 8, fp.get()), nullptr);
    EXPECT_EQ(tq_hal_file_gets(buf.data(), 8, nullptr), nullptr);
    for (const int size : {0, -1, INT_MIN})
        EXPECT_EQ(tq_hal_file_gets(buf.data(), size, fp.get()), nullptr);
    EXPECT_TRUE(buf.untouched());
    EXPECT_EQ(rest_of(fp.get()), "line\n");
    EXPECT_THAT(log_.take(), IsEmpty());
}

// What the next call takes from the text and leaves in the buffer, from its description.
struct GetsModel {
    std::string text;
    size_t position = 0;

    bool next(std::string& buffer, size_t size) {
        std::fill_n(buffer.begin(), size, '\0');
        for (size_t i = 0;; i++) {
            const bool ended = position == text.size();
            const char byte = ended ? '\0' : text[position++];
            if (ended || byte == '\xff') {
                buffer[i] = '\0';
                return i > 0;
            }
            buffer[i] = byte;
            if (byte == '\n' || byte == '\r' || i == size) {
                buffer[i + 1] = '\0';
                return true;
            }
        }
    }
};

std::string random_bytes(std::mt19937& random) {
    constexpr std::string_view kBytes("ab\xff\r\n\0\x80\x7f", 8);
    std::string bytes;
    for (size_t length = random() % 200; length > 0; length--) {
        const size_t kind = random() % 24;
        bytes += kind < kBytes.size() ? kBytes[kind] : 'x';
    }
    return bytes;
}

TEST_F(FileGets, AgreesWithItsModelForEverySize) {
    std::mt19937 random = seeded(42);
    for (int size = 1; size <= 64; size++) {
        for (int round = 0; round < 20; round++) {
            SCOPED_TRACE(size);
            GetsModel model{random_bytes(random)};
            const File fp = open_file(model.text);
            // The result is the same where the caller has taken over the locking.
            if (round % 2 == 1) __fsetlocking(fp.get(), FSETLOCKING_BYCALLER);
            FileGetsBuffer buf(size);
            std::string expected = buf.all();
            for (size_t calls = 0; calls <= model.text.size() + 1; calls++) {
                const bool more = model.next(expected, static_cast<size_t>(size));
                ASSERT_EQ(tq_hal_file_gets(buf.data(), size, fp.get()),
                          more ? buf.data() : nullptr);
                ASSERT_EQ(buf.all(), expected);
                ASSERT_TRUE(buf.guard_holds());
            }
        }
    }
}

// tq_hal_get_file_line

std::vector<std::string> significant_lines(FILE* fp) {
    std::vector<std::string> lines;
    while (const HeapLine line{tq_hal_get_file_line(fp)})
        lines.emplace_back(line.get());
    return lines;
}

TEST_F(GetFileLine, SkipsCommentsAndBlankLines) {
    const File fp = open_file("# comment\n\nvalue\n");
    EXPECT_THAT(significant_lines(fp.get()), ElementsAre("value"));
    EXPECT_THAT(log_.take(), IsEmpty());
}

TEST_F(GetFileLine, GivesOneLineAfterTheOther) {
    const File fp = open_file("one\n#\n\r\ntwo\r\n \n #no comment\n\tthree # x\nfour\n");
    EXPECT_THAT(significant_lines(fp.get()),
                ElementsAre("one", "two", " ", " #no comment", "\tthree # x", "four"));
    EXPECT_EQ(rest_of(fp.get()), "");
}

TEST_F(GetFileLine, DropsTheLastCharacterOfALineWithoutLineFeed) {
    const File fp = open_file("abc");
    EXPECT_THAT(significant_lines(fp.get()), ElementsAre("ab"));
    const File one = open_file("a");
    EXPECT_THAT(significant_lines(one.get()), ElementsAre(""));
}

TEST_F(GetFileLine, GivesNothingAtTheEnd) {
    for (const char* content : {"", "\n\r\n", "# only\n#comments", "\xffhidden\n"}) {
        SCOPED_TRACE(content);
        const File fp = open_file(content);
        EXPECT_THAT(significant_lines(fp.get()), IsEmpty());
    }
    EXPECT_THAT(log_.take(), IsEmpty());
}

TEST_F(GetFileLine, SplitsALongLineWithoutItsLastCharacter) {
    // 65535 bytes, one more at the index of the size, and that one is dropped as the line's last.
    const File fp = open_file(std::string(65535, 'a') + "b" + std::string(4464, 'c') + "\nnext\n");
    EXPECT_THAT(significant_lines(fp.get()),
                ElementsAre(std::string(65535, 'a'), std::string(4464, 'c'), "next"));
}

TEST_F(GetFileLine, GivesTheLongestWholeLine) {
    const File fp = open_file(std::string(65535, 'a') + "\nnext\n");
    EXPECT_THAT(significant_lines(fp.get()), ElementsAre(std::string(65535, 'a'), "next"));
}

TEST_F(GetFileLine, SeesTheRestOfALongCommentAsALine) {
    const File fp = open_file("#" + std::string(65535, 'x') + "rest\n");
    EXPECT_THAT(significant_lines(fp.get()), ElementsAre("rest"));
}

TEST_F(GetFileLine, StaysWithinALineOfZeroBytes) {
    const File fp = open_file(std::string("\0\0\nnext\n", 8));
    EXPECT_THAT(significant_lines(fp.get()), ElementsAre("", "next"));
}

TEST_F(GetFileLine, RejectsAMissingStreamSilently) {
    EXPECT_EQ(tq_hal_get_file_line(nullptr), nullptr);
    EXPECT_THAT(log_.take(), IsEmpty());
}

// The stream has a buffer of its own, so that the only memory asked for is the function's.
struct BufferedFile {
    explicit BufferedFile(const std::string& content) : file(open_file(content)) {
        setvbuf(file.get(), buffer.data(), _IOFBF, buffer.size());
    }

    std::array<char, 256> buffer{};
    File file;
};

TEST_F(GetFileLine, ReadsNothingWithoutMemoryForTheWork) {
    TQ_NEEDS_FAILING_ALLOCATOR();
    const BufferedFile lines("one\ntwo\n");
    const Fail fail("malloc", 1, ENOMEM);
    EXPECT_EQ(tq_hal_get_file_line(lines.file.get()), nullptr);
    EXPECT_TRUE(fail.fired());
    EXPECT_THAT(significant_lines(lines.file.get()), ElementsAre("one", "two"));
    EXPECT_THAT(log_.take(), IsEmpty());
}

TEST_F(GetFileLine, LosesALineWithoutMemoryForTheCopy) {
    TQ_NEEDS_FAILING_ALLOCATOR();
    const BufferedFile lines("one\ntwo\n");
    const Fail fail("strdup", 1, ENOMEM);
    EXPECT_EQ(tq_hal_get_file_line(lines.file.get()), nullptr);
    EXPECT_TRUE(fail.fired());
    EXPECT_THAT(significant_lines(lines.file.get()), ElementsAre("two"));
    EXPECT_THAT(log_.take(), IsEmpty());
}

// nucleus_fgets

std::string numbered_lines(int count) {
    std::string lines;
    for (int i = 1; i <= count; i++)
        lines += "line " + std::to_string(i) + ".\n";
    return lines;
}

// The traces of the first lines of such a file; each is the line, line feed included, and another.
std::vector<testing::Matcher<LogLine>> traces(int count) {
    std::vector<testing::Matcher<LogLine>> expected;
    for (int i = 1; i <= count; i++)
        expected.emplace_back(
            Line(LOG_DEBUG, "nucleus_fgets", "line " + std::to_string(i) + ".\n\n"));
    return expected;
}

TEST_F(NucleusFgets, GivesTheNextLineWithoutANeedle) {
    const File fp = open_file("one\ntwo");
    Buffer buf(20);
    EXPECT_EQ(nucleus_fgets(buf.data(), buf.size(), fp.get(), nullptr), 0);
    EXPECT_EQ(buf.text(), "one\n");
    EXPECT_EQ(nucleus_fgets(buf.data(), buf.size(), fp.get(), nullptr), 0);
    EXPECT_EQ(buf.text(), "two");
    EXPECT_EQ(nucleus_fgets(buf.data(), buf.size(), fp.get(), nullptr), -1);
    EXPECT_THAT(log_.take(), ElementsAre(Line(LOG_DEBUG, "nucleus_fgets", "one\n\n"),
                                         Line(LOG_DEBUG, "nucleus_fgets", "two\n"),
                                         Line(LOG_ERR, "nucleus_fgets", "fgets fail\n")));
}

TEST_F(NucleusFgets, StopsAtTheLineWithTheNeedle) {
    const File fp = open_file(numbered_lines(5));
    Buffer buf(20);
    EXPECT_EQ(nucleus_fgets(buf.data(), buf.size(), fp.get(), "e 3."), 0);
    EXPECT_EQ(buf.text(), "line 3.\n");
    EXPECT_THAT(log_.take(), testing::ElementsAreArray(traces(3)));
    EXPECT_EQ(rest_of(fp.get()), "line 4.\nline 5.\n");
}

TEST_F(NucleusFgets, FindsTheNeedleInTheFirstLine) {
    const File fp = open_file(numbered_lines(2));
    Buffer buf(20);
    EXPECT_EQ(nucleus_fgets(buf.data(), buf.size(), fp.get(), ""), 0);
    EXPECT_EQ(buf.text(), "line 1.\n");
    EXPECT_THAT(log_.take(), testing::ElementsAreArray(traces(1)));
}

TEST_F(NucleusFgets, FailsAtTheEndOfTheFile) {
    const File fp = open_file(numbered_lines(3));
    Buffer buf(20);
    EXPECT_EQ(nucleus_fgets(buf.data(), buf.size(), fp.get(), "%s%n"), -1);
    auto expected = traces(3);
    expected.emplace_back(Line(LOG_ERR, "nucleus_fgets", "don't find key word '%s%n'\n"));
    EXPECT_THAT(log_.take(), testing::ElementsAreArray(expected));
}

TEST_F(NucleusFgets, FailsOnAnEmptyFile) {
    for (const char* needle : {"needle", static_cast<const char*>(nullptr)}) {
        const File fp = open_file("");
        Buffer buf(20);
        EXPECT_EQ(nucleus_fgets(buf.data(), buf.size(), fp.get(), needle), -1);
        EXPECT_THAT(log_.take(), Failed("nucleus_fgets", "fgets fail\n"));
    }
}

TEST_F(NucleusFgets, FailsWhereTheFileCannotBeRead) {
    const File fp = open_file(numbered_lines(5));
    Buffer buf(20);
    const Fail fail("fgets", 3);
    EXPECT_EQ(nucleus_fgets(buf.data(), buf.size(), fp.get(), "absent"), -1);
    EXPECT_TRUE(fail.fired());
    auto expected = traces(2);
    expected.emplace_back(Line(LOG_ERR, "nucleus_fgets", "don't find key word 'absent'\n"));
    EXPECT_THAT(log_.take(), testing::ElementsAreArray(expected));
}

TEST_F(NucleusFgets, ExaminesFiveHundredLines) {
    const File fp = open_file(numbered_lines(600));
    Buffer buf(20);
    EXPECT_EQ(nucleus_fgets(buf.data(), buf.size(), fp.get(), "absent"), -1);
    auto expected = traces(500);
    expected.emplace_back(Line(LOG_ERR, "nucleus_fgets", "fgets 500 times, don't find 'absent'\n"));
    EXPECT_THAT(log_.take(), testing::ElementsAreArray(expected));
    EXPECT_EQ(rest_of(fp.get()), numbered_lines(600).substr(numbered_lines(501).size()));
}

TEST_F(NucleusFgets, FindsTheNeedleInTheFiveHundredthLineButNotBeyond) {
    Buffer buf(20);
    const File found = open_file(numbered_lines(600));
    EXPECT_EQ(nucleus_fgets(buf.data(), buf.size(), found.get(), "line 500."), 0);
    EXPECT_EQ(buf.text(), "line 500.\n");
    EXPECT_THAT(log_.take(), testing::ElementsAreArray(traces(500)));

    const File missed = open_file(numbered_lines(600));
    EXPECT_EQ(nucleus_fgets(buf.data(), buf.size(), missed.get(), "line 501."), -1);
    auto expected = traces(500);
    expected.emplace_back(
        Line(LOG_ERR, "nucleus_fgets", "fgets 500 times, don't find 'line 501.'\n"));
    EXPECT_THAT(log_.take(), testing::ElementsAreArray(expected));
}

TEST_F(NucleusFgets, SaysThatTheFileEndedWhereItHasFiveHundredLines) {
    const File fp = open_file(numbered_lines(500));
    Buffer buf(20);
    EXPECT_EQ(nucleus_fgets(buf.data(), buf.size(), fp.get(), "absent"), -1);
    auto expected = traces(500);
    expected.emplace_back(Line(LOG_ERR, "nucleus_fgets", "don't find key word 'absent'\n"));
    EXPECT_THAT(log_.take(), testing::ElementsAreArray(expected));
}

TEST_F(NucleusFgets, ReadsALongLineInPiecesOfTheBuffer) {
    const File fp = open_file("abcdefgh\n");
    Buffer buf(5);
    EXPECT_EQ(nucleus_fgets(buf.data(), buf.size(), fp.get(), "gh"), 0);
    EXPECT_EQ(buf.text(), "efgh");
    EXPECT_TRUE(buf.guard_holds());
    EXPECT_THAT(log_.take(), ElementsAre(Line(LOG_DEBUG, "nucleus_fgets", "abcd\n"),
                                         Line(LOG_DEBUG, "nucleus_fgets", "efgh\n")));
}

TEST_F(NucleusFgets, TracesPercentSignsAsTheyAre) {
    const File fp = open_file("%s%n%d\n");
    Buffer buf(20);
    EXPECT_EQ(nucleus_fgets(buf.data(), buf.size(), fp.get(), "%n"), 0);
    EXPECT_THAT(log_.take(), ElementsAre(Line(LOG_DEBUG, "nucleus_fgets", "%s%n%d\n\n")));
}

TEST_F(NucleusFgets, RejectsMissingArgumentsSilently) {
    const File fp = open_file("line\n");
    Buffer buf(20);
    EXPECT_EQ(nucleus_fgets(nullptr, 20, fp.get(), "line"), -1);
    EXPECT_EQ(nucleus_fgets(buf.data(), buf.size(), nullptr, "line"), -1);
    EXPECT_TRUE(buf.untouched());
    EXPECT_EQ(rest_of(fp.get()), "line\n");
    EXPECT_THAT(log_.take(), IsEmpty());
}

TEST_F(NucleusFgets, ReadsNothingIntoABufferWithoutSize) {
    for (const int size : {0, -1, INT_MIN}) {
        const File fp = open_file("line\n");
        Buffer buf(20);
        EXPECT_EQ(nucleus_fgets(buf.data(), size, fp.get(), "line"), -1);
        EXPECT_TRUE(buf.untouched());
        EXPECT_EQ(rest_of(fp.get()), "line\n");
        EXPECT_THAT(log_.take(), Failed("nucleus_fgets", "fgets fail\n"));
    }
}

TEST_F(NucleusFgets, EndsThoughABufferOfOneByteTakesNoLine) {
    const File fp = open_file("line\n");
    Buffer buf(1);
    EXPECT_EQ(nucleus_fgets(buf.data(), 1, fp.get(), "line"), -1);
    EXPECT_EQ(buf.all(), std::string(1, '\0'));
    EXPECT_TRUE(buf.guard_holds());
    std::vector<testing::Matcher<LogLine>> expected(500, Line(LOG_DEBUG, "nucleus_fgets", "\n"));
    expected.emplace_back(Line(LOG_ERR, "nucleus_fgets", "fgets 500 times, don't find 'line'\n"));
    EXPECT_THAT(log_.take(), testing::ElementsAreArray(expected));
}

}  // namespace
