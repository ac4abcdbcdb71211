#include "simulator/client/UnlockFile.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstdlib>
#include <cstring>
#include <ctime>
#include <utility>

#include "simulator/client/Descriptor.h"
#include "simulator/client/Limits.h"
#include "simulator/client/Printable.h"
#include "simulator/client/Reply.h"

namespace client {
namespace {

constexpr mode_t kMode = 0600;

/// Seconds of the clock that counts through sleep and that setting the time does not move.
double Now() {
  timespec time{};
  (void)clock_gettime(CLOCK_BOOTTIME, &time);  // fails for an unknown clock only
  return static_cast<double>(time.tv_sec) + static_cast<double>(time.tv_nsec) / 1e9;
}

bool IsOurs(const struct stat& about) {
  return S_ISREG(about.st_mode) && about.st_uid == geteuid() && about.st_nlink == 1;
}

std::string NotOurs(const std::string& path) {
  return Printable(path) + " is not the file that kioskctl keeps the unlock in; remove it.";
}

std::string Failure(const std::string& path, int error) {
  return Printable(path) + ": " + std::strerror(error) + ".";
}

/// Opens the file, a link not followed; a pipe that waits there does not hold us up.
int Open(const std::string& path) {
  return open(path.c_str(), O_RDONLY | O_NOFOLLOW | O_NONBLOCK | O_CLOEXEC);
}

/// Whether an open file may be believed; a sentence when not, else nothing (empty).
std::string Distrust(const std::string& path, int descriptor) {
  struct stat about {};
  if (fstat(descriptor, &about) != 0) return Failure(path, errno);
  if (!IsOurs(about)) return NotOurs(path);
  if ((about.st_mode & 07777) != kMode) {
    return Printable(path) + " has lost its mode 0600; unlock again.";
  }
  return "";
}

/// The token in the file's text, unless its time is up or the text makes no sense.
std::optional<std::string> TokenIn(const std::string& text) {
  const std::optional<Json> kept = ReplyParse(text);
  if (!kept) return std::nullopt;
  const std::optional<double> end = ReplyNumber(*kept, "endsAt");
  if (!end || *end <= Now()) return std::nullopt;
  return ReplyString(*kept, "unlockToken");
}

UnlockFileContent ReadOpen(const std::string& path, int descriptor) {
  const std::string distrust = Distrust(path, descriptor);
  if (!distrust.empty()) return {std::nullopt, distrust};
  const std::optional<std::string> text = ReadAll(descriptor, kMaximumUnlockFileBytes);
  std::optional<std::string> token = text ? TokenIn(*text) : std::nullopt;
  // One that cannot be removed is found of no use again next time.
  if (!token) (void)unlink(path.c_str());
  return {std::move(token), ""};
}

/// Writes a new file that nobody else may open and gives it its name.
bool Replace(const std::string& path, const std::string& text) {
  std::string fresh = path + ".XXXXXX";
  const int descriptor = mkostemp(fresh.data(), O_CLOEXEC);
  if (descriptor < 0) return false;
  const bool written = fchmod(descriptor, kMode) == 0 && WriteAll(descriptor, text);
  const bool closed = close(descriptor) == 0;
  if (written && closed && rename(fresh.c_str(), path.c_str()) == 0) return true;
  const int error = errno;
  (void)unlink(fresh.c_str());  // the failure before is the one to report
  errno = error;
  return false;
}

}  // namespace

std::string UnlockFilePath() {
  const char* const folder = std::getenv("XDG_RUNTIME_DIR");
  const bool usable = folder != nullptr && *folder == '/';
  return std::string(usable ? folder : "/tmp") + "/kioskctl-" + std::to_string(geteuid()) + "-" +
         std::to_string(getsid(0));
}

UnlockFileContent UnlockFileRead() {
  const std::string path = UnlockFilePath();
  const int descriptor = Open(path);
  if (descriptor < 0) {
    if (errno == ENOENT) return {};
    const bool foreign = errno == ELOOP || errno == EACCES || errno == ENXIO;
    return {std::nullopt, foreign ? NotOurs(path) : Failure(path, errno)};
  }
  UnlockFileContent content = ReadOpen(path, descriptor);
  (void)close(descriptor);  // nothing was written
  return content;
}

std::string UnlockFileObstacle() {
  const std::string path = UnlockFilePath();
  struct stat about {};
  if (lstat(path.c_str(), &about) == 0) return IsOurs(about) ? "" : NotOurs(path);
  return errno == ENOENT ? "" : Failure(path, errno);
}

std::string UnlockFileWrite(const std::string& token, double seconds) {
  std::string obstacle = UnlockFileObstacle();
  if (!obstacle.empty()) return obstacle;
  const Json kept = {{"unlockToken", token}, {"endsAt", Now() + seconds}};
  const std::string text = kept.dump(-1, ' ', false, Json::error_handler_t::replace) + "\n";
  const std::string path = UnlockFilePath();
  return Replace(path, text) ? "" : Failure(path, errno);
}

std::string UnlockFileForget() {
  std::string obstacle = UnlockFileObstacle();
  if (!obstacle.empty()) return obstacle;
  const std::string path = UnlockFilePath();
  return unlink(path.c_str()) == 0 || errno == ENOENT ? "" : Failure(path, errno);
}

}  // namespace client
