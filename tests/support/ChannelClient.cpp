#include "tests/support/ChannelClient.h"

#include <fcntl.h>
#include <poll.h>
#include <sys/socket.h>
#include <sys/un.h>
#include <unistd.h>

#include <cerrno>
#include <cstring>
#include <utility>

namespace {

constexpr int kGenerousMs = 60'000;
constexpr std::size_t kHeaderBytes = 5;  // kind and number

void AppendNumber(std::string& bytes, std::uint32_t number) {
  for (int shift = 0; shift < 32; shift += 8) {
    bytes += static_cast<char>((number >> shift) & 0xFFU);
  }
}

std::uint32_t NumberAt(const std::string& bytes, std::size_t at) {
  std::uint32_t number = 0;
  for (std::size_t i = 4; i-- > 0;) {
    number = (number << 8) | static_cast<unsigned char>(bytes[at + i]);
  }
  return number;
}

ChannelDictionary DictionaryFrom(const std::string& bytes) {
  ChannelDictionary dictionary;
  std::size_t at = kHeaderBytes;
  while (at < bytes.size()) {
    const std::string key = bytes.c_str() + at;
    at += key.size() + 1;
    const std::string value = at < bytes.size() ? bytes.c_str() + at : "";
    at += value.size() + 1;
    dictionary[key] = value;
  }
  return dictionary;
}

}  // namespace

ChannelClient::ChannelClient(const std::string& socketPath) {
  sockaddr_un address = {};
  address.sun_family = AF_UNIX;
  // A Mac's folder may lie too deep for a socket's address; its folder as a descriptor never does.
  const std::size_t slash = socketPath.find_last_of('/');
  const int folder = open(socketPath.substr(0, slash).c_str(), O_PATH | O_DIRECTORY | O_CLOEXEC);
  const std::string path =
      socketPath.size() < sizeof address.sun_path
          ? socketPath
          : "/proc/self/fd/" + std::to_string(folder) + socketPath.substr(slash);
  std::strncpy(address.sun_path, path.c_str(), sizeof address.sun_path - 1);
  _socket = socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0);
  if (connect(_socket, reinterpret_cast<sockaddr*>(&address), sizeof address) != 0) {
    close(std::exchange(_socket, -1));
  }
  if (folder >= 0) close(folder);
}

ChannelClient::~ChannelClient() {
  if (_socket >= 0) close(_socket);
}

ChannelClient::ChannelClient(ChannelClient&& other) noexcept
    : _socket(std::exchange(other._socket, -1)), _number(other._number) {}

std::string ChannelClient::frame(std::uint8_t kind, std::uint32_t number,
                                 const ChannelDictionary& content) {
  std::string payload(1, static_cast<char>(kind));
  AppendNumber(payload, number);
  for (const auto& [key, value] : content) payload += key + '\0' + value + '\0';
  std::string bytes;
  AppendNumber(bytes, static_cast<std::uint32_t>(payload.size()));
  return bytes + payload;
}

bool ChannelClient::sendBytes(const std::string& bytes) {
  std::size_t sent = 0;
  while (sent < bytes.size()) {
    const ssize_t count = send(_socket, bytes.data() + sent, bytes.size() - sent, MSG_NOSIGNAL);
    if (count < 0 && errno == EINTR) continue;
    if (count <= 0) return false;
    sent += static_cast<std::size_t>(count);
  }
  return true;
}

std::optional<std::string> ChannelClient::receiveBytes(std::size_t count) {
  std::string bytes(count, '\0');
  std::size_t have = 0;
  while (have < count) {
    pollfd waiting{_socket, POLLIN, 0};
    if (poll(&waiting, 1, kGenerousMs) <= 0) return std::nullopt;
    const ssize_t got = recv(_socket, bytes.data() + have, count - have, 0);
    if (got < 0 && errno == EINTR) continue;
    if (got <= 0) return std::nullopt;
    have += static_cast<std::size_t>(got);
  }
  return bytes;
}

std::optional<ChannelFrame> ChannelClient::receive() {
  const std::optional<std::string> length = receiveBytes(4);
  if (!length) return std::nullopt;
  const std::optional<std::string> payload = receiveBytes(NumberAt(*length, 0));
  if (!payload || payload->size() < kHeaderBytes) return std::nullopt;
  return ChannelFrame{static_cast<std::uint8_t>((*payload)[0]), NumberAt(*payload, 1),
                      DictionaryFrom(*payload)};
}

bool ChannelClient::isClosed() {
  pollfd waiting{_socket, POLLIN, 0};
  char byte = 0;
  return poll(&waiting, 1, kGenerousMs) > 0 && recv(_socket, &byte, 1, 0) <= 0;
}

Json ChannelClient::ask(const std::string& text) {
  const std::uint32_t number = ++_number;
  if (!sendFrame(kMessageWithReply, number, {{"request", text}})) return {};
  const std::optional<ChannelFrame> reply = receive();
  if (!reply || reply->kind != kReply || reply->number != number) return {};
  const auto response = reply->dictionary.find("response");
  if (response == reply->dictionary.end()) return {};
  return Json::parse(response->second, nullptr, false);
}
