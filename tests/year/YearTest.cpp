// Years of a terminal. KIOSKD_YEAR_SEEDS years are lived in each zone (1), in which the portal
// answers for KIOSKD_YEAR_ANSWERED percent of the time (2; 100 is a million check-ins).
#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <cstdlib>
#include <iostream>

#include "platform/Calendar.h"
#include "tests/year/Year.h"
#include "updates/KioskUpdateWindow.h"
#include "updates/KioskUpdates.h"

namespace {

std::size_t FromEnvironment(const char* name, std::size_t otherwise) {
  const char* text = std::getenv(name);
  return text != nullptr ? static_cast<std::size_t>(std::strtoul(text, nullptr, 10)) : otherwise;
}

std::size_t CountOf(const Tally& tally, const std::string& name) {
  const auto found = tally.find(name);
  return found == tally.end() ? 0 : found->second;
}

std::size_t LinesWith(const Year& year, const std::string& text) {
  return static_cast<std::size_t>(std::count_if(
      year.log().begin(), year.log().end(),
      [&text](const Happening& each) { return each.text.find(text) != std::string::npos; }));
}

void Print(const YearPlan& plan, const Year& year) {
  std::cout << plan.zone.name << ", seed " << plan.seed << ": ";
  for (const Tally* tally : {&year.events(), &year.tally()}) {
    for (const auto& [name, count] : *tally) std::cout << name << " " << count << ", ";
  }
  std::cout << "lock-outs " << year.lockOuts() << ", log lines " << year.log().size() << "\n";
}

/// The whole log agrees with the accounts, and nothing that a year is for was left out.
void ExpectAFullYear(const Year& year) {
  const Tally& tally = year.tally();
  const std::size_t runs = CountOf(tally, "runs that fail") +
                           CountOf(tally, "runs without updates") +
                           CountOf(tally, "runs that install");
  EXPECT_EQ(LinesWith(year, " window is open; installing"), runs);
  EXPECT_EQ(TheAround().lists, runs);
  EXPECT_GE(runs, CountOf(tally, "windows served"));
  EXPECT_LE(runs, CountOf(tally, "windows served") + 1);  // the last window may be open still
  for (const char* name :
       {"windows served", "windows deferred", "windows while off",
        "windows open again after their run", "runs that fail", "runs without updates",
        "runs that install", "deferrals: live", "deferrals: signed in", "restarts: closed",
        "restarts: made", "check-ins answered"}) {
    EXPECT_GT(CountOf(tally, name), 0U) << name;
  }
  for (const char* name : {"jumps forward", "jumps back", "nights off", "days off", "policies",
                           "policies that are off", "policies that are invalid",
                           "answers without a policy", "locked", "right passwords"}) {
    EXPECT_GT(CountOf(year.events(), name), 0U) << name;
  }
  EXPECT_EQ(CountOf(year.events(), "changes of summer time"), 2U);
  EXPECT_GT(CountOf(tally, "windows"), 200U);
  EXPECT_GT(year.lockOuts(), 10U);
}

void LiveYears(const Zone& zone) {
  const std::size_t seeds = FromEnvironment("KIOSKD_YEAR_SEEDS", 1);
  for (std::uint64_t seed = 1; seed <= seeds && !testing::Test::HasFailure(); ++seed) {
    const YearPlan plan{
        .zone = zone, .seed = seed, .answeredPercent = FromEnvironment("KIOSKD_YEAR_ANSWERED", 2)};
    Year year(plan);
    year.live();
    Print(plan, year);
    if (testing::Test::HasFailure()) return;
    ExpectAFullYear(year);
    const bool isAlwaysThere = plan.answeredPercent >= 100;
    EXPECT_EQ(CountOf(year.tally(), "check-ins not answered") == 0, isAlwaysThere);
  }
}

/// The instants, in minutes since 1970, at which summer time begins and ends in 2027.
std::vector<double> ChangesOf(const Zone& zone) {
  std::vector<double> changes;
  const double first = static_cast<double>(DayNumber(2027, 1, 2)) * 86400;
  for (double at = first; changes.size() < 2; at += 60) {
    if (zone.isSummer(at) != zone.isSummer(at - 60)) changes.push_back(at);
  }
  return changes;
}

std::string KeyOf(const Json& policy, double wall) {
  const platform::CivilTime time = platform::CalendarCivilTime(wall);
  return KioskUpdateWindowKey(policy["window"], time).value_or("closed");
}

void ExpectTheSameWindowsAround(const Zone& zone, double change, const UpdatePolicy& policy) {
  const std::optional<Json> parsed = KioskUpdatesParse(policy.sent);
  ASSERT_EQ(parsed.has_value(), policy.isValid) << policy.sent;
  if (!parsed || !policy.automatic) return;
  for (double wall = change - 36 * 3600; wall < change + 36 * 3600; wall += 59) {
    const std::optional<long> day = OpenWindow(policy, LocalMinuteOf(zone, wall));
    ASSERT_EQ(KeyOf(*parsed, wall), day ? DateText(*day) : "closed")
        << zone.name << " " << LocalText(zone, wall) << " " << policy.sent;
  }
}

TEST(UpdateWindows, AreOpenByTheRulesOfSummerTimeWhereTheClocksChange) {
  EnterYears();
  Random dice(7);
  for (const Zone* zone : {&kBerlin, &kNewYork, &kSydney}) {
    EnterZone(*zone);
    for (const double change : ChangesOf(*zone)) {
      for (int each = 0; each < 12 && !HasFailure(); ++each) {
        ExpectTheSameWindowsAround(*zone, change, AnyPolicy(dice));
        ExpectTheSameWindowsAround(*zone, change, PolicyAroundAClockChange(dice));
      }
    }
  }
}

TEST(Year, IsAccountedForInTheNorth) { LiveYears(kBerlin); }
TEST(Year, IsAccountedForInTheSouth) { LiveYears(kSydney); }
TEST(Year, IsAccountedForBehindUtc) { LiveYears(kNewYork); }

}  // namespace
