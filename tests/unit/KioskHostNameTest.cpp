#include <gtest/gtest.h>

#include <array>
#include <cstddef>
#include <string>

#include "portal/KioskCheckIn.h"
#include "tests/unit/Random.h"
#include "tests/unit/WrittenPatterns.h"

namespace {

std::string Label(std::size_t length) { return std::string(length, 'a'); }

/// A name of labels of these lengths.
std::string Name(std::initializer_list<std::size_t> lengths) {
  std::string name;
  for (const std::size_t length : lengths) name += (name.empty() ? "" : ".") + Label(length);
  return name;
}

TEST(HostName, AcceptsLowerCaseNamesOfTwoLabelsOrMore) {
  for (const char* name : {"a.b", "login.example.com", "xn--bcher-kva.example", "0.1",
                           "192.168.0.1", "a-b.c--d.e", "3com.example"}) {
    EXPECT_TRUE(KioskIsHostName(name)) << name;
  }
}

TEST(HostName, RefusesASingleLabel) {
  EXPECT_FALSE(KioskIsHostName("localhost"));
  EXPECT_FALSE(KioskIsHostName("a"));
}

TEST(HostName, RefusesUpperCase) {
  EXPECT_FALSE(KioskIsHostName("Login.example.com"));
  EXPECT_FALSE(KioskIsHostName("login.example.COM"));
}

TEST(HostName, RefusesEmptyLabels) {
  for (const char* name : {"", ".", "..", ".a.b", "a.b.", "a..b"}) {
    EXPECT_FALSE(KioskIsHostName(name)) << name;
  }
}

TEST(HostName, RefusesHyphensAtTheEndsOfLabels) {
  for (const char* name : {"-a.b", "a-.b", "a.-b", "a.b-", "-.a", "a.-"}) {
    EXPECT_FALSE(KioskIsHostName(name)) << name;
  }
}

TEST(HostName, RefusesOtherCharacters) {
  for (const char* name : {"a_b.c", "a b.c", "a.b/c", "a.b:80", "*.a.b", "https://a.b",
                           "b\u00FC.de", "a\u3002b", "user@a.b", "[::1]"}) {
    EXPECT_FALSE(KioskIsHostName(name)) << name;
  }
  EXPECT_FALSE(KioskIsHostName(std::string("a.b\0", 4)));
  EXPECT_FALSE(KioskIsHostName(std::string("a.\0b", 4)));
}

TEST(HostName, RefusesLineEndsAndSpacesAroundTheName) {
  for (const char* name :
       {"a.b\n", "a.b\r\n", "a.b\r", "a.b\u2028", "\na.b", "a\n.b", " a.b", "a.b "}) {
    EXPECT_FALSE(KioskIsHostName(name)) << testing::PrintToString(name);
  }
}

TEST(HostName, AcceptsLabelsOf63CharactersAndRefuses64) {
  EXPECT_TRUE(KioskIsHostName(Name({63, 1})));
  EXPECT_TRUE(KioskIsHostName(Name({1, 63})));
  EXPECT_FALSE(KioskIsHostName(Name({64, 1})));
  EXPECT_FALSE(KioskIsHostName(Name({1, 64})));
  EXPECT_FALSE(KioskIsHostName(Name({1, 64, 1})));
}

TEST(HostName, AcceptsNamesOf253CharactersAndRefuses254) {
  EXPECT_EQ(Name({63, 63, 63, 61}).size(), 253U);
  EXPECT_TRUE(KioskIsHostName(Name({63, 63, 63, 61})));
  EXPECT_FALSE(KioskIsHostName(Name({63, 63, 63, 62})));
  std::string name = "a";
  while (name.size() < 253) name += ".a";
  EXPECT_TRUE(KioskIsHostName(name));
  EXPECT_FALSE(KioskIsHostName(name + "a.a"));
  EXPECT_FALSE(KioskIsHostName(std::string(1'000'000, 'a') + ".b"));
}

std::string RandomLabel(Random& random) {
  static constexpr std::array<std::size_t, 12> lengths{0, 1, 1, 2, 2, 3, 3, 5, 10, 62, 63, 64};
  std::string label = random.text("abz019abz019abz019-", random.pick(lengths));
  if (!label.empty() && random.oneIn(20)) {
    label[random.below(label.size())] = random.pick(std::string_view("AZ_. \n\r\x7F\xC3`{/:@"));
  }
  return label;
}

std::string RandomName(Random& random) {
  std::string name = RandomLabel(random);
  for (std::size_t more = random.below(6); more > 0; --more) name += "." + RandomLabel(random);
  if (random.oneIn(20)) name += random.pick(std::string_view(".\n\r "));
  return name;
}

TEST(HostName, AgreesWithThePatternOnRandomNames) {
  Random random(5);
  int accepted = 0;
  for (int round = 0; round < 20'000; ++round) {
    const std::string name = RandomName(random);
    const bool expected = MatchesHostNamePattern(name);
    accepted += expected ? 1 : 0;
    ASSERT_EQ(KioskIsHostName(name), expected) << testing::PrintToString(name);
  }
  EXPECT_GT(accepted, 2000);
  EXPECT_LT(accepted, 18'000);
}

TEST(HostName, AgreesWithThePatternOnNamesAroundTheLongestLength) {
  Random random(6);
  for (int round = 0; round < 500; ++round) {
    std::string name;
    const std::size_t length = 250 + random.below(8);
    while (name.size() < length) {
      name += random.text("abc0", 1 + random.below(63)) + ".";
    }
    name.resize(length);
    ASSERT_EQ(KioskIsHostName(name), MatchesHostNamePattern(name)) << name;
  }
}

TEST(HostName, AgreesWithThePatternOnAllShortNames) {
  static constexpr std::string_view alphabet = "a0-.A\n";
  for (std::size_t length = 0; length <= 6; ++length) {
    std::size_t count = 1;
    for (std::size_t at = 0; at < length; ++at) count *= alphabet.size();
    for (std::size_t number = 0; number < count; ++number) {
      std::string name;
      for (std::size_t rest = number; name.size() < length; rest /= alphabet.size()) {
        name += alphabet[rest % alphabet.size()];
      }
      ASSERT_EQ(KioskIsHostName(name), MatchesHostNamePattern(name))
          << testing::PrintToString(name);
    }
  }
}

}  // namespace
