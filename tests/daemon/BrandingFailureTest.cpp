// The branding's cache among intruders, on bad disks and killed in its work.
#include <fcntl.h>
#include <sys/prctl.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include <array>
#include <chrono>
#include <csignal>
#include <filesystem>
#include <random>
#include <thread>

#include "tests/daemon/BrandingCacheTest.h"
#include "tests/daemon/FileTrouble.h"

namespace {

namespace fs = std::filesystem;

constexpr char kPrecious[] = "precious";

class BrandingFailure : public BrandingCacheTest {
 protected:
  BrandingFailure() { mac.write(kVictim, kPrecious); }
  ~BrandingFailure() override { EXPECT_EQ(mac.read(kVictim), kPrecious); }

  static std::string cannotOpen() {
    return std::string("cannot open ") + kCacheDir + ": Not a directory";
  }
};

}  // namespace

// --- in the directory's place
// ---------------------------------------------------------------------

TEST_F(BrandingFailure, IsNotKeptBehindALink) {
  makeAvailable({abc});
  fs::create_directory(std::string(kVictim) + "s");
  fs::create_symlink(std::string(kVictim) + "s", kCacheDir);
  EXPECT_FALSE(apply(ProjectionOf({abc})));
  EXPECT_EQ(newLines(), (Lines{{"Error", cannotOpen()}}));
  EXPECT_EQ(newlyAsked(), std::vector<std::string>{});
  EXPECT_TRUE(mac.list(std::string(kVictim) + "s").empty());
  EXPECT_TRUE(fs::is_symlink(kCacheDir));
}

TEST_F(BrandingFailure, IsNotKeptBehindALinkToNowhere) {
  fs::create_symlink("/Users/Shared/nowhere", kCacheDir);
  EXPECT_FALSE(apply(ProjectionOf({})));
  EXPECT_EQ(newLines(), (Lines{{"Error", cannotOpen()}}));
  EXPECT_FALSE(mac.exists("/Users/Shared/nowhere"));
}

TEST_F(BrandingFailure, IsNotKeptWhereAFileOrAPipeIs) {
  mac.write(kCacheDir, "a file");
  EXPECT_FALSE(apply(ProjectionOf({})));
  EXPECT_EQ(newLines(), (Lines{{"Error", cannotOpen()}}));
  EXPECT_EQ(mac.read(kCacheDir), "a file");
  mac.remove(kCacheDir);
  ASSERT_EQ(mkfifo(kCacheDir, 0644), 0);
  EXPECT_FALSE(apply(ProjectionOf({})));
  EXPECT_EQ(newLines(), (Lines{{"Error", cannotOpen()}}));
}

TEST_F(BrandingFailure, IsNotKeptBelowALink) {
  makeAvailable({abc});
  const std::string moved = ReplaceByLink(mac, kParent);
  EXPECT_FALSE(apply(ProjectionOf({abc})));
  EXPECT_EQ(newLines(), (Lines{{"Error", std::string("cannot open ") + kParent +
                                             " without following a link: Not a directory"}}));
  EXPECT_EQ(newlyAsked(), std::vector<std::string>{});
  EXPECT_TRUE(mac.list(moved).empty());
}

TEST_F(BrandingFailure, IsNotKeptWhereThereIsNoPlaceForIt) {
  fs::remove(kParent);
  EXPECT_FALSE(apply(ProjectionOf({})));
  EXPECT_EQ(newLines(),
            (Lines{{"Error", std::string("cannot open ") + kParent +
                                 " without following a link: No such file or directory"}}));
  EXPECT_FALSE(mac.exists(kParent));
}

TEST_F(BrandingFailure, StaysInItsDirectoryWhenALinkTakesThePlaceDuringAFetch) {
  fs::create_directory(std::string(kVictim) + "s");
  mac.write(std::string(kVictim) + "s/file", "theirs");
  const auto swap = [&](const std::string&) -> std::optional<std::string> {
    fs::rename(kCacheDir, "/Users/Shared/moved");
    fs::create_symlink(std::string(kVictim) + "s", kCacheDir);
    return abc.bytes;
  };
  KioskBrandingApply(kCacheDir, ProjectionOf({abc}), swap, 0, 0);
  EXPECT_EQ(mac.list(std::string(kVictim) + "s"), std::vector<std::string>{"file"});
  EXPECT_EQ(mac.read("/Users/Shared/moved/" + abc.digest), abc.bytes);
}

// --- among the entries
// ----------------------------------------------------------------------------

TEST_F(BrandingFailure, DeletesEverythingThatIsNotListed) {
  fill({abc, sea});
  const std::string other = abc.digest.substr(1) + "0";
  for (const std::string& name :
       {std::string("stray"), std::string(".hidden"), std::string("..."), other,
        std::string("BRANDING.JSON"), std::string(".branding.json.tmp.4711"),
        temporary(kBrandingJson), "." + abc.digest + ".tmp.1", abc.digest + " "}) {
    mac.write(inCache(name), "x");
  }
  fs::create_symlink(kVictim, inCache("link"));
  fs::create_symlink("/nowhere", inCache("dangling"));
  fs::create_symlink(kParent, inCache("parent"));
  ASSERT_EQ(mkfifo(inCache("pipe").c_str(), 0644), 0);
  const std::array<ino_t, 2> before{inode(abc.digest), inode(kBrandingJson)};
  EXPECT_TRUE(apply(ProjectionOf({abc, sea})));
  expectCached({abc, sea}, ProjectionOf({abc, sea}));
  EXPECT_EQ((std::array<ino_t, 2>{inode(abc.digest), inode(kBrandingJson)}), before);
  EXPECT_EQ(newLines(), Lines{});
}

TEST_F(BrandingFailure, DeletesAThousandStrayFiles) {
  fill({abc});
  for (int i = 0; i < 1000; ++i) mac.write(inCache("stray" + std::to_string(i)), "");
  EXPECT_TRUE(apply(ProjectionOf({abc})));
  expectCached({abc}, ProjectionOf({abc}));
}

TEST_F(BrandingFailure, LeavesADirectoryAmongTheEntriesAndDeletesTheOthers) {
  fill({abc});
  mac.write(inCache("a-directory/file"), "theirs");
  fs::create_directory(inCache("z-directory"));
  mac.write(inCache("middle"), "");
  EXPECT_TRUE(apply(ProjectionOf({abc})));
  expectCached({abc}, ProjectionOf({abc}), {"a-directory", "z-directory"});
  EXPECT_EQ(mac.read(inCache("a-directory/file")), "theirs");
  EXPECT_EQ(newLines(), Lines{});
}

TEST_F(BrandingFailure, DoesNotTakeALinkForAPhoto) {
  mac.write("/Users/Shared/photo", abc.bytes);
  for (const char* target : {kVictim, "/Users/Shared/photo", "/nowhere"}) {
    mac.remove(kCacheDir);
    fs::create_directory(kCacheDir);
    fs::create_symlink(target, inCache(abc.digest));
    makeAvailable({abc});
    EXPECT_TRUE(apply(ProjectionOf({abc})));
    EXPECT_EQ(newlyAsked(), std::vector<std::string>{abc.digest}) << target;
    expectCached({abc}, ProjectionOf({abc}));
    EXPECT_EQ(mac.modeAndOwner(inCache(abc.digest)), "0644 0:0");
  }
}

TEST_F(BrandingFailure, DoesNotWriteThroughALinkInAPhotosPlace) {
  fs::create_directory(kCacheDir);
  fs::create_symlink(kVictim, inCache(abc.digest));
  EXPECT_FALSE(apply(ProjectionOf({abc})));
  available[abc.digest] = sea.bytes;
  EXPECT_FALSE(apply(ProjectionOf({abc})));
  EXPECT_EQ(newLines(), (Lines{{"Error", abc.mismatchLine()}}));
  EXPECT_FALSE(S_ISREG(mac.info(inCache(abc.digest)).st_mode));
}

TEST_F(BrandingFailure, ReplacesAPipeInAPhotosOrTheJsonsPlace) {
  fs::create_directory(kCacheDir);
  ASSERT_EQ(mkfifo(inCache(abc.digest).c_str(), 0644), 0);
  ASSERT_EQ(mkfifo(inCache(kBrandingJson).c_str(), 0644), 0);
  makeAvailable({abc});
  EXPECT_TRUE(apply(ProjectionOf({abc})));
  expectCached({abc}, ProjectionOf({abc}));
}

TEST_F(BrandingFailure, ReplacesALinkInTheJsonsPlaceEvenToTheSameBytes) {
  const std::string twin = "/Users/Shared/twin";
  mac.write(twin, ProjectionOf({}).dump());
  for (const std::string& target : {twin, std::string(kVictim), std::string("/nowhere")}) {
    mac.remove(kCacheDir);
    fs::create_directory(kCacheDir);
    fs::create_symlink(target, inCache(kBrandingJson));
    EXPECT_TRUE(apply(ProjectionOf({})));
    expectCached({}, ProjectionOf({}));
    EXPECT_EQ(mac.modeAndOwner(inCache(kBrandingJson)), "0644 0:0");
  }
  EXPECT_EQ(mac.read(twin), ProjectionOf({}).dump());
  EXPECT_FALSE(mac.exists("/nowhere"));
}

TEST_F(BrandingFailure, LeavesADirectoryInAPhotosPlace) {
  fill({sea});
  mac.write(inCache(abc.digest) + "/file", "theirs");
  mac.write(inCache("stray"), "");
  makeAvailable({abc, hills});
  EXPECT_FALSE(apply(ProjectionOf({abc, hills})));
  EXPECT_EQ(newlyAsked(), (std::vector<std::string>{abc.digest, hills.digest}));
  EXPECT_EQ(newLines(), (Lines{{"Error", "cannot write " + abc.digest + ": Is a directory"},
                               {"Default", hills.cachedLine()}}));
  expectCached({hills}, ProjectionOf({abc, hills}), {abc.digest});
  EXPECT_EQ(mac.read(inCache(abc.digest) + "/file"), "theirs");
}

TEST_F(BrandingFailure, LeavesADirectoryInTheJsonsPlace) {
  fs::create_directories(inCache(kBrandingJson));
  mac.write(inCache("stray"), "");
  makeAvailable({abc});
  EXPECT_FALSE(apply(ProjectionOf({abc})));
  EXPECT_EQ(newLines(), (Lines{{"Default", abc.cachedLine()},
                               {"Error", "cannot write branding.json: Is a directory"}}));
  EXPECT_EQ(mac.list(kCacheDir), (std::vector<std::string>{abc.digest, kBrandingJson}));
  EXPECT_EQ(mac.read(inCache(abc.digest)), abc.bytes);
}

// --- disks
// ----------------------------------------------------------------------------------------

namespace {

/// The cache's directory is a small disk.
class BrandingDisk : private OwnMounts, public BrandingFailure {
 protected:
  void SetUp() override {
    if (!permitted) GTEST_SKIP() << "mounting is not permitted here";
    fs::create_directory(kCacheDir);
    ASSERT_TRUE(disk.mountAt(kCacheDir));
  }

  SmallDisk disk;
};

}  // namespace

TEST_F(BrandingDisk, KeepsWhatIsThereWhenItIsFullAndGoesOnWhenThereIsRoom) {
  fill({abc});
  mac.write(inCache("filling"), std::string(16384, 'f'));
  makeAvailable({sea});
  const Json projection = ProjectionOf({abc, sea});
  EXPECT_FALSE(apply(projection));
  EXPECT_EQ(newLines(),
            (Lines{{"Error", "cannot write " + sea.digest + ": No space left on device"},
                   {"Error", "cannot write branding.json: No space left on device"}}));
  expectCached({abc}, ProjectionOf({abc}));
  EXPECT_TRUE(apply(projection));
  expectCached({abc, sea}, projection);
}

TEST_F(BrandingDisk, KeepsNoPartOfAPhotoThatIsTooLarge) {
  const BrandingPhoto large = LargePhoto(20'000, 'l');
  makeAvailable({large, abc});
  EXPECT_FALSE(apply(ProjectionOf({large, abc})));
  EXPECT_EQ(newLines(),
            (Lines{{"Error", "cannot write " + large.digest + ": No space left on device"},
                   {"Default", abc.cachedLine()}}));
  expectCached({abc}, ProjectionOf({large, abc}));
}

TEST_F(BrandingDisk, KeepsWhatIsThereWhenItCanOnlyBeRead) {
  fill({abc});
  mac.write(inCache("stray"), "");
  ASSERT_EQ(chmod(kCacheDir, 0700), 0);
  ASSERT_TRUE(disk.makeReadOnly());
  makeAvailable({sea});
  EXPECT_FALSE(apply(ProjectionOf({abc, sea})));
  EXPECT_EQ(newlyAsked(), std::vector<std::string>{sea.digest});
  EXPECT_EQ(
      newLines(),
      (Lines{{"Error", "cannot create " + temporary(sea.digest) + ": Read-only file system"},
             {"Error", "cannot create " + temporary(kBrandingJson) + ": Read-only file system"}}));
  EXPECT_TRUE(apply(ProjectionOf({abc}))) << "what is complete needs no writing";
  EXPECT_TRUE(apply(std::nullopt));
  EXPECT_EQ(newLines(), Lines{});
  expectCached({abc}, ProjectionOf({abc}), {"stray"});
}

TEST_F(BrandingFailure, KeepsNoPartOfAFileWhenAWriteIsCutShort) {
  fill({abc});
  const BrandingPhoto large = LargePhoto(5000, 'l');
  makeAvailable({large});
  {
    const FileSizeLimit limit(4096);
    EXPECT_FALSE(apply(ProjectionOf({abc, large})));
  }
  EXPECT_EQ(newLines(),
            (Lines{{"Error", "cannot write " + large.digest + ": No space left on device"}}));
  expectCached({abc}, ProjectionOf({abc, large}));
}

// --- killed
// ---------------------------------------------------------------------------------------

namespace {

/// A process that syncs without end, and is killed.
class BrandingCrash : public BrandingFailure {
 protected:
  BrandingCrash() {
    // Thousands of syncs have nothing to say; their errors would show.
    mac.write("/private/var/simulated/logging.json", R"({"Default": false})");
    makeAvailable({one, two, three});
  }

  /// Starts the process; it has begun when this returns.
  pid_t startSyncs() {
    std::array<int, 2> ends{};
    EXPECT_EQ(pipe2(ends.data(), O_CLOEXEC), 0);
    const pid_t test = getpid();
    const pid_t child = fork();
    if (child == 0) syncForEver(test, ends[1]);
    close(ends[1]);
    char byte = 0;
    EXPECT_EQ(read(ends[0], &byte, 1), 1);
    close(ends[0]);
    return child;
  }

  static void endAbruptly(pid_t child) {
    ASSERT_GT(child, 1);
    kill(child, SIGKILL);
    int status = 0;
    ASSERT_EQ(waitpid(child, &status, 0), child);
    EXPECT_TRUE(WIFSIGNALED(status)) << "it ended by itself";
  }

  /// Every file under its final name is whole; what is besides is temporary.
  void expectWhole() const {
    if (!mac.exists(kCacheDir)) return;
    for (const std::string& name : mac.list(kCacheDir)) {
      const std::string content = mac.read(inCache(name));
      if (name == kBrandingJson) {
        EXPECT_TRUE(content == first.dump() || content == second.dump()) << content;
      } else if (!name.starts_with(".")) {
        EXPECT_EQ(PhotoOf(content).digest, name);
        EXPECT_EQ(mac.modeAndOwner(inCache(name)), "0644 0:0");
      } else {
        EXPECT_NE(name.find(".tmp."), std::string::npos) << name;
      }
    }
  }

  const BrandingPhoto one = LargePhoto(70'000, '1');
  const BrandingPhoto two = LargePhoto(150'000, '2');
  const BrandingPhoto three = LargePhoto(10'000, '3');
  const Json first = ProjectionOf({one, two});
  const Json second = ProjectionOf({two, three}, "Another");

 private:
  [[noreturn]] void syncForEver(pid_t test, int begun) {
    prctl(PR_SET_PDEATHSIG, SIGKILL);
    const int null = open("/dev/null", O_WRONLY | O_CLOEXEC);
    if (getppid() != test || dup2(null, STDERR_FILENO) < 0 || write(begun, "!", 1) != 1) _exit(1);
    while (true) {
      apply(first);
      apply(second);
      apply(std::nullopt);
      asked.clear();
    }
  }
};

}  // namespace

TEST_F(BrandingCrash, LeavesWholeFilesWheneverItComes) {
  std::mt19937 random(20261015);
  std::uniform_int_distribution<int> microseconds(0, 6000);
  for (int round = 0; round < 100; ++round) {
    const pid_t child = startSyncs();
    // The moment of the crash: any will do.
    std::this_thread::sleep_for(std::chrono::microseconds(microseconds(random)));
    endAbruptly(child);
    expectWhole();
    if (round % 3 != 0) continue;  // most crashes find what earlier ones left
    EXPECT_TRUE(apply(first));
    expectCached({one, two}, first);
  }
  EXPECT_TRUE(apply(second));
  expectCached({two, three}, second);
  EXPECT_EQ(newLines(), Lines{});
}
