// The login window's decision at boot: who signs in without being asked.
#pragma once

#include <optional>
#include <string>

#include "platform/simulated/MacFiles.h"

namespace simmac {

/// What the login window found.
struct AutoLogin {
  std::optional<platform::MacUser> user;  ///< who signs in, if anybody
  std::string explanation;                ///< one clause for the timeline
};

/// Reads the login window's preferences and the stored password and checks it against the account.
/// Nobody signs in while FileVault is on, nor by a password file that is not root's alone.
AutoLogin DecideAutoLogin(const platform::MacTree& mac);

/// The password behind the bytes of /private/etc/kcpassword: what stands before their first NUL.
/// Nothing when there is no NUL or the bytes are not whole blocks of 12.
std::optional<std::string> DecodeAutoLoginPassword(const std::string& bytes);

/// Those bytes for a password.
std::string EncodeAutoLoginPassword(const std::string& password);

/// Makes an account sign in at boot with this password, right or wrong. False when the files cannot
/// be written.
[[nodiscard]] bool StoreAutoLogin(const platform::MacTree& mac, const std::string& name,
                                  const std::string& password);

}  // namespace simmac
