#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <csignal>
#include <filesystem>
#include <functional>

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
    // The login window tells of its agents once they run.
    EXPECT_TRUE(Eventually([&] {
      return mac.run({"/bin/launchctl", "print", "gui/502/agent"}).status == 0;
    })) << mac.timeline();
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

TEST_F(Session, LetsAgentsWriteWhereTheirListsSay) {
  TestMac mac;
  prepare(mac);
  mac.changeList("/Library/LaunchAgents/agent.plist",
                 {{"StandardErrorPath", "/private/tmp/agent.error"}});
  signIn(mac);
  EXPECT_TRUE(Eventually([&] { return mac.read("/private/tmp/agent.error") == "test job\n"; }));
  struct stat status {};
  ASSERT_EQ(stat(mac.path("/private/tmp/agent.error").c_str(), &status), 0);
  EXPECT_EQ(status.st_uid, kKiosk);
  EXPECT_EQ(mac.read("/private/var/log/agent.log"), "");
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

TEST_F(Session, DoesNotOpenWithAPasswordFileThatIsNotWhole) {
  // 12 bytes decode to the password without an end, 13 to the password, its end and one byte more.
  for (const std::size_t size : {std::size_t{12}, std::size_t{13}, std::size_t{0}}) {
    TestMac mac;
    ASSERT_EQ(mac.simmac("user", {"add", "kiosk", "--password", "twelve bytes"}).status, 0);
    ASSERT_EQ(mac.simmac("set", {"auto-login", "kiosk", "twelve bytes"}).status, 0);
    const std::string bytes = mac.read(platform::kMacAutoLoginPassword);
    mac.write(platform::kMacAutoLoginPassword, bytes.substr(0, size));
    (void)mac.boot();
    EXPECT_TRUE(mac.timelineHas("login window: the stored password does not match\n")) << size;
  }
}

TEST_F(Session, OpensWithAnythingBehindThePasswordsEnd) {
  TestMac mac;
  prepare(mac);
  ASSERT_EQ(mac.simmac("set", {"auto-login", "kiosk", "correct horse battery"}).status, 0);
  std::string bytes = mac.read(platform::kMacAutoLoginPassword);
  bytes.back() = static_cast<char>(bytes.back() ^ 1);
  mac.write(platform::kMacAutoLoginPassword, bytes);
  (void)mac.boot();
  EXPECT_TRUE(mac.timelineHas("login window: auto-login for kiosk\n"));
}

TEST_F(Session, DoesNotOpenWhileFileVaultIsOn) {
  TestMac mac;
  prepare(mac);
  ASSERT_EQ(mac.simmac("set", {"auto-login", "kiosk", "correct horse battery"}).status, 0);
  ASSERT_EQ(mac.simmac("set", {"filevault", "on"}).status, 0);
  (void)mac.boot();
  EXPECT_TRUE(mac.timelineHas("login window: FileVault is on, so kiosk has to sign in\n"));
  EXPECT_FALSE(mac.hasSession(kKiosk));
}

TEST_F(Session, DoesNotOpenByAPasswordFileThatIsNotRootsAlone) {
  const std::string sentence = "login window: the stored password is not root's alone\n";
  const auto expectRefusal = [&sentence](const std::function<void(const std::string&)>& change) {
    TestMac mac;
    prepare(mac);
    ASSERT_EQ(mac.simmac("set", {"auto-login", "kiosk", "correct horse battery"}).status, 0);
    change(mac.path(platform::kMacAutoLoginPassword));
    (void)mac.boot();
    EXPECT_TRUE(mac.timelineHas(sentence));
  };
  expectRefusal([](const std::string& path) { EXPECT_EQ(chmod(path.c_str(), 0640), 0); });
  expectRefusal([](const std::string& path) { EXPECT_EQ(chown(path.c_str(), kKiosk, 0), 0); });
  expectRefusal([](const std::string& path) {
    EXPECT_EQ(rename(path.c_str(), (path + ".real").c_str()), 0);
    EXPECT_EQ(symlink("kcpassword.real", path.c_str()), 0);
  });
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

TEST_F(Session, ListsItsAgents) {
  TestMac mac;
  prepare(mac);
  mac.addAgent("short", {"exit", "3"});
  signIn(mac);
  const std::string pid = std::to_string(mac.processes("agent")[0]);
  const std::string running = "\t\t" + std::string(8 - pid.size(), ' ') + pid + "      - \tagent\n";
  const std::string ended = "\t\t       -      3 \tshort\n";
  EXPECT_TRUE(Eventually([&] {
    return mac.run({"/bin/launchctl", "print", "gui/502"})
               .out.find("\tservices = {\n" + running + ended + "\t}\n") != std::string::npos;
  }));
  const RunResult agent = mac.run({"/bin/launchctl", "print", "gui/502/agent"}, "kiosk");
  EXPECT_EQ(agent.status, 0);
  EXPECT_EQ(agent.out.rfind("gui/502/agent = {\n", 0), 0U);
  EXPECT_NE(agent.out.find("\tstate = running\n\n\tpid = " + pid + "\n"), std::string::npos);
}

TEST_F(Session, LosesOnlyTheAgentThatIsBootedOut) {
  TestMac mac;
  prepare(mac, {"wait"}, true);
  mac.addAgent("other", {"wait"});
  signIn(mac);
  ASSERT_TRUE(Eventually([&] { return mac.report("other").size() == 1; }));
  const Words bootOut = {"/bin/launchctl", "bootout", "gui/502/agent"};
  const RunResult refused = mac.run(bootOut, "admin");
  EXPECT_EQ(refused.status, 1);
  EXPECT_EQ(refused.err, "Boot-out failed: 1: Operation not permitted\n");
  const RunResult result = mac.run(bootOut, "kiosk");
  EXPECT_EQ(result.status, 0);
  EXPECT_EQ(result.out + result.err, "");
  EXPECT_TRUE(agentIsGone(mac));
  EXPECT_TRUE(Eventually([&] {
    return mac.run({"/bin/launchctl", "print", "gui/502/agent"}).status == 113;
  }));
  const RunResult again = mac.run(bootOut);
  EXPECT_EQ(again.status, 3);
  EXPECT_EQ(again.err, "Boot-out failed: 3: No such process\n");
  EXPECT_TRUE(mac.hasSession(kKiosk));
  EXPECT_TRUE(IsAlive(mac.processes("other")[0]));
  EXPECT_EQ(mac.report("agent").size(), 1U);
}

TEST_F(Session, EndsWhatAnAgentLeavesBehind) {
  TestMac mac;
  prepare(mac, {"orphan"});
  EXPECT_EQ(mac.simmac("set", {"auto-login", "kiosk", "correct horse battery"}).status, 0);
  (void)mac.boot();
  ASSERT_TRUE(Eventually([&] { return mac.report("agent").size() == 2; }));
  EXPECT_TRUE(agentIsGone(mac));
  EXPECT_TRUE(mac.hasSession(kKiosk));
}

TEST_F(Session, IsOverBeforeItsUsersHomeIsRemoved) {
  TestMac mac;
  prepare(mac, {"writer"});
  EXPECT_EQ(mac.simmac("set", {"auto-login", "kiosk", "correct horse battery"}).status, 0);
  (void)mac.boot();
  ASSERT_TRUE(Eventually([&] { return mac.report("agent").size() == 2; }));
  ASSERT_TRUE(
      Eventually([&] { return std::filesystem::exists(mac.path("/Users/kiosk/busy/999")); }));
  const RunResult result = mac.run({"/usr/sbin/sysadminctl", "-deleteUser", "kiosk"});
  EXPECT_EQ(result.err.find("Could not"), std::string::npos) << result.err;
  for (const pid_t pid : mac.processes("agent")) EXPECT_FALSE(IsAlive(pid));
  EXPECT_FALSE(std::filesystem::exists(mac.path("/Users/kiosk")));
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
