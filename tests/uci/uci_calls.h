// uci_calls.h - the library's calls into libuci, seen on their way.
//
// uci_calls.cpp defines these functions and forwards them, so that a test can let one of them fail.
// What libuci calls of itself goes by unseen. For programs that are linked to libuci.
#pragma once

#include <functional>
#include <string>
#include <string_view>
#include <vector>

namespace tq_test {

// This thread's nth call of the function from here on fails with that code; that it is made is
// expected, until the scope ends. With 0 the calls are counted only.
//
// A uci_commit() fails as that of a libuci which finds out too late: the package is gone, the
// pointer to it is not.
class CallFails {
  public:
    explicit CallFails(std::string_view name, int error = 4 /* UCI_ERR_IO */, int nth = 1);
    ~CallFails();
    CallFails(const CallFails&) = delete;
    CallFails& operator=(const CallFails&) = delete;

    [[nodiscard]] int calls() const { return calls_; }

    // The code that a call of this name fails with, or 0.
    int on_call(std::string_view name);

  private:
    std::string name_;
    int error_;
    int nth_;
    int calls_ = 0;
};

// Until its scope ends, setting or deleting these options ("section.option") fails with that code,
// and nothing is changed.
class RefusedOptions {
  public:
    explicit RefusedOptions(std::vector<std::string> options, int error = 4 /* UCI_ERR_IO */);
    ~RefusedOptions();
    RefusedOptions(const RefusedOptions&) = delete;
    RefusedOptions& operator=(const RefusedOptions&) = delete;
};

// Runs once, when this thread has allocated its nth context from here on.
void behind_context(int nth, std::function<void()> action);

// Contexts that were allocated and not freed yet.
int live_contexts();

// The last argument of each uci_commit() of this thread since the last call.
std::vector<bool> take_overwrites();

}  // namespace tq_test
