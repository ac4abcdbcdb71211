#include "tests/platform/simulated/SimulatedRoot.h"

#include <fcntl.h>
#include <sys/socket.h>
#include <sys/un.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstdlib>
#include <cstring>
#include <filesystem>

namespace contract {
namespace {

namespace fs = std::filesystem;

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

Root::Root() {
  std::string name = (fs::temp_directory_path() / "contract.XXXXXX").string();
  _directory = mkdtemp(name.data()) == nullptr ? "" : name;
  _realRoot = open("/", O_RDONLY | O_DIRECTORY | O_CLOEXEC);
  makeTree(_directory);
  if (chroot(_directory.c_str()) != 0 || chdir("/") != 0) {
    ADD_FAILURE() << "These tests must run as root: " << std::strerror(errno);
    std::exit(EXIT_FAILURE);
  }
}

Root::~Root() {
  EXPECT_EQ(fchdir(_realRoot), 0);
  EXPECT_EQ(chroot("."), 0);
  (void)close(_realRoot);
  fs::remove_all(_directory);
}

Service::Service()
    : _socket(::socket(AF_UNIX, SOCK_STREAM, 0)), _proc(open("/proc", O_RDONLY | O_DIRECTORY)) {
  sockaddr_un address{};
  address.sun_family = AF_UNIX;
  std::copy(std::begin(kSocket), std::end(kSocket), address.sun_path);
  EXPECT_EQ(bind(_socket, reinterpret_cast<const sockaddr*>(&address), sizeof address), 0);
  EXPECT_EQ(listen(_socket, 4096), 0);
  setenv("SIMULATED_MAC_PROC", std::to_string(_proc).c_str(), 1);
  const std::string services = std::string("other=99,") + kService + "=" + std::to_string(_socket);
  setenv("SIMULATED_MAC_SERVICES", services.c_str(), 1);
  // What the kernel would say of this process: that its executable is /client.
  const std::string folder = "/proc/" + std::to_string(getpid());
  fs::create_directories(folder);
  fs::create_symlink("/client", folder + "/exe");
}

Service::~Service() {
  close(_socket);
  close(_proc);
}

void Service::sign(const std::string& identifier) {
  WriteFile(kSignature, R"({"identifier": ")" + identifier + R"("})");
}

void SimulatedRoot::setFaults(const std::string& json) {
  WriteFile("/private/var/simulated/faults.json", json);
}

}  // namespace contract
