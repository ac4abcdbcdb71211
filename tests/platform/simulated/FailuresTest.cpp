// The services fail as the simulated Mac's faults say.
#include "platform/Crypto.h"
#include "platform/Directory.h"
#include "platform/Host.h"
#include "platform/PropertyList.h"
#include "platform/simulated/MacFiles.h"
#include "tests/platform/simulated/SimulatedRoot.h"

namespace platform {
namespace {

class Failures : public contract::SimulatedRoot {
 protected:
  Failures() {
    EXPECT_TRUE(MacTree().writeUser({.name = "kiosk",
                                     .realName = "Kiosk",
                                     .uid = 501,
                                     .gid = 20,
                                     .home = "/Users/kiosk",
                                     .shell = "/bin/zsh",
                                     .generatedUid = "U",
                                     .passwordHash = std::nullopt}));
  }
};

TEST_F(Failures, OfRandomBytes) {
  setFaults(R"([{"target": "crypto.randomBytes", "times": 1}])");
  char byte = 0;
  EXPECT_FALSE(CryptoRandomBytes(&byte, 1));
  EXPECT_TRUE(CryptoRandomBytes(&byte, 1));
}

TEST_F(Failures, OfPropertyLists) {
  setFaults(R"([{"target": "propertyList.write", "times": 1, "errorOutput": "disk full"}])");
  std::string error;
  EXPECT_FALSE(PropertyListWrite("text", PropertyListFormat::kXml, error));
  EXPECT_EQ(error, "disk full");
  EXPECT_TRUE(PropertyListWrite("text", PropertyListFormat::kXml, error));
}

TEST_F(Failures, OfTheDirectory) {
  std::string error;
  std::optional<DirectoryNode> node = DirectoryNode::openLocal(error);
  std::optional<DirectoryRecord> kiosk = node->userRecord("kiosk", error);
  setFaults(R"([{"target": "directory.userUuid", "arguments": ["501"]},
                {"target": "directory.openLocal", "errorOutput": "no node"},
                {"target": "directory.userRecord", "arguments": ["kiosk"], "errorOutput": "no"},
                {"target": "directory.changePassword", "times": 1, "errorOutput": "too weak"}])");
  EXPECT_EQ(DirectoryUserUuid(501), std::nullopt);
  EXPECT_FALSE(DirectoryNode::openLocal(error));
  EXPECT_EQ(error, "no node");
  EXPECT_FALSE(node->userRecord("kiosk", error));
  EXPECT_EQ(error, "no");
  EXPECT_FALSE(node->userRecord("other", error));
  EXPECT_EQ(error, "");
  EXPECT_FALSE(kiosk->changePassword("x", error));
  EXPECT_EQ(error, "too weak");
  EXPECT_TRUE(kiosk->changePassword("x", error));
}

TEST_F(Failures, OfADirectoryThatIsNotThere) {
  ASSERT_EQ(rename(kMacDirectoryNode, "/private/tmp/node"), 0);
  std::string error;
  EXPECT_FALSE(DirectoryNode::openLocal(error));
  EXPECT_NE(error, "");
}

class HostFiles : public Failures {
 protected:
  static void writeList(const std::string& path, const Json& value) {
    contract::WriteFile(path, "");
    EXPECT_TRUE(MacTree().writePropertyList(path, value, PropertyListFormat::kXml, 0644));
  }
};

TEST_F(HostFiles, TellTheSystemsVersion) {
  EXPECT_EQ(HostOperatingSystemVersionString(), "Version Unknown");
  writeList(kMacSystemVersion, {{"ProductVersion", "13.6"}, {"ProductBuildVersion", "22G120"}});
  EXPECT_EQ(HostOperatingSystemVersionString(), "Version 13.6 (Build 22G120)");
}

TEST_F(HostFiles, MayHaveAComputerNameThatIsNoText) {
  writeList(kMacNetworkPreferences, {{"System", {{"System", {{"ComputerName", 7}}}}}});
  EXPECT_EQ(HostComputerName(), std::nullopt);
}

}  // namespace
}  // namespace platform
