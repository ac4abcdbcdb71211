// The state dictionary, its file, and the published status.
#include "core/KioskDaemon.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <utility>

#include "account/KioskAppBundle.h"
#include "account/KioskDescriptor.h"
#include "account/KioskFiles.h"
#include "core/KioskJson.h"
#include "core/KioskLog.h"
#include "core/KioskVersion.h"
#include "portal/KioskCheckIn.h"

namespace {

constexpr char kVendorDir[] = "/Library/Application Support/Brindlex";
constexpr char kStateDir[] = "/Library/Application Support/Brindlex/Kiosk";
constexpr char kStateFile[] = "/Library/Application Support/Brindlex/Kiosk/state.json";
constexpr mode_t kVendorDirMode = 0755;
constexpr mode_t kStateDirMode = 0711;
constexpr mode_t kStateFileMode = 0600;

// An existing directory is the normal case. The mode is set explicitly because the one given at
// creation was cut by the process's mask.
void MakeDirectory(const char* path, mode_t mode) {
  if (mkdir(path, mode) != 0) return;
  static_cast<void>(fchmod(KioskDescriptor(open(path, kKioskDirectoryFlags)).get(), mode));
}

bool IsOwnSession(const Json& snapshot, std::uint32_t peerUid) {
  const Json& uid = KioskMember(snapshot, "uid");
  return uid.is_number() && uid.get<std::uint32_t>() == peerUid;
}

Json StatusReply(Json snapshot, bool isOwnSession) {
  snapshot.erase("uid");  // the account's uid never leaves the daemon
  snapshot["kioskSession"] = isOwnSession ? 1 : 0;
  return snapshot;
}

}  // namespace

KioskDaemon::KioskDaemon() : _queue(kKioskServiceName) {}

std::optional<std::string> KioskDaemon::string(const char* key) const {
  const Json& value = KioskMember(_state, key);
  if (!value.is_string() || value.get_ref<const std::string&>().empty()) return std::nullopt;
  return value.get<std::string>();
}

bool KioskDaemon::flag(const char* key) const {
  return KioskTruth(KioskMember(_state, key)).value_or(false);
}

std::string KioskDaemon::authBaseUrl() const {
  return string("authBaseUrl").value_or(KIOSKD_DEFAULT_PORTAL_URL);
}

std::string KioskDaemon::appVersion() const {
  const std::optional<platform::HostBundle> bundle = KioskAppBundle();
  return bundle && bundle->shortVersion ? *bundle->shortVersion : kKioskVersion;
}

void KioskDaemon::ensureStateDir() const {
  MakeDirectory(kVendorDir, kVendorDirMode);
  MakeDirectory(kStateDir, kStateDirMode);
  struct stat info = {};
  if (lstat(kStateDir, &info) != 0 || !S_ISDIR(info.st_mode)) {
    KioskLogError("%@ is not a directory", kStateDir);
    return;
  }
  // A failed repair shows as a failed save, which is logged.
  const KioskDescriptor directory(open(kStateDir, kKioskDirectoryFlags));
  if (info.st_uid != 0 || info.st_gid != 0) static_cast<void>(fchown(directory.get(), 0, 0));
  if ((info.st_mode & kKioskPermissionBits) != kStateDirMode) {
    static_cast<void>(fchmod(directory.get(), kStateDirMode));
  }
}

void KioskDaemon::load() {
  const std::optional<std::string> text = KioskReadFile(kStateFile);
  if (!text) return;
  std::optional<Json> state = KioskJsonParse(*text);
  if (!state || !state->is_object()) {
    KioskLogError("%@ is unreadable; starting unenrolled", kStateFile);
    return;
  }
  _state = std::move(*state);
}

void KioskDaemon::save() {
  if (const std::optional<std::string> text = KioskJsonText(_state)) {
    // A failed write has been logged; memory stays the truth and the next save tries again.
    static_cast<void>(KioskWriteFile(kStateFile, *text, kStateFileMode, 0, 0));
  }
  publish();
}

void KioskDaemon::publish() {
  static const Json defaultSignIn = KioskDefaultSignIn();
  const Json& signIn = KioskMember(_state, "signIn");
  Json snapshot{{"ok", true},
                {"enrolled", string("token") ? 1 : 0},
                {"provisioned", flag("provisioned")},
                {"maintenance", flag("maintenance")},
                {"account", kKioskAccountName},
                {"terminalName", string("terminalName").value_or("")},
                {"signIn", signIn.is_object() ? signIn : defaultSignIn}};
  if (const std::optional<std::string> error = string("lastError")) snapshot["error"] = *error;
  uid_t uid = 0;
  if (ownAccount(&uid)) snapshot["uid"] = static_cast<std::uint32_t>(uid);
  std::string ownText = KioskReplyText(StatusReply(snapshot, true));
  std::string othersText = KioskReplyText(StatusReply(snapshot, false));
  auto published = std::make_shared<const Published>(
      Published{std::move(snapshot), std::move(ownText), std::move(othersText)});
  const std::lock_guard lock(_publishedLock);
  _published = std::move(published);
}

std::shared_ptr<const KioskDaemon::Published> KioskDaemon::lastPublished() const {
  const std::lock_guard lock(_publishedLock);
  return _published;
}

std::shared_ptr<const Json> KioskDaemon::published() const {
  const std::shared_ptr<const Published> last = lastPublished();
  return last ? std::shared_ptr<const Json>(last, &last->snapshot) : nullptr;
}

Json KioskDaemon::status(std::uint32_t peerUid) const {
  const std::shared_ptr<const Published> last = lastPublished();
  return last ? StatusReply(last->snapshot, IsOwnSession(last->snapshot, peerUid))
              : StatusReply(KioskFailure("starting"), false);
}

std::string KioskDaemon::statusText(std::uint32_t peerUid) const {
  const std::shared_ptr<const Published> last = lastPublished();
  if (!last) return KioskReplyText(status(peerUid));
  return IsOwnSession(last->snapshot, peerUid) ? last->ownText : last->othersText;
}
