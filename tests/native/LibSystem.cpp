// What a Mac's C library does and this system's does not. Calls of functions that both have are
// led here by the linker (--wrap).
#include <fcntl.h>
#include <mach-o/dyld.h>
#include <spawn.h>
#include <unistd.h>

#include <cerrno>
#include <cstdarg>
#include <cstring>
#include <map>
#include <mutex>

#include "tests/native/Doubles.h"
#include "tests/native/Object.h"

using native::Begin;

namespace native {
namespace {

/// Attributes that ask for POSIX_SPAWN_CLOEXEC_DEFAULT, which this system would refuse.
struct Attributes {
  std::mutex mutex;
  std::map<const posix_spawnattr_t*, bool> closeOnExec;
};

Attributes& attributes() {
  static auto* const known = new Attributes;
  return *known;
}

}  // namespace
}  // namespace native

extern "C" {

int __real_fcntl(int descriptor, int command, ...);
int __real_posix_spawn(pid_t* pid, const char* path, const posix_spawn_file_actions_t* actions,
                       const posix_spawnattr_t* attributes, char* const arguments[],
                       char* const environment[]);
int __real_posix_spawnattr_setflags(posix_spawnattr_t* attributes, short flags);
int __real_posix_spawnattr_getflags(const posix_spawnattr_t* attributes, short* flags);

uint64_t clock_gettime_nsec_np(clockid_t clock) {
  timespec time{};
  clock_gettime(clock == CLOCK_MONOTONIC ? CLOCK_BOOTTIME : clock, &time);
  return static_cast<uint64_t>(time.tv_sec) * 1'000'000'000 + static_cast<uint64_t>(time.tv_nsec);
}

int _NSGetExecutablePath(char* buffer, uint32_t* size) {
  char path[4096];
  const ssize_t length = readlink("/proc/self/exe", path, sizeof path);
  const auto needed = static_cast<uint32_t>(length) + 1;
  if (!Begin(__func__) || length < 0 || *size < needed) {
    *size = needed;
    return -1;
  }
  std::memcpy(buffer, path, needed - 1);
  buffer[needed - 1] = 0;
  return 0;
}

int __wrap_fcntl(int descriptor, int command, ...) {
  va_list arguments;
  va_start(arguments, command);
  void* argument = va_arg(arguments, void*);
  va_end(arguments);
  if (command != F_FULLFSYNC) return __real_fcntl(descriptor, command, argument);
  if (!Begin("F_FULLFSYNC")) {
    errno = EIO;
    return -1;
  }
  if (native::TheMac().hasFullFlush) return fsync(descriptor);
  errno = ENOTSUP;
  return -1;
}

int __wrap_posix_spawnattr_getflags(const posix_spawnattr_t* attributes, short* flags) {
  return Begin("posix_spawnattr_getflags") ? __real_posix_spawnattr_getflags(attributes, flags)
                                           : EINVAL;
}

int __wrap_posix_spawnattr_setflags(posix_spawnattr_t* attributes, short flags) {
  if (!Begin("posix_spawnattr_setflags")) return EINVAL;
  const std::lock_guard lock(native::attributes().mutex);
  native::attributes().closeOnExec[attributes] = (flags & POSIX_SPAWN_CLOEXEC_DEFAULT) != 0;
  return __real_posix_spawnattr_setflags(attributes,
                                         static_cast<short>(flags & ~POSIX_SPAWN_CLOEXEC_DEFAULT));
}

int __wrap_posix_spawn(pid_t* pid, const char* path, const posix_spawn_file_actions_t* actions,
                       const posix_spawnattr_t* attributes, char* const arguments[],
                       char* const environment[]) {
  const std::lock_guard lock(native::attributes().mutex);
  if (native::attributes().closeOnExec[attributes]) {
    auto* mine = const_cast<posix_spawn_file_actions_t*>(actions);
    posix_spawn_file_actions_addclosefrom_np(mine, STDERR_FILENO + 1);
  }
  return __real_posix_spawn(pid, path, actions, attributes, arguments, environment);
}

}  // extern "C"
