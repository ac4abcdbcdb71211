#include "account/KioskHome.h"

#include <fcntl.h>
#include <sys/stat.h>

#include <array>
#include <optional>
#include <string>

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

// Opens a directory inside `parent`, making it for the user when there is none. Nothing in the
// result when it is no real directory of the user's.
KioskDescriptor OpenOwned(const KioskDescriptor& parent, const char* name, uid_t uid, gid_t gid) {
  const bool created = mkdirat(parent.get(), name, kHomeDirectoryMode) == 0;
  KioskDescriptor directory(
      openat(parent.get(), name, O_RDONLY | O_NOFOLLOW | O_DIRECTORY | O_CLOEXEC));
  // Only a new directory changes hands; that it did is what the next line looks at.
  if (directory && created) static_cast<void>(fchown(directory.get(), uid, gid));
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
