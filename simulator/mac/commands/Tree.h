// Building blocks of a Mac's tree.
#pragma once

#include <sys/types.h>

#include <string>

namespace simmac {

/// Builds below one directory. The first failure is kept and makes everything after it a no-op, so
/// that a caller looks once, at the end. Paths are absolute inside the Mac; what is made belongs to
/// the caller, who is root, and has exactly the given mode.
class TreeBuilder {
 public:
  explicit TreeBuilder(std::string root) : _root(std::move(root)) {}

  void directory(const std::string& path, mode_t mode = 0755);  ///< with its parents (0755)
  void file(const std::string& path, const std::string& contents, mode_t mode = 0644);
  void link(const std::string& path, const std::string& target);  ///< a symbolic link
  void copy(const std::string& path, const std::string& source, mode_t mode);
  /// A second name for a file outside the Mac, or a copy where that is impossible. The Mac's root
  /// can write such a file, so it must be one that exists for Macs only.
  void share(const std::string& path, const std::string& source);
  /// A second name for a file of the Mac.
  void alias(const std::string& path, const std::string& existing);
  /// A character device, or an empty file where devices cannot be made or opened (as in a user
  /// namespace): writing to such a "null" works, and reading it ends at once unless written to.
  void device(const std::string& path, unsigned int major, unsigned int minor);

  void fail(const std::string& problem);  ///< keeps the first problem
  const std::string& root() const { return _root; }
  const std::string& problem() const { return _problem; }  ///< empty while all is well

 private:
  bool failed() const { return !_problem.empty(); }
  void check(bool success, const std::string& path);
  void parentOf(const std::string& path);

  std::string _root;
  std::string _problem;
};

}  // namespace simmac
