#include "tests/client/ChannelTest.h"
#include "tests/client/KnownReplies.h"

namespace {

using testing::HasSubstr;
using testing::Not;

constexpr const char* kDoneSoon =
    R"({"ok":true,"paired":true,"provisioned":true,"restarting":true,"restartInSeconds":1})";

class PairOnATerminal : public ChannelTest {
 protected:
  ChildResult pair(const std::vector<std::string>& arguments, unsigned short columns = 80,
                   const std::string& type = "xterm") const {
    ChildSetup setup;
    setup.arguments = {KIOSKCTL_PATH, "pair", "--interval", "0.01"};
    setup.arguments.insert(setup.arguments.end(), arguments.begin(), arguments.end());
    setup.environment = {{"KIOSK_CHANNEL", channel()}, {"TERM", type}};
    setup.terminal = true;
    setup.columns = columns;
    return RunChild(setup);
  }
};

/// The first row of an "E" followed by that of an "F".
constexpr const char* kBlocks = "\033[7m     \033[0m  \033[7m     \033[0m";

TEST_F(PairOnATerminal, DrawsTheCodeInBlockLettersAndSpacedBelow) {
  script({Replies(kBegun)});
  const ChildResult result = pair({"--no-wait"});
  EXPECT_EQ(result.status, 0);
  EXPECT_THAT(result.output, HasSubstr(kBlocks));
  EXPECT_THAT(result.output, HasSubstr("  A B C D E F G H\r\n"));
  EXPECT_THAT(result.output, HasSubstr("\r\033[KThe code is valid for 15:00.\r\n"));
}

TEST_F(PairOnATerminal, OnlySpacesTheCodeWhereTheBlocksDoNotFit) {
  script({Replies(kBegun)});
  const ChildResult result = pair({"--no-wait"}, 50);
  EXPECT_THAT(result.output, Not(HasSubstr("\033[7m")));
  EXPECT_THAT(result.output, HasSubstr("  A B C D E F G H\r\n"));
}

TEST_F(PairOnATerminal, OnlySpacesACodeThatHasNoBlockLetters) {
  script({Replies(R"({"ok":true,"code":"A-b\u001b","expiresInSeconds":900})")});
  const ChildResult result = pair({"--no-wait"});
  EXPECT_THAT(result.output, Not(HasSubstr("\033[7m")));
  EXPECT_THAT(result.output, HasSubstr("  A - b ?\r\n"));
}

TEST_F(PairOnATerminal, CountsDownToTheRestart) {
  script({Replies(kBegun), Replies(kOpen), Replies(kDoneSoon)});
  const ChildResult result = pair({});
  EXPECT_EQ(result.status, 0);
  EXPECT_THAT(result.output, HasSubstr("The terminal is paired and set up.\r\n"
                                       "\r\033[KThe Mac restarts in 1 second."
                                       "\r\033[KThe Mac restarts now.\r\n"));
}

TEST_F(PairOnATerminal, ShowsHowTheTimeRunsDown) {
  script({Replies(R"({"ok":true,"code":"ABCDEFGH","expiresInSeconds":1.5})"), Replies(kOpen)});
  const ChildResult result = pair({});
  EXPECT_EQ(result.status, 1);
  EXPECT_THAT(result.output, HasSubstr("\r\033[KThe code is valid for 0:02."));
  EXPECT_THAT(result.errors, HasSubstr("(expired)"));
}

TEST_F(PairOnATerminal, ShowsAnUnreachablePortalBesideTheTime) {
  script({Replies(kBegun), Replies(R"({"ok":false,"error":"unreachable"})"), Replies(kOpen),
          Replies(R"({"ok":true,"paired":true,"provisioned":true})")});
  const ChildResult result = pair({});
  EXPECT_EQ(result.status, 0);
  EXPECT_THAT(result.output, HasSubstr(". The portal cannot be reached. (unreachable)\r\033[K"));
}

TEST_F(PairOnATerminal, WritesPlainLinesToATerminalThatCannotMore) {
  script({Replies(kBegun)});
  EXPECT_EQ(pair({"--no-wait"}, 80, "dumb").output,
            "Pairing code: ABCDEFGH\r\nThe code is valid for 15:00.\r\n");
}

TEST_F(PairOnATerminal, PrintsNothingButTheRepliesWithJson) {
  script({Replies(kBegun), Replies(R"({"ok":true,"paired":true,"provisioned":true})")});
  EXPECT_EQ(
      pair({"--json"}).output,
      std::string(kBegun) + "\r\n" + R"({"ok":true,"paired":true,"provisioned":true})" + "\r\n");
}

}  // namespace
