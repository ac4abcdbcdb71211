#include "tests/platform/TestServer.h"

#include <arpa/inet.h>
#include <fcntl.h>
#include <netinet/in.h>
#include <sys/socket.h>
#include <unistd.h>

namespace contract {
namespace {

/// The length of a request's body.
std::size_t bodyLength(const std::string& head) {
  const std::size_t at = head.find("Content-Length: ");
  return at == std::string::npos ? 0 : std::stoul(head.substr(at + 16, 12));
}

/// Reads one request; empty when the client has gone.
std::string readRequest(int connection) {
  std::string text;
  char buffer[4096];
  for (;;) {
    const std::size_t end = text.find("\r\n\r\n");
    if (end != std::string::npos && text.size() >= end + 4 + bodyLength(text)) return text;
    const ssize_t count = recv(connection, buffer, sizeof buffer, 0);
    if (count <= 0) return "";
    text.append(buffer, static_cast<std::size_t>(count));
  }
}

bool saysWhereItEnds(const std::string& answer) {
  const std::size_t end = answer.find("\r\n\r\n");
  return end != std::string::npos && answer.size() == end + 4 + bodyLength(answer) &&
         answer.find("Content-Length: ") != std::string::npos;
}

int newSocket() {
  const int made = socket(AF_INET, SOCK_STREAM, 0);
  (void)fcntl(made, F_SETFD, FD_CLOEXEC);
  return made;
}

sockaddr_in loopback(int port) {
  sockaddr_in address{};
  address.sin_family = AF_INET;
  address.sin_port = htons(static_cast<std::uint16_t>(port));
  address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
  return address;
}

}  // namespace

TestServer::TestServer(Answer answer) : _answer(std::move(answer)) {
  _listener = newSocket();
  sockaddr_in address = loopback(0);
  socklen_t size = sizeof address;
  auto* generic = reinterpret_cast<sockaddr*>(&address);
  if (bind(_listener, generic, size) != 0 || listen(_listener, 16) != 0 ||
      getsockname(_listener, generic, &size) != 0) {
    std::abort();
  }
  _port = ntohs(address.sin_port);
  _acceptor = std::thread([this] { acceptAll(); });
}

TestServer::~TestServer() {
  // A last connection wakes the acceptor, which on a Mac nothing else would.
  _isEnding = true;
  const int last = newSocket();
  const sockaddr_in address = loopback(_port);
  (void)connect(last, reinterpret_cast<const sockaddr*>(&address), sizeof address);
  _acceptor.join();
  (void)close(last);
  for (const int connection : _connections) (void)shutdown(connection, SHUT_RDWR);
  for (std::thread& thread : _threads) thread.join();
  for (const int connection : _connections) (void)close(connection);
  (void)close(_listener);
}

void TestServer::acceptAll() {
  for (;;) {
    sockaddr_in address{};
    socklen_t size = sizeof address;
    const int connection = accept(_listener, reinterpret_cast<sockaddr*>(&address), &size);
    if (connection < 0) return;
    if (_isEnding) {
      (void)close(connection);
      return;
    }
    (void)fcntl(connection, F_SETFD, FD_CLOEXEC);
    _connections.push_back(connection);
    _threads.emplace_back(
        [this, connection, port = ntohs(address.sin_port)] { serve(connection, port); });
  }
}

void TestServer::serve(int connection, int clientPort) {
  for (;;) {
    const std::string request = readRequest(connection);
    if (request.empty()) return;
    {
      const std::lock_guard lock(_mutex);
      _requests.push_back({request, clientPort});
    }
    const std::string answer = _answer(request);
    (void)send(connection, answer.data(), answer.size(), MSG_NOSIGNAL);
    // No answer at all is a server that keeps the client waiting.
    if (!answer.empty() && !saysWhereItEnds(answer)) {
      (void)shutdown(connection, SHUT_RDWR);
      return;
    }
  }
}

std::string TestServer::url(const std::string& path, const std::string& host) const {
  return "http://" + host + ":" + std::to_string(_port) + path;
}

std::vector<ReceivedRequest> TestServer::requests() const {
  const std::lock_guard lock(_mutex);
  return _requests;
}

std::string Answered(const std::string& body, const std::string& headers,
                     const std::string& status) {
  return "HTTP/1.1 " + status + "\r\nContent-Length: " + std::to_string(body.size()) + "\r\n" +
         headers + "\r\n" + body;
}

}  // namespace contract
