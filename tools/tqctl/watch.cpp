// watch.cpp - the live view of tqctl stat: bars and short histories, on any terminal.
#include "watch.h"

#include <sys/ioctl.h>
#include <sys/statvfs.h>
#include <termios.h>
#include <tq/board.h>
#include <tq/eloop.h>
#include <tq/sysstat.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <csignal>
#include <cstdarg>
#include <cstdio>
#include <cstdlib>
#include <cstring>

#include "clock.h"
#include "figures.h"
#include "number.h"

namespace tqctl {

namespace {

constexpr int kMaxPorts = 8;
constexpr size_t kHistory = 20;
constexpr int kBarWidth = 20;

// ---- What is measured ----

// The last readings, the newest last.
class History {
  public:
    void add(uint64_t value) {
        std::copy(values_.begin() + 1, values_.end(), values_.begin());
        values_.back() = value;
    }
    [[nodiscard]] uint64_t last() const { return values_.back(); }
    [[nodiscard]] uint64_t highest() const { return std::ranges::max(values_); }
    [[nodiscard]] const std::array<uint64_t, kHistory>& values() const { return values_; }

  private:
    std::array<uint64_t, kHistory> values_{};
};

struct Port {
    char name[32];
    uint64_t in_octets;
    uint64_t out_octets;
    History in;
    History out;
    bool counted;
};

struct Picture {
    ProcessorTicks ticks;
    History processor;
    History memory;
    uint32_t memory_kb;
    History flash;
    uint32_t flash_free_kb;
    bool has_flash;
    uint32_t uptime;
    std::array<Port, kMaxPorts> ports;
    int port_count;
    uint64_t time;
};

// Octets a second. A counter that has been set back has no rate.
uint64_t rate(uint64_t before, uint64_t now, uint64_t elapsed) {
    return now < before || elapsed == 0 ? 0 : (now - before) * 1000 / elapsed;
}

void measure_flash(Picture& picture) {
    struct statvfs room {};
    picture.has_flash =
        tq_get_flash_free_size(&picture.flash_free_kb) == 0 && statvfs("/overlay", &room) == 0;
    const uint64_t all = uint64_t{room.f_blocks} * room.f_frsize / 1024;
    if (!picture.has_flash || all == 0) return;
    picture.flash.add(100 - std::min<uint64_t>(picture.flash_free_kb * uint64_t{100} / all, 100));
}

void measure_port(Port& port, int index, uint64_t elapsed) {
    if_stats stats{};
    const char* name = tq_get_eth_ifname(index);
    snprintf(port.name, sizeof(port.name), "%s", name ? name : "?");
    const bool counted = tq_get_if_statistics(index, &stats) == 0;
    const bool comparable = counted && port.counted;
    port.in.add(comparable ? rate(port.in_octets, stats.in_octets, elapsed) : 0);
    port.out.add(comparable ? rate(port.out_octets, stats.out_octets, elapsed) : 0);
    port.in_octets = stats.in_octets;
    port.out_octets = stats.out_octets;
    port.counted = counted;
}

void measure(Picture& picture) {
    const QuietLog quiet;
    const auto now = static_cast<uint64_t>(microseconds()) / 1000;
    const uint64_t elapsed = now - picture.time;
    picture.time = now;
    ProcessorTicks ticks;
    if (get_proc_cpuinfo(&ticks.total, &ticks.idle) == 0) {
        picture.processor.add(usage_between(picture.ticks, ticks));
        picture.ticks = ticks;
    }
    uint32_t memory[PROC_MEMINFO_FIGURES] = {};
    if (get_proc_meminfo(memory) == 1) picture.memory.add(memory_usage(memory));
    picture.memory_kb = memory[PROC_MEMINFO_TOTAL];
    measure_flash(picture);
    tq_get_sys_uptime(&picture.uptime);
    picture.port_count = std::clamp(tq_get_dev_if_count(), 0, kMaxPorts);
    for (int i = 0; i < picture.port_count; i++)
        measure_port(picture.ports[static_cast<size_t>(i)], i, elapsed);
}

// ---- How it is drawn ----

struct Look {
    bool moves;  // the cursor
    bool colours;
    bool utf8;
};

const char* environment(const char* name) {
    const char* value = getenv(name);
    return value ? value : "";
}

bool says_utf8() {
    for (const char* name : {"LC_ALL", "LC_CTYPE", "LANG"}) {
        const char* value = environment(name);
        if (*value) return strcasestr(value, "utf-8") || strcasestr(value, "utf8");
    }
    return false;
}

Look find_look() {
    const char* terminal = environment("TERM");
    const bool moves = *terminal && strcmp(terminal, "dumb") != 0;
    const bool monochrome = strncmp(terminal, "vt1", 3) == 0 || strncmp(terminal, "vt2", 3) == 0;
    return {moves, moves && !monochrome && !*environment("NO_COLOR"), says_utf8()};
}

// A line of the picture, cut at the terminal's width. What is drawn is counted in columns.
class Screen {
  public:
    explicit Screen(Look look) : look_(look) {
        winsize size{};
        // A serial console does not know its size.
        if (ioctl(STDOUT_FILENO, TIOCGWINSZ, &size) != 0) size = {};
        columns_ = size.ws_col > 0 ? size.ws_col : 80;
        rows_ = size.ws_row > 0 ? size.ws_row : 24;
        if (look_.moves) fputs("\033[H", stdout);
    }
    ~Screen() {
        fputs(look_.moves ? "\033[J" : "\n", stdout);
        fflush(stdout);
    }
    Screen(const Screen&) = delete;
    Screen& operator=(const Screen&) = delete;

    // The last row stays empty, so that no terminal scrolls.
    void end_line() {
        column_ = 0;
        if (++row_ >= rows_) return;
        fputs(look_.moves ? "\033[K\n" : "\n", stdout);
    }

    // A cell of one column.
    void cell(const char* text) {
        if (row_ + 1 >= rows_ || column_ + 1 >= columns_) return;
        column_++;
        fputs(text, stdout);
    }

    __attribute__((format(printf, 2, 3))) void text(const char* format, ...) {
        char line[128];
        va_list args;
        va_start(args, format);
        vsnprintf(line, sizeof(line), format, args);
        va_end(args);
        for (const char* next = line; *next; next++) {
            const bool printable = *next >= ' ' && *next <= '~';
            const char one[] = {printable ? *next : '?', '\0'};
            cell(one);
        }
    }

    void bar(uint64_t percent) {
        const int filled = static_cast<int>(percent) * kBarWidth / 100;
        text("[");
        colour(percent);
        for (int i = 0; i < kBarWidth; i++) {
            const char* full = look_.utf8 ? "\u2588" : "#";
            cell(i < filled ? full : look_.utf8 ? "\u2591" : ".");
        }
        if (look_.colours) fputs("\033[0m", stdout);
        text("] %3d%% ", static_cast<int>(percent));
    }

    // Each value as its part of the highest.
    void history(const History& history, uint64_t highest) {
        static constexpr const char* kBlocks[] = {" ",      "\u2581", "\u2582", "\u2583", "\u2584",
                                                  "\u2585", "\u2586", "\u2587", "\u2588"};
        static constexpr const char* kLetters[] = {" ", ".", ":", "-", "=", "+", "*", "#", "@"};
        constexpr uint64_t kSteps = std::size(kBlocks) - 1;
        for (const uint64_t value : history.values()) {
            const uint64_t step = highest == 0 ? 0 : value / (highest / kSteps + 1);
            const auto level = static_cast<size_t>(std::min(value > 0 ? step + 1 : 0, kSteps));
            cell(look_.utf8 ? kBlocks[level] : kLetters[level]);
        }
    }

  private:
    void colour(uint64_t percent) const {
        if (!look_.colours) return;
        const char* high = percent >= 90 ? "\033[31m" : "\033[33m";
        fputs(percent < 70 ? "\033[32m" : high, stdout);
    }

    Look look_;
    int columns_;
    int rows_;
    int column_ = 0;
    int row_ = 0;
};

void draw_usage(Screen& screen, const char* name, const History& usage) {
    screen.text("%-6s", name);
    screen.bar(usage.last());
    screen.history(usage, 100);
}

void draw_rate(Screen& screen, const char* direction, const History& rates) {
    static constexpr char kUnits[] = " kMGT";
    uint64_t scaled = rates.last();
    const char* unit = kUnits;
    while (scaled >= 10000 && unit[1]) {
        scaled /= 1000;
        unit++;
    }
    screen.text(" %s %4d %cB/s ", direction, static_cast<int>(std::min<uint64_t>(scaled, 9999)),
                *unit);
    screen.history(rates, rates.highest());
}

void draw(const Picture& picture, const Look& look) {
    Screen screen(look);
    const uint32_t minutes = picture.uptime / 60;
    screen.text("up %u d %02u:%02u:%02u    q quits", minutes / 1440, minutes / 60 % 24,
                minutes % 60, picture.uptime % 60);
    screen.end_line();
    draw_usage(screen, "cpu", picture.processor);
    screen.end_line();
    draw_usage(screen, "mem", picture.memory);
    screen.text(" of %u kB", picture.memory_kb);
    screen.end_line();
    if (picture.has_flash) {
        draw_usage(screen, "flash", picture.flash);
        screen.text(" %u kB free", picture.flash_free_kb);
    } else {
        screen.text("flash no /overlay");
    }
    screen.end_line();
    for (int i = 0; i < picture.port_count; i++) {
        const Port& port = picture.ports[static_cast<size_t>(i)];
        screen.text("%-6s", port.name);
        draw_rate(screen, "in", port.in);
        draw_rate(screen, "out", port.out);
        screen.end_line();
    }
}

// ---- The terminal ----

// Keys come at once and unseen, until the scope ends.
class Terminal {
  public:
    explicit Terminal(const Look& look) : look_(look) {
        tcgetattr(STDIN_FILENO, &before_);
        termios now = before_;
        now.c_lflag &= ~static_cast<tcflag_t>(ICANON | ECHO);
        now.c_cc[VMIN] = 1;
        now.c_cc[VTIME] = 0;
        tcsetattr(STDIN_FILENO, TCSANOW, &now);
        if (look_.moves) fputs("\033[?25l\033[H\033[J", stdout);
    }
    ~Terminal() {
        if (look_.moves) fputs("\033[?25h", stdout);
        fflush(stdout);
        tcsetattr(STDIN_FILENO, TCSANOW, &before_);
    }
    Terminal(const Terminal&) = delete;
    Terminal& operator=(const Terminal&) = delete;

  private:
    Look look_;
    termios before_{};
};

// ---- The view: a loop of pictures, until a key or a signal ends it ----

struct View {
    Look look;
    unsigned seconds;
    Picture picture;
};

void show_next(void* data, void*) {
    auto* view = static_cast<View*>(data);
    measure(view->picture);
    draw(view->picture, view->look);
    if (ferror(stdout)) return eloop_terminate();
    eloop_register_timeout(view->seconds, 0, show_next, view, nullptr);
}

void read_key(int sock, void*, void*) {
    char key = '\0';
    if (read(sock, &key, 1) <= 0 || key == 'q' || key == 'Q') eloop_terminate();
}

void run(View& view) {
    eloop_init(nullptr);
    for (const int signal : {SIGINT, SIGTERM, SIGHUP})
        eloop_register_signal(
            signal, [](int, void*, void*) { eloop_terminate(); }, nullptr);
    const Terminal terminal(view.look);
    eloop_register_read_sock(STDIN_FILENO, read_key, nullptr, nullptr);
    show_next(&view, nullptr);
    eloop_run();
    eloop_destroy();
}

}  // namespace

ExitCode watch_figures(Context& context, Arguments arguments) {
    const std::optional<int64_t> seconds =
        arguments.empty() ? 1 : take_number(context, arguments[0], "a number", 1, 60);
    if (!seconds) return ExitCode::kUsage;
    if (context.output.is_json()) return context.misuse("a view is no JSON; stat all is");
    if (!isatty(STDIN_FILENO) || !isatty(STDOUT_FILENO))
        return context.fail(ExitCode::kRefused, "a view needs a terminal");
    static View view;
    view.look = find_look();
    view.seconds = static_cast<unsigned>(*seconds);
    run(view);
    return ExitCode::kDone;
}

}  // namespace tqctl
