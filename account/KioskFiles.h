// Reading files, and writing them safely: never through a symbolic link, whole or not at all, with
// explicit owner and mode. Any thread.
#pragma once

#include <fcntl.h>
#include <sys/types.h>

#include <cstddef>
#include <optional>
#include <string>
#include <vector>

#include "account/KioskDescriptor.h"

/// How directories are opened: never through a link.
inline constexpr int kKioskDirectoryFlags = O_RDONLY | O_NOFOLLOW | O_DIRECTORY | O_CLOEXEC;

/// The bits of a mode that chmod sets.
inline constexpr mode_t kKioskPermissionBits = 07777;

/// The whole content of a regular file of at most kKioskMaximumFileBytes, or nothing when there is
/// no such file or it cannot be read.
std::optional<std::string> KioskReadFile(const std::string& path);

/// The whole content of the regular file `name` of at most `maximumBytes` in the directory, or
/// nothing when there is no such file, it is a link, or it cannot be read.
std::optional<std::string> KioskReadAt(int directory, const std::string& name,
                                       std::size_t maximumBytes);

/// Opens a directory, given by its absolute path, without following a link anywhere on the way.
/// Nothing in the result after one log line on failure.
KioskDescriptor KioskOpenDirectory(const std::string& path);

/// Replaces the file `name` in the directory by one with exactly this content, mode and owner. What
/// is at the name, a link included, is replaced, never written through. False after one log line on
/// failure: the old file is untouched then and no temporary file is left.
[[nodiscard]] bool KioskWriteAt(int directory, const std::string& name, const std::string& data,
                                mode_t mode, uid_t owner, gid_t group);

/// The names of the directory's entries without "." and "..", in the directory's own order; none
/// when it cannot be read. The caller's descriptor keeps its position.
std::vector<std::string> KioskListDir(int directory);

/// KioskWriteAt in the directory of the absolute `path`, opened with KioskOpenDirectory.
[[nodiscard]] bool KioskWriteFile(const std::string& path, const std::string& data, mode_t mode,
                                  uid_t owner, gid_t group);

/// Removes a file; that there is none is no failure. Others are logged.
void KioskRemoveFile(const std::string& path);
