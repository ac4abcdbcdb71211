#include "tests/faults/PlausibleErrors.h"

#include <fcntl.h>
#include <sys/mman.h>
#include <sys/syscall.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <cstring>

namespace {

struct Row {
  long number;
  const char* name;
  std::vector<int> errors;
};

const std::vector<Row>& Table() {
  static const std::vector<Row> rows{
      {SYS_access, "access", {EIO, EACCES}},
      {SYS_clone, "clone", {ENOMEM, EAGAIN}},
      {SYS_clone3, "clone3", {ENOMEM, EAGAIN}},
      {SYS_close, "close", {EIO, EINTR}},
      {SYS_connect, "connect", {ECONNREFUSED, ENETUNREACH, ETIMEDOUT, EADDRNOTAVAIL}},
      {SYS_dup2, "dup2", {EMFILE, EBUSY}},
      {SYS_execve, "execve", {ENOMEM, EACCES, ENOENT, EIO, ENFILE}},
      {SYS_fchmod, "fchmod", {EPERM, EIO, EROFS}},
      {SYS_fchown, "fchown", {EPERM, EIO, EROFS}},
      {SYS_fcntl, "fcntl", {}},
      {SYS_flock, "flock", {EINTR, ENOLCK}},
      {SYS_fstat, "fstat", {EIO}},
      {SYS_fsync, "fsync", {EIO, ENOSPC, EDQUOT}},
      {SYS_getdents64, "getdents64", {EIO}},
      {SYS_mkdir, "mkdir", {ENOSPC, EIO, EACCES, EROFS}},
      {SYS_mkdirat, "mkdirat", {ENOSPC, EIO, EACCES, EROFS}},
      {SYS_mmap, "mmap", {}},
      {SYS_newfstatat, "newfstatat", {EIO, EACCES}},
      {SYS_open, "open", {}},
      {SYS_openat, "openat", {}},
      {SYS_pipe, "pipe", {EMFILE, ENFILE}},
      {SYS_pipe2, "pipe2", {EMFILE, ENFILE}},
      {SYS_poll, "poll", {EINTR, ENOMEM}},
      {SYS_read, "read", {}},
      {SYS_recvfrom, "recvfrom", {ECONNRESET, ETIMEDOUT, EINTR}},
      {SYS_rename, "rename", {EIO, ENOSPC, EACCES, EROFS}},
      {SYS_renameat, "renameat", {EIO, ENOSPC, EACCES, EROFS}},
      {SYS_sendto, "sendto", {ECONNRESET, EPIPE, ENOBUFS, EINTR}},
      {SYS_socket, "socket", {EMFILE, ENFILE, ENOBUFS, EACCES}},
      {SYS_socketpair, "socketpair", {EMFILE, ENFILE}},
      {SYS_unlink, "unlink", {EIO, EACCES, EROFS}},
      {SYS_unlinkat, "unlinkat", {EIO, EACCES, EROFS}},
      {SYS_vfork, "vfork", {ENOMEM, EAGAIN}},
      {SYS_wait4, "wait4", {EINTR}},
      {SYS_write, "write", {}}};
  return rows;
}

// Each of their errors tells of a wrong argument, that is, of a program that is wrong; or, of the
// calls that wait, of nothing that went wrong.
constexpr std::array kNeverFailing{SYS_clock_gettime,
                                   SYS_clock_nanosleep,
                                   SYS_close_range,
                                   SYS_epoll_ctl,
                                   SYS_epoll_wait,
                                   SYS_exit,
                                   SYS_exit_group,
                                   SYS_futex,
                                   SYS_getpeername,
                                   SYS_getpid,
                                   SYS_getsockname,
                                   SYS_getsockopt,
                                   SYS_getrandom,
                                   SYS_gettid,
                                   SYS_lseek,
                                   SYS_munmap,
                                   SYS_prlimit64,
                                   SYS_restart_syscall,
                                   SYS_rseq,
                                   SYS_rt_sigaction,
                                   SYS_rt_sigprocmask,
                                   SYS_rt_sigreturn,
                                   SYS_sched_getaffinity,
                                   SYS_sched_yield,
                                   SYS_set_robust_list,
                                   SYS_setsockopt,
                                   SYS_sigaltstack,
                                   SYS_tgkill};

// Calls for memory, as mmap is: a program that gets none ends.
constexpr std::array kForMemory{SYS_brk, SYS_madvise, SYS_mprotect, SYS_mremap};

const Row* RowOf(long number) {
  const std::vector<Row>& rows = Table();
  const auto found = std::ranges::find(rows, number, &Row::number);
  return found == rows.end() ? nullptr : &*found;
}

std::vector<int> OpenErrors(std::uint64_t flags) {
  if ((flags & O_CREAT) != 0) return {EMFILE, ENOSPC, EIO, EACCES, EROFS, EDQUOT};
  return {EMFILE, ENFILE, EIO, EACCES, ELOOP, ENOENT};
}

// Only a pipe can be interrupted: nothing waits for a disk so that a signal could come between.
std::vector<int> ReadErrors(const SystemCall& call) {
  if (call.file.starts_with("/")) return {EIO};
  if (call.file.starts_with("pipe:")) return {EIO, EINTR};
  return {};  // an event counter's
}

std::vector<int> WriteErrors(const SystemCall& call) {
  if (call.file.starts_with("/")) return {ENOSPC, EIO, EDQUOT, EINTR};
  return {};  // an event counter's, or the test's own pipe
}

std::vector<int> ErrorsOf(const SystemCall& call) {
  switch (call.number) {
    case SYS_open:
      return OpenErrors(call.arguments[1]);
    case SYS_openat:
      return OpenErrors(call.arguments[2]);
    case SYS_read:
      return ReadErrors(call);
    case SYS_write:
      return WriteErrors(call);
    case SYS_mmap:  // a child's stack until it is a program of its own
      return (call.arguments[3] & MAP_STACK) != 0 ? std::vector<int>{ENOMEM} : std::vector<int>{};
    default: {
      const Row* row = RowOf(call.number);
      return row == nullptr ? std::vector<int>{} : row->errors;
    }
  }
}

}  // namespace

std::string SystemCall::description() const {
  const Row* row = RowOf(number);
  const std::string name = row == nullptr ? "call " + std::to_string(number) : row->name;
  return name + (beside ? " beside" : "") + " no. " + std::to_string(occurrence + 1) +
         (file.empty() ? "" : " on " + file) + (path.empty() ? "" : " of " + path);
}

std::string Failure::text() const { return std::strerror(half ? ENOSPC : error); }

std::string Failure::description() const { return half ? "half of it" : text(); }

std::vector<Failure> PlausibleFailures(const SystemCall& call) {
  std::vector<Failure> failures;
  for (const int error : ErrorsOf(call)) failures.push_back({error});
  if (call.number == SYS_write && call.file.starts_with("/")) failures.push_back({0, true});
  return failures;
}

bool IsJudged(const SystemCall& call) {
  return RowOf(call.number) != nullptr ||
         std::ranges::find(kNeverFailing, call.number) != kNeverFailing.end() ||
         std::ranges::find(kForMemory, call.number) != kForMemory.end();
}

bool ChangesTheMac(const SystemCall& call) {
  constexpr std::array calls{SYS_clone,  SYS_clone3,   SYS_execve,  SYS_fchmod, SYS_fchown,
                             SYS_fsync,  SYS_mkdir,    SYS_mkdirat, SYS_rename, SYS_renameat,
                             SYS_unlink, SYS_unlinkat, SYS_vfork,   SYS_wait4,  SYS_write};
  if (call.number == SYS_openat) return (call.arguments[2] & O_CREAT) != 0;
  return std::ranges::find(calls, call.number) != calls.end();
}
