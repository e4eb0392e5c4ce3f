// bus_connection.h - the bus for the length of a command.
#pragma once

#include <libubus.h>
#include <tq/bus.h>

#include "command.h"

namespace tqctl {

// The library's connection to the bus.
class BusConnection {
  public:
    BusConnection() : connected_(init_ubus_client() == 0) {}
    ~BusConnection() { destroy_ubus_client(); }
    BusConnection(const BusConnection&) = delete;
    BusConnection& operator=(const BusConnection&) = delete;

    explicit operator bool() const { return connected_; }

  private:
    bool connected_;
};

// The bus itself, for what the library has no call for.
class BusContext {
  public:
    BusContext() : context_(ubus_connect(nullptr)) {}
    ~BusContext() {
        if (context_) ubus_free(context_);
    }
    BusContext(const BusContext&) = delete;
    BusContext& operator=(const BusContext&) = delete;

    [[nodiscard]] ubus_context* get() const { return context_; }
    explicit operator bool() const { return context_ != nullptr; }

  private:
    ubus_context* context_;
};

inline ExitCode fail_without_bus(const Context& context) {
    return context.fail(ExitCode::kInputOutput, "there is no connection to the bus");
}

// What the library's 0 or -1 to a request means; it has logged the reason.
inline ExitCode done_or_refused(const Context& context, int result) {
    if (result == 0) return ExitCode::kDone;
    return context.fail(ExitCode::kRefused, "the service did not do it");
}

}  // namespace tqctl
