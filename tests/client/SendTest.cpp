#include "simulator/client/Limits.h"
#include "tests/client/ChannelTest.h"

namespace {

using testing::ElementsAre;

class SendVerb : public ChannelTest {};

TEST_F(SendVerb, PrintsTheReplyAsItCame) {
  script({Replies(R"({"ok":true, "b":1, "a":2.50})")});
  const ChildResult result = run({"send", R"({"cmd":"anything","x":[1]})"});
  EXPECT_EQ(result.status, 0);
  EXPECT_EQ(result.output, "{\"ok\":true, \"b\":1, \"a\":2.50}\n");
  EXPECT_THAT(requests(), ElementsAre(R"({"cmd":"anything","x":[1]})"));
}

TEST_F(SendVerb, ExplainsAnErrorBesideTheReply) {
  script({Replies(R"({"ok":false,"error":"unknown_command"})")});
  const ChildResult result = run({"send", R"({"cmd":"no.such"})"});
  EXPECT_EQ(result.status, 1);
  EXPECT_EQ(result.output, "{\"ok\":false,\"error\":\"unknown_command\"}\n");
  EXPECT_EQ(result.errors, "kioskctl: kioskd does not know the command. (unknown_command)\n");
}

TEST_F(SendVerb, SendsWhatIsNoRequestAsItStands) {
  script({Replies(R"({"ok":false,"error":"bad_request"})")});
  for (const char* const request : {"[1,2]", "", "-1", "not json", "{\"cmd\":\"\xFF\"}"}) {
    EXPECT_EQ(run({"send", "--", request}).status, 1) << request;
  }
  EXPECT_THAT(requests(), ElementsAre("[1,2]", "", "-1", "not json", "{\"cmd\":\"\xFF\"}"));
}

TEST_F(SendVerb, ReadsTheRequestFromStandardInput) {
  script({Replies(R"({"ok":true})")});
  EXPECT_EQ(run({"send", "-"}, "{\"cmd\":\n\"status\"}\n").status, 0);
  EXPECT_THAT(requests(), ElementsAre("{\"cmd\":\n\"status\"}\n"));
}

TEST_F(SendVerb, PrintsTheReplyOnceWithJson) {
  script({Replies(R"({"ok":false,"error":"bad_request"})")});
  const ChildResult result = run({"send", "{", "--json"});
  EXPECT_EQ(result.output, "{\"ok\":false,\"error\":\"bad_request\"}\n");
  EXPECT_EQ(result.errors, "");
}

TEST_F(SendVerb, SendsTheLongestRequestThatAFrameHolds) {
  script({Replies(R"({"ok":true})")});
  const std::string longest(client::kMaximumRequestBytes, 'x');
  EXPECT_EQ(run({"send", "-"}, longest).status, 0);
  ASSERT_EQ(requests().size(), 1U);
  EXPECT_EQ(requests()[0], longest);
}

TEST_F(SendVerb, RefusesWhatAFrameCannotHold) {
  script({Replies(R"({"ok":true})")});
  const std::string tooLong(client::kMaximumRequestBytes + 1, 'x');
  for (const std::string& request : {tooLong, std::string("{\0}", 3)}) {
    const ChildResult result = run({"send", "-"}, request);
    EXPECT_EQ(result.status, 2);
    EXPECT_EQ(result.errors, "kioskctl: A request has at most 1048562 bytes and no zero byte.\n");
  }
  EXPECT_EQ(connections(), 0);
}

}  // namespace
