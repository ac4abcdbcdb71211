// Text from elsewhere, made safe to print.
#pragma once

#include <string>
#include <string_view>

namespace portal {

/// `text` (UTF-8) with every control character (C0, DEL and C1) replaced by "?", so that what a
/// terminal tells about itself cannot steer the screen of the administrator. Any thread.
std::string Printable(std::string_view text);

}  // namespace portal
