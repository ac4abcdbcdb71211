#include "core/KioskListener.h"

#include <cstdlib>
#include <string>
#include <variant>

#include "core/KioskJson.h"
#include "core/KioskLimits.h"
#include "core/KioskLog.h"
#include "core/KioskVersion.h"

namespace {

using platform::ChannelError;
using platform::ChannelListenerEvent;
using platform::ChannelMessage;
using platform::ChannelPeer;
using platform::ChannelPeerEvent;
using platform::ChannelReply;

constexpr char kListenerQueueLabel[] = "com.brindlex.stream.kioskd.listener";
constexpr char kPeerRequirement[] =
    "anchor apple generic and identifier \"com.brindlex.stream\" and "
    "certificate leaf[subject.OU] = \"Q4ZT8K2M6R\"";

void SendReply(const ChannelPeer& peer, ChannelReply reply, const std::string& response) {
  reply.setString("response", response);
  peer.send(reply);
}

void HandleMessage(const ChannelPeer& peer, const std::shared_ptr<KioskDaemon>& daemon,
                   const ChannelMessage& message) {
  const std::optional<ChannelReply> reply = message.createReply();
  if (!reply) return;
  std::optional<std::string> text = message.string("request");
  const bool isReadable = text && text->size() <= kKioskMaximumRequestBytes;
  const std::optional<Json> request = isReadable ? KioskJsonParse(*text) : std::nullopt;
  const KioskPeer sender{peer.euid(), peer.asid()};
  if (!request || !request->is_object()) {
    SendReply(peer, *reply, KioskReplyText(KioskFailure("bad_request")));
  } else if (KioskMember(*request, "cmd") == "status") {
    // Answered here, so that a command that keeps the work queue busy never holds it up.
    SendReply(peer, *reply, daemon->statusText(sender.uid));
  } else {
    // Many may wait for the work queue, so they wait as text: its values would take thirty times
    // the room.
    daemon->queue().async([daemon, peer, sender, reply = *reply, waiting = std::move(*text)] {
      const Json command = KioskJsonParse(waiting).value_or(Json());
      SendReply(peer, reply, KioskReplyText(daemon->handle(command, sender)));
    });
  }
}

void HandlePeerEvent(const ChannelPeer& peer, pid_t pid, const std::shared_ptr<KioskDaemon>& daemon,
                     const ChannelPeerEvent& event) {
  if (const auto* message = std::get_if<ChannelMessage>(&event)) {
    HandleMessage(peer, daemon, *message);
  } else if (std::get<ChannelError>(event) == ChannelError::kPeerCodeSigningRequirement) {
    KioskLogError("pid %d failed the code signing requirement; rejected", pid);
  }
}

void AcceptPeer(const ChannelPeer& peer, const std::shared_ptr<KioskDaemon>& daemon) {
  const pid_t pid = peer.pid();
  if (peer.setCodeSigningRequirement(kPeerRequirement) != 0) {
    KioskLogError("pid %d: cannot apply the code signing requirement; dropping it", pid);
    peer.cancel();
    return;
  }
  peer.setEventHandler([peer, pid, daemon](const ChannelPeerEvent& event) {
    HandlePeerEvent(peer, pid, daemon, event);
  });
  peer.activate();
}

void HandleListenerEvent(const std::shared_ptr<KioskDaemon>& daemon,
                         const ChannelListenerEvent& event) {
  if (const auto* peer = std::get_if<ChannelPeer>(&event)) {
    AcceptPeer(*peer, daemon);
  } else if (std::get<ChannelError>(event) == ChannelError::kConnectionInvalid) {
    KioskLogError("mach service %s is not registered with launchd; run only as the LaunchDaemon",
                  kKioskServiceName);
    std::_Exit(1);  // other threads are at work, so no destructor may run
  }
}

}  // namespace

platform::ChannelListener KioskListen(const std::shared_ptr<KioskDaemon>& daemon) {
  platform::ChannelListener listener(kKioskServiceName, platform::Queue(kListenerQueueLabel));
  listener.setEventHandler(
      [daemon](const ChannelListenerEvent& event) { HandleListenerEvent(daemon, event); });
  listener.activate();
  return listener;
}
