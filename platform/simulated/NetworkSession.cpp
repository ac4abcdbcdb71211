#include "platform/simulated/NetworkSession.h"

#include <fcntl.h>
#include <sys/file.h>
#include <sys/stat.h>

#include <system_error>
#include <utility>

#include "platform/NetworkPreferences.h"
#include "platform/simulated/MacFiles.h"
#include "platform/simulated/PropertyListEncoding.h"

namespace platform {
namespace {

constexpr mode_t kFileMode = 0644;
constexpr mode_t kLockMode = 0600;

/// Written whole under the lock, then put in the preferences' place.
constexpr char kNewFile[] = "/Library/Preferences/SystemConfiguration/preferences.plist-new";

thread_local std::string lastError = "Success!";

bool failOfErrno() { return NetworkFail(std::generic_category().message(errno)); }

/// The lock, or none with errno set.
Descriptor takeLock(bool wait) {
  Descriptor lock(open(kMacNetworkLock, O_RDWR | O_CREAT | O_CLOEXEC, kLockMode));
  if (!lock.valid()) return lock;
  const int how = wait ? LOCK_EX : LOCK_EX | LOCK_NB;
  if (RetryInterrupted([&] { return flock(lock.get(), how); }) != 0) return Descriptor();
  return lock;
}

bool writeFile(int descriptor, const std::string& contents, const struct stat& status) {
  return fchown(descriptor, status.st_uid, status.st_gid) == 0 &&
         fchmod(descriptor, status.st_mode & 07777) == 0 && WriteWhole(descriptor, contents);
}

/// Replaces the preferences by a file of the same owner and mode. False with errno set.
bool replaceFile(const std::string& contents) {
  struct stat status {};
  if (stat(kMacNetworkPreferences, &status) != 0) status.st_mode = kFileMode;
  const Descriptor file(open(kNewFile, O_WRONLY | O_CREAT | O_TRUNC | O_CLOEXEC, kFileMode));
  if (!file.valid()) return false;
  if (writeFile(file.get(), contents, status) && rename(kNewFile, kMacNetworkPreferences) == 0) {
    return true;
  }
  const int error = errno;
  (void)unlink(kNewFile);  // the failure to report is the one before
  errno = error;
  return false;
}

bool noteUse() {
  const MacTree mac;
  Json state = mac.readJson(kMacNetworkState).value_or(Json::object());
  if (!state.is_object()) state = Json::object();
  Json& applied = state["applied"];
  applied = applied.is_number_unsigned() ? applied.get<std::uint64_t>() + 1 : 1;
  return mac.replace(kMacNetworkState, state.dump(2, ' ', false, Json::error_handler_t::replace),
                     kFileMode);
}

}  // namespace

bool NetworkFail(const std::string& text) {
  lastError = text;
  return false;
}

std::string NetworkPreferencesError() { return lastError; }

NetworkSession::~NetworkSession() {
  if (_lock.valid()) (void)unlock();  // nobody is left to be told
}

Json& NetworkSession::preferences() {
  if (_isRead) return _preferences;
  _isRead = true;
  _read = MacTree().read(kMacNetworkPreferences);
  _preferences = _read ? PropertyListParse(*_read).value_or(Json()) : Json();
  if (!_preferences.is_object()) _preferences = Json::object();
  _unchanged = _preferences;
  return _preferences;
}

bool NetworkSession::isStale() const {
  return _isRead && MacTree().read(kMacNetworkPreferences) != _read;
}

bool NetworkSession::lock(bool wait) {
  if (_lock.valid()) return NetworkFail(kNetworkLocked);
  if (geteuid() != 0) return NetworkFail(kNetworkAccessError);
  _lock = takeLock(wait);
  if (!_lock.valid()) return errno == EWOULDBLOCK ? NetworkFail(kNetworkBusy) : failOfErrno();
  if (!isStale()) return true;
  (void)unlock();  // the failure to report is this one
  return NetworkFail(kNetworkStale);
}

bool NetworkSession::unlock() {
  if (!_lock.valid()) return NetworkFail(kNetworkNeedLock);
  // A child that is about to be another program may still have the descriptor.
  (void)flock(_lock.get(), LOCK_UN);  // cannot fail for a lock that is held
  _lock = Descriptor();
  return true;
}

template <class Work>
bool NetworkSession::whileLocked(Work work) {
  const bool wasLocked = _lock.valid();
  if (!wasLocked && !lock(true)) return false;
  const bool worked = work();
  if (!wasLocked) (void)unlock();
  return worked;
}

bool NetworkSession::write() {
  std::string error;
  std::optional<std::string> contents =
      EncodePropertyList(_preferences, PropertyListFormat::kXml, error);
  if (!contents) return NetworkFail(kNetworkFailed);
  if (!replaceFile(*contents)) return failOfErrno();
  _read = std::move(contents);
  _unchanged = _preferences;
  return true;
}

bool NetworkSession::commit() {
  return whileLocked([this] { return preferences() == _unchanged || write(); });
}

bool NetworkSession::apply() {
  return whileLocked([] { return noteUse() || failOfErrno(); });
}

}  // namespace platform
