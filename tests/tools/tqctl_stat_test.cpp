// tqctl_stat_test.cpp - tqctl stat: the figures as text and as JSON, and the live view on a
// terminal.
#include <gmock/gmock.h>
#include <poll.h>
#include <pty.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <termios.h>
#include <unistd.h>

#include <chrono>
#include <csignal>
#include <map>
#include <string>

#include "support/bus.h"
#include "tools/tqctl.h"

namespace {

using namespace tq_test;  // NOLINT(google-build-using-namespace)
using testing::HasSubstr;
using testing::Not;

using Files = std::map<std::string, std::string>;

Files device_files() {
    return {{"stat", "cpu 1 2 3 4 5 6 7 8 9 10\n"},
            {"cpuinfo", "system type : Access Point\n"},
            {"meminfo",
             "MemTotal: 1000 kB\nMemFree: 250 kB\nBuffers: 30 kB\nCached: 40 kB\nSlab: 1 kB\n"},
            {"mtd", "dev: size erasesize name\nmtd0: 00040000 00010000 \"u-boot\"\n"},
            {"net/dev",
             "eth0: 1 2 3 4 0 0 0 5 18446744073709551615 7 8 9 0 0 0 0\n"
             "eth1: 11 12 13 14 0 0 0 15 16 17 18 19 0 0 0 0\n"}};
}

class TqctlStat : public DeviceTest {
  protected:
    TqctlStat() {
        mkdir("/overlay", 0755);
        // The leak sanitizer looks for the command in /proc, which does not have it then.
        setenv("ASAN_OPTIONS", "detect_leaks=0", 1);
    }

    const ScopedProc proc_{device_files()};
};

class TqctlStatWithOverlay : public TqctlStat {
  protected:
    const ScopedBind table_{"/run/mtab", "tmpfs /overlay tmpfs rw 0 0\n"};
    const ScopedMount overlay_{"tmpfs", "/overlay", "tmpfs", 0, "size=8m"};

    TqctlStatWithOverlay() { run_command("ln -sf /run/mtab /etc/mtab"); }
    ~TqctlStatWithOverlay() override { run_command("ln -sf /proc/self/mounts /etc/mtab"); }
};

// The figures

TEST_F(TqctlStat, CpuShowsTypeUsageAndTicks) {
    EXPECT_TRUE(succeeds(tqctl("stat cpu"),
                         "type=Access Point\nusage_percent=0\ntotal_ticks=55\nidle_ticks=4\n"));
    EXPECT_TRUE(succeeds(tqctl("-j stat cpu"),
                         "{\"type\":\"Access Point\",\"usage_percent\":0,\"total_ticks\":55,"
                         "\"idle_ticks\":4}\n"));
}

TEST_F(TqctlStat, CpuUsageIsThatBetweenTwoReadings) {
    unlink("/proc/stat");
    ASSERT_EQ(mkfifo("/proc/stat", 0644), 0);
    const CommandResult result = run_command(
        "(echo cpu 4294967290 0 0 100 0 0 0 0 0 0 >/proc/stat; sleep 0.1;"
        " echo cpu 4294967295 5 5 105 0 0 0 0 0 0 >/proc/stat) & tqctl stat cpu; wait");
    EXPECT_TRUE(succeeds(result,
                         "type=Access Point\nusage_percent=75\ntotal_ticks=114\n"
                         "idle_ticks=105\n"));
}

TEST_F(TqctlStat, FiguresOfTheServiceAreThereWhereItAnswers) {
    const Broker broker;
    const BusService service(
        {"statistics=int:cpuUsage:41,int:cpuCurUsage:42,int:memoryUsage:43,"
         "int:ifInFlow:44,int:ifOutFlow:45"});
    EXPECT_TRUE(succeeds(tqctl("stat cpu"),
                         "type=Access Point\nusage_percent=0\nservice_average_percent=41\n"
                         "service_now_percent=42\ntotal_ticks=55\nidle_ticks=4\n"));
    EXPECT_THAT(tqctl("stat mem").out, HasSubstr("\nservice_average_percent=43\n"));
    EXPECT_THAT(tqctl("stat ports").out, HasSubstr("\neth1.in_flow=44\neth1.out_flow=45\n"));
}

TEST_F(TqctlStat, MemShowsTheFiguresInKilobytes) {
    EXPECT_TRUE(succeeds(tqctl("stat mem"),
                         "usage_percent=75\ntotal_kb=1000\nfree_kb=250\nbuffers_kb=30\n"
                         "cached_kb=40\n"));
}

TEST_F(TqctlStat, MemOfNoMemoryIsNothingToStumbleOver) {
    write_file("/proc/meminfo", "MemTotal: 0\nMemFree: 0\nBuffers: 0\nCached: 0\n");
    EXPECT_THAT(tqctl("stat mem").out, HasSubstr("usage_percent=0\n"));
}

TEST_F(TqctlStatWithOverlay, FlashShowsSizeAndRoom) {
    EXPECT_TRUE(
        succeeds(tqctl("stat flash"), "first_partition_bytes=262144\noverlay_free_kb=8192\n"));
}

TEST_F(TqctlStat, UptimeIsInSeconds) {
    const CommandResult result = tqctl("stat uptime");
    EXPECT_EQ(result.status, kDone);
    EXPECT_THAT(result.out, testing::MatchesRegex("seconds=[0-9]+\n"));
}

TEST_F(TqctlStat, PortsShowsEachCounter) {
    const CommandResult result = tqctl("stat ports");
    EXPECT_TRUE(succeeds(
        result,
        "eth0.in_octets=1\neth0.in_packets=2\neth0.in_errors=3\neth0.in_discards=4\n"
        "eth0.in_multicast=5\neth0.out_octets=18446744073709551615\neth0.out_packets=7\n"
        "eth0.out_errors=8\neth0.out_discards=9\neth0.in_flow=0\neth0.out_flow=0\n"
        "eth1.in_octets=11\neth1.in_packets=12\neth1.in_errors=13\neth1.in_discards=14\n"
        "eth1.in_multicast=15\neth1.out_octets=16\neth1.out_packets=17\neth1.out_errors=18\n"
        "eth1.out_discards=19\neth1.in_flow=0\neth1.out_flow=0\n"));
    EXPECT_THAT(tqctl("-j stat ports").out, HasSubstr("{\"eth0\":{\"in_octets\":1,"));
}

TEST_F(TqctlStatWithOverlay, AllShowsEveryGroup) {
    const CommandResult lines = tqctl("stat all");
    EXPECT_EQ(lines.status, kDone);
    EXPECT_EQ(lines.err, "");
    for (const char* line :
         {"cpu.type=Access Point\n", "\nmem.total_kb=1000\n", "\nflash.overlay_free_kb=8192\n",
          "\nuptime.seconds=", "\nports.eth1.out_discards=19\n"})
        EXPECT_THAT(lines.out, HasSubstr(line));
    const Json json = parse(tqctl("-j stat all").out);
    EXPECT_THAT(member(json, "mem"), HasSubstr("\"free_kb\": 250"));
    EXPECT_THAT(member(json, "ports"), HasSubstr("\"eth1\": { \"in_octets\": 11"));
}

TEST_F(TqctlStat, WhatCannotBeReadIsSaidAndTheRestShown) {
    unlink("/proc/mtd");
    write_file("/proc/stat", "cpu 1\n");
    write_file("/proc/meminfo", "MemTotal: 1\n");
    write_file("/proc/net/dev", "eth1: 11 12 13 14 0 0 0 15 16 17 18 19 0 0 0 0\n");
    for (const char* verb : {"cpu", "mem", "flash", "ports", "all"}) {
        const CommandResult result = tqctl(std::string("stat ") + verb);
        EXPECT_EQ(result.status, kRefused) << verb;
        EXPECT_THAT(result.err, HasSubstr("not every figure can be read"));
    }
    EXPECT_EQ(tqctl("stat cpu").out, "type=Access Point\n");
    EXPECT_THAT(tqctl("stat ports").out, testing::StartsWith("eth1.in_octets=11\n"));
    EXPECT_TRUE(parse(tqctl("-j stat all").out));
    EXPECT_EQ(tqctl("-j stat mem").out, "{}\n");
    unlink("/etc/board.conf");
    EXPECT_TRUE(fails(tqctl("stat ports"), kRefused, "not every figure can be read"));
}

// The live view

// A command on a terminal of its own.
class Terminal {
  public:
    explicit Terminal(const std::string& command, unsigned short columns = 80,
                      unsigned short rows = 24) {
        winsize size{rows, columns, 0, 0};
        child_ = forkpty(&master_, nullptr, nullptr, &size);
        if (child_ != 0) return;
        execl("/bin/sh", "sh", "-c", command.c_str(), nullptr);
        _exit(127);
    }
    ~Terminal() {
        if (child_ > 0) {
            kill(child_, SIGKILL);
            waitpid(child_, nullptr, 0);
        }
        close(master_);
    }
    Terminal(const Terminal&) = delete;
    Terminal& operator=(const Terminal&) = delete;

    // Reads until the text is there that has not been waited for yet.
    bool shows(const std::string& text) {
        for (int patience = 300; patience > 0; patience--) {
            const size_t place = output_.find(text, seen_);
            if (place != std::string::npos) {
                seen_ = place + text.size();
                return true;
            }
            if (!read_more()) return false;
        }
        return false;
    }

    void type(const std::string& keys) const {
        EXPECT_EQ(write(master_, keys.data(), keys.size()), static_cast<ssize_t>(keys.size()));
    }
    void interrupt(int signal) const { kill(child_, signal); }

    // Of the command, which must be about to end.
    int status() {
        for (int patience = 300; patience > 0 && read_more(); patience--) {
        }
        int status = 0;
        waitpid(child_, &status, 0);
        child_ = -1;
        return WIFSIGNALED(status) ? 128 + WTERMSIG(status) : WEXITSTATUS(status);
    }

    [[nodiscard]] bool echoes_lines() const {
        termios mode{};
        tcgetattr(master_, &mode);
        return (mode.c_lflag & ICANON) && (mode.c_lflag & ECHO);
    }

    [[nodiscard]] const std::string& output() const { return output_; }

  private:
    // False at the end of the output.
    bool read_more() {
        pollfd ready{master_, POLLIN, 0};
        if (poll(&ready, 1, 100) == 0) return true;
        char bytes[4096];
        const ssize_t got = read(master_, bytes, sizeof(bytes));
        if (got <= 0) return false;
        output_.append(bytes, static_cast<size_t>(got));
        return true;
    }

    int master_ = -1;
    pid_t child_ = -1;
    std::string output_;
    size_t seen_ = 0;
};

constexpr char kPlain[] =
    "exec env -i PATH=\"$PATH\" ASAN_OPTIONS=detect_leaks=0 TERM=vt100 tqctl stat watch";
constexpr char kColour[] =
    "exec env -i PATH=\"$PATH\" ASAN_OPTIONS=detect_leaks=0 TERM=linux LANG=de_DE.UTF-8 tqctl stat "
    "watch";
constexpr char kDumb[] =
    "exec env -i PATH=\"$PATH\" ASAN_OPTIONS=detect_leaks=0 TERM=dumb tqctl stat watch";

class TqctlWatch : public TqctlStatWithOverlay {};

TEST_F(TqctlWatch, DrawsBarsOnAPlainTerminalAndQuitsOnQ) {
    Terminal terminal(kPlain);
    EXPECT_TRUE(terminal.shows("\033[?25l"));
    EXPECT_TRUE(terminal.shows("\033[H"));
    EXPECT_TRUE(terminal.shows("up "));
    EXPECT_TRUE(terminal.shows("cpu   [##################..]  92%"));
    EXPECT_TRUE(terminal.shows("mem   [###############.....]  75%"));
    EXPECT_TRUE(terminal.shows("of 1000 kB"));
    EXPECT_TRUE(terminal.shows("flash [....................]   0%"));
    EXPECT_TRUE(terminal.shows("8192 kB free"));
    EXPECT_TRUE(terminal.shows("eth0   in    0  B/s"));
    EXPECT_TRUE(terminal.shows("eth1   in    0  B/s"));
    EXPECT_FALSE(terminal.echoes_lines());
    terminal.type("x");
    EXPECT_TRUE(terminal.shows("\033[H"));
    terminal.type("q");
    EXPECT_EQ(terminal.status(), kDone);
    EXPECT_THAT(terminal.output(), testing::EndsWith("\033[?25h"));
    EXPECT_THAT(terminal.output(), Not(HasSubstr("\033[3")));
    for (const char c : terminal.output())
        EXPECT_GE(c, 0);
    EXPECT_TRUE(terminal.echoes_lines());
}

TEST_F(TqctlWatch, DrawsBlocksAndColoursWhereTheTerminalHasThem) {
    Terminal terminal(kColour);
    EXPECT_TRUE(terminal.shows("cpu   [\033[31m\u2588"));
    EXPECT_TRUE(terminal.shows("\u2591\u2591\033[0m]  92%"));
    EXPECT_TRUE(terminal.shows("mem   [\033[33m\u2588"));
    EXPECT_TRUE(terminal.shows("flash [\033[32m\u2591"));
    terminal.type("Q");
    EXPECT_EQ(terminal.status(), kDone);
}

TEST_F(TqctlWatch, KeepsColoursAwayWhereTheyAreNotWanted) {
    Terminal terminal(
        "exec env -i PATH=\"$PATH\" ASAN_OPTIONS=detect_leaks=0 TERM=xterm LC_ALL=C LANG=C.UTF-8 "
        "NO_COLOR=1 "
        "tqctl stat watch");
    EXPECT_TRUE(terminal.shows("mem   [###############.....]  75%"));
    terminal.type("q");
    EXPECT_EQ(terminal.status(), kDone);
    EXPECT_THAT(terminal.output(), Not(HasSubstr("\033[3")));
}

TEST_F(TqctlWatch, WritesOnePictureAfterTheOtherWhereTheCursorCannotMove) {
    for (const char* command :
         {kDumb, "exec env -i PATH=\"$PATH\" ASAN_OPTIONS=detect_leaks=0 tqctl stat watch"}) {
        Terminal terminal(command);
        EXPECT_TRUE(terminal.shows("mem   [###############.....]  75%"));
        EXPECT_TRUE(terminal.shows("\r\n\r\nup "));
        terminal.type("q");
        EXPECT_EQ(terminal.status(), kDone);
        EXPECT_THAT(terminal.output(), Not(HasSubstr("\033")));
    }
}

TEST_F(TqctlWatch, ShowsTheRatesOfThePorts) {
    Terminal terminal(kDumb);
    EXPECT_TRUE(terminal.shows("eth1   in    0  B/s"));
    write_file("/proc/net/dev",
               "eth0: 1 2 3 4 0 0 0 5 0 7 8 9 0 0 0 0\n"
               "eth1: 9000011 12 13 14 0 0 0 15 5016 17 18 19 0 0 0 0\n");
    EXPECT_TRUE(terminal.shows(" kB/s                    @"));
    EXPECT_TRUE(terminal.shows("@"));
    EXPECT_TRUE(terminal.shows("eth1   in    0  B/s                   @ "));
    // A counter that was set back is no rate: eth0 has sent nothing.
    EXPECT_THAT(terminal.output(), testing::ContainsRegex("eth0   in    0  B/s +out    0  B/s"));
    EXPECT_THAT(terminal.output(), Not(testing::ContainsRegex("eth0[^\n]*@")));
    terminal.type("q");
    EXPECT_EQ(terminal.status(), kDone);
}

TEST_F(TqctlWatch, FitsASmallTerminal) {
    Terminal terminal(kPlain, 30, 4);
    EXPECT_TRUE(terminal.shows("mem   [###############.....] \033[K"));
    terminal.type("q");
    EXPECT_EQ(terminal.status(), kDone);
    EXPECT_THAT(terminal.output(), Not(HasSubstr("flash")));
}

TEST_F(TqctlWatch, TakesASerialConsoleThatDoesNotKnowItsSize) {
    Terminal terminal(kPlain, 0, 0);
    EXPECT_TRUE(terminal.shows("flash [....................]   0%"));
    terminal.type("q");
    EXPECT_EQ(terminal.status(), kDone);
}

TEST_F(TqctlWatch, LeavesTheTerminalAsItWasWhenItIsInterrupted) {
    for (const int signal : {SIGINT, SIGTERM, SIGHUP}) {
        Terminal terminal(kPlain);
        EXPECT_TRUE(terminal.shows("eth1"));
        terminal.interrupt(signal);
        EXPECT_EQ(terminal.status(), kDone);
        EXPECT_TRUE(terminal.echoes_lines());
        EXPECT_THAT(terminal.output(), testing::EndsWith("\033[?25h"));
    }
}

TEST_F(TqctlWatch, SaysThatThereIsNoOverlay) {
    run_command("ln -sf /dev/null /etc/mtab");
    Terminal terminal(kDumb);
    EXPECT_TRUE(terminal.shows("flash no /overlay\r\n"));
    terminal.type("q");
    EXPECT_EQ(terminal.status(), kDone);
}

TEST_F(TqctlWatch, NeedsATerminal) {
    EXPECT_TRUE(fails(run_command("tqctl stat watch </dev/null"), kRefused, "needs a terminal"));
    const CommandResult json = tqctl("-j stat watch");
    EXPECT_EQ(json.status, kUsage);
    EXPECT_THAT(json.err, HasSubstr("no JSON"));
    for (const char* seconds : {"0", "61", "x", "-1"})
        EXPECT_TRUE(fails(tqctl(std::string("stat watch ") + seconds), kUsage, "from 1 to 60"));
}

// eloop

int64_t figure(const Json& loop, const char* key) {
    return std::stoll(member(loop, key));
}

TEST(TqctlEloop, LagOfEachKindOfLoopIsMeasured) {
    const CommandResult lines = tqctl("eloop lag 5 1");
    EXPECT_TRUE(lines.err.empty());
    EXPECT_THAT(lines.out, testing::MatchesRegex("eloop.least_us=[0-9]+\neloop.median_us=[0-9]+\n"
                                                 "eloop.most_us=[0-9]+\nthd_eloop.least_us=[0-9]+\n"
                                                 "thd_eloop.median_us=[0-9]+\n"
                                                 "thd_eloop.most_us=[0-9]+\n"));
    const Json figures = parse(tqctl("-j eloop lag 20 1").out);
    for (const char* name : {"eloop", "thd_eloop"}) {
        json_object* object = nullptr;
        ASSERT_TRUE(json_object_object_get_ex(figures.get(), name, &object));
        const Json loop(json_object_get(object));
        EXPECT_LE(figure(loop, "least_us"), figure(loop, "median_us"));
        EXPECT_LE(figure(loop, "median_us"), figure(loop, "most_us"));
    }
}

// 50 timeouts of 10 ms in each of two loops are a second.
TEST(TqctlEloop, TimeoutsAreWaitedFor) {
    const auto before = std::chrono::steady_clock::now();
    EXPECT_EQ(tqctl("eloop lag").status, kDone);
    EXPECT_GE(std::chrono::steady_clock::now() - before, std::chrono::seconds(1));
    for (const char* arguments : {"0", "10001", "x", "1 1001", "1 -1"})
        EXPECT_TRUE(fails(tqctl(std::string("eloop lag ") + arguments), kUsage, "is not a number"));
}

}  // namespace
