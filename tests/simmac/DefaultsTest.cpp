#include <plist/plist.h>
#include <sys/stat.h>

#include <filesystem>

#include "tests/simmac/TestMac.h"

namespace simmac {
namespace {

constexpr char kDefaults[] = "/usr/bin/defaults";
constexpr char kDomain[] = "/Library/Preferences/com.apple.loginwindow";
constexpr char kFile[] = "/Library/Preferences/com.apple.loginwindow.plist";

class DefaultsTool : public SimulatedMacTest {};

TEST_F(DefaultsTool, ReadsWhatItWrote) {
  const TestMac mac;
  const RunResult written = mac.run({kDefaults, "write", kDomain, "autoLoginUser", "kiosk"});
  EXPECT_EQ(written.status, 0);
  EXPECT_EQ(written.out + written.err, "");
  EXPECT_EQ(mac.run({kDefaults, "read", kDomain, "autoLoginUser"}).out, "kiosk\n");
  EXPECT_EQ(mac.run({kDefaults, "write", kFile, "Flag", "-bool", "YES"}).status, 0);
  EXPECT_EQ(mac.run({kDefaults, "read", kFile, "Flag"}).out, "1\n");
}

TEST_F(DefaultsTool, WritesABinaryListThatEverybodyReads) {
  const TestMac mac;
  (void)mac.run({kDefaults, "write", kDomain, "autoLoginUser", "-string", "kiosk"});
  EXPECT_EQ(mac.read(kFile).substr(0, 8), "bplist00");
  struct stat status {};
  ASSERT_EQ(stat(mac.path(kFile).c_str(), &status), 0);
  EXPECT_EQ(status.st_mode & 07777, 0644U);
}

TEST_F(DefaultsTool, KeepsOtherKeysAsTheyAre) {
  const TestMac mac;
  mac.write(kFile, R"(<?xml version="1.0" encoding="UTF-8"?><plist version="1.0"><dict>
      <key>When</key><date>2024-05-06T07:08:09Z</date><key>What</key><data>AQID</data>
      <key>Many</key><array><string>a b</string><integer>3</integer></array></dict></plist>)");
  EXPECT_EQ(mac.run({kDefaults, "write", kDomain, "autoLoginUser", "kiosk"}).status, 0);
  EXPECT_EQ(mac.run({kDefaults, "read", kDomain, "When"}).out, "2024-05-06 07:08:09 +0000\n");
  EXPECT_EQ(mac.run({kDefaults, "read", kDomain, "What"}).out, "{length = 3, bytes = 0x010203}\n");
  EXPECT_EQ(mac.run({kDefaults, "read", kDomain, "Many"}).out, "(\n    \"a b\",\n    3\n)\n");
}

TEST_F(DefaultsTool, DeletesOneKey) {
  const TestMac mac;
  (void)mac.run({kDefaults, "write", kDomain, "autoLoginUser", "kiosk"});
  EXPECT_EQ(mac.run({kDefaults, "delete", kDomain, "autoLoginUser"}).status, 0);
  EXPECT_EQ(mac.run({kDefaults, "read", kDomain, "autoLoginUser"}).status, 1);
  EXPECT_EQ(mac.run({kDefaults, "read", kDomain, "SHOWFULLNAME"}).out, "0\n");
}

TEST_F(DefaultsTool, ReportsMissingPairsAndDomains) {
  const TestMac mac;
  const RunResult pair = mac.run({kDefaults, "read", kDomain, "nothing"});
  EXPECT_EQ(pair.status, 1);
  EXPECT_EQ(WithoutLogPrefixes(pair.err),
            "\nThe domain/default pair of (/Library/Preferences/com.apple.loginwindow, nothing) "
            "does not exist\n");
  const RunResult domain = mac.run({kDefaults, "read", "/Library/Preferences/none"});
  EXPECT_EQ(domain.status, 1);
  EXPECT_EQ(WithoutLogPrefixes(domain.err), "\nDomain /Library/Preferences/none does not exist\n");
  const RunResult deleted = mac.run({kDefaults, "delete", kDomain, "nothing"});
  EXPECT_EQ(deleted.status, 1);
  EXPECT_EQ(WithoutLogPrefixes(deleted.err),
            "\nDomain (/Library/Preferences/com.apple.loginwindow) not found.\n"
            "Defaults have not been changed.\n");
}

TEST_F(DefaultsTool, CannotWriteWhereTheUserMayNot) {
  const TestMac mac;
  const RunResult result = mac.run({kDefaults, "write", kDomain, "autoLoginUser", "x"}, "admin");
  EXPECT_EQ(result.status, 1);
  EXPECT_EQ(WithoutLogPrefixes(result.err),
            "Could not write domain /Library/Preferences/com.apple.loginwindow; exiting\n");
}

}  // namespace
}  // namespace simmac
