#include "tests/simmac/TestMac.h"

#include <fcntl.h>
#include <poll.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include <csignal>
#include <filesystem>
#include <fstream>
#include <regex>
#include <sstream>

#include "simulator/mac/Children.h"
#include "simulator/mac/Spawn.h"

namespace simmac {
namespace {

namespace fs = std::filesystem;

constexpr char kJobPath[] = "/usr/bin/test-job";
constexpr char kTimeline[] = "/timeline.txt";

std::vector<std::pair<std::string, std::string>> PlainEnvironment() {
  return {{"PATH", "/usr/bin:/bin"}, {"LC_ALL", "C"}};
}

std::string ReadFile(const std::string& path) {
  std::ifstream file(path, std::ios::binary);
  std::ostringstream text;
  text << file.rdbuf();
  return text.str();
}

std::string NewFolder() {
  fs::create_directories(SIMMAC_TEST_FOLDER);
  std::string path = SIMMAC_TEST_FOLDER "/mac-XXXXXX";
  return mkdtemp(path.data());
}

std::string ReportPath(const std::string& label) { return "/private/tmp/" + label + ".txt"; }

}  // namespace

RunResult RunProgram(const Words& arguments) {
  std::string outPath = SIMMAC_TEST_FOLDER "/out-XXXXXX";
  std::string errPath = SIMMAC_TEST_FOLDER "/err-XXXXXX";
  fs::create_directories(SIMMAC_TEST_FOLDER);
  const Descriptor out(mkostemp(outPath.data(), O_CLOEXEC));
  const Descriptor err(mkostemp(errPath.data(), O_CLOEXEC));
  SpawnRequest request;
  request.arguments = arguments;
  request.environment = PlainEnvironment();
  request.output = out.get();
  request.error = err.get();
  int status = 0;
  (void)waitpid(Spawn(request), &status, 0);
  const RunResult result{ExitStatus(status), ReadFile(outPath), ReadFile(errPath)};
  fs::remove(outPath);
  fs::remove(errPath);
  return result;
}

std::string WithoutLogPrefixes(const std::string& text) {
  static const std::regex prefix(R"(\d{4}-\d\d-\d\d \d\d:\d\d:\d\d\.\d{3} [a-z]+\[\d+:\d+\] )");
  return std::regex_replace(text, prefix, "");
}

Json JobList(const std::string& label, const Words& arguments, const Json& keepAlive) {
  return {{"Label", label},
          {"ProgramArguments", arguments},
          {"KeepAlive", keepAlive},
          {"RunAtLoad", true},
          {"StandardErrorPath", "/private/var/log/" + label + ".stderr.log"}};
}

TestMac::TestMac(const Words& createOptions) : _root(NewFolder()) {
  const RunResult created = simmac("create", createOptions);
  EXPECT_EQ(created.status, 0) << created.err;
  std::error_code ignored;
  // The one that comes with every Mac has no program to start here.
  fs::remove(path("/Library/LaunchDaemons/com.brindlex.stream.kioskd.plist"), ignored);
}

TestMac::~TestMac() {
  if (_boot > 0) {
    (void)kill(_boot, SIGTERM);
    (void)bootStatus();
  }
  std::error_code ignored;
  fs::remove_all(_root, ignored);
}

std::string TestMac::read(const std::string& inside) const { return ReadFile(path(inside)); }

void TestMac::write(const std::string& inside, const std::string& contents) const {
  std::ofstream(path(inside), std::ios::binary) << contents;
}

RunResult TestMac::simmac(const std::string& command, const Words& arguments) const {
  Words all = {SIMMAC_EXECUTABLE, command, _root};
  all.insert(all.end(), arguments.begin(), arguments.end());
  return RunProgram(all);
}

RunResult TestMac::run(const Words& command, const std::string& user) const {
  Words arguments = {"--user", user, "--"};
  arguments.insert(arguments.end(), command.begin(), command.end());
  return simmac("run", arguments);
}

std::vector<Json> TestMac::journal() const {
  std::vector<Json> calls;
  std::istringstream lines(read(platform::kMacJournal));
  for (std::string line; std::getline(lines, line);) {
    calls.push_back(Json::parse(line, nullptr, false));
  }
  return calls;
}

void TestMac::installJob() const {
  if (!fs::exists(path(kJobPath))) fs::copy_file(SIMMAC_TEST_JOB, path(kJobPath));
}

void TestMac::changeList(const std::string& path, const Json& keys) const {
  Json list = tree().readPropertyList(path).value_or(Json::object());
  list.update(keys);
  EXPECT_TRUE(tree().writePropertyList(path, list, platform::PropertyListFormat::kXml, 0644));
}

void TestMac::addJob(const std::string& folder, const std::string& label, const Words& verb,
                     const Json& keepAlive) const {
  installJob();
  Words arguments = {kJobPath, ReportPath(label)};
  arguments.insert(arguments.end(), verb.begin(), verb.end());
  Json list = JobList(label, arguments, keepAlive);
  list["MachServices"][label] = true;
  EXPECT_TRUE(tree().writePropertyList(folder + "/" + label + ".plist", list,
                                       platform::PropertyListFormat::kXml, 0644));
}

void TestMac::addDaemon(const std::string& label, const Words& verb, const Json& keepAlive) const {
  addJob("/Library/LaunchDaemons", label, verb, keepAlive);
}

void TestMac::addAgent(const std::string& label, const Words& verb, const Json& keepAlive) const {
  addJob("/Library/LaunchAgents", label, verb, keepAlive);
}

Words TestMac::report(const std::string& label) const {
  Words lines;
  std::istringstream text(read(ReportPath(label)));
  for (std::string line; std::getline(text, line);) lines.push_back(line);
  return lines;
}

std::string TestMac::field(const std::string& line, const std::string& name) {
  std::istringstream words(line);
  for (std::string word; words >> word;) {
    if (word == name && words >> word) return word;
  }
  return "";
}

std::vector<pid_t> TestMac::processes(const std::string& label) const {
  std::vector<pid_t> pids;
  for (const std::string& line : report(label)) pids.push_back(std::stoi(field(line, "pid")));
  return pids;
}

void TestMac::startBoot(const Words& options) {
  const Descriptor out = OpenFile(path(kTimeline), O_WRONLY | O_CREAT | O_APPEND, 0644);
  SpawnRequest request;
  request.arguments = {SIMMAC_EXECUTABLE, "boot", _root};
  request.arguments.insert(request.arguments.end(), options.begin(), options.end());
  request.environment = PlainEnvironment();
  request.output = request.error = out.get();
  _boot = Spawn(request);
}

pid_t TestMac::bootWithoutLogin(const Words& options) {
  startBoot(options);
  EXPECT_TRUE(Eventually([this] { return status().value("running", false); })) << timeline();
  return _boot;
}

pid_t TestMac::boot(const Words& options) {
  startBoot(options);
  EXPECT_TRUE(Eventually([this] {
    const Json now = status();
    return now.value("running", false) && now.value("login", false);
  })) << timeline();
  return _boot;
}

int TestMac::bootStatus() {
  int waitStatus = 0;
  (void)waitpid(_boot, &waitStatus, 0);
  _boot = -1;
  return ExitStatus(waitStatus);
}

std::string TestMac::timeline() const { return read(kTimeline); }

bool TestMac::timelineHas(const std::string& text) const {
  return Eventually([&] { return timeline().find(text) != std::string::npos; });
}

Json TestMac::status() const {
  const Json status = Json::parse(simmac("status", {"--json"}).out, nullptr, false);
  return status.is_object() ? status : Json::object();
}

bool TestMac::hasSession(uid_t uid) const {
  return run({"/bin/launchctl", "print", "gui/" + std::to_string(uid)}).status == 0;
}

bool IsAlive(pid_t pid) {
  const std::string status = ReadFile("/proc/" + std::to_string(pid) + "/stat");
  const std::size_t nameEnd = status.rfind(')');
  return nameEnd != std::string::npos && status.compare(nameEnd, 3, ") Z") != 0;
}

void SimulatedMacTest::SetUp() {
  if (geteuid() != 0) GTEST_SKIP() << "only root can look at a Mac's processes and files";
}

}  // namespace simmac
