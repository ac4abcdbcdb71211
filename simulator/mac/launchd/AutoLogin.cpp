#include "simulator/mac/launchd/AutoLogin.h"

#include <sys/stat.h>

#include <array>

#include "simulator/mac/FileVault.h"

namespace simmac {
namespace {

using platform::MacTree;
using platform::MacUser;

constexpr std::array<unsigned char, 11> kKey = {0x7D, 0x89, 0x52, 0x23, 0xD2, 0xBC,
                                                0xDD, 0xEA, 0xA3, 0xB9, 0x1F};
constexpr std::size_t kBlock = 12;
constexpr char kUserKey[] = "autoLoginUser";

std::string Masked(const std::string& bytes) {
  std::string masked = bytes;
  for (std::size_t i = 0; i < masked.size(); ++i) {
    masked[i] = static_cast<char>(static_cast<unsigned char>(masked[i]) ^ kKey[i % kKey.size()]);
  }
  return masked;
}

std::string PreferredUser(const MacTree& mac) {
  const Json list =
      mac.readPropertyList(platform::kMacLoginWindowPreferences).value_or(Json::object());
  const bool known = list.is_object() && list.contains(kUserKey) && list[kUserKey].is_string();
  return known ? list[kUserKey].get<std::string>() : "";
}

bool IsRootsAlone(const std::string& path) {
  struct stat status {};
  return lstat(path.c_str(), &status) == 0 && S_ISREG(status.st_mode) && status.st_uid == 0 &&
         (status.st_mode & (S_IRWXG | S_IRWXO)) == 0;
}

bool Matches(const MacUser& user, const std::string& bytes) {
  const std::optional<std::string> password = DecodeAutoLoginPassword(bytes);
  return password && user.passwordHash &&
         platform::MacPasswordMatches(*password, *user.passwordHash);
}

}  // namespace

std::optional<std::string> DecodeAutoLoginPassword(const std::string& bytes) {
  const std::string padded = Masked(bytes);
  const std::size_t end = padded.find('\0');
  if (end == std::string::npos || padded.size() % kBlock != 0) return std::nullopt;
  return padded.substr(0, end);
}

std::string EncodeAutoLoginPassword(const std::string& password) {
  std::string padded = password;
  // At least one zero byte ends the password.
  padded.resize((password.size() / kBlock + 1) * kBlock);
  return Masked(padded);
}

AutoLogin DecideAutoLogin(const MacTree& mac) {
  const std::string name = PreferredUser(mac);
  if (name.empty()) return {std::nullopt, "nobody signs in automatically"};
  const std::optional<MacUser> user = mac.userNamed(name);
  if (!user) return {std::nullopt, "there is no account " + name + " to sign in"};
  if (FileVaultIsOn(mac)) return {std::nullopt, "FileVault is on, so " + name + " has to sign in"};
  const std::optional<std::string> bytes = mac.read(platform::kMacAutoLoginPassword);
  if (!bytes) return {std::nullopt, "there is no stored password"};
  if (!IsRootsAlone(mac.path(platform::kMacAutoLoginPassword))) {
    return {std::nullopt, "the stored password is not root's alone"};
  }
  if (!Matches(*user, *bytes)) return {std::nullopt, "the stored password does not match"};
  return {user, "auto-login for " + name};
}

bool StoreAutoLogin(const MacTree& mac, const std::string& name, const std::string& password) {
  constexpr mode_t kPreferencesMode = 0644;
  constexpr mode_t kPasswordMode = 0600;
  Json list = mac.readPropertyList(platform::kMacLoginWindowPreferences).value_or(Json::object());
  if (!list.is_object()) list = Json::object();
  list[kUserKey] = name;
  return mac.writePropertyList(platform::kMacLoginWindowPreferences, list,
                               platform::PropertyListFormat::kBinary, kPreferencesMode) &&
         mac.replace(platform::kMacAutoLoginPassword, EncodeAutoLoginPassword(password),
                     kPasswordMode);
}

}  // namespace simmac
