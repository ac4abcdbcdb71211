// A folder that lives as long as a test.
#pragma once

#include <string>

/// Makes an empty folder and removes it with all that is in it at the end.
class TemporaryFolder {
 public:
  TemporaryFolder();
  ~TemporaryFolder();
  TemporaryFolder(const TemporaryFolder&) = delete;
  TemporaryFolder& operator=(const TemporaryFolder&) = delete;

  /// The folder's path followed by "/" and `name`.
  std::string path(const std::string& name) const { return _path + "/" + name; }

 private:
  std::string _path;
};
