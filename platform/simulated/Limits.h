// Everything that a peer or a file can make the simulated platform allocate has its limit here.
#pragma once

#include <chrono>
#include <cstddef>
#include <cstdint>

namespace platform {

inline constexpr std::size_t kKibibyte = 1024;
inline constexpr std::size_t kMebibyte = 1024 * kKibibyte;

/// Longest file of the simulated Mac that is read whole.
inline constexpr std::size_t kMaximumFileBytes = 16 * kMebibyte;

/// Longest code signature file beside an executable.
inline constexpr std::size_t kMaximumSignatureBytes = 16 * kKibibyte;

/// Longest requirement text, and its deepest nesting of parentheses and negations.
inline constexpr std::size_t kMaximumRequirementBytes = 16 * kKibibyte;
inline constexpr int kMaximumRequirementDepth = 64;

/// Longest frame of the command channel, its length field not counted.
inline constexpr std::uint32_t kMaximumFrameBytes = kMebibyte;

/// How many bytes one read from a peer asks for; a connection's buffer grows by what arrives.
inline constexpr std::size_t kChannelReadBytes = 16 * kKibibyte;

/// Messages of one connection that may wait for their handler or for their replies, and their
/// bytes. Beyond either, reading from the connection stops until one of them is done with.
inline constexpr std::size_t kMaximumPendingMessages = 64;
inline constexpr std::size_t kMaximumPendingBytes = kMebibyte;

/// How many bytes of replies may wait for one peer to read; beyond that it loses its connection.
inline constexpr std::size_t kMaximumUnsentBytes = 4 * kMebibyte;

/// Connections of one process, of one user and of all together: no process and no ordinary user can
/// take so many that others are kept out.
inline constexpr std::size_t kMaximumConnectionsPerProcess = 64;
inline constexpr std::size_t kMaximumConnectionsPerUser = 256;
inline constexpr std::size_t kMaximumConnections = 1024;

/// Descriptors that a process with a listener asks for: twice the connections, and room for files.
inline constexpr std::uint64_t kListenerDescriptors = 4096;

/// How long a listener waits when the system has no descriptor left for a new connection.
inline constexpr std::chrono::milliseconds kAcceptPause{100};

/// Bytes of header lines of one HTTP exchange, those of its redirects and those behind a chunked
/// body included.
inline constexpr std::size_t kMaximumHeaderBytes = 256 * kKibibyte;

/// Redirects that one HTTP exchange follows.
inline constexpr long kMaximumRedirects = 16;

}  // namespace platform
