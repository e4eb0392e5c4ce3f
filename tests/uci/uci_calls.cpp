#include "uci/uci_calls.h"

#include <dlfcn.h>
#include <gtest/gtest.h>
#include <uci.h>

#include <algorithm>
#include <atomic>
#include <utility>

namespace tq_test {
namespace {

thread_local std::vector<CallFails*> armed;
thread_local bool in_libuci = false;
thread_local std::function<void()> context_action;
thread_local int contexts_until_action = 0;
thread_local std::vector<bool> overwrites;

std::vector<std::string> refused;
int refusal = UCI_OK;
std::atomic<int> contexts = 0;

template <typename Function>
Function* next(const char* name) {
    return reinterpret_cast<Function*>(dlsym(RTLD_NEXT, name));
}

int failure_of(const char* name) {
    if (in_libuci) return UCI_OK;
    int failure = UCI_OK;
    for (CallFails* call : armed)
        failure = std::max(failure, call->on_call(name));
    return failure;
}

template <typename Call>
auto inside(const Call& call) {
    const bool outer = std::exchange(in_libuci, true);
    const auto result = call();
    in_libuci = outer;
    return result;
}

bool is_refused(const uci_ptr* ptr) {
    if (in_libuci || !ptr->option) return false;
    const char* section = ptr->s ? ptr->s->e.name : ptr->section;
    const std::string name = std::string(section) + "." + ptr->option;
    return std::find(refused.begin(), refused.end(), name) != refused.end();
}

}  // namespace

CallFails::CallFails(std::string_view name, int error, int nth)
    : name_(name), error_(error), nth_(nth) {
    armed.push_back(this);
}

CallFails::~CallFails() {
    std::erase(armed, this);
    EXPECT_GE(calls_, nth_) << "calls of " << name_;
}

int CallFails::on_call(std::string_view name) {
    return name == name_ && ++calls_ == nth_ ? error_ : UCI_OK;
}

RefusedOptions::RefusedOptions(std::vector<std::string> options, int error) {
    refused = std::move(options);
    refusal = error;
}

RefusedOptions::~RefusedOptions() {
    refused.clear();
}

void behind_context(int nth, std::function<void()> action) {
    contexts_until_action = nth;
    context_action = std::move(action);
}

int live_contexts() {
    return contexts;
}

std::vector<bool> take_overwrites() {
    return std::exchange(overwrites, {});
}

}  // namespace tq_test

using namespace tq_test;  // NOLINT(google-build-using-namespace)

#define FORWARDED(name, ...)                                      \
    static auto* const next_##name = next<decltype(name)>(#name); \
    const int failure = failure_of(#name);                        \
    return failure != UCI_OK ? failure : inside([&] { return next_##name(__VA_ARGS__); })

extern "C" {
uci_context* uci_alloc_context() {
    static auto* const next_alloc = next<decltype(uci_alloc_context)>("uci_alloc_context");
    if (failure_of("uci_alloc_context") != UCI_OK) return nullptr;
    uci_context* context = inside(next_alloc);
    if (context) contexts++;
    if (--contexts_until_action == 0) std::exchange(context_action, nullptr)();
    return context;
}

void uci_free_context(uci_context* ctx) {
    static auto* const next_free = next<decltype(uci_free_context)>("uci_free_context");
    // Out of memory, uci_alloc_context() frees what it has by this call.
    if (!in_libuci) contexts--;
    next_free(ctx);
}

int uci_lookup_ptr(uci_context* ctx, uci_ptr* ptr, char* str, bool extended) {
    FORWARDED(uci_lookup_ptr, ctx, ptr, str, extended);
}

int uci_load(uci_context* ctx, const char* name, uci_package** package) {
    FORWARDED(uci_load, ctx, name, package);
}

int uci_unload(uci_context* ctx, uci_package* p) {
    FORWARDED(uci_unload, ctx, p);
}

int uci_add_section(uci_context* ctx, uci_package* p, const char* type, uci_section** res) {
    FORWARDED(uci_add_section, ctx, p, type, res);
}

int uci_set(uci_context* ctx, uci_ptr* ptr) {
    if (is_refused(ptr)) return refusal;
    FORWARDED(uci_set, ctx, ptr);
}

int uci_add_list(uci_context* ctx, uci_ptr* ptr) {
    FORWARDED(uci_add_list, ctx, ptr);
}

int uci_del_list(uci_context* ctx, uci_ptr* ptr) {
    FORWARDED(uci_del_list, ctx, ptr);
}

int uci_delete(uci_context* ctx, uci_ptr* ptr) {
    if (is_refused(ptr)) return refusal;
    FORWARDED(uci_delete, ctx, ptr);
}

int uci_save(uci_context* ctx, uci_package* p) {
    FORWARDED(uci_save, ctx, p);
}

int uci_commit(uci_context* ctx, uci_package** p, bool overwrite) {
    static auto* const next_commit = next<decltype(uci_commit)>("uci_commit");
    if (!in_libuci) overwrites.push_back(overwrite);
    const int failure = failure_of("uci_commit");
    if (failure == UCI_OK) return inside([&] { return next_commit(ctx, p, overwrite); });
    return inside([&] {
        uci_unload(ctx, *p);
        return failure;
    });
}
}
