// From a daemon's death to the next one's first answer, launchd's part included.
#include <unistd.h>

#include "tests/bench/BenchMac.h"
#include "tests/bench/Measure.h"

namespace {

constexpr int kRounds = 15;
constexpr double kMilliseconds = 1e3;
constexpr double kGoal = 50;
constexpr int kPollMicroseconds = 200;

// A request that is sent before the new daemon listens waits for it in the socket's queue.
void KillAndAsk(const BenchMac& mac, pid_t daemon) {
  kill(daemon, SIGKILL);
  while (kill(daemon, 0) == 0) usleep(kPollMicroseconds);
  while (mac.ask({{"cmd", "status"}})["ok"] != true) usleep(kPollMicroseconds);
}

}  // namespace

int main() {
  const BenchMac mac;
  Compare({"start to the first answered status", "ms", "≤ 50 ms", 0, kGoal}, kRounds,
          {{"kioskd", [&] {
              const pid_t daemon = mac.daemonPid();
              if (daemon <= 1) Fail("no daemon");
              return kMilliseconds * SecondsEach(1, [&] { KillAndAsk(mac, daemon); });
            }}});
}
