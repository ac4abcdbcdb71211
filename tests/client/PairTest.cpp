#include "tests/client/ChannelTest.h"
#include "tests/client/KnownReplies.h"

namespace {

using testing::ElementsAre;
using testing::EndsWith;
using testing::HasSubstr;
using testing::Not;
using testing::StartsWith;

constexpr const char* kUnreachable = R"({"ok":false,"error":"unreachable"})";
constexpr const char* kDone =
    R"({"ok":true,"paired":true,"provisioned":true,"restarting":true,"restartInSeconds":30})";
constexpr const char* kBegin = R"({"cmd":"pair.begin"})";
constexpr const char* kCheck = R"({"cmd":"pair.check","code":"ABCDEFGH"})";

class PairVerb : public ChannelTest {
 protected:
  ChildResult pair(std::vector<std::string> arguments = {}) const {
    arguments.insert(arguments.begin(), {"pair", "--interval", "0.01"});
    return run(arguments);
  }
};

TEST_F(PairVerb, AsksUntilTheTerminalIsPairedAndTellsOfTheRestart) {
  script({Replies(kBegun), Replies(kOpen), Replies(kOpen), Replies(kDone)});
  const ChildResult result = pair();
  EXPECT_EQ(result.status, 0);
  EXPECT_THAT(result.output, StartsWith("Pairing code: ABCDEFGH\nThe code is valid for 15:00.\n"));
  EXPECT_THAT(result.output, EndsWith("The terminal is paired and set up.\n"
                                      "The Mac restarts in 30 seconds.\n"));
  EXPECT_EQ(result.errors, "");
  EXPECT_THAT(requests(), ElementsAre(kBegin, kCheck, kCheck, kCheck));
  EXPECT_EQ(connections(), 1);
}

TEST_F(PairVerb, WritesNoControlSequencesWhereThereIsNoTerminal) {
  script({Replies(kBegun), Replies(kOpen), Replies(kDone)});
  const ChildResult result = pair();
  EXPECT_THAT(result.output, Not(HasSubstr("\033")));
  EXPECT_THAT(result.output, Not(HasSubstr("\r")));
}

TEST_F(PairVerb, GoesOnAskingUntilThePairedTerminalIsSetUp) {
  script({Replies(kBegun), Replies(R"({"ok":true,"paired":true,"provisioned":false})"),
          Replies(kDone)});
  const ChildResult result = pair();
  EXPECT_EQ(result.status, 0);
  EXPECT_THAT(requests(), ElementsAre(kBegin, kCheck, kCheck));
}

TEST_F(PairVerb, OnlyBeginsWhenToldNotToWait) {
  script({Replies(kBegun)});
  const ChildResult result = pair({"--no-wait"});
  EXPECT_EQ(result.status, 0);
  EXPECT_EQ(result.output, "Pairing code: ABCDEFGH\nThe code is valid for 15:00.\n");
  EXPECT_THAT(requests(), ElementsAre(kBegin));
}

TEST_F(PairVerb, PrintsEveryReplyAndNothingElseWithJson) {
  script({Replies(kBegun), Replies(kOpen), Replies(kDone)});
  const ChildResult result = pair({"--json"});
  EXPECT_EQ(result.status, 0);
  EXPECT_EQ(result.output, std::string(kBegun) + "\n" + kOpen + "\n" + kDone + "\n");
  EXPECT_EQ(result.errors, "");
}

TEST_F(PairVerb, ExplainsWhyPairingCannotBegin) {
  script({Replies(R"({"ok":false,"error":"already_enrolled"})")});
  const ChildResult result = pair();
  EXPECT_EQ(result.status, 1);
  EXPECT_EQ(result.output, "");
  EXPECT_EQ(result.errors, "kioskctl: This terminal is already paired. (already_enrolled)\n");
}

TEST_F(PairVerb, EndsWhenTheDaemonSaysThatTheCodeExpired) {
  script({Replies(kBegun), Replies(kOpen), Replies(R"({"ok":false,"error":"expired"})")});
  const ChildResult result = pair();
  EXPECT_EQ(result.status, 1);
  EXPECT_EQ(result.errors,
            "kioskctl: The code has expired; begin again to get a new one. (expired)\n");
}

TEST_F(PairVerb, EndsWhenTheTimeIsUpAndTheLastCheckBringsNothing) {
  script({Replies(R"({"ok":true,"code":"ABCDEFGH","expiresInSeconds":0})"), Replies(kOpen)});
  const ChildResult result = pair();
  EXPECT_EQ(result.status, 1);
  EXPECT_EQ(result.errors,
            "kioskctl: The code has expired; begin again to get a new one. (expired)\n");
  EXPECT_THAT(requests(), ElementsAre(kBegin, kCheck));
}

TEST_F(PairVerb, SaysThatTheTimeIsUpAlsoWithJson) {
  script({Replies(R"({"ok":true,"code":"ABCDEFGH","expiresInSeconds":0})"), Replies(kOpen)});
  const ChildResult result = pair({"--json"});
  EXPECT_EQ(result.status, 1);
  EXPECT_THAT(result.errors, HasSubstr("The code has expired"));
}

TEST_F(PairVerb, TakesACodeThatWasClaimedInItsLastMoment) {
  script({Replies(R"({"ok":true,"code":"ABCDEFGH","expiresInSeconds":0})"), Replies(kDone)});
  EXPECT_EQ(pair().status, 0);
}

TEST_F(PairVerb, GoesOnWhileThePortalCannotBeReached) {
  script({Replies(kBegun), Replies(kUnreachable), Replies(kUnreachable), Replies(kOpen),
          Replies(kDone)});
  const ChildResult result = pair();
  EXPECT_EQ(result.status, 0);
  EXPECT_EQ(result.errors, "");
  const std::string note = "The portal cannot be reached. (unreachable)\n";
  const std::size_t first = result.output.find(note);
  EXPECT_NE(first, std::string::npos);
  EXPECT_EQ(result.output.find(note, first + 1), std::string::npos);
}

TEST_F(PairVerb, ExplainsASetUpThatFailed) {
  script({Replies(kBegun), Replies(R"({"ok":false,"error":"filevault_on"})")});
  const ChildResult result = pair();
  EXPECT_EQ(result.status, 1);
  EXPECT_EQ(result.errors,
            "kioskctl: FileVault is on, so the Mac cannot log in by itself. (filevault_on)\n");
}

TEST_F(PairVerb, EndsWhenTheChannelCloses) {
  script({Replies(kBegun), Closes()});
  const ChildResult result = pair();
  EXPECT_EQ(result.status, 3);
  EXPECT_EQ(result.errors, "kioskctl: kioskd closed the command channel without an answer.\n");
}

TEST_F(PairVerb, RefusesAReplyWithoutACodeOrItsLife) {
  script({Replies(R"({"ok":true,"expiresInSeconds":900})"),
          Replies(R"({"ok":true,"code":"ABCDEFGH"})"),
          Replies(R"({"ok":true,"code":"ABCDEFGH","expiresInSeconds":-1})")});
  EXPECT_EQ(pair().errors, "kioskctl: kioskd's reply lacks \"code\".\n");
  EXPECT_EQ(pair().errors, "kioskctl: kioskd's reply lacks \"expiresInSeconds\".\n");
  EXPECT_EQ(pair().status, 3);
}

TEST_F(PairVerb, EndsWhenNobodyCanReadTheCode) {
  script({Replies(kBegun), Replies(kOpen)});
  ChildSetup setup;
  setup.arguments = {"/bin/sh", "-c", KIOSKCTL_PATH " pair --interval 0.01 >/dev/full"};
  setup.environment = {{"KIOSK_CHANNEL", channel()}};
  const ChildResult result = RunChild(setup);
  EXPECT_EQ(result.status, 1);
  EXPECT_EQ(result.errors, "kioskctl: Standard output cannot be written to.\n");
  EXPECT_THAT(requests(), ElementsAre(kBegin, kCheck));
}

TEST_F(PairVerb, BelievesNoLifeBeyondADay) {
  script({Replies(R"({"ok":true,"code":"ABCDEFGH","expiresInSeconds":1e300})")});
  EXPECT_EQ(pair({"--no-wait"}).output, "Pairing code: ABCDEFGH\nThe code is valid for 1440:00.\n");
}

}  // namespace
