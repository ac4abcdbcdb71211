#include <sys/socket.h>
#include <sys/un.h>
#include <unistd.h>

#include "tests/client/ChannelTest.h"

namespace {

using testing::HasSubstr;

class ChannelFailure : public ChannelTest {
 protected:
  /// Expects that "status" ends with status 3 and this sentence.
  void expectNoAnswer(const std::string& sentence) const {
    const ChildResult result = run({"status", "--timeout", "30"});
    EXPECT_EQ(result.status, 3);
    EXPECT_EQ(result.output, "");
    EXPECT_EQ(result.errors, "kioskctl: " + sentence + "\n");
  }
};

constexpr const char* kBreaksRules = "kioskd's answer breaks the rules of the command channel.";
constexpr const char* kClosed = "kioskd closed the command channel without an answer.";

TEST_F(ChannelFailure, NamesASocketThatIsNotThere) {
  expectNoAnswer("The command channel cannot be reached at " + channel() +
                 ": No such file or directory.");
}

TEST_F(ChannelFailure, NamesASocketThatNobodyListensOn) {
  const int listener = socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0);
  sockaddr_un address{};
  address.sun_family = AF_UNIX;
  channel().copy(address.sun_path, sizeof address.sun_path - 1);
  ASSERT_EQ(bind(listener, reinterpret_cast<const sockaddr*>(&address), sizeof address), 0);
  close(listener);
  expectNoAnswer("The command channel cannot be reached at " + channel() + ": Connection refused.");
}

TEST_F(ChannelFailure, RefusesAPathThatNoSocketCanHave) {
  const ChildResult result = RunChild(Kioskctl("/" + std::string(200, 'x'), {"status"}));
  EXPECT_EQ(result.status, 3);
  EXPECT_THAT(result.errors, HasSubstr("File name too long"));
}

TEST_F(ChannelFailure, ReportsAConnectionClosedWithoutAnAnswer) {
  script({Closes()});
  expectNoAnswer(kClosed);
}

TEST_F(ChannelFailure, ReportsAnAnswerThatIsCutOff) {
  const std::string whole = ReplyFrame(1, "response", R"({"ok":true})");
  script({Closes(whole.substr(0, 2)), Closes(whole.substr(0, 4)),
          Closes(whole.substr(0, whole.size() - 1))});
  for (int step = 0; step < 3; ++step) expectNoAnswer(kClosed);
}

TEST_F(ChannelFailure, BoundsTheWaitForTheRestOfAnAnswer) {
  script({Sends(ReplyFrame(1, "response", R"({"ok":true})").substr(0, 10))});
  const ChildResult result = run({"status", "--timeout", "0.2"});
  EXPECT_EQ(result.status, 3);
  EXPECT_EQ(result.errors, "kioskctl: kioskd did not answer in time (200 ms).\n");
}

TEST_F(ChannelFailure, ReportsADaemonThatDoesNotAnswerInTime) {
  script({StaysSilent()});
  const ChildResult result = run({"status", "--timeout", "1"});
  EXPECT_EQ(result.status, 3);
  EXPECT_EQ(result.errors, "kioskctl: kioskd did not answer in time (1000 ms).\n");
}

TEST_F(ChannelFailure, RefusesAReplyThatIsTooLong) {
  script({Sends(std::string("\x01\x00\x10\x00\x03", 5))});
  expectNoAnswer(kBreaksRules);
}

TEST_F(ChannelFailure, TakesTheLongestReply) {
  const std::string head = R"({"ok":true,"x":")";
  const std::size_t room = (1U << 20) - 5 - sizeof("response") - 1 - head.size() - 2;
  script({Replies(head + std::string(room, 'x') + "\"}")});
  EXPECT_EQ(run({"status"}).status, 0);
}

TEST_F(ChannelFailure, RefusesFramesThatAreNoReply) {
  const auto withKind = [](char kind) {
    std::string frame = ReplyFrame(1, "response", R"({"ok":true})");
    frame[4] = kind;
    return frame;
  };
  script({Sends(withKind(2)), Sends(withKind(4)), Sends(ReplyFrame(7, "response", "{}")),
          Sends(ReplyFrame(1, "answer", "{}")), Sends(std::string("\x05\0\0\0\x03\1\0\0\0x", 10)),
          Sends(std::string("\x06\0\0\0\x03\1\0\0\0x", 10)), Sends(std::string(4, '\0'))});
  for (int step = 0; step < 7; ++step) expectNoAnswer(kBreaksRules);
}

TEST_F(ChannelFailure, RefusesAReplyThatIsNoJsonObject) {
  const std::string deep = R"({"ok":true,"x":)" + std::string(65, '[') + std::string(65, ']') + "}";
  script({Replies("hello"), Replies(""), Replies("[]"), Replies("{\"ok\":true"),
          Replies("{\"ok\":true}x"), Replies("{\"x\":\"\xFF\"}"), Replies(deep)});
  for (int step = 0; step < 7; ++step) expectNoAnswer("kioskd's reply is no JSON object.");
}

TEST_F(ChannelFailure, IsToldWithJsonAsWell) {
  script({Replies("hello")});
  const ChildResult result = run({"status", "--json"});
  EXPECT_EQ(result.status, 3);
  EXPECT_EQ(result.output, "");
  EXPECT_EQ(result.errors, "kioskctl: kioskd's reply is no JSON object.\n");
}

}  // namespace
