// Automatic login of the kiosk account.
#include <array>
#include <filesystem>

#include "account/KioskAutoLogin.h"
#include "platform/PropertyList.h"
#include "tests/daemon/EncodedPassword.h"
#include "tests/daemon/MacTest.h"

namespace {

constexpr char kPassword[] = "abcdefghjkmnpqrstuvwxyzABCDEFGHJ";
constexpr char kPasswordFile[] = "/private/etc/kcpassword";
constexpr char kDefaults[] = "/usr/bin/defaults";
constexpr char kDomain[] = "/Library/Preferences/com.apple.loginwindow";
constexpr char kPreferences[] = "/Library/Preferences/com.apple.loginwindow.plist";
constexpr std::array<unsigned char, 11> kKey{0x7D, 0x89, 0x52, 0x23, 0xD2, 0xBC,
                                             0xDD, 0xEA, 0xA3, 0xB9, 0x1F};

std::string Decoded(std::string bytes) {
  for (std::size_t at = 0; at < bytes.size(); ++at) {
    bytes[at] = static_cast<char>(bytes[at] ^ kKey[at % kKey.size()]);
  }
  return bytes;
}

const ToolRun kRead{kDefaults, {"read", kDomain, "autoLoginUser"}, 0};
const ToolRun kReadNothing{kDefaults, {"read", kDomain, "autoLoginUser"}, 1};
const ToolRun kWrite{kDefaults, {"write", kDomain, "autoLoginUser", "BrindlexKiosk"}, 0};
const ToolRun kDelete{kDefaults, {"delete", kDomain, "autoLoginUser"}, 0};

class KioskAutoLoginTest : public MacTest {
 protected:
  /// Makes the login window sign in this user.
  void setUser(const std::string& user) const {
    Json preferences = readPreferences();
    preferences["autoLoginUser"] = user;
    std::string error;
    mac.write(kPreferences, *platform::PropertyListWrite(
                                preferences, platform::PropertyListFormat::kBinary, error));
  }

  Json readPreferences() const {
    return platform::PropertyListParse(mac.read(kPreferences)).value_or(Json::object());
  }
  Json user() const { return readPreferences().value("autoLoginUser", Json()); }
};

}  // namespace

TEST(KcPassword, HasTheLengthOfTheNextMultipleOfTwelve) {
  EXPECT_EQ(KcPasswordEncodedLength(0), 12U);
  EXPECT_EQ(KcPasswordEncodedLength(1), 12U);
  EXPECT_EQ(KcPasswordEncodedLength(11), 12U);
  EXPECT_EQ(KcPasswordEncodedLength(12), 24U);
  EXPECT_EQ(KcPasswordEncodedLength(23), 24U);
  EXPECT_EQ(KcPasswordEncodedLength(24), 36U);
  EXPECT_EQ(KcPasswordEncodedLength(32), 36U);
  EXPECT_EQ(KcPasswordEncodedLength(std::uint64_t{1} << 40), (std::uint64_t{1} << 40) + 8);
}

TEST(KcPassword, EncodesAnEmptyPasswordAsTheKey) {
  EXPECT_EQ(EncodedPassword(""), "\x7D\x89\x52\x23\xD2\xBC\xDD\xEA\xA3\xB9\x1F\x7D");
}

TEST(KcPassword, PadsInBlocksOfTwelveWhileTheKeyRepeatsEveryEleven) {
  const std::string encoded = EncodedPassword("twelve bytes");
  ASSERT_EQ(encoded.size(), 24U);
  EXPECT_EQ(Decoded(encoded), std::string("twelve bytes") + std::string(12, '\0'));
  EXPECT_EQ(static_cast<unsigned char>(encoded[11]), 0x7D ^ 's');
  EXPECT_EQ(encoded.substr(12), "\x89\x52\x23\xD2\xBC\xDD\xEA\xA3\xB9\x1F\x7D\x89");
}

TEST(KcPassword, ZeroFollowsEveryPasswordOnceDecoded) {
  for (std::size_t length = 0; length < 50; ++length) {
    const std::string password(length, 'p');
    EXPECT_STREQ(Decoded(EncodedPassword(password)).c_str(), password.c_str());
  }
}

TEST(KcPassword, EncodesBytesBeyondAscii) {
  EXPECT_STREQ(Decoded(EncodedPassword("pässwörd \U0001F600")).c_str(), "pässwörd \U0001F600");
}

TEST_F(KioskAutoLoginTest, FindsNoUserWhenNoneIsSet) {
  EXPECT_EQ(KioskAutoLoginUser(), std::nullopt);
  EXPECT_EQ(mac.journal(), std::vector<ToolRun>{kReadNothing});
  EXPECT_TRUE(mac.log().empty());
}

TEST_F(KioskAutoLoginTest, FindsNoUserWithoutPreferences) {
  mac.remove(kPreferences);
  EXPECT_EQ(KioskAutoLoginUser(), std::nullopt);
}

TEST_F(KioskAutoLoginTest, FindsTheUser) {
  setUser("admin");
  EXPECT_EQ(KioskAutoLoginUser(), "admin");
  EXPECT_EQ(mac.journal(), std::vector<ToolRun>{kRead});
}

TEST_F(KioskAutoLoginTest, TakesAnEmptyUserForNone) {
  setUser("");
  EXPECT_EQ(KioskAutoLoginUser(), std::nullopt);
  mac.addFault({{"target", kDefaults}, {"output", " \n"}});
  EXPECT_EQ(KioskAutoLoginUser(), std::nullopt);
}

TEST_F(KioskAutoLoginTest, TakesAFailedReadForNone) {
  mac.addFault({{"target", kDefaults}, {"output", "admin\n"}, {"status", 1}});
  EXPECT_EQ(KioskAutoLoginUser(), std::nullopt);
}

TEST_F(KioskAutoLoginTest, EnablesWithFileAndPreference) {
  EXPECT_TRUE(KioskEnableAutoLogin(kPassword));
  EXPECT_EQ(mac.read(kPasswordFile), EncodedPassword(kPassword));
  EXPECT_EQ(mac.read(kPasswordFile).size(), 36U);
  EXPECT_EQ(mac.modeAndOwner(kPasswordFile), "0600 0:0");
  EXPECT_EQ(user(), "BrindlexKiosk");
  EXPECT_TRUE(readPreferences().contains("SHOWFULLNAME")) << "other preferences stay";
  EXPECT_EQ(mac.journal(), (std::vector<ToolRun>{kReadNothing, kWrite}));
  EXPECT_TRUE(mac.log().empty());
}

TEST_F(KioskAutoLoginTest, EnablesAgainWithANewPassword) {
  EXPECT_TRUE(KioskEnableAutoLogin("the old password"));
  EXPECT_TRUE(KioskEnableAutoLogin(kPassword));
  EXPECT_EQ(mac.read(kPasswordFile), EncodedPassword(kPassword));
  EXPECT_EQ(user(), "BrindlexKiosk");
  EXPECT_EQ(mac.journal(), (std::vector<ToolRun>{kReadNothing, kWrite, kRead, kWrite}));
}

TEST_F(KioskAutoLoginTest, EnablesNothingWhenItIsAnotherUsers) {
  setUser("admin");
  mac.write(kPasswordFile, "theirs");
  EXPECT_FALSE(KioskEnableAutoLogin(kPassword));
  EXPECT_EQ(user(), "admin");
  EXPECT_EQ(mac.read(kPasswordFile), "theirs");
  EXPECT_EQ(mac.journal(), std::vector<ToolRun>{kRead});
  EXPECT_EQ(mac.log(),
            (std::vector<LogLine>{{"Error", "auto-login is set for admin; leaving it alone"}}));
}

TEST_F(KioskAutoLoginTest, TakesAUserWhoseNameOnlyResemblesForAnother) {
  for (const char* name : {"brindlexkiosk", "BrindlexKiosk2", "Brindlex"}) {
    setUser(name);
    EXPECT_FALSE(KioskEnableAutoLogin(kPassword)) << name;
    KioskDisableAutoLogin();
    EXPECT_EQ(user(), name);
  }
}

TEST_F(KioskAutoLoginTest, LeavesThePreferenceWhenTheFileCannotBeWritten) {
  std::filesystem::create_directory(kPasswordFile);
  EXPECT_FALSE(KioskEnableAutoLogin(kPassword));
  EXPECT_EQ(user(), Json());
  EXPECT_EQ(mac.journal(), std::vector<ToolRun>{kReadNothing});
  EXPECT_EQ(mac.log(),
            (std::vector<LogLine>{{"Error", "cannot write kcpassword: Is a directory"}}));
}

TEST_F(KioskAutoLoginTest, ReplacesALinkAtThePasswordFile) {
  mac.write("/Users/Shared/victim", "precious");
  std::filesystem::create_symlink("/Users/Shared/victim", kPasswordFile);
  EXPECT_TRUE(KioskEnableAutoLogin(kPassword));
  EXPECT_EQ(mac.read("/Users/Shared/victim"), "precious");
  EXPECT_TRUE(S_ISREG(mac.info(kPasswordFile).st_mode));
}

TEST_F(KioskAutoLoginTest, SaysThatThePreferenceCouldNotBeWritten) {
  mac.addFault({{"target", kDefaults},
                {"arguments", {"write"}},
                {"status", 1},
                {"errorOutput", "Could not write domain\n"}});
  EXPECT_FALSE(KioskEnableAutoLogin(kPassword));
  EXPECT_EQ(mac.log(),
            (std::vector<LogLine>{{"Error", "defaults write exited 1: Could not write domain"}}));
  EXPECT_EQ(mac.read(kPasswordFile), EncodedPassword(kPassword)) << "the file is written first";
}

TEST_F(KioskAutoLoginTest, DisablesPreferenceAndFile) {
  ASSERT_TRUE(KioskEnableAutoLogin(kPassword));
  mac.write("/private/var/simulated/journal.jsonl", "", 0666);
  KioskDisableAutoLogin();
  EXPECT_EQ(user(), Json());
  EXPECT_TRUE(readPreferences().contains("SHOWFULLNAME"));
  EXPECT_FALSE(mac.exists(kPasswordFile));
  EXPECT_EQ(mac.journal(), (std::vector<ToolRun>{kRead, kDelete}));
  EXPECT_TRUE(mac.log().empty());
}

TEST_F(KioskAutoLoginTest, DisablesNothingOfAnotherUser) {
  setUser("admin");
  mac.write(kPasswordFile, "theirs");
  KioskDisableAutoLogin();
  EXPECT_EQ(user(), "admin");
  EXPECT_EQ(mac.read(kPasswordFile), "theirs");
  EXPECT_EQ(mac.journal(), std::vector<ToolRun>{kRead});
  EXPECT_TRUE(mac.log().empty());
}

TEST_F(KioskAutoLoginTest, DisablesNothingWhenNoUserIsSet) {
  mac.write(kPasswordFile, "somebody's");
  KioskDisableAutoLogin();
  EXPECT_EQ(mac.read(kPasswordFile), "somebody's");
  EXPECT_EQ(mac.journal(), std::vector<ToolRun>{kReadNothing});
  EXPECT_TRUE(mac.log().empty());
}

TEST_F(KioskAutoLoginTest, SaysNothingAboutAPasswordFileThatIsGone) {
  ASSERT_TRUE(KioskEnableAutoLogin(kPassword));
  mac.remove(kPasswordFile);
  KioskDisableAutoLogin();
  EXPECT_EQ(user(), Json());
  EXPECT_TRUE(mac.log().empty());
}

TEST_F(KioskAutoLoginTest, SaysThatThePasswordFileCannotBeRemoved) {
  setUser("BrindlexKiosk");
  std::filesystem::create_directory(kPasswordFile);
  KioskDisableAutoLogin();
  EXPECT_EQ(user(), Json());
  EXPECT_EQ(
      mac.log(),
      (std::vector<LogLine>{{"Error", "cannot remove /private/etc/kcpassword: Is a directory"}}));
}

TEST_F(KioskAutoLoginTest, RemovesThePasswordFileThoughThePreferenceStays) {
  ASSERT_TRUE(KioskEnableAutoLogin(kPassword));
  mac.addFault(
      {{"target", kDefaults}, {"arguments", {"delete"}}, {"status", 2}, {"errorOutput", "no\n"}});
  KioskDisableAutoLogin();
  EXPECT_EQ(mac.log(), (std::vector<LogLine>{{"Error", "defaults delete exited 2: no"}}));
  EXPECT_FALSE(mac.exists(kPasswordFile));
}
