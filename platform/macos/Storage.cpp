#include "platform/Storage.h"

#include <fcntl.h>
#include <unistd.h>

#include <cerrno>

namespace platform {

namespace {

template <class Call>
int retryInterrupted(Call call) {
  int result = call();
  while (result != 0 && errno == EINTR) result = call();
  return result;
}

}  // namespace

int StorageFlush(int descriptor) {
  // fsync leaves the bytes in the drive's own cache (fsync(2)); not every file system can do more.
  if (retryInterrupted([&] { return fcntl(descriptor, F_FULLFSYNC); }) == 0) return 0;
  if (errno != ENOTSUP && errno != EINVAL && errno != ENOTTY) return -1;
  return retryInterrupted([&] { return fsync(descriptor); });
}

}  // namespace platform
