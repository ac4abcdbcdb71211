#include "platform/Directory.h"
#include "platform/simulated/MacFiles.h"
#include "tests/contract/SimulatedRoot.h"

namespace platform {
namespace {

class Directory : public contract::SimulatedRoot {
 protected:
  Directory() {
    EXPECT_TRUE(MacTree().writeUser({.name = "kiosk",
                                     .realName = "Kiosk",
                                     .uid = 501,
                                     .gid = 20,
                                     .home = "/Users/kiosk",
                                     .shell = "/bin/zsh",
                                     .generatedUid = "0a1b2c3d-1111-4222-8333-444455556666",
                                     .passwordHash = std::nullopt}));
  }

  static std::optional<DirectoryRecord> record(const std::string& name) {
    std::string error;
    std::optional<DirectoryNode> node = DirectoryNode::openLocal(error);
    EXPECT_TRUE(node);
    std::optional<DirectoryRecord> found = node->userRecord(name, error);
    EXPECT_EQ(error, "");
    return found;
  }

  static bool hasPassword(const std::string& password) {
    const auto user = MacTree().userNamed("kiosk");
    return user && user->passwordHash && MacPasswordMatches(password, *user->passwordHash);
  }
};

TEST_F(Directory, GivesAUsersUuidInUpperCase) {
  EXPECT_EQ(DirectoryUserUuid(501), "0A1B2C3D-1111-4222-8333-444455556666");
}

TEST_F(Directory, HasNoUuidForAnUnknownUser) { EXPECT_EQ(DirectoryUserUuid(999), std::nullopt); }

TEST_F(Directory, HasNoRecordForAnUnknownName) {
  for (const char* name : {"nobody", "", ".", "..", "../users/kiosk", "kiosk/"}) {
    EXPECT_FALSE(record(name)) << name;
  }
}

TEST_F(Directory, ChangesAPassword) {
  std::optional<DirectoryRecord> kiosk = record("kiosk");
  ASSERT_TRUE(kiosk);
  std::string error;
  EXPECT_TRUE(kiosk->changePassword("first", error));
  EXPECT_TRUE(hasPassword("first"));
  EXPECT_TRUE(kiosk->changePassword("", error));
  EXPECT_TRUE(hasPassword(""));
  EXPECT_FALSE(hasPassword("first"));
}

TEST_F(Directory, SaysThatARecordHasGone) {
  std::optional<DirectoryRecord> kiosk = record("kiosk");
  ASSERT_TRUE(MacTree().removeUser("kiosk"));
  std::string error;
  EXPECT_FALSE(kiosk->changePassword("x", error));
  EXPECT_NE(error, "");
}

TEST_F(Directory, FailsOnDemand) {
  std::optional<DirectoryRecord> kiosk = record("kiosk");
  std::string error;
  std::optional<DirectoryNode> node = DirectoryNode::openLocal(error);
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

TEST_F(Directory, SaysThatTheNodeIsNotThere) {
  ASSERT_EQ(rename(kMacDirectoryNode, "/private/tmp/node"), 0);
  std::string error;
  EXPECT_FALSE(DirectoryNode::openLocal(error));
  EXPECT_NE(error, "");
}

}  // namespace
}  // namespace platform
