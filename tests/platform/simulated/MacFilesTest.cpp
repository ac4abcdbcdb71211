// The simulated Mac's files and faults.
#include <sys/stat.h>

#include <thread>

#include "platform/simulated/Faults.h"
#include "platform/simulated/MacFiles.h"
#include "tests/platform/simulated/SimulatedRoot.h"

namespace platform {
namespace {

class MacFiles : public contract::SimulatedRoot {
 protected:
  const MacTree _mac;
  const MacUser _user{.name = "kiosk",
                      .realName = "Kiosk: one",
                      .uid = 501,
                      .gid = 20,
                      .home = "/Users/kiosk",
                      .shell = "/bin/zsh",
                      .generatedUid = "U",
                      .passwordHash = std::nullopt};
};

TEST_F(MacFiles, KeepUserRecords) {
  ASSERT_TRUE(_mac.writeUser(_user));
  MacUser second = _user;
  second.name = "admin";
  second.uid = 502;
  second.passwordHash = "$6$x";
  ASSERT_TRUE(_mac.writeUser(second));
  ASSERT_EQ(_mac.users().size(), 2u);
  EXPECT_EQ(_mac.users().front().name, "admin");
  EXPECT_EQ(_mac.userWithUid(502)->passwordHash, "$6$x");
  EXPECT_EQ(_mac.userNamed("kiosk")->realName, "Kiosk: one");
  EXPECT_TRUE(_mac.removeUser("admin"));
  EXPECT_FALSE(_mac.removeUser("admin"));
  EXPECT_FALSE(_mac.userWithUid(502));
}

TEST_F(MacFiles, KeepAttributesTheyDoNotKnow) {
  ASSERT_TRUE(_mac.writeUser(_user));
  const std::string path = std::string(kMacUsers) + "/kiosk.plist";
  Json record = *_mac.readPropertyList(path);
  EXPECT_EQ(record["passwd"], Json({"********"}));
  EXPECT_EQ(record["uid"], Json({"501"}));
  record["hint"] = {"none"};
  ASSERT_TRUE(_mac.writePropertyList(path, record, PropertyListFormat::kBinary, 0600));
  ASSERT_TRUE(_mac.writeUser(_user));
  EXPECT_EQ((*_mac.readPropertyList(path))["hint"], Json({"none"}));
}

TEST_F(MacFiles, WriteTheFlatView) {
  ASSERT_TRUE(_mac.writeUser(_user));
  ASSERT_TRUE(
      _mac.writeGroup({.name = "admin", .gid = 80, .generatedUid = "G", .users = {"root", "a"}}));
  ASSERT_TRUE(_mac.writeFlatView());
  EXPECT_EQ(contract::ReadFile("/etc/passwd"), "kiosk:x:501:20:Kiosk one:/Users/kiosk:/bin/zsh\n");
  EXPECT_EQ(contract::ReadFile("/etc/group"), "admin:x:80:root,a\n");
  EXPECT_EQ(_mac.groupNamed("admin")->users, (std::vector<std::string>{"root", "a"}));
  EXPECT_TRUE(_mac.removeGroup("admin"));
}

TEST_F(MacFiles, LiveBelowARootSeenFromOutside) {
  const MacTree outside("/private/tmp/mac");
  contract::WriteFile("/private/tmp/mac" + std::string(kMacUsers) + "/x.plist", "not a record");
  ASSERT_TRUE(outside.writeUser(_user));
  EXPECT_EQ(outside.users().size(), 1u);
  EXPECT_TRUE(_mac.users().empty());
}

TEST_F(MacFiles, AreReplacedWholeWithTheirMode) {
  contract::WriteFile("/private/tmp/f", "old");
  ASSERT_TRUE(_mac.replace("/private/tmp/f", "new", 0640));
  EXPECT_EQ(_mac.read("/private/tmp/f"), "new");
  struct stat status {};
  ASSERT_EQ(stat("/private/tmp/f", &status), 0);
  EXPECT_EQ(status.st_mode & 07777, 0640u);
  EXPECT_FALSE(_mac.replace("/nowhere/f", "new", 0640));
  EXPECT_FALSE(_mac.replace("/private/tmp", "new", 0640));
  EXPECT_FALSE(_mac.read("/private/tmp"));
}

TEST_F(MacFiles, CheckPasswords) {
  const std::optional<std::string> hash = MacPasswordHash("geheim");
  ASSERT_TRUE(hash);
  EXPECT_EQ(hash->rfind("$6$", 0), 0u);
  EXPECT_NE(MacPasswordHash("geheim"), hash);
  EXPECT_TRUE(MacPasswordMatches("geheim", *hash));
  EXPECT_FALSE(MacPasswordMatches("Geheim", *hash));
  for (const char* malformed : {"", "*", "*0", "********", "$6$", "$9$x"}) {
    EXPECT_FALSE(MacPasswordMatches("geheim", malformed)) << malformed;
  }
}

class Faults : public contract::SimulatedRoot {};

TEST_F(Faults, AreAbsentWithoutTheirFileOrWhenItIsMalformed) {
  EXPECT_FALSE(TakeFault("/usr/bin/x"));
  setFaults("{");
  EXPECT_FALSE(TakeFault("/usr/bin/x"));
  setFaults(R"([1, null, {"target": 7}])");
  EXPECT_FALSE(TakeFault("/usr/bin/x"));
}

TEST_F(Faults, SayWhatTheCallShallDo) {
  setFaults(R"([{"target": "/x", "status": 3, "output": "out", "errorOutput": "err", "signal": 9,
                 "effect": true, "delayMs": 1}])");
  const std::optional<Fault> fault = TakeFault("/x", {"a"});
  ASSERT_TRUE(fault);
  EXPECT_EQ(fault->status, 3);
  EXPECT_EQ(fault->output, "out");
  EXPECT_EQ(fault->errorOutput, "err");
  EXPECT_EQ(fault->signal, 9);
  EXPECT_TRUE(fault->effect);
  EXPECT_FALSE(TakeFault("/y", {"a"}));
}

TEST_F(Faults, MatchTheFirstArguments) {
  setFaults(R"([{"target": "/x", "arguments": ["a", "b"]}])");
  EXPECT_FALSE(TakeFault("/x", {"a"}));
  EXPECT_FALSE(TakeFault("/x", {"b", "a"}));
  EXPECT_TRUE(TakeFault("/x", {"a", "b"}));
  EXPECT_TRUE(TakeFault("/x", {"a", "b", "c"}));
}

TEST_F(Faults, AreUsedUpInOrder) {
  setFaults(
      R"([{"target": "/x", "times": 1, "status": 1}, {"target": "/x", "times": 1, "status": 2},
                {"target": "/x", "status": 3}])");
  for (const int status : {1, 2, 3, 3}) EXPECT_EQ(TakeFault("/x")->status, status);
}

TEST_F(Faults, AreCountedOnceEachHoweverManyTakeThem) {
  setFaults(R"([{"target": "/x", "times": 20}])");
  std::atomic<int> taken = 0;
  std::vector<std::thread> takers;
  for (int i = 0; i < 4; ++i) {
    takers.emplace_back([&] {
      for (int j = 0; j < 10; ++j) taken += TakeFault("/x") ? 1 : 0;
    });
  }
  for (std::thread& taker : takers) taker.join();
  EXPECT_EQ(taken, 20);
}

TEST_F(Faults, OfAServiceFailUnlessTheirStatusIsZero) {
  setFaults(R"([{"target": "a"}, {"target": "b", "status": 0}, {"target": "c", "status": 5}])");
  EXPECT_EQ(TakeServiceFault("a")->serviceError(), 1);
  EXPECT_NE(TakeServiceFault("a")->serviceErrorText(), "");
  EXPECT_FALSE(TakeServiceFault("b"));
  EXPECT_EQ(TakeServiceFault("c")->serviceError(), 5);
}

}  // namespace
}  // namespace platform
