#include "simulator/portal/Printable.h"

#include <cstddef>

namespace portal {
namespace {

bool IsBetween(char c, unsigned first, unsigned last) {
  const auto byte = static_cast<unsigned char>(c);
  return byte >= first && byte <= last;
}

/// The bytes of the control character that `text` begins with; 0 when it begins with none.
std::size_t ControlLength(std::string_view text) {
  if (IsBetween(text[0], 0x00, 0x1F) || text[0] == 0x7F) return 1;
  // UTF-8 writes U+0080 to U+009F as C2 80 to C2 9F.
  const bool upper =
      text.size() > 1 && IsBetween(text[0], 0xC2, 0xC2) && IsBetween(text[1], 0x80, 0x9F);
  return upper ? 2 : 0;
}

}  // namespace

std::string Printable(std::string_view text) {
  std::string shown;
  while (!text.empty()) {
    const std::size_t control = ControlLength(text);
    shown += control > 0 ? '?' : text[0];
    text.remove_prefix(control > 0 ? control : 1);
  }
  return shown;
}

}  // namespace portal
