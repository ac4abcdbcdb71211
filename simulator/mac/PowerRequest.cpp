#include "simulator/mac/PowerRequest.h"

#include <charconv>
#include <csignal>

#include "simulator/mac/Descriptor.h"

namespace simmac {

using platform::MacTree;

std::optional<pid_t> RunningLaunchd(const MacTree& mac) {
  if (!LockIsHeld(mac.path(platform::kMacLaunchdPid))) return std::nullopt;
  const std::string text = mac.read(platform::kMacLaunchdPid).value_or("");
  pid_t pid = 0;
  (void)std::from_chars(text.data(), text.data() + text.size(), pid);
  return pid > 1 ? std::optional(pid) : std::nullopt;
}

bool LeavePowerRequest(const MacTree& mac, const std::string& request) {
  constexpr mode_t kMode = 0644;
  return mac.replace(platform::kMacPowerRequest, request, kMode);
}

bool TellLaunchd(const MacTree& mac) {
  const std::optional<pid_t> launchd = RunningLaunchd(mac);
  return launchd && kill(*launchd, SIGHUP) == 0;
}

}  // namespace simmac
