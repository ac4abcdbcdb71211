// The power policy on the machine.
#include "settings/KioskPower.h"
#include "settings/KioskPowerApply.h"
#include "tests/daemon/SettingsTest.h"

namespace {

constexpr char kPmset[] = "/usr/bin/pmset";
constexpr std::uint64_t kSecond = virtual_time::kSecondNs;

Json policyOf(int screenOff, int sleep, bool enabled = false) {
  Json policy = KioskPowerDefault();
  policy["screenOffMinutes"] = screenOff;
  policy["sleepMinutes"] = sleep;
  policy["schedule"]["enabled"] = enabled;
  return policy;
}

const Json kPolicy = policyOf(20, 60);
const Json kScheduled = policyOf(20, 60, true);

ToolRun timeouts(int screenOff, int sleep, int status = 0) {
  return {kPmset,
          {"-a", "displaysleep", std::to_string(screenOff), "sleep", std::to_string(sleep)},
          status};
}

ToolRun snapshot(int status = 0) { return {kPmset, {"-g"}, status}; }
ToolRun cancel(int status = 0) { return {kPmset, {"repeat", "cancel"}, status}; }
ToolRun schedule(int status = 0) {
  return {kPmset,
          {"repeat", "sleep", "MTWRF", "22:00:00", "wakeorpoweron", "MTWRF", "07:00:00"},
          status};
}

class Power : public SettingsTest {
 protected:
  using Runs = std::vector<ToolRun>;

  /// A check-in that brings this policy, without the journal and log of before.
  void receive(const Json& policy, const std::string& source = "tenant") {
    answerEnrolled({{"power", policy}, {"powerSource", source}});
    clearRecords();
    EXPECT_EQ(checkIn(), KioskCheckInOutcome::kEnrolled);
  }

  Runs runs() const { return mac.runs(kPmset); }

  /// The next call of pmset that begins so is refused.
  void refuse(const std::vector<std::string>& arguments, const std::string& output = "No.") {
    mac.addFault({{"target", kPmset},
                  {"arguments", arguments},
                  {"times", 1},
                  {"status", 64},
                  {"errorOutput", output}});
  }

  Json set(const Json& keys) {
    Json request = {{"cmd", "power.set"}};
    request.update(keys);
    return sendUnlocked(request);
  }
};

TEST_F(Power, AppliesThePortalsPolicyAfterASnapshot) {
  receive(kPolicy);
  EXPECT_EQ(runs(), (Runs{snapshot(), timeouts(20, 60)}));
  EXPECT_EQ(mac.state()["powerApplied"], kPolicy);
  EXPECT_EQ(mac.state()["powerRepeatArmed"], false);
  EXPECT_FALSE(mac.state().contains("powerError"));
  EXPECT_EQ(mac.state()["powerBefore"].size(), 2U);
  EXPECT_TRUE(mac.state()["powerBefore"]["displaysleep"].is_number_integer());
  EXPECT_EQ(mac.countLog("power: screen off 20 min, sleep 60 min, schedule off"), 1U);
}

TEST_F(Power, ArmsTheScheduleAfterTheTimeouts) {
  receive(kScheduled);
  EXPECT_EQ(runs(), (Runs{snapshot(), timeouts(20, 60), schedule()}));
  EXPECT_EQ(mac.state()["powerRepeatArmed"], true);
  EXPECT_EQ(mac.countLog("power: screen off 20 min, sleep 60 min, schedule on"), 1U);
}

TEST_F(Power, CancelsAScheduleThatItArmed) {
  receive(kScheduled);
  receive(kPolicy);
  EXPECT_EQ(runs(), (Runs{timeouts(20, 60), cancel()}));
  EXPECT_EQ(mac.state()["powerRepeatArmed"], false);
  receive(policyOf(21, 60));
  EXPECT_EQ(runs(), Runs{timeouts(21, 60)});
}

TEST_F(Power, TriesACancelThatFailedAgain) {
  receive(kScheduled);
  refuse({"repeat", "cancel"}, "busy");
  receive(kPolicy);
  EXPECT_EQ(mac.countErrors("pmset repeat refused: busy"), 1U);
  EXPECT_EQ(mac.state()["powerRepeatArmed"], true);
  EXPECT_FALSE(mac.state().contains("powerError"));
  virtual_time::Advance(600 * kSecond);
  receive(kPolicy);
  EXPECT_EQ(mac.state()["powerRepeatArmed"], false);
}

TEST_F(Power, ReportsAScheduleThatIsRefused) {
  refuse({"repeat", "sleep"}, "No wake.");
  receive(kScheduled);
  EXPECT_EQ(mac.countErrors("pmset repeat refused: No wake."), 1U);
  EXPECT_EQ(mac.state()["powerError"], "wake_unavailable");
  EXPECT_EQ(mac.state()["powerRepeatArmed"], false);
  EXPECT_EQ(mac.countLog("power: screen off 20 min, sleep 60 min, schedule on: wake_unavailable"),
            1U);
  checkIn();
  EXPECT_EQ(portal.requests(kCheckInCall).back().json()["powerError"], "wake_unavailable");
}

TEST_F(Power, LeavesTheScheduleAloneWhenTheTimeoutsAreRefused) {
  refuse({"-a"}, "Not today.");
  receive(kScheduled);
  EXPECT_EQ(runs(), (Runs{snapshot(), timeouts(20, 60, 64)}));
  EXPECT_EQ(mac.countErrors("pmset timeouts refused: Not today."), 1U);
  EXPECT_EQ(mac.state()["powerError"], "failed");
  EXPECT_EQ(mac.state()["powerApplied"], kScheduled);
}

TEST_F(Power, KeepsAScheduleOnRecordThatIsStillSetAfterARefusal) {
  receive(kScheduled);
  refuse({"-a"});
  receive(policyOf(21, 60, true));
  EXPECT_EQ(mac.state()["powerError"], "failed");
  EXPECT_EQ(mac.state()["powerRepeatArmed"], true);
  refuse({"repeat", "sleep"});
  receive(policyOf(22, 60, true));
  EXPECT_EQ(mac.state()["powerError"], "wake_unavailable");
  EXPECT_EQ(mac.state()["powerRepeatArmed"], true);
}

TEST_F(Power, AssertsAnUnchangedPolicyEveryTenMinutes) {
  receive(kPolicy);
  receive(kPolicy);
  EXPECT_TRUE(runs().empty());
  virtual_time::Advance(600 * kSecond - 1);  // with a check-in every thirty seconds
  EXPECT_TRUE(runs().empty());
  virtual_time::Advance(1);
  EXPECT_EQ(runs(), Runs{timeouts(20, 60)});
  EXPECT_EQ(mac.countLog("power: screen off 20 min, sleep 60 min, schedule off"), 0U);
}

TEST_F(Power, AssertsItAtTheFirstCheckInOfADaemon) {
  receive(kPolicy);
  restartDaemon();
  clearRecords();
  virtual_time::RunReady();
  EXPECT_EQ(runs(), Runs{timeouts(20, 60)});
}

TEST_F(Power, SavesAnUnchangedPolicyOnlyWhenSomethingCameOfIt) {
  receive(kPolicy);
  clearRecords();
  mac.write(kStateFile, "touched");
  virtual_time::Advance(600 * kSecond);
  EXPECT_EQ(runs().size(), 1U);
  EXPECT_EQ(mac.read(kStateFile), "touched");
  refuse({"-a"});
  virtual_time::Advance(600 * kSecond);
  EXPECT_EQ(mac.state()["powerError"], "failed");
  virtual_time::Advance(600 * kSecond);
  EXPECT_FALSE(mac.state().contains("powerError"));
}

TEST_F(Power, TriesASnapshotThatFailedAgain) {
  mac.addFault({{"target", kPmset},
                {"arguments", {"-g"}},
                {"times", 1},
                {"status", 1},
                {"output", " displaysleep 10\n sleep 1\n"}});
  receive(kPolicy);
  EXPECT_FALSE(mac.state().contains("powerBefore"));
  receive(policyOf(30, 0));
  EXPECT_TRUE(mac.state().contains("powerBefore"));
}

TEST_F(Power, TakesNoSnapshotWithoutBothValues) {
  mac.addFault({{"target", kPmset},
                {"arguments", {"-g"}},
                {"times", 1},
                {"status", 0},
                {"output", "Active Profiles:\n displaysleep         10\n disksleep 10\n"}});
  receive(kPolicy);
  EXPECT_FALSE(mac.state().contains("powerBefore"));
}

TEST_F(Power, TakesItsSnapshotOnce) {
  receive(kPolicy);
  const Json before = mac.state()["powerBefore"];
  receive(policyOf(30, 0));
  EXPECT_EQ(runs(), Runs{timeouts(30, 0)});
  EXPECT_EQ(mac.state()["powerBefore"], before);
}

TEST_F(Power, IsLeftAloneWithoutAPolicy) {
  EXPECT_EQ(checkIn(), KioskCheckInOutcome::kEnrolled);
  EXPECT_TRUE(runs().empty());
  EXPECT_FALSE(mac.state().contains("powerApplied"));
}

TEST_F(Power, IsLeftAloneBeforeTheTerminalIsSetUp) {
  Json state = mac.state();
  state["power"] = kPolicy;
  state["provisioned"] = false;
  startDaemon(state);
  EXPECT_EQ(daemon->applyPower(true), std::nullopt);
  EXPECT_TRUE(runs().empty());
}

TEST_F(Power, PrefersTheTerminalsOverride) {
  unlock();
  receive(kPolicy);
  clearRecords();
  const Json reply = set({{"screenOffMinutes", 5}, {"sleepMinutes", 0}});
  const Json local = policyOf(5, 0);
  EXPECT_EQ(reply, (Json{{"ok", true},
                         {"policy", kPolicy},
                         {"source", "tenant"},
                         {"local", local},
                         {"effective", local},
                         {"error", nullptr}}));
  EXPECT_EQ(runs(), Runs{timeouts(5, 0)});
  EXPECT_EQ(mac.state()["powerLocal"], local);
  EXPECT_EQ(mac.countLog("power: local override set at the terminal"), 1U);
  receive(policyOf(99, 99), "device");
  EXPECT_TRUE(runs().empty());
  EXPECT_EQ(mac.state()["power"], policyOf(99, 99));
  checkIn();
  EXPECT_EQ(portal.requests(kCheckInCall).back().json()["powerLocal"], local);
}

TEST_F(Power, AppliesAndKeepsAnOverrideThatIsThePolicyInForce) {
  unlock();
  receive(kPolicy);
  clearRecords();
  EXPECT_EQ(set({{"screenOffMinutes", 20}, {"sleepMinutes", 60}})["ok"], true);
  EXPECT_EQ(runs(), Runs{timeouts(20, 60)});
  EXPECT_EQ(mac.state()["powerLocal"], kPolicy);
}

TEST_F(Power, DropsAnOverrideWhenTheOrganisationHasNoPolicy) {
  unlock();
  set({{"screenOffMinutes", 20}, {"sleepMinutes", 60}});
  clearRecords();
  EXPECT_EQ(set({{"useOrganisation", true}})["effective"], KioskPowerDefault());
  EXPECT_FALSE(mac.state().contains("powerLocal"));
  EXPECT_TRUE(runs().empty());
}

TEST_F(Power, FollowsTheOrganisationAgain) {
  unlock();
  receive(kPolicy);
  set({{"screenOffMinutes", 5}, {"sleepMinutes", 0}});
  clearRecords();
  const Json reply = set({{"useOrganisation", true}, {"screenOffMinutes", "ignored"}});
  EXPECT_EQ(reply["local"], nullptr);
  EXPECT_EQ(reply["effective"], kPolicy);
  EXPECT_EQ(runs(), Runs{timeouts(20, 60)});
  EXPECT_FALSE(mac.state().contains("powerLocal"));
  EXPECT_EQ(mac.countLog("power: local override cleared; following the organisation policy"), 1U);
}

TEST_F(Power, FollowsTheOrganisationEvenWhenItsPolicyIsRefused) {
  unlock();
  receive(kScheduled);
  refuse({"-a"});
  const Json reply = set({{"useOrganisation", true}});
  EXPECT_EQ(reply["ok"], true);
  EXPECT_EQ(reply["error"], "failed");
}

TEST_F(Power, TakesNothingButTrueForFollowing) {
  unlock();
  for (const Json& value : {Json(false), Json("true"), Json(), Json::array({true})}) {
    EXPECT_EQ(set({{"useOrganisation", value}}), refused("invalid")) << value;
  }
}

TEST_F(Power, KeepsTheScheduleInForceWhenNoneIsGiven) {
  unlock();
  receive(kScheduled);
  const Json reply = set({{"screenOffMinutes", 5}, {"sleepMinutes", 0}});
  EXPECT_EQ(reply["local"]["schedule"], kScheduled["schedule"]);
  EXPECT_EQ(set({{"screenOffMinutes", 5}, {"sleepMinutes", 0}, {"schedule", nullptr}})["local"],
            policyOf(5, 0));
}

TEST_F(Power, KeepsTheOverridesScheduleBeforeThePortals) {
  unlock();
  receive(kScheduled);
  set({{"screenOffMinutes", 5}, {"sleepMinutes", 0}, {"schedule", {{"sleepAt", "23:30"}}}});
  EXPECT_EQ(set({{"screenOffMinutes", 6}, {"sleepMinutes", 0}})["local"]["schedule"]["sleepAt"],
            "23:30");
}

TEST_F(Power, RefusesInvalidPoliciesWithoutTouchingAnything) {
  unlock();
  receive(kPolicy);
  const Json before = mac.state();
  clearRecords();
  for (const Json& keys :
       {Json{{"screenOffMinutes", 241}, {"sleepMinutes", 0}},
        Json{{"screenOffMinutes", -1}, {"sleepMinutes", 0}},
        Json{{"screenOffMinutes", 15.5}, {"sleepMinutes", 0}},
        Json{{"screenOffMinutes", "15"}, {"sleepMinutes", 0}},
        Json{{"screenOffMinutes", true}, {"sleepMinutes", 0}}, Json{{"screenOffMinutes", 15}},
        Json{{"screenOffMinutes", 1}, {"sleepMinutes", 1}, {"schedule", {{"sleepAt", "24:00"}}}},
        Json{{"screenOffMinutes", 1},
             {"sleepMinutes", 1},
             {"schedule", {{"enabled", true}, {"days", Json::array()}}}}}) {
    EXPECT_EQ(set(keys), refused("invalid")) << keys;
  }
  EXPECT_EQ(mac.state(), before);
  EXPECT_TRUE(runs().empty());
}

TEST_F(Power, TakesBackAnOverrideThatCannotBeApplied) {
  unlock();
  receive(kPolicy);
  refuse({"-a"});
  EXPECT_EQ(set({{"screenOffMinutes", 5}, {"sleepMinutes", 0}}), refused("failed"));
  EXPECT_FALSE(mac.state().contains("powerLocal"));
  EXPECT_EQ(mac.state()["powerApplied"], policyOf(5, 0));
  EXPECT_EQ(mac.state()["powerError"], "failed");
  receive(kPolicy);  // finds that another policy was tried last
  EXPECT_EQ(runs(), Runs{timeouts(20, 60)});
  EXPECT_FALSE(mac.state().contains("powerError"));
  set({{"screenOffMinutes", 6}, {"sleepMinutes", 0}});
  refuse({"-a"});
  EXPECT_EQ(set({{"screenOffMinutes", 7}, {"sleepMinutes", 0}}), refused("failed"));
  EXPECT_EQ(mac.state()["powerLocal"], policyOf(6, 0));
}

TEST_F(Power, KeepsAnOverrideWhoseScheduleAloneIsRefused) {
  unlock();
  refuse({"repeat", "sleep"});
  const Json reply =
      set({{"screenOffMinutes", 5}, {"sleepMinutes", 0}, {"schedule", {{"enabled", true}}}});
  EXPECT_EQ(reply["ok"], false);
  EXPECT_EQ(reply["error"], "wake_unavailable");
  EXPECT_EQ(mac.state()["powerLocal"], policyOf(5, 0, true));
  EXPECT_EQ(mac.countLog("power: local override set at the terminal"), 1U);
}

TEST_F(Power, CannotBeSetOnATerminalThatIsNotSetUp) {
  unlock();
  mac.addFault({{"target", kFdesetup}, {"status", 0}, {"output", "FileVault is On."}});
  provision();
  EXPECT_EQ(set({{"screenOffMinutes", 5}, {"sleepMinutes", 0}}), refused("not_provisioned"));
}

TEST_F(Power, ShowsTheDefaultWhenThereIsNoPolicy) {
  unlock();
  EXPECT_EQ(sendUnlocked({{"cmd", "power.get"}}), (Json{{"ok", true},
                                                        {"policy", KioskPowerDefault()},
                                                        {"source", "default"},
                                                        {"local", nullptr},
                                                        {"effective", KioskPowerDefault()},
                                                        {"error", nullptr}}));
}

TEST_F(Power, TakesAStoredPolicyThatIsInvalidForNone) {
  Json state = mac.state();
  state["powerLocal"] = {{"screenOffMinutes", 900}};
  state["power"] = kPolicy;
  startDaemon(state);
  virtual_time::RunReady();
  unlock();
  const Json reply = sendUnlocked({{"cmd", "power.get"}});
  EXPECT_EQ(reply["local"], nullptr);
  EXPECT_EQ(reply["effective"], kPolicy);
}

TEST_F(Power, IsPutBackWhenTheTerminalIsRevoked) {
  receive(kScheduled);
  const Json before = mac.state()["powerBefore"];
  const int displaySleep = before["displaysleep"];
  const int sleep = before["sleep"];
  clearRecords();
  portal.answer(kCheckInCall, 401, {{"status", "revoked"}});
  EXPECT_EQ(checkIn(), KioskCheckInOutcome::kStop);
  EXPECT_EQ(runs(), (Runs{cancel(), timeouts(displaySleep, sleep)}));
  EXPECT_EQ(mac.countLog("power settings put back: display sleep " + std::to_string(displaySleep) +
                         ", sleep " + std::to_string(sleep)),
            1U);
  const std::vector<ToolRun> journal = mac.journal();
  EXPECT_EQ(journal.front(), cancel());  // before the account goes
  EXPECT_FALSE(mac.state().contains("powerBefore"));
}

TEST_F(Power, IsPutBackAsFarAsItGoes) {
  receive(kScheduled);
  clearRecords();
  refuse({"repeat", "cancel"}, "busy");
  refuse({"-a"}, "no");
  daemon->queue().sync([this] { daemon->teardown("test"); });
  EXPECT_EQ(mac.countErrors("pmset repeat cancel: busy"), 1U);
  EXPECT_EQ(mac.countErrors("pmset restore refused: no"), 1U);
}

TEST_F(Power, IsPutBackWithoutAScheduleOrWithoutASnapshot) {
  receive(kPolicy);
  const Json before = mac.state()["powerBefore"];
  clearRecords();
  daemon->queue().sync([this] { daemon->teardown("test"); });
  EXPECT_EQ(runs(), Runs{timeouts(before["displaysleep"], before["sleep"])});
  startDaemon({{"powerRepeatArmed", true}});
  clearRecords();
  daemon->queue().sync([this] { daemon->teardown("test"); });
  EXPECT_EQ(runs(), Runs{cancel()});
}

TEST_F(Power, IsNotPutBackWhenItWasNeverChanged) {
  daemon->queue().sync([this] { daemon->teardown("test"); });
  EXPECT_TRUE(runs().empty());
}

TEST_F(Power, PutsBackOnlyWhatItKnows) {
  KioskPowerRestore(Json(), true);
  EXPECT_EQ(runs(), Runs{cancel()});
  clearRecords();
  for (const Json& before : {Json{{"displaysleep", 1}}, Json{{"displaysleep", -1}, {"sleep", 1}},
                             Json{{"displaysleep", "1"}, {"sleep", 1}}, Json::array()}) {
    KioskPowerRestore(before, false);
  }
  EXPECT_TRUE(runs().empty());
  KioskPowerRestore({{"displaysleep", 0}, {"sleep", 0.0}}, false);
  EXPECT_EQ(runs(), Runs{timeouts(0, 0)});
}

}  // namespace
