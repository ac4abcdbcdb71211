#include <sys/stat.h>
#include <unistd.h>

#include <filesystem>
#include <fstream>

#include "simulator/mac/tools/Tool.h"
#include "tests/simmac/TestMac.h"

namespace simmac {
namespace {

class Create : public SimulatedMacTest {};
class CommandLine : public SimulatedMacTest {};

std::string ModeOf(const TestMac& mac, const std::string& path) {
  struct stat status {};
  EXPECT_EQ(lstat(mac.path(path).c_str(), &status), 0) << path;
  char text[16];
  (void)std::snprintf(text, sizeof text, "%04o %u", status.st_mode & 07777, status.st_uid);
  return text;
}

TEST_F(Create, GivesFoldersTheOwnersAndModesOfAMac) {
  const TestMac mac;
  for (const char* path : {"/", "/Library/LaunchDaemons", "/Library/Preferences", "/usr/bin"}) {
    EXPECT_EQ(ModeOf(mac, path), "0755 0") << path;
  }
  EXPECT_EQ(ModeOf(mac, "/private/tmp"), "1777 0");
  EXPECT_EQ(ModeOf(mac, "/Users/admin"), "0700 501");
  EXPECT_EQ(ModeOf(mac, "/Users/admin/Library/Preferences"), "0700 501");
  EXPECT_EQ(std::filesystem::read_symlink(mac.path("/etc")), "private/etc");
}

TEST_F(Create, InstallsEveryToolSoThatItStartsInside) {
  const TestMac mac;
  for (const Tool& tool : Tools()) EXPECT_EQ(ModeOf(mac, tool.path), "0755 0") << tool.path;
  EXPECT_EQ(mac.run({"/usr/bin/fdesetup", "status"}).out, "FileVault is Off.\n");
}

TEST_F(Create, MakesAnAdministratorSoThatTheNextUserIs502) {
  const TestMac mac;
  EXPECT_EQ(mac.tree().userNamed("admin")->uid, 501U);
  EXPECT_EQ(mac.run({"/usr/sbin/dseditgroup", "-o", "checkmember", "-m", "admin", "admin"}).status,
            0);
}

TEST_F(Create, SeedsNetworkServicesOfEveryKind) {
  const TestMac mac({"--tools-only", "--computer-name", "Lobby 7"});
  const Json list = *mac.tree().readPropertyList(platform::kMacNetworkPreferences);
  EXPECT_EQ(list["System"]["System"]["ComputerName"], "Lobby 7");
  EXPECT_EQ(list["System"]["Network"]["HostNames"]["LocalHostName"], "Lobby-7");
  const Json set = list[Json::json_pointer(list["CurrentSet"].get<std::string>())];
  const Json order = set["Network"]["Global"]["IPv4"]["ServiceOrder"];
  ASSERT_EQ(order.size(), 3U);
  const Json& services = list["NetworkServices"];
  EXPECT_TRUE(services[order[0].get<std::string>()].contains("DNS"));
  EXPECT_FALSE(services[order[1].get<std::string>()].contains("DNS"));
  EXPECT_EQ(services[order[2].get<std::string>()]["__INACTIVE__"], 1);
}

TEST_F(Create, WritesThePortalWhereOnlyRootReadsIt) {
  const TestMac mac({"--tools-only", "--portal", "https://localhost:8443"});
  const std::string folder = "/Library/Application Support/Brindlex/Kiosk";
  EXPECT_EQ(ModeOf(mac, folder), "0711 0");
  EXPECT_EQ(ModeOf(mac, folder + "/state.json"), "0600 0");
  EXPECT_EQ(Json::parse(mac.read(folder + "/state.json")),
            Json({{"authBaseUrl", "https://localhost:8443"}}));
}

TEST_F(Create, KnowsTheVersionsItWasGiven) {
  const TestMac mac(
      {"--tools-only", "--os-version", "13.6", "--os-build", "22G120", "--app-version", "9.9"});
  EXPECT_EQ((*mac.tree().readPropertyList(platform::kMacSystemVersion))["ProductVersion"], "13.6");
  EXPECT_EQ((*mac.tree().readPropertyList(
                "/Applications/Brindlex.app/Contents/Info.plist"))["CFBundleShortVersionString"],
            "9.9");
}

TEST_F(Create, LeavesWhatIsThereUnlessForced) {
  const TestMac mac;
  mac.write("/private/tmp/mark", "old");
  EXPECT_EQ(mac.simmac("create", {"--tools-only"}).status, 1);
  EXPECT_EQ(mac.read("/private/tmp/mark"), "old");
  EXPECT_EQ(mac.simmac("create", {"--tools-only", "--force"}).status, 0);
  EXPECT_EQ(mac.read("/private/tmp/mark"), "");
}

TEST_F(Create, LeavesNothingBehindWhenItFails) {
  const std::string root = SIMMAC_TEST_FOLDER "/failed-" + std::to_string(getpid());
  const RunResult result = RunProgram(
      {SIMMAC_EXECUTABLE, "create", root, "--tools-only", "--trust", "/nonexistent.pem"});
  EXPECT_EQ(result.status, 1);
  EXPECT_EQ(result.err, "simmac: The certificate authorities /nonexistent.pem cannot be read.\n");
  EXPECT_FALSE(std::filesystem::exists(root));
}

/// A folder with simmac and what it needs beside it, in which its cache is made.
class Installation {
 public:
  Installation() : _folder(SIMMAC_TEST_FOLDER "/installed-XXXXXX") {
    std::filesystem::create_directories(SIMMAC_TEST_FOLDER);
    EXPECT_NE(mkdtemp(_folder.data()), nullptr);
    const std::filesystem::path built = std::filesystem::path(SIMMAC_EXECUTABLE).parent_path();
    std::filesystem::create_directory(_folder + "/bin");
    for (const char* name : {"simmac", "mac-tool"}) {
      std::filesystem::copy(built / name, _folder + "/bin/" + name);
    }
    std::filesystem::copy(built / "../share", _folder + "/share");
  }
  ~Installation() {
    std::error_code ignored;
    std::filesystem::remove_all(_folder, ignored);
  }
  Installation(const Installation&) = delete;
  Installation& operator=(const Installation&) = delete;

  std::string cache() const { return _folder + "/bin/simmac-cache"; }
  std::string mac() const { return _folder + "/mac"; }
  RunResult create() const {
    return RunProgram({_folder + "/bin/simmac", "create", mac(), "--tools-only"});
  }

 private:
  std::string _folder;
};

constexpr char kZone[] = "/usr/share/zoneinfo/UTC";

TEST_F(Create, NeverSharesTheHostsOwnFiles) {
  const Installation installation;
  std::ofstream(installation.cache()) << "no folder";
  const RunResult created = installation.create();
  ASSERT_EQ(created.status, 0) << created.err;
  struct stat status {};
  ASSERT_EQ(stat((installation.mac() + kZone).c_str(), &status), 0);
  EXPECT_EQ(status.st_nlink, 1U);
  EXPECT_EQ(
      RunProgram({SIMMAC_EXECUTABLE, "run", installation.mac(), "/usr/bin/fdesetup", "status"}).out,
      "FileVault is Off.\n");
}

TEST_F(Create, KeepsWhatMacsShareReadOnly) {
  const Installation installation;
  ASSERT_EQ(installation.create().status, 0);
  struct stat status {};
  ASSERT_EQ(stat((installation.mac() + kZone).c_str(), &status), 0);
  EXPECT_EQ(status.st_mode & 07777, 0444U);
  EXPECT_EQ(status.st_nlink, 2U);
}

TEST_F(Create, WorksWithADamagedManifest) {
  const Installation installation;
  std::filesystem::create_directory(installation.cache());
  for (const char* manifest :
       {R"({"executables": 5, "copies": ["x"]})", R"([1])", R"({"copies": {"/usr/share)"}) {
    std::ofstream(installation.cache() + "/manifest.json") << manifest;
    const RunResult created = installation.create();
    EXPECT_EQ(created.status, 0) << manifest << created.err;
    std::filesystem::remove_all(installation.mac());
  }
}

TEST_F(CommandLine, RefusesADirectoryWithoutAName) {
  const std::string sentence = "simmac: The directory of the Mac has no name.\n";
  // The harmless ones first: a Mac without a name would be the host.
  for (const Words& words : {Words{"status", ""}, Words{"journal", ""}, Words{"fault", "", "list"},
                             Words{"run", "", "/bin/true"}, Words{"boot", ""},
                             Words{"create", "", "--tools-only", "--trust", "/nonexistent.pem"}}) {
    Words command = {SIMMAC_EXECUTABLE};
    command.insert(command.end(), words.begin(), words.end());
    const RunResult result = RunProgram(command);
    ASSERT_EQ(result.status, 1) << words[0];
    ASSERT_EQ(result.err, sentence) << words[0];
  }
}

TEST_F(CommandLine, LeavesACommandsOptionsToTheCommand) {
  const TestMac mac;
  const Words command = {"/usr/bin/pkill", "-KILL", "--user", "-h", "-x", "loginwindow"};
  (void)mac.simmac("run", command);
  (void)mac.simmac("run", {"--user", "admin", "/usr/bin/fdesetup", "status", "--user"});
  const std::vector<Json> calls = mac.journal();
  ASSERT_EQ(calls.size(), 2U);
  EXPECT_EQ(calls[0]["arguments"], Json({"-KILL", "--user", "-h", "-x", "loginwindow"}));
  EXPECT_EQ(calls[1]["arguments"], Json({"status", "--user"}));
}

TEST_F(CommandLine, EndsWhatACommandLeavesInTheBackground) {
  const TestMac mac;
  mac.installJob();
  EXPECT_EQ(mac.run({"/usr/bin/test-job", "/private/tmp/job.txt", "orphan"}).status, 0);
  const std::vector<pid_t> pids = mac.processes("job");
  ASSERT_EQ(pids.size(), 2U);
  EXPECT_FALSE(IsAlive(pids[1]));
}

TEST_F(CommandLine, SaysWhyACommandWasNotStarted) {
  const TestMac mac;
  platform::MacUser user = *mac.tree().userNamed("admin");
  user.name = "unchanged";
  user.uid = ~0U;
  ASSERT_TRUE(mac.tree().writeUser(user));
  const RunResult result = mac.run({"/usr/bin/fdesetup", "status"}, "unchanged");
  EXPECT_EQ(result.status, 127);
  EXPECT_EQ(result.err, "/usr/bin/fdesetup: it cannot become its user: Invalid argument\n");
  EXPECT_EQ(mac.run({"/usr/bin/nothing"}).err,
            "/usr/bin/nothing: it cannot be started: No such file or directory\n");
}

TEST_F(CommandLine, AnswersWrongUsageWithStatusTwo) {
  EXPECT_EQ(RunProgram({SIMMAC_EXECUTABLE}).status, 2);
  EXPECT_EQ(RunProgram({SIMMAC_EXECUTABLE, "create"}).status, 2);
  EXPECT_EQ(RunProgram({SIMMAC_EXECUTABLE, "status", "/tmp", "--unknown"}).status, 2);
  EXPECT_EQ(RunProgram({SIMMAC_EXECUTABLE, "boot", "--help"}).status, 0);
}

TEST_F(CommandLine, RefusesADirectoryThatIsNoMac) {
  const RunResult result = RunProgram({SIMMAC_EXECUTABLE, "boot", "/usr"});
  EXPECT_EQ(result.status, 1);
  EXPECT_EQ(result.err, "simmac: /usr is not a simulated Mac.\n");
}

TEST_F(CommandLine, AddsUsersThatCanSignIn) {
  const TestMac mac;
  EXPECT_EQ(mac.simmac("user", {"add", "guest", "--password", "secret"}).status, 0);
  const auto user = mac.tree().userNamed("guest");
  ASSERT_TRUE(user && user->passwordHash);
  EXPECT_TRUE(platform::MacPasswordMatches("secret", *user->passwordHash));
  EXPECT_EQ(ModeOf(mac, "/Users/guest"), "0700 502");
}

TEST_F(CommandLine, RunsACommandAsItsUserAndPassesTheStatusOn) {
  const TestMac mac;
  mac.addDaemon("job", {"wait"});
  EXPECT_EQ(mac.run({"/usr/bin/test-job", "/private/tmp/out.txt", "exit", "7"}, "admin").status, 7);
  const std::string line = mac.read("/private/tmp/out.txt");
  EXPECT_EQ(TestMac::field(line, "uid"), "501");
  EXPECT_EQ(TestMac::field(line, "home"), "/Users/admin");
  EXPECT_EQ(TestMac::field(line, "proc"), "1");
  EXPECT_EQ(TestMac::field(line, "sid"), std::to_string(getsid(0)));  // the caller's
}

}  // namespace
}  // namespace simmac
