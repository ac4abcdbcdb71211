// Pairing with the portal and the restart into kiosk mode.
#include <string>
#include <vector>

#include "platform/Clock.h"
#include "platform/simulated/MacFiles.h"
#include "tests/daemon/DaemonTest.h"

namespace {

using virtual_time::kSecondNs;

constexpr char kShutdown[] = "/sbin/shutdown";
constexpr char kDefaults[] = "/usr/bin/defaults";
constexpr char kCreateHome[] = "/usr/sbin/createhomedir";
constexpr char kCode[] = "ABCDEFGH";
constexpr char kPollCall[] = "GET /api/kiosk/pair/ABCDEFGH";
constexpr char kRestartLine[] = "enrolled: restarting into kiosk mode in 10 s";

const Json kNotClaimed = {{"ok", true}, {"paired", false}};

Json Failure(const char* code) { return {{"ok", false}, {"error", code}}; }

class Pairing : public DaemonTest {
 protected:
  // What the portal answers a registration with.
  void answerPair(int status, const Json& body) { portal.answer(kPairCall, status, body); }
  void answerPoll(int status, const Json& body) { portal.answer(kPollCall, status, body); }

  Json begin() { return send({{"cmd", "pair.begin"}}); }
  Json check(const Json& code = kCode) { return send({{"cmd", "pair.check"}, {"code", code}}); }
  Json restartNow(std::uint32_t uid = 0) { return send({{"cmd", "restart.now"}}, uid); }

  // A daemon whose code waits to be claimed.
  void startWithCode() {
    startDaemon();
    answerPair(200, {{"pairingCode", kCode}});
    ASSERT_EQ(begin()["ok"], true);
    answerPoll(202, Json::object());
  }

  // The administrator has claimed the code; check-ins succeed.
  void claim() {
    answerPoll(200, {{"deviceToken", "device-token"}});
    answerEnrolled();
  }

  // A daemon that was paired and provisioned just now: its restart is 10 s away.
  void startPaired() {
    startWithCode();
    claim();
    ASSERT_EQ(check()["restartInSeconds"], 10);
  }

  std::vector<ToolRun> restarts() const { return mac.runs(kShutdown); }
};

// --- pair.begin
// -----------------------------------------------------------------------------------

TEST_F(Pairing, RegistersTheMacWithThePortal) {
  startDaemon();
  answerPair(200, {{"pairingCode", kCode}, {"expiresInSeconds", 600}});
  EXPECT_EQ(begin(), (Json{{"ok", true}, {"code", kCode}, {"expiresInSeconds", 600}}));
  ASSERT_EQ(portal.requests().size(), 1U);
  const PortalRequest request = portal.requests(kPairCall).front();
  EXPECT_EQ(request.json(), (Json{{"hostname", "Kiosk Mac"},
                                  {"platform", "macOS"},
                                  {"osVersion", "Version 14.6.1 (Build 23G93)"},
                                  {"appVersion", "3.2.1"}}));
  EXPECT_EQ(request.header("authorization"), std::nullopt);
  EXPECT_EQ(request.header("accept"), "application/json");
  EXPECT_EQ(request.header("content-type"), "application/json");
}

TEST_F(Pairing, RegistersAMacWithoutNameUnderAnEmptyOne) {
  mac.remove(platform::kMacNetworkPreferences);
  startDaemon();
  begin();
  ASSERT_EQ(portal.requests(kPairCall).size(), 1U);
  EXPECT_EQ(portal.requests(kPairCall).front().json()["hostname"], "");
}

TEST_F(Pairing, RefusesATerminalThatIsEnrolled) {
  startSettled();
  EXPECT_EQ(begin(), Failure("already_enrolled"));
  EXPECT_EQ(portal.requests(kPairCall).size(), 0U);
}

TEST_F(Pairing, RefusesAnEnrolledTerminalBeforeItLooksAtTheMac) {
  startSettled();
  mac.write("/private/var/simulated/fdesetup.json", R"({"status": "FileVault is On."})");
  const std::size_t runs = mac.journal().size();
  EXPECT_EQ(begin(), Failure("already_enrolled"));
  EXPECT_EQ(mac.journal().size(), runs);
}

TEST_F(Pairing, RefusesAMacWithFileVaultUpFront) {
  mac.write("/private/var/simulated/fdesetup.json", R"({"status": "FileVault is On."})");
  startDaemon();
  EXPECT_EQ(begin(), Failure("filevault_on"));
  EXPECT_EQ(portal.requests().size(), 0U);
}

TEST_F(Pairing, RefusesAMacWithAForeignKioskAccountUpFront) {
  RunToEnd({"/usr/sbin/sysadminctl", "-addUser", "BrindlexKiosk"});
  startDaemon();
  EXPECT_EQ(begin(), Failure("account_exists"));
  EXPECT_EQ(portal.requests().size(), 0U);
}

TEST_F(Pairing, RefusesAMacWithAnotherAutoLoginUpFront) {
  RunToEnd(
      {kDefaults, "write", "/Library/Preferences/com.apple.loginwindow", "autoLoginUser", "admin"});
  startDaemon();
  EXPECT_EQ(begin(), Failure("autologin_in_use"));
  EXPECT_EQ(portal.requests().size(), 0U);
}

TEST_F(Pairing, GivesTheCode900SecondsWhenThePortalSaysNothing) {
  startDaemon();
  for (const Json& expires : {Json(), Json("600"), Json::array({600}), Json::object()}) {
    answerPair(200, {{"pairingCode", kCode}, {"expiresInSeconds", expires}});
    EXPECT_EQ(begin()["expiresInSeconds"], Json(900)) << expires;
  }
  answerPair(200, {{"pairingCode", kCode}});
  EXPECT_EQ(begin()["expiresInSeconds"], Json(900));
}

TEST_F(Pairing, RepeatsEveryNumberOfSecondsThatThePortalSays) {
  startDaemon();
  for (const Json& expires : {Json(0), Json(12.5), Json(-1), Json(1), Json(true)}) {
    answerPair(200, {{"pairingCode", kCode}, {"expiresInSeconds", expires}});
    EXPECT_EQ(begin()["expiresInSeconds"], expires) << expires;
  }
}

TEST_F(Pairing, FailsWhenThePortalGivesNoCode) {
  startDaemon();
  for (const Json& body : {Json::object(), Json{{"pairingCode", 12345678}},
                           Json{{"pairingCode", nullptr}}, Json::array({kCode}), Json(kCode)}) {
    answerPair(200, body);
    EXPECT_EQ(begin(), Failure("pairing_failed")) << body;
  }
}

TEST_F(Pairing, TakesEverySuccessForARegistration) {
  startDaemon();
  for (const int status : {201, 299}) {
    answerPair(status, {{"pairingCode", kCode}});
    EXPECT_EQ(begin()["code"], kCode) << status;
  }
}

TEST_F(Pairing, FailsWhenTheCodeIsTooLongToBeHandedOn) {
  startDaemon();
  answerPair(200, {{"pairingCode", std::string(256, 'A')}});
  EXPECT_EQ(begin()["ok"], true);
  answerPair(200, {{"pairingCode", std::string(257, 'A')}});
  EXPECT_EQ(begin(), Failure("pairing_failed"));
}

TEST_F(Pairing, FailsWhenThePortalRefuses) {
  startDaemon();
  for (const int status : {300, 401, 404, 500}) {
    answerPair(status, {{"pairingCode", kCode}});
    EXPECT_EQ(begin(), Failure("pairing_failed")) << status;
  }
  EXPECT_EQ(check(), Failure("unknown_code"));
}

TEST_F(Pairing, SaysUnreachableWhenThePortalIs) {
  startDaemon();
  portal.stop();
  EXPECT_EQ(begin(), Failure("unreachable"));
  EXPECT_EQ(mac.log().size(), 2U);
  EXPECT_TRUE(mac.log().back().text.starts_with("POST /api/kiosk/pair: not reached ("));
}

TEST_F(Pairing, ReplacesTheCodeBeforeByANewOne) {
  startWithCode();
  answerPair(200, {{"pairingCode", "22223333"}});
  begin();
  EXPECT_EQ(check(), Failure("unknown_code"));
  portal.answer("GET /api/kiosk/pair/22223333", 202, Json::object());
  EXPECT_EQ(check("22223333"), kNotClaimed);
}

TEST_F(Pairing, KeepsTheCodeBeforeWhenANewOneIsNotToBeHad) {
  startWithCode();
  answerPair(500, Json::object());
  EXPECT_EQ(begin(), Failure("pairing_failed"));
  EXPECT_EQ(check(), kNotClaimed);
}

// --- pair.check: codes
// ----------------------------------------------------------------------------

TEST_F(Pairing, RepeatsThePortalsSpellingButAsksInUpperCase) {
  startDaemon();
  answerPair(200, {{"pairingCode", "abcdEFGH"}});
  EXPECT_EQ(begin()["code"], "abcdEFGH");
  answerPoll(202, Json::object());
  for (const char* code : {"ABCDEFGH", "abcdefgh", "abcdEFGH", "  aBcDeFgH\t", "\u00A0ABCDEFGH"}) {
    EXPECT_EQ(check(code), kNotClaimed) << code;
  }
  EXPECT_EQ(portal.requests(kPollCall).size(), 5U);
  EXPECT_EQ(portal.requests().size(), 6U);
}

TEST_F(Pairing, AsksWithoutBodyAndWithoutToken) {
  startWithCode();
  check();
  ASSERT_EQ(portal.requests(kPollCall).size(), 1U);
  const PortalRequest request = portal.requests(kPollCall).front();
  EXPECT_EQ(request.body, "");
  EXPECT_EQ(request.header("content-type"), std::nullopt);
  EXPECT_EQ(request.header("authorization"), std::nullopt);
}

TEST_F(Pairing, RefusesWhatIsNoCodeWithoutAskingThePortal) {
  startWithCode();
  const std::vector<Json> codes{"ABCDEFGI",
                                "ABCDEFGO",
                                "ABCDEFG0",
                                "ABCDEFG1",
                                "ABCDEFG",
                                "ABCDEFGHJ",
                                "",
                                " ",
                                "ABCD EFG",
                                "ABCDEFG-",
                                "ABCDEFG\n",
                                "ABCDEFGH\n",
                                "\nABCDEFGH",
                                "ABCDEFGH\r\n",
                                std::string("ABCDEFGH\0", 9),
                                std::string("ABCDEFG\0", 8),
                                "ABCDEFGÄ",
                                "ABCDEFG\u00DF",
                                "../../..",
                                "ABCD%45F",
                                std::string(1 << 20, 'A'),
                                Json(),
                                23456789,
                                true,
                                Json::array({kCode}),
                                Json{{"code", kCode}}};
  for (const Json& code : codes) EXPECT_EQ(check(code), Failure("invalid_code")) << code;
  EXPECT_EQ(send({{"cmd", "pair.check"}}), Failure("invalid_code"));
  EXPECT_EQ(portal.requests().size(), 1U) << "the registration alone";
}

TEST_F(Pairing, RefusesACodeThatItDidNotHandOutWithoutAskingThePortal) {
  startWithCode();
  EXPECT_EQ(check("ABCDEFGJ"), Failure("unknown_code"));
  EXPECT_EQ(check("22222222"), Failure("unknown_code"));
  EXPECT_EQ(portal.requests().size(), 1U);
}

TEST_F(Pairing, RefusesEveryCodeBeforeItHandedOneOut) {
  startDaemon();
  EXPECT_EQ(check(), Failure("unknown_code"));
  EXPECT_EQ(portal.requests().size(), 0U);
}

TEST_F(Pairing, NeverAsksForACodeThatIsNone) {
  startDaemon();
  for (const char* code : {"../admin", "", "ABCDEFG0"}) {
    answerPair(200, {{"pairingCode", code}});
    EXPECT_EQ(begin()["code"], code);
    EXPECT_EQ(check(code), Failure("invalid_code")) << code;
  }
  EXPECT_EQ(portal.requests().size(), 3U);
}

TEST_F(Pairing, ForgetsTheCodeWhenTheDaemonRestarts) {
  startWithCode();
  restartDaemon();
  EXPECT_EQ(check(), Failure("unknown_code"));
}

// --- pair.check: the portal's answers
// -------------------------------------------------------------

TEST_F(Pairing, WaitsUntilTheCodeIsClaimed) {
  startWithCode();
  for (int i = 0; i < 3; ++i) EXPECT_EQ(check(), kNotClaimed);
  EXPECT_EQ(portal.requests(kPollCall).size(), 3U);
  EXPECT_EQ(status()["enrolled"], Json(0));
}

TEST_F(Pairing, ForgetsACodeThatExpired) {
  for (const int status : {404, 410}) {
    startWithCode();
    answerPoll(status, Json::object());
    EXPECT_EQ(check(), Failure("expired")) << status;
    EXPECT_EQ(check(), Failure("unknown_code")) << status;
  }
}

TEST_F(Pairing, ForgetsACodeThatAnotherDeviceClaimed) {
  startWithCode();
  answerPoll(409, Json::object());
  EXPECT_EQ(check(), Failure("claimed"));
  EXPECT_EQ(check(), Failure("unknown_code"));
}

TEST_F(Pairing, TakesNoTokenFromAnAnswerThatTheCodeIsNotClaimed) {
  for (const int status : {202, 404, 409, 410}) {
    startWithCode();
    answerPoll(status, {{"deviceToken", "device-token"}});
    EXPECT_NE(check()["paired"], true) << status;
    EXPECT_FALSE(mac.state().contains("token")) << status;
  }
}

TEST_F(Pairing, KeepsTheCodeWhenTheAnswerMakesNoSense) {
  startWithCode();
  const std::vector<std::pair<int, Json>> answers{
      {500, {{"deviceToken", "t"}}},     {401, {{"deviceToken", "t"}}},
      {300, {{"deviceToken", "t"}}},     {200, Json::object()},
      {200, {{"deviceToken", ""}}},      {200, {{"deviceToken", 5}}},
      {200, {{"deviceToken", nullptr}}}, {200, Json::array({"t"})}};
  for (const auto& [status, body] : answers) {
    answerPoll(status, body);
    EXPECT_EQ(check(), Failure("pairing_failed")) << status << body;
  }
  portal.answerText(kPollCall, 204, "", "");
  EXPECT_EQ(check(), Failure("pairing_failed"));
  portal.answerText(kPollCall, 200, "<html>", "text/html");
  EXPECT_EQ(check(), Failure("pairing_failed"));
  answerPoll(202, Json::object());
  EXPECT_EQ(check(), kNotClaimed);
}

TEST_F(Pairing, KeepsTheCodeWhenThePortalIsNotReached) {
  startWithCode();
  portal.stop();
  EXPECT_EQ(check(), Failure("unreachable"));
  portal.resume();
  EXPECT_EQ(check(), kNotClaimed);
}

// --- enrolment
// ------------------------------------------------------------------------------------

TEST_F(Pairing, EnrolsProvisionsAndSchedulesTheRestart) {
  startWithCode();
  claim();
  EXPECT_EQ(check(), (Json{{"ok", true},
                           {"paired", true},
                           {"provisioned", true},
                           {"restarting", true},
                           {"restartInSeconds", 10}}));
  EXPECT_EQ(mac.countLog("enrolled by the portal"), 1U);
  EXPECT_EQ(mac.countLog(kRestartLine), 1U);
  EXPECT_EQ(mac.state()["token"], "device-token");
  EXPECT_EQ(mac.state()["provisioned"], true);
  EXPECT_EQ(status()["enrolled"], Json(1));
}

TEST_F(Pairing, ChecksInAtOnceWithTheNewToken) {
  startPaired();
  ASSERT_EQ(portal.requests(kCheckInCall).size(), 1U);
  EXPECT_EQ(portal.requests(kCheckInCall).front().header("authorization"), "Bearer device-token");
}

TEST_F(Pairing, HasSavedTheTokenAndSaidSoBeforeItChecksIn) {
  startWithCode();
  claim();
  Json stateThen;
  std::size_t linesThen = 0;
  portal.whenAsked(kCheckInCall, [&] {
    stateThen = mac.state();
    linesThen = mac.countLog("enrolled by the portal");
  });
  check();
  EXPECT_EQ(stateThen["token"], "device-token");
  EXPECT_EQ(stateThen["provisioned"], Json(false));
  EXPECT_EQ(linesThen, 1U);
}

TEST_F(Pairing, ChecksInAgain30SecondsLater) {
  startPaired();
  virtual_time::Advance(30 * kSecondNs - 1);
  EXPECT_EQ(portal.requests(kCheckInCall).size(), 1U);
  virtual_time::Advance(1);
  EXPECT_EQ(portal.requests(kCheckInCall).size(), 2U);
}

TEST_F(Pairing, ForgetsTheErrorAndTheProvisioningOfBefore) {
  startDaemon({{"lastError", "autologin_in_use"}, {"provisioned", true}});
  answerPair(200, {{"pairingCode", kCode}});
  begin();
  answerPoll(200, {{"deviceToken", "device-token"}});
  portal.answer(kCheckInCall, 500, Json::object());
  EXPECT_EQ(check(), (Json{{"ok", true}, {"paired", true}, {"provisioned", false}}));
  EXPECT_FALSE(mac.state().contains("lastError"));
  EXPECT_EQ(mac.state()["provisioned"], Json(false));
}

TEST_F(Pairing, AsksThePortalNoMoreOnceItHasAToken) {
  startPaired();
  check();
  check("22222222");
  check(5);
  EXPECT_EQ(portal.requests(kPollCall).size(), 1U);
}

TEST_F(Pairing, StaysPairedWhenTheFirstCheckInFails) {
  startWithCode();
  answerPoll(200, {{"deviceToken", "device-token"}});
  portal.answer(kCheckInCall, 500, Json::object());
  EXPECT_EQ(check(), (Json{{"ok", true}, {"paired", true}, {"provisioned", false}}));
  EXPECT_EQ(mac.state()["token"], "device-token");
  EXPECT_EQ(mac.countLog(kRestartLine), 0U);
  EXPECT_EQ(virtual_time::NanosecondsUntilNext(), 30 * kSecondNs);
  EXPECT_EQ(check()["restartInSeconds"], 10) << "the next pair.check provisions";
}

TEST_F(Pairing, StartsTheBackOffAnewAtPairing) {
  startSettled();
  portal.stop();
  for (int i = 0; i < 4; ++i) runNextCheckIn();
  portal.resume();
  portal.answer(kCheckInCall, 401, {{"status", "revoked"}});
  runNextCheckIn();
  answerPair(200, {{"pairingCode", kCode}});
  begin();
  answerPoll(200, {{"deviceToken", "device-token"}});
  portal.answer(kCheckInCall, 500, Json::object());
  check();
  runNextCheckIn();
  EXPECT_EQ(virtual_time::NanosecondsUntilNext(), 60 * kSecondNs);
}

TEST_F(Pairing, SaysRevokedWhenTheFirstCheckInTearsDown) {
  startWithCode();
  answerPoll(200, {{"deviceToken", "device-token"}});
  portal.answer(kCheckInCall, 401, {{"status", "revoked"}});
  EXPECT_EQ(check(), Failure("revoked"));
  EXPECT_EQ(mac.state(), (Json{{"authBaseUrl", portal.url()}}));
  EXPECT_EQ(virtual_time::PendingCount(), 0U);
  EXPECT_EQ(check(), Failure("unknown_code"));
}

TEST_F(Pairing, PairsAgainAfterItWasRevoked) {
  startWithCode();
  answerPoll(200, {{"deviceToken", "device-token"}});
  portal.answer(kCheckInCall, 401, {{"status", "revoked"}});
  check();
  ASSERT_EQ(begin()["ok"], true);
  claim();
  EXPECT_EQ(check()["restartInSeconds"], 10);
  EXPECT_EQ(virtual_time::PendingCount(), 2U) << "the check-in and the restart";
}

TEST_F(Pairing, KeepsATokenThatNoHeaderCanCarryAndIsNotFooledByIt) {
  startWithCode();
  answerPoll(200, {{"deviceToken", "t\r\nX-Forged: yes"}});
  EXPECT_EQ(check(), (Json{{"ok", true}, {"paired", true}, {"provisioned", false}}));
  EXPECT_EQ(portal.requests(kCheckInCall).size(), 0U);
}

TEST_F(Pairing, TellsWhyItCouldNotProvisionAndTriesAgainAtEachCheck) {
  startWithCode();
  claim();
  mac.addFault({{"target", kCreateHome}, {"status", 1}});
  EXPECT_EQ(check(), Failure("home_failed"));
  EXPECT_EQ(check(), Failure("home_failed"));
  EXPECT_EQ(check(), Failure("home_failed"));
  EXPECT_EQ(mac.runs(kCreateHome).size(), 3U);
  EXPECT_EQ(mac.countErrors("provisioning refused: home_failed"), 1U);
  EXPECT_EQ(mac.countLog(kRestartLine), 0U);
  EXPECT_EQ(status()["enrolled"], Json(1));
  EXPECT_EQ(status()["error"], "home_failed");
  mac.clearFaults();
  EXPECT_EQ(check()["restartInSeconds"], 10);
  EXPECT_EQ(mac.countLog(kRestartLine), 1U);
}

TEST_F(Pairing, SaysProvisionedWhateverErrorThereWasBefore) {
  startSettled({{"lastError", "home_failed"}});
  EXPECT_EQ(check(), (Json{{"ok", true}, {"paired", true}, {"provisioned", true}}));
}

TEST_F(Pairing, SchedulesNoRestartForATerminalThatWasPairedBefore) {
  startProvisioned();
  EXPECT_EQ(check(), (Json{{"ok", true}, {"paired", true}, {"provisioned", true}}));
  EXPECT_EQ(mac.countLog(kRestartLine), 0U);
}

// --- the restart
// ----------------------------------------------------------------------------------

TEST_F(Pairing, CountsTheSecondsToTheRestartRoundedUp) {
  startPaired();
  const std::vector<std::pair<std::uint64_t, int>> steps{
      {1, 10},
      {kSecondNs - 2, 10},
      {1, 9},  // just before, and at, the end of the first second
      {500'000'000, 9},
      {500'000'000, 8},
      {7 * kSecondNs, 1},
      {kSecondNs - 1, 1}};
  for (const auto& [step, seconds] : steps) {
    virtual_time::Advance(step);
    const Json reply = check();
    EXPECT_EQ(reply["restarting"], true);
    EXPECT_EQ(reply["restartInSeconds"], seconds) << step;
  }
}

TEST_F(Pairing, CountsZeroOnceTheRestartIsDue) {
  startPaired();
  platform::ClockSleep(11 * kSecondNs);  // busy, so that the restart has not been run yet
  EXPECT_EQ(daemon->pairCheck(kCode)["restartInSeconds"], 0);
}

TEST_F(Pairing, SchedulesOneRestartOnly) {
  startPaired();
  virtual_time::Advance(kSecondNs);
  EXPECT_EQ(check()["restartInSeconds"], 9);
  EXPECT_EQ(check()["restartInSeconds"], 9);
  EXPECT_EQ(mac.countLog(kRestartLine), 1U);
  EXPECT_EQ(virtual_time::PendingCount(), 2U) << "the check-in and the restart";
}

TEST_F(Pairing, RestartsTheMacOnceAfter10Seconds) {
  startPaired();
  virtual_time::Advance(10 * kSecondNs - 1);
  EXPECT_EQ(restarts().size(), 0U);
  virtual_time::Advance(1);
  EXPECT_EQ(restarts(), (std::vector<ToolRun>{{kShutdown, {"-r", "now"}, 0}}));
  EXPECT_EQ(mac.countLog("restarting into kiosk mode (enrolled)"), 1U);
  virtual_time::Advance(60 * kSecondNs);
  EXPECT_EQ(restarts().size(), 1U);
  EXPECT_EQ(check(), (Json{{"ok", true}, {"paired", true}, {"provisioned", true}}));
}

TEST_F(Pairing, RestartsAtOnceWhenAsked) {
  startPaired();
  EXPECT_EQ(restartNow(501), (Json{{"ok", true}}));
  EXPECT_EQ(restarts().size(), 0U) << "the reply goes out first";
  virtual_time::RunReady();
  EXPECT_EQ(restarts(), (std::vector<ToolRun>{{kShutdown, {"-r", "now"}, 0}}));
  EXPECT_EQ(mac.countLog("restarting into kiosk mode (Restart now)"), 1U);
  virtual_time::Advance(20 * kSecondNs);
  EXPECT_EQ(restarts().size(), 1U);
  EXPECT_EQ(mac.countLog("restarting into kiosk mode (enrolled)"), 0U);
  EXPECT_EQ(restartNow(), Failure("not_pending"));
}

TEST_F(Pairing, RestartsOnceWhenAskedTwice) {
  startPaired();
  EXPECT_EQ(daemon->restartNowRequest(0), (Json{{"ok", true}}));
  EXPECT_EQ(daemon->restartNowRequest(0), (Json{{"ok", true}}));
  virtual_time::RunReady();
  EXPECT_EQ(restarts().size(), 1U);
}

TEST_F(Pairing, DoesNotRestartBeforeARestartIsPending) {
  startDaemon();
  EXPECT_EQ(restartNow(), Failure("not_pending"));
  startProvisioned();
  EXPECT_EQ(restartNow(), Failure("not_pending"));
  virtual_time::RunReady();
  EXPECT_EQ(restarts().size(), 0U);
}

TEST_F(Pairing, DoesNotLetTheKioskAccountRestartTheMac) {
  startPaired();
  EXPECT_EQ(restartNow(kioskUid()), Failure("not_permitted"));
  virtual_time::RunReady();
  EXPECT_EQ(restarts().size(), 0U);
  EXPECT_EQ(check()["restarting"], true);
}

TEST_F(Pairing, TakesAForeignAccountOfThatNameForAnybody) {
  startProvisioned();
  const std::uint32_t uid = kioskUid();
  startSettled({{"generatedUID", "11111111-2222-3333-4444-555555555555"}});
  EXPECT_EQ(restartNow(uid), Failure("not_pending"));
}

TEST_F(Pairing, RefusesTheKioskAccountBeforeItLooksForARestart) {
  startProvisioned();
  EXPECT_EQ(restartNow(kioskUid()), Failure("not_permitted"));
}

TEST_F(Pairing, SaysWhyARestartWasRefusedAndDoesNotRepeatIt) {
  mac.addFault({{"target", kShutdown}, {"status", 1}, {"output", "shutdown: not today\n"}});
  startPaired();
  virtual_time::Advance(10 * kSecondNs);
  EXPECT_EQ(mac.countErrors("shutdown -r refused: shutdown: not today"), 1U);
  virtual_time::Advance(60 * kSecondNs);
  EXPECT_EQ(restarts().size(), 1U);
  EXPECT_FALSE(check().contains("restarting"));
  EXPECT_EQ(restartNow(), Failure("not_pending"));
}

TEST_F(Pairing, SaysSoWhenTheRestartCannotBeStarted) {
  mac.remove(kShutdown);
  startPaired();
  virtual_time::Advance(10 * kSecondNs);
  EXPECT_EQ(mac.countErrors("shutdown did not start: No such file or directory"), 1U);
  EXPECT_EQ(mac.countErrors("shutdown -r refused: "), 1U);
}

TEST_F(Pairing, SaysNothingMoreAboutARestartThatIsAccepted) {
  startPaired();
  virtual_time::Advance(10 * kSecondNs);
  EXPECT_EQ(mac.log().back(), (LogLine{"Default", "restarting into kiosk mode (enrolled)"}));
}

TEST_F(Pairing, ForgetsThePendingRestartWhenTheDaemonRestarts) {
  startPaired();
  restartDaemon();
  virtual_time::Advance(20 * kSecondNs);
  EXPECT_EQ(restarts().size(), 0U);
  EXPECT_EQ(check(), (Json{{"ok", true}, {"paired", true}, {"provisioned", true}}));
  EXPECT_EQ(restartNow(), Failure("not_pending"));
}

}  // namespace
