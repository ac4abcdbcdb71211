#include "simulator/mac/launchd/Launchd.h"

#include <fcntl.h>
#include <unistd.h>

#include <algorithm>
#include <csignal>
#include <filesystem>

#include "platform/simulated/MacFiles.h"
#include "simulator/mac/Children.h"
#include "simulator/mac/GuiSessions.h"
#include "simulator/mac/InstalledUpdates.h"
#include "simulator/mac/JobRunner.h"
#include "simulator/mac/JsonFields.h"
#include "simulator/mac/Limits.h"
#include "simulator/mac/Spawn.h"
#include "simulator/mac/launchd/AutoLogin.h"
#include "simulator/mac/launchd/Guardian.h"
#include "simulator/mac/launchd/Services.h"

namespace simmac {
namespace {

using platform::MacTree;
using platform::MacUser;

constexpr char kDaemons[] = "/Library/LaunchDaemons";
constexpr char kRun[] = "/private/var/run";
constexpr char kLoginWindowPath[] =
    "/System/Library/CoreServices/loginwindow.app/Contents/MacOS/loginwindow";
constexpr mode_t kFileMode = 0644;

/// By which a daemon tells that it serves.
constexpr int kCheckIn = SIGUSR1;

/// How long the login window waits for a daemon that serves nothing.
constexpr std::chrono::seconds kCheckInPatience{10};

/// What a boot ends in.
enum class Power { kRestart, kHalt };

void Say(const std::string& text) { (void)WriteWhole(STDOUT_FILENO, text + "\n"); }

void EmptyFolder(const std::string& path) {
  std::error_code error;
  std::filesystem::directory_iterator entries(path, error);
  for (; !error && entries != std::filesystem::directory_iterator(); entries.increment(error)) {
    std::error_code ignored;
    std::filesystem::remove_all(entries->path(), ignored);
  }
}

std::optional<Clock::time_point> Earliest(std::optional<Clock::time_point> a,
                                          std::optional<Clock::time_point> b) {
  if (!a || !b) return a ? a : b;
  return std::min(*a, *b);
}

/// Runs inside the Mac. One object a machine, one turn of boot() a boot.
class Launchd {
 public:
  Launchd(const BootOptions& options, Descriptor proc)
      : _options(options),
        _proc(std::move(proc)),
        _null(OpenFile("/dev/null", O_RDWR)),
        _signals({SIGCHLD, SIGHUP, SIGTERM, SIGINT, kCheckIn, kEndAtOnce}),
        _count(readCount()) {
    AdoptOrphans();
  }

  void run() {
    (void)unlink(platform::kMacPowerRequest);
    while (boot() == Power::kRestart) Say("launchd: restarting");
    Say("launchd: halted");
  }

 private:
  Power boot();
  void startDaemons();
  void logIn();
  void serve();
  void handle(std::optional<int> signal);
  void daemonsAreUp();
  void askedForPower();
  void end(Power power);
  void collect();
  void report();
  std::optional<Clock::time_point> nextDeadline() const;
  pid_t startDaemon(const LaunchJob& job) const;
  pid_t startLoginWindow(const MacUser& user) const;
  std::int64_t readCount() const;

  const BootOptions _options;
  const MacTree _mac;
  const Descriptor _proc;
  const Descriptor _null;
  SignalWaiter _signals;
  Services _services;
  std::int64_t _count;
  Json _reported;

  // One boot's state.
  std::optional<JobRunner> _daemons;
  std::optional<Clock::time_point> _loginAt;
  bool _loginAwaitsDaemons = false;
  bool _loginDecided = false;
  std::optional<Clock::time_point> _killSessionAt;
  std::optional<MacUser> _user;
  pid_t _session = -1;
  std::optional<Power> _ending;
};

std::int64_t Launchd::readCount() const {
  // Anybody may have written the file.
  constexpr std::int64_t kMost = 1'000'000'000;
  const Json file = _mac.readJson(kBootFile).value_or(Json::object());
  return std::clamp<std::int64_t>(IntegerOf(file, "count"), 0, kMost);
}

Power Launchd::boot() {
  _ending.reset();
  EmptyFolder(kRun);
  EmptyFolder(platform::kMacGuiSessions);
  if (const auto system = FinishUpdates(_mac)) Say("launchd: updated to " + system->text());
  startDaemons();
  // The login window comes up once the daemons serve: what they set at their start, it finds.
  _loginAt = Clock::now() + (_services.empty() ? _options.loginDelay : kCheckInPatience);
  _loginAwaitsDaemons = !_services.empty();
  _loginDecided = false;
  ++_count;
  serve();
  KillChildren(_proc.get());
  _services.close();
  return *_ending;
}

void Launchd::startDaemons() {
  std::vector<LaunchJob> jobs = LoadLaunchJobs(_mac, kDaemons);
  for (LaunchJob& job : jobs) {
    if (_options.throttle) job.throttle = _options.throttle;
  }
  for (const std::string& name : _services.open(jobs)) {
    Say("launchd: the service " + name + " cannot be opened");
  }
  _daemons.emplace(
      std::move(jobs),
      JobRunner::Settings{.throttle = kDaemonThrottle,
                          .exitTimeOut = kDaemonExitTimeOut,
                          .jobsOverride = true,
                          .start = [this](const LaunchJob& job) { return startDaemon(job); },
                          .report = [](const std::string& text) { Say("launchd: " + text); }});
  _daemons->startDue();
}

pid_t Launchd::startDaemon(const LaunchJob& job) const {
  constexpr int kLogFlags = O_WRONLY | O_CREAT | O_APPEND;
  const Descriptor out = OpenFile(job.standardOutPath, kLogFlags, kFileMode);
  const Descriptor err = OpenFile(job.standardErrorPath, kLogFlags, kFileMode);
  SpawnRequest request;
  request.arguments = job.arguments;
  request.environment = SanitizerOptions();
  request.environment.insert(request.environment.end(),
                             {{"PATH", "/usr/bin:/bin:/usr/sbin:/sbin"},
                              {"XPC_SERVICE_NAME", job.label},
                              {platform::kMacLaunchdVariable, std::to_string(getpid())},
                              {platform::kMacProcVariable, std::to_string(_proc.get())}});
  const std::string services = _services.variable(job);
  if (!services.empty()) {
    request.environment.emplace_back(platform::kMacServicesVariable, services);
  }
  request.input = _null.get();
  request.output = out.valid() ? out.get() : _null.get();
  request.error = err.valid() ? err.get() : _null.get();
  request.inherited = _services.descriptors(job);
  request.inherited.push_back(_proc.get());
  request.newSession = true;
  return Spawn(request);
}

pid_t Launchd::startLoginWindow(const MacUser& user) const {
  SpawnRequest request;
  request.arguments = {kLoginWindowPath, std::to_string(user.uid)};
  request.environment = {{platform::kMacProcVariable, std::to_string(_proc.get())}};
  request.input = _null.get();
  request.inherited = {_proc.get()};
  request.newSession = true;
  return Spawn(request);
}

void Launchd::logIn() {
  _loginAt.reset();
  const AutoLogin decision = DecideAutoLogin(_mac);
  Say("login window: " + decision.explanation);
  _user = decision.user;
  if (_user) _session = startLoginWindow(*_user);
  _loginDecided = true;
}

void Launchd::serve() {
  while (!_ending || !_daemons->allEnded() || _session > 0) {
    report();
    handle(_signals.wait(nextDeadline()));
    collect();
    const Clock::time_point now = Clock::now();
    if (_loginAt && *_loginAt <= now) logIn();
    if (_killSessionAt && *_killSessionAt <= now) {
      _killSessionAt.reset();
      if (_session > 1) (void)kill(_session, SIGKILL);
    }
    _daemons->killOverdue();
    _daemons->startDue();
  }
}

std::optional<Clock::time_point> Launchd::nextDeadline() const {
  return Earliest(_daemons->nextDeadline(), Earliest(_loginAt, _killSessionAt));
}

void Launchd::handle(std::optional<int> signal) {
  switch (signal.value_or(0)) {
    case SIGHUP:
      askedForPower();
      break;
    case kCheckIn:
      daemonsAreUp();
      break;
    case SIGTERM:
    case SIGINT:
      end(Power::kHalt);
      break;
    case kEndAtOnce:
      KillChildren(_proc.get());
      _exit(1);
    default:
      break;
  }
}

void Launchd::daemonsAreUp() {
  if (!std::exchange(_loginAwaitsDaemons, false) || !_loginAt) return;
  _loginAt = Clock::now() + _options.loginDelay;
}

void Launchd::askedForPower() {
  const std::optional<std::string> request = _mac.read(platform::kMacPowerRequest);
  (void)unlink(platform::kMacPowerRequest);
  if (!request) return;
  Say("launchd: asked to " + *request);
  end(request->rfind("restart", 0) == 0 ? Power::kRestart : Power::kHalt);
}

void Launchd::end(Power power) {
  // Halting wins over restarting, as pulling the plug does.
  if (_ending && power == Power::kRestart) return;
  _ending = power;
  _loginAt.reset();
  _daemons->terminate();
  if (_session <= 1 || _killSessionAt) return;
  _killSessionAt = Clock::now() + kSessionExitTimeOut;
  (void)kill(_session, SIGTERM);
}

void Launchd::collect() {
  CollectChildren([this](pid_t pid, int status) {
    if (_daemons->childEnded(pid, status)) return daemonsAreUp();  // that one will not be
    if (pid != _session) return;
    // Nothing of a session outlives it, not even what an agent has started and left.
    KillProcessSession(_proc.get(), pid);
    Say("login window: the session of " + _user->name + " ended");
    _session = -1;
    _killSessionAt.reset();
  });
}

void Launchd::report() {
  Json daemons = Json::object();
  for (const JobRunner::Job& job : _daemons->jobs()) {
    if (job.pid > 0) daemons[job.label] = job.pid;
  }
  const Json file = {{"count", _count}, {"daemons", daemons}, {"login", _loginDecided}};
  if (file == _reported) return;
  _reported = file;
  const std::string text = file.dump(-1, ' ', false, Json::error_handler_t::replace);
  if (!_mac.replace(kBootFile, text + "\n", kFileMode)) {
    Say("launchd: " + std::string(kBootFile) + " cannot be written");
  }
}

/// The lock that says that this Mac runs, with the process id in its file.
Descriptor ClaimMac() {
  Descriptor file = OpenFile(platform::kMacLaunchdPid, O_RDWR | O_CREAT, kFileMode);
  if (!file.valid() || !TakeLock(file.get())) return Descriptor();
  const bool written =
      ftruncate(file.get(), 0) == 0 && WriteWhole(file.get(), std::to_string(getpid()) + "\n");
  return written ? std::move(file) : Descriptor();
}

int RunLaunchd(const std::string& root, const BootOptions& options) {
  Descriptor proc = OpenProc();
  if (!proc.valid()) {
    (void)WriteWhole(STDERR_FILENO, "simmac: /proc cannot be opened.\n");
    return 1;
  }
  if (chroot(root.c_str()) != 0 || chdir("/") != 0) {
    (void)WriteWhole(STDERR_FILENO, "simmac: " + root + " cannot be entered.\n");
    return 1;
  }
  const Descriptor claim = ClaimMac();
  if (!claim.valid()) {
    (void)WriteWhole(STDERR_FILENO, "simmac: this Mac is running already.\n");
    return 1;
  }
  Launchd(options, std::move(proc)).run();
  return 0;
}

}  // namespace

int Boot(const std::string& root, const BootOptions& options) {
  // Who reads the timeline may go away; the Mac runs on.
  (void)signal(SIGPIPE, SIG_IGN);
  return Guard([&root, &options] { return RunLaunchd(root, options); });
}

}  // namespace simmac
