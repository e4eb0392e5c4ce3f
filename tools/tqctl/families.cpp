// families.cpp - the table's index: a new family of commands is one more line here.
#include "families.h"

namespace tqctl {

namespace {

// clang-format off
constexpr const Family* kFamilies[] = {
    &kUci,
    &kConfig,
    &kWifi,
    &kIni,
    &kBoard,
    &kMac,
    &kSelftest,
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
    &kPs,
    &kLog,
    &kStatus,
    &kRebootLog,
    &kUpgrade,
    &kFlash,
    &kImage,
    &kRedboot,
    &kSerial,
    &kStat,
    &kEloop,
    &kHelp,
    &kMan,
    &kCompletion,
};
// clang-format on

struct Title {
    const Family* first;
    const char* text;
};

constexpr Title kTitles[] = {
    {&kUci, "Configuration"},   {&kBoard, "Board"},       {&kIf, "Network"},
    {&kBus, "Bus and daemons"}, {&kStatus, "Records"},    {&kUpgrade, "Firmware and flash"},
    {&kStat, "Figures"},        {&kHelp, "tqctl itself"},
};

}  // namespace

std::span<const Family* const> families() {
    return kFamilies;
}

const char* title_before(const Family& family) {
    for (const Title& title : kTitles) {
        if (title.first == &family) return title.text;
    }
    return nullptr;
}

}  // namespace tqctl
