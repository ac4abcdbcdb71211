// Cryptographic services. Native counterpart: the Security framework.
#pragma once

#include <cstddef>

namespace platform {

/// Fills `bytes` with `count` cryptographically secure random bytes. False when none could be had;
/// the buffer's contents are unspecified then. Any thread. Native: SecRandomCopyBytes.
[[nodiscard]] bool CryptoRandomBytes(void* bytes, std::size_t count);

}  // namespace platform
