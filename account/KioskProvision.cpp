// Making the Mac a kiosk.
#include "account/KioskAccount.h"
#include "account/KioskAppBundle.h"
#include "account/KioskAutoLogin.h"
#include "account/KioskHome.h"
#include "account/KioskLaunchAgent.h"
#include "core/KioskDaemon.h"
#include "core/KioskLog.h"
#include "core/KioskVersion.h"

KioskError KioskDaemon::preflight() const {
  if (KioskFileVaultOn()) return "filevault_on";
  const std::optional<std::string> live = KioskAccountGeneratedUID();
  if (live && *live != string("generatedUID").value_or("")) return "account_exists";
  const std::optional<std::string> user = KioskAutoLoginUser();
  if (user && *user != kKioskAccountName) return "autologin_in_use";
  return std::nullopt;
}

KioskError KioskDaemon::createAccount(uid_t& uid, gid_t& gid) {
  KioskCreateAccount();
  const std::optional<std::string> created = KioskAccountGeneratedUID(&uid, &gid);
  if (!created) return "account_create_failed";
  _state["generatedUID"] = *created;
  _state.erase("password");
  save();
  KioskLog("created %@ (uid %u, %@)", kKioskAccountName, uid, *created);
  return std::nullopt;
}

KioskError KioskDaemon::renewPassword() {
  const std::string password = KioskRandomPassword();
  if (!KioskSetPassword(password)) {
    // Without a password the account is of no use; if it goes, the next run starts cleanly.
    if (KioskDeleteAccount()) {
      _state.erase("generatedUID");
      save();
    }
    return "account_password_failed";
  }
  _state["password"] = password;
  save();
  return std::nullopt;
}

KioskError KioskDaemon::provisionOnce() {
  const std::optional<platform::HostBundle> bundle = KioskAppBundle();
  if (!bundle || !bundle->executablePath) return "not_installed";
  if (KioskError refusal = preflight()) return refusal;
  uid_t uid = 0;
  gid_t gid = 0;
  if (!KioskAccountGeneratedUID(&uid, &gid)) {
    if (KioskError error = createAccount(uid, gid)) return error;
  }
  if (!string("password")) {
    if (KioskError error = renewPassword()) return error;
  }
  KioskDemote();
  if (!KioskPrepareHome(uid, gid)) return "home_failed";
  if (!KioskInstallLaunchAgent(*bundle->executablePath)) return "launch_agent_failed";
  if (flag("maintenance")) return std::nullopt;
  if (!KioskEnableAutoLogin(*string("password"))) return "autologin_failed";
  return std::nullopt;
}

void KioskDaemon::provision() {
  if (KioskError refusal = provisionOnce()) {
    if (*refusal != string("lastError").value_or("")) {
      KioskLogError("provisioning refused: %@", *refusal);
    }
    KioskDisableAutoLogin();
    _state["lastError"] = *refusal;
    _state["provisioned"] = false;
  } else {
    KioskLog("provisioned: %@ signs in at boot", kKioskAccountName);
    _state.erase("lastError");
    _state["provisioned"] = true;
  }
  save();
}
