// Moments as the Mac's own clock shows them.
#pragma once

#include <ctime>
#include <optional>
#include <string>

namespace client {

/// The moment that a text such as "2026-10-15T08:30:00Z" names, or nothing when it is another text.
/// Any thread.
std::optional<std::time_t> UtcMoment(const std::string& text);

/// A moment in local time, in the words of a format of strftime(3) that makes at most 63 bytes;
/// empty when that cannot be told. Any thread.
std::string LocalTime(std::time_t moment, const char* format);

}  // namespace client
