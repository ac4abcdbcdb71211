#include "platform/Directory.h"
#include "tests/native/Doubles.h"
#include "tests/platform/World.h"

namespace platform {
namespace {

constexpr char kNoReason[] = "The directory gave no reason.";

class DirectoryFailure : public contract::World {
 protected:
  DirectoryFailure() { addUser("kiosk", 501, "0A1B2C3D-1111-4222-8333-444455556666"); }

  std::string _error;
};

TEST_F(DirectoryFailure, OfTheNodeSaysWhy) {
  native::Fail("ODNodeCreateWithNodeType", 1, "no node");
  EXPECT_FALSE(DirectoryNode::openLocal(_error));
  EXPECT_EQ(_error, "no node");
  native::Fail("ODNodeCreateWithNodeType");
  native::Fail("CFErrorCopyDescription");
  EXPECT_FALSE(DirectoryNode::openLocal(_error));
  EXPECT_EQ(_error, kNoReason);
}

TEST_F(DirectoryFailure, OfTheRecordSaysWhyAndIsNotTakenForAnAbsentOne) {
  std::optional<DirectoryNode> node = DirectoryNode::openLocal(_error);
  native::Fail("ODNodeCopyRecord", 1, "no answer");
  EXPECT_FALSE(node->userRecord("kiosk", _error));
  EXPECT_EQ(_error, "no answer");
  native::Fail("CFStringCreateWithBytes");
  EXPECT_FALSE(node->userRecord("kiosk", _error));
  EXPECT_NE(_error, "");
  EXPECT_FALSE(node->userRecord("\xFF", _error));
  EXPECT_NE(_error, "");
  EXPECT_FALSE(node->userRecord("nobody", _error));
  EXPECT_EQ(_error, "");
}

TEST_F(DirectoryFailure, OfThePasswordSaysWhyAndChangesNothing) {
  std::optional<DirectoryNode> node = DirectoryNode::openLocal(_error);
  std::optional<DirectoryRecord> record = node->userRecord("kiosk", _error);
  native::Fail("ODRecordChangePassword", 1, "too short");
  EXPECT_FALSE(record->changePassword("new", _error));
  EXPECT_EQ(_error, "too short");
  native::Fail("ODRecordChangePassword");
  native::Fail("CFErrorCopyDescription");
  EXPECT_FALSE(record->changePassword("new", _error));
  EXPECT_EQ(_error, kNoReason);
  EXPECT_FALSE(record->changePassword("\xFF", _error));
  EXPECT_NE(_error, kNoReason);
  EXPECT_TRUE(hasPassword("kiosk", "unknown"));
}

TEST_F(DirectoryFailure, OfTheUuidGivesNone) {
  native::Fail("mbr_uid_to_uuid");
  EXPECT_EQ(DirectoryUserUuid(501), std::nullopt);
}

TEST_F(DirectoryFailure, KeepsTheRecordWhenItsNodeHasGone) {
  std::optional<DirectoryRecord> record;
  record.emplace(*DirectoryNode::openLocal(_error)->userRecord("kiosk", _error));
  EXPECT_TRUE(record->changePassword("new", _error));
  EXPECT_TRUE(hasPassword("kiosk", "new"));
}

}  // namespace
}  // namespace platform
