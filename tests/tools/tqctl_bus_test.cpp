// tqctl_bus_test.cpp - tqctl bus, fm, bw and flow: what services on the bus receive, what is
// printed of their replies, and the exit codes.
#include <gmock/gmock.h>

#include <csignal>
#include <string>
#include <vector>

#include "support/bus.h"
#include "tools/tqctl.h"

namespace {

using namespace tq_test;  // NOLINT(google-build-using-namespace)
using testing::ElementsAre;
using testing::HasSubstr;
using testing::IsEmpty;
using testing::MatchesRegex;

class TqctlBus : public DeviceTest {
  protected:
    Broker broker_;
};
class TqctlFm : public TqctlBus {};
class TqctlBw : public TqctlBus {};
class TqctlFlow : public TqctlBus {};
class TqctlWithoutBus : public DeviceTest {
  protected:
    TqctlWithoutBus() { stop_bus(); }
};

// bus call

TEST_F(TqctlBus, CallSendsItsFieldsInOrder) {
    BusService service({"some.object"});
    EXPECT_TRUE(
        succeeds(tqctl("bus call some.object set a=text b:=7 c:=-1 d:=4294967295 e= 'f=x=y' "
                       "'g=1 2' h:=-2147483648"),
                 ""));
    EXPECT_THAT(service.take(),
                ElementsAre("some.object set a=\"text\" b=7 c=4294967295 d=4294967295 e=\"\" "
                            "f=\"x=y\" g=\"1 2\" h=2147483648"));
    EXPECT_TRUE(succeeds(tqctl("bus call some.object reload"), ""));
    EXPECT_THAT(service.take(), ElementsAre("some.object reload"));
    EXPECT_TRUE(succeeds(tqctl("-j bus call some.object reload"), "{}\n"));
}

TEST_F(TqctlBus, CallPrintsTheReply) {
    BusService service(
        {"object=int:number:17,str:text:two words,byte:flag:1,int:negative:4294967295"});
    EXPECT_TRUE(succeeds(tqctl("bus call object get"),
                         "number=17\ntext=two words\nflag=true\nnegative=-1\n"));
    EXPECT_TRUE(succeeds(tqctl("-j bus call object get"),
                         "{\"number\":17,\"text\":\"two words\",\"flag\":true,\"negative\":-1}\n"));
}

TEST_F(TqctlBus, CallPrintsNestedValuesAsJson) {
    // A table "t" with an integer "n" of 5 and an array "a" with the text "x".
    BusService service(
        {"object=raw:82000028000174008500000c00016e0000000005"
         "81000014000161008300000a0000000078000000"});
    EXPECT_TRUE(succeeds(tqctl("bus call object get"), "t={\"n\":5,\"a\":[\"x\"]}\n"));
    EXPECT_TRUE(succeeds(tqctl("-j bus call object get"), "{\"t\":{\"n\":5,\"a\":[\"x\"]}}\n"));
}

TEST_F(TqctlBus, CallSurvivesARecursiveReply) {
    std::string hex;
    constexpr size_t kDepth = 2000;
    for (size_t i = kDepth; i > 0; i--) {
        char head[24];
        snprintf(head, sizeof(head), "82%06zx00016100", i * 8);
        hex += head;
    }
    BusService service({"object=raw:" + hex});
    const CommandResult result = tqctl("-j bus call object get");
    EXPECT_EQ(result.status, kDone);
    EXPECT_NE(parse(result.out), nullptr);
}

TEST_F(TqctlBus, CallMakesValidJsonOfAnyBytes) {
    // The text \xff\xfe under the key \x80.
    BusService service({"object=raw:8300000c000180000000fffe00"});
    const CommandResult result = tqctl("-j bus call object get");
    EXPECT_EQ(result.status, kDone);
    EXPECT_NE(parse(result.out), nullptr);
}

TEST_F(TqctlBus, CallMakesValidJsonOfAnyNumber) {
    // Three doubles: 2.5, what is no number, and infinity. A field without a value is left out.
    BusService service(
        {"object=raw:88000010000161004004000000000000"
         "88000010000162007ff8000000000000"
         "88000010000163007ff0000000000000"});
    EXPECT_TRUE(succeeds(tqctl("-j bus call object get"), "{\"a\":2.5}\n"));
}

TEST_F(TqctlBus, CallTellsFailuresApart) {
    BusService service({"missing=status:4", "denied=status:6", "late=status:7", "lost=status:10",
                        "damaged=status:12", "own=status:99"});
    EXPECT_TRUE(fails(tqctl("bus call no.object get"), kRefused, "no.object"));
    EXPECT_TRUE(fails(tqctl("bus call own no_method"), kRefused, "own: Method not found"));
    EXPECT_TRUE(fails(tqctl("bus call missing get"), kRefused, "missing: Not found"));
    EXPECT_TRUE(fails(tqctl("bus call own get"), kRefused, "own: "));
    EXPECT_TRUE(fails(tqctl("bus call denied get"), kNotPermitted, "denied: Permission denied"));
    EXPECT_TRUE(fails(tqctl("bus call late get"), kBusy, "late: Request timed out"));
    EXPECT_TRUE(fails(tqctl("bus call lost get"), kInputOutput, "lost: Connection failed"));
    EXPECT_TRUE(fails(tqctl("bus call damaged get"), kDamaged, "damaged: "));
}

TEST_F(TqctlBus, CallPrintsWhatCameBeforeTheFailure) {
    BusService service({"object=int:number:17,status:6"});
    const CommandResult result = tqctl("bus call object get");
    EXPECT_EQ(result.status, kNotPermitted);
    EXPECT_EQ(result.out, "number=17\n");
}

TEST_F(TqctlBus, CallRefusesMisspelledFields) {
    BusService service({"object"});
    for (const char* field : {"plain", "=text", ":=7", "a:=", "a:=x", "a:=4294967296",
                              "a:=-2147483649", "a:=1x", "'a:= 1'", "a:=0x1"}) {
        SCOPED_TRACE(field);
        EXPECT_TRUE(fails(tqctl(std::string("bus call object set ") + field), kUsage, "usage: "));
    }
    EXPECT_TRUE(fails(tqctl("bus call object set " + std::string(1024, 'k') + "=v"), kUsage,
                      "the key is too long"));
    EXPECT_TRUE(succeeds(tqctl("bus call object set " + std::string(1023, 'k') + "=v"), ""));
    EXPECT_THAT(service.take(), testing::SizeIs(1));
    EXPECT_TRUE(fails(tqctl("bus call object"), kUsage, "usage: "));
}

// bus list

TEST_F(TqctlBus, ListPrintsThePaths) {
    EXPECT_TRUE(succeeds(tqctl("bus list"), ""));
    EXPECT_TRUE(succeeds(tqctl("-j bus list"), "[]\n"));
    BusService service({"fm.url", "fm.ac", "other"});
    EXPECT_TRUE(succeeds(tqctl("bus list"), "fm.ac\nfm.url\nother\n"));
    EXPECT_TRUE(succeeds(tqctl("bus list 'fm.*'"), "fm.ac\nfm.url\n"));
    EXPECT_TRUE(succeeds(tqctl("bus list other"), "other\n"));
    EXPECT_TRUE(succeeds(tqctl("-j bus list 'fm.*'"), "[\"fm.ac\",\"fm.url\"]\n"));
    EXPECT_TRUE(fails(tqctl("bus list nothing"), kRefused, "nothing: Not found"));
}

// bus ping

TEST_F(TqctlBus, PingTellsWhoAnswers) {
    BusService service({"object", "late=silent"});
    EXPECT_THAT(tqctl("bus ping").out, MatchesRegex("[0-9]+\n"));
    EXPECT_EQ(tqctl("bus ping").status, kDone);
    EXPECT_THAT(tqctl("bus ping object").out, MatchesRegex("[0-9]+\n"));
    EXPECT_THAT(tqctl("-j bus ping object").out, MatchesRegex("\\{\"microseconds\":[0-9]+\\}\n"));
    EXPECT_TRUE(fails(tqctl("bus ping nobody"), kRefused, "nobody"));
    // Answered by the service itself, without a call of its methods.
    EXPECT_THAT(service.take(), IsEmpty());
}

TEST_F(TqctlBus, PingWaitsForAServiceThatHangs) {
    BusService service({"object"});
    service.signal(SIGSTOP);
    EXPECT_TRUE(fails(tqctl("bus ping object"), kBusy, "object: Request timed out"));
}

// fm

TEST_F(TqctlFm, NotifySendsTheEvents) {
    BusService service({"fm.ac", "fm.ntp", "fm.ism_server", "fm.reload.wifi"});
    const std::string a = " 192.0.2.1 5246";
    EXPECT_TRUE(succeeds(tqctl("fm notify ac-disconnect" + a + " probable_cause=timeout"), ""));
    EXPECT_TRUE(succeeds(tqctl("fm notify ac-connect" + a), ""));
    EXPECT_TRUE(succeeds(tqctl("fm notify ntp-disconnect" + a + " 'specific_cause=a b'"), ""));
    EXPECT_TRUE(succeeds(tqctl("fm notify ntp-connect" + a), ""));
    EXPECT_TRUE(succeeds(tqctl("fm notify ism-upload-fail" + a + " probable_cause="), ""));
    EXPECT_TRUE(succeeds(tqctl("fm notify ism-upload" + a), ""));
    EXPECT_TRUE(succeeds(tqctl("fm notify reload-wifi"), ""));
    const std::string fields = " addr=\"192.0.2.1\" port=5246";
    EXPECT_THAT(service.take(),
                ElementsAre("fm.ac disconnect" + fields + " probable_cause=\"timeout\"",
                            "fm.ac connect" + fields,
                            "fm.ntp disconnect" + fields + " specific_cause=\"a b\"",
                            "fm.ntp connect" + fields,
                            "fm.ism_server disconnect" + fields + " probable_cause=\"\"",
                            "fm.ism_server connect" + fields, "fm.reload.wifi reload"));
}

TEST_F(TqctlFm, TellsOfAnUploadNoticeThatIsTooLong) {
    BusService service({"fm.ism_server"});
    const CommandResult result = tqctl("fm notify ism-upload " + std::string(100, 'a') + " 69");
    EXPECT_EQ(result.status, kDone);
    EXPECT_THAT(result.err, HasSubstr("command of more than 127 bytes"));
    EXPECT_THAT(service.take(), IsEmpty());
}

TEST_F(TqctlFm, SetChangesTheSettings) {
    BusService service(
        {"fm.action", "fm.url", "fm.threshold", "fm.suppress", "fm.wifi_down.cause"});
    EXPECT_TRUE(succeeds(tqctl("fm set action 5"), ""));
    EXPECT_TRUE(succeeds(tqctl("fm set url 'http://192.0.2.3/a b'"), ""));
    EXPECT_TRUE(succeeds(tqctl("fm set threshold 7 -1"), ""));
    EXPECT_TRUE(succeeds(tqctl("fm set suppress on"), ""));
    EXPECT_TRUE(succeeds(tqctl("-j fm set wifi-down-cause 0 1 down radar"), "{}\n"));
    EXPECT_THAT(
        service.take(),
        ElementsAre("fm.action set value=5", "fm.url set fm.url=\"http://192.0.2.3/a b\"",
                    "fm.threshold set id=7 value=4294967295", "fm.suppress set fm.suppress=\"on\"",
                    "fm.wifi_down.cause set raido=0 wlan=1 status=\"down\" "
                    "probable_cause=\"radar\""));
}

TEST_F(TqctlFm, RefusesWhatItDoesNotKnow) {
    for (const char* arguments :
         {"notify", "notify nothing", "notify ac-connect", "notify ac-connect a x",
          "notify ac-connect a 0", "notify ism-upload a 65536", "notify ac-connect a 1 2",
          "notify ac-disconnect a 1", "notify ac-disconnect a 1 cause",
          "notify ac-disconnect a x probable_cause=c", "notify reload-wifi now", "set action",
          "set nothing 1", "set action x", "set action 2147483648", "set action 1 2",
          "set threshold 1", "set threshold 1 x", "set wifi-down-cause 1 2 3"}) {
        SCOPED_TRACE(arguments);
        EXPECT_TRUE(fails(tqctl(std::string("fm ") + arguments), kUsage, "usage: "));
    }
}

TEST_F(TqctlFm, TellsOfARefusal) {
    EXPECT_TRUE(fails(tqctl("fm set action 5"), kRefused, "Failed to look up fm.action object"));
    EXPECT_TRUE(fails(tqctl("fm notify ac-connect a 1"), kRefused, "did not do it"));
    EXPECT_TRUE(fails(tqctl("fm notify reload-wifi"), kRefused, "METHOD_RELOAD"));
    EXPECT_TRUE(fails(tqctl("fm notify ac-disconnect a 1 probable_cause=c"), kRefused,
                      "METHOD_DISCONNECT"));
}

// bw

// Requests as the command line spells them.
const std::vector<std::string>& requests() {
    static const std::vector<std::string> kAll = {
        "set ssid ath0 512 1024",
        "set user 'a b' 0 4294967295",
        "set station ath0 00:1A:2b:3C:4d:5E 1 0",
        "set max-stations ath0 64",
        "set ssid ath0 0 0",
        "set station ath0 00:1A:2b:3C:4d:5E 0 0",
        "del ssid ath0",
        "del user ath0",
        "del station ath0 ff:ff:ff:ff:ff:ff",
        "save",
        "reload",
    };
    return kAll;
}

TEST_F(TqctlBw, SendsTheRequests) {
    BusService service({"bwctrl", "bwctrl.maxassoc"});
    for (const std::string& request : requests())
        EXPECT_TRUE(succeeds(tqctl("bw " + request), ""));
    const std::string station = " class_type=2 vap_name=\"ath0\" macaddr=";
    EXPECT_THAT(service.take(),
                ElementsAre("bwctrl set class_type=0 vap_name=\"ath0\" up=512 down=1024",
                            "bwctrl set class_type=1 vap_name=\"a b\" up=0 down=4294967295",
                            "bwctrl set" + station + "\"00:1a:2b:3c:4d:5e\" up=1 down=0",
                            "bwctrl.maxassoc set vap_name=\"ath0\" maxassoc=64",
                            "bwctrl del class_type=0 vap_name=\"ath0\"",
                            "bwctrl del" + station + "\"00:1a:2b:3c:4d:5e\"",
                            "bwctrl del class_type=0 vap_name=\"ath0\"",
                            "bwctrl del class_type=1 vap_name=\"ath0\"",
                            "bwctrl del" + station + "\"ff:ff:ff:ff:ff:ff\"",
                            "bwctrl set class_type=4", "bwctrl reload"));
}

// What the service records of the request that was shown: its texts have quotes there.
std::string as_recorded(const std::string& shown) {
    std::string line;
    std::istringstream fields(shown);
    for (std::string field; std::getline(fields, field);) {
        const size_t equals = field.find('=');
        const std::string key = field.substr(0, equals);
        const std::string value = field.substr(equals + 1);
        const bool is_text = key == "vap_name" || key == "macaddr";
        if (key != "object") line.append(" ");
        if (key != "object" && key != "method") line.append(key).append("=");
        line.append(is_text ? "\"" : "").append(value).append(is_text ? "\"" : "");
    }
    return line;
}

TEST_F(TqctlBw, ShowsTheRequestThatItWouldSend) {
    BusService service({"bwctrl", "bwctrl.maxassoc"});
    for (const std::string& request : requests()) {
        SCOPED_TRACE(request);
        const CommandResult shown = tqctl("bw show-request " + request);
        EXPECT_EQ(shown.status, kDone);
        EXPECT_THAT(service.take(), IsEmpty());
        ASSERT_EQ(tqctl("bw " + request).status, kDone);
        EXPECT_THAT(service.take(), ElementsAre(as_recorded(shown.out)));
    }
    EXPECT_TRUE(succeeds(tqctl("-j bw show-request set ssid ath0 512 4294967295"),
                         "{\"object\":\"bwctrl\",\"method\":\"set\",\"message\":{\"class_type\":0,"
                         "\"vap_name\":\"ath0\",\"up\":512,\"down\":4294967295}}\n"));
    EXPECT_TRUE(succeeds(tqctl("-j bw show-request reload"),
                         "{\"object\":\"bwctrl\",\"method\":\"reload\",\"message\":{}}\n"));
}

TEST_F(TqctlBw, RefusesMisspelledRequests) {
    BusService service({"bwctrl", "bwctrl.maxassoc"});
    for (const char* arguments : {"set ssid ath0",
                                  "set ssid ath0 1",
                                  "set ssid ath0 1 2 3",
                                  "set ssid ath0 -1 2",
                                  "set ssid ath0 1 x",
                                  "set ssid ath0 4294967296 1",
                                  "set nothing ath0 1 2",
                                  "set station ath0 1 2",
                                  "set station ath0 00:1a:2b:3c:4d 1 2",
                                  "set station ath0 00:1a:2b:3c:4d:5e:6f 1 2",
                                  "set station ath0 00:1a:2b:3c:4d:5g 1 2",
                                  "set station ath0 0:1a:2b:3c:4d:5e 1 2",
                                  "set station ath0 00:1a:2b:3c:4d:5e 1",
                                  "set max-stations ath0 1 2",
                                  "del ssid",
                                  "del ssid ath0 1",
                                  "del max-stations ath0",
                                  "del station ath0",
                                  "del station ath0 00:1a:2b:3c:4d:5e 1",
                                  "save now",
                                  "reload now",
                                  "show-request",
                                  "show-request nothing",
                                  "show-request save now",
                                  "show-request set ssid",
                                  "show-request set",
                                  "show-request del max-stations ath0"}) {
        SCOPED_TRACE(arguments);
        EXPECT_TRUE(fails(tqctl(std::string("bw ") + arguments), kUsage, "usage: "));
    }
    EXPECT_THAT(service.take(), IsEmpty());
}

TEST_F(TqctlBw, TellsOfARefusal) {
    EXPECT_TRUE(fails(tqctl("bw save"), kRefused, "Failed to look up bwctrl object"));
    BusService service({"bwctrl=status:2"});
    EXPECT_TRUE(fails(tqctl("bw set ssid ath0 1 2"), kRefused, "METHOD_SET, param1) fail"));
}

// flow

TEST_F(TqctlFlow, ShowsBothDirections) {
    BusService service({"statistics=int:ifInFlow:4294967295,int:ifOutFlow:0"});
    EXPECT_TRUE(succeeds(tqctl("flow show 2"), "in=4294967295\nout=0\n"));
    EXPECT_THAT(tqctl("-j flow show 2").out, testing::StartsWith("{\"in\":"));
    EXPECT_THAT(service.take(), testing::Contains("statistics get class_type=1 index=2"));
}

TEST_F(TqctlFlow, LeavesOutWhatTheReplyLacks) {
    {
        BusService service({"statistics=int:ifOutFlow:7"});
        EXPECT_TRUE(succeeds(tqctl("flow show 2"), "out=7\n"));
    }
    BusService service({"statistics"});
    EXPECT_TRUE(fails(tqctl("flow show 2"), kRefused, "no such number"));
}

TEST_F(TqctlFlow, TellsOfFailures) {
    EXPECT_TRUE(fails(tqctl("flow show 2"), kRefused, "Failed to look up statistics object"));
    EXPECT_TRUE(fails(tqctl("flow show x"), kUsage, "usage: "));
    EXPECT_TRUE(fails(tqctl("flow show -1"), kUsage, "usage: "));
    EXPECT_TRUE(fails(tqctl("flow show"), kUsage, "usage: "));
}

// Without a bus

TEST_F(TqctlWithoutBus, SaysSo) {
    for (const char* arguments :
         {"bus call object get", "bus list", "bus ping", "bus ping object", "fm set action 5",
          "fm notify ac-connect a 1", "fm notify ac-disconnect a 1 probable_cause=c",
          "fm notify reload-wifi", "fm notify ism-upload a 1", "bw save", "bw set ssid ath0 1 2",
          "flow show 2"}) {
        SCOPED_TRACE(arguments);
        EXPECT_TRUE(fails(tqctl(arguments), kInputOutput, "there is no connection to the bus"));
    }
    EXPECT_EQ(tqctl("bw show-request save").status, kDone);
}

}  // namespace
