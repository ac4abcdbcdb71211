// The world of tests of the branding's cache alone: a place for it in a Mac, and photos to fetch.
#pragma once

#include <map>
#include <optional>
#include <string>
#include <utility>
#include <vector>

#include "portal/KioskBranding.h"
#include "tests/daemon/BrandingPhoto.h"
#include "tests/daemon/MacTest.h"

inline constexpr char kParent[] = "/Users/Shared/kiosk";
inline constexpr char kCacheDir[] = "/Users/Shared/kiosk/Branding";
inline constexpr char kVictim[] = "/Users/Shared/victim";

/// Every test leaves as many descriptors open as it found.
class BrandingCacheTest : public MacTest {
 protected:
  using Lines = std::vector<LogLine>;

  BrandingCacheTest();
  ~BrandingCacheTest() override;

  /// One sync of the cache for root, with the photos that are `available`.
  bool apply(const std::optional<Json>& projection, uid_t uid = 0, gid_t gid = 0);
  /// A cache of these photos, which are available from now on. Journal of requests and log begin
  /// anew after it.
  void fill(const std::vector<BrandingPhoto>& photos);
  void makeAvailable(const std::vector<BrandingPhoto>& photos);

  /// What was logged since this was last asked.
  Lines newLines();
  /// The digests that were fetched since this was last asked.
  std::vector<std::string> newlyAsked() { return std::exchange(asked, {}); }

  static std::string inCache(const std::string& name) {
    return std::string(kCacheDir) + "/" + name;
  }
  /// The temporary name of a file that is being written.
  static std::string temporary(const std::string& name);
  ino_t inode(const std::string& name) const { return mac.info(inCache(name)).st_ino; }

  /// The bytes of a regular file of the cache; nothing when there is none of that name.
  std::optional<std::string> contentOf(const std::string& name) const;

  /// The cache has branding.json with this projection, exactly these photos, and these entries
  /// besides.
  void expectCached(const std::vector<BrandingPhoto>& photos, const Json& projection,
                    const std::vector<std::string>& besides = {}) const;

  const BrandingPhoto abc = PhotoOf("abc");
  const BrandingPhoto sea = PhotoOf(std::string("\x89PNG\r\n\0\xff sea", 12));
  const BrandingPhoto hills = PhotoOf("hills");
  std::map<std::string, std::string> available;  // bytes by digest
  std::vector<std::string> asked;

 private:
  std::size_t _linesSeen = 0;
  std::size_t _openBefore = 0;
};
