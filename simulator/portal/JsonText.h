// JSON as text, with a limit on its depth.
#pragma once

#include <optional>
#include <string>
#include <string_view>

#include "platform/Json.h"

namespace portal {

/// Parses a whole JSON text.
/// @param text UTF-8
/// @return the value; nothing when the text is not JSON or nested deeper than `kMaxJsonDepth`
std::optional<Json> ParseJson(std::string_view text);

/// Compact JSON text of `value`; bytes that are not UTF-8 become U+FFFD.
std::string JsonText(const Json& value);

}  // namespace portal
