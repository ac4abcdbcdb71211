#include "platform/simulated/ChannelConnection.h"

#include <sys/socket.h>

#include <asio/buffer.hpp>
#include <asio/dispatch.hpp>
#include <asio/post.hpp>
#include <asio/write.hpp>
#include <cerrno>

#include "platform/simulated/Faults.h"
#include "platform/simulated/Limits.h"

namespace platform {

void PendingMessage::release() {
  if (_released.exchange(true)) return;
  if (const std::shared_ptr<ChannelPeer::Impl> connection = _connection.lock()) {
    connection->messageDone(_bytes);
  }
}

ChannelPeer::Impl::Impl(Descriptor connected, PeerIdentity peer,
                        std::unique_ptr<ConnectionTicket> ticket)
    : _identity(std::move(peer)), _socket(ChannelNetwork()), _ticket(std::move(ticket)) {
  std::error_code error;
  _socket.assign(asio::local::stream_protocol(), connected.get(), error);
  if (!error) (void)connected.release();  // else the socket stays closed and the first read fails
  _socket.non_blocking(true, error);
}

int ChannelPeer::Impl::setRequirement(const std::string& requirement) {
  if (_activated) return EINVAL;
  if (const auto fault = TakeServiceFault("channel.setCodeSigningRequirement", {requirement})) {
    return fault->serviceError();
  }
  const std::optional<bool> satisfied = EvaluateRequirement(requirement, _identity.signature);
  if (!satisfied) return EINVAL;
  _refused = !*satisfied;
  return 0;
}

void ChannelPeer::Impl::setHandler(Handler handler) {
  auto shared = std::make_shared<Handler>(std::move(handler));
  const std::lock_guard lock(_mutex);
  _handler.swap(shared);
}

void ChannelPeer::Impl::activate() {
  if (_activated.exchange(true)) return;
  asio::post(ChannelNetwork(), [self = shared_from_this()] {
    if (self->_closed) return;
    self->_self = self;
    self->waitForInput();
  });
}

void ChannelPeer::Impl::cancel() {
  if (_cancelled.exchange(true)) return;
  asio::post(ChannelNetwork(), [self = shared_from_this()] { self->close(); });
}

void ChannelPeer::Impl::send(const ChannelReply& reply) {
  const std::shared_ptr<ChannelReply::Impl>& impl = reply.impl();
  if (impl->connection != this || impl->sent.exchange(true)) return;
  std::optional<std::string> bytes = EncodeReply(impl->number, impl->entries);
  if (!bytes || !write(std::move(*bytes))) return cancel();  // a peer must not wait in vain
  impl->pending->release();
}

void ChannelPeer::Impl::messageDone(std::size_t bytes) {
  asio::dispatch(ChannelNetwork(), [self = shared_from_this(), bytes] {
    --self->_pendingMessages;
    self->_pendingBytes -= bytes;
    if (!self->_held || self->_closed || self->stalled()) return;
    self->_held = false;
    self->takeFrames();
  });
}

void ChannelPeer::Impl::waitForInput() {
  _socket.async_wait(asio::socket_base::wait_read,
                     [self = shared_from_this()](const std::error_code& error) {
                       if (self->_closed) return;
                       return error ? self->close() : self->takeInput();
                     });
}

void ChannelPeer::Impl::takeInput() {
  // A buffer for all connections, because an idle one shall cost none.
  static char buffer[kChannelReadBytes];
  std::error_code error;
  const std::size_t count = _socket.read_some(asio::buffer(buffer), error);
  if (error == asio::error::would_block) return waitForInput();
  if (error) return close();
  if (_refused) {
    handle(ChannelError::kPeerCodeSigningRequirement);
    return close();
  }
  _input.append(buffer, count);
  takeFrames();
}

void ChannelPeer::Impl::takeFrames() {
  std::string_view rest = _input;
  FrameState state = FrameState::kComplete;
  while (state == FrameState::kComplete && !_closed && !stalled()) {
    Frame frame;
    state = TakeFrame(rest, frame);
    if (state == FrameState::kComplete) takeFrame(std::move(frame));
  }
  if (state == FrameState::kBroken) close();
  if (_closed) return;
  _input.erase(0, _input.size() - rest.size());
  if (_input.empty()) _input.shrink_to_fit();
  _held = stalled();
  if (!_held) waitForInput();
}

void ChannelPeer::Impl::takeFrame(Frame frame) {
  const std::size_t bytes = frame.dictionary.size();
  ++_pendingMessages;
  _pendingBytes += bytes;
  auto pending = std::make_shared<PendingMessage>(weak_from_this(), bytes);
  handle(ChannelMessage(std::shared_ptr<ChannelMessage::Impl>(
      new ChannelMessage::Impl{std::move(frame), std::move(pending), this})));
}

bool ChannelPeer::Impl::stalled() const {
  return _pendingMessages >= kMaximumPendingMessages || _pendingBytes >= kMaximumPendingBytes;
}

// On the sender's thread, so that what a command does next finds its reply gone out already, be it
// the end of this process.
bool ChannelPeer::Impl::write(std::string bytes) {
  const std::lock_guard lock(_sending);
  if (_cancelled || !_socket.is_open()) return true;
  if (_output.empty() && !sendAtOnce(bytes)) return false;
  if (bytes.empty()) return true;
  if (bytes.size() > kMaximumUnsentBytes - _unsentBytes) return false;
  _unsentBytes += bytes.size();
  _output.push_back(std::move(bytes));
  if (_output.size() > 1) return true;
  asio::post(ChannelNetwork(), [self = shared_from_this()] { self->sendNext(); });
  return true;
}

// As a rule the peer's buffer has room, and nothing is left to wait for. Not by the socket object,
// which the network's thread may be using.
bool ChannelPeer::Impl::sendAtOnce(std::string& bytes) {
  const ssize_t count = RetryInterrupted([&] {
    return ::send(_socket.native_handle(), bytes.data(), bytes.size(), MSG_NOSIGNAL | MSG_DONTWAIT);
  });
  if (count < 0) return errno == EAGAIN;
  bytes.erase(0, static_cast<std::size_t>(count));
  return true;
}

void ChannelPeer::Impl::sendNext() {
  const std::lock_guard lock(_sending);
  if (_closed) return;
  asio::async_write(_socket, asio::buffer(_output.front()),
                    [self = shared_from_this()](const std::error_code& error, std::size_t) {
                      self->finishWrite(error);
                    });
}

void ChannelPeer::Impl::finishWrite(const std::error_code& error) {
  if (error) close();
  if (_closed) return;
  bool more = false;
  {
    const std::lock_guard lock(_sending);
    _unsentBytes -= _output.front().size();
    _output.pop_front();
    more = !_output.empty();
  }
  if (more) sendNext();
}

void ChannelPeer::Impl::close() {
  if (_closed) return;
  _closed = true;
  {
    const std::lock_guard lock(_sending);
    std::error_code ignored;  // the descriptor is gone whatever close says
    _socket.close(ignored);
    _output.clear();
  }
  _ticket.reset();
  _input = std::string();
  asio::post(ChannelNetwork(), [self = shared_from_this()] { self->handleEnd(); });
  _self.reset();
}

void ChannelPeer::Impl::handle(const ChannelPeerEvent& event) {
  std::shared_ptr<Handler> handler;
  {
    const std::lock_guard lock(_mutex);
    handler = _handler;
  }
  if (handler != nullptr && *handler && !_cancelled) (*handler)(event);
}

void ChannelPeer::Impl::handleEnd() {
  std::shared_ptr<Handler> handler;
  {
    const std::lock_guard lock(_mutex);
    handler.swap(_handler);  // released after its last event; it usually holds this connection
  }
  if (handler != nullptr && *handler) (*handler)(ChannelError::kConnectionInvalid);
}

}  // namespace platform
