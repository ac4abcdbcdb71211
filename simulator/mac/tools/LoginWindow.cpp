// The login window of one session: started as root by launchd once the password was found right, it
// becomes the user, holds the session open and runs the user's agents.

#include <fcntl.h>
#include <sys/prctl.h>
#include <unistd.h>

#include <algorithm>
#include <charconv>
#include <csignal>
#include <map>
#include <optional>

#include "simulator/mac/Children.h"
#include "simulator/mac/GuiSessions.h"
#include "simulator/mac/JobRunner.h"
#include "simulator/mac/Limits.h"
#include "simulator/mac/Spawn.h"
#include "simulator/mac/tools/Tool.h"

namespace simmac {
namespace {

using platform::MacTree;
using platform::MacUser;

constexpr char kAgents[] = "/Library/LaunchAgents";

/// What a session holds for its agents.
struct Session {
  MacUser user;
  Descriptor lock;
  Descriptor proc;
  Descriptor null;
  std::map<std::string, Descriptor> logs;  // by the agent's label
};

bool BelongsToGuiSession(const LaunchJob& job) {
  return job.sessionTypes.empty() ||
         std::count(job.sessionTypes.begin(), job.sessionTypes.end(), "Aqua") > 0;
}

std::vector<LaunchJob> Agents(const MacTree& mac) {
  std::vector<LaunchJob> agents = LoadLaunchJobs(mac, kAgents);
  std::erase_if(agents, [](const LaunchJob& job) { return !BelongsToGuiSession(job); });
  return agents;
}

/// An agent's log, which root makes in a folder of its own and gives to the user.
Descriptor OpenLog(const std::string& label, const MacUser& user) {
  constexpr mode_t kMode = 0644;
  Descriptor log = OpenFile("/private/var/log/" + label + ".log",
                            O_WRONLY | O_CREAT | O_APPEND | O_NOFOLLOW, kMode);
  if (log.valid()) (void)fchown(log.get(), user.uid, user.gid);
  return log;
}

std::optional<MacUser> RequestedUser(const MacTree& mac,
                                     const std::vector<std::string>& arguments) {
  const std::string text = arguments.size() == 1 ? arguments[0] : "";
  uid_t uid = 0;
  const char* end = text.data() + text.size();
  const auto [stop, error] = std::from_chars(text.data(), end, uid);
  return error == std::errc() && stop == end ? mac.userWithUid(uid) : std::nullopt;
}

/// An agent's own file for a stream, opened as the user. None when it names none, or one that the
/// user may not write.
Descriptor OpenOwnLog(const std::string& path) {
  constexpr mode_t kMode = 0644;
  if (path.rfind('/', 0) != 0) return Descriptor();
  return OpenFile(path, O_WRONLY | O_CREAT | O_APPEND | O_NOCTTY | O_NONBLOCK, kMode);
}

pid_t StartAgent(const Session& session, const LaunchJob& job) {
  SpawnRequest request;
  request.arguments = job.arguments;
  request.environment = UserEnvironment(session.user);
  request.environment.emplace_back(platform::kMacProcVariable, std::to_string(session.proc.get()));
  request.environment.emplace_back("XPC_SERVICE_NAME", job.label);
  request.directory = session.user.home;
  const auto log = session.logs.find(job.label);
  const bool logged = log != session.logs.end() && log->second.valid();
  const int common = logged ? log->second.get() : session.null.get();
  const Descriptor output = OpenOwnLog(job.standardOutPath);
  const Descriptor error = OpenOwnLog(job.standardErrorPath);
  request.input = session.null.get();
  request.output = output.valid() ? output.get() : common;
  request.error = error.valid() ? error.get() : common;
  request.newGroup = true;
  request.inherited = {session.proc.get()};
  return Spawn(request);
}

/// Opens the session and becomes its user. False when that is impossible.
bool Enter(const MacTree& mac, Session& session, const std::vector<LaunchJob>& agents) {
  const pid_t launchd = getppid();
  // A process that leads a session already is left as it is.
  if (getsid(0) != getpid() && setsid() < 0) return false;
  session.lock = OpenGuiSession(mac, session.user.uid);
  session.proc = OpenProc();
  session.null = OpenFile("/dev/null", O_RDWR);
  for (const LaunchJob& job : agents) session.logs[job.label] = OpenLog(job.label, session.user);
  return session.lock.valid() && session.proc.valid() && session.null.valid() &&
         BecomeUser(mac, session.user) &&
         // The change of user made the kernel forget launchd's order that we die with it.
         prctl(PR_SET_PDEATHSIG, SIGKILL) == 0 && getppid() == launchd;
}

std::vector<SessionAgent> Describe(const std::vector<JobRunner::Job>& jobs) {
  std::vector<SessionAgent> agents;
  agents.reserve(jobs.size());
  for (const JobRunner::Job& job : jobs) {
    agents.push_back({static_cast<int>(job.number), job.label, job.pid, job.lastStatus});
  }
  return agents;
}

/// Tells of the agents whenever there is something new.
class AgentReport {
 public:
  explicit AgentReport(const Session& session) : _session(session) {}

  void update(const JobRunner& agents) {
    std::vector<JobRunner::Job> jobs = agents.jobs();
    if (jobs == _reported) return;
    // Where it cannot be written the session is there all the same, only less well described.
    (void)WriteSessionAgents(_session.lock, _session.user.uid, Describe(jobs));
    _reported = std::move(jobs);
  }

 private:
  const Session& _session;
  std::vector<JobRunner::Job> _reported;
};

void KeepOpen(JobRunner& agents, SignalWaiter& signals, AgentReport report) {
  bool ending = false;
  while (!ending || !agents.allEnded()) {
    report.update(agents);
    const std::optional<int> signal = signals.wait(agents.nextDeadline());
    if (signal == SIGTERM) {
      ending = true;
      agents.terminate();
    }
    // A negative number is as little an agent's as one that is too large.
    if (signal == UnloadAgentSignal()) agents.unload(static_cast<std::size_t>(signals.value()));
    CollectChildren([&agents](pid_t pid, int status) { (void)agents.childEnded(pid, status); });
    agents.killOverdue();
    agents.startDue();
  }
}

}  // namespace

int LoginWindow(const ToolCall& call) {
  const MacTree mac;
  Session session;
  const std::optional<MacUser> user = RequestedUser(mac, call.arguments);
  if (!user || geteuid() != 0) {
    call.output.err("loginwindow: only launchd opens sessions, and only for known users\n");
    return 1;
  }
  session.user = *user;
  SignalWaiter signals({SIGTERM, SIGCHLD, UnloadAgentSignal()});
  const std::vector<LaunchJob> jobs = Agents(mac);
  if (!Enter(mac, session, jobs)) {
    call.output.err("loginwindow: the session of " + user->name + " cannot be opened\n");
    return 1;
  }
  AdoptOrphans();
  JobRunner agents(
      jobs, {.throttle = kAgentThrottle,
             .exitTimeOut = kAgentExitTimeOut,
             .start = [&session](const LaunchJob& job) { return StartAgent(session, job); }});
  agents.startDue();
  KeepOpen(agents, signals, AgentReport(session));
  KillChildren(session.proc.get());
  return 0;
}

}  // namespace simmac
