#include "platform/Crypto.h"

#include <Security/Security.h>

namespace platform {

bool CryptoRandomBytes(void* bytes, std::size_t count) {
  return SecRandomCopyBytes(kSecRandomDefault, count, bytes) == errSecSuccess;
}

}  // namespace platform
