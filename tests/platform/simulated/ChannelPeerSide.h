// The peer's side of the command channel, byte by byte.
#pragma once

#include <cstdint>
#include <optional>
#include <string>

namespace contract {

/// A frame's bytes; `dictionary` as it goes over the wire, zero bytes included.
std::string FrameBytes(std::uint8_t kind, std::uint32_t number, const std::string& dictionary);

/// "key NUL value NUL".
std::string Entry(const std::string& key, const std::string& value);

/// A connection to a Unix socket. Not connected when that failed. Whoever waits for the other side
/// does so for a minute at most.
class PeerSide {
 public:
  explicit PeerSide(const std::string& path);
  ~PeerSide();
  PeerSide(PeerSide&& other) noexcept;
  PeerSide(const PeerSide&) = delete;
  PeerSide& operator=(const PeerSide&) = delete;
  PeerSide& operator=(PeerSide&&) = delete;

  /// Sends all bytes; false when the other side has closed.
  bool write(const std::string& bytes) const;
  /// Reads exactly so many bytes, or nothing when they do not come.
  std::optional<std::string> read(std::size_t count) const;
  /// Waits for the next frame: what stands after its length. Nothing when it does not come.
  std::optional<std::string> readFrame() const;
  /// Waits until the other side has closed; false when it does not.
  bool isClosed() const;
  void close();

 private:
  int _socket;
};

}  // namespace contract
