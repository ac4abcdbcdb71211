// A check-in that changes nothing, without its tools: the daemon's, a request of a bare libcurl
// handle, and a curl process.
#include <sys/socket.h>
#include <sys/wait.h>
#include <unistd.h>

#include <array>
#include <cstdlib>
#include <set>

#include "core/KioskDaemon.h"
#include "tests/bench/BenchMac.h"
#include "tests/bench/Curl.h"
#include "tests/bench/Measure.h"

namespace {

constexpr int kRounds = 15;
constexpr int kCheckIns = 50;
constexpr int kProcesses = 3;
constexpr double kMicroseconds = 1e6;
constexpr char kAuthority[] = "/private/etc/ssl/cert.pem";
constexpr char kBody[] =
    R"({"appVersion":"2026.10.15","osUpdates":null,"powerError":null,"powerLocal":null})";

/// A process outside the Mac that runs a command whenever it is asked to.
class Outside {
 public:
  explicit Outside(const std::string& command) {
    std::array<int, 2> ends{};
    if (socketpair(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0, ends.data()) != 0) Fail("no sockets");
    _socket = ends[0];
    _pid = fork();
    if (_pid != 0) {
      close(ends[1]);
      return;
    }
    close(ends[0]);
    for (char request = 0; read(ends[1], &request, 1) == 1;) {
      const char status = std::system(command.c_str()) == 0 ? 'y' : 'n';
      if (write(ends[1], &status, 1) != 1) break;
    }
    std::_Exit(0);
  }
  ~Outside() {
    close(_socket);
    waitpid(_pid, nullptr, 0);
  }
  Outside(const Outside&) = delete;
  Outside& operator=(const Outside&) = delete;

  void run() {
    char status = 0;
    if (write(_socket, "r", 1) != 1 || read(_socket, &status, 1) != 1 || status != 'y') {
      Fail("curl failed");
    }
  }

 private:
  int _socket = -1;
  pid_t _pid = -1;
};

// The local ports of this process's connections.
std::set<int> Ports() {
  std::set<int> ports;
  constexpr int kDescriptors = 256;
  for (int each = 0; each < kDescriptors; ++each) {
    sockaddr_storage address = {};
    socklen_t size = sizeof address;
    auto* const any = reinterpret_cast<sockaddr*>(&address);
    if (getsockname(each, any, &size) != 0 || address.ss_family != AF_INET) continue;
    // The port stands at the same place in every address of this family.
    ports.insert(any->sa_data[0] * 256 + any->sa_data[1]);
  }
  return ports;
}

void CheckIn(KioskDaemon& daemon) {
  KioskCheckInOutcome outcome = KioskCheckInOutcome::kStop;
  daemon.queue().sync([&] { outcome = daemon.checkIn(); });
  if (outcome != KioskCheckInOutcome::kEnrolled) Fail("a check-in failed");
}

void Measure(BenchMac& mac, Outside& curlProcess, const std::string& url,
             const std::string& token) {
  const auto daemon = std::make_shared<KioskDaemon>();
  daemon->queue().sync([&] { daemon->start(); });
  CheckIn(*daemon);
  Curl curl(url, kAuthority, token);
  if (Json::parse(curl.post(kBody), nullptr, false).value("status", "") != "enrolled") {
    Fail("the floor's request fails");
  }
  const Json before = mac.mac.state();
  const std::set<int> ports = Ports();
  Compare({"check-in without its tools", "µs", "≤ 1.2 × libcurl", 1.2}, kRounds,
          {{"kioskd",
            [&] { return kMicroseconds * SecondsEach(kCheckIns, [&] { CheckIn(*daemon); }); }},
           {"libcurl",
            [&] {
              return kMicroseconds *
                     SecondsEach(kCheckIns, [&] { static_cast<void>(curl.post(kBody)); });
            }},
           {"curl process",
            [&] { return kMicroseconds * SecondsEach(kProcesses, [&] { curlProcess.run(); }); }}});
  if (Ports() != ports || curl.connections() != 1) Fail("a new connection was opened");
  if (mac.mac.state() != before) Fail("the check-ins changed something");
}

}  // namespace

int main() {
  BenchMac mac;
  mac.halt();
  const std::string token = mac.mac.state()["token"];
  const std::string url = mac.portal.url() + "/api/kiosk/check-in";
  Outside curlProcess(
      "curl --silent --fail --compressed --output /dev/null --noproxy '*' --cacert '" +
      mac.portal.authority() + "' --header 'Authorization: Bearer " + token +
      "' --header 'Content-Type: application/json' --data '" + kBody + "' '" + url + "'");
  mac.mac.enter();
  Measure(mac, curlProcess, url, token);
}
