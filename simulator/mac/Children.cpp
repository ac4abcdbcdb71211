#include "simulator/mac/Children.h"

#include <dirent.h>
#include <fcntl.h>
#include <sys/prctl.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <charconv>
#include <csignal>
#include <string>
#include <string_view>

#include "simulator/mac/Descriptor.h"
#include "simulator/mac/SignalWaiter.h"

namespace simmac {
namespace {

/// The number that a text begins with, 0 if it begins with none.
pid_t Number(std::string_view text) {
  pid_t number = 0;
  (void)std::from_chars(text.data(), text.data() + text.size(), number);
  return number;
}

/// What the kernel says of a process in its "stat".
struct Stat {
  char state = 'X';  ///< 'X': the process is gone, 'Z': it waits to be collected
  pid_t parent = 0;
  pid_t session = 0;
};

/// The word that a text begins with; the text is what follows the space behind it.
std::string_view NextWord(std::string_view& text) {
  const std::string_view word = text.substr(0, text.find(' '));
  text.remove_prefix(std::min(text.size(), word.size() + 1));
  return word;
}

Stat StatOf(int proc, const std::string& pid) {
  const Descriptor file(openat(proc, (pid + "/stat").c_str(), O_RDONLY | O_CLOEXEC));
  char text[512];
  const ssize_t size = file.valid() ? read(file.get(), text, sizeof text) : 0;
  if (size <= 0) return {};
  std::string_view words(text, static_cast<std::size_t>(size));
  // The name before it is in parentheses and may itself have spaces and parentheses.
  const std::size_t nameEnd = words.rfind(") ");
  if (nameEnd == words.npos) return {};
  words.remove_prefix(nameEnd + 2);
  const std::string_view state = NextWord(words);
  const pid_t parent = Number(NextWord(words));
  (void)NextWord(words);  // the group
  return {state.empty() ? 'X' : state.front(), parent, Number(NextWord(words))};
}

/// Kills the processes that are chosen by what the kernel says of them; whether there were any.
bool KillThose(int proc, const std::function<bool(const Stat&)>& chosen) {
  DIR* directory = fdopendir(openat(proc, ".", O_RDONLY | O_DIRECTORY | O_CLOEXEC));
  if (!directory) return false;
  bool any = false;
  while (const dirent* entry = readdir(directory)) {
    const pid_t pid = Number(entry->d_name);
    if (pid <= 1 || pid == getpid() || !chosen(StatOf(proc, entry->d_name))) continue;
    any = kill(pid, SIGKILL) == 0 || any;
  }
  closedir(directory);
  return any;
}

}  // namespace

void AdoptOrphans() { (void)prctl(PR_SET_CHILD_SUBREAPER, 1); }

void CollectChildren(const std::function<void(pid_t, int)>& ended) {
  int status = 0;
  for (pid_t pid; (pid = waitpid(-1, &status, WNOHANG)) > 0;) ended(pid, status);
}

int WaitForChild(pid_t child, SignalWaiter& signals, const std::function<void(int)>& onSignal) {
  std::optional<int> status;
  while (!status) {
    const std::optional<int> signal = signals.wait(std::nullopt);
    if (signal && *signal != SIGCHLD) onSignal(*signal);
    CollectChildren([child, &status](pid_t pid, int waitStatus) {
      if (pid == child) status = ExitStatus(waitStatus);
    });
  }
  return *status;
}

void KillChildren(int proc) {
  // One round kills the present children; their own become ours and are met in the next one.
  do {
    (void)KillThose(proc, [](const Stat& stat) { return stat.parent == getpid(); });
  } while (waitpid(-1, nullptr, 0) > 0 || errno == EINTR);
}

void KillProcessSession(int proc, pid_t session) {
  // Each round meets what the killed ones had started meanwhile; there is an end even to those who
  // start others faster than that.
  constexpr int kRounds = 100;
  const auto belongs = [session](const Stat& stat) {
    return stat.session == session && stat.state != 'Z' && stat.state != 'X';
  };
  for (int round = 0; session > 1 && round < kRounds && KillThose(proc, belongs); ++round) {
  }
}

int ExitStatus(int waitStatus) {
  constexpr int kSignalled = 128;
  return WIFSIGNALED(waitStatus) ? kSignalled + WTERMSIG(waitStatus) : WEXITSTATUS(waitStatus);
}

}  // namespace simmac
