// A daemon at work is killed at random instants, again and again; the next one makes up for it.
// KIOSKD_KILLS says how often (30 times), KIOSKD_SEED begins another sequence of instants.
#include <sys/stat.h>

#include <algorithm>
#include <array>
#include <chrono>
#include <csignal>
#include <cstdlib>
#include <filesystem>
#include <random>
#include <thread>

#include "platform/PropertyList.h"
#include "platform/simulated/MacFiles.h"
#include "tests/daemon/EncodedPassword.h"
#include "tests/system/EnrolledTest.h"

namespace {

using std::chrono::microseconds;

constexpr int kFewKills = 30;
constexpr unsigned kSeed = 20261121;
constexpr microseconds kLongestWork{300'000};
constexpr char kBoot[] = "/private/var/simulated/boot.json";
constexpr char kLoginWindow[] = "/Library/Preferences/com.apple.loginwindow.plist";
constexpr char kAccountRecord[] = "/private/var/db/dslocal/nodes/Default/users/BrindlexKiosk.plist";
constexpr char kBranding[] = "/Library/Application Support/Brindlex/Kiosk/Branding/branding.json";
constexpr char kTemporary[] = ".tmp.";
constexpr std::array<const char*, 4> kFolders{kStateDir, "/Library/LaunchAgents", "/private/etc",
                                              "/Users/BrindlexKiosk"};

unsigned Setting(const char* name, unsigned otherwise) {
  const char* text = std::getenv(name);
  return text == nullptr ? otherwise : static_cast<unsigned>(std::strtoul(text, nullptr, 10));
}

std::string Text(const Json& record, const char* key) {
  return record.is_object() ? record.value(key, "") : "";
}

// A user record's attribute.
std::string First(const Json& record, const char* key) {
  if (!record.is_object() || !record.contains(key) || record[key].empty()) return "";
  return record[key][0];
}

class BusyDaemonTest : public EnrolledTest {
 protected:
  BusyDaemonTest() : random(Setting("KIOSKD_SEED", kSeed)) {
    token = mac.state()["token"];
    brand();
  }

  unsigned below(unsigned limit) { return static_cast<unsigned>(random() % limit); }

  Json propertyList(const std::string& path) const {
    return platform::PropertyListParse(mac.read(path)).value_or(Json());
  }

  // Cheaper than asking simmac.
  pid_t runningDaemon() const {
    const Json boot = mac.readJson(kBoot);
    if (!boot.is_object() || !boot.contains("daemons")) return -1;
    return boot["daemons"].value("com.brindlex.stream.kioskd", -1);
  }

  void brand() {
    name = "Brindlex " + std::to_string(below(1'000'000));
    portal.admin({"branding", "-", "--display-name", name});
  }

  // Something for the next check-in, or the next start, to do.
  void disturb() {
    switch (below(5)) {
      case 0:
        return brand();
      case 1:
        portal.admin(
            {"power", "-", "--source", "device",
             R"({"sleepMinutes": 0, "screenOffMinutes": )" + std::to_string(below(60)) + "}"});
        return;
      case 2:
        portal.admin({"updates", "-", "--automatic", "off", "--start",
                      "0" + std::to_string(below(10)) + ":00"});
        return;
      case 3:
        portal.admin({"rename", "-", "Lobby " + std::to_string(below(1000))});
        return;
      default:
        run({"/usr/sbin/sysadminctl", "-deleteUser", kKioskUser});
        kill();  // the next start finds it gone, and its check-in makes a new one
    }
  }

  // Kills the daemon, and waits until another one serves.
  void kill() {
    const pid_t former = runningDaemon();
    ASSERT_GT(former, 1) << timeline();
    ASSERT_EQ(::kill(former, SIGKILL), 0);
    ++kills;
    killed.push_back(former);
    ASSERT_TRUE(Eventually([&] {
      const pid_t now = runningDaemon();
      return now > 1 && now != former;
    })) << timeline();
  }

  // Commands that save, provision and check in, until told to stop.
  void work(const std::stop_token& stop) const {
    while (!stop.stop_requested()) {
      static_cast<void>(ask({{"cmd", "maintenance"}, {"password", "wrong"}}));
      static_cast<void>(ask({{"cmd", "pair.check"}, {"code", ""}}));
    }
  }

  void killAtWork() {
    std::jthread working([this](const std::stop_token& stop) { work(stop); });
    std::this_thread::sleep_for(microseconds(below(kLongestWork.count())));
    kill();
  }

  void expectWholeState() const {
    const Json state = mac.state();
    ASSERT_TRUE(state.is_object()) << mac.read(kStateFile);
    EXPECT_EQ(Text(state, "token"), token);
    EXPECT_EQ(Text(state, "authBaseUrl"), portal.url());
    EXPECT_EQ(mac.modeAndOwner(kStateFile), "0600 0:0");
  }

  // The account was made, and the daemon killed before it could put that on record, or the tool
  // with it in the middle: it belongs to nobody known then and is not taken over. An administrator
  // deletes it.
  void deleteAccountOnNobodysRecord() {
    const Json state = mac.state();
    if (!Text(state, "generatedUID").empty() || !mac.exists(kAccountRecord)) return;
    const std::string error = Text(state, "lastError");
    if (error != "account_exists" && error != "account_create_failed") return;
    ++orphans;
    EXPECT_EQ(state["provisioned"], false);
    EXPECT_EQ(Text(propertyList(kLoginWindow), "autoLoginUser"), "");
    run({"/usr/sbin/sysadminctl", "-deleteUser", kKioskUser});
    static_cast<void>(ask({{"cmd", "pair.check"}, {"code", ""}}));
  }

  // What does not fit together; empty when all does.
  std::string discrepancy() const {
    const Json state = mac.state();
    const Json record = propertyList(kAccountRecord);
    const std::string password = Text(state, "password");
    const std::string uid = Text(state, "generatedUID");
    if (!state.is_object() || state.value("provisioned", false) != true) return "not provisioned";
    if (state.contains("lastError")) return "an error is left";
    if (uid.empty() || First(record, "generateduid") != uid) return "another account";
    if (!platform::MacPasswordMatches(password, First(record, "password_hash"))) {
      return "another password";
    }
    if (Text(propertyList(kLoginWindow), "autoLoginUser") != kKioskUser) return "no auto-login";
    if (mac.read(kPasswordFile) != EncodedPassword(password))
      return "auto-login with another password";
    if (mac.modeAndOwner(kPasswordFile) != "0600 0:0") return "a password for everybody";
    if (Text(propertyList(kLaunchAgent), "Label") != "com.brindlex.stream.kiosk") return "no agent";
    if (mac.modeAndOwner(kLaunchAgent) != "0644 0:0") return "an agent that is not root's";
    if (Text(mac.readJson(kBranding), "displayName") != name) return "another branding";
    return "";
  }

  void expectConsistency() {
    ASSERT_TRUE(Eventually([this] {
      deleteAccountOnNobodysRecord();
      return discrepancy().empty() && ask({{"cmd", "status"}})["provisioned"] == true;
    })) << discrepancy()
        << mac.state() << timeline()
        << mac.read("/private/var/log/com.brindlex.stream.kioskd.stderr.log");
    expectOnlyLeftovers();
  }

  // What is written in the folders, or was when its writer was killed.
  std::vector<pid_t> writers() const {
    std::vector<pid_t> found;
    for (const char* folder : kFolders) {
      for (const std::string& entry : mac.list(folder)) {
        const std::size_t at = entry.find(kTemporary);
        if (at != entry.npos)
          found.push_back(std::atoi(entry.c_str() + at + sizeof kTemporary - 1));
      }
    }
    return found;
  }

  // A killed daemon's files stay under the names that it had for them until they were whole.
  void expectOnlyLeftovers() const {
    EXPECT_TRUE(Eventually([this] {
      return std::ranges::all_of(writers(), [this](pid_t writer) {
        return std::ranges::find(killed, writer) != killed.end();
      });
    })) << testing::PrintToString(writers());
  }

  std::mt19937 random;
  std::string token;
  std::string name;
  std::vector<pid_t> killed;
  unsigned kills = 0;
  unsigned orphans = 0;
};

TEST_F(BusyDaemonTest, LosesNothingWhenKilledAtRandomInstants) {
  const unsigned wanted = Setting("KIOSKD_KILLS", kFewKills);
  while (kills < wanted && !HasFailure()) {
    SCOPED_TRACE("kill " + std::to_string(kills));
    disturb();
    killAtWork();
    expectWholeState();
    expectConsistency();
  }
  RecordProperty("kills", std::to_string(kills));
  RecordProperty("accountsOnNobodysRecord", std::to_string(orphans));
  RecordProperty("leftovers", std::to_string(writers().size()));
}

}  // namespace
