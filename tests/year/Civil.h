// Dates and local time by their rules, reckoned anew: nothing of the daemon's, the C library's or
// the time zone database's arithmetic.
#pragma once

#include <string>

inline constexpr int kMinutesADay = 24 * 60;

/// Days since 1970-01-01 of a date.
long DayNumber(int year, int month, int day);

/// "2027-03-28".
std::string DateText(long dayNumber);

/// 0 = Sunday to 6.
int WeekdayOf(long dayNumber);

/// A time zone with summer time.
struct Zone {
  const char* name;     ///< in the time zone database
  int standardMinutes;  ///< ahead of UTC in winter
  /// Whether it is summer time at an instant of UTC: seconds since 1970.
  bool (*isSummer)(double utc);
};

extern const Zone kBerlin;
extern const Zone kNewYork;
extern const Zone kSydney;

/// A local time to the minute.
struct LocalMinute {
  long day;    ///< days since 1970-01-01
  int minute;  ///< since midnight
};

LocalMinute LocalMinuteOf(const Zone& zone, double utc);

/// "2027-03-28 03:00" local time.
std::string LocalText(const Zone& zone, double utc);
