// families.cpp - the table's index: a new family of commands is one more line here.
#include "families.h"

namespace tqctl {

namespace {

// clang-format off
constexpr const Family* kFamilies[] = {
    &kUci,
    &kPs,
    &kLog,
    &kStatus,
    &kUpgrade,
    &kIf,
    &kArp,
    &kRoute,
    &kResolve,
    &kIp,
    &kHelp,
    &kMan,
    &kCompletion,
};
// clang-format on

}  // namespace

std::span<const Family* const> families() {
    return kFamilies;
}

}  // namespace tqctl
