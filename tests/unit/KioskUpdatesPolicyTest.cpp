#include <gtest/gtest.h>

#include <string>

#include "core/KioskJson.h"
#include "tests/unit/PolicyTables.h"
#include "tests/unit/RandomJson.h"
#include "updates/KioskUpdates.h"

namespace {

Json DefaultUpdates() {
  return Json::parse(R"({"automatic":false,
      "window":{"start":"02:00","end":"05:00","days":[0,1,2,3,4,5,6]}})");
}

/// The default policy with `value` at `path`, as in "/window/days".
Json UpdatesWith(const char* path, const Json& value) {
  Json policy = DefaultUpdates();
  policy[Json::json_pointer(path)] = value;
  return policy;
}

TEST(UpdatesDefault, HasANightlyWindowAndInstallsNothing) {
  EXPECT_EQ(KioskUpdatesDefault(), DefaultUpdates());
  EXPECT_EQ(KioskUpdatesParse(KioskUpdatesDefault()), DefaultUpdates());
}

TEST(UpdatesPolicy, IsAnObject) {
  for (const char* text : {"null", "true", "1", "\"x\"", "[]", "[{}]"}) {
    EXPECT_EQ(KioskUpdatesParse(Json::parse(text)), std::nullopt) << text;
  }
}

TEST(UpdatesPolicy, IsTheDefaultWhenNothingIsGiven) {
  EXPECT_EQ(KioskUpdatesParse(Json::object()), DefaultUpdates());
  EXPECT_EQ(KioskUpdatesParse({{"automatic", nullptr}, {"window", nullptr}}), DefaultUpdates());
}

TEST(UpdatesPolicy, RequiresAutomaticToBeABoolean) {
  EXPECT_EQ(KioskUpdatesParse(UpdatesWith("/automatic", true)), UpdatesWith("/automatic", true));
  EXPECT_EQ(KioskUpdatesParse({{"automatic", true}}), UpdatesWith("/automatic", true));
  for (const Json& automatic :
       {Json(1), Json(0), Json(1.0), Json("true"), Json(""), Json::array(), Json::object()}) {
    EXPECT_EQ(KioskUpdatesParse(UpdatesWith("/automatic", automatic)), std::nullopt) << automatic;
  }
}

TEST(UpdatesPolicy, RefusesWindowsOfOtherTypes) {
  for (const Json& window : {Json(true), Json(false), Json(0), Json("02:00"), Json::array()}) {
    EXPECT_EQ(KioskUpdatesParse(UpdatesWith("/window", window)), std::nullopt) << window;
  }
}

TEST(UpdatesPolicy, RequiresBothTimesOfAGivenWindow) {
  EXPECT_EQ(KioskUpdatesParse(UpdatesWith("/window", Json::object())), std::nullopt);
  EXPECT_EQ(KioskUpdatesParse(UpdatesWith("/window", {{"start", "02:00"}})), std::nullopt);
  EXPECT_EQ(KioskUpdatesParse(UpdatesWith("/window", {{"end", "05:00"}})), std::nullopt);
  EXPECT_EQ(KioskUpdatesParse(UpdatesWith("/window", {{"days", {1}}})), std::nullopt);
  EXPECT_EQ(KioskUpdatesParse(UpdatesWith("/window", {{"start", "02:00"}, {"end", "05:00"}})),
            DefaultUpdates());
}

TEST(UpdatesPolicy, RequiresTimesOfDay) {
  for (const char* path : {"/window/start", "/window/end"}) {
    for (const Json& time : {Json("24:00"), Json("7:00"), Json("07:00\n"), Json(" 07:00"), Json(),
                             Json(700), Json(true), Json::array()}) {
      EXPECT_EQ(KioskUpdatesParse(UpdatesWith(path, time)), std::nullopt) << path << time;
    }
  }
}

TEST(UpdatesPolicy, KeepsTheTimesInWhateverOrder) {
  for (const char* end : {"00:00", "01:59", "02:00", "02:01", "23:59"}) {
    EXPECT_EQ(KioskUpdatesParse(UpdatesWith("/window/end", end)), UpdatesWith("/window/end", end))
        << end;
  }
}

TEST(UpdatesPolicy, OpensOnAllDaysWhenNoneAreGiven) {
  EXPECT_EQ(KioskUpdatesParse(UpdatesWith("/window/days", nullptr)), DefaultUpdates());
}

TEST(UpdatesPolicy, NormalisesDays) {
  EXPECT_EQ(KioskUpdatesParse(UpdatesWith("/window/days", {3, 1, 1})),
            UpdatesWith("/window/days", {1, 3}));
  const std::optional<Json> policy = KioskUpdatesParse(UpdatesWith("/window/days", {3.0}));
  ASSERT_TRUE(policy);
  EXPECT_EQ((*policy)["window"]["days"].dump(), "[3]");
}

TEST(UpdatesPolicy, RefusesDaysThatNeverComeOrAreNone) {
  for (const Json& wrong : {Json::array(), Json({7}), Json({-1}), Json::array({"1"}), Json({true}),
                            Json({1, 1, 1, 1, 1, 1, 1, 1}), Json(1), Json(""), Json::object()}) {
    EXPECT_EQ(KioskUpdatesParse(UpdatesWith("/window/days", wrong)), std::nullopt) << wrong;
  }
}

TEST(UpdatesPolicy, DropsUnknownKeys) {
  Json policy = UpdatesWith("/note", "x");
  policy["window"]["zone"] = "UTC";
  EXPECT_EQ(KioskUpdatesParse(policy), DefaultUpdates());
}

Json NearlyUpdates(Random& random) {
  Json window = Json::object();
  UsuallyPut(random, window, "start", UsuallyOneOf(random, {NearlyClock(random)}));
  UsuallyPut(random, window, "end", UsuallyOneOf(random, {NearlyClock(random)}));
  UsuallyPut(random, window, "days", UsuallyOneOf(random, {NearlyDays(random)}));
  Json policy = Json::object();
  UsuallyPut(random, policy, "automatic", UsuallyOneOf(random, {true, false, true, false, 1}));
  UsuallyPut(random, policy, "window", UsuallyOneOf(random, {window}));
  if (random.oneIn(4)) policy["other"] = AnyJson(random, 1);
  return policy;
}

TEST(UpdatesPolicy, AgreesWithTheTablesOnRandomPolicies) {
  Random random(16);
  int accepted = 0;
  for (int round = 0; round < 6'000; ++round) {
    const Json given = NearlyUpdates(random);
    const std::optional<Json> expected = UpdatesByTheTables(given);
    const std::optional<Json> policy = KioskUpdatesParse(given);
    ASSERT_EQ(policy, expected) << given;
    if (!policy) continue;
    ++accepted;
    ASSERT_EQ(policy->dump(), expected->dump()) << given;
    ASSERT_EQ(KioskUpdatesParse(*policy), *policy) << given;
  }
  EXPECT_GT(accepted, 600);
  EXPECT_LT(accepted, 5'400);
}

TEST(UpdatesPolicy, RefusesOrParsesWhateverTheValueIs) {
  Random random(17);
  for (int round = 0; round < 2'000; ++round) {
    const Json given = AnyJson(random, 4);
    ASSERT_EQ(KioskUpdatesParse(given), UpdatesByTheTables(given)) << given;
  }
}

}  // namespace
