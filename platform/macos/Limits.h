// What a peer of the command channel can make this platform hold.
#pragma once

#include <cstddef>

namespace platform {

/// Messages of one connection that may wait for their handler or for whoever keeps them. With so
/// many, the connection takes no further ones until one of them is done with.
inline constexpr std::size_t kMaximumPendingMessages = 64;

/// Longest text of a message, in bytes.
inline constexpr std::size_t kMaximumTextBytes = 1024 * 1024;

}  // namespace platform
