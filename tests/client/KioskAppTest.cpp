#include <signal.h>
#include <unistd.h>

#include <filesystem>
#include <fstream>
#include <iterator>

#include "simulator/client/Reply.h"
#include "tests/client/ChannelTest.h"

namespace {

using client::Json;
using testing::ElementsAre;

class KioskApp : public ChannelTest {
 protected:
  ChildSetup setup(const std::vector<std::string>& arguments = {"--kiosk-shell"}) const {
    ChildSetup setup;
    setup.arguments = {KIOSK_APP_PATH};
    setup.arguments.insert(setup.arguments.end(), arguments.begin(), arguments.end());
    setup.environment = {{"KIOSK_CHANNEL", channel()}, {"HOME", home()}};
    return setup;
  }

  std::string home() const { return _folder.path("home"); }
  std::string logPath() const { return home() + "/Library/Logs/kiosk-app.jsonl"; }
  std::string sessionLogPath() const { return home() + "/Library/Logs/kiosk-app-session.jsonl"; }

  std::string log() const { return contentOf(logPath()); }
  std::string sessionLog() const { return contentOf(sessionLogPath()); }

  /// Waits until the log ends in a whole line that was not there before and returns that line.
  Json nextLine(const std::string& before = "") const { return nextLineOf(logPath(), before); }
  Json nextSessionLine(const std::string& before = "") const {
    return nextLineOf(sessionLogPath(), before);
  }

  /// Tells the application how its session is used.
  void tell(const std::string& occupancy) const {
    const std::string folder = home() + "/Library/Application Support/Brindlex";
    std::filesystem::create_directories(folder);
    std::ofstream(folder + "/session") << occupancy << '\n';
  }
  static ChildResult terminate(Child& child) {
    child.signal(SIGTERM);
    return child.wait();
  }

 private:
  static std::string contentOf(const std::string& path) {
    std::ifstream file(path);
    return {std::istreambuf_iterator<char>(file), std::istreambuf_iterator<char>()};
  }

  static Json nextLineOf(const std::string& path, const std::string& before) {
    std::string text;
    EXPECT_TRUE(Eventually([&] {
      text = contentOf(path);
      return text.size() > before.size() && text.back() == '\n';
    }));
    EXPECT_EQ(text.substr(0, before.size()), before);
    return Json::parse(text.substr(before.size()), nullptr, false);
  }

  TemporaryFolder _folder;
};

TEST_F(KioskApp, RefusesToRunOutsideTheKioskMode) {
  for (const auto& arguments : {std::vector<std::string>{}, std::vector<std::string>{"--other"}}) {
    const ChildResult result = RunChild(setup(arguments));
    EXPECT_EQ(result.status, 2);
    EXPECT_EQ(result.output, "");
    EXPECT_EQ(result.errors,
              "Brindlex: This stand-in has the kiosk mode only; start it with --kiosk-shell.\n");
  }
  EXPECT_FALSE(std::filesystem::exists(home()));
}

TEST_F(KioskApp, RecordsHowItWasStartedAndTheDaemonsStatusOnce) {
  script({Replies(R"({"ok":true,"enrolled":1})")});
  Child child(setup({"--kiosk-shell", "\xC3\xA4\n", "\xFF"}));
  const Json line = nextLine();
  EXPECT_EQ(line, Json({{"arguments", {"--kiosk-shell", "\xC3\xA4\n", "\xEF\xBF\xBD"}},
                        {"uid", getuid()},
                        {"session", getsid(0)},
                        {"status", {{"ok", true}, {"enrolled", 1}}}}));
  const ChildResult result = terminate(child);
  EXPECT_EQ(result.status, 0);
  EXPECT_EQ(result.output, "");
  EXPECT_EQ(result.errors, "");
  EXPECT_EQ(requests().front(), R"({"cmd":"status"})");
  EXPECT_EQ(log(), line.dump() + "\n");
}

TEST_F(KioskApp, AddsALineAtEveryStart) {
  script({Replies(R"({"ok":true})")});
  Child first(setup());
  (void)nextLine();
  terminate(first);
  const std::string before = log();
  Child second(setup());
  EXPECT_EQ(nextLine(before)["status"]["ok"], true);
  EXPECT_EQ(terminate(second).status, 0);
}

TEST_F(KioskApp, WaitsForTheChannelToAppear) {
  Child child(setup());
  script({Replies(R"({"ok":false,"error":"starting"})")});
  EXPECT_EQ(nextLine()["status"]["error"], "starting");
  EXPECT_EQ(terminate(child).status, 0);
}

TEST_F(KioskApp, RecordsNoStatusWhenTheChannelDoesNotAppear) {
  Child child(setup());
  EXPECT_TRUE(nextLine().at("status").is_null());
  EXPECT_EQ(terminate(child).status, 0);
}

TEST_F(KioskApp, RecordsNoStatusWhenTheDaemonGivesNone) {
  script({Closes(), Replies("hello")});
  Child closed(setup());
  EXPECT_TRUE(nextLine().at("status").is_null());
  terminate(closed);
  const std::string before = log();
  Child garbage(setup());
  EXPECT_TRUE(nextLine(before).at("status").is_null());
  terminate(garbage);
}

TEST_F(KioskApp, GoesWhenToldToWhileItStillWaits) {
  script({StaysSilent()});
  Child child(setup());
  EXPECT_TRUE(Eventually([this] { return !requests().empty(); }));
  EXPECT_EQ(terminate(child).status, 0);
  EXPECT_FALSE(std::filesystem::exists(logPath()));
}

TEST_F(KioskApp, WritesToStandardErrorWhereItHasNoLog) {
  script({Closes()});
  ChildSetup blocked = setup();
  blocked.environment["HOME"] = "/dev/null";
  Child child(blocked);
  const std::string expected = R"({"arguments":["--kiosk-shell"],"session":)" +
                               std::to_string(getsid(0)) + R"(,"status":null,"uid":)" +
                               std::to_string(getuid()) + "}\n" +
                               R"({"outcome":"no_answer","report":"idle"})" + "\n";
  EXPECT_TRUE(Eventually([&] { return child.errorsSoFar().size() >= expected.size(); }));
  const ChildResult result = terminate(child);
  EXPECT_EQ(result.status, 0);
  EXPECT_EQ(result.errors, expected);
}

TEST_F(KioskApp, ReportsItsSessionOverTheSameConnection) {
  script({Replies(R"({"ok":true})")});
  Child child(setup());
  EXPECT_EQ(nextSessionLine(), Json({{"report", "idle"}, {"outcome", "ok"}}));
  const std::string before = sessionLog();
  tell("live");
  EXPECT_EQ(nextSessionLine(before), Json({{"report", "live"}, {"outcome", "ok"}}));
  EXPECT_EQ(terminate(child).status, 0);
  EXPECT_THAT(requests(), ElementsAre(R"({"cmd":"status"})",
                                      R"({"cmd":"session.report","live":false,"signedIn":false})",
                                      R"({"cmd":"session.report","live":true,"signedIn":true})"));
  EXPECT_EQ(connections(), 1);
}

TEST_F(KioskApp, ReportsToADaemonThatWasStartedAnew) {
  tell("signed-in");
  script({Replies(R"({"ok":true})")});
  Child child(setup());
  EXPECT_EQ(nextSessionLine()["outcome"], "ok");
  const std::string before = sessionLog();
  script({Replies(R"({"ok":false,"error":"starting"})")});
  EXPECT_EQ(nextSessionLine(before), Json({{"report", "signed-in"}, {"outcome", "starting"}}));
  EXPECT_EQ(terminate(child).status, 0);
}

}  // namespace
