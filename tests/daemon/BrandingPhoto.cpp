#include "tests/daemon/BrandingPhoto.h"

#include <openssl/sha.h>

#include <array>
#include <cstdio>

BrandingPhoto PhotoOf(const std::string& bytes) {
  std::array<unsigned char, SHA256_DIGEST_LENGTH> digest{};
  SHA256(reinterpret_cast<const unsigned char*>(bytes.data()), bytes.size(), digest.data());
  BrandingPhoto photo{bytes, ""};
  for (const unsigned char byte : digest) {
    std::array<char, 3> digits{};
    std::snprintf(digits.data(), digits.size(), "%02x", byte);
    photo.digest += digits.data();
  }
  return photo;
}

BrandingPhoto LargePhoto(std::size_t size, char seed) { return PhotoOf(std::string(size, seed)); }

std::string BrandingPhoto::cachedLine() const {
  return "branding: cached photo " + shown() + " (" + std::to_string(bytes.size()) + " bytes)";
}

std::string BrandingPhoto::mismatchLine() const {
  return "branding: SECURITY: photo " + shown() + " did not match its digest; discarded";
}

std::string BrandingPhoto::failedLine(int status) const {
  return "branding: could not fetch photo " + shown() + " (HTTP " + std::to_string(status) + ")";
}

Json ProjectionOf(const std::vector<BrandingPhoto>& photos, const std::string& name) {
  Json entries = Json::array();
  for (const BrandingPhoto& photo : photos) {
    entries.push_back({{"sha256", photo.digest},
                       {"contentType", "image/jpeg"},
                       {"width", 0},
                       {"height", 0},
                       {"credit", ""}});
  }
  return {{"tenantId", ""}, {"displayName", name}, {"signInSubtitle", ""}, {"photos", entries}};
}
