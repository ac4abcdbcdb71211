#include "tests/bench/Server.h"

#include <sys/prctl.h>
#include <sys/socket.h>
#include <sys/un.h>
#include <sys/wait.h>
#include <unistd.h>

#include <csignal>
#include <cstdlib>
#include <cstring>

#include "tests/bench/Measure.h"

namespace {

constexpr int kPollMicroseconds = 1000;
constexpr int kBacklog = 16;

sockaddr_un AddressOf(const std::string& path) {
  sockaddr_un address = {};
  address.sun_family = AF_UNIX;
  if (path.size() >= sizeof address.sun_path) Fail("the socket's path is too long: " + path);
  std::memcpy(address.sun_path, path.data(), path.size());
  return address;
}

int TryToConnect(const std::string& path) {
  const int connection = socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0);
  const sockaddr_un address = AddressOf(path);
  if (connect(connection, reinterpret_cast<const sockaddr*>(&address), sizeof address) == 0) {
    return connection;
  }
  close(connection);
  return -1;
}

}  // namespace

Server::Server(const std::string& path, const std::function<void()>& serve) {
  if (!path.empty()) unlink(path.c_str());
  _pid = fork();
  if (_pid == 0) {
    prctl(PR_SET_PDEATHSIG, SIGKILL);
    serve();
    std::_Exit(1);
  }
  if (path.empty()) return;
  int connection = -1;
  while ((connection = TryToConnect(path)) < 0) {
    if (waitpid(_pid, nullptr, WNOHANG) != 0) Fail("a server of " + path + " ended");
    usleep(kPollMicroseconds);
  }
  close(connection);
}

Server::~Server() {
  if (_pid <= 1) return;
  kill(_pid, SIGKILL);
  waitpid(_pid, nullptr, 0);
}

int ListenAt(const std::string& path) {
  const int listener = socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0);
  const sockaddr_un address = AddressOf(path);
  if (bind(listener, reinterpret_cast<const sockaddr*>(&address), sizeof address) != 0 ||
      listen(listener, kBacklog) != 0) {
    Fail("cannot listen at " + path);
  }
  return listener;
}

int ConnectTo(const std::string& path) {
  const int connection = TryToConnect(path);
  if (connection < 0) Fail("cannot connect to " + path);
  return connection;
}

bool ReadAll(int socket, std::string& bytes) {
  std::size_t done = 0;
  while (done < bytes.size()) {
    const ssize_t count = read(socket, bytes.data() + done, bytes.size() - done);
    if (count <= 0) return false;
    done += static_cast<std::size_t>(count);
  }
  return true;
}

bool WriteAll(int socket, const std::string& bytes) {
  return write(socket, bytes.data(), bytes.size()) == static_cast<ssize_t>(bytes.size());
}
