#include "simulator/mac/Spawn.h"

#include <fcntl.h>
#include <grp.h>
#include <linux/close_range.h>
#include <sys/prctl.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <charconv>
#include <csignal>
#include <cstdint>
#include <cstdlib>
#include <cstring>

namespace simmac {
namespace {

using platform::MacGroup;
using platform::MacTree;
using platform::MacUser;

constexpr char kUserPath[] = "/usr/bin:/bin:/usr/sbin:/sbin";

void ResetSignals() {
  for (int number = 1; number < NSIG; ++number) (void)signal(number, SIG_DFL);
  sigset_t none;
  sigemptyset(&none);
  sigprocmask(SIG_SETMASK, &none, nullptr);
}

bool UseStreams(const SpawnRequest& request) {
  // Moved up first: a stream's source may itself be one of 0, 1 and 2.
  constexpr int kAboveStreams = 3;
  int sources[] = {request.input, request.output, request.error};
  for (int& source : sources) {
    source = fcntl(source, F_DUPFD_CLOEXEC, kAboveStreams);
    if (source < 0) return false;
  }
  for (int stream = 0; stream < kAboveStreams; ++stream) {
    if (dup2(sources[stream], stream) < 0) return false;
  }
  // Whatever else the caller has, by inheritance perhaps, stays with the caller.
  if (close_range(kAboveStreams, ~0U, CLOSE_RANGE_CLOEXEC) != 0) return false;
  return std::all_of(request.inherited.begin(), request.inherited.end(),
                     [](int number) { return fcntl(number, F_SETFD, 0) == 0; });
}

bool DieWithParent(pid_t parent) {
  return prctl(PR_SET_PDEATHSIG, SIGKILL) == 0 && getppid() == parent;
}

/// What execve wants of the request, made before the fork.
struct ExecVectors {
  explicit ExecVectors(const SpawnRequest& request) : _texts(request.arguments) {
    for (const auto& [name, value] : request.environment) _texts.push_back(name + "=" + value);
    for (std::string& text : _texts) {
      std::vector<char*>& list =
          arguments.size() < request.arguments.size() ? arguments : environment;
      list.push_back(text.data());
    }
    arguments.push_back(nullptr);
    environment.push_back(nullptr);
  }

  std::vector<char*> arguments;
  std::vector<char*> environment;

 private:
  std::vector<std::string> _texts;
};

/// Prepares the child for its program. The step that is impossible, errno telling why, or null.
const char* FailedStep(const SpawnRequest& request, pid_t parent) {
  if (request.newSession && setsid() < 0) return "it cannot lead a session";
  if (request.newGroup && setpgid(0, 0) != 0) return "it cannot lead a process group";
  if (!UseStreams(request)) return "its descriptors cannot be set up";
  if (request.user && !BecomeUser(MacTree(), *request.user)) return "it cannot become its user";
  // After the change of user, which makes the kernel forget it.
  return DieWithParent(parent) ? nullptr : "its parent has ended";
}

[[noreturn]] void RunChild(const SpawnRequest& request, const ExecVectors& vectors, pid_t parent) {
  ResetSignals();
  const char* failed = FailedStep(request, parent);
  if (!failed) {
    if (chdir(request.directory.c_str()) != 0) (void)chdir("/");
    execve(vectors.arguments[0], vectors.arguments.data(), vectors.environment.data());
    failed = "it cannot be started";
  }
  (void)WriteWhole(2, request.arguments[0] + ": " + failed + ": " + std::strerror(errno) + "\n");
  _exit(kCannotStart);
}

}  // namespace

pid_t Spawn(const SpawnRequest& request) {
  const ExecVectors vectors(request);
  const pid_t parent = getpid();
  const pid_t child = fork();
  if (child == 0) RunChild(request, vectors, parent);
  return child;
}

bool BecomeUser(const MacTree& mac, const MacUser& user) {
  // To the kernel this number means that nothing shall change, and we are root.
  constexpr std::uint32_t kUnchanged = ~0U;
  if (user.uid == kUnchanged || user.gid == kUnchanged) {
    errno = EINVAL;
    return false;
  }
  std::vector<gid_t> groups{user.gid};
  for (const MacGroup& group : mac.groups()) {
    if (std::count(group.users.begin(), group.users.end(), user.name) > 0) {
      groups.push_back(group.gid);
    }
  }
  return setgroups(groups.size(), groups.data()) == 0 &&
         setresgid(user.gid, user.gid, user.gid) == 0 &&
         setresuid(user.uid, user.uid, user.uid) == 0;
}

std::vector<std::pair<std::string, std::string>> UserEnvironment(const MacUser& user) {
  return {{"HOME", user.home},   {"USER", user.name}, {"LOGNAME", user.name},
          {"SHELL", user.shell}, {"PATH", kUserPath}, {"TMPDIR", "/private/tmp"}};
}

std::vector<std::pair<std::string, std::string>> SanitizerOptions() {
  std::vector<std::pair<std::string, std::string>> options;
  for (const char* name : {"ASAN_OPTIONS", "LSAN_OPTIONS", "TSAN_OPTIONS", "UBSAN_OPTIONS"}) {
    if (const char* value = std::getenv(name)) options.emplace_back(name, value);
  }
  return options;
}

Descriptor OpenProc() {
  if (const char* given = std::getenv(platform::kMacProcVariable)) {
    int number = -1;
    const char* end = given + std::strlen(given);
    if (std::from_chars(given, end, number).ptr == end && number > 2) {
      return Descriptor(fcntl(number, F_DUPFD_CLOEXEC, 3));
    }
  }
  return OpenFile("/proc", O_RDONLY | O_DIRECTORY);
}

}  // namespace simmac
