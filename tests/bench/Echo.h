// The floor of the command channel: the same bytes to and fro over a socket, and nothing else.
#pragma once

#include <string>

/// Answers every request at the socket `path`, one connection after the other, with `reply`.
[[noreturn]] void ServeEcho(const std::string& path, const std::string& request,
                            const std::string& reply);

/// A client of ServeEcho, or of anything that answers `request` with exactly `reply`.
class EchoClient {
 public:
  EchoClient(const std::string& path, std::string request, std::string reply);
  ~EchoClient();
  EchoClient(const EchoClient&) = delete;
  EchoClient& operator=(const EchoClient&) = delete;

  /// One round trip; another answer ends the program.
  void ask();

 private:
  int _socket;
  std::string _request;
  std::string _reply;
  std::string _received;
};
