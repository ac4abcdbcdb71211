#include "platform/Channel.h"

#include <fcntl.h>
#include <sys/resource.h>
#include <sys/socket.h>

#include <algorithm>
#include <asio/posix/stream_descriptor.hpp>
#include <asio/post.hpp>
#include <asio/steady_timer.hpp>

#include "platform/simulated/ChannelConnection.h"
#include "platform/simulated/Limits.h"

namespace platform {
namespace {

/// A text as a dictionary can hold it.
std::string upToZero(const std::string& text) { return text.substr(0, text.find('\0')); }

/// How many connections are accepted before others on the network's thread have their turn.
constexpr int kAcceptedAtOnce = 64;

/// Makes room for the connections; where that is not allowed, accepting pauses when it is full.
void raiseDescriptorLimit() {
  rlimit limit{};
  if (getrlimit(RLIMIT_NOFILE, &limit) != 0 || limit.rlim_cur >= kListenerDescriptors) return;
  limit.rlim_cur = std::min<rlim_t>(limit.rlim_max, kListenerDescriptors);
  (void)setrlimit(RLIMIT_NOFILE, &limit);
}

}  // namespace

void ChannelReply::setString(const std::string& key, const std::string& text) {
  auto& entries = _impl->entries;
  const std::string name = upToZero(key);
  const auto same = [&](const auto& entry) { return entry.first == name; };
  const auto found = std::find_if(entries.begin(), entries.end(), same);
  if (found != entries.end()) {
    found->second = upToZero(text);
  } else {
    entries.emplace_back(name, upToZero(text));
  }
}

std::optional<std::string> ChannelMessage::string(const std::string& key) const {
  return FrameValue(_impl->frame.dictionary, key);
}

std::optional<ChannelReply> ChannelMessage::createReply() const {
  if (_impl->frame.kind != FrameKind::kRequest) return std::nullopt;
  if (_impl->replyMade.exchange(true)) return std::nullopt;
  return ChannelReply(std::shared_ptr<ChannelReply::Impl>(
      new ChannelReply::Impl{_impl->frame.number, _impl->pending, _impl->connection, {}}));
}

pid_t ChannelPeer::pid() const { return _impl->identity().pid; }
std::uint32_t ChannelPeer::euid() const { return _impl->identity().euid; }
std::int32_t ChannelPeer::asid() const { return _impl->identity().asid; }

int ChannelPeer::setCodeSigningRequirement(const std::string& requirement) const {
  return _impl->setRequirement(requirement);
}

void ChannelPeer::setEventHandler(std::function<void(const ChannelPeerEvent&)> handler) const {
  _impl->setHandler(std::move(handler));
}

void ChannelPeer::activate() const { _impl->activate(); }
void ChannelPeer::cancel() const { _impl->cancel(); }
void ChannelPeer::send(const ChannelReply& reply) const { _impl->send(reply); }

/// Accepts on the network's thread, hands over on the listener's queue.
struct ChannelListener::Impl : std::enable_shared_from_this<ChannelListener::Impl> {
 public:
  using Handler = std::function<void(const ChannelListenerEvent&)>;

  Impl(const std::string& serviceName, const Queue& queue)
      : _queue(queue), _socket(ChannelNetwork()), _pause(ChannelNetwork()) {
    raiseDescriptorLimit();
    AdoptInheritedDescriptors();
    // A duplicate, so that the service stays registered when this listener goes.
    Descriptor own(fcntl(RegisteredServiceSocket(serviceName), F_DUPFD_CLOEXEC, 0));
    std::error_code error;
    if (own.valid()) _socket.assign(own.get(), error);
    if (own.valid() && !error) (void)own.release();
    if (_socket.is_open()) _socket.non_blocking(true, error);
    if (error) _socket.close(error);  // else accepting could block everybody
  }

  void setHandler(Handler handler) {
    auto shared = std::make_shared<Handler>(std::move(handler));
    const std::lock_guard lock(_mutex);
    _handler.swap(shared);
  }

  void activate() {
    if (!_socket.is_open()) return deliver(ChannelError::kConnectionInvalid);
    asio::post(ChannelNetwork(), [self = shared_from_this()] { self->waitForPeers(); });
    CheckInWithLaunchd();
  }

  void end() {
    setHandler(nullptr);
    asio::post(ChannelNetwork(), [self = shared_from_this()] {
      std::error_code ignored;  // the descriptor is gone whatever close says
      self->_socket.close(ignored);
      self->_pause.cancel();
    });
  }

 private:
  void waitForPeers() {
    if (!_socket.is_open()) return;
    _socket.async_wait(asio::posix::stream_descriptor::wait_read,
                       [self = shared_from_this()](const std::error_code& error) {
                         if (!self->_socket.is_open()) return;
                         error ? self->waitAWhile() : self->acceptPeers();
                       });
  }

  void acceptPeers() {
    for (int i = 0; i < kAcceptedAtOnce; ++i) {
      Descriptor peer(
          accept4(_socket.native_handle(), nullptr, nullptr, SOCK_CLOEXEC | SOCK_NONBLOCK));
      if (peer.valid()) {
        welcome(std::move(peer));
      } else if (errno == EAGAIN) {
        break;
      } else if (errno != EINTR && errno != ECONNABORTED) {
        return waitAWhile();
      }
    }
    waitForPeers();
  }

  /// No descriptor is left, or no memory: the waiting peer would wake this thread without end.
  void waitAWhile() {
    _pause.expires_after(kAcceptPause);
    _pause.async_wait([self = shared_from_this()](const std::error_code& error) {
      if (!error) self->waitForPeers();
    });
  }

  void welcome(Descriptor connected) {
    std::optional<PeerIdentity> identity = IdentifyPeer(connected.get());
    if (!identity) return;
    std::unique_ptr<ConnectionTicket> ticket =
        ConnectionTicket::take(identity->pid, identity->euid);
    if (ticket == nullptr) return;
    deliver(ChannelPeer(std::make_shared<ChannelPeer::Impl>(
        std::move(connected), std::move(*identity), std::move(ticket))));
  }

  void deliver(ChannelListenerEvent event) {
    _queue.async([self = shared_from_this(), event = std::move(event)] { self->handle(event); });
  }

  void handle(const ChannelListenerEvent& event) {
    std::shared_ptr<Handler> handler;
    {
      const std::lock_guard lock(_mutex);
      handler = _handler;
    }
    if (handler != nullptr && *handler) (*handler)(event);
  }

  const Queue _queue;
  std::mutex _mutex;
  std::shared_ptr<Handler> _handler;  ///< guarded by _mutex
  asio::posix::stream_descriptor _socket;
  asio::steady_timer _pause;
};

ChannelListener::ChannelListener(const std::string& serviceName, const Queue& queue)
    : _impl(std::make_shared<Impl>(serviceName, queue)) {}

ChannelListener::~ChannelListener() {
  if (_impl != nullptr) _impl->end();
}

ChannelListener::ChannelListener(ChannelListener&&) noexcept = default;

ChannelListener& ChannelListener::operator=(ChannelListener&& other) noexcept {
  std::swap(_impl, other._impl);
  return *this;
}

void ChannelListener::setEventHandler(std::function<void(const ChannelListenerEvent&)> handler) {
  _impl->setHandler(std::move(handler));
}

void ChannelListener::activate() { _impl->activate(); }

}  // namespace platform
