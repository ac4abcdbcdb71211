// The application bundle that the daemon belongs to.
#include <filesystem>

#include "account/KioskAppBundle.h"
#include "tests/daemon/MacTest.h"
#include "tests/support/virtual/VirtualTime.h"

namespace {

namespace fs = std::filesystem;

constexpr char kBundle[] = "/Applications/Brindlex.app";
constexpr char kOwnPath[] = "/Applications/Brindlex.app/Contents/Helpers/kioskd";
constexpr char kInformation[] = "/Applications/Brindlex.app/Contents/Info.plist";

class KioskAppBundleTest : public MacTest {
 protected:
  KioskAppBundleTest() {
    InstallBundle(mac);
    virtual_time::SetExecutablePath(kOwnPath);
  }

  /// Puts a daemon at the path and lets the process believe that it is the one.
  void runAs(const std::string& path) const {
    fs::create_directories(fs::path(path).parent_path());
    mac.write(path, "", 0755);
    virtual_time::SetExecutablePath(path);
  }
};

}  // namespace

TEST_F(KioskAppBundleTest, IsTheBundleWhoseHelpersHaveTheDaemon) {
  const auto bundle = KioskAppBundle();
  ASSERT_TRUE(bundle);
  EXPECT_EQ(bundle->executablePath, "/Applications/Brindlex.app/Contents/MacOS/Brindlex");
  EXPECT_TRUE(bundle->shortVersion);
}

TEST_F(KioskAppBundleTest, IsReadAfresh) {
  ASSERT_TRUE(KioskAppBundle()->executablePath);
  mac.write(kInformation,
            "<plist version=\"1.0\"><dict><key>CFBundleShortVersionString</key>"
            "<string>9.8.7</string></dict></plist>");
  EXPECT_EQ(KioskAppBundle()->shortVersion, "9.8.7");
  EXPECT_EQ(KioskAppBundle()->executablePath, std::nullopt);
}

TEST_F(KioskAppBundleTest, IsFoundByTheRealPath) {
  fs::create_symlink(kOwnPath, "/usr/bin/kioskd");
  virtual_time::SetExecutablePath("/usr/bin/kioskd");
  EXPECT_TRUE(KioskAppBundle());
  virtual_time::SetExecutablePath("/Applications/Brindlex.app/Contents/MacOS/../Helpers/kioskd");
  EXPECT_TRUE(KioskAppBundle());
}

TEST_F(KioskAppBundleTest, IsNotThePlaceOfALinkToADaemonElsewhere) {
  runAs("/usr/local/kioskd");
  fs::remove(kOwnPath);
  fs::create_symlink("/usr/local/kioskd", kOwnPath);
  virtual_time::SetExecutablePath(kOwnPath);
  EXPECT_FALSE(KioskAppBundle());
}

TEST_F(KioskAppBundleTest, MayHaveAnyNameAndPlace) {
  fs::create_directory("/Users/Shared/Apps");
  fs::rename(kBundle, "/Users/Shared/Apps/Other Name.app");
  virtual_time::SetExecutablePath("/Users/Shared/Apps/Other Name.app/Contents/Helpers/kioskd");
  ASSERT_TRUE(KioskAppBundle());
  EXPECT_EQ(KioskAppBundle()->executablePath,
            "/Users/Shared/Apps/Other Name.app/Contents/MacOS/Brindlex");
}

TEST_F(KioskAppBundleTest, IsNoneOutsideOfHelpers) {
  for (const char* path : {"/Applications/Brindlex.app/Contents/MacOS/kioskd",
                           "/Applications/Brindlex.app/Contents/helpers/kioskd",
                           "/Applications/Brindlex.app/Helpers/kioskd",
                           "/Applications/Brindlex.app/Contents/Helpers/more/kioskd",
                           "/usr/local/bin/kioskd", "/kioskd"}) {
    runAs(path);
    EXPECT_FALSE(KioskAppBundle()) << path;
  }
}

TEST_F(KioskAppBundleTest, IsNoneWithoutAnApplicationsExtension) {
  for (const char* path : {"/Applications/Brindlex/Contents/Helpers/kioskd",
                           "/Applications/Brindlex.bundle/Contents/Helpers/kioskd",
                           "/Applications/.app/Contents/Helpers/kioskd", "/Helpers/kioskd"}) {
    runAs(path);
    EXPECT_FALSE(KioskAppBundle()) << path;
  }
}

TEST_F(KioskAppBundleTest, IsNoneWhenTheOwnPathCannotBeHad) {
  virtual_time::SetExecutablePath(std::nullopt);
  EXPECT_FALSE(KioskAppBundle());
  virtual_time::SetExecutablePath("/Applications/Brindlex.app/Contents/Helpers/nothing");
  EXPECT_FALSE(KioskAppBundle());
}

TEST_F(KioskAppBundleTest, IsNoneWhenTheOwnPathIsTooLong) {
  std::string path = kOwnPath;
  while (path.size() + 2 <= 1023) path.insert(0, "/.");
  path.insert(0, 1023 - path.size(), '/');
  virtual_time::SetExecutablePath(path);
  EXPECT_TRUE(KioskAppBundle());
  virtual_time::SetExecutablePath("/" + path);
  EXPECT_FALSE(KioskAppBundle());
}
