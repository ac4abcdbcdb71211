// Civil time: CFCalendar and CFTimeZone.
#include "platform/Calendar.h"

#include "platform/macos/CfRef.h"

namespace platform {
namespace {

/// What an instant that the calendar does not know is taken for: a Thursday.
constexpr CivilTime kEpoch = {1970, 1, 1, 0, 0, 0, 5};

}  // namespace

CivilTime CalendarCivilTime(double secondsSince1970) {
  // The process keeps the zone that it read first until it is told to forget it.
  CFTimeZoneResetSystem();
  const CfRef<CFTimeZoneRef> zone(CFTimeZoneCopySystem());
  const CfRef<CFCalendarRef> calendar(
      CFCalendarCreateWithIdentifier(nullptr, kCFGregorianCalendar));
  if (!zone || !calendar) return kEpoch;
  CFCalendarSetTimeZone(calendar.get(), zone.get());
  CivilTime time = kEpoch;
  const bool isKnown = CFCalendarDecomposeAbsoluteTime(
      calendar.get(), secondsSince1970 - kCFAbsoluteTimeIntervalSince1970, "yMdHmsE", &time.year,
      &time.month, &time.day, &time.hour, &time.minute, &time.second, &time.weekday);
  return isKnown ? time : kEpoch;
}

std::vector<std::string> CalendarKnownTimeZones() {
  std::vector<std::string> names;
  const CfRef<CFArrayRef> known(CFTimeZoneCopyKnownNames());
  const CFIndex count = known ? CFArrayGetCount(known.get()) : 0;
  for (CFIndex i = 0; i < count; ++i) {
    if (const auto name = CfTextOf(CFArrayGetValueAtIndex(known.get(), i))) names.push_back(*name);
  }
  return names;
}

}  // namespace platform
