// CoreFoundation's property list values from and to JSON.
#pragma once

#include <optional>
#include <string>

#include "platform/Json.h"
#include "platform/macos/CfRef.h"

namespace platform {

/// A property list's value as JSON: data as a binary value, a date as its seconds since 1970.
/// Nothing for what JSON has no counterpart of (a keyed archiver's identifiers) and for what nests
/// too deep; such values are left out of arrays and dictionaries. Any thread.
std::optional<Json> CfToJson(CFTypeRef object);

/// A JSON value as a property list's value. Empty when it cannot be one (a null, text that is not
/// UTF-8) or there is no memory; `error` describes the former. Any thread.
CfRef<CFTypeRef> CfFromJson(const Json& value, std::string& error);

}  // namespace platform
