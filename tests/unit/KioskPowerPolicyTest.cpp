#include <gtest/gtest.h>

#include <string>

#include "core/KioskJson.h"
#include "settings/KioskPower.h"
#include "tests/unit/PolicyTables.h"
#include "tests/unit/RandomJson.h"

namespace {

Json Default() {
  return Json::parse(R"({"screenOffMinutes":15,"sleepMinutes":0,"schedule":
      {"enabled":false,"sleepAt":"22:00","wakeAt":"07:00","days":[1,2,3,4,5]}})");
}

/// The default policy with `value` at `path`, as in "/schedule/days".
Json With(const char* path, const Json& value) {
  Json policy = Default();
  policy[Json::json_pointer(path)] = value;
  return policy;
}

Json Without(const char* key) {
  Json policy = Default();
  policy.erase(key);
  return policy;
}

Json Enabled(const char* sleepAt, const char* wakeAt, const Json& days) {
  return With("/schedule",
              {{"enabled", true}, {"sleepAt", sleepAt}, {"wakeAt", wakeAt}, {"days", days}});
}

Json Disabled(const char* sleepAt, const char* wakeAt, const Json& days) {
  return With("/schedule",
              {{"enabled", false}, {"sleepAt", sleepAt}, {"wakeAt", wakeAt}, {"days", days}});
}

TEST(PowerDefault, TurnsTheScreenOffAfterAQuarterOfAnHourAndNeverSleeps) {
  EXPECT_EQ(KioskPowerDefault(), Default());
  EXPECT_EQ(KioskPowerParse(KioskPowerDefault()), Default());
}

TEST(PowerPolicy, IsAnObject) {
  for (const char* text : {"null", "true", "1", "\"x\"", "[]", "[15,0]", "{}"}) {
    EXPECT_EQ(KioskPowerParse(Json::parse(text)), std::nullopt) << text;
  }
}

TEST(PowerPolicy, AcceptsTimeoutsFrom0To240Minutes) {
  for (const char* path : {"/screenOffMinutes", "/sleepMinutes"}) {
    for (const int minutes : {0, 1, 15, 239, 240}) {
      EXPECT_EQ(KioskPowerParse(With(path, minutes)), With(path, minutes)) << path << minutes;
    }
  }
}

TEST(PowerPolicy, WritesWholeRealsAsIntegers) {
  const std::optional<Json> policy = KioskPowerParse(With("/screenOffMinutes", 15.0));
  ASSERT_TRUE(policy);
  EXPECT_EQ(policy->dump(), Default().dump());
}

TEST(PowerPolicy, RefusesOtherTimeouts) {
  for (const char* path : {"/screenOffMinutes", "/sleepMinutes"}) {
    for (const char* text :
         {"241", "-1", "15.5", "240.5", "\"15\"", "true", "false", "null", "[]", "{}", "1e300",
          "-1e300", "18446744073709551615", "9223372036854775808", "-9223372036854775808"}) {
      EXPECT_EQ(KioskPowerParse(With(path, Json::parse(text))), std::nullopt) << path << text;
    }
  }
}

TEST(PowerPolicy, RequiresBothTimeouts) {
  EXPECT_EQ(KioskPowerParse(Without("screenOffMinutes")), std::nullopt);
  EXPECT_EQ(KioskPowerParse(Without("sleepMinutes")), std::nullopt);
}

TEST(PowerPolicy, TakesTheDefaultScheduleForNone) {
  EXPECT_EQ(KioskPowerParse(Without("schedule")), Default());
  EXPECT_EQ(KioskPowerParse(With("/schedule", nullptr)), Default());
  EXPECT_EQ(KioskPowerParse(With("/schedule", Json::object())), Default());
}

TEST(PowerPolicy, RefusesSchedulesOfOtherTypes) {
  for (const Json& schedule : {Json(true), Json(false), Json(0), Json(""), Json::array()}) {
    EXPECT_EQ(KioskPowerParse(With("/schedule", schedule)), std::nullopt) << schedule;
  }
}

TEST(PowerPolicy, TakesTheDefaultForEachPartOfTheScheduleThatIsMissingOrNull) {
  for (const char* key : {"enabled", "sleepAt", "wakeAt", "days"}) {
    Json policy = Default();
    policy["schedule"][key] = nullptr;
    EXPECT_EQ(KioskPowerParse(policy), Default()) << key;
    policy["schedule"].erase(key);
    EXPECT_EQ(KioskPowerParse(policy), Default()) << key;
  }
  EXPECT_EQ(KioskPowerParse(With("/schedule", {{"enabled", true}})),
            Enabled("22:00", "07:00", {1, 2, 3, 4, 5}));
}

TEST(PowerPolicy, RequiresEnabledToBeABoolean) {
  EXPECT_EQ(KioskPowerParse(With("/schedule/enabled", true)), With("/schedule/enabled", true));
  for (const Json& enabled : {Json(1), Json(0), Json(1.0), Json("true"), Json::array()}) {
    EXPECT_EQ(KioskPowerParse(With("/schedule/enabled", enabled)), std::nullopt) << enabled;
  }
}

TEST(PowerPolicy, RequiresTimesOfDay) {
  for (const char* path : {"/schedule/sleepAt", "/schedule/wakeAt"}) {
    EXPECT_EQ(KioskPowerParse(With(path, "00:00")), With(path, "00:00"));
    EXPECT_EQ(KioskPowerParse(With(path, "23:59")), With(path, "23:59"));
    for (const Json& time : {Json("24:00"), Json("7:00"), Json("07:00 "), Json("07:00\n"), Json(""),
                             Json(700), Json(false), Json::array({"07:00"})}) {
      EXPECT_EQ(KioskPowerParse(With(path, time)), std::nullopt) << path << time;
    }
  }
}

TEST(PowerPolicy, NormalisesDays) {
  EXPECT_EQ(KioskPowerParse(With("/schedule/days", {6, 0, 0, 3})),
            With("/schedule/days", {0, 3, 6}));
  for (const Json& days :
       {Json({7}), Json({-1}), Json::array({"1"}), Json({1, 1, 1, 1, 1, 1, 1, 1}), Json(1),
        Json("1"), Json(false), Json::object()}) {
    EXPECT_EQ(KioskPowerParse(With("/schedule/days", days)), std::nullopt) << days;
  }
}

TEST(PowerPolicy, RequiresDaysAndDifferentTimesOfAnEnabledSchedule) {
  EXPECT_TRUE(KioskPowerParse(Enabled("22:00", "07:00", {0})));
  EXPECT_EQ(KioskPowerParse(Enabled("22:00", "07:00", Json::array())), std::nullopt);
  EXPECT_EQ(KioskPowerParse(Enabled("07:00", "07:00", {0})), std::nullopt);
  EXPECT_EQ(KioskPowerParse(With("/schedule", {{"enabled", true}, {"sleepAt", "07:00"}})),
            std::nullopt);
}

TEST(PowerPolicy, AllowsADisabledScheduleToHaveNoDaysOrEqualTimes) {
  const Json noDays = Disabled("22:00", "07:00", Json::array());
  EXPECT_EQ(KioskPowerParse(noDays), noDays);
  const Json equalTimes = Disabled("07:00", "07:00", {0});
  EXPECT_EQ(KioskPowerParse(equalTimes), equalTimes);
  EXPECT_EQ(KioskPowerParse(Disabled("24:00", "07:00", {0})), std::nullopt);
  EXPECT_EQ(KioskPowerParse(Disabled("22:00", "07:00", {9})), std::nullopt);
}

TEST(PowerPolicy, DropsUnknownKeys) {
  Json policy = With("/cmd", "power.set");
  policy["unlockToken"] = "secret";
  policy["schedule"]["note"] = Json::array({1});
  EXPECT_EQ(KioskPowerParse(policy), Default());
}

Json NearlyPolicy(Random& random) {
  static const std::vector<Json> minutes{0, 15, 240, 30.0, 1, 60, 120, 239, 241, -1, 15.5};
  static const std::vector<Json> flags{true, false, true, false, true, false, 1};
  Json schedule = Json::object();
  UsuallyPut(random, schedule, "enabled", UsuallyOneOf(random, flags));
  UsuallyPut(random, schedule, "sleepAt", UsuallyOneOf(random, {NearlyClock(random)}));
  UsuallyPut(random, schedule, "wakeAt", UsuallyOneOf(random, {NearlyClock(random)}));
  UsuallyPut(random, schedule, "days", UsuallyOneOf(random, {NearlyDays(random)}));
  Json policy = Json::object();
  policy["screenOffMinutes"] = UsuallyOneOf(random, minutes);
  UsuallyPut(random, policy, "sleepMinutes", UsuallyOneOf(random, minutes));
  UsuallyPut(random, policy, "schedule", UsuallyOneOf(random, {schedule}));
  if (random.oneIn(4)) policy["other"] = AnyJson(random, 1);
  return policy;
}

TEST(PowerPolicy, AgreesWithTheTablesOnRandomPolicies) {
  Random random(14);
  int accepted = 0;
  for (int round = 0; round < 6'000; ++round) {
    const Json given = NearlyPolicy(random);
    const std::optional<Json> expected = PowerByTheTables(given);
    const std::optional<Json> policy = KioskPowerParse(given);
    ASSERT_EQ(policy, expected) << given;
    if (!policy) continue;
    ++accepted;
    ASSERT_EQ(policy->dump(), expected->dump()) << given;
    ASSERT_EQ(KioskPowerParse(*policy), *policy) << given;
  }
  EXPECT_GT(accepted, 600);
  EXPECT_LT(accepted, 5'400);
}

TEST(PowerPolicy, RefusesOrParsesWhateverTheValueIs) {
  Random random(15);
  for (int round = 0; round < 2'000; ++round) {
    const Json given = AnyJson(random, 4);
    ASSERT_EQ(KioskPowerParse(given), PowerByTheTables(given)) << given;
  }
}

}  // namespace
