#include "platform/Log.h"

#include <fcntl.h>
#include <time.h>

#include <mutex>
#include <set>

#include "platform/simulated/Descriptor.h"
#include "platform/simulated/MacFiles.h"

namespace platform {
namespace {

constexpr mode_t kLogMode = 0644;

struct LogHandle {
  std::string subsystem;
  std::string category;
  auto operator<=>(const LogHandle&) const = default;  // NOLINT(modernize-use-nullptr): no pointer
};

/// The one handle of a subsystem and category. Handles are never freed: a log lives as long as the
/// process, and is written to while it exits.
const LogHandle* handleOf(const char* subsystem, const char* category) {
  static std::mutex mutex;
  static auto* const handles = new std::set<LogHandle>();
  const std::lock_guard lock(mutex);
  return &*handles->insert({subsystem, category}).first;
}

const char* name(LogLevel level) { return level == LogLevel::kError ? "Error" : "Default"; }

std::string timeText() {
  timespec now{};
  (void)clock_gettime(CLOCK_REALTIME, &now);  // cannot fail for this clock
  tm utc{};
  (void)gmtime_r(&now.tv_sec, &utc);
  char text[sizeof "2000-01-01T00:00:00"] = "";
  (void)strftime(text, sizeof text, "%Y-%m-%dT%H:%M:%S", &utc);
  const std::string milliseconds = std::to_string(1000 + now.tv_nsec / 1'000'000).substr(1);
  return std::string(text) + "." + milliseconds + "Z";
}

/// The message as one line.
std::string oneLine(const std::string& message) {
  std::string line;
  for (const char c : message) {
    if (c == '\n') {
      line += "\\n";
    } else {
      line += c;
    }
  }
  return line;
}

}  // namespace

SystemLog::SystemLog(const char* subsystem, const char* category)
    : _handle(handleOf(subsystem, category)) {}

bool SystemLog::enabled(LogLevel level) const {
  const std::optional<Json> levels = MacTree().readJson(kMacLogging);
  if (!levels || !levels->is_object()) return true;
  const auto kept = levels->find(name(level));
  return kept == levels->end() || *kept != false;
}

void SystemLog::write(LogLevel level, const std::string& message) const {
  if (!enabled(level)) return;
  const auto* handle = static_cast<const LogHandle*>(_handle);
  const std::string line = timeText() + " " + name(level) + " " + handle->subsystem + " " +
                           handle->category + "[" + std::to_string(getpid()) +
                           "]: " + oneLine(message) + "\n";
  const Descriptor file(open(kMacSystemLog, O_WRONLY | O_APPEND | O_CREAT | O_CLOEXEC, kLogMode));
  // One write, so that lines of several programs do not mix. A log that cannot be written has
  // nowhere to say so.
  (void)!RetryInterrupted([&] { return ::write(file.get(), line.data(), line.size()); });
}

}  // namespace platform
