#include "platform/Text.h"

#include <unicode/ubrk.h>
#include <unicode/ustring.h>
#include <unicode/utf16.h>

#include <memory>

namespace platform {
namespace {

constexpr UChar32 kReplacement = 0xFFFD;

std::int32_t length(std::size_t size) { return static_cast<std::int32_t>(size); }

struct CloseIterator {
  void operator()(UBreakIterator* iterator) const { ubrk_close(iterator); }
};

}  // namespace

std::u16string TextToUtf16(std::string_view utf8) {
  std::u16string text(utf8.size(), u'\0');  // never more code units than bytes
  std::int32_t written = 0;
  UErrorCode status = U_ZERO_ERROR;
  u_strFromUTF8WithSub(text.data(), length(text.size()), &written, utf8.data(), length(utf8.size()),
                       kReplacement, nullptr, &status);
  text.resize(U_SUCCESS(status) ? static_cast<std::size_t>(written) : 0);
  return text;
}

std::string TextFromUtf16(std::u16string_view utf16) {
  std::string text(utf16.size() * 3, '\0');  // never more than three bytes a code unit
  std::int32_t written = 0;
  UErrorCode status = U_ZERO_ERROR;
  u_strToUTF8WithSub(text.data(), length(text.size()), &written, utf16.data(), length(utf16.size()),
                     kReplacement, nullptr, &status);
  text.resize(U_SUCCESS(status) ? static_cast<std::size_t>(written) : 0);
  return text;
}

std::string TextUpperCase(std::string_view utf8) {
  const std::u16string text = TextToUtf16(utf8);
  std::u16string upper(text.size() * 3, u'\0');  // full mapping yields at most three for one
  UErrorCode status = U_ZERO_ERROR;
  const std::int32_t written = u_strToUpper(upper.data(), length(upper.size()), text.data(),
                                            length(text.size()), "", &status);
  upper.resize(U_SUCCESS(status) ? static_cast<std::size_t>(written) : 0);
  return TextFromUtf16(upper);
}

std::size_t TextComposedCharacterStart(std::u16string_view text, std::size_t index) {
  UErrorCode status = U_ZERO_ERROR;
  const std::unique_ptr<UBreakIterator, CloseIterator> characters(
      ubrk_open(UBRK_CHARACTER, "", text.data(), length(text.size()), &status));
  std::int32_t start = length(index);
  U16_SET_CP_START(text.data(), 0, start);
  if (U_SUCCESS(status) && !ubrk_isBoundary(characters.get(), start)) {
    start = ubrk_preceding(characters.get(), start);
  }
  return static_cast<std::size_t>(start);
}

}  // namespace platform
