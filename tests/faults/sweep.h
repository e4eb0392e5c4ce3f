// sweep.h - what is stated of each exported function when a call that it makes fails.
//
// A row is one function in one situation. The engine runs it once to learn which calls it makes,
// then once for each of them with that one failing, and compares the outcome with what the row
// states. After each failure nothing may be left behind, neither memory nor a descriptor, and the
// same call on the same state must work.
#pragma once

#include <cstdint>
#include <functional>
#include <string>
#include <vector>

namespace tq_test::sweep {

// The outcome where this call fails, if it is not the row's usual one. The call is named as "open",
// the third of that name "open#3", one that a signal interrupts "read:interrupted", one that does
// half of its work "write:cut". `again` is what the next call gives then; empty: as usual.
struct Stated {
    std::string call;
    std::string gives;
    std::string again = {};
};

std::string number(intptr_t result);

struct Row {
    std::string function;
    std::string how = {};  // of the rows of one function, which this is
    std::function<void()> prepare = nullptr;
    std::function<intptr_t()> call;  // calls the function, and nothing else that could fail
    std::function<std::string(intptr_t)> outcome = number;
    std::function<void(intptr_t)> undo = nullptr;
    // The outcome when all goes well, and when a call fails. What only gives back what was
    // obtained (close and its like), and a call that a signal interrupts, are expected to
    // change nothing.
    std::string gives = "0";
    std::string fails = "-1";
    std::vector<Stated> but = {};
    // What the call gives after a failure, on the same state: as when all goes well where it is
    // empty, not asked for kSpent.
    std::string again = {};
    // Calls that are left alone. A clock that is there does not fail.
    std::vector<std::string> spares = {"clock_gettime"};
    // Heap blocks that stay, by the header's word.
    long keeps = 0;
    // What the machine lacks for it; empty where it lacks nothing.
    std::function<std::string()> lacks = nullptr;
    // How many calls there are depends on when the other end answers.
    bool varies = false;
};

// The state that was prepared is used up by a call that fails.
inline constexpr const char* kSpent = "spent";

// A function that makes no call that could fail.
Row pure(std::string function, std::function<intptr_t()> call, std::string gives = "0");

// What a row that reads or changes a configuration file says of the calls that libuci makes to look
// at a file: one that cannot be looked at while it is locked is opened once more, and the mode of
// another file is done without. So both are right, if the outcome is a whole one.
std::vector<Stated> where_libuci_may_do_without(const Row& row);

// The exit code of the callable in a child, -N where signal N ended it; what it calls is noted as
// if it were called here.
int in_child(const std::function<int()>& body);

// The result and a text.
std::string with_text(intptr_t result, const char* text);
// The result and a number.
std::string with_number(intptr_t result, long long value);

// All of them.
const std::vector<Row>& rows();
// A row's name, which no other has.
std::string key_of(const Row& row);

std::vector<Row> foundation_rows();
std::vector<Row> uci_rows();
std::vector<Row> wifi_rows();
std::vector<Row> eloop_rows();
std::vector<Row> netlink_rows();
std::vector<Row> bus_rows();
std::vector<Row> records_rows();
std::vector<Row> flash_rows();
std::vector<Row> sysinfo_rows();
std::vector<Row> ini_rows();

}  // namespace tq_test::sweep
