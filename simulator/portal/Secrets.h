// Random identifiers and the digests under which tokens are kept.
#pragma once

#include <optional>
#include <string>
#include <string_view>

namespace portal {

/// Secure random bytes as lower-case hexadecimal digits.
/// @param bytes how many bytes, at most 64
/// @return nothing when the system's generator fails
std::optional<std::string> RandomHex(std::size_t bytes);

/// A pairing code: eight characters that are not mistaken for one another when read aloud.
/// @return nothing when the system's generator fails
std::optional<std::string> RandomPairingCode();

/// SHA-256 of `text` as lower-case hexadecimal digits.
/// @return nothing when OpenSSL fails
std::optional<std::string> Sha256Hex(std::string_view text);

/// Compares secrets in a time that does not depend on where they differ.
bool SameSecret(std::string_view one, std::string_view other);

}  // namespace portal
