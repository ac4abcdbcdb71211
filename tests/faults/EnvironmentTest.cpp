// A Mac in trouble: disks that are full or cannot be written, no descriptors, no memory for tools.
// The daemon says so, answers "status" all the while, and is as before when the trouble is over.
#include <sched.h>
#include <sys/mount.h>
#include <sys/resource.h>

#include <filesystem>

#include "tests/faults/ChildlessProcess.h"
#include "tests/system/EnrolledTest.h"

namespace {

constexpr char kAgents[] = "/Library/LaunchAgents";
constexpr char kAgentName[] = "com.brindlex.stream.kiosk.plist";
constexpr char kPrinted[] = "/private/var/log/com.brindlex.stream.kioskd.stderr.log";

// Mounts made by the test's process are its own and its children's.
struct OwnMounts {
  OwnMounts() {
    if (unshare(CLONE_NEWNS) != 0) throw std::runtime_error("the tests run as root");
    mount("none", "/", nullptr, MS_REC | MS_PRIVATE, nullptr);
  }
};

// A small disk at a folder of a Mac, which goes with the object.
class Disk {
 public:
  explicit Disk(std::string folder) : _folder(std::move(folder)) {
    EXPECT_EQ(mount("none", _folder.c_str(), "tmpfs", 0, "size=64k,mode=0755"), 0);
  }
  ~Disk() { umount2(_folder.c_str(), MNT_DETACH); }
  Disk(const Disk&) = delete;
  Disk& operator=(const Disk&) = delete;

  void remount(unsigned long flags) const {
    EXPECT_EQ(mount("none", _folder.c_str(), nullptr, MS_REMOUNT | flags, nullptr), 0);
  }

 private:
  const std::string _folder;
};

class EnvironmentTest : private OwnMounts, public SystemTest {
 protected:
  Json tryAgain() const { return ask({{"cmd", "pair.check"}, {"code", ""}}); }

  void expectRefused(const Json& reply, const std::string& error) const {
    EXPECT_EQ(reply, (Json{{"ok", false}, {"error", error}}));
    const Json status = ask({{"cmd", "status"}});
    EXPECT_EQ(status["provisioned"], false) << status;
    EXPECT_EQ(status["error"], error) << status;
    EXPECT_EQ(mac.countErrors("provisioning refused: " + error), 1U) << "said once";
  }

  void expectRecovered() const {
    const Json reply = tryAgain();
    EXPECT_EQ(reply.value("provisioned", false), true) << reply;
    const Json status = ask({{"cmd", "status"}});
    EXPECT_EQ(status["provisioned"], true);
    EXPECT_FALSE(status.contains("error"));
    EXPECT_TRUE(mac.exists(kLaunchAgent));
  }

  bool said(const std::string& text) const {
    return mac.read(kPrinted).find("[BrindlexKioskHelper] " + text) != std::string::npos;
  }
};

TEST_F(EnvironmentTest, InstallsTheLaunchAgentOnceItsDiskHasRoom) {
  const Disk disk(mac.at(kAgents));
  boot();
  const std::string filler = std::string(kAgents) + "/filler";
  mac.write(filler, std::string(1 << 20, 'x'));
  const std::string line = std::string("cannot write ") + kAgentName + ": No space left on device";
  expectRefused(pair("Lobby"), "launch_agent_failed");
  EXPECT_GE(mac.countErrors(line), 1U);
  EXPECT_EQ(mac.list(kAgents), std::vector<std::string>{"filler"});
  mac.remove(filler);
  expectRecovered();
  EXPECT_EQ(mac.list(kAgents), std::vector<std::string>{kAgentName});
}

TEST_F(EnvironmentTest, InstallsTheLaunchAgentOnceItsDiskCanBeWritten) {
  const Disk disk(mac.at(kAgents));
  boot();
  disk.remount(MS_RDONLY);
  expectRefused(pair("Lobby"), "launch_agent_failed");
  EXPECT_TRUE(said(std::string("cannot create .") + kAgentName + ".tmp."));
  EXPECT_TRUE(said(std::string("cannot create .") + kAgentName + ".tmp." +
                   std::to_string(daemonPid()) + ": Read-only file system"));
  disk.remount(0);
  expectRecovered();
}

TEST_F(EnvironmentTest, KeepsItsStateInMemoryWhileItsDiskCannotBeWritten) {
  const Disk disk(mac.at(kStateDir));
  mac.writeState({{"authBaseUrl", portal.url()}});
  boot();
  disk.remount(MS_RDONLY);
  const std::string before = mac.read(kStateFile);
  EXPECT_EQ(pair("Lobby")["provisioned"], true);
  EXPECT_TRUE(said("cannot create .state.json.tmp." + std::to_string(daemonPid()) +
                   ": Read-only file system"));
  EXPECT_EQ(ask({{"cmd", "status"}})["enrolled"], 1);
  EXPECT_EQ(mac.read(kStateFile), before);
  disk.remount(0);
  portal.admin({"exit-password", "Lobby", "-"}, "Open Sesame");
  EXPECT_EQ(ask({{"cmd", "maintenance"}, {"password", "x"}})["error"], "wrong_password");
  EXPECT_EQ(mac.state()["provisioned"], true);
  EXPECT_FALSE(mac.state()["token"].is_null());
  EXPECT_EQ(mac.list(kStateDir), std::vector<std::string>{"state.json"});
}

TEST_F(EnvironmentTest, ProvisionsOnceThereIsMemoryForTools) {
  boot();
  {
    const ChildlessProcess childless(daemonPid());
    expectRefused(pair("Lobby"), "account_create_failed");
    EXPECT_GT(childless.refusals(), 0U);
    EXPECT_EQ(mac.countErrors("sysadminctl did not start: Cannot allocate memory"), 1U);
    EXPECT_EQ(mac.countErrors("sysadminctl -addUser exited -1: "), 1U);
    EXPECT_FALSE(kioskAccountExists());
  }
  expectRecovered();
}

// The last free descriptor is taken away from a daemon that runs.
class DescriptorsTest : public EnrolledTest {
 protected:
  void allow(rlim_t descriptors) const {
    rlimit limit = {descriptors, 0};
    rlimit before = {};
    ASSERT_EQ(prlimit(daemonPid(), RLIMIT_NOFILE, nullptr, &before), 0);
    limit.rlim_max = before.rlim_max;
    ASSERT_EQ(prlimit(daemonPid(), RLIMIT_NOFILE, &limit, nullptr), 0);
  }
  rlim_t allowed() const {
    rlimit limit = {};
    prlimit(daemonPid(), RLIMIT_NOFILE, nullptr, &limit);
    return limit.rlim_cur;
  }
  std::size_t open() const {
    const std::filesystem::directory_iterator folder("/proc/" + std::to_string(daemonPid()) +
                                                     "/fd");
    return static_cast<std::size_t>(std::distance(begin(folder), end(folder)));
  }
};

TEST_F(DescriptorsTest, ShortageIsToldAndPassesWithoutATrace) {
  const pid_t daemon = daemonPid();
  ChannelClient client = peer();
  ASSERT_EQ(client.ask(Json{{"cmd", "status"}})["ok"], true);
  const std::size_t openBefore = open();
  const rlim_t before = allowed();
  allow(3);
  const Json refused = client.ask(Json{{"cmd", "maintenance"}, {"password", "x"}});
  EXPECT_EQ(refused["ok"], false) << refused;
  EXPECT_EQ(client.ask(Json{{"cmd", "status"}})["provisioned"], true);
  const std::string printed = mac.read("/private/var/log/com.brindlex.stream.kioskd.stderr.log");
  EXPECT_NE(printed.find(std::string("cannot open ") + kStateDir +
                         " without following a link: Too many open files"),
            std::string::npos)
      << printed;
  ChannelClient late = peer();
  allow(before);
  EXPECT_EQ(late.ask(Json{{"cmd", "status"}})["provisioned"], true);
  EXPECT_EQ(client.ask(Json{{"cmd", "maintenance"}, {"password", "x"}})["error"], "wrong_password");
  EXPECT_EQ(mac.state()["maintenanceFailures"], 2);
  EXPECT_EQ(daemonPid(), daemon);
  EXPECT_TRUE(Eventually([&] { return open() <= openBefore + 1; })) << open();
}

}  // namespace
