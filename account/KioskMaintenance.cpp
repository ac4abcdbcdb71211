// Maintenance mode and the password that guards it.
#include <algorithm>
#include <limits>

#include "account/KioskAutoLogin.h"
#include "account/KioskSession.h"
#include "core/KioskDaemon.h"
#include "core/KioskJson.h"
#include "core/KioskLog.h"
#include "core/KioskText.h"
#include "platform/Clock.h"
#include "platform/Text.h"

namespace {

constexpr std::int64_t kAttempts = 5;
constexpr double kLockOutSeconds = 300;
constexpr std::uint64_t kLogOutDelayNs = 1'000'000'000;

// Passwords are compared without regard to case and to blanks around them.
std::string Entered(const Json& value) {
  if (!value.is_string()) return {};
  return platform::TextUpperCase(KioskTrim(value.get_ref<const std::string&>()));
}

// A count as it was stored, one higher.
std::int64_t Next(const Json& count) {
  constexpr std::int64_t most = std::numeric_limits<std::int64_t>::max() - 1;
  const double stored = KioskNumber(count).value_or(0);
  if (!(stored < static_cast<double>(most))) return kAttempts;
  return static_cast<std::int64_t>(std::max(stored, -static_cast<double>(most))) + 1;
}

}  // namespace

bool KioskDaemon::maintenanceLocked() {
  const std::optional<double> until = KioskNumber(KioskMember(_state, "maintenanceLockedUntil"));
  const double now = platform::ClockSecondsSince1970();
  if (!until || *until <= now) return false;
  // A clock that was set back must not lengthen the lock-out.
  if (*until > now + kLockOutSeconds) {
    _state["maintenanceLockedUntil"] = now + kLockOutSeconds;
    save();
  }
  return true;
}

KioskError KioskDaemon::checkMaintenancePassword(const Json& entered) {
  if (maintenanceLocked()) return "locked";
  if (!string("token") || !flag("provisioned")) return "not_provisioned";
  // A password changed or a device revoked at the portal takes effect before the comparison.
  if (checkIn() == KioskCheckInOutcome::kStop) return "not_enrolled";
  // An empty password is one; without any, the portal was never reached.
  const Json stored = KioskMember(_state, "exitPassword");
  if (!stored.is_string()) return "unreachable";
  const std::string expected = platform::TextUpperCase(stored.get_ref<const std::string&>());
  const std::int64_t failures = Next(KioskMember(_state, "maintenanceFailures"));
  // Counted before the comparison, so that nothing that ends the daemon saves an attempt.
  _state["maintenanceFailures"] = failures;
  save();
  if (Entered(entered) != expected) {
    maintenancePasswordWrong(failures);
    return "wrong_password";
  }
  _state.erase("maintenanceFailures");
  _state.erase("maintenanceLockedUntil");
  save();
  return std::nullopt;
}

void KioskDaemon::maintenancePasswordWrong(std::int64_t failures) {
  if (failures < kAttempts) {
    KioskLog("maintenance refused: wrong password (%ld of %ld)", failures, kAttempts);
    return;
  }
  _state["maintenanceFailures"] = 0;
  _state["maintenanceLockedUntil"] = platform::ClockSecondsSince1970() + kLockOutSeconds;
  save();
  KioskLogError("maintenance: %ld wrong passwords; refusing for %.0f s", kAttempts,
                kLockOutSeconds);
}

Json KioskDaemon::maintenance(const Json& request, KioskPeer peer) {
  const bool hasToken = request.contains("unlockToken");
  if (hasToken && unlocked(KioskMember(request, "unlockToken"), peer)) {
    if (!string("token") || !flag("provisioned")) return KioskFailure("not_provisioned");
  } else if (hasToken && !request.contains("password")) {
    return KioskFailure("not_unlocked");
  } else if (const KioskError error = checkMaintenancePassword(KioskMember(request, "password"))) {
    return KioskFailure(*error);
  }
  enterMaintenance();
  return KioskSuccess();
}

void KioskDaemon::enterMaintenance() {
  _unlockToken.reset();
  _state["maintenance"] = true;
  save();
  KioskDisableAutoLogin();
  KioskLog("maintenance: auto-login skipped until the next restart");
  uid_t uid = 0;
  if (!ownAccount(&uid)) return;
  // Later, so that the reply reaches the application before its session ends.
  _queue.after(kLogOutDelayNs, [uid] { KioskLogOut(uid); });
}
