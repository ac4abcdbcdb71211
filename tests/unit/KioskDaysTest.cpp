#include <gtest/gtest.h>

#include <set>

#include "core/KioskJson.h"
#include "settings/KioskPower.h"
#include "tests/unit/RandomJson.h"

namespace {

std::optional<std::string> Days(const char* text) {
  const std::optional<Json> days = KioskDays(Json::parse(text));
  return days ? KioskJsonText(*days) : std::nullopt;
}

TEST(Days, AreSortedWithoutDuplicates) {
  EXPECT_EQ(Days("[6,0,0,3]"), "[0,3,6]");
  EXPECT_EQ(Days("[3,1,1]"), "[1,3]");
  EXPECT_EQ(Days("[6,5,4,3,2,1,0]"), "[0,1,2,3,4,5,6]");
  EXPECT_EQ(Days("[2]"), "[2]");
}

TEST(Days, MayBeNone) { EXPECT_EQ(Days("[]"), "[]"); }

TEST(Days, AreSevenAtMostDuplicatesIncluded) {
  EXPECT_EQ(Days("[1,1,1,1,1,1,1]"), "[1]");
  EXPECT_EQ(Days("[1,1,1,1,1,1,1,1]"), std::nullopt);
  EXPECT_EQ(Days("[0,1,2,3,4,5,6,0]"), std::nullopt);
}

TEST(Days, AreNumbersFromZeroToSix) {
  for (const char* text : {"[7]", "[-1]", "[0,7]", "[1,2,-1]", "[1e300]", "[18446744073709551615]",
                           "[18446744073709551616]", "[-9223372036854775808]"}) {
    EXPECT_EQ(Days(text), std::nullopt) << text;
  }
}

TEST(Days, AreWrittenAsIntegers) { EXPECT_EQ(Days("[1.0,1,-0.0]"), "[0,1]"); }

TEST(Days, RefuseElementsOfOtherTypes) {
  for (const char* text :
       {"[\"1\"]", "[true]", "[false]", "[null]", "[1.5]", "[[1]]", "[{}]", "[1,\"Monday\"]"}) {
    EXPECT_EQ(Days(text), std::nullopt) << text;
  }
}

TEST(Days, AreAList) {
  for (const char* text : {"null", "1", "\"1\"", "true", "{}", "{\"0\":1}"}) {
    EXPECT_EQ(Days(text), std::nullopt) << text;
  }
}

TEST(Days, AmountToThemselves) {
  Random random(13);
  for (int round = 0; round < 5000; ++round) {
    const std::optional<Json> days = KioskDays(NearlyDays(random));
    if (!days) continue;
    ASSERT_EQ(KioskDays(*days), *days) << *days;
  }
}

}  // namespace
