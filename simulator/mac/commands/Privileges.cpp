#include <fcntl.h>
#include <sched.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cstdlib>
#include <fstream>
#include <vector>

#include "simulator/mac/Descriptor.h"
#include "simulator/mac/PowerRequest.h"
#include "simulator/mac/Spawn.h"
#include "simulator/mac/commands/Commands.h"

namespace simmac {
namespace {

constexpr char kInsideVariable[] = "SIMMAC_IN_USER_NAMESPACE";

/// Joins the user namespace of a running Mac, whose processes belong to users of that namespace.
bool Join(pid_t launchd) {
  const Descriptor space = OpenFile("/proc/" + std::to_string(launchd) + "/ns/user", O_RDONLY);
  return space.valid() && setns(space.get(), CLONE_NEWUSER) == 0 && setresgid(0, 0, 0) == 0 &&
         setresuid(0, 0, 0) == 0;
}

const std::vector<std::string>& Unshare() {
  static const std::vector<std::string> command = {"/usr/bin/unshare", "--user", "--map-root-user",
                                                   "--map-auto"};
  return command;
}

/// Whether a user namespace can be had; tried quietly, since the tool has words of its own for it.
bool NamespaceIsToBeHad() {
  const Descriptor null = OpenFile("/dev/null", O_RDWR);
  SpawnRequest request;
  request.arguments = Unshare();
  request.arguments.push_back("/bin/true");
  request.environment = {{"PATH", "/usr/bin:/bin"}};
  request.input = request.output = request.error = null.get();
  int status = -1;
  const pid_t child = Spawn(request);
  return child > 0 && waitpid(child, &status, 0) == child && status == 0;
}

/// Runs this program again as the root of a new user namespace. Returns only on failure.
void RunAgainInside(char** arguments) {
  char path[4096];
  const ssize_t size = readlink("/proc/self/exe", path, sizeof path - 1);
  if (size <= 0 || !NamespaceIsToBeHad()) return;
  path[size] = '\0';
  std::vector<std::string> prefix = Unshare();
  prefix.push_back(path);
  std::vector<char*> command;
  command.reserve(prefix.size() + 1);
  for (std::string& word : prefix) command.push_back(word.data());
  for (char** argument = arguments + 1; *argument; ++argument) command.push_back(*argument);
  command.push_back(nullptr);
  (void)setenv(kInsideVariable, "1", 1);
  (void)execv(command[0], command.data());
}

int NoPrivileges() {
  return Refuse("It needs root, or user namespaces with subordinate ids (unshare, newuidmap).");
}

/// Whether other users than root exist for us. In a namespace that maps no more than root a Mac's
/// processes could not become its users.
bool HasUsers() {
  std::ifstream map("/proc/self/uid_map");
  unsigned long inside = 0;
  unsigned long outside = 0;
  unsigned long count = 0;
  if (!(map >> inside >> outside >> count)) return true;
  unsigned long another = 0;
  return count != 1 || map >> another;
}

}  // namespace

std::optional<int> GainPrivileges(const std::string& root, char** arguments) {
  if (geteuid() == 0) return HasUsers() ? std::nullopt : std::optional(NoPrivileges());
  if (std::getenv(kInsideVariable)) return NoPrivileges();
  const std::optional<pid_t> launchd = RunningLaunchd(platform::MacTree(root));
  if (launchd && Join(*launchd)) return std::nullopt;
  RunAgainInside(arguments);
  return NoPrivileges();
}

}  // namespace simmac
