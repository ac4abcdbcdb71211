#include "simulator/mac/Descriptor.h"

#include <fcntl.h>
#include <sys/file.h>

#include <chrono>
#include <thread>

namespace simmac {
namespace {

int Lock(int descriptor, int operation) {
  return RetryInterrupted([&] { return flock(descriptor, operation); });
}

}  // namespace

Descriptor OpenFile(const std::string& path, int flags, mode_t mode) {
  return Descriptor(RetryInterrupted([&] { return open(path.c_str(), flags | O_CLOEXEC, mode); }));
}

bool TakeLock(int descriptor) {
  constexpr int kAttempts = 100;
  constexpr std::chrono::milliseconds kPause{2};
  for (int attempt = 0; attempt < kAttempts; ++attempt) {
    if (Lock(descriptor, LOCK_EX | LOCK_NB) == 0) return true;
    if (errno != EWOULDBLOCK) return false;
    std::this_thread::sleep_for(kPause);
  }
  return false;
}

bool LockIsHeld(const std::string& path) {
  const Descriptor file = OpenFile(path, O_RDONLY);
  // A shared lock, so that two who look at the same time do not take each other for the holder.
  return file.valid() && Lock(file.get(), LOCK_SH | LOCK_NB) != 0 && errno == EWOULDBLOCK;
}

}  // namespace simmac
