#include "tests/hostile/RawPortal.h"

#include <arpa/inet.h>
#include <netinet/in.h>
#include <sys/socket.h>
#include <unistd.h>

#include <cstdint>
#include <stdexcept>
#include <utility>

namespace {

constexpr int kBacklog = 16;

int NewSocket() { return socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0); }

sockaddr_in Loopback(int port) {
  sockaddr_in address{};
  address.sin_family = AF_INET;
  address.sin_port = htons(static_cast<std::uint16_t>(port));
  address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
  return address;
}

std::size_t BodyLength(const std::string& head) {
  constexpr char kLength[] = "Content-Length: ";
  const std::size_t at = head.find(kLength);
  return at == std::string::npos ? 0 : std::stoul(head.substr(at + sizeof kLength - 1, 12));
}

bool SendAll(int connection, const std::string& bytes) {
  std::size_t sent = 0;
  while (sent < bytes.size()) {
    const ssize_t count = send(connection, bytes.data() + sent, bytes.size() - sent, MSG_NOSIGNAL);
    if (count <= 0) return false;
    sent += static_cast<std::size_t>(count);
  }
  return true;
}

// A whole request; what is left unread would have the end of the connection overtake the answer.
std::string ReadRequest(int connection) {
  std::string text;
  char buffer[4096];
  for (;;) {
    const std::size_t end = text.find("\r\n\r\n");
    if (end != std::string::npos && text.size() >= end + 4 + BodyLength(text)) return text;
    const ssize_t count = recv(connection, buffer, sizeof buffer, 0);
    if (count <= 0) return "";
    text.append(buffer, static_cast<std::size_t>(count));
  }
}

}  // namespace

RawPortal::RawPortal() : _listener(NewSocket()) {
  sockaddr_in address = Loopback(0);
  socklen_t size = sizeof address;
  auto* where = reinterpret_cast<sockaddr*>(&address);
  if (bind(_listener, where, size) != 0 || listen(_listener, kBacklog) != 0 ||
      getsockname(_listener, where, &size) != 0) {
    throw std::runtime_error("no port for a portal");
  }
  _port = ntohs(address.sin_port);
  _thread = std::thread([this] { serve(); });
}

RawPortal::~RawPortal() {
  _isEnding = true;
  shutdown(_listener, SHUT_RDWR);  // wakes the thread
  _thread.join();
  close(_listener);
}

std::string RawPortal::url() const { return "http://127.0.0.1:" + std::to_string(_port); }

void RawPortal::answer(RawAnswer answer) {
  this->answer([answer = std::move(answer)](const std::string&) { return answer; });
}

void RawPortal::answer(Script script) {
  const std::lock_guard lock(_mutex);
  _script = std::move(script);
}

void RawPortal::serve() {
  while (!_isEnding) {
    const int connection = accept4(_listener, nullptr, nullptr, SOCK_CLOEXEC);
    if (connection < 0) continue;
    serveOne(connection);
    shutdown(connection, SHUT_WR);
    close(connection);
  }
}

void RawPortal::serveOne(int connection) {
  const std::string request = ReadRequest(connection);
  if (request.empty()) return;
  ++_requests;
  RawAnswer answer;
  {
    const std::lock_guard lock(_mutex);
    if (_script) answer = _script(request);
  }
  if (SendAll(connection, answer.bytes) && !answer.endless.empty()) {
    sendEndlessly(connection, answer);
  }
}

void RawPortal::sendEndlessly(int connection, const RawAnswer& answer) {
  std::size_t sent = 0;
  while (!_isEnding && sent < answer.most && SendAll(connection, answer.endless)) {
    sent += answer.endless.size();
    _endlessBytes += answer.endless.size();
  }
}
