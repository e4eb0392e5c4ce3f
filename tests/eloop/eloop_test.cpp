// eloop_test.cpp - the process's event loop: what it shares with the loops of threads, and signals.
#include "tq/eloop.h"

#include <dlfcn.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sys/time.h>
#include <unistd.h>

#include <cerrno>
#include <csignal>
#include <string>
#include <utility>
#include <vector>

#include "eloop/loop_suite.h"
#include "eloop/waits.h"
#include "support/device.h"
#include "support/faults.h"
#include "support/log_capture.h"

namespace {

// Runs once, right behind the next call of signal().
tq_test::Action behind_next_signal_call;

}  // namespace

extern "C" sighandler_t watched_signal(int sig, sighandler_t handler) asm("signal");

sighandler_t watched_signal(int sig, sighandler_t handler) {
    static const auto next =
        reinterpret_cast<sighandler_t (*)(int, sighandler_t)>(dlsym(RTLD_NEXT, "signal"));
    const sighandler_t before = next(sig, handler);
    if (behind_next_signal_call) std::exchange(behind_next_signal_call, nullptr)();
    return before;
}

namespace {

using testing::ElementsAre;
using tq_test::Action;
using tq_test::DeviceTest;
using tq_test::Line;
using tq_test::LogCapture;
using tq_test::never_due;
using tq_test::never_readable;
using tq_test::on_readable;
using tq_test::on_timeout;
using tq_test::SocketPair;
using tq_test::faults::Fail;
namespace waits = tq_test::waits;

// The process's loop with the shape that the common tests expect.
class ProcessLoop {
  public:
    ProcessLoop() { eloop_init(this); }
    ~ProcessLoop() { eloop_destroy(); }
    ProcessLoop(const ProcessLoop&) = delete;
    ProcessLoop& operator=(const ProcessLoop&) = delete;

    static std::string name(const std::string& function) { return "eloop_" + function; }
    static int failure() { return 0; }
    void* user_data() { return this; }

    static int register_read_sock(int sock, eloop_sock_handler handler, void* a, void* b) {
        return eloop_register_read_sock(sock, handler, a, b);
    }
    static int unregister_read_sock(int sock) { return eloop_unregister_read_sock(sock); }
    static int register_timeout(unsigned secs, unsigned usecs, eloop_timeout_handler handler,
                                void* a, void* b) {
        return eloop_register_timeout(secs, usecs, handler, a, b);
    }
    static int cancel_timeout(eloop_timeout_handler handler, void* a, void* b) {
        return eloop_cancel_timeout(handler, a, b);
    }
    static void run() { eloop_run(); }
    static void terminate() { eloop_terminate(); }
    static int terminated() { return eloop_terminated(); }
    static void* get_user_data() { return eloop_get_user_data(); }
    static void connect_cmm_agent(int connected) { eloop_connect_cmm_agent(connected); }

    static constexpr int result = 0;
};

void on_signal(int /*sig*/, void* /*loop_user_data*/, void* signal_user_data) {
    (*static_cast<Action*>(signal_user_data))();
}

class Signals : public DeviceTest {
  protected:
    Signals() {
        waits::reset();
        eloop_init(&loop_data);
    }
    ~Signals() override {
        eloop_destroy();
        for (const int sig : {SIGUSR1, SIGUSR2, SIGALRM})
            signal(sig, SIG_DFL);
    }
    Signals(const Signals&) = delete;
    Signals& operator=(const Signals&) = delete;

    Action note(const std::string& text) {
        return [this, text] { events.push_back(text); };
    }
    Action note_and_stop(const std::string& text) {
        return [this, text] {
            events.push_back(text);
            eloop_terminate();
        };
    }

    int loop_data = 0;
    std::vector<std::string> events;
};

TEST_F(Signals, AreHandledInTheLoopWithTheirData) {
    static int calls;
    static void* loop_argument;
    static void* signal_argument;
    calls = 0;
    int own = 0;
    const auto handler = [](int sig, void* loop_user_data, void* signal_user_data) {
        EXPECT_EQ(sig, SIGUSR1);
        loop_argument = loop_user_data;
        signal_argument = signal_user_data;
        calls++;
        eloop_terminate();
    };
    ASSERT_EQ(eloop_register_signal(SIGUSR1, handler, &own), 0);
    eloop_connect_cmm_agent(1);
    raise(SIGUSR1);
    EXPECT_EQ(calls, 0);
    eloop_run();
    EXPECT_EQ(calls, 1);
    EXPECT_EQ(loop_argument, &loop_data);
    EXPECT_EQ(signal_argument, &own);
}

TEST_F(Signals, GoBeforeTheTimeoutAndTheSocketsOfAPass) {
    const SocketPair pair;
    pair.send();
    Action signalled = note("signal");
    Action due = note("timeout");
    Action readable = note_and_stop("readable");
    eloop_register_read_sock(pair.one(), on_readable, &readable, nullptr);
    eloop_register_timeout(0, 0, on_timeout, &due, nullptr);
    eloop_register_signal(SIGUSR1, on_signal, &signalled);
    raise(SIGUSR1);
    eloop_run();
    EXPECT_THAT(events, ElementsAre("signal", "timeout", "readable"));
}

TEST_F(Signals, AreHandledInTheOrderOfRegistration) {
    Action first = note("first");
    Action second = note_and_stop("second");
    eloop_register_signal(SIGUSR2, on_signal, &first);
    eloop_register_signal(SIGUSR1, on_signal, &second);
    eloop_connect_cmm_agent(1);
    raise(SIGUSR1);
    raise(SIGUSR2);
    eloop_run();
    EXPECT_THAT(events, ElementsAre("first", "second"));
}

TEST_F(Signals, AreHandledOnceForSeveralDeliveries) {
    Action signalled = note("signal");
    Action stop = [] { eloop_terminate(); };
    eloop_register_signal(SIGUSR1, on_signal, &signalled);
    eloop_register_timeout(0, 2000, on_timeout, &stop, nullptr);
    for (int i = 0; i < 3; i++)
        raise(SIGUSR1);
    eloop_run();
    EXPECT_THAT(events, ElementsAre("signal"));
}

TEST_F(Signals, AreHandledAgainWhenTheyComeAgain) {
    Action signalled = [&] {
        events.emplace_back("signal");
        if (events.size() == 3) return eloop_terminate();
        raise(SIGUSR1);
    };
    eloop_register_signal(SIGUSR1, on_signal, &signalled);
    eloop_connect_cmm_agent(1);
    raise(SIGUSR1);
    eloop_run();
    EXPECT_THAT(events, ElementsAre("signal", "signal", "signal"));
}

TEST_F(Signals, CallTheFirstOfTwoRegistrations) {
    Action first = note_and_stop("first");
    Action second = note("second");
    eloop_register_signal(SIGUSR1, on_signal, &first);
    eloop_register_signal(SIGUSR1, on_signal, &second);
    eloop_connect_cmm_agent(1);
    raise(SIGUSR1);
    eloop_run();
    EXPECT_THAT(events, ElementsAre("first"));
}

// In the moment between the last look at the counters and the wait.
TEST_F(Signals, EndAWaitThatIsJustAboutToBegin) {
    Action signalled = note_and_stop("signal");
    eloop_register_signal(SIGUSR1, on_signal, &signalled);
    eloop_connect_cmm_agent(1);
    waits::before_next([] { raise(SIGUSR1); });
    eloop_run();
    EXPECT_THAT(events, ElementsAre("signal"));
    ASSERT_EQ(waits::seen().size(), 1U);
    EXPECT_EQ(waits::seen()[0].limit, std::nullopt);
}

// After the signals' turn in one pass, while its timeout and its sockets are served.
TEST_F(Signals, AreNotWaitedForWhenTheyCameWhileHandlersRan) {
    const SocketPair pair;
    pair.send();
    Action signalled = note_and_stop("signal");
    Action readable = [&] {
        events.emplace_back("readable");
        pair.receive();
        raise(SIGUSR1);
    };
    eloop_register_signal(SIGUSR1, on_signal, &signalled);
    eloop_register_read_sock(pair.one(), on_readable, &readable, nullptr);
    eloop_run();
    EXPECT_THAT(events, ElementsAre("readable", "signal"));
    ASSERT_EQ(waits::seen().size(), 2U);
    EXPECT_EQ(waits::seen()[1].limit, 0);
}

TEST_F(Signals, EndAWaitWithoutLimit) {
    Action signalled = note_and_stop("signal");
    eloop_register_signal(SIGALRM, on_signal, &signalled);
    eloop_connect_cmm_agent(1);
    const itimerval soon = {.it_interval = {}, .it_value = {.tv_sec = 0, .tv_usec = 5000}};
    setitimer(ITIMER_REAL, &soon, nullptr);
    eloop_run();
    EXPECT_THAT(events, ElementsAre("signal"));
    EXPECT_EQ(waits::seen().at(0).limit, std::nullopt);
    EXPECT_EQ(waits::seen().at(0).count, 2);
}

TEST_F(Signals, DoNotChangeHowLongTheLoopWaits) {
    const waits::VirtualTime time(50, 0);
    Action signalled = note("signal");
    Action due = note("due");
    eloop_register_signal(SIGUSR1, on_signal, &signalled);
    eloop_register_timeout(2, 250000, on_timeout, &due, nullptr);
    eloop_run();
    ASSERT_EQ(waits::seen().size(), 1U);
    EXPECT_EQ(waits::seen()[0].limit, 2250000);
    EXPECT_TRUE(waits::seen()[0].with_mask);
    EXPECT_THAT(events, ElementsAre("due"));
}

TEST_F(Signals, AreForgottenOnceTheyAreHandled) {
    const waits::VirtualTime time(50, 0);
    Action signalled = note("signal");
    Action due = note("due");
    eloop_register_signal(SIGUSR1, on_signal, &signalled);
    eloop_register_timeout(2, 0, on_timeout, &due, nullptr);
    raise(SIGUSR1);
    eloop_run();
    ASSERT_EQ(waits::seen().size(), 2U);
    EXPECT_EQ(waits::seen()[0].limit, 0);
    EXPECT_EQ(waits::seen()[1].limit, 2000000);
    EXPECT_THAT(events, ElementsAre("signal", "due"));
}

TEST_F(Signals, AreNotHeldWhereTheLoopDoesNotWait) {
    Action signalled = note("signal");
    Action due = note("due");
    eloop_register_signal(SIGUSR1, on_signal, &signalled);
    eloop_register_timeout(0, 0, on_timeout, &due, nullptr);
    eloop_run();
    ASSERT_EQ(waits::seen().size(), 1U);
    EXPECT_FALSE(waits::seen()[0].with_mask);
}

TEST_F(Signals, LeaveTheSignalMaskAsItWas) {
    Action signalled = [&] {
        sigset_t mask;
        sigprocmask(SIG_SETMASK, nullptr, &mask);
        EXPECT_TRUE(sigisemptyset(&mask));
        eloop_terminate();
    };
    eloop_register_signal(SIGUSR1, on_signal, &signalled);
    eloop_connect_cmm_agent(1);
    raise(SIGUSR1);
    eloop_run();
    EXPECT_NE(eloop_terminated(), 0);
}

TEST_F(Signals, WaitForTheNextRunWhereAWaitFails) {
    Action signalled = note_and_stop("signal");
    eloop_register_signal(SIGUSR1, on_signal, &signalled);
    eloop_connect_cmm_agent(1);
    raise(SIGUSR1);
    waits::fail_next(ENOMEM);
    testing::internal::CaptureStderr();
    eloop_run();
    EXPECT_EQ(testing::internal::GetCapturedStderr(), "select: Cannot allocate memory\n");
    EXPECT_TRUE(events.empty());
    eloop_run();
    EXPECT_THAT(events, ElementsAre("signal"));
}

TEST_F(Signals, AloneDoNotKeepTheLoopRunning) {
    eloop_register_signal(
        SIGUSR1, [](int, void*, void*) { ADD_FAILURE(); }, nullptr);
    eloop_run();
    EXPECT_TRUE(waits::seen().empty());
}

TEST_F(Signals, MayBeRegisteredByAHandlerOfASignal) {
    Action second = note_and_stop("second");
    Action first = [&] {
        events.emplace_back("first");
        for (const int sig : {SIGALRM, SIGUSR2})
            EXPECT_EQ(eloop_register_signal(sig, on_signal, &second), 0);
        raise(SIGUSR2);
    };
    eloop_register_signal(SIGUSR1, on_signal, &first);
    eloop_connect_cmm_agent(1);
    raise(SIGUSR1);
    eloop_run();
    EXPECT_THAT(events, ElementsAre("first", "second"));
}

// They are caught already, and their entry is not written yet.
TEST_F(Signals, AreHandledWhereTheyComeWhileTheyAreRegistered) {
    Action registered = note("registered");
    Action coming = note_and_stop("coming");
    eloop_register_signal(SIGUSR1, on_signal, &registered);
    behind_next_signal_call = [] {
        raise(SIGUSR2);
        raise(SIGUSR1);
    };
    EXPECT_EQ(eloop_register_signal(SIGUSR2, on_signal, &coming), 0);
    Action lost = [] { eloop_terminate(); };
    eloop_register_timeout(1, 0, on_timeout, &lost, nullptr);
    eloop_run();
    EXPECT_THAT(events, ElementsAre("registered", "coming"));
}

TEST_F(Signals, AreRefusedWhereTheyCannotBeCaught) {
    LogCapture log;
    EXPECT_EQ(eloop_register_signal(SIGKILL, on_signal, nullptr), -1);
    EXPECT_EQ(eloop_register_signal(9999, on_signal, nullptr), -1);
    EXPECT_THAT(log.take(), testing::IsEmpty());
    EXPECT_EQ(eloop_register_signal(SIGUSR1, nullptr, nullptr), -1);
    EXPECT_THAT(log.take(),
                ElementsAre(Line(LOG_ERR, "eloop_register_signal", "invalid parameters\n")));
    // Not one of them has left an entry: without one the loop waits in select().
    eloop_register_timeout(
        0, 1, [](void*, void*) {}, nullptr, nullptr);
    eloop_run();
    EXPECT_FALSE(waits::seen().at(0).with_mask);
}

TEST_F(Signals, KeepWhatIsRegisteredWhenMemoryRunsOut) {
    TQ_NEEDS_FAILING_ALLOCATOR();
    Action signalled = note_and_stop("signal");
    eloop_register_signal(SIGUSR1, on_signal, &signalled);
    {
        const Fail fail("realloc", 1, ENOMEM);
        EXPECT_EQ(eloop_register_signal(SIGUSR2, on_signal, nullptr), -1);
        EXPECT_TRUE(fail.fired());
    }
    struct sigaction current = {};
    sigaction(SIGUSR2, nullptr, &current);
    EXPECT_EQ(current.sa_handler, SIG_DFL);
    eloop_connect_cmm_agent(1);
    raise(SIGUSR1);
    eloop_run();
    EXPECT_THAT(events, ElementsAre("signal"));
}

TEST_F(Signals, DoNothingOnceTheLoopIsDestroyed) {
    eloop_register_signal(
        SIGUSR1, [](int, void*, void*) { ADD_FAILURE(); }, nullptr);
    eloop_destroy();
    raise(SIGUSR1);
    eloop_init(nullptr);
    raise(SIGUSR1);
    Action nothing = note("due");
    eloop_register_timeout(0, 0, on_timeout, &nothing, nullptr);
    eloop_run();
    EXPECT_THAT(events, ElementsAre("due"));
}

TEST_F(Signals, ComeInStormsAndNoneOfTheLastIsLost) {
    int handled = 0;
    int ticks = 0;
    Action signalled = [&] { handled++; };
    eloop_register_signal(SIGALRM, on_signal, &signalled);
    Action usr = [&] { ticks++; };
    eloop_register_signal(SIGUSR1, on_signal, &usr);
    const itimerval often = {.it_interval = {.tv_sec = 0, .tv_usec = 100},
                             .it_value = {.tv_sec = 0, .tv_usec = 100}};
    Action again;
    int passes = 0;
    again = [&] {
        raise(SIGUSR1);
        if (++passes == 500) return eloop_terminate();
        eloop_register_timeout(0, 10, on_timeout, &again, nullptr);
    };
    eloop_register_timeout(0, 0, on_timeout, &again, nullptr);
    setitimer(ITIMER_REAL, &often, nullptr);
    eloop_run();
    const itimerval off = {};
    setitimer(ITIMER_REAL, &off, nullptr);
    EXPECT_GT(handled, 0);
    // Each but the last was handled in the pass behind it.
    EXPECT_EQ(ticks, 499);
}

bool stopped_by_its_own_handler = false;

TEST_F(Signals, OfTheCallersOwnMayTerminateTheLoop) {
    signal(SIGUSR2, [](int) {
        stopped_by_its_own_handler = true;
        eloop_terminate();
    });
    const SocketPair pair;
    pair.send();
    Action readable = [&] { raise(SIGUSR2); };
    eloop_register_read_sock(pair.one(), on_readable, &readable, nullptr);
    eloop_run();
    EXPECT_TRUE(stopped_by_its_own_handler);
    EXPECT_NE(eloop_terminated(), 0);
}

// As a handler of the caller's own would, after the pass has begun.
TEST_F(Signals, LetATerminatedLoopReturnWithoutAWait) {
    const waits::VirtualTime time(50, 0);
    eloop_register_signal(
        SIGUSR1, [](int, void*, void*) { ADD_FAILURE(); }, nullptr);
    eloop_register_timeout(5, 0, never_due, nullptr, nullptr);
    waits::before_next_reading([] { eloop_terminate(); });
    eloop_run();
    ASSERT_EQ(waits::seen().size(), 1U);
    EXPECT_EQ(waits::seen()[0].limit, 0);
}

TEST(ProcessLoopState, KeepsRunningForTheCmmAgentAlone) {
    waits::reset();
    eloop_init(nullptr);
    eloop_connect_cmm_agent(-1);
    waits::fail_next(EBADF);
    testing::internal::CaptureStderr();
    eloop_run();
    EXPECT_EQ(testing::internal::GetCapturedStderr(), "select: Bad file descriptor\n");
    ASSERT_EQ(waits::seen().size(), 1U);
    EXPECT_EQ(waits::seen()[0].limit, std::nullopt);
    EXPECT_EQ(waits::seen()[0].count, 2);
    eloop_connect_cmm_agent(0);
    eloop_run();
    EXPECT_EQ(waits::seen().size(), 1U);
    eloop_destroy();
}

TEST(ProcessLoopState, WaitsLongerThanASecond) {
    waits::reset();
    eloop_init(nullptr);
    const waits::VirtualTime time(10, 0);
    eloop_register_timeout(
        90, 0, [](void*, void*) {}, nullptr, nullptr);
    eloop_run();
    ASSERT_EQ(waits::seen().size(), 1U);
    EXPECT_EQ(waits::seen()[0].limit, 90000000);
    eloop_destroy();
}

TEST(ProcessLoopState, IsForgottenByASecondInit) {
    waits::reset();
    eloop_init(nullptr);
    int data = 0;
    const SocketPair pair;
    pair.send();
    eloop_register_read_sock(pair.one(), never_readable, nullptr, nullptr);
    eloop_unregister_read_sock(pair.one());
    eloop_register_timeout(0, 0, never_due, nullptr, nullptr);
    eloop_cancel_timeout(never_due, nullptr, nullptr);
    eloop_connect_cmm_agent(1);
    eloop_terminate();
    eloop_destroy();
    eloop_init(&data);
    EXPECT_EQ(eloop_terminated(), 0);
    EXPECT_EQ(eloop_get_user_data(), &data);
    eloop_run();
    EXPECT_TRUE(waits::seen().empty());
    eloop_register_timeout(
        0, 0, [](void*, void*) {}, nullptr, nullptr);
    eloop_run();
    EXPECT_EQ(waits::seen().at(0).count, 1);
    eloop_destroy();
}

TEST(ProcessLoopState, StaysAsItIsWhenItIsDestroyed) {
    int data = 0;
    eloop_init(&data);
    eloop_terminate();
    eloop_destroy();
    EXPECT_EQ(eloop_terminated(), 1);
    EXPECT_EQ(eloop_get_user_data(), &data);
    eloop_init(nullptr);
    eloop_destroy();
}

// Leak checkers watch the rest: what is left in a destroyed loop is freed.
TEST(ProcessLoopState, FreesWhatIsLeft) {
    eloop_init(nullptr);
    const SocketPair pair;
    for (int i = 0; i < 10; i++) {
        eloop_register_timeout(static_cast<unsigned>(i % 3), 0, never_due, nullptr, nullptr);
        eloop_register_read_sock(pair.one(), never_readable, nullptr, nullptr);
    }
    eloop_destroy();
}

}  // namespace

namespace tq_test {
INSTANTIATE_TYPED_TEST_SUITE_P(ProcessLoop, LoopSuite, ProcessLoop);
}
