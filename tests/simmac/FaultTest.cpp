#include <chrono>
#include <filesystem>

#include "tests/simmac/TestMac.h"

namespace simmac {
namespace {

constexpr char kFdeSetup[] = "/usr/bin/fdesetup";

class Faults : public SimulatedMacTest {
 protected:
  static void add(const TestMac& mac, const std::string& target, const Words& options) {
    Words arguments = {"add", "--target", target};
    arguments.insert(arguments.end(), options.begin(), options.end());
    EXPECT_EQ(mac.simmac("fault", arguments).status, 0);
  }
};

TEST_F(Faults, ReplaceAToolsWork) {
  const TestMac mac;
  add(mac, "/usr/sbin/sysadminctl",
      {"--status", "9", "--output", "to out\n", "--error", "to err\n"});
  const RunResult result = mac.run({"/usr/sbin/sysadminctl", "-addUser", "kiosk"});
  EXPECT_EQ(result.status, 9);
  EXPECT_EQ(result.out, "to out\n");
  EXPECT_EQ(result.err, "to err\n");
  EXPECT_FALSE(mac.tree().userNamed("kiosk"));
  EXPECT_EQ(mac.journal().back()["output"], "to out\nto err\n");
}

TEST_F(Faults, WearOff) {
  const TestMac mac;
  add(mac, kFdeSetup, {"--times", "2", "--status", "1"});
  EXPECT_EQ(mac.run({kFdeSetup, "status"}).status, 1);
  EXPECT_EQ(mac.run({kFdeSetup, "status"}).status, 1);
  EXPECT_EQ(mac.run({kFdeSetup, "status"}).out, "FileVault is Off.\n");
}

TEST_F(Faults, MatchByTheFirstArguments) {
  const TestMac mac;
  add(mac, "/usr/bin/defaults", {"--argument", "read", "--argument", "/a", "--status", "5"});
  EXPECT_EQ(mac.run({"/usr/bin/defaults", "read", "/a", "key"}).status, 5);
  EXPECT_EQ(mac.run({"/usr/bin/defaults", "read", "/b", "key"}).status, 1);
}

TEST_F(Faults, TakeArgumentsThatBeginWithAHyphen) {
  const TestMac mac;
  add(mac, "/usr/sbin/sysadminctl", {"--argument", "-deleteUser", "--status", "5"});
  EXPECT_EQ(mac.run({"/usr/sbin/sysadminctl", "-deleteUser", "admin"}).status, 5);
  EXPECT_TRUE(mac.tree().userNamed("admin"));
}

TEST_F(Faults, MayLetTheWorkBeDone) {
  const TestMac mac;
  add(mac, "/usr/sbin/sysadminctl", {"--effect", "--status", "255", "--error", "odd\n"});
  const RunResult result = mac.run({"/usr/sbin/sysadminctl", "-addUser", "kiosk"});
  EXPECT_EQ(result.status, 255);
  EXPECT_EQ(result.err, "odd\n");
  EXPECT_TRUE(mac.tree().userNamed("kiosk"));
}

TEST_F(Faults, MayOnlyDelay) {
  const TestMac mac;
  add(mac, kFdeSetup, {"--delay-ms", "300", "--effect"});
  const auto start = std::chrono::steady_clock::now();
  EXPECT_EQ(mac.run({kFdeSetup, "status"}).out, "FileVault is Off.\n");
  EXPECT_GE(std::chrono::steady_clock::now() - start, std::chrono::milliseconds(300));
}

TEST_F(Faults, MayKillTheTool) {
  const TestMac mac;
  add(mac, kFdeSetup, {"--signal", "9", "--output", "half"});
  const RunResult result = mac.run({kFdeSetup, "status"});
  EXPECT_EQ(result.status, 128 + 9);
  EXPECT_EQ(result.out, "half");
  EXPECT_EQ(mac.journal().back()["signal"], 9);
}

TEST_F(Faults, HoldForOrdinaryUsersToo) {
  const TestMac mac;
  add(mac, kFdeSetup, {"--times", "1", "--status", "3"});
  EXPECT_EQ(mac.run({kFdeSetup, "status"}, "admin").status, 3);
  EXPECT_EQ(mac.run({kFdeSetup, "status"}, "admin").status, 0);
}

TEST_F(Faults, AreRefusedWithNumbersThatMeanNothing) {
  const TestMac mac;
  for (const Words& option :
       {Words{"--status", "256"}, Words{"--status", "-1"}, Words{"--signal", "0"},
        Words{"--signal", "65"}, Words{"--times", "0"}, Words{"--delay-ms", "-1"}}) {
    Words arguments = {"add", "--target", kFdeSetup, option[0] + "=" + option[1]};
    EXPECT_EQ(mac.simmac("fault", arguments).status, 2) << option[0] << " " << option[1];
  }
  EXPECT_EQ(
      mac.simmac("fault", {"add", "--target", "directory.openLocal", "--status=-14120"}).status, 0);
}

TEST_F(Faults, AreTakenWithAWarningForATargetNobodyKnows) {
  const TestMac mac;
  const RunResult result = mac.simmac("fault", {"add", "--target", "/usr/bin/fdsetup"});
  EXPECT_EQ(result.status, 0);
  EXPECT_EQ(result.err,
            "simmac: Nothing in a Mac is known to ask for faults of /usr/bin/fdsetup.\n");
  EXPECT_EQ(mac.simmac("fault", {"add", "--target", kFdeSetup}).err, "");
}

TEST_F(Faults, AreNotReplacedWhenTheyCannotBeRead) {
  const TestMac mac;
  const std::string damaged = R"([{"target": "/usr/bin/fdesetup",}])";
  mac.write(platform::kMacFaults, damaged);
  const RunResult result = mac.simmac("fault", {"add", "--target", kFdeSetup});
  EXPECT_EQ(result.status, 1);
  EXPECT_EQ(result.err, "simmac: " + mac.path(platform::kMacFaults) +
                            " is not a list of faults; \"fault MAC clear\" removes it.\n");
  EXPECT_EQ(mac.simmac("fault", {"list"}).status, 1);
  EXPECT_EQ(mac.read(platform::kMacFaults), damaged);
  EXPECT_EQ(mac.simmac("fault", {"clear"}).status, 0);
  EXPECT_EQ(mac.simmac("fault", {"add", "--target", kFdeSetup}).status, 0);
}

TEST_F(Faults, CanBeListedAndCleared) {
  const TestMac mac;
  add(mac, kFdeSetup, {"--status", "3"});
  EXPECT_EQ(Json::parse(mac.simmac("fault", {"list"}).out),
            Json::array({{{"target", kFdeSetup}, {"status", 3}}}));
  EXPECT_EQ(mac.simmac("fault", {"clear"}).status, 0);
  EXPECT_EQ(mac.run({kFdeSetup, "status"}).status, 0);
  EXPECT_EQ(mac.simmac("fault", {"clear"}).status, 0);
}

}  // namespace
}  // namespace simmac
