#include "tests/client/ChannelTest.h"

namespace {

using testing::ElementsAre;

class TimeVerb : public ChannelTest {
 protected:
  void SetUp() override { keepUnlock(); }
};

TEST_F(TimeVerb, SetsTheZone) {
  script({Replies(R"({"ok":true})"), Replies(R"({"ok":false,"error":"invalid"})")});
  const ChildResult result = run({"time", "zone", "Europe/Berlin"});
  EXPECT_EQ(result.status, 0);
  EXPECT_EQ(result.output, "The time zone is Europe/Berlin.\n");
  EXPECT_EQ(run({"time", "zone", "status"}).status, 1);
  EXPECT_THAT(requests(),
              ElementsAre(R"({"cmd":"time.zone","unlockToken":"secret","zone":"Europe/Berlin"})",
                          R"({"cmd":"time.zone","unlockToken":"secret","zone":"status"})"));
}

TEST_F(TimeVerb, SaysHowFarTheClockWasOff) {
  script({Replies(R"({"ok":true,"server":"time.example","offsetMs":12,)"
                  R"("at":"2026-10-15T08:30:00Z"})"),
          Replies(R"({"ok":true,"server":"t\u001b","offsetMs":-13,"at":"x"})")});
  const ChildResult result = run({"time", "sync"});
  EXPECT_EQ(result.status, 0);
  EXPECT_EQ(result.output,
            "The clock was 12 ms off; set by time.example at 2026-10-15T08:30:00Z.\n");
  EXPECT_EQ(run({"time", "sync"}).output, "The clock was 13 ms off; set by t? at x.\n");
  EXPECT_EQ(requests().at(0), R"({"cmd":"time.sync","unlockToken":"secret"})");
}

TEST_F(TimeVerb, NamesTheServerThatDidNotAnswer) {
  script({Replies(R"({"ok":false,"error":"sync_failed","server":"time.example"})"),
          Replies(R"({"ok":false,"error":"sync_failed","server":null})")});
  const std::string sentence =
      "kioskctl: The clock could not be set from the time server. (sync_failed)\n";
  const ChildResult result = run({"time", "sync"});
  EXPECT_EQ(result.status, 1);
  EXPECT_EQ(result.output, "");
  EXPECT_EQ(result.errors, sentence + "kioskctl: The time server is time.example.\n");
  EXPECT_EQ(run({"time", "sync"}).errors, sentence);
}

TEST_F(TimeVerb, ShowsWhenTheClockWasLastSet) {
  script({Replies(R"({"ok":true,"lastSync":{"at":"2026-10-15T08:30:00Z","ok":true,)"
                  R"("server":"time.example"}})"),
          Replies(R"({"ok":true,"lastSync":null})")});
  const ChildResult result = run({"time", "show"});
  EXPECT_EQ(result.status, 0);
  EXPECT_EQ(result.output, "The clock was last set by time.example at 2026-10-15T08:30:00Z.\n");
  EXPECT_EQ(run({"time", "show"}).output, "The clock was never set from a time server.\n");
  EXPECT_EQ(requests().at(0), R"({"cmd":"time.get","unlockToken":"secret"})");
}

TEST_F(TimeVerb, RefusesAReplyThatLacksWhatIsToBeSaid) {
  const std::vector<std::pair<const char*, const char*>> replies = {
      {"sync", R"({"ok":true,"server":"a","at":"b"})"},
      {"sync", R"({"ok":true,"server":"a","at":"b","offsetMs":1.5})"},
      {"sync", R"({"ok":true,"offsetMs":1,"at":"b"})"},
      {"sync", R"({"ok":true,"offsetMs":1,"server":"a"})"},
      {"show", R"({"ok":true})"},
      {"show", R"({"ok":true,"lastSync":{"at":"b"}})"},
      {"show", R"({"ok":true,"lastSync":{"server":"a"}})"}};
  for (const auto& [verb, reply] : replies) {
    script({Replies(reply)});
    const ChildResult result = run({"time", verb});
    EXPECT_EQ(result.status, 3) << reply;
    EXPECT_EQ(result.output, "");
    EXPECT_NE(result.errors, "");
  }
}

TEST_F(TimeVerb, PrintsTheRawReplyWithJson) {
  script({Replies(R"({"ok":true,"lastSync":null})"),
          Replies(R"({"ok":false,"error":"sync_failed","server":"a"})")});
  EXPECT_EQ(run({"time", "show", "--json"}).output, "{\"ok\":true,\"lastSync\":null}\n");
  const ChildResult failed = run({"time", "sync", "--json"});
  EXPECT_EQ(failed.status, 1);
  EXPECT_EQ(failed.output, "{\"ok\":false,\"error\":\"sync_failed\",\"server\":\"a\"}\n");
  EXPECT_EQ(failed.errors, "");
}

}  // namespace
