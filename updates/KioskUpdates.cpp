#include "updates/KioskUpdates.h"

#include "core/KioskJson.h"
#include "settings/KioskPower.h"

namespace {

// `value` is what the policy holds under "window": nothing means the default window.
std::optional<Json> WindowFrom(const Json& value) {
  static const Json defaults = KioskUpdatesDefault()["window"];
  if (value.is_null()) return defaults;
  const Json& start = KioskMember(value, "start");
  const Json& end = KioskMember(value, "end");
  int minutes = 0;
  if (!KioskClock(start, minutes) || !KioskClock(end, minutes)) return std::nullopt;
  const Json& listed = KioskMember(value, "days");
  const std::optional<Json> days = KioskDays(listed.is_null() ? defaults["days"] : listed);
  if (!days || days->empty()) return std::nullopt;
  return Json{{"start", start}, {"end", end}, {"days", *days}};
}

}  // namespace

Json KioskUpdatesDefault() {
  return {{"automatic", false},
          {"window",
           {{"start", "02:00"}, {"end", "05:00"}, {"days", Json::array({0, 1, 2, 3, 4, 5, 6})}}}};
}

std::optional<Json> KioskUpdatesParse(const Json& value) {
  if (!value.is_object()) return std::nullopt;
  const Json& automatic = KioskMember(value, "automatic");
  if (!automatic.is_null() && !automatic.is_boolean()) return std::nullopt;
  const std::optional<Json> window = WindowFrom(KioskMember(value, "window"));
  if (!window) return std::nullopt;
  return Json{{"automatic", automatic == true}, {"window", *window}};
}
