// Everything that a file or a caller can make the simulated Mac's programs hold, bounded in one
// place.
#pragma once

#include <chrono>
#include <cstddef>
#include <cstdint>

namespace simmac {

inline constexpr std::size_t kMaxJobs = 64;             ///< daemons of a Mac, agents of a session
inline constexpr std::size_t kMaxJobArguments = 256;    ///< a job's ProgramArguments
inline constexpr std::size_t kMaxMachServices = 16;     ///< a job's MachServices
inline constexpr std::size_t kMaxTranscript = 1 << 20;  ///< output that one journal line keeps
inline constexpr std::size_t kMaxUpdates = 256;         ///< on offer, and installed ones
inline constexpr int kServiceBacklog = 128;             ///< connections that wait for a service

/// What an update may take: KiB of the disk, and time.
inline constexpr std::int64_t kMaxUpdateSize = 1'000'000'000;
inline constexpr std::chrono::hours kMaxUpdateDuration{1};

/// launchd's own pause between two starts of a job and its patience with one that shall end.
inline constexpr std::chrono::seconds kDaemonThrottle{10};
inline constexpr std::chrono::seconds kDaemonExitTimeOut{20};
/// The same for the agents of a session.
inline constexpr std::chrono::seconds kAgentThrottle{1};
inline constexpr std::chrono::seconds kAgentExitTimeOut{2};
/// Patience of who killed a session with the kernel, which ends its processes.
inline constexpr std::chrono::seconds kKilledSessionTimeOut{10};
/// A session is given its agents' patience and a little more to close by itself.
inline constexpr std::chrono::seconds kSessionExitTimeOut{5};

}  // namespace simmac
