// Large letters.
#pragma once

#include <optional>
#include <string>
#include <string_view>
#include <vector>

namespace client {

/// `text` drawn in block letters, one string a row, made of "#" and spaces; the letters stand apart
/// and those of a second half a little more. Nothing when the text holds anything other than A to Z
/// and 0 to 9. Any thread.
std::optional<std::vector<std::string>> LargeText(std::string_view text);

}  // namespace client
