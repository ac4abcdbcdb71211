// Small text services of the daemon's own. White space is Unicode's: the space separators (general
// category Zs) and tab; newlines are U+000A to U+000D, U+0085, U+2028 and U+2029.
#pragma once

#include <cstddef>
#include <span>
#include <string>
#include <string_view>

/// Whether the character is one of the ten digits of ASCII.
constexpr bool KioskIsDigit(char c) { return c >= '0' && c <= '9'; }

/// Whether the bytes are well-formed UTF-8 (RFC 3629: no surrogates, no overlong forms).
bool KioskIsUtf8(std::string_view bytes);

/// The text without white space and newlines at both ends. The result points into `text`.
std::string_view KioskTrim(std::string_view text);

/// The text without white space at both ends; newlines stay. The result points into `text`.
std::string_view KioskTrimBlanks(std::string_view text);

/// The length in bytes of the one white space or newline with which the text begins, or 0.
std::size_t KioskSpaceLength(std::string_view text);

/// How many bytes at the start of the text are white space as patterns have it ("\s": tab, line
/// feed, form feed, carriage return and Unicode's separators).
std::size_t KioskLeadingSpace(std::string_view text);

/// Whether the text begins with a character of a word as patterns have it ("\w"); beyond ASCII
/// everything counts as one that is neither white space nor a newline.
bool KioskStartsWithWordCharacter(std::string_view text);

/// Where the line after the one at `start` begins, by any of the newlines above; the text's length
/// when there is none.
std::size_t KioskNextLine(std::string_view text, std::size_t start);

/// What follows the text's last newline. The result points into `text`.
std::string_view KioskLastLine(std::string_view text);

/// The text in lower case as far as that is ASCII; other characters stay.
std::string KioskLowerCase(std::string_view text);

/// The bytes as two lower-case hexadecimal digits each.
std::string KioskHexadecimal(std::span<const unsigned char> bytes);

/// Whether the text is one label of a host name:
/// "^[a-z0-9]([a-z0-9-]{0,61}[a-z0-9])?$".
bool KioskIsHostLabel(std::string_view text);

/// How many such labels the text has, joined by single dots; 0 when it is no such name or longer
/// than 253 bytes.
std::size_t KioskHostLabels(std::string_view text);

/// An instant (seconds since 1970, a fraction cut off) as ISO 8601 has it, "2026-10-08T22:31:00Z".
std::string KioskIso8601(double secondsSince1970);
