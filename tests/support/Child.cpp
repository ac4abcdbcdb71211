#include "tests/support/Child.h"

#include <fcntl.h>
#include <spawn.h>
#include <sys/wait.h>
#include <unistd.h>

#include <array>
#include <csignal>
#include <fstream>
#include <sstream>

extern char** environ;

namespace {

pid_t Start(const std::vector<std::string>& command, int output) {
  posix_spawn_file_actions_t actions;
  posix_spawn_file_actions_init(&actions);
  posix_spawn_file_actions_addopen(&actions, STDIN_FILENO, "/dev/null", O_RDONLY, 0);
  posix_spawn_file_actions_adddup2(&actions, output, STDOUT_FILENO);
  posix_spawn_file_actions_adddup2(&actions, output, STDERR_FILENO);
  posix_spawn_file_actions_addclosefrom_np(&actions, 3);
  std::vector<char*> argv;
  for (const std::string& argument : command) argv.push_back(const_cast<char*>(argument.c_str()));
  argv.push_back(nullptr);
  pid_t pid = -1;
  if (posix_spawn(&pid, argv[0], &actions, nullptr, argv.data(), environ) != 0) pid = -1;
  posix_spawn_file_actions_destroy(&actions);
  return pid;
}

int Reap(pid_t pid) {
  int status = 0;
  while (waitpid(pid, &status, 0) < 0) {
    if (errno != EINTR) return -1;
  }
  return WIFSIGNALED(status) ? 128 + WTERMSIG(status) : WEXITSTATUS(status);
}

}  // namespace

Finished RunToEnd(const std::vector<std::string>& command) {
  std::array<int, 2> ends{};
  if (pipe2(ends.data(), O_CLOEXEC) != 0) return {};
  const pid_t pid = Start(command, ends[1]);
  close(ends[1]);
  Finished finished;
  std::array<char, 4096> buffer{};
  for (ssize_t count = 1; pid > 0 && count > 0;) {
    count = read(ends[0], buffer.data(), buffer.size());
    if (count > 0) finished.output.append(buffer.data(), static_cast<std::size_t>(count));
  }
  close(ends[0]);
  if (pid > 0) finished.status = Reap(pid);
  return finished;
}

Child::Child(const std::vector<std::string>& command, const std::string& outputPath)
    : _outputPath(outputPath) {
  const int output =
      open(outputPath.c_str(), O_WRONLY | O_CREAT | O_APPEND | O_CLOEXEC, S_IRUSR | S_IWUSR);
  _pid = Start(command, output);
  close(output);
}

Child::~Child() {
  signal(SIGTERM);
  static_cast<void>(wait());
}

std::string Child::output() const {
  std::ifstream file(_outputPath);
  std::ostringstream content;
  content << file.rdbuf();
  return content.str();
}

void Child::signal(int number) const {
  if (_pid > 0) kill(_pid, number);
}

int Child::wait() {
  if (_pid <= 0) return -1;
  const int status = Reap(_pid);
  _pid = -1;
  return status;
}
