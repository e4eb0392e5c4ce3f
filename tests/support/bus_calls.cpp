#include "support/bus_calls.h"

#include <dlfcn.h>
#include <libubus.h>
#include <unistd.h>

#include <mutex>
#include <utility>

namespace tq_test {
namespace {

std::mutex mutex;
bool watching = false;
std::vector<BusCall> calls;
std::function<void()> invoke_action;

void note(const char* name, long argument = 0, const void* priv = nullptr) {
    const std::lock_guard<std::mutex> lock(mutex);
    if (watching) calls.push_back({name, gettid(), argument, priv});
}

std::function<void()> take_action() {
    const std::lock_guard<std::mutex> lock(mutex);
    return std::exchange(invoke_action, nullptr);
}

template <typename Function>
Function* next(const char* name) {
    return reinterpret_cast<Function*>(dlsym(RTLD_NEXT, name));
}

}  // namespace

BusCalls::BusCalls() {
    const std::lock_guard<std::mutex> lock(mutex);
    watching = true;
    calls.clear();
}

BusCalls::~BusCalls() {
    const std::lock_guard<std::mutex> lock(mutex);
    watching = false;
    invoke_action = nullptr;
}

void BusCalls::before_invoke(std::function<void()> action) {
    const std::lock_guard<std::mutex> lock(mutex);
    invoke_action = std::move(action);
}

std::vector<BusCall> BusCalls::take() {
    const std::lock_guard<std::mutex> lock(mutex);
    return std::exchange(calls, {});
}

std::vector<std::string> BusCalls::take_names() {
    std::vector<std::string> names;
    for (const BusCall& call : take())
        names.push_back(call.name);
    return names;
}

}  // namespace tq_test

using tq_test::next;
using tq_test::note;

ubus_context* ubus_connect(const char* path) {
    static const auto forward = next<decltype(ubus_connect)>("ubus_connect");
    note("ubus_connect");
    return forward(path);
}

int ubus_lookup_id(ubus_context* ctx, const char* path, uint32_t* id) {
    static const auto forward = next<decltype(ubus_lookup_id)>("ubus_lookup_id");
    note("ubus_lookup_id");
    return forward(ctx, path, id);
}

int ubus_invoke_fd(ubus_context* ctx, uint32_t obj, const char* method, blob_attr* msg,
                   ubus_data_handler_t cb, void* priv, int timeout, int fd) {
    static const auto forward = next<decltype(ubus_invoke_fd)>("ubus_invoke_fd");
    note("ubus_invoke", timeout, priv);
    if (const std::function<void()> action = tq_test::take_action()) action();
    const int result = forward(ctx, obj, method, msg, cb, priv, timeout, fd);
    note("invoked");
    return result;
}

int uloop_init() {
    static const auto forward = next<decltype(uloop_init)>("uloop_init");
    note("uloop_init");
    return forward();
}

void uloop_done() {
    static const auto forward = next<decltype(uloop_done)>("uloop_done");
    note("uloop_done");
    forward();
}

int uloop_fd_add(uloop_fd* sock, unsigned int flags) {
    static const auto forward = next<decltype(uloop_fd_add)>("uloop_fd_add");
    note("uloop_fd_add", static_cast<long>(flags));
    return forward(sock, flags);
}
