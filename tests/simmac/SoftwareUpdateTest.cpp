#include <fcntl.h>
#include <sys/wait.h>
#include <unistd.h>

#include <array>
#include <csignal>

#include "simulator/mac/Limits.h"
#include "simulator/mac/SettingsFile.h"
#include "simulator/mac/Spawn.h"
#include "tests/simmac/TestMac.h"

namespace simmac {
namespace {

constexpr char kTool[] = "/usr/sbin/softwareupdate";
constexpr char kHead[] = "Software Update Tool\n\n";
constexpr char kScan[] = "Software Update Tool\n\nFinding available software\n";
constexpr char kFound[] = "Software Update found the following new or updated software:\n";
constexpr char kRestartNotice[] =
    "You have installed one or more updates that requires that you restart your\n"
    "computer.  Please restart immediately.\n";

/// Contents that no tool can have written, and that offer nothing.
constexpr const char* kMalformed[] = {
    "",
    "{",
    "[]",
    "5",
    "null",
    R"({"updates": {}, "format": 1, "progress": [], "reachable": 0, "noise": 5, "scanMs": "x"})",
    R"({"updates": [1, null, [], {}, {"label": ""}, {"label": 5}], "scanMs": -5})",
    R"({"listStatus": 256, "installStatus": "1", "freeSpace": 1.5, "scanError": {}})"};

Json SystemUpdate() {
  return {{"label", "macOS Sonoma 14.7-23H124"},
          {"title", "macOS Sonoma 14.7"},
          {"macos", true},
          {"version", "14.7"},
          {"build", "23H124"},
          {"size", 1520555},
          {"action", "restart"}};
}

Json Package() {
  return {{"label", "Command Line Tools for Xcode-16.0"},
          {"title", "Command Line Tools for Xcode"},
          {"version", "16.0"},
          {"size", 745661}};
}

Json With(Json object, const Json& keys) {
  object.update(keys);
  return object;
}

/// A tool's whole answer.
void Expect(const RunResult& result, int status, const std::string& out, const std::string& err) {
  EXPECT_EQ(result.status, status);
  EXPECT_EQ(result.out, out);
  EXPECT_EQ(result.err, err);
}

/// What the tool prints of a package, from the download on.
std::string PackageCourse(const std::string& title) {
  return "Downloading " + title + "\nDownloaded " + title + "\nInstalling " + title +
         "\nDone with " + title + "\n";
}

/// The same of macOS, with the readings as they are to be.
std::string SystemCourse(const std::string& before, const std::string& after,
                         const std::string& end) {
  std::string text = "Downloading macOS Sonoma 14.7\n" + before + "Downloading: 0.10%" + after;
  for (int percent = 5; percent <= 100; percent += 5) {
    text += before + "Downloading: " + std::to_string(percent) + ".00%" + after;
  }
  return text + end + "Downloaded: macOS Sonoma 14.7\n";
}

class SoftwareUpdateTest : public SimulatedMacTest {
 protected:
  static RunResult tool(const TestMac& mac, const Words& arguments,
                        const std::string& user = "root") {
    Words command = {kTool};
    command.insert(command.end(), arguments.begin(), arguments.end());
    return mac.run(command, user);
  }

  static void offer(const TestMac& mac, const std::vector<Json>& updates,
                    const Json& keys = Json::object()) {
    mac.write(kUpdateCatalogue, With(keys, {{"updates", updates}}).dump());
  }

  static Json catalogue(const TestMac& mac) {
    return Json::parse(mac.read(kUpdateCatalogue), nullptr, false);
  }

  static Json systemVersion(const TestMac& mac) {
    return mac.tree().readPropertyList(platform::kMacSystemVersion).value_or(Json());
  }

  static Json shownSystem(const TestMac& mac) { return mac.status()["system"]; }
};

class SoftwareUpdateList : public SoftwareUpdateTest {};

TEST_F(SoftwareUpdateList, HasNothingOnANewMac) {
  const TestMac mac;
  Expect(tool(mac, {"-l"}), 0, kScan, "No new software available.\n");
  Expect(tool(mac, {"--list", "--no-scan"}), 0, kHead, "No new software available.\n");
  Expect(tool(mac, {"-l"}, "admin"), 0, kScan, "No new software available.\n");
}

TEST_F(SoftwareUpdateList, IsAModernOneByDefault) {
  const TestMac mac;
  offer(mac, {With(Package(), {{"unit", "K"}}), SystemUpdate()});
  const std::string list =
      std::string(kFound) +
      "* Label: Command Line Tools for Xcode-16.0\n"
      "\tTitle: Command Line Tools for Xcode, Version: 16.0, Size: 745661K, Recommended: YES, \n"
      "* Label: macOS Sonoma 14.7-23H124\n"
      "\tTitle: macOS Sonoma 14.7, Version: 14.7, Size: 1520555KiB, Recommended: YES, "
      "Action: restart, \n";
  Expect(tool(mac, {"-l"}), 0, kScan + list, "");
  Expect(tool(mac, {"-l", "--no-scan"}), 0, kHead + list, "");
}

TEST_F(SoftwareUpdateList, NamesWhatIsSpecialAboutAnUpdate) {
  const TestMac mac;
  offer(mac, {{{"label", "Firmware"}, {"action", "shut down"}, {"recommended", false}},
              With(SystemUpdate(), {{"deferred", true}})});
  Expect(tool(mac, {"-l"}), 0,
         std::string(kScan) + kFound +
             "* Label: Firmware\n"
             "\tTitle: Firmware, Version: , Size: 0KiB, Recommended: NO, Action: shut down, \n"
             "* Label: macOS Sonoma 14.7-23H124\n"
             "\tTitle: macOS Sonoma 14.7, Version: 14.7, Size: 1520555KiB, Recommended: YES, "
             "Action: restart, Deferred: YES\n",
         "");
}

TEST_F(SoftwareUpdateList, MayBeAnOldOne) {
  const TestMac mac;
  offer(
      mac,
      {{{"label", "Safari14.0MojaveAuto-14.0"},
        {"title", "Safari"},
        {"version", "14.0"},
        {"size", 67309}},
       {{"label", "macOS 10.14.1 Update-"}, {"title", "macOS"}, {"size", 5}, {"action", "restart"}},
       {{"label", "BridgeOS"}, {"version", "1"}, {"action", "shut down"}, {"recommended", false}}},
      {{"format", "old"}});
  Expect(tool(mac, {"-l"}), 0,
         std::string(kScan) + kFound +
             "   * Safari14.0MojaveAuto-14.0\n\tSafari (14.0), 67309K [recommended]\n"
             "   * macOS 10.14.1 Update-\n\tmacOS ( ), 5K [recommended] [restart]\n"
             "   - BridgeOS\n\tBridgeOS (1), 0K [shut down]\n",
         "");
}

TEST_F(SoftwareUpdateList, MayBeAccompaniedByNoise) {
  const TestMac mac;
  offer(mac, {Package()}, {{"noise", Json::array({"XType: one", "XType: two"})}});
  const RunResult result = tool(mac, {"-l"});
  EXPECT_EQ(WithoutLogPrefixes(result.err), "XType: one\nXType: two\n");
  EXPECT_NE(result.err, "XType: one\nXType: two\n");
  EXPECT_EQ(result.out.rfind(std::string(kScan) + kFound, 0), 0U);
  EXPECT_EQ(tool(mac, {"-l", "--no-scan"}).err, "");
}

TEST_F(SoftwareUpdateList, FailsWithoutANetwork) {
  const TestMac mac;
  offer(mac, {Package()}, {{"reachable", false}});
  const std::string why =
      "Can't connect to the Apple Software Update server, because you are not connected to the "
      "Internet.\n\n";
  Expect(tool(mac, {"-l"}), 1, kScan, why);
  Expect(tool(mac, {"-i", "-a"}), 1, kScan, why);
  EXPECT_EQ(tool(mac, {"-l", "--no-scan"}).status, 0);
  EXPECT_EQ(catalogue(mac)["updates"].size(), 1U);
}

TEST_F(SoftwareUpdateList, FailsWithAnErrorOfTheScan) {
  const TestMac mac;
  const std::string error = "Scan finished with error: Error Domain=NSURLErrorDomain Code=-1005";
  offer(mac, {Package()}, {{"scanError", error}});
  Expect(tool(mac, {"-l"}), 1, kHead, error + "\n");
}

TEST_F(SoftwareUpdateList, ExitsWithTheStatusThatIsWanted) {
  const TestMac mac;
  offer(mac, Json::array(), {{"listStatus", 2}, {"installStatus", 3}});
  EXPECT_EQ(tool(mac, {"-l"}).status, 2);
  EXPECT_EQ(tool(mac, {"-i", "-a"}).status, 3);
  offer(mac, {Package()}, {{"reachable", false}, {"listStatus", 0}, {"installStatus", 0}});
  EXPECT_EQ(tool(mac, {"-l"}).status, 0);
  EXPECT_EQ(tool(mac, {"-i", "-a"}).status, 0);
}

TEST_F(SoftwareUpdateList, SurvivesAnyCatalogueAndLeavesItAsItIs) {
  const TestMac mac;
  for (const char* contents : kMalformed) {
    mac.write(kUpdateCatalogue, contents);
    EXPECT_EQ(tool(mac, {"-l"}).err, "No new software available.\n") << contents;
    Expect(tool(mac, {"-i", "-a"}), 0, kScan, "No updates are available.\n");
    EXPECT_EQ(mac.read(kUpdateCatalogue), contents);
  }
  ASSERT_EQ(unlink(mac.path(kUpdateCatalogue).c_str()), 0);
  EXPECT_EQ(tool(mac, {"-l"}).err, "No new software available.\n");
}

TEST_F(SoftwareUpdateList, LeavesOutWhatIsWrongAboutAnUpdate) {
  const TestMac mac;
  mac.write(kUpdateCatalogue,
            R"({"updates": [{"label": "A", "title": 5, "version": [], "size": -1, "unit": "G",
                "recommended": "no", "action": "explode", "macos": 1, "durationMs": -7,
                "failure": "no", "password": 1}, 7,
                {"label": "B", "size": 99999999999999999999, "durationMs": "long"}]})");
  Expect(tool(mac, {"-l", "--no-scan"}), 0,
         std::string(kHead) + kFound +
             "* Label: A\n\tTitle: A, Version: , Size: 0KiB, Recommended: YES, \n"
             "* Label: B\n\tTitle: B, Version: , Size: 0KiB, Recommended: YES, \n",
         "");
  EXPECT_EQ(tool(mac, {"-i", "-a"}).status, 0);
}

TEST_F(SoftwareUpdateList, HasALimit) {
  const TestMac mac;
  Json updates = Json::array();
  for (std::size_t i = 0; i < kMaxUpdates + 3; ++i) {
    updates.push_back({{"label", "U" + std::to_string(i)}});
  }
  offer(mac, updates);
  const std::string list = tool(mac, {"-l"}).out;
  EXPECT_NE(list.find("* Label: U" + std::to_string(kMaxUpdates - 1) + "\n"), std::string::npos);
  EXPECT_EQ(list.find("* Label: U" + std::to_string(kMaxUpdates) + "\n"), std::string::npos);
}

TEST_F(SoftwareUpdateList, KnowsItsOptions) {
  const TestMac mac;
  const RunResult help = tool(mac, {"--help"});
  EXPECT_EQ(help.status, 0);
  EXPECT_EQ(help.out.rfind("usage: softwareupdate <cmd> [<args> ...]\n", 0), 0U);
  Expect(tool(mac, {"--install", "--req"}), 1, "",
         "softwareupdate: unrecognized option `--req'\n" + help.out);
  Expect(tool(mac, {"-q"}), 1, "", "softwareupdate: invalid option -- q\n" + help.out);
  for (const Words& arguments : {Words{}, Words{"-a"}, Words{"-i"}, Words{"-l", "-i", "-a"}}) {
    Expect(tool(mac, arguments), 1, "", help.out);
  }
}

class SoftwareUpdateInstall : public SoftwareUpdateTest {};

TEST_F(SoftwareUpdateInstall, TellsOfAPackageStepByStep) {
  const TestMac mac;
  offer(mac, {Package()});
  Expect(tool(mac, {"-i", "-a"}), 0,
         std::string(kScan) + "\n" + PackageCourse("Command Line Tools for Xcode") + "Done.\n", "");
  EXPECT_EQ(catalogue(mac)["updates"], Json::array());
  EXPECT_EQ(catalogue(mac)["installed"], Json::array({"Command Line Tools for Xcode-16.0"}));
  Expect(tool(mac, {"-i", "-a"}), 0, kScan, "No updates are available.\n");
}

TEST_F(SoftwareUpdateInstall, SaysFirstWhatTheLicenceOptionMeans) {
  const TestMac mac;
  offer(mac, {Package()});
  Expect(tool(mac, {"-i", "-a", "--agree-to-license", "--no-scan"}), 0,
         "By using the agreetolicense option, you are agreeing that you have run this tool with "
         "the license only option and have read and agreed to the terms.\n"
         "If you do not agree, press CTRL-C and cancel this process immediately.\n" +
             std::string(kHead) + "\n" + PackageCourse("Command Line Tools for Xcode") + "Done.\n",
         "");
}

TEST_F(SoftwareUpdateInstall, ShowsTheDownloadOfTheSystemInEveryStyle) {
  const TestMac mac;
  const std::vector<std::pair<std::string, std::string>> styles = {
      {"lines", SystemCourse("", "\n", "")},
      {"returns", SystemCourse("\r", "", "\n")},
      {"together", SystemCourse("", "", "\n")},
      {"none", "Downloading macOS Sonoma 14.7\n\nDownloaded: macOS Sonoma 14.7\n"}};
  for (const auto& [style, course] : styles) {
    offer(mac, {SystemUpdate()}, {{"progress", style}});
    Expect(tool(mac, {"-i", "-a"}), 0, kScan + course, "");
  }
}

TEST_F(SoftwareUpdateInstall, InstallsWhatItIsToldTo) {
  const TestMac mac;
  const std::vector<Json> updates = {{{"label", "A"}},
                                     {{"label", "B"}, {"recommended", false}},
                                     {{"label", "C"}, {"deferred", true}},
                                     {{"label", "D-1.0 beta"}}};
  const std::vector<std::pair<Words, Json>> calls = {
      {{"--install", "--all"}, {"A", "B", "D-1.0 beta"}},
      {{"-i", "-r"}, {"A", "D-1.0 beta"}},
      {{"-i", "--recommended"}, {"A", "D-1.0 beta"}},
      {{"-i", "D-1.0 beta", "B"}, {"B", "D-1.0 beta"}},
      {{"-i", "-r", "C"}, {"A", "C", "D-1.0 beta"}}};
  for (const auto& [arguments, installed] : calls) {
    offer(mac, updates);
    EXPECT_EQ(tool(mac, arguments).status, 0);
    EXPECT_EQ(catalogue(mac)["installed"], installed);
    EXPECT_EQ(catalogue(mac)["updates"].size() + installed.size(), updates.size());
  }
}

TEST_F(SoftwareUpdateInstall, KeepsWhatItDoesNotKnowInTheCatalogue) {
  const TestMac mac;
  offer(mac, {Package(), {{"label", "B"}, {"remark", "mine"}}, 7}, {{"remark", {1, 2}}});
  EXPECT_EQ(tool(mac, {"-i", "Command Line Tools for Xcode-16.0"}).status, 0);
  EXPECT_EQ(catalogue(mac)["updates"], Json::array({{{"label", "B"}, {"remark", "mine"}}, 7}));
  EXPECT_EQ(catalogue(mac)["remark"], Json({1, 2}));
}

TEST_F(SoftwareUpdateInstall, SaysOfALabelThatThereIsNoSuchUpdate) {
  const TestMac mac;
  Expect(tool(mac, {"-i", "Command Line Tools for Xcode-16.2"}), 0, kScan,
         "Command Line Tools for Xcode-16.2: No such update\nNo updates are available.\n");
  offer(mac, {Package()});
  const RunResult result = tool(mac, {"-i", "X", "Command Line Tools for Xcode-16.0"});
  EXPECT_EQ(result.status, 0);
  EXPECT_EQ(result.err, "X: No such update\n");
  EXPECT_EQ(catalogue(mac)["updates"], Json::array());
}

TEST_F(SoftwareUpdateInstall, IsForRootOnly) {
  const TestMac mac;
  offer(mac, {Package()});
  Expect(tool(mac, {"-i", "-a"}, "admin"), 1, "", "Password:");
  EXPECT_EQ(catalogue(mac)["updates"].size(), 1U);
}

TEST_F(SoftwareUpdateInstall, MayEndAtAPromptForAPassword) {
  const TestMac mac;
  offer(mac, {With(SystemUpdate(), {{"password", true}}), Package()}, {{"progress", "none"}});
  Expect(tool(mac, {"-i", "-a"}), 1,
         std::string(kScan) + "Downloading macOS Sonoma 14.7\n\nDownloaded: macOS Sonoma 14.7\n",
         "Failed to authenticate\nPassword:");
  EXPECT_EQ(catalogue(mac)["updates"].size(), 2U);
  EXPECT_FALSE(catalogue(mac).contains("atNextBoot"));
}

TEST_F(SoftwareUpdateInstall, EndsWithTheFirstThatFailsAndKeepsWhatIsDone) {
  const TestMac mac;
  const Json failing =
      With(Package(), {{"label", "B"}, {"failure", {{"status", 7}, {"text", "Cannot verify."}}}});
  offer(mac, {Package(), failing, {{"label", "C"}}});
  const std::string title = "Command Line Tools for Xcode";
  Expect(tool(mac, {"-i", "-a"}), 7,
         std::string(kScan) + "\n" + PackageCourse(title) + "Downloading " + title +
             "\nDownloaded " + title + "\n",
         "Cannot verify.\n");
  EXPECT_EQ(catalogue(mac)["installed"], Json::array({"Command Line Tools for Xcode-16.0"}));
  EXPECT_EQ(catalogue(mac)["updates"].size(), 2U);
  offer(mac, {{{"label", "B"}, {"failure", Json::object()}}});
  const RunResult silent = tool(mac, {"-i", "-a"});
  EXPECT_EQ(silent.status, 1);
  EXPECT_EQ(silent.err, "");
}

TEST_F(SoftwareUpdateInstall, NeedsRoomOnTheDisk) {
  const TestMac mac;
  offer(mac, {With(SystemUpdate(), {{"size", 15986328}}), Package()}, {{"freeSpace", 16731988}});
  Expect(tool(mac, {"-i", "-a"}), 1, kScan,
         "Not enough free disk space: a total of 17.13 GB is required.\n");
  EXPECT_EQ(catalogue(mac)["updates"].size(), 2U);
  Json roomy = catalogue(mac);
  roomy["freeSpace"] = 16731989;
  mac.write(kUpdateCatalogue, roomy.dump());
  EXPECT_EQ(tool(mac, {"-i", "-a"}).status, 0);
}

TEST_F(SoftwareUpdateInstall, MayAskForARestartThatTheListDoesNotMention) {
  const TestMac mac;
  offer(mac, {With(Package(), {{"restartNotice", true}})});
  EXPECT_EQ(tool(mac, {"-l"}).out.find("restart"), std::string::npos);
  const std::string course = std::string(kScan) + "\n" +
                             PackageCourse("Command Line Tools for Xcode") + "Done.\n" +
                             kRestartNotice;
  Expect(tool(mac, {"-i", "-a"}), 0, course, "");
  offer(mac, {With(Package(), {{"action", "restart"}})}, {{"format", "old"}});
  Expect(tool(mac, {"-i", "-a"}), 0, course, "");
}

TEST_F(SoftwareUpdateInstall, LeavesAWholeLineInTheJournal) {
  const TestMac mac;
  offer(mac, {SystemUpdate()}, {{"progress", "returns"}});
  const RunResult result = tool(mac, {"-i", "-a"});
  const Json call = mac.journal().back();
  EXPECT_EQ(call["tool"], kTool);
  EXPECT_EQ(call["output"], result.out);
  const std::string shown = mac.simmac("journal").out;
  EXPECT_NE(shown.find("      | Downloading: 5.00%\n      | Downloading: 10.00%\n"),
            std::string::npos);
}

TEST_F(SoftwareUpdateInstall, MayBeMadeToMisbehave) {
  const TestMac mac;
  offer(mac, {Package()});
  EXPECT_EQ(mac.simmac("fault", {"add", "--target", kTool, "--argument", "-i", "--error", "no\n",
                                 "--status", "4", "--times", "1"})
                .err,
            "");
  EXPECT_EQ(tool(mac, {"-l"}).status, 0);
  Expect(tool(mac, {"-i", "-a"}), 4, "", "no\n");
  EXPECT_EQ(tool(mac, {"-i", "-a"}).status, 0);
}

/// The tool at work, its standard output in a pipe.
class RunningInstall {
 public:
  explicit RunningInstall(const TestMac& mac) {
    std::array<int, 2> ends{};
    EXPECT_EQ(pipe2(ends.data(), O_CLOEXEC), 0);
    _out = Descriptor(ends[0]);
    const Descriptor in(ends[1]);
    SpawnRequest request;
    request.arguments = {SIMMAC_EXECUTABLE, "run", mac.root(), kTool, "-i", "-a"};
    request.output = in.get();
    _pid = Spawn(request);
  }
  ~RunningInstall() {
    (void)kill(_pid, SIGTERM);
    (void)waitpid(_pid, nullptr, 0);
  }
  RunningInstall(const RunningInstall&) = delete;
  RunningInstall& operator=(const RunningInstall&) = delete;

  /// Reads until the text is there; false when the output ends before.
  bool prints(const std::string& text) {
    std::array<char, 4096> chunk{};
    while (_text.find(text) == std::string::npos) {
      const ssize_t count = read(_out.get(), chunk.data(), chunk.size());
      if (count <= 0) return false;
      _text.append(chunk.data(), static_cast<std::size_t>(count));
    }
    return true;
  }
  const std::string& text() const { return _text; }
  pid_t pid() const { return _pid; }

 private:
  Descriptor _out;
  pid_t _pid = -1;
  std::string _text;
};

TEST_F(SoftwareUpdateInstall, IsSeenWhileItGoesOn) {
  const TestMac mac;
  constexpr int kAnHour = 3'600'000;
  offer(mac, {With(SystemUpdate(), {{"durationMs", kAnHour}})}, {{"progress", "returns"}});
  RunningInstall install(mac);
  EXPECT_TRUE(install.prints("\rDownloading: 0.10%"));
  EXPECT_TRUE(IsAlive(install.pid()));
  EXPECT_TRUE(mac.journal().empty());
  EXPECT_EQ(catalogue(mac)["updates"].size(), 1U);
}

TEST_F(SoftwareUpdateInstall, AdvancesWhileItGoesOn) {
  const TestMac mac;
  constexpr int kAMinute = 60'000;
  offer(mac, {With(SystemUpdate(), {{"durationMs", kAMinute}})}, {{"progress", "together"}});
  RunningInstall install(mac);
  EXPECT_TRUE(install.prints("Downloading: 5.00%"));
  EXPECT_EQ(install.text().find("Downloaded"), std::string::npos);
}

TEST_F(SoftwareUpdateInstall, ThatIsEndedLeavesTheUpdateOnOffer) {
  const TestMac mac;
  offer(mac, {With(Package(), {{"durationMs", 3'600'000}})});
  {
    RunningInstall install(mac);
    EXPECT_TRUE(install.prints("Downloading Command Line Tools for Xcode\n"));
  }
  EXPECT_EQ(catalogue(mac)["updates"].size(), 1U);
  EXPECT_FALSE(catalogue(mac).contains("installed"));
}

class SystemUpdates : public SoftwareUpdateTest {
 protected:
  static bool comesUpAgain(const TestMac& mac) {
    return Eventually([&] {
      const Json status = mac.status();
      return status["bootCount"] == 2 && status["login"] == true;
    });
  }
};

TEST_F(SystemUpdates, AreTheSystemAtOnceWhenTheyNeedNoRestart) {
  const TestMac mac;
  offer(mac, {With(SystemUpdate(), {{"action", "none"}})});
  EXPECT_EQ(tool(mac, {"-i", "-a"}).status, 0);
  const Json list = systemVersion(mac);
  EXPECT_EQ(list["ProductVersion"], "14.7");
  EXPECT_EQ(list["ProductUserVisibleVersion"], "14.7");
  EXPECT_EQ(list["ProductBuildVersion"], "23H124");
  EXPECT_EQ(list["ProductName"], "macOS");
  EXPECT_FALSE(catalogue(mac).contains("atNextBoot"));
}

TEST_F(SystemUpdates, AreTheSystemAfterTheRestart) {
  TestMac mac;
  offer(mac, {SystemUpdate()});
  mac.boot();
  EXPECT_EQ(tool(mac, {"-i", "-a"}).status, 0);
  EXPECT_EQ(systemVersion(mac)["ProductVersion"], "14.6.1");
  EXPECT_EQ(shownSystem(mac), Json({{"version", "14.6.1"}, {"build", "23G93"}}));
  EXPECT_EQ(catalogue(mac)["atNextBoot"], Json({{"version", "14.7"}, {"build", "23H124"}}));
  EXPECT_EQ(mac.run({"/sbin/shutdown", "-r", "now"}).out, "Shutdown NOW!\n");
  ASSERT_TRUE(comesUpAgain(mac)) << mac.timeline();
  EXPECT_EQ(systemVersion(mac)["ProductVersion"], "14.7");
  EXPECT_EQ(systemVersion(mac)["ProductBuildVersion"], "23H124");
  EXPECT_EQ(shownSystem(mac), Json({{"version", "14.7"}, {"build", "23H124"}}));
  EXPECT_NE(mac.simmac("status").out.find("\nmacOS 14.7 (23H124)\n"), std::string::npos);
  EXPECT_TRUE(mac.timelineHas("launchd: updated to macOS 14.7 (23H124)\n"));
  EXPECT_FALSE(catalogue(mac).contains("atNextBoot"));
}

TEST_F(SystemUpdates, AreTheSystemAtTheNextBootOfAMacThatWasOff) {
  TestMac mac;
  Json update = With(SystemUpdate(), {{"action", "shut down"}});
  update.erase("build");
  offer(mac, {update});
  EXPECT_EQ(tool(mac, {"-i", "-a"}).status, 0);
  EXPECT_EQ(shownSystem(mac), Json({{"version", "14.6.1"}, {"build", "23G93"}}));
  mac.boot();
  EXPECT_EQ(shownSystem(mac), Json({{"version", "14.7"}, {"build", "23G93"}}));
}

TEST_F(SystemUpdates, RestartTheMacWhenThatIsAskedFor) {
  TestMac mac;
  offer(mac, {SystemUpdate(), Package()});
  mac.boot();
  (void)tool(mac, {"-i", "-a", "-R"});
  ASSERT_TRUE(comesUpAgain(mac)) << mac.timeline();
  EXPECT_EQ(shownSystem(mac)["version"], "14.7");
  EXPECT_EQ(mac.journal().back()["status"], 0);
}

TEST_F(SystemUpdates, SwitchTheMacOffWhenTheyNeedThat) {
  TestMac mac;
  offer(mac, {With(SystemUpdate(), {{"action", "shut down"}})});
  mac.boot();
  (void)tool(mac, {"-i", "-a", "--restart"});
  EXPECT_EQ(mac.bootStatus(), 0);
  EXPECT_EQ(mac.status()["running"], false);
}

TEST_F(SystemUpdates, DoNotRestartForWhatNeedsNoRestart) {
  TestMac mac;
  offer(mac, {Package()});
  mac.boot();
  EXPECT_EQ(tool(mac, {"-i", "-a", "-R"}).status, 0);
  EXPECT_EQ(mac.status()["bootCount"], 1);
  EXPECT_NE(access(mac.path(platform::kMacPowerRequest).c_str(), F_OK), 0);
}

TEST_F(SystemUpdates, DoNotKeepAMacFromBootingWhateverTheirFileSays) {
  TestMac mac;
  mac.write(kUpdateCatalogue, R"({"atNextBoot": {"version": 15, "build": []}})");
  mac.boot();
  EXPECT_EQ(shownSystem(mac), Json({{"version", "14.6.1"}, {"build", "23G93"}}));
}

}  // namespace
}  // namespace simmac
