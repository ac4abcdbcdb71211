#include <fcntl.h>
#include <sys/file.h>
#include <unistd.h>

#include <regex>

#include "simulator/mac/Descriptor.h"
#include "tests/simmac/TestMac.h"

namespace simmac {
namespace {

class FdeSetupTool : public SimulatedMacTest {};
class ShutdownTool : public SimulatedMacTest {};
class PKillTool : public SimulatedMacTest {};
class LaunchCtlTool : public SimulatedMacTest {};
class Journal : public SimulatedMacTest {};
class Status : public SimulatedMacTest {};

constexpr char kUsage[] =
    "usage: shutdown [-] [-h | -r | -s | -k] [-o [-n]] [-q] time [warning-message ...]\n";

TEST_F(FdeSetupTool, AnswersEverybody) {
  const TestMac mac;
  EXPECT_EQ(mac.simmac("set", {"filevault", "on"}).status, 0);
  const RunResult result = mac.run({"/usr/bin/fdesetup", "status"}, "admin");
  EXPECT_EQ(result.status, 0);
  EXPECT_EQ(result.out, "FileVault is On.\n");
}

TEST_F(ShutdownTool, WritesItsRequestWithoutARunningMachine) {
  const TestMac mac;
  const RunResult result = mac.run({"/sbin/shutdown", "-r", "now"});
  EXPECT_EQ(result.status, 0);
  EXPECT_EQ(result.out, "Shutdown NOW!\n");
  EXPECT_EQ(mac.read("/private/var/simulated/power"), "restart");
  (void)mac.run({"/sbin/shutdown", "-h", "now"});
  EXPECT_EQ(mac.read("/private/var/simulated/power"), "halt");
}

TEST_F(ShutdownTool, ChecksTheCallerBeforeTheArguments) {
  const TestMac mac;
  const RunResult result = mac.run({"/sbin/shutdown", "now"}, "admin");
  EXPECT_EQ(result.status, 1);
  EXPECT_EQ(result.err, "shutdown: NOT super-user\n");
}

TEST_F(ShutdownTool, SaysWhenItIsToldALaterTime) {
  const TestMac mac;
  const RunResult result = mac.run({"/sbin/shutdown", "-r", "0330"});
  EXPECT_EQ(result.status, 0);
  EXPECT_TRUE(std::regex_match(
      result.out,
      std::regex(R"(Shutdown at [A-Z][a-z]{2} [A-Z][a-z]{2} [ \d]\d 03:30:00 \d{4}\.\n)")))
      << result.out;
  EXPECT_TRUE(std::regex_match(result.err, std::regex(R"(shutdown: \[pid \d+\]\n)"))) << result.err;
  EXPECT_EQ(mac.run({"/sbin/shutdown", "-h", "+5"}).status, 0);
  EXPECT_EQ(mac.read(platform::kMacPowerRequest), "");
}

TEST_F(ShutdownTool, RefusesTimesThatAreNone) {
  const TestMac mac;
  const RunResult past = mac.run({"/sbin/shutdown", "-r", "2001010000"});
  EXPECT_EQ(past.status, 1);
  EXPECT_EQ(past.err, "shutdown: that time is already past.\n");
  for (const char* time : {"2460", "033", "203013010000", "+", "+1x", "-", "3:3:0"}) {
    EXPECT_EQ(mac.run({"/sbin/shutdown", "-r", time}).status, 1) << time;
  }
  const RunResult none = mac.run({"/sbin/shutdown", "-r"});
  EXPECT_EQ(none.status, 1);
  EXPECT_EQ(none.err, kUsage);
}

TEST_F(ShutdownTool, ExplainsWrongUse) {
  const TestMac mac;
  EXPECT_EQ(mac.run({"/sbin/shutdown", "now"}).err,
            std::string("shutdown: -h, -r, -s or -k is required\n") + kUsage);
  EXPECT_EQ(mac.run({"/sbin/shutdown", "-r", "-h", "now"}).err,
            std::string("shutdown: incompatible switches -h, -k, -r and -s\n") + kUsage);
  const RunResult result = mac.run({"/sbin/shutdown", "-r", "soon"});
  EXPECT_EQ(result.err, "shutdown: bad time format\n");
  EXPECT_EQ(result.status, 1);
}

TEST_F(PKillTool, FindsNobodyWithoutASession) {
  const TestMac mac;
  EXPECT_EQ(mac.run({"/usr/bin/pkill", "-KILL", "-U", "502", "-x", "loginwindow"}).status, 1);
  EXPECT_EQ(mac.run({"/usr/bin/pkill", "-KILL", "-U", "many", "-x", "loginwindow"}).status, 2);
  EXPECT_EQ(mac.run({"/usr/bin/pkill"}).status, 2);
}

TEST_F(LaunchCtlTool, ReportsAbsentDomains) {
  const TestMac mac;
  const RunResult print = mac.run({"/bin/launchctl", "print", "gui/99999"});
  EXPECT_EQ(print.status, 112);
  EXPECT_EQ(print.err, "Bad request.\nCould not find domain for user gui: 99999\n");
  const RunResult bootout = mac.run({"/bin/launchctl", "bootout", "gui/502"});
  EXPECT_EQ(bootout.status, 3);
  EXPECT_EQ(bootout.err, "Boot-out failed: 3: No such process\n");
}

TEST_F(LaunchCtlTool, DoesNotTellUsersAboutOthers) {
  const TestMac mac;
  const RunResult result = mac.run({"/bin/launchctl", "print", "gui/502"}, "admin");
  EXPECT_EQ(result.status, 1);
  EXPECT_EQ(result.err, "Could not print domain: 1: Operation not permitted\n");
}

TEST_F(LaunchCtlTool, TakesAFileWithoutItsLockForAnEndedSession) {
  const TestMac mac;
  mac.write("/private/var/simulated/gui/501.json", R"({"uid": 501, "pid": 1, "asid": 1})");
  EXPECT_EQ(mac.run({"/bin/launchctl", "print", "gui/501"}).status, 112);
}

TEST_F(Journal, HasALineForEveryCall) {
  const TestMac mac;
  (void)mac.run({"/usr/bin/fdesetup", "status"});
  (void)mac.run({"/sbin/shutdown", "-r", "soon"});
  const std::vector<Json> calls = mac.journal();
  ASSERT_EQ(calls.size(), 2U);
  EXPECT_EQ(calls[0], Json({{"tool", "/usr/bin/fdesetup"},
                            {"arguments", {"status"}},
                            {"status", 0},
                            {"output", "FileVault is Off.\n"}}));
  EXPECT_EQ(calls[1]["status"], 1);
  EXPECT_EQ(calls[1]["output"], "shutdown: bad time format\n");
}

TEST_F(Journal, IsShownWhateverAnybodyHasWrittenIntoIt) {
  const TestMac mac;
  mac.write(platform::kMacJournal,
            "{\"tool\": 5, \"status\": \"no\", \"arguments\": [1, \"two\"], \"output\": {}}\n"
            "[]\nnothing\n{\"tool\": \"/bin/x\", \"status\": -123456789}\n");
  const RunResult result = mac.simmac("journal");
  EXPECT_EQ(result.status, 0);
  EXPECT_EQ(result.out, "   0   two\n-123456789  /bin/x\n");
}

TEST_F(Journal, SaysThatItIsNotThere) {
  const TestMac mac;
  ASSERT_EQ(unlink(mac.path(platform::kMacJournal).c_str()), 0);
  ASSERT_EQ(unlink(mac.path(platform::kMacSystemLog).c_str()), 0);
  const RunResult journal = mac.simmac("journal");
  EXPECT_EQ(journal.status, 1);
  EXPECT_EQ(journal.err, "simmac: " + mac.path(platform::kMacJournal) + " cannot be read.\n");
  EXPECT_EQ(mac.simmac("log").status, 1);
}

TEST_F(Status, IsShownWhateverAnybodyHasWrittenIntoItsFile) {
  const TestMac mac;
  mac.write("/private/var/simulated/boot.json",
            R"({"count": "many", "daemons": [1, 2], "login": "yes"})");
  mac.write(platform::kMacLaunchdPid, std::to_string(getpid()) + "\n");
  const Descriptor claim = OpenFile(mac.path(platform::kMacLaunchdPid), O_RDWR);
  ASSERT_TRUE(TakeLock(claim.get()));
  EXPECT_EQ(mac.simmac("status").out, "running, boot 0\nmacOS 14.6.1 (23G93)\n");
  EXPECT_EQ(mac.status()["login"], false);
}

TEST_F(Journal, IsShownToPeople) {
  const TestMac mac;
  (void)mac.run({"/usr/bin/fdesetup", "status"});
  EXPECT_EQ(mac.simmac("journal").out,
            "   0  /usr/bin/fdesetup status\n      | FileVault is Off.\n");
}

}  // namespace
}  // namespace simmac
