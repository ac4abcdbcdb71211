#include "updates/KioskUpdates.h"

#include <algorithm>
#include <array>
#include <chrono>
#include <cstdio>

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

constexpr int kMinutesPerHour = 60;
constexpr int kDaysPerWeek = 7;

bool OpensOn(const Json& window, int weekday) {
  const Json& days = KioskMember(window, "days");
  return std::find(days.begin(), days.end(), Json(weekday)) != days.end();
}

std::string DateText(long year, long month, long day) {
  std::array<char, 64> text{};
  std::snprintf(text.data(), text.size(), "%04ld-%02ld-%02ld", year, month, day);
  return text.data();
}

std::string DateOf(const platform::CivilTime& time) {
  return DateText(time.year, time.month, time.day);
}

// By the calendar and not by 24 hours, which take a day of 23 or 25 hours for another one.
std::string DateBefore(const platform::CivilTime& time) {
  using namespace std::chrono;
  const year_month_day today{year{time.year}, month{static_cast<unsigned>(time.month)},
                             day{static_cast<unsigned>(time.day)}};
  const year_month_day before{sys_days{today} - days{1}};
  return DateText(static_cast<int>(before.year()), static_cast<unsigned>(before.month()),
                  static_cast<unsigned>(before.day()));
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

std::optional<std::string> KioskUpdateWindowKey(const Json& window,
                                                const platform::CivilTime& now) {
  int start = 0;
  int end = 0;
  if (!KioskClock(KioskMember(window, "start"), start)) return std::nullopt;
  if (!KioskClock(KioskMember(window, "end"), end)) return std::nullopt;
  const int minute = now.hour * kMinutesPerHour + now.minute;
  const int today = now.weekday - 1;  // 0 = Sunday, as in the policy
  const int yesterday = (today + kDaysPerWeek - 1) % kDaysPerWeek;
  const bool pastMidnight = start >= end;
  if (minute >= start && (pastMidnight || minute < end) && OpensOn(window, today)) {
    return DateOf(now);
  }
  if (pastMidnight && minute < end && OpensOn(window, yesterday)) return DateBefore(now);
  return std::nullopt;
}
