#include <unicode/ubrk.h>
#include <unicode/ustring.h>

#include <cstring>

#include "tests/native/CoreFoundation.h"

using native::As;
using native::Begin;

extern "C" {
extern int __CFConstantStringClassReference[];
}

namespace native {
namespace {

/// What the compiler makes of CFSTR("text").
struct ConstantString {
  const void* isa;
  int flags;
  const char* text;
  long length;
};

std::int32_t size(std::size_t count) { return static_cast<std::int32_t>(count); }

/// Nothing for text that is not UTF-8.
bool decode(std::string_view utf8, std::u16string& text) {
  text.resize(utf8.size());
  std::int32_t written = 0;
  UErrorCode status = U_ZERO_ERROR;
  u_strFromUTF8(text.data(), size(text.size()), &written, utf8.data(), size(utf8.size()), &status);
  if (U_FAILURE(status)) return false;
  text.resize(static_cast<std::size_t>(written));
  return true;
}

/// UTF-8 of the part before the first half of a surrogate pair.
std::string encode(std::u16string_view text, std::size_t& converted) {
  converted = 0;
  for (std::size_t i = 0; i < text.size(); converted = i) {
    char32_t point = 0;
    U16_NEXT(text.data(), i, text.size(), point);
    if (U16_IS_SURROGATE(point)) break;
  }
  std::string utf8(converted * 3, '\0');
  std::int32_t written = 0;
  UErrorCode status = U_ZERO_ERROR;
  u_strToUTF8(utf8.data(), size(utf8.size()), &written, text.data(), size(converted), &status);
  utf8.resize(static_cast<std::size_t>(written));
  return utf8;
}

std::u16string part(CFStringRef string, CFRange range) {
  const std::u16string text = TextOf(string);
  const auto location = static_cast<std::size_t>(range.location);
  const auto length = static_cast<std::size_t>(range.length);
  if (location + length > text.size()) Crash("a range lies outside its string");
  return text.substr(location, length);
}

}  // namespace

std::u16string TextOf(CFStringRef string) {
  if (string == nullptr) Crash("a null string was used");
  ConstantString constant = {};
  std::memcpy(&constant.isa, string, sizeof constant.isa);
  if (constant.isa != __CFConstantStringClassReference) return As<CfString>(string)->text;
  std::memcpy(&constant, string, sizeof constant);
  return std::u16string(constant.text, constant.text + constant.length);
}

std::string Utf8Of(CFStringRef string) {
  std::size_t converted = 0;
  return encode(TextOf(string), converted);
}

CFStringRef NewString(const std::string& utf8) {
  std::u16string text;
  return decode(utf8, text) ? RefOf<CFStringRef>(new CfString(std::move(text))) : nullptr;
}

}  // namespace native

extern "C" {

CFTypeID CFStringGetTypeID(void) { return native::kStringType; }

CFStringRef CFStringCreateWithBytes(CFAllocatorRef, const UInt8* bytes, CFIndex count,
                                    CFStringEncoding encoding, Boolean) {
  if (encoding != kCFStringEncodingUTF8) native::Crash("another encoding than UTF-8");
  if (!Begin(__func__)) return nullptr;
  return native::NewString(std::string(bytes, bytes + count));
}

CFStringRef CFStringCreateWithCharacters(CFAllocatorRef, const UniChar* characters, CFIndex count) {
  if (!Begin(__func__)) return nullptr;
  return native::RefOf<CFStringRef>(
      new native::CfString(std::u16string(characters, characters + count)));
}

CFMutableStringRef CFStringCreateMutableCopy(CFAllocatorRef, CFIndex, CFStringRef string) {
  const std::u16string text = native::TextOf(string);
  if (!Begin(__func__)) return nullptr;
  return native::RefOf<CFMutableStringRef>(new native::CfString(text));
}

CFIndex CFStringGetLength(CFStringRef string) {
  return static_cast<CFIndex>(native::TextOf(string).size());
}

CFIndex CFStringGetBytes(CFStringRef string, CFRange range, CFStringEncoding encoding,
                         UInt8 lossByte, Boolean, UInt8* buffer, CFIndex bufferSize,
                         CFIndex* usedSize) {
  if (encoding != kCFStringEncodingUTF8 || lossByte != 0) native::Crash("not as in use");
  std::size_t converted = 0;
  const std::string utf8 = native::encode(native::part(string, range), converted);
  if (buffer != nullptr) {
    if (static_cast<std::size_t>(bufferSize) < utf8.size()) native::Crash("the buffer is short");
    std::memcpy(buffer, utf8.data(), utf8.size());
  }
  if (usedSize != nullptr) *usedSize = static_cast<CFIndex>(utf8.size());
  return static_cast<CFIndex>(converted);
}

void CFStringGetCharacters(CFStringRef string, CFRange range, UniChar* buffer) {
  const std::u16string text = native::part(string, range);
  std::memcpy(buffer, text.data(), text.size() * sizeof(UniChar));
}

CFRange CFStringGetRangeOfComposedCharactersAtIndex(CFStringRef string, CFIndex index) {
  const std::u16string text = native::TextOf(string);
  if (static_cast<std::size_t>(index) >= text.size()) native::Crash("no character is there");
  UErrorCode status = U_ZERO_ERROR;
  UBreakIterator* characters =
      ubrk_open(UBRK_CHARACTER, "", text.data(), native::size(text.size()), &status);
  const std::int32_t end = ubrk_following(characters, static_cast<std::int32_t>(index));
  const std::int32_t start = ubrk_previous(characters);
  ubrk_close(characters);
  return {start, end - start};
}

void CFStringUppercase(CFMutableStringRef string, CFLocaleRef locale) {
  if (locale != nullptr) native::Crash("a locale was given");
  std::u16string& text = As<native::CfString>(string)->text;
  std::u16string upper(text.size() * 3, u'\0');
  UErrorCode status = U_ZERO_ERROR;
  const std::int32_t written = u_strToUpper(upper.data(), native::size(upper.size()), text.data(),
                                            native::size(text.size()), "", &status);
  text = upper.substr(0, static_cast<std::size_t>(written));
}

}  // extern "C"
