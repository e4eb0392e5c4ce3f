// bus_calls.h - the library's calls into libubus and libubox, seen on their way.
//
// bus_calls.cpp defines these functions and forwards them, so that a test can act between two of
// them. For programs that are linked to libubus.
#pragma once

#include <functional>
#include <string>
#include <vector>

namespace tq_test {

struct BusCall {
    std::string name;
    long thread;       // of which it came
    long argument;     // invoke: the time limit; uloop_fd_add: the flags
    const void* priv;  // invoke: the request's private pointer
};

class BusCalls {
  public:
    // Counts from here on; the calls of one program are seen by one of these.
    BusCalls();
    ~BusCalls();
    BusCalls(const BusCalls&) = delete;
    BusCalls& operator=(const BusCalls&) = delete;

    // Runs, once, between the look-up of an object and the call of its method.
    static void before_invoke(std::function<void()> action);

    static std::vector<BusCall> take();
    static std::vector<std::string> take_names();
};

}  // namespace tq_test
