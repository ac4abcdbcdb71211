// The file that keeps the unlock of a terminal session from one run of kioskctl to the next.
#pragma once

#include <optional>
#include <string>

namespace client {

/// The file's path: "kioskctl-UID-SESSION" in the folder that the environment's XDG_RUNTIME_DIR
/// names by an absolute path, else in /tmp. Any thread.
std::string UnlockFilePath();

/// What was found at the file's path.
struct UnlockFileContent {
  std::optional<std::string> token;  ///< a token whose time is not up
  std::string problem;               ///< a sentence when what lies there is not used, else empty
};

/// Reads the token. It is believed only in a regular file of this user's, with no second name, that
/// nobody else may read or write. A file of ours whose time is up or that makes no sense is
/// removed. One thread.
UnlockFileContent UnlockFileRead();

/// Why the file cannot be written: something lies at its path that is not ours, or the folder
/// cannot be looked into. Empty when nothing speaks against it. Any thread.
std::string UnlockFileObstacle();

/// Keeps a token for so many seconds, instead of one kept before: the file is there whole or not at
/// all, and never readable for others. Returns a sentence about a failure, else nothing (empty).
/// One thread.
std::string UnlockFileWrite(const std::string& token, double seconds);

/// Removes the file if it is there. Returns a sentence about a failure, else nothing (empty); what
/// is not ours is left alone. One thread.
std::string UnlockFileForget();

}  // namespace client
