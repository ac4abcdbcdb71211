#include <chrono>

#include "platform/simulated/MacFiles.h"
#include "simulator/mac/Descriptor.h"
#include "simulator/mac/JsonFields.h"
#include "simulator/mac/PowerRequest.h"
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
  const MacTree mac(root);
  if (!RunningLaunchd(mac)) return Refuse("The Mac " + root + " is not running.");
  FolderWatch watch(mac.path(platform::kMacSimulated));
  const bool asked = LeavePowerRequest(mac, request) && TellLaunchd(mac);
  if (!asked) return Refuse("The Mac " + root + " cannot be asked.");
  return WaitUntil(watch, condition) ? 0 : Refuse("The Mac " + root + " does not come to an end.");
}

}  // namespace

int RebootMac(const std::string& root) {
  const std::int64_t before = BootCount(MacTree(root));
  return AskAndWait(root, "restart", [&] { return BootCount(MacTree(root)) > before; });
}

int HaltMac(const std::string& root) {
  const std::string lock = MacTree(root).path(platform::kMacLaunchdPid);
  return AskAndWait(root, "halt", [&] { return !LockIsHeld(lock); });
}

}  // namespace simmac
