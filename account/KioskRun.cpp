#include "account/KioskRun.h"

#include <fcntl.h>
#include <spawn.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <csignal>
#include <cstring>
#include <string_view>
#include <utility>

#include "account/KioskDescriptor.h"
#include "core/KioskLimits.h"
#include "core/KioskLog.h"
#include "core/KioskText.h"
#include "platform/Process.h"

// POSIX leaves the declaration to the program; some systems' headers have it as well.
extern char** environ;  // NOLINT(readability-redundant-declaration)

namespace {

constexpr std::int32_t kNotStarted = -1;
constexpr char kNullDevice[] = "/dev/null";
constexpr std::size_t kGrowth = 4;

std::string_view LastComponent(std::string_view path) {
  return path.substr(path.find_last_of('/') + 1);
}

// How a child starts: its standard streams, and nothing else of the daemon's.
class SpawnSetup {
 public:
  explicit SpawnSetup(int output) {
    error = posix_spawn_file_actions_init(&actions);
    if (error != 0) return;
    error = posix_spawnattr_init(&attributes);
    if (error != 0) {
      posix_spawn_file_actions_destroy(&actions);
      return;
    }
    _made = true;
    error = streams(output);
    if (error == 0) error = signals();
    if (error == 0) error = platform::ProcessInheritStandardStreamsOnly(&attributes, &actions);
  }
  ~SpawnSetup() {
    if (!_made) return;
    posix_spawn_file_actions_destroy(&actions);
    posix_spawnattr_destroy(&attributes);
  }
  SpawnSetup(const SpawnSetup&) = delete;
  SpawnSetup& operator=(const SpawnSetup&) = delete;

  posix_spawn_file_actions_t actions;
  posix_spawnattr_t attributes;
  int error = 0;

 private:
  int streams(int output) {
    int failure =
        posix_spawn_file_actions_addopen(&actions, STDIN_FILENO, kNullDevice, O_RDONLY, 0);
    if (failure == 0) failure = posix_spawn_file_actions_adddup2(&actions, output, STDOUT_FILENO);
    if (failure == 0) failure = posix_spawn_file_actions_adddup2(&actions, output, STDERR_FILENO);
    return failure;
  }

  // The thread's mask and the ignored SIGPIPE are the daemon's own business.
  int signals() {
    sigset_t none;
    sigset_t defaults;
    sigemptyset(&none);
    sigemptyset(&defaults);
    sigaddset(&defaults, SIGPIPE);
    int failure = posix_spawnattr_setsigmask(&attributes, &none);
    if (failure == 0) failure = posix_spawnattr_setsigdefault(&attributes, &defaults);
    if (failure == 0) {
      failure =
          posix_spawnattr_setflags(&attributes, POSIX_SPAWN_SETSIGMASK | POSIX_SPAWN_SETSIGDEF);
    }
    return failure;
  }

  bool _made = false;
};

struct Pipe {
  KioskDescriptor readEnd;
  KioskDescriptor writeEnd;
};

// 0 or an error number.
int OpenPipe(Pipe& result) {
  std::array<int, 2> ends{};
  if (pipe(ends.data()) != 0) return errno;
  result.readEnd = KioskDescriptor(ends[0]);
  result.writeEnd = KioskDescriptor(ends[1]);
  for (const int end : ends) {
    if (fcntl(end, F_SETFD, FD_CLOEXEC) != 0) return errno;
  }
  return 0;
}

int Spawn(const std::string& path, const std::vector<std::string>& arguments, int output,
          pid_t& child) {
  SpawnSetup setup(output);
  if (setup.error != 0) return setup.error;
  // posix_spawn takes char* but does not write through it.
  std::vector<char*> argv{const_cast<char*>(path.c_str())};
  for (const std::string& argument : arguments) argv.push_back(const_cast<char*>(argument.c_str()));
  argv.push_back(nullptr);
  return posix_spawn(&child, path.c_str(), &setup.actions, &setup.attributes, argv.data(), environ);
}

// Room that is not used costs little; moving what has grown large again and again would.
void Keep(std::string& bytes, std::string_view chunk) {
  const std::string_view kept = chunk.substr(0, kKioskMaximumOutputBytes - bytes.size());
  if (bytes.size() + kept.size() > bytes.capacity()) {
    bytes.reserve(std::min(kKioskMaximumOutputBytes,
                           std::max(kGrowth * bytes.capacity(), bytes.size() + kept.size())));
  }
  bytes += kept;
}

std::string ReadToEnd(int descriptor, bool isKept,
                      const std::function<void(std::string_view)>& onChunk) {
  std::string bytes;
  std::array<char, 65536> buffer;
  for (;;) {
    const ssize_t count = read(descriptor, buffer.data(), buffer.size());
    if (count < 0 && errno == EINTR) continue;
    if (count <= 0) return bytes;
    const std::string_view chunk(buffer.data(), static_cast<std::size_t>(count));
    if (isKept) Keep(bytes, chunk);
    if (onChunk) onChunk(chunk);
  }
}

std::string Trimmed(std::string text) {
  const std::string_view trimmed = KioskTrim(text);
  const auto start = static_cast<std::size_t>(trimmed.data() - text.data());
  text.resize(start + trimmed.size());
  text.erase(0, start);
  return text;
}

std::int32_t WaitFor(pid_t child) {
  int status = 0;
  while (waitpid(child, &status, 0) < 0) {
    if (errno != EINTR) return kNotStarted;
  }
  return WIFSIGNALED(status) ? WTERMSIG(status) : WEXITSTATUS(status);
}

}  // namespace

std::int32_t KioskRun(const std::string& path, const std::vector<std::string>& arguments,
                      std::string* output) {
  return KioskRunFollowing(path, arguments, output, nullptr);
}

std::int32_t KioskRunFollowing(const std::string& path, const std::vector<std::string>& arguments,
                               std::string* output,
                               const std::function<void(std::string_view chunk)>& onChunk) {
  Pipe pipe;
  pid_t child = 0;
  int error = OpenPipe(pipe);
  if (error == 0) error = Spawn(path, arguments, pipe.writeEnd.get(), child);
  if (error != 0) {
    KioskLogError("%@ did not start: %@", LastComponent(path), std::strerror(error));
    return kNotStarted;
  }
  // First everything the tool says, then its end: a tool that fills the pipe never waits for us
  // while we wait for it.
  static_cast<void>(pipe.writeEnd.close());
  std::string bytes = ReadToEnd(pipe.readEnd.get(), output != nullptr, onChunk);
  const std::int32_t status = WaitFor(child);
  if (output != nullptr) *output = KioskIsUtf8(bytes) ? Trimmed(std::move(bytes)) : std::string();
  return status;
}

bool KioskRunChecked(const std::string& path, const std::vector<std::string>& arguments) {
  std::string output;
  const std::int32_t status = KioskRun(path, arguments, &output);
  if (status != 0) {
    KioskLogError("%@ %@ exited %d: %@", LastComponent(path),
                  arguments.empty() ? std::string_view{} : std::string_view{arguments.front()},
                  status, output);
  }
  return status == 0;
}
