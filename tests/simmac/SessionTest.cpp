#include <sys/stat.h>

#include <algorithm>
#include <csignal>

#include "tests/simmac/TestMac.h"

namespace simmac {
namespace {

constexpr uid_t kKiosk = 502;

/// A Mac whose kiosk user has a password and an agent.
class Session : public SimulatedMacTest {
 protected:
  static void prepare(const TestMac& mac, const Words& verb = {"wait"},
                      const Json& keepAlive = false) {
    EXPECT_EQ(mac.simmac("user", {"add", "kiosk", "--password", "correct horse battery"}).status,
              0);
    mac.addAgent("agent", verb, keepAlive);
  }

  static void signIn(TestMac& mac) {
    EXPECT_EQ(mac.simmac("set", {"auto-login", "kiosk", "correct horse battery"}).status, 0);
    (void)mac.boot({"--throttle", "0"});
    EXPECT_TRUE(Eventually([&] { return mac.report("agent").size() == 1; })) << mac.timeline();
  }

  static bool agentIsGone(const TestMac& mac) {
    return Eventually([&] {
      const std::vector<pid_t> pids = mac.processes("agent");
      return std::none_of(pids.begin(), pids.end(), IsAlive);
    });
  }
};

TEST_F(Session, OpensForTheUserWhosePasswordIsStored) {
  TestMac mac;
  prepare(mac);
  signIn(mac);
  EXPECT_TRUE(mac.timelineHas("login window: auto-login for kiosk\n"));
  EXPECT_TRUE(mac.hasSession(kKiosk));
  const Json sessions = mac.status()["sessions"];
  ASSERT_EQ(sessions.size(), 1U);
  EXPECT_EQ(sessions[0]["user"], "kiosk");
}

TEST_F(Session, RunsAgentsAsTheUserInOneProcessSession) {
  TestMac mac;
  prepare(mac);
  signIn(mac);
  const std::string line = mac.report("agent")[0];
  const Json file = Json::parse(mac.read("/private/var/simulated/gui/502.json"));
  EXPECT_EQ(TestMac::field(line, "uid"), "502");
  EXPECT_EQ(TestMac::field(line, "home"), "/Users/kiosk");
  EXPECT_EQ(TestMac::field(line, "sid"), file["pid"].dump());
  EXPECT_EQ(file["asid"], file["pid"]);
  EXPECT_EQ(TestMac::field(line, "proc"), "1");
}

TEST_F(Session, KeepsItsLockFromTheAgents) {
  TestMac mac;
  prepare(mac);
  signIn(mac);
  const std::string line = mac.report("agent")[0];
  const std::string numbers = line.substr(line.find("descriptors"));
  EXPECT_EQ(std::count(numbers.begin(), numbers.end(), ' '), 1) << line;
}

TEST_F(Session, LogsWhatAgentsPrintForTheUser) {
  TestMac mac;
  prepare(mac);
  signIn(mac);
  EXPECT_EQ(mac.read("/private/var/log/agent.log"), "test job\n");
  struct stat status {};
  ASSERT_EQ(stat(mac.path("/private/var/log/agent.log").c_str(), &status), 0);
  EXPECT_EQ(status.st_uid, kKiosk);
}

TEST_F(Session, DoesNotOpenWithAWrongByteInThePasswordFile) {
  TestMac mac;
  prepare(mac);
  ASSERT_EQ(mac.simmac("set", {"auto-login", "kiosk", "correct horse battery"}).status, 0);
  std::string bytes = mac.read("/private/etc/kcpassword");
  bytes[3] = static_cast<char>(bytes[3] ^ 1);
  mac.write("/private/etc/kcpassword", bytes);
  (void)mac.boot();
  EXPECT_TRUE(mac.timelineHas("login window: the stored password does not match\n"));
  EXPECT_FALSE(mac.hasSession(kKiosk));
  EXPECT_TRUE(mac.report("agent").empty());
}

TEST_F(Session, DoesNotOpenWhenNobodyIsNamed) {
  TestMac mac;
  (void)mac.boot();
  EXPECT_TRUE(mac.timelineHas("login window: nobody signs in automatically\n"));
}

TEST_F(Session, DoesNotOpenForSomebodyWithoutAPassword) {
  TestMac mac;
  ASSERT_EQ(mac.simmac("set", {"auto-login", "admin", ""}).status, 0);
  (void)mac.boot();
  EXPECT_TRUE(mac.timelineHas("login window: the stored password does not match\n"));
}

TEST_F(Session, RestartsAgentsThatFail) {
  TestMac mac;
  prepare(mac, {"wait"}, {{"SuccessfulExit", false}});
  signIn(mac);
  (void)kill(mac.processes("agent")[0], SIGKILL);
  EXPECT_TRUE(Eventually([&] { return mac.report("agent").size() == 2; }));
}

TEST_F(Session, IgnoresAgentsForOtherKindsOfSessions) {
  TestMac mac;
  prepare(mac);
  mac.addAgent("other", {"wait"});
  Json list = *mac.tree().readPropertyList("/Library/LaunchAgents/other.plist");
  list["LimitLoadToSessionType"] = "LoginWindow";
  ASSERT_TRUE(mac.tree().writePropertyList("/Library/LaunchAgents/other.plist", list,
                                           platform::PropertyListFormat::kXml, 0644));
  signIn(mac);
  EXPECT_TRUE(mac.report("other").empty());
}

TEST_F(Session, IsDescribedByLaunchctl) {
  TestMac mac;
  prepare(mac);
  signIn(mac);
  const RunResult print = mac.run({"/bin/launchctl", "print", "gui/502"}, "kiosk");
  EXPECT_EQ(print.status, 0);
  EXPECT_EQ(print.out.rfind("gui/502 = {\n\ttype = login\n\thandle = ", 0), 0U);
  EXPECT_NE(print.out.find("\n\tsecurity context = {\n\t\tuid = 502\n"), std::string::npos);
  const RunResult service = mac.run({"/bin/launchctl", "print", "gui/502/ghost"});
  EXPECT_EQ(service.status, 113);
  EXPECT_EQ(service.err,
            "Bad request.\nCould not find service \"ghost\" in domain for user gui: 502\n");
}

TEST_F(Session, EndsWhenItIsBootedOut) {
  TestMac mac;
  prepare(mac, {"parent"});
  EXPECT_EQ(mac.simmac("set", {"auto-login", "kiosk", "correct horse battery"}).status, 0);
  (void)mac.boot();
  ASSERT_TRUE(Eventually([&] { return mac.report("agent").size() == 2; }));
  const RunResult result = mac.run({"/bin/launchctl", "bootout", "gui/502"});
  EXPECT_EQ(result.status, 0);
  EXPECT_EQ(result.out + result.err, "");
  EXPECT_TRUE(Eventually([&] { return !mac.hasSession(kKiosk); }));
  EXPECT_TRUE(agentIsGone(mac));
  EXPECT_TRUE(mac.timelineHas("login window: the session of kiosk ended\n"));
}

TEST_F(Session, DiesWithItsAgentsByPkill) {
  TestMac mac;
  prepare(mac, {"stubborn"});
  signIn(mac);
  const Words others = {"/usr/bin/pkill", "-KILL", "-U", "501", "-x", "loginwindow"};
  EXPECT_EQ(mac.run(others).status, 1);
  const Words command = {"/usr/bin/pkill", "-KILL", "-U", "502", "-x", "loginwindow"};
  EXPECT_EQ(mac.run(command).status, 0);
  EXPECT_TRUE(Eventually([&] { return !mac.hasSession(kKiosk); }));
  EXPECT_TRUE(agentIsGone(mac));
}

TEST_F(Session, EndsWhenItsUserIsDeleted) {
  TestMac mac;
  prepare(mac);
  signIn(mac);
  EXPECT_EQ(mac.run({"/usr/sbin/sysadminctl", "-deleteUser", "kiosk"}).status, 0);
  EXPECT_TRUE(Eventually([&] { return !mac.hasSession(kKiosk); }));
  EXPECT_TRUE(agentIsGone(mac));
}

TEST_F(Session, ComesBackAfterAReboot) {
  TestMac mac;
  prepare(mac);
  signIn(mac);
  EXPECT_EQ(mac.run({"/sbin/shutdown", "-r", "now"}).status, 0);
  EXPECT_TRUE(Eventually([&] { return mac.report("agent").size() == 2; }));
  EXPECT_FALSE(IsAlive(mac.processes("agent")[0]));
  EXPECT_TRUE(Eventually([&] { return mac.hasSession(kKiosk); }));
}

TEST_F(Session, EndsWithTheSupervisor) {
  TestMac mac;
  prepare(mac, {"stubborn"});
  signIn(mac);
  const Json sessions = mac.status()["sessions"];
  ASSERT_EQ(sessions.size(), 1U);
  (void)kill(mac.status()["launchd"].get<pid_t>(), SIGKILL);
  EXPECT_EQ(mac.bootStatus(), 128 + SIGKILL);
  EXPECT_FALSE(IsAlive(sessions[0]["pid"].get<pid_t>()));
  EXPECT_TRUE(agentIsGone(mac));
}

}  // namespace
}  // namespace simmac
