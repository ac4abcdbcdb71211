// White space and newlines for tests, independent of the code under test.
#pragma once

#include <set>
#include <string>
#include <vector>

#include "tests/unit/Utf8.h"

/// Unicode's space separators and tab.
inline const std::set<char32_t> kWhiteSpace{0x0009, 0x0020, 0x00A0, 0x1680, 0x2000, 0x2001,
                                            0x2002, 0x2003, 0x2004, 0x2005, 0x2006, 0x2007,
                                            0x2008, 0x2009, 0x200A, 0x202F, 0x205F, 0x3000};
inline const std::set<char32_t> kNewlines{0x000A, 0x000B, 0x000C, 0x000D, 0x0085, 0x2028, 0x2029};

/// `text` with every one of `points` replaced by `by`, which contains none of them.
inline std::string Replaced(std::string text, const std::set<char32_t>& points, char by) {
  for (const char32_t point : points) {
    const std::string sought = Utf8(point);
    for (std::size_t at = text.find(sought); at != std::string::npos; at = text.find(sought, at)) {
      text.replace(at, sought.size(), 1, by);
      ++at;
    }
  }
  return text;
}

/// The pieces of `text` between the separators, empty ones included.
inline std::vector<std::string> SplitAt(const std::string& text, char separator) {
  std::vector<std::string> pieces{""};
  for (const char c : text) {
    if (c == separator) {
      pieces.emplace_back();
    } else {
      pieces.back() += c;
    }
  }
  return pieces;
}

/// The lines of `text`, by any newline.
inline std::vector<std::string> LinesOf(const std::string& text) {
  return SplitAt(Replaced(text, kNewlines, '\n'), '\n');
}

/// `text` with every white space and newline made a blank.
inline std::string Blanked(const std::string& text) {
  return Replaced(Replaced(text, kNewlines, ' '), kWhiteSpace, ' ');
}
