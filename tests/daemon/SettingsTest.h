// The world of tests of what a terminal's technician may do: an enrolled, provisioned terminal with
// a maintenance password.
#pragma once

#include <string>

#include "tests/daemon/AccountTest.h"

class SettingsTest : public AccountTest {
 protected:
  static constexpr char kPassword[] = "OPEN-SESAME";

  /// Makes it so. `state` adds keys; the first check-in is over, journal and log are empty.
  explicit SettingsTest(const Json& state = Json::object());

  /// Unlocks the settings for the kiosk account's session.
  void unlock();
  /// The request with the unlock token, from the kiosk account's session.
  Json sendUnlocked(Json request);
  /// The same command without the unlock.
  Json sendLocked(const Json& request) { return send(request, kioskUid()); }

  static Json refused(const std::string& code) { return {{"ok", false}, {"error", code}}; }
  static Json done() { return {{"ok", true}}; }

  std::string token;
};
