#include "core/KioskSelfCheck.h"

#include <sys/stat.h>

#include <cerrno>
#include <cstring>
#include <filesystem>

#include "core/KioskLog.h"

namespace {

constexpr gid_t kWheelGroup = 0;
constexpr gid_t kAdministratorsGroup = 80;

bool EntryIsSafe(const std::string& path) {
  struct stat info = {};
  if (lstat(path.c_str(), &info) != 0) {
    KioskLogError("refusing to run: cannot stat %@: %s", path, std::strerror(errno));
  } else if (S_ISLNK(info.st_mode)) {
    KioskLogError("refusing to run: %@ is a symbolic link", path);
  } else if (info.st_uid != 0) {
    KioskLogError("refusing to run: %@ is owned by uid %u, not root", path, info.st_uid);
  } else if ((info.st_mode & S_IWOTH) != 0) {
    KioskLogError("refusing to run: %@ is world-writable", path);
  } else if ((info.st_mode & S_IWGRP) != 0 && info.st_gid != kWheelGroup &&
             info.st_gid != kAdministratorsGroup) {
    KioskLogError("refusing to run: %@ is writable by group %u", path, info.st_gid);
  } else {
    return true;
  }
  return false;
}

}  // namespace

bool KioskPathIsSafe(const std::string& path) {
  std::filesystem::path prefix;
  for (const std::filesystem::path& component : std::filesystem::path(path).lexically_normal()) {
    prefix /= component;
    if (!EntryIsSafe(prefix.string())) return false;
  }
  return true;
}
