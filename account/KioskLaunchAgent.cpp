#include "account/KioskLaunchAgent.h"

#include <sys/types.h>

#include <optional>

#include "account/KioskFiles.h"
#include "core/KioskLog.h"
#include "platform/PropertyList.h"

namespace {

constexpr char kLaunchAgentFile[] = "/Library/LaunchAgents/com.brindlex.stream.kiosk.plist";
constexpr mode_t kLaunchAgentMode = 0644;

Json LaunchAgent(const std::string& program) {
  return {{"Label", "com.brindlex.stream.kiosk"},
          {"ProgramArguments", Json::array({program, "--kiosk-shell"})},
          {"RunAtLoad", true},
          {"KeepAlive", {{"SuccessfulExit", false}}},
          {"LimitLoadToSessionType", "Aqua"},
          {"AssociatedBundleIdentifiers", Json::array({"com.brindlex.stream"})}};
}

}  // namespace

bool KioskInstallLaunchAgent(const std::string& program) {
  std::string error;
  const std::optional<std::string> text =
      platform::PropertyListWrite(LaunchAgent(program), platform::PropertyListFormat::kXml, error);
  if (!text) {
    KioskLogError("LaunchAgent plist: %@", error);
    return false;
  }
  return KioskWriteFile(kLaunchAgentFile, *text, kLaunchAgentMode, 0, 0);
}

void KioskRemoveLaunchAgent() { KioskRemoveFile(kLaunchAgentFile); }
