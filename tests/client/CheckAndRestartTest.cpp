#include "tests/client/ChannelTest.h"

namespace {

using testing::ElementsAre;

class CheckVerb : public ChannelTest {};
class RestartVerb : public ChannelTest {};

TEST_F(CheckVerb, SaysThatTheCodeWasNotClaimedYet) {
  script({Replies(R"({"ok":true,"paired":false})")});
  const ChildResult result = run({"check", "ABCDEFGH"});
  EXPECT_EQ(result.status, 0);
  EXPECT_EQ(result.output, "The code was not claimed yet.\n");
  EXPECT_THAT(requests(), ElementsAre(R"({"cmd":"pair.check","code":"ABCDEFGH"})"));
}

TEST_F(CheckVerb, TellsPairedFromSetUp) {
  script({Replies(R"({"ok":true,"paired":true,"provisioned":false})"),
          Replies(R"({"ok":true,"paired":true,"provisioned":true})")});
  EXPECT_EQ(run({"check", "A"}).output,
            "The terminal is paired; its kiosk account is not set up.\n");
  EXPECT_EQ(run({"check", "A"}).output, "The terminal is paired and set up.\n");
}

TEST_F(CheckVerb, TellsWhenTheMacRestarts) {
  script({Replies(
      R"({"ok":true,"paired":true,"provisioned":true,"restarting":true,"restartInSeconds":10})")});
  EXPECT_EQ(run({"check", "A"}).output,
            "The terminal is paired and set up.\nThe Mac restarts in 10 seconds.\n");
}

TEST_F(CheckVerb, ExplainsAnError) {
  script({Replies(R"({"ok":false,"error":"unknown_code"})")});
  const ChildResult result = run({"check", "A"});
  EXPECT_EQ(result.status, 1);
  EXPECT_EQ(result.output, "");
  EXPECT_EQ(result.errors, "kioskctl: kioskd did not hand out this code. (unknown_code)\n");
}

TEST_F(CheckVerb, PrintsTheRawReplyWithJson) {
  script({Replies(R"({"ok":true,"paired":false})")});
  EXPECT_EQ(run({"check", "A", "--json"}).output, "{\"ok\":true,\"paired\":false}\n");
}

TEST_F(RestartVerb, SaysThatTheMacRestarts) {
  script({Replies(R"({"ok":true})")});
  const ChildResult result = run({"restart"});
  EXPECT_EQ(result.status, 0);
  EXPECT_EQ(result.output, "The Mac restarts now.\n");
  EXPECT_THAT(requests(), ElementsAre(R"({"cmd":"restart.now"})"));
}

TEST_F(RestartVerb, ExplainsThatNoRestartIsPending) {
  script({Replies(R"({"ok":false,"error":"not_pending"})")});
  const ChildResult result = run({"restart"});
  EXPECT_EQ(result.status, 1);
  EXPECT_EQ(result.errors, "kioskctl: No restart is pending. (not_pending)\n");
}

}  // namespace
