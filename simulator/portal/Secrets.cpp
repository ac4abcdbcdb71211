#include "simulator/portal/Secrets.h"

#include <openssl/crypto.h>
#include <openssl/evp.h>
#include <openssl/rand.h>
#include <openssl/sha.h>

#include <array>
#include <span>

namespace portal {
namespace {

/// 32 of them, so that five bits of a random byte choose one evenly.
constexpr std::string_view kCodeAlphabet = "ABCDEFGHJKLMNPQRSTUVWXYZ23456789";
static_assert(kCodeAlphabet.size() == 32);

std::string Hex(std::span<const unsigned char> bytes) {
  static constexpr std::string_view kDigits = "0123456789abcdef";
  std::string text;
  for (const unsigned char byte : bytes) {
    text += kDigits[byte >> 4U];
    text += kDigits[byte & 15U];
  }
  return text;
}

}  // namespace

std::optional<std::string> RandomHex(std::size_t bytes) {
  std::array<unsigned char, 64> random{};
  if (bytes > random.size() || RAND_bytes(random.data(), static_cast<int>(bytes)) != 1)
    return std::nullopt;
  return Hex(std::span(random).first(bytes));
}

std::optional<std::string> RandomPairingCode() {
  std::array<unsigned char, 8> random{};
  if (RAND_bytes(random.data(), static_cast<int>(random.size())) != 1) return std::nullopt;
  std::string code;
  for (const unsigned char byte : random) code += kCodeAlphabet[byte % kCodeAlphabet.size()];
  return code;
}

std::optional<std::string> Sha256Hex(std::string_view text) {
  std::array<unsigned char, SHA256_DIGEST_LENGTH> digest{};
  if (EVP_Q_digest(nullptr, "SHA256", nullptr, text.data(), text.size(), digest.data(), nullptr) !=
      1)
    return std::nullopt;
  return Hex(digest);
}

bool SameSecret(std::string_view one, std::string_view other) {
  return one.size() == other.size() && CRYPTO_memcmp(one.data(), other.data(), one.size()) == 0;
}

}  // namespace portal
