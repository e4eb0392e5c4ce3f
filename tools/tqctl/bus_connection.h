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

inline ExitCode fail_without_service(const Context& context) {
    return context.fail(ExitCode::kRefused, "the service did not do it");
}

// Makes a request of the library's, whose -1 has its reason in the log.
template <typename Request>
ExitCode send_over_bus(const Context& context, Request request) {
    const BusConnection bus;
    if (!bus) return fail_without_bus(context);
    return request() == 0 ? ExitCode::kDone : fail_without_service(context);
}

}  // namespace tqctl
