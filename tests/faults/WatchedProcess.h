// A process whose system calls are looked at one by one, and interfered with.
#pragma once

#include <sys/types.h>

#include <functional>
#include <map>
#include <optional>
#include <set>
#include <string>
#include <vector>

#include "tests/faults/PlausibleErrors.h"

/// The host's process table, to be opened before the test's process enters a Mac, which has none.
class ProcessTable {
 public:
  ProcessTable();
  ~ProcessTable();
  ProcessTable(const ProcessTable&) = delete;
  ProcessTable& operator=(const ProcessTable&) = delete;

  /// What a descriptor of the process is open on, as the kernel names it; empty when it is not.
  std::string openFile(pid_t process, int descriptor) const;
  /// What all its descriptors are open on, sorted; sockets and pipes without their numbers.
  std::vector<std::string> openFiles(pid_t process) const;

 private:
  int _folder;
};

/// Called by the watched process at the beginning and at the end of what is looked at.
void Mark();

/// What shall happen at a call.
struct Interference {
  SystemCall call;
  std::optional<Failure> failure;  ///< without one, the process is killed instead of the call
};

/// Runs work in a forked process, stops it at its marks, and sees every call between two of them,
/// also those of its threads and of its children until they are programs of their own.
class WatchedProcess {
 public:
  WatchedProcess(const ProcessTable& processes, const std::function<void()>& work);
  /// Kills what is left of it, and waits for all that it started.
  ~WatchedProcess();
  WatchedProcess(const WatchedProcess&) = delete;
  WatchedProcess& operator=(const WatchedProcess&) = delete;

  pid_t pid() const { return _leader; }
  /// Lets it run to its next mark; false when it ended before. `interference` happens once, at
  /// that call.
  bool runToMark(const std::optional<Interference>& interference = std::nullopt);
  /// The calls made on the way to the last mark.
  const std::vector<SystemCall>& calls() const { return _calls; }
  /// Whether the interference has happened.
  bool interfered() const { return _interfered; }
  /// Children of the process that still run or that it has not asked about.
  std::set<pid_t> remainingChildren() const;
  /// Lets it run to its end; its exit status, or -1 when a signal ended it.
  int runToEnd();

 private:
  enum class Kind { kOwn, kThread, kChild };

  void resume(pid_t thread, int signal = 0);
  bool handleStop(pid_t thread, int status);
  void handleEvent(pid_t thread, int event);
  void handleCall(pid_t thread);
  void enterCall(pid_t thread, const SystemCall& call);
  void leaveCall(pid_t thread);
  SystemCall describe(pid_t thread, long number, const std::uint64_t* arguments);
  std::string pathOf(pid_t thread, const SystemCall& call) const;
  bool isDue(const SystemCall& call) const;

  const ProcessTable& _processes;
  pid_t _leader;
  bool _ended = false;
  int _endStatus = 0;
  bool _looking = false;
  std::map<pid_t, Kind> _traced;
  std::set<pid_t> _children;
  std::vector<SystemCall> _calls;
  std::map<std::pair<bool, long>, std::size_t> _counts;
  std::optional<Interference> _interference;
  bool _interfered = false;
  std::optional<pid_t> _failing;  // the thread in the call that is to fail
  std::uint64_t _wholeSize = 0;   // what a call that does half was told to do
};
