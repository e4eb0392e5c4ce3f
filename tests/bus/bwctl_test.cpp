// bwctl_test.cpp - the requests to the bandwidth control and the statistics service, as a service
// on the bus receives them and as it answers them.
#include "tq/bwctl.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <functional>
#include <string>
#include <vector>

#include "bus/request_test.h"
#include "support/bus.h"
#include "support/bus_calls.h"
#include "support/log_capture.h"

namespace {

using testing::AllOf;
using testing::Contains;
using testing::ElementsAre;
using testing::Field;
using testing::IsEmpty;
using tq_test::BusCall;
using tq_test::BusCalls;
using tq_test::BusService;
using tq_test::Line;
using tq_test::Request;

constexpr unsigned char kMac[6] = {0x00, 0x1A, 0x2B, 0x3C, 0x4D, 0x5E};

uint32_t number;

const std::vector<Request>& all_requests() {
    static const std::vector<Request> kAll = {
        {"set_ssid_bwctl", "bwctrl", "send_ubus_msg(BWCTRL, METHOD_SET, param1) fail\n",
         [] { return set_ssid_bwctl("ath0", 1, 2); }},
        {"set_ssid_bwctl", "bwctrl", "send_ubus_msg(BWCTRL, METHOD_DEL, param1) fail\n",
         [] { return set_ssid_bwctl("ath0", 0, 0); }},
        {"set_user_bwctl", "bwctrl", "send_ubus_msg(BWCTRL, METHOD_SET, param2) fail\n",
         [] { return set_user_bwctl("ath0", 1, 2); }},
        {"set_user_bwctl", "bwctrl", "send_ubus_msg(BWCTRL, METHOD_DEL, param2) fail\n",
         [] { return set_user_bwctl("ath0", 0, 0); }},
        {"set_sta_bwctl", "bwctrl", "send_ubus_msg(BWCTRL, METHOD_SET, param) fail\n",
         [] { return set_sta_bwctl("ath0", 1, 2, kMac); }},
        {"set_sta_bwctl", "bwctrl", "send_ubus_msg(BWCTRL, METHOD_DEL, param) fail\n",
         [] { return set_sta_bwctl("ath0", 0, 0, kMac); }},
        {"set_max_sta_bwctl", "bwctrl.maxassoc",
         "send_ubus_msg(BWCTRL_MAX_STA, METHOD_SET, param) fail\n",
         [] { return set_max_sta_bwctl("ath0", 5); }},
        {"set_config_save_bwctl", "bwctrl", "send_ubus_msg(BWCTRL, METHOD_SET, param) fail\n",
         [] { return set_config_save_bwctl(); }},
        {"reload_bwctl", "bwctrl", "send_ubus_msg(BWCTRL, METHOD_RELOAD, NULL) fail\n",
         [] { return reload_bwctl(); }},
        {"tq_get_in_flow_statistics", "statistics",
         "notify_ubus_server(STATISTICS, METHOD_GET, param, get_in_flow_statistics, flow, "
         "3 * 1000) fail\n",
         [] { return tq_get_in_flow_statistics(2, &number); }},
        {"tq_get_out_flow_statistics", "statistics",
         "notify_ubus_server(STATISTICS, METHOD_GET, param, get_out_flow_statistics, flow, "
         "3 * 1000) fail\n",
         [] { return tq_get_out_flow_statistics(2, &number); }},
        {"tq_get_mem_usage", "statistics",
         "notify_ubus_server(STATISTICS, METHOD_GET, param, get_mem_usage, usage, 3 * 1000) fail\n",
         [] { return tq_get_mem_usage(&number); }},
        {"tq_get_cpu_usage", "statistics",
         "notify_ubus_server(STATISTICS, METHOD_GET, param, get_cpu_usage, usage, 3 * 1000) fail\n",
         [] { return tq_get_cpu_usage(&number); }},
        {"tq_get_cpu_cur_usage", "statistics",
         "notify_ubus_server(STATISTICS, METHOD_GET, param, get_cpu_cur_usage, usage, 3 * 1000) "
         "fail\n",
         [] { return tq_get_cpu_cur_usage(&number); }},
    };
    return kAll;
}

// The getters, with the key that each takes from a reply.
struct Getter {
    std::string key;
    std::string received;
    std::function<int(uint32_t*)> call;
};

const std::vector<Getter>& getters() {
    static const std::vector<Getter> kAll = {
        {"ifInFlow", "statistics get class_type=0 index=3",
         [](uint32_t* value) { return tq_get_in_flow_statistics(3, value); }},
        {"ifOutFlow", "statistics get class_type=1 index=3",
         [](uint32_t* value) { return tq_get_out_flow_statistics(3, value); }},
        {"memoryUsage", "statistics get class_type=2", tq_get_mem_usage},
        {"cpuUsage", "statistics get class_type=3", tq_get_cpu_usage},
        {"cpuCurUsage", "statistics get class_type=4", tq_get_cpu_cur_usage},
    };
    return kAll;
}

using BwctlTest = tq_test::RequestTest;
using Connected = tq_test::ConnectedTest;
class Limits : public Connected {};
class Statistics : public Connected {};

// The limits

TEST_F(Limits, OfAnSsidAreSetAndRemoved) {
    BusService service({"bwctrl"});
    EXPECT_EQ(set_ssid_bwctl("ath0", 1000, 2000), 0);
    EXPECT_EQ(set_ssid_bwctl("ath1", 0, 4294967295U), 0);
    EXPECT_EQ(set_ssid_bwctl("ath2", 1, 0), 0);
    EXPECT_EQ(set_ssid_bwctl("ath3", 0, 0), 0);
    EXPECT_THAT(service.take(),
                ElementsAre("bwctrl set class_type=0 vap_name=\"ath0\" up=1000 down=2000",
                            "bwctrl set class_type=0 vap_name=\"ath1\" up=0 down=4294967295",
                            "bwctrl set class_type=0 vap_name=\"ath2\" up=1 down=0",
                            "bwctrl del class_type=0 vap_name=\"ath3\""));
    EXPECT_THAT(log_.take(), IsEmpty());
}

TEST_F(Limits, OfAUserAreSetAndRemoved) {
    BusService service({"bwctrl"});
    EXPECT_EQ(set_user_bwctl("ath0", 2147483648U, 2), 0);
    EXPECT_EQ(set_user_bwctl("", 0, 0), 0);
    EXPECT_THAT(service.take(),
                ElementsAre("bwctrl set class_type=1 vap_name=\"ath0\" up=2147483648 down=2",
                            "bwctrl del class_type=1 vap_name=\"\""));
    EXPECT_THAT(log_.take(), IsEmpty());
}

TEST_F(Limits, OfAStationNameItInLowerCase) {
    BusService service({"bwctrl"});
    EXPECT_EQ(set_sta_bwctl("ath0", 1, 2, kMac), 0);
    EXPECT_EQ(set_sta_bwctl("ath0", 0, 0, kMac), 0);
    constexpr unsigned char kHigh[6] = {0xff, 0xFE, 0x80, 0x01, 0x00, 0xa0};
    EXPECT_EQ(set_sta_bwctl("ath0", 0, 3, kHigh), 0);
    EXPECT_THAT(
        service.take(),
        ElementsAre(
            "bwctrl set class_type=2 vap_name=\"ath0\" macaddr=\"00:1a:2b:3c:4d:5e\" up=1 down=2",
            "bwctrl del class_type=2 vap_name=\"ath0\" macaddr=\"00:1a:2b:3c:4d:5e\"",
            "bwctrl set class_type=2 vap_name=\"ath0\" macaddr=\"ff:fe:80:01:00:a0\" up=0 down=3"));
    EXPECT_THAT(log_.take(), IsEmpty());
}

TEST_F(Limits, OfAVapCountItsStations) {
    BusService service({"bwctrl.maxassoc", "bwctrl"});
    EXPECT_EQ(set_max_sta_bwctl("ath0", 64), 0);
    EXPECT_EQ(set_max_sta_bwctl("ath0", 0), 0);
    EXPECT_THAT(service.take(), ElementsAre("bwctrl.maxassoc set vap_name=\"ath0\" maxassoc=64",
                                            "bwctrl.maxassoc set vap_name=\"ath0\" maxassoc=0"));
    EXPECT_THAT(log_.take(), IsEmpty());
}

TEST_F(Limits, AreSavedAndReloaded) {
    BusService service({"bwctrl"});
    EXPECT_EQ(set_config_save_bwctl(), 0);
    EXPECT_EQ(reload_bwctl(), 0);
    EXPECT_THAT(service.take(), ElementsAre("bwctrl set class_type=4", "bwctrl reload"));
    EXPECT_THAT(log_.take(), IsEmpty());
}

TEST_F(Limits, NeedAVapAndAStation) {
    BusService service({"bwctrl", "bwctrl.maxassoc"});
    const auto rejected = [this](const char* function) {
        expect_rejected(function, "invalid parameters\n");
    };
    EXPECT_EQ(set_ssid_bwctl(nullptr, 1, 2), -1);
    rejected("set_ssid_bwctl");
    EXPECT_EQ(set_user_bwctl(nullptr, 0, 0), -1);
    rejected("set_user_bwctl");
    EXPECT_EQ(set_sta_bwctl(nullptr, 1, 2, kMac), -1);
    rejected("set_sta_bwctl");
    EXPECT_EQ(set_sta_bwctl("ath0", 1, 2, nullptr), -1);
    rejected("set_sta_bwctl");
    EXPECT_EQ(set_max_sta_bwctl(nullptr, 1), -1);
    rejected("set_max_sta_bwctl");
    EXPECT_THAT(service.take(), IsEmpty());
}

// The numbers

TEST_F(Statistics, AreAskedForByTheirClass) {
    BusService service({"statistics"});
    for (const Getter& getter : getters()) {
        uint32_t value = 0;
        EXPECT_EQ(getter.call(&value), 0);
        EXPECT_THAT(service.take(), ElementsAre(getter.received));
    }
    EXPECT_EQ(tq_get_in_flow_statistics(0, &number), 0);
    EXPECT_EQ(tq_get_out_flow_statistics(4294967295U, &number), 0);
    EXPECT_THAT(service.take(), ElementsAre("statistics get class_type=0 index=0",
                                            "statistics get class_type=1 index=4294967295"));
}

TEST_F(Statistics, AreTakenFromTheirKeyAlone) {
    // Each getter finds its own number among all of them.
    BusService service(
        {"statistics=int:cpuCurUsage:5,int:cpuUsage:4,int:memoryUsage:3,int:ifOutFlow:2,"
         "int:ifInFlow:4026531841"});
    std::vector<uint32_t> values;
    for (const Getter& getter : getters()) {
        uint32_t value = 0;
        EXPECT_EQ(getter.call(&value), 0);
        values.push_back(value);
    }
    EXPECT_THAT(values, ElementsAre(4026531841U, 2U, 3U, 4U, 5U));
    EXPECT_THAT(log_.take(), IsEmpty());
}

TEST_F(Statistics, AreTheRequestsPrivateData) {
    BusService service({"statistics"});
    for (const Getter& getter : getters()) {
        const BusCalls watch;
        EXPECT_EQ(getter.call(&number), 0);
        EXPECT_THAT(BusCalls::take(), Contains(AllOf(Field(&BusCall::name, "ubus_invoke"),
                                                     Field(&BusCall::priv, &number))));
    }
}

TEST_F(Statistics, AreLeftAsTheyWereByAReplyWithoutTheKey) {
    for (const Getter& getter : getters()) {
        SCOPED_TRACE(getter.key);
        std::string others = "statistics=";
        for (const Getter& other : getters()) {
            if (other.key != getter.key) others += "int:" + other.key + ":7,";
        }
        for (const std::string& reply :
             {std::string("statistics"), others + "int:other:7",
              "statistics=str:" + getter.key + ":7", "statistics=byte:" + getter.key + ":7",
              std::string("statistics=raw:85000020000569664900")}) {
            BusService service({reply});
            uint32_t value = 1234;
            EXPECT_EQ(getter.call(&value), 0) << reply;
            EXPECT_EQ(value, 1234U) << reply;
        }
    }
    EXPECT_THAT(log_.take(), IsEmpty());
}

TEST_F(Statistics, AreNotTakenAfterAReplyWithoutTheKey) {
    // The first part of the reply has let go of the caller's variable.
    BusService service({"statistics=int:other:1,again,int:cpuUsage:7"});
    uint32_t value = 1234;
    EXPECT_EQ(tq_get_cpu_usage(&value), 0);
    EXPECT_EQ(value, 1234U);
}

TEST_F(Statistics, AreTakenFromAServiceThatFailsBehindThem) {
    BusService service({"statistics=int:cpuUsage:7,status:2"});
    uint32_t value = 1234;
    EXPECT_EQ(tq_get_cpu_usage(&value), -1);
    EXPECT_EQ(value, 7U);
}

TEST_F(Statistics, NeedAPlaceForTheNumber) {
    BusService service({"statistics=int:cpuUsage:7"});
    const auto rejected = [this](const char* function) {
        expect_rejected(function, "invalid parameters\n");
    };
    EXPECT_EQ(tq_get_in_flow_statistics(1, nullptr), -1);
    rejected("tq_get_in_flow_statistics");
    EXPECT_EQ(tq_get_out_flow_statistics(1, nullptr), -1);
    rejected("tq_get_out_flow_statistics");
    EXPECT_EQ(tq_get_mem_usage(nullptr), -1);
    rejected("tq_get_mem_usage");
    EXPECT_EQ(tq_get_cpu_usage(nullptr), -1);
    rejected("tq_get_cpu_usage");
    EXPECT_EQ(tq_get_cpu_cur_usage(nullptr), -1);
    rejected("tq_get_cpu_cur_usage");
    EXPECT_THAT(service.take(), IsEmpty());
}

// Failures of all of them.

TEST_F(BwctlTest, FailsWithoutAConnection) {
    for (const Request& request : all_requests())
        expect_failure(request, "ubus client should be initialized\n");
}

TEST_F(Connected, FailsWithoutTheService) {
    for (const Request& request : all_requests())
        expect_failure(request, "Failed to look up " + request.object + " object\n\n");
}

TEST_F(Connected, FailsWhereTheServiceRefuses) {
    BusService service({"bwctrl=status:2", "bwctrl.maxassoc=status:2", "statistics=status:2"});
    for (const Request& request : all_requests())
        expect_failure(request);
}

TEST_F(Connected, WaitsThreeSecondsForEachAnswer) {
    BusService service({"bwctrl", "bwctrl.maxassoc", "statistics"});
    for (const Request& request : all_requests())
        expect_to_wait_three_seconds(request);
}

// The one test that waits for it.
TEST_F(Connected, FailsWhereTheServiceDoesNotAnswer) {
    BusService service({"statistics=silent"});
    uint32_t value = 1234;
    EXPECT_EQ(tq_get_mem_usage(&value), -1);
    EXPECT_EQ(value, 1234U);
    EXPECT_THAT(log_.take(),
                ElementsAre(Line(LOG_ERR, "tq_get_mem_usage",
                                 "notify_ubus_server(STATISTICS, METHOD_GET, param, get_mem_usage, "
                                 "usage, 3 * 1000) fail\n")));
}

}  // namespace
