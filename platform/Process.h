// What posix_spawn leaves to each system.
#pragma once

#include <spawn.h>

namespace platform {

/// Makes a child inherit nothing above standard error, descriptors without close-on-exec included.
/// To be called after every other file action was added, of which one must name each of 0, 1 and 2:
/// without one a Mac's child lacks that stream. Returns 0 or an error number.
/// Native: POSIX_SPAWN_CLOEXEC_DEFAULT.
[[nodiscard]] int ProcessInheritStandardStreamsOnly(posix_spawnattr_t* attributes,
                                                    posix_spawn_file_actions_t* actions);

}  // namespace platform
