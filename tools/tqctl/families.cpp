// families.cpp - the table's index: a new family of commands is one more line here.
#include "families.h"

namespace tqctl {

namespace {

// clang-format off
constexpr const Family* kFamilies[] = {
    &kUci,
    &kConfig,
    &kWifi,
    &kBoard,
    &kMac,
    &kIf,
    &kArp,
    &kRoute,
    &kResolve,
    &kIp,
    &kBus,
    &kFm,
    &kBw,
    &kFlow,
    &kIpc,
    &kNetlink,
    &kGenl,
    &kRebootLog,
    &kPs,
    &kLog,
    &kStatus,
    &kUpgrade,
    &kFlash,
    &kImage,
    &kRedboot,
    &kSerial,
    &kStat,
    &kIni,
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
