#include "account/KioskAccount.h"

#include <pwd.h>
#include <unistd.h>

#include <cerrno>
#include <optional>
#include <vector>

#include "account/KioskRun.h"
#include "core/KioskLog.h"
#include "core/KioskVersion.h"
#include "platform/Crypto.h"
#include "platform/Directory.h"

namespace {

constexpr char kFdesetup[] = "/usr/bin/fdesetup";
constexpr char kSysadminctl[] = "/usr/sbin/sysadminctl";
constexpr char kDseditgroup[] = "/usr/sbin/dseditgroup";
constexpr std::string_view kPasswordAlphabet =
    "ABCDEFGHJKLMNPQRSTUVWXYZabcdefghijkmnopqrstuvwxyz23456789";
constexpr std::size_t kPasswordLength = 32;
constexpr std::size_t kFirstUserBufferBytes = 1024;
constexpr std::size_t kLargestUserBufferBytes = 1 << 20;

struct User {
  uid_t uid;
  gid_t gid;
  std::string home;
};

// `lookUp` is getpwnam_r or getpwuid_r with its key bound.
template <class LookUp>
std::optional<User> FindUser(LookUp lookUp) {
  for (std::size_t size = kFirstUserBufferBytes; size <= kLargestUserBufferBytes; size *= 2) {
    std::vector<char> buffer(size);
    passwd entry = {};
    passwd* found = nullptr;
    const int error = lookUp(&entry, buffer.data(), buffer.size(), &found);
    if (error == ERANGE) continue;
    if (error != 0 || found == nullptr) return std::nullopt;
    return User{entry.pw_uid, entry.pw_gid, entry.pw_dir == nullptr ? "" : entry.pw_dir};
  }
  return std::nullopt;
}

std::optional<User> KioskUser() {
  return FindUser([](passwd* entry, char* buffer, std::size_t size, passwd** found) {
    return getpwnam_r(kKioskAccountName, entry, buffer, size, found);
  });
}

// The failure's description, or nothing when the password was changed.
std::optional<std::string> ChangePassword(const std::string& password) {
  std::string error;
  std::optional<platform::DirectoryNode> node = platform::DirectoryNode::openLocal(error);
  if (!node) return error;
  std::optional<platform::DirectoryRecord> record = node->userRecord(kKioskAccountName, error);
  if (!record) return error.empty() ? "no record" : error;
  if (!record->changePassword(password, error)) return error;
  return std::nullopt;
}

}  // namespace

std::optional<std::string> KioskAccountGeneratedUID(uid_t* uid, gid_t* gid) {
  const std::optional<User> user = KioskUser();
  if (!user) return std::nullopt;
  if (uid != nullptr) *uid = user->uid;
  if (gid != nullptr) *gid = user->gid;
  return platform::DirectoryUserUuid(user->uid);
}

std::optional<std::string> KioskHomeOf(uid_t uid) {
  const std::optional<User> user =
      FindUser([uid](passwd* entry, char* buffer, std::size_t size, passwd** found) {
        return getpwuid_r(uid, entry, buffer, size, found);
      });
  if (!user || user->home.empty()) return std::nullopt;
  return user->home;
}

bool KioskFileVaultOn() {
  std::string output;
  if (KioskRun(kFdesetup, {"status"}, &output) != 0) {
    KioskLogError("fdesetup status failed: %@", output);
    return false;
  }
  return output.find("FileVault is On") != std::string::npos;
}

std::string KioskRandomPassword() {
  // Bytes beyond the last whole multiple of the alphabet's size would favour its first characters.
  constexpr std::size_t accepted = 256 / kPasswordAlphabet.size() * kPasswordAlphabet.size();
  std::string password;
  while (password.size() < kPasswordLength) {
    unsigned char byte = 0;
    if (!platform::CryptoRandomBytes(&byte, 1) || byte >= accepted) continue;
    password += kPasswordAlphabet[byte % kPasswordAlphabet.size()];
  }
  return password;
}

bool KioskCreateAccount() {
  return KioskRunChecked(kSysadminctl,
                         {"-addUser", kKioskAccountName, "-fullName", kKioskAccountFullName});
}

bool KioskDeleteAccount() {
  static_cast<void>(KioskRunChecked(kSysadminctl, {"-deleteUser", kKioskAccountName}));
  return !KioskAccountGeneratedUID();
}

bool KioskSetPassword(const std::string& password) {
  const std::optional<std::string> failure = ChangePassword(password);
  if (failure) KioskLogError("cannot set the %@ password: %@", kKioskAccountName, *failure);
  return !failure;
}

void KioskDemote() {
  for (const char* group : {"admin", "wheel"}) {
    std::string output;
    const std::int32_t status =
        KioskRun(kDseditgroup, {"-o", "checkmember", "-m", kKioskAccountName, group}, &output);
    if (status != 0 || !output.starts_with("yes")) continue;
    KioskLog("%@ was in %@; removing it", kKioskAccountName, group);
    KioskRunChecked(kDseditgroup, {"-o", "edit", "-d", kKioskAccountName, "-t", "user", group});
  }
}
