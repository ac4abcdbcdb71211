#include "simulator/client/Printable.h"

#include <algorithm>
#include <cstddef>

namespace client {
namespace {

bool IsControl(unsigned char byte) { return byte < 0x20 || byte == 0x7F; }

/// U+0080 to U+009F, which UTF-8 writes as C2 80 to C2 9F, are control characters as well.
bool IsUpperControl(std::string_view text, std::size_t index) {
  if (static_cast<unsigned char>(text[index]) != 0xC2 || index + 1 >= text.size()) return false;
  const auto next = static_cast<unsigned char>(text[index + 1]);
  return next >= 0x80 && next <= 0x9F;
}

}  // namespace

std::string Printable(std::string_view text) {
  std::string result;
  for (std::size_t index = 0; index < text.size(); ++index) {
    const bool upper = IsUpperControl(text, index);
    const bool control = upper || IsControl(static_cast<unsigned char>(text[index]));
    result.push_back(control ? '?' : text[index]);
    if (upper) ++index;
  }
  return result;
}

std::string OneLine(std::string text) {
  std::replace_if(
      text.begin(), text.end(), [](char c) { return c == '\n' || c == '\r'; }, ' ');
  return text;
}

}  // namespace client
