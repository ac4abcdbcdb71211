#include "tests/year/Civil.h"

#include <array>
#include <cmath>
#include <cstdio>

namespace {

constexpr double kSecondsADay = 86400;
constexpr int kSunday = 0;

bool IsLeap(int year) { return (year % 4 == 0 && year % 100 != 0) || year % 400 == 0; }

int DaysIn(int year) { return IsLeap(year) ? 366 : 365; }

int DaysIn(int year, int month) {
  constexpr std::array<int, 12> days{31, 28, 31, 30, 31, 30, 31, 31, 30, 31, 30, 31};
  return month == 2 && IsLeap(year) ? 29 : days.at(static_cast<std::size_t>(month - 1));
}

/// The `which`th Sunday (from 1) of a month.
long Sunday(int year, int month, int which) {
  long day = DayNumber(year, month, 1);
  while (WeekdayOf(day) != kSunday) ++day;
  return day + 7 * (which - 1);
}

long LastSunday(int year, int month) {
  long day = DayNumber(year, month, DaysIn(year, month));
  while (WeekdayOf(day) != kSunday) --day;
  return day;
}

double At(long day, int hourUtc) {
  return static_cast<double>(day) * kSecondsADay + static_cast<double>(hourUtc) * 3600;
}

/// A year's two changes: when summer time begins and ends in the north, ends and begins in the
/// south.
struct Changes {
  double begin = 0;  ///< of the year, by UTC
  double end = 0;
  double first = 0;
  double second = 0;
};

/// Whether the instant lies between its year's changes, which `known` keeps for the next question.
bool IsBetween(Changes& known, double utc, Changes (*reckon)(int year)) {
  if (utc < known.begin || utc >= known.end) {
    known = reckon(std::stoi(DateText(static_cast<long>(std::floor(utc / kSecondsADay)))));
  }
  return utc >= known.first && utc < known.second;
}

Changes In(int year, double first, double second) {
  return {At(DayNumber(year, 1, 1), 0), At(DayNumber(year + 1, 1, 1), 0), first, second};
}

Changes EuropesChanges(int year) {
  return In(year, At(LastSunday(year, 3), 1), At(LastSunday(year, 10), 1));
}

Changes AmericasChanges(int year) {
  return In(year, At(Sunday(year, 3, 2), 7), At(Sunday(year, 11, 1), 6));
}

// Two o'clock of standard time on a Sunday is four in the afternoon of Saturday by UTC.
Changes AustraliasChanges(int year) {
  return In(year, At(Sunday(year, 4, 1) - 1, 16), At(Sunday(year, 10, 1) - 1, 16));
}

bool IsSummerInEurope(double utc) {
  static Changes known;
  return IsBetween(known, utc, EuropesChanges);
}

bool IsSummerInAmerica(double utc) {
  static Changes known;
  return IsBetween(known, utc, AmericasChanges);
}

bool IsSummerInAustralia(double utc) {
  static Changes known;
  return !IsBetween(known, utc, AustraliasChanges);
}

}  // namespace

const Zone kBerlin = {"Europe/Berlin", 60, IsSummerInEurope};
const Zone kNewYork = {"America/New_York", -300, IsSummerInAmerica};
const Zone kSydney = {"Australia/Sydney", 600, IsSummerInAustralia};

long DayNumber(int year, int month, int day) {
  long days = 0;
  for (int each = 1970; each < year; ++each) days += DaysIn(each);
  for (int each = 1; each < month; ++each) days += DaysIn(year, each);
  return days + day - 1;
}

std::string DateText(long dayNumber) {
  int year = 1970;
  for (; dayNumber >= DaysIn(year); ++year) dayNumber -= DaysIn(year);
  int month = 1;
  for (; dayNumber >= DaysIn(year, month); ++month) dayNumber -= DaysIn(year, month);
  std::array<char, 64> text{};
  std::snprintf(text.data(), text.size(), "%04d-%02d-%02ld", year, month, dayNumber + 1);
  return text.data();
}

// The first of January 1970 was a Thursday.
int WeekdayOf(long dayNumber) { return static_cast<int>((dayNumber + 4) % 7); }

LocalMinute LocalMinuteOf(const Zone& zone, double utc) {
  const int ahead = zone.standardMinutes + (zone.isSummer(utc) ? 60 : 0);
  const long minutes = static_cast<long>(std::floor(utc / 60)) + ahead;
  return {minutes / kMinutesADay, static_cast<int>(minutes % kMinutesADay)};
}

std::string LocalText(const Zone& zone, double utc) {
  const LocalMinute local = LocalMinuteOf(zone, utc);
  std::array<char, 32> time{};
  std::snprintf(time.data(), time.size(), " %02d:%02d", local.minute / 60, local.minute % 60);
  return DateText(local.day) + time.data();
}
