// Who is at the other end of a connection.
#pragma once

#include <sys/types.h>

#include <cstdint>
#include <optional>

#include "platform/simulated/Requirement.h"

namespace platform {

/// A peer as it was when its connection was accepted.
struct PeerIdentity {
  pid_t pid = -1;
  std::uint32_t euid = 0;
  std::int32_t asid = -1;              ///< -1 when the process is gone already
  std::optional<Signature> signature;  ///< nothing when its executable has none to be trusted
};

/// The kernel's word on the peer of a connected socket, and the signature beside the peer's
/// executable. Nothing when the socket has no peer. Any thread.
std::optional<PeerIdentity> IdentifyPeer(int connection);

/// Takes over the descriptors that launchd gave this process: they are close-on-exec afterwards.
/// Any thread.
void AdoptInheritedDescriptors();

/// Tells launchd that a service of this process is served from now on. Any thread.
void CheckInWithLaunchd();

/// The listening socket of a service that is registered for this process, or -1. It stays the
/// process's own. Any thread.
int RegisteredServiceSocket(const std::string& service);

}  // namespace platform
