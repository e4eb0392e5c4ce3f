// process_table_test.h - the table of known processes, for tests that change it and send signals to
// processes of its names.
#pragma once

#include <gtest/gtest.h>
#include <unistd.h>

#include <algorithm>
#include <cstdint>
#include <span>
#include <vector>

#include "support/device.h"
#include "support/log_capture.h"
#include "tq/process.h"
#include "tq/syslog_config.h"

namespace tq_test {

constexpr int kReloadSignal = 49;
constexpr uint32_t kRoamd = 18;

inline std::span<syslog_process> table() {
    return {get_syslog_cfg(), static_cast<size_t>(get_process_count())};
}

// Leaves the table as it was.
class ProcessTableTest : public DeviceTest {
  protected:
    ProcessTableTest() : rows_(table().begin(), table().end()) {}
    ~ProcessTableTest() override {
        std::ranges::copy(rows_, get_syslog_cfg());
        syslog_cfg = nullptr;
    }

    void SetUp() override {
        // Signals are sent here: never outside the device.
        ASSERT_TRUE(exists("/run/tqdevice/ready"));
        ASSERT_LT(getpid(), 1000) << "not a process of a small device";
    }

    const std::vector<syslog_process> rows_;
    LogCapture log_;
};

}  // namespace tq_test
