// Start-up and the check-in timer.
#include <sys/stat.h>

#include <algorithm>
#include <string>
#include <vector>

#include "tests/daemon/DaemonTest.h"

namespace {

constexpr char kDefaults[] = "/usr/bin/defaults";
constexpr char kRestored[] = "maintenance over: auto-login restored";
constexpr char kGoneUid[] = "11111111-2222-3333-4444-555555555555";

class Start : public DaemonTest {
 protected:
  // Starts a provisioned daemon anew in maintenance, with auto-login off as maintenance leaves it.
  void restartInMaintenance(const Json& changes = Json::object()) {
    startProvisioned();
    ASSERT_EQ(RunToEnd({kDefaults, "delete", "/Library/Preferences/com.apple.loginwindow",
                        "autoLoginUser"})
                  .status,
              0);
    mac.remove(kPasswordFile);
    Json state = mac.state();
    state["maintenance"] = true;
    state.update(changes);
    mac.writeState(state);
    restartDaemon();
  }

  // Seconds from each of these check-ins to the next.
  std::vector<double> delaysAfter(int checkIns) {
    std::vector<double> delays;
    for (int i = 0; i < checkIns; ++i) {
      runNextCheckIn();
      delays.push_back(secondsUntilNext());
    }
    return delays;
  }

  static double secondsUntilNext() {
    const auto next = virtual_time::NanosecondsUntilNext();
    return next ? static_cast<double>(*next) / 1e9 : -1;
  }

  std::size_t checkIns() const { return portal.requests(kCheckInCall).size(); }

  // How often an install of OS updates was begun; the policy below wants that once a day.
  std::size_t updateRuns() const {
    const std::vector<LogLine> log = mac.log();
    return static_cast<std::size_t>(std::count_if(log.begin(), log.end(), [](const LogLine& line) {
      return line.text.ends_with("window is open; installing");
    }));
  }

  static Json updatesAtOnce() {
    return {{"automatic", true},
            {"window",
             {{"start", "00:00"}, {"end", "00:00"}, {"days", Json::array({0, 1, 2, 3, 4, 5, 6})}}}};
  }
};

TEST_F(Start, SaysNotEnrolledAndArmsNoTimerWithoutAToken) {
  startDaemon();
  EXPECT_EQ(mac.log(), (std::vector<LogLine>{{"Default", "started: not enrolled"}}));
  EXPECT_EQ(virtual_time::PendingCount(), 0U);
  virtual_time::Advance(24 * 3600 * virtual_time::kSecondNs);
  EXPECT_EQ(portal.requests().size(), 0U);
}

TEST_F(Start, SaysNotEnrolledWhenProvisionedWithoutAToken) {
  startDaemon({{"provisioned", true}});
  EXPECT_EQ(mac.countLog("started: not enrolled"), 1U);
}

TEST_F(Start, SaysEnrolledAndChecksInAtOnce) {
  answerEnrolled();
  startDaemon({{"token", "device-token"}});
  EXPECT_EQ(mac.countLog("started: enrolled"), 1U);
  EXPECT_EQ(virtual_time::PendingCount(), 1U);
  EXPECT_EQ(virtual_time::NanosecondsUntilNext(), 0U);
  EXPECT_EQ(checkIns(), 0U) << "the start itself does not wait for the portal";
  virtual_time::RunReady();
  EXPECT_EQ(checkIns(), 1U);
}

TEST_F(Start, LetsTheTimerFireUpToASecondLate) {
  startSettled();
  EXPECT_EQ(virtual_time::LastLeewayNs(), virtual_time::kSecondNs);
}

TEST_F(Start, SaysEnrolledAndProvisioned) {
  startSettled();
  EXPECT_EQ(mac.countLog("started: enrolled, provisioned"), 1U);
}

TEST_F(Start, PublishesBeforeTheFirstCheckIn) {
  startSettled({{"terminalName", "Lobby"}});
  EXPECT_EQ(daemon->status(0)["ok"], true);
  EXPECT_EQ(daemon->status(0)["terminalName"], "Lobby");
  EXPECT_EQ(checkIns(), 0U);
}

TEST_F(Start, ForgetsAnAccountThatIsGoneBeforeItSaysHowItStarted) {
  startDaemon({{"token", "t"}, {"provisioned", true}, {"generatedUID", kGoneUid}});
  const std::string gone =
      std::string("the BrindlexKiosk account this helper created (") + kGoneUid + ") is gone";
  EXPECT_EQ(mac.log(), (std::vector<LogLine>{{"Error", gone}, {"Default", "started: enrolled"}}));
  EXPECT_EQ(daemon->status(0)["provisioned"], false);
}

TEST_F(Start, ForgetsAnAccountThatIsGoneBeforeItRestoresAutoLogin) {
  startDaemon({{"token", "t"},
               {"provisioned", true},
               {"password", "secret"},
               {"maintenance", true},
               {"generatedUID", kGoneUid}});
  EXPECT_EQ(mac.countRuns(kDefaults, {"write"}), 0U);
  EXPECT_FALSE(mac.exists(kPasswordFile));
  EXPECT_EQ(mac.countLog(kRestored), 0U);
  EXPECT_EQ(mac.state()["maintenance"], Json(false));
}

TEST_F(Start, SavesNothingWhenNothingChanged) {
  const std::string text = R"({ "provisioned" : false , "later" : 1 })";
  mac.write(kStateFile, text);
  restartDaemon();
  EXPECT_EQ(mac.read(kStateFile), text);
}

TEST_F(Start, EndsMaintenanceAndRestoresAutoLogin) {
  restartInMaintenance();
  EXPECT_EQ(mac.countLog(kRestored), 1U);
  EXPECT_EQ(mac.state()["maintenance"], Json(false));
  EXPECT_EQ(autoLoginUser(), "BrindlexKiosk");
  EXPECT_TRUE(mac.exists(kPasswordFile));
  EXPECT_EQ(daemon->status(0)["maintenance"], false);
}

TEST_F(Start, EndsMaintenanceEvenWhenAutoLoginCannotBeRestored) {
  mac.addFault({{"target", kDefaults}, {"arguments", {"write"}}, {"status", 1}});
  startDaemon({{"provisioned", true}, {"password", "secret"}, {"maintenance", true}});
  EXPECT_EQ(mac.countRuns(kDefaults, {"write"}), 1U);
  EXPECT_EQ(mac.countLog(kRestored), 0U);
  EXPECT_EQ(mac.state()["maintenance"], Json(false));
}

TEST_F(Start, EndsMaintenanceWithoutAutoLoginWhenItIsNotProvisioned) {
  startDaemon({{"password", "secret"}, {"maintenance", true}});
  EXPECT_EQ(mac.countRuns(kDefaults, {"write"}), 0U);
  EXPECT_EQ(mac.countLog(kRestored), 0U);
  EXPECT_EQ(mac.state()["maintenance"], Json(false));
}

TEST_F(Start, EndsMaintenanceWithoutAutoLoginWhenThereIsNoPassword) {
  for (const Json& password : {Json(), Json(""), Json(5)}) {
    startDaemon({{"provisioned", true}, {"password", password}, {"maintenance", true}});
    EXPECT_EQ(mac.state()["maintenance"], Json(false)) << password;
  }
  EXPECT_EQ(mac.countRuns(kDefaults, {"write"}), 0U);
  EXPECT_EQ(mac.countLog(kRestored), 0U);
}

TEST_F(Start, TakesTheNumberOneForMaintenance) {
  startDaemon({{"maintenance", 1}});
  EXPECT_EQ(mac.state()["maintenance"], Json(false));
}

TEST_F(Start, TakesATextForNoMaintenance) {
  startDaemon({{"maintenance", "true"}});
  EXPECT_EQ(mac.state()["maintenance"], "true");
}

TEST_F(Start, LeavesAutoLoginAloneOutsideMaintenance) {
  startDaemon({{"provisioned", true}, {"password", "secret"}, {"maintenance", false}});
  EXPECT_EQ(mac.countRuns(kDefaults, {"write"}), 0U);
  EXPECT_EQ(mac.countLog(kRestored), 0U);
}

TEST_F(Start, ChecksInEvery30SecondsWhileThePortalAnswers) {
  startSettled();
  EXPECT_EQ(delaysAfter(4), (std::vector<double>{30, 30, 30, 30}));
  EXPECT_EQ(checkIns(), 4U);
}

TEST_F(Start, BacksOffWhileThePortalIsNotReachedAndReturnsTo30Seconds) {
  startSettled();
  runNextCheckIn();
  portal.stop();
  EXPECT_EQ(delaysAfter(7), (std::vector<double>{60, 120, 240, 480, 600, 600, 600}));
  portal.resume();
  EXPECT_EQ(delaysAfter(2), (std::vector<double>{30, 30}));
}

TEST_F(Start, BacksOffFromTheVeryFirstCheckInOn) {
  startSettled();
  portal.stop();
  EXPECT_EQ(delaysAfter(2), (std::vector<double>{60, 120}));
}

TEST_F(Start, BacksOffFromAnswersThatItDoesNotUnderstand) {
  startSettled();
  portal.answer(kCheckInCall, 500, Json::object());
  EXPECT_EQ(delaysAfter(3), (std::vector<double>{60, 120, 240}));
}

TEST_F(Start, BacksOffWhileThePortalDoesNotKnowTheToken) {
  startSettled();
  portal.answer(kCheckInCall, 401, {{"status", "unknown"}});
  EXPECT_EQ(delaysAfter(3), (std::vector<double>{60, 120, 240}));
}

TEST_F(Start, KeepsTheBackOffInMemoryOnly) {
  startSettled();
  portal.stop();
  EXPECT_EQ(delaysAfter(3), (std::vector<double>{60, 120, 240}));
  restartDaemon();
  EXPECT_EQ(delaysAfter(1), (std::vector<double>{60}));
}

TEST_F(Start, LetsAPassOfTheUpdatePolicyFollowACheckIn) {
  startSettled({{"updates", updatesAtOnce()}});
  std::size_t before = 1;
  portal.whenAsked(kCheckInCall, [&] { before = updateRuns(); });
  runNextCheckIn();
  EXPECT_EQ(before, 0U) << "neither at the start nor before the answer";
  EXPECT_EQ(updateRuns(), 1U);
  EXPECT_EQ(secondsUntilNext(), 30);
}

TEST_F(Start, LetsAPassOfTheUpdatePolicyFollowTheCheckInThatBringsIt) {
  startSettled();
  answerEnrolled({{"updates", updatesAtOnce()}});
  runNextCheckIn();
  EXPECT_EQ(updateRuns(), 1U);
}

TEST_F(Start, LetsAPassOfTheUpdatePolicyFollowACheckInThatFails) {
  startSettled({{"updates", updatesAtOnce()}});
  portal.stop();
  runNextCheckIn();
  EXPECT_EQ(updateRuns(), 1U);
  EXPECT_EQ(secondsUntilNext(), 60);
}

TEST_F(Start, LetsAPassOfTheUpdatePolicyFollowAnAnswerThatItDoesNotUnderstand) {
  startSettled({{"updates", updatesAtOnce()}});
  portal.answer(kCheckInCall, 500, Json::object());
  runNextCheckIn();
  EXPECT_EQ(updateRuns(), 1U);
}

TEST_F(Start, LetsAPassOfTheUpdatePolicyFollowEveryCheckIn) {
  startSettled({{"updates", updatesAtOnce()}});
  runNextCheckIn();
  // The next day's window, some check-ins later.
  virtual_time::ShiftWallClock(24 * 3600);
  virtual_time::Advance(900 * virtual_time::kSecondNs);
  EXPECT_EQ(updateRuns(), 2U);
}

TEST_F(Start, LetsNoPassOfTheUpdatePolicyFollowATimerWithoutAToken) {
  startDaemon({{"provisioned", true}, {"updates", updatesAtOnce()}});
  daemon->scheduleCheckInAfter(1);
  runNextCheckIn();
  EXPECT_EQ(updateRuns(), 0U);
}

TEST_F(Start, LetsNoPassOfTheUpdatePolicyFollowACheckInWithoutTheTimer) {
  startSettled({{"updates", updatesAtOnce()}});
  EXPECT_EQ(checkIn(), KioskCheckInOutcome::kEnrolled);
  EXPECT_EQ(updateRuns(), 0U);
}

TEST_F(Start, HasAtMostOneCheckInPending) {
  startSettled();
  daemon->scheduleCheckInAfter(600);
  daemon->scheduleCheckInAfter(5);
  EXPECT_EQ(virtual_time::PendingCount(), 1U);
  EXPECT_EQ(secondsUntilNext(), 5);
  daemon->scheduleCheckInAfter(42.5);
  EXPECT_EQ(virtual_time::PendingCount(), 1U);
  EXPECT_EQ(secondsUntilNext(), 42.5);
  EXPECT_EQ(checkIns(), 0U);
}

TEST_F(Start, DoesNothingWhenTheTimerFiresWithoutAToken) {
  startDaemon();
  daemon->scheduleCheckInAfter(1);
  runNextCheckIn();
  EXPECT_EQ(portal.requests().size(), 0U);
  EXPECT_EQ(virtual_time::PendingCount(), 0U);
}

TEST_F(Start, LeavesTheTimerDisarmedAfterATeardown) {
  startSettled();
  portal.answer(kCheckInCall, 401, {{"status", "revoked"}});
  runNextCheckIn();
  EXPECT_EQ(mac.countLog("tearing down (the portal revoked this device)"), 1U);
  EXPECT_EQ(virtual_time::PendingCount(), 0U);
  virtual_time::Advance(24 * 3600 * virtual_time::kSecondNs);
  EXPECT_EQ(checkIns(), 1U);
  EXPECT_EQ(status()["enrolled"], Json(0));
}

TEST_F(Start, ArmsTheTimerAgainAfterATeardown) {
  startSettled();
  portal.answer(kCheckInCall, 401, {{"status", "revoked"}});
  runNextCheckIn();
  daemon->scheduleCheckInAfter(30);
  EXPECT_EQ(virtual_time::PendingCount(), 1U);
  EXPECT_EQ(secondsUntilNext(), 30);
}

TEST_F(Start, LeavesNoTimerBehindWhenTheDaemonGoes) {
  startSettled();
  ASSERT_EQ(virtual_time::PendingCount(), 1U);
  daemon.reset();
  EXPECT_EQ(virtual_time::PendingCount(), 0U);
}

}  // namespace
