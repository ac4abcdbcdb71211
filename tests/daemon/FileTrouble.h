// Ways to make the writing of files fail.
#pragma once

#include <gtest/gtest.h>
#include <sched.h>
#include <sys/mount.h>
#include <sys/resource.h>
#include <unistd.h>

#include <csignal>
#include <string>

inline constexpr uid_t kUser = 501;
inline constexpr gid_t kStaff = 20;

/// Files can grow to `bytes` only, and reaching that is a short write.
class FileSizeLimit {
 public:
  explicit FileSizeLimit(rlim_t bytes) : _handler(std::signal(SIGXFSZ, SIG_IGN)) {
    getrlimit(RLIMIT_FSIZE, &_before);
    const rlimit limit = {bytes, _before.rlim_max};
    setrlimit(RLIMIT_FSIZE, &limit);
  }
  ~FileSizeLimit() {
    setrlimit(RLIMIT_FSIZE, &_before);
    std::signal(SIGXFSZ, _handler);
  }
  FileSizeLimit(const FileSizeLimit&) = delete;
  FileSizeLimit& operator=(const FileSizeLimit&) = delete;

 private:
  void (*_handler)(int);
  rlimit _before = {};
};

/// Runs with a user's rights to files until the end of the scope.
class AsUser {
 public:
  AsUser() { EXPECT_EQ(seteuid(kUser), 0); }
  ~AsUser() { EXPECT_EQ(seteuid(0), 0); }
  AsUser(const AsUser&) = delete;
  AsUser& operator=(const AsUser&) = delete;
};

/// Mounts made by the test's process are its own. To be made before the process enters the Mac,
/// whose root is no mount point.
struct OwnMounts {
  bool permitted =
      unshare(CLONE_NEWNS) == 0 && mount(nullptr, "/", nullptr, MS_REC | MS_PRIVATE, nullptr) == 0;
};

/// A disk of 16 KiB, which goes with the object.
class SmallDisk {
 public:
  SmallDisk() = default;
  ~SmallDisk() {
    if (!_folder.empty()) umount2(_folder.c_str(), MNT_DETACH);
  }
  SmallDisk(const SmallDisk&) = delete;
  SmallDisk& operator=(const SmallDisk&) = delete;

  /// Puts it at a folder. False when that failed.
  bool mountAt(const std::string& folder) {
    if (mount("none", folder.c_str(), "tmpfs", 0, "size=16k,mode=0755") != 0) return false;
    _folder = folder;
    return true;
  }

  /// From now on it can only be read. False when that failed.
  bool makeReadOnly() const {
    return mount("none", _folder.c_str(), nullptr, MS_REMOUNT | MS_RDONLY, nullptr) == 0;
  }

 private:
  std::string _folder;
};
