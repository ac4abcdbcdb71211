// Two minutes of an enrolled terminal that nobody uses: memory, and what wakes the daemon.
#include <unistd.h>

#include <chrono>
#include <filesystem>
#include <fstream>
#include <iostream>
#include <thread>

#include "tests/bench/BenchMac.h"
#include "tests/bench/Measure.h"
#include "tests/bench/SdBus.h"
#include "tests/bench/Server.h"

namespace {

using std::chrono::milliseconds;

constexpr milliseconds kWatched{120'000};
constexpr milliseconds kInterval{100};
constexpr milliseconds kQuiet{1'000};      // what is further apart is another wake-up
constexpr milliseconds kSettling{15'000};  // the restart that follows a pairing is over then
constexpr double kMemoryGoal = 12;
constexpr double kKibibytesPerMegabyte = 1000.0 / 1.024;

// A number of /proc/PID/status, or of a thread's.
long StatusNumber(const std::filesystem::path& folder, const std::string& key) {
  std::ifstream status(folder / "status");
  for (std::string word; status >> word;) {
    if (word == key + ":") {
      long value = 0;
      status >> value;
      return value;
    }
  }
  return 0;
}

std::filesystem::path Folder(pid_t pid) { return "/proc/" + std::to_string(pid); }

// "VmRSS": what is in memory; "RssAnon": that without the pages of programs and libraries.
double Megabytes(pid_t pid, const std::string& key) {
  return static_cast<double>(StatusNumber(Folder(pid), key)) / kKibibytesPerMegabyte;
}

// Context switches of all threads: a sleeping process has none.
long Switches(pid_t pid) {
  long sum = 0;
  for (const auto& thread : std::filesystem::directory_iterator(Folder(pid) / "task")) {
    sum += StatusNumber(thread.path(), "voluntary_ctxt_switches") +
           StatusNumber(thread.path(), "nonvoluntary_ctxt_switches");
  }
  return sum;
}

/// Somebody who is watched while idle.
class Watched {
 public:
  explicit Watched(pid_t pid) : _pid(pid), _switches(Switches(pid)) {}

  void look(milliseconds now) {
    const long switches = Switches(_pid);
    if (switches != _switches && (_bursts == 0 || now - _burstBegan > kQuiet)) noteBurst(now);
    _switches = switches;
    _memory.push_back(Megabytes(_pid, "VmRSS"));
    _private.push_back(Megabytes(_pid, "RssAnon"));
  }
  const std::vector<double>& memory() const { return _memory; }
  const std::vector<double>& privateMemory() const { return _private; }
  std::vector<double> bursts() const { return {static_cast<double>(_bursts)}; }

 private:
  void noteBurst(milliseconds now) {
    ++_bursts;
    _burstBegan = now;
    std::cerr << "process " << _pid << " awake after " << now.count() << " ms\n";
  }

  pid_t _pid;
  long _switches;
  milliseconds _burstBegan{0};
  int _bursts = 0;
  std::vector<double> _memory;
  std::vector<double> _private;
};

[[noreturn]] void RunMonit(const std::string& folder) {
  const std::string configuration = folder + "/monitrc";
  std::ofstream(configuration) << "set daemon 30\nset pidfile " << folder << "/monit.pid\n"
                               << "set idfile " << folder << "/monit.id\n"
                               << "set statefile " << folder << "/monit.state\n"
                               << "check filesystem root with path /\n";
  std::filesystem::permissions(configuration, std::filesystem::perms(0600));
  if (freopen("/dev/null", "w", stdout) == nullptr) Fail("no /dev/null");
  execlp("monit", "monit", "-I", "-c", configuration.c_str(), nullptr);
  Fail("monit cannot be started");
}

// How often the daemon spoke to the portal.
std::size_t CheckIns(const BenchMac& mac) {
  std::ifstream record(mac.portal.record());
  std::size_t count = 0;
  for (std::string line; std::getline(record, line);) {
    if (line.find("/api/kiosk/check-in") != std::string::npos) ++count;
  }
  return count;
}

}  // namespace

int main() {
  const BenchMac mac;
  const std::string folder = mac.mac.root() + "/private/var/tmp";
  const Server dbus(folder + "/dbus", [&] { RunDbusDaemon(folder + "/dbus"); });
  const Server monit("", [&] { RunMonit(folder); });
  std::this_thread::sleep_for(kSettling);
  const std::size_t before = CheckIns(mac);
  Watched daemon(mac.daemonPid());
  Watched watchedMonit(monit.pid());
  Watched watchedDbus(dbus.pid());
  for (milliseconds now{0}; now < kWatched; now += kInterval) {
    std::this_thread::sleep_for(kInterval);
    for (Watched* each : {&daemon, &watchedMonit, &watchedDbus}) each->look(now);
  }
  const std::vector<double> checkIns{static_cast<double>(CheckIns(mac) - before)};
  if (checkIns[0] == 0) Fail("the daemon does not check in");
  Print({"idle: resident memory", "MB", "≤ 12 MB", 0, kMemoryGoal},
        {{"kioskd", daemon.memory()},
         {"monit", watchedMonit.memory()},
         {"dbus-daemon", watchedDbus.memory()}});
  Print({"idle: memory of its own", "MB", "≤ 12 MB", 0, kMemoryGoal},
        {{"kioskd", daemon.privateMemory()},
         {"monit", watchedMonit.privateMemory()},
         {"dbus-daemon", watchedDbus.privateMemory()}});
  Print({"idle: times awake in two minutes", "", "none but the check-ins'", 1},
        {{"kioskd", daemon.bursts()},
         {"check-ins", checkIns},
         {"monit", watchedMonit.bursts()},
         {"dbus-daemon", watchedDbus.bursts()}});
}
