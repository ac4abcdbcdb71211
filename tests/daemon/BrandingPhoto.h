// What the tests of the branding share: photos, and what is said of them.
#pragma once

#include <string>
#include <vector>

#include "platform/Json.h"

inline constexpr char kBrandingJson[] = "branding.json";

/// A photo of a terminal's branding.
struct BrandingPhoto {
  std::string bytes;
  std::string digest;  ///< SHA-256, 64 lower-case hexadecimal digits

  /// The digest as log lines show it.
  std::string shown() const { return digest.substr(0, 12); }
  std::string cachedLine() const;
  std::string mismatchLine() const;
  std::string failedLine(int status) const;
};

/// The photo of these bytes; the digest is not worked out by the daemon's own code.
BrandingPhoto PhotoOf(const std::string& bytes);

/// A photo of so many bytes, different ones for each `seed`.
BrandingPhoto LargePhoto(std::size_t size, char seed);

/// A projection with these photos and defaults for everything that is optional.
Json ProjectionOf(const std::vector<BrandingPhoto>& photos, const std::string& name = "Acme");
