// The update window: a time of day, on some days of the week, in local time. Any thread.
#pragma once

#include <optional>
#include <string>

#include "platform/Calendar.h"
#include "platform/Json.h"

/// The day on which the window that is open at the local time `now` opened, "2026-10-08": a window
/// past midnight keeps the day before, and one whose start is its end lasts a full day. Nothing
/// when the window is closed or is none.
std::optional<std::string> KioskUpdateWindowKey(const Json& window, const platform::CivilTime& now);
