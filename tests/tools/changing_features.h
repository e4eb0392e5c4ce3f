// changing_features.h - an interface of which the kernel always has something to tell.
#pragma once

#include <gtest/gtest.h>
#include <linux/ethtool.h>
#include <linux/sockios.h>
#include <net/if.h>
#include <sys/ioctl.h>
#include <sys/socket.h>
#include <unistd.h>

#include <atomic>
#include <cstdint>
#include <cstdio>
#include <thread>

#include "support/device.h"

namespace tq_test {

// An interface whose features change all the time, of which the group "monitor" of the family
// "ethtool" is told.
class ChangingFeatures {
  public:
    ChangingFeatures() {
        EXPECT_EQ(run_command("ip link add tq0 type veth peer name tq1").status, 0);
        thread_ = std::thread([this] {
            for (uint32_t on = 0; !ended_; on = !on) {
                switch_feature(on);
                usleep(1000);
            }
        });
    }
    ~ChangingFeatures() {
        ended_ = true;
        thread_.join();
        EXPECT_EQ(run_command("ip link del tq0").status, 0);
    }
    ChangingFeatures(const ChangingFeatures&) = delete;
    ChangingFeatures& operator=(const ChangingFeatures&) = delete;

  private:
    static void switch_feature(uint32_t on) {
        ethtool_value value = {.cmd = ETHTOOL_SGSO, .data = on};
        ifreq request{};
        snprintf(request.ifr_name, sizeof(request.ifr_name), "tq0");
        request.ifr_data = reinterpret_cast<char*>(&value);
        const int sock = socket(AF_INET, SOCK_DGRAM | SOCK_CLOEXEC, 0);
        ioctl(sock, SIOCETHTOOL, &request);
        close(sock);
    }

    std::atomic<bool> ended_ = false;
    std::thread thread_;
};

}  // namespace tq_test
