// sysadminctl says everything on standard error and reports most failures with exit status 0, as
// the real one does: who calls it has to look at the user's record afterwards.

#include <unistd.h>

#include <charconv>
#include <iostream>
#include <optional>

#include "platform/simulated/Faults.h"
#include "simulator/mac/Accounts.h"
#include "simulator/mac/GuiSessions.h"
#include "simulator/mac/tools/Tool.h"

namespace simmac {
namespace {

using platform::MacTree;
using platform::MacUser;

constexpr int kFailed = 255;

/// Service whose fault keeps a record from being deleted after all else is gone, as on a Mac that
/// has not granted the caller access; its status is the error number that is printed.
constexpr char kDeleteRecordFault[] = "directory.deleteRecord";

void Log(const ToolCall& call, const std::string& text) {
  call.output.err(LogPrefix(call.name) + text + "\n");
}

int Usage(const ToolCall& call) {
  call.output.err(
      "Usage: sysadminctl\n"
      "\t-deleteUser <user name> [-secure || -keepHome]\n"
      "\t-addUser <user name> [-fullName <full name>] [-UID <user ID>] [-shell <path to shell>] "
      "[-password <user password>] [-home <full path to home>] [-admin]\n"
      "\n"
      "Pass '-' instead of password in commands above to request prompt.\n");
  return kFailed;
}

std::optional<uid_t> ParseUid(const std::string& text) {
  uid_t uid = 0;
  const char* end = text.data() + text.size();
  const auto [stop, error] = std::from_chars(text.data(), end, uid);
  return error == std::errc() && stop == end ? std::optional(uid) : std::nullopt;
}

std::string AskForPassword(const ToolCall& call) {
  call.output.err("User password:\n");
  std::string line;
  (void)std::getline(std::cin, line);
  return line;
}

/// Applies one option with its value. False when the option is unknown or the value is not one.
bool ApplyOption(const std::string& option, const std::string& value, NewAccount& account) {
  if (option == "-fullName")
    account.fullName = value;
  else if (option == "-password")
    account.password = value;
  else if (option == "-home")
    account.home = value;
  else if (option == "-shell")
    account.shell = value;
  else if (option == "-UID")
    return (account.uid = ParseUid(value)).has_value();
  else
    return false;
  return true;
}

std::optional<NewAccount> ParseNewAccount(const std::vector<std::string>& arguments) {
  if (arguments.size() < 2 || arguments[1].empty()) return std::nullopt;
  NewAccount account;
  account.name = arguments[1];
  for (std::size_t i = 2; i < arguments.size(); ++i) {
    if (arguments[i] == "-admin") {
      account.administrator = true;
      continue;
    }
    if (i + 1 == arguments.size()) return std::nullopt;
    if (!ApplyOption(arguments[i], arguments[i + 1], account)) return std::nullopt;
    ++i;
  }
  return account;
}

bool IsTaken(const MacTree& mac, const NewAccount& account) {
  return mac.userNamed(account.name) || (account.uid && mac.userWithUid(*account.uid));
}

bool MayAdminister(const ToolCall& call) {
  if (geteuid() == 0) return true;
  Log(call,
      "sysadminctl should be run as root, or in interactive mode! (Error "
      "Domain=NSOSStatusErrorDomain Code=-60007 \"errAuthorizationInteractionNotAllowed: The "
      "authorization was denied since no user interaction was possible. \")");
  return false;
}

void WarnAboutPassword(const ToolCall& call) {
  // Printed even when a password was given.
  constexpr char kLine[] = "----------------------------";
  Log(call, kLine);
  Log(call,
      "No clear text password or interactive option was specified (adduser, change/reset password "
      "will not allow user to use FDE) !");
  Log(call, kLine);
}

void MakeHome(const ToolCall& call, const MacTree& mac, const MacUser& user, bool chosen) {
  if (chosen) {
    Log(call, "Home directory is assigned (not created!) at " + user.home);
    return;
  }
  Log(call, "Creating home directory at " + user.home);
  if (!CreateHome(mac, user)) Log(call, "Could not create home directory at " + user.home);
}

int AddUser(const ToolCall& call) {
  std::optional<NewAccount> account = ParseNewAccount(call.arguments);
  if (!account) return Usage(call);
  if (!MayAdminister(call)) return 0;
  const MacTree mac;
  WarnAboutPassword(call);
  Log(call, "Creating user record…");
  if (account->password == "-") account->password = AskForPassword(call);
  const platform::MacDirectoryLock lock(mac);
  if (IsTaken(mac, *account)) {
    Log(call, "User " + account->name + " already exists.");
    return 0;
  }
  const std::optional<MacUser> user = NewUserRecord(mac, lock, *account);
  if (!user || !AddAccount(mac, lock, *user, account->administrator)) {
    Log(call, "Could not create record for " + account->name);
    return 0;
  }
  Log(call, "Assigning UID: " + std::to_string(user->uid) + " GID: " + std::to_string(user->gid));
  MakeHome(call, mac, *user, account->home.has_value());
  return 0;
}

void DeleteHome(const ToolCall& call, const MacTree& mac, const MacUser& user, bool secure) {
  const char* verb = secure ? "Securely removing " : "Removing ";
  Log(call, verb + user.name + "'s home at " + user.home);
  if (!RemoveHome(mac, user)) Log(call, "Could not remove home at " + user.home);
}

void DeleteRecord(const ToolCall& call, const MacTree& mac, const MacUser& user) {
  Log(call, "Deleting record for " + user.name);
  const auto fault = platform::TakeServiceFault(kDeleteRecordFault, {user.name});
  const bool deleted = !fault && RemoveAccount(mac, platform::MacDirectoryLock(mac), user.name);
  Log(call, "AOSKit INFO: Disabling BTMM for user, no zone found for uid=" +
                std::to_string(user.uid) + ", usersToZones: (null)");
  if (deleted) return;
  constexpr int kNotPermitted = -14120;
  const int error = fault && fault->status ? *fault->status : kNotPermitted;
  Log(call, "### Error:" + std::to_string(error) +
                " File:/AppleInternal/Library/BuildRoots/"
                "4~B5FeugCYEZd96X3zqIDDgARflf-BD_RFQt1Gd-I/Library/Caches/com.apple.xbs/Sources/"
                "Admin/DSRecord.m Line:563");
}

bool IsDeletion(const std::vector<std::string>& arguments) {
  const std::string option = arguments.size() > 2 ? arguments[2] : "-keepHome";
  return arguments.size() > 1 && arguments.size() <= 3 &&
         (option == "-keepHome" || option == "-secure");
}

int DeleteUser(const ToolCall& call) {
  if (!IsDeletion(call.arguments)) return Usage(call);
  if (!MayAdminister(call)) return 0;
  const MacTree mac;
  const std::optional<MacUser> user = mac.userNamed(call.arguments[1]);
  if (!user) {
    Log(call, "User " + call.arguments[1] + " does not exist.");
    return 0;
  }
  const std::string option = call.arguments.size() > 2 ? call.arguments[2] : "";
  Log(call, "Killing all processes for UID " + std::to_string(user->uid));
  // A session that does not end in time costs the home's removal at most, which is told then.
  (void)KillGuiSession(mac, user->uid);
  if (option != "-keepHome") DeleteHome(call, mac, *user, option == "-secure");
  Log(call, "Deleting Public share point for " + user->name);
  DeleteRecord(call, mac, *user);
  return 0;
}

}  // namespace

int SysAdminCtl(const ToolCall& call) {
  const std::string verb = call.arguments.empty() ? "" : call.arguments.front();
  if (verb == "-addUser") return AddUser(call);
  if (verb == "-deleteUser") return DeleteUser(call);
  return Usage(call);
}

}  // namespace simmac
