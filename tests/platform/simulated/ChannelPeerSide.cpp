#include "tests/platform/simulated/ChannelPeerSide.h"

#include <sys/socket.h>
#include <sys/time.h>
#include <sys/un.h>
#include <unistd.h>

#include <cerrno>
#include <cstring>
#include <utility>

namespace contract {
namespace {

std::string littleEndian(std::uint32_t value) {
  std::string bytes;
  for (int shift = 0; shift < 32; shift += 8) bytes += static_cast<char>((value >> shift) & 0xFF);
  return bytes;
}

}  // namespace

std::string FrameBytes(std::uint8_t kind, std::uint32_t number, const std::string& dictionary) {
  return littleEndian(static_cast<std::uint32_t>(5 + dictionary.size())) + static_cast<char>(kind) +
         littleEndian(number) + dictionary;
}

std::string Entry(const std::string& key, const std::string& value) {
  return key + '\0' + value + '\0';
}

PeerSide::PeerSide(const std::string& path) : _socket(socket(AF_UNIX, SOCK_STREAM, 0)) {
  sockaddr_un address{};
  address.sun_family = AF_UNIX;
  std::strncpy(address.sun_path, path.c_str(), sizeof address.sun_path - 1);
  const timeval patience{.tv_sec = 60, .tv_usec = 0};
  (void)setsockopt(_socket, SOL_SOCKET, SO_RCVTIMEO, &patience, sizeof patience);
  if (connect(_socket, reinterpret_cast<const sockaddr*>(&address), sizeof address) != 0) close();
}

PeerSide::~PeerSide() { close(); }
PeerSide::PeerSide(PeerSide&& other) noexcept : _socket(std::exchange(other._socket, -1)) {}

void PeerSide::close() {
  if (_socket >= 0) (void)::close(std::exchange(_socket, -1));
}

bool PeerSide::write(const std::string& bytes) const {
  std::size_t sent = 0;
  while (sent < bytes.size()) {
    const ssize_t count = send(_socket, bytes.data() + sent, bytes.size() - sent, MSG_NOSIGNAL);
    if (count < 0) return false;
    sent += static_cast<std::size_t>(count);
  }
  return true;
}

std::optional<std::string> PeerSide::read(std::size_t count) const {
  std::string bytes(count, '\0');
  const ssize_t received = recv(_socket, bytes.data(), count, MSG_WAITALL);
  if (received != static_cast<ssize_t>(count)) return std::nullopt;
  return bytes;
}

std::optional<std::string> PeerSide::readFrame() const {
  const std::optional<std::string> head = read(4);
  if (!head) return std::nullopt;
  std::uint32_t length = 0;
  for (std::size_t i = 4; i-- > 0;) length = (length << 8) | static_cast<unsigned char>((*head)[i]);
  return read(length);
}

bool PeerSide::isClosed() const {
  char byte = 0;
  ssize_t count = 1;
  while (count > 0) count = recv(_socket, &byte, 1, 0);
  return count == 0 || errno != EAGAIN;  // which is what comes of waiting in vain
}

}  // namespace contract
