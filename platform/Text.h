// Unicode services. Native counterpart: CFString.
#pragma once

#include <cstddef>
#include <string>
#include <string_view>

namespace platform {

/// UTF-8 to UTF-16 and back. Ill-formed sequences become U+FFFD. Any thread.
std::u16string TextToUtf16(std::string_view utf8);
std::string TextFromUtf16(std::u16string_view utf16);

/// Full Unicode upper case, independent of locale; may lengthen the text. The text as it was when
/// the platform has no memory for it. Any thread.
/// Native: CFStringUppercase with no locale.
std::string TextUpperCase(std::string_view utf8);

/// The index at which the composed character sequence (extended grapheme cluster) that contains
/// code unit `index` starts. `index` must be less than the text's length. Any thread.
/// Native: CFStringGetRangeOfComposedCharactersAtIndex.
std::size_t TextComposedCharacterStart(std::u16string_view text, std::size_t index);

}  // namespace platform
