#include "platform/Crypto.h"

#include <CommonCrypto/CommonDigest.h>
#include <Security/Security.h>
#include <string.h>

namespace platform {

bool CryptoRandomBytes(void* bytes, std::size_t count) {
  return SecRandomCopyBytes(kSecRandomDefault, count, bytes) == errSecSuccess;
}

std::array<unsigned char, 32> CryptoSha256(std::string_view bytes) {
  // A length is of 32 bits there, so a longer text goes in parts.
  constexpr std::size_t kLongestPart = std::size_t{1} << 30;
  CC_SHA256_CTX context;
  CC_SHA256_Init(&context);
  while (!bytes.empty()) {
    const std::string_view part = bytes.substr(0, kLongestPart);
    CC_SHA256_Update(&context, part.data(), static_cast<CC_LONG>(part.size()));
    bytes.remove_prefix(part.size());
  }
  std::array<unsigned char, 32> digest;
  CC_SHA256_Final(digest.data(), &context);
  return digest;
}

bool CryptoEqual(std::string_view one, std::string_view other) {
  return one.size() == other.size() && timingsafe_bcmp(one.data(), other.data(), one.size()) == 0;
}

}  // namespace platform
