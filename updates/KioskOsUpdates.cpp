#include "updates/KioskOsUpdates.h"

#include <algorithm>
#include <cstdint>
#include <utility>

#include "account/KioskRun.h"
#include "core/KioskJson.h"
#include "core/KioskLog.h"
#include "core/KioskText.h"
#include "platform/Clock.h"
#include "updates/KioskSoftwareUpdate.h"

namespace {

constexpr char kSoftwareUpdate[] = "/usr/sbin/softwareupdate";
constexpr char kQueueLabel[] = "com.brindlex.stream.kioskd.osupdates";
constexpr double kUnknownProgress = -1.0;

Json RunResult(const char* result, std::size_t pending, bool restartRequired) {
  return {{"result", result}, {"pending", pending}, {"restartRequired", restartRequired}};
}

Json RunFailure(std::size_t pending, const std::string& error) {
  Json result = RunResult("failed", pending, false);
  result["error"] = error;
  return result;
}

bool NeedsRestart(const Json& updates, const std::string& output) {
  return std::any_of(updates.begin(), updates.end(),
                     [](const Json& update) { return update["restartRequired"] == true; }) ||
         KioskLowerCase(output).find("restart") != std::string::npos;
}

}  // namespace

KioskOsUpdates::KioskOsUpdates() : _queue(kQueueLabel) {}

bool KioskOsUpdates::busy() const {
  const std::lock_guard lock(_lock);
  return _checking || _installing;
}

bool KioskOsUpdates::claim(bool install) {
  const std::lock_guard lock(_lock);
  if (_checking || _installing) return false;
  (install ? _installing : _checking) = true;
  _progress = kUnknownProgress;
  _error.reset();
  return true;
}

Json KioskOsUpdates::status() const {
  const std::lock_guard lock(_lock);
  return {{"ok", true},
          {"checking", _checking},
          {"installing", _installing},
          {"progress", std::max(_progress, 0.0)},
          {"restartRequired", _restartRequired},
          {"lastChecked", _lastChecked ? Json(KioskIso8601(*_lastChecked)) : Json()},
          {"updates", _updates},
          {"error", _error ? Json(*_error) : Json()}};
}

bool KioskOsUpdates::check(Completion completion) {
  if (!claim(false)) return false;
  _queue.async([self = shared_from_this(), completion = std::move(completion)] {
    const Json result = self->checkNow();
    if (completion) completion(result);
  });
  return true;
}

bool KioskOsUpdates::install(Completion completion) {
  if (!claim(true)) return false;
  _queue.async([self = shared_from_this(), completion = std::move(completion)] {
    const Json result = self->installNow();
    self->installed(result);
    if (completion) completion(result);
  });
  return true;
}

Json KioskOsUpdates::checkNow() {
  KioskError error;
  const std::optional<Json> updates = list(error);
  const std::lock_guard lock(_lock);
  _checking = false;
  if (!updates) return {{"result", "failed"}, {"error", error.value_or("failed")}};
  return {{"result", "ok"}, {"pending", updates->size()}};
}

std::optional<Json> KioskOsUpdates::list(KioskError& error) {
  std::string output;
  const std::int32_t status = KioskRun(kSoftwareUpdate, {"-l"}, &output);
  if (status != 0) {
    error = KioskSoftwareUpdateError(output);
    noteFailure(*error);
    KioskLogError("softwareupdate -l exited %d: %@", status, output);
    return std::nullopt;
  }
  Json updates = KioskSoftwareUpdateParse(output);
  noteUpdates(updates);
  KioskLog("OS updates: %lu pending", updates.size());
  return updates;
}

void KioskOsUpdates::noteFailure(const std::string& error) {
  const std::lock_guard lock(_lock);
  _error = error;
}

void KioskOsUpdates::noteUpdates(const Json& updates) {
  const std::lock_guard lock(_lock);
  _updates = updates;
  _lastChecked = platform::ClockSecondsSince1970();
}

Json KioskOsUpdates::installNow() {
  KioskError error;
  const std::optional<Json> updates = list(error);
  if (!updates) return RunFailure(0, error.value_or("failed"));
  if (updates->empty()) return RunResult("nothing", 0, false);
  KioskLog("installing %lu OS update(s)", updates->size());
  std::string output;
  const std::int32_t status =
      KioskRunFollowing(kSoftwareUpdate, {"-i", "-a", "--agree-to-license"}, &output,
                        [this](std::string_view chunk) { followProgress(chunk); });
  if (status != 0) {
    KioskLogError("softwareupdate -i -a exited %d: %@", status, output);
    return RunFailure(updates->size(), KioskSoftwareUpdateError(output));
  }
  const bool restart = NeedsRestart(*updates, output);
  KioskLog("OS updates installed%@", restart ? "; a restart is required" : "");
  const std::lock_guard lock(_lock);
  _updates = Json::array();
  return RunResult("ok", 0, restart);
}

// A chunk by itself: a reading that was cut in two by chance is not put together again.
void KioskOsUpdates::followProgress(std::string_view chunk) {
  const double progress =
      KioskIsUtf8(chunk) ? KioskSoftwareUpdateProgress(chunk) : kUnknownProgress;
  if (progress < 0) return;
  const std::lock_guard lock(_lock);
  _progress = progress;
}

void KioskOsUpdates::installed(const Json& result) {
  const std::lock_guard lock(_lock);
  _installing = false;
  _progress = kUnknownProgress;
  if (result["restartRequired"] == true) _restartRequired = true;
  if (result["result"] == "failed") _error = result["error"].get<std::string>();
}
