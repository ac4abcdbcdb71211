// The kiosk account in the user directory and its groups. Any thread; tools block the caller.
#pragma once

#include <sys/types.h>

#include <optional>
#include <string>

/// The generated UID of the live kiosk account, upper case, or nothing. The out-parameters are
/// filled whenever the account exists, even when its UID cannot be had.
std::optional<std::string> KioskAccountGeneratedUID(uid_t* uid = nullptr, gid_t* gid = nullptr);

/// The home directory of a user by the user database, or nothing.
std::optional<std::string> KioskHomeOf(uid_t uid);

/// Whether FileVault is on; a failed query is logged and counts as off.
bool KioskFileVaultOn();

/// 32 random characters from an alphabet without the easily confused ones, all equally likely.
std::string KioskRandomPassword();

/// Creates the kiosk account without password and administrator rights. The result is the tool's
/// word only: callers look whether the account exists.
bool KioskCreateAccount();

/// Deletes the kiosk account. True when none is left afterwards, whatever the tool said.
bool KioskDeleteAccount();

/// Gives the kiosk account a new password. False after one log line on failure.
[[nodiscard]] bool KioskSetPassword(const std::string& password);

/// Takes the kiosk account out of the administrator groups; failures are logged.
void KioskDemote();
