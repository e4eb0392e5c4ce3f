// random.h - random numbers that are the same in each run.
#pragma once

#include <random>

namespace tq_test {

// A fixed seed, so that a failure can be repeated.
inline std::mt19937 seeded(unsigned seed) {
    return std::mt19937(seed);
}

}  // namespace tq_test
