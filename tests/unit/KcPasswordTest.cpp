#include <gtest/gtest.h>

#include <cstddef>
#include <cstdint>
#include <string>
#include <vector>

#include "account/KioskAutoLogin.h"

namespace {

using Bytes = std::vector<unsigned char>;

const Bytes kKey{0x7D, 0x89, 0x52, 0x23, 0xD2, 0xBC, 0xDD, 0xEA, 0xA3, 0xB9, 0x1F};
constexpr unsigned char kUntouched = 0xEE;

/// The encoded form; the buffer's guard bytes must survive.
Bytes Encoded(const std::string& password) {
  const std::size_t length = KcPasswordEncodedLength(password.size());
  Bytes out(length + 4, kUntouched);
  KcPasswordEncode(reinterpret_cast<const unsigned char*>(password.data()), password.size(),
                   out.data());
  for (std::size_t at = length; at < out.size(); ++at) EXPECT_EQ(out[at], kUntouched);
  out.resize(length);
  return out;
}

std::string Decoded(const Bytes& encoded) {
  std::string plain;
  for (std::size_t at = 0; at < encoded.size(); ++at) {
    plain += static_cast<char>(encoded[at] ^ kKey[at % 11]);
  }
  return plain;
}

/// A password of any bytes but zero.
std::string Password(std::size_t length) {
  std::string password;
  while (password.size() < length) {
    password += static_cast<char>(1 + (password.size() * 37) % 255);
  }
  return password;
}

TEST(KcPassword, HasTheNextMultipleOfTwelveBytes) {
  EXPECT_EQ(KcPasswordEncodedLength(0), 12U);
  EXPECT_EQ(KcPasswordEncodedLength(11), 12U);
  EXPECT_EQ(KcPasswordEncodedLength(12), 24U);
  EXPECT_EQ(KcPasswordEncodedLength(13), 24U);
  EXPECT_EQ(KcPasswordEncodedLength(23), 24U);
  EXPECT_EQ(KcPasswordEncodedLength(24), 36U);
  EXPECT_EQ(KcPasswordEncodedLength(32), 36U);
  for (std::uint64_t length = 0; length <= 1000; ++length) {
    std::uint64_t expected = length + 1;
    while (expected % 12 != 0) ++expected;
    EXPECT_EQ(KcPasswordEncodedLength(length), expected) << length;
  }
}

TEST(KcPassword, EncodesAnEmptyPasswordAsTheKey) {
  EXPECT_EQ(Encoded(""),
            (Bytes{0x7D, 0x89, 0x52, 0x23, 0xD2, 0xBC, 0xDD, 0xEA, 0xA3, 0xB9, 0x1F, 0x7D}));
}

TEST(KcPassword, EncodesAsTheLoginWindowDoes) {
  EXPECT_EQ(Encoded("password"),
            (Bytes{0x0D, 0xE8, 0x21, 0x50, 0xA5, 0xD3, 0xAF, 0x8E, 0xA3, 0xB9, 0x1F, 0x7D}));
  const Bytes alphabet = Encoded("abcdefghijklmnopqrstuvwxyz");
  const Bytes expected{0x1C, 0xEB, 0x31, 0x47, 0xB7, 0xDA, 0xBA, 0x82, 0xCA,
                       0xD3, 0x74, 0x11, 0xE4, 0x3C, 0x4C, 0xA2, 0xCD, 0xAF,
                       0x99, 0xD7, 0xCC, 0x69, 0x0A, 0xF1, 0x2B, 0x59};
  EXPECT_EQ(Bytes(alphabet.begin(), alphabet.begin() + 26), expected);
  EXPECT_EQ(alphabet.size(), 36U);
}

TEST(KcPassword, PadsATwelveBytePasswordByABlockOfKeyBytes) {
  const Bytes encoded = Encoded("abcdefghijkl");
  ASSERT_EQ(encoded.size(), 24U);
  for (std::size_t at = 12; at < 24; ++at) EXPECT_EQ(encoded[at], kKey[at % 11]) << at;
}

TEST(KcPassword, DecodesToThePasswordAndZeros) {
  for (std::size_t length = 0; length <= 64; ++length) {
    const std::string password = Password(length);
    const std::string plain = Decoded(Encoded(password));
    ASSERT_GT(plain.size(), length);
    EXPECT_EQ(plain, password + std::string(plain.size() - length, '\0')) << length;
  }
}

TEST(KcPassword, EncodesBytesBeyondAscii) {
  const std::string password = "gr\u00FC\u00DFe\U0001F600\xFF";
  EXPECT_EQ(Decoded(Encoded(password)).substr(0, password.size()), password);
}

}  // namespace
