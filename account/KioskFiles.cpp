#include "account/KioskFiles.h"

#include <dirent.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <cstdint>
#include <cstdio>
#include <cstring>
#include <memory>

#include "core/KioskLimits.h"
#include "core/KioskLog.h"
#include "platform/Storage.h"

namespace {

// Without waiting: a FIFO in a file's place must not hold up the start.
constexpr int kReadFlags = O_RDONLY | O_NONBLOCK | O_NOCTTY | O_CLOEXEC;
constexpr int kCreateFlags = O_WRONLY | O_CREAT | O_EXCL | O_NOFOLLOW | O_CLOEXEC;

std::string TemporaryName(const std::string& name) {
  return "." + name + ".tmp." + std::to_string(getpid());
}

// One call for all of it: a file system that takes less has no room for the rest.
bool WriteWhole(int file, const std::string& data) {
  ssize_t count = 0;
  do {
    count = write(file, data.data(), data.size());
  } while (count < 0 && errno == EINTR);
  if (count >= 0 && static_cast<std::size_t>(count) < data.size()) errno = ENOSPC;
  return count >= 0 && static_cast<std::size_t>(count) == data.size();
}

// The mode is set explicitly because the one given at creation was cut by the process's mask.
bool Fill(KioskDescriptor& file, const std::string& data, mode_t mode, uid_t owner, gid_t group) {
  return WriteWhole(file.get(), data) && fchown(file.get(), owner, group) == 0 &&
         fchmod(file.get(), mode) == 0 && platform::StorageFlush(file.get()) == 0 &&
         file.close() == 0;
}

std::optional<std::string> ReadWhole(const KioskDescriptor& file, std::size_t maximumBytes) {
  struct stat info = {};
  if (!file || fstat(file.get(), &info) != 0 || !S_ISREG(info.st_mode)) return std::nullopt;
  if (static_cast<std::uintmax_t>(info.st_size) > maximumBytes) return std::nullopt;
  std::string content;
  std::array<char, 16384> buffer;
  while (content.size() <= maximumBytes) {
    const ssize_t count = read(file.get(), buffer.data(), buffer.size());
    if (count < 0 && errno == EINTR) continue;
    if (count < 0) return std::nullopt;
    if (count == 0) return content;
    content.append(buffer.data(), static_cast<std::size_t>(count));
  }
  return std::nullopt;
}

}  // namespace

std::optional<std::string> KioskReadFile(const std::string& path) {
  return ReadWhole(KioskDescriptor(open(path.c_str(), kReadFlags)), kKioskMaximumFileBytes);
}

std::optional<std::string> KioskReadAt(int directory, const std::string& name,
                                       std::size_t maximumBytes) {
  return ReadWhole(KioskDescriptor(openat(directory, name.c_str(), kReadFlags | O_NOFOLLOW)),
                   maximumBytes);
}

KioskDescriptor KioskOpenDirectory(const std::string& path) {
  KioskDescriptor directory(open("/", kKioskDirectoryFlags));
  std::size_t at = 0;
  while (directory && at < path.size()) {
    const std::size_t end = std::min(path.find('/', at), path.size());
    const std::string component = path.substr(at, end - at);
    at = end + 1;
    if (component.empty()) continue;
    KioskDescriptor next(openat(directory.get(), component.c_str(), kKioskDirectoryFlags));
    const int error = errno;
    directory = std::move(next);
    errno = error;
  }
  if (!directory) {
    KioskLogError("cannot open %@ without following a link: %s", path, std::strerror(errno));
  }
  return directory;
}

bool KioskWriteAt(int directory, const std::string& name, const std::string& data, mode_t mode,
                  uid_t owner, gid_t group) {
  const std::string temporary = TemporaryName(name);
  // 1. A leftover of a crash must not block the write; usually there is none.
  static_cast<void>(unlinkat(directory, temporary.c_str(), 0));
  // 2. Created anew, so that nobody else can hold it open.
  KioskDescriptor file(openat(directory, temporary.c_str(), kCreateFlags, mode));
  if (!file) {
    KioskLogError("cannot create %@: %s", temporary, std::strerror(errno));
    return false;
  }
  // 3. Content, owner, mode and stable storage before 4. the name: whoever finds the file under
  // its final name finds it whole.
  if (Fill(file, data, mode, owner, group) &&
      renameat(directory, temporary.c_str(), directory, name.c_str()) == 0) {
    return true;
  }
  KioskLogError("cannot write %@: %s", name, std::strerror(errno));
  static_cast<void>(unlinkat(directory, temporary.c_str(), 0));
  return false;
}

std::vector<std::string> KioskListDir(int directory) {
  // Opened anew and not duplicated, because duplicates share their position.
  KioskDescriptor again(openat(directory, ".", kKioskDirectoryFlags));
  const std::unique_ptr<DIR, int (*)(DIR*)> stream(fdopendir(again.get()), closedir);
  if (!stream) return {};
  static_cast<void>(again.release());  // the stream's now
  std::vector<std::string> names;
  errno = 0;
  while (const dirent* entry = readdir(stream.get())) {
    const std::string name = entry->d_name;
    if (name != "." && name != "..") names.push_back(name);
    errno = 0;
  }
  return errno == 0 ? names : std::vector<std::string>{};
}

bool KioskWriteFile(const std::string& path, const std::string& data, mode_t mode, uid_t owner,
                    gid_t group) {
  const std::size_t slash = path.find_last_of('/');
  const KioskDescriptor directory = KioskOpenDirectory(path.substr(0, slash));
  if (!directory) return false;
  return KioskWriteAt(directory.get(), path.substr(slash + 1), data, mode, owner, group);
}

void KioskRemoveFile(const std::string& path) {
  if (unlink(path.c_str()) != 0 && errno != ENOENT) {
    KioskLogError("cannot remove %@: %s", path, std::strerror(errno));
  }
}
