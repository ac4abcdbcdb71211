// The names by which the daemon is known.
#pragma once

/// The daemon's version.
inline constexpr char kKioskVersion[] = "2026.10.15";

/// The mach service that the daemon serves.
inline constexpr char kKioskServiceName[] = "com.brindlex.stream.kioskd";

/// The kiosk account's short name.
inline constexpr char kKioskAccountName[] = "BrindlexKiosk";

/// The kiosk account's full name.
inline constexpr char kKioskAccountFullName[] = "Brindlex";
