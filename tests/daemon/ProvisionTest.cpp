// Making the Mac a kiosk: what a run does, and the reasons for which it refuses.
#include <algorithm>
#include <filesystem>
#include <map>

#include "account/KioskAccount.h"
#include "platform/PropertyList.h"
#include "platform/simulated/MacFiles.h"
#include "tests/daemon/AccountTest.h"

namespace {

namespace fs = std::filesystem;

constexpr char kAlphabet[] = "ABCDEFGHJKLMNPQRSTUVWXYZabcdefghijkmnopqrstuvwxyz23456789";
constexpr char kFileVault[] = "/private/var/simulated/fdesetup.json";

class ProvisionTest : public AccountTest {
 protected:
  /// A run that is refused: the code, where it is kept, and its line in the log.
  void expectRefused(const std::string& code) {
    provision();
    EXPECT_EQ(mac.state()["lastError"], code);
    EXPECT_EQ(mac.state()["provisioned"], false);
    EXPECT_EQ(mac.countErrors("provisioning refused: " + code), 1U);
    EXPECT_EQ(mac.countLog("provisioned: BrindlexKiosk signs in at boot"), 0U);
    EXPECT_EQ(autoLoginUser(), "");
  }

  void setFileVault(const std::string& status) const {
    mac.write(kFileVault, Json{{"status", status}}.dump());
  }
};

}  // namespace

TEST_F(ProvisionTest, RunsTheToolsInOrder) {
  startDaemon();
  provision();
  EXPECT_EQ(mac.journal(),
            (std::vector<ToolRun>{fdesetup(), readUser(1), addAccount(), checkMember("admin"),
                                  checkMember("wheel"), createHome(), readUser(1), writeUser()}));
}

TEST_F(ProvisionTest, LogsTheNewAccountAndTheSuccess) {
  startDaemon();
  clearRecords();
  provision();
  const std::string created =
      "created BrindlexKiosk (uid " + std::to_string(kioskUid()) + ", " + generatedUid() + ")";
  EXPECT_EQ(mac.log(),
            (std::vector<LogLine>{{"Default", created},
                                  {"Default", "provisioned: BrindlexKiosk signs in at boot"}}));
}

TEST_F(ProvisionTest, KeepsIdentityPasswordAndSuccessInTheState) {
  startDaemon({{"lastError", "filevault_on"}, {"password", "of another account"}});
  provision();
  const Json state = mac.state();
  EXPECT_EQ(state["generatedUID"], generatedUid());
  EXPECT_EQ(state["provisioned"], true);
  EXPECT_FALSE(state.contains("lastError"));
  const std::string password = state["password"];
  EXPECT_EQ(password.size(), 32U);
  EXPECT_EQ(password.find_first_not_of(kAlphabet), std::string::npos);
  EXPECT_TRUE(storedPasswordFits());
}

TEST_F(ProvisionTest, CreatesAnOrdinaryAccount) {
  becomeProvisioned();
  EXPECT_TRUE(kioskAccountExists());
  EXPECT_EQ(std::ranges::count(members("admin"), kAccount), 0);
  EXPECT_EQ(std::ranges::count(members("wheel"), kAccount), 0);
  EXPECT_EQ(mac.modeAndOwner(kHome), "0700 " + std::to_string(kioskUid()) + ":20");
}

TEST_F(ProvisionTest, SetsAutoLoginToTheStoredPassword) {
  becomeProvisioned();
  EXPECT_EQ(autoLoginUser(), kAccount);
  EXPECT_EQ(autoLoginPassword(), mac.state()["password"]);
  EXPECT_EQ(mac.modeAndOwner(kPasswordFile), "0600 0:0");
  EXPECT_EQ(mac.read(kPasswordFile).size(), 36U);
}

TEST_F(ProvisionTest, WritesTheLaunchAgent) {
  becomeProvisioned();
  EXPECT_EQ(mac.modeAndOwner(kLaunchAgent), "0644 0:0");
  EXPECT_TRUE(mac.read(kLaunchAgent).starts_with("<?xml"));
  const Json expected = {{"Label", "com.brindlex.stream.kiosk"},
                         {"ProgramArguments", {kApplication, "--kiosk-shell"}},
                         {"RunAtLoad", true},
                         {"KeepAlive", {{"SuccessfulExit", false}}},
                         {"LimitLoadToSessionType", "Aqua"},
                         {"AssociatedBundleIdentifiers", Json::array({"com.brindlex.stream"})}};
  EXPECT_EQ(platform::PropertyListParse(mac.read(kLaunchAgent)), expected);
}

TEST_F(ProvisionTest, ReplacesALinkAtTheLaunchAgent) {
  mac.write("/Users/Shared/victim", "precious");
  fs::create_symlink("/Users/Shared/victim", kLaunchAgent);
  becomeProvisioned();
  EXPECT_TRUE(S_ISREG(mac.info(kLaunchAgent).st_mode));
  EXPECT_EQ(mac.modeAndOwner(kLaunchAgent), "0644 0:0");
  EXPECT_EQ(mac.read("/Users/Shared/victim"), "precious");
}

TEST_F(ProvisionTest, GivesAnExistingAccountNoNewPassword) {
  becomeProvisioned();
  const Json before = mac.state();
  const std::string hash = passwordHash();
  mac.remove(kLaunchAgent);
  mac.remove(kPasswordFile);
  provision();
  EXPECT_EQ(mac.journal(),
            (std::vector<ToolRun>{fdesetup(), readUser(0), checkMember("admin"),
                                  checkMember("wheel"), createHome(), readUser(0), writeUser()}));
  EXPECT_EQ(mac.state(), before);
  EXPECT_EQ(passwordHash(), hash);
  EXPECT_TRUE(mac.exists(kLaunchAgent));
  EXPECT_EQ(autoLoginPassword(), before["password"]);
  EXPECT_EQ(mac.log(),
            (std::vector<LogLine>{{"Default", "provisioned: BrindlexKiosk signs in at boot"}}));
}

TEST_F(ProvisionTest, GivesAnExistingAccountWithoutStoredPasswordANewOne) {
  becomeProvisioned();
  Json state = mac.state();
  const std::string before = state["password"];
  state.erase("password");
  startDaemon(state);
  provision();
  EXPECT_EQ(mac.countRuns(kSysadminctl, {}), 0U);
  EXPECT_NE(mac.state()["password"], before);
  EXPECT_TRUE(storedPasswordFits());
  EXPECT_EQ(autoLoginPassword(), mac.state()["password"]);
}

TEST_F(ProvisionTest, CreatesTheAccountAnewWhenItWasDeleted) {
  becomeProvisioned();
  const Json before = mac.state();
  RunMacTool({kSysadminctl, "-deleteUser", kAccount});
  provision();
  EXPECT_NE(mac.state()["generatedUID"], before["generatedUID"]);
  EXPECT_EQ(mac.state()["generatedUID"], generatedUid());
  EXPECT_NE(mac.state()["password"], before["password"]);
  EXPECT_TRUE(storedPasswordFits());
}

TEST_F(ProvisionTest, TakesTheAccountOutOfTheAdministratorGroups) {
  becomeProvisioned();
  addToGroup("admin");
  addToGroup("wheel");
  clearRecords();
  provision();
  EXPECT_EQ(std::ranges::count(members("admin"), kAccount), 0);
  EXPECT_EQ(std::ranges::count(members("wheel"), kAccount), 0);
  EXPECT_EQ(mac.runs(kDseditgroup),
            (std::vector<ToolRun>{checkMember("admin", 0), removeMember("admin"),
                                  checkMember("wheel", 0), removeMember("wheel")}));
}

TEST_F(ProvisionTest, RefusesADaemonThatLiesElsewhere) {
  startDaemon();
  virtual_time::SetExecutablePath("/usr/bin/defaults");
  expectRefused("not_installed");
  EXPECT_EQ(mac.journal(), std::vector<ToolRun>{readUser(1)});
  EXPECT_FALSE(kioskAccountExists());
}

TEST_F(ProvisionTest, RefusesABundleWithoutExecutable) {
  startDaemon();
  mac.remove(kApplication);
  expectRefused("not_installed");
  EXPECT_FALSE(kioskAccountExists());
}

TEST_F(ProvisionTest, RefusesAMacWithFileVaultBeforeAnythingElse) {
  startDaemon();
  createForeignAccount();
  clearRecords();
  for (const char* status :
       {"FileVault is On.", "FileVault is On.\nEncryption in progress: Percent completed = 12.34",
        "FileVault is On, but needs to be restarted to finish."}) {
    setFileVault(status);
    provision();
    EXPECT_EQ(mac.state()["lastError"], "filevault_on") << status;
  }
  EXPECT_EQ(mac.countErrors("provisioning refused: filevault_on"), 1U);
  EXPECT_EQ(mac.countRuns(kSysadminctl, {}), 0U);
}

TEST_F(ProvisionTest, AcceptsAMacWhoseFileVaultIsNotOnYet) {
  startDaemon();
  for (const char* status :
       {"FileVault is Off.", "FileVault is Off, but will be enabled after the next restart.",
        "FileVault is Off.\nDeferred enablement appears to be active for user 'admin'.",
        "FileVault is Off.\nDecryption in progress: Percent completed = 9.81", ""}) {
    setFileVault(status);
    EXPECT_FALSE(KioskFileVaultOn()) << status;
  }
  EXPECT_EQ(mac.countErrors("fdesetup status failed: "), 0U);
}

TEST_F(ProvisionTest, TakesAFailedFileVaultQueryForOff) {
  startDaemon();
  mac.addFault({{"target", kFdesetup}, {"status", 11}, {"output", "FileVault is On.\n"}});
  provision();
  EXPECT_EQ(mac.state()["provisioned"], true);
  EXPECT_EQ(mac.countErrors("fdesetup status failed: FileVault is On."), 1U);
}

TEST_F(ProvisionTest, SaysThatTheFileVaultToolIsMissing) {
  mac.remove(kFdesetup);
  EXPECT_FALSE(KioskFileVaultOn());
  EXPECT_EQ(mac.countErrors("fdesetup did not start: No such file or directory"), 1U);
  EXPECT_EQ(mac.countErrors("fdesetup status failed: "), 1U);
}

TEST_F(ProvisionTest, RefusesAnAccountThatItDidNotCreate) {
  createForeignAccount();
  const std::string uuid = generatedUid();
  const std::string hash = passwordHash();
  startDaemon();
  clearRecords();
  expectRefused("account_exists");
  EXPECT_EQ(mac.journal(), (std::vector<ToolRun>{fdesetup(), readUser(1)}));
  EXPECT_EQ(generatedUid(), uuid);
  EXPECT_EQ(passwordHash(), hash);
  EXPECT_FALSE(mac.state().contains("generatedUID"));
}

TEST_F(ProvisionTest, RefusesAnAccountThatTookThePlaceOfItsOwn) {
  becomeProvisioned();
  RunMacTool({kSysadminctl, "-deleteUser", kAccount});
  createForeignAccount();
  const std::string hash = passwordHash();
  clearRecords();
  expectRefused("account_exists");
  EXPECT_EQ(passwordHash(), hash);
  EXPECT_EQ(mac.countRuns(kSysadminctl, {}), 0U);
  EXPECT_EQ(mac.countRuns(kDseditgroup, {}), 0U);
}

TEST_F(ProvisionTest, RefusesAMacThatSignsInAnotherUser) {
  startDaemon();
  RunMacTool({kDefaults, "write", kLoginWindowDomain, "autoLoginUser", "admin"});
  mac.write(kPasswordFile, "theirs");
  clearRecords();
  provision();
  EXPECT_EQ(mac.state()["lastError"], "autologin_in_use");
  EXPECT_EQ(mac.state()["provisioned"], false);
  EXPECT_EQ(autoLoginUser(), "admin");
  EXPECT_EQ(mac.read(kPasswordFile), "theirs");
  EXPECT_EQ(mac.journal(), (std::vector<ToolRun>{fdesetup(), readUser(0), readUser(0)}));
  EXPECT_FALSE(kioskAccountExists());
}

TEST_F(ProvisionTest, NamesTheForeignAccountBeforeTheForeignAutoLogin) {
  startDaemon();
  createForeignAccount();
  RunMacTool({kDefaults, "write", kLoginWindowDomain, "autoLoginUser", "admin"});
  EXPECT_EQ(daemon->preflight(), "account_exists");
}

TEST_F(ProvisionTest, FindsNothingAgainstAFreshMacOrItsOwnKiosk) {
  startDaemon();
  EXPECT_EQ(daemon->preflight(), std::nullopt);
  provision();
  EXPECT_EQ(daemon->preflight(), std::nullopt);
}

TEST_F(ProvisionTest, LogsARepeatedRefusalOnceAndADifferentOneAgain) {
  startDaemon();
  setFileVault("FileVault is On.");
  provision();
  provision();
  provision();
  EXPECT_EQ(mac.countErrors("provisioning refused: filevault_on"), 1U);
  setFileVault("FileVault is Off.");
  RunMacTool({kDefaults, "write", kLoginWindowDomain, "autoLoginUser", "admin"});
  provision();
  EXPECT_EQ(mac.countErrors("provisioning refused: autologin_in_use"), 1U);
  setFileVault("FileVault is On.");
  provision();
  EXPECT_EQ(mac.countErrors("provisioning refused: filevault_on"), 2U);
}

TEST_F(ProvisionTest, LogsARefusalAgainAfterASuccess) {
  startDaemon();
  setFileVault("FileVault is On.");
  provision();
  setFileVault("FileVault is Off.");
  provision();
  EXPECT_FALSE(mac.state().contains("lastError"));
  setFileVault("FileVault is On.");
  provision();
  EXPECT_EQ(mac.countErrors("provisioning refused: filevault_on"), 2U);
}

TEST_F(ProvisionTest, RemembersTheLastRefusalBeyondARestart) {
  startDaemon({{"lastError", "filevault_on"}});
  setFileVault("FileVault is On.");
  provision();
  EXPECT_EQ(mac.countErrors("provisioning refused: filevault_on"), 0U);
}

TEST_F(ProvisionTest, TurnsAutoLoginOffWhenARunIsRefused) {
  becomeProvisioned();
  setFileVault("FileVault is On.");
  expectRefused("filevault_on");
  EXPECT_FALSE(mac.exists(kPasswordFile));
  EXPECT_EQ(mac.journal(), (std::vector<ToolRun>{fdesetup(), readUser(0), deleteUser()}));
  EXPECT_TRUE(kioskAccountExists());
  EXPECT_EQ(mac.state()["generatedUID"], generatedUid());
  EXPECT_TRUE(mac.exists(kLaunchAgent));
  setFileVault("FileVault is Off.");
  provision();
  EXPECT_EQ(mac.state()["provisioned"], true);
  EXPECT_EQ(autoLoginUser(), kAccount);
}

TEST_F(ProvisionTest, ReportsTheAccountsIdsThoughItsUuidCannotBeHad) {
  becomeProvisioned();
  mac.addFault({{"target", "directory.userUuid"}});
  uid_t uid = 0;
  gid_t gid = 0;
  EXPECT_EQ(KioskAccountGeneratedUID(&uid, &gid), std::nullopt);
  EXPECT_EQ(uid, kioskUid());
  EXPECT_EQ(gid, 20U);
}

TEST_F(ProvisionTest, ReportsNoIdsOfAnAccountThatDoesNotExist) {
  uid_t uid = 77;
  gid_t gid = 78;
  EXPECT_EQ(KioskAccountGeneratedUID(&uid, &gid), std::nullopt);
  EXPECT_EQ(uid, 77U);
  EXPECT_EQ(gid, 78U);
}

TEST_F(ProvisionTest, ReportsTheUuidInUpperCase) {
  becomeProvisioned();
  const platform::MacTree tree;
  auto account = *tree.userNamed(kAccount);
  account.generatedUid = "0a1b2c3d-0000-4000-8000-00000000abcd";
  ASSERT_TRUE(tree.writeUser(account));
  EXPECT_EQ(KioskAccountGeneratedUID(), "0A1B2C3D-0000-4000-8000-00000000ABCD");
}

TEST_F(ProvisionTest, DrawsEveryCharacterOfThePasswordAlike) {
  constexpr int passwords = 6400;
  std::map<char, int> counts;
  for (int draw = 0; draw < passwords; ++draw) {
    const std::string password = KioskRandomPassword();
    ASSERT_EQ(password.size(), 32U);
    for (const char each : password) ++counts[each];
  }
  ASSERT_EQ(counts.size(), 57U);
  // Six standard deviations around 204800 / 57; a bias of the byte's top range is beyond them.
  for (const auto& [character, count] : counts) {
    EXPECT_NE(std::string(kAlphabet).find(character), std::string::npos) << character;
    EXPECT_NEAR(count, 3593, 360) << character;
  }
}

TEST_F(ProvisionTest, RepeatsAFailedDrawOfRandomBytes) {
  mac.addFault({{"target", "crypto.randomBytes"}, {"times", 40}});
  EXPECT_EQ(KioskRandomPassword().size(), 32U);
  EXPECT_EQ(mac.readJson("/private/var/simulated/faults.json").back()["times"], 0);
  EXPECT_TRUE(mac.log().empty());
}
