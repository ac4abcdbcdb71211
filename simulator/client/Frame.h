// The frames of the command channel.
#pragma once

#include <cstdint>
#include <map>
#include <optional>
#include <string>
#include <string_view>

namespace client {

/// What a frame is.
enum class FrameKind : std::uint8_t {
  kMessage = 1,   ///< to the daemon, no reply expected
  kQuestion = 2,  ///< to the daemon, a reply is expected
  kReply = 3,     ///< to the peer
};

/// One frame: kind, number and dictionary. Keys and values contain no zero byte.
struct Frame {
  FrameKind kind;
  std::uint32_t number;
  std::map<std::string, std::string> dictionary;
};

/// The frame's bytes, length field included. Any thread.
std::string FrameWrite(const Frame& frame);

/// Reads what follows the length field. Nothing when it is no frame: cut short, an unknown kind, a
/// key without a value, a string without its zero byte. Any thread.
std::optional<Frame> FrameRead(std::string_view body);

/// A frame's number as its four bytes and back. `bytes` holds at least four. Any thread.
std::string FrameWriteNumber(std::uint32_t number);
std::uint32_t FrameReadNumber(std::string_view bytes);

}  // namespace client
