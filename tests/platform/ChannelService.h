// A service of the command channel that records its events.
#pragma once

#include <atomic>
#include <memory>
#include <mutex>
#include <optional>
#include <string>
#include <vector>

#include "platform/Channel.h"
#include "tests/platform/World.h"

namespace contract {

inline constexpr char kRequirement[] = "identifier \"com.brindlex.stream\"";

/// Answers a request by its own "text", unless it holds the messages it gets. The members that set
/// it up are for before listen().
class ChannelService : public std::enable_shared_from_this<ChannelService> {
 public:
  void listen() {
    _listener.emplace(kService, listenerQueue);
    _listener->setEventHandler(
        [self = shared_from_this()](const platform::ChannelListenerEvent& event) {
          if (const auto* peer = std::get_if<platform::ChannelPeer>(&event)) self->welcome(*peer);
        });
    _listener->activate();
  }

  /// Ends every connection and waits for it; to be called at the end of every test.
  void end() {
    listenerQueue.sync([this] {
      _listener.reset();
      for (const platform::ChannelPeer& peer : _peers) peer.cancel();
    });
    letGo();  // a connection with many of them hears of its end only after that
    EXPECT_TRUE(Eventually([this] { return ended >= activated; }));
    listenerQueue.sync([this] { _peers.clear(); });
  }

  /// Lets go of the messages that were held.
  void letGo() {
    const std::lock_guard lock(mutex);
    held.clear();
  }

  void activate(const platform::ChannelPeer& peer) {
    ++activated;
    peer.activate();
  }

  static void answer(const platform::ChannelPeer& peer, const platform::ChannelMessage& message) {
    std::optional<platform::ChannelReply> reply = message.createReply();
    if (!reply) return;
    reply->setString("text", message.string("text").value_or(""));
    peer.send(*reply);
  }

  std::vector<std::string> texts() {
    const std::lock_guard lock(mutex);
    return _texts;
  }

  std::vector<platform::ChannelError> errors() {
    const std::lock_guard lock(mutex);
    return _errors;
  }

  platform::ChannelPeer peer(std::size_t index) {
    EXPECT_TRUE(Eventually([&] { return accepted > index; }));
    std::optional<platform::ChannelPeer> found;
    listenerQueue.sync([&] { found = _peers[index]; });
    return *found;
  }

  /// Gives a peer its handler, which keeps `object` as long as it lives.
  void setHandler(const platform::ChannelPeer& peer, std::shared_ptr<int> object) {
    peer.setEventHandler([self = shared_from_this(), peer,
                          object = std::move(object)](const platform::ChannelPeerEvent& event) {
      self->handle(peer, event);
    });
  }

  const platform::Queue listenerQueue{"listener"};
  std::optional<std::string> requirement;
  bool activates = true;
  std::atomic<bool> holds = false;
  std::atomic<int> requirementError = 0;
  std::atomic<std::size_t> accepted = 0;
  std::atomic<std::size_t> activated = 0;
  std::atomic<std::size_t> ended = 0;

  std::mutex mutex;
  std::vector<platform::ChannelMessage> held;

 private:
  void handle(const platform::ChannelPeer& peer, const platform::ChannelPeerEvent& event) {
    if (const auto* error = std::get_if<platform::ChannelError>(&event)) {
      const std::lock_guard lock(mutex);
      _errors.push_back(*error);
      if (*error == platform::ChannelError::kConnectionInvalid) ++ended;
      return;
    }
    const auto& message = std::get<platform::ChannelMessage>(event);
    {
      const std::lock_guard lock(mutex);
      _texts.push_back(message.string("text").value_or("(none)"));
      if (holds) held.push_back(message);
    }
    if (!holds) answer(peer, message);
  }

  void welcome(const platform::ChannelPeer& peer) {
    _peers.push_back(peer);
    if (requirement) requirementError = peer.setCodeSigningRequirement(*requirement);
    setHandler(peer, nullptr);
    if (activates) activate(peer);
    ++accepted;
  }

  std::optional<platform::ChannelListener> _listener;
  std::vector<platform::ChannelPeer> _peers;  ///< used on the listener's queue
  std::vector<std::string> _texts;
  std::vector<platform::ChannelError> _errors;
};

}  // namespace contract
