// The terminal's settings through the real channel.
#include <unistd.h>

#include "tests/system/SystemTest.h"

namespace {

constexpr char kAccount[] = "BrindlexKiosk";

class SettingsSystemTest : public SystemTest {
 protected:
  SettingsSystemTest() {
    boot();
    enrol("Lobby");
    portal.admin({"exit-password", "Lobby", "-"}, "Open Sesame\n");
  }

  /// A command's reply to a user of the Mac, in this process's session or in one of its own.
  Json sendAs(const std::string& user, const Json& request, bool ownSession = false) const {
    std::vector<std::string> command;
    if (ownSession) command = {"/usr/bin/setsid", "--wait"};
    for (const std::string& word :
         {std::string(KIOSKD_SIMMAC), std::string("run"), mac.root(), std::string("--user"), user,
          std::string("--"), std::string(kKioskctl), std::string("send"), request.dump()}) {
      command.push_back(word);
    }
    const std::string output = RunToEnd(command).output;
    return Json::parse(output.substr(0, output.find('\n')), nullptr, false);
  }

  /// Unlocks for the kiosk account in this process's session; the token.
  std::string unlock() const {
    const Json reply = sendAs(kAccount, {{"cmd", "unlock"}, {"password", "open sesame "}});
    EXPECT_EQ(reply["ok"], true) << reply;
    return reply.value("unlockToken", "");
  }

  static Json get(const std::string& token) {
    return {{"cmd", "power.get"}, {"unlockToken", token}};
  }

  const Json _notUnlocked = {{"ok", false}, {"error", "not_unlocked"}};
};

TEST_F(SettingsSystemTest, AreForTheKioskUsersSessionThatUnlockedThem) {
  EXPECT_EQ(sendAs("root", {{"cmd", "unlock"}, {"password", "open sesame"}}),
            (Json{{"ok", false}, {"error", "not_permitted"}}));
  const std::string token = unlock();
  EXPECT_EQ(sendAs(kAccount, get(token))["ok"], true);
  EXPECT_EQ(sendAs(kAccount, get(token), true), _notUnlocked);
  EXPECT_EQ(sendAs("root", get(token)), _notUnlocked);
  std::string other = token;
  other[31] = other[31] == '0' ? '1' : '0';
  EXPECT_EQ(sendAs(kAccount, get(other)), _notUnlocked);
  EXPECT_EQ(sendAs(kAccount, get(token))["ok"], true);
}

TEST_F(SettingsSystemTest, LockOutsSurviveAKilledDaemon) {
  const Json wrong = {{"cmd", "unlock"}, {"password", "guess"}};
  for (int i = 0; i < 5; ++i) {
    EXPECT_EQ(sendAs(kAccount, wrong), (Json{{"ok", false}, {"error", "wrong_password"}}));
    if (i == 2) killDaemon();
  }
  killDaemon();
  EXPECT_EQ(sendAs(kAccount, {{"cmd", "unlock"}, {"password", "open sesame"}}),
            (Json{{"ok", false}, {"error", "locked"}}));
}

TEST_F(SettingsSystemTest, ChangeTheMac) {
  const std::string token = unlock();
  const auto set = [&](Json request) {
    request["unlockToken"] = token;
    return sendAs(kAccount, request);
  };
  EXPECT_EQ(set({{"cmd", "power.set"}, {"screenOffMinutes", 7}, {"sleepMinutes", 0}})["ok"], true);
  EXPECT_EQ(mac.readJson("/private/var/simulated/power.json")["settings"]["displaysleep"], 7);
  EXPECT_EQ(set({{"cmd", "net.set"},
                 {"adapter", "en0"},
                 {"mode", "static"},
                 {"ip", "192.0.2.7"},
                 {"prefix", 24}}),
            (Json{{"ok", true}}));
  EXPECT_EQ(set({{"cmd", "proxy.set"}, {"mode", "manual"}, {"server", "proxy:8080"}}),
            (Json{{"ok", true}}));
  const std::string preferences =
      mac.read("/Library/Preferences/SystemConfiguration/preferences.plist");
  EXPECT_NE(preferences.find("<string>192.0.2.7</string>"), std::string::npos);
  EXPECT_NE(preferences.find("<string>proxy</string>"), std::string::npos);
  EXPECT_EQ(set({{"cmd", "time.zone"}, {"zone", "Europe/Berlin"}}), (Json{{"ok", true}}));
  EXPECT_EQ(set({{"cmd", "time.sync"}})["ok"], true);
  EXPECT_EQ(set({{"cmd", "time.get"}})["lastSync"]["ok"], true);
  EXPECT_EQ(set({{"cmd", "maintenance"}}), (Json{{"ok", true}}));
  EXPECT_EQ(set({{"cmd", "time.get"}}), _notUnlocked);
}

}  // namespace
