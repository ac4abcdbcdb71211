#include "tests/client/ChannelTest.h"

namespace {

using testing::ElementsAre;
using testing::HasSubstr;

constexpr const char* kOrganisation =
    R"({"schedule":{"days":[1,2,3,4,5],"enabled":false,"sleepAt":"22:00","wakeAt":"07:00"},)"
    R"("screenOffMinutes":15,"sleepMinutes":0})";
constexpr const char* kLocal =
    R"({"schedule":{"days":[0,1,2,3,4,5,6],"enabled":true,"sleepAt":"23:30","wakeAt":"06:15"},)"
    R"("screenOffMinutes":1,"sleepMinutes":240})";

std::string Payload(const std::string& local, const std::string& error = "null",
                    const std::string& ok = "true") {
  return R"({"effective":)" + (local == "null" ? std::string(kOrganisation) : local) +
         R"(,"error":)" + error + R"(,"local":)" + local + R"(,"ok":)" + ok + R"(,"policy":)" +
         kOrganisation + R"(,"source":"device"})";
}

class PowerVerb : public ChannelTest {
 protected:
  void SetUp() override { keepUnlock(); }
};

TEST_F(PowerVerb, ShowsBothPoliciesAndTheOneInForce) {
  script({Replies(Payload(kLocal))});
  const ChildResult result = run({"power", "show"});
  EXPECT_EQ(result.status, 0);
  EXPECT_EQ(result.output,
            "                  Organisation         This terminal  In force\n"
            "Screen off after  15 minutes           1 minute       1 minute\n"
            "Sleep after       never                240 minutes    240 minutes\n"
            "Schedule          off                  on             on\n"
            "Sleep at          22:00                23:30          23:30\n"
            "Wake at           07:00                06:15          06:15\n"
            "Days              Mon Tue Wed Thu Fri  every day      every day\n"
            "Source            set for this terminal\n"
            "Problem           none\n");
  EXPECT_EQ(result.errors, "");
  EXPECT_THAT(requests(), ElementsAre(R"({"cmd":"power.get","unlockToken":"secret"})"));
}

TEST_F(PowerVerb, ShowsThatTheTerminalHasNoOverride) {
  script({Replies(Payload("null", R"("wake_unavailable")"))});
  const std::string output = run({"power", "show"}).output;
  EXPECT_THAT(output, HasSubstr("Screen off after  15 minutes           -              15 min"));
  EXPECT_THAT(output, HasSubstr("Problem           The minutes are set, but the Mac refused the "
                                "schedule. (wake_unavailable)\n"));
}

TEST_F(PowerVerb, NamesTheSourceOfThePolicy) {
  const std::vector<std::pair<std::string, std::string>> sources = {
      {"tenant", "set for the organisation"}, {"default", "built-in default"}, {"a\\u001b", "a?"}};
  for (const auto& [source, text] : sources) {
    script({Replies(R"({"ok":true,"effective":{},"source":")" + source + R"("})")});
    EXPECT_THAT(run({"power", "show"}).output, HasSubstr("Source            " + text + "\n"));
  }
}

TEST_F(PowerVerb, SurvivesValuesOfTheWrongType) {
  for (const char* const policy :
       {"7", "[]", "{}", R"({"schedule":5,"screenOffMinutes":"x","sleepMinutes":1.5})",
        R"({"schedule":{"days":5,"enabled":1,"sleepAt":5}})"}) {
    script({Replies(R"({"ok":true,"effective":)" + std::string(policy) + "}")});
    const ChildResult result = run({"power", "show"});
    EXPECT_EQ(result.status, 0);
    EXPECT_THAT(result.output, HasSubstr("Days              -             -              -\n"));
    EXPECT_THAT(result.output, HasSubstr("Sleep after       -             -              -\n"));
  }
  script({Replies(R"({"ok":true,"effective":{"schedule":{"days":[9,"x",[],0]}}})")});
  EXPECT_THAT(run({"power", "show"}).output, HasSubstr(" Sun\n"));
}

TEST_F(PowerVerb, OverridesTheMinutesOnly) {
  script({Replies(Payload(kLocal))});
  const ChildResult result = run({"power", "set", "--screen-off", "1", "--sleep", "240"});
  EXPECT_EQ(result.status, 0);
  EXPECT_THAT(result.output, HasSubstr("Sleep after       never                240 minutes"));
  EXPECT_THAT(requests(), ElementsAre(R"({"cmd":"power.set","screenOffMinutes":1,)"
                                      R"("sleepMinutes":240,"unlockToken":"secret"})"));
}

TEST_F(PowerVerb, OverridesTheScheduleAsFarAsItIsGiven) {
  script({Replies(Payload(kLocal))});
  const std::vector<std::string> minutes = {"power", "set", "--screen-off", "0", "--sleep", "0"};
  std::vector<std::string> off = minutes;
  off.insert(off.end(), {"--schedule", "off"});
  EXPECT_EQ(run(off).status, 0);
  std::vector<std::string> on = minutes;
  on.insert(on.end(), {"--schedule", "on", "--sleep-at", "23:30", "--wake-at", "06:15", "--days",
                       "sat,mon,sun"});
  EXPECT_EQ(run(on).status, 0);
  EXPECT_THAT(requests(),
              ElementsAre(R"({"cmd":"power.set","schedule":{"enabled":false},"screenOffMinutes":0,)"
                          R"("sleepMinutes":0,"unlockToken":"secret"})",
                          R"({"cmd":"power.set","schedule":{"days":[6,1,0],"enabled":true,)"
                          R"("sleepAt":"23:30","wakeAt":"06:15"},"screenOffMinutes":0,)"
                          R"("sleepMinutes":0,"unlockToken":"secret"})"));
}

TEST_F(PowerVerb, LeavesItToTheDaemonToRefuseBadValues) {
  script({Replies(R"({"ok":false,"error":"invalid"})")});
  const ChildResult result = run({"power", "set", "--screen-off", "-1", "--sleep", "241",
                                  "--schedule", "on", "--sleep-at", "25:00", "--days", ""});
  EXPECT_EQ(result.status, 1);
  EXPECT_EQ(result.output, "");
  EXPECT_EQ(result.errors, "kioskctl: A value is not one that may be set. (invalid)\n");
  EXPECT_THAT(requests(),
              ElementsAre(R"({"cmd":"power.set","schedule":{"days":[],"enabled":true,)"
                          R"("sleepAt":"25:00"},"screenOffMinutes":-1,"sleepMinutes":241,)"
                          R"("unlockToken":"secret"})"));
}

TEST_F(PowerVerb, ExplainsAndShowsAnOverrideThatWasTakenInPart) {
  script({Replies(Payload(kLocal, R"("wake_unavailable")", "false"))});
  const ChildResult result = run({"power", "set", "--screen-off", "1", "--sleep", "240"});
  EXPECT_EQ(result.status, 1);
  EXPECT_THAT(result.output, HasSubstr("Screen off after  15 minutes           1 minute "));
  EXPECT_EQ(result.errors,
            "kioskctl: The minutes are set, but the Mac refused the schedule. "
            "(wake_unavailable)\n");
}

TEST_F(PowerVerb, ExplainsAnOverrideThatWasRefused) {
  for (const std::string code : {"not_provisioned", "failed"}) {
    script({Replies(R"({"ok":false,"error":")" + code + R"("})")});
    const ChildResult result = run({"power", "set", "--screen-off", "1", "--sleep", "2"});
    EXPECT_EQ(result.status, 1);
    EXPECT_EQ(result.output, "");
    EXPECT_THAT(result.errors, testing::EndsWith(". (" + code + ")\n"));
  }
}

TEST_F(PowerVerb, FollowsTheOrganisation) {
  script({Replies(Payload("null"))});
  const ChildResult result = run({"power", "follow"});
  EXPECT_EQ(result.status, 0);
  EXPECT_THAT(result.output,
              HasSubstr("Schedule          off                  -              off"));
  EXPECT_THAT(requests(), ElementsAre(R"({"cmd":"power.set","unlockToken":"secret",)"
                                      R"("useOrganisation":true})"));
}

TEST_F(PowerVerb, PrintsTheRawReplyWithJson) {
  script({Replies(Payload(kLocal))});
  EXPECT_EQ(run({"power", "show", "--json"}).output, Payload(kLocal) + "\n");
  EXPECT_EQ(run({"power", "follow", "--json"}).output, Payload(kLocal) + "\n");
}

}  // namespace
