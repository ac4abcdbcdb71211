#include <signal.h>
#include <unistd.h>

#include <chrono>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <thread>

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

  std::string log() const {
    std::ifstream file(logPath());
    return {std::istreambuf_iterator<char>(file), std::istreambuf_iterator<char>()};
  }

  /// Waits until the log ends in a whole line that was not there before and returns that line.
  Json nextLine(const std::string& before = "") const {
    const auto giveUp = std::chrono::steady_clock::now() + std::chrono::seconds(60);
    std::string text = log();
    while ((text.size() <= before.size() || text.back() != '\n') &&
           std::chrono::steady_clock::now() < giveUp) {
      std::this_thread::sleep_for(std::chrono::milliseconds(5));
      text = log();
    }
    EXPECT_EQ(text.substr(0, before.size()), before);
    return Json::parse(text.substr(before.size()), nullptr, false);
  }

  static ChildResult terminate(Child& child) {
    child.signal(SIGTERM);
    return child.wait();
  }

 private:
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
  EXPECT_THAT(requests(), ElementsAre(R"({"cmd":"status"})"));
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
  while (requests().empty()) std::this_thread::sleep_for(std::chrono::milliseconds(5));
  EXPECT_EQ(terminate(child).status, 0);
  EXPECT_FALSE(std::filesystem::exists(logPath()));
}

TEST_F(KioskApp, WritesToStandardErrorWhereItHasNoLog) {
  script({Closes()});
  ChildSetup blocked = setup();
  blocked.environment["HOME"] = "/dev/null";
  Child child(blocked);
  const std::string line = R"({"arguments":["--kiosk-shell"],"session":)" +
                           std::to_string(getsid(0)) + R"(,"status":null,"uid":)" +
                           std::to_string(getuid()) + "}\n";
  const auto giveUp = std::chrono::steady_clock::now() + std::chrono::seconds(60);
  while (child.errorsSoFar() != line && std::chrono::steady_clock::now() < giveUp) {
    std::this_thread::sleep_for(std::chrono::milliseconds(5));
  }
  const ChildResult result = terminate(child);
  EXPECT_EQ(result.status, 0);
  EXPECT_EQ(result.errors, line);
}

}  // namespace
