#include "platform/Calendar.h"

#include <time.h>

#include <algorithm>
#include <cmath>
#include <fstream>
#include <sstream>

namespace platform {
namespace {

/// Beyond this many seconds (nearly two thousand million years) a year is no int any more.
constexpr double kFarthestSecond = 6e16;

}  // namespace

CivilTime CalendarCivilTime(double secondsSince1970) {
  const double whole = std::isnan(secondsSince1970) ? 0 : std::floor(secondsSince1970);
  const auto instant = static_cast<time_t>(std::clamp(whole, -kFarthestSecond, kFarthestSecond));
  // tzset looks at the file behind /etc/localtime each time and reads it when it is another one;
  // localtime_r alone keeps to the zone of the process's first call.
  tzset();
  tm local{};
  (void)localtime_r(&instant, &local);  // cannot fail within the bounds above
  return {.year = local.tm_year + 1900,
          .month = local.tm_mon + 1,
          .day = local.tm_mday,
          .hour = local.tm_hour,
          .minute = local.tm_min,
          .second = local.tm_sec,
          .weekday = local.tm_wday + 1};
}

// The table of zones of the time zone database (tzfile(5)): country, coordinates, name, remarks,
// with tabs between them. What a Mac knows is made from it as well.
std::vector<std::string> CalendarKnownTimeZones() {
  std::vector<std::string> names;
  std::ifstream table("/usr/share/zoneinfo/zone.tab");
  for (std::string line; std::getline(table, line);) {
    std::istringstream fields(line);
    std::string country;
    std::string coordinates;
    std::string name;
    if (!line.starts_with('#') && fields >> country >> coordinates >> name) names.push_back(name);
  }
  return names;
}

}  // namespace platform
