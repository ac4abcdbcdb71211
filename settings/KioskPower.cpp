#include "settings/KioskPower.h"

#include <set>
#include <string>

#include "core/KioskJson.h"
#include "core/KioskText.h"

namespace {

constexpr std::int64_t kLongestTimeoutMinutes = 240;
constexpr std::size_t kDaysOfWeek = 7;

bool IsTimeout(const Json& value, std::int64_t& minutes) {
  return KioskIsInteger(value, minutes) && minutes >= 0 && minutes <= kLongestTimeoutMinutes;
}

const Json& Or(const Json& value, const Json& fallback) {
  return value.is_null() ? fallback : value;
}

// `value` is what the policy holds under "schedule": nothing means all defaults.
std::optional<Json> ScheduleFrom(const Json& value) {
  static const Json defaults = KioskPowerDefault()["schedule"];
  if (!value.is_null() && !value.is_object()) return std::nullopt;
  const Json& enabled = KioskMember(value, "enabled");
  if (!enabled.is_null() && !enabled.is_boolean()) return std::nullopt;
  const Json& sleepAt = Or(KioskMember(value, "sleepAt"), defaults["sleepAt"]);
  const Json& wakeAt = Or(KioskMember(value, "wakeAt"), defaults["wakeAt"]);
  int sleepMinutes = 0;
  int wakeMinutes = 0;
  if (!KioskClock(sleepAt, sleepMinutes) || !KioskClock(wakeAt, wakeMinutes)) return std::nullopt;
  const std::optional<Json> days = KioskDays(Or(KioskMember(value, "days"), defaults["days"]));
  if (!days) return std::nullopt;
  const bool on = enabled == true;
  if (on && (days->empty() || sleepMinutes == wakeMinutes)) return std::nullopt;
  return Json{{"enabled", on}, {"sleepAt", sleepAt}, {"wakeAt", wakeAt}, {"days", *days}};
}

}  // namespace

bool KioskClock(const Json& value, int& minutes) {
  if (!value.is_string()) return false;
  const std::string& text = value.get_ref<const std::string&>();
  if (text.size() != 5 || text[2] != ':') return false;
  if (!KioskIsDigit(text[0]) || !KioskIsDigit(text[1]) || !KioskIsDigit(text[3]) ||
      !KioskIsDigit(text[4])) {
    return false;
  }
  const int hour = (text[0] - '0') * 10 + (text[1] - '0');
  const int minute = (text[3] - '0') * 10 + (text[4] - '0');
  if (hour > 23 || minute > 59) return false;
  minutes = hour * 60 + minute;
  return true;
}

std::optional<Json> KioskDays(const Json& value) {
  if (!value.is_array() || value.size() > kDaysOfWeek) return std::nullopt;
  std::set<std::int64_t> days;
  for (const Json& element : value) {
    std::int64_t day = 0;
    if (!KioskIsInteger(element, day) || day < 0 || day > 6) return std::nullopt;
    days.insert(day);
  }
  return Json(days);
}

Json KioskPowerDefault() {
  return {{"screenOffMinutes", 15},
          {"sleepMinutes", 0},
          {"schedule",
           {{"enabled", false},
            {"sleepAt", "22:00"},
            {"wakeAt", "07:00"},
            {"days", Json::array({1, 2, 3, 4, 5})}}}};
}

std::optional<Json> KioskPowerParse(const Json& value) {
  std::int64_t screenOffMinutes = 0;
  std::int64_t sleepMinutes = 0;
  if (!IsTimeout(KioskMember(value, "screenOffMinutes"), screenOffMinutes)) return std::nullopt;
  if (!IsTimeout(KioskMember(value, "sleepMinutes"), sleepMinutes)) return std::nullopt;
  const std::optional<Json> schedule = ScheduleFrom(KioskMember(value, "schedule"));
  if (!schedule) return std::nullopt;
  return Json{{"screenOffMinutes", screenOffMinutes},
              {"sleepMinutes", sleepMinutes},
              {"schedule", *schedule}};
}
