#include <gtest/gtest.h>

#include <string>
#include <string_view>

#include "portal/KioskPairing.h"
#include "tests/unit/Random.h"
#include "tests/unit/WrittenPatterns.h"

namespace {

TEST(PairingCode, HasEightOfItsCharacters) {
  for (const char* code : {"ABCDEFGH", "JKLMNPQR", "STUVWXYZ", "23456789", "A2B3C4D5"}) {
    EXPECT_TRUE(KioskIsPairingCode(code)) << code;
  }
}

TEST(PairingCode, RefusesConfusableCharacters) {
  for (const char c : std::string_view("IO01")) {
    for (std::size_t at = 0; at < 8; ++at) {
      std::string code = "ABCDEFGH";
      code[at] = c;
      EXPECT_FALSE(KioskIsPairingCode(code)) << code;
    }
  }
}

TEST(PairingCode, RefusesOtherLengths) {
  for (std::size_t length = 0; length < 20; ++length) {
    EXPECT_EQ(KioskIsPairingCode(std::string(length, 'A')), length == 8) << length;
  }
}

TEST(PairingCode, RefusesLowerCaseLineEndsAndBlanks) {
  for (const char* code : {"abcdefgh", "ABCDEFGh", "ABCDEFGH\n", "ABCDEFG\n", "\nABCDEFGH",
                           "ABCDEFGH\r\n", " ABCDEFG", "ABCDEFG ", "ABCD-FGH", "\u00C9BCDEFG"}) {
    EXPECT_FALSE(KioskIsPairingCode(code)) << testing::PrintToString(code);
  }
  EXPECT_FALSE(KioskIsPairingCode(std::string("ABCDEFG\0", 8)));
}

TEST(PairingCode, AcceptsExactlyTheCharactersOfThePattern) {
  for (int value = 0; value < 256; ++value) {
    const std::string code = "ABCD" + std::string(1, static_cast<char>(value)) + "EFG";
    EXPECT_EQ(KioskIsPairingCode(code), MatchesPairingCodePattern(code)) << value;
  }
}

TEST(PairingCode, AgreesWithThePatternOnRandomText) {
  Random random(7);
  int accepted = 0;
  for (int round = 0; round < 50'000; ++round) {
    std::string code = random.text("ABCDEFGHJKLMNPQRSTUVWXYZ23456789", 8);
    if (random.oneIn(2)) code[random.below(8)] = random.pick(std::string_view("IO01aZ \n@[:/"));
    if (random.oneIn(4)) code.resize(6 + random.below(5), 'A');
    const bool expected = MatchesPairingCodePattern(code);
    accepted += expected ? 1 : 0;
    ASSERT_EQ(KioskIsPairingCode(code), expected) << testing::PrintToString(code);
  }
  EXPECT_GT(accepted, 10'000);
  EXPECT_LT(accepted, 40'000);
}

TEST(NormalisedCode, IsUpperCaseWithoutBlanksAtTheEnds) {
  EXPECT_EQ(KioskNormalisedCode("abcdefgh"), "ABCDEFGH");
  EXPECT_EQ(KioskNormalisedCode("  aBcD2345\t "), "ABCD2345");
  EXPECT_EQ(KioskNormalisedCode("\u00A0\u3000abcdefgh\u00A0\u2003"), "ABCDEFGH");
  EXPECT_EQ(KioskNormalisedCode(""), "");
  EXPECT_EQ(KioskNormalisedCode(" \t "), "");
}

TEST(NormalisedCode, KeepsNewlinesAndBlanksInside) {
  EXPECT_EQ(KioskNormalisedCode("abcdefgh\n"), "ABCDEFGH\n");
  EXPECT_EQ(KioskNormalisedCode("\r\nabcdefgh"), "\r\nABCDEFGH");
  EXPECT_EQ(KioskNormalisedCode(" abcdefgh \n "), "ABCDEFGH \n");
  EXPECT_EQ(KioskNormalisedCode("abcd efgh"), "ABCD EFGH");
}

TEST(NormalisedCode, MayBeLongerThanWhatWasTyped) {
  EXPECT_EQ(KioskNormalisedCode("abcdef\u00DF"), "ABCDEFSS");
  EXPECT_EQ(KioskNormalisedCode("abcde\uFB03"), "ABCDEFFI");
  EXPECT_TRUE(KioskIsPairingCode(KioskNormalisedCode("abcdef\u00DF")));
  EXPECT_FALSE(KioskIsPairingCode(KioskNormalisedCode("abcdefg\u00DF")));
}

TEST(NormalisedCode, DoesNotDependOnTheLanguage) {
  EXPECT_EQ(KioskNormalisedCode("i\u0131\u00E9"), "II\u00C9");
}

TEST(NormalisedCode, IsEmptyForWhatIsNotText) {
  for (const Json& code : {Json(), Json(12345678), Json(true), Json(2.5), Json::array({"ABCDEFGH"}),
                           Json({{"code", "ABCDEFGH"}})}) {
    EXPECT_EQ(KioskNormalisedCode(code), "") << code;
  }
}

TEST(NormalisedCode, FindsAnyCodeTypedInAnyCaseAmidBlanks) {
  Random random(8);
  for (int round = 0; round < 5000; ++round) {
    const std::string code = random.text("ABCDEFGHJKLMNPQRSTUVWXYZ23456789", 8);
    std::string typed = code;
    for (char& c : typed) {
      if (c >= 'A' && random.oneIn(2)) c = static_cast<char>(c - 'A' + 'a');
    }
    typed = random.text(" \t", random.below(4)) + typed + random.text(" \t", random.below(4));
    ASSERT_EQ(KioskNormalisedCode(typed), code) << testing::PrintToString(typed);
  }
}

}  // namespace
