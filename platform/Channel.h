// The local command channel: a named service, its peers, messages and replies.
// Native counterpart: XPC (xpc/connection.h). A message is a flat dictionary of strings.
#pragma once

#include <sys/types.h>

#include <cstdint>
#include <functional>
#include <memory>
#include <optional>
#include <string>
#include <variant>

#include "platform/Queue.h"

namespace platform {

/// Errors delivered to event handlers.
enum class ChannelError {
  kConnectionInvalid,           ///< XPC_ERROR_CONNECTION_INVALID
  kConnectionInterrupted,       ///< XPC_ERROR_CONNECTION_INTERRUPTED
  kPeerCodeSigningRequirement,  ///< XPC_ERROR_PEER_CODE_SIGNING_REQUIREMENT
  kOther,
};

/// A reply under construction. Native: the dictionary of xpc_dictionary_create_reply.
class ChannelReply {
 public:
  /// Stores a copy of `text`, up to its first zero byte, under `key`.
  void setString(const std::string& key, const std::string& text);

  struct Impl;
  explicit ChannelReply(std::shared_ptr<Impl> impl) : _impl(std::move(impl)) {}
  const std::shared_ptr<Impl>& impl() const { return _impl; }

 private:
  std::shared_ptr<Impl> _impl;
};

/// A received dictionary. Copies name the same message. Any thread.
class ChannelMessage {
 public:
  /// The string under `key`, or nothing, also for one that is longer than the platform's limit.
  /// Native: xpc_dictionary_get_string.
  std::optional<std::string> string(const std::string& key) const;

  /// The reply to this message, or nothing when the sender expects none or one was already made.
  std::optional<ChannelReply> createReply() const;

  struct Impl;
  explicit ChannelMessage(std::shared_ptr<Impl> impl) : _impl(std::move(impl)) {}

 private:
  std::shared_ptr<Impl> _impl;
};

/// What a peer's event handler receives.
using ChannelPeerEvent = std::variant<ChannelMessage, ChannelError>;

/// One connection from a peer. Copies name the same connection; it stays alive until the peer goes
/// or it is cancelled, whichever comes first, and the handler is released then. Events are
/// delivered one at a time, in their order. Natively each connection has a queue of its own; on the
/// simulated Mac they share a thread, so a handler must never wait for anything. Any thread.
class ChannelPeer {
 public:
  pid_t pid() const;           ///< Native: xpc_connection_get_pid.
  std::uint32_t euid() const;  ///< Native: xpc_connection_get_euid.
  std::int32_t asid() const;   ///< Audit session. Native: xpc_connection_get_asid.

  /// Demands that the peer satisfies a code-signing requirement; no message of a peer that does not
  /// is ever delivered: an error is, and the connection ends. To be called before activate() (that
  /// a Mac insists on it is not documented), at most once. Returns 0, or an error number for a
  /// requirement that cannot be applied. Native: xpc_connection_set_peer_code_signing_requirement.
  [[nodiscard]] int setCodeSigningRequirement(const std::string& requirement) const;

  void setEventHandler(std::function<void(const ChannelPeerEvent&)> handler) const;
  void activate() const;  ///< Starts delivery. Native: xpc_connection_activate.
  void cancel() const;    ///< Ends the connection. Native: xpc_connection_cancel.

  /// Sends a reply to a message of this connection, once; never blocks.
  /// Native: xpc_connection_send_message.
  void send(const ChannelReply& reply) const;

  struct Impl;
  explicit ChannelPeer(std::shared_ptr<Impl> impl) : _impl(std::move(impl)) {}

 private:
  std::shared_ptr<Impl> _impl;
};

/// What a listener's event handler receives.
using ChannelListenerEvent = std::variant<ChannelPeer, ChannelError>;

/// The server's end of a named service. A name that the service manager did not register for this
/// process is reported after activate() as kConnectionInvalid. Move-only; once it is destroyed its
/// handler is not called any more, except by a call that is under way.
/// Native: xpc_connection_create_mach_service with XPC_CONNECTION_MACH_SERVICE_LISTENER.
class ChannelListener {
 public:
  /// `queue` receives the listener's events.
  ChannelListener(const std::string& serviceName, const Queue& queue);
  ~ChannelListener();
  ChannelListener(ChannelListener&&) noexcept;
  ChannelListener& operator=(ChannelListener&&) noexcept;

  void setEventHandler(std::function<void(const ChannelListenerEvent&)> handler);
  void activate();

 private:
  struct Impl;
  std::shared_ptr<Impl> _impl;
};

}  // namespace platform
