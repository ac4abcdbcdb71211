#include "platform/Clock.h"

#include <time.h>

#include <cerrno>

namespace platform {

std::uint64_t ClockMonotonicNs() { return clock_gettime_nsec_np(CLOCK_MONOTONIC); }

double ClockSecondsSince1970() {
  return static_cast<double>(clock_gettime_nsec_np(CLOCK_REALTIME)) /
         static_cast<double>(kNanosecondsPerSecond);
}

void ClockSleep(std::uint64_t ns) {
  timespec left = {.tv_sec = static_cast<time_t>(ns / kNanosecondsPerSecond),
                   .tv_nsec = static_cast<long>(ns % kNanosecondsPerSecond)};
  while (nanosleep(&left, &left) != 0 && errno == EINTR) {
  }
}

}  // namespace platform
