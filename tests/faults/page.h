// page.h - docs/faults.md: what was counted, by family.
#pragma once

#include <map>
#include <string>
#include <vector>

namespace tq_test::sweep {

// Of a row: its calls, the failures that were tried, and how many of these the outcome showed.
struct Count {
    unsigned system_calls = 0;
    unsigned allocations = 0;
    unsigned faults = 0;
    unsigned failed = 0;

    Count& operator+=(const Count& other) {
        system_calls += other.system_calls;
        allocations += other.allocations;
        faults += other.faults;
        failed += other.failed;
        return *this;
    }
};

// By the keys of the rows.
using Counts = std::map<std::string, Count>;

// The functions that leave the library, by family.
struct Family {
    std::string name;
    std::vector<std::string> functions;
};
std::vector<Family> exported_families();

std::string page_of(const Counts& counts);

// The page without the counts that depend on when another process answers, and without the totals;
// or without any.
enum class Leave : unsigned char { kCertain, kNone };
std::string without_counts(const std::string& page, Leave leave);

}  // namespace tq_test::sweep
