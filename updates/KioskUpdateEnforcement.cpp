// Installing OS updates by themselves: inside the policy's window, once, while nobody uses the
// terminal.
#include <utility>

#include "account/KioskRestart.h"
#include "core/KioskDaemon.h"
#include "core/KioskJson.h"
#include "core/KioskLog.h"
#include "core/KioskText.h"
#include "platform/Calendar.h"
#include "platform/Clock.h"
#include "updates/KioskUpdateWindow.h"

namespace {

constexpr std::uint64_t kRetryAfterNs = 900'000'000'000;

std::optional<std::string> WindowOpenNow(const Json& policy) {
  const double now = platform::ClockSecondsSince1970();
  return KioskUpdateWindowKey(policy["window"], platform::CalendarCivilTime(now));
}

Json MemberOr(const Json& object, const char* key, const Json& absent) {
  return object.contains(key) ? object[key] : absent;
}

}  // namespace

void KioskDaemon::enforceUpdates() {
  const std::optional<Json> updates = policy("updates");
  if (!updates || (*updates)["automatic"] != true || !flag("provisioned")) return;
  const std::optional<std::string> window = WindowOpenNow(*updates);
  if (!window || window == string("updatesWindowDone") || _os->busy()) return;
  const std::uint64_t now = platform::ClockMonotonicNs();
  if (_updatesRetryNs != 0 && now < _updatesRetryNs) return;
  // Set before it is known whether the terminal is in use: a deferral waits as long.
  _updatesRetryNs = now + kRetryAfterNs;
  if (userBusy()) {
    deferUpdates();
  } else {
    installInWindow(*window);
  }
}

void KioskDaemon::deferUpdates() {
  KioskLog("OS updates deferred: %@",
           _userLive ? "a stream session is live" : "someone is signed in at the terminal");
  const Json& last = KioskMember(_state, "osUpdates");
  recordUpdateRun({{"result", "deferred"}, {"pending", MemberOr(last, "pending", 0)}});
}

void KioskDaemon::installInWindow(const std::string& window) {
  KioskLog("OS updates: the %@ window is open; installing", window);
  // That the driver has become busy leaves nothing to record.
  static_cast<void>(_os->install(onWorkQueue([window](KioskDaemon& daemon, const Json& result) {
    daemon.finishWindowRun(result, window);
  })));
}

// A window has one run, whatever comes of it.
void KioskDaemon::finishWindowRun(const Json& result, const std::string& window) {
  _state["updatesWindowDone"] = window;
  recordUpdateRun(result);
  if (KioskMember(result, "result") != "ok" || KioskMember(result, "restartRequired") != true) {
    return;
  }
  const std::optional<Json> updates = policy("updates");
  if (!updates || WindowOpenNow(*updates) != window) {
    KioskLogError(
        "OS updates need a restart, but the window has closed; it waits for the next restart");
  } else if (userBusy()) {
    KioskLog(
        "OS updates need a restart, but the terminal is in use; it waits for the next restart");
  } else {
    KioskLog("OS updates need a restart; restarting inside the window");
    KioskRestart();
  }
}

void KioskDaemon::recordUpdateRun(const Json& result) {
  _state["osUpdates"] = {{"lastRunAt", KioskIso8601(platform::ClockSecondsSince1970())},
                         {"lastResult", MemberOr(result, "result", "failed")},
                         {"pending", MemberOr(result, "pending", 0)},
                         {"restartRequired", MemberOr(result, "restartRequired", false)},
                         {"error", MemberOr(result, "error", nullptr)}};
  save();
}
