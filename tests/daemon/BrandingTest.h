// The world of tests of the branding: a settled terminal, and a portal that brands it.
#pragma once

#include <algorithm>
#include <string>
#include <vector>

#include "tests/daemon/BrandingPhoto.h"
#include "tests/daemon/DaemonTest.h"

inline constexpr char kCache[] = "/Library/Application Support/Brindlex/Kiosk/Branding";
inline constexpr char kAbcDigest[] =
    "ba7816bf8f01cfea414140de5dae2223b00361a396177a9cb410ff61f20015ad";

class BrandingTest : public DaemonTest {
 protected:
  using Lines = std::vector<LogLine>;

  static std::string inCache(const std::string& name) { return std::string(kCache) + "/" + name; }
  static std::string callFor(const BrandingPhoto& photo) {
    return "GET /api/kiosk/branding/photos/" + photo.digest;
  }
  std::size_t askedFor(const BrandingPhoto& photo) const {
    return portal.requests(callFor(photo)).size();
  }

  /// The portal hands out the photo.
  void serve(const BrandingPhoto& photo) {
    portal.answerText(callFor(photo), 200, photo.bytes, "image/jpeg");
  }
  void refuse(const BrandingPhoto& photo, int status) {
    portal.answerText(callFor(photo), status, "{}", "application/json");
  }
  /// From now on the portal's branding has these photos.
  void offer(const std::vector<BrandingPhoto>& photos, const std::string& name = "Acme") {
    Json entries = Json::array();
    for (const BrandingPhoto& photo : photos) entries.push_back({{"sha256", photo.digest}});
    answerEnrolled({{"branding", {{"displayName", name}, {"photos", entries}}}});
  }

  /// The lines of one check-in, which succeeds.
  Lines linesOfACheckIn() {
    if (!daemon) ADD_FAILURE() << "no daemon runs";
    const std::size_t before = mac.log().size();
    EXPECT_EQ(checkIn(), KioskCheckInOutcome::kEnrolled);
    const Lines all = mac.log();
    return {all.begin() + static_cast<std::ptrdiff_t>(before), all.end()};
  }

  /// A terminal that has cached this much.
  void becomeBranded(const std::vector<BrandingPhoto>& photos) {
    if (!daemon) startSettled();
    for (const BrandingPhoto& photo : photos) serve(photo);
    offer(photos);
    linesOfACheckIn();
    for (const BrandingPhoto& photo : photos) EXPECT_TRUE(mac.exists(inCache(photo.digest)));
  }

  /// The cache has branding.json with this projection and exactly these photos.
  void expectCached(const std::vector<BrandingPhoto>& photos, const Json& projection) const {
    std::vector<std::string> names{kBrandingJson};
    for (const BrandingPhoto& photo : photos) {
      names.push_back(photo.digest);
      EXPECT_EQ(mac.read(inCache(photo.digest)), photo.bytes);
    }
    std::ranges::sort(names);
    EXPECT_EQ(mac.list(kCache), names);
    EXPECT_EQ(mac.read(inCache(kBrandingJson)), projection.dump());
  }

  const BrandingPhoto abc{"abc", kAbcDigest};
  const BrandingPhoto sea = PhotoOf(std::string("\x89PNG\r\n\0\xff sea", 12));
  const BrandingPhoto hills = PhotoOf("hills");
};
