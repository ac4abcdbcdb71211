// Unicode services: CFString, and the encodings themselves, in which CFString refuses what is
// ill-formed instead of replacing it.
#include "platform/Text.h"

#include "platform/macos/CfRef.h"

namespace platform {
namespace {

constexpr char32_t kReplacement = 0xFFFD;
constexpr char32_t kFirstSupplementary = 0x10000;

bool isLead(char16_t unit) { return (unit & 0xFC00) == 0xD800; }
bool isTrail(char16_t unit) { return (unit & 0xFC00) == 0xDC00; }

/// What the first byte of a UTF-8 sequence says of the second, and how many bytes follow the first
/// (RFC 3629, section 4; none for a byte that begins no sequence of several).
struct Sequence {
  int following;
  unsigned char lowestSecond;
  unsigned char highestSecond;
};

Sequence sequenceOf(unsigned char first) {
  if (first >= 0xC2 && first <= 0xDF) return {1, 0x80, 0xBF};
  if (first == 0xE0) return {2, 0xA0, 0xBF};
  if (first == 0xED) return {2, 0x80, 0x9F};
  if (first >= 0xE1 && first <= 0xEF) return {2, 0x80, 0xBF};
  if (first == 0xF0) return {3, 0x90, 0xBF};
  if (first >= 0xF1 && first <= 0xF3) return {3, 0x80, 0xBF};
  if (first == 0xF4) return {3, 0x80, 0x8F};
  return {0, 0, 0};
}

/// The code point at the start of a text, which it is taken from. The longest part of a sequence
/// that could be right becomes one replacement (The Unicode Standard, section 3.9).
char32_t takeCodePoint(std::string_view& utf8) {
  const auto first = static_cast<unsigned char>(utf8.front());
  utf8.remove_prefix(1);
  if (first < 0x80) return first;
  const Sequence sequence = sequenceOf(first);
  char32_t point = first & (0x3FU >> sequence.following);
  for (int i = 0; i < sequence.following; ++i) {
    const auto next = static_cast<unsigned char>(utf8.empty() ? 0 : utf8.front());
    const bool fits = i == 0 ? next >= sequence.lowestSecond && next <= sequence.highestSecond
                             : (next & 0xC0) == 0x80;
    if (!fits) return kReplacement;
    utf8.remove_prefix(1);
    point = point << 6 | (next & 0x3FU);
  }
  return sequence.following > 0 ? point : kReplacement;
}

void append(std::string& utf8, char32_t point) {
  const auto byte = [&](char32_t bits) { utf8 += static_cast<char>(bits); };
  if (point < 0x80) return byte(point);
  if (point < 0x800) {
    byte(0xC0 | point >> 6);
  } else if (point < kFirstSupplementary) {
    byte(0xE0 | point >> 12);
    byte(0x80 | (point >> 6 & 0x3F));
  } else {
    byte(0xF0 | point >> 18);
    byte(0x80 | (point >> 12 & 0x3F));
    byte(0x80 | (point >> 6 & 0x3F));
  }
  byte(0x80 | (point & 0x3F));
}

CfRef<CFStringRef> string(std::u16string_view text) {
  return CfRef(CFStringCreateWithCharacters(nullptr, reinterpret_cast<const UniChar*>(text.data()),
                                            static_cast<CFIndex>(text.size())));
}

}  // namespace

std::u16string TextToUtf16(std::string_view utf8) {
  std::u16string text;
  text.reserve(utf8.size());
  while (!utf8.empty()) {
    const char32_t point = takeCodePoint(utf8);
    if (point < kFirstSupplementary) {
      text += static_cast<char16_t>(point);
    } else {
      text += static_cast<char16_t>(0xD800 + ((point - kFirstSupplementary) >> 10));
      text += static_cast<char16_t>(0xDC00 + (point & 0x3FF));
    }
  }
  return text;
}

std::string TextFromUtf16(std::u16string_view utf16) {
  std::string text;
  text.reserve(utf16.size());
  for (std::size_t i = 0; i < utf16.size(); ++i) {
    const char16_t unit = utf16[i];
    if (isLead(unit) && i + 1 < utf16.size() && isTrail(utf16[i + 1])) {
      const char16_t trail = utf16[++i];
      append(text, kFirstSupplementary + ((unit & 0x3FFU) << 10) + (trail & 0x3FFU));
    } else {
      append(text, isLead(unit) || isTrail(unit) ? kReplacement : unit);
    }
  }
  return text;
}

std::string TextUpperCase(std::string_view utf8) {
  const CfRef<CFStringRef> text = string(TextToUtf16(utf8));
  const CfRef<CFMutableStringRef> upper(text ? CFStringCreateMutableCopy(nullptr, 0, text.get())
                                             : nullptr);
  if (!upper) return std::string(utf8);
  CFStringUppercase(upper.get(), nullptr);
  const CFIndex length = CFStringGetLength(upper.get());
  std::u16string result(static_cast<std::size_t>(length), u'\0');
  CFStringGetCharacters(upper.get(), {0, length}, reinterpret_cast<UniChar*>(result.data()));
  return TextFromUtf16(result);
}

std::size_t TextComposedCharacterStart(std::u16string_view text, std::size_t index) {
  const CfRef<CFStringRef> whole = string(text);
  if (!whole) return index;
  const CFRange range =
      CFStringGetRangeOfComposedCharactersAtIndex(whole.get(), static_cast<CFIndex>(index));
  return static_cast<std::size_t>(range.location);
}

}  // namespace platform
