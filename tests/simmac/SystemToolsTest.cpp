#include "tests/simmac/TestMac.h"

namespace simmac {
namespace {

class FdeSetupTool : public SimulatedMacTest {};
class ShutdownTool : public SimulatedMacTest {};
class PKillTool : public SimulatedMacTest {};
class LaunchCtlTool : public SimulatedMacTest {};
class Journal : public SimulatedMacTest {};

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

TEST_F(Journal, IsShownToPeople) {
  const TestMac mac;
  (void)mac.run({"/usr/bin/fdesetup", "status"});
  EXPECT_EQ(mac.simmac("journal").out,
            "   0  /usr/bin/fdesetup status\n      | FileVault is Off.\n");
}

}  // namespace
}  // namespace simmac
