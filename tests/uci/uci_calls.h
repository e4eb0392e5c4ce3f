// uci_calls.h - the library's calls into libuci, seen on their way.
//
// uci_calls.cpp defines these functions and forwards them, so that a test can have one option fail
// among others. For programs that are linked to libuci.
#pragma once

#include <string>
#include <vector>

namespace tq_test {

// Until its scope ends, setting or deleting these options ("section.option") fails with that code,
// and nothing is changed. Not for an option of a file that is loaded meanwhile: the real libuci
// sets it by the same call.
class RefusedOptions {
  public:
    explicit RefusedOptions(std::vector<std::string> options, int error = 7 /* UCI_ERR_IO */);
    ~RefusedOptions();
    RefusedOptions(const RefusedOptions&) = delete;
    RefusedOptions& operator=(const RefusedOptions&) = delete;
};

// Until its scope ends there is no memory for a context.
class NoContexts {
  public:
    NoContexts();
    ~NoContexts();
    NoContexts(const NoContexts&) = delete;
    NoContexts& operator=(const NoContexts&) = delete;
};

// Contexts that were allocated and not freed yet.
int live_contexts();

}  // namespace tq_test
