// The update policy, put together from single settings.
#pragma once

#include <optional>
#include <string>

#include "platform/Json.h"

namespace portal {

/// What an administrator changes about an update policy; the rest stays.
struct UpdatePolicyChange {
  std::optional<bool> automatic;
  std::optional<std::string> start;  ///< for which `IsClock` holds
  std::optional<std::string> end;    ///< for which `IsClock` holds
  std::optional<std::string> days;   ///< which `ParseDays` takes

  bool any() const { return automatic || start || end || days; }
};

/// The days that a list such as "mon,tue" names, or all of them for "all", as terminals count them
/// (0 is Sunday), in ascending order.
/// @return nothing when the text is not such a list, in lower case
std::optional<Json> ParseDays(const std::string& text);

/// A policy with a change. A window of which only a part is set begins at 02:00 and ends at 05:00,
/// as terminals have it without one.
/// @param policy the policy as it is; null when there is none
/// @return nothing when the policy is of another shape than a policy's, so that it cannot be
/// changed
std::optional<Json> ChangedUpdatePolicy(const Json& policy, const UpdatePolicyChange& change);

}  // namespace portal
