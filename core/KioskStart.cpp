// Start-up and the check-in timer.
#include <algorithm>

#include "account/KioskAutoLogin.h"
#include "core/KioskDaemon.h"
#include "core/KioskLog.h"
#include "platform/Clock.h"

namespace {

constexpr double kFirstCheckInDelay = 0.0;
constexpr double kCheckInInterval = 30.0;
constexpr double kBackOffFactor = 2.0;
constexpr double kLongestInterval = 600.0;
constexpr std::uint64_t kTimerLeewayNs = 1'000'000'000;

}  // namespace

void KioskDaemon::start() {
  ensureStateDir();
  load();
  reconcileAccount();
  enforce();
  if (flag("maintenance")) endMaintenance();
  const bool enrolled = string("token").has_value();
  const bool provisioned = enrolled && flag("provisioned");
  KioskLog("started: %@", provisioned ? "enrolled, provisioned"
                          : enrolled  ? "enrolled"
                                      : "not enrolled");
  publish();
  if (enrolled) scheduleCheckInAfter(kFirstCheckInDelay);
}

// Maintenance lasts until the next start, whether or not the kiosk can be restored.
void KioskDaemon::endMaintenance() {
  const std::optional<std::string> password = string("password");
  if (flag("provisioned") && password && KioskEnableAutoLogin(*password)) {
    KioskLog("maintenance over: auto-login restored");
  }
  _state["maintenance"] = false;
  save();
}

void KioskDaemon::scheduleCheckInAfter(double seconds) {
  if (!_timer) {
    _timer.emplace(_queue, [weak = weak_from_this()] {
      if (const auto daemon = weak.lock()) daemon->timerFired();
    });
  }
  _timer->arm(
      static_cast<std::uint64_t>(seconds * static_cast<double>(platform::kNanosecondsPerSecond)),
      kTimerLeewayNs);
}

void KioskDaemon::timerFired() {
  if (!string("token")) return;
  switch (checkIn()) {
    case KioskCheckInOutcome::kEnrolled:
      _interval = kCheckInInterval;
      break;
    case KioskCheckInOutcome::kStop:
      return;
    case KioskCheckInOutcome::kUnreachable:
      _interval = std::min(_interval * kBackOffFactor, kLongestInterval);
      break;
  }
  enforceUpdates();
  scheduleCheckInAfter(_interval);
}
