// The local user directory: CFOpenDirectory, membership.h, uuid.h.
#include "platform/Directory.h"

#include <OpenDirectory/OpenDirectory.h>
#include <membership.h>
#include <uuid/uuid.h>

#include "platform/macos/CfRef.h"

namespace platform {
namespace {

constexpr char kUnknownError[] = "The directory gave no reason.";
constexpr char kNotUtf8[] = "The text is not UTF-8.";

}  // namespace

std::optional<std::string> DirectoryUserUuid(uid_t uid) {
  uuid_t uuid;
  if (mbr_uid_to_uuid(uid, uuid) != 0) return std::nullopt;
  uuid_string_t text;
  uuid_unparse_upper(uuid, text);
  return text;
}

struct DirectoryRecord::Impl {
  CfRef<ODRecordRef> record;
};

DirectoryRecord::DirectoryRecord(std::unique_ptr<Impl> impl) : _impl(std::move(impl)) {}
DirectoryRecord::~DirectoryRecord() = default;
DirectoryRecord::DirectoryRecord(DirectoryRecord&&) noexcept = default;
DirectoryRecord& DirectoryRecord::operator=(DirectoryRecord&&) noexcept = default;

bool DirectoryRecord::changePassword(const std::string& newPassword, std::string& error) {
  const CfRef<CFStringRef> password = CfString(newPassword);
  if (!password) {
    error = kNotUtf8;
    return false;
  }
  CfRef<CFErrorRef> failure;
  if (ODRecordChangePassword(_impl->record.get(), nullptr, password.get(), failure.out())) {
    return true;
  }
  error = CfErrorText(failure.get(), kUnknownError);
  return false;
}

struct DirectoryNode::Impl {
  CfRef<ODNodeRef> node;
};

DirectoryNode::DirectoryNode(std::unique_ptr<Impl> impl) : _impl(std::move(impl)) {}
DirectoryNode::~DirectoryNode() = default;
DirectoryNode::DirectoryNode(DirectoryNode&&) noexcept = default;
DirectoryNode& DirectoryNode::operator=(DirectoryNode&&) noexcept = default;

std::optional<DirectoryNode> DirectoryNode::openLocal(std::string& error) {
  CfRef<CFErrorRef> failure;
  CfRef<ODNodeRef> node(
      ODNodeCreateWithNodeType(nullptr, kODSessionDefault, kODNodeTypeLocalNodes, failure.out()));
  if (!node) {
    error = CfErrorText(failure.get(), kUnknownError);
    return std::nullopt;
  }
  return DirectoryNode(std::make_unique<Impl>(Impl{std::move(node)}));
}

std::optional<DirectoryRecord> DirectoryNode::userRecord(const std::string& name,
                                                         std::string& error) {
  error.clear();
  const CfRef<CFStringRef> user = CfString(name);
  if (!user) {
    error = kNotUtf8;
    return std::nullopt;
  }
  CfRef<CFErrorRef> failure;
  CfRef<ODRecordRef> record(
      ODNodeCopyRecord(_impl->node.get(), kODRecordTypeUsers, user.get(), nullptr, failure.out()));
  if (!record) {
    // Without an error there simply is no such record.
    if (failure) error = CfErrorText(failure.get(), kUnknownError);
    return std::nullopt;
  }
  return DirectoryRecord(
      std::make_unique<DirectoryRecord::Impl>(DirectoryRecord::Impl{std::move(record)}));
}

}  // namespace platform
