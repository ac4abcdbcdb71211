#include "tests/hostile/TreeDigest.h"

#include <gtest/gtest.h>
#include <sys/stat.h>

#include <algorithm>
#include <filesystem>
#include <fstream>
#include <functional>
#include <set>
#include <sstream>

namespace {

namespace fs = std::filesystem;

// The shared libraries, of which only size and time of change are looked at.
constexpr off_t kMostContent = 1 << 20;

std::string Content(const std::string& path, const struct stat& info) {
  if (S_ISLNK(info.st_mode)) return fs::read_symlink(path).string();
  if (!S_ISREG(info.st_mode)) return "";
  if (info.st_size > kMostContent) {
    return std::to_string(info.st_size) + " since " + std::to_string(info.st_mtime);
  }
  std::ifstream file(path, std::ios::binary);
  EXPECT_TRUE(file.is_open()) << path << " cannot be read";
  std::ostringstream content;
  content << file.rdbuf();
  return std::to_string(std::hash<std::string>()(content.str()));
}

std::string DigestOf(const std::string& path) {
  struct stat info = {};
  if (lstat(path.c_str(), &info) != 0) {
    ADD_FAILURE() << path << " went while it was looked at";
    return "gone";
  }
  std::ostringstream text;
  text << std::oct << info.st_mode << std::dec << " " << info.st_uid << ":" << info.st_gid << " "
       << Content(path, info);
  return text.str();
}

bool IsExcluded(const std::string& path, const std::vector<std::string>& excluded) {
  return std::any_of(excluded.begin(), excluded.end(),
                     [&](const std::string& each) { return path == each; });
}

}  // namespace

TreeDigest DigestTree(const std::string& root, const std::vector<std::string>& excluded) {
  TreeDigest digest;
  const std::string top = root.empty() ? "/" : root;
  std::error_code error;  // ends the walk, whatever has not been looked at yet
  fs::recursive_directory_iterator entries(top, error);
  for (; entries != fs::recursive_directory_iterator(); entries.increment(error)) {
    const std::string path = entries->path().string();
    const std::string inside = path.substr(root.size());
    if (IsExcluded(inside, excluded)) {
      entries.disable_recursion_pending();
    } else {
      digest[inside] = DigestOf(path);
    }
  }
  EXPECT_FALSE(error) << top << " was not walked to its end: " << error.message();
  return digest;
}

std::string DifferenceOf(const TreeDigest& before, const TreeDigest& after) {
  std::set<std::string> paths;
  for (const auto& [path, digest] : before) paths.insert(path);
  for (const auto& [path, digest] : after) paths.insert(path);
  std::string text;
  for (const std::string& path : paths) {
    const auto was = before.find(path);
    const auto is = after.find(path);
    const std::string old = was == before.end() ? "nothing" : was->second;
    const std::string now = is == after.end() ? "nothing" : is->second;
    if (old != now) text += path + ": " + old + " became " + now + "\n";
  }
  return text;
}
