// Provisioning whose steps fail: the code, the log, and what stays behind for the next run.
#include <sys/stat.h>
#include <unistd.h>

#include <filesystem>

#include "tests/daemon/AccountTest.h"

namespace {

namespace fs = std::filesystem;

constexpr char kRefusal[] = "provisioning refused: ";

class ProvisionFailureTest : public AccountTest {
 protected:
  ProvisionFailureTest() {
    startDaemon();
    clearRecords();
  }

  /// A run that fails with this code and logs these errors before it says so.
  void expectFailure(const std::string& code, std::vector<std::string> errors = {}) {
    provision();
    EXPECT_EQ(mac.state()["lastError"], code);
    EXPECT_EQ(mac.state()["provisioned"], false);
    EXPECT_EQ(autoLoginUser(), "");
    errors.push_back(kRefusal + code);
    std::vector<std::string> logged;
    for (const LogLine& line : mac.log()) {
      if (line.level == "Error") logged.push_back(line.text);
    }
    EXPECT_EQ(logged, errors);
  }

  /// A run without faults that succeeds.
  void expectRecovery() {
    mac.clearFaults();
    provision();
    EXPECT_EQ(mac.state()["provisioned"], true);
    EXPECT_FALSE(mac.state().contains("lastError"));
    EXPECT_EQ(mac.state()["generatedUID"], generatedUid());
    EXPECT_TRUE(storedPasswordFits());
    EXPECT_EQ(autoLoginUser(), kAccount);
    EXPECT_EQ(autoLoginPassword(), mac.state()["password"]);
  }

  void failTool(const char* tool, const std::vector<std::string>& arguments, int status,
                const std::string& output = "") const {
    mac.addFault(
        {{"target", tool}, {"arguments", arguments}, {"status", status}, {"errorOutput", output}});
  }

  void failService(const char* service, const std::string& description) const {
    mac.addFault({{"target", service}, {"errorOutput", description}});
  }
};

}  // namespace

TEST_F(ProvisionFailureTest, NoAccountThoughTheToolReportsSuccess) {
  failTool(kSysadminctl, {"-addUser"}, 0, "User could not be created.\n");
  expectFailure("account_create_failed");
  EXPECT_FALSE(kioskAccountExists());
  EXPECT_FALSE(mac.state().contains("generatedUID"));
  EXPECT_EQ(mac.journal(),
            (std::vector<ToolRun>{fdesetup(), readUser(1), addAccount(), readUser(1)}));
  expectRecovery();
}

TEST_F(ProvisionFailureTest, NoAccountAndTheToolSaysSo) {
  failTool(kSysadminctl, {"-addUser"}, 255, "no room\n");
  expectFailure("account_create_failed", {"sysadminctl -addUser exited 255: no room"});
}

TEST_F(ProvisionFailureTest, AnAccountCountsWhateverTheToolReports) {
  mac.addFault({{"target", kSysadminctl},
                {"arguments", {"-addUser"}},
                {"status", 3},
                {"errorOutput", "odd\n"},
                {"effect", true}});
  provision();
  EXPECT_EQ(mac.countErrors("sysadminctl -addUser exited 3: odd"), 1U);
  EXPECT_EQ(mac.state()["provisioned"], true);
}

TEST_F(ProvisionFailureTest, AnAccountWithoutUuidIsNone) {
  failService("directory.userUuid", "");
  expectFailure("account_create_failed");
  EXPECT_FALSE(mac.state().contains("generatedUID"));
}

TEST_F(ProvisionFailureTest, APasswordThatCannotBeSetTakesTheFreshAccountWithIt) {
  failService("directory.changePassword", "The password is not good enough.");
  expectFailure("account_password_failed",
                {"cannot set the BrindlexKiosk password: The password is not good enough."});
  EXPECT_EQ(mac.journal(), (std::vector<ToolRun>{fdesetup(), readUser(1), addAccount(),
                                                 deleteAccount(), readUser(1)}));
  EXPECT_FALSE(kioskAccountExists());
  EXPECT_FALSE(mac.state().contains("generatedUID"));
  EXPECT_FALSE(mac.state().contains("password"));
  expectRecovery();
}

TEST_F(ProvisionFailureTest, ANodeThatCannotBeOpened) {
  failService("directory.openLocal", "The node is away.");
  expectFailure("account_password_failed",
                {"cannot set the BrindlexKiosk password: The node is away."});
  EXPECT_FALSE(kioskAccountExists());
}

TEST_F(ProvisionFailureTest, ARecordThatCannotBeRead) {
  failService("directory.userRecord", "The node is busy.");
  expectFailure("account_password_failed",
                {"cannot set the BrindlexKiosk password: The node is busy."});
}

TEST_F(ProvisionFailureTest, ARecordThatIsNotThere) {
  failService("directory.userRecord", "");
  expectFailure("account_password_failed", {"cannot set the BrindlexKiosk password: no record"});
}

TEST_F(ProvisionFailureTest, AnAccountThatCannotBeDeletedAgainStaysOnRecord) {
  failService("directory.changePassword", "No.");
  failTool(kSysadminctl, {"-deleteUser"}, 255, "Not permitted.\n");
  expectFailure("account_password_failed", {"cannot set the BrindlexKiosk password: No.",
                                            "sysadminctl -deleteUser exited 255: Not permitted."});
  EXPECT_EQ(mac.state()["generatedUID"], generatedUid());
  EXPECT_FALSE(mac.state().contains("password"));
  mac.clearFaults();
  clearRecords();
  expectRecovery();
  EXPECT_EQ(mac.countRuns(kSysadminctl, {}), 0U) << "the account is adopted, not created";
}

TEST_F(ProvisionFailureTest, APasswordFailureDeletesAnAccountThatHadNoneStored) {
  provision();
  Json state = mac.state();
  state.erase("password");
  startDaemon(state);
  clearRecords();
  failService("directory.changePassword", "No.");
  provision();
  EXPECT_EQ(mac.state()["lastError"], "account_password_failed");
  EXPECT_FALSE(kioskAccountExists());
  EXPECT_FALSE(mac.state().contains("generatedUID"));
}

TEST_F(ProvisionFailureTest, AHomeThatTheToolCannotMake) {
  failTool(kCreatehomedir, {}, 1, "no disk\n");
  expectFailure("home_failed", {"createhomedir -c exited 1: no disk"});
  EXPECT_EQ(mac.state()["generatedUID"], generatedUid()) << "the account stays and is recorded";
  EXPECT_TRUE(storedPasswordFits());
  EXPECT_FALSE(mac.exists(kLaunchAgent));
  clearRecords();
  expectRecovery();
  EXPECT_EQ(mac.countRuns(kSysadminctl, {}), 0U);
}

TEST_F(ProvisionFailureTest, SetupAssistantPreferencesThatCannotBeEncoded) {
  mac.addFault({{"target", "propertyList.write"},
                {"arguments", {"binary"}},
                {"errorOutput", "No binary today."}});
  expectFailure("home_failed", {"Setup Assistant preferences: No binary today."});
  EXPECT_FALSE(mac.exists(kSetupAssistant));
  expectRecovery();
}

TEST_F(ProvisionFailureTest, ALaunchAgentThatCannotBeEncoded) {
  mac.addFault({{"target", "propertyList.write"},
                {"arguments", {"xml"}},
                {"errorOutput", "No text today."}});
  expectFailure("launch_agent_failed", {"LaunchAgent plist: No text today."});
  EXPECT_FALSE(mac.exists(kLaunchAgent));
  EXPECT_TRUE(mac.exists(kSetupAssistant));
  expectRecovery();
}

TEST_F(ProvisionFailureTest, ADirectoryInTheLaunchAgentsPlace) {
  fs::create_directory(kLaunchAgent);
  expectFailure("launch_agent_failed",
                {"cannot write com.brindlex.stream.kiosk.plist: Is a directory"});
  EXPECT_EQ(mac.countRuns(kDefaults, {"write"}), 0U);
  fs::remove(kLaunchAgent);
  expectRecovery();
}

TEST_F(ProvisionFailureTest, ALinkInTheLaunchAgentFoldersPlace) {
  const std::string moved = ReplaceByLink(mac, "/Library/LaunchAgents");
  expectFailure("launch_agent_failed",
                {"cannot open /Library/LaunchAgents without following a link: Not a directory"});
  EXPECT_TRUE(mac.list(moved).empty());
}

TEST_F(ProvisionFailureTest, APasswordFileThatCannotBeWritten) {
  fs::create_directory(kPasswordFile);
  expectFailure("autologin_failed", {"cannot write kcpassword: Is a directory"});
  EXPECT_EQ(mac.countRuns(kDefaults, {"write"}), 0U);
  EXPECT_TRUE(mac.exists(kLaunchAgent));
  fs::remove(kPasswordFile);
  expectRecovery();
}

TEST_F(ProvisionFailureTest, AnAutoLoginPreferenceThatCannotBeWritten) {
  failTool(kDefaults, {"write"}, 1, "no\n");
  expectFailure("autologin_failed", {"defaults write exited 1: no"});
  expectRecovery();
}

TEST_F(ProvisionFailureTest, GroupToolsThatFailStopNothing) {
  failTool(kDseditgroup, {"-o", "checkmember"}, 64, "yes but no\n");
  provision();
  EXPECT_EQ(mac.state()["provisioned"], true);
  EXPECT_EQ(mac.runs(kDseditgroup),
            (std::vector<ToolRun>{checkMember("admin", 64), checkMember("wheel", 64)}));
}
