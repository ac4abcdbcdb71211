#include "platform/Storage.h"

#include <fcntl.h>
#include <unistd.h>

#include <cerrno>

namespace platform {

int StorageFlush(int descriptor) {
  // fsync leaves the bytes in the drive's own cache (fsync(2)); not every file system can do more.
  if (fcntl(descriptor, F_FULLFSYNC) == 0) return 0;
  return errno == ENOTSUP || errno == EINVAL || errno == ENOTTY ? fsync(descriptor) : -1;
}

}  // namespace platform
