// clock.h - the monotonic clock as one number.
#pragma once

#include <tq/util.h>

#include <cstdint>

namespace tqctl {

inline int64_t microseconds() {
    tq_timeval now{};
    tq_gettime(&now);
    return int64_t{now.tv_sec} * 1000000 + now.tv_usec;
}

}  // namespace tqctl
