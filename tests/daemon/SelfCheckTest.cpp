// The daemon's check of the path that it was started from.
#include <sys/stat.h>
#include <unistd.h>

#include <filesystem>

#include "core/KioskSelfCheck.h"
#include "core/RunKioskDaemon.h"
#include "tests/daemon/MacTest.h"
#include "tests/support/virtual/VirtualTime.h"

namespace {

namespace fs = std::filesystem;

constexpr char kOwnPath[] = "/Applications/Brindlex.app/Contents/Helpers/kioskd";
constexpr char kBanner[] = "BrindlexKioskHelper 2026.10.15 on com.brindlex.stream.kioskd";
constexpr uid_t kUser = 501;
constexpr gid_t kStaff = 20;
constexpr gid_t kAdmin = 80;

/// Every entry that is looked at, from the root down.
constexpr const char* kEntries[] = {"/",
                                    "/Applications",
                                    "/Applications/Brindlex.app",
                                    "/Applications/Brindlex.app/Contents",
                                    "/Applications/Brindlex.app/Contents/Helpers",
                                    kOwnPath};

class KioskSelfCheckTest : public MacTest {
 protected:
  KioskSelfCheckTest() { InstallBundle(mac); }

  void expectRefused(const std::string& reason, const std::string& path = kOwnPath) const {
    const std::size_t lines = mac.log().size();
    EXPECT_FALSE(KioskPathIsSafe(path)) << reason;
    ASSERT_EQ(mac.log().size(), lines + 1) << "one reason, the first";
    EXPECT_EQ(mac.log().back(), (LogLine{"Error", "refusing to run: " + reason}));
  }

  void expectAccepted(const std::string& path = kOwnPath) const {
    const std::size_t lines = mac.log().size();
    EXPECT_TRUE(KioskPathIsSafe(path)) << path;
    EXPECT_EQ(mac.log().size(), lines);
  }

  static void change(const std::string& path, mode_t mode, uid_t owner = 0, gid_t group = 0) {
    ASSERT_EQ(lchown(path.c_str(), owner, group), 0);
    ASSERT_EQ(chmod(path.c_str(), mode), 0);
  }
};

}  // namespace

TEST_F(KioskSelfCheckTest, AcceptsAPathThatOnlyRootCanChange) { expectAccepted(); }

TEST_F(KioskSelfCheckTest, RefusesAMissingFileByItsFirstMissingEntry) {
  expectRefused(
      "cannot stat /Applications/Brindlex.app/Contents/Helpers/other: No such file or "
      "directory",
      "/Applications/Brindlex.app/Contents/Helpers/other");
  expectRefused("cannot stat /Applications/Other.app: No such file or directory",
                "/Applications/Other.app/Contents/Helpers/kioskd");
}

TEST_F(KioskSelfCheckTest, RefusesAFileUsedAsADirectory) {
  expectRefused(std::string("cannot stat ") + kOwnPath + "/more: Not a directory",
                std::string(kOwnPath) + "/more");
}

TEST_F(KioskSelfCheckTest, RefusesALinkAnywhere) {
  for (const char* entry : kEntries) {
    if (entry == std::string("/")) continue;
    const std::string moved = ReplaceByLink(mac, entry);
    expectRefused(std::string(entry) + " is a symbolic link");
    fs::remove(entry);
    fs::rename(moved, entry);
  }
  expectAccepted();
}

TEST_F(KioskSelfCheckTest, RefusesALinkToNowhereAsALink) {
  fs::create_symlink("/nothing", "/usr/bin/kioskd");
  expectRefused("/usr/bin/kioskd is a symbolic link", "/usr/bin/kioskd");
}

TEST_F(KioskSelfCheckTest, RefusesAnotherOwnerAnywhere) {
  for (const char* entry : kEntries) {
    change(entry, 0755, kUser);
    expectRefused(std::string(entry) + " is owned by uid 501, not root");
    change(entry, 0755);
  }
  expectAccepted();
}

TEST_F(KioskSelfCheckTest, PrintsLargeIdsUnsigned) {
  change(kOwnPath, 0755, 4294967294U);
  expectRefused(std::string(kOwnPath) + " is owned by uid 4294967294, not root");
  change(kOwnPath, 0775, 0, 4294967294U);
  expectRefused(std::string(kOwnPath) + " is writable by group 4294967294");
}

TEST_F(KioskSelfCheckTest, RefusesAWorldWritableEntryAnywhereTheRootIncluded) {
  for (const char* entry : kEntries) {
    change(entry, 0757);
    expectRefused(std::string(entry) + " is world-writable");
    change(entry, 01777);
    expectRefused(std::string(entry) + " is world-writable");
    change(entry, 0755);
  }
  expectAccepted();
}

TEST_F(KioskSelfCheckTest, RefusesAnEntryThatAnotherGroupMayWriteAnywhere) {
  for (const char* entry : kEntries) {
    change(entry, 0775, 0, kStaff);
    expectRefused(std::string(entry) + " is writable by group 20");
    change(entry, 0755);
  }
  expectAccepted();
}

TEST_F(KioskSelfCheckTest, AcceptsWheelAndAdministratorsAsWritingGroups) {
  for (const char* entry : kEntries) {
    change(entry, 0775, 0, kAdmin);
    expectAccepted();
    change(entry, 0775, 0, 0);
    expectAccepted();
  }
}

TEST_F(KioskSelfCheckTest, AcceptsAnyGroupThatMayNotWrite) {
  for (const char* entry : kEntries) change(entry, 0755, 0, kStaff);
  expectAccepted();
}

TEST_F(KioskSelfCheckTest, NamesTheFirstReasonOfAnEntry) {
  const std::string path = "/usr/bin/kioskd";
  fs::create_symlink("/nothing", path);
  ASSERT_EQ(lchown(path.c_str(), kUser, kStaff), 0);
  expectRefused(path + " is a symbolic link", path);
  fs::remove(path);
  mac.write(path, "");
  change(path, 0777, kUser, kStaff);
  expectRefused(path + " is owned by uid 501, not root", path);
  change(path, 0777, 0, kStaff);
  expectRefused(path + " is world-writable", path);
  change(path, 0775, 0, kStaff);
  expectRefused(path + " is writable by group 20", path);
}

TEST_F(KioskSelfCheckTest, NamesTheEntryNearestToTheRoot) {
  for (const char* entry : kEntries) change(entry, 0777);
  expectRefused("/ is world-writable");
  change("/", 0755);
  change("/Applications", 0755, kUser);
  expectRefused("/Applications is owned by uid 501, not root");
}

TEST_F(KioskSelfCheckTest, StandardisesThePath) {
  expectAccepted("//Applications///Brindlex.app/./Contents/MacOS/../Helpers/kioskd");
  expectAccepted("/Applications/nothing/../Brindlex.app/Contents/Helpers/kioskd");
  expectAccepted("/../Applications/Brindlex.app/Contents/Helpers/kioskd");
  change("/Applications/Brindlex.app/Contents/MacOS", 0777);
  expectAccepted("/Applications/Brindlex.app/Contents/MacOS/../Helpers/kioskd");
  change("/Applications/Brindlex.app/Contents/Helpers", 0777);
  expectRefused("/Applications/Brindlex.app/Contents/Helpers is world-writable",
                "//Applications/./Brindlex.app//Contents/MacOS/../Helpers/kioskd");
}

TEST_F(KioskSelfCheckTest, LooksAtTheRootAlone) {
  expectAccepted("/");
  change("/", 0777);
  expectRefused("/ is world-writable", "/");
}

TEST_F(KioskSelfCheckTest, StopsTheStartAfterTheBanner) {
  change("/Applications", 0777);
  virtual_time::SetExecutablePath(kOwnPath);
  EXPECT_EQ(RunKioskDaemon(), 1);
  EXPECT_EQ(mac.log(),
            (std::vector<LogLine>{{"Default", kBanner},
                                  {"Error", "refusing to run: /Applications is world-writable"}}));
  EXPECT_FALSE(mac.exists("/Library/Application Support/Brindlex"));
}

TEST_F(KioskSelfCheckTest, StopsTheStartWhenTheOwnPathIsNotAbsolute) {
  for (const auto& path :
       {std::optional<std::string>("Helpers/kioskd"), std::optional<std::string>(""),
        std::optional<std::string>(), std::optional<std::string>("/" + std::string(1023, 'x'))}) {
    const std::size_t lines = mac.log().size();
    virtual_time::SetExecutablePath(path);
    EXPECT_EQ(RunKioskDaemon(), 1);
    ASSERT_EQ(mac.log().size(), lines + 2);
    EXPECT_EQ(mac.log().back(),
              (LogLine{"Error", "refusing to run: the helper's own path is not absolute"}));
  }
}

TEST_F(KioskSelfCheckTest, StopsTheStartOfAnOrdinaryUser) {
  virtual_time::SetExecutablePath(std::nullopt);
  ASSERT_EQ(seteuid(kUser), 0);
  EXPECT_EQ(RunKioskDaemon(), 1);
  ASSERT_EQ(seteuid(0), 0);
  EXPECT_EQ(mac.log(),
            (std::vector<LogLine>{{"Default", kBanner},
                                  {"Error", "must run as root, from the LaunchDaemon"}}));
}
