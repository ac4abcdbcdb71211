#include "tests/contract/SimulatedRoot.h"

#include <fcntl.h>
#include <unistd.h>

#include <cerrno>
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <sstream>
#include <thread>

namespace contract {
namespace {

namespace fs = std::filesystem;

constexpr std::chrono::seconds kPatience{30};

void makeTree(const fs::path& root) {
  for (const char* folder :
       {"private/etc/ssl", "private/var/log", "private/var/simulated", "private/tmp",
        "private/var/db/dslocal/nodes/Default/users", "private/var/db/dslocal/nodes/Default/groups",
        "usr/share/zoneinfo", "proc"}) {
    fs::create_directories(root / folder);
  }
  for (const char* name : {"etc", "var", "tmp"}) {
    fs::create_symlink(std::string("private/") + name, root / name);
  }
}

}  // namespace

bool Eventually(const std::function<bool()>& condition) {
  const auto deadline = std::chrono::steady_clock::now() + kPatience;
  while (!condition()) {
    if (std::chrono::steady_clock::now() > deadline) return false;
    std::this_thread::sleep_for(std::chrono::milliseconds(2));
  }
  return true;
}

void WriteFile(const std::string& path, const std::string& contents) {
  fs::create_directories(fs::path(path).parent_path());
  std::ofstream(path, std::ios::binary | std::ios::trunc) << contents;
}

std::string ReadFile(const std::string& path) {
  std::ostringstream contents;
  contents << std::ifstream(path, std::ios::binary).rdbuf();
  return contents.str();
}

SimulatedRoot::SimulatedRoot() {
  std::string name = (fs::temp_directory_path() / "contract.XXXXXX").string();
  _directory = mkdtemp(name.data()) == nullptr ? "" : name;
  _realRoot = open("/", O_RDONLY | O_DIRECTORY | O_CLOEXEC);
  makeTree(_directory);
  if (chroot(_directory.c_str()) != 0 || chdir("/") != 0) {
    ADD_FAILURE() << "These tests must run as root: " << std::strerror(errno);
    std::exit(EXIT_FAILURE);
  }
}

SimulatedRoot::~SimulatedRoot() {
  EXPECT_EQ(fchdir(_realRoot), 0);
  EXPECT_EQ(chroot("."), 0);
  (void)close(_realRoot);
  fs::remove_all(_directory);
}

void SimulatedRoot::setFaults(const std::string& json) {
  WriteFile("/private/var/simulated/faults.json", json);
}

}  // namespace contract
