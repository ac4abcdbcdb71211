// Keeps jobs running: launchd its daemons, a login window its session's agents.
#pragma once

#include <sys/types.h>

#include <chrono>
#include <functional>
#include <optional>
#include <string>
#include <vector>

#include "simulator/mac/LaunchJob.h"
#include "simulator/mac/SignalWaiter.h"

namespace simmac {

/// Starts, restarts and ends a set of jobs. It never waits itself: its owner calls it when a child
/// has ended and when nextDeadline() has passed. One thread.
class JobRunner {
 public:
  struct Settings {
    std::chrono::milliseconds throttle;            ///< shortest time between two starts of a job
    std::chrono::milliseconds exitTimeOut;         ///< patience with a job that was told to end
    bool jobsOverride = false;                     ///< whether a job's own values take precedence
    std::function<pid_t(const LaunchJob&)> start;  ///< the process id, or -1
    std::function<void(const std::string&)> report = [](const std::string&) {};
  };

  JobRunner(std::vector<LaunchJob> jobs, Settings settings);

  void startDue();                             ///< starts every job whose time has come
  bool childEnded(pid_t pid, int waitStatus);  ///< false when the child is none of these jobs
  void terminate();                            ///< tells all jobs to end; none is started any more
  void killOverdue();                          ///< kills those that did not end in time
  bool allEnded() const;
  std::optional<Clock::time_point> nextDeadline() const;

  /// Label and process id of every job that runs.
  std::vector<std::pair<std::string, pid_t>> running() const;

 private:
  struct State {
    LaunchJob job;
    pid_t pid = -1;
    Clock::time_point started;
    std::optional<Clock::time_point> startAt;
    std::optional<Clock::time_point> killAt;
  };

  void start(State& state);
  Clock::time_point nextStart(const State& state) const;

  Settings _settings;
  std::vector<State> _states;
};

}  // namespace simmac
