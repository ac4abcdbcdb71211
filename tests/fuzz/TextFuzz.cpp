// JSON texts, UTF-8 and the small services around texts. An input's first character chooses which.
#include <algorithm>
#include <array>
#include <optional>
#include <string>
#include <vector>

#include "account/KioskAutoLogin.h"
#include "core/KioskJson.h"
#include "core/KioskText.h"
#include "platform/Text.h"
#include "platform/UrlSession.h"
#include "portal/KioskCheckIn.h"
#include "portal/KioskPairing.h"
#include "settings/KioskPower.h"
#include "tests/fuzz/Fuzz.h"
#include "tests/unit/Spaces.h"
#include "tests/unit/Utf8.h"
#include "tests/unit/WrittenPatterns.h"

namespace {

std::size_t DepthOf(const Json& value) {
  if (!value.is_structured()) return 0;
  std::size_t deepest = 0;
  for (const Json& element : value) deepest = std::max(deepest, DepthOf(element));
  return deepest + 1;
}

void FuzzJson(const std::string& text) {
  const std::optional<Json> value = KioskJsonParse(text);
  const Json whole = Json::parse(text, nullptr, false);
  const bool expected =
      !whole.is_discarded() && text.find('\0') == std::string::npos && DepthOf(whole) <= 512;
  FuzzExpect(value.has_value() == expected, "JSON is read when it is not too deep", text);
  if (!value) return;
  const std::optional<std::string> written = KioskJsonText(*value);
  FuzzExpect(written.has_value(), "what was read can be written", text);
  const std::optional<Json> again = KioskJsonParse(*written);
  FuzzExpect(again == value, "what was written is the same", text, *written);
  FuzzExpect(KioskJsonText(*again) == written, "it is written the same again", text, *written);
  FuzzExpect(KioskIsUtf8(text), "JSON is UTF-8");
}

/// The characters of a text, decoded by a sequence's leading ones; nothing when it is not UTF-8.
std::optional<std::u32string> CharactersOf(const std::string& text) {
  std::u32string points;
  for (std::size_t at = 0; at < text.size();) {
    const auto byte = [&](std::size_t index) { return static_cast<unsigned char>(text[index]); };
    std::size_t ones = 0;
    while (ones < 8 && (byte(at) & (0x80U >> ones)) != 0) ++ones;
    const std::size_t length = ones == 0 ? 1 : ones;
    if (ones == 1 || ones > 4 || at + length > text.size()) return std::nullopt;
    char32_t point = ones == 0 ? byte(at) : byte(at) & (0x7FU >> length);
    for (std::size_t more = 1; more < length; ++more)
      point = point << 6 | (byte(at + more) & 0x3FU);
    // Encoded anew a character is itself again, unless its bytes were others than it may have.
    if (point > 0x10FFFF || (point >= 0xD800 && point <= 0xDFFF) ||
        Utf8(point) != text.substr(at, length)) {
      return std::nullopt;
    }
    points += point;
    at += length;
  }
  return points;
}

std::string TextOf(const std::u32string& points) {
  std::string text;
  for (const char32_t point : points) text += Utf8(point);
  return text;
}

template <class IsSpace>
std::string Stripped(std::u32string points, IsSpace isSpace) {
  while (!points.empty() && isSpace(points.back())) points.pop_back();
  const auto first = std::find_if_not(points.begin(), points.end(), isSpace);
  points.erase(points.begin(), first);
  return TextOf(points);
}

void FuzzSpaces(const std::string& text) {
  const std::optional<std::u32string> points = CharactersOf(text);
  FuzzExpect(KioskIsUtf8(text) == points.has_value(), "UTF-8 is what can be decoded");
  if (!points) return;
  const auto isBlank = [](char32_t point) { return kWhiteSpace.contains(point); };
  const auto isSpace = [&](char32_t point) { return isBlank(point) || kNewlines.contains(point); };
  FuzzExpect(KioskTrim(text) == Stripped(*points, isSpace), "trimmed of spaces", text);
  FuzzExpect(KioskTrimBlanks(text) == Stripped(*points, isBlank), "trimmed of blanks", text);
  FuzzExpect(platform::TextFromUtf16(platform::TextToUtf16(text)) == text, "UTF-16 and back", text);
  const std::vector<std::string> lines = LinesOf(text);
  FuzzExpect(KioskLastLine(text) == lines.back(), "the last line is the last", text);
  std::size_t starts = 0;
  for (std::size_t at = 0; at < text.size(); at = KioskNextLine(text, at)) ++starts;
  // The end of a text's last newline is no start of a line.
  FuzzExpect(starts == lines.size() - (lines.back().empty() ? 1 : 0), "lines are counted", text);
}

void FuzzNames(const std::string& text) {
  const bool isShort = text.size() <= 253;
  FuzzExpect(KioskIsHostName(text) == (isShort && MatchesHostNamePattern(text)), "host names",
             text);
  FuzzExpect(KioskIsHostLabel(text) == (isShort && MatchesHostLabelPattern(text)), "labels", text);
  FuzzExpect((KioskHostLabels(text) > 0) == (isShort && MatchesHostLabelsPattern(text)),
             "names of labels", text);
  FuzzExpect(KioskIsPairingCode(text) == MatchesPairingCodePattern(text), "pairing codes", text);
  int minutes = 0;
  FuzzExpect(KioskClock(text, minutes) == MatchesClockPattern(text), "times of day", text);
  // RFC 3986 knows no highest port, systems do.
  const std::optional<WebAddress> web = WebAddressByPattern(text);
  const bool isWeb = web && web->port.size() <= std::string_view(":9999").size();
  FuzzExpect(!isWeb || platform::UrlIsValid(text), "web addresses are URLs", text);
}

void FuzzTerminalName(const std::string& text) {
  const std::string name = KioskTerminalNameFrom(text);
  FuzzExpect(platform::TextToUtf16(name).size() <= 80, "a terminal's name is short", name);
  if (!KioskIsUtf8(text)) return;
  FuzzExpect(KioskIsUtf8(name), "a terminal's name is UTF-8", text);
  FuzzExpect(KioskTrim(name) == name, "a terminal's name is trimmed", text, name);
  const std::string_view trimmed = KioskTrim(text);
  FuzzExpect(trimmed.starts_with(name), "a terminal's name begins as it was given", text, name);
  FuzzExpect(platform::TextToUtf16(trimmed).size() > 80 || trimmed == name, "or is all of it",
             text);
  FuzzExpect(KioskTerminalNameFrom(name) == name, "a terminal's name amounts to itself", text,
             name);
}

void FuzzCode(const std::string& text) {
  const std::string code = KioskNormalisedCode(text);
  if (!KioskIsUtf8(text)) return;
  FuzzExpect(KioskIsUtf8(code), "a code is UTF-8", text);
  FuzzExpect(KioskNormalisedCode(code) == code, "a code amounts to itself", text, code);
  if (std::any_of(text.begin(), text.end(), [](char c) { return c < 0; })) return;
  std::string expected(KioskTrimBlanks(text));
  for (char& c : expected) c = static_cast<char>(c >= 'a' && c <= 'z' ? c - 32 : c);
  FuzzExpect(code == expected, "a code is in upper case", text, code);
}

void FuzzLetters(const std::string& text) {
  std::string lower = Replaced(text, {0x212A}, 'k');
  for (char& c : lower) c = static_cast<char>(c >= 'A' && c <= 'Z' ? c + 32 : c);
  FuzzExpect(KioskLowerCase(text) == lower, "lower case is that of ASCII", text);
  const auto* bytes = reinterpret_cast<const unsigned char*>(text.data());
  const std::string digits = KioskHexadecimal({bytes, text.size()});
  FuzzExpect(digits.size() == 2 * text.size(), "a byte has two digits");
  for (std::size_t at = 0; at < text.size(); ++at) {
    FuzzExpect(std::stoi(digits.substr(2 * at, 2), nullptr, 16) == bytes[at], "of its own");
  }
}

void FuzzPassword(const std::string& text) {
  const auto* bytes = reinterpret_cast<const unsigned char*>(text.data());
  std::vector<unsigned char> encoded(KcPasswordEncodedLength(text.size()));
  KcPasswordEncode(bytes, text.size(), encoded.data());
  FuzzExpect(encoded.size() % 12 == 0 && encoded.size() > text.size() &&
                 encoded.size() <= text.size() + 12,
             "an encoded password is padded");
  // An empty password is encoded as the key itself.
  std::array<unsigned char, 12> key{};
  KcPasswordEncode(bytes, 0, key.data());
  for (std::size_t at = 0; at < encoded.size(); ++at) {
    const unsigned plain = encoded[at] ^ key[at % 11];
    FuzzExpect(plain == (at < text.size() ? bytes[at] : 0U), "an encoded password decodes");
  }
}

constexpr std::array kServices{FuzzJson, FuzzSpaces,  FuzzNames,   FuzzTerminalName,
                               FuzzCode, FuzzLetters, FuzzPassword};

}  // namespace

int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  const FuzzInput input(data, size, kServices.size());
  kServices[input.choice](std::string(input.text));
  return 0;
}
