#include "platform/simulated/ChannelFrame.h"

#include <algorithm>

#include "platform/simulated/Limits.h"

namespace platform {
namespace {

constexpr std::size_t kNumberBytes = 4;
constexpr std::size_t kHeaderBytes = 1 + kNumberBytes;  // kind and number

std::uint32_t littleEndian(std::string_view bytes) {
  std::uint32_t value = 0;
  for (std::size_t i = kNumberBytes; i-- > 0;) {
    value = (value << 8) | static_cast<unsigned char>(bytes[i]);
  }
  return value;
}

void appendLittleEndian(std::string& bytes, std::uint32_t value) {
  for (std::size_t i = 0; i < kNumberBytes; ++i) {
    bytes += static_cast<char>((value >> (8 * i)) & 0xFF);
  }
}

bool isFromPeer(FrameKind kind) {
  return kind == FrameKind::kMessage || kind == FrameKind::kRequest;
}

/// Pairs of texts, each with its zero byte.
bool isDictionary(std::string_view bytes) {
  const auto texts = std::count(bytes.begin(), bytes.end(), '\0');
  return texts % 2 == 0 && (bytes.empty() || bytes.back() == '\0');
}

/// Takes the text up to the next zero byte, and the zero byte, off `bytes`.
std::string_view takeText(std::string_view& bytes) {
  const std::string_view text = bytes.substr(0, bytes.find('\0'));
  bytes.remove_prefix(text.size() + 1);
  return text;
}

}  // namespace

FrameState TakeFrame(std::string_view& input, Frame& frame) {
  if (input.size() < kNumberBytes) return FrameState::kIncomplete;
  const std::uint32_t length = littleEndian(input);
  if (length < kHeaderBytes || length > kMaximumFrameBytes) return FrameState::kBroken;
  if (input.size() - kNumberBytes < length) return FrameState::kIncomplete;
  const std::string_view body = input.substr(kNumberBytes, length);
  const auto kind = static_cast<FrameKind>(body.front());
  const std::string_view dictionary = body.substr(kHeaderBytes);
  if (!isFromPeer(kind) || !isDictionary(dictionary)) return FrameState::kBroken;
  frame = {kind, littleEndian(body.substr(1)), std::string(dictionary)};
  input.remove_prefix(kNumberBytes + length);
  return FrameState::kComplete;
}

std::optional<std::string> FrameValue(std::string_view dictionary, std::string_view key) {
  std::optional<std::string> found;
  while (!dictionary.empty()) {
    const std::string_view name = takeText(dictionary);
    const std::string_view value = takeText(dictionary);
    if (name == key) found = value;
  }
  return found;
}

std::optional<std::string> EncodeReply(
    std::uint32_t number, const std::vector<std::pair<std::string, std::string>>& entries) {
  std::size_t length = kHeaderBytes;
  for (const auto& [key, value] : entries) length += key.size() + value.size() + 2;
  if (length > kMaximumFrameBytes) return std::nullopt;
  std::string bytes;
  bytes.reserve(kNumberBytes + length);
  appendLittleEndian(bytes, static_cast<std::uint32_t>(length));
  bytes += static_cast<char>(FrameKind::kReply);
  appendLittleEndian(bytes, number);
  for (const auto& [key, value] : entries) {
    bytes.append(key.c_str(), key.size() + 1).append(value.c_str(), value.size() + 1);
  }
  return bytes;
}

}  // namespace platform
