// Keeping the picture of the kiosk account true, log-out and teardown.
#include <algorithm>
#include <filesystem>

#include "account/KioskAccount.h"
#include "account/KioskSession.h"
#include "platform/Clock.h"
#include "tests/daemon/AccountTest.h"

namespace {

namespace fs = std::filesystem;

constexpr char kPkill[] = "/usr/bin/pkill";
constexpr char kBranding[] = "/Library/Application Support/Brindlex/Kiosk/Branding";
constexpr char kReason[] = "the portal revoked this device";

class TeardownTest : public AccountTest {
 protected:
  /// A provisioned daemon with everything in its state that an enrolment leaves there.
  void becomeEnrolled() {
    becomeProvisioned();
    Json state = mac.state();
    state.update(
        {{"terminalName", "Lobby"}, {"exitPassword", "secret"}, {"signIn", Json::object()}});
    startDaemon(state);
    before = mac.state();
    clearRecords();
  }

  void teardown() {
    daemon->queue().sync([this] { daemon->teardown(kReason); });
  }

  /// The branding that a check-in left.
  void becomeBranded() const {
    mac.write(std::string(kBranding) + "/branding.json", "{}");
    mac.write(std::string(kBranding) + "/" + std::string(64, 'a'), "a photo");
  }

  Json onlyTheUrl() const { return {{"authBaseUrl", portal.url()}}; }

  /// The next `times` queries find a session, whether there is one or not.
  void pretendSession(int times) const {
    mac.addFault(
        {{"target", kLaunchctl}, {"arguments", {"print"}}, {"status", 0}, {"times", times}});
  }

  ToolRun print(int status) const { return {kLaunchctl, {"print", domain()}, status}; }
  ToolRun bootout(int status) const { return {kLaunchctl, {"bootout", domain()}, status}; }
  ToolRun kill(int status) const {
    return {kPkill, {"-KILL", "-U", std::to_string(kioskUid()), "-x", "loginwindow"}, status};
  }
  std::string domain() const { return "gui/" + std::to_string(kioskUid()); }

  /// The calls of launchctl and pkill, equal ones in a row counted.
  std::vector<std::pair<ToolRun, int>> sessionRuns() const {
    std::vector<std::pair<ToolRun, int>> found;
    for (const ToolRun& run : mac.journal()) {
      if (run.tool != kLaunchctl && run.tool != kPkill) continue;
      if (found.empty() || found.back().first != run) found.push_back({run, 0});
      ++found.back().second;
    }
    return found;
  }

  Json before;
};

}  // namespace

TEST_F(TeardownTest, RemovesTheKioskInOrder) {
  becomeEnrolled();
  const ToolRun noSession = print(112);
  teardown();
  EXPECT_EQ(mac.journal(),
            (std::vector<ToolRun>{readUser(0), deleteUser(), noSession, deleteAccount()}));
  EXPECT_EQ(mac.log(),
            (std::vector<LogLine>{{"Default", "tearing down (the portal revoked this device)"}}));
  EXPECT_FALSE(kioskAccountExists());
  EXPECT_EQ(autoLoginUser(), "");
  EXPECT_FALSE(mac.exists(kPasswordFile));
  EXPECT_FALSE(mac.exists(kLaunchAgent));
}

TEST_F(TeardownTest, ForgetsEverythingButThePortal) {
  becomeEnrolled();
  teardown();
  EXPECT_EQ(mac.state(), onlyTheUrl());
  EXPECT_EQ(mac.modeAndOwner(kStateFile), "0600 0:0");
  EXPECT_EQ((*daemon->published())["enrolled"], 0);
  EXPECT_EQ((*daemon->published())["provisioned"], false);
}

TEST_F(TeardownTest, LeavesAnEmptyStateWhenNoPortalWasSet) {
  mac.writeState(Json{{"terminalName", "Lobby"}});
  restartDaemon();
  teardown();
  EXPECT_EQ(mac.state(), Json::object());
}

TEST_F(TeardownTest, StopsTheCheckIns) {
  becomeEnrolled();
  daemon->queue().sync([this] { daemon->scheduleCheckInAfter(30); });
  EXPECT_EQ(virtual_time::PendingCount(), 1U);
  teardown();
  EXPECT_EQ(virtual_time::PendingCount(), 0U);
}

TEST_F(TeardownTest, ClearsTheBranding) {
  becomeEnrolled();
  becomeBranded();
  teardown();
  EXPECT_FALSE(mac.exists(kBranding));
  EXPECT_EQ(mac.list(kStateDir), std::vector<std::string>{"state.json"});
  EXPECT_EQ(mac.log(),
            (std::vector<LogLine>{{"Default", "tearing down (the portal revoked this device)"},
                                  {"Default", "branding: cache cleared"}}));
}

TEST_F(TeardownTest, ClearsTheBrandingBesideAnAccountThatStays) {
  becomeEnrolled();
  becomeBranded();
  mac.addFault({{"target", kSysadminctl}, {"arguments", {"-deleteUser"}}, {"status", 1}});
  teardown();
  EXPECT_TRUE(kioskAccountExists());
  EXPECT_FALSE(mac.exists(kBranding));
}

TEST_F(TeardownTest, GoesOnWhenTheBrandingCannotBeCleared) {
  becomeEnrolled();
  mac.write("/Users/Shared/victim/file", "precious");
  fs::create_symlink("/Users/Shared/victim", kBranding);
  daemon->queue().sync([this] { daemon->scheduleCheckInAfter(30); });
  teardown();
  EXPECT_EQ(virtual_time::PendingCount(), 0U);
  EXPECT_EQ(mac.state(), onlyTheUrl());
  EXPECT_EQ(mac.list("/Users/Shared/victim"), std::vector<std::string>{"file"});
  EXPECT_EQ(mac.log().size(), 1U);
}

TEST_F(TeardownTest, FollowsTheRevocationByThePortal) {
  portal.answer(kCheckInCall, 401, {{"status", "revoked"}});
  startDaemon({{"token", "device-token"}, {"provisioned", true}});
  virtual_time::RunReady();
  EXPECT_EQ(mac.countLog("tearing down (the portal revoked this device)"), 1U);
  EXPECT_EQ(mac.state(), onlyTheUrl());
  EXPECT_EQ(virtual_time::PendingCount(), 0U);
}

TEST_F(TeardownTest, CanBeFollowedByANewKiosk) {
  becomeEnrolled();
  teardown();
  provision();
  EXPECT_EQ(mac.state()["provisioned"], true);
  EXPECT_NE(mac.state()["generatedUID"], before["generatedUID"]);
  EXPECT_TRUE(storedPasswordFits());
}

TEST_F(TeardownTest, EndsAnOpenSessionFirst) {
  becomeEnrolled();
  const std::uint32_t uid = kioskUid();
  openSession(uid);
  teardown();
  EXPECT_FALSE(sessionIsOpen(uid));
  EXPECT_EQ(mac.countLog("logging out BrindlexKiosk (uid " + std::to_string(uid) + ")"), 1U);
  EXPECT_EQ(mac.countRuns(kLaunchctl, {"bootout", "gui/" + std::to_string(uid)}), 1U);
  EXPECT_FALSE(kioskAccountExists());
  EXPECT_EQ(mac.state(), onlyTheUrl());
}

TEST_F(TeardownTest, DeletesTheAccountOnlyAfterTheSessionsEnd) {
  becomeEnrolled();
  pretendSession(3);
  const std::vector<ToolRun> expected{readUser(0), deleteUser(), print(0),   bootout(3),
                                      print(0),    print(0),     print(112), deleteAccount()};
  teardown();
  EXPECT_EQ(mac.journal(), expected);
}

TEST_F(TeardownTest, LeavesTheSessionsOfOthersAlone) {
  becomeEnrolled();
  openSession(501);
  teardown();
  EXPECT_TRUE(sessionIsOpen(501));
}

TEST_F(TeardownTest, KeepsAnAccountThatCannotBeDeletedOnRecord) {
  becomeEnrolled();
  mac.addFault({{"target", kSysadminctl}, {"arguments", {"-deleteUser"}}, {"status", 0}});
  teardown();
  EXPECT_EQ(mac.countErrors("BrindlexKiosk could not be deleted; it is kept on record"), 1U);
  Json expected = onlyTheUrl();
  expected["generatedUID"] = before["generatedUID"];
  expected["password"] = before["password"];
  EXPECT_EQ(mac.state(), expected);
  EXPECT_EQ(autoLoginUser(), "");
  EXPECT_FALSE(mac.exists(kLaunchAgent));
}

TEST_F(TeardownTest, AdoptsAnAccountThatItCouldNotDelete) {
  becomeEnrolled();
  mac.addFault({{"target", kSysadminctl}, {"arguments", {"-deleteUser"}}, {"status", 0}});
  teardown();
  mac.clearFaults();
  const std::string hash = passwordHash();
  restartDaemon();
  clearRecords();
  provision();
  EXPECT_EQ(mac.state()["provisioned"], true);
  EXPECT_EQ(mac.state()["password"], before["password"]);
  EXPECT_EQ(passwordHash(), hash);
  EXPECT_EQ(mac.countRuns(kSysadminctl, {}), 0U);
  EXPECT_EQ(autoLoginUser(), kAccount);
}

TEST_F(TeardownTest, LogsTheDeletionToolsFailureToo) {
  becomeEnrolled();
  mac.addFault({{"target", kSysadminctl}, {"status", 255}, {"errorOutput", "Not permitted.\n"}});
  teardown();
  EXPECT_EQ(mac.log(), (std::vector<LogLine>{
                           {"Default", "tearing down (the portal revoked this device)"},
                           {"Error", "sysadminctl -deleteUser exited 255: Not permitted."},
                           {"Error", "BrindlexKiosk could not be deleted; it is kept on record"}}));
}

TEST_F(TeardownTest, CountsAnAccountAsDeletedWhateverTheToolSays) {
  becomeEnrolled();
  mac.addFault({{"target", kSysadminctl}, {"status", 9}, {"effect", true}});
  teardown();
  EXPECT_EQ(mac.countErrors("BrindlexKiosk could not be deleted; it is kept on record"), 0U);
  EXPECT_EQ(mac.state(), onlyTheUrl());
}

TEST_F(TeardownTest, CountsAnAccountWhoseUuidCannotBeHadAsDeleted) {
  becomeEnrolled();
  mac.addFault({{"target", kSysadminctl}, {"status", 0}});
  mac.addFault({{"target", "directory.userUuid"}});
  EXPECT_TRUE(KioskDeleteAccount());
}

TEST_F(TeardownTest, LeavesAForeignAccountAlone) {
  becomeEnrolled();
  RunMacTool({kSysadminctl, "-deleteUser", kAccount});
  createForeignAccount();
  addToGroup("admin");
  const std::uint32_t uid = kioskUid();
  openSession(uid);
  clearRecords();
  teardown();
  EXPECT_TRUE(kioskAccountExists());
  EXPECT_TRUE(sessionIsOpen(uid));
  EXPECT_EQ(mac.journal(), (std::vector<ToolRun>{readUser(0), deleteUser()}));
  EXPECT_EQ(std::ranges::count(members("admin"), kAccount), 1);
  EXPECT_FALSE(mac.exists(kLaunchAgent));
  EXPECT_EQ(autoLoginUser(), "");
  EXPECT_EQ(mac.state(), onlyTheUrl());
}

TEST_F(TeardownTest, LeavesTheAutoLoginOfAnotherUserAlone) {
  becomeEnrolled();
  RunMacTool({kDefaults, "write", kLoginWindowDomain, "autoLoginUser", "admin"});
  const std::string file = mac.read(kPasswordFile);
  teardown();
  EXPECT_EQ(autoLoginUser(), "admin");
  EXPECT_EQ(mac.read(kPasswordFile), file);
  EXPECT_FALSE(kioskAccountExists());
}

TEST_F(TeardownTest, GoesOnWhenTheLaunchAgentCannotBeRemoved) {
  becomeEnrolled();
  mac.remove(kLaunchAgent);
  fs::create_directory(kLaunchAgent);
  teardown();
  EXPECT_EQ(mac.countErrors(std::string("cannot remove ") + kLaunchAgent + ": Is a directory"), 1U);
  EXPECT_FALSE(kioskAccountExists());
  EXPECT_EQ(mac.state(), onlyTheUrl());
}

TEST_F(TeardownTest, GoesOnWhenEveryToolFails) {
  becomeEnrolled();
  mac.addFault({{"target", kDefaults}, {"arguments", {"delete"}}, {"status", 1}});
  mac.addFault({{"target", kLaunchctl}, {"status", 1}});
  mac.addFault({{"target", kSysadminctl}, {"status", 1}});
  teardown();
  EXPECT_FALSE(mac.exists(kPasswordFile));
  EXPECT_FALSE(mac.exists(kLaunchAgent));
  EXPECT_EQ(mac.state()["generatedUID"], before["generatedUID"]);
  EXPECT_EQ(mac.state().size(), 3U);
}

TEST_F(TeardownTest, SaysNothingAboutALaunchAgentThatIsNotThere) {
  becomeEnrolled();
  mac.remove(kLaunchAgent);
  teardown();
  EXPECT_EQ(mac.log().size(), 1U);
}

TEST_F(TeardownTest, EndsASessionByForceAfterFifteenSeconds) {
  becomeEnrolled();
  const std::string uid = std::to_string(kioskUid());
  mac.addFault({{"target", kLaunchctl}, {"arguments", {"bootout"}}, {"status", 0}});
  pretendSession(1 + 151);
  const std::vector<std::pair<ToolRun, int>> expected{
      {print(0), 1}, {bootout(0), 1}, {print(0), 151}, {kill(1), 1}, {print(112), 1}};
  const std::uint64_t start = platform::ClockMonotonicNs();
  teardown();
  EXPECT_EQ(platform::ClockMonotonicNs() - start, 15 * virtual_time::kSecondNs);
  EXPECT_EQ(sessionRuns(), expected);
  EXPECT_EQ(mac.log(), (std::vector<LogLine>{
                           {"Default", "tearing down (the portal revoked this device)"},
                           {"Default", "logging out BrindlexKiosk (uid " + uid + ")"},
                           {"Error", "gui/" + uid + " is still up; ending its loginwindow"}}));
  EXPECT_EQ(mac.state(), onlyTheUrl());
}

TEST_F(TeardownTest, EndsARealSessionThatIgnoresBeingAsked) {
  becomeEnrolled();
  const std::uint32_t uid = kioskUid();
  openSession(uid);
  mac.addFault({{"target", kLaunchctl}, {"arguments", {"bootout"}}, {"status", 0}});
  teardown();
  EXPECT_EQ(mac.runs(kPkill).size(), 1U);
  EXPECT_EQ(mac.runs(kPkill).front().status, 0);
  EXPECT_FALSE(kioskAccountExists());
}

TEST_F(TeardownTest, GoesOnAfterASessionThatSurvivesEverything) {
  becomeEnrolled();
  const std::string uid = std::to_string(kioskUid());
  mac.addFault({{"target", kLaunchctl}, {"status", 0}});
  mac.addFault({{"target", kPkill}, {"status", 0}});
  const std::vector<std::pair<ToolRun, int>> expected{
      {print(0), 1}, {bootout(0), 1}, {print(0), 151}, {kill(0), 1}, {print(0), 101}};
  const std::uint64_t start = platform::ClockMonotonicNs();
  teardown();
  EXPECT_EQ(platform::ClockMonotonicNs() - start, 25 * virtual_time::kSecondNs);
  EXPECT_EQ(sessionRuns(), expected);
  EXPECT_EQ(mac.countErrors("gui/" + uid + " is still up; ending its loginwindow"), 1U);
  EXPECT_EQ(mac.countErrors("gui/" + uid + " did not end"), 1U);
  EXPECT_FALSE(kioskAccountExists());
  EXPECT_EQ(mac.state(), onlyTheUrl());
}

TEST_F(TeardownTest, LogOutOfNobodyIsSilent) {
  KioskLogOut(4711);
  EXPECT_EQ(mac.journal(), (std::vector<ToolRun>{{kLaunchctl, {"print", "gui/4711"}, 112}}));
  EXPECT_TRUE(mac.log().empty());
}

TEST_F(TeardownTest, WaitingWithoutPollsAsksOnce) {
  for (const int polls : {0, -1, -150}) {
    clearRecords();
    EXPECT_TRUE(KioskWaitForLogout(4711, polls));
    EXPECT_EQ(mac.journal().size(), 1U) << polls;
  }
  pretendSession(1);
  EXPECT_FALSE(KioskWaitForLogout(4711, 0));
}

TEST_F(TeardownTest, WaitingAsksOnceMoreAfterTheLastPoll) {
  const std::uint64_t start = platform::ClockMonotonicNs();
  pretendSession(3);
  EXPECT_TRUE(KioskWaitForLogout(4711, 3));
  EXPECT_EQ(mac.journal().size(), 4U);
  EXPECT_EQ(platform::ClockMonotonicNs() - start, 300'000'000U);
  pretendSession(4);
  EXPECT_FALSE(KioskWaitForLogout(4711, 3));
  EXPECT_EQ(mac.journal().size(), 8U);
}

TEST_F(TeardownTest, SessionIsActiveWhileItIsOpen) {
  EXPECT_FALSE(KioskSessionActive(501));
  openSession(501);
  EXPECT_TRUE(KioskSessionActive(501));
  EXPECT_FALSE(KioskSessionActive(502));
}

TEST_F(TeardownTest, StartForgetsAnAccountThatWasDeletedByHand) {
  becomeEnrolled();
  RunMacTool({kSysadminctl, "-deleteUser", kAccount});
  restartDaemon();
  EXPECT_EQ(mac.countErrors("the BrindlexKiosk account this helper created (" +
                            before["generatedUID"].get<std::string>() + ") is gone"),
            1U);
  Json expected = before;
  expected.erase("generatedUID");
  expected.erase("password");
  expected["provisioned"] = false;
  EXPECT_EQ(mac.state(), expected);
  clearRecords();
  restartDaemon();
  EXPECT_EQ(mac.log(), (std::vector<LogLine>{{"Default", "started: not enrolled"}}));
}

TEST_F(TeardownTest, StartForgetsAnAccountWhosePlaceAnotherTook) {
  becomeEnrolled();
  RunMacTool({kSysadminctl, "-deleteUser", kAccount});
  createForeignAccount();
  addToGroup("admin");
  clearRecords();
  restartDaemon();
  EXPECT_FALSE(mac.state().contains("generatedUID"));
  EXPECT_EQ(mac.countErrors("the BrindlexKiosk account this helper created (" +
                            before["generatedUID"].get<std::string>() + ") is gone"),
            1U);
  EXPECT_TRUE(mac.journal().empty()) << "a foreign account is not looked after";
  EXPECT_EQ(std::ranges::count(members("admin"), kAccount), 1);
}

TEST_F(TeardownTest, StartKeepsAnAccountThatIsItsOwn) {
  becomeEnrolled();
  restartDaemon();
  EXPECT_EQ(mac.state(), before);
  EXPECT_EQ(mac.journal(), (std::vector<ToolRun>{checkMember("admin"), checkMember("wheel")}));
  EXPECT_EQ(mac.log(), (std::vector<LogLine>{{"Default", "started: not enrolled"}}));
}

TEST_F(TeardownTest, StartTakesTheAccountOutOfTheAdministratorGroups) {
  becomeEnrolled();
  addToGroup("admin");
  addToGroup("wheel");
  clearRecords();
  restartDaemon();
  EXPECT_EQ(mac.runs(kDseditgroup),
            (std::vector<ToolRun>{checkMember("admin", 0), removeMember("admin"),
                                  checkMember("wheel", 0), removeMember("wheel")}));
  EXPECT_EQ(mac.countLog("BrindlexKiosk was in admin; removing it"), 1U);
  EXPECT_EQ(mac.countLog("BrindlexKiosk was in wheel; removing it"), 1U);
  EXPECT_EQ(std::ranges::count(members("admin"), kAccount), 0);
  EXPECT_EQ(std::ranges::count(members("wheel"), kAccount), 0);
}

TEST_F(TeardownTest, StartGoesOnWhenAGroupCannotBeEdited) {
  becomeEnrolled();
  addToGroup("admin");
  addToGroup("wheel");
  clearRecords();
  mac.addFault({{"target", kDseditgroup},
                {"arguments", {"-o", "edit"}},
                {"times", 1},
                {"status", 64},
                {"errorOutput", "Unable.\n"}});
  restartDaemon();
  EXPECT_EQ(mac.countErrors("dseditgroup -o exited 64: Unable."), 1U);
  EXPECT_EQ(std::ranges::count(members("admin"), kAccount), 1);
  EXPECT_EQ(std::ranges::count(members("wheel"), kAccount), 0);
}

TEST_F(TeardownTest, DemotionNeedsBothAYesAndSuccess) {
  becomeEnrolled();
  mac.addFault({{"target", kDseditgroup}, {"output", "yes it is\n"}, {"status", 67}, {"times", 1}});
  mac.addFault({{"target", kDseditgroup}, {"output", "no yes\n"}, {"status", 0}, {"times", 1}});
  KioskDemote();
  EXPECT_EQ(mac.runs(kDseditgroup),
            (std::vector<ToolRun>{checkMember("admin", 67), checkMember("wheel", 0)}));
  EXPECT_TRUE(mac.log().empty());
}
