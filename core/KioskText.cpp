#include "core/KioskText.h"

#include <algorithm>
#include <array>
#include <cmath>
#include <cstddef>
#include <cstdint>
#include <cstring>
#include <ctime>

namespace {

constexpr std::size_t kLongestLabel = 63;
constexpr std::size_t kLongestHostName = 253;

// The lower case of the Kelvin sign is ASCII, as that of no other character beyond it is.
constexpr std::string_view kKelvin = "\u212A";

bool IsLowerOrDigit(char c) { return (c >= 'a' && c <= 'z') || KioskIsDigit(c); }

constexpr std::array<std::string_view, 18> kBlanks{
    "\t",     " ",      "\u00A0", "\u1680", "\u2000", "\u2001", "\u2002", "\u2003", "\u2004",
    "\u2005", "\u2006", "\u2007", "\u2008", "\u2009", "\u200A", "\u202F", "\u205F", "\u3000"};
constexpr std::array<std::string_view, 7> kNewlines{"\n",     "\v",     "\f",    "\r",
                                                    "\u0085", "\u2028", "\u2029"};

template <class Set, class Matches>
std::size_t LengthOf(const Set& set, Matches matches) {
  const auto found = std::find_if(set.begin(), set.end(), matches);
  return found == set.end() ? 0 : found->size();
}

// Of the newline with which the text begins, or 0.
std::size_t NewlineLength(std::string_view text) {
  return LengthOf(kNewlines, [&](std::string_view newline) { return text.starts_with(newline); });
}

template <class Matches>
std::size_t LengthOfSpace(bool newlines, Matches matches) {
  const std::size_t blank = LengthOf(kBlanks, matches);
  return blank != 0 || !newlines ? blank : LengthOf(kNewlines, matches);
}

std::string_view TrimEnds(std::string_view text, bool newlines) {
  const auto leads = [&](std::string_view space) { return text.starts_with(space); };
  const auto trails = [&](std::string_view space) { return text.ends_with(space); };
  while (const std::size_t length = LengthOfSpace(newlines, leads)) text.remove_prefix(length);
  while (const std::size_t length = LengthOfSpace(newlines, trails)) text.remove_suffix(length);
  return text;
}

struct Lead {
  std::size_t length;     // of the whole sequence
  unsigned char minimum;  // of the second byte
  unsigned char maximum;
};

// Table 3-7 of the Unicode standard: which sequences are well formed.
Lead LeadOf(unsigned char first) {
  if (first < 0x80) return {1, 0, 0};
  if (first < 0xC2) return {0, 0, 0};
  if (first < 0xE0) return {2, 0x80, 0xBF};
  if (first == 0xE0) return {3, 0xA0, 0xBF};
  if (first == 0xED) return {3, 0x80, 0x9F};
  if (first < 0xF0) return {3, 0x80, 0xBF};
  if (first == 0xF0) return {4, 0x90, 0xBF};
  if (first < 0xF4) return {4, 0x80, 0xBF};
  if (first == 0xF4) return {4, 0x80, 0x8F};
  return {0, 0, 0};
}

// The length of the well-formed sequence at the start of `bytes`, or 0.
std::size_t SequenceLength(std::string_view bytes) {
  const auto byte = [&](std::size_t at) { return static_cast<unsigned char>(bytes[at]); };
  const Lead lead = LeadOf(byte(0));
  if (lead.length <= 1) return lead.length;
  if (bytes.size() < lead.length) return 0;
  if (byte(1) < lead.minimum || byte(1) > lead.maximum) return 0;
  for (std::size_t at = 2; at < lead.length; ++at) {
    if (byte(at) < 0x80 || byte(at) > 0xBF) return 0;
  }
  return lead.length;
}

// How far a text is ASCII, eight bytes at a time.
std::size_t AsciiWordsLength(std::string_view bytes) {
  constexpr std::uint64_t kHighBits = 0x8080808080808080;
  std::size_t length = 0;
  for (std::uint64_t word = 0; bytes.size() - length >= sizeof word; length += sizeof word) {
    std::memcpy(&word, bytes.data() + length, sizeof word);
    if ((word & kHighBits) != 0) break;
  }
  return length;
}

}  // namespace

bool KioskIsUtf8(std::string_view bytes) {
  for (;;) {
    bytes.remove_prefix(AsciiWordsLength(bytes));
    if (bytes.empty()) return true;
    const std::size_t length = SequenceLength(bytes);
    if (length == 0) return false;
    bytes.remove_prefix(length);
  }
}

std::string_view KioskTrim(std::string_view text) { return TrimEnds(text, true); }

std::string_view KioskTrimBlanks(std::string_view text) { return TrimEnds(text, false); }

std::size_t KioskSpaceLength(std::string_view text) {
  return LengthOfSpace(true, [&](std::string_view space) { return text.starts_with(space); });
}

std::size_t KioskLeadingSpace(std::string_view text) {
  std::string_view rest = text;
  for (;;) {
    const std::size_t length = KioskSpaceLength(rest);
    // Two newlines are no separators.
    if (length == 0 || rest.starts_with("\v") || rest.starts_with("\u0085")) break;
    rest.remove_prefix(length);
  }
  return text.size() - rest.size();
}

bool KioskStartsWithWordCharacter(std::string_view text) {
  if (text.empty()) return false;
  const char first = text.front();
  if (static_cast<unsigned char>(first) >= 0x80) return KioskSpaceLength(text) == 0;
  return KioskIsDigit(first) || (first >= 'A' && first <= 'Z') || (first >= 'a' && first <= 'z') ||
         first == '_';
}

std::size_t KioskNextLine(std::string_view text, std::size_t start) {
  for (std::size_t at = start; at < text.size(); ++at) {
    if (const std::size_t length = NewlineLength(text.substr(at))) return at + length;
  }
  return text.size();
}

std::string_view KioskLastLine(std::string_view text) {
  std::size_t start = 0;
  for (std::size_t at = 0; at < text.size();) {
    const std::size_t length = NewlineLength(text.substr(at));
    at += std::max<std::size_t>(length, 1);
    if (length != 0) start = at;
  }
  return text.substr(start);
}

std::string KioskLowerCase(std::string_view text) {
  std::string lower;
  lower.reserve(text.size());
  while (!text.empty()) {
    const bool isKelvin = text.starts_with(kKelvin);
    const char first = text.front();
    const bool isUpper = first >= 'A' && first <= 'Z';
    lower += isKelvin ? 'k' : static_cast<char>(isUpper ? first - 'A' + 'a' : first);
    text.remove_prefix(isKelvin ? kKelvin.size() : 1);
  }
  return lower;
}

std::string KioskHexadecimal(std::span<const unsigned char> bytes) {
  constexpr char kDigits[] = "0123456789abcdef";
  std::string text;
  for (const unsigned char byte : bytes) {
    text += kDigits[byte >> 4];
    text += kDigits[byte & 0xF];
  }
  return text;
}

bool KioskIsHostLabel(std::string_view text) {
  return !text.empty() && text.size() <= kLongestLabel && IsLowerOrDigit(text.front()) &&
         IsLowerOrDigit(text.back()) && std::all_of(text.begin(), text.end(), [](char c) {
           return IsLowerOrDigit(c) || c == '-';
         });
}

std::size_t KioskHostLabels(std::string_view text) {
  if (text.size() > kLongestHostName) return 0;
  for (std::size_t labels = 1;; ++labels) {
    const std::size_t dot = text.find('.');
    if (!KioskIsHostLabel(text.substr(0, dot))) return 0;
    if (dot == std::string_view::npos) return labels;
    text.remove_prefix(dot + 1);
  }
}

std::string KioskIso8601(double secondsSince1970) {
  const auto instant = static_cast<std::time_t>(std::floor(secondsSince1970));
  std::tm fields{};
  gmtime_r(&instant, &fields);
  std::array<char, 64> text{};
  const std::size_t length = std::strftime(text.data(), text.size(), "%Y-%m-%dT%H:%M:%SZ", &fields);
  return {text.data(), length};
}
