// The system log. Native counterpart: the unified log (os/log.h).
#pragma once

#include <cstdint>
#include <string>

namespace platform {

/// Levels, with the unified log's own values.
enum class LogLevel : std::uint8_t { kDefault = 0x00, kError = 0x10 };

/// A handle on the system log for one subsystem and category; lives as long as the process.
class SystemLog {
 public:
  /// Native: os_log_create.
  SystemLog(const char* subsystem, const char* category);

  /// Whether messages of `level` are kept at present. Any thread. Native: os_log_type_enabled.
  bool enabled(LogLevel level) const;

  /// Writes `message`, up to its first zero byte, unredacted. Any thread. Native: the log call with
  /// the fixed format "%{public}s", which may cut a message after about a thousand bytes.
  void write(LogLevel level, const std::string& message) const;

 private:
  [[maybe_unused]] const void* _handle;  // an implementation may do without
};

}  // namespace platform
