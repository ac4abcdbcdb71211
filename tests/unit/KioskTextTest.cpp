#include <gtest/gtest.h>

#include <set>
#include <string>

#include "core/KioskText.h"
#include "tests/unit/Random.h"
#include "tests/unit/Utf8.h"

namespace {

const std::set<char32_t> kWhiteSpace{0x0009, 0x0020, 0x00A0, 0x1680, 0x2000, 0x2001,
                                     0x2002, 0x2003, 0x2004, 0x2005, 0x2006, 0x2007,
                                     0x2008, 0x2009, 0x200A, 0x202F, 0x205F, 0x3000};
const std::set<char32_t> kNewlines{0x000A, 0x000B, 0x000C, 0x000D, 0x0085, 0x2028, 0x2029};

TEST(Trim, TakesExactlyWhiteSpaceAndNewlinesFromBothEnds) {
  for (char32_t point = 0; point <= 0x10FFFF; ++point) {
    if (point >= 0xD800 && point <= 0xDFFF) continue;
    const bool trimmed = kWhiteSpace.contains(point) || kNewlines.contains(point);
    const std::string text = Utf8(point) + "x" + Utf8(point);
    ASSERT_EQ(KioskTrim(text), trimmed ? "x" : text) << std::hex << std::size_t{point};
  }
}

TEST(TrimBlanks, TakesExactlyWhiteSpaceFromBothEnds) {
  for (char32_t point = 0; point <= 0x10FFFF; ++point) {
    if (point >= 0xD800 && point <= 0xDFFF) continue;
    const std::string text = Utf8(point) + "x" + Utf8(point);
    ASSERT_EQ(KioskTrimBlanks(text), kWhiteSpace.contains(point) ? "x" : text)
        << std::hex << std::size_t{point};
  }
}

TEST(Trim, LeavesInvisibleCharactersThatAreNoSpaces) {
  for (const char* text : {"\u200Bx\u200B", "\uFEFFx\uFEFF", "\u180Ex\u180E", "\u200Dx\u2060"}) {
    EXPECT_EQ(KioskTrim(text), text);
    EXPECT_EQ(KioskTrimBlanks(text), text);
  }
}

TEST(Trim, LeavesTheMiddleAlone) {
  EXPECT_EQ(KioskTrim(" \n a \t\u00A0\n b\r\n"), "a \t\u00A0\n b");
  EXPECT_EQ(KioskTrimBlanks(" \t a \n b \u3000"), "a \n b");
}

TEST(Trim, LeavesNothingOfNothingButSpaces) {
  EXPECT_EQ(KioskTrim(""), "");
  EXPECT_EQ(KioskTrim(" "), "");
  EXPECT_EQ(KioskTrim("\u2003\r\n\u2029\t\u0085 "), "");
  EXPECT_EQ(KioskTrimBlanks("\u2003\t "), "");
}

TEST(TrimBlanks, StopsAtNewlines) {
  EXPECT_EQ(KioskTrimBlanks(" \n a \n "), "\n a \n");
  EXPECT_EQ(KioskTrimBlanks(" \u2028 "), "\u2028");
}

TEST(Trim, AgreesWithTheRuleOnRandomText) {
  static const std::u32string points = U"\t\n\r \u0085\u00A0\u2000\u200A\u200B\u2028\u3000\uFEFFab";
  Random random(4);
  for (int round = 0; round < 20'000; ++round) {
    std::u32string text;
    for (std::size_t count = random.below(8); count > 0; --count) text += random.pick(points);
    std::u32string left = text;
    const auto space = [](char32_t c) { return kWhiteSpace.contains(c) || kNewlines.contains(c); };
    while (!left.empty() && space(left.front())) left.erase(0, 1);
    while (!left.empty() && space(left.back())) left.pop_back();
    std::string bytes;
    std::string expected;
    for (const char32_t point : text) bytes += Utf8(point);
    for (const char32_t point : left) expected += Utf8(point);
    ASSERT_EQ(KioskTrim(bytes), expected) << testing::PrintToString(bytes);
  }
}

}  // namespace
