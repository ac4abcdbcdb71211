#include "simulator/portal/UpdatePolicy.h"

#include <algorithm>
#include <array>
#include <set>
#include <sstream>
#include <string_view>

#include "simulator/portal/Shapes.h"

namespace portal {
namespace {

constexpr std::array<std::string_view, 7> kDays = {"sun", "mon", "tue", "wed", "thu", "fri", "sat"};

/// The window with the changes; null stays null without one.
Json ChangedWindow(const Json& before, const UpdatePolicyChange& change) {
  if (!change.start && !change.end && !change.days) return before;
  Json window = before.is_null() ? Json{{"start", "02:00"}, {"end", "05:00"}} : before;
  if (change.start) window["start"] = *change.start;
  if (change.end) window["end"] = *change.end;
  if (change.days) window["days"] = ParseDays(*change.days).value_or(Json());
  return window;
}

}  // namespace

std::optional<Json> ParseDays(const std::string& text) {
  if (text == "all") return Json::array({0, 1, 2, 3, 4, 5, 6});
  std::set<std::ptrdiff_t> days;
  std::istringstream names(text + ",");
  for (std::string name; std::getline(names, name, ',');) {
    const auto* const day = std::find(kDays.begin(), kDays.end(), name);
    if (day == kDays.end()) return std::nullopt;
    days.insert(day - kDays.begin());
  }
  return Json(days);
}

std::optional<Json> ChangedUpdatePolicy(const Json& policy, const UpdatePolicyChange& change) {
  if (!policy.is_null() && !IsUpdatesPolicy(policy)) return std::nullopt;
  Json changed = policy.is_null() ? Json::object() : policy;
  if (change.automatic) changed["automatic"] = *change.automatic;
  const Json window = ChangedWindow(changed.value("window", Json()), change);
  if (!window.is_null()) changed["window"] = window;
  return changed;
}

}  // namespace portal
