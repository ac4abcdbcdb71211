// What the system's tools print, read by the patterns as they are written, to hold the daemon's
// scanners against.
#pragma once

#include <optional>
#include <string>

#include "platform/Json.h"

/// The updates in the software update tool's list, whose text is ASCII.
Json UpdatesByPattern(const std::string& text);

/// The last percentage in the text, -1.0 for none.
double ProgressByPattern(const std::string& text);

/// pmset's two timeouts.
std::optional<Json> PowerSettingsByPattern(const std::string& text);

/// sntp's offset in milliseconds.
std::optional<double> OffsetByPattern(const std::string& text);

/// The time server that systemsetup names.
std::optional<std::string> TimeServerByPattern(const std::string& text);
