// Whole reads and writes.
#pragma once

#include <cstddef>
#include <optional>
#include <string>
#include <string_view>

namespace client {

/// Writes all bytes; false when that failed. Any thread.
bool WriteAll(int descriptor, std::string_view bytes);

/// What can be read up to the end; nothing when reading fails or there is more than `limit` bytes.
/// Any thread.
std::optional<std::string> ReadAll(int descriptor, std::size_t limit);

}  // namespace client
