// CFTimeZone and CFCalendar, on ICU.
#include <unicode/ucal.h>

#include <cstdarg>
#include <cstring>

#include "tests/native/CoreFoundation.h"
#include "tests/native/Doubles.h"

using native::As;
using native::Begin;

namespace native {
namespace {

class CfTimeZone : public CfObject {
 public:
  explicit CfTimeZone(std::string name)
      : CfObject("CFTimeZone", kOtherType), name(std::move(name)) {}

  const std::string name;
};

class CfCalendar : public CfObject {
 public:
  CfCalendar() : CfObject("CFCalendar", kOtherType) {}

  std::string zone = "UTC";
};

/// The system's zone as the process read it first.
std::string& remembered() {
  static auto* const zone = new std::string;
  return *zone;
}

int fieldOf(UCalendar* calendar, char component) {
  UErrorCode status = U_ZERO_ERROR;
  const auto field = [&](UCalendarDateFields name) { return ucal_get(calendar, name, &status); };
  switch (component) {
    case 'y':
      return field(UCAL_YEAR);
    case 'M':
      return field(UCAL_MONTH) + 1;
    case 'd':
      return field(UCAL_DATE);
    case 'H':
      return field(UCAL_HOUR_OF_DAY);
    case 'm':
      return field(UCAL_MINUTE);
    case 's':
      return field(UCAL_SECOND);
    case 'E':
      return field(UCAL_DAY_OF_WEEK);
    default:
      Crash("an unknown component of a date");
  }
}

}  // namespace
}  // namespace native

extern "C" {

const CFStringRef kCFGregorianCalendar =
    native::RefOf<CFStringRef>(new native::CfString(u"gregorian", native::Object::Life::kConstant));

void CFTimeZoneResetSystem(void) {
  (void)Begin(__func__);
  native::remembered().clear();
}

CFTimeZoneRef CFTimeZoneCopySystem(void) {
  if (!Begin(__func__)) return nullptr;
  if (native::remembered().empty()) native::remembered() = native::TheMac().timeZone;
  return native::RefOf<CFTimeZoneRef>(new native::CfTimeZone(native::remembered()));
}

CFArrayRef CFTimeZoneCopyKnownNames(void) {
  if (!Begin(__func__)) return nullptr;
  auto* names = new native::CfCollection("CFArray", native::kArrayType);
  for (const char* name : {"Europe/Berlin", "Asia/Kolkata", "GMT"}) {
    names->values.push_back(native::NewString(name));
  }
  return native::RefOf<CFArrayRef>(names);
}

CFCalendarRef CFCalendarCreateWithIdentifier(CFAllocatorRef, CFStringRef identifier) {
  if (native::Utf8Of(identifier) != "gregorian") native::Crash("another calendar");
  if (!Begin(__func__)) return nullptr;
  return native::RefOf<CFCalendarRef>(new native::CfCalendar);
}

void CFCalendarSetTimeZone(CFCalendarRef calendar, CFTimeZoneRef zone) {
  As<native::CfCalendar>(calendar)->zone = As<native::CfTimeZone>(zone)->name;
}

Boolean CFCalendarDecomposeAbsoluteTime(CFCalendarRef calendar, CFAbsoluteTime time,
                                        const char* components, ...) {
  const std::string& zone = As<native::CfCalendar>(calendar)->zone;
  if (!Begin(__func__)) return 0;
  const std::u16string name(zone.begin(), zone.end());
  UErrorCode status = U_ZERO_ERROR;
  UCalendar* fields = ucal_open(name.c_str(), -1, "en_US", UCAL_GREGORIAN, &status);
  ucal_setMillis(fields, (time + kCFAbsoluteTimeIntervalSince1970) * 1000, &status);
  va_list pointers;
  va_start(pointers, components);
  for (const char* component = components; U_SUCCESS(status) && *component != 0; ++component) {
    *va_arg(pointers, int*) = native::fieldOf(fields, *component);
  }
  va_end(pointers);
  ucal_close(fields);
  return U_SUCCESS(status) ? 1 : 0;
}

}  // extern "C"
