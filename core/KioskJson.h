// JSON text and the daemon's way of reading loosely typed values.
#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>

#include "platform/Json.h"

/// Parses a JSON text. Nothing when it is not one JSON value, not UTF-8, has a number beyond the
/// range of a double, or nests deeper than kKioskMaximumJsonDepth. Any thread.
std::optional<Json> KioskJsonParse(std::string_view text);

/// Compact JSON with sorted keys. Nothing when a string is not UTF-8. Any thread.
std::optional<std::string> KioskJsonText(const Json& value);

/// What is sent for a reply: its text, or a bare failure where it has none. Any thread.
std::string KioskReplyText(const Json& reply);

/// The member of an object, or null when there is none or `object` is not one.
const Json& KioskMember(const Json& object, const char* key);

/// A number, or a boolean as 1 or 0; nothing for anything else.
std::optional<double> KioskNumber(const Json& value);

/// Whether `value` is a number without fraction and not a boolean; if so, its value goes to
/// `integer`, clamped to the 64-bit range.
bool KioskIsInteger(const Json& value, std::int64_t& integer);

/// The truth of a number or boolean (a boolean counts as a number); nothing for anything else.
std::optional<bool> KioskTruth(const Json& value);

/// A value for a log line: a string as it stands, anything else as compact JSON.
std::string KioskDescription(const Json& value);

/// The reply {"ok": true}.
Json KioskSuccess();

/// The reply {"ok": false, "error": code}.
Json KioskFailure(const std::string& code);
