// UTF-8 for tests, independent of the code under test.
#pragma once

#include <string>

/// The UTF-8 bytes of a code point, surrogates included, in the shortest form of up to four bytes.
inline std::string Utf8(char32_t point) {
  const auto byte = [](char32_t value) { return static_cast<char>(value & 0xFF); };
  const auto trail = [&](int shift) { return byte(0x80 | (point >> shift & 0x3F)); };
  if (point < 0x80) return {byte(point)};
  if (point < 0x800) return {byte(0xC0 | point >> 6), trail(0)};
  if (point < 0x10000) return {byte(0xE0 | point >> 12), trail(6), trail(0)};
  return {byte(0xF0 | point >> 18), trail(12), trail(6), trail(0)};
}
