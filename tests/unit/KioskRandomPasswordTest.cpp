#include <gtest/gtest.h>

#include <cstddef>
#include <map>
#include <set>
#include <string>
#include <string_view>

#include "account/KioskAccount.h"

namespace {

constexpr std::string_view kAlphabet = "ABCDEFGHJKLMNPQRSTUVWXYZabcdefghijkmnopqrstuvwxyz23456789";
constexpr std::size_t kSamples = 2000;
constexpr std::size_t kLength = 32;

TEST(RandomPassword, Has32CharactersOfItsAlphabet) {
  for (std::size_t sample = 0; sample < kSamples; ++sample) {
    const std::string password = KioskRandomPassword();
    ASSERT_EQ(password.size(), kLength);
    ASSERT_EQ(password.find_first_not_of(kAlphabet), password.npos) << password;
    ASSERT_EQ(password.find_first_of("IOl01"), password.npos) << password;
  }
}

TEST(RandomPassword, IsNeverTheSame) {
  std::set<std::string> seen;
  for (std::size_t sample = 0; sample < kSamples; ++sample) seen.insert(KioskRandomPassword());
  EXPECT_EQ(seen.size(), kSamples);
}

/// Chi-square has a mean of 56 and a standard deviation below 11 here; characters chosen by the
/// plain remainder of a byte would bring it to about 850.
TEST(RandomPassword, FavoursNoCharacter) {
  std::map<char, double> counts;
  for (std::size_t sample = 0; sample < kSamples; ++sample) {
    for (const char c : KioskRandomPassword()) ++counts[c];
  }
  const double expected = static_cast<double>(kSamples * kLength) / kAlphabet.size();
  double chiSquare = 0;
  for (const char c : kAlphabet) {
    chiSquare += (counts[c] - expected) * (counts[c] - expected) / expected;
  }
  EXPECT_EQ(counts.size(), kAlphabet.size());
  EXPECT_LT(chiSquare, 250);
}

}  // namespace
