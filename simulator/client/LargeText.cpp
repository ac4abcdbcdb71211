#include "simulator/client/LargeText.h"

#include <algorithm>
#include <array>
#include <cstddef>
#include <iterator>

namespace client {
namespace {

constexpr std::size_t kRows = 5;

struct Glyph {
  char letter;
  std::array<std::string_view, kRows> rows;
};

constexpr Glyph kFont[] = {
    {'A', {" ### ", "#   #", "#####", "#   #", "#   #"}},
    {'B', {"#### ", "#   #", "#### ", "#   #", "#### "}},
    {'C', {" ####", "#    ", "#    ", "#    ", " ####"}},
    {'D', {"#### ", "#   #", "#   #", "#   #", "#### "}},
    {'E', {"#####", "#    ", "#### ", "#    ", "#####"}},
    {'F', {"#####", "#    ", "#### ", "#    ", "#    "}},
    {'G', {" ####", "#    ", "#  ##", "#   #", " ####"}},
    {'H', {"#   #", "#   #", "#####", "#   #", "#   #"}},
    {'I', {"#####", "  #  ", "  #  ", "  #  ", "#####"}},
    {'J', {"  ###", "   # ", "   # ", "#  # ", " ##  "}},
    {'K', {"#   #", "#  # ", "###  ", "#  # ", "#   #"}},
    {'L', {"#    ", "#    ", "#    ", "#    ", "#####"}},
    {'M', {"#   #", "## ##", "# # #", "#   #", "#   #"}},
    {'N', {"#   #", "##  #", "# # #", "#  ##", "#   #"}},
    {'O', {" ### ", "#   #", "#   #", "#   #", " ### "}},
    {'P', {"#### ", "#   #", "#### ", "#    ", "#    "}},
    {'Q', {" ### ", "#   #", "# # #", "#  # ", " ## #"}},
    {'R', {"#### ", "#   #", "#### ", "#  # ", "#   #"}},
    {'S', {" ####", "#    ", " ### ", "    #", "#### "}},
    {'T', {"#####", "  #  ", "  #  ", "  #  ", "  #  "}},
    {'U', {"#   #", "#   #", "#   #", "#   #", " ### "}},
    {'V', {"#   #", "#   #", "#   #", " # # ", "  #  "}},
    {'W', {"#   #", "#   #", "# # #", "## ##", "#   #"}},
    {'X', {"#   #", " # # ", "  #  ", " # # ", "#   #"}},
    {'Y', {"#   #", " # # ", "  #  ", "  #  ", "  #  "}},
    {'Z', {"#####", "   # ", "  #  ", " #   ", "#####"}},
    {'0', {" ### ", "#  ##", "# # #", "##  #", " ### "}},
    {'1', {"  #  ", " ##  ", "  #  ", "  #  ", " ### "}},
    {'2', {"#### ", "    #", " ### ", "#    ", "#####"}},
    {'3', {"#### ", "    #", " ### ", "    #", "#### "}},
    {'4', {"#  # ", "#  # ", "#####", "   # ", "   # "}},
    {'5', {"#####", "#    ", "#### ", "    #", "#### "}},
    {'6', {" ### ", "#    ", "#### ", "#   #", " ### "}},
    {'7', {"#####", "    #", "   # ", "  #  ", "  #  "}},
    {'8', {" ### ", "#   #", " ### ", "#   #", " ### "}},
    {'9', {" ### ", "#   #", " ####", "    #", " ### "}},
};

const Glyph* FindGlyph(char letter) {
  const auto* const found = std::find_if(std::begin(kFont), std::end(kFont),
                                         [letter](const Glyph& g) { return g.letter == letter; });
  return found == std::end(kFont) ? nullptr : found;
}

/// The gap before the letter at `index`.
std::string_view Gap(std::size_t index, std::size_t count) {
  if (index == 0) return "";
  return count > 4 && index * 2 == count ? "     " : "  ";
}

}  // namespace

std::optional<std::vector<std::string>> LargeText(std::string_view text) {
  std::vector<std::string> rows(kRows);
  for (std::size_t index = 0; index < text.size(); ++index) {
    const Glyph* const glyph = FindGlyph(text[index]);
    if (glyph == nullptr) return std::nullopt;
    for (std::size_t row = 0; row < kRows; ++row) {
      rows[row].append(Gap(index, text.size())).append(glyph->rows[row]);
    }
  }
  return rows;
}

}  // namespace client
