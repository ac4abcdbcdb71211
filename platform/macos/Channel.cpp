// The command channel: XPC. Its objects are retained and released by hand here, and nowhere else.
#include "platform/Channel.h"

#include <xpc/xpc.h>

#include <atomic>
#include <cstring>
#include <mutex>

#include "platform/macos/DispatchQueue.h"
#include "platform/macos/Limits.h"

namespace platform {
namespace {

/// Owns one reference to an XPC object.
class XpcRef {
 public:
  explicit XpcRef(xpc_object_t owned) : _object(owned) {}
  ~XpcRef() { xpc_release(_object); }
  XpcRef(const XpcRef&) = delete;
  XpcRef& operator=(const XpcRef&) = delete;

  xpc_object_t get() const { return _object; }

 private:
  const xpc_object_t _object;
};

/// Errors are constants, known by their addresses.
bool isError(xpc_object_t event, const void* error) { return event == error; }

ChannelError errorOf(xpc_object_t event) {
  if (isError(event, XPC_ERROR_CONNECTION_INVALID)) return ChannelError::kConnectionInvalid;
  if (isError(event, XPC_ERROR_CONNECTION_INTERRUPTED)) return ChannelError::kConnectionInterrupted;
  if (isError(event, XPC_ERROR_PEER_CODE_SIGNING_REQUIREMENT)) {
    return ChannelError::kPeerCodeSigningRequirement;
  }
  return ChannelError::kOther;
}

/// Ends a connection that nobody takes.
void turnAway(xpc_object_t event) {
  if (xpc_get_type(event) == XPC_TYPE_CONNECTION) {
    xpc_connection_cancel(static_cast<xpc_connection_t>(event));
  }
}

/// Counts a connection's messages that are not done with, and suspends it while they are many.
/// Suspensions count, so each has its resumption, also of a connection that has ended. A suspended
/// connection also sends nothing and hears of its end late (connection.h); both wait until one of
/// the messages is done with. Does not own the connection, whose block owns it; a ticket does.
class Backlog {
 public:
  explicit Backlog(xpc_connection_t connection) : connection(connection) {}

  void add() {
    const std::lock_guard lock(_mutex);
    if (++_messages == kMaximumPendingMessages) xpc_connection_suspend(connection);
  }

  void remove() {
    const std::lock_guard lock(_mutex);
    if (_messages-- == kMaximumPendingMessages) xpc_connection_resume(connection);
  }

  const xpc_connection_t connection;

 private:
  std::mutex _mutex;
  std::size_t _messages = 0;
};

/// A message's place in the backlog: given back when its reply is sent, or else when nobody holds
/// the message or its reply any more.
class Ticket {
 public:
  explicit Ticket(std::shared_ptr<Backlog> backlog)
      : _connection(xpc_retain(backlog->connection)), _backlog(std::move(backlog)) {
    _backlog->add();
  }
  ~Ticket() { release(); }
  Ticket(const Ticket&) = delete;
  Ticket& operator=(const Ticket&) = delete;

  void release() {
    if (!_released.exchange(true)) _backlog->remove();
  }

 private:
  const XpcRef _connection;
  const std::shared_ptr<Backlog> _backlog;
  std::atomic<bool> _released = false;
};

}  // namespace

struct ChannelReply::Impl {
  Impl(xpc_object_t reply, std::shared_ptr<Ticket> message)
      : dictionary(reply), ticket(std::move(message)) {}

  const XpcRef dictionary;
  const std::shared_ptr<Ticket> ticket;
};

void ChannelReply::setString(const std::string& key, const std::string& text) {
  xpc_dictionary_set_string(_impl->dictionary.get(), key.c_str(), text.c_str());
}

struct ChannelMessage::Impl {
  Impl(xpc_object_t message, const std::shared_ptr<Backlog>& backlog)
      : dictionary(xpc_retain(message)), ticket(std::make_shared<Ticket>(backlog)) {}

  const XpcRef dictionary;
  const std::shared_ptr<Ticket> ticket;
};

std::optional<std::string> ChannelMessage::string(const std::string& key) const {
  const char* text = xpc_dictionary_get_string(_impl->dictionary.get(), key.c_str());
  if (text == nullptr) return std::nullopt;
  const std::size_t length = strnlen(text, kMaximumTextBytes + 1);
  return length <= kMaximumTextBytes ? std::optional<std::string>({text, length}) : std::nullopt;
}

std::optional<ChannelReply> ChannelMessage::createReply() const {
  const xpc_object_t reply = xpc_dictionary_create_reply(_impl->dictionary.get());
  if (reply == nullptr) return std::nullopt;
  return ChannelReply(std::make_shared<ChannelReply::Impl>(reply, _impl->ticket));
}

using PeerHandler = std::function<void(const ChannelPeerEvent&)>;

struct ChannelPeer::Impl {
  explicit Impl(xpc_connection_t peer)
      : connection(static_cast<xpc_connection_t>(xpc_retain(peer))) {}
  ~Impl() { xpc_release(connection); }
  Impl(const Impl&) = delete;
  Impl& operator=(const Impl&) = delete;

  const xpc_connection_t connection;
  std::shared_ptr<PeerHandler> handler;  ///< shared with the connection's block
  std::atomic<bool> isActive = false;
};

pid_t ChannelPeer::pid() const { return xpc_connection_get_pid(_impl->connection); }

std::uint32_t ChannelPeer::euid() const { return xpc_connection_get_euid(_impl->connection); }

std::int32_t ChannelPeer::asid() const { return xpc_connection_get_asid(_impl->connection); }

// Checked with every message (connection.h). That it must come before activation is everybody's
// practice, and not documented.
int ChannelPeer::setCodeSigningRequirement(const std::string& requirement) const {
  return xpc_connection_set_peer_code_signing_requirement(_impl->connection, requirement.c_str());
}

void ChannelPeer::setEventHandler(std::function<void(const ChannelPeerEvent&)> handler) const {
  // The connection owns the block, and the handler may well own the connection. So the block shares
  // the handler, and gives it up after the last event, which every connection receives.
  const auto shared = std::make_shared<PeerHandler>(std::move(handler));
  const auto backlog = std::make_shared<Backlog>(_impl->connection);
  _impl->handler = shared;
  xpc_connection_set_event_handler(_impl->connection, ^(xpc_object_t event) {
    if (!*shared) return;
    if (xpc_get_type(event) == XPC_TYPE_DICTIONARY) {
      (*shared)(ChannelMessage(std::make_shared<ChannelMessage::Impl>(event, backlog)));
    } else if (xpc_get_type(event) == XPC_TYPE_ERROR) {
      (*shared)(errorOf(event));
      if (isError(event, XPC_ERROR_CONNECTION_INVALID)) *shared = nullptr;
      // Else it would be reported again with every message that it sends.
      if (isError(event, XPC_ERROR_PEER_CODE_SIGNING_REQUIREMENT)) {
        xpc_connection_cancel(backlog->connection);
      }
    }
  });
}

void ChannelPeer::activate() const {
  _impl->isActive = true;
  xpc_connection_activate(_impl->connection);
}

void ChannelPeer::cancel() const {
  xpc_connection_cancel(_impl->connection);
  // A connection that never was active has no last event.
  if (!_impl->isActive && _impl->handler) *_impl->handler = nullptr;
}

void ChannelPeer::send(const ChannelReply& reply) const {
  xpc_connection_send_message(_impl->connection, reply.impl()->dictionary.get());
  reply.impl()->ticket->release();
}

using ListenerHandler = std::function<void(const ChannelListenerEvent&)>;

struct ChannelListener::Impl {
  Impl(const char* serviceName, const Queue& queue)
      : queue(queue),
        connection(xpc_connection_create_mach_service(serviceName, queue.impl()->queue,
                                                      XPC_CONNECTION_MACH_SERVICE_LISTENER)) {}
  ~Impl() {
    // The end is an event too, which is none for a handler whose listener has gone.
    if (handler) queue.async([silenced = handler] { *silenced = nullptr; });
    if (!isActive) begin();  // only a connection that was activated may be released (connection.h)
    xpc_connection_cancel(connection);
    xpc_release(connection);
  }
  Impl(const Impl&) = delete;
  Impl& operator=(const Impl&) = delete;

  void begin() {
    if (!handler) {
      xpc_connection_set_event_handler(connection, ^(xpc_object_t event) {
        turnAway(event);
      });
    }
    isActive = true;
    xpc_connection_activate(connection);
  }

  const Queue queue;
  const xpc_connection_t connection;
  std::shared_ptr<ListenerHandler> handler;  ///< shared with the connection's block
  bool isActive = false;
};

ChannelListener::ChannelListener(const std::string& serviceName, const Queue& queue)
    : _impl(std::make_shared<Impl>(serviceName.c_str(), queue)) {}
ChannelListener::~ChannelListener() = default;
ChannelListener::ChannelListener(ChannelListener&&) noexcept = default;
ChannelListener& ChannelListener::operator=(ChannelListener&&) noexcept = default;

void ChannelListener::setEventHandler(std::function<void(const ChannelListenerEvent&)> handler) {
  const auto shared = std::make_shared<ListenerHandler>(std::move(handler));
  _impl->handler = shared;
  xpc_connection_set_event_handler(_impl->connection, ^(xpc_object_t event) {
    if (!*shared) return turnAway(event);
    if (xpc_get_type(event) == XPC_TYPE_CONNECTION) {
      const auto peer = static_cast<xpc_connection_t>(event);
      (*shared)(ChannelPeer(std::make_shared<ChannelPeer::Impl>(peer)));
    } else if (xpc_get_type(event) == XPC_TYPE_ERROR) {
      (*shared)(errorOf(event));
    }
  });
}

void ChannelListener::activate() { _impl->begin(); }

}  // namespace platform
