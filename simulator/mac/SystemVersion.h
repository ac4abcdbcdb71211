// What SystemVersion.plist says that the system is.
#pragma once

#include <string>

#include "platform/simulated/MacFiles.h"

namespace simmac {

struct SystemVersion {
  std::string version;  ///< "14.6.1"
  std::string build;    ///< "23G93"

  /// "macOS 14.6.1 (23G93)".
  std::string text() const { return "macOS " + version + " (" + build + ")"; }
};

/// What the Mac's system is; empty texts for what its property list does not say.
SystemVersion ReadSystemVersion(const platform::MacTree& mac);

/// Makes it another; what else the property list says stays. An empty build is the one that is
/// there. False when it cannot be written.
[[nodiscard]] bool WriteSystemVersion(const platform::MacTree& mac, const SystemVersion& system);

}  // namespace simmac
