// uci_context.h - owner of a libuci context.
#pragma once

#include <uci.h>

namespace tq {

// A private context; freeing it unloads what was loaded through it.
class UciContext {
  public:
    UciContext() : context_(uci_alloc_context()) {}
    ~UciContext() {
        if (context_) uci_free_context(context_);
    }
    UciContext(const UciContext&) = delete;
    UciContext& operator=(const UciContext&) = delete;

    [[nodiscard]] uci_context* get() const { return context_; }
    explicit operator bool() const { return context_ != nullptr; }

  private:
    uci_context* context_;
};

}  // namespace tq
