// Update policies from the command line, and what terminals report of their updates.
#include "simulator/portal/UpdateRun.h"
#include "tests/portal/Portal.h"

namespace {

class UpdatePolicyCommand : public PortalTest {
 protected:
  void SetUp() override {
    PortalTest::SetUp();
    token = pair();
  }

  int set(std::vector<std::string> arguments) const {
    arguments.insert(arguments.begin(), {"updates", "-"});
    return command(arguments).status;
  }
  Json policy() const { return checkIn(token).body.value("updates", Json()); }

  std::string token;
};

TEST_F(UpdatePolicyCommand, SetsEachSettingByItself) {
  EXPECT_EQ(set({"--automatic", "on", "--start", "22:00", "--end", "03:00", "--days", "fri,mon",
                 "--source", "device"}),
            0);
  const Json answer = checkIn(token).body;
  EXPECT_EQ(answer["updates"],
            Json({{"automatic", true},
                  {"window", {{"start", "22:00"}, {"end", "03:00"}, {"days", {1, 5}}}}}));
  EXPECT_EQ(answer["updatesSource"], "device");
}

TEST_F(UpdatePolicyCommand, KeepsWhatIsNotNamed) {
  EXPECT_EQ(set({"--automatic", "on"}), 0);
  EXPECT_EQ(policy(), Json({{"automatic", true}}));
  EXPECT_EQ(set({"--days", "all"}), 0);
  Json expected = {
      {"automatic", true},
      {"window", {{"start", "02:00"}, {"end", "05:00"}, {"days", {0, 1, 2, 3, 4, 5, 6}}}}};
  EXPECT_EQ(policy(), expected);
  EXPECT_EQ(set({"--end", "23:59"}), 0);
  EXPECT_EQ(set({"--automatic", "off"}), 0);
  EXPECT_EQ(set({"--days", "sat,sun,sat"}), 0);
  expected = {{"automatic", false},
              {"window", {{"start", "02:00"}, {"end", "23:59"}, {"days", {0, 6}}}}};
  EXPECT_EQ(policy(), expected);
  EXPECT_EQ(set({"--source", "tenant"}), 0);
  EXPECT_EQ(policy(), expected);
  EXPECT_EQ(set({"--none"}), 0);
  EXPECT_EQ(policy(), nullptr);
  EXPECT_FALSE(checkIn(token).body.contains("updatesSource"));
}

TEST_F(UpdatePolicyCommand, CompletesAWindowThatIsNull) {
  ASSERT_EQ(set({R"({"automatic": null, "window": null})"}), 0);
  EXPECT_EQ(set({"--start", "04:00"}), 0);
  EXPECT_EQ(policy(),
            Json({{"automatic", nullptr}, {"window", {{"start", "04:00"}, {"end", "05:00"}}}}));
}

TEST_F(UpdatePolicyCommand, RefusesWhatMeansNothing) {
  ASSERT_EQ(set({"--automatic", "on"}), 0);
  for (const std::vector<std::string>& arguments :
       std::vector<std::vector<std::string>>{{"--automatic", "maybe"},
                                             {"--start", "24:00"},
                                             {"--end", "7:00"},
                                             {"--end", "05:60"},
                                             {"--days", ""},
                                             {"--days", "mon,"},
                                             {"--days", "Monday"},
                                             {"--days", "1,2"},
                                             {"--days", "all,mon"},
                                             {"{}", "--days", "mon"},
                                             {"--none", "--automatic", "off"},
                                             {"--raw", "--automatic", "off"},
                                             {}})
    EXPECT_EQ(set(arguments), 2) << Json(arguments);
  EXPECT_EQ(set({"--automatic", "off", "--source", "nobody"}), 2);
  EXPECT_EQ(set({R"({"automatic": 1})"}), 1);
  EXPECT_EQ(policy(), Json({{"automatic", true}}));
  const ProgramResult days = command({"updates", "-", "--days", "never"});
  EXPECT_NE(days.output.find("neither \"all\" nor days"), std::string::npos) << days.output;
  const ProgramResult start = command({"updates", "-", "--start", "9"});
  EXPECT_NE(start.output.find("not a time from 00:00 to 23:59"), std::string::npos);
}

TEST_F(UpdatePolicyCommand, NamesTheSourcesThatThereAre) {
  for (const char* kind : {"updates", "power"}) {
    const ProgramResult refused = command({kind, "-", "--source", "planet"});
    EXPECT_EQ(refused.status, 2);
    EXPECT_NE(refused.output.find("--source: neither device nor tenant nor default"),
              std::string::npos)
        << refused.output;
    EXPECT_EQ(command({kind, "-", "{}", "--source", "planet", "--raw"}).status, 0);
    EXPECT_EQ(checkIn(token).body[std::string(kind) + "Source"], "planet");
  }
}

TEST_F(UpdatePolicyCommand, RefusesToChangeAPolicyThatWasStoredUnchecked) {
  ASSERT_EQ(set({R"({"window": 5})", "--raw"}), 0);
  const ProgramResult refused = command({"updates", "-", "--automatic", "on"});
  EXPECT_EQ(refused.status, 1);
  EXPECT_NE(refused.output.find("set it anew, as JSON"), std::string::npos) << refused.output;
  EXPECT_EQ(policy(), Json({{"window", 5}}));
  EXPECT_EQ(set({"{}"}), 0);
  EXPECT_EQ(set({"--automatic", "on"}), 0);
}

Json Reported(const char* result, int pending = 0, bool restart = false,
              const Json& error = nullptr) {
  return {{"lastRunAt", "2026-01-31T02:10:00Z"},
          {"lastResult", result},
          {"pending", pending},
          {"restartRequired", restart},
          {"error", error}};
}

TEST_F(UpdatePolicyCommand, ShowsTheRunThatTheTerminalReports) {
  EXPECT_EQ(command({"terminals"}).output.find("OS updates"), std::string::npos);
  ASSERT_EQ(checkIn(token, {{"osUpdates", Reported("ok", 0, true)}}).status, 200);
  const std::string phrase = "installed at 2026-01-31T02:10:00Z, a restart is required\n";
  const std::string list = command({"terminals"}).output;
  EXPECT_NE(list.find("  OS updates: " + phrase), std::string::npos) << list;
  const std::string shown = command({"show", "-"}).output;
  EXPECT_NE(shown.find("osUpdates       " + phrase), std::string::npos) << shown;
  const Json json = Json::parse(command({"--json", "show", "-"}).output, nullptr, false);
  EXPECT_EQ(json["osUpdates"], Reported("ok", 0, true));
}

TEST(ReportedUpdates, AreDescribedInAPhrase) {
  const std::string at = " at 2026-01-31T02:10:00Z";
  EXPECT_EQ(portal::DescribeUpdateRun(Reported("ok")), "installed" + at);
  EXPECT_EQ(portal::DescribeUpdateRun(Reported("nothing")), "nothing to install" + at);
  EXPECT_EQ(portal::DescribeUpdateRun(Reported("deferred", 2)), "deferred" + at + ", 2 pending");
  EXPECT_EQ(portal::DescribeUpdateRun(Reported("failed", 1, false, "install_failed")),
            "failed" + at + ": install_failed, 1 pending");
}

TEST(ReportedUpdates, AreDescribedWhateverATerminalReports) {
  EXPECT_EQ(portal::DescribeUpdateRun({{"lastResult", "ok"}}), "installed");
  EXPECT_EQ(portal::DescribeUpdateRun({{"lastResult", "failed"},
                                       {"lastRunAt", 5},
                                       {"error", {5}},
                                       {"pending", "2"},
                                       {"restartRequired", 1}}),
            "failed");
  EXPECT_EQ(portal::DescribeUpdateRun({{"lastResult", "new\x1b[2J"}}),
            "{\"lastResult\":\"new\\u001b[2J\"}");
  EXPECT_EQ(portal::DescribeUpdateRun({{"lastResult", "failed"}, {"error", "\x1b[2J\xc2\x9b!"}}),
            "failed: ?[2J?!");
  EXPECT_EQ(portal::DescribeUpdateRun(5), "5");
}

}  // namespace
