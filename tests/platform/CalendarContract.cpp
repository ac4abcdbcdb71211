#include <algorithm>
#include <limits>

#include "platform/Calendar.h"
#include "tests/platform/World.h"

namespace platform {
namespace {

class Calendar : public contract::ChangingWorld {};

TEST_F(Calendar, GivesLocalTimeInWinterAndSummer) {
  setTimeZone("Europe/Berlin");
  const CivilTime winter = CalendarCivilTime(1767225599);  // 2025-12-31T23:59:59Z
  EXPECT_EQ(winter.year, 2026);
  EXPECT_EQ(winter.month, 1);
  EXPECT_EQ(winter.day, 1);
  EXPECT_EQ(winter.hour, 0);
  EXPECT_EQ(winter.minute, 59);
  EXPECT_EQ(winter.second, 59);
  EXPECT_EQ(winter.weekday, 5);                      // a Thursday
  EXPECT_EQ(CalendarCivilTime(1782864000).hour, 2);  // 2026-07-01T00:00:00Z
}

TEST_F(Calendar, FollowsAChangeOfTheZoneAtOnce) {
  setTimeZone("Europe/Berlin");
  EXPECT_EQ(CalendarCivilTime(1767225600).hour, 1);
  setTimeZone("Asia/Kolkata");
  EXPECT_EQ(CalendarCivilTime(1767225600).hour, 5);
  EXPECT_EQ(CalendarCivilTime(1767225600).minute, 30);
  setTimeZone("Europe/Berlin");
  EXPECT_EQ(CalendarCivilTime(1767225600).hour, 1);
}

TEST_F(Calendar, RoundsDown) {
  setTimeZone("Europe/Berlin");
  EXPECT_EQ(CalendarCivilTime(1767225599.5).second, 59);
  EXPECT_EQ(CalendarCivilTime(1767225600.9).second, 0);
}

TEST_F(Calendar, CountsSundayAsTheFirstDay) {
  setTimeZone("Europe/Berlin");
  EXPECT_EQ(CalendarCivilTime(1767528000).weekday, 1);  // 2026-01-04T12:00:00Z
}

TEST_F(Calendar, SurvivesInstantsThatNoCalendarHas) {
  for (const double instant : {1e300, -1e300, std::numeric_limits<double>::quiet_NaN(),
                               std::numeric_limits<double>::infinity()}) {
    const CivilTime time = CalendarCivilTime(instant);
    EXPECT_GE(time.month, 1);
    EXPECT_LE(time.month, 12);
  }
}

TEST_F(Calendar, KnowsTheNamesOfTheZones) {
  setTimeZone("Europe/Berlin");
  const std::vector<std::string> names = CalendarKnownTimeZones();
  for (const char* name : {"Europe/Berlin", "Asia/Kolkata"}) {
    EXPECT_EQ(std::count(names.begin(), names.end(), name), 1) << name;
  }
  EXPECT_EQ(std::count(names.begin(), names.end(), "Mars/Base"), 0);
}

}  // namespace
}  // namespace platform
