// Small text services of the daemon's own. White space is Unicode's: the space separators (general
// category Zs) and tab; newlines are U+000A to U+000D, U+0085, U+2028 and U+2029.
#pragma once

#include <string_view>

/// Whether the bytes are well-formed UTF-8 (RFC 3629: no surrogates, no overlong forms).
bool KioskIsUtf8(std::string_view bytes);

/// The text without white space and newlines at both ends. The result points into `text`.
std::string_view KioskTrim(std::string_view text);

/// The text without white space at both ends; newlines stay. The result points into `text`.
std::string_view KioskTrimBlanks(std::string_view text);
