// Civil time: CFCalendar and CFTimeZone.
#include "platform/Calendar.h"

#include "platform/macos/CfRef.h"

namespace platform {

CivilTime CalendarCivilTime(double secondsSince1970) {
  // The process keeps the zone that it read first until it is told to forget it.
  CFTimeZoneResetSystem();
  const CfRef<CFTimeZoneRef> zone(CFTimeZoneCopySystem());
  const CfRef<CFCalendarRef> calendar(
      CFCalendarCreateWithIdentifier(nullptr, kCFGregorianCalendar));
  CFCalendarSetTimeZone(calendar.get(), zone.get());
  CivilTime time = {};
  CFCalendarDecomposeAbsoluteTime(
      calendar.get(), secondsSince1970 - kCFAbsoluteTimeIntervalSince1970, "yMdHmsE", &time.year,
      &time.month, &time.day, &time.hour, &time.minute, &time.second, &time.weekday);
  return time;
}

}  // namespace platform
