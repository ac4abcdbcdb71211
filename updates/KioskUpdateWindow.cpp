#include "updates/KioskUpdateWindow.h"

#include <algorithm>
#include <array>
#include <chrono>
#include <cstdio>

#include "core/KioskJson.h"
#include "settings/KioskPower.h"

namespace {

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

// By the calendar: where the clocks change, 24 hours before now may be another day.
std::string DateBefore(const platform::CivilTime& time) {
  namespace chrono = std::chrono;
  const chrono::year_month_day today{chrono::year{time.year},
                                     chrono::month{static_cast<unsigned>(time.month)},
                                     chrono::day{static_cast<unsigned>(time.day)}};
  const chrono::year_month_day before{chrono::sys_days{today} - chrono::days{1}};
  return DateText(static_cast<int>(before.year()), static_cast<unsigned>(before.month()),
                  static_cast<unsigned>(before.day()));
}

}  // namespace

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
