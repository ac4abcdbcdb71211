// JSON as text, with a limit on its depth.
#pragma once

#include <cstddef>
#include <optional>
#include <string>
#include <string_view>

#include "platform/Json.h"
#include "simulator/portal/Limits.h"

namespace portal {

/// Parses a whole JSON text.
/// @param text UTF-8
/// @param maxDepth the most nesting levels; answers may have `kMaxAnswerDepth`
/// @return the value; nothing when the text is not JSON or nested deeper than that
std::optional<Json> ParseJson(std::string_view text, std::size_t maxDepth = kMaxJsonDepth);

/// Compact JSON text of `value`; bytes that are not UTF-8 become U+FFFD.
std::string JsonText(const Json& value);

}  // namespace portal
