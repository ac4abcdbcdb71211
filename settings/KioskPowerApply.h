// The power policy on the machine: pmset. Any thread; tools block the caller.
#pragma once

#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "core/KioskError.h"
#include "platform/Json.h"

/// pmset's letters for weekdays (numbers from 0 = Sunday to 6), Monday first: "MTWRFSU".
std::string KioskPmsetDays(const Json& days);

/// pmset's arguments for a policy's two timeouts.
std::vector<std::string> KioskPowerTimeoutArgs(const Json& policy);

/// pmset's arguments for a policy's schedule: to set it, or to cancel any when it is disabled.
std::vector<std::string> KioskPowerScheduleArgs(const Json& policy);

/// Applies a policy. `armed` tells whether a repeating schedule of ours is set, before and after.
/// "failed" when the timeouts were refused, "wake_unavailable" when the schedule was; else nothing.
KioskError KioskPowerApply(const Json& policy, bool& armed);

/// The timeouts in the output of pmset's "-g", as {"displaysleep", "sleep"} in minutes; nothing
/// when one is missing.
std::optional<Json> KioskPowerParsePmset(std::string_view text);

/// The machine's own timeouts at present, or nothing.
std::optional<Json> KioskPowerSnapshot();

/// Cancels our schedule if `armed`, and puts the timeouts of `snapshot` back if it is one.
void KioskPowerRestore(const Json& snapshot, bool armed);
