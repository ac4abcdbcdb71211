#include "simulator/mac/launchd/Guardian.h"

#include <sys/prctl.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cerrno>
#include <cstdio>
#include <cstring>

#include "simulator/mac/Children.h"
#include "simulator/mac/SignalWaiter.h"
#include "simulator/mac/Spawn.h"

namespace simmac {
namespace {

[[noreturn]] void RunGuarded(const std::function<int()>& work, pid_t guardian) {
  const bool guarded = prctl(PR_SET_PDEATHSIG, kEndAtOnce) == 0 && getppid() == guardian;
  const int status = guarded ? work() : 1;
  _exit(status);
}

}  // namespace

int Guard(const std::function<int()>& work) {
  const pid_t guardian = getpid();
  const Descriptor proc = OpenProc();
  if (!proc.valid()) {
    (void)std::fprintf(stderr, "simmac: /proc cannot be opened.\n");
    return 1;
  }
  AdoptOrphans();
  // Blocked before the child is there, so that none of them is lost.
  SignalWaiter signals({SIGCHLD, SIGTERM, SIGINT});
  const pid_t child = fork();
  if (child < 0) {
    (void)std::fprintf(stderr, "simmac: %s.\n", std::strerror(errno));
    return 1;
  }
  if (child == 0) RunGuarded(work, guardian);
  const int status = WaitForChild(child, signals, [child](int) {
    if (child > 1) (void)kill(child, SIGTERM);
  });
  KillChildren(proc.get());
  return status;
}

}  // namespace simmac
