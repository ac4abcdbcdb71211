#include "account/KioskSession.h"

#include <cstdint>
#include <string>

#include "account/KioskRun.h"
#include "core/KioskLog.h"
#include "core/KioskVersion.h"
#include "platform/Clock.h"

namespace {

constexpr char kPkill[] = "/usr/bin/pkill";
constexpr std::uint64_t kPollIntervalNs = 100'000'000;
constexpr int kPollsAfterBootout = 150;
constexpr int kPollsAfterKill = 100;

std::string GuiDomain(uid_t uid) { return "gui/" + std::to_string(uid); }

}  // namespace

bool KioskSessionActive(uid_t uid) {
  return KioskRun(kKioskLaunchctl, {"print", GuiDomain(uid)}) == 0;
}

bool KioskWaitForLogout(uid_t uid, int polls) {
  for (int poll = 0; poll < polls; ++poll) {
    if (!KioskSessionActive(uid)) return true;
    platform::ClockSleep(kPollIntervalNs);
  }
  return !KioskSessionActive(uid);
}

void KioskLogOut(uid_t uid) {
  if (!KioskSessionActive(uid)) return;
  KioskLog("logging out %@ (uid %u)", kKioskAccountName, uid);
  KioskRun(kKioskLaunchctl, {"bootout", GuiDomain(uid)});
  if (KioskWaitForLogout(uid, kPollsAfterBootout)) return;
  KioskLogError("gui/%u is still up; ending its loginwindow", uid);
  KioskRun(kPkill, {"-KILL", "-U", std::to_string(uid), "-x", "loginwindow"});
  if (!KioskWaitForLogout(uid, kPollsAfterKill)) KioskLogError("gui/%u did not end", uid);
}
