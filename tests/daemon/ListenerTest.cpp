// The command channel in front of a KioskDaemon: the real queues and the real channel, in one
// process with its peers.
#include <fcntl.h>
#include <gtest/gtest.h>
#include <sys/socket.h>
#include <sys/un.h>
#include <unistd.h>

#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <future>
#include <memory>
#include <optional>
#include <string>
#include <utility>
#include <vector>

#include "core/KioskListener.h"
#include "core/RunKioskDaemon.h"
#include "tests/support/ChannelClient.h"
#include "tests/support/Child.h"
#include "tests/support/MacFolder.h"

namespace {

constexpr char kSocket[] = "/private/var/run/com.brindlex.stream.kioskd.socket";
constexpr char kProperSignature[] =
    R"({"anchor": "apple generic", "identifier": "com.brindlex.stream", "team": "Q4ZT8K2M6R"})";

int ListeningSocket() {
  const int socket = ::socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0);
  sockaddr_un address = {};
  address.sun_family = AF_UNIX;
  std::strncpy(address.sun_path, kSocket, sizeof address.sun_path - 1);
  if (bind(socket, reinterpret_cast<sockaddr*>(&address), sizeof address) != 0 ||
      listen(socket, 128) != 0) {
    return -1;
  }
  return socket;
}

class ListenerTest : public testing::Test {
 protected:
  ListenerTest() : mac({"--tools-only"}) {
    const std::string executable = std::filesystem::read_symlink("/proc/self/exe");
    const int proc = open("/proc", O_RDONLY | O_DIRECTORY | O_CLOEXEC);
    mac.enter();
    setenv("SIMULATED_MAC_PROC", std::to_string(proc).c_str(), 1);
    std::filesystem::create_directories(std::filesystem::path(executable).parent_path());
    signature = executable + ".signature";
    mac.write(signature, kProperSignature);
    const int socket = ListeningSocket();
    setenv("SIMULATED_MAC_SERVICES",
           ("com.brindlex.stream.kioskd=" + std::to_string(socket)).c_str(), 1);
  }

  ~ListenerTest() override {
    // Whatever a handler still does is done before the Mac goes.
    if (daemon) daemon->queue().sync([] {});
  }

  void listen() { listener.emplace(KioskListen(daemon)); }

  void start() {
    daemon->queue().sync([this] { daemon->start(); });
    listen();
  }

  std::string pidText() const { return std::to_string(getpid()); }

  MacFolder mac;
  std::string signature;
  std::shared_ptr<KioskDaemon> daemon = std::make_shared<KioskDaemon>();
  std::optional<platform::ChannelListener> listener;
};

const Json kBadRequest = {{"ok", false}, {"error", "bad_request"}};
const std::vector<LogLine> kStarted = {{"Default", "started: not enrolled"}};
const Json kUnknownCommand = {{"ok", false}, {"error", "unknown_command"}};

TEST_F(ListenerTest, AnswersStatusFromThePublishedSnapshot) {
  start();
  const Json status = ChannelClient(kSocket).ask({{"cmd", "status"}});
  EXPECT_EQ(status["ok"], true);
  EXPECT_EQ(status["enrolled"], 0);
  EXPECT_EQ(status["kioskSession"], 0);
  EXPECT_FALSE(status.contains("uid"));
}

TEST_F(ListenerTest, AnswersStartingBeforeAnythingIsPublished) {
  listen();
  EXPECT_EQ(ChannelClient(kSocket).ask({{"cmd", "status"}}),
            (Json{{"ok", false}, {"error", "starting"}, {"kioskSession", 0}}));
}

TEST_F(ListenerTest, AnswersStatusWhileTheWorkQueueIsBusy) {
  start();
  std::promise<void> release;
  daemon->queue().async([&] { release.get_future().wait(); });
  ChannelClient waiting(kSocket);
  waiting.sendFrame(kMessageWithReply, 7, {{"request", R"({"cmd": "nothing"})"}});
  EXPECT_EQ(ChannelClient(kSocket).ask({{"cmd", "status"}})["ok"], true);
  release.set_value();
  const auto late = waiting.receive();
  ASSERT_TRUE(late);
  EXPECT_EQ(late->number, 7U);
  EXPECT_EQ(Json::parse(late->dictionary.at("response")), kUnknownCommand);
}

TEST_F(ListenerTest, AnswersCommandsOfOnePeerInOrder) {
  start();
  ChannelClient client(kSocket);
  for (std::uint32_t number = 1; number <= 50; ++number) {
    client.sendFrame(kMessageWithReply, number, {{"request", "{}"}});
  }
  for (std::uint32_t number = 1; number <= 50; ++number) {
    const auto reply = client.receive();
    ASSERT_TRUE(reply);
    EXPECT_EQ(reply->number, number);
  }
}

TEST_F(ListenerTest, RefusesWhatIsNoJsonObject) {
  start();
  ChannelClient client(kSocket);
  for (const std::string& text :
       {std::string("[1, 2]"), std::string("5"), std::string("{\"cmd\": \"status\""),
        std::string(""), std::string("null"), std::string("\"status\""),
        std::string("{\"cmd\": \"\xFF\"}"), std::string("{\"cmd\": 1e999}"),
        std::string(100'000, '['), std::string("{\"cmd\": \"\\ud800\"}"), std::string("{} {}")}) {
    EXPECT_EQ(client.ask(text), kBadRequest) << text.substr(0, 40);
  }
  EXPECT_EQ(client.ask({{"cmd", "status"}})["ok"], true);
}

TEST_F(ListenerTest, RefusesARequestThatIsTooLong) {
  start();
  ChannelClient client(kSocket);
  const std::string longest =
      "{\"cmd\": \"" + std::string((std::size_t{64} << 10) - 11, 'x') + "\"}";
  ASSERT_EQ(longest.size(), std::size_t{64} << 10);
  EXPECT_EQ(client.ask(longest), kUnknownCommand);
  EXPECT_EQ(client.ask(longest + " "), kBadRequest);
}

TEST_F(ListenerTest, RefusesAMessageWithoutARequest) {
  start();
  ChannelClient client(kSocket);
  client.sendFrame(kMessageWithReply, 3, {{"other", "{}"}});
  const auto reply = client.receive();
  ASSERT_TRUE(reply);
  EXPECT_EQ(Json::parse(reply->dictionary.at("response")), kBadRequest);
}

TEST_F(ListenerTest, HandsAnObjectWithoutACommandToTheDispatcher) {
  start();
  ChannelClient client(kSocket);
  EXPECT_EQ(client.ask(std::string("{}")), kUnknownCommand);
  EXPECT_EQ(client.ask(std::string(R"({"cmd": 5})")), kUnknownCommand);
  EXPECT_EQ(client.ask(std::string(R"({"cmd": "Status"})")), kUnknownCommand);
  EXPECT_EQ(client.ask(std::string(R"({"cmd": "status\u0000"})")), kUnknownCommand);
  EXPECT_EQ(client.ask(std::string(R"({"cmd": "power.gets"})")), kUnknownCommand);
}

TEST_F(ListenerTest, DropsAMessageThatExpectsNoReply) {
  start();
  ChannelClient client(kSocket);
  client.sendFrame(kMessageWithoutReply, 1, {{"request", R"({"cmd": "pair.begin"})"}});
  client.sendFrame(kMessageWithReply, 2, {{"request", R"({"cmd": "nothing"})"}});
  const auto reply = client.receive();
  ASSERT_TRUE(reply);
  EXPECT_EQ(reply->number, 2U);
  EXPECT_TRUE(mac.runs("/usr/bin/fdesetup").empty()) << "the dropped command ran";
  EXPECT_EQ(mac.log(), kStarted);
}

TEST_F(ListenerTest, NeverHearsAPeerWithAnotherSignature) {
  start();
  std::size_t rejected = 0;
  for (const auto& [key, value] : {std::pair{"anchor", "none"},
                                   {"identifier", "com.brindlex.streams"},
                                   {"team", "AAAAAAAAAA"}}) {
    Json other = Json::parse(kProperSignature);
    other[key] = value;
    mac.write(signature, other.dump());
    ChannelClient client(kSocket);
    client.sendFrame(kMessageWithReply, 1, {{"request", R"({"cmd": "status"})"}});
    EXPECT_TRUE(client.isClosed()) << key;
    ++rejected;
    EXPECT_TRUE(Eventually([&] {
      return mac.countErrors("pid " + pidText() +
                             " failed the code signing requirement; rejected") == rejected;
    })) << key;
  }
}

TEST_F(ListenerTest, DropsAPeerWhoseRequirementCannotBeApplied) {
  start();
  mac.addFault({{"target", "channel.setCodeSigningRequirement"}, {"times", 1}, {"status", 45}});
  EXPECT_TRUE(ChannelClient(kSocket).isClosed());
  EXPECT_EQ(mac.countErrors("pid " + pidText() +
                            ": cannot apply the code signing requirement; dropping it"),
            1U);
  EXPECT_EQ(ChannelClient(kSocket).ask({{"cmd", "status"}})["ok"], true) << "the next is served";
}

TEST_F(ListenerTest, ServesOthersWhileAPeerNeverReadsItsReplies) {
  start();
  ChannelClient greedy(kSocket);
  const std::string request = ChannelClient::frame(kMessageWithReply, 1, {{"request", "{}"}});
  for (int i = 0; i < 200; ++i) greedy.sendBytes(request);
  ChannelClient half(kSocket);
  half.sendBytes(request.substr(0, 7));
  EXPECT_EQ(ChannelClient(kSocket).ask({{"cmd", "status"}})["ok"], true);
  EXPECT_EQ(ChannelClient(kSocket).ask(std::string("{}")), kUnknownCommand);
}

TEST_F(ListenerTest, SurvivesPeersThatLeaveBeforeTheirReply) {
  start();
  std::promise<void> release;
  daemon->queue().async([&] { release.get_future().wait(); });
  for (int i = 0; i < 20; ++i) {
    ChannelClient(kSocket).sendFrame(kMessageWithReply, 1, {{"request", "{}"}});
  }
  release.set_value();
  EXPECT_EQ(ChannelClient(kSocket).ask(std::string("{}")), kUnknownCommand);
  EXPECT_EQ(mac.log(), kStarted) << "a peer that leaves is nothing to talk about";
}

TEST_F(ListenerTest, RefusesToRunFromAPathThatDoesNotExistInTheMac) {
  testing::internal::CaptureStderr();
  EXPECT_EQ(RunKioskDaemon(), 1);
  const std::string said = testing::internal::GetCapturedStderr();
  EXPECT_EQ(said.find("[BrindlexKioskHelper] BrindlexKioskHelper 2026.10.15 on "
                      "com.brindlex.stream.kioskd\n"),
            0U);
  EXPECT_NE(said.find("[BrindlexKioskHelper] refusing to run: "), std::string::npos) << said;
}

}  // namespace
