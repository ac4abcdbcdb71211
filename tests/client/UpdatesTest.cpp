#include "tests/client/UpdatesRecord.h"

namespace {

using testing::ElementsAre;
using testing::HasSubstr;
using testing::Not;
using testing::StartsWith;

class UpdatesVerb : public UpdatesTest {};

TEST_F(UpdatesVerb, ListsThePendingUpdatesAndHowTheRestStands) {
  script({Replies(Record({{"updates", kTwoUpdates},
                          {"lastChecked", kSecondCheck},
                          {"policy",
                           {{"automatic", true},
                            {"window", {{"start", "22:00"}, {"end", "03:00"}, {"days", {5, 0}}}}}},
                          {"restartRequired", true}}))});
  const ChildResult result = run({"updates", "list"});
  EXPECT_EQ(result.status, 0);
  EXPECT_EQ(result.output,
            "Update              Size       Restart\n"
            "macOS Sequoia 15.1  7.4 GiB    needed\n"
            "Safari 18.0         142.0 MiB  not needed\n"
            "\n"
            "Pending           2 updates\n"
            "Last checked      2026-10-15 09:00:00 (local time)\n"
            "Under way         nothing\n"
            "Restart required  yes\n"
            "Automatic         on\n"
            "Window            22:00 to 03:00 (local time)\n"
            "Days              Fri Sun\n"
            "Problem           none\n");
  EXPECT_EQ(result.errors, "");
  EXPECT_THAT(requests(), ElementsAre(kAskRecord));
}

TEST_F(UpdatesVerb, TellsWhenTheLastCheckWasInLocalTime) {
  const std::vector<std::pair<std::string, std::string>> dates = {
      {"2026-10-15T20:00:00Z", "2026-10-16 01:30:00 (local time)"},
      {"2026-10-15T20:00:00.5Z", "2026-10-15T20:00:00.5Z"},
      {"2026-10-15T20:00:00Z\033", "2026-10-15T20:00:00Z?"},
      {"", ""}};
  for (const auto& [date, text] : dates) {
    script({Replies(Record({{"lastChecked", date}}))});
    ChildSetup started = setup({"updates", "list"});
    started.environment["TZ"] = "XYZ-5:30";
    EXPECT_THAT(RunChild(started).output, HasSubstr("Last checked      " + text + "\n"));
  }
}

TEST_F(UpdatesVerb, SaysThatAWindowWithoutAnEndLastsAFullDay) {
  for (const std::string time : {"00:00", "05:00"}) {
    const Json window = {{"start", time}, {"end", time}, {"days", {5}}};
    script({Replies(Record({{"policy", {{"automatic", true}, {"window", window}}}}))});
    EXPECT_THAT(run({"updates", "list"}).output,
                HasSubstr("Window            " + time + " to " + time +
                          " (local time, a full day)\nDays              Fri\n"));
  }
}

TEST_F(UpdatesVerb, TellsAnEmptyListFromNoneYet) {
  script({Replies(Record({})), Replies(Record({{"lastChecked", nullptr}}))});
  EXPECT_THAT(run({"updates", "list"}).output, StartsWith("Pending           none\n"));
  EXPECT_THAT(run({"updates", "list"}).output,
              StartsWith("Pending           not known yet\n"
                         "Last checked      not since kioskd started\n"));
}

TEST_F(UpdatesVerb, TellsWhatIsUnderWay) {
  script({Replies(Record({{"checking", true}})),
          Replies(Record({{"installing", true}, {"progress", 42.9}}))});
  EXPECT_THAT(run({"updates", "list"}).output, HasSubstr("Under way         a check\n"));
  EXPECT_THAT(run({"updates", "list"}).output, HasSubstr("Under way         an install, 42 %\n"));
}

TEST_F(UpdatesVerb, ShowsSizesInUnitsThatCanBeRead) {
  const std::vector<std::pair<Json, std::string>> sizes = {{0, "- "},
                                                           {1, "1 B "},
                                                           {1023, "1023 B "},
                                                           {1024, "1.0 KiB "},
                                                           {1048570, "1.0 MiB "},
                                                           {1228800, "1.2 MiB "},
                                                           {3221225472, "3.0 GiB "},
                                                           {1e18, "931322574.6 GiB "},
                                                           {-5, "- "},
                                                           {"big", "- "}};
  for (const auto& [size, text] : sizes) {
    script({Replies(Record({{"updates", {{{"title", "A"}, {"sizeBytes", size}}}}}))});
    EXPECT_THAT(run({"updates", "list"}).output, HasSubstr("\nA       " + text)) << size;
  }
  script({Replies(Record({{"updates", {{{"title", "A"}, {"sizeBytes", 1e308}}}}}))});
  EXPECT_EQ(run({"updates", "list"}).status, 0);
}

TEST_F(UpdatesVerb, ExplainsTheLastError) {
  const std::vector<std::pair<std::string, std::string>> errors = {
      {"authorization_required",
       "The update tool asked for an administrator's password. (authorization_required)"},
      {"failed", "The update tool failed without a reason. (failed)"},
      {"expired", "The update tool said: expired"},
      {"No \033[31mdisk\u0085 space", "The update tool said: No ?[31mdisk? space"}};
  for (const auto& [error, sentence] : errors) {
    script({Replies(Record({{"error", error}}))});
    const ChildResult result = run({"updates", "list"});
    EXPECT_EQ(result.status, 0);
    EXPECT_THAT(result.output, HasSubstr("Problem           " + sentence + "\n"));
  }
}

TEST_F(UpdatesVerb, LetsNoTitleSteerTheTerminal) {
  script({Replies(Record({{"updates", {{{"title", "a\033[2J\nb\x7F"}}}}}))});
  EXPECT_THAT(run({"updates", "list"}).output, HasSubstr("\na?[2J?b?  -     not needed\n"));
}

TEST_F(UpdatesVerb, IsNotUpsetByALongTitle) {
  const std::string title(100000, 'x');
  script({Replies(Record({{"updates", {{{"title", title}}, {{"title", "\u00e4"}}}}}))});
  EXPECT_THAT(run({"updates", "list"}).output,
              HasSubstr(title + "  -     not needed\n\u00e4" + std::string(61, ' ') + "-  "));
}

TEST_F(UpdatesVerb, SurvivesValuesOfTheWrongType) {
  for (const Json& wrong : {Json(7), Json("x"), Json::array({7, Json::object(), Json::array()}),
                            Json::object({{"window", 5}, {"automatic", 1}}), Json()}) {
    Json record = Json::object({{"ok", true}});
    for (const char* const key : {"updates", "lastChecked", "restartRequired", "policy", "error",
                                  "checking", "installing", "progress"}) {
      record[key] = wrong;
    }
    script({Replies(record.dump())});
    const ChildResult result = run({"updates", "list"});
    EXPECT_EQ(result.status, 0);
    EXPECT_THAT(result.output, HasSubstr("Restart required  -\n"
                                         "Automatic         -\n"
                                         "Window            - to -\n"
                                         "Days              -\n"));
  }
  script({Replies(R"({"ok":true})")});
  EXPECT_THAT(run({"updates", "list"}).output, StartsWith("Pending           unknown\n"));
}

TEST_F(UpdatesVerb, PrintsTheRawReplyWithJson) {
  const std::string record = Record({});
  script({Replies(record)});
  EXPECT_EQ(run({"updates", "list", "--json"}).output, record + "\n");
}

TEST_F(UpdatesVerb, NeedsAnUnlock) {
  script({Replies(kNotUnlocked)});
  for (const std::string verb : {"list", "check", "install"}) {
    keepUnlock();
    EXPECT_THAT(run({"updates", verb}).errors, HasSubstr("(not_unlocked)"));
    const ChildResult result = run({"updates", verb});  // the daemon's refusal ended the unlock
    EXPECT_EQ(result.status, 1);
    EXPECT_EQ(result.errors, "kioskctl: Unlock first: kioskctl unlock\n");
  }
  EXPECT_EQ(requests().size(), 3U);
}

class UpdatesCheckVerb : public UpdatesTest {};

TEST_F(UpdatesCheckVerb, AsksUntilTheCheckHasEndedAndListsWhatItFound) {
  const std::string checking = Record({{"checking", true}});
  script({Replies(checking), Replies(checking),
          Replies(Record({{"updates", kTwoUpdates}, {"lastChecked", kSecondCheck}}))});
  const ChildResult result = follow("check");
  EXPECT_EQ(result.status, 0);
  EXPECT_THAT(result.output, StartsWith("Update              Size       Restart\n"));
  EXPECT_THAT(result.output, HasSubstr("Pending           2 updates\n"
                                       "Last checked      2026-10-15 09:00:00 (local time)\n"));
  EXPECT_EQ(result.errors, "");
  EXPECT_THAT(requests(), ElementsAre(kBeginCheck, kAskRecord, kAskRecord));
}

TEST_F(UpdatesCheckVerb, TakesAReplyThatComesAfterTheCheck) {
  script({Replies(Record({}))});
  EXPECT_EQ(follow("check").status, 0);
  EXPECT_THAT(requests(), ElementsAre(kBeginCheck));
}

TEST_F(UpdatesCheckVerb, FailsWhenTheCheckFailedAndSaysOnceWhy) {
  const std::string failed = Record({{"error", "No network"}});
  script({Replies(Record({{"checking", true}})), Replies(failed)});
  const std::string reason = "kioskctl: The check failed. The update tool said: No network\n";
  const ChildResult shown = follow("check");
  EXPECT_EQ(shown.status, 1);
  EXPECT_EQ(shown.output, "");
  EXPECT_EQ(shown.errors, reason);
  const ChildResult raw = follow("check", {"--json"});
  EXPECT_EQ(raw.status, 1);
  EXPECT_EQ(raw.output, failed + "\n");
  EXPECT_EQ(raw.errors, reason);
}

TEST_F(UpdatesCheckVerb, ExplainsADriverThatIsBusy) {
  script({Replies(kBusy)});
  const ChildResult result = follow("check");
  EXPECT_EQ(result.status, 1);
  EXPECT_EQ(result.output, "");
  EXPECT_EQ(result.errors,
            "kioskctl: A check or an install of updates is under way already. (busy)\n");
}

TEST_F(UpdatesCheckVerb, OnlyBeginsWhenToldNotToWait) {
  script({Replies(Record({{"checking", true}}))});
  const ChildResult result = follow("check", {"--no-wait"});
  EXPECT_EQ(result.status, 0);
  EXPECT_EQ(result.output, "The check has begun.\n");
  EXPECT_THAT(requests(), ElementsAre(kBeginCheck));
}

TEST_F(UpdatesCheckVerb, PrintsEveryReplyAndNothingElseWithJson) {
  const std::string checking = Record({{"checking", true}});
  script({Replies(checking), Replies(Record({}))});
  const ChildResult result = follow("check", {"--json"});
  EXPECT_EQ(result.output, checking + "\n" + Record({}) + "\n");
  EXPECT_EQ(result.errors, "");
}

TEST_F(UpdatesCheckVerb, SaysThatItCannotBeFollowedWithoutAnUnlock) {
  script({Replies(Record({{"checking", true}})), Replies(kNotUnlocked)});
  const ChildResult result = follow("check");
  EXPECT_EQ(result.status, 1);
  EXPECT_EQ(result.output, "");
  EXPECT_EQ(result.errors,
            "kioskctl: The unlock has ended. The check goes on; to see what comes of it, use "
            "kioskctl unlock and then kioskctl updates list. (not_unlocked)\n");
}

TEST_F(UpdatesCheckVerb, SaysThatTheDaemonIsGone) {
  script({Replies(Record({{"checking", true}})), Closes()});
  const ChildResult result = follow("check");
  EXPECT_EQ(result.status, 3);
  EXPECT_EQ(result.errors,
            "kioskctl: kioskd closed the command channel without an answer.\n"
            "kioskctl: The check can no longer be followed; kioskd or the Mac may be starting "
            "anew.\n");
}

TEST_F(UpdatesCheckVerb, RefusesARecordThatDoesNotTellWhetherItGoesOn) {
  script({Replies(R"({"ok":true})")});
  const ChildResult result = follow("check");
  EXPECT_EQ(result.status, 3);
  EXPECT_EQ(result.errors, "kioskctl: kioskd's reply lacks \"checking\".\n");
}

TEST_F(UpdatesCheckVerb, LeavesAtOnceWhenInterrupted) {
  script({Replies(Record({{"checking", true}}))});
  Child child(setup({"updates", "check", "--interval", "3600"}));
  EXPECT_TRUE(Eventually([this] { return requests().size() == 1; }));
  child.signal(SIGINT);
  EXPECT_EQ(child.wait().status, -1);
  EXPECT_THAT(requests(), ElementsAre(kBeginCheck));
}

}  // namespace
