#include "platform/Directory.h"
#include "tests/platform/World.h"

namespace platform {
namespace {

class Directory : public contract::ChangingWorld {
 protected:
  void SetUp() override {
    ChangingWorld::SetUp();
    if (!IsSkipped()) addUser("kiosk", 501, "0a1b2c3d-1111-4222-8333-444455556666");
  }

  static std::optional<DirectoryRecord> record(const std::string& name) {
    std::string error;
    std::optional<DirectoryNode> node = DirectoryNode::openLocal(error);
    EXPECT_TRUE(node);
    std::optional<DirectoryRecord> found = node->userRecord(name, error);
    EXPECT_EQ(error, "");
    return found;
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
  EXPECT_TRUE(hasPassword("kiosk", "first"));
  EXPECT_TRUE(kiosk->changePassword("", error));
  EXPECT_TRUE(hasPassword("kiosk", ""));
  EXPECT_FALSE(hasPassword("kiosk", "first"));
}

TEST_F(Directory, SaysThatARecordHasGone) {
  std::optional<DirectoryRecord> kiosk = record("kiosk");
  removeUser("kiosk");
  std::string error;
  EXPECT_FALSE(kiosk->changePassword("x", error));
  EXPECT_NE(error, "");
}

}  // namespace
}  // namespace platform
