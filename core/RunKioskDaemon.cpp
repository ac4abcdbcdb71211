#include "core/RunKioskDaemon.h"

#include <unistd.h>

#include <memory>
#include <optional>
#include <string>

#include "core/KioskDaemon.h"
#include "core/KioskLimits.h"
#include "core/KioskListener.h"
#include "core/KioskLog.h"
#include "core/KioskSelfCheck.h"
#include "core/KioskVersion.h"
#include "platform/Host.h"

namespace {

bool MayRun() {
  if (geteuid() != 0) {
    KioskLogError("must run as root, from the LaunchDaemon");
    return false;
  }
  const std::optional<std::string> path = platform::HostExecutablePath(kKioskExecutablePathBytes);
  if (!path || !path->starts_with('/')) {
    KioskLogError("refusing to run: the helper's own path is not absolute");
    return false;
  }
  return KioskPathIsSafe(*path);
}

}  // namespace

int RunKioskDaemon() {
  KioskLog("BrindlexKioskHelper %s on %s", kKioskVersion, kKioskServiceName);
  if (!MayRun()) return 1;
  const auto daemon = std::make_shared<KioskDaemon>();
  daemon->queue().sync([&daemon] { daemon->start(); });
  // Only now, so that no request is served before the state is loaded.
  [[maybe_unused]] const platform::ChannelListener listener = KioskListen(daemon);
  platform::ParkMainThread();
}
