// socket_number_test.cpp - the counters in the names of client sockets, beyond what a test could
// count up to.
#include "eloop/socket_number.h"

#include <gtest/gtest.h>

#include <set>
#include <thread>
#include <utility>
#include <vector>

namespace {

using Pair = std::pair<uint32_t, uint32_t>;

Pair next(tq::SocketNumber& number) {
    const auto [high, low] = number.next();
    return {high, low};
}

TEST(SocketNumber, BeginsWithZeroOne) {
    tq::SocketNumber number;
    EXPECT_EQ(next(number), Pair(0, 1));
    EXPECT_EQ(next(number), Pair(0, 2));
}

TEST(SocketNumber, LowRestartsAtZeroAndHighGoesOneOn) {
    tq::SocketNumber number(0, UINT32_MAX - 1);
    EXPECT_EQ(next(number), Pair(0, UINT32_MAX));
    EXPECT_EQ(next(number), Pair(1, 0));
    EXPECT_EQ(next(number), Pair(1, 1));
}

TEST(SocketNumber, HighWrapsToo) {
    tq::SocketNumber number(UINT32_MAX, UINT32_MAX);
    EXPECT_EQ(next(number), Pair(0, 0));
}

TEST(SocketNumber, IsAnotherOneInEachThread) {
    tq::SocketNumber number;
    std::vector<std::vector<Pair>> seen(4);
    std::vector<std::thread> threads;
    threads.reserve(seen.size());
    for (auto& mine : seen) {
        threads.emplace_back([&] {
            for (int i = 0; i < 1000; i++)
                mine.push_back(next(number));
        });
    }
    for (std::thread& thread : threads)
        thread.join();
    std::set<Pair> distinct;
    for (const auto& mine : seen)
        distinct.insert(mine.begin(), mine.end());
    EXPECT_EQ(distinct.size(), 4000U);
}

}  // namespace
