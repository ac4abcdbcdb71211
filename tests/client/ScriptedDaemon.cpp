#include "tests/client/ScriptedDaemon.h"

#include <gtest/gtest.h>
#include <poll.h>
#include <sys/eventfd.h>
#include <sys/socket.h>
#include <sys/un.h>
#include <unistd.h>

#include <algorithm>
#include <cstddef>
#include <string_view>
#include <utility>

namespace {

// Written apart from the client's own frames, so that a mistake there cannot cancel itself out.
std::string LittleEndian(std::uint32_t number) {
  return {static_cast<char>(number & 0xFF), static_cast<char>(number >> 8 & 0xFF),
          static_cast<char>(number >> 16 & 0xFF), static_cast<char>(number >> 24 & 0xFF)};
}

std::uint32_t FromLittleEndian(const std::string& bytes, std::size_t offset) {
  std::uint32_t number = 0;
  for (std::size_t index = 0; index < 4; ++index) {
    const auto byte = static_cast<unsigned char>(bytes[offset + index]);
    number |= static_cast<std::uint32_t>(byte) << (8 * index);
  }
  return number;
}

void SendAll(int client, std::string_view bytes) {
  while (!bytes.empty()) {
    const ssize_t sent = send(client, bytes.data(), bytes.size(), MSG_NOSIGNAL);
    if (sent <= 0) return;  // the client may go whenever it likes
    bytes.remove_prefix(static_cast<std::size_t>(sent));
  }
}

/// The request in a frame's body; the frame must be exactly what the contract says.
std::string RequestIn(const std::string& body) {
  static const std::string kKey("request\0", 8);
  EXPECT_EQ(body.at(0), 2);
  EXPECT_EQ(body.substr(5, kKey.size()), kKey);
  EXPECT_EQ(body.back(), '\0');
  return body.substr(5 + kKey.size(), body.size() - 6 - kKey.size());
}

}  // namespace

std::string ReplyFrame(std::uint32_t number, const std::string& key, const std::string& value) {
  const std::string body = '\3' + LittleEndian(number) + key + '\0' + value + '\0';
  return LittleEndian(static_cast<std::uint32_t>(body.size())) + body;
}

ScriptStep Replies(const std::string& text) {
  return [text](std::uint32_t number) {
    return ScriptAnswer{ReplyFrame(number, "response", text), false};
  };
}

ScriptStep Sends(const std::string& bytes) {
  return [bytes](std::uint32_t) { return ScriptAnswer{bytes, false}; };
}

ScriptStep Closes(const std::string& bytes) {
  return [bytes](std::uint32_t) { return ScriptAnswer{bytes, true}; };
}

ScriptStep StaysSilent() { return Sends(""); }

ScriptedDaemon::ScriptedDaemon(const std::string& path, std::vector<ScriptStep> script)
    : _stop(eventfd(0, EFD_CLOEXEC)), _script(std::move(script)) {
  listen(path);
  _thread = std::thread([this] { run(); });
}

ScriptedDaemon::~ScriptedDaemon() {
  EXPECT_EQ(eventfd_write(_stop, 1), 0);
  _thread.join();
  close(_listener);
  close(_stop);
}

void ScriptedDaemon::listen(const std::string& path) {
  sockaddr_un address{};
  address.sun_family = AF_UNIX;
  ASSERT_LT(path.size(), sizeof address.sun_path);
  std::copy(path.begin(), path.end(), address.sun_path);
  _listener = socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0);
  ASSERT_EQ(bind(_listener, reinterpret_cast<const sockaddr*>(&address), sizeof address), 0);
  ASSERT_EQ(::listen(_listener, 8), 0);
}

std::vector<std::string> ScriptedDaemon::requests() const {
  const std::lock_guard lock(_mutex);
  return _requests;
}

int ScriptedDaemon::connections() const {
  const std::lock_guard lock(_mutex);
  return _connections;
}

/// Waits for something to read. False when the daemon shall stop.
bool ScriptedDaemon::readable(int descriptor) const {
  pollfd entries[] = {{_stop, POLLIN, 0}, {descriptor, POLLIN, 0}};
  return poll(entries, 2, -1) > 0 && entries[0].revents == 0;
}

bool ScriptedDaemon::receive(int client, std::string& bytes) const {
  for (std::size_t have = 0; have < bytes.size();) {
    if (!readable(client)) return false;
    const ssize_t got = recv(client, &bytes[have], bytes.size() - have, 0);
    if (got <= 0) return false;
    have += static_cast<std::size_t>(got);
  }
  return true;
}

void ScriptedDaemon::run() {
  while (readable(_listener)) {
    const int client = accept4(_listener, nullptr, nullptr, SOCK_CLOEXEC);
    if (client < 0) return;
    serve(client);
    close(client);
  }
}

void ScriptedDaemon::serve(int client) {
  {
    const std::lock_guard lock(_mutex);
    ++_connections;
  }
  while (answer(client)) {
  }
}

/// Receives one request and does what the script says. False when the connection ends.
bool ScriptedDaemon::answer(int client) {
  std::string length(4, '\0');
  if (!receive(client, length)) return false;
  std::string body(FromLittleEndian(length, 0), '\0');
  if (!receive(client, body)) return false;
  const ScriptStep step = takeStep(RequestIn(body));
  const ScriptAnswer answer = step(FromLittleEndian(body, 1));
  SendAll(client, answer.bytes);
  return !answer.closes;
}

ScriptStep ScriptedDaemon::takeStep(const std::string& request) {
  const std::lock_guard lock(_mutex);
  _requests.push_back(request);
  return _script.at(std::min(_requests.size(), _script.size()) - 1);
}
