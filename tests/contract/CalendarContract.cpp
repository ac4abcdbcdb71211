#include <filesystem>
#include <limits>

#include "platform/Calendar.h"
#include "tests/contract/SimulatedRoot.h"

namespace platform {
namespace {

/// The head of a time-zone file's block (RFC 8536): its numbers of transitions, of kinds of time
/// (1) and of bytes of their names (4).
std::string head(char transitions) {
  return std::string("TZif2") + std::string(15 + 12, '\0') + std::string(3, '\0') + transitions +
         std::string("\0\0\0\1\0\0\0\4", 8);
}

/// A time-zone file that has one transition, at the epoch, and a POSIX rule for what follows.
std::string zone(const std::string& rule) {
  const std::string utc("\0\0\0\0\0\0UTC\0", 10);
  return head(0) + utc + head(1) + std::string(8 + 1, '\0') + utc + "\n" + rule + "\n";
}

class Calendar : public contract::SimulatedRoot {
 protected:
  Calendar() {
    unsetenv("TZ");
    contract::WriteFile("/usr/share/zoneinfo/Europe/Berlin", zone("CET-1CEST,M3.5.0,M10.5.0/3"));
    contract::WriteFile("/usr/share/zoneinfo/Asia/Kolkata", zone("IST-5:30"));
  }

  static void setZone(const std::string& name) {
    std::filesystem::remove("/private/etc/localtime");
    std::filesystem::create_symlink("/usr/share/zoneinfo/" + name, "/private/etc/localtime");
  }
};

TEST_F(Calendar, GivesLocalTimeInWinterAndSummer) {
  setZone("Europe/Berlin");
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
  setZone("Europe/Berlin");
  EXPECT_EQ(CalendarCivilTime(1767225600).hour, 1);
  setZone("Asia/Kolkata");
  EXPECT_EQ(CalendarCivilTime(1767225600).hour, 5);
  EXPECT_EQ(CalendarCivilTime(1767225600).minute, 30);
  setZone("Europe/Berlin");
  EXPECT_EQ(CalendarCivilTime(1767225600).hour, 1);
}

TEST_F(Calendar, RoundsDown) {
  setZone("Europe/Berlin");
  EXPECT_EQ(CalendarCivilTime(1767225599.5).second, 59);
  EXPECT_EQ(CalendarCivilTime(1767225600.9).second, 0);
}

TEST_F(Calendar, CountsSundayAsTheFirstDay) {
  setZone("Europe/Berlin");
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

}  // namespace
}  // namespace platform
