// A running process that the system gives no memory for children.
#pragma once

#include <sys/types.h>

#include <atomic>
#include <set>
#include <thread>

/// As long as this lives, every attempt of the process to start a program fails for lack of memory.
class ChildlessProcess {
 public:
  explicit ChildlessProcess(pid_t process);
  ~ChildlessProcess();
  ChildlessProcess(const ChildlessProcess&) = delete;
  ChildlessProcess& operator=(const ChildlessProcess&) = delete;

  /// How many attempts have failed so far.
  unsigned refusals() const { return _refusals; }

 private:
  void watch();
  void seize();
  void handleStop(pid_t thread, int status);
  void handleCall(pid_t thread);

  const pid_t _process;
  std::set<pid_t> _threads;
  pid_t _failing = -1;  // the thread whose call has been taken away
  std::atomic<bool> _seized = false;
  std::atomic<bool> _ended = false;
  std::atomic<unsigned> _refusals = 0;
  std::thread _watcher;  // only the thread that seizes may look
};
