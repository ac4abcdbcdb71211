// Starting a process of a simulated Mac.
#pragma once

#include <sys/types.h>

#include <optional>
#include <string>
#include <utility>
#include <vector>

#include "platform/simulated/MacFiles.h"
#include "simulator/mac/Descriptor.h"

namespace simmac {

/// Exit status of a child whose program cannot be started, as a shell has it.
inline constexpr int kCannotStart = 127;

/// What a process starts with. It never outlives the caller: the kernel kills it when the calling
/// thread ends.
struct SpawnRequest {
  std::vector<std::string> arguments;  ///< the program's absolute path first
  std::vector<std::pair<std::string, std::string>> environment;
  std::string directory = "/";
  int input = 0;  ///< descriptors for the standard streams
  int output = 1;
  int error = 2;
  std::vector<int> inherited;  ///< descriptors that keep their numbers
  bool newSession = false;     ///< leads a process session, which is an audit session, of its own
  bool newGroup = false;       ///< leads a process group of its own, as who leads a session does
  std::optional<platform::MacUser> user;  ///< becomes this user; absent: stays the caller's
};

/// Starts it; the process id, or -1 with errno set. The child's signal mask and handlers are the
/// default ones.
pid_t Spawn(const SpawnRequest& request);

/// Gives the calling process a user's ids and groups for good. False with errno set.
[[nodiscard]] bool BecomeUser(const platform::MacTree& mac, const platform::MacUser& user);

/// The environment of a user's process: HOME, USER, LOGNAME, SHELL, PATH and TMPDIR.
std::vector<std::pair<std::string, std::string>> UserEnvironment(const platform::MacUser& user);

/// What a sanitizer that a program of the Mac was built for is told: ASAN_OPTIONS and the like, as
/// the caller's environment has them.
std::vector<std::pair<std::string, std::string>> SanitizerOptions();

/// The host's /proc, for SIMULATED_MAC_PROC: the one that the caller was given, or else /proc.
Descriptor OpenProc();

}  // namespace simmac
