#include "platform/Directory.h"

#include <unistd.h>

#include <algorithm>

#include "platform/simulated/Faults.h"
#include "platform/simulated/MacFiles.h"

namespace platform {
namespace {

char upperCase(char c) { return c >= 'a' && c <= 'z' ? static_cast<char>(c - 'a' + 'A') : c; }

/// Whether the service shall fail; `error` has the description then.
bool fails(const std::string& service, const std::vector<std::string>& arguments,
           std::string& error) {
  const std::optional<Fault> fault = TakeServiceFault(service, arguments);
  if (fault) error = fault->serviceErrorText();
  return fault.has_value();
}

}  // namespace

std::optional<std::string> DirectoryUserUuid(uid_t uid) {
  if (TakeServiceFault("directory.userUuid", {std::to_string(uid)})) return std::nullopt;
  const std::optional<MacUser> user = MacTree().userWithUid(uid);
  if (!user || user->generatedUid.empty()) return std::nullopt;
  std::string uuid = user->generatedUid;
  std::transform(uuid.begin(), uuid.end(), uuid.begin(), upperCase);
  return uuid;
}

struct DirectoryRecord::Impl {
  std::string name;
};

DirectoryRecord::DirectoryRecord(std::unique_ptr<Impl> impl) : _impl(std::move(impl)) {}
DirectoryRecord::~DirectoryRecord() = default;
DirectoryRecord::DirectoryRecord(DirectoryRecord&&) noexcept = default;
DirectoryRecord& DirectoryRecord::operator=(DirectoryRecord&&) noexcept = default;

bool DirectoryRecord::changePassword(const std::string& newPassword, std::string& error) {
  if (fails("directory.changePassword", {_impl->name}, error)) return false;
  const std::optional<std::string> hash = MacPasswordHash(newPassword);  // slow, so not locked
  const MacTree mac;
  const MacDirectoryLock lock(mac);
  std::optional<MacUser> user = mac.userNamed(_impl->name);
  if (!user) {
    error = "The record does not exist any more.";
    return false;
  }
  user->passwordHash = hash;
  if (!lock.held() || !hash || !mac.writeUser(*user)) {
    error = "The record could not be written.";
    return false;
  }
  return true;
}

struct DirectoryNode::Impl {};

DirectoryNode::DirectoryNode(std::unique_ptr<Impl> impl) : _impl(std::move(impl)) {}
DirectoryNode::~DirectoryNode() = default;
DirectoryNode::DirectoryNode(DirectoryNode&&) noexcept = default;
DirectoryNode& DirectoryNode::operator=(DirectoryNode&&) noexcept = default;

std::optional<DirectoryNode> DirectoryNode::openLocal(std::string& error) {
  error.clear();
  if (fails("directory.openLocal", {}, error)) return std::nullopt;
  if (access(kMacUsers, R_OK | X_OK) != 0) {
    error = "The local directory node is not available.";
    return std::nullopt;
  }
  return DirectoryNode(std::make_unique<Impl>());
}

std::optional<DirectoryRecord> DirectoryNode::userRecord(const std::string& name,
                                                         std::string& error) {
  error.clear();
  if (fails("directory.userRecord", {name}, error)) return std::nullopt;
  if (!MacTree().userNamed(name)) return std::nullopt;
  return DirectoryRecord(std::make_unique<DirectoryRecord::Impl>(DirectoryRecord::Impl{name}));
}

}  // namespace platform
