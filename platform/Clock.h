// Time: a monotonic clock, the wall clock, and waiting.
#pragma once

#include <cstdint>

namespace platform {

/// What the clock counts, in a second.
inline constexpr std::uint64_t kNanosecondsPerSecond = 1'000'000'000;

/// Nanoseconds since an arbitrary start; never goes back and counts on while the machine sleeps.
/// Any thread. Native: clock_gettime_nsec_np(CLOCK_MONOTONIC).
std::uint64_t ClockMonotonicNs();

/// Wall-clock seconds since 1970-01-01T00:00:00Z, with a fraction; may jump. Any thread.
double ClockSecondsSince1970();

/// Blocks the calling thread for `ns` nanoseconds. Any thread. Native: nanosleep.
void ClockSleep(std::uint64_t ns);

}  // namespace platform
