#include "tests/bench/Echo.h"

#include <sys/socket.h>
#include <unistd.h>

#include <utility>

#include "tests/bench/Measure.h"
#include "tests/bench/Server.h"

void ServeEcho(const std::string& path, const std::string& request, const std::string& reply) {
  const int listener = ListenAt(path);
  std::string received(request.size(), '\0');
  for (;;) {
    const int connection = accept4(listener, nullptr, nullptr, SOCK_CLOEXEC);
    while (ReadAll(connection, received) && WriteAll(connection, reply)) {
    }
    close(connection);
  }
}

EchoClient::EchoClient(const std::string& path, std::string request, std::string reply)
    : _socket(ConnectTo(path)),
      _request(std::move(request)),
      _reply(std::move(reply)),
      _received(_reply.size(), '\0') {}

EchoClient::~EchoClient() { close(_socket); }

void EchoClient::ask() {
  if (!WriteAll(_socket, _request) || !ReadAll(_socket, _received)) Fail("a connection broke");
  if (_received != _reply) Fail("another reply than expected: " + _received);
}
