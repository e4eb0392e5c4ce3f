// loop_suite.h - what both kinds of event loop do alike. A loop under test is a class with the
// functions of the interface, without their prefix.
#pragma once

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sys/resource.h>
#include <sys/socket.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <climits>
#include <cstdint>
#include <functional>
#include <random>
#include <string>
#include <utility>
#include <vector>

#include "eloop/waits.h"
#include "support/device.h"
#include "support/faults.h"
#include "support/log_capture.h"
#include "support/random.h"
#include "tq/eloop.h"

namespace tq_test {

using Action = std::function<void()>;

// Any value, for cancel_timeout.
inline void* const kAny = ELOOP_ALL;  // NOLINT(performance-no-int-to-ptr)

inline void on_readable(int /*sock*/, void* eloop_data, void* /*user_data*/) {
    (*static_cast<Action*>(eloop_data))();
}

inline void on_timeout(void* eloop_data, void* /*user_data*/) {
    (*static_cast<Action*>(eloop_data))();
}

inline void never_readable(int /*sock*/, void* /*eloop_data*/, void* /*user_data*/) {
    ADD_FAILURE() << "a socket's handler was called";
}

inline void never_due(void* /*eloop_data*/, void* /*user_data*/) {
    ADD_FAILURE() << "a timeout's handler was called";
}

// Two connected sockets; one() is readable once something was written to the other.
class SocketPair {
  public:
    SocketPair() {
        if (socketpair(AF_UNIX, SOCK_DGRAM | SOCK_CLOEXEC, 0, fds_.data()) != 0) throw errno;
    }
    ~SocketPair() {
        close(fds_[0]);
        close(fds_[1]);
    }
    SocketPair(const SocketPair&) = delete;
    SocketPair& operator=(const SocketPair&) = delete;

    [[nodiscard]] int one() const { return fds_[0]; }
    [[nodiscard]] int other() const { return fds_[1]; }
    void send() const { EXPECT_EQ(write(fds_[1], "x", 1), 1); }
    void receive() const {
        char byte = 0;
        EXPECT_EQ(read(fds_[0], &byte, 1), 1);
    }

  private:
    std::array<int, 2> fds_ = {-1, -1};
};

template <typename Loop>
class LoopSuite : public DeviceTest {
  protected:
    LoopSuite() { waits::reset(); }

    // Notes the text when it runs.
    Action note(const std::string& text) {
        return [this, text] { events.push_back(text); };
    }
    Action note_and_stop(const std::string& text) {
        return [this, text] {
            events.push_back(text);
            loop.terminate();
        };
    }
    int add_timeout(unsigned secs, unsigned usecs, Action& action) {
        return loop.register_timeout(secs, usecs, on_timeout, &action, nullptr);
    }
    int add_reader(int sock, Action& action) {
        return loop.register_read_sock(sock, on_readable, &action, nullptr);
    }
    std::string output_of_run() {
        testing::internal::CaptureStdout();
        loop.run();
        fflush(stdout);
        return testing::internal::GetCapturedStdout();
    }

    Loop loop;
    std::vector<std::string> events;
};

TYPED_TEST_SUITE_P(LoopSuite);

TYPED_TEST_P(LoopSuite, KeepsTheUserData) {
    EXPECT_EQ(this->loop.get_user_data(), this->loop.user_data());
    EXPECT_EQ(this->loop.terminated(), 0);
}

TYPED_TEST_P(LoopSuite, ReturnsAtOnceWithNothingRegistered) {
    this->loop.run();
    EXPECT_EQ(this->loop.result, 0);
    EXPECT_TRUE(waits::seen().empty());
    EXPECT_EQ(waits::clock_readings(), 0);
}

TYPED_TEST_P(LoopSuite, ReturnsWhenTheLastTimeoutHasRun) {
    Action first = this->note("first");
    Action second = this->note("second");
    this->add_timeout(0, 2000, second);
    this->add_timeout(0, 1000, first);
    this->loop.run();
    EXPECT_EQ(this->loop.result, 0);
    EXPECT_THAT(this->events, testing::ElementsAre("first", "second"));
    EXPECT_EQ(this->loop.terminated(), 0);
}

TYPED_TEST_P(LoopSuite, GivesEachHandlerItsArguments) {
    const SocketPair pair;
    pair.send();
    static int a;
    static int b;
    static int expected_sock;
    static int calls;
    static TypeParam* running;
    expected_sock = pair.one();
    calls = 0;
    running = &this->loop;
    const auto readable = [](int sock, void* eloop_data, void* user_data) {
        EXPECT_EQ(sock, expected_sock);
        EXPECT_EQ(eloop_data, &a);
        EXPECT_EQ(user_data, &b);
        calls++;
        running->terminate();
    };
    const auto due = [](void* eloop_data, void* user_data) {
        EXPECT_EQ(eloop_data, &b);
        EXPECT_EQ(user_data, &a);
        calls++;
    };
    EXPECT_EQ(this->loop.register_read_sock(pair.one(), readable, &a, &b), 0);
    EXPECT_EQ(this->loop.register_timeout(0, 0, due, &b, &a), 0);
    this->loop.run();
    EXPECT_EQ(calls, 2);
    EXPECT_NE(this->loop.terminated(), 0);
}

TYPED_TEST_P(LoopSuite, DoesNotWaitOnceItIsTerminated) {
    Action never = this->note("never");
    this->add_timeout(0, 0, never);
    this->loop.terminate();
    this->loop.run();
    EXPECT_EQ(this->loop.result, 0);
    EXPECT_TRUE(this->events.empty());
    EXPECT_TRUE(waits::seen().empty());
}

TYPED_TEST_P(LoopSuite, RunsATimeoutBeforeTheSocketsAndOneAPass) {
    const SocketPair pair;
    pair.send();
    const waits::VirtualTime time(100, 0);
    Action first = this->note("first");
    Action second = this->note("second");
    Action third = this->note_and_stop("third");
    Action readable = this->note("readable");
    this->add_timeout(0, 0, first);
    this->add_timeout(0, 0, second);
    this->add_timeout(0, 0, third);
    this->add_reader(pair.one(), readable);
    this->loop.run();
    EXPECT_THAT(this->events, testing::ElementsAre("first", "readable", "second", "readable",
                                                   "third", "readable"));
    ASSERT_EQ(waits::seen().size(), 3U);
    EXPECT_EQ(waits::seen()[2].limit, 0);
}

TYPED_TEST_P(LoopSuite, WaitsUntilTheFirstTimeoutIsDue) {
    const waits::VirtualTime time(100, 900000);
    Action stop = this->note("due");
    this->add_timeout(0, 250000, stop);
    this->loop.run();
    ASSERT_EQ(waits::seen().size(), 1U);
    EXPECT_EQ(waits::seen()[0].limit, 250000);
    EXPECT_EQ(waits::VirtualTime::now(), 101150000);
}

TYPED_TEST_P(LoopSuite, CarriesAnyNumberOfMicroseconds) {
    const waits::VirtualTime time(100, 600000);
    std::vector<int64_t> due;
    Action note = [&] { due.push_back(waits::VirtualTime::now()); };
    this->add_timeout(0, 2500000, note);
    this->add_timeout(1, 400000, note);
    this->add_timeout(0, UINT_MAX, note);
    this->loop.run();
    EXPECT_THAT(due, testing::ElementsAre(102000000, 103100000, 100600000 + int64_t{UINT_MAX}));
}

TYPED_TEST_P(LoopSuite, NeverWrapsADueTimeThatIsTooFarAway) {
    const waits::VirtualTime time(100, 999999);
    Action late = this->note("late");
    Action early = this->note_and_stop("early");
    this->add_timeout(UINT_MAX, UINT_MAX, late);
    this->add_timeout(INT_MAX - 100, 0, late);
    this->add_timeout(INT_MAX - 99, 0, late);
    this->add_timeout(3, 0, early);
    this->loop.run();
    EXPECT_THAT(this->events, testing::ElementsAre("early"));
    EXPECT_EQ(waits::VirtualTime::now(), 103999999);
}

TYPED_TEST_P(LoopSuite, KeepsADueTimeUpToTheLastSecond) {
    const waits::VirtualTime time(INT_MAX - 1, 5);
    Action last = this->note("last");
    Action first = [&] {
        this->events.emplace_back("first");
        EXPECT_EQ(waits::VirtualTime::now(), INT_MAX * int64_t{1000000} + 5);
        this->add_timeout(0, 0, last);
    };
    this->add_timeout(1, 0, first);
    this->loop.run();
    EXPECT_THAT(this->events, testing::ElementsAre("first", "last"));
    EXPECT_EQ(waits::VirtualTime::now(), INT_MAX * int64_t{1000000} + 5);
}

TYPED_TEST_P(LoopSuite, CutsADueTimeThatItsMicrosecondsCarryTooFarAway) {
    const waits::VirtualTime time(INT_MAX, 999999);
    Action first = this->note("first");
    Action second = this->note("second");
    this->add_timeout(0, 0, first);
    this->add_timeout(0, 1, second);
    this->loop.run();
    EXPECT_THAT(this->events, testing::ElementsAre("first", "second"));
}

TYPED_TEST_P(LoopSuite, OrdersTimeoutsByDueTimeAndThenByRegistration) {
    const waits::VirtualTime time(50, 0);
    std::mt19937 random = seeded(7);
    std::vector<std::pair<unsigned, int>> expected;
    std::vector<Action> actions(500);
    std::vector<int> ran;
    for (int i = 0; i < 500; i++) {
        const auto delay = static_cast<unsigned>(random() % 40 * 100000);
        actions[static_cast<size_t>(i)] = [&ran, i] { ran.push_back(i); };
        this->add_timeout(delay / 1000000, delay % 1000000, actions[static_cast<size_t>(i)]);
        expected.emplace_back(delay, i);
    }
    std::ranges::sort(expected);
    this->loop.run();
    ASSERT_EQ(ran.size(), expected.size());
    for (size_t i = 0; i < ran.size(); i++)
        ASSERT_EQ(ran[i], expected[i].second) << i;
}

// Random steps beside a sorted vector, half of them in handlers: the list stays in order through
// all of them.
TYPED_TEST_P(LoopSuite, CancelsAndAddsInAnyOrder) {
    using Entry = std::pair<int64_t, int>;
    const waits::VirtualTime time(50, 0);
    std::mt19937 random = seeded(11);
    std::vector<Entry> expected;
    std::array<Action, 20> actions;
    int left = 0;
    const auto step = [&] {
        const int which = static_cast<int>(random() % 20);
        Action& action = actions[static_cast<size_t>(which)];
        if (random() % 3 != 0) {
            const auto delay = static_cast<unsigned>(random() % 2000);
            ASSERT_EQ(this->add_timeout(0, delay, action), 0);
            const Entry added(waits::VirtualTime::now() + delay, which);
            expected.insert(std::ranges::upper_bound(expected, added.first, {}, &Entry::first),
                            added);
            return;
        }
        const auto removed =
            std::erase_if(expected, [&](const Entry& entry) { return entry.second == which; });
        ASSERT_EQ(this->loop.cancel_timeout(on_timeout, &action, nullptr),
                  static_cast<int>(removed));
        waits::VirtualTime::advance(static_cast<int64_t>(random() % 50));
    };
    for (int i = 0; i < 20; i++) {
        actions[static_cast<size_t>(i)] = [&, i] {
            ASSERT_FALSE(expected.empty());
            ASSERT_EQ(expected.front().second, i);
            expected.erase(expected.begin());
            for (int n = 0; n < 3 && left > 0; n++, left--)
                step();
        };
    }
    for (int round = 0; round < 20; round++) {
        for (left = 500; left > 250; left--)
            step();
        this->loop.run();
        ASSERT_TRUE(expected.empty());
    }
}

TYPED_TEST_P(LoopSuite, AddsBehindTimeoutsThatAreGone) {
    const waits::VirtualTime time(50, 0);
    Action late = this->note("late");
    Action kept = this->note("kept");
    Action gone = this->note("gone");
    Action add_late = [&] { this->add_timeout(0, 10, late); };
    // One that was the first has known the cancelled one as the last.
    this->add_timeout(0, 5, kept);
    this->add_timeout(0, 9, gone);
    this->add_timeout(0, 1, add_late);
    EXPECT_EQ(this->loop.cancel_timeout(on_timeout, &gone, nullptr), 1);
    this->loop.run();
    EXPECT_THAT(this->events, testing::ElementsAre("kept", "late"));
    // What was added last has run before the last.
    this->events.clear();
    this->add_timeout(0, 1, kept);
    this->add_timeout(0, 9, kept);
    this->add_timeout(0, 6, add_late);
    this->add_timeout(0, 5, kept);
    this->loop.run();
    EXPECT_THAT(this->events, testing::ElementsAre("kept", "kept", "kept", "late"));
}

// As daemons have them: each adds itself again while the others wait.
TYPED_TEST_P(LoopSuite, KeepsTimersThatAddThemselvesAgainInOrder) {
    const waits::VirtualTime time(50, 0);
    constexpr std::array<unsigned, 3> kPeriods = {30, 70, 110};
    std::array<Action, 3> timers;
    std::array<int, 3> runs = {};
    int left = 300;
    for (size_t i = 0; i < timers.size(); i++) {
        timers[i] = [&, i] {
            EXPECT_EQ(waits::VirtualTime::now(), 50000000 + ++runs[i] * int64_t{kPeriods[i]});
            if (left-- > 0) this->add_timeout(0, kPeriods[i], timers[i]);
        };
        this->add_timeout(0, kPeriods[i], timers[i]);
    }
    this->loop.run();
    // The last of each has not added itself.
    EXPECT_EQ(left, -3);
}

inline void due_too(void* /*eloop_data*/, void* /*user_data*/) {
    ADD_FAILURE() << "a timeout's handler was called";
}

TYPED_TEST_P(LoopSuite, CancelsByHandlerAndDataWithWildcards) {
    int a = 0;
    int b = 0;
    const auto add = [&](eloop_timeout_handler handler, void* eloop_data, void* user_data) {
        ASSERT_EQ(this->loop.register_timeout(9, 0, handler, eloop_data, user_data), 0);
    };
    const auto add_all = [&] {
        for (void* first : {&a, &b}) {
            add(never_due, first, &a);
            add(never_due, first, &b);
        }
        add(due_too, &a, &a);
    };
    add_all();
    EXPECT_EQ(this->loop.cancel_timeout(never_due, &a, &a), 1);
    EXPECT_EQ(this->loop.cancel_timeout(never_due, &a, &a), 0);
    EXPECT_EQ(this->loop.cancel_timeout(never_due, &b, kAny), 2);
    EXPECT_EQ(this->loop.cancel_timeout(never_due, kAny, &a), 0);
    EXPECT_EQ(this->loop.cancel_timeout(never_due, kAny, &b), 1);
    EXPECT_EQ(this->loop.cancel_timeout(never_due, kAny, kAny), 0);
    add_all();
    EXPECT_EQ(this->loop.cancel_timeout(never_due, kAny, kAny), 4);
    EXPECT_EQ(this->loop.cancel_timeout(nullptr, kAny, kAny), 0);
    const auto any_handler = reinterpret_cast<eloop_timeout_handler>(kAny);
    EXPECT_EQ(this->loop.cancel_timeout(any_handler, kAny, kAny), 0);
    EXPECT_EQ(this->loop.cancel_timeout(due_too, nullptr, kAny), 0);
    EXPECT_EQ(this->loop.cancel_timeout(due_too, kAny, nullptr), 0);
    EXPECT_EQ(this->loop.cancel_timeout(due_too, kAny, kAny), 2);
    this->loop.run();
    EXPECT_TRUE(waits::seen().empty());
}

TYPED_TEST_P(LoopSuite, LetsATimeoutAddItselfAgainAndCancelOthers) {
    const waits::VirtualTime time(50, 0);
    Action other = this->note("other");
    Action again;
    again = [&] {
        this->events.emplace_back("again");
        // Its own record is out of the list already.
        EXPECT_EQ(this->loop.cancel_timeout(on_timeout, &again, nullptr), 0);
        this->loop.cancel_timeout(on_timeout, &other, nullptr);
        if (this->events.size() < 3) this->add_timeout(0, 10, again);
    };
    this->add_timeout(0, 10, again);
    this->add_timeout(0, 10, other);
    this->loop.run();
    EXPECT_THAT(this->events, testing::ElementsAre("again", "again", "again"));
}

TYPED_TEST_P(LoopSuite, CallsEveryEntryOfASocketInOrder) {
    const SocketPair pair;
    const SocketPair quiet;
    pair.send();
    Action first = this->note("first");
    Action second = this->note_and_stop("second");
    this->loop.register_read_sock(quiet.one(), never_readable, nullptr, nullptr);
    EXPECT_EQ(this->add_reader(pair.one(), first), 0);
    EXPECT_EQ(this->add_reader(pair.one(), second), 0);
    this->loop.run();
    EXPECT_THAT(this->events, testing::ElementsAre("first", "second"));
}

TYPED_TEST_P(LoopSuite, UnregistersTheFirstEntryAndKeepsTheOrder) {
    const SocketPair a;
    const SocketPair b;
    a.send();
    b.send();
    Action first = this->note("first");
    Action second = this->note("second");
    Action third = this->note("third");
    Action last = this->note_and_stop("last");
    this->add_reader(a.one(), first);
    this->add_reader(b.one(), second);
    this->add_reader(a.one(), third);
    this->add_reader(b.one(), last);
    EXPECT_EQ(this->loop.unregister_read_sock(a.one()), 0);
    this->loop.run();
    EXPECT_THAT(this->events, testing::ElementsAre("second", "third", "last"));
    EXPECT_EQ(this->loop.unregister_read_sock(b.one()), 0);
    EXPECT_EQ(this->loop.unregister_read_sock(b.one()), 0);
    EXPECT_EQ(this->loop.unregister_read_sock(b.one()), -1);
    EXPECT_EQ(this->loop.unregister_read_sock(a.one()), 0);
    EXPECT_EQ(this->loop.unregister_read_sock(-1), -1);
}

TYPED_TEST_P(LoopSuite, LetsAHandlerUnregisterItsOwnAndOtherSockets) {
    const SocketPair a;
    const SocketPair b;
    const SocketPair c;
    for (const SocketPair* pair : {&a, &b, &c})
        pair->send();
    Action first = [&] {
        this->events.emplace_back("first");
        EXPECT_EQ(this->loop.unregister_read_sock(a.one()), 0);
    };
    Action skipped_once = this->note("skipped once");
    Action last = [&] {
        this->events.emplace_back("last");
        // The last entry, which is running.
        EXPECT_EQ(this->loop.unregister_read_sock(c.one()), 0);
        if (this->events.size() == 2) return;
        ADD_FAILURE() << "called again";
    };
    Action stop = [&] {
        this->events.emplace_back("stop");
        EXPECT_EQ(this->loop.unregister_read_sock(b.one()), 0);
    };
    this->add_reader(a.one(), first);
    this->add_reader(b.one(), stop);
    this->add_reader(c.one(), last);
    this->loop.run();
    // "stop" moved up to the place of "first" and was passed over, once.
    EXPECT_THAT(this->events, testing::ElementsAre("first", "last", "stop"));
}

TYPED_TEST_P(LoopSuite, LetsAHandlerRegisterMoreSocketsThanTheTableHeld) {
    const SocketPair pair;
    pair.send();
    std::vector<SocketPair> quiet(50);
    Action grow = [&] {
        this->events.emplace_back("grow");
        for (const SocketPair& each : quiet)
            this->loop.register_read_sock(each.one(), never_readable, nullptr, nullptr);
        this->loop.terminate();
    };
    this->add_reader(pair.one(), grow);
    this->loop.run();
    EXPECT_THAT(this->events, testing::ElementsAre("grow"));
    for (const SocketPair& each : quiet)
        EXPECT_EQ(this->loop.unregister_read_sock(each.one()), 0);
}

TYPED_TEST_P(LoopSuite, CallsWhatAHandlerRegistersForAReadableSocketInTheSamePass) {
    const SocketPair pair;
    pair.send();
    Action late = this->note_and_stop("late");
    Action early = [&] {
        this->events.emplace_back("early");
        this->add_reader(pair.one(), late);
    };
    this->add_reader(pair.one(), early);
    this->loop.run();
    EXPECT_THAT(this->events, testing::ElementsAre("early", "late"));
    EXPECT_EQ(waits::seen().size(), 1U);
}

TYPED_TEST_P(LoopSuite, TellsThatAPeerHasGone) {
    auto ends = std::array<int, 2>();
    ASSERT_EQ(pipe(ends.data()), 0);
    close(ends[1]);
    Action stop = this->note_and_stop("end of file");
    this->add_reader(ends[0], stop);
    this->loop.run();
    EXPECT_THAT(this->events, testing::ElementsAre("end of file"));
    close(ends[0]);
}

TYPED_TEST_P(LoopSuite, RefusesWhatSelectCannotHold) {
    LogCapture log;
    rlimit limit = {};
    getrlimit(RLIMIT_NOFILE, &limit);
    const rlimit before = limit;
    limit.rlim_cur = 1100;
    if (limit.rlim_max < 1100 || setrlimit(RLIMIT_NOFILE, &limit) != 0) {
        GTEST_SKIP() << "no more than " << before.rlim_max << " descriptors are allowed";
    }
    const SocketPair pair;
    pair.send();
    ASSERT_EQ(dup2(pair.one(), FD_SETSIZE - 1), FD_SETSIZE - 1);
    ASSERT_EQ(dup2(pair.one(), FD_SETSIZE), FD_SETSIZE);
    EXPECT_EQ(this->loop.register_read_sock(FD_SETSIZE, never_readable, nullptr, nullptr), -1);
    EXPECT_EQ(this->loop.register_read_sock(INT_MAX, never_readable, nullptr, nullptr), -1);
    EXPECT_EQ(this->loop.register_read_sock(-1, never_readable, nullptr, nullptr), -1);
    EXPECT_THAT(log.take(), testing::Each(Line(LOG_ERR, this->loop.name("register_read_sock"),
                                               "invalid parameters\n")));
    EXPECT_EQ(this->loop.unregister_read_sock(FD_SETSIZE), -1);
    // The first, which a daemon without a standard input may be given.
    EXPECT_EQ(this->loop.register_read_sock(0, never_readable, nullptr, nullptr), 0);
    EXPECT_EQ(this->loop.unregister_read_sock(0), 0);
    // The last one that fits; behind it there is no room for the extra descriptor.
    Action stop = this->note_and_stop("readable");
    EXPECT_EQ(this->add_reader(FD_SETSIZE - 1, stop), 0);
    this->loop.connect_cmm_agent(1);
    this->loop.run();
    EXPECT_THAT(this->events, testing::ElementsAre("readable"));
    EXPECT_EQ(waits::seen().at(0).count, FD_SETSIZE);
    close(FD_SETSIZE - 1);
    close(FD_SETSIZE);
    setrlimit(RLIMIT_NOFILE, &before);
}

TYPED_TEST_P(LoopSuite, RefusesNullHandlers) {
    LogCapture log;
    const SocketPair pair;
    EXPECT_EQ(this->loop.register_read_sock(pair.one(), nullptr, nullptr, nullptr), -1);
    EXPECT_EQ(this->loop.register_timeout(0, 0, nullptr, nullptr, nullptr), -1);
    EXPECT_THAT(log.take(),
                testing::ElementsAre(
                    Line(LOG_ERR, this->loop.name("register_read_sock"), "invalid parameters\n"),
                    Line(LOG_ERR, this->loop.name("register_timeout"), "invalid parameters\n")));
    this->loop.run();
    EXPECT_TRUE(waits::seen().empty());
}

TYPED_TEST_P(LoopSuite, WatchesUpToTheHighestSocketEverRegistered) {
    const SocketPair low;
    const SocketPair high;
    low.send();
    Action stop = this->note_and_stop("readable");
    this->loop.register_read_sock(high.other(), never_readable, nullptr, nullptr);
    this->add_reader(low.one(), stop);
    this->loop.unregister_read_sock(high.other());
    this->loop.run();
    EXPECT_EQ(waits::seen().at(0).count, high.other() + 1);
}

TYPED_TEST_P(LoopSuite, WatchesNoFewerWhenItBeginsAnewWithALowerSocket) {
    const SocketPair low;
    const SocketPair high;
    low.send();
    Action stop = this->note_and_stop("readable");
    this->loop.register_read_sock(high.other(), never_readable, nullptr, nullptr);
    this->loop.unregister_read_sock(high.other());
    this->add_reader(low.one(), stop);
    this->loop.run();
    EXPECT_EQ(waits::seen().at(0).count, high.other() + 1);
}

// What a set in memory that was used before would hold.
[[gnu::noinline]] inline void leave_ones_on_the_stack() {
    std::array<volatile char, 4096> ones;
    std::ranges::fill(ones, -1);
}

TYPED_TEST_P(LoopSuite, AsksForTheRegisteredSocketsAlone) {
    const SocketPair a;
    const SocketPair b;
    a.send();
    Action stop = this->note_and_stop("readable");
    this->loop.register_read_sock(b.one(), never_readable, nullptr, nullptr);
    this->loop.register_read_sock(b.other(), never_readable, nullptr, nullptr);
    this->add_reader(a.one(), stop);
    this->loop.unregister_read_sock(b.one());
    leave_ones_on_the_stack();
    this->loop.run();
    ASSERT_EQ(waits::seen().size(), 1U);
    EXPECT_THAT(waits::seen()[0].readable, testing::UnorderedElementsAre(a.one(), b.other()));
    EXPECT_FALSE(waits::seen()[0].others);
}

TYPED_TEST_P(LoopSuite, WatchesOneDescriptorMoreForTheCmmAgent) {
    Action nothing = this->note("nothing");
    this->add_timeout(0, 0, nothing);
    this->loop.connect_cmm_agent(-1);
    Action off = [&] { this->loop.connect_cmm_agent(0); };
    this->add_timeout(0, 0, off);
    this->add_timeout(0, 0, nothing);
    this->loop.run();
    ASSERT_EQ(waits::seen().size(), 3U);
    EXPECT_EQ(waits::seen()[0].count, 2);
    EXPECT_EQ(waits::seen()[1].count, 2);
    EXPECT_EQ(waits::seen()[2].count, 1);
}

TYPED_TEST_P(LoopSuite, GoesOnAfterAnInterruptedWait) {
    const SocketPair pair;
    pair.send();
    Action due = this->note("due");
    Action stop = this->note_and_stop("readable");
    this->add_timeout(0, 0, due);
    this->add_reader(pair.one(), stop);
    waits::fail_next(EINTR);
    this->loop.run();
    EXPECT_EQ(this->loop.result, 0);
    EXPECT_EQ(waits::seen().size(), 2U);
    // What the interrupted wait left in the set says nothing.
    EXPECT_THAT(this->events, testing::ElementsAre("due", "readable"));
}

TYPED_TEST_P(LoopSuite, StopsWithAMessageWhenASocketWasClosed) {
    Action due = this->note("due");
    Action stop = this->note_and_stop("readable");
    const SocketPair pair;
    pair.send();
    const int closed = dup(pair.one());
    this->add_timeout(0, 0, due);
    this->add_reader(pair.one(), stop);
    this->loop.register_read_sock(closed, never_readable, nullptr, nullptr);
    // Which opens descriptors of its own.
    testing::internal::CaptureStderr();
    close(closed);
    this->loop.run();
    EXPECT_EQ(testing::internal::GetCapturedStderr(), "select: Bad file descriptor\n");
    EXPECT_EQ(this->loop.result, this->loop.failure());
    EXPECT_TRUE(this->events.empty());
    // What was registered is still there.
    EXPECT_EQ(this->loop.unregister_read_sock(closed), 0);
    this->loop.run();
    EXPECT_EQ(this->loop.result, 0);
    EXPECT_THAT(this->events, testing::ElementsAre("due", "readable"));
}

TYPED_TEST_P(LoopSuite, IsUnchangedWhenMemoryRunsOut) {
    TQ_NEEDS_FAILING_ALLOCATOR();
    const SocketPair a;
    const SocketPair b;
    a.send();
    b.send();
    Action stop = this->note_and_stop("readable");
    this->add_reader(a.one(), stop);
    {
        const faults::Fail fail("realloc", 1, ENOMEM);
        EXPECT_EQ(this->loop.register_read_sock(b.one(), never_readable, nullptr, nullptr), -1);
        EXPECT_TRUE(fail.fired());
    }
    {
        const faults::Fail fail("malloc", 1, ENOMEM);
        EXPECT_EQ(this->loop.register_timeout(0, 0, never_due, nullptr, nullptr), -1);
        EXPECT_TRUE(fail.fired());
    }
    EXPECT_EQ(this->loop.unregister_read_sock(b.one()), -1);
    this->loop.run();
    EXPECT_THAT(this->events, testing::ElementsAre("readable"));
    EXPECT_EQ(waits::seen().at(0).count, a.one() + 1);
}

TYPED_TEST_P(LoopSuite, SaysThatTheClockIsInvalidAndGoesOn) {
    const waits::VirtualTime time(50, 0);
    Action due = this->note("due");
    this->add_timeout(7, 0, due);
    waits::next_reading(56, 1500000000);
    EXPECT_EQ(this->output_of_run(),
              "ERROR: tq_gettime returned invalid time: tv_sec=56 tv_usec=1500000\n");
    EXPECT_THAT(this->events, testing::ElementsAre("due"));
    EXPECT_EQ(waits::seen().at(0).limit, 1);
}

// The reading stands for the wait alone: what is due is for the next one to say.
TYPED_TEST_P(LoopSuite, RunsNothingEarlyForAnInvalidClock) {
    const waits::VirtualTime time(50, 0);
    std::vector<int64_t> due;
    Action note = [&] { due.push_back(waits::VirtualTime::now()); };
    this->add_timeout(0, 500000, note);
    waits::next_reading(50, 1000000000);
    EXPECT_EQ(this->output_of_run(),
              "ERROR: tq_gettime returned invalid time: tv_sec=50 tv_usec=1000000\n");
    EXPECT_THAT(due, testing::ElementsAre(50500000));
    ASSERT_EQ(waits::seen().size(), 2U);
    EXPECT_EQ(waits::seen()[0].limit, 0);
    EXPECT_EQ(waits::seen()[1].limit, 500000);
}

// Only the one that a wait is computed from is cut, and complained of.
TYPED_TEST_P(LoopSuite, TakesAnInvalidReadingBehindTheWaitAsItIs) {
    const waits::VirtualTime time(50, 0);
    Action due = this->note("due");
    this->add_timeout(0, 999999, due);
    waits::before_next([] {
        waits::VirtualTime::advance(-999999);
        waits::next_reading(49, 1999999000);
        waits::before_next([] { waits::next_reading(50, 1000000000); });
    });
    EXPECT_EQ(this->output_of_run(), "");
    EXPECT_THAT(this->events, testing::ElementsAre("due"));
    ASSERT_EQ(waits::seen().size(), 2U);
    EXPECT_EQ(waits::seen()[1].limit, 999999);
}

TYPED_TEST_P(LoopSuite, TakesTheLargestValidReadingAsItIs) {
    const waits::VirtualTime time(50, 0);
    Action due = this->note("due");
    this->add_timeout(7, 0, due);
    waits::next_reading(56, 999999999);
    EXPECT_EQ(this->output_of_run(), "");
    EXPECT_EQ(waits::seen().at(0).limit, 1);
}

TYPED_TEST_P(LoopSuite, ReadsTheClockBeforeAndAfterTheWaitOfAPass) {
    const SocketPair pair;
    const waits::VirtualTime time(50, 0);
    Action nothing = this->note("due");
    Action stop = this->note_and_stop("readable");

    this->add_timeout(0, 0, nothing);
    waits::reset();
    this->loop.run();
    EXPECT_EQ(waits::seen().size(), 1U) << "due at once";
    EXPECT_EQ(waits::clock_readings(), 2) << "due at once";

    this->add_timeout(0, 500, nothing);
    waits::reset();
    this->loop.run();
    EXPECT_EQ(waits::seen().size(), 1U) << "due after the wait";
    EXPECT_EQ(waits::clock_readings(), 2) << "due after the wait";

    pair.send();
    this->add_reader(pair.one(), stop);
    this->add_timeout(5, 0, nothing);
    waits::reset();
    this->loop.run();
    EXPECT_EQ(waits::seen().size(), 1U) << "readable before a timeout is due";
    EXPECT_EQ(waits::clock_readings(), 2) << "readable before a timeout is due";
    EXPECT_THAT(this->events, testing::ElementsAre("due", "due", "readable"));
}

TYPED_TEST_P(LoopSuite, ReadsNoClockWithoutATimeout) {
    const SocketPair pair;
    pair.send();
    Action stop = this->note_and_stop("readable");
    this->add_reader(pair.one(), stop);
    this->loop.run();
    EXPECT_EQ(waits::seen().size(), 1U);
    EXPECT_EQ(waits::clock_readings(), 0);
}

// Whether a timeout is due is the clock's word alone.
TYPED_TEST_P(LoopSuite, RunsNothingThatIsNotDueWhereAWaitEndsTooSoon) {
    const waits::VirtualTime time(50, 0);
    Action due = this->note("due");
    this->add_timeout(0, 500, due);
    waits::before_next([&] {
        waits::VirtualTime::advance(-1);
        EXPECT_TRUE(this->events.empty());
        waits::before_next([&] { EXPECT_TRUE(this->events.empty()); });
    });
    this->loop.run();
    EXPECT_THAT(this->events, testing::ElementsAre("due"));
    ASSERT_EQ(waits::seen().size(), 2U);
    EXPECT_EQ(waits::seen()[0].limit, 500);
    EXPECT_EQ(waits::seen()[1].limit, 1);
}

// A timeout that becomes due while the loop waits for a socket runs before that socket's handler.
TYPED_TEST_P(LoopSuite, LooksAtTheClockAgainWhenASocketEndsTheWait) {
    const SocketPair pair;
    const waits::VirtualTime time(50, 0);
    Action due = this->note("due");
    Action stop = this->note_and_stop("readable");
    this->add_reader(pair.one(), stop);
    this->add_timeout(0, 500, due);
    waits::before_next([&] {
        pair.send();
        waits::VirtualTime::advance(500);
    });
    this->loop.run();
    EXPECT_THAT(this->events, testing::ElementsAre("due", "readable"));
}

TYPED_TEST_P(LoopSuite, AllocatesOnceForEachRegistration) {
    TQ_NEEDS_FAILING_ALLOCATOR();
    const SocketPair pair;
    faults::reset();
    this->loop.register_read_sock(pair.one(), never_readable, nullptr, nullptr);
    EXPECT_EQ(faults::count("realloc"), 1U);
    this->loop.register_timeout(0, 0, never_due, nullptr, nullptr);
    EXPECT_EQ(faults::count("malloc"), 1U);
    EXPECT_EQ(this->loop.cancel_timeout(never_due, nullptr, nullptr), 1);
    EXPECT_EQ(faults::count("malloc"), 1U);
    EXPECT_EQ(faults::count("realloc"), 1U);
}

// With real time: the handlers' own clock says that none ran before it was due.
TYPED_TEST_P(LoopSuite, RunsNoTimeoutBeforeItIsDue) {
    const auto now = [] {
        timespec time = {};
        clock_gettime(CLOCK_MONOTONIC, &time);
        return time.tv_sec * int64_t{1000000} + time.tv_nsec / 1000;
    };
    std::vector<Action> actions(200);
    unsigned delay = 0;
    for (Action& action : actions) {
        const int64_t due = now() + delay;
        action = [&events = this->events, now, due] {
            events.emplace_back(now() >= due ? "in time" : "too early");
        };
        this->add_timeout(0, delay, action);
        delay += 37;
    }
    this->loop.run();
    EXPECT_EQ(this->events.size(), 200U);
    EXPECT_THAT(this->events, testing::Each("in time"));
}

REGISTER_TYPED_TEST_SUITE_P(
    LoopSuite, KeepsTheUserData, ReturnsAtOnceWithNothingRegistered,
    ReturnsWhenTheLastTimeoutHasRun, GivesEachHandlerItsArguments, DoesNotWaitOnceItIsTerminated,
    RunsATimeoutBeforeTheSocketsAndOneAPass, WaitsUntilTheFirstTimeoutIsDue,
    CarriesAnyNumberOfMicroseconds, NeverWrapsADueTimeThatIsTooFarAway,
    KeepsADueTimeUpToTheLastSecond, CutsADueTimeThatItsMicrosecondsCarryTooFarAway,
    OrdersTimeoutsByDueTimeAndThenByRegistration, CancelsAndAddsInAnyOrder,
    AddsBehindTimeoutsThatAreGone, KeepsTimersThatAddThemselvesAgainInOrder,
    CancelsByHandlerAndDataWithWildcards, LetsATimeoutAddItselfAgainAndCancelOthers,
    CallsEveryEntryOfASocketInOrder, UnregistersTheFirstEntryAndKeepsTheOrder,
    LetsAHandlerUnregisterItsOwnAndOtherSockets, LetsAHandlerRegisterMoreSocketsThanTheTableHeld,
    CallsWhatAHandlerRegistersForAReadableSocketInTheSamePass, TellsThatAPeerHasGone,
    RefusesWhatSelectCannotHold, RefusesNullHandlers, WatchesUpToTheHighestSocketEverRegistered,
    WatchesNoFewerWhenItBeginsAnewWithALowerSocket, AsksForTheRegisteredSocketsAlone,
    WatchesOneDescriptorMoreForTheCmmAgent, GoesOnAfterAnInterruptedWait,
    StopsWithAMessageWhenASocketWasClosed, IsUnchangedWhenMemoryRunsOut,
    SaysThatTheClockIsInvalidAndGoesOn, RunsNothingEarlyForAnInvalidClock,
    TakesAnInvalidReadingBehindTheWaitAsItIs, TakesTheLargestValidReadingAsItIs,
    ReadsTheClockBeforeAndAfterTheWaitOfAPass, ReadsNoClockWithoutATimeout,
    RunsNothingThatIsNotDueWhereAWaitEndsTooSoon, LooksAtTheClockAgainWhenASocketEndsTheWait,
    AllocatesOnceForEachRegistration, RunsNoTimeoutBeforeItIsDue);

}  // namespace tq_test
