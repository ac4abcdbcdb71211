// Text from elsewhere, made safe to print.
#pragma once

#include <string>
#include <string_view>

namespace client {

/// `text` (UTF-8) with every control character replaced by "?", so that a terminal's name cannot
/// steer the screen it is shown on. Any thread.
std::string Printable(std::string_view text);

/// A reply's text on one line. A line end in JSON is white space between tokens, so nothing of the
/// reply is lost. Any thread.
std::string OneLine(std::string text);

}  // namespace client
