// Accounts of a simulated Mac: record, home, memberships and the flat view, kept in step. Whoever
// changes records holds the directory's lock from the first look at them on.
#pragma once

#include <sys/types.h>

#include <optional>
#include <string>

#include "platform/simulated/MacFiles.h"

namespace simmac {

inline constexpr uid_t kFirstUserId = 501;
inline constexpr gid_t kStaffGroup = 20;
inline constexpr char kAdminGroup[] = "admin";

/// What a new account is made from. Absent parts are chosen as a Mac does.
struct NewAccount {
  std::string name;
  std::string fullName;  ///< empty: the name
  std::optional<uid_t> uid;
  std::optional<std::string> home;
  std::string shell = "/bin/zsh";
  std::optional<std::string> password;
  bool administrator = false;
};

/// A random UUID, 8-4-4-4-12 with upper-case letters.
std::string NewUuid();

/// The record of a new account with the next free user id from 501, which stays free for as long as
/// the directory's lock is held; nothing is written. Nothing when the password cannot be hashed.
std::optional<platform::MacUser> NewUserRecord(const platform::MacTree& mac,
                                               const platform::MacDirectoryLock& lock,
                                               const NewAccount& account);

/// Writes the record, the membership of the administrators and the flat view. False on failure, a
/// lock that is not held included.
[[nodiscard]] bool AddAccount(const platform::MacTree& mac, const platform::MacDirectoryLock& lock,
                              const platform::MacUser& user, bool administrator);

/// Makes a user's home with Library and Library/Preferences, all of them 0700 and the user's own.
/// False when it cannot be made or is there already.
[[nodiscard]] bool CreateHome(const platform::MacTree& mac, const platform::MacUser& user);

/// Removes a home below /Users with all it holds. False when some of it stays.
[[nodiscard]] bool RemoveHome(const platform::MacTree& mac, const platform::MacUser& user);

/// Removes a user's record and memberships and writes the flat view. False on failure, a lock that
/// is not held included.
[[nodiscard]] bool RemoveAccount(const platform::MacTree& mac,
                                 const platform::MacDirectoryLock& lock, const std::string& name);

/// Whether a user belongs to a group, by name or as its primary group.
bool IsMember(const platform::MacUser& user, const platform::MacGroup& group);

/// Makes a user a member of a group or not one, and writes the flat view. False on failure, a lock
/// that is not held included.
[[nodiscard]] bool SetMember(const platform::MacTree& mac, const platform::MacDirectoryLock& lock,
                             platform::MacGroup group, const std::string& name, bool member);

}  // namespace simmac
