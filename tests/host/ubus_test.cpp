// ubus_test.cpp - the bus: the client library and the command against the broker, and the broker
// against everything that a peer can do to it.
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <libubus.h>
#include <poll.h>
#include <sys/socket.h>
#include <sys/un.h>
#include <sys/wait.h>
#include <unistd.h>

#include <chrono>
#include <csignal>
#include <cstring>
#include <fstream>
#include <functional>
#include <memory>
#include <string>
#include <thread>
#include <vector>

#include "support/device.h"

namespace {

using testing::ElementsAre;
using testing::HasSubstr;
using testing::StartsWith;
using tq_test::as_nobody;
using tq_test::CommandResult;
using tq_test::DeviceTest;
using tq_test::run_command;

constexpr const char* kSocket = "/tmp/bus.sock";
constexpr int kTimeLimit = 20000;

using Context = std::unique_ptr<ubus_context, decltype(&ubus_free)>;

Context connect_bus() {
    return {ubus_connect(kSocket), ubus_free};
}

class Blob {
  public:
    Blob() { blob_buf_init(&buf_, 0); }
    ~Blob() { blob_buf_free(&buf_); }
    Blob(const Blob&) = delete;
    Blob& operator=(const Blob&) = delete;
    blob_buf* buf() { return &buf_; }
    blob_attr* head() const { return buf_.head; }

  private:
    blob_buf buf_ = {};
};

// A child process; it is ended with its scope.
class Child {
  public:
    explicit Child(const std::function<int()>& body) : pid_(fork()) {
        if (pid_ == 0) _exit(body());
    }
    ~Child() {
        if (pid_ > 0) stop(SIGKILL);
    }
    Child(const Child&) = delete;
    Child& operator=(const Child&) = delete;

    pid_t pid() const { return pid_; }
    void signal(int number) const { kill(pid_, number); }
    int wait() {
        int status = 0;
        waitpid(pid_, &status, 0);
        pid_ = -1;
        return WIFEXITED(status) ? WEXITSTATUS(status) : 128 + WTERMSIG(status);
    }
    int stop(int signal) {
        kill(pid_, signal);
        return wait();
    }

  private:
    pid_t pid_;
};

// ---- a service: a program of its own, with some objects ----

int echo(ubus_context* ctx, ubus_object* /*object*/, ubus_request_data* req, const char* /*method*/,
         blob_attr* message) {
    return ubus_send_reply(ctx, req, message);
}

int echo_twice(ubus_context* ctx, ubus_object* object, ubus_request_data* req, const char* method,
               blob_attr* message) {
    echo(ctx, object, req, method, message);
    return echo(ctx, object, req, method, message);
}

int refuse(ubus_context* /*ctx*/, ubus_object* /*object*/, ubus_request_data* /*req*/,
           const char* /*method*/, blob_attr* /*message*/) {
    return UBUS_STATUS_NOT_SUPPORTED;
}

int never_answer(ubus_context* ctx, ubus_object* /*object*/, ubus_request_data* req,
                 const char* /*method*/, blob_attr* /*message*/) {
    static ubus_request_data forgotten;
    ubus_defer_request(ctx, req, &forgotten);
    return 0;
}

struct Deferred {
    ubus_request_data req;
    uloop_timeout timeout;
    ubus_context* ctx;
};

int answer_later(ubus_context* ctx, ubus_object* /*object*/, ubus_request_data* req,
                 const char* /*method*/, blob_attr* /*message*/) {
    static Deferred deferred;
    deferred.ctx = ctx;
    ubus_defer_request(ctx, req, &deferred.req);
    deferred.timeout.cb = [](uloop_timeout* /*timeout*/) {
        Blob reply;
        blobmsg_add_string(reply.buf(), "when", "later");
        ubus_send_reply(deferred.ctx, &deferred.req, reply.head());
        ubus_complete_deferred_request(deferred.ctx, &deferred.req, 0);
    };
    uloop_timeout_set(&deferred.timeout, 20);
    return 0;
}

// Calls another object while it is being called itself.
int ask_other(ubus_context* ctx, ubus_object* /*object*/, ubus_request_data* req,
              const char* /*method*/, blob_attr* message) {
    uint32_t id = 0;
    const int found = ubus_lookup_id(ctx, "other", &id);
    if (found != UBUS_STATUS_OK) return found;
    const int status = ubus_invoke(ctx, id, "echo", message, nullptr, nullptr, kTimeLimit);
    // What came with the call is still there.
    return status == UBUS_STATUS_OK ? ubus_send_reply(ctx, req, message) : status;
}

bool is_asking = false;

// Calls another object for a while, and has still something to do then.
int ask_slowly(ubus_context* ctx, ubus_object* /*object*/, ubus_request_data* /*req*/,
               const char* /*method*/, blob_attr* /*message*/) {
    is_asking = true;
    uint32_t id = 0;
    int status = ubus_lookup_id(ctx, "other", &id);
    if (status == UBUS_STATUS_OK)
        status = ubus_invoke(ctx, id, "later", nullptr, nullptr, nullptr, kTimeLimit);
    std::this_thread::sleep_for(std::chrono::milliseconds(200));
    is_asking = false;
    return status;
}

// The how manieth call it is, and whether another one is being handled.
int count_calls(ubus_context* ctx, ubus_object* /*object*/, ubus_request_data* req,
                const char* /*method*/, blob_attr* /*message*/) {
    static int count = 0;
    const std::string text = (is_asking ? "inside " : "outside ") + std::to_string(++count);
    Blob reply;
    blobmsg_add_string(reply.buf(), "name", text.c_str());
    return ubus_send_reply(ctx, req, reply.head());
}

int answer_a_hundred_times(ubus_context* ctx, ubus_object* /*object*/, ubus_request_data* req,
                           const char* /*method*/, blob_attr* message) {
    for (int i = 0; i < 100; i++) {
        ubus_send_reply(ctx, req, message);
    }
    return 0;
}

int tell_caller(ubus_context* ctx, ubus_object* /*object*/, ubus_request_data* req,
                const char* /*method*/, blob_attr* /*message*/) {
    Blob reply;
    blobmsg_add_string(reply.buf(), "user", req->acl.user);
    blobmsg_add_string(reply.buf(), "group", req->acl.group);
    blobmsg_add_string(reply.buf(), "object", req->acl.object);
    return ubus_send_reply(ctx, req, reply.head());
}

int stop_reading(ubus_context* /*ctx*/, ubus_object* /*object*/, ubus_request_data* /*req*/,
                 const char* /*method*/, blob_attr* /*message*/) {
    pause();
    return 0;
}

int leave(ubus_context* /*ctx*/, ubus_object* /*object*/, ubus_request_data* /*req*/,
          const char* /*method*/, blob_attr* /*message*/) {
    _exit(0);
}

constexpr blobmsg_policy kArguments[] = {{"name", BLOBMSG_TYPE_STRING},
                                         {"val", BLOBMSG_TYPE_INT32}};
constexpr ubus_method kMethods[] = {
    UBUS_METHOD("echo", echo, kArguments),    UBUS_METHOD_NOARG("twice", echo_twice),
    UBUS_METHOD_NOARG("refuse", refuse),      UBUS_METHOD_NOARG("never", never_answer),
    UBUS_METHOD_NOARG("later", answer_later), UBUS_METHOD_NOARG("ask", ask_other),
    UBUS_METHOD_NOARG("caller", tell_caller), UBUS_METHOD_NOARG("hang", stop_reading),
    UBUS_METHOD_NOARG("leave", leave),        UBUS_METHOD_NOARG("ask_slowly", ask_slowly),
    UBUS_METHOD_NOARG("count", count_calls),  UBUS_METHOD_NOARG("hundred", answer_a_hundred_times),
};

ubus_object_type object_type = UBUS_OBJECT_TYPE("test", kMethods);

ubus_object make_object(const char* path) {
    ubus_object object = {};
    object.name = path;
    object.type = &object_type;
    object.methods = kMethods;
    object.n_methods = std::size(kMethods);
    return object;
}

// Has these objects on the bus and serves them; writes a byte to `ready` first.
int serve(const std::vector<std::string>& paths, int ready) {
    // Nothing of the test's own loop and objects.
    uloop_done();
    uloop_init();
    object_type.id = 0;
    ubus_context* ctx = ubus_connect(kSocket);
    if (!ctx) return 1;
    std::vector<ubus_object> objects;
    objects.reserve(paths.size());
    for (const std::string& path : paths) {
        objects.push_back(make_object(path.c_str()));
    }
    for (ubus_object& object : objects) {
        if (ubus_add_object(ctx, &object) != UBUS_STATUS_OK) return 2;
    }
    if (write(ready, "x", 1) != 1) return 3;
    ubus_add_uloop(ctx);
    uloop_run();
    ubus_free(ctx);
    uloop_done();
    return 0;
}

class Service {
  public:
    explicit Service(const std::vector<std::string>& paths = {"test"}) {
        int ends[2];
        EXPECT_EQ(pipe(ends), 0);
        child_ = std::make_unique<Child>([&] {
            close(ends[0]);
            return serve(paths, ends[1]);
        });
        close(ends[1]);
        char byte = 0;
        EXPECT_EQ(read(ends[0], &byte, 1), 1);
        close(ends[0]);
    }
    Child* operator->() { return child_.get(); }

  private:
    std::unique_ptr<Child> child_;
};

// ---- the bus of a test: a broker of its own ----

class Bus : public DeviceTest {
  protected:
    Bus()
        : broker_(std::make_unique<Child>([] {
              execlp("ubusd", "ubusd", "-s", kSocket, nullptr);
              return 127;
          })) {
        while (access(kSocket, F_OK) != 0) {
            std::this_thread::sleep_for(std::chrono::milliseconds(1));
        }
        EXPECT_EQ(uloop_init(), 0);
        // Between the socket's name and its first listener there is a moment.
        while (!(ctx_ = connect_bus())) {
            std::this_thread::sleep_for(std::chrono::milliseconds(1));
        }
    }
    ~Bus() override {
        ctx_.reset();
        uloop_done();
        if (!broker_) return;
        EXPECT_EQ(broker_->stop(SIGTERM), 0) << "the broker is no longer there";
    }

    uint32_t id_of(const char* path) {
        uint32_t id = 0;
        EXPECT_EQ(ubus_lookup_id(ctx_.get(), path, &id), UBUS_STATUS_OK) << path;
        return id;
    }
    int call(const char* path, const char* method, blob_attr* message = nullptr,
             int limit = kTimeLimit) {
        return ubus_invoke(ctx_.get(), id_of(path), method, message, nullptr, nullptr, limit);
    }
    // The strings of the replies' field "name".
    std::vector<std::string> ask(const char* path, const char* method, blob_attr* message,
                                 const char* field = "name") {
        struct Answer {
            const char* field;
            std::vector<std::string> texts;
        } answer = {field, {}};
        const auto keep = [](ubus_request* req, int, blob_attr* reply) {
            auto* result = static_cast<Answer*>(req->priv);
            const blobmsg_policy policy = {result->field, BLOBMSG_TYPE_STRING};
            blob_attr* found = nullptr;
            blobmsg_parse_attr(&policy, 1, &found, reply);
            result->texts.emplace_back(found ? blobmsg_get_string(found) : "(none)");
        };
        EXPECT_EQ(ubus_invoke(ctx_.get(), id_of(path), method, message, keep, &answer, kTimeLimit),
                  0);
        return answer.texts;
    }
    void expect_served() {
        Blob message;
        blobmsg_add_string(message.buf(), "name", "still there");
        EXPECT_THAT(ask("test", "echo", message.head()), ElementsAre("still there"));
    }
    long broker_kilobytes() {
        std::ifstream status("/proc/" + std::to_string(broker_->pid()) + "/status");
        std::string word;
        long kilobytes = 0;
        while (status >> word) {
            if (word == "VmRSS:") status >> kilobytes;
        }
        return kilobytes;
    }

    std::unique_ptr<Child> broker_;
    Context ctx_{nullptr, ubus_free};
};

// A peer that writes bytes of its own.
class RawPeer {
  public:
    RawPeer() : fd_(socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0)) {
        sockaddr_un address = {};
        address.sun_family = AF_UNIX;
        strcpy(address.sun_path, kSocket);
        EXPECT_EQ(connect(fd_, reinterpret_cast<sockaddr*>(&address), sizeof(address)), 0);
        const std::string hello = receive(12);
        id = hello.size() == 12 ? number(hello, 4) : 0;
    }
    ~RawPeer() { close(fd_); }
    RawPeer(const RawPeer&) = delete;
    RawPeer& operator=(const RawPeer&) = delete;

    static uint32_t number(const std::string& bytes, size_t place) {
        uint32_t value = 0;
        memcpy(&value, bytes.data() + place, sizeof(value));
        return be32_to_cpu(value);
    }
    static std::string header(uint8_t type, uint16_t seq, uint32_t peer, uint32_t size,
                              uint8_t version = 0) {
        const ubus_msghdr head = {version, type, cpu_to_be16(seq), cpu_to_be32(peer)};
        const uint32_t length = cpu_to_be32(size);
        std::string bytes(reinterpret_cast<const char*>(&head), sizeof(head));
        return bytes + std::string(reinterpret_cast<const char*>(&length), sizeof(length));
    }
    void send_bytes(const std::string& bytes) const {
        ::send(fd_, bytes.data(), bytes.size(), MSG_NOSIGNAL);
    }
    static std::string message(uint8_t type, uint16_t seq, uint32_t peer, const Blob& body) {
        const std::string whole(reinterpret_cast<const char*>(body.head()),
                                blob_raw_len(body.head()));
        return header(type, seq, peer, static_cast<uint32_t>(whole.size())) + whole.substr(4);
    }
    void send(uint8_t type, uint16_t seq, uint32_t peer, Blob* body) const {
        send_bytes(message(type, seq, peer, *body));
    }
    std::string receive(size_t size) const {
        std::string bytes(size, '\0');
        const ssize_t got = recv(fd_, bytes.data(), size, MSG_WAITALL);
        bytes.resize(got > 0 ? static_cast<size_t>(got) : 0);
        return bytes;
    }
    // The next message's type and its body with the 4 bytes of its own header; type -1 at the end.
    std::pair<int, std::string> next() const {
        const std::string head = receive(12);
        if (head.size() < 12) return {-1, ""};
        const size_t size = number(head, 8) & BLOB_ATTR_LEN_MASK;
        return {static_cast<unsigned char>(head[1]), head.substr(8) + receive(size - 4)};
    }
    // The status of a request whose answer is next.
    int status() const {
        std::pair<int, std::string> message = next();
        while (message.first == UBUS_MSG_DATA) {
            message = next();
        }
        if (message.first != UBUS_MSG_STATUS) return -1;
        return static_cast<int>(attribute(message.second, UBUS_ATTR_STATUS));
    }
    static uint32_t attribute(const std::string& body, int id) {
        blob_attr* found[UBUS_ATTR_MAX];
        std::string copy = body;
        blob_parse_untrusted(reinterpret_cast<blob_attr*>(copy.data()), copy.size(), found, nullptr,
                             UBUS_ATTR_MAX);
        if (!found[id]) return 0xffffffff;
        return blob_len(found[id]) == 1 ? blob_get_u8(found[id]) : blob_get_u32(found[id]);
    }
    bool ended() const { return receive(1).empty(); }
    // An object of its own without a path.
    uint32_t add_object() const {
        Blob nothing;
        send(UBUS_MSG_ADD_OBJECT, 1, 0, &nothing);
        const uint32_t object = attribute(next().second, UBUS_ATTR_OBJID);
        EXPECT_EQ(status(), 0);
        return object;
    }

    // A request about what the one object is told of the other.
    void subscribe(uint32_t subscriber, uint32_t target, uint8_t type = UBUS_MSG_SUBSCRIBE) const {
        Blob pair;
        blob_put_u32(pair.buf(), UBUS_ATTR_OBJID, subscriber);
        blob_put_u32(pair.buf(), UBUS_ATTR_TARGET, target);
        send(type, 2, 0, &pair);
    }

    uint32_t id = 0;

  private:
    int fd_;
};

// A broker for one client: says these bytes once it is connected, and these to one request after
// the other.
class FakeBroker {
  public:
    explicit FakeBroker(const std::string& hello, const std::vector<std::string>& answers = {})
        : fd_(socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0)) {
        sockaddr_un address = {};
        address.sun_family = AF_UNIX;
        strcpy(address.sun_path, kPath);
        unlink(kPath);
        EXPECT_EQ(bind(fd_, reinterpret_cast<sockaddr*>(&address), sizeof(address)), 0);
        EXPECT_EQ(listen(fd_, 1), 0);
        thread_ = std::thread([this, hello, answers] {
            const int client = accept4(fd_, nullptr, nullptr, SOCK_CLOEXEC);
            char request[256];
            ::send(client, hello.data(), hello.size(), MSG_NOSIGNAL);
            for (const std::string& answer : answers) {
                if (recv(client, request, sizeof(request), 0) <= 0) break;
                ::send(client, answer.data(), answer.size(), MSG_NOSIGNAL);
            }
            close(client);
        });
    }
    ~FakeBroker() {
        thread_.join();
        close(fd_);
    }
    FakeBroker(const FakeBroker&) = delete;
    FakeBroker& operator=(const FakeBroker&) = delete;

    static constexpr const char* kPath = "/tmp/fake.sock";

  private:
    int fd_;
    std::thread thread_;
};

// ---- calls ----

TEST_F(Bus, CallsAMethodAndHandsOutItsReplies) {
    const Service service;
    Blob message;
    blobmsg_add_string(message.buf(), "name", "hello");
    EXPECT_THAT(ask("test", "echo", message.head()), ElementsAre("hello"));
    EXPECT_THAT(ask("test", "twice", message.head()), ElementsAre("hello", "hello"));
    EXPECT_THAT(ask("test", "later", nullptr, "when"), ElementsAre("later"));
}

TEST_F(Bus, CallsWithoutAMessageAndWithoutAHandler) {
    const Service service;
    EXPECT_EQ(call("test", "echo"), UBUS_STATUS_OK);
}

TEST_F(Bus, ReturnsTheMethodsStatusAndTheBusesOwn) {
    const Service service;
    EXPECT_EQ(call("test", "refuse"), UBUS_STATUS_NOT_SUPPORTED);
    EXPECT_EQ(call("test", "nothing"), UBUS_STATUS_METHOD_NOT_FOUND);
    EXPECT_EQ(call("test", "never", nullptr, 50), UBUS_STATUS_TIMEOUT);
    EXPECT_EQ(call("test", "echo"), UBUS_STATUS_OK);
    uint32_t id = 0;
    EXPECT_EQ(ubus_lookup_id(ctx_.get(), "nothing", &id), UBUS_STATUS_NOT_FOUND);
    EXPECT_EQ(ubus_lookup_id(ctx_.get(), "", &id), UBUS_STATUS_INVALID_ARGUMENT);
    EXPECT_EQ(ubus_invoke(ctx_.get(), 5000, "echo", nullptr, nullptr, nullptr, kTimeLimit),
              UBUS_STATUS_NOT_FOUND);
    EXPECT_STREQ(ubus_strerror(UBUS_STATUS_TIMEOUT), "Request timed out");
    EXPECT_STREQ(ubus_strerror(99), "Unknown error");
}

TEST_F(Bus, TellsAServiceWhoCalls) {
    const Service service;
    EXPECT_THAT(ask("test", "caller", nullptr, "user"), ElementsAre("root"));
    EXPECT_THAT(ask("test", "caller", nullptr, "group"), ElementsAre("root"));
    EXPECT_THAT(ask("test", "caller", nullptr, "object"), ElementsAre("test"));
}

TEST_F(Bus, LetsAServiceCallAnotherWhileItIsCalled) {
    const Service service;
    const Service other({"other"});
    Blob message;
    blobmsg_add_string(message.buf(), "name", std::string(70000, 'n').c_str());
    EXPECT_THAT(ask("test", "ask", message.head()), ElementsAre(std::string(70000, 'n')));
}

TEST_F(Bus, LeavesCallsThatComeMeanwhileForLaterInTheirOrder) {
    const Service service;
    const Service other({"other"});
    const uint32_t id = id_of("test");
    ubus_request slow;
    ASSERT_EQ(ubus_invoke_async(ctx_.get(), id, "ask_slowly", nullptr, &slow), UBUS_STATUS_OK);
    const auto keep = [](ubus_request* req, int, blob_attr* reply) {
        const blobmsg_policy policy = {"name", BLOBMSG_TYPE_STRING};
        blob_attr* found = nullptr;
        blobmsg_parse_attr(&policy, 1, &found, reply);
        *static_cast<std::string*>(req->priv) = found ? blobmsg_get_string(found) : "(none)";
    };
    // The first comes while the other object is asked, the last when it has answered.
    std::vector<std::string> texts(3);
    std::vector<ubus_request> counts(3);
    for (size_t i = 0; i < counts.size(); i++) {
        ASSERT_EQ(ubus_invoke_async(ctx_.get(), id, "count", nullptr, &counts[i]), UBUS_STATUS_OK);
        counts[i].data_cb = keep;
        counts[i].priv = &texts[i];
        ubus_complete_request_async(ctx_.get(), &counts[i]);
        std::this_thread::sleep_for(std::chrono::milliseconds(50));
    }
    EXPECT_EQ(ubus_complete_request(ctx_.get(), &slow, kTimeLimit), UBUS_STATUS_OK);
    for (ubus_request& count : counts) {
        EXPECT_EQ(ubus_complete_request(ctx_.get(), &count, kTimeLimit), UBUS_STATUS_OK);
    }
    EXPECT_THAT(texts, ElementsAre("outside 1", "outside 2", "outside 3"));
}

TEST_F(Bus, AnswersACallThatComesMeanwhileAndIsTheLast) {
    const Service service;
    const Service other({"other"});
    const uint32_t id = id_of("test");
    ubus_request slow, count;
    ASSERT_EQ(ubus_invoke_async(ctx_.get(), id, "ask_slowly", nullptr, &slow), UBUS_STATUS_OK);
    ASSERT_EQ(ubus_invoke_async(ctx_.get(), id, "count", nullptr, &count), UBUS_STATUS_OK);
    ubus_complete_request_async(ctx_.get(), &count);
    EXPECT_EQ(ubus_complete_request(ctx_.get(), &slow, kTimeLimit), UBUS_STATUS_OK);
    EXPECT_EQ(ubus_complete_request(ctx_.get(), &count, kTimeLimit), UBUS_STATUS_OK);
}

TEST_F(Bus, AnswersACallThatComesWhileTheLoopDoesNotRun) {
    const Service service;
    ubus_object object = make_object("mine");
    object_type.id = 0;
    ASSERT_EQ(ubus_add_object(ctx_.get(), &object), UBUS_STATUS_OK);
    RawPeer peer;
    Blob message;
    blob_put_u32(message.buf(), UBUS_ATTR_OBJID, object.id);
    blob_put_string(message.buf(), UBUS_ATTR_METHOD, "refuse");
    blob_put(message.buf(), UBUS_ATTR_DATA, nullptr, 0);
    peer.send(UBUS_MSG_INVOKE, 1, object.id, &message);
    EXPECT_EQ(call("test", "later"), UBUS_STATUS_OK);
    ubus_add_uloop(ctx_.get());
    uloop_run_timeout(200);
    Blob nothing;
    peer.send(UBUS_MSG_PING, 2, 0, &nothing);
    EXPECT_EQ(peer.next().first, UBUS_MSG_STATUS) << "the call's, before the ping's own answer";
    EXPECT_EQ(ubus_remove_object(ctx_.get(), &object), UBUS_STATUS_OK);
}

TEST_F(Bus, AnswersNoCallThatWantsNoAnswer) {
    const Service service;
    RawPeer peer;
    Blob message;
    blob_put_u32(message.buf(), UBUS_ATTR_OBJID, id_of("test"));
    blob_put_string(message.buf(), UBUS_ATTR_METHOD, "refuse");
    blob_put_u8(message.buf(), UBUS_ATTR_NO_REPLY, 1);
    blob_put(message.buf(), UBUS_ATTR_DATA, nullptr, 0);
    peer.send(UBUS_MSG_INVOKE, 1, id_of("test"), &message);
    Blob nothing;
    peer.send(UBUS_MSG_PING, 2, 0, &nothing);
    EXPECT_EQ(peer.status(), UBUS_STATUS_OK);
    // The service has answered what came before this.
    expect_served();
    peer.send(UBUS_MSG_PING, 3, 0, &nothing);
    EXPECT_EQ(peer.status(), UBUS_STATUS_OK);
}

TEST_F(Bus, WaitsForNoMoreRepliesThanItsTimeAllows) {
    const Service service;
    int replies = 0;
    const auto take_time = [](ubus_request* req, int, blob_attr*) {
        ++*static_cast<int*>(req->priv);
        std::this_thread::sleep_for(std::chrono::milliseconds(20));
    };
    EXPECT_EQ(ubus_invoke(ctx_.get(), id_of("test"), "hundred", nullptr, take_time, &replies, 100),
              UBUS_STATUS_TIMEOUT);
    EXPECT_LE(replies, 6);
    expect_served();
}

TEST_F(Bus, AnswersForAServiceThatHasJustDied) {
    Service service;
    const uint32_t id = id_of("test");
    // The broker learns of the end and of the call at the same time.
    broker_->signal(SIGSTOP);
    service->stop(SIGKILL);
    ubus_request req;
    ASSERT_EQ(ubus_invoke_async(ctx_.get(), id, "echo", nullptr, &req), UBUS_STATUS_OK);
    broker_->signal(SIGCONT);
    EXPECT_EQ(ubus_complete_request(ctx_.get(), &req, kTimeLimit), UBUS_STATUS_NOT_FOUND);
}

TEST_F(Bus, FindsNoObjectThatVanishedAfterTheLookup) {
    Service service;
    const uint32_t id = id_of("test");
    service->stop(SIGKILL);
    int status = UBUS_STATUS_TIMEOUT;
    // The broker notices the end of the service in its own time.
    while (status == UBUS_STATUS_TIMEOUT) {
        status = ubus_invoke(ctx_.get(), id, "echo", nullptr, nullptr, nullptr, 100);
    }
    EXPECT_EQ(status, UBUS_STATUS_NOT_FOUND);
}

TEST_F(Bus, EndsACallWhoseBrokerDies) {
    const Service service;
    const uint32_t id = id_of("test");
    std::thread killer([&] {
        std::this_thread::sleep_for(std::chrono::milliseconds(50));
        broker_->stop(SIGKILL);
    });
    EXPECT_EQ(ubus_invoke(ctx_.get(), id, "never", nullptr, nullptr, nullptr, kTimeLimit),
              UBUS_STATUS_CONNECTION_FAILED);
    killer.join();
    broker_.reset();
    EXPECT_EQ(ubus_invoke(ctx_.get(), id, "echo", nullptr, nullptr, nullptr, kTimeLimit),
              UBUS_STATUS_CONNECTION_FAILED);
}

TEST_F(Bus, EndsALoopWhoseBrokerDies) {
    ubus_add_uloop(ctx_.get());
    broker_->stop(SIGKILL);
    broker_.reset();
    uloop_timeout limit = {};
    limit.cb = [](uloop_timeout*) { uloop_end(); };
    uloop_timeout_set(&limit, kTimeLimit);
    EXPECT_EQ(uloop_run(), 0);
    EXPECT_TRUE(limit.pending);
    uloop_timeout_cancel(&limit);
}

TEST(Client, ConnectsToNothingThatDoesNotSayHello) {
    for (const std::string& hello :
         {RawPeer::header(UBUS_MSG_STATUS, 0, 7, 4), RawPeer::header(UBUS_MSG_HELLO, 0, 7, 4, 1),
          RawPeer::header(UBUS_MSG_HELLO, 0, 7, 3)}) {
        const FakeBroker broker(hello);
        EXPECT_EQ(ubus_connect(FakeBroker::kPath), nullptr);
    }
}

TEST(Client, TakesNoAnswerThatLacksWhatItMustHave) {
    const FakeBroker broker(
        RawPeer::header(UBUS_MSG_HELLO, 0, 7, 4),
        {RawPeer::header(UBUS_MSG_DATA, 1, 0, 4) + RawPeer::header(UBUS_MSG_STATUS, 1, 0, 4)});
    const Context ctx{ubus_connect(FakeBroker::kPath), ubus_free};
    ASSERT_NE(ctx, nullptr);
    int found = 0;
    const auto count = [](ubus_context*, ubus_object_data*, void* priv) {
        ++*static_cast<int*>(priv);
    };
    EXPECT_EQ(ubus_lookup(ctx.get(), "test", count, &found), UBUS_STATUS_INVALID_ARGUMENT);
    EXPECT_EQ(found, 0);
}

// The answer to a request that adds or removes an object.
std::string object_answer(uint16_t seq, uint32_t object, uint32_t status) {
    Blob data, end;
    blob_put_u32(data.buf(), UBUS_ATTR_OBJID, object);
    blob_put_u32(end.buf(), UBUS_ATTR_STATUS, status);
    return RawPeer::message(UBUS_MSG_DATA, seq, 0, data) +
           RawPeer::message(UBUS_MSG_STATUS, seq, 0, end);
}

TEST(Client, KnowsNoObjectThatIsNotOnTheBusOrHasTheIdOfAnother) {
    const FakeBroker broker(
        RawPeer::header(UBUS_MSG_HELLO, 0, 7, 4),
        {object_answer(1, 2000, UBUS_STATUS_OK), object_answer(2, 2000, UBUS_STATUS_OK),
         object_answer(3, 2001, UBUS_STATUS_NO_MEMORY), object_answer(4, 0, UBUS_STATUS_OK),
         object_answer(5, 2000, UBUS_STATUS_OK), object_answer(6, 2000, UBUS_STATUS_OK)});
    const Context ctx{ubus_connect(FakeBroker::kPath), ubus_free};
    ASSERT_NE(ctx, nullptr);
    ubus_object object = {};
    EXPECT_EQ(ubus_add_object(ctx.get(), &object), UBUS_STATUS_OK);
    EXPECT_EQ(object.id, 2000U);
    ubus_object other = {};
    EXPECT_EQ(ubus_add_object(ctx.get(), &other), UBUS_STATUS_NO_DATA);
    EXPECT_EQ(ubus_add_object(ctx.get(), &other), UBUS_STATUS_NO_MEMORY);
    EXPECT_EQ(ubus_add_object(ctx.get(), &other), UBUS_STATUS_NO_DATA);
    EXPECT_EQ(ubus_remove_object(ctx.get(), &other), UBUS_STATUS_NO_DATA);
    EXPECT_EQ(other.id, 0U);
    EXPECT_EQ(ctx->objects.count, 1U);
    EXPECT_EQ(ubus_remove_object(ctx.get(), &object), UBUS_STATUS_OK);
    EXPECT_EQ(ctx->objects.count, 0U);
}

TEST_F(Bus, EndsARequestThatWasSentBeforeTheConnectionWasLost) {
    const Service service;
    ubus_request req;
    ASSERT_EQ(ubus_invoke_async(ctx_.get(), id_of("test"), "never", nullptr, &req), UBUS_STATUS_OK);
    broker_->stop(SIGKILL);
    broker_.reset();
    uint32_t id = 0;
    EXPECT_EQ(ubus_lookup_id(ctx_.get(), "test", &id), UBUS_STATUS_CONNECTION_FAILED);
    EXPECT_EQ(ubus_complete_request(ctx_.get(), &req, 1000), UBUS_STATUS_CONNECTION_FAILED);
}

TEST_F(Bus, LooksNothingElseUpForAPathThatIsTooLong) {
    const Service service;
    const std::string path(17 << 20, 'p');
    uint32_t id = 0;
    EXPECT_EQ(ubus_lookup_id(ctx_.get(), path.c_str(), &id), UBUS_STATUS_NO_MEMORY);
    EXPECT_EQ(id, 0U);
    ubus_object object = make_object(path.c_str());
    EXPECT_EQ(ubus_add_object(ctx_.get(), &object), UBUS_STATUS_NO_MEMORY);
}

TEST_F(Bus, ConnectsToNothingThatIsNotThere) {
    EXPECT_EQ(ubus_connect("/tmp/nothing"), nullptr);
    EXPECT_EQ(errno, ENOENT);
    EXPECT_EQ(ubus_connect(std::string(200, 'x').c_str()), nullptr);
    EXPECT_EQ(errno, ENAMETOOLONG);
}

TEST_F(Bus, CarriesMessagesOfAnySizeUpToAMegabyte) {
    const Service service;
    for (const size_t size :
         {size_t{0}, size_t{1}, size_t{65536}, size_t{65537}, size_t{1000000}, size_t{100}}) {
        Blob message;
        const std::string text(size, 'm');
        blobmsg_add_string(message.buf(), "name", text.c_str());
        EXPECT_THAT(ask("test", "echo", message.head()), ElementsAre(text)) << size;
    }
    Blob message;
    blobmsg_add_string(message.buf(), "name", std::string(1100000, 'm').c_str());
    EXPECT_EQ(call("test", "echo", message.head()), UBUS_STATUS_INVALID_ARGUMENT);
    expect_served();
}

// The broker's own attributes must not make a message too long for the service that gets it.
TEST_F(Bus, KeepsAServiceFromAMessageThatIsTooLong) {
    const Service service;
    constexpr int kSizes = 50;
    int served = 0;
    int refused = 0;
    for (size_t i = 0; i < kSizes; i++) {
        Blob message;
        const std::string text(1048576 - 4 * i, 'm');
        blobmsg_add_string(message.buf(), "name", text.c_str());
        const int status = call("test", "echo", message.head());
        served += status == UBUS_STATUS_OK;
        refused += status == UBUS_STATUS_INVALID_ARGUMENT;
    }
    EXPECT_EQ(served + refused, kSizes);
    EXPECT_GT(served, 0);
    EXPECT_GT(refused, 0);
    expect_served();
}

TEST_F(Bus, KeepsASubscriberFromANoticeThatIsTooLong) {
    RawPeer target, subscriber;
    const uint32_t target_id = target.add_object();
    subscriber.subscribe(subscriber.add_object(), target_id);
    ASSERT_EQ(subscriber.status(), UBUS_STATUS_OK);
    for (const size_t size : {size_t{1048548}, size_t{10}}) {
        Blob notice;
        blob_put_u32(notice.buf(), UBUS_ATTR_OBJID, target_id);
        blob_put_string(notice.buf(), UBUS_ATTR_METHOD, "news");
        blob_put(notice.buf(), UBUS_ATTR_DATA, std::string(size, 'n').data(),
                 static_cast<unsigned int>(size));
        ASSERT_LE(blob_raw_len(notice.head()), 1048576U);
        target.send(UBUS_MSG_NOTIFY, 3, target_id, &notice);
    }
    const auto message = subscriber.next();
    EXPECT_EQ(message.first, UBUS_MSG_INVOKE);
    EXPECT_LT(message.second.size(), 100U);
}

// Nor what it tells of an object too long for those that look it up, or listen.
TEST_F(Bus, TakesNoObjectThatItCouldNotTellOf) {
    Blob nothing;
    const Context sender = connect_bus();
    ubus_event_handler listener = {};
    listener.cb = [](ubus_context*, ubus_event_handler*, const char*, blob_attr*) {};
    ASSERT_EQ(ubus_register_event_handler(ctx_.get(), &listener, "*"), UBUS_STATUS_OK);
    for (size_t size = 1048300; size <= 1048576; size += 12) {
        ubus_object_type type = {"type", 0, nullptr, 0};
        const std::string path(size, 'p');
        ubus_object object = make_object(path.c_str());
        object.type = &type;
        const int status = ubus_add_object(sender.get(), &object);
        if (status == UBUS_STATUS_OK) {
            EXPECT_EQ(id_of(path.c_str()), object.id) << size;
            EXPECT_EQ(ubus_remove_object(sender.get(), &object), UBUS_STATUS_OK);
        } else {
            ASSERT_EQ(status, UBUS_STATUS_INVALID_ARGUMENT) << size;
        }
    }
    EXPECT_EQ(ubus_lookup(
                  ctx_.get(), nullptr, [](auto...) {}, nullptr),
              UBUS_STATUS_OK);
}

TEST_F(Bus, HasAHundredObjectsInOrder) {
    std::vector<std::string> paths;
    for (int i = 100; i < 200; i++) {
        paths.push_back("many." + std::to_string(i));
    }
    const Service service(paths);
    std::vector<std::string> found;
    const auto keep = [](ubus_context*, ubus_object_data* object, void* priv) {
        EXPECT_NE(object->signature, nullptr);
        static_cast<std::vector<std::string>*>(priv)->emplace_back(object->path);
    };
    EXPECT_EQ(ubus_lookup(ctx_.get(), nullptr, keep, &found), UBUS_STATUS_OK);
    EXPECT_EQ(found, paths);
    found.clear();
    EXPECT_EQ(ubus_lookup(ctx_.get(), "many.10*", keep, &found), UBUS_STATUS_OK);
    EXPECT_EQ(found.size(), 10U);
    EXPECT_EQ(ubus_lookup(ctx_.get(), "many.x*", keep, &found), UBUS_STATUS_NOT_FOUND);
    EXPECT_EQ(call("many.199", "echo"), UBUS_STATUS_OK);
}

TEST_F(Bus, ServesFiftyClientsAtOnce) {
    const Service service;
    std::vector<std::unique_ptr<Child>> clients;
    clients.reserve(50);
    for (int i = 0; i < 50; i++) {
        clients.push_back(std::make_unique<Child>([] {
            const Context own = connect_bus();
            uint32_t id = 0;
            Blob message;
            blobmsg_add_string(message.buf(), "name", std::string(65536, 'c').c_str());
            if (!own || ubus_lookup_id(own.get(), "test", &id) != 0) return 1;
            for (int n = 0; n < 5; n++) {
                if (ubus_invoke(own.get(), id, "echo", message.head(), nullptr, nullptr,
                                kTimeLimit) != 0)
                    return 2;
            }
            return 0;
        }));
    }
    for (auto& client : clients) {
        EXPECT_EQ(client->wait(), 0);
    }
}

// ---- objects ----

TEST_F(Bus, SubscribesNoObjectToItself) {
    RawPeer peer;
    const uint32_t object = peer.add_object();
    peer.subscribe(object, object);
    EXPECT_EQ(peer.status(), UBUS_STATUS_INVALID_ARGUMENT);
}

TEST_F(Bus, TellsATargetWhenItsLastSubscriberIsGone) {
    RawPeer target;
    const uint32_t target_id = target.add_object();
    {
        RawPeer subscriber;
        subscriber.subscribe(subscriber.add_object(), target_id);
        EXPECT_EQ(subscriber.status(), UBUS_STATUS_OK);
    }
    for (const uint32_t active : {1U, 0U}) {
        const auto message = target.next();
        EXPECT_EQ(message.first, UBUS_MSG_NOTIFY);
        EXPECT_EQ(RawPeer::attribute(message.second, UBUS_ATTR_ACTIVE), active);
    }
}

TEST_F(Bus, PutsObjectsOnTheBusAndTakesThemOff) {
    ubus_object first = make_object("first");
    ubus_object second = make_object("second");
    object_type.id = 0;
    EXPECT_EQ(ubus_add_object(ctx_.get(), &first), UBUS_STATUS_OK);
    EXPECT_EQ(ubus_add_object(ctx_.get(), &second), UBUS_STATUS_OK);
    EXPECT_NE(first.id, 0U);
    EXPECT_NE(object_type.id, 0U);
    EXPECT_EQ(id_of("first"), first.id);
    ubus_object again = make_object("first");
    EXPECT_EQ(ubus_add_object(ctx_.get(), &again), UBUS_STATUS_INVALID_ARGUMENT);
    EXPECT_EQ(ubus_remove_object(ctx_.get(), &first), UBUS_STATUS_OK);
    EXPECT_EQ(first.id, 0U);
    EXPECT_NE(object_type.id, 0U);
    EXPECT_EQ(ubus_remove_object(ctx_.get(), &second), UBUS_STATUS_OK);
    EXPECT_EQ(object_type.id, 0U) << "the last of its type";
    uint32_t id = 0;
    EXPECT_EQ(ubus_lookup_id(ctx_.get(), "first", &id), UBUS_STATUS_NOT_FOUND);
}

TEST_F(Bus, BringsItsObjectsAlongToANewConnection) {
    ubus_object object = make_object("mine");
    object_type.id = 0;
    ASSERT_EQ(ubus_add_object(ctx_.get(), &object), UBUS_STATUS_OK);
    const uint32_t old = object.id;
    ASSERT_EQ(ubus_reconnect(ctx_.get(), kSocket), UBUS_STATUS_OK);
    EXPECT_NE(object.id, 0U);
    EXPECT_NE(object.id, old);
    EXPECT_EQ(id_of("mine"), object.id);
    EXPECT_EQ(ubus_reconnect(ctx_.get(), "/tmp/nothing"), UBUS_STATUS_CONNECTION_FAILED);
}

TEST_F(Bus, TellsAnObjectWhetherItHasSubscribers) {
    ubus_object object = make_object("mine");
    object.subscribe_cb = [](ubus_context*, ubus_object*) { uloop_end(); };
    object_type.id = 0;
    ASSERT_EQ(ubus_add_object(ctx_.get(), &object), UBUS_STATUS_OK);
    ubus_add_uloop(ctx_.get());
    RawPeer peer;
    const uint32_t subscriber = peer.add_object();
    peer.subscribe(subscriber, object.id);
    uloop_run_timeout(kTimeLimit);
    EXPECT_TRUE(object.has_subscribers);
    peer.subscribe(subscriber, object.id, UBUS_MSG_UNSUBSCRIBE);
    uloop_run_timeout(kTimeLimit);
    EXPECT_FALSE(object.has_subscribers);
    EXPECT_EQ(ubus_remove_object(ctx_.get(), &object), UBUS_STATUS_OK);
}

// ---- events ----

struct Listener {
    ubus_event_handler handler = {};
    std::vector<std::string> events;
};

void keep_event(ubus_context* /*ctx*/, ubus_event_handler* handler, const char* type,
                blob_attr* /*message*/) {
    container_of(handler, Listener, handler)->events.emplace_back(type);
    if (strcmp(type, "end") == 0) uloop_end();
}

TEST_F(Bus, TellsEachListenerWhatItsPatternsAre) {
    Listener listener;
    listener.handler.cb = keep_event;
    for (const char* pattern : {"a*", "abc", "end", "ubus.object.*"}) {
        ASSERT_EQ(ubus_register_event_handler(ctx_.get(), &listener.handler, pattern),
                  UBUS_STATUS_OK);
    }
    const Context sender = connect_bus();
    Blob message;
    for (const char* event : {"abc", "b", "ab", "end"}) {
        ASSERT_EQ(ubus_send_event(sender.get(), event, message.head()), UBUS_STATUS_OK);
    }
    EXPECT_EQ(ubus_send_event(sender.get(), "ubus.object.add", message.head()),
              UBUS_STATUS_PERMISSION_DENIED);
    ubus_add_uloop(ctx_.get());
    uloop_run_timeout(kTimeLimit);
    EXPECT_THAT(listener.events, ElementsAre("abc", "ab", "end"));

    listener.events.clear();
    { const Service service; }
    ASSERT_EQ(ubus_send_event(sender.get(), "end", message.head()), UBUS_STATUS_OK);
    uloop_run_timeout(kTimeLimit);
    EXPECT_THAT(listener.events, testing::Contains("ubus.object.add"));
    EXPECT_EQ(ubus_unregister_event_handler(ctx_.get(), &listener.handler), UBUS_STATUS_OK);
}

TEST_F(Bus, TellsNobodyOfWhatItDoesItself) {
    Listener listener;
    listener.handler.cb = keep_event;
    ASSERT_EQ(ubus_register_event_handler(ctx_.get(), &listener.handler, "*"), UBUS_STATUS_OK);
    const Context sender = connect_bus();
    Blob message;
    ASSERT_EQ(ubus_send_event(ctx_.get(), "own", message.head()), UBUS_STATUS_OK);
    ASSERT_EQ(ubus_send_event(sender.get(), "end", message.head()), UBUS_STATUS_OK);
    ubus_add_uloop(ctx_.get());
    uloop_run_timeout(kTimeLimit);
    EXPECT_THAT(listener.events, ElementsAre("end"));
}

TEST_F(Bus, LeavesTheRestForTheNextRunOnceTheLoopIsToEnd) {
    Listener listener;
    listener.handler.cb = keep_event;
    ASSERT_EQ(ubus_register_event_handler(ctx_.get(), &listener.handler, "*"), UBUS_STATUS_OK);
    const Context sender = connect_bus();
    Blob message;
    for (int i = 0; i < 2; i++) {
        ASSERT_EQ(ubus_send_event(sender.get(), "end", message.head()), UBUS_STATUS_OK);
    }
    ubus_add_uloop(ctx_.get());
    uloop_run_timeout(kTimeLimit);
    EXPECT_THAT(listener.events, ElementsAre("end"));
    uloop_run_timeout(kTimeLimit);
    EXPECT_THAT(listener.events, ElementsAre("end", "end"));
}

TEST_F(Bus, TakesEventsAndPatternsOnlyAsTheyMustBe) {
    const Service service;
    RawPeer peer;
    Blob bare;
    blob_put_u32(bare.buf(), UBUS_ATTR_OBJID, UBUS_SYSTEM_OBJECT_EVENT);
    blob_put_string(bare.buf(), UBUS_ATTR_METHOD, "send");
    peer.send(UBUS_MSG_INVOKE, 1, UBUS_SYSTEM_OBJECT_EVENT, &bare);
    EXPECT_EQ(peer.status(), UBUS_STATUS_INVALID_ARGUMENT);

    Blob pattern;
    blobmsg_add_u32(pattern.buf(), "object", id_of("test"));
    blobmsg_add_string(pattern.buf(), "pattern", "*");
    EXPECT_EQ(ubus_invoke(ctx_.get(), UBUS_SYSTEM_OBJECT_EVENT, "register", pattern.head(), nullptr,
                          nullptr, kTimeLimit),
              UBUS_STATUS_PERMISSION_DENIED);
    EXPECT_EQ(ubus_invoke(ctx_.get(), UBUS_SYSTEM_OBJECT_EVENT, "send", pattern.head(), nullptr,
                          nullptr, kTimeLimit),
              UBUS_STATUS_INVALID_ARGUMENT);
    expect_served();
}

// ---- what peers may do to the broker ----

TEST_F(Bus, DropsAPeerThatSendsGarbageAndServesTheOthers) {
    const Service service;
    for (const std::string& garbage :
         {std::string("GET / HTTP/1.1\r\n\r\n"), RawPeer::header(UBUS_MSG_PING, 1, 0, 4, 1),
          RawPeer::header(UBUS_MSG_PING, 1, 0, 3), RawPeer::header(UBUS_MSG_PING, 1, 0, 0),
          RawPeer::header(UBUS_MSG_PING, 1, 0, 0x00ffffff), std::string(100000, '\xff')}) {
        RawPeer peer;
        peer.send_bytes(garbage);
        EXPECT_TRUE(peer.ended());
    }
    expect_served();
}

TEST_F(Bus, AnswersWhatItDoesNotUnderstand) {
    RawPeer peer;
    Blob nothing;
    for (const uint8_t type :
         {uint8_t{UBUS_MSG_HELLO}, uint8_t{UBUS_MSG_MONITOR}, uint8_t{12}, uint8_t{255}}) {
        peer.send(type, 1, 0, &nothing);
        EXPECT_EQ(peer.status(), UBUS_STATUS_INVALID_COMMAND);
    }
    for (const uint8_t type :
         {uint8_t{UBUS_MSG_INVOKE}, uint8_t{UBUS_MSG_REMOVE_OBJECT}, uint8_t{UBUS_MSG_SUBSCRIBE},
          uint8_t{UBUS_MSG_UNSUBSCRIBE}, uint8_t{UBUS_MSG_NOTIFY}}) {
        peer.send(type, 1, 0, &nothing);
        EXPECT_EQ(peer.status(), UBUS_STATUS_INVALID_ARGUMENT) << int{type};
    }
    peer.send(UBUS_MSG_PING, 1, 0, &nothing);
    EXPECT_EQ(peer.status(), UBUS_STATUS_OK);
}

TEST_F(Bus, RefusesASignatureThatIsNone) {
    RawPeer peer;
    Blob message;
    blob_put_string(message.buf(), UBUS_ATTR_OBJPATH, "bad");
    void* signature = blob_nest_start(message.buf(), UBUS_ATTR_SIGNATURE);
    blobmsg_add_u32(message.buf(), "method", 1);
    blob_nest_end(message.buf(), signature);
    peer.send(UBUS_MSG_ADD_OBJECT, 1, 0, &message);
    EXPECT_EQ(peer.status(), UBUS_STATUS_INVALID_ARGUMENT);
}

TEST_F(Bus, TakesNoAttributeThatSaysItHasAName) {
    const Service service;
    RawPeer peer;
    for (const uint32_t object : {uint32_t{UBUS_SYSTEM_OBJECT_EVENT}, id_of("test")}) {
        Blob message;
        blob_put_u32(message.buf(), UBUS_ATTR_OBJID, object);
        blob_put_string(message.buf(), UBUS_ATTR_METHOD, "send");
        // A name length far behind the message's end.
        blob_attr* data = blob_put(message.buf(), UBUS_ATTR_DATA, "\xff\xff\xff\xff", 4);
        data->id_len |= cpu_to_be32(BLOB_ATTR_EXTENDED);
        peer.send(UBUS_MSG_INVOKE, 1, object, &message);
        EXPECT_NE(peer.status(), UBUS_STATUS_OK);
    }
    expect_served();
}

TEST_F(Bus, ForgetsAClientThatDiesInTheMiddleOfAMessage) {
    const Service service;
    const std::string message =
        RawPeer::header(UBUS_MSG_LOOKUP, 1, 0, 70000) + std::string(40000, '\0');
    for (const size_t size : {size_t{1}, size_t{11}, size_t{12}, size_t{100}, message.size()}) {
        RawPeer peer;
        peer.send_bytes(message.substr(0, size));
    }
    expect_served();
}

TEST_F(Bus, ForgetsAClientThatIsSubscribedToItself) {
    const Service service;
    {
        RawPeer peer;
        const uint32_t target = peer.add_object();
        peer.subscribe(peer.add_object(), target);
        EXPECT_EQ(peer.next().first, UBUS_MSG_NOTIFY);
        EXPECT_EQ(peer.status(), UBUS_STATUS_OK);
    }
    expect_served();
}

TEST_F(Bus, TakesAMessageByteByByte) {
    RawPeer peer;
    const std::string message = RawPeer::header(UBUS_MSG_PING, 1, 0, 4);
    for (const char byte : message) {
        peer.send_bytes(std::string(1, byte));
    }
    EXPECT_EQ(peer.status(), UBUS_STATUS_OK);
}

TEST_F(Bus, TakesManyMessagesAtOnce) {
    RawPeer peer;
    std::string messages;
    for (uint16_t i = 0; i < 1000; i++) {
        messages += RawPeer::header(UBUS_MSG_PING, i, 0, 4);
    }
    peer.send_bytes(messages);
    for (int i = 0; i < 1000; i++) {
        ASSERT_EQ(peer.status(), UBUS_STATUS_OK);
    }
}

TEST_F(Bus, PassesNoReplyOnThatIsNotFromAnObjectOfItsSender) {
    const Service service;
    RawPeer liar, victim;
    Blob message;
    blob_put_u32(message.buf(), UBUS_ATTR_OBJID, id_of("test"));
    blob_put_u32(message.buf(), UBUS_ATTR_STATUS, 0);
    liar.send(UBUS_MSG_STATUS, 1, victim.id, &message);
    Blob nothing;
    liar.send(UBUS_MSG_PING, 2, 0, &nothing);
    ASSERT_EQ(liar.status(), 0);
    victim.send(UBUS_MSG_PING, 3, 0, &nothing);
    EXPECT_EQ(victim.next().first, UBUS_MSG_DATA) << "the ping's own answer is the first";
}

TEST_F(Bus, RemovesNoObjectOfAnother) {
    const Service service;
    RawPeer peer;
    Blob message;
    blob_put_u32(message.buf(), UBUS_ATTR_OBJID, id_of("test"));
    peer.send(UBUS_MSG_REMOVE_OBJECT, 1, 0, &message);
    EXPECT_EQ(peer.status(), UBUS_STATUS_PERMISSION_DENIED);
    expect_served();
}

TEST_F(Bus, TellsSubscribersAndTheirTargets) {
    RawPeer target, subscriber;
    const uint32_t target_id = target.add_object();
    const uint32_t subscriber_id = subscriber.add_object();
    subscriber.subscribe(subscriber_id, target_id);
    EXPECT_EQ(subscriber.status(), UBUS_STATUS_OK);
    auto message = target.next();
    EXPECT_EQ(message.first, UBUS_MSG_NOTIFY);
    EXPECT_EQ(RawPeer::attribute(message.second, UBUS_ATTR_ACTIVE), 1U);

    Blob notice;
    blob_put_u32(notice.buf(), UBUS_ATTR_OBJID, target_id);
    blob_put_string(notice.buf(), UBUS_ATTR_METHOD, "news");
    target.send(UBUS_MSG_NOTIFY, 3, target_id, &notice);
    EXPECT_EQ(target.status(), UBUS_STATUS_OK);
    message = subscriber.next();
    EXPECT_EQ(message.first, UBUS_MSG_INVOKE);
    EXPECT_THAT(message.second, HasSubstr("news"));

    subscriber.subscribe(subscriber_id, target_id, UBUS_MSG_UNSUBSCRIBE);
    message = target.next();
    EXPECT_EQ(RawPeer::attribute(message.second, UBUS_ATTR_ACTIVE), 0U);
    EXPECT_EQ(subscriber.status(), UBUS_STATUS_OK);

    subscriber.subscribe(subscriber_id, target_id);
    EXPECT_EQ(subscriber.status(), UBUS_STATUS_OK);
    Blob gone;
    blob_put_u32(gone.buf(), UBUS_ATTR_OBJID, target_id);
    target.send(UBUS_MSG_REMOVE_OBJECT, 6, 0, &gone);
    message = subscriber.next();
    EXPECT_EQ(message.first, UBUS_MSG_UNSUBSCRIBE);
    EXPECT_EQ(RawPeer::attribute(message.second, UBUS_ATTR_TARGET), target_id);
}

TEST_F(Bus, DropsAListenerThatDoesNotReadAndKeepsItsMemory) {
    const Service service;
    RawPeer sleeper;
    Blob request;
    const uint32_t object = sleeper.add_object();
    blob_put_u32(request.buf(), UBUS_ATTR_OBJID, UBUS_SYSTEM_OBJECT_EVENT);
    blob_put_string(request.buf(), UBUS_ATTR_METHOD, "register");
    void* data = blob_nest_start(request.buf(), UBUS_ATTR_DATA);
    blobmsg_add_u32(request.buf(), "object", object);
    blobmsg_add_string(request.buf(), "pattern", "*");
    blob_nest_end(request.buf(), data);
    sleeper.send(UBUS_MSG_INVOKE, 2, UBUS_SYSTEM_OBJECT_EVENT, &request);
    ASSERT_EQ(sleeper.status(), UBUS_STATUS_OK);

    [[maybe_unused]] const long before = broker_kilobytes();
    Blob event;
    blobmsg_add_string(event.buf(), "text", std::string(65536, 'e').c_str());
    for (int i = 0; i < 400; i++) {
        ASSERT_EQ(ubus_send_event(ctx_.get(), "news", event.head()), UBUS_STATUS_OK);
    }
#ifndef TQ_SANITIZED  // which keeps what was freed
    EXPECT_LT(broker_kilobytes() - before, 10 * 1024) << "400 events of 64 KiB are 25 MiB";
#endif
    expect_served();
    // It has what was sent before, and then the end.
    int events = 0;
    while (sleeper.next().first == UBUS_MSG_INVOKE) {
        events++;
    }
    EXPECT_GT(events, 0);
    EXPECT_LT(events, 400);
}

TEST_F(Bus, RefusesCallsOfAServiceThatDoesNotRead) {
    const Service service;
    const Service busy({"busy"});
    const uint32_t id = id_of("busy");
    ubus_request hang;
    ASSERT_EQ(ubus_invoke_async(ctx_.get(), id, "hang", nullptr, &hang), UBUS_STATUS_OK);
    Blob message;
    blobmsg_add_string(message.buf(), "text", std::string(65536, 'c').c_str());
    int status = UBUS_STATUS_TIMEOUT;
    for (int i = 0; i < 200 && status == UBUS_STATUS_TIMEOUT; i++) {
        status = ubus_invoke(ctx_.get(), id, "echo", message.head(), nullptr, nullptr, 10);
    }
    EXPECT_EQ(status, UBUS_STATUS_NO_MEMORY);
    expect_served();
}

TEST_F(Bus, LetsOthersThanRootDoNothing) {
    const Service service;
    EXPECT_EQ(as_nobody([] {
                  const Context own = connect_bus();
                  uint32_t id = 0;
                  return own ? ubus_lookup_id(own.get(), "test", &id) : -1;
              }),
              UBUS_STATUS_NOT_FOUND);
    const uint32_t id = id_of("test");
    EXPECT_EQ(as_nobody([id] {
                  const Context own = connect_bus();
                  return own ? ubus_invoke(own.get(), id, "echo", nullptr, nullptr, nullptr,
                                           kTimeLimit)
                             : -1;
              }),
              UBUS_STATUS_NOT_FOUND);
    EXPECT_EQ(as_nobody([] {
                  const Context own = connect_bus();
                  Blob message;
                  return own ? ubus_send_event(own.get(), "news", message.head()) : -1;
              }),
              UBUS_STATUS_PERMISSION_DENIED);
    EXPECT_EQ(as_nobody([] {
                  const Context own = connect_bus();
                  ubus_object object = make_object("nobodys");
                  return own ? ubus_add_object(own.get(), &object) : -1;
              }),
              UBUS_STATUS_PERMISSION_DENIED);
}

TEST_F(Bus, ShowsNothingToOthersThanRoot) {
    const Service service;
    for (const char* path : {static_cast<const char*>(nullptr), "*", "te*"}) {
        EXPECT_EQ(as_nobody([path] {
                      const Context own = connect_bus();
                      int found = 0;
                      const auto count = [](ubus_context*, ubus_object_data*, void* priv) {
                          ++*static_cast<int*>(priv);
                      };
                      if (!own) return -1;
                      ubus_lookup(own.get(), path, count, &found);
                      return found;
                  }),
                  0);
    }
}

TEST_F(Bus, TellsOthersThanRootNothing) {
    const Service service;
    const uint32_t target = id_of("test");
    EXPECT_EQ(as_nobody([target] {
                  RawPeer peer;
                  peer.subscribe(peer.add_object(), target);
                  return peer.status();
              }),
              UBUS_STATUS_NOT_FOUND);
    EXPECT_EQ(as_nobody([] {
                  const Context own = connect_bus();
                  ubus_event_handler handler = {};
                  return own ? ubus_register_event_handler(own.get(), &handler, "*") : -1;
              }),
              UBUS_STATUS_PERMISSION_DENIED);
}

// ---- the command ----

class UbusCommand : public Bus {
  protected:
    static CommandResult ubus(const std::string& arguments) {
        return run_command(std::string("ubus -s ") + kSocket + " " + arguments);
    }
    Service service_;
};

TEST_F(UbusCommand, ListsObjectsAndTheirMethods) {
    EXPECT_EQ(ubus("list").out, "test\n");
    EXPECT_EQ(ubus("list 'te*'").out, "test\n");
    const CommandResult verbose = ubus("-v list test");
    EXPECT_THAT(verbose.out, StartsWith("'test' @"));
    EXPECT_THAT(
        verbose.out,
        HasSubstr("\n\t\"echo\":{\"name\":\"String\",\"val\":\"Integer\"}\n\t\"twice\":{}\n"));
    const CommandResult missing = ubus("list nothing");
    EXPECT_EQ(missing.status, UBUS_STATUS_NOT_FOUND);
    EXPECT_EQ(missing.out, "");
    EXPECT_EQ(missing.err, "Command failed: Not found\n");
}

TEST_F(UbusCommand, CallsWithJsonAndPrintsIt) {
    EXPECT_EQ(
        ubus(
            R"(call test echo '{"a":{"b":[1,"x",true,null,2.5,123456789012,{}]},"c":"\u0001\n\"\\/"}')")
            .out,
        "{\n\t\"a\": {\n\t\t\"b\": "
        "[\n\t\t\t1,\n\t\t\t\"x\",\n\t\t\ttrue,\n\t\t\tnull,\n\t\t\t2.500000,\n"
        "\t\t\t123456789012,\n\t\t\t{\n\t\t\t\t\n\t\t\t}\n\t\t]\n\t},\n"
        "\t\"c\": \"\\u0001\\n\\\"\\\\/\"\n}\n");
    EXPECT_EQ(ubus(R"(-S call test echo '{"a":[],"b":-5,"c":4294967296}')").out,
              "{\"a\":[],\"b\":-5,\"c\":4294967296}\n");
}

TEST_F(UbusCommand, SaysByItsExitCodeWhatFailed) {
    EXPECT_EQ(ubus("call test refuse").status, 256 - UBUS_STATUS_NOT_SUPPORTED);
    EXPECT_EQ(ubus("call test refuse").err,
              "Command failed: ubus call test refuse (Operation not supported)\n");
    EXPECT_EQ(ubus("call test nothing").status, 256 - UBUS_STATUS_METHOD_NOT_FOUND);
    EXPECT_EQ(ubus("-t 1 call test never").status, 256 - UBUS_STATUS_TIMEOUT);
    EXPECT_EQ(ubus("call nothing echo").status, UBUS_STATUS_NOT_FOUND);
    EXPECT_EQ(ubus("call test echo '{'").status, 256 - UBUS_STATUS_PARSE_ERROR);
    EXPECT_EQ(ubus("call test echo '[1]'").status, 256 - UBUS_STATUS_PARSE_ERROR);
    EXPECT_EQ(ubus("send news '{'").status, UBUS_STATUS_PARSE_ERROR);
    EXPECT_EQ(ubus("call test").status, 254);
    EXPECT_EQ(ubus("nothing").status, 254);
    EXPECT_EQ(ubus("-x").status, 1);
    EXPECT_EQ(run_command("ubus -s /tmp/nothing list").status, 255);
    EXPECT_EQ(run_command("ubus -s /tmp/nothing list").err, "Failed to connect to ubus\n");
    EXPECT_EQ(run_command("ubus -S -s /tmp/nothing list").err, "");
}

TEST_F(UbusCommand, ListensAndSends) {
    const CommandResult result =
        run_command(std::string("ubus -s ") + kSocket +
                    " listen 'ne*' >/tmp/heard & pid=$!; while ! grep -q ready /tmp/heard; do "
                    "ubus -s " +
                    kSocket +
                    " send next '{\"ready\":1}'; done; "
                    "kill $pid; wait $pid");
    EXPECT_EQ(result.status, 0) << result.err;
    EXPECT_THAT(tq_test::read_file("/tmp/heard"), StartsWith("{ \"next\": {\"ready\":1} }\n"));
}

TEST_F(UbusCommand, WaitsForObjects) {
    EXPECT_EQ(ubus("wait_for test").status, 0);
    EXPECT_EQ(ubus("-t 1 wait_for test nothing").status, UBUS_STATUS_TIMEOUT);
    Child waiter([] {
        execlp("ubus", "ubus", "-s", kSocket, "-t", "20", "wait_for", "later", "test", nullptr);
        return 127;
    });
    std::this_thread::sleep_for(std::chrono::milliseconds(50));
    const Service later({"later"});
    EXPECT_EQ(waiter.wait(), 0);
}

// ---- the device's bus ----

TEST(DeviceBus, IsThereFromTheStart) {
    EXPECT_EQ(run_command("ubus list").status, 0);
}

TEST(DeviceBus, HasTheDevicesServicesWhereTheyAreStarted) {
    ASSERT_EQ(run_command("device_services").status, 0);
    EXPECT_EQ(run_command("ubus list").out,
              "bwctrl\nbwctrl.maxassoc\nfm.ac\nfm.action\nfm.ism_server\nfm.ntp\nfm.reload."
              "wifi\nfm.suppress\n"
              "fm.threshold\nfm.url\nfm.wifi_down.cause\nstatistics\n");
    EXPECT_EQ(run_command("ubus call fm.action set '{\"value\":5}'").status, 0);
    EXPECT_EQ(run_command("ubus -S call fm.action last").out, "{\"set\":{\"value\":5}}\n");
    EXPECT_THAT(run_command("ubus -S call statistics get '{\"class_type\":2}'").out,
                StartsWith("{\"memoryUsage\":"));
    EXPECT_EQ(run_command("ubus call statistics get '{\"class_type\":9}'").status,
              256 - UBUS_STATUS_INVALID_ARGUMENT);
    EXPECT_NE(run_command("device_services").status, 0) << "they are there already";
}

}  // namespace
