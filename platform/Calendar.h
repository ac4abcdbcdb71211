// Civil time in the system's time zone. Native counterparts: CFCalendar, CFTimeZone.
#pragma once

#include <string>
#include <vector>

namespace platform {

/// A local date and time in the Gregorian calendar.
struct CivilTime {
  int year;
  int month;    ///< 1 to 12
  int day;      ///< 1 to 31
  int hour;     ///< 0 to 23
  int minute;   ///< 0 to 59
  int second;   ///< 0 to 60
  int weekday;  ///< 1 = Sunday to 7 = Saturday, as the platform counts
};

/// The civil time of an instant (seconds since 1970, rounded down) in the system's present time
/// zone, which is read anew at every call so that a change of zone counts at once. Some valid time
/// for an instant that no calendar has. Any thread.
CivilTime CalendarCivilTime(double secondsSince1970);

/// The names of the time zones that the system knows, "Europe/Berlin" among them; empty when they
/// cannot be had. Any thread. Native: CFTimeZoneCopyKnownNames.
std::vector<std::string> CalendarKnownTimeZones();

}  // namespace platform
