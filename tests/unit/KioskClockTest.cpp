#include <gtest/gtest.h>

#include <array>
#include <cstdio>
#include <optional>
#include <string>

#include "settings/KioskPower.h"
#include "tests/unit/Random.h"
#include "tests/unit/WrittenPatterns.h"

namespace {

std::optional<int> Clock(const Json& value) {
  int minutes = -1;
  if (!KioskClock(value, minutes)) return std::nullopt;
  return minutes;
}

std::optional<int> ClockByPattern(const std::string& text) {
  if (!MatchesClockPattern(text)) return std::nullopt;
  return std::stoi(text.substr(0, 2)) * 60 + std::stoi(text.substr(3));
}

TEST(Clock, ReadsEveryMinuteOfTheDay) {
  for (int hour = 0; hour < 24; ++hour) {
    for (int minute = 0; minute < 60; ++minute) {
      std::array<char, 32> text{};
      std::snprintf(text.data(), text.size(), "%02d:%02d", hour, minute);
      ASSERT_EQ(Clock(text.data()), hour * 60 + minute) << text.data();
    }
  }
}

TEST(Clock, RefusesTimesThatAreNone) {
  for (const char* text : {"24:00",    "23:60",  "29:00",  "30:00",          "99:99", "7:00",
                           "07:0",     "007:00", "07:000", "0700",           "07-00", "07.00",
                           "7:000",    "",       ":",      "--:--",          "-1:00", "+7:00",
                           "07:00:00", "a7:00",  "07:a0",  "\uFF10\uFF17:00"}) {
    EXPECT_EQ(Clock(text), std::nullopt) << text;
  }
}

TEST(Clock, RefusesBlanksAndLineEndsAroundTheTime) {
  for (const char* text : {"07:00 ", " 07:00", "07:00\n", "07:00\r\n", "07:00\r", "07:00\u2028",
                           "\n07:00", "07: 0", "7:00 ", "7:00\n"}) {
    EXPECT_EQ(Clock(text), std::nullopt) << testing::PrintToString(text);
  }
  EXPECT_EQ(Clock(std::string("07:00\0", 6)), std::nullopt);
  EXPECT_EQ(Clock(std::string("7:00\0", 5)), std::nullopt);
}

TEST(Clock, RefusesWhatIsNotText) {
  for (const Json& value : {Json(), Json(700), Json(7.0), Json(true), Json::array({"07:00"}),
                            Json({{"at", "07:00"}})}) {
    EXPECT_EQ(Clock(value), std::nullopt) << value;
  }
}

TEST(Clock, LeavesTheResultAloneWhenItRefuses) {
  int minutes = 42;
  EXPECT_FALSE(KioskClock("24:00", minutes));
  EXPECT_FALSE(KioskClock(7, minutes));
  EXPECT_EQ(minutes, 42);
}

TEST(Clock, AgreesWithThePatternOnRandomText) {
  Random random(11);
  for (int round = 0; round < 50'000; ++round) {
    const std::string text = random.text("0123459:: \n", random.below(9));
    ASSERT_EQ(Clock(text), ClockByPattern(text)) << testing::PrintToString(text);
  }
}

TEST(Clock, AgreesWithThePatternOnTextsThatAreNearlyTimes) {
  Random random(12);
  int accepted = 0;
  for (int round = 0; round < 50'000; ++round) {
    std::string text = random.text("012", 1) + random.text("0123456789", 1) + ":" +
                       random.text("012345", 1) + random.text("0123456789", 1);
    if (random.oneIn(2)) {
      text[random.below(5)] = random.pick(std::string_view("0123456789:/;\n \xD9"));
    }
    const std::optional<int> expected = ClockByPattern(text);
    accepted += expected ? 1 : 0;
    ASSERT_EQ(Clock(text), expected) << testing::PrintToString(text);
  }
  EXPECT_GT(accepted, 10'000);
  EXPECT_LT(accepted, 40'000);
}

TEST(Clock, AgreesWithThePatternOnAllTextsOfFewCharacters) {
  static constexpr std::string_view alphabet = "0123569:\n";
  for (std::size_t number = 0; number < 9 * 9 * 9 * 9 * 9; ++number) {
    std::string text;
    for (std::size_t rest = number; text.size() < 5; rest /= alphabet.size()) {
      text += alphabet[rest % alphabet.size()];
    }
    ASSERT_EQ(Clock(text), ClockByPattern(text)) << testing::PrintToString(text);
  }
}

}  // namespace
