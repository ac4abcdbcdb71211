// Maintenance mode and the password that guards it.
#include "tests/daemon/SettingsTest.h"

namespace {

constexpr std::uint64_t kSecond = virtual_time::kSecondNs;

class Maintenance : public SettingsTest {
 protected:
  Json enter(const Json& password) {
    return send({{"cmd", "maintenance"}, {"password", password}}, kioskUid());
  }

  void enterWrongly(int times) {
    for (int i = 0; i < times; ++i) EXPECT_EQ(enter("wrong"), refused("wrong_password"));
  }

  /// The attempts that the portal was asked about.
  std::size_t checkIns() const { return portal.requests(kCheckInCall).size(); }

  /// What the state file says under a key at the time of the next check-in.
  void noteAtCheckIn(const char* key, Json& seen) {
    portal.whenAsked(kCheckInCall, [this, key, &seen] { seen = mac.state()[key]; });
  }
};

TEST_F(Maintenance, SuspendsTheKioskUntilTheNextStart) {
  EXPECT_EQ(enter(kPassword), done());
  EXPECT_EQ(mac.state()["maintenance"], true);
  EXPECT_EQ(autoLoginUser(), "");
  EXPECT_FALSE(mac.exists(kPasswordFile));
  EXPECT_EQ(status()["maintenance"], true);
  EXPECT_EQ(mac.countLog("maintenance: auto-login skipped until the next restart"), 1U);
  restartDaemon();
  EXPECT_EQ(mac.state()["maintenance"], false);
  EXPECT_EQ(autoLoginUser(), kAccount);
  EXPECT_EQ(autoLoginPassword(), mac.state()["password"]);
  EXPECT_EQ(mac.countLog("maintenance over: auto-login restored"), 1U);
}

TEST_F(Maintenance, LogsTheKioskUserOutOneSecondLater) {
  const std::uint32_t uid = kioskUid();
  openSession(uid);
  EXPECT_EQ(enter(kPassword), done());
  virtual_time::Advance(kSecond - 1);
  EXPECT_TRUE(sessionIsOpen(uid));
  virtual_time::Advance(1);
  EXPECT_FALSE(sessionIsOpen(uid));
  EXPECT_EQ(mac.countLog("logging out BrindlexKiosk (uid " + std::to_string(uid) + ")"), 1U);
}

TEST_F(Maintenance, LeavesTheSessionOfAnAccountThatIsNotOursAlone) {
  RunMacTool({kSysadminctl, "-deleteUser", kAccount});
  createForeignAccount();
  openSession(kioskUid());
  EXPECT_EQ(enter(kPassword), done());
  virtual_time::Advance(5 * kSecond);
  EXPECT_TRUE(sessionIsOpen(kioskUid()));
}

TEST_F(Maintenance, KeepsAProvisioningRunFromEnablingAutoLogin) {
  EXPECT_EQ(enter(kPassword), done());
  provision();
  EXPECT_EQ(mac.state()["provisioned"], true);
  EXPECT_EQ(autoLoginUser(), "");
  EXPECT_EQ(mac.countLog("provisioned: BrindlexKiosk signs in at boot"), 1U);
}

TEST_F(Maintenance, TakesThePasswordInAnyCaseAndWithBlanksAround) {
  for (const char* entered : {"open-sesame", " Open-Sesame\n", "\t\u00A0OPEN-sesame \r\n"}) {
    EXPECT_EQ(enter(entered), done()) << entered;
  }
}

TEST_F(Maintenance, DoesNotIgnoreBlanksInside) {
  EXPECT_EQ(enter("OPEN- SESAME"), refused("wrong_password"));
}

TEST_F(Maintenance, TakesNoPasswordForAnEmptyOne) {
  EXPECT_EQ(send({{"cmd", "maintenance"}}), refused("wrong_password"));
  EXPECT_EQ(enter(7), refused("wrong_password"));
  answerEnrolled({{"exitPassword", ""}});
  EXPECT_EQ(send({{"cmd", "maintenance"}}), done());
  EXPECT_EQ(enter(7), done());
  EXPECT_EQ(enter(nullptr), done());
  EXPECT_EQ(enter(" "), done());
}

TEST_F(Maintenance, CountsWrongPasswordsAndLocksAfterTheFifth) {
  enterWrongly(4);
  for (const int count : {1, 2, 3, 4}) {
    EXPECT_EQ(
        mac.countLog("maintenance refused: wrong password (" + std::to_string(count) + " of 5)"),
        1U);
    EXPECT_EQ(mac.countErrors("maintenance: 5 wrong passwords; refusing for 300 s"), 0U);
  }
  EXPECT_EQ(mac.state()["maintenanceFailures"], 4);
  enterWrongly(1);
  EXPECT_EQ(mac.countErrors("maintenance: 5 wrong passwords; refusing for 300 s"), 1U);
  EXPECT_EQ(mac.countLog("maintenance refused: wrong password (5 of 5)"), 0U);
  EXPECT_EQ(mac.state()["maintenanceFailures"], 0);
  EXPECT_EQ(enter(kPassword), refused("locked"));
}

TEST_F(Maintenance, AnswersLockedForThreeHundredSecondsWithoutCounting) {
  enterWrongly(5);
  const Json locked = mac.state();
  const std::size_t asked = checkIns();
  EXPECT_EQ(enter("wrong"), refused("locked"));
  EXPECT_EQ(checkIns(), asked);
  EXPECT_EQ(mac.state(), locked);
  virtual_time::Advance(299 * kSecond);
  EXPECT_EQ(enter(kPassword), refused("locked"));
  EXPECT_EQ(mac.state()["maintenanceFailures"], 0);
  virtual_time::Advance(kSecond);
  EXPECT_EQ(enter(kPassword), done());
  EXPECT_FALSE(mac.state().contains("maintenanceLockedUntil"));
  EXPECT_FALSE(mac.state().contains("maintenanceFailures"));
}

TEST_F(Maintenance, LocksAgainAfterAnotherFive) {
  enterWrongly(5);
  virtual_time::Advance(300 * kSecond);
  enterWrongly(4);
  EXPECT_EQ(mac.state()["maintenanceFailures"], 4);
  enterWrongly(1);
  EXPECT_EQ(enter(kPassword), refused("locked"));
}

TEST_F(Maintenance, IsNeverLockedForLongerThanThreeHundredSecondsFromNow) {
  enterWrongly(5);
  virtual_time::ShiftWallClock(-86400);
  const double before = mac.state()["maintenanceLockedUntil"];
  EXPECT_EQ(enter(kPassword), refused("locked"));
  EXPECT_NEAR(mac.state()["maintenanceLockedUntil"].get<double>(), before - 86400, 0.001);
  virtual_time::Advance(299 * kSecond);
  EXPECT_EQ(enter(kPassword), refused("locked"));
  virtual_time::Advance(kSecond);
  EXPECT_EQ(enter(kPassword), done());
}

TEST_F(Maintenance, TakesALockThatIsNoNumberForNone) {
  Json state = mac.state();
  state["maintenanceLockedUntil"] = "tomorrow";
  state["maintenanceFailures"] = "many";
  startDaemon(state);
  EXPECT_EQ(enter("wrong"), refused("wrong_password"));
  EXPECT_EQ(mac.state()["maintenanceFailures"], 1);
}

TEST_F(Maintenance, SurvivesCountsThatNobodyCounted) {
  for (const Json& count : {Json(1e300), Json(-1e300), Json(INT64_MAX), Json(2.9), Json(true)}) {
    Json state = mac.state();
    state["maintenanceFailures"] = count;
    startDaemon(state);
    EXPECT_EQ(enter("wrong"), refused("wrong_password")) << count;
    EXPECT_EQ(enter(kPassword)["ok"].is_boolean(), true);
    virtual_time::Advance(300 * kSecond);
    restartDaemon();
  }
}

TEST_F(Maintenance, KeepsCountAndLockAcrossRestarts) {
  enterWrongly(3);
  restartDaemon();
  enterWrongly(2);
  restartDaemon();
  EXPECT_EQ(enter(kPassword), refused("locked"));
}

TEST_F(Maintenance, CountsAnAttemptAfterItAskedThePortal) {
  Json seen;
  noteAtCheckIn("maintenanceFailures", seen);
  EXPECT_EQ(enter("wrong"), refused("wrong_password"));
  EXPECT_TRUE(seen.is_null()) << seen;
  EXPECT_EQ(enter("wrong"), refused("wrong_password"));
  EXPECT_EQ(seen, 1);
}

TEST_F(Maintenance, ForgetsTheWrongOnesAfterTheRightOne) {
  enterWrongly(4);
  EXPECT_EQ(enter(kPassword), done());
  EXPECT_FALSE(mac.state().contains("maintenanceFailures"));
  enterWrongly(4);
  EXPECT_EQ(enter(kPassword), done());
}

TEST_F(Maintenance, ComparesWithThePasswordThatThePortalHasNow) {
  answerEnrolled({{"exitPassword", "fresh"}});
  EXPECT_EQ(enter(kPassword), refused("wrong_password"));
  EXPECT_EQ(enter("FRESH"), done());
}

TEST_F(Maintenance, ComparesWithTheStoredPasswordWhenThePortalIsNotThere) {
  portal.stop();
  EXPECT_EQ(enter("wrong"), refused("wrong_password"));
  EXPECT_EQ(enter(kPassword), done());
}

TEST_F(Maintenance, IsRefusedWhenThePortalRevokesTheTerminal) {
  portal.answer(kCheckInCall, 401, {{"status", "revoked"}});
  EXPECT_EQ(enter(kPassword), refused("not_enrolled"));
  EXPECT_FALSE(mac.state().contains("token"));
  EXPECT_FALSE(mac.state().contains("maintenanceFailures"));
}

TEST_F(Maintenance, IsRefusedWithoutAPassword) {
  Json state = mac.state();
  state.erase("exitPassword");
  startDaemon(state);
  EXPECT_EQ(enter(""), refused("unreachable"));
  EXPECT_FALSE(mac.state().contains("maintenanceFailures"));
}

TEST_F(Maintenance, IsRefusedOnATerminalThatIsNotSetUp) {
  Json state = mac.state();
  state["provisioned"] = false;
  startDaemon(state);
  // Not through the queue: the check-in that is due would provision first.
  EXPECT_EQ(daemon->handle({{"cmd", "maintenance"}, {"password", kPassword}}, {0, 100}),
            refused("not_provisioned"));
  state.erase("token");
  state["provisioned"] = true;
  startDaemon(state);
  EXPECT_EQ(enter(kPassword), refused("not_provisioned"));
}

TEST_F(Maintenance, SaysLockedFirst) {
  enterWrongly(5);
  Json state = mac.state();
  state.erase("token");
  startDaemon(state);
  EXPECT_EQ(enter(kPassword), refused("locked"));
}

TEST_F(Maintenance, TakesAnUnlockInsteadOfThePassword) {
  unlock();
  EXPECT_EQ(sendUnlocked({{"cmd", "maintenance"}}), done());
  EXPECT_EQ(mac.state()["maintenance"], true);
  EXPECT_FALSE(mac.state().contains("maintenanceFailures"));
  EXPECT_EQ(sendUnlocked({{"cmd", "time.get"}}), refused("not_unlocked"));  // which ends it
}

TEST_F(Maintenance, AsksForAnUnlockWhenTheOneGivenIsNone) {
  const std::size_t asked = checkIns();
  EXPECT_EQ(send({{"cmd", "maintenance"}, {"unlockToken", "x"}}), refused("not_unlocked"));
  EXPECT_EQ(checkIns(), asked);
  EXPECT_EQ(send({{"cmd", "maintenance"}, {"unlockToken", "x"}, {"password", kPassword}}), done());
}

TEST_F(Maintenance, RefusesAnUnlockedTerminalThatIsNotSetUp) {
  unlock();
  mac.addFault({{"target", kFdesetup}, {"status", 0}, {"output", "FileVault is On."}});
  provision();
  EXPECT_EQ(sendUnlocked({{"cmd", "maintenance"}}), refused("not_provisioned"));
}

class Unlock : public SettingsTest {
 protected:
  Json tryToUnlock(std::uint32_t uid, const Json& password = kPassword) {
    return send({{"cmd", "unlock"}, {"password", password}}, uid);
  }

  bool accepts(const std::string& presented, std::uint32_t uid, std::int32_t session = 100) {
    return send({{"cmd", "time.get"}, {"unlockToken", presented}}, uid, session)["ok"] == true;
  }
};

TEST_F(Unlock, HandsOutATokenForTenMinutes) {
  const Json reply = tryToUnlock(kioskUid());
  EXPECT_EQ(reply.size(), 3U);
  EXPECT_EQ(reply["ok"], true);
  EXPECT_EQ(reply["expiresInSeconds"], 600);
  const std::string handed = reply["unlockToken"];
  EXPECT_EQ(handed.size(), 32U);
  EXPECT_EQ(handed.find_first_not_of("0123456789abcdef"), std::string::npos);
  EXPECT_EQ(mac.countLog("terminal settings unlocked for 600 s (uid " + std::to_string(kioskUid()) +
                         ", session 100)"),
            1U);
  EXPECT_EQ(mac.state().dump().find(handed), std::string::npos);
}

TEST_F(Unlock, IsForTheKioskAccountAlone) {
  const std::size_t asked = portal.requests(kCheckInCall).size();
  EXPECT_EQ(tryToUnlock(0), refused("not_permitted"));
  EXPECT_EQ(tryToUnlock(kioskUid() + 1), refused("not_permitted"));
  EXPECT_EQ(portal.requests(kCheckInCall).size(), asked);
  EXPECT_FALSE(mac.state().contains("maintenanceFailures"));
}

TEST_F(Unlock, IsNotForAnAccountThatIsNotOurs) {
  RunMacTool({kSysadminctl, "-deleteUser", kAccount});
  createForeignAccount();
  EXPECT_EQ(tryToUnlock(kioskUid()), refused("not_permitted"));
}

TEST_F(Unlock, NeedsThePassword) {
  EXPECT_EQ(tryToUnlock(kioskUid(), "wrong"), refused("wrong_password"));
  EXPECT_EQ(tryToUnlock(kioskUid(), nullptr), refused("wrong_password"));
  for (int i = 0; i < 3; ++i) tryToUnlock(kioskUid(), "wrong");
  EXPECT_EQ(tryToUnlock(kioskUid()), refused("locked"));
}

TEST_F(Unlock, FailsWithoutRandomBytes) {
  mac.addFault({{"target", "crypto.randomBytes"}});
  EXPECT_EQ(tryToUnlock(kioskUid()), refused("failed"));
}

TEST_F(Unlock, KeepsTheEarlierOneWhenANewOneFails) {
  unlock();
  mac.addFault({{"target", "crypto.randomBytes"}});
  EXPECT_EQ(tryToUnlock(kioskUid()), refused("failed"));
  EXPECT_TRUE(accepts(token, kioskUid()));
}

TEST_F(Unlock, IsHeldByOneUserAndSession) {
  unlock();
  EXPECT_TRUE(accepts(token, kioskUid()));
  EXPECT_TRUE(accepts(token, kioskUid()));
  EXPECT_FALSE(accepts(token, kioskUid(), 101));
  EXPECT_FALSE(accepts(token, 0));
  EXPECT_TRUE(accepts(token, kioskUid()));
}

TEST_F(Unlock, TakesTheWholeTokenAndNothingElse) {
  unlock();
  for (std::size_t i = 0; i < token.size(); ++i) {
    std::string other = token;
    other[i] = other[i] == '0' ? '1' : '0';
    EXPECT_FALSE(accepts(other, kioskUid())) << i;
  }
  EXPECT_FALSE(accepts("", kioskUid()));
  EXPECT_FALSE(accepts(token.substr(0, 31), kioskUid()));
  EXPECT_FALSE(accepts(token + "0", kioskUid()));
  for (const Json& presented : {Json(), Json(7), Json(true), Json::array({token})}) {
    EXPECT_EQ(send({{"cmd", "time.get"}, {"unlockToken", presented}}, kioskUid()),
              refused("not_unlocked"));
  }
  EXPECT_TRUE(accepts(token, kioskUid()));
}

TEST_F(Unlock, EndsAfterSixHundredSecondsAndSaysSoOnce) {
  unlock();
  virtual_time::Advance(600 * virtual_time::kSecondNs - 1);
  EXPECT_TRUE(accepts(token, kioskUid()));
  virtual_time::Advance(1);
  EXPECT_FALSE(accepts(token, kioskUid()));
  EXPECT_FALSE(accepts(token, kioskUid()));
  EXPECT_EQ(mac.countLog("terminal settings unlock expired"), 1U);
}

TEST_F(Unlock, DoesNotEndWhenTheClockIsSet) {
  unlock();
  virtual_time::ShiftWallClock(86400);
  EXPECT_TRUE(accepts(token, kioskUid()));
}

TEST_F(Unlock, IsReplacedByTheNextOne) {
  unlock();
  const std::string first = token;
  unlock();
  EXPECT_NE(token, first);
  EXPECT_FALSE(accepts(first, kioskUid()));
  EXPECT_TRUE(accepts(token, kioskUid()));
}

TEST_F(Unlock, EndsWithTheDaemon) {
  unlock();
  restartDaemon();
  EXPECT_FALSE(accepts(token, kioskUid()));
}

TEST_F(Unlock, EndsWithTheEnrolment) {
  unlock();
  const std::uint32_t uid = kioskUid();
  daemon->queue().sync([this] { daemon->teardown("test"); });
  EXPECT_FALSE(accepts(token, uid));
}

TEST_F(Unlock, GatesEverySettingsCommand) {
  for (const char* command : {"net.set", "time.zone", "time.sync", "time.get", "power.get",
                              "power.set", "proxy.set", "os.updates", "os.install"}) {
    EXPECT_EQ(sendLocked({{"cmd", command}}), refused("not_unlocked")) << command;
    EXPECT_EQ(send({{"cmd", command}, {"unlockToken", "x"}}), refused("not_unlocked")) << command;
  }
  EXPECT_TRUE(mac.journal().empty());
}

TEST_F(Unlock, IsLoggedWithoutItsTokenAsNoSecretEverIsLogged) {
  const std::string password = mac.state()["password"];
  Json reply = tryToUnlock(kioskUid());
  const std::string unlockToken = reply["unlockToken"];
  send({{"cmd", "unlock"}, {"password", "hunter2-guess"}}, kioskUid());
  sendUnlocked({{"cmd", "time.get"}});
  restartDaemon();
  portal.answer(kCheckInCall, 401, {{"status", "revoked"}});
  checkIn();
  const std::string log = mac.read("/private/var/log/system.log");
  ASSERT_NE(log.find("tearing down"), std::string::npos);
  for (const std::string& secret : {password, unlockToken, std::string(kPassword),
                                    std::string("device-token"), std::string("hunter2-guess")}) {
    EXPECT_EQ(log.find(secret), std::string::npos) << secret;
  }
}

}  // namespace
