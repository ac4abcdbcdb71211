#include "tests/faults/WatchedProcess.h"

#include <dirent.h>
#include <fcntl.h>
#include <sys/prctl.h>
#include <sys/ptrace.h>
#include <sys/syscall.h>
#include <sys/user.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <climits>
#include <csignal>
#include <cstdlib>
#include <cstring>
#include <stdexcept>
#include <utility>

namespace {

constexpr int kMark = SIGUSR1;
constexpr int kCallStop = SIGTRAP | 0x80;
constexpr long kOptions = PTRACE_O_TRACESYSGOOD | PTRACE_O_TRACECLONE | PTRACE_O_TRACEFORK |
                          PTRACE_O_TRACEVFORK | PTRACE_O_TRACEEXEC | PTRACE_O_EXITKILL;

// Waits for one process or for any (-1); 0 when there is none.
pid_t WaitFor(pid_t process, int& status) {
  for (;;) {
    const pid_t found = waitpid(process, &status, __WALL);
    if (found > 0) return found;
    if (errno != EINTR) return 0;
  }
}

// Whether the first argument of the call is a descriptor.
bool TakesDescriptor(long number) {
  constexpr std::array calls{SYS_close, SYS_fchmod, SYS_fchown, SYS_flock,     SYS_fstat,
                             SYS_fsync, SYS_read,   SYS_write,  SYS_getdents64};
  return std::ranges::find(calls, number) != calls.end();
}

// Which argument of the call is a path; its folder's descriptor, if any, is the one before.
std::optional<std::size_t> PathArgument(long number) {
  constexpr std::array first{SYS_open, SYS_access, SYS_execve, SYS_mkdir, SYS_rename, SYS_unlink};
  constexpr std::array second{SYS_openat, SYS_newfstatat, SYS_mkdirat, SYS_renameat, SYS_unlinkat};
  if (std::ranges::find(first, number) != first.end()) return 0;
  if (std::ranges::find(second, number) != second.end()) return 1;
  return std::nullopt;
}

std::string TextAt(pid_t thread, std::uint64_t address) {
  std::string text;
  while (text.size() < PATH_MAX) {
    errno = 0;
    const long word = ptrace(PTRACE_PEEKDATA, thread, address + text.size(), nullptr);
    if (errno != 0) return "";
    std::array<char, sizeof word> bytes{};
    std::memcpy(bytes.data(), &word, sizeof word);
    const auto end = std::ranges::find(bytes, '\0');
    text.append(bytes.begin(), end);
    if (end != bytes.end()) break;
  }
  return text;
}

user_regs_struct Registers(pid_t thread) {
  user_regs_struct registers = {};
  ptrace(PTRACE_GETREGS, thread, nullptr, &registers);
  return registers;
}

void SetRegisters(pid_t thread, user_regs_struct registers) {
  ptrace(PTRACE_SETREGS, thread, nullptr, &registers);
}

[[noreturn]] void RunWatched(const std::function<void()>& work) {
  // When a child ends must not decide how often a call is made anew.
  sigset_t childEnds;
  sigemptyset(&childEnds);
  sigaddset(&childEnds, SIGCHLD);
  sigprocmask(SIG_BLOCK, &childEnds, nullptr);
  if (ptrace(PTRACE_TRACEME, 0, nullptr, nullptr) != 0) _exit(1);
  raise(SIGSTOP);
  work();
  _exit(0);
}

}  // namespace

ProcessTable::ProcessTable() : _folder(open("/proc", O_RDONLY | O_DIRECTORY | O_CLOEXEC)) {}

ProcessTable::~ProcessTable() { close(_folder); }

std::string ProcessTable::openFile(pid_t process, int descriptor) const {
  std::array<char, 4096> target{};
  const std::string link = std::to_string(process) + "/fd/" + std::to_string(descriptor);
  const ssize_t length = readlinkat(_folder, link.c_str(), target.data(), target.size());
  return length < 0 ? "" : std::string(target.data(), static_cast<std::size_t>(length));
}

std::vector<std::string> ProcessTable::openFiles(pid_t process) const {
  const std::string path = std::to_string(process) + "/fd";
  const int folder = openat(_folder, path.c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC);
  DIR* const stream = fdopendir(folder);
  std::vector<std::string> files;
  if (stream == nullptr) return files;
  while (const dirent* entry = readdir(stream)) {
    if (entry->d_name[0] == '.') continue;
    const std::string file = openFile(process, std::atoi(entry->d_name));
    files.push_back(file.substr(0, file.find(":[")));  // without the number of a socket or pipe
  }
  closedir(stream);
  std::ranges::sort(files);
  return files;
}

void Mark() { syscall(SYS_tgkill, getpid(), getpid(), kMark); }

WatchedProcess::WatchedProcess(const ProcessTable& processes, const std::function<void()>& work)
    : _processes(processes), _leader(fork()) {
  if (_leader == 0) RunWatched(work);
  if (_leader < 0) throw std::runtime_error("no process to watch");
  prctl(PR_SET_CHILD_SUBREAPER, 1);
  int status = 0;
  WaitFor(_leader, status);
  if (!WIFSTOPPED(status)) throw std::runtime_error("watching processes is not permitted here");
  ptrace(PTRACE_SETOPTIONS, _leader, nullptr, kOptions);
  _traced[_leader] = Kind::kOwn;
}

WatchedProcess::~WatchedProcess() {
  if (!_ended) kill(_leader, SIGKILL);
  // Programs that it started and that go on belong to this process now.
  int status = 0;
  while (const pid_t left = WaitFor(-1, status)) {
    if (WIFSTOPPED(status)) ptrace(PTRACE_DETACH, left, nullptr, nullptr);
  }
}

void WatchedProcess::resume(pid_t thread, int signal) {
  ptrace(_looking || _traced[thread] == Kind::kThread ? PTRACE_SYSCALL : PTRACE_CONT, thread,
         nullptr, signal);
}

bool WatchedProcess::runToMark(const std::optional<Interference>& interference) {
  _interference = interference;
  _interfered = false;
  _calls.clear();
  _counts.clear();
  resume(_leader);
  while (!_ended) {
    int status = 0;
    const pid_t thread = WaitFor(-1, status);
    if (thread == 0) _ended = true;
    if (thread == 0 || handleStop(thread, status)) break;
  }
  _looking = !_looking;
  return !_ended;
}

// Whether it is the leader at a mark.
bool WatchedProcess::handleStop(pid_t thread, int status) {
  if (!WIFSTOPPED(status)) {
    _traced.erase(thread);
    if (thread == _leader) {
      _ended = true;
      _endStatus = WIFEXITED(status) ? WEXITSTATUS(status) : -1;
    }
    return false;
  }
  // A new one may stop before the event that tells of it.
  if (!_traced.contains(thread)) _traced[thread] = Kind::kChild;
  const int signal = WSTOPSIG(status);
  if (thread == _leader && signal == kMark) return true;
  if (signal == kCallStop) {
    handleCall(thread);
  } else if (status >> 16 != 0) {
    handleEvent(thread, status >> 16);
  } else {
    resume(thread, signal == SIGSTOP ? 0 : signal);
  }
  return false;
}

void WatchedProcess::handleEvent(pid_t thread, int event) {
  if (event == PTRACE_EVENT_EXEC) {  // a program of its own from now on
    _traced.erase(thread);
    ptrace(PTRACE_DETACH, thread, nullptr, nullptr);
    return;
  }
  unsigned long made = 0;
  ptrace(PTRACE_GETEVENTMSG, thread, nullptr, &made);
  const auto child = static_cast<pid_t>(made);
  _traced[child] = event == PTRACE_EVENT_CLONE ? Kind::kThread : Kind::kChild;
  if (event != PTRACE_EVENT_CLONE) _children.insert(child);
  resume(thread);
}

void WatchedProcess::handleCall(pid_t thread) {
  __ptrace_syscall_info info = {};
  ptrace(PTRACE_GET_SYSCALL_INFO, thread, sizeof info, &info);
  if (info.op == PTRACE_SYSCALL_INFO_EXIT) {
    leaveCall(thread);
  } else if (_looking) {
    const auto number = static_cast<long>(info.entry.nr);
    std::array<std::uint64_t, 6> arguments{};
    std::copy_n(info.entry.args, arguments.size(), arguments.begin());
    enterCall(thread, describe(thread, number, arguments.data()));
  }
  resume(thread);
}

SystemCall WatchedProcess::describe(pid_t thread, long number, const std::uint64_t* arguments) {
  SystemCall call;
  call.number = number;
  call.arguments = {arguments, arguments + 6};
  call.beside = _traced[thread] == Kind::kThread;
  call.occurrence = _counts[{call.beside, number}]++;
  if (TakesDescriptor(number)) {
    call.file = _processes.openFile(thread, static_cast<int>(arguments[0]));
  }
  call.path = pathOf(thread, call);
  return call;
}

std::string WatchedProcess::pathOf(pid_t thread, const SystemCall& call) const {
  const std::optional<std::size_t> index = PathArgument(call.number);
  if (!index) return "";
  const std::string path = TextAt(thread, call.arguments[*index]);
  if (*index == 0 || path.starts_with("/")) return path;
  const std::string folder = _processes.openFile(thread, static_cast<int>(call.arguments[0]));
  return path.empty() ? folder : folder + "/" + path;
}

bool WatchedProcess::isDue(const SystemCall& call) const {
  return _interference && !_interfered && call.number == _interference->call.number &&
         call.beside == _interference->call.beside &&
         call.occurrence == _interference->call.occurrence;
}

void WatchedProcess::enterCall(pid_t thread, const SystemCall& call) {
  _calls.push_back(call);
  if (!isDue(call)) return;
  _interfered = true;
  if (!_interference->failure) {
    kill(_leader, SIGKILL);
    return;
  }
  _failing = thread;
  user_regs_struct registers = Registers(thread);
  _wholeSize = registers.rdx;
  if (_interference->failure->half) {
    registers.rdx /= 2;
  } else if (call.number != SYS_close) {  // which closes whatever it says
    registers.orig_rax = ~0ULL;
  }
  SetRegisters(thread, registers);
}

void WatchedProcess::leaveCall(pid_t thread) {
  if (_failing != thread) return;
  _failing.reset();
  user_regs_struct registers = Registers(thread);
  registers.rdx = _wholeSize;
  if (!_interference->failure->half) {
    registers.rax = static_cast<unsigned long long>(-_interference->failure->error);
  }
  SetRegisters(thread, registers);
}

std::set<pid_t> WatchedProcess::remainingChildren() const {
  std::set<pid_t> remaining;
  for (const pid_t child : _children) {
    if (kill(child, 0) == 0) remaining.insert(child);
  }
  return remaining;
}

int WatchedProcess::runToEnd() {
  while (runToMark()) {
  }
  return _endStatus;
}
