#include <ctime>

#include "tests/client/ChannelTest.h"
#include "tests/client/KnownReplies.h"

namespace {

using testing::ElementsAre;
using testing::EndsWith;
using testing::HasSubstr;
using testing::MatchesRegex;
using testing::Not;

class UnlockVerb : public ChannelTest {
 protected:
  ChildResult unlock(const std::string& input = "abcd\n") const { return run({"unlock"}, input); }
};

TEST_F(UnlockVerb, SendsALineOfStandardInputAndSaysWhenTheUnlockEnds) {
  script({Replies(kUnlocked)});
  const ChildResult result = unlock("ab\"cd \nmore\n");
  EXPECT_EQ(result.status, 0);
  EXPECT_THAT(result.output, MatchesRegex("Unlocked until [0-9:]{8} \\(10 minutes\\)\\.\n"));
  EXPECT_EQ(result.errors, "");
  EXPECT_THAT(requests(), ElementsAre(R"({"cmd":"unlock","password":"ab\"cd "})"));
}

TEST_F(UnlockVerb, TellsTheTimeOfTheEndInLocalTime) {
  script({Replies(kUnlocked)});
  ChildSetup started = setup({"unlock"});
  started.input = "abcd\n";
  started.environment["TZ"] = "XYZ-5:30";
  const std::time_t before = std::time(nullptr) + 600;
  const std::string output = RunChild(started).output;
  const std::time_t after = std::time(nullptr) + 600;
  std::vector<std::string> possible;
  for (std::time_t time = before; time <= after; ++time) {
    const std::time_t local = time + 5 * 3600 + 1800;
    std::tm parts{};
    gmtime_r(&local, &parts);
    char text[16];
    (void)std::strftime(text, sizeof text, "%H:%M:%S", &parts);
    possible.push_back("Unlocked until " + std::string(text) + " (10 minutes).\n");
  }
  EXPECT_THAT(possible, testing::Contains(output));
}

TEST_F(UnlockVerb, SendsAnEmptyLineAndALineWithoutItsEnd) {
  script({Replies(kUnlocked)});
  EXPECT_EQ(unlock("\n").status, 0);
  EXPECT_EQ(unlock("abcd").status, 0);
  EXPECT_THAT(requests(), ElementsAre(R"({"cmd":"unlock","password":""})",
                                      R"({"cmd":"unlock","password":"abcd"})"));
}

TEST_F(UnlockVerb, KeepsTheTokenForTheOtherVerbs) {
  script({Replies(kUnlocked), Replies(R"({"ok":true})")});
  EXPECT_EQ(unlock().status, 0);
  EXPECT_EQ(run({"proxy", "none"}).status, 0);
  EXPECT_EQ(requests().at(1), R"({"cmd":"proxy.set","mode":"none",)"
                              R"("unlockToken":"0123456789abcdef0123456789abcdef"})");
}

TEST_F(UnlockVerb, ShowsNeitherTheTokenNorThePassword) {
  script({Replies(kUnlocked)});
  for (const std::vector<std::string>& arguments :
       {std::vector<std::string>{"unlock"}, {"unlock", "--json"}}) {
    const ChildResult result = run(arguments, "abcd\n");
    EXPECT_EQ(result.status, 0);
    EXPECT_THAT(result.output + result.errors, Not(HasSubstr("0123")));
    EXPECT_THAT(result.output + result.errors, Not(HasSubstr("abcd")));
  }
}

TEST_F(UnlockVerb, PrintsTheReplyWithoutItsTokenWithJson) {
  script({Replies(kUnlocked), Replies(R"({"ok":false, "error":"locked"})")});
  EXPECT_EQ(run({"unlock", "--json"}, "abcd\n").output, "{\"expiresInSeconds\":600,\"ok\":true}\n");
  const ChildResult refused = run({"unlock", "--json"}, "abcd\n");
  EXPECT_EQ(refused.status, 1);
  EXPECT_EQ(refused.output, "{\"ok\":false, \"error\":\"locked\"}\n");
  EXPECT_EQ(refused.errors, "");
}

TEST_F(UnlockVerb, ExplainsWhyItIsRefused) {
  for (const std::string code : {"not_permitted", "locked", "not_provisioned", "not_enrolled",
                                 "unreachable", "wrong_password", "failed"}) {
    script({Replies(R"({"ok":false,"error":")" + code + R"("})")});
    const ChildResult result = unlock();
    EXPECT_EQ(result.status, 1);
    EXPECT_EQ(result.output, "");
    EXPECT_THAT(result.errors, EndsWith(". (" + code + ")\n"));
    EXPECT_NE(access(unlockFile().c_str(), F_OK), 0);
  }
}

TEST_F(UnlockVerb, NeedsAPassword) {
  script({Replies(kUnlocked)});
  const ChildResult none = unlock("");
  EXPECT_EQ(none.status, 2);
  EXPECT_EQ(none.errors, "kioskctl: No password was given.\n");
  const ChildResult tooLong = unlock(std::string(1025, 'x') + "\n");
  EXPECT_EQ(tooLong.status, 2);
  EXPECT_EQ(tooLong.errors, "kioskctl: A password has at most 1024 bytes.\n");
  EXPECT_EQ(unlock(std::string(1024, 'x') + "\n").status, 0);
  EXPECT_EQ(requests().size(), 1U);
}

TEST_F(UnlockVerb, RefusesAReplyWithoutATokenOrItsLife) {
  const std::vector<std::pair<std::string, std::string>> replies = {
      {R"({"ok":true,"expiresInSeconds":600})", "unlockToken"},
      {R"({"ok":true,"unlockToken":7,"expiresInSeconds":600})", "unlockToken"},
      {R"({"ok":true,"unlockToken":")" + std::string(257, 'a') + R"(","expiresInSeconds":600})",
       "unlockToken"},
      {R"({"ok":true,"unlockToken":"a"})", "expiresInSeconds"},
      {R"({"ok":true,"unlockToken":"a","expiresInSeconds":-1})", "expiresInSeconds"}};
  for (const auto& [reply, missing] : replies) {
    script({Replies(reply)});
    const ChildResult result = unlock();
    EXPECT_EQ(result.status, 3) << reply;
    EXPECT_EQ(result.errors, "kioskctl: kioskd's reply lacks \"" + missing + "\".\n");
    EXPECT_NE(access(unlockFile().c_str(), F_OK), 0);
  }
}

TEST_F(UnlockVerb, SaysOddDurationsInSecondsAndBelievesNoneBeyondADay) {
  script({Replies(R"({"ok":true,"unlockToken":"a","expiresInSeconds":60})"),
          Replies(R"({"ok":true,"unlockToken":"a","expiresInSeconds":90})"),
          Replies(R"({"ok":true,"unlockToken":"a","expiresInSeconds":1e300})")});
  EXPECT_THAT(unlock().output, EndsWith("(1 minute).\n"));
  EXPECT_THAT(unlock().output, EndsWith("(90 seconds).\n"));
  EXPECT_THAT(unlock().output, EndsWith("(1440 minutes).\n"));
}

TEST_F(UnlockVerb, ForgetsTheUnlockWhetherThereIsOneOrNot) {
  script({Replies(kUnlocked)});
  keepUnlock();
  for (int round = 0; round < 2; ++round) {
    const ChildResult result = run({"unlock", "--forget"});
    EXPECT_EQ(result.status, 0);
    EXPECT_EQ(result.output, "The unlock is forgotten.\n");
    EXPECT_NE(access(unlockFile().c_str(), F_OK), 0);
  }
  EXPECT_EQ(run({"unlock", "--forget", "--json"}).output, "");
  EXPECT_EQ(connections(), 0);
}

TEST_F(UnlockVerb, IsAskedForOnlyWhereNoneIsKept) {
  script({Replies(R"({"ok":true})")});
  for (const std::vector<std::string>& arguments :
       std::vector<std::vector<std::string>>{{"power", "show"},
                                             {"power", "set", "--screen-off", "1", "--sleep", "1"},
                                             {"power", "follow"},
                                             {"net", "dhcp", "en0"},
                                             {"net", "static", "en0", "10.0.0.1/8"},
                                             {"proxy", "none"},
                                             {"proxy", "auto", "u"},
                                             {"proxy", "manual", "h:1"},
                                             {"time", "zone", "UTC"},
                                             {"time", "sync"},
                                             {"time", "show", "--json"}}) {
    const ChildResult result = run(arguments);
    EXPECT_EQ(result.status, 1);
    EXPECT_EQ(result.output, "");
    EXPECT_EQ(result.errors, "kioskctl: Unlock first: kioskctl unlock\n");
  }
  EXPECT_EQ(connections(), 0);
}

TEST_F(UnlockVerb, IsForgottenWhenTheDaemonNoLongerTakesIt) {
  script({Replies(R"({"ok":false,"error":"not_unlocked"})")});
  keepUnlock();
  const ChildResult result = run({"time", "show"});
  EXPECT_EQ(result.status, 1);
  EXPECT_EQ(result.errors,
            "kioskctl: The settings are not unlocked, or no longer; use kioskctl unlock. "
            "(not_unlocked)\n");
  EXPECT_EQ(run({"time", "show"}).errors, "kioskctl: Unlock first: kioskctl unlock\n");
  EXPECT_THAT(requests(), ElementsAre(R"({"cmd":"time.get","unlockToken":"secret"})"));
}

TEST_F(UnlockVerb, IsKeptWhenTheDaemonRefusesForAnotherReason) {
  script({Replies(R"({"ok":false,"error":"invalid"})")});
  keepUnlock();
  EXPECT_EQ(run({"proxy", "auto", "x"}).status, 1);
  EXPECT_EQ(access(unlockFile().c_str(), F_OK), 0);
}

}  // namespace
