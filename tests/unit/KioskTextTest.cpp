#include <gtest/gtest.h>

#include <array>
#include <chrono>
#include <cstdio>
#include <set>
#include <string>

#include "core/KioskText.h"
#include "tests/unit/Random.h"
#include "tests/unit/Spaces.h"
#include "tests/unit/Utf8.h"
#include "tests/unit/WrittenPatterns.h"

namespace {

/// What patterns take for white space.
bool IsPatternSpace(char32_t point) {
  static const std::set<char32_t> noSpaces{0x000B, 0x0085};
  return (kWhiteSpace.contains(point) || kNewlines.contains(point)) && !noSpaces.contains(point);
}

/// Calls `check` for every character there is.
template <class Check>
void ForEveryCharacter(Check check) {
  for (char32_t point = 0; point <= 0x10FFFF; ++point) {
    if (point < 0xD800 || point > 0xDFFF) check(point, Utf8(point));
  }
}

/// Up to seven characters, spaces and newlines among them.
std::string SpacedText(Random& random) {
  static const std::u32string points = U"\t\n\v\f\r \u0085\u00A0\u2000\u200B\u2028\u2029\u3000ab";
  std::string text;
  for (std::size_t count = random.below(8); count > 0; --count) text += Utf8(random.pick(points));
  return text;
}

TEST(Trim, TakesExactlyWhiteSpaceAndNewlinesFromBothEnds) {
  ForEveryCharacter([](char32_t point, const std::string& character) {
    const bool trimmed = kWhiteSpace.contains(point) || kNewlines.contains(point);
    const std::string text = character + "x" + character;
    ASSERT_EQ(KioskTrim(text), trimmed ? "x" : text) << std::hex << std::size_t{point};
  });
}

TEST(TrimBlanks, TakesExactlyWhiteSpaceFromBothEnds) {
  ForEveryCharacter([](char32_t point, const std::string& character) {
    const std::string text = character + "x" + character;
    ASSERT_EQ(KioskTrimBlanks(text), kWhiteSpace.contains(point) ? "x" : text)
        << std::hex << std::size_t{point};
  });
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

TEST(SpaceLength, IsThatOfOneLeadingSpaceOrNewline) {
  ForEveryCharacter([](char32_t point, const std::string& character) {
    const bool isSpace = kWhiteSpace.contains(point) || kNewlines.contains(point);
    ASSERT_EQ(KioskSpaceLength(character + " x"), isSpace ? character.size() : 0)
        << std::hex << std::size_t{point};
  });
  EXPECT_EQ(KioskSpaceLength(""), 0U);
  EXPECT_EQ(KioskSpaceLength("\xE2\x80"), 0U);
  EXPECT_EQ(KioskSpaceLength("x "), 0U);
}

TEST(LeadingSpace, CountsExactlyWhatPatternsTakeForSpace) {
  ForEveryCharacter([](char32_t point, const std::string& character) {
    const std::size_t expected = IsPatternSpace(point) ? 2 * character.size() : 0;
    ASSERT_EQ(KioskLeadingSpace(character + character + "x"), expected)
        << std::hex << std::size_t{point};
  });
}

TEST(LeadingSpace, EndsAtTheFirstOtherCharacter) {
  EXPECT_EQ(KioskLeadingSpace(""), 0U);
  EXPECT_EQ(KioskLeadingSpace(" \t\r\n"), 4U);
  EXPECT_EQ(KioskLeadingSpace(" \u2003x "), 4U);
  EXPECT_EQ(KioskLeadingSpace(" \v "), 1U);
}

TEST(WordCharacter, IsALetterDigitOrUnderscore) {
  EXPECT_FALSE(KioskStartsWithWordCharacter(""));
  for (int c = 0; c < 0x80; ++c) {
    const bool isWord = (c >= '0' && c <= '9') || (c >= 'A' && c <= 'Z') || (c >= 'a' && c <= 'z');
    const std::string text(1, static_cast<char>(c));
    EXPECT_EQ(KioskStartsWithWordCharacter(text + "-"), isWord || c == '_') << c;
  }
}

TEST(WordCharacter, IsAnyOtherBeyondAsciiThatIsNoSpace) {
  ForEveryCharacter([](char32_t point, const std::string& character) {
    if (point < 0x80 || kNewlines.contains(point)) return;
    ASSERT_EQ(KioskStartsWithWordCharacter(character), !kWhiteSpace.contains(point))
        << std::hex << std::size_t{point};
  });
}

TEST(NextLine, BeginsBehindAnyNewline) {
  ForEveryCharacter([](char32_t point, const std::string& character) {
    const std::string text = "a" + character + "bc";
    const std::size_t expected = kNewlines.contains(point) ? 1 + character.size() : text.size();
    ASSERT_EQ(KioskNextLine(text, 0), expected) << std::hex << std::size_t{point};
  });
}

TEST(NextLine, IsTheEndWhenThereIsNone) {
  EXPECT_EQ(KioskNextLine("", 0), 0U);
  EXPECT_EQ(KioskNextLine("abc", 1), 3U);
  EXPECT_EQ(KioskNextLine("abc", 3), 3U);
  EXPECT_EQ(KioskNextLine("a\nbc", 2), 4U);
  EXPECT_EQ(KioskNextLine("abc\n", 0), 4U);
}

TEST(NextLine, BeginsBehindEachOfTwoNewlines) {
  EXPECT_EQ(KioskNextLine("a\r\nb", 0), 2U);
  EXPECT_EQ(KioskNextLine("a\r\nb", 2), 3U);
}

TEST(NextLine, FindsTheLinesOfRandomText) {
  Random random(71);
  for (int round = 0; round < 5'000; ++round) {
    const std::string text = SpacedText(random);
    std::size_t start = 0;
    for (const std::string& line : LinesOf(text)) {
      ASSERT_EQ(text.substr(start, line.size()), line) << testing::PrintToString(text);
      start = KioskNextLine(text, start);
    }
    ASSERT_EQ(start, text.size()) << testing::PrintToString(text);
  }
}

TEST(LowerCase, ChangesLettersOfAsciiAlone) {
  EXPECT_EQ(KioskLowerCase("HTTP://Proxy:8080/@[`{"), "http://proxy:8080/@[`{");
  EXPECT_EQ(KioskLowerCase(""), "");
  ForEveryCharacter([](char32_t point, const std::string& character) {
    const bool isUpper = point >= 'A' && point <= 'Z';
    const std::string lower = point == 0x212A ? "k" : isUpper ? Utf8(point + 32) : character;
    ASSERT_EQ(KioskLowerCase("x" + character), "x" + lower) << std::hex << std::size_t{point};
  });
}

TEST(LowerCase, TakesTheKelvinSignForTheLetterThatItLowersTo) {
  EXPECT_EQ(KioskLowerCase("\u212A\u212Ax\u212A"), "kkxk");
  EXPECT_EQ(KioskLowerCase("\u212B\u0130"), "\u212B\u0130");
  EXPECT_EQ(KioskLowerCase("\xE2\x84"), "\xE2\x84");
}

TEST(HostLabel, HasOneTo63LettersDigitsAndInnerHyphens) {
  for (const char* label : {"a", "0", "a-b", "a--b", "xn--bcher-kva"}) {
    EXPECT_TRUE(KioskIsHostLabel(label)) << label;
  }
  for (const char* label : {"", "-", "-a", "a-", "A", "a.b", "a_b", "a b", "a\n", "\u00E9"}) {
    EXPECT_FALSE(KioskIsHostLabel(label)) << testing::PrintToString(label);
  }
  EXPECT_TRUE(KioskIsHostLabel(std::string(63, 'a')));
  EXPECT_FALSE(KioskIsHostLabel(std::string(64, 'a')));
}

TEST(HostLabel, AgreesWithThePatternOnRandomText) {
  Random random(72);
  int accepted = 0;
  for (int round = 0; round < 10'000; ++round) {
    const std::size_t length = random.oneIn(5) ? 60 + random.below(6) : random.below(6);
    std::string label = random.text("abz019abz019abz019-", length);
    if (!label.empty() && random.oneIn(8)) {
      label[random.below(length)] = random.pick(std::string_view("AZ_. \n\x7F\xC3`{/:@"));
    }
    const bool expected = MatchesHostLabelPattern(label);
    accepted += expected ? 1 : 0;
    ASSERT_EQ(KioskIsHostLabel(label), expected) << testing::PrintToString(label);
  }
  EXPECT_GT(accepted, 1'000);
  EXPECT_LT(accepted, 9'000);
}

TEST(Iso8601, WritesAnInstantInUtc) {
  EXPECT_EQ(KioskIso8601(0), "1970-01-01T00:00:00Z");
  EXPECT_EQ(KioskIso8601(951'782'400), "2000-02-29T00:00:00Z");
  EXPECT_EQ(KioskIso8601(1'791'498'660), "2026-10-08T22:31:00Z");
  EXPECT_EQ(KioskIso8601(4'107'542'399), "2100-02-28T23:59:59Z");
  EXPECT_EQ(KioskIso8601(4'107'542'400), "2100-03-01T00:00:00Z");
}

TEST(Iso8601, CutsAFractionOff) {
  EXPECT_EQ(KioskIso8601(59.999), "1970-01-01T00:00:59Z");
  EXPECT_EQ(KioskIso8601(-0.5), "1969-12-31T23:59:59Z");
}

TEST(Iso8601, AgreesWithTheCalendarAtRandomInstants) {
  Random random(73);
  for (int round = 0; round < 5'000; ++round) {
    const std::chrono::sys_seconds instant(std::chrono::seconds(random.below(8'000'000'000)));
    const auto day = std::chrono::floor<std::chrono::days>(instant);
    const std::chrono::year_month_day date(day);
    const std::chrono::hh_mm_ss time(instant - day);
    std::array<char, 64> expected{};
    std::snprintf(expected.data(), expected.size(), "%04d-%02u-%02uT%02d:%02d:%02dZ",
                  static_cast<int>(date.year()), static_cast<unsigned>(date.month()),
                  static_cast<unsigned>(date.day()), static_cast<int>(time.hours().count()),
                  static_cast<int>(time.minutes().count()),
                  static_cast<int>(time.seconds().count()));
    ASSERT_EQ(KioskIso8601(static_cast<double>(instant.time_since_epoch().count())),
              expected.data());
  }
}

}  // namespace
