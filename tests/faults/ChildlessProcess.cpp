#include "tests/faults/ChildlessProcess.h"

#include <linux/sched.h>
#include <sys/ptrace.h>
#include <sys/syscall.h>
#include <sys/user.h>
#include <sys/wait.h>

#include <cerrno>
#include <chrono>
#include <csignal>
#include <cstdint>
#include <cstdlib>
#include <filesystem>
#include <string>

namespace {

constexpr int kCallStop = SIGTRAP | 0x80;

// Asleep, because who never sleeps is the last to run on a busy machine.
constexpr std::chrono::microseconds kBetweenLooks{50};

// The flags with which the call makes a process; 0 when it is another call.
std::uint64_t FlagsOf(pid_t thread, const __ptrace_syscall_info& info) {
  if (info.entry.nr == SYS_vfork) return CLONE_VFORK;
  if (info.entry.nr == SYS_clone) return info.entry.args[0];
  if (info.entry.nr != SYS_clone3) return 0;
  // The first word of the structure that the call is given.
  return static_cast<std::uint64_t>(ptrace(PTRACE_PEEKDATA, thread, info.entry.args[0], nullptr));
}

}  // namespace

ChildlessProcess::ChildlessProcess(pid_t process)
    : _process(process), _watcher([this] { watch(); }) {
  _seized.wait(false);
}

ChildlessProcess::~ChildlessProcess() {
  _ended = true;
  _watcher.join();
}

void ChildlessProcess::seize() {
  const std::string folder = "/proc/" + std::to_string(_process) + "/task";
  for (const auto& entry : std::filesystem::directory_iterator(folder)) {
    const pid_t thread = std::atoi(entry.path().filename().c_str());
    if (ptrace(PTRACE_SEIZE, thread, nullptr, PTRACE_O_TRACESYSGOOD | PTRACE_O_TRACECLONE) == 0 &&
        ptrace(PTRACE_INTERRUPT, thread, nullptr, nullptr) == 0) {
      _threads.insert(thread);
    }
  }
}

void ChildlessProcess::watch() {
  seize();
  _seized = true;
  _seized.notify_all();
  bool leaving = false;
  while (!_threads.empty()) {
    if (_ended && !leaving) {
      leaving = true;
      for (const pid_t thread : _threads) ptrace(PTRACE_INTERRUPT, thread, nullptr, nullptr);
    }
    for (const pid_t thread : std::set<pid_t>(_threads)) {
      int status = 0;
      if (waitpid(thread, &status, __WALL | WNOHANG) != thread) continue;
      if (!WIFSTOPPED(status)) {
        _threads.erase(thread);
      } else if (leaving && _failing != thread) {
        ptrace(PTRACE_DETACH, thread, nullptr, nullptr);
        _threads.erase(thread);
      } else {
        handleStop(thread, status);
      }
    }
    std::this_thread::sleep_for(kBetweenLooks);
  }
}

void ChildlessProcess::handleStop(pid_t thread, int status) {
  int signal = 0;
  if (WSTOPSIG(status) == kCallStop) {
    handleCall(thread);
  } else if (status >> 16 == PTRACE_EVENT_CLONE) {
    unsigned long made = 0;
    ptrace(PTRACE_GETEVENTMSG, thread, nullptr, &made);
    _threads.insert(static_cast<pid_t>(made));
  } else if (status >> 16 == 0) {
    signal = WSTOPSIG(status);
  }
  ptrace(PTRACE_SYSCALL, thread, nullptr, signal);
}

void ChildlessProcess::handleCall(pid_t thread) {
  __ptrace_syscall_info info = {};
  ptrace(PTRACE_GET_SYSCALL_INFO, thread, sizeof info, &info);
  user_regs_struct registers = {};
  ptrace(PTRACE_GETREGS, thread, nullptr, &registers);
  if (info.op == PTRACE_SYSCALL_INFO_ENTRY && (FlagsOf(thread, info) & CLONE_VFORK) != 0) {
    registers.orig_rax = ~0ULL;
    _failing = thread;
    ++_refusals;
  } else if (info.op == PTRACE_SYSCALL_INFO_EXIT && _failing == thread) {
    registers.rax = static_cast<unsigned long long>(-ENOMEM);
    _failing = -1;
  } else {
    return;
  }
  ptrace(PTRACE_SETREGS, thread, nullptr, &registers);
}
