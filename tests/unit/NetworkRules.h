// The rules of addresses once more, in the plainest form, to hold the parsers against.
#pragma once

#include <cstdint>
#include <map>
#include <optional>
#include <string>
#include <vector>

#include "platform/Json.h"
#include "tests/unit/Random.h"
#include "tests/unit/Spaces.h"

/// The number of a text that is one of "0" to "255".
inline std::optional<std::uint32_t> OctetByTheList(const std::string& text) {
  static const std::map<std::string, std::uint32_t> octets = [] {
    std::map<std::string, std::uint32_t> list;
    for (std::uint32_t octet = 0; octet < 256; ++octet) list[std::to_string(octet)] = octet;
    return list;
  }();
  const auto found = octets.find(text);
  return found == octets.end() ? std::nullopt : std::optional(found->second);
}

/// The address of a text of four such numbers with dots between them.
inline std::optional<std::uint32_t> QuadByTheList(const Json& value) {
  if (!value.is_string()) return std::nullopt;
  const std::vector<std::string> parts = SplitAt(value.get<std::string>(), '.');
  if (parts.size() != 4) return std::nullopt;
  std::uint32_t address = 0;
  for (const std::string& part : parts) {
    const std::optional<std::uint32_t> octet = OctetByTheList(part);
    if (!octet) return std::nullopt;
    address = address * 256 + *octet;
  }
  return address;
}

/// A text that is mostly an address, else nearly one.
inline std::string NearlyQuad(Random& random) {
  static const std::vector<std::string> usual{"0",   "1",   "9",   "10", "99",
                                              "100", "127", "192", "255"};
  static const std::vector<std::string> odd{"", "00", "01", "256", "300", "1000", " 1", "1 ", "a"};
  std::string text;
  const std::size_t parts = random.oneIn(20) ? random.below(6) : 4;
  for (std::size_t part = 0; part < parts; ++part) {
    if (part > 0) text += '.';
    text += random.oneIn(30) ? random.pick(odd) : random.pick(usual);
  }
  return text;
}
