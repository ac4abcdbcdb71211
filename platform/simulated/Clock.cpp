#include "platform/Clock.h"

#include <time.h>

#include <algorithm>
#include <cerrno>
#include <mutex>

#include "platform/simulated/ClockFile.h"

namespace platform {
namespace {

timespec now(clockid_t clock) {
  timespec time{};
  (void)clock_gettime(clock, &time);  // fails only for a clock that the kernel does not have
  return time;
}

/// What tells one content of the clock's file from another, without reading it: not its time alone,
/// which the kernel counts in ticks.
struct Stamp {
  ino_t inode = 0;
  mode_t mode = 0;
  uid_t owner = 0;
  off_t size = 0;
  std::int64_t seconds = 0;
  std::int64_t nanoseconds = 0;
  bool operator==(const Stamp&) const = default;
};

/// That of no file is no file's: those have a mode.
Stamp stampOf(const char* path) {
  struct stat status {};
  if (lstat(path, &status) != 0) return {};
  return {status.st_ino,  status.st_mode,        status.st_uid,
          status.st_size, status.st_ctim.tv_sec, status.st_ctim.tv_nsec};
}

/// How far the Mac's clock is ahead of the host's. It only grows, whatever becomes of the file:
/// time must not go back.
class Lead {
 public:
  std::uint64_t seconds() {
    const std::lock_guard lock(_mutex);
    const Stamp stamp = stampOf(kMacClock);
    if (stamp == _read) return _seconds;
    // Taken before the file is read: one that changes meanwhile is read once more.
    _read = stamp;
    _seconds = std::max(_seconds, ReadClockAhead(kMacClock));
    return _seconds;
  }

 private:
  std::mutex _mutex;
  Stamp _read;
  std::uint64_t _seconds = 0;
};

/// Never destroyed: other threads look at the clock while the process exits.
std::uint64_t secondsAhead() {
  static auto* const lead = new Lead();
  return lead->seconds();
}

}  // namespace

std::uint64_t ClockMonotonicNs() {
  const std::uint64_t ahead = secondsAhead();
  const timespec time = now(CLOCK_BOOTTIME);
  return (static_cast<std::uint64_t>(time.tv_sec) + ahead) * kNanosecondsPerSecond +
         static_cast<std::uint64_t>(time.tv_nsec);
}

double ClockSecondsSince1970() {
  const auto ahead = static_cast<double>(secondsAhead());
  const timespec time = now(CLOCK_REALTIME);
  return ahead + static_cast<double>(time.tv_sec) + static_cast<double>(time.tv_nsec) / 1e9;
}

void ClockSleep(std::uint64_t ns) {
  timespec left{static_cast<time_t>(ns / kNanosecondsPerSecond),
                static_cast<long>(ns % kNanosecondsPerSecond)};
  while (nanosleep(&left, &left) != 0 && errno == EINTR) {
  }
}

}  // namespace platform
