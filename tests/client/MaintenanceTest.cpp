#include "tests/client/ChannelTest.h"

namespace {

using testing::ElementsAre;
using testing::EndsWith;

constexpr const char* kSaysDone =
    "Maintenance: the kiosk session ends, and the Mac does not log in by itself until it has "
    "restarted.\n";

class MaintenanceVerb : public ChannelTest {};

TEST_F(MaintenanceVerb, TakesTheKeptUnlockWhichEndsWithIt) {
  script({Replies(R"({"ok":true})")});
  keepUnlock();
  const ChildResult result = run({"maintenance"}, "abcd\n");
  EXPECT_EQ(result.status, 0);
  EXPECT_EQ(result.output, kSaysDone);
  EXPECT_EQ(result.errors, "");
  EXPECT_NE(access(unlockFile().c_str(), F_OK), 0);
  EXPECT_THAT(requests(), ElementsAre(R"({"cmd":"maintenance","unlockToken":"secret"})"));
}

TEST_F(MaintenanceVerb, TakesThePasswordWithoutAnUnlock) {
  script({Replies(R"({"ok":true})")});
  const ChildResult result = run({"maintenance"}, "abcd\n");
  EXPECT_EQ(result.status, 0);
  EXPECT_EQ(result.output, kSaysDone);
  EXPECT_THAT(requests(), ElementsAre(R"({"cmd":"maintenance","password":"abcd"})"));
}

TEST_F(MaintenanceVerb, NeedsOneOfTheTwo) {
  script({Replies(R"({"ok":true})")});
  const ChildResult result = run({"maintenance"});
  EXPECT_EQ(result.status, 2);
  EXPECT_EQ(result.errors, "kioskctl: No password was given.\n");
  EXPECT_EQ(connections(), 0);
}

TEST_F(MaintenanceVerb, AsksForThePasswordAfterAnUnlockThatTheDaemonNoLongerTakes) {
  script({Replies(R"({"ok":false,"error":"not_unlocked"})"), Replies(R"({"ok":true})")});
  keepUnlock();
  const ChildResult refused = run({"maintenance"});
  EXPECT_EQ(refused.status, 1);
  EXPECT_THAT(refused.errors, EndsWith("(not_unlocked)\n"));
  EXPECT_EQ(run({"maintenance"}, "abcd\n").status, 0);
  EXPECT_EQ(requests().at(1), R"({"cmd":"maintenance","password":"abcd"})");
}

TEST_F(MaintenanceVerb, ExplainsWhyItIsRefused) {
  for (const std::string code :
       {"not_provisioned", "locked", "not_enrolled", "unreachable", "wrong_password"}) {
    script({Replies(R"({"ok":false,"error":")" + code + R"("})")});
    const ChildResult result = run({"maintenance"}, "abcd\n");
    EXPECT_EQ(result.status, 1);
    EXPECT_EQ(result.output, "");
    EXPECT_THAT(result.errors, EndsWith(". (" + code + ")\n"));
  }
}

TEST_F(MaintenanceVerb, PrintsTheRawReplyWithJson) {
  script({Replies(R"({"ok":true})")});
  EXPECT_EQ(run({"maintenance", "--json"}, "abcd\n").output, "{\"ok\":true}\n");
}

}  // namespace
