// The command channel's frames: a little-endian 32-bit length of what follows, one byte of kind, a
// little-endian 32-bit number, and a dictionary as "key NUL value NUL ...".
#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

namespace platform {

enum class FrameKind : std::uint8_t { kMessage = 1, kRequest = 2, kReply = 3 };

/// A whole frame. `dictionary` is kept as it came: a dictionary of many small entries must not
/// cost more memory than its bytes.
struct Frame {
  FrameKind kind;
  std::uint32_t number;
  std::string dictionary;
};

/// What the start of a connection's input is.
enum class FrameState { kIncomplete, kComplete, kBroken };

/// Takes the frame at the start of `input` off it. kComplete sets `frame`; kIncomplete needs more
/// bytes; kBroken is a frame that no peer may send.
FrameState TakeFrame(std::string_view& input, Frame& frame);

/// The value under `key`, or nothing. The last of several counts.
std::optional<std::string> FrameValue(std::string_view dictionary, std::string_view key);

/// The bytes of a reply, or nothing when they would be more than a frame can hold. Keys and values
/// have no zero bytes.
std::optional<std::string> EncodeReply(
    std::uint32_t number, const std::vector<std::pair<std::string, std::string>>& entries);

}  // namespace platform
