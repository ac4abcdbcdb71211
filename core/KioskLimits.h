// Bounds on what a peer, the portal or a broken file can make the daemon hold. The bounds on frames
// and connections belong to the platform's channel.
#pragma once

#include <cstddef>

/// Deepest nesting of a JSON text; a deeper one is not JSON.
inline constexpr std::size_t kKioskMaximumJsonDepth = 512;

/// Largest (decoded) body of a portal's answer in bytes; a larger one counts as not reached.
inline constexpr std::size_t kKioskMaximumBodyBytes = std::size_t{16} << 20;

/// Most extra sign-in hosts that are kept.
inline constexpr std::size_t kKioskMaximumExtraHosts = 10;

/// Longest terminal name in UTF-16 code units.
inline constexpr std::size_t kKioskMaximumTerminalName = 80;

/// Room for the daemon's own executable path in bytes, terminating zero included.
inline constexpr std::size_t kKioskExecutablePathBytes = 1024;
