#include <gtest/gtest.h>

#include <cmath>
#include <cstdint>
#include <limits>
#include <optional>

#include "core/KioskJson.h"
#include "settings/KioskPower.h"
#include "tests/unit/RandomJson.h"

namespace {

constexpr std::int64_t kMost = std::numeric_limits<std::int64_t>::max();
constexpr std::int64_t kLeast = std::numeric_limits<std::int64_t>::min();

std::optional<std::int64_t> Integer(const Json& value) {
  std::int64_t integer = 0;
  if (!KioskIsInteger(value, integer)) return std::nullopt;
  return integer;
}

std::optional<std::int64_t> Parsed(const char* text) { return Integer(Json::parse(text)); }

TEST(Integer, AcceptsWholeNumbers) {
  EXPECT_EQ(Parsed("0"), 0);
  EXPECT_EQ(Parsed("-0"), 0);
  EXPECT_EQ(Parsed("15"), 15);
  EXPECT_EQ(Parsed("-1"), -1);
  EXPECT_EQ(Parsed("9223372036854775807"), kMost);
  EXPECT_EQ(Parsed("-9223372036854775808"), kLeast);
}

TEST(Integer, AcceptsRealsWithoutAFraction) {
  EXPECT_EQ(Parsed("15.0"), 15);
  EXPECT_EQ(Parsed("3.0"), 3);
  EXPECT_EQ(Parsed("-2.0"), -2);
  EXPECT_EQ(Parsed("-0.0"), 0);
  EXPECT_EQ(Parsed("1.5e1"), 15);
  EXPECT_EQ(Parsed("4503599627370497.0"), 4503599627370497);
}

TEST(Integer, RefusesFractions) {
  for (const char* text : {"15.5", "2.5", "-0.5", "0.1", "1e-300", "239.99999999999997"}) {
    EXPECT_EQ(Parsed(text), std::nullopt) << text;
  }
}

TEST(Integer, RefusesWhatIsNotANumber) {
  for (const char* text : {"true", "false", "null", "\"15\"", "\"\"", "[]", "[15]", "{}"}) {
    EXPECT_EQ(Parsed(text), std::nullopt) << text;
  }
  EXPECT_EQ(Integer(std::nan("")), std::nullopt);
}

TEST(Integer, ClampsNumbersBeyond64Bits) {
  EXPECT_EQ(Parsed("9223372036854775808"), kMost);
  EXPECT_EQ(Parsed("18446744073709551615"), kMost);
  EXPECT_EQ(Parsed("18446744073709551616"), kMost);
  EXPECT_EQ(Parsed("9223372036854775808.0"), kMost);
  EXPECT_EQ(Parsed("1e300"), kMost);
  EXPECT_EQ(Parsed("-9223372036854775808.0"), kLeast);
  EXPECT_EQ(Parsed("-9223372036854775809"), kLeast);
  EXPECT_EQ(Parsed("-1e300"), kLeast);
}

TEST(Integer, LeavesTheResultAloneWhenItRefuses) {
  std::int64_t integer = 42;
  EXPECT_FALSE(KioskIsInteger(1.5, integer));
  EXPECT_FALSE(KioskIsInteger(true, integer));
  EXPECT_EQ(integer, 42);
}

TEST(Integer, IsEveryIntegerValuedReal) {
  Random random(10);
  for (int round = 0; round < 20'000; ++round) {
    const auto whole = static_cast<std::int64_t>(random.bits()) >> (11 + random.below(50));
    const auto real = static_cast<double>(whole);  // exact: at most 53 bits
    ASSERT_EQ(Integer(real), whole);
    ASSERT_EQ(Integer(whole), whole);
    if (std::abs(real) >= 4503599627370496.0) continue;  // no fractions that far out
    const double beside = std::nextafter(real, std::numeric_limits<double>::infinity());
    ASSERT_EQ(Integer(beside), std::nullopt) << beside;
  }
}

}  // namespace
