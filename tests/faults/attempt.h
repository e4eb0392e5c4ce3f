// attempt.h - a row's call, once, with one of the calls that it makes failing.
#pragma once

#include <string>

#include "faults/sweep.h"
#include "support/faults.h"

namespace tq_test::sweep {

struct Attempt {
    std::string outcome;
    std::string again;   // of a second call, where the first one failed
    long kept = 0;       // heap blocks
    int left_open = -1;  // a descriptor
    bool fired = false;
};

// The nth call that it makes fails; 0 for none.
Attempt attempt(const Row& row, unsigned nth = 0, faults::Way way = faults::Way::kFail,
                bool asks_again = false);

}  // namespace tq_test::sweep
