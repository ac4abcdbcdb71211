#include "simulator/mac/Children.h"

#include <dirent.h>
#include <fcntl.h>
#include <sys/prctl.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cerrno>
#include <charconv>
#include <csignal>
#include <string>
#include <string_view>

#include "simulator/mac/Descriptor.h"

namespace simmac {
namespace {

/// The number that a text begins with, 0 if it begins with none.
pid_t Number(std::string_view text) {
  pid_t number = 0;
  (void)std::from_chars(text.data(), text.data() + text.size(), number);
  return number;
}

/// The parent of a process by its "stat": the number after the state, which follows the name in
/// parentheses. 0 when the process is gone.
pid_t ParentOf(int proc, const std::string& pid) {
  const Descriptor file(openat(proc, (pid + "/stat").c_str(), O_RDONLY | O_CLOEXEC));
  char text[512];
  const ssize_t size = file.valid() ? read(file.get(), text, sizeof text) : 0;
  if (size <= 0) return 0;
  const std::string_view stat(text, static_cast<std::size_t>(size));
  constexpr std::size_t kToParent = std::string_view(") S ").size();
  const std::size_t nameEnd = stat.rfind(')');
  if (nameEnd == stat.npos || nameEnd + kToParent > stat.size()) return 0;
  return Number(stat.substr(nameEnd + kToParent));
}

void SignalChildren(int proc) {
  DIR* directory = fdopendir(openat(proc, ".", O_RDONLY | O_DIRECTORY | O_CLOEXEC));
  if (!directory) return;
  while (const dirent* entry = readdir(directory)) {
    const pid_t pid = Number(entry->d_name);
    if (pid > 1 && ParentOf(proc, entry->d_name) == getpid()) (void)kill(pid, SIGKILL);
  }
  closedir(directory);
}

}  // namespace

void AdoptOrphans() { (void)prctl(PR_SET_CHILD_SUBREAPER, 1); }

void CollectChildren(const std::function<void(pid_t, int)>& ended) {
  int status = 0;
  for (pid_t pid; (pid = waitpid(-1, &status, WNOHANG)) > 0;) ended(pid, status);
}

void KillChildren(int proc) {
  // One round kills the present children; their own become ours and are met in the next one.
  do {
    SignalChildren(proc);
  } while (waitpid(-1, nullptr, 0) > 0 || errno == EINTR);
}

int ExitStatus(int waitStatus) {
  constexpr int kSignalled = 128;
  return WIFSIGNALED(waitStatus) ? kSignalled + WTERMSIG(waitStatus) : WEXITSTATUS(waitStatus);
}

}  // namespace simmac
