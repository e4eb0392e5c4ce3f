// request_test.h - what the requests of a family over the bus have in common: how they fail, and
// how long they wait.
#pragma once

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <functional>
#include <string>
#include <vector>

#include "support/bus.h"
#include "support/bus_calls.h"
#include "support/device.h"
#include "support/log_capture.h"
#include "tq/bus.h"

namespace tq_test {

// A request, how it names itself where it fails, and where a test looks at it, what the object
// receives.
struct Request {
    std::string function;
    std::string object;
    std::string text;
    std::function<int()> call;
    std::string received = {};
};

class RequestTest : public DeviceTest {
  protected:
    void TearDown() override { destroy_ubus_client(); }

    // The request fails and says so, behind the bus where that has a cause to tell.
    void expect_failure(const Request& request, const std::string& cause = "") {
        std::vector<testing::Matcher<LogLine>> lines;
        if (!cause.empty()) lines.emplace_back(Line(LOG_ERR, "notify_ubus_server", cause));
        lines.emplace_back(Line(LOG_ERR, request.function, request.text));
        EXPECT_EQ(request.call(), -1);
        EXPECT_THAT(log_.take(), testing::ElementsAreArray(lines));
    }

    void expect_rejected(const std::string& function, const std::string& text) {
        EXPECT_THAT(log_.take(), testing::ElementsAre(Line(LOG_ERR, function, text)));
    }

    LogCapture log_;
};

// With a connection of the library's.
class ConnectedTest : public RequestTest {
  protected:
    void SetUp() override { ASSERT_EQ(init_ubus_client(), 0); }

    static void expect_to_wait_three_seconds(const Request& request) {
        const BusCalls watch;
        EXPECT_EQ(request.call(), 0);
        EXPECT_THAT(BusCalls::take(),
                    testing::Contains(testing::AllOf(testing::Field(&BusCall::name, "ubus_invoke"),
                                                     testing::Field(&BusCall::argument, 3000))))
            << request.function;
    }

    Broker broker_;
};

}  // namespace tq_test
