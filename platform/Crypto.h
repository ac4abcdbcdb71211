// Cryptographic services. Native counterparts: the Security framework, CommonCrypto.
#pragma once

#include <array>
#include <cstddef>
#include <string_view>

namespace platform {

/// Fills `bytes` with `count` cryptographically secure random bytes. False when none could be had;
/// the buffer's contents are unspecified then. Any thread. Native: SecRandomCopyBytes.
[[nodiscard]] bool CryptoRandomBytes(void* bytes, std::size_t count);

/// The SHA-256 digest (FIPS 180-4) of `bytes`. Any thread. Native: CC_SHA256_Init, _Update, _Final.
std::array<unsigned char, 32> CryptoSha256(std::string_view bytes);

/// Whether two texts are equal, in a time that depends on their lengths alone. Any thread.
/// Native: timingsafe_bcmp.
[[nodiscard]] bool CryptoEqual(std::string_view one, std::string_view other);

}  // namespace platform
