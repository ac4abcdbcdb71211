// The kiosk account's home, which belongs to somebody who may try to mislead the daemon.
#include <sys/stat.h>
#include <unistd.h>

#include <filesystem>
#include <functional>
#include <string>
#include <vector>

#include "account/KioskHome.h"
#include "platform/PropertyList.h"
#include "tests/daemon/AccountTest.h"
#include "tests/daemon/FileTrouble.h"

namespace {

namespace fs = std::filesystem;

constexpr char kSystemVersion[] = "/System/Library/CoreServices/SystemVersion.plist";
constexpr char kNotItsOwn[] =
    "/Users/BrindlexKiosk/Library/Preferences is not a real directory the kiosk account owns";

class HomeTest : public AccountTest {
 protected:
  HomeTest() {
    becomeProvisioned();
    mac.remove(kSetupAssistant);
    uid = kioskUid();
  }

  bool prepare() const { return KioskPrepareHome(uid, kStaff); }

  std::string owned(const char* mode) const {
    return mode + (" " + std::to_string(uid)) + ":" + std::to_string(kStaff);
  }

  /// A refusal of the home, in the daemon's words, with nothing written to `elsewhere`.
  void expectRefused(const std::string& elsewhere) {
    provision();
    EXPECT_EQ(mac.state()["lastError"], "home_failed");
    EXPECT_EQ(mac.countErrors(kNotItsOwn), 1U);
    EXPECT_FALSE(mac.exists(elsewhere + "/com.apple.SetupAssistant.plist"));
    EXPECT_FALSE(mac.exists(elsewhere + "/Preferences/com.apple.SetupAssistant.plist"));
    EXPECT_FALSE(mac.exists(elsewhere + "/Library/Preferences/com.apple.SetupAssistant.plist"));
  }

  Json preferences() const {
    return platform::PropertyListParse(mac.read(kSetupAssistant)).value_or(Json());
  }

  static Json seenScreens() {
    Json all = Json::object();
    for (const char* key :
         {"DidSeeAccessibility", "DidSeeActivationLock", "DidSeeAppearanceSetup",
          "DidSeeApplePaySetup", "DidSeeAvatarSetup", "DidSeeCloudSetup",
          "DidSeeiCloudLoginForStorageServices", "DidSeeIntelligence", "DidSeeLockdownMode",
          "DidSeePrivacy", "DidSeeScreenTime", "DidSeeSiriSetup", "DidSeeSyncSetup",
          "DidSeeSyncSetup2", "DidSeeTermsOfAddress", "DidSeeTouchIDSetup", "DidSeeTrueTonePrivacy",
          "DidSeeWalletSetup", "SkipFirstLoginOptimization"}) {
      all[key] = true;
    }
    return all;
  }

  uid_t uid = 0;
};

}  // namespace

TEST_F(HomeTest, GetsPreferencesThatKeepEveryAssistantAway) {
  ASSERT_TRUE(prepare());
  const Json system = platform::PropertyListParse(mac.read(kSystemVersion)).value_or(Json());
  Json expected = seenScreens();
  expected["LastSeenCloudProductVersion"] = system["ProductVersion"];
  expected["LastSeenBuddyBuildVersion"] = system["ProductBuildVersion"];
  EXPECT_EQ(preferences(), expected);
  EXPECT_EQ(mac.modeAndOwner(kSetupAssistant), owned("0600"));
  EXPECT_TRUE(mac.read(kSetupAssistant).starts_with("bplist00"));
  EXPECT_TRUE(mac.log().empty());
}

TEST_F(HomeTest, GetsOnlyTheScreensWithoutASystemVersion) {
  mac.remove(kSystemVersion);
  ASSERT_TRUE(prepare());
  EXPECT_EQ(preferences(), seenScreens());
  for (const char* content : {"", "no property list", "<plist><array/></plist>"}) {
    mac.write(kSystemVersion, content);
    ASSERT_TRUE(prepare());
    EXPECT_EQ(preferences(), seenScreens()) << content;
  }
  EXPECT_TRUE(mac.log().empty());
}

TEST_F(HomeTest, GetsTheOneVersionThatIsThere) {
  mac.write(kSystemVersion,
            "<plist version=\"1.0\"><dict><key>ProductVersion</key><string>15.1</string></dict>"
            "</plist>");
  ASSERT_TRUE(prepare());
  Json expected = seenScreens();
  expected["LastSeenCloudProductVersion"] = "15.1";
  EXPECT_EQ(preferences(), expected);
}

TEST_F(HomeTest, IsMadeByTheTool) {
  mac.remove(kHome);
  ASSERT_TRUE(prepare());
  EXPECT_EQ(mac.journal(), std::vector<ToolRun>{createHome()});
  EXPECT_TRUE(mac.exists(kSetupAssistant));
}

TEST_F(HomeTest, GetsMissingDirectoriesOfItsOwn) {
  mac.remove(kLibrary);
  const mode_t before = umask(0);
  ASSERT_TRUE(prepare());
  umask(before);
  EXPECT_EQ(mac.modeAndOwner(kLibrary), owned("0700"));
  EXPECT_EQ(mac.modeAndOwner(kPreferencesFolder), owned("0700"));
  EXPECT_EQ(mac.modeAndOwner(kSetupAssistant), owned("0600"));
}

TEST_F(HomeTest, IsNotBlockedByWhatIsUnderTheDaemonsTemporaryNames) {
  const std::string suffix = ".tmp." + std::to_string(getpid());
  mac.write("/Users/Shared/victim", "precious");
  const std::vector<std::function<void(const std::string&)>> leftovers{
      [](const std::string& path) { fs::create_directory(path); },
      [this](const std::string& path) { mac.write(path, ""); },
      [](const std::string& path) { fs::create_symlink("/Users/Shared/victim", path); },
      [](const std::string& path) { fs::create_symlink("/Users/Shared", path); }};
  for (const auto& leave : leftovers) {
    mac.remove(kPreferencesFolder);
    leave(kLibrary + ("/.Preferences" + suffix));
    EXPECT_TRUE(prepare());
    EXPECT_EQ(mac.list(kLibrary), std::vector<std::string>{"Preferences"});
    mac.remove(kLibrary);
    leave(kHome + ("/.Library" + suffix));
    EXPECT_TRUE(prepare());
    EXPECT_EQ(mac.modeAndOwner(kLibrary), owned("0700"));
    EXPECT_EQ(mac.modeAndOwner(kPreferencesFolder), owned("0700"));
    EXPECT_FALSE(fs::is_symlink(kHome + ("/.Library" + suffix)));
    EXPECT_FALSE(mac.exists(kHome + ("/.Library" + suffix)));
  }
  EXPECT_EQ(mac.read("/Users/Shared/victim"), "precious");
}

TEST_F(HomeTest, KeepsDirectoriesThatAreThereAsTheyAre) {
  ASSERT_EQ(chmod(kLibrary, 0755), 0);
  ASSERT_EQ(chown(kPreferencesFolder, uid, 77), 0);
  ASSERT_TRUE(prepare());
  EXPECT_EQ(mac.modeAndOwner(kLibrary), owned("0755"));
  EXPECT_EQ(mac.info(kPreferencesFolder).st_gid, 77U);
}

TEST_F(HomeTest, ReplacesALinkAtThePreferencesFile) {
  mac.write("/Users/Shared/victim", "precious");
  fs::create_symlink("/Users/Shared/victim", kSetupAssistant);
  ASSERT_TRUE(prepare());
  EXPECT_EQ(mac.read("/Users/Shared/victim"), "precious");
  EXPECT_EQ(mac.modeAndOwner(kSetupAssistant), owned("0600"));
}

TEST_F(HomeTest, IsRefusedWhenLibraryIsALink) { expectRefused(ReplaceByLink(mac, kLibrary)); }

TEST_F(HomeTest, IsRefusedWhenPreferencesIsALink) {
  expectRefused(ReplaceByLink(mac, kPreferencesFolder));
}

TEST_F(HomeTest, IsRefusedWhenItIsALinkItself) { expectRefused(ReplaceByLink(mac, kHome)); }

TEST_F(HomeTest, IsRefusedWhenLibraryLeadsToASystemDirectory) {
  mac.remove(kLibrary);
  fs::create_symlink("/Library", kLibrary);
  expectRefused("/Library/Preferences");
}

TEST_F(HomeTest, NamesThePathThatHasALinkFirst) {
  ReplaceByLink(mac, kHome);
  EXPECT_FALSE(prepare());
  EXPECT_EQ(mac.log(),
            (std::vector<LogLine>{{"Error",
                                   "cannot open /Users/BrindlexKiosk without following a link: Not "
                                   "a directory"},
                                  {"Error", kNotItsOwn}}));
}

TEST_F(HomeTest, IsRefusedWhenSomebodyElseOwnsAPartOfIt) {
  for (const char* part : {kHome, kLibrary, kPreferencesFolder}) {
    clearRecords();
    ASSERT_EQ(chown(part, 0, 0), 0);
    EXPECT_FALSE(prepare()) << part;
    EXPECT_EQ(mac.log(), (std::vector<LogLine>{{"Error", kNotItsOwn}})) << part;
    EXPECT_EQ(mac.info(part).st_uid, 0U) << "an existing directory does not change hands";
    EXPECT_FALSE(mac.exists(kSetupAssistant));
    ASSERT_EQ(chown(part, uid, kStaff), 0);
  }
  EXPECT_TRUE(prepare());
}

TEST_F(HomeTest, IsRefusedWhenAFileIsInTheWay) {
  mac.remove(kLibrary);
  mac.write(kLibrary, "");
  ASSERT_EQ(chown(kLibrary, uid, kStaff), 0);
  EXPECT_FALSE(prepare());
  EXPECT_EQ(mac.countErrors(kNotItsOwn), 1U);
}

TEST_F(HomeTest, IsRefusedWhenThePreferencesFileCannotBeReplaced) {
  fs::create_directory(kSetupAssistant);
  EXPECT_FALSE(prepare());
  EXPECT_EQ(mac.log(),
            (std::vector<LogLine>{
                {"Error", "cannot write com.apple.SetupAssistant.plist: Is a directory"}}));
}

TEST_F(HomeTest, FailsSilentlyWhenTheUserDatabaseKnowsNone) {
  EXPECT_FALSE(KioskPrepareHome(4711, kStaff));
  mac.write("/private/etc/passwd", "root:x:0:0::/var/root:/bin/sh\nBrindlexKiosk:x:" +
                                       std::to_string(uid) + ":20:::/bin/zsh\n");
  EXPECT_FALSE(prepare());
  EXPECT_TRUE(mac.log().empty());
}

TEST_F(HomeTest, LeavesNoDescriptorOpen) {
  const std::size_t before = OpenDescriptorCount();
  EXPECT_TRUE(prepare());
  ReplaceByLink(mac, kPreferencesFolder);
  EXPECT_FALSE(prepare());
  EXPECT_EQ(OpenDescriptorCount(), before);
}
