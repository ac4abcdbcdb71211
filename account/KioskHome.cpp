#include "account/KioskHome.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <array>
#include <cerrno>
#include <cstdio>
#include <optional>
#include <string>
#include <utility>

#include "account/KioskAccount.h"
#include "account/KioskFiles.h"
#include "account/KioskRun.h"
#include "core/KioskJson.h"
#include "core/KioskLog.h"
#include "core/KioskVersion.h"
#include "platform/PropertyList.h"

namespace {

constexpr char kCreatehomedir[] = "/usr/sbin/createhomedir";
constexpr char kSystemVersionFile[] = "/System/Library/CoreServices/SystemVersion.plist";
constexpr char kSetupAssistantFile[] = "com.apple.SetupAssistant.plist";
constexpr mode_t kHomeDirectoryMode = 0700;
constexpr mode_t kSetupAssistantMode = 0600;

constexpr std::array<const char*, 19> kSeenScreens{"DidSeeAccessibility",
                                                   "DidSeeActivationLock",
                                                   "DidSeeAppearanceSetup",
                                                   "DidSeeApplePaySetup",
                                                   "DidSeeAvatarSetup",
                                                   "DidSeeCloudSetup",
                                                   "DidSeeiCloudLoginForStorageServices",
                                                   "DidSeeIntelligence",
                                                   "DidSeeLockdownMode",
                                                   "DidSeePrivacy",
                                                   "DidSeeScreenTime",
                                                   "DidSeeSiriSetup",
                                                   "DidSeeSyncSetup",
                                                   "DidSeeSyncSetup2",
                                                   "DidSeeTermsOfAddress",
                                                   "DidSeeTouchIDSetup",
                                                   "DidSeeTrueTonePrivacy",
                                                   "DidSeeWalletSetup",
                                                   "SkipFirstLoginOptimization"};

Json SystemVersion() {
  const std::optional<std::string> bytes = KioskReadFile(kSystemVersionFile);
  return bytes ? platform::PropertyListParse(*bytes).value_or(Json()) : Json();
}

Json SetupAssistantPreferences() {
  Json preferences = Json::object();
  for (const char* key : kSeenScreens) preferences[key] = true;
  const Json system = SystemVersion();
  const Json& version = KioskMember(system, "ProductVersion");
  const Json& build = KioskMember(system, "ProductBuildVersion");
  if (!version.is_null()) preferences["LastSeenCloudProductVersion"] = version;
  if (!build.is_null()) preferences["LastSeenBuddyBuildVersion"] = build;
  return preferences;
}

bool IsOwnedBy(const KioskDescriptor& directory, uid_t uid) {
  struct stat info = {};
  return directory && fstat(directory.get(), &info) == 0 && info.st_uid == uid;
}

// Of a process with the same id, or the owner's: the home is theirs to put things into. What is in
// the way but in use, a directory with something in it, remains.
void RemoveLeftover(const KioskDescriptor& parent, const std::string& name) {
  if (unlinkat(parent.get(), name.c_str(), AT_REMOVEDIR) != 0 && errno == ENOTDIR) {
    static_cast<void>(unlinkat(parent.get(), name.c_str(), 0));
  }
}

// Makes a directory inside `parent` for the user. It gets its name last: one that is not the user's
// yet, because a step failed or the process ended in between, would be refused ever after.
KioskDescriptor MakeOwned(const KioskDescriptor& parent, const char* name, uid_t uid, gid_t gid) {
  const std::string temporary = "." + std::string(name) + ".tmp." + std::to_string(getpid());
  RemoveLeftover(parent, temporary);
  if (mkdirat(parent.get(), temporary.c_str(), kHomeDirectoryMode) != 0) return {};
  KioskDescriptor directory(openat(parent.get(), temporary.c_str(), kKioskDirectoryFlags));
  if (directory && fchown(directory.get(), uid, gid) == 0 &&
      renameat(parent.get(), temporary.c_str(), parent.get(), name) == 0) {
    return directory;
  }
  static_cast<void>(unlinkat(parent.get(), temporary.c_str(), AT_REMOVEDIR));
  return {};
}

// Opens a directory inside `parent`, making it when there is none; one that is there does not
// change hands. Nothing in the result when it is no real directory of the user's.
KioskDescriptor OpenOwned(const KioskDescriptor& parent, const char* name, uid_t uid, gid_t gid) {
  KioskDescriptor directory(openat(parent.get(), name, kKioskDirectoryFlags));
  if (!directory && errno == ENOENT) directory = MakeOwned(parent, name, uid, gid);
  return IsOwnedBy(directory, uid) ? std::move(directory) : KioskDescriptor();
}

KioskDescriptor OpenPreferences(const std::string& path, uid_t uid, gid_t gid) {
  const KioskDescriptor home = KioskOpenDirectory(path);
  if (!IsOwnedBy(home, uid)) return {};
  const KioskDescriptor library = OpenOwned(home, "Library", uid, gid);
  if (!library) return {};
  return OpenOwned(library, "Preferences", uid, gid);
}

bool WriteSetupAssistantPreferences(const KioskDescriptor& directory, uid_t uid, gid_t gid) {
  std::string error;
  const std::optional<std::string> bytes = platform::PropertyListWrite(
      SetupAssistantPreferences(), platform::PropertyListFormat::kBinary, error);
  if (!bytes) {
    KioskLogError("Setup Assistant preferences: %@", error);
    return false;
  }
  return KioskWriteAt(directory.get(), kSetupAssistantFile, *bytes, kSetupAssistantMode, uid, gid);
}

}  // namespace

bool KioskPrepareHome(uid_t uid, gid_t gid) {
  if (!KioskRunChecked(kCreatehomedir, {"-c", "-u", kKioskAccountName})) return false;
  const std::optional<std::string> home = KioskHomeOf(uid);
  if (!home) return false;
  const KioskDescriptor preferences = OpenPreferences(*home, uid, gid);
  if (!preferences) {
    KioskLogError("%@/Library/Preferences is not a real directory the kiosk account owns", *home);
    return false;
  }
  return WriteSetupAssistantPreferences(preferences, uid, gid);
}
