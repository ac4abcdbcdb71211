// One connection to the daemon's command channel.
#pragma once

#include <chrono>
#include <cstdint>
#include <optional>
#include <string>
#include <string_view>
#include <variant>

namespace client {

/// Why a request has no answer.
enum class ChannelFailureKind {
  kUnsendable,  ///< the request does not fit into a frame; nothing was sent
  kNotThere,    ///< nobody listens; nothing was sent
  kClosed,      ///< the daemon closed the connection without an answer
  kTimeOut,     ///< no answer in time
  kMalformed,   ///< what came is no answer: too long, no frame, another message's
};

/// A failure and a sentence for people about it.
struct ChannelFailure {
  ChannelFailureKind kind;
  std::string text;
};

/// The text of the daemon's reply, or why there is none.
using ChannelResult = std::variant<std::string, ChannelFailure>;

/// The socket's path: the environment's KIOSK_CHANNEL, else the daemon's own. Any thread.
std::string ChannelPath();

/// A connection that is made by the first request and made anew after a failure. One thread.
class Connection {
 public:
  /// `path` is the socket's. Nothing is opened yet.
  explicit Connection(std::string path);
  ~Connection();
  Connection(const Connection&) = delete;
  Connection& operator=(const Connection&) = delete;

  /// Sends the text of a request, whatever it is, and waits at most `timeout` for the reply's text;
  /// connecting counts. Any failure closes the connection, so that an answer that comes late cannot
  /// be taken for the next one.
  ChannelResult exchange(std::string_view request, std::chrono::milliseconds timeout);

  /// Whether there is a connection that the daemon has not closed.
  bool stands() const;

  /// Closes the connection, if there is one.
  void close();

 private:
  using Deadline = std::chrono::steady_clock::time_point;
  using Failed = std::optional<ChannelFailureKind>;

  Failed open(Deadline deadline);
  Failed wait(short events, Deadline deadline) const;
  Failed send(std::string_view bytes, Deadline deadline) const;
  Failed receive(std::string& bytes, Deadline deadline) const;
  Failed receiveReply(std::uint32_t number, std::string& reply, Deadline deadline) const;
  Failed ask(std::string_view request, std::string& reply, Deadline deadline);

  std::string _path;
  int _socket = -1;
  int _openError = 0;  // errno of an open() that found nobody
  std::uint32_t _number = 0;
};

}  // namespace client
