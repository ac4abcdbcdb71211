// Bounds on what a peer, the portal or a broken file can make the daemon hold. The bounds on frames
// and connections belong to the platform's channel.
#pragma once

#include <cstddef>

/// Deepest nesting of a JSON text; a deeper one is not JSON.
inline constexpr std::size_t kKioskMaximumJsonDepth = 512;

/// Largest (decoded) body of a portal's answer in bytes; a larger one counts as not reached.
inline constexpr std::size_t kKioskMaximumBodyBytes = std::size_t{16} << 20;

/// Longest text of a portal's answer in bytes that is read as JSON.
inline constexpr std::size_t kKioskMaximumAnswerBytes = std::size_t{1} << 20;

/// Longest text of a peer's request in bytes; parsed, it takes many times that.
inline constexpr std::size_t kKioskMaximumRequestBytes = std::size_t{64} << 10;

/// Longest file that is read, in bytes: far more than the state file can grow to.
inline constexpr std::size_t kKioskMaximumFileBytes = std::size_t{64} << 20;

/// Longest output of a tool, in bytes, that is kept; what follows is read and dropped.
inline constexpr std::size_t kKioskMaximumOutputBytes = std::size_t{128} << 20;

/// Longest pairing code, in bytes, that is kept and handed on.
inline constexpr std::size_t kKioskMaximumPairingCodeBytes = 256;

/// Most extra sign-in hosts that are kept.
inline constexpr std::size_t kKioskMaximumExtraHosts = 10;

/// Largest "branding.json", in bytes, that is compared with a new one; a larger one is replaced.
inline constexpr std::size_t kKioskMaximumBrandingBytes = std::size_t{1} << 20;

/// Most photos that are remembered as not to be had; with more, each may be reported again. More
/// than fit into one answer.
inline constexpr std::size_t kKioskMaximumBrandingFailures = 16'384;

/// Longest terminal name in UTF-16 code units.
inline constexpr std::size_t kKioskMaximumTerminalName = 80;

/// Room for the daemon's own executable path in bytes, terminating zero included.
inline constexpr std::size_t kKioskExecutablePathBytes = 1024;
