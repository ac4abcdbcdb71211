#include "platform/Storage.h"

#include <unistd.h>

#include <cerrno>

namespace platform {

int StorageFlush(int descriptor) {
  int result = 0;
  do {
    result = fsync(descriptor);
  } while (result != 0 && errno == EINTR);
  return result;
}

}  // namespace platform
