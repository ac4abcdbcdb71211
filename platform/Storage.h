// Stable storage.
#pragma once

namespace platform {

/// Flushes a file's data and attributes to stable storage. 0, or -1 with errno set. Any thread.
/// Native: fcntl(F_FULLFSYNC), fsync where the file system does not support it.
[[nodiscard]] int StorageFlush(int descriptor);

}  // namespace platform
