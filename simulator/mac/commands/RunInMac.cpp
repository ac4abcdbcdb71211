#include <sys/types.h>
#include <unistd.h>

#include <charconv>
#include <csignal>

#include "platform/simulated/MacFiles.h"
#include "simulator/mac/Children.h"
#include "simulator/mac/SignalWaiter.h"
#include "simulator/mac/Spawn.h"
#include "simulator/mac/commands/Commands.h"

namespace simmac {
namespace {

using platform::MacTree;
using platform::MacUser;

std::optional<MacUser> FindUser(const MacTree& mac, const std::string& text) {
  uid_t uid = 0;
  const char* end = text.data() + text.size();
  const auto [stop, error] = std::from_chars(text.data(), end, uid);
  if (error == std::errc() && stop == end) return mac.userWithUid(uid);
  return mac.userNamed(text.empty() ? "root" : text);
}

}  // namespace

int RunInMac(const std::string& root, const RunOptions& options) {
  if (!IsMac(root)) return 1;
  const Descriptor proc = OpenProc();
  if (!proc.valid()) return Refuse("/proc cannot be opened.");
  if (chroot(root.c_str()) != 0 || chdir("/") != 0) return Refuse(root + " cannot be entered.");
  const std::optional<MacUser> user = FindUser(MacTree(), options.user);
  if (!user) return Refuse("There is no account " + options.user + ".");
  SignalWaiter signals({SIGCHLD, SIGTERM, SIGINT, SIGHUP});
  SpawnRequest request;
  request.arguments = options.command;
  request.environment = UserEnvironment(*user);
  request.environment.emplace_back(platform::kMacProcVariable, std::to_string(proc.get()));
  for (auto& option : SanitizerOptions()) request.environment.push_back(std::move(option));
  request.directory = user->home;
  request.inherited = {proc.get()};
  request.user = user;
  // In the caller's session: commands of one terminal are of one session inside the Mac, too.
  // What the command leaves in the background ends with it, as it would with its terminal.
  AdoptOrphans();
  const pid_t command = Spawn(request);
  if (command <= 1) return Refuse("No process can be started.");
  // The command hears of it when simmac is told to end.
  const int status =
      WaitForChild(command, signals, [command](int signal) { (void)kill(command, signal); });
  KillChildren(proc.get());
  return status;
}

}  // namespace simmac
