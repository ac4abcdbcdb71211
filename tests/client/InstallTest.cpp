#include "simulator/client/InstallDisplay.h"
#include "tests/client/UpdatesRecord.h"

namespace {

using std::chrono::milliseconds;
using testing::ElementsAre;
using testing::EndsWith;
using testing::HasSubstr;
using testing::Not;

constexpr const char* kOk = R"({"ok":true})";

/// The record while an install runs, with these changes.
std::string Installing(double percent, Json changes = Json::object()) {
  changes.update({{"installing", true}, {"progress", percent}});
  return Record(changes);
}

const Json kFound = {{"updates", kTwoUpdates}, {"lastChecked", kSecondCheck}};

class UpdatesInstallVerb : public UpdatesTest {
 protected:
  /// Follows an install that shows these records, the last one that of its end.
  ChildResult install(const std::vector<std::string>& records,
                      const std::string& before = Record({}),
                      const std::vector<std::string>& options = {}) {
    std::vector<ScriptStep> steps = {Replies(before), Replies(kOk)};
    for (const std::string& record : records) steps.push_back(Replies(record));
    script(std::move(steps));
    return follow("install", options);
  }
};

TEST_F(UpdatesInstallVerb, AsksUntilTheInstallHasEndedAndTellsWhatCameOfIt) {
  const ChildResult result =
      install({Installing(0), Installing(12.5, kFound), Installing(80, kFound),
               Record({{"lastChecked", kSecondCheck}, {"restartRequired", true}})});
  EXPECT_EQ(result.status, 0);
  EXPECT_THAT(result.output, testing::StartsWith("Installing: 12 %\n"));
  EXPECT_THAT(result.output, EndsWith("The updates are installed. A restart is required.\n"));
  EXPECT_EQ(result.errors, "");
  EXPECT_THAT(requests(), ElementsAre(kAskRecord, kBeginInstall, kAskRecord, kAskRecord, kAskRecord,
                                      kAskRecord));
}

TEST_F(UpdatesInstallVerb, TellsThatNoRestartIsRequired) {
  EXPECT_THAT(install({Installing(50), Record({{"lastChecked", kSecondCheck}})}).output,
              EndsWith("The updates are installed. No restart is required.\n"));
}

TEST_F(UpdatesInstallVerb, KnowsAnInstallByWhatItListedItself) {
  EXPECT_THAT(install({Installing(0, kFound), Record({{"lastChecked", kSecondCheck}})}).output,
              EndsWith("The updates are installed. No restart is required.\n"));
}

TEST_F(UpdatesInstallVerb, ShowsNoProgressBeforeThereIsSomethingToInstall) {
  EXPECT_EQ(install({Installing(0), Record({{"lastChecked", kSecondCheck}})}).output,
            "No updates are pending.\n");
  EXPECT_EQ(install({Installing(0), Installing(0, kFound), Record({})}).output,
            "Installing: 0 %\nThe updates are installed. No restart is required.\n");
}

TEST_F(UpdatesInstallVerb, KnowsAnInstallByTheRestartThatItNeeds) {
  EXPECT_EQ(install({Record({{"restartRequired", true}})}).output,
            "The updates are installed. A restart is required.\n");
}

TEST_F(UpdatesInstallVerb, SaysWhenNothingWasThereToInstall) {
  const std::string listed = Record({{"updates", kTwoUpdates}});
  EXPECT_EQ(
      install({Installing(0, {{"updates", kTwoUpdates}}), Record({{"lastChecked", kSecondCheck}})},
              listed)
          .output,
      "No updates are pending.\n");
  EXPECT_EQ(install({Record({{"lastChecked", kSecondCheck}})}).output, "No updates are pending.\n");
}

TEST_F(UpdatesInstallVerb, DoesNotTakeAnEarlierRestartForItsOwn) {
  const std::string needed = Record({{"restartRequired", true}});
  EXPECT_EQ(install({needed}, needed).output, "No updates are pending. A restart is required.\n");
}

TEST_F(UpdatesInstallVerb, ClaimsNothingThatItDidNotSee) {
  EXPECT_EQ(install({Record({{"updates", kTwoUpdates}})}).output, "The install has ended.\n");
}

TEST_F(UpdatesInstallVerb, ExplainsAnInstallThatFailed) {
  const std::vector<std::pair<std::string, std::string>> errors = {
      {"authorization_required",
       "The update tool asked for an administrator's password. (authorization_required)"},
      {"failed", "The update tool failed without a reason. (failed)"},
      {"Not \033[1menough disk", "The update tool said: Not ?[1menough disk"}};
  for (const auto& [error, sentence] : errors) {
    for (const std::vector<std::string>& options : {std::vector<std::string>{}, {"--json"}}) {
      const ChildResult result =
          install({Installing(50), Record({{"error", error}})}, Record({}), options);
      EXPECT_EQ(result.status, 1);
      EXPECT_EQ(result.errors, "kioskctl: The install failed. " + sentence + "\n");
      EXPECT_THAT(result.output, Not(HasSubstr("\033")));
    }
  }
}

TEST_F(UpdatesInstallVerb, ExplainsADriverThatIsBusy) {
  script({Replies(Record({{"checking", true}})), Replies(kBusy)});
  const ChildResult result = follow("install");
  EXPECT_EQ(result.status, 1);
  EXPECT_EQ(result.output, "");
  EXPECT_EQ(result.errors,
            "kioskctl: A check or an install of updates is under way already. (busy)\n");
}

TEST_F(UpdatesInstallVerb, OnlyBeginsWhenToldNotToWait) {
  script({Replies(kOk)});
  const ChildResult result = follow("install", {"--no-wait"});
  EXPECT_EQ(result.status, 0);
  EXPECT_EQ(result.output, "The install has begun.\n");
  EXPECT_THAT(requests(), ElementsAre(kBeginInstall));
}

TEST_F(UpdatesInstallVerb, PrintsEveryReplyAndNothingElseWithJson) {
  const ChildResult result = install({Installing(1), Record({})}, Record({}), {"--json"});
  EXPECT_EQ(result.status, 0);
  EXPECT_EQ(result.output,
            Record({}) + "\n" + kOk + "\n" + Installing(1) + "\n" + Record({}) + "\n");
  EXPECT_EQ(result.errors, "");
}

TEST_F(UpdatesInstallVerb, SaysThatItGoesOnWhenTheUnlockHasEnded) {
  for (const std::vector<std::string>& options : {std::vector<std::string>{}, {"--json"}}) {
    keepUnlock();
    const ChildResult result = install({Installing(50), kNotUnlocked}, Record({}), options);
    EXPECT_EQ(result.status, 1);
    EXPECT_THAT(result.output, Not(HasSubstr("installed")));
    EXPECT_EQ(result.errors,
              "kioskctl: The unlock has ended. The install goes on; to see what comes of it, use "
              "kioskctl unlock and then kioskctl updates list. (not_unlocked)\n");
    EXPECT_NE(access(unlockFile().c_str(), F_OK), 0);
  }
}

TEST_F(UpdatesInstallVerb, SaysThatItGoesOnWhenTheKeptUnlockIsGone) {
  script({Replies(Record({})), Replies(kOk), Replies(Installing(50))});
  Child child(setup({"updates", "install", "--interval", "0.05"}));
  EXPECT_TRUE(Eventually([this] { return requests().size() > 3; }));
  EXPECT_EQ(unlink(unlockFile().c_str()), 0);
  const ChildResult result = child.wait();
  EXPECT_EQ(result.status, 1);
  EXPECT_THAT(result.errors, HasSubstr("The unlock has ended. The install goes on;"));
}

TEST_F(UpdatesInstallVerb, GoesOnWithAnUnlockThatWasRenewedMeanwhile) {
  script({Replies(Record({})), Replies(kOk), Replies(Installing(50))});
  const Child child(setup({"updates", "install", "--interval", "0.05"}));
  EXPECT_TRUE(Eventually([this] { return requests().size() > 3; }));
  const std::string fresh = unlockFile() + ".fresh";
  std::ofstream(fresh) << R"({"endsAt":1e15,"unlockToken":"renewed"})";
  ASSERT_EQ(chmod(fresh.c_str(), 0600), 0);
  ASSERT_EQ(rename(fresh.c_str(), unlockFile().c_str()), 0);
  EXPECT_TRUE(Eventually(
      [this] { return requests().back() == R"({"cmd":"os.updates","unlockToken":"renewed"})"; }));
}

TEST_F(UpdatesInstallVerb, SaysThatTheDaemonIsGone) {
  script({Replies(Record({})), Replies(kOk), Replies(Installing(50)), Closes()});
  const ChildResult result = follow("install");
  EXPECT_EQ(result.status, 3);
  EXPECT_EQ(result.output, "Installing: 50 %\n");
  EXPECT_EQ(result.errors,
            "kioskctl: kioskd closed the command channel without an answer.\n"
            "kioskctl: The install can no longer be followed; kioskd or the Mac may be starting "
            "anew.\n");
}

TEST_F(UpdatesInstallVerb, EndsWhenNobodyReadsHowFarItIs) {
  script({Replies(Record({})), Replies(kOk), Replies(Installing(50))});
  ChildSetup started = following("install", {});
  started.arguments = {"/bin/sh", "-c", "exec \"$@\" >/dev/full", "sh"};
  const std::vector<std::string> arguments = following("install", {}).arguments;
  started.arguments.insert(started.arguments.end(), arguments.begin(), arguments.end());
  const ChildResult result = RunChild(started);
  EXPECT_EQ(result.status, 1);
  EXPECT_EQ(result.errors, "kioskctl: Standard output cannot be written to.\n");
}

TEST_F(UpdatesInstallVerb, LeavesAtOnceWhenInterrupted) {
  script({Replies(Record({})), Replies(kOk), Replies(Installing(50))});
  Child child(setup({"updates", "install", "--interval", "3600"}));
  EXPECT_TRUE(Eventually([this] { return requests().size() == 3; }));
  child.signal(SIGINT);
  const ChildResult result = child.wait();
  EXPECT_EQ(result.status, -1);
  EXPECT_EQ(requests().size(), 3U);
}

class InstallOnATerminal : public UpdatesInstallVerb {
 protected:
  ChildResult show(std::vector<ScriptStep> records, unsigned short columns = 80,
                   const std::string& type = "xterm") {
    records.insert(records.begin(), {Replies(Record({})), Replies(kOk)});
    script(std::move(records));
    ChildSetup started = following("install", {});
    started.environment["TERM"] = type;
    started.terminal = true;
    started.columns = columns;
    return RunChild(started);
  }
};

TEST_F(InstallOnATerminal, DrawsABarInPlace) {
  const ChildResult result =
      show({Replies(Installing(0)), Replies(Installing(0, kFound)), Replies(Installing(50)),
            Replies(Installing(100)), Replies(Record({}))});
  EXPECT_EQ(result.status, 0);
  EXPECT_EQ(result.output, "\r\033[KInstalling [" + std::string(40, '.') +
                               "] 0 %"
                               "\r\033[KInstalling [" +
                               std::string(20, '#') + std::string(20, '.') +
                               "] 50 %"
                               "\r\033[KInstalling [" +
                               std::string(40, '#') +
                               "] 100 %\r\n"
                               "The updates are installed. No restart is required.\r\n");
}

TEST_F(InstallOnATerminal, DrawsAShorterBarWhereThereIsLessRoom) {
  EXPECT_THAT(show({Replies(Installing(50)), Replies(Record({}))}, 30).output,
              HasSubstr("\r\033[KInstalling [#####.....] 50 %\r\n"));
  EXPECT_THAT(show({Replies(Installing(50)), Replies(Record({}))}, 10).output,
              HasSubstr("\r\033[KInstalling [] 50 %\r\n"));
}

TEST_F(InstallOnATerminal, KeepsTheBarWithinItsBounds) {
  EXPECT_THAT(show({Replies(Installing(1e300)), Replies(Record({}))}).output,
              HasSubstr("[" + std::string(40, '#') + "] 100 %\r\n"));
  EXPECT_THAT(show({Replies(Installing(-5, kFound)), Replies(Record({}))}).output,
              HasSubstr("[" + std::string(40, '.') + "] 0 %\r\n"));
}

TEST_F(InstallOnATerminal, EndsTheBarsLineBeforeAnythingElseIsSaid) {
  const ChildResult result = show({Replies(Installing(50)), Closes()});
  EXPECT_EQ(result.status, 3);
  EXPECT_THAT(result.output, EndsWith("] 50 %\r\n"));
}

TEST_F(InstallOnATerminal, WritesPlainLinesToATerminalThatCannotMore) {
  EXPECT_EQ(show({Replies(Installing(50)), Replies(Record({}))}, 80, "dumb").output,
            "Installing: 50 %\r\nThe updates are installed. No restart is required.\r\n");
}

TEST(InstallDisplay, WritesALineWhenThePercentageHasChangedAndSomeTimeHasPassed) {
  testing::internal::CaptureStdout();
  client::Screen screen(false);
  client::InstallDisplay display(screen);
  const std::chrono::steady_clock::time_point start{};
  display.progress(0, start);
  display.progress(5, start + milliseconds(10));    // too early
  display.progress(0, start + milliseconds(1000));  // as before
  display.progress(6, start + milliseconds(1000));
  display.progress(7, start + milliseconds(1249));  // too early
  display.progress(8, start + milliseconds(1250));
  EXPECT_EQ(testing::internal::GetCapturedStdout(),
            "Installing: 0 %\nInstalling: 6 %\nInstalling: 8 %\n");
}

TEST(InstallDisplay, ShowsNothingWhenItShallBeSilent) {
  testing::internal::CaptureStdout();
  client::Screen screen(true);
  client::InstallDisplay(screen).progress(5, {});
  screen.sentence("word");
  EXPECT_EQ(testing::internal::GetCapturedStdout(), "");
}

}  // namespace
