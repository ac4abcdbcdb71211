// The portal's own certificate authority and the certificates it signs.
#pragma once

#include <openssl/types.h>

#include <filesystem>
#include <memory>
#include <optional>
#include <string>

namespace portal {

/// A certificate and the private key that belongs to it.
struct Identity {
  std::shared_ptr<X509> certificate;
  std::shared_ptr<EVP_PKEY> key;
};

/// Makes a certificate authority (ECDSA P-256, ten years).
/// @param name its common name
/// @return nothing when OpenSSL fails
std::optional<Identity> MakeAuthority(const std::string& name);

/// Makes a certificate for localhost, 127.0.0.1 and ::1 (ECDSA P-256, 397 days).
/// @param authority who signs it
/// @return nothing when OpenSSL fails
std::optional<Identity> MakeServerIdentity(const Identity& authority);

/// Reads the authority from DIR/ca.pem and DIR/ca-key.pem; makes it when neither file exists.
/// @param dir the portal's folder
/// @param problem receives one sentence when that failed; the files are then as they were
std::optional<Identity> LoadOrMakeAuthority(const std::filesystem::path& dir, std::string& problem);

}  // namespace portal
