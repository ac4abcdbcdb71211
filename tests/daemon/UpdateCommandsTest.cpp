// The commands of OS updates, and the reports of the kiosk account's session.
#include "tests/daemon/UpdatesTest.h"
#include "updates/KioskUpdates.h"

namespace {

constexpr char kStarted[] = "OS updates: install started at the terminal";
constexpr char kNow[] = "2026-09-22T01:00:00Z";

const Json kSafari = {{"id", "Safari17.5-17.5"},
                      {"title", "Safari 17.5"},
                      {"sizeBytes", 1'228'800},
                      {"restartRequired", false}};
const Json kSonoma = {{"id", "macOS Sonoma 14.7-23H124"},
                      {"title", "macOS Sonoma 14.7"},
                      {"sizeBytes", 1'557'048'320},
                      {"restartRequired", true}};

class OsCommands : public UpdatesTest {
 protected:
  OsCommands() { unlock(); }

  // These leave what they start to finish().
  Json updates(Json request = Json::object()) { return ask("os.updates", std::move(request)); }
  Json check() { return updates({{"check", true}}); }
  Json startInstall() { return ask("os.install", Json::object()); }

  /// An idle driver's reply with these changes.
  static Json shown(const Json& changes) {
    Json reply = {{"ok", true},
                  {"checking", false},
                  {"installing", false},
                  {"progress", 0},
                  {"restartRequired", false},
                  {"lastChecked", nullptr},
                  {"updates", Json::array()},
                  {"error", nullptr},
                  {"policy", KioskUpdatesDefault()}};
    reply.update(changes);
    return reply;
  }

 private:
  Json ask(const std::string& cmd, Json request) {
    request["cmd"] = cmd;
    request["unlockToken"] = token;
    return daemon->handle(request, {kioskUid(), 100});
  }
};

TEST_F(OsCommands, NeedTheUnlock) {
  offer(kPlainUpdate);
  for (const char* cmd : {"os.updates", "os.install"}) {
    const Json request = {{"cmd", cmd}, {"check", true}};
    EXPECT_EQ(sendLocked(request), refused("not_unlocked")) << cmd;
    Json unlocked = request;
    unlocked["unlockToken"] = token;
    EXPECT_EQ(send(unlocked, kioskUid(), 101), refused("not_unlocked")) << cmd;
    EXPECT_EQ(send(unlocked, 0), refused("not_unlocked")) << cmd;
    unlocked["unlockToken"] = token + "x";
    EXPECT_EQ(send(unlocked, kioskUid()), refused("not_unlocked")) << cmd;
    unlocked["unlockToken"] = true;
    EXPECT_EQ(send(unlocked, kioskUid()), refused("not_unlocked")) << cmd;
  }
  finish();
  EXPECT_TRUE(mac.journal().empty());
  startInstall();
  EXPECT_EQ(daemon->handle({{"cmd", "os.install"}}, {kioskUid(), 100}), refused("not_unlocked"))
      << "even while it is busy";
}

TEST_F(OsCommands, ShowAnIdleDriverInFull) {
  const Json reply = updates();
  EXPECT_EQ(reply, shown(Json::object()));
  EXPECT_EQ(reply.size(), 9U);
  finish();
  EXPECT_EQ(lists(), 0U);
  EXPECT_TRUE(mac.log().empty());
}

TEST_F(OsCommands, ShowThePolicyInForce) {
  receive(policyOf(true, "23:00", "01:00"));
  EXPECT_EQ(updates()["policy"], policyOf(true, "23:00", "01:00"));
}

TEST_F(OsCommands, ShowTheDefaultPolicyWhenTheStoredOneIsInvalid) {
  restartWith({{"updates", {{"automatic", 1}}}});
  unlock();
  EXPECT_EQ(
      updates()["policy"],
      (Json{{"automatic", false},
            {"window", {{"start", "02:00"}, {"end", "05:00"}, {"days", {0, 1, 2, 3, 4, 5, 6}}}}}));
}

TEST_F(OsCommands, LookForUpdatesWithoutWaitingForThem) {
  offer(kTwoUpdates);
  EXPECT_EQ(check(), shown({{"checking", true}}));
  EXPECT_EQ(lists(), 0U);
  finish();
  EXPECT_EQ(updates(), shown({{"lastChecked", kNow}, {"updates", {kSafari, kSonoma}}}));
  EXPECT_EQ(mac.runs(kSoftwareUpdate), Runs{list()});
  EXPECT_EQ(mac.log(), (Log{{"Default", "OS updates: 2 pending"}}));
  EXPECT_FALSE(mac.state().contains("osUpdates")) << "looking is no run";
}

TEST_F(OsCommands, LookForUpdatesForTrueOnly) {
  for (const Json& value : {Json("true"), Json(1), Json(1.0), Json(false), Json(),
                            Json::array({true}), Json::object(), Json("")}) {
    EXPECT_EQ(updates({{"check", value}}), shown(Json::object())) << value;
    finish();
  }
  EXPECT_EQ(lists(), 0U);
}

TEST_F(OsCommands, ShowWhyTheListFailed) {
  offer(kPlainUpdate);
  check();
  finish();
  mac.clearFaults();
  offer("Scanning.\nThe server is gone.\n", 2);
  virtual_time::Advance(60 * kSecond);
  EXPECT_EQ(check(), shown({{"checking", true}, {"lastChecked", kNow}, {"updates", {kSafari}}}));
  finish();
  EXPECT_EQ(
      updates(),
      shown({{"lastChecked", kNow}, {"updates", {kSafari}}, {"error", "The server is gone."}}));
  EXPECT_EQ(mac.countErrors("softwareupdate -l exited 2: Scanning.\\nThe server is gone."), 1U);
  EXPECT_EQ(check()["error"], nullptr) << "a new operation has not failed yet";
}

TEST_F(OsCommands, AreBusyWhileACheckRuns) {
  offer(kNoUpdates);
  check();
  EXPECT_EQ(check(), refused("busy"));
  EXPECT_EQ(startInstall(), refused("busy"));
  EXPECT_EQ(updates(), shown({{"checking", true}})) << "looking at it is always possible";
  EXPECT_EQ(updates({{"check", "true"}}), shown({{"checking", true}}));
  finish();
  EXPECT_EQ(mac.runs(kSoftwareUpdate), Runs{list()});
  EXPECT_EQ(mac.countLog(kStarted), 0U);
}

TEST_F(OsCommands, AreBusyWhileAnInstallRuns) {
  offer(kPlainUpdate);
  installSays("Done.");
  EXPECT_EQ(startInstall(), done());
  EXPECT_EQ(startInstall(), refused("busy"));
  EXPECT_EQ(check(), refused("busy"));
  EXPECT_EQ(updates(), shown({{"installing", true}}));
  finish();
  EXPECT_EQ(mac.runs(kSoftwareUpdate), (Runs{list(), install()}));
  EXPECT_EQ(mac.countLog(kStarted), 1U);
  EXPECT_EQ(check()["ok"], true);
}

TEST_F(OsCommands, AreBusyWhileTheWindowsRunGoesOn) {
  offer(kPlainUpdate);
  installSays("Done.");
  receive(policyOf());
  setClock("2026-09-22T02:00:00Z");
  pass();
  EXPECT_EQ(startInstall(), refused("busy"));
  EXPECT_EQ(check(), refused("busy"));
  EXPECT_EQ(updates()["installing"], true);
}

TEST_F(OsCommands, InstallAtAnyTimeOnATerminalInUse) {
  offer(kPlainUpdate);
  installSays("Done.");
  report(true, true);
  clearRecords();
  EXPECT_EQ(startInstall(), done());
  finish();
  EXPECT_EQ(mac.log(), (Log{{"Default", kStarted},
                            {"Default", "OS updates: 1 pending"},
                            {"Default", "installing 1 OS update(s)"},
                            {"Default", "OS updates installed"}}));
  EXPECT_EQ(lastRun(), (Json{{"lastRunAt", kNow},
                             {"lastResult", "ok"},
                             {"pending", 0},
                             {"restartRequired", false},
                             {"error", nullptr}}));
  EXPECT_FALSE(mac.state().contains("updatesWindowDone"));
  EXPECT_EQ(updates(), shown({{"lastChecked", kNow}}));
}

TEST_F(OsCommands, InstallWithoutRestartingTheMac) {
  offer(kRestartUpdate);
  installSays("Done.");
  receive(policyOf());
  setClock("2026-09-22T02:00:00Z");
  startInstall();
  finish();
  EXPECT_TRUE(restarts().empty());
  EXPECT_FALSE(mac.state().contains("updatesWindowDone"));
  EXPECT_EQ(lastRun()["restartRequired"], true);
  EXPECT_EQ(updates()["restartRequired"], true);
  mac.clearFaults();
  offer(kNoUpdates);
  startInstall();
  finish();
  EXPECT_EQ(updates()["restartRequired"], true) << "the restart is still to come";
  EXPECT_EQ(lastRun()["restartRequired"], false) << "this run needed none";
  restartDaemon();
  finish();
  unlock();
  EXPECT_EQ(updates()["restartRequired"], false);
}

TEST_F(OsCommands, RecordAnInstallThatFailed) {
  offer(kTwoUpdates);
  installSays("Downloading.\nPassword:", 1);
  startInstall();
  finish();
  EXPECT_EQ(lastRun(), (Json{{"lastRunAt", kNow},
                             {"lastResult", "failed"},
                             {"pending", 2},
                             {"restartRequired", false},
                             {"error", "authorization_required"}}));
  EXPECT_EQ(updates(), shown({{"lastChecked", kNow},
                              {"updates", {kSafari, kSonoma}},
                              {"error", "authorization_required"}}));
}

TEST_F(OsCommands, DropAnInstallsResultWhenTheDaemonIsGone) {
  offer(kPlainUpdate);
  installSays("Done.");
  startInstall();
  daemon.reset();
  finish();
  EXPECT_EQ(installs(), 1U);
  EXPECT_FALSE(mac.state().contains("osUpdates"));
}

class SessionReport : public UpdatesTest {
 protected:
  SessionReport() {
    offer(kNoUpdates);
    receive(policyOf());
  }

  /// Whether the terminal counts as in use: whether a window's run would be put off now. Only once.
  bool isInUse() {
    setClock("2026-09-22T02:00:00Z");
    passAndFinish();
    EXPECT_EQ(deferrals() + lists(), 1U);
    return deferrals() == 1;
  }
};

TEST_F(SessionReport, IsTakenFromTheKioskAccountOnly) {
  const Json request = {{"cmd", "session.report"}, {"live", true}, {"signedIn", true}};
  for (const std::uint32_t uid : {0U, 501U, kioskUid() + 1, 0xFFFFFFFFU}) {
    EXPECT_EQ(send(request, uid), refused("not_permitted")) << uid;
  }
  EXPECT_TRUE(mac.log().empty());
  EXPECT_FALSE(isInUse());
}

TEST_F(SessionReport, IsRefusedWhenTheAccountIsNotOurs) {
  RunMacTool({kSysadminctl, "-deleteUser", kAccount});
  EXPECT_EQ(report(true, true), refused("not_permitted"));
  createForeignAccount();
  ASSERT_NE(kioskUid(), 0U);
  EXPECT_EQ(report(true, true), refused("not_permitted"));
  EXPECT_EQ(mac.countLog("kiosk session: stream live, signed in"), 0U);
}

TEST_F(SessionReport, DoesNotTouchWhatWasReportedWhenItIsRefused) {
  report(true, false);
  send({{"cmd", "session.report"}}, 0);
  EXPECT_TRUE(isInUse());
}

TEST_F(SessionReport, NeedsNoUnlockAndNoSessionOfItsOwn) {
  EXPECT_EQ(send({{"cmd", "session.report"}}, kioskUid(), 7), done());
  EXPECT_EQ(send({{"cmd", "session.report"}}, kioskUid(), -1), done());
}

TEST_F(SessionReport, IsLoggedInWords) {
  report(true, true);
  report(true, false);
  report(false, true);
  report(false, false);
  EXPECT_EQ(mac.log(), (Log{{"Default", "kiosk session: stream live, signed in"},
                            {"Default", "kiosk session: stream live, signed out"},
                            {"Default", "kiosk session: stream idle, signed in"},
                            {"Default", "kiosk session: stream idle, signed out"}}));
}

TEST_F(SessionReport, IsLoggedTheFirstTimeAndWhenItChanges) {
  for (int i = 0; i < 3; ++i) EXPECT_EQ(report(false, false), done());
  EXPECT_EQ(mac.countLog("kiosk session: stream idle, signed out"), 1U);
  for (int i = 0; i < 3; ++i) report(true, false);
  virtual_time::Advance(1000 * kSecond);
  report(true, false);
  EXPECT_EQ(mac.countLog("kiosk session: stream live, signed out"), 1U)
      << "silence in between is no change";
  EXPECT_EQ(mac.log().size(), 2U);
}

TEST_F(SessionReport, TakesNothingButTrueForTrue) {
  for (const Json& value : {Json("true"), Json(1), Json(1.0), Json(), Json::array({true}),
                            Json::object(), Json(false)}) {
    EXPECT_EQ(report(value, value), done()) << value;
  }
  EXPECT_EQ(send({{"cmd", "session.report"}}, kioskUid()), done());
  EXPECT_EQ(mac.log(), (Log{{"Default", "kiosk session: stream idle, signed out"}}));
  EXPECT_FALSE(isInUse());
}

TEST_F(SessionReport, TakesAMissingValueForFalse) {
  send({{"cmd", "session.report"}, {"live", true}}, kioskUid());
  EXPECT_EQ(mac.countLog("kiosk session: stream live, signed out"), 1U);
  send({{"cmd", "session.report"}, {"signedIn", true}}, kioskUid());
  EXPECT_EQ(mac.countLog("kiosk session: stream idle, signed in"), 1U);
}

TEST_F(SessionReport, HoldsForAHundredAndFiftySeconds) {
  report(true, false);
  virtual_time::Advance(150 * kSecond);
  EXPECT_TRUE(isInUse());
}

TEST_F(SessionReport, HoldsNoNanosecondLonger) {
  report(true, true);
  virtual_time::Advance(150 * kSecond + 1);
  EXPECT_FALSE(isInUse());
}

TEST_F(SessionReport, HoldsLongerWhenItIsRepeated) {
  report(true, true);
  virtual_time::Advance(100 * kSecond);
  report(true, true);
  virtual_time::Advance(100 * kSecond);
  EXPECT_TRUE(isInUse());
}

TEST_F(SessionReport, HoldsByTheMonotonicClock) {
  setClock("2026-09-22T06:00:00Z");
  report(true, true);
  virtual_time::Advance(151 * kSecond);
  EXPECT_FALSE(isInUse());  // though the wall clock is before the report then
}

TEST_F(SessionReport, OfAnIdleTerminalHoldsNothingBack) {
  report(false, false);
  EXPECT_FALSE(isInUse());
}

TEST_F(SessionReport, IsNotNeededForUpdates) { EXPECT_FALSE(isInUse()); }

TEST_F(SessionReport, IsForgottenByADaemonThatWasStartedAnew) {
  report(true, true);
  EXPECT_EQ(mac.countLog("kiosk session: stream live, signed in"), 1U);
  restartDaemon();
  finish();
  EXPECT_FALSE(isInUse());
  report(true, true);
  EXPECT_EQ(mac.countLog("kiosk session: stream live, signed in"), 2U) << "it is the first again";
}

TEST_F(SessionReport, IsKeptInMemoryOnly) {
  const Json before = mac.state();
  report(true, true);
  EXPECT_EQ(mac.state(), before);
}

}  // namespace
