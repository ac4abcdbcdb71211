// The branding's cache: made, filled, kept and pruned.
#include "tests/daemon/BrandingCacheTest.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <filesystem>
#include <utility>

#include "tests/daemon/FileTrouble.h"

namespace fs = std::filesystem;

BrandingCacheTest::BrandingCacheTest() {
  fs::create_directory(kParent);
  _openBefore = OpenDescriptorCount();
}

BrandingCacheTest::~BrandingCacheTest() { EXPECT_EQ(OpenDescriptorCount(), _openBefore); }

bool BrandingCacheTest::apply(const std::optional<Json>& projection, uid_t uid, gid_t gid) {
  const auto fetch = [this](const std::string& digest) -> std::optional<std::string> {
    asked.push_back(digest);
    const auto found = available.find(digest);
    if (found == available.end()) return std::nullopt;
    return found->second;
  };
  return KioskBrandingApply(kCacheDir, projection, fetch, uid, gid);
}

void BrandingCacheTest::makeAvailable(const std::vector<BrandingPhoto>& photos) {
  for (const BrandingPhoto& photo : photos) available[photo.digest] = photo.bytes;
}

void BrandingCacheTest::fill(const std::vector<BrandingPhoto>& photos) {
  makeAvailable(photos);
  ASSERT_TRUE(apply(ProjectionOf(photos)));
  newlyAsked();
  newLines();
}

BrandingCacheTest::Lines BrandingCacheTest::newLines() {
  const Lines all = mac.log();
  const auto first = static_cast<std::ptrdiff_t>(std::exchange(_linesSeen, all.size()));
  return {all.begin() + first, all.end()};
}

std::string BrandingCacheTest::temporary(const std::string& name) {
  return "." + name + ".tmp." + std::to_string(getpid());
}

void BrandingCacheTest::expectCached(const std::vector<BrandingPhoto>& photos,
                                     const Json& projection,
                                     const std::vector<std::string>& besides) const {
  std::vector<std::string> names{kBrandingJson};
  names.insert(names.end(), besides.begin(), besides.end());
  for (const BrandingPhoto& photo : photos) {
    names.push_back(photo.digest);
    EXPECT_EQ(contentOf(photo.digest), photo.bytes);
  }
  std::ranges::sort(names);
  EXPECT_EQ(mac.list(kCacheDir), names);
  EXPECT_EQ(contentOf(kBrandingJson), projection.dump());
}

// Only of regular files: reading a pipe would never end.
std::optional<std::string> BrandingCacheTest::contentOf(const std::string& name) const {
  if (!S_ISREG(mac.info(inCache(name)).st_mode)) return std::nullopt;
  return mac.read(inCache(name));
}

namespace {

/// A projection whose JSON text has exactly so many bytes.
Json ProjectionOfSize(std::size_t size) {
  Json projection = ProjectionOf({});
  const std::size_t rest = projection.dump().size() - std::string("Acme").size();
  projection["displayName"] = std::string(size - rest, 'n');
  return projection;
}

}  // namespace

// --- the directory
// --------------------------------------------------------------------------------

TEST_F(BrandingCacheTest, IsMadeForItsOwnerWhateverTheMask) {
  makeAvailable({abc});
  const mode_t before = umask(0077);
  EXPECT_TRUE(apply(ProjectionOf({abc}), kUser, kStaff));
  umask(before);
  expectCached({abc}, ProjectionOf({abc}));
  EXPECT_EQ(mac.modeAndOwner(kCacheDir), "0755 501:20");
  EXPECT_EQ(mac.modeAndOwner(inCache(abc.digest)), "0644 501:20");
  EXPECT_EQ(mac.modeAndOwner(inCache(kBrandingJson)), "0644 501:20");
  EXPECT_EQ(newLines(), (Lines{{"Default", abc.cachedLine()}}));
}

TEST_F(BrandingCacheTest, KeepsTheGroupOfADirectoryThatIsThere) {
  fs::create_directory(kCacheDir);
  ASSERT_EQ(chown(kCacheDir, 0, kStaff), 0);
  EXPECT_TRUE(apply(ProjectionOf({})));
  EXPECT_EQ(mac.modeAndOwner(kCacheDir), "0755 0:20");
  EXPECT_EQ(mac.modeAndOwner(inCache(kBrandingJson)), "0644 0:0");
}

TEST_F(BrandingCacheTest, RepairsTheModeOfTheDirectory) {
  fill({abc});
  for (const mode_t mode : {0700U, 0777U, 0000U, 01755U, 02755U, 0754U}) {
    ASSERT_EQ(chmod(kCacheDir, mode), 0);
    EXPECT_TRUE(apply(ProjectionOf({abc})));
    EXPECT_EQ(mac.modeAndOwner(kCacheDir), "0755 0:0") << std::oct << mode;
  }
  EXPECT_EQ(newLines(), Lines{});
}

TEST_F(BrandingCacheTest, LeavesADirectoryOfSomebodyElseAlone) {
  fill({abc});
  mac.write(inCache("stray"), "theirs");
  ASSERT_EQ(chown(kCacheDir, kUser, 0), 0);
  ASSERT_EQ(chmod(kCacheDir, 0700), 0);
  makeAvailable({sea});
  const Lines refusal{
      {"Error", std::string(kCacheDir) + " is not owned by uid 0; leaving it alone"}};
  for (int time = 0; time < 2; ++time) {
    EXPECT_FALSE(apply(ProjectionOf({sea}, "Other")));
    EXPECT_EQ(newLines(), refusal);
  }
  EXPECT_EQ(newlyAsked(), std::vector<std::string>{});
  expectCached({abc}, ProjectionOf({abc}), {"stray"});
  EXPECT_EQ(mac.modeAndOwner(kCacheDir), "0700 501:0");
}

TEST_F(BrandingCacheTest, LeavesRootsDirectoryAloneForAnotherOwner) {
  fs::create_directory(kCacheDir);
  EXPECT_FALSE(apply(ProjectionOf({}), kUser, kStaff));
  EXPECT_FALSE(apply(ProjectionOf({}), 4'294'967'294, kStaff));
  EXPECT_EQ(newLines(),
            (Lines{{"Error", std::string(kCacheDir) + " is not owned by uid 501; leaving it alone"},
                   {"Error", std::string(kCacheDir) +
                                 " is not owned by uid 4294967294; leaving it alone"}}));
  EXPECT_TRUE(mac.list(kCacheDir).empty());
}

TEST_F(BrandingCacheTest, LeavesADirectoryAloneThatItCannotGiveToItsOwner) {
  ASSERT_EQ(chown(kParent, kUser, kStaff), 0);
  {
    const AsUser user;
    EXPECT_FALSE(apply(ProjectionOf({})));
  }
  EXPECT_EQ(
      newLines(),
      (Lines{{"Error", std::string(kCacheDir) + " is not owned by uid 0; leaving it alone"}}));
  EXPECT_TRUE(mac.list(kCacheDir).empty());
}

TEST_F(BrandingCacheTest, SaysNothingOfADirectoryThatCannotBeMade) {
  {
    const AsUser user;
    EXPECT_FALSE(apply(ProjectionOf({abc})));
  }
  EXPECT_EQ(newLines(), Lines{});
  EXPECT_EQ(newlyAsked(), std::vector<std::string>{});
  EXPECT_FALSE(mac.exists(kCacheDir));
}

TEST_F(BrandingCacheTest, IsOpenOnceAndClosedForChildrenDuringAFetch) {
  const std::size_t before = OpenDescriptorCount();
  const auto look = [&](const std::string&) -> std::optional<std::string> {
    EXPECT_EQ(OpenDescriptorCount(), before + 1) << "the parent is closed by now";
    struct stat info = {};
    for (int each = STDERR_FILENO + 1; each < 256; ++each) {
      if (fstat(each, &info) != 0 || info.st_ino != mac.info(kCacheDir).st_ino) continue;
      EXPECT_EQ(fcntl(each, F_GETFD), FD_CLOEXEC);
    }
    return std::nullopt;
  };
  EXPECT_FALSE(KioskBrandingApply(kCacheDir, ProjectionOf({abc}), look, 0, 0));
}

// --- photos
// ---------------------------------------------------------------------------------------

TEST_F(BrandingCacheTest, FetchesMissingPhotosInOrderAndEachOnce) {
  makeAvailable({abc, sea, hills});
  EXPECT_TRUE(apply(ProjectionOf({hills, abc})));
  EXPECT_EQ(newlyAsked(), (std::vector<std::string>{hills.digest, abc.digest}));
  EXPECT_EQ(newLines(), (Lines{{"Default", hills.cachedLine()}, {"Default", abc.cachedLine()}}));
  EXPECT_TRUE(apply(ProjectionOf({abc, sea, hills})));
  EXPECT_EQ(newlyAsked(), (std::vector<std::string>{sea.digest}));
  EXPECT_TRUE(apply(ProjectionOf({abc, sea, hills})));
  EXPECT_EQ(newlyAsked(), std::vector<std::string>{});
  expectCached({abc, sea, hills}, ProjectionOf({abc, sea, hills}));
}

TEST_F(BrandingCacheTest, IsIncompleteUntilEveryPhotoIsThere) {
  makeAvailable({abc, hills});
  EXPECT_FALSE(apply(ProjectionOf({abc, sea, hills})));
  expectCached({abc, hills}, ProjectionOf({abc, sea, hills}));
  makeAvailable({sea});
  EXPECT_TRUE(apply(ProjectionOf({abc, sea, hills})));
  expectCached({abc, sea, hills}, ProjectionOf({abc, sea, hills}));
}

TEST_F(BrandingCacheTest, DiscardsAPhotoOfAnotherDigestAndGoesOn) {
  makeAvailable({hills});
  available[abc.digest] = sea.bytes;
  EXPECT_FALSE(apply(ProjectionOf({abc, hills})));
  EXPECT_EQ(newLines(), (Lines{{"Error",
                                "branding: SECURITY: photo ba7816bf8f01 did not match its digest; "
                                "discarded"},
                               {"Default", hills.cachedLine()}}));
  expectCached({hills}, ProjectionOf({abc, hills}));
}

TEST_F(BrandingCacheTest, KeepsAPhotosBytesAsTheyAre) {
  const BrandingPhoto large = LargePhoto(3'000'000, '\0');
  const BrandingPhoto nothing = PhotoOf("");
  makeAvailable({large, nothing, sea});
  EXPECT_TRUE(apply(ProjectionOf({large, nothing, sea})));
  EXPECT_EQ(newLines(), (Lines{{"Default", large.cachedLine()},
                               {"Default", nothing.cachedLine()},
                               {"Default", sea.cachedLine()}}));
  expectCached({large, nothing, sea}, ProjectionOf({large, nothing, sea}));
}

TEST_F(BrandingCacheTest, TrustsARegularFileOfAPhotosName) {
  fs::create_directory(kCacheDir);
  mac.write(inCache(abc.digest), "not abc", 0600);
  ASSERT_EQ(chown(inCache(abc.digest).c_str(), kUser, kStaff), 0);
  EXPECT_TRUE(apply(ProjectionOf({abc})));
  EXPECT_EQ(newlyAsked(), std::vector<std::string>{});
  EXPECT_EQ(mac.read(inCache(abc.digest)), "not abc");
  EXPECT_EQ(mac.modeAndOwner(inCache(abc.digest)), "0600 501:20");
}

TEST_F(BrandingCacheTest, WritesTheJsonAfterThePhotosAndDeletesLast) {
  fill({abc});
  mac.write(inCache("stray"), "");
  const auto look = [&](const std::string&) -> std::optional<std::string> {
    expectCached({abc}, ProjectionOf({abc}), {"stray"});
    return sea.bytes;
  };
  EXPECT_TRUE(KioskBrandingApply(kCacheDir, ProjectionOf({sea}), look, 0, 0));
  expectCached({sea}, ProjectionOf({sea}));
}

// --- branding.json
// --------------------------------------------------------------------------------

TEST_F(BrandingCacheTest, IsCompactJsonWithSortedKeys) {
  EXPECT_TRUE(apply(ProjectionOf({}, "A \"b\"")));
  EXPECT_EQ(mac.read(inCache(kBrandingJson)),
            R"({"displayName":"A \"b\"","photos":[],"signInSubtitle":"","tenantId":""})");
}

TEST_F(BrandingCacheTest, LeavesAFileOfTheSameBytesAsItIs) {
  fill({});
  ASSERT_EQ(chmod(inCache(kBrandingJson).c_str(), 0600), 0);
  const ino_t before = inode(kBrandingJson);
  EXPECT_TRUE(apply(ProjectionOf({})));
  EXPECT_EQ(inode(kBrandingJson), before);
  EXPECT_EQ(mac.modeAndOwner(inCache(kBrandingJson)), "0600 0:0");
}

TEST_F(BrandingCacheTest, ReplacesAFileOfOtherBytes) {
  const std::string text = ProjectionOf({}).dump();
  for (const std::string& other : {std::string(), text + "\n", text.substr(1), std::string("{"),
                                   ProjectionOf({}).dump(1), text + std::string(1, '\0')}) {
    fill({});
    mac.write(inCache(kBrandingJson), other, 0600);
    const ino_t before = inode(kBrandingJson);
    EXPECT_TRUE(apply(ProjectionOf({})));
    EXPECT_NE(inode(kBrandingJson), before) << other;
    EXPECT_EQ(mac.modeAndOwner(inCache(kBrandingJson)), "0644 0:0");
    expectCached({}, ProjectionOf({}));
  }
}

TEST_F(BrandingCacheTest, ComparesAFileOfAMebibyteAndNoLargerOne) {
  constexpr std::size_t mebibyte = 1'048'576;
  for (const auto& [size, kept] : {std::pair{mebibyte, true}, std::pair{mebibyte + 1, false}}) {
    const Json projection = ProjectionOfSize(size);
    ASSERT_EQ(projection.dump().size(), size);
    ASSERT_TRUE(apply(projection));
    const ino_t before = inode(kBrandingJson);
    EXPECT_TRUE(apply(projection));
    EXPECT_EQ(inode(kBrandingJson) == before, kept) << size;
    expectCached({}, projection);
  }
}

TEST_F(BrandingCacheTest, ReplacesAHugeFileWithoutReadingIt) {
  fill({});
  fs::resize_file(inCache(kBrandingJson), std::uintmax_t{1} << 36);
  EXPECT_TRUE(apply(ProjectionOf({})));
  expectCached({}, ProjectionOf({}));
}

TEST_F(BrandingCacheTest, KeepsTheOldFileWhenTheProjectionIsNoText) {
  fill({abc});
  mac.write(inCache("stray"), "");
  makeAvailable({sea});
  EXPECT_FALSE(apply(ProjectionOf({sea}, "Acme \xff")));
  EXPECT_EQ(newLines(), (Lines{{"Default", sea.cachedLine()}}));
  expectCached({sea}, ProjectionOf({abc}));
}

TEST_F(BrandingCacheTest, WritesNoFileWhenTheProjectionIsNoText) {
  EXPECT_FALSE(apply(ProjectionOf({}, "\xc3")));
  EXPECT_TRUE(mac.list(kCacheDir).empty());
  EXPECT_EQ(newLines(), Lines{});
}

// --- clearing
// -------------------------------------------------------------------------------------

TEST_F(BrandingCacheTest, IsClearedWithoutAProjection) {
  fill({abc, sea});
  EXPECT_TRUE(apply(std::nullopt));
  EXPECT_FALSE(mac.exists(kCacheDir));
  EXPECT_EQ(newLines(), (Lines{{"Default", "branding: cache cleared"}}));
  EXPECT_TRUE(apply(std::nullopt));
  EXPECT_EQ(newLines(), Lines{});
  EXPECT_EQ(newlyAsked(), std::vector<std::string>{});
}

TEST_F(BrandingCacheTest, IsClearedOfEverythingInIt) {
  fill({abc});
  mac.write("/Users/Shared/target", "precious");
  fs::create_symlink("/Users/Shared/target", inCache("link"));
  ASSERT_EQ(mkfifo(inCache("pipe").c_str(), 0644), 0);
  mac.write(inCache(".hidden"), "");
  KioskBrandingClear(kCacheDir);
  EXPECT_FALSE(mac.exists(kCacheDir));
  EXPECT_EQ(mac.read("/Users/Shared/target"), "precious");
  EXPECT_EQ(newLines(), (Lines{{"Default", "branding: cache cleared"}}));
}

TEST_F(BrandingCacheTest, SaysNothingWhenThereIsNothingToClear) {
  KioskBrandingClear(kCacheDir);
  EXPECT_EQ(newLines(), Lines{});
  mac.write(kCacheDir, "a file");
  KioskBrandingClear(kCacheDir);
  EXPECT_EQ(newLines(), Lines{});
  EXPECT_EQ(mac.read(kCacheDir), "a file");
}

TEST_F(BrandingCacheTest, ClearsTheFilesBesideADirectoryThatStays) {
  fill({abc});
  mac.write(inCache("directory/file"), "theirs");
  EXPECT_TRUE(apply(std::nullopt));
  EXPECT_EQ(mac.list(kCacheDir), std::vector<std::string>{"directory"});
  EXPECT_EQ(mac.read(inCache("directory/file")), "theirs");
  EXPECT_EQ(newLines(), Lines{});
}

TEST_F(BrandingCacheTest, ClearsNothingBehindOrBelowALink) {
  fill({abc});
  const std::string moved = ReplaceByLink(mac, kCacheDir);
  EXPECT_TRUE(apply(std::nullopt));
  EXPECT_EQ(newLines(), Lines{});
  EXPECT_TRUE(fs::is_symlink(kCacheDir));
  EXPECT_EQ(mac.list(moved).size(), 2U);
  mac.remove(kCacheDir);
  fs::rename(moved, kCacheDir);
  const std::string movedParent = ReplaceByLink(mac, kParent);
  EXPECT_TRUE(apply(std::nullopt));
  EXPECT_EQ(newLines(), (Lines{{"Error", std::string("cannot open ") + kParent +
                                             " without following a link: Not a directory"}}));
  EXPECT_EQ(mac.list(movedParent + "/Branding").size(), 2U);
}
