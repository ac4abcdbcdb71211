// simmac's commands. `root` is the Mac's directory without a slash at its end; failures are told on
// standard error in one sentence; the result is the program's exit status.
#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <vector>

#include "platform/Json.h"

namespace simmac {

struct CreateOptions {
  std::string portal;              ///< the portal's origin; empty: not configured
  std::vector<std::string> trust;  ///< files with certificate authorities
  std::string computerName = "Kiosk Mac";
  std::string osVersion = "14.6.1";
  std::string osBuild = "23G93";
  std::string appVersion = "3.2.1";
  bool force = false;      ///< replaces a Mac that is there already
  bool toolsOnly = false;  ///< leaves out the daemon, the application and its client
};

int CreateMac(const std::string& root, const CreateOptions& options);

/// Ask the running boot and wait until it is done.
int RebootMac(const std::string& root);
int HaltMac(const std::string& root);

int ShowStatus(const std::string& root, bool json);
int ShowJournal(const std::string& root, bool json, bool follow);
int ShowSystemLog(const std::string& root, bool follow);

int AddFault(const std::string& root, const Json& fault);
int ListFaults(const std::string& root);
int ClearFaults(const std::string& root);

struct RunOptions {
  std::string user;  ///< a name or a user id; empty: root
  std::vector<std::string> command;
};

/// Runs a command inside the Mac; its exit status, or 128 and the number of the signal it died by.
int RunInMac(const std::string& root, const RunOptions& options);

int AddUser(const std::string& root, const std::string& name,
            const std::optional<std::string>& password, bool administrator);
int SetFileVault(const std::string& root, bool on);
int SetAutoLogin(const std::string& root, const std::string& name, const std::string& password);

/// Shows the catalogue of software updates, for people or as it is.
int ShowUpdates(const std::string& root, bool json);
/// Puts an update, as the file has it, on offer. Refuses a label that is on offer already.
int AddUpdate(const std::string& root, const Json& update);
/// Changes keys of the catalogue that are not about an update; null takes a key away.
int SetUpdates(const std::string& root, const Json& keys);
/// Makes it a new Mac's, whatever it is.
int ClearUpdates(const std::string& root);

/// Shows the clock that the Mac's programs see.
int ShowClock(const std::string& root);
/// Moves it ahead and shows it.
int AdvanceClock(const std::string& root, std::uint64_t seconds);

/// Says one sentence on standard error and returns 1.
int Refuse(const std::string& sentence);

/// Whether the directory is a simulated Mac; says so when it is not.
bool IsMac(const std::string& root);

/// Makes sure that the program may act as root: it is root, or runs itself once more in a user
/// namespace (the running Mac's own, when there is one). Nothing when all is well, else the exit
/// status.
std::optional<int> GainPrivileges(const std::string& root, char** arguments);

}  // namespace simmac
