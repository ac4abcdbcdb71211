// Branding, from the real portal to the cache on the Mac's disk.
#include <algorithm>

#include "tests/system/EnrolledTest.h"

namespace {

constexpr char kCache[] = "/Library/Application Support/Brindlex/Kiosk/Branding";
constexpr char kBrandingFile[] =
    "/Library/Application Support/Brindlex/Kiosk/Branding/branding.json";
constexpr char kPhotoPath[] = "/api/kiosk/branding/photos/";
constexpr char kCleared[] = "branding: cache cleared";
constexpr std::size_t kLargestPhoto = std::size_t{15} << 20;

using Names = std::vector<std::string>;

struct Photo {
  std::string bytes;
  std::string digest;
};

class BrandingSystemTest : public EnrolledTest {
 protected:
  void brand() const {
    portal.admin({"branding", "Lobby", "--display-name", "Brindlex Löbby", "--subtitle", "Welcome",
                  "--tenant", "tenant-7"});
  }

  /// Adds a photo to the terminal's branding.
  Photo addPhoto(const std::string& bytes) const {
    constexpr char kFile[] = "/private/tmp/photo";
    mac.write(kFile, bytes);
    portal.admin({"photo", "Lobby", "add", mac.at(kFile), "--content-type", "image/webp", "--width",
                  "640", "--height", "480", "--credit", "A friend"});
    return {bytes, RunToEnd({"/usr/bin/sha256sum", mac.at(kFile)}).output.substr(0, 64)};
  }

  static std::string inCache(const Photo& photo) {
    return std::string(kCache) + "/" + photo.digest;
  }
  static std::string shown(const Photo& photo) { return photo.digest.substr(0, 12); }

  static std::string brandingText(const std::vector<Photo>& photos) {
    Json entries = Json::array();
    for (const Photo& photo : photos) {
      entries.push_back({{"sha256", photo.digest},
                         {"contentType", "image/webp"},
                         {"width", 640},
                         {"height", 480},
                         {"credit", "A friend"}});
    }
    return Json{{"tenantId", "tenant-7"},
                {"displayName", "Brindlex Löbby"},
                {"signInSubtitle", "Welcome"},
                {"photos", entries}}
        .dump();
  }

  void expectCached(const std::vector<Photo>& photos) const {
    EXPECT_EQ(mac.modeAndOwner(kCache), "0755 0:0");
    EXPECT_EQ(mac.modeAndOwner(kBrandingFile), "0644 0:0");
    EXPECT_EQ(mac.read(kBrandingFile), brandingText(photos));
    Names names = {"branding.json"};
    for (const Photo& photo : photos) {
      names.push_back(photo.digest);
      EXPECT_EQ(mac.modeAndOwner(inCache(photo)), "0644 0:0");
      EXPECT_TRUE(mac.read(inCache(photo)) == photo.bytes) << photo.digest;
    }
    std::sort(names.begin(), names.end());
    EXPECT_EQ(mac.list(kCache), names);
  }

  const std::string hills = std::string("hills\0\xFF\r\n", 9);
};

TEST_F(BrandingSystemTest, ReachesTheCacheWithEveryByteForEverybodyToRead) {
  brand();
  const Photo first = addPhoto(hills);
  const Photo largest = addPhoto(std::string(kLargestPhoto, '\xA5'));
  checkIn();
  expectCached({first, largest});
  EXPECT_EQ(mac.countLog("branding: cached photo " + shown(first) + " (9 bytes)"), 1U);
  EXPECT_EQ(mac.countLog("branding: cached photo " + shown(largest) + " (15728640 bytes)"), 1U);

  const ino_t branding = mac.info(kBrandingFile).st_ino;
  const ino_t photo = mac.info(inCache(first)).st_ino;
  checkIn();
  EXPECT_EQ(mac.info(kBrandingFile).st_ino, branding) << "unchanged, and so not written again";
  EXPECT_EQ(mac.info(inCache(first)).st_ino, photo);
  EXPECT_EQ(mac.countLog("branding: cached photo " + shown(first) + " (9 bytes)"), 1U);
  endsByThePortalsInterface();
}

TEST_F(BrandingSystemTest, FollowsThePortalUntilItIsWithdrawn) {
  brand();
  const Photo first = addPhoto(hills);
  checkIn();
  expectCached({first});

  portal.admin({"photo", "Lobby", "remove", first.digest});
  const Photo second = addPhoto("sea");
  mac.write(std::string(kCache) + "/stray", "nobody asked for this");
  checkIn();
  expectCached({second});

  portal.admin({"branding", "Lobby", "--none"});
  checkIn();
  EXPECT_FALSE(mac.exists(kCache));
  EXPECT_EQ(mac.countLog(kCleared), 1U);
  checkIn();
  EXPECT_EQ(mac.countLog(kCleared), 1U);
  EXPECT_TRUE(kioskAccountExists());
}

TEST_F(BrandingSystemTest, IsRemovedWhenTheDeviceIsRevoked) {
  brand();
  addPhoto(hills);
  checkIn();
  ASSERT_TRUE(mac.exists(kBrandingFile));
  portal.admin({"revoke", "Lobby"});
  EXPECT_EQ(askAs(kKioskUser, {{"cmd", "unlock"}, {"password", "Open Sesame"}}),
            (Json{{"ok", false}, {"error", "not_enrolled"}}));
  EXPECT_FALSE(mac.exists(kCache));
  EXPECT_EQ(mac.countLog(kCleared), 1U);
  EXPECT_EQ(mac.list(kStateDir), Names{"state.json"});
}

TEST_F(BrandingSystemTest, LacksAPhotoThatThePortalSpoilsUntilTheNextCheckIn) {
  brand();
  const Photo photo = addPhoto(hills);
  portal.admin({"misbehave", "corrupt", "--path", kPhotoPath});
  checkIn();
  EXPECT_EQ(mac.countErrors("branding: SECURITY: photo " + shown(photo) +
                            " did not match its digest; discarded"),
            1U);
  EXPECT_EQ(mac.list(kCache), Names{"branding.json"});
  EXPECT_EQ(mac.read(kBrandingFile), brandingText({photo}));

  portal.admin({"misbehave", "status", "--status", "503", "--path", kPhotoPath});
  checkIn();
  checkIn();
  EXPECT_EQ(mac.countErrors("branding: could not fetch photo " + shown(photo) + " (HTTP 503)"), 1U)
      << "said once";
  portal.admin({"misbehave", "none"});
  checkIn();
  expectCached({photo});
}

}  // namespace
