// The event loops beside libubox's uloop and libevent, where they are installed: dispatches,
// timeouts, and a timeout added from another thread.
#include <tq/eloop.h>
#include <tq/thd_eloop.h>

#include <fcntl.h>
#include <sys/resource.h>
#include <sys/socket.h>
#include <unistd.h>

#ifdef TQ_BENCH_LIBEVENT
#include <event2/event.h>
#include <event2/thread.h>
#endif
#ifdef TQ_BENCH_ULOOP
extern "C" {
#include <libubox/uloop.h>
}
#endif

#include <algorithm>
#include <array>
#include <chrono>
#include <condition_variable>
#include <cstdio>
#include <cstdlib>
#include <memory>
#include <mutex>
#include <random>
#include <string>
#include <thread>
#include <vector>

#include "support.h"

namespace {

// Each loop is a class of the same shape: add_socket(), run() until stop() or until nothing is
// left, add_timeout(), cancel_timeouts(). Handlers call these two.
void on_socket();
void on_timeout();

struct Eloop {
    static constexpr char kName[] = "eloop";
    Eloop() { eloop_init(nullptr); }
    ~Eloop() { eloop_destroy(); }
    Eloop(const Eloop&) = delete;
    Eloop& operator=(const Eloop&) = delete;
    static void add_socket(int fd) {
        eloop_register_read_sock(
            fd, [](int, void*, void*) { on_socket(); }, nullptr, nullptr);
    }
    static void timed_out(void* /*eloop_data*/, void* /*user_data*/) { on_timeout(); }
    static void add_timeout(unsigned msecs) {
        eloop_register_timeout(msecs / 1000, msecs % 1000 * 1000, timed_out, nullptr, nullptr);
    }
    static void cancel_timeouts() { eloop_cancel_timeout(timed_out, ELOOP_ALL, ELOOP_ALL); }
    static void run() { eloop_run(); }
    static void stop() { eloop_terminate(); }
    static constexpr bool kStopsWithNothingLeft = true;
};

struct ThdEloop {
    static constexpr char kName[] = "thd_eloop";
    ThdEloop() { thd_eloop_init(&loop, nullptr); }
    ~ThdEloop() { thd_eloop_destroy(&loop); }
    ThdEloop(const ThdEloop&) = delete;
    ThdEloop& operator=(const ThdEloop&) = delete;
    void add_socket(int fd) {
        thd_eloop_register_read_sock(
            &loop, fd, [](int, void*, void*) { on_socket(); }, nullptr, nullptr);
    }
    static void timed_out(void* /*eloop_data*/, void* /*user_data*/) { on_timeout(); }
    void add_timeout(unsigned msecs) {
        thd_eloop_register_timeout(&loop, msecs / 1000, msecs % 1000 * 1000, timed_out, nullptr,
                                   nullptr);
    }
    void cancel_timeouts() { thd_eloop_cancel_timeout(&loop, timed_out, ELOOP_ALL, ELOOP_ALL); }
    void run() { thd_eloop_run(&loop); }
    void stop() { thd_eloop_terminate(&loop); }
    static constexpr bool kStopsWithNothingLeft = true;

    eloop_state loop;
};

#ifdef TQ_BENCH_ULOOP
struct Uloop {
    static constexpr char kName[] = "uloop";
    Uloop() { uloop_init(); }
    ~Uloop() {
        for (const auto& socket : sockets)
            uloop_fd_delete(socket.get());
        uloop_done();
    }
    Uloop(const Uloop&) = delete;
    Uloop& operator=(const Uloop&) = delete;
    void add_socket(int fd) {
        sockets.push_back(std::make_unique<uloop_fd>());
        sockets.back()->fd = fd;
        sockets.back()->cb = [](uloop_fd*, unsigned) { on_socket(); };
        uloop_fd_add(sockets.back().get(), ULOOP_READ);
    }
    void add_timeout(unsigned msecs) {
        timeouts.push_back(std::make_unique<uloop_timeout>());
        timeouts.back()->cb = [](uloop_timeout*) { on_timeout(); };
        uloop_timeout_set(timeouts.back().get(), static_cast<int>(msecs));
    }
    void cancel_timeouts() {
        for (const auto& timeout : timeouts)
            uloop_timeout_cancel(timeout.get());
        timeouts.clear();
    }
    static void run() { uloop_run(); }
    static void stop() { uloop_end(); }
    static constexpr bool kStopsWithNothingLeft = false;

    std::vector<std::unique_ptr<uloop_fd>> sockets;
    std::vector<std::unique_ptr<uloop_timeout>> timeouts;
};
#endif

#ifdef TQ_BENCH_LIBEVENT
struct Libevent {
    explicit Libevent(std::initializer_list<const char*> avoided) {
        event_config* config = event_config_new();
        for (const char* method : avoided)
            event_config_avoid_method(config, method);
        base = event_base_new_with_config(config);
        event_config_free(config);
    }
    ~Libevent() {
        for (event* each : events)
            event_free(each);
        event_base_free(base);
    }
    Libevent(const Libevent&) = delete;
    Libevent& operator=(const Libevent&) = delete;
    void add_socket(int fd) {
        events.push_back(event_new(
            base, fd, EV_READ | EV_PERSIST, [](int, short, void*) { on_socket(); }, nullptr));
        event_add(events.back(), nullptr);
    }
    void add_timeout(unsigned msecs) {
        const timeval delay = {.tv_sec = msecs / 1000,
                               .tv_usec = static_cast<long>(msecs % 1000) * 1000};
        events.push_back(event_new(
            base, -1, 0, [](int, short, void*) { on_timeout(); }, nullptr));
        event_add(events.back(), &delay);
    }
    void cancel_timeouts() {
        for (event* each : events)
            event_free(each);
        events.clear();
    }
    void run() const { event_base_dispatch(base); }
    void stop() const { event_base_loopbreak(base); }
    static constexpr bool kStopsWithNothingLeft = true;

    event_base* base;
    std::vector<event*> events;
};

struct LibeventSelect : Libevent {
    static constexpr char kName[] = "libevent_select";
    LibeventSelect() : Libevent({"epoll", "poll"}) {}
};

struct LibeventDefault : Libevent {
    static constexpr char kName[] = "libevent_epoll";
    LibeventDefault() : Libevent({}) {}
};
#endif

benchmark::State* running = nullptr;
void (*stop_running)() = nullptr;
size_t timeouts_left = 0;

void on_socket() {
    if (!running || running->KeepRunning()) return;
    running = nullptr;
    stop_running();
}

void on_timeout() {
    if (--timeouts_left == 0 && stop_running) stop_running();
}

// Connected sockets; those that are watched have small numbers, which select can hold.
class Sockets {
  public:
    explicit Sockets(size_t count) : ends_(count) {
        rlimit limit = {};
        getrlimit(RLIMIT_NOFILE, &limit);
        limit.rlim_cur = std::min<rlim_t>(limit.rlim_max, 4096);
        setrlimit(RLIMIT_NOFILE, &limit);
        for (auto& pair : ends_) {
            if (socketpair(AF_UNIX, SOCK_DGRAM | SOCK_CLOEXEC, 0, pair.data()) != 0) abort();
            const int high = fcntl(pair[1], F_DUPFD_CLOEXEC, 1200);
            if (high < 0) abort();
            close(pair[1]);
            pair[1] = high;
        }
    }
    ~Sockets() {
        for (const auto& pair : ends_) {
            close(pair[0]);
            close(pair[1]);
        }
    }
    Sockets(const Sockets&) = delete;
    Sockets& operator=(const Sockets&) = delete;

    [[nodiscard]] size_t count() const { return ends_.size(); }
    [[nodiscard]] int watched(size_t i) const { return ends_[i][0]; }
    void make_ready(size_t i) const {
        if (write(ends_[i][1], "x", 1) != 1) abort();
    }

  private:
    std::vector<std::array<int, 2>> ends_;
};

template <typename Loop>
Loop* current = nullptr;

// One iteration is one call of a socket's handler.
template <typename Loop>
void dispatch(benchmark::State& state, const Sockets& sockets) {
    Loop loop;
    for (size_t i = 0; i < sockets.count(); i++)
        loop.add_socket(sockets.watched(i));
    current<Loop> = &loop;
    stop_running = [] { current<Loop>->stop(); };
    running = &state;
    loop.run();
    stop_running = nullptr;
    state.SetItemsProcessed(state.iterations());
}

template <typename Loop>
void ready(benchmark::State& state) {
    const Sockets sockets(static_cast<size_t>(state.range(0)));
    for (size_t i = 0; i < sockets.count(); i++)
        sockets.make_ready(i);
    dispatch<Loop>(state, sockets);
}

// All are quiet but the one in the middle.
template <typename Loop>
void idle(benchmark::State& state) {
    const Sockets sockets(static_cast<size_t>(state.range(0)));
    sockets.make_ready(sockets.count() / 2);
    dispatch<Loop>(state, sockets);
}

// One iteration adds so many timeouts that are due at once, and runs them.
template <typename Loop>
void expire(benchmark::State& state) {
    Loop loop;
    current<Loop> = &loop;
    if (!Loop::kStopsWithNothingLeft) stop_running = [] { current<Loop>->stop(); };
    for (auto _ : state) {
        timeouts_left = static_cast<size_t>(state.range(0));
        for (size_t i = timeouts_left; i > 0; i--)
            loop.add_timeout(0);
        loop.run();
        loop.cancel_timeouts();
    }
    stop_running = nullptr;
    state.SetItemsProcessed(state.iterations() * state.range(0));
}

// One iteration adds so many timeouts of equal or random length, and cancels them all.
template <typename Loop, bool in_order>
void add(benchmark::State& state) {
    Loop loop;
    std::mt19937 random(1);  // NOLINT(cert-msc32-c,cert-msc51-cpp): the same in every run
    std::vector<unsigned> delays(static_cast<size_t>(state.range(0)), 100000);
    for (unsigned& delay : delays)
        if (!in_order) delay += static_cast<unsigned>(random() % 100000);
    for (auto _ : state) {
        for (const unsigned delay : delays)
            loop.add_timeout(delay);
        loop.cancel_timeouts();
    }
    state.SetItemsProcessed(state.iterations() * state.range(0));
}

// From the moment that one thread adds a timeout of 0 until it runs in another thread's loop, which
// has just begun to wait.
class Wake {
  public:
    void wait() {
        std::unique_lock lock(mutex_);
        woken_.wait(lock, [this] { return is_woken_; });
        is_woken_ = false;
    }
    void wake() {
        const std::lock_guard lock(mutex_);
        is_woken_ = true;
        woken_.notify_one();
    }

  private:
    std::mutex mutex_;
    std::condition_variable woken_;
    bool is_woken_ = false;
};

template <typename Add>
void measure_wake_up(benchmark::State& state, Wake& woken, const Add& add_timeout) {
    for (auto _ : state) {
        std::this_thread::sleep_for(std::chrono::milliseconds(20));
        const auto start = std::chrono::steady_clock::now();
        add_timeout();
        woken.wait();
        const std::chrono::duration<double> taken = std::chrono::steady_clock::now() - start;
        state.SetIterationTime(taken.count());
    }
}

void wake_up_thd_eloop(benchmark::State& state) {
    const Sockets sockets(1);
    ThdEloop loop;
    loop.add_socket(sockets.watched(0));
    std::thread runner([&] { loop.run(); });
    Wake woken;
    measure_wake_up(state, woken, [&] {
        thd_eloop_register_timeout(
            &loop.loop, 0, 0, [](void* data, void*) { static_cast<Wake*>(data)->wake(); }, &woken,
            nullptr);
    });
    thd_eloop_register_timeout(
        &loop.loop, 0, 0, [](void* data, void*) { static_cast<ThdEloop*>(data)->stop(); }, &loop,
        nullptr);
    runner.join();
}

#ifdef TQ_BENCH_LIBEVENT
void wake_up_libevent(benchmark::State& state) {
    evthread_use_pthreads();
    const Sockets sockets(1);
    LibeventDefault loop;
    loop.add_socket(sockets.watched(0));
    std::thread runner([&] { loop.run(); });
    Wake woken;
    measure_wake_up(state, woken, [&] {
        const timeval none = {};
        event_base_once(
            loop.base, -1, EV_TIMEOUT,
            [](int, short, void* data) { static_cast<Wake*>(data)->wake(); }, &woken, &none);
    });
    loop.stop();
    runner.join();
}
#endif

template <typename Loop>
void register_loop() {
    const std::string name = Loop::kName;
    for (const int64_t sockets : {1, 16, 64, 256, 900}) {
        benchmark::RegisterBenchmark(("ready/" + name).c_str(), ready<Loop>)->Arg(sockets);
        benchmark::RegisterBenchmark(("idle/" + name).c_str(), idle<Loop>)->Arg(sockets);
    }
    for (const int64_t timeouts : {10, 1000, 10000}) {
        benchmark::RegisterBenchmark(("expire/" + name).c_str(), expire<Loop>)->Arg(timeouts);
        benchmark::RegisterBenchmark(("add_equal/" + name).c_str(), add<Loop, true>)->Arg(timeouts);
        benchmark::RegisterBenchmark(("add_random/" + name).c_str(), add<Loop, false>)
            ->Arg(timeouts);
    }
}

}  // namespace

int main(int argc, char** argv) {
    register_loop<Eloop>();
    register_loop<ThdEloop>();
#ifdef TQ_BENCH_ULOOP
    register_loop<Uloop>();
#endif
#ifdef TQ_BENCH_LIBEVENT
    register_loop<LibeventSelect>();
    register_loop<LibeventDefault>();
#endif
    benchmark::RegisterBenchmark("wake_up/thd_eloop", wake_up_thd_eloop)
        ->UseManualTime()
        ->Iterations(3)
        ->Unit(benchmark::kMicrosecond);
#ifdef TQ_BENCH_LIBEVENT
    // Last: from here on libevent locks.
    benchmark::RegisterBenchmark("wake_up/libevent_epoll", wake_up_libevent)
        ->UseManualTime()
        ->Iterations(100)
        ->Unit(benchmark::kMicrosecond);
#endif
    benchmark::Initialize(&argc, argv);
    benchmark::RunSpecifiedBenchmarks();
    benchmark::Shutdown();
    return 0;
}
