// Asking launchd to restart or to halt the Mac.
#pragma once

#include <sys/types.h>

#include <optional>
#include <string>

#include "platform/simulated/MacFiles.h"

namespace simmac {

/// launchd's process id when the Mac is running.
std::optional<pid_t> RunningLaunchd(const platform::MacTree& mac);

/// Leaves "restart" or "halt" where launchd finds it. False when it cannot be written.
[[nodiscard]] bool LeavePowerRequest(const platform::MacTree& mac, const std::string& request);

/// Tells launchd to look for a request. False when the Mac is not running or is somebody else's.
bool TellLaunchd(const platform::MacTree& mac);

}  // namespace simmac
