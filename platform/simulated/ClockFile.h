// How far ahead of the host the clock of the simulated Mac's programs is: a file that simmac writes
// and the platform's clock reads.
#pragma once

#include <fcntl.h>
#include <sys/stat.h>

#include <cstdint>
#include <string>

#include "platform/Json.h"
#include "platform/simulated/Descriptor.h"

namespace platform {

inline constexpr char kMacClock[] = "/private/var/simulated/clock.json";
inline constexpr char kMacClockAhead[] = "aheadSeconds";

/// Farthest that a clock is ahead: ten years.
inline constexpr std::uint64_t kMaximumClockAheadSeconds = 10ULL * 365 * 24 * 60 * 60;

/// Longest file that is read.
inline constexpr std::size_t kMaximumClockFileBytes = 1024;

/// Whether nobody but root or this process's user can have written the file.
inline bool IsTrustedClockFile(const struct stat& status) {
  return S_ISREG(status.st_mode) && (status.st_uid == 0 || status.st_uid == geteuid()) &&
         (status.st_mode & (S_IWGRP | S_IWOTH)) == 0 && status.st_nlink == 1;
}

/// The seconds that a file's text says; 0 when it says none within bounds.
inline std::uint64_t ParseClockAhead(const std::string& text) {
  const Json file = Json::parse(text, nullptr, false);
  const auto ahead = file.is_object() ? file.find(kMacClockAhead) : file.end();
  if (ahead == file.end() || !ahead->is_number_unsigned()) return 0;
  const auto seconds = ahead->get<std::uint64_t>();
  return seconds <= kMaximumClockAheadSeconds ? seconds : 0;
}

/// The seconds by which the clock is ahead; 0 when the file at `path` is missing, malformed, a link
/// or not to be trusted. Any thread.
inline std::uint64_t ReadClockAhead(const std::string& path) {
  const Descriptor file(
      open(path.c_str(), O_RDONLY | O_CLOEXEC | O_NONBLOCK | O_NOFOLLOW | O_NOCTTY));
  struct stat status {};
  if (!file.valid() || fstat(file.get(), &status) != 0 || !IsTrustedClockFile(status)) return 0;
  std::string text(kMaximumClockFileBytes + 1, '\0');
  const ssize_t count =
      RetryInterrupted([&] { return read(file.get(), text.data(), text.size()); });
  if (count < 0 || static_cast<std::size_t>(count) > kMaximumClockFileBytes) return 0;
  text.resize(static_cast<std::size_t>(count));
  return ParseClockAhead(text);
}

}  // namespace platform
