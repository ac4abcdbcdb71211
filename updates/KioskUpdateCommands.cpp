// The commands for OS updates: showing them, looking for them, installing them at the terminal.
#include <utility>

#include "core/KioskDaemon.h"
#include "core/KioskJson.h"
#include "core/KioskLog.h"
#include "updates/KioskUpdates.h"

Json KioskDaemon::osUpdates(const Json& request, KioskPeer peer) {
  if (!mayChangeSettings(request, peer)) return KioskFailure("not_unlocked");
  if (KioskMember(request, "check") == true && !_os->check()) return KioskFailure("busy");
  Json reply = _os->status();
  reply["policy"] = policy("updates").value_or(KioskUpdatesDefault());
  return reply;
}

Json KioskDaemon::osInstall(const Json& request, KioskPeer peer) {
  if (!mayChangeSettings(request, peer)) return KioskFailure("not_unlocked");
  const bool started = _os->install(
      onWorkQueue([](KioskDaemon& daemon, const Json& result) { daemon.recordUpdateRun(result); }));
  if (!started) return KioskFailure("busy");
  KioskLog("OS updates: install started at the terminal");
  return KioskSuccess();
}

// The driver calls back on its own queue, where the state may not be touched, and perhaps after the
// daemon's end.
KioskOsUpdates::Completion KioskDaemon::onWorkQueue(
    std::function<void(KioskDaemon&, const Json&)> work) {
  return [weak = weak_from_this(), queue = _queue, work = std::move(work)](const Json& result) {
    queue.async([weak, work, result] {
      if (const auto daemon = weak.lock()) work(*daemon, result);
    });
  };
}
