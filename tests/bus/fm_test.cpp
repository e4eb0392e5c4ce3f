// fm_test.cpp - the notices and settings of the fault management: as a service on the bus receives
// them, and as the shell and the command that it runs receive them.
#include "tq/fm.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sys/mount.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include <climits>
#include <cstdlib>
#include <filesystem>
#include <functional>
#include <random>
#include <sstream>
#include <string>
#include <vector>

#include "bus/request_test.h"
#include "support/bus.h"
#include "support/bus_calls.h"
#include "support/device.h"
#include "support/faults.h"
#include "support/log_capture.h"
#include "support/random.h"

namespace {

using testing::Contains;
using testing::ElementsAre;
using testing::IsEmpty;
using tq_test::Broker;
using tq_test::BusCalls;
using tq_test::BusService;
using tq_test::exists;
using tq_test::Line;
using tq_test::read_file;
using tq_test::Request;
using tq_test::ScopedMount;
using tq_test::seeded;
using tq_test::write_file;
using tq_test::faults::Fail;

void write_program(const std::string& path, const std::string& text) {
    write_file(path, text);
    chmod(path.c_str(), 0755);
}

// Ends every text with the byte 0, which no command line can hold.
std::vector<std::string> take_texts(const std::string& path) {
    std::vector<std::string> texts;
    if (!exists(path)) return texts;
    std::istringstream content(read_file(path));
    for (std::string text; std::getline(content, text, '\0');)
        texts.push_back(text);
    std::filesystem::remove(path);
    return texts;
}

// Stands in for /bin/sh and keeps the commands that it is given; runs them with the real one. A
// script is none: the command "ubus" of another machine is one, which starts the emulator.
class ShellRecorder {
  public:
    ShellRecorder() : shell_(stand_in(), "/bin/sh", nullptr, MS_BIND, "") {}

    static std::vector<std::string> take() { return take_texts("/tmp/commands"); }

  private:
    static std::string stand_in() {
        std::filesystem::copy("/bin/sh", "/tmp/real-sh");
        write_program("/tmp/sh",
                      "#!/bin/bash\n"
                      "[ \"$1\" = -c ] || exec /tmp/real-sh \"$@\"\n"
                      "printf '%s\\0' \"${@: -1}\" >>/tmp/commands\n"
                      "exec /tmp/real-sh -c \"${@: -1}\"\n");
        return "/tmp/sh";
    }

    ScopedMount shell_;
};

// A command "ubus" before the real one, which keeps its arguments and where its diagnostics go.
class UbusRecorder {
  public:
    UbusRecorder() : path_(getenv("PATH")) {
        write_program("/tmp/bin/ubus",
                      "#!/bin/bash\n"
                      "printf '%s\\0' \"$@\" >>/tmp/arguments\n"
                      "[ /dev/fd/2 -ef /dev/null ] && printf 'quietly\\0' >>/tmp/arguments\n"
                      "exit 3\n");
        setenv("PATH", ("/tmp/bin:" + path_).c_str(), 1);
    }
    ~UbusRecorder() { setenv("PATH", path_.c_str(), 1); }
    UbusRecorder(const UbusRecorder&) = delete;
    UbusRecorder& operator=(const UbusRecorder&) = delete;

    static std::vector<std::string> take() { return take_texts("/tmp/arguments"); }

  private:
    std::string path_;
};

template <typename Base>
class FmTest : public Base {
  protected:
    void rejected(const char* function) { this->expect_rejected(function, "invalid parameter\n"); }

    void expect_settings_to_need_their_texts() {
        EXPECT_EQ(set_fm_wifi_down_cause(0, 0, nullptr, "cause"), -1);
        rejected("set_fm_wifi_down_cause");
        EXPECT_EQ(set_fm_wifi_down_cause(0, 0, "status", nullptr), -1);
        rejected("set_fm_wifi_down_cause");
        EXPECT_EQ(set_fm_url(nullptr), -1);
        rejected("set_fm_url");
        EXPECT_EQ(set_fm_suppress(nullptr), -1);
        rejected("set_fm_suppress");
    }
};

using OverTheBus = FmTest<tq_test::ConnectedTest>;

// Without a connection of the library's.
class ByCommand : public FmTest<tq_test::RequestTest> {
  protected:
    ByCommand() { tq_test::stop_bus(); }
};

const std::vector<Request>& notices() {
    static const std::vector<Request> kAll = {
        {"notify_fm_ac_disconnect", "fm.ac",
         "send_ubus_msg(FM_AC_ALARM, METHOD_DISCONNECT, param) fail\n",
         [] { return notify_fm_ac_disconnect("192.0.2.1", 5246, "timeout", nullptr); },
         "disconnect addr=\"192.0.2.1\" port=5246 probable_cause=\"timeout\""},
        {"notify_fm_ac_connect", "fm.ac",
         "send_ubus_msg(FM_AC_ALARM, METHOD_CONNECT, param) fail\n",
         [] { return notify_fm_ac_connect("192.0.2.1", 5246); },
         "connect addr=\"192.0.2.1\" port=5246"},
        {"notify_fm_ntp_disconnect", "fm.ntp",
         "send_ubus_msg(FM_NTP_ALARM, METHOD_DISCONNECT, param) fail\n",
         [] { return notify_fm_ntp_disconnect("192.0.2.2", 123, nullptr, "reset"); },
         "disconnect addr=\"192.0.2.2\" port=123 specific_cause=\"reset\""},
        {"notify_fm_ntp_connect", "fm.ntp",
         "send_ubus_msg(FM_NTP_ALARM, METHOD_CONNECT, param) fail\n",
         [] { return notify_fm_ntp_connect("192.0.2.2", 123); },
         "connect addr=\"192.0.2.2\" port=123"},
    };
    return kAll;
}

const std::vector<Request>& settings() {
    static const std::vector<Request> kAll = {
        {"notify_fm_reload_wifi_cfg", "fm.reload.wifi",
         "send_ubus_msg(FM_RELOAD_WIFI, METHOD_RELOAD, NULL) fail\n",
         [] { return notify_fm_reload_wifi_cfg(); }, "reload"},
        {"set_fm_wifi_down_cause", "fm.wifi_down.cause",
         "send_ubus_msg(FM_WIFI_DOWN_UBUS, METHOD_SET, param) fail\n",
         [] { return set_fm_wifi_down_cause(1, 2, "down", "it's \"hot\""); },
         "set raido=1 wlan=2 status=\"down\" probable_cause=\"it's \\x22hot\\x22\""},
        {"set_fm_action", "fm.action", "send_ubus_msg(FM_ACTION, METHOD_SET, param) fail\n",
         [] { return set_fm_action(-1); }, "set value=4294967295"},
        {"set_fm_url", "fm.url", "send_ubus_msg(FM_URL, METHOD_SET, param) fail\n",
         [] { return set_fm_url("http://192.0.2.3/x?a=1&b='2'"); },
         "set fm.url=\"http://192.0.2.3/x?a=1&b='2'\""},
        {"set_fm_threshold", "fm.threshold",
         "send_ubus_msg(FM_THRESHOLD, METHOD_SET, param) fail\n",
         [] { return set_fm_threshold(7, 80); }, "set id=7 value=80"},
        {"set_fm_suppress", "fm.suppress", "send_ubus_msg(FM_SUPPRESS, METHOD_SET, param) fail\n",
         [] { return set_fm_suppress("on"); }, "set fm.suppress=\"on\""},
    };
    return kAll;
}

std::vector<Request> all_calls() {
    std::vector<Request> all = notices();
    all.insert(all.end(), settings().begin(), settings().end());
    return all;
}

std::vector<std::string> all_objects(const std::string& behaviour) {
    std::vector<std::string> objects;
    for (const char* name : {"fm.ac", "fm.ntp", "fm.reload.wifi", "fm.wifi_down.cause", "fm.action",
                             "fm.url", "fm.threshold", "fm.suppress", "fm.ism_server"})
        objects.push_back(name + behaviour);
    return objects;
}

// Over the bus

TEST_F(OverTheBus, EachObjectReceivesItsFields) {
    BusService service(all_objects(""));
    for (const Request& request : all_calls()) {
        EXPECT_EQ(request.call(), 0);
        EXPECT_THAT(service.take(), ElementsAre(request.object + " " + request.received));
    }
    EXPECT_THAT(log_.take(), IsEmpty());
}

TEST_F(OverTheBus, NoShellIsRun) {
    BusService service(all_objects(""));
    const ShellRecorder shell;
    for (const Request& request : all_calls())
        EXPECT_EQ(request.call(), 0);
    EXPECT_THAT(ShellRecorder::take(), IsEmpty());
}

TEST_F(OverTheBus, ADisconnectNeedsACause) {
    BusService service(all_objects(""));
    EXPECT_EQ(notify_fm_ac_disconnect("192.0.2.1", 1, nullptr, nullptr), -1);
    rejected("notify_fm_ac_disconnect");
    EXPECT_EQ(notify_fm_ntp_disconnect("192.0.2.1", 1, nullptr, nullptr), -1);
    rejected("notify_fm_ntp_disconnect");
    EXPECT_THAT(service.take(), IsEmpty());
}

TEST_F(OverTheBus, TheProbableCauseGoesBeforeTheSpecificOne) {
    BusService service(all_objects(""));
    EXPECT_EQ(notify_fm_ac_disconnect("a", 1, "probable", "specific"), 0);
    EXPECT_EQ(notify_fm_ac_disconnect("a", 2, "", "specific"), 0);
    EXPECT_EQ(notify_fm_ac_disconnect("a", 3, nullptr, "specific"), 0);
    EXPECT_EQ(notify_fm_ntp_disconnect("a", -1, "probable", "specific"), 0);
    EXPECT_THAT(service.take(),
                ElementsAre("fm.ac disconnect addr=\"a\" port=1 probable_cause=\"probable\"",
                            "fm.ac disconnect addr=\"a\" port=2 probable_cause=\"\"",
                            "fm.ac disconnect addr=\"a\" port=3 specific_cause=\"specific\"",
                            "fm.ntp disconnect addr=\"a\" port=4294967295 "
                            "probable_cause=\"probable\""));
}

TEST_F(OverTheBus, AMissingTextIsRejected) {
    BusService service(all_objects(""));
    EXPECT_EQ(notify_fm_ac_disconnect(nullptr, 1, "cause", nullptr), -1);
    rejected("notify_fm_ac_disconnect");
    EXPECT_EQ(notify_fm_ac_connect(nullptr, 1), -1);
    rejected("notify_fm_ac_connect");
    EXPECT_EQ(notify_fm_ntp_disconnect(nullptr, 1, "cause", nullptr), -1);
    rejected("notify_fm_ntp_disconnect");
    EXPECT_EQ(notify_fm_ntp_connect(nullptr, 1), -1);
    rejected("notify_fm_ntp_connect");
    expect_settings_to_need_their_texts();
    EXPECT_THAT(service.take(), IsEmpty());
}

TEST_F(OverTheBus, ATextIsNotCut) {
    BusService service(all_objects(""));
    const std::string url(5000, 'u');
    EXPECT_EQ(set_fm_url(url.c_str()), 0);
    EXPECT_THAT(service.take(), ElementsAre("fm.url set fm.url=\"" + url + "\""));
}

TEST_F(OverTheBus, AMissingObjectIsAFailure) {
    const ShellRecorder shell;
    for (const Request& request : all_calls())
        expect_failure(request, "Failed to look up " + request.object + " object\n\n");
    EXPECT_THAT(ShellRecorder::take(), IsEmpty());
}

TEST_F(OverTheBus, ARefusalIsAFailure) {
    BusService service(all_objects("=status:4"));
    for (const Request& request : all_calls())
        expect_failure(request);
}

TEST_F(OverTheBus, EachCallWaitsThreeSeconds) {
    BusService service(all_objects(""));
    for (const Request& request : all_calls())
        expect_to_wait_three_seconds(request);
}

TEST_F(OverTheBus, TheUploadNoticesGoByCommandAllTheSame) {
    BusService service(all_objects(""));
    const ShellRecorder shell;
    const BusCalls watch;
    EXPECT_EQ(notify_fm_ism_upload("192.0.2.4", 69), 0);
    EXPECT_EQ(notify_fm_ism_upload_fail("192.0.2.4", 69, "refused", nullptr), 0);
    EXPECT_THAT(BusCalls::take(), IsEmpty());
    EXPECT_THAT(service.take(), ElementsAre("fm.ism_server connect addr=\"192.0.2.4\" port=69",
                                            "fm.ism_server disconnect addr=\"192.0.2.4\" port=69 "
                                            "probable_cause=\"refused\""));
    EXPECT_THAT(ShellRecorder::take(),
                Contains(testing::StartsWith("ubus call fm.ism_server ")).Times(2));
}

// By command

TEST_F(ByCommand, TheNoticesOfTheControllerAndTheTimeServerFail) {
    const ShellRecorder shell;
    for (const Request& request : notices())
        expect_failure(request, "ubus client should be initialized\n");
    EXPECT_THAT(ShellRecorder::take(), IsEmpty());
}

TEST_F(ByCommand, TheShellIsGivenTheseTexts) {
    const ShellRecorder shell;
    const UbusRecorder ubus;
    const auto gives = [&](int result, const std::string& text) {
        EXPECT_EQ(result, 0);
        EXPECT_THAT(ShellRecorder::take(), ElementsAre(text));
    };
    gives(notify_fm_reload_wifi_cfg(), "ubus call fm.reload.wifi reload 2> /dev/null");
    gives(set_fm_wifi_down_cause(1, -2, "down", "radar"),
          "ubus call fm.wifi_down.cause set '{\"raido\":1,\"wlan\":-2,\"status\":\"down\","
          "\"probable_cause\":\"radar\"}' 2> /dev/null");
    gives(set_fm_action(5), "ubus call fm.action set '{\"value\":5}' 2> /dev/null");
    gives(set_fm_action(INT_MIN), "ubus call fm.action set '{\"value\":-2147483648}' 2> /dev/null");
    gives(set_fm_url("http://192.0.2.3/$HOME"),
          "ubus call fm.url set '{\"value\":\"http://192.0.2.3/$HOME\"}' 2> /dev/null");
    gives(set_fm_threshold(7, 80),
          "ubus call fm.threshold set '{\"id\":7, \"value\":80}' 2> /dev/null");
    gives(set_fm_suppress(""), "ubus call fm.suppress set '{\"value\":\"\"}' 2> /dev/null");
    EXPECT_THAT(log_.take(), IsEmpty());

    const std::string failure =
        "ubus call fm.ism_server disconnect "
        "'{\"addr\":\"192.0.2.4\", \"port\":69, \"probable_cause\":\"refused\"}'";
    gives(notify_fm_ism_upload_fail("192.0.2.4", 69, "refused", "not this"), failure);
    EXPECT_THAT(log_.take(),
                ElementsAre(Line(LOG_DEBUG, "notify_fm_ism_upload_fail", failure + "\n")));
    const std::string specific =
        "ubus call fm.ism_server disconnect "
        "'{\"addr\":\"192.0.2.4\", \"port\":-1, \"specific_cause\":\"%s%n\"}'";
    gives(notify_fm_ism_upload_fail("192.0.2.4", -1, nullptr, "%s%n"), specific);
    EXPECT_THAT(log_.take(),
                ElementsAre(Line(LOG_DEBUG, "notify_fm_ism_upload_fail", specific + "\n")));
    gives(notify_fm_ism_upload("192.0.2.4", 69),
          "ubus call fm.ism_server connect '{\"addr\":\"192.0.2.4\", \"port\":69}'");
    EXPECT_THAT(log_.take(), IsEmpty());
}

TEST_F(ByCommand, TheFailureNoticeIsLoggedBeforeItIsRun) {
    const pid_t child = fork();
    if (child == 0) {
        tq_test::faults::kill_at("system", 1);
        notify_fm_ism_upload_fail("192.0.2.4", 69, "refused", nullptr);
        _exit(0);
    }
    int status = 0;
    waitpid(child, &status, 0);
    EXPECT_TRUE(WIFSIGNALED(status));
    EXPECT_THAT(log_.take(), testing::SizeIs(1));
}

TEST_F(ByCommand, TheCommandIsGivenTheseArguments) {
    const UbusRecorder ubus;
    EXPECT_EQ(set_fm_action(5), 0);
    EXPECT_THAT(UbusRecorder::take(),
                ElementsAre("call", "fm.action", "set", "{\"value\":5}", "quietly"));
    EXPECT_EQ(notify_fm_reload_wifi_cfg(), 0);
    EXPECT_THAT(UbusRecorder::take(), ElementsAre("call", "fm.reload.wifi", "reload", "quietly"));
    EXPECT_EQ(notify_fm_ism_upload("192.0.2.4", 69), 0);
    EXPECT_THAT(UbusRecorder::take(), ElementsAre("call", "fm.ism_server", "connect",
                                                  "{\"addr\":\"192.0.2.4\", \"port\":69}"));
}

TEST_F(ByCommand, TheObjectReceivesTheFields) {
    const Broker broker;
    BusService service(all_objects(""));
    EXPECT_EQ(notify_fm_reload_wifi_cfg(), 0);
    EXPECT_EQ(set_fm_wifi_down_cause(1, 2, "it's down", "'"), 0);
    EXPECT_EQ(set_fm_action(-5), 0);
    EXPECT_EQ(set_fm_url("http://x/';reboot;'"), 0);
    EXPECT_EQ(set_fm_threshold(7, 80), 0);
    EXPECT_EQ(set_fm_suppress("$(reboot) `reboot` * ~\n"), 0);
    EXPECT_EQ(notify_fm_ism_upload("192.0.2.4", 69), 0);
    EXPECT_EQ(notify_fm_ism_upload_fail("192.0.2.4", 69, nullptr, "can't"), 0);
    EXPECT_THAT(
        service.take(),
        ElementsAre(
            "fm.reload.wifi reload",
            "fm.wifi_down.cause set raido=1 wlan=2 status=\"it's down\" probable_cause=\"'\"",
            "fm.action set value=4294967291", "fm.url set value=\"http://x/';reboot;'\"",
            "fm.threshold set id=7 value=80",
            "fm.suppress set value=\"$(reboot) `reboot` * ~\\x0a\"",
            "fm.ism_server connect addr=\"192.0.2.4\" port=69",
            "fm.ism_server disconnect addr=\"192.0.2.4\" port=69 specific_cause=\"can't\""));
}

TEST_F(ByCommand, TheOtherEndReadsADoubleQuoteAndABackslashAsJson) {
    const Broker broker;
    BusService service(all_objects(""));
    // No JSON any more: nothing is sent.
    EXPECT_EQ(set_fm_url("say \"hello\""), 0);
    EXPECT_THAT(service.take(), IsEmpty());
    // One more field.
    EXPECT_EQ(set_fm_url("a\",\"more\":\"b"), 0);
    EXPECT_THAT(service.take(), ElementsAre("fm.url set value=\"a\" more=\"b\""));
    // An escape.
    EXPECT_EQ(set_fm_url("a\\u0062c"), 0);
    EXPECT_THAT(service.take(), ElementsAre("fm.url set value=\"abc\""));
    EXPECT_THAT(log_.take(), IsEmpty());
}

TEST_F(ByCommand, TheResultIsZeroWhateverTheCommandDid) {
    // No bus, no command, no shell.
    EXPECT_EQ(set_fm_action(5), 0);
    EXPECT_EQ(notify_fm_reload_wifi_cfg(), 0);
    const std::string path = getenv("PATH");
    setenv("PATH", "/nowhere", 1);
    EXPECT_EQ(set_fm_threshold(1, 2), 0);
    setenv("PATH", path.c_str(), 1);
    for (int i = 0; i < 3; i++) {
        const Fail fail("system", 1, EAGAIN);
        EXPECT_EQ(i == 0   ? set_fm_url("http://x")
                  : i == 1 ? notify_fm_reload_wifi_cfg()
                           : notify_fm_ism_upload("192.0.2.4", 69),
                  0);
        EXPECT_TRUE(fail.fired());
    }
    EXPECT_THAT(log_.take(), IsEmpty());
}

TEST_F(ByCommand, AMissingTextOrCauseIsRejected) {
    const ShellRecorder shell;
    expect_settings_to_need_their_texts();
    EXPECT_EQ(notify_fm_ism_upload(nullptr, 1), -1);
    rejected("notify_fm_ism_upload");
    EXPECT_EQ(notify_fm_ism_upload_fail(nullptr, 1, "cause", nullptr), -1);
    rejected("notify_fm_ism_upload_fail");
    EXPECT_EQ(notify_fm_ism_upload_fail("192.0.2.4", 1, nullptr, nullptr), -1);
    rejected("notify_fm_ism_upload_fail");
    EXPECT_EQ(notify_fm_ac_disconnect("192.0.2.4", 1, nullptr, nullptr), -1);
    rejected("notify_fm_ac_disconnect");
    EXPECT_THAT(ShellRecorder::take(), IsEmpty());
}

// The longest value for which the command has `size` bytes, and one byte more, for each call.
struct Bounded {
    const char* function;
    size_t size;
    std::function<int(const char*)> call;
};

const std::vector<Bounded>& bounded_calls() {
    static const std::vector<Bounded> kAll = {
        {"set_fm_url", 1023, set_fm_url},
        {"set_fm_suppress", 1023, set_fm_suppress},
        {"set_fm_wifi_down_cause", 1023,
         [](const char* value) { return set_fm_wifi_down_cause(1, 2, value, "b"); }},
        {"set_fm_wifi_down_cause", 1023,
         [](const char* value) { return set_fm_wifi_down_cause(1, 2, "a", value); }},
        {"notify_fm_ism_upload", 127,
         [](const char* value) { return notify_fm_ism_upload(value, 69); }},
        {"notify_fm_ism_upload_fail", 127,
         [](const char* value) { return notify_fm_ism_upload_fail(value, 69, "b", nullptr); }},
        {"notify_fm_ism_upload_fail", 127,
         [](const char* value) { return notify_fm_ism_upload_fail("a", 69, nullptr, value); }},
    };
    return kAll;
}

TEST_F(ByCommand, ACommandThatFitsIsRunWholeAndALongerOneNotAtAll) {
    const ShellRecorder shell;
    const UbusRecorder ubus;
    for (const Bounded& bounded : bounded_calls()) {
        SCOPED_TRACE(bounded.function);
        EXPECT_EQ(bounded.call(""), 0);
        const size_t room = bounded.size - ShellRecorder::take().at(0).size();
        const std::string refusal =
            "command of more than " + std::to_string(bounded.size) + " bytes\n";

        log_.take();
        EXPECT_EQ(bounded.call(std::string(room, 'v').c_str()), 0);
        const std::vector<std::string> commands = ShellRecorder::take();
        ASSERT_EQ(commands.size(), 1U);
        EXPECT_EQ(commands[0].size(), bounded.size);
        for (const tq_test::LogLine& line : log_.take())
            EXPECT_EQ(line.priority, LOG_DEBUG);

        // A quote takes four bytes, so that it makes a command too long three bytes earlier.
        EXPECT_EQ(bounded.call((std::string(room - 4, 'v') + "'").c_str()), 0);
        EXPECT_EQ(ShellRecorder::take().size(), 1U);
        log_.take();
        UbusRecorder::take();
        for (const std::string& value :
             {std::string(room + 1, 'v'), std::string(room - 3, 'v') + "'", std::string(room, '\''),
              std::string(1024, '\''), std::string(100000, 'v')}) {
            EXPECT_EQ(bounded.call(value.c_str()), 0);
            EXPECT_THAT(log_.take(), ElementsAre(Line(LOG_ERR, bounded.function, refusal)));
        }
        EXPECT_THAT(ShellRecorder::take(), IsEmpty());
        EXPECT_THAT(UbusRecorder::take(), IsEmpty());
    }
}

// Process numbers are given out one after the other, and nothing else runs on the device.
pid_t next_process() {
    const pid_t child = fork();
    if (child == 0) _exit(0);
    waitpid(child, nullptr, 0);
    return child;
}

template <typename Call>
pid_t processes_of(const Call& call) {
    const pid_t before = next_process();
    call();
    return next_process() - before;
}

std::string hostile_value(std::mt19937& random) {
    static const std::vector<std::string> kPieces = {"'",
                                                     "''",
                                                     "'\\''",
                                                     "\\'",
                                                     "\"",
                                                     "\\",
                                                     "`",
                                                     "$(",
                                                     ")",
                                                     ";",
                                                     "|",
                                                     "&",
                                                     "&&",
                                                     "||",
                                                     ">",
                                                     "<",
                                                     "\n",
                                                     "\r",
                                                     "\t",
                                                     " ",
                                                     "#",
                                                     "*",
                                                     "?",
                                                     "~",
                                                     "!",
                                                     "{",
                                                     "}",
                                                     "[",
                                                     "]",
                                                     "%s",
                                                     "%n",
                                                     "\x01",
                                                     "\x7f",
                                                     "\x80",
                                                     "\xff",
                                                     "=",
                                                     "/bin/touch /tmp/bad",
                                                     "';/bin/touch /tmp/bad;'",
                                                     "$(/bin/touch /tmp/bad)",
                                                     "`/bin/touch /tmp/bad`",
                                                     "\n/bin/touch /tmp/bad\n",
                                                     "'&'",
                                                     "'|/bin/touch /tmp/bad #",
                                                     "$'\\''",
                                                     "\\\n",
                                                     "<<X\n",
                                                     "x",
                                                     "url"};
    std::string value;
    for (size_t pieces = random() % 8; pieces > 0; pieces--)
        value += kPieces[random() % kPieces.size()];
    return value;
}

std::string cause_message(const std::string& status, const std::string& cause) {
    std::string message = R"({"raido":0,"wlan":1,"status":")";
    message.append(status).append(R"(","probable_cause":")").append(cause).append("\"}");
    return message;
}

TEST_F(ByCommand, NoValueEverStartsAnotherProcess) {
    const UbusRecorder ubus;
    std::mt19937 random = seeded(4);
    const pid_t harmless = processes_of([] { set_fm_url("http://192.0.2.3/"); });
    UbusRecorder::take();
    for (int round = 0; round < 100; round++) {
        const std::string value = hostile_value(random);
        SCOPED_TRACE(testing::PrintToString(value));
        ASSERT_EQ(processes_of([&value] { set_fm_url(value.c_str()); }), harmless);
        ASSERT_THAT(UbusRecorder::take(), ElementsAre("call", "fm.url", "set",
                                                      "{\"value\":\"" + value + "\"}", "quietly"));
        const std::string other = hostile_value(random);
        ASSERT_EQ(processes_of([&] { set_fm_wifi_down_cause(0, 1, value.c_str(), other.c_str()); }),
                  harmless);
        ASSERT_THAT(UbusRecorder::take(), ElementsAre("call", "fm.wifi_down.cause", "set",
                                                      cause_message(value, other), "quietly"));
    }
    for (int round = 0; round < 30; round++) {
        const std::string value = hostile_value(random).substr(0, 12);
        SCOPED_TRACE(testing::PrintToString(value));
        ASSERT_EQ(processes_of([&] { EXPECT_EQ(notify_fm_ism_upload(value.c_str(), 1), 0); }),
                  harmless);
        ASSERT_THAT(UbusRecorder::take(), ElementsAre("call", "fm.ism_server", "connect",
                                                      "{\"addr\":\"" + value + "\", \"port\":1}"));
    }
    EXPECT_FALSE(exists("/tmp/bad"));
}

}  // namespace
