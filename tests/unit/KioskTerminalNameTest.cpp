#include <gtest/gtest.h>

#include <array>
#include <cstddef>
#include <string>
#include <string_view>

#include "portal/KioskCheckIn.h"
#include "tests/unit/Random.h"

namespace {

constexpr std::string_view kFamily =
    "\U0001F468\u200D\U0001F469\u200D\U0001F467\u200D\U0001F466";  // 11 code units
constexpr std::string_view kFlag = "\U0001F1E9\U0001F1EA";         // 4 code units

std::string Letters(std::size_t count) { return std::string(count, 'a'); }

std::string operator+(const std::string& text, std::string_view more) {
  return text + std::string(more);
}

TEST(TerminalName, IsTheTextItself) {
  EXPECT_EQ(KioskTerminalNameFrom("Lobby 2"), "Lobby 2");
  EXPECT_EQ(KioskTerminalNameFrom("Empfang \u2013 Erdgescho\u00DF"),
            "Empfang \u2013 Erdgescho\u00DF");
}

TEST(TerminalName, IsTrimmedOfWhiteSpaceAndLineEnds) {
  EXPECT_EQ(KioskTerminalNameFrom(" \n\tLobby  2\u00A0\r\n"), "Lobby  2");
  EXPECT_EQ(KioskTerminalNameFrom("\u2028\u3000Lobby\u0085"), "Lobby");
}

TEST(TerminalName, IsNoneWhenNothingIsLeft) {
  EXPECT_EQ(KioskTerminalNameFrom(""), "");
  EXPECT_EQ(KioskTerminalNameFrom(std::string(100, ' ')), "");
  EXPECT_EQ(KioskTerminalNameFrom("\r\n\u2003"), "");
}

TEST(TerminalName, IsNoneForWhatIsNotText) {
  for (const Json& name : {Json(), Json(5), Json(true), Json(1.5), Json::array({"Lobby"}),
                           Json({{"name", "Lobby"}})}) {
    EXPECT_EQ(KioskTerminalNameFrom(name), "") << name;
  }
}

TEST(TerminalName, IsCutTo80CodeUnits) {
  EXPECT_EQ(KioskTerminalNameFrom(Letters(79)), Letters(79));
  EXPECT_EQ(KioskTerminalNameFrom(Letters(80)), Letters(80));
  EXPECT_EQ(KioskTerminalNameFrom(Letters(81)), Letters(80));
  EXPECT_EQ(KioskTerminalNameFrom(Letters(100'000)), Letters(80));
}

TEST(TerminalName, CountsCodeUnitsNotBytesOrCharacters) {
  std::string accents;
  for (int count = 0; count < 80; ++count) accents += "\u00E9";
  EXPECT_EQ(KioskTerminalNameFrom(accents), accents);
  EXPECT_EQ(KioskTerminalNameFrom(accents + "\u00E9"), accents);
  std::string faces;
  for (int count = 0; count < 40; ++count) faces += "\U0001F600";
  EXPECT_EQ(KioskTerminalNameFrom(faces), faces);
  EXPECT_EQ(KioskTerminalNameFrom(faces + "\U0001F600"), faces);
}

TEST(TerminalName, CountsOnlyWhatTrimmingLeaves) {
  EXPECT_EQ(KioskTerminalNameFrom(std::string(50, ' ') + Letters(80) + std::string(50, '\n')),
            Letters(80));
}

TEST(TerminalName, NeverSplitsASurrogatePair) {
  EXPECT_EQ(KioskTerminalNameFrom(Letters(78) + "\U0001F600"), Letters(78) + "\U0001F600");
  EXPECT_EQ(KioskTerminalNameFrom(Letters(79) + "\U0001F600"), Letters(79));
}

TEST(TerminalName, NeverSplitsAFamily) {
  EXPECT_EQ(KioskTerminalNameFrom(Letters(69) + kFamily), Letters(69) + kFamily);
  EXPECT_EQ(KioskTerminalNameFrom(Letters(69) + kFamily + "a"), Letters(69) + kFamily);
  for (std::size_t before = 70; before <= 80; ++before) {
    EXPECT_EQ(KioskTerminalNameFrom(Letters(before) + kFamily), Letters(before)) << before;
  }
}

TEST(TerminalName, NeverSplitsAFlag) {
  EXPECT_EQ(KioskTerminalNameFrom(Letters(76) + kFlag + kFlag), Letters(76) + kFlag);
  EXPECT_EQ(KioskTerminalNameFrom(Letters(77) + kFlag), Letters(77));
  EXPECT_EQ(KioskTerminalNameFrom(Letters(78) + kFlag), Letters(78));
  std::string flags;
  for (int count = 0; count < 30; ++count) flags += kFlag;
  EXPECT_EQ(KioskTerminalNameFrom(flags), flags.substr(0, 20 * kFlag.size()));
  EXPECT_EQ(KioskTerminalNameFrom("a" + flags), "a" + flags.substr(0, 19 * kFlag.size()));
}

TEST(TerminalName, NeverSplitsALetterFromItsMarks) {
  EXPECT_EQ(KioskTerminalNameFrom(Letters(78) + "e\u0301"), Letters(78) + "e\u0301");
  EXPECT_EQ(KioskTerminalNameFrom(Letters(79) + "e\u0301"), Letters(79));
  EXPECT_EQ(KioskTerminalNameFrom(Letters(77) + "e\u0301\u0323\u0330"), Letters(77));
  EXPECT_EQ(KioskTerminalNameFrom(Letters(79) + "\u1112\u1161\u11AB"), Letters(79));
}

TEST(TerminalName, NeverSplitsALineEnd) {
  EXPECT_EQ(KioskTerminalNameFrom(Letters(77) + "\r\nb"), Letters(77) + "\r\nb");
  EXPECT_EQ(KioskTerminalNameFrom(Letters(78) + "\r\nb"), Letters(78));
  EXPECT_EQ(KioskTerminalNameFrom(Letters(79) + "\r\nb"), Letters(79));
  EXPECT_EQ(KioskTerminalNameFrom(Letters(80) + "\r\nb"), Letters(80));
}

TEST(TerminalName, IsTrimmedAgainAfterTheCut) {
  EXPECT_EQ(KioskTerminalNameFrom(Letters(79) + " b"), Letters(79));
  EXPECT_EQ(KioskTerminalNameFrom("a" + std::string(90, ' ') + "b"), "a");
  EXPECT_EQ(KioskTerminalNameFrom(Letters(70) + "\n\u00A0\u3000 " + kFamily), Letters(70));
}

TEST(TerminalName, IsNoneWhenItsFirstCharacterIsTooLong) {
  std::string name = "e";
  for (int count = 0; count < 79; ++count) name += "\u0301";
  EXPECT_EQ(KioskTerminalNameFrom(name), name);
  EXPECT_EQ(KioskTerminalNameFrom(name + "\u0301"), "");
}

struct Character {
  std::string_view text;
  std::size_t units;
};

constexpr std::array<Character, 9> kCharacters{{{"a", 1},
                                                {"\u00E9", 1},
                                                {"e\u0301", 2},
                                                {"\U0001F600", 2},
                                                {"\U0001F44D\U0001F3FD", 4},
                                                {kFlag, 4},
                                                {kFamily, 11},
                                                {"\u1112\u1161\u11AB", 3},
                                                {" ", 1}}};

TEST(TerminalName, KeepsTheCharactersThatFitWhole) {
  Random random(9);
  for (int round = 0; round < 3000; ++round) {
    std::string name = "x";
    std::string kept = "x";
    std::size_t units = 1;
    for (std::size_t count = random.below(60); count > 0; --count) {
      const Character& next = random.pick(kCharacters);
      name += next.text;
      units += next.units;
      if (units <= 80) kept = name;
    }
    kept.erase(kept.find_last_not_of(' ') + 1);
    ASSERT_EQ(KioskTerminalNameFrom(name), kept) << name;
  }
}

}  // namespace
