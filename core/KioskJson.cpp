#include "core/KioskJson.h"

#include <algorithm>
#include <cmath>
#include <cstddef>
#include <exception>
#include <limits>

#include "core/KioskLimits.h"

namespace {

// Measured before parsing, because writing or comparing a deep value recurses.
bool NestsTooDeep(std::string_view text) {
  std::size_t depth = 0;
  bool inString = false;
  for (std::size_t at = 0; at < text.size(); ++at) {
    const char c = text[at];
    if (inString) {
      if (c == '\\') ++at;
      if (c == '"') inString = false;
    } else if (c == '"') {
      inString = true;
    } else if (c == '[' || c == '{') {
      if (++depth > kKioskMaximumJsonDepth) return true;
    } else if ((c == ']' || c == '}') && depth > 0) {
      --depth;
    }
  }
  return false;
}

std::int64_t Clamped(double whole) {
  constexpr double limit = 9223372036854775808.0;  // 2^63
  if (whole >= limit) return std::numeric_limits<std::int64_t>::max();
  if (whole < -limit) return std::numeric_limits<std::int64_t>::min();
  return static_cast<std::int64_t>(whole);
}

}  // namespace

std::optional<Json> KioskJsonParse(std::string_view text) {
  // The parser takes a zero byte for the end of the text; in JSON there is no place for one.
  if (text.find('\0') != text.npos || NestsTooDeep(text)) return std::nullopt;
  Json value = Json::parse(text, nullptr, false);
  if (value.is_discarded()) return std::nullopt;
  return value;
}

std::optional<std::string> KioskJsonText(const Json& value) {
  try {
    return value.dump();
  } catch (const std::exception&) {
    return std::nullopt;
  }
}

std::string KioskReplyText(const Json& reply) {
  return KioskJsonText(reply).value_or(R"({"ok":false})");
}

const Json& KioskMember(const Json& object, const char* key) {
  static const Json null;
  const auto found = object.find(key);
  return object.is_object() && found != object.end() ? *found : null;
}

std::optional<double> KioskNumber(const Json& value) {
  if (value.is_boolean()) return value.get<bool>() ? 1 : 0;
  if (value.is_number()) return value.get<double>();
  return std::nullopt;
}

bool KioskIsInteger(const Json& value, std::int64_t& integer) {
  if (value.is_number_unsigned()) {
    constexpr std::uint64_t limit = std::numeric_limits<std::int64_t>::max();
    integer = static_cast<std::int64_t>(std::min(value.get<std::uint64_t>(), limit));
    return true;
  }
  if (value.is_number_integer()) {
    integer = value.get<std::int64_t>();
    return true;
  }
  if (!value.is_number_float() || value.get<double>() != std::floor(value.get<double>())) {
    return false;
  }
  integer = Clamped(value.get<double>());
  return true;
}

std::optional<bool> KioskTruth(const Json& value) {
  const std::optional<double> number = KioskNumber(value);
  return number ? std::optional(*number != 0) : std::nullopt;
}

std::string KioskDescription(const Json& value) {
  if (value.is_string()) return value.get<std::string>();
  return value.dump(-1, ' ', false, Json::error_handler_t::replace);
}

Json KioskSuccess() { return {{"ok", true}}; }

Json KioskFailure(const std::string& code) { return {{"ok", false}, {"error", code}}; }
