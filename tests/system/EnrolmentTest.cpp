// A terminal's life, from pairing to revocation, with every program real.
#include <filesystem>

#include "platform/PropertyList.h"
#include "tests/system/SystemTest.h"

namespace {

using namespace std::string_literals;

class EnrolmentTest : public SystemTest {
 protected:
  void SetUp() override { boot(); }

  Json lastSession() const {
    const std::string text = mac.read("/Users/BrindlexKiosk/Library/Logs/kiosk-app.jsonl");
    const std::size_t end = text.find_last_not_of('\n');
    if (end == std::string::npos) return {};
    const std::size_t start = text.find_last_of('\n', end);
    return Json::parse(text.substr(start == std::string::npos ? 0 : start + 1), nullptr, false);
  }

  bool sessionIsOpen() const {
    const Json status = machineStatus();
    return status.contains("sessions") && !status["sessions"].empty();
  }

  void expectTornDown() const {
    EXPECT_TRUE(Eventually([this] { return !mac.state().contains("token"); }));
    EXPECT_TRUE(Eventually([this] { return !kioskAccountExists(); }));
    EXPECT_EQ(mac.state(), (Json{{"authBaseUrl", portal.url()}}));
    EXPECT_FALSE(mac.exists(kLaunchAgent));
    EXPECT_FALSE(mac.exists(kPasswordFile));
    EXPECT_FALSE(mac.exists("/Users/BrindlexKiosk"));
    EXPECT_FALSE(sessionIsOpen());
    // It is published behind the state.
    EXPECT_TRUE(Eventually([this] { return ask({{"cmd", "status"}})["enrolled"] == 0; }));
  }

  // The check-in that a start makes at once tells the daemon what the portal has decided.
  void checkInNow() const { killDaemon(); }
};

TEST_F(EnrolmentTest, RestartsIntoTheKioskAndIsTornDownWhenRevoked) {
  enrol("Lobby");
  EXPECT_EQ(mac.modeAndOwner(kStateFile), "0600 0:0");
  EXPECT_EQ(mac.modeAndOwner(kStateDir), "0711 0:0");
  EXPECT_EQ(mac.modeAndOwner(kLaunchAgent), "0644 0:0");
  EXPECT_EQ(mac.modeAndOwner(kPasswordFile), "0600 0:0");
  EXPECT_EQ(mac.state()["terminalName"], "Lobby");

  mac.clearFaults();
  EXPECT_EQ(ask({{"cmd", "restart.now"}}), (Json{{"ok", true}}));
  ASSERT_TRUE(Eventually([this] { return lastSession().is_object(); })) << timeline();
  const Json session = lastSession();
  EXPECT_EQ(session["arguments"].back(), "--kiosk-shell");
  EXPECT_EQ(session["status"]["kioskSession"], 1);
  EXPECT_EQ(session["status"].contains("uid"), false);
  EXPECT_EQ(ask({{"cmd", "status"}})["kioskSession"], 0) << "root is not the kiosk session";
  const std::string user = std::to_string(session["uid"].get<int>());
  EXPECT_EQ(run({kKioskctl, "--json", "restart"}, user).output,
            "{\"error\":\"not_permitted\",\"ok\":false}\n");

  portal.admin({"revoke", "Lobby"});
  checkInNow();
  expectTornDown();
  EXPECT_EQ(mac.countLog("tearing down (the portal revoked this device)"), 1U);
  EXPECT_EQ(machineStatus()["bootCount"], 2) << "one restart";
}

TEST_F(EnrolmentTest, CanBePairedAgainAfterRevocation) {
  enrol("First");
  portal.admin({"revoke", "First"});
  checkInNow();
  expectTornDown();
  enrol("Second");
  EXPECT_EQ(mac.state()["terminalName"], "Second");
  EXPECT_TRUE(kioskAccountExists());
}

TEST_F(EnrolmentTest, WaitsADayWhenThePortalHasForgottenIt) {
  enrol("Lobby");
  portal.admin({"forget", "Lobby"});
  checkInNow();
  EXPECT_TRUE(Eventually([this] { return mac.state().contains("tokenUnknownSince"); }));
  EXPECT_TRUE(Eventually([this] {  // it is written behind the state
    return mac.countErrors(
               "check-in: Keyward does not know this device's token; tearing down if "
               "that lasts 24 h") == 1;
  }));
  EXPECT_TRUE(kioskAccountExists());

  Json state = mac.state();
  state["tokenUnknownSince"] = state["tokenUnknownSince"].get<double>() - 86'500;
  halt();
  mac.writeState(state);
  // The session is there before the daemon hears of it, lest it is opened in the middle.
  portal.admin({"misbehave", "refuse"});
  boot();
  ASSERT_TRUE(Eventually([this] { return sessionIsOpen(); })) << timeline();
  portal.admin({"misbehave", "none"});
  checkInNow();
  expectTornDown();
}

TEST_F(EnrolmentTest, DoesNotOpenASessionWithAWrongPasswordFile) {
  enrol("Lobby");
  halt();
  std::string encoded = mac.read(kPasswordFile);
  encoded[0] = static_cast<char>(encoded[0] ^ 1);
  mac.write(kPasswordFile, encoded, 0600);
  boot();
  ASSERT_TRUE(Eventually([this] {
    return timeline().find("the stored password does not match") != std::string::npos;
  })) << timeline();
  EXPECT_FALSE(sessionIsOpen());
}

TEST_F(EnrolmentTest, SurvivesMisbehavioursOfThePortal) {
  enrol("Lobby");
  const Json before = mac.state();
  for (const char* mode : {"cut", "garbage", "html500", "status", "wrongCertificate", "refuse"}) {
    std::vector<std::string> command = {"misbehave", mode};
    if (mode == "status"s) command.insert(command.end(), {"--status", "503", "--body", "{}"});
    portal.admin(command);
    const std::size_t lines = mac.log().size();
    checkInNow();
    EXPECT_TRUE(Eventually([&] {
      const std::vector<LogLine> log = mac.log();
      for (std::size_t i = lines; i < log.size(); ++i) {
        if (log[i].text.starts_with("check-in: HTTP ") ||
            log[i].text.starts_with("POST /api/kiosk/check-in: not reached (")) {
          return true;
        }
      }
      return false;
    })) << mode;
    EXPECT_EQ(mac.state(), before) << mode;
    EXPECT_EQ(ask({{"cmd", "status"}})["ok"], true) << mode;
  }
  portal.admin({"misbehave", "none"});
  portal.admin({"rename", "Lobby", "Hall"});
  checkInNow();
  EXPECT_TRUE(Eventually([this] { return mac.state()["terminalName"] == "Hall"; }));
}

TEST_F(EnrolmentTest, IsToldThatSomebodyElseFetchedTheToken) {
  const std::string code = ask({{"cmd", "pair.begin"}})["code"];
  portal.admin({"claim", code, "--name", "Lobby"});
  EXPECT_EQ(portal.get("/api/kiosk/pair/" + code), 200);
  EXPECT_EQ(ask({{"cmd", "pair.check"}, {"code", code}}),
            (Json{{"ok", false}, {"error", "claimed"}}));
}

TEST_F(EnrolmentTest, IsToldThatItsCodeExpired) {
  const Json begun = ask({{"cmd", "pair.begin"}});
  const std::string code = begun["code"];
  EXPECT_EQ(ask({{"cmd", "pair.check"}, {"code", code}}), (Json{{"ok", true}, {"paired", false}}));
  portal.admin({"expire", code});
  EXPECT_EQ(ask({{"cmd", "pair.check"}, {"code", code}}),
            (Json{{"ok", false}, {"error", "expired"}}));
  EXPECT_EQ(ask({{"cmd", "pair.check"}, {"code", code}}),
            (Json{{"ok", false}, {"error", "unknown_code"}}));
}

TEST_F(EnrolmentTest, SpeaksWithThePortalAsItsInterfaceIsWrittenDown) {
  enrol("Lobby");
  const std::string id = portal.admin({"show", "Lobby"})["id"];
  portal.admin({"sign-in", id, "--email", "on", "--host", "login.example.org"});
  portal.admin({"exit-password", id}, "secret");
  portal.admin({"power", id, R"({"screenOffMinutes": 5, "sleepMinutes": 0})"});
  checkInNow();
  EXPECT_TRUE(Eventually([this] { return mac.state().contains("exitPassword"); }));
  EXPECT_EQ(mac.state()["signIn"]["extraHosts"], Json::array({"login.example.org"}));
  portal.admin({"revoke", id});
  checkInNow();
  expectTornDown();
  halt();
  portal.stop();
  const Finished checked = RunToEnd({KIOSKD_OPENAPI_CHECK, KIOSKD_PORTAL_API, portal.record()});
  EXPECT_EQ(checked.status, 0) << checked.output;
}

}  // namespace
