#include "platform/Process.h"

namespace platform {

int ProcessInheritStandardStreamsOnly(posix_spawnattr_t* attributes,
                                      posix_spawn_file_actions_t* /*actions*/) {
  short flags = 0;
  const int error = posix_spawnattr_getflags(attributes, &flags);
  if (error != 0) return error;
  return posix_spawnattr_setflags(attributes,
                                  static_cast<short>(flags | POSIX_SPAWN_CLOEXEC_DEFAULT));
}

}  // namespace platform
