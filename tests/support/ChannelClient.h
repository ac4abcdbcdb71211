// A peer of the command channel that can also misbehave.
#pragma once

#include <cstdint>
#include <map>
#include <optional>
#include <string>

#include "platform/Json.h"

/// Kinds of frames, as docs/SIMULATED_MAC.md has them.
inline constexpr std::uint8_t kMessageWithoutReply = 1;
inline constexpr std::uint8_t kMessageWithReply = 2;
inline constexpr std::uint8_t kReply = 3;

using ChannelDictionary = std::map<std::string, std::string>;

struct ChannelFrame {
  std::uint8_t kind = 0;
  std::uint32_t number = 0;
  ChannelDictionary dictionary;
};

class ChannelClient {
 public:
  /// Connects to the socket; connected() is false when nobody listens.
  explicit ChannelClient(const std::string& socketPath);
  ~ChannelClient();
  ChannelClient(ChannelClient&& other) noexcept;
  ChannelClient& operator=(ChannelClient&&) = delete;
  ChannelClient(const ChannelClient&) = delete;
  ChannelClient& operator=(const ChannelClient&) = delete;

  bool connected() const { return _socket >= 0; }

  /// The bytes of a frame.
  static std::string frame(std::uint8_t kind, std::uint32_t number,
                           const ChannelDictionary& content);

  /// Sends bytes as they are; false when the other side is gone.
  bool sendBytes(const std::string& bytes);
  bool sendFrame(std::uint8_t kind, std::uint32_t number, const ChannelDictionary& content) {
    return sendBytes(frame(kind, number, content));
  }
  /// The next frame; nothing when the connection ends or a generous time passes.
  std::optional<ChannelFrame> receive();
  /// Whether the other side closes the connection without sending anything more.
  bool isClosed();

  /// Sends "request": text as a message that expects a reply, and returns the reply's "response" as
  /// JSON; null when none comes.
  Json ask(const std::string& text);
  Json ask(const Json& request) { return ask(request.dump()); }

 private:
  std::optional<std::string> receiveBytes(std::size_t count);

  int _socket = -1;
  std::uint32_t _number = 0;
};
