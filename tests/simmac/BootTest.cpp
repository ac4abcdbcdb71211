#include <fcntl.h>
#include <sys/inotify.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/un.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <csignal>
#include <cstring>

#include "simulator/mac/Children.h"
#include "simulator/mac/Descriptor.h"
#include "simulator/mac/Spawn.h"
#include "tests/simmac/TestMac.h"

namespace simmac {
namespace {

class Boot : public SimulatedMacTest {};

bool NoneAlive(const std::vector<pid_t>& pids) {
  return std::none_of(pids.begin(), pids.end(), IsAlive);
}

TEST_F(Boot, StartsDaemonsWithWhatTheyAreGiven) {
  TestMac mac;
  mac.addDaemon("daemon", {"wait"});
  (void)mac.boot();
  ASSERT_TRUE(Eventually([&] { return mac.report("daemon").size() == 1; }));
  const std::string line = mac.report("daemon")[0];
  EXPECT_EQ(TestMac::field(line, "uid"), "0");
  EXPECT_EQ(TestMac::field(line, "proc"), "1");
  EXPECT_EQ(TestMac::field(line, "services").rfind("daemon=", 0), 0U);
  EXPECT_TRUE(mac.timelineHas("launchd: starting daemon\n"));
  EXPECT_TRUE(
      Eventually([&] { return mac.read("/private/var/log/daemon.stderr.log") == "test job\n"; }));
  EXPECT_EQ(mac.status()["daemons"]["daemon"], std::stoi(TestMac::field(line, "pid")));
}

TEST_F(Boot, GivesADaemonNothingButServiceAndProc) {
  TestMac mac;
  mac.addDaemon("daemon", {"wait"});
  (void)mac.boot();
  ASSERT_TRUE(Eventually([&] { return mac.report("daemon").size() == 1; }));
  const std::string line = mac.report("daemon")[0];
  const std::string numbers = line.substr(line.find("descriptors"));
  EXPECT_EQ(std::count(numbers.begin(), numbers.end(), ' '), 2) << line;
}

TEST_F(Boot, ListensForADaemonsService) {
  TestMac mac;
  mac.addDaemon("daemon", {"wait"});
  (void)mac.boot();
  struct stat status {};
  ASSERT_EQ(lstat(mac.path("/private/var/run/daemon.socket").c_str(), &status), 0);
  EXPECT_TRUE(S_ISSOCK(status.st_mode));
  EXPECT_EQ(status.st_mode & 0777, 0666U);
}

TEST_F(Boot, LeavesOutListsThatOthersMayWrite) {
  TestMac mac;
  mac.addDaemon("daemon", {"wait"});
  ASSERT_EQ(chmod(mac.path("/Library/LaunchDaemons/daemon.plist").c_str(), 0666), 0);
  (void)mac.boot();
  EXPECT_EQ(mac.timeline().find("starting daemon"), std::string::npos);
}

TEST_F(Boot, RestartsADaemonThatIsKeptAlive) {
  TestMac mac;
  mac.addDaemon("daemon", {"wait"}, true);
  (void)mac.boot({"--throttle", "0"});
  ASSERT_TRUE(Eventually([&] { return mac.report("daemon").size() == 1; }));
  (void)kill(mac.processes("daemon")[0], SIGKILL);
  EXPECT_TRUE(Eventually([&] { return mac.report("daemon").size() == 2; }));
  EXPECT_TRUE(mac.timelineHas("launchd: daemon ended by signal 9\n"));
}

TEST_F(Boot, RestartsAfterFailureOnlyWhenThatIsAsked) {
  TestMac mac;
  mac.addDaemon("failing", {"exit", "3"}, {{"SuccessfulExit", false}});
  mac.addDaemon("finishing", {"exit", "0"}, {{"SuccessfulExit", false}});
  (void)mac.boot({"--throttle", "0"});
  EXPECT_TRUE(Eventually([&] { return mac.report("failing").size() >= 3; }));
  EXPECT_TRUE(Eventually([&] { return mac.report("finishing").size() == 1; }));
  EXPECT_TRUE(Eventually([&] { return mac.report("failing").size() >= 5; }));
  EXPECT_EQ(mac.report("finishing").size(), 1U);
}

TEST_F(Boot, KeepsTheServiceAcrossADaemonsRestart) {
  TestMac mac;
  mac.addDaemon("daemon", {"wait"}, true);
  (void)mac.boot({"--throttle", "0"});
  struct stat before {};
  struct stat after {};
  const std::string path = mac.path("/private/var/run/daemon.socket");
  ASSERT_EQ(lstat(path.c_str(), &before), 0);
  ASSERT_TRUE(Eventually([&] { return mac.report("daemon").size() == 1; }));
  (void)kill(mac.processes("daemon")[0], SIGKILL);
  ASSERT_TRUE(Eventually([&] { return mac.report("daemon").size() == 2; }));
  ASSERT_EQ(lstat(path.c_str(), &after), 0);
  EXPECT_EQ(before.st_ino, after.st_ino);
}

TEST_F(Boot, HaltsWhenAskedTo) {
  TestMac mac;
  mac.addDaemon("daemon", {"wait"}, true);
  (void)mac.boot();
  ASSERT_TRUE(Eventually([&] { return mac.report("daemon").size() == 1; }));
  EXPECT_EQ(mac.simmac("halt").status, 0);
  EXPECT_EQ(mac.bootStatus(), 0);
  EXPECT_TRUE(NoneAlive(mac.processes("daemon")));
  EXPECT_EQ(mac.status()["running"], false);
}

TEST_F(Boot, HaltsOnItsOwnShutdown) {
  TestMac mac;
  (void)mac.boot();
  (void)mac.run({"/sbin/shutdown", "-h", "now"});
  EXPECT_EQ(mac.bootStatus(), 0);
}

TEST_F(Boot, HaltsOnSigterm) {
  TestMac mac;
  mac.addDaemon("daemon", {"wait"}, true);
  const pid_t supervisor = mac.boot();
  ASSERT_TRUE(Eventually([&] { return mac.report("daemon").size() == 1; }));
  (void)kill(supervisor, SIGTERM);
  EXPECT_EQ(mac.bootStatus(), 0);
  EXPECT_TRUE(NoneAlive(mac.processes("daemon")));
}

TEST_F(Boot, StartsDaemonsAnewAfterAReboot) {
  TestMac mac;
  mac.addDaemon("daemon", {"wait"}, true);
  (void)mac.boot();
  ASSERT_TRUE(Eventually([&] { return mac.report("daemon").size() == 1; }));
  mac.write("/private/var/run/left-over", "");
  EXPECT_EQ(mac.simmac("reboot").status, 0);
  EXPECT_TRUE(Eventually([&] { return mac.report("daemon").size() == 2; }));
  EXPECT_EQ(mac.status()["bootCount"], 2);
  EXPECT_EQ(access(mac.path("/private/var/run/left-over").c_str(), F_OK), -1);
  EXPECT_FALSE(IsAlive(mac.processes("daemon")[0]));
  EXPECT_TRUE(mac.timelineHas("launchd: restarting\n"));
}

TEST_F(Boot, KillsWhatDoesNotEndInTime) {
  TestMac mac;
  mac.addDaemon("daemon", {"stubborn"});
  Json list = *mac.tree().readPropertyList("/Library/LaunchDaemons/daemon.plist");
  list["ExitTimeOut"] = 1;
  ASSERT_TRUE(mac.tree().writePropertyList("/Library/LaunchDaemons/daemon.plist", list,
                                           platform::PropertyListFormat::kXml, 0644));
  (void)mac.boot();
  ASSERT_TRUE(Eventually([&] { return mac.report("daemon").size() == 1; }));
  EXPECT_EQ(mac.simmac("halt").status, 0);
  EXPECT_EQ(mac.bootStatus(), 0);
  EXPECT_TRUE(mac.timelineHas("launchd: daemon ended by signal 9\n"));
}

TEST_F(Boot, LeavesNoOrphanWhenItHalts) {
  TestMac mac;
  mac.addDaemon("daemon", {"parent"});
  (void)mac.boot();
  ASSERT_TRUE(Eventually([&] { return mac.report("daemon").size() == 2; }));
  EXPECT_EQ(mac.simmac("halt").status, 0);
  EXPECT_TRUE(Eventually([&] { return NoneAlive(mac.processes("daemon")); }));
}

TEST_F(Boot, LeavesNoProcessWhenTheSupervisorIsKilled) {
  TestMac mac;
  mac.addDaemon("daemon", {"parent"}, true);
  const pid_t supervisor = mac.boot();
  ASSERT_TRUE(Eventually([&] { return mac.report("daemon").size() == 2; }));
  (void)kill(supervisor, SIGKILL);
  EXPECT_EQ(mac.bootStatus(), 128 + SIGKILL);
  EXPECT_TRUE(Eventually([&] { return NoneAlive(mac.processes("daemon")); }));
  EXPECT_TRUE(Eventually([&] { return mac.status()["running"] == false; }));
}

TEST_F(Boot, LeavesNoProcessWhenLaunchdIsKilled) {
  TestMac mac;
  mac.addDaemon("daemon", {"parent"}, true);
  (void)mac.boot();
  ASSERT_TRUE(Eventually([&] { return mac.report("daemon").size() == 2; }));
  (void)kill(mac.status()["launchd"].get<pid_t>(), SIGKILL);
  EXPECT_EQ(mac.bootStatus(), 128 + SIGKILL);
  EXPECT_TRUE(NoneAlive(mac.processes("daemon")));
}

TEST_F(Boot, EndsWhatADaemonLeavesBehind) {
  TestMac mac;
  mac.addDaemon("daemon", {"orphan"});
  (void)mac.boot();
  ASSERT_TRUE(mac.timelineHas("launchd: daemon ended with status 0\n"));
  ASSERT_EQ(mac.report("daemon").size(), 2U);
  EXPECT_TRUE(Eventually([&] { return NoneAlive(mac.processes("daemon")); }));
}

TEST_F(Boot, LeavesAnAbandonedProcessGroupAlone) {
  TestMac mac;
  mac.addDaemon("daemon", {"orphan"});
  mac.addDaemon("other", {"orphan"});
  mac.changeList("/Library/LaunchDaemons/daemon.plist", {{"AbandonProcessGroup", true}});
  (void)mac.boot();
  ASSERT_TRUE(mac.timelineHas("launchd: other ended with status 0\n"));
  ASSERT_TRUE(mac.timelineHas("launchd: daemon ended with status 0\n"));
  EXPECT_TRUE(Eventually([&] { return NoneAlive(mac.processes("other")); }));
  EXPECT_TRUE(IsAlive(mac.processes("daemon")[1]));
}

/// Sees files being written, in the order in which they are.
class FileWatch {
 public:
  ~FileWatch() { close(_events); }
  FileWatch(const FileWatch&) = delete;
  FileWatch& operator=(const FileWatch&) = delete;
  FileWatch() = default;

  /// The number by which firstWritten() names the file.
  int add(const std::string& path) const {
    return inotify_add_watch(_events, path.c_str(), IN_MODIFY);
  }
  /// Which file was written first since they were added; -1 for none.
  int firstWritten() const {
    inotify_event event{};
    return read(_events, &event, sizeof event) == sizeof event ? event.wd : -1;
  }

 private:
  int _events = inotify_init1(IN_CLOEXEC | IN_NONBLOCK);
};

TEST_F(Boot, IsAskedToGoDownOnceTheCallIsInTheJournal) {
  TestMac mac;
  mac.addDaemon("daemon", {"wait"}, true);
  (void)mac.boot({"--throttle", "0"});
  ASSERT_TRUE(Eventually([&] { return mac.report("daemon").size() == 1; }));
  const FileWatch watch;
  const int journal = watch.add(mac.path(platform::kMacJournal));
  ASSERT_GE(watch.add(mac.path("/timeline.txt")), 0);
  EXPECT_EQ(mac.run({"/sbin/shutdown", "-r", "now"}).status, 0);
  ASSERT_TRUE(mac.timelineHas("launchd: asked to restart\n"));
  EXPECT_EQ(watch.firstWritten(), journal);
  EXPECT_NE(mac.read(platform::kMacJournal).find("Shutdown NOW!"), std::string::npos);
}

TEST_F(Boot, OpensTheLoginWindowOnceTheDaemonServes) {
  TestMac mac;
  mac.addDaemon("daemon", {"late", "/private/tmp/go"}, true);
  mac.changeList("/Library/LaunchDaemons/daemon.plist", {{"MachServices", {{"service", true}}}});
  (void)mac.bootWithoutLogin({});
  EXPECT_EQ(mac.status()["login"], false);
  EXPECT_EQ(mac.timeline().find("login window:"), std::string::npos);
  mac.write("/private/tmp/go", "");
  EXPECT_TRUE(mac.timelineHas("login window: nobody signs in automatically\n"));
}

TEST_F(Boot, DoesNotWaitForADaemonThatEnds) {
  TestMac mac;
  mac.addDaemon("daemon", {"late", "/private/tmp/go"}, true);
  mac.changeList("/Library/LaunchDaemons/daemon.plist", {{"MachServices", {{"service", true}}}});
  (void)mac.bootWithoutLogin({});
  EXPECT_TRUE(Eventually([&] { return mac.processes("daemon").size() == 1; }));
  ASSERT_GT(mac.processes("daemon")[0], 1);
  ASSERT_EQ(kill(mac.processes("daemon")[0], SIGKILL), 0);
  EXPECT_TRUE(mac.timelineHas("login window: nobody signs in automatically\n"));
}

TEST_F(Boot, TellsThatTheLoginWindowHasNotDecided) {
  TestMac mac;
  mac.addDaemon("daemon", {"wait"}, true);  // launchd has somebody to wait for when it halts
  (void)mac.bootWithoutLogin({"--login-delay", "3600"});
  EXPECT_EQ(mac.status()["login"], false);
  EXPECT_EQ(mac.simmac("halt").status, 0);
  EXPECT_EQ(mac.bootStatus(), 0);
  EXPECT_EQ(Json::parse(mac.read("/private/var/simulated/boot.json"))["login"], false);
}

TEST_F(Boot, RunsOnWithoutAReaderOfItsTimeline) {
  TestMac mac;
  mac.addDaemon("daemon", {"wait"}, true);
  int ends[2];
  ASSERT_EQ(pipe2(ends, O_CLOEXEC), 0);
  SpawnRequest request;
  request.arguments = {SIMMAC_EXECUTABLE, "boot", mac.root()};
  request.output = ends[1];
  const pid_t boot = Spawn(request);
  ASSERT_EQ(close(ends[0]) + close(ends[1]), 0);
  EXPECT_TRUE(Eventually([&] { return mac.report("daemon").size() == 1; }));
  EXPECT_EQ(mac.simmac("halt").status, 0);
  int status = -1;
  ASSERT_EQ(waitpid(boot, &status, 0), boot);
  EXPECT_EQ(ExitStatus(status), 0);
}

TEST_F(Boot, RefusesToRunAMacTwice) {
  TestMac mac;
  (void)mac.boot();
  const RunResult second = mac.simmac("boot");
  EXPECT_EQ(second.status, 1);
  EXPECT_EQ(second.err, "simmac: this Mac is running already.\n");
}

TEST_F(Boot, IsNotDisturbedByAnOldRequest) {
  TestMac mac;
  (void)mac.run({"/sbin/shutdown", "-h", "now"});
  (void)mac.boot();
  EXPECT_EQ(mac.status()["running"], true);
}

}  // namespace
}  // namespace simmac
