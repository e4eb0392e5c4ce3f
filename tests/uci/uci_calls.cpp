#include "uci/uci_calls.h"

#include <dlfcn.h>
#include <uci.h>

#include <algorithm>
#include <utility>

namespace tq_test {
namespace {

std::vector<std::string> refused;
int refusal = UCI_OK;
bool memory_is_out = false;
int contexts = 0;

template <typename Function>
Function* next(const char* name) {
    return reinterpret_cast<Function*>(dlsym(RTLD_NEXT, name));
}

bool is_refused(const uci_ptr* ptr) {
    if (!ptr->option) return false;
    const char* section = ptr->s ? ptr->s->e.name : ptr->section;
    const std::string name = std::string(section) + "." + ptr->option;
    return std::find(refused.begin(), refused.end(), name) != refused.end();
}

}  // namespace

RefusedOptions::RefusedOptions(std::vector<std::string> options, int error) {
    refused = std::move(options);
    refusal = error;
}

RefusedOptions::~RefusedOptions() {
    refused.clear();
}

NoContexts::NoContexts() {
    memory_is_out = true;
}

NoContexts::~NoContexts() {
    memory_is_out = false;
}

int live_contexts() {
    return contexts;
}

}  // namespace tq_test

extern "C" {
int uci_set(uci_context* ctx, uci_ptr* ptr) {
    static auto* const next = tq_test::next<decltype(uci_set)>("uci_set");
    return tq_test::is_refused(ptr) ? tq_test::refusal : next(ctx, ptr);
}

int uci_delete(uci_context* ctx, uci_ptr* ptr) {
    static auto* const next = tq_test::next<decltype(uci_delete)>("uci_delete");
    return tq_test::is_refused(ptr) ? tq_test::refusal : next(ctx, ptr);
}

uci_context* uci_alloc_context() {
    static auto* const next = tq_test::next<decltype(uci_alloc_context)>("uci_alloc_context");
    if (tq_test::memory_is_out) return nullptr;
    tq_test::contexts++;
    return next();
}

void uci_free_context(uci_context* ctx) {
    static auto* const next = tq_test::next<decltype(uci_free_context)>("uci_free_context");
    tq_test::contexts--;
    next(ctx);
}
}
