// The unified log. A message is an argument, never the format: only formats that are constants of
// the program are kept in archived logs.
#include "platform/Log.h"

#include <os/log.h>

namespace platform {
namespace {

os_log_t handleOf(const void* handle) { return static_cast<os_log_t>(const_cast<void*>(handle)); }

os_log_type_t typeOf(LogLevel level) { return static_cast<os_log_type_t>(level); }

}  // namespace

// Never released: the log lives as long as the process and is written to while it exits.
SystemLog::SystemLog(const char* subsystem, const char* category)
    : _handle(os_log_create(subsystem, category)) {}

bool SystemLog::enabled(LogLevel level) const {
  return os_log_type_enabled(handleOf(_handle), typeOf(level));
}

void SystemLog::write(LogLevel level, const std::string& message) const {
  os_log_with_type(handleOf(_handle), typeOf(level), "%{public}s", message.c_str());
}

}  // namespace platform
