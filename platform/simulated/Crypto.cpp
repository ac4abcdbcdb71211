#include "platform/Crypto.h"

#include <openssl/crypto.h>
#include <openssl/rand.h>

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

}  // namespace platform
