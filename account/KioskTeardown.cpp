// Keeping the picture of the kiosk account true, and removing the kiosk configuration.
#include "account/KioskAccount.h"
#include "account/KioskAutoLogin.h"
#include "account/KioskLaunchAgent.h"
#include "account/KioskSession.h"
#include "core/KioskDaemon.h"
#include "core/KioskJson.h"
#include "core/KioskLog.h"
#include "core/KioskVersion.h"
#include "portal/KioskBranding.h"
#include "settings/KioskPowerApply.h"

bool KioskDaemon::ownAccount(uid_t* uid) const {
  const std::optional<std::string> live = KioskAccountGeneratedUID(uid);
  return live && live == string("generatedUID");
}

void KioskDaemon::reconcileAccount() {
  const std::optional<std::string> stored = string("generatedUID");
  if (!stored || ownAccount()) return;
  KioskLogError("the %@ account this helper created (%@) is gone", kKioskAccountName, *stored);
  _state.erase("generatedUID");
  _state.erase("password");
  _state["provisioned"] = false;
  save();
}

void KioskDaemon::enforce() {
  if (ownAccount()) KioskDemote();
}

void KioskDaemon::teardown(const std::string& reason) {
  KioskLog("tearing down (%@)", reason);
  if (_state.contains("powerBefore") || flag("powerRepeatArmed")) {
    KioskPowerRestore(KioskMember(_state, "powerBefore"), flag("powerRepeatArmed"));
  }
  uid_t uid = 0;
  const bool own = ownAccount(&uid);
  KioskDisableAutoLogin();
  KioskRemoveLaunchAgent();
  bool keepAccount = false;
  if (own) {
    KioskLogOut(uid);
    keepAccount = !KioskDeleteAccount();
    if (keepAccount) {
      KioskLogError("%@ could not be deleted; it is kept on record", kKioskAccountName);
    }
  }
  wipeKeepingAccount(keepAccount);
  _unlockToken.reset();
  KioskBrandingClear(kKioskBrandingDirectory);
  _timer.reset();
}

// The identity of an account that survived lets a later enrolment adopt it again.
void KioskDaemon::wipeKeepingAccount(bool keepAccount) {
  Json kept = Json::object();
  const auto keep = [&](const char* key) {
    if (_state.contains(key)) kept[key] = _state[key];
  };
  keep("authBaseUrl");
  if (keepAccount) {
    keep("generatedUID");
    keep("password");
  }
  _state = std::move(kept);
  save();
}
