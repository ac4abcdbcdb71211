// When OS updates install by themselves.
#include "tests/daemon/UpdatesTest.h"

#include <stdlib.h>
#include <time.h>

#include <filesystem>

#include "platform/Clock.h"

namespace {

constexpr char kDeferredLive[] = "OS updates deferred: a stream session is live";
constexpr char kDeferredSignedIn[] = "OS updates deferred: someone is signed in at the terminal";
constexpr char kInstalling[] = "OS updates: the 2026-09-22 window is open; installing";
constexpr char kWindowOpens[] = "2026-09-22T02:00:00Z";  // a Tuesday

void LinkZone(const std::string& zone) {
  std::filesystem::remove("/private/etc/localtime");
  std::filesystem::create_symlink("/usr/share/zoneinfo/" + zone, "/private/etc/localtime");
}

}  // namespace

UpdatesTest::UpdatesTest() {
  unsetenv("TZ");
  LinkZone("UTC");
  setClock("2026-09-22T01:00:00Z");
}

Json UpdatesTest::policyOf(bool automatic, const std::string& start, const std::string& end) {
  return {
      {"automatic", automatic},
      {"window", {{"start", start}, {"end", end}, {"days", Json::array({0, 1, 2, 3, 4, 5, 6})}}}};
}

void UpdatesTest::receive(const Json& policy) {
  answerEnrolled({{"updates", policy}});
  EXPECT_EQ(checkIn(), KioskCheckInOutcome::kEnrolled);
  clearRecords();
}

void UpdatesTest::restartWith(const Json& changes) {
  Json state = mac.state();
  state.update(changes);
  startDaemon(state);
  clearRecords();
}

void UpdatesTest::setClock(const std::string& time) {
  tm parts = {};
  ASSERT_NE(strptime(time.c_str(), "%Y-%m-%dT%H:%M:%SZ", &parts), nullptr) << time;
  virtual_time::ShiftWallClock(static_cast<double>(timegm(&parts)) -
                               platform::ClockSecondsSince1970());
}

void UpdatesTest::offer(const std::string& list, int status) const {
  mac.addFault(
      {{"target", kSoftwareUpdate}, {"arguments", {"-l"}}, {"status", status}, {"output", list}});
}

void UpdatesTest::installSays(const std::string& output, int status) const {
  mac.addFault(
      {{"target", kSoftwareUpdate}, {"arguments", {"-i"}}, {"status", status}, {"output", output}});
}

void UpdatesTest::passAndFinish() {
  pass();
  finish();
}

Json UpdatesTest::report(const Json& live, const Json& signedIn) {
  return daemon->handle({{"cmd", "session.report"}, {"live", live}, {"signedIn", signedIn}},
                        {kioskUid(), 100});
}

std::size_t UpdatesTest::deferrals() const {
  return mac.countLog(kDeferredLive) + mac.countLog(kDeferredSignedIn);
}

namespace {

class Updates : public UpdatesTest {
 protected:
  Updates() {
    offer(kPlainUpdate);
    installSays("Done.");
  }

  /// The terminal has this policy, and the clock stands at the beginning of its window.
  void openWindow(const Json& policy = policyOf()) {
    receive(policy);
    setClock(kWindowOpens);
  }
};

TEST_F(Updates, InstallInsideTheWindow) {
  openWindow();
  passAndFinish();
  EXPECT_EQ(mac.runs(kSoftwareUpdate), (Runs{list(), install()}));
  EXPECT_EQ(mac.log(), (Log{{"Default", kInstalling},
                            {"Default", "OS updates: 1 pending"},
                            {"Default", "installing 1 OS update(s)"},
                            {"Default", "OS updates installed"}}));
  EXPECT_EQ(mac.state()["updatesWindowDone"], "2026-09-22");
  EXPECT_EQ(lastRun()["lastResult"], "ok");
  EXPECT_TRUE(restarts().empty());
}

TEST_F(Updates, DoNotKeepTheDaemonWaiting) {
  openWindow();
  pass();
  EXPECT_EQ(mac.countLog(kInstalling), 1U);
  EXPECT_EQ(lists(), 0U);
  EXPECT_EQ(status()["ok"], true);
  EXPECT_EQ(lists(), 1U);
}

TEST_F(Updates, StayWithoutAPolicy) {
  setClock(kWindowOpens);
  passAndFinish();
  EXPECT_EQ(lists(), 0U);
  receive(policyOf());
  passAndFinish();
  EXPECT_EQ(lists(), 1U);
}

TEST_F(Updates, StayWhenThePolicyIsNotAutomatic) {
  openWindow(policyOf(false));
  passAndFinish();
  EXPECT_EQ(lists(), 0U);
  EXPECT_TRUE(mac.log().empty());
  receive(policyOf(true));
  passAndFinish();
  EXPECT_EQ(lists(), 1U) << "an attempt that was none does not hold back the next";
}

TEST_F(Updates, StayWhenTheStoredPolicyIsInvalid) {
  Json numeric = policyOf();
  numeric["automatic"] = 1;
  Json neverOpen = policyOf();
  neverOpen["window"]["days"] = Json::array();
  Json late = policyOf(true, "02:00", "24:00");
  answerEnrolled();
  for (const Json& invalid :
       {numeric, neverOpen, late, Json("always"), Json::array({policyOf()})}) {
    restartWith({{"updates", invalid}});
    setClock(kWindowOpens);
    passAndFinish();
    EXPECT_EQ(lists(), 0U) << invalid;
    EXPECT_FALSE(mac.state().contains("osUpdates")) << invalid;
  }
}

TEST_F(Updates, StayUntilTheTerminalIsSetUp) {
  openWindow();
  restartWith({{"provisioned", false}});
  pass();
  EXPECT_EQ(mac.countLog(kInstalling), 0U);
  finish();  // the first check-in sets it up, and is followed by a pass
  EXPECT_EQ(mac.state()["provisioned"], true);
  EXPECT_EQ(lists(), 1U);
}

TEST_F(Updates, StayOutsideTheWindow) {
  receive(policyOf());
  for (const char* time :
       {"2026-09-22T01:59:59Z", "2026-09-22T05:00:00Z", "2026-09-22T14:00:00Z"}) {
    setClock(time);
    passAndFinish();
    EXPECT_TRUE(mac.log().empty()) << time;
  }
  EXPECT_EQ(lists(), 0U);
  EXPECT_FALSE(mac.state().contains("updatesWindowDone"));
  setClock("2026-09-22T04:59:59Z");
  passAndFinish();
  EXPECT_EQ(lists(), 1U);
}

TEST_F(Updates, StayOnDaysThatAreNotListed) {
  Json mondays = policyOf();
  mondays["window"]["days"] = Json::array({1});
  openWindow(mondays);
  passAndFinish();
  EXPECT_EQ(lists(), 0U);
  setClock("2026-09-28T02:00:00Z");
  passAndFinish();
  EXPECT_EQ(mac.state()["updatesWindowDone"], "2026-09-28");
}

TEST_F(Updates, GoByLocalTime) {
  LinkZone("Asia/Tokyo");
  receive(policyOf());
  setClock("2026-09-22T16:59:59Z");
  passAndFinish();
  EXPECT_EQ(lists(), 0U);
  setClock("2026-09-22T17:00:00Z");
  passAndFinish();
  EXPECT_EQ(mac.state()["updatesWindowDone"], "2026-09-23");
  EXPECT_EQ(lastRun()["lastRunAt"], "2026-09-22T17:00:00Z") << "in UTC all the same";
}

TEST_F(Updates, KeepTheDayOnWhichTheirWindowOpened) {
  openWindow(policyOf(true, "23:00", "03:00"));
  EXPECT_EQ(lists(), 0U);
  passAndFinish();
  EXPECT_EQ(mac.countLog("OS updates: the 2026-09-21 window is open; installing"), 1U);
  EXPECT_EQ(mac.state()["updatesWindowDone"], "2026-09-21");
  virtual_time::Advance(900 * kSecond);
  EXPECT_EQ(lists(), 1U);
  setClock("2026-09-22T23:00:00Z");
  passAndFinish();
  EXPECT_EQ(mac.state()["updatesWindowDone"], "2026-09-22");
  EXPECT_EQ(lists(), 2U);
}

TEST_F(Updates, StayInAWindowThatHadItsRun) {
  openWindow();
  restartWith({{"updatesWindowDone", "2026-09-22"}});
  passAndFinish();
  EXPECT_EQ(lists(), 0U);
  setClock("2026-09-23T02:00:00Z");
  passAndFinish();
  EXPECT_EQ(lists(), 1U) << "a window that is done does not hold back the next";
  EXPECT_EQ(mac.state()["updatesWindowDone"], "2026-09-23");
}

TEST_F(Updates, StayWhileAnInstallIsUnderWay) {
  unlock();
  openWindow();
  ASSERT_EQ(daemon->osInstall({{"unlockToken", token}}, {kioskUid(), 100}), done());
  pass();
  EXPECT_EQ(mac.countLog(kInstalling), 0U);
  finish();
  EXPECT_FALSE(mac.state().contains("updatesWindowDone"));
  passAndFinish();
  EXPECT_EQ(mac.countLog(kInstalling), 1U) << "a busy driver does not hold back the next attempt";
  EXPECT_EQ(mac.state()["updatesWindowDone"], "2026-09-22");
}

TEST_F(Updates, StayWhileACheckIsUnderWay) {
  unlock();
  openWindow();
  ASSERT_EQ(
      daemon->osUpdates({{"unlockToken", token}, {"check", true}}, {kioskUid(), 100})["checking"],
      true);
  report(true, true);
  pass();
  EXPECT_EQ(deferrals(), 0U);
  finish();
  pass();
  EXPECT_EQ(deferrals(), 1U);
}

TEST_F(Updates, StayWhileTheirOwnRunIsUnderWay) {
  openWindow();
  pass();
  clearRecords();
  setClock("2026-09-23T02:00:00Z");
  pass();
  EXPECT_TRUE(mac.log().empty());
}

TEST_F(Updates, InstallOnceInAWindow) {
  openWindow();
  virtual_time::Advance(2 * 3600 * kSecond);  // with a check-in every thirty seconds
  EXPECT_EQ(lists(), 1U);
  EXPECT_EQ(installs(), 1U);
}

TEST_F(Updates, AreNotTriedAgainInAWindowThatFoundNothing) {
  mac.clearFaults();
  offer(kNoUpdates);
  openWindow();
  virtual_time::Advance(2000 * kSecond);
  EXPECT_EQ(lists(), 1U);
  EXPECT_EQ(installs(), 0U);
  EXPECT_EQ(lastRun()["lastResult"], "nothing");
  EXPECT_EQ(mac.state()["updatesWindowDone"], "2026-09-22");
}

TEST_F(Updates, AreNotTriedAgainInAWindowInWhichTheyFailed) {
  mac.clearFaults();
  offer(kPlainUpdate);
  installSays("No.", 1);
  openWindow();
  virtual_time::Advance(2000 * kSecond);
  EXPECT_EQ(installs(), 1U);
  EXPECT_EQ(lastRun()["lastResult"], "failed");
  EXPECT_EQ(mac.state()["updatesWindowDone"], "2026-09-22");
}

TEST_F(Updates, AreNotTriedAgainInAWindowInWhichTheyCouldNotBeListed) {
  mac.clearFaults();
  offer("", 1);
  openWindow();
  virtual_time::Advance(2000 * kSecond);
  EXPECT_EQ(mac.runs(kSoftwareUpdate), Runs{list(1)});
  EXPECT_EQ(mac.state()["updatesWindowDone"], "2026-09-22");
}

TEST_F(Updates, InstallInEachNightsWindowEvenWhenThePortalIsNotReached) {
  receive(policyOf());
  portal.stop();
  virtual_time::Advance(48 * 3600 * kSecond);
  EXPECT_EQ(lists(), 2U);
  EXPECT_EQ(mac.countLog(kInstalling), 1U);
  EXPECT_EQ(mac.countLog("OS updates: the 2026-09-23 window is open; installing"), 1U);
}

TEST_F(Updates, AreDeferredWhileAStreamIsLive) {
  openWindow();
  report(true, false);
  clearRecords();
  passAndFinish();
  EXPECT_EQ(mac.log(), (Log{{"Default", kDeferredLive}}));
  EXPECT_EQ(lists(), 0U);
  EXPECT_EQ(lastRun(), (Json{{"lastRunAt", kWindowOpens},
                             {"lastResult", "deferred"},
                             {"pending", 0},
                             {"restartRequired", false},
                             {"error", nullptr}}));
  EXPECT_FALSE(mac.state().contains("updatesWindowDone"));
}

TEST_F(Updates, AreDeferredWhileSomeoneIsSignedIn) {
  openWindow();
  report(false, true);
  clearRecords();
  passAndFinish();
  EXPECT_EQ(mac.log(), (Log{{"Default", kDeferredSignedIn}}));
  EXPECT_EQ(lists(), 0U);
  EXPECT_EQ(lastRun()["lastResult"], "deferred");
}

TEST_F(Updates, AreDeferredForTheStreamWhenSomeoneIsSignedInAsWell) {
  openWindow();
  report(true, true);
  clearRecords();
  passAndFinish();
  EXPECT_EQ(mac.log(), (Log{{"Default", kDeferredLive}}));
}

TEST_F(Updates, AreTriedFifteenMinutesAfterADeferral) {
  openWindow();
  report(true, true);
  pass();
  report(false, false);
  virtual_time::Advance(900 * kSecond - 1);  // with a check-in every thirty seconds
  passAndFinish();
  EXPECT_EQ(lists(), 0U);
  virtual_time::Advance(1);  // a check-in is due
  EXPECT_EQ(lists(), 1U);
  EXPECT_EQ(mac.state()["updatesWindowDone"], "2026-09-22");
  EXPECT_EQ(lastRun()["lastResult"], "ok");
}

TEST_F(Updates, AreDeferredEveryFifteenMinutes) {
  openWindow();
  for (int minute = 0; minute <= 31; ++minute) {
    report(true, false);
    virtual_time::Advance(60 * kSecond);
  }
  EXPECT_EQ(mac.countLog(kDeferredLive), 3U);  // after half a minute, at 15:30 and at 30:30
  EXPECT_EQ(lists(), 0U);
}

TEST_F(Updates, WaitFifteenMinutesByTheMonotonicClock) {
  openWindow();
  report(true, false);
  pass();
  report(false, false);
  setClock("2026-09-22T04:00:00Z");
  passAndFinish();
  EXPECT_EQ(lists(), 0U);
  setClock("2026-09-22T02:00:00Z");
  virtual_time::Advance(899 * kSecond);
  setClock("2026-09-22T02:00:00Z");
  virtual_time::Advance(kSecond);
  EXPECT_EQ(lists(), 1U);
}

TEST_F(Updates, WaitFifteenMinutesForTheNextWindowAsWell) {
  openWindow();
  report(true, false);
  pass();
  report(false, false);
  setClock("2026-09-23T02:00:00Z");
  passAndFinish();
  EXPECT_EQ(lists(), 0U);
  virtual_time::Advance(900 * kSecond);
  EXPECT_EQ(mac.state()["updatesWindowDone"], "2026-09-23");
}

TEST_F(Updates, AreTriedAtOnceByADaemonThatWasStartedAnew) {
  openWindow();
  report(true, false);
  pass();
  EXPECT_EQ(deferrals(), 1U);
  restartDaemon();
  finish();  // the first check-in
  EXPECT_EQ(lists(), 1U);
}

TEST_F(Updates, MissAWindowInWhichTheTerminalIsInUse) {
  openWindow(policyOf(true, "02:00", "02:15"));
  report(true, false);
  pass();
  report(false, false);
  virtual_time::Advance(3600 * kSecond);
  EXPECT_EQ(lists(), 0U);
  EXPECT_FALSE(mac.state().contains("updatesWindowDone"));
}

TEST_F(Updates, ServeAnEarlierWindowAgainAfterTheClockWasSetBack) {
  openWindow();
  passAndFinish();
  setClock("2026-09-21T02:00:00Z");
  virtual_time::Advance(900 * kSecond);
  EXPECT_EQ(mac.state()["updatesWindowDone"], "2026-09-21");
  EXPECT_EQ(lists(), 2U);
}

}  // namespace
