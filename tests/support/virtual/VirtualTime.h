// Virtual time: the clocks and queues of a test stand still until the test moves them. Everything
// runs on the test's own thread.
#pragma once

#include <cstdint>
#include <optional>
#include <string>

namespace virtual_time {

inline constexpr std::uint64_t kSecondNs = 1'000'000'000;

/// Runs everything that was submitted to a queue and is due.
void RunReady();

/// Moves both clocks on by `ns` nanoseconds, running what becomes due on the way, in order.
void Advance(std::uint64_t ns);

/// Moves the wall clock alone by `seconds` (back, if negative), as setting the Mac's clock does.
void ShiftWallClock(double seconds);

/// Nanoseconds until the next delayed work or timer, or nothing when none is pending.
std::optional<std::uint64_t> NanosecondsUntilNext();

/// How much later than asked the timer that was armed last may fire, in nanoseconds.
std::uint64_t LastLeewayNs();

/// How much delayed work and how many armed timers are pending.
std::size_t PendingCount();

/// The path that the process believes it was started by; nothing for one that cannot be had.
void SetExecutablePath(const std::optional<std::string>& path);

}  // namespace virtual_time
