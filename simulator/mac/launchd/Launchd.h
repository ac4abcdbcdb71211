// launchd's and the login window's part of a simulated Mac.
#pragma once

#include <chrono>
#include <optional>
#include <string>

namespace simmac {

/// File inside the Mac that tells how far launchd is: {"count": boots so far, "daemons": {label:
/// process id}, "login": whether the login window has made its decision}.
inline constexpr char kBootFile[] = "/private/var/simulated/boot.json";

struct BootOptions {
  std::chrono::milliseconds loginDelay{0};       ///< between the daemons and the login window
  std::optional<std::chrono::seconds> throttle;  ///< in place of every daemon's own
};

/// Boots the Mac at `root` and runs it until it is halted: by the Mac itself, by SIGTERM or by
/// SIGINT. Everything that happens is told on standard output, one line an event. The program's
/// exit status; failures to start are told on standard error. Every process of the Mac ends with
/// the calling one, even when that is killed.
int Boot(const std::string& root, const BootOptions& options);

}  // namespace simmac
