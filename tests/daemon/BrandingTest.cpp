// The branding of the sign-in screen, from the check-in's answer to the copy on disk.
#include "tests/daemon/BrandingTest.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <array>
#include <filesystem>
#include <string>
#include <vector>

#include "tests/daemon/MacTest.h"

namespace {

namespace fs = std::filesystem;

constexpr char kClearedLine[] = "branding: cache cleared";
constexpr time_t kLongAgo = 1'000'000'000;

/// Makes an entry look as if it had been changed long ago, so that a change shows.
void MakeOld(const std::string& path) {
  const std::array<struct timespec, 2> times{{{kLongAgo, 0}, {kLongAgo, 0}}};
  EXPECT_EQ(utimensat(AT_FDCWD, path.c_str(), times.data(), AT_SYMLINK_NOFOLLOW), 0);
}

// --- what the portal is asked, and what is kept
// ---------------------------------------------------

TEST_F(BrandingTest, IsKeptAsThePortalHasIt) {
  startSettled();
  serve(abc);
  const Json entry = {{"sha256", kAbcDigest}, {"contentType", "image/png"}, {"width", 640},
                      {"height", 480},        {"credit", "A. Person"},      {"id", 5}};
  answerEnrolled({{"tenantId", "tenant-7"},
                  {"branding",
                   {{"displayName", "Acme Süd"},
                    {"signInSubtitle", "Welcome"},
                    {"theme", "dark"},
                    {"photos", Json::array({entry})}}}});
  EXPECT_EQ(linesOfACheckIn(),
            (Lines{{"Default", "branding: cached photo ba7816bf8f01 (3 bytes)"}}));
  EXPECT_EQ(mac.read(inCache(kBrandingJson)),
            std::string(R"({"displayName":"Acme Süd","photos":[{"contentType":"image/png",)") +
                R"("credit":"A. Person","height":480,"sha256":")" + kAbcDigest +
                R"(","width":640}],"signInSubtitle":"Welcome","tenantId":"tenant-7"})");
  EXPECT_EQ(mac.read(inCache(kAbcDigest)), "abc");
  EXPECT_EQ(mac.list(kCache), (std::vector<std::string>{kAbcDigest, kBrandingJson}));
}

TEST_F(BrandingTest, IsRootsAndEverybodyMayReadIt) {
  const mode_t before = umask(0077);
  becomeBranded({abc});
  umask(before);
  EXPECT_EQ(mac.modeAndOwner(kCache), "0755 0:0");
  EXPECT_EQ(mac.modeAndOwner(inCache(kBrandingJson)), "0644 0:0");
  EXPECT_EQ(mac.modeAndOwner(inCache(kAbcDigest)), "0644 0:0");
}

TEST_F(BrandingTest, AsksForAPhotoWithTheTokenAndOfAnyType) {
  becomeBranded({abc});
  const std::vector<PortalRequest> requests = portal.requests(callFor(abc));
  ASSERT_EQ(requests.size(), 1U);
  EXPECT_EQ(requests.front().header("authorization"), "Bearer device-token");
  EXPECT_EQ(requests.front().header("accept"), "*/*");
  EXPECT_EQ(requests.front().header("content-type"), std::nullopt);
  EXPECT_EQ(requests.front().body, "");
}

TEST_F(BrandingTest, AsksForPhotosBelowThePortalsAddress) {
  startSettled({{"authBaseUrl", portal.url() + "/kiosks"}});
  portal.answer("POST /kiosks/api/kiosk/check-in", 200,
                {{"status", "enrolled"},
                 {"branding",
                  {{"displayName", "Acme"}, {"photos", Json::array({{{"sha256", kAbcDigest}}})}}}});
  const std::string path = std::string("/kiosks/api/kiosk/branding/photos/") + kAbcDigest;
  portal.answerText("GET " + path, 200, "abc", "image/jpeg");
  linesOfACheckIn();
  EXPECT_EQ(portal.requests("GET " + path).size(), 1U);
  expectCached({abc}, ProjectionOf({abc}));
}

TEST_F(BrandingTest, TakesDefaultsForWhatThePortalLeavesOutOrGetsWrong) {
  startSettled();
  serve(abc);
  serve(hills);
  std::string upperCase = sea.digest;
  for (char& c : upperCase) c = static_cast<char>(std::toupper(c));
  answerEnrolled({{"tenantId", 7},
                  {"branding",
                   {{"displayName", "Acme"},
                    {"signInSubtitle", 5},
                    {"photos",
                     {{{"sha256", abc.digest}, {"contentType", ""}, {"width", "640"}},
                      {{"sha256", upperCase}},
                      {{"sha256", sea.digest.substr(1)}},
                      {{"sha256", abc.digest}, {"credit", "a second one"}},
                      {{"sha256", hills.digest}, {"contentType", nullptr}, {"credit", 5}},
                      hills.digest}}}}});
  EXPECT_EQ(linesOfACheckIn(),
            (Lines{{"Default", abc.cachedLine()}, {"Default", hills.cachedLine()}}));
  expectCached({abc, hills}, ProjectionOf({abc, hills}));
}

TEST_F(BrandingTest, NeedsNoPhotos) {
  startSettled();
  for (const Json& photos : {Json(), Json("none"), Json{{"sha256", kAbcDigest}}, Json::array()}) {
    answerEnrolled({{"branding", {{"displayName", "Acme"}, {"photos", photos}}}});
    EXPECT_EQ(linesOfACheckIn(), Lines{}) << photos;
    expectCached({}, ProjectionOf({}));
  }
}

TEST_F(BrandingTest, FetchesPhotosInThePortalsOrderOneAfterTheOther) {
  startSettled();
  for (const BrandingPhoto& photo : {abc, sea, hills}) serve(photo);
  bool seaWasThere = false;
  portal.whenAsked(callFor(abc), [&] { seaWasThere = mac.exists(inCache(sea.digest)); });
  offer({hills, sea, abc});
  EXPECT_EQ(linesOfACheckIn(), (Lines{{"Default", hills.cachedLine()},
                                      {"Default", sea.cachedLine()},
                                      {"Default", abc.cachedLine()}}));
  const std::vector<PortalRequest> requests = portal.requests();
  ASSERT_EQ(requests.size(), 4U);
  EXPECT_EQ("GET " + requests[1].path, callFor(hills));
  EXPECT_EQ("GET " + requests[2].path, callFor(sea));
  EXPECT_EQ("GET " + requests[3].path, callFor(abc));
  EXPECT_TRUE(seaWasThere);
  expectCached({hills, sea, abc}, ProjectionOf({hills, sea, abc}));
}

// --- following the portal
// -------------------------------------------------------------------------

TEST_F(BrandingTest, IsNeitherFetchedNorWrittenAgainWhileItStaysTheSame) {
  becomeBranded({abc, sea});
  const std::vector<std::string> paths{kCache, inCache(kBrandingJson), inCache(abc.digest),
                                       inCache(sea.digest)};
  std::vector<ino_t> inodes;
  for (const std::string& path : paths) {
    MakeOld(path);
    inodes.push_back(mac.info(path).st_ino);
  }
  for (int time = 0; time < 3; ++time) EXPECT_EQ(linesOfACheckIn(), Lines{});
  restartDaemon();
  EXPECT_EQ(linesOfACheckIn(), Lines{});
  EXPECT_EQ(askedFor(abc), 1U);
  EXPECT_EQ(askedFor(sea), 1U);
  for (std::size_t i = 0; i < paths.size(); ++i) {
    EXPECT_EQ(mac.info(paths[i]).st_mtim.tv_sec, kLongAgo) << paths[i];
    EXPECT_EQ(mac.info(paths[i]).st_ino, inodes[i]) << paths[i];
  }
}

TEST_F(BrandingTest, IsTheSameWhateverTheOrderOfThePortalsKeys) {
  startSettled();
  portal.answerText(kCheckInCall, 200,
                    R"({"status":"enrolled","branding":{"displayName":"A","signInSubtitle":"B"}})",
                    "application/json");
  linesOfACheckIn();
  const ino_t before = mac.info(inCache(kBrandingJson)).st_ino;
  portal.answerText(kCheckInCall, 200,
                    R"({"branding":{"signInSubtitle":"B","displayName":"A"},"status":"enrolled"})",
                    "application/json");
  linesOfACheckIn();
  EXPECT_EQ(mac.info(inCache(kBrandingJson)).st_ino, before);
}

TEST_F(BrandingTest, FetchesWhatIsNewAndDeletesWhatLeft) {
  becomeBranded({abc, sea});
  serve(hills);
  offer({hills, sea});
  EXPECT_EQ(linesOfACheckIn(), (Lines{{"Default", hills.cachedLine()}}));
  EXPECT_EQ(askedFor(sea), 1U);
  expectCached({hills, sea}, ProjectionOf({hills, sea}));
}

TEST_F(BrandingTest, IsWrittenAgainWhenOnlyItsTextOrOrderChanged) {
  becomeBranded({abc, sea});
  offer({abc, sea}, "Acme & Sons");
  EXPECT_EQ(linesOfACheckIn(), Lines{});
  expectCached({abc, sea}, ProjectionOf({abc, sea}, "Acme & Sons"));
  offer({sea, abc}, "Acme & Sons");
  EXPECT_EQ(linesOfACheckIn(), Lines{});
  expectCached({abc, sea}, ProjectionOf({sea, abc}, "Acme & Sons"));
  EXPECT_EQ(askedFor(abc), 1U);
}

TEST_F(BrandingTest, IsRemovedOnceWhenItIsWithdrawn) {
  const std::array<Json, 8> withdrawn{Json(),
                                      Json("Acme"),
                                      Json::array({{{"displayName", "Acme"}}}),
                                      Json::object(),
                                      Json{{"displayName", ""}},
                                      Json{{"displayName", nullptr}},
                                      Json{{"displayName", 5}},
                                      Json{{"photos", Json::array({{{"sha256", kAbcDigest}}})}}};
  for (const Json& branding : withdrawn) {
    becomeBranded({abc});
    const std::size_t requests = askedFor(abc);
    answerEnrolled({{"branding", branding}});
    EXPECT_EQ(linesOfACheckIn(), (Lines{{"Default", kClearedLine}})) << branding;
    EXPECT_FALSE(mac.exists(kCache)) << branding;
    EXPECT_EQ(linesOfACheckIn(), Lines{}) << branding;
    EXPECT_EQ(askedFor(abc), requests) << branding;
  }
}

TEST_F(BrandingTest, IsRemovedWhenTheAnswerDoesNotMentionIt) {
  becomeBranded({abc});
  answerEnrolled();
  EXPECT_EQ(linesOfACheckIn(), (Lines{{"Default", kClearedLine}}));
  EXPECT_FALSE(mac.exists(kCache));
  EXPECT_EQ(linesOfACheckIn(), Lines{});
}

TEST_F(BrandingTest, StaysWhileCheckInsFail) {
  becomeBranded({abc});
  const Json projection = ProjectionOf({abc});
  portal.answer(kCheckInCall, 500, {{"status", "enrolled"}});
  EXPECT_EQ(checkIn(), KioskCheckInOutcome::kUnreachable);
  portal.answer(kCheckInCall, 200, {{"status", "other"}, {"branding", {{"displayName", "New"}}}});
  EXPECT_EQ(checkIn(), KioskCheckInOutcome::kUnreachable);
  portal.answer(kCheckInCall, 401, {{"status", "unknown"}});
  EXPECT_EQ(checkIn(), KioskCheckInOutcome::kUnreachable);
  portal.stop();
  EXPECT_EQ(checkIn(), KioskCheckInOutcome::kUnreachable);
  expectCached({abc}, projection);
}

TEST_F(BrandingTest, IsRemovedWhenThePortalRevokesTheDevice) {
  becomeBranded({abc});
  portal.answer(kCheckInCall, 401, {{"status", "revoked"}});
  EXPECT_EQ(checkIn(), KioskCheckInOutcome::kStop);
  EXPECT_FALSE(mac.exists(kCache));
  EXPECT_EQ(mac.countLog(kClearedLine), 1U);
}

// --- what must not disturb the check-in
// -----------------------------------------------------------

TEST_F(BrandingTest, NeverFailsTheCheckIn) {
  startSettled();
  serve(abc);
  const Json branding = {{"displayName", "Acme"},
                         {"photos", Json::array({{{"sha256", kAbcDigest}}})}};
  const Json updates = {{"automatic", true}};
  answerEnrolled({{"branding", branding}, {"updates", updates}, {"exitPassword", "1234"}});
  fs::create_directory(kCache);
  ASSERT_EQ(chown(kCache, 501, 20), 0);
  EXPECT_EQ(checkIn(), KioskCheckInOutcome::kEnrolled);
  EXPECT_EQ(mac.countErrors(std::string(kCache) + " is not owned by uid 0; leaving it alone"), 1U);
  EXPECT_TRUE(mac.list(kCache).empty());
  EXPECT_EQ(askedFor(abc), 0U);
  EXPECT_EQ(mac.state()["exitPassword"], "1234");
  EXPECT_EQ(mac.state()["updates"]["automatic"], true);
}

TEST_F(BrandingTest, IsNotKeptBehindALink) {
  startSettled();
  serve(abc);
  offer({abc});
  mac.write("/Users/Shared/victim/file", "precious");
  fs::create_symlink("/Users/Shared/victim", kCache);
  const Lines refusal{{"Error", std::string("cannot open ") + kCache + ": Not a directory"}};
  EXPECT_EQ(linesOfACheckIn(), refusal);
  EXPECT_EQ(linesOfACheckIn(), refusal);
  answerEnrolled();
  EXPECT_EQ(linesOfACheckIn(), Lines{});
  EXPECT_EQ(mac.list("/Users/Shared/victim"), std::vector<std::string>{"file"});
  EXPECT_EQ(askedFor(abc), 0U);
}

TEST_F(BrandingTest, IsNotKeptBelowALink) {
  becomeBranded({abc});
  const std::string moved = ReplaceByLink(mac, kStateDir);
  const LogLine refusal{"Error", std::string("cannot open ") + kStateDir +
                                     " without following a link: Not a directory"};
  offer({abc, sea});
  EXPECT_EQ(linesOfACheckIn(), Lines{refusal});
  answerEnrolled();
  EXPECT_EQ(linesOfACheckIn(), Lines{refusal});
  EXPECT_EQ(mac.list(moved + "/Branding"), (std::vector<std::string>{kAbcDigest, kBrandingJson}));
  EXPECT_EQ(askedFor(sea), 0U);
}

}  // namespace
