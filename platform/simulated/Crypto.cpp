#include "platform/Crypto.h"

#include <openssl/crypto.h>
#include <openssl/rand.h>
#include <openssl/sha.h>

#include <algorithm>
#include <limits>

#include "platform/simulated/Faults.h"
#include "platform/simulated/OpenSsl.h"

namespace platform {

void OpenSslInitialize() {
  static const int started = OPENSSL_init_crypto(OPENSSL_INIT_NO_ATEXIT, nullptr);
  (void)started;  // every later call fails of itself if this one did
}

bool CryptoRandomBytes(void* bytes, std::size_t count) {
  if (TakeServiceFault("crypto.randomBytes", {std::to_string(count)})) return false;
  OpenSslInitialize();
  auto* next = static_cast<unsigned char*>(bytes);
  while (count > 0) {
    const std::size_t part = std::min<std::size_t>(count, std::numeric_limits<int>::max());
    if (RAND_bytes(next, static_cast<int>(part)) != 1) return false;
    next += part;
    count -= part;
  }
  return true;
}

std::array<unsigned char, 32> CryptoSha256(std::string_view bytes) {
  std::array<unsigned char, 32> digest;
  SHA256(reinterpret_cast<const unsigned char*>(bytes.data()), bytes.size(), digest.data());
  return digest;
}

bool CryptoEqual(std::string_view one, std::string_view other) {
  return one.size() == other.size() && CRYPTO_memcmp(one.data(), other.data(), one.size()) == 0;
}

}  // namespace platform
