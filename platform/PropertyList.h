// Property lists as JSON values. Native counterpart: CFPropertyList.
#pragma once

#include <optional>
#include <string>

#include "platform/Json.h"

namespace platform {

/// How a property list is written.
enum class PropertyListFormat { kXml, kBinary };

/// Parses an XML or binary property list: dictionaries, arrays, strings, integers, reals and
/// booleans become their JSON counterparts, data a JSON binary value, a date its seconds since 1970
/// as a real. An integer above 63 bits comes as some other number. Nothing when the bytes are not a
/// property list. Any thread.
std::optional<Json> PropertyListParse(const std::string& bytes);

/// Writes a value made of objects, arrays, strings, numbers, booleans and binary values. Nothing
/// with `error` set to a description when the value cannot be a property list (a null, text that is
/// not UTF-8) or writing fails. Any thread.
std::optional<std::string> PropertyListWrite(const Json& value, PropertyListFormat format,
                                             std::string& error);

}  // namespace platform
