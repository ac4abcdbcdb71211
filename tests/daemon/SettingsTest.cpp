#include "tests/daemon/SettingsTest.h"

SettingsTest::SettingsTest(const Json& state) {
  becomeProvisioned();
  Json whole = mac.state();
  whole.update(
      {{"token", "device-token"},
       {"exitPassword", kPassword},
       {"signIn", {{"microsoft", true}, {"email", false}, {"extraHosts", Json::array()}}}});
  whole.update(state);
  answerEnrolled();
  startDaemon(whole);
  virtual_time::RunReady();
  clearRecords();
}

void SettingsTest::unlock() {
  const Json reply = send({{"cmd", "unlock"}, {"password", kPassword}}, kioskUid());
  ASSERT_EQ(reply["ok"], true) << reply;
  token = reply["unlockToken"];
  clearRecords();
}

Json SettingsTest::sendUnlocked(Json request) {
  request["unlockToken"] = token;
  return send(request, kioskUid());
}
