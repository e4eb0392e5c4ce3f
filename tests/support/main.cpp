// main.cpp - the main function of every test program.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <cstdio>
#include <cstring>

#include "support/device.h"

namespace {

bool only_lists(int argc, char** argv) {
    for (int i = 1; i < argc; ++i) {
        if (std::strcmp(argv[i], "--gtest_list_tests") == 0) return true;
    }
    return false;
}

}  // namespace

int main(int argc, char** argv) {
    const bool listing = only_lists(argc, argv);
    testing::InitGoogleMock(&argc, argv);
    if (!listing && !tq_test::exists("/run/tqdevice/ready")) {
        std::fputs(
            "These tests change the system they run on: run them in the simulated device "
            "(tqdevice).\n",
            stderr);
        return 125;
    }
    return RUN_ALL_TESTS();
}
