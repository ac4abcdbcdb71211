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

  /// A job as it is at present.
  struct Job {
    std::size_t number = 0;  ///< its place among the jobs, for unload()
    std::string label;
    pid_t pid = 0;                  ///< 0: it does not run
    std::optional<int> lastStatus;  ///< how it ended last, as a shell has it
    bool operator==(const Job&) const = default;
  };

  void startDue();                             ///< starts every job whose time has come
  bool childEnded(pid_t pid, int waitStatus);  ///< false when the child is none of these jobs
  void terminate();                            ///< tells all jobs to end; none is started any more
  void unload(std::size_t number);  ///< tells one job to end for good; a number of none is ignored
  void killOverdue();               ///< kills those that did not end in time
  bool allEnded() const;
  std::optional<Clock::time_point> nextDeadline() const;

  /// Every job but those that were unloaded.
  std::vector<Job> jobs() const;

 private:
  struct State {
    LaunchJob job;
    pid_t pid = -1;
    std::optional<int> lastStatus;
    bool unloaded = false;
    Clock::time_point started;
    std::optional<Clock::time_point> startAt;
    std::optional<Clock::time_point> killAt;
  };

  void start(State& state);
  void end(State& state);
  Clock::time_point nextStart(const State& state) const;

  Settings _settings;
  std::vector<State> _states;
};

}  // namespace simmac
