#include "platform/Clock.h"

#include <time.h>

#include <cerrno>

namespace platform {
namespace {

constexpr std::uint64_t kNsPerSecond = 1'000'000'000;

timespec now(clockid_t clock) {
  timespec time{};
  (void)clock_gettime(clock, &time);  // fails only for a clock that the kernel does not have
  return time;
}

}  // namespace

std::uint64_t ClockMonotonicNs() {
  const timespec time = now(CLOCK_BOOTTIME);
  return static_cast<std::uint64_t>(time.tv_sec) * kNsPerSecond +
         static_cast<std::uint64_t>(time.tv_nsec);
}

double ClockSecondsSince1970() {
  const timespec time = now(CLOCK_REALTIME);
  return static_cast<double>(time.tv_sec) + static_cast<double>(time.tv_nsec) / 1e9;
}

void ClockSleep(std::uint64_t ns) {
  timespec left{static_cast<time_t>(ns / kNsPerSecond), static_cast<long>(ns % kNsPerSecond)};
  while (nanosleep(&left, &left) != 0 && errno == EINTR) {
  }
}

}  // namespace platform
