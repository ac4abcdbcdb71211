// Validation of a value against a JSON Schema.
#pragma once

#include <optional>
#include <string>

#include "platform/Json.h"

namespace openapi {

/// Holds a value against a schema (draft 4).
/// @return what is wrong, one line; nothing when the value is valid
std::optional<std::string> FindViolation(const Json& schema, const Json& value);

}  // namespace openapi
