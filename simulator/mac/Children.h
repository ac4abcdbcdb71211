// The end of a process's children.
#pragma once

#include <sys/types.h>

#include <functional>

namespace simmac {

class SignalWaiter;

/// Makes orphans below the calling process its children, so that none of them gets away.
void AdoptOrphans();

/// Collects every child that has ended and tells of it: process id, wait status.
void CollectChildren(const std::function<void(pid_t, int)>& ended);

/// Collects children until `child` has ended, and hands every signal but SIGCHLD to `onSignal`.
/// Returns the status of `child` as programs pass it on.
int WaitForChild(pid_t child, SignalWaiter& signals, const std::function<void(int)>& onSignal);

/// Kills all children, and what they leave behind, and waits until there are none. `proc` is a
/// descriptor of /proc.
void KillChildren(int proc);

/// Kills every process of a process session, whoever its parent is. `proc` is a descriptor of
/// /proc.
void KillProcessSession(int proc, pid_t session);

/// A wait status as programs pass it on: the exit status, or 128 and the signal's number.
int ExitStatus(int waitStatus);

}  // namespace simmac
