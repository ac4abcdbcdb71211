// Where things are in a Mac with the daemon.
#pragma once

inline constexpr char kHelper[] = "/Applications/Brindlex.app/Contents/Helpers/kioskd";
inline constexpr char kStateDir[] = "/Library/Application Support/Brindlex/Kiosk";
inline constexpr char kStateFile[] = "/Library/Application Support/Brindlex/Kiosk/state.json";
inline constexpr char kLaunchAgent[] = "/Library/LaunchAgents/com.brindlex.stream.kiosk.plist";
inline constexpr char kPasswordFile[] = "/private/etc/kcpassword";
inline constexpr char kHome[] = "/Users/BrindlexKiosk";
inline constexpr char kLibrary[] = "/Users/BrindlexKiosk/Library";
inline constexpr char kPreferencesFolder[] = "/Users/BrindlexKiosk/Library/Preferences";
inline constexpr char kSetupAssistant[] =
    "/Users/BrindlexKiosk/Library/Preferences/com.apple.SetupAssistant.plist";
