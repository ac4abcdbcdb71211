// The update policies of a year, and when their windows are open, reckoned anew.
#pragma once

#include <optional>

#include "platform/Json.h"
#include "tests/unit/Random.h"
#include "tests/year/Civil.h"

/// What the portal sends under "updates".
struct UpdatePolicy {
  Json sent;             ///< null: nothing is sent
  bool isValid = false;  ///< an invalid one changes nothing
  bool automatic = false;
  int start = 0;          ///< minutes since midnight
  int length = 0;         ///< minutes of local time, a day at most
  unsigned weekdays = 0;  ///< a bit for each day on which a window opens, Sunday the lowest
};

/// The day on which the window that is open at this time opened.
std::optional<long> OpenWindow(const UpdatePolicy& policy, const LocalMinute& now);

/// A policy of any kind, valid or not.
UpdatePolicy AnyPolicy(Random& dice);

/// A policy whose window opens or ends within the hour that summer time leaves out or has twice.
UpdatePolicy PolicyAroundAClockChange(Random& dice);

/// A policy of a window on these days.
UpdatePolicy PolicyOf(int start, int length, unsigned weekdays = 0x7F);
