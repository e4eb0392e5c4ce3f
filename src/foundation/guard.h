// guard.h - argument checks that families share.
#pragma once

#include <climits>
#include <cstddef>

namespace tq {

// Sizes are compared as signed integers: what is zero or negative then is none.
constexpr bool is_size(size_t size) {
    return size > 0 && size <= INT_MAX;
}

}  // namespace tq
