// A simulated Mac's folder, made for one test and removed with it.
#pragma once

#include <sys/stat.h>
#include <sys/types.h>

#include <string>
#include <vector>

#include "platform/Json.h"

/// One run of a system tool, as the Mac's journal tells it.
struct ToolRun {
  std::string tool;
  std::vector<std::string> arguments;
  int status = 0;

  bool operator==(const ToolRun&) const = default;
};

/// One line of the Mac's system log.
struct LogLine {
  std::string level;  ///< "Default" or "Error"
  std::string text;

  bool operator==(const LogLine&) const = default;
};

/// Paths given to the members are absolute paths inside the Mac.
class MacFolder {
 public:
  /// Makes the Mac with `simmac create` and these further arguments.
  explicit MacFolder(const std::vector<std::string>& arguments = {});
  ~MacFolder();
  MacFolder(const MacFolder&) = delete;
  MacFolder& operator=(const MacFolder&) = delete;

  /// The folder, by the test's present root.
  const std::string& root() const { return _root; }
  /// Makes the folder the root of the test's process until it ends.
  void enter();

  std::string at(const std::string& path) const { return _root + path; }
  bool exists(const std::string& path) const;
  std::string read(const std::string& path) const;
  Json readJson(const std::string& path) const;
  /// Writes a file, and makes the folders on its path.
  void write(const std::string& path, const std::string& content, mode_t mode = 0644) const;
  /// Puts a new file in the place of another at once, for what programs may be reading.
  void replace(const std::string& path, const std::string& content, mode_t mode) const;
  /// What lstat says of an entry; all zero when there is none.
  struct stat info(const std::string& path) const;
  /// Permission bits, owner and group as text: "0600 0:0".
  std::string modeAndOwner(const std::string& path) const;
  /// Removes a file or a whole folder.
  void remove(const std::string& path) const;
  std::vector<std::string> list(const std::string& path) const;

  /// The daemon's state file.
  Json state() const;
  void writeState(const Json& state) const;

  /// Adds a fault: an object as docs/SIMULATED_MAC.md describes it.
  void addFault(const Json& fault) const;
  void clearFaults() const;

  /// All runs of system tools so far, or those of one tool.
  std::vector<ToolRun> journal() const;
  std::vector<ToolRun> runs(const std::string& tool) const;
  /// Runs of a tool whose first arguments are these.
  std::size_t countRuns(const std::string& tool, const std::vector<std::string>& arguments) const;

  /// The daemon's lines in the system log.
  std::vector<LogLine> log() const;
  /// How many lines say exactly this, at this level.
  std::size_t countLog(const std::string& text, const std::string& level = "Default") const;
  std::size_t countErrors(const std::string& text) const { return countLog(text, "Error"); }

 private:
  std::string _folder;  // by the original root
  std::string _root;    // by the present one: empty once entered
  int _outerRoot = -1;
};
