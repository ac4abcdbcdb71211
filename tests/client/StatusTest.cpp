#include "tests/client/ChannelTest.h"

namespace {

using testing::ElementsAre;
using testing::HasSubstr;

class StatusVerb : public ChannelTest {};

constexpr const char* kStatus =
    R"({"ok":true,"enrolled":1,"provisioned":true,"maintenance":false,"account":"BrindlexKiosk",)"
    R"("terminalName":"Front desk","signIn":{"microsoft":true,"email":false,)"
    R"("extraHosts":["one.example","two.example"]},"kioskSession":0})";

TEST_F(StatusVerb, ShowsATable) {
  script({Replies(kStatus)});
  const ChildResult result = run({"status"});
  EXPECT_EQ(result.status, 0);
  EXPECT_EQ(result.output,
            "Paired          yes\n"
            "Set up          yes\n"
            "Maintenance     no\n"
            "Kiosk account   BrindlexKiosk\n"
            "Terminal name   Front desk\n"
            "Microsoft login yes\n"
            "E-mail login    no\n"
            "Extra hosts     one.example, two.example\n"
            "Kiosk session   no\n"
            "Problem         none\n");
  EXPECT_EQ(result.errors, "");
  EXPECT_THAT(requests(), ElementsAre(R"({"cmd":"status"})"));
}

TEST_F(StatusVerb, FailsWhenNobodyCanReadIt) {
  script({Replies(kStatus)});
  ChildSetup setup;
  setup.arguments = {"/bin/sh", "-c", KIOSKCTL_PATH " status >/dev/full"};
  setup.environment = {{"KIOSK_CHANNEL", channel()}};
  const ChildResult result = RunChild(setup);
  EXPECT_EQ(result.status, 1);
  EXPECT_EQ(result.errors, "kioskctl: Standard output cannot be written to.\n");
}

TEST_F(StatusVerb, ShowsWhatIsMissingAsUnknown) {
  script({Replies(R"({"ok":true,"signIn":{"extraHosts":[]},"terminalName":""})")});
  const ChildResult result = run({"status"});
  EXPECT_EQ(result.status, 0);
  EXPECT_THAT(result.output, HasSubstr("Paired          unknown\n"));
  EXPECT_THAT(result.output, HasSubstr("Terminal name   -\n"));
  EXPECT_THAT(result.output, HasSubstr("Microsoft login unknown\n"));
  EXPECT_THAT(result.output, HasSubstr("Extra hosts     -\n"));
}

TEST_F(StatusVerb, SurvivesValuesOfTheWrongType) {
  script({Replies(R"({"ok":true,"enrolled":"x","account":7,"signIn":[1],"error":{}})")});
  const ChildResult result = run({"status"});
  EXPECT_EQ(result.status, 0);
  EXPECT_THAT(result.output, HasSubstr("Kiosk account   -\n"));
  EXPECT_THAT(result.output, HasSubstr("Microsoft login unknown\n"));
  EXPECT_THAT(result.output, HasSubstr("Problem         none\n"));
}

TEST_F(StatusVerb, ExplainsTheTerminalsProblem) {
  script({Replies(R"({"ok":true,"enrolled":1,"error":"autologin_in_use"})")});
  EXPECT_THAT(run({"status"}).output,
              HasSubstr("Problem         Another account already logs in automatically. "
                        "(autologin_in_use)\n"));
}

TEST_F(StatusVerb, DoesNotLetANameSteerTheTerminal) {
  script({Replies(R"({"ok":true,"terminalName":"a\u001b[2Jb\nc\u009bd\u007fe"})")});
  EXPECT_THAT(run({"status"}).output, HasSubstr("Terminal name   a?[2Jb?c?d?e\n"));
}

TEST_F(StatusVerb, ExplainsADaemonThatIsStarting) {
  script({Replies(R"({"ok":false,"error":"starting","kioskSession":0})")});
  const ChildResult result = run({"status"});
  EXPECT_EQ(result.status, 1);
  EXPECT_EQ(result.output, "");
  EXPECT_EQ(result.errors, "kioskctl: kioskd is still starting. (starting)\n");
}

TEST_F(StatusVerb, PrintsTheRawReplyOnOneLineWithJson) {
  script({Replies("{\"ok\":true,\r\n \"future\":1}")});
  const ChildResult result = run({"status", "--json"});
  EXPECT_EQ(result.status, 0);
  EXPECT_EQ(result.output, "{\"ok\":true,   \"future\":1}\n");
}

TEST_F(StatusVerb, LeavesTheErrorToTheReplyWithJson) {
  script({Replies(R"({"ok":false,"error":"starting"})")});
  const ChildResult result = run({"--json", "status"});
  EXPECT_EQ(result.status, 1);
  EXPECT_EQ(result.output, "{\"ok\":false,\"error\":\"starting\"}\n");
  EXPECT_EQ(result.errors, "");
}

TEST_F(StatusVerb, TakesAReplyWithoutOkForARefusal) {
  script({Replies("{}")});
  const ChildResult result = run({"status"});
  EXPECT_EQ(result.status, 1);
  EXPECT_EQ(result.errors, "kioskctl: kioskd refused without a reason.\n");
}

}  // namespace
