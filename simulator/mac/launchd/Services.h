// The services that launchd keeps for its daemons.
#pragma once

#include <map>
#include <string>
#include <vector>

#include "simulator/mac/Descriptor.h"
#include "simulator/mac/LaunchJob.h"

namespace simmac {

/// The listening sockets of one boot. They outlive the daemons, so that a peer that calls while one
/// is being restarted waits instead of being turned away.
class Services {
 public:
  /// Makes the sockets of all these jobs; what an earlier boot left is replaced. The names of those
  /// that could not be made are returned.
  std::vector<std::string> open(const std::vector<LaunchJob>& jobs);

  void close() { _sockets.clear(); }
  bool empty() const { return _sockets.empty(); }

  /// A job's value of SIMULATED_MAC_SERVICES, and the descriptors that it names.
  std::string variable(const LaunchJob& job) const;
  std::vector<int> descriptors(const LaunchJob& job) const;

 private:
  std::map<std::string, Descriptor> _sockets;  // by the service's name
};

}  // namespace simmac
