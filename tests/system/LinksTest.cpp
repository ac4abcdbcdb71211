// Links planted at the paths that the daemon writes lead it nowhere.
#include <filesystem>

#include "tests/system/SystemTest.h"

namespace {

class LinksTest : public SystemTest {
 protected:
  LinksTest() {
    mac.write(kVictim, "untouched", 0644);
    std::filesystem::create_directories(mac.at(kVictimFolder));
  }

  void plant(const std::string& path, const std::string& target) const {
    mac.remove(path);
    std::filesystem::create_symlink(target, mac.at(path));
  }

  void expectVictimUntouched() const {
    EXPECT_EQ(mac.read(kVictim), "untouched");
    EXPECT_EQ(mac.modeAndOwner(kVictim), "0644 0:0");
    EXPECT_TRUE(mac.list(kVictimFolder).empty());
  }

  void expectRegularFile(const std::string& path) const {
    EXPECT_TRUE(S_ISREG(mac.info(path).st_mode)) << path;
  }

  static constexpr char kVictim[] = "/private/tmp/victim";
  static constexpr char kVictimFolder[] = "/private/tmp/victims";
};

TEST_F(LinksTest, ReplacesLinksAtTheFilesItWrites) {
  boot();
  const std::string url = mac.state()["authBaseUrl"];
  plant(kStateFile, kVictim);
  plant(kLaunchAgent, kVictim);
  plant(kPasswordFile, kVictim);
  EXPECT_EQ(pair("Lobby").value("provisioned", false), true);
  expectVictimUntouched();
  expectRegularFile(kStateFile);
  expectRegularFile(kLaunchAgent);
  expectRegularFile(kPasswordFile);
  EXPECT_EQ(mac.state()["authBaseUrl"], url);
  EXPECT_EQ(mac.modeAndOwner(kStateFile), "0600 0:0");
}

TEST_F(LinksTest, WritesNoStateThroughALinkedStateDirectory) {
  const std::string state = std::string(kVictimFolder) + "/state.json";
  mac.write(state, R"({"maintenance": true})");  // whose end is saved at once
  plant(kStateDir, kVictimFolder);
  boot();
  EXPECT_EQ(mac.countErrors(std::string(kStateDir) + " is not a directory"), 1U);
  EXPECT_GE(mac.countErrors("cannot open " + std::string(kStateDir) +
                            " without following a link: Not a directory"),
            1U);
  EXPECT_EQ(ask({{"cmd", "status"}})["maintenance"], false);
  EXPECT_EQ(mac.read(state), R"({"maintenance": true})");
  EXPECT_EQ(mac.list(kVictimFolder), std::vector<std::string>{"state.json"});
}

TEST_F(LinksTest, InstallsNoAgentThroughALinkedFolder) {
  boot();
  plant("/Library/LaunchAgents", kVictimFolder);
  EXPECT_EQ(pair("Lobby"), (Json{{"ok", false}, {"error", "launch_agent_failed"}}));
  EXPECT_GE(mac.countErrors("cannot open /Library/LaunchAgents without following a link: Not a "
                            "directory"),
            1U);
  expectVictimUntouched();
}

TEST_F(LinksTest, WritesNoPasswordThroughALinkedFolder) {
  boot();
  std::filesystem::rename(mac.at("/private/etc"), mac.at("/private/etc-real"));
  plant("/private/etc", "etc-real");
  EXPECT_EQ(pair("Lobby"), (Json{{"ok", false}, {"error", "autologin_failed"}}));
  EXPECT_FALSE(mac.exists("/private/etc-real/kcpassword"));
  expectVictimUntouched();
}

TEST_F(LinksTest, PreparesNoHomeThroughLinksOfItsOwner) {
  boot();
  for (const char* linked : {"/Users/BrindlexKiosk/Library/Preferences",
                             "/Users/BrindlexKiosk/Library", "/Users/BrindlexKiosk"}) {
    ASSERT_EQ(pair("Lobby").value("provisioned", false), true) << linked;
    plant(linked, kVictimFolder);
    Json state = mac.state();
    state["provisioned"] = false;
    halt();
    mac.writeState(state);
    boot();
    EXPECT_TRUE(Eventually([this] { return mac.state()["lastError"] == "home_failed"; })) << linked;
    EXPECT_GE(
        mac.countErrors("/Users/BrindlexKiosk/Library/Preferences is not a real directory the "
                        "kiosk account owns"),
        1U);
    expectVictimUntouched();
    portal.admin({"revoke", "Lobby"});
    killDaemon();
    ASSERT_TRUE(Eventually([this] { return !mac.state().contains("token"); })) << linked;
    portal.admin({"forget", "Lobby"});
    mac.remove("/Users/BrindlexKiosk");
  }
}

}  // namespace
