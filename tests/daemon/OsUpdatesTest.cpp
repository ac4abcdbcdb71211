// The driver of the software update tool: what an operation does, and what the driver then shows.
#include <fcntl.h>
#include <unistd.h>

#include <array>
#include <string>

#include "platform/Clock.h"
#include "tests/daemon/SoftwareUpdateTest.h"

namespace {

using OsUpdates = SoftwareUpdateTest;
using Log = std::vector<LogLine>;

constexpr char kLists[] = "[-l] 0 bytes";
constexpr char kInstalls[] = "[-i] [-a] [--agree-to-license] 0 bytes";

const Json kSafari = {{"id", "Safari17.5-17.5"},
                      {"title", "Safari 17.5"},
                      {"sizeBytes", 1'228'800},
                      {"restartRequired", false}};
const Json kSystem = {{"id", "macOS 14.7"},
                      {"title", "macOS 14.7"},
                      {"sizeBytes", 2'147'483'648},
                      {"restartRequired", true}};

/// An idle driver's status with these changes.
Json Status(const Json& changes = Json::object()) {
  Json status = {{"ok", true},
                 {"checking", false},
                 {"installing", false},
                 {"progress", 0},
                 {"restartRequired", false},
                 {"lastChecked", nullptr},
                 {"updates", Json::array()},
                 {"error", nullptr}};
  status.update(changes);
  return status;
}

Json Failure(const Json& error, int pending = 0) {
  return {{"result", "failed"}, {"pending", pending}, {"restartRequired", false}, {"error", error}};
}

Json Installed(bool restart) {
  return {{"result", "ok"}, {"pending", 0}, {"restartRequired", restart}};
}

TEST_F(OsUpdates, AreUnknownAtFirst) {
  EXPECT_FALSE(updates->busy());
  EXPECT_EQ(updates->status(), Status());
  EXPECT_TRUE(runs().empty());
}

TEST_F(OsUpdates, AreListed) {
  offer(kTwoUpdates);
  EXPECT_EQ(check(), (Json{{"result", "ok"}, {"pending", 2}}));
  Json status = updates->status();
  EXPECT_TRUE(status["lastChecked"].is_string());
  status["lastChecked"] = nullptr;
  EXPECT_EQ(status, Status({{"updates", {kSafari, kSystem}}}));
  EXPECT_EQ(runs(), Lines{kLists});
  EXPECT_EQ(mac.log(), (Log{{"Default", "OS updates: 2 pending"}}));
}

TEST_F(OsUpdates, TellWhenTheyWereLastListed) {
  const auto textOfNow = [] {
    const auto now = static_cast<time_t>(platform::ClockSecondsSince1970());
    tm parts = {};
    std::array<char, 32> text{};
    strftime(text.data(), text.size(), "%Y-%m-%dT%H:%M:%SZ", gmtime_r(&now, &parts));
    return std::string(text.data());
  };
  const std::string before = textOfNow();
  check();
  const std::string at = updates->status()["lastChecked"];
  EXPECT_EQ(at.size(), before.size());
  EXPECT_GE(at, before);
  EXPECT_LE(at, textOfNow());
}

TEST_F(OsUpdates, MayBeNone) {
  offer("No new software available.");
  EXPECT_EQ(check(), (Json{{"result", "ok"}, {"pending", 0}}));
  EXPECT_EQ(mac.log(), (Log{{"Default", "OS updates: 0 pending"}}));
  EXPECT_EQ(updates->status()["error"], nullptr);
}

TEST_F(OsUpdates, MayBeNoneToInstall) {
  offer("No new software available.");
  EXPECT_EQ(install(), (Json{{"result", "nothing"}, {"pending", 0}, {"restartRequired", false}}));
  EXPECT_EQ(runs(), Lines{kLists}) << "the install tool is never started";
  EXPECT_EQ(mac.log(), (Log{{"Default", "OS updates: 0 pending"}}));
}

TEST_F(OsUpdates, ReplaceThoseOfTheLastList) {
  offer(kTwoUpdates);
  check();
  offer(kOneUpdate);
  check();
  EXPECT_EQ(updates->status()["updates"], Json::array({kSafari}));
  whenListing({});
  check();
  EXPECT_EQ(updates->status()["updates"], Json::array());
}

TEST_F(OsUpdates, AreLeftAsTheyAreByAListThatFails) {
  offer(kTwoUpdates);
  check();
  const Json before = updates->status();
  whenListing({say(kOneUpdate), complain("The scan failed.\n"), exit(1)});
  EXPECT_EQ(check(), (Json{{"result", "failed"}, {"error", "The scan failed."}}));
  Json expected = before;
  expected["error"] = "The scan failed.";
  EXPECT_EQ(updates->status(), expected);
  EXPECT_EQ(mac.log().back().level, "Error");
  EXPECT_EQ(mac.log().back().text.find("softwareupdate -l exited 1: * Label: Safari17.5-17.5\\n"),
            0U);
}

TEST_F(OsUpdates, AreInstalled) {
  offer(kOneUpdate);
  whenInstalling({say("Done.\n")});
  EXPECT_EQ(install(), Installed(false));
  EXPECT_EQ(runs(), (Lines{kLists, kInstalls}));
  EXPECT_EQ(mac.log(), (Log{{"Default", "OS updates: 1 pending"},
                            {"Default", "installing 1 OS update(s)"},
                            {"Default", "OS updates installed"}}));
  Json status = updates->status();
  EXPECT_TRUE(status["lastChecked"].is_string());
  status["lastChecked"] = nullptr;
  EXPECT_EQ(status, Status());
}

TEST_F(OsUpdates, NeedTheRestartThatTheListSpeaksOf) {
  offer(kTwoUpdates);
  whenInstalling({say("Done.")});
  EXPECT_EQ(install(), Installed(true));
  EXPECT_EQ(updates->status()["restartRequired"], true);
  EXPECT_EQ(mac.countLog("OS updates installed; a restart is required"), 1U);
}

TEST_F(OsUpdates, NeedTheRestartThatTheOutputSpeaksOf) {
  for (const char* text : {"Please Restart now.", "RESTARTING", "unrestarted"}) {
    offer(kOneUpdate);
    whenInstalling({say("Done.\n"), complain(text)});
    EXPECT_EQ(install(), Installed(true)) << text;
  }
}

TEST_F(OsUpdates, NeedARestartOnceAndForAll) {
  offer(kTwoUpdates);
  install();
  offer(kOneUpdate);
  EXPECT_EQ(install(), Installed(false));
  EXPECT_EQ(updates->status()["restartRequired"], true);
  whenListing({exit(1)});
  check();
  install();
  EXPECT_EQ(updates->status()["restartRequired"], true);
}

TEST_F(OsUpdates, AreNotInstalledWhenTheListFails) {
  whenListing({say("Scanning\n"), complain("No network.\n"), exit(3)});
  EXPECT_EQ(install(), Failure("No network."));
  EXPECT_EQ(runs(), Lines{kLists});
  EXPECT_EQ(updates->status(), Status({{"error", "No network."}}));
  EXPECT_EQ(mac.log(), (Log{{"Error", "softwareupdate -l exited 3: Scanning\\nNo network."}}));
}

TEST_F(OsUpdates, StayPendingWhenTheirInstallFails) {
  offer(kTwoUpdates);
  whenInstalling({say("Downloading: 50%\nYou must restart.\n"), complain("No space.\n"), exit(9)});
  EXPECT_EQ(install(), Failure("No space.", 2));
  EXPECT_EQ(mac.countErrors(
                "softwareupdate -i -a exited 9: Downloading: 50%\\nYou must restart.\\nNo space."),
            1U);
  Json status = updates->status();
  status["lastChecked"] = nullptr;
  EXPECT_EQ(status, Status({{"updates", {kSafari, kSystem}}, {"error", "No space."}}));
}

TEST_F(OsUpdates, FailWithACodeWhenThereIsNothingToSay) {
  offer(kOneUpdate);
  whenInstalling({say(" \n\t\n"), exit(1)});
  EXPECT_EQ(install(), Failure("failed", 1));
  EXPECT_EQ(mac.countErrors("softwareupdate -i -a exited 1: "), 1U);
  whenListing({exit(1)});
  EXPECT_EQ(check(), (Json{{"result", "failed"}, {"error", "failed"}}));
  EXPECT_EQ(install(), Failure("failed"));
  EXPECT_EQ(mac.countErrors("softwareupdate -l exited 1: "), 2U);
}

TEST_F(OsUpdates, AskForAPasswordWithACode) {
  offer(kOneUpdate);
  whenInstalling({say("Downloading.\n"), say("PASSWORD:"), say("\nNo tty.\n"), exit(1)});
  EXPECT_EQ(install(), Failure("authorization_required", 1));
  EXPECT_EQ(updates->status()["error"], "authorization_required");
  whenListing({complain("Enter your Password.\nBye."), exit(1)});
  EXPECT_EQ(check()["error"], "authorization_required");
}

TEST_F(OsUpdates, CutALongReasonOfAFailure) {
  whenListing({say("first\n" + std::string(300, 'x') + "\n"), exit(1)});
  EXPECT_EQ(check()["error"], std::string(200, 'x'));
}

TEST_F(OsUpdates, MakeNothingOfOutputThatIsNotUtf8) {
  offer(kOneUpdate);
  whenInstalling({say("You must restart.\n"), say("\xFF\n"), exit(4)});
  EXPECT_EQ(install(), Failure("failed", 1));
  EXPECT_EQ(mac.countErrors("softwareupdate -i -a exited 4: "), 1U);
  whenInstalling({say("You must restart.\n"), say("\xFF\n")});
  EXPECT_EQ(install(), Installed(false));
  whenListing({say(kOneUpdate), say("\xFF")});
  EXPECT_EQ(check(), (Json{{"result", "ok"}, {"pending", 0}}));
  whenListing({say("broken \xFF"), exit(1)});
  EXPECT_EQ(check()["error"], "failed");
}

TEST_F(OsUpdates, PutCharactersTogetherThatArriveInTwoPieces) {
  offer(kOneUpdate);
  whenInstalling({say("You must restart \xC3"), say("\xA9\n")});
  EXPECT_EQ(install(), Installed(true));
}

TEST_F(OsUpdates, FailByTheSignalThatEndedTheTool) {
  offer(kOneUpdate);
  whenInstalling({say("last words"), "die 9"});
  EXPECT_EQ(install(), Failure("last words", 1));
  EXPECT_EQ(mac.countErrors("softwareupdate -i -a exited 9: last words"), 1U);
  whenListing({"die 15"});
  EXPECT_EQ(check(), (Json{{"result", "failed"}, {"error", "failed"}}));
  EXPECT_EQ(mac.countErrors("softwareupdate -l exited 15: "), 1U);
}

TEST_F(OsUpdates, CannotBeListedWithoutTheTool) {
  mac.remove(kTool);
  EXPECT_EQ(check(), (Json{{"result", "failed"}, {"error", "failed"}}));
  EXPECT_EQ(install(), Failure("failed"));
  EXPECT_EQ(mac.countErrors("softwareupdate did not start: No such file or directory"), 2U);
  EXPECT_EQ(mac.countErrors("softwareupdate -l exited -1: "), 2U);
  EXPECT_EQ(updates->status(), Status({{"error", "failed"}}));
}

TEST_F(OsUpdates, CannotBeInstalledWithoutTheTool) {
  whenListing({say(kTwoUpdates), "remove " + std::string(kTool)});
  EXPECT_EQ(install(), Failure("failed", 2));
  EXPECT_EQ(mac.countErrors("softwareupdate did not start: No such file or directory"), 1U);
  EXPECT_EQ(mac.countErrors("softwareupdate -i -a exited -1: "), 1U);
  EXPECT_EQ(updates->status()["error"], "failed");
  EXPECT_EQ(updates->status()["updates"].size(), 2U);
}

TEST_F(OsUpdates, GetNothingToReadFromTheDaemonsStandardInput) {
  std::array<int, 2> ends{};
  ASSERT_EQ(pipe2(ends.data(), O_CLOEXEC), 0);
  ASSERT_EQ(write(ends[1], "yes\n", 4), 4);
  close(ends[1]);
  const int kept = fcntl(STDIN_FILENO, F_DUPFD_CLOEXEC, 3);
  dup2(ends[0], STDIN_FILENO);
  offer(kOneUpdate);
  install();
  EXPECT_EQ(runs(), (Lines{kLists, kInstalls}));
  dup2(kept, STDIN_FILENO);
  close(kept);
  close(ends[0]);
}

TEST_F(OsUpdates, TakeOutputOfAnyLength) {
  const std::string line = std::string(3000, 'x') + "\n";
  offer(kOneUpdate);
  Lines steps(100, say(line));
  steps.front() = say("Restart, please.\n");
  whenInstalling(steps);
  EXPECT_EQ(install(), Installed(true));
  offer(kOneUpdate);
  steps.insert(steps.end(), {say("The last line."), exit(1)});
  whenInstalling(steps);
  EXPECT_EQ(install()["error"], "The last line.");
}

TEST_F(OsUpdates, ForgetAnErrorWhenTheNextOperationIsClaimed) {
  whenListing({exit(1)});
  check();
  ASSERT_EQ(updates->status()["error"], "failed");
  offer(kOneUpdate);
  whenInstalling({gate("install")});
  ASSERT_TRUE(updates->install());
  EXPECT_EQ(updates->status()["error"], nullptr);
  passGate("install");
  settle();
  EXPECT_EQ(updates->status()["error"], nullptr);
}

TEST_F(OsUpdates, FindAWordThatArrivesInTwoPieces) {
  offer(kOneUpdate);
  whenInstalling({say("Pass"), say("word:"), exit(1)});
  EXPECT_EQ(install()["error"], "authorization_required");
}

TEST_F(OsUpdates, ShowWhichOperationIsUnderWay) {
  whenListing({say(kOneUpdate), gate("check")});
  ASSERT_TRUE(updates->check());
  EXPECT_TRUE(updates->busy());
  EXPECT_EQ(updates->status(), Status({{"checking", true}}));
  passGate("check");
  settle();
  whenListing({say(kOneUpdate), gate("list")});
  whenInstalling({gate("install")});
  const Json lastChecked = updates->status()["lastChecked"];
  ASSERT_TRUE(updates->install());
  EXPECT_EQ(updates->status(),
            Status({{"installing", true}, {"updates", {kSafari}}, {"lastChecked", lastChecked}}));
  passGate("list");
  {
    const KioskDescriptor held = holdGate("install");
    EXPECT_TRUE(updates->busy());
    EXPECT_EQ(updates->status()["installing"], true);
    EXPECT_EQ(updates->status()["checking"], false);
    EXPECT_EQ(updates->status()["updates"], Json::array({kSafari})) << "not installed yet";
  }
  settle();
  EXPECT_EQ(updates->status()["updates"], Json::array());
}

TEST_F(OsUpdates, ShowWhatTheListOfAnInstallFound) {
  offer(kTwoUpdates);
  whenInstalling({gate("install"), exit(1)});
  ASSERT_TRUE(updates->install());
  {
    const KioskDescriptor held = holdGate("install");
    const Json status = updates->status();
    EXPECT_EQ(status["updates"], Json::array({kSafari, kSystem}));
    EXPECT_TRUE(status["lastChecked"].is_string());
    EXPECT_EQ(status["restartRequired"], false) << "before anything is installed";
  }
  settle();
}

TEST_F(OsUpdates, NeedNobodyWhoWaitsForTheResult) {
  offer(kOneUpdate);
  ASSERT_TRUE(updates->check());
  settle();
  ASSERT_TRUE(updates->install());
  settle();
  whenListing({exit(1)});
  ASSERT_TRUE(updates->check());
  settle();
  ASSERT_TRUE(updates->install());
  settle();
  EXPECT_EQ(runs(), (Lines{kLists, kLists, kInstalls, kLists, kLists}));
}

}  // namespace
