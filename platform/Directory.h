// The local user directory: a user's UUID and password.
// Native counterparts: CFOpenDirectory, membership.h, uuid.h.
#pragma once

#include <sys/types.h>

#include <memory>
#include <optional>
#include <string>

namespace platform {

/// The UUID of a user id in the standard 8-4-4-4-12 form with upper-case letters, or nothing when
/// it cannot be had. A Mac makes one up for a user id that nobody has. Any thread.
/// Native: mbr_uid_to_uuid, uuid_unparse_upper.
std::optional<std::string> DirectoryUserUuid(uid_t uid);

/// One user's record in a node. Move-only. Native: ODRecordRef.
class DirectoryRecord {
 public:
  struct Impl;
  explicit DirectoryRecord(std::unique_ptr<Impl> impl);
  ~DirectoryRecord();
  DirectoryRecord(DirectoryRecord&&) noexcept;
  DirectoryRecord& operator=(DirectoryRecord&&) noexcept;

  /// Sets a new password without knowing the old one. False with `error` set to the failure's
  /// description otherwise. Native: ODRecordChangePassword with no old password.
  [[nodiscard]] bool changePassword(const std::string& newPassword, std::string& error);

 private:
  std::unique_ptr<Impl> _impl;
};

/// The local directory node. Move-only. Native: ODNodeRef.
class DirectoryNode {
 public:
  struct Impl;
  explicit DirectoryNode(std::unique_ptr<Impl> impl);
  ~DirectoryNode();
  DirectoryNode(DirectoryNode&&) noexcept;
  DirectoryNode& operator=(DirectoryNode&&) noexcept;

  /// Opens the local node in the default session. Nothing with `error` set on failure.
  /// Native: ODNodeCreateWithNodeType(kODNodeTypeLocalNodes).
  static std::optional<DirectoryNode> openLocal(std::string& error);

  /// The record of type user with this name. Nothing with `error` empty when there is none, nothing
  /// with `error` set on failure. Native: ODNodeCopyRecord(kODRecordTypeUsers).
  std::optional<DirectoryRecord> userRecord(const std::string& name, std::string& error);

 private:
  std::unique_ptr<Impl> _impl;
};

}  // namespace platform
