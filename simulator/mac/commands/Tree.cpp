#include "simulator/mac/commands/Tree.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <sys/sysmacros.h>
#include <unistd.h>

#include <cerrno>
#include <cstring>
#include <filesystem>

#include "simulator/mac/Descriptor.h"

namespace simmac {
namespace {

namespace fs = std::filesystem;

bool CanBeOpened(const std::string& path) { return OpenFile(path, O_RDWR).valid(); }

bool CopyOver(const std::string& from, const std::string& to) {
  std::error_code error;
  return fs::copy_file(from, to, fs::copy_options::overwrite_existing, error);
}

}  // namespace

void TreeBuilder::fail(const std::string& problem) {
  if (!failed()) _problem = problem;
}

void TreeBuilder::check(bool success, const std::string& path) {
  if (!success) fail(_root + path + ": " + std::strerror(errno));
}

void TreeBuilder::parentOf(const std::string& path) {
  const std::string parent = fs::path(path).parent_path();
  std::error_code error;
  if (!fs::exists(_root + parent, error)) directory(parent);
}

void TreeBuilder::directory(const std::string& path, mode_t mode) {
  if (failed()) return;
  const std::string full = _root + path;
  if (path != "/") parentOf(path);
  const bool made = mkdir(full.c_str(), mode) == 0 || errno == EEXIST;
  check(made && chmod(full.c_str(), mode) == 0, path);
}

void TreeBuilder::file(const std::string& path, const std::string& contents, mode_t mode) {
  if (failed()) return;
  parentOf(path);
  const Descriptor file = OpenFile(_root + path, O_WRONLY | O_CREAT | O_TRUNC, mode);
  check(file.valid() && WriteWhole(file.get(), contents) && fchmod(file.get(), mode) == 0, path);
}

void TreeBuilder::link(const std::string& path, const std::string& target) {
  if (failed()) return;
  parentOf(path);
  check(symlink(target.c_str(), (_root + path).c_str()) == 0, path);
}

void TreeBuilder::copy(const std::string& path, const std::string& source, mode_t mode) {
  if (failed()) return;
  parentOf(path);
  check(CopyOver(source, _root + path) && chmod((_root + path).c_str(), mode) == 0, path);
}

void TreeBuilder::share(const std::string& path, const std::string& source) {
  if (failed()) return;
  parentOf(path);
  const std::string full = _root + path;
  const bool shared = ::link(source.c_str(), full.c_str()) == 0 || errno == EEXIST;
  check(shared || CopyOver(source, full), path);
}

void TreeBuilder::alias(const std::string& path, const std::string& existing) {
  if (failed()) return;
  parentOf(path);
  check(::link((_root + existing).c_str(), (_root + path).c_str()) == 0, path);
}

void TreeBuilder::device(const std::string& path, unsigned int major, unsigned int minor) {
  if (failed()) return;
  parentOf(path);
  constexpr mode_t kEverybody = 0666;
  const std::string full = _root + path;
  if (mknod(full.c_str(), S_IFCHR | kEverybody, makedev(major, minor)) == 0 && CanBeOpened(full)) {
    check(chmod(full.c_str(), kEverybody) == 0, path);
    return;
  }
  (void)unlink(full.c_str());
  file(path, "", kEverybody);
}

}  // namespace simmac
