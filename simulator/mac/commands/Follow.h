// Watching files of a Mac grow and change.
#pragma once

#include <functional>
#include <string>

#include "simulator/mac/Descriptor.h"

namespace simmac {

/// Waits for changes in a folder without looking again and again.
class FolderWatch {
 public:
  /// Watches from now on.
  explicit FolderWatch(const std::string& folder);

  /// Sleeps until something in the folder was changed, or so many milliseconds have passed (-1:
  /// however long it takes).
  void wait(int milliseconds);

 private:
  Descriptor _descriptor;
};

/// Hands over every whole line of a file, from its first one; with `follow` also those that are
/// appended later, until the program is ended. False when the file cannot be opened.
[[nodiscard]] bool EachLine(const std::string& path, bool follow,
                            const std::function<void(const std::string&)>& use);

}  // namespace simmac
