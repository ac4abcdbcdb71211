#include "simulator/mac/Accounts.h"

#include <sys/random.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cstdio>
#include <filesystem>

namespace simmac {
namespace {

using platform::MacDirectoryLock;
using platform::MacGroup;
using platform::MacTree;
using platform::MacUser;

constexpr char kHomes[] = "/Users/";

uid_t NextFreeUid(const MacTree& mac) {
  const std::vector<MacUser> users = mac.users();
  uid_t uid = kFirstUserId;
  while (std::any_of(users.begin(), users.end(),
                     [uid](const MacUser& user) { return user.uid == uid; })) {
    ++uid;
  }
  return uid;
}

bool MakePrivateDirectory(const std::string& path, const MacUser& user) {
  return mkdir(path.c_str(), 0700) == 0 && chmod(path.c_str(), 0700) == 0 &&
         lchown(path.c_str(), user.uid, user.gid) == 0;
}

}  // namespace

std::string NewUuid() {
  std::array<unsigned char, 16> bytes{};
  // At most 256 bytes are always delivered whole once the pool is ready.
  (void)getrandom(bytes.data(), bytes.size(), 0);
  bytes[6] = static_cast<unsigned char>((bytes[6] & 0x0F) | 0x40);
  bytes[8] = static_cast<unsigned char>((bytes[8] & 0x3F) | 0x80);
  std::string text;
  for (std::size_t i = 0; i < bytes.size(); ++i) {
    if (i == 4 || i == 6 || i == 8 || i == 10) text += '-';
    char digits[3];
    (void)std::snprintf(digits, sizeof digits, "%02X", bytes[i]);
    text += digits;
  }
  return text;
}

std::optional<MacUser> NewUserRecord(const MacTree& mac, const MacDirectoryLock& lock,
                                     const NewAccount& account) {
  if (!lock.held()) return std::nullopt;
  MacUser user;
  user.name = account.name;
  user.realName = account.fullName.empty() ? account.name : account.fullName;
  user.uid = account.uid ? *account.uid : NextFreeUid(mac);
  user.gid = kStaffGroup;
  user.home = account.home.value_or(kHomes + account.name);
  user.shell = account.shell;
  user.generatedUid = NewUuid();
  if (!account.password) return user;
  user.passwordHash = platform::MacPasswordHash(*account.password);
  return user.passwordHash ? std::optional(user) : std::nullopt;
}

bool AddAccount(const MacTree& mac, const MacDirectoryLock& lock, const MacUser& user,
                bool administrator) {
  if (!lock.held() || !mac.writeUser(user)) return false;
  if (!administrator) return mac.writeFlatView(lock);
  const std::optional<MacGroup> admin = mac.groupNamed(kAdminGroup);
  return admin && SetMember(mac, lock, *admin, user.name, true);
}

bool CreateHome(const MacTree& mac, const MacUser& user) {
  const std::string home = mac.path(user.home);
  return MakePrivateDirectory(home, user) && MakePrivateDirectory(home + "/Library", user) &&
         MakePrivateDirectory(home + "/Library/Preferences", user);
}

bool RemoveHome(const MacTree& mac, const MacUser& user) {
  const bool below = user.home.rfind(kHomes, 0) == 0 && user.home.size() > sizeof kHomes - 1 &&
                     user.home.find("/..") == std::string::npos;
  if (!below) return false;
  std::error_code error;
  std::filesystem::remove_all(mac.path(user.home), error);
  return !error;
}

bool RemoveAccount(const MacTree& mac, const MacDirectoryLock& lock, const std::string& name) {
  if (!lock.held() || !mac.removeUser(name)) return false;
  bool written = true;
  for (const MacGroup& group : mac.groups()) {
    if (std::count(group.users.begin(), group.users.end(), name) == 0) continue;
    written = SetMember(mac, lock, group, name, false) && written;
  }
  return mac.writeFlatView(lock) && written;
}

bool IsMember(const MacUser& user, const MacGroup& group) {
  return user.gid == group.gid ||
         std::find(group.users.begin(), group.users.end(), user.name) != group.users.end();
}

bool SetMember(const MacTree& mac, const MacDirectoryLock& lock, MacGroup group,
               const std::string& name, bool member) {
  if (!lock.held()) return false;
  std::erase(group.users, name);
  if (member) group.users.push_back(name);
  return mac.writeGroup(group) && mac.writeFlatView(lock);
}

}  // namespace simmac
