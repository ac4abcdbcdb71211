// An application at the other end of the command channel.
#pragma once

#include <future>
#include <memory>
#include <optional>
#include <string>

namespace contract {

/// A connection to the service kService, whose messages have one string, "text".
class ChannelClient {
 public:
  ChannelClient();
  ~ChannelClient();
  ChannelClient(const ChannelClient&) = delete;
  ChannelClient& operator=(const ChannelClient&) = delete;

  /// Sends a message that expects no reply.
  void send(const std::string& text);
  /// Sends a message and gives its reply's text, or nothing when the connection ended before.
  std::future<std::optional<std::string>> request(const std::string& text);
  /// Waits until the service has ended the connection.
  bool isEnded();
  void close();

 private:
  struct Impl;
  std::unique_ptr<Impl> _impl;
};

}  // namespace contract
