// thd_eloop_test.cpp - the event loops of threads: what they share with the process's loop, the
// second, the mutex, and many threads at once.
#include "tq/thd_eloop.h"

#include <dlfcn.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <array>
#include <atomic>
#include <cerrno>
#include <chrono>
#include <cstddef>
#include <cstdint>
#include <future>
#include <random>
#include <string>
#include <thread>
#include <vector>

#include "eloop/loop_suite.h"
#include "eloop/waits.h"
#include "support/device.h"
#include "support/log_capture.h"

namespace {

bool mutex_init_fails = false;
int shared_mutex_inits = 0;

}  // namespace

extern "C" int watched_mutex_init(pthread_mutex_t* mutex,
                                  const pthread_mutexattr_t* attributes) asm("pthread_mutex_init");

int watched_mutex_init(pthread_mutex_t* mutex, const pthread_mutexattr_t* attributes) {
    static const auto next =
        reinterpret_cast<int (*)(pthread_mutex_t*, const pthread_mutexattr_t*)>(
            dlsym(RTLD_NEXT, "pthread_mutex_init"));
    if (mutex != &g_eloop_mutex) return next(mutex, attributes);
    shared_mutex_inits++;
    EXPECT_EQ(attributes, nullptr);
    return mutex_init_fails ? EAGAIN : next(mutex, attributes);
}

namespace {

using testing::ElementsAre;
using testing::IsEmpty;
using testing::SizeIs;
using tq_test::Action;
using tq_test::DeviceTest;
using tq_test::Line;
using tq_test::LogCapture;
using tq_test::never_due;
using tq_test::never_readable;
using tq_test::on_readable;
using tq_test::on_timeout;
using tq_test::SocketPair;
namespace waits = tq_test::waits;

// Must be the first to initialise a loop in this process.
TEST(SharedMutex, IsTriedAgainAfterAFailureAndThenMadeOnce) {
    eloop_state loop = {};
    loop.max_sock = 77;
    mutex_init_fails = true;
    EXPECT_EQ(thd_eloop_init(&loop, &loop), -1);
    EXPECT_EQ(loop.max_sock, 77);
    EXPECT_EQ(loop.user_data, nullptr);
    EXPECT_EQ(shared_mutex_inits, 1);
    mutex_init_fails = false;
    EXPECT_EQ(thd_eloop_init(&loop, &loop), 0);
    EXPECT_EQ(loop.max_sock, 0);
    EXPECT_EQ(loop.user_data, &loop);
    EXPECT_EQ(shared_mutex_inits, 2);

    // A second loop while the mutex is in use.
    ASSERT_EQ(pthread_mutex_lock(&g_eloop_mutex), 0);
    eloop_state second;
    EXPECT_EQ(thd_eloop_init(&second, nullptr), 0);
    EXPECT_EQ(shared_mutex_inits, 2);
    EXPECT_EQ(pthread_mutex_trylock(&g_eloop_mutex), EBUSY);
    EXPECT_EQ(pthread_mutex_unlock(&g_eloop_mutex), 0);
    EXPECT_EQ(thd_eloop_destroy(&second), 0);
    EXPECT_EQ(thd_eloop_destroy(&loop), 0);
}

// A loop of the caller's with the shape that the common tests expect.
class OwnedLoop {
  public:
    OwnedLoop() { thd_eloop_init(&state, this); }
    ~OwnedLoop() { thd_eloop_destroy(&state); }
    OwnedLoop(const OwnedLoop&) = delete;
    OwnedLoop& operator=(const OwnedLoop&) = delete;

    static std::string name(const std::string& function) { return "thd_eloop_" + function; }
    static int failure() { return -1; }
    void* user_data() { return this; }

    int register_read_sock(int sock, eloop_sock_handler handler, void* a, void* b) {
        return thd_eloop_register_read_sock(&state, sock, handler, a, b);
    }
    int unregister_read_sock(int sock) { return thd_eloop_unregister_read_sock(&state, sock); }
    int register_timeout(unsigned secs, unsigned usecs, eloop_timeout_handler handler, void* a,
                         void* b) {
        return thd_eloop_register_timeout(&state, secs, usecs, handler, a, b);
    }
    int cancel_timeout(eloop_timeout_handler handler, void* a, void* b) {
        return thd_eloop_cancel_timeout(&state, handler, a, b);
    }
    void run() { result = thd_eloop_run(&state); }
    void terminate() { EXPECT_EQ(thd_eloop_terminate(&state), 0); }
    int terminated() { return thd_eloop_terminated(&state); }
    void* get_user_data() { return thd_eloop_get_user_data(&state); }
    void connect_cmm_agent(int connected) { state.cmm_agent_connected = connected; }

    int result = 0;
    eloop_state state;
};

class ThdEloop : public DeviceTest {
  protected:
    ThdEloop() { waits::reset(); }

    OwnedLoop loop;
};

TEST_F(ThdEloop, RefusesEveryCallWithoutALoop) {
    LogCapture log;
    EXPECT_EQ(thd_eloop_init(nullptr, nullptr), -1);
    EXPECT_EQ(thd_eloop_register_read_sock(nullptr, 0, never_readable, nullptr, nullptr), -1);
    EXPECT_EQ(thd_eloop_unregister_read_sock(nullptr, 0), -1);
    EXPECT_EQ(thd_eloop_register_timeout(nullptr, 0, 0, never_due, nullptr, nullptr), -1);
    EXPECT_EQ(thd_eloop_cancel_timeout(nullptr, never_due, nullptr, nullptr), -1);
    EXPECT_EQ(thd_eloop_run(nullptr), -1);
    EXPECT_EQ(thd_eloop_terminate(nullptr), -1);
    EXPECT_EQ(thd_eloop_destroy(nullptr), -1);
    EXPECT_EQ(thd_eloop_terminated(nullptr), -1);
    EXPECT_EQ(thd_eloop_get_user_data(nullptr), nullptr);
    const auto lines = log.take();
    EXPECT_THAT(lines, SizeIs(10));
    const auto rejected = [](const char* function) {
        return Line(LOG_ERR, function, "invalid parameters\n");
    };
    EXPECT_THAT(lines,
                ElementsAre(rejected("thd_eloop_init"), rejected("thd_eloop_register_read_sock"),
                            rejected("thd_eloop_unregister_read_sock"),
                            rejected("thd_eloop_register_timeout"),
                            rejected("thd_eloop_cancel_timeout"), rejected("thd_eloop_run"),
                            rejected("thd_eloop_terminate"), rejected("thd_eloop_destroy"),
                            rejected("thd_eloop_terminated"), rejected("thd_eloop_get_user_data")));
}

TEST_F(ThdEloop, KeepsTheRecordAsItIsDescribed) {
    const SocketPair pair;
    int a = 0;
    int b = 0;
    const waits::VirtualTime time(100, 5);
    loop.register_read_sock(pair.one(), never_readable, &a, &b);
    loop.register_timeout(3, 7, never_due, &b, &a);
    loop.register_timeout(1, 0, never_due, nullptr, nullptr);
    const eloop_state& state = loop.state;
    EXPECT_EQ(state.user_data, &loop);
    EXPECT_EQ(state.max_sock, pair.one());
    ASSERT_EQ(state.reader_count, 1);
    EXPECT_EQ(state.readers[0].sock, pair.one());
    EXPECT_EQ(state.readers[0].eloop_data, &a);
    EXPECT_EQ(state.readers[0].user_data, &b);
    EXPECT_EQ(state.readers[0].handler, never_readable);
    ASSERT_NE(state.timeout, nullptr);
    EXPECT_EQ(state.timeout->tv_sec, 101);
    EXPECT_EQ(state.timeout->tv_usec, 5);
    ASSERT_NE(state.timeout->next, nullptr);
    EXPECT_EQ(state.timeout->next->tv_sec, 103);
    EXPECT_EQ(state.timeout->next->tv_usec, 12);
    EXPECT_EQ(state.timeout->next->eloop_data, &b);
    EXPECT_EQ(state.timeout->next->user_data, &a);
    EXPECT_EQ(state.timeout->next->handler, never_due);
    EXPECT_EQ(state.timeout->next->next, nullptr);
    // A whole second is carried.
    loop.register_timeout(0, 999995, never_due, nullptr, nullptr);
    EXPECT_EQ(state.timeout->tv_sec, 101);
    EXPECT_EQ(state.timeout->tv_usec, 0);
    // And as many of them as a clock that is invalid gives.
    waits::next_reading(90, 1500000000);
    loop.register_timeout(3, 600000, never_due, nullptr, nullptr);
    EXPECT_EQ(state.timeout->tv_sec, 95);
    EXPECT_EQ(state.timeout->tv_usec, 100000);
    EXPECT_EQ(state.signal_count, 0);
    EXPECT_EQ(state.signals, nullptr);
    EXPECT_EQ(state.signaled, 0);
    EXPECT_EQ(state.terminate, 0);
    EXPECT_EQ(state.cmm_agent_connected, 0);
    loop.terminate();
    EXPECT_EQ(state.terminate, 1);
}

TEST_F(ThdEloop, HasItsFieldsInTheirOrder) {
    constexpr std::array<size_t, 10> kOffsets = {
        offsetof(eloop_state, user_data),    offsetof(eloop_state, max_sock),
        offsetof(eloop_state, reader_count), offsetof(eloop_state, readers),
        offsetof(eloop_state, timeout),      offsetof(eloop_state, signal_count),
        offsetof(eloop_state, signals),      offsetof(eloop_state, signaled),
        offsetof(eloop_state, terminate),    offsetof(eloop_state, cmm_agent_connected)};
    EXPECT_TRUE(std::ranges::is_sorted(kOffsets));
    if constexpr (sizeof(void*) != 4) {
        GTEST_SKIP() << "the word for word layout is that of a 32-bit machine";
    } else {
        for (size_t i = 0; i < kOffsets.size(); i++)
            EXPECT_EQ(kOffsets[i], i * 4);
        EXPECT_EQ(sizeof(eloop_state), 40U);
    }
}

TEST_F(ThdEloop, ReturnsAtOnceWhateverTheCmmAgentSays) {
    loop.connect_cmm_agent(1);
    loop.run();
    EXPECT_EQ(loop.result, 0);
    EXPECT_THAT(waits::seen(), IsEmpty());
}

// The record is the caller's, and its count is signed.
TEST_F(ThdEloop, ReturnsAtOnceWithLessThanNoSocket) {
    loop.state.reader_count = -1;
    waits::before_next([&] { loop.terminate(); });
    loop.run();
    EXPECT_EQ(loop.result, 0);
    EXPECT_THAT(waits::seen(), IsEmpty());
    loop.state.reader_count = 0;
}

TEST_F(ThdEloop, WakesEverySecondWithNothingToDo) {
    const SocketPair pair;
    const waits::VirtualTime time(100, 0);
    loop.register_read_sock(pair.one(), never_readable, nullptr, nullptr);
    for (int i = 0; i < 3; i++) {
        waits::reset();
        waits::before_next([&] { waits::before_next([&] { loop.terminate(); }); });
        loop.state.terminate = 0;
        loop.run();
        ASSERT_EQ(waits::seen().size(), 2U);
        EXPECT_EQ(waits::seen()[0].limit, 1000000);
        EXPECT_EQ(waits::seen()[1].limit, 1000000);
        EXPECT_EQ(waits::clock_readings(), 0);
    }
}

TEST_F(ThdEloop, NeverWaitsLongerThanASecond) {
    const waits::VirtualTime time(100, 0);
    Action due = [] {};
    loop.register_timeout(3, 500000, on_timeout, &due, nullptr);
    loop.run();
    std::vector<int64_t> limits;
    for (const waits::Wait& wait : waits::seen())
        limits.push_back(*wait.limit);
    EXPECT_THAT(limits, ElementsAre(1000000, 1000000, 1000000, 500000));
    EXPECT_EQ(waits::VirtualTime::now(), 103500000);
}

TEST_F(ThdEloop, WaitsExactlyASecondForWhatIsDueThen) {
    const waits::VirtualTime time(100, 0);
    Action due = [] {};
    loop.register_timeout(1, 0, on_timeout, &due, nullptr);
    loop.run();
    ASSERT_EQ(waits::seen().size(), 1U);
    EXPECT_EQ(waits::seen()[0].limit, 1000000);
    waits::reset();
    loop.register_timeout(1, 1, on_timeout, &due, nullptr);
    loop.run();
    ASSERT_EQ(waits::seen().size(), 2U);
    EXPECT_EQ(waits::seen()[0].limit, 1000000);
    EXPECT_EQ(waits::seen()[1].limit, 1);
}

// The count of descriptors is taken from the record: one below the socket's, only the extra one
// lets it be seen.
TEST_F(ThdEloop, SeesTheSocketThatOnlyTheExtraDescriptorReaches) {
    const SocketPair pair;
    pair.send();
    Action stop = [&] { loop.terminate(); };
    loop.register_read_sock(pair.one(), on_readable, &stop, nullptr);
    loop.state.max_sock = pair.one() - 1;
    loop.connect_cmm_agent(1);
    loop.run();
    EXPECT_NE(loop.terminated(), 0);
}

TEST_F(ThdEloop, FreesTheSignalsOfTheRecord) {
    loop.state.signals = static_cast<eloop_signal*>(malloc(sizeof(eloop_signal)));
    EXPECT_EQ(thd_eloop_destroy(&loop.state), 0);
    EXPECT_EQ(thd_eloop_init(&loop.state, nullptr), 0);
}

TEST_F(ThdEloop, LeavesTheRecordsFieldsWhenItIsDestroyed) {
    const SocketPair pair;
    loop.register_read_sock(pair.one(), never_readable, nullptr, nullptr);
    loop.terminate();
    EXPECT_EQ(thd_eloop_destroy(&loop.state), 0);
    EXPECT_EQ(loop.state.reader_count, 1);
    EXPECT_EQ(loop.state.max_sock, pair.one());
    EXPECT_EQ(loop.state.terminate, 1);
    EXPECT_EQ(loop.state.user_data, &loop);
    EXPECT_EQ(thd_eloop_init(&loop.state, nullptr), 0);
}

TEST_F(ThdEloop, RunsSeveralLoopsSideBySide) {
    OwnedLoop second;
    std::vector<std::string> events;
    Action inner = [&] { events.emplace_back("second"); };
    Action outer = [&] {
        events.emplace_back("first");
        second.register_timeout(0, 0, on_timeout, &inner, nullptr);
        second.run();
    };
    loop.register_timeout(0, 0, on_timeout, &outer, nullptr);
    loop.run();
    EXPECT_THAT(events, ElementsAre("first", "second"));
}

bool lock_is_free() {
    if (pthread_mutex_trylock(&g_eloop_mutex) != 0) return false;
    pthread_mutex_unlock(&g_eloop_mutex);
    return true;
}

TEST_F(ThdEloop, RunsHandlersWithoutTheLock) {
    const SocketPair pair;
    pair.send();
    std::vector<bool> seen;
    Action look = [&] {
        seen.push_back(lock_is_free());
        if (seen.size() == 2) loop.terminate();
    };
    loop.register_read_sock(pair.one(), on_readable, &look, nullptr);
    loop.register_timeout(0, 0, on_timeout, &look, nullptr);
    loop.run();
    EXPECT_THAT(seen, ElementsAre(true, true));
}

TEST_F(ThdEloop, MakesATimeoutAndWaitsWithoutTheLock) {
    const waits::VirtualTime time(100, 0);
    Action due = [] {};
    std::vector<bool> seen;
    const auto look = [&] { seen.push_back(lock_is_free()); };
    waits::before_next_reading(look);
    loop.register_timeout(0, 10, on_timeout, &due, nullptr);
    waits::before_next(look);
    loop.run();
    EXPECT_THAT(seen, ElementsAre(true, true));
}

TEST_F(ThdEloop, WaitsForTheLockToReadTheList) {
    Action due = [&] { loop.terminate(); };
    loop.register_timeout(0, 0, on_timeout, &due, nullptr);
    loop.register_timeout(9, 0, never_due, nullptr, nullptr);
    std::atomic<bool> released = false;
    ASSERT_EQ(pthread_mutex_lock(&g_eloop_mutex), 0);
    std::thread runner([&] {
        loop.run();
        EXPECT_TRUE(released);
    });
    std::thread adder([&] {
        Action nothing = [] {};
        EXPECT_EQ(loop.register_timeout(9, 0, on_timeout, &nothing, nullptr), 0);
        EXPECT_TRUE(released);
        EXPECT_EQ(loop.cancel_timeout(on_timeout, &nothing, nullptr), 1);
    });
    std::thread canceller([&] {
        EXPECT_EQ(loop.cancel_timeout(never_due, nullptr, nullptr), 1);
        EXPECT_TRUE(released);
    });
    std::this_thread::sleep_for(std::chrono::milliseconds(20));
    released = true;
    pthread_mutex_unlock(&g_eloop_mutex);
    adder.join();
    canceller.join();
    runner.join();
}

// The table of sockets is the loop's own thread's.
TEST_F(ThdEloop, TakesNoLockForSockets) {
    const SocketPair pair;
    std::promise<void> done;
    ASSERT_EQ(pthread_mutex_lock(&g_eloop_mutex), 0);
    std::thread owner([&] {
        EXPECT_EQ(loop.register_read_sock(pair.one(), never_readable, nullptr, nullptr), 0);
        EXPECT_EQ(loop.unregister_read_sock(pair.one()), 0);
        loop.terminate();
        EXPECT_EQ(loop.terminated(), 1);
        done.set_value();
    });
    EXPECT_EQ(done.get_future().wait_for(std::chrono::seconds(10)), std::future_status::ready);
    pthread_mutex_unlock(&g_eloop_mutex);
    owner.join();
}

TEST_F(ThdEloop, NoticesATimeoutOfAnotherThread) {
    const SocketPair pair;
    loop.register_read_sock(pair.one(), never_readable, nullptr, nullptr);
    std::atomic<bool> waiting = false;
    Action stop = [&] { loop.terminate(); };
    waits::before_next([&] { waiting = true; });
    std::thread other([&] {
        while (!waiting)
            std::this_thread::yield();
        loop.register_timeout(0, 0, on_timeout, &stop, nullptr);
    });
    loop.run();
    other.join();
    // In the wait that had begun, or right behind it.
    EXPECT_THAT(waits::seen().size(), testing::AnyOf(1U, 2U));
}

TEST_F(ThdEloop, DoesNotRunWhatAnotherThreadCancelledWhileItWaited) {
    int cancelled = 0;
    loop.register_timeout(0, 20000, never_due, nullptr, nullptr);
    waits::before_next([&] {
        std::thread([&] {
            cancelled = loop.cancel_timeout(never_due, tq_test::kAny, tq_test::kAny);
        }).join();
    });
    loop.run();
    EXPECT_EQ(cancelled, 1);
    EXPECT_EQ(loop.result, 0);
}

// Four loops run while eight threads add timeouts to them and cancel some again. Each timeout knows
// what has become of it, so that one that ran after it was cancelled, ran twice or was lost is
// seen.
class Stress : public DeviceTest {
  protected:
#ifdef TQ_STRESS_TIMEOUTS
    static constexpr int kTimeouts = TQ_STRESS_TIMEOUTS;
#else
    static constexpr int kTimeouts = 4000;
#endif
    static constexpr int kThreads = 8;
    static constexpr int kLoops = 4;

    enum class Fate : std::uint8_t { kPending, kBegun, kCancelled };

    struct Job {
        std::atomic<Fate> fate = Fate::kPending;
        std::atomic<int> runs = 0;
    };

    static void run_job(void* eloop_data, void* user_data) {
        auto& job = *static_cast<Job*>(eloop_data);
        if (job.fate.exchange(Fate::kBegun) == Fate::kCancelled) {
            static_cast<Stress*>(user_data)->ran_after_cancel++;
        }
        job.runs++;
    }

    void add_and_cancel(unsigned seed) {
        std::mt19937 random(seed);
        const size_t share = jobs.size() / kThreads;
        for (size_t i = seed * share; i < (seed + 1) * share; i++) {
            const size_t which = random() % kLoops;
            Job& job = jobs[i];
            thd_eloop_register_timeout(&loops[which].state, 0, delay(random), run_job, &job, this);
            if (random() % 2 == 0) cancel(loops[which], job);
        }
    }

    static unsigned delay(std::mt19937& random) {
        return static_cast<unsigned>(random() % 3000);
    }

    void cancel(OwnedLoop& loop, Job& job) {
        const int removed = thd_eloop_cancel_timeout(&loop.state, run_job, &job, this);
        if (removed == 0) return;
        if (removed != 1 || job.fate.exchange(Fate::kCancelled) != Fate::kPending) {
            ran_before_cancel++;
        }
        cancelled++;
    }

    static void stop(void* /*eloop_data*/, void* user_data) {
        thd_eloop_terminate(static_cast<eloop_state*>(user_data));
    }

    std::array<OwnedLoop, kLoops> loops;
    std::vector<Job> jobs = std::vector<Job>(kTimeouts);
    std::atomic<int> ran_after_cancel = 0;
    std::atomic<int> ran_before_cancel = 0;
    std::atomic<int> cancelled = 0;
};

TEST_F(Stress, LosesNoTimeoutAndRunsNoneThatWasCancelled) {
    std::vector<std::thread> runners;
    // Keeps each loop running until all have been served.
    const SocketPair quiet;
    for (OwnedLoop& loop : loops) {
        loop.register_read_sock(quiet.one(), never_readable, nullptr, nullptr);
        runners.emplace_back([&loop] { loop.run(); });
    }
    std::vector<std::thread> adders;
    for (unsigned seed = 0; seed < kThreads; seed++)
        adders.emplace_back([this, seed] { add_and_cancel(seed); });
    for (std::thread& adder : adders)
        adder.join();
    // Due behind all others.
    for (OwnedLoop& loop : loops)
        thd_eloop_register_timeout(&loop.state, 0, 10000, stop, nullptr, &loop.state);
    for (std::thread& runner : runners)
        runner.join();
    EXPECT_EQ(ran_after_cancel, 0);
    EXPECT_EQ(ran_before_cancel, 0);
    int ran = 0;
    for (const Job& job : jobs) {
        ASSERT_LE(job.runs, 1);
        ran += job.runs;
    }
    EXPECT_EQ(ran + cancelled, kTimeouts);
    for (OwnedLoop& loop : loops)
        EXPECT_EQ(loop.state.timeout, nullptr);
}

}  // namespace

namespace tq_test {
INSTANTIATE_TYPED_TEST_SUITE_P(OwnedLoop, LoopSuite, OwnedLoop);
}
