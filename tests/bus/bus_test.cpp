// bus_test.cpp - the connection to the bus and the requests over it, with a broker and services
// that this program starts on the device.
#include "tq/bus.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <libubus.h>
#include <malloc.h>
#include <sys/wait.h>
#include <unistd.h>

#include <climits>
#include <csignal>
#include <cstring>
#include <ctime>
#include <optional>
#include <string>
#include <thread>
#include <vector>

#include "support/bus.h"
#include "support/bus_calls.h"
#include "support/device.h"
#include "support/faults.h"
#include "support/log_capture.h"

namespace {

using testing::AllOf;
using testing::Contains;
using testing::ElementsAre;
using testing::Field;
using testing::IsEmpty;
using testing::Not;
using testing::SizeIs;
using tq_test::Broker;
using tq_test::bus_connections;
using tq_test::BusCall;
using tq_test::BusCalls;
using tq_test::BusService;
using tq_test::DeviceTest;
using tq_test::Line;
using tq_test::LogCapture;
using tq_test::faults::each_failure;
using tq_test::faults::Fail;

constexpr int kLimit = 3000;

// Without those of the loop, which libubus may begin with the first attempt to connect, and of the
// log.
std::vector<int> open_descriptors() {
    uloop_done();
    closelog();
    return tq_test::open_descriptors();
}

auto Failed(const std::string& text) {
    return ElementsAre(Line(LOG_ERR, "notify_ubus_server", text));
}

auto NotConnected() {
    return ElementsAre(Line(LOG_ERR, "init_ubus_client", "Failed to connect to ubus\n\n"));
}

int request(const char* object, const char* method, const notify_param* params = nullptr) {
    return notify_ubus_server(object, method, params, nullptr, nullptr, kLimit);
}

// A test leaves no connection and no descriptor behind.
class BusTest : public DeviceTest {
  protected:
    void TearDown() override {
        destroy_ubus_client();
        broker_.reset();
        EXPECT_EQ(open_descriptors(), descriptors_);
    }

    LogCapture log_;

  private:
    std::vector<int> descriptors_ = open_descriptors();

  protected:
    std::optional<Broker> broker_{std::in_place};
};

class Connection : public BusTest {};

// With a connection, and nothing logged about it.
class Request : public BusTest {
  protected:
    void SetUp() override {
        ASSERT_EQ(init_ubus_client(), 0);
        ASSERT_THAT(log_.take(), IsEmpty());
    }
};

// init_ubus_client and destroy_ubus_client

TEST_F(Connection, IsMadeOnce) {
    EXPECT_EQ(bus_connections(), 0);
    EXPECT_EQ(init_ubus_client(), 0);
    EXPECT_EQ(bus_connections(), 1);
    EXPECT_EQ(init_ubus_client(), 0);
    EXPECT_EQ(bus_connections(), 1);
    EXPECT_THAT(log_.take(), IsEmpty());

    BusService service({"object"});
    EXPECT_EQ(request("object", "get"), 0);
    EXPECT_THAT(service.take(), ElementsAre("object get"));
}

TEST_F(Connection, IsRegisteredWithTheLoopForBlockingReads) {
    const BusCalls watch;
    ASSERT_EQ(init_ubus_client(), 0);
    const std::vector<BusCall> made = BusCalls::take();
    ASSERT_THAT(made, Contains(Field(&BusCall::name, "ubus_connect")));
    EXPECT_EQ(made.front().name, "uloop_init");
    EXPECT_EQ(made.back().name, "uloop_fd_add");
    EXPECT_EQ(made.back().argument, 9);
}

TEST_F(Connection, IsTornDownBeforeItIsMadeAnew) {
    ASSERT_EQ(init_ubus_client(), 0);
    const BusCalls watch;
    ASSERT_EQ(init_ubus_client(), 0);
    EXPECT_EQ(BusCalls::take_names().front(), "uloop_done");
}

TEST_F(Connection, EndsWithAllThatItHeld) {
    const std::vector<int> before = open_descriptors();
    ASSERT_EQ(init_ubus_client(), 0);
    const BusCalls watch;
    destroy_ubus_client();
    destroy_ubus_client();
    EXPECT_THAT(BusCalls::take_names(), ElementsAre("uloop_done"));
    EXPECT_EQ(bus_connections(), 0);
    EXPECT_EQ(open_descriptors(), before);
    EXPECT_EQ(request("object", "get"), -1);
    EXPECT_THAT(log_.take(), Failed("ubus client should be initialized\n"));
}

TEST_F(Connection, CanBeMadeAndEndedAgainAndAgain) {
    BusService service({"object"});
    for (int i = 0; i < 20; i++) {
        ASSERT_EQ(init_ubus_client(), 0);
        ASSERT_EQ(request("object", "get"), 0);
        destroy_ubus_client();
    }
    EXPECT_THAT(service.take(), SizeIs(20));
}

TEST_F(Connection, FailsWhereThereIsNoBus) {
    broker_.reset();
    const std::vector<int> before = open_descriptors();
    const BusCalls watch;
    EXPECT_EQ(init_ubus_client(), -1);
    EXPECT_THAT(log_.take(), NotConnected());
    // Nothing is torn down, now or later: it may be the program's loop.
    destroy_ubus_client();
    EXPECT_THAT(BusCalls::take_names(),
                AllOf(Contains("ubus_connect"), Not(Contains("uloop_done"))));
    EXPECT_EQ(open_descriptors(), before);
    EXPECT_EQ(request("object", "get"), -1);
    EXPECT_THAT(log_.take(), Failed("ubus client should be initialized\n"));
}

TEST_F(Connection, IsGoneAfterAnAttemptThatFailed) {
    ASSERT_EQ(init_ubus_client(), 0);
    broker_.reset();
    EXPECT_EQ(init_ubus_client(), -1);
    EXPECT_THAT(log_.take(), NotConnected());
    broker_.emplace();
    EXPECT_EQ(request("object", "get"), -1);
    EXPECT_THAT(log_.take(), Failed("ubus client should be initialized\n"));
    EXPECT_EQ(init_ubus_client(), 0);
}

TEST_F(Connection, FailsWithoutASocket) {
    for (const char* call : {"socket", "connect"}) {
        SCOPED_TRACE(call);
        const std::vector<int> before = open_descriptors();
        const Fail fail(call, 1, EMFILE);
        EXPECT_EQ(init_ubus_client(), -1);
        EXPECT_TRUE(fail.fired());
        EXPECT_EQ(open_descriptors(), before);
        EXPECT_THAT(log_.take(), NotConnected());
    }
}

TEST_F(Connection, FailsWithoutMemory) {
    TQ_NEEDS_FAILING_ALLOCATOR();
    const Fail fail("calloc", 1, ENOMEM);
    EXPECT_EQ(init_ubus_client(), -1);
    EXPECT_TRUE(fail.fired());
    EXPECT_THAT(log_.take(), NotConnected());
}

// A program with a uloop of its own.

uloop_timeout ending_timeout() {
    uloop_timeout timeout{};
    timeout.cb = [](uloop_timeout*) { uloop_end(); };
    return timeout;
}

TEST_F(Connection, LeavesTheLoopToTheProgramWhereThereIsNoBus) {
    broker_.reset();
    ASSERT_EQ(uloop_init(), 0);
    uloop_timeout due = ending_timeout();
    uloop_timeout_set(&due, 10);
    EXPECT_EQ(init_ubus_client(), -1);
    EXPECT_THAT(log_.take(), NotConnected());
    uloop_run();
    EXPECT_FALSE(due.pending);
    uloop_timeout_cancel(&due);
}

// One libubus ends the loop, another does not.
TEST_F(Connection, KeepsNoLoopBusyAfterTheBrokersEnd) {
    ASSERT_EQ(init_ubus_client(), 0);
    uloop_timeout end = ending_timeout();
    uloop_timeout_set(&end, 500);
    broker_->kill();
    const clock_t before = clock();
    uloop_run();
    EXPECT_LT(clock() - before, CLOCKS_PER_SEC / 5);
    uloop_timeout_cancel(&end);
    EXPECT_EQ(request("object", "get"), -1);
    log_.take();
}

TEST_F(Connection, LeavesALoopRunningThatHasOtherThingsToDo) {
    BusService service({"object"});
    ASSERT_EQ(init_ubus_client(), 0);
    uloop_timeout due = ending_timeout();
    uloop_timeout_set(&due, 10);
    EXPECT_EQ(request("object", "get"), 0);
    uloop_run();
    EXPECT_FALSE(due.pending);
    EXPECT_EQ(request("object", "get"), 0);
}

TEST_F(Connection, TakesTheLoopsOtherTimeoutsAlongAtItsEnd) {
    ASSERT_EQ(init_ubus_client(), 0);
    uloop_timeout other = ending_timeout();
    uloop_timeout_set(&other, 20 * 1000);
    ASSERT_EQ(init_ubus_client(), 0);
    EXPECT_FALSE(other.pending);
}

TEST_F(Connection, IsMadeAnewByAChildProcess) {
    BusService service({"object=int:level:3"});
    ASSERT_EQ(init_ubus_client(), 0);
    const pid_t child = fork();
    if (child == 0) _exit(init_ubus_client() == 0 && request("object", "set") == 0 ? 0 : 1);
    int status = -1;
    ASSERT_EQ(waitpid(child, &status, 0), child);
    EXPECT_EQ(status, 0);
    EXPECT_EQ(request("object", "get"), 0);
    EXPECT_THAT(service.take(), ElementsAre("object set", "object get"));
}

// notify_ubus_server: arguments

TEST_F(Request, RejectsAMissingObjectOrMethod) {
    EXPECT_EQ(request(nullptr, "get"), -1);
    EXPECT_THAT(log_.take(), Failed("invalid parameters\n\n"));
    EXPECT_EQ(request("object", nullptr), -1);
    EXPECT_THAT(log_.take(), Failed("invalid parameters\n\n"));
}

TEST_F(Connection, RejectsArgumentsBeforeItIsMissed) {
    EXPECT_EQ(request(nullptr, nullptr), -1);
    EXPECT_THAT(log_.take(), Failed("invalid parameters\n\n"));
}

TEST_F(Request, NamesAnObjectThatIsNotThere) {
    EXPECT_EQ(request("no.such%s%n", "get"), -1);
    EXPECT_THAT(log_.take(), Failed("Failed to look up no.such%s%n object\n\n"));
    EXPECT_EQ(request("", "get"), -1);
    EXPECT_THAT(log_.take(), Failed("Failed to look up  object\n\n"));
}

// notify_ubus_server: the message

TEST_F(Request, SendsAnEmptyMessageWithoutParameters) {
    BusService service({"object"});
    EXPECT_EQ(request("object", "reload"), 0);
    const notify_param none[] = {{}};
    EXPECT_EQ(request("object", "get", none), 0);
    // What stands in a record without a name does not matter.
    const notify_param nameless[] = {{nullptr, 7, 1, "text"}, {"key", 0, 1, nullptr}, {}};
    EXPECT_EQ(request("object", "set", nameless), 0);
    EXPECT_THAT(service.take(), ElementsAre("object reload", "object get", "object set"));
    EXPECT_THAT(log_.take(), IsEmpty());
}

TEST_F(Request, SendsItsParametersInTheirOrder) {
    BusService service({"some.object"});
    const notify_param params[] = {
        {"z", NOTIFY_PARAM_INT, 1, nullptr}, {"a", NOTIFY_PARAM_STRING, 0, "text"},
        {"m", NOTIFY_PARAM_INT, 2, "x"},     {"", NOTIFY_PARAM_STRING, 3, "unnamed"},
        {"z", NOTIFY_PARAM_INT, 3, nullptr}, {},
    };
    EXPECT_EQ(request("some.object", "set", params), 0);
    EXPECT_THAT(service.take(), ElementsAre("some.object set z=1 a=\"text\" m=2 =\"unnamed\" z=3"));
}

TEST_F(Request, SendsEveryValueOfAnInteger) {
    BusService service({"object"});
    const notify_param params[] = {{"a", 0, 0, nullptr},
                                   {"b", 0, 0x12345678, nullptr},
                                   {"c", 0, 0x80000000, nullptr},
                                   {"d", 0, 0xffffffff, nullptr},
                                   {}};
    EXPECT_EQ(request("object", "set", params), 0);
    EXPECT_THAT(service.take(),
                ElementsAre("object set a=0 b=305419896 c=2147483648 d=4294967295"));
}

TEST_F(Request, SendsEveryByteOfAString) {
    BusService service({"object"});
    std::string text;
    for (int byte = 1; byte < 256; byte++)
        text += static_cast<char>(byte);
    const notify_param params[] = {{"empty", 1, 0, ""}, {"all", 1, 0, text.c_str()}, {}};
    EXPECT_EQ(request("object", "set", params), 0);
    const std::vector<std::string> calls = service.take();
    ASSERT_THAT(calls, SizeIs(1));
    EXPECT_EQ(calls[0].substr(0, 37), "object set empty=\"\" all=\"\\x01\\x02\\x03");
    EXPECT_EQ(calls[0].size(),
              std::string("object set empty=\"\" all=\"\"").size() + 93 + size_t{162} * 4);
}

TEST_F(Request, SendsALongString) {
    BusService service({"object"});
    const std::string text(100000, 'x');
    const notify_param params[] = {{"long", 1, 0, text.c_str()}, {}};
    EXPECT_EQ(request("object", "set", params), 0);
    EXPECT_THAT(service.take(), ElementsAre("object set long=\"" + text + "\""));
}

TEST_F(Request, OutlivesAMessageThatIsTooLong) {
    BusService service({"object"});
    const std::string two_mib(2 << 20, 'x');
    const notify_param beyond_the_bus[] = {{"long", 1, 0, two_mib.c_str()}, {}};
    EXPECT_GT(request("object", "set", beyond_the_bus), 0);
    EXPECT_THAT(log_.take(), IsEmpty());
    EXPECT_EQ(request("object", "get"), 0);
    const std::string seventeen_mib(17 << 20, 'x');
    const notify_param beyond_a_blob[] = {{"long", 1, 0, seventeen_mib.c_str()}, {}};
    EXPECT_EQ(request("object", "set", beyond_a_blob), -1);
    EXPECT_THAT(log_.take(), Failed("cannot build a message to object\n"));
    EXPECT_THAT(service.take(), ElementsAre("object get"));
}

TEST_F(Request, RefusesAStringThatIsNone) {
    BusService service({"object"});
    const notify_param params[] = {{"first", 0, 1, nullptr}, {"second", 1, 2, nullptr}, {}};
    EXPECT_EQ(request("object", "set", params), -1);
    EXPECT_THAT(log_.take(), Failed("invalid parameter name[second]\n\n"));
    EXPECT_THAT(service.take(), IsEmpty());
}

TEST_F(Request, RefusesAParameterOfAnotherType) {
    BusService service({"object"});
    for (const int type : {2, -1, INT_MAX, INT_MIN}) {
        const notify_param params[] = {{"first", 0, 1, nullptr}, {"%s", type, 2, "text"}, {}};
        EXPECT_EQ(request("object", "set", params), -1);
        EXPECT_THAT(log_.take(),
                    Failed("invalid parameter name[%s] type[" + std::to_string(type) + "]\n\n"));
    }
    EXPECT_THAT(service.take(), IsEmpty());
    // The lock is free again.
    EXPECT_EQ(request("object", "get"), 0);
}

TEST_F(Request, SendsNothingWhenMemoryRunsOut) {
    TQ_NEEDS_FAILING_ALLOCATOR();
    BusService service({"object"});
    const std::string text(1000, 'x');
    const notify_param params[] = {{"a", 1, 0, text.c_str()}, {"b", 0, 1, nullptr}, {}};
    // The buffers of libubus have their size from here on.
    ASSERT_EQ(request("object", "set", params), 0);
    service.take();
    bool refused = false;
    each_failure("realloc", ENOMEM, [&] {
        const int result = request("object", "set", params);
        EXPECT_THAT(service.take(), SizeIs(result == 0 ? 1 : 0));
        const auto refusal =
            Line(LOG_ERR, "notify_ubus_server", "cannot build a message to object\n");
        if (!testing::Matches(Contains(refusal))(log_.take())) return;
        EXPECT_EQ(result, -1);
        refused = true;
    });
    EXPECT_TRUE(refused);
}

// notify_ubus_server: the answer

TEST_F(Request, GivesTheStatusOfTheMethod) {
    BusService service({"refuses=status:6", "fails=status:200"});
    EXPECT_EQ(request("refuses", "set"), UBUS_STATUS_PERMISSION_DENIED);
    EXPECT_EQ(request("fails", "set"), 200);
    EXPECT_EQ(request("fails", "no_such_method"), UBUS_STATUS_METHOD_NOT_FOUND);
    EXPECT_THAT(service.take(), ElementsAre("refuses set", "fails set"));
    EXPECT_THAT(log_.take(), IsEmpty());
}

struct Seen {
    int calls = 0;
    int type = -1;
    uint32_t value = 0;
    void* priv = nullptr;
};
Seen seen;

void see_reply(ubus_request* req, int type, blob_attr* msg) {
    seen.calls++;
    seen.type = type;
    seen.priv = req->priv;
    const blobmsg_policy policy{"level", BLOBMSG_TYPE_INT32};
    blob_attr* value = nullptr;
    blobmsg_parse(&policy, 1, &value, blob_data(msg), static_cast<unsigned>(blob_len(msg)));
    seen.value = value ? blobmsg_get_u32(value) : 0;
}

TEST_F(Request, HandsTheReplyToItsHandler) {
    BusService service({"object=int:level:17", "twice=int:level:5,again", "silent"});
    int priv = 0;
    seen = {};
    EXPECT_EQ(notify_ubus_server("object", "get", nullptr, see_reply, &priv, kLimit), 0);
    EXPECT_EQ(seen.calls, 1);
    EXPECT_EQ(seen.type, UBUS_MSG_DATA);
    EXPECT_EQ(seen.value, 17U);
    EXPECT_EQ(seen.priv, &priv);
    EXPECT_EQ(notify_ubus_server("object", "get", nullptr, see_reply, nullptr, kLimit), 0);
    EXPECT_EQ(seen.priv, nullptr);
    seen = {};
    EXPECT_EQ(notify_ubus_server("twice", "get", nullptr, see_reply, &priv, kLimit), 0);
    EXPECT_EQ(seen.calls, 2);
    seen = {};
    EXPECT_EQ(notify_ubus_server("silent", "get", nullptr, see_reply, &priv, kLimit), 0);
    EXPECT_EQ(seen.calls, 0);
}

TEST_F(Request, DropsTheReplyWithoutAHandler) {
    BusService service({"object=int:level:17"});
    EXPECT_EQ(request("object", "get"), 0);
    EXPECT_THAT(service.take(), ElementsAre("object get"));
}

TEST_F(Request, WaitsNoLongerThanItsLimit) {
    BusService service({"object=silent", "other"});
    EXPECT_EQ(notify_ubus_server("object", "get", nullptr, nullptr, nullptr, 100),
              UBUS_STATUS_TIMEOUT);
    EXPECT_THAT(service.take(), ElementsAre("object get"));
    EXPECT_EQ(request("other", "get"), 0);
    EXPECT_THAT(log_.take(), IsEmpty());
}

TEST_F(Request, PassesItsLimitOn) {
    BusService service({"object"});
    const BusCalls watch;
    EXPECT_EQ(notify_ubus_server("object", "get", nullptr, nullptr, nullptr, 1234), 0);
    EXPECT_THAT(BusCalls::take(), Contains(AllOf(Field(&BusCall::name, "ubus_invoke"),
                                                 Field(&BusCall::argument, 1234))));
}

TEST_F(Request, IsOverAtOnceWithANegativeLimit) {
    BusService service({"object=int:level:17"});
    for (const int limit : {-1, INT_MIN}) {
        seen = {};
        EXPECT_EQ(notify_ubus_server("object", "get", nullptr, see_reply, nullptr, limit),
                  UBUS_STATUS_TIMEOUT);
        EXPECT_EQ(request("object", "get"), 0);
        EXPECT_EQ(seen.calls, 0);
    }
    EXPECT_THAT(log_.take(), IsEmpty());
}

TEST_F(Request, WaitsForEverWithoutALimit) {
    BusService service({"object"});
    EXPECT_EQ(notify_ubus_server("object", "get", nullptr, nullptr, nullptr, 0), 0);
}

// Failures in the middle.

// Until the bus no longer knows the object.
void wait_until_gone(const char* object) {
    ubus_context* context = ubus_connect(nullptr);
    uint32_t id = 0;
    while (ubus_lookup_id(context, object, &id) == 0) {
    }
    ubus_free(context);
}

TEST_F(Request, FailsWhenTheObjectVanishesAfterTheLookUp) {
    BusService gone({"object"});
    BusService other({"other"});
    const BusCalls watch;
    BusCalls::before_invoke([&gone] {
        gone.kill();
        wait_until_gone("object");
    });
    EXPECT_EQ(request("object", "set"), UBUS_STATUS_NOT_FOUND);
    EXPECT_THAT(log_.take(), IsEmpty());
    EXPECT_EQ(request("object", "set"), -1);
    EXPECT_THAT(log_.take(), Failed("Failed to look up object object\n\n"));
    EXPECT_EQ(request("other", "set"), 0);
}

TEST_F(Request, FailsWhenTheServiceDiesInTheMiddle) {
    BusService service({"object=die"});
    BusService other({"other"});
    EXPECT_GT(notify_ubus_server("object", "set", nullptr, nullptr, nullptr, 100), 0);
    EXPECT_THAT(service.take(), ElementsAre("object set"));
    EXPECT_EQ(request("other", "set"), 0);
    EXPECT_THAT(log_.take(), IsEmpty());
}

TEST_F(Request, FailsWhenTheBrokerDiesAfterTheLookUp) {
    BusService service({"object"});
    const BusCalls watch;
    BusCalls::before_invoke([this] { broker_->kill(); });
    EXPECT_GT(request("object", "set"), 0);
    EXPECT_THAT(log_.take(), IsEmpty());
    EXPECT_THAT(service.take(), IsEmpty());
}

TEST_F(Request, FailsWhenTheBrokerDiesWhileTheMethodRuns) {
    BusService service({"object=silent"});
    std::thread killer([&] {
        service.wait_for_call();
        broker_->kill();
    });
    EXPECT_GT(notify_ubus_server("object", "set", nullptr, nullptr, nullptr, 60 * 1000), 0);
    killer.join();
    EXPECT_THAT(log_.take(), IsEmpty());
}

TEST_F(Request, FailsAfterTheBrokersEndUntilItIsConnectedAnew) {
    broker_->kill();
    for (int i = 0; i < 3; i++) {
        EXPECT_EQ(request("object", "set"), -1);
        EXPECT_THAT(log_.take(), Failed("Failed to look up object object\n\n"));
    }
    broker_.emplace();
    BusService service({"object=int:level:3"});
    EXPECT_EQ(request("object", "set"), -1);
    EXPECT_THAT(log_.take(), Failed("Failed to look up object object\n\n"));
    EXPECT_EQ(init_ubus_client(), 0);
    uint32_t level = 0;
    EXPECT_EQ(notify_ubus_server("object", "set", nullptr, get_log_data, &level, kLimit), 0);
    EXPECT_EQ(level, 3U);
    EXPECT_THAT(log_.take(), IsEmpty());
}

// Memory and threads.

TEST_F(Request, KeepsNoMemory) {
#ifdef TQ_SANITIZED
    GTEST_SKIP() << "the sanitizer's allocator does not tell what is in use";
#endif
    BusService service({"object=int:level:3"});
    uint32_t level = 0;
    const notify_param params[] = {{"key", 1, 0, "text"}, {}};
    const auto requests = [&](int count) {
        for (int i = 0; i < count; i++)
            notify_ubus_server("object", "set", params, get_log_data, &level, kLimit);
        return mallinfo2().uordblks;
    };
    const size_t before = requests(100);
    EXPECT_EQ(requests(1000), before);
}

TEST_F(Request, RunsOnSeveralThreadsOneAtATime) {
    constexpr int kThreads = 8;
    constexpr int kRequests = 50;
    std::vector<std::string> objects;
    objects.reserve(kThreads);
    for (int i = 0; i < kThreads; i++)
        objects.push_back("object" + std::to_string(i) + "=int:level:" + std::to_string(i + 1));
    BusService service(objects);
    const BusCalls watch;
    std::vector<std::thread> threads;
    std::vector<int> wrong(kThreads);
    for (unsigned i = 0; i < kThreads; i++) {
        threads.emplace_back([&wrong, i] {
            const std::string object = "object" + std::to_string(i);
            const notify_param params[] = {{"thread", 0, i, nullptr}, {}};
            for (int n = 0; n < kRequests; n++) {
                uint32_t level = 0;
                if (notify_ubus_server(object.c_str(), "set", params, get_log_data, &level,
                                       kLimit) != 0 ||
                    level != i + 1) {
                    wrong[i]++;
                }
            }
        });
    }
    for (std::thread& thread : threads)
        thread.join();
    EXPECT_EQ(wrong, std::vector<int>(kThreads, 0));
    EXPECT_THAT(service.take(), SizeIs(kThreads * kRequests));

    // From the look-up to the answer no other thread comes between.
    const std::vector<BusCall> seen_calls = BusCalls::take();
    ASSERT_THAT(seen_calls, SizeIs(3 * kThreads * kRequests));
    for (size_t i = 0; i < seen_calls.size(); i += 3) {
        ASSERT_EQ(seen_calls[i].name, "ubus_lookup_id");
        ASSERT_EQ(seen_calls[i + 1].name, "ubus_invoke");
        ASSERT_EQ(seen_calls[i + 2].name, "invoked");
        ASSERT_EQ(seen_calls[i].thread, seen_calls[i + 1].thread);
        ASSERT_EQ(seen_calls[i].thread, seen_calls[i + 2].thread);
    }
}

// get_log_data

class Message {
  public:
    Message() { blob_buf_init(&buffer_, 0); }
    ~Message() { blob_buf_free(&buffer_); }
    Message(const Message&) = delete;
    Message& operator=(const Message&) = delete;

    Message& number(const char* key, uint32_t value) {
        blobmsg_add_u32(&buffer_, key, value);
        return *this;
    }
    Message& text(const char* key, const char* value) {
        blobmsg_add_string(&buffer_, key, value);
        return *this;
    }
    Message& raw(const std::string& bytes) {
        blob_put_raw(&buffer_, bytes.data(), static_cast<unsigned>(bytes.size()));
        return *this;
    }
    [[nodiscard]] blob_attr* get() const { return buffer_.head; }

  private:
    blob_buf buffer_{};
};

class LogData : public BusTest {
  protected:
    static constexpr uint32_t kUntouched = 0x5a5a5a5a;

    // True where the request is left with its private pointer.
    bool handle(blob_attr* msg) {
        ubus_request req{};
        req.priv = &number_;
        number_ = kUntouched;
        get_log_data(&req, UBUS_MSG_DATA, msg);
        return req.priv == &number_;
    }

    bool handle_text(blob_attr* msg) {
        ubus_request req{};
        req.priv = text_;
        memset(text_, 'z', sizeof(text_));
        get_log_data(&req, UBUS_MSG_DATA, msg);
        return req.priv == text_;
    }

    uint32_t number_ = 0;
    alignas(uint32_t) char text_[64] = {};
};

TEST_F(LogData, StoresTheFirstNumberThatIsThere) {
    Message all;
    all.text("ip", "192.0.2.1").number("size", 3).number("status", 2).number("level", 0x01020304);
    EXPECT_TRUE(handle(all.get()));
    EXPECT_EQ(number_, 0x01020304U);
    Message no_level;
    no_level.text("ip", "192.0.2.1").number("size", 3).number("status", 2);
    EXPECT_TRUE(handle(no_level.get()));
    EXPECT_EQ(number_, 2U);
    Message size_alone;
    size_alone.text("ip", "192.0.2.1").number("size", 0);
    EXPECT_TRUE(handle(size_alone.get()));
    EXPECT_EQ(number_, 0U);
}

TEST_F(LogData, CopiesTheAddressWhereThereIsNoNumber) {
    Message message;
    message.text("ip", "192.0.2.1");
    EXPECT_TRUE(handle_text(message.get()));
    EXPECT_EQ(std::string(text_, 12), std::string("192.0.2.1\0zz", 12));
    Message empty;
    empty.text("ip", "");
    EXPECT_TRUE(handle_text(empty.get()));
    EXPECT_EQ(std::string(text_, 2), std::string("\0z", 2));
}

// A place for an address lies anywhere.
TEST_F(LogData, StoresANumberInPlaceOfAnAddress) {
    Message message;
    message.number("level", 0x01020304);
    ubus_request req{};
    req.priv = &text_[1];
    get_log_data(&req, UBUS_MSG_DATA, message.get());
    uint32_t stored = 0;
    memcpy(&stored, &text_[1], sizeof(stored));
    EXPECT_EQ(stored, 0x01020304U);
    EXPECT_EQ(text_[5], '\0');
}

TEST_F(LogData, StoresNothingOfAnError) {
    Message message;
    message.number("level", 1).number("errorcode", 1);
    EXPECT_FALSE(handle(message.get()));
    EXPECT_EQ(number_, kUntouched);
    Message address;
    address.number("errorcode", 0x01000000).text("ip", "192.0.2.1");
    EXPECT_FALSE(handle_text(address.get()));
    EXPECT_EQ(text_[0], 'z');
}

TEST_F(LogData, TakesAnErrorOfZeroForNone) {
    Message message;
    message.number("errorcode", 0).number("status", 9);
    EXPECT_TRUE(handle(message.get()));
    EXPECT_EQ(number_, 9U);
    Message alone;
    alone.number("errorcode", 0);
    EXPECT_FALSE(handle(alone.get()));
    EXPECT_EQ(number_, kUntouched);
}

TEST_F(LogData, StoresNothingWhereNothingIsThere) {
    Message empty;
    EXPECT_FALSE(handle(empty.get()));
    Message other;
    other.number("Level", 1).number("level ", 2).text("IP", "x");
    EXPECT_FALSE(handle(other.get()));
    EXPECT_FALSE(handle(nullptr));
    EXPECT_EQ(number_, kUntouched);
}

TEST_F(LogData, TakesAValueOfAnotherTypeForNone) {
    for (const char* key : {"level", "status", "size"}) {
        SCOPED_TRACE(key);
        Message message;
        message.text(key, "1");
        EXPECT_FALSE(handle(message.get()));
        EXPECT_EQ(number_, kUntouched);
    }
    Message address;
    address.number("ip", 1);
    EXPECT_FALSE(handle_text(address.get()));
    EXPECT_EQ(text_[0], 'z');
    Message error;
    error.text("errorcode", "1").number("level", 4);
    EXPECT_TRUE(handle(error.get()));
    EXPECT_EQ(number_, 4U);
}

TEST_F(LogData, DoesNothingWithoutAPlaceForTheValue) {
    Message message;
    message.number("level", 1);
    ubus_request req{};
    get_log_data(&req, UBUS_MSG_DATA, message.get());
    EXPECT_EQ(req.priv, nullptr);
    EXPECT_THAT(log_.take(), IsEmpty());
    get_log_data(nullptr, UBUS_MSG_DATA, message.get());
    EXPECT_THAT(log_.take(), ElementsAre(Line(LOG_ERR, "get_log_data", "invalid parameters\n\n")));
}

TEST_F(LogData, SurvivesBytesThatAreNoFields) {
    using namespace std::string_literals;
    const std::vector<std::string> hostile = {
        "\x85\x00\x00\x20\x00\x05level\0\0\0\0\0"s,      // longer than the message
        "\x85\x00\x00\x00\x00\x05level\0"s,              // shorter than its own head
        "\x85\x00\x00\x10\xff\xfflevel\0\0\0\0\0"s,      // a name beyond the end
        "\x85\x00\x00\x0e\x00\x05level\0\x01\x02\0\0"s,  // two bytes of an integer
        "\x83\x00\x00\x0d\x00\x02ip\0\0\0\0x\0\0\0"s,    // a text without an end
        "\x03\x00\x00\x08nope"s,                         // no name at all
        std::string(64, '\xff'),
        std::string(64, '\0'),
        "\x85"s,
    };
    for (const std::string& bytes : hostile) {
        SCOPED_TRACE(testing::PrintToString(bytes));
        Message message;
        message.raw(bytes);
        EXPECT_FALSE(handle(message.get()));
        EXPECT_EQ(number_, kUntouched);
        EXPECT_FALSE(handle_text(message.get()));
        EXPECT_EQ(text_[0], 'z');
    }
}

TEST_F(Request, BringsTheLogDataOfAService) {
    BusService service({"level=int:level:7", "address=str:ip:192.0.2.9",
                        "error=int:level:7,int:errorcode:2", "nothing"});
    uint32_t number = 0;
    EXPECT_EQ(notify_ubus_server("level", "get", nullptr, get_log_data, &number, kLimit), 0);
    EXPECT_EQ(number, 7U);
    number = 1;
    EXPECT_EQ(notify_ubus_server("error", "get", nullptr, get_log_data, &number, kLimit), 0);
    EXPECT_EQ(notify_ubus_server("nothing", "get", nullptr, get_log_data, &number, kLimit), 0);
    EXPECT_EQ(number, 1U);
    char address[32] = "";
    EXPECT_EQ(notify_ubus_server("address", "get", nullptr, get_log_data, address, kLimit), 0);
    EXPECT_STREQ(address, "192.0.2.9");
    EXPECT_THAT(log_.take(), IsEmpty());
}

}  // namespace
