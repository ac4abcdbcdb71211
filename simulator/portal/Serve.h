// The portal at work.
#pragma once

#include <filesystem>
#include <optional>

namespace portal {

/// What `portal serve` is told.
struct ServeOptions {
  std::filesystem::path dir;                    ///< the portal's folder; made when missing
  int port = 0;                                 ///< for terminals; 0 lets the system choose
  int adminPort = 0;                            ///< for the administrator; 0 lets the system choose
  std::optional<std::filesystem::path> record;  ///< where to record the traffic
};

/// Serves until SIGTERM or SIGINT. Must be called before the process has other threads.
/// @return the process's exit status: 0, or 1 after a sentence on standard error
int Serve(const ServeOptions& options);

}  // namespace portal
