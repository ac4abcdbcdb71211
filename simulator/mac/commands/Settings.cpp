#include <cstdio>
#include <filesystem>

#include "platform/simulated/MacFiles.h"
#include "simulator/mac/Accounts.h"
#include "simulator/mac/commands/Commands.h"
#include "simulator/mac/launchd/AutoLogin.h"

namespace simmac {

using platform::MacTree;
using platform::MacUser;

int Refuse(const std::string& sentence) {
  (void)std::fprintf(stderr, "simmac: %s\n", sentence.c_str());
  return 1;
}

bool IsMac(const std::string& root) {
  const MacTree mac(root);
  std::error_code error;
  if (std::filesystem::is_directory(mac.path(platform::kMacSimulated), error)) return true;
  return Refuse(root + " is not a simulated Mac.") == 0;
}

int AddUser(const std::string& root, const std::string& name,
            const std::optional<std::string>& password, bool administrator) {
  if (!IsMac(root)) return 1;
  const MacTree mac(root);
  const platform::MacDirectoryLock lock(mac);
  if (mac.userNamed(name)) return Refuse("The account " + name + " exists already.");
  NewAccount account;
  account.name = name;
  account.password = password;
  const std::optional<MacUser> user = NewUserRecord(mac, lock, account);
  const bool added = user && AddAccount(mac, lock, *user, administrator) && CreateHome(mac, *user);
  return added ? 0 : Refuse("The account " + name + " cannot be made.");
}

int SetFileVault(const std::string& root, bool on) {
  if (!IsMac(root)) return 1;
  constexpr mode_t kMode = 0644;
  const Json file = {{"status", on ? "FileVault is On." : "FileVault is Off."}};
  if (MacTree(root).replace(platform::kMacFileVault, file.dump() + "\n", kMode)) return 0;
  return Refuse("The state of FileVault cannot be written.");
}

int SetAutoLogin(const std::string& root, const std::string& name, const std::string& password) {
  if (!IsMac(root)) return 1;
  if (StoreAutoLogin(MacTree(root), name, password)) return 0;
  return Refuse("The login window's preferences cannot be written.");
}

}  // namespace simmac
