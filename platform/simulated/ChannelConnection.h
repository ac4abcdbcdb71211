// The objects behind ChannelPeer, ChannelMessage and ChannelReply.
#pragma once

#include <asio/local/stream_protocol.hpp>
#include <atomic>
#include <deque>
#include <memory>
#include <mutex>
#include <string>
#include <utility>
#include <vector>

#include "platform/Channel.h"
#include "platform/simulated/ChannelFrame.h"
#include "platform/simulated/ChannelIdentity.h"
#include "platform/simulated/ChannelNetwork.h"
#include "platform/simulated/Descriptor.h"

namespace platform {

/// A message's share of what its connection may have pending: given back when the reply is sent, or
/// else when nobody holds the message or its reply any more. Any thread.
class PendingMessage {
 public:
  PendingMessage(std::weak_ptr<ChannelPeer::Impl> connection, std::size_t bytes)
      : _connection(std::move(connection)), _bytes(bytes) {}
  ~PendingMessage() { release(); }
  PendingMessage(const PendingMessage&) = delete;
  PendingMessage& operator=(const PendingMessage&) = delete;

  void release();

 private:
  const std::weak_ptr<ChannelPeer::Impl> _connection;
  const std::size_t _bytes;
  std::atomic<bool> _released = false;
};

struct ChannelMessage::Impl {
  Frame frame;
  std::shared_ptr<PendingMessage> pending;
  const void* connection;  ///< which connection it came from; only ever compared
  std::atomic<bool> replyMade = false;
};

struct ChannelReply::Impl {
  std::uint32_t number;
  std::shared_ptr<PendingMessage> pending;
  const void* connection;
  std::vector<std::pair<std::string, std::string>> entries;
  std::atomic<bool> sent = false;
};

/// One connection. Input, the handler's calls and what did not fit into the peer's buffer at once
/// are the network thread's. From activate() until it is closed, the connection owns itself.
struct ChannelPeer::Impl : std::enable_shared_from_this<ChannelPeer::Impl> {
 public:
  using Handler = std::function<void(const ChannelPeerEvent&)>;

  Impl(Descriptor connected, PeerIdentity peer, std::unique_ptr<ConnectionTicket> ticket);

  const PeerIdentity& identity() const { return _identity; }

  // What ChannelPeer offers; any thread.
  int setRequirement(const std::string& requirement);
  void setHandler(Handler handler);
  void activate();
  void cancel();
  void send(const ChannelReply& reply);

  /// Takes a message of `bytes` off what is pending; any thread.
  void messageDone(std::size_t bytes);

 private:
  // On the network's thread.
  void waitForInput();
  void takeInput();
  void takeFrames();
  void takeFrame(Frame frame);
  bool stalled() const;
  void sendNext();
  void finishWrite(const std::error_code& error);
  void close();
  void handle(const ChannelPeerEvent& event);
  void handleEnd();

  /// Sends now what the peer's buffer takes and leaves the rest to the network's thread; false when
  /// the connection is broken or its peer does not read. Any thread.
  bool write(std::string bytes);
  /// Takes what could be sent off `bytes`; false when the connection is broken. _sending is held.
  bool sendAtOnce(std::string& bytes);

  const PeerIdentity _identity;
  std::atomic<bool> _activated = false;
  std::atomic<bool> _cancelled = false;
  std::atomic<bool> _refused = false;  ///< the peer does not satisfy the requirement

  std::mutex _mutex;
  std::shared_ptr<Handler> _handler;  ///< guarded by _mutex

  std::mutex _sending;              ///< held while the socket is written to or closed
  std::deque<std::string> _output;  ///< guarded by _sending; the first is being written
  std::size_t _unsentBytes = 0;     ///< guarded by _sending

  // Used on the network's thread only, but for the socket's descriptor, which _sending guards.
  asio::local::stream_protocol::socket _socket;
  std::unique_ptr<ConnectionTicket> _ticket;
  std::shared_ptr<Impl> _self;
  bool _closed = false;
  bool _held = false;  ///< reading has stopped until something that is pending is done with
  std::string _input;
  std::size_t _pendingMessages = 0;
  std::size_t _pendingBytes = 0;
};

}  // namespace platform
