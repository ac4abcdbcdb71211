// A session with the simulated Mac's network preferences: the file, its lock, and the copy that is
// edited until it is committed.
#pragma once

#include <optional>
#include <string>

#include "platform/Json.h"
#include "platform/simulated/Descriptor.h"

namespace platform {

/// Kept by whoever edits the network preferences, as a lock (flock) on this file.
inline constexpr char kMacNetworkLock[] =
    "/Library/Preferences/SystemConfiguration/preferences.plist-lock";

/// What the Mac's network makes of the preferences: {"applied": how often they were put to use}.
inline constexpr char kMacNetworkState[] = "/private/var/simulated/network.json";

/// What calls fail of, as SCErrorString has it.
inline constexpr char kNetworkFailed[] = "Failed!";
inline constexpr char kNetworkInvalidArgument[] = "Invalid argument";
inline constexpr char kNetworkAccessError[] = "Permission denied";
inline constexpr char kNetworkNoKey[] = "No such key";
inline constexpr char kNetworkKeyExists[] = "Key already defined";
inline constexpr char kNetworkLocked[] = "Lock already held";
inline constexpr char kNetworkNeedLock[] = "Lock required for this operation";
inline constexpr char kNetworkBusy[] = "Preferences update currently in progress";
inline constexpr char kNetworkStale[] = "Write attempted on stale version of object";

/// Makes `text` what NetworkPreferencesError gives on this thread. False, for the call to return.
bool NetworkFail(const std::string& text);

/// One thread at a time. Its functions that return a bool return false with the thread's error set
/// on failure.
class NetworkSession {
 public:
  ~NetworkSession();

  /// The preferences as this session has them, read when they are first asked for; empty when the
  /// file is not there or not a dictionary. They stay where they are as long as the session.
  Json& preferences();

  /// Takes the lock; without `wait`, fails while somebody else has it. Fails for others than root
  /// and when the preferences that this session read are not the file's any more.
  [[nodiscard]] bool lock(bool wait);
  [[nodiscard]] bool unlock();  ///< Fails when this session has no lock.

  /// Writes the preferences if this session has changed them, under its lock or one of its own.
  [[nodiscard]] bool commit();

  /// Notes in the Mac that the preferences are in use, under the same lock.
  [[nodiscard]] bool apply();

 private:
  template <class Work>
  bool whileLocked(Work work);
  bool isStale() const;
  bool write();

  Descriptor _lock;
  bool _isRead = false;
  std::optional<std::string> _read;  ///< the file's contents, or nothing when there was none
  Json _unchanged;
  Json _preferences;
};

}  // namespace platform
