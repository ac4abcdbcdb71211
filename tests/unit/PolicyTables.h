// The tables of the policies and of the update window once more, in the plainest form, to hold the
// daemon's own against.
#pragma once

#include <optional>
#include <string>

#include "platform/Calendar.h"
#include "platform/Json.h"

/// The power policy that `given` amounts to.
std::optional<Json> PowerByTheTables(const Json& given);

/// The update policy that `given` amounts to.
std::optional<Json> UpdatesByTheTables(const Json& given);

/// The day on which the window, of a valid update policy, that is open at `now` opened: every
/// window of today and yesterday is laid out minute by minute.
std::optional<std::string> WindowByTheMinutes(const Json& window, const platform::CivilTime& now);

/// The sign-in options that `given` amounts to.
Json SignInByTheTable(const Json& given);
