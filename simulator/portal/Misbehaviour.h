// What the portal does wrong on an administrator's demand, to show how terminals take it.
#pragma once

#include <condition_variable>
#include <cstdint>
#include <mutex>
#include <optional>
#include <string>

#include "platform/Json.h"

namespace portal {

/// The misbehaviour in force. Every method may be called on any thread.
class Misbehaviour {
 public:
  /// What one request meets.
  struct Use {
    Json settings;
    std::uint64_t generation;  ///< of the settings, for `delay`
  };

  /// Replaces the misbehaviour and wakes whoever waits in `delay`.
  /// @param settings a value for which `IsMisbehaviour` holds
  void set(const Json& settings);

  /// The misbehaviour in force, with the uses it has left.
  Json current() const;

  /// Takes one use for a request.
  /// @param path the request's path
  /// @return the misbehaviour that the request meets; nothing for a good answer
  std::optional<Use> takeForRequest(const std::string& path);

  /// Takes one use for a new connection.
  /// @return true when the connection shall be shown the wrong certificate
  bool takeForConnection();

  /// Waits as long as the settings say, but only while nobody replaces them.
  /// @param use a use whose settings have "delayMs"
  void delay(const Use& use);

 private:
  void takeUse();

  mutable std::mutex _mutex;
  std::condition_variable _changed;
  Json _settings = {{"mode", "none"}};
  std::uint64_t _generation = 0;  ///< counts calls of `set`
};

}  // namespace portal
