#include <gtest/gtest.h>

#include <array>
#include <cstddef>
#include <string>
#include <string_view>

#include "core/KioskText.h"
#include "tests/unit/Random.h"
#include "tests/unit/Utf8.h"

namespace {

/// How many bytes a sequence has by its first byte's leading one bits; 0 for a trailing byte.
std::size_t LengthByLeadingOnes(unsigned char first) {
  std::size_t ones = 0;
  while (ones < 8 && (first & (0x80U >> ones)) != 0) ++ones;
  if (ones == 0) return 1;
  return ones == 1 || ones > 4 ? 0 : ones;
}

/// Restates the rule by its meaning: every sequence, decoded and encoded anew, is itself again, and
/// no code point is a surrogate or beyond the last one.
bool IsUtf8ByMeaning(std::string_view bytes) {
  while (!bytes.empty()) {
    const auto first = static_cast<unsigned char>(bytes[0]);
    const std::size_t length = LengthByLeadingOnes(first);
    if (length == 0 || length > bytes.size()) return false;
    char32_t point = length == 1 ? first : first & (0x7FU >> length);
    for (std::size_t at = 1; at < length; ++at) {
      point = point << 6 | (static_cast<unsigned char>(bytes[at]) & 0x3FU);
    }
    if (point > 0x10FFFF || (point >= 0xD800 && point <= 0xDFFF)) return false;
    if (Utf8(point) != bytes.substr(0, length)) return false;
    bytes.remove_prefix(length);
  }
  return true;
}

std::string Octets(std::initializer_list<int> values) {
  std::string bytes;
  for (const int value : values) bytes += static_cast<char>(value);
  return bytes;
}

TEST(Utf8, AcceptsEveryCodePoint) {
  EXPECT_TRUE(KioskIsUtf8(""));
  for (char32_t point = 0; point <= 0x10FFFF; ++point) {
    const bool surrogate = point >= 0xD800 && point <= 0xDFFF;
    ASSERT_EQ(KioskIsUtf8(Utf8(point)), !surrogate) << std::hex << std::size_t{point};
  }
}

TEST(Utf8, RefusesOverlongForms) {
  EXPECT_FALSE(KioskIsUtf8(Octets({0xC0, 0x80})));
  EXPECT_FALSE(KioskIsUtf8(Octets({0xC1, 0xBF})));
  EXPECT_FALSE(KioskIsUtf8(Octets({0xE0, 0x80, 0x80})));
  EXPECT_FALSE(KioskIsUtf8(Octets({0xE0, 0x9F, 0xBF})));
  EXPECT_FALSE(KioskIsUtf8(Octets({0xF0, 0x80, 0x80, 0x80})));
  EXPECT_FALSE(KioskIsUtf8(Octets({0xF0, 0x8F, 0xBF, 0xBF})));
}

TEST(Utf8, RefusesWhatLiesBeyondTheLastCodePoint) {
  EXPECT_TRUE(KioskIsUtf8(Octets({0xF4, 0x8F, 0xBF, 0xBF})));
  EXPECT_FALSE(KioskIsUtf8(Octets({0xF4, 0x90, 0x80, 0x80})));
  EXPECT_FALSE(KioskIsUtf8(Octets({0xF5, 0x80, 0x80, 0x80})));
  EXPECT_FALSE(KioskIsUtf8(Octets({0xF8, 0x88, 0x80, 0x80, 0x80})));
  EXPECT_FALSE(KioskIsUtf8(Octets({0xFE})));
  EXPECT_FALSE(KioskIsUtf8(Octets({0xFF})));
}

TEST(Utf8, RefusesSequencesThatEndTooSoon) {
  for (const char32_t point : {U'\u00E9', U'\u20AC', U'\U0001F600'}) {
    const std::string whole = Utf8(point);
    for (std::size_t length = 1; length < whole.size(); ++length) {
      EXPECT_FALSE(KioskIsUtf8(whole.substr(0, length)));
      EXPECT_FALSE(KioskIsUtf8(whole.substr(0, length) + "a"));
      EXPECT_FALSE(KioskIsUtf8(whole.substr(0, length) + whole));
      EXPECT_FALSE(KioskIsUtf8(whole.substr(length)));
    }
  }
}

TEST(Utf8, AgreesWithTheRuleOnAllPairsOfBytes) {
  for (int first = 0; first < 256; ++first) {
    ASSERT_EQ(KioskIsUtf8(Octets({first})), IsUtf8ByMeaning(Octets({first}))) << first;
    for (int second = 0; second < 256; ++second) {
      const std::string bytes = Octets({first, second});
      ASSERT_EQ(KioskIsUtf8(bytes), IsUtf8ByMeaning(bytes)) << first << " " << second;
    }
  }
}

constexpr std::array<int, 27> kBoundaryBytes{0x00, 0x41, 0x7F, 0x80, 0x81, 0x8F, 0x90, 0x9F, 0xA0,
                                             0xBF, 0xC0, 0xC1, 0xC2, 0xDF, 0xE0, 0xE1, 0xEC, 0xED,
                                             0xEE, 0xEF, 0xF0, 0xF1, 0xF3, 0xF4, 0xF5, 0xF8, 0xFF};

TEST(Utf8, AgreesWithTheRuleOnAllTriplesAndQuadruplesOfBoundaryBytes) {
  for (const int a : kBoundaryBytes) {
    for (const int b : kBoundaryBytes) {
      for (const int c : kBoundaryBytes) {
        const std::string triple = Octets({a, b, c});
        ASSERT_EQ(KioskIsUtf8(triple), IsUtf8ByMeaning(triple)) << a << " " << b << " " << c;
        for (const int d : kBoundaryBytes) {
          const std::string bytes = Octets({a, b, c, d});
          ASSERT_EQ(KioskIsUtf8(bytes), IsUtf8ByMeaning(bytes))
              << a << " " << b << " " << c << " " << d;
        }
      }
    }
  }
}

TEST(Utf8, AgreesWithTheRuleOnRandomText) {
  Random random(3);
  std::size_t wellFormed = 0;
  for (int round = 0; round < 50'000; ++round) {
    std::string bytes;
    for (std::size_t count = random.below(6); count > 0; --count) {
      bytes += Utf8(static_cast<char32_t>(random.below(0x110000) >> random.below(18)));
    }
    if (!bytes.empty() && random.oneIn(2)) {
      bytes[random.below(bytes.size())] = static_cast<char>(random.pick(kBoundaryBytes));
    }
    const bool expected = IsUtf8ByMeaning(bytes);
    wellFormed += expected ? 1U : 0U;
    ASSERT_EQ(KioskIsUtf8(bytes), expected) << testing::PrintToString(bytes);
  }
  EXPECT_GT(wellFormed, 10'000U);
  EXPECT_LT(wellFormed, 40'000U);
}

}  // namespace
