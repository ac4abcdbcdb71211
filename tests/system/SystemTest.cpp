#include "tests/system/SystemTest.h"

#include <curl/curl.h>
#include <sys/stat.h>

#include <csignal>
#include <cstdlib>
#include <filesystem>
#include <stdexcept>

namespace {

constexpr char kApplicationSignature[] =
    R"({"anchor": "apple generic", "identifier": "com.brindlex.stream", "team": "Q4ZT8K2M6R"})";
constexpr char kAccountRecord[] = "/private/var/db/dslocal/nodes/Default/users/BrindlexKiosk.plist";

std::string NewPortalFolder() {
  std::filesystem::create_directories(KIOSKD_TEST_MACS);
  std::string path = std::string(KIOSKD_TEST_MACS) + "/portal-XXXXXX";
  if (mkdtemp(path.data()) == nullptr) throw std::runtime_error("no folder for the portal");
  return path;
}

}  // namespace

PortalProcess::PortalProcess() : _folder(NewPortalFolder()) {
  _process = std::make_unique<Child>(
      std::vector<std::string>{KIOSKD_PORTAL, "--dir", _folder, "serve", "--record", record()},
      _folder + "/output");
  const std::string ready = _folder + "/ready.json";
  if (!Eventually([&] { return std::filesystem::exists(ready); })) {
    throw std::runtime_error("the portal does not start: " + _process->output());
  }
  _url = Json::parse(RunToEnd({"/bin/cat", ready}).output)["url"];
}

PortalProcess::~PortalProcess() {
  _process.reset();
  std::error_code ignored;
  std::filesystem::remove_all(_folder, ignored);
}

Json PortalProcess::admin(const std::vector<std::string>& arguments) const {
  return admin(arguments, "");
}

Json PortalProcess::admin(const std::vector<std::string>& arguments,
                          const std::string& line) const {
  std::vector<std::string> command{"/bin/sh", "-c",          R"(printf '%s\n' "$0" | "$@")",
                                   line,      KIOSKD_PORTAL, "--dir",
                                   _folder,   "--json"};
  command.insert(command.end(), arguments.begin(), arguments.end());
  const Finished finished = RunToEnd(command);
  EXPECT_EQ(finished.status, 0) << finished.output;
  return Json::parse(finished.output, nullptr, false);
}

long PortalProcess::get(const std::string& path) const {
  CURL* const handle = curl_easy_init();
  curl_easy_setopt(handle, CURLOPT_URL, (_url + path).c_str());
  curl_easy_setopt(handle, CURLOPT_CAINFO, authority().c_str());
  curl_easy_setopt(handle, CURLOPT_PROXY, "");
  const curl_write_callback ignore = [](char*, std::size_t size, std::size_t count, void*) {
    return size * count;
  };
  curl_easy_setopt(handle, CURLOPT_WRITEFUNCTION, ignore);
  long status = 0;
  curl_easy_perform(handle);
  curl_easy_getinfo(handle, CURLINFO_RESPONSE_CODE, &status);
  curl_easy_cleanup(handle);
  return status;
}

SystemTest::SystemTest()
    : mac({"--portal", portal.url(), "--trust", portal.authority(), "--computer-name", "Test Mac"}),
      _helper(mac) {
  // The test's own executable is the application to the channel, as seen from inside the Mac.
  const std::filesystem::path executable = std::filesystem::read_symlink("/proc/self/exe");
  std::filesystem::create_directories(mac.root() + executable.parent_path().string());
  mac.write(executable.string() + ".signature", kApplicationSignature);
}

SystemTest::~SystemTest() { halt(); }

void SystemTest::boot() {
  _machine = std::make_unique<Child>(
      std::vector<std::string>{KIOSKD_SIMMAC, "boot", mac.root(), "--throttle", "0"},
      mac.root() + "/private/var/simulated/timeline.log");
  ASSERT_TRUE(Eventually([this] {
    return ask({{"cmd", "status"}})["ok"] == true;
  })) << timeline()
      << mac.read("/private/var/log/com.brindlex.stream.kioskd.stderr.log");
  _killed = -1;
  // launchd tells what it has started, and who signs in, after the daemon may have answered.
  ASSERT_TRUE(Eventually([this] {
    const Json status = machineStatus();
    return status.is_object() && status.value("login", false);
  })) << timeline();
}

void SystemTest::halt() { _machine.reset(); }

Finished SystemTest::run(const std::vector<std::string>& command, const std::string& user) const {
  std::vector<std::string> whole{KIOSKD_SIMMAC, "run", mac.root(), "--user", user, "--"};
  whole.insert(whole.end(), command.begin(), command.end());
  return RunToEnd(whole);
}

Json SystemTest::machineStatus() const {
  return Json::parse(RunToEnd({KIOSKD_SIMMAC, "status", mac.root(), "--json"}).output, nullptr,
                     false);
}

pid_t SystemTest::daemonPid() const {
  pid_t pid = -1;
  // A new daemon may answer before launchd has told of it.
  EXPECT_TRUE(Eventually([&] {
    const Json status = machineStatus();
    const Json daemons = status.is_object() ? status.value("daemons", Json()) : Json();
    pid = daemons.is_object() ? daemons.value("com.brindlex.stream.kioskd", -1) : -1;
    return pid > 1 && pid != _killed;
  })) << timeline();
  return pid;
}

void SystemTest::killDaemon() const {
  _killed = daemonPid();
  // Anything else would be a signal to a whole group, or to every process there is.
  if (_killed > 1) kill(_killed, SIGKILL);
}

ChannelClient SystemTest::peer() const { return ChannelClient(mac.at(kSocket)); }

Json SystemTest::pair(const std::string& name) const {
  const Json begun = ask({{"cmd", "pair.begin"}});
  EXPECT_EQ(begun["ok"], true) << begun;
  const std::string code = begun.value("code", "");
  portal.admin({"claim", code, "--name", name});
  mac.addFault({{"target", "/sbin/shutdown"}, {"status", 1}});
  return ask({{"cmd", "pair.check"}, {"code", code}});
}

void SystemTest::enrol(const std::string& name) {
  const Json checked = pair(name);
  ASSERT_EQ(checked.value("provisioned", false), true)
      << checked << mac.read("/private/var/log/com.brindlex.stream.kioskd.stderr.log");
}

bool SystemTest::kioskAccountExists() const { return mac.exists(kAccountRecord); }
