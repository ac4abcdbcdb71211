// Descriptors and locks as the simulated Mac's programs use them.
#pragma once

#include <sys/types.h>

#include <string>

#include "platform/simulated/Descriptor.h"

namespace simmac {

using platform::Descriptor;
using platform::RetryInterrupted;
using platform::WriteWhole;

/// Opens a file close-on-exec; an invalid Descriptor with errno set when that fails.
Descriptor OpenFile(const std::string& path, int flags, mode_t mode = 0);

/// Takes the exclusive lock (flock) on an open file, waiting a moment for readers, who hold it only
/// to look whether it is free. False when somebody else keeps it.
[[nodiscard]] bool TakeLock(int descriptor);

/// Whether some process holds the exclusive lock on the file at `path`. False without a file.
bool LockIsHeld(const std::string& path);

}  // namespace simmac
