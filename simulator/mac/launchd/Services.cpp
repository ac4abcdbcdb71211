#include "simulator/mac/launchd/Services.h"

#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/un.h>
#include <unistd.h>

#include <cstring>

#include "simulator/mac/Limits.h"

namespace simmac {
namespace {

Descriptor Listen(const std::string& name) {
  const std::string path = "/private/var/run/" + name + ".socket";
  constexpr mode_t kEverybody = 0666;
  sockaddr_un address{};
  address.sun_family = AF_UNIX;
  if (path.size() >= sizeof address.sun_path) return Descriptor();
  std::memcpy(address.sun_path, path.c_str(), path.size());
  Descriptor listener(socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0));
  (void)unlink(path.c_str());
  const bool ready =
      listener.valid() &&
      bind(listener.get(), reinterpret_cast<const sockaddr*>(&address), sizeof address) == 0 &&
      chmod(path.c_str(), kEverybody) == 0 && listen(listener.get(), kServiceBacklog) == 0;
  return ready ? std::move(listener) : Descriptor();
}

}  // namespace

std::vector<std::string> Services::open(const std::vector<LaunchJob>& jobs) {
  std::vector<std::string> failed;
  for (const LaunchJob& job : jobs) {
    for (const std::string& name : job.machServices) {
      _sockets[name] = Listen(name);
      if (!_sockets[name].valid()) failed.push_back(name);
    }
  }
  return failed;
}

std::string Services::variable(const LaunchJob& job) const {
  std::string text;
  for (const std::string& name : job.machServices) {
    const auto socket = _sockets.find(name);
    if (socket == _sockets.end() || !socket->second.valid()) continue;
    text += (text.empty() ? "" : ",") + name + "=" + std::to_string(socket->second.get());
  }
  return text;
}

std::vector<int> Services::descriptors(const LaunchJob& job) const {
  std::vector<int> numbers;
  for (const std::string& name : job.machServices) {
    const auto socket = _sockets.find(name);
    if (socket != _sockets.end() && socket->second.valid()) numbers.push_back(socket->second.get());
  }
  return numbers;
}

}  // namespace simmac
