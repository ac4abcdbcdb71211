// Servers of a benchmark: processes of its own.
#pragma once

#include <sys/types.h>

#include <functional>
#include <string>

/// A forked process that ends with this object, or with the benchmark.
class Server {
 public:
  /// Starts `serve` in a process of its own and waits until the socket at `path`, if one is named,
  /// is there.
  Server(const std::string& path, const std::function<void()>& serve);
  ~Server();
  Server(const Server&) = delete;
  Server& operator=(const Server&) = delete;

  pid_t pid() const { return _pid; }

 private:
  pid_t _pid = -1;
};

/// A socket that listens at `path`, or is connected to it.
int ListenAt(const std::string& path);
int ConnectTo(const std::string& path);

/// Reads as many bytes as `bytes` has; false at the connection's end.
bool ReadAll(int socket, std::string& bytes);
bool WriteAll(int socket, const std::string& bytes);
