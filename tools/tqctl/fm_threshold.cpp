// fm_threshold.cpp - tqctl fm threshold, fm suppress: what the fault daemon reads from its file.
#include "fm_threshold.h"

#include <tq/uci_option.h>

#include <climits>
#include <cstring>

#include "number.h"
#include "uci_store.h"

namespace tqctl {

namespace {

constexpr char kFile[] = "tqfm";

struct Value {
    const char* name;
    int (*get)(int module, int* value);
    int (*set)(int module, unsigned value);
};

constexpr Value kThreshold = {"threshold", uci_get_threshold, uci_set_threshold};
constexpr Value kSuppress = {"suppress", uci_get_suppress, uci_set_suppress};

ExitCode show(Context& context, const Value& value, int module) {
    int number = 0;
    if (value.get(module, &number) != 0)
        return explain(context, kFile, cause_of_failure(kFile, "the module has no such value"));
    context.output.value(value.name, static_cast<uint32_t>(number));
    return ExitCode::kDone;
}

template <typename Change>
ExitCode apply(const Context& context, Change change) {
    return change_file(context, kFile, "the value cannot be written", change);
}

ExitCode show_or_set(Context& context, const Value& value, Arguments arguments) {
    const std::optional<int64_t> module =
        take_number(context, arguments[0], "a module", 0, INT_MAX);
    if (!module) return ExitCode::kUsage;
    const int number = static_cast<int>(*module);
    if (arguments.size() == 1) return show(context, value, number);
    const std::optional<uint32_t> wanted = take_u32(context, arguments[1]);
    if (!wanted) return ExitCode::kUsage;
    return apply(context, [&] { return value.set(number, *wanted); });
}

ExitCode set_all(const Context& context, Arguments arguments) {
    if (arguments.size() != 2) return context.misuse("a value is missing");
    const std::optional<uint32_t> wanted = take_u32(context, arguments[1]);
    if (!wanted) return ExitCode::kUsage;
    return apply(context, [&] { return uci_set_suppress_defaults(*wanted); });
}

}  // namespace

ExitCode fm_threshold(Context& context, Arguments arguments) {
    return show_or_set(context, kThreshold, arguments);
}

ExitCode fm_suppress(Context& context, Arguments arguments) {
    if (strcmp(arguments[0], "all") == 0) return set_all(context, arguments);
    return show_or_set(context, kSuppress, arguments);
}

}  // namespace tqctl
