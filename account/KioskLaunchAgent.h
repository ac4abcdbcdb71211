// The LaunchAgent that starts the kiosk application in the kiosk account's session. Any thread.
#pragma once

#include <string>

/// Writes the LaunchAgent for the application's executable at `program`. It is not loaded: launchd
/// starts it at the account's next graphical login. False after one log line on failure.
[[nodiscard]] bool KioskInstallLaunchAgent(const std::string& program);

/// Removes the LaunchAgent; a failure other than that there is none is logged.
void KioskRemoveLaunchAgent();
