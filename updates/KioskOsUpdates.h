// The driver of the system's software update tool.
#pragma once

#include <functional>
#include <memory>
#include <mutex>
#include <optional>
#include <string>
#include <string_view>

#include "core/KioskError.h"
#include "platform/Json.h"
#include "platform/Queue.h"

/// Lists and installs the updates of the operating system, one operation at a time, on a queue of
/// its own, and keeps a record of what it found and how far it is. Always owned by a shared
/// pointer: an operation under way keeps it alive. Every public member: any thread.
class KioskOsUpdates : public std::enable_shared_from_this<KioskOsUpdates> {
 public:
  /// Receives an operation's result, on the driver's queue: of a check {"result": "ok", "pending"}
  /// or {"result": "failed", "error"}, of an install {"result": "ok", "nothing" or "failed",
  /// "pending", "restartRequired"} and "error" when it failed.
  using Completion = std::function<void(const Json& result)>;

  KioskOsUpdates();

  /// Whether a check or an install is under way.
  bool busy() const;

  /// Takes the driver for an install or else a check, unless it is busy. False and nothing changed
  /// then.
  [[nodiscard]] bool claim(bool install);

  /// The record as "os.updates" shows it: {"ok": true, "checking", "installing", "progress" (0 to
  /// 100), "restartRequired", "lastChecked", "updates", "error"}.
  Json status() const;

  /// Lists the pending updates. Returns at once; false when the driver is busy.
  bool check(Completion completion = nullptr);

  /// Installs all pending updates. Returns at once; false when the driver is busy.
  bool install(Completion completion = nullptr);

 private:
  std::optional<Json> list(KioskError& error);
  void noteFailure(const std::string& error);
  void noteUpdates(const Json& updates);
  Json checkNow();
  Json installNow();
  void followProgress(std::string_view chunk);
  void installed(const Json& result);

  platform::Queue _queue;

  mutable std::mutex _lock;            // guards all that follows; never held while a tool runs
  bool _checking = false;              // a list run is under way
  bool _installing = false;            // an install run is under way
  bool _restartRequired = false;       // an install needed a restart; never cleared
  double _progress = -1.0;             // of the install in percent; -1.0 while unknown
  std::optional<double> _lastChecked;  // when the last successful list ended, seconds since 1970
  Json _updates = Json::array();       // what it found; emptied by a successful install
  KioskError _error;                   // of the last failed operation; cleared by the next claim
};
