#include "simulator/portal/JsonText.h"

#include <algorithm>

namespace portal {
namespace {

/// Looked at before parsing, because writing and destroying a value takes stack for every level.
std::size_t Depth(std::string_view text) {
  std::size_t depth = 0;
  std::size_t deepest = 0;
  bool quoted = false;
  for (std::size_t i = 0; i < text.size(); ++i) {
    const char c = text[i];
    if (quoted && c == '\\') {
      ++i;
    } else if (c == '"') {
      quoted = !quoted;
    } else if (!quoted && (c == '[' || c == '{')) {
      deepest = std::max(deepest, ++depth);
    } else if (!quoted && (c == ']' || c == '}') && depth > 0) {
      --depth;
    }
  }
  return deepest;
}

}  // namespace

std::optional<Json> ParseJson(std::string_view text, std::size_t maxDepth) {
  if (Depth(text) > maxDepth) return std::nullopt;
  Json value = Json::parse(text, nullptr, false);
  if (value.is_discarded()) return std::nullopt;
  return value;
}

std::string JsonText(const Json& value) {
  return value.dump(-1, ' ', false, Json::error_handler_t::replace);
}

}  // namespace portal
