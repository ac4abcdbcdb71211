// The real command channel of a booted Mac.
#include <sys/resource.h>

#include <chrono>
#include <thread>

#include "tests/system/SystemTest.h"

namespace {

class SystemChannelTest : public SystemTest {
 protected:
  void SetUp() override { boot(); }
  const Json status = {{"cmd", "status"}};
};

TEST_F(SystemChannelTest, AnswersStatusToTheApplication) {
  const Json reply = ask(status);
  EXPECT_EQ(
      reply,
      (Json{{"ok", true},
            {"enrolled", 0},
            {"provisioned", false},
            {"maintenance", false},
            {"account", "BrindlexKiosk"},
            {"terminalName", ""},
            {"signIn", {{"microsoft", true}, {"email", false}, {"extraHosts", Json::array()}}},
            {"kioskSession", 0}}));
}

TEST_F(SystemChannelTest, NeverHearsAPeerWithoutTheApplicationsSignature) {
  const std::string impostor = "/private/tmp/kioskctl";
  mac.write(impostor, mac.read(kKioskctl), 0755);
  const Finished finished = run({impostor, "status"});
  EXPECT_EQ(finished.status, 3) << finished.output;
  EXPECT_TRUE(Eventually([&] {
    for (const LogLine& line : mac.log()) {
      if (line.level == "Error" && line.text.starts_with("pid ") &&
          line.text.ends_with(" failed the code signing requirement; rejected")) {
        return true;
      }
    }
    return false;
  }));
  mac.write(impostor + ".signature",
            R"({"anchor": "apple generic", "identifier": "com.brindlex.stream", "team": "X"})");
  EXPECT_EQ(run({impostor, "status"}).status, 3);
}

TEST_F(SystemChannelTest, AnswersStatusWhileAPortalRequestHangs) {
  portal.admin(
      {"misbehave", "slow", "--delay-ms", "20000", "--path", "/api/kiosk/pair", "--times", "1"});
  ChannelClient waiting = peer();
  const auto start = std::chrono::steady_clock::now();
  waiting.sendFrame(kMessageWithReply, 1, {{"request", R"({"cmd": "pair.begin"})"}});
  // Once the tools of pair.begin have run, the work queue waits for the portal.
  ASSERT_TRUE(Eventually([&] { return mac.countRuns("/usr/bin/defaults", {"read"}) > 0; }));
  EXPECT_EQ(ask(status)["ok"], true);
  const auto late = waiting.receive();
  ASSERT_TRUE(late);
  EXPECT_EQ(Json::parse(late->dictionary.at("response")),
            (Json{{"ok", false}, {"error", "unreachable"}}))
      << "fifteen seconds without a byte end the request";
  EXPECT_GE(std::chrono::steady_clock::now() - start, std::chrono::seconds(10));
}

TEST_F(SystemChannelTest, ServesOthersWhileOnePeerOpensAThousandConnections) {
  rlimit limit = {};
  getrlimit(RLIMIT_NOFILE, &limit);
  limit.rlim_cur = limit.rlim_max;
  setrlimit(RLIMIT_NOFILE, &limit);
  std::vector<ChannelClient> crowd;
  for (int i = 0; i < 1000; ++i) {
    crowd.push_back(peer());
    if (crowd.back().connected()) crowd.back().sendBytes("\x10");
  }
  const Finished other = run({kKioskctl, "--json", "status"});
  EXPECT_EQ(other.status, 0) << other.output;
}

TEST_F(SystemChannelTest, ServesOthersWhileAPeerNeverReads) {
  ChannelClient greedy = peer();
  const std::string request =
      ChannelClient::frame(kMessageWithReply, 1, {{"request", status.dump()}});
  std::thread flood([&] {
    for (int i = 0; i < 20'000 && greedy.sendBytes(request); ++i) {
    }
  });
  EXPECT_EQ(run({kKioskctl, "--json", "status"}).status, 0);
  EXPECT_EQ(ask(status)["ok"], true);
  killDaemon();  // frees the flood, should it still wait
  flood.join();
}

TEST_F(SystemChannelTest, EndsAConnectionThatBreaksTheRules) {
  for (const std::string& bytes :
       {std::string("\xFF\xFF\xFF\x7F", 4), std::string("\x00\x00\x00\x00", 4),
        std::string("\x06\x00\x00\x00\x09\x01\x00\x00\x00\x00", 10),
        std::string("\x06\x00\x00\x00\x02\x01\x00\x00\x00x", 10)}) {
    ChannelClient rude = peer();
    rude.sendBytes(bytes);
    EXPECT_TRUE(rude.isClosed());
  }
  EXPECT_EQ(ask(status)["ok"], true);
}

TEST_F(SystemChannelTest, AnswersDeepAndBrokenJsonWithBadRequest) {
  const Json badRequest = {{"ok", false}, {"error", "bad_request"}};
  ChannelClient client = peer();
  EXPECT_EQ(client.ask(std::string(100'000, '[')), badRequest);
  EXPECT_EQ(client.ask("{\"cmd\": " + std::string(50'000, '[') + std::string(50'000, ']') + "}"),
            badRequest);
  EXPECT_EQ(client.ask(std::string("{\"cmd\": \"\xC3\x28\"}")), badRequest);
  EXPECT_EQ(client.ask(status)["ok"], true);
}

TEST_F(SystemChannelTest, KioskctlExplainsWhatTheDaemonSays) {
  const Finished restart = run({kKioskctl, "restart"});
  EXPECT_EQ(restart.status, 1);
  EXPECT_EQ(run({kKioskctl, "check", "O0O0O0O0"}).status, 1);
  EXPECT_EQ(run({kKioskctl, "no-such-verb"}).status, 2);
  const Finished sent = run({kKioskctl, "send", R"({"cmd": "no.such"})"});
  EXPECT_EQ(sent.status, 1);
  EXPECT_NE(sent.output.find("unknown_command"), std::string::npos);
  halt();
  EXPECT_EQ(run({kKioskctl, "status"}).status, 3);
}

}  // namespace
