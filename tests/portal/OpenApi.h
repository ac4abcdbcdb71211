// An OpenAPI 3.0 description, reduced to what recorded exchanges can be held against.
#pragma once

#include <optional>
#include <string>

#include "platform/Json.h"

namespace openapi {

/// Reads a description from a YAML file.
/// @param path the file
/// @param problem receives one sentence when that failed
/// @return the document as JSON, every "$ref" replaced by what it refers to, every schema turned
///         into JSON Schema (draft 4)
std::optional<Json> ReadDescription(const std::string& path, std::string& problem);

/// The description of a path: an exact match before one with parameters.
/// @return null when the path is not described
const Json* FindPath(const Json& description, const std::string& path);

/// The operation of a path item.
/// @param method in any case
/// @return null when the method is not described
const Json* FindOperation(const Json& pathItem, const std::string& method);

}  // namespace openapi
