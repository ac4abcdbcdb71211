#include <gtest/gtest.h>

#include <chrono>
#include <cstdio>
#include <string>
#include <vector>

#include "platform/Calendar.h"
#include "tests/unit/InZone.h"
#include "tests/unit/PolicyRules.h"
#include "tests/unit/RandomJson.h"
#include "updates/KioskUpdateWindow.h"

namespace {

using Key = std::optional<std::string>;
using std::chrono::days;
using std::chrono::sys_days;
using namespace std::chrono_literals;

constexpr int kMinutesOfDay = 24 * 60;

// A week of which the days are named.
constexpr auto kSunday = 2026y / 10 / 4;
constexpr auto kMonday = 2026y / 10 / 5;
constexpr auto kTuesday = 2026y / 10 / 6;
constexpr auto kFriday = 2026y / 10 / 9;
constexpr auto kSaturday = 2026y / 10 / 10;

platform::CivilTime At(std::chrono::year_month_day date, int hour, int minute, int second = 0) {
  return {.year = static_cast<int>(date.year()),
          .month = static_cast<int>(static_cast<unsigned>(date.month())),
          .day = static_cast<int>(static_cast<unsigned>(date.day())),
          .hour = hour,
          .minute = minute,
          .second = second,
          .weekday = static_cast<int>(std::chrono::weekday(sys_days(date)).c_encoding()) + 1};
}

Json Window(const Json& start, const Json& end, const Json& listed = {0, 1, 2, 3, 4, 5, 6}) {
  return Json::object({{"start", start}, {"end", end}, {"days", listed}});
}

TEST(UpdateWindow, IsOpenFromItsStartUntilBeforeItsEnd) {
  const Json window = Window("02:00", "05:00");
  EXPECT_EQ(KioskUpdateWindowKey(window, At(kMonday, 1, 59)), std::nullopt);
  EXPECT_EQ(KioskUpdateWindowKey(window, At(kMonday, 2, 0)), "2026-10-05");
  EXPECT_EQ(KioskUpdateWindowKey(window, At(kMonday, 3, 30)), "2026-10-05");
  EXPECT_EQ(KioskUpdateWindowKey(window, At(kMonday, 4, 59)), "2026-10-05");
  EXPECT_EQ(KioskUpdateWindowKey(window, At(kMonday, 5, 0)), std::nullopt);
  EXPECT_EQ(KioskUpdateWindowKey(window, At(kMonday, 23, 59)), std::nullopt);
}

TEST(UpdateWindow, IgnoresSeconds) {
  const Json window = Window("02:00", "05:00");
  EXPECT_EQ(KioskUpdateWindowKey(window, At(kMonday, 1, 59, 59)), std::nullopt);
  EXPECT_EQ(KioskUpdateWindowKey(window, At(kMonday, 2, 0, 59)), "2026-10-05");
  EXPECT_EQ(KioskUpdateWindowKey(window, At(kMonday, 4, 59, 59)), "2026-10-05");
  EXPECT_EQ(KioskUpdateWindowKey(window, At(kMonday, 4, 59, 60)), "2026-10-05");
  EXPECT_EQ(KioskUpdateWindowKey(window, At(kMonday, 5, 0, 59)), std::nullopt);
}

TEST(UpdateWindow, OpensOnListedDaysOnly) {
  const Json window = Window("02:00", "05:00", {0, 5});
  EXPECT_EQ(KioskUpdateWindowKey(window, At(kSunday, 2, 0)), "2026-10-04");
  EXPECT_EQ(KioskUpdateWindowKey(window, At(kMonday, 2, 0)), std::nullopt);
  EXPECT_EQ(KioskUpdateWindowKey(window, At(kFriday, 2, 0)), "2026-10-09");
  EXPECT_EQ(KioskUpdateWindowKey(window, At(kSaturday, 2, 0)), std::nullopt);
}

TEST(UpdateWindow, KeepsTheKeyOfItsFirstDayAcrossMidnight) {
  const Json window = Window("23:00", "01:00", {1});
  EXPECT_EQ(KioskUpdateWindowKey(window, At(kMonday, 22, 59)), std::nullopt);
  EXPECT_EQ(KioskUpdateWindowKey(window, At(kMonday, 23, 0)), "2026-10-05");
  EXPECT_EQ(KioskUpdateWindowKey(window, At(kMonday, 23, 30)), "2026-10-05");
  EXPECT_EQ(KioskUpdateWindowKey(window, At(kTuesday, 0, 0)), "2026-10-05");
  EXPECT_EQ(KioskUpdateWindowKey(window, At(kTuesday, 0, 30)), "2026-10-05");
  EXPECT_EQ(KioskUpdateWindowKey(window, At(kTuesday, 1, 0)), std::nullopt);
}

TEST(UpdateWindow, AcrossMidnightIsOpenOnlyAfterAListedDay) {
  const Json monday = Window("23:00", "01:00", {1});
  EXPECT_EQ(KioskUpdateWindowKey(monday, At(kTuesday, 23, 30)), std::nullopt);
  EXPECT_EQ(KioskUpdateWindowKey(monday, At(kSunday, 0, 30)), std::nullopt);
  EXPECT_EQ(KioskUpdateWindowKey(monday, At(kMonday, 0, 30)), std::nullopt);
  const Json friday = Window("22:00", "03:00", {5});
  EXPECT_EQ(KioskUpdateWindowKey(friday, At(kFriday, 23, 10)), "2026-10-09");
  EXPECT_EQ(KioskUpdateWindowKey(friday, At(kSaturday, 2, 59)), "2026-10-09");
  EXPECT_EQ(KioskUpdateWindowKey(friday, At(kSaturday, 3, 0)), std::nullopt);
  EXPECT_EQ(KioskUpdateWindowKey(friday, At(kSaturday, 22, 30)), std::nullopt);
}

TEST(UpdateWindow, OfSaturdayReachesIntoSunday) {
  const Json window = Window("23:00", "01:00", {6});
  EXPECT_EQ(KioskUpdateWindowKey(window, At(2026y / 10 / 11, 0, 59)), "2026-10-10");
  EXPECT_EQ(KioskUpdateWindowKey(window, At(kSaturday, 0, 59)), std::nullopt);
}

TEST(UpdateWindow, LastsADayWhenItEndsAtItsStart) {
  const Json window = Window("04:00", "04:00", {1});
  EXPECT_EQ(KioskUpdateWindowKey(window, At(kMonday, 3, 59)), std::nullopt);
  EXPECT_EQ(KioskUpdateWindowKey(window, At(kMonday, 4, 0)), "2026-10-05");
  EXPECT_EQ(KioskUpdateWindowKey(window, At(kMonday, 23, 59)), "2026-10-05");
  EXPECT_EQ(KioskUpdateWindowKey(window, At(kTuesday, 3, 59)), "2026-10-05");
  EXPECT_EQ(KioskUpdateWindowKey(window, At(kTuesday, 4, 0)), std::nullopt);
}

TEST(UpdateWindow, OfADayChangesItsKeyAtItsStart) {
  const Json window = Window("04:00", "04:00");
  EXPECT_EQ(KioskUpdateWindowKey(window, At(kTuesday, 3, 59)), "2026-10-05");
  EXPECT_EQ(KioskUpdateWindowKey(window, At(kTuesday, 4, 0)), "2026-10-06");
}

TEST(UpdateWindow, FromMidnightToMidnightIsOpenAllOfEveryListedDay) {
  const Json window = Window("00:00", "00:00", {1});
  EXPECT_EQ(KioskUpdateWindowKey(window, At(kSunday, 23, 59)), std::nullopt);
  EXPECT_EQ(KioskUpdateWindowKey(window, At(kMonday, 0, 0)), "2026-10-05");
  EXPECT_EQ(KioskUpdateWindowKey(window, At(kMonday, 23, 59)), "2026-10-05");
  EXPECT_EQ(KioskUpdateWindowKey(window, At(kTuesday, 0, 0)), std::nullopt);
}

TEST(UpdateWindow, MayEndAtMidnight) {
  const Json window = Window("22:00", "00:00", {1});
  EXPECT_EQ(KioskUpdateWindowKey(window, At(kMonday, 23, 59)), "2026-10-05");
  EXPECT_EQ(KioskUpdateWindowKey(window, At(kTuesday, 0, 0)), std::nullopt);
}

TEST(UpdateWindow, KeepsTheOldYearsKeyOnNewYearsDay) {
  const Json window = Window("23:00", "01:00");
  EXPECT_EQ(KioskUpdateWindowKey(window, At(2026y / 12 / 31, 23, 30)), "2026-12-31");
  EXPECT_EQ(KioskUpdateWindowKey(window, At(2027y / 1 / 1, 0, 59)), "2026-12-31");
  EXPECT_EQ(KioskUpdateWindowKey(window, At(2027y / 1 / 1, 23, 0)), "2027-01-01");
}

TEST(UpdateWindow, KnowsTheLastDayOfFebruary) {
  const Json window = Window("23:00", "01:00");
  EXPECT_EQ(KioskUpdateWindowKey(window, At(2028y / 2 / 29, 0, 30)), "2028-02-28");
  EXPECT_EQ(KioskUpdateWindowKey(window, At(2028y / 3 / 1, 0, 30)), "2028-02-29");
  EXPECT_EQ(KioskUpdateWindowKey(window, At(2027y / 3 / 1, 0, 30)), "2027-02-28");
  EXPECT_EQ(KioskUpdateWindowKey(window, At(2100y / 3 / 1, 0, 30)), "2100-02-28");
  EXPECT_EQ(KioskUpdateWindowKey(window, At(2000y / 3 / 1, 0, 30)), "2000-02-29");
}

TEST(UpdateWindow, KnowsTheLastDayOfEveryMonth) {
  const Json window = Window("23:00", "01:00");
  static const char* const last[] = {"2026-12-31", "2027-01-31", "2027-02-28", "2027-03-31",
                                     "2027-04-30", "2027-05-31", "2027-06-30", "2027-07-31",
                                     "2027-08-31", "2027-09-30", "2027-10-31", "2027-11-30"};
  for (unsigned month = 1; month <= 12; ++month) {
    const auto first = 2027y / std::chrono::month(month) / 1;
    EXPECT_EQ(KioskUpdateWindowKey(window, At(first, 0, 0)), last[month - 1]);
  }
}

TEST(UpdateWindow, IsClosedWhenItsTimesAreNoTimesOfDay) {
  for (const Json& time : {Json("24:00"), Json("7:00"), Json("02:00\n"), Json(" 02:00"), Json(""),
                           Json("02:60"), Json("0200"), Json(), Json(120), Json(true)}) {
    for (int hour = 0; hour < 24; ++hour) {
      EXPECT_EQ(KioskUpdateWindowKey(Window(time, "05:00"), At(kMonday, hour, 0)), std::nullopt);
      EXPECT_EQ(KioskUpdateWindowKey(Window("05:00", time), At(kMonday, hour, 0)), std::nullopt);
    }
  }
}

TEST(UpdateWindow, IsClosedWithoutTimes) {
  const platform::CivilTime now = At(kMonday, 3, 0);
  EXPECT_EQ(KioskUpdateWindowKey({{"start", "02:00"}, {"days", {1}}}, now), std::nullopt);
  EXPECT_EQ(KioskUpdateWindowKey({{"end", "05:00"}, {"days", {1}}}, now), std::nullopt);
  for (const Json& window : {Json(), Json::object(), Json::array(), Json("02:00"), Json(1)}) {
    EXPECT_EQ(KioskUpdateWindowKey(window, now), std::nullopt) << window;
  }
}

TEST(UpdateWindow, IsClosedWithoutDays) {
  const Json window = Window("02:00", "02:00", Json::array());
  EXPECT_EQ(KioskUpdateWindowKey(window, At(kMonday, 1, 0)), std::nullopt);
  EXPECT_EQ(KioskUpdateWindowKey(window, At(kMonday, 3, 0)), std::nullopt);
}

TEST(UpdateWindow, HasTodaysOrYesterdaysKeyOrNoneWhateverItIs) {
  Random random(51);
  for (int round = 0; round < 4'000; ++round) {
    Json window = Json::object();
    UsuallyPut(random, window, "start", UsuallyOneOf(random, {NearlyClock(random)}));
    UsuallyPut(random, window, "end", UsuallyOneOf(random, {NearlyClock(random)}));
    UsuallyPut(random, window, "days", UsuallyOneOf(random, {NearlyDays(random)}));
    const Json given = random.oneIn(8) ? AnyJson(random, 3) : window;
    const Key key = KioskUpdateWindowKey(given, At(kMonday, static_cast<int>(random.below(24)), 0));
    if (!key) continue;
    ASSERT_TRUE(*key == "2026-10-05" || *key == "2026-10-04") << *key << " of " << given;
    ASSERT_TRUE(MinuteOfDay(given.at("start")) && MinuteOfDay(given.at("end"))) << given;
  }
}

/// The number of the local minute of a day, counted from the first one of 1970.
int MinuteNumber(sys_days day, int minuteOfDay) {
  return static_cast<int>(day.time_since_epoch().count()) * kMinutesOfDay + minuteOfDay;
}

std::string TwoDigits(unsigned number) { return (number < 10 ? "0" : "") + std::to_string(number); }

std::string KeyOf(sys_days day) {
  const std::chrono::year_month_day date(day);
  return std::to_string(static_cast<int>(date.year())) + "-" +
         TwoDigits(static_cast<unsigned>(date.month())) + "-" +
         TwoDigits(static_cast<unsigned>(date.day()));
}

/// Some days in a row, in the zone of the process: every minute of them.
struct Span {
  sys_days first;
  int length;
};

/// Every opening of a window in a span as an interval of local minutes, laid out on a line.
class Openings {
 public:
  Openings(const Json& window, const Span& span) : _from(MinuteNumber(span.first - days(3), 0)) {
    const int start = MinuteOfDay(window["start"]).value();
    const int end = MinuteOfDay(window["end"]).value();
    const int lasts = (end - start - 1 + kMinutesOfDay) % kMinutesOfDay + 1;
    _line.resize(static_cast<std::size_t>((span.length + 6) * kMinutesOfDay));
    for (int number = -2; number <= span.length + 1; ++number) {
      const sys_days day = span.first + days(number);
      const Json weekday = std::chrono::weekday(day).c_encoding();
      for (const Json& listed : window["days"]) {
        if (listed == weekday) lay(MinuteNumber(day, start), lasts, KeyOf(day));
      }
    }
  }

  /// The key of the opening that contains a local minute.
  const Key& at(int minute) const { return _line.at(static_cast<std::size_t>(minute - _from)); }

 private:
  void lay(int opens, int lasts, const std::string& key) {
    for (int minute = opens; minute < opens + lasts; ++minute) {
      _line.at(static_cast<std::size_t>(minute - _from)) = key;
    }
  }

  int _from;
  std::vector<Key> _line;
};

struct Minute {
  platform::CivilTime time;
  int number;
};

/// All minutes of a span as the calendar shows them, each looked at in another second.
std::vector<Minute> MinutesOf(const Span& span) {
  std::vector<Minute> minutes;
  const double start = MinuteNumber(span.first, 0) * 60.0;
  for (int at = 0; at < span.length * kMinutesOfDay; ++at) {
    const platform::CivilTime time = platform::CalendarCivilTime(start + at * 60.0 + at % 60);
    const sys_days day = std::chrono::year(time.year) / time.month / time.day;
    minutes.push_back({time, MinuteNumber(day, time.hour * 60 + time.minute)});
  }
  return minutes;
}

Json RandomWindow(Random& random) {
  const auto clock = [&random] {
    return TwoDigits(static_cast<unsigned>(random.below(24))) + ":" +
           TwoDigits(static_cast<unsigned>(random.below(60)));
  };
  Json listed = Json::array();
  for (int day = 0; day <= 6; ++day) {
    if (random.oneIn(2)) listed.push_back(day);
  }
  const std::string start = clock();
  return Window(start, random.oneIn(4) ? start : clock(), listed);
}

std::vector<Json> Windows(Random& random) {
  std::vector<Json> windows{Window("02:00", "05:00"),         Window("22:00", "03:00", {5}),
                            Window("23:00", "01:00", {0, 2}), Window("04:00", "04:00", {0, 3}),
                            Window("00:00", "00:00", {1, 6}), Window("02:30", "02:31", {0}),
                            Window("23:59", "00:00", {0, 6}), Window("00:00", "23:59", {2})};
  while (windows.size() < 14) windows.push_back(RandomWindow(random));
  return windows;
}

void ExpectItsOpenings(const Json& window, const Span& span, const std::vector<Minute>& minutes) {
  const Openings openings(window, span);
  for (const Minute& minute : minutes) {
    const Key key = KioskUpdateWindowKey(window, minute.time);
    if (key == openings.at(minute.number)) continue;
    FAIL() << window << " on " << minute.time.year << '-' << minute.time.month << '-'
           << minute.time.day << " at " << minute.time.hour << ':' << minute.time.minute << ": "
           << key.value_or("closed") << ", not " << openings.at(minute.number).value_or("closed");
  }
}

/// Local minutes that the clocks left out, and those that they showed twice.
struct Changes {
  int skipped = 0;
  int repeated = 0;
};

Changes ChangesIn(const std::vector<Minute>& minutes) {
  Changes changes;
  for (std::size_t at = 1; at < minutes.size(); ++at) {
    const int step = minutes[at].number - minutes[at - 1].number;
    if (step > 1) changes.skipped += step - 1;
    if (step < 1) changes.repeated += 1 - step;
  }
  return changes;
}

/// Two weeks each, around the turn of a year, a leap day, and all changes of the clocks of 2028.
const std::vector<Span>& Spans() {
  static const std::vector<Span> spans{{2027y / 12 / 25, 14}, {2028y / 2 / 21, 14},
                                       {2028y / 3 / 6, 14},   {2028y / 3 / 20, 14},
                                       {2028y / 9 / 25, 14},  {2028y / 10 / 25, 14}};
  return spans;
}

/// Holds windows against their openings in all minutes of all spans in a zone whose clocks change
/// by so many minutes.
void ExpectOpeningsIn(const char* zone, int change) {
  const InZone inZone(zone);
  Random random(52);
  Changes changes;
  for (const Span& span : Spans()) {
    const std::vector<Minute> minutes = MinutesOf(span);
    changes.skipped += ChangesIn(minutes).skipped;
    changes.repeated += ChangesIn(minutes).repeated;
    for (const Json& window : Windows(random)) ExpectItsOpenings(window, span, minutes);
  }
  EXPECT_EQ(changes.skipped, change);
  EXPECT_EQ(changes.repeated, change);
}

TEST(UpdateWindowMinutes, AreThoseOfItsOpeningsInBerlin) { ExpectOpeningsIn("Europe/Berlin", 60); }

TEST(UpdateWindowMinutes, AreThoseOfItsOpeningsInNewYork) {
  ExpectOpeningsIn("America/New_York", 60);
}

TEST(UpdateWindowMinutes, AreThoseOfItsOpeningsOnLordHowe) {
  ExpectOpeningsIn("Australia/Lord_Howe", 30);
}

TEST(UpdateWindowMinutes, AreThoseOfItsOpeningsInKathmandu) {
  ExpectOpeningsIn("Asia/Kathmandu", 0);
}

TEST(UpdateWindowMinutes, HaveTheirDaysKeyWhenTheClocksChange) {
  const InZone berlin("Europe/Berlin");
  const auto keyAt = [](const Json& window, double seconds) {
    return KioskUpdateWindowKey(window, platform::CalendarCivilTime(seconds));
  };
  constexpr double kSpring = 1'837'645'200;  // 2028-03-26 02:00 becomes 03:00
  constexpr double kAutumn = 1'856'394'000;  // 2028-10-29 03:00 becomes 02:00
  const Json lost = Window("02:10", "02:50");
  EXPECT_EQ(keyAt(lost, kSpring - 1), std::nullopt);
  EXPECT_EQ(keyAt(lost, kSpring), std::nullopt);
  EXPECT_EQ(keyAt(Window("02:10", "03:10"), kSpring), "2028-03-26");
  EXPECT_EQ(keyAt(lost, kAutumn - 1'800), "2028-10-29");
  EXPECT_EQ(keyAt(lost, kAutumn - 1), std::nullopt);
  EXPECT_EQ(keyAt(lost, kAutumn + 1'800), "2028-10-29");
  const Json night = Window("22:00", "02:30");
  EXPECT_EQ(keyAt(night, kSpring - 1), "2028-03-25");
  EXPECT_EQ(keyAt(night, kSpring), std::nullopt);
  EXPECT_EQ(keyAt(night, kAutumn - 1'800), std::nullopt);
  EXPECT_EQ(keyAt(night, kAutumn), "2028-10-28");
}

}  // namespace
