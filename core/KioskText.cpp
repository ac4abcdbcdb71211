#include "core/KioskText.h"

#include <algorithm>
#include <array>
#include <cstddef>

namespace {

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

}  // namespace

bool KioskIsUtf8(std::string_view bytes) {
  while (!bytes.empty()) {
    const std::size_t length = SequenceLength(bytes);
    if (length == 0) return false;
    bytes.remove_prefix(length);
  }
  return true;
}

std::string_view KioskTrim(std::string_view text) { return TrimEnds(text, true); }

std::string_view KioskTrimBlanks(std::string_view text) { return TrimEnds(text, false); }
