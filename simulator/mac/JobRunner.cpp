#include "simulator/mac/JobRunner.h"

#include <sys/wait.h>

#include <algorithm>
#include <csignal>

#include "simulator/mac/Children.h"

namespace simmac {
namespace {

std::string HowItEnded(int waitStatus) {
  return WIFSIGNALED(waitStatus) ? "by signal " + std::to_string(WTERMSIG(waitStatus))
                                 : "with status " + std::to_string(WEXITSTATUS(waitStatus));
}

/// Ends what a job left behind in its process group.
void KillGroup(const LaunchJob& job, pid_t leader) {
  // Any other number would reach every process there is, or this one's own group.
  if (leader > 1 && !job.abandonsProcessGroup) (void)kill(-leader, SIGKILL);
}

bool StartsAgain(KeepAlive keepAlive, int waitStatus) {
  const bool success = WIFEXITED(waitStatus) && WEXITSTATUS(waitStatus) == 0;
  return keepAlive == KeepAlive::kAlways || (keepAlive == KeepAlive::kAfterFailure && !success) ||
         (keepAlive == KeepAlive::kAfterSuccess && success);
}

}  // namespace

JobRunner::JobRunner(std::vector<LaunchJob> jobs, Settings settings)
    : _settings(std::move(settings)) {
  const Clock::time_point now = Clock::now();
  for (LaunchJob& job : jobs) {
    State state;
    if (job.runAtLoad) state.startAt = now;
    state.job = std::move(job);
    _states.push_back(std::move(state));
  }
}

void JobRunner::startDue() {
  const Clock::time_point now = Clock::now();
  for (State& state : _states) {
    if (state.startAt && *state.startAt <= now) start(state);
  }
}

void JobRunner::start(State& state) {
  _settings.report("starting " + state.job.label);
  state.started = Clock::now();
  state.startAt.reset();
  state.pid = _settings.start(state.job);
  if (state.pid < 0) state.startAt = nextStart(state);
}

bool JobRunner::childEnded(pid_t pid, int waitStatus) {
  const auto state = std::find_if(_states.begin(), _states.end(),
                                  [pid](const State& each) { return each.pid == pid; });
  if (state == _states.end()) return false;
  _settings.report(state->job.label + " ended " + HowItEnded(waitStatus));
  KillGroup(state->job, pid);
  state->pid = -1;
  state->lastStatus = ExitStatus(waitStatus);
  const bool toldToEnd = state->killAt.has_value();
  state->killAt.reset();
  if (!toldToEnd && StartsAgain(state->job.keepAlive, waitStatus)) {
    state->startAt = nextStart(*state);
  }
  return true;
}

Clock::time_point JobRunner::nextStart(const State& state) const {
  const bool own = _settings.jobsOverride && state.job.throttle;
  const std::chrono::milliseconds throttle = own ? *state.job.throttle : _settings.throttle;
  return std::max(Clock::now(), state.started + throttle);
}

void JobRunner::end(State& state) {
  state.startAt.reset();
  if (state.pid <= 1 || state.killAt) return;
  const bool own = _settings.jobsOverride && state.job.exitTimeOut;
  const std::chrono::milliseconds patience = own ? *state.job.exitTimeOut : _settings.exitTimeOut;
  state.killAt = Clock::now() + patience;
  (void)kill(state.pid, SIGTERM);
}

void JobRunner::terminate() {
  for (State& state : _states) end(state);
}

void JobRunner::unload(std::size_t number) {
  if (number >= _states.size()) return;
  _states[number].unloaded = true;
  end(_states[number]);
}

void JobRunner::killOverdue() {
  const Clock::time_point now = Clock::now();
  for (State& state : _states) {
    if (!state.killAt || *state.killAt > now) continue;
    if (state.pid > 1) (void)kill(state.pid, SIGKILL);
    // Killed once; what remains is to collect it.
    state.killAt = Clock::time_point::max();
  }
}

bool JobRunner::allEnded() const {
  return std::all_of(_states.begin(), _states.end(),
                     [](const State& state) { return state.pid < 0; });
}

std::optional<Clock::time_point> JobRunner::nextDeadline() const {
  std::optional<Clock::time_point> next;
  for (const State& state : _states) {
    for (const auto& deadline : {state.startAt, state.killAt}) {
      if (deadline && *deadline != Clock::time_point::max() && (!next || *deadline < *next)) {
        next = deadline;
      }
    }
  }
  return next;
}

std::vector<JobRunner::Job> JobRunner::jobs() const {
  std::vector<Job> jobs;
  for (std::size_t number = 0; number < _states.size(); ++number) {
    const State& state = _states[number];
    if (state.unloaded) continue;
    jobs.push_back({number, state.job.label, std::max(state.pid, 0), state.lastStatus});
  }
  return jobs;
}

}  // namespace simmac
