#include <gtest/gtest.h>

#include <string>

#include "core/KioskJson.h"
#include "settings/KioskPower.h"
#include "tests/unit/PolicyTables.h"
#include "tests/unit/RandomJson.h"

namespace {

Json DefaultPower() {
  return Json::parse(R"({"screenOffMinutes":15,"sleepMinutes":0,"schedule":
      {"enabled":false,"sleepAt":"22:00","wakeAt":"07:00","days":[1,2,3,4,5]}})");
}

/// The default policy with `value` at `path`, as in "/schedule/days".
Json PowerWith(const char* path, const Json& value) {
  Json policy = DefaultPower();
  policy[Json::json_pointer(path)] = value;
  return policy;
}

Json PowerWithout(const char* key) {
  Json policy = DefaultPower();
  policy.erase(key);
  return policy;
}

Json Enabled(const char* sleepAt, const char* wakeAt, const Json& days) {
  return PowerWith("/schedule",
                   {{"enabled", true}, {"sleepAt", sleepAt}, {"wakeAt", wakeAt}, {"days", days}});
}

Json Disabled(const char* sleepAt, const char* wakeAt, const Json& days) {
  return PowerWith("/schedule",
                   {{"enabled", false}, {"sleepAt", sleepAt}, {"wakeAt", wakeAt}, {"days", days}});
}

TEST(PowerDefault, TurnsTheScreenOffAfterAQuarterOfAnHourAndNeverSleeps) {
  EXPECT_EQ(KioskPowerDefault(), DefaultPower());
  EXPECT_EQ(KioskPowerParse(KioskPowerDefault()), DefaultPower());
}

TEST(PowerPolicy, IsAnObject) {
  for (const char* text : {"null", "true", "1", "\"x\"", "[]", "[15,0]", "{}"}) {
    EXPECT_EQ(KioskPowerParse(Json::parse(text)), std::nullopt) << text;
  }
}

TEST(PowerPolicy, AcceptsTimeoutsFrom0To240Minutes) {
  for (const char* path : {"/screenOffMinutes", "/sleepMinutes"}) {
    for (const int minutes : {0, 1, 15, 239, 240}) {
      EXPECT_EQ(KioskPowerParse(PowerWith(path, minutes)), PowerWith(path, minutes))
          << path << minutes;
    }
  }
}

TEST(PowerPolicy, WritesWholeRealsAsIntegers) {
  const std::optional<Json> policy = KioskPowerParse(PowerWith("/screenOffMinutes", 15.0));
  ASSERT_TRUE(policy);
  EXPECT_EQ(policy->dump(), DefaultPower().dump());
}

TEST(PowerPolicy, RefusesOtherTimeouts) {
  for (const char* path : {"/screenOffMinutes", "/sleepMinutes"}) {
    for (const char* text :
         {"241", "-1", "15.5", "240.5", "\"15\"", "true", "false", "null", "[]", "{}", "1e300",
          "-1e300", "18446744073709551615", "9223372036854775808", "-9223372036854775808"}) {
      EXPECT_EQ(KioskPowerParse(PowerWith(path, Json::parse(text))), std::nullopt) << path << text;
    }
  }
}

TEST(PowerPolicy, RequiresBothTimeouts) {
  EXPECT_EQ(KioskPowerParse(PowerWithout("screenOffMinutes")), std::nullopt);
  EXPECT_EQ(KioskPowerParse(PowerWithout("sleepMinutes")), std::nullopt);
}

TEST(PowerPolicy, TakesTheDefaultScheduleForNone) {
  EXPECT_EQ(KioskPowerParse(PowerWithout("schedule")), DefaultPower());
  EXPECT_EQ(KioskPowerParse(PowerWith("/schedule", nullptr)), DefaultPower());
  EXPECT_EQ(KioskPowerParse(PowerWith("/schedule", Json::object())), DefaultPower());
}

TEST(PowerPolicy, RefusesSchedulesOfOtherTypes) {
  for (const Json& schedule : {Json(true), Json(false), Json(0), Json(""), Json::array()}) {
    EXPECT_EQ(KioskPowerParse(PowerWith("/schedule", schedule)), std::nullopt) << schedule;
  }
}

TEST(PowerPolicy, TakesTheDefaultForEachPartOfTheScheduleThatIsMissingOrNull) {
  for (const char* key : {"enabled", "sleepAt", "wakeAt", "days"}) {
    Json policy = DefaultPower();
    policy["schedule"][key] = nullptr;
    EXPECT_EQ(KioskPowerParse(policy), DefaultPower()) << key;
    policy["schedule"].erase(key);
    EXPECT_EQ(KioskPowerParse(policy), DefaultPower()) << key;
  }
  EXPECT_EQ(KioskPowerParse(PowerWith("/schedule", {{"enabled", true}})),
            Enabled("22:00", "07:00", {1, 2, 3, 4, 5}));
}

TEST(PowerPolicy, RequiresEnabledToBeABoolean) {
  EXPECT_EQ(KioskPowerParse(PowerWith("/schedule/enabled", true)),
            PowerWith("/schedule/enabled", true));
  for (const Json& enabled : {Json(1), Json(0), Json(1.0), Json("true"), Json::array()}) {
    EXPECT_EQ(KioskPowerParse(PowerWith("/schedule/enabled", enabled)), std::nullopt) << enabled;
  }
}

TEST(PowerPolicy, RequiresTimesOfDay) {
  for (const char* path : {"/schedule/sleepAt", "/schedule/wakeAt"}) {
    EXPECT_EQ(KioskPowerParse(PowerWith(path, "00:00")), PowerWith(path, "00:00"));
    EXPECT_EQ(KioskPowerParse(PowerWith(path, "23:59")), PowerWith(path, "23:59"));
    for (const Json& time : {Json("24:00"), Json("7:00"), Json("07:00 "), Json("07:00\n"), Json(""),
                             Json(700), Json(false), Json::array({"07:00"})}) {
      EXPECT_EQ(KioskPowerParse(PowerWith(path, time)), std::nullopt) << path << time;
    }
  }
}

TEST(PowerPolicy, NormalisesDays) {
  EXPECT_EQ(KioskPowerParse(PowerWith("/schedule/days", {6, 0, 0, 3})),
            PowerWith("/schedule/days", {0, 3, 6}));
  for (const Json& days :
       {Json({7}), Json({-1}), Json::array({"1"}), Json({1, 1, 1, 1, 1, 1, 1, 1}), Json(1),
        Json("1"), Json(false), Json::object()}) {
    EXPECT_EQ(KioskPowerParse(PowerWith("/schedule/days", days)), std::nullopt) << days;
  }
}

TEST(PowerPolicy, RequiresDaysAndDifferentTimesOfAnEnabledSchedule) {
  EXPECT_TRUE(KioskPowerParse(Enabled("22:00", "07:00", {0})));
  EXPECT_EQ(KioskPowerParse(Enabled("22:00", "07:00", Json::array())), std::nullopt);
  EXPECT_EQ(KioskPowerParse(Enabled("07:00", "07:00", {0})), std::nullopt);
  EXPECT_EQ(KioskPowerParse(PowerWith("/schedule", {{"enabled", true}, {"sleepAt", "07:00"}})),
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
  Json policy = PowerWith("/cmd", "power.set");
  policy["unlockToken"] = "secret";
  policy["schedule"]["note"] = Json::array({1});
  EXPECT_EQ(KioskPowerParse(policy), DefaultPower());
}

Json NearlyPower(Random& random) {
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
    const Json given = NearlyPower(random);
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
