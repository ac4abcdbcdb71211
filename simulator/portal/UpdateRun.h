// The run of operating system updates that a terminal reports, for people.
#pragma once

#include <string>

#include "platform/Json.h"

namespace portal {

/// A terminal's last run in a phrase, such as "installed at 2026-01-31T02:10:00Z, a restart is
/// required"; safe to print, whatever the terminal reported. Any thread.
/// @param run {"lastRunAt", "lastResult", "pending", "restartRequired", "error"}; what is missing
/// or
///        of another type is left out, and an unknown result makes the phrase the run as JSON
std::string DescribeUpdateRun(const Json& run);

}  // namespace portal
