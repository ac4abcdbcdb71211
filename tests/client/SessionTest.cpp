#include "tests/client/ChannelTest.h"

namespace {

using testing::ElementsAre;

class SessionVerb : public ChannelTest {};

TEST_F(SessionVerb, ReportsEveryUseOfTheSession) {
  script({Replies(R"({"ok":true})")});
  const std::vector<std::pair<std::string, std::string>> uses = {
      {"live", "a stream is live and somebody is signed in."},
      {"signed-in", "somebody is signed in, and no stream is live."},
      {"idle", "nobody is signed in, and no stream is live."}};
  for (const auto& [name, sentence] : uses) {
    const ChildResult result = run({"session", name});
    EXPECT_EQ(result.status, 0);
    EXPECT_EQ(result.output,
              "Reported: " + sentence + " It counts for 150 seconds, or until the next report.\n");
    EXPECT_EQ(result.errors, "");
  }
  EXPECT_THAT(requests(), ElementsAre(R"({"cmd":"session.report","live":true,"signedIn":true})",
                                      R"({"cmd":"session.report","live":false,"signedIn":true})",
                                      R"({"cmd":"session.report","live":false,"signedIn":false})"));
}

TEST_F(SessionVerb, SaysWhoMayReport) {
  script({Replies(R"({"ok":false,"error":"not_permitted"})")});
  const ChildResult result = run({"session", "live"});
  EXPECT_EQ(result.status, 1);
  EXPECT_EQ(result.output, "");
  EXPECT_EQ(result.errors,
            "kioskctl: Only the kiosk account may report how its session is used. "
            "(not_permitted)\n");
}

TEST_F(SessionVerb, ExplainsOtherErrors) {
  script({Replies(R"({"ok":false,"error":"starting"})"), Closes()});
  EXPECT_EQ(run({"session", "idle"}).errors, "kioskctl: kioskd is still starting. (starting)\n");
  const ChildResult result = run({"session", "idle"});
  EXPECT_EQ(result.status, 3);
  EXPECT_EQ(result.errors, "kioskctl: kioskd closed the command channel without an answer.\n");
}

TEST_F(SessionVerb, PrintsTheRawReplyWithJson) {
  script({Replies(R"({"ok":true})"), Replies(R"({"ok":false,"error":"not_permitted"})")});
  EXPECT_EQ(run({"session", "idle", "--json"}).output, "{\"ok\":true}\n");
  const ChildResult result = run({"session", "idle", "--json"});
  EXPECT_EQ(result.output, "{\"ok\":false,\"error\":\"not_permitted\"}\n");
  EXPECT_EQ(result.errors, "");
}

}  // namespace
