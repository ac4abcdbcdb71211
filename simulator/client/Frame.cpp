#include "simulator/client/Frame.h"

#include <cstddef>
#include <utility>

#include "simulator/client/Limits.h"

namespace client {
namespace {

/// Takes the string before the next zero byte off `rest`, or nothing when there is no zero byte.
std::optional<std::string> TakeString(std::string_view& rest) {
  const std::size_t end = rest.find('\0');
  if (end == std::string_view::npos) return std::nullopt;
  std::string text(rest.substr(0, end));
  rest.remove_prefix(end + 1);
  return text;
}

}  // namespace

std::string FrameWriteNumber(std::uint32_t number) {
  std::string bytes;
  for (unsigned shift = 0; shift < 32; shift += 8) {
    bytes.push_back(static_cast<char>((number >> shift) & 0xFFU));
  }
  return bytes;
}

std::uint32_t FrameReadNumber(std::string_view bytes) {
  std::uint32_t number = 0;
  for (std::size_t index = 4; index-- > 0;) {
    number = (number << 8U) | static_cast<unsigned char>(bytes[index]);
  }
  return number;
}

std::string FrameWrite(const Frame& frame) {
  std::string body(1, static_cast<char>(frame.kind));
  body += FrameWriteNumber(frame.number);
  for (const auto& [key, value] : frame.dictionary) {
    body.append(key).push_back('\0');
    body.append(value).push_back('\0');
  }
  return FrameWriteNumber(static_cast<std::uint32_t>(body.size())) + body;
}

std::optional<Frame> FrameRead(std::string_view body) {
  if (body.size() < kFrameHeadBytes || body[0] < 1 || body[0] > 3) return std::nullopt;
  Frame frame{static_cast<FrameKind>(body[0]), FrameReadNumber(body.substr(1)), {}};
  body.remove_prefix(kFrameHeadBytes);
  while (!body.empty()) {
    std::optional<std::string> key = TakeString(body);
    std::optional<std::string> value = TakeString(body);
    if (!key || !value) return std::nullopt;
    frame.dictionary.insert_or_assign(std::move(*key), std::move(*value));
  }
  return frame;
}

}  // namespace client
