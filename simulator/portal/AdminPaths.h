// Paths of the administrator's interface, encoded.
#pragma once

#include <string>

#include "platform/Json.h"

namespace portal {

/// The path of a terminal.
/// @param terminal its record, with an "id"
std::string TerminalPath(const Json& terminal);

/// The path of the photos in a terminal's branding.
/// @param terminal its record, with an "id"
std::string PhotosPath(const Json& terminal);

/// The path of an action on a pairing code.
/// @param code as somebody typed it
/// @param action "claim" or "expire"
std::string CodePath(const std::string& code, const char* action);

/// A query, "?" included; empty without a value.
/// @param values text and numbers
std::string Query(const Json& values);

}  // namespace portal
