// The time zone, and setting the clock by a time server. Any thread; tools block the caller.
#pragma once

#include <optional>
#include <string>
#include <string_view>

#include "core/KioskError.h"
#include "platform/Json.h"

/// The time server of a Mac that has none configured.
inline constexpr char kKioskDefaultTimeServer[] = "time.apple.com";

/// Whether `value` is the name of a time zone that the system knows.
bool KioskTimeZoneValid(const Json& value);

/// Sets the time zone. "invalid", "failed" when the system does not show it afterwards, or nothing.
KioskError KioskSetTimeZone(const std::string& zone);

/// The clock's error in sntp's output, in milliseconds; false and nothing written when there is
/// none.
bool KioskSntpParse(std::string_view text, double& offsetMs);

/// The time server in the output of systemsetup's "-getnetworktimeserver", or nothing.
std::optional<std::string> KioskTimeServerParse(std::string_view text);

/// Sets the clock by the configured time server, or has the system do so. `server` receives the
/// server's name in any case, `offsetMs` the clock's error before, 0 when nothing measured it.
/// "sync_failed" or nothing.
KioskError KioskSyncTime(std::string& server, double& offsetMs);
