// The OS update policy: whether and when updates install by themselves. Any thread.
#pragma once

#include <optional>

#include "platform/Json.h"

/// The policy of a terminal that was given none.
Json KioskUpdatesDefault();

/// The policy that `value` amounts to, with exactly the known keys; nothing when any of them is
/// invalid.
std::optional<Json> KioskUpdatesParse(const Json& value);
