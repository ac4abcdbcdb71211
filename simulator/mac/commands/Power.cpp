#include <charconv>
#include <chrono>
#include <csignal>

#include "platform/simulated/MacFiles.h"
#include "simulator/mac/Descriptor.h"
#include "simulator/mac/JsonFields.h"
#include "simulator/mac/commands/Commands.h"
#include "simulator/mac/commands/Follow.h"
#include "simulator/mac/launchd/Launchd.h"

namespace simmac {
namespace {

using platform::MacTree;

/// Patience with a Mac that goes down: more than all of its jobs may take.
constexpr std::chrono::seconds kPatience{60};

std::int64_t BootCount(const MacTree& mac) {
  return IntegerOf(mac.readJson(kBootFile).value_or(Json::object()), "count");
}

bool Ask(const MacTree& mac, pid_t launchd, const std::string& request) {
  constexpr mode_t kMode = 0644;
  return mac.replace(platform::kMacPowerRequest, request, kMode) && kill(launchd, SIGHUP) == 0;
}

template <typename Condition>
bool WaitUntil(FolderWatch& watch, Condition condition) {
  // A lock that comes free changes no file, so it is looked at now and then.
  constexpr int kLook = 20;
  const auto deadline = std::chrono::steady_clock::now() + kPatience;
  while (!condition()) {
    if (std::chrono::steady_clock::now() > deadline) return false;
    watch.wait(kLook);
  }
  return true;
}

template <typename Condition>
int AskAndWait(const std::string& root, const std::string& request, Condition condition) {
  if (!IsMac(root)) return 1;
  const std::optional<pid_t> launchd = RunningLaunchd(root);
  if (!launchd) return Refuse("The Mac " + root + " is not running.");
  const MacTree mac(root);
  FolderWatch watch(mac.path(platform::kMacSimulated));
  if (!Ask(mac, *launchd, request)) return Refuse("The Mac " + root + " cannot be asked.");
  return WaitUntil(watch, condition) ? 0 : Refuse("The Mac " + root + " does not come to an end.");
}

}  // namespace

std::optional<pid_t> RunningLaunchd(const std::string& root) {
  const MacTree mac(root);
  if (!LockIsHeld(mac.path(platform::kMacLaunchdPid))) return std::nullopt;
  const std::string text = mac.read(platform::kMacLaunchdPid).value_or("");
  pid_t pid = 0;
  (void)std::from_chars(text.data(), text.data() + text.size(), pid);
  return pid > 1 ? std::optional(pid) : std::nullopt;
}

int RebootMac(const std::string& root) {
  const std::int64_t before = BootCount(MacTree(root));
  return AskAndWait(root, "restart", [&] { return BootCount(MacTree(root)) > before; });
}

int HaltMac(const std::string& root) {
  const std::string lock = MacTree(root).path(platform::kMacLaunchdPid);
  return AskAndWait(root, "halt", [&] { return !LockIsHeld(lock); });
}

}  // namespace simmac
