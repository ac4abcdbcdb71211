// OS updates: at the terminal through the real channel, and by themselves in the portal's window.
#include <chrono>
#include <csignal>
#include <filesystem>
#include <fstream>

#include "tests/system/EnrolledTest.h"

namespace {

constexpr char kSoftwareUpdate[] = "/usr/sbin/softwareupdate";
constexpr char kCatalogue[] = "/private/var/simulated/updates.json";
constexpr char kSystemVersion[] = "/System/Library/CoreServices/SystemVersion.plist";
constexpr char kSystemLabel[] = "macOS Sonoma 14.7-23H124";
constexpr char kToolsLabel[] = "Command Line Tools for Xcode-16.0";

// Long enough to be found at work; it can be halted as long as a test likes.
constexpr int kInstallMs = 10'000;

const Json kOk = {{"ok", true}};
const Json kBusy = {{"ok", false}, {"error", "busy"}};
const Json kNotUnlocked = {{"ok", false}, {"error", "not_unlocked"}};
const Json kNotPermitted = {{"ok", false}, {"error", "not_permitted"}};

Json SystemUpdate(int durationMs) {
  return {{"label", kSystemLabel}, {"title", "macOS Sonoma 14.7"},
          {"macos", true},         {"version", "14.7"},
          {"build", "23H124"},     {"size", 1520555},
          {"action", "restart"},   {"durationMs", durationMs}};
}

Json ToolsUpdate() {
  return {{"label", kToolsLabel},
          {"title", "Command Line Tools for Xcode"},
          {"version", "16.0"},
          {"size", 745661}};
}

const Json kBothAsShown = {{{"id", kSystemLabel},
                            {"title", "macOS Sonoma 14.7"},
                            {"sizeBytes", 1'557'048'320},
                            {"restartRequired", true}},
                           {{"id", kToolsLabel},
                            {"title", "Command Line Tools for Xcode 16.0"},
                            {"sizeBytes", 763'556'864},
                            {"restartRequired", false}}};

class UpdatesSystemTest : public EnrolledTest {
 protected:
  void offer(const std::vector<Json>& updates) const {
    mac.write(kCatalogue, Json{{"progress", "returns"}, {"updates", updates}}.dump());
  }
  Json installed() const { return mac.readJson(kCatalogue).value("installed", Json()); }
  bool hasSystem(const std::string& version) const {
    return mac.read(kSystemVersion).find("<string>" + version + "</string>") != std::string::npos;
  }
  std::size_t installs() const {
    return mac.countRuns(kSoftwareUpdate, {"-i", "-a", "--agree-to-license"});
  }

  Json send(const char* command, const std::string& token) const {
    return askAs(kKioskUser, {{"cmd", command}, {"unlockToken", token}});
  }
  Json updates(const std::string& token) const { return send("os.updates", token); }
  Json check(const std::string& token, const Json& flag = true) const {
    return askAs(kKioskUser, {{"cmd", "os.updates"}, {"unlockToken", token}, {"check", flag}});
  }
  /// Waits for the end of what the driver does; what it shows then.
  Json idle(const std::string& token) const {
    Json shown;
    EXPECT_TRUE(Eventually([&] {
      shown = updates(token);
      return shown["checking"] == false && shown["installing"] == false;
    })) << shown;
    return shown;
  }

  /// The tool that installs for the daemon; -1 while there is none.
  pid_t installer() const {
    const std::string tasks = "/proc/" + std::to_string(daemonPid()) + "/task";
    std::error_code gone;
    for (const auto& task : std::filesystem::directory_iterator(tasks, gone)) {
      std::ifstream children(task.path() / "children");
      for (pid_t child = -1; children >> child;) {
        if (commandOf(child).starts_with(std::string(kSoftwareUpdate) + '\0' + "-i")) return child;
      }
    }
    return -1;
  }
  static std::string commandOf(pid_t pid) {
    std::string command;
    std::getline(std::ifstream("/proc/" + std::to_string(pid) + "/cmdline"), command);
    return command;
  }
  pid_t awaitInstaller() const {
    pid_t pid = -1;
    EXPECT_TRUE(Eventually([&] { return (pid = installer()) > 1; }));
    return pid;
  }

  /// Lets the tool work until the progress is beyond this, and halts it there. The progress.
  double haltBeyond(double progress, pid_t tool, const std::string& token) const {
    double shown = -1;
    EXPECT_TRUE(Eventually([&] {
      signal(tool, SIGSTOP);
      shown = updates(token).value("progress", -1.0);
      if (shown > progress) return true;
      signal(tool, SIGCONT);
      return false;
    }));
    return shown;
  }
  static void signal(pid_t pid, int number) {
    if (pid > 1) kill(pid, number);
  }

  Json recordWithoutTime() const {
    Json record = mac.state().value("osUpdates", Json::object());
    record.erase("lastRunAt");
    return record;
  }
  bool isRecorded() const { return mac.state().contains("osUpdates"); }

  /// Has updates install by themselves, in a window that opened about twelve hours ago and is open
  /// for about twelve more: no midnight comes near it.
  void openWindow() const {
    mac.remove("/private/etc/localtime");
    std::filesystem::create_symlink("/usr/share/zoneinfo/UTC", mac.at("/private/etc/localtime"));
    using namespace std::chrono;
    const auto now = system_clock::now().time_since_epoch();
    const long hour = (duration_cast<hours>(now).count() + 12) % 24;
    const std::string start = (hour < 10 ? "0" : "") + std::to_string(hour) + ":00";
    portal.admin({"updates", "Lobby", "--automatic", "on", "--start", start, "--end", start,
                  "--days", "all", "--source", "tenant"});
  }
  std::string windowDone() const { return mac.state().value("updatesWindowDone", ""); }

  const Json restartRun = {
      {"lastResult", "ok"}, {"pending", 0}, {"restartRequired", true}, {"error", nullptr}};
};

TEST_F(UpdatesSystemTest, HearFromTheKioskUserOnlyHowTheSessionIsUsed) {
  const Json live = {{"cmd", "session.report"}, {"live", true}, {"signedIn", false}};
  const Json left = {{"cmd", "session.report"}, {"live", false}};
  EXPECT_EQ(askAs("root", live), kNotPermitted);
  EXPECT_EQ(askAs("admin", live), kNotPermitted);
  EXPECT_EQ(mac.countLog("kiosk session: stream live, signed out"), 0U);
  EXPECT_EQ(askAs(kKioskUser, live), kOk);
  EXPECT_EQ(askAs(kKioskUser, live), kOk);
  EXPECT_EQ(mac.countLog("kiosk session: stream live, signed out"), 1U);
  EXPECT_EQ(askAs("root", left), kNotPermitted);
  EXPECT_EQ(mac.countLog("kiosk session: stream idle, signed out"), 0U);
  EXPECT_EQ(askAs(kKioskUser, left), kOk);
  EXPECT_EQ(mac.countLog("kiosk session: stream idle, signed out"), 1U);
}

TEST_F(UpdatesSystemTest, AreForTheKioskUserWhoUnlockedThem) {
  offer({ToolsUpdate()});
  EXPECT_EQ(updates(""), kNotUnlocked);
  EXPECT_EQ(askAs(kKioskUser, {{"cmd", "os.updates"}, {"check", true}}), kNotUnlocked);
  EXPECT_EQ(askAs(kKioskUser, {{"cmd", "os.install"}}), kNotUnlocked);
  const std::string token = unlock();
  for (const char* command : {"os.updates", "os.install"}) {
    const Json request = {{"cmd", command}, {"unlockToken", token}, {"check", true}};
    EXPECT_EQ(askAs("root", request), kNotUnlocked);
  }
  EXPECT_EQ(updates(token)["ok"], true);
  EXPECT_TRUE(mac.runs(kSoftwareUpdate).empty());
}

TEST_F(UpdatesSystemTest, AreFoundByACheck) {
  offer({SystemUpdate(0), ToolsUpdate()});
  portal.admin({"updates", "Lobby", R"({"window": {"start": "01:30", "end": "04:00"}})"});
  const std::string token = unlock();
  const Json before = updates(token);
  EXPECT_EQ(before,
            (Json{{"ok", true},
                  {"checking", false},
                  {"installing", false},
                  {"progress", 0.0},
                  {"restartRequired", false},
                  {"lastChecked", nullptr},
                  {"updates", Json::array()},
                  {"error", nullptr},
                  {"policy",
                   {{"automatic", false},
                    {"window",
                     {{"start", "01:30"}, {"end", "04:00"}, {"days", {0, 1, 2, 3, 4, 5, 6}}}}}}}));
  EXPECT_EQ(check(token, "true"), before);
  EXPECT_EQ(check(token)["ok"], true);
  Json found = idle(token);
  EXPECT_TRUE(found["lastChecked"].is_string());
  EXPECT_EQ(found["updates"], kBothAsShown);
  found["lastChecked"] = nullptr;
  found["updates"] = Json::array();
  EXPECT_EQ(found, before);
  EXPECT_EQ(mac.runs(kSoftwareUpdate), (std::vector<ToolRun>{{kSoftwareUpdate, {"-l"}, 0}}));
  EXPECT_EQ(mac.countLog("OS updates: 2 pending"), 1U);
}

TEST_F(UpdatesSystemTest, InstallAtTheTerminalWhileTheDaemonServesOn) {
  restartMac();
  offer({SystemUpdate(kInstallMs), ToolsUpdate()});
  const std::string token = unlock();
  const int boots = bootCount();
  EXPECT_EQ(send("os.install", token), kOk);
  const pid_t tool = awaitInstaller();
  const double early = haltBeyond(0, tool, token);
  EXPECT_EQ(ask({{"cmd", "status"}})["ok"], true);
  EXPECT_EQ(send("power.get", token)["ok"], true);
  EXPECT_EQ(send("time.get", token)["ok"], true);
  EXPECT_EQ(send("os.install", token), kBusy);
  EXPECT_EQ(check(token), kBusy);
  const Json shown = updates(token);
  EXPECT_EQ(shown["installing"], true);
  EXPECT_EQ(shown["updates"], kBothAsShown);
  EXPECT_LE(haltBeyond(early, tool, token), 100);
  EXPECT_EQ(installed(), Json()) << "the download goes on";

  signal(tool, SIGCONT);
  const Json after = idle(token);
  EXPECT_EQ(after["updates"], Json::array());
  EXPECT_EQ(after["restartRequired"], true);
  EXPECT_EQ(after["progress"], 0);
  EXPECT_EQ(after["error"], nullptr);
  EXPECT_TRUE(Eventually([this] { return isRecorded(); }));
  EXPECT_EQ(recordWithoutTime(), restartRun);
  EXPECT_EQ(windowDone(), "") << "an install at the terminal is no window's";
  EXPECT_EQ(installed(), Json::array({kSystemLabel, kToolsLabel}));
  EXPECT_EQ(mac.countLog("OS updates: install started at the terminal"), 1U);
  EXPECT_EQ(mac.countLog("OS updates installed; a restart is required"), 1U);
  EXPECT_EQ(installs(), 1U);
  EXPECT_EQ(mac.countRuns("/sbin/shutdown", {}), 0U);
  EXPECT_EQ(bootCount(), boots);
}

TEST_F(UpdatesSystemTest, InstallByThemselvesInTheirWindowAndRestartTheMacOnce) {
  halt();  // a check-in before the restart would have the window
  offer({SystemUpdate(0)});
  openWindow();
  EXPECT_FALSE(hasSystem("14.7"));
  restartMac();
  ASSERT_TRUE(Eventually([this] { return bootCount() == 3; })) << timeline();
  EXPECT_TRUE(hasSystem("14.7"));
  EXPECT_EQ(mac.countLog("OS updates need a restart; restarting inside the window"), 1U);
  EXPECT_EQ(recordWithoutTime(), restartRun);

  // The second start's check-in tells of the run, and finds that this window has had it.
  Json shown;
  EXPECT_TRUE(Eventually([&] {
    shown = portal.admin({"show", "Lobby"})["osUpdates"];
    return shown.is_object();
  }));
  EXPECT_EQ(shown, mac.state()["osUpdates"]);
  EXPECT_EQ(ask({{"cmd", "time.get"}}), kNotUnlocked) << "answered once the check-in is over";
  EXPECT_EQ(mac.countLog("OS updates: the " + windowDone() + " window is open; installing"), 1U);
  EXPECT_EQ(installs(), 1U);
  EXPECT_EQ(mac.countRuns(kSoftwareUpdate, {"-l"}), 1U);
  EXPECT_EQ(mac.countRuns("/sbin/shutdown", {"-r", "now"}), 1U);
  EXPECT_EQ(bootCount(), 3);
  endsByThePortalsInterface();
}

TEST_F(UpdatesSystemTest, InstallAfterADaemonThatWasKilledWhileItInstalled) {
  offer({SystemUpdate(kInstallMs)});
  std::string token = unlock();
  EXPECT_EQ(send("os.install", token), kOk);
  const pid_t tool = awaitInstaller();
  haltBeyond(0, tool, token);
  const Json before = mac.state();
  replaceDaemon();
  EXPECT_TRUE(Eventually([&] { return commandOf(tool).empty(); })) << "it goes with its daemon";
  EXPECT_EQ(installed(), Json());
  EXPECT_EQ(updates(token), kNotUnlocked) << "an unlock ends with its daemon";

  token = unlock();
  EXPECT_EQ(mac.state(), before);
  EXPECT_EQ(updates(token)["installing"], false);
  offer({SystemUpdate(0)});
  EXPECT_EQ(send("os.install", token), kOk);
  EXPECT_TRUE(Eventually([this] { return isRecorded(); }));
  EXPECT_EQ(recordWithoutTime(), restartRun);
  EXPECT_EQ(installed(), Json::array({kSystemLabel}));
}

TEST_F(UpdatesSystemTest, AreTriedAgainInTheirWindowWhenTheDaemonWasKilledMeanwhile) {
  offer({SystemUpdate(kInstallMs)});
  openWindow();
  replaceDaemon();
  const pid_t tool = awaitInstaller();
  signal(tool, SIGSTOP);
  EXPECT_EQ(windowDone(), "");
  offer({SystemUpdate(0)});
  replaceDaemon();
  EXPECT_TRUE(Eventually([this] { return !windowDone().empty(); }));
  EXPECT_EQ(recordWithoutTime(), restartRun);
  EXPECT_EQ(mac.countLog("OS updates: the " + windowDone() + " window is open; installing"), 2U);
  EXPECT_EQ(installs(), 1U) << "the killed one left no trace";
  EXPECT_EQ(installed(), Json::array({kSystemLabel}));
}

}  // namespace
