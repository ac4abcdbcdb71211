#include "platform/Process.h"

#include <unistd.h>

namespace platform {

int ProcessInheritStandardStreamsOnly(posix_spawnattr_t* /*attributes*/,
                                      posix_spawn_file_actions_t* actions) {
  return posix_spawn_file_actions_addclosefrom_np(actions, STDERR_FILENO + 1);
}

}  // namespace platform
