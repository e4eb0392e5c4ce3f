// families.h - the families of commands, each defined beside its handlers.
#pragma once

#include "command.h"

namespace tqctl {

// Constants, each initialized where it is defined.
// NOLINTBEGIN(bugprone-dynamic-static-initializers)
extern const Family kUci;
extern const Family kConfig;
extern const Family kWifi;
extern const Family kBoard;
extern const Family kMac;
extern const Family kIf;
extern const Family kArp;
extern const Family kRoute;
extern const Family kResolve;
extern const Family kIp;
extern const Family kBus;
extern const Family kFm;
extern const Family kBw;
extern const Family kFlow;
extern const Family kIpc;
extern const Family kNetlink;
extern const Family kGenl;
extern const Family kRebootLog;
extern const Family kPs;
extern const Family kLog;
extern const Family kStatus;
extern const Family kUpgrade;
extern const Family kFlash;
extern const Family kImage;
extern const Family kRedboot;
extern const Family kSerial;
extern const Family kStat;
extern const Family kEloop;
extern const Family kIni;
extern const Family kSelftest;
extern const Family kHelp;
extern const Family kMan;
extern const Family kCompletion;
// NOLINTEND(bugprone-dynamic-static-initializers)

}  // namespace tqctl
