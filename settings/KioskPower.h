// The power policy: when the screen and the Mac sleep, and the daily schedule. Any thread.
#pragma once

#include <optional>

#include "platform/Json.h"

/// Whether `value` is a 24-hour time of day, as a whole: "^([01][0-9]|2[0-3]):[0-5][0-9]$"; if so,
/// `minutes` receives the minutes since midnight.
bool KioskClock(const Json& value, int& minutes);

/// The weekdays (0 = Sunday to 6 = Saturday) in `value`, an array of at most seven, without
/// duplicates and in ascending order; nothing when it is anything else. May be empty.
std::optional<Json> KioskDays(const Json& value);

/// The policy of a terminal that was given none.
Json KioskPowerDefault();

/// The policy that `value` amounts to, with exactly the known keys; nothing when any of them is
/// missing or invalid.
std::optional<Json> KioskPowerParse(const Json& value);
