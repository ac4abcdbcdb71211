// The files of the simulated Mac that more than one program reads or writes. Programs inside the
// Mac have it as their root; programs outside name the directory.
#pragma once

#include <sys/types.h>

#include <optional>
#include <string>
#include <vector>

#include "platform/Json.h"
#include "platform/PropertyList.h"
#include "platform/simulated/Descriptor.h"

namespace platform {

inline constexpr char kMacLoginWindowPreferences[] =
    "/Library/Preferences/com.apple.loginwindow.plist";
inline constexpr char kMacNetworkPreferences[] =
    "/Library/Preferences/SystemConfiguration/preferences.plist";
inline constexpr char kMacSystemVersion[] = "/System/Library/CoreServices/SystemVersion.plist";
inline constexpr char kMacDirectoryNode[] = "/private/var/db/dslocal/nodes/Default";
inline constexpr char kMacUsers[] = "/private/var/db/dslocal/nodes/Default/users";
inline constexpr char kMacGroups[] = "/private/var/db/dslocal/nodes/Default/groups";
inline constexpr char kMacPasswdFile[] = "/private/etc/passwd";
inline constexpr char kMacGroupFile[] = "/private/etc/group";
inline constexpr char kMacAutoLoginPassword[] = "/private/etc/kcpassword";
inline constexpr char kMacCertificateAuthorities[] = "/private/etc/ssl/cert.pem";
inline constexpr char kMacLocalTime[] = "/private/etc/localtime";
inline constexpr char kMacSystemLog[] = "/private/var/log/system.log";
inline constexpr char kMacSimulated[] = "/private/var/simulated";
inline constexpr char kMacJournal[] = "/private/var/simulated/journal.jsonl";
inline constexpr char kMacFaults[] = "/private/var/simulated/faults.json";
inline constexpr char kMacFaultsLock[] = "/private/var/simulated/faults.lock";
inline constexpr char kMacFileVault[] = "/private/var/simulated/fdesetup.json";
inline constexpr char kMacLogging[] = "/private/var/simulated/logging.json";
inline constexpr char kMacGuiSessions[] = "/private/var/simulated/gui";
inline constexpr char kMacLaunchdPid[] = "/private/var/simulated/launchd.pid";
inline constexpr char kMacPowerRequest[] = "/private/var/simulated/power";

/// The environment that every process of the Mac is started with.
inline constexpr char kMacProcVariable[] = "SIMULATED_MAC_PROC";
inline constexpr char kMacServicesVariable[] = "SIMULATED_MAC_SERVICES";

/// The process id of launchd, which a daemon that begins to serve tells of it by SIGUSR1.
inline constexpr char kMacLaunchdVariable[] = "SIMULATED_MAC_LAUNCHD";

/// A user record.
struct MacUser {
  std::string name;
  std::string realName;
  uid_t uid = 0;
  gid_t gid = 0;
  std::string home;
  std::string shell;
  std::string generatedUid;                 ///< 8-4-4-4-12, upper case
  std::optional<std::string> passwordHash;  ///< nothing until a password is set
};

/// A group record.
struct MacGroup {
  std::string name;
  gid_t gid = 0;
  std::string generatedUid;
  std::vector<std::string> users;  ///< members' short names
};

class MacDirectoryLock;

/// A simulated Mac's tree. Paths given to its members are absolute inside the Mac. Any thread.
class MacTree {
 public:
  /// `root` is the Mac's directory seen from the caller, without a slash at its end; the default is
  /// for programs inside the Mac.
  explicit MacTree(std::string root = "") : _root(std::move(root)) {}

  /// Where `path` of the Mac is for the caller.
  std::string path(const std::string& path) const { return _root + path; }

  /// A whole regular file, or nothing when it cannot be read or is too large.
  std::optional<std::string> read(const std::string& path) const;

  /// Replaces a file whole: readers see the old or the new contents. False with errno set.
  [[nodiscard]] bool replace(const std::string& path, const std::string& contents,
                             mode_t mode) const;

  /// Reads a file as JSON or as a property list; nothing when it is not there or not one.
  std::optional<Json> readJson(const std::string& path) const;
  std::optional<Json> readPropertyList(const std::string& path) const;

  /// Replaces a file by a property list. False when it cannot be written.
  [[nodiscard]] bool writePropertyList(const std::string& path, const Json& value,
                                       PropertyListFormat format, mode_t mode) const;

  /// User records, in order of their names. Records that are not whole are left out.
  std::vector<MacUser> users() const;
  std::optional<MacUser> userNamed(const std::string& name) const;
  std::optional<MacUser> userWithUid(uid_t uid) const;

  /// Writes a user's record; attributes that MacUser does not have stay as they are. The flat view
  /// is not touched. False when the name cannot be a record's or writing fails.
  [[nodiscard]] bool writeUser(const MacUser& user) const;
  /// Removes a user's record. False when there is none.
  [[nodiscard]] bool removeUser(const std::string& name) const;

  /// The same for groups.
  std::vector<MacGroup> groups() const;
  std::optional<MacGroup> groupNamed(const std::string& name) const;
  [[nodiscard]] bool writeGroup(const MacGroup& group) const;
  [[nodiscard]] bool removeGroup(const std::string& name) const;

  /// Writes /private/etc/passwd and /private/etc/group anew from the records. False on failure. The
  /// first form takes the directory's lock for it, so it is for those who do not hold it.
  [[nodiscard]] bool writeFlatView() const;
  [[nodiscard]] bool writeFlatView(const MacDirectoryLock& lock) const;

 private:
  std::string _root;
};

/// Keeps the local directory from all other programs that change it: held from reading a record
/// until its new form, and the flat view, are written. Waits for the present holder, and is not to
/// be taken twice by one thread.
class MacDirectoryLock {
 public:
  explicit MacDirectoryLock(const MacTree& mac);

  /// False when the directory cannot be opened, as by others than root.
  bool held() const { return _node.valid(); }

 private:
  Descriptor _node;
};

/// The crypt(3) hash ("$6$") of a password with a fresh salt, or nothing when it cannot be made.
std::optional<std::string> MacPasswordHash(const std::string& password);

/// Whether `password` has the hash `hash`. A malformed hash matches nothing.
bool MacPasswordMatches(const std::string& password, const std::string& hash);

}  // namespace platform
