// The one thread that does the command channel's input, output and handlers, and its count of
// connections.
#pragma once

#include <sys/types.h>

#include <asio/io_context.hpp>
#include <memory>

namespace platform {

/// The channel's event loop with a thread of its own: requests are read, handled and answered on it
/// without a change of threads. Started on first use and never destroyed, because its thread may be
/// running while the process exits.
asio::io_context& ChannelNetwork();

/// One of the connections that the limits allow; given back by its destructor. Any thread.
class ConnectionTicket {
 public:
  /// Nothing when there are too many connections of this process, of this user or in all.
  static std::unique_ptr<ConnectionTicket> take(pid_t pid, uid_t uid);
  ~ConnectionTicket();
  ConnectionTicket(const ConnectionTicket&) = delete;
  ConnectionTicket& operator=(const ConnectionTicket&) = delete;

 private:
  ConnectionTicket(pid_t pid, uid_t uid) : _pid(pid), _uid(uid) {}

  const pid_t _pid;
  const uid_t _uid;
};

}  // namespace platform
